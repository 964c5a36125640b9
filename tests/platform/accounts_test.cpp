// The default account look-up. This program answers for the system's look-up where a name begins with
// "fake-", so that every answer the system can give is seen, and passes all other names on.
#include "veltor/platform.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <dlfcn.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <limits>
#include <pwd.h>
#include <string>
#include <string_view>

namespace {
// How the fake look-up answers.
struct Fake
{
    std::size_t sizeNeeded = 0; // a smaller buffer gets ERANGE
    int interruptions = 0;      // that many times EINTR first
    int status = 0;
    bool found = true;

    std::size_t calls = 0;
    std::size_t largestSize = 0;
};
Fake fake;

constexpr uid_t fakeUid = 4711;
constexpr gid_t fakeGid = 1147;

void setId(passwd& record)
{
    record.pw_uid = fakeUid;
    record.pw_gid = 1; // must not be taken for a group's id
}

void setId(group& record)
{
    record.gr_gid = fakeGid;
}

template <typename Record>
int answer(Record* record, char* buffer, std::size_t size, Record** found)
{
    ++fake.calls;
    fake.largestSize = std::max(fake.largestSize, size);
    std::fill_n(buffer, size, 'x'); // the whole buffer has to be there
    *found = nullptr;
    if (fake.interruptions > 0) {
        --fake.interruptions;
        return EINTR;
    }
    if (size < fake.sizeNeeded) {
        return ERANGE;
    }
    if (fake.status == 0 && fake.found) {
        setId(*record);
        *found = record;
    }
    return fake.status;
}

bool isFake(const char* name)
{
    return std::string_view(name).starts_with("fake-");
}

template <typename Function>
Function systemsOwn(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
} // namespace

extern "C" __attribute__((visibility("default"))) int getpwnam_r(const char* name, passwd* record, char* buffer,
                                                                 std::size_t size, passwd** found)
{
    return isFake(name) ? answer(record, buffer, size, found)
                        : systemsOwn<decltype(&getpwnam_r)>("getpwnam_r")(name, record, buffer, size, found);
}

extern "C" __attribute__((visibility("default"))) int getgrnam_r(const char* name, group* record, char* buffer,
                                                                 std::size_t size, group** found)
{
    return isFake(name) ? answer(record, buffer, size, found)
                        : systemsOwn<decltype(&getgrnam_r)>("getgrnam_r")(name, record, buffer, size, found);
}

namespace {
constexpr auto leaveUser = static_cast<uid_t>(-1);
constexpr auto leaveGroup = static_cast<gid_t>(-1);
} // namespace

TEST(Accounts, RootHasTheIdsZero)
{
    EXPECT_EQ(ldap_get_uid("root"), 0U);
    EXPECT_EQ(ldap_get_gid("root"), 0U);
}

TEST(Accounts, AGroupIsLookedUpAmongTheGroupsAndAUserAmongTheUsers)
{
    // "daemon" exists as both on every Debian system; the expected numbers come from the system itself.
    const passwd* user = getpwnam("daemon");
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(ldap_get_uid("daemon"), user->pw_uid);
    const group* users = getgrnam("users");
    ASSERT_NE(users, nullptr);
    EXPECT_EQ(getpwnam("users"), nullptr);
    EXPECT_EQ(ldap_get_gid("users"), users->gr_gid);
    EXPECT_EQ(ldap_get_uid("users"), leaveUser);
}

TEST(Accounts, AnUnknownNameMeansLeaveUnchanged)
{
    for (const char* name : {"no-such-account-here", "", "ROOT ", "0"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(ldap_get_uid(name), leaveUser);
        EXPECT_EQ(ldap_get_gid(name), leaveGroup);
    }
}

TEST(Accounts, ANullNameMeansLeaveUnchanged)
{
    EXPECT_EQ(ldap_get_uid(nullptr), leaveUser);
    EXPECT_EQ(ldap_get_gid(nullptr), leaveGroup);
}

TEST(Accounts, EveryAnswerOfTheSystemHasItsResult)
{
    constexpr std::size_t never = std::numeric_limits<std::size_t>::max();
    struct Row
    {
        const char* name;
        Fake answer;
        bool known;
    };
    const Row rows[] = {
        {"found at once", {}, true},
        {"found with a buffer of 1 MiB", {.sizeNeeded = std::size_t{1} << 20}, true},
        {"found after interruptions", {.interruptions = 3}, true},
        {"found after interruptions with a larger buffer", {.sizeNeeded = 5000, .interruptions = 3}, true},
        {"not found", {.found = false}, false},
        {"not found, told by an error", {.status = ENOENT, .found = false}, false},
        {"an I/O error", {.status = EIO, .found = false}, false},
        {"no descriptor left", {.status = EMFILE, .found = false}, false},
        {"never content with the buffer", {.sizeNeeded = never}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fake = row.answer;
        EXPECT_EQ(ldap_get_uid("fake-user"), row.known ? fakeUid : leaveUser);
        EXPECT_GT(fake.calls, 0U);
        fake = row.answer;
        EXPECT_EQ(ldap_get_gid("fake-group"), row.known ? fakeGid : leaveGroup);
        EXPECT_GT(fake.calls, 0U);
    }
}

TEST(Accounts, TheBufferStopsGrowing)
{
    fake = {.sizeNeeded = std::numeric_limits<std::size_t>::max()};
    ldap_get_uid("fake-user");
    EXPECT_LE(fake.largestSize, std::size_t{16} << 20);
    EXPECT_LE(fake.calls, 64U);
}
