// What the tool suites share: a region statistics tool made by ProgID, a log of every event
// of ILuxToolEvents in order, the run status read as values, random images of each kind,
// an image whose tree holds a scaled and rotated space, and the statistics of a set of
// pixel values worked out by brute force.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "platform/SafeArray.h"
#include "shape/ShapeFixture.h"
#include "tool/RunStatusValues.h"

namespace tessaly::test {

struct ToolEvent {
    DISPID id = 0;
    int32_t stateId = 0;
    int32_t areas = 0;
    Variant value;
};

using StatusValues = RunStatusValues;

// The statistics of `values` worked out the plain way.
struct BruteStatistics {
    int32_t area = 0;
    double mean = 0, deviation = 0;
    int32_t min = 0, max = 0, median = 0;
    std::vector<int32_t> histogram;

    BruteStatistics(std::vector<int32_t> values, size_t bins) : histogram(bins, 0) {
        area = static_cast<int32_t>(values.size());
        if (values.empty()) return;
        long double sum = 0;
        for (int32_t v : values) {
            sum += v;
            ++histogram[static_cast<size_t>(v)];
        }
        mean = static_cast<double>(sum / values.size());
        long double squares = 0;
        for (int32_t v : values) squares += (v - static_cast<long double>(mean)) * (v - static_cast<long double>(mean));
        deviation = static_cast<double>(std::sqrt(squares / values.size()));
        std::sort(values.begin(), values.end());
        min = values.front();
        max = values.back();
        // The smallest value with at least half of the pixels at or below it.
        for (int32_t candidate : values) {
            const auto atOrBelow = std::upper_bound(values.begin(), values.end(), candidate) - values.begin();
            if (2 * atOrBelow >= static_cast<long>(values.size())) {
                median = candidate;
                break;
            }
        }
    }
};

class ToolFixture : public ShapeFixture {
public:
    static ComPtr<ILuxRegionStatisticsTool> NewTool() {
        return Make<ILuxRegionStatisticsTool>("Tessaly.LuxRegionStatisticsTool");
    }

    // Every event the tool raises from now on; `during` runs inside each event first.
    static std::shared_ptr<std::vector<ToolEvent>> ListenTool(IUnknown* tool,
                                                              std::function<void(DISPID)> during = nullptr) {
        auto log = std::make_shared<std::vector<ToolEvent>>();
        auto sink = ComPtr<IDispatch>::Attach(MakeEventSink(
            [log, during](DISPID id, DISPPARAMS* params) {
                if (during) during(id);
                ToolEvent event;
                event.id = id;
                if (id == luxToolEvents_Change && params->cArgs == 3) {
                    event.stateId = params->rgvarg[2].lVal;
                    event.value = Variant(params->rgvarg[1]);
                    event.areas = params->rgvarg[0].lVal;
                }
                log->push_back(std::move(event));
            },
            DIID_ILuxToolEvents));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(tool, DIID_ILuxToolEvents, sink.get(), &cookie), S_OK);
        return log;
    }

    static StatusValues Read(ILuxRunStatus* status) { return RunStatusValues::Of(status); }
    static ComPtr<ILuxRunStatus> StatusOf(IUnknown* tool) {
        ComPtr<ILuxRunStatus> status;
        EXPECT_EQ(As<ILuxTool>(tool)->get_RunStatus(status.Out()), S_OK);
        return status;
    }
    static StatusValues RunAndRead(IUnknown* tool) {
        EXPECT_EQ(As<ILuxTool>(tool)->Run(), S_OK);
        return Read(StatusOf(tool).get());
    }

    static ComPtr<ILuxImage8Grey> RandomImage8(LONG width, LONG height, std::mt19937& random, int low = 0,
                                               int high = 255) {
        auto image = NewImage(width, height);
        std::uniform_int_distribution<int> value(low, high);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) EXPECT_EQ(image->put_Pixel(x, y, value(random)), S_OK);
        return image;
    }
    static ComPtr<ILuxImage16Grey> RandomImage16(LONG width, LONG height, std::mt19937& random) {
        auto image = Make<ILuxImage16Grey>("Tessaly.LuxImage16Grey");
        EXPECT_EQ(As<ILuxImage>(image.get())->Allocate(width, height), S_OK);
        std::uniform_int_distribution<int> value(0, 65535);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) EXPECT_EQ(image->put_Pixel(x, y, value(random)), S_OK);
        return image;
    }
    static ComPtr<ILuxImage24PlanarColor> RandomColourImage(LONG width, LONG height, std::mt19937& random) {
        auto image = Make<ILuxImage24PlanarColor>("Tessaly.LuxImage24PlanarColor");
        EXPECT_EQ(As<ILuxImage>(image.get())->Allocate(width, height), S_OK);
        std::uniform_int_distribution<int> value(0, 255);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x)
                EXPECT_EQ(image->SetPixel(x, y, value(random), value(random), value(random)), S_OK);
        return image;
    }
    // The value of pixel (x, y) of any of the three kinds (plane `plane` of a colour image).
    static int32_t PixelOf(IUnknown* image, LONG x, LONG y, int plane) {
        LONG v[3] = {};
        ComPtr<ILuxImage8Grey> grey8;
        ComPtr<ILuxImage16Grey> grey16;
        if (SUCCEEDED(image->QueryInterface(IID_ILuxImage8Grey, grey8.OutVoid())) && grey8) {
            EXPECT_EQ(grey8->get_Pixel(x, y, &v[0]), S_OK);
            return v[0];
        }
        if (SUCCEEDED(image->QueryInterface(IID_ILuxImage16Grey, grey16.OutVoid())) && grey16) {
            EXPECT_EQ(grey16->get_Pixel(x, y, &v[0]), S_OK);
            return v[0];
        }
        EXPECT_EQ(As<ILuxImage24PlanarColor>(image)->GetPixel(x, y, &v[0], &v[1], &v[2]), S_OK);
        return v[plane];
    }

    // The space "Fixture" under the root of the image's tree: root = scale * rotation * p + t.
    struct Placement {
        double scale, angle, tx, ty;
        void Map(double x, double y, double& px, double& py) const {
            const double c = std::cos(angle) * scale, s = std::sin(angle) * scale;
            px = c * x - s * y + tx;
            py = s * x + c * y + ty;
        }
    };
    static void AddFixtureSpace(IUnknown* image, const Placement& p) {
        ComPtr<ILuxCoordinateSpaceTree> tree;
        ASSERT_EQ(As<ILuxImage>(image)->get_CoordinateSpaceTree(tree.Out()), S_OK);
        const double c = std::cos(p.angle) * p.scale, s = std::sin(p.angle) * p.scale;
        auto linear = Linear(c, -s, s, c, p.tx, p.ty);
        ASSERT_EQ(AddSpace(tree.get(), "Fixture", linear.get()), S_OK);
    }

    static ComPtr<ILuxRectangleAffine> NewAffine(double cx, double cy, double sx, double sy, double rotation,
                                                 double skew, const char* space) {
        auto region = Make<ILuxRectangleAffine>("Tessaly.LuxRectangleAffine");
        EXPECT_EQ(region->SetCenterLengthsRotationSkew(cx, cy, sx, sy, rotation, skew), S_OK);
        EXPECT_EQ(As<ILuxShape>(region.get())->put_SelectedSpaceName(Bstr(space).get()), S_OK);
        return region;
    }

    // The pixel values under an affine rectangle given in the placed space, by the rule of
    // the library's regions: a pixel is inside when its centre is.
    static std::vector<int32_t> ValuesUnder(IUnknown* image, ILuxRectangleAffine* region, const Placement& p,
                                            int plane) {
        double ox, oy, xx, xy, yx, yy;
        EXPECT_EQ(region->GetOriginCornerXCornerY(&ox, &oy, &xx, &xy, &yx, &yy), S_OK);
        p.Map(ox, oy, ox, oy);
        p.Map(xx, xy, xx, xy);
        p.Map(yx, yy, yx, yy);
        const double ux = xx - ox, uy = xy - oy, vx = yx - ox, vy = yy - oy;
        const double det = ux * vy - uy * vx;
        LONG width = 0, height = 0;
        EXPECT_EQ(As<ILuxImage>(image)->get_Width(&width), S_OK);
        EXPECT_EQ(As<ILuxImage>(image)->get_Height(&height), S_OK);
        std::vector<int32_t> values;
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) {
                const double dx = x + 0.5 - ox, dy = y + 0.5 - oy;
                const double a = (dx * vy - dy * vx) / det, b = (ux * dy - uy * dx) / det;
                if (a >= 0 && a < 1 && b >= 0 && b < 1) values.push_back(PixelOf(image, x, y, plane));
            }
        return values;
    }
    static std::vector<int32_t> AllValues(IUnknown* image, int plane) {
        LONG width = 0, height = 0;
        EXPECT_EQ(As<ILuxImage>(image)->get_Width(&width), S_OK);
        EXPECT_EQ(As<ILuxImage>(image)->get_Height(&height), S_OK);
        std::vector<int32_t> values;
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) values.push_back(PixelOf(image, x, y, plane));
        return values;
    }

    static std::vector<int32_t> HistogramOf(ILuxRegionStatisticsTool* tool) {
        Variant histogram;
        EXPECT_EQ(tool->get_Histogram(histogram.Out()), S_OK);
        std::vector<int32_t> counts;
        if (histogram.vt() != (VT_ARRAY | VT_I4)) {
            ADD_FAILURE() << "the histogram is of type " << histogram.vt();
            return counts;
        }
        SAFEARRAY* array = histogram.get().parray;
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(array, 1, &lower);
        SafeArrayGetUBound(array, 1, &upper);
        EXPECT_EQ(lower, 0);
        void* data = nullptr;
        EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
        counts.assign(static_cast<int32_t*>(data), static_cast<int32_t*>(data) + (upper - lower + 1));
        SafeArrayUnaccessData(array);
        return counts;
    }

    static void ExpectNullOut(HRESULT got, const char* source) {
        EXPECT_EQ(got, E_POINTER);
        EXPECT_EQ(TakeErrorInfo().source, source);
    }

    // Compares every result of the tool with the brute-force statistics.
    static void ExpectResults(ILuxRegionStatisticsTool* tool, const BruteStatistics& expected) {
        VARIANT_BOOL valid = VARIANT_FALSE;
        EXPECT_EQ(tool->get_ResultsValid(&valid), S_OK);
        EXPECT_EQ(valid, VARIANT_TRUE);
        LONG area = -1, min = -1, max = -1, median = -1;
        double mean = -1, deviation = -1;
        EXPECT_EQ(tool->get_Area(&area), S_OK);
        EXPECT_EQ(tool->get_Mean(&mean), S_OK);
        EXPECT_EQ(tool->get_StandardDeviation(&deviation), S_OK);
        EXPECT_EQ(tool->get_Min(&min), S_OK);
        EXPECT_EQ(tool->get_Max(&max), S_OK);
        EXPECT_EQ(tool->get_Median(&median), S_OK);
        EXPECT_EQ(area, expected.area);
        EXPECT_NEAR(mean, expected.mean, 1e-9 * std::max(1.0, expected.mean));
        EXPECT_NEAR(deviation, expected.deviation, 1e-9 * std::max(1.0, expected.deviation));
        EXPECT_EQ(min, expected.min);
        EXPECT_EQ(max, expected.max);
        EXPECT_EQ(median, expected.median);
        EXPECT_EQ(HistogramOf(tool), expected.histogram);
    }
};

}  // namespace tessaly::test
