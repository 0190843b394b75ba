#include "platform/DestructionQueue.h"

#include <vector>

namespace tessaly {

namespace {

struct Waiting {
    void* object;
    DestructionQueue::Destroy destroy;
};

// Plain values only: objects may be released while the thread's own variables are being
// destroyed at its exit. The queue exists only while objects wait in it.
thread_local int nesting = 0;
thread_local std::vector<Waiting>* waiting = nullptr;

}  // namespace

void DestructionQueue::Run(void* object, Destroy destroy) noexcept {
    if (nesting >= kMaxNesting) {
        try {
            if (!waiting) waiting = new std::vector<Waiting>();
            waiting->push_back({object, destroy});
            return;
        } catch (...) {
            // No memory for the queue: destroyed at once, on the stack.
        }
    }
    ++nesting;
    destroy(object);
    --nesting;
    if (nesting > 0 || !waiting) return;
    while (!waiting->empty()) {
        const Waiting next = waiting->back();
        waiting->pop_back();
        ++nesting;
        next.destroy(next.object);
        --nesting;
    }
    delete waiting;
    waiting = nullptr;
}

}  // namespace tessaly
