#include "TestWidget.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "platform/ClassTable.h"
#include "platform/ErrorInfo.h"

namespace tessaly::test {

namespace {

HRESULT NewString(const std::string& text, BSTR* out) {
    if (!out) return E_POINTER;
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

const CoClassInfo& TestWidget::CoClass() { return generated::CoClass_TestWidget; }

// The test classes are made by name like the library's own.
static const ClassRegistrar<TestWidget> widgetRegistrar;
static const ClassRegistrar<TestGadget> gadgetRegistrar;

TestWidget::TestWidget() = default;

TestWidget::~TestWidget() {
    if (gadget) gadget->Release();
    VariantClear(&tag);
    for (VARIANT& item : items) VariantClear(&item);
}

HRESULT TestWidget::get_Value(LONG* result) {
    ++calls;
    *result = value;
    return S_OK;
}

HRESULT TestWidget::put_Value(LONG newValue) {
    ++calls;
    value = newValue;
    return S_OK;
}

HRESULT TestWidget::get_Name(BSTR* result) {
    ++calls;
    return NewString(name, result);
}

HRESULT TestWidget::put_Name(BSTR newName) {
    ++calls;
    name.assign(newName ? newName : "", SysStringLen(newName));
    return S_OK;
}

HRESULT TestWidget::get_Ratio(double* result) {
    ++calls;
    *result = ratio;
    return S_OK;
}

HRESULT TestWidget::put_Ratio(double newRatio) {
    ++calls;
    if (newRatio < 0)
        return tessaly::SetErrorInfo(E_INVALIDARG, "Ratio must not be negative", "put_Ratio", ITestWidget::iid);
    ratio = newRatio;
    return S_OK;
}

HRESULT TestWidget::get_Gadget(ITestGadget** result) {
    ++calls;
    *result = gadget;
    if (gadget) gadget->AddRef();
    return S_OK;
}

HRESULT TestWidget::putref_Gadget(ITestGadget* newGadget) {
    ++calls;
    if (newGadget) newGadget->AddRef();
    if (gadget) gadget->Release();
    gadget = newGadget;
    return S_OK;
}

HRESULT TestWidget::get_Tag(VARIANT* result) {
    ++calls;
    return VariantCopy(result, &tag);
}

HRESULT TestWidget::put_Tag(VARIANT newTag) {
    ++calls;
    return VariantCopy(&tag, &newTag);
}

HRESULT TestWidget::get_Item(LONG index, VARIANT* result) {
    ++calls;
    if (index < 0 || index >= 4) return DISP_E_BADINDEX;
    return VariantCopy(result, &items[index]);
}

HRESULT TestWidget::put_Item(LONG index, VARIANT item) {
    ++calls;
    if (index < 0 || index >= 4) return DISP_E_BADINDEX;
    return VariantCopy(&items[index], &item);
}

HRESULT TestWidget::Add(LONG a, LONG b, LONG* sum) {
    ++calls;
    *sum = a + b;
    return S_OK;
}

HRESULT TestWidget::Concat(BSTR first, BSTR second, BSTR* joined) {
    ++calls;
    return NewString(Text(first) + Text(second), joined);
}

HRESULT TestWidget::Describe(VARIANT extra, BSTR* text) {
    ++calls;
    describedType = extra.vt;
    describedScode = extra.vt == VT_ERROR ? extra.scode : 0;
    return NewString(extra.vt == VT_BSTR ? Text(extra.bstrVal) : "vt " + std::to_string(extra.vt), text);
}

HRESULT TestWidget::Divide(LONG dividend, LONG divisor, LONG* quotient, LONG* remainder) {
    ++calls;
    if (divisor == 0)
        return tessaly::SetErrorInfo(DISP_E_DIVBYZERO, "Division by zero", "Divide", ITestWidget::iid);
    *quotient = dividend / divisor;
    *remainder = dividend % divisor;
    return S_OK;
}

HRESULT TestWidget::Swap(BSTR* text, VARIANT* item) {
    ++calls;
    // The in/out string comes back longer; the in/out VARIANT comes back as the old text.
    const std::string previous = Text(*text);
    BSTR longer = nullptr;
    const HRESULT hr = NewString(previous + "!", &longer);
    if (FAILED(hr)) return hr;
    SysFreeString(*text);
    *text = longer;
    VariantClear(item);
    item->vt = VT_BSTR;
    return NewString(previous, &item->bstrVal);
}

HRESULT TestWidget::Fail(LONG code) {
    ++calls;
    if (code == kFailWithoutErrorInfo) return E_ABORT;
    return tessaly::SetErrorInfo(code, "The widget refused", "Fail", ITestWidget::iid);
}

HRESULT TestWidget::FireChange(LONG state, VARIANT change) {
    ++calls;
    return FireEvent(ITestWidgetEvents::iid, kChangeEvent, state, change);
}

HRESULT TestWidget::Greet(BSTR whom, VARIANT_BOOL loud, BSTR* text) {
    ++calls;
    std::string greeting = "Hello, " + Text(whom);
    if (loud) {
        std::transform(greeting.begin(), greeting.end(), greeting.begin(), [](unsigned char c) {
            return static_cast<char>(std::toupper(c));
        });
        greeting += "!";
    }
    return NewString(greeting, text);
}

HRESULT TestWidget::get_Extent(double* result) {
    ++calls;
    *result = 1.5;
    return S_OK;
}

HRESULT TestWidget::get_Kind(BSTR* result) {
    ++calls;
    return NewString("widget", result);
}

HRESULT TestWidget::get_Size(LONG* result) {
    ++calls;
    *result = gadgetSize;
    return S_OK;
}

HRESULT TestWidget::put_Size(LONG size) {
    ++calls;
    gadgetSize = size;
    return S_OK;
}

HRESULT TestWidget::Attach(ITestWidget* widget, LONG* widgetValue) {
    ++calls;
    if (!widget) {
        *widgetValue = -1;
        return S_OK;
    }
    return widget->get_Value(widgetValue);
}

const CoClassInfo& TestGadget::CoClass() { return generated::CoClass_TestGadget; }

HRESULT TestGadget::get_Kind(BSTR* result) { return NewString("gadget", result); }

HRESULT TestGadget::get_Size(LONG* result) {
    *result = size;
    return S_OK;
}

HRESULT TestGadget::put_Size(LONG newSize) {
    size = newSize;
    return S_OK;
}

HRESULT TestGadget::Attach(ITestWidget* widget, LONG* widgetValue) {
    *widgetValue = widget ? 1 : 0;
    return S_OK;
}

VARIANT I4(LONG value) {
    VARIANT v{};
    v.vt = VT_I4;
    v.lVal = value;
    return v;
}

VARIANT R8(double value) {
    VARIANT v{};
    v.vt = VT_R8;
    v.dblVal = value;
    return v;
}

VARIANT Bool(bool value) {
    VARIANT v{};
    v.vt = VT_BOOL;
    v.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return v;
}

VARIANT Str(const char* text) {
    VARIANT v{};
    v.vt = VT_BSTR;
    v.bstrVal = SysAllocString(text);
    return v;
}

VARIANT Missing() {
    VARIANT v{};
    v.vt = VT_ERROR;
    v.scode = DISP_E_PARAMNOTFOUND;
    return v;
}

VARIANT Object(IDispatch* object) {
    VARIANT v{};
    v.vt = VT_DISPATCH;
    v.pdispVal = object;
    if (object) object->AddRef();
    return v;
}

VARIANT Object(IUnknown* object) {
    VARIANT v{};
    v.vt = VT_UNKNOWN;
    v.punkVal = object;
    if (object) object->AddRef();
    return v;
}

VARIANT ByRef(VARTYPE vt, void* target) {
    VARIANT v{};
    v.vt = static_cast<VARTYPE>(VT_BYREF | vt);
    v.byref = target;
    return v;
}

std::string Text(BSTR text) { return text ? std::string(text, SysStringLen(text)) : std::string(); }

Args::Args(std::initializer_list<VARIANT> positional) : positional_(positional) {}

Args& Args::Named(DISPID name, VARIANT value) {
    names_.push_back(name);
    named_.push_back(value);
    return *this;
}

Args::~Args() {
    for (VARIANT& v : values_)
        if (!(v.vt & VT_BYREF)) VariantClear(&v);
}

DISPPARAMS* Args::get() {
    if (values_.empty()) {
        values_ = named_;
        for (auto it = positional_.rbegin(); it != positional_.rend(); ++it) values_.push_back(*it);
    }
    params_.rgvarg = values_.empty() ? nullptr : values_.data();
    params_.rgdispidNamedArgs = names_.empty() ? nullptr : names_.data();
    params_.cArgs = static_cast<UINT>(values_.size());
    params_.cNamedArgs = static_cast<UINT>(names_.size());
    return &params_;
}

void WidgetTest::SetUp() {
    liveAtStart_ = Module::LiveObjectCount();
    ClearErrorInfo();
}

void WidgetTest::TearDown() {
    widgets_.clear();
    ClearErrorInfo();
    EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_) << "objects left alive";
}

TestWidget* WidgetTest::NewWidget() {
    TestWidget* widget = TestWidget::Create();
    widgets_.emplace_back(widget);
    return widget;
}

HRESULT WidgetTest::Call(IDispatch* target, DISPID dispid, WORD flags, Args& args, VARIANT* result,
                         EXCEPINFO* excep, UINT* argErr) {
    return target->Invoke(dispid, GUID_NULL, LOCALE_USER_DEFAULT, flags, args.get(), result, excep, argErr);
}

HRESULT WidgetTest::PropertyPut(IDispatch* target, DISPID dispid, VARIANT value, WORD flags) {
    Args args;
    args.Named(DISPID_PROPERTYPUT, value);
    return Call(target, dispid, flags, args);
}

}  // namespace tessaly::test
