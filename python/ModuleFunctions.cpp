#include "ModuleFunctions.h"

#include <string>

#include "ClientObject.h"
#include "ComError.h"
#include "EventConnection.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/Module.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

// Objects: creating them by name.
void AddObjectFunctions(py::module_& module) {
    module.def(
        "CreateObject",
        [](const std::string& name) {
            ComPtr<IDispatch> object;
            const HRESULT hr = tessaly::CreateObject(name, IDispatch::iid, object.OutVoid());
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "CreateObject");
            return ClientObject::Wrap(object.get());
        },
        py::arg("progid"),
        "CreateObject(progid) -> object\n\n"
        "Creates an object of the library from its ProgID (\"Tessaly.LuxCollection\", with or without a\n"
        "version, any case) or class ID (\"{B809278B-0289-46F7-9589-972AA350300E}\"). Raises ComError with\n"
        "CO_E_CLASSSTRING for a name that is neither, REGDB_E_CLASSNOTREG for an unknown class and\n"
        "CLASS_E_CLASSNOTAVAILABLE for a class that cannot be created.");
}

// Events: connecting a Python object to an object's outgoing interfaces.
void AddEventFunctions(py::module_& module) {
    module.def(
        "GetEvents", [](py::handle object, py::handle sink) { return EventConnection::Connect(object.ptr(), sink.ptr()); },
        py::arg("obj"), py::arg("sink"),
        "GetEvents(obj, sink) -> EventConnection\n\n"
        "Connects `sink` to every outgoing interface of `obj`. Each event calls the sink's method of the\n"
        "same name with the event's arguments (Change(StateID, Value, FunctionalArea)); events the sink\n"
        "has no method for are ignored, and an exception a method raises is reported as a RuntimeWarning.\n"
        "Events may arrive on other threads. The connection lasts until close() is called or the\n"
        "returned object is dropped.");
}

// The library's run time: what tests and diagnostics read.
void AddRuntimeFunctions(py::module_& module) {
    module.def(
        "LiveObjectCount", [] { return ::LiveObjectCount(); },
        "LiveObjectCount() -> int\n\n"
        "The number of objects of the library alive in the process, Python's included: it returns to\n"
        "its value once Python has dropped the objects it made.");
}

}  // namespace

void AddModuleFunctions(py::module_& module) {
    AddObjectFunctions(module);
    AddEventFunctions(module);
    AddRuntimeFunctions(module);
}

}  // namespace tessaly::python
