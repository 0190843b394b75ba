// How a command reports that it failed on a file: one line on the error stream,
// "tessaly: FILE: reason", the reason taken from the calling thread's error info (the
// description's lines joined into one) or, without it, the standard text of the code.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "platform/HResult.h"

namespace tessaly::cli {

class FailureReport {
public:
    // The exit status of a command that failed on its input.
    static constexpr int kExitStatus = 1;

    // Prints the line and returns kExitStatus. Takes the thread's error info.
    static int Print(std::ostream& errors, std::string_view file, HRESULT result);

    // The reason alone: the description in one line, without the file name where the
    // description repeats it, and the code in hex.
    static std::string Reason(std::string_view file, HRESULT result);

    // The reason without the code. Takes the thread's error info.
    static std::string Description(std::string_view file, HRESULT result);

    // "0x8004C104".
    static std::string Code(HRESULT result);
};

}  // namespace tessaly::cli
