// The planar colour image: its three roots all or none and of one size, planes handed out
// as grey images that share them, the colour space as a label, copies and persistence.
#include <gtest/gtest.h>

#include <vector>

#include "com/core/ObjectPersistence.h"
#include "image/ImageFixture.h"

namespace tessaly::test {
namespace {

class PlanarColorImageTest : public ImageFixture {
protected:
    static ComPtr<ILuxImage24PlanarColor> NewImage(LONG width, LONG height) {
        auto image = Make<ILuxImage24PlanarColor>("Tessaly.LuxImage24PlanarColor");
        EXPECT_EQ(As<ILuxImage>(image.get())->Allocate(width, height), S_OK);
        return image;
    }
    static ComPtr<ILuxImage8Root> NewRoot(LONG width, LONG height) {
        auto root = Make<ILuxImage8Root>("Tessaly.LuxImage8Root");
        EXPECT_EQ(As<ILuxImage8RootBuffer>(root.get())->Initialize(width, height, 0, width, nullptr), S_OK);
        return root;
    }
    static std::vector<ILuxImage8Root*> RootsOf(ILuxImage24PlanarColor* image) {
        ComPtr<ILuxImage8Root> roots[3];
        EXPECT_EQ(image->GetRoots(roots[0].Out(), roots[1].Out(), roots[2].Out()), S_OK);
        return {roots[0].get(), roots[1].get(), roots[2].get()};  // compared only, never called
    }
    static std::vector<LONG> PixelOf(ILuxImage24PlanarColor* image, LONG x, LONG y) {
        LONG values[3] = {-1, -1, -1};
        EXPECT_EQ(image->GetPixel(x, y, &values[0], &values[1], &values[2]), S_OK);
        return {values[0], values[1], values[2]};
    }
};

TEST_F(PlanarColorImageTest, APlaneIsAGreyImageOverThatPlanesRootSelectedByTheTwoLowBits) {
    auto image = NewImage(4, 3);
    ASSERT_EQ(image->SetPixel(2, 1, 10, 20, 30), S_OK);
    const struct {
        LuxImagePlaneConstants which;
        LONG expected;
    } planes[] = {{luxImagePlaneRed, 10},       {luxImagePlaneGreen, 20},     {luxImagePlaneBlue, 30},
                  {luxImagePlaneHue, 10},       {luxImagePlaneSaturation, 20}, {luxImagePlaneIntensity, 30},
                  {static_cast<LuxImagePlaneConstants>(8), 10}};
    for (const auto& plane : planes) {
        ComPtr<ILuxImage8Grey> grey;
        ASSERT_EQ(image->GetPlane(plane.which, grey.Out()), S_OK);
        LONG value = -1;
        EXPECT_EQ(grey->get_Pixel(2, 1, &value), S_OK);
        EXPECT_EQ(value, plane.expected) << "plane value " << plane.which;
    }
    // A write through the plane is a write into the colour image; the plane sees its spaces.
    ComPtr<ILuxImage8Grey> green;
    ASSERT_EQ(image->GetPlane(luxImagePlaneGreen, green.Out()), S_OK);
    ASSERT_EQ(green->put_Pixel(0, 0, 99), S_OK);
    EXPECT_EQ(PixelOf(image.get(), 0, 0), (std::vector<LONG>{0, 99, 0}));
    EXPECT_EQ(TreeOf(green.get()).get(), TreeOf(image.get()).get());

    for (LONG bad : {3, 7}) {
        ComPtr<ILuxImage8Grey> none;
        ExpectRefused(image->GetPlane(static_cast<LuxImagePlaneConstants>(bad), none.Out()), E_INVALIDARG, "GetPlane");
        EXPECT_FALSE(none);
    }
    ExpectRefused(image->GetPlane(luxImagePlaneRed, nullptr), E_POINTER, "GetPlane");
}

TEST_F(PlanarColorImageTest, SetRootsRefusesMixedPresenceOrSizesAndKeepsTheOldRoots) {
    auto image = NewImage(640, 480);
    const auto before = RootsOf(image.get());
    const auto events = Listen(image.get());
    auto a = NewRoot(640, 480), b = NewRoot(640, 480), c = NewRoot(640, 480), taller = NewRoot(640, 481);

    ExpectRefused(image->SetRoots(a.get(), b.get(), taller.get()), E_INVALIDARG, "SetRoots");
    ExpectRefused(image->SetRoots(a.get(), nullptr, c.get()), E_POINTER, "SetRoots");
    ExpectRefused(image->SetRoots(nullptr, b.get(), nullptr), E_POINTER, "SetRoots");
    EXPECT_EQ(RootsOf(image.get()), before);
    EXPECT_TRUE(events->empty());

    ASSERT_EQ(image->SetRoots(a.get(), b.get(), c.get()), S_OK);
    EXPECT_EQ(RootsOf(image.get()), (std::vector<ILuxImage8Root*>{a.get(), b.get(), c.get()}));
    ASSERT_EQ(image->SetRoots(nullptr, nullptr, nullptr), S_OK);
    VARIANT_BOOL allocated = VARIANT_TRUE;
    As<ILuxImage>(image.get())->get_Allocated(&allocated);
    EXPECT_EQ(allocated, VARIANT_FALSE);
    EXPECT_EQ(*events, (std::vector<int32_t>{luxState_MoreThanOneStateIDChanged, luxState_MoreThanOneStateIDChanged}));
    LONG v0, v1, v2;
    ExpectRefused(image->GetPixel(0, 0, &v0, &v1, &v2), kNoPixels, "GetPixel");
}

TEST_F(PlanarColorImageTest, TheColourSpaceIsALabelThatChangesNoPixel) {
    auto image = NewImage(2, 2);
    image->SetPixel(1, 1, 200, 100, 50);
    const auto events = Listen(image.get());
    ASSERT_EQ(image->put_ColorSpace(luxImageColorSpaceHSI), S_OK);
    ASSERT_EQ(image->put_ColorSpace(luxImageColorSpaceHSI), S_OK);
    EXPECT_EQ(PixelOf(image.get(), 1, 1), (std::vector<LONG>{200, 100, 50}));
    EXPECT_EQ(*events, (std::vector<int32_t>{luxImage24PlanarColor_ColorSpace}));
    for (LONG bad : {0, 3}) ExpectRefused(image->put_ColorSpace(static_cast<LuxImageColorSpaceConstants>(bad)), E_INVALIDARG, "put_ColorSpace");
    LuxImageColorSpaceConstants space{};
    image->get_ColorSpace(&space);
    EXPECT_EQ(space, luxImageColorSpaceHSI);
    EXPECT_EQ(events->size(), 1u);
}

TEST_F(PlanarColorImageTest, PixelsAndAllocationFollowTheGreyImagesRules) {
    auto image = NewImage(3, 2);
    auto base = As<ILuxImage>(image.get());
    EXPECT_EQ(base->Allocate(3, 2), S_OK);
    ExpectRefused(base->Allocate(4, 2), kAllocateSize, "Allocate");
    LONG width = 0;
    base->get_Width(&width);
    EXPECT_EQ(width, 3);
    LONG v0, v1, v2;
    ExpectRefused(image->GetPixel(3, 0, &v0, &v1, &v2), kBadCoord, "GetPixel");
    ExpectRefused(image->GetPixel(0, 0, &v0, nullptr, &v2), E_POINTER, "GetPixel");
    // A refused value writes no plane, not even the ones before it.
    ExpectRefused(image->SetPixel(0, 0, 1, 2, 256), E_INVALIDARG, "SetPixel");
    ExpectRefused(image->SetPixel(0, 2, 1, 2, 3), kBadCoord, "SetPixel");
    EXPECT_EQ(PixelOf(image.get(), 0, 0), (std::vector<LONG>{0, 0, 0}));

    auto empty = Make<ILuxImage>("Tessaly.LuxImage24PlanarColor");
    ExpectRefused(empty->Allocate(0, 5), kAllocateSize, "Allocate");
    ComPtr<ILuxImage8PixelMemory> m0, m1, m2;
    ExpectRefused(As<ILuxImage24PlanarColorData>(empty.get())->Get24PlanarColorPixelMemory(
                      luxImageDataModeRead, 0, 0, 0, 0, m0.Out(), m1.Out(), m2.Out()),
                  kNoPixels, "Get24PlanarColorPixelMemory");
}

TEST_F(PlanarColorImageTest, CopiesShareOrCopyAllThreePlanes) {
    auto image = NewImage(5, 4);
    image->SetPixel(4, 3, 1, 2, 3);
    image->put_ColorSpace(luxImageColorSpaceHSI);
    ComPtr<ILuxImage24PlanarColor> shared, copied, bare;
    ASSERT_EQ(image->Copy(luxImageCopyModeSharePixels, shared.Out()), S_OK);
    ASSERT_EQ(image->Copy(luxImageCopyModeCopyPixels, copied.Out()), S_OK);
    ASSERT_EQ(image->Copy(luxImageCopyModeNoPixels, bare.Out()), S_OK);
    image->SetPixel(4, 3, 7, 8, 9);
    EXPECT_EQ(PixelOf(shared.get(), 4, 3), (std::vector<LONG>{7, 8, 9}));
    EXPECT_EQ(PixelOf(copied.get(), 4, 3), (std::vector<LONG>{1, 2, 3}));
    VARIANT_BOOL allocated = VARIANT_TRUE;
    As<ILuxImage>(bare.get())->get_Allocated(&allocated);
    EXPECT_EQ(allocated, VARIANT_FALSE);
    LuxImageColorSpaceConstants space{};
    bare->get_ColorSpace(&space);
    EXPECT_EQ(space, luxImageColorSpaceHSI);
}

TEST_F(PlanarColorImageTest, PersistsItsPlanesAndColourSpaceOnlyWithImagesSelected) {
    auto image = NewImage(3, 2);
    image->SetPixel(2, 1, 11, 22, 33);
    image->put_ColorSpace(luxImageColorSpaceHSI);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        for (int32_t options : {luxPersistOptionAll, luxPersistOptionMinimum}) {
            std::vector<uint8_t> bytes;
            ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(image.get()).get(), format, options, &bytes), S_OK);
            ComPtr<IDispatch> loaded;
            ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
            auto colour = As<ILuxImage24PlanarColor>(loaded.get());
            LuxImageColorSpaceConstants space{};
            colour->get_ColorSpace(&space);
            EXPECT_EQ(space, luxImageColorSpaceHSI);
            VARIANT_BOOL allocated = VARIANT_FALSE;
            As<ILuxImage>(loaded.get())->get_Allocated(&allocated);
            EXPECT_EQ(allocated == VARIANT_TRUE, options == luxPersistOptionAll) << format;
            if (options == luxPersistOptionAll) {
                EXPECT_EQ(PixelOf(colour.get(), 2, 1), (std::vector<LONG>{11, 22, 33}));
            }
        }
    }
}

}  // namespace
}  // namespace tessaly::test
