// The description of an event that a container passes on from one of its items (state
// ID luxState_SubObjectEvent): the event's ID, its arguments, the object that fired it
// and that object's index in the container. It is a snapshot taken when the event fired.
#pragma once

#include <vector>

#include "TessalyCore.h"
#include "platform/ComObject.h"
#include "platform/ComPtr.h"
#include "platform/Variant.h"

namespace tessaly::core {

class ccEventInfo {
public:
    class ccILuxEventInfoImpl : public ComObject<ccILuxEventInfoImpl, ILuxEventInfo_Disp, ILuxEventInfo> {
    public:
        static const CoClassInfo& CoClass() { return generated::CoClass_LuxEventInfo; }
        using CoClassInterfaceList = generated::CoClassInterfaceList_LuxEventInfo;

        // `arguments` as Invoke received them (last first); they are copied in declared
        // order. Null when out of memory.
        static ccILuxEventInfoImpl* Create(DISPID eventId, const DISPPARAMS& arguments, IDispatch* source,
                                           LONG sourceIndex) noexcept;

        HRESULT get_EventID(LONG* EventID) override;
        HRESULT get_ArgumentCount(LONG* Count) override;
        HRESULT get_Arguments(LONG Index, VARIANT* Argument) override;
        HRESULT get_Source(IDispatch** Source) override;
        HRESULT get_SourceIndex(LONG* SourceIndex) override;

        ccILuxEventInfoImpl() = default;

    protected:
        ~ccILuxEventInfoImpl() override = default;

    private:
        DISPID eventId_ = 0;
        std::vector<Variant> arguments_;
        ComPtr<IDispatch> source_;
        LONG sourceIndex_ = luxNoIndex;
    };
};

}  // namespace tessaly::core
