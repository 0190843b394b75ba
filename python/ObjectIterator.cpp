#include "ObjectIterator.h"

#include <string>

#include "ClientClass.h"
#include "ClientObject.h"
#include "ComError.h"
#include "Invocation.h"
#include "SlotGuard.h"
#include "VariantConverter.h"
#include "platform/Variant.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

PyTypeObject* iteratorType = nullptr;

ObjectIterator* AsIterator(PyObject* object) { return reinterpret_cast<ObjectIterator*>(object); }

struct ClearedVariant {
    VARIANT value{};
    ~ClearedVariant() { VariantClear(&value); }
};

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    if (IEnumVARIANT* enumerator = AsIterator(object)->enumerator) enumerator->Release();
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* Next(PyObject* object) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        IEnumVARIANT* enumerator = AsIterator(object)->enumerator;
        if (!enumerator) return nullptr;
        ClearedVariant item;
        ULONG fetched = 0;
        HRESULT hr;
        Py_BEGIN_ALLOW_THREADS
        hr = enumerator->Next(1, &item.value, &fetched);
        Py_END_ALLOW_THREADS
        if (FAILED(hr)) ComError::Raise(hr, "", "IEnumVARIANT.Next");
        if (hr == S_FALSE || fetched == 0) {
            // The end: release the enumerator now rather than with the iterator.
            AsIterator(object)->enumerator = nullptr;
            enumerator->Release();
            return nullptr;
        }
        return VariantConverter::FromVariant(item.value).release().ptr();
    });
}

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_tp_iter, reinterpret_cast<void*>(PyObject_SelfIter)},
    {Py_tp_iternext, reinterpret_cast<void*>(Next)},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.Enumerator", sizeof(ObjectIterator), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

}  // namespace

void ObjectIterator::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    iteratorType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("Enumerator", py::reinterpret_borrow<py::object>(type));
}

py::object ObjectIterator::ForObject(PyObject* self) {
    ClientObject* client = ClientObject::Cast(self);
    const ClientClass& owner = *client->owner;
    if (owner.CoClass() && !owner.EnumMember()) throw py::type_error("'" + owner.Name() + "' object is not iterable");
    const std::string name = owner.Name() + "._NewEnum";
    ClearedVariant result;
    try {
        Invocation::InvokeRaw(client->dispatch, DISPID_NEWENUM, DISPATCH_METHOD | DISPATCH_PROPERTYGET, name,
                              result.value);
    } catch (py::error_already_set& error) {
        // An object without class information that has no _NewEnum.
        if (error.matches(ComError::Type()) &&
            error.value().attr("hresult").cast<HRESULT>() == DISP_E_MEMBERNOTFOUND)
            throw py::type_error("'" + owner.Name() + "' object is not iterable");
        throw;
    }
    IUnknown* unknown = result.value.vt == VT_UNKNOWN || result.value.vt == VT_DISPATCH ? result.value.punkVal : nullptr;
    IEnumVARIANT* enumerator = nullptr;
    if (!unknown || FAILED(unknown->QueryInterface(IEnumVARIANT::iid, reinterpret_cast<void**>(&enumerator))) ||
        !enumerator)
        throw py::type_error(name + " did not return an enumerator");
    PyObject* object = iteratorType->tp_alloc(iteratorType, 0);
    if (!object) {
        enumerator->Release();
        throw py::error_already_set();
    }
    AsIterator(object)->enumerator = enumerator;
    return py::reinterpret_steal<py::object>(object);
}

}  // namespace tessaly::python
