// The trace helpers on top of the default trace service: from a formatter to the lines of a file.
#include "veltor/ldtr.h"

#include "support/temporary_folder.h"

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {
// A folder for the trace file, and the service turned off again afterwards.
class LdtrEndToEnd : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("VELTOR_TRACE_FILE", file().c_str(), 1);
        setenv("VELTOR_TRACE_EVENTS", "0x2", 1);
    }

    void TearDown() override
    {
        unsetenv("VELTOR_TRACE_FILE");
        unsetenv("VELTOR_TRACE_EVENTS");
        EXPECT_EQ(ldtr_init(), 0);
    }

    std::string file() const { return folder_.path("trace"); }

    std::string written() const
    {
        std::ifstream stream(file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    veltor::test::TemporaryFolder folder_;
};

std::string addressOf(const void* object)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%lX", reinterpret_cast<unsigned long>(object));
    return text;
}

// The 4 bytes of a small number, as the trace prints them.
std::string escapedNumber(char lowest)
{
    const std::string byte = std::string("\\x0") + lowest;
    const std::string zeros = "\\x00\\x00\\x00";
    return std::endian::native == std::endian::little ? byte + zeros : zeros + byte;
}
} // namespace

TEST_F(LdtrEndToEnd, RecordsOfATracedCallReachTheFileInOrder)
{
    const int object = 0;
    ASSERT_EQ(ldtr_init(), 0);
    ldtr_formater_global global(0x32010203);
    ldtr_formater_local local(0xC8000100, 0x32020000, &object);
    EXPECT_EQ(ldtr_write(0x32000000, 0xC8000000, nullptr), 0);
    EXPECT_EQ(global(0xC8000001, "port %d", 389), 0);
    EXPECT_EQ(global.new_delete(0xC8000002, &object, "made"), 0);
    EXPECT_EQ(local("%s\n", "line"), 0);
    EXPECT_EQ(local(0x42, "%s", "typed"), 0);
    EXPECT_EQ(local.new_delete(&object, "gone %c", '\t'), 0);
    const char* none = nullptr;
    EXPECT_EQ(global(0xC8000001, none, 0), 0);
    EXPECT_EQ(ldtr_exit_errcode(0xC8000000, 25, 1, 5, nullptr), 0);
    EXPECT_EQ(ldtr_exit_errcode(0xC8000000, 25, 1, 0, nullptr), 0);
    const std::string address = addressOf(&object);
    EXPECT_EQ(written(), "32000000 C8000000 0x0 0\n"
                         "32010203 C8000001 0x0 8 port 389\n"
                         "32010203 C8000002 " +
                             address +
                             " 4 made\n"
                             "32020000 C8000100 " +
                             address +
                             " 5 line\\x0A\n"
                             "32020000 C8000142 " +
                             address +
                             " 5 typed\n"
                             "32020000 C8000100 " +
                             address +
                             " 6 gone \\x09\n"
                             "32010203 C8000001 0x0 30 !!! safer_vsprintf error 3 !!!\n"
                             "030A0000 C8000000 0x0 4 " +
                             escapedNumber('5') +
                             "\n"
                             "03190000 C8000000 0x0 4 " +
                             escapedNumber('0') + "\n");
}

TEST_F(LdtrEndToEnd, ADebugCallReachesTheFileAndTheStandardError)
{
    ASSERT_EQ(ldtr_init(), 0);
    std::FILE* screen = std::tmpfile();
    ASSERT_NE(screen, nullptr);
    const int kept = dup(STDERR_FILENO);
    dup2(fileno(screen), STDERR_FILENO);
    ldtr_formater_global global(0x32010203);
    const int status = global.debug(0xC8110000, "%s %d", "port", 389);
    dup2(kept, STDERR_FILENO);
    close(kept);
    char printed[100] = {};
    std::rewind(screen);
    const std::size_t length = std::fread(printed, 1, sizeof printed - 1, screen);
    std::fclose(screen);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::string(printed, length), "port 389\n");
    EXPECT_EQ(written(), "32070000 C8110000 0x0 8 port 389\n");
}

TEST_F(LdtrEndToEnd, TheLongestTextArrivesWhole)
{
    ASSERT_EQ(ldtr_init(), 0);
    const ldtr_formater_global global(1);
    EXPECT_EQ(global(2, "%8191d", 7), 0);
    EXPECT_EQ(global(2, "%8192d", 7), 0);
    EXPECT_EQ(written(), "00000001 00000002 0x0 8191 " + std::string(8190, ' ') +
                             "7\n"
                             "00000001 00000002 0x0 30 !!! safer_vsprintf error 9 !!!\n");
}

TEST_F(LdtrEndToEnd, AFileThatCantBeOpenedIsReportedByInit)
{
    setenv("VELTOR_TRACE_FILE", (file() + "/below").c_str(), 1);
    EXPECT_EQ(ldtr_init(), ENOENT);
}

TEST_F(LdtrEndToEnd, NothingIsWrittenWithoutAFile)
{
    unsetenv("VELTOR_TRACE_FILE");
    ASSERT_EQ(ldtr_init(), 0);
    const ldtr_formater_global global(1);
    EXPECT_EQ(global(2, "%d", 7), 0);
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(LdtrEndToEnd, ThreadsTraceAtOnce)
{
    ASSERT_EQ(ldtr_init(), 0);
    constexpr int threadCount = 4;
    constexpr int recordsEach = 200;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([thread, &failures] {
            ldtr_formater_local local(static_cast<unsigned long>(thread), 0, nullptr);
            for (int i = 0; i < recordsEach; ++i) {
                failures += local("%*d", 1 + (i * 31) % 4000, thread) != 0 ? 1 : 0;
                failures += ldtr_exit_errcode(static_cast<unsigned long>(thread), 25, 1, 5, nullptr) != 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    std::ifstream stream(file());
    int texts = 0;
    int exits = 0;
    for (std::string line; std::getline(stream, line);) {
        char last = '?';
        unsigned cls = 99;
        int length = -1;
        int head = 0;
        if (line.starts_with("030A0000 ")) {
            ++exits;
            EXPECT_EQ(line.substr(17), " 0x0 4 " + escapedNumber('5'));
        } else {
            ++texts;
            ASSERT_EQ(std::sscanf(line.c_str(), "00000000 %8X 0x0 %d%n", &cls, &length, &head), 2) << line;
            ASSERT_EQ(line.size(), static_cast<std::size_t>(head + 1 + length));
            last = line.back();
            EXPECT_EQ(last, static_cast<char>('0' + cls));
        }
    }
    EXPECT_EQ(texts, threadCount * recordsEach);
    EXPECT_EQ(exits, threadCount * recordsEach);
}
