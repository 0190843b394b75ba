#include "ImageFileList.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <system_error>

namespace tessaly::cli {

bool ImageFileList::HasImageExtension(const std::filesystem::path& path) {
    static constexpr std::array<std::string_view, 8> kExtensions = {".png", ".tif", ".tiff", ".jpg",
                                                                    ".jpeg", ".pgm", ".ppm", ".pnm"};
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::find(kExtensions.begin(), kExtensions.end(), extension) != kExtensions.end();
}

std::vector<ImageFileList::Entry> ImageFileList::Expand(std::span<const std::string> arguments) {
    std::vector<Entry> entries;
    for (const std::string& argument : arguments) {
        std::error_code error;
        if (!std::filesystem::is_directory(argument, error)) {
            entries.push_back({argument, {}});
            continue;
        }
        std::vector<std::string> names;
        std::filesystem::directory_iterator folder(argument, error);
        for (; !error && folder != std::filesystem::directory_iterator(); folder.increment(error)) {
            const std::filesystem::path& path = folder->path();
            const std::string name = path.filename().string();
            std::error_code kindError;
            if (name.starts_with('.') || !HasImageExtension(path) || !folder->is_regular_file(kindError)) continue;
            names.push_back(name);
        }
        if (error) {
            entries.push_back({argument, "cannot list the folder: " + error.message()});
            continue;
        }
        std::sort(names.begin(), names.end());
        const std::filesystem::path base(argument);
        for (const std::string& name : names) entries.push_back({(base / name).string(), {}});
    }
    return entries;
}

}  // namespace tessaly::cli
