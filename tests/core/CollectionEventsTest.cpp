// The events of the collections: the pre-event (negated ID) and post-event of every
// change with their arguments, Change after them, refusals that send nothing, sinks that
// veto, that are not interested, that fail afterwards or that call back, and Change
// merging while delivery is suspended.
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "CollectionFixture.h"
#include "com/core/CLuxCollection.h"
#include "com/core/EventDeliveryService.h"

namespace tessaly::test {
namespace {

class CollectionEventsTest : public CollectionFixture {};

constexpr HRESULT kVeto = MakeHResult(0x80040777u);

TEST_F(CollectionEventsTest, EveryChangeSendsItsPairThenChange) {
    auto collection = NewCollection();
    auto sink = Listen(collection.get());
    const std::string change = " 7456(-1,,1)";

    ASSERT_EQ(Add(collection.get(), Variant("x"), "k"), S_OK);
    EXPECT_EQ(sink->Take(), "-1152(0,x) 1152(0,x)" + change);
    ASSERT_EQ(Add(collection.get(), Variant(5), "", 0), S_OK);
    EXPECT_EQ(sink->Take(), "-1152(0,5) 1152(0,5)" + change);
    ASSERT_EQ(Add(collection.get(), Variant(6)), S_OK);  // appended: the index it gets
    EXPECT_EQ(sink->Take(), "-1152(2,6) 1152(2,6)" + change);
    ASSERT_EQ(collection->put_Item(Variant("K").get(), Variant("y").get()), S_OK);
    EXPECT_EQ(sink->Take(), "-1156(1,x,y) 1156(1,x,y)" + change);
    ASSERT_EQ(collection->put_Item(Variant("new").get(), Variant(7).get()), S_OK);  // an addition
    EXPECT_EQ(sink->Take(), "-1152(3,7) 1152(3,7)" + change);
    ASSERT_EQ(collection->put_Key(0, Bstr("first").get()), S_OK);
    EXPECT_EQ(sink->Take(), "-1155(0,,first) 1155(0,,first)" + change);
    ASSERT_EQ(collection->Move(0, 2), S_OK);
    EXPECT_EQ(sink->Take(), "-1153(0,2) 1153(0,2)" + change);
    ASSERT_EQ(collection->Remove(Variant("first").get()), S_OK);
    EXPECT_EQ(sink->Take(), "-1157(2,5) 1157(2,5)" + change);
    ASSERT_EQ(collection->Clear(), S_OK);
    EXPECT_EQ(sink->Take(), "-1154() 1154()" + change);
    EXPECT_TRUE(sink->OnlyMethodCalls());

    // Changes that change nothing announce nothing.
    ASSERT_EQ(collection->Clear(), S_OK);
    EXPECT_EQ(sink->Take(), "");
    ASSERT_EQ(Add(collection.get(), Variant(1), "a"), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(2)), S_OK);
    sink->Take();
    ASSERT_EQ(collection->Move(1, 1), S_OK);
    ASSERT_EQ(collection->put_Key(0, Bstr("a").get()), S_OK);
    EXPECT_EQ(sink->Take(), "");
    ASSERT_EQ(collection->put_Key(0, Bstr("A").get()), S_OK);  // the text changes
    EXPECT_EQ(sink->Take(), "-1155(0,a,A) 1155(0,a,A)" + change);

    // A string collection sends its items as strings.
    auto strings = NewStrings();
    auto stringSink = Listen(strings.get());
    ASSERT_EQ(strings->Add(Bstr("s").get(), Bstr("").get(), luxNoIndex), S_OK);
    ASSERT_EQ(strings->put_Item(Variant(0).get(), Bstr("t").get()), S_OK);
    EXPECT_EQ(stringSink->Take(), "-1152(0,s) 1152(0,s)" + change + " -1156(0,s,t) 1156(0,s,t)" + change);
}

TEST_F(CollectionEventsTest, RefusedCallsSendNothingAndChangeNothing) {
    auto collection = NewCollection();
    ASSERT_EQ(Add(collection.get(), Variant(1), "a"), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(2), "b"), S_OK);
    auto sink = Listen(collection.get());
    const std::string before = Contents(collection.get());
    EXPECT_EQ(Add(collection.get(), Variant(3), "A"), e_LuxCollection_DuplicateKey);
    EXPECT_EQ(Add(collection.get(), Variant(3), "", 3), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->put_Item(Variant(2).get(), Variant(3).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->put_Item(Variant("").get(), Variant(3).get()), e_LuxCollection_InvalidKey);
    EXPECT_EQ(collection->put_Key(0, Bstr("B").get()), e_LuxCollection_DuplicateKey);
    EXPECT_EQ(collection->Move(0, 2), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->Remove(Variant("c").get()), e_LuxCollection_KeyNotFound);
    EXPECT_EQ(collection->Remove(Variant(-1).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(sink->Log(), "");
    EXPECT_EQ(Contents(collection.get()), before);
}

// A sink that refuses a pre-event stops the change: the call fails with the sink's code,
// the collection is as it was, no post-event and no Change follow.
TEST_F(CollectionEventsTest, AVetoedPreEventLeavesTheCollectionUnchanged) {
    auto collection = NewCollection();
    ASSERT_EQ(Add(collection.get(), Variant(1), "a"), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(2), "b"), S_OK);
    auto vetoing = Listen(collection.get(), [](DISPID id, EXCEPINFO*) { return id < 0 ? kVeto : S_OK; });
    auto later = Listen(collection.get());
    const std::string before = Contents(collection.get());

    const std::pair<const char*, std::function<HRESULT()>> calls[] = {
        {"-1152(2,3)", [&] { return Add(collection.get(), Variant(3)); }},
        {"-1156(0,1,9)", [&] { return collection->put_Item(Variant(0).get(), Variant(9).get()); }},
        {"-1152(2,9)", [&] { return collection->put_Item(Variant("z").get(), Variant(9).get()); }},
        {"-1155(1,b,c)", [&] { return collection->put_Key(1, Bstr("c").get()); }},
        {"-1153(1,0)", [&] { return collection->Move(1, 0); }},
        {"-1157(0,1)", [&] { return collection->Remove(Variant("a").get()); }},
        {"-1154()", [&] { return collection->Clear(); }},
    };
    for (const auto& [preEvent, call] : calls) {
        EXPECT_EQ(call(), kVeto) << preEvent;
        EXPECT_EQ(vetoing->Take(), preEvent);
        EXPECT_EQ(later->Take(), "") << "the refusal stops the delivery";
        EXPECT_EQ(Contents(collection.get()), before);
    }
    EXPECT_EQ(vetoing->Take(), "");
}

TEST_F(CollectionEventsTest, ASinkDescribesItsVetoAndUninterestedSinksAreSkipped) {
    auto collection = NewCollection();
    // Typical sinks know only the events they handle.
    auto narrow = Listen(collection.get(), [](DISPID id, EXCEPINFO*) {
        return id < 0 ? DISP_E_MEMBERNOTFOUND : id == luxCollection_ItemMoved ? DISP_E_UNKNOWNNAME : S_OK;
    });
    ASSERT_EQ(Add(collection.get(), Variant(1)), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(2)), S_OK);
    ASSERT_EQ(collection->Move(0, 1), S_OK);
    EXPECT_EQ(Contents(collection.get()), "=2;=1;");

    // One that raises an exception through dispatch: its scode and text reach the caller.
    auto describing = Listen(collection.get(), [](DISPID id, EXCEPINFO* info) {
        if (id != -luxCollection_ItemRemoved) return S_OK;
        info->scode = kVeto;
        info->bstrDescription = SysAllocString("the line controller still needs it");
        info->bstrSource = SysAllocString("Controller");
        return DISP_E_EXCEPTION;
    });
    EXPECT_EQ(collection->Remove(Variant(0).get()), kVeto);
    EXPECT_EQ(LastErrorText(), "the line controller still needs it");
    EXPECT_EQ(Count(collection.get()), 2);

    // A C++ callable that throws vetoes with E_FAIL.
    IDispatch* throwing = MakeEventSink([](DISPID id, DISPPARAMS*) {
        if (id == -luxCollection_Cleared) throw std::runtime_error("no");
    });
    DWORD cookie = 0;
    ASSERT_EQ(Advise(collection.get(), DIID_ILuxCollectionEvents, throwing, &cookie), S_OK);
    throwing->Release();
    EXPECT_EQ(collection->Clear(), E_FAIL);
    EXPECT_EQ(Count(collection.get()), 2);
    ASSERT_EQ(Unadvise(collection.get(), DIID_ILuxCollectionEvents, cookie), S_OK);
    EXPECT_EQ(collection->Clear(), S_OK);
    EXPECT_EQ(Count(collection.get()), 0);
}

TEST_F(CollectionEventsTest, AFailedPostEventIsReturnedAfterTheChange) {
    auto collection = NewCollection();
    ASSERT_EQ(Add(collection.get(), Variant(1), "a"), S_OK);
    auto failing = Listen(collection.get(), [](DISPID id, EXCEPINFO*) {
        return id == luxCollection_ItemRemoved ? kVeto : S_OK;
    });
    auto other = Listen(collection.get());
    EXPECT_EQ(collection->Remove(Variant("a").get()), kVeto);
    EXPECT_EQ(Count(collection.get()), 0);
    // The other sinks still hear of it, and Change follows.
    EXPECT_EQ(other->Take(), "-1157(0,1) 1157(0,1) 7456(-1,,1)");
}

TEST_F(CollectionEventsTest, SinksMayCallBackAndTheLockIsNotHeldDuringEvents) {
    auto collection = NewCollection();
    ILuxCollection* raw = collection.get();
    std::string seen;
    auto sink = Listen(collection.get(), [&](DISPID id, EXCEPINFO*) {
        if (id != -luxCollection_ItemAdded && id != luxCollection_ItemAdded) return S_OK;
        LONG count = -1;
        raw->get_Count(&count);
        // Another thread reads too: it would wait for a lock held across the event.
        auto answer = std::make_shared<std::promise<LONG>>();
        auto answered = answer->get_future();
        std::thread([answer, keep = ComPtr<ILuxCollection>(raw)]() mutable {
            LONG otherCount = -1;
            keep->get_Count(&otherCount);
            keep.Reset();
            answer->set_value(otherCount);
        }).detach();
        const bool ready = answered.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
        seen += std::to_string(id) + ":" + std::to_string(count) + "/" + (ready ? std::to_string(answered.get()) : "blocked") + " ";
        if (id > 0 && count < 3) Add(raw, Variant(count));  // a change from inside an event
        return S_OK;
    });
    ASSERT_EQ(Add(collection.get(), Variant(0)), S_OK);
    EXPECT_EQ(seen, "-1152:0/0 1152:1/1 -1152:1/1 1152:2/2 -1152:2/2 1152:3/3 ");
    EXPECT_EQ(Contents(collection.get()), "=0;=1;=2;");
}

// What a sink does during a pre-event counts: the change is validated again afterwards and
// the post-event tells where it really happened.
TEST_F(CollectionEventsTest, AChangeMadeDuringThePreEventIsSeenByTheChangeThatFollows) {
    auto collection = NewCollection();
    ILuxCollection* raw = collection.get();
    int meddle = 2;
    bool meddling = false;
    auto sink = Listen(collection.get(), [&](DISPID id, EXCEPINFO*) {
        if (id != -luxCollection_ItemAdded || meddle == 0 || meddling) return S_OK;
        meddling = true;
        --meddle;
        Add(raw, Variant("n"), meddle == 1 ? "" : "k", 0);
        meddling = false;
        return S_OK;
    });
    ASSERT_EQ(Add(collection.get(), Variant("x")), S_OK);
    EXPECT_EQ(sink->Take(), "-1152(0,x) -1152(0,n) 1152(0,n) 7456(-1,,1) 1152(1,x) 7456(-1,,1)");
    // The key was free when the pre-event went out, and taken when the change came to be made.
    EXPECT_EQ(Add(collection.get(), Variant("y"), "K"), e_LuxCollection_DuplicateKey);
    EXPECT_EQ(sink->Take(), "-1152(2,y) -1152(0,n) 1152(0,n) 7456(-1,,1)");
    EXPECT_EQ(Contents(collection.get()), "k=n;=n;=x;");
}

TEST_F(CollectionEventsTest, WithoutCollectionSinksOnlyChangeIsRaised) {
    // No sink at all: the change is still recorded for persistence.
    auto* object = core::CLuxCollection::Create();
    auto owner = ComPtr<ILuxCollection>::Attach(object);
    EXPECT_FALSE(object->HasChanged());
    ASSERT_EQ(Add(owner.get(), Variant(1)), S_OK);
    EXPECT_TRUE(object->HasChanged());
    object->SetHasChanged(false);
    EXPECT_EQ(owner->Move(0, 0), S_OK);
    EXPECT_EQ(owner->Remove(Variant(3).get()), e_LuxCollection_InvalidIndex);
    EXPECT_FALSE(object->HasChanged()) << "nothing changed";

    // A sink that handles only Change hears one Change per change.
    int changes = 0;
    IDispatch* changeOnly = MakeEventSink(luxChange_Change, [&](std::span<const VARIANT> args) {
        ASSERT_EQ(args.size(), 3u);
        EXPECT_EQ(args[0].lVal, luxState_MoreThanOneStateIDChanged);
        EXPECT_EQ(args[1].vt, VT_EMPTY);
        EXPECT_EQ(args[2].lVal, luxFA_Misc);
        ++changes;
    });
    DWORD cookie = 0;
    ASSERT_EQ(Advise(owner.get(), DIID_ILuxCollectionEvents, changeOnly, &cookie), S_OK);
    changeOnly->Release();
    ASSERT_EQ(Add(owner.get(), Variant(2)), S_OK);
    ASSERT_EQ(owner->Move(0, 1), S_OK);
    ASSERT_EQ(owner->Clear(), S_OK);
    EXPECT_EQ(changes, 3);
}

TEST_F(CollectionEventsTest, SuspendedChangesMergeIntoOneWhileTheCollectionEventsGoOn) {
    auto collection = NewCollection();
    auto sink = Listen(collection.get());
    auto configuration = collection.As<ILuxChangeEventConfiguration>();
    ASSERT_TRUE(configuration);
    ASSERT_EQ(configuration->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(configuration->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(1), "a"), S_OK);
    ASSERT_EQ(collection->put_Item(Variant("a").get(), Variant(2).get()), S_OK);
    ASSERT_EQ(collection->Remove(Variant(0).get()), S_OK);
    EXPECT_EQ(sink->Take(), "-1152(0,1) 1152(0,1) -1156(0,1,2) 1156(0,1,2) -1157(0,2) 1157(0,2)");
    ASSERT_EQ(configuration->ResumeAndFireEvent(), S_OK);
    LONG suspended = -1;
    ASSERT_EQ(configuration->get_EventDeliverySuspended(&suspended), S_OK);
    EXPECT_EQ(suspended, 1);
    EXPECT_EQ(sink->Take(), "");
    ASSERT_EQ(configuration->ResumeAndFireEvent(), S_OK);
    EXPECT_EQ(sink->Take(), "7456(-1,,1)");
}

TEST_F(CollectionEventsTest, DeliveryServiceCallsEverySinkWithTheArgumentsGiven) {
    auto first = ComPtr<TestSink>::Attach(TestSink::Create([](DISPID id, EXCEPINFO*) {
        return id == 2 || id == -3 ? kVeto : S_OK;
    }));
    auto second = ComPtr<TestSink>::Attach(TestSink::Create());
    ConnectionPoint::SinkList sinks;
    first->AddRef();
    second->AddRef();
    sinks.connections = {{1, first.get()}, {2, second.get()}};
    VARIANT args[2];
    args[0] = Variant(20).get();  // last first: (10, 20)
    args[1] = Variant(10).get();
    auto& service = core::EventDeliveryService::Instance();
    EXPECT_EQ(&service, &core::EventDeliveryService::Instance());
    EXPECT_EQ(service.Deliver(nullptr, DIID_ILuxCollectionEvents, 1, 0, nullptr), S_OK);
    EXPECT_EQ(service.Deliver(&sinks, DIID_ILuxCollectionEvents, 1, 2, args), S_OK);
    EXPECT_EQ(service.Deliver(&sinks, DIID_ILuxCollectionEvents, 2, 0, nullptr), kVeto);  // after: all called
    EXPECT_EQ(service.Deliver(&sinks, DIID_ILuxCollectionEvents, -2, 0, nullptr), S_OK);
    EXPECT_EQ(service.Deliver(&sinks, DIID_ILuxCollectionEvents, -3, 0, nullptr), kVeto);  // before: stops
    EXPECT_EQ(first->Take(), "1(10,20) 2() -2() -3()");
    EXPECT_EQ(second->Take(), "1(10,20) 2() -2()");
}

}  // namespace
}  // namespace tessaly::test
