#include "com/shape/CLuxRectangle.h"

#include <array>
#include <string>

#include "com/core/impl/ParameterChanges.h"
#include "com/shape/ShapeFactory.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxRectangle> registrar;
const ShapeFactoryRegistrar<CLuxRectangle> factoryEntry("ccRect");

// NaN is refused too: it is not greater than 0.
void CheckPositive(double value, const char* argument) {
    if (!(value > 0)) [[unlikely]]
        throw ccStdError::BadArgument(argument, ids_Lux_InvalidArgNotPositive_1, {argument});
}

void SetIf(double* out, double value) noexcept { *out = value; }

const char* const kKeys[4] = {"X", "Y", "Width", "Height"};

}  // namespace

ComPtr<CLuxRectangle> CLuxRectangle::FromCore(const ccRect& rect) {
    auto object = ComPtr<CLuxRectangle>::Attach(Create());
    if (!object) throw std::bad_alloc();
    object->SetFromCoreShape(rect);
    return object;
}

ccRectPtrh CLuxRectangle::Value() const {
    core::ObjectLock::Guard guard(Lock());
    return ccRectPtrh(new ccRect(params_.x, params_.y, params_.width, params_.height));
}

ccShapePtrh_const CLuxRectangle::CoreShape() const {
    core::ObjectLock::Guard guard(Lock());
    return ccShapePtrh_const(new ccRect(params_.x, params_.y, params_.width, params_.height));
}

int32_t CLuxRectangle::SetFromCoreShape(const ccShape& shape) {
    const auto* rect = dynamic_cast<const ccRect*>(&shape);
    if (!rect) throw ccStdError::InternalError(std::string("a LuxRectangle cannot hold a ") + shape.TypeName());
    if (!(rect->Width() > 0) || !(rect->Height() > 0))
        throw ccShapesError::DegenerateShape("a rectangle of width " + std::to_string(rect->Width()) + " and height " +
                                             std::to_string(rect->Height()));
    double announced = 0;
    core::ObjectLock::Guard guard(Lock());
    return StoreLocked(Params{rect->X(), rect->Y(), rect->Width(), rect->Height()}, announced);
}

void CLuxRectangle::CopyGeometryFrom(const CLuxRectangle& source) {
    Params copied;
    {
        core::ObjectLock::Guard guard(source.Lock());
        copied = source.params_;
    }
    core::ObjectLock::Guard guard(Lock());
    params_ = copied;
}

ccShapePtrh CLuxRectangle::FittedToBox(const ccRect& box) const { return ccShapePtrh(new ccRect(box)); }

void CLuxRectangle::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        double values[4] = {params_.x, params_.y, params_.width, params_.height};  // lock held
        for (int i = 0; i < 4; ++i) archive.Persist(kKeys[i], values[i]);
        return;
    }
    double values[4] = {};
    bool present[4] = {};
    for (int i = 0; i < 4; ++i) {
        Variant value;
        if (!archive.Read(kKeys[i], value)) continue;
        if (FAILED(value.ChangeType(VT_R8)))
            throw ccArchive::BadType(std::string(kKeys[i]) + " is not a number", ids_Lux_ReadInvalidProperty_1,
                                     {kKeys[i]});
        values[i] = value.get().dblVal;
        present[i] = true;
        if (i >= 2 && !(values[i] > 0))
            throw ccArchive::BadContent(std::string(kKeys[i]) + " is not greater than 0", ids_Lux_ReadInvalidProperty_1,
                                        {kKeys[i]});
    }
    archive.OnCommit([this, p = std::to_array(values), has = std::to_array(present)]() noexcept {
        double* fields[4] = {&params_.x, &params_.y, &params_.width, &params_.height};
        for (int i = 0; i < 4; ++i)
            if (has[i]) *fields[i] = p[i];
    });
}

int32_t CLuxRectangle::StoreLocked(const Params& next, double& announced) noexcept {
    const core::ParameterChange changes[] = {
        {params_.x, next.x, luxRectangle_X},
        {params_.y, next.y, luxRectangle_Y},
        {params_.width, next.width, luxRectangle_Width},
        {params_.height, next.height, luxRectangle_Height},
    };
    const int32_t stateId = core::AnnouncedStateId(changes, announced);
    params_ = next;
    return stateId;
}

template <class Reader>
HRESULT CLuxRectangle::Get(const char* method, Reader&& read) {
    return core::Guarded(method, IID_ILuxRectangle, [&] {
        core::ObjectLock::Guard guard(Lock());
        read(static_cast<const Params&>(params_));
    });
}

template <class Change>
HRESULT CLuxRectangle::Modify(const char* method, Change&& change) {
    return core::Guarded(method, IID_ILuxRectangle, [&] {
        double announced = 0;
        int32_t stateId;
        {
            core::ObjectLock::Guard guard(Lock());
            Params next = params_;
            change(next);
            stateId = StoreLocked(next, announced);
        }
        if (stateId == luxState_Undefined) return S_OK;
        VARIANT value{};
        value.vt = VT_R8;
        value.dblVal = announced;
        return RaiseChange(stateId, value, luxFA_Shape_Geometry);
    });
}

HRESULT CLuxRectangle::get_X(double* X) {
    return Get("get_X", [&](const Params& p) { core::RequireOut(X), *X = p.x; });
}
HRESULT CLuxRectangle::put_X(double X) {
    return Modify("put_X", [&](Params& next) { next.x = X; });
}
HRESULT CLuxRectangle::get_Y(double* Y) {
    return Get("get_Y", [&](const Params& p) { core::RequireOut(Y), *Y = p.y; });
}
HRESULT CLuxRectangle::put_Y(double Y) {
    return Modify("put_Y", [&](Params& next) { next.y = Y; });
}
HRESULT CLuxRectangle::get_CenterX(double* CenterX) {
    return Get("get_CenterX", [&](const Params& p) { core::RequireOut(CenterX), *CenterX = p.x + p.width / 2; });
}
HRESULT CLuxRectangle::get_CenterY(double* CenterY) {
    return Get("get_CenterY", [&](const Params& p) { core::RequireOut(CenterY), *CenterY = p.y + p.height / 2; });
}
HRESULT CLuxRectangle::get_Width(double* Width) {
    return Get("get_Width", [&](const Params& p) { core::RequireOut(Width), *Width = p.width; });
}
HRESULT CLuxRectangle::put_Width(double Width) {
    return Modify("put_Width", [&](Params& next) {
        CheckPositive(Width, "Width");
        next.width = Width;
    });
}
HRESULT CLuxRectangle::get_Height(double* Height) {
    return Get("get_Height", [&](const Params& p) { core::RequireOut(Height), *Height = p.height; });
}
HRESULT CLuxRectangle::put_Height(double Height) {
    return Modify("put_Height", [&](Params& next) {
        CheckPositive(Height, "Height");
        next.height = Height;
    });
}
HRESULT CLuxRectangle::get_Area(double* Area) {
    return Get("get_Area", [&](const Params& p) { core::RequireOut(Area), *Area = p.width * p.height; });
}
HRESULT CLuxRectangle::get_Perimeter(double* Perimeter) {
    return Get("get_Perimeter",
               [&](const Params& p) { core::RequireOut(Perimeter), *Perimeter = 2 * (p.width + p.height); });
}

HRESULT CLuxRectangle::SetXYWidthHeight(double X, double Y, double Width, double Height) {
    return Modify("SetXYWidthHeight", [&](Params& next) {
        CheckPositive(Width, "Width");
        CheckPositive(Height, "Height");
        next = Params{X, Y, Width, Height};
    });
}
HRESULT CLuxRectangle::GetXYWidthHeight(double* X, double* Y, double* Width, double* Height) {
    return Get("GetXYWidthHeight", [&](const Params& p) {
        core::RequireOut(X, Y, Width, Height);
        SetIf(X, p.x);
        SetIf(Y, p.y);
        SetIf(Width, p.width);
        SetIf(Height, p.height);
    });
}
HRESULT CLuxRectangle::SetCenterWidthHeight(double CenterX, double CenterY, double Width, double Height) {
    return Modify("SetCenterWidthHeight", [&](Params& next) {
        CheckPositive(Width, "Width");
        CheckPositive(Height, "Height");
        next = Params{CenterX - Width / 2, CenterY - Height / 2, Width, Height};
    });
}
HRESULT CLuxRectangle::GetCenterWidthHeight(double* CenterX, double* CenterY, double* Width, double* Height) {
    return Get("GetCenterWidthHeight", [&](const Params& p) {
        core::RequireOut(CenterX, CenterY, Width, Height);
        SetIf(CenterX, p.x + p.width / 2);
        SetIf(CenterY, p.y + p.height / 2);
        SetIf(Width, p.width);
        SetIf(Height, p.height);
    });
}

template <class Combine>
HRESULT CLuxRectangle::Combined(const char* method, ILuxRectangle* other, LuxCopyShapeConstants copyFlags,
                                ILuxRectangle** result, Combine&& combine) {
    return core::Guarded(method, IID_ILuxRectangle, [&] {
        core::RequireOut(result);
        *result = nullptr;
        core::RequireArgument(other, "Other");
        const ccRectPtrh otherValue = core::RectangleValueOf(other);
        const ccRectPtrh combined = combine(*Value(), *otherValue);
        auto rectangle = FromCore(*combined);
        rectangle->TakeCommonState(CommonState(), copyFlags);
        *result = rectangle.Detach();
    });
}

HRESULT CLuxRectangle::Intersect(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) {
    return Combined("Intersect", Other, CopyFlags, Result, [](const ccRect& self, const ccRect& other) {
        ccRectPtrh common = self.Intersect(other);
        if (common->IsEmpty()) throw ccShapesError::DegenerateShape("the rectangles do not overlap");
        return common;
    });
}
HRESULT CLuxRectangle::Dilate(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) {
    return Combined("Dilate", Other, CopyFlags, Result,
                    [](const ccRect& self, const ccRect& other) { return self.Dilate(other); });
}
HRESULT CLuxRectangle::Erode(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) {
    return Combined("Erode", Other, CopyFlags, Result, [](const ccRect& self, const ccRect& other) {
        ccRectPtrh eroded = self.Erode(other);
        if (eroded->IsEmpty()) throw ccShapesError::DegenerateShape("the rectangle is not larger than Other");
        return eroded;
    });
}
HRESULT CLuxRectangle::Union(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) {
    return Combined("Union", Other, CopyFlags, Result,
                    [](const ccRect& self, const ccRect& other) { return self.Union(other); });
}

HRESULT CLuxRectangle::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                                 ILuxShape** Result) {
    return core::Guarded("MapLinear", IID_ILuxRectangle, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        *Result = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags).Detach();
    });
}

HRESULT CLuxRectangle::Copy(LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) {
    return core::Guarded("Copy", IID_ILuxRectangle, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

}  // namespace tessaly::shape
