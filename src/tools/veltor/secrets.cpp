// The list of secrets, by the catalogue, by name and by look.
#include "secrets.h"

#include "change_scan.h"
#include "names.h"

#include <algorithm>
#include <string>
#include <vector>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr std::string_view passwordSyntax = "pw";

// The server's environment often carries credentials of other services.
constexpr std::string_view environment = "zor-slapdSetenv";

// The name under which a load keeps a line that it can't use.
constexpr std::string_view rejectedLine = "zor-slapdInvalidLine";

// What a name has in it under which somebody keeps a secret.
constexpr std::string_view secretWords[] = {"pw", "password", "setenv"};

// The longer ones first, so that nothing is left of them.
constexpr std::string_view masks[] = {secretMaskBefore, secretMaskAfter, secretMask};

char lowered(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// @param word  in any letter case
bool contains(std::string_view text, std::string_view word)
{
    const auto sameLetter = [](char left, char right) { return lowered(left) == lowered(right); };
    return std::search(text.begin(), text.end(), word.begin(), word.end(), sameLetter) != text.end();
}

bool looksLikePassword(std::string_view name)
{
    return std::any_of(std::begin(secretWords), std::end(secretWords),
                       [&](std::string_view word) { return contains(name, word); });
}

bool endsLikePassword(std::string_view name)
{
    return std::any_of(std::begin(secretWords), std::end(secretWords), [&](std::string_view word) {
        return name.size() >= word.size() && sameName(name.substr(name.size() - word.size()), word);
    });
}

bool isSecretType(const cfg_attr_type& type)
{
    return type.syntax == passwordSyntax || sameName(type.name, environment);
}

/// True when the name of a password, or of the environment, is in the text.
bool namesSecret(std::string_view text)
{
    // Most texts have none of the words, and are not held against the whole catalogue.
    if (!looksLikePassword(text)) {
        return false;
    }
    return std::any_of(catalogue().begin(), catalogue().end(),
                       [&](const cfg_attr_type& type) { return isSecretType(type) && contains(text, type.name); });
}

std::string_view beforeLastColon(std::string_view text)
{
    const std::size_t colon = text.rfind(':');
    return text.substr(0, colon == std::string_view::npos ? 0 : colon);
}

/// True where a load can't use a value with a colon in it, so that it keeps the whole line. A DN may have a colon, but
/// hardly behind such a word.
bool refusesWithColon(const cfg_attr_type& type, std::string_view value)
{
    const std::string_view syntax = type.syntax;
    const bool isText = syntax != "int" && syntax != "enum" && syntax != "mask" && syntax != "dn";
    return !isText || (type.maximum > 0 && value.size() > static_cast<std::size_t>(type.maximum));
}

/// True for a value that makes its line a rejected one that looks like a secret. Other types hold a path or a URL that
/// has such a word in it for good reason.
bool makesSecretLine(const cfg_attr_type& type, std::string_view value)
{
    return value.find(':') != std::string_view::npos && refusesWithColon(type, value) &&
           (looksLikePassword(type.name) || looksLikePassword(beforeLastColon(value)));
}

/// The length of the numbered mask that a text begins with; 0 for none.
std::size_t numberedMaskLength(std::string_view text)
{
    if (!text.starts_with(numberedMaskBegin)) {
        return 0;
    }
    std::size_t end = text.find_first_not_of("0123456789", numberedMaskBegin.size());
    if (end != std::string_view::npos && end > numberedMaskBegin.size() && text[end] == '-') {
        end = text.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz", end + 1);
    }
    return end == std::string_view::npos || end == numberedMaskBegin.size() || text[end] != ')' ? 0 : end + 1;
}

} // namespace

bool isSecretLine(std::string_view line)
{
    // A mistyped line may have several colons.
    const std::string_view name = beforeLastColon(line);
    const std::optional<cfg_attr_type> type = attributeType(name);
    return type ? isSecretType(*type) : looksLikePassword(name);
}

bool isSecret(std::string_view attribute, std::string_view value)
{
    if (attribute.empty() || sameName(attribute, rejectedLine)) {
        return isSecretLine(value);
    }
    if (const std::optional<cfg_attr_type> type = attributeType(attribute); type) {
        // A line that was meant for a password and indented by mistake is part of the value above it.
        return isSecretType(*type) || namesSecret(beforeLastColon(value)) || makesSecretLine(*type, value);
    }
    return looksLikePassword(attribute) || isSecretLine(value);
}

bool isSecretDn(std::string_view dn)
{
    if (namesSecret(dn)) {
        return true;
    }
    // A DN may have the name of a host and its port in it: a line has a blank behind its colon, or such a word in
    // front.
    for (std::size_t colon = dn.find(':'); colon != std::string_view::npos; colon = dn.find(':', colon + 1)) {
        const std::string_view before = dn.substr(0, colon);
        const bool isLine = colon + 1 == dn.size() || dn[colon + 1] == ' ' || dn[colon + 1] == '\t';
        if ((isLine && looksLikePassword(before)) || endsLikePassword(before)) {
            return true;
        }
    }
    return false;
}

bool isPassword(std::string_view attribute)
{
    const std::optional<cfg_attr_type> type = attributeType(attribute);
    return type && type->syntax == passwordSyntax;
}

std::string numberedMask(std::size_t number, std::string_view tag)
{
    std::string mask = std::string(numberedMaskBegin) + std::to_string(number);
    if (!tag.empty()) {
        mask.append("-").append(tag);
    }
    return mask + ')';
}

bool isMask(std::string_view value)
{
    if (!value.starts_with(secretMask)) {
        return false;
    }
    // A folded value has one on each of its lines.
    while (!value.empty()) {
        if (const std::size_t length = numberedMaskLength(value)) {
            value.remove_prefix(length);
            continue;
        }
        const auto piece = std::find_if(std::begin(masks), std::end(masks),
                                        [&](std::string_view mask) { return value.starts_with(mask); });
        if (piece == std::end(masks)) {
            return false;
        }
        value.remove_prefix(piece->size());
    }
    return true;
}

bool beginsLikeMask(std::string_view hidden)
{
    hidden.remove_prefix(std::min(hidden.find_first_not_of(" \t("), hidden.size()));
    return hidden.starts_with(secretMask);
}

bool isOneWord(std::string_view name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') ||
               std::string_view("-._;").find(character) != std::string_view::npos;
    });
}

std::string_view shownName(std::string_view name)
{
    return isOneWord(name) || !looksLikePassword(name) ? name : secretMask;
}

std::string_view shownDn(std::string_view dn)
{
    return isSecretDn(dn) ? secretMask : dn;
}

std::string quotedUnlessSecret(std::string_view attribute, std::string_view value)
{
    return isSecret(attribute, value) ? std::string(secretMask) : '"' + std::string(value) + '"';
}

} // namespace veltor::tool
