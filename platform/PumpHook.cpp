#include "platform/PumpHook.h"

#include <chrono>
#include <thread>
#include <utility>

namespace tessaly {

namespace {
thread_local PumpFunction threadPump;
}  // namespace

void SetThreadPumpHook(PumpFunction pump) { threadPump = std::move(pump); }

void WaitForLockTurn() noexcept {
    bool served = false;
    if (threadPump) {
        try {
            // Run a copy: the pump may replace or remove itself while it serves a call.
            const PumpFunction pump = threadPump;
            served = pump();
        } catch (...) {
            served = false;
        }
    }
    if (!served) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace tessaly
