// The rows of the exception table for the core mathematics (ccMathError).
#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "xnl/std/math/ccMathError.h"

namespace tessaly::transform {
namespace {

using core::ExceptionRow;

// A singular matrix is the transform family's own failure; its text is followed by the
// exception's detailed message (what was asked of the matrix). A null vector's direction is
// a bad argument of whatever asked for it, described by the detailed message alone.
const ExceptionRow kMathRows[] = {
    {"", ccMathError::Singular::kCode, e_LuxTransform_Singular,
     core::kTextMessage | core::kTextAppend | core::kTextDetailed, e_LuxTransform_Singular},
    {"", ccMathError::NullVector::kCode, E_INVALIDARG, core::kTextAppend | core::kTextDetailed, 0},
};

const core::ExceptionTableRegistrar registrar(kMathRows);

}  // namespace
}  // namespace tessaly::transform
