// A property with indices, as obj.Item hands it out: obj.Item[key] reads it, obj.Item[key] =
// value writes it (put, or putref for an object when the property has one), and
// obj.Cell[1, 2] passes two indices. Calling it, obj.Item(key), reads too, and takes
// keywords and leaves out optional indices. The default member works the same through the
// object itself: obj[key].
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

class ClientMember;

struct PropertyIndexer {
    PyObject_HEAD
    PyObject* self;  // the client object
    const ClientMember* member;

    static void Define(pybind11::module_& module);
    static pybind11::object New(PyObject* self, const ClientMember& member);

    // obj.Member[key] and obj.Member[key] = value; a tuple key holds several indices.
    static pybind11::object Read(PyObject* self, const ClientMember& member, PyObject* key);
    static void Write(PyObject* self, const ClientMember& member, PyObject* key, PyObject* value);
};

}  // namespace tessaly::python
