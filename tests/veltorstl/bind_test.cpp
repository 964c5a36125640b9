// Binding: which file, which method, which credentials, and what a refused bind leaves behind.
#include "support/api_test.h"

#include "handle.h"

#include <string>
#include <sys/stat.h>

using namespace veltor::test;

namespace {

class CfgBind : public ApiTest
{
};

constexpr char configuration[] = "version: 1\n"
                                 "charset: ISO-8859-1\n"
                                 "\n"
                                 "dn: cn=Configuration\n"
                                 "objectclass: top\n"
                                 "zor-slapdAdminDN: cn=Directory Manager, o=Example\n"
                                 "zor-slapdAdminPW: Secret1\n"
                                 "\n";

std::string nameOption(void* handle, int option)
{
    char* value = nullptr;
    EXPECT_EQ(cfg_get_option(handle, option, &value), 0);
    const Text owned(value);
    return shown(value);
}

int authentication(void* handle)
{
    auto* const store = static_cast<cfg_handle*>(handle)->store;
    return store == nullptr ? -1 : store->getAuthentication();
}

void expectUnbound(void* handle)
{
    EXPECT_EQ(search(handle, nullptr, subtree, nullptr).code, 89);
}

} // namespace

TEST_F(CfgBind, ANullHandleIsRefused)
{
    EXPECT_EQ(cfg_bind_s(nullptr, nullptr, nullptr, simple), 89);
    EXPECT_EQ(cfg_bind_s(nullptr, "cn=x", "pw", 0), 89);
}

// ---- The method ----

TEST_F(CfgBind, EveryMethodButSimpleIsRefused)
{
    const std::string file = write(configuration);
    for (const int method : {0, 1, 0x7F, 0x81, 0x180, 163, -1, -128, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(method);
        const Handle handle = unbound(file);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, method), 86);
        expectKept(handle.get(), 86, 86, "Bind method must be one of { LDAP_AUTH_SIMPLE }");
        expectUnbound(handle.get());
    }
}

TEST_F(CfgBind, TheFileNameIsSettledBeforeTheMethodIsLookedAt)
{
    const Handle handle(cfg_init());
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
    EXPECT_EQ(nameOption(handle.get(), CFG_OPT_CONFIG_FILE), "/usr/ldap/etc/zorslapd.conf");
}

TEST_F(CfgBind, ANameThatIsSetStays)
{
    const Handle handle = unbound("/nowhere/a.conf");
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
    EXPECT_EQ(nameOption(handle.get(), CFG_OPT_CONFIG_FILE), "/nowhere/a.conf");
}

TEST_F(CfgBind, TheMethodIsLookedAtBeforeTheFile)
{
    const Handle handle = unbound(pathOf("missing.conf"));
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 91);
}

// ---- The file ----

TEST_F(CfgBind, AMissingFileIsTold)
{
    const std::string file = pathOf("missing.conf");
    const Handle handle = unbound(file);
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 91);
    expectKept(handle.get(), 91, 1003, "_stat()");
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), file);
    EXPECT_NE(shown(cfg_dump_exception(handle.get())).find("\nerrno 2: No such file or directory\n"),
              std::string::npos);
    expectUnbound(handle.get());
}

TEST_F(CfgBind, AFifoIsRefusedAtOnce)
{
    const std::string file = pathOf("fifo");
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    const Handle handle = unbound(file);
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 91);
    expectKept(handle.get(), 91, 1004, "ifstream()");
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), file);
}

TEST_F(CfgBind, ADirectoryCantBeRead)
{
    const Handle handle = unbound(pathOf(""));
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 80);
    expectKept(handle.get(), 80, 1000, "System error reading file");
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), pathOf(""));
}

TEST_F(CfgBind, AnInvalidFileIsTold)
{
    struct Row
    {
        const char* name;
        const char* text;
        int code;
        int libraryCode;
        const char* message;
        int line;
        const char* entry;
    };
    const Row rows[] = {
        {"foreign attribute in the root", "version: 1\nfoo: bar\ndn: cn=a\n", 65, 1007,
         "\"foo\" attribute not allowed in <root> object", 2, "<root>"},
        {"second version", "version: 1\nversion: 1\ndn: cn=a\n", 65, 1007,
         "\"zor-slapdInvalidLine\" attribute not allowed in <root> object", 2, "<root>"},
        {"second charset", "charset: a\ncharset: b\ndn: cn=a\n", 65, 1007,
         "\"zor-slapdInvalidLine\" attribute not allowed in <root> object", 2, "<root>"},
        {"bad DN of the first entry", "dn: =x\ncn: x\n", 34, 1012, "Invalid attribute sytax: ", 1, "<root>"},
        {"bad DN of a later entry", "dn: cn=a\ncn: a\n\ndn: cn=b,\ncn: b\n", 34, 1011, "Missing RDN attribute", 4,
         "<root>"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle = unbound(write(row.text));
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), row.code);
        expectKept(handle.get(), row.code, row.libraryCode, row.message);
        EXPECT_EQ(cfg_get_file_line(handle.get()), row.line);
        EXPECT_EQ(shown(cfg_get_entry(handle.get())), row.entry);
        EXPECT_EQ(shown(cfg_get_file_name(handle.get())), pathOf("zorslapd.conf"));
        expectUnbound(handle.get());
        EXPECT_EQ(read(), row.text) << "a load that ends early writes nothing";
    }
}

TEST_F(CfgBind, TextThatTheLocaleCantReadEndsTheLoad)
{
    // The locale comes from the environment at cfg_init, and the C locale knows ASCII alone.
    const EnvironmentGuard environment("LC_ALL", "C");
    const Handle handle = unbound(write("dn: cn=a\ncn: gr\xC3\xBC\xC3\x9F\n"));
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 162);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 162);
    EXPECT_EQ(cfg_get_file_line(handle.get()), 2);
}

TEST_F(CfgBind, AnEmptyFileBindsAnonymously)
{
    const Handle handle = unbound(write(""));
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0);
}

TEST_F(CfgBind, LinesThatCantBeUsedAreKeptAndTheFileIsRewritten)
{
    const Handle handle = unbound(write("version: 1\ncharset: a\n\ndn: cn=a\ncn: a\nno colon\nzor-slapdPort: x\n\n"));
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    EXPECT_EQ(cfg_get_errno(handle.get()), 0);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    EXPECT_EQ(read(), "charset: a\nversion: 1\n\ndn: cn=a\ncn: a\nzor-slapdInvalidLine: no colon: \n"
                      "zor-slapdInvalidLine: zor-slapdPort: x\n\n");
}

TEST_F(CfgBind, TheBackupNameIsTheStores)
{
    const std::string text = "version: 1\ncharset: a\n\ndn: cn=a\ncn: a\nno colon\n\n";
    const Handle handle = unbound(write(text));
    cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf("backup.conf").c_str());
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    EXPECT_EQ(read("backup.conf"), text);
    EXPECT_NE(read(), text);
}

TEST_F(CfgBind, NamesSetAfterABindWaitForTheNextOne)
{
    const Handle handle = bound("version: 1\ncharset: a\n\ndn: cn=a\nobjectclass: top\n\n");
    write("dn: cn=b\nobjectclass: top\n\n", "other.conf");
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, pathOf("other.conf").c_str());
    cfg_set_option(handle.get(), CFG_OPT_BACKUP_FILE, pathOf("backup.conf").c_str());

    // A line that can't be used makes the next load write.
    write("dn: cn=a\nobjectclass: top\nno colon\n\n");
    shiftModificationTime(pathOf("zorslapd.conf"), 10);
    EXPECT_EQ(dnsOf(search(handle.get(), nullptr, subtree, nullptr).result.get()), "cn=a\n");
    EXPECT_NE(read().find("zor-slapdInvalidLine"), std::string::npos);
    EXPECT_FALSE(exists("backup.conf"));

    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    EXPECT_EQ(dnsOf(search(handle.get(), nullptr, subtree, nullptr).result.get()), "cn=b\n");
}

// ---- Credentials ----

TEST_F(CfgBind, CredentialsDecide)
{
    struct Row
    {
        const char* name;
        const char* who;
        const char* password;
        int code;
        int level;
    };
    constexpr char admin[] = "cn=Directory Manager, o=Example";
    const Row rows[] = {
        {"neither", nullptr, nullptr, 0, 1},
        {"right", admin, "Secret1", 0, 2},
        {"DN spelled otherwise", "CN = directory manager;O=EXAMPLE", "Secret1", 0, 2},
        {"wrong password", admin, "Secret2", 49, -1},
        {"password in other case", admin, "secret1", 49, -1},
        {"beginning of the password", admin, "Secret", 49, -1},
        {"wrong DN", "cn=Manager, o=Example", "Secret1", 49, -1},
        {"parent DN", "o=Example", "Secret1", 49, -1},
        {"empty password", admin, "", 49, -1},
        {"null password", admin, nullptr, 49, -1},
        {"empty DN", "", "Secret1", 49, -1},
        {"null DN", nullptr, "Secret1", 49, -1},
        {"both empty", "", "", 49, -1},
        {"empty DN, null password", "", nullptr, 49, -1},
        {"null DN, empty password", nullptr, "", 49, -1},
    };
    const std::string file = write(configuration);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle = unbound(file);
        EXPECT_EQ(cfg_bind_s(handle.get(), row.who, row.password, simple), row.code);
        expectNothingKept(handle.get(), row.code);
        EXPECT_EQ(authentication(handle.get()), row.level);
        EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, row.code == 0 ? 0 : 89);
    }
}

TEST_F(CfgBind, AnEncodedPasswordInTheFileIsComparedInClear)
{
    const Handle handle = unbound(write("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\n"
                                        "zor-slapdAdminPW: " +
                                        encoded("pass word") + "\n"));
    EXPECT_EQ(cfg_bind_s(handle.get(), "cn=root", "pass word", simple), 0);
    EXPECT_EQ(authentication(handle.get()), 2);
    EXPECT_EQ(cfg_bind_s(handle.get(), "cn=root", "password", simple), 49);
}

TEST_F(CfgBind, AConfigurationWithoutAnAdministratorLetsNobodyIn)
{
    struct Row
    {
        const char* name;
        const char* attributes;
    };
    const Row rows[] = {
        {"no DN", "objectclass: top\nzor-slapdAdminPW: secret\n"},
        {"no password", "objectclass: top\nzor-slapdAdminDN: cn=root\n"},
        {"neither", "objectclass: top\n"},
        {"no object class", "zor-slapdAdminDN: cn=root\nzor-slapdAdminPW: secret\n"},
        {"the password is the second value",
         "objectclass: top\nzor-slapdAdminDN: cn=root\nzor-slapdAdminPW: other\nzor-slapdAdminPW: secret\n"},
        {"the DN is the second value",
         "objectclass: top\nzor-slapdAdminDN: cn=r\nzor-slapdAdminDN: cn=root\nzor-slapdAdminPW: secret\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle = unbound(write("dn: cn=Configuration\n" + std::string(row.attributes)));
        EXPECT_EQ(cfg_bind_s(handle.get(), "cn=root", "secret", simple), 49);
        expectNothingKept(handle.get(), 49);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << "anonymous";
    }
}

TEST_F(CfgBind, WithoutTheConfigurationEntryThereIsNoSuchObject)
{
    const Handle handle = unbound(write("dn: cn=Other\nobjectclass: top\n"));
    EXPECT_EQ(cfg_bind_s(handle.get(), "cn=root", "secret", simple), 32);
    expectKept(handle.get(), 32, 32, "Base entry not found");
    EXPECT_EQ(shown(cfg_get_entry(handle.get())), "cn=Configuration");
    expectUnbound(handle.get());
}

TEST_F(CfgBind, CredentialsThatTheSyntaxRefusesAreToldAsFailures)
{
    struct Row
    {
        const char* name;
        std::string who;
        std::string password;
        int code;
        int libraryCode;
        const char* message;
        const char* attribute;
    };
    const Row rows[] = {
        {"no DN", "=x", "Secret1", 34, 1012, "Invalid attribute sytax: ", "zor-slapdAdminDN"},
        {"DN cut short", "cn=a,", "Secret1", 34, 1011, "Missing RDN attribute", "zor-slapdAdminDN"},
        {"password of 47 bytes", "cn=Directory Manager, o=Example", std::string(47, 'p'), 21, 1018,
         "Password length must be 1 to 46 characters", "zor-slapdAdminPW"},
    };
    const std::string file = write(configuration);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle = unbound(file);
        EXPECT_EQ(cfg_bind_s(handle.get(), row.who.c_str(), row.password.c_str(), simple), row.code);
        expectKept(handle.get(), row.code, row.libraryCode, row.message);
        EXPECT_EQ(shown(cfg_get_entry(handle.get())), "cn=Configuration");
        EXPECT_EQ(shown(cfg_get_attribute(handle.get())), row.attribute);
        expectUnbound(handle.get());
    }
}

TEST_F(CfgBind, AStoredPasswordThatCantBeDecodedIsAFailureAndNoRefusal)
{
    const Handle handle = unbound(
        write("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminDN: cn=root\nzor-slapdAdminPW: >damaged<\n"));
    EXPECT_EQ(cfg_bind_s(handle.get(), "cn=root", "secret", simple), 84);
    expectKept(handle.get(), 84, 84, "_slapd_utils_decode_buffer( left );");
    EXPECT_EQ(shown(cfg_get_entry(handle.get())), "cn=Configuration");
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << "nothing is decoded for an anonymous bind";
}

// ---- More than one bind on a handle ----

TEST_F(CfgBind, EachBindForgetsTheFailureBeforeIt)
{
    const Handle handle = unbound(write(configuration));
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    expectNothingKept(handle.get(), 0);
}

TEST_F(CfgBind, ARefusedSecondBindLeavesTheFirstInForce)
{
    const Handle handle = unbound(write(configuration));
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);

    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0);
    EXPECT_EQ(cfg_bind_s(handle.get(), "cn=x", "wrong", simple), 49);
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0);
    EXPECT_EQ(authentication(handle.get()), 1);
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, pathOf("missing.conf").c_str());
    EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 91);
    EXPECT_EQ(dnsOf(search(handle.get(), nullptr, subtree, nullptr).result.get()), "cn=Configuration\n");
}

TEST_F(CfgBind, WhatTheFirstBindGaveOutStaysValidAfterTheSecond)
{
    const Handle handle = bound("dn: cn=a\nobjectclass: top\n");
    const Found first = search(handle.get(), nullptr, subtree, nullptr);
    const char* const lentName = cfg_get_file_name(handle.get());
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, write("dn: cn=b\nobjectclass: top\n", "b.conf").c_str());
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    EXPECT_EQ(dnsOf(first.result.get()), "cn=a\n");
    EXPECT_EQ(lentName, pathOf("zorslapd.conf")) << "the store of the first bind lent this text";
    EXPECT_EQ(dnsOf(search(handle.get(), nullptr, subtree, nullptr).result.get()), "cn=b\n");
    EXPECT_EQ(shown(cfg_get_file_name(handle.get())), pathOf("b.conf"));
}
