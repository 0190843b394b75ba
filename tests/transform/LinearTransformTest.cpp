// LuxTransform2DLinear through its interfaces, as a client uses it: a new object, the
// parametrisations and their preserved quantities, exactly one Change per change and none
// for an unchanged value, every refusal (HRESULT, message and inserts, source, state left
// bit for bit, no event), composition order, copies, and persistence through both formats.
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>

#include "com/core/ArchiveWriter.h"
#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "transform/TransformFixture.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr HRESULT kSingular = static_cast<HRESULT>(e_LuxTransform_Singular);

using LinearTransformTest = TransformFixture;

TEST_F(LinearTransformTest, ANewObjectIsTheIdentity) {
    auto linear = NewLinear();
    VARIANT_BOOL yes = 0;
    EXPECT_EQ(linear->Identity(0, &yes), S_OK);
    EXPECT_EQ(yes, VARIANT_TRUE);
    double value = NAN;
    EXPECT_EQ(linear->get_MatrixDeterminant(&value), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(linear->get_Rotation(&value), S_OK);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(linear->get_Skew(&value), S_OK);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(linear->get_Scaling(&value), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(linear->get_Aspect(&value), S_OK);
    EXPECT_EQ(value, 1);
    ComPtr<ILuxTransform2D> base;
    ASSERT_EQ(linear->QueryInterface(IID_ILuxTransform2D, base.OutVoid()), S_OK);
    EXPECT_EQ(base->get_Linear(&yes), S_OK);
    EXPECT_EQ(yes, VARIANT_TRUE);
    // Either mapped coordinate may be left out.
    double x = NAN;
    EXPECT_EQ(base->MapPoint(3, 4, &x, nullptr), S_OK);
    EXPECT_EQ(x, 3);
    EXPECT_EQ(base->MapPoint(3, 4, nullptr, nullptr), S_OK);
}

TEST_F(LinearTransformTest, MirrorsAndNegativeAspectsReadBackWithSkewMinusPi) {
    auto linear = NewLinear(1, 0, 0, -1, 0, 0);
    double s = 0, a = 0, r = 1, k = 0, tx = 1, ty = 1;
    EXPECT_EQ(linear->GetScalingAspectRotationSkewTranslation(&s, &a, &r, &k, &tx, &ty), S_OK);
    EXPECT_EQ(s, 1);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(r, 0);
    EXPECT_EQ(k, -kPi);  // never +pi
    EXPECT_EQ(tx, 0);
    EXPECT_EQ(ty, 0);
    // Every out argument may be left out.
    EXPECT_EQ(linear->GetScalingAspectRotationSkewTranslation(nullptr, nullptr, nullptr, &k, nullptr, nullptr), S_OK);

    auto identity = NewLinear();
    EXPECT_EQ(identity->put_Aspect(-2), S_OK);
    EXPECT_EQ(identity->get_Aspect(&a), S_OK);
    EXPECT_EQ(a, 2);
    EXPECT_EQ(identity->get_Skew(&k), S_OK);
    EXPECT_EQ(k, -kPi);
}

TEST_F(LinearTransformTest, ASingularMatrixIsAcceptedMapsAndRefusesWhatNeedsAnInverse) {
    auto linear = NewLinear();
    auto log = Listen(linear.get());
    EXPECT_EQ(linear->SetMatrixElementsTranslation(1, 2, 2, 4, 0, 0), S_OK);
    EXPECT_EQ(log->Count(), 1u);
    const State before = StateOf(linear.get());

    double value = 7;
    ExpectFailed(linear->get_Rotation(&value), kSingular, "ccMathError::Singular", "get_Rotation");
    EXPECT_EQ(value, 7);
    VARIANT_BOOL singular = 0;
    EXPECT_EQ(linear->Singular(0, &singular), S_OK);
    EXPECT_EQ(singular, VARIANT_TRUE);
    double mx = 0, my = 0;
    EXPECT_EQ(linear->MapPoint(1, 1, &mx, &my), S_OK);
    EXPECT_EQ(mx, 3);
    EXPECT_EQ(my, 6);
    EXPECT_EQ(linear->MapArea(5, &value), S_OK);
    EXPECT_EQ(value, 0);
    ComPtr<ILuxTransform2DLinear> inverse;
    ExpectFailed(linear->Invert(inverse.Out()), kSingular, "ccMathError::Singular", "Invert");
    EXPECT_FALSE(inverse);
    EXPECT_EQ(StateOf(linear.get()), before);
    EXPECT_EQ(log->Count(), 1u);
}

// Every refusal of the failure table: its HRESULT, message and inserts, source; the object
// keeps its state bit for bit and raises nothing.
TEST_F(LinearTransformTest, EveryRefusalLeavesTheTransformAsItWasAndRaisesNothing) {
    using Call = std::function<HRESULT(ILuxTransform2DLinear*)>;
    struct Case {
        const char* what;
        bool singular;  // start from a singular matrix instead of a regular one
        Call call;
        HRESULT result;
        int32_t messageId;  // 0: the HRESULT's text and ccMathError::Singular
        std::vector<std::string> inserts;
        const char* source;
    };
    const double quarter = kPi / 2;
    const std::vector<Case> cases = {
        {"Scaling 0", false, [](auto* t) { return t->put_Scaling(0); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"}, "put_Scaling"},
        {"Scaling -0", false, [](auto* t) { return t->put_Scaling(-0.0); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"}, "put_Scaling"},
        {"Aspect 0", false, [](auto* t) { return t->put_Aspect(0); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Aspect", "0"}, "put_Aspect"},
        {"Skew +pi/2", false, [=](auto* t) { return t->put_Skew(quarter + 1e-11); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Skew", "plus or minus Pi/2"}, "put_Skew"},
        {"Skew -pi/2 after normalising", false, [=](auto* t) { return t->put_Skew(-quarter + 4 * kPi); },
         E_INVALIDARG, ids_LuxTransform_InvalidArgSingular_2, {"Skew", "plus or minus Pi/2"}, "put_Skew"},
        {"Set... Scaling 0 first", false,
         [=](auto* t) { return t->SetScalingAspectRotationSkewTranslation(0, 0, 0, quarter, 1, 1); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"}, "SetScalingAspectRotationSkewTranslation"},
        {"Set... Skew before Aspect", false,
         [=](auto* t) { return t->SetScalingAspectRotationSkewTranslation(1, 0, 0, quarter, 1, 1); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Skew", "plus or minus Pi/2"},
         "SetScalingAspectRotationSkewTranslation"},
        {"Set... Aspect 0", false,
         [](auto* t) { return t->SetScalingAspectRotationSkewTranslation(1, 0, 0, 0, 1, 1); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"Aspect", "0"}, "SetScalingAspectRotationSkewTranslation"},
        {"ScalingX 0 first", false,
         [=](auto* t) { return t->SetScalingsRotationsTranslation(0, 0, 0, quarter, 1, 1); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"ScalingX", "0"}, "SetScalingsRotationsTranslation"},
        {"ScalingY 0 before the angles", false,
         [=](auto* t) { return t->SetScalingsRotationsTranslation(1, 0, 0, quarter, 1, 1); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"ScalingY", "0"}, "SetScalingsRotationsTranslation"},
        {"RotationY = RotationX + pi/2", false,
         [=](auto* t) { return t->SetScalingsRotationsTranslation(1, 1, 0.5, 0.5 + quarter, 1, 1); }, E_INVALIDARG,
         ids_LuxTransform_InvalidArgSingular_2, {"RotationY", "RotationX plus or minus Pi/2"},
         "SetScalingsRotationsTranslation"},
        {"RotationY = RotationX - pi/2 across the fold", false,
         [=](auto* t) { return t->SetScalingsRotationsTranslation(1, 1, -3.0, -3.0 - quarter + 2 * kPi, 1, 1); },
         E_INVALIDARG, ids_LuxTransform_InvalidArgSingular_2, {"RotationY", "RotationX plus or minus Pi/2"},
         "SetScalingsRotationsTranslation"},
        {"MatrixElement put Row 2", false, [](auto* t) { return t->put_MatrixElement(2, 0, 5); }, E_INVALIDARG,
         ids_Lux_InvalidArgBinary_3, {"Row", "2", "MatrixElement"}, "put_MatrixElement"},
        {"MatrixElement put Row checked first", false, [](auto* t) { return t->put_MatrixElement(-1, 7, 5); },
         E_INVALIDARG, ids_Lux_InvalidArgBinary_3, {"Row", "-1", "MatrixElement"}, "put_MatrixElement"},
        {"MatrixElement put Column 2", false, [](auto* t) { return t->put_MatrixElement(0, 2, 5); }, E_INVALIDARG,
         ids_Lux_InvalidArgBinary_3, {"Column", "2", "MatrixElement"}, "put_MatrixElement"},
        {"MatrixElement get Column 2", false,
         [](auto* t) {
             double v = 0;
             return t->get_MatrixElement(1, 2, &v);
         },
         E_INVALIDARG, ids_Lux_InvalidArgBinary_3, {"Column", "2", "MatrixElement"}, "get_MatrixElement"},
        {"Compose null", false,
         [](auto* t) {
             ComPtr<ILuxTransform2DLinear> out;
             return t->Compose(nullptr, out.Out());
         },
         E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"RightSide"}, "Compose"},
        {"ComposeBase null", false,
         [](auto* t) {
             ComPtr<ILuxTransform2D> base;
             t->QueryInterface(IID_ILuxTransform2D, base.OutVoid());
             ComPtr<ILuxTransform2D> out;
             return base->ComposeBase(nullptr, out.Out());
         },
         E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"RightSide"}, "ComposeBase"},
        {"null retval", false, [](auto* t) { return t->get_Scaling(nullptr); }, E_POINTER, E_POINTER, {},
         "get_Scaling"},
        {"null retval of Copy", false, [](auto* t) { return t->Copy(nullptr); }, E_POINTER, E_POINTER, {}, "Copy"},
        {"Rotation of a singular matrix", true, [](auto* t) { return t->put_Rotation(1); }, kSingular, 0, {},
         "put_Rotation"},
        {"Skew of a singular matrix", true, [](auto* t) { return t->put_Skew(0.5); }, kSingular, 0, {},
         "put_Skew"},
        {"Scaling of a singular matrix", true, [](auto* t) { return t->put_Scaling(2); }, kSingular, 0, {},
         "put_Scaling"},
        {"Aspect of a singular matrix", true, [](auto* t) { return t->put_Aspect(2); }, kSingular, 0, {},
         "put_Aspect"},
        {"ScalingY of a singular matrix", true,
         [](auto* t) {
             double v = 0;
             return t->get_ScalingY(&v);
         },
         kSingular, 0, {}, "get_ScalingY"},
        {"Get... of a singular matrix", true,
         [](auto* t) { return t->GetScalingsRotationsTranslation(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); },
         kSingular, 0, {}, "GetScalingsRotationsTranslation"},
        {"InvertBase of a singular matrix", true,
         [](auto* t) {
             ComPtr<ILuxTransform2D> base;
             t->QueryInterface(IID_ILuxTransform2D, base.OutVoid());
             ComPtr<ILuxTransform2D> out;
             return base->InvertBase(out.Out());
         },
         kSingular, 0, {}, "InvertBase"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto linear = c.singular ? NewLinear(0, 0, 3, 0, 1, 2) : NewLinear(2, 0.5, -0.25, 3, 1, 2);
        auto log = Listen(linear.get());
        const State before = StateOf(linear.get());
        const HRESULT hr = c.call(linear.get());
        if (c.messageId == 0)
            ExpectFailed(hr, c.result, "ccMathError::Singular", c.source);
        else
            ExpectRefused(hr, c.result, c.messageId, c.inserts, c.source);
        EXPECT_EQ(StateOf(linear.get()), before);
        EXPECT_EQ(log->Count(), 0u);
    }
}

TEST_F(LinearTransformTest, EachChangeRaisesOneEventAndAnUnchangedValueNone) {
    auto linear = NewLinear();
    auto log = Listen(linear.get());
    const auto expectEvents = [&](size_t count, const char* after) {
        EXPECT_EQ(log->Count(), count) << after;
        for (const auto& [state, areas] : log->events) {
            EXPECT_EQ(state, luxState_MoreThanOneStateIDChanged) << after;
            EXPECT_EQ(areas, luxFA_Misc) << after;
        }
    };
    EXPECT_EQ(linear->SetMatrixElementsTranslation(1, 0, 0, 1, 0, 0), S_OK);  // the identity again
    expectEvents(0, "identity");
    EXPECT_EQ(linear->SetScalingAspectRotationSkewTranslation(2, 0.5, 0.25, 0.125, 3, 4), S_OK);
    expectEvents(1, "SetScalingAspectRotationSkewTranslation");
    EXPECT_EQ(linear->SetMatrixElementsTranslation(2, 1, 0, 3, 3, 4), S_OK);
    expectEvents(2, "SetMatrixElementsTranslation");
    EXPECT_EQ(linear->SetMatrixElementsTranslation(2, 1, 0, 3, 3, 4), S_OK);
    expectEvents(2, "SetMatrixElementsTranslation unchanged");
    EXPECT_EQ(linear->put_MatrixElement(1, 0, 0), S_OK);
    EXPECT_EQ(linear->put_TranslationX(3), S_OK);
    EXPECT_EQ(linear->put_TranslationY(4), S_OK);
    expectEvents(2, "unchanged element and translation");
    EXPECT_EQ(linear->put_MatrixElement(1, 0, -1), S_OK);
    double det = 0;
    EXPECT_EQ(linear->get_MatrixDeterminant(&det), S_OK);
    EXPECT_EQ(det, 7);  // 2 * 3 - (-1) * 1, recomputed
    EXPECT_EQ(linear->put_TranslationX(-3), S_OK);
    EXPECT_EQ(linear->put_TranslationY(-4), S_OK);
    expectEvents(5, "element and translations");
    EXPECT_EQ(linear->SetScalingsRotationsTranslation(1.5, 2, 0.25, 0.75, 0, 0), S_OK);
    expectEvents(6, "SetScalingsRotationsTranslation");
    double scaling = 0;
    EXPECT_EQ(linear->get_Scaling(&scaling), S_OK);
    EXPECT_EQ(linear->put_Scaling(scaling), S_OK);
    double aspect = 0;
    EXPECT_EQ(linear->get_Aspect(&aspect), S_OK);
    EXPECT_EQ(linear->put_Aspect(aspect), S_OK);
    expectEvents(6, "scaling and aspect unchanged");

    // Rotation: 2 pi + 0.5 is stored as 0.5; the same value again changes nothing.
    EXPECT_EQ(linear->put_Rotation(2 * kPi + 0.5), S_OK);
    expectEvents(7, "Rotation");
    double rotation = 0;
    EXPECT_EQ(linear->get_Rotation(&rotation), S_OK);
    EXPECT_NEAR(rotation, 0.5, 1e-15);
    const State state = StateOf(linear.get());
    EXPECT_EQ(linear->put_Rotation(2 * kPi + 0.5), S_OK);
    EXPECT_EQ(StateOf(linear.get()), state);
    expectEvents(7, "Rotation again");
}

TEST_F(LinearTransformTest, EachSetterKeepsTheQuantitiesItsHelpNames) {
    struct Parts {
        double scaling, aspect, rotation, skew;
    };
    const auto parts = [](ILuxTransform2DLinear* t) {
        Parts p{};
        EXPECT_EQ(t->GetScalingAspectRotationSkewTranslation(&p.scaling, &p.aspect, &p.rotation, &p.skew, nullptr,
                                                             nullptr),
                  S_OK);
        return p;
    };
    auto linear = NewLinear();
    ASSERT_EQ(linear->SetScalingAspectRotationSkewTranslation(2, 0.5, 0.3, -0.4, 7, 8), S_OK);
    ASSERT_EQ(linear->put_Rotation(-1.2), S_OK);
    Parts p = parts(linear.get());
    EXPECT_NEAR(p.rotation, -1.2, 1e-14);
    EXPECT_NEAR(p.scaling, 2, 1e-14);
    EXPECT_NEAR(p.aspect, 0.5, 1e-14);
    EXPECT_NEAR(p.skew, -0.4, 1e-14);
    ASSERT_EQ(linear->put_Skew(0.9), S_OK);
    p = parts(linear.get());
    EXPECT_NEAR(p.rotation, -1.2, 1e-14);
    EXPECT_NEAR(p.skew, 0.9, 1e-14);
    EXPECT_NEAR(p.scaling, 2, 1e-14);
    EXPECT_NEAR(p.aspect, 0.5, 1e-14);
    ASSERT_EQ(linear->put_Scaling(5), S_OK);
    p = parts(linear.get());
    EXPECT_NEAR(p.scaling, 5, 1e-14);
    EXPECT_NEAR(p.aspect, 0.5, 1e-14);
    EXPECT_NEAR(p.rotation, -1.2, 1e-14);
    EXPECT_NEAR(p.skew, 0.9, 1e-14);
    ASSERT_EQ(linear->put_Aspect(3), S_OK);
    p = parts(linear.get());
    EXPECT_NEAR(p.aspect, 3, 1e-14);
    EXPECT_NEAR(p.scaling, 5, 1e-14);
    EXPECT_NEAR(p.rotation, -1.2, 1e-14);
    EXPECT_NEAR(p.skew, 0.9, 1e-14);
    double tx = 0, ty = 0;
    EXPECT_EQ(linear->get_TranslationX(&tx), S_OK);
    EXPECT_EQ(linear->get_TranslationY(&ty), S_OK);
    EXPECT_EQ(tx, 7);
    EXPECT_EQ(ty, 8);

    // A negative scaling turns the matrix by pi and reads back positive.
    ASSERT_EQ(linear->put_Scaling(-5), S_OK);
    p = parts(linear.get());
    EXPECT_NEAR(p.scaling, 5, 1e-14);
    EXPECT_NEAR(p.rotation, -1.2 + kPi, 1e-14);
    EXPECT_NEAR(p.skew, 0.9, 1e-14);

    // The skew boundary: 1e-11 off a quarter turn is refused, 1e-9 off is accepted.
    EXPECT_EQ(linear->put_Skew(kPi / 2 + 1e-11), E_INVALIDARG);
    EXPECT_EQ(linear->put_Skew(kPi / 2 + 1e-9), S_OK);
    EXPECT_EQ(linear->put_Skew(-kPi / 2 - 1e-9), S_OK);

    // The singular test counts a determinant equal to the tolerance.
    ASSERT_EQ(linear->SetMatrixElementsTranslation(1e-3, 0, 0, 1, 0, 0), S_OK);
    VARIANT_BOOL singular = 0;
    EXPECT_EQ(linear->Singular(1e-3, &singular), S_OK);
    EXPECT_EQ(singular, VARIANT_TRUE);
    EXPECT_EQ(linear->Singular(9.999e-4, &singular), S_OK);
    EXPECT_EQ(singular, VARIANT_FALSE);
}

TEST_F(LinearTransformTest, ComposeMapsThroughTheRightSideFirstAndMakesNewObjects) {
    auto rotate = NewLinear();
    ASSERT_EQ(rotate->SetScalingsRotationsTranslation(1, 1, kPi / 2, kPi / 2, 0, 0), S_OK);
    auto shift = NewLinear(1, 0, 0, 1, 10, 0);
    const State rotateBefore = StateOf(rotate.get());
    const State shiftBefore = StateOf(shift.get());
    auto rotateLog = Listen(rotate.get());
    auto shiftLog = Listen(shift.get());

    ComPtr<ILuxTransform2DLinear> composed;
    ASSERT_EQ(rotate->Compose(shift.get(), composed.Out()), S_OK);
    auto [x, y] = Map(composed.get(), 1, 0);  // (1, 0) -> (11, 0) -> (0, 11)
    EXPECT_NEAR(x, 0, 1e-14);
    EXPECT_NEAR(y, 11, 1e-14);
    ComPtr<ILuxTransform2D> rotateBase;
    ASSERT_EQ(rotate->QueryInterface(IID_ILuxTransform2D, rotateBase.OutVoid()), S_OK);
    ComPtr<ILuxTransform2D> shiftBase;
    ASSERT_EQ(shift->QueryInterface(IID_ILuxTransform2D, shiftBase.OutVoid()), S_OK);
    ComPtr<ILuxTransform2D> viaBase;
    ASSERT_EQ(rotateBase->ComposeBase(shiftBase.get(), viaBase.Out()), S_OK);
    ComPtr<ILuxTransform2DLinear> viaBaseLinear;
    EXPECT_EQ(viaBase->QueryInterface(IID_ILuxTransform2DLinear, viaBaseLinear.OutVoid()), S_OK);  // still linear
    EXPECT_EQ(StateOf(viaBaseLinear.get()), StateOf(composed.get()));
    // The other order maps through the rotation first.
    ComPtr<ILuxTransform2DLinear> reversed;
    ASSERT_EQ(shift->Compose(rotate.get(), reversed.Out()), S_OK);
    std::tie(x, y) = Map(reversed.get(), 1, 0);
    EXPECT_NEAR(x, 10, 1e-14);
    EXPECT_NEAR(y, 1, 1e-14);
    // Composing with itself reads the one value twice.
    ComPtr<ILuxTransform2DLinear> twice;
    ASSERT_EQ(shift->Compose(shift.get(), twice.Out()), S_OK);
    EXPECT_EQ(Map(twice.get(), 0, 0), std::make_pair(20.0, 0.0));

    // Inverse, copies: new objects; the operands neither change nor announce anything.
    ComPtr<ILuxTransform2DLinear> inverse;
    ASSERT_EQ(composed->Invert(inverse.Out()), S_OK);
    std::tie(x, y) = Map(inverse.get(), 0, 11);
    EXPECT_NEAR(x, 1, 1e-14);
    EXPECT_NEAR(y, 0, 1e-14);
    ComPtr<ILuxTransform2DLinear> copy;
    ASSERT_EQ(shift->Copy(copy.Out()), S_OK);
    EXPECT_NE(copy.get(), shift.get());
    ASSERT_EQ(copy->put_TranslationX(99), S_OK);
    ComPtr<ILuxTransform2DLinear> local;
    ASSERT_EQ(shiftBase->LinearTransform(123, 456, local.Out()), S_OK);
    EXPECT_EQ(StateOf(local.get()), shiftBefore);
    ASSERT_EQ(local->put_TranslationY(5), S_OK);
    ComPtr<ILuxTransform2D> copyBase;
    ASSERT_EQ(shiftBase->CopyBase(copyBase.Out()), S_OK);
    EXPECT_EQ(Map(copyBase.get(), 0, 0), std::make_pair(10.0, 0.0));
    EXPECT_EQ(StateOf(rotate.get()), rotateBefore);
    EXPECT_EQ(StateOf(shift.get()), shiftBefore);
    EXPECT_EQ(rotateLog->Count() + shiftLog->Count(), 0u);

    // The best fit of a linear transform is itself with error 0, whatever the points.
    auto points = Make<IDispatch>("Tessaly.LuxCollection");
    for (IDispatch* from : {static_cast<IDispatch*>(nullptr), points.get()}) {
        double rms = -1;
        ComPtr<ILuxTransform2DLinear> fit;
        ASSERT_EQ(shiftBase->BestFitLinearTransform(from, &rms, fit.Out()), S_OK);
        EXPECT_EQ(rms, 0);
        EXPECT_EQ(StateOf(fit.get()), shiftBefore);
    }
    ComPtr<ILuxTransform2DLinear> fit;
    EXPECT_EQ(shiftBase->BestFitLinearTransform(points.get(), nullptr, fit.Out()), S_OK);

    // Vectors, angles and areas.
    double vx = 0, vy = 0;
    EXPECT_EQ(composed->MapVector(1, 0, &vx, &vy), S_OK);
    EXPECT_NEAR(vx, 0, 1e-15);
    EXPECT_NEAR(vy, 1, 1e-15);
    double angle = 0;
    EXPECT_EQ(composed->MapAngle(0.25, &angle), S_OK);
    EXPECT_NEAR(angle, 0.25 + kPi / 2, 1e-15);
    double area = 0;
    auto mirror = NewLinear(-2, 0, 0, 3, 0, 0);
    EXPECT_EQ(mirror->MapArea(2, &area), S_OK);
    EXPECT_EQ(area, 12);
}

// Keeps every value an object saves, in order, as a formatter would write them.
class RecordingWriter final : public core::ArchiveWriter {
public:
    void WriteEntry(std::string_view name, const VARIANT& value) override {
        names += (names.empty() ? "" : ",") + std::string(name);
        (void)value;
    }
    std::string names;
};

TEST_F(LinearTransformTest, PersistenceKeepsEveryNumberBitForBitInBothFormats) {
    const double denormal = std::numeric_limits<double>::denorm_min() * 5;
    auto regular = NewLinear(-0.0, denormal, 1e308, -2.5, -0.0, -denormal);
    auto singular = NewLinear(1, 2, 2, 4, 0.1, 1.0 / 3);
    auto negativeZeroDet = NewLinear(-0.0, 0, 0, 1, 0, 0);  // determinant -0
    for (ILuxTransform2DLinear* original : {regular.get(), singular.get(), negativeZeroDet.get()}) {
        for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
            SCOPED_TRACE(format);
            ComPtr<IDispatch> dispatch;
            ASSERT_EQ(original->QueryInterface(IDispatch::iid, dispatch.OutVoid()), S_OK);
            std::vector<uint8_t> bytes;
            ASSERT_EQ(SaveObjectToBytes(dispatch.get(), format, luxPersistOptionAll, &bytes), S_OK);
            ComPtr<IDispatch> loaded;
            ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
            ComPtr<ILuxTransform2DLinear> linear;
            ASSERT_EQ(loaded->QueryInterface(IID_ILuxTransform2DLinear, linear.OutVoid()), S_OK);
            EXPECT_EQ(StateOf(linear.get()), StateOf(original));
        }
    }

    // The layout: the base part, the translation, then the matrix and its determinant.
    RecordingWriter writer;
    ComPtr<ILuxPersistArchive> persist;
    ASSERT_EQ(regular->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid()), S_OK);
    ASSERT_EQ(core::CLuxArchive::Save(*persist, writer, luxPersistOptionAll), S_OK);
    EXPECT_EQ(writer.names, "BaseVersion,TranslationX,TranslationY,Elem00,Elem01,Elem10,Elem11,Determinant");

    // Loading: a missing number keeps the new object's value; a newer base part is refused
    // and leaves the object as it was.
    {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        archive->AddEntry("BaseVersion", Variant(int32_t{1}));
        archive->AddEntry("TranslationX", Variant(4.5));
        auto target = NewLinear(3, 0, 0, 3, 1, 1);
        auto log = Listen(target.get());
        ComPtr<ILuxPersistArchive> loading;
        ASSERT_EQ(target->QueryInterface(ILuxPersistArchive::iid, loading.OutVoid()), S_OK);
        ASSERT_EQ(loading->Persist(archive.get(), luxPersistOptionAll), S_OK);
        EXPECT_EQ(Elements(target.get()), (std::array<double, 6>{1, 0, 0, 1, 4.5, 0}));
        EXPECT_EQ(log->Count(), 1u);

        auto newer = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        newer->AddEntry("BaseVersion", Variant(int32_t{2}));
        newer->AddEntry("TranslationX", Variant(7.0));
        const State before = StateOf(target.get());
        EXPECT_EQ(loading->Persist(newer.get(), luxPersistOptionAll), static_cast<HRESULT>(e_Lux_BadFileFormat));
        EXPECT_EQ(StateOf(target.get()), before);
        EXPECT_EQ(log->Count(), 1u);
    }

    // Clone copies the value; the clone is independent.
    ComPtr<ILuxObject> object;
    ASSERT_EQ(singular->QueryInterface(IID_ILuxObject, object.OutVoid()), S_OK);
    ComPtr<IDispatch> cloneDispatch;
    ASSERT_EQ(object->Clone(cloneDispatch.Out()), S_OK);
    ComPtr<ILuxTransform2DLinear> clone;
    ASSERT_EQ(cloneDispatch->QueryInterface(IID_ILuxTransform2DLinear, clone.OutVoid()), S_OK);
    EXPECT_EQ(StateOf(clone.get()), StateOf(singular.get()));
    ASSERT_EQ(clone->put_TranslationX(0), S_OK);
    EXPECT_NE(StateOf(clone.get()), StateOf(singular.get()));
}

TEST_F(LinearTransformTest, TheLibrarysOwnCodeReachesTheValue) {
    using transform::CLuxTransform2DLinear;
    const cc2XformLinear value(2, 1, 0, 3, -1, 4);
    auto object = CLuxTransform2DLinear::FromValue(value);
    EXPECT_EQ(object->Value(), value);
    ComPtr<ILuxTransform2DLinear> linear;
    ASSERT_EQ(object->QueryInterface(IID_ILuxTransform2DLinear, linear.OutVoid()), S_OK);
    EXPECT_EQ(CLuxTransform2DLinear::ImplementationOf(linear.get()), object.get());
    EXPECT_EQ(CLuxTransform2DLinear::ValueOf(linear.get()), value);
    ASSERT_EQ(linear->put_MatrixElement(0, 0, 5), S_OK);
    EXPECT_EQ(object->Value().Determinant(), 15);
}

}  // namespace
}  // namespace tessaly::test
