// The shortest edit in linear space (Myers, "An O(ND) Difference Algorithm and Its Variations", 1986), with a bound
// on the search, so that texts which have little in common take no longer than a person would wait.
#include "text_diff.h"

#include "escape.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <strings.h>
#include <unordered_map>

namespace veltor::tool {

namespace {

using Number = std::ptrdiff_t;

/// Lines as numbers, equal for equal lines, and for each its place in the whole text.
struct Sequence
{
    std::vector<std::uint32_t> lines;
    std::vector<std::size_t> places;
};

/// A part of both sequences.
struct Box
{
    Number left, right, top, bottom; ///< left..right of the first, top..bottom of the second; the ends are outside
};

struct Point
{
    Number x, y;
};

/// Marks the lines that have no partner in the other sequence.
class Comparison
{
public:
    Comparison(const Sequence& before, const Sequence& after, std::vector<bool>& removed, std::vector<bool>& added)
        : before_(before), after_(after), removed_(removed), added_(added),
          diagonals_(2 * (before.lines.size() + after.lines.size()) + 3),
          most_(std::max<Number>(leastBound, static_cast<Number>(std::sqrt(
                                                 static_cast<double>(before.lines.size() + after.lines.size())))))
    {
        forward_.resize(diagonals_);
        backward_.resize(diagonals_);
    }

    void run();

private:
    // Versions of one file rarely differ in more.
    static constexpr Number leastBound = 256;
    static constexpr Number unreached = -1;

    void trim(Box& box) const;
    Point split(const Box& box);
    Number reach(std::vector<Number>& furthest, Number diagonal, Number steps, const Box& box) const;
    bool same(Number x, Number y) const
    {
        return before_.lines[static_cast<std::size_t>(x)] == after_.lines[static_cast<std::size_t>(y)];
    }
    Number& at(std::vector<Number>& furthest, Number diagonal) const
    {
        return furthest[static_cast<std::size_t>(diagonal + static_cast<Number>(diagonals_ / 2))];
    }

    const Sequence& before_;
    const Sequence& after_;
    std::vector<bool>& removed_;
    std::vector<bool>& added_;
    std::size_t diagonals_;
    Number most_; ///< steps of a search before it settles for the furthest point it has reached
    std::vector<Number> forward_, backward_;
};

void Comparison::trim(Box& box) const
{
    while (box.left < box.right && box.top < box.bottom && same(box.left, box.top)) {
        ++box.left;
        ++box.top;
    }
    while (box.left < box.right && box.top < box.bottom && same(box.right - 1, box.bottom - 1)) {
        --box.right;
        --box.bottom;
    }
}

/// How far a path of some steps gets on a diagonal, before it follows common lines there.
/// @param furthest  how far the paths with one step less get on the diagonals beside it
Number Comparison::reach(std::vector<Number>& furthest, Number diagonal, Number steps, const Box& box) const
{
    if (steps == 0) {
        return 0;
    }
    const Number across = diagonal == -steps ? unreached : at(furthest, diagonal - 1);
    const Number down = diagonal == steps ? unreached : at(furthest, diagonal + 1);
    Number x = unreached;
    if (across != unreached && across < box.right - box.left) {
        x = across + 1;
    }
    if (down > x && down - diagonal <= box.bottom - box.top) {
        x = down;
    }
    return x;
}

/// A point that a shortest path through the box passes, or after many steps the furthest one reached. Paths are sought
/// from both ends; each has its own count, x and y from where it begins, and its diagonal k is x - y = k. The box is
/// trimmed and has both sides, so a path has two steps at least, and the point is neither of the corners.
Point Comparison::split(const Box& box)
{
    const Number width = box.right - box.left;
    const Number height = box.bottom - box.top;
    const Number delta = width - height;
    const bool odd = delta % 2 != 0;
    const auto meets = [&](Number x, std::vector<Number>& others, Number diagonal, Number steps) {
        return x != unreached && std::abs(diagonal) <= steps && at(others, diagonal) != unreached &&
               x + at(others, diagonal) >= width;
    };
    for (Number steps = 0;; ++steps) {
        Point furthest{0, 0};
        // Diagonals outside the box are left out: nothing on them can be part of a path.
        const Number lowest = -(steps - 2 * std::max<Number>(0, steps - height));
        const Number highest = steps - 2 * std::max<Number>(0, steps - width);
        for (Number k = lowest; k <= highest; k += 2) {
            Number x = reach(forward_, k, steps, box);
            while (x != unreached && x < width && x - k < height && same(box.left + x, box.top + x - k)) {
                ++x;
            }
            at(forward_, k) = x;
            if (odd && meets(x, backward_, delta - k, steps - 1)) {
                return {box.left + x, box.top + x - k};
            }
            if (x != unreached && x + x - k > furthest.x + furthest.y) {
                furthest = {x, x - k};
            }
        }
        for (Number k = lowest; k <= highest; k += 2) {
            Number x = reach(backward_, k, steps, box);
            while (x != unreached && x < width && x - k < height && same(box.right - 1 - x, box.bottom - 1 - x + k)) {
                ++x;
            }
            at(backward_, k) = x;
            if (!odd && meets(x, forward_, delta - k, steps)) {
                return {box.right - x, box.bottom - x + k};
            }
        }
        if (steps >= most_) {
            return {box.left + furthest.x, box.top + furthest.y};
        }
    }
}

void Comparison::run()
{
    // No recursion: a bounded search may cut off one small piece after the other.
    std::vector<Box> boxes{{0, static_cast<Number>(before_.lines.size()), 0, static_cast<Number>(after_.lines.size())}};
    while (!boxes.empty()) {
        Box box = boxes.back();
        boxes.pop_back();
        trim(box);
        if (box.left == box.right || box.top == box.bottom) {
            for (Number x = box.left; x < box.right; ++x) {
                removed_[before_.places[static_cast<std::size_t>(x)]] = true;
            }
            for (Number y = box.top; y < box.bottom; ++y) {
                added_[after_.places[static_cast<std::size_t>(y)]] = true;
            }
            continue;
        }
        const Point middle = split(box);
        boxes.push_back({box.left, middle.x, box.top, middle.y});
        boxes.push_back({middle.x, box.right, middle.y, box.bottom});
    }
}

/// The lines of one text that the other has as well. The others can't be common, and need no search.
Sequence shared(const std::vector<std::uint32_t>& lines, const std::vector<bool>& inOther, std::vector<bool>& changed)
{
    Sequence sequence;
    for (std::size_t place = 0; place < lines.size(); ++place) {
        if (inOther[lines[place]]) {
            sequence.lines.push_back(lines[place]);
            sequence.places.push_back(place);
        } else {
            changed[place] = true;
        }
    }
    return sequence;
}

/// Marks what is removed and what is added.
void compare(const std::vector<std::string_view>& before, const std::vector<std::string_view>& after,
             std::vector<bool>& removed, std::vector<bool>& added)
{
    std::unordered_map<std::string_view, std::uint32_t> numbers;
    const auto numbered = [&](const std::vector<std::string_view>& lines) {
        std::vector<std::uint32_t> result;
        result.reserve(lines.size());
        for (const std::string_view line : lines) {
            result.push_back(numbers.try_emplace(line, static_cast<std::uint32_t>(numbers.size())).first->second);
        }
        return result;
    };
    const std::vector<std::uint32_t> beforeNumbers = numbered(before);
    const std::vector<std::uint32_t> afterNumbers = numbered(after);
    std::vector<bool> inBefore(numbers.size());
    std::vector<bool> inAfter(numbers.size());
    for (const std::uint32_t number : beforeNumbers) {
        inBefore[number] = true;
    }
    for (const std::uint32_t number : afterNumbers) {
        inAfter[number] = true;
    }
    const Sequence beforeShared = shared(beforeNumbers, inAfter, removed);
    const Sequence afterShared = shared(afterNumbers, inBefore, added);
    Comparison(beforeShared, afterShared, removed, added).run();
}

std::vector<LineChange> changesOf(const std::vector<bool>& removed, const std::vector<bool>& added)
{
    std::vector<LineChange> changes;
    std::size_t x = 0;
    std::size_t y = 0;
    while (x < removed.size() || y < added.size()) {
        LineChange change{x, 0, y, 0};
        for (; x < removed.size() && removed[x]; ++x) {
            ++change.beforeCount;
        }
        for (; y < added.size() && added[y]; ++y) {
            ++change.afterCount;
        }
        if (change.beforeCount + change.afterCount > 0) {
            changes.push_back(change);
        }
        // A line without a mark has its partner where the other list goes on.
        ++x;
        ++y;
    }
    return changes;
}

/// How far lines that are only added or only removed can go down without another meaning: an entry is then shown
/// with the blank line behind it, and not with the one above it.
std::size_t slideOf(const std::vector<std::string_view>& lines, std::size_t begin, std::size_t count, std::size_t end)
{
    std::size_t slide = 0;
    while (begin + count + slide < end && lines[begin + slide] == lines[begin + count + slide]) {
        ++slide;
    }
    return slide;
}

std::vector<LineChange> slidDown(const std::vector<LineChange>& changes, const std::vector<std::string_view>& before,
                                 const std::vector<std::string_view>& after)
{
    std::vector<LineChange> result;
    // From behind, so that each meets the next one where it has come to stand.
    for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
        LineChange moved = *change;
        const LineChange next = result.empty() ? LineChange{before.size(), 0, after.size(), 0} : result.back();
        std::size_t slide = 0;
        if (moved.beforeCount == 0) {
            slide = slideOf(after, moved.after, moved.afterCount, next.after);
        } else if (moved.afterCount == 0) {
            slide = slideOf(before, moved.before, moved.beforeCount, next.before);
        }
        moved.before += slide;
        moved.after += slide;
        if (!result.empty() && moved.before + moved.beforeCount == next.before) {
            moved.beforeCount += next.beforeCount;
            moved.afterCount += next.afterCount;
            result.pop_back();
        }
        result.push_back(moved);
    }
    std::reverse(result.begin(), result.end());
    return result;
}

// ---- The unified form ----

constexpr std::size_t context = 3;

void appendLine(std::string& out, char sign, std::string_view line)
{
    out += sign;
    out += line;
    if (line.empty() || line.back() != '\n') {
        out += "\n\\ No newline at end of file\n";
    }
}

/// The lines of a hunk as its head numbers them: an empty range is told by the line before it.
std::string rangeOf(std::size_t first, std::size_t count)
{
    const std::string start = std::to_string(count == 0 ? first : first + 1);
    return count == 1 ? start : start + ',' + std::to_string(count);
}

/// The DN that a line begins an entry with, "" for other lines.
std::string_view dnOf(std::string_view line)
{
    if (line.size() < 3 || ::strncasecmp(line.data(), "dn:", 3) != 0) {
        return {};
    }
    line.remove_prefix(std::min(line.find_first_not_of(": \t", 2), line.size()));
    return line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
}

/// Writes hunks from the first to the last, and knows the entry that each stands in.
class UnifiedForm
{
public:
    UnifiedForm(const std::vector<std::string_view>& before, const std::vector<std::string_view>& after)
        : before_(before), after_(after)
    {
    }

    /// @param begin, end  changes that are near enough to stand in one hunk
    void appendHunk(std::string& out, const LineChange* begin, const LineChange* end)
    {
        const LineChange& last = *(end - 1);
        const std::size_t above = std::min(context, begin->before);
        const std::size_t below = std::min(context, before_.size() - last.before - last.beforeCount);
        const std::size_t first = begin->before - above;
        const std::size_t firstAfter = begin->after - above;
        out += "@@ -" + rangeOf(first, last.before + last.beforeCount + below - first) + " +" +
               rangeOf(firstAfter, last.after + last.afterCount + below - firstAfter) + " @@";
        if (const std::string_view entry = entryAt(*begin); !entry.empty()) {
            out += ' ';
            out += entry;
        }
        out += '\n';
        std::size_t common = first;
        for (const LineChange* change = begin; change != end; ++change) {
            appendLines(out, ' ', before_, common, change->before);
            common = change->before + change->beforeCount;
            appendLines(out, '-', before_, change->before, common);
            appendLines(out, '+', after_, change->after, change->after + change->afterCount);
        }
        appendLines(out, ' ', before_, common, common + below);
    }

private:
    static void appendLines(std::string& out, char sign, const std::vector<std::string_view>& lines, std::size_t begin,
                            std::size_t end)
    {
        for (; begin < end; ++begin) {
            appendLine(out, sign, lines[begin]);
        }
    }

    /// The entry whose DN line stands nearest above a change, or is what it begins with.
    std::string_view entryAt(const LineChange& change)
    {
        for (; looked_ < change.before + std::min<std::size_t>(change.beforeCount, 1); ++looked_) {
            if (const std::string_view dn = dnOf(before_[looked_]); !dn.empty()) {
                entry_ = dn;
            }
        }
        return entry_;
    }

    const std::vector<std::string_view>& before_;
    const std::vector<std::string_view>& after_;
    std::size_t looked_ = 0; ///< lines of the text before that were looked at
    std::string_view entry_;
};

} // namespace

std::vector<std::string_view> linesOf(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t feed = text.find('\n');
        const std::size_t length = feed == std::string_view::npos ? text.size() : feed + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

std::vector<LineChange> lineChanges(const std::vector<std::string_view>& before,
                                    const std::vector<std::string_view>& after)
{
    std::vector<bool> removed(before.size());
    std::vector<bool> added(after.size());
    compare(before, after, removed, added);
    return slidDown(changesOf(removed, added), before, after);
}

std::string unifiedDiff(std::string_view before, std::string_view after, const std::string& beforeLabel,
                        const std::string& afterLabel)
{
    const std::vector<std::string_view> beforeLines = linesOf(before);
    const std::vector<std::string_view> afterLines = linesOf(after);
    const std::vector<LineChange> changes = lineChanges(beforeLines, afterLines);
    if (changes.empty()) {
        return {};
    }
    std::string out = "--- " + escaped(beforeLabel) + "\n+++ " + escaped(afterLabel) + '\n';
    UnifiedForm form(beforeLines, afterLines);
    const LineChange* begin = changes.data();
    const LineChange* const end = begin + changes.size();
    while (begin != end) {
        const LineChange* next = begin + 1;
        while (next != end && next->before - (next - 1)->before - (next - 1)->beforeCount <= 2 * context) {
            ++next;
        }
        form.appendHunk(out, begin, next);
        begin = next;
    }
    return out;
}

} // namespace veltor::tool
