// What the password syntax makes of its codec: this program puts a codec of its own in place of the platform's, one
// that records its calls, fails on demand and counts what is released. It has to be linked as a program of its own.
#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "LDIF_Value.h"

#include "support/failure_of.h"
#include "veltor/platform.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using veltor::test::failureOf;

namespace {

struct EncodeCall
{
    std::string text;
    int lo;
    int hi;

    bool operator==(const EncodeCall&) const = default;
};

/// The codec's state for the time of one test. An encoded text is ">", one character that tells two encodings of
/// the same text apart, the clear text, "<".
struct Codec
{
    enum class Throws { nothing, foreign, own };

    std::vector<EncodeCall> encodeCalls;
    std::vector<std::string> decodeCalls;
    int encodeCode = 0;
    Throws encodeThrows = Throws::nothing;
    std::string refusedText; ///< decoding this text fails, with decodeCode or as decodeThrows says
    int decodeCode = 0;
    Throws decodeThrows = Throws::nothing;
    std::multiset<char*> encodedOut; ///< handed out by the encoder and not released yet
    std::multiset<char*> decodedOut;
    int encodedFrees = 0;
    int decodedFrees = 0;
};

Codec codec;

void raise(Codec::Throws what)
{
    if (what == Codec::Throws::foreign) {
        throw std::runtime_error("codec");
    }
    if (what == Codec::Throws::own) {
        throw LDIF_Exception("codec.cpp", 7, 53, 1010, "codec");
    }
}

char* copyOf(const std::string& text)
{
    return strdup(text.c_str());
}

} // namespace

int _slapd_utils_encode_buffer(const char* text, char** encoded, int lo, int hi)
{
    codec.encodeCalls.push_back({text, lo, hi});
    raise(codec.encodeThrows);
    *encoded = nullptr;
    if (codec.encodeCode != 0) {
        return codec.encodeCode;
    }
    *encoded = copyOf(">1" + std::string(text) + "<");
    codec.encodedOut.insert(*encoded);
    return 0;
}

void _slapd_utils_encode_buffer_free(char* encoded)
{
    ++codec.encodedFrees;
    EXPECT_EQ(codec.encodedOut.erase(encoded), 1U) << "released what the encoder did not hand out";
    std::free(encoded);
}

int _slapd_utils_decode_buffer(char* encoded, char** text)
{
    const std::string given = encoded;
    codec.decodeCalls.push_back(given);
    // A decoder may use what it reads as working space.
    std::memset(encoded, '#', given.size());
    *text = nullptr;
    if (given == codec.refusedText) {
        raise(codec.decodeThrows);
        if (codec.decodeCode != 0) {
            return codec.decodeCode;
        }
    }
    *text = copyOf(given.substr(2, given.size() - 3));
    codec.decodedOut.insert(*text);
    return 0;
}

void _slapd_utils_decode_buffer_free(char* text)
{
    ++codec.decodedFrees;
    EXPECT_EQ(codec.decodedOut.erase(text), 1U) << "released what the decoder did not hand out";
    std::free(text);
}

namespace {

class SyntaxPwCodec : public testing::Test
{
protected:
    SyntaxPwCodec() { codec = Codec(); }

    ~SyntaxPwCodec() override
    {
        EXPECT_TRUE(codec.encodedOut.empty()) << "an encoded text was never released";
        EXPECT_TRUE(codec.decodedOut.empty()) << "a decoded text was never released";
    }

    const _AttrType* type = getAttrType("zor-slapdAdminPW");
    const _AttrType* otherType = getAttrType("zor-slapdMasterPW");
};

/// Codes that a codec may choose; the library hands them on without a look.
constexpr int codes[] = {1, 19, 53, 80, 84, 90, 1000, -1};

} // namespace

// ---- pwFromStr ----

TEST_F(SyntaxPwCodec, EncoderGetsTheTextAndTheBounds)
{
    EXPECT_EQ(LDIF_Value(type, "secret").str(), ">1secret<");
    _AttrType bounded = *type;
    bounded.min = 5;
    bounded.max = 7;
    LDIF_Value(&bounded, "secret");
    bounded.min = 0;
    bounded.max = 0;
    LDIF_Value(&bounded, " (x) ");
    bounded.min = 5;
    bounded.max = 3;
    LDIF_Value(&bounded, "12345");
    const std::vector<EncodeCall> expected = {{"secret", 1, 46}, {"secret", 5, 7}, {" (x) ", 1, 46}, {"12345", 5, 46}};
    EXPECT_EQ(codec.encodeCalls, expected);
    EXPECT_EQ(codec.encodedFrees, 4);
    EXPECT_TRUE(codec.decodeCalls.empty());
}

TEST_F(SyntaxPwCodec, EncodedTextDoesNotReachTheEncoder)
{
    const std::string longText = ">" + std::string(1000, 'x') + "<";
    for (const char* text : {"><", ">x<", longText.c_str()}) {
        EXPECT_EQ(LDIF_Value(type, text).str(), text);
    }
    EXPECT_TRUE(codec.encodeCalls.empty());
    EXPECT_EQ(codec.encodedFrees, 0);
    EXPECT_EQ(LDIF_Value(type, ">x").str(), ">1>x<");
    EXPECT_EQ(LDIF_Value(type, "x<").str(), ">1x<<");
    EXPECT_EQ(LDIF_Value(type, ">").str(), ">1><");
    EXPECT_EQ(codec.encodeCalls.size(), 3U);
}

TEST_F(SyntaxPwCodec, TextOfABadLengthDoesNotReachTheEncoder)
{
    for (const std::string& text : {std::string(), std::string(47, 'x')}) {
        const auto failure = failureOf([&] { LDIF_Value(type, text.c_str()); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->extErr, 1018);
    }
    EXPECT_TRUE(codec.encodeCalls.empty());
}

TEST_F(SyntaxPwCodec, EncoderFailureGivesItsCodeTwice)
{
    for (const int code : codes) {
        SCOPED_TRACE(code);
        codec.encodeCode = code;
        LDIF_Value value(type, ">old<");
        const auto failure = failureOf([&] { pwFromStr(value, "secret"); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, code);
        EXPECT_EQ(failure->extErr, code);
        EXPECT_EQ(failure->msg, "_slapd_utils_encode_buffer( left );");
        EXPECT_EQ(failure->value, "secret");
        EXPECT_EQ(failure->attrType, type);
        EXPECT_EQ(failure->nested, nullptr);
    }
    EXPECT_EQ(codec.encodedFrees, 0);
}

TEST_F(SyntaxPwCodec, EncoderFailureIsWrappedByTheValue)
{
    codec.encodeCode = 53;
    const auto failure = failureOf([&] { LDIF_Value(type, "secret"); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 53);
    EXPECT_EQ(failure->extErr, 53);
    EXPECT_EQ(failure->msg, "_slapd_utils_encode_buffer( left );");
    EXPECT_EQ(failure->value, "secret");
    EXPECT_EQ(failure->attribute, "zor-slapdAdminPW");
    EXPECT_NE(failure->nested, nullptr);
}

TEST_F(SyntaxPwCodec, ForeignExceptionOfTheEncoderIsASystemError)
{
    codec.encodeThrows = Codec::Throws::foreign;
    LDIF_Value value(type, ">old<");
    const auto failure = failureOf([&] { pwFromStr(value, "secret"); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 80);
    EXPECT_EQ(failure->extErr, 1000);
    EXPECT_EQ(failure->msg, "System error in pwFromStr()");
}

TEST_F(SyntaxPwCodec, OwnExceptionOfTheEncoderGoesThrough)
{
    codec.encodeThrows = Codec::Throws::own;
    LDIF_Value value(type, ">old<");
    const auto failure = failureOf([&] { pwFromStr(value, "secret"); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 53);
    EXPECT_EQ(failure->extErr, 1010);
    EXPECT_EQ(failure->msg, "codec");
}

// ---- pwCompare ----

TEST_F(SyntaxPwCodec, ComparesClearTextsWhateverTheEncoding)
{
    struct Row
    {
        const char* left;
        const char* right;
        int expected;
    };
    constexpr Row rows[] = {
        {">1secret<", ">2secret<", 0}, {">9a<", ">1b<", -1}, {">1b<", ">9a<", 1},
        {">1A<", ">1a<", -1},          {">1<", ">2<", 0},    {">1<", ">1a<", -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.left) + " " + row.right);
        codec = Codec();
        const int result = pwCompare(LDIF_Value(type, row.left), LDIF_Value(type, row.right));
        EXPECT_EQ(result < 0 ? -1 : result > 0 ? 1 : 0, row.expected);
        EXPECT_EQ(codec.decodeCalls, (std::vector<std::string>{row.left, row.right}));
        EXPECT_EQ(codec.decodedFrees, 2);
    }
}

TEST_F(SyntaxPwCodec, DecoderWorksOnACopy)
{
    const LDIF_Value left(type, ">1secret<");
    const LDIF_Value right(type, ">2secret<");
    EXPECT_EQ(pwCompare(left, right), 0);
    EXPECT_EQ(left.str(), ">1secret<");
    EXPECT_EQ(right.str(), ">2secret<");
}

TEST_F(SyntaxPwCodec, DecoderGetsTheWholeTextHoweverLong)
{
    const std::string text = ">1" + std::string(100000, 'x') + "<";
    EXPECT_EQ(pwCompare(LDIF_Value(type, text.c_str()), LDIF_Value(type, text.c_str())), 0);
    EXPECT_EQ(codec.decodeCalls, (std::vector<std::string>{text, text}));
}

TEST_F(SyntaxPwCodec, EmptyTextIsNotDecodedAndIsTheSmallest)
{
    const LDIF_Value empty(type, nullptr, 0);
    const LDIF_Value secret(type, ">1secret<");
    ASSERT_EQ(empty.str(), "");
    EXPECT_EQ(pwCompare(secret, empty), 1);
    EXPECT_EQ(codec.decodedFrees, 1);
    EXPECT_EQ(pwCompare(empty, secret), -1);
    EXPECT_EQ(codec.decodedFrees, 2);
    EXPECT_EQ(pwCompare(empty, empty), 0);
    EXPECT_EQ(codec.decodedFrees, 2);
    EXPECT_EQ(codec.decodeCalls, (std::vector<std::string>{">1secret<", ">1secret<"}));
}

TEST_F(SyntaxPwCodec, DecoderFailureOnTheLeftGivesItsCodeTwice)
{
    const LDIF_Value left(type, ">1left<");
    const LDIF_Value right(otherType, ">1right<");
    codec.refusedText = ">1left<";
    for (const int code : codes) {
        SCOPED_TRACE(code);
        codec.decodeCalls.clear();
        codec.decodeCode = code;
        const auto failure = failureOf([&] { pwCompare(left, right); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, code);
        EXPECT_EQ(failure->extErr, code);
        EXPECT_EQ(failure->msg, "_slapd_utils_decode_buffer( left );");
        EXPECT_EQ(failure->value, ">1left<");
        EXPECT_EQ(failure->attrType, type);
        EXPECT_EQ(failure->nested, nullptr);
        // The right side is not looked at any more.
        EXPECT_EQ(codec.decodeCalls, std::vector<std::string>{">1left<"});
    }
    EXPECT_EQ(codec.decodedFrees, 0);
}

TEST_F(SyntaxPwCodec, DecoderFailureOnTheRightReleasesTheLeft)
{
    const LDIF_Value left(type, ">1left<");
    const LDIF_Value right(otherType, ">1right<");
    codec.refusedText = ">1right<";
    for (const int code : codes) {
        SCOPED_TRACE(code);
        codec.decodedFrees = 0;
        codec.decodeCode = code;
        const auto failure = failureOf([&] { pwCompare(left, right); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, code);
        EXPECT_EQ(failure->extErr, code);
        EXPECT_EQ(failure->msg, "_slapd_utils_decode_buffer( right );");
        EXPECT_EQ(failure->value, ">1right<");
        EXPECT_EQ(failure->attrType, otherType);
        EXPECT_EQ(failure->nested, nullptr);
        EXPECT_EQ(codec.decodedFrees, 1);
    }
}

TEST_F(SyntaxPwCodec, DecoderFailureBesideAnEmptyText)
{
    const LDIF_Value empty(type, nullptr, 0);
    const LDIF_Value right(otherType, ">1right<");
    codec.refusedText = ">1right<";
    codec.decodeCode = 84;
    const auto onTheRight = failureOf([&] { pwCompare(empty, right); });
    ASSERT_TRUE(onTheRight.has_value());
    EXPECT_EQ(onTheRight->msg, "_slapd_utils_decode_buffer( right );");
    const auto onTheLeft = failureOf([&] { pwCompare(right, empty); });
    ASSERT_TRUE(onTheLeft.has_value());
    EXPECT_EQ(onTheLeft->msg, "_slapd_utils_decode_buffer( left );");
    EXPECT_EQ(codec.decodedFrees, 0);
}

TEST_F(SyntaxPwCodec, ForeignExceptionOfTheDecoderIsASystemErrorWithTheLeftText)
{
    const LDIF_Value left(type, ">1left<");
    const LDIF_Value right(otherType, ">1right<");
    codec.decodeThrows = Codec::Throws::foreign;
    for (const char* refused : {">1left<", ">1right<"}) {
        SCOPED_TRACE(refused);
        codec.refusedText = refused;
        codec.decodedFrees = 0;
        const auto failure = failureOf([&] { pwCompare(left, right); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->ldapErr, 80);
        EXPECT_EQ(failure->extErr, 1000);
        EXPECT_EQ(failure->msg, "System error in pwCompare()");
        EXPECT_EQ(failure->value, ">1left<");
        // What the left side had been decoded to is released.
        EXPECT_EQ(codec.decodedFrees, refused == std::string(">1left<") ? 0 : 1);
    }
}

TEST_F(SyntaxPwCodec, OwnExceptionOfTheDecoderGoesThrough)
{
    codec.decodeThrows = Codec::Throws::own;
    codec.refusedText = ">1right<";
    const LDIF_Value left(type, ">1left<");
    const LDIF_Value right(type, ">1right<");
    const auto failure = failureOf([&] { pwCompare(left, right); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->ldapErr, 53);
    EXPECT_EQ(failure->extErr, 1010);
    EXPECT_EQ(failure->msg, "codec");
    EXPECT_EQ(codec.decodedFrees, 1);
}

// ---- Value lists of passwords ----

TEST_F(SyntaxPwCodec, TwoEncodingsOfOnePasswordAreDuplicates)
{
    LDIF_Values list("zor-slapdAdminPW");
    list += ">2secret<";
    list += ">3secret<";
    list += "secret";
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list.str(), "zor-slapdAdminPW: >2secret<\n");
    list += "Secret";
    EXPECT_EQ(list.size(), 2U);
    list -= "secret";
    EXPECT_EQ(list.str(), "zor-slapdAdminPW: >1Secret<\n");
}

TEST_F(SyntaxPwCodec, UndecodableStoredPasswordFailsTheComparisonsOfTheList)
{
    LDIF_Values list("zor-slapdAdminPW");
    list += ">2bad<";
    codec.refusedText = ">2bad<";
    codec.decodeCode = 84;
    const auto added = failureOf([&] { list += "secret"; });
    ASSERT_TRUE(added.has_value());
    EXPECT_EQ(added->ldapErr, 84);
    EXPECT_EQ(added->msg, "_slapd_utils_decode_buffer( left );");
    EXPECT_EQ(list.str(), "zor-slapdAdminPW: >2bad<\n");
    const auto removed = failureOf([&] { list -= "secret"; });
    ASSERT_TRUE(removed.has_value());
    EXPECT_EQ(removed->ldapErr, 84);
    EXPECT_EQ(removed->extErr, 84);
    EXPECT_EQ(removed->value, "secret");
    EXPECT_EQ(removed->attrType, type);
    EXPECT_NE(removed->nested, nullptr);
    EXPECT_EQ(list.str(), "zor-slapdAdminPW: >2bad<\n");
}

TEST_F(SyntaxPwCodec, ManyPasswordsAreDecodedOnceOrTwiceEach)
{
    // Each against each would be half a million times.
    constexpr int count = 1000;
    LDIF_Values list("zor-slapdAdminPW");
    for (int key = 0; key < count; ++key) {
        list += ">2secret" + std::to_string(key) + "<";
    }
    ASSERT_EQ(list.size(), static_cast<std::size_t>(count));
    EXPECT_LT(codec.decodeCalls.size(), 2U * count);
    codec.decodeCalls.clear();
    for (int key = 0; key < count; ++key) {
        list += "secret" + std::to_string(key);
    }
    ASSERT_EQ(list.size(), static_cast<std::size_t>(count));
    // The new one for its key, and both to be sure that they are equal.
    EXPECT_LE(codec.decodeCalls.size(), 3U * count);
}

TEST_F(SyntaxPwCodec, UndecodablePasswordAmongManyComplainsAsAmongFew)
{
    for (const int count : {3, 100}) {
        SCOPED_TRACE(count);
        codec.refusedText.clear();
        LDIF_Values list("zor-slapdAdminPW");
        for (int key = 0; key < count; ++key) {
            list += ">2secret" + std::to_string(key) + "<";
        }
        codec.decodeCode = 84;
        codec.refusedText = ">2secret1<";
        LDIF_Values copy(list);
        const auto left = failureOf([&] { copy += "another"; });
        ASSERT_TRUE(left.has_value());
        EXPECT_EQ(left->ldapErr, 84);
        EXPECT_EQ(left->msg, "_slapd_utils_decode_buffer( left );");
        EXPECT_EQ(left->value, ">2secret1<");
        // What stands before it is found all the same.
        EXPECT_FALSE(failureOf([&] { copy += "secret0"; }).has_value());
        EXPECT_EQ(copy.size(), static_cast<std::size_t>(count));

        codec.refusedText = ">2bad<";
        const auto right = failureOf([&] { list += ">2bad<"; });
        ASSERT_TRUE(right.has_value());
        EXPECT_EQ(right->msg, "_slapd_utils_decode_buffer( right );");
        EXPECT_EQ(right->value, ">2bad<");
        EXPECT_EQ(list.size(), static_cast<std::size_t>(count));
    }
}
