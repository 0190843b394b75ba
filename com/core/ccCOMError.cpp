#include "com/core/ccCOMError.h"

#include <cstdio>
#include <new>

#include "platform/ErrorInfo.h"

namespace tessaly::core {

namespace {

void Describe(char (&what)[48], HRESULT result) noexcept {
    std::snprintf(what, sizeof what, "a call failed with 0x%08X", static_cast<uint32_t>(result));
}

}  // namespace

ccCOMError::ccCOMError(HRESULT result, IErrorInfo* info) noexcept : result_(result), info_(info) {
    Describe(what_, result);
}

ccCOMError::ccCOMError(HRESULT result, std::string_view description, std::string_view source,
                       const IID& iid) noexcept
    : result_(result) {
    Describe(what_, result);
    try {
        info_ = ComPtr<IErrorInfo>(static_cast<IErrorInfo*>(new ErrorInfo(result, description, source, iid)));
    } catch (...) {
        // Without memory for the record the failure still travels, described by its code.
    }
}

bool MayDescribe(IErrorInfo* info, HRESULT result) noexcept {
    // Error info of the runtime knows the code it was recorded with; other error objects
    // (and those built through CreateErrorInfo, which report S_OK) are taken on trust.
    const auto* recorded = dynamic_cast<const ErrorInfo*>(info);
    return !recorded || recorded->Result() == S_OK || recorded->Result() == result;
}

void ThrowIfFailed(HRESULT result) {
    if (SUCCEEDED(result)) return;
    IErrorInfo* info = nullptr;
    GetErrorInfo(0, &info);
    ComPtr<IErrorInfo> owned = ComPtr<IErrorInfo>::Attach(info);
    throw ccCOMError(result, MayDescribe(info, result) ? info : nullptr);
}

}  // namespace tessaly::core
