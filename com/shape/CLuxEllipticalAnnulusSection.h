// LuxEllipticalAnnulusSection: the part of an elliptical ring between two radial lines, a
// region and an interactive graphic (ILuxRegionImpl). The start arc lies on the ellipse of
// centre (CenterX, CenterY), radii RadiusX and RadiusY (along the ellipse's own axes) and
// rotation Rotation, from the ellipse angle AngleStart over the signed AngleSpan; the end
// arc is the start arc scaled by RadialScale about the centre; the radial lines join their
// ends. The core shape (ccEllipseAnnulus) does the mathematics: area, perimeter, the scan
// converter behind CreateRLE, the nearest point, mapping.
//
// A new section has centre (50, 50), radii 25 and 25, rotation 0, AngleStart 0, AngleSpan
// pi, RadialScale 2: the lower half (y grows downwards in an image) of the ring between
// the circles of radius 25 and 50 about (50, 50), inside the pixels of a new rectangle
// (0, 0, 100, 100). Adornments start at None, ManipArcFraction at 0.5.
//
// Parameters. Rotation is stored normalised into [-pi, pi) (pi reads back as -pi).
// AngleStart and AngleSpan are kept as given: a span of 4 pi is a span of 4 pi, and a start
// of 7 reads back as 7. Refusals (the object unchanged, no event):
//  - RadiusX or RadiusY <= 0 (or NaN): ccQvShapesError::InvalidRadius;
//  - AngleSpan exactly 0 (or NaN): ccQvShapesError::InvalidAngleSpan;
//  - RadialScale <= 0, exactly 1 (or NaN): ccQvShapesError::InvalidRadialScale;
//  - an infinite value: E_INVALIDARG, ids_Core_InvalidArg_1 naming the argument;
//  - ManipArcFraction outside [0.000001, 0.999999]: ccQvShapesError::InvalidEllipseFraction.
//
// Events: a setter that changes nothing raises nothing. Each geometric property changed
// alone raises Change(its state ID, the new value, luxFA_Shape_Geometry);
// SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale, FitToImage, FitToBoundingBox
// and DragStop raise one Change for the call: the property's state ID when one parameter
// changed, luxState_MoreThanOneStateIDChanged when several did. SetFromUnitCircleParams
// raises one Change(luxEllipticalAnnulusSection_UnitCircleParams, empty,
// luxFA_Shape_Geometry) whenever the geometry changed, however many parameters did. The
// three adornments and ManipArcFraction are graphic settings: Change(their state ID, the
// new value, luxFA_Shape_Graphic); a value outside the adornment's enumeration is refused
// with E_INVALIDARG, ids_Lux_InvalidArgEnum_1 naming the property.
//
// Unit-circle parameters. GetUnitCircleParams answers AngleStart, AngleSpan, RadialScale
// and a new LuxTransform2DLinear: the translation to the centre after the rotation after
// the scaling by (RadiusX, RadiusY), which maps the unit circle onto the start arc's
// ellipse and the angle t on it to the ellipse angle t. SetFromUnitCircleParams takes any
// linear transform whose matrix is not singular (e_LuxTransform_Singular otherwise, or the
// core's refusal); the section becomes the image under it of the unit-circle section from
// UnitCircleAngleStart over UnitCircleAngleSpan with RadialScale. A mirroring transform
// reverses the sign of the span.
//
// Copy flags: the adornments and ManipArcFraction travel with luxCopyShapeBasicGraphics
// (CopyBase, Map, MapGraphic, Clone); the interface has no Copy or MapLinear of its own.
//
// Persistence: the common shape keys, then "CenterX", "CenterY", "RadiusX", "RadiusY",
// "Rotation", "AngleStart", "AngleSpan", "RadialScale", "ManipArcFraction" (doubles),
// "ArcDirectionAdornment", "RadialDirectionAdornment", "CenterArcAdornment" (int32). A load
// whose values do not make a valid section is refused with ccArchive::BadContent
// (e_Lux_BadFileFormat) naming the key, and the object keeps its state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "platform/ComPtr.h"

namespace tessaly::shape {

// The fraction range of ManipArcFraction, and the refusal outside it.
double CheckedManipArcFraction(double fraction);

class CLuxEllipticalAnnulusSection
    : public core::ILuxRegionImpl<CLuxEllipticalAnnulusSection, ILuxEllipticalAnnulusSection, ILuxGraphicInteractive,
                                  LuxEllipticalAnnulusSectionDOFConstants> {
    using Base = core::ILuxRegionImpl<CLuxEllipticalAnnulusSection, ILuxEllipticalAnnulusSection,
                                      ILuxGraphicInteractive, LuxEllipticalAnnulusSectionDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxEllipticalAnnulusSection; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxEllipticalAnnulusSection;

    // The geometric parameters (Rotation normalised).
    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double radiusX = 25.0;
        double radiusY = 25.0;
        double rotation = 0.0;
        double angleStart = 0.0;
        double angleSpan = 3.141592653589793;
        double radialScale = 2.0;
    };

    CLuxEllipticalAnnulusSection() = default;

    // Checks `p` (the core's rules) and answers its core shape.
    static ccShapePtrh NewCore(const Params& p);
    Params Parameters() const;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxEllipticalAnnulusSection& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // The adornments, the same names in both section classes.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();
    // The enumerated settings, and ManipArcFraction to a section of either class.
    void LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const;

    double ManipArcFraction() const;
    // For a new object nobody has seen: no event.
    void TakeManipArcFraction(double fraction);

    // ILuxEllipticalAnnulusSection
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
    HRESULT get_AngleStart(double* AngleStart) override;
    HRESULT put_AngleStart(double AngleStart) override;
    HRESULT get_AngleSpan(double* AngleSpan) override;
    HRESULT put_AngleSpan(double AngleSpan) override;
    HRESULT get_RadialScale(double* RadialScale) override;
    HRESULT put_RadialScale(double RadialScale) override;
    HRESULT get_Area(double* Area) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT get_ArcDirectionAdornment(LuxEllipticalAnnulusSectionDirectionAdornmentConstants* Adornment) override;
    HRESULT put_ArcDirectionAdornment(LuxEllipticalAnnulusSectionDirectionAdornmentConstants Adornment) override;
    HRESULT get_RadialDirectionAdornment(LuxEllipticalAnnulusSectionDirectionAdornmentConstants* Adornment) override;
    HRESULT put_RadialDirectionAdornment(LuxEllipticalAnnulusSectionDirectionAdornmentConstants Adornment) override;
    HRESULT get_CenterArcAdornment(LuxEllipticalAnnulusSectionCenterArcAdornmentConstants* Adornment) override;
    HRESULT put_CenterArcAdornment(LuxEllipticalAnnulusSectionCenterArcAdornmentConstants Adornment) override;
    HRESULT get_ManipArcFraction(double* Fraction) override;
    HRESULT put_ManipArcFraction(double Fraction) override;
    HRESULT GetUnitCircleParams(double* UnitCircleAngleStart, double* UnitCircleAngleSpan, double* RadialScale,
                                ILuxTransform2DLinear** EllipseFromUnitCircle) override;
    HRESULT GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(double* CenterX, double* CenterY, double* RadiusX,
                                                                    double* RadiusY, double* Rotation,
                                                                    double* AngleStart, double* AngleSpan,
                                                                    double* RadialScale) override;
    HRESULT SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(double CenterX, double CenterY, double RadiusX,
                                                                    double RadiusY, double Rotation, double AngleStart,
                                                                    double AngleSpan, double RadialScale) override;
    HRESULT SetFromUnitCircleParams(double UnitCircleAngleStart, double UnitCircleAngleSpan, double RadialScale,
                                    ILuxTransform2DLinear* EllipseFromUnitCircle) override;

protected:
    ~CLuxEllipticalAnnulusSection() override = default;

private:
    static Params ParamsOf(const ccShape& core);
    const ccShape& CoreLocked() const;
    template <class Make>
    HRESULT Modify(const char* method, Make&& make, int32_t forcedStateId = 0);
    int32_t StoreLocked(const Params& next, const ccShapePtrh& core, double& announced) noexcept;

    // Guarded by the lock; core_ follows params_ (null until asked for after a load).
    Params params_;
    mutable ccShapePtrh_const core_;
    double manipArcFraction_ = 0.5;
};

}  // namespace tessaly::shape
