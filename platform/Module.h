// Lifetime of the component server: the count of live objects and server locks that
// decides whether the library may be unloaded, and that tests read to catch leaks.
#pragma once

#include "platform/AutomationTypes.h"

namespace tessaly::Module {

void ObjectCreated() noexcept;
void ObjectDestroyed() noexcept;
void Lock() noexcept;     // IClassFactory::LockServer(TRUE)
void Unlock() noexcept;   // IClassFactory::LockServer(FALSE)
LONG LiveObjectCount() noexcept;
bool CanUnload() noexcept;  // no live object and no server lock

}  // namespace tessaly::Module

extern "C" {
// The component server's entry points.
HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
HRESULT DllCanUnloadNow();  // S_OK when no object of the library is alive and no lock held
LONG LiveObjectCount();
}
