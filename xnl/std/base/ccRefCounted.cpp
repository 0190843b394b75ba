#include "xnl/std/base/ccRefCounted.h"

void ccRefCounted::Destroy() const noexcept {
    count_.store(kDestroying, std::memory_order_relaxed);
    delete this;
}
