// Invoke with OLE_COLOR, hyper and arrays of doubles passed [out] and [in, out] by
// reference; and a [local] interface of the class, reached by QueryInterface from C++ and
// never through dispatch.
#include <gtest/gtest.h>

#include "TestSamples.h"
#include "platform/SafeArray.h"
#include "platform/TypeInfoObject.h"

namespace tessaly::test {
namespace {

class DispatchSamplesTest : public WidgetTest {
protected:
    void SetUp() override {
        WidgetTest::SetUp();
        samples_ = TestSamples::Create();
        ASSERT_NE(samples_, nullptr);
    }
    void TearDown() override {
        if (samples_) samples_->Release();
        WidgetTest::TearDown();
    }
    IDispatch* dispatch() { return samples_->GetDispatch(); }
    TestSamples* samples_ = nullptr;
};

SAFEARRAY* Doubles(std::initializer_list<double> values) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_R8, 0, static_cast<ULONG>(values.size()));
    std::copy(values.begin(), values.end(), static_cast<double*>(array->pvData));
    return array;
}

std::vector<double> Contents(SAFEARRAY* array) {
    const auto* data = static_cast<const double*>(array->pvData);
    return {data, data + array->rgsabound[0].cElements};
}

VARIANT UI4(ULONG value) {
    VARIANT v{};
    v.vt = VT_UI4;
    v.ulVal = value;
    return v;
}

VARIANT I8(LONGLONG value) {
    VARIANT v{};
    v.vt = VT_I8;
    v.llVal = value;
    return v;
}

TEST_F(DispatchSamplesTest, ColourIsAnUnsignedFourByteValue) {
    const MemberInfo* get = TestSamples::ClassDispatcher()->FindMember(TestSamples::kTint, INVOKE_PROPERTYGET);
    ASSERT_NE(get, nullptr);
    EXPECT_EQ(get->params[0].vt, VT_UI4);
    EXPECT_STREQ(get->params[0].typeName, "OLE_COLOR");

    // A system colour has the top bit set: it must survive as an unsigned value.
    ASSERT_EQ(PropertyPut(dispatch(), TestSamples::kTint, UI4(0x80000012u)), S_OK);
    Args none;
    VARIANT result{};
    ASSERT_EQ(Call(dispatch(), TestSamples::kTint, DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.vt, VT_UI4);
    EXPECT_EQ(result.ulVal, 0x80000012u);
    ASSERT_EQ(PropertyPut(dispatch(), TestSamples::kTint, I4(0x336699)), S_OK);
    EXPECT_EQ(samples_->tint, 0x336699u);

    // A negative number is no colour: refused before the object sees it.
    const int calls = samples_->calls;
    EXPECT_EQ(PropertyPut(dispatch(), TestSamples::kTint, I4(-1)), DISP_E_OVERFLOW);
    EXPECT_EQ(samples_->tint, 0x336699u);
    EXPECT_EQ(samples_->calls, calls);
}

TEST_F(DispatchSamplesTest, OutArrayOfDoublesReplacesWhatTheReferenceHeld) {
    // A typed reference: the array it held is freed and replaced.
    SAFEARRAY* held = Doubles({9});
    Args fill{I4(3), ByRef(VT_ARRAY | VT_R8, &held)};
    VARIANT result{};
    ASSERT_EQ(Call(dispatch(), TestSamples::kFill, DISPATCH_METHOD, fill, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I4);
    EXPECT_EQ(result.lVal, 3);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(Contents(held), (std::vector<double>{0.5, 1.5, 2.5}));

    // A failing call leaves the reference as it was.
    SAFEARRAY* before = held;
    Args refused{I4(-1), ByRef(VT_ARRAY | VT_R8, &held)};
    EXCEPINFO excep{};
    ASSERT_EQ(Call(dispatch(), TestSamples::kFill, DISPATCH_METHOD, refused, &result, &excep), DISP_E_EXCEPTION);
    EXPECT_EQ(excep.scode, E_INVALIDARG);
    EXPECT_EQ(held, before);
    EXPECT_EQ(Contents(held), (std::vector<double>{0.5, 1.5, 2.5}));
    EXPECT_EQ(samples_->samples, (std::vector<double>{0.5, 1.5, 2.5}));
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrHelpFile);

    // A reference of another array type, or none at all, never reaches the object.
    const int calls = samples_->calls;
    SAFEARRAY* integers = nullptr;
    Args mismatched{I4(2), ByRef(VT_ARRAY | VT_I4, &integers)};
    UINT argErr = 99;
    EXPECT_EQ(Call(dispatch(), TestSamples::kFill, DISPATCH_METHOD, mismatched, &result, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 0u) << "rgvarg holds the arguments last-first";
    Args missing{I4(2)};
    EXPECT_EQ(Call(dispatch(), TestSamples::kFill, DISPATCH_METHOD, missing, &result, nullptr, &argErr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(argErr, 1u);
    EXPECT_EQ(samples_->calls, calls);
    EXPECT_EQ(integers, nullptr);

    // A VARIANT reference takes the array whatever it held before.
    VARIANT any = Str("replaced");
    Args intoVariant{I4(1), ByRef(VT_VARIANT, &any)};
    ASSERT_EQ(Call(dispatch(), TestSamples::kFill, DISPATCH_METHOD, intoVariant, &result), S_OK);
    ASSERT_EQ(any.vt, VT_ARRAY | VT_R8);
    EXPECT_EQ(Contents(any.parray), (std::vector<double>{0.5}));
    VariantClear(&any);
    SafeArrayDestroy(held);
}

TEST_F(DispatchSamplesTest, InOutArrayOfDoublesIsReadThenReplaced) {
    SAFEARRAY* values = Doubles({1, 2, 3});
    Args twice{R8(2), ByRef(VT_ARRAY | VT_R8, &values)};
    ASSERT_EQ(Call(dispatch(), TestSamples::kAccumulate, DISPATCH_METHOD, twice), S_OK);
    EXPECT_EQ(Contents(values), (std::vector<double>{2, 4, 6, 12}));

    VARIANT held{};
    held.vt = VT_ARRAY | VT_R8;
    held.parray = Doubles({0.25});
    Args throughVariant{R8(4), ByRef(VT_VARIANT, &held)};
    ASSERT_EQ(Call(dispatch(), TestSamples::kAccumulate, DISPATCH_METHOD, throughVariant), S_OK);
    ASSERT_EQ(held.vt, VT_ARRAY | VT_R8);
    EXPECT_EQ(Contents(held.parray), (std::vector<double>{1, 1}));

    // The callee refuses a two-dimensional array: the caller's array is untouched.
    SAFEARRAYBOUND bounds[2] = {{2, 0}, {2, 0}};
    SAFEARRAY* square = SafeArrayCreate(VT_R8, 2, bounds);
    static_cast<double*>(square->pvData)[3] = 7;
    SAFEARRAY* given = square;
    Args refused{R8(2), ByRef(VT_ARRAY | VT_R8, &square)};
    EXPECT_EQ(Call(dispatch(), TestSamples::kAccumulate, DISPATCH_METHOD, refused), E_INVALIDARG);
    EXPECT_EQ(square, given);
    EXPECT_EQ(static_cast<double*>(square->pvData)[3], 7);

    // Integers do not become doubles in place: the object is never called.
    const int calls = samples_->calls;
    VARIANT integers{};
    integers.vt = VT_ARRAY | VT_I4;
    integers.parray = SafeArrayCreateVector(VT_I4, 0, 2);
    SAFEARRAY* integerArray = integers.parray;
    Args mismatched{R8(2), ByRef(VT_VARIANT, &integers)};
    EXPECT_EQ(Call(dispatch(), TestSamples::kAccumulate, DISPATCH_METHOD, mismatched), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(samples_->calls, calls);
    EXPECT_EQ(integers.parray, integerArray);

    VariantClear(&integers);
    VariantClear(&held);
    SafeArrayDestroy(square);
    SafeArrayDestroy(values);
}

TEST_F(DispatchSamplesTest, HyperCarriesSixtyFourBitAddressesBothWays) {
    const LONGLONG high = 0x7FFF12345678ABCDll;
    ASSERT_EQ(PropertyPut(dispatch(), TestSamples::kAddress, I8(high)), S_OK);
    Args none;
    VARIANT result{};
    ASSERT_EQ(Call(dispatch(), TestSamples::kAddress, DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I8);
    EXPECT_EQ(result.llVal, high);

    LONGLONG previous = 0;
    Args offset{I8(-0x100000000ll), I4(16), ByRef(VT_I8, &previous)};
    ASSERT_EQ(Call(dispatch(), TestSamples::kOffset, DISPATCH_METHOD, offset, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I8);
    EXPECT_EQ(result.llVal, -0x100000000ll + 16);
    EXPECT_EQ(previous, high);

    // Narrower integers widen with their sign; what does not fit in 64 bits is refused.
    ASSERT_EQ(PropertyPut(dispatch(), TestSamples::kAddress, I4(-5)), S_OK);
    EXPECT_EQ(samples_->address, -5);
    EXPECT_EQ(PropertyPut(dispatch(), TestSamples::kAddress, R8(1e19)), DISP_E_OVERFLOW);
    EXPECT_EQ(samples_->address, -5);
}

TEST_F(DispatchSamplesTest, LocalInterfaceIsReachedFromCppAndNeverThroughDispatch) {
    Ref<ITestSamplesLocal> local;
    ASSERT_EQ(dispatch()->QueryInterface(ITestSamplesLocal::iid, local.void_out()), S_OK);
    Ref<ITestSamples> back;
    ASSERT_EQ(local->QueryInterface(ITestSamples::iid, back.void_out()), S_OK);

    SAFEARRAY* filled = nullptr;
    Args fill{I4(2), ByRef(VT_ARRAY | VT_R8, &filled)};
    ASSERT_EQ(Call(dispatch(), TestSamples::kFill, DISPATCH_METHOD, fill), S_OK);
    SafeArrayDestroy(filled);
    samples_->tint = 0xFF;
    samples_->address = 0x10000000000ll;
    TestSampleSpan span{};
    ASSERT_EQ(local->GetSpan(&span), S_OK);
    EXPECT_EQ(span.Count, 2);
    EXPECT_EQ(span.Start, 0.5);
    EXPECT_EQ(span.Step, 1.0);
    EXPECT_EQ(span.Tint, 0xFFu);
    EXPECT_EQ(span.Address, 0x10000000000ll);
    EXPECT_EQ(span.Values, samples_->samples.data()) << "the struct points at the object's storage";
    EXPECT_EQ(span.Window[1], 1.5);
    EXPECT_EQ(span.Window[2], 0.0);

    // Handing back its own description keeps the samples.
    ASSERT_EQ(local->SetSpan(&span), S_OK);
    EXPECT_EQ(samples_->samples, (std::vector<double>{0.5, 1.5}));

    double fresh[] = {4, 5, 6};
    TestSampleSpan replacement{};
    replacement.Count = 3;
    replacement.Values = fresh;
    replacement.Tint = 0x00ABCDEF;
    ASSERT_EQ(local->SetSpan(&replacement), S_OK);
    const double* raw = nullptr;
    LONG count = 0;
    ASSERT_EQ(local->RawValues(&raw, &count), S_OK);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(raw[2], 6);
    Args none;
    VARIANT result{};
    ASSERT_EQ(Call(dispatch(), TestSamples::kTint, DISPATCH_PROPERTYGET, none, &result), S_OK);
    EXPECT_EQ(result.ulVal, 0x00ABCDEFu) << "both interfaces serve one object";

    // Refusals change nothing.
    EXPECT_EQ(local->SetSpan(nullptr), E_POINTER);
    TestSampleSpan negative = replacement;
    negative.Count = -1;
    negative.Tint = 1;
    EXPECT_EQ(local->SetSpan(&negative), E_INVALIDARG);
    TestSampleSpan noStorage = replacement;
    noStorage.Values = nullptr;
    EXPECT_EQ(local->SetSpan(&noStorage), E_INVALIDARG);
    EXPECT_EQ(samples_->samples, (std::vector<double>{4, 5, 6}));
    EXPECT_EQ(samples_->tint, 0x00ABCDEFu);

    // Dispatch knows nothing of it, though the class lists it first.
    const Dispatcher* dispatcher = TestSamples::ClassDispatcher();
    EXPECT_EQ(dispatcher->DefaultInterface()->iid, ITestSamples::iid);
    EXPECT_EQ(dispatcher->FindName("GetSpan"), DISPID_UNKNOWN);
    EXPECT_EQ(dispatcher->FindMember(0x60000000, INVOKE_FUNC), nullptr);
    EXPECT_EQ(Call(dispatch(), 0x60000000, DISPATCH_METHOD, none, &result), DISP_E_MEMBERNOTFOUND);
    char name[] = "RawValues";
    LPOLESTR names[] = {name};
    DISPID id = 0;
    EXPECT_EQ(dispatch()->GetIDsOfNames(GUID_NULL, names, 1, 0, &id), DISP_E_UNKNOWNNAME);

    const InterfaceInfo& info = generated::Interface_ITestSamplesLocal;
    EXPECT_EQ(info.kind, InterfaceKind::Local);
    TYPEKIND kind = TKIND_DISPATCH;
    ASSERT_EQ(TypeInfoObject::For(info)->GetTypeKind(&kind), S_OK);
    EXPECT_EQ(kind, TKIND_INTERFACE);
}

}  // namespace
}  // namespace tessaly::test
