#include "InspectCommand.h"

#include <optional>
#include <string>
#include <string_view>

#include "FailureReport.h"
#include "RegionArgument.h"
#include "RegionReport.h"
#include "com/core/MethodGuard.h"
#include "com/image/files/ImageFileObjects.h"
#include "com/shape/Overlay.h"
#include "com/shape/RegionInImage.h"
#include "platform/Bstr.h"
#include "platform/Guid.h"

namespace tessaly::cli {

namespace {

constexpr int kUsageError = 2;

constexpr const char* kHelp =
    "\n"
    "Prints the area (in pixels), mean, standard deviation, minimum, maximum, median and a\n"
    "16-bin histogram of the pixels of IMAGE under the region, and with --overlay writes the\n"
    "image with the region's outline drawn on it as a colour PNG.\n"
    "\n"
    "  --region affine:CX,CY,LX,LY,ROT,SKEW\n"
    "                   an affine rectangle: centre (CX, CY), side lengths LX and LY, ROT\n"
    "                   the rotation of the LX side and SKEW the skew of the LY side, both\n"
    "                   in degrees (y points down, so positive angles turn clockwise)\n"
    "  --region rect:X,Y,W,H\n"
    "                   an axis-aligned rectangle: top-left corner (X, Y), width W, height H\n"
    "  --region circle:CX,CY,R\n"
    "                   a circle: centre (CX, CY), radius R\n"
    "  --region ellipse:CX,CY,RX,RY,ROT\n"
    "                   an ellipse: centre (CX, CY), radius RX along its own x-axis, RY along\n"
    "                   its y-axis, ROT the rotation of its x-axis in degrees\n"
    "  --region annulus:CX,CY,R,START,SPAN,SCALE\n"
    "                   a circular annulus section: centre (CX, CY), R the radius of its start\n"
    "                   arc, which begins at START degrees and turns through SPAN degrees\n"
    "                   (signed, not 0); the end arc is the start arc scaled by SCALE (> 0,\n"
    "                   not 1: above 1 the start arc is the inner one, below 1 the outer one)\n"
    "  --region polygon:X1,Y1,X2,Y2,X3,Y3,...\n"
    "                   a polygon of at least 3 vertices, the last joined to the first\n"
    "  --space NAME     the space the region's numbers are in: '#' the pixels (the default),\n"
    "                   '@' the root of the image's space tree (for an image read from a\n"
    "                   file the same as the pixels), '.' the image's selected space ('#')\n"
    "  --overlay OUT.png\n"
    "                   write the overlay picture\n"
    "\n"
    "A pixel is under the region when its centre is inside it. 8- and 16-bit grey images are\n"
    "measured as they are; colour images by their luminance 0.299 R + 0.587 G + 0.114 B.\n";

int UsageError(std::ostream& errors, const std::string& reason) {
    if (!reason.empty()) errors << "tessaly inspect: " << reason << '\n';
    errors << InspectCommand::kUsage;
    return kUsageError;
}

template <class Body>
std::optional<int> Guard(std::string_view file, std::ostream& errors, Body&& body) {
    const HRESULT result = core::Guarded("inspect", GUID_NULL, std::forward<Body>(body));
    if (FAILED(result)) return FailureReport::Print(errors, file, result);
    return std::nullopt;
}

}  // namespace

int InspectCommand::Run(int argc, char** argv, std::ostream& out, std::ostream& errors) {
    std::optional<std::string_view> file, regionText, space, overlay;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            out << kUsage << kHelp;
            return 0;
        }
    }
    struct Option {
        std::string_view flag;
        std::optional<std::string_view>* value;
    };
    const Option options[] = {{"--region", &regionText}, {"--space", &space}, {"--overlay", &overlay}};
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        // "--flag VALUE" or "--flag=VALUE".
        const Option* option = nullptr;
        for (const Option& candidate : options)
            if (argument.starts_with(candidate.flag) &&
                (argument.size() == candidate.flag.size() || argument[candidate.flag.size()] == '='))
                option = &candidate;
        if (option) {
            const std::string name(option->flag);
            std::string_view value;
            if (argument.size() > name.size()) {
                value = argument.substr(name.size() + 1);
            } else if (i + 1 < argc) {
                value = argv[++i];
            } else {
                return UsageError(errors, name + " needs a value");
            }
            if (*option->value) return UsageError(errors, name + " given twice");
            if (value.empty() && option->value != &regionText) return UsageError(errors, name + " needs a value");
            *option->value = value;
        } else if (argument.starts_with("-") && argument.size() > 1) {
            return UsageError(errors, "unknown option '" + std::string(argument) + "'");
        } else if (file) {
            return UsageError(errors, "one IMAGE only ('" + std::string(*file) + "' and '" + std::string(argument) + "')");
        } else {
            file = argument;
        }
    }
    if (!file) return UsageError(errors, "no IMAGE");
    if (!regionText) return UsageError(errors, "no --region");
    std::string problem;
    const std::optional<RegionArgument> region = RegionArgument::Parse(*regionText, problem);
    if (!region) return UsageError(errors, "--region: " + problem);

    ComPtr<ILuxImage> image;
    if (const HRESULT loaded = image::LoadImageFile(std::string(*file), image.Out()); FAILED(loaded))
        return FailureReport::Print(errors, *file, loaded);

    // The space must be one the image knows; an unknown name is the user's mistake.
    const std::string spaceName(space.value_or("#"));
    const HRESULT known = core::Guarded("inspect", GUID_NULL, [&] {
        ComPtr<ILuxTransform2D> probe;
        core::ThrowIfFailed(image->GetTransform(Bstr("#").get(), Bstr(shape::SpaceInImage(image.get(), spaceName)).get(),
                                                probe.Out()));
    });
    if (FAILED(known)) {
        FailureReport::Reason(spaceName, known);  // takes the error info off the thread
        return UsageError(errors, "--space: the image has no space '" + spaceName +
                                      "' (an image read from a file has '@' and '#')");
    }

    std::optional<RegionReport> report;
    ComPtr<ILuxShape> shape;
    if (auto failed = Guard(*file, errors, [&] {
            shape = region->MakeShape(spaceName);
            const ComPtr<image::CLuxRLEBuffer> mask = shape::RegionMaskInImage(shape.get(), image.get(), 255, 0);
            report.emplace(RegionReport::Measure(image.get(), mask->Core(), mask->X(), mask->Y()));
        }))
        return *failed;

    LONG width = 0, height = 0;
    image->get_Width(&width);
    image->get_Height(&height);
    out << "image      " << *file << " (" << width << " x " << height << ")\n"
        << "region     " << region->Describe() << ", in space '" << spaceName << "'\n";
    report->Print(out);

    if (overlay) {
        const std::string overlayPath(*overlay);
        if (auto failed = Guard(overlayPath, errors, [&] {
                ILuxShape* shapes[] = {shape.get()};
                const ComPtr<ILuxImage24PlanarColor> picture = shape::RenderOverlay(image.get(), shapes);
                ComPtr<ILuxImage> asImage;
                core::ThrowIfFailed(picture->QueryInterface(IID_ILuxImage, asImage.OutVoid()));
                core::ThrowIfFailed(image::SaveImageFile(asImage.get(), overlayPath));
            }))
            return *failed;
        out << "overlay    " << overlayPath << '\n';
    }
    return 0;
}

}  // namespace tessaly::cli
