// The value syntaxes. Fifteen exist by name; those with rules of their own are here, the others are aliases in
// the header.
#include "LDIF_AttrType.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "LDIF_Util.h"
#include "LDIF_Value.h"

#include "veltor/platform.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <strings.h>
#include <vector>

using veltor::detail::isEncoded;
using veltor::detail::Layer;
using veltor::detail::translating;
using veltor::detail::wrapping;
namespace result = veltor::result;

namespace {

constexpr int unexpected = 1000;
constexpr int intRange = 1015;
constexpr int intInvalid = 1016;
constexpr int enumInvalid = 1017;
constexpr int lengthRange = 1018;
constexpr int bitmaskBroken = 1019;

[[noreturn]] void refuse(int line, int ldapCode, int libraryCode, const std::string& message, std::string_view text,
                         const _AttrType* type)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, libraryCode, message.c_str());
    failure.value = text;
    failure.attrType = type;
    throw failure;
}

/// True where the type of a value stores the text form as it is.
bool storesTextForm(const LDIF_Value& value)
{
    return value.attrType != nullptr && value.attrType->toStr == cesToStr;
}

/// The text form of a value, borrowed where that is stored.
class TextForm
{
public:
    explicit TextForm(const LDIF_Value& value)
    {
        if (storesTextForm(value)) {
            text_ = value.text();
        } else {
            copy_ = value.str();
            text_ = copy_;
        }
    }
    TextForm(const TextForm&) = delete;
    TextForm& operator=(const TextForm&) = delete;

    std::string_view operator*() const { return text_; }
    const std::string_view* operator->() const { return &text_; }
    /// Both what is borrowed and what is copied ends in a NUL.
    const char* cText() const { return text_.data(); }

private:
    std::string copy_;
    std::string_view text_;
};

/// Compares the text forms of two values, both of which end in a NUL.
template <class Compare>
int onTextForms(const LDIF_Value& left, const LDIF_Value& right, Compare compare)
{
    if (storesTextForm(left) && storesTextForm(right)) {
        return compare(left.text(), right.text());
    }
    const TextForm leftText(left);
    const TextForm rightText(right);
    return compare(*leftText, *rightText);
}

std::string lengthMessage(const char* what, std::int32_t min, std::int32_t max)
{
    return std::string(what) + "length must be " + std::to_string(min) + " to " + std::to_string(max) + " characters";
}

void store(LDIF_Value& value, std::int32_t number)
{
    value.setBinary(&number, sizeof number);
    value.setText(std::to_string(number));
}

/// True when a text is neither too short nor too long. A bound of 0 leaves its side open.
bool isLongEnough(const _AttrType& type, std::string_view text)
{
    return (type.min == 0 || text.size() >= static_cast<std::uint32_t>(type.min)) &&
           (type.max == 0 || text.size() <= static_cast<std::uint32_t>(type.max));
}

bool inRange(const _AttrType& type, std::int32_t number)
{
    return type.min <= number && number <= type.max;
}

/// The same for a number in a text, where two zero bounds mean no range.
bool isRightNumber(const _AttrType& type, std::int32_t number)
{
    return (type.min == 0 && type.max == 0) || inRange(type, number);
}

bool hasRightBits(const _AttrType& type, std::int32_t number)
{
    return (static_cast<std::uint32_t>(number) & ~static_cast<std::uint32_t>(type.bitmask)) == 0;
}

[[noreturn]] void refuseIntRange(int line, std::string_view text, const _AttrType* type)
{
    refuse(line, result::invalidSyntax, intRange, "Integer value out of range", text, type);
}

/// The number of a value; 18/1000 for a value that holds none. The complaint names the side's own text.
std::int32_t numberOf(const LDIF_Value& value)
{
    std::int32_t number = 0;
    if (value.binary() == nullptr || value.binaryLength != static_cast<int>(sizeof number)) {
        refuse(__LINE__, result::inappropriateMatching, unexpected, "integer compare on non-integer value",
               value.text(), value.attrType);
    }
    std::memcpy(&number, value.binary(), sizeof number);
    return number;
}

void checkMask(const LDIF_Value& value, std::string_view text)
{
    if (!hasRightBits(*value.attrType, numberOf(value))) {
        refuse(__LINE__, result::invalidSyntax, bitmaskBroken, "Bits in value are not within bitmask constraint", text,
               value.attrType);
    }
}

void needMask(const LDIF_Value& value, std::string_view text)
{
    if (value.attrType == nullptr || value.attrType->bitmask == 0) {
        refuse(__LINE__, result::other, unexpected, "Bitmask undefined", text, value.attrType);
    }
}

struct FreeEncoded
{
    void operator()(char* text) const { _slapd_utils_encode_buffer_free(text); }
};

struct FreeDecoded
{
    void operator()(char* text) const { _slapd_utils_decode_buffer_free(text); }
};

using Decoded = std::unique_ptr<char, FreeDecoded>;

/// The clear text of one side of a comparison; null for an empty text.
Decoded decoded(const LDIF_Value& value, const char* message)
{
    const TextForm text(value);
    if (text->empty()) {
        return nullptr;
    }
    // The decoder may write to what it reads.
    std::vector<char> buffer(text.cText(), text.cText() + text->size() + 1);
    char* clear = nullptr;
    if (const int code = _slapd_utils_decode_buffer(buffer.data(), &clear); code != 0) {
        refuse(__LINE__, code, code, message, *text, value.attrType);
    }
    return Decoded(clear);
}

} // namespace

void BinarySyntaxNotImplemented(const char* sourceFile, int sourceLine, const char* syntax, const _AttrType* type,
                                const std::string& value)
{
    const std::string message = std::string("Binary representation undefined for syntax: ") + syntax;
    LDIF_Exception failure(sourceFile, sourceLine, result::notSupported, 1008, message.c_str());
    failure.value = value;
    failure.attrType = type;
    throw failure;
}

void StringSyntaxNotImplemented(const char* sourceFile, int sourceLine, const char* syntax, const _AttrType* type,
                                const std::string& value)
{
    const std::string message = std::string("String representation undefined for syntax: ") + syntax;
    LDIF_Exception failure(sourceFile, sourceLine, result::notSupported, 1009, message.c_str());
    failure.value = value;
    failure.attrType = type;
    throw failure;
}

bool veltor::detail::textReadsBackEqual(const _AttrType& type)
{
    const auto fromStr = type.fromStr;
    return type.toStr == cesToStr && (fromStr == cesFromStr || fromStr == enumFromStr || fromStr == intFromStr ||
                                      fromStr == maskFromStr || fromStr == pwFromStr);
}

std::optional<std::uint64_t> veltor::detail::matchHash(const LDIF_Value& value, FoldTable fold) noexcept
{
    const _AttrType* const type = value.attrType;
    if (type == nullptr || type->toStr != cesToStr) {
        return std::nullopt;
    }
    const auto match = type->match;
    if (match == cesCompare) {
        return hashBytes(hashSeed(), value.text());
    }
    if (match == cisCompare) {
        return hashFolded(hashSeed(), value.text(), fold);
    }
    if (match == intCompare) {
        if (value.binary() == nullptr || value.binaryLength != static_cast<int>(sizeof(std::int32_t))) {
            return std::nullopt;
        }
        return hashBytes(hashSeed(), {static_cast<const char*>(value.binary()), sizeof(std::int32_t)});
    }
    if (match == dnCompare && value.dn() != nullptr) {
        std::uint64_t hash = hashSeed();
        for (std::size_t level = 0; level < value.dn()->size(); ++level) {
            hash = mixed(hash, value.dn()->shared(level).hash(fold));
        }
        return hash;
    }
    if (match == pwCompare) {
        try {
            const Decoded clear = decoded(value, "");
            return hashBytes(hashSeed(), clear == nullptr ? std::string_view() : std::string_view(clear.get()));
        } catch (...) {
            // The comparison will say what is wrong.
            return std::nullopt;
        }
    }
    return std::nullopt;
}

// ---- ces: text, compared byte by byte ----

int cesCompare(const LDIF_Value& left, const LDIF_Value& right)
{
    return onTextForms(left, right, [](std::string_view leftText, std::string_view rightText) {
        const int difference =
            std::memcmp(leftText.data(), rightText.data(), std::min(leftText.size(), rightText.size()));
        if (difference != 0) {
            return difference;
        }
        const auto lengths =
            static_cast<std::ptrdiff_t>(leftText.size()) - static_cast<std::ptrdiff_t>(rightText.size());
        return static_cast<int>(std::clamp<std::ptrdiff_t>(lengths, INT_MIN, INT_MAX));
    });
}

void cesFromStr(LDIF_Value& value, const std::string& text)
{
    const _AttrType* const type = value.attrType;
    if (type != nullptr && !isLongEnough(*type, text)) {
        const std::string what = type->name != nullptr ? std::string(type->name) + " " : std::string();
        refuse(__LINE__, result::invalidSyntax, lengthRange, lengthMessage(what.c_str(), type->min, type->max), text,
               type);
    }
    value.setText(text);
}

void cesFromBin(LDIF_Value& value, const void* data, int length)
{
    if (data != nullptr && length > 0) {
        BinarySyntaxNotImplemented(VELTOR_HERE, "ces", value.attrType, "<binary>");
    }
}

std::string cesToStr(const LDIF_Value& value)
{
    return std::string(value.text());
}

const void* cesToBin(const LDIF_Value& value, int& length)
{
    length = value.binaryLength;
    if (value.binary() == nullptr) {
        BinarySyntaxNotImplemented(VELTOR_HERE, "ces", value.attrType, std::string(value.text()));
    }
    return value.binary();
}

// ---- cis: text, compared without regard to case ----

int cisCompare(const LDIF_Value& left, const LDIF_Value& right)
{
    return onTextForms(left, right, [](std::string_view leftText, std::string_view rightText) {
        if (leftText.empty()) {
            return rightText.empty() ? 0 : -1;
        }
        return rightText.empty() ? 1 : strcasecmp(leftText.data(), rightText.data());
    });
}

// ---- enum: one of a list ----

namespace {

/// True for one of a type's allowed values in any letter case. The text has no NUL.
bool isAllowed(const _AttrType& type, std::string_view text)
{
    for (const char* const* allowed = type.enumValues; *allowed != nullptr; ++allowed) {
        const bool begins = text.empty() || strncasecmp(*allowed, text.data(), text.size()) == 0;
        if (begins && (*allowed)[text.size()] == '\0') {
            return true;
        }
    }
    return false;
}

} // namespace

void enumFromStr(LDIF_Value& value, const std::string& text)
{
    if (value.attrType == nullptr || value.attrType->enumValues == nullptr) {
        refuse(__LINE__, result::other, unexpected, "Enumerated values undefined", text, value.attrType);
    }
    cisFromStr(value, text);
    if (isAllowed(*value.attrType, value.cText())) {
        return;
    }
    refuse(__LINE__, result::invalidSyntax, enumInvalid, "value not one of attrType.enumValues", text, value.attrType);
}

// ---- int: a number of 32 bits ----

int intCompare(const LDIF_Value& left, const LDIF_Value& right)
{
    const auto leftNumber = static_cast<std::uint32_t>(numberOf(left));
    const auto rightNumber = static_cast<std::uint32_t>(numberOf(right));
    // Right less left, wrapping: both are wanted, the order of stored results relies on them.
    const auto difference = static_cast<std::int32_t>(rightNumber - leftNumber);
    return difference < 0 ? -1 : difference > 0 ? 1 : 0;
}

void intFromStr(LDIF_Value& value, const std::string& text)
{
    const _AttrType* const type = value.attrType;
    const auto refuseSyntax = [&](int line) {
        refuse(line, result::invalidSyntax, intInvalid, "Value is not valid integer syntax", text, type);
    };
    std::string digits = text;
    stripTrailing(stripLeading(digits));
    if (digits.empty()) {
        refuseSyntax(__LINE__);
    }
    const bool negative = digits.front() == '-';
    if (negative || digits.front() == '+') {
        digits.erase(0, 1);
    }
    if (digits.empty() || digits.find_first_not_of(DIGIT) != std::string::npos) {
        refuseSyntax(__LINE__);
    }
    constexpr std::uint32_t lastBeforeOverflow = 214748364;
    constexpr std::uint32_t largest = 2147483647;
    std::uint32_t magnitude = 0;
    for (const char digit : digits) {
        if (magnitude > lastBeforeOverflow) {
            refuseIntRange(__LINE__, text, type);
        }
        magnitude = magnitude * 10 + static_cast<std::uint32_t>(digit - '0');
    }
    if (magnitude > largest + (negative ? 1U : 0U)) {
        refuseIntRange(__LINE__, text, type);
    }
    const auto number = static_cast<std::int32_t>(negative ? 0U - magnitude : magnitude);
    if (type != nullptr && !isRightNumber(*type, number)) {
        refuseIntRange(__LINE__, text, type);
    }
    store(value, number);
}

void intFromBin(LDIF_Value& value, const void* data, int)
{
    std::int32_t number = 0;
    if (data != nullptr) {
        std::memcpy(&number, data, sizeof number);
    }
    // Without an exemption for two zero bounds, on purpose: such a type takes 0 alone in binary form.
    if (value.attrType != nullptr && !inRange(*value.attrType, number)) {
        refuseIntRange(__LINE__, std::to_string(number), value.attrType);
    }
    store(value, number);
}

// ---- mask: a number whose bits are limited ----

void maskFromStr(LDIF_Value& value, const std::string& text)
{
    needMask(value, text);
    intFromStr(value, text);
    checkMask(value, text);
}

void maskFromBin(LDIF_Value& value, const void* data, int length)
{
    needMask(value, "<binary>");
    intFromBin(value, data, length);
    checkMask(value, value.text());
}

// ---- dn: a distinguished name, stored in normal form ----

namespace {

/// A DN from the text of a value; a complaint carries that text and the type.
LDIF_DN parsedDn(std::string_view text, const _AttrType* type, std::string* normalForm)
{
    return wrapping(
        Layer{VELTOR_HERE, ""},
        [&] {
            LDIF_DN dn;
            veltor::detail::parse(dn, text);
            if (normalForm != nullptr) {
                *normalForm = dn.str();
            }
            return dn;
        },
        [&](LDIF_Exception& failure) {
            failure.value = text;
            failure.attrType = type;
        });
}

} // namespace

int dnCompare(const LDIF_Value& left, const LDIF_Value& right)
{
    // A value that was not built by this syntax has no DN: its text is parsed for the comparison.
    LDIF_DN parsed[2];
    const auto dnOf = [](const LDIF_Value& value, LDIF_DN& own) -> const LDIF_DN& {
        if (value.dn() != nullptr) {
            return *value.dn();
        }
        own = parsedDn(*TextForm(value), value.attrType, nullptr);
        return own;
    };
    const LDIF_DN& leftDn = dnOf(left, parsed[0]);
    return leftDn.compare(dnOf(right, parsed[1]));
}

namespace {

void setDnText(LDIF_Value& value, std::string_view text)
{
    std::string normalForm;
    value.setDn(parsedDn(text, value.attrType, &normalForm));
    value.setText(normalForm);
}

} // namespace

void dnFromStr(LDIF_Value& value, const std::string& text)
{
    setDnText(value, text);
}

void dnFromBin(LDIF_Value& value, const void* data, int length)
{
    cisFromBin(value, data, length);
    dnFromStr(value, value.str());
}

// ---- pw: a password, stored encoded ----

bool veltor::detail::isEncoded(std::string_view text)
{
    return !text.empty() && text.front() == '>' && text.back() == '<';
}

int pwCompare(const LDIF_Value& left, const LDIF_Value& right)
{
    return translating(
        Layer{VELTOR_HERE, "System error in pwCompare()"},
        [&] {
            const Decoded leftClear = decoded(left, "_slapd_utils_decode_buffer( left );");
            const Decoded rightClear = decoded(right, "_slapd_utils_decode_buffer( right );");
            if (leftClear != nullptr && rightClear != nullptr) {
                return std::strcmp(leftClear.get(), rightClear.get());
            }
            return leftClear != nullptr ? 1 : rightClear != nullptr ? -1 : 0;
        },
        [&](LDIF_Exception& failure) {
            failure.value = left.text();
            failure.attrType = left.attrType;
        });
}

void pwFromStr(LDIF_Value& value, const std::string& text)
{
    translating(
        Layer{VELTOR_HERE, "System error in pwFromStr()"},
        [&] {
            std::int32_t lo = 1;
            std::int32_t hi = 46;
            if (value.attrType != nullptr) {
                lo = value.attrType->min > 0 ? value.attrType->min : lo;
                hi = value.attrType->max >= lo ? value.attrType->max : hi;
            }
            if (isEncoded(text)) {
                value.setText(text);
                return;
            }
            if (text.size() < static_cast<std::size_t>(lo) || text.size() > static_cast<std::size_t>(hi)) {
                refuse(__LINE__, result::invalidSyntax, lengthRange, lengthMessage("Password ", lo, hi), text,
                       value.attrType);
            }
            char* encoded = nullptr;
            if (const int code = _slapd_utils_encode_buffer(text.c_str(), &encoded, lo, hi); code != 0) {
                refuse(__LINE__, code, code, "_slapd_utils_encode_buffer( left );", text, value.attrType);
            }
            const std::unique_ptr<char, FreeEncoded> owned(encoded);
            value.setText(encoded == nullptr ? "" : encoded);
        },
        [&](LDIF_Exception& failure) {
            failure.value = text;
            failure.attrType = value.attrType;
        });
}

// ---- The road of most values: right, and written as they are stored ----

namespace {

/// A number that is nothing but digits in its shortest form, and surely fits.
std::optional<std::int32_t> plainNumber(std::string_view text)
{
    constexpr std::size_t fewDigits = 9;
    if (text.empty() || text.size() > fewDigits || (text.front() == '0' && text.size() > 1)) {
        return std::nullopt;
    }
    std::int32_t number = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            return std::nullopt;
        }
        number = number * 10 + (character - '0');
    }
    return number;
}

} // namespace

bool veltor::detail::setPlainText(LDIF_Value& value, std::string_view text)
{
    const _AttrType& type = *value.attrType;
    const auto fromStr = type.fromStr;
    if (fromStr == cesFromStr) {
        if (!isLongEnough(type, text)) {
            return false;
        }
    } else if (fromStr == intFromStr || fromStr == maskFromStr) {
        const auto number = plainNumber(text);
        if (!number || !isRightNumber(type, *number) ||
            (fromStr == maskFromStr && (type.bitmask == 0 || !hasRightBits(type, *number)))) {
            return false;
        }
        value.setText(text);
        value.setBinary(&*number, sizeof *number);
        return true;
    } else if (fromStr == enumFromStr) {
        if (type.enumValues == nullptr || !isLongEnough(type, text) || !isAllowed(type, text)) {
            return false;
        }
    } else if (fromStr == dnFromStr) {
        setDnText(value, text);
        return true;
    } else if (fromStr != pwFromStr || !isEncoded(text)) {
        return false;
    }
    value.setText(text);
    return true;
}
