// The read-only counted handle: it holds a count like ccPtrHandle but hands out only
// const access. Any handle converts to it (a mutable one, or one of a derived class); it
// never converts back.
#pragma once

#include <concepts>
#include <cstddef>

#include "xnl/std/base/ccPtrHandleBase_const.h"

template <class T>
class ccPtrHandle_const : public ccPtrHandleBase_const<T> {
public:
    ccPtrHandle_const() noexcept = default;
    ccPtrHandle_const(std::nullptr_t) noexcept {}
    explicit ccPtrHandle_const(const T* value) noexcept : ccPtrHandleBase_const<T>(const_cast<T*>(value)) {}
    // From any handle of T or of a class derived from T, mutable or read-only.
    template <class U>
        requires std::convertible_to<U*, T*>
    ccPtrHandle_const(const ccPtrHandleBase_const<U>& other) noexcept : ccPtrHandleBase_const<T>(other) {}
    template <class U>
        requires std::convertible_to<U*, T*>
    ccPtrHandle_const(ccPtrHandleBase_const<U>&& other) noexcept : ccPtrHandleBase_const<T>(std::move(other)) {}

    ccPtrHandle_const(const ccPtrHandle_const&) noexcept = default;
    ccPtrHandle_const(ccPtrHandle_const&&) noexcept = default;
    ccPtrHandle_const& operator=(const ccPtrHandle_const&) noexcept = default;
    ccPtrHandle_const& operator=(ccPtrHandle_const&&) noexcept = default;
    ccPtrHandle_const& operator=(std::nullptr_t) noexcept {
        this->Reset();
        return *this;
    }
    ~ccPtrHandle_const() = default;
};
