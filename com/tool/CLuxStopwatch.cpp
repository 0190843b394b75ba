#include "com/tool/CLuxStopwatch.h"

#include "com/core/MethodGuard.h"
#include "platform/ClassTable.h"

namespace tessaly::tool {

namespace {
const ClassRegistrar<CLuxStopwatch> registrar;
}  // namespace

template <class Reading>
HRESULT CLuxStopwatch::Read(const char* method, double* out, Reading reading) {
    return core::Guarded(method, IID_ILuxStopwatch, [&] {
        core::RequireOut(out);
        const std::lock_guard lock(mutex_);
        *out = reading(watch_);
    });
}

HRESULT CLuxStopwatch::Start() {
    return core::Guarded("Start", IID_ILuxStopwatch, [&] {
        const std::lock_guard lock(mutex_);
        watch_.Start();
    });
}

HRESULT CLuxStopwatch::Stop() {
    return core::Guarded("Stop", IID_ILuxStopwatch, [&] {
        const std::lock_guard lock(mutex_);
        watch_.Stop();
    });
}

HRESULT CLuxStopwatch::Reset() {
    return core::Guarded("Reset", IID_ILuxStopwatch, [&] {
        const std::lock_guard lock(mutex_);
        watch_.Reset();
    });
}

HRESULT CLuxStopwatch::get_Seconds(double* Seconds) {
    return Read("get_Seconds", Seconds, [](const ccStopwatch& watch) { return watch.Seconds(); });
}

HRESULT CLuxStopwatch::get_Milliseconds(double* Milliseconds) {
    return Read("get_Milliseconds", Milliseconds, [](const ccStopwatch& watch) { return watch.Milliseconds(); });
}

HRESULT CLuxStopwatch::get_Microseconds(double* Microseconds) {
    return Read("get_Microseconds", Microseconds, [](const ccStopwatch& watch) { return watch.Microseconds(); });
}

HRESULT CLuxStopwatch::get_Running(VARIANT_BOOL* Running) {
    return core::Guarded("get_Running", IID_ILuxStopwatch, [&] {
        core::RequireOut(Running);
        const std::lock_guard lock(mutex_);
        *Running = watch_.Running() ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxStopwatch::get_Resolution(double* Resolution) {
    return Read("get_Resolution", Resolution, [](const ccStopwatch&) { return ccStopwatch::Resolution(); });
}

}  // namespace tessaly::tool
