// The iterator of `for item in obj`: the IEnumVARIANT that the object's _NewEnum hands out,
// read one item at a time. Collections enumerate a snapshot, so the loop neither sees nor
// blocks changes made while it runs.
#pragma once

#include <pybind11/pybind11.h>

#include "platform/StandardInterfaces.h"

namespace tessaly::python {

struct ObjectIterator {
    PyObject_HEAD
    IEnumVARIANT* enumerator;  // one reference

    static void Define(pybind11::module_& module);
    // Calls _NewEnum of the client object `self`; TypeError when it has none.
    static pybind11::object ForObject(PyObject* self);
};

}  // namespace tessaly::python
