// The Python client's test class (coclass Probe of TessalyPythonTest.idl): members of every
// parameter shape, which record and return what they received, and events fired on the
// calling thread or on another one.
#pragma once

#include <atomic>

#include "TessalyPythonTest.h"
#include "platform/ComObject.h"

namespace tessaly::python::test {

class Probe : public ComObject<Probe, IProbe> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_Probe;

    HRESULT Echo(VARIANT value, VARIANT* copy) override;
    HRESULT VarType(VARIANT value, LONG* type) override;
    HRESULT Element(VARIANT array, LONG first, LONG second, VARIANT* value) override;
    HRESULT MakeMatrix(LONG rows, LONG columns, SAFEARRAY** matrix) override;
    HRESULT Checksum(SAFEARRAY* data, LONG* sum) override;
    HRESULT Total(SAFEARRAY* values, double* sum) override;
    HRESULT Divide(LONG dividend, LONG divisor, LONG* quotient, LONG* remainder) override;
    HRESULT Split(BSTR text, BSTR* head, VARIANT* tail, LONG* parts) override;
    HRESULT Bump(LONG* counter, LONG step) override;
    HRESULT Swap(BSTR* text, VARIANT* value) override;
    HRESULT Greet(BSTR name, VARIANT_BOOL loud, BSTR* text) override;
    HRESULT Describe(VARIANT extra, BSTR* text) override;
    HRESULT get_Cell(LONG row, LONG column, double* value) override;
    HRESULT put_Cell(LONG row, LONG column, double value) override;
    HRESULT get_Shade(ProbeShadeConstants* shade) override;
    HRESULT put_Shade(ProbeShadeConstants shade) override;
    HRESULT get_Partner(IDispatch** partner) override;
    HRESULT putref_Partner(IDispatch* partner) override;
    HRESULT MakeProbe(IProbe** created) override;
    HRESULT Fail(LONG code, BSTR description) override;
    HRESULT Fire(LONG count) override;
    HRESULT FireFromThread(LONG count) override;
    HRESULT MakeStream(BSTR text, IUnknown** stream) override;
    HRESULT ReadStream(IUnknown* stream, BSTR* text) override;
    HRESULT put_Secret(LONG value) override;
    HRESULT get_LastSecret(LONG* value) override;
    HRESULT Calls(LONG* count) override;
    HRESULT Bare(IDispatch** dispatch) override;

protected:
    ~Probe() override;

private:
    void FireTicks(LONG count);

    std::atomic<LONG> calls_{0};
    double grid_[3][3] = {};
    ProbeShadeConstants shade_ = probeShadeDark;
    IDispatch* partner_ = nullptr;
    LONG secret_ = 0;
};

}  // namespace tessaly::python::test
