// Runs of comment lines.
#include "LDIF_Comment.h"

#include <algorithm>
#include <iterator>
#include <utility>

LDIF_Comment& LDIF_Comment::operator+=(const LDIF_Comment& other)
{
    // Through a copy where both are the same: inserting a list into itself is not defined.
    absorb(LDIF_Comment(other));
    return *this;
}

void LDIF_Comment::append(LDIF_Comment&& other)
{
    if (lines.empty()) {
        lines = std::move(other.lines);
    } else {
        lines.insert(lines.end(), std::make_move_iterator(other.lines.begin()),
                     std::make_move_iterator(other.lines.end()));
    }
    other.lines.clear();
}

std::size_t LDIF_Comment::linesAboveBlock() const
{
    const auto isOutside = [](const LDIF_Line& line) { return line.type == LDIF_Line::blankLine || line.endsEntry(); };
    return static_cast<std::size_t>(std::find_if(lines.rbegin(), lines.rend(), isOutside).base() - lines.begin());
}

std::string LDIF_Comment::str() const
{
    std::string text;
    appendTo(text);
    return text;
}
