// The colour properties that take only the sixteen values of LuxColorConstants (the
// palette: the fifteen named colours and luxColorNone). Any other value is refused with
// E_INVALIDARG, message ids_Lux_InvalidArgEnum_1 and the insert "highlight color".
//
// A setter checks first, then compares and stores as every setter does: setting the
// present value succeeds and raises nothing.
#pragma once

#include <cstdint>

namespace tessaly::core {

// Whether `color` is one of the sixteen values of LuxColorConstants.
bool IsPaletteColor(int32_t color) noexcept;
// Throws the refusal of a colour outside the palette.
void CheckPaletteColor(int32_t color);

}  // namespace tessaly::core
