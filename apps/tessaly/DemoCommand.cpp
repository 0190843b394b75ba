#include "DemoCommand.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FailureReport.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectPersistence.h"
#include "com/core/ccCOMError.h"
#include "com/image/files/ImageFileObjects.h"
#include "platform/SafeArray.h"
#include "com/shape/Overlay.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/Guid.h"
#include "platform/Variant.h"

namespace tessaly::cli {

namespace {

constexpr int kUsageError = 2;
constexpr int32_t kPatternWidth = 640;
constexpr int32_t kPatternHeight = 480;
constexpr double kFixtureDegrees = 20.0;
constexpr double kFixtureScale = 1.5;
// The tool's limits on the mean grey value under the region.
constexpr double kRejectLow = 32, kWarnLow = 64, kWarnHigh = 192, kRejectHigh = 224;

constexpr const char* kHelp =
    "\n"
    "Runs one inspection request from start to end and says what it did:\n"
    "  - makes a 640 x 480 8-bit test image (a ramp under a checkerboard), or reads IMAGE\n"
    "  - adds a space \"Fixture\" to the image's space tree, rotated 20 degrees and scaled\n"
    "    1.5 against the pixels, its origin on the image's centre\n"
    "  - places an affine rectangle in \"Fixture\"\n"
    "  - gives image and region to a LuxRegionStatisticsTool with limits on the mean, runs\n"
    "    it and prints its run status, its timings and its results\n"
    "  - writes into DIR (default: tessaly-demo in the current folder) demo.xml and\n"
    "    demo.bin, the tool with its image, tree, region and results in one archive of\n"
    "    each format, image.png, the image, and overlay.png, the region over the image\n"
    "  - loads both archives back and runs the tool again, which must give the same\n"
    "    results; `tessaly run DIR/demo.bin DIR/image.png` does the same from the files\n";

std::string Fixed(double value, int decimals = 1) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

// A ramp from left to right under a checkerboard of 40-pixel squares: every value of
// 32..239 appears, and the squares make any rotation of a region visible.
ComPtr<ILuxImage> TestPattern() {
    ccPelBuffer<uint8_t> pels(kPatternWidth, kPatternHeight);
    for (int32_t y = 0; y < kPatternHeight; ++y) {
        uint8_t* row = pels.RowPointer(y);
        for (int32_t x = 0; x < kPatternWidth; ++x)
            row[x] = static_cast<uint8_t>(32 + x * 160 / kPatternWidth + ((x / 40 + y / 40) % 2 ? 48 : 0));
    }
    return image::ImageFromFilePixels(image::ImageFilePixels(pels));
}

// Root from Fixture: scale, then rotate, then move the origin to (cx, cy).
ComPtr<ILuxTransform2D> FixtureTransform(double cx, double cy) {
    const double r = kFixtureDegrees * std::numbers::pi / 180.0;
    const double s = kFixtureScale;
    const cc2XformLinear value(s * std::cos(r), -s * std::sin(r), s * std::sin(r), s * std::cos(r), cx, cy);
    const auto transform = transform::CLuxTransform2DLinear::FromValue(value);
    return ComPtr<ILuxTransform2D>(static_cast<ILuxTransform2D*>(transform.get()));
}

template <class I>
ComPtr<I> Create(const char* progId) {
    ComPtr<I> object;
    core::ThrowIfFailed(tessaly::CreateObject(progId, I::iid, object.OutVoid()));
    return object;
}

// The region as the pixels see it.
std::string InPixels(ILuxShape* region, ILuxImage* image) {
    ComPtr<ILuxTransform2D> pixelFromFixture;
    core::ThrowIfFailed(image->GetTransform(Bstr("#").get(), Bstr("Fixture").get(), pixelFromFixture.Out()));
    ComPtr<ILuxShape> mapped;
    core::ThrowIfFailed(region->Map(pixelFromFixture.get(), luxCopyShapeAll, mapped.Out()));
    ComPtr<ILuxRectangleAffine> affine;
    core::ThrowIfFailed(mapped->QueryInterface(IID_ILuxRectangleAffine, affine.OutVoid()));
    double cx, cy, lx, ly, rotation, skew;
    core::ThrowIfFailed(affine->GetCenterLengthsRotationSkew(&cx, &cy, &lx, &ly, &rotation, &skew));
    return "centre (" + Fixed(cx) + ", " + Fixed(cy) + "), sides " + Fixed(lx) + " x " + Fixed(ly) + ", rotation " +
           Fixed(rotation * 180.0 / std::numbers::pi) + " deg";
}

uint64_t FileSize(const std::filesystem::path& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

// What a run of the tool left: its status and its results, read through its interface.
struct RunResults {
    HRESULT code = S_OK;
    std::string text;
    double timeRaw = 0, time = 0;
    LONG area = 0, min = 0, max = 0, median = 0;
    double mean = 0, deviation = 0;
    std::vector<int32_t> histogram;

    bool SameResults(const RunResults& other) const {
        return code == other.code && area == other.area && min == other.min && max == other.max &&
               median == other.median && mean == other.mean && deviation == other.deviation &&
               histogram == other.histogram;
    }
};

std::vector<int32_t> Counts(const VARIANT& value) {
    if (value.vt != (VT_ARRAY | VT_I4) || !value.parray)
        throw ccStdError::Described("the tool's Histogram is not an array of 4-byte counts");
    void* data = nullptr;
    core::ThrowIfFailed(SafeArrayAccessData(value.parray, &data));
    const auto* counts = static_cast<const int32_t*>(data);
    std::vector<int32_t> result(counts, counts + SafeArrayElementCount(value.parray));
    SafeArrayUnaccessData(value.parray);
    return result;
}

RunResults RunTool(ILuxRegionStatisticsTool* tool) {
    core::ThrowIfFailed(tool->Run());
    RunResults run;
    ComPtr<ILuxRunStatus> status;
    core::ThrowIfFailed(tool->get_RunStatus(status.Out()));
    Bstr text;
    core::ThrowIfFailed(status->get_ErrorCode(&run.code));
    core::ThrowIfFailed(status->get_ErrorString(text.Out()));
    core::ThrowIfFailed(status->get_TimeRaw(&run.timeRaw));
    core::ThrowIfFailed(status->get_Time(&run.time));
    run.text = text.str();
    if (FAILED(run.code)) return run;
    core::ThrowIfFailed(tool->get_Area(&run.area));
    core::ThrowIfFailed(tool->get_Mean(&run.mean));
    core::ThrowIfFailed(tool->get_StandardDeviation(&run.deviation));
    core::ThrowIfFailed(tool->get_Min(&run.min));
    core::ThrowIfFailed(tool->get_Max(&run.max));
    core::ThrowIfFailed(tool->get_Median(&run.median));
    Variant histogram;
    core::ThrowIfFailed(tool->get_Histogram(histogram.Out()));
    run.histogram = Counts(histogram.get());
    return run;
}

const char* OutcomeName(HRESULT code) {
    if (code == luxAnalysisPass) return "passed";
    if (code == luxAnalysisWarn) return "warned";
    if (code == luxAnalysisReject) return "rejected";
    return FAILED(code) ? "failed" : "succeeded";
}

// The tool's histogram in 16 bins, empty ones at the ends left out.
void PrintHistogram(std::ostream& out, const std::vector<int32_t>& counts) {
    constexpr size_t kBins = 16;
    if (counts.size() < kBins) return;
    const size_t width = counts.size() / kBins;
    std::vector<uint64_t> bins(kBins);
    for (size_t value = 0; value < counts.size(); ++value) bins[std::min(value / width, kBins - 1)] += counts[value];
    const uint64_t most = *std::max_element(bins.begin(), bins.end());
    if (most == 0) return;
    size_t first = 0, last = kBins - 1;
    while (bins[first] == 0) ++first;
    while (bins[last] == 0) --last;
    out << "histogram  " << kBins << " bins of " << width << " values, empty ones at the ends left out\n";
    for (size_t bin = first; bin <= last; ++bin) {
        const std::string range = std::to_string(bin * width) + ".." + std::to_string(bin * width + width - 1);
        char line[64];
        std::snprintf(line, sizeof line, "  %13s %9llu", range.c_str(), static_cast<unsigned long long>(bins[bin]));
        // Bars of up to 40 characters; any count above 0 shows at least one.
        const size_t bar = static_cast<size_t>((bins[bin] * 40 + most - 1) / most);
        out << line << (bar ? "  " + std::string(bar, '#') : std::string()) << '\n';
    }
}

void PrintResults(std::ostream& out, const RunResults& run) {
    char times[96];
    std::snprintf(times, sizeof times, "TimeRaw %.3f ms, Time %.3f ms", run.timeRaw, run.time);
    out << "run        status " << FailureReport::Code(run.code) << " " << OutcomeName(run.code)
        << (run.text.empty() ? std::string() : ": " + run.text) << "\n"
        << "           " << times << "\n\n";
    if (FAILED(run.code)) return;
    out << "area       " << run.area << " pixels\n"
        << "mean       " << Fixed(run.mean, 2) << '\n'
        << "std dev    " << Fixed(run.deviation, 2) << '\n'
        << "min, max   " << run.min << ", " << run.max << '\n'
        << "median     " << run.median << '\n';
    PrintHistogram(out, run.histogram);
}

class Demo {
public:
    Demo(std::optional<std::string> imagePath, std::filesystem::path folder, std::ostream& out)
        : imagePath_(std::move(imagePath)), folder_(std::move(folder)), out_(out) {}

    // Throws on failure; `file_` names the file being worked on.
    int Run() {
        file_ = imagePath_.value_or("demo");
        ComPtr<ILuxImage> image;
        if (imagePath_) {
            core::ThrowIfFailed(image::LoadImageFile(*imagePath_, image.Out()));
        } else {
            image = TestPattern();
        }
        LONG width = 0, height = 0;
        core::ThrowIfFailed(image->get_Width(&width));
        core::ThrowIfFailed(image->get_Height(&height));
        out_ << "image      " << width << " x " << height << ", "
             << (imagePath_ ? "read from " + *imagePath_ : std::string("8-bit test pattern (a ramp under a checkerboard)"))
             << '\n';

        // The fixture: a space of the image's tree.
        ComPtr<ILuxCoordinateSpaceTree> tree;
        core::ThrowIfFailed(image->get_CoordinateSpaceTree(tree.Out()));
        const double cx = width / 2.0, cy = height / 2.0;
        core::ThrowIfFailed(tree->AddSpace(Bstr("@").get(), Bstr("Fixture").get(), FixtureTransform(cx, cy).get(),
                                           VARIANT_TRUE, luxAddSpaceDuplicateIsError));
        out_ << "fixture    space \"Fixture\" of the image's tree: rotated " << Fixed(kFixtureDegrees, 0)
             << " deg, scaled " << Fixed(kFixtureScale) << ", origin at pixel (" << Fixed(cx) << ", " << Fixed(cy)
             << ")\n";

        // The region, in the fixture's units.
        const auto region = Create<ILuxRectangleAffine>("Tessaly.LuxRectangleAffine");
        // A quarter of the image each way, in fixture units (at least one).
        const double lx = std::max(1.0, std::round(width / 4.0)), ly = std::max(1.0, std::round(height / 4.0));
        core::ThrowIfFailed(region->SetCenterLengthsRotationSkew(0.0, 0.0, lx, ly, 0.0, 0.0));
        core::ThrowIfFailed(region->put_SelectedSpaceName(Bstr("Fixture").get()));
        ComPtr<ILuxGraphic> graphic;
        core::ThrowIfFailed(region->QueryInterface(IID_ILuxGraphic, graphic.OutVoid()));
        core::ThrowIfFailed(graphic->put_Color(luxColorOrange));
        core::ThrowIfFailed(graphic->put_LineWidthInScreenPixels(2));
        ILuxShape* const shape = region.get();
        out_ << "region     affine rectangle in \"Fixture\": centre (0, 0), sides " << Fixed(lx, 0) << " x "
             << Fixed(ly, 0) << "\n"
             << "           in pixels: " << InPixels(shape, image.get()) << '\n';

        // The tool, measuring the pixels under the region and judging their mean.
        const auto tool = Create<ILuxRegionStatisticsTool>("Tessaly.LuxRegionStatisticsTool");
        ComPtr<ILuxRegion> asRegion;
        core::ThrowIfFailed(region->QueryInterface(IID_ILuxRegion, asRegion.OutVoid()));
        core::ThrowIfFailed(tool->putref_InputImage(image.get()));
        core::ThrowIfFailed(tool->putref_Region(asRegion.get()));
        core::ThrowIfFailed(tool->put_MeanLimitsEnabled(VARIANT_TRUE));
        core::ThrowIfFailed(tool->put_MeanRejectLow(kRejectLow));
        core::ThrowIfFailed(tool->put_MeanWarnLow(kWarnLow));
        core::ThrowIfFailed(tool->put_MeanWarnHigh(kWarnHigh));
        core::ThrowIfFailed(tool->put_MeanRejectHigh(kRejectHigh));
        out_ << "tool       LuxRegionStatisticsTool; its mean warns outside "
             << Fixed(kWarnLow, 0) << ".." << Fixed(kWarnHigh, 0) << ", rejects outside " << Fixed(kRejectLow, 0)
             << ".." << Fixed(kRejectHigh, 0) << "\n";
        const RunResults run = RunTool(tool.get());
        PrintResults(out_, run);

        // Files.
        file_ = folder_.string();
        std::filesystem::create_directories(folder_);
        const std::filesystem::path xml = folder_ / "demo.xml", binary = folder_ / "demo.bin",
                                    picture = folder_ / "image.png", overlay = folder_ / "overlay.png";
        Save(tool.get(), xml, luxPersistFormatXMLWithLineBreaks);
        Save(tool.get(), binary, luxPersistFormatBinary);
        file_ = picture.string();
        core::ThrowIfFailed(image::SaveImageFile(image.get(), picture));
        file_ = overlay.string();
        ILuxShape* shapes[] = {shape};
        const ComPtr<ILuxImage24PlanarColor> drawn = shape::RenderOverlay(image.get(), shapes, {.tintRegions = true});
        ComPtr<ILuxImage> drawnImage;
        core::ThrowIfFailed(drawn->QueryInterface(IID_ILuxImage, drawnImage.OutVoid()));
        core::ThrowIfFailed(image::SaveImageFile(drawnImage.get(), overlay));
        const std::string folder = folder_.string();
        out_ << "\nwritten to " << folder << "/\n"
             << "  demo.xml     the tool with its image, tree, region and results, one XML archive (" << FileSize(xml)
             << " bytes)\n"
             << "  demo.bin     the same, binary (" << FileSize(binary) << " bytes)\n"
             << "  image.png    the image\n"
             << "  overlay.png  the region over the image\n";

        // Back from the files.
        const bool xmlSame = RunsTheSame(xml, run);
        const bool binarySame = RunsTheSame(binary, run);
        if (!xmlSame || !binarySame) {
            out_ << "loaded back: the tool gives other results after loading "
                 << (xmlSame ? "demo.bin" : binarySame ? "demo.xml" : "demo.xml and demo.bin") << '\n';
            return FailureReport::kExitStatus;
        }
        out_ << "loaded back: both archives run again to the same results\n"
             << "run again: tessaly run " << (folder_ / "demo.bin").string() << " " << picture.string() << '\n';
        return 0;
    }

    const std::string& File() const noexcept { return file_; }

private:
    void Save(IDispatch* tool, const std::filesystem::path& path, int32_t format) {
        file_ = path.string();
        core::ThrowIfFailed(SaveObjectToFile(tool, file_, format, luxPersistOptionAll));
    }

    // Loads the tool and runs it on the image it was saved with.
    bool RunsTheSame(const std::filesystem::path& path, const RunResults& expected) {
        file_ = path.string();
        ComPtr<IDispatch> root;
        core::ThrowIfFailed(LoadObjectFromFile(file_, luxPersistFormatAny, root.Out()));
        ComPtr<ILuxRegionStatisticsTool> tool;
        core::ThrowIfFailed(root->QueryInterface(IID_ILuxRegionStatisticsTool, tool.OutVoid()));
        const bool same = RunTool(tool.get()).SameResults(expected);
        tool = nullptr;
        ClearObjectGraph(root.get());
        return same;
    }

    std::optional<std::string> imagePath_;
    std::filesystem::path folder_;
    std::ostream& out_;
    std::string file_ = "demo";
};

int UsageError(std::ostream& errors, const std::string& reason) {
    if (!reason.empty()) errors << "tessaly demo: " << reason << '\n';
    errors << DemoCommand::kUsage;
    return kUsageError;
}

}  // namespace

int DemoCommand::Run(int argc, char** argv, std::ostream& out, std::ostream& errors) {
    std::optional<std::string> imagePath;
    std::optional<std::string> folder;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            out << kUsage << kHelp;
            return 0;
        }
    }
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--out" || argument.starts_with("--out=")) {
            if (folder) return UsageError(errors, "--out given twice");
            if (argument.size() > 5) {
                folder = std::string(argument.substr(6));
            } else if (i + 1 < argc) {
                folder = argv[++i];
            } else {
                return UsageError(errors, "--out needs a DIR");
            }
            if (folder->empty()) return UsageError(errors, "--out needs a DIR");
        } else if (argument.starts_with("-") && argument.size() > 1) {
            return UsageError(errors, "unknown option '" + std::string(argument) + "'");
        } else if (imagePath) {
            return UsageError(errors, "one IMAGE only");
        } else {
            imagePath = std::string(argument);
        }
    }
    Demo demo(imagePath, folder.value_or("tessaly-demo"), out);
    int status = 0;
    const HRESULT result = core::Guarded("demo", GUID_NULL, [&] { status = demo.Run(); });
    if (FAILED(result)) return FailureReport::Print(errors, demo.File(), result);
    return status;
}

}  // namespace tessaly::cli
