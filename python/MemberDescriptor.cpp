#include "MemberDescriptor.h"

#include <string>

#include "BoundMethod.h"
#include "ClientMember.h"
#include "ClientObject.h"
#include "Invocation.h"
#include "OpaqueUnknown.h"
#include "PropertyIndexer.h"
#include "SlotGuard.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyTypeObject* descriptorType = nullptr;

MemberDescriptor* AsDescriptor(PyObject* object) { return reinterpret_cast<MemberDescriptor*>(object); }

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* DescriptorGet(PyObject* descriptor, PyObject* object, PyObject*) {
    if (!object || object == Py_None) {
        // Read on the class: the member itself, for help() and introspection.
        Py_INCREF(descriptor);
        return descriptor;
    }
    return Guarded<PyObject*>(nullptr, [&] {
        return MemberDescriptor::Read(object, *AsDescriptor(descriptor)->member).release().ptr();
    });
}

int DescriptorSet(PyObject* descriptor, PyObject* object, PyObject* value) {
    return Guarded<int>(-1, [&] {
        MemberDescriptor::Write(object, *AsDescriptor(descriptor)->member, value);
        return 0;
    });
}

PyObject* Repr(PyObject* object) {
    return PyUnicode_FromFormat("<member %s>", AsDescriptor(object)->member->QualifiedName().c_str());
}

PyObject* GetDoc(PyObject* object, void*) { return PyUnicode_FromString(AsDescriptor(object)->member->Doc().c_str()); }

PyObject* GetName(PyObject* object, void*) {
    return PyUnicode_FromString(AsDescriptor(object)->member->Name().c_str());
}

PyGetSetDef kGetSets[] = {
    {"__doc__", GetDoc, nullptr, nullptr, nullptr},
    {"__name__", GetName, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_tp_descr_get, reinterpret_cast<void*>(DescriptorGet)},
    {Py_tp_descr_set, reinterpret_cast<void*>(DescriptorSet)},
    {Py_tp_repr, reinterpret_cast<void*>(Repr)},
    {Py_tp_getset, kGetSets},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.Member", sizeof(MemberDescriptor), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

}  // namespace

void MemberDescriptor::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    descriptorType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("Member", py::reinterpret_borrow<py::object>(type));
}

py::object MemberDescriptor::New(const ClientMember& member) {
    PyObject* object = descriptorType->tp_alloc(descriptorType, 0);
    if (!object) throw py::error_already_set();
    AsDescriptor(object)->member = &member;
    return py::reinterpret_steal<py::object>(object);
}

py::object MemberDescriptor::Read(PyObject* self, const ClientMember& member) {
    IDispatch* target = ClientObject::Dispatch(self);
    switch (member.Kind()) {
    case ClientMember::Access::Value:
        if (ClientMember::VisibleCount(*member.Get()) == 0) return Invocation::Get(target, member);
        return Invocation::Call(target, member, *member.Get(), DISPATCH_PROPERTYGET, {}, nullptr);
    case ClientMember::Access::Indexed:
        return PropertyIndexer::New(self, member);
    case ClientMember::Access::Method:
        return BoundMethod::New(self, member);
    case ClientMember::Access::WriteOnly:
        break;
    }
    throw py::attribute_error(member.QualifiedName() + " is write-only");
}

void MemberDescriptor::Write(PyObject* self, const ClientMember& member, PyObject* value) {
    IDispatch* target = ClientObject::Dispatch(self);
    if (!value) throw py::attribute_error(member.QualifiedName() + " cannot be deleted");
    if (member.Kind() == ClientMember::Access::Method) throw py::attribute_error(member.QualifiedName() + " is a method");
    uint16_t flags = 0;
    const MemberInfo* writer = member.Writer(ClientObject::Check(value) || OpaqueUnknown::Check(value), flags);
    if (!writer) throw py::attribute_error(member.QualifiedName() + " is read-only");
    if (ClientMember::VisibleCount(*writer) != 1)
        throw py::type_error(member.QualifiedName() + " takes indices: assign obj." + member.Name() + "[...] = value");
    Invocation::Call(target, member, *writer, flags, {}, nullptr, value);
}

}  // namespace tessaly::python
