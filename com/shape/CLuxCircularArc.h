// LuxCircularArc: an open arc of a circle in its selected space, given by its centre, its
// radius, the angle of its start point and a signed span; a shape and an interactive
// graphic, not a region (ILuxShapeImpl). The core shape is a ccEllipseArc2 with equal radii
// and no rotation, which does the mathematics (bounding box of the arc, nearest point,
// sampling, mapping); this class holds the parameters, checks them, raises Change and
// persists them.
//
// A new circular arc has centre (50, 50), radius 50, AngleStart 0 and AngleSpan pi: the
// half of the circle below its centre (y grows downwards), from (100, 50) through
// (50, 100) to (0, 50), in the same neighbourhood as a new rectangle (0, 0, 100, 100).
// Adornments start at None, DisplayMode at luxCircularArcDisplayModeMathematical and
// DisplayedRadiusInScreenPixels at 50.
//
// Parameters. A point at angle t lies at centre + Radius (cos t, sin t). The end point
// lies at AngleStart + AngleSpan; the span's sign gives the direction, and a span beyond
// +-2 pi is kept as given (4 pi runs round twice). AngleStart is kept as given too, so
// that AngleStart + AngleSpan reads back as the end the caller meant. Every stored value is
// valid:
//  - Radius <= 0 or NaN: ccQvShapesError::InvalidRadius (E_INVALIDARG);
//  - AngleSpan exactly 0 or NaN: ccQvShapesError::InvalidAngleSpan (E_INVALIDARG);
//  - any other infinite or NaN argument: E_INVALIDARG, ids_Core_InvalidArg_1 naming it;
//  - DisplayedRadiusInScreenPixels not > 0 (or infinite): E_INVALIDARG,
//    ids_Lux_InvalidArgNotPositive_1 naming "DisplayedRadiusInScreenPixels";
//  - an adornment or display mode outside its enumeration: E_INVALIDARG,
//    ids_Lux_InvalidArgEnum_1 naming the property.
//
// Events: a setter that changes nothing raises nothing; a refused call changes nothing and
// raises nothing. A geometric parameter changed alone raises Change(its state ID, the new
// value, luxFA_Shape_Geometry); several changed by one call (SetCenterRadiusAngleStartAngleSpan,
// FitToImage, FitToBoundingBox, DragStop) raise one Change(luxState_MoreThanOneStateIDChanged,
// empty, luxFA_Shape_Geometry). The adornments, DisplayMode and DisplayedRadiusInScreenPixels
// are graphic settings: Change(their state ID, the new value, luxFA_Shape_Graphic), copied
// with luxCopyShapeBasicGraphics.
//
// MapLinear and Map answer a LuxEllipticalArc (a circle through a linear map is an ellipse),
// which takes the start and end adornments and the direction adornment with
// luxCopyShapeBasicGraphics. CreateCircle answers the full LuxCircle of the same centre and
// radius. FitToBoundingBox and FitToImage give the arc the circle inscribed in the box
// (radius half the shorter side, at the box's centre) and keep the angles.
//
// Persistence: the common shape keys, then "CenterX", "CenterY", "Radius", "AngleStart",
// "AngleSpan", "DisplayedRadiusInScreenPixels" (doubles), "StartPointAdornment",
// "EndPointAdornment", "DirectionAdornment", "DisplayMode" (int32). A stored value that is
// not finite, a radius <= 0, a span of 0, a displayed radius <= 0 or an enumeration value
// out of range is refused with ccArchive::BadContent naming the key; the object keeps its
// state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxShapeImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccEllipseArc2.h"

namespace tessaly::shape {

class CLuxCircularArc
    : public core::ILuxShapeImpl<CLuxCircularArc, ILuxCircularArc, ILuxGraphicInteractive, LuxCircularArcDOFConstants> {
    using Base =
        core::ILuxShapeImpl<CLuxCircularArc, ILuxCircularArc, ILuxGraphicInteractive, LuxCircularArcDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxCircularArc; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxCircularArc;

    CLuxCircularArc() = default;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxCircularArc& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // The adornments and DisplayMode; the elliptical arc a map makes takes the adornments.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();
    // The enumerated settings, and DisplayedRadiusInScreenPixels to a circular arc.
    void LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const;

    // ILuxCircularArc
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
    HRESULT get_ArcLength(double* ArcLength) override;
    HRESULT get_StartX(double* StartX) override;
    HRESULT get_StartY(double* StartY) override;
    HRESULT get_EndX(double* EndX) override;
    HRESULT get_EndY(double* EndY) override;
    HRESULT get_MidpointX(double* MidpointX) override;
    HRESULT get_MidpointY(double* MidpointY) override;
    HRESULT get_StartPointAdornment(LuxCircularArcAdornmentConstants* Adornment) override;
    HRESULT put_StartPointAdornment(LuxCircularArcAdornmentConstants Adornment) override;
    HRESULT get_EndPointAdornment(LuxCircularArcAdornmentConstants* Adornment) override;
    HRESULT put_EndPointAdornment(LuxCircularArcAdornmentConstants Adornment) override;
    HRESULT get_DirectionAdornment(LuxCircularArcDirectionAdornmentConstants* Adornment) override;
    HRESULT put_DirectionAdornment(LuxCircularArcDirectionAdornmentConstants Adornment) override;
    HRESULT get_DisplayMode(LuxCircularArcDisplayModeConstants* Mode) override;
    HRESULT put_DisplayMode(LuxCircularArcDisplayModeConstants Mode) override;
    HRESULT get_DisplayedRadiusInScreenPixels(double* Radius) override;
    HRESULT put_DisplayedRadiusInScreenPixels(double Radius) override;
    HRESULT SetCenterRadiusAngleStartAngleSpan(double CenterX, double CenterY, double Radius, double AngleStart,
                                               double AngleSpan) override;
    HRESULT GetCenterRadiusAngleStartAngleSpan(double* CenterX, double* CenterY, double* Radius, double* AngleStart,
                                               double* AngleSpan) override;
    HRESULT GetStartEnd(double* StartX, double* StartY, double* EndX, double* EndY) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                      ILuxEllipticalArc** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxCircularArc** Result) override;
    HRESULT CreateCircle(LuxCopyShapeConstants CopyFlags, ILuxCircle** Result) override;

protected:
    ~CLuxCircularArc() override = default;

private:
    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double radius = 50.0;
        double angleStart = 0.0;
        double angleSpan = 3.141592653589793;
        bool operator==(const Params&) const = default;
    };

    // Refuses what cannot make an arc (see the rules above).
    static void Validate(const Params& p);
    static ccEllipseArc2Ptrh CoreOf(const Params& p);
    // The point at angle t.
    static void PointAt(const Params& p, double angle, double* x, double* y) noexcept;

    template <class Reader>
    HRESULT Read(const char* method, Reader&& read) const;
    // Builds the new parameters from the present ones with `make`, validates and stores
    // them and raises one Change for what differs.
    template <class Make>
    HRESULT Modify(const char* method, Make&& make);
    // Stores valid parameters and answers the state ID to announce; lock held.
    int32_t StoreLocked(const Params& next, double& announced) noexcept;

    // Guarded by the lock.
    Params params_;
    double screenRadius_ = 50.0;
};

}  // namespace tessaly::shape
