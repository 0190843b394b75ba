// LuxSimulatedFrameGrabber: a frame grabber that makes its frames itself, for tests, demos
// and work away from the cameras. Name "Simulated", serial number "SIM-0001"; the video
// formats "Simulated 640x480 Grey8", "Simulated 1280x1024 Grey16", "Simulated 640x480
// Bayer8" (RGGB) and "Simulated 640x480 PlanarRGB8", two camera ports each, one FIFO a
// port at a time (SimulatedFrameSource says how frames are made and triggered).
//
//  - FrameTimeMs: milliseconds a frame takes, exposure and readout; 0 (the default) as fast
//    as the frames can be made. A number from 0 to 60,000; E_INVALIDARG otherwise.
//  - FireHardwareTrigger(CameraPort): a trigger pulse on a port, taken by a FIFO there
//    with the Semi or Auto model; E_INVALIDARG for a port the grabber does not have.
//  - DropFrames(Count): the next Count frames of any port are lost as overruns (0 to
//    1,000,000; E_INVALIDARG otherwise).
//  - ImageFolder: an existing folder whose image files (PNG, TIFF, PGM/PPM/PNM, JPEG, by
//    extension in any case) become the frames, in name order, looping, at their own size;
//    "" returns to the test pattern. A path that is no folder, or a folder without image
//    files, is E_INVALIDARG naming ImageFolder, the grabber unchanged.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/acq/impl/ILuxFrameGrabberImpl.h"
#include "com/acq/simulated/SimulatedGrabberState.h"

namespace tessaly::acq {

class CLuxSimulatedFrameGrabber : public ILuxFrameGrabberImpl<CLuxSimulatedFrameGrabber, ILuxSimulatedFrameGrabber> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxSimulatedFrameGrabber; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxSimulatedFrameGrabber;

    static constexpr int32_t kCameraPorts = 2;

    CLuxSimulatedFrameGrabber();

    // FrameGrabberDriver
    std::string GrabberName() const override { return "Simulated"; }
    std::string GrabberSerialNumber() const override { return "SIM-0001"; }
    std::vector<VideoFormatInfo> VideoFormats() const override;
    std::unique_ptr<FrameSource> OpenSource(const VideoFormatInfo& format, int32_t cameraPort) override;

    // ILuxSimulatedFrameGrabber
    HRESULT get_FrameTimeMs(double* FrameTimeMs) override;
    HRESULT put_FrameTimeMs(double FrameTimeMs) override;
    HRESULT FireHardwareTrigger(LONG CameraPort) override;
    HRESULT DropFrames(LONG Count) override;
    HRESULT get_ImageFolder(BSTR* ImageFolder) override;
    HRESULT put_ImageFolder(BSTR ImageFolder) override;

protected:
    ~CLuxSimulatedFrameGrabber() override = default;

private:
    std::shared_ptr<SimulatedGrabberState> state_;
};

}  // namespace tessaly::acq
