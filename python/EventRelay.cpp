#include "EventRelay.h"

#include <algorithm>
#include <string>

#include "VariantConverter.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

const MemberInfo* FindEvent(const InterfaceInfo& source, DISPID dispid) {
    for (const InterfaceInfo* level = &source; level; level = level->base)
        for (uint16_t m = 0; m < level->memberCount; ++m)
            if (level->members[m].dispid == dispid) return &level->members[m];
    return nullptr;
}

bool InterpreterRunning() { return Py_IsInitialized() && !_Py_IsFinalizing(); }

}  // namespace

EventRelay::EventRelay(PyObject* sink) : sink_(sink) { Py_INCREF(sink_); }

EventRelay::~EventRelay() {
    // Detach normally dropped the reference already, with the GIL held.
    if (sink_ && InterpreterRunning()) {
        py::gil_scoped_acquire gil;
        Py_CLEAR(sink_);
    }
}

void EventRelay::Detach() noexcept { Py_CLEAR(sink_); }

void EventRelay::Deliver(const InterfaceInfo& source, DISPID dispid, const DISPPARAMS& params) noexcept {
    // Before-change notifications (negative IDs) and other undeclared IDs: not for Python.
    const MemberInfo* event = FindEvent(source, dispid);
    if (!event || !InterpreterRunning()) return;
    py::gil_scoped_acquire gil;
    if (!sink_) return;  // the connection was closed while the event was on its way
    // Held for the call: the method may close the connection, which detaches the relay.
    const py::object sink = py::reinterpret_borrow<py::object>(sink_);
    try {
        Call(sink.ptr(), *event, params);
    } catch (py::error_already_set& error) {
        error.restore();
        Warn(sink.ptr(), *event);
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        Warn(sink.ptr(), *event);
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "unknown C++ exception");
        Warn(sink.ptr(), *event);
    }
}

void EventRelay::Call(PyObject* sink, const MemberInfo& event, const DISPPARAMS& params) {
    PyObject* method = PyObject_GetAttrString(sink, event.name);
    if (!method) {
        if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw py::error_already_set();
        PyErr_Clear();  // no method for this event: not interested
        return;
    }
    py::object handler = py::reinterpret_steal<py::object>(method);
    // Positional arguments come last-first; named ones (rare for events) first, by position.
    const size_t positional = params.cArgs - params.cNamedArgs;
    size_t count = positional;
    for (UINT j = 0; j < params.cNamedArgs; ++j)
        if (params.rgdispidNamedArgs[j] >= 0) count = std::max(count, static_cast<size_t>(params.rgdispidNamedArgs[j]) + 1);
    py::tuple arguments(count);
    for (size_t k = 0; k < count; ++k) arguments[k] = py::none();
    for (size_t k = 0; k < positional; ++k)
        arguments[k] = VariantConverter::FromVariant(params.rgvarg[params.cArgs - 1 - k]);
    for (UINT j = 0; j < params.cNamedArgs; ++j)
        if (params.rgdispidNamedArgs[j] >= 0)
            arguments[static_cast<size_t>(params.rgdispidNamedArgs[j])] = VariantConverter::FromVariant(params.rgvarg[j]);
    handler(*arguments);
}

void EventRelay::Warn(PyObject* sink, const MemberInfo& event) noexcept {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    std::string text = std::string(Py_TYPE(sink)->tp_name) + "." + event.name + " raised ";
    PyObject* description = value ? PyObject_Repr(value) : nullptr;
    const char* utf8 = description ? PyUnicode_AsUTF8(description) : nullptr;
    if (!utf8) PyErr_Clear();
    text += utf8 ? utf8 : "an exception";
    Py_XDECREF(description);
    Py_XDECREF(type);
    Py_XDECREF(value);
    Py_XDECREF(traceback);
    // With warnings turned into errors, the report still must not reach the object.
    if (PyErr_WarnEx(PyExc_RuntimeWarning, text.c_str(), 1) < 0) PyErr_WriteUnraisable(sink);
}

}  // namespace tessaly::python
