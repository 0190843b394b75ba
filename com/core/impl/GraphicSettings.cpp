#include "com/core/impl/GraphicSettings.h"

#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

void GraphicSettings::AssignBasicGraphics(const GraphicSettings& source) {
    const int32_t keptMask = dofMask;
    *this = source;
    dofMask = keptMask;
}

void CheckLineStyle(int32_t style, const char* property) {
    if (style < luxGraphicLineStyleSolid || style > luxGraphicLineStyleDashDotDot) [[unlikely]]
        throw ccStdError::BadArgument(property, ids_Lux_InvalidArgEnum_1, {property});
}

void CheckLineWidth(int32_t width, const char* property) {
    if (width < 1) [[unlikely]]
        throw ccStdError::BadArgument(property, ids_Lux_InvalidArgNotPositive_1, {property});
}

}  // namespace tessaly::core
