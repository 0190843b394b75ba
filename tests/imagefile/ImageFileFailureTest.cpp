// Files the readers and writers refuse: each failure is the right member of the
// ccImageFile family, names the file, reaches a client as its HRESULT through the method
// guard, prints nothing, and leaves what it would have replaced as it was.
#include <gtest/gtest.h>

#include <functional>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "com/image/files/ImageFile.h"
#include "com/image/files/ccImageFile.h"
#include "imagefile/ImageFileFixtures.h"
#include "imagefile/ImageFileTempDir.h"
#include "support/RecordedError.h"

namespace {

using namespace tessaly::image;
using namespace tessaly::test;

using ImageFileFailure = ImageFileTempDir;

Bytes Text(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes Cut(Bytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

// Runs `call` expecting a failure of class E whose details start with `file` and hold
// `reason`, and the same call through the method guard giving `result` with a
// description that names the file.
template <class E>
void ExpectFailure(const std::function<void()>& call, const std::string& file, const std::string& reason,
                   HRESULT result) {
    SCOPED_TRACE(file + ": " + reason);
    try {
        call();
        ADD_FAILURE() << "no failure";
    } catch (const E& error) {
        EXPECT_EQ(error.Details().rfind(file + ": ", 0), 0u) << error.Details();
        EXPECT_NE(error.Details().find(reason), std::string::npos) << error.Details();
    } catch (const ccException& error) {
        ADD_FAILURE() << "another failure: " << error.DetailedMessage();
    }
    const HRESULT guarded = tessaly::core::Guarded("ReadImageFile", GUID_NULL, call);
    EXPECT_EQ(guarded, result);
    const RecordedError info = TakeErrorInfo();
    EXPECT_TRUE(info.present);
    EXPECT_NE(info.description.find(file + ": "), std::string::npos) << info.description;
}

TEST_F(ImageFileFailure, HostileFilesAreRefusedAsBadFormatNamingTheFile) {
    const ImageFilePixels grey = RandomPixels(ImageFileKind::Grey8, 40, 30, 3);
    WriteImageFile(Path("whole.png"), grey);
    WriteImageFile(Path("whole.tif"), grey);
    WriteImageFile(Path("whole.pgm"), grey);
    const Bytes png = ReadBytes(Path("whole.png"));
    const Bytes tiff = ReadBytes(Path("whole.tif"));
    const Bytes pgm = ReadBytes(Path("whole.pgm"));
    Bytes rgb(64 * 32 * 3, 128);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<uint8_t>(i * 7);
    const Bytes jpeg = MakeJpeg(64, 32, 3, rgb);
    Bytes badCrc = png;
    badCrc[30] ^= 1;  // inside IHDR

    const struct {
        std::string name;
        Bytes bytes;
        std::string reason;
    } cases[] = {
        {"part.png", Cut(png, png.size() / 2), "truncated at row "},
        {"head.png", Cut(png, 20), "truncated in the header"},
        {"crc.png", badCrc, "CRC"},
        {"part.tif", Cut(tiff, tiff.size() - 200), "truncated"},
        {"part.jpg", Cut(jpeg, jpeg.size() / 2), "truncated at row "},
        {"part.pgm", Cut(pgm, pgm.size() - 40 * 27 - 5), "truncated at row 2"},
        {"plain.pgm", Text("P2 2 2 255\n1 2\n3\n\n\n"), "truncated at row 1"},
        {"short.pgm", Text("P2 1000 1000 255\n1 2 3"), "truncated: 1000000 values cannot fit in the 6 bytes"},
        {"huge.pgm", Text("P5 100000 100000 255\n"), "image too large (100000 x 100000"},
        {"wide.pgm", Text("P5 1000000 1 255\n"), "image too large"},
        {"zero.pgm", Text("P5 0 4 255\n"), "no pixels (0 x 4)"},
        {"over.pgm", Text("P2 3 1 100 7 101 3"), "value 101 above the maxval 100 at pixel (1, 0)"},
        {"over16.pgm", Text("P5 1 1 300\n\x01\x2D"), "value 301 above the maxval 300 at pixel (0, 0)"},
        {"maxval.pgm", Text("P5 1 1 70000\n\x01"), "maxval 70000 is not in 1..65535"},
        {"deep.ppm", Text("P6 1 1 1000\n\x01\x02\x03\x04\x05\x06"), "16-bit PPM samples are not supported"},
        {"letters.pgm", Text("P5 2x 1 255\n"), "the width is not a number"},
        {"bitmap.pbm", Text("P4 1 1\n\x80"), "kind P4 are not supported"},
        {"empty.png", {}, "empty file"},
        {"notes.txt", Text("hello, world"), "not an image file of a known format"},
        {"twelve.tif", MakeTiff({{2, 1, 12, 1, 1, 1, {{0, 0, 0}}, {}}}), "12-bit samples are not supported"},
        {"float.tif", MakeTiff({{1, 1, 32, 1, 1, 1, {{0, 0, 0, 0}}, {{339, 3, {3}}}}}), "floating-point samples"},
        {"palette.tif", MakeTiff({{1, 1, 8, 1, 3, 1, {{0}}, {{320, 3, std::vector<uint32_t>(768, 0)}}}}),
         "palette images are not supported"},
        {"rgb16.tif", MakeTiff({{1, 1, 16, 3, 2, 1, {{0, 0, 0, 0, 0, 0}}, {}}}), "16-bit RGB samples are not supported"},
        {"strips.tif",
         MakeTiff({{4, 4, 8, 1, 1, 1, {Bytes(8, 1)}, {{273, 4, {8, 5000}}, {278, 4, {2}}, {279, 4, {8, 8}}}}}),
         "truncated at row 2"},
        {"huge.tif", MakeTiff({{1000000, 1, 8, 1, 1, 1, {{0}}, {}}}), "image too large"},
        {"samples.tif", MakeTiff({{1, 1, 8, 9, 1, 1, {Bytes(9, 0)}, {}}}), "9 samples per pixel are not supported"},
        {"huge.png", MakePng(70000, 70000, 8, 0, {0}), "image too large (70000 x 70000"},
    };
    for (const auto& c : cases)
        ExpectFailure<ccImageFile::BadFormat>([&] { ReadImageFileFromMemory(c.bytes, c.name); }, c.name, c.reason,
                                              e_Lux_BadFileFormat);

    // The same through the file: a truncated PGM on disk.
    WriteBytes(Path("cut.pgm"), Cut(pgm, pgm.size() - 1));
    const std::string cut = Path("cut.pgm").string();
    ExpectFailure<ccImageFile::BadFormat>([&] { ReadImageFile(cut); }, cut, "truncated at row 29", e_Lux_BadFileFormat);
}

TEST_F(ImageFileFailure, FilesThatCannotBeOpenedAreOpenFailed) {
    const std::string missing = Path("missing.png").string();
    ExpectFailure<ccImageFile::OpenFailed>([&] { ReadImageFile(missing); }, missing, "No such file", e_Lux_FileOpen);
    std::filesystem::create_directory(Path("folder.png"));
    const std::string folder = Path("folder.png").string();
    ExpectFailure<ccImageFile::OpenFailed>([&] { ReadImageFile(folder); }, folder, "is a directory", e_Lux_FileOpen);
}

TEST_F(ImageFileFailure, RefusedWritesCreateAndChangeNothing) {
    const ImageFilePixels rgb = RandomPixels(ImageFileKind::Rgb8, 3, 2, 5);
    const ImageFilePixels grey = RandomPixels(ImageFileKind::Grey16, 3, 2, 6);
    WriteBytes(Path("kept.pgm"), Text("old"));
    const struct {
        std::string name;
        const ImageFilePixels& pixels;
        std::string reason;
    } cases[] = {
        {"kept.pgm", rgb, "PGM holds grey pixels, not RGB8"},
        {"grey.ppm", grey, "PPM holds RGB8 pixels, not Grey16"},
        {"photo.jpg", grey, "JPEG files are read, not written"},
        {"photo.JPEG", rgb, "JPEG files are read, not written"},
        {"image.bmp", grey, "no image format is written for the extension '.bmp'"},
        {"noextension", grey, "no image format is written for the extension ''"},
    };
    for (const auto& c : cases) {
        const std::string path = Path(c.name).string();
        ExpectFailure<ccImageFile::WriteFailed>([&] { WriteImageFile(path, c.pixels); }, path, c.reason,
                                                e_Lux_FileWrite);
    }
    const std::string nowhere = Path("no/such/folder.png").string();
    ExpectFailure<ccImageFile::WriteFailed>([&] { WriteImageFile(nowhere, rgb); }, nowhere, "No such file",
                                            e_Lux_FileWrite);
    ccPelBuffer<uint8_t> none(0, 0);
    const std::string empty = Path("empty.png").string();
    ExpectFailure<ccImageFile::WriteFailed>([&] { WriteImageFile(empty, ImageFilePixels(none)); }, empty,
                                            "an image of no pixels (0 x 0)", e_Lux_FileWrite);
    EXPECT_EQ(Names(), std::vector<std::string>{"kept.pgm"});
    EXPECT_EQ(ReadBytes(Path("kept.pgm")), Text("old"));
}

TEST_F(ImageFileFailure, LimitsBoundTheSidesAndThePixelCount) {
    // Sides: 999,999 passes the limits (and the header then has no pixels after it).
    ExpectFailure<ccImageFile::BadFormat>([] { ReadImageFileFromMemory(Text("P5 999999 1 255\n"), "side.pgm"); },
                                          "side.pgm", "truncated at row 0", e_Lux_BadFileFormat);
    ExpectFailure<ccImageFile::BadFormat>([] { ReadImageFileFromMemory(Text("P5 1 1000000 255\n"), "tall.pgm"); },
                                          "tall.pgm", "image too large", e_Lux_BadFileFormat);
    // A lowered pixel count: 10 x 10 is allowed under 100, 11 x 10 is not.
    ImageFileLimits limits;
    limits.maxPixels = 100;
    const Bytes ten = MakePng(10, 10, 8, 0, Bytes(110, 0));
    EXPECT_EQ(ReadImageFileFromMemory(ten, "ten.png", limits).Width(), 10);
    const Bytes eleven = MakePng(11, 10, 8, 0, Bytes(120, 0));
    ExpectFailure<ccImageFile::BadFormat>([&] { ReadImageFileFromMemory(eleven, "eleven.png", limits); }, "eleven.png",
                                          "image too large (11 x 10 pixels; at most 999999 a side and 100 in all)",
                                          e_Lux_BadFileFormat);
    // Raising it above the library's own limit does not.
    limits.maxPixels = int64_t{1} << 40;
    ExpectFailure<ccImageFile::BadFormat>(
        [&] { ReadImageFileFromMemory(Text("P5 40000 40000 255\n"), "many.pgm", limits); }, "many.pgm",
        "image too large", e_Lux_BadFileFormat);
}

TEST_F(ImageFileFailure, CodecMessagesNeverReachTheErrorStream) {
    Bytes rgb(32 * 32 * 3, 60);
    const Bytes jpeg = MakeJpeg(32, 32, 3, rgb);
    Bytes damagedJpeg = jpeg;
    for (size_t i = damagedJpeg.size() / 2; i < damagedJpeg.size() - 2; i += 7) damagedJpeg[i] = 0xFF;
    const Bytes tiffWithJunk = MakeTiff({{2, 2, 8, 1, 1, 1, {{1, 2, 3, 4}}, {{700, 4, {1}}, {65000, 3, {9}}}}});
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(ReadImageFileFromMemory(Cut(jpeg, jpeg.size() - 30), "a.jpg"), ccImageFile::BadFormat);
    try {
        ReadImageFileFromMemory(damagedJpeg, "b.jpg");  // libjpeg may recover: either is fine
    } catch (const ccImageFile::BadFormat&) {
    }
    EXPECT_EQ(ReadImageFileFromMemory(tiffWithJunk, "c.tif").Grey8().Get(1, 1), 4);  // unknown tags: warnings
    EXPECT_THROW(ReadImageFileFromMemory(Cut(tiffWithJunk, 30), "d.tif"), ccImageFile::BadFormat);
    Bytes png = MakePng(4, 4, 8, 0, Bytes(20, 1), {{"tEXt", Text("bad\xff")}});
    EXPECT_EQ(ReadImageFileFromMemory(png, "e.png").Width(), 4);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// Every file of the fuzz corpora: valid-* load, broken-* fail, the rest (findings) do either,
// and nothing else than the family's failures ever comes out.
TEST(ImageFileCorpus, EverySeedAndFindingLoadsOrFailsCleanly) {
    size_t files = 0;
    for (const char* format : {"png", "tiff", "pnm", "jpeg"}) {
        const std::filesystem::path folder = std::filesystem::path(TESSALY_FUZZ_CORPUS_DIR) / format;
        ASSERT_TRUE(std::filesystem::is_directory(folder)) << folder;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            const std::string name = entry.path().filename();
            ++files;
            bool loaded = false;
            try {
                loaded = ReadImageFile(entry.path()).Width() > 0;
            } catch (const ccImageFile::BadFormat&) {
            }
            if (name.starts_with("valid-")) {
                EXPECT_TRUE(loaded) << name;
            } else if (name.starts_with("broken-")) {
                EXPECT_FALSE(loaded) << name;
            }
        }
    }
    EXPECT_GT(files, 20u);
}

}  // namespace
