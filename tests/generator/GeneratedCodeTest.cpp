// The generated code at run time: the thunks of the test type library called through its
// tables on a recording implementation, the shape of the tables, and the libraries'
// registration at load.
#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

#include "TessalyCore.h"
#include "TessalyTest.h"
#include "platform/TypeLibraryRegistry.h"

namespace tessaly::test {
namespace {

using tessaly::generated::Interface_ITestRaw;
using tessaly::generated::Interface_ITestShapes;

// Stands in for an object: records what each member received and answers with fixed
// values. Reference counting is counted, never acted on: thunks must not touch it.
class Recorder : public ITestShapes, public ITestRaw {
public:
    // IUnknown, IDispatch
    HRESULT QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++refs; }
    ULONG Release() override { return --refs; }
    HRESULT GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }

    // ITestShapes
    HRESULT get_Color(TestColorConstants* value) override {
        *value = testColorBlue;
        return answer;
    }
    HRESULT put_Color(TestColorConstants value) override {
        color = value;
        return answer;
    }
    HRESULT get_Owner(IDispatch** value) override {
        *value = owner;
        return answer;
    }
    HRESULT putref_Owner(IDispatch* value) override {
        owner = value;
        return answer;
    }
    HRESULT get_Cell(LONG r, LONG c, double* value) override {
        row = r;
        column = c;
        *value = 2.5;
        return answer;
    }
    HRESULT put_Cell(LONG r, LONG c, double value) override {
        row = r;
        column = c;
        number = value;
        return answer;
    }
    HRESULT Scale(double factor, VARIANT fallback, LONG n, BSTR label, double* scaled) override {
        number = factor;
        variant = fallback;
        count = n;
        text = label;
        *scaled = factor * 2;
        return answer;
    }
    HRESULT Checksum(SAFEARRAY* data, LONG* sum) override {
        array = data;
        *sum = 99;
        return answer;
    }
    HRESULT MakeBytes(LONG n, SAFEARRAY** bytes) override {
        count = n;
        *bytes = array;
        return answer;
    }
    HRESULT Split(BSTR whole, BSTR* head, VARIANT* tail, LONG* parts) override {
        text = whole;
        *head = headText;
        tail->vt = VT_I4;
        tail->lVal = 5;
        *parts = 2;
        return answer;
    }
    HRESULT Identify(IDispatch* object, IUnknown* unknown, VARIANT_BOOL* same) override {
        owner = object;
        other = unknown;
        *same = VARIANT_TRUE;
        return answer;
    }
    HRESULT Format(SHORT i2, float r4, DATE date, CY money, LONGLONG i8, BYTE ui1, int8_t i1, USHORT ui2, ULONG ui4,
                   SCODE code, BSTR* result) override {
        formatted = {i2, r4, date, money.int64, i8, ui1, i1, ui2, ui4, code};
        *result = headText;
        return answer;
    }
    HRESULT Pair(TestColorConstants c, TestColorConstants* complement, ITestGadget** gadget,
                 ITestWidget** widget) override {
        color = c;
        *complement = testColorGreen;
        *gadget = gadgetOut;
        *widget = widgetOut;
        return answer;
    }
    HRESULT Total(SAFEARRAY* values, VARIANT* total) override {
        array = values;
        total->vt = VT_R8;
        total->dblVal = 7.5;
        return answer;
    }
    HRESULT Load(IStream* s, IEnumVARIANT** items) override {
        stream = s;
        *items = nullptr;
        return answer;
    }
    HRESULT get__NewEnum(IUnknown** enumerator) override {
        *enumerator = other;
        return answer;
    }
    // ITestRaw
    HRESULT ByteSum(SAFEARRAY* data, LONG* sum) override { return Checksum(data, sum); }
    HRESULT Write(IStream* s, BSTR value) override {
        stream = s;
        text = value;
        return answer;
    }

    struct Scalars {
        SHORT i2;
        float r4;
        DATE date;
        LONGLONG cy;
        LONGLONG i8;
        BYTE ui1;
        int8_t i1;
        USHORT ui2;
        ULONG ui4;
        SCODE code;
    };

    HRESULT answer = S_OK;
    ULONG refs = 1;
    TestColorConstants color = testColorNone;
    IDispatch* owner = nullptr;
    IUnknown* other = nullptr;
    IStream* stream = nullptr;
    SAFEARRAY* array = nullptr;
    LONG row = -1, column = -1, count = -1;
    double number = 0;
    VARIANT variant{};
    BSTR text = nullptr;
    Scalars formatted{};
    char headText[4] = "abc";  // handed out as a BSTR pointer; never freed
    ITestGadget* gadgetOut = reinterpret_cast<ITestGadget*>(0x10);
    ITestWidget* widgetOut = reinterpret_cast<ITestWidget*>(0x20);
};

const MemberInfo& Member(const InterfaceInfo& iface, std::string_view name, uint16_t kind = INVOKE_FUNC) {
    for (uint16_t i = 0; i < iface.memberCount; ++i)
        if (name == iface.members[i].name && iface.members[i].invokeKind == kind) return iface.members[i];
    ADD_FAILURE() << iface.name << " has no member " << name;
    static const MemberInfo none{"", 0, 0, nullptr, 0, nullptr, nullptr};
    return none;
}

// Calls a member of ITestShapes the way the dispatcher does.
HRESULT CallShapes(Recorder& object, std::string_view name, VARIANT* args, VARIANT* result,
                   uint16_t kind = INVOKE_FUNC) {
    const MemberInfo& member = Member(Interface_ITestShapes, name, kind);
    if (!member.thunk) return E_UNEXPECTED;
    return member.thunk(static_cast<ITestShapes*>(&object), args, result);
}

VARIANT Of(VARTYPE vt) {
    VARIANT v{};
    v.vt = vt;
    return v;
}

TEST(GeneratedThunkTest, RetvalSetsTheResultTypeAndOutParametersLandInTheirFields) {
    Recorder object;
    char whole[] = "abc def";
    VARIANT args[3] = {Of(VT_BSTR), Of(VT_BSTR), Of(VT_VARIANT)};
    args[0].bstrVal = whole;
    VARIANT result{};
    ASSERT_EQ(CallShapes(object, "Split", args, &result), S_OK);
    EXPECT_EQ(object.text, whole);
    EXPECT_EQ(args[1].bstrVal, object.headText);
    EXPECT_EQ(args[2].vt, VT_I4) << "a VARIANT out parameter is the argument itself";
    EXPECT_EQ(args[2].lVal, 5);
    EXPECT_EQ(result.vt, VT_I4);
    EXPECT_EQ(result.lVal, 2);

    // A failing member leaves the result empty even when it wrote to it.
    object.answer = E_INVALIDARG;
    VARIANT failed{};
    EXPECT_EQ(CallShapes(object, "Split", args, &failed), E_INVALIDARG);
    EXPECT_EQ(failed.vt, VT_EMPTY);
    VARIANT total{};
    VARIANT arrayArg = Of(VT_ARRAY | VT_VARIANT);
    EXPECT_EQ(CallShapes(object, "Total", &arrayArg, &total), E_INVALIDARG);
    EXPECT_EQ(total.vt, VT_EMPTY);

    // A member's success code (not only S_OK) comes back as it is.
    object.answer = S_FALSE;
    EXPECT_EQ(CallShapes(object, "Total", &arrayArg, &total), S_FALSE);
    EXPECT_EQ(total.vt, VT_R8) << "a VARIANT retval is written by the member itself";
    EXPECT_EQ(total.dblVal, 7.5);
}

TEST(GeneratedThunkTest, EveryScalarTypeArrivesFromItsField) {
    Recorder object;
    VARIANT args[10] = {Of(VT_I2), Of(VT_R4),  Of(VT_DATE), Of(VT_CY),  Of(VT_I8),
                        Of(VT_UI1), Of(VT_I1), Of(VT_UI2), Of(VT_UI4), Of(VT_ERROR)};
    args[0].iVal = -2;
    args[1].fltVal = 1.25f;
    args[2].date = 45000.5;
    args[3].cyVal.int64 = 123456;
    args[4].llVal = -(1LL << 40);
    args[5].bVal = 200;
    args[6].cVal = -7;
    args[7].uiVal = 65000;
    args[8].ulVal = 4000000000u;
    args[9].scode = DISP_E_PARAMNOTFOUND;
    VARIANT result{};
    ASSERT_EQ(CallShapes(object, "Format", args, &result), S_OK);
    const Recorder::Scalars& f = object.formatted;
    EXPECT_EQ(f.i2, -2);
    EXPECT_EQ(f.r4, 1.25f);
    EXPECT_EQ(f.date, 45000.5);
    EXPECT_EQ(f.cy, 123456);
    EXPECT_EQ(f.i8, -(1LL << 40));
    EXPECT_EQ(f.ui1, 200);
    EXPECT_EQ(f.i1, -7);
    EXPECT_EQ(f.ui2, 65000);
    EXPECT_EQ(f.ui4, 4000000000u);
    EXPECT_EQ(f.code, DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(result.vt, VT_BSTR);
    EXPECT_EQ(result.bstrVal, object.headText);
}

TEST(GeneratedThunkTest, VariantsAreShallowAndOptionalArgumentsArriveInOrder) {
    Recorder object;
    char label[] = "x";
    VARIANT args[4] = {Of(VT_R8), Of(VT_I4), Of(VT_I4), Of(VT_BSTR)};
    args[0].dblVal = 1.5;
    args[1].lVal = -1;
    args[2].lVal = 4;
    args[3].bstrVal = label;
    VARIANT result{};
    ASSERT_EQ(CallShapes(object, "Scale", args, &result), S_OK);
    EXPECT_EQ(object.number, 1.5);
    EXPECT_EQ(object.variant.vt, VT_I4);
    EXPECT_EQ(object.variant.lVal, -1);
    EXPECT_EQ(object.count, 4);
    EXPECT_EQ(object.text, label);
    EXPECT_EQ(result.vt, VT_R8);
    EXPECT_EQ(result.dblVal, 3.0);
}

TEST(GeneratedThunkTest, EnumerationsAndInterfacesGoThroughLongAndUnknownFields) {
    Recorder object;
    VARIANT args[3] = {Of(VT_I4), Of(VT_I4), Of(VT_DISPATCH)};
    args[0].lVal = testColorRed;
    VARIANT result{};
    ASSERT_EQ(CallShapes(object, "Pair", args, &result), S_OK);
    EXPECT_EQ(object.color, testColorRed);
    EXPECT_EQ(args[1].lVal, testColorGreen);
    EXPECT_EQ(static_cast<void*>(args[2].punkVal), static_cast<void*>(object.gadgetOut));
    EXPECT_EQ(result.vt, VT_DISPATCH);
    EXPECT_EQ(static_cast<void*>(result.pdispVal), static_cast<void*>(object.widgetOut));

    VARIANT color = Of(VT_I4);
    color.lVal = testColorAll;
    ASSERT_EQ(CallShapes(object, "Color", &color, nullptr, INVOKE_PROPERTYPUT), S_OK);
    EXPECT_EQ(object.color, testColorAll);
    EXPECT_EQ(object.color, INT32_MIN);
    VARIANT got{};
    ASSERT_EQ(CallShapes(object, "Color", nullptr, &got, INVOKE_PROPERTYGET), S_OK);
    EXPECT_EQ(got.vt, VT_I4);
    EXPECT_EQ(got.lVal, testColorBlue);

    // Object arguments pass through without reference counting: the dispatcher owns them.
    Recorder peer;
    VARIANT objects[2] = {Of(VT_DISPATCH), Of(VT_UNKNOWN)};
    objects[0].pdispVal = static_cast<ITestShapes*>(&peer);
    objects[1].punkVal = static_cast<ITestRaw*>(&peer);
    ASSERT_EQ(CallShapes(object, "Identify", objects, &result), S_OK);
    EXPECT_EQ(object.owner, static_cast<IDispatch*>(static_cast<ITestShapes*>(&peer)));
    EXPECT_EQ(object.other, static_cast<IUnknown*>(static_cast<ITestRaw*>(&peer)));
    EXPECT_EQ(result.vt, VT_BOOL);
    EXPECT_EQ(result.boolVal, VARIANT_TRUE);
    ASSERT_EQ(CallShapes(object, "Owner", objects, nullptr, INVOKE_PROPERTYPUTREF), S_OK);
    ASSERT_EQ(CallShapes(object, "_NewEnum", nullptr, &result, INVOKE_PROPERTYGET), S_OK);
    EXPECT_EQ(result.vt, VT_UNKNOWN);
    EXPECT_EQ(result.punkVal, object.other);
    EXPECT_EQ(peer.refs, 1u);
    EXPECT_EQ(object.refs, 1u);
}

TEST(GeneratedThunkTest, IndexedPropertiesTakeIndicesFirstAndCustomInterfacesHaveThunks) {
    Recorder object;
    VARIANT args[3] = {Of(VT_I4), Of(VT_I4), Of(VT_R8)};
    args[0].lVal = 3;
    args[1].lVal = 4;
    args[2].dblVal = 0.5;
    ASSERT_EQ(CallShapes(object, "Cell", args, nullptr, INVOKE_PROPERTYPUT), S_OK);
    EXPECT_EQ(object.row, 3);
    EXPECT_EQ(object.column, 4);
    EXPECT_EQ(object.number, 0.5);

    const MemberInfo& write = Member(Interface_ITestRaw, "Write");
    ASSERT_NE(write.thunk, nullptr);
    char value[] = "t";
    VARIANT rawArgs[2] = {Of(VT_UNKNOWN), Of(VT_BSTR)};
    rawArgs[0].punkVal = reinterpret_cast<IUnknown*>(0x30);
    rawArgs[1].bstrVal = value;
    ASSERT_EQ(write.thunk(static_cast<ITestRaw*>(&object), rawArgs, nullptr), S_OK);
    EXPECT_EQ(static_cast<void*>(object.stream), reinterpret_cast<void*>(0x30));
    EXPECT_EQ(object.text, value);
}

// Every member of the generated tables is described consistently with its thunk.
TEST(GeneratedTablesTest, MembersParametersAndBasesAreConsistent) {
    for (const TypeLibraryInfo* library : {&TessalyTest_TypeLibrary(), &TessalyCore_TypeLibrary()}) {
        for (uint32_t i = 0; i < library->interfaceCount; ++i) {
            const InterfaceInfo& iface = *library->interfaces[i];
            EXPECT_EQ(TypeLibraryRegistry::FindInterface(iface.iid), &iface) << iface.name;
            for (uint16_t m = 0; m < iface.memberCount; ++m) {
                const MemberInfo& member = iface.members[m];
                const bool calledByDispatch = iface.kind == InterfaceKind::Dual || iface.kind == InterfaceKind::Custom;
                EXPECT_EQ(member.thunk != nullptr, calledByDispatch) << member.name;
                for (uint16_t p = 0; p < member.paramCount; ++p) {
                    const ParamInfo& param = member.params[p];
                    if (param.flags & PARAMFLAG_FRETVAL) {
                        EXPECT_EQ(p + 1, member.paramCount) << member.name;
                    }
                    if (param.iid) {
                        EXPECT_TRUE(param.vt == VT_DISPATCH || param.vt == VT_UNKNOWN) << member.name;
                    }
                }
                if (member.invokeKind == INVOKE_PROPERTYGET) {
                    ASSERT_GT(member.paramCount, 0) << member.name;
                    EXPECT_TRUE(member.params[member.paramCount - 1].flags & PARAMFLAG_FRETVAL) << member.name;
                }
            }
        }
    }
    const InterfaceInfo* gadget = TypeLibraryRegistry::FindInterface(ITestGadget::iid);
    ASSERT_NE(gadget, nullptr);
    EXPECT_EQ(gadget->base, &tessaly::generated::Interface_ITestBase);
    EXPECT_EQ(gadget->memberCount, 3) << "the base's members are not repeated";
    const MemberInfo& attach = Member(*gadget, "Attach");
    ASSERT_EQ(attach.paramCount, 2);
    EXPECT_EQ(attach.params[0].iid, &ITestWidget::iid);
    EXPECT_EQ(attach.params[0].vt, VT_DISPATCH);
    EXPECT_STREQ(attach.params[0].typeName, "ITestWidget*");
    const MemberInfo& greet = Member(tessaly::generated::Interface_ITestWidget, "Greet");
    ASSERT_EQ(greet.paramCount, 3);
    EXPECT_STREQ(greet.params[0].defaultValue, "world");
    EXPECT_EQ(greet.params[0].flags, PARAMFLAG_FIN | PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT);
    EXPECT_EQ(greet.params[2].flags, PARAMFLAG_FOUT | PARAMFLAG_FRETVAL);
}

TEST(GeneratedTablesTest, LibrariesRegisterThemselvesAndClassesAreFoundByAnyName) {
    EXPECT_EQ(TypeLibraryRegistry::FindLibrary("TessalyTest"), &TessalyTest_TypeLibrary());
    EXPECT_EQ(TypeLibraryRegistry::FindLibrary("TessalyCore"), &TessalyCore_TypeLibrary());
    EXPECT_EQ(TessalyCore_TypeLibrary().libid, LIBID_TessalyCore);
    EXPECT_EQ(TessalyCore_TypeLibrary().majorVersion, 1);

    const CoClassInfo* widget = TypeLibraryRegistry::FindCoClass(CLSID_TestWidget);
    ASSERT_NE(widget, nullptr);
    EXPECT_EQ(widget, &tessaly::generated::CoClass_TestWidget);
    for (const char* name : {"TestWidget", "testwidget", "Tessaly.TestWidget", "TESSALY.TESTWIDGET.1"})
        EXPECT_EQ(TypeLibraryRegistry::FindCoClass(name), widget) << name;
    EXPECT_EQ(TypeLibraryRegistry::FindCoClass("Tessaly.TestWidget.2"), nullptr);
    EXPECT_STREQ(widget->progId, "Tessaly.TestWidget.1");
    EXPECT_STREQ(widget->versionIndependentProgId, "Tessaly.TestWidget");
    EXPECT_TRUE(widget->creatable);
    ASSERT_EQ(widget->interfaceCount, 3);
    EXPECT_EQ(widget->interfaces[0].flags, IMPLTYPEFLAG_FDEFAULT);
    EXPECT_EQ(widget->interfaces[1].flags, 0);
    EXPECT_EQ(widget->interfaces[2].flags, IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE);
    EXPECT_EQ(widget->interfaces[2].iface->kind, InterfaceKind::DispInterface);
    EXPECT_FALSE(TypeLibraryRegistry::FindCoClass("Tessaly.TestSealed")->creatable);

    const CoClassInfo* eventInfo = TypeLibraryRegistry::FindCoClass("Tessaly.LuxEventInfo");
    ASSERT_NE(eventInfo, nullptr);
    EXPECT_EQ(eventInfo->clsid, CLSID_LuxEventInfo);
    EXPECT_FALSE(eventInfo->creatable);
    EXPECT_EQ(eventInfo->interfaces[0].iface->iid, ILuxEventInfo_Disp::iid);
}

TEST(GeneratedTablesTest, EnumerationValuesMatchTheHeader) {
    const EnumInfo& errors = tessaly::generated::Enum_LuxErrConstants;
    bool sawSingular = false;
    for (uint32_t i = 0; i < errors.memberCount; ++i) {
        if (std::strcmp(errors.members[i].name, "e_LuxTransform_Singular") == 0) {
            sawSingular = true;
            EXPECT_EQ(errors.members[i].value, e_LuxTransform_Singular);
        }
        EXPECT_NE(static_cast<uint32_t>(errors.members[i].value), 0x8004E601u);
    }
    EXPECT_TRUE(sawSingular);
    EXPECT_EQ(static_cast<uint32_t>(e_LuxAcq_EncoderOverrun), 0x8004E603u);
    EXPECT_EQ(e_INVALIDARG, E_INVALIDARG);
    EXPECT_EQ(e_FAIL, E_FAIL);
    EXPECT_EQ(luxObject_Tag, 0x100A02B);
    EXPECT_EQ(luxState_MoreThanOneStateIDChanged, -1);
}

}  // namespace
}  // namespace tessaly::test
