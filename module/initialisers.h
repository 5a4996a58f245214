// SPDX-License-Identifier: ISC
// What has to be done when the module is loaded, and undone when it is unloaded.
#pragma once

#include <vector>

namespace quillworks {

struct Initialiser {
    bool (*initialise)(void* argument);
    void (*undo)(void* argument);  // may be null
    void* argument;
};

/// Runs initialisers in the order they were added and undoes the completed ones in reverse.
/// [main thread]
class InitialiserRegistry {
public:
    void add(const Initialiser& initialiser) { initialisers_.push_back(initialiser); }
    /// Stops at the first that returns false.
    bool run();
    void tearDown() noexcept;

private:
    std::vector<Initialiser> initialisers_, completed_;
};

/// The module's own; parts of the module add to it from static objects.
InitialiserRegistry& moduleInitialisers();

}  // namespace quillworks
