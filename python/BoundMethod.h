// A method of one object, as obj.Method hands it out: calling it invokes the member with
// the arguments given. help(obj.Method) shows the signature, with parameter names and
// defaults (inspect.signature reads it too), and the help string.
#pragma once

#include <pybind11/pybind11.h>

#include "platform/AutomationTypes.h"

namespace tessaly::python {

class ClientMember;

struct BoundMethod {
    PyObject_HEAD
    PyObject* self;                // the client object
    const ClientMember* member;    // null for a member found without type information
    DISPID dispid;                 // of such a member
    PyObject* name;                // of such a member

    static void Define(pybind11::module_& module);
    static pybind11::object New(PyObject* self, const ClientMember& member);
    static pybind11::object NewLate(PyObject* self, DISPID dispid, PyObject* name);
};

}  // namespace tessaly::python
