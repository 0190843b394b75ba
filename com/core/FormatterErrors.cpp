#include "com/core/FormatterErrors.h"

#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "persist/ccArchive.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

constexpr uint32_t kDetailed = kTextMessage | kTextAppend | kTextDetailed;

// A damaged or foreign archive is a file format failure; the message names the condition
// and the details say where. Version conflicts and device failures get their own codes.
const ExceptionRow kPersistRows[] = {
    {"", FormatterErrors::Failure::kCode, E_FAIL, kTextMessage | kResultFromMessage, 0},
    {"", FormatterErrors::Failed::kCode, E_FAIL, kTextMessage, 0},
    {"", ccArchive::Eof::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::BadBuffer::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::BadFile::kCode, e_Lux_FileRead, kDetailed, e_Lux_FileRead},
    {"", ccArchive::BadType::kCode, e_Lux_BadFileFormat, kDetailed, ids_Lux_ReadInvalidProperty_1},
    {"", ccArchive::BadContent::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::NotFound::kCode, e_Lux_BadFileFormat, kDetailed, ids_Lux_ReadInvalidObject_1},
    {"", ccArchive::Duplicate::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::UnknownType::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::UnknownVersion::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::NotSeekable::kCode, e_Lux_BadFileMode, kDetailed, e_Lux_BadFileMode},
    {"", ccArchive::UnknownArchiveVersion::kCode, e_Lux_BadFileFormat, kDetailed, e_Lux_BadFileFormat},
    {"", ccArchive::CannotWriteToOldArchive::kCode, e_Lux_FileWrite, kDetailed, e_Lux_FileWrite},
};

const ExceptionTableRegistrar registrar(kPersistRows);

}  // namespace

void FormatterErrors::Throw(int32_t messageId, std::vector<std::string> inserts, HRESULT result) {
    if (result == 0 || result == messageId) throw Failure("", messageId, std::move(inserts));
    if (result == E_FAIL) throw Failed("", messageId, std::move(inserts));
    throw ccStdError::InternalError("formatter failure with an unexpected result");
}

}  // namespace tessaly::core
