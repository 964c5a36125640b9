// Disks that take less than they are given: fewer bytes at a time, no more from some byte on, no further page.
//
// The linker leads the library's writes here (--wrap), and its waiting for the disk, which would only take time.
#include "fault_test.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

using namespace veltor::test;

namespace {

struct Disk
{
    std::size_t mostBytes = std::numeric_limits<std::size_t>::max(); ///< that one write takes
    std::size_t room = std::numeric_limits<std::size_t>::max();      ///< bytes until it is full
    int error = ENOSPC;                                              ///< what it says then
    std::size_t shortened = 0;
    std::size_t refused = 0;
    std::size_t taken = 0;
};

Disk* disk = nullptr; // none: the system's own

/// Stands in for the disk while it lives.
class Stand
{
public:
    explicit Stand(Disk& given) { disk = &given; }
    Stand(const Stand&) = delete;
    Stand& operator=(const Stand&) = delete;
    ~Stand() { disk = nullptr; }
};

} // namespace

extern "C" {

ssize_t __real_write(int file, const void* bytes, std::size_t size);
ssize_t __wrap_write(int file, const void* bytes, std::size_t size);
int __wrap_fsync(int file);

ssize_t __wrap_write(int file, const void* bytes, std::size_t size)
{
    if (disk == nullptr) {
        return __real_write(file, bytes, size);
    }
    const std::size_t allowed = std::min({size, disk->mostBytes, disk->room});
    if (allowed == 0 && size != 0) {
        ++disk->refused;
        errno = disk->error;
        return -1;
    }
    disk->shortened += allowed < size ? 1 : 0;
    const ssize_t written = __real_write(file, bytes, allowed);
    if (written > 0) {
        disk->taken += static_cast<std::size_t>(written);
        disk->room -= static_cast<std::size_t>(written);
    }
    return written;
}

int __wrap_fsync(int)
{
    return 0;
}

} // extern "C"

namespace {

class FullDisk : public FaultTest
{
protected:
    /// A file system of a few pages, seen by this process alone. Takes root.
    static bool mountPages(const std::string& folder, const std::string& options)
    {
        return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }

    static std::string longText()
    {
        std::string text = oldText;
        while (text.size() < 9000) {
            text += "dn: cn=" + std::to_string(text.size()) + ", o=x\nobjectclass: top\n\n";
        }
        return text;
    }
};

constexpr char noMount[] = "no mount";

} // namespace

TEST_F(FullDisk, WritesThatTakeLessAreCompleted)
{
    const std::string text = longText();
    const std::string file = write(text);
    for (const std::size_t most :
         {std::size_t{1}, std::size_t{2}, std::size_t{7}, std::size_t{64}, std::size_t{4095}, text.size() - 1}) {
        SCOPED_TRACE(most);
        const std::string before = read();
        const Handle handle = boundTo(file, pathOf("backup"));
        Disk shortDisk;
        shortDisk.mostBytes = most;
        {
            const Stand stand(shortDisk);
            EXPECT_EQ(setPort(handle, std::to_string(1000 + most % 5000)), 0);
        }
        EXPECT_EQ(failureOf(handle), "");
        // Both texts, at least.
        EXPECT_GE(shortDisk.shortened, 2U);
        EXPECT_EQ(read(), withPort(before, std::to_string(1000 + most % 5000)));
        EXPECT_EQ(read("backup"), before);
    }
    EXPECT_EQ(namesIn(pathOf("")), (std::set<std::string>{fileName, "zorslapd.conf.lock", "backup"}));
}

TEST_F(FullDisk, ADiskThatIsFullFromAnyByteOnLeavesTheOldText)
{
    const std::string file = write(oldText);
    const std::string newText = withPort(oldText, "636");
    const std::string backup = pathOf("backup");
    Disk endless;
    {
        const Handle handle = boundTo(file, backup);
        const Stand stand(endless);
        ASSERT_EQ(setPort(handle, "636"), 0) << failureOf(handle);
    }
    // The holder's name in the lock, which nobody insists on, the new text, and the copy of the old one.
    const std::size_t texts = newText.size() + std::string_view(oldText).size();
    ASSERT_GT(endless.taken, texts);
    const std::size_t holder = endless.taken - texts;
    std::size_t cases = 0;
    for (const auto& [error, step] : {std::pair(ENOSPC, 1U), std::pair(EDQUOT, 7U), std::pair(EIO, 7U)}) {
        for (std::size_t room = 0; room < endless.taken; room += step) {
            SCOPED_TRACE(std::string(std::strerror(error)) + " after " + std::to_string(room) + " bytes");
            write(oldText);
            write("older\n", "backup");
            const Handle handle = boundTo(file, backup);
            Disk full;
            full.room = room;
            full.error = error;
            {
                const Stand stand(full);
                EXPECT_EQ(setPort(handle, "636"), 80);
            }
            EXPECT_GE(full.refused, room < holder ? 2U : 1U);
            const std::string told = failureOf(handle);
            EXPECT_NE(told.find(std::strerror(error)), std::string::npos) << told;
            EXPECT_TRUE(told.ends_with(oldInPlace)) << told;
            EXPECT_EQ(read(), oldText);
            EXPECT_EQ(read("backup"), "older\n");
            EXPECT_EQ(inMemory(handle), oldText);
            // With room again, the same handle goes on.
            EXPECT_EQ(setPort(handle, "636"), 0) << failureOf(handle);
            EXPECT_EQ(read(), newText);
            EXPECT_EQ(read("backup"), oldText);
            EXPECT_EQ(namesIn(pathOf("")), (std::set<std::string>{fileName, "zorslapd.conf.lock", "backup"}));
            ++cases;
        }
    }
    RecordProperty("cases", static_cast<int>(cases));
}

TEST_F(FullDisk, AFileSystemWithoutPagesLeavesTheOldText)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can mount a small file system";
    }
    const std::string folder = pathOf("");
    const std::string told = toldByChild([&]() -> std::string {
        if (!mountPages(folder, "size=64k,mode=0755")) {
            return noMount;
        }
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::string file = write(longText());
        std::string old = longText();
        std::size_t failures = 0;
        std::size_t free = 0;
        for (bool fits = false; !fits; ++free) {
            // A big file leaves just that many pages.
            const int filler = open(pathOf("filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            const std::string bytes(page, 'x');
            std::size_t pages = 0;
            while (::write(filler, bytes.data(), page) == static_cast<ssize_t>(page)) {
                ++pages;
            }
            if (free > pages || ftruncate(filler, static_cast<off_t>((pages - free) * page)) != 0) {
                return "the file never fits";
            }
            close(filler);
            const Handle handle = boundTo(file, pathOf("backup"));
            fits = setPort(handle, std::to_string(1000 + free)) == 0;
            const std::string failure = failureOf(handle);
            std::filesystem::remove(pathOf("filler"));
            if (!fits) {
                ++failures;
                if (read() != old || inMemory(handle) != old || exists("backup") || !failure.starts_with("80/1000 ") ||
                    failure.find("No space left") == std::string::npos) {
                    return std::to_string(free) + " pages: " + failure;
                }
                if (failure.find("lock") == std::string::npos && !failure.ends_with(oldInPlace)) {
                    return failure;
                }
            } else if (read() != withPort(old, std::to_string(1000 + free)) || read("backup") != old) {
                return "not the new text";
            }
            // Nothing is left over that would keep the next change from its place.
            const auto names = namesIn(folder);
            if (std::any_of(names.begin(), names.end(), [](const auto& name) { return name.starts_with("."); })) {
                return "something is left over";
            }
        }
        return failures >= 4 ? "held" : "only " + std::to_string(failures) + " failures";
    });
    if (told == noMount) {
        GTEST_SKIP() << "this system lets root mount nothing";
    }
    EXPECT_EQ(told, "held");
}

TEST_F(FullDisk, AFileSystemWithoutRoomForAnotherFileLeavesTheOldText)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can mount a small file system";
    }
    const std::string folder = pathOf("");
    // The folder itself, the file, and what a change makes: the lock, the new text, the backup.
    constexpr int needed = 5;
    for (int files = 2; files <= needed; ++files) {
        SCOPED_TRACE(files);
        const std::string told = toldByChild([&]() -> std::string {
            if (!mountPages(folder, "size=256k,mode=0755,nr_inodes=" + std::to_string(files))) {
                return noMount;
            }
            const Handle handle = boundTo(write(oldText), pathOf("backup"));
            const bool changed = setPort(handle, "636") == 0;
            const std::string failure = failureOf(handle);
            if (changed) {
                return read() == withPort(oldText, "636") && read("backup") == oldText ? "changed" : "not the new text";
            }
            const auto names = namesIn(folder);
            if (read() != oldText || exists("backup") ||
                std::any_of(names.begin(), names.end(), [](const auto& name) { return name.starts_with("."); })) {
                return "not the old text: " + failure;
            }
            return failure.starts_with("80/1000 ") && failure.find("No space left") != std::string::npos ? "refused"
                                                                                                         : failure;
        });
        if (told == noMount) {
            GTEST_SKIP() << "this system lets root mount nothing";
        }
        EXPECT_EQ(told, files < needed ? "refused" : "changed");
    }
}
