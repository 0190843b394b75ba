// Everything the two collections share: an ordered list of entries (an optional key and an
// item), addressed by 0-based index or by key, with the collection events around every
// change. A collection class supplies only its item type through `Items`:
//
//     struct Items {
//         using Stored = ...;   // what an entry holds (Variant, Bstr); nothrow movable
//         using In = ...;       // the item parameter of Add, Item put and FindItem
//         using Out = ...;      // the item result of Item get
//         static Stored Take(const In& item);     // the value to store, references resolved
//         static Stored Clone(Stored shallow);    // the deep copy that Clone keeps
//         static VARIANT Lend(const Stored&);     // the item as a VARIANT it still owns
//         static Stored FromArchive(Variant value, const std::string& name);  // a loaded item
//         static void InitOut(Out* out);          // an out parameter made empty
//         static IUnknown* ObjectOf(const Stored&);  // the object an item holds, else null
//         class Finder;                           // Finder(const In&), bool operator()(const Stored&)
//     };
//     class CLuxThings : public ccCollectionImpl<CLuxThings, ILuxThings, ThingItems> { ... };
//
// Keys: the empty key means "no key" (any number of entries may have none); keys compare
// case-insensitively (ASCII); a non-empty key is unique. Past a handful of entries a hash
// index (KeyIndex) makes FindKey and access by key O(1) on average; it is kept in step on
// every insertion, removal, move and key change.
//
// A change runs in this order: read and copy the arguments; when sinks are connected,
// validate under the lock and send the pre-event (the negated event ID) outside it, which
// a sink may refuse; validate again under the lock (the collection may have changed in
// between on another thread) and make the change; send the post-event outside the lock;
// raise Change(-1, empty, luxFA_Misc). A refusal throws before anything changes. Items
// that are objects firing Change have their Change passed on as Change(-2, info, areas)
// (ChildEventForwarder): from the moment they enter until the moment they leave. Values
// that leave the collection are released after the lock, since releasing an object may
// run its code.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstring>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TessalyCore.h"
#include "com/core/CLuxEnumVariant.h"
#include "com/core/CollectionErrors.h"
#include "com/core/EventDeliveryService.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "com/core/impl/KeyIndex.h"
#include "persist/ccArchive.h"
#include "platform/Bstr.h"
#include "platform/Variant.h"

namespace tessaly::core {

namespace collection {

// A KeyOrIndex argument as every member reads it: copied with its reference resolved; a
// string is a key; anything else converts to a 4-byte integer (1.5 -> 2, ties to even;
// VT_EMPTY -> 0) and is an index. A value that converts to no integer (VT_NULL, an object
// without a numeric default value) and a missing argument (VT_ERROR) throw InvalidKey.
struct KeyOrIndex {
    bool isKey = false;
    Bstr key;
    int32_t index = 0;
};
KeyOrIndex ReadKeyOrIndex(const VARIANT& argument);

// The archive names of a collection's entries, "Item" or "Key" followed by the index in
// decimal, built without allocating.
class EntryName {
public:
    explicit EntryName(std::string_view prefix) noexcept : length_(prefix.size()) {
        std::memcpy(text_, prefix.data(), length_);
    }
    std::string_view For(size_t index) noexcept {
        const auto end = std::to_chars(text_ + length_, text_ + sizeof text_, index).ptr;
        return std::string_view(text_, static_cast<size_t>(end - text_));
    }

private:
    char text_[32];
    size_t length_;
};

// Items as the VARIANTs an enumerator hands out.
Variant AsVariant(const Variant& item);
Variant AsVariant(const Bstr& item);

// The arguments of one collection event, owned, appended in declared order; Deliver takes
// them last first.
class EventArgs {
public:
    EventArgs() noexcept = default;
    ~EventArgs() { Reset(); }
    EventArgs(const EventArgs&) = delete;
    EventArgs& operator=(const EventArgs&) = delete;

    void Reset() noexcept;
    void AddIndex(int32_t index) noexcept;
    void AddValue(const Variant& value);  // a copy
    void AddValue(Variant&& value) noexcept;
    void AddValue(const Bstr& text);  // as VT_BSTR, a copy
    void AddValue(Bstr&& text) noexcept;
    // Changes an index argument (position in declared order).
    void SetIndex(UINT position, int32_t index) noexcept;

    UINT Count() const noexcept { return count_; }
    VARIANT* LastFirst() noexcept;

private:
    static constexpr UINT kMax = 3;
    VARIANT& Next() noexcept;

    VARIANT values_[kMax]{};    // declared order; owned
    VARIANT reversed_[kMax]{};  // the same values lent in Invoke's order
    UINT count_ = 0;
};

}  // namespace collection

template <class Derived, class Interface, class Items>
class ccCollectionImpl : public ILuxObjectImplBase<Derived, Interface> {
    using Stored = typename Items::Stored;
    using In = typename Items::In;
    using Out = typename Items::Out;
    using KeyOrIndex = collection::KeyOrIndex;
    using EventArgs = collection::EventArgs;

public:
    // Clone: keys copied, items deep-copied (Items::Clone) outside every lock.
    void CopyFrom(const Derived& source) {
        std::vector<Entry> copied;
        {
            ObjectLock::Guard guard(source.Lock());
            copied = static_cast<const ccCollectionImpl&>(source).entries_;
        }
        for (Entry& entry : copied) entry.item = Items::Clone(std::move(entry.item));
        collection::KeyIndex keys;
        keys.Build(copied);  // the source's keys are unique
        ObjectLock::Guard guard(this->Lock());
        std::swap(entries_, copied);
        keys_.swap(keys);
        LinkAllLocked();
    }

    // Persistence: entry i as the value "Item<i>" and, when it has a key, the string
    // "Key<i>" (i in decimal from 0). Loading reads Item0, Item1, ... up to the first
    // index with no value; the collection announces the load as one Change, without
    // collection events.
    void PersistState(ArchiveAccess& archive) {
        collection::EntryName item("Item");
        collection::EntryName key("Key");
        if (archive.Saving()) {
            for (size_t i = 0; i < entries_.size(); ++i) {
                archive.Write(item.For(i), Items::Lend(entries_[i].item));
                if (!entries_[i].key.empty()) {
                    VARIANT text{};
                    text.vt = VT_BSTR;
                    text.bstrVal = entries_[i].key.get();  // lent
                    archive.Write(key.For(i), text);
                }
            }
            return;
        }
        // Entries and their key index are built aside and swapped in by the commit.
        std::vector<Entry> loaded;
        for (size_t i = 0;; ++i) {
            Variant value;
            if (!archive.Read(item.For(i), value)) break;
            // Items and keys read so far bound the items; an archive that reads as it is
            // asked may have read only this one, and a handful is the common size.
            if (i == 0) loaded.reserve(std::max<size_t>(archive.StoredCountSoFar(), 8));
            Entry entry{Bstr(), Items::FromArchive(std::move(value), std::string(item.For(i)))};
            Variant text;
            if (archive.Read(key.For(i), text)) {
                if (FAILED(text.ChangeType(VT_BSTR)))
                    throw ccArchive::BadType("the key of item " + std::to_string(i) + " is not a string",
                                             ids_Lux_ReadInvalidProperty_1, {std::string(key.For(i))});
                entry.key = Bstr::Attach(text.Detach().bstrVal);
            }
            loaded.push_back(std::move(entry));
        }
        collection::KeyIndex keys;
        const int32_t repeated = keys.Build(loaded);
        if (repeated >= 0)
            throw ccArchive::BadContent("the key " + CollectionErrors::Quote(loaded[repeated].key.view()) +
                                        " is stored for two items");
        archive.OnCommit([this, loaded = std::move(loaded), keys = std::move(keys)]() mutable noexcept {
            std::swap(entries_, loaded);
            keys_.swap(keys);
            LinkAllLocked();
        });
    }

    // A load's reset: no entries (called with the lock held).
    void ResetState() noexcept {
        children_.UnlinkAll();
        entries_.clear();
        keys_.Clear();
    }

    // The index of the first entry holding `child` (its IUnknown), for the event info of a
    // forwarded event; luxNoIndex when none does.
    int32_t ChildIndex(IUnknown* child) noexcept override {
        ObjectLock::Guard guard(this->Lock());
        for (size_t i = 0; i < entries_.size(); ++i)
            if (Items::ObjectOf(entries_[i].item) == child) return static_cast<int32_t>(i);
        // Stored through another of its interfaces.
        for (size_t i = 0; i < entries_.size(); ++i) {
            IUnknown* object = Items::ObjectOf(entries_[i].item);
            if (!object) continue;
            ComPtr<IUnknown> identity;
            if (SUCCEEDED(object->QueryInterface(IUnknown::iid, identity.OutVoid())) && identity.get() == child)
                return static_cast<int32_t>(i);
        }
        return luxNoIndex;
    }

    HRESULT get__NewEnum(IUnknown** Enumerator) override {
        return Guarded("get__NewEnum", Interface::iid, [&] {
            RequireOut(Enumerator);
            *Enumerator = nullptr;
            CLuxEnumVariant::Items snapshot;
            {
                ObjectLock::Guard guard(this->Lock());
                snapshot.reserve(entries_.size());
                for (const Entry& entry : entries_) snapshot.push_back(collection::AsVariant(entry.item));
            }
            IEnumVARIANT* enumerator = CLuxEnumVariant::New(std::move(snapshot));
            if (!enumerator) throw std::bad_alloc();
            *Enumerator = enumerator;
            return S_OK;
        });
    }

    HRESULT get_Count(LONG* Count) override {
        return Guarded("get_Count", Interface::iid, [&] {
            RequireOut(Count);
            ObjectLock::Guard guard(this->Lock());
            *Count = CountLocked();
            return S_OK;
        });
    }

    HRESULT get_Item(VARIANT KeyOrIndex, Out* Item) override {
        return Guarded("get_Item", Interface::iid, [&] {
            RequireOut(Item);
            Items::InitOut(Item);
            const auto wanted = collection::ReadKeyOrIndex(KeyOrIndex);
            Stored copy;
            {
                ObjectLock::Guard guard(this->Lock());
                copy = entries_[LocateLocked(wanted, Missing::InvalidKey)].item;
            }
            *Item = copy.Detach();
            return S_OK;
        });
    }

    HRESULT put_Item(VARIANT KeyOrIndex, In Item) override { return PutItem("put_Item", KeyOrIndex, Item); }

    HRESULT FindItem(In Item, LONG* Index) override {
        return Guarded("FindItem", Interface::iid, [&] {
            RequireOut(Index);
            *Index = luxNoIndex;
            const typename Items::Finder matches(Item);
            ObjectLock::Guard guard(this->Lock());
            for (size_t i = 0; i < entries_.size(); ++i) {
                if (matches(entries_[i].item)) {
                    *Index = static_cast<LONG>(i);
                    break;
                }
            }
            return S_OK;
        });
    }

    HRESULT get_Key(LONG Index, BSTR* Key) override {
        return Guarded("get_Key", Interface::iid, [&] {
            RequireOut(Key);
            *Key = nullptr;
            Bstr copy;
            {
                ObjectLock::Guard guard(this->Lock());
                CheckIndexLocked(Index);
                copy = entries_[Index].key;
            }
            *Key = copy.Detach();
            return S_OK;
        });
    }

    HRESULT put_Key(LONG Index, BSTR Key) override {
        return Guarded("put_Key", Interface::iid, [&]() -> HRESULT {
            Bstr key(BstrView(Key));
            const Listeners listeners = ListenersNow();
            EventArgs args;
            if (listeners.Active()) {
                {
                    ObjectLock::Guard guard(this->Lock());
                    if (!CheckKeyChangeLocked(Index, key.view())) return S_OK;
                    args.AddIndex(Index);
                    args.AddValue(entries_[Index].key);
                    args.AddValue(key);
                }
                const HRESULT refused = listeners.Fire(-luxCollection_KeyChanged, args);
                if (FAILED(refused)) return refused;
            }
            {
                ObjectLock::Guard guard(this->Lock());
                if (!CheckKeyChangeLocked(Index, key.view())) return S_OK;
                if (listeners.Active()) {
                    args.Reset();
                    args.AddIndex(Index);
                    args.AddValue(entries_[Index].key);
                    args.AddValue(key);
                }
                ChangeKeyLocked(Index, std::move(key));
            }
            return Changed(listeners, luxCollection_KeyChanged, args);
        });
    }

    HRESULT FindKey(BSTR Key, LONG* Index) override {
        return Guarded("FindKey", Interface::iid, [&] {
            RequireOut(Index);
            ObjectLock::Guard guard(this->Lock());
            *Index = FindKeyLocked(BstrView(Key));
            return S_OK;
        });
    }

    HRESULT Remove(VARIANT KeyOrIndex) override {
        return Guarded("Remove", Interface::iid, [&]() -> HRESULT {
            const auto wanted = collection::ReadKeyOrIndex(KeyOrIndex);
            const Listeners listeners = ListenersNow();
            EventArgs args;
            if (listeners.Active()) {
                {
                    ObjectLock::Guard guard(this->Lock());
                    const int32_t at = LocateLocked(wanted, Missing::KeyNotFound);
                    args.AddIndex(at);
                    args.AddValue(entries_[at].item);
                }
                const HRESULT refused = listeners.Fire(-luxCollection_ItemRemoved, args);
                if (FAILED(refused)) return refused;
            }
            int32_t at;
            Entry removed;
            {
                ObjectLock::Guard guard(this->Lock());
                at = LocateLocked(wanted, Missing::KeyNotFound);
                removed = RemoveLocked(at);
            }
            if (listeners.Active()) {
                args.Reset();
                args.AddIndex(at);
                args.AddValue(std::move(removed.item));
            }
            return Changed(listeners, luxCollection_ItemRemoved, args);
        });
    }

    HRESULT Move(LONG FromIndex, LONG ToIndex) override {
        return Guarded("Move", Interface::iid, [&]() -> HRESULT {
            const Listeners listeners = ListenersNow();
            EventArgs args;
            {
                ObjectLock::Guard guard(this->Lock());
                CheckIndexLocked(FromIndex);
                CheckIndexLocked(ToIndex);
            }
            if (FromIndex == ToIndex) return S_OK;
            if (listeners.Active()) {
                args.AddIndex(FromIndex);
                args.AddIndex(ToIndex);
                const HRESULT refused = listeners.Fire(-luxCollection_ItemMoved, args);
                if (FAILED(refused)) return refused;
            }
            {
                ObjectLock::Guard guard(this->Lock());
                CheckIndexLocked(FromIndex);
                CheckIndexLocked(ToIndex);
                MoveLocked(FromIndex, ToIndex);
            }
            return Changed(listeners, luxCollection_ItemMoved, args);
        });
    }

    HRESULT Clear() override {
        return Guarded("Clear", Interface::iid, [&]() -> HRESULT {
            const Listeners listeners = ListenersNow();
            EventArgs args;
            {
                ObjectLock::Guard guard(this->Lock());
                if (entries_.empty()) return S_OK;
            }
            if (listeners.Active()) {
                const HRESULT refused = listeners.Fire(-luxCollection_Cleared, args);
                if (FAILED(refused)) return refused;
            }
            // Released after the lock.
            std::vector<Entry> removed;
            collection::KeyIndex keys;
            {
                ObjectLock::Guard guard(this->Lock());
                if (entries_.empty()) return S_OK;  // emptied meanwhile: nothing left to announce
                keys.swap(keys_);
                std::swap(removed, entries_);
                children_.UnlinkAll();
            }
            return Changed(listeners, luxCollection_Cleared, args);
        });
    }

    HRESULT Add(In Item, BSTR Key, LONG Index) override {
        return Guarded("Add", Interface::iid, [&] {
            return Insert(ListenersNow(), Bstr(BstrView(Key)), Items::Take(Item), Index);
        });
    }

protected:
    ccCollectionImpl() = default;
    ~ccCollectionImpl() override = default;

    // Item put and putref: an index replaces the item there; a key that an entry has
    // replaces that entry's item; a key no entry has appends the value under it, announced
    // as an addition.
    HRESULT PutItem(const char* method, const VARIANT& keyOrIndex, const In& item) {
        return Guarded(method, Interface::iid, [&]() -> HRESULT {
            auto wanted = collection::ReadKeyOrIndex(keyOrIndex);
            if (wanted.isKey && wanted.key.empty())
                throw CollectionErrors::InvalidKey("the empty key names no item and cannot be given to a new one");
            Stored value = Items::Take(item);
            const Listeners listeners = ListenersNow();
            EventArgs args;
            for (;;) {
                int32_t planned = luxNoIndex;  // luxNoIndex: an addition under the key
                if (listeners.Active()) {
                    {
                        ObjectLock::Guard guard(this->Lock());
                        planned = PlaceReplacementLocked(wanted);
                        args.Reset();
                        if (planned == luxNoIndex) {
                            args.AddIndex(CountLocked());
                            args.AddValue(value);
                        } else {
                            args.AddIndex(planned);
                            args.AddValue(entries_[planned].item);
                            args.AddValue(value);
                        }
                    }
                    const HRESULT refused = listeners.Fire(
                        planned == luxNoIndex ? -luxCollection_ItemAdded : -luxCollection_ItemReplaced, args);
                    if (FAILED(refused)) return refused;
                }
                int32_t at;
                bool added;
                {
                    ObjectLock::Guard guard(this->Lock());
                    at = PlaceReplacementLocked(wanted);
                    // The key appeared or vanished since the pre-event: announce what will
                    // really happen.
                    if (listeners.Active() && (at == luxNoIndex) != (planned == luxNoIndex)) continue;
                    added = at == luxNoIndex;
                    if (added) {
                        at = CountLocked();
                        InsertLocked(at, std::move(wanted.key), std::move(value));
                    } else {
                        if (listeners.Active()) {
                            args.Reset();
                            args.AddIndex(at);
                            args.AddValue(entries_[at].item);
                            args.AddValue(value);
                        }
                        std::swap(entries_[at].item, value);  // `value` now holds the old item
                        children_.Link(Items::ObjectOf(entries_[at].item));
                        children_.Unlink(Items::ObjectOf(value));
                    }
                }
                if (added) {
                    if (listeners.Active()) args.SetIndex(0, at);
                    return Changed(listeners, luxCollection_ItemAdded, args);
                }
                return Changed(listeners, luxCollection_ItemReplaced, args);
            }
        });
    }

private:
    struct Entry {
        Bstr key;
        Stored item;
    };
    enum class Missing { InvalidKey, KeyNotFound };

    // The sinks of the collection events at the start of a call: the pre- and post-event of
    // one change go to the same sinks.
    struct Listeners {
        std::shared_ptr<const ConnectionPoint::SinkList> sinks;
        bool Active() const noexcept { return sinks && !sinks->connections.empty(); }
        HRESULT Fire(DISPID event, EventArgs& args) const noexcept {
            return EventDeliveryService::Instance().Deliver(sinks.get(), DIID_ILuxCollectionEvents, event,
                                                             args.Count(), args.LastFirst());
        }
    };
    Listeners ListenersNow() const noexcept {
        if (!this->HasEventSinks()) return {};
        return {this->EventSinks(DIID_ILuxCollectionEvents)};
    }

    // After a change: the post-event, then Change. A failed post-event is the call's result.
    HRESULT Changed(const Listeners& listeners, DISPID event, EventArgs& args) {
        const HRESULT posted = listeners.Active() ? listeners.Fire(event, args) : S_OK;
        const HRESULT raised = this->RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
        return FAILED(posted) ? posted : raised;
    }
    // Adds an entry (Add, and Item put by an unknown key).
    HRESULT Insert(const Listeners& listeners, Bstr key, Stored item, int32_t requested) {
        EventArgs args;
        if (listeners.Active()) {
            {
                ObjectLock::Guard guard(this->Lock());
                args.AddIndex(PlaceInsertionLocked(key.view(), requested));
            }
            args.AddValue(item);
            const HRESULT refused = listeners.Fire(-luxCollection_ItemAdded, args);
            if (FAILED(refused)) return refused;
        }
        int32_t at;
        {
            ObjectLock::Guard guard(this->Lock());
            at = PlaceInsertionLocked(key.view(), requested);
            InsertLocked(at, std::move(key), std::move(item));
        }
        if (listeners.Active()) args.SetIndex(0, at);
        return Changed(listeners, luxCollection_ItemAdded, args);
    }

    // --- the entries and the key index; every function below runs under the lock ---

    int32_t CountLocked() const noexcept { return static_cast<int32_t>(entries_.size()); }

    int32_t FindKeyLocked(std::string_view key) const noexcept { return keys_.Find(key, entries_); }

    void CheckIndexLocked(int32_t index) const {
        if (index < 0 || index >= CountLocked()) CollectionErrors::ThrowInvalidIndex(index, CountLocked());
    }

    // The entry a KeyOrIndex names; a key no entry has is refused as `missing` says.
    int32_t LocateLocked(const KeyOrIndex& wanted, Missing missing) const {
        if (!wanted.isKey) {
            CheckIndexLocked(wanted.index);
            return wanted.index;
        }
        const int32_t at = FindKeyLocked(wanted.key.view());
        if (at == luxNoIndex) {
            if (missing == Missing::InvalidKey) CollectionErrors::ThrowUnknownKey(wanted.key.view());
            CollectionErrors::ThrowKeyNotFound(wanted.key.view());
        }
        return at;
    }

    // Where Item put lands: the entry to replace, or luxNoIndex to add under the key.
    int32_t PlaceReplacementLocked(const KeyOrIndex& wanted) const {
        if (wanted.isKey) return FindKeyLocked(wanted.key.view());
        CheckIndexLocked(wanted.index);
        return wanted.index;
    }

    // Where Add inserts: -1 appends, 0..Count inserts before that entry.
    int32_t PlaceInsertionLocked(std::string_view key, int32_t requested) const {
        if (FindKeyLocked(key) != luxNoIndex) CollectionErrors::ThrowDuplicateKey(key);
        const int32_t count = CountLocked();
        if (requested == luxNoIndex) return count;
        if (requested < 0 || requested > count) CollectionErrors::ThrowInvalidIndex(requested, count, true);
        return requested;
    }

    // False when the entry has exactly this key already (nothing to do).
    bool CheckKeyChangeLocked(int32_t index, std::string_view key) const {
        CheckIndexLocked(index);
        const int32_t holder = FindKeyLocked(key);
        if (holder != luxNoIndex && holder != index) CollectionErrors::ThrowDuplicateKey(key);
        return entries_[index].key.view() != key;
    }

    void InsertLocked(int32_t at, Bstr key, Stored item) {
        if (entries_.size() >= static_cast<size_t>(INT32_MAX)) throw std::bad_alloc();
        // Everything that may fail comes first; the vector then only moves entries.
        if (entries_.size() == entries_.capacity()) entries_.reserve(std::max<size_t>(8, entries_.size() * 2));
        keys_.Reserve(entries_, entries_.size() + 1);
        const size_t before = entries_.size();
        const std::string_view view = key.view();  // the characters stay where they are when the key moves
        entries_.insert(entries_.begin() + at, Entry{std::move(key), std::move(item)});
        keys_.Inserted(at, view, before);
        children_.Link(Items::ObjectOf(entries_[at].item));
    }

    Entry RemoveLocked(int32_t at) {
        children_.Unlink(Items::ObjectOf(entries_[at].item));
        keys_.Removed(at, entries_[at].key.view(), entries_.size());
        Entry removed = std::move(entries_[at]);
        entries_.erase(entries_.begin() + at);
        return removed;
    }

    void MoveLocked(int32_t from, int32_t to) {
        const auto first = entries_.begin();
        if (from < to)
            std::rotate(first + from, first + from + 1, first + to + 1);
        else
            std::rotate(first + to, first + from, first + from + 1);
        keys_.Moved(from, to);
    }

    // Gives entry `index` a new key (validated) and returns the old one.
    Bstr ChangeKeyLocked(int32_t index, Bstr key) {
        if (entries_[index].key.empty() && !key.empty()) keys_.Reserve(entries_, entries_.size());
        Entry& entry = entries_[index];
        keys_.Rekeyed(index, entry.key.view(), key.view());
        std::swap(entry.key, key);
        return key;
    }

    // Links every object the entries hold, after the entries were replaced as a whole.
    void LinkAllLocked() noexcept {
        children_.UnlinkAll();
        for (const Entry& entry : entries_) children_.Link(Items::ObjectOf(entry.item));
    }

    std::vector<Entry> entries_;
    collection::KeyIndex keys_;
    // Passes on the Change of the objects among the items (see ChildEventForwarder).
    ChildEventForwarder children_{*this};
};

}  // namespace tessaly::core
