// Text utilities: case-insensitive comparison, trimming, hexadecimal digits and the conversion between the
// locale's encoding and wide characters.
#include "LDIF_Util.h"

#include "LDIF_Exception.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <langinfo.h>
#include <stdexcept>
#include <strings.h>

const std::string empty_str;
const std::string ALPHA = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
const std::string DIGIT = "0123456789";
const std::string hexChar = DIGIT + "ABCDEFabcdef";
const std::string keyChar = ALPHA + DIGIT + "-";
const std::string oidChar = DIGIT + ".";
const std::string special = ",=+<>#;\\\"";

namespace {

constexpr auto conversionFailed = static_cast<std::size_t>(-1);

template <class String>
bool takeHexByte(String& text, char& byte)
{
    if (text.size() < 2) {
        return false;
    }
    const int high = veltor::detail::hexValue(text[0]);
    const int low = veltor::detail::hexValue(text[1]);
    if (high < 0 || low < 0) {
        return false;
    }
    text.erase(0, 2);
    byte = static_cast<char>(high * 16 + low);
    return true;
}

} // namespace

namespace veltor::detail {

bool localeReadsAscii()
{
    // Asked at every call: the host program may have changed the locale since the last one.
    const char* const codeset = nl_langinfo(CODESET);
    return std::strcmp(codeset, "UTF-8") == 0 || std::strcmp(codeset, "ANSI_X3.4-1968") == 0 ||
           std::strncmp(codeset, "ISO-8859-", 9) == 0;
}

bool isPlainAscii(std::string_view text)
{
    return isAsciiWithoutNul(text) && localeReadsAscii();
}

bool isAsciiWithoutNul(std::string_view text)
{
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    constexpr std::uint64_t lowBits = 0x0101010101010101U;
    const char* position = text.data();
    std::size_t left = text.size();
    std::uint64_t found = 0;
    for (; left >= sizeof(std::uint64_t); position += sizeof(std::uint64_t), left -= sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, position, sizeof word);
        // Sets the high bit of a byte that is NUL or above 0x7F. A borrow can only come from a NUL further down.
        found |= (word | (word - lowBits)) & highBits;
    }
    for (; left > 0; ++position, --left) {
        const auto byte = static_cast<unsigned char>(*position);
        found |= byte == 0 || byte > 0x7F ? 1U : 0U;
    }
    return found == 0;
}

} // namespace veltor::detail

using veltor::detail::isAsciiSpace;
using veltor::detail::isPlainAscii;
using veltor::detail::leadingLength;
using veltor::detail::trimmedLength;

cisString& cisString::append(const std::wstring& text, unsigned pos, unsigned n)
{
    if (pos > text.size()) {
        throw std::out_of_range("basic_string::substr");
    }
    std::string::append(wide2multibyte(text.substr(pos, n)));
    return *this;
}

int cisString::compare(const char* other) const
{
    return strcasecmp(c_str(), other);
}

int cisString::compare(const std::string& other) const
{
    return compare(other.c_str());
}

int cisString::compare(const cisString& other) const
{
    return compare(other.c_str());
}

bool w_my_isspace(wchar_t character)
{
    return std::iswspace(static_cast<std::wint_t>(character)) != 0;
}

bool w_my_isparen(wchar_t character)
{
    return character == L'(' || character == L')';
}

bool w_isBlank(const std::wstring& text)
{
    return std::all_of(text.begin(), text.end(), w_my_isspace);
}

bool isBlank(const std::string& text)
{
    if (isPlainAscii(text)) {
        return std::all_of(text.begin(), text.end(), isAsciiSpace);
    }
    return w_isBlank(multibyte2wide(text));
}

std::wstring& w_stripLeading(std::wstring& text)
{
    text.erase(0, leadingLength(text, w_my_isspace));
    return text;
}

std::string& stripLeading(std::string& text)
{
    if (isPlainAscii(text)) {
        text.erase(0, leadingLength(text, isAsciiSpace));
        return text;
    }
    std::wstring wide = multibyte2wide(text);
    return text = wide2multibyte(w_stripLeading(wide));
}

std::wstring& w_stripTrailing(std::wstring& text)
{
    text.erase(trimmedLength(text, w_my_isspace));
    return text;
}

std::string& stripTrailing(std::string& text)
{
    if (isPlainAscii(text)) {
        text.erase(trimmedLength(text, isAsciiSpace));
        return text;
    }
    std::wstring wide = multibyte2wide(text);
    return text = wide2multibyte(w_stripTrailing(wide));
}

bool w_hex2byte(std::wstring& text, char& byte)
{
    return takeHexByte(text, byte);
}

bool hex2byte(std::string& text, char& byte)
{
    if (isPlainAscii(text)) {
        return takeHexByte(text, byte);
    }
    std::wstring wide = multibyte2wide(text);
    if (!w_hex2byte(wide, byte)) {
        return false;
    }
    text = wide2multibyte(wide);
    return true;
}

void byte2hex(unsigned byte, std::string& text)
{
    constexpr char digits[] = "0123456789ABCDEF";
    text += digits[byte >> 4U & 0xFU];
    text += digits[byte & 0xFU];
}

std::wstring multibyte2wide(const std::string& text)
{
    if (text.empty()) {
        return {};
    }
    const std::size_t length = std::mbstowcs(nullptr, text.c_str(), 0);
    if (length == 0) {
        return {};
    }
    if (length != conversionFailed) {
        std::wstring wide(length, L'\0');
        const std::size_t converted = std::mbstowcs(wide.data(), text.c_str(), length + 1);
        if (converted != 0 && converted != conversionFailed) {
            wide.resize(converted);
            return wide;
        }
    }
    LDIF_Exception failure(VELTOR_HERE, veltor::result::notWide, veltor::result::notWide,
                           ("mbstowcs( " + text + " )").c_str());
    failure.value = text;
    throw failure;
}

std::string wide2multibyte(const std::wstring& text)
{
    if (text.empty()) {
        return {};
    }
    const std::size_t length = std::wcstombs(nullptr, text.c_str(), 0);
    if (length == 0) {
        return {};
    }
    if (length != conversionFailed) {
        std::string narrow(length, '\0');
        const std::size_t converted = std::wcstombs(narrow.data(), text.c_str(), length + 1);
        if (converted != 0 && converted != conversionFailed) {
            narrow.resize(converted);
            return narrow;
        }
    }
    throw LDIF_Exception(VELTOR_HERE, veltor::result::notNarrow, veltor::result::notNarrow, "wcstombs()");
}
