#include "com/shape/RegionInImage.h"

#include <limits>
#include <string>

#include "com/core/ccCOMError.h"
#include "com/transform/CLuxTransform2DComposed.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "com/transform/impl/SpaceName.h"
#include "platform/Bstr.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelError.h"
#include "xnl/std/rlebuf/ccRLEBufferBuilder.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::shape {

namespace {

std::string ImageSelectedSpace(ILuxImage* image) {
    Bstr selected;
    core::ThrowIfFailed(image->get_SelectedSpaceName(selected.Out()));
    return selected.str();
}

// A box of runs the builder can hold: it reserves three runs a row up front, and a buffer
// holds at most ccRLEBuffer::kMaxRuns.
void CheckRasterSize(const ccPixelBox& box) {
    if (box.Width() > std::numeric_limits<int32_t>::max() || box.Height() > ccRLEBuffer::kMaxRuns / 3)
        throw ccShapesError::BadGeom("the region's pixel bounds, " + std::to_string(box.Width()) + " x " +
                                     std::to_string(box.Height()) + ", are too large for a run-length buffer");
}

}  // namespace

std::string SpaceInImage(ILuxImage* image, std::string_view shapeSpace) {
    if (shapeSpace == ".") return ImageSelectedSpace(image);
    if (!transform::spacename::StartsPartial(shapeSpace)) return std::string(shapeSpace);
    ComPtr<ILuxCoordinateSpaceTree> tree;
    core::ThrowIfFailed(image->get_CoordinateSpaceTree(tree.Out()));
    const std::string selected = ImageSelectedSpace(image);
    // "@" is the image's name for the root, whatever the tree calls it.
    const std::string_view start = selected == "@" ? std::string_view("^") : std::string_view(selected);
    Bstr resolved;
    core::ThrowIfFailed(tree->ResolvePartialName(Bstr(start).get(), Bstr(shapeSpace).get(), resolved.Out()));
    return resolved.str();
}

cc2XformLinear RequireLinear(ILuxTransform2D* transform) {
    if (!transform::CLuxTransform2DLinear::ImplementationOf(transform)) {
        VARIANT_BOOL linear = VARIANT_FALSE;
        core::ThrowIfFailed(transform->get_Linear(&linear));
        if (linear == VARIANT_FALSE) throw ccPel::NonlinearXform("only a linear transform maps a shape");
    }
    return transform::CLuxTransform2DComposed::LinearValueOf(transform);
}

cc2XformLinear LinearTransformInImage(ILuxImage* image, std::string_view toSpace, std::string_view fromSpace) {
    ComPtr<ILuxTransform2D> toFromShape;
    core::ThrowIfFailed(image->GetTransform(Bstr(toSpace).get(), Bstr(fromSpace).get(), toFromShape.Out()));
    if (!toFromShape) throw ccStdError::InternalError("an image's GetTransform answered nothing");
    return RequireLinear(toFromShape.get());
}

RegionMask Rasterize(const ccShape& shape, const ccPixelBox& box, uint8_t inside, uint8_t outside) {
    RegionMask mask;
    if (box.IsEmpty()) {
        ccRLEBufferBuilder empty(box.x0, box.y0, 0, 0, inside, outside);
        mask.runs = empty.Finish();
        mask.x = box.x0;
        mask.y = box.y0;
        return mask;
    }
    CheckRasterSize(box);
    ccRLEBufferBuilder builder(box.x0, box.y0, static_cast<int32_t>(box.Width()), static_cast<int32_t>(box.Height()),
                               inside, outside);
    shape.ScanConvert(builder, box);
    mask.runs = builder.Finish();
    mask.x = box.x0;
    mask.y = box.y0;
    return mask;
}

RegionMask RegionMaskOf(const core::ShapeImplementation& region, ILuxImage* image, uint8_t inside, uint8_t outside,
                        bool clipToImage) {
    const ccShapePtrh_const core = region.CoreShape();
    const std::string space = SpaceInImage(image, region.CommonState().selectedSpaceName);
    const cc2XformLinear pixelFromShape = LinearTransformInImage(image, "#", space);
    const ccShapePtrh inPixels = core->Map(pixelFromShape);
    ccPixelBox box = inPixels->PixelBounds();
    if (clipToImage) {
        LONG width = 0;
        LONG height = 0;
        core::ThrowIfFailed(image->get_Width(&width));
        core::ThrowIfFailed(image->get_Height(&height));
        box = box.Intersect(ccPixelBox::OfImage(width, height));
    }
    return Rasterize(*inPixels, box, inside, outside);
}

ComPtr<image::CLuxRLEBuffer> RegionMaskInImage(ILuxShape* region, ILuxImage* image, uint8_t inside, uint8_t outside,
                                               bool clipToImage) {
    const core::ShapeImplementation& shape = core::ShapeImplementation::Require(region, "Region");
    if (!image) throw ccStdError::NullArgument("Image");
    RegionMask mask = RegionMaskOf(shape, image, inside, outside, clipToImage);
    return image::CLuxRLEBuffer::FromCore(std::move(mask.runs), mask.x, mask.y);
}

}  // namespace tessaly::shape
