// The line reader: the same files read from a string stream, from a file stream and from memory, held against the
// expected lines row by row, and against a plain step-by-step reader over every short file and over random ones.
#include "LDIF_Line.h"

#include "LDIF_Exception.h"
#include "LDIF_Util.h"
#include "support/locale_guard.h"
#include "support/temporary_folder.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <strings.h>
#include <tuple>
#include <type_traits>
#include <vector>

namespace {

using namespace std::string_literals;
using veltor::detail::LineReader;
using veltor::test::LocaleGuard;
using veltor::test::TemporaryFolder;

constexpr char cLocale[] = "C";
constexpr char utf8Locale[] = "C.UTF-8";

// é as two bytes and the ideographic space as three.
const std::string eAcute = "\xC3\xA9";
const std::string wideSpace = "\xE3\x80\x80";

static_assert(std::is_polymorphic_v<LDIF_Line> && std::has_virtual_destructor_v<LDIF_Line>);
static_assert(std::is_copy_constructible_v<LDIF_Line> && std::is_copy_assignable_v<LDIF_Line>);
static_assert(!std::is_final_v<LDIF_Line>);
static_assert(std::is_same_v<decltype(LDIF_Line::lineNumber), std::int32_t>);
// The numbers are printed in diagnostics.
static_assert(LDIF_Line::endOfFile == 0);
static_assert(LDIF_Line::blankLine == 1);
static_assert(LDIF_Line::comment == 2);
static_assert(LDIF_Line::dn == 3);
static_assert(LDIF_Line::attribute == 4);

/// One logical line as it was read, and the number that the call returned.
struct Read
{
    LDIF_Line::Type type = LDIF_Line::endOfFile;
    std::string name;
    std::string value;
    int lineNumber = 0;
    int returned = 0;
    bool valid = true;

    bool operator==(const Read&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Read& line)
{
    static constexpr const char* types[] = {"endOfFile", "blankLine", "comment", "dn", "attribute"};
    return stream << '{' << types[line.type] << ", name " << testing::PrintToString(line.name) << ", value "
                  << testing::PrintToString(line.value) << ", line " << line.lineNumber << ", returned "
                  << line.returned << (line.valid ? "" : ", invalid") << '}';
}

/// How a reading ended, if not with the end of the file.
struct Failure
{
    int ldapErr = 0;
    int extErr = 0;
    std::string msg;
    std::string value;

    bool operator==(const Failure&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Failure& failure)
{
    return stream << failure.ldapErr << '/' << failure.extErr << ' ' << testing::PrintToString(failure.msg);
}

Failure factsOf(const LDIF_Exception& exception)
{
    return {exception.ldapErr, exception.extErr, exception.msg, exception.value};
}

/// A whole file: its lines up to and including the first endOfFile, or up to the failure.
struct Reading
{
    std::vector<Read> lines;
    std::optional<Failure> failure;

    bool operator==(const Reading&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Reading& reading)
{
    for (const Read& line : reading.lines) {
        stream << "\n  " << line;
    }
    if (reading.failure) {
        stream << "\n  failed: " << *reading.failure;
    }
    return stream;
}

Read recorded(const LDIF_Line& line, int returned)
{
    return {line.type, line.name, line.value, line.lineNumber, returned, line.valid};
}

/// Reads to the end of the file and once more, to see that the end stays the end.
template <class Next>
Reading readWith(const std::string& text, Next next)
{
    // A reader that makes no progress shall fail its test and not hang it.
    const std::size_t mostCalls = text.size() + 4;
    Reading reading;
    try {
        while (reading.lines.empty() || reading.lines.back().type != LDIF_Line::endOfFile) {
            if (reading.lines.size() == mostCalls) {
                throw std::logic_error("the reader does not come to an end");
            }
            reading.lines.push_back(next());
        }
        const Read again = next();
        if (!(again == reading.lines.back())) {
            throw std::logic_error("a call behind the end is not the end again");
        }
    } catch (const LDIF_Exception& exception) {
        reading.failure = factsOf(exception);
    }
    return reading;
}

Reading readFromStream(std::istream& stream, const std::string& text)
{
    LDIF_Line line;
    int number = 0;
    return readWith(text, [&] {
        number = line.next(stream, number);
        return recorded(line, number);
    });
}

Reading readFromStringStream(const std::string& text)
{
    std::istringstream stream(text);
    return readFromStream(stream, text);
}

Reading readFromFile(const TemporaryFolder& folder, const std::string& text)
{
    std::ifstream stream(folder.write("lines", text));
    if (!stream) {
        throw std::runtime_error("the temporary file can't be opened");
    }
    return readFromStream(stream, text);
}

Reading readFromFile(const std::string& text)
{
    return readFromFile(TemporaryFolder(), text);
}

/// @param failedAt  receives the number that the reader names when it fails
Reading readFromMemory(const std::string& text, int* failedAt = nullptr)
{
    LineReader reader(text);
    LDIF_Line line;
    Reading reading = readWith(text, [&] {
        reader.next(line);
        return recorded(line, reader.lineNumber());
    });
    if (failedAt != nullptr) {
        *failedAt = reading.failure ? reader.lineNumber() : 0;
    }
    return reading;
}

// ---- Rows, from every source and in both locales ----

enum class Source { stringStream, fileStream, memory };

class LdifLineFrom : public testing::TestWithParam<std::tuple<Source, const char*>>
{
protected:
    static Reading read(const std::string& text)
    {
        switch (std::get<Source>(GetParam())) {
        case Source::stringStream:
            return readFromStringStream(text);
        case Source::fileStream:
            return readFromFile(text);
        case Source::memory:
            return readFromMemory(text);
        }
        throw std::logic_error("no such source");
    }

private:
    LocaleGuard locale_{std::get<const char*>(GetParam())};
};

class LdifLineInUtf8From : public LdifLineFrom
{
};

std::string sourceName(Source source)
{
    switch (source) {
    case Source::stringStream:
        return "StringStream";
    case Source::fileStream:
        return "FileStream";
    case Source::memory:
        return "Memory";
    }
    return "";
}

const auto nameOf = [](const auto& row) {
    return sourceName(std::get<0>(row.param)) + (std::get<1>(row.param) == std::string(cLocale) ? "InC" : "InUtf8");
};

const auto everySource = testing::Values(Source::stringStream, Source::fileStream, Source::memory);

INSTANTIATE_TEST_SUITE_P(Sources, LdifLineFrom, testing::Combine(everySource, testing::Values(cLocale, utf8Locale)),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Sources, LdifLineInUtf8From, testing::Combine(everySource, testing::Values(utf8Locale)),
                         nameOf);

Read end(int lineNumber)
{
    return {LDIF_Line::endOfFile, "", "", lineNumber, lineNumber - 1, true};
}

Read blank(int lineNumber)
{
    return {LDIF_Line::blankLine, "", "", lineNumber, lineNumber, true};
}

Read comment(const std::string& text, int lineNumber)
{
    return {LDIF_Line::comment, "", text, lineNumber, lineNumber, true};
}

Read dn(const std::string& name, const std::string& value, int lineNumber, int returned)
{
    return {LDIF_Line::dn, name, value, lineNumber, returned, true};
}

Read attribute(const std::string& name, const std::string& value, int lineNumber, int returned)
{
    return {LDIF_Line::attribute, name, value, lineNumber, returned, true};
}

Read invalid(Read line)
{
    line.valid = false;
    return line;
}

struct Row
{
    const char* name;
    std::string text;
    std::vector<Read> lines;
};

#define EXPECT_ROWS(rows)                                                                                              \
    for (const Row& row : rows) {                                                                                      \
        SCOPED_TRACE(row.name);                                                                                        \
        EXPECT_EQ(read(row.text), (Reading{row.lines, std::nullopt}));                                                 \
    }                                                                                                                  \
    static_assert(true, "takes the semicolon")

TEST_P(LdifLineFrom, SplitsALineAtItsFirstColon)
{
    const std::vector<Row> rows = {
        {"DN", "dn: cn=Configuration\n", {dn("dn", "cn=Configuration", 1, 1), end(2)}},
        {"DN in upper case", "DN:cn=x\n", {dn("DN", "cn=x", 1, 1), end(2)}},
        {"DN in mixed case", "dN: cn=x\n", {dn("dN", "cn=x", 1, 1), end(2)}},
        {"a blank behind dn is part of the name", "dn : x\n", {attribute("dn ", "x", 1, 1), end(2)}},
        {"a blank before dn is part of the name", " dn: x\n", {attribute(" dn", "x", 1, 1), end(2)}},
        {"a name that begins with dn", "dnx: x\n", {attribute("dnx", "x", 1, 1), end(2)}},
        {"a name that dn begins with", "d: x\n", {attribute("d", "x", 1, 1), end(2)}},
        {"the name keeps its case and its blanks", " Zor Port\t: 1\n", {attribute(" Zor Port\t", "1", 1, 1), end(2)}},
        {"the name keeps its parentheses", "(cn): x\n", {attribute("(cn)", "x", 1, 1), end(2)}},
        {"two colons and blanks around the value", "a::  b  \n", {attribute("a", "b", 1, 1), end(2)}},
        {"many colons", "a::::b\n", {attribute("a", "b", 1, 1), end(2)}},
        {"a colon behind a blank belongs to the value", "a: :b\n", {attribute("a", ":b", 1, 1), end(2)}},
        {"later colons belong to the value", "a: b:c::d\n", {attribute("a", "b:c::d", 1, 1), end(2)}},
        {"no blank is needed", "a:b\n", {attribute("a", "b", 1, 1), end(2)}},
        {"no value", "a:\n", {attribute("a", "", 1, 1), end(2)}},
        {"no value behind two colons", "a::\n", {attribute("a", "", 1, 1), end(2)}},
        {"a value of blanks", "a:  \t \n", {attribute("a", "", 1, 1), end(2)}},
        {"a hash behind the first character is a name", "a#b: c\n", {attribute("a#b", "c", 1, 1), end(2)}},
        {"blanks inside the value stay", "a: b  c\td\n", {attribute("a", "b  c\td", 1, 1), end(2)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, StrippingAValueTakesItsOuterParentheses)
{
    const std::vector<Row> rows = {
        {"parentheses around the value", "a: ( x )\n", {attribute("a", "x", 1, 1), end(2)}},
        {"parentheses inside stay", "a: x(y)z\n", {attribute("a", "x(y)z", 1, 1), end(2)}},
        {"a closing one at the end goes", "a: f(x)\n", {attribute("a", "f(x", 1, 1), end(2)}},
        {"parentheses alone go from the front", "a: ( )\n", {attribute("a", "", 1, 1), end(2)}},
        {"those from a continuation keep their first", "a:\n (\n", {attribute("a", "(", 1, 2), end(3)}},
        {"and keep it in front of blanks", "a:\n ( )\n", {attribute("a", "(", 1, 2), end(3)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, AHashAsTheVeryFirstCharacterMakesAComment)
{
    const std::vector<Row> rows = {
        {"comment", "#c\n", {comment("#c", 1), blank(2), end(3)}},
        {"a hash alone", "#\n", {comment("#", 1), blank(2), end(3)}},
        {"kept as it is", "# a: ( b ) \t\n", {comment("# a: ( b ) \t", 1), blank(2), end(3)}},
        {"no continuation", "#c\n x\n", {comment("#c", 1), invalid(attribute(" x", "", 2, 2)), end(3)}},
        {"a blank in front", " #c\n", {invalid(attribute(" #c", "", 1, 1)), end(2)}},
        {"a blank in front and a colon", " #c: d\n", {attribute(" #c", "d", 1, 1), end(2)}},
        {"carriage returns go", "#a\rb\r\n#\r#\n", {comment("#ab", 1), comment("##", 2), blank(3), end(4)}},
        {"a carriage return in front goes", "\r#c\n", {comment("#c", 1), blank(2), end(3)}},
        {"a last one without line feed is kept", "#c", {comment("#c", 1), end(2)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, ALineOfWhiteSpaceIsBlank)
{
    const std::vector<Row> rows = {
        {"empty line", "\n", {blank(1), blank(2), end(3)}},
        {"blanks and tabs", " \t \n", {blank(1), blank(2), end(3)}},
        {"all white space", " \t\v\f\r\n", {blank(1), blank(2), end(3)}},
        {"a carriage return", "\r\n", {blank(1), blank(2), end(3)}},
        {"many", "\n\n\n", {blank(1), blank(2), blank(3), blank(4), end(5)}},
        {"no continuation", " \n b: c\n", {blank(1), attribute(" b", "c", 2, 2), end(3)}},
        {"parentheses are not blank", "()\n", {invalid(attribute("()", "", 1, 1)), end(2)}},
        {"a last one without line feed", "\n  ", {blank(1), blank(2), end(3)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, AnEmptyFileYieldsOneBlankLine)
{
    EXPECT_EQ(read(""), (Reading{{blank(1), end(2)}, std::nullopt}));
}

TEST_P(LdifLineFrom, AFileThatEndsAfterACommentOrBlankLineYieldsOneMoreBlankLine)
{
    const std::vector<Row> rows = {
        {"comment", "a: b\n#c\n", {attribute("a", "b", 1, 1), comment("#c", 2), blank(3), end(4)}},
        {"blank line", "a: b\n\n", {attribute("a", "b", 1, 1), blank(2), blank(3), end(4)}},
        {"attribute", "#c\na: b\n", {comment("#c", 1), attribute("a", "b", 2, 2), end(3)}},
        {"comment without line feed", "a: b\n#c", {attribute("a", "b", 1, 1), comment("#c", 2), end(3)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, LinesThatBeginWithWhiteSpaceContinueAValue)
{
    const std::vector<Row> rows = {
        {"joined without a separator",
         "a: x\n y\n  z\nb: c\n",
         {attribute("a", "xy z", 1, 3), attribute("b", "c", 4, 4), end(5)}},
        {"a tab is dropped like a blank", "a: x\n\ty\n", {attribute("a", "xy", 1, 2), end(3)}},
        {"any white space is", "a: x\n\vy\n\fz\n", {attribute("a", "xyz", 1, 3), end(4)}},
        {"exactly one character is dropped", "a: x\n \t y\n", {attribute("a", "x\t y", 1, 2), end(3)}},
        {"a DN continues too", "dn: cn=x,\n cn=y\n", {dn("dn", "cn=x,cn=y", 1, 2), end(3)}},
        {"trailing blanks of a line in the middle stay", "a: x  \n y\n", {attribute("a", "x  y", 1, 2), end(3)}},
        {"those of the last line go", "a: x\n y \t\n", {attribute("a", "xy", 1, 2), end(3)}},
        {"a line of blanks continues and is no blank line", "a: x\n  \n y\n", {attribute("a", "x y", 1, 3), end(4)}},
        {"a line of blanks at the end of a value", "a: x\n \n", {attribute("a", "x", 1, 2), end(3)}},
        {"an empty line ends the value",
         "a: x\n\n y: z\n",
         {attribute("a", "x", 1, 1), blank(2), attribute(" y", "z", 3, 3), end(4)}},
        {"a comment ends the value", "a: x\n#c\n", {attribute("a", "x", 1, 1), comment("#c", 2), blank(3), end(4)}},
        {"colons and hashes of a continuation are content",
         "a: x\n :y\n #z\n",
         {attribute("a", "x:y#z", 1, 3), end(4)}},
        {"leading blanks of a value that begins on a continuation stay",
         "a:\n  x\n",
         {attribute("a", " x", 1, 2), end(3)}},
        {"so do leading parentheses", "a:\n (x\n", {attribute("a", "(x", 1, 2), end(3)}},
        {"a parenthesis does not continue",
         "a: x\n(y: z\n",
         {attribute("a", "x", 1, 1), attribute("(y", "z", 2, 2), end(3)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, ALineWithoutAColonOrWithAColonInFrontIsInvalid)
{
    const std::vector<Row> rows = {
        {"no colon", "no colon here\n", {invalid(attribute("no colon here", "", 1, 1)), end(2)}},
        {"a colon in front", ":a\n", {invalid(attribute(":a", "", 1, 1)), end(2)}},
        {"a colon in front and a later one", ": dn: x\n", {invalid(attribute(": dn: x", "", 1, 1)), end(2)}},
        {"a colon alone", ":\n", {invalid(attribute(":", "", 1, 1)), end(2)}},
        {"dn alone keeps its type", "dn\n", {invalid(dn("dn", "", 1, 1)), end(2)}},
        {"what begins with dn does too", "dnfoo\n", {invalid(dn("dnfoo", "", 1, 1)), end(2)}},
        {"in any letter case", "DN=x,o=y\n", {invalid(dn("DN=x,o=y", "", 1, 1)), end(2)}},
        {"d alone does not", "d\n", {invalid(attribute("d", "", 1, 1)), end(2)}},
        {"nor dn behind a blank", " dn\n", {invalid(attribute(" dn", "", 1, 1)), end(2)}},
        {"the line is kept untrimmed", "( no colon ) \n", {invalid(attribute("( no colon ) ", "", 1, 1)), end(2)}},
        {"without its carriage returns", "no\r colon\r\n", {invalid(attribute("no colon", "", 1, 1)), end(2)}},
        {"its continuations become the value",
         "no colon\n x\n  y \nb: c\n",
         {invalid(attribute("no colon", "x y", 1, 3)), attribute("b", "c", 4, 4), end(5)}},
        {"the next line begins valid again",
         "bad\nb: c\n",
         {invalid(attribute("bad", "", 1, 1)), attribute("b", "c", 2, 2), end(3)}},
    };
    EXPECT_ROWS(rows);
}

// Deliberate: files in the field rely on the reload that follows.
TEST_P(LdifLineFrom, ALastLineWithoutLineFeedLosesItsValue)
{
    const std::vector<Row> rows = {
        {"attribute", "x: y", {attribute("x", "", 1, 1), end(2)}},
        {"DN", "dn: cn=x", {dn("dn", "", 1, 1), end(2)}},
        {"in a continuation the whole value goes", "x: y\n z", {attribute("x", "", 1, 2), end(3)}},
        {"in a continuation of one blank", "x: y\n ", {attribute("x", "", 1, 2), end(3)}},
        {"the line in front keeps its value",
         "x: y\nz: w",
         {attribute("x", "y", 1, 1), attribute("z", "", 2, 2), end(3)}},
        {"an invalid line keeps its name", "bad", {invalid(attribute("bad", "", 1, 1)), end(2)}},
        {"the line in front of a last comment", "x: y\n#c", {attribute("x", "y", 1, 1), comment("#c", 2), end(3)}},
        {"a carriage return is no line feed", "x: y\r", {attribute("x", "", 1, 1), end(2)}},
        {"a last line that is only a carriage return", "x: y\n\r", {attribute("x", "y", 1, 1), blank(2), end(3)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, CarriageReturnsGoWhereverTheyStand)
{
    const std::vector<Row> rows = {
        {"inside the value", "a: b\rc\n", {attribute("a", "bc", 1, 1), end(2)}},
        {"at the end", "a: b\r\n", {attribute("a", "b", 1, 1), end(2)}},
        {"in the name", "d\rn: x\n", {dn("dn", "x", 1, 1), end(2)}},
        {"in front", "\ra: b\n", {attribute("a", "b", 1, 1), end(2)}},
        {"between the colons", "a:\r: b\n", {attribute("a", "b", 1, 1), end(2)}},
        {"in a continuation", "a: b\r\n c\rd\r\n", {attribute("a", "bcd", 1, 2), end(3)}},
        {"in front of the white space of a continuation", "a: b\n\r c\n", {attribute("a", "bc", 1, 2), end(3)}},
        {"they are no white space that continues",
         "a: b\n\rc: d\n",
         {attribute("a", "b", 1, 1), attribute("c", "d", 2, 2), end(3)}},
        {"a line of them is empty",
         "a: b\n\r\r\n c: d\n",
         {attribute("a", "b", 1, 1), blank(2), attribute(" c", "d", 3, 3), end(4)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, ANulEndsAPhysicalLine)
{
    const std::vector<Row> rows = {
        {"inside the value", "a: b\0c\nd: e\n"s, {attribute("a", "b", 1, 1), attribute("d", "e", 2, 2), end(3)}},
        {"in front of the colon", "a\0: b\n"s, {invalid(attribute("a", "", 1, 1)), end(2)}},
        {"in front", "\0a: b\n"s, {blank(1), blank(2), end(3)}},
        {"in a comment", "#c\0d\n"s, {comment("#c", 1), blank(2), end(3)}},
        {"behind the white space of a continuation", "a: b\n c\0d\n e\n"s, {attribute("a", "bce", 1, 3), end(4)}},
        {"in front of what would continue", "a: b\n\0 c\n"s, {attribute("a", "b", 1, 1), blank(2), blank(3), end(4)}},
        {"what stands behind it is not even converted",
         "a: b\0\xFF\n c\0\xFF\n"s,
         {attribute("a", "bc", 1, 2), end(3)}},
        {"it does not hide the missing line feed", "a: b\0"s, {attribute("a", "", 1, 1), end(2)}},
    };
    EXPECT_ROWS(rows);
}

TEST_P(LdifLineFrom, AFileOfEveryKindOfLine)
{
    const std::string text = "version: 1\n"
                             "\n"
                             "# The configuration.\n"
                             "dn: cn=Configuration\n"
                             "cn: Configuration\n"
                             "zor-slapdAdminDN: cn=admin,\n"
                             "  o=x\n"
                             "objectclass: top\r\n"
                             "rejected\n"
                             "\n"
                             "#last\n";
    EXPECT_EQ(read(text),
              (Reading{{attribute("version", "1", 1, 1), blank(2), comment("# The configuration.", 3),
                        dn("dn", "cn=Configuration", 4, 4), attribute("cn", "Configuration", 5, 5),
                        attribute("zor-slapdAdminDN", "cn=admin, o=x", 6, 7), attribute("objectclass", "top", 8, 8),
                        invalid(attribute("rejected", "", 9, 9)), blank(10), comment("#last", 11), blank(12), end(13)},
                       std::nullopt}));
}

TEST_P(LdifLineFrom, LongLinesAndManyContinuations)
{
    const std::string part(5000, 'x');
    std::string text = "a: ";
    std::string value;
    constexpr int lines = 40;
    for (int line = 0; line < lines; ++line) {
        text += (line == 0 ? "" : " ") + part + "\n";
        value += part;
    }
    EXPECT_EQ(read(text), (Reading{{attribute("a", value, 1, lines), end(lines + 1)}, std::nullopt}));
}

// ---- Text beyond ASCII ----

TEST_P(LdifLineInUtf8From, WideCharactersAreReadAsCharacters)
{
    const std::vector<Row> rows = {
        {"in the value", "a: " + eAcute + " x\n", {attribute("a", eAcute + " x", 1, 1), end(2)}},
        {"in the name", eAcute + ": x\n", {attribute(eAcute, "x", 1, 1), end(2)}},
        {"in a comment", "#" + eAcute + "\n", {comment("#" + eAcute, 1), blank(2), end(3)}},
        {"in an invalid line", "dn" + eAcute + "\n", {invalid(dn("dn" + eAcute, "", 1, 1)), end(2)}},
        {"a wide space is white space around a value",
         "a:" + wideSpace + "x" + wideSpace + "\n",
         {attribute("a", "x", 1, 1), end(2)}},
        {"a line of wide spaces is blank", wideSpace + " \n", {blank(1), blank(2), end(3)}},
        {"a wide space begins a continuation", "a: x\n" + wideSpace + "y\n", {attribute("a", "xy", 1, 2), end(3)}},
        {"it is dropped once",
         "a: x\n" + wideSpace + wideSpace + "y\n",
         {attribute("a", "x" + wideSpace + "y", 1, 2), end(3)}},
        {"another wide character does not",
         "a: x\n" + eAcute + ": y\n",
         {attribute("a", "x", 1, 1), attribute(eAcute, "y", 2, 2), end(3)}},
        {"a no-break space does not",
         "a: x\n\xC2\xA0: y\n",
         {attribute("a", "x", 1, 1), attribute("\xC2\xA0", "y", 2, 2), end(3)}},
        {"ASCII continued by more", "a: x\n " + eAcute + "\n z \n", {attribute("a", "x" + eAcute + "z", 1, 3), end(4)}},
        {"more continued by ASCII", "a: " + eAcute + "\n x\n  y) \n", {attribute("a", eAcute + "x y", 1, 3), end(4)}},
        {"a carriage return in front of a wide space",
         "a: x\n\r" + wideSpace + "y\n",
         {attribute("a", "xy", 1, 2), end(3)}},
        {"without a line feed the value goes", "a: x\n" + wideSpace + eAcute, {attribute("a", "", 1, 2), end(3)}},
        {"a wide hash is none", "\xEF\xBC\x83: x\n", {attribute("\xEF\xBC\x83", "x", 1, 1), end(2)}},
        {"a wide colon is none", "a\xEF\xBC\x9A\x62\n", {invalid(attribute("a\xEF\xBC\x9A\x62", "", 1, 1)), end(2)}},
    };
    EXPECT_ROWS(rows);
}

struct BadRow
{
    const char* name;
    std::string text;
    std::string offendingLine;
    int number;
    std::vector<Read> linesBefore;
};

// A line that can't be converted ends the reading: with its own number, and behind everything in front of it.
const std::vector<BadRow> badRows = {
    {"alone", "\xFF\n", "\xFF", 1, {}},
    {"in a value", "b: c\na: x\xFFy\n", "a: x\xFFy", 2, {attribute("b", "c", 1, 1)}},
    {"in a comment", "#c\n#\xFF\n", "#\xFF", 2, {comment("#c", 1)}},
    {"behind a comment and a blank line", "#c\n\n\xFF: x\n", "\xFF: x", 3, {comment("#c", 1), blank(2)}},
    {"in front of a line", "b: c\n\xFF: x\n", "\xFF: x", 2, {attribute("b", "c", 1, 1)}},
    {"with its carriage returns", "b: c\na\r: \xFF\r\n", "a\r: \xFF\r", 2, {attribute("b", "c", 1, 1)}},
    {"in the last line, without a line feed", "b: c\na: \xFF", "a: \xFF", 2, {attribute("b", "c", 1, 1)}},
    {"behind continuations", "b: c\n d\na: \xFF\n", "a: \xFF", 3, {attribute("b", "cd", 1, 2)}},
};

void expectFailure(const Reading& reading, const BadRow& row)
{
    EXPECT_EQ(reading, (Reading{row.linesBefore,
                                Failure{162, 162, "mbstowcs( " + row.offendingLine + " )", row.offendingLine}}));
}

TEST_P(LdifLineFrom, TextThatCannotBeConvertedFailsBehindTheLinesInFront)
{
    for (const BadRow& row : badRows) {
        SCOPED_TRACE(row.name);
        expectFailure(read(row.text), row);
    }
}

TEST_P(LdifLineFrom, AContinuationThatCannotBeConvertedFailsTheLineThatItContinues)
{
    const std::vector<BadRow> rows = {
        {"first", "b: c\na: x\n \xFF\n", " \xFF", 3, {attribute("b", "c", 1, 1)}},
        {"second", "a: x\n y\n\t\xFF\n", "\t\xFF", 3, {}},
        {"without a line feed", "a: x\n \xFF", " \xFF", 2, {}},
    };
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.name);
        expectFailure(read(row.text), row);
    }
}

TEST(LdifLineReader, NamesTheNumberOfTheOffendingLine)
{
    for (const char* const locale : {cLocale, utf8Locale}) {
        const LocaleGuard guard(locale);
        SCOPED_TRACE(locale);
        for (const BadRow& row : badRows) {
            SCOPED_TRACE(row.name);
            int failedAt = 0;
            readFromMemory(row.text, &failedAt);
            EXPECT_EQ(failedAt, row.number);
        }
        int failedAt = 0;
        readFromMemory("a: x\n y\n \xFF\n", &failedAt);
        EXPECT_EQ(failedAt, 3);
    }
}

TEST(LdifLine, TheCLocaleReadsNothingBeyondAscii)
{
    const LocaleGuard guard(cLocale);
    const std::string text = "b: c\na: " + eAcute + "\n";
    const Reading expected{{attribute("b", "c", 1, 1)},
                           Failure{162, 162, "mbstowcs( a: " + eAcute + " )", "a: " + eAcute}};
    EXPECT_EQ(readFromStringStream(text), expected);
    EXPECT_EQ(readFromFile(text), expected);
    EXPECT_EQ(readFromMemory(text), expected);
}

// ---- next, beyond what a file holds ----

TEST(LdifLine, NextCountsFromTheNumberThatItIsGiven)
{
    std::istringstream stream("a: b\n c\n#d\n");
    LDIF_Line line;
    EXPECT_EQ(line.next(stream, 40), 42);
    EXPECT_EQ(line.lineNumber, 41);
    EXPECT_EQ(line.next(stream, 42), 43);
    EXPECT_EQ(line.lineNumber, 43);
    EXPECT_EQ(line.next(stream, 43), 44);
    EXPECT_EQ(line.type, LDIF_Line::blankLine);
    EXPECT_EQ(line.next(stream, 44), 44);
    EXPECT_EQ(line.lineNumber, 45);
    EXPECT_EQ(line.type, LDIF_Line::endOfFile);
}

TEST(LdifLine, NextStartsWhereTheStreamStands)
{
    std::istringstream stream("a: b\nc: d\n e\nf: g\n");
    stream.seekg(5);
    LDIF_Line line;
    EXPECT_EQ(line.next(stream, 0), 2);
    EXPECT_EQ(line.name, "c");
    EXPECT_EQ(line.value, "de");
    std::string rest;
    std::getline(stream, rest);
    EXPECT_EQ(rest, "f: g");
}

TEST(LdifLine, NextResetsTheObjectFirst)
{
    const auto used = [] {
        LDIF_Line line;
        line.value = "old value";
        line.name = "old name";
        line.type = LDIF_Line::attribute;
        line.lineNumber = 99;
        line.valid = false;
        return line;
    };
    {
        SCOPED_TRACE("blank line");
        std::istringstream stream("\n");
        LDIF_Line line = used();
        EXPECT_EQ(recorded(line, line.next(stream, 0)).type, LDIF_Line::blankLine);
        EXPECT_EQ(recorded(line, 1), blank(1));
    }
    {
        SCOPED_TRACE("comment");
        std::istringstream stream("#c\n");
        LDIF_Line line = used();
        const int returned = line.next(stream, 0);
        EXPECT_EQ(recorded(line, returned), comment("#c", 1));
    }
    {
        SCOPED_TRACE("attribute without a value");
        std::istringstream stream("a:\n");
        LDIF_Line line = used();
        const int returned = line.next(stream, 0);
        EXPECT_EQ(recorded(line, returned), attribute("a", "", 1, 1));
    }
    {
        SCOPED_TRACE("a stream in error");
        std::istringstream stream("a: b\n");
        stream.setstate(std::ios::failbit);
        LDIF_Line line = used();
        const int returned = line.next(stream, 7);
        EXPECT_EQ(recorded(line, returned), end(8));
    }
    {
        SCOPED_TRACE("memory");
        LineReader reader("");
        LDIF_Line line = used();
        reader.next(line);
        EXPECT_EQ(recorded(line, reader.lineNumber()), blank(1));
        line = used();
        reader.next(line);
        EXPECT_EQ(recorded(line, reader.lineNumber()), end(2));
    }
}

TEST(LdifLine, AnyErrorBitOfTheStreamIsTheEndOfTheFile)
{
    for (const auto bit : {std::ios::eofbit, std::ios::failbit, std::ios::badbit}) {
        SCOPED_TRACE(static_cast<int>(bit));
        std::istringstream stream("a: b\n");
        stream.setstate(bit);
        LDIF_Line line;
        const int returned = line.next(stream, 5);
        EXPECT_EQ(recorded(line, returned), end(6));
        // Nothing was consumed.
        stream.clear();
        EXPECT_EQ(line.next(stream, 5), 6);
        EXPECT_EQ(line.value, "b");
    }
}

TEST(LdifLine, AFileThatDidNotOpenIsAtItsEnd)
{
    const TemporaryFolder folder;
    std::ifstream stream(folder.path("missing"));
    LDIF_Line line;
    const int returned = line.next(stream, 0);
    EXPECT_EQ(recorded(line, returned), end(1));
}

TEST(LdifLineReader, StartsAtLineZeroOfATextThatItOnlyLooksAt)
{
    const std::string file = "a: b\nc: d\n";
    LineReader reader(std::string_view(file).substr(0, 5));
    EXPECT_EQ(reader.lineNumber(), 0);
    LDIF_Line line;
    reader.next(line);
    EXPECT_EQ(recorded(line, reader.lineNumber()), attribute("a", "b", 1, 1));
    reader.next(line);
    EXPECT_EQ(recorded(line, reader.lineNumber()), end(2));
}

// ---- The object ----

LDIF_Line lineOf(LDIF_Line::Type type, const std::string& name, const std::string& value, bool valid = true)
{
    LDIF_Line line;
    line.type = type;
    line.name = name;
    line.value = value;
    line.valid = valid;
    line.lineNumber = 9;
    return line;
}

TEST(LdifLine, StrIsTheLineAsItIsWrittenBack)
{
    struct StrRow
    {
        const char* name;
        LDIF_Line line;
        const char* expected;
    };
    const std::vector<StrRow> rows = {
        {"DN", lineOf(LDIF_Line::dn, "DN", "cn=x"), "DN: cn=x"},
        {"attribute", lineOf(LDIF_Line::attribute, "a ", "b"), "a : b"},
        {"attribute without a value", lineOf(LDIF_Line::attribute, "a", ""), "a: "},
        {"attribute without a name", lineOf(LDIF_Line::attribute, "", "b"), ": b"},
        {"invalid attribute", lineOf(LDIF_Line::attribute, "no colon", "", false), "no colon: "},
        {"invalid DN", lineOf(LDIF_Line::dn, "dnfoo", "", false), "dnfoo: "},
        {"comment", lineOf(LDIF_Line::comment, "", "# c "), "# c "},
        {"the name of a comment does not count", lineOf(LDIF_Line::comment, "name", "#c"), "#c"},
        {"blank line", lineOf(LDIF_Line::blankLine, "", ""), ""},
        {"end of file", lineOf(LDIF_Line::endOfFile, "", ""), ""},
    };
    for (const StrRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.line.str(), row.expected);
    }
}

TEST_P(LdifLineFrom, ACommentComesBackExactlyAsItWasRead)
{
    std::istringstream stream("#  a: ( b ) \t\n");
    LDIF_Line line;
    line.next(stream, 0);
    EXPECT_EQ(line.str(), "#  a: ( b ) \t");
}

TEST_P(LdifLineFrom, ChangeToInvalidAttrKeepsTheText)
{
    struct ChangeRow
    {
        const char* name;
        LDIF_Line line;
        const char* value;
    };
    const std::vector<ChangeRow> rows = {
        {"no colon", lineOf(LDIF_Line::attribute, "no colon here", "", false), "no colon here: "},
        {"invalid with continuations", lineOf(LDIF_Line::attribute, "bad", "x y", false), "bad: x y"},
        {"invalid DN", lineOf(LDIF_Line::dn, "dn=x,o=y", "", false), "dn=x,o=y: "},
        {"an attribute that could not be built", lineOf(LDIF_Line::attribute, "zor-slapdPort", "abc"),
         "zor-slapdPort: abc"},
        {"untrimmed", lineOf(LDIF_Line::attribute, " (a) ", " (b) "), " (a) :  (b) "},
        {"nothing", lineOf(LDIF_Line::attribute, "", ""), ": "},
        {"a name up to its NUL", lineOf(LDIF_Line::attribute, "a\0b"s, "c"), "a: c"},
        {"a value up to its NUL", lineOf(LDIF_Line::attribute, "a", "b\0c"s), "a: b"},
    };
    for (const ChangeRow& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Line line = row.line;
        line.changeToInvalidAttr();
        EXPECT_EQ(line.name, "zor-slapdInvalidLine");
        EXPECT_EQ(line.value, row.value);
        EXPECT_EQ(line.type, row.line.type);
        EXPECT_EQ(line.valid, row.line.valid);
        EXPECT_EQ(line.lineNumber, 9);
        EXPECT_EQ(line.str(), std::string("zor-slapdInvalidLine: ") + row.value);
    }
}

TEST_P(LdifLineFrom, ChangeToInvalidAttrTwiceKeepsBoth)
{
    LDIF_Line line = lineOf(LDIF_Line::attribute, "bad", "", false);
    line.changeToInvalidAttr();
    line.changeToInvalidAttr();
    EXPECT_EQ(line.name, "zor-slapdInvalidLine");
    EXPECT_EQ(line.value, "zor-slapdInvalidLine: bad: ");
}

TEST(LdifLine, ChangeToInvalidAttrLeavesTheTypeOfAnyLine)
{
    LDIF_Line line = lineOf(LDIF_Line::comment, "", "#c");
    line.changeToInvalidAttr();
    EXPECT_EQ(line.type, LDIF_Line::comment);
    EXPECT_EQ(line.name, "zor-slapdInvalidLine");
    EXPECT_EQ(line.value, ": #c");
}

TEST(LdifLine, ChangeToInvalidAttrJoinsWideText)
{
    const LDIF_Line original = lineOf(LDIF_Line::attribute, "caf" + eAcute, "x" + wideSpace, false);
    {
        const LocaleGuard guard(utf8Locale);
        LDIF_Line line = original;
        line.changeToInvalidAttr();
        EXPECT_EQ(line.value, "caf" + eAcute + ": x" + wideSpace);
        EXPECT_FALSE(line.valid);
    }
    {
        const LocaleGuard guard(cLocale);
        LDIF_Line line = original;
        EXPECT_THROW(line.changeToInvalidAttr(), LDIF_Exception);
    }
}

TEST(LdifLine, CopiesHaveAllFields)
{
    const LDIF_Line original = lineOf(LDIF_Line::dn, "dn", "cn=x", false);
    const LDIF_Line copy(original);
    EXPECT_EQ(recorded(copy, 0), recorded(original, 0));
    LDIF_Line assigned = lineOf(LDIF_Line::comment, "", "#c");
    assigned = original;
    EXPECT_EQ(recorded(assigned, 0), recorded(original, 0));
    assigned.value = "changed";
    EXPECT_EQ(original.value, "cn=x");
}

// ---- Against a plain reader ----

/// Reads a stream one physical line at a time, every line through wide characters, seeking back from a line that
/// does not continue. Slow and obvious: what the real readers are held against.
class PlainReader
{
public:
    explicit PlainReader(const std::string& text) : stream_(text) {}

    Read next()
    {
        Read line;
        line.lineNumber = number_ + 1;
        pending_.reset();
        if (stream_.eof() || stream_.fail() || stream_.bad()) {
            line.returned = number_;
            return line;
        }
        const std::wstring text = physicalLine();
        if (w_isBlank(text)) {
            line.type = LDIF_Line::blankLine;
            line.returned = number_;
            return line;
        }
        if (text[0] == L'#') {
            line.type = LDIF_Line::comment;
            line.value = wide2multibyte(text);
            line.returned = number_;
            return line;
        }
        std::size_t position = text.find(L':');
        if (position != std::wstring::npos && position != 0) {
            line.name = wide2multibyte(text.substr(0, position));
            line.type = strcasecmp(line.name.c_str(), "dn") == 0 ? LDIF_Line::dn : LDIF_Line::attribute;
        } else {
            const std::string start = wide2multibyte(text.substr(0, 2));
            line.type = strcasecmp(start.c_str(), "dn") == 0 ? LDIF_Line::dn : LDIF_Line::attribute;
            line.name = wide2multibyte(text);
            line.valid = false;
            position = text.size();
        }
        while (position < text.size() && text[position] == L':') {
            ++position;
        }
        std::wstring value = text.substr(position);
        w_stripLeading(value);

        for (;;) {
            if (stream_.eof()) {
                line.returned = number_;
                return line;
            }
            const auto before = stream_.tellg();
            pending_ = finished(line, value, number_);
            const std::wstring following = physicalLine();
            pending_.reset();
            if (following.empty() || !w_my_isspace(following[0])) {
                --number_;
                stream_.seekg(before);
                return finished(line, value, number_);
            }
            value += following.substr(1);
        }
    }

    /// Number of the last physical line consumed; after a failure that of the line that can't be converted.
    int number() const { return number_; }

    /// After a failure on a line that was looked at as a continuation: the logical line in front of it.
    const std::optional<Read>& pending() const { return pending_; }

private:
    static Read finished(Read line, std::wstring value, int returned)
    {
        line.value = wide2multibyte(w_stripTrailing(value));
        line.returned = returned;
        return line;
    }

    std::wstring physicalLine()
    {
        ++number_;
        std::string bytes;
        std::getline(stream_, bytes);
        std::wstring wide = multibyte2wide(bytes);
        std::erase(wide, L'\r');
        return wide;
    }

    std::istringstream stream_;
    int number_ = 0;
    std::optional<Read> pending_;
};

/// Why the real readers differ from the plain one and from each other; empty when they agree.
std::string disagreement(const std::string& text, const TemporaryFolder* folder)
{
    PlainReader plain(text);
    const Reading expected = readWith(text, [&] { return plain.next(); });

    int failedAt = 0;
    const Reading memory = readFromMemory(text, &failedAt);
    const Reading stream = readFromStringStream(text);

    // A line that can't be converted is reported under its own number. Whether the line in front of it is through
    // by then is open where the two are told apart by the text that can't be read.
    Reading withPending = expected;
    if (expected.failure && plain.pending()) {
        withPending.lines.push_back(*plain.pending());
    }
    std::ostringstream report;
    if (!(memory == expected) && !(memory == withPending)) {
        report << "memory:" << memory << "\nexpected:" << expected << '\n';
    }
    if (expected.failure && failedAt != plain.number()) {
        report << "failed at " << failedAt << ", expected " << plain.number() << '\n';
    }
    if (!(stream == memory)) {
        report << "stream:" << stream << "\nmemory:" << memory << '\n';
    }
    if (folder != nullptr) {
        const Reading fromFile = readFromFile(*folder, text);
        if (!(fromFile == memory)) {
            report << "file:" << fromFile << "\nmemory:" << memory << '\n';
        }
    }
    return report.str();
}

const std::vector<std::string> asciiAlphabet = {"a", ":", "#", " ", "\t", "\r", "\n", "(", ")", "dn"};
const std::vector<std::string> anyAlphabet = {"a",   ":", "#", " ",  "\t",   "\r",      "\n",
                                              "\0"s, "(", ")", "dn", eAcute, wideSpace, "\xFF"};

/// Files of pieces: of ASCII alone, of everything, and of lines that mostly look like lines.
rc::Gen<std::string> anyFile()
{
    const auto joined = [](const std::vector<std::string>& pieces) {
        std::string text;
        for (const std::string& piece : pieces) {
            text += piece;
        }
        return text;
    };
    const auto filesOf = [&](rc::Gen<std::string> piece) {
        return rc::gen::map(rc::gen::container<std::vector<std::string>>(std::move(piece)), joined);
    };
    // Here text that no locale converts is rare, so that the reading gets far.
    const auto rarelyBad = rc::gen::weightedElement<std::string>({{10, "a"},
                                                                  {12, ":"},
                                                                  {3, "#"},
                                                                  {20, " "},
                                                                  {3, "\t"},
                                                                  {6, "\r"},
                                                                  {30, "\n"},
                                                                  {2, "\0"s},
                                                                  {3, "("},
                                                                  {3, ")"},
                                                                  {4, "dn"},
                                                                  {6, eAcute},
                                                                  {8, wideSpace},
                                                                  {1, "\xFF"}});
    const auto lines = rc::gen::element<std::string>("a: b\n", "dn: a\n", " c\n", "#\n", "\n", "bad\n", "a:\n",
                                                     " ( )\n", "\r a\n", "\r\n", wideSpace + "d\n", eAcute + ": e\n",
                                                     " " + eAcute, "\0 a\n"s, " \n", "a: \xFF\n", " \xFF\n");
    return rc::gen::oneOf(filesOf(rc::gen::elementOf(asciiAlphabet)), filesOf(rc::gen::elementOf(anyAlphabet)),
                          filesOf(rarelyBad), filesOf(lines));
}

RC_GTEST_PROP(LdifLine, StreamsAndMemoryReadAsThePlainReaderInTheCLocale, ())
{
    const LocaleGuard guard(cLocale);
    const TemporaryFolder folder;
    const std::string text = *anyFile();
    RC_ASSERT(disagreement(text, &folder) == "");
}

RC_GTEST_PROP(LdifLine, StreamsAndMemoryReadAsThePlainReaderInUtf8, ())
{
    const LocaleGuard guard(utf8Locale);
    const TemporaryFolder folder;
    const std::string text = *anyFile();
    RC_ASSERT(disagreement(text, &folder) == "");
}

/// Walks every file of up to `pieces` pieces of the alphabet; stops at the first disagreement.
std::string firstDisagreement(const std::vector<std::string>& alphabet, int pieces, const std::string& text, int& files)
{
    ++files;
    if (const std::string report = disagreement(text, nullptr); !report.empty()) {
        return testing::PrintToString(text) + "\n" + report;
    }
    if (pieces > 0) {
        for (const std::string& piece : alphabet) {
            if (std::string report = firstDisagreement(alphabet, pieces - 1, text + piece, files); !report.empty()) {
                return report;
            }
        }
    }
    return "";
}

TEST(LdifLine, EveryShortFileReadsAsThePlainReaderReadsIt)
{
    const std::vector<std::string> behindALine = {"a", ":", " ", "\r", "\n", "\0"s, wideSpace, "\xFF"};
    for (const char* const locale : {cLocale, utf8Locale}) {
        const LocaleGuard guard(locale);
        SCOPED_TRACE(locale);
        int files = 0;
        EXPECT_EQ(firstDisagreement(anyAlphabet, 3, "", files), "");
        EXPECT_EQ(files, 1 + 14 + 14 * 14 + 14 * 14 * 14);
        EXPECT_EQ(firstDisagreement(behindALine, 4, "a:b\n", files), "");
        EXPECT_EQ(firstDisagreement(behindALine, 3, "\xC3\xA9:b\n c\n", files), "");
    }
}

} // namespace
