// What two texts have in common, line by line, and the difference as `diff -u` and `patch` know it.
#ifndef VELTOR_TOOL_TEXT_DIFF_H
#define VELTOR_TOOL_TEXT_DIFF_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// The lines of a text, each with its line feed; the last one may lack it.
std::vector<std::string_view> linesOf(std::string_view text);

/// Lines that one text has in place of lines of another: both positions are 0-based, and one count may be 0.
struct LineChange
{
    std::size_t before, beforeCount; ///< lines that are removed
    std::size_t after, afterCount;   ///< lines that come in their place

    bool operator==(const LineChange&) const = default;
};

/// The changes that make one list of lines of another, in order, with at least one common line between two of them.
/// Few changes cost time in proportion to the lines, and many at most as much for each line as thousands do: then
/// there may be more changes than needed.
std::vector<LineChange> lineChanges(const std::vector<std::string_view>& before,
                                    const std::vector<std::string_view>& after);

/// The difference in the unified form with three lines of context; "" for equal texts. Behind the numbers of a hunk
/// stands the DN of the entry that its first change is in. The texts come out as they are: mask secrets before, and
/// escape the result for a terminal.
///
/// @param beforeLabel, afterLabel  names for the two texts, which come out escaped: a name may hold a line feed
std::string unifiedDiff(std::string_view before, std::string_view after, const std::string& beforeLabel,
                        const std::string& afterLabel);

} // namespace veltor::tool

#endif
