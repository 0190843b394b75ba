#include "com/tool/CLuxRecord.h"

#include <string>
#include <utility>

#include "com/core/CLuxCollection.h"
#include "com/core/CLuxEnumVariant.h"
#include "com/core/CollectionErrors.h"
#include "com/core/ccCOMError.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"

namespace tessaly::tool {

namespace {

const ClassRegistrar<CLuxRecord> registrar;

using core::ObjectLock;
using core::collection::KeyIndex;

bool IsObject(const VARIANT& value) noexcept { return value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN; }

// Nothing at all: no value, or an object reference that is null.
bool IsEmptyContent(const VARIANT& value) noexcept {
    return value.vt == VT_EMPTY || value.vt == VT_NULL || (IsObject(value) && !value.punkVal);
}

bool Answers(const VARIANT& value, const IID& iid) noexcept {
    if (!IsObject(value) || !value.punkVal) return false;
    ComPtr<IUnknown> found;
    return SUCCEEDED(value.punkVal->QueryInterface(iid, found.OutVoid()));
}

// The content rule of the known record types; other types hold anything.
bool Fits(int32_t type, const VARIANT& content) noexcept {
    if (IsEmptyContent(content)) return true;
    switch (type) {
        case luxRecordTypeString:
            return content.vt == VT_BSTR;
        case luxRecordTypeStringsCollection:
            return Answers(content, IID_ILuxStringCollection);
        case luxRecordTypeImage:
            return Answers(content, IID_ILuxImage);
        case luxRecordTypeGraphic:
            return Answers(content, IID_ILuxGraphic);
        default:
            return true;
    }
}

void RequireFits(int32_t type, const VARIANT& content, const char* argument) {
    if (!Fits(type, content))
        throw ccStdError::BadArgument(std::string(argument) + ": a record of type " + std::to_string(type) +
                                          " cannot hold a value of type " + std::to_string(content.vt),
                                      ids_Lux_InvalidArgValue_1, {argument});
}

[[noreturn]] void RefuseItem(const std::string& why) {
    throw ccStdError::BadArgument("Item: " + why, ids_Lux_InvalidArgValue_1, {"Item"});
}

[[noreturn]] void RefuseStored(const std::string& name, const std::string& why) {
    throw ccArchive::BadContent(name + ": " + why, ids_Lux_ReadInvalidProperty_1, {name});
}

Variant TakeValue(const VARIANT& given) {
    Variant value;
    core::ThrowIfFailed(VariantCopyInd(value.ptr(), &given));
    return value;
}

// Saved only when the formatter can write it back: values, and objects that persist.
bool Persistable(const VARIANT& content) noexcept {
    if (IsEmptyContent(content) || !IsObject(content)) return true;
    return Answers(content, IID_ILuxPersistArchive);
}

std::string ItemName(size_t index) { return "Item" + std::to_string(index); }

}  // namespace

ComPtr<CLuxRecord> CLuxRecord::Make() {
    auto record = ComPtr<CLuxRecord>::Attach(Create());
    if (!record) throw std::bad_alloc();
    return record;
}

CLuxRecord::~CLuxRecord() {
    for (const Entry& entry : entries_) {
        const std::lock_guard lock(entry.record->parentMutex_);
        if (entry.record->parent_ == this) entry.record->parent_ = nullptr;
    }
}

// --- lazy construction ---

CLuxRecord::Stage& CLuxRecord::StageOf(Part part) noexcept {
    switch (part) {
        case Part::Content:
            return contentStage_;
        case Part::Annotation:
            return annotationStage_;
        case Part::Items:
            break;
    }
    return itemsStage_;
}

HRESULT CLuxRecord::Construct(Part part) {
    ComPtr<ILuxRecordConstructor> constructor;
    Bstr key;
    int32_t flags = 0;
    uint64_t generation = 0;
    // What the part held before, put back when the constructor fails.
    Variant content;
    Bstr annotation;
    std::vector<ComPtr<CLuxRecord>> items;
    {
        ObjectLock::Guard guard(Lock());
        Stage& stage = StageOf(part);
        if (stage != Stage::Pending || !constructor_) return S_OK;
        constructor = constructor_;
        key = fields_.key;
        flags = flags_;
        generation = generation_;
        if (part == Part::Content) content = fields_.content;
        if (part == Part::Annotation) annotation = fields_.annotation;
        if (part == Part::Items)
            for (const Entry& entry : entries_) items.push_back(entry.record);
        stage = Stage::Running;
    }
    ILuxRecord* self = this;
    HRESULT result = S_OK;
    switch (part) {
        case Part::Content:
            result = constructor->ConstructRecordContent(self, key.get(), flags);
            break;
        case Part::Annotation:
            result = constructor->ConstructRecordAnnotation(self, key.get(), flags);
            break;
        case Part::Items:
            result = constructor->ConstructRecordItems(self, key.get(), flags);
            break;
    }
    // Released after the lock: releasing an object may run its code.
    ComPtr<ILuxRecordConstructor> done;
    std::vector<Entry> left;
    bool restored = false;
    {
        ObjectLock::Guard guard(Lock());
        if (generation_ != generation) return result;  // initialised or loaded meanwhile
        Stage& stage = StageOf(part);
        if (stage == Stage::Running) stage = SUCCEEDED(result) ? Stage::Settled : Stage::Pending;
        if (FAILED(result) && stage == Stage::Pending) {
            if (part == Part::Content && !core::SameCollectionItem(content.get(), fields_.content.get())) {
                std::swap(fields_.content, content);
                restored = true;
            }
            if (part == Part::Annotation && annotation.view() != fields_.annotation.view()) {
                std::swap(fields_.annotation, annotation);
                restored = true;
            }
            if (part == Part::Items) {
                bool same = items.size() == entries_.size();
                for (size_t i = 0; same && i < items.size(); ++i) same = items[i] == entries_[i].record;
                if (!same) {
                    // Records the constructor took away are put back unless another record
                    // has taken them meanwhile, under their present keys.
                    std::vector<Entry> back;
                    KeyIndex keys;
                    try {
                        for (ComPtr<CLuxRecord>& item : items) {
                            {
                                const std::lock_guard lock(item->parentMutex_);
                                if (item->parent_ && item->parent_ != this) continue;
                            }
                            ObjectLock::Guard itemGuard(item->Lock());
                            if (keys.Find(item->fields_.key.view(), back) != -1) continue;
                            back.push_back(Entry{item->fields_.key, std::move(item)});
                            keys.Build(back);
                        }
                        left = ReplaceEntriesLocked(std::move(back), keys);
                        restored = true;
                    } catch (...) {
                        // Out of memory: the list stays as the constructor left it.
                    }
                }
            }
        }
        if (contentStage_ == Stage::Settled && annotationStage_ == Stage::Settled && itemsStage_ == Stage::Settled)
            done = std::move(constructor_);
    }
    if (restored) RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    return result;
}

HRESULT CLuxRecord::ConstructAll() {
    for (const Part part : {Part::Content, Part::Annotation, Part::Items}) {
        const HRESULT result = Construct(part);
        if (FAILED(result)) return result;
    }
    return S_OK;
}

void CLuxRecord::Require(Part part) {
    const HRESULT result = Construct(part);
    if (FAILED(result)) core::ThrowIfFailed(result);
}

// --- the parent link ---

ComPtr<CLuxRecord> CLuxRecord::Parent() const {
    const std::lock_guard lock(parentMutex_);
    if (!parent_ || !parent_->TryAddRef()) return {};
    return ComPtr<CLuxRecord>::Attach(parent_);
}

template <class Change>
void CLuxRecord::WithParentLocked(Change&& change) {
    for (;;) {
        ComPtr<CLuxRecord> parent = Parent();
        if (!parent) {
            ObjectLock::Guard guard(Lock());
            {
                // A parent sets the link with this record's lock held: checked under it.
                const std::lock_guard lock(parentMutex_);
                if (parent_) continue;
            }
            change(static_cast<CLuxRecord*>(nullptr), int32_t{luxNoIndex});
            return;
        }
        ObjectLock::Guard parentGuard(parent->Lock());
        const int32_t at = parent->IndexOfLocked(this);
        if (at == luxNoIndex) continue;  // it let this record go meanwhile
        ObjectLock::Guard guard(Lock());
        change(parent.get(), at);
        return;
    }
}

bool CLuxRecord::RekeyLocked(CLuxRecord* parent, int32_t index, Bstr& key) {
    if (fields_.key.view() == key.view()) return false;
    if (parent) {
        const int32_t holder = parent->keys_.Find(key.view(), parent->entries_);
        if (holder != luxNoIndex && holder != index) core::CollectionErrors::ThrowDuplicateKey(key.view());
        Entry& entry = parent->entries_[index];
        Bstr copy = key;
        if (entry.key.empty() && !key.empty()) parent->keys_.Reserve(parent->entries_, parent->entries_.size());
        parent->keys_.Rekeyed(index, entry.key.view(), copy.view());
        std::swap(entry.key, copy);
    }
    std::swap(fields_.key, key);
    return true;
}

HRESULT CLuxRecord::SetRecordKey(Bstr key) {
    const Variant announced(key.view());
    bool changed = false;
    WithParentLocked([&](CLuxRecord* parent, int32_t at) { changed = RekeyLocked(parent, at, key); });
    if (!changed) return S_OK;
    return RaiseChange(luxRecord_RecordKey, announced.get(), luxFA_Misc);
}

// --- the sub-records ---

void CLuxRecord::CheckIndexLocked(int32_t index) const {
    if (index < 0 || index >= CountLocked()) core::CollectionErrors::ThrowInvalidIndex(index, CountLocked());
}

int32_t CLuxRecord::IndexOfLocked(const CLuxRecord* child) const noexcept {
    for (size_t i = 0; i < entries_.size(); ++i)
        if (entries_[i].record.get() == child) return static_cast<int32_t>(i);
    return luxNoIndex;
}

CLuxRecord& CLuxRecord::AdoptableChild(ILuxRecord* item) const {
    core::RequireArgument(item, "Item");
    CLuxRecord* child = ImplementationOf(item);
    if (!child) RefuseItem("only records made by this library can be sub-records");
    if (child == this) RefuseItem("a record cannot hold itself");
    for (ComPtr<CLuxRecord> up = Parent(); up; up = up->Parent())
        if (up.get() == child) RefuseItem("a record cannot hold one of the records that hold it");
    return *child;
}

void CLuxRecord::InsertLocked(int32_t at, ComPtr<CLuxRecord> child) {
    ObjectLock::Guard childGuard(child->Lock());
    {
        const std::lock_guard lock(child->parentMutex_);
        if (child->parent_) RefuseItem("the record belongs to a record already");
    }
    Bstr key = child->fields_.key;
    if (keys_.Find(key.view(), entries_) != luxNoIndex) core::CollectionErrors::ThrowDuplicateKey(key.view());
    if (entries_.size() >= static_cast<size_t>(INT32_MAX)) throw std::bad_alloc();
    if (entries_.size() == entries_.capacity()) entries_.reserve(std::max<size_t>(4, entries_.size() * 2));
    keys_.Reserve(entries_, entries_.size() + 1);
    const size_t before = entries_.size();
    const std::string_view view = key.view();
    CLuxRecord* raw = child.get();
    entries_.insert(entries_.begin() + at, Entry{std::move(key), std::move(child)});
    keys_.Inserted(at, view, before);
    children_.Link(raw->GetUnknown());
    const std::lock_guard lock(raw->parentMutex_);
    raw->parent_ = this;
}

ComPtr<CLuxRecord> CLuxRecord::RemoveLocked(int32_t at) {
    ComPtr<CLuxRecord> child = std::move(entries_[at].record);
    children_.Unlink(child->GetUnknown());
    keys_.Removed(at, entries_[at].key.view(), entries_.size());
    entries_.erase(entries_.begin() + at);
    const std::lock_guard lock(child->parentMutex_);
    if (child->parent_ == this) child->parent_ = nullptr;
    return child;
}

std::vector<CLuxRecord::Entry> CLuxRecord::ReplaceEntriesLocked(std::vector<Entry> next, KeyIndex& keys) noexcept {
    for (const Entry& entry : entries_) {
        children_.Unlink(entry.record->GetUnknown());
        const std::lock_guard lock(entry.record->parentMutex_);
        if (entry.record->parent_ == this) entry.record->parent_ = nullptr;
    }
    std::swap(entries_, next);
    keys_.swap(keys);
    for (const Entry& entry : entries_) {
        children_.Link(entry.record->GetUnknown());
        const std::lock_guard lock(entry.record->parentMutex_);
        entry.record->parent_ = this;
    }
    return next;
}

int32_t CLuxRecord::ChildIndex(IUnknown* child) noexcept {
    ObjectLock::Guard guard(Lock());
    for (size_t i = 0; i < entries_.size(); ++i)
        if (entries_[i].record->GetUnknown() == child) return static_cast<int32_t>(i);
    return luxNoIndex;
}

// --- copy and persistence ---

void CLuxRecord::CopyFrom(const CLuxRecord& source) {
    Fields fields;
    std::vector<ComPtr<CLuxRecord>> items;
    ComPtr<ILuxRecordConstructor> constructor;
    int32_t flags = 0;
    Stage stages[3];
    {
        ObjectLock::Guard guard(source.Lock());
        fields = source.fields_;
        for (const Entry& entry : source.entries_) items.push_back(entry.record);
        constructor = source.constructor_;
        flags = source.flags_;
        // A construction under way in the source is still to be made in the copy.
        const Stage given[3] = {source.contentStage_, source.annotationStage_, source.itemsStage_};
        for (int i = 0; i < 3; ++i) stages[i] = given[i] == Stage::Settled ? Stage::Settled : Stage::Pending;
    }
    const bool pending = stages[0] != Stage::Settled || stages[1] != Stage::Settled || stages[2] != Stage::Settled;
    if (pending && constructor) {
        ComPtr<ILuxRecordConstructor> copied;
        core::ThrowIfFailed(constructor->Copy(copied.Out()));
        if (!copied) throw ccStdError::BadArgument("Constructor: its Copy gave nothing", ids_Lux_InvalidArgNull_1,
                                                   {"Copy"});
        constructor = std::move(copied);
    } else {
        constructor = nullptr;
        for (Stage& stage : stages) stage = Stage::Settled;
    }
    if (fields.contentMutable && IsObject(fields.content.get())) {
        Variant cloned;
        core::CloneValue(fields.content.get(), cloned.ptr());
        fields.content = std::move(cloned);
    }
    std::vector<Entry> copies;
    copies.reserve(items.size());
    for (const ComPtr<CLuxRecord>& item : items) {
        ComPtr<IDispatch> clone;
        core::ThrowIfFailed(item->Clone(clone.Out()));
        ComPtr<CLuxRecord> copy(ImplementationOf(clone.get()));
        Bstr key = copy->fields_.key;  // nobody else sees the copy yet
        copies.push_back(Entry{std::move(key), std::move(copy)});
    }
    KeyIndex keys;
    keys.Build(copies);  // the source's keys are unique
    std::vector<Entry> left;
    ObjectLock::Guard guard(Lock());
    std::swap(fields_, fields);
    left = ReplaceEntriesLocked(std::move(copies), keys);
    std::swap(constructor_, constructor);
    flags_ = flags;
    contentStage_ = stages[0];
    annotationStage_ = stages[1];
    itemsStage_ = stages[2];
    ++generation_;
}

void CLuxRecord::ResetState() noexcept {
    // The key is left to the load, which applies it with the parent's rules.
    Bstr key = std::move(fields_.key);
    fields_ = Fields();
    fields_.key = std::move(key);
    KeyIndex none;
    ReplaceEntriesLocked({}, none);
    constructor_ = nullptr;
    flags_ = 0;
    contentStage_ = annotationStage_ = itemsStage_ = Stage::Settled;
    ++generation_;
}

void CLuxRecord::PersistState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        archive.Persist("RecordKey", fields_.key);
        archive.Persist("RecordType", fields_.type);
        archive.Persist("RecordUsage", fields_.usage);
        archive.Persist("ContentMutable", fields_.contentMutable);
        archive.Persist("Annotation", fields_.annotation);
        if (Persistable(fields_.content.get())) archive.Write("Content", fields_.content.get());
        for (size_t i = 0; i < entries_.size(); ++i)
            archive.Write(ItemName(i), Variant(entries_[i].record->GetDispatch()).get());
        return;
    }
    const bool reset = !(archive.Options() & luxPersistOptionNoResetOnLoad);
    Variant key;
    if (archive.Read("RecordKey", key)) {
        if (FAILED(key.ChangeType(VT_BSTR))) RefuseStored("RecordKey", "not a string");
        archive.OnCommit([this, key = Bstr::Attach(key.Detach().bstrVal)]() mutable noexcept {
            std::swap(loadedKey_, key);
            loadedKeyPending_ = true;
        });
    } else if (reset) {
        archive.OnCommit([this]() noexcept {
            loadedKey_ = Bstr();
            loadedKeyPending_ = true;
        });
    }
    Variant type;
    const bool typeStored = archive.Read("RecordType", type);
    if (typeStored && FAILED(type.ChangeType(VT_I4))) RefuseStored("RecordType", "not a 4-byte integer");
    archive.Persist("RecordUsage", fields_.usage);
    archive.Persist("ContentMutable", fields_.contentMutable);
    archive.Persist("Annotation", fields_.annotation);
    Variant content;
    const bool contentStored = archive.Read("Content", content);
    if (contentStored && typeStored && !Fits(type.get().lVal, content.get()))
        RefuseStored("Content", "a value of type " + std::to_string(content.vt()) + " in a record of type " +
                                    std::to_string(type.get().lVal));
    if (typeStored)
        archive.OnCommit([this, value = type.get().lVal]() noexcept { fields_.type = value; });
    if (contentStored)
        archive.OnCommit([this, content = std::move(content)]() mutable noexcept { std::swap(fields_.content, content); });

    std::vector<Entry> loaded;
    for (size_t i = 0;; ++i) {
        const std::string name = ItemName(i);
        Variant item;
        if (!archive.Read(name, item)) break;
        CLuxRecord* child = IsObject(item.get()) ? ImplementationOf(item.get().punkVal) : nullptr;
        if (!child) RefuseStored(name, "a sub-record must be a record");
        if (child == this) RefuseStored(name, "a record cannot hold itself");
        {
            const std::lock_guard lock(child->parentMutex_);
            if (child->parent_ && child->parent_ != this) RefuseStored(name, "the record belongs to another record");
        }
        for (const Entry& entry : loaded)
            if (entry.record.get() == child) RefuseStored(name, "the record is stored twice");
        Bstr childKey;
        {
            ObjectLock::Guard guard(child->Lock());
            childKey = child->fields_.key;
        }
        loaded.push_back(Entry{std::move(childKey), ComPtr<CLuxRecord>(child)});
    }
    KeyIndex keys;
    const int32_t repeated = keys.Build(loaded);
    if (repeated >= 0)
        RefuseStored(ItemName(static_cast<size_t>(repeated)),
                     "the key " + core::CollectionErrors::Quote(loaded[repeated].key.view()) +
                         " is stored for two sub-records");
    if (!loaded.empty() || reset)
        archive.OnCommit([this, loaded = std::move(loaded), keys = std::move(keys)]() mutable noexcept {
            ReplaceEntriesLocked(std::move(loaded), keys);
        });
}

HRESULT CLuxRecord::Persist(ILuxArchive* Archive, LONG Options) {
    const bool saving = (Options & luxPersistOptionSaving) != 0;
    if (saving) {
        const HRESULT constructed = ConstructAll();
        if (FAILED(constructed)) return constructed;
    }
    const HRESULT result = core::ILuxObjectImplBase<CLuxRecord, ILuxRecord>::Persist(Archive, Options);
    if (saving || FAILED(result)) return result;
    return core::Guarded("Persist", ILuxPersistArchive::iid, [&]() -> HRESULT {
        Bstr key;
        {
            ObjectLock::Guard guard(Lock());
            if (!loadedKeyPending_) return S_OK;
            loadedKeyPending_ = false;
            std::swap(key, loadedKey_);
        }
        return SetRecordKey(std::move(key));
    });
}

// --- ILuxRecord: the fields ---

HRESULT CLuxRecord::get_RecordKey(BSTR* RecordKey) {
    return core::Guarded("get_RecordKey", IID_ILuxRecord, [&] {
        core::RequireOut(RecordKey);
        Bstr copy;
        {
            ObjectLock::Guard guard(Lock());
            copy = fields_.key;
        }
        *RecordKey = copy.Detach();
    });
}

HRESULT CLuxRecord::put_RecordKey(BSTR RecordKey) {
    return core::Guarded("put_RecordKey", IID_ILuxRecord, [&] { return SetRecordKey(Bstr(BstrView(RecordKey))); });
}

HRESULT CLuxRecord::get_RecordType(LuxRecordTypeConstants* RecordType) {
    return core::Guarded("get_RecordType", IID_ILuxRecord, [&] {
        core::RequireOut(RecordType);
        ObjectLock::Guard guard(Lock());
        *RecordType = static_cast<LuxRecordTypeConstants>(fields_.type);
    });
}

HRESULT CLuxRecord::put_RecordType(LuxRecordTypeConstants RecordType) {
    return core::Guarded("put_RecordType", IID_ILuxRecord, [&] {
        const int32_t type = RecordType;
        {
            ObjectLock::Guard guard(Lock());
            if (fields_.type == type) return S_OK;
            RequireFits(type, fields_.content.get(), "RecordType");
            fields_.type = type;
        }
        return RaiseChange(luxRecord_RecordType, Variant(type).get(), luxFA_Misc);
    });
}

HRESULT CLuxRecord::get_RecordUsage(LuxRecordUsageConstants* RecordUsage) {
    return core::Guarded("get_RecordUsage", IID_ILuxRecord, [&] {
        core::RequireOut(RecordUsage);
        ObjectLock::Guard guard(Lock());
        *RecordUsage = static_cast<LuxRecordUsageConstants>(fields_.usage);
    });
}

HRESULT CLuxRecord::put_RecordUsage(LuxRecordUsageConstants RecordUsage) {
    return core::Guarded("put_RecordUsage", IID_ILuxRecord, [&] {
        const int32_t usage = RecordUsage;
        {
            ObjectLock::Guard guard(Lock());
            if (fields_.usage == usage) return S_OK;
            fields_.usage = usage;
        }
        return RaiseChange(luxRecord_RecordUsage, Variant(usage).get(), luxFA_Misc);
    });
}

HRESULT CLuxRecord::get_ContentMutable(VARIANT_BOOL* ContentMutable) {
    return core::Guarded("get_ContentMutable", IID_ILuxRecord, [&] {
        core::RequireOut(ContentMutable);
        ObjectLock::Guard guard(Lock());
        *ContentMutable = fields_.contentMutable ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxRecord::put_ContentMutable(VARIANT_BOOL ContentMutable) {
    return core::Guarded("put_ContentMutable", IID_ILuxRecord, [&] {
        const bool value = ContentMutable != VARIANT_FALSE;
        {
            ObjectLock::Guard guard(Lock());
            if (fields_.contentMutable == value) return S_OK;
            fields_.contentMutable = value;
        }
        return RaiseChange(luxRecord_ContentMutable, Variant(value).get(), luxFA_Misc);
    });
}

HRESULT CLuxRecord::get_Content(VARIANT* Content) {
    return core::Guarded("get_Content", IID_ILuxRecord, [&]() -> HRESULT {
        core::RequireOut(Content);
        VariantInit(Content);
        const HRESULT constructed = Construct(Part::Content);
        if (FAILED(constructed)) return constructed;
        Variant copy;
        {
            ObjectLock::Guard guard(Lock());
            copy = fields_.content;
        }
        *Content = copy.Detach();
        return S_OK;
    });
}

HRESULT CLuxRecord::SetContent(const char* method, const VARIANT& given) {
    return core::Guarded(method, IID_ILuxRecord, [&] {
        Variant content = TakeValue(given);
        const Variant announced = content;
        {
            ObjectLock::Guard guard(Lock());
            RequireFits(fields_.type, content.get(), "Content");
            if (contentStage_ == Stage::Pending) contentStage_ = Stage::Settled;
            if (core::SameCollectionItem(fields_.content.get(), content.get())) return S_OK;
            std::swap(fields_.content, content);  // the old content goes after the lock
        }
        return RaiseChange(luxRecord_Content, announced.get(), luxFA_Misc);
    });
}

HRESULT CLuxRecord::put_Content(VARIANT Content) { return SetContent("put_Content", Content); }
HRESULT CLuxRecord::putref_Content(VARIANT Content) { return SetContent("put_Content", Content); }

HRESULT CLuxRecord::get_Annotation(BSTR* Annotation) {
    return core::Guarded("get_Annotation", IID_ILuxRecord, [&]() -> HRESULT {
        core::RequireOut(Annotation);
        *Annotation = nullptr;
        const HRESULT constructed = Construct(Part::Annotation);
        if (FAILED(constructed)) return constructed;
        Bstr copy;
        {
            ObjectLock::Guard guard(Lock());
            copy = fields_.annotation;
        }
        *Annotation = copy.Detach();
        return S_OK;
    });
}

HRESULT CLuxRecord::put_Annotation(BSTR Annotation) {
    return core::Guarded("put_Annotation", IID_ILuxRecord, [&] {
        Bstr annotation(BstrView(Annotation));
        const Variant announced(annotation.view());
        {
            ObjectLock::Guard guard(Lock());
            if (annotationStage_ == Stage::Pending) annotationStage_ = Stage::Settled;
            if (fields_.annotation.view() == annotation.view()) return S_OK;
            std::swap(fields_.annotation, annotation);
        }
        return RaiseChange(luxRecord_Annotation, announced.get(), luxFA_Misc);
    });
}

HRESULT CLuxRecord::Copy(ILuxRecord** Copy) {
    return core::Guarded("Copy", IID_ILuxRecord, [&] {
        core::RequireOut(Copy);
        *Copy = nullptr;
        ComPtr<IDispatch> clone;
        core::ThrowIfFailed(Clone(clone.Out()));
        core::ThrowIfFailed(clone->QueryInterface(IID_ILuxRecord, reinterpret_cast<void**>(Copy)));
    });
}

// --- ILuxRecord: the sub-records ---

HRESULT CLuxRecord::get__NewEnum(IUnknown** Enumerator) {
    return core::Guarded("get__NewEnum", IID_ILuxRecord, [&] {
        core::RequireOut(Enumerator);
        *Enumerator = nullptr;
        Require(Part::Items);
        core::CLuxEnumVariant::Items snapshot;
        {
            ObjectLock::Guard guard(Lock());
            snapshot.reserve(entries_.size());
            for (const Entry& entry : entries_) snapshot.push_back(Variant(entry.record->GetDispatch()));
        }
        IEnumVARIANT* enumerator = core::CLuxEnumVariant::New(std::move(snapshot));
        if (!enumerator) throw std::bad_alloc();
        *Enumerator = enumerator;
    });
}

HRESULT CLuxRecord::get_Count(LONG* Count) {
    return core::Guarded("get_Count", IID_ILuxRecord, [&] {
        core::RequireOut(Count);
        Require(Part::Items);
        ObjectLock::Guard guard(Lock());
        *Count = CountLocked();
    });
}

HRESULT CLuxRecord::get_Item(VARIANT KeyOrIndex, ILuxRecord** Item) {
    return core::Guarded("get_Item", IID_ILuxRecord, [&] {
        core::RequireOut(Item);
        *Item = nullptr;
        const auto wanted = core::collection::ReadKeyOrIndex(KeyOrIndex);
        Require(Part::Items);
        ObjectLock::Guard guard(Lock());
        int32_t at = wanted.index;
        if (wanted.isKey) {
            at = keys_.Find(wanted.key.view(), entries_);
            if (at == luxNoIndex) core::CollectionErrors::ThrowUnknownKey(wanted.key.view());
        } else {
            CheckIndexLocked(at);
        }
        ILuxRecord* found = entries_[at].record.get();
        found->AddRef();
        *Item = found;
    });
}

HRESULT CLuxRecord::putref_Item(VARIANT KeyOrIndex, ILuxRecord* Item) {
    return core::Guarded("put_Item", IID_ILuxRecord, [&]() -> HRESULT {
        auto wanted = core::collection::ReadKeyOrIndex(KeyOrIndex);
        if (wanted.isKey && wanted.key.empty())
            throw core::CollectionErrors::InvalidKey("the empty key names no sub-record and cannot be given to a new one");
        core::RequireArgument(Item, "Item");
        Require(Part::Items);
        ComPtr<CLuxRecord> child(ImplementationOf(Item));
        {
            ObjectLock::Guard guard(Lock());
            const int32_t at = wanted.isKey ? keys_.Find(wanted.key.view(), entries_) : wanted.index;
            if (!wanted.isKey) CheckIndexLocked(at);
            if (child && at != luxNoIndex && entries_[at].record == child) return S_OK;  // there already
        }
        CLuxRecord& adopted = AdoptableChild(Item);
        bool rekeyed = false;
        Variant announcedKey;
        ComPtr<CLuxRecord> replaced;  // released after the lock
        {
            ObjectLock::Guard guard(Lock());
            const int32_t at = wanted.isKey ? keys_.Find(wanted.key.view(), entries_) : wanted.index;
            if (!wanted.isKey) CheckIndexLocked(at);
            ObjectLock::Guard childGuard(adopted.Lock());
            {
                const std::lock_guard lock(adopted.parentMutex_);
                if (adopted.parent_) RefuseItem("the record belongs to a record already");
            }
            // By key the record takes that key; by index it keeps its own.
            Bstr key = wanted.isKey ? wanted.key : adopted.fields_.key;
            const int32_t holder = keys_.Find(key.view(), entries_);
            if (holder != luxNoIndex && holder != at) core::CollectionErrors::ThrowDuplicateKey(key.view());
            if (at != luxNoIndex) replaced = RemoveLocked(at);
            if (adopted.fields_.key.view() != key.view()) {
                announcedKey = Variant(key.view());
                std::swap(adopted.fields_.key, key);
                rekeyed = true;
            }
            try {
                InsertLocked(at == luxNoIndex ? CountLocked() : at, ComPtr<CLuxRecord>(&adopted));
            } catch (...) {
                // Out of memory: put everything back as it was.
                if (rekeyed) std::swap(adopted.fields_.key, key);
                if (replaced) InsertLocked(at, std::move(replaced));
                throw;
            }
        }
        if (rekeyed) adopted.RaiseChange(luxRecord_RecordKey, announcedKey.get(), luxFA_Misc);
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxRecord::FindItem(ILuxRecord* Item, LONG* Index) {
    return core::Guarded("FindItem", IID_ILuxRecord, [&] {
        core::RequireOut(Index);
        *Index = luxNoIndex;
        Require(Part::Items);
        const CLuxRecord* wanted = ImplementationOf(Item);
        if (!wanted) return;
        ObjectLock::Guard guard(Lock());
        *Index = IndexOfLocked(wanted);
    });
}

HRESULT CLuxRecord::get_Key(LONG Index, BSTR* Key) {
    return core::Guarded("get_Key", IID_ILuxRecord, [&] {
        core::RequireOut(Key);
        *Key = nullptr;
        Require(Part::Items);
        Bstr copy;
        {
            ObjectLock::Guard guard(Lock());
            CheckIndexLocked(Index);
            copy = entries_[Index].key;
        }
        *Key = copy.Detach();
    });
}

HRESULT CLuxRecord::put_Key(LONG Index, BSTR Key) {
    return core::Guarded("put_Key", IID_ILuxRecord, [&] {
        Require(Part::Items);
        ComPtr<CLuxRecord> child;
        {
            ObjectLock::Guard guard(Lock());
            CheckIndexLocked(Index);
            child = entries_[Index].record;
        }
        // The sub-record's own setter keeps its RecordKey and this record's key one value.
        return child->SetRecordKey(Bstr(BstrView(Key)));
    });
}

HRESULT CLuxRecord::FindKey(BSTR Key, LONG* Index) {
    return core::Guarded("FindKey", IID_ILuxRecord, [&] {
        core::RequireOut(Index);
        Require(Part::Items);
        ObjectLock::Guard guard(Lock());
        *Index = keys_.Find(BstrView(Key), entries_);
    });
}

HRESULT CLuxRecord::Remove(VARIANT KeyOrIndex) {
    return core::Guarded("Remove", IID_ILuxRecord, [&] {
        const auto wanted = core::collection::ReadKeyOrIndex(KeyOrIndex);
        Require(Part::Items);
        ComPtr<CLuxRecord> removed;  // released after the lock
        {
            ObjectLock::Guard guard(Lock());
            int32_t at = wanted.index;
            if (wanted.isKey) {
                at = keys_.Find(wanted.key.view(), entries_);
                if (at == luxNoIndex) core::CollectionErrors::ThrowKeyNotFound(wanted.key.view());
            } else {
                CheckIndexLocked(at);
            }
            removed = RemoveLocked(at);
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxRecord::Move(LONG FromIndex, LONG ToIndex) {
    return core::Guarded("Move", IID_ILuxRecord, [&] {
        Require(Part::Items);
        {
            ObjectLock::Guard guard(Lock());
            CheckIndexLocked(FromIndex);
            CheckIndexLocked(ToIndex);
            if (FromIndex == ToIndex) return S_OK;
            const auto first = entries_.begin();
            if (FromIndex < ToIndex)
                std::rotate(first + FromIndex, first + FromIndex + 1, first + ToIndex + 1);
            else
                std::rotate(first + ToIndex, first + FromIndex, first + FromIndex + 1);
            keys_.Moved(FromIndex, ToIndex);
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxRecord::Clear() {
    return core::Guarded("Clear", IID_ILuxRecord, [&] {
        Require(Part::Items);
        std::vector<Entry> removed;
        {
            ObjectLock::Guard guard(Lock());
            if (entries_.empty()) return S_OK;
            KeyIndex none;
            removed = ReplaceEntriesLocked({}, none);
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxRecord::Add(ILuxRecord* Item, LONG Index) {
    return core::Guarded("Add", IID_ILuxRecord, [&] {
        CLuxRecord& child = AdoptableChild(Item);
        Require(Part::Items);
        {
            ObjectLock::Guard guard(Lock());
            const int32_t count = CountLocked();
            if (Index != luxNoIndex && (Index < 0 || Index > count))
                core::CollectionErrors::ThrowInvalidIndex(Index, count, true);
            InsertLocked(Index == luxNoIndex ? count : Index, ComPtr<CLuxRecord>(&child));
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxRecord::Initialize(BSTR RecordKey, LuxRecordTypeConstants RecordType, LuxRecordUsageConstants RecordUsage,
                               VARIANT_BOOL ContentMutable, VARIANT Content, BSTR Annotation,
                               ILuxRecordConstructor* Constructor, LONG Flags) {
    return core::Guarded("Initialize", IID_ILuxRecord, [&]() -> HRESULT {
        Variant content = TakeValue(Content);
        RequireFits(RecordType, content.get(), "Content");
        Bstr key(BstrView(RecordKey));
        Bstr annotation(BstrView(Annotation));
        ComPtr<ILuxRecordConstructor> constructor(Constructor);
        const bool contentMutable = ContentMutable != VARIANT_FALSE;
        bool changed = false;
        // The values replaced go with these locals, after the locks.
        WithParentLocked([&](CLuxRecord* parent, int32_t at) {
            changed = RekeyLocked(parent, at, key);
            changed = changed || fields_.type != RecordType || fields_.usage != RecordUsage ||
                      fields_.contentMutable != contentMutable ||
                      !core::SameCollectionItem(fields_.content.get(), content.get()) ||
                      fields_.annotation.view() != annotation.view() || constructor || constructor_ ||
                      flags_ != Flags;
            fields_.type = RecordType;
            fields_.usage = RecordUsage;
            fields_.contentMutable = contentMutable;
            std::swap(fields_.content, content);
            std::swap(fields_.annotation, annotation);
            std::swap(constructor_, constructor);
            flags_ = Flags;
            const Stage stage = constructor_ ? Stage::Pending : Stage::Settled;
            contentStage_ = annotationStage_ = itemsStage_ = stage;
            ++generation_;
        });
        if (!changed) return S_OK;
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxRecord::AddNew(BSTR RecordKey, LuxRecordTypeConstants RecordType, LuxRecordUsageConstants RecordUsage,
                           VARIANT_BOOL ContentMutable, VARIANT Content, BSTR Annotation,
                           ILuxRecordConstructor* Constructor, LONG Flags, ILuxRecord** NewRecord) {
    return core::Guarded("AddNew", IID_ILuxRecord, [&] {
        core::RequireOut(NewRecord);
        *NewRecord = nullptr;
        Variant content = TakeValue(Content);
        RequireFits(RecordType, content.get(), "Content");
        Require(Part::Items);
        auto child = Make();
        // Nobody else sees the new record yet: its fields are set directly, without events.
        child->fields_.key = Bstr(BstrView(RecordKey));
        child->fields_.type = RecordType;
        child->fields_.usage = RecordUsage;
        child->fields_.contentMutable = ContentMutable != VARIANT_FALSE;
        child->fields_.content = std::move(content);
        child->fields_.annotation = Bstr(BstrView(Annotation));
        child->constructor_ = ComPtr<ILuxRecordConstructor>(Constructor);
        child->flags_ = Flags;
        if (Constructor) child->contentStage_ = child->annotationStage_ = child->itemsStage_ = Stage::Pending;
        {
            ObjectLock::Guard guard(Lock());
            InsertLocked(CountLocked(), child);
        }
        ILuxRecord* made = child.get();
        made->AddRef();
        *NewRecord = made;
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

}  // namespace tessaly::tool
