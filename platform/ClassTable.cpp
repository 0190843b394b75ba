#include "platform/ClassTable.h"

#include <deque>
#include <initializer_list>
#include <mutex>
#include <string>

#include "platform/ClassFactory.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"

namespace tessaly {

namespace {

// Entries never move once added: Find hands out pointers into the table.
struct Table {
    std::mutex mutex;
    std::deque<ClassEntry> entries;
};

// Built on first use: classes register from static constructors of any translation unit.
Table& TheTable() {
    static Table table;
    return table;
}

bool EqualsIgnoringCase(std::string_view a, const char* b) noexcept {
    if (!b) return false;
    const std::string_view other(b);
    if (a.size() != other.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(other[i])) return false;
    }
    return true;
}

// A ProgID as the class table accepts it: a letter first, then letters, digits and dots,
// at most 39 characters.
bool IsWellFormedProgId(std::string_view name) noexcept {
    if (name.empty() || name.size() > 39) return false;
    const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    if (!letter(name.front())) return false;
    for (const char c : name)
        if (!letter(c) && !(c >= '0' && c <= '9') && c != '.' && c != '_') return false;
    return true;
}

constexpr const char* kSource = "CreateObject";

// Joins the pieces of a message (appending, which also keeps GCC's -O3 overlap analysis
// of chained operator+ quiet).
std::string Text(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces) text.append(piece);
    return text;
}

}  // namespace

void ClassTable::Register(const CoClassInfo& coclass, ClassFactoryFunction create) {
    Table& table = TheTable();
    std::lock_guard lock(table.mutex);
    for (const ClassEntry& entry : table.entries)
        if (entry.coclass->clsid == coclass.clsid) return;  // the first registration stands
    table.entries.push_back(ClassEntry{&coclass, coclass.creatable ? create : nullptr});
}

const ClassEntry* ClassTable::Find(const CLSID& clsid) noexcept {
    Table& table = TheTable();
    std::lock_guard lock(table.mutex);
    for (const ClassEntry& entry : table.entries)
        if (entry.coclass->clsid == clsid) return &entry;
    return nullptr;
}

const ClassEntry* ClassTable::Find(std::string_view name) noexcept {
    if (!name.empty() && name.front() == '{') {
        const auto clsid = TryParseGuid(name);
        return clsid ? Find(*clsid) : nullptr;
    }
    Table& table = TheTable();
    std::lock_guard lock(table.mutex);
    for (const ClassEntry& entry : table.entries)
        if (EqualsIgnoringCase(name, entry.coclass->progId) ||
            EqualsIgnoringCase(name, entry.coclass->versionIndependentProgId))
            return &entry;
    return nullptr;
}

std::vector<ClassEntry> ClassTable::Entries() {
    Table& table = TheTable();
    std::lock_guard lock(table.mutex);
    return std::vector<ClassEntry>(table.entries.begin(), table.entries.end());
}

HRESULT ClassTable::GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    const ClassEntry* entry = Find(clsid);
    if (!entry || !entry->create) return CLASS_E_CLASSNOTAVAILABLE;
    auto factory = ComPtr<ClassFactory>::Attach(ClassFactory::Create(*entry));
    if (!factory) return E_OUTOFMEMORY;
    return factory->QueryInterface(riid, ppv);
}

namespace {

HRESULT CreateFrom(const ClassEntry& entry, std::string_view asked, REFIID riid, void** ppv) noexcept {
    if (!entry.create) {
        try {
            return SetErrorInfo(CLASS_E_CLASSNOTAVAILABLE,
                                Text({"The class ", entry.coclass->name, " ('", asked, "') cannot be created by clients"}),
                                kSource, GUID_NULL);
        } catch (const std::bad_alloc&) {
            return CLASS_E_CLASSNOTAVAILABLE;
        }
    }
    ClearErrorInfo();
    return entry.create(riid, ppv);
}

}  // namespace

HRESULT CreateObject(std::string_view progIdOrClsid, REFIID riid, void** ppv) noexcept {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    try {
        const bool braced = !progIdOrClsid.empty() && progIdOrClsid.front() == '{';
        if (braced ? !TryParseGuid(progIdOrClsid) : !IsWellFormedProgId(progIdOrClsid))
            return SetErrorInfo(CO_E_CLASSSTRING,
                                Text({"'", progIdOrClsid, "' is neither a ProgID nor a class ID in braces"}),
                                kSource, GUID_NULL);
        const ClassEntry* entry = ClassTable::Find(progIdOrClsid);
        if (!entry)
            return SetErrorInfo(REGDB_E_CLASSNOTREG, Text({"No class is registered as '", progIdOrClsid, "'"}),
                                kSource, GUID_NULL);
        return CreateFrom(*entry, progIdOrClsid, riid, ppv);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CreateObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    try {
        const ClassEntry* entry = ClassTable::Find(clsid);
        if (!entry)
            return SetErrorInfo(REGDB_E_CLASSNOTREG, Text({"No class is registered as '", FormatGuid(clsid), "'"}), kSource,
                                GUID_NULL);
        // The class ID as text only names the class in a refusal: not formatted for a success.
        if (!entry->create) return CreateFrom(*entry, FormatGuid(clsid), riid, ppv);
        return CreateFrom(*entry, {}, riid, ppv);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace tessaly
