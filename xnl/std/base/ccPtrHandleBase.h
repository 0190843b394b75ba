// A counted handle with write access to its value: the base of ccPtrHandle.
//
// Values are shared in one of two ways, chosen by the value's class:
//  - shared deliberately (pel roots): every holder writes the one value and sees the
//    others' writes; the class has no Clone and MakeUnique does not compile for it;
//  - copied on write (shapes, transforms): a holder about to change the value calls
//    MakeUnique first, which clones the value when others hold it too. Such a class
//    declares `Derived* Clone() const` (covariant along its hierarchy), returning a new
//    value made with new.
#pragma once

#include <concepts>

#include "xnl/std/base/ccPtrHandleBase_const.h"

// A value class whose holders copy it before they change it.
template <class T>
concept ccCopyOnWrite = requires(const T& value) {
    { value.Clone() } -> std::convertible_to<T*>;
};

template <class T>
class ccPtrHandleBase : public ccPtrHandleBase_const<T> {
public:
    // The constness of the handle is not that of the value: a const handle still writes.
    T* Get() const noexcept { return this->ptr_; }
    T* operator->() const noexcept { return this->ptr_; }
    T& operator*() const noexcept { return *this->ptr_; }

    // Makes this handle the only holder of its value, cloning the value when it is shared,
    // and answers the value (null for a null handle). When Clone throws, the handle still
    // holds the shared value.
    T* MakeUnique()
        requires ccCopyOnWrite<T>
    {
        if (this->ptr_ && !this->Unique()) {
            T* copy = static_cast<const T*>(this->ptr_)->Clone();
            this->Replace(copy);
        }
        return this->ptr_;
    }

protected:
    using ccPtrHandleBase_const<T>::ccPtrHandleBase_const;
    ccPtrHandleBase() noexcept = default;
    ccPtrHandleBase(const ccPtrHandleBase&) noexcept = default;
    ccPtrHandleBase(ccPtrHandleBase&&) noexcept = default;
    ccPtrHandleBase& operator=(const ccPtrHandleBase&) noexcept = default;
    ccPtrHandleBase& operator=(ccPtrHandleBase&&) noexcept = default;
    ~ccPtrHandleBase() = default;
};
