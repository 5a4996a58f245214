// SPDX-License-Identifier: ISC
// The module that this process has loaded, and how what it says reaches Python.
#pragma once

#include <pybind11/pybind11.h>
#include <string>
#include <vector>

#include "session.h"

namespace quillworks::python {

namespace py = pybind11;

/// Loaded with the first call and never unloaded: Python lets its objects go in any order, and some
/// of them not at all. WorkError where it does not load.
const quillhost::Session& session();

/// A warning for each line.
void warnOf(const std::vector<std::string>& notes);

/// Runs `work` and gives what its session noted to Python as warnings. Needs the interpreter's lock
/// at its begin and its end.
template <class Work> auto warning(Work work)
{
    std::vector<std::string> notes;
    if constexpr (std::is_void_v<decltype(work())>) {
        {
            const quillhost::Session::NotesApart apart(notes);
            work();
        }
        warnOf(notes);
    } else {
        auto result = [&] {
            const quillhost::Session::NotesApart apart(notes);
            return work();
        }();
        warnOf(notes);
        return result;
    }
}

}  // namespace quillworks::python
