#include "com/shape/CLuxRectangleAffine.h"

#include <cmath>
#include <initializer_list>
#include <numbers>
#include <string>
#include <typeinfo>

#include "com/core/MessageTable.h"
#include "com/core/impl/ParameterChanges.h"
#include "com/shape/ShapeFactory.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxRectangleAffine> registrar;
const ShapeFactoryRegistrar<CLuxRectangleAffine> factoryEntry("ccAffineRectangle");

constexpr double kHalfPi = std::numbers::pi / 2;
// put_Skew pulls a skew this close to +-pi/2 out to +-(pi/2 + kSkewSnap), safely beyond the
// core's own margin.
constexpr double kSkewSnap = 0.002;

struct Named {
    const char* name;
    double value;
};

// Infinite values (and NaN where the core has not refused it first) would make a shape with
// no extent that could never be saved and loaded again.
void CheckFinite(std::initializer_list<Named> arguments) {
    for (const Named& argument : arguments)
        if (!std::isfinite(argument.value)) [[unlikely]]
            throw ccStdError::BadArgument(argument.name, core::ids_Core_InvalidArg_1, {argument.name});
}

// NaN is refused too: it is not greater than 0.
void CheckPositive(double value, const char* argument) {
    if (!(value > 0)) [[unlikely]]
        throw ccStdError::BadArgument(argument, ids_Lux_InvalidArgNotPositive_1, {argument});
}

ccAffineRectanglePtrh NewCore(const cc2Vect& center, double sideX, double sideY, double rotation, double skew) {
    return ccAffineRectanglePtrh(new ccAffineRectangle(center, sideX, sideY, rotation, skew));
}

// The corners of a rectangle in the order the affine rectangle names them.
struct RectCorners {
    cc2Vect origin, cornerX, cornerY;
};
RectCorners CornersOf(const ccRect& rect) noexcept {
    return {cc2Vect(rect.X(), rect.Y()), cc2Vect(rect.Right(), rect.Y()), cc2Vect(rect.X(), rect.Bottom())};
}

const char* const kKeys[6] = {"CenterX", "CenterY", "SideXLength", "SideYLength", "Rotation", "Skew"};

enum Adornment : size_t { kXDirection, kYDirection };
const core::EnumeratedSetting kAdornments[] = {
    core::RangeSetting("XDirectionAdornment", luxRectangleAffine_XDirectionAdornment,
                       luxRectangleAffineDirectionAdornmentNone, luxRectangleAffineDirectionAdornmentSolidArrow,
                       "is not a direction adornment"),
    core::RangeSetting("YDirectionAdornment", luxRectangleAffine_YDirectionAdornment,
                       luxRectangleAffineDirectionAdornmentNone, luxRectangleAffineDirectionAdornmentSolidArrow,
                       "is not a direction adornment"),
};

[[noreturn]] void RefuseStored(const char* key, const char* why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

}  // namespace

std::span<const core::EnumeratedSetting> CLuxRectangleAffine::EnumeratedGraphics() { return kAdornments; }

double CLuxRectangleAffine::ConditionedSkew(double skew) noexcept {
    const double normalized = cc2XformLinear::NormalizeAngle(skew);
    if (std::fabs(std::fabs(normalized) - kHalfPi) <= kSkewSnap)
        return skew > 0 ? kHalfPi + kSkewSnap : -(kHalfPi + kSkewSnap);
    return skew;
}

CLuxRectangleAffine::Params CLuxRectangleAffine::ParamsOf(const ccAffineRectangle& core) noexcept {
    return Params{core.Center().X(), core.Center().Y(), core.SideXLength(), core.SideYLength(), core.Rotation(),
                  core.Skew()};
}

const ccAffineRectangle& CLuxRectangleAffine::CoreLocked() const {
    if (!core_) {
        const Params& p = params_;
        // The parameters are valid: the core only normalises what is already normal.
        core_ = NewCore(cc2Vect(p.centerX, p.centerY), p.sideX, p.sideY, p.rotation, p.skew);
    }
    return *core_;
}

ccAffineRectanglePtrh_const CLuxRectangleAffine::Value() const {
    core::ObjectLock::Guard guard(Lock());
    CoreLocked();
    return core_;
}

ccShapePtrh_const CLuxRectangleAffine::CoreShape() const { return ccShapePtrh_const(Value()); }

int32_t CLuxRectangleAffine::SetFromCoreShape(const ccShape& shape) {
    ccAffineRectanglePtrh next;
    if (const auto* affine = dynamic_cast<const ccAffineRectangle*>(&shape)) {
        next = ccAffineRectanglePtrh(affine->Clone());
    } else if (const auto* rect = dynamic_cast<const ccRect*>(&shape)) {
        next = NewCore(rect->Center(), rect->Width(), rect->Height(), 0.0, 0.0);
    } else {
        throw ccStdError::InternalError(std::string("a LuxRectangleAffine cannot hold a ") + shape.TypeName());
    }
    const Params p = ParamsOf(*next);
    CheckFinite({{"CenterX", p.centerX}, {"CenterY", p.centerY}, {"SideXLength", p.sideX}, {"SideYLength", p.sideY},
                 {"Rotation", p.rotation}});
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    return StoreLocked(next, announced);
}

void CLuxRectangleAffine::CopyGeometryFrom(const CLuxRectangleAffine& source) {
    Params params;
    ccAffineRectanglePtrh_const core;
    {
        core::ObjectLock::Guard guard(source.Lock());
        params = source.params_;
        core = source.core_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = params;
    core_ = core;  // immutable once stored: sharing it shares the corner cache
}

ccShapePtrh CLuxRectangleAffine::FittedToBox(const ccRect& box) const {
    return ccShapePtrh(NewCore(box.Center(), box.Width(), box.Height(), 0.0, 0.0));
}

ccShapePtrh CLuxRectangleAffine::FittedToImage(const ccShape& imageExtent, double xScale, double yScale) const {
    // The image's pixel rectangle in the selected space: a ccRect when the space is only
    // scaled and moved, a ccAffineRectangle when it turns or skews.
    if (const auto* rect = dynamic_cast<const ccRect*>(&imageExtent))
        return ccShapePtrh(NewCore(rect->Center(), rect->Width() * xScale, rect->Height() * yScale, 0.0, 0.0));
    if (const auto* affine = dynamic_cast<const ccAffineRectangle*>(&imageExtent))
        return ccShapePtrh(NewCore(affine->Center(), affine->SideXLength() * xScale, affine->SideYLength() * yScale,
                                   affine->Rotation(), affine->Skew()));
    throw ccStdError::InternalError(std::string("an image's extent came as a ") + imageExtent.TypeName());
}

void CLuxRectangleAffine::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        double values[6] = {params_.centerX, params_.centerY, params_.sideX,
                            params_.sideY,   params_.rotation, params_.skew};
        for (int i = 0; i < 6; ++i) archive.Persist(kKeys[i], values[i]);
        PersistEnumeratedGraphics(archive);
        return;
    }
    // Each value is checked on its own: valid values combine into a valid affine rectangle
    // whatever the others are, so the commit cannot fail.
    double values[6] = {};
    bool present[6] = {};
    for (int i = 0; i < 6; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        double v = value.get().dblVal;
        if (!std::isfinite(v)) RefuseStored(kKeys[i], "is not finite");
        if (i == 2 || i == 3) {
            if (!(v > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        } else if (i == 4) {
            v = cc2XformLinear::NormalizeAngle(v);
        } else if (i == 5) {
            try {
                v = ccAffineRectangle::ValidatedSkew(v);
            } catch (const ccAffineRectangle::BadSkew&) {
                RefuseStored(kKeys[i], "makes the sides parallel");
            }
        }
        values[i] = v;
        present[i] = true;
    }
    PersistEnumeratedGraphics(archive);
    archive.OnCommit([this, p = std::to_array(values), has = std::to_array(present)]() noexcept {
        double* fields[6] = {&params_.centerX, &params_.centerY, &params_.sideX,
                             &params_.sideY,   &params_.rotation, &params_.skew};
        for (int i = 0; i < 6; ++i)
            if (has[i]) *fields[i] = p[i];
        core_ = nullptr;  // built again from the parameters when asked for
    });
}

int32_t CLuxRectangleAffine::StoreLocked(const ccAffineRectanglePtrh& next, double& announced) noexcept {
    const Params after = ParamsOf(*next);
    const Params& before = params_;
    const core::ParameterChange changes[] = {
        {before.centerX, after.centerX, luxRectangleAffine_CenterX},
        {before.centerY, after.centerY, luxRectangleAffine_CenterY},
        {before.sideX, after.sideX, luxRectangleAffine_SideXLength},
        {before.sideY, after.sideY, luxRectangleAffine_SideYLength},
        // Turning or skewing moves every corner: always announced as several changes.
        {before.rotation, after.rotation, luxState_MoreThanOneStateIDChanged},
        {before.skew, after.skew, luxState_MoreThanOneStateIDChanged},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = after;
    core_ = next;
    return stateId;
}

template <class Reader>
HRESULT CLuxRectangleAffine::Read(const char* method, Reader&& read) const {
    return core::Guarded(method, IID_ILuxRectangleAffine, [&] {
        core::ObjectLock::Guard guard(Lock());
        read(static_cast<const Params&>(params_));
    });
}

template <class Make>
HRESULT CLuxRectangleAffine::Modify(const char* method, Make&& make) {
    return core::Guarded(method, IID_ILuxRectangleAffine, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            const ccAffineRectanglePtrh next = make(static_cast<const Params&>(params_));
            stateId = StoreLocked(next, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        VARIANT value{};
        value.vt = VT_R8;
        value.dblVal = announced;
        return RaiseChange(stateId, value, luxFA_Shape_Geometry);
    });
}

HRESULT CLuxRectangleAffine::MakeShapeModel(double /*Weight*/, LONG /*Polarity*/, VARIANT_BOOL /*CopyShape*/,
                                            IDispatch** ShapeModel) {
    return RefuseShapeModel(ShapeModel, "an affine rectangle");
}

HRESULT CLuxRectangleAffine::get_CenterX(double* CenterX) {
    return Read("get_CenterX", [&](const Params& p) { core::RequireOut(CenterX), *CenterX = p.centerX; });
}
HRESULT CLuxRectangleAffine::put_CenterX(double CenterX) {
    return Modify("put_CenterX", [&](const Params& p) {
        CheckFinite({{"CenterX", CenterX}});
        return NewCore(cc2Vect(CenterX, p.centerY), p.sideX, p.sideY, p.rotation, p.skew);
    });
}
HRESULT CLuxRectangleAffine::get_CenterY(double* CenterY) {
    return Read("get_CenterY", [&](const Params& p) { core::RequireOut(CenterY), *CenterY = p.centerY; });
}
HRESULT CLuxRectangleAffine::put_CenterY(double CenterY) {
    return Modify("put_CenterY", [&](const Params& p) {
        CheckFinite({{"CenterY", CenterY}});
        return NewCore(cc2Vect(p.centerX, CenterY), p.sideX, p.sideY, p.rotation, p.skew);
    });
}

// The corners come from the core's cache.
#define LUX_AFFINE_CORNER_GETTER(Member, Corner, Axis)                                      \
    HRESULT CLuxRectangleAffine::get_##Member(double* Value) {                              \
        return core::Guarded("get_" #Member, IID_ILuxRectangleAffine, [&] {                 \
            core::RequireOut(Value);                                                        \
            core::ObjectLock::Guard guard(Lock());                                          \
            *Value = CoreLocked().Corner().Axis();                                          \
        });                                                                                 \
    }
LUX_AFFINE_CORNER_GETTER(CornerOriginX, CornerOrigin, X)
LUX_AFFINE_CORNER_GETTER(CornerOriginY, CornerOrigin, Y)
LUX_AFFINE_CORNER_GETTER(CornerX_X, CornerX, X)
LUX_AFFINE_CORNER_GETTER(CornerX_Y, CornerX, Y)
LUX_AFFINE_CORNER_GETTER(CornerY_X, CornerY, X)
LUX_AFFINE_CORNER_GETTER(CornerY_Y, CornerY, Y)
LUX_AFFINE_CORNER_GETTER(CornerOppositeX, CornerOpposite, X)
LUX_AFFINE_CORNER_GETTER(CornerOppositeY, CornerOpposite, Y)
#undef LUX_AFFINE_CORNER_GETTER

HRESULT CLuxRectangleAffine::get_SideXLength(double* Length) {
    return Read("get_SideXLength", [&](const Params& p) { core::RequireOut(Length), *Length = p.sideX; });
}
HRESULT CLuxRectangleAffine::put_SideXLength(double Length) {
    return Modify("put_SideXLength", [&](const Params& p) {
        CheckPositive(Length, "SideXLength");
        CheckFinite({{"SideXLength", Length}});
        return NewCore(cc2Vect(p.centerX, p.centerY), Length, p.sideY, p.rotation, p.skew);
    });
}
HRESULT CLuxRectangleAffine::get_SideYLength(double* Length) {
    return Read("get_SideYLength", [&](const Params& p) { core::RequireOut(Length), *Length = p.sideY; });
}
HRESULT CLuxRectangleAffine::put_SideYLength(double Length) {
    return Modify("put_SideYLength", [&](const Params& p) {
        CheckPositive(Length, "SideYLength");
        CheckFinite({{"SideYLength", Length}});
        return NewCore(cc2Vect(p.centerX, p.centerY), p.sideX, Length, p.rotation, p.skew);
    });
}

HRESULT CLuxRectangleAffine::get_XDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants* Adornment) {
    return GetEnumeratedGraphic("get_XDirectionAdornment", kXDirection, Adornment);
}
HRESULT CLuxRectangleAffine::put_XDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants Adornment) {
    return PutEnumeratedGraphic("put_XDirectionAdornment", kXDirection, Adornment);
}
HRESULT CLuxRectangleAffine::get_YDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants* Adornment) {
    return GetEnumeratedGraphic("get_YDirectionAdornment", kYDirection, Adornment);
}
HRESULT CLuxRectangleAffine::put_YDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants Adornment) {
    return PutEnumeratedGraphic("put_YDirectionAdornment", kYDirection, Adornment);
}

HRESULT CLuxRectangleAffine::get_Rotation(double* Rotation) {
    return Read("get_Rotation", [&](const Params& p) { core::RequireOut(Rotation), *Rotation = p.rotation; });
}
HRESULT CLuxRectangleAffine::put_Rotation(double Rotation) {
    // The core normalises; StoreLocked compares the normalised angle with the present one.
    return Modify("put_Rotation", [&](const Params& p) {
        CheckFinite({{"Rotation", Rotation}});
        return NewCore(cc2Vect(p.centerX, p.centerY), p.sideX, p.sideY, Rotation, p.skew);
    });
}
HRESULT CLuxRectangleAffine::get_Skew(double* Skew) {
    return Read("get_Skew", [&](const Params& p) { core::RequireOut(Skew), *Skew = p.skew; });
}
HRESULT CLuxRectangleAffine::put_Skew(double Skew) {
    return Modify("put_Skew", [&](const Params& p) {
        CheckFinite({{"Skew", Skew}});
        return NewCore(cc2Vect(p.centerX, p.centerY), p.sideX, p.sideY, p.rotation, ConditionedSkew(Skew));
    });
}

HRESULT CLuxRectangleAffine::get_Area(double* Area) {
    return core::Guarded("get_Area", IID_ILuxRectangleAffine, [&] {
        core::RequireOut(Area);
        core::ObjectLock::Guard guard(Lock());
        *Area = CoreLocked().Area();
    });
}
HRESULT CLuxRectangleAffine::get_Perimeter(double* Perimeter) {
    return core::Guarded("get_Perimeter", IID_ILuxRectangleAffine, [&] {
        core::RequireOut(Perimeter);
        core::ObjectLock::Guard guard(Lock());
        *Perimeter = CoreLocked().Perimeter();
    });
}

HRESULT CLuxRectangleAffine::SetFromRectangle(ILuxRectangle* Rectangle, ILuxTransform2D* NewTransform) {
    return core::Guarded("SetFromRectangle", IID_ILuxRectangleAffine, [&] {
        core::RequireArgument(Rectangle, "Rectangle");
        core::RequireArgument(NewTransform, "NewTransform");
        // Both read before this object's lock is taken: they may be anyone's objects.
        const RectCorners corners = CornersOf(*core::RectangleValueOf(Rectangle));
        const cc2XformLinear transform = core::LinearValueRequired(NewTransform);
        const cc2Vect origin = transform.MapPoint(corners.origin);
        const cc2Vect cornerX = transform.MapPoint(corners.cornerX);
        const cc2Vect cornerY = transform.MapPoint(corners.cornerY);
        CheckFinite({{"NewTransform", origin.X()}, {"NewTransform", origin.Y()}, {"NewTransform", cornerX.X()},
                     {"NewTransform", cornerX.Y()}, {"NewTransform", cornerY.X()}, {"NewTransform", cornerY.Y()}});
        const ccAffineRectanglePtrh next(new ccAffineRectangle(origin, cornerX, cornerY));
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            stateId = StoreLocked(next, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        VARIANT value{};
        value.vt = VT_R8;
        value.dblVal = announced;
        return RaiseChange(stateId, value, luxFA_Shape_Geometry);
    });
}

HRESULT CLuxRectangleAffine::SetOriginCornerXCornerY(double OriginX, double OriginY, double CornerX_X,
                                                     double CornerX_Y, double CornerY_X, double CornerY_Y) {
    return Modify("SetOriginCornerXCornerY", [&](const Params&) {
        CheckFinite({{"OriginX", OriginX}, {"OriginY", OriginY}, {"CornerX_X", CornerX_X}, {"CornerX_Y", CornerX_Y},
                     {"CornerY_X", CornerY_X}, {"CornerY_Y", CornerY_Y}});
        return ccAffineRectanglePtrh(new ccAffineRectangle(cc2Vect(OriginX, OriginY), cc2Vect(CornerX_X, CornerX_Y),
                                                           cc2Vect(CornerY_X, CornerY_Y)));
    });
}
HRESULT CLuxRectangleAffine::GetOriginCornerXCornerY(double* OriginX, double* OriginY, double* CornerX_X,
                                                     double* CornerX_Y, double* CornerY_X, double* CornerY_Y) {
    return core::Guarded("GetOriginCornerXCornerY", IID_ILuxRectangleAffine, [&] {
        core::RequireOut(OriginX, OriginY, CornerX_X, CornerX_Y, CornerY_X, CornerY_Y);
        core::ObjectLock::Guard guard(Lock());
        const ccAffineRectangle& core = CoreLocked();
        const cc2Vect origin = core.CornerOrigin();
        const cc2Vect cornerX = core.CornerX();
        const cc2Vect cornerY = core.CornerY();
        *OriginX = origin.X();
        *OriginY = origin.Y();
        *CornerX_X = cornerX.X();
        *CornerX_Y = cornerX.Y();
        *CornerY_X = cornerY.X();
        *CornerY_Y = cornerY.Y();
    });
}

HRESULT CLuxRectangleAffine::SetCenterLengthsRotationSkew(double CenterX, double CenterY, double SideXLength,
                                                          double SideYLength, double Rotation, double Skew) {
    return Modify("SetCenterLengthsRotationSkew", [&](const Params&) {
        // The core checks the lengths and the skew first: they are what makes a shape.
        ccAffineRectanglePtrh next = NewCore(cc2Vect(CenterX, CenterY), SideXLength, SideYLength, Rotation, Skew);
        CheckFinite({{"CenterX", CenterX}, {"CenterY", CenterY}, {"SideXLength", SideXLength},
                     {"SideYLength", SideYLength}, {"Rotation", Rotation}});
        return next;
    });
}
HRESULT CLuxRectangleAffine::GetCenterLengthsRotationSkew(double* CenterX, double* CenterY, double* SideXLength,
                                                          double* SideYLength, double* Rotation, double* Skew) {
    return Read("GetCenterLengthsRotationSkew", [&](const Params& p) {
        core::RequireOut(CenterX, CenterY, SideXLength, SideYLength, Rotation, Skew);
        *CenterX = p.centerX;
        *CenterY = p.centerY;
        *SideXLength = p.sideX;
        *SideYLength = p.sideY;
        *Rotation = p.rotation;
        *Skew = p.skew;
    });
}

HRESULT CLuxRectangleAffine::SetOriginLengthsRotationSkew(double OriginX, double OriginY, double SideXLength,
                                                          double SideYLength, double Rotation, double Skew) {
    return Modify("SetOriginLengthsRotationSkew", [&](const Params&) {
        ccAffineRectanglePtrh next(new ccAffineRectangle(ccAffineRectangle::kFromOrigin, cc2Vect(OriginX, OriginY),
                                                         SideXLength, SideYLength, Rotation, Skew));
        CheckFinite({{"OriginX", OriginX}, {"OriginY", OriginY}, {"SideXLength", SideXLength},
                     {"SideYLength", SideYLength}, {"Rotation", Rotation}});
        return next;
    });
}
HRESULT CLuxRectangleAffine::GetOriginLengthsRotationSkew(double* OriginX, double* OriginY, double* SideXLength,
                                                          double* SideYLength, double* Rotation, double* Skew) {
    return core::Guarded("GetOriginLengthsRotationSkew", IID_ILuxRectangleAffine, [&] {
        core::RequireOut(OriginX, OriginY, SideXLength, SideYLength, Rotation, Skew);
        core::ObjectLock::Guard guard(Lock());
        const cc2Vect origin = CoreLocked().CornerOrigin();
        *OriginX = origin.X();
        *OriginY = origin.Y();
        *SideXLength = params_.sideX;
        *SideYLength = params_.sideY;
        *Rotation = params_.rotation;
        *Skew = params_.skew;
    });
}

HRESULT CLuxRectangleAffine::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                                       ILuxRectangleAffine** Result) {
    return core::Guarded("MapLinear", IID_ILuxRectangleAffine, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const ComPtr<ILuxShape> mapped = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags);
        ComPtr<ILuxRectangleAffine> affine = mapped.As<ILuxRectangleAffine>();
        if (!affine) throw ccStdError::InternalError("an affine rectangle mapped is not an affine rectangle");
        *Result = affine.Detach();
    });
}

HRESULT CLuxRectangleAffine::Copy(LuxCopyShapeConstants CopyFlags, ILuxRectangleAffine** Result) {
    return core::Guarded("Copy", IID_ILuxRectangleAffine, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

}  // namespace tessaly::shape
