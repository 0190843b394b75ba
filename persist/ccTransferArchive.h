// A ccArchive over its own bytes in memory: how an archive is handed between threads and
// processes. A writing one gathers the bytes, which TakeBytes hands over; a reading one
// is made from such bytes.
//
//     ccTransferArchive out;
//     out.Write<double>(gain);
//     std::vector<uint8_t> message = out.TakeBytes();
//     ...
//     ccTransferArchive in(std::move(message));
//     gain = in.Read<double>();
#pragma once

#include <cstdint>
#include <vector>

#include "persist/ccArchive.h"
#include "persist/ccByteBuffer.h"

class ccTransferArchive : public ccArchive {
public:
    // An archive to write, with the header of `formatVersion`.
    explicit ccTransferArchive(uint16_t formatVersion = kFormatVersion);
    // An archive to read from `bytes`, header checked as ccArchive::ForReading does.
    explicit ccTransferArchive(std::vector<uint8_t> bytes);

    // Writing: flushes and hands over everything written, the header included. The archive
    // cannot be written any further.
    std::vector<uint8_t> TakeBytes();

private:
    ccByteBuffer bytes_;
};
