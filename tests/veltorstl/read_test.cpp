// cfg_read_s: every entry in scope as it is stored, and nothing left behind by a read that fails.
#include "support/api_test.h"
#include "support/mods.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include "veltor/cfg_admin.h"

#include <string>

#include <unistd.h>

using namespace veltor::test;

namespace {

class CfgRead : public ApiTest
{
};

// "o=Bare" has no attribute at all, "ou=Odd" no objectclass, and the parent of "cn=Lost" is missing.
constexpr char tree[] = "version: 1\n"
                        "charset: UTF-8\n"
                        "\n"
                        "dn: cn=Configuration\n"
                        "cn: Configuration\n"
                        "objectclass: top\n"
                        "\n"
                        "dn: cn=Front End, cn=Configuration\n"
                        "objectclass: top\n"
                        "\n"
                        "dn: cn=Deep, cn=Front End, cn=Configuration\n"
                        "cn: Deep\n"
                        "\n"
                        "dn: o=Bare\n"
                        "\n"
                        "dn: ou=Odd, cn=Configuration\n"
                        "ou: Odd\n"
                        "\n"
                        "dn: cn=Lost, ou=Nowhere, o=Bare\n"
                        "\n";

Found readFrom(void* handle, const char* base, int scope)
{
    // Not null beforehand, so that a call that leaves it alone shows.
    cfg_message unread{};
    cfg_message* result = &unread;
    const int code = cfg_read_s(handle, base, scope, &result);
    if (result == &unread) {
        ADD_FAILURE() << "cfg_read_s left *res as it was";
        result = nullptr;
    }
    return {code, Message(result)};
}

std::string dnsRead(void* handle, const char* base, int scope)
{
    const Found answer = readFrom(handle, base, scope);
    EXPECT_EQ(answer.code, 0) << shown(cfg_dump_exception(handle));
    EXPECT_EQ(cfg_get_errno(handle), 0);
    return dnsOf(answer.result.get());
}

} // namespace

TEST_F(CfgRead, ScopesTakeEveryEntryInTreeOrder)
{
    struct Row
    {
        const char* name;
        const char* base;
        int scope;
        const char* dns;
    };
    constexpr char whole[] = "\n"
                             "cn=Configuration\n"
                             "cn=Front End, cn=Configuration\n"
                             "cn=Deep, cn=Front End, cn=Configuration\n"
                             "ou=Odd, cn=Configuration\n"
                             "o=Bare\n"
                             "cn=Lost, ou=Nowhere, o=Bare\n";
    const Row rows[] = {
        {"everything from a null base", nullptr, subtree, whole},
        {"everything from an empty base", "", subtree, whole},
        {"the root alone", "", baseScope, "\n"},
        {"the root alone from a null base", nullptr, baseScope, "\n"},
        {"below the root", "", oneLevel, "cn=Configuration\no=Bare\n"},
        {"one entry", "cn=configuration", baseScope, "cn=Configuration\n"},
        {"one entry without attributes", "o=Bare", baseScope, "o=Bare\n"},
        {"one level", "cn=Configuration", oneLevel, "cn=Front End, cn=Configuration\nou=Odd, cn=Configuration\n"},
        {"one level over a missing parent", "o=Bare", oneLevel, "cn=Lost, ou=Nowhere, o=Bare\n"},
        {"one level below a leaf", "ou=Odd, cn=Configuration", oneLevel, ""},
        {"a subtree", "cn=Front End, cn=Configuration", subtree,
         "cn=Front End, cn=Configuration\ncn=Deep, cn=Front End, cn=Configuration\n"},
        {"the subtree of a leaf", "cn=Lost, ou=Nowhere, o=Bare", subtree, "cn=Lost, ou=Nowhere, o=Bare\n"},
        {"scope -1 is the base", "cn=Configuration", -1, "cn=Configuration\n"},
        {"scope 3 is the base", "cn=Configuration", 3, "cn=Configuration\n"},
    };
    const Handle handle = bound(tree);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(dnsRead(handle.get(), row.base, row.scope), row.dns);
    }
}

TEST_F(CfgRead, TheRootShowsItsAttributesUnderAnEmptyDn)
{
    const Handle handle = bound(tree);
    const Found answer = readFrom(handle.get(), nullptr, baseScope);
    ASSERT_NE(answer.result, nullptr);
    EXPECT_EQ(answer.result->kind, 0);
    EXPECT_EQ(listed(answer.result.get()), "dn: \ncharset: UTF-8\nversion: 1\n");
}

TEST_F(CfgRead, AnEmptyFileHasARootWithoutAttributes)
{
    const Handle handle = bound("");
    const Found answer = readFrom(handle.get(), "", subtree);
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(listed(answer.result.get()), "dn: \n");
}

TEST_F(CfgRead, EntriesWithoutAttributesHaveNoChildren)
{
    const Handle handle = bound(tree);
    const Found answer = readFrom(handle.get(), "o=Bare", baseScope);
    ASSERT_NE(answer.result, nullptr);
    EXPECT_STREQ(answer.result->text, "o=Bare");
    EXPECT_EQ(answer.result->children, nullptr);
    EXPECT_EQ(answer.result->next, nullptr);
}

TEST_F(CfgRead, ValuesAreAsStored)
{
    const std::string secret = encoded("Secret of the manager");
    const std::string longSecret = encoded(std::string(300, 'm'));
    const Handle handle = bound("dn: cn=Configuration\n"
                                "objectclass: top\n"
                                "objectclass: Server\n"
                                "zor-slapdAdminPW: " +
                                secret +
                                "\n"
                                "zor-slapdMasterPW: " +
                                longSecret +
                                "\n"
                                "zor-slapdPort: 0389\n"
                                "zor-slapdReadOnly: TRUE\n\n");
    const std::string expected =
        "dn: cn=Configuration\nobjectclass: top\nobjectclass: Server\nzor-slapdAdminPW: " + secret +
        "\nzor-slapdMasterPW: " + longSecret + "\nzor-slapdPort: 389\nzor-slapdReadOnly: TRUE\n";
    // An integer is stored as it is printed, whatever its spelling in the file.
    EXPECT_EQ(listed(readFrom(handle.get(), "cn=Configuration", baseScope).result.get()), expected);
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);

    // The search beside it goes on decoding.
    const Found decoded = search(handle.get(), "cn=Configuration", baseScope, nullptr);
    EXPECT_NE(listed(decoded.result.get()).find("zor-slapdAdminPW: Secret of the manager\n"), std::string::npos);
}

TEST_F(CfgRead, APasswordThatCantBeDecodedIsShownAllTheSame)
{
    const Handle handle = bound("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: >no code<\n\n");
    EXPECT_NE(search(handle.get(), "cn=Configuration", baseScope, nullptr).code, 0) << "the search has to decode it";
    const Found answer = readFrom(handle.get(), "cn=Configuration", baseScope);
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(listed(answer.result.get()), "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: >no code<\n");
}

TEST_F(CfgRead, LinesThatWereRejectedAreThereToo)
{
    const Handle handle = bound("dn: o=x\nzor-slapdPort: 389a\n\n");
    const Found answer = readFrom(handle.get(), "o=x", baseScope);
    EXPECT_EQ(listed(answer.result.get()), "dn: o=x\nzor-slapdInvalidLine: zor-slapdPort: 389a\n");
}

TEST_F(CfgRead, AResultOfManyNodesIsWhole)
{
    std::string text = "version: 1\ncharset: UTF-8\n\ndn: o=x\n\n";
    std::string expected = "dn: o=x\n";
    for (int number = 0; number < 2000; ++number) {
        const std::string dn = "cn=" + std::to_string(number) + ", o=x";
        text += "dn: " + dn + "\ncn: " + std::to_string(number) + "\n\n";
        expected += "dn: " + dn + "\ncn: " + std::to_string(number) + "\n";
    }
    const Handle handle = bound(text);
    EXPECT_EQ(listed(readFrom(handle.get(), "o=x", subtree).result.get()), expected);
}

TEST_F(CfgRead, TheResultOutlivesTheHandle)
{
    Handle handle = bound(tree);
    const Found answer = readFrom(handle.get(), "cn=Configuration", oneLevel);
    handle.reset();
    EXPECT_EQ(dnsOf(answer.result.get()), "cn=Front End, cn=Configuration\nou=Odd, cn=Configuration\n");
    EXPECT_EQ(cfg_count_entries(nullptr, answer.result.get()), 89) << "as with every result";
}

TEST_F(CfgRead, SeesWhatAnUpdateMadeAndWhatAnotherProgramWrote)
{
    const Handle handle = bound(tree);
    ASSERT_EQ(cfg_add_s(handle.get(), "cn=New, o=Bare", nullptr), 0);
    EXPECT_EQ(dnsRead(handle.get(), "o=Bare", oneLevel), "cn=Lost, ou=Nowhere, o=Bare\ncn=New, o=Bare\n");
    shiftModificationTime(write("dn: o=Other\n\n"), 10);
    EXPECT_EQ(dnsRead(handle.get(), "", oneLevel), "o=Other\n");
}

TEST_F(CfgRead, AMissingBaseIs32WithItsDn)
{
    const Handle handle = bound(tree);
    for (const int scope : {baseScope, oneLevel, subtree}) {
        SCOPED_TRACE(scope);
        const Found answer = readFrom(handle.get(), "ou=Nowhere,o=Bare", scope);
        EXPECT_EQ(answer.code, 32);
        EXPECT_EQ(answer.result, nullptr);
        EXPECT_EQ(cfg_get_errno(handle.get()), 32);
        EXPECT_EQ(cfg_get_exterror(handle.get()), 32);
        EXPECT_STREQ(cfg_get_entry(handle.get()), "ou=Nowhere, o=Bare");
    }
}

TEST_F(CfgRead, ABaseThatIsNoDnIs34)
{
    const Handle handle = bound(tree);
    const Found answer = readFrom(handle.get(), "cn=x, =y", subtree);
    EXPECT_EQ(answer.code, 34);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_NE(cfg_dump_exception(handle.get()), nullptr);
}

TEST_F(CfgRead, ADnThatCantBePrintedFreesWhatWasMade)
{
    const Handle handle = bound("dn: o=x\n\ndn: o=\n\n");
    const Found answer = readFrom(handle.get(), "", subtree);
    EXPECT_EQ(answer.code, 34);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1013);
    EXPECT_EQ(dnsRead(handle.get(), "o=x", subtree), "o=x\n") << "the handle goes on";
}

TEST_F(CfgRead, AnUnboundHandleAndANullResultAre89)
{
    const Handle unboundHandle = withKeptFailure();
    EXPECT_EQ(readFrom(unboundHandle.get(), nullptr, subtree).code, 89);
    expectNothingKept(unboundHandle.get(), 89);

    const Handle handle = bound(tree);
    ASSERT_EQ(search(handle.get(), "o=nobody", baseScope, nullptr).code, 32);
    EXPECT_EQ(cfg_read_s(handle.get(), nullptr, subtree, nullptr), 89);
    expectNothingKept(handle.get(), 89);
}

TEST_F(CfgRead, ANullHandleIs89WithoutAResult)
{
    EXPECT_EQ(readFrom(nullptr, nullptr, subtree).code, 89);
    EXPECT_EQ(cfg_read_s(nullptr, nullptr, subtree, nullptr), 89);
}

TEST_F(CfgRead, ResetsTheHandle)
{
    const Handle handle = bound(tree);
    ASSERT_EQ(search(handle.get(), "o=nobody", baseScope, nullptr).code, 32);
    EXPECT_EQ(readFrom(handle.get(), nullptr, baseScope).code, 0);
    expectNothingKept(handle.get(), 0);
}

TEST_F(CfgRead, AFileThatIsGoneIs91)
{
    const Handle handle = bound(tree);
    ASSERT_EQ(unlink(pathOf("zorslapd.conf").c_str()), 0);
    const Found answer = readFrom(handle.get(), nullptr, subtree);
    EXPECT_EQ(answer.code, 91);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 1003);
}
