// Three steps: physical lines and their characters, logical lines, what a line says. Each refuses what the next one
// could not tell any more.
#include "change_scan.h"

#include "escape.h"
#include "names.h"
#include "secrets.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace veltor::tool {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view keyCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-";

// The attributes whose values are DNs: they are stored in normal form, with escapes undone.
constexpr const char* dnValued[] = {
    "zor-slapdAdminDN", "zor-slapdKrbAdminDN",     "zor-slapdLdapCrlUser", "zor-slapdMasterDN",
    "zor-slapdPeerDN",  "zor-slapdReplicaSubtree", "zor-slapdSuffix",
};

bool isIn(std::string_view set, char character)
{
    return set.find(character) != std::string_view::npos;
}

bool consistsOf(std::string_view set, std::string_view text)
{
    return !text.empty() && text.find_first_not_of(set) == std::string_view::npos;
}

// numericoid = number 1*( DOT number )
bool isNumericOid(std::string_view text)
{
    std::size_t arcs = 0;
    for (;; ++arcs) {
        const std::size_t dot = std::min(text.find('.'), text.size());
        const std::string_view number = text.substr(0, dot);
        if (!consistsOf(digits, number) || (number.size() > 1 && number.front() == '0')) {
            return false;
        }
        if (dot == text.size()) {
            return arcs > 0;
        }
        text.remove_prefix(dot + 1);
    }
}

// White space that the reader of the configuration file takes off the ends of a value.
bool isBlank(std::uint32_t codePoint)
{
    return codePoint == ' ' || codePoint == '\t' || codePoint == 0x1680 ||
           (codePoint >= 0x2000 && codePoint <= 0x200A && codePoint != 0x2007) || codePoint == 0x2028 ||
           codePoint == 0x2029 || codePoint == 0x205F || codePoint == 0x3000;
}

bool beginsWithBlank(std::string_view text)
{
    return !text.empty() && isBlank(firstCharacter(text).codePoint);
}

/// The character that a text ends with; of length 0 where that is not UTF-8, and for an empty text.
Character lastCharacter(std::string_view text)
{
    constexpr std::size_t longestCharacter = 4;
    for (std::size_t length = 1; length <= std::min(longestCharacter, text.size()); ++length) {
        const Character last = firstCharacter(text.substr(text.size() - length));
        if (last.length == length) {
            return last;
        }
    }
    return {0, 0};
}

bool endsWithBlank(std::string_view text)
{
    return isBlank(lastCharacter(text).codePoint);
}

// With blanks, parentheses are what the reader takes off the ends.
bool isTakenOff(std::uint32_t codePoint)
{
    return isBlank(codePoint) || codePoint == '(' || codePoint == ')';
}

bool isTakenOffAsAWhole(std::string_view text)
{
    while (!text.empty() && isTakenOff(firstCharacter(text).codePoint)) {
        text.remove_prefix(firstCharacter(text).length);
    }
    return text.empty();
}

std::size_t charactersIn(std::string_view text)
{
    const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

/// What no value and no line may hold.
struct Blemish
{
    std::size_t offset;
    const char* finding;
};

std::optional<Blemish> firstBlemish(std::string_view text)
{
    for (std::size_t offset = 0; offset < text.size();) {
        const Character character = firstCharacter(text.substr(offset));
        if (character.length == 0) {
            return Blemish{offset, "this is not UTF-8"};
        }
        if (character.codePoint == 0) {
            return Blemish{offset, "a zero byte, at which the library would cut the text"};
        }
        if (character.codePoint == '\n') {
            return Blemish{offset, "a line feed, which would begin a line of its own in the file"};
        }
        if (isControl(character.codePoint) && character.codePoint != '\t') {
            return Blemish{offset, "a control character"};
        }
        offset += character.length;
    }
    return std::nullopt;
}

int hexValue(char character)
{
    constexpr std::string_view lower = "0123456789abcdef";
    constexpr std::string_view upper = "0123456789ABCDEF";
    const std::size_t value = std::min(lower.find(character), upper.find(character));
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

/// A DN with its \HH escapes undone, as the library stores parts of it.
std::string unescapedDn(std::string_view dn)
{
    std::string out;
    for (std::size_t at = 0; at < dn.size(); ++at) {
        if (dn[at] == '\\' && dn.size() - at >= 3 && hexValue(dn[at + 1]) >= 0 && hexValue(dn[at + 2]) >= 0) {
            out += static_cast<char>(hexValue(dn[at + 1]) * 16 + hexValue(dn[at + 2]));
            at += 2;
        } else if (dn[at] == '\\' && at + 1 < dn.size()) {
            out += dn[++at];
        } else {
            out += dn[at];
        }
    }
    return out;
}

bool holdsDn(std::string_view name)
{
    return isDnLabel(name) || std::any_of(std::begin(dnValued), std::end(dnValued),
                                          [&](const char* attribute) { return sameName(name, attribute); });
}

/// A line as it stands in the text.
struct PhysicalLine
{
    std::size_t number;
    std::string_view text; ///< without its line end
    std::string_view whole;
};

/// Physical lines that belong together. The first gives itself, each further one all but its leading blank.
class LogicalLine
{
public:
    explicit LogicalLine(const PhysicalLine& line) { add({line.number, 1}, line.text); }

    void fold(const PhysicalLine& line) { add({line.number, 2}, line.text.substr(1)); }

    std::string_view text() const { return view(text_); }
    std::size_t firstFold() const { return pieces_.size() == 1 ? text_.size() : pieces_[1].offset; }

    Place placeOf(std::size_t offset) const
    {
        auto piece = pieces_.rbegin();
        while (piece->offset > offset) {
            ++piece;
        }
        const std::string_view before = text().substr(piece->offset, offset - piece->offset);
        return {piece->place.line, piece->place.column + charactersIn(before)};
    }

private:
    struct Piece
    {
        std::size_t offset;
        Place place;
    };

    void add(Place place, std::string_view text)
    {
        pieces_.push_back({text_.size(), place});
        append(text_, text);
    }

    std::vector<Piece> pieces_;
    WipedText text_;
};

class Scanner
{
public:
    Scanner(const ChangeSource& source, std::string_view text) : source_(source), rest_(text) {}

    std::vector<ScannedRecord> run();

private:
    PhysicalLine nextPhysicalLine();
    void addToRecord(std::string_view whole);
    void readLine(const LogicalLine& line);
    void readVersion(std::string_view value, Place place);
    void endRecord();

    std::string nameOf(const LogicalLine& line) const;
    ScannedLine split(const LogicalLine& line) const;
    WipedText decoded(const LogicalLine& line, std::size_t begin) const;
    void checkFirstLine(const ScannedLine& line) const;
    void checkFurtherLine(const ScannedLine& line) const;
    void checkValue(const ScannedLine& line) const;
    FailureFacts factsOf(const ScannedLine& line) const;

    [[noreturn]] void refuse(Place place, const std::string& finding) const
    {
        throw refusedChange(source_, place, finding);
    }

    const ChangeSource& source_;
    std::string_view rest_;
    std::size_t number_ = 0;
    std::vector<ScannedRecord> records_;
    ScannedRecord record_;
    bool versionMayFollow_ = true;
};

PhysicalLine Scanner::nextPhysicalLine()
{
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    std::string_view line = rest_.substr(0, end);
    const std::string_view whole = rest_.substr(0, std::min(end + 1, rest_.size()));
    rest_.remove_prefix(whole.size());
    ++number_;
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    if (const auto blemish = firstBlemish(line)) {
        refuse({number_, charactersIn(line.substr(0, blemish->offset)) + 1}, blemish->finding);
    }
    return {number_, line, whole};
}

// ldif-file: records between empty lines, each line folded or not, with comments anywhere
std::vector<ScannedRecord> Scanner::run()
{
    std::optional<LogicalLine> pending;
    const auto finish = [&] {
        if (pending && pending->text().front() != '#') {
            readLine(*pending);
        }
        pending.reset();
    };
    while (!rest_.empty()) {
        const PhysicalLine line = nextPhysicalLine();
        if (line.text.empty()) {
            finish();
            endRecord();
        } else if (line.text.front() == ' ') {
            if (!pending) {
                refuse({line.number, 1}, "there is no line that this one could continue");
            }
            pending->fold(line);
            addToRecord(line.whole);
        } else {
            finish();
            pending.emplace(line);
            addToRecord(line.whole);
        }
    }
    finish();
    endRecord();
    return std::move(records_);
}

// The lines of a record follow each other in the text, so its text is one piece of it.
void Scanner::addToRecord(std::string_view whole)
{
    const char* begin = record_.text.empty() ? whole.data() : record_.text.data();
    record_.text = {begin, static_cast<std::size_t>(whole.data() + whole.size() - begin)};
}

void Scanner::endRecord()
{
    if (!record_.lines.empty()) {
        records_.push_back(std::move(record_));
    }
    record_ = {};
}

void Scanner::readLine(const LogicalLine& line)
{
    if (line.text() == "-") {
        if (record_.lines.empty()) {
            refuse(line.placeOf(0), "a record begins with a \"dn:\" line");
        }
        record_.lines.push_back({"-", {}, line.placeOf(0), line.placeOf(0)});
        return;
    }
    ScannedLine scanned = split(line);
    if (versionMayFollow_ && sameName(scanned.name, "version")) {
        readVersion(view(scanned.value), scanned.valuePlace);
        return;
    }
    versionMayFollow_ = false;
    if (record_.lines.empty()) {
        checkFirstLine(scanned);
    } else {
        checkFurtherLine(scanned);
    }
    checkValue(scanned);
    record_.lines.push_back(std::move(scanned));
}

// version-spec, which may stand above the first record alone
void Scanner::readVersion(std::string_view value, Place place)
{
    if (value != "1") {
        refuse(place, "only version 1 of LDIF is known");
    }
    versionMayFollow_ = false;
    // The record, if it begins on the next line, begins behind this one.
    record_ = {};
}

std::string Scanner::nameOf(const LogicalLine& line) const
{
    const std::string_view text = line.text();
    // Other readers skip such a line, and act upon an include line.
    if (record_.lines.empty() && isIn(digits, text.front())) {
        refuse(line.placeOf(0), "a record can't begin with a digit");
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        refuse(line.placeOf(0), "this is no LDIF: there is no colon in the line");
    }
    std::string name(text.substr(0, colon));
    // The LDIF reader takes a fold within the name, or between the colons, for a part of the text.
    const bool twoMarks = colon + 1 < text.size() && isIn(":<", text[colon + 1]);
    if (line.firstFold() <= colon + (twoMarks ? 1 : 0) && line.firstFold() < text.size()) {
        refuse(line.placeOf(line.firstFold()), "a line is folded behind the colon at the earliest");
    }
    if (sameName(name, "include")) {
        refuse(line.placeOf(0), "\"include:\" lines are not taken: no other file is read");
    }
    if (!isAttributeDescription(name)) {
        // What stands here may be the rest of a password: it is not repeated.
        refuse(line.placeOf(0), "this is not an attribute name");
    }
    return name;
}

// attrval-spec: name ":" FILL text, name "::" FILL base64; a URL behind ":<" is not taken
ScannedLine Scanner::split(const LogicalLine& line) const
{
    ScannedLine scanned;
    scanned.name = nameOf(line);
    scanned.namePlace = line.placeOf(0);
    const std::string_view text = line.text();
    std::size_t at = scanned.name.size() + 1;
    const char mark = at < text.size() ? text[at] : '\0';
    if (mark == '<') {
        refuse(line.placeOf(at - 1), "\":<\" URLs are not taken: no other file is read");
    }
    at += mark == ':' ? 1 : 0;
    while (at < text.size() && text[at] == ' ') {
        ++at;
    }
    scanned.valuePlace = line.placeOf(at);
    if (mark == ':') {
        scanned.value = decoded(line, at);
    } else {
        if (at < text.size() && text[at] == '<') {
            refuse(line.placeOf(at), "a value that begins with \"<\" is written in base64, behind two colons");
        }
        append(scanned.value, text.substr(at));
    }
    return scanned;
}

// BASE64-STRING
WipedText Scanner::decoded(const LogicalLine& line, std::size_t begin) const
{
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string_view text = line.text().substr(begin);
    if (text.empty()) {
        refuse(line.placeOf(begin), "behind two colons a value in base64 is expected");
    }
    const std::size_t count = std::min(text.find('='), text.size());
    WipedText value;
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t digit = alphabet.find(text[index]);
        if (digit == std::string_view::npos) {
            refuse(line.placeOf(begin + index), "this character is not base64");
        }
        bits = (bits << 6U) | static_cast<std::uint32_t>(digit);
        // Each digit but the first of four completes a byte.
        if (index % 4 != 0) {
            value.push_back(static_cast<char>((bits >> (6U - 2U * (index % 4))) & 0xFFU));
        }
    }
    const std::string_view padding = text.substr(count);
    const bool padded = padding.find_first_not_of('=') == std::string_view::npos && padding.size() <= 2;
    if (!padded || text.size() % 4 != 0) {
        refuse(line.placeOf(begin), "this is not base64: four characters, \"=\" at the end, make three bytes");
    }
    return value;
}

// dn-spec, where other readers also take an index or the name of a file
void Scanner::checkFirstLine(const ScannedLine& line) const
{
    if (!isDnLabel(line.name)) {
        refuse(line.namePlace, "a record begins with a \"dn:\" line");
    }
    if (isTakenOffAsAWhole(view(line.value))) {
        refuse(line.valuePlace, "a DN is expected here; what stands above the entries can't be changed this way");
    }
}

void Scanner::checkFurtherLine(const ScannedLine& line) const
{
    if (isDnLabel(line.name)) {
        refuse(line.namePlace, "\"dn\" begins a record: an empty line is missing above it");
    }
    if (record_.lines.size() == 1 && sameName(line.name, "control")) {
        refuse(line.namePlace, "controls are not taken");
    }
    if (sameName(line.name, "changetype") &&
        (sameName(view(line.value), "modrdn") || sameName(view(line.value), "moddn"))) {
        refuse(line.valuePlace, "entries can't be renamed: add the new one and delete the old one");
    }
}

void Scanner::checkValue(const ScannedLine& line) const
{
    if (const std::optional<std::string> finding = whyUnstorable(line.name, view(line.value))) {
        throw refusedChange(source_, line.valuePlace, *finding, factsOf(line));
    }
}

/// What the line is about, as far as it goes without reading the record.
FailureFacts Scanner::factsOf(const ScannedLine& line) const
{
    if (isDnLabel(line.name)) {
        return factsAbout(std::string(view(line.value)), "");
    }
    const std::string dn(record_.lines.empty() ? "" : view(record_.lines.front().value));
    constexpr std::string_view words[] = {"changetype", "add", "delete", "replace"};
    const bool isWord = std::any_of(std::begin(words), std::end(words),
                                    [&](std::string_view word) { return sameName(line.name, word); });
    return isWord ? factsAbout(dn, "") : factsAbout(dn, line.name, view(line.value));
}

bool isParenthesis(char character)
{
    return character == '(' || character == ')';
}

/// What the reader makes of a value whose ends it takes off, behind the reason.
std::string whatComesBack(std::string_view attribute, std::string_view value)
{
    if (isSecret(attribute, value)) {
        return ", which the file would not give back";
    }
    while (!value.empty() && isTakenOff(firstCharacter(value).codePoint)) {
        value.remove_prefix(firstCharacter(value).length);
    }
    while (isTakenOff(lastCharacter(value).codePoint)) {
        value.remove_suffix(lastCharacter(value).length);
    }
    return ": it would come back as \"" + std::string(value) + '"';
}

} // namespace

bool isDnLabel(std::string_view name)
{
    return sameName(name, "dn");
}

std::optional<std::string> whyUnstorable(std::string_view attribute, std::string_view value)
{
    if (const auto blemish = firstBlemish(value)) {
        return std::string("the value holds what the file can't: ") + blemish->finding;
    }
    // A password is stored encoded, so that nothing is taken off its ends.
    const bool isStoredAsIs = !isPassword(attribute);
    if (isStoredAsIs && (beginsWithBlank(value) || endsWithBlank(value))) {
        return std::string("the value ") + (beginsWithBlank(value) ? "begins" : "ends") + " with a blank" +
               whatComesBack(attribute, value);
    }
    if (isStoredAsIs && !value.empty() && (isParenthesis(value.front()) || isParenthesis(value.back()))) {
        return "the value begins or ends with a parenthesis" + whatComesBack(attribute, value);
    }
    if (value.find('\\') != std::string_view::npos && holdsDn(attribute)) {
        const std::string unescaped = unescapedDn(value);
        if (std::count_if(unescaped.begin(), unescaped.end(), isParenthesis) !=
            std::count_if(value.begin(), value.end(), isParenthesis)) {
            return "the escapes of this DN stand for parentheses, which the file would not give back";
        }
        if (const auto blemish = firstBlemish(unescaped)) {
            return std::string("the escapes of this DN stand for what the file can't hold: ") + blemish->finding;
        }
    }
    if (isMask(value) && isSecret(attribute, value)) {
        return "*** stands for a hidden value and is none";
    }
    return std::nullopt;
}

bool isAttributeDescription(std::string_view name)
{
    std::size_t end = std::min(name.find(';'), name.size());
    const std::string_view type = name.substr(0, end);
    const bool isKeyString = consistsOf(keyCharacters, type) && isIn(letters, type.front());
    if (!isKeyString && !isNumericOid(type)) {
        return false;
    }
    while (end < name.size()) {
        name.remove_prefix(end + 1);
        end = std::min(name.find(';'), name.size());
        if (!consistsOf(keyCharacters, name.substr(0, end))) {
            return false;
        }
    }
    return true;
}

SourcePlace placeIn(const std::string& source, Place place)
{
    return place.line == 0 ? SourcePlace() : SourcePlace{source, place.line, place.column};
}

std::string placeName(const std::string& source, Place place)
{
    return placeIn(source, place).text();
}

Failure refusedChange(const ChangeSource& source, Place place, const std::string& finding, FailureFacts about)
{
    about.source = placeIn(source.name, place);
    const std::string where = about.source.text();
    return {ExitCode::refused,
            (where.empty() ? where : where + ": ") + finding,
            {"nothing was written; see: veltor help " + source.command},
            std::move(about)};
}

std::vector<ScannedRecord> scanChanges(const ChangeSource& source, std::string_view text)
{
    return Scanner(source, text).run();
}

} // namespace veltor::tool
