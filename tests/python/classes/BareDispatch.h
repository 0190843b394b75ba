// An IDispatch that passes every call on to another object's IDispatch but gives no class
// information (no IProvideClassInfo, no type information): an object as the Python client
// meets it when no type tables describe it, reached by name through GetIDsOfNames.
#pragma once

#include "platform/UnknownObject.h"

namespace tessaly::python::test {

class BareDispatch : public UnknownObject<BareDispatch, IDispatch> {
public:
    explicit BareDispatch(IDispatch* inner) noexcept;

    HRESULT GetTypeInfoCount(UINT* pctinfo) override;
    HRESULT GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) override;
    HRESULT GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid, DISPID* rgDispId) override;
    HRESULT Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags, DISPPARAMS* pDispParams,
                   VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) override;

protected:
    ~BareDispatch() override;

private:
    IDispatch* inner_;
};

}  // namespace tessaly::python::test
