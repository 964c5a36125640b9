// Hashes of texts that are compared without regard to case.
#include "fold_hash.h"

#include <algorithm>
#include <cstring>

#include <unistd.h>

namespace veltor::detail {

std::uint64_t hashSeed()
{
    static const std::uint64_t seed = [] {
        std::uint64_t value = 0;
        // Without random bytes the seed is fixed, and everything works all the same.
        return getentropy(&value, sizeof value) == 0 ? value : 0x9E3779B97F4A7C15U;
    }();
    return seed;
}

std::uint64_t hashFolded(std::uint64_t hash, std::string_view text, FoldTable fold)
{
    text = text.substr(0, text.find('\0'));
    const std::uint64_t length = text.size();
    while (!text.empty()) {
        std::uint64_t word = 0;
        const std::size_t count = std::min(text.size(), sizeof word);
        for (std::size_t index = 0; index < count; ++index) {
            word |= static_cast<std::uint64_t>(fold[static_cast<unsigned char>(text[index])] & 0xFF) << (8 * index);
        }
        hash = mixed(hash, word);
        text.remove_prefix(count);
    }
    return mixed(hash, length);
}

std::uint64_t hashBytes(std::uint64_t hash, std::string_view text)
{
    const std::uint64_t length = text.size();
    while (text.size() >= sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data(), sizeof word);
        hash = mixed(hash, word);
        text.remove_prefix(sizeof word);
    }
    std::uint64_t word = 0;
    if (!text.empty()) {
        std::memcpy(&word, text.data(), text.size());
    }
    return mixed(mixed(hash, word), length);
}

} // namespace veltor::detail
