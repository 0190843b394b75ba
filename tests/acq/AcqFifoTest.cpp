// The acquisition FIFO as a client drives it, over the simulated grabber: tickets and their
// refusals, waiting with and without a timeout, flushing, the trigger models, the per-ticket
// events, settings by state ID, the region of interest, images with the FIFO's tree, and
// several threads completing tickets of one FIFO at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "TessalyCore.h"
#include "com/acq/simulated/SimulatedFrames.h"
#include "com/image/files/ImageFileObjects.h"
#include "platform/Bstr.h"
#include "platform/EventSink.h"
#include "platform/Variant.h"
#include "support/LiveObjectFixture.h"
#include "support/RecordedError.h"

namespace tessaly::acq {
namespace {

using namespace std::chrono_literals;

constexpr const char* kGrey8 = "Simulated 640x480 Grey8";

// Every event the FIFO raises, by name, with its first two arguments.
struct Recorded {
    std::string name;
    int32_t first = 0;
    int32_t second = 0;
};

class EventRecorder {
public:
    explicit EventRecorder(ILuxAcqFifo* fifo) : fifo_(fifo) {
        Connect(DIID_ILuxAcqMovePartEvent, "MovePart");
        Connect(DIID_ILuxAcqCompleteEvent, "Complete");
        Connect(DIID_ILuxAcqOverrunEvent, "Overrun");
        IDispatch* sink = MakeEventSink(
            [this](DISPID dispid, DISPPARAMS* params) {
                // Arguments come last first: Change(StateID, Value, FunctionalArea).
                Add(dispid == 7457 ? "Flushed" : "Change", dispid == 7457 ? 0 : params->rgvarg[params->cArgs - 1].lVal,
                    0);
            },
            DIID_ILuxAcqFifoEvents);
        DWORD cookie = 0;
        EXPECT_EQ(Advise(fifo, DIID_ILuxAcqFifoEvents, sink, &cookie), S_OK);
        connections_.push_back({DIID_ILuxAcqFifoEvents, sink, cookie});
    }
    ~EventRecorder() {
        for (const Connection& c : connections_) {
            Unadvise(fifo_, c.iid, c.cookie);
            c.sink->Release();
        }
    }
    std::vector<Recorded> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(events_, {});
    }
    size_t Count(const std::string& name) {
        const std::lock_guard lock(mutex_);
        return static_cast<size_t>(
            std::count_if(events_.begin(), events_.end(), [&](const Recorded& e) { return e.name == name; }));
    }
    // Waits up to a second for `count` events of a name (they come from the grabber's thread).
    bool WaitFor(const std::string& name, size_t count) {
        for (int i = 0; i < 1000 && Count(name) < count; ++i) std::this_thread::sleep_for(1ms);
        return Count(name) >= count;
    }
    std::function<void(int32_t ticket)> onComplete;

private:
    struct Connection {
        IID iid;
        IDispatch* sink;
        DWORD cookie;
    };
    void Connect(const IID& iid, const char* name) {
        IDispatch* sink = MakeEventSink(
            1,
            [this, name](std::span<const VARIANT> args) {
                // The call back first: a test waiting for the event then sees its effect.
                if (onComplete && std::string(name) == "Complete") onComplete(args[0].lVal);
                Add(name, args[0].lVal, args[1].lVal);
            },
            iid);
        DWORD cookie = 0;
        EXPECT_EQ(Advise(fifo_, iid, sink, &cookie), S_OK);
        connections_.push_back({iid, sink, cookie});
    }
    void Add(const char* name, int32_t first, int32_t second) {
        const std::lock_guard lock(mutex_);
        events_.push_back({name, first, second});
    }

    ILuxAcqFifo* fifo_;
    std::mutex mutex_;
    std::vector<Recorded> events_;
    std::vector<Connection> connections_;
};

class AcqFifoTest : public test::LiveObjectFixture {
protected:
    void SetUp() override {
        LiveObjectFixture::SetUp();
        grabber_ = Make<ILuxSimulatedFrameGrabber>("Tessaly.LuxSimulatedFrameGrabber");
    }
    void TearDown() override {
        grabber_.Reset();
        LiveObjectFixture::TearDown();
    }

    ComPtr<ILuxAcqFifo> Fifo(const char* format = kGrey8, LuxImagePixelFormatConstants type = luxImagePixelFormatGrey8,
                             LONG port = 0) {
        ComPtr<ILuxAcqFifo> fifo;
        EXPECT_EQ(grabber_->CreateAcqFifo(Bstr(format).get(), type, port, VARIANT_TRUE, fifo.Out()), S_OK);
        return fifo;
    }
    static ComPtr<ILuxAcqTrigger> Trigger(ILuxAcqFifo* fifo) { return ComPtr<ILuxAcqFifo>(fifo).As<ILuxAcqTrigger>(); }
    static void SetModel(ILuxAcqFifo* fifo, LuxAcqTriggerModelConstants model) {
        ASSERT_EQ(Trigger(fifo)->put_TriggerModel(model), S_OK);
    }
    // The trigger number the pattern of an image says it has.
    static uint32_t PatternNumber(ILuxImage* image) { return TriggerNumberOfPattern(image::FilePixelsOfImage(image)); }
    static void ExpectState(ILuxAcqFifo* fifo, LONG pending, LONG ready) {
        LONG p = -1, r = -1;
        VARIANT_BOOL busy = VARIANT_FALSE;
        ASSERT_EQ(fifo->GetFifoState(&p, &r, &busy), S_OK);
        EXPECT_EQ(p, pending);
        EXPECT_EQ(r, ready);
    }
    // Started and not collected, complete or not.
    static void ExpectOutstanding(ILuxAcqFifo* fifo, LONG outstanding) {
        LONG p = -1, r = -1;
        VARIANT_BOOL busy = VARIANT_FALSE;
        ASSERT_EQ(fifo->GetFifoState(&p, &r, &busy), S_OK);
        EXPECT_EQ(p + r, outstanding);
    }
    static HRESULT Complete(ILuxAcqFifo* fifo, LONG requested, LONG* ticket = nullptr, LONG* trigger = nullptr,
                            ComPtr<ILuxImage>* image = nullptr) {
        LONG t = 0, n = 0;
        ComPtr<ILuxImage> made;
        const HRESULT hr = fifo->CompleteAcquire(requested, &t, &n, made.Out());
        if (ticket) *ticket = t;
        if (trigger) *trigger = n;
        if (image) *image = made;
        return hr;
    }

    ComPtr<ILuxSimulatedFrameGrabber> grabber_;
};

TEST_F(AcqFifoTest, TicketsCountFromZeroAndEachIsCollectedOnceOldestFirstForMinusOne) {
    auto fifo = Fifo();
    LONG tickets[3];
    for (LONG& ticket : tickets) ASSERT_EQ(fifo->StartAcquire(&ticket), S_OK);
    EXPECT_EQ(tickets[0], 0);
    EXPECT_EQ(tickets[2], 2);
    LONG ticket = -1, trigger = -1;
    ComPtr<ILuxImage> image;
    ASSERT_EQ(Complete(fifo.get(), 1, &ticket, &trigger, &image), S_OK);
    EXPECT_EQ(ticket, 1);
    EXPECT_EQ(trigger, 2);
    EXPECT_EQ(PatternNumber(image.get()), 2u);  // the frame of that very acquisition
    ASSERT_EQ(Complete(fifo.get(), -1, &ticket, &trigger), S_OK);
    EXPECT_EQ(ticket, 0);  // the oldest not yet collected
    EXPECT_EQ(trigger, 1);
    ExpectOutstanding(fifo.get(), 1);

    // Collected, never issued, not a ticket at all, nothing left: each its own code.
    EXPECT_EQ(Complete(fifo.get(), 1), e_LuxAcq_OldTicket);
    EXPECT_NE(test::TakeErrorInfo().description.find("ticket 1"), std::string::npos);
    EXPECT_EQ(Complete(fifo.get(), 7), e_LuxAcq_BadTicket);
    EXPECT_EQ(Complete(fifo.get(), -2), e_LuxAcq_BadTicket);
    ExpectOutstanding(fifo.get(), 1);  // the refusals took nothing
    ASSERT_EQ(Complete(fifo.get(), -1, &ticket), S_OK);
    EXPECT_EQ(ticket, 2);
    EXPECT_EQ(Complete(fifo.get(), -1), e_LuxAcq_NoOutstandingStarts);
    EXPECT_EQ(Complete(fifo.get(), 2), e_LuxAcq_OldTicket);
}

TEST_F(AcqFifoTest, AtMost32OutstandingAndFlushLeavesNothingAndSaysSo) {
    auto fifo = Fifo();
    SetModel(fifo.get(), luxAcqTriggerModelSemi);  // armed acquisitions wait for a trigger that never comes
    EventRecorder events(fifo.get());
    LONG ticket = 0;
    for (int i = 0; i < 32; ++i) ASSERT_EQ(fifo->StartAcquire(&ticket), S_OK);
    EXPECT_EQ(fifo->StartAcquire(&ticket), e_LuxAcq_TooManyStarts);
    EXPECT_EQ(ticket, 31);
    ExpectState(fifo.get(), 32, 0);
    ASSERT_EQ(fifo->Flush(), S_OK);
    ExpectState(fifo.get(), 0, 0);
    EXPECT_EQ(events.Count("Flushed"), 1u);
    EXPECT_EQ(Complete(fifo.get(), 5), e_LuxAcq_OldTicket);
    EXPECT_EQ(Complete(fifo.get(), -1), e_LuxAcq_NoOutstandingStarts);
    // A trigger after the flush takes nothing the flush discarded; the numbering goes on.
    ASSERT_EQ(grabber_->FireHardwareTrigger(0), S_OK);
    ASSERT_EQ(fifo->StartAcquire(&ticket), S_OK);
    EXPECT_EQ(ticket, 32);
    ASSERT_EQ(grabber_->FireHardwareTrigger(0), S_OK);
    LONG trigger = 0;
    ASSERT_EQ(Complete(fifo.get(), -1, &ticket, &trigger), S_OK);
    EXPECT_EQ(trigger, 33);
}

TEST_F(AcqFifoTest, TimeoutIsIgnoredUntilEnabledAndLeavesTheAcquisitionOutstanding) {
    auto fifo = Fifo();
    SetModel(fifo.get(), luxAcqTriggerModelSemi);
    ASSERT_EQ(fifo->put_Timeout(1.0), S_OK);
    LONG ticket = 0;
    ASSERT_EQ(fifo->StartAcquire(&ticket), S_OK);
    std::thread late([&] {
        std::this_thread::sleep_for(50ms);
        grabber_->FireHardwareTrigger(0);
    });
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(Complete(fifo.get(), ticket), S_OK);  // waited for the trigger, far beyond 1 ms
    EXPECT_GE(std::chrono::steady_clock::now() - began, 40ms);
    late.join();

    ASSERT_EQ(fifo->put_TimeoutEnabled(VARIANT_TRUE), S_OK);
    ASSERT_EQ(fifo->put_Timeout(20.0), S_OK);
    ASSERT_EQ(fifo->StartAcquire(&ticket), S_OK);
    EXPECT_EQ(Complete(fifo.get(), ticket), e_LuxAcq_Timeout);
    ExpectState(fifo.get(), 1, 0);  // still there, and collected once it comes
    ASSERT_EQ(grabber_->FireHardwareTrigger(0), S_OK);
    EXPECT_EQ(Complete(fifo.get(), -1), S_OK);
    EXPECT_EQ(fifo->put_Timeout(-1.0), E_INVALIDARG);
}

TEST_F(AcqFifoTest, EachTriggerModelStartsAcquisitionsItsOwnWay) {
    auto fifo = Fifo();
    LONG ticket = 0, trigger = 0;
    // Auto: each hardware trigger starts one; StartAcquire is not the client's to call.
    SetModel(fifo.get(), luxAcqTriggerModelAuto);
    EXPECT_EQ(fifo->StartAcquire(&ticket), e_LuxAcq_WrongTriggerModel);
    ASSERT_EQ(grabber_->FireHardwareTrigger(0), S_OK);
    ASSERT_EQ(grabber_->FireHardwareTrigger(0), S_OK);
    ASSERT_EQ(Complete(fifo.get(), -1, &ticket, &trigger), S_OK);
    EXPECT_EQ(trigger, 1);
    ComPtr<ILuxImage> image;
    ASSERT_EQ(fifo->Acquire(&trigger, image.Out()), S_OK);  // the next one, started by the trigger
    EXPECT_EQ(trigger, 2);
    EXPECT_EQ(grabber_->FireHardwareTrigger(2), E_INVALIDARG);

    // FreeRun: frames come by themselves, numbered in order.
    SetModel(fifo.get(), luxAcqTriggerModelFreeRun);
    EXPECT_EQ(fifo->StartAcquire(&ticket), e_LuxAcq_WrongTriggerModel);
    LONG first = 0, second = 0;
    ASSERT_EQ(Complete(fifo.get(), -1, nullptr, &first), S_OK);
    ASSERT_EQ(Complete(fifo.get(), -1, nullptr, &second), S_OK);
    EXPECT_GT(second, first);

    // Acquisition off: nothing starts, whatever the model.
    SetModel(fifo.get(), luxAcqTriggerModelManual);
    ASSERT_EQ(fifo->Flush(), S_OK);
    ASSERT_EQ(Trigger(fifo.get())->put_TriggerEnabled(VARIANT_FALSE), S_OK);
    EXPECT_EQ(fifo->StartAcquire(&ticket), e_LuxAcq_WrongTriggerModel);
    EXPECT_EQ(fifo->Acquire(&trigger, image.Out()), e_LuxAcq_WrongTriggerModel);
    EXPECT_EQ(Trigger(fifo.get())->put_TriggerModel(static_cast<LuxAcqTriggerModelConstants>(5)), E_INVALIDARG);
    EXPECT_EQ(Trigger(fifo.get())->put_TriggerModel(luxAcqTriggerModelSlave), e_LuxAcq_CannotSlave);
}

TEST_F(AcqFifoTest, SlavesAcquireWithTheirMasterOnTheNextPort) {
    auto master = Fifo();
    ComPtr<ILuxAcqSimultaneous> group = master.As<ILuxAcqSimultaneous>();
    ComPtr<ILuxAcqFifo> slave;
    ASSERT_EQ(group->CreateSlaveAcqFifo(VARIANT_TRUE, slave.Out()), S_OK);
    LONG port = -1;
    ASSERT_EQ(slave->get_CameraPort(&port), S_OK);
    EXPECT_EQ(port, 1);
    LuxAcqTriggerModelConstants model = luxAcqTriggerModelManual;
    ASSERT_EQ(Trigger(slave.get())->get_TriggerModel(&model), S_OK);
    EXPECT_EQ(model, luxAcqTriggerModelSlave);
    ComPtr<ILuxAcqFifo> second;
    EXPECT_EQ(group->CreateSlaveAcqFifo(VARIANT_TRUE, second.Out()), e_LuxAcq_CannotSlave);  // no port left

    LONG ticket = 0;
    EXPECT_EQ(slave->StartAcquire(&ticket), e_LuxAcq_NotAllowedForSlave);
    EXPECT_EQ(Trigger(slave.get())->put_TriggerModel(luxAcqTriggerModelManual), e_LuxAcq_NotAllowedForSlave);
    ASSERT_EQ(master->StartAcquire(&ticket), S_OK);
    EXPECT_EQ(Complete(master.get(), ticket), S_OK);
    EXPECT_EQ(Complete(slave.get(), -1), S_OK);  // started with the master's

    ComPtr<ILuxAcqFifo> back;
    ASSERT_EQ(slave.As<ILuxAcqSimultaneous>()->get_Master(back.Out()), S_OK);
    EXPECT_EQ(back.get(), master.get());
    ComPtr<ILuxCollection> slaves;
    ASSERT_EQ(group->get_Slaves(slaves.Out()), S_OK);
    LONG count = 0;
    ASSERT_EQ(slaves->get_Count(&count), S_OK);
    EXPECT_EQ(count, 1);
    slaves.Reset();
    slave.Reset();  // the master forgets a slave that goes
    ASSERT_EQ(group->get_Slaves(slaves.Out()), S_OK);
    ASSERT_EQ(slaves->get_Count(&count), S_OK);
    EXPECT_EQ(count, 0);
}

TEST_F(AcqFifoTest, EventsTellEachTicketWithItsTriggerNumberAndSinksMayCallBack) {
    auto fifo = Fifo();
    EventRecorder events(fifo.get());
    // A sink that asks the FIFO for its state from inside Complete must not hang it.
    std::atomic<int> callbacks{0};
    events.onComplete = [&](int32_t) {
        LONG p, r;
        VARIANT_BOOL busy;
        if (fifo->GetFifoState(&p, &r, &busy) == S_OK) ++callbacks;
    };
    LONG trigger = 0;
    ComPtr<ILuxImage> image;
    ASSERT_EQ(fifo->Acquire(&trigger, image.Out()), S_OK);
    ASSERT_EQ(grabber_->DropFrames(1), S_OK);
    EXPECT_EQ(fifo->Acquire(&trigger, image.Out()), e_LuxAcq_Overrun);
    ASSERT_EQ(fifo->Acquire(&trigger, image.Out()), S_OK);
    EXPECT_EQ(trigger, 3);
    ASSERT_TRUE(events.WaitFor("Complete", 2));
    ASSERT_TRUE(events.WaitFor("Overrun", 1));
    std::vector<Recorded> seen;
    for (const Recorded& e : events.Take())
        if (e.name != "Change") seen.push_back(e);
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen[0].name, "MovePart");
    EXPECT_EQ(seen[1].name, "Complete");
    EXPECT_EQ(seen[2].name, "Overrun");  // a dropped frame's exposure never ended
    EXPECT_EQ(seen[2].first, 1);
    EXPECT_EQ(seen[2].second, 2);
    EXPECT_EQ(seen[4].name, "Complete");
    EXPECT_EQ(seen[4].first, 2);
    EXPECT_EQ(seen[4].second, 3);
    EXPECT_EQ(callbacks.load(), 2);
}

TEST_F(AcqFifoTest, SettingsAreCheckedAgainstTheGrabberAndAnnouncedOnlyWhenTheyChange) {
    auto fifo = Fifo();
    EventRecorder events(fifo.get());
    auto exposure = fifo.As<ILuxAcqExposure>();
    ASSERT_EQ(exposure->put_Exposure(5.0), S_OK);
    ASSERT_EQ(exposure->put_Exposure(5.0), S_OK);  // the same: nothing announced
    double value = 0;
    ASSERT_EQ(exposure->get_Exposure(&value), S_OK);
    EXPECT_EQ(value, 5.0);
    ASSERT_EQ(exposure->get_MaxExposure(&value), S_OK);
    EXPECT_EQ(value, 10000.0);
    std::vector<Recorded> changes = events.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].first, luxAcqExposure_Exposure);

    EXPECT_EQ(exposure->put_Exposure(10001.0), E_INVALIDARG);
    EXPECT_NE(test::TakeErrorInfo().description.find("Exposure"), std::string::npos);
    EXPECT_EQ(exposure->put_Exposure(std::nan("")), E_INVALIDARG);
    ASSERT_EQ(exposure->get_Exposure(&value), S_OK);
    EXPECT_EQ(value, 5.0);
    // A setting the grabber does not have is refused both ways, naming it.
    auto light = fifo.As<ILuxAcqLight>();
    EXPECT_EQ(light->put_LightPower(0.5), E_NOTIMPL);
    EXPECT_NE(test::TakeErrorInfo().description.find("LightPower"), std::string::npos);
    EXPECT_EQ(light->get_LightPower(&value), E_NOTIMPL);
    // The output format: what the FIFO cannot make is refused, the format kept.
    EXPECT_EQ(fifo->put_OutputPixelFormat(luxImagePixelFormatGrey16), E_INVALIDARG);
    LuxImagePixelFormatConstants format = luxImagePixelFormatUnknown;
    ASSERT_EQ(fifo->get_OutputPixelFormat(&format), S_OK);
    EXPECT_EQ(format, luxImagePixelFormatGrey8);
    EXPECT_EQ(fifo->put_CameraPort(2), E_INVALIDARG);
    EXPECT_TRUE(events.Take().empty());  // no refusal announced anything
}

TEST_F(AcqFifoTest, RegionOfInterestCutsInHardwareOrSoftwareAndIsCheckedAgainstTheFrame) {
    auto fifo = Fifo();
    auto roi = fifo.As<ILuxAcqROI>();
    EXPECT_EQ(roi->SetROIXYWidthHeight(600, 0, 41, 10), e_LuxAcq_InvalidROI);
    EXPECT_EQ(roi->SetROIXYWidthHeight(0, 0, 0, 10), e_LuxAcq_InvalidROI);
    LONG x, y, w, h;
    ASSERT_EQ(roi->GetROIXYWidthHeight(&x, &y, &w, &h), S_OK);
    EXPECT_EQ(w, 640);
    EXPECT_EQ(h, 480);
    ASSERT_EQ(roi->SetROIXYWidthHeight(10, 20, 100, 50), S_OK);
    for (LuxAcqROIModeConstants mode : {luxAcqROIModeHardware, luxAcqROIModeSoftware}) {
        ASSERT_EQ(roi->put_ROIMode(mode), S_OK);
        LONG trigger = 0, width = 0, height = 0;
        ComPtr<ILuxImage> image;
        ASSERT_EQ(fifo->Acquire(&trigger, image.Out()), S_OK);
        ASSERT_EQ(image->get_Width(&width), S_OK);
        ASSERT_EQ(image->get_Height(&height), S_OK);
        EXPECT_EQ(width, 100);
        EXPECT_EQ(height, 50);
        // The pattern at (10 + 1, 20 + 2) of the frame.
        EXPECT_EQ(image::FilePixelsOfImage(image.get()).Grey8().Get(1, 2), (11 + 22 + 4 * trigger) % 256);
    }
}

TEST_F(AcqFifoTest, ImagesCarryACopyOfTheTreeAndTheSelectedSpace) {
    auto fifo = Fifo();
    auto tree = Make<ILuxCoordinateSpaceTree>("Tessaly.LuxCoordinateSpaceTree");
    auto transform = Make<ILuxTransform2DLinear>("Tessaly.LuxTransform2DLinear");
    ASSERT_EQ(tree->AddSpace(Bstr("@").get(), Bstr("Fixture").get(), transform.As<ILuxTransform2D>().get(),
                             VARIANT_TRUE, luxAddSpaceDuplicateIsError),
              S_OK);
    ASSERT_EQ(fifo->putref_CoordinateSpaceTree(tree.get()), S_OK);
    ASSERT_EQ(fifo->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    LONG trigger = 0;
    ComPtr<ILuxImage> image;
    ASSERT_EQ(fifo->Acquire(&trigger, image.Out()), S_OK);
    ComPtr<ILuxCoordinateSpaceTree> carried;
    ASSERT_EQ(image->get_CoordinateSpaceTree(carried.Out()), S_OK);
    ASSERT_TRUE(carried);
    EXPECT_NE(carried.get(), tree.get());
    Bstr name;
    ASSERT_EQ(image->get_SelectedSpaceName(name.Out()), S_OK);
    EXPECT_EQ(name.view(), "Fixture");
}

TEST_F(AcqFifoTest, EveryFormatDeliversItsPatternAndConvertsAsAsked) {
    struct Case {
        const char* format;
        LuxImagePixelFormatConstants type;
    };
    for (const Case& c : {Case{"Simulated 640x480 Grey8", luxImagePixelFormatGrey8},
                          Case{"Simulated 1280x1024 Grey16", luxImagePixelFormatGrey16},
                          Case{"Simulated 640x480 Bayer8", luxImagePixelFormatBayer8},
                          Case{"Simulated 640x480 PlanarRGB8", luxImagePixelFormatPlanarRGB8}}) {
        SCOPED_TRACE(c.format);
        auto fifo = Fifo(c.format, c.type);
        LuxImagePixelFormatConstants acquired = luxImagePixelFormatUnknown;
        ASSERT_EQ(fifo->AcquiredPixelFormat(&acquired), S_OK);
        EXPECT_EQ(acquired, c.type);
        LONG ticket = 0;
        ComPtr<ILuxImage> image;
        for (int i = 0; i < 3; ++i) ASSERT_EQ(fifo->Acquire(&ticket, image.Out()), S_OK);
        EXPECT_EQ(PatternNumber(image.get()), 3u);
    }
    auto bayer = Fifo("Simulated 640x480 Bayer8", luxImagePixelFormatPlanarRGB8);
    LONG trigger = 0;
    ComPtr<ILuxImage> colour;
    ASSERT_EQ(bayer->Acquire(&trigger, colour.Out()), S_OK);
    EXPECT_EQ(image::FilePixelsOfImage(colour.get()).Kind(), image::ImageFileKind::Rgb8);
}

TEST_F(AcqFifoTest, GrabberRefusesUnknownFormatsBadPortsAndAPortTwice) {
    LONG ports = 0;
    EXPECT_EQ(grabber_->get_NumCameraPorts(Bstr("Simulated 2x2 Grey8").get(), &ports), e_LuxAcq_BadVideoFormat);
    EXPECT_NE(test::TakeErrorInfo().description.find(kGrey8), std::string::npos);  // the formats offered
    ASSERT_EQ(grabber_->get_NumCameraPorts(Bstr(kGrey8).get(), &ports), S_OK);
    EXPECT_EQ(ports, 2);
    ComPtr<ILuxAcqFifo> fifo;
    EXPECT_EQ(grabber_->CreateAcqFifo(Bstr(kGrey8).get(), luxImagePixelFormatGrey8, 2, VARIANT_TRUE, fifo.Out()),
              E_INVALIDARG);
    EXPECT_EQ(grabber_->CreateAcqFifo(Bstr(kGrey8).get(), luxImagePixelFormatGrey16, 0, VARIANT_TRUE, fifo.Out()),
              E_INVALIDARG);
    auto first = Fifo();
    EXPECT_EQ(grabber_->CreateAcqFifo(Bstr(kGrey8).get(), luxImagePixelFormatGrey8, 0, VARIANT_TRUE, fifo.Out()),
              e_LuxAcq_HardwareInUse);
    ASSERT_EQ(first->put_CameraPort(1), S_OK);  // port 0 is free again
    EXPECT_EQ(grabber_->CreateAcqFifo(Bstr(kGrey8).get(), luxImagePixelFormatGrey8, 0, VARIANT_TRUE, fifo.Out()), S_OK);
    EXPECT_EQ(grabber_->put_ImageFolder(Bstr("/no/such/folder").get()), E_INVALIDARG);
    EXPECT_EQ(grabber_->put_FrameTimeMs(-1), E_INVALIDARG);
    EXPECT_EQ(grabber_->DropFrames(-1), E_INVALIDARG);
}

TEST_F(AcqFifoTest, ImageFolderFramesComeInNameOrderAndLoop) {
    const auto folder = std::filesystem::temp_directory_path() / "tessaly-acq-folder-test";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    for (auto [name, value] : {std::pair{"b.pgm", 20}, {"a.pgm", 10}, {"c.pgm", 30}}) {
        std::ofstream file(folder / name, std::ios::binary);
        file << "P5 4 3 255\n" << std::string(12, static_cast<char>(value));
    }
    std::ofstream(folder / "notes.txt") << "not an image";
    ASSERT_EQ(grabber_->put_ImageFolder(Bstr(folder.string()).get()), S_OK);
    auto fifo = Fifo();
    std::vector<LONG> seen;
    for (int i = 0; i < 4; ++i) {
        LONG trigger = 0, width = 0;
        ComPtr<ILuxImage> image;
        ASSERT_EQ(fifo->Acquire(&trigger, image.Out()), S_OK);
        ASSERT_EQ(image->get_Width(&width), S_OK);
        EXPECT_EQ(width, 4);  // the file's size, not the format's
        seen.push_back(image::FilePixelsOfImage(image.get()).Grey8().Get(0, 0));
    }
    EXPECT_EQ(seen, (std::vector<LONG>{10, 20, 30, 10}));
    ASSERT_EQ(grabber_->put_ImageFolder(Bstr("").get()), S_OK);
    std::filesystem::remove_all(folder);
}

TEST_F(AcqFifoTest, ReleasingAFifoWithAcquisitionsPendingStopsCleanly) {
    ASSERT_EQ(grabber_->put_FrameTimeMs(4000.0), S_OK);
    auto fifo = Fifo();
    EventRecorder* events = new EventRecorder(fifo.get());
    LONG ticket = 0;
    for (int i = 0; i < 3; ++i) ASSERT_EQ(fifo->StartAcquire(&ticket), S_OK);
    const auto began = std::chrono::steady_clock::now();
    delete events;
    fifo.Reset();  // the grabber's thread stops in the middle of an exposure
    EXPECT_LT(std::chrono::steady_clock::now() - began, 1000ms);  // not the 2 s of the exposure
}

TEST_F(AcqFifoTest, FourThreadsCompletingOneFifoGetEveryFrameOnce) {
    auto fifo = Fifo();
    std::mutex mutex;
    std::vector<LONG> collected;
    std::atomic<int> failures{0};
    const auto until = std::chrono::steady_clock::now() + 1s;
    std::vector<std::thread> threads;
    std::atomic<int> started{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            while (std::chrono::steady_clock::now() < until) {
                LONG ticket = 0, done = 0, trigger = 0;
                ComPtr<ILuxImage> image;
                if (fifo->StartAcquire(&ticket) != S_OK) {
                    ++failures;
                    continue;
                }
                ++started;
                if (fifo->CompleteAcquire(-1, &done, &trigger, image.Out()) != S_OK ||
                    TriggerNumberOfPattern(image::FilePixelsOfImage(image.get())) != static_cast<uint32_t>(trigger)) {
                    ++failures;
                    continue;
                }
                const std::lock_guard lock(mutex);
                collected.push_back(done);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(static_cast<int>(collected.size()), started.load());
    const std::set<LONG> distinct(collected.begin(), collected.end());
    EXPECT_EQ(distinct.size(), collected.size());  // none twice
    ExpectState(fifo.get(), 0, 0);                 // none left behind
}

}  // namespace
}  // namespace tessaly::acq
