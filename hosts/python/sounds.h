// SPDX-License-Identifier: ISC
// Sound files and loudness for Python.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <string>

namespace quillworks::python {

namespace py = pybind11;

/// The whole file as (array, rate); at `rate`, 0: that of the file.
/// WorkError for what cannot be read.
py::tuple readSound(const std::string& path, int rate, bool asDouble);
/// Writes a file that appears when it is complete. `format` is a SampleFormat or kAnyFormat,
/// `dither` a Dither, `layout` a name or empty.
void writeSound(const std::string& path, const py::array& array, int rate, int format, int dither,
                const std::string& layout);

/// The figures of a programme by their names; what has nothing to report is not-a-number.
py::dict measureFile(const std::string& path);
py::dict measureArray(const py::array& array, int rate, const std::string& layout);

}  // namespace quillworks::python
