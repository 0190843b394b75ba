// Regions as run-length masks: CreateRLE in the shape's own coordinates, and
// RegionMaskInImage through an image's coordinate space tree, which must give the same mask
// for the same region whichever space it is given in.
#include <vector>

#include "com/core/MethodGuard.h"
#include "com/shape/RegionInImage.h"
#include "shape/ShapeFixture.h"
#include "transform/TransformFixture.h"

namespace tessaly::test {
namespace {

// A mask read back through the interface: placement, size and every pixel.
struct MaskPixels {
    LONG x = 0, y = 0, width = 0, height = 0;
    std::vector<LONG> pixels;
    bool operator==(const MaskPixels&) const = default;
    long Count(LONG value) const { return std::count(pixels.begin(), pixels.end(), value); }
};

MaskPixels Read(ILuxRLEBuffer* rle) {
    MaskPixels mask;
    EXPECT_EQ(rle->get_X(&mask.x), S_OK);
    EXPECT_EQ(rle->get_Y(&mask.y), S_OK);
    EXPECT_EQ(rle->get_Width(&mask.width), S_OK);
    EXPECT_EQ(rle->get_Height(&mask.height), S_OK);
    for (LONG j = 0; j < mask.height; ++j)
        for (LONG i = 0; i < mask.width; ++i) {
            LONG value = -1;
            EXPECT_EQ(rle->get_Pixel(mask.x + i, mask.y + j, &value), S_OK);
            mask.pixels.push_back(value);
        }
    return mask;
}

class RegionTest : public ShapeFixture {
public:
    static MaskPixels MaskOf(ILuxRectangle* rectangle, LONG inside = 255, LONG outside = 0) {
        ComPtr<ILuxRLEBuffer> rle;
        EXPECT_EQ(rectangle->CreateRLE(inside, outside, rle.Out()), S_OK);
        return rle ? Read(rle.get()) : MaskPixels{};
    }
    static MaskPixels MaskInImage(ILuxRectangle* rectangle, ILuxImage8Grey* image, bool clip = true) {
        ComPtr<ILuxRLEBuffer> rle;
        const HRESULT hr = core::Guarded("RegionMaskInImage", IID_ILuxRegion, [&] {
            auto mask = shape::RegionMaskInImage(As<ILuxShape>(rectangle).get(), As<ILuxImage>(image).get(), 1, 0, clip);
            rle = ComPtr<ILuxRLEBuffer>(static_cast<ILuxRLEBuffer*>(mask.get()));
        });
        EXPECT_EQ(hr, S_OK);
        return rle ? Read(rle.get()) : MaskPixels{};
    }
};

TEST_F(RegionTest, CreateRLEOfAnIntegerRectangleCoversExactlyItsPixels) {
    for (const RectParams& p : {RectParams{2, 3, 4, 5}, RectParams{-7, -1, 1, 1}, RectParams{0, 0, 13, 2}}) {
        auto rectangle = NewRectangle(p[0], p[1], p[2], p[3]);
        ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Anywhere").get()), S_OK);  // not looked at
        const MaskPixels mask = MaskOf(rectangle.get(), 200, 7);
        EXPECT_EQ(mask.x, p[0]);
        EXPECT_EQ(mask.y, p[1]);
        EXPECT_EQ(mask.width, p[2]);
        EXPECT_EQ(mask.height, p[3]);
        double area = 0;
        rectangle->get_Area(&area);
        EXPECT_EQ(mask.Count(200), static_cast<long>(area));
        EXPECT_EQ(mask.Count(7), 0);
    }
}

TEST_F(RegionTest, CreateRLEOfAFractionalRectangleTakesThePixelsWhoseCentresAreInside) {
    // Centres x + 0.5 in [0.5, 2.5) and y + 0.5 in [0.25, 2.75): columns 0 and 1, rows 0 to 2.
    auto rectangle = NewRectangle(0.5, 0.25, 2, 2.5);
    const MaskPixels mask = MaskOf(rectangle.get());
    EXPECT_EQ(mask.x, 0);
    EXPECT_EQ(mask.y, 0);
    EXPECT_EQ(mask.width, 2);
    EXPECT_EQ(mask.height, 3);
    EXPECT_EQ(mask.Count(255), 6);
    // Too thin to hold a centre: an empty mask.
    auto thin = NewRectangle(0.1, 0, 0.2, 5);
    EXPECT_EQ(MaskOf(thin.get()).Count(255), 0);
}

TEST_F(RegionTest, CreateRLERefusesValuesOutsideAByteAndBoundsNoBufferHolds) {
    auto rectangle = NewRectangle(0, 0, 2, 2);
    ComPtr<ILuxRLEBuffer> rle;
    ExpectRefused(rectangle->CreateRLE(256, 0, rle.Out()), E_INVALIDARG, core::ids_Core_ArgOutOfRange_1,
                  {"InsidePelValue"}, "CreateRLE");
    ExpectRefused(rectangle->CreateRLE(0, -1, rle.Out()), E_INVALIDARG, core::ids_Core_ArgOutOfRange_1,
                  {"OutsidePelValue"}, "CreateRLE");
    EXPECT_FALSE(rle);
    EXPECT_EQ(rectangle->CreateRLE(255, 0, rle.Out()), S_OK);
    EXPECT_EQ(rectangle->CreateRLE(0, 255, rle.Out()), S_OK);
    // Bounds no run-length buffer can hold are refused before anything is allocated.
    auto huge = NewRectangle(0, 0, 1e300, 1e300);
    ExpectFailed(huge->CreateRLE(255, 0, rle.Out()), E_FAIL, "ccShapesError::BadGeom", "CreateRLE");
    auto tall = NewRectangle(0, 0, 1, 1e9);
    ExpectFailed(tall->CreateRLE(255, 0, rle.Out()), E_FAIL, "ccShapesError::BadGeom", "CreateRLE");
}

TEST_F(RegionTest, TheSameRegionGivesTheSameMaskInPixelsAndInARotatedScaledSpace) {
    auto image = NewImage(64, 64);
    auto imageBase = As<ILuxImage>(image.get());
    ComPtr<ILuxCoordinateSpaceTree> tree;
    ASSERT_EQ(imageBase->get_CoordinateSpaceTree(tree.Out()), S_OK);
    // Fixture (u, v) lies at root (40 - 2v, 4 + 2u): a quarter turn and a scale of 2.
    ASSERT_EQ(AddSpace(tree.get(), "Fixture", Linear(0, -2, 2, 0, 40, 4).get()), S_OK);

    auto inPixels = NewRectangle(10, 20, 12, 16);
    ASSERT_EQ(inPixels->put_SelectedSpaceName(Bstr("#").get()), S_OK);
    auto inFixture = NewRectangle(8, 9, 8, 6);
    ASSERT_EQ(inFixture->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);

    const MaskPixels expected = MaskInImage(inPixels.get(), image.get());
    EXPECT_EQ((std::array<LONG, 4>{expected.x, expected.y, expected.width, expected.height}),
              (std::array<LONG, 4>{10, 20, 12, 16}));
    EXPECT_EQ(expected.Count(1), 12 * 16);
    EXPECT_EQ(MaskInImage(inFixture.get(), image.get()), expected);

    // "." is the image's selected space; ".\Fixture" is resolved from it.
    ASSERT_EQ(imageBase->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(inFixture->put_SelectedSpaceName(Bstr(".").get()), S_OK);
    EXPECT_EQ(MaskInImage(inFixture.get(), image.get()), expected);
    ASSERT_EQ(imageBase->put_SelectedSpaceName(Bstr("@").get()), S_OK);
    ASSERT_EQ(inFixture->put_SelectedSpaceName(Bstr(".\\Fixture").get()), S_OK);
    EXPECT_EQ(MaskInImage(inFixture.get(), image.get()), expected);

    // Pixels that the image maps elsewhere move the mask with them.
    ASSERT_EQ(imageBase->putref_PixelFromRootTransform(As<ILuxTransform2D>(Linear(1, 0, 0, 1, 3, -2).get()).get()),
              S_OK);
    const MaskPixels shifted = MaskInImage(inFixture.get(), image.get());
    EXPECT_EQ(shifted.x, 13);
    EXPECT_EQ(shifted.y, 18);
    EXPECT_EQ(shifted.pixels, expected.pixels);
}

TEST_F(RegionTest, MasksAreClippedToTheImageUnlessAskedNotTo) {
    auto image = NewImage(20, 10);
    auto rectangle = NewRectangle(-5, 6, 10, 10);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("#").get()), S_OK);
    const MaskPixels clipped = MaskInImage(rectangle.get(), image.get());
    EXPECT_EQ((std::array<LONG, 4>{clipped.x, clipped.y, clipped.width, clipped.height}),
              (std::array<LONG, 4>{0, 6, 5, 4}));
    EXPECT_EQ(clipped.Count(1), 20);
    const MaskPixels whole = MaskInImage(rectangle.get(), image.get(), false);
    EXPECT_EQ((std::array<LONG, 4>{whole.x, whole.y, whole.width, whole.height}), (std::array<LONG, 4>{-5, 6, 10, 10}));
    EXPECT_EQ(whole.Count(1), 100);
    auto outside = NewRectangle(30, 30, 2, 2);
    ASSERT_EQ(outside->put_SelectedSpaceName(Bstr("#").get()), S_OK);
    EXPECT_EQ(MaskInImage(outside.get(), image.get()).Count(1), 0);
}

// Answers IUnknown only: an object that is not one of the library's shapes.
class ForeignObject final : public IUnknown {
public:
    HRESULT QueryInterface(REFIID iid, void** out) override {
        *out = iid == IUnknown::iid ? this : nullptr;
        return *out ? S_OK : E_NOINTERFACE;
    }
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }
};

TEST_F(RegionTest, RegionMaskInImageRefusesForeignShapesNullArgumentsAndNonLinearSpaces) {
    auto image = NewImage(8, 8);
    auto imageBase = As<ILuxImage>(image.get());
    const auto mask = [&](ILuxShape* region, ILuxImage* target) {
        return core::Guarded("RegionMaskInImage", IID_ILuxRegion,
                             [&] { shape::RegionMaskInImage(region, target, 1, 0); });
    };
    ForeignObject foreign;
    ExpectRefused(mask(reinterpret_cast<ILuxShape*>(&foreign), imageBase.get()), E_INVALIDARG,
                  core::ids_Core_InvalidArg_1, {"Region"}, "RegionMaskInImage");
    ExpectRefused(mask(nullptr, imageBase.get()), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"Region"},
                  "RegionMaskInImage");
    auto rectangle = NewRectangle(0, 0, 2, 2);
    auto region = As<ILuxShape>(rectangle.get());
    ExpectRefused(mask(region.get(), nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"Image"}, "RegionMaskInImage");

    ComPtr<ILuxCoordinateSpaceTree> tree;
    ASSERT_EQ(imageBase->get_CoordinateSpaceTree(tree.Out()), S_OK);
    ASSERT_EQ(tree->AddSpace(Bstr("@").get(), Bstr("Bent").get(), BendTransform::Make(0.5).get(), VARIANT_TRUE,
                             luxAddSpaceDuplicateIsError),
              S_OK);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Bent").get()), S_OK);
    ExpectFailed(mask(region.get(), imageBase.get()), e_LuxTransform_NotLinear, "NonlinearXform", "RegionMaskInImage");
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Missing").get()), S_OK);
    EXPECT_EQ(mask(region.get(), imageBase.get()), e_LuxSpaceTree_NotInTree);
}

}  // namespace
}  // namespace tessaly::test
