// The lines of a text that make an entry, as the load that made the entry took them.
#ifndef VELTOR_ENTRY_LINES_H
#define VELTOR_ENTRY_LINES_H

#include "LDIF_Util.h"
#include "LDIF_Value.h"
#include "load.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::detail {

/// A part of a text, by the places of its bytes.
struct TextRange
{
    std::size_t begin = 0;
    std::size_t end = 0;

    bool empty() const { return begin == end; }
    std::string_view in(std::string_view text) const { return text.substr(begin, end - begin); }
};

/// The comment lines directly above something.
struct CommentBlock
{
    TextRange lines;
    bool isParted = false; // from comment lines further up that belong to the same
};

/// One line that gives an attribute a value.
struct ValueLine
{
    TextRange range; // its physical lines, continuations included
    CommentBlock block;
    cisString name;      // of the attribute that holds the value
    std::string text;    // the value as the line says it
    std::string value;   // as the attribute holds it: that of an equal line further up, if there is one
    int lineNumber = 0;  // 1-based, of the first physical line
    bool isKept = false; // one that could not be used, whose text became the value
};

/// Where the line below the physical one begins that begins there, or the text ends.
std::size_t behindLine(std::string_view text, std::size_t begin);

/// True when a line that holds nothing but white space begins there.
bool isBlankLine(std::string_view text, std::size_t position);

/// True when a line begins there that parts what is above from what is below, whatever is above: white space alone
/// would continue an attribute line.
bool isEmptyLine(std::string_view text, std::size_t position);

/// True when a comment line begins there.
bool isCommentLine(std::string_view text, std::size_t position);

/// The comment lines that end where something begins. Whether they are parted is not looked at.
TextRange blockAbove(std::string_view text, std::size_t position);

/// Where the last attribute line of a place ends, or its DN line without one.
std::size_t endOfBody(std::string_view text, const EntryPlace& place);

/// The same for the lines above the first entry: 0 without an attribute there.
std::size_t endOfHeader(std::string_view text, const EntryPlaces& places);

/// The last attribute or DN line of a text, as the tree has it that was loaded with TextUse::settled.
std::string lastLineAsLoaded(std::string_view text, const EntryPlaces& places);

/// The lines of one entry, which may stand in several places.
class EntryLines
{
public:
    /// @param text     outlives this
    /// @param settles  gives kept lines the form of TextUse::settled
    EntryLines(std::string_view text, bool settles) : text_(text), settles_(settles) {}

    /// The lines above the first entry, which are the root's. First.
    void addHeader(const EntryPlaces& places);
    /// The lines of a place. In the order of the text.
    void addPlace(const EntryPlace& place);

    const std::vector<ValueLine>& values() const { return values_; }
    /// Where a new attribute goes: behind the last attribute or DN line of the first place.
    std::size_t endOfFirst() const { return endOfFirst_; }

private:
    void read(TextRange range, int firstLine);
    void take(LDIF_Line& line, ValueLine&& found);
    bool isHeld(const LDIF_Line& line, ValueLine& found);

    std::string_view text_;
    bool settles_;
    std::map<cisString, LDIF_Values> held_; // what the lines so far make, by attribute
    std::vector<ValueLine> values_;
    std::size_t endOfFirst_ = 0;
    bool hasFirst_ = false;
};

} // namespace veltor::detail

#endif
