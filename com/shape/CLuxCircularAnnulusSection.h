// LuxCircularAnnulusSection: the part of a ring between two radial lines, a region and an
// interactive graphic (ILuxRegionImpl). The start arc has centre (CenterX, CenterY) and
// radius Radius and runs from AngleStart over the signed AngleSpan; the end arc is the start
// arc scaled by RadialScale about the centre (RadialScale > 1: the start arc is the inner
// one; < 1: the outer one); the radial lines join their ends. The core shape does the
// mathematics (area, perimeter, the scan converter behind CreateRLE, mapping).
//
// A new section has centre (50, 50), Radius 25, AngleStart 0, AngleSpan pi, RadialScale 2:
// the lower half (y grows downwards in an image) of the ring between the circles of radius
// 25 and 50 about (50, 50), inside the pixels of a new rectangle (0, 0, 100, 100).
// Adornments start at None, ManipArcFraction at 0.5.
//
// Parameters. AngleStart and AngleSpan are kept as given (a span of 4 pi stays 4 pi, a
// start of 7 reads back as 7). Refusals (the object unchanged, no event):
//  - Radius <= 0 (or NaN): ccQvShapesError::InvalidRadius;
//  - AngleSpan exactly 0 (or NaN): ccQvShapesError::InvalidAngleSpan;
//  - RadialScale <= 0, exactly 1 (or NaN): ccQvShapesError::InvalidRadialScale;
//  - an infinite value: E_INVALIDARG, ids_Core_InvalidArg_1 naming the argument;
//  - ManipArcFraction outside [0.000001, 0.999999]: ccQvShapesError::InvalidEllipseFraction.
//
// Events: a setter that changes nothing raises nothing. Each geometric property changed
// alone raises Change(its state ID, the new value, luxFA_Shape_Geometry);
// SetCenterRadiusAngleStartAngleSpanRadialScale, FitToImage, FitToBoundingBox and DragStop
// raise one Change a call (luxState_MoreThanOneStateIDChanged when several parameters
// changed). The adornments and ManipArcFraction are graphic settings: Change(their state
// ID, the new value, luxFA_Shape_Graphic); an adornment outside its enumeration is refused
// with E_INVALIDARG, ids_Lux_InvalidArgEnum_1 naming the property.
//
// MapLinear answers a LuxEllipticalAnnulusSection (whatever the transform), Map the class
// the mapped core shape belongs to. CreateCircularArc(RadialFraction, CopyFlags) answers the
// LuxCircularArc of radius Radius * (1 + RadialFraction * (RadialScale - 1)) with the
// section's centre, AngleStart and AngleSpan: 0 the start arc, 0.5 the centre arc, 1 the end
// arc; a fraction outside [0, 1] (or NaN) is refused with E_INVALIDARG,
// ids_Lux_InvalidArgValue_1 naming "RadialFraction". The copy flags select what the arc
// takes of the section's common state (SelectedSpaceName always).
//
// Copy flags: the adornments and ManipArcFraction travel with luxCopyShapeBasicGraphics
// (Copy, CopyBase, Map, MapLinear, MapGraphic, Clone).
//
// Persistence: the common shape keys, then "CenterX", "CenterY", "Radius", "AngleStart",
// "AngleSpan", "RadialScale", "ManipArcFraction" (doubles), "ArcDirectionAdornment",
// "RadialDirectionAdornment", "CenterArcAdornment" (int32). A load whose values do not make
// a valid section is refused with ccArchive::BadContent (e_Lux_BadFileFormat) naming the
// key, and the object keeps its state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "com/shape/CLuxEllipticalAnnulusSection.h"
#include "platform/ComPtr.h"

namespace tessaly::shape {

class CLuxCircularAnnulusSection
    : public core::ILuxRegionImpl<CLuxCircularAnnulusSection, ILuxCircularAnnulusSection, ILuxGraphicInteractive,
                                  LuxCircularAnnulusSectionDOFConstants> {
    using Base = core::ILuxRegionImpl<CLuxCircularAnnulusSection, ILuxCircularAnnulusSection, ILuxGraphicInteractive,
                                      LuxCircularAnnulusSectionDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxCircularAnnulusSection; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxCircularAnnulusSection;

    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double radius = 25.0;
        double angleStart = 0.0;
        double angleSpan = 3.141592653589793;
        double radialScale = 2.0;
    };

    CLuxCircularAnnulusSection() = default;

    // Checks `p` (the core's rules) and answers its core shape.
    static ccShapePtrh NewCore(const Params& p);
    Params Parameters() const;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxCircularAnnulusSection& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // The adornments, the same names in both section classes.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();
    // The enumerated settings, and ManipArcFraction to a section of either class.
    void LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const;

    double ManipArcFraction() const;
    // For a new object nobody has seen: no event.
    void TakeManipArcFraction(double fraction);

    // ILuxCircularAnnulusSection
    HRESULT get_CenterX(double* CenterX) override;
    HRESULT put_CenterX(double CenterX) override;
    HRESULT get_CenterY(double* CenterY) override;
    HRESULT put_CenterY(double CenterY) override;
    HRESULT get_Radius(double* Radius) override;
    HRESULT put_Radius(double Radius) override;
    HRESULT get_AngleStart(double* AngleStart) override;
    HRESULT put_AngleStart(double AngleStart) override;
    HRESULT get_AngleSpan(double* AngleSpan) override;
    HRESULT put_AngleSpan(double AngleSpan) override;
    HRESULT get_RadialScale(double* RadialScale) override;
    HRESULT put_RadialScale(double RadialScale) override;
    HRESULT get_ArcDirectionAdornment(LuxCircularAnnulusSectionDirectionAdornmentConstants* Adornment) override;
    HRESULT put_ArcDirectionAdornment(LuxCircularAnnulusSectionDirectionAdornmentConstants Adornment) override;
    HRESULT get_RadialDirectionAdornment(LuxCircularAnnulusSectionDirectionAdornmentConstants* Adornment) override;
    HRESULT put_RadialDirectionAdornment(LuxCircularAnnulusSectionDirectionAdornmentConstants Adornment) override;
    HRESULT get_CenterArcAdornment(LuxCircularAnnulusSectionCenterArcAdornmentConstants* Adornment) override;
    HRESULT put_CenterArcAdornment(LuxCircularAnnulusSectionCenterArcAdornmentConstants Adornment) override;
    HRESULT SetCenterRadiusAngleStartAngleSpanRadialScale(double CenterX, double CenterY, double Radius,
                                                          double AngleStart, double AngleSpan,
                                                          double RadialScale) override;
    HRESULT GetCenterRadiusAngleStartAngleSpanRadialScale(double* CenterX, double* CenterY, double* Radius,
                                                          double* AngleStart, double* AngleSpan,
                                                          double* RadialScale) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                      ILuxEllipticalAnnulusSection** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxCircularAnnulusSection** Result) override;
    HRESULT CreateCircularArc(double RadialFraction, LuxCopyShapeConstants CopyFlags,
                              ILuxCircularArc** Result) override;
    HRESULT get_Area(double* Area) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT get_ManipArcFraction(double* Fraction) override;
    HRESULT put_ManipArcFraction(double Fraction) override;

protected:
    ~CLuxCircularAnnulusSection() override = default;

private:
    static Params ParamsOf(const ccShape& core);
    const ccShape& CoreLocked() const;
    template <class Make>
    HRESULT Modify(const char* method, Make&& make);
    int32_t StoreLocked(const Params& next, const ccShapePtrh& core, double& announced) noexcept;

    // Guarded by the lock; core_ follows params_ (null until asked for after a load).
    Params params_;
    mutable ccShapePtrh_const core_;
    double manipArcFraction_ = 0.5;
};

}  // namespace tessaly::shape
