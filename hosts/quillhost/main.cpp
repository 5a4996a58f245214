// SPDX-License-Identifier: ISC
// quillhost: runs the effects of a module on sound files.
#include <iostream>
#include <new>

#include "command_line.h"
#include "console.h"
#include "error.h"
#include "interrupt.h"
#include "session.h"

namespace quillhost {
namespace {

int run(int argc, char** argv)
{
    const CommandLine line({argv + 1, argv + argc});
    if (!line.command()) {
        std::cout << line.answer();
        return kDone;
    }
    Session session(line.module(), line.quiet());
    const int code = line.run(session);
    session.sayNotes();
    return code;
}

int report(const std::string& what, int code)
{
    say(what);
    return code;
}

}  // namespace
}  // namespace quillhost

int main(int argc, char** argv)
{
    using namespace quillhost;
    keepConsole();
    installSignalHandlers();
    try {
        const int code = run(argc, argv);
        std::cout.flush();
        if (!std::cout) return report("standard output cannot be written", kFailed);
        return code;
    } catch (const UsageError& e) {
        return report(e.what(), kWrongUsage);
    } catch (const std::bad_alloc&) {
        return report("there is not enough memory", kFailed);
    } catch (const std::exception& e) {
        return report(e.what(), kFailed);
    }
}
