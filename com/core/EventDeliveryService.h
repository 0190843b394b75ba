// The one process-wide service through which the collections announce their changes to
// the sinks of their outgoing interface. It is made on first use and lives as long as the
// process; it is plain C++, not an object of the library, so it never counts among the
// live objects.
//
// A change is announced twice: before it, with the negated event ID (a request that a sink
// may refuse), and after it, with the event ID itself (a notification). Deliver calls
// Invoke(eventId, DISPATCH_METHOD) on each sink in advise order, on the calling thread,
// with the caller's arguments (last first, as Invoke takes them):
//  - DISP_E_MEMBERNOTFOUND or DISP_E_UNKNOWNNAME from a sink means "not interested": a sink
//    that handles only some events (most handle no negative ID) is skipped silently;
//  - DISP_E_EXCEPTION is read as the failure the sink described in EXCEPINFO: its scode
//    (E_FAIL when it gave none) and its description, which becomes the thread's error
//    info;
//  - any other failure of a negative (before) ID stops the delivery at once and is
//    returned: the change must not be made;
//  - a failure of a positive (after) ID is remembered and the other sinks are still
//    called; the first failure is returned.
#pragma once

#include "platform/ConnectionPoint.h"
#include "platform/StandardInterfaces.h"

namespace tessaly::core {

class EventDeliveryService {
public:
    static EventDeliveryService& Instance() noexcept;

    // `sinks` may be null (nothing to do). `argsLastFirst` may be null when argCount is 0.
    HRESULT Deliver(const ConnectionPoint::SinkList* sinks, const IID& eventInterface, DISPID eventId, UINT argCount,
                    VARIANT* argsLastFirst) const noexcept;

    EventDeliveryService(const EventDeliveryService&) = delete;
    EventDeliveryService& operator=(const EventDeliveryService&) = delete;

private:
    EventDeliveryService() = default;
};

}  // namespace tessaly::core
