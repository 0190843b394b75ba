#include "com/core/impl/ccStdPersistAndChangeImpl.h"

#include "com/core/ExceptionTable.h"
#include "xnl/std/except/ccException.h"

namespace tessaly::core {

namespace {

// Misuse of the change-event configuration (family 0x003 of the core codes).
class ccChangeEvent {
public:
    using Errors = ccErrorFamily<"ccChangeEvent">;
    using DeliveryState = ccError<Errors, "ccChangeEvent::DeliveryState", 0x10030001>;
};

const ExceptionRow kChangeEventRows[] = {
    {"", ccChangeEvent::DeliveryState::kCode, e_Lux_ChangeEventError, kTextMessage | kTextAppend | kTextDetailed, 0},
};
const ExceptionTableRegistrar registrar(kChangeEventRows);

}  // namespace

void ThrowChangeEventError(const char* why) { throw ccChangeEvent::DeliveryState(why); }

}  // namespace tessaly::core
