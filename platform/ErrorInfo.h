// Error information of the calling thread: the description, source and interface that go
// with a failed HRESULT. A failing method records it; dispatch copies it into EXCEPINFO;
// clients read it with GetErrorInfo. Each thread has its own slot, so concurrent failures
// on different threads never see each other's text.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/StandardInterfaces.h"

// The writer side of an error object, as handed out by CreateErrorInfo.
struct ICreateErrorInfo : IUnknown {
    static constexpr IID iid = tessaly::MakeGuid("22F03340-547D-101B-8E65-08002B2BD119");
    virtual HRESULT SetGUID(REFGUID rguid) = 0;
    virtual HRESULT SetSource(LPOLESTR szSource) = 0;
    virtual HRESULT SetDescription(LPOLESTR szDescription) = 0;
    virtual HRESULT SetHelpFile(LPOLESTR szHelpFile) = 0;
    virtual HRESULT SetHelpContext(DWORD dwHelpContext) = 0;
};

// Replaces the thread's error object (AddRefs the new one, releases the old one); null
// clears it. dwReserved must be 0.
HRESULT SetErrorInfo(DWORD dwReserved, IErrorInfo* perrinfo);
// Hands the thread's error object to the caller (who releases it) and clears the slot.
// S_FALSE with *pperrinfo = nullptr when there is none.
HRESULT GetErrorInfo(DWORD dwReserved, IErrorInfo** pperrinfo);
// A new, empty error object with one reference.
HRESULT CreateErrorInfo(ICreateErrorInfo** pperrinfo);

namespace tessaly {

// The error object: written once through ICreateErrorInfo, read through IErrorInfo.
// Error objects belong to threads, not to the server, so they are not counted among the
// module's live objects: a thread's last error must not keep the library loaded.
class ErrorInfo final : public IErrorInfo, public ICreateErrorInfo {
public:
    ErrorInfo() = default;
    ErrorInfo(HRESULT result, std::string_view description, std::string_view source, const IID& iid);

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;

    HRESULT GetGUID(GUID* pGUID) override;
    HRESULT GetSource(BSTR* pBstrSource) override;
    HRESULT GetDescription(BSTR* pBstrDescription) override;
    HRESULT GetHelpFile(BSTR* pBstrHelpFile) override;
    HRESULT GetHelpContext(DWORD* pdwHelpContext) override;

    HRESULT SetGUID(REFGUID rguid) override;
    HRESULT SetSource(LPOLESTR szSource) override;
    HRESULT SetDescription(LPOLESTR szDescription) override;
    HRESULT SetHelpFile(LPOLESTR szHelpFile) override;
    HRESULT SetHelpContext(DWORD dwHelpContext) override;

    // The HRESULT the error was recorded with (S_OK when created through CreateErrorInfo).
    HRESULT Result() const noexcept { return result_; }

private:
    ~ErrorInfo() = default;
    HRESULT CopyOut(const std::string& text, BSTR* out);
    HRESULT Assign(std::string& field, LPOLESTR text);

    std::atomic<ULONG> refs_{0};
    mutable std::mutex mutex_;
    HRESULT result_ = S_OK;
    GUID iid_ = GUID_NULL;
    std::string source_;
    std::string description_;
    std::string helpFile_;
    DWORD helpContext_ = 0;
};

// Records a failure for the calling thread and returns `result`, so that a method can end
// with `return tessaly::SetErrorInfo(E_INVALIDARG, "Width must be positive", "put_Width", iid);`.
// If the error object cannot be allocated the slot is cleared and `result` still returned.
HRESULT SetErrorInfo(HRESULT result, std::string_view description, std::string_view source, const IID& iid) noexcept;

// Drops the calling thread's error object, if any.
void ClearErrorInfo() noexcept;

// Whether the calling thread holds an error object: one load, so that code which clears
// stale error info on every call (the method guard) pays nothing when there is none.
extern constinit thread_local bool threadHasErrorInfo __attribute__((tls_model("initial-exec")));

inline void ClearStaleErrorInfo() noexcept {
    if (threadHasErrorInfo) [[unlikely]]
        ClearErrorInfo();
}

}  // namespace tessaly
