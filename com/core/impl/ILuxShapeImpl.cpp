#include "com/core/impl/ILuxShapeImpl.h"

#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "com/shape/RegionInImage.h"
#include "com/transform/impl/SpaceName.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::core {

void CheckShapeSpaceName(std::string_view name) { transform::spacename::CheckPath(name, true); }

cc2XformLinear LinearValueRequired(ILuxTransform2D* transform) { return shape::RequireLinear(transform); }

ComPtr<ILuxTransform2D> MapInfoTransform(const VARIANT& mapInfo) {
    const VARIANT* held = &mapInfo;
    if (held->vt == (VT_BYREF | VT_VARIANT) && held->pvarVal) held = held->pvarVal;
    switch (held->vt) {
        case VT_EMPTY:
        case VT_NULL:
        case VT_ERROR:  // a missing optional argument
            return nullptr;
        case VT_DISPATCH:
        case VT_UNKNOWN: {
            if (!held->punkVal) return nullptr;
            ComPtr<ILuxTransform2D> transform;
            if (SUCCEEDED(held->punkVal->QueryInterface(IID_ILuxTransform2D, transform.OutVoid())) && transform)
                return transform;
            break;
        }
        default:
            break;
    }
    throw ccStdError::BadArgument("MapInfo", ids_Core_InvalidArg_1, {"MapInfo"});
}

cc2Vect DragOffset(double startX, double startY, double endX, double endY, const VARIANT& mapInfo) {
    const ComPtr<ILuxTransform2D> transform = MapInfoTransform(mapInfo);
    if (!transform) return cc2Vect(endX - startX, endY - startY);
    // The points are where the transform puts the shape: its inverse brings them back.
    ComPtr<ILuxTransform2D> back;
    ThrowIfFailed(transform->InvertBase(back.Out()));
    if (!back) throw ccStdError::InternalError("a transform's InvertBase answered nothing");
    double start[2];
    double end[2];
    ThrowIfFailed(back->MapPoint(startX, startY, &start[0], &start[1]));
    ThrowIfFailed(back->MapPoint(endX, endY, &end[0], &end[1]));
    return cc2Vect(end[0] - start[0], end[1] - start[1]);
}

ccRectPtrh RectangleValueOf(ILuxRectangle* rectangle) {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    ThrowIfFailed(rectangle->GetXYWidthHeight(&x, &y, &width, &height));
    return ccRectPtrh(new ccRect(x, y, width, height));
}

ccRectPtrh ScaledAboutCentre(const ccRect& box, double xScale, double yScale) {
    const double width = box.Width() * xScale;
    const double height = box.Height() * yScale;
    const cc2Vect centre = box.Center();
    return ccRectPtrh(new ccRect(centre.X() - width / 2, centre.Y() - height / 2, width, height));
}

ccShapePtrh ImageExtentInSpace(ILuxImage* image, std::string_view shapeSpace) {
    LONG width = 0;
    LONG height = 0;
    ThrowIfFailed(image->get_Width(&width));
    ThrowIfFailed(image->get_Height(&height));
    if (width <= 0 || height <= 0) throw ccPel::UnboundWindow("the image has no pixels to fit a shape to");
    const std::string space = shape::SpaceInImage(image, shapeSpace);
    const cc2XformLinear spaceFromPixels = shape::LinearTransformInImage(image, space, "#");
    const ccRectPtrh pixels(new ccRect(0, 0, width, height));
    return pixels->Map(spaceFromPixels);
}

ComPtr<ILuxRectangle> NewRectangle(const ccRect& box) {
    const ComPtr<ILuxShape> shape = shape::NewShapeFromCore(box);
    ComPtr<ILuxRectangle> rectangle = shape.As<ILuxRectangle>();
    if (!rectangle) throw ccStdError::InternalError("the shape made from a ccRect is not a rectangle");
    return rectangle;
}

void ThrowNoShapeModel(const char* shape) {
    throw ccStdError::NotImplemented(
        std::string("shape models (the trained outlines of the pattern tools) are not part of this library, so ") +
        shape + " cannot make one");
}

}  // namespace tessaly::core
