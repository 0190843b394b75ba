// The counted handle with write access: how core values (pel roots, shapes, transforms)
// are held and shared. See ccRefCounted for the counting and ccPtrHandleBase for sharing
// versus copying on write.
//
//     ccPtrHandle<ccCircleValue> circle(new ccCircleValue(2.0));
//     ccPtrHandle<ccShapeValue> shape = circle;        // the same value, two holders
//     shape.MakeUnique()->Scale(2.0);                  // shape now holds a copy of its own
//     ccPtrHandle_const<ccShapeValue> view = circle;   // read-only from here on
#pragma once

#include <concepts>
#include <cstddef>

#include "xnl/std/base/ccPtrHandleBase.h"

template <class T>
class ccPtrHandle : public ccPtrHandleBase<T> {
public:
    ccPtrHandle() noexcept = default;
    ccPtrHandle(std::nullptr_t) noexcept {}
    // Adopts a value made with new (or held elsewhere already: the count is in the value).
    explicit ccPtrHandle(T* value) noexcept : ccPtrHandleBase<T>(value) {}
    // A handle to a value of a derived class is a handle to its base.
    template <class U>
        requires(!std::same_as<U, T> && std::convertible_to<U*, T*>)
    ccPtrHandle(const ccPtrHandle<U>& other) noexcept : ccPtrHandleBase<T>(other) {}
    template <class U>
        requires(!std::same_as<U, T> && std::convertible_to<U*, T*>)
    ccPtrHandle(ccPtrHandle<U>&& other) noexcept : ccPtrHandleBase<T>(std::move(other)) {}

    ccPtrHandle(const ccPtrHandle&) noexcept = default;
    ccPtrHandle(ccPtrHandle&&) noexcept = default;
    ccPtrHandle& operator=(const ccPtrHandle&) noexcept = default;
    ccPtrHandle& operator=(ccPtrHandle&&) noexcept = default;
    ccPtrHandle& operator=(std::nullptr_t) noexcept {
        this->Reset();
        return *this;
    }
    ~ccPtrHandle() = default;
};
