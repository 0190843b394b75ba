// The calling thread's error info as the tests read it: taken out of the slot (so that the
// next failure starts clean) and copied into plain strings.
#pragma once

#include <string>

#include "platform/Guid.h"

namespace tessaly::test {

struct RecordedError {
    bool present = false;
    std::string description;
    std::string source;
    GUID iid = GUID_NULL;
};

RecordedError TakeErrorInfo();

}  // namespace tessaly::test
