// The text of a value.
#ifndef VELTOR_COMPACT_TEXT_H
#define VELTOR_COMPACT_TEXT_H

#include "region.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace veltor::detail {

/// A text that is set as a whole. It takes 16 bytes and keeps up to 15 characters in them; a longer one takes just
/// its length elsewhere. It always ends in a NUL that does not count.
///
/// Shape: the last byte says how many of the 15 characters are unused, which is the closing NUL of a full one; or
/// that the text is elsewhere, and whether in a region. In front of it stand the pointer and four bytes of length.
class CompactText
{
public:
    CompactText() noexcept { bytes_[last] = static_cast<char>(last); }
    explicit CompactText(std::string_view text) : CompactText() { assign(text); }
    CompactText(const CompactText& other) : CompactText(other.view()) {}
    CompactText(CompactText&& other) noexcept
    {
        std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        other.forget();
    }
    CompactText& operator=(const CompactText& other)
    {
        if (this != &other) {
            assign(other.view());
        }
        return *this;
    }
    CompactText& operator=(CompactText&& other) noexcept
    {
        if (this != &other) {
            release();
            std::memcpy(bytes_, other.bytes_, sizeof bytes_);
            other.forget();
        }
        return *this;
    }
    ~CompactText() { release(); }

    /// The old text stays when this fails.
    /// @throws std::bad_alloc, std::length_error for 4 GiB and more
    void assign(std::string_view text)
    {
        if (text.size() <= last) {
            char bytes[sizeof bytes_] = {};
            if (!text.empty()) {
                std::memcpy(bytes, text.data(), text.size());
            }
            bytes[last] = static_cast<char>(last - text.size());
            release();
            std::memcpy(bytes_, bytes, sizeof bytes_);
            return;
        }
        if (text.size() > std::numeric_limits<Length>::max()) {
            throw std::length_error("a value of 4 GiB or more");
        }
        const Piece piece = obtain(text.size() + 1, 1);
        auto* const home = static_cast<char*>(piece.memory);
        std::memcpy(home, text.data(), text.size());
        home[text.size()] = '\0';
        release();
        const auto size = static_cast<Length>(text.size());
        std::memcpy(bytes_, &home, sizeof home);
        std::memcpy(bytes_ + sizeof home, &size, sizeof size);
        bytes_[last] = static_cast<char>(piece.fromRegion ? inRegion : onHeap);
    }

    std::size_t size() const noexcept
    {
        if (isInPlace()) {
            return last - static_cast<unsigned char>(bytes_[last]);
        }
        Length size = 0;
        std::memcpy(&size, bytes_ + sizeof(char*), sizeof size);
        return size;
    }
    bool empty() const noexcept { return bytes_[last] == static_cast<char>(last); }
    const char* c_str() const noexcept { return isInPlace() ? bytes_ : elsewhere(); }
    std::string_view view() const noexcept { return {c_str(), size()}; }

private:
    using Length = std::uint32_t;
    static constexpr std::size_t last = 15;
    static constexpr unsigned char onHeap = 0x80;
    static constexpr unsigned char inRegion = 0x81;

    bool isInPlace() const noexcept { return static_cast<unsigned char>(bytes_[last]) < onHeap; }
    char* elsewhere() const noexcept
    {
        char* home = nullptr;
        std::memcpy(&home, bytes_, sizeof home);
        return home;
    }
    void release() noexcept
    {
        if (!isInPlace()) {
            giveBack(elsewhere(), static_cast<unsigned char>(bytes_[last]) == inRegion);
        }
    }
    void forget() noexcept
    {
        std::memset(bytes_, 0, last);
        bytes_[last] = static_cast<char>(last);
    }

    alignas(char*) char bytes_[last + 1] = {};
};

static_assert(sizeof(CompactText) == 16);

} // namespace veltor::detail

#endif
