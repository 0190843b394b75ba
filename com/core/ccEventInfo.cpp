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
    return Guarded("get_EventID", IID_ILuxEventInfo, [&] {
        RequireOut(EventID);
        *EventID = eventId_;
        return S_OK;
    });
}

HRESULT Impl::get_ArgumentCount(LONG* Count) {
    return Guarded("get_ArgumentCount", IID_ILuxEventInfo, [&] {
        RequireOut(Count);
        *Count = static_cast<LONG>(arguments_.size());
        return S_OK;
    });
}

HRESULT Impl::get_Arguments(LONG Index, VARIANT* Argument) {
    return Guarded("get_Arguments", IID_ILuxEventInfo, [&] {
        RequireOut(Argument);
        if (Index < 0 || static_cast<size_t>(Index) >= arguments_.size()) return DISP_E_BADINDEX;
        ThrowIfFailed(arguments_[static_cast<size_t>(Index)].CopyTo(Argument));
        return S_OK;
    });
}

HRESULT Impl::get_Source(IDispatch** Source) {
    return Guarded("get_Source", IID_ILuxEventInfo, [&] {
        RequireOut(Source);
        *Source = ComPtr<IDispatch>(source_).Detach();
        return S_OK;
    });
}

HRESULT Impl::get_SourceIndex(LONG* SourceIndex) {
    return Guarded("get_SourceIndex", IID_ILuxEventInfo, [&] {
        RequireOut(SourceIndex);
        *SourceIndex = sourceIndex_;
        return S_OK;
    });
}

}  // namespace tessaly::core
