// `tessaly run`'s work, apart from its arguments: a tool run over image files, one CSV row
// per file, in the files' order.
//
// Files are decoded on a pool of threads (one per core by default) while the calling
// thread hands each decoded image to the tool, runs it and writes its row: the tool runs
// one image at a time, on one thread. Between them an OrderedBoundedQueue holds at most
// `queueCapacity` images, decoded or being decoded, so memory stays bounded whatever the
// number of files. The memory of freed images is kept for the next ones rather than given
// back to the system after each file (the process's allocator thresholds are set once).
//
// The CSV's columns: file, status (the run status's ErrorCode as 0x%08X), status text (its
// ErrorString), time_ms (its Time, in milliseconds), then one column per name of the
// tool's ExposedOutputProperties, read by name (NamedProperty::Text). A file that cannot
// be read is a row of its own with the reading's failure code and reason and empty other
// fields; the run goes on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>

#include "CsvWriter.h"
#include "ImageFileList.h"
#include "ToolBinding.h"

namespace tessaly::cli {

class RunPipeline {
public:
    struct Options {
        unsigned decoders = 0;       // threads decoding files; 0: one per core
        size_t queueCapacity = 0;    // images held at once; 0: two per decoder
        std::optional<std::filesystem::path> overlays;  // a folder for one PNG per image
        // Called on the calling thread after each file with the count done.
        std::function<void(uint64_t)> progress;
        // Where the failure to write an overlay is told.
        std::ostream* errors = nullptr;
    };

    struct Summary {
        uint64_t files = 0;
        uint64_t ran = 0;        // run status success, warn or reject
        uint64_t failed = 0;     // not read, or the run failed, or its overlay was not written
    };

    // Writes the header row and one row per file. Throws only when the overlay folder
    // cannot be made (before any file is read); every failure on a file is its row.
    static Summary Run(ToolBinding& tool, std::span<const ImageFileList::Entry> files, CsvWriter& csv,
                       const Options& options);

    // The name of an image's overlay in the overlay folder: its file name with ".png" for
    // its extension, made unique within a run by "-2", "-3", ... before the extension.
    class OverlayNames {
    public:
        std::string For(const std::filesystem::path& image);

    private:
        std::unordered_set<std::string> used_;
    };
};

}  // namespace tessaly::cli
