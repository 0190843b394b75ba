#include "com/core/ccEventInfo.h"

#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"

namespace tessaly::core {

using Impl = ccEventInfo::ccILuxEventInfoImpl;

Impl* Impl::Create(DISPID eventId, const DISPPARAMS& arguments, IDispatch* source, LONG sourceIndex) noexcept {
    auto info = ComPtr<Impl>::Attach(UnknownObject::Create());
    if (!info) return nullptr;
    try {
        info->eventId_ = eventId;
        info->arguments_.reserve(arguments.cArgs);
        for (UINT i = arguments.cArgs; i-- > 0;) {
            Variant copy;
            if (FAILED(VariantCopyInd(copy.ptr(), &arguments.rgvarg[i]))) return nullptr;
            info->arguments_.push_back(std::move(copy));
        }
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    info->source_ = ComPtr<IDispatch>(source);
    info->sourceIndex_ = sourceIndex;
    return info.Detach();
}

HRESULT Impl::get_EventID(LONG* EventID) {
    return Guarded("EventID", IID_ILuxEventInfo, [&] {
        if (!EventID) return E_POINTER;
        *EventID = eventId_;
        return S_OK;
    });
}

HRESULT Impl::get_ArgumentCount(LONG* Count) {
    return Guarded("ArgumentCount", IID_ILuxEventInfo, [&] {
        if (!Count) return E_POINTER;
        *Count = static_cast<LONG>(arguments_.size());
        return S_OK;
    });
}

HRESULT Impl::get_Arguments(LONG Index, VARIANT* Argument) {
    return Guarded("Arguments", IID_ILuxEventInfo, [&] {
        if (!Argument) return E_POINTER;
        if (Index < 0 || static_cast<size_t>(Index) >= arguments_.size()) return DISP_E_BADINDEX;
        ThrowIfFailed(arguments_[static_cast<size_t>(Index)].CopyTo(Argument));
        return S_OK;
    });
}

HRESULT Impl::get_Source(IDispatch** Source) {
    return Guarded("Source", IID_ILuxEventInfo, [&] {
        if (!Source) return E_POINTER;
        *Source = ComPtr<IDispatch>(source_).Detach();
        return S_OK;
    });
}

HRESULT Impl::get_SourceIndex(LONG* SourceIndex) {
    return Guarded("SourceIndex", IID_ILuxEventInfo, [&] {
        if (!SourceIndex) return E_POINTER;
        *SourceIndex = sourceIndex_;
        return S_OK;
    });
}

}  // namespace tessaly::core
