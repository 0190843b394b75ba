#include "com/acq/simulated/SimulatedFrameSource.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "com/acq/AcqErrors.h"
#include "com/acq/simulated/SimulatedFrames.h"
#include "com/core/ccCOMError.h"
#include "com/image/files/ImageFile.h"

namespace tessaly::acq {

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr double kMinFreeRunPeriodMs = 1.0;

// The region of interest of the hardware, when one is set.
image::ImageFilePixels Cut(const image::ImageFilePixels& frame, const RegionOfInterest& roi) {
    if (roi.mode != luxAcqROIModeHardware || roi.width <= 0) return frame;
    if (roi.x + roi.width > frame.Width() || roi.y + roi.height > frame.Height()) return frame;  // a folder's smaller image
    return frame.Window(roi.x, roi.y, roi.width, roi.height);
}

double NumberSetting(const AcquisitionSettings& settings, int32_t stateId, double otherwise) {
    auto found = settings.values.find(stateId);
    if (found == settings.values.end()) return otherwise;
    if (const double* number = std::get_if<double>(&found->second)) return *number;
    return otherwise;
}

}  // namespace

SimulatedFrameSource::SimulatedFrameSource(std::shared_ptr<SimulatedGrabberState> grabber, VideoFormatInfo format,
                                           int32_t cameraPort)
    : grabber_(std::move(grabber)), format_(std::move(format)), cameraPort_(cameraPort) {
    {
        const std::lock_guard lock(grabber_->mutex);
        for (const SimulatedFrameSource* open : grabber_->sources)
            if (open->cameraPort_ == cameraPort_)
                ThrowAcqError(e_LuxAcq_HardwareInUse,
                              "camera port " + std::to_string(cameraPort_) + " of Simulated has a FIFO already");
        grabber_->sources.push_back(this);
    }
    worker_ = std::thread([this] { Run(); });
}

SimulatedFrameSource::~SimulatedFrameSource() { Stop(); }

void SimulatedFrameSource::SetListener(FrameSourceListener* listener) noexcept {
    const std::lock_guard lock(mutex_);
    listener_ = listener;
}

SettingSupport SimulatedFrameSource::Describe(int32_t stateId) const {
    switch (stateId) {
        case luxAcqExposure_Exposure: return {true, 0.0, 10000.0, 0.0};
        case luxAcqTrigger_TriggerLowToHigh: return {true, 0.0, 1.0, true};
        case luxAcqROI_SetROIXYWidthHeight: return {true, 0.0, 0.0, 0.0};
        case luxAcqGain_Gain: return {true, 0.0, 24.0, 0.0};
        case luxAcqBrightness_Brightness: return {true, 0.0, 1.0, 0.5};
        case luxAcqContrast_Contrast: return {true, 0.0, 1.0, 0.5};
        case luxAcqFrameRate_FrameRate: return {true, 0.0, 1000.0, 0.0};
        default: return {};
    }
}

void SimulatedFrameSource::Prepare(const AcquisitionSettings& settings) {
    const std::lock_guard lock(mutex_);
    settings_ = settings;
    nextFreeRunMs_ = 0;
    wake_.notify_all();
}

void SimulatedFrameSource::Start(AcquisitionId id) {
    const std::lock_guard lock(mutex_);
    const Job job{id, generation_};
    if (settings_.triggerModel == luxAcqTriggerModelSemi)
        armed_.push_back(job);
    else
        jobs_.push_back(job);
    wake_.notify_all();
}

void SimulatedFrameSource::HardwareTrigger() {
    const std::lock_guard lock(mutex_);
    const int32_t model = settings_.triggerModel;
    if (model != luxAcqTriggerModelSemi && model != luxAcqTriggerModelAuto)
        ThrowAcqError(e_LuxAcq_WrongTriggerModel, "Simulated: camera port " + std::to_string(cameraPort_) +
                                                      " takes hardware triggers only with the Semi and Auto models");
    if (!settings_.triggerEnabled) return;
    if (model == luxAcqTriggerModelSemi) {
        if (armed_.empty()) return;  // nothing armed: the trigger is lost
        jobs_.push_back(armed_.front());
        armed_.pop_front();
    } else {
        ++triggers_;
    }
    wake_.notify_all();
}

void SimulatedFrameSource::Pulse() noexcept {
    try {
        HardwareTrigger();
    } catch (...) {
        // A model that takes no trigger does not hear it.
    }
}

void SimulatedFrameSource::Flush() {
    {
        const std::lock_guard lock(mutex_);
        jobs_.clear();
        armed_.clear();
        triggers_ = 0;
        ++generation_;
        wake_.notify_all();
    }
    // A frame being reported finishes first; its report then finds itself flushed.
    if (!OnWorker()) const std::lock_guard wait(callbackMutex_);
}

void SimulatedFrameSource::Stop() noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (stopping_ && !worker_.joinable()) return;
        stopping_ = true;
        ++generation_;
        wake_.notify_all();
    }
    if (worker_.joinable()) {
        if (OnWorker())
            worker_.detach();  // released from inside its own report: the thread ends by itself
        else
            worker_.join();
    }
    const std::lock_guard lock(grabber_->mutex);
    std::erase(grabber_->sources, this);
}

bool SimulatedFrameSource::Busy() const noexcept {
    const std::lock_guard lock(mutex_);
    return busy_;
}

double SimulatedFrameSource::PeriodMsLocked() const noexcept {
    double period = grabber_->frameTimeMs.load();
    const double rate = NumberSetting(settings_, luxAcqFrameRate_FrameRate, 0.0);
    if (rate > 0) period = std::max(period, 1000.0 / rate);
    return std::max(period, kMinFreeRunPeriodMs);
}

void SimulatedFrameSource::Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (stopping_) return;
        const bool enabled = settings_.triggerEnabled;
        const int32_t model = settings_.triggerModel;
        if (enabled && !jobs_.empty()) {
            const Job job = jobs_.front();
            jobs_.pop_front();
            busy_ = true;
            lock.unlock();
            Acquire(job);
            lock.lock();
            busy_ = false;
            continue;
        }
        // The acquisitions the source starts itself get their ids from the queue.
        const bool triggered = enabled && model == luxAcqTriggerModelAuto && triggers_ > 0;
        bool freeRunDue = false;
        if (enabled && model == luxAcqTriggerModelFreeRun) {
            const double now = AcquisitionClockMs();
            if (now < nextFreeRunMs_) {
                wake_.wait_for(lock, Milliseconds(nextFreeRunMs_ - now));
                continue;
            }
            nextFreeRunMs_ = now + PeriodMsLocked();
            freeRunDue = true;
        }
        if (triggered || freeRunDue) {
            if (triggered) --triggers_;
            FrameSourceListener* listener = listener_;
            lock.unlock();
            std::optional<AcquisitionId> id;
            {
                const std::lock_guard reporting(callbackMutex_);
                if (listener) id = listener->SourceStarted(AcquisitionClockMs());
            }
            lock.lock();
            if (id) jobs_.push_back({*id, generation_});  // too many outstanding: the frame is dropped
            continue;
        }
        wake_.wait(lock);
    }
}

image::ImageFilePixels SimulatedFrameSource::MakeFrame(AcquisitionId id) {
    std::shared_ptr<const std::vector<std::filesystem::path>> files;
    {
        const std::lock_guard lock(grabber_->mutex);
        files = grabber_->folderFiles;
    }
    if (files && !files->empty()) {
        const std::filesystem::path& file = (*files)[grabber_->folderCursor++ % files->size()];
        try {
            return FolderFrame(image::ReadImageFile(file), format_.acquiredFormat);
        } catch (const core::ccCOMError&) {
            throw;
        } catch (const std::exception& error) {
            ThrowAcqError(e_LuxAcq_Abnormal, "Simulated: " + file.string() + " could not be read: " + error.what());
        }
    }
    return PatternFrame(format_.acquiredFormat, format_.width, format_.height, static_cast<uint32_t>(id + 1));
}

void SimulatedFrameSource::Acquire(const Job& job) {
    FrameSourceListener* listener = nullptr;
    double exposureMs = 0, readoutMs = 0;
    RegionOfInterest roi;
    bool drop = false;
    {
        std::unique_lock lock(mutex_);
        if (!CurrentLocked(job)) return;
        listener = listener_;
        roi = settings_.roi;
        const double frameTime = grabber_->frameTimeMs.load();
        int64_t toDrop = grabber_->framesToDrop.load();
        while (toDrop > 0 && !grabber_->framesToDrop.compare_exchange_weak(toDrop, toDrop - 1)) {
        }
        drop = toDrop > 0;
        const double exposure = NumberSetting(settings_, luxAcqExposure_Exposure, 0.0);
        exposureMs = exposure > 0 ? exposure : frameTime / 2;
        readoutMs = std::max(frameTime - exposureMs, 0.0);
        // The exposure, cut short by a flush or a stop.
        if (exposureMs > 0 && wake_.wait_for(lock, Milliseconds(exposureMs), [&] { return !CurrentLocked(job); }))
            return;
    }
    if (!listener) return;
    {
        const std::lock_guard reporting(callbackMutex_);
        {
            const std::lock_guard lock(mutex_);
            if (!CurrentLocked(job)) return;
        }
        if (drop) {
            listener->Lost(job.id, e_LuxAcq_Overrun);
            return;
        }
        listener->ExposureEnded(job.id, AcquisitionClockMs());
    }
    std::optional<image::ImageFilePixels> frame;
    HRESULT failure = S_OK;
    try {
        frame.emplace(Cut(MakeFrame(job.id), roi));
    } catch (const core::ccCOMError& error) {
        failure = error.Result();
    } catch (...) {
        failure = e_LuxAcq_Abnormal;
    }
    {
        std::unique_lock lock(mutex_);
        if (readoutMs > 0 && wake_.wait_for(lock, Milliseconds(readoutMs), [&] { return !CurrentLocked(job); })) return;
    }
    const std::lock_guard reporting(callbackMutex_);
    {
        const std::lock_guard lock(mutex_);
        if (!CurrentLocked(job)) return;
    }
    if (frame)
        listener->Completed(job.id, std::move(*frame), format_.acquiredFormat, AcquisitionClockMs());
    else
        listener->Lost(job.id, failure);
}

}  // namespace tessaly::acq
