// Counts the bytes the process asks the heap for while a counter is alive: malloc, calloc,
// realloc and everything built on them (operator new, BSTRs, safe arrays), on any thread.
// A test wraps a hostile load in one and bounds what the load may ask for, which catches an
// allocation sized by a length in the input even when it is freed before the load returns.
//
// Under a sanitizer the heap is the sanitizer's, and its allocation hook does the
// counting; otherwise this program's own malloc, calloc and realloc count and hand on to
// the C library's allocator.
#pragma once

#include <cstddef>

namespace tessaly::test {

class AllocationCounter {
public:
    AllocationCounter() noexcept;
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    // Bytes requested since construction, all requests together, and the largest one.
    size_t Bytes() const noexcept;
    size_t Largest() const noexcept;
};

}  // namespace tessaly::test
