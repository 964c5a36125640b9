// cfg_search_s: arguments, what is found, what is copied out, and what is left behind by a search that fails.
#include "support/api_test.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include <string>
#include <unistd.h>
#include <vector>

using namespace veltor::test;

namespace {

class CfgSearch : public ApiTest
{
};

// Attributes stand in the order in which a result lists them.
constexpr char tree[] = "version: 1\n"
                        "charset: ISO-8859-1\n"
                        "\n"
                        "dn: cn=Configuration\n"
                        "cn: Configuration\n"
                        "objectclass: top\n"
                        "zor-slapdPort: 389\n"
                        "\n"
                        "dn: cn=Front End, cn=Configuration\n"
                        "cn: Front End\n"
                        "objectclass: top\n"
                        "\n"
                        "dn: cn=Deep, cn=Front End, cn=Configuration\n"
                        "cn: Deep\n"
                        "objectclass: top\n"
                        "\n"
                        "dn: cn=Back End, cn=Configuration\n"
                        "cn: Back End\n"
                        "objectclass: top\n"
                        "\n"
                        "dn: o=Bare\n"
                        "o: Bare\n"
                        "\n";

constexpr char everyEntry[] = "cn=Configuration\n"
                              "cn=Front End, cn=Configuration\n"
                              "cn=Deep, cn=Front End, cn=Configuration\n"
                              "cn=Back End, cn=Configuration\n";

std::string found(void* handle, const char* base, int scope, const char* filter)
{
    const Found answer = search(handle, base, scope, filter);
    EXPECT_EQ(answer.code, 0) << shown(cfg_dump_exception(handle));
    return dnsOf(answer.result.get());
}

/// A list of attribute names as cfg_search_s takes it.
class Names
{
public:
    Names(std::initializer_list<const char*> names)
    {
        for (const char* const name : names) {
            texts_.emplace_back(name);
        }
        for (auto& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
    }

    char** list() { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

const LDIF_Exception& kept(void* handle)
{
    const LDIF_Exception* const exception = static_cast<cfg_handle*>(handle)->lastException;
    if (exception == nullptr) {
        throw std::runtime_error("no exception is kept");
    }
    return *exception;
}

} // namespace

// ---- Arguments ----

TEST_F(CfgSearch, ANullHandleIsRefused)
{
    EXPECT_EQ(cfg_search_s(nullptr, "", subtree, nullptr, nullptr, 0, nullptr), 89);
    EXPECT_EQ(search(nullptr, "", subtree, nullptr).code, 89);
}

TEST_F(CfgSearch, AnUnboundHandleIsRefusedAndTheResultIsNull)
{
    struct Row
    {
        const char* name;
        Handle handle;
    };
    std::vector<Row> rows;
    rows.push_back({"fresh", Handle(cfg_init())});
    rows.push_back({"with a file name", unbound(write(tree))});
    rows.push_back({"after a refused bind", withKeptFailure()});
    // A store alone does not make a handle bound.
    rows.push_back({"without its file name", bound(tree)});
    cfg_set_option(rows.back().handle.get(), CFG_OPT_CONFIG_FILE, nullptr);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Found answer = search(row.handle.get(), nullptr, subtree, nullptr);
        EXPECT_EQ(answer.code, 89);
        EXPECT_EQ(answer.result, nullptr);
        EXPECT_EQ(cfg_get_errno(row.handle.get()), 89);
        EXPECT_EQ(cfg_get_exterror(row.handle.get()), 89);
        EXPECT_EQ(cfg_dump_exception(row.handle.get()), nullptr);
    }
}

TEST_F(CfgSearch, ANullResultPlaceIsRefused)
{
    const Handle handle = bound(tree);
    EXPECT_EQ(cfg_search_s(handle.get(), nullptr, subtree, nullptr, nullptr, 0, nullptr), 89);
    EXPECT_EQ(cfg_get_errno(handle.get()), 89);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
}

TEST_F(CfgSearch, EverySearchForgetsTheFailureBeforeIt)
{
    const Handle handle = bound(tree);
    EXPECT_EQ(search(handle.get(), "cn=missing", baseScope, nullptr).code, 32);
    EXPECT_EQ(search(handle.get(), "cn=Configuration", baseScope, nullptr).code, 0);
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
}

// ---- Base ----

TEST_F(CfgSearch, TheBaseIsADnInAnySpelling)
{
    const Handle handle = bound(tree);
    for (const char* const base : {"cn=Configuration", "CN=CONFIGURATION", "  cn = Configuration ",
                                   "(cn=configuration)", "cn=\"Configuration\"", "cn=#436F6E66696775726174696F6E"}) {
        EXPECT_EQ(found(handle.get(), base, baseScope, nullptr), "cn=Configuration\n") << base;
    }
    EXPECT_EQ(found(handle.get(), "CN=front end;CN=configuration", baseScope, nullptr),
              "cn=Front End, cn=Configuration\n");
}

TEST_F(CfgSearch, NullAndEmptyAreTheRoot)
{
    const Handle handle = bound(tree);
    for (const char* const base : {static_cast<const char*>(nullptr), "", "   "}) {
        SCOPED_TRACE(shown(base));
        const Found answer = search(handle.get(), base, baseScope, "version");
        EXPECT_EQ(answer.code, 0);
        EXPECT_EQ(listed(answer.result.get()), "dn: \ncharset: ISO-8859-1\nversion: 1\n");
        ASSERT_NE(answer.result, nullptr);
        EXPECT_STREQ(answer.result->text, "") << "the empty DN is the empty text, never null";
    }
}

TEST_F(CfgSearch, AMissingBaseIsNoSuchObject)
{
    const Handle handle = bound(tree);
    for (const int scope : {baseScope, oneLevel, subtree}) {
        for (const char* const base : {"cn=missing", "cn=x, cn=Configuration", "o=x"}) {
            SCOPED_TRACE(base);
            const Found answer = search(handle.get(), base, scope, nullptr);
            EXPECT_EQ(answer.code, 32);
            EXPECT_EQ(answer.result, nullptr);
            EXPECT_EQ(cfg_get_errno(handle.get()), 32);
            EXPECT_EQ(kept(handle.get()).ldapErr, 32);
            EXPECT_EQ(kept(handle.get()).extErr, 32);
            EXPECT_EQ(kept(handle.get()).msg, "Base entry not found");
        }
    }
}

TEST_F(CfgSearch, ABadBaseIsAFailure)
{
    struct Row
    {
        const char* base;
        int libraryCode;
        const char* message;
    };
    const Row rows[] = {
        {"cn=a,", 1011, "Missing RDN attribute"},
        {"=x", 1012, "Invalid attribute sytax: "},
        {"cn", 1013, "Missing RDN value: cn"},
        {"cn=a\\zz", 1014, "Invalid escape sequence: \\zz"},
        {"cn=a=b", 1014, "Invalid character in RDN value: ="},
    };
    const Handle handle = bound(tree);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.base);
        const Found answer = search(handle.get(), row.base, subtree, nullptr);
        EXPECT_EQ(answer.code, 34);
        EXPECT_EQ(answer.result, nullptr);
        EXPECT_EQ(cfg_get_exterror(handle.get()), row.libraryCode);
        EXPECT_EQ(kept(handle.get()).msg, row.message);
        EXPECT_EQ(shown(cfg_get_value(handle.get())), row.base) << "the whole DN is the value";
    }
}

// ---- Scope ----

TEST_F(CfgSearch, ScopesReachAsFarAsTheySay)
{
    struct Row
    {
        const char* name;
        const char* base;
        int scope;
        const char* dns;
    };
    constexpr char below[] = "cn=Front End, cn=Configuration\ncn=Back End, cn=Configuration\n";
    const Row rows[] = {
        {"base", "cn=Configuration", 0, "cn=Configuration\n"},
        {"one level", "cn=Configuration", 1, below},
        {"one level from a leaf", "cn=Back End, cn=Configuration", 1, ""},
        {"one level from the root", "", 1, "cn=Configuration\n"},
        {"subtree", "cn=Configuration", 2, everyEntry},
        {"subtree of a leaf", "cn=Deep, cn=Front End, cn=Configuration", 2,
         "cn=Deep, cn=Front End, cn=Configuration\n"},
        {"subtree of the root", "", 2, everyEntry},
        {"3", "cn=Configuration", 3, "cn=Configuration\n"},
        {"7", "cn=Configuration", 7, "cn=Configuration\n"},
        {"-1", "cn=Configuration", -1, "cn=Configuration\n"},
        {"0x101", "cn=Configuration", 0x101, "cn=Configuration\n"},
        {"smallest", "cn=Configuration", INT_MIN, "cn=Configuration\n"},
        {"largest", "cn=Configuration", INT_MAX, "cn=Configuration\n"},
    };
    const Handle handle = bound(tree);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(found(handle.get(), row.base, row.scope, nullptr), row.dns);
    }
}

TEST_F(CfgSearch, OneLevelNeverGivesTheBase)
{
    const Handle handle = bound(tree);
    EXPECT_EQ(found(handle.get(), "cn=Configuration", oneLevel, "zor-slapdPort=389"), "");
}

TEST_F(CfgSearch, EntriesComeParentsFirstInTheOrderOfTheFile)
{
    // The parent stands behind its children here; adopted children keep their order.
    const Handle handle = bound("dn: cn=b, o=x\nobjectclass: top\n\n"
                                "dn: cn=a, o=x\nobjectclass: top\n\n"
                                "dn: o=y\nobjectclass: top\n\n"
                                "dn: o=x\nobjectclass: top\n\n");
    EXPECT_EQ(found(handle.get(), "", subtree, nullptr), "o=y\no=x\ncn=b, o=x\ncn=a, o=x\n");
}

// ---- Filter ----

TEST_F(CfgSearch, FiltersChooseEntries)
{
    struct Row
    {
        const char* filter;
        const char* dns;
    };
    constexpr char configuration[] = "cn=Configuration\n";
    constexpr char frontEnd[] = "cn=Front End, cn=Configuration\n";
    const Row rows[] = {
        // The default filter.
        {nullptr, everyEntry},
        {"", everyEntry},
        {"   ", everyEntry},
        {"()", everyEntry},
        {" ( ) ", everyEntry},
        {"=x", everyEntry},
        {"(=x)", everyEntry},
        // Presence.
        {"objectclass", everyEntry},
        {"objectclass=*", everyEntry},
        {"(objectclass=*)", everyEntry},
        {" ( OBJECTCLASS = * ) ", everyEntry},
        {"(objectclass)", everyEntry},
        {"objectclass=", everyEntry},
        {"objectclass=*whatever", everyEntry},
        {"o", "o=Bare\n"},
        {"version", "\n"},
        {"description", ""},
        // Equality.
        {"cn=Configuration", configuration},
        {"(cn=Configuration)", configuration},
        {"  (  CN  =  configuration  )  ", configuration},
        {"\t(\ncn=Configuration\n)\r", configuration},
        {"cn=Front End", frontEnd},
        {"cn=Front\\20End", frontEnd},
        {"cn=\\46ront End", frontEnd},
        {"cn=Front", ""},
        {"cn=Configuration\\zz", configuration},
        {"cn=Configuration\\4", configuration},
        {"zor-slapdPort=389", configuration},
        {"zor-slapdPort= +0389 ", configuration},
        {"zor-slapdPort=390", ""},
        {"objectclass=TOP", everyEntry},
    };
    const Handle handle = bound(tree);
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.filter));
        EXPECT_EQ(found(handle.get(), nullptr, subtree, row.filter), row.dns);
    }
}

TEST_F(CfgSearch, OnePairOfParenthesesAroundTheWholeIsTakenOffAndNoOther)
{
    // Behind that the filter knows no parentheses: one that is left belongs to the name or to the value.
    struct Row
    {
        const char* filter;
        const char* dns;
    };
    const Row rows[] = {
        {"(cn=Configuration)", "cn=Configuration\n"},
        {"((cn=Configuration))", ""},
        {"(cn=Configuration", ""},
        {"cn=Configuration)", ""},
        {"cn=(Configuration)", ""},
        {"(cn=(Configuration))", ""},
        {"(cn=Configuration)(cn=Configuration)", ""},
        {")cn=Configuration(", ""},
        {"(&(cn=Configuration)(objectclass=*))", ""},
        // The value itself has parentheses.
        {"description=a (b)", "o=x\n"},
        {"(description=a (b))", "o=x\n"},
        {"description=a \\28b\\29", "o=x\n"},
        {"description=a (b", ""},
    };
    // Stripping at the end of a line would take the value's own parenthesis; an ending that is none keeps it.
    std::string text = tree;
    text += "dn: o=x\nobjectclass: top\n\n";
    const Handle handle = bound(text);
    auto& store = *static_cast<cfg_handle*>(handle.get())->store;
    LDIF_DN dn;
    dn = cisString("o=x");
    LDIF_Entry* const entry = store.root.find(dn);
    ASSERT_NE(entry, nullptr);
    *entry += LDIF_Attribute("description", "a (b)");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.filter);
        EXPECT_EQ(found(handle.get(), nullptr, subtree, row.filter), row.dns);
    }
}

TEST_F(CfgSearch, AFilterValueThatItsTypeRefusesFailsAtTheFirstComparison)
{
    const Handle handle = bound(tree);
    EXPECT_EQ(found(handle.get(), "cn=Front End, cn=Configuration", subtree, "zor-slapdPort=abc"), "")
        << "no entry visited has a value to compare";

    const Found answer = search(handle.get(), "cn=Configuration", subtree, "zor-slapdPort=abc");
    EXPECT_EQ(answer.code, 21);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1016);
    EXPECT_EQ(kept(handle.get()).msg, "Value is not valid integer syntax");
    EXPECT_EQ(shown(cfg_get_value(handle.get())), "abc");
    EXPECT_EQ(shown(cfg_get_attribute(handle.get())), "zor-slapdPort");
}

TEST_F(CfgSearch, AOneLevelSearchEvaluatesTheFilterOnItsBaseToo)
{
    const Handle handle = bound(tree);
    EXPECT_EQ(search(handle.get(), "cn=Configuration", oneLevel, "zor-slapdPort=abc").code, 21);
}

// ---- Attributes ----

TEST_F(CfgSearch, TheListChoosesAttributesAndTheirOrderIsTheEntrys)
{
    struct Row
    {
        const char* name;
        Names names;
        const char* result;
    };
    Row rows[] = {
        {"one", {"cn"}, "dn: cn=Configuration\ncn: Configuration\n"},
        {"in another order", {"zor-slapdPort", "cn"}, "dn: cn=Configuration\ncn: Configuration\nzor-slapdPort: 389\n"},
        {"in another case", {"ZOR-SLAPDPORT"}, "dn: cn=Configuration\nzor-slapdPort: 389\n"},
        {"twice, in different cases", {"cn", "CN", "Cn"}, "dn: cn=Configuration\ncn: Configuration\n"},
        {"none that there is", {"description"}, "dn: cn=Configuration\n"},
        {"a star is a name like any other", {"*"}, "dn: cn=Configuration\n"},
        {"an empty name", {""}, "dn: cn=Configuration\n"},
        {"an empty list is all", {}, "dn: cn=Configuration\ncn: Configuration\nobjectclass: top\nzor-slapdPort: 389\n"},
    };
    const Handle handle = bound(tree);
    for (Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Found answer = search(handle.get(), "cn=Configuration", baseScope, nullptr, row.names.list());
        EXPECT_EQ(answer.code, 0);
        EXPECT_EQ(listed(answer.result.get()), row.result);
    }
}

TEST_F(CfgSearch, AnEntryWithoutTheChosenAttributesIsFoundAllTheSame)
{
    const Handle handle = bound(tree);
    Names names{"zor-slapdPort"};
    const Found answer = search(handle.get(), "cn=Configuration", subtree, nullptr, names.list());
    EXPECT_EQ(listed(answer.result.get()), "dn: cn=Configuration\nzor-slapdPort: 389\n"
                                           "dn: cn=Front End, cn=Configuration\n"
                                           "dn: cn=Deep, cn=Front End, cn=Configuration\n"
                                           "dn: cn=Back End, cn=Configuration\n");
}

TEST_F(CfgSearch, AttrsonlyHasNoEffect)
{
    const Handle handle = bound(tree);
    const Found values = search(handle.get(), nullptr, subtree, nullptr);
    for (const int attributesOnly : {1, 2, -1}) {
        const Found names = search(handle.get(), nullptr, subtree, nullptr, nullptr, attributesOnly);
        EXPECT_EQ(names.code, 0);
        EXPECT_EQ(listed(names.result.get()), listed(values.result.get()));
    }
    EXPECT_NE(listed(values.result.get()).find("zor-slapdPort: 389\n"), std::string::npos);
}

// ---- What is copied out ----

TEST_F(CfgSearch, NothingFoundIsNoFailure)
{
    const Handle handle = bound(tree);
    const Found answer = search(handle.get(), nullptr, subtree, "cn=nobody");
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);
    EXPECT_EQ(cfg_count_entries(handle.get(), nullptr), 0);
}

TEST_F(CfgSearch, ValuesComeAsTheStoreHoldsThem)
{
    const Handle handle = bound("dn: CN = a ; O=x\n"
                                "cn:\n"
                                "description: gr\xC3\xBC\xC3\x9F  dich\n"
                                "OBJECTCLASS: top\n"
                                "objectclass: TOP\n"
                                "objectclass: second\n"
                                "unknown: One\n"
                                "unknown: one\n"
                                "unknown: One\n"
                                "zor-slapdAdminDN: cn = root ; o = x\n"
                                "zor-slapdPort: +0389\n"
                                "zor-slapdReadOnly: TRUE\n");
    const Found answer = search(handle.get(), "cn=a,o=x", baseScope, nullptr);
    EXPECT_EQ(listed(answer.result.get()), "dn: CN=a, O=x\n"
                                           "cn: \n"
                                           "description: gr\xC3\xBC\xC3\x9F  dich\n"
                                           "OBJECTCLASS: top\n"
                                           "OBJECTCLASS: second\n"
                                           "unknown: One\n"
                                           "unknown: one\n"
                                           "zor-slapdAdminDN: cn=root, o=x\n"
                                           "zor-slapdPort: 389\n"
                                           "zor-slapdReadOnly: TRUE\n");
}

TEST_F(CfgSearch, AResultIsASnapshot)
{
    const Handle handle = bound(tree);
    const Found first = search(handle.get(), nullptr, subtree, nullptr);
    const std::string before = listed(first.result.get());
    write("dn: o=y\nobjectclass: top\n");
    shiftModificationTime(pathOf("zorslapd.conf"), 10);
    const Found second = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(dnsOf(second.result.get()), "o=y\n");
    EXPECT_EQ(listed(first.result.get()), before);
}

TEST_F(CfgSearch, AnEntryWhoseDnCantBePrintedFailsTheWholeSearch)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\n\ndn: cn=\nobjectclass: top\n");
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 34);
    EXPECT_EQ(answer.result, nullptr) << "the entry found before goes too";
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1013);
    EXPECT_EQ(kept(handle.get()).msg, "Missing RDN attribute value");
    EXPECT_EQ(found(handle.get(), "cn=a", subtree, nullptr), "cn=a\n");
}

TEST_F(CfgSearch, ComparisonsComeBeforeCopies)
{
    // The first entry can't be printed, the second can't be compared: the comparison is what the search tells of.
    const Handle handle = bound("dn: cn=\nobjectclass: top\n\ndn: cn=b\nobjectclass: top\nzor-slapdPort: 389\n");
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 34);
    EXPECT_EQ(search(handle.get(), nullptr, subtree, "zor-slapdPort=abc").code, 21);
    Names names{"cn"};
    EXPECT_EQ(search(handle.get(), nullptr, subtree, "objectclass=top", names.list()).code, 34)
        << "what is left out of an entry is nothing to its DN";
}

// ---- Passwords ----

TEST_F(CfgSearch, PasswordsComeInClearForEveryBoundHandle)
{
    const std::string file = write("dn: cn=Configuration\n"
                                   "objectclass: top\n"
                                   "unknownPW: " +
                                   encoded("hidden") +
                                   "\n"
                                   "zor-slapdAdminDN: cn=root\n"
                                   "zor-slapdAdminPW: " +
                                   encoded("Secret (1)") +
                                   "\n"
                                   "zor-slapdDbUserPW: clear in the file\n"
                                   "zor-slapdMasterPW: one\n"
                                   "zor-slapdMasterPW: two\n");
    const std::string expected = "dn: cn=Configuration\n"
                                 "objectclass: top\n"
                                 "unknownPW: " +
                                 encoded("hidden") +
                                 "\n"
                                 "zor-slapdAdminDN: cn=root\n"
                                 "zor-slapdAdminPW: Secret (1)\n"
                                 "zor-slapdDbUserPW: clear in the file\n"
                                 "zor-slapdMasterPW: one\n"
                                 "zor-slapdMasterPW: two\n";
    const Handle anonymous = unbound(file);
    ASSERT_EQ(cfg_bind_s(anonymous.get(), nullptr, nullptr, simple), 0);
    EXPECT_EQ(listed(search(anonymous.get(), nullptr, subtree, nullptr).result.get()), expected);

    const Handle administrator = unbound(file);
    ASSERT_EQ(cfg_bind_s(administrator.get(), "cn=root", "Secret (1)", simple), 0);
    EXPECT_EQ(listed(search(administrator.get(), nullptr, subtree, nullptr).result.get()), expected);
}

TEST_F(CfgSearch, AStoreThatAuthenticatedNobodyGivesPasswordsAsStored)
{
    const std::string stored = encoded("secret");
    const Handle handle = bound("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: " + stored + "\n");
    auto& store = *static_cast<cfg_handle*>(handle.get())->store;
    ASSERT_EQ(store.setAuthentication("cn=x", nullptr, simple), 0);
    EXPECT_EQ(listed(search(handle.get(), nullptr, subtree, nullptr).result.get()),
              "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: " + stored + "\n");
    ASSERT_EQ(store.setAuthentication(nullptr, nullptr, simple), 1);
    EXPECT_EQ(listed(search(handle.get(), nullptr, subtree, nullptr).result.get()),
              "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: secret\n");
}

TEST_F(CfgSearch, EncodedPasswordsOfAnyLengthAreDecoded)
{
    // The lengths around 256 bytes of encoded text, and far beyond.
    std::vector<std::string> clearTexts;
    for (std::size_t length = 180; length <= 195; ++length) {
        clearTexts.emplace_back(length, 'p');
    }
    clearTexts.emplace_back(5000, 'q');
    std::string text = "dn: cn=Configuration\nobjectclass: top\n";
    std::string expected = "dn: cn=Configuration\nobjectclass: top\n";
    bool before256 = false;
    bool behind256 = false;
    for (const std::string& clear : clearTexts) {
        const std::string stored = encoded(clear);
        before256 = before256 || stored.size() < 256;
        behind256 = behind256 || stored.size() > 256;
        text += "zor-slapdAdminPW: " + stored + "\n";
        expected += "zor-slapdAdminPW: " + clear + "\n";
    }
    ASSERT_TRUE(before256 && behind256) << "other lengths are needed for this codec";
    const Handle handle = bound(text);
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(listed(answer.result.get()), expected);
}

TEST_F(CfgSearch, APasswordThatCantBeDecodedFailsTheSearch)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\n\n"
                                "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: >damaged<\n");
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 84);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(shown(cfg_get_value(handle.get())), ">damaged<");
    Names names{"objectclass"};
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr, names.list()).code, 0) << "not chosen, not decoded";
}

// ---- The file behind the store ----

TEST_F(CfgSearch, AFileThatChangedIsReadAgainAndOneThatDidNotIsNot)
{
    const Handle handle = bound(tree);
    struct stat status = {};
    ASSERT_EQ(stat(pathOf("zorslapd.conf").c_str(), &status), 0);
    write("dn: o=y\nobjectclass: top\n");
    const struct timespec times[2] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, pathOf("zorslapd.conf").c_str(), times, 0), 0);
    EXPECT_EQ(found(handle.get(), nullptr, subtree, nullptr), everyEntry) << "same modification time";
    shiftModificationTime(pathOf("zorslapd.conf"), -10);
    EXPECT_EQ(found(handle.get(), nullptr, subtree, nullptr), "o=y\n") << "another one, older ones included";
}

TEST_F(CfgSearch, AFileThatIsGoneFailsTheSearchUntilItIsBack)
{
    const Handle handle = bound(tree);
    ASSERT_EQ(unlink(pathOf("zorslapd.conf").c_str()), 0);
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 91);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1003);
    EXPECT_EQ(kept(handle.get()).msg, "_stat()");
    EXPECT_EQ(kept(handle.get()).sysErrno, ENOENT);
    write(tree);
    EXPECT_EQ(found(handle.get(), nullptr, subtree, nullptr), everyEntry);
}

TEST_F(CfgSearch, AFileThatBecameInvalidFailsEverySearchUntilItIsMended)
{
    const Handle handle = bound(tree);
    write("dn: o=y\nobjectclass: top\n\ndn: =x\n");
    shiftModificationTime(pathOf("zorslapd.conf"), 10);
    for (int count = 0; count < 2; ++count) {
        const Found answer = search(handle.get(), nullptr, subtree, nullptr);
        EXPECT_EQ(answer.code, 34);
        EXPECT_EQ(answer.result, nullptr);
        EXPECT_EQ(cfg_get_file_line(handle.get()), 4);
    }
    write("dn: o=z\nobjectclass: top\n");
    shiftModificationTime(pathOf("zorslapd.conf"), 20);
    EXPECT_EQ(found(handle.get(), nullptr, subtree, nullptr), "o=z\n");
}
