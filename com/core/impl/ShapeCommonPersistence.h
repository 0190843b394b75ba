// The keys every shape writes before its own, in this order: "SelectedSpaceName"
// (string), "Visible" (boolean), "Color" (int32), "LineStyle" (int32),
// "LineWidthInScreenPixels" (int32), "Interactive" (boolean), "Selected" (boolean),
// "SelectedColor", "SelectedLineStyle", "SelectedLineWidthInScreenPixels", "DragColor",
// "DragLineStyle", "DragLineWidthInScreenPixels" (int32 each), "TipText" (string), then
// "GraphicDOFEnable" (int32). The mouse cursor is a picture of the display's and is not
// written.
//
// Loading reads and checks every value first (a space name of bad syntax, a line style
// outside its enumeration or a width below 1 is refused with ccArchive::BadContent,
// ids_Lux_ReadInvalidProperty_1 naming the key; a value of the wrong type with
// ccArchive::BadType); a key the archive lacks leaves its value as the load found it.
#pragma once

#include <cstdint>
#include <string>

#include "com/core/impl/ArchiveAccess.h"
#include "com/core/impl/ShapeImplementation.h"

namespace tessaly::core {

// What a load read, and which keys it found.
struct LoadedShapeCommon {
    ShapeCommonState values;
    uint32_t present = 0;  // bit i: key i of the order above was read

    // Moves what was read into the object's fields; throws nothing.
    void ApplyTo(std::string& selectedSpaceName, GraphicSettings& graphics) noexcept;
};

void SaveShapeCommon(ArchiveAccess& archive, const ShapeCommonState& state);
LoadedShapeCommon LoadShapeCommon(ArchiveAccess& archive);

}  // namespace tessaly::core
