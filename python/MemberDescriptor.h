// The attribute of a class type for one member: reading it on an object reads the property
// (or hands out an indexer or a bound method), assigning to it calls the put or putref.
// On the class itself it stands for the member, so help() on the class shows every
// member's signature and help string.
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

class ClientMember;

struct MemberDescriptor {
    PyObject_HEAD
    const ClientMember* member;

    static void Define(pybind11::module_& module);
    // A new descriptor for a member of a class (the member lives as long as its class).
    static pybind11::object New(const ClientMember& member);

    // The attribute's value on a client object: the property's value, an indexer or a bound
    // method. New reference.
    static pybind11::object Read(PyObject* self, const ClientMember& member);
    // Assigns to the attribute.
    static void Write(PyObject* self, const ClientMember& member, PyObject* value);
};

}  // namespace tessaly::python
