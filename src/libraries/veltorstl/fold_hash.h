// Hashes of texts that are compared without regard to case.
#ifndef VELTOR_FOLD_HASH_H
#define VELTOR_FOLD_HASH_H

#include <cctype>
#include <cstdint>
#include <string_view>

namespace veltor::detail {

/// The table by which the system library folds case. Its address tells locales apart: keys made with one are of no
/// use with another.
using FoldTable = const std::int32_t*;

inline FoldTable foldTable()
{
    return *__ctype_tolower_loc();
}

/// Chosen by the system for each process, so that no file can be made to collide.
std::uint64_t hashSeed();

inline std::uint64_t mixed(std::uint64_t left, std::uint64_t right)
{
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(left ^ 0xA0761D6478BD642FU) * (right ^ 0xE7037ED1A0B428DBU);
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

/// Goes on with a hash by a text as strcasecmp sees it: folded as the locale folds, up to the first NUL.
std::uint64_t hashFolded(std::uint64_t hash, std::string_view text, FoldTable fold);

/// Goes on with a hash by all bytes of a text.
std::uint64_t hashBytes(std::uint64_t hash, std::string_view text);

} // namespace veltor::detail

#endif
