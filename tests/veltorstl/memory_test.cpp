// Memory that runs short in the middle of every call: no matter which request fails, and whether memory comes back
// at once or not, nothing leaks, nothing escapes, the code is one that the call tells of, and the handle goes on.
//
// Linked with support/failing_allocator.cpp, its linker options and the source of the default password codec, whose
// requests then fail like the library's own.
#include "support/api_test.h"
#include "support/failing_allocator.h"
#include "support/shortage.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include "veltor/cfg_admin.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

using namespace veltor::test;

namespace {

class Memory : public ApiTest
{
};

/// The lines of a file, sorted, with those that the loader kept as they stood before that; blank lines left out.
std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        constexpr char mark[] = "zor-slapdInvalidLine: ";
        while (beginsWith(line, mark)) {
            line.erase(0, sizeof mark - 1);
        }
        if (!line.empty()) {
            lines.push_back(line);
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// What a load may do when a request failed.
///
/// Either the call tells of it. Or the request was made for the value of one line: then the loader takes the failure
/// for that line's and keeps the line as zor-slapdInvalidLine, as it does with every value that can't be built. In
/// the root that name is refused with 65. Whatever happens, no line is lost.
void expectLoadOutcome(void* handle, int code, Shortage shortage, const std::string& before, const std::string& after)
{
    EXPECT_EQ(linesOf(after), linesOf(before));
    if (after != before) {
        EXPECT_NE(after.find("zor-slapdInvalidLine: "), std::string::npos) << after;
        EXPECT_TRUE(code == 0 || code == 49 || code == 80 || code == 90) << code;
        expectRecorded(handle, code);
    } else if (code == 65) {
        expectRecorded(handle, code);
        ASSERT_NE(kept(handle), nullptr);
        EXPECT_EQ(kept(handle)->extErr, 1007);
        EXPECT_EQ(kept(handle)->msg, "\"zor-slapdInvalidLine\" attribute not allowed in <root> object");
    } else {
        expectShortageTold(handle, code, shortage);
    }
}

// Every syntax with rules of its own, a merged attribute, a parent behind its child, and texts too long to be kept
// without a block of their own.
const std::string& configuration()
{
    static const std::string text = "# The configuration file of a directory server, with a comment.\n"
                                    "version: 1\n"
                                    "charset: ISO-8859-1\n"
                                    "\n"
                                    "dn: cn=Front End with a long name, cn=Configuration\n"
                                    "objectclass: top\n"
                                    "description: gr\xC3\xBC\xC3\x9F dich, und noch ein langer Text dazu\n"
                                    "\n"
                                    "# Above the configuration entry.\n"
                                    "dn: cn=Configuration\n"
                                    "objectclass: top\n"
                                    "objectclass: a long name of an object class\n"
                                    "zor-slapdAdminDN: cn=Directory Manager, o=A Long Example\n"
                                    "zor-slapdAdminPW: " +
                                    encoded("Secret of the manager") +
                                    "\n"
                                    "zor-slapdDbName: db2\n"
                                    "zor-slapdMasterPW: " +
                                    encoded(std::string(300, 'm')) +
                                    "\n"
                                    "zor-slapdPort: 389\n"
                                    "zor-slapdReadOnly: TRUE\n"
                                    "zor-slapdSslCipherSpecs: 256\n"
                                    "\n"
                                    "# Behind the last entry of the file.\n";
    return text;
}

constexpr char adminDn[] = "cn=Directory Manager, o=A Long Example";
constexpr char adminPassword[] = "Secret of the manager";

const std::string& everything()
{
    static const std::string text = "dn: cn=Configuration\n"
                                    "objectclass: top\n"
                                    "objectclass: a long name of an object class\n"
                                    "zor-slapdAdminDN: cn=Directory Manager, o=A Long Example\n"
                                    "zor-slapdAdminPW: Secret of the manager\n"
                                    "zor-slapdDbName: db2\n"
                                    "zor-slapdMasterPW: " +
                                    std::string(300, 'm') +
                                    "\n"
                                    "zor-slapdPort: 389\n"
                                    "zor-slapdReadOnly: TRUE\n"
                                    "zor-slapdSslCipherSpecs: 256\n"
                                    "dn: cn=Front End with a long name, cn=Configuration\n"
                                    "description: gr\xC3\xBC\xC3\x9F dich, und noch ein langer Text dazu\n"
                                    "objectclass: top\n";
    return text;
}

/// The handle binds and finds everything, once memory is there again.
void expectUsable(void* handle)
{
    EXPECT_EQ(cfg_bind_s(handle, adminDn, adminPassword, simple), 0) << shown(cfg_dump_exception(handle));
    const Found answer = search(handle, nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(listed(answer.result.get()), everything());
}

} // namespace

// ---- The helper itself ----

TEST_F(Memory, TheFailingAllocatorReachesTheLibraryAndTheCodec)
{
    const std::string file = write(configuration());
    const Handle handle = unbound(file);
    FailingAllocator counting(Shortage::none, 1);
    cfg_bind_s(handle.get(), adminDn, adminPassword, simple);
    counting.stop();
    EXPECT_GT(counting.requests(), 50U);
    EXPECT_FALSE(counting.failed());

    FailingAllocator codec(Shortage::lasting, 1);
    char* text = nullptr;
    EXPECT_EQ(_slapd_utils_encode_buffer("x", &text, 1, 46), 90);
    codec.stop();
    EXPECT_EQ(codec.firstFailure(), Request::malloc);

    const BlockWatch watch;
    const Text copy(cfg_get_dn(handle.get(), search(handle.get(), "cn=Configuration", 0, nullptr).result.get()));
    EXPECT_EQ(watch.live(), 1U) << "one copy that is still in use";
}

// ---- Handles and options ----

TEST_F(Memory, InitGivesNullWhenThereIsNoHandle)
{
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        FailingAllocator memory(shortage, nth);
        const Handle handle(cfg_init());
        memory.stop();
        EXPECT_EQ(handle == nullptr, memory.failed());
        return memory.failed();
    });
}

TEST_F(Memory, SetOptionKeepsTheOldName)
{
    for (const int option : {CFG_OPT_CONFIG_FILE, CFG_OPT_BACKUP_FILE}) {
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            const Handle handle = withKeptFailure();
            cfg_set_option(handle.get(), option, "/etc/the/name/before/this/one.conf");
            FailingAllocator memory(shortage, nth);
            const int code = cfg_set_option(handle.get(), option, "/etc/the/name/that/comes/next.conf");
            memory.stop();
            char* stored = nullptr;
            cfg_get_option(handle.get(), option, &stored);
            const Text owned(stored);
            if (memory.failed()) {
                EXPECT_TRUE(code == 80 || code == 90) << code;
                if (shortage == Shortage::once && memory.firstFailure() == Request::strdup) {
                    EXPECT_EQ(code, 90);
                }
                EXPECT_STREQ(stored, "/etc/the/name/before/this/one.conf");
            } else {
                EXPECT_EQ(code, 0);
                EXPECT_STREQ(stored, "/etc/the/name/that/comes/next.conf");
            }
            EXPECT_EQ(cfg_get_errno(handle.get()), 86) << "no code is recorded";
            EXPECT_NE(kept(handle.get()), nullptr) << "nothing is reset";
            EXPECT_EQ(cfg_set_option(handle.get(), option, "/etc/a"), 0);
            return memory.failed();
        });
    }
}

TEST_F(Memory, SetOptionRefusesABadNameWhateverMemoryThereIs)
{
    const std::string tooLong(4097, 'n');
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        const Handle handle(cfg_init());
        FailingAllocator memory(shortage, nth);
        const int code = cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, tooLong.c_str());
        memory.stop();
        EXPECT_TRUE(code == 21 || (memory.failed() && (code == 80 || code == 90))) << code;
        EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
        return memory.failed();
    });
}

TEST_F(Memory, GetOptionGivesNullForACopyThatFailed)
{
    for (const int option : {CFG_OPT_CONFIG_FILE, CFG_OPT_BACKUP_FILE}) {
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            const Handle handle(cfg_init());
            cfg_set_option(handle.get(), option, "/etc/a.conf");
            FailingAllocator memory(shortage, nth);
            char* name = nullptr;
            const int code = cfg_get_option(handle.get(), option, &name);
            memory.stop();
            const Text owned(name);
            EXPECT_EQ(code, 0);
            EXPECT_EQ(shown(name), memory.failed() ? "(null)" : "/etc/a.conf");
            return memory.failed();
        });
    }
}

// ---- Bind ----

TEST_F(Memory, BindWithoutMemoryForTheDefaultNameIs90)
{
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        const Handle handle(cfg_init());
        FailingAllocator memory(shortage, nth);
        const int code = cfg_bind_s(handle.get(), nullptr, nullptr, 0);
        memory.stop();
        expectRecorded(handle.get(), code);
        if (memory.failed() && memory.firstFailure() == Request::strdup) {
            EXPECT_EQ(code, 90);
            EXPECT_EQ(static_cast<cfg_handle*>(handle.get())->configFileName, nullptr);
            if (shortage == Shortage::once) {
                EXPECT_NE(kept(handle.get()), nullptr);
            }
            if (kept(handle.get()) != nullptr) {
                EXPECT_EQ(kept(handle.get())->extErr, 90);
                EXPECT_EQ(kept(handle.get())->msg, "strdup()");
            }
        } else {
            // The refusal of the method, or the want of memory for the refusal.
            EXPECT_TRUE(code == 86 || (memory.failed() && code == 80)) << code;
        }
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, 0), 86);
        return memory.failed();
    });
}

TEST_F(Memory, BindWithAndWithoutCredentials)
{
    for (const bool withCredentials : {false, true}) {
        const std::string file = pathOf("zorslapd.conf");
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            write(configuration());
            const Handle handle = unbound(file);
            FailingAllocator memory(shortage, nth);
            const int code = cfg_bind_s(handle.get(), withCredentials ? adminDn : nullptr,
                                        withCredentials ? adminPassword : nullptr, simple);
            memory.stop();
            if (memory.failed()) {
                expectLoadOutcome(handle.get(), code, shortage, configuration(), read());
            } else {
                EXPECT_EQ(code, 0);
                EXPECT_EQ(read(), configuration());
            }
            if (code != 0) {
                EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 89) << "still unbound";
            }
            write(configuration());
            expectUsable(handle.get());
            return memory.failed();
        });
    }
}

TEST_F(Memory, BindToAFileWithLinesThatCantBeUsed)
{
    const std::string bad = "version: 1\n"
                            "charset: ISO-8859-1\n"
                            "\n"
                            "dn: cn=Configuration\n"
                            "objectclass: top\n"
                            "a long line that has no colon in it\n"
                            "zor-slapdPort: not a number at all, and long\n"
                            "zor-slapdDbName: much too long a name\n"
                            "\n";
    const std::string mended = "charset: ISO-8859-1\n"
                               "version: 1\n"
                               "\n"
                               "dn: cn=Configuration\n"
                               "objectclass: top\n"
                               "zor-slapdInvalidLine: a long line that has no colon in it: \n"
                               "zor-slapdInvalidLine: zor-slapdPort: not a number at all, and long\n"
                               "zor-slapdInvalidLine: zor-slapdDbName: much too long a name\n"
                               "\n";
    const std::string file = pathOf("zorslapd.conf");
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        write(bad);
        const Handle handle = unbound(file);
        FailingAllocator memory(shortage, nth);
        const int code = cfg_bind_s(handle.get(), nullptr, nullptr, simple);
        memory.stop();
        const std::string after = read();
        if (code == 0 && after == mended) {
            // As it should be, also when the request failed for a line that is refused anyway.
            expectRecorded(handle.get(), code);
        } else {
            EXPECT_TRUE(memory.failed());
            expectLoadOutcome(handle.get(), code, shortage, after == bad ? bad : mended, after);
        }
        write(bad);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
        EXPECT_EQ(read(), mended);
        return memory.failed();
    });
}

TEST_F(Memory, BindThatFailsForAnotherReason)
{
    struct Row
    {
        const char* name;
        std::string text;
        const char* who;
        const char* password;
        int code;
    };
    const std::string plain = "charset: ISO-8859-1\nversion: 1\n\ndn: cn=Configuration\nobjectclass: top\n"
                              "zor-slapdAdminDN: cn=root\nzor-slapdAdminPW: " +
                              encoded("pw") + "\n\n";
    const Row rows[] = {
        {"foreign root attribute", "version: 1\na-long-attribute-name: and a long value\n", nullptr, nullptr, 65},
        {"bad DN", "dn: cn=a long name before it, =x\n", nullptr, nullptr, 34},
        {"wrong password", plain, "cn=root", "wrong", 49},
        {"bad bind DN", plain, "cn=a long name before it, =x", "pw", 34},
        {"no configuration entry", "version: 1\ncharset: a\n\ndn: cn=another entry\nobjectclass: top\n\n", "cn=root",
         "pw", 32},
    };
    const std::string file = pathOf("zorslapd.conf");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            write(row.text);
            const Handle handle = unbound(file);
            FailingAllocator memory(shortage, nth);
            const int code = cfg_bind_s(handle.get(), row.who, row.password, simple);
            memory.stop();
            expectRecorded(handle.get(), code);
            if (code != row.code) {
                EXPECT_TRUE(memory.failed());
                expectLoadOutcome(handle.get(), code, shortage, row.text, read());
            }
            EXPECT_EQ(linesOf(read()), linesOf(row.text));
            write(row.text);
            EXPECT_EQ(cfg_bind_s(handle.get(), row.who, row.password, simple), row.code);
            return memory.failed();
        });
    }
}

// ---- Search ----

TEST_F(Memory, SearchTellsACopyThatFailedFromAllElse)
{
    struct Row
    {
        const char* name;
        const char* base;
        const char* filter;
        bool chosen;
        std::string result;
    };
    char first[] = "a name that no entry has at all";
    char second[] = "ZOR-SLAPDMASTERPW";
    char* names[] = {first, second, nullptr};
    const Row rows[] = {
        {"everything", nullptr, nullptr, false, everything()},
        {"equal numbers", "cn=Configuration", "(zor-slapdPort=0389)", false,
         everything().substr(0, everything().find("dn: cn=Front"))},
        {"chosen attributes and an equal DN", "cn=Configuration",
         "zor-slapdAdminDN=cn=Directory Manager;o=A Long Example", true,
         "dn: cn=Configuration\nzor-slapdMasterPW: " + std::string(300, 'm') + "\n"},
        {"an equal password", nullptr, "zor-slapdAdminPW=Secret of the manager", true,
         "dn: cn=Configuration\nzor-slapdMasterPW: " + std::string(300, 'm') + "\n"},
    };
    const std::string file = write(configuration());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Handle handle = unbound(file);
        ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            cfg_message* result = nullptr;
            FailingAllocator memory(shortage, nth);
            const int code =
                cfg_search_s(handle.get(), row.base, subtree, row.filter, row.chosen ? names : nullptr, 0, &result);
            memory.stop();
            const Message owned(result);
            if (!memory.failed()) {
                EXPECT_EQ(code, 0);
                EXPECT_EQ(listed(result), row.result);
                return false;
            }
            EXPECT_EQ(result, nullptr);
            const Request how = memory.firstFailure();
            if (how == Request::calloc || how == Request::strdup) {
                // A node or the copy of a text.
                expectRecorded(handle.get(), code);
                EXPECT_EQ(code, 90);
                EXPECT_EQ(kept(handle.get()), nullptr);
            } else {
                expectShortageTold(handle.get(), code, shortage);
            }
            const Found again = search(handle.get(), row.base, subtree, row.filter, row.chosen ? names : nullptr);
            EXPECT_EQ(again.code, 0);
            EXPECT_EQ(listed(again.result.get()), row.result);
            // Reset what the search kept: it would count as not given back.
            cfg_reset(handle.get());
            return true;
        });
    }
}

TEST_F(Memory, SearchThatReadsTheFileAgain)
{
    const std::string file = pathOf("zorslapd.conf");
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        write(configuration());
        const Handle handle = unbound(file);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
        shiftModificationTime(file, 10);
        cfg_message* result = nullptr;
        FailingAllocator memory(shortage, nth);
        const int code = cfg_search_s(handle.get(), nullptr, subtree, nullptr, nullptr, 0, &result);
        memory.stop();
        const Message owned(result);
        expectRecorded(handle.get(), code);
        if (code != 0) {
            EXPECT_EQ(result, nullptr);
            EXPECT_TRUE(memory.failed());
        }
        if (memory.failed() && code != 90) {
            expectLoadOutcome(handle.get(), code, shortage, configuration(), read());
        }
        EXPECT_EQ(linesOf(read()), linesOf(configuration()));
        write(configuration());
        shiftModificationTime(file, 20);
        const Found again = search(handle.get(), nullptr, subtree, nullptr);
        EXPECT_EQ(again.code, 0);
        EXPECT_EQ(listed(again.result.get()), everything());
        return memory.failed();
    });
}

TEST_F(Memory, SearchThatFailsForAnotherReason)
{
    struct Row
    {
        const char* name;
        const char* base;
        const char* filter;
        int code;
    };
    const Row rows[] = {
        {"no such base", "cn=nobody has such a name, o=anywhere", nullptr, 32},
        {"bad base", "cn=a long name before it, =x", nullptr, 34},
        {"bad filter value", "cn=Configuration", "zor-slapdPort=this is not a number", 21},
    };
    const Handle handle = bound(configuration());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            cfg_message* result = nullptr;
            FailingAllocator memory(shortage, nth);
            const int code = cfg_search_s(handle.get(), row.base, subtree, row.filter, nullptr, 0, &result);
            memory.stop();
            const Message owned(result);
            EXPECT_EQ(result, nullptr);
            expectRecorded(handle.get(), code);
            if (code != row.code) {
                EXPECT_TRUE(memory.failed());
                expectShortageTold(handle.get(), code, shortage);
            }
            EXPECT_EQ(search(handle.get(), row.base, subtree, row.filter).code, row.code);
            cfg_reset(handle.get());
            return memory.failed();
        });
    }
}

TEST_F(Memory, APasswordThatTheDecoderHasNoMemoryForIs90WithItsPlace)
{
    const Handle handle =
        bound("dn: cn=Configuration\nobjectclass: top\nzor-slapdAdminPW: " + encoded("secret") + "\n");
    bool met = false;
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        cfg_message* result = nullptr;
        FailingAllocator memory(shortage, nth);
        const int code = cfg_search_s(handle.get(), nullptr, subtree, nullptr, nullptr, 0, &result);
        memory.stop();
        const Message owned(result);
        if (shortage == Shortage::once && kept(handle.get()) != nullptr &&
            kept(handle.get())->msg == "_slapd_utils_decode_buffer();") {
            met = true;
            EXPECT_EQ(code, 90);
            EXPECT_EQ(cfg_get_exterror(handle.get()), 90);
            EXPECT_EQ(kept(handle.get())->value, encoded("secret"));
            EXPECT_EQ(kept(handle.get())->entryDn, "cn=Configuration");
            EXPECT_EQ(kept(handle.get())->attribute, "zor-slapdAdminPW");
        }
        cfg_reset(handle.get());
        return memory.failed();
    });
    EXPECT_TRUE(met);
}

// ---- Walking ----

TEST_F(Memory, TheWalkRecords90AndGoesOn)
{
    const Handle handle = bound(configuration());
    const Found answer = search(handle.get(), "cn=Configuration", baseScope, nullptr);
    cfg_message* const entry = answer.result.get();
    ASSERT_NE(entry, nullptr);

    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        FailingAllocator memory(shortage, nth);
        const Text dn(cfg_get_dn(handle.get(), entry));
        memory.stop();
        EXPECT_EQ(shown(dn.get()), memory.failed() ? "(null)" : "cn=Configuration");
        EXPECT_EQ(cfg_get_errno(handle.get()), memory.failed() ? 90 : 0);
        return memory.failed();
    });

    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        cfg_cursor* made = nullptr;
        FailingAllocator memory(shortage, nth);
        const Text name(cfg_first_attribute(handle.get(), entry, &made));
        memory.stop();
        const Cursor cursor(made);
        EXPECT_EQ(shown(name.get()), memory.failed() ? "(null)" : "objectclass");
        EXPECT_EQ(cursor == nullptr, memory.failed());
        EXPECT_EQ(cfg_get_errno(handle.get()), memory.failed() ? 90 : 0);
        return memory.failed();
    });

    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        cfg_cursor* made = nullptr;
        const Text first(cfg_first_attribute(handle.get(), entry, &made));
        const Cursor cursor(made);
        FailingAllocator memory(shortage, nth);
        const Text name(cfg_next_attribute(handle.get(), entry, cursor.get()));
        memory.stop();
        EXPECT_EQ(shown(name.get()), memory.failed() ? "(null)" : "zor-slapdAdminDN");
        EXPECT_EQ(cfg_get_errno(handle.get()), memory.failed() ? 90 : 0);
        const Text next(cfg_next_attribute(handle.get(), entry, cursor.get()));
        EXPECT_STREQ(next.get(), "zor-slapdAdminPW") << "the cursor had moved before the copy failed";
        return memory.failed();
    });

    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        FailingAllocator memory(shortage, nth);
        const Values values(cfg_get_values(handle.get(), entry, "objectclass"));
        memory.stop();
        EXPECT_EQ(cfg_count_values(values.get()), memory.failed() ? 0 : 2);
        EXPECT_EQ(values == nullptr, memory.failed());
        EXPECT_EQ(cfg_get_errno(handle.get()), memory.failed() ? 90 : 0);
        return memory.failed();
    });
}

TEST_F(Memory, WithoutAHandleTheWalkGivesNullAllTheSame)
{
    const Handle handle = bound(configuration());
    const Found answer = search(handle.get(), "cn=Configuration", baseScope, nullptr);
    cfg_message* const entry = answer.result.get();
    FailingAllocator memory(Shortage::lasting, 1);
    cfg_cursor* cursor = nullptr;
    char* const dn = cfg_get_dn(nullptr, entry);
    char* const name = cfg_first_attribute(nullptr, entry, &cursor);
    char** const values = cfg_get_values(nullptr, entry, "objectclass");
    memory.stop();
    EXPECT_EQ(dn, nullptr);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(cursor, nullptr);
    EXPECT_EQ(values, nullptr);
    EXPECT_EQ(memory.requests(), 3U);
}

// ---- The reading calls of administration ----

TEST_F(Memory, ReadTellsANodeThatFailedFromAllElse)
{
    std::string stored = "dn: \ncharset: ISO-8859-1\nversion: 1\n" + everything();
    const std::string password = "Secret of the manager";
    const std::string longPassword(300, 'm');
    stored.replace(stored.find(password), password.size(), encoded(password));
    stored.replace(stored.find(longPassword), longPassword.size(), encoded(longPassword));
    const Handle handle = bound(configuration());
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        cfg_message* result = nullptr;
        FailingAllocator memory(shortage, nth);
        const int code = cfg_read_s(handle.get(), nullptr, subtree, &result);
        memory.stop();
        const Message owned(result);
        if (!memory.failed()) {
            EXPECT_EQ(code, 0);
            EXPECT_EQ(listed(result), stored);
            return false;
        }
        EXPECT_EQ(result, nullptr);
        const Request how = memory.firstFailure();
        if (how == Request::calloc || how == Request::strdup) {
            // A node or the copy of a text.
            expectRecorded(handle.get(), code);
            EXPECT_EQ(code, 90);
            EXPECT_EQ(kept(handle.get()), nullptr);
        } else {
            expectShortageTold(handle.get(), code, shortage);
        }
        cfg_message* again = nullptr;
        EXPECT_EQ(cfg_read_s(handle.get(), nullptr, subtree, &again), 0);
        EXPECT_EQ(listed(Message(again).get()), stored);
        return true;
    });
}

TEST_F(Memory, ReadThatFailsForAnotherReason)
{
    struct Row
    {
        const char* name;
        const char* base;
        int code;
    };
    const Row rows[] = {
        {"no such base", "cn=nobody has such a name, o=anywhere", 32},
        {"bad base", "cn=a long name before it, =x", 34},
    };
    const Handle handle = bound(configuration());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            cfg_message* result = nullptr;
            FailingAllocator memory(shortage, nth);
            const int code = cfg_read_s(handle.get(), row.base, subtree, &result);
            memory.stop();
            const Message owned(result);
            EXPECT_EQ(result, nullptr);
            expectRecorded(handle.get(), code);
            if (code != row.code) {
                EXPECT_TRUE(memory.failed());
                expectShortageTold(handle.get(), code, shortage);
            }
            EXPECT_EQ(cfg_read_s(handle.get(), row.base, subtree, &result), row.code);
            cfg_reset(handle.get());
            return memory.failed();
        });
    }
}

TEST_F(Memory, AReadingCallThatReadsTheFileAgain)
{
    struct Given
    {
        int code;
        Text text;
        Message result;
    };
    const std::string file = pathOf("zorslapd.conf");
    for (const bool ofComment : {false, true}) {
        SCOPED_TRACE(ofComment ? "comment" : "entries");
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            write(configuration());
            const Handle handle = unbound(file);
            EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
            const auto reading = [&] {
                char* text = nullptr;
                cfg_message* result = nullptr;
                const int code = ofComment ? cfg_get_comment_s(handle.get(), "cn=Configuration", nullptr, &text)
                                           : cfg_read_s(handle.get(), "cn=Configuration", baseScope, &result);
                return Given{code, Text(text), Message(result)};
            };
            shiftModificationTime(file, 10);
            FailingAllocator memory(shortage, nth);
            const Given given = reading();
            memory.stop();
            expectRecorded(handle.get(), given.code);
            EXPECT_EQ(given.text != nullptr || given.result != nullptr, given.code == 0);
            EXPECT_TRUE(memory.failed() || given.code == 0);
            if (memory.failed() && given.code != 90) {
                expectLoadOutcome(handle.get(), given.code, shortage, configuration(), read());
            }
            EXPECT_EQ(linesOf(read()), linesOf(configuration()));
            write(configuration());
            shiftModificationTime(file, 20);
            const Given again = reading();
            EXPECT_EQ(again.code, 0);
            EXPECT_EQ(ofComment ? shown(again.text.get()) : dnsOf(again.result.get()),
                      ofComment ? "Above the configuration entry." : "cn=Configuration\n");
            return memory.failed();
        });
    }
}

TEST_F(Memory, ACommentIsGivenOrTheShortageTold)
{
    struct Row
    {
        const char* name;
        const char* dn;
        const char* attribute;
        int code;
        const char* text;
    };
    const Row rows[] = {
        {"of an entry", "cn=Configuration", nullptr, 0, "Above the configuration entry."},
        {"of an attribute of the root", "", "version", 0,
         "The configuration file of a directory server, with a comment."},
        {"no such attribute", "cn=Configuration", "a-name-of-an-attribute-that-is-long", 16, nullptr},
        {"no such entry", "cn=nobody has such a name, o=anywhere", nullptr, 32, nullptr},
    };
    const Handle handle = bound(configuration());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        forEveryRequest([&](Shortage shortage, std::size_t nth) {
            char* text = nullptr;
            FailingAllocator memory(shortage, nth);
            const int code = cfg_get_comment_s(handle.get(), row.dn, row.attribute, &text);
            memory.stop();
            const Text owned(text);
            expectRecorded(handle.get(), code);
            if (code == row.code) {
                EXPECT_EQ(shown(text), shown(row.text));
            } else {
                EXPECT_TRUE(memory.failed());
                EXPECT_EQ(text, nullptr);
                expectShortageTold(handle.get(), code, shortage);
                if (shortage == Shortage::once && memory.firstFailure() == Request::strdup) {
                    EXPECT_EQ(code, 90);
                }
            }
            char* again = nullptr;
            EXPECT_EQ(cfg_get_comment_s(handle.get(), row.dn, row.attribute, &again), row.code);
            EXPECT_EQ(shown(Text(again).get()), shown(row.text));
            cfg_reset(handle.get());
            return memory.failed();
        });
    }
}

// ---- The report, and what needs no memory ----

TEST_F(Memory, TheReportIsNullOnceAndThereTheNextTime)
{
    forEveryRequest([&](Shortage shortage, std::size_t nth) {
        const Handle handle(cfg_init());
        cfg_bind_s(handle.get(), nullptr, nullptr, 0);
        FailingAllocator memory(shortage, nth);
        const char* const report = cfg_dump_exception(handle.get());
        memory.stop();
        EXPECT_EQ(report == nullptr, memory.failed());
        EXPECT_EQ(cfg_get_errno(handle.get()), 86);
        const std::string later = shown(cfg_dump_exception(handle.get()));
        EXPECT_NE(later.find("\nldapErr 86: "), std::string::npos);
        return memory.failed();
    });
}

TEST_F(Memory, WhatOnlyLooksOrReleasesRequestsNothing)
{
    const Handle handle = bound(configuration());
    Found answer = search(handle.get(), nullptr, subtree, nullptr);
    cfg_message* const entry = answer.result.get();
    ASSERT_NE(entry, nullptr);
    cfg_cursor* cursor = nullptr;
    cfg_memfree(cfg_first_attribute(handle.get(), entry, &cursor));
    char** const values = cfg_get_values(handle.get(), entry, "objectclass");
    char* const dn = cfg_get_dn(handle.get(), entry);
    void* const other = withKeptFailure().release();
    void* const bound = this->bound(configuration()).release();

    expectNoRequest("cfg_first_entry", [&] { cfg_first_entry(handle.get(), entry); });
    expectNoRequest("cfg_next_entry", [&] { cfg_next_entry(handle.get(), entry); });
    expectNoRequest("cfg_count_entries", [&] { cfg_count_entries(handle.get(), entry); });
    expectNoRequest("cfg_count_attributes", [&] { cfg_count_attributes(handle.get(), entry); });
    expectNoRequest("cfg_count_values", [&] { cfg_count_values(values); });
    expectNoRequest("accessors", [&] {
        cfg_get_errno(other);
        cfg_get_exterror(other);
        cfg_perror(other, "x");
        cfg_get_file_name(other);
        cfg_get_file_line(other);
        cfg_get_entry(other);
        cfg_get_attribute(other);
        cfg_get_value(other);
        cfg_get_enum(other);
        cfg_get_bitmask(other);
        cfg_get_minimum(other);
        cfg_get_maximum(other);
        cfg_get_is_single(other);
        cfg_failure record = {};
        EXPECT_EQ(cfg_failure_count(other), 1);
        EXPECT_EQ(cfg_failure_at(other, 0, &record), 0);
        EXPECT_EQ(cfg_failure_at(other, 1, &record), 89);
        cfg_err2string(1000);
        cfg_err2string(5000);
        getInstallPath();
        getDefaultConfigFilename();
    });
    expectNoRequest("catalogue", [&] {
        cfg_attr_type type = {};
        for (int index = 0; index < cfg_attr_type_count(); ++index) {
            cfg_attr_type_at(index, &type);
        }
    });
    expectNoRequest("flags", [&] {
        int value = 0;
        for (const int option : {999, 1000, 1001, 1002, 1003, 1004, 1007}) {
            cfg_get_option(other, option, &value);
            cfg_set_option(other, option, flag(value));
        }
        cfg_set_option(other, CFG_OPT_CONFIG_FILE, nullptr);
    });
    expectNoRequest("cfg_value_free", [&] { cfg_value_free(values); });
    expectNoRequest("cfg_ber_free", [&] { cfg_ber_free(cursor); });
    expectNoRequest("cfg_memfree", [&] { cfg_memfree(dn); });
    expectNoRequest("cfg_msgfree", [&] { cfg_msgfree(answer.result.release()); });
    expectNoRequest("cfg_reset", [&] { cfg_reset(other); });
    expectNoRequest("cfg_unbind", [&] {
        cfg_unbind(other);
        cfg_unbind(bound);
    });
}
