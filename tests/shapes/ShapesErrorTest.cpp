// The core geometry's error families: each class's message is its own name, the codes are
// unique and caught by family, and at an interface method each becomes the HRESULT of its
// exception-table row with the class name, and nothing else, as the description.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "platform/ErrorInfo.h"
#include "support/RecordedError.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::test {
namespace {

constexpr IID kShapeTestIid = MakeGuid("5A3E0C11-7D2B-4F60-9A8E-1B2C3D4E5F60");

// Throws `Error` through the guard and checks what the client gets; answers the code so
// that the caller can check uniqueness.
template <class Error>
int32_t ExpectMapped(HRESULT result, std::set<int32_t>& codes) {
    const Error error("details that must not show");
    const std::string name = error.Message();
    EXPECT_EQ(std::string(error.what()), name);
    EXPECT_EQ(std::string(error.PersistentClassName()), name);
    EXPECT_TRUE(codes.insert(error.Code()).second) << name << " shares its code";
    EXPECT_EQ(error.Code() >> 28, 1) << name;

    ClearErrorInfo();
    const HRESULT got = core::Guarded("Map", kShapeTestIid, [&] { throw error; });
    EXPECT_EQ(got, result) << name;
    const RecordedError recorded = TakeErrorInfo();
    EXPECT_TRUE(recorded.present) << name;
    EXPECT_EQ(recorded.description, name);
    EXPECT_EQ(recorded.source, "Map");
    return error.Code();
}

}  // namespace

TEST(ShapesErrors, EveryClassIsItsOwnMessageAndMapsToItsHresult) {
    std::set<int32_t> codes;
    using E = ccShapesError;
    ExpectMapped<E::DegenerateShape>(e_LuxShape_DegenerateShape, codes);
    ExpectMapped<E::LinesParallel>(E_FAIL, codes);
    ExpectMapped<E::BadRadius>(E_INVALIDARG, codes);
    ExpectMapped<E::NotConcentric>(E_FAIL, codes);
    ExpectMapped<E::BadCoef>(E_INVALIDARG, codes);
    ExpectMapped<E::BadGeom>(E_FAIL, codes);
    ExpectMapped<E::BadUnit>(E_INVALIDARG, codes);
    ExpectMapped<E::BadIndex>(E_INVALIDARG, codes);
    ExpectMapped<E::BadParams>(E_INVALIDARG, codes);
    ExpectMapped<E::InfiniteExtent>(E_FAIL, codes);
    ExpectMapped<E::SampleOverflow>(E_FAIL, codes);
    ExpectMapped<E::NotOpenContour>(E_FAIL, codes);
    ExpectMapped<E::NoTangent>(E_FAIL, codes);
    ExpectMapped<E::EmptyShape>(E_FAIL, codes);
    ExpectMapped<E::NotReversible>(E_FAIL, codes);
    ExpectMapped<E::NotRegion>(E_FAIL, codes);
    ExpectMapped<E::NonpositiveWeight>(E_INVALIDARG, codes);
    ExpectMapped<E::CoincidentShapePoints>(e_LuxShape_CoordinatesMustDiffer, codes);
    ExpectMapped<E::NotImplemented>(e_Lux_NotImplemented, codes);
    EXPECT_EQ(codes.size(), 19u);

    using Q = ccQvShapesError;
    ExpectMapped<Q::AddWontBreakContour>(e_LuxShape_AddWontBreakContour, codes);
    ExpectMapped<Q::DegenerateArcSegment>(e_LuxShape_DegenerateEllipticalArcSeg, codes);
    ExpectMapped<Q::DegenerateChain>(e_LuxShape_DegenerateContour, codes);
    ExpectMapped<Q::DegenerateContour>(e_LuxShape_DegenerateContour, codes);
    ExpectMapped<Q::DegenerateLength>(e_LuxShape_DegenerateShape, codes);
    ExpectMapped<Q::EndOfContour>(E_FAIL, codes);
    ExpectMapped<Q::InternalShapeError>(e_Lux_InternalError, codes);
    ExpectMapped<Q::InvalidAngleSpan>(E_INVALIDARG, codes);
    ExpectMapped<Q::InvalidArcFit>(E_INVALIDARG, codes);
    ExpectMapped<Q::InvalidEllipseFraction>(E_INVALIDARG, codes);
    ExpectMapped<Q::InvalidRadialScale>(E_INVALIDARG, codes);
    ExpectMapped<Q::InvalidRadius>(E_INVALIDARG, codes);
    ExpectMapped<Q::InvalidSegmentSet>(E_INVALIDARG, codes);
    ExpectMapped<Q::InvalidSegmentType>(E_INVALIDARG, codes);

    ExpectMapped<ccAffineRectangle::BadLength>(E_INVALIDARG, codes);
    ExpectMapped<ccAffineRectangle::BadSkew>(E_INVALIDARG, codes);
    EXPECT_EQ(codes.size(), 35u);
}

TEST(ShapesErrors, FamiliesCatchTheirOwnMembersOnly) {
    const auto familyOf = [](auto&& raise) -> std::string {
        try {
            raise();
        } catch (const ccAffineRectangle::Errors&) {
            return "affine";
        } catch (const ccQvShapesError::Errors&) {
            return "qv";
        } catch (const ccShapesError::Errors&) {
            return "shapes";
        } catch (const ccException&) {
            return "other";
        }
        return "none";
    };
    EXPECT_EQ(familyOf([] { throw ccShapesError::BadRadius(); }), "shapes");
    EXPECT_EQ(familyOf([] { throw ccQvShapesError::InvalidRadius(); }), "qv");
    EXPECT_EQ(familyOf([] { throw ccAffineRectangle::BadSkew(); }), "affine");
    EXPECT_EQ(std::string(ccShapesError::BadRadius().Message()), "ccShapesError::BadRadius");
    EXPECT_EQ(std::string(ccAffineRectangle::BadLength().Message()), "ccAffineRectangle::BadLength");
    EXPECT_EQ(std::string(ccQvShapesError::InvalidSegmentType().Message()), "ccQvShapesError::InvalidSegmentType");
}

}  // namespace tessaly::test
