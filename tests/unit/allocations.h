#pragma once

#include <atomic>
#include <cstddef>

/// Counts the allocations of the process. To be included in one source of an executable only:
/// it takes malloc()'s place.
namespace {
std::atomic<long> allocationCount = 0;
}

/// Allocations up to now; the difference of two values counts.
inline long allocations();

#if defined(__SANITIZE_ADDRESS__)

// GCC's runtime has it, GCC's headers do not.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void *,
                                                                           std::size_t),
                                                         void (*freed)(const volatile void *));

inline long allocations()
{
    static const int installed = __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void *, std::size_t) { ++allocationCount; },
        [](const volatile void *) {});
    return installed ? allocationCount.load() : -1;
}

#else

// glibc's own entry, so that its free() and realloc() fit.
extern "C" void *__libc_malloc(std::size_t size);

extern "C" void *malloc(std::size_t size) noexcept
{
    ++allocationCount;
    return __libc_malloc(size);
}

inline long allocations()
{
    return allocationCount;
}

#endif
