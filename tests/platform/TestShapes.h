// The test class of coclass TestSealed: ITestShapes (enumerations, IDispatch properties,
// two-index properties, defaults of several types, arrays, out parameters of every kind)
// and the vtable-only ITestRaw. It records what its methods received.
#pragma once

#include <string>
#include <vector>

#include "TestWidget.h"

namespace tessaly::test {

// An IEnumVARIANT over copies of some values.
class TestEnumVariant : public UnknownObject<TestEnumVariant, IEnumVARIANT> {
public:
    explicit TestEnumVariant(const std::vector<VARIANT>& values);
    HRESULT Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) override;
    HRESULT Skip(ULONG celt) override;
    HRESULT Reset() override;
    HRESULT Clone(IEnumVARIANT** ppEnum) override;

protected:
    ~TestEnumVariant() override;

private:
    std::vector<VARIANT> values_;
    size_t position_ = 0;
};

class TestShapes : public ComObject<TestShapes, ITestShapes, ITestRaw> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestSealed;
    static constexpr DISPID kColor = 0x1004001;
    static constexpr DISPID kOwner = 0x1004002;
    static constexpr DISPID kCell = 0x1004003;
    static constexpr DISPID kScale = 0x1004010;
    static constexpr DISPID kChecksum = 0x1004011;
    static constexpr DISPID kMakeBytes = 0x1004012;
    static constexpr DISPID kSplit = 0x1004013;
    static constexpr DISPID kIdentify = 0x1004014;
    static constexpr DISPID kFormat = 0x1004015;
    static constexpr DISPID kPair = 0x1004016;
    static constexpr DISPID kTotal = 0x1004017;

    // ITestShapes
    HRESULT get_Color(TestColorConstants* value) override;
    HRESULT put_Color(TestColorConstants value) override;
    HRESULT get_Owner(IDispatch** value) override;
    HRESULT putref_Owner(IDispatch* value) override;
    HRESULT get_Cell(LONG row, LONG column, double* value) override;
    HRESULT put_Cell(LONG row, LONG column, double value) override;
    HRESULT Scale(double factor, VARIANT fallback, LONG count, BSTR label, double* scaled) override;
    HRESULT Checksum(SAFEARRAY* data, LONG* sum) override;
    HRESULT MakeBytes(LONG count, SAFEARRAY** bytes) override;
    HRESULT Split(BSTR text, BSTR* head, VARIANT* tail, LONG* parts) override;
    HRESULT Identify(IDispatch* object, IUnknown* unknown, VARIANT_BOOL* same) override;
    HRESULT Format(SHORT i2, float r4, DATE date, CY money, LONGLONG i8, BYTE ui1, int8_t i1, USHORT ui2, ULONG ui4,
                   SCODE code, BSTR* text) override;
    HRESULT Pair(TestColorConstants color, TestColorConstants* complement, ITestGadget** gadget,
                 ITestWidget** widget) override;
    HRESULT Total(SAFEARRAY* values, VARIANT* total) override;
    HRESULT Load(IStream* stream, IEnumVARIANT** items) override;
    HRESULT get__NewEnum(IUnknown** enumerator) override;
    // ITestRaw: ByteSum is Checksum under its own name; Write puts text into a stream.
    HRESULT ByteSum(SAFEARRAY* data, LONG* sum) override;
    HRESULT Write(IStream* stream, BSTR text) override;

    TestColorConstants color = testColorNone;
    IDispatch* owner = nullptr;
    double cells[3][3] = {};
    // What Scale received.
    double factor = 0;
    VARIANT fallback{};
    LONG count = -99;
    bool labelWasNull = false;
    std::string label;

protected:
    ~TestShapes() override;
};

}  // namespace tessaly::test
