#include "ProgressBar.h"

#include <algorithm>

namespace tessaly::cli {

std::string ProgressBar::Text(uint64_t done, uint64_t total) {
    done = std::min(done, total);
    const uint64_t filled = total ? done * kWidth / total : kWidth;
    const uint64_t percent = total ? done * 100 / total : 100;
    std::string text = "[" + std::string(filled, '#') + std::string(kWidth - filled, '-') + "] ";
    const std::string number = std::to_string(percent);
    text += std::string(3 - std::min<size_t>(3, number.size()), ' ') + number + "% ";
    text += std::to_string(done) + "/" + std::to_string(total) + " files";
    return text;
}

void ProgressBar::Show(uint64_t done) {
    std::string text = Text(done, total_);
    if (text == shown_) return;
    out_ << '\r' << text << std::flush;
    shown_ = std::move(text);
}

void ProgressBar::Finish() {
    if (!shown_.empty()) out_ << '\n' << std::flush;
    shown_.clear();
}

}  // namespace tessaly::cli
