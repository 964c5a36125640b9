// What is proposed is taken by a shell as it is meant.
#include "shell_word.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using veltor::tool::shellWord;

namespace {

std::string echoed(const std::string& word)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> shell(::popen(("printf %s " + word).c_str(), "r"), ::pclose);
    std::string text;
    for (int character = std::fgetc(shell.get()); character != EOF; character = std::fgetc(shell.get())) {
        text += static_cast<char>(character);
    }
    return text;
}

} // namespace

TEST(ShellWord, PlainWordsStayAsTheyAre)
{
    for (const char* const text : {"zorslapd.conf", "/etc/a-b_c.conf", "cn=Configuration", "--x=1,2:3@4+5%6"}) {
        EXPECT_EQ(shellWord(text), text);
    }
}

TEST(ShellWord, IsReadBackByAShell)
{
    for (const char* const text : {"", "cn=Front End, cn=Configuration", "cn=\"q,r\", cn=a", "cn=`echo id`", "$HOME",
                                   "a'b", "'", "''", "a\\b", "*", "~", "#x", "a;b", "a\nb", "cp '/a b/c'"}) {
        EXPECT_EQ(echoed(shellWord(text)), text);
    }
}
