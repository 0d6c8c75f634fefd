// tavrin._native: the compiled half of the Python package `tavrin`. It only
// converts and forwards; the public functions, their defaults, type hints and
// documentation live in the pure-Python package (tavrin/__init__.py), which
// turns keyword arguments into the program's option words.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "TavrinCommon.h"
#include "encoders.h"
#include "errors.h"
#include "formats/page_reader.h"
#include "pipeline_calls.h"

namespace py = pybind11;
using namespace tavrin_python;

PYBIND11_MODULE(_native, m) {
    m.doc() = "Compiled part of the tavrin package; use the functions of `tavrin` instead.";
    registerErrorTranslator();
    // As in the program: libtiff's messages (also those of the MMR encoder,
    // which drives libtiff) stay off the terminal; failures come as statuses.
    tavrin::quietTiffMessages();

    py::class_<tavrin::Options>(m, "Options", "Options as the tavrin program parsed them.");

    m.def("parse_options", &parseOptions, py::arg("command"), py::arg("words"));
    m.def("detect", &detectArray, py::arg("page"), py::arg("options"));
    m.def("compress", &compressArrays, py::arg("pages"), py::arg("options"));
    m.def("compress_file", &compressFile, py::arg("path"), py::arg("options"), py::arg("with_report"));
    m.def("write_file", &writeFile, py::arg("path"), py::arg("data"));
    m.def("mmr", &encodeMmr, py::arg("packed"), py::arg("width"), py::arg("dpi"));
    m.def("jpeg", &encodeJpeg, py::arg("image"), py::arg("quality"), py::arg("chroma_offset"),
          py::arg("sampling"), py::arg("dpi"));
    m.def("flate", &wrapFlate, py::arg("data"));
    m.def("version", [] { return std::string(LibTavrinCommonGetVersion()); });
    m.def("usage", [](const std::string& command) {
        return tavrin::usageText(false, command == "detect" ? tavrin::Command::Detect : tavrin::Command::Compress);
    });
}
