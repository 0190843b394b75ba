// LuxArchive: the archive a formatter hands to an object's Persist. It works in one
// direction for its whole life:
//  - saving: the values Persist hands over go on to the formatter's ArchiveWriter, in
//    order; the archive keeps only the names (a name given twice is refused, and Count,
//    Key and FindKey answer for the names written so far). Persist runs under the object's
//    lock, and writing a sub-object runs that object's Persist under its own lock: so
//    that no thread ever holds one object's lock while it waits for another's, a value
//    that may hold an object, and every value after it, is copied (objects referenced)
//    instead of written, and Save writes the copies once Persist has returned. Values
//    before the first object go straight through, so a large array is never copied
//    unless an object precedes it;
//  - loading: the formatter fills it with the object's named values first; Persist then
//    reads them back by name, converted to the type asked for. A name the archive does not
//    hold leaves the value as it was and answers S_FALSE. A formatter may instead hand it
//    a source (ReadFrom) that reads the values as Persist asks for them: an object reads
//    its values in the order it saved them, so the next stored value is nearly always the
//    one asked for and goes to Persist as soon as it is read. Anything else (a name out of
//    order or absent, the count, an item by index) first reads the rest, and the archive
//    then answers exactly as if it had been filled first.
// Names compare as collection keys do (ASCII case-insensitively). The archive fires no
// events and is not an ILuxObject.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "com/core/ArchiveWriter.h"
#include "com/core/impl/KeyIndex.h"
#include "com/core/impl/ObjectLock.h"
#include "com/core/impl/ccCollectionImpl.h"
#include "platform/Bstr.h"
#include "platform/ComObject.h"
#include "platform/ComPtr.h"
#include "platform/Variant.h"

namespace tessaly::core {

// Where a loading archive reads the values it does not hold yet.
class ArchiveSource {
public:
    // The next stored value and its name; false once the object's values end.
    virtual bool NextEntry(std::string& name, Variant& value) = 0;
    // A value was read under a name the archive holds already, and dropped.
    virtual void DroppedDuplicate(std::string_view name) = 0;

protected:
    ~ArchiveSource() = default;
};

class CLuxArchive : public ComObject<CLuxArchive, ILuxArchive> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxArchive; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxArchive;

    // `options` as Persist receives them; the saving bit is set or cleared here.
    static ComPtr<CLuxArchive> ForSaving(ArchiveWriter& writer, int32_t options);
    static ComPtr<CLuxArchive> ForLoading(int32_t options);
    // Empties a loading archive for another object's values, keeping its room.
    void ClearForLoading() noexcept;

    // Runs `object`'s Persist with a new saving archive over `writer`, then, with no lock
    // of the object held, writes the values it held back. Returns Persist's result (its
    // failure passed on unchanged); a failure of the writer throws.
    static HRESULT Save(ILuxPersistArchive& object, ArchiveWriter& writer, int32_t options);

    bool Saving() const noexcept { return writer_ != nullptr; }
    int32_t PersistOptions() const noexcept { return options_; }

    // Loading archives: the formatter's side. A second value under one name throws
    // ccArchive::Duplicate.
    void AddEntry(std::string_view name, Variant&& value);
    // Values not added are read from `source` when they are asked for, until FinishReading.
    // The source is called with the archive's lock held, on the thread that reads.
    void ReadFrom(ArchiveSource& source) noexcept;
    // Reads what the source still holds into the archive and lets go of the source. A
    // failure of the source met while Persist was reading (which Persist only saw as a
    // failed read) is thrown here again as it was first thrown.
    void FinishReading();
    // The stored value moved out (the entry stays, empty): an object's own Persist reads
    // each value once, and a large array is not copied. False when the name is absent.
    bool TakeEntry(std::string_view name, Variant& value);
    // Every value, the ones a source has still to give included.
    size_t EntryCount();
    // The values read so far: all of them unless a source still has more.
    size_t EntriesHeld() const;

    // What the Persist members do, without names as BSTRs.
    // Saving: records the name (refusing a repeat) and hands the value on (or holds it
    // back, see above), unless the options save objects only and the value is not one.
    void Write(std::string_view name, const VARIANT& value);
    // Saving: hands the values held back to the writer, in order. Call it once Persist has
    // returned, with no object lock held.
    void WriteHeldBack();
    // Loading: a copy of the stored value converted to `vt` (VT_VARIANT: as stored); false
    // when the name is absent. A value that does not convert throws ccArchive::BadType
    // described by `messageId` with the name.
    bool Read(std::string_view name, VARTYPE vt, Variant& value, int32_t messageId);

    // ILuxArchive
    HRESULT PersistVariant(BSTR Name, VARIANT* Value) override;
    HRESULT PersistUI1(BSTR Name, unsigned char* Value) override;
    HRESULT PersistI2(BSTR Name, short* Value) override;
    HRESULT PersistI4(BSTR Name, LONG* Value) override;
    HRESULT PersistR4(BSTR Name, float* Value) override;
    HRESULT PersistR8(BSTR Name, double* Value) override;
    HRESULT PersistBoolean(BSTR Name, VARIANT_BOOL* Value) override;
    HRESULT PersistString(BSTR Name, BSTR* Value) override;
    HRESULT LoadObject(BSTR Name, IDispatch** Value) override;
    HRESULT SaveObject(BSTR Name, IDispatch* Value) override;
    HRESULT get__NewEnum(IUnknown** Enumerator) override;
    HRESULT get_Count(LONG* Count) override;
    HRESULT get_Item(VARIANT KeyOrIndex, VARIANT* Item) override;
    HRESULT FindItem(VARIANT Item, LONG* Index) override;
    HRESULT get_Key(LONG Index, BSTR* Key) override;
    HRESULT FindKey(BSTR Key, LONG* Index) override;
    HRESULT get_Options(LONG* Options) override;

    CLuxArchive() = default;

protected:
    ~CLuxArchive() override = default;

private:
    struct Name {
        std::string text;
        std::string_view view() const noexcept { return text; }
    };
    struct Entry {
        Name key;
        Variant value;  // saving: the copy of a value held back, else empty
    };

    // A scalar Persist member: saving hands `value` on as `vt`; loading converts the stored
    // value to `vt` and stores it through `store`.
    template <class T>
    HRESULT PersistScalar(const char* method, BSTR name, T* value, VARTYPE vt, T VARIANT::*field);

    void CheckLoading(const char* what) const;
    void CheckSaving(const char* what) const;
    // Index of a name, or -1; call with the lock held.
    int32_t FindLocked(std::string_view name) const noexcept { return names_.Find(name, entries_); }
    // Whether an entry has this name already; call with the lock held. Most names are new,
    // and the summary of names answers that without a search.
    bool HasNameLocked(std::string_view name) const noexcept {
        return (nameSummary_ & SummaryBit(name)) != 0 && FindLocked(name) >= 0;
    }
    // One of 64 bits chosen by a name's length and its first and last characters, letters
    // folded as names compare: names equal in any case share their bit.
    static uint64_t SummaryBit(std::string_view name) noexcept {
        if (name.empty()) return 1;
        const auto fold = [](char c) noexcept -> uint32_t {
            const auto byte = static_cast<unsigned char>(c);
            return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte;
        };
        const uint32_t mixed = static_cast<uint32_t>(name.size()) * 0x9E3779B1u ^ fold(name.back()) * 0x85EBCA77u ^
                               fold(name.front()) * 0xC2B2AE3Du;
        return uint64_t{1} << (mixed >> 26);
    }
    // The same for a value being read. An object reads its values in the order it saved
    // them, so the entry after the last one read is tried before any search; with a source,
    // that entry is read first when it has not been.
    int32_t FindToReadLocked(std::string_view name);
    // Reads one more value from the source into the entries (skipping a repeated name);
    // false when the source has no more. A failure of the source is kept for FinishReading.
    bool PullLocked();
    // Reads everything the source still holds.
    void PullAllLocked() {
        while (PullLocked()) {
        }
    }
    // Appends an entry under a name it does not have yet; unchanged on failure.
    void AppendLocked(std::string_view name, Variant&& value);
    int32_t LocateLocked(const collection::KeyOrIndex& wanted) const;

    ArchiveWriter* writer_ = nullptr;
    int32_t options_ = 0;
    size_t heldBackFrom_ = SIZE_MAX;  // saving: the first entry held back (none: SIZE_MAX)
    mutable ObjectLock lock_;  // the objects' own lock: nearly free while one thread uses it
    std::vector<Entry> entries_;
    // Names are mostly found by the read-order hint: a table pays off only for large archives.
    collection::KeyIndex names_{16};
    uint64_t nameSummary_ = 0;  // SummaryBit of every name appended
    mutable size_t nextRead_ = 0;  // the entry after the last one read
    ArchiveSource* source_ = nullptr;  // loading: where the values not held yet come from
    std::exception_ptr sourceFailure_;  // what the source threw, for FinishReading
    std::string pulledName_;            // the name of the value being read from the source
};

}  // namespace tessaly::core
