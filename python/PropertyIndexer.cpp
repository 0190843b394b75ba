#include "PropertyIndexer.h"

#include <span>
#include <string>

#include "ClientMember.h"
#include "ClientObject.h"
#include "Invocation.h"
#include "OpaqueUnknown.h"
#include "SlotGuard.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyTypeObject* indexerType = nullptr;

PropertyIndexer* AsIndexer(PyObject* object) { return reinterpret_cast<PropertyIndexer*>(object); }

// A subscript's indices: the items of a tuple, else the key alone.
std::span<PyObject* const> Indices(PyObject* const& key) {
    if (PyTuple_Check(key))
        return {reinterpret_cast<PyTupleObject*>(key)->ob_item, static_cast<size_t>(PyTuple_GET_SIZE(key))};
    return {&key, 1};
}

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    Py_XDECREF(AsIndexer(object)->self);
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* Subscript(PyObject* object, PyObject* key) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const PropertyIndexer& indexer = *AsIndexer(object);
        return PropertyIndexer::Read(indexer.self, *indexer.member, key).release().ptr();
    });
}

int AssignSubscript(PyObject* object, PyObject* key, PyObject* value) {
    return Guarded<int>(-1, [&] {
        const PropertyIndexer& indexer = *AsIndexer(object);
        PropertyIndexer::Write(indexer.self, *indexer.member, key, value);
        return 0;
    });
}

PyObject* Call(PyObject* object, PyObject* args, PyObject* keywords) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const PropertyIndexer& indexer = *AsIndexer(object);
        const ClientMember& member = *indexer.member;
        if (!member.Get()) throw py::type_error(member.QualifiedName() + " is write-only");
        const std::span<PyObject* const> positional(reinterpret_cast<PyTupleObject*>(args)->ob_item,
                                                    static_cast<size_t>(PyTuple_GET_SIZE(args)));
        return Invocation::Call(ClientObject::Dispatch(indexer.self), member, *member.Get(), DISPATCH_PROPERTYGET,
                                positional, keywords)
            .release()
            .ptr();
    });
}

PyObject* Repr(PyObject* object) {
    const PropertyIndexer& indexer = *AsIndexer(object);
    return PyUnicode_FromFormat("<indexed property %s of %R>", indexer.member->QualifiedName().c_str(), indexer.self);
}

PyObject* GetDoc(PyObject* object, void*) { return PyUnicode_FromString(AsIndexer(object)->member->Doc().c_str()); }

PyGetSetDef kGetSets[] = {
    {"__doc__", GetDoc, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_mp_subscript, reinterpret_cast<void*>(Subscript)},
    {Py_mp_ass_subscript, reinterpret_cast<void*>(AssignSubscript)},
    {Py_tp_call, reinterpret_cast<void*>(Call)},
    {Py_tp_repr, reinterpret_cast<void*>(Repr)},
    {Py_tp_getset, kGetSets},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.IndexedProperty", sizeof(PropertyIndexer), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

}  // namespace

void PropertyIndexer::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    indexerType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("IndexedProperty", py::reinterpret_borrow<py::object>(type));
}

py::object PropertyIndexer::New(PyObject* self, const ClientMember& member) {
    PyObject* object = indexerType->tp_alloc(indexerType, 0);
    if (!object) throw py::error_already_set();
    Py_INCREF(self);
    AsIndexer(object)->self = self;
    AsIndexer(object)->member = &member;
    return py::reinterpret_steal<py::object>(object);
}

py::object PropertyIndexer::Read(PyObject* self, const ClientMember& member, PyObject* key) {
    if (!member.Get()) throw py::type_error(member.QualifiedName() + " is write-only");
    return Invocation::Call(ClientObject::Dispatch(self), member, *member.Get(), DISPATCH_PROPERTYGET, Indices(key),
                            nullptr);
}

void PropertyIndexer::Write(PyObject* self, const ClientMember& member, PyObject* key, PyObject* value) {
    if (!value) throw py::type_error(member.QualifiedName() + " items cannot be deleted");
    uint16_t flags = 0;
    const MemberInfo* writer = member.Writer(ClientObject::Check(value) || OpaqueUnknown::Check(value), flags);
    if (!writer) throw py::type_error(member.QualifiedName() + " is read-only");
    Invocation::Call(ClientObject::Dispatch(self), member, *writer, flags, Indices(key), nullptr, value);
}

}  // namespace tessaly::python
