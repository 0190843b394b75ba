#include "ComError.h"

#include <pybind11/eval.h>

#include <cstdio>

#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyObject* comErrorType = nullptr;

// The class is written in Python: it is plain data, and its __str__ reads best there.
constexpr const char* kComErrorSource = R"PY(
class ComError(Exception):
    """A call into the library failed.

    hresult      the failure code, a signed 32-bit number like the library's constants
                 (tessaly.constants.e_LuxCollection_InvalidIndex, ...)
    description  what went wrong, as the library described it
    source       the member or function that failed
    """

    def __init__(self, hresult, description="", source=""):
        super().__init__(hresult, description, source)
        self.hresult = hresult
        self.description = description
        self.source = source

    def __str__(self):
        code = "0x%08X" % (self.hresult & 0xFFFFFFFF)
        text = self.description or "failed"
        return "%s: %s (%s)" % (self.source, text, code) if self.source else "%s (%s)" % (text, code)
)PY";

py::str Text(std::string_view text) {
    PyObject* decoded = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
    if (!decoded) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(decoded);
}

}  // namespace

void ComError::Define(py::module_& module) {
    py::dict scope;
    scope["__name__"] = "tessaly";
    scope["__builtins__"] = py::module_::import("builtins");
    py::exec(kComErrorSource, scope);
    py::object type = scope["ComError"];
    comErrorType = type.inc_ref().ptr();
    module.add_object("ComError", type);
}

PyObject* ComError::Type() noexcept { return comErrorType; }

void ComError::Raise(HRESULT hr, std::string_view description, std::string_view source) {
    if (description.empty()) description = StandardDescription(hr);
    py::object error = py::reinterpret_borrow<py::object>(comErrorType)(hr, Text(description), Text(source));
    PyErr_SetObject(comErrorType, error.ptr());
    throw py::error_already_set();
}

void ComError::RaiseFromExcepInfo(EXCEPINFO& info, std::string_view fallbackSource) {
    if (info.pfnDeferredFillIn) info.pfnDeferredFillIn(&info);
    const HRESULT hr = info.scode != 0 ? info.scode : DISP_E_EXCEPTION;
    const std::string description(BstrView(info.bstrDescription));
    std::string source(BstrView(info.bstrSource));
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrHelpFile);
    info.bstrDescription = info.bstrSource = info.bstrHelpFile = nullptr;
    if (source.empty()) source = fallbackSource;
    Raise(hr, description, source);
}

void ComError::RaiseFromErrorInfo(HRESULT hr, std::string_view fallbackSource) {
    std::string description;
    std::string source;
    IErrorInfo* error = nullptr;
    if (GetErrorInfo(0, &error) == S_OK && error) {
        BSTR text = nullptr;
        if (SUCCEEDED(error->GetDescription(&text))) description = BstrView(text);
        SysFreeString(text);
        text = nullptr;
        if (SUCCEEDED(error->GetSource(&text))) source = BstrView(text);
        SysFreeString(text);
        error->Release();
    }
    if (source.empty()) source = fallbackSource;
    Raise(hr, description, source);
}

std::string_view ComError::StandardDescription(HRESULT hr) noexcept {
    switch (hr) {
    case E_NOTIMPL: return "Not implemented";
    case E_NOINTERFACE: return "The object does not support the interface";
    case E_POINTER: return "A pointer argument is null";
    case E_ABORT: return "The operation was aborted";
    case E_FAIL: return "Unspecified failure";
    case E_UNEXPECTED: return "Unexpected failure";
    case E_ACCESSDENIED: return "Access denied";
    case E_HANDLE: return "Invalid handle";
    case E_OUTOFMEMORY: return "Out of memory";
    case E_INVALIDARG: return "An argument is not valid";
    case DISP_E_UNKNOWNINTERFACE: return "Unknown interface";
    case DISP_E_MEMBERNOTFOUND: return "Member not found";
    case DISP_E_PARAMNOTFOUND: return "Parameter not found";
    case DISP_E_TYPEMISMATCH: return "Type mismatch";
    case DISP_E_UNKNOWNNAME: return "Unknown name";
    case DISP_E_NONAMEDARGS: return "Named arguments are not accepted";
    case DISP_E_BADVARTYPE: return "Bad variant type";
    case DISP_E_EXCEPTION: return "The member raised an exception";
    case DISP_E_OVERFLOW: return "Value out of range";
    case DISP_E_BADINDEX: return "Invalid index";
    case DISP_E_UNKNOWNLCID: return "Unknown locale";
    case DISP_E_ARRAYISLOCKED: return "The array is locked";
    case DISP_E_BADPARAMCOUNT: return "Wrong number of arguments";
    case DISP_E_PARAMNOTOPTIONAL: return "A required argument is missing";
    case DISP_E_BADCALLEE: return "Bad callee";
    case DISP_E_NOTACOLLECTION: return "The object is not a collection";
    case DISP_E_DIVBYZERO: return "Division by zero";
    case TYPE_E_ELEMENTNOTFOUND: return "Element not found";
    case CONNECT_E_NOCONNECTION: return "No such connection";
    case CONNECT_E_ADVISELIMIT: return "No more connections are accepted";
    case CONNECT_E_CANNOTCONNECT: return "The sink does not support the outgoing interface";
    case CLASS_E_NOAGGREGATION: return "The class does not support aggregation";
    case CLASS_E_CLASSNOTAVAILABLE: return "The class cannot be created";
    case REGDB_E_CLASSNOTREG: return "Class not registered";
    case CO_E_CLASSSTRING: return "Not a ProgID or class ID";
    default: return "";
    }
}

}  // namespace tessaly::python
