// Memory for passwords: overwritten before it goes back to the heap.
#ifndef VELTOR_TOOL_WIPED_TEXT_H
#define VELTOR_TOOL_WIPED_TEXT_H

#include <cstddef>
#include <memory>
#include <string.h>
#include <string_view>
#include <vector>

namespace veltor::tool {

template <typename T>
struct WipingAllocator
{
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>&) noexcept
    {
    }

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* block, std::size_t count) noexcept
    {
        ::explicit_bzero(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }

    template <typename U>
    bool operator==(const WipingAllocator<U>&) const noexcept
    {
        return true;
    }
};

/// A text that is wiped wherever it has been, also when it grows. A vector and not a string: a string keeps
/// short texts inside itself, where no allocator can wipe them.
using WipedText = std::vector<char, WipingAllocator<char>>;

inline void append(WipedText& out, std::string_view text)
{
    out.insert(out.end(), text.begin(), text.end());
}

inline std::string_view view(const WipedText& text)
{
    return {text.data(), text.size()};
}

} // namespace veltor::tool

#endif
