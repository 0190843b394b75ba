// The pieces of `tessaly run` that decide what the user reads: CSV quoting, the text of
// result values, the files a folder gives, overlay names and the progress bar.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include <unistd.h>

#include "CsvWriter.h"
#include "ImageFileList.h"
#include "NamedProperty.h"
#include "ProgressBar.h"
#include "RunPipeline.h"
#include "platform/SafeArray.h"
#include "support/LiveObjectFixture.h"

namespace tessaly::cli {
namespace {

TEST(CsvWriterTest, QuotesExactlyTheFieldsThatNeedItAndEndsRowsWithCrLf) {
    EXPECT_EQ(CsvWriter::Field("plain text; with 'single' quotes"), "plain text; with 'single' quotes");
    EXPECT_EQ(CsvWriter::Field(""), "");
    EXPECT_EQ(CsvWriter::Field(" leading and trailing "), " leading and trailing ");
    EXPECT_EQ(CsvWriter::Field("a,b.png"), "\"a,b.png\"");
    EXPECT_EQ(CsvWriter::Field("say \"hi\""), "\"say \"\"hi\"\"\"");
    EXPECT_EQ(CsvWriter::Field("\""), "\"\"\"\"");
    EXPECT_EQ(CsvWriter::Field("two\nlines"), "\"two\nlines\"");
    EXPECT_EQ(CsvWriter::Field("cr\ronly"), "\"cr\ronly\"");
    std::ostringstream out;
    CsvWriter csv(out);
    csv.Row({"file", "x,y", ""});
    const std::vector<std::string> fields = {"", "", "q\"", "last"};
    csv.Row(fields);
    csv.Row(std::span<const std::string>());
    EXPECT_EQ(out.str(), "file,\"x,y\",\r\n,,\"q\"\"\",last\r\n\r\n");
}

TEST(NamedPropertyTest, ValuesBecomeOneFieldOfText) {
    const auto text = [](const Variant& value) { return NamedProperty::Text(value.get()); };
    EXPECT_EQ(text(Variant()), "");
    EXPECT_EQ(text(Variant(int32_t{-43200})), "-43200");
    EXPECT_EQ(text(Variant(int64_t{1} << 40)), "1099511627776");
    EXPECT_EQ(text(Variant(135.68)), "135.68");
    EXPECT_EQ(text(Variant(0.1 + 0.2)), "0.30000000000000004");  // reads back the same double
    EXPECT_EQ(text(Variant(1e-300)), "1e-300");
    EXPECT_EQ(text(Variant(std::numeric_limits<double>::infinity())), "inf");
    EXPECT_EQ(text(Variant(true)), "true");
    EXPECT_EQ(text(Variant(false)), "false");
    EXPECT_EQ(text(Variant("a, \"b\"")), "a, \"b\"");  // quoting is the CSV's business
    VARIANT small{};
    small.vt = VT_UI1;
    small.bVal = 200;
    EXPECT_EQ(NamedProperty::Text(small), "200");
    VARIANT negative{};
    negative.vt = VT_I2;
    negative.iVal = -7;
    EXPECT_EQ(NamedProperty::Text(negative), "-7");

    VARIANT counts{};
    counts.vt = VT_ARRAY | VT_I4;
    counts.parray = SafeArrayCreateVector(VT_I4, 0, 4);
    ASSERT_NE(counts.parray, nullptr);
    int32_t* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(counts.parray, reinterpret_cast<void**>(&data)), S_OK);
    data[0] = 0, data[1] = 3, data[2] = -1, data[3] = 2147483647;
    SafeArrayUnaccessData(counts.parray);
    EXPECT_EQ(NamedProperty::Text(counts), "0 3 -1 2147483647");
    Variant owned = Variant::Attach(counts);
    VARIANT none{};
    none.vt = VT_ARRAY | VT_R8;
    none.parray = SafeArrayCreateVector(VT_R8, 0, 0);
    EXPECT_EQ(NamedProperty::Text(none), "");
    Variant ownedNone = Variant::Attach(none);
}

class NamedPropertyObjectTest : public test::LiveObjectFixture {};

TEST_F(NamedPropertyObjectTest, GetsAndPutsByNameAndTellsWhatAPropertyHolds) {
    {
        auto image = Make<ILuxImage>("Tessaly.LuxImage8Grey");
        ASSERT_EQ(image->Allocate(4, 3), S_OK);
        Variant width;
        EXPECT_EQ(NamedProperty::Get(image.get(), "width", width), S_OK);  // names in any case
        EXPECT_EQ(NamedProperty::Text(width.get()), "4");
        Variant unchanged(int32_t{77});
        EXPECT_EQ(NamedProperty::Get(image.get(), "NoSuchThing", unchanged), DISP_E_UNKNOWNNAME);
        EXPECT_EQ(NamedProperty::Text(unchanged.get()), "77");
        EXPECT_EQ(NamedProperty::Get(nullptr, "Width", unchanged), E_POINTER);

        auto tree = Make<ILuxCoordinateSpaceTree>("Tessaly.LuxCoordinateSpaceTree");
        EXPECT_EQ(NamedProperty::PutRef(image.get(), "CoordinateSpaceTree", Variant(static_cast<IDispatch*>(tree.get())).get()),
                  S_OK);
        ComPtr<ILuxCoordinateSpaceTree> held;
        ASSERT_EQ(image->get_CoordinateSpaceTree(held.Out()), S_OK);
        EXPECT_EQ(held.get(), tree.get());
        // A value of the wrong kind is the property's refusal, and nothing changes.
        EXPECT_EQ(NamedProperty::PutRef(image.get(), "CoordinateSpaceTree", Variant(static_cast<IDispatch*>(image.get())).get()),
                  DISP_E_TYPEMISMATCH);
        held = nullptr;
        ASSERT_EQ(image->get_CoordinateSpaceTree(held.Out()), S_OK);
        EXPECT_EQ(held.get(), tree.get());

        const ParamInfo* type = NamedProperty::ValueType(image.get(), "coordinatespacetree");
        ASSERT_NE(type, nullptr);
        ASSERT_NE(type->iid, nullptr);
        EXPECT_EQ(*type->iid, ILuxCoordinateSpaceTree::iid);
        EXPECT_EQ(NamedProperty::ValueType(image.get(), "Allocate"), nullptr);  // a method, not a property
        EXPECT_EQ(NamedProperty::ValueType(image.get(), "Widt"), nullptr);
        EXPECT_EQ(NamedProperty::Text(Variant(static_cast<IDispatch*>(tree.get())).get()), "Tessaly.LuxCoordinateSpaceTree");
        EXPECT_EQ(NamedProperty::Text(Variant(static_cast<IDispatch*>(nullptr)).get()), "");
    }
}

TEST(ImageFileListTest, FoldersGiveTheirImageFilesByNameFilesAndMissingNamesStay) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("tessaly-list-" + std::to_string(::getpid()));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder / "sub.png");  // a folder, even with an image's name
    for (const char* name : {"b.PNG", "a.tif", "c.jpeg", "notes.txt", ".hidden.png", "A2.pgm", "x.tiff", "y.JPG",
                             "z.ppm", "w.pnm", "noextension", "sub.png/inner.png"})
        std::ofstream(folder / name) << "x";
    std::filesystem::create_symlink(folder / "a.tif", folder / "link.png");
    const std::string missing = (folder / "missing.png").string();
    const std::string text = (folder / "notes.txt").string();
    const std::vector<std::string> arguments = {text, folder.string(), missing};
    const std::vector<ImageFileList::Entry> entries = ImageFileList::Expand(arguments);
    std::vector<std::string> names;
    for (const auto& entry : entries) {
        names.push_back(entry.path.starts_with(folder.string() + "/") ? entry.path.substr(folder.string().size() + 1)
                                                                      : entry.path);
        EXPECT_EQ(entry.problem, "") << entry.path;
    }
    EXPECT_EQ(names, (std::vector<std::string>{"notes.txt", "A2.pgm", "a.tif", "b.PNG", "c.jpeg", "link.png", "w.pnm",
                                               "x.tiff", "y.JPG", "z.ppm", "missing.png"}));
    std::filesystem::remove_all(folder);
    EXPECT_TRUE(ImageFileList::Expand({}).empty());
}

TEST(RunPipelineTest, OverlayNamesAreTheImageNamesAsPngAndNeverTwiceTheSame) {
    RunPipeline::OverlayNames names;
    EXPECT_EQ(names.For("in/part.tif"), "part.png");
    EXPECT_EQ(names.For("other/part.png"), "part-2.png");
    EXPECT_EQ(names.For("part.jpeg"), "part-3.png");
    EXPECT_EQ(names.For("part-2.pgm"), "part-2-2.png");  // "part-2.png" is taken
    EXPECT_EQ(names.For("noextension"), "noextension.png");
    EXPECT_EQ(names.For("a.b.c.png"), "a.b.c.png");
}

TEST(ProgressBarTest, TextAndRedrawsOnlyWhenItChanges) {
    EXPECT_EQ(ProgressBar::Text(0, 1000), "[------------------------------]   0% 0/1000 files");
    EXPECT_EQ(ProgressBar::Text(470, 1000), "[##############----------------]  47% 470/1000 files");
    EXPECT_EQ(ProgressBar::Text(1000, 1000), "[##############################] 100% 1000/1000 files");
    EXPECT_EQ(ProgressBar::Text(5, 3), "[##############################] 100% 3/3 files");
    EXPECT_EQ(ProgressBar::Text(0, 0), "[##############################] 100% 0/0 files");
    std::ostringstream out;
    ProgressBar bar(out, 2);
    bar.Show(0);
    bar.Show(0);
    bar.Show(1);
    bar.Show(2);
    bar.Finish();
    bar.Finish();
    EXPECT_EQ(out.str(), "\r[------------------------------]   0% 0/2 files"
                         "\r[###############---------------]  50% 1/2 files"
                         "\r[##############################] 100% 2/2 files\n");
}

}  // namespace
}  // namespace tessaly::cli
