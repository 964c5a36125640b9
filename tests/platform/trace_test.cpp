// The default trace service. This program stands between the service and the system's write, to count the calls
// and to make them fail.
#include "veltor/platform.h"

#include "failing_malloc.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {
std::atomic<int> writeCalls{0};
std::atomic<int> failNextWrite{0}; // an errno value for one call, or 0
std::atomic<std::size_t> cutNextWriteTo{0};
} // namespace

extern "C" __attribute__((visibility("default"))) ssize_t write(int file, const void* bytes, std::size_t size)
{
    ++writeCalls;
    if (const int failure = failNextWrite.exchange(0); failure != 0) {
        errno = failure;
        return -1;
    }
    if (const std::size_t cut = cutNextWriteTo.exchange(0); cut != 0) {
        size = std::min(size, cut);
    }
    return syscall(SYS_write, file, bytes, size);
}

namespace {
int writeText(uint32_t record, uint32_t cls, const std::string& text)
{
    return trcWriteRec(record, cls, nullptr, static_cast<uint32_t>(text.size()), text.data(), 0, 0, 0, 0);
}

// What the service does before anybody calls trcInit.
struct BeforeInit
{
    int status = trcWriteRec(1, 2, this, 4, "text", 0, 0, 0, 0);
    int calls = writeCalls;
    uint32_t events = trcEvents;
};
const BeforeInit beforeInit;

std::string contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> lines(const std::string& path)
{
    std::vector<std::string> result;
    std::istringstream text(contents(path));
    for (std::string line; std::getline(text, line);) {
        result.push_back(line);
    }
    return result;
}

// The descriptor under which this process has the file open.
std::optional<int> descriptorOf(const std::string& path)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == path) {
            return std::stoi(entry.path().filename().string());
        }
    }
    return std::nullopt;
}

std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

// A folder of its own for every test, and the environment without trace variables before and after.
class TraceService : public testing::Test
{
protected:
    void SetUp() override
    {
        unsetenv("VELTOR_TRACE_FILE");
        unsetenv("VELTOR_TRACE_EVENTS");
    }

    void TearDown() override
    {
        unsetenv("VELTOR_TRACE_FILE");
        unsetenv("VELTOR_TRACE_EVENTS");
        EXPECT_EQ(trcInit(), 0);
    }

    std::string path(const std::string& name) const { return folder_.path(name); }

    static int initWithFile(const std::string& path)
    {
        setenv("VELTOR_TRACE_FILE", path.c_str(), 1);
        return trcInit();
    }

private:
    veltor::test::TemporaryFolder folder_;
};
} // namespace

TEST_F(TraceService, DiscardsRecordsBeforeItIsInitialised)
{
    EXPECT_EQ(beforeInit.status, 0);
    EXPECT_EQ(beforeInit.calls, 0);
    EXPECT_EQ(beforeInit.events, 0U);
}

TEST_F(TraceService, DiscardsRecordsWithoutAFile)
{
    for (const char* file : {static_cast<const char*>(nullptr), ""}) {
        SCOPED_TRACE(file == nullptr ? "unset" : "empty");
        if (file != nullptr) {
            setenv("VELTOR_TRACE_FILE", file, 1);
        }
        EXPECT_EQ(trcInit(), 0);
        const int before = writeCalls;
        EXPECT_EQ(writeText(1, 2, "text"), 0);
        EXPECT_EQ(writeCalls, before);
    }
}

TEST_F(TraceService, ReadsTheEventMaskFromTheEnvironment)
{
    struct Row
    {
        const char* text; // null: unset
        uint32_t mask;
    };
    const Row rows[] = {
        {"0", 0},
        {"1", 1},
        {"010", 10}, // decimal: a leading zero means nothing
        {"4294967295", 0xFFFFFFFF},
        {"4294967296", 0},
        {"0x0", 0},
        {"0x1F", 0x1F},
        {"0Xabcd", 0xABCD},
        {"0xFFFFFFFF", 0xFFFFFFFF},
        {"0x100000000", 0},
        {"0x", 0},
        {"", 0},
        {nullptr, 0},
        {"-1", 0},
        {"+1", 0},
        {" 1", 0},
        {"1 ", 0},
        {"1F", 0},
        {"0x1G", 0},
        {"0x-1", 0},
        {"all", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text == nullptr ? "unset" : row.text);
        trcEvents = 0xDEADBEEF;
        row.text == nullptr ? unsetenv("VELTOR_TRACE_EVENTS") : setenv("VELTOR_TRACE_EVENTS", row.text, 1);
        EXPECT_EQ(trcInit(), 0);
        EXPECT_EQ(trcEvents, row.mask);
    }
}

TEST_F(TraceService, SetsTheEventMaskAlsoWhenTheFileIsRefused)
{
    setenv("VELTOR_TRACE_EVENTS", "0x40", 1);
    EXPECT_EQ(initWithFile(path("missing/trace")), ENOENT);
    EXPECT_EQ(trcEvents, 0x40U);
}

TEST_F(TraceService, WritesOneLineForARecord)
{
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    struct Row
    {
        const char* name;
        uint32_t record;
        uint32_t cls;
        std::uintptr_t object;
        std::string data;
        std::string line;
    };
    using namespace std::string_literals;
    const Row rows[] = {
        {"plain text", 0x030A0000, 0xC8110000, 0, "hello, world", "030A0000 C8110000 0x0 12 hello, world\n"},
        {"no data", 1, 2, 0, "", "00000001 00000002 0x0 0\n"},
        {"the largest words", 0xFFFFFFFF, 0xFFFFFFFF, ~std::uintptr_t{0}, "x",
         "FFFFFFFF FFFFFFFF 0x" + std::string(2 * sizeof(void*), 'F') + " 1 x\n"},
        {"an object", 0, 0, 0x1A2B3C, "x", "00000000 00000000 0x1A2B3C 1 x\n"},
        {"a number", 0, 0, 0, "\x05\x00\x00\x00"s, "00000000 00000000 0x0 4 \\x05\\x00\\x00\\x00\n"},
        {"line feeds", 0, 0, 0, "a\nb\r\n", "00000000 00000000 0x0 5 a\\x0Ab\\x0D\\x0A\n"},
        {"the edges of what is printed", 0, 0, 0, "\x1F\x20\x7E\x7F\x80\xFF",
         "00000000 00000000 0x0 6 \\x1F ~\\x7F\\x80\\xFF\n"},
        {"a backslash", 0, 0, 0, "\\x41", "00000000 00000000 0x0 4 \\x5Cx41\n"},
    };
    std::string expected;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(trcWriteRec(row.record, row.cls, std::bit_cast<const void*>(row.object),
                              static_cast<uint32_t>(row.data.size()), row.data.data(), 0, 0, 0, 0),
                  0);
        expected += row.line;
        EXPECT_EQ(contents(file), expected);
    }
}

TEST_F(TraceService, WritesEveryRecordWithASingleCall)
{
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    for (const std::size_t length : {0U, 1U, 500U, 1900U, 2048U, 8191U, 100000U, 1U << 20}) {
        for (const char filler : {'a', '\n'}) {
            SCOPED_TRACE(std::to_string(length) + (filler == 'a' ? " plain bytes" : " escaped bytes"));
            const auto sizeBefore = std::filesystem::file_size(file);
            const int before = writeCalls;
            EXPECT_EQ(writeText(0, 0, std::string(length, filler)), 0);
            EXPECT_EQ(writeCalls, before + 1);
            const std::size_t head = std::strlen("00000000 00000000 0x0 ") + std::to_string(length).size();
            const std::size_t data = length == 0 ? 0 : 1 + length * (filler == 'a' ? 1 : 4);
            EXPECT_EQ(std::filesystem::file_size(file), sizeBefore + head + data + 1);
        }
    }
}

TEST_F(TraceService, RefusesDataThatIsMissingOrTooLong)
{
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    EXPECT_EQ(trcWriteRec(1, 2, nullptr, 1, nullptr, 0, 0, 0, 0), EINVAL);
    EXPECT_EQ(writeText(1, 2, std::string((1 << 20) + 1, 'a')), EMSGSIZE);
    EXPECT_EQ(contents(file), "");
}

TEST_F(TraceService, ReportsAWriteThatFails)
{
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    failNextWrite = ENOSPC;
    EXPECT_EQ(writeText(1, 2, "lost"), ENOSPC);
    EXPECT_EQ(contents(file), "");
}

TEST_F(TraceService, ReportsALineThatTheSystemCutShort)
{
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    cutNextWriteTo = 10;
    const int before = writeCalls;
    EXPECT_EQ(writeText(1, 2, "cut"), ENOSPC);
    EXPECT_EQ(writeCalls, before + 1);
    EXPECT_EQ(contents(file), "00000001 0");
}

TEST_F(TraceService, RepeatsAWriteThatWasInterrupted)
{
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    failNextWrite = EINTR;
    EXPECT_EQ(writeText(1, 2, "kept"), 0);
    EXPECT_EQ(contents(file), "00000001 00000002 0x0 4 kept\n");
}

TEST_F(TraceService, ALongRecordNeedsMemoryAndAShortOneNone)
{
    if (!VELTOR_TEST_OWN_ALLOCATOR) {
        GTEST_SKIP() << "the sanitizer's allocator can't be made to fail; the plain build runs this";
    }
    const std::string file = path("trace");
    ASSERT_EQ(initWithFile(file), 0);
    const std::string longText(3000, 'a');
    veltor::test::allocationsFail = true;
    const int longStatus = writeText(1, 2, longText);
    const int shortStatus = writeText(3, 4, "short");
    veltor::test::allocationsFail = false;
    EXPECT_EQ(longStatus, ENOMEM);
    EXPECT_EQ(shortStatus, 0);
    EXPECT_EQ(lines(file), std::vector<std::string>{"00000003 00000004 0x0 5 short"});
}

TEST_F(TraceService, LeavesErrnoToItsCaller)
{
    errno = ENOTTY;
    EXPECT_EQ(initWithFile(path("missing/trace")), ENOENT);
    EXPECT_EQ(errno, ENOTTY);
    ASSERT_EQ(initWithFile(path("trace")), 0);
    EXPECT_EQ(errno, ENOTTY);
    failNextWrite = EIO;
    EXPECT_EQ(writeText(1, 2, "text"), EIO);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(TraceService, CreatesAFileThatOnlyItsOwnerReads)
{
    const std::string file = path("trace");
    const mode_t umaskBefore = umask(0);
    const int status = initWithFile(file);
    umask(umaskBefore);
    ASSERT_EQ(status, 0);
    struct stat found = {};
    ASSERT_EQ(stat(file.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0600U);
}

TEST_F(TraceService, AppendsToAFileThatExistsAndLeavesItsMode)
{
    const std::string file = path("trace");
    std::ofstream(file) << "earlier\n";
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    ASSERT_EQ(initWithFile(file), 0);
    EXPECT_EQ(writeText(1, 2, "later"), 0);
    EXPECT_EQ(contents(file), "earlier\n00000001 00000002 0x0 5 later\n");
    struct stat found = {};
    ASSERT_EQ(stat(file.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0640U);
}

TEST_F(TraceService, DoesNotPassTheFileOnToOtherPrograms)
{
    const std::string file = path("trace");
    for (int round = 0; round < 2; ++round) { // the second time the file takes the place of the first
        ASSERT_EQ(initWithFile(file), 0);
        const std::optional<int> descriptor = descriptorOf(file);
        ASSERT_TRUE(descriptor.has_value());
        EXPECT_NE(fcntl(*descriptor, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_NE(fcntl(*descriptor, F_GETFL) & O_APPEND, 0);
    }
}

TEST_F(TraceService, RefusesAnythingButARegularFile)
{
    std::ofstream(path("target")) << "untouched\n";
    std::filesystem::create_symlink(path("target"), path("link"));
    std::filesystem::create_symlink(path("nowhere"), path("dangling"));
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(path("readFifo").c_str(), 0600), 0);
    const int reader = open(path("readFifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    struct Row
    {
        const char* name;
        std::string path;
        int status;
    };
    const Row rows[] = {
        {"a symbolic link", path("link"), ELOOP},
        {"a symbolic link to nothing", path("dangling"), ELOOP},
        {"a folder", path("."), EISDIR},
        {"a file in a folder that does not exist", path("missing/trace"), ENOENT},
        {"a fifo that nobody reads", path("fifo"), ENXIO},
        {"a fifo that somebody reads", path("readFifo"), EINVAL},
        {"a device", "/dev/null", EINVAL},
        {"a name that is too long", path(std::string(300, 'a')), ENAMETOOLONG},
    };
    const std::string kept = path("kept");
    ASSERT_EQ(initWithFile(kept), 0);
    const std::ptrdiff_t descriptors = openDescriptors();
    std::string expected;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(initWithFile(row.path), row.status);
        EXPECT_EQ(openDescriptors(), descriptors);
        // The service keeps to the file it had.
        EXPECT_EQ(writeText(1, 2, row.name), 0);
        expected += "00000001 00000002 0x0 " + std::to_string(std::strlen(row.name)) + " " + row.name + "\n";
        EXPECT_EQ(contents(kept), expected);
    }
    close(reader);
    EXPECT_EQ(contents(path("target")), "untouched\n");
    EXPECT_FALSE(std::filesystem::exists(path("nowhere")));
}

TEST_F(TraceService, TurnsToAnotherFileWhenItIsInitialisedAgain)
{
    ASSERT_EQ(initWithFile(path("one")), 0);
    const std::ptrdiff_t descriptors = openDescriptors();
    EXPECT_EQ(writeText(1, 1, "first"), 0);
    ASSERT_EQ(initWithFile(path("two")), 0);
    EXPECT_EQ(writeText(2, 2, "second"), 0);
    ASSERT_EQ(initWithFile(path("two")), 0);
    EXPECT_EQ(writeText(3, 3, "third"), 0);
    unsetenv("VELTOR_TRACE_FILE");
    ASSERT_EQ(trcInit(), 0);
    EXPECT_EQ(writeText(4, 4, "fourth"), 0);
    ASSERT_EQ(initWithFile(path("one")), 0);
    EXPECT_EQ(writeText(5, 5, "fifth"), 0);
    EXPECT_EQ(contents(path("one")), "00000001 00000001 0x0 5 first\n00000005 00000005 0x0 5 fifth\n");
    EXPECT_EQ(contents(path("two")), "00000002 00000002 0x0 6 second\n00000003 00000003 0x0 5 third\n");
    EXPECT_EQ(openDescriptors(), descriptors);
}

namespace {
constexpr int writers = 6;
constexpr int recordsPerWriter = 300;

// Writes records of changing length that tell who wrote them: the class word is the writer, every byte of the
// data its letter.
int writeAll(int writer)
{
    int failures = 0;
    for (int i = 0; i < recordsPerWriter; ++i) {
        const auto length = static_cast<std::size_t>((i * 37 + writer * 611) % 8000 + 1);
        const std::string text(length, static_cast<char>('a' + writer));
        failures += writeText(static_cast<uint32_t>(i), static_cast<uint32_t>(writer), text) != 0 ? 1 : 0;
    }
    return failures;
}

// Checks that every line is whole and that each writer's records are there once, in their order.
void expectWholeLines(const std::vector<std::string>& found)
{
    std::map<std::string, int> next;
    for (const std::string& line : found) {
        unsigned record = 0;
        unsigned writer = 0;
        unsigned length = 0;
        std::array<char, 8001> data = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "%8X %8X 0x0 %u %8000[a-z]", &record, &writer, &length, data.data()), 4)
            << line.substr(0, 200);
        const std::string text = data.data();
        ASSERT_EQ(text, std::string(length, static_cast<char>('a' + writer)));
        ASSERT_TRUE(line.ends_with(" " + text));
        ASSERT_EQ(static_cast<int>(record), next[text.substr(0, 1)]++);
    }
    ASSERT_EQ(next.size(), static_cast<std::size_t>(writers));
    for (const auto& [writer, count] : next) {
        EXPECT_EQ(count, recordsPerWriter) << "writer " << writer;
    }
}
} // namespace

TEST_F(TraceService, LinesOfThreadsDoNotMix)
{
    ASSERT_EQ(initWithFile(path("trace")), 0);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([writer, &failures] { failures += writeAll(writer); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    expectWholeLines(lines(path("trace")));
}

TEST_F(TraceService, LinesOfProcessesDoNotMix)
{
    ASSERT_EQ(initWithFile(path("trace")), 0);
    std::vector<pid_t> children;
    for (int writer = 0; writer < writers; ++writer) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // Every process opens the file itself: no shared file offset keeps the lines apart.
            _exit(trcInit() == 0 && writeAll(writer) == 0 ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    expectWholeLines(lines(path("trace")));
}

TEST_F(TraceService, TurnsToAnotherFileWhileThreadsWrite)
{
    ASSERT_EQ(initWithFile(path("even")), 0);
    std::atomic<int> running{writers};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([writer, &failures, &running] {
            failures += writeAll(writer);
            --running;
        });
    }
    int turns = 0;
    while (running > 0) {
        ++turns;
        EXPECT_EQ(initWithFile(path(turns % 2 == 0 ? "even" : "odd")), 0);
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    // Each file has its part of every writer's records in order; together they are complete.
    std::vector<std::string> all = lines(path("even"));
    const std::vector<std::string> odd = lines(path("odd"));
    all.insert(all.end(), odd.begin(), odd.end());
    std::sort(all.begin(), all.end()); // the record number comes first
    expectWholeLines(all);
}

namespace {
// Runs the action with the standard error going to a file, and gives what arrived there.
template <typename Action>
std::string standardErrorOf(Action action)
{
    std::FILE* file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    std::fflush(stderr);
    const int kept = dup(STDERR_FILENO);
    dup2(fileno(file), STDERR_FILENO);
    action();
    std::fflush(stderr);
    dup2(kept, STDERR_FILENO);
    close(kept);
    std::string text;
    std::rewind(file);
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
        text += static_cast<char>(byte);
    }
    std::fclose(file);
    return text;
}

void print(unsigned long type, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    PrintDebugVa(type, fmt, ap);
    va_end(ap);
}
} // namespace

TEST(TraceDebug, PrintsOneLineOnTheStandardError)
{
    struct Row
    {
        const char* name;
        const char* fmt;
        std::string text;
        std::string printed;
    };
    const Row rows[] = {
        {"no line feed", "[%s]", "text", "[text]\n"},
        {"a line feed", "[%s]\n", "text", "[text]\n"},
        {"a line feed from the argument", "%s", "text\n", "text\n"},
        {"an empty text", "%s", "", "\n"},
        {"nothing but a line feed", "%s", "\n", "\n"},
        {"two line feeds", "%s", "text\n\n", "text\n\n"},
        {"bytes as they are", "%s", "\x01\xFF", "\x01\xFF\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(standardErrorOf([&row] { print(0xC8110000, row.fmt, row.text.c_str()); }), row.printed);
    }
}

TEST(TraceDebug, PrintsTextsOfAnyLengthWhole)
{
    for (std::size_t length = 2040; length < 2055; ++length) {
        SCOPED_TRACE(length);
        const std::string text(length, 'a');
        EXPECT_EQ(standardErrorOf([&text] { print(0, "%s", text.c_str()); }), text + "\n");
        EXPECT_EQ(standardErrorOf([&text] { print(0, "%s\n", text.c_str()); }), text + "\n");
    }
    const std::string text(200000, 'a');
    EXPECT_EQ(standardErrorOf([&text] { print(0, "%s%d", text.c_str(), 7); }), text + "7\n");
}

TEST(TraceDebug, SeesAndLeavesTheCallersErrno)
{
    const std::string filler(3000, 'a'); // needs two passes over the format
    for (const std::string& text : {std::string("short"), filler}) {
        EXPECT_EQ(standardErrorOf([&text] {
                      errno = ENOTTY;
                      print(0, "%s: %m", text.c_str());
                      EXPECT_EQ(errno, ENOTTY);
                  }),
                  text + ": " + std::strerror(ENOTTY) + "\n");
    }
}

TEST(TraceDebug, SaysSoWhenATextCantBeFormatted)
{
    const char* tooWide = "%2147483648d%s";
    for (const char* fmt : {static_cast<const char*>(nullptr), tooWide}) {
        SCOPED_TRACE(fmt == nullptr ? "null" : fmt);
        EXPECT_EQ(standardErrorOf([fmt] { print(0, fmt, 1, "x"); }), "(a debug text that can't be formatted)\n");
    }
}

TEST(TraceDebug, PrintsTheBeginningOfALongTextWhereMemoryIsShort)
{
    if (!VELTOR_TEST_OWN_ALLOCATOR) {
        GTEST_SKIP() << "the sanitizer's allocator can't be made to fail; the plain build runs this";
    }
    const std::string text(3000, 'a');
    const std::string printed = standardErrorOf([&text] {
        veltor::test::allocationsFail = true;
        print(0, "%s", text.c_str());
        veltor::test::allocationsFail = false;
    });
    EXPECT_EQ(printed, text.substr(0, printed.size() - 1) + "\n");
    EXPECT_GT(printed.size(), 2000U);
}
