// tessaly.ComError, the exception of a failed call into the library: it carries the
// HRESULT (signed 32-bit, as the library's constants are), the description and the source
// (the member that failed). The Raise functions set it as the current Python error and
// throw pybind11::error_already_set, so that C++ code unwinds to the nearest boundary.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>

#include "platform/AutomationTypes.h"

namespace tessaly::python {

class ComError {
public:
    // Creates the exception class and adds it to the module.
    static void Define(pybind11::module_& module);
    static PyObject* Type() noexcept;

    [[noreturn]] static void Raise(HRESULT hr, std::string_view description, std::string_view source);
    // A failure reported through EXCEPINFO (DISP_E_EXCEPTION); frees its strings.
    [[noreturn]] static void RaiseFromExcepInfo(EXCEPINFO& info, std::string_view fallbackSource);
    // A failure whose description the thread's error info holds (the class table, connection
    // points); the standard text when it holds none.
    [[noreturn]] static void RaiseFromErrorInfo(HRESULT hr, std::string_view fallbackSource);

    // The standard text of the runtime's codes; "" for others.
    static std::string_view StandardDescription(HRESULT hr) noexcept;
};

}  // namespace tessaly::python
