// Where an archive's bytes come from and go to: a memory buffer (ccByteBuffer), a stream of
// the automation layer, a file. The archive buffers small values itself and hands large
// blocks through in one call, so a device sees few, large requests.
//
// Devices report failures as ccArchive::Errors (BadFile when the medium fails,
// NotSeekable when a question needs a position the device cannot give).
#pragma once

#include <cstddef>
#include <cstdint>

class ccByteDevice {
public:
    virtual ~ccByteDevice() = default;

    // Reads up to `size` bytes into `data` and returns how many were read: fewer than
    // asked only at the end of the data.
    virtual size_t Read(void* data, size_t size) = 0;
    // Writes all `size` bytes.
    virtual void Write(const void* data, size_t size) = 0;
    // The bytes that can still be read from the present position. Every length an archive
    // reads is checked against it before anything is allocated.
    virtual uint64_t Remaining() = 0;
    // Steps back over the last `size` bytes read, so that a reader that read ahead leaves
    // the position just after what it used.
    virtual void Unread(size_t size) = 0;

protected:
    ccByteDevice() = default;
    ccByteDevice(const ccByteDevice&) = default;
    ccByteDevice& operator=(const ccByteDevice&) = default;
};
