// Two changes of one text become one.
#ifndef VELTOR_TOOL_TAKE_IN_H
#define VELTOR_TOOL_TAKE_IN_H

#include "wiped_text.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace veltor::tool {

struct TakenIn
{
    WipedText text;
    /// Lines of the text, 1-based, from which on both sides have changed the same lines: there the text has mine. What
    /// both have put into one place comes from both, theirs first.
    std::vector<std::size_t> overlaps;
};

/// My text with what they have changed, line by line. Changes that only touch each other do not overlap.
///
/// @param base    what both began from
/// @param mine    what goes before theirs where both have changed the same lines
TakenIn takeIn(std::string_view base, std::string_view mine, std::string_view theirs);

} // namespace veltor::tool

#endif
