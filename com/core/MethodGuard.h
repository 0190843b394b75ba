// The one guard around the body of every interface method of the library. Nothing thrown
// inside a body leaves it; every failure reaches the client as an HRESULT with error info
// (description, source = the method's name, the interface):
//
//     HRESULT CLuxDictionary::GetString(LONG id, BSTR* text) {
//         return tessaly::core::Guarded("GetString", ILuxDictionary::iid, [&] { ... return S_OK; });
//     }
//
//  - a ccException: HRESULT and text from the ExceptionTable (rows of the module key
//    first, then the default rows);
//  - a ccCOMError: its HRESULT and its error info, passed on unchanged;
//  - std::bad_alloc: E_OUTOFMEMORY, and the thread's error info is cleared;
//  - any other exception: E_FAIL with its what() text;
//  - a failure HRESULT returned by the body: returned as it is, with error info holding
//    the standard text for that code unless the body (or a callee) described it already.
// A successful call costs the body's call and nothing else: error info is left alone.
#pragma once

#include <type_traits>
#include <utility>

#include "com/core/ExceptionTable.h"
#include "platform/Guid.h"

namespace tessaly::core {

namespace detail {
// Classifies the exception being handled; call only from inside a catch block.
HRESULT GuardException(ModuleKey module, const char* method, const IID& iid) noexcept;
// Makes sure a returned failure has error info.
HRESULT GuardFailure(HRESULT result, const char* method, const IID& iid) noexcept;
}  // namespace detail

// Runs a method's body (a callable returning HRESULT, or void for S_OK).
template <class Body>
HRESULT Guarded(ModuleKey module, const char* method, const IID& iid, Body&& body) noexcept {
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<Body&&>>) {
            std::forward<Body>(body)();
            return S_OK;
        } else {
            const HRESULT result = std::forward<Body>(body)();
            if (result < 0) [[unlikely]]
                return detail::GuardFailure(result, method, iid);
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
