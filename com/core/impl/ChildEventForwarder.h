// How a container passes on the Change events of the objects it holds: each child's Change
// is re-raised on the container as Change(luxState_SubObjectEvent, info, areas), where
// `info` is an ILuxEventInfo (LuxEventInfo) that copies the child's event ID, its arguments
// (StateID, Value, FunctionalArea), the child and the child's index in the container at
// the moment of the event, and `areas` are the child's. While the container's delivery is
// suspended the event merges as any other change (two of them collapse to -1).
//
// Usage: the container is a ChildEventListener (every ccStdPersistAndChangeImpl is; a
// container whose children have indices overrides ChildIndex) and holds one forwarder.
// With its own lock held it links each object it takes in and unlinks each it lets go:
//
//     ChildEventForwarder children_{*this};
//     ... children_.Link(item);     // an object entered the container
//     ... children_.Unlink(item);   // an object left it: no event of it is passed on after
//     ... children_.UnlinkAll();
//
// Link and Unlink run under the container's lock (which guards the list of links); the
// forwarder's destructor unlinks every child.
//
// Ownership: the container holds its children; a child holds, through its connection
// point, only a small link sink, which reaches the container through a shared relay (a weak
// back-reference), never through a reference on the container. No cycle keeps either alive.
// A forwarded event takes a reference on the container for its duration (TryAddRef), so a
// container released on another thread, or by a sink during the event, is destroyed only
// after the event has been passed on; one whose count has reached zero passes nothing on.
//
// Cycles (a container holding itself, or an ancestor): an event is passed on once by each
// container it reaches on the way up, never around the cycle again.
//
// An object held twice (in two entries) is linked once and unlinked when its last entry
// goes; its events are passed on once, with the index of its first entry.
//
// Cost: a container that nobody listens to only notes its children (one hash entry each).
// The first sink advised on one of the container's outgoing interfaces, or the first
// suspension of its delivery, starts the forwarding: from then on each child noted or
// linked has one link sink advised on its outgoing interface that carries Change, and the
// forwarding stays on for the container's life. A container that is itself a child starts
// when its own container does (its container's link sink is its first sink), so a loaded
// graph of ten thousand collections costs no advising until someone listens at its top.
// A child's event that nobody would see (no sink on the container and delivery not
// suspended) builds no event info. A child's change does not mark its container changed:
// HasChanged reflects the object's own state, not its sub-objects'.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "platform/ComPtr.h"
#include "platform/StandardInterfaces.h"

namespace tessaly::core {

// The container's side, as the forwarder sees it.
class ChildEventForwarder;

class ChildEventListener {
public:
    // A reference on the container, unless it is being destroyed. Not virtual: a child
    // fires on its own thread while the container's destructor may be rewriting its vtable
    // pointers on another, so this first call reaches the count through a plain function.
    bool TryAddRefListener() noexcept { return tryAddRef_(this); }
    // The other members are called only while the forwarder holds that reference.
    virtual void ReleaseListener() noexcept = 0;
    // Whether a re-raised event would be seen (a sink, or suspended delivery).
    virtual bool ListensToChildren() noexcept = 0;
    // The child's index in the container (`child` is its IUnknown); luxNoIndex (-1) when
    // it is not an indexed item.
    virtual int32_t ChildIndex(IUnknown* child) noexcept = 0;
    // Re-raises: Change(luxState_SubObjectEvent, info, areas). `info` is empty when nobody
    // listens.
    virtual void RaiseChildChange(const VARIANT& info, int32_t areas) noexcept = 0;

    // The forwarder that passes on this container's children's events (registered by the
    // forwarder's constructor), or null.
    ChildEventForwarder* Forwarder() const noexcept { return forwarder_; }

protected:
    using TryAddRefFunction = bool (*)(ChildEventListener*) noexcept;
    explicit ChildEventListener(TryAddRefFunction tryAddRef) noexcept : tryAddRef_(tryAddRef) {}
    ~ChildEventListener() = default;

private:
    friend class ChildEventForwarder;
    const TryAddRefFunction tryAddRef_;
    ChildEventForwarder* forwarder_ = nullptr;
};

class ChildEventForwarder {
public:
    explicit ChildEventForwarder(ChildEventListener& listener) noexcept;
    ~ChildEventForwarder();
    ChildEventForwarder(const ChildEventForwarder&) = delete;
    ChildEventForwarder& operator=(const ChildEventForwarder&) = delete;

    // Starts passing on the events of `child` (any interface of it; null and objects that
    // fire no Change are ignored), at once when forwarding has started, else when it starts.
    // False only when out of memory: the child's events are then not passed on.
    bool Link(IUnknown* child) noexcept;
    // Stops passing them on once the last entry holding `child` has let it go.
    void Unlink(IUnknown* child) noexcept;
    void UnlinkAll() noexcept;

    // Starts forwarding: advises a link sink on every child noted so far. Called with the
    // container's lock held, when someone first listens to the container; later calls do
    // nothing.
    void Start() noexcept;
    bool Started() const noexcept { return started_.load(std::memory_order_acquire); }

    // How many distinct children are noted now, and how many have a link sink advised.
    size_t LinkedCount() const noexcept { return links_.size(); }
    size_t AdvisedCount() const noexcept;

    struct Relay;
    class LinkSink;

private:
    // A child noted by its identity. Before forwarding starts the container's own
    // references keep it alive; once advised, `point` counts one more.
    struct ChildLink {
        ComPtr<IConnectionPoint> point;  // null until advised (or when it fires no Change)
        ComPtr<LinkSink> sink;
        DWORD cookie = 0;
        uint32_t holds = 1;
    };
    // Advises the link sink on `child`; false only when out of memory.
    bool Advise(IUnknown* child, ChildLink& link) noexcept;
    static void Cut(ChildLink& link) noexcept;

    ChildEventListener& listener_;
    std::shared_ptr<Relay> relay_;  // made by the first link: a container of plain values pays nothing
    // By the child's identity: a container of many objects links and unlinks each in
    // constant time.
    std::unordered_map<IUnknown*, ChildLink> links_;
    std::atomic<bool> started_{false};
};

}  // namespace tessaly::core
