// LuxTransform2DLinear: the automation object of a linear (affine) transform. It holds a
// cc2XformLinear, which does all the mathematics; the object adds the parametrisations as
// properties, the argument checks and the change event. A new object is the identity.
//
// Every successful change raises Change(luxState_MoreThanOneStateIDChanged, empty,
// luxFA_Misc) exactly once, never a property's own state ID; a setter whose result equals
// the present value exactly stores nothing and raises nothing. A refused call changes
// nothing and raises nothing.
//
// Persistence (ILuxPersistArchive), in this order: "BaseVersion" (int32, the base part of
// cc2XformBase, 1), "TranslationX", "TranslationY", "Elem00", "Elem01", "Elem10",
// "Elem11", "Determinant" (doubles; the determinant is written as held, and read back as
// written, not recomputed).
//
// Code of the library that holds a linear transform's value makes an object of it with
// FromValue and reads one with Value; ImplementationOf finds the object behind any of its
// interface pointers.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/ComPtr.h"
#include "xnl/std/math/cc2XformLinear.h"

namespace tessaly::transform {

class CLuxTransform2DLinear
    : public core::ILuxObjectImplBase<CLuxTransform2DLinear, ILuxTransform2DLinear, ILuxTransform2D> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxTransform2DLinear; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxTransform2DLinear;

    CLuxTransform2DLinear() = default;

    // A new object holding `value`; throws std::bad_alloc when it cannot be made.
    static ComPtr<CLuxTransform2DLinear> FromValue(const cc2XformLinear& value);
    // A snapshot of the value, taken under the object's lock.
    cc2XformLinear Value() const;
    // The value of any linear transform: this class's directly, another implementation's
    // through its interface (a failure of that call is thrown as ccCOMError).
    static cc2XformLinear ValueOf(ILuxTransform2DLinear* transform);

    void CopyFrom(const CLuxTransform2DLinear& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept { value_ = cc2XformLinear(); }

    // ILuxTransform2D (MapPoint serves both interfaces)
    HRESULT MapPoint(double X, double Y, double* MappedX, double* MappedY) override;
    HRESULT get_Linear(VARIANT_BOOL* Linear) override;
    HRESULT LinearTransform(double X, double Y, ILuxTransform2DLinear** Linear) override;
    HRESULT BestFitLinearTransform(IDispatch* FromPoints, double* RMSError, ILuxTransform2DLinear** Linear) override;
    HRESULT CopyBase(ILuxTransform2D** Copy) override;
    HRESULT ComposeBase(ILuxTransform2D* RightSide, ILuxTransform2D** Composed) override;
    HRESULT InvertBase(ILuxTransform2D** Inverse) override;

    // ILuxTransform2DLinear
    HRESULT get_Rotation(double* Rotation) override;
    HRESULT put_Rotation(double Rotation) override;
    HRESULT get_Skew(double* Skew) override;
    HRESULT put_Skew(double Skew) override;
    HRESULT get_Scaling(double* Scaling) override;
    HRESULT put_Scaling(double Scaling) override;
    HRESULT get_Aspect(double* Aspect) override;
    HRESULT put_Aspect(double Aspect) override;
    HRESULT get_MatrixElement(LONG Row, LONG Column, double* Value) override;
    HRESULT put_MatrixElement(LONG Row, LONG Column, double Value) override;
    HRESULT get_MatrixDeterminant(double* Determinant) override;
    HRESULT get_RotationX(double* RotationX) override;
    HRESULT get_RotationY(double* RotationY) override;
    HRESULT get_ScalingX(double* ScalingX) override;
    HRESULT get_ScalingY(double* ScalingY) override;
    HRESULT get_TranslationX(double* TranslationX) override;
    HRESULT put_TranslationX(double TranslationX) override;
    HRESULT get_TranslationY(double* TranslationY) override;
    HRESULT put_TranslationY(double TranslationY) override;
    HRESULT MatrixIdentity(double Tolerance, VARIANT_BOOL* Identity) override;
    HRESULT Identity(double Tolerance, VARIANT_BOOL* Identity) override;
    HRESULT Singular(double Tolerance, VARIANT_BOOL* Singular) override;
    HRESULT Copy(ILuxTransform2DLinear** Copy) override;
    HRESULT Compose(ILuxTransform2DLinear* RightSide, ILuxTransform2DLinear** Composed) override;
    HRESULT Invert(ILuxTransform2DLinear** Inverse) override;
    HRESULT MapVector(double X, double Y, double* MappedX, double* MappedY) override;
    HRESULT MapAngle(double Angle, double* MappedAngle) override;
    HRESULT MapArea(double Area, double* MappedArea) override;
    HRESULT SetScalingAspectRotationSkewTranslation(double Scaling, double Aspect, double Rotation, double Skew,
                                                    double TranslationX, double TranslationY) override;
    HRESULT GetScalingAspectRotationSkewTranslation(double* Scaling, double* Aspect, double* Rotation, double* Skew,
                                                    double* TranslationX, double* TranslationY) override;
    HRESULT SetMatrixElementsTranslation(double Elem00, double Elem01, double Elem10, double Elem11,
                                         double TranslationX, double TranslationY) override;
    HRESULT GetMatrixElementsTranslation(double* Elem00, double* Elem01, double* Elem10, double* Elem11,
                                         double* TranslationX, double* TranslationY) override;
    HRESULT SetScalingsRotationsTranslation(double ScalingX, double ScalingY, double RotationX, double RotationY,
                                            double TranslationX, double TranslationY) override;
    HRESULT GetScalingsRotationsTranslation(double* ScalingX, double* ScalingY, double* RotationX,
                                            double* RotationY, double* TranslationX, double* TranslationY) override;

protected:
    ~CLuxTransform2DLinear() override = default;

private:
    // Reads the value under the lock and hands it to `read`.
    template <class Read>
    HRESULT Get(const char* method, const IID& iid, Read&& read);
    // Computes the new value from the present one under the lock (`change` may throw a
    // refusal), stores it unless it equals the present value exactly, and raises one Change
    // after the lock is released.
    template <class Change>
    HRESULT Modify(const char* method, Change&& change);

    cc2XformLinear value_;
    // Where a load puts the stored numbers before they become the value (see PersistState).
    double stored_[7] = {};
};

}  // namespace tessaly::transform
