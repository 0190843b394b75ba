#include "com/core/impl/CommitList.h"

#include <algorithm>

namespace tessaly::core {

void* CommitList::Allocate(size_t size) {
    constexpr size_t kAlign = alignof(std::max_align_t);
    size = (size + kAlign - 1) / kAlign * kAlign;
    if (blocks_.empty() && inlineUsed_ + size <= kInline) {
        void* place = inline_ + inlineUsed_;
        inlineUsed_ += size;
        return place;
    }
    if (blocks_.empty() || blockUsed_ + size > blockSize_) {
        const size_t blockSize = std::max(kBlock, size);
        blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(blockSize));
        blockSize_ = blockSize;
        blockUsed_ = 0;
    }
    void* place = blocks_.back().get() + blockUsed_;
    blockUsed_ += size;
    return place;
}

void CommitList::Link(Node* node) noexcept {
    if (last_)
        last_->next = node;
    else
        first_ = node;
    last_ = node;
}

void CommitList::Run() noexcept {
    for (Node* node = first_; node; node = node->next) node->Make();
    Clear();
}

void CommitList::Clear() noexcept {
    for (Node* node = first_; node;) {
        Node* next = node->next;
        node->~Node();
        node = next;
    }
    first_ = last_ = nullptr;
    inlineUsed_ = 0;
    blocks_.clear();
    blockUsed_ = blockSize_ = 0;
}

}  // namespace tessaly::core
