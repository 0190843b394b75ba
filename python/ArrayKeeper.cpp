#include "ArrayKeeper.h"

#include <new>

namespace tessaly::python {

namespace {

bool InterpreterFinalizing() noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return Py_IsFinalizing();
#else
    return _Py_IsFinalizing();
#endif
}

void DropReference(PyObject* object) noexcept {
    if (PyGILState_Check()) {
        Py_DECREF(object);
        return;
    }
    if (!Py_IsInitialized() || InterpreterFinalizing()) return;  // no GIL to be had: keep it
    const PyGILState_STATE state = PyGILState_Ensure();
    Py_DECREF(object);
    PyGILState_Release(state);
}

}  // namespace

ArrayKeeper* ArrayKeeper::New(PyObject* object) {
    auto* keeper = new ArrayKeeper(object);
    Py_INCREF(object);
    return keeper;
}

HRESULT ArrayKeeper::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    if (riid == IUnknown::iid) {
        AddRef();
        *ppv = static_cast<IUnknown*>(this);
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

ULONG ArrayKeeper::AddRef() { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }

ULONG ArrayKeeper::Release() {
    const ULONG left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) {
        DropReference(object_);
        delete this;
    }
    return left;
}

}  // namespace tessaly::python
