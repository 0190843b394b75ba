#include "com/shape/CLuxEllipse.h"

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
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxEllipse> registrar;
const ShapeFactoryRegistrar<CLuxEllipse> factoryEntry("ccEllipse2");

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

// Validates through the core (the radii first: ccQvShapesError::InvalidRadius), then the
// values the core takes as they come.
ccEllipse2Ptrh NewCore(double centerX, double centerY, double radiusX, double radiusY, double rotation) {
    ccEllipse2Ptrh next(new ccEllipse2(cc2Vect(centerX, centerY), radiusX, radiusY, rotation));
    CheckFinite({{"CenterX", centerX}, {"CenterY", centerY}, {"RadiusX", radiusX}, {"RadiusY", radiusY},
                 {"Rotation", rotation}});
    return next;
}

const char* const kKeys[5] = {"CenterX", "CenterY", "RadiusX", "RadiusY", "Rotation"};

enum Adornment : size_t { kXDirection, kYDirection };
const core::EnumeratedSetting kAdornments[] = {
    core::RangeSetting("XDirectionAdornment", luxEllipse_XDirectionAdornment, luxEllipseDirectionAdornmentNone,
                       luxEllipseDirectionAdornmentSolidArrow, "is not a direction adornment"),
    core::RangeSetting("YDirectionAdornment", luxEllipse_YDirectionAdornment, luxEllipseDirectionAdornmentNone,
                       luxEllipseDirectionAdornmentSolidArrow, "is not a direction adornment"),
};

[[noreturn]] void RefuseStored(const char* key, const char* why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

}  // namespace

std::span<const core::EnumeratedSetting> CLuxEllipse::EnumeratedGraphics() { return kAdornments; }

CLuxEllipse::Params CLuxEllipse::ParamsOf(const ccEllipse2& core) noexcept {
    return Params{core.Center().X(), core.Center().Y(), core.RadiusX(), core.RadiusY(), core.Rotation()};
}

const ccEllipse2& CLuxEllipse::CoreLocked() const {
    if (!core_) {
        const Params& p = params_;
        // The parameters are valid: the core only normalises what is already normal.
        core_ = ccEllipse2Ptrh(new ccEllipse2(cc2Vect(p.centerX, p.centerY), p.radiusX, p.radiusY, p.rotation));
    }
    return *core_;
}

ccShapePtrh_const CLuxEllipse::CoreShape() const {
    core::ObjectLock::Guard guard(Lock());
    CoreLocked();
    return ccShapePtrh_const(core_);
}

int32_t CLuxEllipse::SetFromCoreShape(const ccShape& shape) {
    const auto* ellipse = dynamic_cast<const ccEllipse2*>(&shape);
    if (!ellipse) throw ccStdError::InternalError(std::string("a LuxEllipse cannot hold a ") + shape.TypeName());
    const ccEllipse2Ptrh next(ellipse->Clone());
    const Params p = ParamsOf(*next);
    CheckFinite({{"CenterX", p.centerX}, {"CenterY", p.centerY}, {"RadiusX", p.radiusX}, {"RadiusY", p.radiusY},
                 {"Rotation", p.rotation}});
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    return StoreLocked(next, announced);
}

void CLuxEllipse::CopyGeometryFrom(const CLuxEllipse& source) {
    Params params;
    ccEllipse2Ptrh_const core;
    {
        core::ObjectLock::Guard guard(source.Lock());
        params = source.params_;
        core = source.core_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = params;
    core_ = core;  // immutable once stored
}

ccShapePtrh CLuxEllipse::FittedToBox(const ccRect& box) const {
    return ccShapePtrh(new ccEllipse2(box.Center(), box.Width() / 2, box.Height() / 2, 0.0));
}

ccShapePtrh CLuxEllipse::FittedToImage(const ccShape& imageExtent, double xScale, double yScale) const {
    // The image's pixel rectangle in the selected space: a ccRect when the space is only
    // scaled and moved, a ccAffineRectangle when it turns or skews.
    if (const auto* rect = dynamic_cast<const ccRect*>(&imageExtent))
        return ccShapePtrh(
            new ccEllipse2(rect->Center(), rect->Width() * xScale / 2, rect->Height() * yScale / 2, 0.0));
    if (const auto* affine = dynamic_cast<const ccAffineRectangle*>(&imageExtent)) {
        const ccAffineRectanglePtrh scaled(new ccAffineRectangle(affine->Center(), affine->SideXLength() * xScale,
                                                                 affine->SideYLength() * yScale, affine->Rotation(),
                                                                 affine->Skew()));
        ccEllipse2Ptrh fitted(new ccEllipse2());
        fitted->SetFromBoundingRectangleAffine(*scaled);
        return ccShapePtrh(fitted);
    }
    throw ccStdError::InternalError(std::string("an image's extent came as a ") + imageExtent.TypeName());
}

void CLuxEllipse::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        double values[5] = {params_.centerX, params_.centerY, params_.radiusX, params_.radiusY, params_.rotation};
        for (int i = 0; i < 5; ++i) archive.Persist(kKeys[i], values[i]);
        PersistEnumeratedGraphics(archive);
        return;
    }
    // Each value is checked on its own: valid values combine into a valid ellipse whatever
    // the others are, so the commit cannot fail.
    std::array<double, 5> values{};
    std::array<bool, 5> present{};
    for (int i = 0; i < 5; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        double v = value.get().dblVal;
        if (!std::isfinite(v)) RefuseStored(kKeys[i], "is not finite");
        if ((i == 2 || i == 3) && !(v > 0)) RefuseStored(kKeys[i], "is not greater than 0");
        if (i == 4) v = cc2XformLinear::NormalizeAngle(v);
        values[i] = v;
        present[i] = true;
    }
    PersistEnumeratedGraphics(archive);
    archive.OnCommit([this, values, present]() noexcept {
        double* fields[5] = {&params_.centerX, &params_.centerY, &params_.radiusX, &params_.radiusY,
                             &params_.rotation};
        for (int i = 0; i < 5; ++i)
            if (present[i]) *fields[i] = values[i];
        core_ = nullptr;  // built again from the parameters when asked for
    });
}

int32_t CLuxEllipse::StoreLocked(const ccEllipse2Ptrh& next, double& announced) noexcept {
    const Params after = ParamsOf(*next);
    const Params& before = params_;
    const core::ParameterChange changes[] = {
        {before.centerX, after.centerX, luxEllipse_CenterX},
        {before.centerY, after.centerY, luxEllipse_CenterY},
        {before.radiusX, after.radiusX, luxEllipse_RadiusX},
        {before.radiusY, after.radiusY, luxEllipse_RadiusY},
        {before.rotation, after.rotation, luxEllipse_Rotation},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = after;
    core_ = next;
    return stateId;
}

template <class Reader>
HRESULT CLuxEllipse::Read(const char* method, Reader&& read) const {
    return core::Guarded(method, IID_ILuxEllipse, [&] {
        core::ObjectLock::Guard guard(Lock());
        read(static_cast<const Params&>(params_));
    });
}

template <class Make>
HRESULT CLuxEllipse::Modify(const char* method, Make&& make, int32_t wholeStateId) {
    return core::Guarded(method, IID_ILuxEllipse, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            const ccEllipse2Ptrh next = make(static_cast<const Params&>(params_));
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

HRESULT CLuxEllipse::MakeShapeModel(double /*Weight*/, LONG /*Polarity*/, VARIANT_BOOL /*CopyShape*/,
                                    IDispatch** ShapeModel) {
    return RefuseShapeModel(ShapeModel, "an ellipse");
}

HRESULT CLuxEllipse::get_CenterX(double* CenterX) {
    return Read("get_CenterX", [&](const Params& p) { core::RequireOut(CenterX), *CenterX = p.centerX; });
}
HRESULT CLuxEllipse::put_CenterX(double CenterX) {
    return Modify("put_CenterX",
                  [&](const Params& p) { return NewCore(CenterX, p.centerY, p.radiusX, p.radiusY, p.rotation); });
}
HRESULT CLuxEllipse::get_CenterY(double* CenterY) {
    return Read("get_CenterY", [&](const Params& p) { core::RequireOut(CenterY), *CenterY = p.centerY; });
}
HRESULT CLuxEllipse::put_CenterY(double CenterY) {
    return Modify("put_CenterY",
                  [&](const Params& p) { return NewCore(p.centerX, CenterY, p.radiusX, p.radiusY, p.rotation); });
}
HRESULT CLuxEllipse::get_RadiusX(double* RadiusX) {
    return Read("get_RadiusX", [&](const Params& p) { core::RequireOut(RadiusX), *RadiusX = p.radiusX; });
}
HRESULT CLuxEllipse::put_RadiusX(double RadiusX) {
    return Modify("put_RadiusX",
                  [&](const Params& p) { return NewCore(p.centerX, p.centerY, RadiusX, p.radiusY, p.rotation); });
}
HRESULT CLuxEllipse::get_RadiusY(double* RadiusY) {
    return Read("get_RadiusY", [&](const Params& p) { core::RequireOut(RadiusY), *RadiusY = p.radiusY; });
}
HRESULT CLuxEllipse::put_RadiusY(double RadiusY) {
    return Modify("put_RadiusY",
                  [&](const Params& p) { return NewCore(p.centerX, p.centerY, p.radiusX, RadiusY, p.rotation); });
}
HRESULT CLuxEllipse::get_Rotation(double* Rotation) {
    return Read("get_Rotation", [&](const Params& p) { core::RequireOut(Rotation), *Rotation = p.rotation; });
}
HRESULT CLuxEllipse::put_Rotation(double Rotation) {
    // The core normalises; StoreLocked compares the normalised angle with the present one.
    return Modify("put_Rotation",
                  [&](const Params& p) { return NewCore(p.centerX, p.centerY, p.radiusX, p.radiusY, Rotation); });
}

HRESULT CLuxEllipse::get_Area(double* Area) {
    return core::Guarded("get_Area", IID_ILuxEllipse, [&] {
        core::RequireOut(Area);
        core::ObjectLock::Guard guard(Lock());
        *Area = CoreLocked().Area();
    });
}
HRESULT CLuxEllipse::get_Perimeter(double* Perimeter) {
    return core::Guarded("get_Perimeter", IID_ILuxEllipse, [&] {
        core::RequireOut(Perimeter);
        core::ObjectLock::Guard guard(Lock());
        *Perimeter = CoreLocked().Perimeter();
    });
}

HRESULT CLuxEllipse::get_XDirectionAdornment(LuxEllipseDirectionAdornmentConstants* Adornment) {
    return GetEnumeratedGraphic("get_XDirectionAdornment", kXDirection, Adornment);
}
HRESULT CLuxEllipse::put_XDirectionAdornment(LuxEllipseDirectionAdornmentConstants Adornment) {
    return PutEnumeratedGraphic("put_XDirectionAdornment", kXDirection, Adornment);
}
HRESULT CLuxEllipse::get_YDirectionAdornment(LuxEllipseDirectionAdornmentConstants* Adornment) {
    return GetEnumeratedGraphic("get_YDirectionAdornment", kYDirection, Adornment);
}
HRESULT CLuxEllipse::put_YDirectionAdornment(LuxEllipseDirectionAdornmentConstants Adornment) {
    return PutEnumeratedGraphic("put_YDirectionAdornment", kYDirection, Adornment);
}

HRESULT CLuxEllipse::GetBoundingRectangleAffine(VARIANT_BOOL DeSkew, ILuxRectangleAffine** BoundingRect) {
    return core::Guarded("GetBoundingRectangleAffine", IID_ILuxEllipse, [&] {
        core::RequireOut(BoundingRect);
        *BoundingRect = nullptr;
        ccAffineRectanglePtrh bounds;
        {
            core::ObjectLock::Guard guard(Lock());
            bounds = CoreLocked().BoundingRectangleAffine(DeSkew != VARIANT_FALSE);
        }
        const ComPtr<ILuxShape> shape = NewShapeFromCore(*bounds);
        // The rectangle's numbers are in the ellipse's space: it takes the name, nothing else.
        core::ShapeImplementation::Require(shape.get(), "BoundingRect")
            .TakeCommonState(CommonState(), luxCopyShapeGeometryOnly);
        ComPtr<ILuxRectangleAffine> affine = shape.As<ILuxRectangleAffine>();
        if (!affine) throw ccStdError::InternalError("an ellipse's bounding rectangle is not an affine rectangle");
        *BoundingRect = affine.Detach();
    });
}

HRESULT CLuxEllipse::SetFromBoundingRectangleAffine(ILuxRectangleAffine* NewBoundingRect) {
    return core::Guarded("SetFromBoundingRectangleAffine", IID_ILuxEllipse, [&] {
        core::RequireArgument(NewBoundingRect, "NewBoundingRect");
        // Read before this object's lock is taken: it may be anyone's object.
        double cx = 0, cy = 0, sx = 0, sy = 0, rotation = 0, skew = 0;
        core::ThrowIfFailed(NewBoundingRect->GetCenterLengthsRotationSkew(&cx, &cy, &sx, &sy, &rotation, &skew));
        const ccAffineRectanglePtrh rect(new ccAffineRectangle(cc2Vect(cx, cy), sx, sy, rotation, skew));
        ccEllipse2Ptrh next(new ccEllipse2());
        next->SetFromBoundingRectangleAffine(*rect);
        const Params p = ParamsOf(*next);
        CheckFinite({{"NewBoundingRect", p.centerX}, {"NewBoundingRect", p.centerY}, {"NewBoundingRect", p.radiusX},
                     {"NewBoundingRect", p.radiusY}, {"NewBoundingRect", p.rotation}});
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
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

HRESULT CLuxEllipse::GetCenterXYRadiusXYRotation(double* CenterX, double* CenterY, double* RadiusX, double* RadiusY,
                                                 double* Rotation) {
    return Read("GetCenterXYRadiusXYRotation", [&](const Params& p) {
        core::RequireOut(CenterX, CenterY, RadiusX, RadiusY, Rotation);
        *CenterX = p.centerX;
        *CenterY = p.centerY;
        *RadiusX = p.radiusX;
        *RadiusY = p.radiusY;
        *Rotation = p.rotation;
    });
}
HRESULT CLuxEllipse::SetCenterXYRadiusXYRotation(double CenterX, double CenterY, double RadiusX, double RadiusY,
                                                 double Rotation) {
    return Modify("SetCenterXYRadiusXYRotation",
                  [&](const Params&) { return NewCore(CenterX, CenterY, RadiusX, RadiusY, Rotation); });
}

HRESULT CLuxEllipse::GetUnitCircleTransform(ILuxTransform2DLinear** EllipseFromUnitCircle) {
    return core::Guarded("GetUnitCircleTransform", IID_ILuxEllipse, [&] {
        core::RequireOut(EllipseFromUnitCircle);
        *EllipseFromUnitCircle = nullptr;
        cc2XformLinear value;
        {
            core::ObjectLock::Guard guard(Lock());
            value = CoreLocked().UnitCircleTransform();
        }
        ComPtr<transform::CLuxTransform2DLinear> result = transform::CLuxTransform2DLinear::FromValue(value);
        ComPtr<ILuxTransform2DLinear> linear(static_cast<ILuxTransform2DLinear*>(result.get()));
        *EllipseFromUnitCircle = linear.Detach();
    });
}

HRESULT CLuxEllipse::SetFromUnitCircleTransform(ILuxTransform2DLinear* EllipseFromUnitCircle) {
    // The transform is read before this object's lock is taken: it may be anyone's object.
    cc2XformLinear value;
    const HRESULT read = core::Guarded("SetFromUnitCircleTransform", IID_ILuxEllipse, [&] {
        core::RequireArgument(EllipseFromUnitCircle, "EllipseFromUnitCircle");
        value = transform::CLuxTransform2DLinear::ValueOf(EllipseFromUnitCircle);
    });
    if (FAILED(read)) return read;
    return Modify(
        "SetFromUnitCircleTransform",
        [&](const Params&) {
            ccEllipse2Ptrh next(new ccEllipse2());
            next->SetFromUnitCircleTransform(value);
            const Params p = ParamsOf(*next);
            CheckFinite({{"EllipseFromUnitCircle", p.centerX}, {"EllipseFromUnitCircle", p.centerY},
                         {"EllipseFromUnitCircle", p.radiusX}, {"EllipseFromUnitCircle", p.radiusY},
                         {"EllipseFromUnitCircle", p.rotation}});
            return next;
        },
        luxEllipse_UnitCircleTransform);
}

HRESULT CLuxEllipse::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                               ILuxEllipse** Result) {
    return core::Guarded("MapLinear", IID_ILuxEllipse, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const ComPtr<ILuxShape> mapped = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags);
        ComPtr<ILuxEllipse> ellipse = mapped.As<ILuxEllipse>();
        if (!ellipse) throw ccStdError::InternalError("an ellipse mapped is not an ellipse");
        *Result = ellipse.Detach();
    });
}

HRESULT CLuxEllipse::Copy(LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) {
    return core::Guarded("Copy", IID_ILuxEllipse, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

}  // namespace tessaly::shape
