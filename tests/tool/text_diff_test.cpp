// The difference of two texts: its form, that it is a difference at all, and that it is no longer than needed.
#include "text_diff.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using veltor::tool::LineChange;
using veltor::tool::lineChanges;
using veltor::tool::linesOf;
using veltor::tool::unifiedDiff;

namespace {

std::string numberedLines(int count)
{
    std::string text;
    for (int line = 1; line <= count; ++line) {
        text += std::to_string(line) + '\n';
    }
    return text;
}

/// The other text, made by carrying the changes out.
std::string carriedOut(const std::string& before, const std::string& after, const std::vector<LineChange>& changes)
{
    const std::vector<std::string_view> beforeLines = linesOf(before);
    const std::vector<std::string_view> afterLines = linesOf(after);
    std::string text;
    std::size_t at = 0;
    for (const LineChange& change : changes) {
        for (; at < change.before; ++at) {
            text += beforeLines[at];
        }
        at += change.beforeCount;
        for (std::size_t line = change.after; line < change.after + change.afterCount; ++line) {
            text += afterLines[line];
        }
    }
    for (; at < beforeLines.size(); ++at) {
        text += beforeLines[at];
    }
    return text;
}

std::size_t linesIn(const std::vector<LineChange>& changes)
{
    std::size_t count = 0;
    for (const LineChange& change : changes) {
        count += change.beforeCount + change.afterCount;
    }
    return count;
}

/// The fewest lines that must go or come, by the table that everybody knows.
std::size_t fewestLines(const std::vector<std::string_view>& before, const std::vector<std::string_view>& after)
{
    std::vector<std::size_t> common(after.size() + 1);
    for (const std::string_view line : before) {
        std::size_t diagonal = 0;
        for (std::size_t y = 0; y < after.size(); ++y) {
            const std::size_t above = common[y + 1];
            common[y + 1] = line == after[y] ? diagonal + 1 : std::max(above, common[y]);
            diagonal = above;
        }
    }
    return before.size() + after.size() - 2 * common.back();
}

/// A few different lines in any order, with or without a line feed at the end.
std::string randomText(std::mt19937& random, std::size_t mostLines, unsigned alphabet)
{
    const std::size_t count = random() % (mostLines + 1);
    std::string text;
    for (std::size_t line = 0; line < count; ++line) {
        const auto letter = static_cast<unsigned>(random() % alphabet);
        text += letter == 0 ? "\n" : letter == 1 ? "dn: x\n" : std::string(1, static_cast<char>('a' + letter)) + '\n';
    }
    // A text of one empty line would become the empty text.
    if (text.size() > 1 && text[text.size() - 2] != '\n' && random() % 4 == 0) {
        text.pop_back();
    }
    return text;
}

/// The text with some lines taken out, put in or changed.
std::string edited(std::mt19937& random, const std::string& text, unsigned oneIn)
{
    std::string result;
    for (const std::string_view line : linesOf(text)) {
        switch (random() % (3 * oneIn)) {
        case 0:
            break;
        case 1:
            result += "new " + std::to_string(random() % 3) + '\n';
            result += line;
            break;
        case 2:
            result += "changed\n";
            break;
        default:
            result += line;
        }
    }
    return result;
}

void write(const std::filesystem::path& file, const std::string& text)
{
    std::ofstream(file, std::ios::binary) << text;
}

std::string contentOf(const std::filesystem::path& file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

class Folder
{
public:
    Folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "text_diff_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("there is no folder to work in");
        }
        path_ = name;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::filesystem::path operator/(const char* name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

} // namespace

TEST(TextDiff, HasTheUnifiedForm)
{
    struct Row
    {
        const char* name;
        std::string before, after, hunks;
    };
    const Row rows[] = {
        {"equal", "a\nb\n", "a\nb\n", ""},
        {"both empty", "", "", ""},
        {"one line of three", "a\nb\nc\n", "a\nB\nc\n", "@@ -1,3 +1,3 @@\n a\n-b\n+B\n c\n"},
        {"one line of one", "a\n", "b\n", "@@ -1 +1 @@\n-a\n+b\n"},
        {"into the empty text", "", "a\nb\n", "@@ -0,0 +1,2 @@\n+a\n+b\n"},
        {"to the empty text", "a\nb\n", "", "@@ -1,2 +0,0 @@\n-a\n-b\n"},
        {"the line feed at the end is missing before", "a\nb", "a\nb\n",
         "@@ -1,2 +1,2 @@\n a\n-b\n\\ No newline at end of file\n+b\n"},
        {"and after", "a\nb\n", "a\nb", "@@ -1,2 +1,2 @@\n a\n-b\n+b\n\\ No newline at end of file\n"},
        {"and in both", "a\nb", "A\nb", "@@ -1,2 +1,2 @@\n-a\n+A\n b\n\\ No newline at end of file\n"},
        {"three lines of context", numberedLines(9), "1\n2\n3\n4\nfive\n6\n7\n8\n9\n",
         "@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+five\n 6\n 7\n 8\n"},
        {"six common lines join two changes", numberedLines(8), "one\n2\n3\n4\n5\n6\n7\neight\n",
         "@@ -1,8 +1,8 @@\n-1\n+one\n 2\n 3\n 4\n 5\n 6\n 7\n-8\n+eight\n"},
        {"seven don't", numberedLines(9), "one\n2\n3\n4\n5\n6\n7\n8\nnine\n",
         "@@ -1,4 +1,4 @@\n-1\n+one\n 2\n 3\n 4\n@@ -6,4 +6,4 @@\n 6\n 7\n 8\n-9\n+nine\n"},
        {"an added entry goes with the blank line behind it", "dn: a\nx: 1\n\ndn: c\nx: 1\n\n",
         "dn: a\nx: 1\n\ndn: b\nx: 1\n\ndn: c\nx: 1\n\n",
         "@@ -1,6 +1,9 @@ a\n dn: a\n x: 1\n \n+dn: b\n+x: 1\n+\n dn: c\n x: 1\n \n"},
        {"the entry stands behind the numbers", "dn: cn=A, cn=B \r\nx: 1\n1\n2\n3\ny: 1\n",
         "dn: cn=A, cn=B \r\nx: 1\n1\n2\n3\ny: 2\n", "@@ -3,4 +3,4 @@ cn=A, cn=B\n 1\n 2\n 3\n-y: 1\n+y: 2\n"},
        {"a changed DN line begins its entry", "dn: a\ny: 1\n", "dn: b\ny: 1\n",
         "@@ -1,2 +1,2 @@ a\n-dn: a\n+dn: b\n y: 1\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string head = row.hunks.empty() ? "" : "--- old\n+++ new\n";
        EXPECT_EQ(unifiedDiff(row.before, row.after, "old", "new"), head + row.hunks);
    }
}

TEST(TextDiff, ChangesMakeTheOtherTextAndAreTheFewest)
{
    std::mt19937 random(20);
    for (int round = 0; round < 20000; ++round) {
        const std::string before = randomText(random, 24, 2 + static_cast<unsigned>(round) % 7);
        const std::string after =
            round % 2 == 0 ? randomText(random, 24, 2 + static_cast<unsigned>(round) % 7) : edited(random, before, 3);
        SCOPED_TRACE("before:\n" + before + "after:\n" + after);
        const std::vector<LineChange> changes = lineChanges(linesOf(before), linesOf(after));
        ASSERT_EQ(carriedOut(before, after, changes), after);
        ASSERT_EQ(linesIn(changes), fewestLines(linesOf(before), linesOf(after)));
        for (std::size_t index = 1; index < changes.size(); ++index) {
            const LineChange& above = changes[index - 1];
            ASSERT_GT(changes[index].before, above.before + above.beforeCount);
        }
    }
}

TEST(TextDiff, PatchMakesTheOtherTextOfIt)
{
    const Folder folder;
    std::mt19937 random(7);
    const std::string quiet = " >" + (folder / "said").string() + " 2>&1";
    const std::string patch = "patch -s -u -f -F0 -o " + (folder / "made").string() + ' ' +
                              (folder / "before").string() + ' ' + (folder / "diff").string() + quiet;
    const std::string compare = "diff -u " + (folder / "before").string() + ' ' + (folder / "after").string() + " >" +
                                (folder / "theirs").string();
    for (int round = 0; round < 100; ++round) {
        const std::string before = randomText(random, 60, 12);
        const std::string after = round % 3 == 0 ? randomText(random, 60, 12) : edited(random, before, 6);
        if (before == after || after.empty()) {
            continue;
        }
        SCOPED_TRACE("before:\n" + before + "after:\n" + after);
        const std::string ours = unifiedDiff(before, after, "before", "after");
        write(folder / "before", before);
        write(folder / "after", after);
        write(folder / "diff", ours);
        ASSERT_EQ(std::system(patch.c_str()), 0) << ours << contentOf(folder / "said");
        ASSERT_EQ(contentOf(folder / "made"), after) << ours;
        // Another program may show other lines of several that would do, but not fewer.
        ASSERT_NE(std::system(compare.c_str()), -1);
        const auto changedLines = [](const std::string& diff) {
            std::size_t count = 0;
            for (const std::string_view line : linesOf(diff)) {
                count += (line.front() == '-' || line.front() == '+') && !line.starts_with("--- ") &&
                                 !line.starts_with("+++ ")
                             ? 1
                             : 0;
            }
            return count;
        };
        ASSERT_LE(changedLines(ours), changedLines(contentOf(folder / "theirs")));
    }
}

TEST(TextDiff, ANameWithALineFeedStaysOnItsLine)
{
    EXPECT_TRUE(unifiedDiff("a\n", "b\n", "old\nname", "new\x1B[31m")
                    .starts_with("--- old\\x0aname\n+++ new\\x1b[31m\n@@ -1 +1 @@"));
}

// Time grows with the lines when few change, and is bounded when all change: the limits are many times what is used.
TEST(TextDiff, LargeTextsTakeLittleTime)
{
    std::mt19937 random(3);
    std::string before;
    for (int line = 0; line < 200000; ++line) {
        before += "line " + std::to_string(random() % 1000) + '\n';
    }
    const auto secondsOf = [](const std::string& left, const std::string& right) {
        const std::clock_t begin = std::clock();
        const std::vector<LineChange> changes = lineChanges(linesOf(left), linesOf(right));
        const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
        EXPECT_EQ(carriedOut(left, right, changes), right);
        return seconds;
    };
    EXPECT_LT(secondsOf(before, edited(random, before, 10000)), 5);
    std::string other;
    for (int line = 0; line < 50000; ++line) {
        other += "line " + std::to_string(random() % 1000) + '\n';
    }
    EXPECT_LT(secondsOf(before.substr(0, other.size()), other), 20);
}
