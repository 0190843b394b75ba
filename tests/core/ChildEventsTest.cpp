// Containers pass on the Change of the objects they hold as Change(-2, info, areas): the
// event info's contents, forwarding up a chain of collections, what stops it (removal,
// replacement, clearing, release of the container), an object held twice, a container that
// holds itself, and merging while the container is suspended.
#include <span>
#include <vector>

#include "CollectionFixture.h"

namespace tessaly::test {
namespace {

// One Change as a sink received it; the value is kept (an event info stays alive).
struct ReceivedChange {
    int32_t stateId;
    Variant value;
    int32_t areas;
};

// A sink of the collection events that keeps every Change and ignores the rest.
class ChangeLog {
public:
    explicit ChangeLog(IUnknown* object) {
        sink_ = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [this](std::span<const VARIANT> args) {
                Variant value;
                EXPECT_EQ(VariantCopy(value.ptr(), &args[1]), S_OK);
                changes_.push_back({args[0].lVal, std::move(value), args[2].lVal});
            },
            DIID_ILuxCollectionEvents));
        EXPECT_EQ(Advise(object, DIID_ILuxCollectionEvents, sink_.get(), &cookie_), S_OK);
    }
    std::vector<ReceivedChange> Take() { return std::exchange(changes_, {}); }

private:
    ComPtr<IDispatch> sink_;
    DWORD cookie_ = 0;
    std::vector<ReceivedChange> changes_;
};

// What an event info says, read through its interface.
struct InfoContents {
    LONG eventId = 0;
    LONG argumentCount = 0;
    int32_t childStateId = 0;
    Variant childValue;
    int32_t childAreas = 0;
    ComPtr<IDispatch> source;
    LONG sourceIndex = 0;
};

InfoContents Read(const Variant& value) {
    InfoContents contents;
    EXPECT_EQ(value.vt(), VT_DISPATCH);
    if (value.vt() != VT_DISPATCH) return contents;
    ComPtr<ILuxEventInfo> info;
    EXPECT_EQ(value.get().pdispVal->QueryInterface(IID_ILuxEventInfo, info.OutVoid()), S_OK);
    EXPECT_EQ(info->get_EventID(&contents.eventId), S_OK);
    EXPECT_EQ(info->get_ArgumentCount(&contents.argumentCount), S_OK);
    Variant argument;
    EXPECT_EQ(info->get_Arguments(0, argument.ptr()), S_OK);
    contents.childStateId = argument.get().lVal;
    EXPECT_EQ(info->get_Arguments(1, contents.childValue.ptr()), S_OK);
    EXPECT_EQ(info->get_Arguments(2, argument.ptr()), S_OK);
    contents.childAreas = argument.get().lVal;
    EXPECT_EQ(info->get_Arguments(3, argument.ptr()), DISP_E_BADINDEX);
    EXPECT_EQ(info->get_Source(contents.source.Out()), S_OK);
    EXPECT_EQ(info->get_SourceIndex(&contents.sourceIndex), S_OK);
    return contents;
}

HRESULT SetTag(IUnknown* object, int value) {
    ComPtr<ILuxObject> base;
    EXPECT_EQ(object->QueryInterface(IID_ILuxObject, base.OutVoid()), S_OK);
    return base->put_Tag(Variant(value).get());
}

IUnknown* Identity(IUnknown* object) {
    ComPtr<IUnknown> identity;
    object->QueryInterface(IUnknown::iid, identity.OutVoid());
    return identity.get();  // the object stays alive through the caller's reference
}

Variant Held(IUnknown* object) {
    ComPtr<IDispatch> dispatch;
    EXPECT_EQ(object->QueryInterface(IDispatch::iid, dispatch.OutVoid()), S_OK);
    return Variant(dispatch.get());
}

// How many sinks are advised on the object's collection events.
size_t SinkCount(IUnknown* object) {
    ComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(object->QueryInterface(IConnectionPointContainer::iid, container.OutVoid()), S_OK);
    ComPtr<IConnectionPoint> point;
    EXPECT_EQ(container->FindConnectionPoint(DIID_ILuxCollectionEvents, point.Out()), S_OK);
    ComPtr<IEnumConnections> connections;
    EXPECT_EQ(point->EnumConnections(connections.Out()), S_OK);
    size_t count = 0;
    CONNECTDATA data{};
    while (connections->Next(1, &data, nullptr) == S_OK) {
        data.pUnk->Release();
        ++count;
    }
    return count;
}

class ChildEventsTest : public CollectionFixture {};

TEST_F(ChildEventsTest, ItemChangesReachTheContainerUpAChain) {
    auto outer = NewCollection();
    auto middle = NewCollection();
    auto inner = NewCollection();
    ASSERT_EQ(Add(outer.get(), Variant(1)), S_OK);
    ASSERT_EQ(Add(outer.get(), Held(middle.get()), "middle"), S_OK);
    ASSERT_EQ(Add(middle.get(), Held(inner.get())), S_OK);
    ChangeLog outerLog(outer.get());
    ChangeLog middleLog(middle.get());

    ASSERT_EQ(SetTag(inner.get(), 5), S_OK);
    auto middleChanges = middleLog.Take();
    ASSERT_EQ(middleChanges.size(), 1u);
    EXPECT_EQ(middleChanges[0].stateId, luxState_SubObjectEvent);
    EXPECT_EQ(middleChanges[0].areas, luxFA_Misc);
    InfoContents first = Read(middleChanges[0].value);
    EXPECT_EQ(first.eventId, luxChange_Change);
    EXPECT_EQ(first.argumentCount, 3);
    EXPECT_EQ(first.childStateId, luxObject_Tag);
    EXPECT_EQ(first.childValue.vt(), VT_EMPTY);
    EXPECT_EQ(first.childAreas, luxFA_Misc);
    EXPECT_EQ(Identity(first.source.get()), Identity(inner.get()));
    EXPECT_EQ(first.sourceIndex, 0);

    auto outerChanges = outerLog.Take();
    ASSERT_EQ(outerChanges.size(), 1u);
    EXPECT_EQ(outerChanges[0].stateId, luxState_SubObjectEvent);
    EXPECT_EQ(outerChanges[0].areas, luxFA_Misc);
    InfoContents second = Read(outerChanges[0].value);
    EXPECT_EQ(second.childStateId, luxState_SubObjectEvent);
    EXPECT_EQ(Identity(second.source.get()), Identity(middle.get()));
    EXPECT_EQ(second.sourceIndex, 1);
    // The middle's info travels inside: the chain can be followed down to the object that changed.
    InfoContents nested = Read(second.childValue);
    EXPECT_EQ(nested.childStateId, luxObject_Tag);
    EXPECT_EQ(Identity(nested.source.get()), Identity(inner.get()));

    // Only Change is passed on: the inner collection's own events (ItemAdded ...) are not.
    ASSERT_EQ(Add(inner.get(), Variant(9)), S_OK);
    outerChanges = outerLog.Take();
    ASSERT_EQ(outerChanges.size(), 1u);
    EXPECT_EQ(Read(Read(outerChanges[0].value).childValue).childStateId, luxState_MoreThanOneStateIDChanged);
    middleLog.Take();

    // The index is the one at the moment of the event.
    ASSERT_EQ(outer->Move(1, 0), S_OK);
    outerLog.Take();
    ASSERT_EQ(SetTag(middle.get(), 1), S_OK);
    outerChanges = outerLog.Take();
    ASSERT_EQ(outerChanges.size(), 1u);
    EXPECT_EQ(Read(outerChanges[0].value).sourceIndex, 0);

    // HasChanged is the container's own state: an item's change is announced, not stored.
    ComPtr<ILuxPersistArchive> persist = outer.As<ILuxPersistArchive>();
    ASSERT_EQ(persist->put_HasChanged(VARIANT_FALSE), S_OK);
    ASSERT_EQ(SetTag(inner.get(), 6), S_OK);
    EXPECT_EQ(outerLog.Take().size(), 1u);
    VARIANT_BOOL changed = VARIANT_TRUE;
    ASSERT_EQ(persist->get_HasChanged(&changed), S_OK);
    EXPECT_EQ(changed, VARIANT_FALSE);
}

TEST_F(ChildEventsTest, ChildrenThatLeaveStopForwardingAtOnce) {
    auto outer = NewCollection();
    auto first = NewCollection();
    auto second = NewCollection();
    ASSERT_EQ(Add(outer.get(), Held(first.get()), "k"), S_OK);
    ChangeLog log(outer.get());

    // Replaced: the old item falls silent, the new one speaks.
    ASSERT_EQ(outer->put_Item(Variant("k").get(), Held(second.get()).get()), S_OK);
    log.Take();
    ASSERT_EQ(SetTag(first.get(), 1), S_OK);
    EXPECT_TRUE(log.Take().empty());
    ASSERT_EQ(SetTag(second.get(), 1), S_OK);
    EXPECT_EQ(log.Take().size(), 1u);

    // Removed.
    ASSERT_EQ(outer->Remove(Variant("k").get()), S_OK);
    log.Take();
    ASSERT_EQ(SetTag(second.get(), 2), S_OK);
    EXPECT_TRUE(log.Take().empty());

    // Cleared.
    ASSERT_EQ(Add(outer.get(), Held(first.get())), S_OK);
    ASSERT_EQ(Add(outer.get(), Held(second.get())), S_OK);
    ASSERT_EQ(outer->Clear(), S_OK);
    log.Take();
    ASSERT_EQ(SetTag(first.get(), 3), S_OK);
    ASSERT_EQ(SetTag(second.get(), 3), S_OK);
    EXPECT_TRUE(log.Take().empty());

    // A refused addition links nothing.
    ASSERT_EQ(Add(outer.get(), Variant(0), "taken"), S_OK);
    EXPECT_EQ(Add(outer.get(), Held(first.get()), "taken"), e_LuxCollection_DuplicateKey);
    log.Take();
    ASSERT_EQ(SetTag(first.get(), 4), S_OK);
    EXPECT_TRUE(log.Take().empty());

    // A clone listens to its own (cloned) items, not to the original's.
    ASSERT_EQ(Add(outer.get(), Held(first.get())), S_OK);
    log.Take();
    ComPtr<IDispatch> copyDispatch;
    ASSERT_EQ(outer.As<ILuxObject>()->Clone(copyDispatch.Out()), S_OK);
    ChangeLog copyLog(copyDispatch.get());
    ASSERT_EQ(SetTag(first.get(), 5), S_OK);
    EXPECT_TRUE(copyLog.Take().empty());
    EXPECT_EQ(log.Take().size(), 1u);
    Variant clonedItem;
    ASSERT_EQ(copyDispatch.As<ILuxCollection>()->get_Item(Variant(1).get(), clonedItem.ptr()), S_OK);
    ASSERT_EQ(SetTag(clonedItem.get().pdispVal, 6), S_OK);
    EXPECT_EQ(copyLog.Take().size(), 1u);
    EXPECT_TRUE(log.Take().empty());
}

TEST_F(ChildEventsTest, TheChildHoldsNoReferenceOnItsContainer) {
    auto child = NewCollection();
    const LONG before = Module::LiveObjectCount();
    {
        auto container = NewCollection();
        ASSERT_EQ(Add(container.get(), Held(child.get())), S_OK);
        ChangeLog log(container.get());
        ASSERT_EQ(SetTag(child.get(), 1), S_OK);
        EXPECT_EQ(log.Take().size(), 1u);
    }
    // The container died with its last client reference, and its link with it.
    EXPECT_EQ(Module::LiveObjectCount(), before);
    ComPtr<IConnectionPointContainer> points = child.As<IConnectionPointContainer>();
    ComPtr<IConnectionPoint> point;
    ASSERT_EQ(points->FindConnectionPoint(DIID_ILuxCollectionEvents, point.Out()), S_OK);
    ComPtr<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(connections.Out()), S_OK);
    CONNECTDATA data{};
    EXPECT_EQ(connections->Next(1, &data, nullptr), S_FALSE);
    EXPECT_EQ(SetTag(child.get(), 2), S_OK);
}

TEST_F(ChildEventsTest, AnObjectHeldTwiceIsPassedOnOnceUntilItsLastEntryGoes) {
    auto outer = NewCollection();
    auto child = NewCollection();
    ASSERT_EQ(Add(outer.get(), Variant("x")), S_OK);
    ASSERT_EQ(Add(outer.get(), Held(child.get())), S_OK);
    ASSERT_EQ(Add(outer.get(), Held(child.get())), S_OK);
    ChangeLog log(outer.get());
    ASSERT_EQ(SetTag(child.get(), 1), S_OK);
    auto changes = log.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(Read(changes[0].value).sourceIndex, 1);  // the first entry holding it

    ASSERT_EQ(outer->Remove(Variant(1).get()), S_OK);
    log.Take();
    ASSERT_EQ(SetTag(child.get(), 2), S_OK);
    changes = log.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(Read(changes[0].value).sourceIndex, 1);

    ASSERT_EQ(outer->Remove(Variant(1).get()), S_OK);
    log.Take();
    ASSERT_EQ(SetTag(child.get(), 3), S_OK);
    EXPECT_TRUE(log.Take().empty());
}

TEST_F(ChildEventsTest, AContainerThatHoldsItselfPassesAnEventOnOnce) {
    auto collection = NewCollection();
    ASSERT_EQ(Add(collection.get(), Held(collection.get()), "self"), S_OK);
    ChangeLog log(collection.get());
    ASSERT_EQ(SetTag(collection.get(), 1), S_OK);
    auto changes = log.Take();
    // Its own and the same passed on once; the link to itself is advised when the log (the
    // first listener) is, after it.
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].stateId, luxObject_Tag);
    EXPECT_EQ(changes[1].stateId, luxState_SubObjectEvent);
    EXPECT_EQ(Read(changes[1].value).sourceIndex, 0);
    ASSERT_EQ(collection->Remove(Variant("self").get()), S_OK);  // break the cycle
}

TEST_F(ChildEventsTest, ASuspendedContainerMergesForwardedEvents) {
    auto outer = NewCollection();
    auto child = NewCollection();
    auto other = NewCollection();
    ASSERT_EQ(Add(outer.get(), Held(child.get())), S_OK);
    ASSERT_EQ(Add(outer.get(), Held(other.get())), S_OK);
    ChangeLog log(outer.get());
    ComPtr<ILuxChangeEventConfiguration> config = outer.As<ILuxChangeEventConfiguration>();

    // One forwarded event while suspended: delivered on resume as it was.
    ASSERT_EQ(config->SuspendEventDelivery(), S_OK);
    ComPtr<ILuxChangeEventConfiguration> childConfig = other.As<ILuxChangeEventConfiguration>();
    ASSERT_EQ(childConfig->SuspendEventDelivery(), S_OK);  // the child's areas: 1 from Tag
    ASSERT_EQ(childConfig->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(SetTag(child.get(), 1), S_OK);
    EXPECT_TRUE(log.Take().empty());
    ASSERT_EQ(config->ResumeAndFireEvent(), S_OK);
    auto changes = log.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].stateId, luxState_SubObjectEvent);
    EXPECT_EQ(changes[0].areas, luxFA_Misc);
    EXPECT_EQ(Identity(Read(changes[0].value).source.get()), Identity(child.get()));

    // Two collapse to -1 with an empty value, even from the same child.
    ASSERT_EQ(config->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(SetTag(child.get(), 2), S_OK);
    ASSERT_EQ(SetTag(child.get(), 3), S_OK);
    ASSERT_EQ(config->ResumeAndFireEvent(), S_OK);
    changes = log.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(changes[0].value.vt(), VT_EMPTY);
    EXPECT_EQ(changes[0].areas, luxFA_Misc);
}

}  // namespace
}  // namespace tessaly::test

namespace tessaly::test {
namespace {

TEST_F(ChildEventsTest, ForwardingStartsWhenTheTopIsFirstListenedTo) {
    auto outer = NewCollection();
    auto middle = NewCollection();
    auto inner = NewCollection();
    ASSERT_EQ(Add(middle.get(), Held(inner.get())), S_OK);
    ASSERT_EQ(Add(outer.get(), Held(middle.get())), S_OK);
    // Nobody listens: no link sink anywhere.
    EXPECT_EQ(SinkCount(middle.get()), 0u);
    EXPECT_EQ(SinkCount(inner.get()), 0u);

    // The first listener on the top links the whole chain below it.
    ChangeLog log(outer.get());
    EXPECT_EQ(SinkCount(middle.get()), 1u);
    EXPECT_EQ(SinkCount(inner.get()), 1u);
    ASSERT_EQ(SetTag(inner.get(), 3), S_OK);
    auto changes = log.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(Read(Read(changes[0].value).childValue).childStateId, luxObject_Tag);

    // Items added later are linked at once.
    auto late = NewCollection();
    ASSERT_EQ(Add(inner.get(), Held(late.get())), S_OK);
    log.Take();
    EXPECT_EQ(SinkCount(late.get()), 1u);
    ASSERT_EQ(SetTag(late.get(), 4), S_OK);
    EXPECT_EQ(log.Take().size(), 1u);
}

TEST_F(ChildEventsTest, ASuspensionWithoutListenersStillCollectsChildChanges) {
    auto outer = NewCollection();
    auto child = NewCollection();
    ASSERT_EQ(Add(outer.get(), Held(child.get())), S_OK);
    ComPtr<ILuxChangeEventConfiguration> config = outer.As<ILuxChangeEventConfiguration>();
    ASSERT_EQ(config->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(SetTag(child.get(), 1), S_OK);
    // A listener that arrives before the resume receives the change merged meanwhile.
    ChangeLog log(outer.get());
    ASSERT_EQ(config->ResumeAndFireEvent(), S_OK);
    auto changes = log.Take();
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].stateId, luxState_SubObjectEvent);
    EXPECT_EQ(Read(changes[0].value).childStateId, luxObject_Tag);
}

}  // namespace
}  // namespace tessaly::test
