// The test class of coclass TestSamples: ITestSamples (a colour, a 64-bit address, arrays of
// doubles passed [out] and [in, out]) and the [local] ITestSamplesLocal, which hands C++
// callers the samples as a struct and as raw storage.
#pragma once

#include <vector>

#include "TestWidget.h"

namespace tessaly::test {

class TestSamples : public ComObject<TestSamples, ITestSamples, ITestSamplesLocal> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestSamples;
    static constexpr DISPID kTint = 0x1005001;
    static constexpr DISPID kFill = 0x1005002;
    static constexpr DISPID kAccumulate = 0x1005003;
    static constexpr DISPID kAddress = 0x1005004;
    static constexpr DISPID kOffset = 0x1005005;

    // ITestSamples
    HRESULT get_Tint(OLE_COLOR* value) override;
    HRESULT put_Tint(OLE_COLOR value) override;
    HRESULT Fill(LONG count, SAFEARRAY** values, LONG* filled) override;
    HRESULT Accumulate(double factor, SAFEARRAY** values) override;
    HRESULT get_Address(LONGLONG* value) override;
    HRESULT put_Address(LONGLONG value) override;
    HRESULT Offset(LONGLONG base, LONG distance, LONGLONG* previous, LONGLONG* moved) override;
    // ITestSamplesLocal
    HRESULT GetSpan(TestSampleSpan* span) override;
    HRESULT SetSpan(const TestSampleSpan* span) override;
    HRESULT RawValues(const double** values, LONG* count) override;

    int calls = 0;
    OLE_COLOR tint = 0;
    LONGLONG address = 0;
    std::vector<double> samples;

protected:
    ~TestSamples() override = default;
};

}  // namespace tessaly::test
