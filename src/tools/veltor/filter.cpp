// The parser reads the productions of RFC 4515 in one pass; the evaluation works on the result nodes of the library.
#include "filter.h"

#include "change_scan.h"
#include "escape.h"
#include "failure.h"
#include "names.h"
#include "results.h"
#include "secrets.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <utility>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view nameCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-.;_";
constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view blanks = " \t";

// Far more than anybody writes, and far less than the stack holds.
constexpr int deepest = 200;

bool isIn(std::string_view set, char character)
{
    return set.find(character) != std::string_view::npos;
}

// ---- Types ----

enum class Order { numeric, exact, ignoringCase };

/// How the values of an attribute are ordered: as its type compares them.
Order orderOf(std::string_view attribute)
{
    const std::optional<cfg_attr_type> type = attributeType(attribute);
    const std::string_view syntax = type ? type->syntax : "ces";
    if (syntax == "int" || syntax == "mask") {
        return Order::numeric;
    }
    const bool exact = syntax == "ces" || syntax == "pw" || syntax == "path" || syntax == "file" || syntax == "plugin";
    return exact ? Order::exact : Order::ignoringCase;
}

/// A number of any size: one that is too large for the type is as large as the type can tell.
std::optional<long long> numberOf(std::string_view text)
{
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    if (text.empty() || text.find_first_not_of(digits) != std::string_view::npos) {
        return std::nullopt;
    }
    long long number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
        number = std::numeric_limits<long long>::max();
    }
    return negative ? -number : number;
}

// ---- Parsing ----

class Parser
{
public:
    Parser(std::string_view filter, const NameReader& nameReader)
        : filter_(filter), nameReader_(nameReader), end_(filter.size())
    {
    }

    Filter parse();

private:
    bool atEnd() const { return at_ == end_; }
    char here() const { return filter_[at_]; }
    bool isHere(char character) const { return !atEnd() && here() == character; }
    void skipBlanks();
    void require(char character, const char* what);
    Filter readFilter(int depth);
    Filter readComponent(int depth);
    Filter readList(Filter::Kind kind, int depth);
    Filter readItem();
    std::string readName();
    Filter::Kind readOperator();
    void readValue(Filter& term);
    char readEscape();
    [[noreturn]] void refuse(const std::string& reason) const;

    std::string_view filter_;
    const NameReader& nameReader_;
    std::size_t at_ = 0;
    std::size_t end_;
};

void Parser::refuse(const std::string& reason) const
{
    // Positions are those of the filter as it was given, so that the caret stands where the user looks.
    const std::size_t column = columnsOf(escaped(filter_.substr(0, at_)));
    throw Failure(ExitCode::usage, "filter: " + reason,
                  {std::string(filter_), std::string(column, ' ') + '^',
                   "nothing was searched; an example is (&(objectclass=*)(zor-slapdPort>=1024))"});
}

void Parser::skipBlanks()
{
    while (!atEnd() && isIn(blanks, here())) {
        ++at_;
    }
}

void Parser::require(char character, const char* what)
{
    skipBlanks();
    if (!isHere(character)) {
        refuse(what);
    }
    ++at_;
}

Filter Parser::parse()
{
    while (end_ > 0 && isIn(blanks, filter_[end_ - 1])) {
        --end_;
    }
    skipBlanks();
    if (atEnd()) {
        return {};
    }
    Filter filter = here() == '(' ? readFilter(0) : readItem();
    skipBlanks();
    if (!atEnd()) {
        refuse(here() == ')' ? "this parenthesis closes nothing; one of the value itself is written \\29"
                             : "the filter has ended here; several need (&...) or (|...) around them");
    }
    return filter;
}

// filter = LPAREN filtercomp RPAREN
Filter Parser::readFilter(int depth)
{
    if (depth > deepest) {
        refuse("the parentheses are too many, one inside the other");
    }
    ++at_;
    skipBlanks();
    Filter filter;
    // As the library has it: nothing is asked for.
    if (depth > 0 || !isHere(')')) {
        filter = readComponent(depth);
    }
    require(')', "the closing parenthesis is missing");
    return filter;
}

// filtercomp = and / or / not / item
Filter Parser::readComponent(int depth)
{
    if (isHere('&')) {
        return readList(Filter::Kind::conjunction, depth);
    }
    if (isHere('|')) {
        return readList(Filter::Kind::disjunction, depth);
    }
    if (isHere('!')) {
        Filter filter = readList(Filter::Kind::negation, depth);
        if (filter.parts.size() != 1) {
            refuse("\"!\" takes one filter");
        }
        return filter;
    }
    return readItem();
}

// and = AMPERSAND filterlist, and its like; the list may be empty, as RFC 4526 has it.
Filter Parser::readList(Filter::Kind kind, int depth)
{
    Filter filter{kind};
    ++at_;
    for (skipBlanks(); isHere('('); skipBlanks()) {
        if (kind == Filter::Kind::negation && !filter.parts.empty()) {
            refuse("\"!\" takes one filter");
        }
        filter.parts.push_back(readFilter(depth + 1));
    }
    if (!atEnd() && here() != ')') {
        refuse("a filter in parentheses is expected here");
    }
    return filter;
}

// item = simple / present / substring
Filter Parser::readItem()
{
    Filter term;
    const std::size_t nameAt = at_;
    term.attribute = readName();
    if (nameReader_) {
        try {
            term.attribute = nameReader_(term.attribute);
        } catch (const Failure& failure) {
            at_ = nameAt;
            refuse(failure.what());
        }
    }
    term.kind = readOperator();
    skipBlanks();
    const std::size_t valueAt = at_;
    readValue(term);
    const bool ordered = term.kind == Filter::Kind::greaterOrEqual || term.kind == Filter::Kind::lessOrEqual;
    if (ordered && orderOf(term.attribute) == Order::numeric && !numberOf(term.value)) {
        at_ = valueAt;
        refuse(term.attribute + " is ordered by number, and an integer is expected here");
    }
    return term;
}

std::string Parser::readName()
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

// filtertype = equal / approx / greaterorequal / lessorequal
Filter::Kind Parser::readOperator()
{
    skipBlanks();
    Filter::Kind kind = Filter::Kind::equality;
    if (isHere(':')) {
        refuse("matching rules can't be named: each attribute has its own");
    }
    if (isHere('>')) {
        kind = Filter::Kind::greaterOrEqual;
    } else if (isHere('<')) {
        kind = Filter::Kind::lessOrEqual;
    }
    if (!atEnd() && isIn("<>~", here())) {
        ++at_;
    }
    if (!isHere('=')) {
        refuse("\"=\" is expected here");
    }
    ++at_;
    return kind;
}

// The characters up to here are those of valueencoding: a backslash and two hexadecimal digits are a byte.
char Parser::readEscape()
{
    if (end_ - at_ < 3 || !isIn(hexDigits, filter_[at_ + 1]) || !isIn(hexDigits, filter_[at_ + 2])) {
        refuse("two hexadecimal digits must follow a backslash; the backslash itself is written \\5c");
    }
    unsigned byte = 0;
    std::from_chars(filter_.data() + at_ + 1, filter_.data() + at_ + 3, byte, 16);
    if (byte == 0) {
        refuse("no value of a configuration holds a zero byte");
    }
    at_ += 3;
    return static_cast<char>(byte);
}

// assertionvalue, or with stars in it [initial] any [final]
void Parser::readValue(Filter& term)
{
    std::vector<std::string> pieces(1);
    std::size_t blanksAtEnd = 0;
    while (!atEnd() && here() != ')') {
        if (here() == '(') {
            refuse("a parenthesis of the value itself is written \\28");
        }
        if (here() == '*') {
            if (term.kind != Filter::Kind::equality) {
                refuse("a star has no meaning behind \">=\" and \"<=\"; one of the value itself is written \\2a");
            }
            pieces.emplace_back();
            blanksAtEnd = 0;
            ++at_;
        } else if (here() == '\\') {
            pieces.back() += readEscape();
            blanksAtEnd = 0;
        } else {
            blanksAtEnd = isIn(blanks, here()) ? blanksAtEnd + 1 : 0;
            pieces.back() += here();
            ++at_;
        }
    }
    pieces.back().resize(pieces.back().size() - blanksAtEnd);
    if (pieces.size() == 1) {
        term.value = pieces.front();
        return;
    }
    const bool anything =
        std::all_of(pieces.begin(), pieces.end(), [](const std::string& piece) { return piece.empty(); });
    term.kind = anything ? Filter::Kind::present : Filter::Kind::substrings;
    if (!anything) {
        term.pieces = std::move(pieces);
    }
}

// ---- Evaluation ----

char lowered(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// The text for a comparison; the library as well ignores the case of ASCII alone in UTF-8.
std::string folded(std::string_view text, Order order)
{
    std::string result(text);
    if (order == Order::ignoringCase) {
        std::transform(result.begin(), result.end(), result.begin(), lowered);
    }
    return result;
}

bool hasPieces(std::string_view value, const std::vector<std::string>& pieces)
{
    if (!value.starts_with(pieces.front())) {
        return false;
    }
    value.remove_prefix(pieces.front().size());
    for (std::size_t index = 1; index + 1 < pieces.size(); ++index) {
        const std::size_t found = value.find(pieces[index]);
        if (found == std::string_view::npos) {
            return false;
        }
        value.remove_prefix(found + pieces[index].size());
    }
    return value.ends_with(pieces.back());
}

/// A term against one value that may be seen.
bool holdsFor(const Filter& term, std::string_view value, Order order)
{
    if (term.kind == Filter::Kind::substrings) {
        // The text of a number is what is searched, so letter case does not come up.
        std::vector<std::string> pieces = term.pieces;
        std::transform(pieces.begin(), pieces.end(), pieces.begin(),
                       [&](const std::string& piece) { return folded(piece, order); });
        return hasPieces(folded(value, order), pieces);
    }
    int sense = 0;
    const std::optional<long long> number = numberOf(value);
    const std::optional<long long> bound = numberOf(term.value);
    if (order == Order::numeric) {
        if (!number || !bound) {
            return false;
        }
        sense = *number < *bound ? -1 : *number > *bound ? 1 : 0;
    } else {
        sense = folded(value, order).compare(folded(term.value, order));
    }
    switch (term.kind) {
    case Filter::Kind::greaterOrEqual:
        return sense >= 0;
    case Filter::Kind::lessOrEqual:
        return sense <= 0;
    default:
        return sense == 0;
    }
}

Truth truthOf(bool holds)
{
    return holds ? Truth::yes : Truth::no;
}

Truth evaluateTerm(const Filter& term, const cfg_message& entry, const EqualityTest& equality, bool showSecrets)
{
    const cfg_message* attribute = entry.children;
    while (attribute != nullptr && !sameName(textOf(*attribute), term.attribute)) {
        attribute = attribute->next;
    }
    if (attribute == nullptr || term.kind == Filter::Kind::present) {
        return truthOf(attribute != nullptr);
    }
    const std::string_view name = textOf(*attribute);
    const Order order = orderOf(name);
    bool hidden = false;
    bool holds = false;
    for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
        if (!showSecrets && isSecret(name, textOf(*value))) {
            hidden = true;
        } else {
            holds = holds || holdsFor(term, textOf(*value), order);
        }
    }
    // The library knows best what is equal, but would tell of the hidden ones as well.
    if (term.kind == Filter::Kind::equality && !hidden && !term.value.empty()) {
        return truthOf(equality(term, entry));
    }
    return hidden && !holds ? Truth::undefined : truthOf(holds);
}

} // namespace

bool isFilter(std::string_view argument)
{
    return argument.empty() || argument.front() == '(' || argument.find('=') != std::string_view::npos;
}

Filter parseFilter(std::string_view text, const NameReader& nameReader)
{
    return Parser(text, nameReader).parse();
}

bool speaksOf(const Filter& filter, std::string_view attribute)
{
    return sameName(filter.attribute, attribute) ||
           std::any_of(filter.parts.begin(), filter.parts.end(),
                       [&](const Filter& part) { return speaksOf(part, attribute); });
}

Truth evaluate(const Filter& filter, const cfg_message& entry, const EqualityTest& equality, bool showSecrets)
{
    const auto of = [&](const Filter& part) { return evaluate(part, entry, equality, showSecrets); };
    Truth truth = Truth::yes;
    switch (filter.kind) {
    case Filter::Kind::conjunction:
        for (const Filter& part : filter.parts) {
            truth = std::min(truth, of(part));
        }
        return truth;
    case Filter::Kind::disjunction:
        truth = Truth::no;
        for (const Filter& part : filter.parts) {
            truth = std::max(truth, of(part));
        }
        return truth;
    case Filter::Kind::negation:
        truth = of(filter.parts.front());
        return truth == Truth::undefined ? truth : truthOf(truth == Truth::no);
    default:
        return evaluateTerm(filter, entry, equality, showSecrets);
    }
}

} // namespace veltor::tool
