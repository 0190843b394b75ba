// `tessaly demo [IMAGE] [--out DIR]`: one inspection request from start to end, on a test
// image of its own or on IMAGE. A space "Fixture" is added to the image's coordinate space
// tree (rotated 20 degrees and scaled 1.5 against the pixels, its origin on the image's
// centre); a LuxRectangleAffine is placed in that space; a LuxRegionStatisticsTool given
// image and region (and limits on the mean) runs, and its run status, timings and results
// are printed. The tool is saved with its inputs and results as one XML and one binary
// archive, beside the image as PNG and a PNG of the region drawn over the image; both
// archives are loaded back and the loaded tool, run again, must give the same results.
#pragma once

#include <ostream>

namespace tessaly::cli {

class DemoCommand {
public:
    static constexpr const char* kUsage = "usage: tessaly demo [IMAGE] [--out DIR]\n";

    // The arguments after "demo". Returns the exit status: 0, 1 when a file fails or a
    // loaded tool gives other results, 2 for a usage error.
    static int Run(int argc, char** argv, std::ostream& out, std::ostream& errors);
};

}  // namespace tessaly::cli
