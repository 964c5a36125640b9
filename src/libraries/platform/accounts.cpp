// The default look-up of system accounts, in whatever sources the system is configured to ask.
#include "veltor/platform.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {
constexpr std::size_t firstBufferSize = 1024;
// A group with tens of thousands of members fits. A source that asks for more than this is taken for broken.
constexpr std::size_t lastBufferSize = std::size_t{16} << 20;

// getpwnam_r or getgrnam_r.
template <typename Record>
using Find = int (*)(const char* name, Record* record, char* buffer, std::size_t size, Record** found);

// Looks the name up with a buffer that grows until the record fits. Only the numbers in the record outlive the
// call; its texts lie in the buffer. Gives false for an unknown name and for every failure alike: both mean
// that there is no id to give.
template <typename Record>
bool lookUp(Find<Record> find, const char* name, Record& record)
{
    if (name == nullptr) {
        return false;
    }
    for (std::size_t size = firstBufferSize; size <= lastBufferSize; size *= 2) {
        auto* buffer = static_cast<char*>(std::malloc(size));
        if (buffer == nullptr) {
            return false;
        }
        Record* found = nullptr;
        int status = EINTR;
        while (status == EINTR) {
            status = find(name, &record, buffer, size, &found);
        }
        std::free(buffer);
        if (status != ERANGE) {
            return status == 0 && found != nullptr;
        }
    }
    return false;
}
} // namespace

uid_t ldap_get_uid(const char* user_name)
{
    passwd record = {};
    return lookUp<passwd>(getpwnam_r, user_name, record) ? record.pw_uid : static_cast<uid_t>(-1);
}

gid_t ldap_get_gid(const char* user_name)
{
    group record = {};
    return lookUp<group>(getgrnam_r, user_name, record) ? record.gr_gid : static_cast<gid_t>(-1);
}
