// IDispatch::Invoke: choosing the member by DISPID and kind, property puts, argument order,
// named arguments, defaults, coercion, interface arguments and the result.
#include <gtest/gtest.h>

#include "TestWidget.h"
#include "platform/Dispatcher.h"
#include "platform/EventSink.h"

namespace tessaly::test {
namespace {

using DispatchInvokeTest = WidgetTest;

TEST_F(DispatchInvokeTest, GetsAcceptMethodAndGetFlagsButNotAMethodAlone) {
    TestWidget* widget = NewWidget();
    widget->value = 41;
    Args none;
    VARIANT result{};
    ASSERT_EQ(Call(widget, DISPID_VALUE, DISPATCH_METHOD | DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I4);
    EXPECT_EQ(result.lVal, 41);
    ASSERT_EQ(Call(widget, DISPID_VALUE, DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.lVal, 41);
    EXPECT_EQ(Call(widget, DISPID_VALUE, DISPATCH_METHOD, none, &result), DISP_E_MEMBERNOTFOUND);

    // And a method is called with METHOD, alone or with GET, but not with GET alone.
    Args sum{I4(1), I4(2)};
    ASSERT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD | DISPATCH_PROPERTYGET, sum, &result), S_OK);
    EXPECT_EQ(result.lVal, 3);
    Args again{I4(1), I4(2)};
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_PROPERTYGET, again, &result), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(widget->calls, 3);
}

TEST_F(DispatchInvokeTest, UnknownDispidsAndMissingKindsAreMemberNotFound) {
    TestWidget* widget = NewWidget();
    Args none;
    VARIANT result{};
    EXPECT_EQ(Call(widget, 0x7654321, DISPATCH_METHOD | DISPATCH_PROPERTYGET, none, &result), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(Call(widget, TestWidget::kChangeEvent, DISPATCH_METHOD, none, &result), DISP_E_MEMBERNOTFOUND);
    // Extent of ITestWidget is read-only.
    EXPECT_EQ(PropertyPut(widget, TestWidget::kWidgetExtent, R8(3)), DISP_E_MEMBERNOTFOUND);
    // A putref falls back to a put only when the value is an object or a VARIANT.
    EXPECT_EQ(PropertyPut(widget, TestWidget::kName, Str("x"), DISPATCH_PROPERTYPUTREF), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(widget->name, "");
    EXPECT_EQ(Call(widget, TestWidget::kName, 0, none, &result), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(widget->calls, 0);
}

TEST_F(DispatchInvokeTest, DefaultMemberIsDispidZero) {
    TestWidget* widget = NewWidget();
    ASSERT_EQ(PropertyPut(widget, DISPID_VALUE, I4(-12)), S_OK);
    EXPECT_EQ(widget->value, -12);
    Args none;
    VARIANT result{};
    ASSERT_EQ(Call(widget, DISPID_VALUE, DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.lVal, -12);
}

TEST_F(DispatchInvokeTest, PutTakesItsValueOnlyAsTheNamedPropertyPutArgument) {
    TestWidget* widget = NewWidget();
    widget->name = "before";
    Args positional{Str("positional")};
    UINT argErr = 99;
    EXPECT_EQ(Call(widget, TestWidget::kName, DISPATCH_PROPERTYPUT, positional, nullptr, nullptr, &argErr),
              DISP_E_BADPARAMCOUNT);
    Args none;
    EXPECT_EQ(Call(widget, TestWidget::kName, DISPATCH_PROPERTYPUT, none, nullptr, nullptr, &argErr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(argErr, 0u);
    // A name that is not a parameter position.
    Args wrongName;
    wrongName.Named(7, Str("x"));
    EXPECT_EQ(Call(widget, TestWidget::kName, DISPATCH_PROPERTYPUT, wrongName, nullptr, nullptr, &argErr),
              DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(argErr, 0u);
    // DISPID_PROPERTYPUT means nothing to a method.
    Args onMethod{I4(1)};
    onMethod.Named(DISPID_PROPERTYPUT, I4(2));
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, onMethod, nullptr, nullptr, &argErr),
              DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(widget->name, "before");
    EXPECT_EQ(widget->calls, 0);

    VARIANT result = I4(5);  // a put leaves the result empty
    Args proper;
    proper.Named(DISPID_PROPERTYPUT, Str("after"));
    ASSERT_EQ(Call(widget, TestWidget::kName, DISPATCH_PROPERTYPUT, proper, &result), S_OK);
    EXPECT_EQ(widget->name, "after");
    EXPECT_EQ(result.vt, VT_EMPTY);
}

TEST_F(DispatchInvokeTest, IndexedPropertyTakesIndicesPositionallyAndValueByName) {
    TestWidget* widget = NewWidget();
    Args put{I4(2)};
    put.Named(DISPID_PROPERTYPUT, Str("two"));
    ASSERT_EQ(Call(widget, TestWidget::kItem, DISPATCH_PROPERTYPUT, put), S_OK);
    Args get{I4(2)};
    VARIANT result{};
    ASSERT_EQ(Call(widget, TestWidget::kItem, DISPATCH_PROPERTYGET | DISPATCH_METHOD, get, &result), S_OK);
    ASSERT_EQ(result.vt, VT_BSTR);
    EXPECT_EQ(Text(result.bstrVal), "two");
    VariantClear(&result);
    // The index may be named too.
    Args named;
    named.Named(0, I4(2));
    ASSERT_EQ(Call(widget, TestWidget::kItem, DISPATCH_PROPERTYGET, named, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), "two");
    VariantClear(&result);
}

TEST_F(DispatchInvokeTest, ObjectPropertiesMixPutAndPutref) {
    TestWidget* widget = NewWidget();
    Ref<ITestGadget> gadget(TestGadget::Create());
    const ULONG before = RefCount(gadget.get());

    // Gadget has only a putref: a put (what clients send for a plain assignment) uses it.
    ASSERT_EQ(PropertyPut(widget, TestWidget::kGadget, Object(gadget.get()), DISPATCH_PROPERTYPUT), S_OK);
    EXPECT_EQ(widget->gadget, gadget.get());
    EXPECT_EQ(RefCount(gadget.get()), before + 1);
    ASSERT_EQ(PropertyPut(widget, TestWidget::kGadget, Object(gadget.get()), DISPATCH_PROPERTYPUTREF), S_OK);
    EXPECT_EQ(RefCount(gadget.get()), before + 1);

    // Tag has only a put of a VARIANT: a putref uses it.
    ASSERT_EQ(PropertyPut(widget, TestWidget::kTag, Object(gadget.get()), DISPATCH_PROPERTYPUTREF), S_OK);
    EXPECT_EQ(widget->tag.vt, VT_DISPATCH);
    EXPECT_EQ(RefCount(gadget.get()), before + 2);
    VariantClear(&widget->tag);

    // A get of an object with no result slot releases what it returned.
    Args none;
    ASSERT_EQ(Call(widget, TestWidget::kGadget, DISPATCH_PROPERTYGET, none, nullptr), S_OK);
    EXPECT_EQ(RefCount(gadget.get()), before + 1);
    VARIANT result{};
    ASSERT_EQ(Call(widget, TestWidget::kGadget, DISPATCH_PROPERTYGET, none, &result), S_OK);
    ASSERT_EQ(result.vt, VT_DISPATCH);
    EXPECT_EQ(static_cast<void*>(result.pdispVal), static_cast<void*>(gadget.get()));
    EXPECT_EQ(RefCount(gadget.get()), before + 2);
    VariantClear(&result);
    EXPECT_EQ(RefCount(gadget.get()), before + 1);
}

TEST_F(DispatchInvokeTest, InterfaceArgumentsAreQueriedForTheirIid) {
    TestWidget* widget = NewWidget();
    TestWidget* other = NewWidget();
    other->value = 77;
    const ULONG before = RefCount(other->GetUnknown());

    // The other widget, passed as its IUnknown, arrives as ITestWidget.
    VARIANT result{};
    {
        Args byUnknown{Object(other->GetUnknown())};
        ASSERT_EQ(Call(widget, TestWidget::kAttach, DISPATCH_METHOD, byUnknown, &result), S_OK);
        EXPECT_EQ(result.lVal, 77);
    }
    // The same through a reference to a VARIANT holding its IDispatch.
    VARIANT dispatch{};
    dispatch.vt = VT_DISPATCH;
    dispatch.pdispVal = other->GetDispatch();
    Args byReference{ByRef(VT_VARIANT, &dispatch)};
    ASSERT_EQ(Call(widget, TestWidget::kAttach, DISPATCH_METHOD, byReference, &result), S_OK);
    EXPECT_EQ(result.lVal, 77);
    EXPECT_EQ(RefCount(other->GetUnknown()), before) << "the queried reference is released after the call";

    // Nothing (a null object) is passed as null.
    VARIANT nothing{};
    nothing.vt = VT_DISPATCH;
    Args byNothing{nothing};
    ASSERT_EQ(Call(widget, TestWidget::kAttach, DISPATCH_METHOD, byNothing, &result), S_OK);
    EXPECT_EQ(result.lVal, -1);

    // An object without the interface, or no object at all, does not convert.
    IDispatch* sink = MakeEventSink([](DISPID, DISPPARAMS*) {});
    ASSERT_NE(sink, nullptr);
    Args byWrongObject{Object(sink)};
    UINT argErr = 99;
    const int callsBefore = widget->calls;
    EXPECT_EQ(Call(widget, TestWidget::kAttach, DISPATCH_METHOD, byWrongObject, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 0u);
    EXPECT_EQ(RefCount(sink), 2u) << "only the argument block holds it";
    Args byNumber{I4(3)};
    EXPECT_EQ(Call(widget, TestWidget::kAttach, DISPATCH_METHOD, byNumber, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(PropertyPut(widget, TestWidget::kGadget, Object(sink), DISPATCH_PROPERTYPUTREF), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(widget->gadget, nullptr);
    EXPECT_EQ(widget->calls, callsBefore);
    sink->Release();
}

TEST_F(DispatchInvokeTest, ArgumentsArriveLastFirstAndByName) {
    TestWidget* widget = NewWidget();
    VARIANT result{};
    Args positional{Str("ab"), Str("cd")};
    ASSERT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, positional, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), "abcd");
    VariantClear(&result);

    // rgvarg[0] is the last argument.
    Args check{Str("first"), Str("second")};
    ASSERT_EQ(Text(check.get()->rgvarg[0].bstrVal), "second");

    // Named arguments in any order, and mixed with positional ones.
    Args named;
    named.Named(1, Str("cd")).Named(0, Str("ab"));
    ASSERT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, named, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), "abcd");
    VariantClear(&result);
    Args mixed{Str("ab")};
    mixed.Named(1, Str("cd"));
    ASSERT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, mixed, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), "abcd");
    VariantClear(&result);
}

TEST_F(DispatchInvokeTest, ArgumentCountAndNameErrorsReportTheirPosition) {
    TestWidget* widget = NewWidget();
    VARIANT result{};
    UINT argErr = 99;
    Args tooMany{I4(1), I4(2), I4(3)};
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, tooMany, &result, nullptr, &argErr),
              DISP_E_BADPARAMCOUNT);

    Args none;
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, none, &result, nullptr, &argErr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(argErr, 0u);
    Args onlyFirst{Str("ab")};
    EXPECT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, onlyFirst, &result, nullptr, &argErr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(argErr, 1u) << "the position of the missing parameter";
    // A missing-argument marker does not stand in for a required parameter.
    Args marked{Str("ab"), Missing()};
    EXPECT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, marked, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);

    // The same parameter twice, positionally and by name; the named one is rgvarg[0].
    Args twice{Str("ab")};
    twice.Named(0, Str("cd"));
    EXPECT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, twice, &result, nullptr, &argErr),
              DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(argErr, 0u);
    // A position past the parameters (the retval is not one): rgvarg[1] is that name.
    Args pastEnd;
    pastEnd.Named(0, Str("ab")).Named(2, Str("cd"));
    EXPECT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, pastEnd, &result, nullptr, &argErr),
              DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(argErr, 1u);
    EXPECT_EQ(widget->calls, 0);
    EXPECT_EQ(result.vt, VT_EMPTY);

    DISPPARAMS inconsistent{nullptr, nullptr, 2, 0};
    EXPECT_EQ(widget->Invoke(TestWidget::kAdd, GUID_NULL, 0, DISPATCH_METHOD, &inconsistent, &result, nullptr, nullptr),
              E_INVALIDARG);
    EXPECT_EQ(widget->Invoke(TestWidget::kAdd, GUID_NULL, 0, DISPATCH_METHOD, nullptr, &result, nullptr, nullptr),
              E_INVALIDARG);
}

TEST_F(DispatchInvokeTest, MissingOptionalArgumentsTakeTheirDefaults) {
    TestWidget* widget = NewWidget();
    VARIANT result{};
    Args one{I4(5)};
    ASSERT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, one, &result), S_OK);
    EXPECT_EQ(result.lVal, 15) << "b defaults to 10";
    Args marked{I4(5), Missing()};
    ASSERT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, marked, &result), S_OK);
    EXPECT_EQ(result.lVal, 15);
    Args given{I4(5), I4(1)};
    ASSERT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, given, &result), S_OK);
    EXPECT_EQ(result.lVal, 6);

    // A string default, and a default skipped over by naming a later parameter.
    Args none;
    ASSERT_EQ(Call(widget, TestWidget::kGreet, DISPATCH_METHOD, none, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), "Hello, world");
    VariantClear(&result);
    Args loud;
    loud.Named(1, Bool(true));
    ASSERT_EQ(Call(widget, TestWidget::kGreet, DISPATCH_METHOD, loud, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), "HELLO, WORLD!");
    VariantClear(&result);

    // An optional VARIANT without a default receives the missing-argument marker.
    ASSERT_EQ(Call(widget, TestWidget::kDescribe, DISPATCH_METHOD, none, &result), S_OK);
    EXPECT_EQ(widget->describedType, VT_ERROR);
    EXPECT_EQ(widget->describedScode, DISP_E_PARAMNOTFOUND);
    VariantClear(&result);
    Args described{Str("text")};
    ASSERT_EQ(Call(widget, TestWidget::kDescribe, DISPATCH_METHOD, described, &result), S_OK);
    EXPECT_EQ(widget->describedType, VT_BSTR);
    EXPECT_EQ(Text(result.bstrVal), "text");
    VariantClear(&result);
}

TEST_F(DispatchInvokeTest, ArgumentsAreCoercedAndFailuresNameTheRgvargIndex) {
    TestWidget* widget = NewWidget();
    VARIANT result{};
    Args converted{Str("7"), R8(2.0)};
    ASSERT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, converted, &result), S_OK);
    EXPECT_EQ(result.lVal, 9);
    ASSERT_EQ(PropertyPut(widget, TestWidget::kName, I4(42)), S_OK);
    EXPECT_EQ(widget->name, "42");
    const int callsBefore = widget->calls;

    UINT argErr = 99;
    Args badSecond{I4(1), Str("x")};  // rgvarg[0] is "x"
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, badSecond, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 0u);
    Args badFirst{Str("x"), I4(1)};  // rgvarg[1] is "x"
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, badFirst, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 1u);
    Args tooBig{R8(1e12), I4(1)};
    EXPECT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, tooBig, &result, nullptr, &argErr), DISP_E_OVERFLOW);
    EXPECT_EQ(argErr, 1u);
    EXPECT_EQ(PropertyPut(widget, DISPID_VALUE, R8(-1e12)), DISP_E_OVERFLOW);
    EXPECT_EQ(widget->value, 0);
    EXPECT_EQ(widget->calls, callsBefore) << "nothing is called when an argument does not convert";
}

TEST_F(DispatchInvokeTest, ByReferenceArgumentsAreReadThroughForInParameters) {
    TestWidget* widget = NewWidget();
    LONG a = 30;
    VARIANT b = I4(12);
    Args byRef{ByRef(VT_I4, &a), ByRef(VT_VARIANT, &b)};
    VARIANT result{};
    ASSERT_EQ(Call(widget, TestWidget::kAdd, DISPATCH_METHOD, byRef, &result), S_OK);
    EXPECT_EQ(result.lVal, 42);
    EXPECT_EQ(a, 30);
    EXPECT_EQ(b.lVal, 12);

    BSTR text = SysAllocString("by reference");
    ASSERT_EQ(PropertyPut(widget, TestWidget::kName, ByRef(VT_BSTR, &text)), S_OK);
    EXPECT_EQ(widget->name, "by reference");
    EXPECT_EQ(Text(text), "by reference") << "an [in] reference is only read";
    SysFreeString(text);
}

TEST_F(DispatchInvokeTest, EveryDualInterfaceReachesEveryMember) {
    TestWidget* widget = NewWidget();
    Ref<ITestGadget> gadget;
    ASSERT_EQ(widget->QueryInterface(ITestGadget::iid, gadget.void_out()), S_OK);
    Args sum{I4(20), I4(22)};
    VARIANT result{};
    ASSERT_EQ(Call(gadget.get(), TestWidget::kAdd, DISPATCH_METHOD, sum, &result), S_OK);
    EXPECT_EQ(result.lVal, 42);
    ASSERT_EQ(PropertyPut(gadget.get(), TestWidget::kGadgetSize, I4(9)), S_OK);
    EXPECT_EQ(widget->gadgetSize, 9);
}

TEST_F(DispatchInvokeTest, ManyArgumentsBeyondTheInlineBlockAreRefusedCleanly) {
    TestWidget* widget = NewWidget();
    // More arguments than Concat has and more than fit the stack block.
    Args many{Str("a"), Str("b"), Str("c"), Str("d"), Str("e"), Str("f"), Str("g"), Str("h"), Str("i"),
              Str("j"), Str("k"), Str("l"), Str("m"), Str("n"), Str("o"), Str("p"), Str("q"), Str("r")};
    VARIANT result{};
    EXPECT_EQ(Call(widget, TestWidget::kConcat, DISPATCH_METHOD, many, &result), DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(widget->calls, 0);
}

// A member with more parameters than the stack block holds, called on a plain object
// through the dispatcher itself.
constexpr uint16_t kManyParams = Dispatcher::kInlineArguments + 4;

HRESULT SumThunk(void* self, VARIANT* args, VARIANT* result) {
    LONG sum = 0;
    for (uint16_t i = 0; i < kManyParams; ++i) sum += args[i].lVal * (i + 1);
    *static_cast<int*>(self) += 1;
    result->vt = VT_I4;
    result->lVal = sum;
    return S_OK;
}

TEST_F(DispatchInvokeTest, MembersWithManyParametersUseABlockOnTheHeap) {
    static ParamInfo params[kManyParams + 1];
    static const char* const names[] = {"p0", "p1", "p2", "p3", "p4", "p5", "p6", "p7", "p8", "p9",
                                        "p10", "p11", "p12", "p13", "p14", "p15", "p16", "p17", "p18", "p19"};
    static_assert(std::size(names) == kManyParams);
    for (uint16_t i = 0; i < kManyParams; ++i) params[i] = {names[i], VT_I4, nullptr, "long", PARAMFLAG_FIN, nullptr};
    params[kManyParams] = {"sum", VT_I4, nullptr, "long", PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, nullptr};
    static const MemberInfo member{"Sum", 0x1009001, INVOKE_FUNC, params, kManyParams + 1, "", SumThunk};
    static const InterfaceInfo iface{"IMany", tessaly::MakeGuid("0D5F3C2A-8E1B-4C6D-9A7E-3B2C1D0E9F8A"), nullptr,
                                     InterfaceKind::Dual, "", &member, 1};
    static const CoClassInterface interfaces[] = {{&iface, IMPLTYPEFLAG_FDEFAULT}};
    static const CoClassInfo coclass{"Many", GUID_NULL, "", false, "", "", interfaces, 1};
    const Dispatcher* dispatcher = Dispatcher::For(coclass);
    ASSERT_NE(dispatcher, nullptr);

    int calls = 0;
    auto find = [](void* object, const IID&) noexcept -> void* { return object; };
    Args args;
    LONG expected = 0;
    for (uint16_t i = 0; i < kManyParams; ++i) {
        // Strings that convert: each conversion is owned by the block and freed after the call.
        args.Named(i, Str(std::to_string(i).c_str()));
        expected += i * (i + 1);
    }
    VARIANT result{};
    ASSERT_EQ(dispatcher->Invoke(&calls, find, 0x1009001, DISPATCH_METHOD, args.get(), &result, nullptr, nullptr),
              S_OK);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(result.lVal, expected);

    // A failure part-way through the block frees what was already converted.
    VariantClear(&args.rgvarg(5));
    args.rgvarg(5).vt = VT_DISPATCH;
    UINT argErr = 99;
    EXPECT_EQ(dispatcher->Invoke(&calls, find, 0x1009001, DISPATCH_METHOD, args.get(), &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 5u);
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace tessaly::test
