// One camera port of the simulated grabber opened for one of its video formats. A worker
// thread of its own makes the frames: the test pattern (SimulatedFrames) or the images of
// the grabber's folder, in the time the grabber's FrameTimeMs gives (exposure, then
// readout; at 0 ms as fast as it can).
//
// Trigger models: Manual and Slave acquire at each Start; Semi arms at Start and acquires
// at the next hardware trigger (the oldest armed first); Auto starts an acquisition at
// each hardware trigger; FreeRun acquires continuously, one frame every FrameTimeMs (at
// least 1 ms apart, or 1 / FrameRate when set). With TriggerEnabled false nothing is
// acquired and hardware triggers are ignored. HardwareTrigger with Manual, Slave or
// FreeRun is e_LuxAcq_WrongTriggerModel.
//
// Settings: Exposure (0 to 10,000 ms; 0 is half the frame time), TriggerLowToHigh, the
// region of interest in hardware (a window of the frame: nothing copied), Gain (0 to 24
// dB), Brightness and Contrast (0 to 1) and FrameRate (0 to 1000 per second; 0 as fast as
// the frame time allows). Gain, Brightness and Contrast are kept, not applied to the
// pattern. The others are not supported.
//
// Flush and Stop wait for a callback in progress, unless they are called from inside one
// (a sink that flushes on Complete): after they return nothing more is reported.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "com/acq/FrameSource.h"
#include "com/acq/VideoFormatInfo.h"
#include "com/acq/simulated/SimulatedGrabberState.h"

namespace tessaly::acq {

class SimulatedFrameSource final : public FrameSource {
public:
    // Registers with the grabber's state; e_LuxAcq_HardwareInUse when the port is open.
    SimulatedFrameSource(std::shared_ptr<SimulatedGrabberState> grabber, VideoFormatInfo format, int32_t cameraPort);
    ~SimulatedFrameSource() override;

    int32_t CameraPort() const noexcept { return cameraPort_; }

    void SetListener(FrameSourceListener* listener) noexcept override;
    SettingSupport Describe(int32_t stateId) const override;
    void Prepare(const AcquisitionSettings& settings) override;
    void Start(AcquisitionId id) override;
    void HardwareTrigger() override;
    void Flush() override;
    void Stop() noexcept override;
    bool Busy() const noexcept override;

    // A hardware trigger from the grabber's FireHardwareTrigger: ignored by the models
    // that wait for none (a pulse nobody listens to).
    void Pulse() noexcept;

private:
    struct Job {
        AcquisitionId id;
        uint64_t generation;
    };

    void Run();
    // Makes and reports one frame; with the callback lock held.
    void Acquire(const Job& job);
    image::ImageFilePixels MakeFrame(AcquisitionId id);
    // Whether `job` is still wanted (not flushed or stopped); under the state lock.
    bool CurrentLocked(const Job& job) const noexcept { return job.generation == generation_ && !stopping_; }
    double PeriodMsLocked() const noexcept;
    bool OnWorker() const noexcept { return std::this_thread::get_id() == worker_.get_id(); }

    std::shared_ptr<SimulatedGrabberState> grabber_;
    const VideoFormatInfo format_;
    const int32_t cameraPort_;
    FrameSourceListener* listener_ = nullptr;

    mutable std::mutex mutex_;  // the state below
    std::condition_variable wake_;
    AcquisitionSettings settings_;
    std::deque<Job> jobs_;     // acquisitions to make, in order
    std::deque<Job> armed_;    // Semi: waiting for a trigger
    int64_t triggers_ = 0;     // Auto: hardware triggers not yet turned into acquisitions
    uint64_t generation_ = 0;  // rises at each Flush: older jobs are dropped
    bool stopping_ = false;
    bool busy_ = false;
    double nextFreeRunMs_ = 0;

    std::mutex callbackMutex_;  // held while a frame is reported
    std::thread worker_;
};

}  // namespace tessaly::acq
