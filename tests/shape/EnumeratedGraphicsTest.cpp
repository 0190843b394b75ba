// The enumerated graphic settings of every shape class that has them (adornments, display
// modes), over one table: a new shape's value, refusals of every value outside the
// enumeration (exact HRESULT and message, the value kept, no event), one Change a new
// value, which copies and maps carry them, and loads that refuse a stored value. Then the
// holder itself: a list of values that is not a range, and settings taken by name.
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "com/core/CLuxArchive.h"
#include "com/core/impl/EnumeratedGraphicSettings.h"
#include "shape/ShapeFixture.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::test {
namespace {

using Getter = std::function<HRESULT(IUnknown*, int32_t*)>;
using Putter = std::function<HRESULT(IUnknown*, int32_t)>;

// Reads and writes one property of interface I typed by enumeration E, on any object.
template <class I, class E>
Getter GetterOf(HRESULT (I::*get)(E*)) {
    return [get](IUnknown* object, int32_t* value) {
        ComPtr<I> typed;
        if (FAILED(object->QueryInterface(I::iid, typed.OutVoid()))) return E_NOINTERFACE;
        E read{};
        const HRESULT hr = (typed.get()->*get)(&read);
        *value = static_cast<int32_t>(read);
        return hr;
    };
}
template <class I, class E>
Putter PutterOf(HRESULT (I::*put)(E)) {
    return [put](IUnknown* object, int32_t value) {
        ComPtr<I> typed;
        if (FAILED(object->QueryInterface(I::iid, typed.OutVoid()))) return E_NOINTERFACE;
        return (typed.get()->*put)(static_cast<E>(value));
    };
}

struct SettingCase {
    const char* progId;
    const char* property;
    int32_t stateId;
    std::vector<int32_t> accepted;  // the first is a new shape's value
    std::vector<int32_t> refused;
    const char* refusedInsert;      // what the refusal's message names
    Getter get;
    Putter put;
    Getter getMapped;  // the same setting on what Map through a stretch makes; null: it has none
};

std::vector<int32_t> Range(int32_t first, int32_t last) {
    std::vector<int32_t> values;
    for (int32_t v = first; v <= last; ++v) values.push_back(v);
    return values;
}

#define LUX_SETTING(I, E, Property) GetterOf<I, E>(&I::get_##Property), PutterOf<I, E>(&I::put_##Property)
#define LUX_GETTER(I, E, Property) GetterOf<I, E>(&I::get_##Property)

const std::vector<SettingCase>& Cases() {
    static const std::vector<SettingCase> cases = {
        {"Tessaly.LuxEllipse", "XDirectionAdornment", luxEllipse_XDirectionAdornment,
         Range(luxEllipseDirectionAdornmentNone, luxEllipseDirectionAdornmentSolidArrow),
         {-1, luxEllipseDirectionAdornmentSolidArrow + 1}, "XDirectionAdornment",
         LUX_SETTING(ILuxEllipse, LuxEllipseDirectionAdornmentConstants, XDirectionAdornment),
         LUX_GETTER(ILuxEllipse, LuxEllipseDirectionAdornmentConstants, XDirectionAdornment)},
        {"Tessaly.LuxEllipse", "YDirectionAdornment", luxEllipse_YDirectionAdornment,
         Range(luxEllipseDirectionAdornmentNone, luxEllipseDirectionAdornmentSolidArrow),
         {-1, luxEllipseDirectionAdornmentSolidArrow + 1}, "YDirectionAdornment",
         LUX_SETTING(ILuxEllipse, LuxEllipseDirectionAdornmentConstants, YDirectionAdornment),
         LUX_GETTER(ILuxEllipse, LuxEllipseDirectionAdornmentConstants, YDirectionAdornment)},
        {"Tessaly.LuxRectangleAffine", "XDirectionAdornment", luxRectangleAffine_XDirectionAdornment,
         Range(luxRectangleAffineDirectionAdornmentNone, luxRectangleAffineDirectionAdornmentSolidArrow),
         {-1, luxRectangleAffineDirectionAdornmentSolidArrow + 1}, "XDirectionAdornment",
         LUX_SETTING(ILuxRectangleAffine, LuxRectangleAffineDirectionAdornmentConstants, XDirectionAdornment),
         LUX_GETTER(ILuxRectangleAffine, LuxRectangleAffineDirectionAdornmentConstants, XDirectionAdornment)},
        {"Tessaly.LuxRectangleAffine", "YDirectionAdornment", luxRectangleAffine_YDirectionAdornment,
         Range(luxRectangleAffineDirectionAdornmentNone, luxRectangleAffineDirectionAdornmentSolidArrow),
         {-1, luxRectangleAffineDirectionAdornmentSolidArrow + 1}, "YDirectionAdornment",
         LUX_SETTING(ILuxRectangleAffine, LuxRectangleAffineDirectionAdornmentConstants, YDirectionAdornment),
         LUX_GETTER(ILuxRectangleAffine, LuxRectangleAffineDirectionAdornmentConstants, YDirectionAdornment)},
        {"Tessaly.LuxEllipticalArc", "StartPointAdornment", luxEllipticalArc_StartPointAdornment,
         Range(luxEllipticalArcAdornmentNone, luxEllipticalArcAdornmentSolidCircle),
         {-1, luxEllipticalArcAdornmentSolidCircle + 1}, "StartPointAdornment",
         LUX_SETTING(ILuxEllipticalArc, LuxEllipticalArcAdornmentConstants, StartPointAdornment),
         LUX_GETTER(ILuxEllipticalArc, LuxEllipticalArcAdornmentConstants, StartPointAdornment)},
        {"Tessaly.LuxEllipticalArc", "EndPointAdornment", luxEllipticalArc_EndPointAdornment,
         Range(luxEllipticalArcAdornmentNone, luxEllipticalArcAdornmentSolidCircle),
         {-1, luxEllipticalArcAdornmentSolidCircle + 1}, "EndPointAdornment",
         LUX_SETTING(ILuxEllipticalArc, LuxEllipticalArcAdornmentConstants, EndPointAdornment),
         LUX_GETTER(ILuxEllipticalArc, LuxEllipticalArcAdornmentConstants, EndPointAdornment)},
        {"Tessaly.LuxEllipticalArc", "DirectionAdornment", luxEllipticalArc_DirectionAdornment,
         Range(luxEllipticalArcDirectionAdornmentNone, luxEllipticalArcDirectionAdornmentSolidArrow),
         {-1, luxEllipticalArcDirectionAdornmentSolidArrow + 1}, "DirectionAdornment",
         LUX_SETTING(ILuxEllipticalArc, LuxEllipticalArcDirectionAdornmentConstants, DirectionAdornment),
         LUX_GETTER(ILuxEllipticalArc, LuxEllipticalArcDirectionAdornmentConstants, DirectionAdornment)},
        // A circular arc maps into an elliptical one, which takes the adornments by name.
        {"Tessaly.LuxCircularArc", "StartPointAdornment", luxCircularArc_StartPointAdornment,
         Range(luxCircularArcAdornmentNone, luxCircularArcAdornmentSolidCircle),
         {-1, luxCircularArcAdornmentSolidCircle + 1}, "StartPointAdornment",
         LUX_SETTING(ILuxCircularArc, LuxCircularArcAdornmentConstants, StartPointAdornment),
         LUX_GETTER(ILuxEllipticalArc, LuxEllipticalArcAdornmentConstants, StartPointAdornment)},
        {"Tessaly.LuxCircularArc", "EndPointAdornment", luxCircularArc_EndPointAdornment,
         Range(luxCircularArcAdornmentNone, luxCircularArcAdornmentSolidCircle),
         {-1, luxCircularArcAdornmentSolidCircle + 1}, "EndPointAdornment",
         LUX_SETTING(ILuxCircularArc, LuxCircularArcAdornmentConstants, EndPointAdornment),
         LUX_GETTER(ILuxEllipticalArc, LuxEllipticalArcAdornmentConstants, EndPointAdornment)},
        {"Tessaly.LuxCircularArc", "DirectionAdornment", luxCircularArc_DirectionAdornment,
         Range(luxCircularArcDirectionAdornmentNone, luxCircularArcDirectionAdornmentSolidArrow),
         {-1, luxCircularArcDirectionAdornmentSolidArrow + 1}, "DirectionAdornment",
         LUX_SETTING(ILuxCircularArc, LuxCircularArcDirectionAdornmentConstants, DirectionAdornment),
         LUX_GETTER(ILuxEllipticalArc, LuxEllipticalArcDirectionAdornmentConstants, DirectionAdornment)},
        {"Tessaly.LuxCircularArc", "DisplayMode", luxCircularArc_DisplayMode,
         {luxCircularArcDisplayModeMathematical, luxCircularArcDisplayModeScreen},
         {-1, luxCircularArcDisplayModeScreen + 1}, "DisplayMode",
         LUX_SETTING(ILuxCircularArc, LuxCircularArcDisplayModeConstants, DisplayMode), nullptr},
        {"Tessaly.LuxCircularAnnulusSection", "ArcDirectionAdornment", luxCircularAnnulusSection_ArcDirectionAdornment,
         Range(luxCircularAnnulusSectionDirectionAdornmentNone, luxCircularAnnulusSectionDirectionAdornmentSolidArrow),
         {-1, luxCircularAnnulusSectionDirectionAdornmentSolidArrow + 1}, "ArcDirectionAdornment",
         LUX_SETTING(ILuxCircularAnnulusSection, LuxCircularAnnulusSectionDirectionAdornmentConstants,
                     ArcDirectionAdornment),
         LUX_GETTER(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionDirectionAdornmentConstants,
                    ArcDirectionAdornment)},
        {"Tessaly.LuxCircularAnnulusSection", "RadialDirectionAdornment",
         luxCircularAnnulusSection_RadialDirectionAdornment,
         Range(luxCircularAnnulusSectionDirectionAdornmentNone, luxCircularAnnulusSectionDirectionAdornmentSolidArrow),
         {-1, luxCircularAnnulusSectionDirectionAdornmentSolidArrow + 1}, "RadialDirectionAdornment",
         LUX_SETTING(ILuxCircularAnnulusSection, LuxCircularAnnulusSectionDirectionAdornmentConstants,
                     RadialDirectionAdornment),
         LUX_GETTER(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionDirectionAdornmentConstants,
                    RadialDirectionAdornment)},
        {"Tessaly.LuxCircularAnnulusSection", "CenterArcAdornment", luxCircularAnnulusSection_CenterArcAdornment,
         Range(luxCircularAnnulusSectionCenterArcAdornmentNone, luxCircularAnnulusSectionCenterArcAdornmentDottedArc),
         {-1, luxCircularAnnulusSectionCenterArcAdornmentDottedArc + 1}, "CenterArcAdornment",
         LUX_SETTING(ILuxCircularAnnulusSection, LuxCircularAnnulusSectionCenterArcAdornmentConstants,
                     CenterArcAdornment),
         LUX_GETTER(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionCenterArcAdornmentConstants,
                    CenterArcAdornment)},
        {"Tessaly.LuxEllipticalAnnulusSection", "ArcDirectionAdornment",
         luxEllipticalAnnulusSection_ArcDirectionAdornment,
         Range(luxEllipticalAnnulusSectionDirectionAdornmentNone,
               luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow),
         {-1, luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow + 1}, "ArcDirectionAdornment",
         LUX_SETTING(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionDirectionAdornmentConstants,
                     ArcDirectionAdornment),
         LUX_GETTER(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionDirectionAdornmentConstants,
                    ArcDirectionAdornment)},
        {"Tessaly.LuxEllipticalAnnulusSection", "RadialDirectionAdornment",
         luxEllipticalAnnulusSection_RadialDirectionAdornment,
         Range(luxEllipticalAnnulusSectionDirectionAdornmentNone,
               luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow),
         {-1, luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow + 1}, "RadialDirectionAdornment",
         LUX_SETTING(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionDirectionAdornmentConstants,
                     RadialDirectionAdornment),
         LUX_GETTER(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionDirectionAdornmentConstants,
                    RadialDirectionAdornment)},
        {"Tessaly.LuxEllipticalAnnulusSection", "CenterArcAdornment", luxEllipticalAnnulusSection_CenterArcAdornment,
         Range(luxEllipticalAnnulusSectionCenterArcAdornmentNone,
               luxEllipticalAnnulusSectionCenterArcAdornmentDottedArc),
         {-1, luxEllipticalAnnulusSectionCenterArcAdornmentDottedArc + 1}, "CenterArcAdornment",
         LUX_SETTING(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionCenterArcAdornmentConstants,
                     CenterArcAdornment),
         LUX_GETTER(ILuxEllipticalAnnulusSection, LuxEllipticalAnnulusSectionCenterArcAdornmentConstants,
                    CenterArcAdornment)},
        // The vertex adornments are not consecutive: the gaps are refused too.
        {"Tessaly.LuxPolygon", "VertexAdornment", luxPolygon_VertexAdornment,
         {luxPolygonVertexAdornmentNone, luxPolygonVertexAdornmentSolidSquare, luxPolygonVertexAdornmentSolidCircle},
         {-1, 1, 2, luxPolygonVertexAdornmentSolidCircle + 1}, "vertex adornment",
         LUX_SETTING(ILuxPolygon, LuxPolygonVertexAdornmentConstants, VertexAdornment),
         LUX_GETTER(ILuxPolygon, LuxPolygonVertexAdornmentConstants, VertexAdornment)},
    };
    return cases;
}

#undef LUX_SETTING
#undef LUX_GETTER

class EnumeratedGraphicsTest : public ShapeFixture {
public:
    static ComPtr<IUnknown> NewShape(const SettingCase& c) { return Make<IUnknown>(c.progId); }
    static int32_t Value(const Getter& get, IUnknown* shape) {
        int32_t value = -12345;
        EXPECT_EQ(get(shape, &value), S_OK);
        return value;
    }
    // A non-initial value, the last the setting accepts.
    static int32_t Chosen(const SettingCase& c) { return c.accepted.back(); }
};

TEST_F(EnumeratedGraphicsTest, ANewShapeHasTheFirstValueAndEachNewValueRaisesOneChange) {
    for (const SettingCase& c : Cases()) {
        SCOPED_TRACE(std::string(c.progId) + "." + c.property);
        auto shape = NewShape(c);
        EXPECT_EQ(Value(c.get, shape.get()), c.accepted.front());
        auto log = Listen(shape.get());
        // Every value but the present one, then the last again: one Change each new value.
        for (size_t i = 1; i < c.accepted.size(); ++i) ASSERT_EQ(c.put(shape.get(), c.accepted[i]), S_OK);
        ASSERT_EQ(c.put(shape.get(), c.accepted.back()), S_OK);
        ASSERT_EQ(log->changes.size(), c.accepted.size() - 1);
        for (size_t i = 1; i < c.accepted.size(); ++i) {
            const ChangeEvent& change = log->changes[i - 1];
            EXPECT_EQ(change.stateId, c.stateId);
            EXPECT_EQ(change.areas, luxFA_Shape_Graphic);
            ASSERT_EQ(change.value.vt(), VT_I4);
            EXPECT_EQ(change.value.get().lVal, c.accepted[i]);
        }
        EXPECT_EQ(Value(c.get, shape.get()), c.accepted.back());
    }
}

TEST_F(EnumeratedGraphicsTest, ValuesOutsideTheEnumerationAreRefusedKeepingTheValueAndRaisingNothing) {
    for (const SettingCase& c : Cases()) {
        SCOPED_TRACE(std::string(c.progId) + "." + c.property);
        auto shape = NewShape(c);
        ASSERT_EQ(c.put(shape.get(), Chosen(c)), S_OK);
        auto log = Listen(shape.get());
        const std::string method = std::string("put_") + c.property;
        std::vector<int32_t> refused = c.refused;
        refused.insert(refused.end(), {INT32_MIN, INT32_MAX});
        for (int32_t bad : refused) {
            SCOPED_TRACE(bad);
            ExpectRefused(c.put(shape.get(), bad), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {c.refusedInsert},
                          method.c_str());
            EXPECT_EQ(Value(c.get, shape.get()), Chosen(c));
        }
        EXPECT_TRUE(log->changes.empty());
    }
}

TEST_F(EnumeratedGraphicsTest, CopiesAndMapsCarryTheSettingWithTheBasicGraphicsOnly) {
    // A stretch, so that circular shapes map into their elliptical classes.
    auto stretch = As<ILuxTransform2D>(Linear(2, 0, 0, 1, 5, -3).get());
    for (const SettingCase& c : Cases()) {
        SCOPED_TRACE(std::string(c.progId) + "." + c.property);
        auto shape = NewShape(c);
        ASSERT_EQ(c.put(shape.get(), Chosen(c)), S_OK);
        auto graphic = As<ILuxGraphic>(shape.get());
        const std::pair<LuxCopyShapeConstants, bool> flags[] = {{luxCopyShapeGeometryOnly, false},
                                                                 {luxCopyShapeDOFs, false},
                                                                 {luxCopyShapeBasicGraphics, true},
                                                                 {luxCopyShapeAll, true}};
        for (const auto& [flag, carried] : flags) {
            SCOPED_TRACE(flag);
            const int32_t expected = carried ? Chosen(c) : c.accepted.front();
            ComPtr<ILuxGraphic> copy;
            ASSERT_EQ(graphic->CopyBase(flag, copy.Out()), S_OK);
            EXPECT_EQ(Value(c.get, copy.get()), expected);
            if (!c.getMapped) continue;
            ComPtr<ILuxShape> mapped;
            ASSERT_EQ(As<ILuxShape>(shape.get())->Map(stretch.get(), flag, mapped.Out()), S_OK);
            EXPECT_EQ(Value(c.getMapped, mapped.get()), expected);
        }
        ComPtr<IDispatch> clone;
        ASSERT_EQ(As<ILuxObject>(shape.get())->Clone(clone.Out()), S_OK);
        EXPECT_EQ(Value(c.get, clone.get()), Chosen(c));
        ComPtr<ILuxGraphic> mapped;
        ASSERT_EQ(graphic->MapGraphic(stretch.get(), Variant().get(), mapped.Out()), S_OK);
        if (c.getMapped) {
            EXPECT_EQ(Value(c.getMapped, mapped.get()), Chosen(c));
        }
        // The original keeps its value whatever was made from it.
        EXPECT_EQ(Value(c.get, shape.get()), Chosen(c));
    }
}

TEST_F(EnumeratedGraphicsTest, LoadsRefuseAStoredValueOutsideTheEnumerationOrOfAnotherType) {
    for (const SettingCase& c : Cases()) {
        SCOPED_TRACE(std::string(c.progId) + "." + c.property);
        auto shape = NewShape(c);
        ASSERT_EQ(c.put(shape.get(), Chosen(c)), S_OK);
        auto log = Listen(shape.get());
        const auto load = [&](Variant value) {
            auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
            archive->AddEntry(c.property, std::move(value));
            return As<ILuxPersistArchive>(shape.get())->Persist(archive.get(), luxPersistOptionAll);
        };
        std::vector<Variant> refused;
        for (int32_t bad : c.refused) refused.emplace_back(bad);
        refused.emplace_back("SolidArrow");
        for (Variant& value : refused) {
            EXPECT_EQ(load(std::move(value)), static_cast<HRESULT>(e_Lux_BadFileFormat));
            const RecordedError error = TakeErrorInfo();
            EXPECT_NE(error.description.find(c.property), std::string::npos) << error.description;
            EXPECT_EQ(Value(c.get, shape.get()), Chosen(c));
        }
        EXPECT_TRUE(log->changes.empty());
        // Every accepted value loads, stored as a number of another type too.
        for (int32_t good : c.accepted) {
            ASSERT_EQ(load(Variant(static_cast<double>(good))), S_OK);
            EXPECT_EQ(Value(c.get, shape.get()), good);
        }
    }
}

// ---- the holder on its own

const int32_t kGapped[] = {0, 5};
const core::EnumeratedSetting kSource[] = {
    core::RangeSetting("Range", 1, 0, 3),
    {"Shared", 2, 0, 0, 0, kGapped, "is not a gapped value", "Value", "a gapped value"},
};
const core::EnumeratedSetting kTarget[] = {
    core::RangeSetting("Other", 3, 1, 2),
    core::RangeSetting("Shared", 4, 0, 9),
};

TEST(EnumeratedGraphicSettingsTest, AListOfValuesAcceptsOnlyItsMembersAndRefusesWithItsOwnNames) {
    core::EnumeratedGraphicSettings settings(kSource);
    EXPECT_EQ(settings.Value(0), 0);
    EXPECT_EQ(settings.Value(1), 0);
    for (int32_t value : {-1, 1, 4, 6}) {
        SCOPED_TRACE(value);
        try {
            settings.Check(1, value);
            ADD_FAILURE() << "accepted";
        } catch (const ccStdError::BadArgument& refusal) {
            EXPECT_EQ(refusal.MessageId(), ids_Lux_InvalidArgEnum_1);
            EXPECT_EQ(refusal.Details(), "Value");
            ASSERT_EQ(refusal.Inserts().size(), 1u);
            EXPECT_EQ(refusal.Inserts()[0], "a gapped value");
        }
    }
    EXPECT_NO_THROW(settings.Check(1, 5));
    EXPECT_TRUE(settings.Store(1, 5));
    EXPECT_FALSE(settings.Store(1, 5));
    EXPECT_EQ(settings.Value(1), 5);
    EXPECT_EQ(settings.Value(0), 0);
}

TEST(EnumeratedGraphicSettingsTest, TakeMatchingTakesByNameWhatTheTargetAccepts) {
    core::EnumeratedGraphicSettings source(kSource);
    source.Store(0, 3);
    source.Store(1, 5);
    core::EnumeratedGraphicSettings target(kTarget);
    EXPECT_EQ(target.Value(0), 1);
    target.TakeMatching(source);
    EXPECT_EQ(target.Value(0), 1);  // "Other": the source has no such setting
    EXPECT_EQ(target.Value(1), 5);  // "Shared", found at another index

    // 7 is no member of the source's list: its "Shared" keeps its value.
    target.Store(1, 7);
    source.TakeMatching(target);
    EXPECT_EQ(source.Value(1), 5);
    EXPECT_EQ(source.Value(0), 3);
}

}  // namespace
}  // namespace tessaly::test
