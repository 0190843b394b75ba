#include "com/shape/CLuxCircularArc.h"

#include <cmath>
#include <initializer_list>
#include <algorithm>
#include <array>
#include <string>

#include "com/core/MessageTable.h"
#include "com/core/impl/ParameterChanges.h"
#include "com/shape/CLuxEllipticalArc.h"
#include "com/shape/ShapeFactory.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/shapes/ccCircle.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxCircularArc> registrar;

struct Named {
    const char* name;
    double value;
};

void CheckFinite(std::initializer_list<Named> arguments) {
    for (const Named& argument : arguments)
        if (!std::isfinite(argument.value)) [[unlikely]]
            throw ccStdError::BadArgument(argument.name, core::ids_Core_InvalidArg_1, {argument.name});
}

const char* const kKeys[5] = {"CenterX", "CenterY", "Radius", "AngleStart", "AngleSpan"};
const char* const kScreenRadiusKey = "DisplayedRadiusInScreenPixels";

enum Setting : size_t { kStartPoint, kEndPoint, kDirection, kDisplayMode };
const core::EnumeratedSetting kSettings[] = {
    core::RangeSetting("StartPointAdornment", luxCircularArc_StartPointAdornment, luxCircularArcAdornmentNone,
                       luxCircularArcAdornmentSolidCircle),
    core::RangeSetting("EndPointAdornment", luxCircularArc_EndPointAdornment, luxCircularArcAdornmentNone,
                       luxCircularArcAdornmentSolidCircle),
    core::RangeSetting("DirectionAdornment", luxCircularArc_DirectionAdornment, luxCircularArcDirectionAdornmentNone,
                       luxCircularArcDirectionAdornmentSolidArrow),
    core::RangeSetting("DisplayMode", luxCircularArc_DisplayMode, luxCircularArcDisplayModeMathematical,
                       luxCircularArcDisplayModeScreen),
};

[[noreturn]] void RefuseStored(const char* key, const char* why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

double ReadDouble(core::ArchiveAccess& archive, const char* key, bool& present) {
    Variant value;
    present = archive.Read(key, value);
    if (!present) return 0;
    if (FAILED(value.ChangeType(VT_R8)))
        throw ccArchive::BadType(std::string(key) + " is not a number", ids_Lux_ReadInvalidProperty_1, {key});
    const double v = value.get().dblVal;
    if (!std::isfinite(v)) RefuseStored(key, "is not finite");
    return v;
}

}  // namespace

std::span<const core::EnumeratedSetting> CLuxCircularArc::EnumeratedGraphics() { return kSettings; }

void CLuxCircularArc::Validate(const Params& p) {
    // The core refuses the radius and the span first: they are what makes an arc.
    CoreOf(p);
    CheckFinite({{"CenterX", p.centerX}, {"CenterY", p.centerY}, {"Radius", p.radius}, {"AngleStart", p.angleStart},
                 {"AngleSpan", p.angleSpan}});
}

ccEllipseArc2Ptrh CLuxCircularArc::CoreOf(const Params& p) {
    return ccEllipseArc2Ptrh(new ccEllipseArc2(cc2Vect(p.centerX, p.centerY), p.radius, p.radius, 0.0, p.angleStart,
                                               p.angleSpan));
}

void CLuxCircularArc::PointAt(const Params& p, double angle, double* x, double* y) noexcept {
    *x = p.centerX + p.radius * std::cos(angle);
    *y = p.centerY + p.radius * std::sin(angle);
}

ccShapePtrh_const CLuxCircularArc::CoreShape() const {
    Params p;
    {
        core::ObjectLock::Guard guard(Lock());
        p = params_;
    }
    return ccShapePtrh_const(CoreOf(p));
}

int32_t CLuxCircularArc::SetFromCoreShape(const ccShape& shape) {
    const auto* arc = dynamic_cast<const ccEllipseArc2*>(&shape);
    if (!arc) throw ccStdError::InternalError(std::string("a LuxCircularArc cannot hold a ") + shape.TypeName());
    // Only what the class itself made comes back here (moved or fitted): a circle's arc. Its
    // rotation turns the angles.
    if (arc->RadiusX() != arc->RadiusY())
        throw ccStdError::InternalError("a LuxCircularArc cannot hold an arc of an ellipse");
    Params next{arc->Center().X(), arc->Center().Y(), arc->RadiusX(), arc->AngleStart() + arc->Rotation(),
                arc->AngleSpan()};
    Validate(next);
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    // The core keeps its start angle normalised; the class keeps the one it was given.
    if (std::fabs(cc2XformLinear::NormalizeAngle(params_.angleStart - next.angleStart)) <= 1e-12)
        next.angleStart = params_.angleStart;
    return StoreLocked(next, announced);
}

void CLuxCircularArc::CopyGeometryFrom(const CLuxCircularArc& source) {
    Params params;
    {
        core::ObjectLock::Guard guard(source.Lock());
        params = source.params_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = params;
}

void CLuxCircularArc::LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const {
    Base::LendGraphicsTo(made, copyFlags);
    if (!(copyFlags & luxCopyShapeBasicGraphics)) return;
    // Only a circular arc has a radius on the screen (a mapped arc is elliptical).
    auto* target = dynamic_cast<CLuxCircularArc*>(&made);
    if (!target || target == this) return;
    double screenRadius;
    {
        core::ObjectLock::Guard guard(Lock());
        screenRadius = screenRadius_;
    }
    core::ObjectLock::Guard guard(target->Lock());
    target->screenRadius_ = screenRadius;
}

ccShapePtrh CLuxCircularArc::FittedToBox(const ccRect& box) const {
    Params p;
    {
        core::ObjectLock::Guard guard(Lock());
        p = params_;
    }
    // A box with no extent leaves no radius: the core refuses it.
    const double radius = std::min(box.Width(), box.Height()) / 2;
    return ccShapePtrh(CoreOf(Params{box.Center().X(), box.Center().Y(), radius, p.angleStart, p.angleSpan}));
}

void CLuxCircularArc::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        double values[5] = {params_.centerX, params_.centerY, params_.radius, params_.angleStart,
                                  params_.angleSpan};
        for (int i = 0; i < 5; ++i) archive.Persist(kKeys[i], values[i]);
        double screenRadius = screenRadius_;
        archive.Persist(kScreenRadiusKey, screenRadius);
        PersistEnumeratedGraphics(archive);
        return;
    }
    // Each value is checked on its own: valid values combine into a valid arc whatever the
    // others are, so the commit cannot fail.
    std::array<double, 5> values{};
    std::array<bool, 5> present{};
    for (int i = 0; i < 5; ++i) {
        values[i] = ReadDouble(archive, kKeys[i], present[i]);
        if (!present[i]) continue;
        if (i == 2 && !(values[i] > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        if (i == 4 && values[i] == 0) RefuseStored(kKeys[i], "is 0");
    }
    bool screenPresent = false;
    const double screenRadius = ReadDouble(archive, kScreenRadiusKey, screenPresent);
    if (screenPresent && !(screenRadius > 0)) RefuseStored(kScreenRadiusKey, "is not greater than 0");
    PersistEnumeratedGraphics(archive);
    archive.OnCommit([this, values, present, screenRadius, screenPresent]() noexcept {
        double* fields[5] = {&params_.centerX, &params_.centerY, &params_.radius, &params_.angleStart,
                             &params_.angleSpan};
        for (int i = 0; i < 5; ++i)
            if (present[i]) *fields[i] = values[i];
        if (screenPresent) screenRadius_ = screenRadius;
    });
}

int32_t CLuxCircularArc::StoreLocked(const Params& next, double& announced) noexcept {
    const Params& before = params_;
    const core::ParameterChange changes[] = {
        {before.centerX, next.centerX, luxCircularArc_CenterX},
        {before.centerY, next.centerY, luxCircularArc_CenterY},
        {before.radius, next.radius, luxCircularArc_Radius},
        {before.angleStart, next.angleStart, luxCircularArc_AngleStart},
        {before.angleSpan, next.angleSpan, luxCircularArc_AngleSpan},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = next;
    return stateId;
}

template <class Reader>
HRESULT CLuxCircularArc::Read(const char* method, Reader&& read) const {
    return core::Guarded(method, IID_ILuxCircularArc, [&] {
        Params p;
        {
            core::ObjectLock::Guard guard(Lock());
            p = params_;
        }
        read(static_cast<const Params&>(p));
    });
}

template <class Make>
HRESULT CLuxCircularArc::Modify(const char* method, Make&& make) {
    return core::Guarded(method, IID_ILuxCircularArc, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            const Params next = make(static_cast<const Params&>(params_));
            Validate(next);
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

HRESULT CLuxCircularArc::get_CenterX(double* CenterX) {
    return Read("get_CenterX", [&](const Params& p) { core::RequireOut(CenterX), *CenterX = p.centerX; });
}
HRESULT CLuxCircularArc::put_CenterX(double CenterX) {
    return Modify("put_CenterX", [&](Params p) { return p.centerX = CenterX, p; });
}
HRESULT CLuxCircularArc::get_CenterY(double* CenterY) {
    return Read("get_CenterY", [&](const Params& p) { core::RequireOut(CenterY), *CenterY = p.centerY; });
}
HRESULT CLuxCircularArc::put_CenterY(double CenterY) {
    return Modify("put_CenterY", [&](Params p) { return p.centerY = CenterY, p; });
}
HRESULT CLuxCircularArc::get_Radius(double* Radius) {
    return Read("get_Radius", [&](const Params& p) { core::RequireOut(Radius), *Radius = p.radius; });
}
HRESULT CLuxCircularArc::put_Radius(double Radius) {
    return Modify("put_Radius", [&](Params p) { return p.radius = Radius, p; });
}
HRESULT CLuxCircularArc::get_AngleStart(double* AngleStart) {
    return Read("get_AngleStart", [&](const Params& p) { core::RequireOut(AngleStart), *AngleStart = p.angleStart; });
}
HRESULT CLuxCircularArc::put_AngleStart(double AngleStart) {
    return Modify("put_AngleStart", [&](Params p) { return p.angleStart = AngleStart, p; });
}
HRESULT CLuxCircularArc::get_AngleSpan(double* AngleSpan) {
    return Read("get_AngleSpan", [&](const Params& p) { core::RequireOut(AngleSpan), *AngleSpan = p.angleSpan; });
}
HRESULT CLuxCircularArc::put_AngleSpan(double AngleSpan) {
    return Modify("put_AngleSpan", [&](Params p) { return p.angleSpan = AngleSpan, p; });
}

HRESULT CLuxCircularArc::get_ArcLength(double* ArcLength) {
    return Read("get_ArcLength", [&](const Params& p) {
        core::RequireOut(ArcLength);
        *ArcLength = CoreOf(p)->Length();
    });
}

HRESULT CLuxCircularArc::get_StartX(double* StartX) {
    return Read("get_StartX", [&](const Params& p) {
        core::RequireOut(StartX);
        double y;
        PointAt(p, p.angleStart, StartX, &y);
    });
}
HRESULT CLuxCircularArc::get_StartY(double* StartY) {
    return Read("get_StartY", [&](const Params& p) {
        core::RequireOut(StartY);
        double x;
        PointAt(p, p.angleStart, &x, StartY);
    });
}
HRESULT CLuxCircularArc::get_EndX(double* EndX) {
    return Read("get_EndX", [&](const Params& p) {
        core::RequireOut(EndX);
        double y;
        PointAt(p, p.angleStart + p.angleSpan, EndX, &y);
    });
}
HRESULT CLuxCircularArc::get_EndY(double* EndY) {
    return Read("get_EndY", [&](const Params& p) {
        core::RequireOut(EndY);
        double x;
        PointAt(p, p.angleStart + p.angleSpan, &x, EndY);
    });
}
HRESULT CLuxCircularArc::get_MidpointX(double* MidpointX) {
    return Read("get_MidpointX", [&](const Params& p) {
        core::RequireOut(MidpointX);
        double y;
        PointAt(p, p.angleStart + p.angleSpan / 2, MidpointX, &y);
    });
}
HRESULT CLuxCircularArc::get_MidpointY(double* MidpointY) {
    return Read("get_MidpointY", [&](const Params& p) {
        core::RequireOut(MidpointY);
        double x;
        PointAt(p, p.angleStart + p.angleSpan / 2, &x, MidpointY);
    });
}

HRESULT CLuxCircularArc::GetStartEnd(double* StartX, double* StartY, double* EndX, double* EndY) {
    return Read("GetStartEnd", [&](const Params& p) {
        core::RequireOut(StartX, StartY, EndX, EndY);
        PointAt(p, p.angleStart, StartX, StartY);
        PointAt(p, p.angleStart + p.angleSpan, EndX, EndY);
    });
}

#define LUX_ARC_SETTING(Member, Type, Index)                       \
    HRESULT CLuxCircularArc::get_##Member(Type* Value) {           \
        return GetEnumeratedGraphic("get_" #Member, Index, Value); \
    }                                                              \
    HRESULT CLuxCircularArc::put_##Member(Type Value) {            \
        return PutEnumeratedGraphic("put_" #Member, Index, Value); \
    }
LUX_ARC_SETTING(StartPointAdornment, LuxCircularArcAdornmentConstants, kStartPoint)
LUX_ARC_SETTING(EndPointAdornment, LuxCircularArcAdornmentConstants, kEndPoint)
LUX_ARC_SETTING(DirectionAdornment, LuxCircularArcDirectionAdornmentConstants, kDirection)
LUX_ARC_SETTING(DisplayMode, LuxCircularArcDisplayModeConstants, kDisplayMode)
#undef LUX_ARC_SETTING

HRESULT CLuxCircularArc::get_DisplayedRadiusInScreenPixels(double* Radius) {
    return core::Guarded("get_DisplayedRadiusInScreenPixels", IID_ILuxCircularArc, [&] {
        core::RequireOut(Radius);
        core::ObjectLock::Guard guard(Lock());
        *Radius = screenRadius_;
    });
}
HRESULT CLuxCircularArc::put_DisplayedRadiusInScreenPixels(double Radius) {
    return core::Guarded("put_DisplayedRadiusInScreenPixels", IID_ILuxCircularArc, [&] {
        if (!(Radius > 0) || !std::isfinite(Radius))
            throw ccStdError::BadArgument("DisplayedRadiusInScreenPixels", ids_Lux_InvalidArgNotPositive_1,
                                          {"DisplayedRadiusInScreenPixels"});
        {
            core::ObjectLock::Guard guard(Lock());
            if (screenRadius_ == Radius) return S_OK;
            screenRadius_ = Radius;
        }
        VARIANT announced{};
        announced.vt = VT_R8;
        announced.dblVal = Radius;
        return RaiseChange(luxCircularArc_DisplayedRadiusInScreenPixels, announced, luxFA_Shape_Graphic);
    });
}

HRESULT CLuxCircularArc::SetCenterRadiusAngleStartAngleSpan(double CenterX, double CenterY, double Radius,
                                                            double AngleStart, double AngleSpan) {
    return Modify("SetCenterRadiusAngleStartAngleSpan",
                  [&](const Params&) { return Params{CenterX, CenterY, Radius, AngleStart, AngleSpan}; });
}
HRESULT CLuxCircularArc::GetCenterRadiusAngleStartAngleSpan(double* CenterX, double* CenterY, double* Radius,
                                                            double* AngleStart, double* AngleSpan) {
    return Read("GetCenterRadiusAngleStartAngleSpan", [&](const Params& p) {
        core::RequireOut(CenterX, CenterY, Radius, AngleStart, AngleSpan);
        *CenterX = p.centerX;
        *CenterY = p.centerY;
        *Radius = p.radius;
        *AngleStart = p.angleStart;
        *AngleSpan = p.angleSpan;
    });
}

HRESULT CLuxCircularArc::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                                   ILuxEllipticalArc** Result) {
    return core::Guarded("MapLinear", IID_ILuxCircularArc, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const ComPtr<ILuxShape> mapped = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags);
        ComPtr<ILuxEllipticalArc> arc = mapped.As<ILuxEllipticalArc>();
        if (!arc) throw ccStdError::InternalError("a circular arc mapped is not an elliptical arc");
        *Result = arc.Detach();
    });
}

HRESULT CLuxCircularArc::Copy(LuxCopyShapeConstants CopyFlags, ILuxCircularArc** Result) {
    return core::Guarded("Copy", IID_ILuxCircularArc, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

HRESULT CLuxCircularArc::CreateCircle(LuxCopyShapeConstants CopyFlags, ILuxCircle** Result) {
    return core::Guarded("CreateCircle", IID_ILuxCircularArc, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        Params p;
        {
            core::ObjectLock::Guard guard(Lock());
            p = params_;
        }
        const ccCirclePtrh circle(new ccCircle(cc2Vect(p.centerX, p.centerY), p.radius));
        ComPtr<ILuxShape> shape = NewShapeFromCore(*circle);
        core::ShapeImplementation::Require(shape.get(), "Result").TakeCommonState(CommonState(), CopyFlags);
        ComPtr<ILuxCircle> result = shape.As<ILuxCircle>();
        if (!result) throw ccStdError::InternalError("the full circle of an arc is not a LuxCircle");
        *Result = result.Detach();
    });
}

}  // namespace tessaly::shape
