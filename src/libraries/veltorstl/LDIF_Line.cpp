// The line reader. One algorithm reads from streams and from memory; they differ in how a physical line is
// fetched and how the next one is looked at.
#include "LDIF_Line.h"

#include "LDIF_Exception.h"
#include "LDIF_Util.h"

#include <algorithm>
#include <istream>

LDIF_Line::~LDIF_Line() = default;

namespace veltor::detail {

namespace {

constexpr char invalidLineName[] = "zor-slapdInvalidLine";

bool isDnLabel(std::string_view name)
{
    return name.size() == 2 && (name[0] == 'd' || name[0] == 'D') && (name[1] == 'n' || name[1] == 'N');
}

bool isReadAsItStands(std::string_view line)
{
    return line.find('\r') == std::string_view::npos && isPlainAscii(line);
}

std::wstring widened(std::string_view line)
{
    std::wstring wide = multibyte2wide(std::string(line));
    std::erase(wide, L'\r');
    return wide;
}

/// What the next physical line is to the logical line in front of it.
enum class Following { none, separate, continuation, undecided };

// By its first byte alone. Carriage returns, NULs and bytes beyond ASCII need the whole line.
Following followingByFirstByte(int byte, bool asciiLocale)
{
    if (byte < 0) {
        return Following::none;
    }
    if (byte == '\n') {
        return Following::separate;
    }
    if (byte == '\r' || byte == 0 || byte > 0x7F || !asciiLocale) {
        return Following::undecided;
    }
    return isAsciiSpace(static_cast<char>(byte)) ? Following::continuation : Following::separate;
}

Following followingByText(std::string_view line)
{
    try {
        const std::wstring wide = widened(line);
        return !wide.empty() && w_my_isspace(wide.front()) ? Following::continuation : Following::separate;
    } catch (const LDIF_Exception&) {
        // Left for the next call, which fails with this line's number and after the line in front is through.
        return Following::separate;
    }
}

/// A file as a stream.
class StreamInput
{
public:
    explicit StreamInput(std::istream& stream) : stream_(stream) {}

    bool atError() const { return !stream_.good(); }
    bool atEnd() const { return stream_.eof(); }

    std::string_view fetch()
    {
        line_.clear();
        std::getline(stream_, line_);
        return line_;
    }

    Following following()
    {
        const auto next = stream_.peek();
        const auto decided = followingByFirstByte(next, localeReadsAscii());
        if (decided != Following::undecided) {
            return decided;
        }
        const auto position = stream_.tellg();
        std::string line;
        std::getline(stream_, line);
        stream_.clear();
        stream_.seekg(position);
        return followingByText(line);
    }

    bool readsAsItStands(std::string_view line) const { return isReadAsItStands(line); }

private:
    std::istream& stream_;
    std::string line_;
};

/// A file in memory, with the states that a stream would have.
class MemoryInput
{
public:
    MemoryInput(std::string_view text, std::size_t& position, bool& ended, bool plain)
        : text_(text), position_(position), ended_(ended), plain_(plain)
    {
    }

    bool atError() const { return ended_; }
    bool atEnd() const { return ended_; }

    std::string_view fetch()
    {
        const auto lineFeed = text_.find('\n', position_);
        if (lineFeed == std::string_view::npos) {
            ended_ = true;
            const auto line = text_.substr(position_);
            position_ = text_.size();
            return line;
        }
        const auto line = text_.substr(position_, lineFeed - position_);
        position_ = lineFeed + 1;
        return line;
    }

    Following following()
    {
        if (position_ == text_.size()) {
            ended_ = true;
            return Following::none;
        }
        const auto decided =
            followingByFirstByte(static_cast<unsigned char>(text_[position_]), plain_ || localeReadsAscii());
        if (decided != Following::undecided) {
            return decided;
        }
        return followingByText(text_.substr(position_, text_.find('\n', position_) - position_));
    }

    bool readsAsItStands(std::string_view line) const { return plain_ || isReadAsItStands(line); }

private:
    std::string_view text_;
    std::size_t& position_;
    bool& ended_;
    bool plain_;
};

bool isSpace(char character)
{
    return isAsciiSpace(character);
}

bool isSpace(wchar_t character)
{
    return w_my_isspace(character);
}

void assignTo(std::string& target, std::string_view text)
{
    target.assign(text);
}

void assignTo(std::string& target, std::wstring_view text)
{
    target = wide2multibyte(std::wstring(text));
}

/// What stands behind the colons of a physical line, without leading white space.
template <class Character>
std::basic_string_view<Character> valueBehind(std::basic_string_view<Character> text, std::size_t colon)
{
    text.remove_prefix(std::min(text.find_first_not_of(Character(':'), colon), text.size()));
    text.remove_prefix(leadingLength(text, [](Character character) { return isSpace(character); }));
    return text;
}

/// Splits the first physical line of a logical one.
///
/// @return the beginning of the value, its leading white space gone, for the types that have continuations
template <class Character>
std::basic_string_view<Character> classify(LDIF_Line& line, std::basic_string_view<Character> text)
{
    const auto blank = [](Character character) { return isSpace(character); };
    if (std::all_of(text.begin(), text.end(), blank)) {
        line.type = LDIF_Line::blankLine;
        return {};
    }
    if (text.front() == Character('#')) {
        line.type = LDIF_Line::comment;
        assignTo(line.value, text);
        return {};
    }
    const auto colon = text.find(Character(':'));
    if (colon == text.npos || colon == 0) {
        line.valid = false;
        assignTo(line.name, text);
        line.type = isDnLabel(std::string_view(line.name).substr(0, 2)) ? LDIF_Line::dn : LDIF_Line::attribute;
        return {};
    }
    assignTo(line.name, text.substr(0, colon));
    line.type = isDnLabel(line.name) ? LDIF_Line::dn : LDIF_Line::attribute;
    return valueBehind(text, colon);
}

/// Reads one logical line. The number counts physical lines as they are consumed, so that it names the
/// offending line when a conversion fails.
template <class Input>
void readLogicalLine(LDIF_Line& line, Input& input, int& number)
{
    line.value.clear();
    line.name.clear();
    line.type = LDIF_Line::endOfFile;
    line.lineNumber = number + 1;
    line.valid = true;
    line.setEndsEntry(false);
    if (input.atError()) {
        return;
    }

    // The value is collected as bytes while everything is plain, else as wide characters.
    std::wstring wideValue;
    bool wide = false;
    {
        const std::string_view text = input.fetch();
        ++number;
        if (input.readsAsItStands(text)) {
            const auto beginning = classify(line, text);
            if (line.type == LDIF_Line::dn || line.type == LDIF_Line::attribute) {
                line.value.assign(beginning);
            }
        } else {
            wide = true;
            const std::wstring wideText = widened(text);
            wideValue = classify(line, std::wstring_view(wideText));
        }
    }
    if (line.type != LDIF_Line::dn && line.type != LDIF_Line::attribute) {
        return;
    }

    for (;;) {
        if (input.atEnd()) {
            // The last line has no line feed: its value is dropped on purpose.
            line.value.clear();
            return;
        }
        if (input.following() != Following::continuation) {
            break;
        }
        const std::string_view text = input.fetch();
        ++number;
        // Exactly one character of white space marks the continuation; the rest is content.
        if (!input.readsAsItStands(text)) {
            if (!wide) {
                wide = true;
                wideValue = multibyte2wide(line.value);
            }
            wideValue.append(widened(text), 1);
        } else if (wide) {
            wideValue.append(text.begin() + 1, text.end());
        } else {
            line.value.append(text.substr(1));
        }
    }
    if (wide) {
        line.value = wide2multibyte(w_stripTrailing(wideValue));
    } else {
        line.value.erase(trimmedLength(line.value, isAsciiSpace));
    }
}

} // namespace

LineReader::LineReader(std::string_view text) : text_(text), plain_(isReadAsItStands(text)) {}

LDIF_Line PlainLine::line() const
{
    LDIF_Line line;
    line.name.assign(name);
    line.value.assign(value);
    line.type = type;
    line.lineNumber = lineNumber;
    return line;
}

bool LineReader::nextPlain(PlainLine& line)
{
    const auto lineFeed = text_.find('\n', position_);
    if (lineFeed == std::string_view::npos || lineFeed + 1 == text_.size()) {
        return false;
    }
    const std::string_view text = text_.substr(position_, lineFeed - position_);
    if (!plain_ && !isReadAsItStands(text)) {
        return false;
    }
    line.name = {};
    line.value = {};
    if (std::all_of(text.begin(), text.end(), isAsciiSpace)) {
        line.type = LDIF_Line::blankLine;
    } else if (text.front() == '#') {
        line.type = LDIF_Line::comment;
        line.value = text;
    } else {
        const auto colon = text.find(':');
        if (colon == std::string_view::npos || colon == 0 ||
            followingByFirstByte(static_cast<unsigned char>(text_[lineFeed + 1]), true) != Following::separate) {
            return false;
        }
        line.name = text.substr(0, colon);
        line.type = isDnLabel(line.name) ? LDIF_Line::dn : LDIF_Line::attribute;
        line.value = valueBehind(text, colon);
        line.value = line.value.substr(0, trimmedLength(line.value, isAsciiSpace));
    }
    position_ = lineFeed + 1;
    line.lineNumber = ++lineNumber_;
    return true;
}

void LineReader::next(LDIF_Line& line)
{
    MemoryInput input(text_, position_, ended_, plain_);
    readLogicalLine(line, input, lineNumber_);
}

} // namespace veltor::detail

int LDIF_Line::next(std::istream& stream, int number)
{
    veltor::detail::StreamInput input(stream);
    int consumed = number;
    veltor::detail::readLogicalLine(*this, input, consumed);
    return consumed;
}

std::string LDIF_Line::str() const
{
    std::string text;
    appendTo(text);
    return text;
}

void LDIF_Line::changeToInvalidAttr()
{
    if (veltor::detail::isPlainAscii(name) && veltor::detail::isPlainAscii(value)) {
        value = name + ": " + value;
    } else {
        value = wide2multibyte(multibyte2wide(name) + L": " + multibyte2wide(value));
    }
    name = veltor::detail::invalidLineName;
}
