#include "errors.h"

#include "pipeline/app_error.h"

namespace tavrin_python {

namespace py = pybind11;

namespace {

void raise(const char* kind, const char* message, int exitCode, py::object status) {
    const py::object cls = py::module_::import("tavrin._errors").attr(kind);
    const py::object error = cls(message);
    error.attr("exit_code") = exitCode;
    error.attr("status") = status;
    PyErr_SetObject(cls.ptr(), error.ptr());
}

}  // namespace

void registerErrorTranslator() {
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const tavrin::AppError& e) {
            raise(e.code() == tavrin::kExitUsage ? "OptionError" : "Error", e.what(), e.code(), py::none());
        } catch (const LibraryFailure& e) {
            raise("LibraryError", e.what(), tavrin::kExitFailure, py::int_(e.status()));
        }
    });
}

}  // namespace tavrin_python
