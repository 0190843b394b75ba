// The base of core values shared through counted handles (ccPtrHandle, ccPtrHandle_const):
// pel roots, shapes, transforms. The count lives in the value itself, so a handle is one
// pointer and any number of handles made from raw pointers agree on one count.
//
// A value starts with no holders; the first handle made from it adopts it, and the last
// handle to let go destroys it. Counted classes keep their destructor protected (private
// when final): a handle checks that at compile time, so nothing deletes a shared value
// behind its holders' backs.
//
//     class ccWidgetValue : public ccRefCounted {
//     public:
//         explicit ccWidgetValue(int32_t width);
//     protected:
//         ~ccWidgetValue() override = default;
//     };
//     ccPtrHandle<ccWidgetValue> widget(new ccWidgetValue(640));
//
// Counts may change from any number of threads at once: adding a holder is a relaxed
// increment (a holder already exists and keeps the value alive), letting go an acq_rel
// decrement, so that every holder's last use of the value happens before its destruction.
#pragma once

#include <atomic>
#include <cstdint>

class ccRefCounted {
public:
    // A copy is a new value with no holders of its own; assignment copies the value's
    // state, never its holders.
    ccRefCounted(const ccRefCounted&) noexcept {}
    ccRefCounted& operator=(const ccRefCounted&) noexcept { return *this; }

    // The number of handles that hold the value at this moment (a snapshot: other threads
    // may change it at once).
    uint32_t RefCount() const noexcept { return count_.load(std::memory_order_relaxed); }
    // Whether the caller's handle is the only one. An acquire load: when it answers true,
    // every other holder's use of the value happened before, and the caller may change
    // the value in place.
    bool HasOneHolder() const noexcept { return count_.load(std::memory_order_acquire) == 1; }

protected:
    ccRefCounted() noexcept = default;
    virtual ~ccRefCounted() = default;

private:
    template <class>
    friend class ccPtrHandleBase_const;

    void AddHolder() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
    void DropHolder() const noexcept {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
    }
    void Destroy() const noexcept;

    // Set while the value is destroyed: a destructor that makes and drops a handle to its
    // own value must not bring the count to zero a second time.
    static constexpr uint32_t kDestroying = 0x40000000u;
    mutable std::atomic<uint32_t> count_{0};
};
