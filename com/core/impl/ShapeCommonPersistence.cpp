#include "com/core/impl/ShapeCommonPersistence.h"

#include <string>
#include <utility>

#include "com/transform/impl/SpaceName.h"
#include "persist/ccArchive.h"
#include "platform/Variant.h"

namespace tessaly::core {

namespace {

enum Key : uint32_t {
    kSelectedSpaceName,
    kVisible,
    kColor,
    kLineStyle,
    kLineWidth,
    kInteractive,
    kSelected,
    kSelectedColor,
    kSelectedLineStyle,
    kSelectedLineWidth,
    kDragColor,
    kDragLineStyle,
    kDragLineWidth,
    kTipText,
    kDOFMask,
};

const char* const kNames[] = {"SelectedSpaceName",
                              "Visible",
                              "Color",
                              "LineStyle",
                              "LineWidthInScreenPixels",
                              "Interactive",
                              "Selected",
                              "SelectedColor",
                              "SelectedLineStyle",
                              "SelectedLineWidthInScreenPixels",
                              "DragColor",
                              "DragLineStyle",
                              "DragLineWidthInScreenPixels",
                              "TipText",
                              "GraphicDOFEnable"};

[[noreturn]] void RefuseContent(Key key) {
    throw ccArchive::BadContent(std::string(kNames[key]) + " holds a value the property does not take",
                                ids_Lux_ReadInvalidProperty_1, {kNames[key]});
}

// The stored value of `key` as `type`; false when the archive lacks it.
bool ReadAs(ArchiveAccess& archive, Key key, VARTYPE type, Variant& value) {
    if (!archive.Read(kNames[key], value)) return false;
    if (FAILED(value.ChangeType(type)))
        throw ccArchive::BadType(std::string(kNames[key]) + " is not of its type", ids_Lux_ReadInvalidProperty_1,
                                 {kNames[key]});
    return true;
}

class Loader {
public:
    explicit Loader(ArchiveAccess& archive) : archive_(archive) {}

    void Bool(Key key, bool& target) {
        Variant value;
        if (!ReadAs(archive_, key, VT_BOOL, value)) return;
        target = value.get().boolVal != VARIANT_FALSE;
        Found(key);
    }
    void Int(Key key, int32_t& target) {
        Variant value;
        if (!ReadAs(archive_, key, VT_I4, value)) return;
        target = value.get().lVal;
        Found(key);
    }
    void Style(Key key, LuxGraphicLineStyleConstants& target) {
        int32_t style = target;
        Int(key, style);
        if (style < luxGraphicLineStyleSolid || style > luxGraphicLineStyleDashDotDot) RefuseContent(key);
        target = static_cast<LuxGraphicLineStyleConstants>(style);
    }
    void Width(Key key, int32_t& target) {
        Int(key, target);
        if (target < 1) RefuseContent(key);
    }
    void Text(Key key, std::string& target) {
        Variant value;
        if (!ReadAs(archive_, key, VT_BSTR, value)) return;
        target.assign(BstrView(value.get().bstrVal));
        Found(key);
    }

    uint32_t present = 0;

private:
    void Found(Key key) { present |= 1u << key; }
    ArchiveAccess& archive_;
};

}  // namespace

void SaveShapeCommon(ArchiveAccess& archive, const ShapeCommonState& state) {
    const GraphicSettings& g = state.graphics;
    Bstr name(state.selectedSpaceName);
    archive.Persist(kNames[kSelectedSpaceName], name);
    bool visible = g.visible;
    archive.Persist(kNames[kVisible], visible);
    int32_t numbers[] = {g.color, g.lineStyle, g.lineWidth};
    archive.Persist(kNames[kColor], numbers[0]);
    archive.Persist(kNames[kLineStyle], numbers[1]);
    archive.Persist(kNames[kLineWidth], numbers[2]);
    bool interactive = g.interactive;
    bool selected = g.selected;
    archive.Persist(kNames[kInteractive], interactive);
    archive.Persist(kNames[kSelected], selected);
    int32_t interaction[] = {g.selectedColor, g.selectedLineStyle, g.selectedLineWidth,
                             g.dragColor,     g.dragLineStyle,     g.dragLineWidth};
    for (int i = 0; i < 6; ++i) archive.Persist(kNames[kSelectedColor + i], interaction[i]);
    Bstr tip(g.tipText);
    archive.Persist(kNames[kTipText], tip);
    int32_t mask = g.dofMask;
    archive.Persist(kNames[kDOFMask], mask);
}

LoadedShapeCommon LoadShapeCommon(ArchiveAccess& archive) {
    LoadedShapeCommon loaded;
    ShapeCommonState& v = loaded.values;
    GraphicSettings& g = v.graphics;
    Loader read(archive);
    read.Text(kSelectedSpaceName, v.selectedSpaceName);
    if (read.present & (1u << kSelectedSpaceName)) {
        try {
            transform::spacename::CheckPath(v.selectedSpaceName, true);
        } catch (const ccException&) {
            RefuseContent(kSelectedSpaceName);
        }
    }
    read.Bool(kVisible, g.visible);
    read.Int(kColor, g.color);
    read.Style(kLineStyle, g.lineStyle);
    read.Width(kLineWidth, g.lineWidth);
    read.Bool(kInteractive, g.interactive);
    read.Bool(kSelected, g.selected);
    read.Int(kSelectedColor, g.selectedColor);
    read.Style(kSelectedLineStyle, g.selectedLineStyle);
    read.Width(kSelectedLineWidth, g.selectedLineWidth);
    read.Int(kDragColor, g.dragColor);
    read.Style(kDragLineStyle, g.dragLineStyle);
    read.Width(kDragLineWidth, g.dragLineWidth);
    read.Text(kTipText, g.tipText);
    read.Int(kDOFMask, g.dofMask);
    loaded.present = read.present;
    return loaded;
}

void LoadedShapeCommon::ApplyTo(std::string& selectedSpaceName, GraphicSettings& graphics) noexcept {
    GraphicSettings& g = values.graphics;
    const auto has = [this](Key key) { return (present & (1u << key)) != 0; };
    if (has(kSelectedSpaceName)) selectedSpaceName.swap(values.selectedSpaceName);
    if (has(kVisible)) graphics.visible = g.visible;
    if (has(kColor)) graphics.color = g.color;
    if (has(kLineStyle)) graphics.lineStyle = g.lineStyle;
    if (has(kLineWidth)) graphics.lineWidth = g.lineWidth;
    if (has(kInteractive)) graphics.interactive = g.interactive;
    if (has(kSelected)) graphics.selected = g.selected;
    if (has(kSelectedColor)) graphics.selectedColor = g.selectedColor;
    if (has(kSelectedLineStyle)) graphics.selectedLineStyle = g.selectedLineStyle;
    if (has(kSelectedLineWidth)) graphics.selectedLineWidth = g.selectedLineWidth;
    if (has(kDragColor)) graphics.dragColor = g.dragColor;
    if (has(kDragLineStyle)) graphics.dragLineStyle = g.dragLineStyle;
    if (has(kDragLineWidth)) graphics.dragLineWidth = g.dragLineWidth;
    if (has(kTipText)) graphics.tipText.swap(g.tipText);
    if (has(kDOFMask)) graphics.dofMask = g.dofMask;
}

}  // namespace tessaly::core
