// A text with changes, as pieces: what did not change stays where it was read.
#ifndef VELTOR_EDITED_TEXT_H
#define VELTOR_EDITED_TEXT_H

#include "entry_lines.h"

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltor::detail {

/// Lines that were made, without their ends, and lines of the source, which stay as they are.
class NewLines
{
public:
    void add(std::string line) { made_.push_back({std::move(line), {}}); }
    /// @param lines  whole physical lines
    void add(TextRange lines) { made_.push_back({{}, lines}); }
    bool empty() const { return made_.empty(); }

private:
    friend class EditedText;

    struct Line
    {
        std::string text;
        TextRange source; // in its place, unless empty
    };

    std::vector<Line> made_;
};

/// Changes are said first, in any order, and may not overlap; finish() puts the text together.
class EditedText
{
public:
    /// What comes at one place comes in this order.
    enum class Kind {
        onTop,      ///< lines at the top of the text: a blank line behind them, unless one is there
        behindLine, ///< further lines of an entry
        entry,      ///< a blank line before and one behind, unless one is there or the text ends
        aboveLine,  ///< comments
        instead,    ///< see replace()
    };

    /// @param source  outlives this
    explicit EditedText(std::string_view source) : source_(source) {}

    void insert(std::size_t position, Kind kind, NewLines lines);
    /// Removes whole lines; `lines` take their place.
    void replace(TextRange range, NewLines lines = {});
    /// True when something was inserted there.
    bool insertsAt(std::size_t position) const;
    /// True when the line that begins there was removed or replaced.
    bool replaces(std::size_t position) const;

    void finish();

    /// After finish(). Hands the text over in pieces, in order, until one is refused. Needs no memory.
    /// @param take  gives false to refuse a std::string_view
    template <class Take>
    void handOver(Take&& take) const
    {
        for (const std::string_view piece : pieces_) {
            if (!take(piece)) {
                return;
            }
        }
    }

private:
    struct Edit
    {
        std::size_t begin;
        std::size_t end;
        Kind kind;
        NewLines lines;
    };

    void emitMade(std::string text);
    void emitSource(TextRange range);
    void emitLines(const NewLines& lines);
    static std::string_view endOf(std::string_view line);
    std::string_view lineEnd() const;
    bool endsWithEmptyLine() const;

    std::string_view source_;
    std::vector<Edit> edits_;
    std::deque<std::string> made_;
    std::vector<std::string_view> pieces_;
    bool owesBlank_ = false; // unless a blank line follows
};

} // namespace veltor::detail

#endif
