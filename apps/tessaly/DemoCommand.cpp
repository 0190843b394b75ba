#include "DemoCommand.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <optional>
#include <string>
#include <string_view>

#include "FailureReport.h"
#include "RegionReport.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectPersistence.h"
#include "com/core/ccCOMError.h"
#include "com/image/files/ImageFileObjects.h"
#include "com/shape/Overlay.h"
#include "com/shape/RegionInImage.h"
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

constexpr const char* kHelp =
    "\n"
    "Runs one inspection request from start to end and says what it did:\n"
    "  - makes a 640 x 480 8-bit test image (a ramp under a checkerboard), or reads IMAGE\n"
    "  - adds a space \"Fixture\" to the image's space tree, rotated 20 degrees and scaled\n"
    "    1.5 against the pixels, its origin on the image's centre\n"
    "  - places an affine rectangle in \"Fixture\", maps it into the pixels, rasterises it\n"
    "    and measures the pixels under it (the table of `tessaly inspect`)\n"
    "  - writes into DIR (default: tessaly-demo in the current folder) demo.xml and\n"
    "    demo.bin, the image, tree and region in one archive of each format, and\n"
    "    overlay.png, the region over the image\n"
    "  - loads both archives back and checks that the region's mask is the same\n";

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

template <class I>
ComPtr<I> ItemOf(ILuxCollection* collection, const char* key) {
    Variant item;
    core::ThrowIfFailed(collection->get_Item(Variant(key).get(), item.Out()));
    ComPtr<I> typed;
    if (item.get().vt != VT_DISPATCH || !item.get().pdispVal)
        throw ccStdError::Described(std::string("the archive holds no object under \"") + key + "\"");
    core::ThrowIfFailed(item.get().pdispVal->QueryInterface(I::iid, typed.OutVoid()));
    return typed;
}

struct Mask {
    ccRLEBuffer runs;
    int32_t x = 0, y = 0;
    bool operator==(const Mask&) const = default;
};

Mask MaskOf(ILuxShape* region, ILuxImage* image) {
    const ComPtr<image::CLuxRLEBuffer> mask = shape::RegionMaskInImage(region, image, 255, 0);
    return Mask{mask->Core(), mask->X(), mask->Y()};
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

        const Mask mask = MaskOf(shape, image.get());
        out_ << "mask       " << mask.runs.NumRuns() << " runs in " << mask.runs.Height() << " rows, from pixel ("
             << mask.x << ", " << mask.y << ")\n\n";
        RegionReport::Measure(image.get(), mask.runs, mask.x, mask.y).Print(out_, true);

        // Files.
        file_ = folder_.string();
        std::filesystem::create_directories(folder_);
        const auto graph = Create<ILuxCollection>("Tessaly.LuxCollection");
        core::ThrowIfFailed(graph->Add(Variant(static_cast<IDispatch*>(image.get())).get(), Bstr("Image").get(), -1));
        core::ThrowIfFailed(graph->Add(Variant(static_cast<IDispatch*>(tree.get())).get(), Bstr("Tree").get(), -1));
        core::ThrowIfFailed(graph->Add(Variant(static_cast<IDispatch*>(shape)).get(), Bstr("Region").get(), -1));
        const std::filesystem::path xml = folder_ / "demo.xml", binary = folder_ / "demo.bin",
                                    overlay = folder_ / "overlay.png";
        Save(graph.get(), xml, luxPersistFormatXMLWithLineBreaks);
        Save(graph.get(), binary, luxPersistFormatBinary);
        file_ = overlay.string();
        ILuxShape* shapes[] = {shape};
        const ComPtr<ILuxImage24PlanarColor> picture = shape::RenderOverlay(image.get(), shapes, {.tintRegions = true});
        ComPtr<ILuxImage> pictureImage;
        core::ThrowIfFailed(picture->QueryInterface(IID_ILuxImage, pictureImage.OutVoid()));
        core::ThrowIfFailed(image::SaveImageFile(pictureImage.get(), overlay));
        out_ << "\nwritten to " << folder_.string() << "/\n"
             << "  demo.xml     image, tree and region, one XML archive (" << FileSize(xml) << " bytes)\n"
             << "  demo.bin     the same, binary (" << FileSize(binary) << " bytes)\n"
             << "  overlay.png  the region over the image\n";

        // Back from the files.
        const bool xmlSame = LoadsTheSameMask(xml, mask);
        const bool binarySame = LoadsTheSameMask(binary, mask);
        if (xmlSame && binarySame) {
            out_ << "loaded back: both archives give the same mask (" << mask.runs.NumRuns() << " runs)\n";
            return 0;
        }
        out_ << "loaded back: the region's mask differs after loading "
             << (xmlSame ? "demo.bin" : binarySame ? "demo.xml" : "demo.xml and demo.bin") << '\n';
        return FailureReport::kExitStatus;
    }

    const std::string& File() const noexcept { return file_; }

private:
    void Save(ILuxCollection* graph, const std::filesystem::path& path, int32_t format) {
        file_ = path.string();
        core::ThrowIfFailed(SaveObjectToFile(graph, file_, format, luxPersistOptionAll));
    }

    bool LoadsTheSameMask(const std::filesystem::path& path, const Mask& expected) {
        file_ = path.string();
        ComPtr<IDispatch> root;
        core::ThrowIfFailed(LoadObjectFromFile(file_, luxPersistFormatAny, root.Out()));
        ComPtr<ILuxCollection> graph;
        core::ThrowIfFailed(root->QueryInterface(IID_ILuxCollection, graph.OutVoid()));
        const auto image = ItemOf<ILuxImage>(graph.get(), "Image");
        const auto region = ItemOf<ILuxShape>(graph.get(), "Region");
        const bool same = MaskOf(region.get(), image.get()) == expected;
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
