// The default password codec: what the encoder promises for every text, and what the decoder makes of texts
// that no encoder wrote.
#include "veltor/platform.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "failing_malloc.h"

using veltor::test::allocationsFail;

namespace {
// While set, freed blocks are searched for the secret.
std::string_view secretToFind;
int blocksFreed = 0;
int secretsFound = 0;
} // namespace

#if VELTOR_TEST_OWN_ALLOCATOR
extern "C" {
void* __libc_malloc(std::size_t size);
void __libc_free(void* pointer);

__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept
{
    return allocationsFail ? nullptr : __libc_malloc(size);
}

__attribute__((visibility("default"))) void free(void* pointer) noexcept
{
    if (pointer != nullptr && !secretToFind.empty()) {
        ++blocksFreed;
        const void* found = memmem(pointer, malloc_usable_size(pointer), secretToFind.data(), secretToFind.size());
        secretsFound += found != nullptr ? 1 : 0;
    }
    __libc_free(pointer);
}
}
#endif

namespace {
constexpr int constraintViolation = 19;
constexpr int decodingError = 84;
constexpr int paramError = 89;
constexpr int noMemory = 90;

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

struct Outcome
{
    int status = -1;
    std::string text;
};

Outcome encode(const std::string& text, int lo = 0, int hi = INT_MAX)
{
    char* encoded = nullptr;
    const int status = _slapd_utils_encode_buffer(text.c_str(), &encoded, lo, hi);
    Outcome outcome = {status, encoded != nullptr ? encoded : ""};
    EXPECT_EQ(encoded == nullptr, status != 0);
    _slapd_utils_encode_buffer_free(encoded);
    return outcome;
}

Outcome decode(std::string encoded)
{
    const std::string before = encoded;
    char dummy = 'x';
    char* text = &dummy; // a failure has to null it
    const int status = _slapd_utils_decode_buffer(encoded.data(), &text);
    EXPECT_EQ(encoded, before);
    EXPECT_EQ(text == nullptr, status != 0);
    Outcome outcome = {status, text != nullptr ? text : ""};
    _slapd_utils_decode_buffer_free(text);
    return outcome;
}

// Any text without NUL.
rc::Gen<std::string> clearText()
{
    return rc::gen::container<std::string>(
        rc::gen::map(rc::gen::inRange(1, 256), [](int byte) { return static_cast<char>(byte); }));
}

std::string everyByte()
{
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        text += static_cast<char>(byte);
    }
    return text;
}

std::string firstBytes(int count)
{
    return everyByte().substr(0, static_cast<std::size_t>(count));
}
} // namespace

TEST(PasswordCodec, EncodedTextsKeepTheirFormForEver)
{
    // Worked out apart from the codec. Such texts stand in files: a row must never change.
    struct Row
    {
        const char* name;
        std::string clear;
        std::string encoded;
    };
    const Row rows[] = {
        {"empty", "", ">183nfqw<"},
        {"one byte", "a", ">1un632yI<"},
        {"two bytes", "ab", ">1jzsR-_wi<"},
        {"three bytes", "abc", ">1mFHxNgCDpg<"},
        {"a word", "secret", ">1xIheSypXWzXARA<"},
        {"UTF-8",
         "Gr\xC3\xBC\xC3\x9F"
         "e",
         ">1qzxcWTM1yH-GIiU<"},
        {"no text in any encoding", "\xFF\x80\x7F", ">1BrPt7VhHKQ<"},
        {"46 bytes", firstBytes(46), ">1nb5S0Kq1oMm7ddO-n5hs9_lNHOWyJAo2508oEF6SlNzV_pIVkLnabzEW9Uxu9eXTqjg<"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome encoded = encode(row.clear);
        EXPECT_EQ(encoded.status, 0);
        EXPECT_EQ(encoded.text, row.encoded);
        const Outcome decoded = decode(row.encoded);
        EXPECT_EQ(decoded.status, 0);
        EXPECT_EQ(decoded.text, row.clear);
    }
}

TEST(PasswordCodec, EveryByteValueButNulComesBack)
{
    const Outcome decoded = decode(encode(everyByte()).text);
    EXPECT_EQ(decoded.status, 0);
    EXPECT_EQ(decoded.text, everyByte());
}

TEST(PasswordCodec, FortySixCharactersTakeSeventyBytes)
{
    // Stored passwords are decoded from buffers of 256 bytes.
    for (const char filler : {'a', '\x01', '\xFF', '<'}) {
        EXPECT_EQ(encode(std::string(46, filler)).text.size(), 70U);
    }
}

TEST(PasswordCodec, LengthsOutsideTheBoundsAreRefused)
{
    struct Row
    {
        const char* name;
        int length;
        int lo;
        int hi;
        int status;
    };
    const Row rows[] = {
        {"shorter than lo", 0, 1, 46, constraintViolation},
        {"as short as lo", 1, 1, 46, 0},
        {"as long as hi", 46, 1, 46, 0},
        {"longer than hi", 47, 1, 46, constraintViolation},
        {"lo equals hi and the length", 5, 5, 5, 0},
        {"lo equals hi, shorter", 4, 5, 5, constraintViolation},
        {"lo equals hi, longer", 6, 5, 5, constraintViolation},
        {"empty where it is allowed", 0, 0, 0, 0},
        {"a negative lo is no bound", 0, -1, 46, 0},
        {"a negative hi refuses all, the empty text too", 0, 0, -1, constraintViolation},
        {"the smallest bounds", 3, INT_MIN, INT_MIN, constraintViolation},
        {"the widest bounds", 200, INT_MIN, INT_MAX, 0},
        {"bounds the wrong way round", 5, 46, 1, constraintViolation},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome encoded = encode(firstBytes(row.length), row.lo, row.hi);
        EXPECT_EQ(encoded.status, row.status);
        if (row.status == 0) {
            EXPECT_EQ(decode(encoded.text).text, firstBytes(row.length));
        }
    }
}

TEST(PasswordCodec, NullArgumentsAreRefused)
{
    char dummy = 'x';
    char* out = &dummy;
    EXPECT_EQ(_slapd_utils_encode_buffer(nullptr, &out, 0, 46), paramError);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(_slapd_utils_encode_buffer("text", nullptr, 0, 46), paramError);
    EXPECT_EQ(_slapd_utils_encode_buffer(nullptr, nullptr, 0, 46), paramError);

    out = &dummy;
    EXPECT_EQ(_slapd_utils_decode_buffer(nullptr, &out), paramError);
    EXPECT_EQ(out, nullptr);
    std::string encoded = encode("text").text;
    EXPECT_EQ(_slapd_utils_decode_buffer(encoded.data(), nullptr), paramError);
    EXPECT_EQ(_slapd_utils_decode_buffer(nullptr, nullptr), paramError);
}

TEST(PasswordCodec, FreeingNullDoesNothing)
{
    _slapd_utils_encode_buffer_free(nullptr);
    _slapd_utils_decode_buffer_free(nullptr);
    SUCCEED() << "still here";
}

TEST(PasswordCodec, DecodedTextsComeFromMalloc)
{
    std::string encoded = encode("secret").text;
    char* text = nullptr;
    ASSERT_EQ(_slapd_utils_decode_buffer(encoded.data(), &text), 0);
    EXPECT_STREQ(text, "secret");
    std::free(text); // the address sanitizer objects if this is not how it was made
}

TEST(PasswordCodec, TextsThatNoEncoderWroteAreNotDecoded)
{
    struct Row
    {
        const char* name;
        std::string encoded;
    };
    const Row rows[] = {
        {"empty", ""},
        {"a clear text", "secret"},
        {"only a begin", ">"},
        {"only an end", "<"},
        {"an empty frame", "><"},
        {"a frame and a version", ">1<"},
        {"a clear text in the frame", ">secret<"},
        {"no begin", "1xIheSypXWzXARA<"},
        {"no end", ">1xIheSypXWzXARA"},
        {"white space before", " >1xIheSypXWzXARA<"},
        {"white space after", ">1xIheSypXWzXARA< "},
        {"white space inside", ">1xIheSyp XWzXARA<"},
        {"framed twice", ">>1xIheSypXWzXARA<<"},
        {"another version", ">2xIheSypXWzXARA<"},
        {"no version", ">xIheSypXWzXARA<"},
        {"a check that is too short", ">183nfq<"},
        {"a digit too many", ">1xIheSypXWzXARAA<"},
        {"a digit that no byte needs", ">1jzsR-_wiA<"},
        {"padding that is not 0", ">1xIheSypXWzXARB<"},
        {"padding of another alphabet", ">1xIheSypXWzXARA==<"},
        {"digits of another alphabet", ">1xIheSypXWzXAR+<"},
        {"a byte above 0x7F", ">1xIheSypXWzXAR\xC1<"},
        {"a begin inside", ">1xIheSyp>WzXARA<"},
        {"two texts in a row", ">1xIheSypXWzXARA<>1xIheSypXWzXARA<"},
        {"the letters' case changed", ">1XIHESYPXWZXARA<"},
        {"zeros", ">1AAAAAAAA<"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(decode(row.encoded).status, decodingError);
    }
}

TEST(PasswordCodec, ATextWithANulInsideIsNotDecoded)
{
    // Made like the encoder would for the three bytes "a\0b", check and all; the text would end after "a".
    EXPECT_EQ(decode(">1mDPwhTlPhg<").status, decodingError);
}

TEST(PasswordCodec, EverySingleDamageIsNoticed)
{
    for (const std::string& clear : {std::string(), std::string("a"), std::string("secret"), firstBytes(46)}) {
        const std::string good = encode(clear).text;
        ASSERT_EQ(decode(good).status, 0);
        for (std::size_t at = 0; at < good.size(); ++at) {
            for (int byte = 1; byte < 256; ++byte) {
                std::string damaged = good;
                damaged[at] = static_cast<char>(byte);
                if (damaged != good) {
                    ASSERT_EQ(decode(damaged).status, decodingError) << good << " became " << damaged;
                }
            }
            std::string shorter = good;
            shorter.erase(at, 1);
            ASSERT_EQ(decode(shorter).status, decodingError) << good << " became " << shorter;
            ASSERT_EQ(decode(good.substr(0, at)).status, decodingError) << good << " was cut at " << at;
            for (const char digit : digits) {
                std::string longer = good;
                longer.insert(at, 1, digit);
                ASSERT_EQ(decode(longer).status, decodingError) << good << " became " << longer;
            }
        }
    }
}

RC_GTEST_PROP(PasswordCodec, TextsComeBackAndEncodeTheSameEveryTime, ())
{
    const std::string clear = *clearText();
    const Outcome encoded = encode(clear);
    RC_ASSERT(encoded.status == 0);
    RC_ASSERT(encode(clear).text == encoded.text);
    const Outcome decoded = decode(encoded.text);
    RC_ASSERT(decoded.status == 0);
    RC_ASSERT(decoded.text == clear);
}

RC_GTEST_PROP(PasswordCodec, EncodedTextIsAFrameAroundPlainDigits, ())
{
    const std::string clear = *clearText();
    const std::string encoded = encode(clear).text;
    RC_ASSERT(encoded.size() >= 2U);
    RC_ASSERT(encoded.front() == '>');
    RC_ASSERT(encoded.back() == '<');
    const std::string inside = encoded.substr(1, encoded.size() - 2);
    RC_ASSERT(inside.find_first_not_of(digits) == std::string::npos);
    RC_ASSERT(clear.size() < 4 || encoded.find(clear) == std::string::npos);
}

RC_GTEST_PROP(PasswordCodec, DifferentTextsEncodeDifferently, ())
{
    const std::string one = *clearText();
    const std::string other = *clearText();
    RC_PRE(one != other);
    RC_ASSERT(encode(one).text != encode(other).text);
}

RC_GTEST_PROP(PasswordCodec, AnyBytesDecodeToATextThatEncodesToThemOrNotAtAll, ())
{
    std::string bytes = *clearText();
    if (*rc::gen::arbitrary<bool>()) {
        bytes = ">1" + bytes + "<";
    }
    const Outcome decoded = decode(bytes);
    RC_ASSERT(decoded.status == 0 || decoded.status == decodingError);
    RC_ASSERT(decoded.status != 0 || encode(decoded.text).text == bytes);
}

RC_GTEST_PROP(PasswordCodec, AnyDigitsInTheFrameDecodeToATextThatEncodesToThemOrNotAtAll, ())
{
    const std::string bytes = ">1" + *rc::gen::container<std::string>(rc::gen::elementOf(std::string(digits))) + "<";
    const Outcome decoded = decode(bytes);
    RC_ASSERT(decoded.status == 0 || decoded.status == decodingError);
    RC_ASSERT(decoded.status != 0 || encode(decoded.text).text == bytes);
}

TEST(PasswordCodec, AFailedAllocationIsReported)
{
    if (!VELTOR_TEST_OWN_ALLOCATOR) {
        GTEST_SKIP() << "the sanitizer's allocator can't be made to fail; the plain build runs this";
    }
    std::string encoded = encode("secret").text;
    char dummy = 'x';
    char* encodedAgain = &dummy;
    char* text = &dummy;
    allocationsFail = true;
    const int encodeStatus = _slapd_utils_encode_buffer("secret", &encodedAgain, 1, 46);
    const int decodeStatus = _slapd_utils_decode_buffer(encoded.data(), &text);
    allocationsFail = false;
    EXPECT_EQ(encodeStatus, noMemory);
    EXPECT_EQ(encodedAgain, nullptr);
    EXPECT_EQ(decodeStatus, noMemory);
    EXPECT_EQ(text, nullptr);
}

TEST(PasswordCodec, NoFreedMemoryHoldsTheClearText)
{
    if (!VELTOR_TEST_OWN_ALLOCATOR) {
        GTEST_SKIP() << "freed blocks of the sanitizer's allocator can't be looked into; the plain build runs this";
    }
    static constexpr char secret[] = "correct horse battery";
    // The allocator writes its own notes over the first bytes of some blocks, so the search is for the middle.
    constexpr std::string_view middle = "horse batt";
    std::string good = encode(secret).text;
    std::string damaged = good;
    damaged[damaged.size() - 3] = damaged[damaged.size() - 3] == 'A' ? 'B' : 'A'; // in the check

    char* text = nullptr;
    char* encoded = nullptr;
    blocksFreed = 0;
    secretsFound = 0;
    secretToFind = middle;
    const int damagedStatus = _slapd_utils_decode_buffer(damaged.data(), &text);
    const int freedAfterDamaged = blocksFreed;
    const int encodeStatus = _slapd_utils_encode_buffer(secret, &encoded, 1, 46);
    _slapd_utils_encode_buffer_free(encoded);
    const int goodStatus = _slapd_utils_decode_buffer(good.data(), &text);
    _slapd_utils_decode_buffer_free(text);
    const int found = secretsFound;

    // The search finds a secret that is not wiped. A compiler that knows which functions it calls would leave the
    // block out.
    void* (*volatile allocate)(std::size_t) = std::malloc;
    void (*volatile release)(void*) = std::free;
    void* left = allocate(sizeof secret);
    std::memcpy(left, secret, sizeof secret);
    release(left);
    secretToFind = {};

    EXPECT_EQ(damagedStatus, decodingError);
    EXPECT_EQ(freedAfterDamaged, 1);
    EXPECT_EQ(encodeStatus, 0);
    EXPECT_EQ(goodStatus, 0);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(secretsFound, 1);
}
