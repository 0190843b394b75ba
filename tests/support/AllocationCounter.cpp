#include "support/AllocationCounter.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TESSALY_SANITIZER_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TESSALY_SANITIZER_HEAP 1
#endif
#endif

namespace tessaly::test {

namespace {

std::atomic<int> counters{0};
std::atomic<size_t> requested{0};
std::atomic<size_t> largest{0};

void Count(size_t size) noexcept {
    if (counters.load(std::memory_order_relaxed) == 0) return;
    requested.fetch_add(size, std::memory_order_relaxed);
    size_t seen = largest.load(std::memory_order_relaxed);
    while (size > seen && !largest.compare_exchange_weak(seen, size, std::memory_order_relaxed)) {
    }
}

}  // namespace

}  // namespace tessaly::test

#ifdef TESSALY_SANITIZER_HEAP

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, size_t),
                                                         void (*free_hook)(const volatile void*));

namespace {

void OnMalloc(const volatile void*, size_t size) { tessaly::test::Count(size); }
void OnFree(const volatile void*) {}

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);

}  // namespace

#else

// The C library's allocator under its own names: this program's malloc, calloc and realloc
// replace the public ones for every library in the process.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) {
    tessaly::test::Count(size);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    size_t bytes = 0;
    tessaly::test::Count(__builtin_mul_overflow(count, size, &bytes) ? SIZE_MAX : bytes);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    tessaly::test::Count(size);
    return __libc_realloc(block, size);
}
}

#endif

namespace tessaly::test {

AllocationCounter::AllocationCounter() noexcept {
    requested.store(0);
    largest.store(0);
    counters.fetch_add(1);
}

AllocationCounter::~AllocationCounter() { counters.fetch_sub(1); }

size_t AllocationCounter::Bytes() const noexcept { return requested.load(); }
size_t AllocationCounter::Largest() const noexcept { return largest.load(); }

}  // namespace tessaly::test
