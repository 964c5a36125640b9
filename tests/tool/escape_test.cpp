// What reaches a terminal, character class by character class.
#include "escape.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <string>

using veltor::tool::columnsOf;
using veltor::tool::escaped;

namespace {

struct Row
{
    const char* name;
    std::string text, shown;
};

} // namespace

TEST(Escape, ShowsWhatATerminalWouldObeyAsBytes)
{
    const Row rows[] = {
        {"empty text", "", ""},
        {"plain ASCII", "cn=Configuration", "cn=Configuration"},
        {"backslash stays", "cn=a\\2Cb", "cn=a\\2Cb"},
        {"umlauts stay", "K\xC3\xB6ln", "K\xC3\xB6ln"},
        {"four-byte characters stay", "\xF0\x9F\x94\x91", "\xF0\x9F\x94\x91"},
        {"escape", "\x1B[31m", "\\x1b[31m"},
        {"line feed and tab", "a\nb\tc", "a\\x0ab\\x09c"},
        {"NUL", std::string("a\0b", 3), "a\\x00b"},
        {"DEL", "\x7F", "\\x7f"},
        {"C1 control as UTF-8", "\xC2\x9B", "\\xc2\\x9b"},
        {"first character behind C1", "\xC2\xA0", "\xC2\xA0"},
        {"C1 control as a bare byte", "\x9B", "\\x9b"},
        {"right-to-left override",
         "a\xE2\x80\xAE"
         "b",
         "a\\xe2\\x80\\xaeb"},
        {"left-to-right mark", "\xE2\x80\x8E", "\\xe2\\x80\\x8e"},
        {"isolate", "\xE2\x81\xA6", "\\xe2\\x81\\xa6"},
        {"arabic letter mark", "\xD8\x9C", "\\xd8\\x9c"},
        {"line separator", "\xE2\x80\xA8", "\\xe2\\x80\\xa8"},
        {"byte order mark", "\xEF\xBB\xBFversion", "\\xef\\xbb\\xbfversion"},
        {"space of no width", "\xE2\x80\x8B", "\\xe2\\x80\\x8b"},
        {"joiner, which scripts need", "\xE2\x80\x8D", "\xE2\x80\x8D"},
        {"overlong slash", "\xC0\xAF", "\\xc0\\xaf"},
        {"overlong escape", "\xE0\x80\x9B", "\\xe0\\x80\\x9b"},
        {"surrogate", "\xED\xA0\x80", "\\xed\\xa0\\x80"},
        {"above the last character", "\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
        {"cut short at the end", "a\xE2\x82", "a\\xe2\\x82"},
        {"cut short before ASCII",
         "\xC3"
         "x",
         "\\xc3x"},
        {"Latin-1", "K\xF6ln", "K\\xf6ln"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(escaped(row.text), row.shown);
    }
}

RC_GTEST_PROP(Escape, LeavesNoControlByteOfAnyText, (const std::string& text))
{
    for (const char byte : escaped(text)) {
        RC_ASSERT(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F);
    }
}

RC_GTEST_PROP(Escape, LeavesHarmlessTextAlone, ())
{
    const auto text = *rc::gen::container<std::string>(rc::gen::inRange(' ', '~'));
    RC_ASSERT(escaped(text) == text);
}

TEST(Escape, CountsColumnsByCharacterNotByByte)
{
    EXPECT_EQ(columnsOf(""), 0U);
    EXPECT_EQ(columnsOf("abc"), 3U);
    EXPECT_EQ(columnsOf("K\xC3\xB6ln"), 4U);
    EXPECT_EQ(columnsOf(escaped("\x1B")), 4U);
}

TEST(Escape, LineFeedsStayBetweenLines)
{
    EXPECT_EQ(veltor::tool::escapedLines(""), "");
    EXPECT_EQ(veltor::tool::escapedLines("a\r\n\n\x1B[b\n"), "a\\x0d\n\n\\x1b[b\n");
    EXPECT_EQ(veltor::tool::escapedLines("a\nb"), "a\nb");
}
