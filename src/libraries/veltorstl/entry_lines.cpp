// The lines of a text that make an entry.
#include "entry_lines.h"

#include "LDIF_Exception.h"
#include "LDIF_Line.h"

#include <algorithm>
#include <utility>

namespace veltor::detail {

namespace {

/// The physical line that begins there, without its line feed.
std::string_view physicalLine(std::string_view text, std::size_t position)
{
    return text.substr(position, std::min(text.find('\n', position), text.size()) - position);
}

/// Where the physical line begins that ends at a position.
std::size_t beginOfLineAbove(std::string_view text, std::size_t position)
{
    const std::size_t lineFeed = position < 2 ? std::string_view::npos : text.rfind('\n', position - 2);
    return lineFeed == std::string_view::npos ? 0 : lineFeed + 1;
}

bool isOfEntry(const LDIF_Line& line)
{
    return line.type == LDIF_Line::dn || line.type == LDIF_Line::attribute;
}

/// Where the last attribute or DN line of a part of a text ends; its begin when there is none.
std::size_t endOfLines(std::string_view text, TextRange range)
{
    LineReader reader(range.in(text));
    std::size_t end = 0;
    PlainLine plain;
    for (;;) {
        if (reader.nextPlain(plain)) {
            if (plain.type == LDIF_Line::dn || plain.type == LDIF_Line::attribute) {
                end = reader.position();
            }
            continue;
        }
        LDIF_Line line;
        reader.next(line);
        if (line.type == LDIF_Line::endOfFile) {
            return range.begin + end;
        }
        if (isOfEntry(line)) {
            end = reader.position();
        }
    }
}

} // namespace

std::size_t behindLine(std::string_view text, std::size_t begin)
{
    const std::size_t lineFeed = text.find('\n', begin);
    return lineFeed == std::string_view::npos ? text.size() : lineFeed + 1;
}

bool isBlankLine(std::string_view text, std::size_t position)
{
    if (position == text.size()) {
        return false;
    }
    LDIF_Line line;
    LineReader(physicalLine(text, position)).next(line);
    return line.type == LDIF_Line::blankLine;
}

bool isEmptyLine(std::string_view text, std::size_t position)
{
    // The reader drops carriage returns.
    return position != text.size() && physicalLine(text, position).find_first_not_of('\r') == std::string_view::npos;
}

bool isCommentLine(std::string_view text, std::size_t position)
{
    // The reader drops carriage returns.
    const std::size_t first = text.find_first_not_of('\r', position);
    return first != std::string_view::npos && text[first] == '#';
}

TextRange blockAbove(std::string_view text, std::size_t position)
{
    std::size_t begin = position;
    while (begin != 0) {
        const std::size_t above = beginOfLineAbove(text, begin);
        if (!isCommentLine(text, above)) {
            break;
        }
        begin = above;
    }
    return {begin, position};
}

std::size_t endOfBody(std::string_view text, const EntryPlace& place)
{
    return endOfLines(text, {place.begin, place.end});
}

std::size_t endOfHeader(std::string_view text, const EntryPlaces& places)
{
    return endOfLines(text, {0, places.empty() ? text.size() : places.front().begin});
}

std::string lastLineAsLoaded(std::string_view text, const EntryPlaces& places)
{
    EntryLines lines(text, true);
    if (places.empty()) {
        lines.addHeader(places);
    } else {
        lines.addPlace(places.back());
    }
    if (!lines.values().empty()) {
        const ValueLine& last = lines.values().back();
        return last.name + ": " + last.text;
    }
    LDIF_Line line;
    LineReader(text.substr(places.back().begin)).next(line);
    if (!line.valid) {
        line.changeToInvalidAttr();
        line.name = "dn";
        settleKeptLine(line);
    }
    return line.str();
}

void EntryLines::addHeader(const EntryPlaces& places)
{
    const std::size_t end = endOfHeader(text_, places);
    read({0, end}, 1);
    if (!values_.empty()) {
        endOfFirst_ = end;
    }
    hasFirst_ = true;
}

void EntryLines::addPlace(const EntryPlace& place)
{
    read({place.begin, place.end}, place.line);
    if (!hasFirst_) {
        endOfFirst_ = endOfBody(text_, place);
        hasFirst_ = true;
    }
}

void EntryLines::read(TextRange range, int firstLine)
{
    LineReader reader(range.in(text_));
    CommentBlock block;
    bool hasBlock = false;
    bool hasBlank = false;
    for (;;) {
        const std::size_t begin = range.begin + reader.position();
        LDIF_Line line;
        reader.next(line);
        const std::size_t end = range.begin + reader.position();
        switch (line.type) {
        case LDIF_Line::endOfFile:
            return;
        case LDIF_Line::comment:
            block.lines = hasBlock ? TextRange{block.lines.begin, end} : TextRange{begin, end};
            hasBlock = true;
            continue;
        case LDIF_Line::blankLine:
            hasBlank = true;
            hasBlock = false;
            continue;
        case LDIF_Line::attribute: {
            ValueLine found;
            found.range = {begin, end};
            found.block.lines = hasBlock ? block.lines : TextRange{begin, begin};
            found.block.isParted = hasBlank;
            found.lineNumber = firstLine - 1 + line.lineNumber;
            take(line, std::move(found));
            break;
        }
        case LDIF_Line::dn:
            break;
        }
        hasBlock = false;
        hasBlank = false;
    }
}

void EntryLines::take(LDIF_Line& line, ValueLine&& found)
{
    if (!line.valid || !isHeld(line, found)) {
        line.changeToInvalidAttr();
        if (settles_) {
            settleKeptLine(line);
        }
        found.isKept = true;
        if (!isHeld(line, found)) {
            return;
        }
    }
    values_.push_back(std::move(found));
}

/// Adds what a line says; false when that is refused.
bool EntryLines::isHeld(const LDIF_Line& line, ValueLine& found)
{
    try {
        LDIF_Values said(line.name);
        said.addText(line.value);
        // A list that gave mutable access has no index any more.
        const LDIF_Value& value = *std::as_const(said).begin();
        found.name = line.name;
        found.text = value.str();
        found.value = value.text();
        const auto present = held_.find(found.name);
        if (present == held_.end()) {
            held_.emplace(found.name, std::move(said));
            return true;
        }
        const LDIF_Values& held = present->second;
        if (const auto equal = held.find(line.value); equal != held.end()) {
            found.value = equal->text();
            return true;
        }
        present->second.absorb(std::move(said));
        return true;
    } catch (const LDIF_Exception& failure) {
        if (failure.isSystemFailure()) {
            throw;
        }
        return false;
    }
}

} // namespace veltor::detail
