// The default trace service: records go to the file that the environment names, one line each, or nowhere.
// Debug texts go to the standard error. Tracing must not disturb what it watches: a record neither waits for
// somebody to read it nor ends the process with SIGPIPE, and no call changes the errno of its caller.
#include "veltor/platform.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

uint32_t trcEvents = 0;

namespace {
constexpr mode_t traceFileMode = 0600;
constexpr uint32_t maxDataBytes = uint32_t{1} << 20;
// Two words, an address, a length and what stands between them.
constexpr std::size_t maxHeadBytes = 64;
constexpr std::size_t maxEscapeBytes = 4;
// Lines and debug texts up to this size need no memory of their own.
constexpr std::size_t stackBytes = 2048;

pthread_mutex_t initMutex = PTHREAD_MUTEX_INITIALIZER;
// The descriptor of the trace file, -1 before the first one is opened. The number stays the same for the rest of
// the process, so that a thread about to write never meets a file of somebody else under it.
std::atomic<int> traceFile{-1};
std::atomic<bool> traceOn{false};

// Decimal, or hexadecimal after "0x". Anything else, a number beyond 32 bits included, is 0: no events.
uint32_t eventMask(const char* text)
{
    if (text == nullptr) {
        return 0;
    }
    const char* end = text + std::strlen(text);
    const bool hexadecimal = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    uint32_t mask = 0;
    const auto [parsed, error] = std::from_chars(hexadecimal ? text + 2 : text, end, mask, hexadecimal ? 16 : 10);
    return error == std::errc() && parsed == end ? mask : 0;
}

// Opens the file and puts it in the place of the one before. Gives 0 or an errno value.
int turnTo(const char* path)
{
    // O_NONBLOCK: a fifo without a reader must not hold the server up.
    const int opened =
        open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, traceFileMode);
    if (opened < 0) {
        return errno;
    }
    struct stat status = {};
    if (fstat(opened, &status) != 0 || !S_ISREG(status.st_mode)) {
        // Of all kinds of files only a regular one takes lines of any length whole.
        close(opened);
        return EINVAL;
    }
    const int current = traceFile.load();
    if (current < 0) {
        traceFile.store(opened);
        return 0;
    }
    const int failure = dup3(opened, current, O_CLOEXEC) < 0 ? errno : 0;
    close(opened);
    return failure;
}

bool isPlain(unsigned char byte)
{
    // Fixed, whatever the locale: a trace is read elsewhere. The backslash is escaped to keep lines reversible.
    return byte >= 0x20 && byte <= 0x7E && byte != '\\';
}

char* appendEscaped(char* out, const unsigned char* data, uint32_t length)
{
    constexpr char hex[] = "0123456789ABCDEF";
    for (uint32_t i = 0; i < length; ++i) {
        const unsigned char byte = data[i];
        if (isPlain(byte)) {
            *out++ = static_cast<char>(byte);
        } else {
            *out++ = '\\';
            *out++ = 'x';
            *out++ = hex[byte >> 4];
            *out++ = hex[byte & 0xF];
        }
    }
    return out;
}

// Hands the line to the system in one call: the system does not mix the lines of two writers that append, but
// it would mix their halves. Gives 0 or an errno value.
int writeWhole(const char* line, std::size_t size)
{
    ssize_t written = -1;
    do {
        written = write(traceFile.load(), line, size);
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        return errno;
    }
    // The rest is not sent after it: the system stops inside a line only where there is no more room.
    return static_cast<std::size_t>(written) == size ? 0 : ENOSPC;
}

// Puts the line together and writes it. Gives 0 or an errno value.
int writeRecord(uint32_t record, uint32_t cls, const void* object, uint32_t length, const unsigned char* data)
{
    // Room for every byte escaped: data that another thread changes meanwhile still fits.
    const std::size_t roomNeeded = maxHeadBytes + maxEscapeBytes * length + 1;
    char onStack[stackBytes];
    char* line = roomNeeded <= sizeof onStack ? onStack : static_cast<char*>(std::malloc(roomNeeded));
    if (line == nullptr) {
        return ENOMEM;
    }
    const int head = std::snprintf(line, maxHeadBytes, "%08" PRIX32 " %08" PRIX32 " 0x%" PRIXPTR " %" PRIu32, record,
                                   cls, reinterpret_cast<std::uintptr_t>(object), length);
    char* end = line + head;
    if (length != 0) {
        *end++ = ' ';
        end = appendEscaped(end, data, length);
    }
    *end++ = '\n';
    const int status = writeWhole(line, static_cast<std::size_t>(end - line));
    if (line != onStack) {
        std::free(line);
    }
    return status;
}
} // namespace

int trcInit(void)
{
    const int callersErrno = errno;
    pthread_mutex_lock(&initMutex);
    std::atomic_ref<uint32_t>(trcEvents).store(eventMask(secure_getenv("VELTOR_TRACE_EVENTS")),
                                               std::memory_order_relaxed);
    const char* path = secure_getenv("VELTOR_TRACE_FILE");
    int status = 0;
    if (path == nullptr || *path == '\0') {
        // The file stays open: a thread may be about to write to it.
        traceOn.store(false);
    } else {
        status = turnTo(path);
        if (status == 0) {
            traceOn.store(true);
        }
    }
    pthread_mutex_unlock(&initMutex);
    errno = callersErrno;
    return status;
}

int trcWriteRec(uint32_t record, uint32_t cls, const void* object, uint32_t length, const void* data,
                uint32_t /*reserved1*/, uint32_t /*reserved2*/, uint32_t /*reserved3*/, uint32_t /*reserved4*/)
{
    if (!traceOn.load()) {
        return 0;
    }
    if (data == nullptr && length != 0) {
        return EINVAL;
    }
    if (length > maxDataBytes) {
        return EMSGSIZE;
    }
    const int callersErrno = errno;
    const int status = writeRecord(record, cls, object, length, static_cast<const unsigned char*>(data));
    errno = callersErrno;
    return status;
}

void PrintDebugVa(unsigned long /*type*/, const char* fmt, va_list ap)
{
    const int callersErrno = errno;
    va_list again;
    va_copy(again, ap);
    char onStack[stackBytes];
    constexpr std::size_t textBytes = sizeof onStack - 1; // keeps a byte for the line feed
    char* text = onStack;
    int length = fmt == nullptr ? -1 : std::vsnprintf(text, textBytes, fmt, ap);
    if (length >= static_cast<int>(textBytes)) {
        const auto wanted = static_cast<std::size_t>(length) + 1;
        auto* larger = static_cast<char*>(std::malloc(wanted + 1));
        if (larger == nullptr) {
            length = static_cast<int>(textBytes) - 1; // what fits is better than nothing
        } else {
            text = larger;
            errno = callersErrno; // for "%m"
            // An argument that another thread changes may have grown; what found no room is not there.
            length = std::min(std::vsnprintf(text, wanted, fmt, again), length);
        }
    }
    va_end(again);
    if (length < 0) {
        length = std::snprintf(text, textBytes, "(a debug text that can't be formatted)");
    }
    if (length == 0 || text[length - 1] != '\n') {
        text[length++] = '\n';
    }
    std::fwrite(text, 1, static_cast<std::size_t>(length), stderr);
    if (text != onStack) {
        std::free(text);
    }
    errno = callersErrno;
}
