// The graphic layer of every shape class: the display settings of ILuxGraphic and
// ILuxGraphicInteractive (GraphicSettings: colours, line styles and widths, visibility,
// interactivity, tip text, mouse cursor, the DOF mask), the handle and highlighter state,
// on the object base of ILuxObjectImplBase.
//
//     class CLuxThing : public ILuxGraphicImpl<CLuxThing, ILuxThing, ILuxGraphicInteractive, LuxThingDOFConstants>
//
// The class's coclass (Derived::CoClass()) supplies its class ID and the type library's ID;
// PrimaryInterface is its default interface, which declares GraphicDOFEnable typed by
// DOFEnum. The members that need the graphic's geometry (SelectedSpaceName, GraphicRectangle,
// MapGraphic, Draw, CopyBase, DistanceFrom, DragAnimate, DragStop) come with the shape layer,
// ILuxShapeImpl, which every graphic class of the library derives from.
//
// Setters: a refused value (a line style outside LuxGraphicLineStyleConstants:
// E_INVALIDARG with ids_Lux_InvalidArgEnum_1; a width below 1: E_INVALIDARG with
// ids_Lux_InvalidArgNotPositive_1; each naming the property) changes nothing and raises
// nothing; the present value raises nothing; a new value is stored and raises
// Change(the property's state ID, the new value, luxFA_Shape_Graphic). The DOF mask
// (GraphicDOFEnable and GraphicDOFEnableBase read and write the same mask, any 32-bit value)
// raises Change(luxGraphicInteractive_GraphicDOFEnableBase, the mask,
// luxFA_Shape_DegreesOfFreedom). MouseCursor is compared by object identity and announced
// with an empty value.
//
// Handles and highlighter: no handle objects are built. ShowHandles, SetHandleTarget,
// AdviseHighlighter and UnadviseHighlighter keep what they are told (HandleState) for the
// display that draws them, and raise nothing.
#pragma once

#include <string>
#include <type_traits>

#include "TessalyCore.h"
#include "com/core/impl/GraphicSettings.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

// What ShowHandles, SetHandleTarget and AdviseHighlighter were told last.
struct HandleState {
    bool shown = false;
    bool hasTarget = false;
    double targetX = 0.0;
    double targetY = 0.0;
    bool highlighted = false;
    double shapeX = 0.0;
    double shapeY = 0.0;
    double screenX = 0.0;
    double screenY = 0.0;
    ComPtr<ILuxTransform2D> screenFromShape;
};

template <class Derived, class PrimaryInterface, class Interactive, class DOFEnum>
class ILuxGraphicImpl : public ILuxObjectImplBase<Derived, PrimaryInterface, Interactive> {
    static_assert(std::is_same_v<Interactive, ILuxGraphicInteractive>,
                  "the interactive-graphic interface of a graphic class is ILuxGraphicInteractive");
    static_assert(sizeof(DOFEnum) == sizeof(int32_t), "a DOF enumeration is a 32-bit mask");

public:
    // ILuxGraphic
    HRESULT get_Visible(VARIANT_BOOL* Visible) override {
        return ReadSetting("get_Visible", IID_ILuxGraphic, Visible,
                    [](const GraphicSettings& s) { return s.visible ? VARIANT_TRUE : VARIANT_FALSE; });
    }
    HRESULT put_Visible(VARIANT_BOOL Visible) override {
        return WriteSetting("put_Visible", IID_ILuxGraphic, &GraphicSettings::visible, Visible != VARIANT_FALSE,
                     luxGraphic_Visible);
    }
    HRESULT get_Color(LONG* Color) override {
        return ReadSetting("get_Color", IID_ILuxGraphic, Color, [](const GraphicSettings& s) { return s.color; });
    }
    HRESULT put_Color(LONG Color) override {
        return WriteSetting("put_Color", IID_ILuxGraphic, &GraphicSettings::color, Color, luxGraphic_Color);
    }
    HRESULT get_LineStyle(LuxGraphicLineStyleConstants* LineStyle) override {
        return ReadSetting("get_LineStyle", IID_ILuxGraphic, LineStyle, [](const GraphicSettings& s) { return s.lineStyle; });
    }
    HRESULT put_LineStyle(LuxGraphicLineStyleConstants LineStyle) override {
        return WriteStyleSetting("put_LineStyle", IID_ILuxGraphic, &GraphicSettings::lineStyle, LineStyle, "LineStyle",
                          luxGraphic_LineStyle);
    }
    HRESULT get_LineWidthInScreenPixels(LONG* Width) override {
        return ReadSetting("get_LineWidthInScreenPixels", IID_ILuxGraphic, Width,
                    [](const GraphicSettings& s) { return s.lineWidth; });
    }
    HRESULT put_LineWidthInScreenPixels(LONG Width) override {
        return WriteWidthSetting("put_LineWidthInScreenPixels", IID_ILuxGraphic, &GraphicSettings::lineWidth, Width,
                          "LineWidthInScreenPixels", luxGraphic_LineWidthInScreenPixels);
    }

    // ILuxGraphicInteractive
    HRESULT get_Interactive(VARIANT_BOOL* Interactive_) override {
        return ReadSetting("get_Interactive", IID_ILuxGraphicInteractive, Interactive_,
                    [](const GraphicSettings& s) { return s.interactive ? VARIANT_TRUE : VARIANT_FALSE; });
    }
    HRESULT put_Interactive(VARIANT_BOOL Interactive_) override {
        return WriteSetting("put_Interactive", IID_ILuxGraphicInteractive, &GraphicSettings::interactive,
                     Interactive_ != VARIANT_FALSE, luxGraphicInteractive_Interactive);
    }
    HRESULT get_Selected(VARIANT_BOOL* Selected) override {
        return ReadSetting("get_Selected", IID_ILuxGraphicInteractive, Selected,
                    [](const GraphicSettings& s) { return s.selected ? VARIANT_TRUE : VARIANT_FALSE; });
    }
    HRESULT put_Selected(VARIANT_BOOL Selected) override {
        return WriteSetting("put_Selected", IID_ILuxGraphicInteractive, &GraphicSettings::selected, Selected != VARIANT_FALSE,
                     luxGraphicInteractive_Selected);
    }
    HRESULT get_SelectedColor(LONG* Color) override {
        return ReadSetting("get_SelectedColor", IID_ILuxGraphicInteractive, Color,
                    [](const GraphicSettings& s) { return s.selectedColor; });
    }
    HRESULT put_SelectedColor(LONG Color) override {
        return WriteSetting("put_SelectedColor", IID_ILuxGraphicInteractive, &GraphicSettings::selectedColor, Color,
                     luxGraphicInteractive_SelectedColor);
    }
    HRESULT get_SelectedLineStyle(LuxGraphicLineStyleConstants* LineStyle) override {
        return ReadSetting("get_SelectedLineStyle", IID_ILuxGraphicInteractive, LineStyle,
                    [](const GraphicSettings& s) { return s.selectedLineStyle; });
    }
    HRESULT put_SelectedLineStyle(LuxGraphicLineStyleConstants LineStyle) override {
        return WriteStyleSetting("put_SelectedLineStyle", IID_ILuxGraphicInteractive, &GraphicSettings::selectedLineStyle,
                          LineStyle, "SelectedLineStyle", luxGraphicInteractive_SelectedLineStyle);
    }
    HRESULT get_SelectedLineWidthInScreenPixels(LONG* Width) override {
        return ReadSetting("get_SelectedLineWidthInScreenPixels", IID_ILuxGraphicInteractive, Width,
                    [](const GraphicSettings& s) { return s.selectedLineWidth; });
    }
    HRESULT put_SelectedLineWidthInScreenPixels(LONG Width) override {
        return WriteWidthSetting("put_SelectedLineWidthInScreenPixels", IID_ILuxGraphicInteractive,
                          &GraphicSettings::selectedLineWidth, Width, "SelectedLineWidthInScreenPixels",
                          luxGraphicInteractive_SelectedLineWidthInScreenPixels);
    }
    HRESULT get_DragColor(LONG* Color) override {
        return ReadSetting("get_DragColor", IID_ILuxGraphicInteractive, Color,
                    [](const GraphicSettings& s) { return s.dragColor; });
    }
    HRESULT put_DragColor(LONG Color) override {
        return WriteSetting("put_DragColor", IID_ILuxGraphicInteractive, &GraphicSettings::dragColor, Color,
                     luxGraphicInteractive_DragColor);
    }
    HRESULT get_DragLineStyle(LuxGraphicLineStyleConstants* LineStyle) override {
        return ReadSetting("get_DragLineStyle", IID_ILuxGraphicInteractive, LineStyle,
                    [](const GraphicSettings& s) { return s.dragLineStyle; });
    }
    HRESULT put_DragLineStyle(LuxGraphicLineStyleConstants LineStyle) override {
        return WriteStyleSetting("put_DragLineStyle", IID_ILuxGraphicInteractive, &GraphicSettings::dragLineStyle, LineStyle,
                          "DragLineStyle", luxGraphicInteractive_DragLineStyle);
    }
    HRESULT get_DragLineWidthInScreenPixels(LONG* Width) override {
        return ReadSetting("get_DragLineWidthInScreenPixels", IID_ILuxGraphicInteractive, Width,
                    [](const GraphicSettings& s) { return s.dragLineWidth; });
    }
    HRESULT put_DragLineWidthInScreenPixels(LONG Width) override {
        return WriteWidthSetting("put_DragLineWidthInScreenPixels", IID_ILuxGraphicInteractive,
                          &GraphicSettings::dragLineWidth, Width, "DragLineWidthInScreenPixels",
                          luxGraphicInteractive_DragLineWidthInScreenPixels);
    }
    HRESULT get_TipText(BSTR* TipText) override {
        return Guarded("get_TipText", IID_ILuxGraphicInteractive, [&] {
            RequireOut(TipText);
            ObjectLock::Guard guard(this->Lock());
            *TipText = Bstr(graphics_.tipText).Detach();
        });
    }
    HRESULT put_TipText(BSTR TipText) override {
        return Guarded("put_TipText", IID_ILuxGraphicInteractive, [&] {
            const std::string_view text = BstrView(TipText);
            {
                ObjectLock::Guard guard(this->Lock());
                if (graphics_.tipText == text) return S_OK;
                graphics_.tipText.assign(text);
            }
            VARIANT value{};
            value.vt = VT_BSTR;
            value.bstrVal = TipText;  // lent for the call
            return this->RaiseChange(luxGraphicInteractive_TipText, value, luxFA_Shape_Graphic);
        });
    }
    HRESULT get_MouseCursor(IDispatch** Cursor) override {
        return Guarded("get_MouseCursor", IID_ILuxGraphicInteractive, [&] {
            RequireOut(Cursor);
            ObjectLock::Guard guard(this->Lock());
            *Cursor = ComPtr<IDispatch>(graphics_.mouseCursor).Detach();
        });
    }
    HRESULT putref_MouseCursor(IDispatch* Cursor) override {
        return Guarded("put_MouseCursor", IID_ILuxGraphicInteractive, [&] {
            ComPtr<IDispatch> leaving(Cursor);
            {
                ObjectLock::Guard guard(this->Lock());
                if (graphics_.mouseCursor.get() == Cursor) return S_OK;
                std::swap(leaving, graphics_.mouseCursor);
            }
            leaving = nullptr;  // outside the lock: releasing an object may run its code
            return this->RaiseChange(luxGraphicInteractive_MouseCursor, luxFA_Shape_Graphic);
        });
    }
    HRESULT get_GraphicDOFEnableBase(LONG* DOFs) override {
        return ReadSetting("get_GraphicDOFEnableBase", IID_ILuxGraphicInteractive, DOFs,
                    [](const GraphicSettings& s) { return s.dofMask; });
    }
    HRESULT put_GraphicDOFEnableBase(LONG DOFs) override {
        return SetDOFMask("put_GraphicDOFEnableBase", IID_ILuxGraphicInteractive, DOFs);
    }

    // The class's own interface: the same mask, typed by the class's DOF enumeration.
    HRESULT get_GraphicDOFEnable(DOFEnum* DOFs) override {
        return ReadSetting("get_GraphicDOFEnable", PrimaryInterface::iid, DOFs,
                    [](const GraphicSettings& s) { return static_cast<DOFEnum>(s.dofMask); });
    }
    HRESULT put_GraphicDOFEnable(DOFEnum DOFs) override {
        return SetDOFMask("put_GraphicDOFEnable", PrimaryInterface::iid, static_cast<int32_t>(DOFs));
    }

    HRESULT ShowHandles(VARIANT_BOOL On) override {
        return Guarded("ShowHandles", IID_ILuxGraphicInteractive, [&] {
            ObjectLock::Guard guard(this->Lock());
            handles_.shown = On != VARIANT_FALSE;
        });
    }
    HRESULT SetHandleTarget(double X, double Y) override {
        return Guarded("SetHandleTarget", IID_ILuxGraphicInteractive, [&] {
            ObjectLock::Guard guard(this->Lock());
            handles_.hasTarget = true;
            handles_.targetX = X;
            handles_.targetY = Y;
        });
    }
    HRESULT AdviseHighlighter(double ShapeX, double ShapeY, double ScreenX, double ScreenY,
                              ILuxTransform2D* ScreenFromShape) override {
        return Guarded("AdviseHighlighter", IID_ILuxGraphicInteractive, [&] {
            RequireArgument(ScreenFromShape, "ScreenFromShape");
            ComPtr<ILuxTransform2D> leaving(ScreenFromShape);
            {
                ObjectLock::Guard guard(this->Lock());
                handles_.highlighted = true;
                handles_.shapeX = ShapeX;
                handles_.shapeY = ShapeY;
                handles_.screenX = ScreenX;
                handles_.screenY = ScreenY;
                std::swap(leaving, handles_.screenFromShape);
            }
        });
    }
    HRESULT UnadviseHighlighter() override {
        return Guarded("UnadviseHighlighter", IID_ILuxGraphicInteractive, [&] {
            ComPtr<ILuxTransform2D> leaving;
            {
                ObjectLock::Guard guard(this->Lock());
                handles_.highlighted = false;
                std::swap(leaving, handles_.screenFromShape);
            }
        });
    }

    // Snapshots taken under the lock, for the library's own code.
    GraphicSettings Graphics() const {
        ObjectLock::Guard guard(this->Lock());
        return graphics_;
    }
    HandleState Handles() const {
        ObjectLock::Guard guard(this->Lock());
        return handles_;
    }

protected:
    ILuxGraphicImpl() = default;
    ~ILuxGraphicImpl() override = default;

    // Replaces the settings without an event: for an object nobody has seen yet, a load and
    // a copy.
    void AssignGraphics(GraphicSettings settings) {
        ObjectLock::Guard guard(this->Lock());
        std::swap(graphics_, settings);
    }

    // Guarded by the object's lock.
    GraphicSettings graphics_;
    HandleState handles_;

private:
    template <class T, class Get>
    HRESULT ReadSetting(const char* method, const IID& iid, T* out, Get&& get) {
        return Guarded(method, iid, [&] {
            RequireOut(out);
            ObjectLock::Guard guard(this->Lock());
            *out = get(graphics_);
        });
    }

    static VARIANT Announced(bool value) noexcept {
        VARIANT v{};
        v.vt = VT_BOOL;
        v.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
        return v;
    }
    static VARIANT Announced(int32_t value) noexcept {
        VARIANT v{};
        v.vt = VT_I4;
        v.lVal = value;
        return v;
    }
    static VARIANT Announced(LuxGraphicLineStyleConstants value) noexcept { return Announced(int32_t{value}); }

    // Compares, stores and announces a setting whose value has been checked.
    template <class T>
    HRESULT StoreSetting(T GraphicSettings::*field, T value, int32_t stateId, int32_t area) {
        {
            ObjectLock::Guard guard(this->Lock());
            if (graphics_.*field == value) return S_OK;
            graphics_.*field = value;
        }
        return this->RaiseChange(stateId, Announced(value), area);
    }
    template <class T>
    HRESULT WriteSetting(const char* method, const IID& iid, T GraphicSettings::*field, T value, int32_t stateId) {
        return Guarded(method, iid, [&] { return StoreSetting(field, value, stateId, luxFA_Shape_Graphic); });
    }
    HRESULT WriteStyleSetting(const char* method, const IID& iid, LuxGraphicLineStyleConstants GraphicSettings::*field,
                       LuxGraphicLineStyleConstants value, const char* property, int32_t stateId) {
        return Guarded(method, iid, [&] {
            CheckLineStyle(value, property);
            return StoreSetting(field, value, stateId, luxFA_Shape_Graphic);
        });
    }
    HRESULT WriteWidthSetting(const char* method, const IID& iid, int32_t GraphicSettings::*field, int32_t value,
                       const char* property, int32_t stateId) {
        return Guarded(method, iid, [&] {
            CheckLineWidth(value, property);
            return StoreSetting(field, value, stateId, luxFA_Shape_Graphic);
        });
    }
    HRESULT SetDOFMask(const char* method, const IID& iid, int32_t mask) {
        return Guarded(method, iid, [&] {
            return StoreSetting(&GraphicSettings::dofMask, mask, luxGraphicInteractive_GraphicDOFEnableBase,
                         luxFA_Shape_DegreesOfFreedom);
        });
    }
};

}  // namespace tessaly::core
