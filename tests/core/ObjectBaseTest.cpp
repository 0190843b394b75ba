// The object base as a client sees it: the Change event with suspension and merging, the
// Tag, Clone and CreateObject, the lock, refused calls, and one IDispatch over every
// interface of the class.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "support/RecordedError.h"
#include "support/TestPoint.h"
#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/EventSink.h"
#include "platform/PumpHook.h"

namespace tessaly::test {
namespace {

struct ChangeSeen {
    LONG stateId;
    Variant value;
    LONG areas;
};

// A point with a recording sink on its Change event.
class ObjectBaseTest : public ::testing::Test {
protected:
    void SetUp() override {
        live_ = Module::LiveObjectCount();
        point_ = ComPtr<TestPoint>::Attach(TestPoint::Create());
        ASSERT_TRUE(point_);
    }
    void TearDown() override {
        if (cookie_) {
            EXPECT_EQ(Unadvise(point_->GetUnknown(), DIID_ILuxChangeEvent, cookie_), S_OK);
        }
        seen_.clear();  // the values seen may hold objects
        sink_.Reset();
        point_.Reset();
        EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects leaked or over-released";
    }

    void Listen(std::function<void()> during = {}) {
        sink_ = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [this, during](std::span<const VARIANT> args) {
                seen_.push_back({args[0].lVal, Variant(args[1]), args[2].lVal});
                if (during) during();
            },
            DIID_ILuxChangeEvent));
        ASSERT_EQ(Advise(point_->GetUnknown(), DIID_ILuxChangeEvent, sink_.get(), &cookie_), S_OK);
    }

    ILuxChangeEventConfiguration* Config() { return point_.get(); }
    LONG Suspended() {
        LONG count = -1;
        EXPECT_EQ(Config()->get_EventDeliverySuspended(&count), S_OK);
        return count;
    }

    ComPtr<TestPoint> point_;
    ComPtr<IDispatch> sink_;
    DWORD cookie_ = 0;
    std::vector<ChangeSeen> seen_;

private:
    LONG live_ = 0;
};

TEST_F(ObjectBaseTest, ASetterAnnouncesItsChangeAfterStoringIt) {
    Listen();
    ASSERT_EQ(point_->put_X(2.5), S_OK);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].stateId, testPoint_X);
    EXPECT_EQ(seen_[0].value.get().dblVal, 2.5);
    EXPECT_EQ(seen_[0].areas, testFA_Point_Position);
    EXPECT_TRUE(point_->HasChanged());
    ASSERT_EQ(point_->put_X(2.5), S_OK);
    EXPECT_EQ(seen_.size(), 1u) << "an unchanged value announces nothing";

    // The Tag: any value, announced with an empty value and the general area.
    ASSERT_EQ(point_->put_Tag(Variant("note").get()), S_OK);
    ASSERT_EQ(point_->putref_Tag(Variant(int32_t{3}).get()), S_OK);
    ASSERT_EQ(seen_.size(), 3u);
    for (size_t i = 1; i < 3; ++i) {
        EXPECT_EQ(seen_[i].stateId, luxObject_Tag);
        EXPECT_EQ(seen_[i].value.vt(), VT_EMPTY);
        EXPECT_EQ(seen_[i].areas, luxFA_Misc);
    }
    Variant tag;
    ASSERT_EQ(point_->get_Tag(tag.Out()), S_OK);
    EXPECT_EQ(tag.get().lVal, 3);
}

TEST_F(ObjectBaseTest, ChangesMergeWhileDeliveryIsSuspended) {
    Listen();
    // The same property twice: one event, its last value, the areas of both.
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(point_->RaiseChange(testPoint_X, Variant(1.0).get(), 2), S_OK);
    ASSERT_EQ(point_->RaiseChange(testPoint_X, Variant(7.0).get(), 16), S_OK);
    EXPECT_TRUE(seen_.empty());
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].stateId, testPoint_X);
    EXPECT_EQ(seen_[0].value.get().dblVal, 7.0);
    EXPECT_EQ(seen_[0].areas, 18);

    // Two properties: -1 with an empty value.
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(point_->put_X(10), S_OK);
    ASSERT_EQ(point_->put_Marker(Variant("m").get()), S_OK);
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(seen_.size(), 2u);
    EXPECT_EQ(seen_[1].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(seen_[1].value.vt(), VT_EMPTY);
    EXPECT_EQ(seen_[1].areas, testFA_Point_Position | testFA_Point_Marker);

    // Two forwarded sub-object events never merge into one of them: -1.
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(point_->RaiseChange(luxState_SubObjectEvent, Variant(int32_t{1}).get(), 1), S_OK);
    ASSERT_EQ(point_->RaiseChange(luxState_SubObjectEvent, Variant(int32_t{2}).get(), 1), S_OK);
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(seen_.size(), 3u);
    EXPECT_EQ(seen_[2].stateId, luxState_MoreThanOneStateIDChanged);

    // -1 raised directly carries an empty value whatever was given.
    ASSERT_EQ(point_->RaiseChange(luxState_MoreThanOneStateIDChanged, Variant("ignored").get(), 1), S_OK);
    EXPECT_EQ(seen_.back().value.vt(), VT_EMPTY);
}

TEST_F(ObjectBaseTest, NestedSuspensionsFireOnTheLastResumeOnly) {
    Listen();
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(point_->put_Y(4), S_OK);
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    EXPECT_TRUE(seen_.empty());
    EXPECT_EQ(Suspended(), 1);
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    EXPECT_EQ(Suspended(), 0);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].stateId, testPoint_Y);

    // Nothing pending: resuming fires nothing. Resuming what is not suspended is refused.
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    EXPECT_EQ(seen_.size(), 1u);
    ClearErrorInfo();
    EXPECT_EQ(Config()->ResumeAndFireEvent(), static_cast<HRESULT>(e_Lux_ChangeEventError));
    EXPECT_EQ(TakeErrorInfo().source, "ResumeAndFireEvent");
    EXPECT_EQ(Suspended(), 0);
    EXPECT_EQ(seen_.size(), 1u);
}

TEST_F(ObjectBaseTest, AreasLeftPendingTravelWithTheNextDeliveredEvent) {
    Listen();
    ASSERT_EQ(Config()->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(point_->RaiseChange(luxState_Undefined, 8), S_OK);  // an area without a state
    ASSERT_EQ(Config()->ResumeAndFireEvent(), S_OK);
    EXPECT_TRUE(seen_.empty()) << "no state pending, nothing delivered";
    ASSERT_EQ(point_->put_X(1), S_OK);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].areas, testFA_Point_Position | 8);
    ASSERT_EQ(point_->put_X(2), S_OK);
    EXPECT_EQ(seen_[1].areas, testFA_Point_Position) << "taken by the event they travelled with";
}

// Counts the references taken on it: a value built for sinks shows up here.
class Counted : public UnknownObject<Counted, IUnknown> {
public:
    std::atomic<int> addRefs{0};
    ULONG AddRef() override {
        ++addRefs;
        return UnknownObject::AddRef();
    }

private:
    friend class UnknownObject<Counted, IUnknown>;
    ~Counted() override = default;
};

TEST_F(ObjectBaseTest, WithoutSinksNothingIsCopied) {
    auto counted = ComPtr<Counted>::Attach(Counted::Create());
    Variant value(static_cast<IUnknown*>(counted.get()));
    const int before = counted->addRefs;
    ASSERT_EQ(point_->RaiseChange(testPoint_Marker, value.get(), 4), S_OK);
    EXPECT_EQ(counted->addRefs, before) << "no sink: the value is not copied";
    Listen();
    ASSERT_EQ(point_->RaiseChange(testPoint_Marker, value.get(), 4), S_OK);
    EXPECT_GT(counted->addRefs, before) << "a connected sink receives a copy";
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].value.get().punkVal, counted.get());
}

TEST_F(ObjectBaseTest, ARefusedSetterChangesNothingAndAnnouncesNothing) {
    Listen();
    ASSERT_EQ(point_->put_X(3), S_OK);
    seen_.clear();
    point_->SetHasChanged(false);
    EXPECT_EQ(point_->put_X(std::nan("")), E_INVALIDARG);
    const RecordedError error = TakeErrorInfo();  // before the next call, which clears it
    double x = 0;
    ASSERT_EQ(point_->get_X(&x), S_OK);
    EXPECT_EQ(x, 3);
    EXPECT_TRUE(seen_.empty());
    EXPECT_FALSE(point_->HasChanged());
    EXPECT_EQ(error.source, "put_X");
    EXPECT_EQ(error.iid, IID_ITestPoint);
    EXPECT_NE(error.description.find("value"), std::string::npos) << error.description;

    EXPECT_EQ(point_->get_X(nullptr), E_POINTER);
    EXPECT_EQ(point_->get_Tag(nullptr), E_POINTER);
    EXPECT_EQ(point_->Clone(nullptr), E_POINTER);
}

TEST_F(ObjectBaseTest, ASinkMayCallBackIntoTheObject) {
    double seenX = 0;
    int depth = 0;
    Listen([&] {
        point_->get_X(&seenX);
        if (++depth == 1) point_->put_Y(seenX * 2);  // a nested change from inside the event
    });
    ASSERT_EQ(point_->put_X(21), S_OK);
    EXPECT_EQ(seenX, 21);
    double y = 0;
    point_->get_Y(&y);
    EXPECT_EQ(y, 42);
    ASSERT_EQ(seen_.size(), 2u);
    EXPECT_EQ(seen_[1].stateId, testPoint_Y);
}

TEST_F(ObjectBaseTest, CloneCopiesStateAndTagAndNothingElse) {
    ASSERT_EQ(point_->MoveTo(1, 2), S_OK);
    ASSERT_EQ(point_->put_Marker(Variant("mark").get()), S_OK);
    ASSERT_EQ(point_->put_Tag(Variant(int32_t{9}).get()), S_OK);
    Listen();
    ComPtr<IDispatch> copyDispatch;
    ASSERT_EQ(point_->Clone(copyDispatch.Out()), S_OK);
    auto copy = copyDispatch.As<ITestPoint>();
    ASSERT_TRUE(copy);
    EXPECT_NE(static_cast<void*>(copy.get()), static_cast<ITestPoint*>(point_.get()));
    double x = 0;
    double y = 0;
    copy->get_X(&x);
    copy->get_Y(&y);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, 2);
    Variant marker;
    copy->get_Marker(marker.Out());
    EXPECT_EQ(BstrView(marker.get().bstrVal), "mark");
    Variant tag;
    copyDispatch.As<ILuxObject>()->get_Tag(tag.Out());
    EXPECT_EQ(tag.get().lVal, 9);

    // Independent: changing the copy leaves the original and its sink alone.
    ASSERT_EQ(copy->put_X(5), S_OK);
    point_->get_X(&x);
    EXPECT_EQ(x, 1);
    EXPECT_TRUE(seen_.empty()) << "the copy has no sinks of its own";

    // A sub-object is cloned too; an object met again while it is being cloned is shared.
    ASSERT_EQ(point_->put_Marker(Variant(copyDispatch.get()).get()), S_OK);
    ComPtr<IDispatch> deep;
    ASSERT_EQ(point_->Clone(deep.Out()), S_OK);
    deep.As<ITestPoint>()->get_Marker(marker.Out());
    ASSERT_EQ(marker.vt(), VT_DISPATCH);
    EXPECT_NE(marker.get().pdispVal, copyDispatch.get()) << "the marker was cloned";
    ComPtr<ITestPoint> innerCopy = ComPtr<IDispatch>(marker.get().pdispVal).As<ITestPoint>();
    innerCopy->get_X(&x);
    EXPECT_EQ(x, 5);

    ASSERT_EQ(point_->put_Marker(Variant(static_cast<IDispatch*>(point_->GetDispatch())).get()), S_OK);
    ComPtr<IDispatch> selfCopy;
    ASSERT_EQ(point_->Clone(selfCopy.Out()), S_OK);
    selfCopy.As<ITestPoint>()->get_Marker(marker.Out());
    EXPECT_EQ(marker.get().pdispVal, point_->GetDispatch()) << "a cycle is shared, not followed";
    marker = Variant();
    ASSERT_EQ(point_->put_Marker(Variant().get()), S_OK);  // breaks the cycle for the release
}

TEST_F(ObjectBaseTest, CreateObjectMakesClassesByName) {
    ComPtr<IDispatch> made;
    ASSERT_EQ(point_->CreateObject(Bstr("Tessaly.TestPoint").get(), made.Out()), S_OK);
    EXPECT_TRUE(made.As<ITestPoint>());
    ClearErrorInfo();
    EXPECT_EQ(point_->CreateObject(Bstr("Tessaly.NoSuchThing").get(), made.Out()), REGDB_E_CLASSNOTREG);
    EXPECT_FALSE(made);
    const std::string description = TakeErrorInfo().description;
    EXPECT_NE(description.find("Tessaly.NoSuchThing"), std::string::npos) << description;
    EXPECT_EQ(point_->CreateObject(Bstr("{not a guid}").get(), made.Out()), CO_E_CLASSSTRING);

    Bstr name;
    ASSERT_EQ(point_->GetLocalComputerName(name.Out()), S_OK);
    EXPECT_EQ(name, core::LocalComputerName());
    EXPECT_FALSE(name.empty());
}

TEST_F(ObjectBaseTest, OneDispatchReachesEveryInterfaceOfTheClass) {
    IDispatch* dispatch = point_->GetDispatch();
    const auto call = [&](const char* name, WORD flags, std::vector<VARIANT> args, VARIANT* result) {
        DISPID id = 0;
        LPOLESTR names[] = {const_cast<char*>(name)};
        EXPECT_EQ(dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &id), S_OK) << name;
        DISPID put = DISPID_PROPERTYPUT;
        DISPPARAMS params{args.data(), flags & DISPATCH_PROPERTYPUT ? &put : nullptr, static_cast<UINT>(args.size()),
                          flags & DISPATCH_PROPERTYPUT ? 1u : 0u};
        return dispatch->Invoke(id, GUID_NULL, 0, flags, &params, result, nullptr, nullptr);
    };
    Listen();
    Variant result;
    ASSERT_EQ(call("suspendeventdelivery", DISPATCH_METHOD, {}, result.Out()), S_OK);
    ASSERT_EQ(call("X", DISPATCH_PROPERTYPUT, {Variant(int32_t{6}).get()}, nullptr), S_OK);
    ASSERT_EQ(call("Tag", DISPATCH_PROPERTYPUT, {Variant("t").get()}, nullptr), S_OK);
    ASSERT_EQ(call("EventDeliverySuspended", DISPATCH_PROPERTYGET, {}, result.Out()), S_OK);
    EXPECT_EQ(result.get().lVal, 1);
    ASSERT_EQ(call("ResumeAndFireEvent", DISPATCH_METHOD, {}, result.Out()), S_OK);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].stateId, luxState_MoreThanOneStateIDChanged);
    ASSERT_EQ(call("x", DISPATCH_PROPERTYGET, {}, result.Out()), S_OK);
    EXPECT_EQ(result.get().dblVal, 6.0);

    // Class information leads a client to the Change event.
    GUID source{};
    ASSERT_EQ(point_.As<IProvideClassInfo2>()->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source), S_OK);
    EXPECT_EQ(source, DIID_ILuxChangeEvent);
}

TEST(ObjectLockTest, IsRecursiveAndMakesOthersWaitTakingTurnsWithTheirPump) {
    core::ObjectLock lock;
    lock.Lock();
    lock.Lock();
    EXPECT_TRUE(lock.HeldByCurrentThread());
    EXPECT_EQ(lock.RecursionCount(), 2u);

    std::atomic<bool> acquired{false};
    std::atomic<int> pumped{0};
    std::thread waiter([&] {
        SetThreadPumpHook([&] {
            ++pumped;
            return false;
        });
        EXPECT_FALSE(lock.HeldByCurrentThread());
        lock.Lock();
        acquired = true;
        lock.Unlock();
        SetThreadPumpHook({});
    });
    while (pumped.load() < 3) std::this_thread::yield();
    EXPECT_FALSE(acquired) << "held twice, released once is still held";
    lock.Unlock();
    EXPECT_FALSE(acquired);
    lock.Unlock();
    waiter.join();
    EXPECT_TRUE(acquired);
    EXPECT_FALSE(lock.HeldByCurrentThread());
    EXPECT_NE(core::ObjectLock::CurrentThreadId(), 0u);
}

}  // namespace
}  // namespace tessaly::test
