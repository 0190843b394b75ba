#include "com/core/impl/PaletteColor.h"

#include <algorithm>
#include <array>

#include "TessalyCore.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

constexpr std::array<int32_t, 16> kPalette = {
    luxColorBlack, luxColorDarkGrey,  luxColorGrey,   luxColorLightGrey, luxColorWhite,  luxColorRed,
    luxColorDarkRed, luxColorOrange,  luxColorYellow, luxColorGreen,     luxColorDarkGreen, luxColorCyan,
    luxColorBlue,  luxColorPurple,    luxColorMagenta, luxColorNone,
};

}  // namespace

bool IsPaletteColor(int32_t color) noexcept {
    return std::find(kPalette.begin(), kPalette.end(), color) != kPalette.end();
}

void CheckPaletteColor(int32_t color) {
    if (!IsPaletteColor(color)) [[unlikely]]
        throw ccStdError::BadArgument("highlight color", ids_Lux_InvalidArgEnum_1, {"highlight color"});
}

}  // namespace tessaly::core
