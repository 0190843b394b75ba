#include "com/shape/ShapeDrawing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "com/core/ccCOMError.h"
#include "com/core/impl/ShapeImplementation.h"
#include "com/image/CLuxImage24PlanarColor.h"
#include "com/shape/RegionInImage.h"
#include "platform/ComPtr.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/rlebuf/ccRegionPainter.h"

namespace tessaly::shape {

namespace {

// 0x00BBGGRR: red in the low byte. The top byte (set only in the display's system colours)
// is ignored.
cc3PlanePel PlanesOf(int32_t color) noexcept {
    const auto value = static_cast<uint32_t>(color);
    return cc3PlanePel{static_cast<uint8_t>(value & 0xFF), static_cast<uint8_t>((value >> 8) & 0xFF),
                       static_cast<uint8_t>((value >> 16) & 0xFF)};
}

// An open shape (an arc, a line segment) as a thin line: points along it at most half a
// pixel apart (fewer and farther apart only for a shape more than a million pixels long),
// each painting the width x width square of pixels about the pixel it lies in.
void PaintOpenShape(const ccShape& inPixels, const cc3PlanePelBuffer& planes, const cc3PlanePel& colour,
                    int32_t width) {
    constexpr double kMaxPoints = 1e6;
    std::vector<cc2Vect> points;
    inPixels.Sample(std::max(0.5, inPixels.Length() / kMaxPoints), points);
    const int32_t before = (width - 1) / 2, after = width / 2;
    const double left = -width, top = -width;
    const double right = double(planes.Width()) + width, bottom = double(planes.Height()) + width;
    double lastX = NAN, lastY = NAN;
    for (const cc2Vect& point : points) {
        const double fx = std::floor(point.X()), fy = std::floor(point.Y());
        if (!(fx >= left && fx < right && fy >= top && fy < bottom)) continue;  // NaN too
        if (fx == lastX && fy == lastY) continue;
        lastX = fx;
        lastY = fy;
        const auto x = static_cast<int32_t>(fx), y = static_cast<int32_t>(fy);
        const int32_t x0 = std::max(x - before, 0), x1 = std::min(x + after, planes.Width() - 1);
        const int32_t y0 = std::max(y - before, 0), y1 = std::min(y + after, planes.Height() - 1);
        for (int32_t py = y0; py <= y1; ++py)
            for (int32_t px = x0; px <= x1; ++px) planes.Set(px, py, colour);
    }
}

}  // namespace

void DrawShape(ILuxShape* shape, IDispatch* renderContext) { DrawShape(shape, renderContext, ShapeDrawingOptions{}); }

void DrawShape(ILuxShape* shape, IDispatch* renderContext, const ShapeDrawingOptions& options) {
    const core::ShapeImplementation& drawn = core::ShapeImplementation::Require(shape, "Shape");
    if (!renderContext) throw ccStdError::NullArgument("RenderContext");
    image::CLuxImage24PlanarColor* target = image::CLuxImage24PlanarColor::ImplementationOf(renderContext);
    if (!target) throw ccStdError::BadArgument("RenderContext");
    const cc3PlanePelBuffer planes = target->Planes();
    if (!planes.IsBound()) throw ccStdError::BadArgument("RenderContext");

    const core::ShapeCommonState state = drawn.CommonState();
    if (!state.graphics.visible || state.graphics.color == luxColorNone) return;
    const ccShapePtrh_const core = drawn.CoreShape();
    if (!core->IsRegion() && !core->IsOpenContour())
        throw ccStdError::NotImplemented("drawing shapes that are neither regions nor open contours");

    // The mask covers the image and a margin of the line width around it: a pixel of the
    // image is an edge pixel by its neighbours, which may lie beyond the image, and so may
    // the edge pixels a wide line reaches in from. A region cut by the image's border thus
    // shows no line along the border.
    const int32_t width = std::clamp(state.graphics.lineWidth, 1, ccRegionPainter::kMaxLineWidth);
    ComPtr<ILuxImage> asImage;
    core::ThrowIfFailed(renderContext->QueryInterface(IID_ILuxImage, asImage.OutVoid()));
    const cc2XformLinear pixelFromShape =
        LinearTransformInImage(asImage.get(), "#", SpaceInImage(asImage.get(), state.selectedSpaceName));
    const ccShapePtrh inPixels = core->Map(pixelFromShape);
    if (!inPixels->IsRegion()) {
        PaintOpenShape(*inPixels, planes, PlanesOf(state.graphics.color), width);
        return;
    }
    const ccPixelBox around{-width, -width, planes.Width() + width, planes.Height() + width};
    const RegionMask mask = Rasterize(*inPixels, inPixels->PixelBounds().Intersect(around), 255, 0);

    const ccRegionPainter painter(planes, PlanesOf(state.graphics.color));
    if (options.tintInside) painter.Tint(mask.runs, mask.x, mask.y);
    painter.Outline(mask.runs, mask.x, mask.y, width);
}

}  // namespace tessaly::shape
