// Entries by their DNs: who is found, who is forgotten, and what another locale does to it.
#include "entry_index.h"

#include "LDIF_Entry.h"
#include "support/api_test.h"
#include "support/ldif.h"
#include "support/locale_guard.h"
#include "support/mods.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using veltor::detail::EntryIndex;
using namespace veltor::test;

namespace {

/// A tree and the index of all that is in it.
struct Indexed
{
    LDIF_Entry root;
    EntryIndex index;

    LDIF_Entry& add(const std::string& dn)
    {
        auto entry = std::make_unique<LDIF_Entry>(dnOf(dn));
        LDIF_Entry& placed = root.insert(std::move(entry));
        index.add(placed);
        return placed;
    }
};

class EntryIndexTest : public ::testing::Test
{
    LocaleGuard locale_{"C.UTF-8"};
};

} // namespace

TEST_F(EntryIndexTest, FindsAnEntryHoweverItsDnIsWritten)
{
    Indexed tree;
    LDIF_Entry& entry = tree.add("cn=a,o=b");
    tree.add("o=b");
    EXPECT_EQ(tree.index.find(dnOf("CN = \\41 ; O=B")), &entry);
    EXPECT_EQ(tree.index.find(dnOf("cn=a,o=c")), nullptr);
    EXPECT_EQ(tree.index.find(dnOf("cn=a")), nullptr);
    EXPECT_EQ(tree.index.find(LDIF_DN()), nullptr);
}

TEST_F(EntryIndexTest, AnEntrysPlaceIsTheEntryItselfOrBelowItsNearestAncestor)
{
    Indexed tree;
    LDIF_Entry& top = tree.add("o=b");
    LDIF_Entry& middle = tree.add("cn=y,cn=x,o=b");
    EXPECT_EQ(tree.index.placeOf(dnOf("O=B")).existing, &top);
    EXPECT_EQ(tree.index.placeOf(dnOf("cn=x,o=b")).existing, nullptr);
    EXPECT_EQ(tree.index.placeOf(dnOf("cn=x,o=b")).ancestor, &top);
    EXPECT_EQ(tree.index.placeOf(dnOf("cn=q,cn=z,cn=y,cn=x,o=b")).ancestor, &middle);
    EXPECT_EQ(tree.index.placeOf(dnOf("o=c")).existing, nullptr);
    EXPECT_EQ(tree.index.placeOf(dnOf("o=c")).ancestor, nullptr);
}

TEST_F(EntryIndexTest, ForgetsAnEntryWithEverythingBelowItAndNothingElse)
{
    Indexed tree;
    LDIF_Entry& top = tree.add("o=b");
    LDIF_Entry& gone = tree.add("cn=x,o=b");
    tree.add("cn=y,cn=x,o=b");
    LDIF_Entry& sibling = tree.add("cn=z,o=b");
    tree.index.forget(gone);
    EXPECT_EQ(tree.index.find(dnOf("cn=x,o=b")), nullptr);
    EXPECT_EQ(tree.index.find(dnOf("cn=y,cn=x,o=b")), nullptr);
    EXPECT_EQ(tree.index.find(dnOf("o=b")), &top);
    EXPECT_EQ(tree.index.find(dnOf("cn=z,o=b")), &sibling);
    tree.index.add(gone);
    EXPECT_EQ(tree.index.find(dnOf("cn=x,o=b")), &gone);
}

TEST_F(EntryIndexTest, FindsEachOfManyAfterOthersWereForgotten)
{
    constexpr int count = 1000;
    Indexed tree;
    std::vector<LDIF_Entry*> entries;
    entries.reserve(count);
    for (int number = 0; number < count; ++number) {
        entries.push_back(&tree.add("cn=" + std::to_string(number)));
    }
    for (int number = 0; number < count; number += 2) {
        tree.index.forget(*entries[static_cast<std::size_t>(number)]);
    }
    for (int number = 0; number < count; ++number) {
        const auto position = static_cast<std::size_t>(number);
        EXPECT_EQ(tree.index.find(dnOf("CN=" + std::to_string(number))), number % 2 == 0 ? nullptr : entries[position]);
    }
}

TEST_F(EntryIndexTest, WhatComesAndGoesLeavesNothingBehind)
{
    Indexed tree;
    std::vector<LDIF_Entry*> staying;
    for (int number = 0; number < 100; ++number) {
        staying.push_back(&tree.add("cn=" + std::to_string(number) + ",o=b"));
    }
    for (int round = 0; round < 10000; ++round) {
        // The same one, and one that never was there before.
        for (const std::string& dn : {std::string("cn=again,o=b"), "cn=new" + std::to_string(round) + ",o=b"}) {
            LDIF_Entry entry(dnOf(dn));
            tree.index.add(entry);
            ASSERT_EQ(tree.index.find(dnOf(dn)), &entry);
            tree.index.forget(entry);
            ASSERT_EQ(tree.index.find(dnOf(dn)), nullptr);
            ASSERT_LE(tree.index.size(), 2 * staying.size());
        }
    }
    for (const LDIF_Entry* entry : staying) {
        EXPECT_EQ(tree.index.find(entry->dn), entry);
    }
    for (const LDIF_Entry* entry : staying) {
        tree.index.forget(*entry);
    }
    EXPECT_EQ(tree.index.size(), 0U);
}

TEST_F(EntryIndexTest, NamesNobodyInAnotherLocaleNorAfterIt)
{
    Indexed tree;
    tree.add("cn=a");
    ASSERT_TRUE(tree.index.isComplete());
    {
        const LocaleGuard other("C");
        EXPECT_EQ(tree.index.find(dnOf("cn=a")), nullptr);
    }
    // Entries may have come in the meantime that it could not take.
    EXPECT_FALSE(tree.index.isComplete());
    EXPECT_EQ(tree.index.find(dnOf("cn=a")), nullptr);
}

// ---- Behind a handle ----

namespace {

class IndexedHandle : public ApiTest
{
protected:
    static int baseSearch(void* handle, const char* dn) { return search(handle, dn, baseScope, "objectclass=*").code; }
};

constexpr char threeEntries[] = "dn: o=b\nobjectclass: top\n\n"
                                "dn: cn=x,o=b\nobjectclass: top\n\n"
                                "dn: cn=y,cn=x,o=b\nobjectclass: top\n\n";

} // namespace

TEST_F(IndexedHandle, AnEntryThatWasDeletedIsNotFoundAndOneAddedInItsPlaceIs)
{
    const Handle handle = bound(threeEntries);
    ASSERT_EQ(baseSearch(handle.get(), "cn=y, cn=x, o=b"), 0);
    ASSERT_EQ(cfg_delete_s(handle.get(), "CN=Y,cn=x,o=b"), 0);
    EXPECT_EQ(baseSearch(handle.get(), "cn=y,cn=x,o=b"), 32);
    Mods mods({{LDAP_MOD_ADD, "objectclass", {{"person"}}}});
    ASSERT_EQ(cfg_add_s(handle.get(), "cn=y,cn=x,o=b", mods.list()), 0);
    EXPECT_EQ(listed(search(handle.get(), "cn=y,cn=x,o=b", baseScope, "objectclass=*").result.get()),
              "dn: cn=y, cn=x, o=b\nobjectclass: person\n");
}

TEST_F(IndexedHandle, NobodyBelowADeletedEntryIsFound)
{
    const Handle handle = bound(threeEntries);
    ASSERT_EQ(cfg_set_option(handle.get(), CFG_OPT_DELETE_NON_LEAVES, flag(1)), 0);
    ASSERT_EQ(cfg_delete_s(handle.get(), "cn=x,o=b"), 0);
    EXPECT_EQ(baseSearch(handle.get(), "cn=x,o=b"), 32);
    EXPECT_EQ(baseSearch(handle.get(), "cn=y,cn=x,o=b"), 32);
    EXPECT_EQ(baseSearch(handle.get(), "o=b"), 0);
}

TEST_F(IndexedHandle, AnEntryThatAnotherAdoptedIsStillFound)
{
    const Handle handle = bound("dn: cn=y,cn=x,o=b\nobjectclass: top\n\n");
    Mods mods({{LDAP_MOD_ADD, "objectclass", {{"person"}}}});
    ASSERT_EQ(cfg_add_s(handle.get(), "cn=x,o=b", mods.list()), 0);
    EXPECT_EQ(baseSearch(handle.get(), "cn=y,cn=x,o=b"), 0);
    EXPECT_EQ(dnsOf(search(handle.get(), "cn=x,o=b", subtree, "objectclass=*").result.get()),
              "cn=x, o=b\ncn=y, cn=x, o=b\n");
}

TEST_F(IndexedHandle, AFileThatChangedIsSearchedAnew)
{
    const Handle handle = bound(threeEntries);
    ASSERT_EQ(baseSearch(handle.get(), "cn=x,o=b"), 0);
    shiftModificationTime(write("dn: o=b\nobjectclass: top\n\ndn: cn=z,o=b\nobjectclass: top\n"), 10);
    EXPECT_EQ(baseSearch(handle.get(), "cn=x,o=b"), 32);
    EXPECT_EQ(baseSearch(handle.get(), "cn=z,o=b"), 0);
}

TEST_F(IndexedHandle, DnsThatFoldOtherwiseInAnotherLocaleAreFoundAsThatLocaleFolds)
{
    const Handle handle = bound("dn: cn=Test,o=b\nobjectclass: top\n\n");
    ASSERT_EQ(baseSearch(handle.get(), "CN=TEST,O=B"), 0);
    const LocaleGuard other("C");
    EXPECT_EQ(baseSearch(handle.get(), "CN=TEST,O=B"), 0);
    EXPECT_EQ(baseSearch(handle.get(), "cn=none,o=b"), 32);
}
