// LuxEllipticalArc: an open arc of an ellipse in its selected space, given by the ellipse
// (centre, RadiusX along its own x-axis, RadiusY, Rotation of that axis) and the angles of
// the arc on it; a shape and an interactive graphic, not a region (ILuxShapeImpl). The core
// shape is a ccEllipseArc2, which does the mathematics (arc length by the incomplete
// elliptic integral, the unit-circle decomposition, bounding box, nearest point, sampling,
// mapping); this class holds the parameters, checks them through the core, raises Change
// and persists them.
//
// A new elliptical arc has centre (50, 50), RadiusX 50, RadiusY 25, Rotation 0,
// AngleStart 0 and AngleSpan pi: the lower half of a flat ellipse from (100, 50) through
// (50, 75) to (0, 50). Adornments start at None.
//
// Parameters. The point at angle t is centre + R(Rotation) (RadiusX cos t, RadiusY sin t):
// angles are measured on the unit circle, from the ellipse's x-axis. Rotation is stored
// normalised into [-pi, pi); AngleStart and AngleSpan are kept as given (a span of 4 pi
// runs round twice and counts both turns in ArcLength). Refusals (nothing changes, nothing
// is raised):
//  - a radius <= 0 or NaN: ccQvShapesError::InvalidRadius (E_INVALIDARG);
//  - AngleSpan exactly 0 or NaN: ccQvShapesError::InvalidAngleSpan (E_INVALIDARG);
//  - any other infinite or NaN argument: E_INVALIDARG, ids_Core_InvalidArg_1 naming it;
//  - an adornment outside its enumeration: E_INVALIDARG, ids_Lux_InvalidArgEnum_1 naming
//    the property.
//
// Unit-circle parameters. GetUnitCircleParams answers AngleStart, AngleSpan and a new
// LuxTransform2DLinear, centre + R(Rotation) diag(RadiusX, RadiusY). SetFromUnitCircleParams
// takes the arc from UnitCircleAngleStart over UnitCircleAngleSpan of the unit circle
// through any non-singular linear transform: the ellipse is decomposed by singular values
// (RadiusX >= RadiusY), the angles carried over, and a mirroring transform negates the span
// so that the arc still runs from the image of the start to the image of the end. A
// singular transform is refused with ccShapesError::DegenerateShape, a null one with
// E_INVALIDARG naming "EllipseFromUnitCircle".
//
// Events: a setter that changes nothing raises nothing. A parameter changed alone raises
// Change(its state ID, the new value, luxFA_Shape_Geometry); several changed by one call
// (SetCenterRadiusXYRotationAngleStartAngleSpan, FitToImage, FitToBoundingBox, DragStop)
// raise one Change(luxState_MoreThanOneStateIDChanged, empty, luxFA_Shape_Geometry).
// SetFromUnitCircleParams, which sets the arc as one value, raises
// Change(luxEllipticalArc_UnitCircleParams, empty, luxFA_Shape_Geometry) when anything
// changed. The adornments raise Change(their state ID, the new value, luxFA_Shape_Graphic)
// and are copied with luxCopyShapeBasicGraphics.
//
// MapLinear and Map answer a new LuxEllipticalArc. CreateEllipse answers the LuxEllipse of
// the same centre, radii and rotation, so of the same unit-circle transform.
// FitToBoundingBox and FitToImage give the arc the ellipse inscribed in the box (rotation 0,
// radii half the sides) and keep the angles. MakeShapeModel: shape models are not part of
// this library; it fails with e_Lux_NotImplemented.
//
// Persistence: the common shape keys, then "CenterX", "CenterY", "RadiusX", "RadiusY",
// "Rotation", "AngleStart", "AngleSpan" (doubles), "StartPointAdornment",
// "EndPointAdornment", "DirectionAdornment" (int32). A stored value that is not finite, a
// radius <= 0, a span of 0 or an adornment outside its enumeration is refused with
// ccArchive::BadContent naming the key; the object keeps its state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxShapeImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccEllipseArc2.h"

namespace tessaly::shape {

class CLuxEllipticalArc : public core::ILuxShapeImpl<CLuxEllipticalArc, ILuxEllipticalArc, ILuxGraphicInteractive,
                                                     LuxEllipticalArcDOFConstants> {
    using Base = core::ILuxShapeImpl<CLuxEllipticalArc, ILuxEllipticalArc, ILuxGraphicInteractive,
                                     LuxEllipticalArcDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxEllipticalArc; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxEllipticalArc;

    CLuxEllipticalArc() = default;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxEllipticalArc& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // The adornments; a circular arc mapped into this class lends its own of the same names.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();

    // ILuxEllipticalArc
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
    HRESULT get_AngleStart(double* AngleStart) override;
    HRESULT put_AngleStart(double AngleStart) override;
    HRESULT get_AngleSpan(double* AngleSpan) override;
    HRESULT put_AngleSpan(double AngleSpan) override;
    HRESULT get_ArcLength(double* ArcLength) override;
    HRESULT get_StartX(double* StartX) override;
    HRESULT get_StartY(double* StartY) override;
    HRESULT get_EndX(double* EndX) override;
    HRESULT get_EndY(double* EndY) override;
    HRESULT get_StartPointAdornment(LuxEllipticalArcAdornmentConstants* Adornment) override;
    HRESULT put_StartPointAdornment(LuxEllipticalArcAdornmentConstants Adornment) override;
    HRESULT get_EndPointAdornment(LuxEllipticalArcAdornmentConstants* Adornment) override;
    HRESULT put_EndPointAdornment(LuxEllipticalArcAdornmentConstants Adornment) override;
    HRESULT get_DirectionAdornment(LuxEllipticalArcDirectionAdornmentConstants* Adornment) override;
    HRESULT put_DirectionAdornment(LuxEllipticalArcDirectionAdornmentConstants Adornment) override;
    HRESULT GetUnitCircleParams(double* UnitCircleAngleStart, double* UnitCircleAngleSpan,
                                ILuxTransform2DLinear** EllipseFromUnitCircle) override;
    HRESULT GetCenterRadiusXYRotationAngleStartAngleSpan(double* CenterX, double* CenterY, double* RadiusX,
                                                         double* RadiusY, double* Rotation, double* AngleStart,
                                                         double* AngleSpan) override;
    HRESULT SetCenterRadiusXYRotationAngleStartAngleSpan(double CenterX, double CenterY, double RadiusX, double RadiusY,
                                                         double Rotation, double AngleStart,
                                                         double AngleSpan) override;
    HRESULT GetStartEnd(double* StartX, double* StartY, double* EndX, double* EndY) override;
    HRESULT SetFromUnitCircleParams(double UnitCircleAngleStart, double UnitCircleAngleSpan,
                                    ILuxTransform2DLinear* EllipseFromUnitCircle) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                      ILuxEllipticalArc** Result) override;
    HRESULT CreateEllipse(LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxEllipticalArc** Result) override;

protected:
    ~CLuxEllipticalArc() override = default;

private:
    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double radiusX = 50.0;
        double radiusY = 25.0;
        double rotation = 0.0;
        double angleStart = 0.0;
        double angleSpan = 3.141592653589793;
    };

    // The core arc of valid parameters; refuses invalid ones (see the rules above) and
    // answers the parameters as stored (the rotation normalised).
    static ccEllipseArc2Ptrh CoreOf(const Params& p);
    static Params Checked(const Params& p);
    // The parameters of a core arc; the start angle stays `keptStart` when the core's only
    // differs from it by whole turns.
    static Params ParamsOf(const ccEllipseArc2& arc, double keptStart) noexcept;

    template <class Reader>
    HRESULT Read(const char* method, Reader&& read) const;
    // Builds the new parameters from the present ones with `make`, checks and stores them
    // and raises one Change: for the field that changed, for several, or `wholeStateId`
    // for any change when it is given.
    template <class Make>
    HRESULT Modify(const char* method, Make&& make, int32_t wholeStateId = luxState_Undefined);
    int32_t StoreLocked(const Params& next, double& announced) noexcept;

    // Guarded by the lock.
    Params params_;
};

}  // namespace tessaly::shape
