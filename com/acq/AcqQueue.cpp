#include "com/acq/AcqQueue.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "com/acq/AcqErrors.h"
#include "xnl/std/base/ccStopwatch.h"

namespace tessaly::acq {

double AcquisitionClockMs() noexcept {
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

AcqQueue::AcqQueue(std::unique_ptr<FrameSource> source, AcqQueueEvents& events)
    : source_(std::move(source)), events_(events) {
    source_->SetListener(this);
}

AcqQueue::~AcqQueue() { Stop(); }

SettingSupport AcqQueue::Describe(int32_t stateId) const {
    const std::lock_guard control(controlMutex_);
    return source_->Describe(stateId);
}

void AcqQueue::Prepare(const AcquisitionSettings& settings) {
    const std::lock_guard control(controlMutex_);
    source_->Prepare(settings);
}

void AcqQueue::HardwareTrigger() {
    const std::lock_guard control(controlMutex_);
    source_->HardwareTrigger();
}

AcqQueue::Entry& AcqQueue::IssueLocked() {
    Entry& entry = entries_.emplace_back();
    entry.id = nextId_++;
    entry.triggerNumber = nextTriggerNumber_;
    nextTriggerNumber_ = nextTriggerNumber_ == INT32_MAX ? 1 : nextTriggerNumber_ + 1;
    return entry;
}

AcqQueue::Entry* AcqQueue::FindLocked(AcquisitionId id) noexcept {
    for (Entry& entry : entries_)
        if (entry.id == id) return &entry;
    return nullptr;
}

AcqQueue::Entry* AcqQueue::FindTicketLocked(int32_t ticket) noexcept {
    for (Entry& entry : entries_)
        if (TicketOf(entry.id) == ticket) return &entry;
    return nullptr;
}

void AcqQueue::EraseLocked(AcquisitionId id) noexcept {
    std::erase_if(entries_, [id](const Entry& entry) { return entry.id == id; });
}

void AcqQueue::ThrowMissingTicketLocked(int32_t ticket) const {
    // Tickets below the next one were issued, unless the numbering has wrapped, when every
    // ticket has been.
    const bool issued = ticket >= 0 && (nextId_ > 0x7FFFFFFF || ticket < nextId_);
    if (!issued)
        ThrowAcqError(e_LuxAcq_BadTicket, "ticket " + std::to_string(ticket) + " was never issued by this FIFO");
    ThrowAcqError(e_LuxAcq_OldTicket,
                  "the acquisition of ticket " + std::to_string(ticket) + " was already collected or flushed");
}

int32_t AcqQueue::Start() {
    const std::lock_guard control(controlMutex_);
    AcquisitionId id = 0;
    int32_t triggerNumber = 0;
    {
        const std::lock_guard lock(mutex_);
        if (entries_.size() >= kMaxOutstanding)
            ThrowAcqError(
                e_LuxAcq_TooManyStarts,
                std::to_string(kMaxOutstanding) + " acquisitions are started and not collected, the most a FIFO holds");
        const Entry& entry = IssueLocked();
        id = entry.id;
        triggerNumber = entry.triggerNumber;
    }
    try {
        source_->Start(id);
    } catch (...) {
        // Refused: as if never started, the numbers given back when nothing came after.
        const std::lock_guard lock(mutex_);
        EraseLocked(id);
        if (nextId_ == id + 1) {
            nextId_ = id;
            nextTriggerNumber_ = triggerNumber;
        }
        throw;
    }
    events_.AcquisitionStarted(TicketOf(id), triggerNumber);
    return TicketOf(id);
}

AcqQueue::Collected AcqQueue::Complete(int32_t requestedTicket, std::optional<double> timeoutMs, bool awaitStart) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = timeoutMs
                              ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                   std::chrono::duration<double, std::milli>(std::max(*timeoutMs, 0.0)))
                              : Clock::time_point::max();
    std::unique_lock lock(mutex_);
    if (requestedTicket < -1)
        ThrowAcqError(e_LuxAcq_BadTicket, "ticket " + std::to_string(requestedTicket) +
                                              " is not a ticket; -1 stands for the oldest acquisition");
    AcquisitionId id = -1;
    if (requestedTicket == -1) {
        for (;;) {
            for (Entry& entry : entries_) {
                if (!entry.claimed) {
                    entry.claimed = true;
                    id = entry.id;
                    break;
                }
            }
            if (id >= 0) break;
            if (!awaitStart || stopped_)
                ThrowAcqError(e_LuxAcq_NoOutstandingStarts, "no acquisition is started and not collected");
            if (changed_.wait_until(lock, deadline) == std::cv_status::timeout && Clock::now() >= deadline)
                ThrowAcqError(e_LuxAcq_Timeout, "no acquisition started within " +
                                                    std::to_string(static_cast<int64_t>(*timeoutMs)) + " ms");
        }
    } else {
        const Entry* entry = FindTicketLocked(requestedTicket);
        if (!entry) ThrowMissingTicketLocked(requestedTicket);
        id = entry->id;
    }
    const uint64_t flushes = flushes_;
    for (;;) {
        Entry* entry = FindLocked(id);
        if (!entry || flushes_ != flushes) {
            if (stopped_) ThrowAcqError(e_LuxAcq_Abnormal, "the FIFO stopped acquiring");
            ThrowAcqError(e_LuxAcq_OldTicket, "the acquisition of ticket " + std::to_string(TicketOf(id)) +
                                                  " was flushed or collected by another call");
        }
        if (entry->stage == Stage::Ready) {
            Collected collected{TicketOf(id), entry->triggerNumber, std::move(entry->pixels), entry->acquiredFormat,
                                entry->timestampMs};
            EraseLocked(id);
            return collected;
        }
        if (entry->stage == Stage::Lost) {
            const HRESULT reason = entry->lostReason;
            const int32_t triggerNumber = entry->triggerNumber;
            EraseLocked(id);
            ThrowAcqError(reason, "the acquisition of ticket " + std::to_string(TicketOf(id)) + " (trigger " +
                                      std::to_string(triggerNumber) + ") was lost");
        }
        if (changed_.wait_until(lock, deadline) == std::cv_status::timeout && Clock::now() >= deadline) {
            if (Entry* waited = FindLocked(id);
                waited && waited->stage != Stage::Ready && waited->stage != Stage::Lost) {
                if (requestedTicket == -1) waited->claimed = false;
                ThrowAcqError(e_LuxAcq_Timeout, "ticket " + std::to_string(TicketOf(id)) + " was not complete within " +
                                                    std::to_string(static_cast<int64_t>(*timeoutMs)) +
                                                    " ms; it stays outstanding");
            }
        }
    }
}

void AcqQueue::Flush() {
    const std::lock_guard control(controlMutex_);
    source_->Flush();
    const std::lock_guard lock(mutex_);
    entries_.clear();
    ++flushes_;
    changed_.notify_all();
}

AcqQueue::State AcqQueue::GetState() const {
    State state;
    {
        const std::lock_guard lock(mutex_);
        for (const Entry& entry : entries_) {
            if (entry.stage == Stage::Ready || entry.stage == Stage::Lost)
                ++state.ready;
            else
                ++state.pending;
        }
    }
    const std::lock_guard control(controlMutex_);
    state.busy = source_->Busy();
    return state;
}

void AcqQueue::ReplaceSource(std::unique_ptr<FrameSource> source) {
    const std::lock_guard control(controlMutex_);
    source_->Stop();
    source_ = std::move(source);
    source_->SetListener(this);
    const std::lock_guard lock(mutex_);
    entries_.clear();
    ++flushes_;
    changed_.notify_all();
}

void AcqQueue::Stop() noexcept {
    const std::lock_guard control(controlMutex_);
    source_->Stop();
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    entries_.clear();
    ++flushes_;
    changed_.notify_all();
}

std::optional<AcquisitionId> AcqQueue::SourceStarted(double /*timestampMs*/) noexcept {
    int32_t ticket = 0, triggerNumber = 0;
    AcquisitionId id = 0;
    {
        const std::lock_guard lock(mutex_);
        if (stopped_ || entries_.size() >= kMaxOutstanding) return std::nullopt;
        try {
            const Entry& entry = IssueLocked();
            id = entry.id;
            triggerNumber = entry.triggerNumber;
        } catch (...) {
            return std::nullopt;  // out of memory: the frame is dropped
        }
        ticket = TicketOf(id);
        changed_.notify_all();  // for those waiting for a start
    }
    events_.AcquisitionStarted(ticket, triggerNumber);
    return id;
}

void AcqQueue::ExposureEnded(AcquisitionId id, double /*timestampMs*/) noexcept {
    int32_t triggerNumber = 0;
    {
        const std::lock_guard lock(mutex_);
        Entry* entry = FindLocked(id);
        if (!entry || entry->stage != Stage::Pending) return;
        entry->stage = Stage::Exposed;
        triggerNumber = entry->triggerNumber;
    }
    events_.ExposureEnded(TicketOf(id), triggerNumber);
}

void AcqQueue::Completed(AcquisitionId id, image::ImageFilePixels pixels, LuxImagePixelFormatConstants acquiredFormat,
                         double timestampMs) noexcept {
    int32_t triggerNumber = 0;
    {
        const std::lock_guard lock(mutex_);
        Entry* entry = FindLocked(id);
        if (!entry || entry->stage == Stage::Ready || entry->stage == Stage::Lost) return;
        entry->stage = Stage::Ready;
        entry->pixels.emplace(std::move(pixels));
        entry->acquiredFormat = acquiredFormat;
        entry->timestampMs = timestampMs;
        triggerNumber = entry->triggerNumber;
        changed_.notify_all();
    }
    events_.AcquisitionComplete(TicketOf(id), triggerNumber);
}

void AcqQueue::Lost(AcquisitionId id, HRESULT reason) noexcept {
    int32_t triggerNumber = 0;
    {
        const std::lock_guard lock(mutex_);
        Entry* entry = FindLocked(id);
        if (!entry || entry->stage == Stage::Ready || entry->stage == Stage::Lost) return;
        entry->stage = Stage::Lost;
        entry->lostReason = FAILED(reason) ? reason : e_LuxAcq_Abnormal;
        triggerNumber = entry->triggerNumber;
        changed_.notify_all();
    }
    events_.AcquisitionLost(TicketOf(id), triggerNumber);
}

}  // namespace tessaly::acq
