// Entries and the tree that they form.
#include "LDIF_Entry.h"

#include "LDIF_AttrType.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "support/ldif.h"
#include "support/locale_guard.h"

using veltor::test::attributeLine;
using veltor::test::commentOf;
using veltor::test::dnOf;
using veltor::test::expectFailure;
using veltor::test::failureOf;
using veltor::test::lineOf;
using veltor::test::LocaleGuard;

namespace {

LDIF_Entry entryOf(const std::string& dn)
{
    return LDIF_Entry(dnOf(dn));
}

void add(LDIF_Entry& parent, const std::string& dn)
{
    LDIF_Entry entry = entryOf(dn);
    parent += entry;
}

LDIF_Entry treeOf(std::initializer_list<const char*> dns)
{
    LDIF_Entry root;
    for (const char* const dn : dns) {
        add(root, dn);
    }
    return root;
}

/// One line for each entry: two blanks for each level, the relative DN, the full DN in brackets.
void outline(const LDIF_Entry& entry, std::size_t level, std::string& text)
{
    text += std::string(2 * level, ' ') + entry.relDn.str() + " [" + entry.dn.str() + "]\n";
    for (const auto& child : entry.children) {
        outline(child, level + 1, text);
    }
}

std::string outlineOf(const LDIF_Entry& entry)
{
    std::string text;
    outline(entry, 0, text);
    return text;
}

/// The outline of what is below.
std::string childrenOf(const LDIF_Entry& entry)
{
    std::string text;
    for (const auto& child : entry.children) {
        outline(child, 0, text);
    }
    return text;
}

std::string printed(const LDIF_Entry& entry)
{
    std::ostringstream stream;
    stream << entry;
    return stream.str();
}

/// The DN that find gives, or "none".
std::string found(LDIF_Entry& root, const std::string& dn)
{
    const LDIF_Entry* const entry = root.find(dnOf(dn));
    return entry == nullptr ? "none" : entry->dn.str();
}

/// A root with this many children "cn=0,o=x", "cn=1,o=x" and so on: enough for the list to keep an index.
LDIF_Entry wideTree(int width)
{
    LDIF_Entry root;
    for (int number = 0; number < width; ++number) {
        add(root, "cn=" + std::to_string(number) + ",o=x");
    }
    return root;
}

} // namespace

// ---- Construction ----

TEST(LdifEntry, TheRootIsEmptyInEveryField)
{
    const LDIF_Entry root;
    EXPECT_TRUE(root.dnLabel.empty());
    EXPECT_TRUE(root.dn.empty());
    EXPECT_TRUE(root.relDn.empty());
    EXPECT_TRUE(root.comment.lines.empty());
    EXPECT_TRUE(root.attributes.empty());
    EXPECT_TRUE(root.children.empty());
    EXPECT_EQ(root.str(), "");
}

TEST(LdifEntry, AnEntryFromADnHasTheUsualLabel)
{
    const LDIF_Entry entry(dnOf("CN=a,O=X"));
    EXPECT_EQ(static_cast<const std::string&>(entry.dnLabel), "dn");
    EXPECT_EQ(entry.dn.str(), "CN=a, O=X");
    EXPECT_EQ(entry.relDn.str(), "CN=a, O=X");
    EXPECT_TRUE(entry.comment.lines.empty());
    EXPECT_TRUE(entry.attributes.empty());
    EXPECT_TRUE(entry.children.empty());
}

TEST(LdifEntry, AnEntryFromALineKeepsTheLabelAsWritten)
{
    const LDIF_Comment above = commentOf({"", "# above"});
    const LDIF_Entry entry(lineOf(LDIF_Line::dn, "DN", "cn=a;o=x"), above);
    EXPECT_EQ(static_cast<const std::string&>(entry.dnLabel), "DN");
    EXPECT_EQ(entry.relDn.str(), "cn=a, o=x");
    EXPECT_EQ(entry.str(), "\n# above\nDN: cn=a, o=x\n\n");
    EXPECT_EQ(above.lines.size(), 2U) << "the comment is copied";
}

TEST(LdifEntry, AnEntryFromALineCanHaveAnyLabel)
{
    const LDIF_Entry entry(lineOf(LDIF_Line::dn, "zor-slapdInvalidLine", "o=x"), LDIF_Comment());
    EXPECT_EQ(entry.str(), "zor-slapdInvalidLine: o=x\n\n");
}

TEST(LdifEntry, OtherLinesAreRefusedByTheNameOfTheirType)
{
    const struct
    {
        int type;
        const char* message;
    } rows[] = {
        {0, "Illegal constructor LDIF_Entry( LDIF_Line::endOfFile );"},
        {1, "Illegal constructor LDIF_Entry( LDIF_Line::blankLine );"},
        {2, "Illegal constructor LDIF_Entry( LDIF_Line::comment );"},
        {4, "Illegal constructor LDIF_Entry( LDIF_Line::attribute );"},
        {5, "Illegal constructor LDIF_Entry( LDIF_Line::UNKNOWN );"},
        {-1, "Illegal constructor LDIF_Entry( LDIF_Line::UNKNOWN );"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const LDIF_Line line = lineOf(static_cast<LDIF_Line::Type>(row.type), "dn", "o=x");
        expectFailure(failureOf([&] { LDIF_Entry(line, LDIF_Comment()); }), 80, 1000, row.message);
    }
}

TEST(LdifEntry, ADnThatCannotBeParsedPassesThrough)
{
    const auto failure = failureOf([] { LDIF_Entry(lineOf(LDIF_Line::dn, "dn", "cn=a,"), LDIF_Comment()); });
    expectFailure(failure, 34, 1011, "Missing RDN attribute");
    EXPECT_EQ(failure.value, "cn=a,");
}

TEST(LdifEntry, CopiesAreDeep)
{
    LDIF_Entry original = treeOf({"o=x", "cn=a,o=x"});
    original.comment = commentOf({"# one"});
    original += LDIF_Attribute("version", "1");
    const LDIF_Entry copy(original);
    LDIF_Entry assigned = entryOf("o=other");
    assigned = original;
    const std::string before = printed(original) + outlineOf(original);

    original.children.front().children.clear();
    original.comment.lines.clear();
    original.attributes.clear();
    original.dnLabel = "dn";
    add(original, "o=y");
    for (const LDIF_Entry* const kept : {&copy, &std::as_const(assigned)}) {
        EXPECT_EQ(printed(*kept) + outlineOf(*kept), before);
    }
}

// ---- Comments and attributes ----

TEST(LdifEntry, AddingACommentAppendsItsLines)
{
    LDIF_Entry entry(lineOf(LDIF_Line::dn, "dn", "o=x"), commentOf({"# one"}));
    LDIF_Entry& result = entry += commentOf({"# two", ""});
    EXPECT_EQ(&result, &entry);
    EXPECT_EQ(entry.str(), "# one\n# two\n\ndn: o=x\n\n");
}

TEST(LdifEntry, AddingAnAttributeMergesByName)
{
    LDIF_Entry entry = entryOf("o=x");
    LDIF_Entry& result = entry += LDIF_Attribute("sn", "b");
    EXPECT_EQ(&result, &entry);
    entry += LDIF_Attribute("cn", "a");
    entry += LDIF_Attribute("CN", "A");
    entry += LDIF_Attribute("CN", "c");
    EXPECT_EQ(entry.str(), "dn: o=x\ncn: a\ncn: c\nsn: b\n\n");
}

// ---- Printing ----

TEST(LdifEntry, TheTextIsCommentDnAttributesAndABlankLine)
{
    LDIF_Entry entry(lineOf(LDIF_Line::dn, "dn", "CN=b+OU=a , o=x"), commentOf({"# one", "# two"}));
    LDIF_Attribute attribute("cn", "b");
    attribute.comment = commentOf({"# three"});
    entry += attribute;
    add(entry, "cn=below,CN=b+OU=a,o=x");
    EXPECT_EQ(entry.str(), "# one\n# two\ndn: CN=b + OU=a, o=x\n# three\ncn: b\n\n");
}

TEST(LdifEntry, AnEntryWithALabelAlwaysEndsWithABlankLine)
{
    LDIF_Entry root = treeOf({"o=x", "o=y"});
    root.children[1].comment = commentOf({"", "# above"});
    EXPECT_EQ(printed(root), "\ndn: o=x\n\n\n# above\ndn: o=y\n\n");
}

TEST(LdifEntry, TheRootEndsWithABlankLineWhereTheFileHasNone)
{
    const struct
    {
        const char* name;
        std::vector<LDIF_Entry> children;
        const char* text;
    } rows[] = {
        {"no children", {}, "version: 1\n"},
        {"no comment", {entryOf("o=x")}, "version: 1\n\n"},
        {"a comment", {LDIF_Entry(lineOf(LDIF_Line::dn, "dn", "o=x"), commentOf({"# c"}))}, "version: 1\n\n"},
        {"a blank line", {LDIF_Entry(lineOf(LDIF_Line::dn, "dn", "o=x"), commentOf({"", "# c"}))}, "version: 1\n"},
        {"a blank line behind a comment",
         {LDIF_Entry(lineOf(LDIF_Line::dn, "dn", "o=x"), commentOf({"# c", ""}))},
         "version: 1\n\n"},
        {"a blank line at the second child",
         {entryOf("o=x"), LDIF_Entry(lineOf(LDIF_Line::dn, "dn", "o=y"), commentOf({""}))},
         "version: 1\n\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        LDIF_Entry root;
        root += LDIF_Attribute("version", "1");
        for (const auto& child : row.children) {
            LDIF_Entry copy = child;
            root += copy;
        }
        EXPECT_EQ(root.str(), row.text);
    }
}

TEST(LdifEntry, TheRootLooksAtTheChildThatIsFirstNow)
{
    // The first child moves below an ancestor that comes late: the one that is first by then decides.
    LDIF_Entry root;
    LDIF_Entry first(lineOf(LDIF_Line::dn, "dn", "cn=a,o=x"), commentOf({""}));
    root += first;
    EXPECT_EQ(root.str(), "");
    add(root, "o=y");
    add(root, "o=x");
    EXPECT_EQ(root.str(), "\n");
}

TEST(LdifEntry, TheRootPrintsItsCommentAndNoDn)
{
    LDIF_Entry root;
    root += commentOf({"# heading"});
    EXPECT_EQ(root.str(), "# heading\n");
}

TEST(LdifEntry, TheStreamOperatorWritesTheWholeSubtreeParentsFirst)
{
    LDIF_Entry root = treeOf({"o=x", "o=y", "cn=a,o=x", "cn=b,cn=a,o=x", "cn=c,o=x"});
    std::ostringstream stream;
    EXPECT_EQ(&(stream << root), &stream);
    EXPECT_EQ(stream.str(), "\ndn: o=x\n\ndn: cn=a, o=x\n\ndn: cn=b, cn=a, o=x\n\ndn: cn=c, o=x\n\ndn: o=y\n\n");
    EXPECT_EQ(printed(*root.find(dnOf("cn=a,o=x"))), "dn: cn=a, o=x\n\ndn: cn=b, cn=a, o=x\n\n");

    std::string text = "before\n";
    root.appendTreeTo(text);
    EXPECT_EQ(text, "before\n" + stream.str());
}

TEST(LdifEntry, ADnWithAnEmptyValueCannotBePrinted)
{
    const LDIF_Entry entry = entryOf("cn=,o=x");
    expectFailure(failureOf([&] { static_cast<void>(entry.str()); }), 34, 1013, "Missing RDN attribute value");
    LDIF_Entry root;
    LDIF_Entry copy = entry;
    root += copy;
    expectFailure(failureOf([&] { printed(root); }), 34, 1013, "Missing RDN attribute value");
}

TEST(LdifEntry, ClearEmptiesEveryField)
{
    LDIF_Entry entry(lineOf(LDIF_Line::dn, "dn", "o=x"), commentOf({"# c"}));
    entry += LDIF_Attribute("o", "x");
    add(entry, "cn=a,o=x");
    LDIF_Entry& result = entry.clear();
    EXPECT_EQ(&result, &entry);
    EXPECT_TRUE(entry.dnLabel.empty());
    EXPECT_TRUE(entry.dn.empty());
    EXPECT_TRUE(entry.relDn.empty());
    EXPECT_TRUE(entry.comment.lines.empty());
    EXPECT_TRUE(entry.attributes.empty());
    EXPECT_TRUE(entry.children.empty());
    EXPECT_EQ(printed(entry), "");
    EXPECT_EQ(entry.find(LDIF_DN()), &entry);
}

// ---- Insertion ----

TEST(LdifEntry, AChildHangsBelowItsParentWithARelativeDn)
{
    LDIF_Entry root = treeOf({"o=x", "cn=a,o=x"});
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  cn=a [cn=a, o=x]\n");
}

TEST(LdifEntry, InsertionGivesTheEntryItWasAppliedTo)
{
    LDIF_Entry root = treeOf({"o=x"});
    LDIF_Entry below = entryOf("cn=a,o=x");
    EXPECT_EQ(&(root += below), &root);
    LDIF_Entry same = entryOf("cn=a,o=x");
    EXPECT_EQ(&(root += same), &root);
}

TEST(LdifEntry, InsertionMakesTheArgumentsDnRelativeAndKeepsACopyOfIt)
{
    LDIF_Entry root = treeOf({"o=x", "ou=b,o=x"});
    LDIF_Entry entry = entryOf("cn=a,ou=b,o=x");
    root += entry;
    EXPECT_EQ(entry.relDn.str(), "cn=a");
    EXPECT_EQ(entry.dn.str(), "cn=a, ou=b, o=x");
    entry += LDIF_Attribute("cn", "late");
    EXPECT_EQ(root.find(dnOf("cn=a,ou=b,o=x"))->str(), "dn: cn=a, ou=b, o=x\n\n");
}

TEST(LdifEntry, ALateParentAdoptsItsChildren)
{
    LDIF_Entry root = treeOf({"cn=a,o=x"});
    EXPECT_EQ(childrenOf(root), "cn=a, o=x [cn=a, o=x]\n");
    add(root, "o=x");
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  cn=a [cn=a, o=x]\n");
}

TEST(LdifEntry, TheArgumentAdoptsTheDescendantsToo)
{
    LDIF_Entry root = treeOf({"cn=a,o=x", "o=y", "cn=b,ou=c,o=x"});
    LDIF_Entry parent = entryOf("o=x");
    root += parent;
    EXPECT_EQ(outlineOf(parent), "o=x [o=x]\n"
                                 "  cn=a [cn=a, o=x]\n"
                                 "  cn=b, ou=c [cn=b, ou=c, o=x]\n");
}

TEST(LdifEntry, AnEntryWithoutItsParentHangsBelowItsNearestAncestor)
{
    LDIF_Entry root = treeOf({"o=x", "cn=a, ou=b, o=x"});
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  cn=a, ou=b [cn=a, ou=b, o=x]\n");
    add(root, "ou=b, o=x");
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  ou=b [ou=b, o=x]\n"
                                "    cn=a [cn=a, ou=b, o=x]\n");
}

TEST(LdifEntry, AnAdoptingParentStandsBehindItsSiblingsAndKeepsTheOrderOfTheAdopted)
{
    LDIF_Entry root = treeOf({"cn=c,o=x", "o=y", "cn=a,o=x", "o=z", "cn=b,o=x", "o=x"});
    EXPECT_EQ(childrenOf(root), "o=y [o=y]\n"
                                "o=z [o=z]\n"
                                "o=x [o=x]\n"
                                "  cn=c [cn=c, o=x]\n"
                                "  cn=a [cn=a, o=x]\n"
                                "  cn=b [cn=b, o=x]\n");
}

TEST(LdifEntry, AnEqualDnInOtherLettersMergesAndTheFirstSpellingStays)
{
    LDIF_Entry root;
    LDIF_Entry first(lineOf(LDIF_Line::dn, "dn", "CN=A,O=X"), commentOf({"# one"}));
    first += LDIF_Attribute("cn", "a");
    root += first;
    LDIF_Entry second(lineOf(LDIF_Line::dn, "DN", "cn=a, o=x"), commentOf({"# two"}));
    second += LDIF_Attribute("sn", "b");
    second += LDIF_Attribute("CN", "c");
    root += second;
    ASSERT_EQ(root.children.size(), 1U);
    EXPECT_EQ(root.children.front().str(), "# one\n# two\ndn: CN=A, O=X\ncn: a\ncn: c\nsn: b\n\n");
}

TEST(LdifEntry, AMergeReachesTheEntryHoweverDeepItIs)
{
    LDIF_Entry root = treeOf({"o=x", "cn=a,ou=b,o=x"});
    LDIF_Entry again(lineOf(LDIF_Line::dn, "dn", "CN=A,OU=B,O=X"), commentOf({"# again"}));
    root += again;
    EXPECT_EQ(again.relDn.str(), "CN=A, OU=B");
    EXPECT_EQ(root.find(dnOf("cn=a,ou=b,o=x"))->str(), "# again\ndn: cn=a, ou=b, o=x\n\n");
}

TEST(LdifEntry, TheEmptyDnMergesIntoTheRoot)
{
    LDIF_Entry root = treeOf({"o=x"});
    LDIF_Entry nameless(lineOf(LDIF_Line::dn, "dn", ""), commentOf({"# c"}));
    nameless += LDIF_Attribute("cn", "a");
    root += nameless;
    EXPECT_EQ(root.str(), "# c\ncn: a\n\n");
    EXPECT_EQ(root.children.size(), 1U);
}

TEST(LdifEntry, AnEntryCanBeMergedIntoItself)
{
    LDIF_Entry root = treeOf({"o=x", "cn=a,o=x"});
    root.children.front().comment = commentOf({"# c"});
    root += root;
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  cn=a [cn=a, o=x]\n");
    EXPECT_EQ(root.children.front().comment.str(), "# c\n# c\n");
}

TEST(LdifEntry, AnEntryWithChildrenIsInsertedWithThem)
{
    LDIF_Entry root = treeOf({"cn=z,o=x", "o=y"});
    LDIF_Entry subtree = entryOf("o=x");
    add(subtree, "cn=a,o=x");
    root += subtree;
    EXPECT_EQ(childrenOf(root), "o=y [o=y]\n"
                                "o=x [o=x]\n"
                                "  cn=a [cn=a, o=x]\n"
                                "  cn=z [cn=z, o=x]\n");
}

TEST(LdifEntry, MergingAnEntryWithChildrenMergesThemToo)
{
    // Their DNs are relative to the merged entry; they are taken for children of the existing one.
    LDIF_Entry root = treeOf({"o=x", "cn=a,o=x", "cn=c,ou=b,o=x"});
    LDIF_Entry again = entryOf("O=X");
    for (const char* const dn : {"ou=b,o=x", "cn=d,o=x"}) {
        add(again, dn);
    }
    LDIF_Entry spelled(lineOf(LDIF_Line::dn, "dn", "CN=A,o=x"), commentOf({"# again"}));
    again += spelled;
    root += again;
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  cn=a [cn=a, o=x]\n"
                                "  ou=b [ou=b, o=x]\n"
                                "    cn=c [cn=c, ou=b, o=x]\n"
                                "  cn=d [cn=d, o=x]\n");
    EXPECT_EQ(root.find(dnOf("cn=a,o=x"))->str(), "# again\ndn: cn=a, o=x\n\n");
}

TEST(LdifEntry, AnEntryThatDoesNotBelongBelowIsRefused)
{
    const struct
    {
        const char* top;
        const char* entry;
        const char* message;
    } rows[] = {
        {"o=x", "o=y", "[o=y] is not child of [o=x]"},
        {"o=x", "CN=a , O=y", "[CN=a, O=y] is not child of [o=x]"},
        {"cn=a,o=x", "o=x", "[o=x] is not child of [cn=a, o=x]"},
        {"cn=a,o=x", "cn=b,o=x", "[cn=b, o=x] is not child of [cn=a, o=x]"},
        {"o=x", "", "[] is not child of [o=x]"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        LDIF_Entry top = entryOf(row.top);
        LDIF_Entry entry = entryOf(row.entry);
        const std::string topBefore = outlineOf(top);
        const std::string entryBefore = outlineOf(entry);
        expectFailure(failureOf([&] { top += entry; }), 80, 1000, row.message);
        EXPECT_EQ(outlineOf(top), topBefore);
        EXPECT_EQ(outlineOf(entry), entryBefore);
    }
}

TEST(LdifEntry, TheRefusalOfAnUnprintableDnIsTheComplaintAboutIt)
{
    LDIF_Entry top = entryOf("o=x");
    LDIF_Entry entry = entryOf("cn=");
    expectFailure(failureOf([&] { top += entry; }), 34, 1013, "Missing RDN attribute value");
}

TEST(LdifEntry, AnEntryBelowTheTopIsRelativeToTheTopsParent)
{
    // On an entry of a tree, `+=` and `find` take DNs relative to that entry's parent.
    LDIF_Entry root = treeOf({"o=x", "ou=b,o=x"});
    LDIF_Entry& unit = *root.find(dnOf("ou=b,o=x"));
    LDIF_Entry entry = entryOf("cn=a,ou=b");
    unit += entry;
    EXPECT_EQ(entry.relDn.str(), "cn=a");
    EXPECT_EQ(unit.find(dnOf("cn=a,ou=b")), &unit.children.front());
    EXPECT_EQ(unit.find(dnOf("cn=a,ou=b,o=x")), nullptr);
}

TEST(LdifEntry, WhatWasMergedBeforeAFailureStays)
{
    // "cn=(" is how the value prints; it does not parse again, so it can't be merged.
    LDIF_Entry root;
    LDIF_Entry first = entryOf("o=x");
    first += LDIF_Attribute("cn", "a");
    first += LDIF_Attribute("zor-slapdSuffix", "o=x");
    root += first;
    LDIF_Entry second(lineOf(LDIF_Line::dn, "dn", "o=x"), commentOf({"# two"}));
    second += LDIF_Attribute("cn", "b");
    second += LDIF_Attribute("zor-slapdSuffix", "cn=\\28");
    add(second, "cn=below,o=x");
    expectFailure(failureOf([&] { root += second; }), 34, 1013, "Missing RDN attribute value");
    EXPECT_EQ(printed(root), "\n# two\ndn: o=x\ncn: a\ncn: b\nzor-slapdSuffix: o=x\n\n");
}

TEST(LdifEntry, InsertingAnEntryThatIsGivenUpGivesTheEntryOfTheTree)
{
    LDIF_Entry root;
    LDIF_Entry& first = root.insert(std::make_unique<LDIF_Entry>(dnOf("cn=a,o=x")));
    EXPECT_EQ(&first, root.find(dnOf("cn=a,o=x")));
    LDIF_Entry& parent = root.insert(std::make_unique<LDIF_Entry>(dnOf("o=x")));
    EXPECT_EQ(&parent, root.find(dnOf("o=x")));
    LDIF_Entry& again = root.insert(std::make_unique<LDIF_Entry>(dnOf("CN=A,O=X")));
    EXPECT_EQ(&again, root.find(dnOf("cn=a,o=x")));
    EXPECT_EQ(childrenOf(root), "o=x [o=x]\n"
                                "  cn=a [cn=a, o=x]\n");
    LDIF_Entry top = entryOf("o=x");
    expectFailure(failureOf([&] { top.insert(std::make_unique<LDIF_Entry>(dnOf("o=y"))); }), 80, 1000,
                  "[o=y] is not child of [o=x]");
}

// ---- find ----

TEST(LdifEntry, FindGivesTheEntryOfTheDnOrNull)
{
    LDIF_Entry root = treeOf({"o=x", "cn=a,ou=b,o=x", "o=y", "cn=c+sn=d,o=y"});
    const struct
    {
        const char* dn;
        const char* answer;
    } rows[] = {
        {"", ""},
        {"o=x", "o=x"},
        {"O = X", "o=x"},
        {"CN=A;OU=B;O=X", "cn=a, ou=b, o=x"},
        {"ou=b,o=x", "none"},
        {"cn=a,o=x", "none"},
        {"cn=a", "none"},
        {"cn=z,cn=a,ou=b,o=x", "none"},
        {"sn=d+cn=c,o=y", "cn=c + sn=d, o=y"},
        {"cn=c,o=y", "none"},
        {"cn=#63+sn=\"d\",o=y", "cn=c + sn=d, o=y"},
        {"o=z", "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.dn);
        EXPECT_EQ(found(root, row.dn), row.answer);
    }
    EXPECT_EQ(root.find(LDIF_DN()), &root);
}

TEST(LdifEntry, FindOnAnEntryThatIsNoAncestorGivesNull)
{
    LDIF_Entry top = entryOf("cn=a,o=x");
    EXPECT_EQ(top.find(dnOf("o=x")), nullptr);
    EXPECT_EQ(top.find(dnOf("cn=b,o=x")), nullptr);
    EXPECT_EQ(top.find(LDIF_DN()), nullptr);
    EXPECT_EQ(top.find(dnOf("CN=A,O=X")), &top);
}

TEST(LdifEntry, FindWorksAmongManySiblings)
{
    for (const int width : {11, 12, 13, 14, 64, 65, 200}) {
        SCOPED_TRACE(width);
        LDIF_Entry root = wideTree(width);
        for (int number = 0; number < width; ++number) {
            const std::string cn = std::to_string(number);
            EXPECT_EQ(found(root, "CN=" + cn + ",O=X"), "cn=" + cn + ", o=x");
            EXPECT_EQ(found(root, "cn=z,cn=" + cn + ",o=x"), "none");
        }
        EXPECT_EQ(found(root, "o=x"), "none");
        EXPECT_EQ(found(root, "cn=" + std::to_string(width) + ",o=x"), "none");
        EXPECT_EQ(found(root, "cn=0"), "none");
        EXPECT_EQ(root.find(LDIF_DN()), &root);
    }
}

TEST(LdifEntry, AmongManySiblingsFormAndOrderOfPairsDoNotMatter)
{
    LDIF_Entry root = wideTree(20);
    add(root, "cn=p+sn=q,o=\"x,y\"");
    add(root, "cn=below,cn=p+sn=q,o=\"x,y\"");
    for (const char* const dn : {"SN=Q+CN=P,O=x\\,Y", "sn=#71+cn=\"p\",o=#782C79", "cn=p+CN=P+sn=q,o=x\\2Cy"}) {
        SCOPED_TRACE(dn);
        EXPECT_EQ(found(root, dn), "cn=p + sn=q, o=\"x,y\"");
        EXPECT_EQ(found(root, "cn=below," + std::string(dn)), "cn=below, cn=p + sn=q, o=\"x,y\"");
    }
    EXPECT_EQ(found(root, "cn=p,o=\"x,y\""), "none");
    EXPECT_EQ(found(root, "cn=p+sn=q+ou=r,o=\"x,y\""), "none");
}

TEST(LdifEntry, ValuesEndAtTheFirstNulAmongManySiblingsToo)
{
    for (const int width : {2, 20}) {
        SCOPED_TRACE(width);
        LDIF_Entry root = wideTree(width);
        add(root, "cn=#610062,o=x");
        EXPECT_NE(root.find(dnOf("cn=a,o=x")), nullptr);
        EXPECT_EQ(root.find(dnOf("cn=#610063,o=x")), root.find(dnOf("cn=a,o=x")));
        add(root, "cn=A,o=x");
        EXPECT_EQ(root.children.size(), static_cast<std::size_t>(width) + 1) << "the second one merges";
    }
}

TEST(LdifEntry, LateAncestorsAdoptOutOfAWideLevel)
{
    LDIF_Entry root;
    for (int number = 0; number < 40; ++number) {
        add(root, "cn=" + std::to_string(number) + ",ou=" + std::to_string(number % 4) + ",o=x");
    }
    for (int unit = 3; unit >= 0; --unit) {
        add(root, "ou=" + std::to_string(unit) + ",o=x");
    }
    ASSERT_EQ(root.children.size(), 4U);
    for (std::size_t place = 0; place < 4; ++place) {
        const int unit = 3 - static_cast<int>(place);
        std::string expected = "ou=" + std::to_string(unit) + ", o=x [ou=" + std::to_string(unit) + ", o=x]\n";
        for (int number = unit; number < 40; number += 4) {
            const std::string cn = "cn=" + std::to_string(number);
            expected += "  " + cn + " [" + cn + ", ou=" + std::to_string(unit) + ", o=x]\n";
        }
        EXPECT_EQ(outlineOf(root.children[place]), expected);
    }
    add(root, "o=x");
    ASSERT_EQ(root.children.size(), 1U);
    EXPECT_EQ(root.children.front().children.size(), 4U);
    EXPECT_EQ(found(root, "cn=17,ou=1,o=x"), "cn=17, ou=1, o=x");
}

// ---- Direct changes of the public list of children ----

TEST(LdifEntry, AnswersStayRightAfterAChildWasPushedBack)
{
    for (const int width : {3, 30}) {
        SCOPED_TRACE(width);
        LDIF_Entry root = wideTree(width);
        EXPECT_EQ(found(root, "o=new"), "none");
        root.children.push_back(entryOf("o=new"));
        EXPECT_EQ(found(root, "O=NEW"), "o=new");
        root.children.push_back(entryOf("cn=deep,ou=unit,o=new2"));
        EXPECT_EQ(found(root, "cn=deep,ou=unit,o=new2"), "cn=deep, ou=unit, o=new2");
        add(root, "o=new2");
        EXPECT_EQ(outlineOf(root.children.back()), "o=new2 [o=new2]\n"
                                                   "  cn=deep, ou=unit [cn=deep, ou=unit, o=new2]\n");
    }
}

TEST(LdifEntry, AnswersStayRightAfterAChildWasErased)
{
    for (const int width : {3, 30}) {
        SCOPED_TRACE(width);
        LDIF_Entry root = wideTree(width);
        EXPECT_EQ(found(root, "cn=1,o=x"), "cn=1, o=x");
        root.children.erase(root.children.begin() + 1);
        EXPECT_EQ(found(root, "cn=1,o=x"), "none");
        EXPECT_EQ(found(root, "cn=0,o=x"), "cn=0, o=x");
        EXPECT_EQ(found(root, "cn=2,o=x"), "cn=2, o=x");
        add(root, "cn=1,o=x");
        EXPECT_EQ(root.children.back().dn.str(), "cn=1, o=x");
        EXPECT_EQ(root.children.size(), static_cast<std::size_t>(width));
    }
}

namespace {

void rename(LDIF_Entry& entry, const char* dn)
{
    entry.dn = LDIF_DN();
    entry.dn = cisString(dn);
    entry.relDn = entry.dn;
}

} // namespace

namespace {

struct WayToAChild
{
    const char* name;
    LDIF_Entry& (*child)(LDIF_Entry& root);
};

const WayToAChild waysToAChild[] = {
    {"operator[]", [](LDIF_Entry& root) -> LDIF_Entry& { return root.children[2]; }},
    {"at", [](LDIF_Entry& root) -> LDIF_Entry& { return root.children.at(2); }},
    {"iterator", [](LDIF_Entry& root) -> LDIF_Entry& { return *(root.children.begin() + 2); }},
    {"reverse iterator", [](LDIF_Entry& root) -> LDIF_Entry& { return *(root.children.rend() - 3); }},
    {"front", [](LDIF_Entry& root) -> LDIF_Entry& { return root.children.front(); }},
    {"back", [](LDIF_Entry& root) -> LDIF_Entry& { return root.children.back(); }},
    {"emplace_back", [](LDIF_Entry& root) -> LDIF_Entry& { return root.children.emplace_back(dnOf("cn=added,o=x")); }},
    {"insert",
     [](LDIF_Entry& root) -> LDIF_Entry& {
         return *root.children.insert(root.children.begin(), entryOf("cn=added,o=x"));
     }},
};

/// Gives a child that one of the ways leads to another name and asks the tree for it, and for others.
void expectTheNewName(const WayToAChild& way, int width)
{
    SCOPED_TRACE(std::string(way.name) + ", width " + std::to_string(width));
    LDIF_Entry root = wideTree(width);
    EXPECT_EQ(found(root, "cn=1,o=x"), "cn=1, o=x") << "before anything is touched";
    LDIF_Entry& child = way.child(root);
    const std::string oldDn = child.dn.str();
    rename(child, "cn=below,o=elsewhere");
    EXPECT_EQ(root.find(dnOf("CN=below,O=elsewhere")), &child) << "under its new name";
    EXPECT_EQ(found(root, oldDn), "none") << "under its old name";
    EXPECT_EQ(found(root, "cn=1,o=x"), "cn=1, o=x");
    add(root, "o=elsewhere");
    EXPECT_EQ(found(root, "cn=below,o=elsewhere"), "cn=below, o=elsewhere");
    EXPECT_EQ(childrenOf(*root.find(dnOf("o=elsewhere"))), "cn=below [cn=below, o=elsewhere]\n");
    add(root, oldDn);
    EXPECT_EQ(root.children.back().dn.str(), oldDn) << "the old name is free again";
}

} // namespace

TEST(LdifEntry, AnswersStayRightAfterAChildsRelativeDnWasChanged)
{
    for (const auto& way : waysToAChild) {
        for (const int width : {3, 30}) {
            expectTheNewName(way, width);
        }
    }
}

TEST(LdifEntry, AnAdoptionThatFailsHalfWayLosesNoEntry)
{
    // A merge of two passwords that can't be decoded fails; it once took the descendants behind it along.
    const auto withPassword = [](const char* dn, const char* encoded) {
        LDIF_Entry entry = entryOf(dn);
        entry += LDIF_Attribute("zor-slapdAdminPW", encoded);
        return entry;
    };
    for (const int siblings : {0, 30}) {
        SCOPED_TRACE(siblings);
        LDIF_Entry root;
        for (int number = 0; number < siblings; ++number) {
            add(root, "ou=" + std::to_string(number));
        }
        for (const char* const dn : {"cn=a,o=x", "cn=b,o=x", "cn=c,o=x"}) {
            LDIF_Entry orphan = withPassword(dn, ">first<");
            root += orphan;
        }
        auto parent = std::make_unique<LDIF_Entry>(entryOf("o=x"));
        LDIF_Entry known = withPassword("cn=b,o=x", ">second<");
        *parent += known;
        EXPECT_THROW(root.insert(std::move(parent)), LDIF_Exception);
        for (const char* const dn : {"cn=a,o=x", "cn=b,o=x", "cn=c,o=x", "o=x"}) {
            EXPECT_NE(found(root, dn), "none") << dn;
        }
    }
}

TEST(LdifEntry, AnswersStayRightAfterTheListWasReplaced)
{
    LDIF_Entry root = wideTree(30);
    EXPECT_EQ(found(root, "cn=1,o=x"), "cn=1, o=x");
    LDIF_Entry other;
    for (int number = 0; number < 30; ++number) {
        add(other, "ou=" + std::to_string(number));
    }
    EXPECT_EQ(found(other, "ou=1"), "ou=1");
    std::swap(root.children, other.children);
    EXPECT_EQ(found(root, "ou=1"), "ou=1");
    EXPECT_EQ(found(root, "cn=1,o=x"), "none");
    EXPECT_EQ(found(other, "cn=1,o=x"), "cn=1, o=x");
    root.children = other.children;
    EXPECT_EQ(found(root, "cn=1,o=x"), "cn=1, o=x");
    EXPECT_EQ(found(root, "ou=1"), "none");
    std::reverse(root.children.begin(), root.children.end());
    EXPECT_EQ(root.children.front().dn.str(), "cn=29, o=x");
    EXPECT_EQ(found(root, "cn=1,o=x"), "cn=1, o=x");
    root.children.clear();
    EXPECT_EQ(found(root, "cn=1,o=x"), "none");
}

TEST(LdifEntry, TheProcessLocaleMayChangeBetweenInsertions)
{
    LDIF_Entry root;
    for (int number = 0; number < 60; ++number) {
        const LocaleGuard locale(number % 2 == 0 ? "C" : "C.UTF-8");
        add(root, "cn=Name " + std::to_string(number) + ",ou=" + std::to_string(number % 3) + ",o=x");
        EXPECT_EQ(found(root, "CN=NAME 0,OU=0,O=X"), "cn=Name 0, ou=0, o=x");
    }
    EXPECT_EQ(root.children.size(), 60U);
    for (const char* const name : {"C.UTF-8", "C"}) {
        const LocaleGuard locale(name);
        SCOPED_TRACE(name);
        for (int number = 0; number < 60; ++number) {
            const std::string tail = " " + std::to_string(number) + ", ou=" + std::to_string(number % 3) + ", o=x";
            EXPECT_EQ(found(root, "CN=NAME" + tail), "cn=Name" + tail);
        }
    }
    {
        const LocaleGuard locale("C.UTF-8");
        add(root, "ou=1,o=x");
    }
    const LocaleGuard locale("C");
    EXPECT_EQ(root.find(dnOf("ou=1,o=x"))->children.size(), 20U);
    EXPECT_EQ(root.children.size(), 41U);
}

TEST(LdifEntry, NamesBeyondAsciiAreFoundByTheirBytes)
{
    const LocaleGuard locale("C.UTF-8");
    for (const int width : {2, 20}) {
        SCOPED_TRACE(width);
        LDIF_Entry root = wideTree(width);
        add(root, "cn=Bj\xC3\xB6rn,o=x");
        EXPECT_EQ(found(root, "CN=BJ\xC3\xB6RN,O=X"), "cn=Bj\xC3\xB6rn, o=x");
        EXPECT_EQ(found(root, "cn=bj\\C3\\B6rn,o=x"), "cn=Bj\xC3\xB6rn, o=x");
        EXPECT_EQ(found(root, "cn=bj\xC3\x96rn,o=x"), "none") << "folding is bytewise";
    }
}

// ---- Against a literal model ----

namespace {

/// An entry as the tree's rules tell it, without anything clever: every question is a walk.
struct ModelEntry
{
    LDIF_DN dn;
    LDIF_DN relDn;
    std::vector<std::string> comments;
    std::vector<std::string> values; ///< of the one attribute that these entries have
    std::vector<ModelEntry> children;

    void insert(ModelEntry& e)
    {
        if (relDn == e.relDn) {
            merge(e);
            return;
        }
        const LDIF_DN common = relDn.intersection(e.relDn);
        if (common != relDn) {
            throw std::logic_error("not a child");
        }
        e.relDn -= common;
        for (std::size_t place = 0; place < children.size();) {
            ModelEntry& child = children[place];
            if (child.relDn == e.relDn) {
                child.insert(e);
                return;
            }
            const LDIF_DN shared = child.relDn.intersection(e.relDn);
            if (child.relDn == shared) {
                child.insert(e);
                return;
            }
            if (e.relDn == shared) {
                e.insert(child);
                children.erase(children.begin() + static_cast<std::ptrdiff_t>(place));
                continue;
            }
            ++place;
        }
        children.push_back(e);
    }

    void merge(const ModelEntry& e)
    {
        comments.insert(comments.end(), e.comments.begin(), e.comments.end());
        for (const auto& value : e.values) {
            if (std::find(values.begin(), values.end(), value) == values.end()) {
                values.push_back(value);
            }
        }
        for (ModelEntry child : e.children) {
            // Relative to this entry's parent, as the insertion expects it.
            LDIF_DN rebased = relDn;
            for (const auto& rdn : child.relDn) {
                rebased += rdn;
            }
            child.relDn = rebased;
            insert(child);
        }
    }

    const ModelEntry* find(const LDIF_DN& d) const
    {
        if (relDn == d) {
            return this;
        }
        const LDIF_DN common = relDn.intersection(d);
        if (common != relDn) {
            return nullptr;
        }
        LDIF_DN rest = d;
        rest -= common;
        for (const auto& child : children) {
            if (const ModelEntry* const answer = child.find(rest); answer != nullptr) {
                return answer;
            }
        }
        return nullptr;
    }

    void describe(std::size_t level, std::string& text) const
    {
        text += std::to_string(level) + " " + relDn.str() + " [" + dn.str() + "]";
        for (const auto& comment : comments) {
            text += " " + comment;
        }
        for (const auto& value : values) {
            text += " " + value;
        }
        text += "\n";
        for (const auto& child : children) {
            child.describe(level + 1, text);
        }
    }
};

void describe(const LDIF_Entry& entry, std::size_t level, std::string& text)
{
    text += std::to_string(level) + " " + entry.relDn.str() + " [" + entry.dn.str() + "]";
    for (const auto& line : entry.comment.lines) {
        text += " " + line.value;
    }
    for (const auto& attribute : entry.attributes) {
        for (const auto& value : attribute.values) {
            text += " " + value.str();
        }
    }
    text += "\n";
    for (const auto& child : entry.children) {
        describe(child, level + 1, text);
    }
}

std::string described(const LDIF_Entry& entry)
{
    std::string text;
    describe(entry, 0, text);
    return text;
}

std::string described(const ModelEntry& entry)
{
    std::string text;
    entry.describe(0, text);
    return text;
}

/// One insertion: an entry, and entries below it that it brings along.
struct Step
{
    std::string dn;
    std::vector<std::string> belowIt;
    bool otherLocale = false;
};

std::ostream& operator<<(std::ostream& stream, const Step& step)
{
    stream << '"' << step.dn << '"';
    for (const auto& below : step.belowIt) {
        stream << " with \"" << below << '"';
    }
    return stream << (step.otherLocale ? " (other locale)" : "");
}

/// RDNs of one alphabet, in spellings that differ and mean the same.
rc::Gen<std::string> rdns(int values)
{
    return rc::gen::map(
        rc::gen::tuple(rc::gen::inRange(0, values), rc::gen::element(0, 1, 2, 3, 4), rc::gen::inRange(0, 6)),
        [](const std::tuple<int, int, int>& parts) {
            const auto& [value, spelling, kind] = parts;
            const std::string number = std::to_string(value);
            const std::string plain = kind == 0 ? "ou=v" + number : "cn=v" + number;
            switch (spelling) {
            case 0:
                return std::string(kind == 0 ? "OU" : "CN") + "=V" + number;
            case 1:
                return std::string(kind == 0 ? "ou" : "Cn") + "=\"v" + number + "\"";
            case 2:
                return kind == 1 ? "sn=w+" + plain : plain;
            case 3:
                return kind == 1 ? plain + "+SN=W" : plain;
            default:
                return plain;
            }
        });
}

rc::Gen<std::string> dns(int values, int depth)
{
    return rc::gen::mapcat(rc::gen::inRange(0, depth + 1), [values](int levels) {
        return rc::gen::map(
            rc::gen::container<std::vector<std::string>>(static_cast<std::size_t>(levels), rdns(values)),
            [](const std::vector<std::string>& parts) {
                std::string text;
                for (const auto& part : parts) {
                    text += text.empty() ? part : "," + part;
                }
                return text;
            });
    });
}

rc::Gen<Step> steps(int values, int depth)
{
    return rc::gen::build<Step>(
        rc::gen::set(&Step::dn, dns(values, depth)),
        rc::gen::set(&Step::belowIt,
                     rc::gen::weightedOneOf<std::vector<std::string>>(
                         {{5, rc::gen::just(std::vector<std::string>())},
                          {1, rc::gen::resize(3, rc::gen::container<std::vector<std::string>>(rdns(values)))}})),
        rc::gen::set(&Step::otherLocale));
}

void holdsAgainstTheModel(const std::vector<Step>& sequence, const std::vector<std::string>& questions)
{
    LDIF_Entry root;
    ModelEntry model;
    int number = 0;
    for (const auto& step : sequence) {
        const LocaleGuard locale(step.otherLocale ? "C.UTF-8" : "C");
        const std::string mark = std::to_string(number++);

        LDIF_Entry entry(lineOf(LDIF_Line::dn, "dn", step.dn), commentOf({"#" + mark}));
        entry += LDIF_Attribute("description", "value " + mark);
        ModelEntry modelEntry{dnOf(step.dn), dnOf(step.dn), {"#" + mark}, {"value " + mark}, {}};
        for (const auto& rdn : step.belowIt) {
            const std::string dn = step.dn.empty() ? rdn : rdn + "," + step.dn;
            LDIF_Entry below = entryOf(dn);
            entry += below;
            ModelEntry modelBelow{dnOf(dn), dnOf(dn), {}, {}, {}};
            modelEntry.insert(modelBelow);
        }

        root += entry;
        model.insert(modelEntry);
        RC_ASSERT(described(root) == described(model));
        RC_ASSERT(entry.relDn.str() == modelEntry.relDn.str());

        for (const auto& question : questions) {
            const LDIF_Entry* const answer = root.find(dnOf(question));
            const ModelEntry* const wanted = model.find(dnOf(question));
            RC_ASSERT((answer == nullptr) == (wanted == nullptr));
            if (answer != nullptr) {
                RC_ASSERT(described(*answer) == described(*wanted));
            }
        }
        for (const auto& earlier : sequence) {
            if (&earlier == &step) {
                break;
            }
            RC_ASSERT(root.find(dnOf(earlier.dn)) != nullptr);
        }
    }
}

void holdsInTheLoaderToo(const std::vector<Step>& sequence)
{
    // The loader hands its entries over instead of leaving them to the caller.
    LDIF_Entry root;
    ModelEntry model;
    for (const auto& step : sequence) {
        const LocaleGuard locale(step.otherLocale ? "C.UTF-8" : "C");
        LDIF_Entry& kept = root.insert(std::make_unique<LDIF_Entry>(dnOf(step.dn)));
        ModelEntry modelEntry{dnOf(step.dn), dnOf(step.dn), {}, {}, {}};
        model.insert(modelEntry);
        RC_ASSERT(described(root) == described(model));
        RC_ASSERT(&kept == root.find(dnOf(step.dn)));
    }
}

} // namespace

TEST(LdifEntry, AnySequenceOfInsertionsGivesTheTreeOfTheRules)
{
    EXPECT_TRUE(rc::check("a narrow alphabet: duplicates and late ancestors", [] {
        holdsAgainstTheModel(*rc::gen::container<std::vector<Step>>(steps(3, 5)),
                             *rc::gen::container<std::vector<std::string>>(dns(3, 5)));
    }));
    EXPECT_TRUE(rc::check("a wide alphabet: many siblings, the index in use", [] {
        holdsAgainstTheModel(*rc::gen::container<std::vector<Step>>(40, steps(40, 2)),
                             *rc::gen::container<std::vector<std::string>>(5, dns(40, 3)));
    }));
    EXPECT_TRUE(rc::check("wide levels that late ancestors adopt piece by piece", [] {
        holdsAgainstTheModel(*rc::gen::container<std::vector<Step>>(40, steps(6, 3)),
                             *rc::gen::container<std::vector<std::string>>(5, dns(6, 4)));
    }));
    EXPECT_TRUE(rc::check("entries that are handed over",
                          [] { holdsInTheLoaderToo(*rc::gen::container<std::vector<Step>>(40, steps(6, 5))); }));
}

TEST(LdifEntry, ChangesOfTheListBetweenInsertionsGiveTheTreeOfTheRules)
{
    EXPECT_TRUE(rc::check("push_back, erase and changed names between insertions", [] {
        LDIF_Entry root;
        ModelEntry model;
        const auto sequence = *rc::gen::container<std::vector<Step>>(30, steps(30, 2));
        for (const auto& step : sequence) {
            const int change = *rc::gen::inRange(0, 4);
            const LDIF_DN dn = dnOf(step.dn);
            if (change == 1 && !root.children.empty()) {
                const auto place = *rc::gen::inRange<std::size_t>(0, root.children.size());
                root.children.erase(root.children.begin() + static_cast<std::ptrdiff_t>(place));
                model.children.erase(model.children.begin() + static_cast<std::ptrdiff_t>(place));
            } else if (change == 2 && root.find(dn) == nullptr && dn.size() == 1) {
                // Only what keeps the tree's invariants: no sibling may be equal, above or below.
                const bool free = std::none_of(model.children.begin(), model.children.end(), [&](const auto& child) {
                    return !child.relDn.intersection(dn).empty();
                });
                if (free) {
                    root.children.push_back(LDIF_Entry(dn));
                    model.children.push_back({dn, dn, {}, {}, {}});
                }
            } else if (change == 3 && !root.children.empty()) {
                const auto place = *rc::gen::inRange<std::size_t>(0, root.children.size());
                const LDIF_DN unused = dnOf("o=renamed " + std::to_string(&step - sequence.data()));
                root.children[place].relDn = unused;
                model.children[place].relDn = unused;
            }
            LDIF_Entry entry(dn);
            ModelEntry modelEntry{dn, dn, {}, {}, {}};
            root += entry;
            model.insert(modelEntry);
            RC_ASSERT(described(root) == described(model));
            for (const auto& child : model.children) {
                RC_ASSERT(root.find(child.relDn) != nullptr);
            }
        }
    }));
}
