// The image files a command works through, from its arguments: a file is taken as it is
// named (whatever it holds: reading it says whether it is an image); a folder gives the
// image files directly inside it, not those of its sub-folders, in the order of their
// names (byte order). An image file of a folder is a regular file (or a link to one) whose
// name does not start with '.' and ends in .png, .tif, .tiff, .jpg, .jpeg, .pgm, .ppm or
// .pnm, in any case; other files are passed by. A name that is neither a file nor a folder
// stays in the list, so that reading it reports what is wrong with it.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace tessaly::cli {

class ImageFileList {
public:
    // A folder that cannot be listed is an entry of its own, with the reason in `problem`.
    struct Entry {
        std::string path;
        std::string problem;
    };

    static std::vector<Entry> Expand(std::span<const std::string> arguments);

    static bool HasImageExtension(const std::filesystem::path& path);
};

}  // namespace tessaly::cli
