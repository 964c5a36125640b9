// cfg_get_comment_s: the comment block above an entry or an attribute.
#include "support/api_test.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include "veltor/cfg_admin.h"

#include <string>
#include <string_view>

#include <unistd.h>

using namespace veltor::test;

namespace {

class CfgGetComment : public ApiTest
{
};

struct Comment
{
    int code;
    Text text;
};

Comment commentOf(void* handle, const char* dn, const char* attribute)
{
    // Not null beforehand, so that a call that leaves it alone shows.
    char untouched[] = "untouched";
    char* text = untouched;
    const int code = cfg_get_comment_s(handle, dn, attribute, &text);
    if (text == untouched) {
        ADD_FAILURE() << "cfg_get_comment_s left *text as it was";
        text = nullptr;
    }
    return {code, Text(text)};
}

std::string shownComment(void* handle, const char* dn, const char* attribute)
{
    const Comment comment = commentOf(handle, dn, attribute);
    EXPECT_EQ(comment.code, 0) << shown(cfg_dump_exception(handle));
    EXPECT_EQ(cfg_get_errno(handle), comment.code);
    return shown(comment.text.get());
}

constexpr char root[] = "version: 1\ncharset: UTF-8\n\n";

} // namespace

TEST_F(CfgGetComment, GivesTheBlockDirectlyAbove)
{
    struct Row
    {
        const char* name;
        std::string_view above; // what stands in the file above the DN line, behind another entry
        const char* block;
    };
    using namespace std::string_view_literals;
    const Row rows[] = {
        {"nothing", "\n"sv, ""},
        {"one line", "\n# one\n"sv, "one"},
        {"several lines", "\n# one\n# two\n# three\n"sv, "one\ntwo\nthree"},
        {"without a blank behind the sign", "\n#one\n"sv, "one"},
        {"one blank goes, others stay", "\n#   one  \n"sv, "  one  "},
        {"a tab is no blank", "\n#\tone\n"sv, "\tone"},
        {"a second sign stays", "\n## one\n"sv, "# one"},
        {"an empty line of the block", "\n# one\n#\n# three\n"sv, "one\n\nthree"},
        {"a sign alone", "\n#\n"sv, ""},
        {"a sign and a blank", "\n# \n"sv, ""},
        {"what follows the last blank line", "\n# heading\n\n# more\n\n# one\n# two\n"sv, "one\ntwo"},
        {"a blank line between", "\n# heading\n\n"sv, ""},
        {"a line of white space is a blank line", "\n# heading\n \t\n# one\n"sv, "one"},
        {"several blank lines", "\n\n\n# one\n"sv, "one"},
        {"without a blank line behind the entry before", "# one\n"sv, "one"},
        {"what stands last in the entry before", "# inside\n\n"sv, ""},
        {"that, and a block", "# inside\n\n# one\n"sv, "one"},
        {"carriage returns are not kept", "\n# one\r\n# two\r\n"sv, "one\ntwo"},
        {"beyond ASCII", "\n# gr\xC3\xBC\xC3\x9F dich\n"sv, "gr\xC3\xBC\xC3\x9F dich"},
        {"a colon makes no attribute", "\n# zor-slapdPort: 389\n"sv, "zor-slapdPort: 389"},
        {"a blank behind a comment does not go on with it", "\n# one\n\n"sv, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle =
            bound(std::string(root) + "dn: o=before\no: before\n" + std::string(row.above) + "dn: o=x\no: x\n\n");
        EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), row.block);
        EXPECT_EQ(shownComment(handle.get(), "o=before", nullptr), "");
    }
}

TEST_F(CfgGetComment, AnAttributeHasTheBlockAboveItsFirstLine)
{
    const Handle handle = bound(std::string(root) + "# of the entry\n"
                                                    "dn: o=x\n"
                                                    "# of the name\n"
                                                    "o: x\n"
                                                    "objectclass: top\n"
                                                    "# where it\n"
                                                    "#  listens\n"
                                                    "zor-slapdPort: 389\n"
                                                    "zor-slapdSuffix: o=a\n"
                                                    "zor-slapdSuffix: o=b\n"
                                                    "\n");
    EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "of the entry");
    EXPECT_EQ(shownComment(handle.get(), "o=x", "o"), "of the name");
    EXPECT_EQ(shownComment(handle.get(), "o=x", "objectclass"), "");
    EXPECT_EQ(shownComment(handle.get(), "o=x", "zor-slapdPort"), "where it\n listens");
    EXPECT_EQ(shownComment(handle.get(), "o=x", "ZOR-SLAPDPORT"), "where it\n listens") << "letter case is ignored";
    EXPECT_EQ(shownComment(handle.get(), "O=X", "zor-slapdSuffix"), "");
}

// A write puts the comments between the lines of an attribute above the first of them, in their order.
TEST_F(CfgGetComment, TheCommentsOfAnAttributesLinesAreOneBlock)
{
    const Handle handle = bound(std::string(root) + "dn: o=x\n# first\nzor-slapdSuffix: o=a\n# second\n"
                                                    "zor-slapdSuffix: o=b\n\n");
    EXPECT_EQ(shownComment(handle.get(), "o=x", "zor-slapdSuffix"), "first\nsecond");
    ASSERT_EQ(cfg_flush_s(handle.get()), 0);
    EXPECT_EQ(shownComment(bound(read()).get(), "o=x", "zor-slapdSuffix"), "first\nsecond");
}

TEST_F(CfgGetComment, TheRootsAttributesHaveBlocksToo)
{
    const Handle handle = bound("# A heading.\n"
                                "\n"
                                "# the form\n"
                                "version: 1\n"
                                "\n"
                                "# the encoding\n"
                                "charset: UTF-8\n"
                                "\n"
                                "dn: o=x\n\n");
    EXPECT_EQ(shownComment(handle.get(), "", "version"), "the form");
    EXPECT_EQ(shownComment(handle.get(), "", "charset"), "the encoding");
    EXPECT_EQ(shownComment(handle.get(), "", nullptr), "");
    EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "");
}

// The load files what stands above the first entry under a default that it adds.
TEST_F(CfgGetComment, AboveTheFirstEntryADefaultTakesTheBlock)
{
    const Handle handle = bound("# above\ndn: o=x\n\n");
    EXPECT_EQ(shownComment(handle.get(), "", "charset"), "above");
    EXPECT_EQ(shownComment(handle.get(), "", "version"), "");
    EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "");
}

TEST_F(CfgGetComment, ARejectedLineKeepsItsBlock)
{
    const Handle handle = bound(std::string(root) + "dn: o=x\n# broken\nzor-slapdPort: 389a\n\n");
    EXPECT_EQ(shownComment(handle.get(), "o=x", "zor-slapdInvalidLine"), "broken");
}

TEST_F(CfgGetComment, ANulEndsItsLineAlone)
{
    using namespace std::string_view_literals;
    const Handle handle = bound(std::string(root) + std::string("# one\0gone\n# two\ndn: o=x\n\n"sv));
    EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "one\ntwo");
}

TEST_F(CfgGetComment, SeesWhatAnotherProgramWrote)
{
    const Handle handle = bound(std::string(root) + "# old\ndn: o=x\n\n");
    EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "old");
    shiftModificationTime(write(std::string(root) + "# new\ndn: o=x\n\n"), 10);
    EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "new");
}

TEST_F(CfgGetComment, EachCallGivesAFreshCopy)
{
    const Handle handle = bound(std::string(root) + "# one\ndn: o=x\n\n");
    const Comment first = commentOf(handle.get(), "o=x", nullptr);
    const Comment second = commentOf(handle.get(), "o=x", nullptr);
    EXPECT_STREQ(first.text.get(), "one");
    EXPECT_STREQ(second.text.get(), "one");
    EXPECT_NE(first.text.get(), second.text.get());
}

TEST_F(CfgGetComment, FailuresTellWhatIsMissing)
{
    struct Row
    {
        const char* name;
        const char* dn;
        const char* attribute;
        int code;
        int libraryCode;
        const char* keptDn;
        const char* keptAttribute;
    };
    const Row rows[] = {
        {"no such entry", "cn=y,o=x", nullptr, 32, 32, "cn=y, o=x", "(null)"},
        {"no such entry for the attribute", "cn=y,o=x", "o", 32, 32, "cn=y, o=x", "(null)"},
        {"no such attribute", "o=x", "zor-slapdPort", 16, 16, "o=x", "zor-slapdPort"},
        {"no name of an attribute", "o=x", "", 16, 16, "o=x", "(null)"},
        {"no such attribute of the root", "", "zor-slapdPort", 16, 16, "", "zor-slapdPort"},
        {"no DN", "=x", nullptr, 34, 1012, nullptr, nullptr},
    };
    const Handle handle = bound(std::string(root) + "# one\ndn: o=x\no: x\n\n");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Comment comment = commentOf(handle.get(), row.dn, row.attribute);
        EXPECT_EQ(comment.code, row.code);
        EXPECT_EQ(comment.text, nullptr);
        EXPECT_EQ(cfg_get_errno(handle.get()), row.code);
        EXPECT_EQ(cfg_get_exterror(handle.get()), row.libraryCode);
        if (row.keptDn != nullptr) {
            EXPECT_STREQ(cfg_get_entry(handle.get()), row.keptDn);
            EXPECT_EQ(shown(cfg_get_attribute(handle.get())), row.keptAttribute);
        }
        EXPECT_EQ(shownComment(handle.get(), "o=x", nullptr), "one") << "the handle goes on";
    }
}

TEST_F(CfgGetComment, AFileThatIsGoneIs91)
{
    const Handle handle = bound(std::string(root) + "# one\ndn: o=x\n\n");
    ASSERT_EQ(unlink(pathOf("zorslapd.conf").c_str()), 0);
    const Comment comment = commentOf(handle.get(), "o=x", nullptr);
    EXPECT_EQ(comment.code, 91);
    EXPECT_EQ(comment.text, nullptr);
}

TEST_F(CfgGetComment, NullPointersAndAnUnboundHandleAre89)
{
    const Handle handle = bound(std::string(root) + "# one\ndn: o=x\n\n");
    const Handle unboundHandle = withKeptFailure();
    const auto expectRefused = [](void* target, int code) {
        EXPECT_EQ(code, 89);
        EXPECT_EQ(cfg_get_errno(target), 89);
        EXPECT_EQ(cfg_dump_exception(target), nullptr);
    };
    expectRefused(handle.get(), cfg_get_comment_s(handle.get(), "o=x", nullptr, nullptr));
    expectRefused(handle.get(), commentOf(handle.get(), nullptr, nullptr).code);
    expectRefused(unboundHandle.get(), commentOf(unboundHandle.get(), "o=x", nullptr).code);
    EXPECT_EQ(commentOf(nullptr, "o=x", nullptr).code, 89);
}
