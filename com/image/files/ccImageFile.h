// The failures of reading and writing image files (family ccImageFile, 0x023). Each
// class's message is its qualified name; the details name the file and say what is wrong
// with it, "part.png: truncated at row 17".
//
//     throw ccImageFile::BadFormat("x.tif: 12-bit samples are not supported");
//     catch (const ccImageFile::Errors&) { ... }   // any failure of the family
#pragma once

#include "xnl/std/except/ccException.h"

class ccImageFile {
public:
    using Errors = ccErrorFamily<"ccImageFile">;

    // The file could not be opened for reading: missing, a directory, not readable.
    using OpenFailed = ccError<Errors, "ccImageFile::OpenFailed", 0x10230001>;
    // The system failed while reading an opened file.
    using ReadFailed = ccError<Errors, "ccImageFile::ReadFailed", 0x10230002>;
    // The file could not be written: the place cannot be written, the file type is not
    // one that is written, or the pixels do not fit it.
    using WriteFailed = ccError<Errors, "ccImageFile::WriteFailed", 0x10230003>;
    // The content is not an image the library reads: unknown, corrupt, truncated, too
    // large, or of a layout that is not supported.
    using BadFormat = ccError<Errors, "ccImageFile::BadFormat", 0x10230004>;
};
