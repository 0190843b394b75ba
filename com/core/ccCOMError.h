// A failed call into another object: the HRESULT it returned and the error info that came
// with it. The method guard passes both on unchanged, so a client sees the failure of the
// object that failed, not a rewording of it.
//
//     tessaly::core::ThrowIfFailed(font->Invoke(...));
#pragma once

#include <exception>
#include <string_view>

#include "platform/ComPtr.h"
#include "platform/StandardInterfaces.h"

namespace tessaly::core {

class ccCOMError : public std::exception {
public:
    // `info` may be null: the guard then describes the HRESULT with its standard text.
    ccCOMError(HRESULT result, IErrorInfo* info) noexcept;
    // A failure reported in another form (an EXCEPINFO, say): makes the error info.
    ccCOMError(HRESULT result, std::string_view description, std::string_view source, const IID& iid) noexcept;

    HRESULT Result() const noexcept { return result_; }
    // The error info, without a reference; may be null.
    IErrorInfo* Info() const noexcept { return info_.get(); }
    const char* what() const noexcept override { return what_; }

private:
    HRESULT result_;
    ComPtr<IErrorInfo> info_;
    char what_[48];
};

// Throws a ccCOMError for a failed HRESULT, with the calling thread's error info (which
// it takes out of the thread's slot). Info left over from an earlier, different failure
// is not attached.
void ThrowIfFailed(HRESULT result);

// Whether `info` may describe a failure with `result`: false only for error info the
// runtime recorded with another failure code.
bool MayDescribe(IErrorInfo* info, HRESULT result) noexcept;

}  // namespace tessaly::core
