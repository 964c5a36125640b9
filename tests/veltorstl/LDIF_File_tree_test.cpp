// The tree view of the store, in both drawings.
#include "support/store_test.h"

#include "LDIF_Exception.h"
#include "LDIF_File.h"

#include <filesystem>
#include <rapidcheck.h>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace veltor::test;

namespace {

class LdifFileTree : public StoreTest
{
};

const std::filesystem::path golden = std::filesystem::path(VELTOR_TEST_DATA) / "tree_view";

std::string listed(const std::set<LDIF_DN>& dns)
{
    std::string text;
    for (const auto& dn : dns) {
        text += dn.str() + "\n";
    }
    return text;
}

const LDIF_Entry& entryOf(LDIF_File& store, const std::string& dn)
{
    const LDIF_Entry* const entry = store.root.find(dnOf(dn));
    if (entry == nullptr) {
        throw std::runtime_error("no entry " + dn);
    }
    return *entry;
}

constexpr char family[] = "dn: o=x\n\ndn: ou=a, o=x\n\ndn: cn=1, ou=a, o=x\n\ndn: cn=2, ou=gone, ou=a, o=x\n\n"
                          "dn: ou=b, o=x\n\n";

} // namespace

TEST_F(LdifFileTree, TheDrawingsOfEveryShape)
{
    // Named one by one, so that a folder that gets lost is missed.
    const std::set<std::string> shapes = {
        "deep",      "empty",      "late_ancestors",   "missing_intermediates",    "names_in_normal_form",
        "one_entry", "root_alone", "several_suffixes", "siblings_after_a_subtree", "suffix_with_missing_ancestors",
        "wide",
    };
    std::set<std::string> folders;
    for (const auto& folder : std::filesystem::directory_iterator(golden)) {
        folders.insert(folder.path().filename().string());
    }
    EXPECT_EQ(folders, shapes);
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape);
        const auto store = loaded(contentOf(golden / shape / "in.conf"));
        EXPECT_EQ(store->treeView(false), contentOf(golden / shape / "ia5.txt"));
        EXPECT_EQ(store->treeView(true), contentOf(golden / shape / "oem.txt"));
        EXPECT_EQ(store->treeView(false), contentOf(golden / shape / "ia5.txt")) << "a second time";
    }
}

TEST_F(LdifFileTree, TheDrawingFollowsTheTreeInMemory)
{
    const auto store = loaded("dn: o=x\n\n");
    store->add(dnOf("cn=a, ou=gone, o=x"), nullptr);
    EXPECT_EQ(store->treeView(false), "\n- o=x (suffix)\n    |\n    +- cn=a, ou=gone, o=x *\n"
                                      "\n* the following entries are undefined:\nou=gone, o=x\n");
    store->add(dnOf("ou=gone, o=x"), nullptr);
    EXPECT_EQ(store->treeView(false), "\n- o=x (suffix)\n    |\n    +- ou=gone, o=x\n"
                                      "         |\n         +- cn=a, ou=gone, o=x\n");
    store->erase(dnOf("o=x"), true);
    EXPECT_EQ(store->treeView(false), "");
    EXPECT_EQ(store->treeView(true), "");
}

TEST_F(LdifFileTree, ADnThatCantBePrintedIsAFailure)
{
    for (const char* text : {"dn: cn=\n\n", "dn: o=x\n\ndn: cn=a, ou=, o=x\n\n"}) {
        for (const bool oem : {false, true}) {
            SCOPED_TRACE(text);
            const auto store = loaded(text);
            expectFailure(failureOf([&] { store->treeView(oem); }), 34, 1013, "Missing RDN attribute value");
        }
    }
}

// ---- The drawings called directly ----

TEST_F(LdifFileTree, AnEmptyPrefixIsTheTopWhateverTheEntry)
{
    const auto store = loaded(family);
    std::set<LDIF_DN> undefined;
    const LDIF_Entry& leaf = entryOf(*store, "cn=2, ou=gone, ou=a, o=x");
    EXPECT_EQ(store->IA5_TreeView(leaf, undefined, ""), "- cn=2, ou=gone, ou=a, o=x (suffix)\n");
    EXPECT_EQ(store->OEM_TreeView(leaf, true, undefined, ""), "\xC4 cn=2, ou=gone, ou=a, o=x (suffix)\n");
    EXPECT_EQ(store->OEM_TreeView(leaf, false, undefined, ""), "\xC4 cn=2, ou=gone, ou=a, o=x (suffix)\n");
    EXPECT_EQ(listed(undefined), "") << "the top has no mark for missing ancestors";
}

TEST_F(LdifFileTree, APrefixGivesItsLastCharacterUpForTheBranch)
{
    const auto store = loaded(family);
    struct Row
    {
        const char* name;
        const char* prefix;
        const char* ia5;
        const char* oemLast;
        const char* oemNotLast;
    };
    const Row rows[] = {
        {"bar", "    |", "    +- ou=b, o=x\n", "    \xC0\xC4 ou=b, o=x\n", "    \xC3\xC4 ou=b, o=x\n"},
        {"blanks", "     ", "    +- ou=b, o=x\n", "    \xC0\xC4 ou=b, o=x\n", "    \xC3\xC4 ou=b, o=x\n"},
        {"two levels", "    \xB3     ", "    \xB3    +- ou=b, o=x\n", "    \xB3    \xC0\xC4 ou=b, o=x\n",
         "    \xB3    \xC3\xC4 ou=b, o=x\n"},
        {"one character", "#", "+- ou=b, o=x\n", "\xC0\xC4 ou=b, o=x\n", "\xC3\xC4 ou=b, o=x\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::set<LDIF_DN> undefined;
        const LDIF_Entry& leaf = entryOf(*store, "ou=b, o=x");
        EXPECT_EQ(store->IA5_TreeView(leaf, undefined, row.prefix), row.ia5);
        EXPECT_EQ(store->OEM_TreeView(leaf, true, undefined, row.prefix), row.oemLast);
        EXPECT_EQ(store->OEM_TreeView(leaf, false, undefined, row.prefix), row.oemNotLast);
        EXPECT_TRUE(undefined.empty());
    }
}

TEST_F(LdifFileTree, ASubtreeIsDrawnBehindItsPrefix)
{
    const auto store = loaded(family);
    std::set<LDIF_DN> undefined;
    const LDIF_Entry& top = entryOf(*store, "ou=a, o=x");
    EXPECT_EQ(store->IA5_TreeView(top, undefined, "    |"), "    +- ou=a, o=x\n"
                                                            "    |    |\n"
                                                            "    |    +- cn=1, ou=a, o=x\n"
                                                            "    |    |\n"
                                                            "    |    +- cn=2, ou=gone, ou=a, o=x *\n");
    EXPECT_EQ(listed(undefined), "ou=gone, ou=a, o=x\n");
    undefined.clear();
    EXPECT_EQ(store->OEM_TreeView(top, false, undefined, "    \xB3"),
              "    \xC3\xC4 ou=a, o=x\n"
              "    \xB3    \xC3\xC4 cn=1, ou=a, o=x\n"
              "    \xB3    \xC0\xC4 cn=2, ou=gone, ou=a, o=x *\n");
    EXPECT_EQ(listed(undefined), "ou=gone, ou=a, o=x\n");
}

TEST_F(LdifFileTree, MissingAncestorsAreAddedToWhatTheSetHolds)
{
    const auto store = loaded(family);
    std::set<LDIF_DN> undefined = {dnOf("o=y"), dnOf("ou=gone,ou=a,o=x"), dnOf("cn=z,ou=gone,ou=a,o=x")};
    store->IA5_TreeView(store->root, undefined, "");
    EXPECT_EQ(listed(undefined), "o=y\nou=gone, ou=a, o=x\ncn=z, ou=gone, ou=a, o=x\n");
}

TEST_F(LdifFileTree, TheRootHasNoLineAndParagraphsForItsChildren)
{
    const auto store = loaded("dn: o=x\n\ndn: o=y\n\n");
    std::set<LDIF_DN> undefined;
    EXPECT_EQ(store->IA5_TreeView(store->root, undefined, ""), "\n- o=x (suffix)\n\n- o=y (suffix)\n");
    EXPECT_EQ(store->OEM_TreeView(store->root, true, undefined, ""), "\n\xC4 o=x (suffix)\n\n\xC4 o=y (suffix)\n");
    EXPECT_EQ(store->IA5_TreeView(LDIF_Entry(), undefined, ""), "");
    EXPECT_EQ(store->OEM_TreeView(LDIF_Entry(), true, undefined, ""), "");
}

// ---- Both drawings show the same tree ----

namespace {

/// What the line-drawing bytes stand for in ASCII.
std::string inAscii(const std::string& oem)
{
    std::string text;
    for (const char c : oem) {
        switch (c) {
        case '\xC4':
            text += '-';
            break;
        case '\xC3':
        case '\xC0':
            text += '+';
            break;
        case '\xB3':
            text += '|';
            break;
        default:
            text += c;
        }
    }
    return text;
}

/// The ASCII drawing without the lines between entries.
std::string withoutSpacers(const std::string& ia5)
{
    std::string text;
    for (std::size_t begin = 0; begin < ia5.size();) {
        const std::size_t end = ia5.find('\n', begin) + 1;
        const std::string line = ia5.substr(begin, end - begin);
        if (line == "\n" || line.find_first_not_of(" |\n") != std::string::npos) {
            text += line;
        }
        begin = end;
    }
    return text;
}

} // namespace

TEST_F(LdifFileTree, BothDrawingsShowTheSameTree)
{
    const auto store = loaded("");
    EXPECT_TRUE(rc::check("the OEM drawing is the IA5 drawing without its spacers", [&] {
        store->root.children.clear();
        const auto dns = *rc::gen::container<std::vector<std::vector<int>>>(
            rc::gen::resize(4, rc::gen::nonEmpty(rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 3)))));
        for (const auto& levels : dns) {
            std::string text;
            for (const int level : levels) {
                text += (text.empty() ? "cn=" : ",cn=") + std::to_string(level);
            }
            store->add(dnOf(text), nullptr);
        }
        RC_ASSERT(inAscii(store->treeView(true)) == withoutSpacers(store->treeView(false)));
    }));
}
