// The display settings every graphic holds (ILuxGraphic and ILuxGraphicInteractive), as
// one value with the defaults of a new graphic, and the checks their setters make.
//
// Defaults: visible, cyan (0xFFFF00), solid lines 1 pixel wide; not interactive, not
// selected; selected blue (0xFF0000), dragged yellow (0xFFFF), both solid and 1 pixel
// wide; no tip text, no mouse cursor; every degree of freedom enabled (mask -1).
//
// Colours take any 32-bit value (0x00BBGGRR; luxColorNone, -1, draws nothing; a value with
// the top bit set is a system colour to the display). Line styles must be one of
// LuxGraphicLineStyleConstants and widths at least 1: refusals are E_INVALIDARG with
// ids_Lux_InvalidArgEnum_1 or ids_Lux_InvalidArgNotPositive_1 naming the property.
#pragma once

#include <cstdint>
#include <string>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::core {

struct GraphicSettings {
    // ILuxGraphic
    bool visible = true;
    int32_t color = luxColorCyan;
    LuxGraphicLineStyleConstants lineStyle = luxGraphicLineStyleSolid;
    int32_t lineWidth = 1;
    // ILuxGraphicInteractive
    bool interactive = false;
    bool selected = false;
    int32_t selectedColor = luxColorBlue;
    LuxGraphicLineStyleConstants selectedLineStyle = luxGraphicLineStyleSolid;
    int32_t selectedLineWidth = 1;
    int32_t dragColor = luxColorYellow;
    LuxGraphicLineStyleConstants dragLineStyle = luxGraphicLineStyleSolid;
    int32_t dragLineWidth = 1;
    std::string tipText;
    ComPtr<IDispatch> mouseCursor;
    // The degrees of freedom the user may change: the top bit is the position, -1 all.
    int32_t dofMask = luxGraphicDOFAll;

    // Copies what luxCopyShapeBasicGraphics carries: everything above but the DOF mask.
    void AssignBasicGraphics(const GraphicSettings& source);
};

// Refuses a line style outside LuxGraphicLineStyleConstants, naming `property`.
void CheckLineStyle(int32_t style, const char* property);
// Refuses a line width below 1, naming `property`.
void CheckLineWidth(int32_t width, const char* property);

// Whether the position bit of a DOF mask is set: the graphic may be moved.
inline bool MayMove(int32_t dofMask) noexcept { return (dofMask & luxGraphicDOFPosition) != 0; }

}  // namespace tessaly::core
