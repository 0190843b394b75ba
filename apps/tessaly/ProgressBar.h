// A one-line progress bar, redrawn in place with a carriage return, for a terminal:
//
//     [##############----------------]  47% 470/1000 files
//
// Redrawn when the shown text changes; Finish ends the line.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace tessaly::cli {

class ProgressBar {
public:
    static constexpr int kWidth = 30;

    ProgressBar(std::ostream& out, uint64_t total) : out_(out), total_(total) {}

    void Show(uint64_t done);
    void Finish();

    // The text shown for `done` of `total`.
    static std::string Text(uint64_t done, uint64_t total);

private:
    std::ostream& out_;
    uint64_t total_;
    std::string shown_;
};

}  // namespace tessaly::cli
