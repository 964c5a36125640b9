// Case-insensitive strings and the text utilities beneath everything else.
//
// The functions that look at characters work in the encoding of the process locale: they widen their input.
// Text of plain ASCII takes a short road with the same result. The library does not change the locale after
// cfg_init; a host program may, between two calls.
#ifndef VELTOR_LDIF_UTIL_H
#define VELTOR_LDIF_UTIL_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace veltor::detail {
class SharedName;
} // namespace veltor::detail

/// A string that compares without regard to case, as strcasecmp does: byte by byte, folded as the process
/// locale folds, up to the first NUL. It keeps its text as it was given.
///
/// Never deleted through a pointer to it, so it has no virtual destructor; the order of its virtual functions
/// is ABI.
class cisString : public std::string
{
public:
    cisString() = default;
    cisString(const char* text) : std::string(text) {}
    cisString(const std::string& text) : std::string(text) {}
    cisString(std::string&& text) noexcept : std::string(std::move(text)) {}
    /// With compare() below: the name of a value list serves wherever a std::string does.
    cisString(const veltor::detail::SharedName& name);
    cisString(const cisString&) = default;
    cisString(cisString&&) noexcept = default;
    cisString& operator=(const cisString&) = default;
    cisString& operator=(cisString&&) noexcept = default;
    ~cisString() = default;

    using std::string::append;

    /// Appends at most n characters of a wide text from pos on, converted to the locale's encoding.
    ///
    /// @throws std::out_of_range when pos lies behind the end
    /// @throws LDIF_Exception 163/163 for a character that the locale can't represent
    virtual cisString& append(const std::wstring& text, unsigned pos, unsigned n);

    virtual int compare(const char* other) const;
    virtual int compare(const std::string& other) const;
    virtual int compare(const cisString& other) const;
    int compare(const veltor::detail::SharedName& other) const;

    virtual bool operator==(const char* other) const { return compare(other) == 0; }
    virtual bool operator==(const std::string& other) const { return compare(other) == 0; }
    virtual bool operator==(const cisString& other) const { return compare(other) == 0; }
    virtual bool operator<(const char* other) const { return compare(other) < 0; }
    virtual bool operator<(const std::string& other) const { return compare(other) < 0; }
    virtual bool operator<(const cisString& other) const { return compare(other) < 0; }
    virtual bool operator>(const char* other) const { return compare(other) > 0; }
    virtual bool operator>(const std::string& other) const { return compare(other) > 0; }
    virtual bool operator>(const cisString& other) const { return compare(other) > 0; }
    virtual bool operator!=(const char* other) const { return compare(other) != 0; }
    virtual bool operator!=(const std::string& other) const { return compare(other) != 0; }
    virtual bool operator!=(const cisString& other) const { return compare(other) != 0; }
    virtual bool operator<=(const char* other) const { return compare(other) <= 0; }
    virtual bool operator<=(const std::string& other) const { return compare(other) <= 0; }
    virtual bool operator<=(const cisString& other) const { return compare(other) <= 0; }
    virtual bool operator>=(const char* other) const { return compare(other) >= 0; }
    virtual bool operator>=(const std::string& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const cisString& other) const { return compare(other) >= 0; }
};

extern const std::string empty_str;
extern const std::string ALPHA;   ///< the ASCII letters
extern const std::string DIGIT;   ///< the decimal digits
extern const std::string hexChar; ///< the 22 hexadecimal digits: decimal, upper case, lower case; the order matters
extern const std::string keyChar; ///< what a named attribute type in a DN is made of
extern const std::string oidChar; ///< what a numeric attribute type in a DN is made of
extern const std::string special; ///< the characters that a plain value in a DN escapes

bool w_my_isspace(wchar_t character);
bool w_my_isparen(wchar_t character);

/// True for a text of white space alone, and for the empty text.
/// @throws LDIF_Exception 162/162 (the narrow form) for text that the locale can't read
bool isBlank(const std::string& text);
bool w_isBlank(const std::wstring& text);

/// Remove white space and parentheses from one end, in place, and return their argument. Parentheses go on
/// purpose: values and filters are written with or without them.
/// @throws LDIF_Exception 162/162 (the narrow forms) for text that the locale can't read
std::string& stripLeading(std::string& text);
std::wstring& w_stripLeading(std::wstring& text);

/// A text of white space and parentheses alone keeps its first character when that is a parenthesis.
std::string& stripTrailing(std::string& text);
std::wstring& w_stripTrailing(std::wstring& text);

/// Takes two hexadecimal digits off the front of the text.
///
/// @param byte  receives their value
/// @return      false, with the text untouched, when it does not begin with two such digits
/// @throws LDIF_Exception 162/162 (the narrow form) for text that the locale can't read
bool hex2byte(std::string& text, char& byte);
bool w_hex2byte(std::wstring& text, char& byte);

/// Appends the low byte as two upper-case hexadecimal digits.
void byte2hex(unsigned byte, std::string& text);

/// Converts from the locale's encoding, up to the first NUL.
/// @throws LDIF_Exception 162/162 with the text as its value
std::wstring multibyte2wide(const std::string& text);

/// Converts to the locale's encoding, up to the first NUL.
/// @throws LDIF_Exception 163/163
std::string wide2multibyte(const std::wstring& text);

namespace veltor::detail {

/// True when the text is free of NUL and of bytes above 0x7F, and the locale in force reads ASCII as ASCII:
/// then the narrow road gives what the wide one would.
bool isPlainAscii(std::string_view text);

/// The same without a look at the text.
bool localeReadsAscii();

/// The same without a look at the locale.
bool isAsciiWithoutNul(std::string_view text);

/// True for the six ASCII characters that every locale counts as white space.
constexpr bool isAsciiSpace(char character)
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// How much of a text is left when white space and parentheses are taken off its end. The character that ends
/// the walk stays unless it is white space, so "( )" keeps its first character: deliberate, a value made of
/// parentheses must not vanish.
template <class Text, class IsSpace>
constexpr std::size_t trimmedLength(const Text& text, IsSpace isSpace)
{
    std::size_t position = text.size();
    while (position > 0) {
        --position;
        const auto character = text[position];
        if (!isSpace(character) && character != '(' && character != ')') {
            break;
        }
    }
    return position < text.size() && !isSpace(text[position]) ? position + 1 : position;
}

/// How many characters of white space and parentheses a text begins with.
template <class Text, class IsSpace>
constexpr std::size_t leadingLength(const Text& text, IsSpace isSpace)
{
    std::size_t count = 0;
    while (count < text.size() && (isSpace(text[count]) || text[count] == '(' || text[count] == ')')) {
        ++count;
    }
    return count;
}

/// The value of a hexadecimal digit, or -1.
template <class Character>
constexpr int hexValue(Character character)
{
    if (character >= Character('0') && character <= Character('9')) {
        return static_cast<int>(character - Character('0'));
    }
    if (character >= Character('A') && character <= Character('F')) {
        return static_cast<int>(character - Character('A')) + 10;
    }
    if (character >= Character('a') && character <= Character('f')) {
        return static_cast<int>(character - Character('a')) + 10;
    }
    return -1;
}

} // namespace veltor::detail

#endif
