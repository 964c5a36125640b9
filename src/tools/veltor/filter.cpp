// Reads the one-term part of RFC 4515 and says plainly what lies outside it.
#include "filter.h"

#include "escape.h"
#include "failure.h"

#include <cstddef>

namespace veltor::tool {

namespace {

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view nameCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-.;_";
constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view blanks = " \t";

bool isIn(std::string_view set, char character)
{
    return set.find(character) != std::string_view::npos;
}

/// The filter as given, and the part of it that is still to be read. Positions are those of the whole, so that
/// the caret stands where the user looks.
class Reader
{
public:
    explicit Reader(std::string_view filter) : filter_(filter), end_(filter.size()) {}

    std::string read();

private:
    bool atEnd() const { return at_ == end_; }
    char here() const { return filter_[at_]; }
    void skipBlanks();
    void takeOffParentheses();
    std::string readName();
    void readOperator();
    std::string readValue();
    [[noreturn]] void refuse(const std::string& reason) const;

    std::string_view filter_;
    std::size_t at_ = 0;
    std::size_t end_;
};

void Reader::refuse(const std::string& reason) const
{
    const std::size_t column = columnsOf(escaped(filter_.substr(0, at_)));
    throw Failure(ExitCode::usage, "filter: " + reason,
                  {std::string(filter_), std::string(column, ' ') + '^',
                   "nothing was searched; a filter is NAME=* or NAME=VALUE, in parentheses or not"});
}

void Reader::skipBlanks()
{
    while (!atEnd() && isIn(blanks, here())) {
        ++at_;
    }
    while (end_ > at_ && isIn(blanks, filter_[end_ - 1])) {
        --end_;
    }
}

// filter = LPAREN filtercomp RPAREN; the parentheses may be left out around a single term, as ldapsearch has it.
void Reader::takeOffParentheses()
{
    if (atEnd() || here() != '(') {
        return;
    }
    if (filter_[end_ - 1] != ')') {
        at_ = end_;
        refuse("the closing parenthesis is missing");
    }
    ++at_;
    --end_;
    skipBlanks();
    if (!atEnd() && isIn("&|!", here())) {
        refuse(std::string("\"") + here() + "\" needs more than one term, which this version can't search for");
    }
}

std::string Reader::readName()
{
    if (atEnd() || (!isIn(letters, here()) && !isIn(digits, here()))) {
        refuse("an attribute name is expected here");
    }
    const std::size_t start = at_;
    while (!atEnd() && isIn(nameCharacters, here())) {
        ++at_;
    }
    return std::string(filter_.substr(start, at_ - start));
}

void Reader::readOperator()
{
    while (!atEnd() && isIn(blanks, here())) {
        ++at_;
    }
    if (!atEnd() && isIn("<>~:", here())) {
        refuse("this version compares with \"=\" alone");
    }
    if (atEnd() || here() != '=') {
        refuse("\"=\" is expected here");
    }
    ++at_;
    skipBlanks();
}

std::string Reader::readValue()
{
    if (atEnd()) {
        refuse("a value, or * for any, is expected here");
    }
    if (filter_.substr(at_, end_ - at_) == "*") {
        return "*";
    }
    const std::size_t start = at_;
    for (; !atEnd(); ++at_) {
        if (here() == '*') {
            refuse("this version finds whole values only; a star of the value itself is written \\2a");
        }
        if (isIn("()", here())) {
            refuse(std::string("a parenthesis of the value itself is written ") + (here() == '(' ? "\\28" : "\\29"));
        }
        if (here() != '\\') {
            continue;
        }
        if (end_ - at_ < 3 || !isIn(hexDigits, filter_[at_ + 1]) || !isIn(hexDigits, filter_[at_ + 2])) {
            refuse("two hexadecimal digits must follow a backslash; the backslash itself is written \\5c");
        }
        if (filter_.substr(at_, 3) == "\\00") {
            refuse("no value of a configuration holds a zero byte");
        }
        at_ += 2;
    }
    return std::string(filter_.substr(start, end_ - start));
}

std::string Reader::read()
{
    skipBlanks();
    takeOffParentheses();
    if (atEnd()) {
        return {};
    }
    const std::string name = readName();
    readOperator();
    return name + '=' + readValue();
}

} // namespace

bool isFilter(std::string_view argument)
{
    return argument.empty() || argument.front() == '(' || argument.find('=') != std::string_view::npos;
}

std::string checkedFilter(std::string_view filter)
{
    return Reader(filter).read();
}

} // namespace veltor::tool
