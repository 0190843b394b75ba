// The rows of the exception table for the pel layer (ccPel, ccPelFunc). Window and
// coordinate failures become the image codes a client of an image knows; the description
// is the code's message text followed by the exception's detailed message (which window,
// which pixel). Failures of arguments that do not fit each other are E_INVALIDARG, with
// the detailed message alone. docs/images.md gives the table.
#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::image {
namespace {

using core::ExceptionRow;

constexpr uint32_t kCodeText = core::kTextMessage | core::kTextAppend | core::kTextDetailed;
constexpr uint32_t kDetailsOnly = core::kTextAppend | core::kTextDetailed;

const ExceptionRow kPelRows[] = {
    // A buffer with no root is an image with no pixels.
    {"", ccPel::UnboundWindow::kCode, e_LuxImage_NoPixels, kCodeText, e_LuxImage_NoPixels},
    // A window that does not fit its root, or windows with nothing in common: clipped away.
    {"", ccPel::BadWindow::kCode, e_LuxImage_Clipped, kCodeText, e_LuxImage_Clipped},
    {"", ccPel::DisjointWindows::kCode, e_LuxImage_Clipped, kCodeText, e_LuxImage_Clipped},
    {"", ccPel::BadCoord::kCode, e_LuxImage_BadCoord, kCodeText, e_LuxImage_BadCoord},
    // The transform is what is wrong, not the image: the transform family's own code.
    {"", ccPel::NonlinearXform::kCode, e_LuxTransform_NotLinear, kCodeText, e_LuxTransform_NotLinear},
    // No image code fits a failure nobody foresaw; E_FAIL with what went wrong.
    {"", ccPel::Unknown::kCode, E_FAIL, kDetailsOnly, 0},
    {"", ccPelFunc::BadParams::kCode, E_INVALIDARG, kDetailsOnly, 0},
    {"", ccPelFunc::Overlap::kCode, E_INVALIDARG, kDetailsOnly, 0},
    {"", ccPelFunc::Range::kCode, E_INVALIDARG, kDetailsOnly, 0},
};

const core::ExceptionTableRegistrar registrar(kPelRows);

}  // namespace
}  // namespace tessaly::image
