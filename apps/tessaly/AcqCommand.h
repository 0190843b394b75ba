// `tessaly acq`: the frame grabbers present (`list`) and images acquired from
// one of them into PNG files (`grab`), through the objects a client uses:
// LuxFrameGrabbers, a grabber's CreateAcqFifo and the FIFO's Acquire.
#pragma once

#include <ostream>

namespace tessaly::cli {

class AcqCommand {
public:
    static constexpr const char* kUsage =
        "usage: tessaly acq list\n"
        "       tessaly acq grab [--grabber NAME] [--format F] [--count N] "
        "[--out DIR]\n";

    // The arguments after "acq". Returns the exit status: 0, 1 when a grabber, a
    // FIFO, an acquisition or a file fails, 2 for a usage error.
    // `progressOnErrors`: draw a progress bar on `errors` (it is a terminal).
    static int Run(int argc, char** argv, std::ostream& out, std::ostream& errors, bool progressOnErrors);
};

}  // namespace tessaly::cli
