// LuxImage16Grey: an image of 16-bit grey pixels (see ccLuxGreyImageImpl and
// ccLuxImageImpl), with the Encoding of its values: a label for the number of significant
// bits (luxImage16EncodingGrey16 when new) that never changes a pixel. Encoding outside
// 1..5 is refused with E_INVALIDARG naming "Encoding"; setting the value held raises
// nothing, another raises Change(luxImage16Grey_Encoding). Copies keep it; it is
// persisted as "Encoding".
#pragma once

#include "TessalyCore.h"
#include "com/image/CLuxImage16Root.h"
#include "com/image/impl/ccLuxGreyImageImpl.h"

namespace tessaly::image {

class CLuxImage16Grey;

struct Grey16Traits {
    using Pel = uint16_t;
    using ITyped = ILuxImage16Grey;
    using IData = ILuxImage16GreyData;
    using IRoot = ILuxImage16Root;
    using IMemory = ILuxImage16PixelMemory;
    using RootClass = CLuxImage16Root;
    static constexpr LONG kMaxValue = 65535;
};

class CLuxImage16Grey : public ccLuxGreyImageImpl<CLuxImage16Grey, Grey16Traits> {
    using Base = ccLuxGreyImageImpl<CLuxImage16Grey, Grey16Traits>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage16Grey; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage16Grey;

    void CopyExtrasFrom(const CLuxImage16Grey& source);
    void ResetState();
    void PersistState(core::ArchiveAccess& archive);

    HRESULT get_Encoding(LuxImage16EncodingConstants* Encoding) override;
    HRESULT put_Encoding(LuxImage16EncodingConstants Encoding) override;

    // ILuxImage16GreyData
    HRESULT Get16GreyPixelMemory(LuxImageDataModeConstants DataMode, LONG X, LONG Y, LONG Width, LONG Height,
                                 ILuxImage16PixelMemory** PixelMemory) override {
        return OpenPixelMemory("Get16GreyPixelMemory", IID_ILuxImage16GreyData, DataMode, X, Y, Width, Height,
                               PixelMemory);
    }

protected:
    ~CLuxImage16Grey() override = default;

private:
    int32_t encoding_ = luxImage16EncodingGrey16;
};

}  // namespace tessaly::image
