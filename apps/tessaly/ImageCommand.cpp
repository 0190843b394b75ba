#include "ImageCommand.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "FailureReport.h"
#include "com/core/MethodGuard.h"
#include "com/image/files/ImageFile.h"
#include "platform/Guid.h"

namespace tessaly::cli {

namespace {

constexpr int kUsageError = 2;

constexpr const char* kHelp =
    "\n"
    "  info FILE        print the size, the kind of pixels (Grey8, Grey16, RGB8) and the\n"
    "                   minimum, maximum and mean of each plane of an image file\n"
    "  convert IN OUT   read IN (PNG, TIFF, PGM/PPM or JPEG, told by its content) and write\n"
    "                   its pixels as OUT, in the format of OUT's extension (.png, .tif,\n"
    "                   .tiff, .pgm, .ppm, .pnm)\n";

// Runs `body` as a guarded call, so that a failure becomes the HRESULT and description a
// client sees; reports it naming `file`.
template <class Body>
std::optional<int> Guard(std::string_view file, std::ostream& errors, Body&& body) {
    const HRESULT result = core::Guarded("image", GUID_NULL, std::forward<Body>(body));
    if (FAILED(result)) return FailureReport::Print(errors, file, result);
    return std::nullopt;
}

template <class T>
void PrintPlane(std::ostream& out, const char* name, const ccPelBuffer<T>& plane) {
    uint64_t sum = 0;
    T low = plane.Get(0, 0);
    T high = low;
    for (int32_t y = 0; y < plane.Height(); ++y) {
        const T* row = plane.RowPointer(y);
        for (int32_t x = 0; x < plane.Width(); ++x) {
            sum += row[x];
            low = std::min(low, row[x]);
            high = std::max(high, row[x]);
        }
    }
    char mean[32];
    std::snprintf(mean, sizeof mean, "%.2f",
                  static_cast<double>(sum) / (static_cast<double>(plane.Width()) * plane.Height()));
    out << name << ": min " << +low << " max " << +high << " mean " << mean << '\n';
}

int Info(const char* file, std::ostream& out, std::ostream& errors) {
    std::optional<image::ImageFilePixels> pixels;
    if (auto failed = Guard(file, errors, [&] { pixels.emplace(image::ReadImageFile(file)); })) return *failed;
    out << "file: " << file << '\n'
        << "size: " << pixels->Width() << " x " << pixels->Height() << '\n'
        << "kind: " << image::ImageFilePixels::KindName(pixels->Kind()) << '\n';
    switch (pixels->Kind()) {
        case image::ImageFileKind::Grey8: PrintPlane(out, "grey", pixels->Grey8()); break;
        case image::ImageFileKind::Grey16: PrintPlane(out, "grey", pixels->Grey16()); break;
        case image::ImageFileKind::Rgb8:
            PrintPlane(out, "R", pixels->Rgb8().Plane(0));
            PrintPlane(out, "G", pixels->Rgb8().Plane(1));
            PrintPlane(out, "B", pixels->Rgb8().Plane(2));
            break;
    }
    return 0;
}

int Convert(const char* input, const char* output, std::ostream& errors) {
    std::optional<image::ImageFilePixels> pixels;
    if (auto failed = Guard(input, errors, [&] { pixels.emplace(image::ReadImageFile(input)); })) return *failed;
    if (auto failed = Guard(output, errors, [&] { image::WriteImageFile(output, *pixels); })) return *failed;
    return 0;
}

bool AsksForHelp(int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") return true;
    }
    return false;
}

int UsageError(std::ostream& errors, const std::string& reason) {
    if (!reason.empty()) errors << "tessaly image: " << reason << '\n';
    errors << ImageCommand::kUsage;
    return kUsageError;
}

}  // namespace

int ImageCommand::Run(int argc, char** argv, std::ostream& out, std::ostream& errors) {
    if (AsksForHelp(argc, argv)) {
        out << kUsage << kHelp;
        return 0;
    }
    if (argc == 0) return UsageError(errors, "");
    const std::string_view command = argv[0];
    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]).starts_with("--")) return UsageError(errors, "unknown option '" + std::string(argv[i]) + "'");
    if (command == "info") {
        if (argc != 2) return UsageError(errors, "info takes one FILE");
        return Info(argv[1], out, errors);
    }
    if (command == "convert") {
        if (argc != 3) return UsageError(errors, "convert takes IN and OUT");
        return Convert(argv[1], argv[2], errors);
    }
    return UsageError(errors, "unknown command '" + std::string(command) + "'");
}

}  // namespace tessaly::cli
