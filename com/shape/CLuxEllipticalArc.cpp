#include "com/shape/CLuxEllipticalArc.h"

#include <array>
#include <cmath>
#include <initializer_list>
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

const ClassRegistrar<CLuxEllipticalArc> registrar;
// Every arc the core makes (a circular arc mapped too) comes back as an elliptical arc.
const ShapeFactoryRegistrar<CLuxEllipticalArc> factoryEntry("ccEllipseArc2");

struct Named {
    const char* name;
    double value;
};

void CheckFinite(std::initializer_list<Named> arguments) {
    for (const Named& argument : arguments)
        if (!std::isfinite(argument.value)) [[unlikely]]
            throw ccStdError::BadArgument(argument.name, core::ids_Core_InvalidArg_1, {argument.name});
}

constexpr int kKeyCount = 7;
const char* const kKeys[kKeyCount] = {"CenterX",  "CenterY",    "RadiusX",  "RadiusY",
                                      "Rotation", "AngleStart", "AngleSpan"};

enum Adornment : size_t { kStartPoint, kEndPoint, kDirection };
const core::EnumeratedSetting kAdornments[] = {
    core::RangeSetting("StartPointAdornment", luxEllipticalArc_StartPointAdornment, luxEllipticalArcAdornmentNone,
                       luxEllipticalArcAdornmentSolidCircle),
    core::RangeSetting("EndPointAdornment", luxEllipticalArc_EndPointAdornment, luxEllipticalArcAdornmentNone,
                       luxEllipticalArcAdornmentSolidCircle),
    core::RangeSetting("DirectionAdornment", luxEllipticalArc_DirectionAdornment,
                       luxEllipticalArcDirectionAdornmentNone, luxEllipticalArcDirectionAdornmentSolidArrow),
};

[[noreturn]] void RefuseStored(const char* key, const char* why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

}  // namespace

std::span<const core::EnumeratedSetting> CLuxEllipticalArc::EnumeratedGraphics() { return kAdornments; }

ccEllipseArc2Ptrh CLuxEllipticalArc::CoreOf(const Params& p) {
    return ccEllipseArc2Ptrh(new ccEllipseArc2(cc2Vect(p.centerX, p.centerY), p.radiusX, p.radiusY, p.rotation,
                                               p.angleStart, p.angleSpan));
}

CLuxEllipticalArc::Params CLuxEllipticalArc::Checked(const Params& p) {
    // The core refuses radii and spans first: they are what makes an arc.
    const ccEllipseArc2Ptrh arc = CoreOf(p);
    CheckFinite({{"CenterX", p.centerX}, {"CenterY", p.centerY}, {"RadiusX", p.radiusX}, {"RadiusY", p.radiusY},
                 {"Rotation", p.rotation}, {"AngleStart", p.angleStart}, {"AngleSpan", p.angleSpan}});
    return ParamsOf(*arc, p.angleStart);
}

CLuxEllipticalArc::Params CLuxEllipticalArc::ParamsOf(const ccEllipseArc2& arc, double keptStart) noexcept {
    double start = arc.AngleStart();
    // The core keeps its start angle normalised; the class keeps the one it was given.
    if (std::isfinite(keptStart) && std::fabs(cc2XformLinear::NormalizeAngle(keptStart - start)) <= 1e-12)
        start = keptStart;
    return Params{arc.Center().X(), arc.Center().Y(), arc.RadiusX(),  arc.RadiusY(),
                  arc.Rotation(),   start,            arc.AngleSpan()};
}

ccShapePtrh_const CLuxEllipticalArc::CoreShape() const {
    Params p;
    {
        core::ObjectLock::Guard guard(Lock());
        p = params_;
    }
    return ccShapePtrh_const(CoreOf(p));
}

int32_t CLuxEllipticalArc::SetFromCoreShape(const ccShape& shape) {
    const auto* arc = dynamic_cast<const ccEllipseArc2*>(&shape);
    if (!arc) throw ccStdError::InternalError(std::string("a LuxEllipticalArc cannot hold a ") + shape.TypeName());
    double kept;
    {
        core::ObjectLock::Guard guard(Lock());
        kept = params_.angleStart;
    }
    const Params next = Checked(ParamsOf(*arc, kept));
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    return StoreLocked(next, announced);
}

void CLuxEllipticalArc::CopyGeometryFrom(const CLuxEllipticalArc& source) {
    Params params;
    {
        core::ObjectLock::Guard guard(source.Lock());
        params = source.params_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = params;
}

ccShapePtrh CLuxEllipticalArc::FittedToBox(const ccRect& box) const {
    Params p;
    {
        core::ObjectLock::Guard guard(Lock());
        p = params_;
    }
    return ccShapePtrh(CoreOf(
        Params{box.Center().X(), box.Center().Y(), box.Width() / 2, box.Height() / 2, 0.0, p.angleStart, p.angleSpan}));
}

void CLuxEllipticalArc::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        double values[kKeyCount] = {params_.centerX,  params_.centerY,    params_.radiusX,  params_.radiusY,
                                    params_.rotation, params_.angleStart, params_.angleSpan};
        for (int i = 0; i < kKeyCount; ++i) archive.Persist(kKeys[i], values[i]);
        PersistEnumeratedGraphics(archive);
        return;
    }
    // Each value is checked on its own: valid values combine into a valid arc whatever the
    // others are, so the commit cannot fail.
    std::array<double, kKeyCount> values{};
    std::array<bool, kKeyCount> present{};
    for (int i = 0; i < kKeyCount; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        double v = value.get().dblVal;
        if (!std::isfinite(v)) RefuseStored(kKeys[i], "is not finite");
        if ((i == 2 || i == 3) && !(v > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        if (i == 4) v = cc2XformLinear::NormalizeAngle(v);
        if (i == 6 && v == 0) RefuseStored(kKeys[i], "is 0");
        values[i] = v;
        present[i] = true;
    }
    PersistEnumeratedGraphics(archive);
    archive.OnCommit([this, values, present]() noexcept {
        double* fields[kKeyCount] = {&params_.centerX,  &params_.centerY,    &params_.radiusX,  &params_.radiusY,
                                     &params_.rotation, &params_.angleStart, &params_.angleSpan};
        for (int i = 0; i < kKeyCount; ++i)
            if (present[i]) *fields[i] = values[i];
    });
}

int32_t CLuxEllipticalArc::StoreLocked(const Params& next, double& announced) noexcept {
    const Params& before = params_;
    const core::ParameterChange changes[] = {
        {before.centerX, next.centerX, luxEllipticalArc_CenterX},
        {before.centerY, next.centerY, luxEllipticalArc_CenterY},
        {before.radiusX, next.radiusX, luxEllipticalArc_RadiusX},
        {before.radiusY, next.radiusY, luxEllipticalArc_RadiusY},
        {before.rotation, next.rotation, luxEllipticalArc_Rotation},
        {before.angleStart, next.angleStart, luxEllipticalArc_AngleStart},
        {before.angleSpan, next.angleSpan, luxEllipticalArc_AngleSpan},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = next;
    return stateId;
}

template <class Reader>
HRESULT CLuxEllipticalArc::Read(const char* method, Reader&& read) const {
    return core::Guarded(method, IID_ILuxEllipticalArc, [&] {
        Params p;
        {
            core::ObjectLock::Guard guard(Lock());
            p = params_;
        }
        read(static_cast<const Params&>(p));
    });
}

template <class Make>
HRESULT CLuxEllipticalArc::Modify(const char* method, Make&& make, int32_t wholeStateId) {
    return core::Guarded(method, IID_ILuxEllipticalArc, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            const Params next = make(static_cast<const Params&>(params_));
            stateId = StoreLocked(next, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        if (wholeStateId != luxState_Undefined) return RaiseChange(wholeStateId, luxFA_Shape_Geometry);
        if (stateId == luxState_MoreThanOneStateIDChanged) return RaiseChange(stateId, luxFA_Shape_Geometry);
        VARIANT value{};
        value.vt = VT_R8;
        value.dblVal = announced;
        return RaiseChange(stateId, value, luxFA_Shape_Geometry);
    });
}

HRESULT CLuxEllipticalArc::MakeShapeModel(double /*Weight*/, LONG /*Polarity*/, VARIANT_BOOL /*CopyShape*/,
                                          IDispatch** ShapeModel) {
    return RefuseShapeModel(ShapeModel, "an elliptical arc");
}

#define LUX_ELLIPTICAL_ARC_PARAM(Member, Field)                                                    \
    HRESULT CLuxEllipticalArc::get_##Member(double* Value) {                                       \
        return Read("get_" #Member, [&](const Params& p) { core::RequireOut(Value), *Value = p.Field; }); \
    }                                                                                              \
    HRESULT CLuxEllipticalArc::put_##Member(double Value) {                                        \
        return Modify("put_" #Member, [&](Params p) { return p.Field = Value, Checked(p); });      \
    }
LUX_ELLIPTICAL_ARC_PARAM(CenterX, centerX)
LUX_ELLIPTICAL_ARC_PARAM(CenterY, centerY)
LUX_ELLIPTICAL_ARC_PARAM(RadiusX, radiusX)
LUX_ELLIPTICAL_ARC_PARAM(RadiusY, radiusY)
LUX_ELLIPTICAL_ARC_PARAM(Rotation, rotation)
LUX_ELLIPTICAL_ARC_PARAM(AngleStart, angleStart)
LUX_ELLIPTICAL_ARC_PARAM(AngleSpan, angleSpan)
#undef LUX_ELLIPTICAL_ARC_PARAM

HRESULT CLuxEllipticalArc::get_ArcLength(double* ArcLength) {
    return Read("get_ArcLength", [&](const Params& p) { core::RequireOut(ArcLength), *ArcLength = CoreOf(p)->Length(); });
}

// The ends come from the core, which owns the parametrisation.
#define LUX_ELLIPTICAL_ARC_END(Member, End, Axis)                                                  \
    HRESULT CLuxEllipticalArc::get_##Member(double* Value) {                                       \
        return Read("get_" #Member, [&](const Params& p) { core::RequireOut(Value), *Value = CoreOf(p)->End().Axis(); }); \
    }
LUX_ELLIPTICAL_ARC_END(StartX, StartPoint, X)
LUX_ELLIPTICAL_ARC_END(StartY, StartPoint, Y)
LUX_ELLIPTICAL_ARC_END(EndX, EndPoint, X)
LUX_ELLIPTICAL_ARC_END(EndY, EndPoint, Y)
#undef LUX_ELLIPTICAL_ARC_END

HRESULT CLuxEllipticalArc::GetStartEnd(double* StartX, double* StartY, double* EndX, double* EndY) {
    return Read("GetStartEnd", [&](const Params& p) {
        core::RequireOut(StartX, StartY, EndX, EndY);
        const ccEllipseArc2Ptrh arc = CoreOf(p);
        const cc2Vect start = arc->StartPoint(), end = arc->EndPoint();
        *StartX = start.X();
        *StartY = start.Y();
        *EndX = end.X();
        *EndY = end.Y();
    });
}

#define LUX_ELLIPTICAL_ARC_ADORNMENT(Member, Type, Index)              \
    HRESULT CLuxEllipticalArc::get_##Member(Type* Adornment) {         \
        return GetEnumeratedGraphic("get_" #Member, Index, Adornment); \
    }                                                                  \
    HRESULT CLuxEllipticalArc::put_##Member(Type Adornment) {          \
        return PutEnumeratedGraphic("put_" #Member, Index, Adornment); \
    }
LUX_ELLIPTICAL_ARC_ADORNMENT(StartPointAdornment, LuxEllipticalArcAdornmentConstants, kStartPoint)
LUX_ELLIPTICAL_ARC_ADORNMENT(EndPointAdornment, LuxEllipticalArcAdornmentConstants, kEndPoint)
LUX_ELLIPTICAL_ARC_ADORNMENT(DirectionAdornment, LuxEllipticalArcDirectionAdornmentConstants, kDirection)
#undef LUX_ELLIPTICAL_ARC_ADORNMENT

HRESULT CLuxEllipticalArc::GetUnitCircleParams(double* UnitCircleAngleStart, double* UnitCircleAngleSpan,
                                               ILuxTransform2DLinear** EllipseFromUnitCircle) {
    return core::Guarded("GetUnitCircleParams", IID_ILuxEllipticalArc, [&] {
        core::RequireOut(UnitCircleAngleStart, UnitCircleAngleSpan, EllipseFromUnitCircle);
        *EllipseFromUnitCircle = nullptr;
        Params p;
        {
            core::ObjectLock::Guard guard(Lock());
            p = params_;
        }
        const ccEllipseArc2::UnitCircleParams unit = CoreOf(p)->GetUnitCircleParams();
        ComPtr<transform::CLuxTransform2DLinear> transform =
            transform::CLuxTransform2DLinear::FromValue(unit.ellipseFromUnitCircle);
        // The transform is the ellipse's own, so the angles are the arc's as given.
        *UnitCircleAngleStart = p.angleStart;
        *UnitCircleAngleSpan = unit.angleSpan;
        *EllipseFromUnitCircle = static_cast<ILuxTransform2DLinear*>(transform.Detach());
    });
}

HRESULT CLuxEllipticalArc::SetFromUnitCircleParams(double UnitCircleAngleStart, double UnitCircleAngleSpan,
                                                   ILuxTransform2DLinear* EllipseFromUnitCircle) {
    return core::Guarded("SetFromUnitCircleParams", IID_ILuxEllipticalArc, [&] {
        core::RequireArgument(EllipseFromUnitCircle, "EllipseFromUnitCircle");
        // Read before this object's lock is taken: it may be anyone's object.
        const cc2XformLinear transform = transform::CLuxTransform2DLinear::ValueOf(EllipseFromUnitCircle);
        CheckFinite({{"UnitCircleAngleStart", UnitCircleAngleStart}});
        const ccEllipseArc2Ptrh arc(new ccEllipseArc2());
        arc->SetFromUnitCircleParams(UnitCircleAngleStart, UnitCircleAngleSpan, transform);
        const Params next = Checked(ParamsOf(*arc, UnitCircleAngleStart));
        return Modify("SetFromUnitCircleParams", [&](const Params&) { return next; },
                      luxEllipticalArc_UnitCircleParams);
    });
}

HRESULT CLuxEllipticalArc::SetCenterRadiusXYRotationAngleStartAngleSpan(double CenterX, double CenterY,
                                                                        double RadiusX, double RadiusY,
                                                                        double Rotation, double AngleStart,
                                                                        double AngleSpan) {
    return Modify("SetCenterRadiusXYRotationAngleStartAngleSpan", [&](const Params&) {
        return Checked(Params{CenterX, CenterY, RadiusX, RadiusY, Rotation, AngleStart, AngleSpan});
    });
}
HRESULT CLuxEllipticalArc::GetCenterRadiusXYRotationAngleStartAngleSpan(double* CenterX, double* CenterY,
                                                                        double* RadiusX, double* RadiusY,
                                                                        double* Rotation, double* AngleStart,
                                                                        double* AngleSpan) {
    return Read("GetCenterRadiusXYRotationAngleStartAngleSpan", [&](const Params& p) {
        core::RequireOut(CenterX, CenterY, RadiusX, RadiusY, Rotation, AngleStart, AngleSpan);
        *CenterX = p.centerX;
        *CenterY = p.centerY;
        *RadiusX = p.radiusX;
        *RadiusY = p.radiusY;
        *Rotation = p.rotation;
        *AngleStart = p.angleStart;
        *AngleSpan = p.angleSpan;
    });
}

HRESULT CLuxEllipticalArc::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                                     ILuxEllipticalArc** Result) {
    return core::Guarded("MapLinear", IID_ILuxEllipticalArc, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const ComPtr<ILuxShape> mapped = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags);
        ComPtr<ILuxEllipticalArc> arc = mapped.As<ILuxEllipticalArc>();
        if (!arc) throw ccStdError::InternalError("an elliptical arc mapped is not an elliptical arc");
        *Result = arc.Detach();
    });
}

HRESULT CLuxEllipticalArc::CreateEllipse(LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) {
    return core::Guarded("CreateEllipse", IID_ILuxEllipticalArc, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        Params p;
        {
            core::ObjectLock::Guard guard(Lock());
            p = params_;
        }
        const ccEllipse2Ptrh ellipse(new ccEllipse2(cc2Vect(p.centerX, p.centerY), p.radiusX, p.radiusY, p.rotation));
        ComPtr<ILuxShape> shape = NewShapeFromCore(*ellipse);
        core::ShapeImplementation::Require(shape.get(), "Result").TakeCommonState(CommonState(), CopyFlags);
        ComPtr<ILuxEllipse> result = shape.As<ILuxEllipse>();
        if (!result) throw ccStdError::InternalError("the ellipse of an arc is not a LuxEllipse");
        *Result = result.Detach();
    });
}

HRESULT CLuxEllipticalArc::Copy(LuxCopyShapeConstants CopyFlags, ILuxEllipticalArc** Result) {
    return core::Guarded("Copy", IID_ILuxEllipticalArc, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

}  // namespace tessaly::shape
