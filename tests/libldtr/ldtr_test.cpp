// The trace helpers against a trace service that records what it is handed. The service is this program's own:
// that the helpers reach it is also the proof that a program can put its services in place of the defaults.
#include "veltor/ldtr.h"
#include "veltor/platform.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <optional>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

// How allocations are counted. A sanitizer that brings its own allocator also offers a hook into it; everywhere
// else this program's malloc stands before the system library's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELTOR_TEST_ALLOCATOR_HOOK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define VELTOR_TEST_ALLOCATOR_HOOK 1
#endif
#endif
#ifndef VELTOR_TEST_ALLOCATOR_HOOK
#define VELTOR_TEST_ALLOCATOR_HOOK 0
#endif
#if VELTOR_TEST_ALLOCATOR_HOOK
// Not every compiler installs the header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));
#endif

namespace {
thread_local bool counting = false;
thread_local int allocations = 0;

void countAllocation()
{
    allocations += counting ? 1 : 0;
}

#if VELTOR_TEST_ALLOCATOR_HOOK
const int hooksInstalled = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { countAllocation(); }, [](const volatile void*) {});
#else
const int hooksInstalled = 1;
#endif
} // namespace

#if !VELTOR_TEST_ALLOCATOR_HOOK
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept
{
    countAllocation();
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept
{
    countAllocation();
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* pointer, std::size_t size) noexcept
{
    countAllocation();
    return __libc_realloc(pointer, size);
}
}
#endif

namespace {
// A call that reached the service. Fixed arrays: the recording itself must not allocate.
struct Call
{
    enum Kind { record, print } kind;
    uint32_t recordWord;
    uint32_t classWord;
    const void* object;
    uint32_t length;
    bool dataIsNull;
    std::array<char, 10000> data; // of a record its data, of a printed line its text
    std::array<uint32_t, 4> reserved;
    unsigned long type;
    const char* fmt;

    std::string text() const { return {data.data(), length}; }
};

std::array<Call, 8> calls;
std::size_t callCount = 0;
int serviceResult = 0; // of trcInit and trcWriteRec
int initCalls = 0;

Call& nextCall(Call::Kind kind)
{
    Call& call = calls.at(callCount++);
    call = Call();
    call.kind = kind;
    return call;
}
} // namespace

// The address sanitizer takes two definitions of a variable for a mistake. Here the second one, in the library of
// the defaults, is the one that is replaced; 1 lets it pass where both have the same size.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "detect_odr_violation=1";
}

uint32_t trcEvents = 0;

int trcInit(void)
{
    ++initCalls;
    return serviceResult;
}

int trcWriteRec(uint32_t record, uint32_t cls, const void* object, uint32_t length, const void* data,
                uint32_t reserved1, uint32_t reserved2, uint32_t reserved3, uint32_t reserved4)
{
    Call& call = nextCall(Call::record);
    call.recordWord = record;
    call.classWord = cls;
    call.object = object;
    call.length = length;
    call.dataIsNull = data == nullptr;
    if (data != nullptr) {
        std::memcpy(call.data.data(), data, std::min<std::size_t>(length, call.data.size()));
    }
    call.reserved = {reserved1, reserved2, reserved3, reserved4};
    errno = EDOM; // a service may do that
    return serviceResult;
}

void PrintDebugVa(unsigned long type, const char* fmt, va_list ap)
{
    Call& call = nextCall(Call::print);
    call.type = type;
    call.fmt = fmt;
    if (fmt != nullptr) {
        const int length = std::vsnprintf(call.data.data(), call.data.size(), fmt, ap);
        call.length = length < 0 ? 0 : static_cast<uint32_t>(length);
    }
}

namespace {
int safer(int size, char* dst, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int result = safer_vsprintf(size, dst, fmt, ap);
    va_end(ap);
    return result;
}

int writeFormatted(unsigned long record, unsigned long cls, const void* object, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(record, cls, object, fmt, ap);
    va_end(ap);
    return result;
}

// Formats with the same text for each of many arguments; what the format does not ask for is not read.
template <std::size_t... Index>
int saferWithRepeated(char* dst, int size, const std::string& fmt, const char* argument,
                      std::index_sequence<Index...> /*arguments*/)
{
    return safer(size, dst, fmt.c_str(), (static_cast<void>(Index), argument)...);
}

// Makes an argument list null where that is possible: where va_list is a pointer, or becomes one as a parameter.
template <typename List>
bool makeNull(List& ap)
{
    if constexpr (std::is_pointer_v<List>) {
        ap = nullptr;
        return true;
    } else {
        return false;
    }
}

// The results of calls with a null list; nothing where there is no such list.
std::optional<int> saferWithNull(int size, char* dst, const char* fmt, va_list ap)
{
    return makeNull(ap) ? std::optional(safer_vsprintf(size, dst, fmt, ap)) : std::nullopt;
}

std::optional<int> saferWithNullList(int size, char* dst, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const std::optional<int> result = saferWithNull(size, dst, fmt, ap);
    va_end(ap);
    return result;
}

std::optional<int> writeWithNull(const char* fmt, va_list ap)
{
    return makeNull(ap) ? std::optional(ldtr_write(0, 0, nullptr, fmt, ap)) : std::nullopt;
}

std::optional<int> writeWithNullList(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const std::optional<int> result = writeWithNull(fmt, ap);
    va_end(ap);
    return result;
}

// Sets a locale for the length of a test.
class LocaleForTest
{
public:
    explicit LocaleForTest(const char* name) { EXPECT_NE(std::setlocale(LC_ALL, name), nullptr) << name; }
    ~LocaleForTest() { std::setlocale(LC_ALL, before_.c_str()); }
    LocaleForTest(const LocaleForTest&) = delete;
    LocaleForTest& operator=(const LocaleForTest&) = delete;

private:
    std::string before_ = std::setlocale(LC_ALL, nullptr);
};

// A service without memory of the test before.
class Ldtr : public testing::Test
{
protected:
    void SetUp() override
    {
        callCount = 0;
        serviceResult = 0;
        initCalls = 0;
        trcEvents = 0;
    }
};

using LdtrWrite = Ldtr;
using LdtrExitErrcode = Ldtr;
using LdtrFormaterGlobal = Ldtr;
using LdtrFormaterLocal = Ldtr;

// The one record that the service got since the test began.
const Call& onlyRecord()
{
    EXPECT_EQ(callCount, 1U);
    EXPECT_EQ(calls[0].kind, Call::record);
    EXPECT_EQ(calls[0].reserved, (std::array<uint32_t, 4>{}));
    return calls[0];
}

void expectWords(const Call& call, uint32_t recordWord, uint32_t classWord, const void* object)
{
    EXPECT_EQ(call.recordWord, recordWord);
    EXPECT_EQ(call.classWord, classWord);
    EXPECT_EQ(call.object, object);
}

void expectRecord(const Call& call, uint32_t recordWord, uint32_t classWord, const void* object,
                  const std::string& text)
{
    expectWords(call, recordWord, classWord, object);
    EXPECT_EQ(call.text(), text);
}

const int someObject = 0;
const int otherObject = 0;
} // namespace

// ---- safer_vsprintf ----

TEST(SaferVsprintf, EveryCodeHasItsConditionAndTheFirstThatHoldsIsGiven)
{
    const LocaleForTest locale("C");
    std::array<char, 8192> buffer;
    constexpr int whole = 8192;
    const std::string literal600(600, 'a');
    const std::string literal500(500, 'a');
    const std::string tooLongRewritten = std::string(492, 'a') + "%s";
    const std::string tooLongRewrittenAndFailing = "%2147483648d%s" + std::string(485, 'a');
    struct Row
    {
        const char* name;
        int result;
        int size;
        bool dst;
        const char* fmt;
    };
    const Row rows[] = {
        {"1: no destination", 1, whole, false, "x"},
        {"1 before 2, 3", 1, 0, false, nullptr},
        {"1 before 6", 1, whole, false, literal600.c_str()},
        {"2: size 0", 2, 0, true, "x"},
        {"2: a negative size", 2, -1, true, "x"},
        {"2 before 3", 2, 0, true, nullptr},
        {"2 before 5", 2, 0, true, literal600.c_str()},
        {"3: no format", 3, whole, true, nullptr},
        {"3 where nothing could fit", 3, 1, true, nullptr},
        {"5: a format as long as the destination", 5, 10, true, "0123456789"},
        {"5: a longer format", 5, 9, true, "0123456789"},
        {"5: size 1", 5, 1, true, "x"},
        {"5 before 6: as long", 5, 600, true, literal600.c_str()},
        {"5 before 6: longer", 5, 100, true, literal600.c_str()},
        {"5 before 7", 5, 494, true, tooLongRewritten.c_str()},
        {"5 before 8", 5, 12, true, "%2147483648d"},
        {"6: a format of 500 bytes", 6, whole, true, literal500.c_str()},
        {"6: a format of 600 bytes", 6, 601, true, literal600.c_str()},
        {"7: no room for the rewritten format", 7, whole, true, tooLongRewritten.c_str()},
        {"7 before 8", 7, whole, true, tooLongRewrittenAndFailing.c_str()},
        {"8: a text longer than any number", 8, whole, true, "%2147483648d "},
        {"8 before 9", 8, 15, true, "%2147483648d "},
        {"9: a text as long as the destination", 9, 10, true, "%10d"},
        {"9: a longer text", 9, 10, true, "%20d"},
        {"0: a text one byte shorter", 0, 10, true, "%9d"},
        {"0: an empty text in one byte", 0, 1, true, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(safer(row.size, row.dst ? buffer.data() : nullptr, row.fmt, 7, "x"), row.result);
    }
}

TEST(SaferVsprintf, ANullArgumentListIsCodeFourWhereThereCanBeOne)
{
    std::array<char, 100> buffer;
    if (!saferWithNullList(100, buffer.data(), "x").has_value()) {
        GTEST_SKIP() << "a va_list of this machine is a structure and never null";
    }
    const std::string literal600(600, 'a');
    EXPECT_EQ(saferWithNullList(100, buffer.data(), "x"), 4);
    EXPECT_EQ(saferWithNullList(100, nullptr, "x"), 1);
    EXPECT_EQ(saferWithNullList(0, buffer.data(), "x"), 2);
    EXPECT_EQ(saferWithNullList(100, buffer.data(), nullptr), 3);
    EXPECT_EQ(saferWithNullList(1, buffer.data(), "x"), 4) << "4 before 5";
    EXPECT_EQ(saferWithNullList(1000, buffer.data(), literal600.c_str()), 4) << "4 before 6";
}

TEST(SaferVsprintf, ACharacterThatTheLocaleCantWriteIsCodeEight)
{
    std::array<char, 100> buffer;
    const auto euro = static_cast<std::wint_t>(0x20AC);
    {
        const LocaleForTest locale("C");
        EXPECT_EQ(safer(100, buffer.data(), "%lc", euro), 8);
    }
    {
        const LocaleForTest locale("C.UTF-8");
        EXPECT_EQ(safer(100, buffer.data(), "%lc", euro), 0);
        EXPECT_STREQ(buffer.data(), "\xE2\x82\xAC");
    }
}

TEST(SaferVsprintf, ATextNeedsAByteForItsNul)
{
    for (const int size : {4, 5, 10, 11, 500, 1000, 8192}) { // the format itself needs 4
        for (int length = size - 2; length <= size + 1; ++length) {
            SCOPED_TRACE(std::to_string(length) + " bytes into " + std::to_string(size));
            // Guard bytes behind the destination, which nothing may touch.
            std::string buffer(static_cast<std::size_t>(size) + 16, '~');
            EXPECT_EQ(safer(size, buffer.data(), "%*d", length, 7), length < size ? 0 : 9);
            EXPECT_EQ(buffer.substr(static_cast<std::size_t>(size)), std::string(16, '~'));
            if (length < size) {
                EXPECT_EQ(std::strlen(buffer.data()), static_cast<std::size_t>(length));
            }
        }
    }
}

TEST(SaferVsprintf, AStringOfTwentyOrTenDoesNotFitTenBytesAndOneOfNineDoes)
{
    std::array<char, 10> buffer;
    EXPECT_EQ(safer(10, buffer.data(), "%s", "12345678901234567890"), 9);
    EXPECT_EQ(safer(10, buffer.data(), "%s", "1234567890"), 9);
    EXPECT_EQ(safer(10, buffer.data(), "%s", "123456789"), 0);
    EXPECT_STREQ(buffer.data(), "123456789");
}

TEST(SaferVsprintf, AFormatOfFiveHundredBytesIsRefusedAndOneShorterIsNot)
{
    std::array<char, 8192> buffer;
    const std::string longest(499, 'a');
    const std::string tooLong(500, 'a');
    EXPECT_EQ(safer(8192, buffer.data(), longest.c_str(), 0), 0);
    EXPECT_EQ(buffer.data(), longest);
    EXPECT_EQ(safer(8192, buffer.data(), tooLong.c_str(), 0), 6);
    EXPECT_EQ(safer(501, buffer.data(), tooLong.c_str(), 0), 6);
    EXPECT_EQ(safer(500, buffer.data(), tooLong.c_str(), 0), 5);
}

TEST(SaferVsprintf, TheRewrittenFormatHasRoomForFourHundredAndNinetyNineBytes)
{
    const auto repeated = [](int count, const std::string& text) {
        std::string result;
        for (int i = 0; i < count; ++i) {
            result += text;
        }
        return result;
    };
    const std::string conversion = "%s";
    struct Row
    {
        const char* name;
        std::string fmt;
        int result;
        std::string text;
    };
    const Row rows[] = {
        {"the tail fits to the byte", conversion + std::string(491, 'a'), 0,
         std::string(1, 'x') + std::string(491, 'a')},
        {"the tail is a byte too long", conversion + std::string(492, 'a'), 7, ""},
        {"the replacement fits to the byte", std::string(491, 'a') + "%s", 0, std::string(491, 'a') + "x"},
        {"the replacement is a byte too long", std::string(492, 'a') + "%s", 7, ""},
        {"as many strings as fit", repeated(62, "%s"), 0, std::string(62, 'x')},
        {"as many strings as fit, and the last bytes", repeated(62, "%s") + "abc", 0, std::string(62, 'x') + "abc"},
        {"a byte more", repeated(62, "%s") + "abcd", 7, ""},
        {"a string more", repeated(63, "%s"), 7, ""},
        {"doubled percent signs do not grow", repeated(249, "%%") + "a", 0, std::string(249, '%') + "a"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::array<char, 8192> buffer;
        EXPECT_EQ(saferWithRepeated(buffer.data(), 8192, row.fmt, "x", std::make_index_sequence<64>()), row.result);
        if (row.result == 0) {
            EXPECT_EQ(buffer.data(), row.text);
        }
    }
}

TEST(SaferVsprintf, OnlyTheBareStringConversionIsCapped)
{
    const std::string fifteenHundred(1500, 'a');
    const std::string thousand(1000, 'a');
    struct Row
    {
        const char* fmt;
        std::string text;
    };
    const Row rows[] = {
        {"%s", thousand},
        {"[%s]", "[" + thousand + "]"},
        {"%%", "%"},
        {"%%%s", "%" + thousand},
        {"%%s", "%s"}, // a percent sign and a letter
        {"%%%%s", "%%s"},
        {"%%%%%s", "%%" + thousand},
        {"%% and %s", "% and " + thousand},
        {"%-s", fifteenHundred},
        {"%.1200s", std::string(1200, 'a')},
        {"%.3s", "aaa"},
        {"%1600s", std::string(100, ' ') + fifteenHundred},
        {"%1$s", fifteenHundred},
        {"s%ss", "s" + thousand + "s"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.fmt);
        std::array<char, 8192> buffer;
        EXPECT_EQ(safer(8192, buffer.data(), row.fmt, fifteenHundred.c_str()), 0);
        EXPECT_EQ(buffer.data(), row.text);
    }
}

TEST(SaferVsprintf, EachStringIsCappedOnItsOwn)
{
    const std::string a(1500, 'a');
    const std::string b(1000, 'b');
    const std::string c(999, 'c');
    std::array<char, 8192> buffer;
    EXPECT_EQ(safer(8192, buffer.data(), "%s%d%s%s%lx", a.c_str(), 7, b.c_str(), c.c_str(), 0xABCUL), 0);
    EXPECT_EQ(buffer.data(), std::string(1000, 'a') + "7" + b + c + "abc");
}

TEST(SaferVsprintf, NothingIsReadBehindAThousandBytes)
{
    // No NUL: the address sanitizer objects to the first byte too many.
    const std::vector<char> unterminated(1000, 'a');
    std::array<char, 8192> buffer;
    EXPECT_EQ(safer(8192, buffer.data(), "%s", unterminated.data()), 0);
    EXPECT_EQ(buffer.data(), std::string(1000, 'a'));
}

TEST(SaferVsprintf, TheOtherConversionsWorkAsEver)
{
    std::array<char, 100> buffer;
    EXPECT_EQ(safer(100, buffer.data(), "%d %5u %-3c| %#lx %p %.2f %s", -1, 42U, 'c', 255UL, nullptr, 0.5, "end"), 0);
    EXPECT_STREQ(buffer.data(), "-1    42 c  | 0xff (nil) 0.50 end");
}

namespace {
// What the function is to give for a format made of pieces, worked out from the pieces.
struct Expected
{
    int result;
    std::string text;
};

enum class Piece { literal, doubledPercent, string };

Expected expected(const std::vector<Piece>& pieces, const std::string& literal, const std::string& argument, int size)
{
    std::size_t fmtLength = 0;
    std::size_t rewrittenLength = 0;
    std::string text;
    for (const Piece piece : pieces) {
        switch (piece) {
        case Piece::literal:
            fmtLength += literal.size();
            rewrittenLength += literal.size();
            text += literal;
            break;
        case Piece::doubledPercent:
            fmtLength += 2;
            rewrittenLength += 2;
            text += '%';
            break;
        case Piece::string:
            fmtLength += 2;
            rewrittenLength += 8;
            text += argument.substr(0, 1000);
            break;
        }
    }
    const auto room = static_cast<std::size_t>(size);
    return {fmtLength >= room       ? 5
            : fmtLength > 499       ? 6
            : rewrittenLength > 499 ? 7
            : text.size() >= room   ? 9
                                    : 0,
            text};
}
} // namespace

RC_GTEST_PROP(SaferVsprintf, AgreesWithWhatItsPiecesAddUpTo, ())
{
    const auto pieces = *rc::gen::resize(16, rc::gen::container<std::vector<Piece>>(rc::gen::element(
                                                 Piece::literal, Piece::doubledPercent, Piece::string)));
    const std::string literal(*rc::gen::element<std::size_t>(0, 1, 2, 29, 30, 31, 120, 491, 499), 's');
    const std::string argument(*rc::gen::element<std::size_t>(0, 1, 2, 400, 999, 1000, 1001, 1500), 'a');
    const int size = *rc::gen::oneOf(rc::gen::inRange(1, 600), rc::gen::inRange(1, 8193), rc::gen::just(8192));
    std::string fmt;
    for (const Piece piece : pieces) {
        fmt += piece == Piece::literal ? literal : piece == Piece::string ? "%s" : "%%";
    }
    std::string buffer(static_cast<std::size_t>(size) + 1, '~');
    RC_ASSERT(pieces.size() <= 64U);
    const int result = saferWithRepeated(buffer.data(), size, fmt, argument.c_str(), std::make_index_sequence<64>());
    const Expected want = expected(pieces, literal, argument, size);
    RC_ASSERT(result == want.result);
    RC_ASSERT(buffer.back() == '~');
    if (result == 0) {
        RC_ASSERT(want.text == buffer.c_str());
    }
}

// ---- ldtr_init and ldtr_write ----

TEST_F(Ldtr, InitGivesTheResultOfTheService)
{
    for (const int result : {0, 1, -1, 13}) {
        serviceResult = result;
        EXPECT_EQ(ldtr_init(), result);
    }
    EXPECT_EQ(initCalls, 4);
    EXPECT_EQ(callCount, 0U);
}

TEST_F(LdtrWrite, AFormattedRecordCarriesItsWordsItsObjectAndTheTextWithoutNul)
{
    serviceResult = 17;
    EXPECT_EQ(writeFormatted(0x03000001, 0xC8000002, &someObject, "%s=%d", "port", 389), 17);
    const Call& call = onlyRecord();
    expectWords(call, 0x03000001U, 0xC8000002U, &someObject);
    EXPECT_FALSE(call.dataIsNull);
    EXPECT_EQ(call.text(), "port=389");
}

TEST_F(LdtrWrite, AnEmptyTextIsARecordOfLengthZero)
{
    const char* empty = "";
    EXPECT_EQ(writeFormatted(1, 2, nullptr, empty, 0), 0);
    EXPECT_EQ(onlyRecord().length, 0U);
    EXPECT_EQ(onlyRecord().object, nullptr);
}

TEST_F(LdtrWrite, ABareRecordHasNoData)
{
    serviceResult = 17;
    EXPECT_EQ(ldtr_write(0x03000001, 0xC8000002, &someObject), 17);
    const Call& call = onlyRecord();
    expectWords(call, 0x03000001U, 0xC8000002U, &someObject);
    EXPECT_EQ(call.length, 0U);
    EXPECT_TRUE(call.dataIsNull);
}

TEST_F(LdtrWrite, WordsAreTheLowerThirtyTwoBits)
{
    constexpr unsigned long high = ~0xFFFFFFFFUL;
    ldtr_write(high | 0x03000001, high | 0xC8000002, nullptr);
    writeFormatted(high | 0x03000001, high | 0xC8000002, nullptr, "%s", "x");
    ASSERT_EQ(callCount, 2U);
    for (std::size_t i = 0; i < callCount; ++i) {
        EXPECT_EQ(calls[i].recordWord, 0x03000001U);
        EXPECT_EQ(calls[i].classWord, 0xC8000002U);
    }
}

TEST_F(LdtrWrite, ATextHasAtMostEightThousandOneHundredAndNinetyOneBytes)
{
    const std::string thousand(1000, 'a');
    const char* a = thousand.c_str();
    EXPECT_EQ(writeFormatted(1, 2, nullptr, "%s%s%s%s%s%s%s%s%*d", a, a, a, a, a, a, a, a, 191, 7), 0);
    EXPECT_EQ(onlyRecord().text(), std::string(8000, 'a') + std::string(190, ' ') + "7");
    callCount = 0;
    EXPECT_EQ(writeFormatted(1, 2, nullptr, "%s%s%s%s%s%s%s%s%*d", a, a, a, a, a, a, a, a, 192, 7), 0);
    EXPECT_EQ(onlyRecord().text(), "!!! safer_vsprintf error 9 !!!");
}

TEST_F(LdtrWrite, AFormatThatCantBeUsedLeavesARecordThatSaysSo)
{
    const std::string literal500(500, 'a');
    const std::string literal9000(9000, 'a');
    const std::string tooLongRewritten = std::string(492, 'a') + "%s";
    struct Row
    {
        const char* name;
        const char* fmt;
        const char* text;
    };
    const Row rows[] = {
        {"no format", nullptr, "!!! safer_vsprintf error 3 !!!"},
        {"a format as long as the buffer", literal9000.c_str(), "!!! safer_vsprintf error 5 !!!"},
        {"a long format", literal500.c_str(), "!!! safer_vsprintf error 6 !!!"},
        {"a format that grows too long", tooLongRewritten.c_str(), "!!! safer_vsprintf error 7 !!!"},
        {"a format that the formatter refuses", "%2147483648d ", "!!! safer_vsprintf error 8 !!!"},
        {"a text that is too long", "%8192d", "!!! safer_vsprintf error 9 !!!"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        callCount = 0;
        serviceResult = 5;
        EXPECT_EQ(writeFormatted(1, 2, &someObject, row.fmt, 7), 5);
        expectRecord(onlyRecord(), 1U, 2U, &someObject, row.text);
    }
}

TEST_F(LdtrWrite, ANullArgumentListLeavesARecordThatSaysSo)
{
    const std::optional<int> result = writeWithNullList("x");
    if (!result.has_value()) {
        GTEST_SKIP() << "a va_list of this machine is a structure and never null";
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(onlyRecord().text(), "!!! safer_vsprintf error 4 !!!");
}

// ---- ldtr_exit_errcode ----

TEST_F(LdtrExitErrcode, TheRecordWordTellsWhetherATracedFailureEndsTheFunction)
{
    constexpr unsigned long high = ~0xFFFFFFFFUL;
    struct Row
    {
        const char* name;
        unsigned long probe;
        unsigned long eventBits;
        long errcode;
        uint32_t events;
        uint32_t recordWord;
    };
    const Row rows[] = {
        {"a traced failure", 25, 1, 5, 2, 0x030A0000},
        {"a negative code is a failure too", 25, 1, -1, 2, 0x030A0000},
        {"success", 25, 1, 0, 2, 0x03190000},
        {"success with every event enabled", 25, 0xFFFFFFFF, 0, 0xFFFFFFFF, 0x03190000},
        {"success with no event enabled", 25, 0xFFFFFFFF, 0, 0, 0x03190000},
        {"a failure with no event enabled", 25, 0xFFFFFFFF, 5, 0, 0x03190000},
        {"a failure with the bit itself enabled, not the next", 25, 1, 5, 1, 0x03190000},
        {"a failure with another bit enabled", 25, 1, 5, 4, 0x03190000},
        {"one of several bits is enough", 25, 0x14, 5, 0x80000028, 0x030A0000},
        {"the highest bit of the mask", 25, 0x40000000, 5, 0x80000000, 0x030A0000},
        {"the highest event bit has no next one", 25, 0x80000000, 5, 0xFFFFFFFF, 0x03190000},
        {"no event bits", 25, 0, 5, 0xFFFFFFFF, 0x03190000},
        {"the division drops the rest", 29, 1, 5, 2, 0x030A0000},
        {"the next ten", 30, 1, 5, 2, 0x030B0000},
        {"a probe below ten", 9, 1, 5, 2, 0x03080000},
        {"probe 0, a failure", 0, 1, 5, 2, 0x03080000},
        {"probe 0, success", 0, 1, 0, 2, 0x03000000},
        {"a probe that reaches the top byte", 0x1234, 1, 0, 2, 0x13340000},
        {"a probe beyond 16 bits loses its upper ones", 0x51234, 1, 0, 2, 0x13340000},
        {"bits above 32 do not count", high | 25, high | 1, 5, 2, 0x030A0000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        callCount = 0;
        trcEvents = row.events;
        serviceResult = 17;
        EXPECT_EQ(ldtr_exit_errcode(0xC8000002, row.probe, row.eventBits, row.errcode, &someObject), 17);
        expectWords(onlyRecord(), row.recordWord, 0xC8000002U, &someObject);
    }
}

TEST_F(LdtrExitErrcode, TheDataIsTheCodeAsAThirtyTwoBitNumber)
{
    struct Row
    {
        long errcode;
        int32_t recorded;
    };
    constexpr auto wide = static_cast<long>(0x1122334455667788);
    const Row rows[] = {
        {0, 0}, {5, 5}, {-1, -1}, {INT32_MAX, INT32_MAX}, {INT32_MIN, INT32_MIN}, {wide, 0x55667788},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.errcode);
        callCount = 0;
        ldtr_exit_errcode(0, 0, 0, row.errcode, nullptr);
        const Call& call = onlyRecord();
        ASSERT_EQ(call.length, 4U);
        int32_t recorded = 0;
        std::memcpy(&recorded, call.data.data(), sizeof recorded);
        EXPECT_EQ(recorded, row.recorded);
        EXPECT_EQ(call.object, nullptr);
    }
}

// ---- ldtr_formater_global ----

namespace {
// What a debug call gives: a record of the formater's, then a printed line with the same text.
void expectRecordThenLine(uint32_t classWord, const void* object, unsigned long type, const char* fmt,
                          const std::string& text)
{
    ASSERT_EQ(callCount, 2U);
    EXPECT_EQ(calls[0].kind, Call::record);
    expectRecord(calls[0], 0x32010203U, classWord, object, text);
    EXPECT_EQ(calls[1].kind, Call::print);
    EXPECT_EQ(calls[1].type, type);
    EXPECT_EQ(calls[1].fmt, fmt);
    EXPECT_EQ(calls[1].text(), text);
}
} // namespace

TEST_F(LdtrFormaterGlobal, ARecordNamesTheTypeAsItsClassAndNoObject)
{
    const ldtr_formater_global formater(0x32010203);
    serviceResult = 17;
    EXPECT_EQ(formater(0xC8000102, "%s-%d", "text", 1), 17);
    expectRecord(onlyRecord(), 0x32010203U, 0xC8000102U, nullptr, "text-1");
}

TEST_F(LdtrFormaterGlobal, NewDeleteNamesTheObject)
{
    const ldtr_formater_global formater(0x32010203);
    serviceResult = 17;
    EXPECT_EQ(formater.new_delete(0xC8000102, &someObject, "%s-%d", "text", 1), 17);
    expectRecord(onlyRecord(), 0x32010203U, 0xC8000102U, &someObject, "text-1");
}

TEST_F(LdtrFormaterGlobal, DebugWritesTheRecordAndThenPrintsTheSameArguments)
{
    ldtr_formater_global formater(0x32010203);
    serviceResult = 17;
    const char* fmt = "%s-%d-%s-%.1f";
    EXPECT_EQ(formater.debug(0xC8000102, fmt, "text", 1, "more", 0.5), 17);
    expectRecordThenLine(0xC8000102U, nullptr, 0xC8000102UL, fmt, "text-1-more-0.5");
}

TEST_F(LdtrFormaterGlobal, TheRecordWordIsA32BitWord)
{
    const ldtr_formater_global formater(~0xFFFFFFFFUL | 0x32010203);
    EXPECT_EQ(formater.recordWord, 0x32010203U);
}

// ---- ldtr_formater_local ----

TEST_F(LdtrFormaterLocal, EveryCallHasItsWordsAndItsObject)
{
    ldtr_formater_local formater(0xC8000100, 0x32010203, &someObject);
    struct Row
    {
        const char* name;
        int (*call)(ldtr_formater_local&);
        uint32_t classWord;
        const void* object;
    };
    const Row rows[] = {
        {"without a type", [](ldtr_formater_local& f) { return f("%s-%d", "text", 1); }, 0xC8000100, &someObject},
        {"with a type", [](ldtr_formater_local& f) { return f(0x42UL, "%s-%d", "text", 1); }, 0xC8000142, &someObject},
        {"with the type 0", [](ldtr_formater_local& f) { return f(0, "%s-%d", "text", 1); }, 0xC8000100, &someObject},
        {"only the lowest byte of the type counts",
         [](ldtr_formater_local& f) { return f(0x12345642UL, "%s-%d", "text", 1); }, 0xC8000142, &someObject},
        {"new_delete without a type",
         [](ldtr_formater_local& f) { return f.new_delete(&otherObject, "%s-%d", "text", 1); }, 0xC8000100,
         &otherObject},
        {"new_delete with a type",
         [](ldtr_formater_local& f) { return f.new_delete(0xFFFFFF42UL, &otherObject, "%s-%d", "text", 1); },
         0xC8000142, &otherObject},
        {"new_delete of nothing", [](ldtr_formater_local& f) { return f.new_delete(nullptr, "%s-%d", "text", 1); },
         0xC8000100, nullptr},
        {"new_delete of nothing with a type",
         [](ldtr_formater_local& f) { return f.new_delete(1, nullptr, "%s-%d", "text", 1); }, 0xC8000101, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        callCount = 0;
        serviceResult = 17;
        EXPECT_EQ(row.call(formater), 17);
        expectRecord(onlyRecord(), 0x32010203U, row.classWord, row.object, "text-1");
        EXPECT_EQ(formater.classWord, 0xC8000100U) << "a type is for its call alone";
    }
}

TEST_F(LdtrFormaterLocal, ATypeAddsToTheBitsThatTheClassWordHas)
{
    const ldtr_formater_local formater(0xC8000180, 0, &someObject);
    formater(0x41UL, "%d", 1);
    EXPECT_EQ(onlyRecord().classWord, 0xC80001C1U);
}

TEST_F(LdtrFormaterLocal, DebugWritesTheRecordAndThenPrintsTheSameArguments)
{
    ldtr_formater_local formater(0xC8000100, 0x32010203, &someObject);
    serviceResult = 17;
    const char* fmt = "%s-%d-%s-%.1f";
    EXPECT_EQ(formater.debug(0x12345642, fmt, "text", 1, "more", 0.5), 17);
    expectRecordThenLine(0xC8000142U, &someObject, 0x12345642UL, fmt, "text-1-more-0.5");
}

TEST_F(LdtrFormaterLocal, ItsWordsAre32BitWords)
{
    constexpr unsigned long high = ~0xFFFFFFFFUL;
    const ldtr_formater_local formater(high | 0xC8000100, high | 0x32010203, nullptr);
    EXPECT_EQ(formater.classWord, 0xC8000100U);
    EXPECT_EQ(formater.recordWord, 0x32010203U);
    EXPECT_EQ(formater.object, nullptr);
}

// ---- What both debug calls share ----

namespace {
template <typename Formater>
Formater made();

template <>
ldtr_formater_global made()
{
    return ldtr_formater_global(0x32010203);
}

template <>
ldtr_formater_local made()
{
    return {0xC8000100, 0x32010203, &someObject};
}

template <typename Formater>
class LdtrDebug : public Ldtr
{
};

using Formaters = testing::Types<ldtr_formater_global, ldtr_formater_local>;
TYPED_TEST_SUITE(LdtrDebug, Formaters);
} // namespace

TYPED_TEST(LdtrDebug, TheDebugTypeRewritesTheRecordWordForGood)
{
    auto formater = made<TypeParam>();
    EXPECT_EQ(formater.debug(0xC8110000, "%d", 1), 0);
    ASSERT_EQ(callCount, 2U);
    EXPECT_EQ(calls[0].recordWord, 0x32070000U);
    EXPECT_EQ(calls[0].classWord, (std::is_same_v<TypeParam, ldtr_formater_global> ? 0xC8110000U : 0xC8000100U));
    EXPECT_EQ(calls[1].type, 0xC8110000UL);
    EXPECT_EQ(formater.recordWord, 0x32070000U);
    callCount = 0;
    formater(1UL, "%d", 1);
    formater.new_delete(1UL, nullptr, "%d", 1);
    formater.debug(1UL, "%d", 1);
    ASSERT_EQ(callCount, 4U);
    for (const std::size_t i : {0U, 1U, 2U}) {
        EXPECT_EQ(calls[i].recordWord, 0x32070000U);
    }
}

TYPED_TEST(LdtrDebug, OtherTypesLeaveTheRecordWordAlone)
{
    for (const unsigned long type : {0UL, 0x00110000UL, 0xC8110001UL, 0xC8100000UL, 0x07000000UL}) {
        SCOPED_TRACE(type);
        auto formater = made<TypeParam>();
        callCount = 0;
        formater.debug(type, "%d", 1);
        EXPECT_EQ(calls[0].recordWord, 0x32010203U);
        EXPECT_EQ(formater.recordWord, 0x32010203U);
    }
}

TYPED_TEST(LdtrDebug, CallsThatAreNotDebugDoNotRewrite)
{
    auto formater = made<TypeParam>();
    formater(0xC8110000UL, "%d", 1);
    formater.new_delete(0xC8110000UL, nullptr, "%d", 1);
    ASSERT_EQ(callCount, 2U);
    EXPECT_EQ(calls[0].recordWord, 0x32010203U);
    EXPECT_EQ(calls[1].recordWord, 0x32010203U);
}

TYPED_TEST(LdtrDebug, ATypeThatCameSignExtendedIsTheDebugType)
{
    auto formater = made<TypeParam>();
    const auto type = static_cast<unsigned long>(static_cast<int32_t>(0xC8110000U));
    formater.debug(type, "%d", 1);
    EXPECT_EQ(calls[0].recordWord, 0x32070000U);
    EXPECT_EQ(calls[1].type, type);
}

TYPED_TEST(LdtrDebug, ThePrintedLineIsNotCapped)
{
    const std::string text(1500, 'a');
    auto formater = made<TypeParam>();
    formater.debug(1UL, "%s", text.c_str());
    ASSERT_EQ(callCount, 2U);
    EXPECT_EQ(calls[0].text(), std::string(1000, 'a'));
    EXPECT_EQ(calls[1].text(), text);
}

TYPED_TEST(LdtrDebug, AFormatThatCantBeRecordedIsStillPassedToThePrinter)
{
    auto formater = made<TypeParam>();
    const std::string tooLong = std::string(500, 'a') + "%d";
    formater.debug(1UL, tooLong.c_str(), 7);
    const char* none = nullptr;
    formater.debug(1UL, none, 7);
    ASSERT_EQ(callCount, 4U);
    EXPECT_EQ(calls[0].text(), "!!! safer_vsprintf error 6 !!!");
    EXPECT_EQ(calls[1].text(), std::string(500, 'a') + "7");
    EXPECT_EQ(calls[2].text(), "!!! safer_vsprintf error 3 !!!");
    EXPECT_EQ(calls[3].kind, Call::print);
    EXPECT_EQ(calls[3].fmt, nullptr);
}

TYPED_TEST(LdtrDebug, BothTextsSeeTheCallersErrno)
{
    auto formater = made<TypeParam>();
    errno = ENOTTY;
    const char* fmt = "%m %d"; // no literal in the call: strict compilers do not know "%m"
    formater.debug(1UL, fmt, 1);
    ASSERT_EQ(callCount, 2U);
    EXPECT_EQ(calls[0].text(), std::strerror(ENOTTY) + std::string(" 1"));
    EXPECT_EQ(calls[1].text(), calls[0].text());
}

// ---- Cost ----

TEST_F(Ldtr, NothingIsAllocated)
{
    ASSERT_GT(hooksInstalled, 0);
    const std::string thousand(1000, 'a');
    const std::string fifteenHundred(1500, 'b');
    const char* a = thousand.c_str();
    const char* b = fifteenHundred.c_str();
    ldtr_formater_global global(1);
    ldtr_formater_local local(1, 2, &someObject);
    const void* object = &someObject;
    const std::string tooWide = "%2147483648d%d";

    allocations = 0;
    counting = true;
    ldtr_init();
    ldtr_write(1, 2, nullptr);
    ldtr_exit_errcode(1, 2, 3, 4, nullptr);
    global(1, "%s%s%s%s%s%s%s%s%d%lx%p%c%5.2f", a, a, a, a, a, a, a, b, 1, 2UL, object, 'c', 0.5);
    local.debug(0xC8110000, "%s%s%%%s", b, b, b);
    local.new_delete(&otherObject, tooWide.c_str(), 1, 2);
    counting = false;
    const int found = allocations;
    const std::size_t reached = callCount;

    // The count sees an allocation that is made. A compiler that knows which function it calls would leave it out.
    void* (*volatile allocate)(std::size_t) = std::malloc;
    counting = true;
    void* block = allocate(100);
    counting = false;
    std::free(block);

    EXPECT_EQ(reached, 6U);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(allocations, 1);
}

TEST(LdtrThreads, ASmallStackIsEnough)
{
    // Servers run many threads on small stacks; formatting takes about 9 KiB of them.
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{64} * 1024), 0);
    callCount = 0;
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void*) -> void* {
                      const ldtr_formater_global formater(1);
                      formater(1, "%s", "text");
                      return nullptr;
                  },
                  nullptr),
              0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(onlyRecord().text(), "text");
}
