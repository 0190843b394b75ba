#include "BoundMethod.h"

#include <span>
#include <string>

#include "ClientMember.h"
#include "ClientObject.h"
#include "Invocation.h"
#include "SlotGuard.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyTypeObject* methodType = nullptr;

BoundMethod* AsMethod(PyObject* object) { return reinterpret_cast<BoundMethod*>(object); }

std::string NameOf(const BoundMethod& method) {
    return method.member ? method.member->Name() : py::str(method.name).cast<std::string>();
}

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    Py_XDECREF(AsMethod(object)->self);
    Py_XDECREF(AsMethod(object)->name);
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* Call(PyObject* object, PyObject* args, PyObject* keywords) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const BoundMethod& method = *AsMethod(object);
        IDispatch* target = ClientObject::Dispatch(method.self);
        const std::span<PyObject* const> positional(reinterpret_cast<PyTupleObject*>(args)->ob_item,
                                                    static_cast<size_t>(PyTuple_GET_SIZE(args)));
        if (method.member) {
            const ClientMember& member = *method.member;
            if (member.Func())
                return Invocation::Call(target, member, *member.Func(), DISPATCH_METHOD, positional, keywords).release().ptr();
            return Invocation::Call(target, member, *member.Get(), DISPATCH_PROPERTYGET, positional, keywords).release().ptr();
        }
        const std::string name = NameOf(method);
        if (keywords && PyDict_GET_SIZE(keywords) > 0)
            throw py::type_error(name + "() takes no keyword arguments: the object has no type information");
        return Invocation::CallLate(target, method.dispid, name, DISPATCH_METHOD | DISPATCH_PROPERTYGET, positional)
            .release()
            .ptr();
    });
}

PyObject* Repr(PyObject* object) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const BoundMethod& method = *AsMethod(object);
        const std::string name = method.member ? method.member->QualifiedName() : NameOf(method);
        return PyUnicode_FromFormat("<bound method %s of %R>", name.c_str(), method.self);
    });
}

// As for the methods of built-in types: an instance is its own binding, which makes
// inspect treat it as a routine and read __text_signature__.
PyObject* DescriptorGet(PyObject* object, PyObject*, PyObject*) {
    Py_INCREF(object);
    return object;
}

PyObject* GetDoc(PyObject* object, void*) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const BoundMethod& method = *AsMethod(object);
        if (!method.member) return py::str("A member of an object without type information.").release().ptr();
        return py::str(method.member->Doc()).release().ptr();
    });
}

PyObject* GetName(PyObject* object, void*) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* { return py::str(NameOf(*AsMethod(object))).release().ptr(); });
}

PyObject* GetQualifiedName(PyObject* object, void*) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const BoundMethod& method = *AsMethod(object);
        return py::str(method.member ? method.member->QualifiedName() : NameOf(method)).release().ptr();
    });
}

PyObject* GetSelf(PyObject* object, void*) {
    Py_INCREF(AsMethod(object)->self);
    return AsMethod(object)->self;
}

PyObject* GetTextSignature(PyObject* object, void*) {
    const BoundMethod& method = *AsMethod(object);
    if (!method.member || method.member->TextSignature().empty()) Py_RETURN_NONE;
    return PyUnicode_FromString(method.member->TextSignature().c_str());
}

PyGetSetDef kGetSets[] = {
    {"__doc__", GetDoc, nullptr, nullptr, nullptr},
    {"__name__", GetName, nullptr, nullptr, nullptr},
    {"__qualname__", GetQualifiedName, nullptr, nullptr, nullptr},
    {"__self__", GetSelf, nullptr, nullptr, nullptr},
    {"__text_signature__", GetTextSignature, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_tp_call, reinterpret_cast<void*>(Call)},
    {Py_tp_repr, reinterpret_cast<void*>(Repr)},
    {Py_tp_descr_get, reinterpret_cast<void*>(DescriptorGet)},
    {Py_tp_getset, kGetSets},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.Method", sizeof(BoundMethod), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

py::object Make(PyObject* self, const ClientMember* member, DISPID dispid, PyObject* name) {
    PyObject* object = methodType->tp_alloc(methodType, 0);
    if (!object) throw py::error_already_set();
    BoundMethod& method = *AsMethod(object);
    Py_INCREF(self);
    method.self = self;
    method.member = member;
    method.dispid = dispid;
    Py_XINCREF(name);
    method.name = name;
    return py::reinterpret_steal<py::object>(object);
}

}  // namespace

void BoundMethod::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    methodType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("Method", py::reinterpret_borrow<py::object>(type));
}

py::object BoundMethod::New(PyObject* self, const ClientMember& member) {
    return Make(self, &member, member.Dispid(), nullptr);
}

py::object BoundMethod::NewLate(PyObject* self, DISPID dispid, PyObject* name) {
    return Make(self, nullptr, dispid, name);
}

}  // namespace tessaly::python
