// The lock of one object: recursive, free-threaded, and held as an owner thread ID and a
// recursion count. A thread that is not the owner claims the lock with a compare-and-swap
// of the owner from 0 to its own ID. While another thread holds it, the waiting thread
// first spins briefly (most holds last a few hundred nanoseconds), then takes turns with
// tessaly::WaitForLockTurn: it serves one pending call of its own message loop, if it
// registered a pump, or sleeps 1 ms. The pumping lets a user-interface thread that waits
// for an object still serve the calls other threads marshal to it.
#pragma once

#include <atomic>
#include <cstdint>

#include <sys/single_threaded.h>

namespace tessaly::core {

// The calling thread's lock ID, 0 until the thread first takes a lock. One variable for
// the whole process (defined in ObjectLock.cpp), read with the initial-exec model: one
// instruction, so that taking a free lock inline costs one compare-and-swap.
extern constinit thread_local uint32_t objectLockThreadId __attribute__((tls_model("initial-exec")));

class ObjectLock {
public:
    ObjectLock() noexcept = default;
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

    void Lock() noexcept {
        const uint64_t self = uint64_t{CurrentThreadId()} << 32;
        // While the process has one thread nobody can race for the lock: plain reads and
        // writes do (as the C library's own mutexes do). The flag never turns back on once
        // a second thread has started, and starting it orders everything before.
        if (__libc_single_threaded) {
            const uint64_t held = state_.load(std::memory_order_relaxed);
            if (held == 0 || (held & kOwnerMask) == self) {
                state_.store(held == 0 ? self | 1 : held + 1, std::memory_order_relaxed);
                return;
            }
        }
        // The free lock is the common case: one compare-and-swap takes it. A failed swap
        // tells who holds it, which is all a recursive take needs.
        uint64_t state = 0;
        if (state_.compare_exchange_strong(state, self | 1, std::memory_order_acquire, std::memory_order_relaxed))
            [[likely]]
            return;
        if ((state & kOwnerMask) == self) {
            state_.store(state + 1, std::memory_order_relaxed);  // only the owner writes a held lock
            return;
        }
        WaitAndLock(self | 1);
    }

    void Unlock() noexcept {
        const uint64_t state = state_.load(std::memory_order_relaxed);
        state_.store((state & kCountMask) == 1 ? 0 : state - 1, std::memory_order_release);
    }

    bool HeldByCurrentThread() const noexcept {
        return (state_.load(std::memory_order_relaxed) >> 32) == CurrentThreadId();
    }
    // The number of times the owner has taken the lock; 0 when free. Only the owner may ask.
    uint32_t RecursionCount() const noexcept {
        return static_cast<uint32_t>(state_.load(std::memory_order_relaxed) & kCountMask);
    }

    // A nonzero number that identifies the calling thread for as long as it runs.
    static uint32_t CurrentThreadId() noexcept {
        const uint32_t id = objectLockThreadId;
        return id != 0 ? id : AssignThreadId();
    }

    // Holds the lock for a scope.
    class Guard {
    public:
        explicit Guard(ObjectLock& lock) noexcept : lock_(lock) { lock_.Lock(); }
        ~Guard() { lock_.Unlock(); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        ObjectLock& lock_;
    };

private:
    static constexpr uint64_t kOwnerMask = 0xFFFFFFFF00000000u;
    static constexpr uint64_t kCountMask = 0x00000000FFFFFFFFu;

    static uint32_t AssignThreadId() noexcept;
    // Spins, then takes turns with the pump hook, until `taken` (owner, count 1) is in.
    void WaitAndLock(uint64_t taken) noexcept;

    // The owner thread ID in the upper half, the recursion count in the lower: one word,
    // so that a take is one compare-and-swap and a release one store. 0 is free.
    std::atomic<uint64_t> state_{0};
};

}  // namespace tessaly::core
