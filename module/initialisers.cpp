// SPDX-License-Identifier: ISC
#include "module/initialisers.h"

namespace quillworks {

bool InitialiserRegistry::run()
{
    for (const auto& initialiser : initialisers_) {
        if (!initialiser.initialise(initialiser.argument)) return false;
        completed_.push_back(initialiser);
    }
    return true;
}

void InitialiserRegistry::tearDown() noexcept
{
    while (!completed_.empty()) {
        const auto last = completed_.back();
        completed_.pop_back();
        if (last.undo) last.undo(last.argument);
    }
}

InitialiserRegistry& moduleInitialisers()
{
    static InitialiserRegistry registry;
    return registry;
}

}  // namespace quillworks
