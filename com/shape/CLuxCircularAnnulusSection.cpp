#include "com/shape/CLuxCircularAnnulusSection.h"

#include <cmath>
#include <initializer_list>
#include <string>

#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "com/core/impl/ParameterChanges.h"
#include "com/shape/ShapeFactory.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAnnulus.h"
#include "xnl/std/shapes/ccEllipseAnnulus.h"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxCircularAnnulusSection> registrar;
const ShapeFactoryRegistrar<CLuxCircularAnnulusSection> factoryEntry("ccAnnulus");

using Params = CLuxCircularAnnulusSection::Params;

struct Named {
    const char* name;
    double value;
};

// Infinite values would make a section with no extent that could never be saved and loaded.
void CheckFinite(std::initializer_list<Named> arguments) {
    for (const Named& argument : arguments)
        if (!std::isfinite(argument.value)) [[unlikely]]
            throw ccStdError::BadArgument(argument.name, core::ids_Core_InvalidArg_1, {argument.name});
}

const char* const kKeys[6] = {"CenterX", "CenterY", "Radius", "AngleStart", "AngleSpan", "RadialScale"};

enum Adornment : size_t { kArcDirection, kRadialDirection, kCenterArc };
const core::EnumeratedSetting kAdornments[] = {
    core::RangeSetting("ArcDirectionAdornment", luxCircularAnnulusSection_ArcDirectionAdornment,
                       luxCircularAnnulusSectionDirectionAdornmentNone,
                       luxCircularAnnulusSectionDirectionAdornmentSolidArrow, "is not an adornment"),
    core::RangeSetting("RadialDirectionAdornment", luxCircularAnnulusSection_RadialDirectionAdornment,
                       luxCircularAnnulusSectionDirectionAdornmentNone,
                       luxCircularAnnulusSectionDirectionAdornmentSolidArrow, "is not an adornment"),
    core::RangeSetting("CenterArcAdornment", luxCircularAnnulusSection_CenterArcAdornment,
                       luxCircularAnnulusSectionCenterArcAdornmentNone,
                       luxCircularAnnulusSectionCenterArcAdornmentDottedArc, "is not an adornment"),
};
const char* const kFractionKey = "ManipArcFraction";

[[noreturn]] void RefuseStored(const char* key, const char* why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

VARIANT DoubleVariant(double value) noexcept {
    VARIANT v{};
    v.vt = VT_R8;
    v.dblVal = value;
    return v;
}

// The same section as an elliptical one (equal radii, rotation 0).
ccEllipseAnnulusPtrh EllipticalCoreOf(const Params& p) {
    return ccEllipseAnnulusPtrh(new ccEllipseAnnulus(cc2Vect(p.centerX, p.centerY), p.radius, p.radius, 0.0,
                                                     p.angleStart, p.angleSpan, p.radialScale));
}

}  // namespace

std::span<const core::EnumeratedSetting> CLuxCircularAnnulusSection::EnumeratedGraphics() { return kAdornments; }

ccShapePtrh CLuxCircularAnnulusSection::NewCore(const Params& p) {
    auto core = ccShapePtrh(new ccAnnulus(cc2Vect(p.centerX, p.centerY), p.radius, p.angleStart, p.angleSpan,
                                          p.radialScale));
    CheckFinite({{"CenterX", p.centerX}, {"CenterY", p.centerY}, {"Radius", p.radius}, {"AngleStart", p.angleStart},
                 {"AngleSpan", p.angleSpan}, {"RadialScale", p.radialScale}});
    return core;
}

Params CLuxCircularAnnulusSection::ParamsOf(const ccShape& shape) {
    if (const auto* section = dynamic_cast<const ccAnnulus*>(&shape))
        return Params{section->Center().X(), section->Center().Y(), section->Radius(),
                      section->AngleStart(), section->AngleSpan(),  section->RadialScale()};
    // An elliptical section with equal radii is circular; its rotation turns the angles.
    if (const auto* section = dynamic_cast<const ccEllipseAnnulus*>(&shape); section &&
                                                                          section->RadiusX() == section->RadiusY())
        return Params{section->Center().X(), section->Center().Y(), section->RadiusX(),
                      section->AngleStart() + section->Rotation(), section->AngleSpan(), section->RadialScale()};
    throw ccStdError::InternalError(std::string("a LuxCircularAnnulusSection cannot hold a ") + shape.TypeName());
}

const ccShape& CLuxCircularAnnulusSection::CoreLocked() const {
    if (!core_) core_ = NewCore(params_);
    return *core_;
}

Params CLuxCircularAnnulusSection::Parameters() const {
    core::ObjectLock::Guard guard(Lock());
    return params_;
}

ccShapePtrh_const CLuxCircularAnnulusSection::CoreShape() const {
    core::ObjectLock::Guard guard(Lock());
    CoreLocked();
    return core_;
}

int32_t CLuxCircularAnnulusSection::SetFromCoreShape(const ccShape& shape) {
    Params next = ParamsOf(shape);
    const ccShapePtrh core = NewCore(next);
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    // The core holds the start angle normalised; a start that only differs by whole turns
    // stays as it was given (a drag moves the section, it does not rewrite its angles).
    if (cc2XformLinear::NormalizeAngle(params_.angleStart) == cc2XformLinear::NormalizeAngle(next.angleStart))
        next.angleStart = params_.angleStart;
    return StoreLocked(next, core, announced);
}

void CLuxCircularAnnulusSection::CopyGeometryFrom(const CLuxCircularAnnulusSection& source) {
    Params params;
    ccShapePtrh_const core;
    {
        core::ObjectLock::Guard guard(source.Lock());
        params = source.params_;
        core = source.core_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = params;
    core_ = core;
}

double CLuxCircularAnnulusSection::ManipArcFraction() const {
    core::ObjectLock::Guard guard(Lock());
    return manipArcFraction_;
}

void CLuxCircularAnnulusSection::TakeManipArcFraction(double fraction) {
    core::ObjectLock::Guard guard(Lock());
    manipArcFraction_ = fraction;
}

void CLuxCircularAnnulusSection::LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const {
    Base::LendGraphicsTo(made, copyFlags);
    if (!(copyFlags & luxCopyShapeBasicGraphics)) return;
    if (auto* circular = dynamic_cast<CLuxCircularAnnulusSection*>(&made)) {
        if (circular != this) circular->TakeManipArcFraction(ManipArcFraction());
    } else if (auto* elliptical = dynamic_cast<CLuxEllipticalAnnulusSection*>(&made)) {
        elliptical->TakeManipArcFraction(ManipArcFraction());
    }
}

ccShapePtrh CLuxCircularAnnulusSection::FittedToBox(const ccRect& box) const {
    // The outer arc's circle touches the box's shorter sides; angles and scale are kept.
    Params p = Parameters();
    const double outer = p.radialScale > 1 ? p.radialScale : 1.0;
    p.centerX = box.Center().X();
    p.centerY = box.Center().Y();
    p.radius = std::fmin(box.Width(), box.Height()) / 2 / outer;
    return NewCore(p);
}

void CLuxCircularAnnulusSection::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        const double values[6] = {params_.centerX,    params_.centerY,   params_.radius,
                                  params_.angleStart, params_.angleSpan, params_.radialScale};
        for (int i = 0; i < 6; ++i) {
            double v = values[i];
            archive.Persist(kKeys[i], v);
        }
        double fraction = manipArcFraction_;
        archive.Persist(kFractionKey, fraction);
        PersistEnumeratedGraphics(archive);
        return;
    }
    // Each value is checked on its own (valid values make a valid section whatever the
    // others are), so the commit cannot fail.
    Params next = params_;
    double* fields[6] = {&next.centerX,    &next.centerY,   &next.radius,
                         &next.angleStart, &next.angleSpan, &next.radialScale};
    for (int i = 0; i < 6; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        const double v = value.get().dblVal;
        if (!std::isfinite(v)) RefuseStored(kKeys[i], "is not finite");
        if (i == 2 && !(v > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        if (i == 4 && v == 0) RefuseStored(kKeys[i], "is 0");
        if (i == 5 && !(v > 0 && v != 1)) RefuseStored(kKeys[i], "is not greater than 0 and other than 1");
        *fields[i] = v;
    }
    double fraction = manipArcFraction_;
    {
        Variant value;
        if (archive.Read(kFractionKey, value)) {
            if (FAILED(value.ChangeType(VT_R8)))
                throw ccArchive::BadType(std::string(kFractionKey) + " is not a number",
                                         ids_Lux_ReadInvalidProperty_1, {kFractionKey});
            const double v = value.get().dblVal;
            if (!(v >= ccEllipseArc2::kMinEllipseFraction && v <= ccEllipseArc2::kMaxEllipseFraction))
                RefuseStored(kFractionKey, "is outside [0.000001, 0.999999]");
            fraction = v;
        }
    }
    PersistEnumeratedGraphics(archive);
    archive.OnCommit([this, next, fraction]() noexcept {
        params_ = next;
        core_ = nullptr;  // built again from the parameters when asked for
        manipArcFraction_ = fraction;
    });
}

int32_t CLuxCircularAnnulusSection::StoreLocked(const Params& next, const ccShapePtrh& core,
                                                double& announced) noexcept {
    const Params& before = params_;
    const core::ParameterChange changes[] = {
        {before.centerX, next.centerX, luxCircularAnnulusSection_CenterX},
        {before.centerY, next.centerY, luxCircularAnnulusSection_CenterY},
        {before.radius, next.radius, luxCircularAnnulusSection_Radius},
        {before.angleStart, next.angleStart, luxCircularAnnulusSection_AngleStart},
        {before.angleSpan, next.angleSpan, luxCircularAnnulusSection_AngleSpan},
        {before.radialScale, next.radialScale, luxCircularAnnulusSection_RadialScale},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = next;
    core_ = core;
    return stateId;
}

// `make` answers the new parameters from the present ones; they are checked through the
// core before anything is stored.
template <class Make>
HRESULT CLuxCircularAnnulusSection::Modify(const char* method, Make&& make) {
    return core::Guarded(method, IID_ILuxCircularAnnulusSection, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            const Params next = make(static_cast<const Params&>(params_));
            const ccShapePtrh core = NewCore(next);
            stateId = StoreLocked(next, core, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        return RaiseChange(stateId, DoubleVariant(announced), luxFA_Shape_Geometry);
    });
}

#define LUX_SECTION_PARAMETER(Name, field)                                                              \
    HRESULT CLuxCircularAnnulusSection::get_##Name(double* Value) {                                     \
        return core::Guarded("get_" #Name, IID_ILuxCircularAnnulusSection, [&] {                        \
            core::RequireOut(Value);                                                                    \
            core::ObjectLock::Guard guard(Lock());                                                      \
            *Value = params_.field;                                                                     \
        });                                                                                             \
    }                                                                                                   \
    HRESULT CLuxCircularAnnulusSection::put_##Name(double Value) {                                      \
        return Modify("put_" #Name, [&](const Params& p) {                                              \
            Params next = p;                                                                            \
            next.field = Value;                                                                         \
            return next;                                                                                \
        });                                                                                             \
    }
LUX_SECTION_PARAMETER(CenterX, centerX)
LUX_SECTION_PARAMETER(CenterY, centerY)
LUX_SECTION_PARAMETER(Radius, radius)
LUX_SECTION_PARAMETER(AngleStart, angleStart)
LUX_SECTION_PARAMETER(AngleSpan, angleSpan)
LUX_SECTION_PARAMETER(RadialScale, radialScale)
#undef LUX_SECTION_PARAMETER

#define LUX_SECTION_ADORNMENT(Name, Type, Index)                      \
    HRESULT CLuxCircularAnnulusSection::get_##Name(Type* Adornment) { \
        return GetEnumeratedGraphic("get_" #Name, Index, Adornment);  \
    }                                                                 \
    HRESULT CLuxCircularAnnulusSection::put_##Name(Type Adornment) {  \
        return PutEnumeratedGraphic("put_" #Name, Index, Adornment);  \
    }
LUX_SECTION_ADORNMENT(ArcDirectionAdornment, LuxCircularAnnulusSectionDirectionAdornmentConstants, kArcDirection)
LUX_SECTION_ADORNMENT(RadialDirectionAdornment, LuxCircularAnnulusSectionDirectionAdornmentConstants, kRadialDirection)
LUX_SECTION_ADORNMENT(CenterArcAdornment, LuxCircularAnnulusSectionCenterArcAdornmentConstants, kCenterArc)
#undef LUX_SECTION_ADORNMENT

HRESULT CLuxCircularAnnulusSection::get_ManipArcFraction(double* Fraction) {
    return core::Guarded("get_ManipArcFraction", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(Fraction);
        core::ObjectLock::Guard guard(Lock());
        *Fraction = manipArcFraction_;
    });
}
HRESULT CLuxCircularAnnulusSection::put_ManipArcFraction(double Fraction) {
    return core::Guarded("put_ManipArcFraction", IID_ILuxCircularAnnulusSection, [&] {
        CheckedManipArcFraction(Fraction);
        {
            core::ObjectLock::Guard guard(Lock());
            if (manipArcFraction_ == Fraction) return S_OK;
            manipArcFraction_ = Fraction;
        }
        return RaiseChange(luxCircularAnnulusSection_ManipArcFraction, DoubleVariant(Fraction), luxFA_Shape_Graphic);
    });
}

HRESULT CLuxCircularAnnulusSection::get_Area(double* Area) {
    return core::Guarded("get_Area", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(Area);
        core::ObjectLock::Guard guard(Lock());
        *Area = CoreLocked().Area();
    });
}
HRESULT CLuxCircularAnnulusSection::get_Perimeter(double* Perimeter) {
    return core::Guarded("get_Perimeter", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(Perimeter);
        core::ObjectLock::Guard guard(Lock());
        *Perimeter = CoreLocked().Perimeter();
    });
}

HRESULT CLuxCircularAnnulusSection::SetCenterRadiusAngleStartAngleSpanRadialScale(double CenterX, double CenterY,
                                                                                  double Radius, double AngleStart,
                                                                                  double AngleSpan,
                                                                                  double RadialScale) {
    return Modify("SetCenterRadiusAngleStartAngleSpanRadialScale", [&](const Params&) {
        return Params{CenterX, CenterY, Radius, AngleStart, AngleSpan, RadialScale};
    });
}
HRESULT CLuxCircularAnnulusSection::GetCenterRadiusAngleStartAngleSpanRadialScale(double* CenterX, double* CenterY,
                                                                                  double* Radius, double* AngleStart,
                                                                                  double* AngleSpan,
                                                                                  double* RadialScale) {
    return core::Guarded("GetCenterRadiusAngleStartAngleSpanRadialScale", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(CenterX, CenterY, Radius, AngleStart, AngleSpan, RadialScale);
        const Params p = Parameters();
        *CenterX = p.centerX;
        *CenterY = p.centerY;
        *Radius = p.radius;
        *AngleStart = p.angleStart;
        *AngleSpan = p.angleSpan;
        *RadialScale = p.radialScale;
    });
}

HRESULT CLuxCircularAnnulusSection::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                                              ILuxEllipticalAnnulusSection** Result) {
    return core::Guarded("MapLinear", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const cc2XformLinear transform = transform::CLuxTransform2DLinear::ValueOf(Transform);
        // Through the elliptical core, so that even a similarity answers the elliptical class.
        const ccShapePtrh mapped = EllipticalCoreOf(Parameters())->Map(transform);
        auto section = ComPtr<CLuxEllipticalAnnulusSection>::Attach(CLuxEllipticalAnnulusSection::Create());
        if (!section) throw std::bad_alloc();
        section->SetFromCoreShape(*mapped);  // nobody has seen it: no event
        section->TakeCommonState(CommonState(), CopyFlags);
        LendGraphicsTo(*section, CopyFlags);
        *Result = static_cast<ILuxEllipticalAnnulusSection*>(section.Detach());
    });
}

HRESULT CLuxCircularAnnulusSection::Copy(LuxCopyShapeConstants CopyFlags, ILuxCircularAnnulusSection** Result) {
    return core::Guarded("Copy", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

HRESULT CLuxCircularAnnulusSection::CreateCircularArc(double RadialFraction, LuxCopyShapeConstants CopyFlags,
                                                      ILuxCircularArc** Result) {
    return core::Guarded("CreateCircularArc", IID_ILuxCircularAnnulusSection, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        if (!(RadialFraction >= 0 && RadialFraction <= 1))
            throw ccStdError::BadArgument("RadialFraction", ids_Lux_InvalidArgValue_1, {"RadialFraction"});
        const Params p = Parameters();
        const ccShapePtrh core = NewCore(p);
        const double radius = p.radius * static_cast<const ccAnnulus&>(*core).Geometry().ScaleAtFraction(RadialFraction);
        ComPtr<ILuxCircularArc> arc;
        core::ThrowIfFailed(tessaly::CreateObject(generated::CoClass_LuxCircularArc.clsid, IID_ILuxCircularArc,
                                         arc.OutVoid()));
        // A new arc nobody listens to yet: its events reach no one.
        core::ThrowIfFailed(arc->SetCenterRadiusAngleStartAngleSpan(p.centerX, p.centerY, radius, p.angleStart,
                                                                    p.angleSpan));
        core::ShapeImplementation::Require(arc.get(), "Result").TakeCommonState(CommonState(), CopyFlags);
        *Result = arc.Detach();
    });
}

}  // namespace tessaly::shape
