#include "persist/ccTransferArchive.h"

#include <utility>

#include "xnl/std/except/ccStdError.h"

ccTransferArchive::ccTransferArchive(uint16_t formatVersion) { Open(bytes_, Mode::Store, formatVersion); }

ccTransferArchive::ccTransferArchive(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {
    Open(bytes_, Mode::Load, 0);
}

std::vector<uint8_t> ccTransferArchive::TakeBytes() {
    if (!IsStoring()) throw ccStdError::Unexpected("taking the bytes of an archive opened for reading");
    Flush();
    std::vector<uint8_t> bytes = bytes_.TakeBytes();
    Close();
    return bytes;
}
