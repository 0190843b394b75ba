// IDispatch over the generated type information of a coclass. One dispatcher is built per
// coclass, on first use, and shared by every object of the class: it maps names to DISPIDs
// (case-insensitively) and DISPIDs to members, and runs Invoke by converting the VARIANT
// arguments and calling the member's thunk.
//
// Which member a name or DISPID means: every non-source interface of the coclass whose
// members have thunks takes part, with its base interfaces; a [local] interface, called
// from C++ alone, takes no part (QueryInterface still answers it and its bases). The default interface is
// entered first and wins a name or DISPID that occurs in several interfaces.
//
// Invoke follows the rules automation clients rely on:
//  - rgvarg holds the arguments last-first; named arguments (their positions in
//    rgdispidNamedArgs) come first in rgvarg. A DISPID of a named argument is the
//    parameter's position, as GetIDsOfNames hands it out.
//  - DISPATCH_METHOD and DISPATCH_PROPERTYGET may be combined: a method is called when
//    METHOD is set, a property get when GET is set.
//  - A put or putref takes its value as the named argument DISPID_PROPERTYPUT; index
//    arguments come positionally. A put on a property that has only a putref calls the
//    putref; a putref on a property that has only a put calls the put when the value
//    parameter holds an object (VT_DISPATCH, VT_UNKNOWN or VT_VARIANT).
//  - By-reference arguments are read through for [in] parameters. [out] and [in,out]
//    parameters must come as VT_BYREF|vt or VT_BYREF|VT_VARIANT; after a successful call
//    the new value replaces (and frees) what the reference held. After a failed call the
//    references are left untouched.
//  - A missing optional argument (absent, or VT_ERROR with DISP_E_PARAMNOTFOUND) takes its
//    defaultvalue; a VARIANT parameter without one receives VT_ERROR/DISP_E_PARAMNOTFOUND,
//    any other type its zero value.
//  - Failures and *puArgErr: DISP_E_MEMBERNOTFOUND (no member with that DISPID and kind),
//    DISP_E_BADPARAMCOUNT (more positional arguments than parameters),
//    DISP_E_PARAMNOTOPTIONAL (*puArgErr = position of the missing parameter),
//    DISP_E_PARAMNOTFOUND (*puArgErr = index in rgvarg of a named argument that names no
//    parameter or one already given), DISP_E_TYPEMISMATCH / DISP_E_OVERFLOW (*puArgErr =
//    index in rgvarg of the argument that does not convert).
//  - pVarResult is emptied first (not cleared: the caller passes an empty or uninitialised
//    VARIANT) and receives the retval; without pVarResult the retval is released.
//  - A member that fails makes Invoke return DISP_E_EXCEPTION with EXCEPINFO filled from
//    the thread's error info (scode = the member's HRESULT); with no EXCEPINFO the member's
//    HRESULT is returned and the error info stays for GetErrorInfo.
//
// A call with up to kInlineArguments parameters allocates nothing unless a conversion does.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly {

class Dispatcher {
public:
    // The object's pointer for one of its interfaces (what QueryInterface would return),
    // without a reference; nullptr when the object does not implement it.
    using InterfaceFinder = void* (*)(void* object, const IID& iid) noexcept;

    static constexpr unsigned kInlineArguments = 16;

    // The dispatcher of a coclass, built on first request and kept for the life of the
    // process; nullptr only when out of memory. Safe to call from any thread.
    static const Dispatcher* For(const CoClassInfo& coclass) noexcept;

    const CoClassInfo& CoClass() const noexcept { return *coclass_; }
    // The [default] interface (else the first non-source one), nullptr if none.
    const InterfaceInfo* DefaultInterface() const noexcept { return defaultInterface_; }
    // The [default, source] interface (else the first source one), nullptr if none.
    const InterfaceInfo* DefaultSourceInterface() const noexcept { return defaultSource_; }
    // Whether iid is one of the coclass's non-source interfaces or one of their bases.
    bool Implements(const IID& iid) const noexcept;
    // The coclass interface that has iid as itself or as a base; nullptr when none.
    const InterfaceInfo* ImplementingInterface(const IID& iid) const noexcept;

    // The member with that DISPID and kind (INVOKE_*), nullptr when none.
    const MemberInfo* FindMember(DISPID dispid, uint16_t invokeKind) const noexcept;
    // The DISPID of a member name (any case), DISPID_UNKNOWN when none.
    DISPID FindName(std::string_view name) const noexcept;

    // IDispatch::GetIDsOfNames without riid and lcid: names[0] is a member, the further
    // names are parameters of that member and get their positions.
    HRESULT GetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) const noexcept;

    // IDispatch::Invoke on `object`, whose interface pointers `find` supplies.
    HRESULT Invoke(void* object, InterfaceFinder find, DISPID dispid, WORD flags, DISPPARAMS* params,
                   VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) const noexcept;

    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

private:
    // One member of one kind: what to call and on which interface.
    struct Target {
        const MemberInfo* member = nullptr;
        const IID* iid = nullptr;         // the coclass interface whose pointer the thunk receives
        const VARIANT* defaults = nullptr;  // one per parameter (VT_EMPTY: none or unusable)
        uint16_t visibleCount = 0;        // parameters that take arguments (all but the retval)
    };
    struct Entry {
        DISPID dispid = 0;
        Target func, get, put, putref;
    };
    // A member name in the name index; the text points into the static tables.
    struct NameSlot {
        const char* name = nullptr;  // nullptr: empty slot
        uint32_t length = 0;
        uint32_t hash = 0;
        DISPID dispid = DISPID_UNKNOWN;
    };

    explicit Dispatcher(const CoClassInfo& coclass);
    void AddInterface(const InterfaceInfo& iface, const IID& implementing);
    void AddMember(const MemberInfo& member, const IID& implementing);
    const VARIANT* BuildDefaults(const MemberInfo& member);
    void BuildIndex();
    void AddName(const char* name, DISPID dispid);
    const Entry* Lookup(DISPID dispid) const noexcept;
    const Target* Select(const Entry& entry, WORD flags) const noexcept;

    const CoClassInfo* coclass_;
    const InterfaceInfo* defaultInterface_ = nullptr;
    const InterfaceInfo* defaultSource_ = nullptr;
    std::vector<Entry> entries_;
    // Open addressing over entries_: slot -> entry index + 1 (0 = empty).
    std::vector<uint32_t> slots_;
    uint32_t slotMask_ = 0;
    // Open addressing over member names, ASCII case folded; the first name entered wins.
    std::vector<NameSlot> names_;
    uint32_t nameMask_ = 0;
    size_t nameCount_ = 0;
    std::vector<std::unique_ptr<VARIANT[]>> defaults_;
    std::vector<size_t> defaultCounts_;
};

}  // namespace tessaly
