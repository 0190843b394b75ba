// `tessaly inspect IMAGE --region REGION [--space NAME] [--overlay OUT.png]`: the
// statistics of the pixels of an image file under a region, and the region drawn over the
// image.
#pragma once

#include <ostream>

namespace tessaly::cli {

class InspectCommand {
public:
    static constexpr const char* kUsage =
        "usage: tessaly inspect IMAGE --region affine:CX,CY,LX,LY,ROT,SKEW | rect:X,Y,W,H |\n"
        "                       circle:CX,CY,R | ellipse:CX,CY,RX,RY,ROT |\n"
        "                       annulus:CX,CY,R,START,SPAN,SCALE | polygon:X1,Y1,X2,Y2,X3,Y3,...\n"
        "                       [--space NAME] [--overlay OUT.png]\n";

    // The arguments after "inspect". Returns the exit status: 0, 1 when the image or the
    // overlay file fails, 2 for a usage error.
    static int Run(int argc, char** argv, std::ostream& out, std::ostream& errors);
};

}  // namespace tessaly::cli
