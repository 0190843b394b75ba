#include "com/core/impl/ObjectLock.h"

#include "platform/PumpHook.h"

namespace tessaly::core {

namespace {
constexpr int kSpins = 200;

inline void CpuRelax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace

constinit thread_local uint32_t objectLockThreadId __attribute__((tls_model("initial-exec"))) = 0;

uint32_t ObjectLock::AssignThreadId() noexcept {
    // Thread IDs are never 0 (the free lock) and are not reused while the process runs
    // (4 billion threads apart).
    static std::atomic<uint32_t> next{0};
    uint32_t id = 0;
    while (id == 0) id = next.fetch_add(1, std::memory_order_relaxed) + 1;
    objectLockThreadId = id;
    return id;
}

void ObjectLock::WaitAndLock(uint64_t taken) noexcept {
    for (int spin = 0;; ++spin) {
        uint64_t expected = 0;
        if (state_.load(std::memory_order_relaxed) == 0 &&
            state_.compare_exchange_weak(expected, taken, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        if (spin < kSpins)
            CpuRelax();
        else
            WaitForLockTurn();
    }
}

}  // namespace tessaly::core
