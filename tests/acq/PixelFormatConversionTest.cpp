#include "com/acq/PixelFormatConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>

#include "xnl/std/except/ccStdError.h"

namespace tessaly::acq {
namespace {

using image::ImageFileKind;
using image::ImageFilePixels;

int32_t MirroredIndex(int32_t i, int32_t n) {
    if (i < 0) i = -i;
    if (i >= n) i = 2 * n - 2 - i;
    return std::clamp(i, 0, n - 1);
}

// 0 red, 1 green, 2 blue at (x, y) of an RGGB mosaic.
int ColourAt(int32_t x, int32_t y) { return (y % 2 == 0) ? (x % 2 == 0 ? 0 : 1) : (x % 2 == 0 ? 1 : 2); }

// The bilinear demosaic said another way: each colour is the rounded mean of
// the samples of that colour in the pixel's 3x3 neighbourhood, the frame
// mirrored about its edges.
uint8_t ReferenceColour(const ccPelBuffer<uint8_t>& mosaic, int32_t x, int32_t y, int colour) {
    if (ColourAt(x, y) == colour) return mosaic.Get(x, y);
    unsigned sum = 0, count = 0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            if (ColourAt(x + dx + 2, y + dy + 2) != colour) continue;  // the phase of the mirrored pixel
            sum += mosaic.Get(MirroredIndex(x + dx, mosaic.Width()), MirroredIndex(y + dy, mosaic.Height()));
            ++count;
        }
    }
    return static_cast<uint8_t>((sum + count / 2) / count);
}

ccPelBuffer<uint8_t> RandomMosaic(int32_t width, int32_t height, std::mt19937& random) {
    ccPelBuffer<uint8_t> mosaic(width, height);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) mosaic.Set(x, y, static_cast<uint8_t>(random()));
    return mosaic;
}

TEST(PixelFormatConversionTest, DemosaicIsTheMeanOfTheNearestSamplesOfEachColourUpToTheBorders) {
    std::mt19937 random(7);
    for (auto [width, height] : {std::pair{2, 2}, {4, 4}, {5, 3}, {7, 6}, {16, 9}}) {
        ccPelBuffer<uint8_t> mosaic = RandomMosaic(width, height, random);
        ImageFilePixels colour =
            ConvertAcquiredPixels(ImageFilePixels(mosaic), luxImagePixelFormatBayer8, luxImagePixelFormatPlanarRGB8);
        ASSERT_EQ(colour.Kind(), ImageFileKind::Rgb8);
        ImageFilePixels grey =
            ConvertAcquiredPixels(ImageFilePixels(mosaic), luxImagePixelFormatBayer8, luxImagePixelFormatGrey8);
        for (int32_t y = 0; y < height; ++y) {
            for (int32_t x = 0; x < width; ++x) {
                SCOPED_TRACE(::testing::Message() << width << "x" << height << " at " << x << "," << y);
                const unsigned r = ReferenceColour(mosaic, x, y, 0);
                const unsigned g = ReferenceColour(mosaic, x, y, 1);
                const unsigned b = ReferenceColour(mosaic, x, y, 2);
                EXPECT_EQ(colour.Rgb8().Plane(0).Get(x, y), r);
                EXPECT_EQ(colour.Rgb8().Plane(1).Get(x, y), g);
                EXPECT_EQ(colour.Rgb8().Plane(2).Get(x, y), b);
                EXPECT_EQ(grey.Grey8().Get(x, y), (77 * r + 150 * g + 29 * b + 128) / 256);
            }
        }
    }
}

TEST(PixelFormatConversionTest, UniformColourAndFramesOfOnePixelSurviveTheDemosaic) {
    ccPelBuffer<uint8_t> mosaic(7, 5);
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 7; ++x) mosaic.Set(x, y, std::array<uint8_t, 3>{200, 100, 30}[ColourAt(x, y)]);
    ImageFilePixels colour =
        ConvertAcquiredPixels(ImageFilePixels(mosaic), luxImagePixelFormatBayer8, luxImagePixelFormatPlanarRGB8);
    for (int32_t y = 0; y < 5; ++y) {
        for (int32_t x = 0; x < 7; ++x) {
            EXPECT_EQ(colour.Rgb8().Plane(0).Get(x, y), 200);
            EXPECT_EQ(colour.Rgb8().Plane(1).Get(x, y), 100);
            EXPECT_EQ(colour.Rgb8().Plane(2).Get(x, y), 30);
        }
    }
    // A lone red sample has no neighbours of the other colours: they take its own
    // value.
    ccPelBuffer<uint8_t> single(1, 1);
    single.Set(0, 0, 90);
    ImageFilePixels one =
        ConvertAcquiredPixels(ImageFilePixels(single), luxImagePixelFormatBayer8, luxImagePixelFormatPlanarRGB8);
    EXPECT_EQ(one.Rgb8().Plane(0).Get(0, 0), 90);
    EXPECT_EQ(one.Rgb8().Plane(2).Get(0, 0), 90);
}

TEST(PixelFormatConversionTest, DeepGreyKeepsItsMostSignificantBits) {
    ccPelBuffer<uint16_t> deep(5, 1);
    const uint16_t values[] = {0x0000, 0x00FF, 0x0100, 0x0FFF, 0xFFFF};
    for (int32_t x = 0; x < 5; ++x) deep.Set(x, 0, values[x]);
    ImageFilePixels from16 =
        ConvertAcquiredPixels(ImageFilePixels(deep), luxImagePixelFormatGrey16, luxImagePixelFormatGrey8);
    ImageFilePixels from12 =
        ConvertAcquiredPixels(ImageFilePixels(deep), luxImagePixelFormatGrey12, luxImagePixelFormatGrey8);
    const uint8_t expected16[] = {0, 0, 1, 15, 255};
    const uint8_t expected12[] = {0, 15, 16, 255, 255};  // bits above the depth saturate
    for (int32_t x = 0; x < 5; ++x) {
        EXPECT_EQ(from16.Grey8().Get(x, 0), expected16[x]) << x;
        EXPECT_EQ(from12.Grey8().Get(x, 0), expected12[x]) << x;
    }
    // Twelve bits shown as sixteen are the same buffer.
    ImageFilePixels as16 =
        ConvertAcquiredPixels(ImageFilePixels(deep), luxImagePixelFormatGrey12, luxImagePixelFormatGrey16);
    EXPECT_EQ(as16.Grey16().Root().Get(), deep.Root().Get());
}

TEST(PixelFormatConversionTest, GreyBecomesThreeEqualPlanesOfTheirOwn) {
    ccPelBuffer<uint8_t> grey(3, 2);
    for (int32_t y = 0; y < 2; ++y)
        for (int32_t x = 0; x < 3; ++x) grey.Set(x, y, static_cast<uint8_t>(10 * x + y));
    ImageFilePixels colour =
        ConvertAcquiredPixels(ImageFilePixels(grey), luxImagePixelFormatGrey8, luxImagePixelFormatPlanarRGB8);
    colour.Rgb8().Plane(0).Set(0, 0, 99);  // the planes do not share memory with each other or the source
    EXPECT_EQ(colour.Rgb8().Plane(1).Get(0, 0), 0);
    EXPECT_EQ(grey.Get(0, 0), 0);
    for (int plane = 1; plane < 3; ++plane)
        for (int32_t y = 0; y < 2; ++y)
            for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(colour.Rgb8().Plane(plane).Get(x, y), grey.Get(x, y));
    // And back: equal planes give their own value.
    ImageFilePixels back = ConvertAcquiredPixels(colour, luxImagePixelFormatPlanarRGB8, luxImagePixelFormatGrey8);
    EXPECT_EQ(back.Grey8().Get(2, 1), 21);
}

TEST(PixelFormatConversionTest, SameFormatSharesTheBufferAndOtherPairsAreRefused) {
    ccPelBuffer<uint8_t> grey(4, 4);
    ImageFilePixels same =
        ConvertAcquiredPixels(ImageFilePixels(grey), luxImagePixelFormatBayer8, luxImagePixelFormatBayer8);
    EXPECT_EQ(same.Grey8().Root().Get(), grey.Root().Get());

    EXPECT_FALSE(CanConvertAcquiredPixels(luxImagePixelFormatGrey8, luxImagePixelFormatGrey16));
    EXPECT_FALSE(CanConvertAcquiredPixels(luxImagePixelFormatPlanarRGB8, luxImagePixelFormatBayer8));
    EXPECT_FALSE(CanConvertAcquiredPixels(luxImagePixelFormatGrey16, luxImagePixelFormatPlanarRGB8));
    EXPECT_FALSE(CanConvertAcquiredPixels(luxImagePixelFormatPackedRGB24, luxImagePixelFormatPackedRGB24));
    EXPECT_THROW(ConvertAcquiredPixels(ImageFilePixels(grey), luxImagePixelFormatGrey8, luxImagePixelFormatGrey16),
                 ccStdError::BadArgument);
    // A buffer of the wrong kind for what it claims to be.
    EXPECT_THROW(ConvertAcquiredPixels(ImageFilePixels(grey), luxImagePixelFormatGrey16, luxImagePixelFormatGrey8),
                 ccStdError::BadArgument);
}

}  // namespace
}  // namespace tessaly::acq
