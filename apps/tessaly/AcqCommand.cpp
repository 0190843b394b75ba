#include "AcqCommand.h"

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "FailureReport.h"
#include "ProgressBar.h"
#include "com/acq/genicam/GenICamFrameGrabbers.h"
#include "com/image/files/ImageFileObjects.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/Variant.h"
#include "xnl/std/base/ccStopwatch.h"

namespace tessaly::cli {

namespace {

constexpr int kUsageError = 2;
// An acquisition that takes longer is reported as failed instead of waiting for
// ever (a camera that waits for a hardware trigger, one that was unplugged).
constexpr double kTimeoutMs = 5000.0;
// Overruns tolerated per frame asked for before the grab gives up.
constexpr int kDropsPerFrame = 10;

constexpr const char* kHelp =
    "\n"
    "  list             every frame grabber present "
    "(the simulated one first, then the\n"
    "                   GenICam cameras found), with "
    "its serial number, video formats\n"
    "                   and camera ports\n"
    "  grab             acquire N images (1 by "
    "default) from port 0 of a grabber (the first\n"
    "                   by default, or the one named "
    "by --grabber) in a video format (its\n"
    "                   first by default) and save "
    "them as DIR/frame-0001.png and on (DIR\n"
    "                   is the current folder by "
    "default); then print the frames per\n"
    "                   second and the frames the "
    "grabber dropped. Grey 16-bit frames are\n"
    "                   saved as 16-bit PNG, Bayer "
    "frames demosaiced to colour.\n";

struct GrabOptions {
    std::string grabber;
    std::string format;
    long count = 1;
    std::filesystem::path out = ".";
};

int UsageError(std::ostream& errors, const std::string& reason) {
    if (!reason.empty()) errors << "tessaly acq: " << reason << '\n';
    errors << AcqCommand::kUsage;
    return kUsageError;
}

// Reports a failed call naming what it was made on; returns the exit status.
int Failed(std::ostream& errors, std::string_view what, HRESULT result) {
    return FailureReport::Print(errors, what, result);
}

std::vector<std::string> Strings(ILuxStringCollection* strings) {
    std::vector<std::string> texts;
    LONG count = 0;
    if (strings->get_Count(&count) != S_OK) return texts;
    for (LONG i = 0; i < count; ++i) {
        Bstr text;
        if (strings->get_Item(Variant(static_cast<int32_t>(i)).get(), text.Out()) == S_OK) texts.push_back(text.str());
    }
    return texts;
}

std::optional<int> MakeGrabbers(ComPtr<ILuxFrameGrabbers>& grabbers, std::ostream& errors) {
    const HRESULT made = CreateObject(CLSID_LuxFrameGrabbers, IID_ILuxFrameGrabbers, grabbers.OutVoid());
    if (FAILED(made)) return Failed(errors, "LuxFrameGrabbers", made);
    return std::nullopt;
}

int List(std::ostream& out, std::ostream& errors) {
    ComPtr<ILuxFrameGrabbers> grabbers;
    if (auto failed = MakeGrabbers(grabbers, errors)) return *failed;
    LONG count = 0;
    grabbers->get_Count(&count);
    for (LONG i = 0; i < count; ++i) {
        ComPtr<ILuxFrameGrabber> grabber;
        if (HRESULT got = grabbers->get_Item(Variant(static_cast<int32_t>(i)).get(), grabber.Out()); FAILED(got))
            return Failed(errors, "LuxFrameGrabbers", got);
        Bstr name, serial;
        grabber->get_Name(name.Out());
        grabber->get_SerialNumber(serial.Out());
        out << name.view() << " (serial number " << serial.view() << ")\n";
        ComPtr<ILuxStringCollection> formats;
        if (HRESULT got = grabber->get_AvailableVideoFormats(formats.Out()); FAILED(got))
            return Failed(errors, name.view(), got);
        for (const std::string& format : Strings(formats.get())) {
            LONG ports = 0;
            grabber->get_NumCameraPorts(Bstr(format).get(), &ports);
            out << "  " << format << ", " << ports << (ports == 1 ? " camera port\n" : " camera ports\n");
        }
    }
    if (!acq::GenICamSupportBuilt())
        out << "GenICam cameras: not supported by this build (it was made without "
               "Aravis)\n";
    return 0;
}

std::optional<int> ParseGrab(int argc, char** argv, GrabOptions& options, std::ostream& errors) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option != "--grabber" && option != "--format" && option != "--count" && option != "--out")
            return UsageError(errors, "unknown option '" + std::string(option) + "'");
        if (i + 1 >= argc) return UsageError(errors, std::string(option) + " needs a value");
        const std::string value = argv[++i];
        if (option == "--grabber") options.grabber = value;
        if (option == "--format") options.format = value;
        if (option == "--out") options.out = value;
        if (option == "--count") {
            char* end = nullptr;
            options.count = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || options.count < 1 || options.count > 1000000)
                return UsageError(errors, "--count takes a whole number from 1 to 1000000");
        }
    }
    return std::nullopt;
}

// The format the images are saved in: all the pixels the grabber delivers.
LuxImagePixelFormatConstants SavedFormat(LuxImagePixelFormatConstants acquired) {
    switch (acquired) {
        case luxImagePixelFormatGrey10:
        case luxImagePixelFormatGrey12:
        case luxImagePixelFormatGrey14:
        case luxImagePixelFormatGrey16: return luxImagePixelFormatGrey16;
        case luxImagePixelFormatBayer8:
        case luxImagePixelFormatPlanarRGB8: return luxImagePixelFormatPlanarRGB8;
        default: return luxImagePixelFormatGrey8;
    }
}

std::filesystem::path FramePath(const std::filesystem::path& folder, long number) {
    char name[32];
    std::snprintf(name, sizeof name, "frame-%04ld.png", number);
    return folder / name;
}

int Grab(int argc, char** argv, std::ostream& out, std::ostream& errors, bool progressOnErrors) {
    GrabOptions options;
    if (auto failed = ParseGrab(argc, argv, options, errors)) return *failed;
    std::error_code folderError;
    std::filesystem::create_directories(options.out, folderError);
    if (!std::filesystem::is_directory(options.out)) {
        errors << "tessaly: " << options.out.string() << ": not a folder that can be made\n";
        return FailureReport::kExitStatus;
    }

    ComPtr<ILuxFrameGrabbers> grabbers;
    if (auto failed = MakeGrabbers(grabbers, errors)) return *failed;
    ComPtr<ILuxFrameGrabber> grabber;
    const Variant which = options.grabber.empty() ? Variant(int32_t{0}) : Variant(options.grabber);
    if (HRESULT got = grabbers->get_Item(which.get(), grabber.Out()); FAILED(got))
        return Failed(errors, options.grabber.empty() ? "LuxFrameGrabbers" : options.grabber, got);
    Bstr name;
    grabber->get_Name(name.Out());
    if (options.format.empty()) {
        ComPtr<ILuxStringCollection> formats;
        if (HRESULT got = grabber->get_AvailableVideoFormats(formats.Out()); FAILED(got))
            return Failed(errors, name.view(), got);
        const std::vector<std::string> names = Strings(formats.get());
        if (names.empty()) {
            errors << "tessaly: " << name.view() << ": offers no video format\n";
            return FailureReport::kExitStatus;
        }
        options.format = names.front();
    }

    // Made as grey (every format converts to it), then set to the format that
    // keeps all the pixels once the grabber says what it delivers.
    ComPtr<ILuxAcqFifo> fifo;
    if (HRESULT made =
            grabber->CreateAcqFifo(Bstr(options.format).get(), luxImagePixelFormatGrey8, 0, VARIANT_TRUE, fifo.Out());
        FAILED(made))
        return Failed(errors, name.str() + ": " + options.format, made);
    LuxImagePixelFormatConstants acquired = luxImagePixelFormatGrey8;
    fifo->AcquiredPixelFormat(&acquired);
    if (HRESULT set = fifo->put_OutputPixelFormat(SavedFormat(acquired)); FAILED(set))
        return Failed(errors, options.format, set);
    fifo->put_Timeout(kTimeoutMs);
    fifo->put_TimeoutEnabled(VARIANT_TRUE);

    std::optional<ProgressBar> bar;
    if (progressOnErrors) {
        bar.emplace(errors, static_cast<uint64_t>(options.count));
        bar->Show(0);
    }
    long saved = 0;
    long dropped = 0;
    ccStopwatch watch;
    watch.Start();
    int status = 0;
    while (saved < options.count) {
        ComPtr<ILuxImage> image;
        LONG triggerNumber = 0;
        const HRESULT acquiredResult = fifo->Acquire(&triggerNumber, image.Out());
        if (acquiredResult == e_LuxAcq_Overrun && ++dropped <= kDropsPerFrame * options.count) continue;
        if (FAILED(acquiredResult)) {
            if (bar) bar->Finish();
            status = Failed(errors, name.str() + ": " + options.format, acquiredResult);
            break;
        }
        const std::filesystem::path path = FramePath(options.out, saved + 1);
        if (HRESULT written = image::SaveImageFile(image.get(), path); FAILED(written)) {
            if (bar) bar->Finish();
            status = Failed(errors, path.string(), written);
            break;
        }
        ++saved;
        if (bar) bar->Show(static_cast<uint64_t>(saved));
    }
    watch.Stop();
    if (bar && status == 0) bar->Finish();
    const double seconds = watch.Seconds();
    char rate[64];
    std::snprintf(rate, sizeof rate, "%.1f", seconds > 0 ? static_cast<double>(saved) / seconds : 0.0);
    out << saved << (saved == 1 ? " frame" : " frames") << " from " << name.view() << " (" << options.format
        << ") saved in " << options.out.string() << ": " << rate << " frames per second, " << dropped << " dropped\n";
    return status;
}

bool AsksForHelp(int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") return true;
    }
    return false;
}

}  // namespace

int AcqCommand::Run(int argc, char** argv, std::ostream& out, std::ostream& errors, bool progressOnErrors) {
    if (AsksForHelp(argc, argv)) {
        out << kUsage << kHelp;
        return 0;
    }
    if (argc == 0) return UsageError(errors, "");
    const std::string_view command = argv[0];
    if (command == "list") {
        if (argc != 1) return UsageError(errors, "list takes no arguments");
        return List(out, errors);
    }
    if (command == "grab") return Grab(argc, argv, out, errors, progressOnErrors);
    return UsageError(errors, "unknown command '" + std::string(command) + "'");
}

}  // namespace tessaly::cli
