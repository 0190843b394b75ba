#include "com/shape/CLuxEllipticalAnnulusSection.h"

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
#include "xnl/std/math/ccMathError.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccEllipseAnnulus.h"
#include "xnl/std/shapes/ccEllipseArc2.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxEllipticalAnnulusSection> registrar;
const ShapeFactoryRegistrar<CLuxEllipticalAnnulusSection> factoryEntry("ccEllipseAnnulus");

using Params = CLuxEllipticalAnnulusSection::Params;

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

void CheckFinite(const Params& p) {
    CheckFinite({{"CenterX", p.centerX}, {"CenterY", p.centerY}, {"RadiusX", p.radiusX}, {"RadiusY", p.radiusY},
                 {"Rotation", p.rotation}, {"AngleStart", p.angleStart}, {"AngleSpan", p.angleSpan},
                 {"RadialScale", p.radialScale}});
}

const char* const kKeys[8] = {"CenterX",  "CenterY",    "RadiusX",   "RadiusY",
                              "Rotation", "AngleStart", "AngleSpan", "RadialScale"};

enum Adornment : size_t { kArcDirection, kRadialDirection, kCenterArc };
const core::EnumeratedSetting kAdornments[] = {
    core::RangeSetting("ArcDirectionAdornment", luxEllipticalAnnulusSection_ArcDirectionAdornment,
                       luxEllipticalAnnulusSectionDirectionAdornmentNone,
                       luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow, "is not an adornment"),
    core::RangeSetting("RadialDirectionAdornment", luxEllipticalAnnulusSection_RadialDirectionAdornment,
                       luxEllipticalAnnulusSectionDirectionAdornmentNone,
                       luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow, "is not an adornment"),
    core::RangeSetting("CenterArcAdornment", luxEllipticalAnnulusSection_CenterArcAdornment,
                       luxEllipticalAnnulusSectionCenterArcAdornmentNone,
                       luxEllipticalAnnulusSectionCenterArcAdornmentDottedArc, "is not an adornment"),
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

}  // namespace

std::span<const core::EnumeratedSetting> CLuxEllipticalAnnulusSection::EnumeratedGraphics() { return kAdornments; }

double CheckedManipArcFraction(double fraction) {
    ccEllipseArc2::ValidateEllipseFraction(fraction);
    return fraction;
}

ccShapePtrh CLuxEllipticalAnnulusSection::NewCore(const Params& p) {
    auto core = ccShapePtrh(new ccEllipseAnnulus(cc2Vect(p.centerX, p.centerY), p.radiusX, p.radiusY, p.rotation,
                                                 p.angleStart, p.angleSpan, p.radialScale));
    CheckFinite(p);
    return core;
}

Params CLuxEllipticalAnnulusSection::ParamsOf(const ccShape& shape) {
    const auto* section = dynamic_cast<const ccEllipseAnnulus*>(&shape);
    if (!section)
        throw ccStdError::InternalError(std::string("a LuxEllipticalAnnulusSection cannot hold a ") + shape.TypeName());
    Params p;
    p.centerX = section->Center().X();
    p.centerY = section->Center().Y();
    p.radiusX = section->RadiusX();
    p.radiusY = section->RadiusY();
    p.rotation = cc2XformLinear::NormalizeAngle(section->Rotation());
    p.angleStart = section->AngleStart();
    p.angleSpan = section->AngleSpan();
    p.radialScale = section->RadialScale();
    return p;
}

const ccShape& CLuxEllipticalAnnulusSection::CoreLocked() const {
    if (!core_) core_ = NewCore(params_);
    return *core_;
}

Params CLuxEllipticalAnnulusSection::Parameters() const {
    core::ObjectLock::Guard guard(Lock());
    return params_;
}

ccShapePtrh_const CLuxEllipticalAnnulusSection::CoreShape() const {
    core::ObjectLock::Guard guard(Lock());
    CoreLocked();
    return core_;
}

int32_t CLuxEllipticalAnnulusSection::SetFromCoreShape(const ccShape& shape) {
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

void CLuxEllipticalAnnulusSection::CopyGeometryFrom(const CLuxEllipticalAnnulusSection& source) {
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

double CLuxEllipticalAnnulusSection::ManipArcFraction() const {
    core::ObjectLock::Guard guard(Lock());
    return manipArcFraction_;
}

void CLuxEllipticalAnnulusSection::TakeManipArcFraction(double fraction) {
    core::ObjectLock::Guard guard(Lock());
    manipArcFraction_ = fraction;
}

void CLuxEllipticalAnnulusSection::LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const {
    Base::LendGraphicsTo(made, copyFlags);
    if (!(copyFlags & luxCopyShapeBasicGraphics)) return;
    auto* target = dynamic_cast<CLuxEllipticalAnnulusSection*>(&made);
    if (target && target != this) target->TakeManipArcFraction(ManipArcFraction());
}

ccShapePtrh CLuxEllipticalAnnulusSection::FittedToBox(const ccRect& box) const {
    // The outer arc's ellipse touches the box's sides; the shape keeps its angles, scale and
    // rotation (the radii are those of an axis-aligned ellipse in the box when it turns).
    Params p = Parameters();
    const double outer = p.radialScale > 1 ? p.radialScale : 1.0;
    p.centerX = box.Center().X();
    p.centerY = box.Center().Y();
    p.radiusX = box.Width() / 2 / outer;
    p.radiusY = box.Height() / 2 / outer;
    return NewCore(p);
}

void CLuxEllipticalAnnulusSection::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        const double values[8] = {params_.centerX,  params_.centerY,    params_.radiusX,   params_.radiusY,
                                  params_.rotation, params_.angleStart, params_.angleSpan, params_.radialScale};
        for (int i = 0; i < 8; ++i) {
            double v = values[i];
            archive.Persist(kKeys[i], v);
        }
        double fraction = manipArcFraction_;
        archive.Persist(kFractionKey, fraction);
        PersistEnumeratedGraphics(archive);
        return;
    }
    // The loaded values over the present ones must make a valid section; the commit then
    // cannot fail.
    Params next = params_;
    double* fields[8] = {&next.centerX,  &next.centerY,    &next.radiusX,   &next.radiusY,
                         &next.rotation, &next.angleStart, &next.angleSpan, &next.radialScale};
    for (int i = 0; i < 8; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        const double v = value.get().dblVal;
        if (!std::isfinite(v)) RefuseStored(kKeys[i], "is not finite");
        if ((i == 2 || i == 3) && !(v > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        if (i == 6 && v == 0) RefuseStored(kKeys[i], "is 0");
        if (i == 7 && !(v > 0 && v != 1)) RefuseStored(kKeys[i], "is not greater than 0 and other than 1");
        *fields[i] = i == 4 ? cc2XformLinear::NormalizeAngle(v) : v;
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

int32_t CLuxEllipticalAnnulusSection::StoreLocked(const Params& next, const ccShapePtrh& core,
                                                  double& announced) noexcept {
    const Params& before = params_;
    const core::ParameterChange changes[] = {
        {before.centerX, next.centerX, luxEllipticalAnnulusSection_CenterX},
        {before.centerY, next.centerY, luxEllipticalAnnulusSection_CenterY},
        {before.radiusX, next.radiusX, luxEllipticalAnnulusSection_RadiusX},
        {before.radiusY, next.radiusY, luxEllipticalAnnulusSection_RadiusY},
        {before.rotation, next.rotation, luxEllipticalAnnulusSection_Rotation},
        {before.angleStart, next.angleStart, luxEllipticalAnnulusSection_AngleStart},
        {before.angleSpan, next.angleSpan, luxEllipticalAnnulusSection_AngleSpan},
        {before.radialScale, next.radialScale, luxEllipticalAnnulusSection_RadialScale},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = next;
    core_ = core;
    return stateId;
}

// `make` answers the new parameters from the present ones; they are checked through the
// core before anything is stored. forcedStateId, when not 0, replaces the state ID of the
// announcement (the unit-circle setter announces itself).
template <class Make>
HRESULT CLuxEllipticalAnnulusSection::Modify(const char* method, Make&& make, int32_t forcedStateId) {
    return core::Guarded(method, IID_ILuxEllipticalAnnulusSection, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            Params next = make(static_cast<const Params&>(params_));
            next.rotation = cc2XformLinear::NormalizeAngle(next.rotation);
            const ccShapePtrh core = NewCore(next);
            stateId = StoreLocked(next, core, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        if (forcedStateId != 0) return RaiseChange(forcedStateId, VARIANT{}, luxFA_Shape_Geometry);
        return RaiseChange(stateId, DoubleVariant(announced), luxFA_Shape_Geometry);
    });
}

#define LUX_SECTION_PARAMETER(Name, field)                                                              \
    HRESULT CLuxEllipticalAnnulusSection::get_##Name(double* Value) {                                   \
        return core::Guarded("get_" #Name, IID_ILuxEllipticalAnnulusSection, [&] {                      \
            core::RequireOut(Value);                                                                    \
            core::ObjectLock::Guard guard(Lock());                                                      \
            *Value = params_.field;                                                                     \
        });                                                                                             \
    }                                                                                                   \
    HRESULT CLuxEllipticalAnnulusSection::put_##Name(double Value) {                                    \
        return Modify("put_" #Name, [&](const Params& p) {                                              \
            Params next = p;                                                                            \
            next.field = Value;                                                                         \
            return next;                                                                                \
        });                                                                                             \
    }
LUX_SECTION_PARAMETER(CenterX, centerX)
LUX_SECTION_PARAMETER(CenterY, centerY)
LUX_SECTION_PARAMETER(RadiusX, radiusX)
LUX_SECTION_PARAMETER(RadiusY, radiusY)
LUX_SECTION_PARAMETER(Rotation, rotation)
LUX_SECTION_PARAMETER(AngleStart, angleStart)
LUX_SECTION_PARAMETER(AngleSpan, angleSpan)
LUX_SECTION_PARAMETER(RadialScale, radialScale)
#undef LUX_SECTION_PARAMETER

HRESULT CLuxEllipticalAnnulusSection::get_Area(double* Area) {
    return core::Guarded("get_Area", IID_ILuxEllipticalAnnulusSection, [&] {
        core::RequireOut(Area);
        core::ObjectLock::Guard guard(Lock());
        *Area = CoreLocked().Area();
    });
}
HRESULT CLuxEllipticalAnnulusSection::get_Perimeter(double* Perimeter) {
    return core::Guarded("get_Perimeter", IID_ILuxEllipticalAnnulusSection, [&] {
        core::RequireOut(Perimeter);
        core::ObjectLock::Guard guard(Lock());
        *Perimeter = CoreLocked().Perimeter();
    });
}

#define LUX_SECTION_ADORNMENT(Name, Type, Index)                        \
    HRESULT CLuxEllipticalAnnulusSection::get_##Name(Type* Adornment) { \
        return GetEnumeratedGraphic("get_" #Name, Index, Adornment);    \
    }                                                                   \
    HRESULT CLuxEllipticalAnnulusSection::put_##Name(Type Adornment) {  \
        return PutEnumeratedGraphic("put_" #Name, Index, Adornment);    \
    }
LUX_SECTION_ADORNMENT(ArcDirectionAdornment, LuxEllipticalAnnulusSectionDirectionAdornmentConstants, kArcDirection)
LUX_SECTION_ADORNMENT(RadialDirectionAdornment, LuxEllipticalAnnulusSectionDirectionAdornmentConstants, kRadialDirection)
LUX_SECTION_ADORNMENT(CenterArcAdornment, LuxEllipticalAnnulusSectionCenterArcAdornmentConstants, kCenterArc)
#undef LUX_SECTION_ADORNMENT

HRESULT CLuxEllipticalAnnulusSection::get_ManipArcFraction(double* Fraction) {
    return core::Guarded("get_ManipArcFraction", IID_ILuxEllipticalAnnulusSection, [&] {
        core::RequireOut(Fraction);
        core::ObjectLock::Guard guard(Lock());
        *Fraction = manipArcFraction_;
    });
}
HRESULT CLuxEllipticalAnnulusSection::put_ManipArcFraction(double Fraction) {
    return core::Guarded("put_ManipArcFraction", IID_ILuxEllipticalAnnulusSection, [&] {
        CheckedManipArcFraction(Fraction);
        {
            core::ObjectLock::Guard guard(Lock());
            if (manipArcFraction_ == Fraction) return S_OK;
            manipArcFraction_ = Fraction;
        }
        return RaiseChange(luxEllipticalAnnulusSection_ManipArcFraction, DoubleVariant(Fraction), luxFA_Shape_Graphic);
    });
}

HRESULT CLuxEllipticalAnnulusSection::GetUnitCircleParams(double* UnitCircleAngleStart, double* UnitCircleAngleSpan,
                                                          double* RadialScale,
                                                          ILuxTransform2DLinear** EllipseFromUnitCircle) {
    return core::Guarded("GetUnitCircleParams", IID_ILuxEllipticalAnnulusSection, [&] {
        core::RequireOut(UnitCircleAngleStart, UnitCircleAngleSpan, RadialScale, EllipseFromUnitCircle);
        *EllipseFromUnitCircle = nullptr;
        ccEllipseArc2::UnitCircleParams unit;
        Params p;
        {
            core::ObjectLock::Guard guard(Lock());
            unit = static_cast<const ccEllipseAnnulus&>(CoreLocked()).GetUnitCircleParams();
            p = params_;
        }
        ComPtr<transform::CLuxTransform2DLinear> made =
            transform::CLuxTransform2DLinear::FromValue(unit.ellipseFromUnitCircle);
        // The ellipse's own transform: the unit-circle angles are the section's, which the
        // core holds normalised and this class as given.
        *UnitCircleAngleStart = p.angleStart;
        *UnitCircleAngleSpan = p.angleSpan;
        *RadialScale = p.radialScale;
        *EllipseFromUnitCircle = static_cast<ILuxTransform2DLinear*>(made.Detach());
    });
}

HRESULT CLuxEllipticalAnnulusSection::GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(
    double* CenterX, double* CenterY, double* RadiusX, double* RadiusY, double* Rotation, double* AngleStart,
    double* AngleSpan, double* RadialScale) {
    return core::Guarded("GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale", IID_ILuxEllipticalAnnulusSection,
                         [&] {
                             core::RequireOut(CenterX, CenterY, RadiusX, RadiusY, Rotation, AngleStart, AngleSpan,
                                              RadialScale);
                             const Params p = Parameters();
                             *CenterX = p.centerX;
                             *CenterY = p.centerY;
                             *RadiusX = p.radiusX;
                             *RadiusY = p.radiusY;
                             *Rotation = p.rotation;
                             *AngleStart = p.angleStart;
                             *AngleSpan = p.angleSpan;
                             *RadialScale = p.radialScale;
                         });
}

HRESULT CLuxEllipticalAnnulusSection::SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(
    double CenterX, double CenterY, double RadiusX, double RadiusY, double Rotation, double AngleStart,
    double AngleSpan, double RadialScale) {
    return Modify("SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale", [&](const Params&) {
        return Params{CenterX, CenterY, RadiusX, RadiusY, Rotation, AngleStart, AngleSpan, RadialScale};
    });
}

HRESULT CLuxEllipticalAnnulusSection::SetFromUnitCircleParams(double UnitCircleAngleStart, double UnitCircleAngleSpan,
                                                              double RadialScale,
                                                              ILuxTransform2DLinear* EllipseFromUnitCircle) {
    return core::Guarded("SetFromUnitCircleParams", IID_ILuxEllipticalAnnulusSection, [&] {
        core::RequireArgument(EllipseFromUnitCircle, "EllipseFromUnitCircle");
        // Read before this object's lock is taken: the transform may be anyone's.
        const cc2XformLinear transform = transform::CLuxTransform2DLinear::ValueOf(EllipseFromUnitCircle);
        if (transform.Determinant() == 0 || !std::isfinite(transform.Determinant()))
            throw ccMathError::Singular("a singular transform maps the unit circle onto no ellipse");
        ccEllipseAnnulusPtrh section(new ccEllipseAnnulus());
        section->SetFromUnitCircleParams(UnitCircleAngleStart, UnitCircleAngleSpan, RadialScale, transform);
        const Params next = ParamsOf(*section);
        return Modify(
            "SetFromUnitCircleParams", [&](const Params&) { return next; },
            luxEllipticalAnnulusSection_UnitCircleParams);
    });
}

}  // namespace tessaly::shape
