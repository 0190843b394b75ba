// The region statistics tool: results against brute force over random images and regions
// (8 and 16 bits, each colour plane, the whole image), the failures of a run with their
// codes and texts, warn and reject, refused setters, and the records.
#include <cmath>
#include <limits>

#include "com/tool/CLuxRegionStatisticsTool.h"
#include "tool/RegionStatisticsToolFixture.h"

namespace tessaly::test {
namespace {

class RegionStatisticsToolTest : public ToolFixture {};

constexpr HRESULT kNoResult = static_cast<HRESULT>(e_LuxTool_NoResult);

void SetImage(ILuxRegionStatisticsTool* tool, IUnknown* image) {
    ASSERT_EQ(tool->putref_InputImage(image ? ShapeFixture::As<ILuxImage>(image).get() : nullptr), S_OK);
}
void SetRegion(ILuxRegionStatisticsTool* tool, IUnknown* region) {
    ASSERT_EQ(tool->putref_Region(region ? ShapeFixture::As<ILuxRegion>(region).get() : nullptr), S_OK);
}

TEST_F(RegionStatisticsToolTest, ResultsMatchBruteForceUnderRotatedRegionsInAScaledRotatedSpace) {
    std::mt19937 random(20);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    auto tool = NewTool();
    for (int trial = 0; trial < 12; ++trial) {
        SCOPED_TRACE(trial);
        const int kind = trial % 3;  // 8-bit, 16-bit, colour
        const LONG width = 40 + static_cast<LONG>(unit(random) * 30), height = 30 + static_cast<LONG>(unit(random) * 30);
        ComPtr<IUnknown> image;
        if (kind == 0) image = As<IUnknown>(RandomImage8(width, height, random).get());
        if (kind == 1) image = As<IUnknown>(RandomImage16(width, height, random).get());
        if (kind == 2) image = As<IUnknown>(RandomColourImage(width, height, random).get());
        const Placement placement{0.5 + unit(random), unit(random) * 6.0, 5 + unit(random) * 10, 3 + unit(random) * 10};
        AddFixtureSpace(image.get(), placement);
        // A region partly outside the image now and then: clipped to it.
        auto region = NewAffine(5 + unit(random) * 30, 5 + unit(random) * 30, 8 + unit(random) * 40,
                                6 + unit(random) * 30, unit(random) * 6.0, (unit(random) - 0.5) * 1.0, "Fixture");
        const int plane = static_cast<int>(unit(random) * 3);
        SetImage(tool.get(), image.get());
        SetRegion(tool.get(), region.get());
        ASSERT_EQ(tool->put_ColorPlane(plane), S_OK);
        const StatusValues status = RunAndRead(tool.get());
        const BruteStatistics expected(ValuesUnder(image.get(), region.get(), placement, plane),
                                       kind == 1 ? 65536 : 256);
        if (expected.area == 0) {
            EXPECT_EQ(status.code, static_cast<HRESULT>(e_LuxOperator_InvalidRegion));
            continue;
        }
        ASSERT_EQ(status.code, S_OK) << status.text;
        ExpectResults(tool.get(), expected);
    }
    // No region: the whole image.
    auto image = RandomImage8(37, 23, random);
    SetImage(tool.get(), image.get());
    SetRegion(tool.get(), nullptr);
    ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
    ExpectResults(tool.get(), BruteStatistics(AllValues(image.get(), 0), 256));
}

TEST_F(RegionStatisticsToolTest, TheSameRegionFollowsItsSpaceTheImageSizeAndItsOwnGeometryFromRunToRun) {
    // Runs keep the mask while nothing it depends on changes: each change here must show.
    std::mt19937 random(23);
    auto tool = NewTool();
    auto region = NewAffine(20, 15, 18, 12, 0.5, 0.0, "Fixture");
    SetRegion(tool.get(), region.get());
    const Placement placements[] = {{1.0, 0.2, 4, 3}, {1.0, 0.2, 4, 3}, {1.5, -0.3, 9, 12}, {1.5, -0.3, 9, 12}};
    const LONG widths[] = {50, 50, 50, 44};
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        auto image = RandomImage8(widths[i], 40, random);
        AddFixtureSpace(image.get(), placements[i]);
        SetImage(tool.get(), image.get());
        ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
        ExpectResults(tool.get(), BruteStatistics(ValuesUnder(image.get(), region.get(), placements[i], 0), 256));
        ASSERT_EQ(region->put_SideXLength(18 + i), S_OK);  // and the geometry itself, for the next run
        ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
        ExpectResults(tool.get(), BruteStatistics(ValuesUnder(image.get(), region.get(), placements[i], 0), 256));
    }
}

TEST_F(RegionStatisticsToolTest, TheMedianIsTheSmallestValueWithHalfThePixelsAtOrBelowIt) {
    // Two columns of 0 and two of 9: half the pixels are at or below 0.
    auto image = NewImage(4, 1);
    for (LONG x = 0; x < 4; ++x) ASSERT_EQ(image->put_Pixel(x, 0, x < 2 ? 0 : 9), S_OK);
    auto tool = NewTool();
    SetImage(tool.get(), image.get());
    ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
    LONG median = -1;
    ASSERT_EQ(tool->get_Median(&median), S_OK);
    EXPECT_EQ(median, 0);
    ASSERT_EQ(image->put_Pixel(1, 0, 9), S_OK);  // one of four at or below 0: not half
    ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
    ASSERT_EQ(tool->get_Median(&median), S_OK);
    EXPECT_EQ(median, 9);
    double deviation = -1;
    ASSERT_EQ(tool->get_StandardDeviation(&deviation), S_OK);
    EXPECT_DOUBLE_EQ(deviation, std::sqrt(3.0) / 4 * 9);  // population: divided by 4, not 3
}

TEST_F(RegionStatisticsToolTest, AFailedRunLeavesItsCodeAndTextAndNoResults) {
    std::mt19937 random(21);
    auto tool = NewTool();
    auto image = RandomImage8(20, 20, random);
    auto inside = NewRectangle(2, 2, 5, 5);
    const auto expectNoResults = [&] {
        VARIANT_BOOL valid = VARIANT_TRUE;
        EXPECT_EQ(tool->get_ResultsValid(&valid), S_OK);
        EXPECT_EQ(valid, VARIANT_FALSE);
        LONG area = -7;
        double mean = -7;
        Variant histogram;
        EXPECT_EQ(tool->get_Area(&area), kNoResult);
        EXPECT_EQ(TakeErrorInfo().source, "get_Area");
        EXPECT_EQ(area, -7);
        EXPECT_EQ(tool->get_Mean(&mean), kNoResult);
        EXPECT_EQ(tool->get_StandardDeviation(&mean), kNoResult);
        EXPECT_EQ(tool->get_Min(&area), kNoResult);
        EXPECT_EQ(tool->get_Max(&area), kNoResult);
        EXPECT_EQ(tool->get_Median(&area), kNoResult);
        EXPECT_EQ(tool->get_Histogram(histogram.Out()), kNoResult);
        EXPECT_EQ(histogram.vt(), VT_EMPTY);
        EXPECT_EQ(mean, -7);
    };
    expectNoResults();  // never run

    struct Case {
        const char* what;
        std::function<void()> set;
        HRESULT code;
        std::string text;
    };
    auto outside = NewRectangle(100, 100, 5, 5);
    auto elsewhere = NewRectangle(2, 2, 5, 5);
    ASSERT_EQ(As<ILuxShape>(elsewhere.get())->put_SelectedSpaceName(Bstr("Nowhere").get()), S_OK);
    auto empty = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
    const Case cases[] = {
        {"no image", [&] { SetImage(tool.get(), nullptr); }, static_cast<HRESULT>(e_LuxOperator_NoInputImage),
         "The tool has no input image."},
        {"region outside", [&] { SetImage(tool.get(), image.get()); SetRegion(tool.get(), outside.get()); },
         static_cast<HRESULT>(e_LuxOperator_InvalidRegion), "The region covers no pixel of the image."},
        {"space not in the tree", [&] { SetRegion(tool.get(), elsewhere.get()); },
         static_cast<HRESULT>(e_LuxSpaceTree_NotInTree), ""},
        {"image without pixels", [&] { SetImage(tool.get(), empty.get()); SetRegion(tool.get(), inside.get()); },
         static_cast<HRESULT>(e_LuxImage_NoPixels), ""},
        {"limits reversed",
         [&] {
             SetImage(tool.get(), image.get());
             ASSERT_EQ(tool->put_MeanLimitsEnabled(VARIANT_TRUE), S_OK);
             ASSERT_EQ(tool->put_MeanWarnLow(30), S_OK);
             ASSERT_EQ(tool->put_MeanWarnHigh(20), S_OK);
         },
         E_INVALIDARG, "MeanWarnLow (30) is above MeanWarnHigh (20)."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // A good run first, so that the failure has results to take away.
        SetImage(tool.get(), image.get());
        SetRegion(tool.get(), inside.get());
        ASSERT_EQ(tool->put_MeanLimitsEnabled(VARIANT_FALSE), S_OK);
        ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
        c.set();
        const StatusValues status = RunAndRead(tool.get());
        EXPECT_EQ(status.code, c.code) << status.text;
        if (!c.text.empty()) {
            EXPECT_EQ(status.text, c.text);
        }
        EXPECT_FALSE(status.text.empty());
        EXPECT_FALSE(status.source.empty());
        EXPECT_GE(status.time, status.timeRaw);
        expectNoResults();
    }
}

TEST_F(RegionStatisticsToolTest, MeanOutsideTheLimitsWarnsOrRejectsWithValidResults) {
    auto image = NewImage(10, 10);  // every pixel 0 ...
    for (LONG y = 0; y < 10; ++y)
        for (LONG x = 0; x < 10; ++x) ASSERT_EQ(image->put_Pixel(x, y, 100), S_OK);  // ... now 100
    auto tool = NewTool();
    SetImage(tool.get(), image.get());
    struct Case {
        bool enabled;
        double warnLow, warnHigh, rejectLow, rejectHigh;
        HRESULT code;
        const char* text;
    };
    const Case cases[] = {
        {false, 200, 300, 200, 300, S_OK, ""},
        {true, 90, 110, 50, 150, S_OK, ""},
        {true, 100, 100, 100, 100, S_OK, ""},  // limits are inclusive
        {true, 101, 200, 50, 250, s_LuxTool_Warn, "The mean 100 is below MeanWarnLow 101."},
        {true, 0, 99.5, 0, 250, s_LuxTool_Warn, "The mean 100 is above MeanWarnHigh 99.5."},
        {true, 101, 200, 100.25, 250, s_LuxTool_Reject, "The mean 100 is below MeanRejectLow 100.25."},
        {true, 0, 50, 0, 60, s_LuxTool_Reject, "The mean 100 is above MeanRejectHigh 60."},
        {true, -std::numeric_limits<double>::infinity(), 99, -std::numeric_limits<double>::infinity(),
         std::numeric_limits<double>::infinity(), s_LuxTool_Warn, "The mean 100 is above MeanWarnHigh 99."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(tool->put_MeanLimitsEnabled(c.enabled ? VARIANT_TRUE : VARIANT_FALSE), S_OK);
        ASSERT_EQ(tool->put_MeanWarnLow(c.warnLow), S_OK);
        ASSERT_EQ(tool->put_MeanWarnHigh(c.warnHigh), S_OK);
        ASSERT_EQ(tool->put_MeanRejectLow(c.rejectLow), S_OK);
        ASSERT_EQ(tool->put_MeanRejectHigh(c.rejectHigh), S_OK);
        const StatusValues status = RunAndRead(tool.get());
        EXPECT_EQ(status.code, c.code);
        EXPECT_EQ(status.text, c.text);
        EXPECT_EQ(status.source, "");
        double mean = 0;
        ASSERT_EQ(tool->get_Mean(&mean), S_OK);
        EXPECT_EQ(mean, 100.0);
    }
}

TEST_F(RegionStatisticsToolTest, RefusedSettersLeaveTheToolAsItWasAndRaiseNothing) {
    auto tool = NewTool();
    ASSERT_EQ(tool->put_ColorPlane(2), S_OK);
    ASSERT_EQ(tool->put_MeanWarnLow(10), S_OK);
    auto log = ListenTool(tool.get());
    for (LONG plane : {-1, 3, 1 << 30}) {
        ExpectRefused(tool->put_ColorPlane(plane), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"ColorPlane"},
                      "put_ColorPlane");
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    ExpectRefused(tool->put_MeanWarnLow(nan), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"MeanWarnLow"},
                  "put_MeanWarnLow");
    ExpectRefused(tool->put_MeanWarnHigh(nan), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"MeanWarnHigh"},
                  "put_MeanWarnHigh");
    ExpectRefused(tool->put_MeanRejectLow(nan), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"MeanRejectLow"},
                  "put_MeanRejectLow");
    ExpectRefused(tool->put_MeanRejectHigh(nan), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"MeanRejectHigh"},
                  "put_MeanRejectHigh");
    ExpectNullOut(tool->get_ColorPlane(nullptr), "get_ColorPlane");
    ExpectNullOut(tool->get_Region(nullptr), "get_Region");
    ExpectNullOut(tool->get_Histogram(nullptr), "get_Histogram");
    EXPECT_TRUE(log->empty());
    LONG plane = -1;
    double limits[4] = {};
    ASSERT_EQ(tool->get_ColorPlane(&plane), S_OK);
    ASSERT_EQ(tool->get_MeanWarnLow(&limits[0]), S_OK);
    ASSERT_EQ(tool->get_MeanWarnHigh(&limits[1]), S_OK);
    ASSERT_EQ(tool->get_MeanRejectLow(&limits[2]), S_OK);
    ASSERT_EQ(tool->get_MeanRejectHigh(&limits[3]), S_OK);
    EXPECT_EQ(plane, 2);
    EXPECT_EQ(limits[0], 10);
    EXPECT_EQ(limits[1], 65535);
    EXPECT_EQ(limits[2], 0);
    EXPECT_EQ(limits[3], 65535);
}

TEST_F(RegionStatisticsToolTest, SettersAnnounceTheirStateIdsOnceAndKeepReferences) {
    auto tool = NewTool();
    auto log = ListenTool(tool.get());
    auto image = NewImage(4, 4);
    auto region = NewRectangle(0, 0, 2, 2);
    SetImage(tool.get(), image.get());
    SetImage(tool.get(), image.get());
    SetRegion(tool.get(), region.get());
    ASSERT_EQ(tool->put_ColorPlane(1), S_OK);
    ASSERT_EQ(tool->put_MeanLimitsEnabled(VARIANT_TRUE), S_OK);
    ASSERT_EQ(tool->put_MeanLimitsEnabled(-5), S_OK);  // any non-zero is true: no change
    ASSERT_EQ(tool->put_MeanWarnLow(1), S_OK);
    ASSERT_EQ(tool->put_MeanWarnHigh(2), S_OK);
    ASSERT_EQ(tool->put_MeanRejectLow(0.5), S_OK);
    ASSERT_EQ(tool->put_MeanRejectHigh(3), S_OK);
    ASSERT_EQ(tool->put_MeanRejectHigh(3), S_OK);
    const std::pair<int32_t, int32_t> expected[] = {
        {luxRegionStatisticsTool_InputImage, luxFA_Tool_CurrentRecord},
        {luxRegionStatisticsTool_Region, luxFA_Tool_CurrentRecord},
        {luxRegionStatisticsTool_ColorPlane, luxFA_Misc},
        {luxRegionStatisticsTool_MeanLimitsEnabled, luxFA_Misc},
        {luxRegionStatisticsTool_MeanWarnLow, luxFA_Misc},
        {luxRegionStatisticsTool_MeanWarnHigh, luxFA_Misc},
        {luxRegionStatisticsTool_MeanRejectLow, luxFA_Misc},
        {luxRegionStatisticsTool_MeanRejectHigh, luxFA_Misc},
    };
    ASSERT_EQ(log->size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ((*log)[i].stateId, expected[i].first) << i;
        EXPECT_EQ((*log)[i].areas, expected[i].second) << i;
    }
    ComPtr<ILuxImage> heldImage;
    ComPtr<ILuxRegion> heldRegion;
    ASSERT_EQ(tool->get_InputImage(heldImage.Out()), S_OK);
    ASSERT_EQ(tool->get_Region(heldRegion.Out()), S_OK);
    EXPECT_EQ(As<IUnknown>(heldImage.get()).get(), As<IUnknown>(image.get()).get());
    EXPECT_EQ(As<IUnknown>(heldRegion.get()).get(), As<IUnknown>(region.get()).get());
}

struct RecordEntry {
    std::string key;
    int32_t type;
    int32_t usage;
    Variant content;
};

std::vector<RecordEntry> SubRecords(ILuxRecord* top) {
    std::vector<RecordEntry> entries;
    LONG count = 0;
    EXPECT_EQ(top->get_Count(&count), S_OK);
    for (LONG i = 0; i < count; ++i) {
        ComPtr<ILuxRecord> sub;
        EXPECT_EQ(top->get_Item(Variant(static_cast<int32_t>(i)).get(), sub.Out()), S_OK);
        RecordEntry entry;
        Bstr key;
        LuxRecordTypeConstants type{};
        LuxRecordUsageConstants usage{};
        EXPECT_EQ(sub->get_RecordKey(key.Out()), S_OK);
        EXPECT_EQ(sub->get_RecordType(&type), S_OK);
        EXPECT_EQ(sub->get_RecordUsage(&usage), S_OK);
        EXPECT_EQ(sub->get_Content(entry.content.Out()), S_OK);
        entry.key = key.str();
        entry.type = type;
        entry.usage = usage;
        entries.push_back(std::move(entry));
    }
    return entries;
}

TEST_F(RegionStatisticsToolTest, RecordsCarryTheirTypesAndUsagesAndFollowTheMasks) {
    std::mt19937 random(22);
    auto tool = NewTool();
    auto base = As<ILuxTool>(tool.get());
    auto image = RandomImage8(30, 20, random);
    auto region = NewRectangle(-3, 4, 10, 6);  // clipped at the left edge
    SetImage(tool.get(), image.get());
    SetRegion(tool.get(), region.get());

    ComPtr<ILuxRecord> current;
    ASSERT_EQ(base->CreateCurrentRecord(current.Out()), S_OK);
    auto entries = SubRecords(current.get());
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].key, "InputImage");
    EXPECT_EQ(entries[0].type, luxRecordTypeImage);
    EXPECT_EQ(entries[0].usage, luxRecordUsageInput);
    EXPECT_EQ(entries[0].content.get().punkVal ? As<IUnknown>(entries[0].content.get().punkVal).get() : nullptr,
              As<IUnknown>(image.get()).get());
    EXPECT_EQ(entries[1].key, "Region");
    EXPECT_EQ(entries[1].type, luxRecordTypeGraphic);
    EXPECT_EQ(entries[1].usage, luxRecordUsageConfiguration);
    ASSERT_EQ(base->put_CurrentRecordEnableBase(luxRegionStatisticsToolCurrentRecordRegion), S_OK);
    ASSERT_EQ(base->CreateCurrentRecord(current.Out()), S_OK);
    entries = SubRecords(current.get());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].key, "Region");

    ASSERT_EQ(RunAndRead(tool.get()).code, S_OK);
    LONG area = 0;
    ASSERT_EQ(tool->get_Area(&area), S_OK);
    EXPECT_EQ(area, 7 * 6);
    ASSERT_EQ(base->put_LastRunRecordDiagEnableBase(luxToolLastRunRecordDiagAll), S_OK);
    ComPtr<ILuxRecord> lastRun;
    ASSERT_EQ(base->CreateLastRunRecord(lastRun.Out()), S_OK);
    entries = SubRecords(lastRun.get());
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[0].key, "InputImage");
    EXPECT_EQ(entries[0].type, luxRecordTypeImage);
    EXPECT_EQ(entries[0].usage, luxRecordUsageInput);
    EXPECT_EQ(entries[1].key, "Region");
    EXPECT_EQ(entries[1].type, luxRecordTypeGraphic);
    EXPECT_EQ(entries[1].usage, luxRecordUsageConfiguration);
    auto mapped = As<ILuxShape>(entries[1].content.get().punkVal);
    EXPECT_EQ(SpaceName(mapped.get()), "#");
    EXPECT_EQ(Params(As<ILuxRectangle>(mapped.get()).get()), (RectParams{-3, 4, 10, 6}));  // mapped, not clipped
    EXPECT_EQ(entries[2].key, "ResultStrings");
    EXPECT_EQ(entries[2].type, luxRecordTypeStringsCollection);
    EXPECT_EQ(entries[2].usage, luxRecordUsageResult);
    auto strings = As<ILuxStringCollection>(entries[2].content.get().punkVal);
    Bstr areaText;
    ASSERT_EQ(strings->get_Item(Variant("Area").get(), areaText.Out()), S_OK);
    EXPECT_EQ(areaText.str(), "42");
    LONG stringCount = 0;
    ASSERT_EQ(strings->get_Count(&stringCount), S_OK);
    EXPECT_EQ(stringCount, 6);
    EXPECT_EQ(entries[3].key, "Mask");
    EXPECT_EQ(entries[3].type, tool::CLuxRegionStatisticsTool::kRecordTypeRunLengthMask);
    EXPECT_EQ(entries[3].type & 0xFFFF, VT_UNKNOWN);
    EXPECT_GE(static_cast<uint32_t>(entries[3].type), static_cast<uint32_t>(luxRecordTypeToolDefined));
    EXPECT_LE(static_cast<uint32_t>(entries[3].type), 0x4FFFFFFFu);
    EXPECT_EQ(entries[3].usage, luxRecordUsageDiagnostic);
    auto mask = As<ILuxRLEBuffer>(entries[3].content.get().punkVal);
    LONG maskX = -1, maskWidth = -1, maskHeight = -1;
    ASSERT_EQ(mask->get_X(&maskX), S_OK);
    ASSERT_EQ(mask->get_Width(&maskWidth), S_OK);
    ASSERT_EQ(mask->get_Height(&maskHeight), S_OK);
    EXPECT_EQ(maskX, 0);
    EXPECT_EQ(maskWidth, 7);
    EXPECT_EQ(maskHeight, 6);

    // Disabled bits give no sub-record.
    ASSERT_EQ(base->put_LastRunRecordEnableBase(luxRegionStatisticsToolLastRunRecordResultStrings), S_OK);
    ASSERT_EQ(base->put_LastRunRecordDiagEnableBase(luxToolLastRunRecordDiagNone), S_OK);
    ASSERT_EQ(base->CreateLastRunRecord(lastRun.Out()), S_OK);
    entries = SubRecords(lastRun.get());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].key, "ResultStrings");

    // A failed run keeps its input image and nothing else.
    SetRegion(tool.get(), NewRectangle(100, 100, 2, 2).get());
    ASSERT_EQ(RunAndRead(tool.get()).code, static_cast<HRESULT>(e_LuxOperator_InvalidRegion));
    ASSERT_EQ(base->put_LastRunRecordEnableBase(luxToolLastRunRecordAll), S_OK);
    ASSERT_EQ(base->put_LastRunRecordDiagEnableBase(luxToolLastRunRecordDiagAll), S_OK);
    ASSERT_EQ(base->CreateLastRunRecord(lastRun.Out()), S_OK);
    entries = SubRecords(lastRun.get());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].key, "InputImage");
}

}  // namespace
}  // namespace tessaly::test
