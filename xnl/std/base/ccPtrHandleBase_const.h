// What every counted handle does: hold one count on a ccRefCounted value, copy and drop
// it, compare, and read the value. It is the base of both handle kinds, so a function that
// only reads takes `const ccPtrHandleBase_const<T>&` and accepts either without touching
// the count. ccPtrHandleBase adds write access; ccPtrHandle and ccPtrHandle_const are the
// handles that code declares.
//
// One handle object is not itself synchronised (like any value, it is read by many threads
// or written by one); different handles to one value may be copied and dropped from any
// threads at once.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "xnl/std/base/ccRefCounted.h"

template <class T>
class ccPtrHandleBase_const {
public:
    const T* Get() const noexcept { return ptr_; }
    const T* operator->() const noexcept { return ptr_; }
    const T& operator*() const noexcept { return *ptr_; }
    explicit operator bool() const noexcept { return ptr_ != nullptr; }
    bool IsNull() const noexcept { return ptr_ == nullptr; }

    // Whether this handle is the value's only holder (false for a null handle): the value
    // may then be changed in place without anyone else seeing it.
    bool Unique() const noexcept { return ptr_ && Counted(ptr_)->HasOneHolder(); }
    // The value's holders at this moment, 0 for a null handle.
    uint32_t RefCount() const noexcept { return ptr_ ? Counted(ptr_)->RefCount() : 0; }

    // Lets go of the value (which dies if this was its last holder).
    void Reset() noexcept { Replace(nullptr); }

protected:
    ccPtrHandleBase_const() noexcept = default;
    // Adopts `value` (which may be null), adding this handle to its holders.
    explicit ccPtrHandleBase_const(T* value) noexcept : ptr_(value) {
        static_assert(std::is_base_of_v<ccRefCounted, T>, "handles hold ccRefCounted values");
        static_assert(!std::is_destructible_v<T>,
                      "declare the destructor of a counted class protected: it dies with its last handle");
        if (ptr_) Counted(ptr_)->AddHolder();
    }
    ccPtrHandleBase_const(const ccPtrHandleBase_const& other) noexcept : ptr_(other.ptr_) {
        if (ptr_) Counted(ptr_)->AddHolder();
    }
    ccPtrHandleBase_const(ccPtrHandleBase_const&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
    // From a handle of a class derived from T.
    template <class U>
        requires std::convertible_to<U*, T*>
    ccPtrHandleBase_const(const ccPtrHandleBase_const<U>& other) noexcept : ptr_(other.ptr_) {
        if (ptr_) Counted(ptr_)->AddHolder();
    }
    template <class U>
        requires std::convertible_to<U*, T*>
    ccPtrHandleBase_const(ccPtrHandleBase_const<U>&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}

    ccPtrHandleBase_const& operator=(const ccPtrHandleBase_const& other) noexcept {
        Replace(other.ptr_);
        return *this;
    }
    ccPtrHandleBase_const& operator=(ccPtrHandleBase_const&& other) noexcept {
        if (this != &other) {
            T* old = std::exchange(ptr_, std::exchange(other.ptr_, nullptr));
            if (old) Counted(old)->DropHolder();
        }
        return *this;
    }
    ~ccPtrHandleBase_const() {
        if (ptr_) Counted(ptr_)->DropHolder();
    }

    // Holds `value` instead of the present one. The new holder is added before the old one
    // goes, so replacing a value by itself is safe.
    void Replace(T* value) noexcept {
        if (value) Counted(value)->AddHolder();
        T* old = std::exchange(ptr_, value);
        if (old) Counted(old)->DropHolder();
    }

    // Stored without const: a read-only handle hands out only const access.
    T* ptr_ = nullptr;

private:
    template <class>
    friend class ccPtrHandleBase_const;

    static const ccRefCounted* Counted(const T* value) noexcept { return value; }
};

// Handles compare by the value they hold (identity, not contents), across both kinds and
// along class derivation.
template <class T, class U>
bool operator==(const ccPtrHandleBase_const<T>& a, const ccPtrHandleBase_const<U>& b) noexcept {
    return a.Get() == b.Get();
}
template <class T, class U>
std::strong_ordering operator<=>(const ccPtrHandleBase_const<T>& a, const ccPtrHandleBase_const<U>& b) noexcept {
    return std::compare_three_way{}(a.Get(), b.Get());
}
template <class T>
bool operator==(const ccPtrHandleBase_const<T>& a, std::nullptr_t) noexcept {
    return a.IsNull();
}
