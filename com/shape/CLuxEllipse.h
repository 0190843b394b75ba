// LuxEllipse: a filled ellipse in its selected space, given by its centre, its radii along
// its own axes and the rotation of its x-axis; a region and an interactive graphic
// (ILuxRegionImpl). The core shape is a ccEllipse2, which does the mathematics (area, the
// perimeter's elliptic integral, the unit-circle transform and its decomposition, the
// scan converter behind CreateRLE); this class holds the parameters, checks them, raises
// Change and persists them.
//
// A new ellipse has centre (50, 50), RadiusX 50, RadiusY 25 and rotation 0: it lies inside a
// new LuxRectangle (0, 0, 100, 100) touching its left and right sides, and is visibly not a
// circle when drawn over an image. Adornments start at None.
//
// Parameters. Rotation is stored normalised into [-pi, pi) (pi reads back as -pi). Every
// stored value is valid:
//  - a radius <= 0 or NaN is refused with ccQvShapesError::InvalidRadius (E_INVALIDARG);
//  - an infinite radius, a centre or rotation that is not finite: E_INVALIDARG,
//    ids_Core_InvalidArg_1 naming the argument.
//
// The unit-circle transform is centre + R(Rotation) diag(RadiusX, RadiusY): it maps the
// unit circle onto the ellipse. GetUnitCircleTransform answers a new LuxTransform2DLinear
// holding it. SetFromUnitCircleTransform takes any non-singular linear transform and
// decomposes its matrix by its singular values (RadiusX the larger, RadiusY the smaller,
// Rotation the direction of the larger); a singular one is refused with
// ccShapesError::DegenerateShape (e_LuxShape_DegenerateShape), a null one with E_INVALIDARG
// naming "EllipseFromUnitCircle".
//
// GetBoundingRectangleAffine(DeSkew) answers a new LuxRectangleAffine in the ellipse's
// SelectedSpaceName whose sides touch the ellipse at their midpoints: centre, sides
// 2 RadiusX and 2 RadiusY, the ellipse's rotation and skew 0 (the transform the ellipse
// keeps has no skew, so both values of DeSkew give this rectangle).
// SetFromBoundingRectangleAffine(NewBoundingRect) sets the ellipse inscribed in any affine
// rectangle: the image of the unit circle under the map of the square [-1, 1]^2 onto it,
// so a skewed rectangle gives a rotated ellipse touching its four sides at their midpoints.
// The rectangle's SelectedSpaceName is not looked at.
//
// Events: a setter that changes nothing raises nothing. CenterX, CenterY, RadiusX, RadiusY
// and Rotation changed alone (by their properties or by SetCenterXYRadiusXYRotation) raise
// Change(their state ID, the new value, luxFA_Shape_Geometry); a call that changes several
// raises one Change(luxState_MoreThanOneStateIDChanged, empty, luxFA_Shape_Geometry)
// (SetCenterXYRadiusXYRotation, SetFromBoundingRectangleAffine, FitToImage,
// FitToBoundingBox, DragStop). SetFromUnitCircleTransform, whatever it changes, raises one
// Change(luxEllipse_UnitCircleTransform, empty, luxFA_Shape_Geometry): the caller set the
// transform as a whole. The adornments raise Change(their state ID, the new value,
// luxFA_Shape_Graphic); a value outside LuxEllipseDirectionAdornmentConstants is refused
// with E_INVALIDARG, ids_Lux_InvalidArgEnum_1 naming "XDirectionAdornment" or
// "YDirectionAdornment". A refused call changes nothing and raises nothing.
//
// FitToBoundingBox: the ellipse inscribed in the box (centre, radii half the sides,
// rotation 0). FitToImage: the ellipse inscribed in the image's pixel rectangle seen from
// the selected space (an affine rectangle when that space turns or skews), its sides
// scaled by XScale and YScale about its centre.
// MapLinear and Map answer a new LuxEllipse.
//
// Copy flags: the adornments are graphic settings, copied with luxCopyShapeBasicGraphics
// (Copy, CopyBase, Map, MapLinear, MapGraphic, Clone).
//
// MakeShapeModel: shape models are not part of this library; it fails with
// e_Lux_NotImplemented and says so.
//
// Persistence: the common shape keys (ILuxShapeImpl), then "CenterX", "CenterY", "RadiusX",
// "RadiusY", "Rotation" (doubles), "XDirectionAdornment", "YDirectionAdornment" (int32). A
// stored value that is not finite, a radius <= 0 or an adornment outside its enumeration is
// refused with ccArchive::BadContent naming the key (e_Lux_BadFileFormat), and the object
// keeps its state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccEllipse2.h"

namespace tessaly::shape {

class CLuxEllipse
    : public core::ILuxRegionImpl<CLuxEllipse, ILuxEllipse, ILuxGraphicInteractive, LuxEllipseDOFConstants> {
    using Base = core::ILuxRegionImpl<CLuxEllipse, ILuxEllipse, ILuxGraphicInteractive, LuxEllipseDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxEllipse; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxEllipse;

    CLuxEllipse() = default;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxEllipse& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    ccShapePtrh FittedToImage(const ccShape& imageExtent, double xScale, double yScale) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // The direction adornments.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();

    // ILuxEllipse
    HRESULT MakeShapeModel(double Weight, LONG Polarity, VARIANT_BOOL CopyShape, IDispatch** ShapeModel) override;
    HRESULT get_CenterX(double* CenterX) override;
    HRESULT put_CenterX(double CenterX) override;
    HRESULT get_CenterY(double* CenterY) override;
    HRESULT put_CenterY(double CenterY) override;
    HRESULT get_RadiusX(double* RadiusX) override;
    HRESULT put_RadiusX(double RadiusX) override;
    HRESULT get_RadiusY(double* RadiusY) override;
    HRESULT put_RadiusY(double RadiusY) override;
    HRESULT get_Rotation(double* Rotation) override;
    HRESULT put_Rotation(double Rotation) override;
    HRESULT get_Area(double* Area) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT get_XDirectionAdornment(LuxEllipseDirectionAdornmentConstants* Adornment) override;
    HRESULT put_XDirectionAdornment(LuxEllipseDirectionAdornmentConstants Adornment) override;
    HRESULT get_YDirectionAdornment(LuxEllipseDirectionAdornmentConstants* Adornment) override;
    HRESULT put_YDirectionAdornment(LuxEllipseDirectionAdornmentConstants Adornment) override;
    HRESULT GetBoundingRectangleAffine(VARIANT_BOOL DeSkew, ILuxRectangleAffine** BoundingRect) override;
    HRESULT SetFromBoundingRectangleAffine(ILuxRectangleAffine* NewBoundingRect) override;
    HRESULT GetCenterXYRadiusXYRotation(double* CenterX, double* CenterY, double* RadiusX, double* RadiusY,
                                        double* Rotation) override;
    HRESULT SetCenterXYRadiusXYRotation(double CenterX, double CenterY, double RadiusX, double RadiusY,
                                        double Rotation) override;
    HRESULT GetUnitCircleTransform(ILuxTransform2DLinear** EllipseFromUnitCircle) override;
    HRESULT SetFromUnitCircleTransform(ILuxTransform2DLinear* EllipseFromUnitCircle) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) override;

protected:
    ~CLuxEllipse() override = default;

private:
    // The five geometric parameters, as the core holds them (rotation normalised).
    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double radiusX = 50.0;
        double radiusY = 25.0;
        double rotation = 0.0;
    };

    static Params ParamsOf(const ccEllipse2& core) noexcept;
    // The core shape of the parameters, built on first need; lock held.
    const ccEllipse2& CoreLocked() const;
    template <class Reader>
    HRESULT Read(const char* method, Reader&& read) const;
    // Builds the new geometry from the present one with `make` (which validates and may
    // refuse), stores it and raises one Change: for what differs, or with `wholeStateId`
    // when that is given and anything differs.
    template <class Make>
    HRESULT Modify(const char* method, Make&& make, int32_t wholeStateId = luxState_Undefined);
    // Stores a valid geometry and answers the state ID to announce (luxState_Undefined when
    // nothing differs) and the value that goes with it; lock held.
    int32_t StoreLocked(const ccEllipse2Ptrh& next, double& announced) noexcept;

    // Guarded by the lock. core_ follows params_: null until asked for after a load.
    Params params_;
    mutable ccEllipse2Ptrh_const core_;
};

}  // namespace tessaly::shape
