// Image files written and read back bit for bit, told by their content, and the layouts
// of each format that the readers turn into the three kinds.
#include <gtest/gtest.h>

#include "com/image/files/ImageFile.h"
#include "com/image/files/ccImageFile.h"
#include "imagefile/ImageFileFixtures.h"
#include "imagefile/ImageFileTempDir.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace {

using namespace tessaly::image;
using namespace tessaly::test;

using ImageFileRoundTrip = ImageFileTempDir;
using ImageFileLayouts = ImageFileTempDir;

constexpr ImageFileKind kKinds[] = {ImageFileKind::Grey8, ImageFileKind::Grey16, ImageFileKind::Rgb8};

TEST_F(ImageFileRoundTrip, EveryWritableFormatAndKindComesBackBitForBit) {
    // 37 pixels a row: rows padded to 64 bytes in the root, none of it in the files. Each
    // image is a window of a larger buffer, so the writers follow offsets and pitches.
    for (const ImageFileKind kind : kKinds) {
        const ImageFilePixels whole = RandomPixels(kind, 45, 17, static_cast<uint32_t>(kind) + 1);
        const ImageFilePixels window = kind == ImageFileKind::Grey8    ? ImageFilePixels(whole.Grey8().Window(3, 2, 37, 11))
                                       : kind == ImageFileKind::Grey16 ? ImageFilePixels(whole.Grey16().Window(3, 2, 37, 11))
                                                                       : ImageFilePixels(whole.Rgb8().Window(3, 2, 37, 11));
        const std::string netpbm = kind == ImageFileKind::Rgb8 ? ".ppm" : ".pgm";
        for (const std::string& extension : {std::string(".png"), std::string(".tif"), netpbm, std::string(".pnm")}) {
            const auto path = Path(std::string("round") + extension);
            WriteImageFile(path, window);
            const ImageFilePixels read = ReadImageFile(path);
            EXPECT_EQ(Difference(window, read), "") << ImageFilePixels::KindName(kind) << " as " << extension;
            const auto& root = kind == ImageFileKind::Rgb8 ? *read.Rgb8().Plane(2).Root()
                               : kind == ImageFileKind::Grey16 ? static_cast<const cc_PelRoot&>(*read.Grey16().Root())
                                                               : static_cast<const cc_PelRoot&>(*read.Grey8().Root());
            EXPECT_EQ(root.RowPitchBytes() % 32, 0);
            EXPECT_EQ(root.Width(), 37);  // a root of its own, shown whole
        }
    }
    EXPECT_EQ(Names(), (std::vector<std::string>{"round.pgm", "round.png", "round.pnm", "round.ppm", "round.tif"}));
}

TEST_F(ImageFileRoundTrip, SixteenBitPngKeepsValuesAboveEightBits) {
    ccPelBuffer<uint16_t> grey(33, 3);
    const uint16_t values[] = {0, 1, 255, 256, 257, 0x1234, 0x8000, 0xFFFE, 0xFFFF};
    for (int32_t i = 0; i < 33 * 3; ++i) grey.Set(i % 33, i / 33, values[i % 9]);
    WriteImageFile(Path("deep.png"), ImageFilePixels(grey));
    const Bytes bytes = ReadBytes(Path("deep.png"));
    ASSERT_GT(bytes.size(), 25u);
    EXPECT_EQ(bytes[24], 16);  // IHDR bit depth
    EXPECT_EQ(Difference(ImageFilePixels(grey), ReadImageFile(Path("deep.png"))), "");
    // The reader from memory gives the same.
    EXPECT_EQ(Difference(ImageFilePixels(grey), ReadImageFileFromMemory(bytes, "deep.png")), "");
}

TEST_F(ImageFileRoundTrip, ContentNotTheNameTellsTheFormat) {
    const ImageFilePixels grey = RandomPixels(ImageFileKind::Grey8, 9, 4, 7);
    const ImageFilePixels rgb = RandomPixels(ImageFileKind::Rgb8, 9, 4, 8);
    WriteImageFile(Path("a.png"), grey);
    WriteImageFile(Path("b.ppm"), rgb);
    WriteImageFile(Path("c.tif"), grey);
    std::filesystem::rename(Path("a.png"), Path("a.tif"));
    std::filesystem::rename(Path("b.ppm"), Path("b.png"));
    std::filesystem::rename(Path("c.tif"), Path("c"));
    EXPECT_EQ(Difference(grey, ReadImageFile(Path("a.tif"))), "");
    EXPECT_EQ(Difference(rgb, ReadImageFile(Path("b.png"))), "");
    EXPECT_EQ(Difference(grey, ReadImageFile(Path("c"))), "");
    WriteBytes(Path("d.pgm"), MakeJpeg(8, 8, 1, Bytes(64, 90)));
    EXPECT_EQ(ReadImageFile(Path("d.pgm")).Kind(), ImageFileKind::Grey8);

    // Extensions are read in any case.
    WriteImageFile(Path("UPPER.PNG"), grey);
    WriteImageFile(Path("Mixed.TiFF"), grey);
    EXPECT_EQ(ReadBytes(Path("UPPER.PNG"))[1], 'P');
    EXPECT_EQ(ReadBytes(Path("Mixed.TiFF"))[0], 'I');
}

TEST_F(ImageFileRoundTrip, WritingReplacesAFileOnlyOnceComplete) {
    const ImageFilePixels first = RandomPixels(ImageFileKind::Grey8, 5, 5, 1);
    const ImageFilePixels second = RandomPixels(ImageFileKind::Grey8, 6, 2, 2);
    WriteImageFile(Path("x.pgm"), first);
    WriteImageFile(Path("x.pgm"), second);
    EXPECT_EQ(Difference(second, ReadImageFile(Path("x.pgm"))), "");
    EXPECT_EQ(Names(), std::vector<std::string>{"x.pgm"});  // nothing left beside it
}

TEST(ImageFilePixelsValue, HoldsOneKindAndSharesItsPixels) {
    ccPelBuffer<uint8_t> grey(4, 3);
    const ImageFilePixels pixels(grey);
    EXPECT_EQ(pixels.Kind(), ImageFileKind::Grey8);
    EXPECT_EQ(pixels.Width(), 4);
    EXPECT_EQ(pixels.Height(), 3);
    const ImageFilePixels copy = pixels;
    grey.Set(1, 2, 77);
    EXPECT_EQ(copy.Grey8().Get(1, 2), 77);
    EXPECT_THROW(pixels.Grey16(), ccStdError::Unexpected);
    EXPECT_THROW(pixels.Rgb8(), ccStdError::Unexpected);
    EXPECT_THROW(ImageFilePixels(ccPelBuffer<uint16_t>()), ccPel::UnboundWindow);
    EXPECT_STREQ(ImageFilePixels::KindName(ImageFileKind::Rgb8), "RGB8");
}

// PNG layouts, made chunk by chunk.
TEST_F(ImageFileLayouts, PngGreyDepthsScaleToEightBitsAndAlphaIsDropped) {
    // 1, 2 and 4 bits: four pixels a row, filter byte 0 first.
    const ImageFilePixels one = ReadImageFileFromMemory(MakePng(4, 1, 1, 0, {0, 0b1010'0000}), "one.png");
    const ImageFilePixels two = ReadImageFileFromMemory(MakePng(4, 1, 2, 0, {0, 0b00'01'10'11}), "two.png");
    const ImageFilePixels four = ReadImageFileFromMemory(MakePng(4, 1, 4, 0, {0, 0x0F, 0x37}), "four.png");
    const uint8_t expected[3][4] = {{255, 0, 255, 0}, {0, 85, 170, 255}, {0, 255, 51, 119}};
    const ImageFilePixels* images[] = {&one, &two, &four};
    for (int i = 0; i < 3; ++i)
        for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(images[i]->Grey8().Get(x, 0), expected[i][x]) << i << " " << x;

    // Grey + alpha keeps the grey; RGBA keeps RGB; 16-bit grey + alpha stays 16-bit.
    const ImageFilePixels greyAlpha = ReadImageFileFromMemory(MakePng(2, 1, 8, 4, {0, 10, 99, 20, 0}), "ga.png");
    EXPECT_EQ(Difference(ImageFilePixels([] {
                             ccPelBuffer<uint8_t> g(2, 1);
                             g.Set(0, 0, 10);
                             g.Set(1, 0, 20);
                             return g;
                         }()),
                         greyAlpha),
              "");
    const ImageFilePixels rgba = ReadImageFileFromMemory(MakePng(1, 1, 8, 6, {0, 1, 2, 3, 4}), "rgba.png");
    EXPECT_EQ(rgba.Rgb8().Get(0, 0), (cc3PlanePel{1, 2, 3}));
    const ImageFilePixels deepAlpha = ReadImageFileFromMemory(MakePng(1, 1, 16, 4, {0, 0x12, 0x34, 0, 0}), "ga16.png");
    EXPECT_EQ(deepAlpha.Grey16().Get(0, 0), 0x1234);
    // 16-bit colour is scaled to 8 bits.
    const ImageFilePixels deepRgb =
        ReadImageFileFromMemory(MakePng(1, 1, 16, 2, {0, 0xFF, 0xFF, 0x00, 0x00, 0x80, 0x80}), "rgb16.png");
    EXPECT_EQ(deepRgb.Rgb8().Get(0, 0), (cc3PlanePel{255, 0, 128}));
}

TEST_F(ImageFileLayouts, PngPaletteExpandsToRgbAndInterlacedImagesAssemble) {
    const Bytes palette = {10, 20, 30, 40, 50, 60, 70, 80, 90};
    const ImageFilePixels indexed = ReadImageFileFromMemory(
        MakePng(3, 1, 8, 3, {0, 2, 0, 1}, {{"PLTE", palette}, {"tRNS", {0, 128}}}), "palette.png");
    ASSERT_EQ(indexed.Kind(), ImageFileKind::Rgb8);
    EXPECT_EQ(indexed.Rgb8().Get(0, 0), (cc3PlanePel{70, 80, 90}));
    EXPECT_EQ(indexed.Rgb8().Get(1, 0), (cc3PlanePel{10, 20, 30}));  // transparency dropped
    EXPECT_EQ(indexed.Rgb8().Get(2, 0), (cc3PlanePel{40, 50, 60}));

    // Adam7 on 2 x 2: pass 1 has (0,0), pass 6 (1,0), pass 7 row 1.
    const ImageFilePixels grey = ReadImageFileFromMemory(MakePng(2, 2, 8, 0, {0, 1, 0, 2, 0, 3, 4}, {}, 1), "i.png");
    EXPECT_EQ(grey.Grey8().Get(0, 0), 1);
    EXPECT_EQ(grey.Grey8().Get(1, 0), 2);
    EXPECT_EQ(grey.Grey8().Get(0, 1), 3);
    EXPECT_EQ(grey.Grey8().Get(1, 1), 4);
    const ImageFilePixels rgb = ReadImageFileFromMemory(
        MakePng(2, 2, 8, 2, {0, 1, 1, 1, 0, 2, 2, 2, 0, 3, 3, 3, 4, 4, 4}, {}, 1), "irgb.png");
    EXPECT_EQ(rgb.Rgb8().Get(1, 0), (cc3PlanePel{2, 2, 2}));
    EXPECT_EQ(rgb.Rgb8().Get(1, 1), (cc3PlanePel{4, 4, 4}));
}

TEST_F(ImageFileLayouts, TiffFirstPageOfManyAndEachSupportedLayout) {
    TiffPage first{3, 2, 8, 1, 1, 1, {{1, 2, 3, 4, 5, 6}}, {}};
    TiffPage second{2, 1, 8, 1, 1, 1, {{9, 9}}, {}};
    const ImageFilePixels page = ReadImageFileFromMemory(MakeTiff({first, second}), "pages.tif");
    ASSERT_EQ(page.Width(), 3);
    EXPECT_EQ(page.Grey8().Get(2, 1), 6);

    // Min-is-white inverts; 16-bit samples are kept (little-endian file, host order).
    const ImageFilePixels white = ReadImageFileFromMemory(MakeTiff({{2, 1, 8, 1, 0, 1, {{0, 200}}, {}}}), "w.tif");
    EXPECT_EQ(white.Grey8().Get(0, 0), 255);
    EXPECT_EQ(white.Grey8().Get(1, 0), 55);
    const ImageFilePixels deep = ReadImageFileFromMemory(MakeTiff({{1, 1, 16, 1, 1, 1, {{0x34, 0x12}}, {}}}), "d.tif");
    EXPECT_EQ(deep.Grey16().Get(0, 0), 0x1234);

    // Bilevel: ten pixels over two bytes a row, ones white in min-is-black.
    const ImageFilePixels bits =
        ReadImageFileFromMemory(MakeTiff({{10, 1, 1, 1, 1, 1, {{0b1000'0001, 0b0100'0000}}, {}}}), "b.tif");
    const uint8_t bilevel[10] = {255, 0, 0, 0, 0, 0, 0, 255, 0, 255};
    for (int32_t x = 0; x < 10; ++x) EXPECT_EQ(bits.Grey8().Get(x, 0), bilevel[x]) << x;

    // RGB contiguous with an alpha sample, and in separate planes.
    const ImageFilePixels rgba = ReadImageFileFromMemory(
        MakeTiff({{2, 1, 8, 4, 2, 1, {{1, 2, 3, 255, 4, 5, 6, 0}}, {{338, 3, {2}}}}}), "rgba.tif");
    EXPECT_EQ(rgba.Rgb8().Get(1, 0), (cc3PlanePel{4, 5, 6}));
    const ImageFilePixels planar =
        ReadImageFileFromMemory(MakeTiff({{2, 1, 8, 3, 2, 2, {{1, 2}, {3, 4}, {5, 6}}, {}}}), "planar.tif");
    EXPECT_EQ(planar.Rgb8().Get(0, 0), (cc3PlanePel{1, 3, 5}));
    EXPECT_EQ(planar.Rgb8().Get(1, 0), (cc3PlanePel{2, 4, 6}));
}

TEST_F(ImageFileLayouts, NetpbmPlainAndRawKeepValuesAsStored) {
    const std::string plain = "P2\n# a comment\n3 2 # and another\n1000\n0 1 999\n1000 # here too\n500 7\n";
    const ImageFilePixels wide = ReadImageFileFromMemory(Bytes(plain.begin(), plain.end()), "plain.pgm");
    ASSERT_EQ(wide.Kind(), ImageFileKind::Grey16);  // maxval above 255
    EXPECT_EQ(wide.Grey16().Get(2, 0), 999);
    EXPECT_EQ(wide.Grey16().Get(0, 1), 1000);
    const std::string low = "P5 2 1 15\n";
    Bytes raw(low.begin(), low.end());
    raw.insert(raw.end(), {15, 3});
    const ImageFilePixels narrow = ReadImageFileFromMemory(raw, "raw.pgm");
    EXPECT_EQ(narrow.Grey8().Get(0, 0), 15);  // not scaled to 255
    const std::string colour = "P3 1 1 255 10 20 30";
    EXPECT_EQ(ReadImageFileFromMemory(Bytes(colour.begin(), colour.end()), "c.ppm").Rgb8().Get(0, 0),
              (cc3PlanePel{10, 20, 30}));
    const std::string big = "P5 2 1 65535\n";
    Bytes bigRaw(big.begin(), big.end());
    bigRaw.insert(bigRaw.end(), {0x12, 0x34, 0xFF, 0xFF});  // big-endian samples
    const ImageFilePixels bigImage = ReadImageFileFromMemory(bigRaw, "big.pgm");
    EXPECT_EQ(bigImage.Grey16().Get(0, 0), 0x1234);
    EXPECT_EQ(bigImage.Grey16().Get(1, 0), 0xFFFF);
}

TEST_F(ImageFileLayouts, JpegGreyAndColourDecodeCloseToWhatWasEncoded) {
    Bytes grey(16 * 8);
    for (size_t i = 0; i < grey.size(); ++i) grey[i] = static_cast<uint8_t>(i % 16 * 16);
    const ImageFilePixels decodedGrey = ReadImageFileFromMemory(MakeJpeg(16, 8, 1, grey), "g.jpg");
    ASSERT_EQ(decodedGrey.Kind(), ImageFileKind::Grey8);
    Bytes rgb(16 * 8 * 3);
    for (size_t i = 0; i < rgb.size(); i += 3) {
        rgb[i] = 200;
        rgb[i + 1] = 100;
        rgb[i + 2] = 30;
    }
    const ImageFilePixels decodedRgb = ReadImageFileFromMemory(MakeJpeg(16, 8, 3, rgb), "c.jpg");
    ASSERT_EQ(decodedRgb.Kind(), ImageFileKind::Rgb8);
    for (int32_t y = 0; y < 8; ++y)
        for (int32_t x = 0; x < 16; ++x) {
            EXPECT_NEAR(decodedGrey.Grey8().Get(x, y), grey[y * 16 + x], 12) << x << "," << y;
            const cc3PlanePel pel = decodedRgb.Rgb8().Get(x, y);
            EXPECT_NEAR(pel.plane0, 200, 4);
            EXPECT_NEAR(pel.plane1, 100, 4);
            EXPECT_NEAR(pel.plane2, 30, 4);
        }
}

}  // namespace
