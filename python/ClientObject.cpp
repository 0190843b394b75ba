#include "ClientObject.h"

#include <structmember.h>

#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "ClientClass.h"
#include "Invocation.h"
#include "MemberDescriptor.h"
#include "ObjectIterator.h"
#include "PixelBuffer.h"
#include "PropertyIndexer.h"
#include "SlotGuard.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyTypeObject* baseType = nullptr;

ClientObject* AsClient(PyObject* object) { return reinterpret_cast<ClientObject*>(object); }

// The object's identity: the pointer QueryInterface answers for IUnknown.
IUnknown* Identity(IDispatch* object) {
    IUnknown* identity = nullptr;
    if (FAILED(object->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(&identity))) || !identity) return object;
    identity->Release();  // the client object keeps it alive
    return identity;
}

// A name Python's own protocols look up (__array__, __length_hint__, ...): never a member.
bool IsProtocolName(std::string_view name) { return name.size() > 4 && name.starts_with("__") && name.ends_with("__"); }

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    ClientObject* client = AsClient(object);
    if (client->weakReferences) PyObject_ClearWeakRefs(object);
    if (IDispatch* dispatch = std::exchange(client->dispatch, nullptr)) dispatch->Release();
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* Repr(PyObject* object) {
    const ClientObject* client = AsClient(object);
    const char* name = client->owner ? client->owner->Name().c_str() : "Object";
    return PyUnicode_FromFormat("<tessaly.%s object at %p>", name, object);
}

Py_hash_t Hash(PyObject* object) {
    return Guarded<Py_hash_t>(-1, [&] {
        const auto hash =
            static_cast<Py_hash_t>(reinterpret_cast<uintptr_t>(Identity(ClientObject::Dispatch(object))) >> 4);
        return hash == -1 ? Py_hash_t(-2) : hash;
    });
}

PyObject* Compare(PyObject* left, PyObject* right, int op) {
    if ((op != Py_EQ && op != Py_NE) || !ClientObject::Check(left) || !ClientObject::Check(right))
        Py_RETURN_NOTIMPLEMENTED;
    IDispatch* a = AsClient(left)->dispatch;
    IDispatch* b = AsClient(right)->dispatch;
    const bool same = a == b || (a && b && Identity(a) == Identity(b));
    return PyBool_FromLong((op == Py_EQ) == same);
}

// The AttributeError of the generic lookup, set aside while the fallback looks further and
// restored when it finds nothing.
class PendingError {
public:
    PendingError() { PyErr_Fetch(&type_, &value_, &traceback_); }
    PendingError(const PendingError&) = delete;
    PendingError& operator=(const PendingError&) = delete;
    ~PendingError() {
        Py_XDECREF(type_);
        Py_XDECREF(value_);
        Py_XDECREF(traceback_);
    }
    void Restore() {
        PyErr_Restore(type_, value_, traceback_);
        type_ = value_ = traceback_ = nullptr;
    }

private:
    PyObject* type_ = nullptr;
    PyObject* value_ = nullptr;
    PyObject* traceback_ = nullptr;
};

// Whether the generic lookup failed in a way the fallback may answer: the name is not an
// attribute of the type at all (a member's own refusal stands).
bool MayLookFurther(PyObject* object, PyObject* name) {
    return PyErr_ExceptionMatches(PyExc_AttributeError) && PyUnicode_Check(name) &&
           AsClient(object)->dispatch && !_PyType_Lookup(Py_TYPE(object), name);
}

// Member names are found in the class type first (exact case, the fast path); this runs
// when that fails: another spelling of a member, or a member of an object without class
// information, found by GetIDsOfNames. Returns the member's DISPID (DISPID_UNKNOWN: none)
// and, with class information, the member.
DISPID FindMember(PyObject* object, PyObject* name, const ClientMember*& member) {
    member = nullptr;
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(name, &size);
    if (!text) throw py::error_already_set();
    const std::string_view view(text, static_cast<size_t>(size));
    ClientObject* client = AsClient(object);
    if (IsProtocolName(view)) return DISPID_UNKNOWN;
    if (client->owner->CoClass()) {
        member = client->owner->Find(view);
        return member ? member->Dispid() : DISPID_UNKNOWN;
    }
    DISPID dispid = DISPID_UNKNOWN;
    LPOLESTR names[] = {const_cast<char*>(text)};
    if (FAILED(client->dispatch->GetIDsOfNames(GUID_NULL, names, 1, LOCALE_USER_DEFAULT, &dispid)))
        return DISPID_UNKNOWN;
    return dispid;
}

PyObject* GetAttribute(PyObject* object, PyObject* name) {
    PyObject* found = PyObject_GenericGetAttr(object, name);
    if (found || !MayLookFurther(object, name)) return found;
    PendingError notFound;
    const ClientMember* member = nullptr;
    PyObject* result = Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const DISPID dispid = FindMember(object, name, member);
        if (member) return MemberDescriptor::Read(object, *member).release().ptr();
        if (dispid != DISPID_UNKNOWN) return Invocation::ReadLate(object, dispid, name).release().ptr();
        return nullptr;
    });
    if (!result && !PyErr_Occurred()) notFound.Restore();
    return result;
}

int SetAttribute(PyObject* object, PyObject* name, PyObject* value) {
    const int result = PyObject_GenericSetAttr(object, name, value);
    if (result == 0 || !value || !MayLookFurther(object, name)) return result;
    PendingError notFound;
    const ClientMember* member = nullptr;
    const int written = Guarded<int>(-1, [&] {
        const DISPID dispid = FindMember(object, name, member);
        if (member) {
            MemberDescriptor::Write(object, *member, value);
            return 0;
        }
        if (dispid == DISPID_UNKNOWN) return -1;
        Invocation::CallLate(AsClient(object)->dispatch, dispid, py::str(name).cast<std::string>(),
                             DISPATCH_PROPERTYPUT, {}, value);
        return 0;
    });
    if (written != 0 && !PyErr_Occurred()) notFound.Restore();
    return written;
}

PyObject* Iterate(PyObject* object) {
    return Guarded<PyObject*>(nullptr, [&] { return ObjectIterator::ForObject(object).release().ptr(); });
}

std::span<PyObject* const> Indices(PyObject* const& key) {
    if (PyTuple_Check(key))
        return {reinterpret_cast<PyTupleObject*>(key)->ob_item, static_cast<size_t>(PyTuple_GET_SIZE(key))};
    return {&key, 1};
}

PyObject* Subscript(PyObject* object, PyObject* key) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        ClientObject* client = ClientObject::Cast(object);
        if (client->owner->CoClass()) {
            const ClientMember* member = client->owner->ValueMember();
            if (!member) throw py::type_error("'" + client->owner->Name() + "' object has no default member");
            return PropertyIndexer::Read(object, *member, key).release().ptr();
        }
        return Invocation::CallLate(client->dispatch, DISPID_VALUE, "default member",
                                    DISPATCH_METHOD | DISPATCH_PROPERTYGET, Indices(key))
            .release()
            .ptr();
    });
}

int AssignSubscript(PyObject* object, PyObject* key, PyObject* value) {
    return Guarded<int>(-1, [&] {
        ClientObject* client = ClientObject::Cast(object);
        if (client->owner->CoClass()) {
            const ClientMember* member = client->owner->ValueMember();
            if (!member) throw py::type_error("'" + client->owner->Name() + "' object has no default member");
            PropertyIndexer::Write(object, *member, key, value);
            return 0;
        }
        if (!value) throw py::type_error("items of the default member cannot be deleted");
        Invocation::CallLate(client->dispatch, DISPID_VALUE, "default member", DISPATCH_PROPERTYPUT, Indices(key), value);
        return 0;
    });
}

PyObject* Length(PyObject* object, PyObject*) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        ClientObject* client = ClientObject::Cast(object);
        const ClientMember* count = client->owner->Find("Count");
        if (!count) throw py::type_error("'" + client->owner->Name() + "' object has no len()");
        return Invocation::Get(client->dispatch, *count).release().ptr();
    });
}

PyMethodDef kLengthMethod = {"__len__", Length, METH_NOARGS, "The number of items (Count)."};

PyMemberDef kMembers[] = {
    {"__weaklistoffset__", T_PYSSIZET, offsetof(ClientObject, weakReferences), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_tp_repr, reinterpret_cast<void*>(Repr)},
    {Py_tp_hash, reinterpret_cast<void*>(Hash)},
    {Py_tp_richcompare, reinterpret_cast<void*>(Compare)},
    {Py_tp_getattro, reinterpret_cast<void*>(GetAttribute)},
    {Py_tp_setattro, reinterpret_cast<void*>(SetAttribute)},
    {Py_tp_iter, reinterpret_cast<void*>(Iterate)},
    {Py_mp_subscript, reinterpret_cast<void*>(Subscript)},
    {Py_mp_ass_subscript, reinterpret_cast<void*>(AssignSubscript)},
    {Py_bf_getbuffer, reinterpret_cast<void*>(PixelBuffer::Get)},
    {Py_bf_releasebuffer, reinterpret_cast<void*>(PixelBuffer::Release)},
    {Py_tp_members, kMembers},
    {Py_tp_doc, const_cast<char*>("An object of the library, reached through its IDispatch. Each class of the library "
                                  "has a subclass whose attributes are the members of the class.")},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.Object", sizeof(ClientObject), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

}  // namespace

void ClientObject::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    baseType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("Object", py::reinterpret_borrow<py::object>(type));
}

PyTypeObject* ClientObject::BaseType() noexcept { return baseType; }

bool ClientObject::Check(PyObject* object) noexcept {
    return baseType && PyObject_TypeCheck(object, baseType) && AsClient(object)->dispatch;
}

ClientObject* ClientObject::Cast(PyObject* object) {
    if (!Check(object))
        throw py::type_error(std::string("expected an object of the library, not ") + Py_TYPE(object)->tp_name);
    return AsClient(object);
}

IDispatch* ClientObject::Dispatch(PyObject* object) { return Cast(object)->dispatch; }

py::object ClientObject::Wrap(IDispatch* object) {
    if (!object) return py::none();
    // The object's own IDispatch: the one every member of its class is reached through.
    IDispatch* canonical = nullptr;
    if (FAILED(object->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&canonical))) || !canonical) {
        canonical = object;
        canonical->AddRef();
    }
    ClientClass* owner = nullptr;
    try {
        owner = &ClientClass::Of(canonical);
    } catch (...) {
        canonical->Release();
        throw;
    }
    PyTypeObject* type = owner->PythonType();
    PyObject* wrapped = type->tp_alloc(type, 0);
    if (!wrapped) {
        canonical->Release();
        throw py::error_already_set();
    }
    ClientObject* client = AsClient(wrapped);
    client->dispatch = canonical;
    client->owner = owner;
    client->weakReferences = nullptr;
    return py::reinterpret_steal<py::object>(wrapped);
}

PyMethodDef* ClientObject::LengthMethod() noexcept { return &kLengthMethod; }

}  // namespace tessaly::python
