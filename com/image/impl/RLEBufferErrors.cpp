// The rows of the exception table for run-length buffers: the object's refusals
// (RLEBufferErrors) and the core buffer's (ccRLEBuffer::Degenerate). docs/rle.md gives
// the table.
#include "com/image/impl/RLEBufferErrors.h"

#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "com/core/MessageTable.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"

namespace tessaly::image {
namespace {

using core::ExceptionRow;

constexpr uint32_t kCodeText = core::kTextMessage | core::kTextAppend | core::kTextDetailed;
constexpr uint32_t kDetailsOnly = core::kTextAppend | core::kTextDetailed;

const ExceptionRow kRLEBufferRows[] = {
    {"", RLEBufferErrors::NotInitialized::kCode, e_LuxRLEBuffer_NotInitialized, kCodeText,
     e_LuxRLEBuffer_NotInitialized},
    {"", RLEBufferErrors::CombineFailed::kCode, e_LuxRLEBuffer_CombineFailed, kCodeText, e_LuxRLEBuffer_CombineFailed},
    {"", RLEBufferErrors::CombineSubImageSize::kCode, e_LuxRLEBuffer_CombineSubImageSize, kCodeText,
     e_LuxRLEBuffer_CombineSubImageSize},
    {"", RLEBufferErrors::CombineSubImageOffset::kCode, e_LuxRLEBuffer_CombineSubImageOffset, kCodeText,
     e_LuxRLEBuffer_CombineSubImageOffset},
    {"", RLEBufferErrors::CombineSubImageExtent::kCode, e_LuxRLEBuffer_CombineSubImageExtent, kCodeText,
     e_LuxRLEBuffer_CombineSubImageExtent},
    {"", RLEBufferErrors::BadMap::kCode, E_INVALIDARG, kCodeText, core::ids_Core_InvalidArg_1},
    {"", RLEBufferErrors::MapRange::kCode, E_INVALIDARG, kCodeText, core::ids_Core_ArgOutOfRange_1},
    // Runs that cannot make a buffer: what the caller asked for is impossible.
    {"", ccRLEBuffer::Degenerate::kCode, E_INVALIDARG, kDetailsOnly, 0},
};

const core::ExceptionTableRegistrar registrar(kRLEBufferRows);

}  // namespace
}  // namespace tessaly::image
