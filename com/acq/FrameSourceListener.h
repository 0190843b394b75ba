// What a FrameSource reports of each acquisition, by the id the queue gave it. The queue
// implements this; the calls come on the source's thread (see FrameSource).
#pragma once

#include <cstdint>
#include <optional>

#include "TessalyCore.h"
#include "com/image/files/ImageFilePixels.h"

namespace tessaly::acq {

// The queue's own number for an acquisition; the FIFO's ticket is made from it.
using AcquisitionId = int64_t;

// Milliseconds on the steady clock (ccStopwatch's clock), the time stamps of every event.
double AcquisitionClockMs() noexcept;

class FrameSourceListener {
public:
    // An acquisition the source started by itself (Auto, FreeRun, Slave); the queue
    // issues it an id and a trigger number, or refuses it (nullopt: too many outstanding
    // acquisitions), in which case the source drops the frame and reports nothing more.
    virtual std::optional<AcquisitionId> SourceStarted(double timestampMs) noexcept = 0;

    // The exposure is over: the part may be moved.
    virtual void ExposureEnded(AcquisitionId id, double timestampMs) noexcept = 0;

    // The pixels, in `acquiredFormat` (Bayer8 travels as a Grey8 buffer). The buffers
    // may borrow the driver's memory (ccPelRootDisposable): the image then shares it and
    // gives it back when its last holder lets go.
    virtual void Completed(AcquisitionId id, image::ImageFilePixels pixels, LuxImagePixelFormatConstants acquiredFormat,
                           double timestampMs) noexcept = 0;

    // The acquisition is lost: e_LuxAcq_Overrun for a frame the grabber dropped,
    // e_LuxAcq_Missed, e_LuxAcq_Abnormal or another e_LuxAcq_* code otherwise.
    virtual void Lost(AcquisitionId id, HRESULT reason) noexcept = 0;

protected:
    ~FrameSourceListener() = default;
};

}  // namespace tessaly::acq
