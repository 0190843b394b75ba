// LuxRectangleAffine: a parallelogram in its selected space, given by its centre, two side
// lengths, a rotation and a skew; a region and an interactive graphic (ILuxRegionImpl).
// The core shape is a ccAffineRectangle, which does the mathematics (corners, area, the
// scan converter behind CreateRLE, the nearest point); this class holds the parameters,
// checks them through the core, raises Change and persists them.
//
// A new affine rectangle has centre (50, 50), sides 100 and 100, rotation 0 and skew 0: as a
// region the pixels 0..99 x 0..99, the same as a LuxRectangle (0, 0, 100, 100), so that a
// fresh one drawn over an image is visible. Adornments start at None.
//
// Parameters. Rotation and Skew are stored normalised into [-pi, pi) (pi reads back as
// -pi, 4 as 4 - 2 pi). Every stored value is valid:
//  - a side length <= 0 or NaN written through its property is refused with E_INVALIDARG,
//    ids_Lux_InvalidArgNotPositive_1 naming "SideXLength" or "SideYLength", as LuxRectangle
//    refuses its Width; the methods that set several parameters at once hand the lengths
//    to the core, which refuses them with ccAffineRectangle::BadLength (E_INVALIDARG);
//  - a skew within 0.001 rad of +-pi/2 (the sides parallel): ccAffineRectangle::BadSkew;
//  - an infinite (or, where the core has not refused it already, NaN) argument: E_INVALIDARG,
//    ids_Core_InvalidArg_1 naming the argument.
// put_Skew conditions its value before anything else, so that a drag through the degenerate
// position never fails: when the normalised value lies within 0.002 rad of +-pi/2 it
// becomes +(pi/2 + 0.002) = 1.5727963267948966 if the value as passed is > 0, else
// -1.5727963267948966. The sign is the passed value's: 3 pi/2, which normalises to -pi/2,
// becomes +1.5727963267948966. The methods that take a skew among other values do not
// condition it.
//
// Events: a setter that changes nothing raises nothing. CenterX, CenterY, SideXLength and
// SideYLength changed alone raise Change(their state ID, the new value,
// luxFA_Shape_Geometry). A change of Rotation or Skew moves every corner and raises
// Change(luxState_MoreThanOneStateIDChanged, empty, luxFA_Shape_Geometry), as does any
// change of several parameters by one call (SetCenterLengthsRotationSkew,
// SetOriginLengthsRotationSkew, SetOriginCornerXCornerY, SetFromRectangle, FitToImage,
// FitToBoundingBox, DragStop: one event a call). The adornments raise Change(their state
// ID, the new value, luxFA_Shape_Graphic); a value outside
// LuxRectangleAffineDirectionAdornmentConstants is refused with E_INVALIDARG,
// ids_Lux_InvalidArgEnum_1 naming "XDirectionAdornment" or "YDirectionAdornment". A refused
// call changes nothing and raises nothing.
//
// SetFromRectangle(Rectangle, NewTransform): the corners (X, Y), (X + Width, Y) and
// (X, Y + Height) of any ILuxRectangle, mapped through NewTransform, become CornerOrigin,
// CornerX and CornerY (the transform must be linear: e_LuxTransform_NotLinear; one that
// collapses the rectangle: ccAffineRectangle::BadLength or BadSkew). The rectangle's
// SelectedSpaceName is not looked at.
//
// FitToImage takes the image's pixel rectangle mapped into the selected space, itself an
// affine rectangle, with both sides scaled by XScale and YScale about its centre.
// FitToBoundingBox takes the box's centre and sides, rotation 0 and skew 0.
// MapLinear and Map answer a new LuxRectangleAffine (an affine map keeps a parallelogram).
//
// Copy flags: the adornments are graphic settings, copied with luxCopyShapeBasicGraphics
// (Copy, CopyBase, Map, MapLinear, MapGraphic, Clone).
//
// MakeShapeModel: shape models are not part of this library; it fails with
// e_Lux_NotImplemented and says so.
//
// Persistence: the common shape keys (ILuxShapeImpl), then "CenterX", "CenterY",
// "SideXLength", "SideYLength", "Rotation", "Skew" (doubles), "XDirectionAdornment",
// "YDirectionAdornment" (int32). A stored value that is not finite, a side <= 0, a skew
// within 0.001 rad of +-pi/2 or an adornment outside its enumeration is refused with
// ccArchive::BadContent naming the key, and the object keeps its state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

namespace tessaly::shape {

class CLuxRectangleAffine
    : public core::ILuxRegionImpl<CLuxRectangleAffine, ILuxRectangleAffine, ILuxGraphicInteractive,
                                  LuxRectangleAffineDOFConstants> {
    using Base = core::ILuxRegionImpl<CLuxRectangleAffine, ILuxRectangleAffine, ILuxGraphicInteractive,
                                      LuxRectangleAffineDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxRectangleAffine; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxRectangleAffine;

    CLuxRectangleAffine() = default;

    // A snapshot of the geometry, under the lock.
    ccAffineRectanglePtrh_const Value() const;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxRectangleAffine& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    ccShapePtrh FittedToImage(const ccShape& imageExtent, double xScale, double yScale) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // The direction adornments.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();

    // ILuxRectangleAffine
    HRESULT MakeShapeModel(double Weight, LONG Polarity, VARIANT_BOOL CopyShape, IDispatch** ShapeModel) override;
    HRESULT get_CenterX(double* CenterX) override;
    HRESULT put_CenterX(double CenterX) override;
    HRESULT get_CenterY(double* CenterY) override;
    HRESULT put_CenterY(double CenterY) override;
    HRESULT get_CornerOriginX(double* Value) override;
    HRESULT get_CornerOriginY(double* Value) override;
    HRESULT get_CornerX_X(double* Value) override;
    HRESULT get_CornerX_Y(double* Value) override;
    HRESULT get_CornerY_X(double* Value) override;
    HRESULT get_CornerY_Y(double* Value) override;
    HRESULT get_CornerOppositeX(double* Value) override;
    HRESULT get_CornerOppositeY(double* Value) override;
    HRESULT get_SideXLength(double* Length) override;
    HRESULT put_SideXLength(double Length) override;
    HRESULT get_SideYLength(double* Length) override;
    HRESULT put_SideYLength(double Length) override;
    HRESULT get_XDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants* Adornment) override;
    HRESULT put_XDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants Adornment) override;
    HRESULT get_YDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants* Adornment) override;
    HRESULT put_YDirectionAdornment(LuxRectangleAffineDirectionAdornmentConstants Adornment) override;
    HRESULT get_Rotation(double* Rotation) override;
    HRESULT put_Rotation(double Rotation) override;
    HRESULT get_Skew(double* Skew) override;
    HRESULT put_Skew(double Skew) override;
    HRESULT get_Area(double* Area) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT SetFromRectangle(ILuxRectangle* Rectangle, ILuxTransform2D* NewTransform) override;
    HRESULT SetOriginCornerXCornerY(double OriginX, double OriginY, double CornerX_X, double CornerX_Y,
                                    double CornerY_X, double CornerY_Y) override;
    HRESULT GetOriginCornerXCornerY(double* OriginX, double* OriginY, double* CornerX_X, double* CornerX_Y,
                                    double* CornerY_X, double* CornerY_Y) override;
    HRESULT SetCenterLengthsRotationSkew(double CenterX, double CenterY, double SideXLength, double SideYLength,
                                         double Rotation, double Skew) override;
    HRESULT GetCenterLengthsRotationSkew(double* CenterX, double* CenterY, double* SideXLength, double* SideYLength,
                                         double* Rotation, double* Skew) override;
    HRESULT SetOriginLengthsRotationSkew(double OriginX, double OriginY, double SideXLength, double SideYLength,
                                         double Rotation, double Skew) override;
    HRESULT GetOriginLengthsRotationSkew(double* OriginX, double* OriginY, double* SideXLength, double* SideYLength,
                                         double* Rotation, double* Skew) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                      ILuxRectangleAffine** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxRectangleAffine** Result) override;

    // What put_Skew makes of a value before it compares and stores it.
    static double ConditionedSkew(double skew) noexcept;

protected:
    ~CLuxRectangleAffine() override = default;

private:
    // The five geometric parameters, as the core holds them (angles normalised).
    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double sideX = 100.0;
        double sideY = 100.0;
        double rotation = 0.0;
        double skew = 0.0;
    };

    static Params ParamsOf(const ccAffineRectangle& core) noexcept;
    // The core shape of the parameters, built on first need; lock held.
    const ccAffineRectangle& CoreLocked() const;
    // Reads under the lock.
    template <class Reader>
    HRESULT Read(const char* method, Reader&& read) const;
    // Builds the new geometry from the present one with `make` (which validates through the
    // core and may refuse), stores it and raises one Change for what differs.
    template <class Make>
    HRESULT Modify(const char* method, Make&& make);
    // Stores a valid geometry and answers the state ID to announce (luxState_Undefined when
    // nothing differs) and the value that goes with it; lock held.
    int32_t StoreLocked(const ccAffineRectanglePtrh& next, double& announced) noexcept;

    // Guarded by the lock. core_ follows params_: null until asked for after a load.
    Params params_;
    mutable ccAffineRectanglePtrh_const core_;
};

}  // namespace tessaly::shape
