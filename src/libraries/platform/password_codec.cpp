// The default password codec. It hides a password from a glance and from nothing else: there is no key, and
// whoever reads the file and this source has the password. What protects a password is the mode of the file.
//
// An encoded text is
//     ">" version digits "<"
// where the digits are base 64 (6 bits each, the first bit first, padding bits 0) over
//     clear text, CRC-32 of version and clear text (4 bytes, the lowest first)
// and every byte of these is XORed with the next byte of a veil that depends on their number alone. A changed
// digit, or up to five in a row, never goes unnoticed; any other damage does once in 2^32.
#include "veltor/platform.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {
// LDAP result codes, as numbers: LDAP client libraries disagree on the macros above 80.
enum Result : int {
    success = 0,
    constraintViolation = 19,
    decodingError = 84,
    paramError = 89,
    noMemory = 90,
};

// Stored in files: keep the characters, and their order. None of them means anything to LDIF, to a filter or
// to a shell, and none is white space or a parenthesis, which loading a value would strip.
constexpr char frameBegin = '>';
constexpr char frameEnd = '<';
constexpr char version = '1';
constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::size_t frameSize = 3; // the frame and the version

constexpr unsigned digitBits = 6;
constexpr unsigned digitMask = 0x3F;
constexpr std::size_t checkSize = 4;

// The digits that this many bytes take.
std::size_t digitCount(std::size_t bytes)
{
    constexpr std::size_t ofRest[] = {0, 2, 3};
    return bytes / 3 * 4 + ofRest[bytes % 3];
}

// The bytes that this many digits hold. One digit left over holds none; see decodeDigits.
std::size_t byteCount(std::size_t count)
{
    constexpr std::size_t ofRest[] = {0, 0, 1, 2};
    return count / 4 * 3 + ofRest[count % 4];
}

// CRC-32 (reflected polynomial 0xEDB88320) without a table: passwords are short.
std::uint32_t addToCheck(std::uint32_t check, unsigned char byte)
{
    check ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
        check = (check >> 1) ^ ((check & 1) != 0 ? 0xEDB88320U : 0U);
    }
    return check;
}

std::uint32_t checkOf(const char* text, std::size_t length)
{
    std::uint32_t check = addToCheck(0xFFFFFFFFU, static_cast<unsigned char>(version));
    for (std::size_t i = 0; i < length; ++i) {
        check = addToCheck(check, static_cast<unsigned char>(text[i]));
    }
    return ~check;
}

// A fixed sequence of bytes for every length (xorshift).
class Veil
{
public:
    // Never 0, which the sequence would not leave.
    explicit Veil(std::size_t length) : state_((static_cast<std::uint32_t>(length) * 0x9E3779B9U) | 1U) {}

    unsigned next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_ >> 24;
    }

private:
    std::uint32_t state_;
};

// The value of a digit, or -1 for a character that is none.
int digitValue(char character)
{
    const void* found = character == '\0' ? nullptr : std::memchr(digits, character, sizeof digits - 1);
    return found == nullptr ? -1 : static_cast<int>(static_cast<const char*>(found) - digits);
}

// Writes the digits of text and check. Works a byte at a time, so that no copy of the clear text is left behind.
char* encodeDigits(const char* text, std::size_t length, char* out)
{
    const std::uint32_t check = checkOf(text, length);
    Veil veil(length + checkSize);
    unsigned bits = 0;
    unsigned waiting = 0; // how many of the lowest bits are not written yet
    for (std::size_t i = 0; i < length + checkSize; ++i) {
        const unsigned byte = i < length ? static_cast<unsigned char>(text[i]) : (check >> (8 * (i - length))) & 0xFF;
        bits = (bits << 8) | (byte ^ veil.next());
        for (waiting += 8; waiting >= digitBits; waiting -= digitBits) {
            *out++ = digits[(bits >> (waiting - digitBits)) & digitMask];
        }
    }
    if (waiting > 0) {
        *out++ = digits[(bits << (digitBits - waiting)) & digitMask];
    }
    return out;
}

// Reads `count` digits into byteCount(count) bytes. Gives false for a character that is no digit and for digits
// that no encoder writes: a lone last one, or bits set beyond the last byte.
bool decodeDigits(const char* in, std::size_t count, char* out)
{
    Veil veil(byteCount(count));
    unsigned bits = 0;
    unsigned waiting = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int value = digitValue(in[i]);
        if (value < 0) {
            return false;
        }
        bits = (bits << digitBits) | static_cast<unsigned>(value);
        waiting += digitBits;
        if (waiting >= 8) {
            waiting -= 8;
            *out++ = static_cast<char>(((bits >> waiting) & 0xFF) ^ veil.next());
        }
    }
    return waiting < digitBits && (bits & ((1U << waiting) - 1)) == 0;
}

// Whether the bytes are a clear text and the check that belongs to it. A NUL inside would cut the text short.
bool isIntact(const char* bytes, std::size_t length)
{
    const std::uint32_t check = checkOf(bytes, length);
    for (std::size_t i = 0; i < checkSize; ++i) {
        if (static_cast<unsigned char>(bytes[length + i]) != ((check >> (8 * i)) & 0xFF)) {
            return false;
        }
    }
    return std::memchr(bytes, '\0', length) == nullptr;
}
} // namespace

int _slapd_utils_encode_buffer(const char* text, char** encoded, int lo, int hi)
{
    if (encoded == nullptr) {
        return paramError;
    }
    *encoded = nullptr;
    if (text == nullptr) {
        return paramError;
    }
    const std::size_t length = std::strlen(text);
    if (hi < 0 || length > static_cast<std::size_t>(hi) || (lo > 0 && length < static_cast<std::size_t>(lo))) {
        return constraintViolation;
    }
    auto* out = static_cast<char*>(std::malloc(frameSize + digitCount(length + checkSize) + 1));
    if (out == nullptr) {
        return noMemory;
    }
    out[0] = frameBegin;
    out[1] = version;
    char* end = encodeDigits(text, length, out + 2);
    end[0] = frameEnd;
    end[1] = '\0';
    *encoded = out;
    return success;
}

void _slapd_utils_encode_buffer_free(char* encoded)
{
    std::free(encoded);
}

int _slapd_utils_decode_buffer(char* encoded, char** text)
{
    if (text == nullptr) {
        return paramError;
    }
    *text = nullptr;
    if (encoded == nullptr) {
        return paramError;
    }
    const std::size_t length = std::strlen(encoded);
    if (length < frameSize + digitCount(checkSize) || encoded[0] != frameBegin || encoded[1] != version ||
        encoded[length - 1] != frameEnd) {
        return decodingError;
    }
    const std::size_t count = length - frameSize;
    const std::size_t bytes = byteCount(count);
    auto* out = static_cast<char*>(std::malloc(bytes));
    if (out == nullptr) {
        return noMemory;
    }
    const std::size_t textLength = bytes - checkSize;
    if (!decodeDigits(encoded + 2, count, out) || !isIntact(out, textLength)) {
        explicit_bzero(out, bytes);
        std::free(out);
        return decodingError;
    }
    // The check gives its first byte to the NUL. The rest goes too: it tells something of the text.
    explicit_bzero(out + textLength, checkSize);
    *text = out;
    return success;
}

void _slapd_utils_decode_buffer_free(char* text)
{
    if (text != nullptr) {
        explicit_bzero(text, std::strlen(text));
        std::free(text);
    }
}
