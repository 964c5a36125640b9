// What a write and the load that follows it make of names, values and trees.
#include "survival.h"

#include "LDIF_Attribute.h"
#include "LDIF_DN.h"
#include "LDIF_Entry.h"
#include "LDIF_Exception.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace veltor::detail {

namespace {

constexpr char dnLabel[] = "dn";

/// Where a difference was found.
struct Spot
{
    std::string entryDn;
    std::string attribute;
    std::string value;
    const _AttrType* type = nullptr;
};

[[noreturn]] void refuse(int line, int code, const std::string& message, Spot spot)
{
    LDIF_Exception failure(__FILE_NAME__, line, code, code, message.c_str());
    failure.entryDn = std::move(spot.entryDn);
    failure.attribute = std::move(spot.attribute);
    failure.value = std::move(spot.value);
    failure.attrType = spot.type;
    throw failure;
}

std::string quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

/// The one logical line that a text holds; false when it holds more or another kind.
bool readsAsOneLine(const std::string& text, LDIF_Line::Type type, LDIF_Line& line)
{
    LineReader reader(text);
    reader.next(line);
    LDIF_Line behind;
    reader.next(behind);
    return line.type == type && line.valid && behind.type == LDIF_Line::endOfFile;
}

bool isLetter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isKeyCharacter(char character)
{
    return isLetter(character) || (character >= '0' && character <= '9') || character == '-';
}

/// What a line of one value comes back as, in words.
std::string comeBack(const LDIF_Values& values, bool& survives)
{
    const std::string text = values.str();
    const std::string stored = values.begin()->str();
    LDIF_Line line;
    survives = false;
    if (text.find('\0') != std::string::npos || !readsAsOneLine(text, LDIF_Line::attribute, line)) {
        return "more than one line, or none of this attribute";
    }
    LDIF_Values read(line.name);
    read.addText(line.value);
    const std::string back = read.begin()->str();
    survives = line.name == std::string_view(values.name.c_str()) && back == stored;
    return quoted(back);
}

// ---- Trees ----

std::string printableName(const LDIF_DN& dn)
{
    return dn.empty() ? "<root>" : printable(dn);
}

void compareValues(const LDIF_Entry& entry, const LDIF_Attribute& meant, const LDIF_Attribute& read)
{
    auto back = read.values.begin();
    for (const LDIF_Value& value : meant.values) {
        if (back == read.values.end() || back->text() != value.text()) {
            refuse(__LINE__, result::invalidSyntax,
                   back == read.values.end() ? "The value would not come back"
                                             : "The value would come back as " + quoted(back->text()),
                   {printableName(entry.dn), meant.name, std::string(value.text()), meant.values.type});
        }
        ++back;
    }
    if (back != read.values.end()) {
        refuse(__LINE__, result::invalidSyntax, "Another value would come back: " + quoted(back->text()),
               {printableName(entry.dn), meant.name, std::string(back->text()), meant.values.type});
    }
}

void compareEntries(const LDIF_Entry& meant, const LDIF_Entry& read)
{
    auto back = read.attributes.cbegin();
    for (auto attribute = meant.attributes.cbegin(); attribute != meant.attributes.cend(); ++attribute) {
        if (back == read.attributes.cend() || back->name != attribute->name) {
            refuse(__LINE__, result::invalidSyntax,
                   back == read.attributes.cend() ? "The attribute would not come back"
                                                  : "The attribute " + quoted(back->name) + " would come back here",
                   {printableName(meant.dn), attribute->name,
                    attribute->values.empty() ? "" : attribute->values.begin()->str(), attribute->values.type});
        }
        compareValues(meant, *attribute, *back);
        ++back;
    }
    if (back != read.attributes.cend()) {
        refuse(__LINE__, result::invalidSyntax, "Another attribute would come back",
               {printableName(meant.dn), back->name, back->values.empty() ? "" : back->values.begin()->str(),
                back->values.type});
    }
}

/// @param compareMore  called with each two entries that are the same
template <class CompareMore>
void compareTrees(const LDIF_Entry& meant, const LDIF_Entry& read, CompareMore&& compareMore)
{
    TreeWalk back(read);
    for (TreeWalk walk(meant); walk.current() != nullptr; walk.next()) {
        const LDIF_Entry& entry = *walk.current();
        if (back.current() == nullptr || back.current()->dn.compare(entry.dn) != 0) {
            refuse(__LINE__, result::invalidDnSyntax,
                   back.current() == nullptr
                       ? "The entry would not come back"
                       : "The entry " + quoted(printableName(back.current()->dn)) + " would come back here",
                   {printableName(entry.dn), "", ""});
        }
        compareEntries(entry, *back.current());
        compareMore(entry, *back.current());
        back.next();
    }
    if (back.current() != nullptr) {
        refuse(__LINE__, result::invalidDnSyntax, "Another entry would come back",
               {printableName(back.current()->dn), "", ""});
    }
}

/// True when two comments have the same comment lines. Blank lines don't count.
bool sayTheSame(const LDIF_Comment& left, const LDIF_Comment& right)
{
    const auto skipBlank = [](auto line, auto end) {
        return std::find_if(line, end, [](const LDIF_Line& other) { return other.type == LDIF_Line::comment; });
    };
    auto line = skipBlank(left.lines.begin(), left.lines.end());
    auto back = skipBlank(right.lines.begin(), right.lines.end());
    while (line != left.lines.end() && back != right.lines.end() && line->value == back->value) {
        line = skipBlank(line + 1, left.lines.end());
        back = skipBlank(back + 1, right.lines.end());
    }
    return line == left.lines.end() && back == right.lines.end();
}

/// The same for those of two entries whose attributes are the same.
bool sayTheSame(const LDIF_Entry& left, const LDIF_Entry& right)
{
    return sayTheSame(left.comment, right.comment) &&
           std::equal(left.attributes.cbegin(), left.attributes.cend(), right.attributes.cbegin(),
                      right.attributes.cend(), [](const LDIF_Attribute& one, const LDIF_Attribute& other) {
                          return sayTheSame(one.comment, other.comment);
                      });
}

using CommentLines = std::vector<const std::string*>;

void collect(const LDIF_Comment& comment, CommentLines& lines)
{
    for (const LDIF_Line& line : comment.lines) {
        if (line.type == LDIF_Line::comment) {
            lines.push_back(&line.value);
        }
    }
}

/// All comment lines, in file order.
CommentLines commentLines(const TreeAndTrailer& tree)
{
    CommentLines lines;
    for (TreeWalk walk(tree.root); walk.current() != nullptr; walk.next()) {
        collect(walk.current()->comment, lines);
        for (auto attribute = walk.current()->attributes.cbegin(); attribute != walk.current()->attributes.cend();
             ++attribute) {
            collect(attribute->comment, lines);
        }
    }
    collect(tree.trailingComment, lines);
    return lines;
}

} // namespace

void needsUsableName(const std::string& name)
{
    if (name.empty() || !isLetter(name.front()) || !std::all_of(name.begin(), name.end(), isKeyCharacter) ||
        cisString(name) == dnLabel) {
        refuse(__LINE__, result::invalidSyntax, "Not a name for an attribute: " + quoted(name), {"", name, ""});
    }
}

void needsToSurvive(const std::string& name, const std::string& text)
{
    LDIF_Values values(name);
    values.addText(text);
    bool survives = false;
    std::string back;
    try {
        back = "as " + comeBack(values, survives);
    } catch (const LDIF_Exception& failure) {
        if (failure.isSystemFailure()) {
            throw;
        }
        back = "as a line that is refused: " + failure.msg;
    }
    if (!survives) {
        refuse(__LINE__, result::invalidSyntax, "The value would come back " + back, {"", name, text, values.type});
    }
}

void needsToSurvive(const LDIF_DN& dn)
{
    if (dn.empty()) {
        refuse(__LINE__, result::objectClassViolation, "An entry with an empty DN would merge into the root", {});
    }
    std::string text;
    try {
        text = dn.str();
    } catch (const LDIF_Exception& failure) {
        if (failure.isSystemFailure()) {
            throw;
        }
        refuse(__LINE__, result::invalidDnSyntax, "The DN can't be written: " + failure.msg, {});
    }
    LDIF_Line line;
    std::string back;
    try {
        if (readsAsOneLine(std::string(dnLabel) + ": " + text + "\n", LDIF_Line::dn, line)) {
            LDIF_DN read;
            read = cisString(line.value);
            back = read.str();
            if (back == text && read.compare(dn) == 0) {
                return;
            }
        }
    } catch (const LDIF_Exception& failure) {
        if (failure.isSystemFailure()) {
            throw;
        }
    }
    refuse(__LINE__, result::invalidDnSyntax, "The DN would come back as " + quoted(back.empty() ? line.value : back),
           {text, "", ""});
}

void needsToSurvive(const LDIF_Line& comment)
{
    LDIF_Line line;
    std::string back;
    try {
        if (readsAsOneLine(comment.value, LDIF_Line::comment, line) && line.value == comment.value) {
            return;
        }
        back = "as " + quoted(line.value);
    } catch (const LDIF_Exception& failure) {
        if (failure.isSystemFailure()) {
            throw;
        }
        back = "as a line that is refused: " + failure.msg;
    }
    refuse(__LINE__, result::invalidSyntax, "The comment line would come back " + back, {"", "", comment.value});
}

bool areEqual(const LDIF_Attributes& left, const LDIF_Attributes& right)
{
    const auto sameText = [](const LDIF_Value& one, const LDIF_Value& other) { return one.text() == other.text(); };
    const auto sameLine = [](const LDIF_Line& one, const LDIF_Line& other) { return one.value == other.value; };
    return std::equal(left.cbegin(), left.cend(), right.cbegin(), right.cend(),
                      [&](const LDIF_Attribute& one, const LDIF_Attribute& other) {
                          return std::string_view(one.name.c_str()) == other.name.c_str() &&
                                 std::equal(one.values.begin(), one.values.end(), other.values.begin(),
                                            other.values.end(), sameText) &&
                                 std::equal(one.comment.lines.begin(), one.comment.lines.end(),
                                            other.comment.lines.begin(), other.comment.lines.end(), sameLine);
                      });
}

void needsEqual(const TreeAndTrailer& meant, const TreeAndTrailer& read)
{
    bool commentsAgree = sayTheSame(meant.trailingComment, read.trailingComment);
    compareTrees(meant.root, read.root, [&](const LDIF_Entry& entry, const LDIF_Entry& back) {
        commentsAgree = commentsAgree && sayTheSame(entry, back);
    });
    if (commentsAgree) {
        return;
    }
    // A line may belong to another place now; what counts is that all are there, in order.
    const auto equal = [](const std::string* left, const std::string* right) { return *left == *right; };
    const CommentLines lines = commentLines(meant);
    const CommentLines linesBack = commentLines(read);
    if (!std::equal(lines.begin(), lines.end(), linesBack.begin(), linesBack.end(), equal)) {
        const auto [lost, found] = std::mismatch(lines.begin(), lines.end(), linesBack.begin(), linesBack.end(), equal);
        refuse(__LINE__, result::invalidSyntax, "A comment line would not come back as it is",
               {"", "", lost != lines.end() ? **lost : **found});
    }
}

void needsEqualEntries(const LDIF_Entry& meant, const LDIF_Entry& read)
{
    compareTrees(meant, read, [](const LDIF_Entry&, const LDIF_Entry&) {});
}

} // namespace veltor::detail
