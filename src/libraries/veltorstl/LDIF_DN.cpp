// Parsing, printing and ordering of distinguished names.
//
// One parser serves both roads: plain ASCII is read as it stands, everything else after one conversion to wide
// characters. It walks a view, so a DN of n parts costs one pass and not n copies of its rest.
#include "LDIF_DN.h"

#include "LDIF_Exception.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace veltor::detail {

namespace {

// Classes of the ASCII characters that the grammar names.
enum CharacterClass : unsigned char { letter = 1, digit = 2, inKey = 4, inOid = 8, isSpecial = 16 };

constexpr auto characterClasses = [] {
    std::array<unsigned char, 128> classes{};
    const auto mark = [&classes](std::string_view characters, unsigned char mask) {
        for (const char character : characters) {
            auto& entry = classes.at(static_cast<unsigned char>(character));
            entry = static_cast<unsigned char>(entry | mask);
        }
    };
    mark("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", letter | inKey);
    mark("0123456789", digit | inKey | inOid);
    mark("-", inKey);
    mark(".", inOid);
    mark(",=+<>#;\\\"", isSpecial);
    return classes;
}();

template <class Character>
bool isOf(Character character, unsigned mask)
{
    const auto code = static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<Character>>(character));
    return code < characterClasses.size() && (characterClasses[code] & mask) != 0;
}

bool isSpace(char character)
{
    return isAsciiSpace(character);
}

bool isSpace(wchar_t character)
{
    return w_my_isspace(character);
}

std::string narrow(std::string_view text)
{
    return std::string(text);
}

std::string narrow(std::wstring_view text)
{
    return wide2multibyte(std::wstring(text));
}

[[noreturn]] void refuse(int line, int libraryCode, const std::string& message)
{
    throw LDIF_Exception(__FILE_NAME__, line, result::invalidDnSyntax, libraryCode, message.c_str());
}

constexpr int missingAttribute = 1011;
constexpr int badAttribute = 1012;
constexpr int missingValue = 1013;
constexpr int badValue = 1014;

} // namespace

/// The parser of all levels. A level raises its own complaints as they are and passes on those of the level
/// below wrapped, so a caller sees one record for each level between the fault and itself.
template <class Character>
class DnParser
{
public:
    using View = std::basic_string_view<Character>;

    /// Parses a text that stands as it is.
    explicit DnParser(View text) : rest_(text) {}

    /// Parses a text in the locale's encoding. It is converted where the grammar first looks beyond an attribute
    /// type, so that a bad type is reported before a bad character further on.
    explicit DnParser(const cisString& text) requires std::is_same_v<Character, wchar_t> : unread_(text),
                                                                                           isUnread_(true)
    {
    }

    std::string rest() const { return isUnread_ ? unread_ : narrow(rest_); }

    // attribute type: a letter and key characters, or a digit and oid characters
    LDIF_RDN_attribute attribute()
    {
        LDIF_RDN_attribute type;
        if (isUnread_) {
            const std::size_t length = DnParser<char>(std::string_view(unread_)).typeLength();
            type.assign(unread_, 0, length);
            unread_.erase(0, length);
            convert();
            stripRest();
        } else {
            const std::size_t length = typeLength();
            if constexpr (std::is_same_v<Character, char>) {
                type.assign(rest_.data(), length);
            } else {
                type.assign(narrow(rest_.substr(0, length)));
            }
            skip(length);
        }
        return type;
    }

    /// The length of the attribute type that the text begins with.
    std::size_t typeLength() const
    {
        if (rest_.empty()) {
            refuse(__LINE__, missingAttribute, "Missing RDN attribute");
        }
        unsigned allowed = 0;
        if (isOf(rest_.front(), letter)) {
            allowed = inKey;
        } else if (isOf(rest_.front(), digit)) {
            allowed = inOid;
        } else {
            constexpr std::size_t shown = 20;
            const auto equals = rest_.find(Character('='));
            refuse(__LINE__, badAttribute,
                   "Invalid attribute sytax: " + narrow(rest_.substr(0, equals != View::npos ? equals : shown)));
        }
        const auto end =
            std::find_if(rest_.begin(), rest_.end(), [=](Character character) { return !isOf(character, allowed); });
        return static_cast<std::size_t>(end - rest_.begin());
    }

    // value: "#" hex pairs, or a quoted text, or a plain text
    LDIF_RDN_value value()
    {
        const Input input = here();
        std::string complaint;
        auto decoded =
            below({VELTOR_HERE, "System error parsing rdn value: "}, input, [&] { return decodedValue(complaint); });
        if (!complaint.empty()) {
            refuse(__LINE__, badValue, complaint);
        }
        return decoded;
    }

    // attribute type "=" value
    LDIF_RDN_pair pair()
    {
        const Input input = here();
        if (atEnd()) {
            refuse(__LINE__, missingAttribute, "Missing RDN attribute");
        }
        const Layer layer{VELTOR_HERE, "System error parsing rdn: "};
        auto type = below(layer, input, [this] { return attribute(); });
        if (rest_.empty()) {
            refuse(__LINE__, missingValue, "Missing RDN value: " + type);
        }
        if (rest_.front() != Character('=')) {
            refuse(__LINE__, badAttribute, "Invalid character in RDN attribute: " + narrow(rest_.substr(0, 1)));
        }
        skip(1);
        auto content = below(layer, input, [this] { return value(); });
        if (type.empty()) {
            refuse(__LINE__, missingAttribute, "Missing RDN attribute: <NULL>=" + content.str());
        }
        return {std::move(type), std::move(content)};
    }

    // pair, or several joined by "+"
    LDIF_RDN rdn()
    {
        const Input input = here();
        if (atEnd()) {
            refuse(__LINE__, missingAttribute, "Missing RDN attribute");
        }
        LDIF_RDN pairs;
        for (;;) {
            below({VELTOR_HERE, "System error parsing rdn: "}, input, [&] { pairs.push_back(pair()); });
            if (rest_.empty() || atSeparator()) {
                break;
            }
            if (rest_.front() != Character('+')) {
                refuse(__LINE__, badValue, "Invalid character in RDN value: " + narrow(rest_.substr(0, 1)));
            }
            skip(1);
        }
        if (pairs.size() > 1) {
            // What adding them one by one would give: ascending, and of equal pairs the first.
            const auto less = [](const auto& left, const auto& right) { return left.compare(right) < 0; };
            const auto equal = [](const auto& left, const auto& right) { return left.compare(right) == 0; };
            std::stable_sort(pairs.begin(), pairs.end(), less);
            pairs.erase(std::unique(pairs.begin(), pairs.end(), equal), pairs.end());
        }
        return pairs;
    }

    // RDN, or several separated by "," or ";"; parsed leftmost first, kept root first
    void dn(LDIF_DN& into, std::string_view wholeText)
    {
        // Also after a failure the RDNs parsed so far are moved to the root side of those present.
        struct ToRootSide
        {
            LDIF_DN& dn;
            std::size_t present;
            ~ToRootSide() { dn.turnAbove(present); }
        } const finish{into, into.size()};
        const auto nameText = [wholeText](LDIF_Exception& failure) { failure.value = wholeText; };
        for (bool first = true;; first = false) {
            guarded(
                {VELTOR_HERE, "System error parsing dn"},
                [&] {
                    if (!first && !rest_.empty() && atSeparator()) {
                        // Nothing stands between two separators.
                        refuse(__LINE__, missingAttribute, "Missing RDN attribute");
                    }
                    if (first || !takeRemembered(into)) {
                        const View text = rest_;
                        into.push_back(rdn());
                        if (!first) {
                            remember(text.substr(0, text.size() - rest_.size()), into);
                        }
                    }
                },
                nameText);
            if (rest_.empty()) {
                return;
            }
            if (!atSeparator()) {
                LDIF_Exception failure(VELTOR_HERE, result::other, 1000, "Unexpected syntax error");
                nameText(failure);
                throw failure;
            }
            skip(1);
            if (first && takeLent(into)) {
                return;
            }
        }
    }

private:
    // In a text that others say, too, the RDNs of ancestors are looked for among those that were parsed before.

    static DnMemory* memory() { return std::is_same_v<Character, char> ? DnMemory::inForce() : nullptr; }

    /// Adds all that is left to a DN, if it is lent.
    bool takeLent(LDIF_DN& into) const
    {
        if constexpr (std::is_same_v<Character, char>) {
            const LDIF_DN* const known = memory() == nullptr ? nullptr : memory()->lent(rest_);
            for (std::size_t level = known == nullptr ? 0 : known->size(); level > 0; --level) {
                into.push_back(known->shared(level - 1));
            }
            return known != nullptr;
        }
        return false;
    }

    /// Adds the next RDN to a DN, if it is remembered.
    bool takeRemembered(LDIF_DN& into)
    {
        if constexpr (std::is_same_v<Character, char>) {
            if (memory() == nullptr) {
                return false;
            }
            // Where it has an escape or a quote in it the RDN may go on behind the separator: no such text is
            // remembered.
            const View text = rest_.substr(0, rest_.find_first_of(separators));
            const RdnRef* const known = memory()->find(text);
            if (known != nullptr) {
                into.push_back(*known);
                rest_.remove_prefix(text.size());
            }
            return known != nullptr;
        }
        return false;
    }

    /// Remembers the last RDN of a DN by its text.
    void remember(View text, const LDIF_DN& dn) const
    {
        if constexpr (std::is_same_v<Character, char>) {
            if (memory() == nullptr || text.find_first_of(separatorsAndEscapes) != View::npos) {
                return;
            }
            // An empty value has another form at the end of a DN than in front of a separator.
            const LDIF_RDN& rdn = dn.back();
            if (std::none_of(rdn.begin(), rdn.end(), [](const auto& pair) { return pair.second.empty(); })) {
                memory()->remember(text, dn.shared(dn.size() - 1));
            }
        }
    }

    /// What a level had in front of it, for its messages.
    struct Input
    {
        View text;
        std::string unread;

        std::string str() const { return unread.empty() ? narrow(text) : unread; }
    };

    Input here() const { return {rest_, unread_}; }

    bool atEnd() const { return isUnread_ ? unread_.empty() : rest_.empty(); }

    void convert()
    {
        if constexpr (std::is_same_v<Character, wchar_t>) {
            converted_ = multibyte2wide(unread_);
            rest_ = converted_;
            isUnread_ = false;
            unread_.clear();
        }
    }

    template <class Work>
    static auto below(const Layer& layer, const Input& input, Work&& work)
    {
        return guarded(layer, std::forward<Work>(work), [&input](LDIF_Exception& failure) {
            if (failure.nested == nullptr) {
                failure.msg += input.str();
            }
        });
    }

    bool atSeparator() const { return rest_.front() == Character(',') || rest_.front() == Character(';'); }

    void skip(std::size_t count)
    {
        rest_.remove_prefix(count);
        stripRest();
    }

    void stripRest()
    {
        rest_.remove_prefix(leadingLength(rest_, [](Character character) { return isSpace(character); }));
    }

    // Fills in the complaint where the text breaks the syntax; the caller raises it outside its guard.
    LDIF_RDN_value decodedValue(std::string& complaint)
    {
        LDIF_RDN_value decoded;
        if (isUnread_) {
            convert();
        }
        if (rest_.empty()) {
            return decoded;
        }
        const View whole = rest_;
        try {
            if (rest_.front() == Character('#')) {
                decodeBinary(decoded);
            } else if (rest_.front() == Character('"')) {
                complaint = decodeQuoted(decoded);
            } else {
                complaint = decodePlain(decoded);
            }
        } catch (...) {
            // Nothing of the value was understood, so the caller gets all of it back.
            rest_ = whole;
            throw;
        }
        if (complaint.empty()) {
            stripRest();
        }
        return decoded;
    }

    // "#" followed by hex pairs; what follows the last whole pair is the caller's to judge
    void decodeBinary(LDIF_RDN_value& decoded)
    {
        decoded.form = LDIF_RDN_value::binary;
        rest_.remove_prefix(1);
        while (takeHexByte(decoded)) {
        }
    }

    // '"' characters and escapes '"'; a missing closing quote is no error
    std::string decodeQuoted(LDIF_RDN_value& decoded)
    {
        const View input = rest_;
        decoded.form = LDIF_RDN_value::quoted;
        rest_.remove_prefix(1);
        while (!rest_.empty()) {
            const auto run = std::min(rest_.find_first_of(quotedStops), rest_.size());
            decoded.std::string::append(narrow(rest_.substr(0, run)));
            rest_.remove_prefix(run);
            if (rest_.empty()) {
                break;
            }
            if (rest_.front() == Character('"')) {
                rest_.remove_prefix(1);
                break;
            }
            if (std::string complaint = takeEscape(decoded, input); !complaint.empty()) {
                return complaint;
            }
        }
        return {};
    }

    // characters and escapes up to a special character
    std::string decodePlain(LDIF_RDN_value& decoded)
    {
        const View input = rest_;
        decoded.form = LDIF_RDN_value::plain;
        bool escaped = false;
        while (!rest_.empty()) {
            const auto end = std::find_if(rest_.begin(), rest_.end(),
                                          [](Character character) { return isOf(character, isSpecial); });
            const auto run = static_cast<std::size_t>(end - rest_.begin());
            const bool valueEnds = end == rest_.end() || *end != Character('\\');
            auto text = rest_.substr(0, run);
            rest_.remove_prefix(run);
            if (valueEnds && !escaped) {
                // The usual value: trimmed before it is copied.
                text = text.substr(0, trimmedLength(text, [](Character character) { return isSpace(character); }));
                decoded.assign(narrow(text));
                return {};
            }
            decoded.std::string::append(narrow(text));
            if (valueEnds) {
                break;
            }
            escaped = true;
            if (std::string complaint = takeEscape(decoded, input); !complaint.empty()) {
                return complaint;
            }
        }
        // Escaped blanks at the end go as well.
        stripTrailing(decoded);
        return {};
    }

    // "\" and two hex digits or one special character; gives the complaint about anything else
    std::string takeEscape(LDIF_RDN_value& decoded, View valueInput)
    {
        const View escape = rest_;
        rest_.remove_prefix(1);
        if (rest_.empty()) {
            rest_ = valueInput;
            return "Invalid escape sequence: \\";
        }
        if (takeHexByte(decoded)) {
            return {};
        }
        if (isOf(rest_.front(), isSpecial)) {
            decoded.push_back(static_cast<char>(rest_.front()));
            rest_.remove_prefix(1);
            return {};
        }
        constexpr std::size_t shown = 3;
        rest_ = escape;
        return "Invalid escape sequence: " + narrow(escape.substr(0, shown));
    }

    bool takeHexByte(std::string& decoded)
    {
        if (rest_.size() < 2 || hexValue(rest_[0]) < 0 || hexValue(rest_[1]) < 0) {
            return false;
        }
        decoded.push_back(static_cast<char>(hexValue(rest_[0]) * 16 + hexValue(rest_[1])));
        rest_.remove_prefix(2);
        return true;
    }

    static constexpr char separators[] = ",;";
    static constexpr char separatorsAndEscapes[] = ",;\\\"";
    static constexpr Character quotedStops[] = {Character('"'), Character('\\'), Character(0)};

    View rest_;
    std::string unread_; // not converted yet: the rest is this
    bool isUnread_ = false;
    std::wstring converted_;
};

namespace {

/// Runs one parsing step on the front of a text and leaves the rest in it, also after a failure.
template <class Character, class Step>
auto parseFront(DnParser<Character>&& parser, cisString& text, Step step)
{
    try {
        auto parsed = step(parser);
        text.assign(parser.rest());
        return parsed;
    } catch (...) {
        text.assign(parser.rest());
        throw;
    }
}

template <class Step>
auto parseFront(cisString& text, Step step)
{
    if (isPlainAscii(text)) {
        const std::string input = text;
        return parseFront(DnParser<char>(std::string_view(input)), text, step);
    }
    return parseFront(DnParser<wchar_t>(text), text, step);
}

// A plain value in either width: special characters and outer blanks are escaped.
template <class View, class Narrow>
void appendPlain(std::string& out, View text, Narrow narrowed)
{
    const auto blank = [](auto character) { return isSpace(character); };
    const auto first = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), blank) - text.begin());
    const auto last = static_cast<std::size_t>(text.rend() - std::find_if_not(text.rbegin(), text.rend(), blank));
    if constexpr (std::is_same_v<typename View::value_type, char>) {
        const auto escaped = [](char character) { return isOf(character, isSpecial); };
        if (first == 0 && last == text.size() && std::none_of(text.begin(), text.end(), escaped)) {
            out += text;
            return;
        }
    }
    for (std::size_t position = 0; position < text.size(); ++position) {
        const auto character = text[position];
        if (isSpace(character)) {
            if (position < first || position >= last) {
                out += '\\';
                byte2hex(static_cast<unsigned>(character), out);
            } else {
                // The low byte alone, also of a wide blank: files in the field are written this way.
                out += static_cast<char>(character);
            }
        } else {
            if (isOf(character, isSpecial)) {
                out += '\\';
            }
            narrowed(out, character);
        }
    }
}

void appendValue(std::string& out, const LDIF_RDN_value& value)
{
    if (value.empty()) {
        refuse(__LINE__, missingValue, "Missing RDN attribute value");
    }
    switch (value.form) {
    case LDIF_RDN_value::binary:
        out += '#';
        for (const char byte : value) {
            byte2hex(static_cast<unsigned char>(byte), out);
        }
        break;
    case LDIF_RDN_value::quoted:
        out += '"';
        for (const char character : value) {
            if (character == '\\' || character == '"') {
                out += '\\';
            }
            out += character;
        }
        out += '"';
        break;
    default:
        if (isPlainAscii(value)) {
            appendPlain(out, std::string_view(value), [](std::string& text, char character) { text += character; });
        } else {
            const std::wstring wide = multibyte2wide(value);
            appendPlain(out, std::wstring_view(wide), [](std::string& text, wchar_t character) {
                text += wide2multibyte(std::wstring(1, character));
            });
        }
        break;
    }
}

void appendPair(std::string& out, const LDIF_RDN_pair& pair)
{
    out += pair.first;
    out += '=';
    appendValue(out, pair.second);
}

void appendRdn(std::string& out, const LDIF_RDN& rdn)
{
    for (auto pair = rdn.begin(); pair != rdn.end(); ++pair) {
        out += pair == rdn.begin() ? "" : " + ";
        appendPair(out, *pair);
    }
}

/// The order that RDNs and DNs share: element by element, and a sequence that is the beginning of the other
/// comes out greater. The reverse of the usual length rule, on purpose: ancestors sort before descendants.
template <class Sequence>
int compareElements(const Sequence& left, const Sequence& right, std::size_t index = 0)
{
    for (;; ++index) {
        if (index == left.size()) {
            return index == right.size() ? 0 : 1;
        }
        if (index == right.size()) {
            return -1;
        }
        if (const int difference = left[index].compare(right[index]); difference != 0) {
            return difference;
        }
    }
}

} // namespace

void appendTo(std::string& text, const LDIF_DN& dn)
{
    for (std::size_t level = dn.size(); level > 0; --level) {
        text += level == dn.size() ? "" : ", ";
        appendRdn(text, dn[level - 1]);
    }
}

std::string_view DnPrinter::print(const LDIF_DN& dn)
{
    std::size_t known = 0;
    while (known < lengths_.size() && known < dn.size() && dn.shared(known).isSame(last_->shared(known))) {
        ++known;
    }
    // The text ends in what is known. What is above that is put in front of it, in the other string.
    const std::string_view tail =
        std::string_view(text_).substr(known == 0 ? text_.size() : text_.size() - lengths_[known - 1]);
    lengths_.resize(dn.size());
    spare_.clear();
    for (std::size_t level = dn.size(); level > known; --level) {
        lengths_[level - 1] = spare_.size();
        appendRdn(spare_, dn[level - 1]);
        spare_ += level == 1 ? "" : ", ";
    }
    spare_ += tail;
    for (std::size_t level = known; level < dn.size(); ++level) {
        lengths_[level] = spare_.size() - lengths_[level];
    }
    text_.swap(spare_);
    last_ = &dn;
    return text_;
}

std::size_t commonLevels(const LDIF_DN& dn, const LDIF_DN& other, std::size_t from)
{
    std::size_t level = 0;
    while (level < dn.size() && from + level < other.size() && dn.shared(level).isEqual(other.shared(from + level))) {
        ++level;
    }
    return level;
}

std::string printable(const LDIF_DN& dn)
{
    try {
        return dn.str();
    } catch (const LDIF_Exception&) {
        return {};
    }
}

// ---- Shared RDNs ----

RdnRef::RdnRef(LDIF_RDN&& rdn)
{
    const Piece piece = obtain(sizeof(SharedRdn), alignof(SharedRdn));
    shared_ = new (piece.memory) SharedRdn{.fromRegion = piece.fromRegion, .rdn = std::move(rdn)};
}

RdnRef::RdnRef(const RdnRef& other) : shared_(other.shared_)
{
    if (shared_ == nullptr) {
        return;
    }
    if (shared_->exposed) {
        RdnRef copy(LDIF_RDN(other.shared_->rdn));
        shared_ = std::exchange(copy.shared_, nullptr);
    } else {
        shared_->owners.add();
    }
}

void RdnRef::destroy(SharedRdn* shared) noexcept
{
    const bool fromRegion = shared->fromRegion;
    std::destroy_at(shared);
    giveBack(shared, fromRegion);
}

LDIF_RDN& RdnRef::exposed()
{
    if (!shared_->owners.isOne()) {
        *this = RdnRef(LDIF_RDN(shared_->rdn));
    }
    shared_->exposed = true;
    shared_->foldedWith.store(nullptr, std::memory_order_release);
    return shared_->rdn;
}

std::uint64_t RdnRef::madeHash(FoldTable fold) const
{
    std::uint64_t hash = hashSeed();
    for (const auto& pair : shared_->rdn) {
        hash = hashFolded(hash, pair.first, fold);
        hash = hashFolded(hash, pair.second, fold);
    }
    hash = mixed(hash, shared_->rdn.size());
    if (!shared_->exposed) {
        shared_->hash.store(hash, std::memory_order_relaxed);
        shared_->foldedWith.store(fold, std::memory_order_release);
    }
    return hash;
}

void RdnList::hashLevels(std::vector<std::uint64_t>& hashes, size_type from, size_type count, FoldTable fold) const
{
    hashes.resize(count);
    std::uint64_t chained = hashSeed();
    for (size_type index = 0; index < count; ++index) {
        chained = mixed(chained, refs_[from + index].hash(fold));
        hashes[index] = chained;
    }
}

void RdnList::turnAbove(size_type position)
{
    std::reverse(refs_.begin() + position, refs_.end());
    std::rotate(refs_.begin(), refs_.begin() + position, refs_.end());
}

// ---- The memory of ancestors ----

constinit thread_local DnMemory* DnMemory::inForce_ = nullptr;

DnMemory::DnMemory(std::size_t expected) : outer_(inForce_)
{
    constexpr std::size_t fewest = 16;
    constexpr std::size_t most = 65536;
    slots_.resize(std::bit_ceil(std::clamp(expected, fewest, most)));
    // In force only now: the destructor does not run when there is no memory for the slots.
    inForce_ = this;
}

DnMemory::~DnMemory()
{
    inForce_ = outer_;
}

const RdnRef* DnMemory::find(std::string_view text) const
{
    const Slot& slot = slots_[placeOf(text)];
    return text == slot.text && !slot.rdn.empty() ? &slot.rdn.shared(0) : nullptr;
}

void DnMemory::remember(std::string_view text, const RdnRef& rdn)
{
    Slot& slot = slots_[placeOf(text)];
    // Without its RDN a slot says nothing, should memory run out half-way.
    slot.rdn.clear();
    slot.text.assign(text);
    slot.rdn.push_back(rdn);
}

void DnMemory::lend(std::string_view text, const LDIF_DN& dn)
{
    lent_ = nullptr;
    lentText_.assign(text);
    lent_ = &dn;
}

void parse(LDIF_DN& dn, std::string_view text)
{
    const DnMemory* const memory = DnMemory::inForce();
    if (!isAsciiWithoutNul(text) || !(memory != nullptr ? memory->readsAscii() : localeReadsAscii())) {
        cisString stripped = std::string(text);
        stripLeading(stripped);
        if (!stripped.empty()) {
            DnParser<wchar_t>(stripped).dn(dn, text);
        }
        return;
    }
    std::string_view view = text;
    view.remove_prefix(leadingLength(view, isAsciiSpace));
    if (view.empty()) {
        return;
    }
    DnParser<char>(view).dn(dn, text);
}

} // namespace veltor::detail

using namespace veltor::detail;

LDIF_RDN_attribute::LDIF_RDN_attribute(cisString& text)
    : LDIF_RDN_attribute(parseFront(text, [](auto& parser) { return parser.attribute(); }))
{
}

LDIF_RDN_value::LDIF_RDN_value(cisString& text)
    : LDIF_RDN_value(parseFront(text, [](auto& parser) { return parser.value(); }))
{
}

std::string LDIF_RDN_value::str() const
{
    std::string text;
    appendValue(text, *this);
    return text;
}

LDIF_RDN_pair::LDIF_RDN_pair(LDIF_RDN_attribute&& attribute, LDIF_RDN_value&& value)
    : std::pair<LDIF_RDN_attribute, LDIF_RDN_value>(std::move(attribute), std::move(value))
{
}

LDIF_RDN_pair::LDIF_RDN_pair(cisString& text)
    : LDIF_RDN_pair(parseFront(text, [](auto& parser) { return parser.pair(); }))
{
}

int LDIF_RDN_pair::compare(const LDIF_RDN_pair& other) const
{
    const int types = first.compare(other.first);
    return types != 0 ? types : second.compare(other.second);
}

std::string LDIF_RDN_pair::str() const
{
    std::string text;
    appendPair(text, *this);
    return text;
}

LDIF_RDN::LDIF_RDN(cisString& text) : LDIF_RDN(parseFront(text, [](auto& parser) { return parser.rdn(); })) {}

LDIF_RDN& LDIF_RDN::operator+=(const LDIF_RDN_pair& pair)
{
    const auto place = std::lower_bound(begin(), end(), pair,
                                        [](const auto& left, const auto& right) { return left.compare(right) < 0; });
    if (place == end() || place->compare(pair) != 0) {
        insert(place, pair);
    }
    return *this;
}

std::string LDIF_RDN::str() const
{
    std::string text;
    appendRdn(text, *this);
    return text;
}

int LDIF_RDN::compare(const LDIF_RDN& other) const
{
    return compareElements(*this, other);
}

LDIF_DN& LDIF_DN::operator=(const cisString& text)
{
    parse(*this, text);
    return *this;
}

LDIF_DN& LDIF_DN::operator+=(const LDIF_RDN& rdn)
{
    push_back(rdn);
    return *this;
}

LDIF_DN LDIF_DN::intersection(const LDIF_DN& other) const
{
    LDIF_DN common(*this);
    const auto levels = static_cast<std::ptrdiff_t>(commonLevels(*this, other));
    common.erase(common.cbegin() + levels, common.cend());
    return common;
}

LDIF_DN& LDIF_DN::operator-=(const LDIF_DN& other)
{
    const auto levels = static_cast<std::ptrdiff_t>(commonLevels(*this, other));
    erase(cbegin(), cbegin() + levels);
    return *this;
}

std::string LDIF_DN::str() const
{
    std::string text;
    appendTo(text, *this);
    return text;
}

int LDIF_DN::compare(const LDIF_DN& other) const
{
    // What both share need not be compared.
    std::size_t level = 0;
    while (level < size() && level < other.size() && shared(level).isSame(other.shared(level))) {
        ++level;
    }
    return compareElements(*this, other, level);
}

std::ostream& operator<<(std::ostream& stream, const LDIF_RDN_value& value)
{
    return stream << value.str();
}

std::ostream& operator<<(std::ostream& stream, const LDIF_RDN_pair& pair)
{
    return stream << pair.str();
}

std::ostream& operator<<(std::ostream& stream, const LDIF_RDN& rdn)
{
    return stream << rdn.str();
}

std::ostream& operator<<(std::ostream& stream, const LDIF_DN& dn)
{
    return stream << dn.str();
}
