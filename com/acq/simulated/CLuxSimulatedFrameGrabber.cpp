#include "com/acq/simulated/CLuxSimulatedFrameGrabber.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <system_error>

#include "com/acq/simulated/SimulatedFrameSource.h"
#include "platform/ClassTable.h"

namespace tessaly::acq {

namespace {

const ClassRegistrar<CLuxSimulatedFrameGrabber> registrar;

[[noreturn]] void Refuse(const std::string& text, const char* method) {
    throw core::ccCOMError(E_INVALIDARG, text, method, IID_ILuxSimulatedFrameGrabber);
}

bool IsImageFile(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static const char* const known[] = {".png", ".tif", ".tiff", ".pgm", ".ppm", ".pnm", ".jpg", ".jpeg"};
    return std::any_of(std::begin(known), std::end(known), [&](const char* k) { return extension == k; });
}

}  // namespace

CLuxSimulatedFrameGrabber::CLuxSimulatedFrameGrabber() : state_(std::make_shared<SimulatedGrabberState>()) {}

std::vector<VideoFormatInfo> CLuxSimulatedFrameGrabber::VideoFormats() const {
    return {
        {"Simulated 640x480 Grey8", 640, 480, luxImagePixelFormatGrey8, kCameraPorts},
        {"Simulated 1280x1024 Grey16", 1280, 1024, luxImagePixelFormatGrey16, kCameraPorts},
        {"Simulated 640x480 Bayer8", 640, 480, luxImagePixelFormatBayer8, kCameraPorts},
        {"Simulated 640x480 PlanarRGB8", 640, 480, luxImagePixelFormatPlanarRGB8, kCameraPorts},
    };
}

std::unique_ptr<FrameSource> CLuxSimulatedFrameGrabber::OpenSource(const VideoFormatInfo& format, int32_t cameraPort) {
    return std::make_unique<SimulatedFrameSource>(state_, format, cameraPort);
}

HRESULT CLuxSimulatedFrameGrabber::get_FrameTimeMs(double* FrameTimeMs) {
    return core::Guarded("FrameTimeMs", IID_ILuxSimulatedFrameGrabber, [&] {
        core::RequireOut(FrameTimeMs);
        *FrameTimeMs = state_->frameTimeMs.load();
    });
}

HRESULT CLuxSimulatedFrameGrabber::put_FrameTimeMs(double FrameTimeMs) {
    return core::Guarded("FrameTimeMs", IID_ILuxSimulatedFrameGrabber, [&] {
        if (!(FrameTimeMs >= 0 && FrameTimeMs <= 60000))
            Refuse("FrameTimeMs must lie between 0 and 60000 milliseconds", "FrameTimeMs");
        state_->frameTimeMs = FrameTimeMs;
    });
}

HRESULT CLuxSimulatedFrameGrabber::FireHardwareTrigger(LONG CameraPort) {
    return core::Guarded("FireHardwareTrigger", IID_ILuxSimulatedFrameGrabber, [&] {
        if (CameraPort < 0 || CameraPort >= kCameraPorts)
            Refuse("CameraPort must be 0 or 1, not " + std::to_string(CameraPort), "FireHardwareTrigger");
        const std::lock_guard lock(state_->mutex);
        for (SimulatedFrameSource* source : state_->sources)
            if (source->CameraPort() == CameraPort) source->Pulse();
    });
}

HRESULT CLuxSimulatedFrameGrabber::DropFrames(LONG Count) {
    return core::Guarded("DropFrames", IID_ILuxSimulatedFrameGrabber, [&] {
        if (Count < 0 || Count > 1000000)
            Refuse("Count must lie between 0 and 1000000, not " + std::to_string(Count), "DropFrames");
        state_->framesToDrop = Count;
    });
}

HRESULT CLuxSimulatedFrameGrabber::get_ImageFolder(BSTR* ImageFolder) {
    return core::Guarded("ImageFolder", IID_ILuxSimulatedFrameGrabber, [&] {
        core::RequireOut(ImageFolder);
        const std::lock_guard lock(state_->mutex);
        *ImageFolder = Bstr(state_->folder.string()).Detach();
    });
}

HRESULT CLuxSimulatedFrameGrabber::put_ImageFolder(BSTR ImageFolder) {
    return core::Guarded("ImageFolder", IID_ILuxSimulatedFrameGrabber, [&] {
        const std::filesystem::path folder(std::string(BstrView(ImageFolder)));
        std::shared_ptr<std::vector<std::filesystem::path>> files;
        if (!folder.empty()) {
            std::error_code error;
            if (!std::filesystem::is_directory(folder, error))
                Refuse("ImageFolder: \"" + folder.string() + "\" is not a folder", "ImageFolder");
            files = std::make_shared<std::vector<std::filesystem::path>>();
            for (const auto& entry : std::filesystem::directory_iterator(folder, error))
                if (entry.is_regular_file(error) && IsImageFile(entry.path())) files->push_back(entry.path());
            if (files->empty()) Refuse("ImageFolder: \"" + folder.string() + "\" holds no image files", "ImageFolder");
            std::sort(files->begin(), files->end());
        }
        const std::lock_guard lock(state_->mutex);
        state_->folder = folder;
        state_->folderFiles = std::move(files);
        state_->folderCursor = 0;
    });
}

}  // namespace tessaly::acq
