#include "com/shape/Overlay.h"

#include <algorithm>

#include "com/core/ccCOMError.h"
#include "com/image/CLuxImage16Root.h"
#include "com/image/CLuxImage24PlanarColor.h"
#include "com/image/CLuxImage8Root.h"
#include "com/shape/ShapeDrawing.h"
#include "platform/Bstr.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::shape {

namespace {

template <class Root>
auto PelsOfRoot(Root* root) {
    if (!root) throw ccPel::UnboundWindow("the image has no pixels");
    if constexpr (std::is_same_v<Root, ILuxImage8Root>)
        return ccPelBuffer<uint8_t>(image::CLuxImage8Root::PelsOf(root));
    else
        return ccPelBuffer<uint16_t>(image::CLuxImage16Root::PelsOf(root));
}

// How far a 16-bit image's values are shifted down to keep their top 8 significant bits.
int ShiftOf(LuxImage16EncodingConstants encoding) {
    switch (encoding) {
        case luxImage16EncodingGrey8: return 0;
        case luxImage16EncodingGrey10: return 2;
        case luxImage16EncodingGrey12: return 4;
        case luxImage16EncodingGrey14: return 6;
        case luxImage16EncodingGrey16: return 8;
    }
    return 8;
}

// The image's pixels as three 8-bit planes of a new buffer.
cc3PlanePelBuffer ColourPlanesOf(ILuxImage* image) {
    if (ComPtr<ILuxImage8Grey> grey; SUCCEEDED(image->QueryInterface(IID_ILuxImage8Grey, grey.OutVoid())) && grey) {
        ComPtr<ILuxImage8Root> root;
        core::ThrowIfFailed(grey->GetRoot(root.Out()));
        const ccPelBuffer<uint8_t> pels = PelsOfRoot(root.get());
        cc3PlanePelBuffer planes(pels.Width(), pels.Height());
        for (int plane = 0; plane < 3; ++plane) planes.Plane(plane).CopyFrom(pels);
        return planes;
    }
    if (ComPtr<ILuxImage16Grey> grey; SUCCEEDED(image->QueryInterface(IID_ILuxImage16Grey, grey.OutVoid())) && grey) {
        ComPtr<ILuxImage16Root> root;
        core::ThrowIfFailed(grey->GetRoot(root.Out()));
        LuxImage16EncodingConstants encoding = luxImage16EncodingGrey16;
        core::ThrowIfFailed(grey->get_Encoding(&encoding));
        const int shift = ShiftOf(encoding);
        const ccPelBuffer<uint16_t> pels = PelsOfRoot(root.get());
        cc3PlanePelBuffer planes(pels.Width(), pels.Height());
        for (int32_t y = 0; y < pels.Height(); ++y) {
            const uint16_t* in = pels.RowPointer(y);
            uint8_t* out = planes.Plane(0).RowPointer(y);
            for (int32_t x = 0; x < pels.Width(); ++x)
                out[x] = static_cast<uint8_t>(std::min<uint32_t>(255, uint32_t{in[x]} >> shift));
        }
        planes.Plane(1).CopyFrom(planes.Plane(0));
        planes.Plane(2).CopyFrom(planes.Plane(0));
        return planes;
    }
    if (ComPtr<ILuxImage24PlanarColor> colour;
        SUCCEEDED(image->QueryInterface(IID_ILuxImage24PlanarColor, colour.OutVoid())) && colour) {
        ComPtr<ILuxImage8Root> roots[3];
        core::ThrowIfFailed(colour->GetRoots(roots[0].Out(), roots[1].Out(), roots[2].Out()));
        const cc3PlanePelBuffer source(PelsOfRoot(roots[0].get()), PelsOfRoot(roots[1].get()),
                                       PelsOfRoot(roots[2].get()));
        cc3PlanePelBuffer planes(source.Width(), source.Height());
        planes.CopyFrom(source);
        return planes;
    }
    throw ccStdError::BadArgument("Image");
}

// A copy of an object of the library (a tree, a transform) through ILuxObject::Clone.
template <class I>
ComPtr<I> CloneOf(IUnknown* object) {
    ComPtr<ILuxObject> source;
    core::ThrowIfFailed(object->QueryInterface(IID_ILuxObject, source.OutVoid()));
    ComPtr<IDispatch> copy;
    core::ThrowIfFailed(source->Clone(copy.Out()));
    ComPtr<I> typed;
    core::ThrowIfFailed(copy->QueryInterface(I::iid, typed.OutVoid()));
    return typed;
}

// Gives `picture` copies of `image`'s spaces and its selected space name.
void CopySpaces(ILuxImage* image, ILuxImage* picture) {
    ComPtr<ILuxCoordinateSpaceTree> tree;
    core::ThrowIfFailed(image->get_CoordinateSpaceTree(tree.Out()));
    core::ThrowIfFailed(picture->putref_CoordinateSpaceTree(CloneOf<ILuxCoordinateSpaceTree>(tree.get()).get()));
    ComPtr<ILuxTransform2D> pixelFromRoot;
    core::ThrowIfFailed(image->get_PixelFromRootTransform(pixelFromRoot.Out()));
    core::ThrowIfFailed(picture->putref_PixelFromRootTransform(CloneOf<ILuxTransform2D>(pixelFromRoot.get()).get()));
    Bstr selected;
    core::ThrowIfFailed(image->get_SelectedSpaceName(selected.Out()));
    core::ThrowIfFailed(picture->put_SelectedSpaceName(selected.get()));
}

}  // namespace

ComPtr<ILuxImage24PlanarColor> RenderOverlay(ILuxImage* image, std::span<ILuxShape* const> shapes,
                                             const OverlayOptions& options) {
    if (!image) throw ccStdError::NullArgument("Image");
    for (ILuxShape* shape : shapes)
        if (!shape) throw ccStdError::NullArgument("Shape");
    const cc3PlanePelBuffer planes = ColourPlanesOf(image);

    auto picture = ComPtr<image::CLuxImage24PlanarColor>::Attach(image::CLuxImage24PlanarColor::Create());
    if (!picture) throw std::bad_alloc();
    ComPtr<image::CLuxImage8Root> roots[3];
    for (int i = 0; i < 3; ++i) roots[i] = image::CLuxImage8Root::Over(planes.Plane(i).Root());
    core::ThrowIfFailed(picture->SetRoots(roots[0].get(), roots[1].get(), roots[2].get()));
    CopySpaces(image, picture.get());

    const ShapeDrawingOptions drawing{.tintInside = options.tintRegions};
    for (ILuxShape* shape : shapes) DrawShape(shape, static_cast<ILuxImage*>(picture.get()), drawing);
    return ComPtr<ILuxImage24PlanarColor>(static_cast<ILuxImage24PlanarColor*>(picture.get()));
}

}  // namespace tessaly::shape
