#include "com/shape/CLuxCircle.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "com/core/MessageTable.h"
#include "com/core/impl/ParameterChanges.h"
#include "com/shape/ShapeFactory.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/shapes/ccEllipse2.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxCircle> registrar;
const ShapeFactoryRegistrar<CLuxCircle> factoryEntry("ccCircle");

const char* const kKeys[3] = {"CenterX", "CenterY", "Radius"};

// Infinite values would make a shape with no extent that could never be saved and loaded
// again. NaN is refused earlier: by the radius check, or here for the centre.
void CheckFinite(double value, const char* argument) {
    if (!std::isfinite(value)) [[unlikely]]
        throw ccStdError::BadArgument(argument, core::ids_Core_InvalidArg_1, {argument});
}

[[noreturn]] void RefuseStored(const char* key, const char* why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

}  // namespace

const ccCircle& CLuxCircle::CoreLocked() const {
    if (!core_) core_ = ccCirclePtrh(new ccCircle(cc2Vect(params_.centerX, params_.centerY), params_.radius));
    return *core_;
}

ccShapePtrh_const CLuxCircle::CoreShape() const {
    core::ObjectLock::Guard guard(Lock());
    CoreLocked();
    return ccShapePtrh_const(core_);
}

int32_t CLuxCircle::SetFromCoreShape(const ccShape& shape) {
    const auto* circle = dynamic_cast<const ccCircle*>(&shape);
    if (!circle) throw ccStdError::InternalError(std::string("a LuxCircle cannot hold a ") + shape.TypeName());
    const Params next{circle->Center().X(), circle->Center().Y(), circle->Radius()};
    CheckFinite(next.centerX, "CenterX");
    CheckFinite(next.centerY, "CenterY");
    CheckFinite(next.radius, "Radius");
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    return StoreLocked(next, announced);
}

void CLuxCircle::CopyGeometryFrom(const CLuxCircle& source) {
    Params params;
    ccCirclePtrh_const core;
    {
        core::ObjectLock::Guard guard(source.Lock());
        params = source.params_;
        core = source.core_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = params;
    core_ = core;  // immutable once stored
}

ccShapePtrh CLuxCircle::FittedToBox(const ccRect& box) const {
    return ccShapePtrh(new ccCircle(box.Center(), std::min(box.Width(), box.Height()) / 2));
}

void CLuxCircle::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        double values[3] = {params_.centerX, params_.centerY, params_.radius};
        for (int i = 0; i < 3; ++i) archive.Persist(kKeys[i], values[i]);
        return;
    }
    // Each value is checked on its own: valid values make a valid circle whatever the
    // others are, so the commit cannot fail.
    std::array<double, 3> values{};
    std::array<bool, 3> present{};
    for (int i = 0; i < 3; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        const double v = value.get().dblVal;
        if (!std::isfinite(v)) RefuseStored(kKeys[i], "is not finite");
        if (i == 2 && !(v > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        values[i] = v;
        present[i] = true;
    }
    archive.OnCommit([this, values, present]() noexcept {
        double* fields[3] = {&params_.centerX, &params_.centerY, &params_.radius};
        for (int i = 0; i < 3; ++i)
            if (present[i]) *fields[i] = values[i];
        core_ = nullptr;  // built again from the parameters when asked for
    });
}

int32_t CLuxCircle::StoreLocked(const Params& next, double& announced) noexcept {
    const core::ParameterChange changes[] = {
        {params_.centerX, next.centerX, luxCircle_CenterX},
        {params_.centerY, next.centerY, luxCircle_CenterY},
        {params_.radius, next.radius, luxCircle_Radius},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    if (stateId != luxState_Undefined) {
        params_ = next;
        core_ = nullptr;
    }
    return stateId;
}

template <class Reader>
HRESULT CLuxCircle::Read(const char* method, Reader&& read) const {
    return core::Guarded(method, IID_ILuxCircle, [&] {
        core::ObjectLock::Guard guard(Lock());
        read(static_cast<const Params&>(params_));
    });
}

template <class Edit>
HRESULT CLuxCircle::Modify(const char* method, Edit&& edit) {
    return core::Guarded(method, IID_ILuxCircle, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            Params next = params_;
            edit(next);
            // The radius first: the core's own check, whose name is the message.
            ccEllipse2::ValidateRadius(next.radius, "Radius");
            CheckFinite(next.radius, "Radius");
            CheckFinite(next.centerX, "CenterX");
            CheckFinite(next.centerY, "CenterY");
            stateId = StoreLocked(next, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        if (stateId == luxState_MoreThanOneStateIDChanged) return RaiseChange(stateId, luxFA_Shape_Geometry);
        VARIANT value{};
        value.vt = VT_R8;
        value.dblVal = announced;
        return RaiseChange(stateId, value, luxFA_Shape_Geometry);
    });
}

HRESULT CLuxCircle::MakeShapeModel(double /*Weight*/, LONG /*Polarity*/, VARIANT_BOOL /*CopyShape*/,
                                   IDispatch** ShapeModel) {
    return RefuseShapeModel(ShapeModel, "a circle");
}

HRESULT CLuxCircle::get_CenterX(double* CenterX) {
    return Read("get_CenterX", [&](const Params& p) { core::RequireOut(CenterX), *CenterX = p.centerX; });
}
HRESULT CLuxCircle::put_CenterX(double CenterX) {
    return Modify("put_CenterX", [&](Params& p) { p.centerX = CenterX; });
}
HRESULT CLuxCircle::get_CenterY(double* CenterY) {
    return Read("get_CenterY", [&](const Params& p) { core::RequireOut(CenterY), *CenterY = p.centerY; });
}
HRESULT CLuxCircle::put_CenterY(double CenterY) {
    return Modify("put_CenterY", [&](Params& p) { p.centerY = CenterY; });
}
HRESULT CLuxCircle::get_Radius(double* Radius) {
    return Read("get_Radius", [&](const Params& p) { core::RequireOut(Radius), *Radius = p.radius; });
}
HRESULT CLuxCircle::put_Radius(double Radius) {
    return Modify("put_Radius", [&](Params& p) { p.radius = Radius; });
}

HRESULT CLuxCircle::get_Area(double* Area) {
    return core::Guarded("get_Area", IID_ILuxCircle, [&] {
        core::RequireOut(Area);
        core::ObjectLock::Guard guard(Lock());
        *Area = CoreLocked().Area();
    });
}
HRESULT CLuxCircle::get_Perimeter(double* Perimeter) {
    return core::Guarded("get_Perimeter", IID_ILuxCircle, [&] {
        core::RequireOut(Perimeter);
        core::ObjectLock::Guard guard(Lock());
        *Perimeter = CoreLocked().Perimeter();
    });
}

HRESULT CLuxCircle::SetCenterRadius(double CenterX, double CenterY, double Radius) {
    return Modify("SetCenterRadius", [&](Params& p) { p = Params{CenterX, CenterY, Radius}; });
}
HRESULT CLuxCircle::GetCenterRadius(double* CenterX, double* CenterY, double* Radius) {
    return Read("GetCenterRadius", [&](const Params& p) {
        core::RequireOut(CenterX, CenterY, Radius);
        *CenterX = p.centerX;
        *CenterY = p.centerY;
        *Radius = p.radius;
    });
}

HRESULT CLuxCircle::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) {
    return core::Guarded("MapLinear", IID_ILuxCircle, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const ComPtr<ILuxShape> mapped = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags);
        ComPtr<ILuxEllipse> ellipse = mapped.As<ILuxEllipse>();
        if (!ellipse) throw ccStdError::InternalError("a circle mapped is not an ellipse");
        *Result = ellipse.Detach();
    });
}

HRESULT CLuxCircle::Copy(LuxCopyShapeConstants CopyFlags, ILuxCircle** Result) {
    return core::Guarded("Copy", IID_ILuxCircle, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

}  // namespace tessaly::shape
