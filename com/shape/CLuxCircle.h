// LuxCircle: a filled circle in its selected space, given by its centre and radius; a region
// and an interactive graphic (ILuxRegionImpl). The core shape is a ccCircle, which does the
// mathematics (area, perimeter, the scan converter behind CreateRLE, the nearest point);
// this class holds the parameters, checks them, raises Change and persists them.
//
// A new circle has centre (50, 50) and radius 50: it touches the sides of a new
// LuxRectangle (0, 0, 100, 100), so that a fresh one drawn over an image is visible.
//
// Parameters. Every stored value is valid:
//  - a radius <= 0 or NaN is refused with ccQvShapesError::InvalidRadius (E_INVALIDARG);
//  - an infinite radius or a centre that is not finite: E_INVALIDARG, ids_Core_InvalidArg_1
//    naming the argument.
//
// Events: a setter that changes nothing raises nothing. CenterX, CenterY and Radius changed
// alone (by their properties or by SetCenterRadius) raise Change(their state ID, the new
// value, luxFA_Shape_Geometry); a call that changes two or three of them raises one
// Change(luxState_MoreThanOneStateIDChanged, empty, luxFA_Shape_Geometry), as do
// FitToImage, FitToBoundingBox and DragStop when they change several. A refused call
// changes nothing and raises nothing.
//
// FitToBoundingBox: the largest circle in the box, at its centre (radius half the shorter
// side). FitToImage: the same for the bounding box of the image's extent in the selected
// space, scaled by XScale and YScale about its centre.
// MapLinear and Map answer a new LuxEllipse (a linear map makes an ellipse of a circle, even
// a similarity: the result's class does not depend on the transform's numbers).
//
// MakeShapeModel: shape models are not part of this library; it fails with
// e_Lux_NotImplemented and says so.
//
// Persistence: the common shape keys (ILuxShapeImpl), then "CenterX", "CenterY", "Radius"
// (doubles). A stored value that is not finite or a radius <= 0 is refused with
// ccArchive::BadContent naming the key (e_Lux_BadFileFormat), and the object keeps its state.
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccCircle.h"

namespace tessaly::shape {

class CLuxCircle
    : public core::ILuxRegionImpl<CLuxCircle, ILuxCircle, ILuxGraphicInteractive, LuxCircleDOFConstants> {
    using Base = core::ILuxRegionImpl<CLuxCircle, ILuxCircle, ILuxGraphicInteractive, LuxCircleDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxCircle; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxCircle;

    CLuxCircle() = default;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxCircle& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);

    // ILuxCircle
    HRESULT MakeShapeModel(double Weight, LONG Polarity, VARIANT_BOOL CopyShape, IDispatch** ShapeModel) override;
    HRESULT get_CenterX(double* CenterX) override;
    HRESULT put_CenterX(double CenterX) override;
    HRESULT get_CenterY(double* CenterY) override;
    HRESULT put_CenterY(double CenterY) override;
    HRESULT get_Radius(double* Radius) override;
    HRESULT put_Radius(double Radius) override;
    HRESULT get_Area(double* Area) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT SetCenterRadius(double CenterX, double CenterY, double Radius) override;
    HRESULT GetCenterRadius(double* CenterX, double* CenterY, double* Radius) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags, ILuxEllipse** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxCircle** Result) override;

protected:
    ~CLuxCircle() override = default;

private:
    struct Params {
        double centerX = 50.0;
        double centerY = 50.0;
        double radius = 50.0;
    };

    // The core shape of the parameters, built on first need; lock held.
    const ccCircle& CoreLocked() const;
    template <class Reader>
    HRESULT Read(const char* method, Reader&& read) const;
    // Edits a copy of the parameters with `edit`, validates and stores it and raises one
    // Change for what differs.
    template <class Edit>
    HRESULT Modify(const char* method, Edit&& edit);
    // Stores valid parameters and answers the state ID to announce (luxState_Undefined when
    // nothing differs) and the value that goes with it; lock held.
    int32_t StoreLocked(const Params& next, double& announced) noexcept;

    // Guarded by the lock. core_ follows params_: null until asked for.
    Params params_;
    mutable ccCirclePtrh_const core_;
};

}  // namespace tessaly::shape
