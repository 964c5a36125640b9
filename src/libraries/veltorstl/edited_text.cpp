// A text with changes.
#include "edited_text.h"

#include <algorithm>

namespace veltor::detail {

void EditedText::insert(std::size_t position, Kind kind, NewLines lines)
{
    edits_.push_back({position, position, kind, std::move(lines)});
}

void EditedText::replace(TextRange range, NewLines lines)
{
    edits_.push_back({range.begin, range.end, Kind::instead, std::move(lines)});
}

bool EditedText::insertsAt(std::size_t position) const
{
    return std::any_of(edits_.begin(), edits_.end(),
                       [position](const Edit& edit) { return edit.begin == position && edit.kind != Kind::instead; });
}

bool EditedText::replaces(std::size_t position) const
{
    return std::any_of(edits_.begin(), edits_.end(),
                       [position](const Edit& edit) { return edit.begin <= position && position < edit.end; });
}

void EditedText::finish()
{
    std::stable_sort(edits_.begin(), edits_.end(), [](const Edit& left, const Edit& right) {
        return std::pair(left.begin, left.kind) < std::pair(right.begin, right.kind);
    });
    std::size_t done = 0;
    for (const Edit& edit : edits_) {
        emitSource({done, std::max(done, edit.begin)});
        done = std::max(done, edit.end);
        if (edit.lines.empty()) {
            continue;
        }
        if (edit.kind == Kind::entry) {
            owesBlank_ = !pieces_.empty() && !endsWithEmptyLine();
        }
        emitLines(edit.lines);
        owesBlank_ = edit.kind == Kind::entry || edit.kind == Kind::onTop;
    }
    emitSource({done, source_.size()});
}

void EditedText::emitMade(std::string text)
{
    pieces_.push_back(made_.emplace_back(std::move(text)));
}

void EditedText::emitSource(TextRange range)
{
    if (range.empty()) {
        return;
    }
    if (owesBlank_ && !isEmptyLine(source_, range.begin)) {
        emitMade(std::string(lineEnd()));
    }
    owesBlank_ = false;
    pieces_.push_back(range.in(source_));
}

void EditedText::emitLines(const NewLines& lines)
{
    std::string_view end = lineEnd();
    std::string text;
    if (!pieces_.empty() && pieces_.back().back() != '\n') {
        text += end;
    }
    if (std::exchange(owesBlank_, false)) {
        text += end;
    }
    for (const NewLines::Line& line : lines.made_) {
        if (line.source.empty()) {
            text.append(line.text).append(end);
        } else {
            const std::string_view asItStands = line.source.in(source_);
            text.append(asItStands);
            end = endOf(asItStands);
        }
    }
    emitMade(std::move(text));
}

/// How a line ends that has an end.
std::string_view EditedText::endOf(std::string_view line)
{
    return line.ends_with("\r\n") ? "\r\n" : "\n";
}

/// How the line ends that comes last so far; where there is none, how the first line of the source ends.
std::string_view EditedText::lineEnd() const
{
    std::string_view text =
        pieces_.empty() ? source_.substr(0, std::min(source_.find('\n'), source_.size() - 1) + 1) : pieces_.back();
    if (!text.empty() && text.back() != '\n') {
        // An end that is missing is that of the line above, which lies in the source where it lies anywhere.
        text = text.substr(0, text.rfind('\n') + 1);
    }
    return endOf(text);
}

bool EditedText::endsWithEmptyLine() const
{
    const std::string_view last = pieces_.back();
    if (!last.ends_with('\n')) {
        return false;
    }
    const std::size_t lineFeed = last.size() == 1 ? std::string_view::npos : last.rfind('\n', last.size() - 2);
    return isEmptyLine(last, lineFeed == std::string_view::npos ? 0 : lineFeed + 1);
}

} // namespace veltor::detail
