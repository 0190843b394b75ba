// How a shape draws itself: what ILuxGraphic::Draw of every shape class does.
//
//     tessaly::shape::DrawShape(shape, colourImage);   // inside a guarded body
//
// The render context is a planar colour image of this library (LuxImage24PlanarColor);
// the shape's selected space is looked up in that image's coordinate space tree and the
// shape mapped into its pixels ("#"), as RegionMaskInImage does for masks. A region draws
// its outline: the pixels of its mask that touch the outside, thickened inwards to
// LineWidthInScreenPixels, in Color (0x00BBGGRR: red into plane 0, green into plane 1, blue
// into plane 2). An open contour (an arc) draws the pixels its line passes through, as a
// square of LineWidthInScreenPixels about each. Every line style is drawn solid. Nothing is drawn when Visible is false
// or Color is luxColorNone (-1), and a shape that lies outside the image draws nothing.
//
// Failures are thrown, for the caller's method guard to turn into HRESULTs: a null shape
// or render context and a render context that is not a LuxImage24PlanarColor (or has no
// pixels) E_INVALIDARG naming "RenderContext"; a shape that is neither a region nor an
// open contour e_Lux_NotImplemented; a space the tree cannot resolve, or a
// shape that cannot be mapped, the failure of the call that refused.
#pragma once

#include "TessalyCore.h"

namespace tessaly::shape {

struct ShapeDrawingOptions {
    // Also blends Color into every pixel inside the region, at 35 %.
    bool tintInside = false;
};

void DrawShape(ILuxShape* shape, IDispatch* renderContext);
void DrawShape(ILuxShape* shape, IDispatch* renderContext, const ShapeDrawingOptions& options);

}  // namespace tessaly::shape
