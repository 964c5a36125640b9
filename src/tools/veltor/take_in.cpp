// The base is walked from change to change. Changes of the two sides that overlap are one region, of which one side's
// lines are taken.
#include "take_in.h"

#include "text_diff.h"

#include <algorithm>

namespace veltor::tool {

namespace {

using Lines = std::vector<std::string_view>;

/// The changes, with lines that came one for one on their own, so that neighbours of a line that the other side has
/// changed too do not go with it.
std::vector<LineChange> lineByLine(const std::vector<LineChange>& changes)
{
    std::vector<LineChange> out;
    for (const LineChange& change : changes) {
        if (change.beforeCount != change.afterCount) {
            out.push_back(change);
            continue;
        }
        for (std::size_t line = 0; line < change.beforeCount; ++line) {
            out.push_back({change.before + line, 1, change.after + line, 1});
        }
    }
    return out;
}

/// One side: its lines, and what it has changed.
class Side
{
public:
    Side(const Lines& base, const Lines& lines) : lines_(lines), changes_(lineByLine(lineChanges(base, lines))) {}

    bool isDone() const { return next_ == changes_.size(); }
    const LineChange& next() const { return changes_[next_]; }
    std::size_t nextBegin() const { return next().before; }
    std::size_t nextEnd() const { return next().before + next().beforeCount; }

    /// Takes the next change into the region that is being gathered.
    void gather()
    {
        if (!gathered_) {
            begin_ = next().before;
            lineBegin_ = next().after;
        }
        gathered_ = true;
        end_ = nextEnd();
        lineEnd_ = next().after + next().afterCount;
        ++next_;
    }

    bool hasGathered() const { return gathered_; }

    /// This side's lines for the lines of the base from begin to end, which have what was gathered in them.
    Lines linesOf(std::size_t begin, std::size_t end) const
    {
        // In front of and behind the changes the side has the lines of the base.
        const std::size_t first = lineBegin_ - (begin_ - begin);
        const std::size_t last = lineEnd_ + (end - end_);
        return {lines_.begin() + static_cast<std::ptrdiff_t>(first),
                lines_.begin() + static_cast<std::ptrdiff_t>(last)};
    }

    void release() { gathered_ = false; }

private:
    const Lines& lines_;
    std::vector<LineChange> changes_;
    std::size_t next_ = 0;
    bool gathered_ = false;
    std::size_t begin_ = 0, end_ = 0;         // in the base
    std::size_t lineBegin_ = 0, lineEnd_ = 0; // in this side's lines
};

/// True when the side's next change is in the lines of the region, or comes into the same place.
bool overlaps(const Side& side, std::size_t begin, std::size_t end)
{
    return !side.isDone() &&
           (side.nextBegin() < end || (side.nextBegin() == begin && begin == end && side.nextEnd() == end));
}

class Merge
{
public:
    Merge(const Lines& base, const Lines& mine, const Lines& theirs)
        : base_(base), mine_(base, mine), theirs_(base, theirs)
    {
    }

    TakenIn run()
    {
        while (!mine_.isDone() || !theirs_.isDone()) {
            takeRegion();
        }
        takeLines({base_.begin() + static_cast<std::ptrdiff_t>(at_), base_.end()});
        return std::move(result_);
    }

private:
    void takeRegion()
    {
        Side& first = theirs_.isDone() || (!mine_.isDone() && comesFirst(mine_, theirs_)) ? mine_ : theirs_;
        const std::size_t begin = first.nextBegin();
        std::size_t end = first.nextEnd();
        first.gather();
        for (bool more = true; more;) {
            more = false;
            for (Side* const side : {&mine_, &theirs_}) {
                if (overlaps(*side, begin, end)) {
                    end = std::max(end, side->nextEnd());
                    side->gather();
                    more = true;
                }
            }
        }
        takeLines(
            {base_.begin() + static_cast<std::ptrdiff_t>(at_), base_.begin() + static_cast<std::ptrdiff_t>(begin)});
        at_ = end;
        const Lines own = mine_.hasGathered() ? mine_.linesOf(begin, end) : Lines{};
        const Lines other = theirs_.hasGathered() ? theirs_.linesOf(begin, end) : Lines{};
        const bool differ = mine_.hasGathered() && theirs_.hasGathered() && own != other;
        if (differ) {
            result_.overlaps.push_back(count_ + 1);
        }
        if (!mine_.hasGathered() || (differ && begin == end)) {
            takeLines(other);
        }
        if (mine_.hasGathered()) {
            takeLines(own);
        }
        mine_.release();
        theirs_.release();
    }

    /// An insertion goes before a change of the line that it stands in front of.
    static bool comesFirst(const Side& left, const Side& right)
    {
        return left.nextBegin() < right.nextBegin() ||
               (left.nextBegin() == right.nextBegin() && left.nextEnd() <= right.nextEnd());
    }

    void takeLines(const Lines& lines)
    {
        for (const std::string_view line : lines) {
            // What follows a last line without a line feed must not become a part of it.
            if (!result_.text.empty() && result_.text.back() != '\n') {
                result_.text.push_back('\n');
            }
            append(result_.text, line);
            ++count_;
        }
    }

    const Lines& base_;
    Side mine_, theirs_;
    std::size_t at_ = 0; // of the base
    std::size_t count_ = 0;
    TakenIn result_;
};

} // namespace

TakenIn takeIn(std::string_view base, std::string_view mine, std::string_view theirs)
{
    const Lines baseLines = linesOf(base);
    const Lines mineLines = linesOf(mine);
    const Lines theirsLines = linesOf(theirs);
    return Merge(baseLines, mineLines, theirsLines).run();
}

} // namespace veltor::tool
