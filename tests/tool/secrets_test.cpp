// Which values stay hidden.
#include "secrets.h"

#include <gtest/gtest.h>

using veltor::tool::isSecret;
using veltor::tool::quotedUnlessSecret;
using veltor::tool::shownName;

namespace {

struct Row
{
    const char *attribute, *value;
    bool secret;
};

} // namespace

TEST(Secrets, AreKnownByNameAndByLook)
{
    const Row rows[] = {
        {"zor-slapdAdminPW", "x", true},
        {"ZOR-SLAPDADMINPW", "x", true},
        {"zor-slapdDbUserPW", "x", true},
        {"zor-slapdLdapCrlPassword", "x", true},
        {"zor-slapdMasterPW", "x", true},
        {"zor-slapdPeerPW", "x", true},
        {"zor-slapdSslKeyDatabasePW", "x", true},
        {"zor-slapdSetenv", "PATH=/bin", true},
        {"zor-slapdPort", "389", false},
        {"zor-slapdAdminDN", "cn=root", false},
        // Settings about passwords are no passwords.
        {"zor-slapdPwEncryption", "sha", false},
        {"zor-slapdUseProcessIdPw", "true", false},
        // Names that the catalogue does not know are judged by their look.
        {"zor-slapdAdmimPW", "x", true},
        {"userPassword", "x", true},
        {"USERPWD", "x", true},
        {"description", "the pw is in the safe", false},
        {"description", "the pw: x", true},
        {"zor-slapdSetenv ", "x", true},
        // A line that was indented by mistake is part of the value above it.
        {"zor-slapdSuffix", "o=sample zor-slapdAdminPW: x", true},
        {"zor-slapdMasterReferral", "ldap://pwhost:389", false},
        // What the type refuses makes the line one that is kept as it is, by whatever name it was.
        {"zor-slapdPort", "password: x", true},
        {"zor-slapdSizeLimit", "pw:x", true},
        {"zor-slapdReadOnly", "my password: x", true},
        {"zor-slapdSslCipherSpecs", "pw: x", true},
        {"zor-slapdAdminDN", "password: x", true},
        {"zor-slapdDbName", "pw: too-long", true},
        {"zor-slapdPwEncryption", "a: b", true},
        {"zor-slapdPort", "pw", false},
        {"zor-slapdPort", "a: pw", false},
        // What it takes is a value like others.
        {"zor-slapdDbName", "pw:x", false},
        {"zor-slapdErrorLog", "/var/log/pw:1/errors", false},
        {"zor-slapdReferral", "ldap://password.example:389", false},
        {"zor-slapdAdminDN", "cn=pw", false},
        // A rejected line is a whole line of the file.
        {"zor-slapdInvalidLine", "zor-slapdAdminPW: far-too-long", true},
        {"zor-slapdInvalidLine", "zor-slapdAdminPW secret: ", true},
        {"zor-slapdInvalidLine", "password: x", true},
        {"zor-slapdInvalidLine", "zor-slapdPort: abc", false},
        {"zor-slapdInvalidLine", "a: pw", false},
        // A line of the file that an error quotes without a name.
        {"", "zor-slapdAdminPW: \xFF", true},
        {"", "cn: \xFF", false},
        {"", "pw", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.attribute) + ": " + row.value);
        EXPECT_EQ(isSecret(row.attribute, row.value), row.secret);
    }
}

TEST(Secrets, StandInNamesWhereAColonWasMistyped)
{
    EXPECT_EQ(shownName("zor-slapdAdminPW secret"), "***");
    EXPECT_EQ(shownName("my password is secret"), "***");
    EXPECT_EQ(shownName("zor-slapdAdminPW"), "zor-slapdAdminPW");
    EXPECT_EQ(shownName("some words"), "some words");
}

TEST(Secrets, StandInDnsThatHaveTakenALineIntoThem)
{
    for (const char* const dn :
         {"cn=a, cn=Configurationzor-slapdPeerPW: x", "cn=a zor-slapdPeerPW:x", "cn=azor-slapdSetenv: A=b",
          "cn=b, cn=amy password: x", "cn=amypw:x", "cn=a, cn=bmy pw is: x"}) {
        EXPECT_TRUE(veltor::tool::isSecretDn(dn)) << dn;
    }
    for (const char* const dn :
         {"", "cn=Configuration", "cn=Password Policy, cn=a", "cn=pw, cn=a", "cn=ldap://pw1.example.com:389, cn=a",
          "cn=a:b, cn=c", "cn=[2001:db8::1]:389, cn=passwords", "cn=a: b, cn=c"}) {
        EXPECT_FALSE(veltor::tool::isSecretDn(dn)) << dn;
    }
}

TEST(Secrets, AreNotQuotedInErrors)
{
    EXPECT_EQ(quotedUnlessSecret("zor-slapdPort", "abc"), "\"abc\"");
    EXPECT_EQ(quotedUnlessSecret("zor-slapdPort", ""), "\"\"");
    EXPECT_EQ(quotedUnlessSecret("zor-slapdMasterPW", "abc"), "***");
}

TEST(Secrets, PasswordsAreTheAttributesThatAreStoredEncoded)
{
    for (const char* name : {"zor-slapdAdminPW", "ZOR-SLAPDADMINPW", "zor-slapdLdapCrlPassword"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(veltor::tool::isPassword(name));
    }
    // Hidden all the same, but stored as they are; or no secret at all.
    for (const char* name : {"zor-slapdSetenv", "userPassword", "zor-slapdPwEncryption", "cn", ""}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(veltor::tool::isPassword(name));
    }
}
