// The graphic layer every shape shares, through a rectangle: defaults, setters and their
// events, refusals, the palette rule, the DOF mask, handles, and drags with their events.
#include <array>

#include "com/core/MethodGuard.h"
#include "com/core/impl/PaletteColor.h"
#include "com/shape/CLuxRectangle.h"
#include "shape/ShapeFixture.h"

namespace tessaly::test {
namespace {

class GraphicTest : public ShapeFixture {};

struct GraphicState {
    VARIANT_BOOL visible, interactive, selected;
    LONG color, selectedColor, dragColor, width, selectedWidth, dragWidth, dof;
    LuxGraphicLineStyleConstants style, selectedStyle, dragStyle;
    std::string tip;
    bool operator==(const GraphicState&) const = default;
};

GraphicState StateOf(ILuxRectangle* shape) {
    auto g = ShapeFixture::As<ILuxGraphicInteractive>(shape);
    GraphicState s{};
    EXPECT_EQ(g->get_Visible(&s.visible), S_OK);
    EXPECT_EQ(g->get_Interactive(&s.interactive), S_OK);
    EXPECT_EQ(g->get_Selected(&s.selected), S_OK);
    EXPECT_EQ(g->get_Color(&s.color), S_OK);
    EXPECT_EQ(g->get_SelectedColor(&s.selectedColor), S_OK);
    EXPECT_EQ(g->get_DragColor(&s.dragColor), S_OK);
    EXPECT_EQ(g->get_LineWidthInScreenPixels(&s.width), S_OK);
    EXPECT_EQ(g->get_SelectedLineWidthInScreenPixels(&s.selectedWidth), S_OK);
    EXPECT_EQ(g->get_DragLineWidthInScreenPixels(&s.dragWidth), S_OK);
    EXPECT_EQ(g->get_GraphicDOFEnableBase(&s.dof), S_OK);
    EXPECT_EQ(g->get_LineStyle(&s.style), S_OK);
    EXPECT_EQ(g->get_SelectedLineStyle(&s.selectedStyle), S_OK);
    EXPECT_EQ(g->get_DragLineStyle(&s.dragStyle), S_OK);
    Bstr tip;
    EXPECT_EQ(g->get_TipText(tip.Out()), S_OK);
    s.tip = tip.str();
    return s;
}

const GraphicState kDefaults{VARIANT_TRUE, VARIANT_FALSE, VARIANT_FALSE, 0xFFFF00, 0xFF0000, 0xFFFF, 1, 1, 1, -1,
                             luxGraphicLineStyleSolid, luxGraphicLineStyleSolid, luxGraphicLineStyleSolid, ""};

TEST_F(GraphicTest, ANewGraphicHasTheDefaultsOfTheTables) {
    auto rectangle = NewRectangle();
    EXPECT_EQ(StateOf(rectangle.get()), kDefaults);
    EXPECT_EQ(SpaceName(rectangle.get()), ".");
    LuxRectangleDOFConstants dof = luxRectangleDOFNone;
    EXPECT_EQ(rectangle->get_GraphicDOFEnable(&dof), S_OK);
    EXPECT_EQ(dof, luxRectangleDOFAll);
    ComPtr<IDispatch> cursor;
    EXPECT_EQ(As<ILuxGraphicInteractive>(rectangle.get())->get_MouseCursor(cursor.Out()), S_OK);
    EXPECT_FALSE(cursor);
}

TEST_F(GraphicTest, EachSetterRaisesItsStateIdWithTheGraphicAreaOnceAndNothingForThePresentValue) {
    auto rectangle = NewRectangle();
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    auto log = Listen(rectangle.get());

    struct Case {
        const char* name;
        HRESULT (*set)(ILuxGraphicInteractive*);
        int32_t stateId;
        VARTYPE vt;
    };
    const Case cases[] = {
        {"Visible", [](ILuxGraphicInteractive* s) { return s->put_Visible(VARIANT_FALSE); }, luxRectangle_Visible, VT_BOOL},
        {"Color", [](ILuxGraphicInteractive* s) { return s->put_Color(0x123456); }, luxRectangle_Color, VT_I4},
        {"LineStyle", [](ILuxGraphicInteractive* s) { return s->put_LineStyle(luxGraphicLineStyleDashDotDot); },
         luxRectangle_LineStyle, VT_I4},
        {"LineWidth", [](ILuxGraphicInteractive* s) { return s->put_LineWidthInScreenPixels(3); },
         luxRectangle_LineWidthInScreenPixels, VT_I4},
        {"Interactive", [](ILuxGraphicInteractive* s) { return s->put_Interactive(VARIANT_TRUE); },
         luxRectangle_Interactive, VT_BOOL},
        {"Selected", [](ILuxGraphicInteractive* s) { return s->put_Selected(VARIANT_TRUE); },
         luxGraphicInteractive_Selected, VT_BOOL},
        {"SelectedColor", [](ILuxGraphicInteractive* s) { return s->put_SelectedColor(0x10); },
         luxGraphicInteractive_SelectedColor, VT_I4},
        {"SelectedLineStyle", [](ILuxGraphicInteractive* s) { return s->put_SelectedLineStyle(luxGraphicLineStyleDot); },
         luxGraphicInteractive_SelectedLineStyle, VT_I4},
        {"SelectedLineWidth", [](ILuxGraphicInteractive* s) { return s->put_SelectedLineWidthInScreenPixels(2); },
         luxGraphicInteractive_SelectedLineWidthInScreenPixels, VT_I4},
        {"DragColor", [](ILuxGraphicInteractive* s) { return s->put_DragColor(0x20); }, luxGraphicInteractive_DragColor,
         VT_I4},
        {"DragLineStyle", [](ILuxGraphicInteractive* s) { return s->put_DragLineStyle(luxGraphicLineStyleDash); },
         luxGraphicInteractive_DragLineStyle, VT_I4},
        {"DragLineWidth", [](ILuxGraphicInteractive* s) { return s->put_DragLineWidthInScreenPixels(4); },
         luxGraphicInteractive_DragLineWidthInScreenPixels, VT_I4},
        {"TipText", [](ILuxGraphicInteractive* s) { return s->put_TipText(Bstr("Gate").get()); },
         luxRectangle_TipText, VT_BSTR},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        log->changes.clear();
        ASSERT_EQ(c.set(g.get()), S_OK);
        ASSERT_EQ(log->changes.size(), 1u);
        EXPECT_EQ(log->changes[0].stateId, c.stateId);
        EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Graphic);
        EXPECT_EQ(log->changes[0].value.vt(), c.vt);
        ASSERT_EQ(c.set(g.get()), S_OK);  // the value it has now
        EXPECT_EQ(log->changes.size(), 1u);
    }
    EXPECT_EQ(log->changes.back().value.get().bstrVal, std::string_view("Gate"));
    GraphicState expected{VARIANT_FALSE, VARIANT_TRUE, VARIANT_TRUE, 0x123456, 0x10, 0x20, 3, 2, 4, -1,
                          luxGraphicLineStyleDashDotDot, luxGraphicLineStyleDot, luxGraphicLineStyleDash, "Gate"};
    EXPECT_EQ(StateOf(rectangle.get()), expected);
}

TEST_F(GraphicTest, TheDOFMaskIsOneMaskUnderBothNamesAnnouncedWithTheDOFArea) {
    auto rectangle = NewRectangle();
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    auto log = Listen(rectangle.get());
    ASSERT_EQ(rectangle->put_GraphicDOFEnable(luxRectangleDOFSize), S_OK);
    LONG base = 0;
    EXPECT_EQ(g->get_GraphicDOFEnableBase(&base), S_OK);
    EXPECT_EQ(base, luxRectangleDOFSize);
    ASSERT_EQ(g->put_GraphicDOFEnableBase(luxGraphicDOFPosition), S_OK);
    LuxRectangleDOFConstants dof = luxRectangleDOFNone;
    EXPECT_EQ(rectangle->get_GraphicDOFEnable(&dof), S_OK);
    EXPECT_EQ(dof, luxRectangleDOFPosition);
    ASSERT_EQ(rectangle->put_GraphicDOFEnable(luxRectangleDOFPosition), S_OK);  // unchanged
    ASSERT_EQ(log->changes.size(), 2u);
    for (const ChangeEvent& e : log->changes) {
        EXPECT_EQ(e.stateId, luxRectangle_GraphicDOFEnable);
        EXPECT_EQ(e.areas, luxFA_Shape_DegreesOfFreedom);
    }
    EXPECT_EQ(log->changes[1].value.get().lVal, luxGraphicDOFPosition);
}

TEST_F(GraphicTest, RefusedStylesAndWidthsNameThePropertyChangeNothingAndRaiseNothing) {
    auto rectangle = NewRectangle();
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    auto log = Listen(rectangle.get());
    const auto bad = static_cast<LuxGraphicLineStyleConstants>(5);
    const auto negative = static_cast<LuxGraphicLineStyleConstants>(-1);
    ExpectRefused(g->put_LineStyle(bad), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"LineStyle"}, "put_LineStyle");
    ExpectRefused(g->put_LineStyle(negative), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"LineStyle"}, "put_LineStyle");
    ExpectRefused(g->put_SelectedLineStyle(bad), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"SelectedLineStyle"},
                  "put_SelectedLineStyle");
    ExpectRefused(g->put_DragLineStyle(bad), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"DragLineStyle"},
                  "put_DragLineStyle");
    ExpectRefused(g->put_LineWidthInScreenPixels(0), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"LineWidthInScreenPixels"}, "put_LineWidthInScreenPixels");
    ExpectRefused(g->put_SelectedLineWidthInScreenPixels(-3), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"SelectedLineWidthInScreenPixels"}, "put_SelectedLineWidthInScreenPixels");
    ExpectRefused(g->put_DragLineWidthInScreenPixels(0), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"DragLineWidthInScreenPixels"}, "put_DragLineWidthInScreenPixels");
    EXPECT_EQ(StateOf(rectangle.get()), kDefaults);
    EXPECT_TRUE(log->changes.empty());
    // The last style and a width of 1 are taken.
    EXPECT_EQ(g->put_LineStyle(luxGraphicLineStyleDashDotDot), S_OK);
    EXPECT_EQ(g->put_DragLineWidthInScreenPixels(1), S_OK);
}

TEST_F(GraphicTest, EveryColourPropertyTakesAnyValueNoneIncluded) {
    auto rectangle = NewRectangle();
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    for (LONG color : {LONG{luxColorNone}, LONG{0x123456}, LONG{0x7FFFFFFF}, LONG{INT32_MIN}}) {
        EXPECT_EQ(g->put_Color(color), S_OK);
        EXPECT_EQ(g->put_SelectedColor(color), S_OK);
        EXPECT_EQ(g->put_DragColor(color), S_OK);
        LONG got[3] = {};
        g->get_Color(&got[0]);
        g->get_SelectedColor(&got[1]);
        g->get_DragColor(&got[2]);
        EXPECT_EQ(got[0], color);
        EXPECT_EQ(got[1], color);
        EXPECT_EQ(got[2], color);
    }
}

TEST_F(GraphicTest, ThePaletteRuleTakesTheSixteenNamedColoursOnly) {
    const auto check = [](int32_t color) {
        return core::Guarded("put_HighlightColor", IID_ILuxGraphic, [&] { core::CheckPaletteColor(color); });
    };
    ExpectRefused(check(0x123456), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"highlight color"}, "put_HighlightColor");
    ExpectRefused(check(0xFF0081), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"highlight color"}, "put_HighlightColor");
    EXPECT_EQ(check(luxColorPurple), S_OK);
    EXPECT_EQ(check(0xFF0080), S_OK);
    int taken = 0;
    for (int32_t color : {0, 0x404040, 0x808080, 0xC0C0C0, 0xFFFFFF, 0xFF, 0x80, 0x80FF, 0xFFFF, 0xFF00, 0x8000,
                          0xFFFF00, 0xFF0000, 0xFF0080, 0xFF00FF, -1})
        taken += core::IsPaletteColor(color) ? 1 : 0;
    EXPECT_EQ(taken, 16);
    EXPECT_FALSE(core::IsPaletteColor(-2));
}

TEST_F(GraphicTest, MouseCursorIsHeldByIdentityAndAnnouncedOnce) {
    auto rectangle = NewRectangle();
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    auto log = Listen(rectangle.get());
    auto picture = NewRectangle();  // any object stands for a picture
    IDispatch* asDispatch = As<IDispatch>(picture.get()).get();
    ASSERT_EQ(g->putref_MouseCursor(asDispatch), S_OK);
    ASSERT_EQ(g->putref_MouseCursor(asDispatch), S_OK);
    ComPtr<IDispatch> held;
    EXPECT_EQ(g->get_MouseCursor(held.Out()), S_OK);
    EXPECT_EQ(held.get(), asDispatch);
    ASSERT_EQ(g->putref_MouseCursor(nullptr), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[0].stateId, luxGraphicInteractive_MouseCursor);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Graphic);
}

TEST_F(GraphicTest, HandlesAndHighlighterKeepWhatTheyAreToldAndRaiseNothing) {
    auto rectangle = NewRectangle();
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    auto log = Listen(rectangle.get());
    auto* object = shape::CLuxRectangle::ImplementationOf(rectangle.get());
    ASSERT_NE(object, nullptr);
    EXPECT_FALSE(object->Handles().shown);
    ASSERT_EQ(g->ShowHandles(VARIANT_TRUE), S_OK);
    ASSERT_EQ(g->SetHandleTarget(3, 4), S_OK);
    auto screen = Linear(2, 0, 0, 2, 0, 0);
    ExpectRefused(g->AdviseHighlighter(1, 2, 3, 4, nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"ScreenFromShape"}, "AdviseHighlighter");
    ASSERT_EQ(g->AdviseHighlighter(1, 2, 5, 6, As<ILuxTransform2D>(screen.get()).get()), S_OK);
    core::HandleState state = object->Handles();
    EXPECT_TRUE(state.shown);
    EXPECT_TRUE(state.hasTarget);
    EXPECT_EQ(state.targetX, 3);
    EXPECT_EQ(state.targetY, 4);
    EXPECT_TRUE(state.highlighted);
    EXPECT_EQ(state.screenX, 5);
    EXPECT_TRUE(state.screenFromShape);
    ASSERT_EQ(g->UnadviseHighlighter(), S_OK);
    EXPECT_FALSE(object->Handles().highlighted);
    EXPECT_FALSE(object->Handles().screenFromShape);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(GraphicTest, DragAnimateAnswersAMovedCopyAndRaisesDraggingLeavingTheShapeAsItWas) {
    auto rectangle = NewRectangle(10, 20, 30, 40);
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    ASSERT_EQ(g->put_Color(0x654321), S_OK);
    auto log = Listen(rectangle.get());
    VARIANT none{};
    ComPtr<ILuxGraphic> animation;
    ASSERT_EQ(g->DragAnimate(1, 1, 6, 8, VARIANT_TRUE, none, animation.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(animation.get()).get()), (RectParams{15, 27, 30, 40}));
    LONG color = 0;
    animation->get_Color(&color);
    EXPECT_EQ(color, 0x654321);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{10, 20, 30, 40}));
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(log->dragging.size(), 1u);
    EXPECT_EQ(As<IUnknown>(log->dragging[0].get()).get(), As<IUnknown>(animation.get()).get());
    EXPECT_TRUE(log->stopped.empty());

    // Without the position bit the copy stays where the shape is.
    ASSERT_EQ(rectangle->put_GraphicDOFEnable(luxRectangleDOFSize), S_OK);
    ASSERT_EQ(g->DragAnimate(1, 1, 6, 8, VARIANT_TRUE, none, animation.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(animation.get()).get()), (RectParams{10, 20, 30, 40}));
    EXPECT_EQ(log->dragging.size(), 2u);
}

TEST_F(GraphicTest, DragStopMovesTheShapeWithOneGeometryChangeAndRaisesDraggingStopped) {
    auto rectangle = NewRectangle(10, 20, 30, 40);
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    auto log = Listen(rectangle.get());
    VARIANT none{};
    ASSERT_EQ(g->DragStop(0, 0, 5, -5, VARIANT_TRUE, none), S_OK);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{15, 15, 30, 40}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    ASSERT_EQ(log->stopped.size(), 1u);
    EXPECT_EQ(As<IUnknown>(log->stopped[0].get()).get(), As<IUnknown>(rectangle.get()).get());

    // Along one axis only one state changes; a shape that may not move stays, but the
    // drag still ends.
    ASSERT_EQ(g->DragStop(0, 0, 5, 0, VARIANT_TRUE, none), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[1].stateId, luxRectangle_X);
    ASSERT_EQ(g->put_GraphicDOFEnableBase(luxRectangleDOFSize | luxRectangleDOFScale), S_OK);
    ASSERT_EQ(g->DragStop(0, 0, 50, 50, VARIANT_TRUE, none), S_OK);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{20, 15, 30, 40}));
    EXPECT_EQ(log->changes.size(), 3u);  // the DOF mask only
    EXPECT_EQ(log->stopped.size(), 3u);
    log->stopped.clear();  // the log holds the shape, which holds the log's sink
}

TEST_F(GraphicTest, DragPointsInATransformsSpaceAreMappedBackAndOtherMapInfoIsRefused) {
    auto rectangle = NewRectangle(10, 20, 30, 40);
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    // The display shows the shape twice as large, shifted by (100, 0).
    auto screenFromShape = Linear(2, 0, 0, 2, 100, 0);
    Variant mapInfo(static_cast<IDispatch*>(screenFromShape.get()));
    ComPtr<ILuxGraphic> animation;
    ASSERT_EQ(g->DragAnimate(100, 0, 110, 6, VARIANT_FALSE, mapInfo.get(), animation.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(animation.get()).get()), (RectParams{15, 23, 30, 40}));
    ASSERT_EQ(g->DragStop(100, 0, 110, 6, VARIANT_FALSE, mapInfo.get()), S_OK);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{15, 23, 30, 40}));

    auto log = Listen(rectangle.get());
    Variant text("display");
    ExpectRefused(g->DragStop(0, 0, 1, 1, VARIANT_FALSE, text.get()), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                  {"MapInfo"}, "DragStop");
    EXPECT_EQ(Params(rectangle.get()), (RectParams{15, 23, 30, 40}));
    EXPECT_TRUE(log->changes.empty());
    EXPECT_TRUE(log->stopped.empty());
}

TEST_F(GraphicTest, DistanceFromGraphicRectangleMapGraphicAndCopyBase) {
    auto rectangle = NewRectangle(0, 0, 10, 4);
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    double distance = -1;
    ASSERT_EQ(g->DistanceFrom(5, 1, &distance), S_OK);
    EXPECT_DOUBLE_EQ(distance, 1);
    ASSERT_EQ(g->DistanceFrom(13, 8, &distance), S_OK);
    EXPECT_DOUBLE_EQ(distance, 5);

    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(g->put_Color(0x111111), S_OK);
    VARIANT none{};
    ComPtr<ILuxRectangle> box;
    ASSERT_EQ(g->GraphicRectangle(none, box.Out()), S_OK);
    EXPECT_EQ(Params(box.get()), (RectParams{0, 0, 10, 4}));
    EXPECT_EQ(SpaceName(box.get()), "Fixture");
    LONG color = 0;
    As<ILuxGraphic>(box.get())->get_Color(&color);
    EXPECT_EQ(color, luxColorCyan);  // geometry only
    auto doubled = Linear(2, 0, 0, 3, 1, 1);
    Variant mapInfo(static_cast<IDispatch*>(doubled.get()));
    ASSERT_EQ(g->GraphicRectangle(mapInfo.get(), box.Out()), S_OK);
    EXPECT_EQ(Params(box.get()), (RectParams{1, 1, 20, 12}));

    ComPtr<ILuxGraphic> mapped;
    ASSERT_EQ(g->MapGraphic(As<ILuxTransform2D>(doubled.get()).get(), none, mapped.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(mapped.get()).get()), (RectParams{1, 1, 20, 12}));
    mapped->get_Color(&color);
    EXPECT_EQ(color, 0x111111);  // everything is copied
    ExpectRefused(g->MapGraphic(nullptr, none, mapped.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"Transform"},
                  "MapGraphic");
    EXPECT_FALSE(mapped);

    ComPtr<ILuxGraphic> copy;
    ASSERT_EQ(g->CopyBase(luxCopyShapeGeometryOnly, copy.Out()), S_OK);
    copy->get_Color(&color);
    EXPECT_EQ(color, luxColorCyan);
    EXPECT_EQ(Params(As<ILuxRectangle>(copy.get()).get()), (RectParams{0, 0, 10, 4}));
    EXPECT_NE(As<IUnknown>(copy.get()).get(), As<IUnknown>(rectangle.get()).get());
}

TEST_F(GraphicTest, DrawPutsTheOutlineInItsColourIntoAPlanarColourImage) {
    auto picture = Make<ILuxImage24PlanarColor>("Tessaly.LuxImage24PlanarColor");
    ASSERT_EQ(As<ILuxImage>(picture.get())->Allocate(20, 20), S_OK);
    auto rectangle = NewRectangle(5, 5, 10, 10);
    auto g = As<ILuxGraphic>(rectangle.get());
    ASSERT_EQ(g->put_Color(0x0000FF), S_OK);  // red
    ASSERT_EQ(g->Draw(As<IDispatch>(picture.get()).get()), S_OK);
    const auto pixel = [&](LONG x, LONG y) {
        std::array<LONG, 3> planes{};
        EXPECT_EQ(picture->GetPixel(x, y, &planes[0], &planes[1], &planes[2]), S_OK);
        return planes;
    };
    EXPECT_EQ(pixel(5, 5), (std::array<LONG, 3>{255, 0, 0}));    // a corner of the outline
    EXPECT_EQ(pixel(14, 10), (std::array<LONG, 3>{255, 0, 0}));  // the right edge's last column
    EXPECT_EQ(pixel(10, 10), (std::array<LONG, 3>{0, 0, 0}));    // inside, off the outline
    EXPECT_EQ(pixel(15, 10), (std::array<LONG, 3>{0, 0, 0}));    // outside
    ExpectRefused(g->Draw(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"RenderContext"}, "Draw");

    // luxColorNone draws nothing.
    auto blank = Make<ILuxImage24PlanarColor>("Tessaly.LuxImage24PlanarColor");
    ASSERT_EQ(As<ILuxImage>(blank.get())->Allocate(20, 20), S_OK);
    ASSERT_EQ(g->put_Color(luxColorNone), S_OK);
    ASSERT_EQ(g->Draw(As<IDispatch>(blank.get()).get()), S_OK);
    std::array<LONG, 3> corner{-1, -1, -1};
    ASSERT_EQ(blank->GetPixel(5, 5, &corner[0], &corner[1], &corner[2]), S_OK);
    EXPECT_EQ(corner, (std::array<LONG, 3>{0, 0, 0}));
}

}  // namespace
}  // namespace tessaly::test
