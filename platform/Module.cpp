#include "platform/Module.h"

#include <atomic>

#include "platform/ClassTable.h"

namespace tessaly::Module {

namespace {
std::atomic<LONG> liveObjects{0};
std::atomic<LONG> serverLocks{0};
}  // namespace

void ObjectCreated() noexcept { liveObjects.fetch_add(1, std::memory_order_relaxed); }
void ObjectDestroyed() noexcept { liveObjects.fetch_sub(1, std::memory_order_relaxed); }
void Lock() noexcept { serverLocks.fetch_add(1, std::memory_order_relaxed); }
void Unlock() noexcept { serverLocks.fetch_sub(1, std::memory_order_relaxed); }
LONG LiveObjectCount() noexcept { return liveObjects.load(std::memory_order_acquire); }

bool CanUnload() noexcept {
    return liveObjects.load(std::memory_order_acquire) == 0 && serverLocks.load(std::memory_order_acquire) == 0;
}

}  // namespace tessaly::Module

extern "C" {

HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return tessaly::ClassTable::GetClassObject(rclsid, riid, ppv);
}

HRESULT DllCanUnloadNow() { return tessaly::Module::CanUnload() ? S_OK : S_FALSE; }

LONG LiveObjectCount() { return tessaly::Module::LiveObjectCount(); }
}
