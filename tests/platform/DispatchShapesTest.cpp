// Invoke over the remaining parameter shapes: enumerations, IDispatch and IUnknown
// parameters without a specific interface, two indices, defaults of several types, arrays,
// every scalar type by value and by reference, out parameters of every kind, a vtable-only
// interface of the coclass, and _NewEnum.
#include <gtest/gtest.h>

#include "TestShapes.h"

namespace tessaly::test {
namespace {

class DispatchShapesTest : public WidgetTest {
protected:
    void SetUp() override {
        WidgetTest::SetUp();
        shapes_ = TestShapes::Create();
        ASSERT_NE(shapes_, nullptr);
    }
    void TearDown() override {
        if (shapes_) shapes_->Release();
        WidgetTest::TearDown();
    }
    IDispatch* dispatch() { return shapes_->GetDispatch(); }
    TestShapes* shapes_ = nullptr;
};

// A one-dimensional array over caller-owned storage, as a client builds one on the stack.
SAFEARRAY ArrayOver(void* data, VARTYPE vt, ULONG elementSize, ULONG count) {
    SAFEARRAY array{};
    array.cDims = 1;
    array.fFeatures = FADF_STATIC;
    array.cbElements = elementSize;
    array.pvData = data;
    array.vt = vt;
    array.rgsabound[0] = {count, 0};
    return array;
}

TEST_F(DispatchShapesTest, DefaultsOfEveryKindAndOmittedOptionalsWithoutOne) {
    VARIANT result{};
    Args none;
    ASSERT_EQ(Call(dispatch(), TestShapes::kScale, DISPATCH_METHOD, none, &result), S_OK);
    EXPECT_EQ(shapes_->factor, 2.5);
    EXPECT_EQ(shapes_->fallback.vt, VT_I4) << "a VARIANT default takes the type its literal reads as";
    EXPECT_EQ(shapes_->fallback.lVal, -1);
    EXPECT_EQ(shapes_->count, 0) << "an optional LONG without a default is zero";
    EXPECT_TRUE(shapes_->labelWasNull) << "an optional BSTR without a default is null";
    EXPECT_EQ(result.vt, VT_R8);
    EXPECT_EQ(result.dblVal, 5.0);

    Args some{Missing(), Str("x"), I4(3)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kScale, DISPATCH_METHOD, some, &result), S_OK);
    EXPECT_EQ(shapes_->factor, 2.5);
    EXPECT_EQ(shapes_->fallback.vt, VT_BSTR);
    EXPECT_EQ(shapes_->count, 3);
    Args named;
    named.Named(3, Str("label")).Named(0, I4(4));
    ASSERT_EQ(Call(dispatch(), TestShapes::kScale, DISPATCH_METHOD, named, &result), S_OK);
    EXPECT_EQ(shapes_->factor, 4.0);
    EXPECT_EQ(shapes_->label, "label");
    EXPECT_EQ(shapes_->fallback.lVal, -1);
}

TEST_F(DispatchShapesTest, TwoIndexPropertyAndEnumerationProperty) {
    Args put{I4(1), I4(2)};
    put.Named(DISPID_PROPERTYPUT, R8(3.5));
    ASSERT_EQ(Call(dispatch(), TestShapes::kCell, DISPATCH_PROPERTYPUT, put), S_OK);
    EXPECT_EQ(shapes_->cells[1][2], 3.5);
    VARIANT result{};
    Args get{I4(1), I4(2)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kCell, DISPATCH_PROPERTYGET, get, &result), S_OK);
    EXPECT_EQ(result.dblVal, 3.5);
    UINT argErr = 99;
    Args oneIndex{I4(1)};
    EXPECT_EQ(Call(dispatch(), TestShapes::kCell, DISPATCH_PROPERTYGET, oneIndex, &result, nullptr, &argErr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(argErr, 1u);
    Args threeIndices{I4(1), I4(2), I4(0)};
    threeIndices.Named(DISPID_PROPERTYPUT, R8(1));
    EXPECT_EQ(Call(dispatch(), TestShapes::kCell, DISPATCH_PROPERTYPUT, threeIndices), DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(shapes_->cells[1][2], 3.5);

    VARIANT blue{};
    blue.vt = VT_I2;
    blue.iVal = testColorBlue;
    ASSERT_EQ(PropertyPut(dispatch(), TestShapes::kColor, blue), S_OK);
    EXPECT_EQ(shapes_->color, testColorBlue);
    Args none;
    ASSERT_EQ(Call(dispatch(), TestShapes::kColor, DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I4);
    EXPECT_EQ(result.lVal, testColorBlue);
}

TEST_F(DispatchShapesTest, PlainObjectParametersAreConvertedNotQueried) {
    TestWidget* widget = NewWidget();
    // An IUnknown given for an IDispatch parameter becomes the object's IDispatch.
    ASSERT_EQ(PropertyPut(dispatch(), TestShapes::kOwner, Object(widget->GetUnknown()), DISPATCH_PROPERTYPUT), S_OK);
    ASSERT_NE(shapes_->owner, nullptr);
    EXPECT_EQ(static_cast<void*>(shapes_->owner), static_cast<void*>(widget->GetDispatch()));
    VARIANT result{};
    Args none;
    ASSERT_EQ(Call(dispatch(), TestShapes::kOwner, DISPATCH_PROPERTYGET, none, &result), S_OK);
    ASSERT_EQ(result.vt, VT_DISPATCH);
    VariantClear(&result);
    ASSERT_EQ(PropertyPut(dispatch(), TestShapes::kOwner, Object(static_cast<IDispatch*>(nullptr)),
                          DISPATCH_PROPERTYPUTREF),
              S_OK);
    EXPECT_EQ(shapes_->owner, nullptr);

    Ref<ITestGadget> gadget;
    ASSERT_EQ(widget->QueryInterface(ITestGadget::iid, gadget.void_out()), S_OK);
    Args same{Object(static_cast<IDispatch*>(gadget.get())), Object(widget->GetUnknown())};
    ASSERT_EQ(Call(dispatch(), TestShapes::kIdentify, DISPATCH_METHOD, same, &result), S_OK);
    EXPECT_EQ(result.vt, VT_BOOL);
    EXPECT_EQ(result.boolVal, VARIANT_TRUE);
    Args different{Object(static_cast<IDispatch*>(gadget.get())), Object(shapes_->GetUnknown())};
    ASSERT_EQ(Call(dispatch(), TestShapes::kIdentify, DISPATCH_METHOD, different, &result), S_OK);
    EXPECT_EQ(result.boolVal, VARIANT_FALSE);
}

TEST_F(DispatchShapesTest, EveryScalarTypeByValueAndByReference) {
    SHORT i2 = -2;
    float r4 = 0.5f;
    DATE date = 2.25;
    CY money{123456};
    LONGLONG i8 = -9000000000LL;
    BYTE ui1 = 200;
    int8_t i1 = -8;
    USHORT ui2 = 60000;
    ULONG ui4 = 4000000000u;
    SCODE code = E_FAIL;
    const std::string expected = "-2 0.5 2.25 123456 -9000000000 200 -8 60000 4000000000 80004005";

    auto value = [](VARTYPE vt, const void* source, size_t size) {
        VARIANT v{};
        v.vt = vt;
        std::memcpy(&v.llVal, source, size);
        return v;
    };
    VARIANT result{};
    Args byValue{value(VT_I2, &i2, 2),    value(VT_R4, &r4, 4),   value(VT_DATE, &date, 8), value(VT_CY, &money, 8),
                 value(VT_I8, &i8, 8),    value(VT_UI1, &ui1, 1), value(VT_I1, &i1, 1),     value(VT_UI2, &ui2, 2),
                 value(VT_UI4, &ui4, 4), value(VT_ERROR, &code, 4)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kFormat, DISPATCH_METHOD, byValue, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), expected);
    VariantClear(&result);

    // Each read through a reference of its own size: a wrong size would show in the text.
    Args byReference{ByRef(VT_I2, &i2),   ByRef(VT_R4, &r4),   ByRef(VT_DATE, &date), ByRef(VT_CY, &money),
                     ByRef(VT_I8, &i8),   ByRef(VT_UI1, &ui1), ByRef(VT_I1, &i1),     ByRef(VT_UI2, &ui2),
                     ByRef(VT_UI4, &ui4), ByRef(VT_ERROR, &code)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kFormat, DISPATCH_METHOD, byReference, &result), S_OK);
    EXPECT_EQ(Text(result.bstrVal), expected);
    VariantClear(&result);
}

TEST_F(DispatchShapesTest, OutParametersOfEnumerationStringVariantAndInterfaceType) {
    const LONG live = Module::LiveObjectCount();
    LONG complement = 0;
    ITestGadget* gadget = nullptr;
    VARIANT result{};
    Args pair{I4(testColorRed), ByRef(VT_I4, &complement), ByRef(VT_DISPATCH, &gadget)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kPair, DISPATCH_METHOD, pair, &result), S_OK);
    EXPECT_EQ(complement, testColorBlue);
    ASSERT_NE(gadget, nullptr);
    ASSERT_EQ(result.vt, VT_DISPATCH);
    EXPECT_EQ(Module::LiveObjectCount(), live + 2);
    EXPECT_EQ(RefCount(gadget), 1u) << "the out reference is the caller's only one";
    Ref<ITestWidget> widget;
    ASSERT_EQ(result.pdispVal->QueryInterface(ITestWidget::iid, widget.void_out()), S_OK);
    VariantClear(&result);
    widget.Reset();
    // A second call replaces (and releases) the gadget the reference held.
    ASSERT_EQ(Call(dispatch(), TestShapes::kPair, DISPATCH_METHOD, pair, nullptr), S_OK);
    EXPECT_EQ(Module::LiveObjectCount(), live + 1) << "old gadget and unwanted retval released";
    gadget->Release();
    EXPECT_EQ(Module::LiveObjectCount(), live);

    BSTR head = SysAllocString("previous");
    VARIANT tail = I4(1);
    Args split{Str("first second third"), ByRef(VT_BSTR, &head), ByRef(VT_VARIANT, &tail)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kSplit, DISPATCH_METHOD, split, &result), S_OK);
    EXPECT_EQ(result.lVal, 2);
    EXPECT_EQ(Text(head), "first");
    ASSERT_EQ(tail.vt, VT_BSTR);
    EXPECT_EQ(Text(tail.bstrVal), "second third");
    SysFreeString(head);
    VariantClear(&tail);
}

TEST_F(DispatchShapesTest, ArraysPassInPlaceAndComeBackOwned) {
    uint8_t bytes[] = {1, 2, 3, 250};
    SAFEARRAY array = ArrayOver(bytes, VT_UI1, 1, 4);
    VARIANT data{};
    data.vt = VT_ARRAY | VT_UI1;
    data.parray = &array;
    VARIANT result{};
    Args byValue{data};
    ASSERT_EQ(Call(dispatch(), TestShapes::kChecksum, DISPATCH_METHOD, byValue, &result), S_OK);
    EXPECT_EQ(result.lVal, 256);
    byValue.rgvarg(0) = VARIANT{};  // the array lives on the stack: nothing to free
    SAFEARRAY* reference = &array;
    Args byReference{ByRef(VT_ARRAY | VT_UI1, &reference)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kChecksum, DISPATCH_METHOD, byReference, &result), S_OK);
    EXPECT_EQ(result.lVal, 256);
    // An array of another element type does not convert to bytes.
    VARIANT numbers[2] = {I4(1), R8(2.5)};
    SAFEARRAY variants = ArrayOver(numbers, VT_VARIANT, sizeof(VARIANT), 2);
    VARIANT wrong{};
    wrong.vt = VT_ARRAY | VT_VARIANT;
    wrong.parray = &variants;
    UINT argErr = 99;
    Args mismatched{wrong};
    EXPECT_EQ(Call(dispatch(), TestShapes::kChecksum, DISPATCH_METHOD, mismatched, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 0u);
    mismatched.rgvarg(0) = VARIANT{};
    Args total{ByRef(VT_ARRAY | VT_VARIANT, &wrong.parray)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kTotal, DISPATCH_METHOD, total, &result), S_OK);
    EXPECT_EQ(result.vt, VT_R8);
    EXPECT_EQ(result.dblVal, 3.5);

    Args make{I4(3)};
    ASSERT_EQ(Call(dispatch(), TestShapes::kMakeBytes, DISPATCH_METHOD, make, &result), S_OK);
    ASSERT_EQ(result.vt, VT_ARRAY | VT_UI1);
    ASSERT_EQ(result.parray->rgsabound[0].cElements, 3u);
    EXPECT_EQ(static_cast<uint8_t*>(result.parray->pvData)[2], 2);
    VariantClear(&result);
}

TEST_F(DispatchShapesTest, VtableOnlyInterfaceOfTheCoClassIsReachableAndNewEnumWorks) {
    // ITestRaw's members are in the dispatch tables, numbered from 0x60000000.
    const Dispatcher* dispatcher = TestShapes::ClassDispatcher();
    const DISPID rawChecksum = 0x60000000;
    ASSERT_NE(dispatcher->FindMember(rawChecksum, INVOKE_FUNC), nullptr);
    EXPECT_EQ(dispatcher->FindName("bytesum"), rawChecksum);
    uint8_t bytes[] = {7, 8};
    SAFEARRAY array = ArrayOver(bytes, VT_UI1, 1, 2);
    VARIANT data{};
    data.vt = VT_ARRAY | VT_UI1;
    data.parray = &array;
    Args args{data};
    VARIANT result{};
    ASSERT_EQ(Call(dispatch(), rawChecksum, DISPATCH_METHOD, args, &result), S_OK);
    EXPECT_EQ(result.lVal, 15);
    args.rgvarg(0) = VARIANT{};

    shapes_->cells[0][1] = 9;
    Args none;
    ASSERT_EQ(Call(dispatch(), DISPID_NEWENUM, DISPATCH_PROPERTYGET | DISPATCH_METHOD, none, &result), S_OK);
    ASSERT_EQ(result.vt, VT_UNKNOWN);
    Ref<IEnumVARIANT> items;
    ASSERT_EQ(result.punkVal->QueryInterface(IEnumVARIANT::iid, items.void_out()), S_OK);
    VariantClear(&result);
    VARIANT first[2] = {};
    ULONG fetched = 0;
    ASSERT_EQ(items->Next(2, first, &fetched), S_OK);
    EXPECT_EQ(first[1].dblVal, 9);
}

}  // namespace
}  // namespace tessaly::test
