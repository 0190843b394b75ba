// LuxRecord: one node of the tree of records through which a tool hands its state and its
// results to a display. docs/tools.md tells the whole behaviour; in short:
//
//  - Fields: RecordKey, RecordType, RecordUsage, ContentMutable, Content, Annotation. A
//    setter raises Change(its state ID, the new value, luxFA_Misc) and nothing for the
//    present value. Defaults: empty key, type 0, usage 0, not mutable, empty content and
//    annotation.
//  - Content rules: an empty content fits every type; luxRecordTypeString holds a string,
//    luxRecordTypeStringsCollection an ILuxStringCollection, luxRecordTypeImage an
//    ILuxImage, luxRecordTypeGraphic an ILuxGraphic; any other type holds anything. A
//    content (or a type, against the present content) that breaks the rule is refused
//    with E_INVALIDARG naming "Content" (or "RecordType").
//  - Sub-records: an ordered list with the collections' rules (0-based indices,
//    luxNoIndex, keys compared without regard to ASCII case, the empty key meaning none,
//    e_LuxCollection_* refusals), whose keys are the sub-records' RecordKeys, one value:
//    Key(Index) put sets the sub-record's RecordKey, and a sub-record whose RecordKey is
//    set is found under its new key (a key a sibling holds is refused with
//    e_LuxCollection_DuplicateKey). Item putref by key gives the record that key. A record
//    belongs to one record at a time and never to itself or its descendants: adding one
//    that belongs elsewhere, or would close a cycle, is refused with E_INVALIDARG naming
//    "Item". Only records made by this library are taken. Every change of the list raises
//    Change(-1); a sub-record's Change is passed on as Change(-2, info, areas) with its
//    index in info.
//  - Lazy construction: a record initialised with a constructor asks it for its Content
//    on the first read of Content, for its Annotation on the first read of Annotation, and
//    for its sub-records on the first use of any member of the list, each once, passing
//    the record, its RecordKey and the Flags given to Initialize (passed on untouched; the
//    record gives them no meaning). A failing constructor's HRESULT and error info come
//    back from the member that asked; what it changed of that part is put back and it is
//    asked again next time. Setting Content or Annotation settles that part: the
//    constructor is not asked for it afterwards. While a constructor runs, reads of the
//    part it is building answer the present value.
//  - Copy (and Clone, the same): sub-records are copied, recursively; content objects
//    are cloned when ContentMutable is true (an ILuxObject; other objects are shared) and
//    shared when it is false (an image that may not change costs nothing to share); a
//    pending constructor is copied with its own Copy and stays pending in the copy.
//  - Persistence: "RecordKey", "RecordType", "RecordUsage", "ContentMutable",
//    "Annotation", "Content" (a value, or an object that persists itself; other objects
//    are left out), and the sub-records as "Item0", "Item1", ... Pending constructors are
//    run (the whole tree) before saving; the constructor itself is not saved.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "TessalyCore.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "com/core/impl/KeyIndex.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/Variant.h"

namespace tessaly::tool {

class CLuxRecord : public core::ILuxObjectImplBase<CLuxRecord, ILuxRecord> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxRecord; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxRecord;

    CLuxRecord() = default;

    // A new record with the default fields. Throws std::bad_alloc.
    static ComPtr<CLuxRecord> Make();

    void CopyFrom(const CLuxRecord& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept;
    int32_t ChildIndex(IUnknown* child) noexcept override;

    // ILuxPersistArchive: constructors run before a save; a loaded RecordKey is applied
    // with the parent's key rules.
    HRESULT Persist(ILuxArchive* Archive, LONG Options) override;

    // ILuxRecord
    HRESULT get_RecordKey(BSTR* RecordKey) override;
    HRESULT put_RecordKey(BSTR RecordKey) override;
    HRESULT get_RecordType(LuxRecordTypeConstants* RecordType) override;
    HRESULT put_RecordType(LuxRecordTypeConstants RecordType) override;
    HRESULT get_RecordUsage(LuxRecordUsageConstants* RecordUsage) override;
    HRESULT put_RecordUsage(LuxRecordUsageConstants RecordUsage) override;
    HRESULT get_ContentMutable(VARIANT_BOOL* ContentMutable) override;
    HRESULT put_ContentMutable(VARIANT_BOOL ContentMutable) override;
    HRESULT get_Content(VARIANT* Content) override;
    HRESULT put_Content(VARIANT Content) override;
    HRESULT putref_Content(VARIANT Content) override;
    HRESULT get_Annotation(BSTR* Annotation) override;
    HRESULT put_Annotation(BSTR Annotation) override;
    HRESULT Copy(ILuxRecord** Copy) override;
    HRESULT get__NewEnum(IUnknown** Enumerator) override;
    HRESULT get_Count(LONG* Count) override;
    HRESULT get_Item(VARIANT KeyOrIndex, ILuxRecord** Item) override;
    HRESULT putref_Item(VARIANT KeyOrIndex, ILuxRecord* Item) override;
    HRESULT FindItem(ILuxRecord* Item, LONG* Index) override;
    HRESULT get_Key(LONG Index, BSTR* Key) override;
    HRESULT put_Key(LONG Index, BSTR Key) override;
    HRESULT FindKey(BSTR Key, LONG* Index) override;
    HRESULT Remove(VARIANT KeyOrIndex) override;
    HRESULT Move(LONG FromIndex, LONG ToIndex) override;
    HRESULT Clear() override;
    HRESULT Add(ILuxRecord* Item, LONG Index) override;
    HRESULT Initialize(BSTR RecordKey, LuxRecordTypeConstants RecordType, LuxRecordUsageConstants RecordUsage,
                       VARIANT_BOOL ContentMutable, VARIANT Content, BSTR Annotation,
                       ILuxRecordConstructor* Constructor, LONG Flags) override;
    HRESULT AddNew(BSTR RecordKey, LuxRecordTypeConstants RecordType, LuxRecordUsageConstants RecordUsage,
                   VARIANT_BOOL ContentMutable, VARIANT Content, BSTR Annotation, ILuxRecordConstructor* Constructor,
                   LONG Flags, ILuxRecord** NewRecord) override;

protected:
    ~CLuxRecord() override;

private:
    struct Entry {
        Bstr key;  // the sub-record's RecordKey, kept in step under this record's lock
        ComPtr<CLuxRecord> record;
    };
    enum class Part { Content, Annotation, Items };
    enum class Stage : uint8_t { Settled, Pending, Running };
    struct Fields {
        Bstr key;
        int32_t type = 0;
        int32_t usage = 0;
        bool contentMutable = false;
        Variant content;
        Bstr annotation;
    };

    // The part's stage, under the lock.
    Stage& StageOf(Part part) noexcept;
    // Runs the constructor for `part` when it is pending; its failure is the result.
    HRESULT Construct(Part part);
    // Every pending part of this record and of its sub-records, for a save.
    HRESULT ConstructAll();
    // Throws the failure of Construct.
    void Require(Part part);

    // The record this one belongs to, with a reference, or null.
    ComPtr<CLuxRecord> Parent() const;
    // Runs `change(parent, index)` with the parent's lock (when there is one) and then this
    // record's lock held: the way to change RecordKey while it is also the parent's key.
    template <class Change>
    void WithParentLocked(Change&& change);
    // Makes `key` this record's key (refused when a sibling holds it); false when it is
    // the key already. Called by WithParentLocked's change.
    bool RekeyLocked(CLuxRecord* parent, int32_t index, Bstr& key);
    // Sets RecordKey with the parent's rules and announces it.
    HRESULT SetRecordKey(Bstr key);
    // Sets a field other than the key and announces it.
    template <class T, class Same>
    HRESULT SetField(T Fields::*field, T value, int32_t stateId, Same same, const Variant& announced);
    HRESULT SetContent(const char* method, const VARIANT& content);

    // --- the sub-records; the functions ending in Locked run under this record's lock ---
    int32_t CountLocked() const noexcept { return static_cast<int32_t>(entries_.size()); }
    void CheckIndexLocked(int32_t index) const;
    int32_t IndexOfLocked(const CLuxRecord* child) const noexcept;
    // Refuses a record that cannot become a sub-record of this one.
    CLuxRecord& AdoptableChild(ILuxRecord* item) const;
    void InsertLocked(int32_t at, ComPtr<CLuxRecord> child);
    ComPtr<CLuxRecord> RemoveLocked(int32_t at);
    // Replaces the whole list (the key index built by the caller); returns the old one to
    // be released after the lock.
    std::vector<Entry> ReplaceEntriesLocked(std::vector<Entry> next, core::collection::KeyIndex& keys) noexcept;

    Fields fields_;
    std::vector<Entry> entries_;
    core::collection::KeyIndex keys_;
    // Passes on the sub-records' Change.
    core::ChildEventForwarder children_{*this};

    ComPtr<ILuxRecordConstructor> constructor_;
    int32_t flags_ = 0;
    Stage contentStage_ = Stage::Settled;
    Stage annotationStage_ = Stage::Settled;
    Stage itemsStage_ = Stage::Settled;
    // Bumped by every Initialize and load: a construction that began before does not
    // settle what came after.
    uint64_t generation_ = 0;

    // A load's RecordKey, applied after the load with the parent's rules.
    bool loadedKeyPending_ = false;
    Bstr loadedKey_;

    // The record this one belongs to: a weak back-reference, set and cleared by the parent
    // under its own lock.
    mutable std::mutex parentMutex_;
    CLuxRecord* parent_ = nullptr;
};

}  // namespace tessaly::tool
