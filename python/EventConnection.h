// tessaly.EventConnection, what tessaly.GetEvents(obj, sink) returns: one event sink advised
// on every outgoing interface of the object, all delivering to the Python object `sink`.
// close() (or leaving a `with` block, or dropping the connection) unadvises them; a
// connection the sink itself keeps is collected with it by the garbage collector.
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

struct EventConnection {
    PyObject_HEAD
    class State;
    State* state;

    static void Define(pybind11::module_& module);
    // Connects `sink` to the client object `object`; ComError when it has no outgoing
    // interface or a connection point refuses.
    static pybind11::object Connect(PyObject* object, PyObject* sink);
};

}  // namespace tessaly::python
