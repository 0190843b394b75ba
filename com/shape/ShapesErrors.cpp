// The rows of the exception table for the core geometry (ccShapesError, ccQvShapesError,
// ccAffineRectangle::Errors). A client sees each as a failed HRESULT whose description is
// the exception's class name alone ("ccShapesError::BadRadius"): the class name is the
// message of these families. Refused arguments are E_INVALIDARG; failures the shapes group
// of LuxErrConstants names take that code; the rest E_FAIL. docs/errors.md gives the table.
#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccQvShapesError.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::shape {
namespace {

using core::ExceptionRow;

constexpr uint32_t kName = core::kTextOwn;

const ExceptionRow kShapesRows[] = {
    {"", ccShapesError::DegenerateShape::kCode, e_LuxShape_DegenerateShape, kName, 0},
    {"", ccShapesError::LinesParallel::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::BadRadius::kCode, E_INVALIDARG, kName, 0},
    {"", ccShapesError::NotConcentric::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::BadCoef::kCode, E_INVALIDARG, kName, 0},
    {"", ccShapesError::BadGeom::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::BadUnit::kCode, E_INVALIDARG, kName, 0},
    {"", ccShapesError::BadIndex::kCode, E_INVALIDARG, kName, 0},
    {"", ccShapesError::BadParams::kCode, E_INVALIDARG, kName, 0},
    {"", ccShapesError::InfiniteExtent::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::SampleOverflow::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::NotOpenContour::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::NoTangent::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::EmptyShape::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::NotReversible::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::NotRegion::kCode, E_FAIL, kName, 0},
    {"", ccShapesError::NonpositiveWeight::kCode, E_INVALIDARG, kName, 0},
    {"", ccShapesError::CoincidentShapePoints::kCode, e_LuxShape_CoordinatesMustDiffer, kName, 0},
    {"", ccShapesError::NotImplemented::kCode, e_Lux_NotImplemented, kName, 0},

    {"", ccQvShapesError::AddWontBreakContour::kCode, e_LuxShape_AddWontBreakContour, kName, 0},
    {"", ccQvShapesError::DegenerateArcSegment::kCode, e_LuxShape_DegenerateEllipticalArcSeg, kName, 0},
    {"", ccQvShapesError::DegenerateChain::kCode, e_LuxShape_DegenerateContour, kName, 0},
    {"", ccQvShapesError::DegenerateContour::kCode, e_LuxShape_DegenerateContour, kName, 0},
    {"", ccQvShapesError::DegenerateLength::kCode, e_LuxShape_DegenerateShape, kName, 0},
    {"", ccQvShapesError::EndOfContour::kCode, E_FAIL, kName, 0},
    {"", ccQvShapesError::InternalShapeError::kCode, e_Lux_InternalError, kName, 0},
    {"", ccQvShapesError::InvalidAngleSpan::kCode, E_INVALIDARG, kName, 0},
    {"", ccQvShapesError::InvalidArcFit::kCode, E_INVALIDARG, kName, 0},
    {"", ccQvShapesError::InvalidEllipseFraction::kCode, E_INVALIDARG, kName, 0},
    {"", ccQvShapesError::InvalidRadialScale::kCode, E_INVALIDARG, kName, 0},
    {"", ccQvShapesError::InvalidRadius::kCode, E_INVALIDARG, kName, 0},
    {"", ccQvShapesError::InvalidSegmentSet::kCode, E_INVALIDARG, kName, 0},
    {"", ccQvShapesError::InvalidSegmentType::kCode, E_INVALIDARG, kName, 0},

    {"", ccAffineRectangle::BadLength::kCode, E_INVALIDARG, kName, 0},
    {"", ccAffineRectangle::BadSkew::kCode, E_INVALIDARG, kName, 0},
};

const core::ExceptionTableRegistrar registrar(kShapesRows);

}  // namespace
}  // namespace tessaly::shape
