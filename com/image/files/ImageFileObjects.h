// Image objects from and to image files: the image classes' side of ReadImageFile and
// WriteImageFile.
//
//     ComPtr<ILuxImage> image;
//     HRESULT hr = LoadImageFile("part.png", image.Out());   // LuxImage8Grey, LuxImage16Grey
//     hr = SaveImageFile(image.get(), "part.tif");          // or LuxImage24PlanarColor
//
// A grey file becomes a grey image of its width (8 or 16 bits), an RGB file a planar colour
// image with the planes red, green, blue; the image holds the pixels read, without a copy.
// Saving writes a grey image as grey and a colour image as RGB whatever its ColorSpace
// label. The HRESULT functions fail as the method guard reports (error info naming the file
// and the reason: e_Lux_FileOpen, e_Lux_BadFileFormat, ...); an image without pixels is
// e_LuxImage_NoPixels, an image of another class E_INVALIDARG naming "Image".
#pragma once

#include <filesystem>

#include "TessalyCore.h"
#include "com/image/files/ImageFilePixels.h"
#include "platform/ComPtr.h"

namespace tessaly::image {

HRESULT LoadImageFile(const std::filesystem::path& path, ILuxImage** image) noexcept;
HRESULT SaveImageFile(ILuxImage* image, const std::filesystem::path& path) noexcept;

// The throwing forms the two above are made of.
ComPtr<ILuxImage> ImageFromFilePixels(const ImageFilePixels& pixels);
ImageFilePixels FilePixelsOfImage(ILuxImage* image);

}  // namespace tessaly::image
