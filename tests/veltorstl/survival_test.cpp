// What would not come back from a write: names, values, DNs, comment lines and whole trees.
#include "survival.h"

#include "support/store_test.h"

#include "LDIF_Comment.h"
#include "LDIF_DN.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

using namespace veltor::detail;
using namespace veltor::test;

namespace {

constexpr int invalidSyntax = 21;
constexpr int invalidDnSyntax = 34;

class Survival : public StoreTest
{
protected:
    /// Compares the trees of two texts.
    void compare(std::string_view meant, std::string_view read) const
    {
        const std::unique_ptr<LDIF_File> left = loaded(meant);
        const std::unique_ptr<LDIF_File> right = loaded(read);
        needsEqual({left->root, left->trailingComment}, {right->root, right->trailingComment});
    }
};

TEST_F(Survival, OnlyNamesAsLdapDefinesThemAreUsable)
{
    for (const char* const name : {"a", "Z", "cn", "zor-slapdPort", "x-1", "dnx"}) {
        EXPECT_NO_THROW(needsUsableName(name)) << name;
    }
    for (const char* const name :
         {"", "dn", "DN", "1a", "-a", "@a", "[a", "{a", "`a", "a b", "a_b", "a:b", "a;b", "a/b", "\xC3\xA9"}) {
        const LDIF_Exception failure = failureOf([&] { needsUsableName(name); });
        expectFailure(failure, invalidSyntax, invalidSyntax,
                      "Not a name for an attribute: \"" + std::string(name) + "\"");
        EXPECT_EQ(failure.attribute, name);
    }
}

TEST_F(Survival, ValuesThatWouldComeBackAsOthersAreRefused)
{
    const struct
    {
        const char* name;
        std::string attribute;
        std::string value;
        const char* back; // null: it survives
    } rows[] = {
        {"a text", "description", "one (two) three", nullptr},
        {"nothing", "description", "", nullptr},
        {"a number", "zor-slapdPort", "389", nullptr},
        {"a blank in front", "description", " one", R"(as "one")"},
        {"a blank at the end", "description", "one ", R"(as "one")"},
        {"a line feed", "description", "one\ntwo", "as more than one line, or none of this attribute"},
        {"a line feed before a blank", "description", "one\n two", R"(as "onetwo")"},
        {"a NUL in the name", std::string("a\0b", 3), "one", "as more than one line, or none of this attribute"},
        {"a name with a colon", "a:b", "one", R"(as "b: one")"},
        {"a comment's name", "#a", "one", "as more than one line, or none of this attribute"},
        {"the DN's label", "dn", "cn=a", "as more than one line, or none of this attribute"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.back == nullptr) {
            EXPECT_NO_THROW(needsToSurvive(row.attribute, row.value));
            continue;
        }
        const LDIF_Exception failure = failureOf([&] { needsToSurvive(row.attribute, row.value); });
        expectFailure(failure, invalidSyntax, invalidSyntax, std::string("The value would come back ") + row.back);
        EXPECT_EQ(failure.attribute, row.attribute);
        EXPECT_EQ(failure.value, row.value);
    }
}

TEST_F(Survival, CommentLinesThatWouldComeBackAsOthersAreRefused)
{
    EXPECT_NO_THROW(needsToSurvive(commentOf({"# one"}).lines.front()));
    EXPECT_NO_THROW(needsToSurvive(commentOf({"#"}).lines.front()));
    const struct
    {
        const char* text;
        const char* back;
    } rows[] = {
        {"# one\r", R"(as "# one")"},
        {"one", R"(as "")"},
        {"# one\n# two", R"(as "# one")"},
    };
    for (const auto& row : rows) {
        const LDIF_Exception failure = failureOf([&] { needsToSurvive(commentOf({row.text}).lines.front()); });
        expectFailure(failure, invalidSyntax, invalidSyntax,
                      std::string("The comment line would come back ") + row.back);
        EXPECT_EQ(failure.value, row.text);
    }
}

TEST_F(Survival, TheEmptyDnIsRefused)
{
    EXPECT_NO_THROW(needsToSurvive(dnOf("cn=a,o=x")));
    expectFailure(failureOf([] { needsToSurvive(LDIF_DN()); }), 65, 65,
                  "An entry with an empty DN would merge into the root");
}

// ---- Trees ----

constexpr char tree[] = "charset: UTF-8\nversion: 1\n\ndn: o=x\nobjectclass: top\n\n# the first\ndn: cn=a, o=x\n"
                        "objectclass: top\n# where\nzor-slapdPort: 389\n\n# the end\n";

std::string with(const std::string& old, const std::string& text)
{
    std::string changed = tree;
    return changed.replace(changed.find(old), old.size(), text);
}

TEST_F(Survival, BlankLinesAndThePlacesOfCommentLinesMakeNoDifference)
{
    EXPECT_NO_THROW(compare(tree, tree));
    EXPECT_NO_THROW(compare(tree, with("# the first\n", "\n\n# the first\n\n")));
    // The last line of one entry becomes the first of the next.
    EXPECT_NO_THROW(compare(with("\n# the first\n", "# the first\n\n"), tree));
}

TEST_F(Survival, TheFirstDifferenceOfTwoTreesIsTold)
{
    const std::string port = "zor-slapdPort: 389\n";
    const std::string entry = "dn: cn=a, o=x\nobjectclass: top\n# where\nzor-slapdPort: 389\n";
    const struct
    {
        const char* name;
        std::string meant;
        std::string read;
        int code;
        const char* message;
        const char* entry;
        const char* attribute;
        const char* value;
    } rows[] = {
        {"another value", tree, with("389", "636"), invalidSyntax, R"(The value would come back as "636")", "cn=a, o=x",
         "zor-slapdPort", "389"},
        {"a value less", with(port, "cn: a\ncn: b\n"), with(port, "cn: a\n"), invalidSyntax,
         "The value would not come back", "cn=a, o=x", "cn", "b"},
        {"a value more", with(port, "cn: a\n"), with(port, "cn: a\ncn: b\n"), invalidSyntax,
         R"(Another value would come back: "b")", "cn=a, o=x", "cn", "b"},
        {"a value of the root", tree, with("UTF-8", "ISO-8859-1"), invalidSyntax,
         R"(The value would come back as "ISO-8859-1")", "<root>", "charset", "UTF-8"},
        {"an attribute less", tree, with(port, ""), invalidSyntax, "The attribute would not come back", "cn=a, o=x",
         "zor-slapdPort", "389"},
        {"an attribute more", tree, with(port, port + "zz: a\n"), invalidSyntax, R"(Another attribute would come back)",
         "cn=a, o=x", "zz", "a"},
        {"another attribute", tree, with(port, "zz: a\n"), invalidSyntax, R"(The attribute "zz" would come back here)",
         "cn=a, o=x", "zor-slapdPort", "389"},
        {"an entry less", tree, with(entry, ""), invalidDnSyntax, "The entry would not come back", "cn=a, o=x", "", ""},
        {"an entry more", tree, with(entry, entry + "\ndn: cn=b, o=x\ncn: b\n"), invalidDnSyntax,
         "Another entry would come back", "cn=b, o=x", "", ""},
        {"another entry", tree, with("cn=a", "cn=b"), invalidDnSyntax, R"(The entry "cn=b, o=x" would come back here)",
         "cn=a, o=x", "", ""},
        {"another comment line", tree, with("# the first", "# the last"), invalidSyntax,
         "A comment line would not come back as it is", "", "", "# the first"},
        {"an attribute's comment line less", tree, with("# where\n", ""), invalidSyntax,
         "A comment line would not come back as it is", "", "", "# where"},
        {"the last comment line less", tree, with("# the end\n", ""), invalidSyntax,
         "A comment line would not come back as it is", "", "", "# the end"},
        {"a comment line more", tree, std::string(tree) + "# more\n", invalidSyntax,
         "A comment line would not come back as it is", "", "", "# more"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const LDIF_Exception failure = failureOf([&] { compare(row.meant, row.read); });
        expectFailure(failure, row.code, row.code, row.message);
        EXPECT_EQ(failure.entryDn, row.entry);
        EXPECT_EQ(failure.attribute, row.attribute);
        EXPECT_EQ(failure.value, row.value);
    }
}

TEST_F(Survival, ListsAreEqualWhenTheyWouldBeWrittenAlike)
{
    const auto attributesOf = [this](const std::string& lines) {
        const std::unique_ptr<LDIF_File> store = loaded("dn: cn=a\n" + lines + "\n");
        return store->entryOf(dnOf("cn=a")).attributes;
    };
    const LDIF_Attributes attributes = attributesOf("# one\ncn: a\ncn: b\nport: 1\n");
    EXPECT_TRUE(areEqual(attributes, attributesOf("# one\ncn: a\ncn: b\nport: 1\n")));
    for (const char* const lines :
         {"# one\ncn: a\nport: 1\n", "# one\ncn: b\ncn: a\nport: 1\n", "# one\ncn: a\ncn: b\n",
          "# one\nCN: a\ncn: b\nport: 1\n", "# two\ncn: a\ncn: b\nport: 1\n", "cn: a\ncn: b\nport: 1\n",
          "# one\ncn: a\ncn: b\nport: 2\n"}) {
        EXPECT_FALSE(areEqual(attributes, attributesOf(lines))) << lines;
    }
}

} // namespace
