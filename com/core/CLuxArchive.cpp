#include "com/core/CLuxArchive.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "com/core/CLuxCollection.h"
#include "com/core/CollectionErrors.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "persist/ccArchive.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

bool IsObject(VARTYPE vt) noexcept { return vt == VT_DISPATCH || vt == VT_UNKNOWN; }

// Whether a value of this type may hold an object: an object, an array of objects or of
// VARIANTs, or a reference to any of them.
bool MayHoldObject(VARTYPE vt) noexcept {
    const VARTYPE base = vt & ~(VT_BYREF | VT_ARRAY);
    return base == VT_DISPATCH || base == VT_UNKNOWN || base == VT_VARIANT;
}

}  // namespace

ComPtr<CLuxArchive> CLuxArchive::ForSaving(ArchiveWriter& writer, int32_t options) {
    auto archive = ComPtr<CLuxArchive>::Attach(Create());
    if (!archive) throw std::bad_alloc();
    archive->writer_ = &writer;
    archive->options_ = options | luxPersistOptionSaving;
    return archive;
}

ComPtr<CLuxArchive> CLuxArchive::ForLoading(int32_t options) {
    auto archive = ComPtr<CLuxArchive>::Attach(Create());
    if (!archive) throw std::bad_alloc();
    archive->options_ = options & ~luxPersistOptionSaving;
    return archive;
}

void CLuxArchive::ClearForLoading() noexcept {
    ObjectLock::Guard lock(lock_);
    entries_.clear();
    names_.Clear();
    nameSummary_ = 0;
    nextRead_ = 0;
    source_ = nullptr;
    sourceFailure_ = nullptr;
}

void CLuxArchive::ReadFrom(ArchiveSource& source) noexcept {
    ObjectLock::Guard lock(lock_);
    source_ = &source;
}

void CLuxArchive::FinishReading() {
    ObjectLock::Guard lock(lock_);
    if (sourceFailure_) std::rethrow_exception(std::exchange(sourceFailure_, nullptr));
    PullAllLocked();
}

bool CLuxArchive::PullLocked() {
    if (!source_) return false;
    std::string& name = pulledName_;  // keeps its room from one value to the next
    Variant value;
    try {
        for (;;) {
            if (!source_->NextEntry(name, value)) {
                source_ = nullptr;
                return false;
            }
            if (!HasNameLocked(name)) break;
            source_->DroppedDuplicate(name);
            value = Variant();
        }
        AppendLocked(name, std::move(value));
    } catch (...) {
        // Persist sees this as a failed read and may report it in its own way; the
        // formatter gets it back as it was from FinishReading.
        sourceFailure_ = std::current_exception();
        source_ = nullptr;
        throw;
    }
    return true;
}

void CLuxArchive::AddEntry(std::string_view name, Variant&& value) {
    CheckLoading("AddEntry");
    ObjectLock::Guard lock(lock_);
    if (HasNameLocked(name))
        throw ccArchive::Duplicate("the name " + CollectionErrors::Quote(name) + " is stored twice in one object");
    AppendLocked(name, std::move(value));
}

bool CLuxArchive::TakeEntry(std::string_view name, Variant& value) {
    CheckLoading("TakeEntry");
    ObjectLock::Guard lock(lock_);
    const int32_t at = FindToReadLocked(name);
    if (at < 0) return false;
    value = std::move(entries_[at].value);
    return true;
}

size_t CLuxArchive::EntryCount() {
    ObjectLock::Guard lock(lock_);
    PullAllLocked();
    return entries_.size();
}

size_t CLuxArchive::EntriesHeld() const {
    ObjectLock::Guard lock(lock_);
    return entries_.size();
}

int32_t CLuxArchive::FindToReadLocked(std::string_view name) {
    // The same code wrote and reads the names: they nearly always match byte for byte.
    const auto expected = [&](std::string_view stored) noexcept {
        return stored.size() == name.size() &&
               (std::memcmp(stored.data(), name.data(), name.size()) == 0 || collection::KeyEqual()(stored, name));
    };
    if (nextRead_ == entries_.size()) PullLocked();  // the next value, read as it is asked for
    int32_t at;
    if (nextRead_ < entries_.size() && expected(entries_[nextRead_].key.view())) {
        at = static_cast<int32_t>(nextRead_);
    } else {
        PullAllLocked();  // a name out of order, or absent: only all the names can tell
        // The name after the last one stored (the end of a collection's items, say) is
        // mostly absent, and the summary of names says so without a search.
        at = (nameSummary_ & SummaryBit(name)) == 0 ? -1 : FindLocked(name);
    }
    if (at >= 0) nextRead_ = static_cast<size_t>(at) + 1;
    return at;
}

void CLuxArchive::AppendLocked(std::string_view name, Variant&& value) {
    if (entries_.capacity() == 0) entries_.reserve(16);  // most objects have a handful of values
    if (entries_.size() == entries_.capacity()) entries_.reserve(entries_.size() * 2);
    names_.Reserve(entries_, entries_.size() + 1);
    // Nothing below throws: the names and their index stay in step.
    const size_t before = entries_.size();
    entries_.push_back(Entry{Name{std::string(name)}, std::move(value)});
    names_.Inserted(static_cast<int32_t>(before), name, before);
    nameSummary_ |= SummaryBit(name);
}

void CLuxArchive::CheckLoading(const char* what) const {
    if (Saving()) throw ccStdError::Unexpected(std::string(what) + " needs an archive that is loading");
}

void CLuxArchive::CheckSaving(const char* what) const {
    if (!Saving()) throw ccStdError::Unexpected(std::string(what) + " needs an archive that is saving");
}

void CLuxArchive::Write(std::string_view name, const VARIANT& value) {
    CheckSaving("Writing a value");
    const VARIANT& resolved = value.vt == (VT_BYREF | VT_VARIANT) && value.pvarVal ? *value.pvarVal : value;
    if ((options_ & luxPersistOptionSaveObjectsOnly) && !IsObject(resolved.vt)) return;
    bool holdBack;
    {
        ObjectLock::Guard lock(lock_);
        if (HasNameLocked(name))
            throw ccArchive::Duplicate("the name " + CollectionErrors::Quote(name) + " is written twice by one object");
        holdBack = heldBackFrom_ != SIZE_MAX || MayHoldObject(resolved.vt);
        Variant copy;
        // The copy resolves a reference and keeps every object it holds alive until it is
        // written; on failure the name is not recorded.
        if (holdBack) ThrowIfFailed(VariantCopyInd(copy.Out(), &resolved));
        AppendLocked(name, std::move(copy));
        if (holdBack && heldBackFrom_ == SIZE_MAX) heldBackFrom_ = entries_.size() - 1;
    }
    if (holdBack) return;
    if (resolved.vt & VT_BYREF) {
        Variant direct;
        ThrowIfFailed(VariantCopyInd(direct.Out(), &resolved));
        writer_->WriteEntry(name, direct.get());
    } else {
        writer_->WriteEntry(name, resolved);
    }
}

void CLuxArchive::WriteHeldBack() {
    CheckSaving("Writing the values held back");
    for (size_t at = heldBackFrom_;; ++at) {
        Variant value;
        std::string name;
        {
            ObjectLock::Guard lock(lock_);
            if (at >= entries_.size()) break;
            value = std::move(entries_[at].value);
            name = entries_[at].key.text;
        }
        writer_->WriteEntry(name, value.get());  // no lock held: this may save whole sub-graphs
    }
    ObjectLock::Guard lock(lock_);
    heldBackFrom_ = SIZE_MAX;
}

HRESULT CLuxArchive::Save(ILuxPersistArchive& object, ArchiveWriter& writer, int32_t options) {
    const ComPtr<CLuxArchive> archive = ForSaving(writer, options);
    const HRESULT persisted = object.Persist(archive.get(), archive->options_);
    if (SUCCEEDED(persisted)) archive->WriteHeldBack();
    return persisted;
}

bool CLuxArchive::Read(std::string_view name, VARTYPE vt, Variant& value, int32_t messageId) {
    CheckLoading("Reading a value");
    Variant stored;
    {
        ObjectLock::Guard lock(lock_);
        const int32_t at = FindToReadLocked(name);
        if (at < 0) return false;
        stored = entries_[at].value;
    }
    if (vt == VT_VARIANT || stored.get().vt == vt) {
        value = std::move(stored);
        return true;
    }
    Variant converted;
    const HRESULT hr = VariantChangeType(converted.Out(), &stored.get(), 0, vt);
    if (hr == E_OUTOFMEMORY) throw std::bad_alloc();
    if (FAILED(hr))
        throw ccArchive::BadType("the value of " + CollectionErrors::Quote(name) + " cannot be read as the type asked for",
                                 messageId, {std::string(name)});
    value = std::move(converted);
    return true;
}

template <class T>
HRESULT CLuxArchive::PersistScalar(const char* method, BSTR name, T* value, VARTYPE vt, T VARIANT::*field) {
    return Guarded(method, ILuxArchive::iid, [&]() -> HRESULT {
        RequireOut(value);  // [in, out]: the archive writes through it when loading
        if (Saving()) {
            VARIANT passed{};
            passed.vt = vt;
            passed.*field = *value;
            Write(BstrView(name), passed);
            return S_OK;
        }
        Variant read;
        if (!Read(BstrView(name), vt, read, ids_Lux_ReadInvalidProperty_1)) return S_FALSE;
        *value = read.get().*field;
        return S_OK;
    });
}

HRESULT CLuxArchive::PersistUI1(BSTR Name, unsigned char* Value) { return PersistScalar("PersistUI1", Name, Value, VT_UI1, &VARIANT::bVal); }
HRESULT CLuxArchive::PersistI2(BSTR Name, short* Value) { return PersistScalar("PersistI2", Name, Value, VT_I2, &VARIANT::iVal); }
HRESULT CLuxArchive::PersistI4(BSTR Name, LONG* Value) { return PersistScalar("PersistI4", Name, Value, VT_I4, &VARIANT::lVal); }
HRESULT CLuxArchive::PersistR4(BSTR Name, float* Value) { return PersistScalar("PersistR4", Name, Value, VT_R4, &VARIANT::fltVal); }
HRESULT CLuxArchive::PersistR8(BSTR Name, double* Value) { return PersistScalar("PersistR8", Name, Value, VT_R8, &VARIANT::dblVal); }
HRESULT CLuxArchive::PersistBoolean(BSTR Name, VARIANT_BOOL* Value) {
    return PersistScalar("PersistBoolean", Name, Value, VT_BOOL, &VARIANT::boolVal);
}

HRESULT CLuxArchive::PersistVariant(BSTR Name, VARIANT* Value) {
    return Guarded("PersistVariant", ILuxArchive::iid, [&]() -> HRESULT {
        RequireOut(Value);  // [in, out]: the archive writes through it when loading
        if (Saving()) {
            Write(BstrView(Name), *Value);
            return S_OK;
        }
        Variant read;
        if (!Read(BstrView(Name), VT_VARIANT, read, ids_Lux_ReadInvalidProperty_1)) return S_FALSE;
        VariantClear(Value);
        *Value = read.Detach();
        return S_OK;
    });
}

HRESULT CLuxArchive::PersistString(BSTR Name, BSTR* Value) {
    return Guarded("PersistString", ILuxArchive::iid, [&]() -> HRESULT {
        RequireOut(Value);  // [in, out]: the archive writes through it when loading
        if (Saving()) {
            VARIANT passed{};
            passed.vt = VT_BSTR;
            passed.bstrVal = *Value;  // lent, not owned
            Write(BstrView(Name), passed);
            return S_OK;
        }
        Variant read;
        if (!Read(BstrView(Name), VT_BSTR, read, ids_Lux_ReadInvalidProperty_1)) return S_FALSE;
        VARIANT taken = read.Detach();
        SysFreeString(*Value);
        *Value = taken.bstrVal;
        return S_OK;
    });
}

HRESULT CLuxArchive::LoadObject(BSTR Name, IDispatch** Value) {
    return Guarded("LoadObject", ILuxArchive::iid, [&]() -> HRESULT {
        RequireOut(Value);  // [in, out]: the archive writes through it when loading
        CheckLoading("LoadObject");
        Variant read;
        if (!Read(BstrView(Name), VT_VARIANT, read, ids_Lux_ReadInvalidObject_1)) return S_FALSE;
        const VARIANT& stored = read.get();
        IDispatch* object = nullptr;
        if (IsObject(stored.vt)) {
            if (stored.punkVal && FAILED(stored.punkVal->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&object))))
                throw ccArchive::BadType("the object stored as " + CollectionErrors::Quote(BstrView(Name)) +
                                             " is not an automation object",
                                         ids_Lux_ReadInvalidObject_1, {std::string(BstrView(Name))});
        } else if (stored.vt != VT_EMPTY && stored.vt != VT_NULL) {
            throw ccArchive::BadType("the value stored as " + CollectionErrors::Quote(BstrView(Name)) + " is not an object",
                                     ids_Lux_ReadInvalidObject_1, {std::string(BstrView(Name))});
        }
        if (*Value) (*Value)->Release();
        *Value = object;
        return S_OK;
    });
}

HRESULT CLuxArchive::SaveObject(BSTR Name, IDispatch* Value) {
    return Guarded("SaveObject", ILuxArchive::iid, [&] {
        CheckSaving("SaveObject");
        VARIANT passed{};
        passed.vt = VT_DISPATCH;
        passed.pdispVal = Value;  // lent
        Write(BstrView(Name), passed);
        return S_OK;
    });
}

HRESULT CLuxArchive::get__NewEnum(IUnknown** Enumerator) {
    return Guarded("get__NewEnum", ILuxArchive::iid, [&] {
        if (!Enumerator) return E_POINTER;
        *Enumerator = nullptr;
        CheckLoading("_NewEnum");
        CLuxEnumVariant::Items snapshot;
        {
            ObjectLock::Guard lock(lock_);
            PullAllLocked();
            snapshot.reserve(entries_.size());
            for (const Entry& entry : entries_) snapshot.push_back(entry.value);
        }
        IEnumVARIANT* enumerator = CLuxEnumVariant::New(std::move(snapshot));
        if (!enumerator) throw std::bad_alloc();
        *Enumerator = enumerator;
        return S_OK;
    });
}

HRESULT CLuxArchive::get_Count(LONG* Count) {
    return Guarded("get_Count", ILuxArchive::iid, [&] {
        if (!Count) return E_POINTER;
        ObjectLock::Guard lock(lock_);
        PullAllLocked();
        *Count = static_cast<LONG>(entries_.size());
        return S_OK;
    });
}

int32_t CLuxArchive::LocateLocked(const collection::KeyOrIndex& wanted) const {
    const auto count = static_cast<int32_t>(entries_.size());
    if (wanted.isKey) {
        const int32_t at = FindLocked(wanted.key.view());
        if (at < 0) CollectionErrors::ThrowUnknownKey(wanted.key.view());
        return at;
    }
    if (wanted.index < 0 || wanted.index >= count) CollectionErrors::ThrowInvalidIndex(wanted.index, count);
    return wanted.index;
}

HRESULT CLuxArchive::get_Item(VARIANT KeyOrIndex, VARIANT* Item) {
    return Guarded("get_Item", ILuxArchive::iid, [&] {
        if (!Item) return E_POINTER;
        VariantInit(Item);
        CheckLoading("Item");
        const auto wanted = collection::ReadKeyOrIndex(KeyOrIndex);
        Variant copy;
        {
            ObjectLock::Guard lock(lock_);
            PullAllLocked();
            copy = entries_[LocateLocked(wanted)].value;
        }
        *Item = copy.Detach();
        return S_OK;
    });
}

HRESULT CLuxArchive::FindItem(VARIANT Item, LONG* Index) {
    return Guarded("FindItem", ILuxArchive::iid, [&] {
        if (!Index) return E_POINTER;
        *Index = luxNoIndex;
        CheckLoading("FindItem");
        Variant wanted;
        ThrowIfFailed(VariantCopyInd(wanted.Out(), &Item));
        ObjectLock::Guard lock(lock_);
        PullAllLocked();
        for (size_t i = 0; i < entries_.size(); ++i) {
            if (SameCollectionItem(entries_[i].value.get(), wanted.get())) {
                *Index = static_cast<LONG>(i);
                break;
            }
        }
        return S_OK;
    });
}

HRESULT CLuxArchive::get_Key(LONG Index, BSTR* Key) {
    return Guarded("get_Key", ILuxArchive::iid, [&] {
        if (!Key) return E_POINTER;
        *Key = nullptr;
        Bstr copy;
        {
            ObjectLock::Guard lock(lock_);
            PullAllLocked();
            const auto count = static_cast<int32_t>(entries_.size());
            if (Index < 0 || Index >= count) CollectionErrors::ThrowInvalidIndex(Index, count);
            copy = Bstr(entries_[Index].key.text);
        }
        *Key = copy.Detach();
        return S_OK;
    });
}

HRESULT CLuxArchive::FindKey(BSTR Key, LONG* Index) {
    return Guarded("FindKey", ILuxArchive::iid, [&] {
        if (!Index) return E_POINTER;
        ObjectLock::Guard lock(lock_);
        PullAllLocked();
        *Index = BstrView(Key).empty() ? luxNoIndex : FindLocked(BstrView(Key));
        return S_OK;
    });
}

HRESULT CLuxArchive::get_Options(LONG* Options) {
    return Guarded("get_Options", ILuxArchive::iid, [&] {
        if (!Options) return E_POINTER;
        *Options = options_;
        return S_OK;
    });
}

}  // namespace tessaly::core
