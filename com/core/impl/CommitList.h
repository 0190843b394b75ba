// The assignments a load records while it reads, made together once everything has been
// read (ArchiveAccess). Each is any callable, moved in with what it assigns, so that a
// value read is owned by its assignment until it is made and freed with it when the load
// fails. They live in the list's own storage: a few hundred bytes inside the list, then
// blocks taken as needed, so that loading an object with a handful of properties
// allocates nothing for them.
//
// An assignment must not throw: the assignments run after the last point where a load may
// still fail.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace tessaly::core {

class CommitList {
public:
    CommitList() = default;
    CommitList(const CommitList&) = delete;
    CommitList& operator=(const CommitList&) = delete;
    ~CommitList() { Clear(); }

    template <class F>
    void Add(F&& assignment) {
        using Stored = Assignment<std::decay_t<F>>;
        static_assert(alignof(Stored) <= alignof(std::max_align_t));
        void* place = Allocate(sizeof(Stored));
        Link(new (place) Stored(std::forward<F>(assignment)));
    }

    // Makes every assignment, in the order they were added; the list is then empty.
    void Run() noexcept;
    // Drops every assignment unmade.
    void Clear() noexcept;

private:
    struct Node {
        Node* next = nullptr;
        virtual void Make() noexcept = 0;
        virtual ~Node() = default;
    };
    template <class F>
    struct Assignment final : Node {
        explicit Assignment(F&& f) : assign(std::move(f)) {}
        explicit Assignment(const F& f) : assign(f) {}
        void Make() noexcept override { assign(); }
        F assign;
    };

    static constexpr size_t kInline = 512;
    static constexpr size_t kBlock = 4096;

    void* Allocate(size_t size);
    void Link(Node* node) noexcept;

    alignas(std::max_align_t) std::byte inline_[kInline];
    size_t inlineUsed_ = 0;
    std::vector<std::unique_ptr<std::byte[]>> blocks_;
    size_t blockUsed_ = 0;  // in the last block
    size_t blockSize_ = 0;  // of the last block
    Node* first_ = nullptr;
    Node* last_ = nullptr;
};

}  // namespace tessaly::core
