// What a formatter supplies to an archive that is saving: the archive hands every value an
// object's Persist gives it straight on, in order, so that nothing is copied on the way (a
// 16 MiB pixel array goes from the object to the stream in one write).
#pragma once

#include <string_view>

#include "platform/AutomationTypes.h"

namespace tessaly::core {

class ArchiveWriter {
public:
    // One named value. An object (VT_DISPATCH or VT_UNKNOWN, possibly null) is for the
    // formatter to save or refer to. Throws on failure.
    virtual void WriteEntry(std::string_view name, const VARIANT& value) = 0;

protected:
    ~ArchiveWriter() = default;
};

}  // namespace tessaly::core
