// LuxStopwatch: a ccStopwatch for clients. Start resumes after Stop keeping the time
// measured; Reset sets it to zero (a running watch goes on from zero); Seconds,
// Milliseconds and Microseconds read it at any time; Resolution is the clock's step.
// The watch is guarded by its own lock, so threads may share one; it fires no events and
// does not persist (a measurement belongs to the moment it was taken).
#pragma once

#include <mutex>

#include "TessalyCore.h"
#include "platform/ComObject.h"
#include "xnl/std/base/ccStopwatch.h"

namespace tessaly::tool {

class CLuxStopwatch : public ComObject<CLuxStopwatch, ILuxStopwatch> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxStopwatch; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxStopwatch;

    CLuxStopwatch() = default;

    // ILuxStopwatch
    HRESULT Start() override;
    HRESULT Stop() override;
    HRESULT Reset() override;
    HRESULT get_Seconds(double* Seconds) override;
    HRESULT get_Milliseconds(double* Milliseconds) override;
    HRESULT get_Microseconds(double* Microseconds) override;
    HRESULT get_Running(VARIANT_BOOL* Running) override;
    HRESULT get_Resolution(double* Resolution) override;

protected:
    ~CLuxStopwatch() override = default;

private:
    // Reads the watch under the lock.
    template <class Reading>
    HRESULT Read(const char* method, double* out, Reading reading);

    mutable std::mutex mutex_;
    ccStopwatch watch_;
};

}  // namespace tessaly::tool
