// tessaly.Unknown: an object of the library that has no IDispatch (a stream, an
// enumerator). Python cannot call it, but can hold it and pass it back to a parameter
// that takes it; it compares by identity like client objects.
#pragma once

#include <pybind11/pybind11.h>

#include "platform/StandardInterfaces.h"

namespace tessaly::python {

struct OpaqueUnknown {
    PyObject_HEAD
    IUnknown* unknown;  // one reference

    static void Define(pybind11::module_& module);
    static bool Check(PyObject* object) noexcept;
    static IUnknown* Pointer(PyObject* object) noexcept;
    // A new tessaly.Unknown holding its own reference.
    static pybind11::object Wrap(IUnknown* unknown);
};

}  // namespace tessaly::python
