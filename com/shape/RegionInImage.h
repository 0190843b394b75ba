// Regions of the library in an image's pixel space: how a tool turns a region given in any
// space of an image's coordinate space tree into a run-length mask over the image's pixels.
//
// The region's SelectedSpaceName is resolved for the image (SpaceInImage): "." is the
// image's own SelectedSpaceName; a name that starts with ".", ".." or "..." is resolved by
// the image's tree from the image's selected space; any other name ("#", "@", a space of
// the tree) is used as it is. The image then gives the transform from that space to its
// pixel space "#" (ILuxImage::GetTransform), which must be linear (a composition of linear
// transforms is); the core shape is mapped through it and scan-converted (the inside rule
// of ccShape: a pixel is inside when its centre is) into a ccRLEBuffer whose origin is the
// top-left pixel of the box converted: the image (0, 0, Width, Height) when clipped, else
// the shape's own pixel bounds.
//
// Only the library's own shapes are taken (the core shape is read from the object behind
// the interface); another implementation is refused with E_INVALIDARG naming "Region".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "TessalyCore.h"
#include "com/core/impl/ShapeImplementation.h"
#include "com/image/CLuxRLEBuffer.h"
#include "platform/ComPtr.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"
#include "xnl/std/shapes/ccPixelBox.h"
#include "xnl/std/shapes/ccShape.h"

namespace tessaly::shape {

// A mask and the pixel position of its top-left pixel.
struct RegionMask {
    ccRLEBuffer runs;
    int32_t x = 0;
    int32_t y = 0;
};

// The name under which `image` finds the space a shape names (the rules above).
std::string SpaceInImage(ILuxImage* image, std::string_view shapeSpace);

// The transform of `image` to `toSpace` from `fromSpace` (names as the image takes them:
// "#" its pixels; resolve a shape's name with SpaceInImage first), as a linear value;
// e_LuxTransform_NotLinear when it is not linear.
cc2XformLinear LinearTransformInImage(ILuxImage* image, std::string_view toSpace, std::string_view fromSpace);

// The linear value of any transform that is linear; e_LuxTransform_NotLinear otherwise.
cc2XformLinear RequireLinear(ILuxTransform2D* transform);

// The pixels of `shape` (in its own coordinates, taken as pixel coordinates) that lie in
// `box`, as runs over the box.
RegionMask Rasterize(const ccShape& shape, const ccPixelBox& box, uint8_t inside, uint8_t outside);

// The region's mask in the pixel space of `image`.
RegionMask RegionMaskOf(const core::ShapeImplementation& region, ILuxImage* image, uint8_t inside, uint8_t outside,
                        bool clipToImage = true);

// The same as a LuxRLEBuffer placed at the mask's origin, for other code of the library.
// Refuses a null region ("Region") or image ("Image"), and a region of another
// implementation.
ComPtr<image::CLuxRLEBuffer> RegionMaskInImage(ILuxShape* region, ILuxImage* image, uint8_t inside, uint8_t outside,
                                               bool clipToImage = true);

}  // namespace tessaly::shape
