#include "com/image/files/ImageFileObjects.h"

#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "com/image/CLuxImage16Grey.h"
#include "com/image/CLuxImage24PlanarColor.h"
#include "com/image/CLuxImage8Grey.h"
#include "com/image/files/ImageFile.h"

namespace tessaly::image {

namespace {

// A view of the whole root the buffer shows, or of a copy when it shows a part of it.
template <class T>
ccPelRootPtrh<T> WholeRoot(const ccPelBuffer<T>& pixels) {
    const ccPelRootPtrh<T> root = pixels.Root();
    if (pixels.OffsetX() == 0 && pixels.OffsetY() == 0 && pixels.Width() == root->Width() &&
        pixels.Height() == root->Height())
        return root;
    ccPelBuffer<T> copy(pixels.Width(), pixels.Height());
    copy.CopyFrom(pixels);
    return copy.Root();
}

template <class Image, class Root, class T>
ComPtr<ILuxImage> GreyImage(const ccPelBuffer<T>& pixels) {
    auto image = ComPtr<Image>::Attach(Image::Create());
    if (!image) throw std::bad_alloc();
    auto root = Root::Over(WholeRoot(pixels));
    core::ThrowIfFailed(image->SetRoot(root.get()));
    return ComPtr<ILuxImage>(static_cast<ILuxImage*>(image.get()));
}

ccPelBuffer<uint8_t> PelsOfRoot(ILuxImage8Root* root) {
    if (!root) throw ccPel::UnboundWindow("the image has no pixels");
    return ccPelBuffer<uint8_t>(CLuxImage8Root::PelsOf(root));
}

ccPelBuffer<uint16_t> PelsOfRoot(ILuxImage16Root* root) {
    if (!root) throw ccPel::UnboundWindow("the image has no pixels");
    return ccPelBuffer<uint16_t>(CLuxImage16Root::PelsOf(root));
}

}  // namespace

ComPtr<ILuxImage> ImageFromFilePixels(const ImageFilePixels& pixels) {
    switch (pixels.Kind()) {
        case ImageFileKind::Grey8:
            return GreyImage<CLuxImage8Grey, CLuxImage8Root>(pixels.Grey8());
        case ImageFileKind::Grey16:
            return GreyImage<CLuxImage16Grey, CLuxImage16Root>(pixels.Grey16());
        case ImageFileKind::Rgb8: {
            auto image = ComPtr<CLuxImage24PlanarColor>::Attach(CLuxImage24PlanarColor::Create());
            if (!image) throw std::bad_alloc();
            const cc3PlanePelBuffer& planes = pixels.Rgb8();
            ComPtr<CLuxImage8Root> roots[3];
            for (int i = 0; i < 3; ++i) roots[i] = CLuxImage8Root::Over(WholeRoot(planes.Plane(i)));
            core::ThrowIfFailed(image->SetRoots(roots[0].get(), roots[1].get(), roots[2].get()));
            return ComPtr<ILuxImage>(static_cast<ILuxImage*>(image.get()));
        }
    }
    throw ccStdError::InternalError("an image file kind without an image class");
}

ImageFilePixels FilePixelsOfImage(ILuxImage* image) {
    core::RequireArgument(image, "Image");
    ComPtr<ILuxImage8Grey> grey8;
    ComPtr<ILuxImage16Grey> grey16;
    ComPtr<ILuxImage24PlanarColor> colour;
    if (SUCCEEDED(image->QueryInterface(IID_ILuxImage8Grey, grey8.OutVoid())) && grey8) {
        ComPtr<ILuxImage8Root> root;
        core::ThrowIfFailed(grey8->GetRoot(root.Out()));
        return ImageFilePixels(PelsOfRoot(root.get()));
    }
    if (SUCCEEDED(image->QueryInterface(IID_ILuxImage16Grey, grey16.OutVoid())) && grey16) {
        ComPtr<ILuxImage16Root> root;
        core::ThrowIfFailed(grey16->GetRoot(root.Out()));
        return ImageFilePixels(PelsOfRoot(root.get()));
    }
    if (SUCCEEDED(image->QueryInterface(IID_ILuxImage24PlanarColor, colour.OutVoid())) && colour) {
        ComPtr<ILuxImage8Root> roots[3];
        core::ThrowIfFailed(colour->GetRoots(roots[0].Out(), roots[1].Out(), roots[2].Out()));
        return ImageFilePixels(cc3PlanePelBuffer(PelsOfRoot(roots[0].get()),
                                                 PelsOfRoot(roots[1].get()),
                                                 PelsOfRoot(roots[2].get())));
    }
    throw ccStdError::BadArgument("Image");
}

HRESULT LoadImageFile(const std::filesystem::path& path, ILuxImage** image) noexcept {
    return core::Guarded("LoadImageFile", IID_ILuxImage, [&] {
        core::RequireOut(image);
        *image = nullptr;
        *image = ImageFromFilePixels(ReadImageFile(path)).Detach();
    });
}

HRESULT SaveImageFile(ILuxImage* image, const std::filesystem::path& path) noexcept {
    return core::Guarded("SaveImageFile", IID_ILuxImage, [&] { WriteImageFile(path, FilePixelsOfImage(image)); });
}

}  // namespace tessaly::image
