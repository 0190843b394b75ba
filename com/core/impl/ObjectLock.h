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

namespace tessaly::core {

class ObjectLock {
public:
    ObjectLock() noexcept = default;
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

    void Lock() noexcept {
        const uint32_t self = CurrentThreadId();
        if (owner_.load(std::memory_order_relaxed) == self) {
            ++count_;
            return;
        }
        uint32_t expected = 0;
        if (!owner_.compare_exchange_strong(expected, self, std::memory_order_acquire, std::memory_order_relaxed))
            WaitAndLock(self);
        count_ = 1;
    }

    void Unlock() noexcept {
        if (--count_ == 0) owner_.store(0, std::memory_order_release);
    }

    bool HeldByCurrentThread() const noexcept { return owner_.load(std::memory_order_relaxed) == CurrentThreadId(); }
    // The number of times the owner has taken the lock; 0 when free. Only the owner may ask.
    uint32_t RecursionCount() const noexcept { return count_; }

    // A nonzero number that identifies the calling thread for as long as it runs.
    static uint32_t CurrentThreadId() noexcept {
        static thread_local const uint32_t id = NewThreadId();
        return id;
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
    static uint32_t NewThreadId() noexcept;
    void WaitAndLock(uint32_t self) noexcept;

    std::atomic<uint32_t> owner_{0};
    uint32_t count_ = 0;  // touched by the owner only
};

}  // namespace tessaly::core
