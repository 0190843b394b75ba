#include "platform/ErrorInfo.h"

#include <new>

#include "platform/Bstr.h"

namespace {

// The thread's current error object. Released when the thread ends so that a thread which
// failed last and then exited leaves nothing behind.
struct ThreadErrorSlot {
    IErrorInfo* info = nullptr;
    ~ThreadErrorSlot() {
        if (info) info->Release();
    }
    void Replace(IErrorInfo* next) noexcept {
        IErrorInfo* previous = info;
        info = next;
        tessaly::threadHasErrorInfo = next != nullptr;
        // Released after the swap: a Release that records an error of its own must find
        // the slot in a consistent state.
        if (previous) previous->Release();
    }
};

// Initial-exec: dispatch clears the slot before every call, and this model makes that a
// plain load instead of a call into the dynamic loader.
thread_local ThreadErrorSlot threadError __attribute__((tls_model("initial-exec")));

}  // namespace

namespace tessaly {
constinit thread_local bool threadHasErrorInfo __attribute__((tls_model("initial-exec"))) = false;
}  // namespace tessaly

HRESULT SetErrorInfo(DWORD dwReserved, IErrorInfo* perrinfo) {
    if (dwReserved != 0) return E_INVALIDARG;
    if (perrinfo) perrinfo->AddRef();
    threadError.Replace(perrinfo);
    return S_OK;
}

HRESULT GetErrorInfo(DWORD dwReserved, IErrorInfo** pperrinfo) {
    if (!pperrinfo) return E_POINTER;
    *pperrinfo = nullptr;
    if (dwReserved != 0) return E_INVALIDARG;
    // Ownership moves to the caller: the slot's reference becomes theirs.
    *pperrinfo = threadError.info;
    threadError.info = nullptr;
    tessaly::threadHasErrorInfo = false;
    return *pperrinfo ? S_OK : S_FALSE;
}

HRESULT CreateErrorInfo(ICreateErrorInfo** pperrinfo) {
    if (!pperrinfo) return E_POINTER;
    auto* info = new (std::nothrow) tessaly::ErrorInfo();
    *pperrinfo = info;
    if (!info) return E_OUTOFMEMORY;
    info->AddRef();
    return S_OK;
}

namespace tessaly {

ErrorInfo::ErrorInfo(HRESULT result, std::string_view description, std::string_view source, const IID& iid)
    : result_(result), iid_(iid), source_(source), description_(description) {}

HRESULT ErrorInfo::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    if (riid == IUnknown::iid || riid == IErrorInfo::iid) {
        *ppv = static_cast<IErrorInfo*>(this);
    } else if (riid == ICreateErrorInfo::iid) {
        *ppv = static_cast<ICreateErrorInfo*>(this);
    } else {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG ErrorInfo::AddRef() { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }

ULONG ErrorInfo::Release() {
    const ULONG remaining = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (remaining == 0) delete this;
    return remaining;
}

HRESULT ErrorInfo::CopyOut(const std::string& text, BSTR* out) {
    if (!out) return E_POINTER;
    std::lock_guard lock(mutex_);
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT ErrorInfo::Assign(std::string& field, LPOLESTR text) {
    try {
        std::lock_guard lock(mutex_);
        field = text ? text : "";
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ErrorInfo::GetGUID(GUID* pGUID) {
    if (!pGUID) return E_POINTER;
    std::lock_guard lock(mutex_);
    *pGUID = iid_;
    return S_OK;
}

HRESULT ErrorInfo::GetSource(BSTR* pBstrSource) { return CopyOut(source_, pBstrSource); }
HRESULT ErrorInfo::GetDescription(BSTR* pBstrDescription) { return CopyOut(description_, pBstrDescription); }
HRESULT ErrorInfo::GetHelpFile(BSTR* pBstrHelpFile) { return CopyOut(helpFile_, pBstrHelpFile); }

HRESULT ErrorInfo::GetHelpContext(DWORD* pdwHelpContext) {
    if (!pdwHelpContext) return E_POINTER;
    std::lock_guard lock(mutex_);
    *pdwHelpContext = helpContext_;
    return S_OK;
}

HRESULT ErrorInfo::SetGUID(REFGUID rguid) {
    std::lock_guard lock(mutex_);
    iid_ = rguid;
    return S_OK;
}

HRESULT ErrorInfo::SetSource(LPOLESTR szSource) { return Assign(source_, szSource); }
HRESULT ErrorInfo::SetDescription(LPOLESTR szDescription) { return Assign(description_, szDescription); }
HRESULT ErrorInfo::SetHelpFile(LPOLESTR szHelpFile) { return Assign(helpFile_, szHelpFile); }

HRESULT ErrorInfo::SetHelpContext(DWORD dwHelpContext) {
    std::lock_guard lock(mutex_);
    helpContext_ = dwHelpContext;
    return S_OK;
}

HRESULT SetErrorInfo(HRESULT result, std::string_view description, std::string_view source, const IID& iid) noexcept {
    ErrorInfo* info = nullptr;
    try {
        info = new ErrorInfo(result, description, source, iid);
    } catch (...) {
        // Out of memory while reporting: the caller's HRESULT still tells what went wrong,
        // and a stale record from an earlier failure must not be mistaken for this one.
        ClearErrorInfo();
        return result;
    }
    info->AddRef();
    threadError.Replace(info);
    return result;
}

void ClearErrorInfo() noexcept {
    if (threadError.info) threadError.Replace(nullptr);
}

}  // namespace tessaly
