#include "xnl/std/pelbuf/cc_PelRoot.h"

#include <string>

#include "xnl/std/pelbuf/ccPelError.h"

void cc_PelRoot::AddMemoryDescription(MemoryDescription&) const noexcept {}

void cc_PelRoot::CheckIntegrity() const {
    const MemoryDescription description = DescribeMemory();
    const int ways = description.own + description.borrowed;
    if (ways == 0) throw ccPel::Unknown("the root describes its memory in no way");
    if (ways > 1) throw ccPel::Unknown("the root describes its memory in more than one way");
    if (width_ < 0 || height_ < 0)
        throw ccPel::Unknown("the root's size " + std::to_string(width_) + " x " + std::to_string(height_) +
                             " is negative");
    const ptrdiff_t row = static_cast<ptrdiff_t>(width_) * static_cast<ptrdiff_t>(pelSize_);
    const ptrdiff_t pitch = pitchBytes_ < 0 ? -pitchBytes_ : pitchBytes_;
    if (height_ > 1 && pitch < row)
        throw ccPel::Unknown("the root's pitch of " + std::to_string(pitchBytes_) + " bytes is shorter than a row");
    if (width_ > 0 && height_ > 0 && row0_ == nullptr) throw ccPel::Unknown("the root has pixels but no memory");
}
