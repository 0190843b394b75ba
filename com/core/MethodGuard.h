// The one guard around the body of every interface method of the library. Nothing thrown
// inside a body leaves it; every failure reaches the client as an HRESULT with error info
// (description, source = the method's name, the interface):
//
//     HRESULT CLuxDictionary::GetString(LONG id, BSTR* text) {
//         return tessaly::core::Guarded("GetString", ILuxDictionary::iid, [&] { ... return S_OK; });
//     }
//     HRESULT CLuxDictionary::get_LanguageID(LONG* id) {
//         return tessaly::core::Guarded("get_LanguageID", ILuxDictionary::iid, [&] { RequireOut(id); ... });
//     }
//
//  - a ccException: HRESULT and text from the ExceptionTable (rows of the module key
//    first, then the default rows);
//  - a ccCOMError: its HRESULT and its error info, passed on unchanged;
//  - std::bad_alloc: E_OUTOFMEMORY, and the thread's error info is cleared;
//  - any other exception: E_FAIL with its what() text;
//  - a failure HRESULT returned by the body: returned as it is, with error info holding
//    the standard text for that code unless the body (or a callee) described it already.
// The source is the member's name as the interface declares it: `get_Name` for a property
// get, `put_Name` for a property put or putref, the method's name for a method.
//
// Fresh error info, always: the guard drops whatever error info the calling thread holds
// before the body runs and again when the call succeeds, so the info a caller reads after
// a failure was recorded by that failure, and a successful call leaves none. Either check
// costs one thread-local load when there is nothing to drop.
//
// Conventions every body follows:
//  - a null [out] pointer: RequireOut(Value) - E_POINTER with the code's one standard text;
//  - a null [in] object: RequireArgument(Font, "Font") - E_INVALIDARG with the message
//    ids_Lux_InvalidArgNull_1 and the argument's name as its insert.
#pragma once

#include <type_traits>
#include <utility>

#include "com/core/ExceptionTable.h"
#include "platform/ErrorInfo.h"
#include "platform/Guid.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

// Throws the failure of a null [out] pointer (E_POINTER, the standard text).
[[noreturn]] void ThrowNullOutPointer();

// Refuses null [out] pointers inside a guarded body.
template <class... Out>
void RequireOut(Out*... out) {
    if ((!out || ...)) [[unlikely]]
        ThrowNullOutPointer();
}

// Refuses a null [in] object argument inside a guarded body, naming the argument.
inline void RequireArgument(const void* argument, const char* name) {
    if (!argument) [[unlikely]]
        throw ccStdError::NullArgument(name);
}

namespace detail {
// Classifies the exception being handled; call only from inside a catch block.
HRESULT GuardException(ModuleKey module, const char* method, const IID& iid) noexcept;
// Makes sure a returned failure has error info.
HRESULT GuardFailure(HRESULT result, const char* method, const IID& iid) noexcept;
}  // namespace detail

// Runs a method's body (a callable returning HRESULT, or void for S_OK).
template <class Body>
HRESULT Guarded(ModuleKey module, const char* method, const IID& iid, Body&& body) noexcept {
    ClearStaleErrorInfo();
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<Body&&>>) {
            std::forward<Body>(body)();
            ClearStaleErrorInfo();  // what a callee recorded for a failure the body got over
            return S_OK;
        } else {
            const HRESULT result = std::forward<Body>(body)();
            if (result < 0) [[unlikely]]
                return detail::GuardFailure(result, method, iid);
            ClearStaleErrorInfo();
            return result;
        }
    } catch (...) {
        return detail::GuardException(module, method, iid);
    }
}

template <class Body>
HRESULT Guarded(const char* method, const IID& iid, Body&& body) noexcept {
    return Guarded(kDefaultModule, method, iid, std::forward<Body>(body));
}

}  // namespace tessaly::core
