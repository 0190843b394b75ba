// The queue behind every acquisition FIFO, whatever the grabber: it numbers acquisitions,
// follows each one from started through exposure over to complete (ready) or lost, hands
// the complete ones out once, and flushes. It is the FrameSourceListener of the FIFO's
// source, which it owns, and serialises the calls into it.
//
// Tickets: acquisitions are numbered 0, 1, 2 ... in the order they start (the ticket is
// that number, wrapping to 0 after 2^31 - 1); trigger numbers likewise from 1. Complete
// takes a ticket or -1, the least recently started acquisition not yet collected and not
// being waited for by another -1 caller, so that threads completing -1 at once each get
// one of their own. Refusals: a ticket below -1 or never issued, e_LuxAcq_BadTicket; one
// collected or flushed, e_LuxAcq_OldTicket; -1 with nothing to collect,
// e_LuxAcq_NoOutstandingStarts; more than kMaxOutstanding acquisitions started and not
// collected, e_LuxAcq_TooManyStarts. Where the source starts acquisitions itself, -1 with
// nothing outstanding may instead wait for the next one. A lost acquisition is collected as its failure
// (e_LuxAcq_Overrun for a dropped frame), which uses up its ticket.
//
// Waiting: Complete waits until the acquisition is complete, lost or flushed, or (with a
// timeout) until the time is up: e_LuxAcq_Timeout, the acquisition still outstanding.
//
// Events: the FIFO hears of each start, exposure end, completion and loss through
// AcqQueueEvents, on the thread that reported it, with no lock of the queue held.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "com/acq/FrameSource.h"
#include "com/acq/FrameSourceListener.h"

namespace tessaly::acq {

class AcqQueueEvents {
public:
    // An acquisition started, by a client or by the source itself.
    virtual void AcquisitionStarted(int32_t ticket, int32_t triggerNumber) noexcept = 0;
    virtual void ExposureEnded(int32_t ticket, int32_t triggerNumber) noexcept = 0;
    virtual void AcquisitionComplete(int32_t ticket, int32_t triggerNumber) noexcept = 0;
    virtual void AcquisitionLost(int32_t ticket, int32_t triggerNumber) noexcept = 0;

protected:
    ~AcqQueueEvents() = default;
};

class AcqQueue final : public FrameSourceListener {
public:
    static constexpr size_t kMaxOutstanding = 32;

    struct Collected {
        int32_t ticket = 0;
        int32_t triggerNumber = 0;
        std::optional<image::ImageFilePixels> pixels;  // always there once collected
        LuxImagePixelFormatConstants acquiredFormat = luxImagePixelFormatGrey8;
        double timestampMs = 0;
    };

    struct State {
        int32_t pending = 0;  // started, not complete or lost
        int32_t ready = 0;    // complete or lost, not collected
        bool busy = false;
    };

    AcqQueue(std::unique_ptr<FrameSource> source, AcqQueueEvents& events);
    ~AcqQueue();
    AcqQueue(const AcqQueue&) = delete;
    AcqQueue& operator=(const AcqQueue&) = delete;

    // What the source says of a setting.
    SettingSupport Describe(int32_t stateId) const;
    void Prepare(const AcquisitionSettings& settings);
    // Starts an acquisition by software (or arms one); returns its ticket.
    int32_t Start();
    // `awaitStart`: -1 with nothing outstanding waits for the source to start one (the
    // models whose acquisitions the source starts) instead of failing.
    Collected Complete(int32_t requestedTicket, std::optional<double> timeoutMs, bool awaitStart = false);
    // Abandons every outstanding acquisition; waiting callers get e_LuxAcq_OldTicket.
    void Flush();
    void HardwareTrigger();
    State GetState() const;
    // Flushes and puts another source (another camera port) in place of this one.
    void ReplaceSource(std::unique_ptr<FrameSource> source);
    // Stops the source for good; outstanding acquisitions are dropped.
    void Stop() noexcept;

    // FrameSourceListener
    std::optional<AcquisitionId> SourceStarted(double timestampMs) noexcept override;
    void ExposureEnded(AcquisitionId id, double timestampMs) noexcept override;
    void Completed(AcquisitionId id, image::ImageFilePixels pixels, LuxImagePixelFormatConstants acquiredFormat,
                   double timestampMs) noexcept override;
    void Lost(AcquisitionId id, HRESULT reason) noexcept override;

private:
    enum class Stage { Pending, Exposed, Ready, Lost };
    struct Entry {
        AcquisitionId id = 0;
        int32_t triggerNumber = 0;
        Stage stage = Stage::Pending;
        bool claimed = false;  // a -1 caller waits for it
        HRESULT lostReason = S_OK;
        std::optional<image::ImageFilePixels> pixels;
        LuxImagePixelFormatConstants acquiredFormat = luxImagePixelFormatGrey8;
        double timestampMs = 0;
    };

    static int32_t TicketOf(AcquisitionId id) noexcept { return static_cast<int32_t>(id & 0x7FFFFFFF); }
    // Issues the next id and trigger number; the lock is held.
    Entry& IssueLocked();
    Entry* FindLocked(AcquisitionId id) noexcept;
    Entry* FindTicketLocked(int32_t ticket) noexcept;
    void EraseLocked(AcquisitionId id) noexcept;
    // Throws the refusal of a ticket no outstanding acquisition has.
    [[noreturn]] void ThrowMissingTicketLocked(int32_t ticket) const;

    mutable std::mutex controlMutex_;  // one call into the source at a time
    std::unique_ptr<FrameSource> source_;
    AcqQueueEvents& events_;

    mutable std::mutex mutex_;  // the entries and numbers; never held while calling out
    std::condition_variable changed_;
    std::deque<Entry> entries_;  // outstanding acquisitions, oldest first
    AcquisitionId nextId_ = 0;
    int32_t nextTriggerNumber_ = 1;
    uint64_t flushes_ = 0;  // tells a waiter that its acquisition went in a flush
    bool stopped_ = false;
};

}  // namespace tessaly::acq
