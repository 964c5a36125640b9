// The updates of the store: modify, add and erase, in memory.
#include "support/failing_allocator.h"
#include "support/mods.h"
#include "support/store_test.h"

#include "LDIF_Exception.h"
#include "LDIF_File.h"

#include "veltor/platform.h"

#include <string>
#include <vector>

using namespace veltor::test;

namespace {

constexpr int modAdd = 0;
constexpr int modDelete = 1;
constexpr int modReplace = 2;
constexpr int bervalFlag = 128;

class LdifFileUpdate : public StoreTest
{
protected:
    std::unique_ptr<LDIF_File> sample() const
    {
        return loaded("version: 1\n"
                      "charset: ISO-8859-1\n"
                      "\n"
                      "dn: o=x\n"
                      "objectclass: top\n"
                      "\n"
                      "# above\n"
                      "dn: cn=a, o=x\n"
                      "# about cn\n"
                      "cn: a\n"
                      "# about description\n"
                      "description: one\n"
                      "description: two\n"
                      "# about the port\n"
                      "zor-slapdPort: 389\n"
                      "\n");
    }
};

// The text of cn=a, o=x in parts.
constexpr char head[] = "# above\ndn: cn=a, o=x\n";
constexpr char cn[] = "# about cn\ncn: a\n";
constexpr char description[] = "# about description\ndescription: one\ndescription: two\n";
constexpr char port[] = "# about the port\nzor-slapdPort: 389\n";

std::string entryText(LDIF_File& store, const std::string& dn)
{
    const LDIF_Entry* const entry = store.root.find(dnOf(dn));
    return entry == nullptr ? "(no entry)" : entry->str();
}

std::string childrenOf(LDIF_File& store, const std::string& dn)
{
    const LDIF_Entry* const entry = store.root.find(dnOf(dn));
    if (entry == nullptr) {
        return "(no entry)";
    }
    std::string text;
    for (const LDIF_Entry& child : entry->children) {
        text += child.relDn.str() + "\n";
    }
    return text;
}

std::string traceOf(const std::string& name, Form form)
{
    return name + " (" + nameOf(form) + ")";
}

} // namespace

// ---- modify ----

TEST_F(LdifFileUpdate, ModificationsChangeAttributes)
{
    struct Row
    {
        const char* name;
        std::vector<Change> changes;
        std::string attributes;
    };
    const std::string more = "# about description\ndescription: one\ndescription: two\ndescription: ";
    const Row rows[] = {
        // Add
        {"add appends", {{modAdd, "description", {{"three"}}}}, cn + more + "three\n" + port},
        {"add takes several in order",
         {{modAdd, "description", {{"z", "y"}}}},
         cn + more + "z\ndescription: y\n" + port},
        {"add drops what is there", {{modAdd, "description", {{"two", "one"}}}}, std::string(cn) + description + port},
        {"an unknown type is compared byte by byte", {{modAdd, "description", {{"ONE"}}}}, cn + more + "ONE\n" + port},
        {"cn ignores letter case", {{modAdd, "cn", {{"A"}}}}, std::string(cn) + description + port},
        {"integers compare as numbers", {{modAdd, "zor-slapdPort", {{"00389"}}}}, std::string(cn) + description + port},
        {"add drops repetitions of its own",
         {{modAdd, "mail", {{"m", "m"}}}},
         std::string(cn) + description + "mail: m\n" + port},
        {"add merges under the first spelling", {{modAdd, "DESCRIPTION", {{"three"}}}}, cn + more + "three\n" + port},
        {"a new attribute stands at its place",
         {{modAdd, "mail", {{"m"}}}},
         std::string(cn) + description + "mail: m\n" + port},
        {"before all", {{modAdd, "aci", {{"m"}}}}, "aci: m\n" + std::string(cn) + description + port},
        {"behind all", {{modAdd, "zzz", {{"m"}}}}, std::string(cn) + description + port + "zzz: m\n"},
        {"letter case does not order", {{modAdd, "MAIL", {{"m"}}}}, std::string(cn) + description + "MAIL: m\n" + port},
        {"values are normalised",
         {{modAdd, "zor-slapdSecurePort", {{" +0636 "}}}},
         std::string(cn) + description + port + "zor-slapdSecurePort: 636\n"},
        {"DNs are normalised",
         {{modAdd, "zor-slapdAdminDN", {{"CN = Root ;O=X"}}}},
         std::string(cn) + description + "zor-slapdAdminDN: CN=Root, O=X\n" + port},
        {"an empty text is a value", {{modAdd, "mail", {{""}}}}, std::string(cn) + description + "mail: \n" + port},
        {"add of an empty array", {{modAdd, "mail", {{}}}}, std::string(cn) + description + port},
        {"add of no array", {{modAdd, "mail", {}}}, std::string(cn) + description + port},
        // Delete
        {"delete of a value",
         {{modDelete, "description", {{"one"}}}},
         std::string(cn) + "# about description\ndescription: two\n" + port},
        {"delete of the last value", {{modDelete, "cn", {{"a"}}}}, std::string(description) + port},
        {"delete of all values one by one", {{modDelete, "description", {{"two", "one"}}}}, std::string(cn) + port},
        {"delete as the type compares", {{modDelete, "zor-slapdPort", {{"0389"}}}}, std::string(cn) + description},
        {"delete of a value that is not there",
         {{modDelete, "description", {{"three"}}}},
         std::string(cn) + description + port},
        {"delete of a value in other letter case",
         {{modDelete, "description", {{"ONE"}}}},
         std::string(cn) + description + port},
        {"what follows the last value is ignored",
         {{modDelete, "zor-slapdPort", {{"389", "no number"}}}},
         std::string(cn) + description},
        {"delete finds the name in any case",
         {{modDelete, "DeScRiPtIoN", {{"one"}}}},
         std::string(cn) + "# about description\ndescription: two\n" + port},
        {"delete without an array", {{modDelete, "description", {}}}, std::string(cn) + port},
        {"delete with an empty array", {{modDelete, "description", {{}}}}, std::string(cn) + port},
        // Replace
        {"replace keeps place and comment",
         {{modReplace, "description", {{"three"}}}},
         std::string(cn) + "# about description\ndescription: three\n" + port},
        {"replace keeps the first spelling",
         {{modReplace, "DESCRIPTION", {{"three"}}}},
         std::string(cn) + "# about description\ndescription: three\n" + port},
        {"replace by the same",
         {{modReplace, "description", {{"one"}}}},
         std::string(cn) + "# about description\ndescription: one\n" + port},
        {"replace by several",
         {{modReplace, "description", {{"2", "1", "2"}}}},
         std::string(cn) + "# about description\ndescription: 2\ndescription: 1\n" + port},
        {"replace without an array removes", {{modReplace, "description", {}}}, std::string(cn) + port},
        {"replace with an empty array removes", {{modReplace, "description", {{}}}}, std::string(cn) + port},
        {"replace of a missing attribute inserts",
         {{modReplace, "mail", {{"m"}}}},
         std::string(cn) + description + "mail: m\n" + port},
        {"replace of a missing attribute by nothing", {{modReplace, "mail", {}}}, std::string(cn) + description + port},
        // Several
        {"in order",
         {{modAdd, "mail", {{"m"}}}, {modAdd, "mail", {{"n"}}}, {modDelete, "mail", {{"m"}}}},
         std::string(cn) + description + "mail: n\n" + port},
        {"a removed attribute comes back without its comment",
         {{modDelete, "description", {}}, {modAdd, "description", {{"one"}}}},
         std::string(cn) + "description: one\n" + port},
    };
    for (const Row& row : rows) {
        for (const Form form : bothForms) {
            SCOPED_TRACE(traceOf(row.name, form));
            const auto store = sample();
            Mods mods(row.changes, form);
            store->modify(dnOf("cn=a, o=x"), mods.list());
            EXPECT_EQ(entryText(*store, "cn=a, o=x"), head + row.attributes + "\n");
        }
    }
}

TEST_F(LdifFileUpdate, ASecondValueOfASingleValuedAttributeIsAccepted)
{
    const auto store = sample();
    Mods mods({{modAdd, "zor-slapdPort", {{"636", "390"}}}});
    store->modify(dnOf("cn=a,o=x"), mods.list());
    EXPECT_EQ(entryText(*store, "cn=a,o=x"),
              std::string(head) + cn + description + port + "zor-slapdPort: 636\nzor-slapdPort: 390\n\n");
}

TEST_F(LdifFileUpdate, BervalsAreReadUpToTheFirstNulWhateverTheirLength)
{
    for (const ber_len_t length : {ber_len_t{0}, ber_len_t{2}, ber_len_t{5}, ber_len_t{11}, ber_len_t{1} << 40}) {
        SCOPED_TRACE(length);
        const auto store = sample();
        char data[] = "three\0hidden";
        berval value{length, data};
        berval* values[] = {&value, nullptr};
        char type[] = "description";
        LDAPMod mod{};
        mod.mod_op = modReplace | bervalFlag;
        mod.mod_type = type;
        mod.mod_bvalues = values;
        LDAPMod* mods[] = {&mod, nullptr};
        store->modify(dnOf("cn=a,o=x"), mods);
        EXPECT_EQ(entryText(*store, "cn=a,o=x"),
                  std::string(head) + cn + "# about description\ndescription: three\n" + port + "\n");
    }
}

TEST_F(LdifFileUpdate, PasswordsAreStoredEncoded)
{
    const auto store = sample();
    Mods mods({{modAdd, "zor-slapdAdminPW", {{"Secret1"}}}});
    store->modify(dnOf("cn=a,o=x"), mods.list());
    const LDIF_Entry* const entry = store->root.find(dnOf("cn=a,o=x"));
    const auto attribute = entry->attributes.find("zor-slapdAdminPW");
    ASSERT_NE(attribute, entry->attributes.end());
    ASSERT_EQ(attribute->values.size(), 1U);
    std::string stored = attribute->values.begin()->str();
    EXPECT_EQ(stored.front(), '>');
    EXPECT_EQ(stored.back(), '<');
    EXPECT_EQ(stored.find("Secret1"), std::string::npos);
    char* clear = nullptr;
    ASSERT_EQ(_slapd_utils_decode_buffer(stored.data(), &clear), 0);
    EXPECT_STREQ(clear, "Secret1");
    _slapd_utils_decode_buffer_free(clear);

    Mods removal({{modDelete, "zor-slapdAdminPW", {{"Secret1"}}}});
    store->modify(dnOf("cn=a,o=x"), removal.list());
    EXPECT_EQ(entryText(*store, "cn=a,o=x"), std::string(head) + cn + description + port + "\n");
}

TEST_F(LdifFileUpdate, ANullOrEmptyListSucceedsAlsoForAMissingEntry)
{
    const auto store = sample();
    const std::string before = treeText(*store);
    LDAPMod* none[] = {nullptr};
    for (const char* dn : {"cn=a, o=x", "cn=missing, o=x", "o=nowhere", ""}) {
        SCOPED_TRACE(dn);
        EXPECT_NO_THROW(store->modify(dnOf(dn), nullptr));
        EXPECT_NO_THROW(store->modify(dnOf(dn), none));
    }
    EXPECT_EQ(treeText(*store), before);
}

TEST_F(LdifFileUpdate, TheEntryIsFoundBelowMissingParentsAndUnderAnySpelling)
{
    const auto store = loaded("dn: o=x\ncn: 1\n\ndn: CN=A, ou=gone, o=x\ncn: 2\n\n");
    Mods mods({{modReplace, "cn", {{"3"}}}});
    store->modify(dnOf("cn = a ; OU=GONE;O=X"), mods.list());
    EXPECT_EQ(entryText(*store, "cn=a,ou=gone,o=x"), "dn: CN=A, ou=gone, o=x\ncn: 3\n\n");
}

TEST_F(LdifFileUpdate, TheEmptyDnModifiesTheRoot)
{
    const auto store = sample();
    Mods mods({{modReplace, "charset", {{"UTF-8"}}}});
    store->modify(LDIF_DN(), mods.list());
    const std::string root = "charset: UTF-8\nversion: 1\n\n";
    EXPECT_EQ(treeText(*store).substr(0, root.size()), root);
}

TEST_F(LdifFileUpdate, NothingIsWrittenAndNothingIsRead)
{
    const auto store = sample();
    const std::string before = onDisk();
    folder().write(fileName, "dn: o=other\n\n");
    Mods mods({{modAdd, "description", {{"three"}}}});
    store->modify(dnOf("cn=a,o=x"), mods.list());
    store->add(dnOf("cn=b,o=x"), nullptr);
    store->erase(dnOf("cn=a,o=x"), false);
    EXPECT_EQ(onDisk(), "dn: o=other\n\n");
    EXPECT_EQ(childrenOf(*store, "o=x"), "cn=b\n");
}

TEST_F(LdifFileUpdate, EveryFailureOfModifyTellsWhatAndWhere)
{
    struct Row
    {
        const char* name;
        const char* dn;
        std::vector<Change> changes;
        int ldapErr;
        int extErr;
        const char* message;
        const char* entry;
        const char* attribute;
        const char* value;
    };
    const std::string longPassword(47, 'p');
    const Row rows[] = {
        {"missing entry", "CN=b;o=x", {{modAdd, "cn", {{"b"}}}}, 32, 32, "Entry not found", "CN=b, o=x", "", ""},
        {"missing suffix", "o=y", {{modAdd, "cn", {{"b"}}}}, 32, 32, "Entry not found", "o=y", "", ""},
        {"missing entry comes before a bad operation",
         "o=y",
         {{3, "cn", {{"b"}}}},
         32,
         32,
         "Entry not found",
         "o=y",
         "",
         ""},
        {"delete of a missing attribute",
         "cn=A,o=X",
         {{modDelete, "mail", {}}},
         16,
         16,
         "Target attribute of MOD_DELETE not found",
         "cn=A, o=X",
         "mail",
         ""},
        {"delete of a value of a missing attribute",
         "cn=a,o=x",
         {{modDelete, "Mail", {{"m"}}}},
         16,
         16,
         "Target attribute of MOD_DELETE not found",
         "cn=a, o=x",
         "Mail",
         ""},
        {"operation 3", "cn=a,o=x", {{3, "cn", {{"b"}}}}, 89, 1010, "Unknown mod_op: 3", "cn=a, o=x", "cn", ""},
        {"operation 4", "cn=a,o=x", {{4, "cn", {{"b"}}}}, 89, 1010, "Unknown mod_op: 4", "cn=a, o=x", "cn", ""},
        {"operation 5 without values",
         "cn=a,o=x",
         {{5, "cn", {}}},
         89,
         1010,
         "Unknown mod_op: 5",
         "cn=a, o=x",
         "cn",
         ""},
        {"operation 127 of a missing attribute",
         "cn=a,o=x",
         {{127, "mail", {{}}}},
         89,
         1010,
         "Unknown mod_op: 127",
         "cn=a, o=x",
         "mail",
         ""},
        {"text for an integer",
         "cn=a,o=x",
         {{modAdd, "zor-slapdPort", {{"abc"}}}},
         21,
         1016,
         "Value is not valid integer syntax",
         "cn=a, o=x",
         "zor-slapdPort",
         "abc"},
        {"integer out of range",
         "cn=a,o=x",
         {{modReplace, "ZOR-slapdport", {{"65536"}}}},
         21,
         1015,
         "Integer value out of range",
         "cn=a, o=x",
         "zor-slapdPort",
         "65536"},
        {"text for an integer in a delete",
         "cn=a,o=x",
         {{modDelete, "zor-slapdPort", {{"abc"}}}},
         21,
         1016,
         "Value is not valid integer syntax",
         "cn=a, o=x",
         "zor-slapdPort",
         "abc"},
        {"none of the enumerated",
         "cn=a,o=x",
         {{modAdd, "zor-slapdReadOnly", {{"yes"}}}},
         21,
         1017,
         "value not one of attrType.enumValues",
         "cn=a, o=x",
         "zor-slapdReadOnly",
         "yes"},
        {"too long",
         "cn=a,o=x",
         {{modAdd, "zor-slapdDbName", {{"ninechars"}}}},
         21,
         1018,
         "zor-slapdDbName length must be 1 to 8 characters",
         "cn=a, o=x",
         "zor-slapdDbName",
         "ninechars"},
        {"bits outside the mask",
         "cn=a,o=x",
         {{modAdd, "zor-slapdSslCipherSpecs", {{"1"}}}},
         21,
         1019,
         "Bits in value are not within bitmask constraint",
         "cn=a, o=x",
         "zor-slapdSslCipherSpecs",
         "1"},
        {"long password",
         "cn=a,o=x",
         {{modAdd, "zor-slapdAdminPW", {{longPassword}}}},
         21,
         1018,
         "Password length must be 1 to 46 characters",
         "cn=a, o=x",
         "zor-slapdAdminPW",
         longPassword.c_str()},
        {"bad DN",
         "cn=a,o=x",
         {{modAdd, "zor-slapdAdminDN", {{"=x"}}}},
         34,
         1012,
         "Invalid attribute sytax: ",
         "cn=a, o=x",
         "zor-slapdAdminDN",
         "=x"},
    };
    for (const Row& row : rows) {
        for (const Form form : bothForms) {
            SCOPED_TRACE(traceOf(row.name, form));
            const auto store = sample();
            Mods mods(row.changes, form);
            const auto failure = failureOf([&] { store->modify(dnOf(row.dn), mods.list()); });
            expectFailure(failure, row.ldapErr, row.extErr, row.message);
            EXPECT_EQ(failure.entryDn, row.entry);
            EXPECT_EQ(failure.attribute, row.attribute);
            EXPECT_EQ(failure.value, row.value);
        }
    }
}

TEST_F(LdifFileUpdate, WhatTheValuesRaiseGoesThroughUnwrapped)
{
    const auto store = sample();
    Mods mods({{modAdd, "zor-slapdPort", {{"abc"}}}});
    const auto failure = failureOf([&] { store->modify(dnOf("cn=a,o=x"), mods.list()); });
    EXPECT_EQ(failure.srcFile, "LDIF_Value.cpp");
    ASSERT_NE(failure.attrType, nullptr);
    EXPECT_STREQ(failure.attrType->name, "zor-slapdPort");
}

TEST_F(LdifFileUpdate, NothingIsRolledBackAndNothingMoreIsTried)
{
    struct Row
    {
        const char* name;
        std::vector<Change> changes;
        int ldapErr;
        std::string attributes;
    };
    const Row rows[] = {
        {"between others",
         {{modAdd, "mail", {{"m"}}}, {modDelete, "none", {}}, {modAdd, "sn", {{"s"}}}},
         16,
         std::string(cn) + description + "mail: m\n" + port},
        {"unknown operation behind a delete",
         {{modDelete, "cn", {}}, {3, "description", {{"x"}}}},
         89,
         std::string(description) + port},
        {"an add with one bad value adds none of its own",
         {{modAdd, "zor-slapdPort", {{"390", "abc", "391"}}}},
         21,
         std::string(cn) + description + port},
        {"a replace with a bad value leaves the attribute empty",
         {{modReplace, "zor-slapdPort", {{"390", "abc"}}}},
         21,
         std::string(cn) + description + "# about the port\n"},
        {"a delete keeps what it removed before the bad value",
         {{modAdd, "zor-slapdPort", {{"390"}}}, {modDelete, "zor-slapdPort", {{"389", "abc", "390"}}}},
         21,
         std::string(cn) + description + "# about the port\nzor-slapdPort: 390\n"},
    };
    for (const Row& row : rows) {
        for (const Form form : bothForms) {
            SCOPED_TRACE(traceOf(row.name, form));
            const auto store = sample();
            Mods mods(row.changes, form);
            EXPECT_EQ(failureOf([&] { store->modify(dnOf("cn=a,o=x"), mods.list()); }).ldapErr, row.ldapErr);
            EXPECT_EQ(entryText(*store, "cn=a,o=x"), head + row.attributes + "\n");
        }
    }
}

TEST_F(LdifFileUpdate, AnAttributeThatWasLeftEmptyGoesWithAnyDelete)
{
    const auto store = sample();
    Mods bad({{modReplace, "zor-slapdPort", {{"abc"}}}});
    EXPECT_EQ(failureOf([&] { store->modify(dnOf("cn=a,o=x"), bad.list()); }).ldapErr, 21);
    const LDIF_Entry* const entry = store->root.find(dnOf("cn=a,o=x"));
    ASSERT_NE(entry->attributes.find("zor-slapdPort"), entry->attributes.end());

    // No value is there to compare with, so not even this one is refused.
    Mods removal({{modDelete, "zor-slapdPort", {{"no number"}}}});
    store->modify(dnOf("cn=a,o=x"), removal.list());
    EXPECT_EQ(entry->attributes.find("zor-slapdPort"), entry->attributes.end());
    EXPECT_EQ(entryText(*store, "cn=a,o=x"), std::string(head) + cn + description + "\n");
}

// ---- Lists that can't be read ----

TEST_F(LdifFileUpdate, AListWithoutATypeOrWithoutDataChangesNothing)
{
    for (const bool withoutType : {true, false}) {
        SCOPED_TRACE(withoutType ? "no type" : "no data");
        for (const int operation : {modAdd, modDelete, modReplace, 3}) {
            SCOPED_TRACE(operation);
            const auto store = sample();
            const std::string before = treeText(*store);
            // The sound record in front of it must not be applied either.
            Mods mods({{modReplace, "description", {{"three"}}}});
            if (withoutType) {
                mods.addWithoutType(operation);
            } else {
                mods.addWithoutData(operation, "mail");
            }
            const auto ofModify = failureOf([&] { store->modify(dnOf("cn=a,o=x"), mods.list()); });
            EXPECT_EQ(ofModify.ldapErr, 89);
            EXPECT_EQ(ofModify.extErr, 89);
            EXPECT_EQ(ofModify.entryDn, "cn=a, o=x");
            const auto ofAdd = failureOf([&] { store->add(dnOf("cn=b,o=x"), mods.list()); });
            EXPECT_EQ(ofAdd.ldapErr, 89);
            EXPECT_EQ(ofAdd.extErr, 89);
            EXPECT_EQ(ofAdd.entryDn, "cn=b, o=x");
            EXPECT_EQ(treeText(*store), before);
        }
    }
}

// ---- add ----

TEST_F(LdifFileUpdate, AnAddedEntryHasTheValuesOfTheListWhateverTheOperations)
{
    for (const Form form : bothForms) {
        for (const int operation : {modAdd, modDelete, modReplace, 3, 5, 127}) {
            SCOPED_TRACE(traceOf(std::to_string(operation), form));
            const auto store = sample();
            Mods mods({{operation, "zor-slapdPort", {{" 0636"}}},
                       {operation, "none", {}},
                       {operation, "nothing", {{}}},
                       {operation, "Cn", {{"b", "B"}}},
                       {operation, "description", {{"d"}}},
                       {operation, "CN", {{"c"}}}},
                      form);
            store->add(dnOf("CN = b ;O=x"), mods.list());
            EXPECT_EQ(childrenOf(*store, "o=x"), "cn=a\nCN=b\n");
            EXPECT_EQ(entryText(*store, "cn=b,o=x"),
                      "dn: CN=b, O=x\nCn: b\nCn: c\ndescription: d\nzor-slapdPort: 636\n\n");
        }
    }
}

TEST_F(LdifFileUpdate, AnEntryWithoutAnyValuesIsInsertedToo)
{
    Mods empty({{modAdd, "cn", {}}, {modDelete, "sn", {{}}}});
    LDAPMod* none[] = {nullptr};
    LDAPMod** const lists[] = {empty.list(), none, nullptr};
    for (LDAPMod** const list : lists) {
        const auto store = sample();
        store->add(dnOf("cn=b,o=x"), list);
        EXPECT_EQ(entryText(*store, "cn=b,o=x"), "dn: cn=b, o=x\n\n");
        EXPECT_TRUE(store->root.find(dnOf("cn=b,o=x"))->attributes.empty());
    }
}

TEST_F(LdifFileUpdate, AddingAnEntryThatExistsMerges)
{
    const auto store = loaded("# c\nDN: CN=a, o=x\nDescription: one\n# about the port\nzor-slapdPort: 389\n\n"
                              "dn: cn=child, cn=a, o=x\n\n");
    Mods mods(
        {{modReplace, "description", {{"two", "one"}}}, {modAdd, "zor-slapdport", {{"0389"}}}, {0, "mail", {{"m"}}}});
    store->add(dnOf("cn=A,o=X"), mods.list());
    // The charset, which the root gets by default, takes the comment at the top.
    EXPECT_EQ(entryText(*store, "cn=a,o=x"), "DN: CN=a, o=x\nDescription: one\nDescription: two\nmail: m\n"
                                             "# about the port\nzor-slapdPort: 389\n\n");
    EXPECT_EQ(childrenOf(*store, "cn=a,o=x"), "cn=child\n");
}

TEST_F(LdifFileUpdate, AnAddedEntryHangsUnderItsNearestAncestorAndAdoptsItsDescendants)
{
    const auto store = sample();
    store->add(dnOf("cn=1, ou=b, ou=c, o=x"), nullptr);
    EXPECT_EQ(childrenOf(*store, "o=x"), "cn=a\ncn=1, ou=b, ou=c\n");
    store->add(dnOf("cn=2, ou=c, o=x"), nullptr);
    EXPECT_EQ(childrenOf(*store, "o=x"), "cn=a\ncn=1, ou=b, ou=c\ncn=2, ou=c\n");
    store->add(dnOf("ou=c, o=x"), nullptr);
    EXPECT_EQ(childrenOf(*store, "o=x"), "cn=a\nou=c\n");
    EXPECT_EQ(childrenOf(*store, "ou=c,o=x"), "cn=1, ou=b\ncn=2\n");
    store->add(dnOf("ou=b, ou=c, o=x"), nullptr);
    EXPECT_EQ(childrenOf(*store, "ou=c,o=x"), "cn=2\nou=b\n");
    EXPECT_EQ(childrenOf(*store, "ou=b,ou=c,o=x"), "cn=1\n");
    store->add(dnOf("cn=top, dc=elsewhere"), nullptr);
    EXPECT_EQ(childrenOf(*store, ""), "o=x\ncn=top, dc=elsewhere\n");
}

TEST_F(LdifFileUpdate, AddingTheEmptyDnMergesIntoTheRoot)
{
    const auto store = sample();
    Mods mods({{modAdd, "objectclass", {{"top"}}}});
    store->add(LDIF_DN(), mods.list());
    const std::string root = "charset: ISO-8859-1\nobjectclass: top\nversion: 1\n\ndn: o=x\n";
    EXPECT_EQ(treeText(*store).substr(0, root.size()), root);
    EXPECT_EQ(childrenOf(*store, ""), "o=x\n");
}

TEST_F(LdifFileUpdate, AnEntryWithABadValueIsNotInserted)
{
    struct Row
    {
        const char* dn;
        const char* entry;
    };
    for (const Row& row : {Row{"cn=B;o=x", "cn=B, o=x"}, Row{"cn=a,o=x", "cn=a, o=x"}}) {
        for (const Form form : bothForms) {
            SCOPED_TRACE(traceOf(row.dn, form));
            const auto store = sample();
            const std::string before = treeText(*store);
            Mods mods({{modAdd, "mail", {{"m"}}}, {modAdd, "zor-slapdPort", {{"1", "0"}}}}, form);
            const auto failure = failureOf([&] { store->add(dnOf(row.dn), mods.list()); });
            expectFailure(failure, 21, 1015, "Integer value out of range");
            EXPECT_EQ(failure.entryDn, row.entry);
            EXPECT_EQ(failure.attribute, "zor-slapdPort");
            EXPECT_EQ(failure.value, "0");
            EXPECT_EQ(treeText(*store), before);
        }
    }
}

// ---- erase ----

namespace {

constexpr char family[] = "version: 1\ncharset: a\n\n"
                          "dn: o=x\n\ndn: cn=1, o=x\n\ndn: ou=m, o=x\n\ndn: cn=2, ou=m, o=x\n\n"
                          "dn: cn=3, ou=gone, ou=m, o=x\n\ndn: cn=9, o=x\n\n"
                          "dn: cn=4, ou=lost, o=x\n\ndn: cn=5, cn=4, ou=lost, o=x\n\n"
                          "dn: cn=6, o=nowhere\n\ndn: o=z\n\n";

} // namespace

TEST_F(LdifFileUpdate, ErasingRemovesTheEntryAndItsSubtreeAndKeepsTheOrder)
{
    struct Row
    {
        const char* name;
        const char* dn;
        bool withSubtree;
        const char* top;
        const char* below;
    };
    constexpr char top[] = "o=x\ncn=6, o=nowhere\no=z\n";
    constexpr char below[] = "cn=1\nou=m\ncn=9\ncn=4, ou=lost\n";
    const Row rows[] = {
        {"first leaf", "cn=1,o=x", false, top, "ou=m\ncn=9\ncn=4, ou=lost\n"},
        {"leaf in the middle, other spelling", "CN = 9 ; O=X", false, top, "cn=1\nou=m\ncn=4, ou=lost\n"},
        {"leaf, with permission for more", "cn=9,o=x", true, top, "cn=1\nou=m\ncn=4, ou=lost\n"},
        {"subtree", "ou=m,o=x", true, top, "cn=1\ncn=9\ncn=4, ou=lost\n"},
        {"subtree below a missing parent", "cn=4,ou=lost,o=x", true, top, "cn=1\nou=m\ncn=9\n"},
        {"leaf without any ancestor", "cn=6,o=nowhere", false, "o=x\no=z\n", below},
        {"leaf at the top", "o=z", false, "o=x\ncn=6, o=nowhere\n", below},
        {"subtree at the top", "o=x", true, "cn=6, o=nowhere\no=z\n", "(no entry)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto store = loaded(family);
        store->erase(dnOf(row.dn), row.withSubtree);
        EXPECT_EQ(store->root.find(dnOf(row.dn)), nullptr);
        EXPECT_EQ(childrenOf(*store, ""), row.top);
        EXPECT_EQ(childrenOf(*store, "o=x"), row.below);
    }
}

TEST_F(LdifFileUpdate, AnEntryWhoseParentIsMissingIsFoundUnderItsNearestAncestor)
{
    const auto store = loaded(family);
    store->erase(dnOf("cn=3, ou=gone, ou=m, o=x"), false);
    EXPECT_EQ(childrenOf(*store, "ou=m, o=x"), "cn=2\n");
    store->erase(dnOf("cn=5, cn=4, ou=lost, o=x"), false);
    EXPECT_EQ(childrenOf(*store, "cn=4, ou=lost, o=x"), "");
}

TEST_F(LdifFileUpdate, AnEntryIsALeafAgainWhenItsChildrenAreGone)
{
    const auto store = loaded(family);
    store->erase(dnOf("cn=5, cn=4, ou=lost, o=x"), false);
    store->erase(dnOf("cn=4, ou=lost, o=x"), false);
    EXPECT_EQ(childrenOf(*store, "o=x"), "cn=1\nou=m\ncn=9\n");
}

TEST_F(LdifFileUpdate, EveryFailureOfEraseTellsTheEntryAndRemovesNothing)
{
    struct Row
    {
        const char* name;
        const char* dn;
        bool withSubtree;
        int code;
        const char* message;
        const char* entry;
    };
    constexpr char notFound[] = "Entry not found";
    constexpr char notALeaf[] = "Use CFG_OPT_DELETE_NON_LEAVES to enable subtree delete";
    const Row rows[] = {
        {"unknown leaf", "CN=7;o=x", false, 32, notFound, "CN=7, o=x"},
        {"unknown suffix", "o=y", true, 32, notFound, "o=y"},
        {"below an unknown parent", "cn=7,ou=q,o=x", true, 32, notFound, "cn=7, ou=q, o=x"},
        {"below a leaf", "cn=7,cn=1,o=x", false, 32, notFound, "cn=7, cn=1, o=x"},
        {"missing parent of an entry", "ou=lost,o=x", true, 32, notFound, "ou=lost, o=x"},
        {"missing parent at the top", "o=nowhere", true, 32, notFound, "o=nowhere"},
        {"same RDN elsewhere", "cn=2,o=x", true, 32, notFound, "cn=2, o=x"},
        {"the root", "", false, 32, notFound, ""},
        {"the root with its subtree", "", true, 32, notFound, ""},
        {"one with children", "OU=m;o=x", false, 66, notALeaf, "OU=m, o=x"},
        {"one with a grandchild only", "cn=4,ou=lost,o=x", false, 66, notALeaf, "cn=4, ou=lost, o=x"},
        {"a suffix with children", "o=x", false, 66, notALeaf, "o=x"},
    };
    const auto store = loaded(family);
    const std::string before = treeText(*store);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto failure = failureOf([&] { store->erase(dnOf(row.dn), row.withSubtree); });
        // The LDAP code itself stands in the library code's place.
        expectFailure(failure, row.code, row.code, row.message);
        EXPECT_EQ(failure.entryDn, row.entry);
        EXPECT_EQ(failure.attribute, "");
        EXPECT_EQ(treeText(*store), before);
    }
}

// ---- Memory that runs out ----

namespace {

/// Runs the work with each of its allocations failing in turn.
///
/// @return how often the failure had exactly this message
template <class Prepare, class Work>
int systemErrors(const char* message, Prepare&& prepare, Work&& work)
{
    int matches = 0;
    for (std::size_t count = 1;; ++count) {
        SCOPED_TRACE(count);
        const auto store = prepare();
        bool happened = false;
        int ldapErr = 0;
        int extErr = 0;
        bool named = false;
        std::string entry;
        try {
            const FailingAllocator failing(Shortage::once, count);
            try {
                work(*store);
            } catch (...) {
                happened = failing.failed();
                throw;
            }
            happened = failing.failed();
        } catch (const LDIF_Exception& failure) {
            ldapErr = failure.ldapErr;
            extErr = failure.extErr;
            named = failure.msg == message;
            entry = failure.entryDn;
        }
        if (!happened) {
            EXPECT_EQ(ldapErr, 0);
            return matches;
        }
        if (ldapErr != 0) {
            EXPECT_TRUE(ldapErr == 80 || ldapErr == 90) << ldapErr;
            EXPECT_EQ(extErr, 1000);
            EXPECT_EQ(entry, "cn=a, o=x");
        }
        if (named) {
            EXPECT_EQ(ldapErr, 80);
            ++matches;
        }
    }
}

} // namespace

TEST_F(LdifFileUpdate, AForeignFailureOfModifyIsASystemError)
{
    const LDIF_DN dn = dnOf("cn=a,o=x");
    Mods mods({{modAdd, "description", {{"a value that is too long to need no memory of its own"}}},
               {modReplace, "zor-slapdAdminDN", {{"cn=the administrator of it all, o=x"}}}});
    EXPECT_GT(systemErrors(
                  "System error in LDIF_File::modify()", [&] { return sample(); },
                  [&](LDIF_File& store) { store.modify(dn, mods.list()); }),
              0);
}

TEST_F(LdifFileUpdate, AForeignFailureOfAddIsASystemError)
{
    const LDIF_DN dn = dnOf("cn=a,o=x");
    Mods mods({{modAdd, "description", {{"a value that is too long to need no memory of its own"}}}});
    EXPECT_GT(systemErrors(
                  "System error in LDIF_File::add()", [&] { return sample(); },
                  [&](LDIF_File& store) { store.add(dn, mods.list()); }),
              0);
}

TEST_F(LdifFileUpdate, AForeignFailureOfEraseIsASystemError)
{
    // Removing takes no memory but for the index of a level, which is made on the first question about it.
    const LDIF_DN dn = dnOf("cn=a,o=x");
    std::string text = "dn: o=x\n\n";
    for (int i = 0; i < 100; ++i) {
        text += "dn: cn=" + std::to_string(i) + ", o=x\n\n";
    }
    text += "dn: cn=a, o=x\n\n";
    const int named = systemErrors(
        "System error in LDIF_File::erase()",
        [&] {
            auto store = loaded(text);
            // A copy of the level has no index yet.
            LDIF_Entry* const parent = store->root.find(dnOf("o=x"));
            parent->children = LDIF_EntryList(parent->children);
            return store;
        },
        [&](LDIF_File& store) { store.erase(dn, false); });
    EXPECT_GT(named, 0);
}
