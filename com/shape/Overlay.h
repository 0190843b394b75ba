// Shapes drawn over an image, as a new colour image: what `tessaly inspect --overlay`, the
// demo and tessaly.RenderOverlay in Python show.
//
//     ComPtr<ILuxImage24PlanarColor> picture = RenderOverlay(image, shapes, {.tintRegions = true});
//
// The picture is a new LuxImage24PlanarColor of the image's size: an 8-bit grey image's
// value in all three planes, a 16-bit grey image's top 8 significant bits by its Encoding
// (a 12-bit image's value >> 4; values beyond the significant bits show as 255), a colour
// image's planes copied. It gets copies of the image's coordinate space tree and
// pixel-from-root transform and its selected space name, so every shape finds its space
// in the picture as it does in the image; then each shape is drawn in turn (DrawShape),
// later shapes over earlier ones, with the tint when asked for. The image is not changed.
//
// Refusals (thrown, for a method guard): a null image (E_INVALIDARG naming "Image"), an
// image of another class, a null shape, and whatever DrawShape refuses; an image without
// pixels is ccPel::UnboundWindow.
#pragma once

#include <span>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::shape {

struct OverlayOptions {
    // Also tints every region's inside with its colour (35 %).
    bool tintRegions = false;
};

ComPtr<ILuxImage24PlanarColor> RenderOverlay(ILuxImage* image, std::span<ILuxShape* const> shapes,
                                             const OverlayOptions& options = {});

}  // namespace tessaly::shape
