// `tessaly demo [IMAGE] [--out DIR]`: one inspection request from start to end, on a test
// image of its own or on IMAGE. A space "Fixture" is added to the image's coordinate space
// tree (rotated 20 degrees and scaled 1.5 against the pixels, its origin on the image's
// centre); a LuxRectangleAffine placed in that space is mapped into the pixels and
// rasterised to a run-length mask; the pixels under it are measured. Image, tree and
// region are saved as one XML and one binary archive, with a PNG of the region drawn over
// the image, and both archives are loaded back to check that the region's mask comes out
// the same.
#pragma once

#include <ostream>

namespace tessaly::cli {

class DemoCommand {
public:
    static constexpr const char* kUsage = "usage: tessaly demo [IMAGE] [--out DIR]\n";

    // The arguments after "demo". Returns the exit status: 0, 1 when a file fails or the
    // archives do not give the region back, 2 for a usage error.
    static int Run(int argc, char** argv, std::ostream& out, std::ostream& errors);
};

}  // namespace tessaly::cli
