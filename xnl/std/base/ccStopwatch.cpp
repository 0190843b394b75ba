#include "xnl/std/base/ccStopwatch.h"

// Nanosecond counts in a signed 64-bit integer last some 292 years: ample for any run.
static_assert(std::chrono::steady_clock::is_steady);
template class ccBasicStopwatch<std::chrono::steady_clock>;
