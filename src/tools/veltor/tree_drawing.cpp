// Reads the drawing by its structure. In front of a DN stand column groups of five bytes; the fifth byte of the
// last group is where the branch begins, and what follows the branch is the DN.
#include "tree_drawing.h"

#include "escape.h"

#include <algorithm>
#include <optional>
#include <span>

namespace veltor::tool {

namespace {

struct Stroke
{
    std::string_view drawn, shown;
};

struct Pencil
{
    Stroke top;
    std::span<const Stroke> branches;
    Stroke bar; ///< the last byte of a column group whose level goes on
};

constexpr Stroke codePage437Branches[] = {{"\xC3\xC4 ", "\u251C\u2500 "}, {"\xC0\xC4 ", "\u2514\u2500 "}};
constexpr Pencil codePage437{{"\xC4 ", "\u2500 "}, codePage437Branches, {"\xB3", "\u2502"}};
constexpr Stroke asciiBranches[] = {{"+- ", "+- "}};
constexpr Pencil ascii{{"- ", "- "}, asciiBranches, {"|", "|"}};

constexpr std::string_view blanks = "    ";
constexpr std::string_view undefinedHeading = "* the following entries are undefined:";

// line = top DN / *group blanks branch DN / 1*group
// group = blanks (" " / bar)
std::optional<std::string> lineIn(std::string_view line, const Pencil& pencil)
{
    if (line.empty()) {
        return std::string();
    }
    if (line.starts_with(pencil.top.drawn)) {
        return std::string(pencil.top.shown) + escaped(line.substr(pencil.top.drawn.size()));
    }
    std::string shown;
    while (line.starts_with(blanks)) {
        shown += blanks;
        line.remove_prefix(blanks.size());
        const auto branch = std::find_if(pencil.branches.begin(), pencil.branches.end(),
                                         [&](const Stroke& stroke) { return line.starts_with(stroke.drawn); });
        if (branch != pencil.branches.end()) {
            return shown + std::string(branch->shown) + escaped(line.substr(branch->drawn.size()));
        }
        if (line.starts_with(pencil.bar.drawn)) {
            shown += pencil.bar.shown;
        } else if (line.starts_with(' ')) {
            shown += ' ';
        } else {
            return std::nullopt;
        }
        line.remove_prefix(1);
        if (line.empty()) {
            return shown;
        }
    }
    return std::nullopt;
}

std::string shownWith(std::string_view drawing, const Pencil& pencil)
{
    std::string out;
    bool drawn = true;
    while (!drawing.empty()) {
        const std::size_t end = std::min(drawing.find('\n'), drawing.size());
        const std::string_view line = drawing.substr(0, end);
        drawing.remove_prefix(std::min(end + 1, drawing.size()));
        drawn = drawn && line != undefinedHeading;
        const std::optional<std::string> shown = drawn ? lineIn(line, pencil) : escaped(line);
        if (!shown && !out.empty()) {
            // A line feed within a DN.
            out.pop_back();
            out += escaped("\n");
        }
        out += shown ? *shown : escaped(line);
        out += '\n';
    }
    return out;
}

} // namespace

std::string unicodeTree(std::string_view drawing)
{
    return shownWith(drawing, codePage437);
}

std::string asciiTree(std::string_view drawing)
{
    return shownWith(drawing, ascii);
}

} // namespace veltor::tool
