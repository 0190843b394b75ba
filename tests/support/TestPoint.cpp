#include "support/TestPoint.h"

#include <cmath>

#include "com/core/ccCOMError.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::test {

namespace {
const ClassRegistrar<TestPoint> registrar;
}  // namespace

const CoClassInfo& TestPoint::CoClass() { return generated::CoClass_TestPoint; }

void TestPoint::CopyFrom(const TestPoint& source) {
    Variant marker;
    {
        core::ObjectLock::Guard guard(source.Lock());
        x_ = source.x_;
        y_ = source.y_;
        marker = source.marker_;
    }
    core::CloneValue(marker.get(), marker_.ptr());  // outside the lock: it may clone a point
}

void TestPoint::PersistState(core::ArchiveAccess& archive) {
    archive.Persist("X", x_);
    archive.Persist("Y", y_);
    archive.Persist("Marker", marker_);
}

HRESULT TestPoint::get_X(double* value) {
    return core::Guarded("get_X", IID_ITestPoint, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        *value = x_;
        return S_OK;
    });
}

HRESULT TestPoint::get_Y(double* value) {
    return core::Guarded("get_Y", IID_ITestPoint, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        *value = y_;
        return S_OK;
    });
}

HRESULT TestPoint::put_X(double value) { return SetCoordinate("put_X", &TestPoint::x_, testPoint_X, value); }
HRESULT TestPoint::put_Y(double value) { return SetCoordinate("put_Y", &TestPoint::y_, testPoint_Y, value); }

// Validate, compare, store, mark changed, announce after the lock is released.
HRESULT TestPoint::SetCoordinate(const char* name, double TestPoint::*field, int32_t stateId, double value) {
    return core::Guarded(name, IID_ITestPoint, [&] {
        if (!std::isfinite(value)) throw ccStdError::BadArgument("value");
        {
            core::ObjectLock::Guard guard(Lock());
            if (this->*field == value) return S_OK;
            this->*field = value;
        }
        return RaiseChange(stateId, Variant(value).get(), testFA_Point_Position);
    });
}

HRESULT TestPoint::get_Marker(VARIANT* value) {
    return core::Guarded("get_Marker", IID_ITestPoint, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        core::ThrowIfFailed(marker_.CopyTo(value));
        return S_OK;
    });
}

HRESULT TestPoint::put_Marker(VARIANT value) { return SetMarker("put_Marker", value); }
HRESULT TestPoint::putref_Marker(VARIANT value) { return SetMarker("put_Marker", value); }

HRESULT TestPoint::SetMarker(const char* method, const VARIANT& value) {
    return core::Guarded(method, IID_ITestPoint, [&] {
        Variant copy;
        core::ThrowIfFailed(VariantCopyInd(copy.ptr(), &value));
        {
            core::ObjectLock::Guard guard(Lock());
            std::swap(copy, marker_);
        }
        return RaiseChange(testPoint_Marker, value, testFA_Point_Marker);
    });
}

HRESULT TestPoint::PreLoad() {
    return core::Guarded("PreLoad", ILuxPersistArchive::iid, [&] {
        core::ObjectLock::Guard guard(Lock());
        if (preLoadMarker_.vt() != VT_EMPTY) marker_ = preLoadMarker_;
        return S_OK;
    });
}

void TestPoint::PrepareMarkerOnPreLoad(const Variant& value) {
    core::ObjectLock::Guard guard(Lock());
    preLoadMarker_ = value;
}

HRESULT TestPoint::MoveTo(double x, double y) {
    return core::Guarded("MoveTo", IID_ITestPoint, [&] {
        if (!std::isfinite(x)) throw ccStdError::BadArgument("x");
        if (!std::isfinite(y)) throw ccStdError::BadArgument("y");
        {
            core::ObjectLock::Guard guard(Lock());
            x_ = x;
            y_ = y;
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, testFA_Point_Position);
    });
}

}  // namespace tessaly::test
