// The list of secrets, by name and by look.
#include "secrets.h"

#include <algorithm>
#include <strings.h>

namespace veltor::tool {

namespace {

// The attributes with the password syntax; any of them may carry an encoded or a clear text.
constexpr const char* passwords[] = {
    "zor-slapdAdminPW",  "zor-slapdDbUserPW", "zor-slapdLdapCrlPassword",
    "zor-slapdMasterPW", "zor-slapdPeerPW",   "zor-slapdSslKeyDatabasePW",
};

// Their names look like a password's, their values are a setting.
constexpr const char* settings[] = {"zor-slapdPwEncryption", "zor-slapdUseProcessIdPw"};

// The server's environment often carries credentials of other services.
constexpr const char* environment = "zor-slapdSetenv";

// The name under which a load keeps a line that it can't use.
constexpr const char* rejectedLine = "zor-slapdInvalidLine";

bool sameName(std::string_view name, const char* other)
{
    return ::strcasecmp(std::string(name).c_str(), other) == 0;
}

template <std::size_t size>
bool isOneOf(std::string_view name, const char* const (&names)[size])
{
    return std::any_of(std::begin(names), std::end(names), [&](const char* other) { return sameName(name, other); });
}

bool contains(std::string_view text, std::string_view word)
{
    const auto sameLetter = [](char left, char right) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        return lower(left) == lower(right);
    };
    return std::search(text.begin(), text.end(), word.begin(), word.end(), sameLetter) != text.end();
}

bool looksLikePassword(std::string_view name)
{
    return contains(name, "pw") || contains(name, "password");
}

} // namespace

bool isSecret(std::string_view attribute, std::string_view value)
{
    if (isPassword(attribute) || sameName(attribute, environment)) {
        return true;
    }
    if (isOneOf(attribute, settings)) {
        return false;
    }
    if (attribute.empty() || sameName(attribute, rejectedLine)) {
        // A whole line of the file: what stands before a colon is its name, and a mistyped line may have several.
        const std::size_t colon = value.rfind(':');
        return colon != std::string_view::npos && looksLikePassword(value.substr(0, colon));
    }
    return looksLikePassword(attribute);
}

bool isPassword(std::string_view attribute)
{
    return isOneOf(attribute, passwords);
}

std::string quotedUnlessSecret(std::string_view attribute, std::string_view value)
{
    return isSecret(attribute, value) ? "***" : '"' + std::string(value) + '"';
}

} // namespace veltor::tool
