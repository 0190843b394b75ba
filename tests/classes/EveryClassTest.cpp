// Every class of the class table, created and driven through dispatch as a late-bound client
// would: it answers QueryInterface for each interface its coclass names, and every member of
// each of those interfaces reaches the class's own code (a failure of the class is fine; the
// dispatcher's "no such member", "wrong arguments" or "no such interface" is not). Arguments
// are the zero value of each parameter's type (null objects, empty strings, empty variants),
// so the sweep also checks that no member falls over on them. A class added later is covered
// without touching this file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/Module.h"
#include "platform/SafeArray.h"
#include "platform/TypeLibraryRegistry.h"
#include "platform/Variant.h"

namespace tessaly::test {
namespace {

std::string Describe(const CoClassInfo& coclass, const InterfaceInfo& iface, const MemberInfo& member) {
    static const char* const kinds[] = {"", "method", "get", "", "put", "", "", "", "putref"};
    return std::string(coclass.name) + "." + iface.name + "::" + member.name + " (" +
           (member.invokeKind < 9 ? kinds[member.invokeKind] : "?") + ")";
}

// The dispatcher's own refusals: the call never reached the class.
bool RefusedByDispatch(HRESULT hr) {
    return hr == DISP_E_MEMBERNOTFOUND || hr == DISP_E_BADPARAMCOUNT || hr == DISP_E_PARAMNOTOPTIONAL ||
           hr == DISP_E_PARAMNOTFOUND || hr == DISP_E_TYPEMISMATCH || hr == DISP_E_BADVARTYPE ||
           hr == DISP_E_UNKNOWNINTERFACE || hr == DISP_E_NONAMEDARGS;
}

// The arguments of one call: each parameter's zero value, [out] ones by reference to a
// VARIANT that receives what the member writes.
class ZeroArguments {
public:
    explicit ZeroArguments(const MemberInfo& member) {
        for (uint16_t i = 0; i < member.paramCount; ++i) {
            const ParamInfo& param = member.params[i];
            if (param.flags & PARAMFLAG_FRETVAL) continue;
            VARIANT stored;
            VariantInit(&stored);
            if (param.vt != VT_VARIANT) stored.vt = param.vt;  // every union field zero
            stored_.push_back(stored);
            outs_.push_back((param.flags & PARAMFLAG_FOUT) != 0);
        }
        // The stored values do not move from here on: references may point into them.
        for (size_t i = 0; i < stored_.size(); ++i) {
            VARIANT arg;
            VariantInit(&arg);
            if (outs_[i]) {
                const VARTYPE vt = member.params[IndexOfVisible(member, i)].vt;
                if (vt == VT_VARIANT) {
                    arg.vt = VT_BYREF | VT_VARIANT;
                    arg.pvarVal = &stored_[i];
                } else {
                    arg.vt = VT_BYREF | vt;
                    arg.byref = &stored_[i].llVal;  // the union: every field starts here
                }
            } else {
                arg = stored_[i];  // a zero value owns nothing
            }
            args_.insert(args_.begin(), arg);  // dispatch takes the arguments last-first
        }
    }
    ~ZeroArguments() {
        for (VARIANT& stored : stored_) VariantClear(&stored);
    }
    ZeroArguments(const ZeroArguments&) = delete;
    ZeroArguments& operator=(const ZeroArguments&) = delete;

    DISPPARAMS Params(bool put) {
        DISPPARAMS params{args_.data(), nullptr, static_cast<UINT>(args_.size()), 0};
        if (put && !args_.empty()) {
            params.rgdispidNamedArgs = &putName_;
            params.cNamedArgs = 1;
        }
        return params;
    }

private:
    static uint16_t IndexOfVisible(const MemberInfo& member, size_t visible) {
        uint16_t seen = 0;
        for (uint16_t i = 0; i < member.paramCount; ++i) {
            if (member.params[i].flags & PARAMFLAG_FRETVAL) continue;
            if (seen++ == visible) return i;
        }
        return 0;
    }

    std::vector<VARIANT> stored_;
    std::vector<bool> outs_;
    std::vector<VARIANT> args_;
    DISPID putName_ = DISPID_PROPERTYPUT;
};

WORD InvokeFlags(uint16_t invokeKind) {
    switch (invokeKind) {
        case INVOKE_PROPERTYGET: return DISPATCH_PROPERTYGET;
        case INVOKE_PROPERTYPUT: return DISPATCH_PROPERTYPUT;
        case INVOKE_PROPERTYPUTREF: return DISPATCH_PROPERTYPUTREF;
        default: return DISPATCH_METHOD;
    }
}

// The interface and its bases, most derived first.
std::vector<const InterfaceInfo*> Chain(const InterfaceInfo& iface) {
    std::vector<const InterfaceInfo*> chain;
    for (const InterfaceInfo* at = &iface; at; at = at->base) chain.push_back(at);
    return chain;
}

bool HasThunks(const InterfaceInfo& iface) { return iface.memberCount > 0 && iface.members[0].thunk != nullptr; }

class EveryClassTest : public ::testing::Test {
protected:
    void SetUp() override { live_ = Module::LiveObjectCount(); }
    void TearDown() override { EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects leaked"; }

    static std::vector<ClassEntry> CreatableClasses() {
        std::vector<ClassEntry> classes;
        for (const ClassEntry& entry : ClassTable::Entries())
            if (entry.create) classes.push_back(entry);
        return classes;
    }

    size_t live_ = 0;
};

TEST_F(EveryClassTest, EveryCreatableCoClassOfTheLibraryIsInTheClassTable) {
    const TypeLibraryInfo* library = TypeLibraryRegistry::FindLibrary("TessalyCore");
    ASSERT_NE(library, nullptr);
    size_t creatable = 0;
    for (uint32_t c = 0; c < library->coclassCount; ++c) {
        const CoClassInfo& coclass = *library->coclasses[c];
        if (!coclass.creatable) continue;
        ++creatable;
        const ClassEntry* entry = ClassTable::Find(coclass.clsid);
        EXPECT_TRUE(entry && entry->create) << coclass.name << " is creatable but no class implements it";
        EXPECT_EQ(ClassTable::Find(coclass.progId), entry) << coclass.name;
        EXPECT_EQ(ClassTable::Find(coclass.versionIndependentProgId), entry) << coclass.name;
    }
    EXPECT_GE(creatable, 5u);
}

TEST_F(EveryClassTest, EveryClassAnswersEachInterfaceOfItsCoClassAndItsBases) {
    for (const ClassEntry& entry : CreatableClasses()) {
        const CoClassInfo& coclass = *entry.coclass;
        ComPtr<IUnknown> object;
        ASSERT_EQ(entry.create(IUnknown::iid, object.OutVoid()), S_OK) << coclass.name;
        for (uint16_t i = 0; i < coclass.interfaceCount; ++i) {
            const CoClassInterface& named = coclass.interfaces[i];
            if (named.flags & IMPLTYPEFLAG_FSOURCE) continue;
            for (const InterfaceInfo* iface : Chain(*named.iface)) {
                ComPtr<IUnknown> answered;
                EXPECT_EQ(object->QueryInterface(iface->iid, answered.OutVoid()), S_OK)
                    << coclass.name << " does not answer " << iface->name;
                // One identity whichever interface it was reached through.
                ComPtr<IUnknown> identity;
                if (answered) {
                    ASSERT_EQ(answered->QueryInterface(IUnknown::iid, identity.OutVoid()),
                              S_OK);
                    EXPECT_EQ(identity.get(), object.get()) << coclass.name << " through " << iface->name;
                }
            }
        }
    }
}

TEST_F(EveryClassTest, EveryMemberOfEveryInterfaceReachesTheClassThroughDispatch) {
    size_t calls = 0;
    for (const ClassEntry& entry : CreatableClasses()) {
        const CoClassInfo& coclass = *entry.coclass;
        for (uint16_t i = 0; i < coclass.interfaceCount; ++i) {
            const CoClassInterface& named = coclass.interfaces[i];
            if (named.flags & IMPLTYPEFLAG_FSOURCE) continue;
            for (const InterfaceInfo* iface : Chain(*named.iface)) {
                if (!HasThunks(*iface)) continue;
                for (uint16_t m = 0; m < iface->memberCount; ++m) {
                    const MemberInfo& member = iface->members[m];
                    const std::string where = Describe(coclass, *iface, member);
                    // A fresh object per call: an earlier member cannot prepare or spoil the next.
                    ComPtr<IDispatch> object;
                    ASSERT_EQ(entry.create(IDispatch::iid, object.OutVoid()), S_OK)
                        << coclass.name;

                    DISPID byName = DISPID_UNKNOWN;
                    Bstr name(member.name);
                    LPOLESTR names[] = {name.get()};
                    EXPECT_EQ(object->GetIDsOfNames(GUID_NULL, names, 1, 0, &byName), S_OK) << where;
                    EXPECT_EQ(byName, member.dispid) << where << ": the name finds another member";

                    ZeroArguments arguments(member);
                    const bool put = member.invokeKind == INVOKE_PROPERTYPUT ||
                                     member.invokeKind == INVOKE_PROPERTYPUTREF;
                    DISPPARAMS params = arguments.Params(put);
                    VARIANT result;
                    VariantInit(&result);
                    EXCEPINFO excep{};
                    UINT argErr = 0;
                    const HRESULT hr = object->Invoke(member.dispid, GUID_NULL, 0, InvokeFlags(member.invokeKind),
                                                      &params, &result, &excep, &argErr);
                    EXPECT_FALSE(RefusedByDispatch(hr))
                        << where << " never reached the class: 0x" << std::hex << static_cast<uint32_t>(hr);
                    if (hr == DISP_E_EXCEPTION) {
                        EXPECT_TRUE(FAILED(excep.scode)) << where;
                    }
                    SysFreeString(excep.bstrSource);
                    SysFreeString(excep.bstrDescription);
                    SysFreeString(excep.bstrHelpFile);
                    VariantClear(&result);
                    ++calls;
                }
            }
        }
    }
    EXPECT_GT(calls, 50u);
}

}  // namespace
}  // namespace tessaly::test
