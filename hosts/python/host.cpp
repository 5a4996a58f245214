// SPDX-License-Identifier: ISC
#include "host.h"

#include <dlfcn.h>

#include "error.h"

namespace quillworks::python {

const quillhost::Session& session()
{
    static const quillhost::Session* const loaded = [] {
        Dl_info own = {};
        if (!dladdr(reinterpret_cast<const void*>(&session), &own))
            throw quillhost::WorkError("this library does not know where it lies");
        return new quillhost::Session("", false, quillhost::folderOf(own.dli_fname));
    }();
    return *loaded;
}

void warnOf(const std::vector<std::string>& notes)
{
    for (const auto& note : notes)
        if (PyErr_WarnEx(PyExc_UserWarning, note.c_str(), 2) != 0) throw py::error_already_set();
}

}  // namespace quillworks::python
