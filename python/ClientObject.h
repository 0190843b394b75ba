// tessaly.Object: a Python object standing for one object of the library, reached through
// its IDispatch. Each coclass gets a Python subclass (type(obj).__name__ is the coclass
// name) whose attributes are the members of every dispatch interface of the coclass; the
// reference the client object holds is released when Python drops it.
//
// Beyond the members: obj[key] reads and writes the default member (DISPID_VALUE);
// iter(obj) walks _NewEnum; len(obj) reads Count on a collection (a class with _NewEnum and
// Count); == and hash() compare the object's identity (its IUnknown), so two client
// objects for one library object are equal. Pixel-memory objects export their pixels
// through the buffer protocol (PixelBuffer).
#pragma once

#include <pybind11/pybind11.h>

#include "platform/StandardInterfaces.h"

namespace tessaly::python {

class ClientClass;

struct ClientObject {
    PyObject_HEAD
    IDispatch* dispatch;      // one reference, released with the Python object
    ClientClass* owner;       // the object's class, kept for the life of the process
    PyObject* weakReferences;

    // Creates the base type and adds it to the module as tessaly.Object.
    static void Define(pybind11::module_& module);
    static PyTypeObject* BaseType() noexcept;
    static bool Check(PyObject* object) noexcept;
    // The object's IDispatch (no reference added); raises TypeError for anything else.
    static IDispatch* Dispatch(PyObject* object);
    static ClientObject* Cast(PyObject* object);

    // A client object of the object's class holding its own reference; None for null.
    static pybind11::object Wrap(IDispatch* object);

    // The body of __len__ for collection classes, placed in their type by ClientClass.
    static PyMethodDef* LengthMethod() noexcept;
};

}  // namespace tessaly::python
