// The rows of the exception table for image files (ccImageFile): each failure becomes the
// file code a client of any file knows, described by the code's message text followed by
// the detailed message (which file, what is wrong with it). docs/images.md gives the table.
#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::image {
namespace {

using core::ExceptionRow;

constexpr uint32_t kCodeText = core::kTextMessage | core::kTextAppend | core::kTextDetailed;

const ExceptionRow kImageFileRows[] = {
    {"", ccImageFile::OpenFailed::kCode, e_Lux_FileOpen, kCodeText, e_Lux_FileOpen},
    {"", ccImageFile::ReadFailed::kCode, e_Lux_FileRead, kCodeText, e_Lux_FileRead},
    {"", ccImageFile::WriteFailed::kCode, e_Lux_FileWrite, kCodeText, e_Lux_FileWrite},
    {"", ccImageFile::BadFormat::kCode, e_Lux_BadFileFormat, kCodeText, e_Lux_BadFileFormat},
};

const core::ExceptionTableRegistrar registrar(kImageFileRows);

}  // namespace
}  // namespace tessaly::image
