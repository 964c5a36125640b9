// Who may act as the administrator.
#include "LDIF_File.h"

#include "LDIF_AttrType.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/ldif.h"
#include "support/locale_guard.h"
#include "support/temporary_folder.h"

using veltor::test::dnOf;
using veltor::test::expectFailure;
using veltor::test::failureOf;
using veltor::test::inBothLocales;
using veltor::test::TemporaryFolder;

namespace {

constexpr int none = 0;
constexpr int simple = 128;

constexpr const char* configuration = "dn: cn=Configuration\n"
                                      "objectclass: top\n"
                                      "cn: Configuration\n"
                                      "zor-slapdAdminDN: cn=Admin, o=x\n"
                                      "zor-slapdAdminPW: secret\n";

/// A store of that text.
struct Store
{
    TemporaryFolder folder;
    LDIF_File file;

    explicit Store(const std::string& text = configuration) : file(folder.write("zorslapd.conf", text), "") {}
};

} // namespace

TEST(LdifFileAuthentication, NobodyIsAuthenticatedAtFirst)
{
    Store store;
    EXPECT_EQ(store.file.authLevel, 0);
    EXPECT_EQ(store.file.getAuthentication(), 0);
}

TEST(LdifFileAuthentication, TheAnswerFollowsFromMethodDnAndPassword)
{
    const char* const dn = "cn=Admin,o=x";
    const char* const password = "secret";
    const struct
    {
        const char* name;
        const char* dn;
        const char* password;
        int method;
        int level;
    } rows[] = {
        {"no method, nothing", nullptr, nullptr, none, 1},
        {"no method, a wrong password", dn, "wrong", none, 1},
        {"no method, a DN that is none", "=", "x", none, 1},
        {"simple, nothing", nullptr, nullptr, simple, 1},
        {"simple, both right", dn, password, simple, 2},
        {"simple, no password", dn, nullptr, simple, 0},
        {"simple, no DN", nullptr, password, simple, 0},
        {"simple, an empty password", dn, "", simple, 0},
        {"simple, an empty DN", "", password, simple, 0},
        {"simple, both empty", "", "", simple, 0},
        {"simple, an empty DN and no password", "", nullptr, simple, 0},
        {"simple, no DN and an empty password", nullptr, "", simple, 0},
        {"simple, another DN", "cn=Other,o=x", password, simple, 0},
        {"simple, the DN's parent", "o=x", password, simple, 0},
        {"simple, another password", dn, "other", simple, 0},
        {"simple, the password in capitals", dn, "SECRET", simple, 0},
        {"simple, the password and more", dn, "secret ", simple, 0},
        {"simple, the DN in other letters and blanks", "CN = ADMIN ; O=\"X\"", password, simple, 2},
        {"simple, the DN as hex digits", "cn=#41646D696E,o=\\78", password, simple, 2},
        {"another method", dn, password, 1, 0},
        {"another method, nothing", nullptr, nullptr, 1, 0},
        {"a negative method", dn, password, -1, 0},
        {"the next method", dn, password, 129, 0},
        {"a method of more bits", dn, password, 128 + 256, 0},
        {"a SASL method", nullptr, nullptr, 163, 0},
    };
    inBothLocales([&] {
        for (const auto& row : rows) {
            for (const int before : {0, 1, 2}) {
                SCOPED_TRACE(std::string(row.name) + ", before " + std::to_string(before));
                Store store;
                store.file.authLevel = before;
                EXPECT_EQ(store.file.setAuthentication(row.dn, row.password, row.method), row.level);
                EXPECT_EQ(store.file.authLevel, row.level);
                EXPECT_EQ(store.file.getAuthentication(), row.level);
            }
        }
    });
}

TEST(LdifFileAuthentication, AnEncodedPasswordInTheFileMatchesThePlainOneGiven)
{
    Store plain;
    auto& attributes = plain.file.root.find(dnOf("cn=Configuration"))->attributes;
    const std::string encoded = attributes.find("zor-slapdAdminPW")->values.begin()->str();
    ASSERT_NE(encoded, "secret");
    Store store("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=Admin,o=x\nzor-slapdAdminPW: " + encoded +
                "\n");
    EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "secret", simple), 2);
    EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "wrong", simple), 0);
}

TEST(LdifFileAuthentication, OnlyTheFirstValuesCount)
{
    Store store("dn: cn=Configuration\n"
                "objectclass: top\n"
                "zor-slapdAdminDN: cn=First\n"
                "zor-slapdAdminDN: cn=Second\n"
                "zor-slapdAdminPW: one\n"
                "zor-slapdAdminPW: two\n");
    EXPECT_EQ(store.file.setAuthentication("cn=First", "one", simple), 2);
    EXPECT_EQ(store.file.setAuthentication("cn=First", "two", simple), 0);
    EXPECT_EQ(store.file.setAuthentication("cn=Second", "one", simple), 0);
    EXPECT_EQ(store.file.setAuthentication("cn=Second", "two", simple), 0);
}

TEST(LdifFileAuthentication, WithoutWhatItTakesTheBindIsRefused)
{
    const struct
    {
        const char* name;
        const char* text;
    } rows[] = {
        // The search for the entry asks for an object class.
        {"no object class", "dn: cn=Configuration\nzor-slapdAdminDN: cn=Admin,o=x\nzor-slapdAdminPW: secret\n"},
        {"no attributes but the object class", "dn: cn=Configuration\nobjectclass: top\n"},
        {"no DN", "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: secret\n"},
        {"no password", "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=Admin,o=x\n"},
        {"the entry of another name holds them",
         "dn: cn=Configuration\nobjectclass: top\n\ndn: cn=Below,cn=Configuration\nobjectclass: top\n"
         "zor-slapdAdminDN: cn=Admin,o=x\nzor-slapdAdminPW: secret\n"},
        {"a DN that could not be read is kept as another line",
         "dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: Admin\nzor-slapdAdminPW: secret\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Store store(row.text);
        store.file.authLevel = 2;
        EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "secret", simple), 0);
        EXPECT_EQ(store.file.getAuthentication(), 0);
    }
}

TEST(LdifFileAuthentication, AnAttributeWithoutValuesRefusesTheBind)
{
    for (const char* const name : {"zor-slapdAdminDN", "zor-slapdAdminPW"}) {
        SCOPED_TRACE(name);
        Store store;
        store.file.root.find(dnOf("cn=Configuration"))->attributes.find(name)->values.values.clear();
        EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "secret", simple), 0);
    }
}

TEST(LdifFileAuthentication, TheEntryIsFoundInAnyLetterCaseAndBelowTheRootAlone)
{
    Store capitals("dn: CN=CONFIGURATION\nOBJECTCLASS: top\nZOR-SLAPDADMINDN: cn=a\nZOR-SLAPDADMINPW: secret\n");
    EXPECT_EQ(capitals.file.setAuthentication("cn=a", "secret", simple), 2);
    Store elsewhere("dn: cn=Configuration,o=x\nobjectclass: top\nzor-slapdAdminDN: cn=a\nzor-slapdAdminPW: secret\n");
    EXPECT_EQ(failureOf([&] { elsewhere.file.setAuthentication("cn=a", "secret", simple); }).ldapErr, 32);
}

TEST(LdifFileAuthentication, ChangesInMemoryCount)
{
    Store store;
    auto& attributes = store.file.root.find(dnOf("cn=Configuration"))->attributes;
    attributes.find("zor-slapdAdminPW")->values -= "secret";
    attributes.find("zor-slapdAdminPW")->values += std::string("new");
    EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "secret", simple), 0);
    EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "new", simple), 2);
}

// ---- Failures ----

TEST(LdifFileAuthentication, WithoutTheConfigurationEntryTheBindFails)
{
    for (const char* const text : {"", "version: 1\n", "dn: o=x\nobjectclass: top\n"}) {
        SCOPED_TRACE(text);
        Store store(text);
        store.file.authLevel = 1;
        const auto failure = failureOf([&] { store.file.setAuthentication("cn=Admin,o=x", "secret", simple); });
        expectFailure(failure, 32, 32, "Base entry not found");
        EXPECT_EQ(failure.entryDn, "cn=Configuration");
        EXPECT_EQ(failure.srcFile, "LDIF_File.cpp");
        ASSERT_NE(failure.nested.get(), nullptr) << "the position is added to the cause";
        EXPECT_EQ(failure.nested->msg, "Base entry not found");
        EXPECT_EQ(store.file.getAuthentication(), 1) << "the level stays";
        EXPECT_EQ(store.file.setAuthentication(nullptr, nullptr, simple), 1) << "nothing is looked up for it";
        EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "", simple), 0);
    }
}

TEST(LdifFileAuthentication, ADnOrPasswordThatCannotBeComparedFails)
{
    const struct
    {
        const char* name;
        const char* dn;
        const char* password;
        int ldapErr;
        int extErr;
        const char* message;
        const char* value;
    } rows[] = {
        {"a DN that ends early", "cn", "secret", 34, 1013, "Missing RDN value: cn", "cn"},
        {"a DN with an empty value", "cn=", "secret", 34, 1013, "Missing RDN attribute value", "cn="},
        {"a DN with a bad escape", "cn=\\zz", "secret", 34, 1014, "Invalid escape sequence: \\zz", "cn=\\zz"},
        {"a password that is too long", "cn=Admin,o=x", "12345678901234567890123456789012345678901234567", 21, 1018,
         "Password length must be 1 to 46 characters", "12345678901234567890123456789012345678901234567"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Store store;
        for (const int before : {0, 1, 2}) {
            store.file.authLevel = before;
            const auto failure = failureOf([&] { store.file.setAuthentication(row.dn, row.password, simple); });
            expectFailure(failure, row.ldapErr, row.extErr, row.message);
            EXPECT_EQ(failure.value, row.value);
            EXPECT_EQ(failure.entryDn, "cn=Configuration");
            EXPECT_NE(failure.nested.get(), nullptr);
            EXPECT_EQ(store.file.getAuthentication(), before) << "the level stays";
        }
    }
}

TEST(LdifFileAuthentication, AWrongDnIsRefusedBeforeThePasswordIsLookedAt)
{
    Store store;
    EXPECT_EQ(store.file.setAuthentication("cn=Other", "12345678901234567890123456789012345678901234567", simple), 0);
}

TEST(LdifFileAuthentication, AStoredPasswordThatCannotBeDecodedFails)
{
    Store store("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=a\nzor-slapdAdminPW: >damaged<\n");
    const auto failure = failureOf([&] { store.file.setAuthentication("cn=a", "secret", simple); });
    EXPECT_EQ(failure.msg, "_slapd_utils_decode_buffer( left );");
    EXPECT_NE(failure.ldapErr, 0);
    EXPECT_EQ(failure.extErr, failure.ldapErr) << "the decoder's code is both";
    EXPECT_EQ(failure.value, ">damaged<");
    EXPECT_EQ(failure.entryDn, "cn=Configuration");
    EXPECT_EQ(failure.attrType, getAttrType("zor-slapdAdminPW"));
}

TEST(LdifFileAuthentication, AForeignFailureIsASystemErrorOfTheFile)
{
    Store store;
    _AttrType failing = *getAttrType("zor-slapdAdminDN");
    failing.match = [](const LDIF_Value&, const LDIF_Value&) -> int { throw std::runtime_error("no match"); };
    store.file.root.find(dnOf("cn=Configuration"))->attributes.find("zor-slapdAdminDN")->values.begin()->attrType =
        &failing;
    store.file.authLevel = 1;
    const auto failure = failureOf([&] { store.file.setAuthentication("cn=Admin,o=x", "secret", simple); });
    expectFailure(failure, 80, 1000, "System error in LDIF_File::setAuthentication()");
    EXPECT_EQ(failure.configFile, store.file.fileName);
    EXPECT_EQ(failure.nested.get(), nullptr);
    EXPECT_EQ(store.file.getAuthentication(), 1);
}

TEST(LdifFileAuthentication, ALoadedStoreForgetsNothingWhenItIsLoadedAgain)
{
    Store store;
    EXPECT_EQ(store.file.setAuthentication("cn=Admin,o=x", "secret", simple), 2);
    EXPECT_FALSE(store.file.refresh());
    EXPECT_EQ(store.file.getAuthentication(), 2);
}
