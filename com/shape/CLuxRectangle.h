// LuxRectangle: an axis-aligned rectangle in its selected space, given by its corner of
// least coordinates (X, Y), Width and Height; a region and an interactive graphic
// (ILuxRegionImpl). Its core shape is a ccRect: as a region it holds the points
// X <= x < X + Width, Y <= y < Y + Height, so (0, 0, 10, 10) holds exactly the pixels
// 0..9 x 0..9.
//
// A new rectangle is (0, 0, 100, 100): the pixels 0..99 x 0..99, big enough to see and to
// grab when it is drawn over an image, and the same region as a new LuxRectangleAffine
// (centre (50, 50), sides 100); FitToImage and FitToBoundingBox give it a working size. Width and Height are always > 0: a value <= 0 (or NaN) is refused with
// E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1 naming "Width" or "Height";
// SetXYWidthHeight and SetCenterWidthHeight check Width first, then Height, and change
// nothing when either fails.
//
// Events: a setter that changes one parameter raises Change(its state ID, the new value,
// luxFA_Shape_Geometry); one that changes several raises one
// Change(luxState_MoreThanOneStateIDChanged, empty, luxFA_Shape_Geometry); one that changes
// nothing raises nothing. Setters allocate nothing while no sink is connected.
//
// Intersect, Dilate, Erode and Union take the other rectangle's X, Y, Width and Height
// (any implementation; its SelectedSpaceName is not looked at) and answer a new rectangle
// with this one's SelectedSpaceName and what CopyFlags selects of this one:
//  - Intersect: the common part; rectangles that do not overlap (or only touch along an
//    edge) have none: ccShapesError::DegenerateShape.
//  - Union: the smallest rectangle holding both.
//  - Dilate: (X + Other.X, Y + Other.Y, Width + Other.Width, Height + Other.Height), the
//    Minkowski sum; Erode its inverse, refused with ccShapesError::DegenerateShape when
//    Other is at least as wide or as high as this rectangle.
// MapLinear is Map through a linear transform: a LuxRectangle when the matrix is diagonal,
// a LuxRectangleAffine when it rotates or skews.
//
// Persistence: the common shape keys (ILuxShapeImpl), then "X", "Y", "Width", "Height"
// (doubles). A stored Width or Height <= 0 is refused (ccArchive::BadContent).
#pragma once

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccRect.h"

namespace tessaly::shape {

class CLuxRectangle
    : public core::ILuxRegionImpl<CLuxRectangle, ILuxRectangle, ILuxGraphicInteractive, LuxRectangleDOFConstants> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxRectangle; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxRectangle;

    CLuxRectangle() = default;

    // A new object holding `rect` (whose width and height must be > 0).
    static ComPtr<CLuxRectangle> FromCore(const ccRect& rect);
    // A snapshot of the parameters, under the lock.
    ccRectPtrh Value() const;

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxRectangle& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);

    // ILuxRectangle
    HRESULT get_X(double* X) override;
    HRESULT put_X(double X) override;
    HRESULT get_Y(double* Y) override;
    HRESULT put_Y(double Y) override;
    HRESULT get_CenterX(double* CenterX) override;
    HRESULT get_CenterY(double* CenterY) override;
    HRESULT get_Width(double* Width) override;
    HRESULT put_Width(double Width) override;
    HRESULT get_Height(double* Height) override;
    HRESULT put_Height(double Height) override;
    HRESULT get_Area(double* Area) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT SetXYWidthHeight(double X, double Y, double Width, double Height) override;
    HRESULT GetXYWidthHeight(double* X, double* Y, double* Width, double* Height) override;
    HRESULT SetCenterWidthHeight(double CenterX, double CenterY, double Width, double Height) override;
    HRESULT GetCenterWidthHeight(double* CenterX, double* CenterY, double* Width, double* Height) override;
    HRESULT Intersect(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) override;
    HRESULT Dilate(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) override;
    HRESULT Erode(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) override;
    HRESULT Union(ILuxRectangle* Other, LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags, ILuxShape** Result) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxRectangle** Result) override;

protected:
    ~CLuxRectangle() override = default;

private:
    struct Params {
        double x = 0.0;
        double y = 0.0;
        double width = 100.0;
        double height = 100.0;
    };

    // Reads the parameters under the lock and hands them to `read`.
    template <class Reader>
    HRESULT Get(const char* method, Reader&& read);
    // Runs `change` on a copy of the parameters (after `check`, which may refuse), stores
    // the result and raises one Change for what differs.
    template <class Change>
    HRESULT Modify(const char* method, Change&& change);
    // Stores `next` (valid) and answers the state ID to announce and its value.
    int32_t StoreLocked(const Params& next, double& announced) noexcept;
    // A new rectangle from one of this with Other, with this one's common state.
    template <class Combine>
    HRESULT Combined(const char* method, ILuxRectangle* other, LuxCopyShapeConstants copyFlags,
                     ILuxRectangle** result, Combine&& combine);

    Params params_;  // guarded by the lock
};

}  // namespace tessaly::shape
