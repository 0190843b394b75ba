// Connection points: finding them, advising and unadvising sinks, cookies, enumerations,
// events reaching C++ callables, and sinks that unadvise or call back during an event.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "TestWidget.h"
#include "platform/ErrorInfo.h"
#include "platform/ConnectionPointContainer.h"
#include "platform/EventSink.h"

namespace tessaly::test {
namespace {

class ConnectionPointTest : public WidgetTest {
protected:
    Ref<IConnectionPoint> PointOf(TestWidget* widget) {
        Ref<IConnectionPointContainer> container;
        EXPECT_EQ(widget->QueryInterface(IConnectionPointContainer::iid, container.void_out()), S_OK);
        Ref<IConnectionPoint> point;
        EXPECT_EQ(container->FindConnectionPoint(ITestWidgetEvents::iid, point.out()), S_OK);
        return point;
    }
    // Fires Change(state, value) through dispatch, as a client would make the widget do.
    void FireChange(TestWidget* widget, LONG state) {
        Args args{I4(state), Str("changed")};
        ASSERT_EQ(Call(widget, TestWidget::kFireChange, DISPATCH_METHOD, args), S_OK);
    }
};

TEST_F(ConnectionPointTest, OnlyClassesWithSourceInterfacesAreContainers) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPointContainer> container;
    ASSERT_EQ(widget->QueryInterface(IConnectionPointContainer::iid, container.void_out()), S_OK);
    Ref<IConnectionPoint> point;
    EXPECT_EQ(container->FindConnectionPoint(ITestWidget::iid, point.out()), CONNECT_E_NOCONNECTION);
    EXPECT_FALSE(point);
    ASSERT_EQ(container->FindConnectionPoint(ITestWidgetEvents::iid, point.out()), S_OK);
    IID iid{};
    ASSERT_EQ(point->GetConnectionInterface(&iid), S_OK);
    EXPECT_EQ(iid, ITestWidgetEvents::iid);
    Ref<IConnectionPointContainer> back;
    ASSERT_EQ(point->GetConnectionPointContainer(back.out()), S_OK);
    EXPECT_EQ(back.get(), container.get());
    // The same connection point every time.
    Ref<IConnectionPoint> again;
    ASSERT_EQ(container->FindConnectionPoint(ITestWidgetEvents::iid, again.out()), S_OK);
    EXPECT_EQ(again.get(), point.get());

    Ref<ITestGadget> gadget(TestGadget::Create());
    Ref<IConnectionPointContainer> none;
    EXPECT_EQ(gadget->QueryInterface(IConnectionPointContainer::iid, none.void_out()), E_NOINTERFACE);
    EXPECT_FALSE(none);
}

TEST_F(ConnectionPointTest, EnumConnectionPointsListsOnePointPerSourceInterface) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPointContainer> container;
    ASSERT_EQ(widget->QueryInterface(IConnectionPointContainer::iid, container.void_out()), S_OK);
    Ref<IEnumConnectionPoints> points;
    ASSERT_EQ(container->EnumConnectionPoints(points.out()), S_OK);
    IConnectionPoint* fetched[2] = {nullptr, nullptr};
    ULONG count = 99;
    EXPECT_EQ(points->Next(2, fetched, nullptr), E_POINTER) << "more than one needs a count";
    ASSERT_EQ(points->Next(2, fetched, &count), S_FALSE);
    ASSERT_EQ(count, 1u);
    IID iid{};
    fetched[0]->GetConnectionInterface(&iid);
    EXPECT_EQ(iid, ITestWidgetEvents::iid);
    fetched[0]->Release();
    EXPECT_EQ(points->Next(1, fetched, &count), S_FALSE);
    EXPECT_EQ(count, 0u);
    ASSERT_EQ(points->Reset(), S_OK);
    EXPECT_EQ(points->Skip(1), S_OK);
    EXPECT_EQ(points->Skip(1), S_FALSE);
    points->Reset();
    Ref<IEnumConnectionPoints> clone;
    ASSERT_EQ(points->Clone(clone.out()), S_OK);
    ASSERT_EQ(clone->Next(1, fetched, nullptr), S_OK);
    fetched[0]->Release();
}

TEST_F(ConnectionPointTest, AdviseHoldsTheSinkUntilUnadvise) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPoint> point = PointOf(widget);
    std::vector<LONG> first;
    std::vector<LONG> second;
    Ref<IDispatch> sinkA(MakeEventSink(TestWidget::kChangeEvent, [&](std::span<const VARIANT> args) {
        ASSERT_EQ(args.size(), 2u);
        first.push_back(args[0].lVal);
        EXPECT_EQ(Text(args[1].bstrVal), "changed");
    }));
    Ref<IDispatch> sinkB(
        MakeEventSink(TestWidget::kChangeEvent, [&](std::span<const VARIANT> args) { second.push_back(args[0].lVal); }));
    DWORD cookieA = 0;
    DWORD cookieB = 0;
    ASSERT_EQ(point->Advise(sinkA.get(), &cookieA), S_OK);
    ASSERT_EQ(point->Advise(sinkB.get(), &cookieB), S_OK);
    EXPECT_NE(cookieA, 0u);
    EXPECT_NE(cookieB, 0u);
    EXPECT_NE(cookieA, cookieB);
    EXPECT_EQ(RefCount(sinkA.get()), 2u);

    FireChange(widget, 1);
    EXPECT_EQ(first, std::vector<LONG>{1});
    EXPECT_EQ(second, std::vector<LONG>{1});

    ASSERT_EQ(point->Unadvise(cookieA), S_OK);
    EXPECT_EQ(RefCount(sinkA.get()), 1u);
    EXPECT_EQ(point->Unadvise(cookieA), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(0), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(cookieB + 100), CONNECT_E_NOCONNECTION);
    FireChange(widget, 2);
    EXPECT_EQ(first, std::vector<LONG>{1});
    EXPECT_EQ(second, (std::vector<LONG>{1, 2}));

    // Cookies are not reused.
    DWORD cookieC = 0;
    ASSERT_EQ(point->Advise(sinkA.get(), &cookieC), S_OK);
    EXPECT_NE(cookieC, cookieA);
    EXPECT_NE(cookieC, cookieB);
    ASSERT_EQ(point->Unadvise(cookieC), S_OK);
    ASSERT_EQ(point->Unadvise(cookieB), S_OK);
    EXPECT_EQ(RefCount(sinkB.get()), 1u);
}

TEST_F(ConnectionPointTest, SinksMustAnswerTheSourceInterfaceOrIDispatch) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPoint> point = PointOf(widget);
    ICreateErrorInfo* notASink = nullptr;
    ASSERT_EQ(CreateErrorInfo(&notASink), S_OK);
    DWORD cookie = 77;
    EXPECT_EQ(point->Advise(notASink, &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(RefCount(notASink), 1u);
    notASink->Release();
    EXPECT_EQ(point->Advise(nullptr, &cookie), E_POINTER);

    // A sink that answers the event interface itself.
    int pings = 0;
    Ref<IDispatch> typed(MakeEventSink([&](DISPID, DISPPARAMS*) { ++pings; }, ITestWidgetEvents::iid));
    Ref<IUnknown> asEvents;
    ASSERT_EQ(typed->QueryInterface(ITestWidgetEvents::iid, asEvents.void_out()), S_OK);
    ASSERT_EQ(point->Advise(asEvents.get(), &cookie), S_OK);
    EXPECT_EQ(widget->FireEvent(ITestWidgetEvents::iid, TestWidget::kPingEvent), S_OK);
    EXPECT_EQ(pings, 1);
    ASSERT_EQ(point->Unadvise(cookie), S_OK);
}

TEST_F(ConnectionPointTest, EnumConnectionsListsSinksWithReferences) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPoint> point = PointOf(widget);
    Ref<IDispatch> sink(MakeEventSink([](DISPID, DISPPARAMS*) {}));
    DWORD cookies[2] = {};
    ASSERT_EQ(point->Advise(sink.get(), &cookies[0]), S_OK);
    ASSERT_EQ(point->Advise(sink.get(), &cookies[1]), S_OK);
    Ref<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(connections.out()), S_OK);
    // The enumeration is a snapshot: a later Unadvise does not change it.
    ASSERT_EQ(point->Unadvise(cookies[0]), S_OK);
    CONNECTDATA data[3] = {};
    ULONG count = 0;
    ASSERT_EQ(connections->Next(3, data, &count), S_FALSE);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(data[0].dwCookie, cookies[0]);
    EXPECT_EQ(data[1].dwCookie, cookies[1]);
    EXPECT_EQ(static_cast<void*>(data[0].pUnk), static_cast<void*>(sink.get()));
    data[0].pUnk->Release();
    data[1].pUnk->Release();
    connections->Reset();
    EXPECT_EQ(connections->Skip(3), S_FALSE);
    Ref<IEnumConnections> clone;
    ASSERT_EQ(connections->Clone(clone.out()), S_OK);
    EXPECT_EQ(clone->Next(1, data, nullptr), S_FALSE);
    connections.Reset();
    clone.Reset();
    EXPECT_EQ(RefCount(sink.get()), 2u) << "only the remaining connection holds the sink";
    ASSERT_EQ(point->Unadvise(cookies[1]), S_OK);
}

TEST_F(ConnectionPointTest, SinkMayUnadviseItselfAndCallBackDuringAnEvent) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPoint> point = PointOf(widget);
    DWORD cookie = 0;
    int calls = 0;
    LONG seenValue = 0;
    Ref<IDispatch> sink(MakeEventSink(TestWidget::kChangeEvent, [&](std::span<const VARIANT>) {
        ++calls;
        // Back into the object, through dispatch, while it is firing.
        Args none;
        VARIANT result{};
        EXPECT_EQ(Call(widget, DISPID_VALUE, DISPATCH_PROPERTYGET, none, &result), S_OK);
        seenValue = result.lVal;
        EXPECT_EQ(point->Unadvise(cookie), S_OK);
    }));
    ASSERT_EQ(point->Advise(sink.get(), &cookie), S_OK);
    widget->value = 5;
    FireChange(widget, 1);
    FireChange(widget, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(seenValue, 5);
    EXPECT_EQ(RefCount(sink.get()), 1u);
}

TEST_F(ConnectionPointTest, HandlersSeeOnlyTheirEventAndFireEventConvertsArguments) {
    TestWidget* widget = NewWidget();
    std::vector<DISPID> all;
    VARTYPE types[2] = {VT_EMPTY, VT_EMPTY};
    Ref<IDispatch> any(MakeEventSink([&](DISPID dispid, DISPPARAMS* params) {
        all.push_back(dispid);
        if (params->cArgs == 2) {
            types[0] = params->rgvarg[1].vt;  // declared order is reversed in rgvarg
            types[1] = params->rgvarg[0].vt;
        }
    }));
    int changes = 0;
    Ref<IDispatch> change(
        MakeEventSink(TestWidget::kChangeEvent, [&](std::span<const VARIANT>) { ++changes; }));
    // Firing before any connection point exists is a no-op.
    EXPECT_EQ(widget->FireEvent(ITestWidgetEvents::iid, TestWidget::kPingEvent), S_OK);
    DWORD anyCookie = 0;
    DWORD changeCookie = 0;
    ASSERT_EQ(Advise(widget->GetUnknown(), ITestWidgetEvents::iid, any.get(), &anyCookie), S_OK);
    ASSERT_EQ(Advise(widget->GetUnknown(), ITestWidgetEvents::iid, change.get(), &changeCookie), S_OK);
    EXPECT_EQ(widget->FireEvent(ITestWidgetEvents::iid, TestWidget::kPingEvent), S_OK);
    EXPECT_EQ(widget->FireEvent(ITestWidgetEvents::iid, TestWidget::kChangeEvent, 3.5, "text"), S_OK);
    EXPECT_EQ(all, (std::vector<DISPID>{TestWidget::kPingEvent, TestWidget::kChangeEvent}));
    EXPECT_EQ(types[0], VT_R8);
    EXPECT_EQ(types[1], VT_BSTR);
    EXPECT_EQ(changes, 1);
    // Events of an interface that is not a source reach nobody.
    EXPECT_EQ(widget->FireEvent(ITestWidget::iid, TestWidget::kChangeEvent, 1, 2), S_OK);
    EXPECT_EQ(all.size(), 2u);
    EXPECT_EQ(Advise(widget->GetUnknown(), ITestWidget::iid, any.get(), &anyCookie), CONNECT_E_NOCONNECTION);
    ASSERT_EQ(Unadvise(widget->GetUnknown(), ITestWidgetEvents::iid, changeCookie), S_OK);
    EXPECT_EQ(Unadvise(widget->GetUnknown(), ITestWidgetEvents::iid, changeCookie), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(RefCount(change.get()), 1u);
}

TEST_F(ConnectionPointTest, ConnectionPointKeepsItsObjectAliveAndTheObjectReleasesItsSinks) {
    const LONG live = Module::LiveObjectCount();
    TestWidget* widget = TestWidget::Create();
    Ref<IDispatch> sink(MakeEventSink([](DISPID, DISPPARAMS*) {}));
    IConnectionPoint* point = nullptr;
    {
        Ref<IConnectionPointContainer> container;
        ASSERT_EQ(widget->QueryInterface(IConnectionPointContainer::iid, container.void_out()), S_OK);
        ASSERT_EQ(container->FindConnectionPoint(ITestWidgetEvents::iid, &point), S_OK);
    }
    DWORD cookie = 0;
    ASSERT_EQ(point->Advise(sink.get(), &cookie), S_OK);
    widget->Release();
    EXPECT_EQ(Module::LiveObjectCount(), live + 2) << "the connection point holds the widget";
    EXPECT_EQ(RefCount(sink.get()), 2u);
    point->Release();  // the last reference: the widget goes, and lets go of its sink
    EXPECT_EQ(Module::LiveObjectCount(), live + 1);
    EXPECT_EQ(RefCount(sink.get()), 1u);
}

TEST_F(ConnectionPointTest, ConcurrentAdviseUnadviseAndFiring) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPoint> point = PointOf(widget);
    std::atomic<int> received{0};
    Ref<IDispatch> sink(MakeEventSink([&](DISPID, DISPPARAMS*) { received.fetch_add(1); }));
    std::atomic<bool> stop{false};
    std::thread firing([&] {
        while (!stop.load()) widget->FireEvent(ITestWidgetEvents::iid, TestWidget::kPingEvent);
    });
    std::vector<std::thread> advisers;
    std::atomic<int> failures{0};
    for (int t = 0; t < 3; ++t) {
        advisers.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                DWORD cookie = 0;
                if (point->Advise(sink.get(), &cookie) != S_OK || point->Unadvise(cookie) != S_OK) ++failures;
            }
        });
    }
    for (std::thread& adviser : advisers) adviser.join();
    stop = true;
    firing.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(RefCount(sink.get()), 1u);
    Ref<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(connections.out()), S_OK);
    CONNECTDATA data{};
    EXPECT_EQ(connections->Next(1, &data, nullptr), S_FALSE);
}

}  // namespace
}  // namespace tessaly::test

namespace tessaly::test {
namespace {

// Two outgoing interfaces, described by hand: one declares Change (7456), the other only Ping.
const MemberInfo kWithChangeMembers[] = {{"Change", 7456, INVOKE_FUNC, nullptr, 0, "", nullptr}};
const MemberInfo kWithoutChangeMembers[] = {{"Ping", 7457, INVOKE_FUNC, nullptr, 0, "", nullptr}};
const InterfaceInfo kWithChange{"IWithChange", MakeGuid("5B0E7A61-0C1D-4E2F-9A3B-4C5D6E7F8091"), nullptr,
                                InterfaceKind::DispInterface, "", kWithChangeMembers, 1};
// Derives from the interface with Change, declaring nothing of its own: Change is inherited.
const InterfaceInfo kDerived{"IDerived", MakeGuid("5B0E7A61-0C1D-4E2F-9A3B-4C5D6E7F8092"), &kWithChange,
                             InterfaceKind::DispInterface, "", nullptr, 0};
const InterfaceInfo kWithoutChange{"IWithoutChange", MakeGuid("5B0E7A61-0C1D-4E2F-9A3B-4C5D6E7F8093"), nullptr,
                                   InterfaceKind::DispInterface, "", kWithoutChangeMembers, 1};
const CoClassInterface kSources[] = {{&kWithChange, IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE},
                                     {&kDerived, IMPLTYPEFLAG_FSOURCE},
                                     {&kWithoutChange, IMPLTYPEFLAG_FSOURCE}};
const CoClassInfo kTwoSources{"TwoSources", GUID_NULL, "", false, "", "", kSources, 3};

class SharedEventTest : public WidgetTest {};

TEST_F(SharedEventTest, AnEventSharedByInterfacesGoesOnlyToThoseThatDeclareIt) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPointContainer> owner;
    ASSERT_EQ(widget->QueryInterface(IConnectionPointContainer::iid, owner.void_out()), S_OK);
    ConnectionPointContainer points(*owner.get(), kTwoSources);
    std::vector<std::string> heard;
    auto listen = [&](const InterfaceInfo& iface, std::string name) {
        Ref<IDispatch> sink(MakeEventSink([&heard, name](DISPID id, DISPPARAMS*) {
            heard.push_back(name + ":" + std::to_string(id));
        }));
        DWORD cookie = 0;
        ASSERT_EQ(points.Find(iface.iid)->Advise(sink.get(), &cookie), S_OK);
    };
    listen(kWithChange, "with");
    listen(kDerived, "derived");
    listen(kWithoutChange, "without");

    EXPECT_TRUE(points.Find(kWithChange.iid)->Declares(7456));
    EXPECT_TRUE(points.Find(kDerived.iid)->Declares(7456));
    EXPECT_FALSE(points.Find(kWithoutChange.iid)->Declares(7456));
    EXPECT_FALSE(points.Find(kWithChange.iid)->Declares(7457));
    EXPECT_TRUE(points.Find(kWithoutChange.iid)->Declares(7457));
    EXPECT_FALSE(points.Find(kWithoutChange.iid)->Declares(7456)) << "asked again: the answer is cached per DISPID";

    DISPPARAMS none{nullptr, nullptr, 0, 0};
    points.FireAll(7456, none);
    EXPECT_EQ(heard, (std::vector<std::string>{"with:7456", "derived:7456"}));
    heard.clear();
    points.FireAll(7457, none);
    EXPECT_EQ(heard, std::vector<std::string>{"without:7457"});
    heard.clear();
    points.FireAll(1, none);  // declared nowhere
    EXPECT_TRUE(heard.empty());
    // Firing one interface directly is not filtered: the caller chose it.
    points.Fire(kWithoutChange.iid, 7456, none);
    EXPECT_EQ(heard, std::vector<std::string>{"without:7456"});
}

TEST_F(SharedEventTest, FiringWithoutALockSurvivesAdviseAndUnadviseOnOtherThreads) {
    TestWidget* widget = NewWidget();
    Ref<IConnectionPointContainer> owner;
    ASSERT_EQ(widget->QueryInterface(IConnectionPointContainer::iid, owner.void_out()), S_OK);
    ConnectionPointContainer points(*owner.get(), kTwoSources);
    ConnectionPoint* point = points.Find(kWithChange.iid);
    std::atomic<int> steadyCalls{0};
    Ref<IDispatch> steady(MakeEventSink([&](DISPID, DISPPARAMS*) { ++steadyCalls; }));
    DWORD steadyCookie = 0;
    ASSERT_EQ(point->Advise(steady.get(), &steadyCookie), S_OK);

    constexpr int kFires = 20000;
    constexpr int kChurn = 2000;
    std::atomic<bool> failed{false};
    std::thread firing([&] {
        DISPPARAMS none{nullptr, nullptr, 0, 0};
        for (int i = 0; i < kFires; ++i) point->Fire(7456, none);
    });
    auto churn = [&] {
        for (int i = 0; i < kChurn; ++i) {
            Ref<IDispatch> sink(MakeEventSink([](DISPID, DISPPARAMS*) {}));
            DWORD cookie = 0;
            if (point->Advise(sink.get(), &cookie) != S_OK) failed = true;
            if (point->Unadvise(cookie) != S_OK) failed = true;
            if (point->Snapshot() == nullptr) failed = true;  // the steady sink is always there
        }
    };
    std::thread first(churn);
    std::thread second(churn);
    firing.join();
    first.join();
    second.join();
    EXPECT_FALSE(failed);
    EXPECT_EQ(steadyCalls.load(), kFires) << "the sink advised throughout hears every event";
    // A sink that unadvises itself during the event is released once no firing is in progress.
    DWORD selfCookie = 0;
    bool selfHeard = false;
    Ref<IDispatch> leaving(MakeEventSink([&](DISPID, DISPPARAMS*) {
        selfHeard = true;
        EXPECT_EQ(point->Unadvise(selfCookie), S_OK);
    }));
    ASSERT_EQ(point->Advise(leaving.get(), &selfCookie), S_OK);
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    point->Fire(7456, none);
    EXPECT_TRUE(selfHeard);
    selfHeard = false;
    point->Fire(7456, none);
    EXPECT_FALSE(selfHeard);
    ASSERT_EQ(point->Unadvise(steadyCookie), S_OK);
    EXPECT_FALSE(point->HasConnections());
}

}  // namespace
}  // namespace tessaly::test
