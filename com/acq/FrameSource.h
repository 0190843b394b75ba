// The driver side of one acquisition FIFO: the camera port of a frame grabber, opened for
// one video format. The FIFO's queue (AcqQueue) asks it to start acquisitions and hears
// back, through a FrameSourceListener, when each one's exposure is over, when it is
// complete with its pixels, and when it is lost. Every frame grabber of the library (the
// simulated one, image folders, GenICam cameras) is a FrameSource behind the same queue.
//
// Threads: Prepare, Start, Flush and Stop are called by the FIFO's clients, never with a
// lock of the FIFO held, and never two at a time for one source (the queue serialises
// them). The listener is called on the source's own thread(s), never from inside Start.
// After Flush returns, no callback arrives for an acquisition started before it; after
// Stop returns, no callback arrives at all.
//
// Failures are thrown as core::ccCOMError with an e_LuxAcq_* code and a text that names
// the grabber and what was refused ("Simulated: trigger model Auto needs TriggerEnabled").
#pragma once

#include <cstdint>

#include "com/acq/AcquisitionSettings.h"
#include "com/acq/FrameSourceListener.h"

namespace tessaly::acq {

class FrameSource {
public:
    virtual ~FrameSource() = default;

    // Set once by the queue before anything else is called.
    virtual void SetListener(FrameSourceListener* listener) noexcept = 0;

    // What the source supports of a setting, by its state ID (LuxAcqFifoStateIDs);
    // an unsupported setting is refused by the FIFO with E_NOTIMPL before it is stored.
    virtual SettingSupport Describe(int32_t stateId) const = 0;

    // Applies every setting to the hardware; a refused value throws and leaves the
    // source as it was before the call.
    virtual void Prepare(const AcquisitionSettings& settings) = 0;

    // Manual: acquires now, by software. Semi: arms an acquisition that a hardware
    // trigger will take. Auto, FreeRun and Slave acquisitions are started by the source
    // itself, which asks the listener for their ids (SourceStarted).
    virtual void Start(AcquisitionId id) = 0;

    // A hardware trigger on this source's camera port (the simulated grabber's
    // FireHardwareTrigger); sources without one throw e_LuxAcq_WrongTriggerModel.
    virtual void HardwareTrigger() = 0;

    // Abandons every started acquisition; see the thread rules above.
    virtual void Flush() = 0;

    // Stops for good; see the thread rules above. Called before the source is destroyed.
    virtual void Stop() noexcept = 0;

    // Whether the hardware is acquiring or reading out now.
    virtual bool Busy() const noexcept = 0;
};

}  // namespace tessaly::acq
