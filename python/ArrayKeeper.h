// ArrayKeeper: the Disposable of image roots made over the memory of a Python object (a
// numpy array). It is a small object of its own that holds one reference to the array;
// the roots keep it alive as long as any holder of their memory lives, and the last
// Release drops the array's reference.
//
// The last Release may come on any thread, with or without the GIL: the root may die
// inside a library call that runs with the GIL released, or on a thread Python never saw.
// The reference is dropped with the GIL taken. Once the interpreter is finalizing, a
// thread that does not hold the GIL cannot take it, and the reference is left as it is.
#pragma once

#include <Python.h>

#include <atomic>

#include "platform/StandardInterfaces.h"

namespace tessaly::python {

class ArrayKeeper final : public IUnknown {
public:
    // A keeper holding a new reference to `object`; the caller owns the keeper's one
    // reference. Call with the GIL held.
    static ArrayKeeper* New(PyObject* object);

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;

    ArrayKeeper(const ArrayKeeper&) = delete;
    ArrayKeeper& operator=(const ArrayKeeper&) = delete;

private:
    explicit ArrayKeeper(PyObject* object) noexcept : object_(object) {}
    ~ArrayKeeper() = default;

    std::atomic<ULONG> refs_{1};
    PyObject* object_;
};

}  // namespace tessaly::python
