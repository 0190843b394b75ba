// The C++ side of a frame grabber object: what CreateAcqFifo and the FIFOs need of it.
// Each grabber class (CLuxSimulatedFrameGrabber, CLuxGenICamFrameGrabber) implements this
// beside ILuxFrameGrabber; the members of ILuxFrameGrabber common to every grabber come
// from ILuxFrameGrabberImpl on top of it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "com/acq/FrameSource.h"
#include "com/acq/VideoFormatInfo.h"

namespace tessaly::acq {

class FrameGrabberDriver {
public:
    virtual std::string GrabberName() const = 0;
    virtual std::string GrabberSerialNumber() const = 0;
    virtual std::vector<VideoFormatInfo> VideoFormats() const = 0;

    // A source for one camera port of one of VideoFormats(); throws e_LuxAcq_HardwareInUse
    // when the port cannot be opened again, e_LuxAcq_CannotCreateFifo for other failures.
    // The grabber outlives its sources: every FIFO holds its grabber.
    virtual std::unique_ptr<FrameSource> OpenSource(const VideoFormatInfo& format, int32_t cameraPort) = 0;

protected:
    ~FrameGrabberDriver() = default;
};

}  // namespace tessaly::acq
