// What the library maps, counted and made to fail. A program that uses this compiles mapping_watch.cpp in and is linked
// with "LINKER:--wrap=mmap,--wrap=munmap".
#ifndef VELTOR_TESTS_MAPPING_WATCH_H
#define VELTOR_TESTS_MAPPING_WATCH_H

#include "region.h"

#include <atomic>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define VELTOR_PIECEWISE 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELTOR_PIECEWISE 1
#endif
#endif

namespace veltor::test {

/// Every piece of memory comes from operator new: there are no chunks to count.
#ifdef VELTOR_PIECEWISE
inline constexpr bool piecewise = true;
#else
inline constexpr bool piecewise = false;
#endif

inline bool mappingFails = false;
inline std::atomic<std::size_t> mappedBytes = 0; ///< mapped by the library and not given back

/// What the library has mapped since this was made.
class MappingWatch
{
public:
    std::size_t chunks() const { return (mappedBytes - before_) / detail::chunkBytes; }
    bool isWhole() const { return (mappedBytes - before_) % detail::chunkBytes == 0; }

private:
    std::size_t before_ = mappedBytes;
};

/// So many chunks, where there are any.
inline std::size_t expectedChunks(std::size_t count)
{
    return piecewise ? 0 : count;
}

} // namespace veltor::test

#endif
