#include "platform/ClassFactory.h"

#include "platform/Module.h"

namespace tessaly {

HRESULT ClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) {
    if (!ppvObject) return E_POINTER;
    *ppvObject = nullptr;
    if (pUnkOuter) return CLASS_E_NOAGGREGATION;
    return entry_.create(riid, ppvObject);
}

HRESULT ClassFactory::LockServer(int32_t fLock) {
    if (fLock)
        Module::Lock();
    else
        Module::Unlock();
    return S_OK;
}

}  // namespace tessaly
