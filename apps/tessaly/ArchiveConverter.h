// `tessaly convert`: loads an archive in whatever format it is and saves the same object
// graph in the format asked for. Every value goes through the objects' own Persist both
// ways, so the result is what the library itself would have saved.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>

namespace tessaly::cli {

class ArchiveConverter {
public:
    // The names the command takes after --format.
    static constexpr const char* kFormatNames = "xml|xml-linebreaks|binary|soap";

    // "xml", "xml-linebreaks", "binary" or "soap" as a LuxPersistFormatConstants value.
    static std::optional<int32_t> ParseFormat(std::string_view name) noexcept;

    // Loads `input` and saves it as `output` (replaced only once complete). Returns 0, or
    // FailureReport's exit status after reporting the file that failed on `errors`.
    static int Convert(std::string_view input, std::string_view output, int32_t format, std::ostream& errors);
};

}  // namespace tessaly::cli
