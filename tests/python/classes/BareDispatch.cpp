#include "BareDispatch.h"

namespace tessaly::python::test {

BareDispatch::BareDispatch(IDispatch* inner) noexcept : inner_(inner) { inner_->AddRef(); }

BareDispatch::~BareDispatch() { inner_->Release(); }

HRESULT BareDispatch::GetTypeInfoCount(UINT* pctinfo) {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 0;
    return S_OK;
}

HRESULT BareDispatch::GetTypeInfo(UINT, LCID, ITypeInfo** ppTInfo) {
    if (ppTInfo) *ppTInfo = nullptr;
    return DISP_E_BADINDEX;
}

HRESULT BareDispatch::GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid, DISPID* rgDispId) {
    return inner_->GetIDsOfNames(riid, rgszNames, cNames, lcid, rgDispId);
}

HRESULT BareDispatch::Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags, DISPPARAMS* pDispParams,
                             VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) {
    return inner_->Invoke(dispIdMember, riid, lcid, wFlags, pDispParams, pVarResult, pExcepInfo, puArgErr);
}

}  // namespace tessaly::python::test
