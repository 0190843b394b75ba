// `tessaly image`: what an image file holds (`info`) and the same pixels in another file
// format (`convert`), through the library of image files.
#pragma once

#include <ostream>

namespace tessaly::cli {

class ImageCommand {
public:
    static constexpr const char* kUsage =
        "usage: tessaly image info FILE\n"
        "       tessaly image convert IN OUT\n";

    // The arguments after "image". Returns the exit status: 0, FailureReport's status when
    // a file fails, 2 for a usage error.
    static int Run(int argc, char** argv, std::ostream& out, std::ostream& errors);
};

}  // namespace tessaly::cli
