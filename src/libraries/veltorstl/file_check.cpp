// The check of a configuration text.
//
// It walks the text as the loader does, with the same line reader, parsers, types and decisions, and gathers the
// values of each entry, so that it meets whatever the loader would meet. Where a load would end, it tells so and goes
// on at the next line. Instead of a tree it keeps a list of entries and an index of their DNs.
#include "file_check.h"

#include "LDIF_AttrType.h"
#include "LDIF_Attribute.h"
#include "LDIF_Entry.h"
#include "LDIF_Exception.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"
#include "LDIF_Value.h"
#include "entry_index.h"
#include "finding_text.h"
#include "load_rules.h"

#include "veltor/platform.h"

#include <algorithm>
#include <cstring>
#include <langinfo.h>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <strings.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace veltor::detail {

namespace {

constexpr int formatInvalid = 1002;
constexpr int singleValued = 1006;
constexpr int undefinedAttribute = 17;
constexpr int valueExists = 20;
constexpr int alreadyExists = 68;
constexpr int confidentialityRequired = 13;
constexpr int valueUndecodable = 84;

constexpr char invalidLineName[] = "zor-slapdInvalidLine";
constexpr char noStart[] = ": the server does not start";
constexpr char keptInstead[] = ": the server does not use the line and keeps it as zor-slapdInvalidLine";

int codeOf(const LDIF_Exception& failure)
{
    return failure.extErr != 0 ? failure.extErr : failure.ldapErr;
}

/// A failure of the system says nothing about the text.
void passOnSystemFailure(const LDIF_Exception& failure)
{
    if (failure.isSystemFailure()) {
        throw LDIF_Exception(failure);
    }
}

bool isUnknown(const _AttrType& type)
{
    return type.name == nullptr;
}

bool isInvalidLine(std::string_view name)
{
    return name.size() == sizeof invalidLineName - 1 && strncasecmp(name.data(), invalidLineName, name.size()) == 0;
}

bool isPassword(const _AttrType& type)
{
    return type.fromStr == pwFromStr;
}

/// " (code 1013)" without the blank in front.
std::string inCode(const LDIF_Exception& failure)
{
    return "(code " + std::to_string(codeOf(failure)) + ")";
}

std::string atLine(int line)
{
    return "line " + std::to_string(line);
}

/// Where a value stands that is not a default.
std::string inLine(int line)
{
    return line != 0 ? " in " + atLine(line) : "";
}

/// Runs work on the text and gives what it refuses; failures of the system go through.
template <class Work>
std::optional<LDIF_Exception> failureOf(Work&& work)
{
    try {
        std::forward<Work>(work)();
        return std::nullopt;
    } catch (const LDIF_Exception& failure) {
        passOnSystemFailure(failure);
        return failure;
    }
}

/// The last line of a text, as the reader takes it behind another one; none when it is no line of its own there.
std::optional<LDIF_Line> readBack(const std::string& text)
{
    const std::string whole = "x: y\n" + text + "\n";
    LineReader reader(whole);
    LDIF_Line line;
    reader.next(line);
    if (line.value != "y") {
        return std::nullopt;
    }
    reader.next(line);
    return reader.position() == whole.size() ? std::optional(std::move(line)) : std::nullopt;
}

/// True for values that surely come back from a write, and without a trial.
bool isPlainValue(std::string_view name, const LDIF_Value& value)
{
    const auto isOpen = [](char character) {
        return !isAsciiSpace(character) && character != '(' && character != ')' && character != ':';
    };
    const std::string_view text = value.text();
    return isOpen(name.front()) && isPlainAscii(name) && textReadsBackEqual(*value.attrType) && isPlainAscii(text) &&
           (text.empty() || (isOpen(text.front()) && isOpen(text.back()))) && text.find_first_of("\r\n") == text.npos;
}

/// True when the reader and the type make the same of the line that a write makes of a value.
bool survivesWrite(const std::string& name, const LDIF_Value& value)
{
    if (isPlainValue(name, value)) {
        return true;
    }
    bool survives = false;
    failureOf([&] {
        const std::string text = value.str();
        const auto line = readBack(name + ": " + text);
        if (!line || line->type != LDIF_Line::attribute || line->name != name) {
            return;
        }
        // Most types take their own text form as it is.
        survives = textReadsBackEqual(*value.attrType)
                       ? line->value == text
                       : LDIF_Value(value.attrType, std::string_view(line->value)).str() == text;
    });
    return survives;
}

/// True for a line that sets a password and has it in clear text.
bool hasClearPassword(std::string_view line)
{
    const std::size_t colon = line.find(':');
    if (colon == line.npos || !isPassword(*attrTypeOf(line.substr(0, colon)))) {
        return false;
    }
    std::string_view value = line.substr(colon);
    value.remove_prefix(std::min(value.find_first_not_of(": \t"), value.size()));
    return !value.empty() && !isEncoded(value);
}

/// False for a text of an encoded password's shape that no password is in.
bool isDecodable(std::string_view text)
{
    std::string buffer(text);
    char* clear = nullptr;
    const int code = _slapd_utils_decode_buffer(buffer.data(), &clear);
    if (code == result::noMemory) {
        throw std::bad_alloc();
    }
    if (clear != nullptr) {
        explicit_bzero(clear, std::strlen(clear));
        _slapd_utils_decode_buffer_free(clear);
    }
    return code == 0;
}

/// A line that was taken into a DN may hold a secret; a DN by itself has no colon.
bool looksSecretDn(std::string_view text)
{
    return (text.find(':') != text.npos && looksSecret(text)) || namesSecretAttribute(text);
}

/// True for what stands in a line of a DN, or in one without a colon, where nobody can tell a name from a value.
bool looksSecretLine(const LDIF_Line& line)
{
    // What a load keeps of a line without a colon ends in one.
    return line.valid ? looksSecretDn(line.value) : looksSecret(line.name + line.value + ':');
}

/// What stands in such a line, unless it is a secret.
std::optional<std::string> shownLine(const LDIF_Line& line)
{
    if (looksSecretLine(line)) {
        return std::nullopt;
    }
    return line.valid ? line.value : line.name + line.value;
}

/// How a load takes the line that a finding is about.
enum class Standing { taken, rejected };

/// What a finding is about. No value: it is a secret.
struct Subject
{
    std::string attribute;
    std::optional<std::string> value = std::string();

    std::string shownValue() const { return value ? quoted(*value) : "what stands here"; }
};

class TextCheck
{
public:
    TextCheck(std::string_view text, cfg_finding_fn report, void* context)
        : text_(text), reader_(text), report_(report), context_(context),
          hasControls_(text.find_first_of(std::string_view("\r\0", 2)) != text.npos)
    {
    }

    bool run()
    {
        while (!ended_ && !stopped_) {
            try {
                step();
            } catch (const LDIF_Exception& failure) {
                passOnSystemFailure(failure);
                tell(finding::loadFailure, reader_.lineNumber(), codeOf(failure), {},
                     "the load ends here " + inCode(failure) + noStart);
            }
        }
        tellOfWholeText();
        return !stopped_;
    }

private:
    struct Gathered
    {
        LDIF_Values values;
        int line; // of the first value
    };
    // By name as the loader orders them, which settles what is merged first.
    using Gathering = std::map<cisString, Gathered>;

    struct Entry final : LDIF_Entry
    {
        int line = 0;
        Gathering gathered;
    };

    enum class Place {
        root,    // before the first entry
        entry,   // in current_
        adrift,  // in what ought to be an entry, behind a line where a load ends
        between, // behind a blank line that ended an entry
    };

    // ---- Telling ----

    void tell(const FindingKind& kind, int line, int code, const Subject& subject, const std::string& message)
    {
        if (stopped_) {
            return;
        }
        const cfg_finding found{kind.severity,
                                line,
                                code,
                                kind.word,
                                dn_.c_str(),
                                subject.attribute.c_str(),
                                subject.value ? subject.value->c_str() : nullptr,
                                message.c_str()};
        stopped_ = report_(context_, &found) != 0;
    }

    /// What the line at hand is about, as it was read.
    Subject subjectHere()
    {
        if (line_.type == LDIF_Line::attribute && line_.valid) {
            return subjectOf(line_.name, line_.value);
        }
        const bool hasValue = line_.type == LDIF_Line::attribute || line_.type == LDIF_Line::dn;
        return hasValue ? Subject{"", shownLine(line_)} : Subject{};
    }

    Subject subjectOf(const std::string& name, const std::string& value, Standing standing = Standing::taken)
    {
        const _AttrType& type = *attrTypeOf(name);
        const bool nameCounts = standing == Standing::rejected || isUnknown(type);
        const bool nameLooksSecret = nameCounts && looksSecret(name);
        const bool valueLooksSecret =
            ((isInvalidLine(name) || value.find(':') != std::string::npos) && looksSecret(value)) ||
            namesSecretAttribute(value);
        const bool isSecret = isSecretType(type) || nameLooksSecret || valueLooksSecret || isNearSecret(name, type);
        // A mistyped line may have its value in what is taken for its name.
        const bool isOneWord = name.find_first_of(" \t=") == std::string::npos;
        return {nameLooksSecret && !isOneWord ? std::string() : name, isSecret ? std::nullopt : std::optional(value)};
    }

    /// The attribute that was probably meant by an unknown name. Files say such names again and again.
    const _AttrType* nearestTo(const std::string& name)
    {
        const auto [known, isNew] = nearest_.try_emplace(name, nullptr);
        if (isNew) {
            known->second = nearestAttribute(name);
        }
        return known->second;
    }

    bool isNearSecret(const std::string& name, const _AttrType& type)
    {
        if (!isUnknown(type) || isInvalidLine(name)) {
            return false;
        }
        const _AttrType* const near = nearestTo(name);
        return near != nullptr && isSecretType(*near);
    }

    // ---- Walking ----

    void step()
    {
        begin_ = reader_.position();
        try {
            reader_.next(line_);
        } catch (const LDIF_Exception& failure) {
            passOnSystemFailure(failure);
            passUnreadable(failure);
            return;
        }
        const bool goesOn = isInUnreadable_ && begin_ < text_.size() && isAsciiSpace(text_[begin_]);
        isInUnreadable_ = goesOn && line_.type != LDIF_Line::blankLine;
        if (isInUnreadable_) {
            return;
        }
        switch (line_.type) {
        case LDIF_Line::endOfFile:
            close();
            ended_ = true;
            break;
        case LDIF_Line::blankLine:
            lookAtBytes({});
            if (close()) {
                blankLine_ = line_.lineNumber;
            }
            isStrayTold_ = false;
            break;
        case LDIF_Line::comment:
            lookAtBytes({});
            lookAtComment();
            break;
        case LDIF_Line::dn:
            takeDn();
            break;
        case LDIF_Line::attribute:
            if (place_ == Place::root || place_ == Place::between) {
                takeOutside();
            } else {
                takeInside();
            }
            break;
        }
    }

    void passUnreadable(const LDIF_Exception& failure)
    {
        const int line = reader_.lineNumber();
        tell(finding::unreadableText, line, codeOf(failure), {},
             std::string("the character set of the process (") + nl_langinfo(CODESET) +
                 ") does not have what stands in this line" + noStart);
        isInUnreadable_ = true;
        constexpr char label[] = "dn:";
        constexpr std::size_t length = sizeof label - 1;
        if (text_.size() - begin_ >= length && strncasecmp(text_.data() + begin_, label, length) == 0) {
            close();
            settleRoot();
            place_ = Place::adrift;
        }
    }

    /// Ends the entry at hand.
    /// @return true when there was one
    bool close()
    {
        if (place_ != Place::entry && place_ != Place::adrift) {
            return false;
        }
        place_ = Place::between;
        if (current_ != nullptr) {
            settle(std::move(current_));
        }
        adrift_.clear();
        dn_.clear();
        return true;
    }

    /// Puts an entry to the others, or its values to those of its DN.
    void settle(std::unique_ptr<Entry> entry)
    {
        Entry* const existing = entry->dn.empty() ? &root_ : static_cast<Entry*>(index_.find(entry->dn));
        if (existing == nullptr) {
            Entry& added = *entry;
            entries_.push_back(std::move(entry));
            index_.add(added);
            return;
        }
        if (const auto failure = failureOf([&] { merge(existing->gathered, entry->gathered); })) {
            const std::string target = existing == &root_ ? "the root" : "the one of " + atLine(existing->line);
            tell(finding::unmergeableEntry, reader_.lineNumber(), codeOf(*failure), {},
                 "the entry of " + atLine(entry->line) + " ends here and can't be merged into " + target +
                     ", where a value of it is refused " + inCode(*failure) + noStart);
        }
    }

    void merge(Gathering& into, Gathering& from)
    {
        for (auto position = from.begin(); position != from.end();) {
            const auto incoming = position++;
            const auto own = into.find(incoming->first);
            if (own == into.end()) {
                into.insert(from.extract(incoming));
                continue;
            }
            const Gathered& added = incoming->second;
            const std::size_t before = own->second.values.size();
            own->second.values += added.values;
            if (isSecond(own->second, before)) {
                const Subject subject = subjectOf(own->first, std::as_const(added.values).begin()->str());
                tell(finding::secondValue, added.line, singleValued, subject,
                     quoted(subject.attribute) + " takes one value, and the entry that this one is merged into has " +
                         "another" + inLine(own->second.line));
            }
        }
    }

    static bool isSecond(const Gathered& gathered, std::size_t before)
    {
        return before > 0 && gathered.values.size() > before && gathered.values.type->singleValued;
    }

    // ---- Bytes ----

    void lookAtBytes(const Subject& subject)
    {
        const std::string_view raw = text_.substr(begin_, reader_.position() - begin_);
        if (hasControls_) {
            lookAtControls(raw, subject);
        }
        const bool isCutOff = !raw.empty() && raw.back() != '\n';
        if (isCutOff) {
            lookAtCutOff(raw);
        }
        if ((line_.type == LDIF_Line::attribute || line_.type == LDIF_Line::dn) && line_.valid) {
            lookAtValue(raw.substr(0, raw.find('\0')), subject, isCutOff);
        }
    }

    void lookAtControls(std::string_view raw, const Subject& subject)
    {
        for (int line = line_.lineNumber; !raw.empty(); ++line) {
            const std::size_t end = std::min(raw.find('\n'), raw.size());
            std::string_view physical = raw.substr(0, end);
            raw.remove_prefix(std::min(end + 1, raw.size()));
            if (physical.find('\0') != physical.npos) {
                tell(finding::nulByte, line, formatInvalid, subject,
                     "there is a NUL in this line: the server does not read what is behind it");
            }
            const std::size_t kept = physical.find_last_not_of('\r') + 1;
            if (kept != physical.size()) {
                firstLineEnd_ = lineEnds_++ == 0 ? line : firstLineEnd_;
            }
            if (physical.substr(0, kept).find('\r') != physical.npos) {
                tell(finding::carriageReturn, line, formatInvalid, subject,
                     "there is a carriage return in the middle of this line: the server leaves it out");
            }
        }
    }

    void lookAtCutOff(std::string_view raw)
    {
        LDIF_Line lost;
        const std::string whole = std::string(raw) + "\n";
        LineReader(whole).next(lost);
        if (lost.value.empty() || lost.type == LDIF_Line::comment) {
            tell(finding::unterminatedLastLine, reader_.lineNumber(), formatInvalid, {},
                 "there is no line feed at the end of the file; nothing is lost by that");
            return;
        }
        const bool hasName = lost.valid && lost.type == LDIF_Line::attribute;
        Subject subject = hasName ? subjectOf(lost.name, lost.value) : Subject{"", lost.value};
        if (!hasName && looksSecretLine(lost)) {
            subject.value.reset();
        }
        tell(finding::lostLastValue, reader_.lineNumber(), formatInvalid, subject,
             std::string("there is no line feed at the end of the file: the server drops ") +
                 (lost.type == LDIF_Line::dn && lost.valid ? "the DN " : "the value ") + subject.shownValue() +
                 (hasName && !subject.attribute.empty() ? " of " + quoted(subject.attribute) : ""));
    }

    void lookAtValue(std::string_view raw, const Subject& subject, bool isCutOff)
    {
        const std::size_t colon = std::min(raw.find(':'), raw.size());
        std::string_view rest = raw.substr(std::min(colon + 1, raw.size()));
        if (rest.starts_with(':')) {
            tell(finding::doubleColon, line_.lineNumber, formatInvalid, subject,
                 "\"::\" does not stand for base 64 here: the server takes what follows as it stands");
            rest.remove_prefix(std::min(rest.find_first_not_of(':'), rest.size()));
        }
        const auto isParenthesis = [](char character) { return character == '(' || character == ')'; };
        const std::string_view firstLine = rest.substr(0, rest.find('\n'));
        const auto first = std::find_if_not(firstLine.begin(), firstLine.end(), isAsciiSpace);
        const auto last = std::find_if_not(rest.rbegin(), rest.rend(), isAsciiSpace);
        const bool isLeading = first != firstLine.end() && isParenthesis(*first);
        const bool isTrailing =
            last != rest.rend() && isParenthesis(*last) && (line_.value.empty() || line_.value.back() != *last);
        if (!isCutOff && (isLeading || isTrailing)) {
            tell(finding::strippedParentheses, line_.lineNumber, result::invalidSyntax, subject,
                 "the server strips parentheses from both ends: it reads " + subject.shownValue());
        }
    }

    /// A setting that was put out of force is still there to be read.
    void lookAtComment()
    {
        std::string_view text = line_.value;
        text.remove_prefix(std::min(text.find_first_not_of("# \t"), text.size()));
        if (hasClearPassword(text) && text.substr(text.find(':') + 1).find(' ', 1) == text.npos) {
            // Several words are a sentence rather than a password.
            tell(finding::passwordInComment, line_.lineNumber, confidentialityRequired,
                 {std::string(text.substr(0, text.find(':'))), std::nullopt},
                 "a password stands in clear text in this comment");
        }
    }

    // ---- DNs ----

    void settleRoot()
    {
        const auto addDefault = [this](bool& seen, const char* name, const char* value) {
            if (!seen) {
                LDIF_Values values{std::string(name)};
                values.addText(value);
                root_.gathered.try_emplace(cisString(name), Gathered{std::move(values), 0});
                seen = true;
            }
        };
        addDefault(rootNames_.charsetSeen, "charset", defaultCharset);
        addDefault(rootNames_.versionSeen, "version", defaultVersion);
    }

    void takeDn()
    {
        close();
        settleRoot();
        isStrayTold_ = false;
        const Subject subject = subjectHere();
        const bool isValid = line_.valid;
        if (!isValid) {
            line_.changeToInvalidAttr();
        }
        place_ = Place::adrift;
        auto entry = std::make_unique<Entry>();
        entry->line = line_.lineNumber;
        const auto failure = failureOf([&] { parse(entry->dn, line_.value); });
        if (subject.value) {
            // Also what is no DN tells which entry is meant.
            const std::string printed = failure ? std::string() : printable(entry->dn);
            dn_ = printed.empty() ? *subject.value : printed;
        }
        lookAtBytes(subject);
        if (failure) {
            tellBadDn(*failure, subject, isValid);
            return;
        }
        if (!isValid) {
            tell(finding::dnLineWithoutColon, entry->line, formatInvalid, subject,
                 "this line begins with \"dn\" and has no colon: the server takes it for the DN of a new entry, and "
                 "writes a line for it that ends the next load");
        }
        lookAtDn(*entry, subject);
        place_ = Place::entry;
        current_ = std::move(entry);
    }

    void tellBadDn(const LDIF_Exception& failure, const Subject& subject, bool isValid)
    {
        const int number = reader_.lineNumber();
        if (isValid) {
            tell(finding::badDn, number, codeOf(failure), subject,
                 subject.shownValue() + " is not a valid DN, because " + reasonOfDn(codeOf(failure)) + noStart);
        } else {
            tell(finding::lineTakenForDn, number, codeOf(failure), subject,
                 std::string("a line that begins with \"dn\" and has no colon is taken for a DN, and is not one") +
                     noStart);
        }
    }

    void lookAtDn(const Entry& entry, const Subject& subject)
    {
        if (entry.dn.empty()) {
            tell(finding::emptyDn, entry.line, result::objectClassViolation, subject,
                 "the DN is empty: the server adds the attributes of this entry to the root");
            return;
        }
        if (const auto* const existing = static_cast<const Entry*>(index_.find(entry.dn)); existing != nullptr) {
            tell(finding::duplicateEntry, entry.line, alreadyExists, subject,
                 "the entry " + shownDn() + " stands in " + atLine(existing->line) +
                     " already: the server merges this one into it");
        }
        std::string printed;
        if (const auto failure = failureOf([&] { appendTo(printed, entry.dn); })) {
            tell(finding::unprintableDn, entry.line, codeOf(*failure), subject,
                 "a value in this DN is empty: the server reads it, but can't write the file any more");
            return;
        }
        LDIF_DN again;
        failureOf([&] {
            if (const auto line = readBack("dn: " + printed); line && line->type == LDIF_Line::dn) {
                parse(again, line->value);
            }
        });
        if (again != entry.dn) {
            tell(finding::unstableDn, entry.line, result::invalidDnSyntax, subject,
                 "this DN becomes another one when the server writes the file and reads it again");
        }
    }

    std::string shownDn() const { return dn_.empty() ? "of this DN" : quoted(dn_); }

    // ---- Attributes ----

    /// Outside every entry, where version and charset alone may stand, and only before the first one.
    void takeOutside()
    {
        const Subject subject = subjectHere();
        lookAtBytes(subject);
        const LDIF_Line asRead = line_;
        if (!line_.valid) {
            line_.changeToInvalidAttr();
        }
        const auto refusal = refusalByRoot(subject);
        if (!refusal) {
            return;
        }
        tellStray(asRead, subject, codeOf(*refusal));
        if (place_ == Place::between) {
            // Most likely the blank line is wrong, and what follows is meant to be in one entry.
            place_ = Place::adrift;
        }
    }

    /// Does with the line at hand what the loader does in the root.
    std::optional<LDIF_Exception> refusalByRoot(const Subject& subject)
    {
        for (;;) {
            LDIF_Attribute attribute(line_.name, SharedName(line_.name), attrTypeOf(line_.name));
            bool* seen = nullptr;
            auto refusal = failureOf([&] {
                attribute.values.addText(line_.value);
                seen = &rootNames_.admit(attribute);
            });
            if (!refusal) {
                const bool survives = survivesWrite(line_.name, *std::as_const(attribute.values).begin());
                root_.gathered.try_emplace(attribute.name, Gathered{std::move(attribute.values), line_.lineNumber});
                *seen = true;
                tellUnlessSurviving(survives, subject);
                return std::nullopt;
            }
            if (endsLoad(*refusal)) {
                return refusal;
            }
            // Under the name of rejected lines it meets the rules of the root once more.
            line_.changeToInvalidAttr();
        }
    }

    void tellStray(const LDIF_Line& line, const Subject& subject, int code)
    {
        const int number = reader_.lineNumber();
        const std::string name = subject.attribute.empty() ? "this attribute" : quoted(subject.attribute);
        const auto isNamed = [&line](const char* other) { return strcasecmp(line.name.c_str(), other) == 0; };
        const bool isRootName = line.valid && (isNamed("version") || isNamed("charset"));
        if (place_ == Place::root && isRootName) {
            if (isNamed("version") ? rootNames_.versionSeen : rootNames_.charsetSeen) {
                tell(finding::secondRootAttribute, number, code, subject,
                     name + " stands before the first entry a second time" + noStart);
                return;
            }
            const _AttrType* const type = attrTypeOf(line.name);
            const auto refusal = failureOf([&] { LDIF_Value(type, std::string_view(line.value)); });
            tell(finding::badRootValue, number, code, subject,
                 name + " can't be " + subject.shownValue() +
                     (refusal ? ", because " + reasonOf(*refusal, *type) : std::string()) + noStart);
            return;
        }
        if (std::exchange(isStrayTold_, true)) {
            return;
        }
        const std::string ended = "the blank line " + std::to_string(blankLine_) + " ends the entry above ";
        if (!line.valid) {
            tell(finding::lineOutsideEntry, number, code, subject,
                 (place_ == Place::root ? std::string("before the first entry a line without a name and a colon")
                                        : ended + "a line without a name and a colon, which outside an entry") +
                     " can't be kept" + noStart);
        } else if (place_ == Place::root) {
            tell(finding::attributeBeforeFirstEntry, number, code, subject,
                 name + " stands before the first entry, where only version and charset may" + noStart);
        } else {
            tell(finding::attributeOutsideEntry, number, code, subject,
                 ended + name + ", which stands in no entry for that reason" + noStart);
        }
    }

    void takeInside()
    {
        const Subject subject = subjectHere();
        lookAtBytes(subject);
        if (!line_.valid) {
            tell(finding::rejectedLine, line_.lineNumber, formatInvalid, subject,
                 "there is no name with a colon at the beginning of this line" + std::string(keptInstead));
            line_.changeToInvalidAttr();
            gather();
            return;
        }
        lookAtPassword(subject);
        const auto refusal = failureOf([&] { gather(subject); });
        if (!refusal) {
            return;
        }
        if (endsLoad(*refusal)) {
            tell(finding::loadFailure, reader_.lineNumber(), codeOf(*refusal), subject,
                 "the load ends here " + inCode(*refusal) + noStart);
            return;
        }
        const Subject rejected = subjectOf(line_.name, line_.value, Standing::rejected);
        tell(finding::rejectedLine, line_.lineNumber, codeOf(*refusal), rejected,
             (rejected.attribute.empty() ? "this attribute" : quoted(rejected.attribute)) + " can't be " +
                 rejected.shownValue() + ", because " + reasonOf(*refusal, *attrTypeOf(line_.name)) + keptInstead);
        line_.changeToInvalidAttr();
        gather();
    }

    /// Adds the value of the line at hand, as the loader does, and tells about it.
    void gather(const Subject& subject)
    {
        const Added added = gather();
        tellUnlessSurviving(added.survives, subject);
        if (isInvalidLine(line_.name)) {
            tell(finding::keptInvalidLine, line_.lineNumber, formatInvalid, subject,
                 "an earlier load could not use this line and kept it: what it says is not in force");
        } else if (added.before == 0 && isUnknown(*added.to->values.type)) {
            tellUnknown(subject);
        }
        if (isSecond(*added.to, added.before)) {
            tell(finding::secondValue, line_.lineNumber, singleValued, subject,
                 quoted(subject.attribute) + " takes one value, and has one already" + inLine(added.to->line));
        } else if (added.to->values.size() == added.before) {
            tell(finding::repeatedValue, line_.lineNumber, valueExists, subject,
                 "the value " + subject.shownValue() + " stands here a second time: the server keeps one of the two");
        }
    }

    struct Added
    {
        const Gathered* to;
        std::size_t before; // how many values there were
        bool survives;
    };

    Added gather()
    {
        Gathering& gathered = place_ == Place::entry ? current_->gathered : adrift_;
        LDIF_Values values(SharedName(line_.name), attrTypeOf(line_.name));
        values.addText(line_.value);
        const bool survives = survivesWrite(line_.name, *std::as_const(values).begin());
        const auto [place, isNew] = gathered.try_emplace(cisString(line_.name), Gathered{values, line_.lineNumber});
        if (isNew) {
            return {&place->second, 0, survives};
        }
        const std::size_t before = place->second.values.size();
        place->second.values.absorb(std::move(values));
        return {&place->second, before, survives};
    }

    void tellUnlessSurviving(bool survives, const Subject& subject)
    {
        if (survives) {
            return;
        }
        if (w_my_isspace(multibyte2wide(line_.name).front())) {
            tell(finding::unstableName, line_.lineNumber, result::invalidSyntax, subject,
                 "this name begins with a blank: when the server writes the file, the line may become part of the one "
                 "above it");
        } else {
            tell(finding::unstableValue, line_.lineNumber, result::invalidSyntax, subject,
                 "the value " + subject.shownValue() +
                     " becomes another one when the server writes the file and reads it again");
        }
    }

    void tellUnknown(const Subject& subject)
    {
        const _AttrType* const near = nearestTo(line_.name);
        tell(finding::unknownAttribute, line_.lineNumber, undefinedAttribute, subject,
             (subject.attribute.empty() ? "this attribute" : quoted(subject.attribute)) +
                 " is not a known attribute, and its value is not checked" +
                 (near != nullptr ? std::string("; did you mean ") + near->name + "?" : ""));
    }

    void lookAtPassword(const Subject& subject)
    {
        const std::string_view text = line_.value;
        const bool isPasswordLine = isPassword(*attrTypeOf(line_.name));
        if (isPasswordLine ? !text.empty() && !isEncoded(text) : isInvalidLine(line_.name) && hasClearPassword(text)) {
            tell(finding::clearPassword, line_.lineNumber, confidentialityRequired, subject,
                 "a password stands in clear text in the file");
        } else if (isPasswordLine && isEncoded(text) && !isDecodable(text)) {
            tell(finding::undecodablePassword, line_.lineNumber, valueUndecodable, subject,
                 "\">\" and \"<\" around a password mean that it is encoded, and this one can't be decoded");
        }
    }

    // ---- The whole text ----

    void tellOfWholeText()
    {
        dn_.clear();
        if (lineEnds_ != 0) {
            tell(finding::carriageReturnAtLineEnd, firstLineEnd_, formatInvalid, {},
                 "there are carriage returns at the ends of lines, the first one here (lines: " +
                     std::to_string(lineEnds_) + "): the server drops them");
        }
        for (const auto& entry : entries_) {
            if (stopped_) {
                return;
            }
            const std::string printed = printable(entry->dn);
            dn_ = looksSecretDn(printed) ? std::string() : printed;
            if (entry->gathered.find("objectclass") == entry->gathered.end()) {
                tell(finding::noObjectclass, entry->line, result::objectClassViolation, {},
                     "the entry " + shownDn() + " has no objectclass: a search without a filter does not find it");
            }
            lookAtParent(*entry);
        }
    }

    /// Tells once for each parent that is missing.
    void lookAtParent(const Entry& entry)
    {
        if (entry.dn.size() < 2) {
            return;
        }
        auto parent = std::make_unique<LDIF_Entry>();
        parent->dn = entry.dn;
        parent->dn.pop_back();
        if (index_.find(parent->dn) != nullptr || missing_.find(parent->dn) != nullptr) {
            return;
        }
        const std::string printed = printable(parent->dn);
        tell(finding::missingParent, entry.line, result::noSuchObject, {},
             "there is no entry " + (printed.empty() || dn_.empty() ? "above this one" : quoted(printed)) +
                 ", which would be the parent of this one");
        LDIF_Entry& added = *missingEntries_.emplace_back(std::move(parent));
        missing_.add(added);
    }

    std::string_view text_;
    LineReader reader_;
    cfg_finding_fn report_;
    void* context_;
    bool hasControls_;
    bool stopped_ = false; // the callback has heard enough
    bool ended_ = false;

    LDIF_Line line_;        // at hand
    std::size_t begin_ = 0; // of the line at hand in the text
    Place place_ = Place::root;
    std::string dn_;                 // of the entry at hand, as findings show it
    std::unique_ptr<Entry> current_; // null when it could not be opened
    Gathering adrift_;               // the values of what ought to be an entry
    int blankLine_ = 0;              // that ended the last entry
    bool isStrayTold_ = false;       // of the lines that stand together outside every entry
    bool isInUnreadable_ = false;    // continuation lines belong to a line that could not be read
    RootNames rootNames_;
    Entry root_;
    std::vector<std::unique_ptr<Entry>> entries_; // in the order of the text, each DN once
    EntryIndex index_;
    std::vector<std::unique_ptr<LDIF_Entry>> missingEntries_;
    EntryIndex missing_;
    std::unordered_map<std::string, const _AttrType*> nearest_;
    std::size_t lineEnds_ = 0; // lines that end in a carriage return
    int firstLineEnd_ = 0;
};

} // namespace

bool checkText(std::string_view text, cfg_finding_fn report, void* context)
{
    return TextCheck(text, report, context).run();
}

} // namespace veltor::detail
