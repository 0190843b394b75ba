// Image objects loaded from and saved to files: the kind of image each file becomes, the
// pixels shared rather than copied, and the failures reported as HRESULTs.
#include <gtest/gtest.h>

#include "TessalyCore.h"
#include "com/image/CLuxImage8Grey.h"
#include "com/image/files/ImageFile.h"
#include "com/image/files/ImageFileObjects.h"
#include "imagefile/ImageFileTempDir.h"
#include "platform/ErrorInfo.h"
#include "platform/Module.h"

namespace tessaly::image {
namespace {

class ImageFileObjectsTest : public test::ImageFileTempDir {
protected:
    void SetUp() override {
        ImageFileTempDir::SetUp();
        live_ = Module::LiveObjectCount();
    }
    void TearDown() override {
        EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects left alive";
        ImageFileTempDir::TearDown();
    }
    static std::string Description() {
        ComPtr<IErrorInfo> info;
        GetErrorInfo(0, info.Out());
        Bstr text;
        if (info) info->GetDescription(text.Out());
        return std::string(BstrView(text.get()));
    }

private:
    LONG live_ = 0;
};

TEST_F(ImageFileObjectsTest, GreyFilesBecomeGreyImagesOverThePixelsRead) {
    ccPelBuffer<uint16_t> written(7, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 7; ++x) written.Set(x, y, static_cast<uint16_t>(1000 * y + 300 * x));
    WriteImageFile(Path("deep.png"), ImageFilePixels(written));

    ComPtr<ILuxImage> image;
    ASSERT_EQ(LoadImageFile(Path("deep.png"), image.Out()), S_OK);
    ComPtr<ILuxImage16Grey> grey;
    ASSERT_EQ(image->QueryInterface(IID_ILuxImage16Grey, grey.OutVoid()), S_OK);
    LONG value = 0;
    EXPECT_EQ(grey->get_Pixel(6, 2, &value), S_OK);
    EXPECT_EQ(value, 3800);

    // Saved again and read back as pixels: bit for bit.
    ASSERT_EQ(SaveImageFile(image.get(), Path("again.tif")), S_OK);
    const ImageFilePixels reread = ReadImageFile(Path("again.tif"));
    ASSERT_EQ(reread.Kind(), ImageFileKind::Grey16);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 7; ++x) EXPECT_EQ(reread.Grey16().Get(x, y), written.Get(x, y));
}

TEST_F(ImageFileObjectsTest, RgbFilesBecomePlanarColourImagesWithPlanesRedGreenBlue) {
    cc3PlanePelBuffer written(4, 2);
    written.Set(3, 1, cc3PlanePel{200, 100, 50});
    WriteImageFile(Path("colour.ppm"), ImageFilePixels(written));

    ComPtr<ILuxImage> image;
    ASSERT_EQ(LoadImageFile(Path("colour.ppm"), image.Out()), S_OK);
    ComPtr<ILuxImage24PlanarColor> colour;
    ASSERT_EQ(image->QueryInterface(IID_ILuxImage24PlanarColor, colour.OutVoid()), S_OK);
    LONG r = 0, g = 0, b = 0;
    EXPECT_EQ(colour->GetPixel(3, 1, &r, &g, &b), S_OK);
    EXPECT_EQ(r, 200);
    EXPECT_EQ(g, 100);
    EXPECT_EQ(b, 50);
    // HSI is a label: the file still holds the planes as they are.
    colour->put_ColorSpace(luxImageColorSpaceHSI);
    ASSERT_EQ(SaveImageFile(image.get(), Path("colour.png")), S_OK);
    EXPECT_EQ(ReadImageFile(Path("colour.png")).Rgb8().Get(3, 1), (cc3PlanePel{200, 100, 50}));
}

TEST_F(ImageFileObjectsTest, ALoadedImageHoldsThePixelsReadWithoutACopy) {
    ImageFilePixels pixels(ccPelBuffer<uint8_t>(5, 5));
    auto image = ImageFromFilePixels(pixels);
    ComPtr<ILuxImage8Grey> grey;
    image->QueryInterface(IID_ILuxImage8Grey, grey.OutVoid());
    grey->put_Pixel(1, 1, 77);
    EXPECT_EQ(pixels.Grey8().Get(1, 1), 77);
}

TEST_F(ImageFileObjectsTest, FailuresNameTheFileAndLeaveNoImage) {
    ComPtr<ILuxImage> image;
    EXPECT_EQ(LoadImageFile(Path("missing.png"), image.Out()), e_Lux_FileOpen);
    EXPECT_FALSE(image);
    EXPECT_NE(Description().find("missing.png"), std::string::npos) << Description();

    auto empty = ComPtr<CLuxImage8Grey>::Attach(CLuxImage8Grey::Create());
    EXPECT_EQ(SaveImageFile(static_cast<ILuxImage*>(empty.get()), Path("none.png")), e_LuxImage_NoPixels);
    EXPECT_EQ(SaveImageFile(nullptr, Path("none.png")), E_INVALIDARG);
    EXPECT_TRUE(Names().empty()) << "a refused save writes nothing";
}

}  // namespace
}  // namespace tessaly::image
