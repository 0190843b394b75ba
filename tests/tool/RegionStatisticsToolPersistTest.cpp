// The region statistics tool saved and loaded: with its results and images it loads back
// with the same results and runs again to them; the options leave out results and images;
// stored values that make no sense are refused and the tool keeps its state; Clone.
#include <cmath>
#include <limits>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "tool/RegionStatisticsToolFixture.h"

namespace tessaly::test {
namespace {

class RegionStatisticsToolPersistTest : public ToolFixture {
public:
    struct Snapshot {
        bool valid = false;
        LONG area = 0, min = 0, max = 0, median = 0;
        double mean = 0, deviation = 0;
        std::vector<int32_t> histogram;
        bool operator==(const Snapshot&) const = default;
    };
    static Snapshot Take(ILuxRegionStatisticsTool* tool) {
        Snapshot s;
        VARIANT_BOOL valid = VARIANT_FALSE;
        EXPECT_EQ(tool->get_ResultsValid(&valid), S_OK);
        s.valid = valid != VARIANT_FALSE;
        if (!s.valid) return s;
        EXPECT_EQ(tool->get_Area(&s.area), S_OK);
        EXPECT_EQ(tool->get_Min(&s.min), S_OK);
        EXPECT_EQ(tool->get_Max(&s.max), S_OK);
        EXPECT_EQ(tool->get_Median(&s.median), S_OK);
        EXPECT_EQ(tool->get_Mean(&s.mean), S_OK);
        EXPECT_EQ(tool->get_StandardDeviation(&s.deviation), S_OK);
        s.histogram = HistogramOf(tool);
        return s;
    }
    static ComPtr<ILuxRegionStatisticsTool> SaveAndLoad(ILuxRegionStatisticsTool* tool, int32_t format,
                                                        int32_t options) {
        std::vector<uint8_t> bytes;
        EXPECT_EQ(SaveObjectToBytes(As<IDispatch>(tool).get(), format, options, &bytes), S_OK);
        ComPtr<IDispatch> loaded;
        EXPECT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
        return loaded ? As<ILuxRegionStatisticsTool>(loaded.get()) : nullptr;
    }
    // A configured tool that has run on a 16-bit image with a region in a placed space.
    static ComPtr<ILuxRegionStatisticsTool> RanTool(std::mt19937& random) {
        auto tool = NewTool();
        auto image = RandomImage16(48, 40, random);
        AddFixtureSpace(image.get(), Placement{1.25, 0.4, 6, -2});
        auto region = NewAffine(15, 12, 20, 14, 0.3, 0.1, "Fixture");
        EXPECT_EQ(tool->putref_InputImage(As<ILuxImage>(image.get()).get()), S_OK);
        EXPECT_EQ(tool->putref_Region(As<ILuxRegion>(region.get()).get()), S_OK);
        EXPECT_EQ(tool->put_MeanLimitsEnabled(VARIANT_TRUE), S_OK);
        EXPECT_EQ(tool->put_MeanWarnLow(40000), S_OK);  // a random mean is near 32768: a warning
        EXPECT_EQ(tool->put_MeanWarnHigh(60000), S_OK);
        EXPECT_EQ(tool->put_MeanRejectLow(-std::numeric_limits<double>::infinity()), S_OK);
        EXPECT_EQ(tool->put_MeanRejectHigh(65000.5), S_OK);
        EXPECT_EQ(As<ILuxTool>(tool.get())->put_ToolName(Bstr("Pad").get()), S_OK);
        EXPECT_EQ(RunAndRead(tool.get()).code, s_LuxTool_Warn);
        return tool;
    }
};

TEST_F(RegionStatisticsToolPersistTest, SavedWithResultsItLoadsBackEqualAndRunsAgainToTheSameResults) {
    std::mt19937 random(30);
    auto tool = RanTool(random);
    const Snapshot ran = Take(tool.get());
    ASSERT_TRUE(ran.valid);
    ASSERT_EQ(ran.histogram.size(), 65536u);
    const StatusValues status = Read(StatusOf(tool.get()).get());
    for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        auto loaded = SaveAndLoad(tool.get(), format, luxPersistOptionAll);
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Take(loaded.get()), ran);
        const StatusValues loadedStatus = Read(StatusOf(loaded.get()).get());
        EXPECT_EQ(loadedStatus.code, status.code);
        EXPECT_EQ(loadedStatus.text, status.text);
        EXPECT_EQ(loadedStatus.timeRaw, status.timeRaw);
        double limit = 0;
        ASSERT_EQ(loaded->get_MeanRejectLow(&limit), S_OK);
        EXPECT_EQ(limit, -std::numeric_limits<double>::infinity());
        ASSERT_EQ(loaded->get_MeanRejectHigh(&limit), S_OK);
        EXPECT_EQ(limit, 65000.5);
        Bstr name;
        ASSERT_EQ(As<ILuxTool>(loaded.get())->get_ToolName(name.Out()), S_OK);
        EXPECT_EQ(name.str(), "Pad");
        // The loaded image, its tree and the region give the same pixels again.
        EXPECT_EQ(RunAndRead(loaded.get()).code, s_LuxTool_Warn);
        EXPECT_EQ(Take(loaded.get()), ran);
        // The loaded results appear in the last-run record as strings.
        auto fresh = SaveAndLoad(tool.get(), format, luxPersistOptionAll);
        ComPtr<ILuxRecord> record;
        ASSERT_EQ(As<ILuxTool>(fresh.get())->CreateLastRunRecord(record.Out()), S_OK);
        LONG count = 0;
        ASSERT_EQ(record->get_Count(&count), S_OK);
        EXPECT_EQ(count, 1);
    }
}

TEST_F(RegionStatisticsToolPersistTest, TheOptionsLeaveOutResultsAndInputImages) {
    std::mt19937 random(31);
    auto tool = RanTool(random);
    for (const int32_t options : {static_cast<int32_t>(luxPersistOptionMinimum),
                                  static_cast<int32_t>(luxPersistOptionResults),
                                  static_cast<int32_t>(luxPersistOptionInputImages)}) {
        SCOPED_TRACE(options);
        auto loaded = SaveAndLoad(tool.get(), luxPersistFormatBinary, options);
        ASSERT_TRUE(loaded);
        ComPtr<ILuxImage> image;
        ComPtr<ILuxRegion> region;
        ASSERT_EQ(loaded->get_InputImage(image.Out()), S_OK);
        ASSERT_EQ(loaded->get_Region(region.Out()), S_OK);
        EXPECT_EQ(image != nullptr, (options & luxPersistOptionInputImages) != 0);
        EXPECT_NE(region, nullptr);  // configuration: always
        EXPECT_EQ(Take(loaded.get()).valid, (options & luxPersistOptionResults) != 0);
        const StatusValues status = Read(StatusOf(loaded.get()).get());
        EXPECT_EQ(status.code, (options & luxPersistOptionResults) ? s_LuxTool_Warn : S_OK);
        double warnLow = 0;
        ASSERT_EQ(loaded->get_MeanWarnLow(&warnLow), S_OK);
        EXPECT_EQ(warnLow, 40000);
    }
    // The saved bytes themselves: no image and no results with option 0.
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(tool.get()).get(), luxPersistFormatXML, luxPersistOptionMinimum, &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    for (const char* absent : {"InputImage", "Histogram", "ResultsValid", "RunStatus", "PixelArray"})
        EXPECT_EQ(xml.find(absent), std::string::npos) << absent;
    for (const char* present : {"ToolName", "Region", "MeanWarnLow", "CurrentRecordEnableBase"})
        EXPECT_NE(xml.find(present), std::string::npos) << present;
}

TEST_F(RegionStatisticsToolPersistTest, StoredValuesThatMakeNoSenseAreRefusedAndTheToolKeepsItsState) {
    std::mt19937 random(32);
    auto tool = RanTool(random);
    const Snapshot before = Take(tool.get());
    auto log = ListenTool(tool.get());
    const auto histogram = [](size_t size, int32_t each) {
        SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(size));
        void* data = nullptr;
        SafeArrayAccessData(array, &data);
        std::fill_n(static_cast<int32_t*>(data), size, each);
        SafeArrayUnaccessData(array);
        VARIANT value{};
        value.vt = VT_ARRAY | VT_I4;
        value.parray = array;
        return Variant::Attach(value);
    };
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        // Valid results of 256 pixels, one of each value, unless `key` says otherwise.
        std::vector<std::pair<const char*, Variant>> entries;
        entries.emplace_back("Region", Variant());  // none: the whole image
        entries.emplace_back("ColorPlane", Variant(int32_t{1}));
        entries.emplace_back("MeanWarnLow", Variant(1.0));
        entries.emplace_back("ResultsValid", Variant(true));
        entries.emplace_back("Area", Variant(int32_t{256}));
        entries.emplace_back("Mean", Variant(127.5));
        entries.emplace_back("StandardDeviation", Variant(73.9));
        entries.emplace_back("Min", Variant(int32_t{0}));
        entries.emplace_back("Max", Variant(int32_t{255}));
        entries.emplace_back("Median", Variant(int32_t{127}));
        entries.emplace_back("Histogram", histogram(256, 1));
        for (auto& [name, entry] : entries) archive->AddEntry(name, Variant(name == std::string_view(key) ? value : entry));
        return As<ILuxPersistArchive>(tool.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"ColorPlane", Variant(int32_t{3})},
        {"ColorPlane", Variant(int32_t{-1})},
        {"MeanWarnLow", Variant(std::numeric_limits<double>::quiet_NaN())},
        {"Mean", Variant(std::numeric_limits<double>::infinity())},
        {"Histogram", histogram(255, 1)},     // neither 256 nor 65536 entries
        {"Histogram", histogram(256, 2)},     // counts 512 pixels, Area says 256
        {"Histogram", histogram(256, -1)},
        {"Histogram", Variant(int32_t{5})},
        {"Max", Variant(int32_t{256})},       // beyond the histogram
        {"Region", Variant(int32_t{4})},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Take(tool.get()), before);
        LONG plane = -1;
        ASSERT_EQ(tool->get_ColorPlane(&plane), S_OK);
        EXPECT_EQ(plane, 0);
    }
    EXPECT_TRUE(log->empty());
    // The same values, sensible: taken.
    ASSERT_EQ(load("", Variant()), S_OK);
    const Snapshot loaded = Take(tool.get());
    EXPECT_TRUE(loaded.valid);
    EXPECT_EQ(loaded.area, 256);
    EXPECT_EQ(loaded.median, 127);
    EXPECT_EQ(loaded.histogram, std::vector<int32_t>(256, 1));
}

TEST_F(RegionStatisticsToolPersistTest, CloneSharesTheImageCopiesTheRegionAndKeepsTheResults) {
    std::mt19937 random(33);
    auto tool = RanTool(random);
    ComPtr<IDispatch> copyDispatch;
    ASSERT_EQ(As<ILuxObject>(tool.get())->Clone(copyDispatch.Out()), S_OK);
    auto copy = As<ILuxRegionStatisticsTool>(copyDispatch.get());
    EXPECT_EQ(Take(copy.get()), Take(tool.get()));
    ComPtr<ILuxImage> image, copiedImage;
    ComPtr<ILuxRegion> region, copiedRegion;
    ASSERT_EQ(tool->get_InputImage(image.Out()), S_OK);
    ASSERT_EQ(copy->get_InputImage(copiedImage.Out()), S_OK);
    ASSERT_EQ(tool->get_Region(region.Out()), S_OK);
    ASSERT_EQ(copy->get_Region(copiedRegion.Out()), S_OK);
    EXPECT_EQ(image.get(), copiedImage.get());
    ASSERT_NE(copiedRegion, nullptr);
    EXPECT_NE(As<IUnknown>(region.get()).get(), As<IUnknown>(copiedRegion.get()).get());
    // Moving the original's region changes the original's next run only.
    ASSERT_EQ(As<ILuxRectangleAffine>(region.get())->put_CenterX(25), S_OK);
    const Snapshot copied = Take(copy.get());
    ASSERT_EQ(RunAndRead(copy.get()).code, s_LuxTool_Warn);
    EXPECT_EQ(Take(copy.get()), copied);
    ASSERT_EQ(RunAndRead(tool.get()).code, s_LuxTool_Warn);
    EXPECT_NE(Take(tool.get()), copied);
}

}  // namespace
}  // namespace tessaly::test
