#include "platform/Dispatcher.h"

#include <charconv>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/TypeLibraryRegistry.h"
#include "platform/Variant.h"

namespace tessaly {

namespace {

constexpr char FoldAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualFolded(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
    return true;
}

bool IsInterfaceType(VARTYPE vt) { return vt == VT_DISPATCH || vt == VT_UNKNOWN; }

VARIANT ZeroOf(VARTYPE vt) {
    VARIANT v{};
    v.vt = vt == VT_VARIANT ? VARTYPE(VT_EMPTY) : vt;
    return v;
}

// A shallow view of what a typed reference points at: same bits, no ownership.
bool ReadReference(const VARIANT& ref, VARIANT& out) {
    const VARTYPE vt = static_cast<VARTYPE>(ref.vt & ~VT_BYREF);
    const size_t size = ReferencedValueSize(vt);
    if (size == 0 || !ref.byref) return false;
    out = VARIANT{};
    out.vt = vt;
    // Every union member starts at the same offset, so the bytes land in the right field.
    std::memcpy(&out.llVal, ref.byref, size);
    return true;
}

void WriteReference(const VARIANT& ref, const VARIANT& value) {
    std::memcpy(ref.byref, &value.llVal, ReferencedValueSize(value.vt));
}

// Reads through one VT_BYREF|VT_VARIANT and one typed reference, as clients that pass
// their variables by reference expect. The result is a shallow view.
bool Resolve(const VARIANT& given, VARIANT& out) {
    const VARIANT* v = &given;
    if (v->vt == (VT_BYREF | VT_VARIANT)) {
        if (!v->pvarVal) return false;
        v = v->pvarVal;
    }
    if (v->vt & VT_BYREF) return ReadReference(*v, out);
    out = *v;
    return true;
}

HRESULT CoercionFailure(HRESULT hr) {
    return hr == DISP_E_OVERFLOW || hr == E_OUTOFMEMORY ? hr : DISP_E_TYPEMISMATCH;
}

enum class Mode : uint8_t {
    Borrowed,    // shallow copy of the caller's value or of a default: not ours to free
    Owned,       // converted or copied: cleared after the call
    OutTyped,    // owned; written back through a VT_BYREF|vt reference
    OutVariant,  // owned; written back into the VARIANT of a VT_BYREF|VT_VARIANT reference
};

// The argument block of one call. Up to kInlineArguments parameters live on the stack;
// the destructor frees whatever the call still owns, on every path.
class CallFrame {
public:
    explicit CallFrame(unsigned count) : count_(count) {}
    CallFrame(const CallFrame&) = delete;
    CallFrame& operator=(const CallFrame&) = delete;

    bool Allocate() noexcept {
        if (count_ <= Dispatcher::kInlineArguments) {
            args_ = inlineArgs_;
            modes_ = inlineModes_;
            sources_ = inlineSources_;
            return true;
        }
        heapArgs_.reset(new (std::nothrow) VARIANT[count_]);
        heapModes_.reset(new (std::nothrow) Mode[count_]);
        heapSources_.reset(new (std::nothrow) int32_t[count_]);
        args_ = heapArgs_.get();
        modes_ = heapModes_.get();
        sources_ = heapSources_.get();
        return args_ && modes_ && sources_;
    }

    ~CallFrame() {
        for (unsigned i = 0; i < prepared_; ++i)
            if (modes_[i] != Mode::Borrowed) VariantClear(&args_[i]);
    }

    VARIANT* args() { return args_; }
    Mode* modes() { return modes_; }
    int32_t* sources() { return sources_; }
    // Marks argument i as initialised, so that the destructor considers it.
    void Prepared(unsigned i) {
        modes_[i] = Mode::Borrowed;
        args_[i] = VARIANT{};
        prepared_ = i + 1;
    }

private:
    unsigned count_;
    unsigned prepared_ = 0;
    VARIANT* args_ = nullptr;
    Mode* modes_ = nullptr;
    int32_t* sources_ = nullptr;
    VARIANT inlineArgs_[Dispatcher::kInlineArguments];
    Mode inlineModes_[Dispatcher::kInlineArguments];
    int32_t inlineSources_[Dispatcher::kInlineArguments];
    std::unique_ptr<VARIANT[]> heapArgs_;
    std::unique_ptr<Mode[]> heapModes_;
    std::unique_ptr<int32_t[]> heapSources_;
};

// An [in] argument converted to the parameter's type.
HRESULT PrepareIn(const ParamInfo& param, const VARIANT& given, VARIANT& arg, Mode& mode) {
    VARIANT value;
    if (!Resolve(given, value)) return DISP_E_TYPEMISMATCH;
    if (param.vt == VT_VARIANT) {
        arg = value;
        return S_OK;
    }
    if (param.iid && IsInterfaceType(param.vt)) {
        IUnknown* unknown = nullptr;
        switch (value.vt) {
        case VT_UNKNOWN:
        case VT_DISPATCH:
            unknown = value.punkVal;
            break;
        case VT_EMPTY:
        case VT_NULL:
            break;
        default:
            return DISP_E_TYPEMISMATCH;
        }
        arg = ZeroOf(param.vt);
        if (!unknown) return S_OK;
        void* specific = nullptr;
        if (FAILED(unknown->QueryInterface(*param.iid, &specific)) || !specific) return DISP_E_TYPEMISMATCH;
        arg.punkVal = static_cast<IUnknown*>(specific);
        mode = Mode::Owned;
        return S_OK;
    }
    if (value.vt == param.vt) {
        arg = value;
        return S_OK;
    }
    const HRESULT hr = VariantChangeType(&arg, &value, 0, param.vt);
    if (FAILED(hr)) {
        arg = VARIANT{};
        return CoercionFailure(hr);
    }
    mode = Mode::Owned;
    return S_OK;
}

// An [out] or [in,out] argument: a reference to write back to, and the value the callee
// starts from (its own copy, which it may free and replace).
HRESULT PrepareOut(const ParamInfo& param, const VARIANT& given, VARIANT& arg, Mode& mode) {
    Mode target;
    if (given.vt == (VT_BYREF | VT_VARIANT)) {
        if (!given.pvarVal) return DISP_E_TYPEMISMATCH;
        target = Mode::OutVariant;
    } else if (param.vt != VT_VARIANT && given.vt == (VT_BYREF | param.vt) && ReferencedValueSize(param.vt) != 0) {
        if (!given.byref) return DISP_E_TYPEMISMATCH;
        target = Mode::OutTyped;
    } else {
        return DISP_E_TYPEMISMATCH;
    }
    if (param.flags & PARAMFLAG_FIN) {
        Mode inMode = Mode::Borrowed;
        const HRESULT hr = PrepareIn(param, given, arg, inMode);
        if (FAILED(hr)) return hr;
        if (inMode == Mode::Borrowed) {
            // The callee may free what it receives: give it a copy of its own.
            const VARIANT view = arg;
            arg = VARIANT{};
            const HRESULT copied = VariantCopy(&arg, &view);
            if (FAILED(copied)) {
                arg = VARIANT{};
                return copied;
            }
        }
    } else {
        arg = ZeroOf(param.vt);
    }
    mode = target;
    return S_OK;
}

// A parameter the caller left out.
HRESULT PrepareMissing(const ParamInfo& param, const VARIANT* defaultValue, VARIANT& arg, Mode& mode) {
    if (param.flags & PARAMFLAG_FHASDEFAULT) {
        if (!defaultValue || defaultValue->vt == VT_EMPTY) return DISP_E_PARAMNOTOPTIONAL;
        if (!(param.flags & PARAMFLAG_FOUT)) {
            // [in] arguments are only read: the shared default can be lent as it is.
            arg = *defaultValue;
            return S_OK;
        }
        const HRESULT hr = VariantCopy(&arg, defaultValue);
        if (FAILED(hr)) {
            arg = VARIANT{};
            return hr;
        }
        mode = Mode::Owned;
        return S_OK;
    }
    if (param.flags & PARAMFLAG_FOPT) {
        if (param.vt == VT_VARIANT) {
            arg.vt = VT_ERROR;
            arg.scode = DISP_E_PARAMNOTFOUND;
        } else {
            arg = ZeroOf(param.vt);
        }
        // What the callee writes into an omitted [out] argument is ours to free.
        if (param.flags & PARAMFLAG_FOUT) mode = Mode::Owned;
        return S_OK;
    }
    return DISP_E_PARAMNOTOPTIONAL;
}

void FillExcepInfo(EXCEPINFO& info, HRESULT hr) {
    info = EXCEPINFO{};
    info.scode = hr;
    IErrorInfo* error = nullptr;
    if (GetErrorInfo(0, &error) == S_OK && error) {
        error->GetSource(&info.bstrSource);
        error->GetDescription(&info.bstrDescription);
        error->GetHelpFile(&info.bstrHelpFile);
        error->GetHelpContext(&info.dwHelpContext);
        error->Release();
    }
}

// Calls the member's thunk on the object's pointer for its interface; the retval goes
// straight into the caller's VARIANT (already emptied): copying it afterwards would read
// back what the callee just stored in pieces.
inline HRESULT CallMember(const MemberInfo& member, const IID& iid, void* object, Dispatcher::InterfaceFinder find,
                          VARIANT* args, VARIANT* result, EXCEPINFO* excepInfo) noexcept {
    void* self = find(object, iid);
    if (!self) return DISP_E_MEMBERNOTFOUND;
    VARIANT discarded{};
    VARIANT* returned = result ? result : &discarded;
    // A failure must not be described by text an earlier call left behind.
    ClearErrorInfo();
    const HRESULT hr = member.thunk(self, args, returned);
    if (FAILED(hr)) {
        VariantClear(returned);
        if (!excepInfo) return hr;
        FillExcepInfo(*excepInfo, hr);
        return DISP_E_EXCEPTION;
    }
    if (!result && discarded.vt != VT_EMPTY) VariantClear(&discarded);
    return hr;
}

// The value of an enumeration member of any registered type library.
bool FindEnumValue(std::string_view name, int32_t& value) {
    for (const TypeLibraryInfo* library : TypeLibraryRegistry::Libraries()) {
        for (uint32_t e = 0; e < library->enumCount; ++e) {
            const EnumInfo& info = *library->enums[e];
            for (uint32_t m = 0; m < info.memberCount; ++m) {
                if (name == info.members[m].name) {
                    value = info.members[m].value;
                    return true;
                }
            }
        }
    }
    return false;
}

// The literal of a defaultvalue(...) as the VARIANT it reads as: a boolean word, an
// enumeration member, an integer (decimal or 0x hex), a real, else a string.
VARIANT ParseLiteral(std::string_view text) {
    VARIANT v{};
    if (text == "VARIANT_TRUE" || EqualFolded(text, "true")) {
        v.vt = VT_BOOL;
        v.boolVal = VARIANT_TRUE;
        return v;
    }
    if (text == "VARIANT_FALSE" || EqualFolded(text, "false")) {
        v.vt = VT_BOOL;
        v.boolVal = VARIANT_FALSE;
        return v;
    }
    int32_t enumValue = 0;
    if (!text.empty() && !(text[0] >= '0' && text[0] <= '9') && text[0] != '-' && text[0] != '+' && text[0] != '.' &&
        FindEnumValue(text, enumValue)) {
        v.vt = VT_I4;
        v.lVal = enumValue;
        return v;
    }
    std::string_view digits = text;
    bool negative = false;
    if (!digits.empty() && (digits[0] == '-' || digits[0] == '+')) {
        negative = digits[0] == '-';
        digits.remove_prefix(1);
    }
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        digits.remove_prefix(2);
    }
    int64_t integer = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), integer, base);
    if (ec == std::errc() && end == digits.data() + digits.size() && !digits.empty()) {
        integer = negative ? -integer : integer;
        if (integer >= INT32_MIN && integer <= INT32_MAX) {
            v.vt = VT_I4;
            v.lVal = static_cast<int32_t>(integer);
        } else {
            v.vt = VT_I8;
            v.llVal = integer;
        }
        return v;
    }
    double real = 0;
    auto [realEnd, realEc] = std::from_chars(text.data(), text.data() + text.size(), real);
    if (realEc == std::errc() && realEnd == text.data() + text.size() && !text.empty()) {
        v.vt = VT_R8;
        v.dblVal = real;
        return v;
    }
    v.vt = VT_BSTR;
    v.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!v.bstrVal) v.vt = VT_EMPTY;
    return v;
}

// The default of a parameter converted once to its type; VT_EMPTY when the literal does
// not convert, which makes the parameter required in practice.
VARIANT ConvertDefault(const ParamInfo& param) {
    VARIANT result{};
    const std::string_view text = param.defaultValue;
    if (IsInterfaceType(param.vt)) {
        result.vt = param.vt;  // the only default an object parameter can have is null
        return result;
    }
    if (param.vt == VT_BSTR) {
        result.vt = VT_BSTR;
        result.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        if (!result.bstrVal) result.vt = VT_EMPTY;
        return result;
    }
    VARIANT literal = ParseLiteral(text);
    if (param.vt == VT_VARIANT) return literal;
    if (literal.vt != VT_EMPTY && FAILED(VariantChangeType(&result, &literal, 0, param.vt))) result = VARIANT{};
    VariantClear(&literal);
    return result;
}

}  // namespace

namespace {
// FNV-1a over the ASCII-folded bytes.
uint32_t HashFolded(std::string_view text) {
    uint32_t hash = 2166136261u;
    for (char c : text) {
        hash ^= static_cast<unsigned char>(FoldAscii(c));
        hash *= 16777619u;
    }
    return hash;
}
}  // namespace

const Dispatcher* Dispatcher::For(const CoClassInfo& coclass) noexcept {
    // Never destroyed: objects may still dispatch while static destructors run.
    static std::mutex* mutex = new std::mutex;
    static auto* cache = new std::unordered_map<const CoClassInfo*, Dispatcher*>;
    try {
        std::lock_guard lock(*mutex);
        auto& slot = (*cache)[&coclass];
        if (!slot) slot = new Dispatcher(coclass);
        return slot;
    } catch (...) {
        return nullptr;
    }
}

Dispatcher::Dispatcher(const CoClassInfo& coclass) : coclass_(&coclass) {
    const CoClassInterface* firstSource = nullptr;
    const CoClassInterface* firstOther = nullptr;
    for (uint16_t i = 0; i < coclass.interfaceCount; ++i) {
        const CoClassInterface& entry = coclass.interfaces[i];
        const bool source = entry.flags & IMPLTYPEFLAG_FSOURCE;
        const bool isDefault = entry.flags & IMPLTYPEFLAG_FDEFAULT;
        // C++ alone calls a [local] interface: it is neither a default nor dispatched.
        if (entry.iface->kind == InterfaceKind::Local) continue;
        if (source) {
            if (!firstSource) firstSource = &entry;
            if (isDefault && !defaultSource_) defaultSource_ = entry.iface;
        } else {
            if (!firstOther) firstOther = &entry;
            if (isDefault && !defaultInterface_) defaultInterface_ = entry.iface;
        }
    }
    if (!defaultSource_ && firstSource) defaultSource_ = firstSource->iface;
    if (!defaultInterface_ && firstOther) defaultInterface_ = firstOther->iface;

    // The default interface first: what it enters cannot be taken over by another.
    if (defaultInterface_) AddInterface(*defaultInterface_, defaultInterface_->iid);
    for (uint16_t i = 0; i < coclass.interfaceCount; ++i) {
        const CoClassInterface& entry = coclass.interfaces[i];
        if ((entry.flags & IMPLTYPEFLAG_FSOURCE) || entry.iface == defaultInterface_ ||
            entry.iface->kind == InterfaceKind::Local)
            continue;
        AddInterface(*entry.iface, entry.iface->iid);
    }
    BuildIndex();
}

Dispatcher::~Dispatcher() {
    for (size_t i = 0; i < defaults_.size(); ++i)
        for (size_t k = 0; k < defaultCounts_[i]; ++k) VariantClear(&defaults_[i][k]);
}

void Dispatcher::AddInterface(const InterfaceInfo& iface, const IID& implementing) {
    // Base members are called through the derived interface's pointer: single
    // inheritance puts the base vtable at its start.
    for (const InterfaceInfo* level = &iface; level; level = level->base)
        for (uint16_t m = 0; m < level->memberCount; ++m) AddMember(level->members[m], implementing);
}

void Dispatcher::AddMember(const MemberInfo& member, const IID& implementing) {
    if (!member.thunk) return;
    Entry* entry = nullptr;
    for (Entry& existing : entries_)
        if (existing.dispid == member.dispid) entry = &existing;
    if (!entry) {
        entry = &entries_.emplace_back();
        entry->dispid = member.dispid;
    }
    Target* target = member.invokeKind == INVOKE_PROPERTYGET      ? &entry->get
                     : member.invokeKind == INVOKE_PROPERTYPUT    ? &entry->put
                     : member.invokeKind == INVOKE_PROPERTYPUTREF ? &entry->putref
                                                                  : &entry->func;
    if (target->member) return;
    target->member = &member;
    target->iid = &implementing;
    const bool hasRetval =
        member.paramCount > 0 && (member.params[member.paramCount - 1].flags & PARAMFLAG_FRETVAL);
    target->visibleCount = static_cast<uint16_t>(member.paramCount - (hasRetval ? 1 : 0));
    target->defaults = BuildDefaults(member);
    AddName(member.name, member.dispid);
}

const VARIANT* Dispatcher::BuildDefaults(const MemberInfo& member) {
    bool any = false;
    for (uint16_t k = 0; k < member.paramCount; ++k)
        any = any || ((member.params[k].flags & PARAMFLAG_FHASDEFAULT) && member.params[k].defaultValue);
    if (!any) return nullptr;
    std::unique_ptr<VARIANT[]> values(new VARIANT[member.paramCount]());
    defaultCounts_.reserve(defaultCounts_.size() + 1);
    for (uint16_t k = 0; k < member.paramCount; ++k) {
        const ParamInfo& param = member.params[k];
        if ((param.flags & PARAMFLAG_FHASDEFAULT) && param.defaultValue) values[k] = ConvertDefault(param);
    }
    defaultCounts_.push_back(member.paramCount);
    defaults_.push_back(std::move(values));
    return defaults_.back().get();
}

namespace {
uint32_t HashDispid(DISPID dispid) {
    uint32_t h = static_cast<uint32_t>(dispid) * 0x9E3779B1u;
    return h ^ (h >> 15);
}
}  // namespace

void Dispatcher::AddName(const char* name, DISPID dispid) {
    if ((nameCount_ + 1) * 2 > names_.size()) {
        // Grow to keep the table at most half full, entering the names again.
        std::vector<NameSlot> previous = std::move(names_);
        names_.assign(previous.empty() ? 16 : previous.size() * 2, NameSlot{});
        nameMask_ = static_cast<uint32_t>(names_.size() - 1);
        nameCount_ = 0;
        for (const NameSlot& slot : previous)
            if (slot.name) AddName(slot.name, slot.dispid);
    }
    const std::string_view text(name);
    const uint32_t hash = HashFolded(text);
    uint32_t index = hash & nameMask_;
    for (; names_[index].name; index = (index + 1) & nameMask_)
        if (names_[index].hash == hash && EqualFolded({names_[index].name, names_[index].length}, text)) return;
    names_[index] = NameSlot{name, static_cast<uint32_t>(text.size()), hash, dispid};
    ++nameCount_;
}

void Dispatcher::BuildIndex() {
    uint32_t capacity = 8;
    while (capacity < entries_.size() * 2) capacity *= 2;
    slots_.assign(capacity, 0);
    slotMask_ = capacity - 1;
    for (uint32_t i = 0; i < entries_.size(); ++i) {
        uint32_t slot = HashDispid(entries_[i].dispid) & slotMask_;
        while (slots_[slot] != 0) slot = (slot + 1) & slotMask_;
        slots_[slot] = i + 1;
    }
}

const Dispatcher::Entry* Dispatcher::Lookup(DISPID dispid) const noexcept {
    uint32_t slot = HashDispid(dispid) & slotMask_;
    for (;;) {
        const uint32_t index = slots_[slot];
        if (index == 0) return nullptr;
        if (entries_[index - 1].dispid == dispid) return &entries_[index - 1];
        slot = (slot + 1) & slotMask_;
    }
}

const Dispatcher::Target* Dispatcher::Select(const Entry& entry, WORD flags) const noexcept {
    if (flags & DISPATCH_PROPERTYPUT) {
        if (entry.put.member) return &entry.put;
        // Clients that assign an object without saying "by reference" still mean it.
        if (entry.putref.member) return &entry.putref;
        return nullptr;
    }
    if (flags & DISPATCH_PROPERTYPUTREF) {
        if (entry.putref.member) return &entry.putref;
        const Target& put = entry.put;
        if (put.member && put.visibleCount > 0) {
            const VARTYPE vt = put.member->params[put.visibleCount - 1].vt;
            if (IsInterfaceType(vt) || vt == VT_VARIANT) return &put;
        }
        return nullptr;
    }
    if ((flags & DISPATCH_METHOD) && entry.func.member) return &entry.func;
    if ((flags & DISPATCH_PROPERTYGET) && entry.get.member) return &entry.get;
    return nullptr;
}

const MemberInfo* Dispatcher::FindMember(DISPID dispid, uint16_t invokeKind) const noexcept {
    const Entry* entry = Lookup(dispid);
    if (!entry) return nullptr;
    switch (invokeKind) {
    case INVOKE_FUNC:
        return entry->func.member;
    case INVOKE_PROPERTYGET:
        return entry->get.member;
    case INVOKE_PROPERTYPUT:
        return entry->put.member;
    case INVOKE_PROPERTYPUTREF:
        return entry->putref.member;
    default:
        return nullptr;
    }
}

DISPID Dispatcher::FindName(std::string_view name) const noexcept {
    if (names_.empty()) return DISPID_UNKNOWN;
    const uint32_t hash = HashFolded(name);
    for (uint32_t index = hash & nameMask_; names_[index].name; index = (index + 1) & nameMask_) {
        const NameSlot& slot = names_[index];
        if (slot.hash == hash && EqualFolded({slot.name, slot.length}, name)) return slot.dispid;
    }
    return DISPID_UNKNOWN;
}

const InterfaceInfo* Dispatcher::ImplementingInterface(const IID& iid) const noexcept {
    for (uint16_t i = 0; i < coclass_->interfaceCount; ++i) {
        const CoClassInterface& entry = coclass_->interfaces[i];
        if (entry.flags & IMPLTYPEFLAG_FSOURCE) continue;
        for (const InterfaceInfo* level = entry.iface; level; level = level->base)
            if (level->iid == iid) return entry.iface;
    }
    return nullptr;
}

bool Dispatcher::Implements(const IID& iid) const noexcept { return ImplementingInterface(iid) != nullptr; }

HRESULT Dispatcher::GetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) const noexcept {
    if (count == 0) return S_OK;
    if (!names || !ids) return E_INVALIDARG;
    for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
    if (!names[0]) return DISP_E_UNKNOWNNAME;
    const DISPID dispid = FindName(names[0]);
    if (dispid == DISPID_UNKNOWN) return DISP_E_UNKNOWNNAME;
    ids[0] = dispid;
    if (count == 1) return S_OK;
    const Entry& entry = *Lookup(dispid);
    HRESULT hr = S_OK;
    for (UINT i = 1; i < count; ++i) {
        if (names[i]) {
            // A parameter name may belong to any kind of the member: the index of a property
            // appears in its get and put alike, the value only in the put.
            for (const Target* target : {&entry.func, &entry.get, &entry.put, &entry.putref}) {
                if (!target->member) continue;
                for (uint16_t k = 0; k < target->visibleCount && ids[i] == DISPID_UNKNOWN; ++k)
                    if (EqualFolded(names[i], target->member->params[k].name)) ids[i] = k;
            }
        }
        if (ids[i] == DISPID_UNKNOWN) hr = DISP_E_UNKNOWNNAME;
    }
    return hr;
}

HRESULT Dispatcher::Invoke(void* object, InterfaceFinder find, DISPID dispid, WORD flags, DISPPARAMS* params,
                           VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) const noexcept {
    if (!params) return E_INVALIDARG;
    const UINT argCount = params->cArgs;
    const UINT namedCount = params->cNamedArgs;
    if ((argCount && !params->rgvarg) || namedCount > argCount || (namedCount && !params->rgdispidNamedArgs))
        return E_INVALIDARG;
    const Entry* entry = Lookup(dispid);
    if (!entry) return DISP_E_MEMBERNOTFOUND;
    const Target* target = Select(*entry, flags);
    if (!target) return DISP_E_MEMBERNOTFOUND;
    if (result) *result = VARIANT{};

    const MemberInfo& member = *target->member;
    const unsigned visible = target->visibleCount;
    const bool isPut = member.invokeKind & (INVOKE_PROPERTYPUT | INVOKE_PROPERTYPUTREF);
    // The value of a put comes only by name; positional arguments are its indices.
    const unsigned positionalLimit = isPut && visible > 0 ? visible - 1 : visible;
    const UINT positional = argCount - namedCount;
    if (positional > positionalLimit) return DISP_E_BADPARAMCOUNT;

    // The shapes of nearly every property access, without the general argument block: no
    // parameter at all, or one [in] parameter given (by name for a put) with exactly its
    // type, which the callee only reads.
    if (visible == 0 && argCount == 0) return CallMember(member, *target->iid, object, find, nullptr, result, excepInfo);
    if (visible == 1 && argCount == 1 &&
        (isPut ? namedCount == 1 && params->rgdispidNamedArgs[0] == DISPID_PROPERTYPUT : namedCount == 0)) {
        const ParamInfo& param = member.params[0];
        const VARIANT& given = params->rgvarg[0];
        if (given.vt == param.vt && given.vt != VT_ERROR && !(param.flags & PARAMFLAG_FOUT) &&
            !(param.iid && IsInterfaceType(param.vt))) {
            VARIANT arg = given;
            return CallMember(member, *target->iid, object, find, &arg, result, excepInfo);
        }
    }

    CallFrame frame(visible);
    if (!frame.Allocate()) return E_OUTOFMEMORY;
    VARIANT* args = frame.args();
    Mode* modes = frame.modes();
    int32_t* sources = frame.sources();
    // One pass, so that it is not turned into a memset whose wide stores the loads below
    // would have to wait for.
    for (unsigned k = 0; k < visible; ++k) sources[k] = k < positional ? static_cast<int32_t>(argCount - 1 - k) : -1;
    for (UINT j = 0; j < namedCount; ++j) {
        const DISPID name = params->rgdispidNamedArgs[j];
        unsigned position;
        if (name == DISPID_PROPERTYPUT && isPut && visible > 0) {
            position = visible - 1;
        } else if (name >= 0 && static_cast<unsigned>(name) < visible) {
            position = static_cast<unsigned>(name);
        } else {
            if (argErr) *argErr = j;
            return DISP_E_PARAMNOTFOUND;
        }
        if (sources[position] != -1) {
            if (argErr) *argErr = j;
            return DISP_E_PARAMNOTFOUND;
        }
        sources[position] = static_cast<int32_t>(j);
    }

    for (unsigned k = 0; k < visible; ++k) {
        const ParamInfo& param = member.params[k];
        frame.Prepared(k);
        const VARIANT* given = sources[k] >= 0 ? &params->rgvarg[sources[k]] : nullptr;
        // Clients mark an omitted optional argument with this value.
        if (given && (param.flags & (PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT)) && given->vt == VT_ERROR &&
            given->scode == DISP_E_PARAMNOTFOUND)
            given = nullptr;
        // The common case first: an [in] argument of exactly the parameter's type.
        if (given && given->vt == param.vt && !(param.flags & PARAMFLAG_FOUT) &&
            !(param.iid && IsInterfaceType(param.vt))) {
            args[k] = *given;
            continue;
        }
        HRESULT hr;
        if (!given) {
            hr = PrepareMissing(param, target->defaults ? &target->defaults[k] : nullptr, args[k], modes[k]);
            if (FAILED(hr)) {
                if (argErr && hr == DISP_E_PARAMNOTOPTIONAL) *argErr = k;
                return hr;
            }
            continue;
        }
        hr = (param.flags & PARAMFLAG_FOUT) ? PrepareOut(param, *given, args[k], modes[k])
                                            : PrepareIn(param, *given, args[k], modes[k]);
        if (FAILED(hr)) {
            if (argErr && (hr == DISP_E_TYPEMISMATCH || hr == DISP_E_OVERFLOW))
                *argErr = static_cast<UINT>(sources[k]);
            return hr;
        }
    }

    const HRESULT hr = CallMember(member, *target->iid, object, find, args, result, excepInfo);
    if (FAILED(hr)) return hr;
    for (unsigned k = 0; k < visible; ++k) {
        if (modes[k] == Mode::OutVariant) {
            VARIANT* destination = params->rgvarg[sources[k]].pvarVal;
            VariantClear(destination);
            *destination = args[k];
            modes[k] = Mode::Borrowed;
        } else if (modes[k] == Mode::OutTyped) {
            const VARIANT& reference = params->rgvarg[sources[k]];
            VARIANT previous;
            if (ReadReference(reference, previous)) VariantClear(&previous);
            WriteReference(reference, args[k]);
            modes[k] = Mode::Borrowed;
        }
    }
    return hr;
}

}  // namespace tessaly
