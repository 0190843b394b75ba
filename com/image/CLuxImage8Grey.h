// LuxImage8Grey: an image of 8-bit grey pixels (see ccLuxGreyImageImpl and ccLuxImageImpl).
#pragma once

#include "TessalyCore.h"
#include "com/image/CLuxImage8Root.h"
#include "com/image/impl/ccLuxGreyImageImpl.h"

namespace tessaly::image {

class CLuxImage8Grey;

struct Grey8Traits {
    using Pel = uint8_t;
    using ITyped = ILuxImage8Grey;
    using IData = ILuxImage8GreyData;
    using IRoot = ILuxImage8Root;
    using IMemory = ILuxImage8PixelMemory;
    using RootClass = CLuxImage8Root;
    static constexpr LONG kMaxValue = 255;
};

class CLuxImage8Grey : public ccLuxGreyImageImpl<CLuxImage8Grey, Grey8Traits> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxImage8Grey; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxImage8Grey;

    // ILuxImage8GreyData
    HRESULT Get8GreyPixelMemory(LuxImageDataModeConstants DataMode, LONG X, LONG Y, LONG Width, LONG Height,
                                ILuxImage8PixelMemory** PixelMemory) override {
        return OpenPixelMemory("Get8GreyPixelMemory", IID_ILuxImage8GreyData, DataMode, X, Y, Width, Height,
                               PixelMemory);
    }

protected:
    ~CLuxImage8Grey() override = default;
};

}  // namespace tessaly::image
