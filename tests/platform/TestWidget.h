// Test classes over the test type library: TestWidget (ITestWidget, ITestGadget, events
// ITestWidgetEvents) and TestGadget (ITestGadget only, no events), with the helpers the
// dispatch tests share.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "TessalyTest.h"
#include "platform/Bstr.h"
#include "platform/ComObject.h"
#include "platform/Module.h"
#include "platform/Variant.h"

namespace tessaly::test {

class TestWidget : public ComObject<TestWidget, ITestWidget, ITestGadget> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestWidget;
    // DISPIDs of the test type library's members, as the tests use them.
    static constexpr DISPID kName = 0x1001001;
    static constexpr DISPID kRatio = 0x1001002;
    static constexpr DISPID kGadget = 0x1001003;
    static constexpr DISPID kTag = 0x1001004;
    static constexpr DISPID kItem = 0x1001005;
    static constexpr DISPID kAdd = 0x1001010;
    static constexpr DISPID kConcat = 0x1001011;
    static constexpr DISPID kDescribe = 0x1001012;
    static constexpr DISPID kDivide = 0x1001013;
    static constexpr DISPID kSwap = 0x1001014;
    static constexpr DISPID kFail = 0x1001015;
    static constexpr DISPID kFireChange = 0x1001016;
    static constexpr DISPID kGreet = 0x1001017;
    static constexpr DISPID kWidgetExtent = 0x1001018;
    static constexpr DISPID kKind = 0x1002001;
    static constexpr DISPID kGadgetSize = 0x1003001;
    static constexpr DISPID kAttach = 0x1003002;
    static constexpr DISPID kChangeEvent = 7456;
    static constexpr DISPID kPingEvent = 7457;
    // Fail(kFailWithoutErrorInfo) fails with E_ABORT and records no error info.
    static constexpr LONG kFailWithoutErrorInfo = 1;

    TestWidget();

    // ITestWidget
    HRESULT get_Value(LONG* value) override;
    HRESULT put_Value(LONG value) override;
    HRESULT get_Name(BSTR* value) override;
    HRESULT put_Name(BSTR value) override;
    HRESULT get_Ratio(double* value) override;
    HRESULT put_Ratio(double value) override;
    HRESULT get_Gadget(ITestGadget** value) override;
    HRESULT putref_Gadget(ITestGadget* value) override;
    HRESULT get_Tag(VARIANT* value) override;
    HRESULT put_Tag(VARIANT value) override;
    HRESULT get_Item(LONG index, VARIANT* value) override;
    HRESULT put_Item(LONG index, VARIANT value) override;
    HRESULT Add(LONG a, LONG b, LONG* sum) override;
    HRESULT Concat(BSTR first, BSTR second, BSTR* joined) override;
    HRESULT Describe(VARIANT extra, BSTR* text) override;
    HRESULT Divide(LONG dividend, LONG divisor, LONG* quotient, LONG* remainder) override;
    HRESULT Swap(BSTR* text, VARIANT* value) override;
    HRESULT Fail(LONG code) override;
    HRESULT FireChange(LONG state, VARIANT value) override;
    HRESULT Greet(BSTR name, VARIANT_BOOL loud, BSTR* text) override;
    HRESULT get_Extent(double* value) override;
    // ITestBase, ITestGadget
    HRESULT get_Kind(BSTR* value) override;
    HRESULT get_Size(LONG* value) override;
    HRESULT put_Size(LONG value) override;
    HRESULT Attach(ITestWidget* widget, LONG* widgetValue) override;

    // What the methods saw, for the tests to check.
    int calls = 0;
    LONG value = 0;
    std::string name;
    double ratio = 0;
    LONG gadgetSize = 0;
    ITestGadget* gadget = nullptr;
    VARIANT tag{};
    VARIANT items[4]{};
    // What Describe last received.
    VARTYPE describedType = VT_EMPTY;
    SCODE describedScode = 0;

protected:
    ~TestWidget() override;
};

class TestGadget : public ComObject<TestGadget, ITestGadget> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestGadget;
    HRESULT get_Kind(BSTR* value) override;
    HRESULT get_Size(LONG* value) override;
    HRESULT put_Size(LONG value) override;
    HRESULT Attach(ITestWidget* widget, LONG* widgetValue) override;

    LONG size = 0;

protected:
    ~TestGadget() override = default;
};

// An owning interface pointer for the tests.
template <class T>
class Ref {
public:
    Ref() = default;
    explicit Ref(T* adopted) : p_(adopted) {}
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    Ref(Ref&& other) noexcept : p_(other.p_) { other.p_ = nullptr; }
    ~Ref() { Reset(); }
    void Reset() {
        if (p_) p_->Release();
        p_ = nullptr;
    }
    T* get() const { return p_; }
    T* operator->() const { return p_; }
    T** out() {
        Reset();
        return &p_;
    }
    void** void_out() { return reinterpret_cast<void**>(out()); }
    explicit operator bool() const { return p_ != nullptr; }

private:
    T* p_ = nullptr;
};

// The current reference count of an object, read without changing it.
inline ULONG RefCount(IUnknown* object) {
    object->AddRef();
    return object->Release();
}
inline ULONG RefCount(TestWidget* widget) { return RefCount(widget->GetUnknown()); }

VARIANT I4(LONG value);
VARIANT R8(double value);
VARIANT Bool(bool value);
VARIANT Str(const char* text);  // the caller owns the BSTR
VARIANT Missing();              // VT_ERROR / DISP_E_PARAMNOTFOUND
VARIANT Object(IDispatch* object);  // VT_DISPATCH holding its own reference
VARIANT Object(IUnknown* object);   // VT_UNKNOWN holding its own reference
VARIANT ByRef(VARTYPE vt, void* target);
std::string Text(BSTR text);

// Arguments in the order a caller writes them; DISPPARAMS holds them last-first. Named
// arguments (given as name DISPID + value) go first in rgvarg, as clients place them. The
// block owns the values it was given and clears them at the end.
class Args {
public:
    Args(std::initializer_list<VARIANT> positional = {});
    Args& Named(DISPID name, VARIANT value);
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;
    ~Args();
    DISPPARAMS* get();
    VARIANT& rgvarg(size_t index) { return values_[index]; }

private:
    std::vector<VARIANT> positional_;
    std::vector<DISPID> names_;
    std::vector<VARIANT> named_;
    std::vector<VARIANT> values_;
    DISPPARAMS params_{};
};

// Every test starts and ends with the same number of live objects, and with no error info
// left on the thread.
class WidgetTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A new widget; the fixture holds one reference until the test ends.
    TestWidget* NewWidget();
    // IDispatch::Invoke on the widget with IID_NULL and the user's locale.
    HRESULT Call(IDispatch* target, DISPID dispid, WORD flags, Args& args, VARIANT* result = nullptr,
                 EXCEPINFO* excep = nullptr, UINT* argErr = nullptr);
    HRESULT PropertyPut(IDispatch* target, DISPID dispid, VARIANT value, WORD flags = DISPATCH_PROPERTYPUT);
    HRESULT Call(TestWidget* target, DISPID dispid, WORD flags, Args& args, VARIANT* result = nullptr,
                 EXCEPINFO* excep = nullptr, UINT* argErr = nullptr) {
        return Call(target->GetDispatch(), dispid, flags, args, result, excep, argErr);
    }
    HRESULT PropertyPut(TestWidget* target, DISPID dispid, VARIANT value, WORD flags = DISPATCH_PROPERTYPUT) {
        return PropertyPut(target->GetDispatch(), dispid, value, flags);
    }

    LONG liveAtStart_ = 0;
    std::vector<Ref<ITestWidget>> widgets_;
};

}  // namespace tessaly::test
