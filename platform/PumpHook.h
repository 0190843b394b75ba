// What a thread does while it waits for an object's lock held by another thread. A thread
// that runs a message loop (a user interface thread, say) registers a pump that serves one
// pending call, so that the owner of the lock can call back into it meanwhile instead of
// deadlocking; any other thread sleeps 1 ms between attempts.
#pragma once

#include <functional>

namespace tessaly {

// Serves at most one pending call of the thread's loop; answers whether it served one.
using PumpFunction = std::function<bool()>;

// Sets (or, with an empty function, removes) the calling thread's pump.
void SetThreadPumpHook(PumpFunction pump);

// One turn of waiting: the thread's pump serves a pending call, or, when the thread has
// no pump or nothing was pending, the thread sleeps 1 ms. A pump that throws counts as
// having served nothing.
void WaitForLockTurn() noexcept;

}  // namespace tessaly
