// [out] and [in,out] parameters through Invoke: what references are accepted, what is
// written back and freed, and that a failed call leaves the caller's variables alone.
#include <gtest/gtest.h>

#include "TestWidget.h"
#include "platform/ErrorInfo.h"

namespace tessaly::test {
namespace {

using DispatchOutParamTest = WidgetTest;

TEST_F(DispatchOutParamTest, OutParametersAreWrittenThroughTypedAndVariantReferences) {
    TestWidget* widget = NewWidget();
    LONG quotient = -1;
    VARIANT remainder = Str("held before the call");  // freed when the result replaces it
    Args args{I4(17), I4(5), ByRef(VT_I4, &quotient), ByRef(VT_VARIANT, &remainder)};
    VARIANT result = I4(99);
    ASSERT_EQ(Call(widget, TestWidget::kDivide, DISPATCH_METHOD, args, &result), S_OK);
    EXPECT_EQ(quotient, 3);
    EXPECT_EQ(remainder.vt, VT_I4);
    EXPECT_EQ(remainder.lVal, 2);
    EXPECT_EQ(result.vt, VT_EMPTY) << "no retval: the result is emptied";
}

TEST_F(DispatchOutParamTest, OutParametersMustBeReferencesOfTheirTypeOrOfAVariant) {
    TestWidget* widget = NewWidget();
    LONG quotient = -1;
    double wrongType = -1;
    UINT argErr = 99;
    // By value: rgvarg[1] is the quotient.
    Args byValue{I4(17), I4(5), I4(0), ByRef(VT_I4, &quotient)};
    EXPECT_EQ(Call(widget, TestWidget::kDivide, DISPATCH_METHOD, byValue, nullptr, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 1u);
    Args wrongReference{I4(17), I4(5), ByRef(VT_I4, &quotient), ByRef(VT_R8, &wrongType)};
    EXPECT_EQ(Call(widget, TestWidget::kDivide, DISPATCH_METHOD, wrongReference, nullptr, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 0u);
    Args nullReference{I4(17), I4(5), ByRef(VT_I4, nullptr), ByRef(VT_I4, &quotient)};
    EXPECT_EQ(Call(widget, TestWidget::kDivide, DISPATCH_METHOD, nullReference, nullptr, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 1u);
    Args missing{I4(17), I4(5)};
    EXPECT_EQ(Call(widget, TestWidget::kDivide, DISPATCH_METHOD, missing, nullptr, nullptr, &argErr),
              DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(argErr, 2u);
    EXPECT_EQ(quotient, -1);
    EXPECT_EQ(wrongType, -1);
    EXPECT_EQ(widget->calls, 0);
}

TEST_F(DispatchOutParamTest, FailedCallLeavesOutReferencesUntouched) {
    TestWidget* widget = NewWidget();
    LONG quotient = -1;
    VARIANT remainder = Str("kept");
    Args args{I4(17), I4(0), ByRef(VT_I4, &quotient), ByRef(VT_VARIANT, &remainder)};
    EXCEPINFO excep{};
    ASSERT_EQ(Call(widget, TestWidget::kDivide, DISPATCH_METHOD, args, nullptr, &excep), DISP_E_EXCEPTION);
    EXPECT_EQ(excep.scode, DISP_E_DIVBYZERO);
    EXPECT_EQ(Text(excep.bstrDescription), "Division by zero");
    EXPECT_EQ(quotient, -1);
    ASSERT_EQ(remainder.vt, VT_BSTR);
    EXPECT_EQ(Text(remainder.bstrVal), "kept");
    VariantClear(&remainder);
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrHelpFile);
}

TEST_F(DispatchOutParamTest, InOutParametersStartFromTheCallersValueAndReplaceIt) {
    TestWidget* widget = NewWidget();
    BSTR text = SysAllocString("ab");
    VARIANT previous = I4(5);
    Args args{ByRef(VT_BSTR, &text), ByRef(VT_VARIANT, &previous)};
    ASSERT_EQ(Call(widget, TestWidget::kSwap, DISPATCH_METHOD, args), S_OK);
    EXPECT_EQ(Text(text), "ab!") << "the old string was freed and replaced";
    ASSERT_EQ(previous.vt, VT_BSTR);
    EXPECT_EQ(Text(previous.bstrVal), "ab");
    SysFreeString(text);
    VariantClear(&previous);

    // An in/out string given as a VARIANT holding a number: converted in, a string out.
    VARIANT number = I4(12);
    VARIANT second{};
    Args converted{ByRef(VT_VARIANT, &number), ByRef(VT_VARIANT, &second)};
    ASSERT_EQ(Call(widget, TestWidget::kSwap, DISPATCH_METHOD, converted), S_OK);
    ASSERT_EQ(number.vt, VT_BSTR);
    EXPECT_EQ(Text(number.bstrVal), "12!");
    EXPECT_EQ(Text(second.bstrVal), "12");
    VariantClear(&number);
    VariantClear(&second);

    // An in/out VARIANT must come as a reference to a VARIANT.
    BSTR plain = SysAllocString("x");
    BSTR typed = SysAllocString("y");
    Args typedVariant{ByRef(VT_BSTR, &plain), ByRef(VT_BSTR, &typed)};
    UINT argErr = 99;
    EXPECT_EQ(Call(widget, TestWidget::kSwap, DISPATCH_METHOD, typedVariant, nullptr, nullptr, &argErr),
              DISP_E_TYPEMISMATCH);
    EXPECT_EQ(argErr, 0u);
    EXPECT_EQ(Text(plain), "x");
    SysFreeString(plain);
    SysFreeString(typed);
}

TEST_F(DispatchOutParamTest, FailingMethodsReportThroughExcepInfoOrTheirOwnHresult) {
    TestWidget* widget = NewWidget();
    EXCEPINFO excep{};
    Args args{I4(E_INVALIDARG)};
    ASSERT_EQ(Call(widget, TestWidget::kFail, DISPATCH_METHOD, args, nullptr, &excep), DISP_E_EXCEPTION);
    EXPECT_EQ(excep.scode, E_INVALIDARG);
    EXPECT_EQ(Text(excep.bstrSource), "Fail");
    EXPECT_EQ(Text(excep.bstrDescription), "The widget refused");
    EXPECT_EQ(excep.wCode, 0);
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrHelpFile);
    IErrorInfo* left = nullptr;
    EXPECT_EQ(GetErrorInfo(0, &left), S_FALSE) << "the error info moved into EXCEPINFO";

    // Without EXCEPINFO the method's HRESULT comes back and the error info stays.
    Args again{I4(E_ACCESSDENIED)};
    ASSERT_EQ(Call(widget, TestWidget::kFail, DISPATCH_METHOD, again), E_ACCESSDENIED);
    IErrorInfo* info = nullptr;
    ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
    BSTR description = nullptr;
    ASSERT_EQ(info->GetDescription(&description), S_OK);
    EXPECT_EQ(Text(description), "The widget refused");
    SysFreeString(description);
    GUID iid{};
    ASSERT_EQ(info->GetGUID(&iid), S_OK);
    EXPECT_EQ(iid, ITestWidget::iid);
    info->Release();

    // A method that fails without error info must not be described by an earlier one.
    tessaly::SetErrorInfo(E_FAIL, "stale", "Elsewhere", ITestWidget::iid);
    Args bare{I4(TestWidget::kFailWithoutErrorInfo)};
    excep = EXCEPINFO{};
    ASSERT_EQ(Call(widget, TestWidget::kFail, DISPATCH_METHOD, bare, nullptr, &excep), DISP_E_EXCEPTION);
    EXPECT_EQ(excep.scode, E_ABORT);
    EXPECT_EQ(excep.bstrDescription, nullptr);
    EXPECT_EQ(excep.bstrSource, nullptr);

    // A refused put leaves the property as it was.
    widget->ratio = 2;
    Args put;
    put.Named(DISPID_PROPERTYPUT, R8(-1));
    excep = EXCEPINFO{};
    ASSERT_EQ(Call(widget, TestWidget::kRatio, DISPATCH_PROPERTYPUT, put, nullptr, &excep), DISP_E_EXCEPTION);
    EXPECT_EQ(excep.scode, E_INVALIDARG);
    EXPECT_EQ(Text(excep.bstrSource), "put_Ratio");
    EXPECT_EQ(widget->ratio, 2);
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrHelpFile);
}

}  // namespace
}  // namespace tessaly::test
