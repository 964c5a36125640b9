// What a finding may say.
#include "finding_text.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <optional>
#include <vector>

#include <strings.h>

namespace veltor::detail {

namespace {

// The server's environment often carries credentials of other services.
constexpr char environmentName[] = "zor-slapdSetenv";

char lowered(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::string lowered(std::string_view text)
{
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), [](char character) { return lowered(character); });
    return folded;
}

/// @param word  in lower case
bool contains(std::string_view text, std::string_view word)
{
    return std::search(text.begin(), text.end(), word.begin(), word.end(),
                       [](char left, char right) { return lowered(left) == right; }) != text.end();
}

/// Separators of lines, and marks that turn the direction of what is written.
bool disturbsLine(wchar_t code)
{
    return code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

std::string escaped(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[5];
        std::snprintf(digits, sizeof digits, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += digits;
    }
    return text;
}

} // namespace

std::string quoted(std::string_view text)
{
    constexpr std::size_t most = 80;
    std::string shown = "\"";
    std::mbstate_t state = {};
    const std::string_view whole = text;
    while (!text.empty() && whole.size() - text.size() < most) {
        wchar_t character = 0;
        std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        // A NUL has length 0; the other two say that no character is here.
        const bool isCharacter = length != 0 && length <= text.size();
        if (!isCharacter) {
            length = 1;
            state = {};
        }
        const std::string_view bytes = text.substr(0, length);
        const bool prints =
            isCharacter && std::iswprint(static_cast<std::wint_t>(character)) != 0 && !disturbsLine(character);
        shown += prints ? std::string(bytes) : escaped(bytes);
        text.remove_prefix(length);
    }
    return shown + (text.empty() ? "\"" : "...\"");
}

bool isSecretType(const _AttrType& type)
{
    return type.fromStr == pwFromStr || (type.name != nullptr && strcasecmp(type.name, environmentName) == 0);
}

namespace {

bool hasSecretWord(std::string_view text)
{
    return contains(text, "pw") || contains(text, "password") || contains(text, "setenv");
}

} // namespace

bool looksSecret(std::string_view text)
{
    return hasSecretWord(text.substr(0, text.rfind(':')));
}

bool namesSecretAttribute(std::string_view text)
{
    return hasSecretWord(text) && std::any_of(attrMapArray.begin(), attrMapArray.end(), [text](const _AttrType& type) {
               return isSecretType(type) && contains(text, lowered(type.name));
           });
}

// ---- Names that are near ----

namespace {

/// The number of characters to insert, delete or replace to make one text of another, for any number of other texts:
/// the columns of the table are the bits of a word.
class EditDistance
{
public:
    static constexpr std::size_t longest = 64;

    /// @param text  1 to `longest` characters
    explicit EditDistance(std::string_view text) : size_(text.size())
    {
        for (std::size_t index = 0; index < text.size(); ++index) {
            places_[static_cast<unsigned char>(text[index])] |= std::uint64_t{1} << index;
        }
    }

    std::size_t to(std::string_view other) const
    {
        std::uint64_t increases = ~std::uint64_t{0};
        std::uint64_t decreases = 0;
        std::size_t distance = size_;
        const std::uint64_t last = std::uint64_t{1} << (size_ - 1);
        for (const char character : other) {
            const std::uint64_t equal = places_[static_cast<unsigned char>(character)];
            const std::uint64_t vertical = equal | decreases;
            const std::uint64_t horizontal = (((equal & increases) + increases) ^ increases) | equal;
            std::uint64_t more = decreases | ~(horizontal | increases);
            std::uint64_t less = increases & horizontal;
            distance += (more & last) != 0 ? 1 : 0;
            distance -= (less & last) != 0 ? 1 : 0;
            more = more << 1U | 1U;
            less <<= 1U;
            increases = less | ~(vertical | more);
            decreases = more & vertical;
        }
        return distance;
    }

private:
    std::array<std::uint64_t, 256> places_{};
    std::size_t size_;
};

constexpr std::string_view longPrefix = "zor-slapd";
constexpr std::string_view prefix = "zor-";

/// A name without its prefix, which most names share and which therefore says nothing.
std::string_view shortName(std::string_view name)
{
    for (const std::string_view candidate : {longPrefix, prefix}) {
        if (name.starts_with(candidate)) {
            return name.substr(candidate.size());
        }
    }
    return name;
}

/// How far a name of that length may be off.
std::size_t mostSlips(std::size_t length)
{
    constexpr std::size_t steps[] = {3, 4, 9};
    return static_cast<std::size_t>(
        std::count_if(std::begin(steps), std::end(steps), [=](std::size_t step) { return length >= step; }));
}

/// The names of the catalogue in lower case, made once.
const std::vector<std::string>& loweredNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(attrMapArray.size());
        for (const _AttrType& type : attrMapArray) {
            all.push_back(type.name != nullptr ? lowered(type.name) : std::string());
        }
        return all;
    }();
    return names;
}

} // namespace

const _AttrType* nearestAttribute(std::string_view name)
{
    if (name.empty() || name.size() > EditDistance::longest) {
        return nullptr;
    }
    const std::string wanted = lowered(name);
    const std::string_view wantedShort = shortName(wanted);
    const _AttrType* nearest = nullptr;
    std::size_t least = EditDistance::longest;
    const auto compare = [&](const std::optional<EditDistance>& from, std::size_t length, std::string_view known,
                             const _AttrType& type) {
        const std::size_t limit = std::min(mostSlips(length), least - 1);
        const std::size_t differ = known.size() > length ? known.size() - length : length - known.size();
        if (from && differ <= limit) {
            if (const std::size_t distance = from->to(known); distance <= limit) {
                least = distance;
                nearest = &type;
            }
        }
    };
    std::optional<EditDistance> fromShort;
    std::optional<EditDistance> fromWhole;
    if (!wantedShort.empty()) {
        fromShort.emplace(wantedShort);
    }
    if (!wanted.starts_with(longPrefix)) {
        // The slip may be in the prefix.
        fromWhole.emplace(wanted);
    }
    for (std::size_t index = 0; index < attrMapArray.size() && least > 0; ++index) {
        const std::string& known = loweredNames()[index];
        if (!known.empty()) {
            compare(fromShort, wantedShort.size(), shortName(known), attrMapArray[index]);
        }
        if (!known.empty() && least > 0) {
            compare(fromWhole, wanted.size(), known, attrMapArray[index]);
        }
    }
    return nearest;
}

// ---- Reasons ----

std::string reasonOfDn(int code)
{
    switch (code) {
    case 1011:
        return "an attribute type is missing in it";
    case 1012:
        return "an attribute type in it is not valid, or is not followed by \"=\"";
    case 1013:
        return "a value is missing in it";
    case 1014:
        return "a value in it has a character or an escape that is not allowed";
    default:
        return "it can't be read (code " + std::to_string(code) + ")";
    }
}

std::string reasonOf(const LDIF_Exception& refusal, const _AttrType& type)
{
    const auto range = [&type] { return std::to_string(type.min) + " to " + std::to_string(type.max); };
    switch (refusal.extErr) {
    case 1011:
    case 1012:
    case 1013:
    case 1014:
        return "it is not a valid DN: " + reasonOfDn(refusal.extErr);
    case 1015:
        return type.min == 0 && type.max == 0 ? "it is too large for a number of 32 bits"
               : type.min == type.max         ? "it is not " + std::to_string(type.min)
                                              : "it is not a number from " + range();
    case 1016:
        return "it is not an integer";
    case 1017: {
        std::string list;
        for (const char* const* allowed = type.enumValues; allowed != nullptr && *allowed != nullptr; ++allowed) {
            list.append(list.empty() ? "" : ", ").append(*allowed);
        }
        return "it is none of: " + list;
    }
    case 1018:
        return "it does not have " + range() + " characters";
    case 1019: {
        char mask[16];
        std::snprintf(mask, sizeof mask, "0x%X", static_cast<unsigned>(type.bitmask));
        return std::string("it has bits outside ") + mask;
    }
    default:
        return "it is refused with code " + std::to_string(refusal.extErr != 0 ? refusal.extErr : refusal.ldapErr);
    }
}

} // namespace veltor::detail
