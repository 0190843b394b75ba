// VARIANT lifetime, copying and conversion: ownership of strings, arrays and objects, the
// numeric rules (ties to even, overflow), text in both directions, dates, and that a
// refused call leaves its destination as it was.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "TestWidget.h"
#include "platform/Bstr.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::test {
namespace {

class VariantTest : public ::testing::Test {
protected:
    void SetUp() override { live_ = Module::LiveObjectCount(); }
    void TearDown() override { EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects leaked or over-released"; }

private:
    LONG live_ = 0;
};

VARIANT Of(VARTYPE vt) {
    VARIANT v;
    VariantInit(&v);
    v.vt = vt;
    return v;
}
VARIANT R8(double d) {
    VARIANT v = Of(VT_R8);
    v.dblVal = d;
    return v;
}
VARIANT I4(int32_t i) {
    VARIANT v = Of(VT_I4);
    v.lVal = i;
    return v;
}

// Converts `source` to `type`; the test fails when the conversion does.
Variant Converted(const VARIANT& source, VARTYPE type, USHORT flags = 0) {
    Variant out;
    const HRESULT hr = VariantChangeType(out.ptr(), &source, flags, type);
    EXPECT_EQ(hr, S_OK) << "converting vt " << source.vt << " to " << type;
    return out;
}

HRESULT ConvertResult(const VARIANT& source, VARTYPE type) {
    Variant out;
    return VariantChangeType(out.ptr(), &source, 0, type);
}

std::string TextOf(const VARIANT& source, USHORT flags = 0) {
    Variant text = Converted(source, VT_BSTR, flags);
    return std::string(BstrView(text.get().bstrVal));
}

TEST_F(VariantTest, ClearReleasesWhatTheVariantOwnsAndLeavesReferencesAlone) {
    auto* widget = TestWidget::Create();
    VARIANT object = Of(VT_DISPATCH);
    object.pdispVal = widget->GetDispatch();
    object.pdispVal->AddRef();
    EXPECT_EQ(widget->AddRef(), 3u);
    widget->Release();
    EXPECT_EQ(VariantClear(&object), S_OK);
    EXPECT_EQ(object.vt, VT_EMPTY);
    EXPECT_EQ(widget->AddRef(), 2u) << "clearing released the variant's reference";
    widget->Release();

    // A reference is lent, not owned: clearing it frees nothing (the sanitizers would see it).
    BSTR text = SysAllocString("kept");
    VARIANT lent = Of(VT_BSTR | VT_BYREF);
    lent.pbstrVal = &text;
    EXPECT_EQ(VariantClear(&lent), S_OK);
    EXPECT_EQ(BstrView(text), "kept");
    SysFreeString(text);

    // An unknown type, or an array someone has locked, is refused and left as it was.
    VARIANT odd = Of(0x7F);
    odd.lVal = 5;
    EXPECT_EQ(VariantClear(&odd), DISP_E_BADVARTYPE);
    EXPECT_EQ(odd.vt, 0x7F);
    VARIANT array = Of(VT_ARRAY | VT_I4);
    array.parray = SafeArrayCreateVector(VT_I4, 0, 3);
    ASSERT_EQ(SafeArrayLock(array.parray), S_OK);
    EXPECT_EQ(VariantClear(&array), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(array.vt, VT_ARRAY | VT_I4);
    ASSERT_EQ(SafeArrayUnlock(array.parray), S_OK);
    EXPECT_EQ(VariantClear(&array), S_OK);
    widget->Release();
}

TEST_F(VariantTest, CopyIsDeepForStringsAndArraysAndReferencesObjects) {
    Variant text(std::string_view("a\0b", 3));
    Variant copy(text);
    EXPECT_NE(copy.get().bstrVal, text.get().bstrVal);
    EXPECT_EQ(BstrView(copy.get().bstrVal), std::string_view("a\0b", 3));

    VARIANT numbers = Of(VT_ARRAY | VT_I4);
    numbers.parray = SafeArrayCreateVector(VT_I4, 1, 2);
    Variant owned = Variant::Attach(numbers);
    Variant arrayCopy(owned);
    EXPECT_NE(arrayCopy.get().parray, owned.get().parray);
    const LONG first = 1;
    const int32_t seven = 7;
    ASSERT_EQ(SafeArrayPutElement(owned.get().parray, &first, &seven), S_OK);
    int32_t read = -1;
    ASSERT_EQ(SafeArrayGetElement(arrayCopy.get().parray, &first, &read), S_OK);
    EXPECT_EQ(read, 0) << "the copy does not share elements";

    auto* widget = TestWidget::Create();
    {
        Variant object(static_cast<IDispatch*>(widget->GetDispatch()));
        Variant objectCopy = object;
        EXPECT_EQ(widget->AddRef(), 4u) << "each variant holds its own reference";
        widget->Release();
    }
    EXPECT_EQ(widget->AddRef(), 2u);
    widget->Release();
    widget->Release();

    // Copying onto itself changes nothing; a source that cannot be copied leaves the
    // destination with what it had.
    EXPECT_EQ(VariantCopy(copy.ptr(), copy.ptr()), S_OK);
    EXPECT_EQ(BstrView(copy.get().bstrVal), std::string_view("a\0b", 3));
    VARIANT bad = Of(0x7F);
    EXPECT_EQ(VariantCopy(copy.ptr(), &bad), DISP_E_BADVARTYPE);
    EXPECT_EQ(copy.vt(), VT_BSTR);
    EXPECT_EQ(BstrView(copy.get().bstrVal), std::string_view("a\0b", 3));
    EXPECT_EQ(VariantCopy(nullptr, &bad), E_INVALIDARG);
}

TEST_F(VariantTest, CopyIndResolvesOneLevelOfReference) {
    int32_t number = 41;
    VARIANT byRef = Of(VT_I4 | VT_BYREF);
    byRef.plVal = &number;
    Variant value;
    ASSERT_EQ(VariantCopyInd(value.ptr(), &byRef), S_OK);
    EXPECT_EQ(value.vt(), VT_I4);
    EXPECT_EQ(value.get().lVal, 41);
    // A plain copy keeps the reference.
    Variant plain;
    ASSERT_EQ(VariantCopy(plain.ptr(), &byRef), S_OK);
    EXPECT_EQ(plain.vt(), VT_I4 | VT_BYREF);
    EXPECT_EQ(plain.get().plVal, &number);

    Bstr text("lent");
    BSTR raw = text.get();
    VARIANT stringRef = Of(VT_BSTR | VT_BYREF);
    stringRef.pbstrVal = &raw;
    ASSERT_EQ(VariantCopyInd(value.ptr(), &stringRef), S_OK);
    EXPECT_EQ(value.vt(), VT_BSTR);
    EXPECT_NE(value.get().bstrVal, raw) << "the copy owns a string of its own";
    EXPECT_EQ(BstrView(value.get().bstrVal), "lent");

    VARIANT inner = R8(2.5);
    VARIANT variantRef = Of(VT_VARIANT | VT_BYREF);
    variantRef.pvarVal = &inner;
    ASSERT_EQ(VariantCopyInd(value.ptr(), &variantRef), S_OK);
    EXPECT_EQ(value.vt(), VT_R8);
    EXPECT_EQ(value.get().dblVal, 2.5);

    // In place: the reference is replaced by its value.
    VARIANT self = byRef;
    ASSERT_EQ(VariantCopyInd(&self, &self), S_OK);
    EXPECT_EQ(self.vt, VT_I4);
    EXPECT_EQ(self.lVal, 41);

    // A reference to a reference, or a null reference, is refused; the destination keeps its value.
    VARIANT twice = Of(VT_VARIANT | VT_BYREF);
    twice.pvarVal = &variantRef;
    EXPECT_EQ(VariantCopyInd(value.ptr(), &twice), E_INVALIDARG);
    VARIANT dangling = Of(VT_I4 | VT_BYREF);
    EXPECT_EQ(VariantCopyInd(value.ptr(), &dangling), E_INVALIDARG);
    EXPECT_EQ(value.get().dblVal, 2.5);
}

TEST_F(VariantTest, NumbersRoundTiesToEvenAndRefuseWhatDoesNotFit) {
    EXPECT_EQ(Converted(R8(1.0), VT_I4).get().lVal, 1);
    EXPECT_EQ(Converted(R8(2.5), VT_I4).get().lVal, 2);
    EXPECT_EQ(Converted(R8(3.5), VT_I4).get().lVal, 4);
    EXPECT_EQ(Converted(R8(-2.5), VT_I4).get().lVal, -2);
    EXPECT_EQ(Converted(R8(-2.6), VT_I2).get().iVal, -3);
    EXPECT_EQ(Converted(R8(255.4), VT_UI1).get().bVal, 255);
    EXPECT_EQ(Converted(R8(2147483647.0), VT_I4).get().lVal, std::numeric_limits<int32_t>::max());

    EXPECT_EQ(ConvertResult(R8(1e20), VT_I4), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(R8(2147483647.5), VT_I4), DISP_E_OVERFLOW) << "rounds to 2^31";
    EXPECT_EQ(ConvertResult(R8(255.5), VT_UI1), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(I4(-1), VT_UI4), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(I4(128), VT_I1), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(R8(std::nan("")), VT_I4), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(R8(1e39), VT_R4), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(R8(9.3e18), VT_I8), DISP_E_OVERFLOW);

    VARIANT big = Of(VT_UI8);
    big.ullVal = std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(ConvertResult(big, VT_I8), DISP_E_OVERFLOW);
    EXPECT_EQ(TextOf(big), "18446744073709551615") << "64-bit integers stay exact";

    // Booleans: true is -1, and all bits set in an unsigned type; any non-zero is true.
    VARIANT yes = Of(VT_BOOL);
    yes.boolVal = VARIANT_TRUE;
    EXPECT_EQ(Converted(yes, VT_I4).get().lVal, -1);
    EXPECT_EQ(Converted(yes, VT_UI1).get().bVal, 255);
    EXPECT_EQ(Converted(R8(0.25), VT_BOOL).get().boolVal, VARIANT_TRUE);
    EXPECT_EQ(Converted(I4(0), VT_BOOL).get().boolVal, VARIANT_FALSE);

    // Currency keeps four decimals and rounds ties to even too.
    EXPECT_EQ(Converted(R8(1.23456), VT_CY).get().cyVal.int64, 12346);
    VARIANT cash = Of(VT_CY);
    cash.cyVal.int64 = 25000;
    EXPECT_EQ(Converted(cash, VT_I4).get().lVal, 2);
    cash.cyVal.int64 = -35000;
    EXPECT_EQ(Converted(cash, VT_I4).get().lVal, -4);
    EXPECT_EQ(Converted(cash, VT_R8).get().dblVal, -3.5);
    EXPECT_EQ(ConvertResult(R8(1e16), VT_CY), DISP_E_OVERFLOW);

    // An error code is a 32-bit integer, nothing else.
    VARIANT error = Of(VT_ERROR);
    error.scode = DISP_E_PARAMNOTFOUND;
    EXPECT_EQ(Converted(error, VT_I4).get().lVal, DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(ConvertResult(error, VT_R8), DISP_E_TYPEMISMATCH);
}

TEST_F(VariantTest, TextConvertsToNumbersOnlyWhenItIsOne) {
    const auto text = [](const char* s) { return Variant(std::string_view(s)); };
    EXPECT_EQ(Converted(text("12").get(), VT_I4).get().lVal, 12);
    EXPECT_EQ(Converted(text("  -12 ").get(), VT_I2).get().iVal, -12);
    EXPECT_EQ(Converted(text("2.5").get(), VT_I4).get().lVal, 2);
    EXPECT_EQ(Converted(text("1e3").get(), VT_I4).get().lVal, 1000);
    EXPECT_EQ(Converted(text("+.5").get(), VT_R8).get().dblVal, 0.5);
    EXPECT_EQ(Converted(text("9223372036854775807").get(), VT_I8).get().llVal, std::numeric_limits<int64_t>::max());
    EXPECT_EQ(Converted(text("1e-400").get(), VT_R8).get().dblVal, 0.0);
    EXPECT_EQ(Converted(text("true").get(), VT_BOOL).get().boolVal, VARIANT_TRUE);
    EXPECT_EQ(Converted(text("False").get(), VT_BOOL).get().boolVal, VARIANT_FALSE);
    EXPECT_EQ(Converted(text("-1.#INF").get(), VT_R8).get().dblVal, -HUGE_VAL);

    for (const char* notANumber : {"abc", "", "   ", "12abc", "1.2.3", "1e", "--1", ".", "0x10", "true"})
        EXPECT_EQ(ConvertResult(text(notANumber).get(), VT_I4), DISP_E_TYPEMISMATCH) << '"' << notANumber << '"';
    EXPECT_EQ(ConvertResult(text("1e400").get(), VT_R8), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(text("99999999999999999999").get(), VT_I8), DISP_E_OVERFLOW);
    EXPECT_EQ(ConvertResult(text("300").get(), VT_UI1), DISP_E_OVERFLOW);
}

TEST_F(VariantTest, ValuesConvertToText) {
    EXPECT_EQ(TextOf(I4(-42)), "-42");
    EXPECT_EQ(TextOf(R8(0.1)), "0.1");
    EXPECT_EQ(TextOf(R8(1.5)), "1.5");
    EXPECT_EQ(TextOf(R8(1e20)), "1E+20");
    EXPECT_EQ(TextOf(R8(-0.0)), "0");
    EXPECT_EQ(TextOf(R8(HUGE_VAL)), "1.#INF");
    VARIANT single = Of(VT_R4);
    single.fltVal = 0.1f;
    EXPECT_EQ(TextOf(single), "0.1") << "floats show their 7 significant digits";
    VARIANT cash = Of(VT_CY);
    cash.cyVal.int64 = 15000;
    EXPECT_EQ(TextOf(cash), "1.5");
    cash.cyVal.int64 = -5;
    EXPECT_EQ(TextOf(cash), "-0.0005");
    VARIANT yes = Of(VT_BOOL);
    yes.boolVal = VARIANT_TRUE;
    EXPECT_EQ(TextOf(yes), "-1");
    EXPECT_EQ(TextOf(yes, VARIANT_ALPHABOOL), "True");
    EXPECT_EQ(TextOf(Of(VT_EMPTY)), "");

    // Text and back gives the same number.
    for (const double value : {3.25, -1e-7, 123456789012345.0}) {
        Variant text = Converted(R8(value), VT_BSTR);
        EXPECT_EQ(Converted(text.get(), VT_R8).get().dblVal, value);
    }
}

TEST_F(VariantTest, DatesAreDaysSince1899WithTheTimeAsAFraction) {
    const auto date = [](double days) {
        VARIANT v = Of(VT_DATE);
        v.date = days;
        return v;
    };
    EXPECT_EQ(TextOf(date(36526)), "2000-01-01");
    EXPECT_EQ(TextOf(date(36526.75)), "2000-01-01 18:00:00");
    EXPECT_EQ(TextOf(date(0.5)), "12:00:00");
    EXPECT_EQ(TextOf(date(-1.25)), "1899-12-29 06:00:00") << "the fraction is the time whatever the sign";
    EXPECT_EQ(TextOf(date(60)), "1900-02-28");
    EXPECT_EQ(TextOf(date(61)), "1900-03-01") << "1900 is not a leap year";

    EXPECT_EQ(Converted(Variant("2000-01-02").get(), VT_DATE).get().date, 36527.0);
    EXPECT_EQ(Converted(Variant("1899-12-29 06:00").get(), VT_DATE).get().date, -1.25);
    EXPECT_EQ(Converted(Variant("2024-02-29T12:00:00").get(), VT_DATE).get().date, 45351.5);
    EXPECT_EQ(ConvertResult(Variant("2023-02-29").get(), VT_DATE), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ConvertResult(Variant("2000-01-01 24:00").get(), VT_DATE), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ConvertResult(R8(3e6), VT_DATE), DISP_E_OVERFLOW) << "after the year 9999";
}

TEST_F(VariantTest, EmptyNullObjectsAndArrays) {
    EXPECT_EQ(Converted(Of(VT_EMPTY), VT_I4).get().lVal, 0);
    EXPECT_EQ(ConvertResult(Of(VT_NULL), VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ConvertResult(Of(VT_NULL), VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ConvertResult(I4(1), VT_NULL), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Converted(I4(7), VT_EMPTY).vt(), VT_EMPTY);
    EXPECT_EQ(ConvertResult(I4(1), VT_I4 | VT_BYREF), DISP_E_BADVARTYPE);
    EXPECT_EQ(ConvertResult(I4(1), VT_VARIANT), DISP_E_BADVARTYPE);

    // An object converts to a value through its default member, unless asked not to.
    auto* widget = TestWidget::Create();
    widget->value = 17;
    VARIANT object = Of(VT_UNKNOWN);
    object.punkVal = widget->GetUnknown();
    EXPECT_EQ(TextOf(object), "17");
    Variant refused;
    EXPECT_EQ(VariantChangeType(refused.ptr(), &object, VARIANT_NOVALUEPROP, VT_I4), DISP_E_TYPEMISMATCH);
    Variant dispatch = Converted(object, VT_DISPATCH);
    EXPECT_EQ(dispatch.get().pdispVal, widget->GetDispatch());
    EXPECT_EQ(widget->AddRef(), 3u) << "the converted variant holds a reference";
    widget->Release();
    dispatch = Variant();
    VARIANT none = Of(VT_DISPATCH);
    EXPECT_EQ(ConvertResult(none, VT_I4), DISP_E_TYPEMISMATCH);
    widget->Release();

    // Text and byte vectors convert into each other; other arrays only copy as themselves.
    Variant bytes = Converted(Variant(std::string_view("h\0i", 3)).get(), VT_ARRAY | VT_UI1);
    ASSERT_EQ(SafeArrayElementCount(bytes.get().parray), 3u);
    EXPECT_EQ(static_cast<const char*>(bytes.get().parray->pvData)[2], 'i');
    EXPECT_EQ(BstrView(Converted(bytes.get(), VT_BSTR).get().bstrVal), std::string_view("h\0i", 3));
    EXPECT_EQ(ConvertResult(bytes.get(), VT_ARRAY | VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ConvertResult(bytes.get(), VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_NE(Converted(bytes.get(), VT_ARRAY | VT_UI1).get().parray, bytes.get().parray);
}

TEST_F(VariantTest, ChangeTypeInPlaceReplacesOnlyOnSuccess) {
    Variant value("42");
    ASSERT_EQ(value.ChangeType(VT_I4), S_OK);
    EXPECT_EQ(value.vt(), VT_I4);
    EXPECT_EQ(value.get().lVal, 42);

    Variant word("forty-two");
    EXPECT_EQ(word.ChangeType(VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(word.vt(), VT_BSTR);
    EXPECT_EQ(BstrView(word.get().bstrVal), "forty-two");

    Variant huge(1e20);
    EXPECT_EQ(huge.ChangeType(VT_I4), DISP_E_OVERFLOW);
    EXPECT_EQ(huge.vt(), VT_R8);
    EXPECT_EQ(huge.get().dblVal, 1e20);

    // A by-reference source converts as the value it refers to and is itself untouched.
    int16_t small = 300;
    VARIANT reference = Of(VT_I2 | VT_BYREF);
    reference.piVal = &small;
    Variant out;
    ASSERT_EQ(VariantChangeType(out.ptr(), &reference, 0, VT_R8), S_OK);
    EXPECT_EQ(out.get().dblVal, 300.0);
    EXPECT_EQ(VariantChangeType(out.ptr(), &reference, 0, VT_UI1), DISP_E_OVERFLOW);
    EXPECT_EQ(out.get().dblVal, 300.0);
    EXPECT_EQ(reference.vt, VT_I2 | VT_BYREF);

    // The wrapper's Detach and Attach hand ownership over without a copy.
    VARIANT raw = Variant("moved").Detach();
    const BSTR text = raw.bstrVal;
    Variant back = Variant::Attach(raw);
    EXPECT_EQ(raw.vt, VT_EMPTY);
    EXPECT_EQ(back.get().bstrVal, text);
}

}  // namespace
}  // namespace tessaly::test
