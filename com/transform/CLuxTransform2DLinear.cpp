#include "com/transform/CLuxTransform2DLinear.h"

#include <cmath>
#include <numbers>
#include <optional>
#include <string>

#include "com/core/ccCOMError.h"
#include "com/transform/CLuxTransform2DComposed.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::transform {

namespace {

const ClassRegistrar<CLuxTransform2DLinear> registrar;

constexpr double kHalfPi = std::numbers::pi / 2;
// How close to a quarter turn a skew (or the angle between the axes' images) may come.
constexpr double kDegenerateAngle = 1e-10;

using Optional = std::optional<cc2XformLinear>;

[[noreturn]] void RefuseSingular(const char* argument, const char* why) {
    throw ccStdError::BadArgument(argument, ids_LuxTransform_InvalidArgSingular_2, {argument, why});
}

void RequireNonZero(double value, const char* argument) {
    if (value == 0) RefuseSingular(argument, "0");
}

// A skew of a quarter turn lays the y axis's image onto the x axis's.
double CheckedSkew(double skew) {
    const double normalized = cc2XformLinear::NormalizeAngle(skew);
    if (std::fabs(std::fabs(normalized) - kHalfPi) <= kDegenerateAngle) RefuseSingular("Skew", "plus or minus Pi/2");
    return normalized;
}

void CheckBinary(LONG value, const char* argument, const char* method) {
    if (value != 0 && value != 1)
        throw ccStdError::BadArgument(argument, ids_Lux_InvalidArgBinary_3,
                                      {argument, std::to_string(value), method});
}

template <class Interface>
Interface* Hand(ComPtr<CLuxTransform2DLinear> object) {
    Interface* answer = object.get();
    answer->AddRef();
    return answer;
}

void SetIf(double* out, double value) noexcept {
    if (out) *out = value;
}

const char* const kStoredNames[7] = {"TranslationX", "TranslationY", "Elem00", "Elem01",
                                     "Elem10",       "Elem11",       "Determinant"};

}  // namespace

ComPtr<CLuxTransform2DLinear> CLuxTransform2DLinear::FromValue(const cc2XformLinear& value) {
    auto object = ComPtr<CLuxTransform2DLinear>::Attach(Create());
    if (!object) throw std::bad_alloc();
    object->value_ = value;  // nobody else sees the object yet
    return object;
}

cc2XformLinear CLuxTransform2DLinear::Value() const {
    core::ObjectLock::Guard guard(Lock());
    return value_;
}

cc2XformLinear CLuxTransform2DLinear::ValueOf(ILuxTransform2DLinear* transform) {
    if (const CLuxTransform2DLinear* own = ImplementationOf(transform)) return own->Value();
    double m[4];
    double t[2];
    core::ThrowIfFailed(transform->GetMatrixElementsTranslation(&m[0], &m[1], &m[2], &m[3], &t[0], &t[1]));
    return cc2XformLinear(m[0], m[1], m[2], m[3], t[0], t[1]);
}

void CLuxTransform2DLinear::CopyFrom(const CLuxTransform2DLinear& source) {
    const cc2XformLinear value = source.Value();
    core::ObjectLock::Guard guard(Lock());
    value_ = value;
}

void CLuxTransform2DLinear::PersistState(core::ArchiveAccess& archive) {
    int32_t baseVersion = static_cast<int32_t>(cc2XformBase::kBaseVersion);
    if (archive.Saving()) {
        archive.Persist("BaseVersion", baseVersion);
        const double numbers[7] = {value_.TranslationX(), value_.TranslationY(), value_.M00(), value_.M01(),
                                   value_.M10(),          value_.M11(),          value_.Determinant()};
        for (int i = 0; i < 7; ++i) {
            double number = numbers[i];
            archive.Persist(kStoredNames[i], number);
        }
        return;
    }
    Variant version;
    if (archive.Read("BaseVersion", version)) {
        if (FAILED(version.ChangeType(VT_I4)))
            throw ccArchive::BadType("BaseVersion is not a number", ids_Lux_ReadInvalidProperty_1, {"BaseVersion"});
        if (version.get().lVal > baseVersion || version.get().lVal < 1)
            throw ccArchive::UnknownVersion("BaseVersion " + std::to_string(version.get().lVal));
    }
    // The stored numbers land in stored_, which starts from the value after the reset (a
    // name the archive lacks keeps that number), and become the value together.
    archive.OnCommit([this]() noexcept {
        const double present[7] = {value_.TranslationX(), value_.TranslationY(), value_.M00(), value_.M01(),
                                   value_.M10(),          value_.M11(),          value_.Determinant()};
        for (int i = 0; i < 7; ++i) stored_[i] = present[i];
    });
    for (int i = 0; i < 7; ++i) archive.Persist(kStoredNames[i], stored_[i]);
    archive.OnCommit([this]() noexcept {
        value_ = cc2XformLinear::FromStored(stored_[2], stored_[3], stored_[4], stored_[5], stored_[0], stored_[1],
                                            stored_[6]);
    });
}

template <class Read>
HRESULT CLuxTransform2DLinear::Get(const char* method, const IID& iid, Read&& read) {
    return core::Guarded(method, iid, [&] {
        core::ObjectLock::Guard guard(Lock());
        read(value_);
    });
}

template <class Change>
HRESULT CLuxTransform2DLinear::Modify(const char* method, Change&& change) {
    return core::Guarded(method, IID_ILuxTransform2DLinear, [&] {
        {
            core::ObjectLock::Guard guard(Lock());
            const Optional changed = change(static_cast<const cc2XformLinear&>(value_));
            if (!changed || *changed == value_) return S_OK;
            value_ = *changed;
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

// ILuxTransform2D

HRESULT CLuxTransform2DLinear::MapPoint(double X, double Y, double* MappedX, double* MappedY) {
    return core::Guarded("MapPoint", IID_ILuxTransform2D, [&] {
        double x, y;
        {
            core::ObjectLock::Guard guard(Lock());
            value_.MapPoint(X, Y, x, y);
        }
        SetIf(MappedX, x);
        SetIf(MappedY, y);
    });
}

HRESULT CLuxTransform2DLinear::get_Linear(VARIANT_BOOL* Linear) {
    return core::Guarded("get_Linear", IID_ILuxTransform2D, [&] {
        core::RequireOut(Linear);
        *Linear = VARIANT_TRUE;
    });
}

HRESULT CLuxTransform2DLinear::LinearTransform(double, double, ILuxTransform2DLinear** Linear) {
    return core::Guarded("LinearTransform", IID_ILuxTransform2D, [&] {
        core::RequireOut(Linear);
        *Linear = Hand<ILuxTransform2DLinear>(FromValue(Value()));
    });
}

HRESULT CLuxTransform2DLinear::BestFitLinearTransform(IDispatch*, double* RMSError, ILuxTransform2DLinear** Linear) {
    return core::Guarded("BestFitLinearTransform", IID_ILuxTransform2D, [&] {
        core::RequireOut(Linear);
        *Linear = Hand<ILuxTransform2DLinear>(FromValue(Value()));
        SetIf(RMSError, 0.0);
    });
}

HRESULT CLuxTransform2DLinear::CopyBase(ILuxTransform2D** Copy) {
    return core::Guarded("CopyBase", IID_ILuxTransform2D, [&] {
        core::RequireOut(Copy);
        *Copy = Hand<ILuxTransform2D>(FromValue(Value()));
    });
}

HRESULT CLuxTransform2DLinear::ComposeBase(ILuxTransform2D* RightSide, ILuxTransform2D** Composed) {
    return core::Guarded("ComposeBase", IID_ILuxTransform2D, [&] {
        core::RequireOut(Composed);
        core::RequireArgument(RightSide, "RightSide");
        *Composed = nullptr;
        if (const CLuxTransform2DLinear* own = ImplementationOf(RightSide)) {
            *Composed = Hand<ILuxTransform2D>(FromValue(Value().Compose(own->Value())));
            return;
        }
        ComPtr<ILuxTransform2DLinear> linear;
        if (SUCCEEDED(RightSide->QueryInterface(IID_ILuxTransform2DLinear, linear.OutVoid())) && linear) {
            *Composed = Hand<ILuxTransform2D>(FromValue(Value().Compose(ValueOf(linear.get()))));
            return;
        }
        // Another kind of transform: a composed transform of copies of both, RightSide acting
        // first, in its simplest form.
        auto composed = ComPtr<CLuxTransform2DComposed>::Attach(CLuxTransform2DComposed::Create());
        if (!composed) throw std::bad_alloc();
        core::ThrowIfFailed(composed->PushOntoRight(this, VARIANT_TRUE));
        core::ThrowIfFailed(composed->PushOntoRight(RightSide, VARIANT_TRUE));
        core::ThrowIfFailed(composed->Canonize(VARIANT_TRUE, Composed));
    });
}

HRESULT CLuxTransform2DLinear::InvertBase(ILuxTransform2D** Inverse) {
    return core::Guarded("InvertBase", IID_ILuxTransform2D, [&] {
        core::RequireOut(Inverse);
        *Inverse = Hand<ILuxTransform2D>(FromValue(Value().Inverse()));
    });
}

// ILuxTransform2DLinear: reading

HRESULT CLuxTransform2DLinear::get_Rotation(double* Rotation) {
    return Get("get_Rotation", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Rotation);
        *Rotation = value.DecomposeScalingAspectRotationSkew().rotation;
    });
}

HRESULT CLuxTransform2DLinear::get_Skew(double* Skew) {
    return Get("get_Skew", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Skew);
        *Skew = value.DecomposeScalingAspectRotationSkew().skew;
    });
}

HRESULT CLuxTransform2DLinear::get_Scaling(double* Scaling) {
    return Get("get_Scaling", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Scaling);
        *Scaling = value.DecomposeScalingAspectRotationSkew().scaling;
    });
}

HRESULT CLuxTransform2DLinear::get_Aspect(double* Aspect) {
    return Get("get_Aspect", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Aspect);
        *Aspect = value.DecomposeScalingAspectRotationSkew().aspect;
    });
}

HRESULT CLuxTransform2DLinear::get_MatrixElement(LONG Row, LONG Column, double* Value) {
    return Get("get_MatrixElement", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Value);
        CheckBinary(Row, "Row", "MatrixElement");
        CheckBinary(Column, "Column", "MatrixElement");
        *Value = value.Element(Row, Column);
    });
}

HRESULT CLuxTransform2DLinear::get_MatrixDeterminant(double* Determinant) {
    return Get("get_MatrixDeterminant", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Determinant);
        *Determinant = value.Determinant();
    });
}

HRESULT CLuxTransform2DLinear::get_RotationX(double* RotationX) {
    return Get("get_RotationX", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(RotationX);
        *RotationX = value.DecomposeScalingsRotations().rotationX;
    });
}

HRESULT CLuxTransform2DLinear::get_RotationY(double* RotationY) {
    return Get("get_RotationY", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(RotationY);
        *RotationY = value.DecomposeScalingsRotations().rotationY;
    });
}

HRESULT CLuxTransform2DLinear::get_ScalingX(double* ScalingX) {
    return Get("get_ScalingX", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(ScalingX);
        *ScalingX = value.DecomposeScalingsRotations().scalingX;
    });
}

HRESULT CLuxTransform2DLinear::get_ScalingY(double* ScalingY) {
    return Get("get_ScalingY", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(ScalingY);
        *ScalingY = value.DecomposeScalingsRotations().scalingY;
    });
}

HRESULT CLuxTransform2DLinear::get_TranslationX(double* TranslationX) {
    return Get("get_TranslationX", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(TranslationX);
        *TranslationX = value.TranslationX();
    });
}

HRESULT CLuxTransform2DLinear::get_TranslationY(double* TranslationY) {
    return Get("get_TranslationY", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(TranslationY);
        *TranslationY = value.TranslationY();
    });
}

HRESULT CLuxTransform2DLinear::MatrixIdentity(double Tolerance, VARIANT_BOOL* Identity) {
    return Get("MatrixIdentity", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Identity);
        *Identity = value.IsMatrixIdentity(Tolerance) ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxTransform2DLinear::Identity(double Tolerance, VARIANT_BOOL* Identity) {
    return Get("Identity", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Identity);
        *Identity = value.IsIdentity(Tolerance) ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxTransform2DLinear::Singular(double Tolerance, VARIANT_BOOL* Singular) {
    return Get("Singular", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(Singular);
        *Singular = value.IsSingular(Tolerance) ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxTransform2DLinear::MapVector(double X, double Y, double* MappedX, double* MappedY) {
    return Get("MapVector", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        const cc2Vect mapped = value.MapVector({X, Y});
        SetIf(MappedX, mapped.X());
        SetIf(MappedY, mapped.Y());
    });
}

HRESULT CLuxTransform2DLinear::MapAngle(double Angle, double* MappedAngle) {
    return Get("MapAngle", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(MappedAngle);
        *MappedAngle = value.MapAngle(Angle);
    });
}

HRESULT CLuxTransform2DLinear::MapArea(double Area, double* MappedArea) {
    return Get("MapArea", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        core::RequireOut(MappedArea);
        *MappedArea = value.MapArea(Area);
    });
}

HRESULT CLuxTransform2DLinear::GetScalingAspectRotationSkewTranslation(double* Scaling, double* Aspect,
                                                                       double* Rotation, double* Skew,
                                                                       double* TranslationX, double* TranslationY) {
    return Get("GetScalingAspectRotationSkewTranslation", IID_ILuxTransform2DLinear,
               [&](const cc2XformLinear& value) {
                   const auto parts = value.DecomposeScalingAspectRotationSkew();
                   SetIf(Scaling, parts.scaling);
                   SetIf(Aspect, parts.aspect);
                   SetIf(Rotation, parts.rotation);
                   SetIf(Skew, parts.skew);
                   SetIf(TranslationX, value.TranslationX());
                   SetIf(TranslationY, value.TranslationY());
               });
}

HRESULT CLuxTransform2DLinear::GetMatrixElementsTranslation(double* Elem00, double* Elem01, double* Elem10,
                                                            double* Elem11, double* TranslationX,
                                                            double* TranslationY) {
    return Get("GetMatrixElementsTranslation", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        SetIf(Elem00, value.M00());
        SetIf(Elem01, value.M01());
        SetIf(Elem10, value.M10());
        SetIf(Elem11, value.M11());
        SetIf(TranslationX, value.TranslationX());
        SetIf(TranslationY, value.TranslationY());
    });
}

HRESULT CLuxTransform2DLinear::GetScalingsRotationsTranslation(double* ScalingX, double* ScalingY,
                                                               double* RotationX, double* RotationY,
                                                               double* TranslationX, double* TranslationY) {
    return Get("GetScalingsRotationsTranslation", IID_ILuxTransform2DLinear, [&](const cc2XformLinear& value) {
        const auto parts = value.DecomposeScalingsRotations();
        SetIf(ScalingX, parts.scalingX);
        SetIf(ScalingY, parts.scalingY);
        SetIf(RotationX, parts.rotationX);
        SetIf(RotationY, parts.rotationY);
        SetIf(TranslationX, value.TranslationX());
        SetIf(TranslationY, value.TranslationY());
    });
}

// New objects

HRESULT CLuxTransform2DLinear::Copy(ILuxTransform2DLinear** Copy) {
    return core::Guarded("Copy", IID_ILuxTransform2DLinear, [&] {
        core::RequireOut(Copy);
        *Copy = Hand<ILuxTransform2DLinear>(FromValue(Value()));
    });
}

HRESULT CLuxTransform2DLinear::Compose(ILuxTransform2DLinear* RightSide, ILuxTransform2DLinear** Composed) {
    return core::Guarded("Compose", IID_ILuxTransform2DLinear, [&] {
        core::RequireOut(Composed);
        core::RequireArgument(RightSide, "RightSide");
        *Composed = nullptr;
        const cc2XformLinear right = ValueOf(RightSide);
        *Composed = Hand<ILuxTransform2DLinear>(FromValue(Value().Compose(right)));
    });
}

HRESULT CLuxTransform2DLinear::Invert(ILuxTransform2DLinear** Inverse) {
    return core::Guarded("Invert", IID_ILuxTransform2DLinear, [&] {
        core::RequireOut(Inverse);
        *Inverse = Hand<ILuxTransform2DLinear>(FromValue(Value().Inverse()));
    });
}

// Setters

HRESULT CLuxTransform2DLinear::put_Rotation(double Rotation) {
    const double rotation = cc2XformLinear::NormalizeAngle(Rotation);
    return Modify("put_Rotation", [&](const cc2XformLinear& present) -> Optional {
        const auto parts = present.DecomposeScalingsRotations();
        if (rotation == parts.rotationX) return std::nullopt;
        return cc2XformLinear::FromScalingsRotations(parts.scalingX, parts.scalingY, rotation,
                                                     rotation + (parts.rotationY - parts.rotationX),
                                                     present.TranslationX(), present.TranslationY());
    });
}

HRESULT CLuxTransform2DLinear::put_Skew(double Skew) {
    return Modify("put_Skew", [&](const cc2XformLinear& present) -> Optional {
        const double skew = CheckedSkew(Skew);
        const auto parts = present.DecomposeScalingsRotations();
        const double rotationY = cc2XformLinear::NormalizeAngle(parts.rotationX + skew);
        if (rotationY == parts.rotationY) return std::nullopt;
        return cc2XformLinear::FromScalingsRotations(parts.scalingX, parts.scalingY, parts.rotationX, rotationY,
                                                     present.TranslationX(), present.TranslationY());
    });
}

HRESULT CLuxTransform2DLinear::put_Scaling(double Scaling) {
    return Modify("put_Scaling", [&](const cc2XformLinear& present) -> Optional {
        RequireNonZero(Scaling, "Scaling");
        const auto parts = present.DecomposeScalingsRotations();
        if (Scaling == parts.scalingX) return std::nullopt;
        return cc2XformLinear::FromScalingsRotations(Scaling, parts.scalingY * Scaling / parts.scalingX,
                                                     parts.rotationX, parts.rotationY, present.TranslationX(),
                                                     present.TranslationY());
    });
}

HRESULT CLuxTransform2DLinear::put_Aspect(double Aspect) {
    return Modify("put_Aspect", [&](const cc2XformLinear& present) -> Optional {
        RequireNonZero(Aspect, "Aspect");
        const auto parts = present.DecomposeScalingsRotations();
        const double scalingY = parts.scalingX * Aspect;
        if (parts.scalingY == scalingY) return std::nullopt;
        return cc2XformLinear::FromScalingsRotations(parts.scalingX, scalingY, parts.rotationX, parts.rotationY,
                                                     present.TranslationX(), present.TranslationY());
    });
}

HRESULT CLuxTransform2DLinear::put_MatrixElement(LONG Row, LONG Column, double Value) {
    return Modify("put_MatrixElement", [&](const cc2XformLinear& present) -> Optional {
        CheckBinary(Row, "Row", "MatrixElement");
        CheckBinary(Column, "Column", "MatrixElement");
        if (present.Element(Row, Column) == Value) return std::nullopt;
        cc2XformLinear changed = present;
        changed.SetElement(Row, Column, Value);
        return changed;
    });
}

HRESULT CLuxTransform2DLinear::put_TranslationX(double TranslationX) {
    return Modify("put_TranslationX", [&](const cc2XformLinear& present) -> Optional {
        cc2XformLinear changed = present;
        changed.SetTranslation(TranslationX, present.TranslationY());
        return changed;
    });
}

HRESULT CLuxTransform2DLinear::put_TranslationY(double TranslationY) {
    return Modify("put_TranslationY", [&](const cc2XformLinear& present) -> Optional {
        cc2XformLinear changed = present;
        changed.SetTranslation(present.TranslationX(), TranslationY);
        return changed;
    });
}

HRESULT CLuxTransform2DLinear::SetScalingAspectRotationSkewTranslation(double Scaling, double Aspect,
                                                                       double Rotation, double Skew,
                                                                       double TranslationX, double TranslationY) {
    return Modify("SetScalingAspectRotationSkewTranslation", [&](const cc2XformLinear&) -> Optional {
        RequireNonZero(Scaling, "Scaling");
        const double skew = CheckedSkew(Skew);
        RequireNonZero(Aspect, "Aspect");
        return cc2XformLinear::FromScalingAspectRotationSkew(Scaling, Aspect, Rotation, skew, TranslationX,
                                                             TranslationY);
    });
}

HRESULT CLuxTransform2DLinear::SetMatrixElementsTranslation(double Elem00, double Elem01, double Elem10,
                                                            double Elem11, double TranslationX,
                                                            double TranslationY) {
    return Modify("SetMatrixElementsTranslation", [&](const cc2XformLinear&) -> Optional {
        return cc2XformLinear(Elem00, Elem01, Elem10, Elem11, TranslationX, TranslationY);
    });
}

HRESULT CLuxTransform2DLinear::SetScalingsRotationsTranslation(double ScalingX, double ScalingY, double RotationX,
                                                               double RotationY, double TranslationX,
                                                               double TranslationY) {
    return Modify("SetScalingsRotationsTranslation", [&](const cc2XformLinear&) -> Optional {
        RequireNonZero(ScalingX, "ScalingX");
        RequireNonZero(ScalingY, "ScalingY");
        const double between = cc2XformLinear::NormalizeAngle(RotationY - RotationX);
        if (std::fabs(std::fabs(between) - kHalfPi) <= kDegenerateAngle)
            RefuseSingular("RotationY", "RotationX plus or minus Pi/2");
        return cc2XformLinear::FromScalingsRotations(ScalingX, ScalingY, RotationX, RotationY, TranslationX,
                                                     TranslationY);
    });
}

}  // namespace tessaly::transform
