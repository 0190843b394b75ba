#include "OpaqueUnknown.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyTypeObject* unknownType = nullptr;

OpaqueUnknown* AsUnknown(PyObject* object) { return reinterpret_cast<OpaqueUnknown*>(object); }

// The object's identity: the pointer QueryInterface answers for IUnknown.
IUnknown* Identity(IUnknown* object) {
    IUnknown* identity = nullptr;
    if (FAILED(object->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(&identity))) || !identity) return object;
    identity->Release();  // the client object keeps it alive
    return identity;
}

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    if (IUnknown* unknown = AsUnknown(object)->unknown) unknown->Release();
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* Repr(PyObject* object) { return PyUnicode_FromFormat("<tessaly.Unknown object at %p>", object); }

Py_hash_t Hash(PyObject* object) {
    const auto hash = static_cast<Py_hash_t>(reinterpret_cast<uintptr_t>(Identity(AsUnknown(object)->unknown)) >> 4);
    return hash == -1 ? -2 : hash;
}

PyObject* Compare(PyObject* left, PyObject* right, int op) {
    if ((op != Py_EQ && op != Py_NE) || !OpaqueUnknown::Check(right)) Py_RETURN_NOTIMPLEMENTED;
    const bool same = Identity(AsUnknown(left)->unknown) == Identity(AsUnknown(right)->unknown);
    return PyBool_FromLong((op == Py_EQ) == same);
}

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_tp_repr, reinterpret_cast<void*>(Repr)},
    {Py_tp_hash, reinterpret_cast<void*>(Hash)},
    {Py_tp_richcompare, reinterpret_cast<void*>(Compare)},
    {Py_tp_doc, const_cast<char*>("An object of the library without IDispatch, held to be passed back.")},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.Unknown", sizeof(OpaqueUnknown), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

}  // namespace

void OpaqueUnknown::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    unknownType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("Unknown", py::reinterpret_borrow<py::object>(type));
}

bool OpaqueUnknown::Check(PyObject* object) noexcept {
    return unknownType && PyObject_TypeCheck(object, unknownType) && AsUnknown(object)->unknown;
}

IUnknown* OpaqueUnknown::Pointer(PyObject* object) noexcept { return AsUnknown(object)->unknown; }

py::object OpaqueUnknown::Wrap(IUnknown* unknown) {
    if (!unknown) return py::none();
    PyObject* object = unknownType->tp_alloc(unknownType, 0);
    if (!object) throw py::error_already_set();
    unknown->AddRef();
    AsUnknown(object)->unknown = unknown;
    return py::reinterpret_steal<py::object>(object);
}

}  // namespace tessaly::python
