// The trace helpers: guarded formatting on the stack, the exit record, and the formatters of free and member
// functions. What becomes of a record is the business of the platform's trace service.
#include "veltor/ldtr.h"

#include "veltor/platform.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace {
// With it no single string argument can fill the record. The flag 0 means nothing for a string.
constexpr std::string_view cappedString = "%0.1000s";
constexpr std::size_t workingFormatSize = 500;
constexpr int recordTextSize = 8192;

// The words below are known to the programs that read traces: keep the numbers.
constexpr std::uint32_t exitRecordFlag = 0x03000000;
constexpr std::uint32_t debugClassWord = 0xC8110000;
constexpr std::uint32_t recordTopByte = 0xFF000000;
constexpr std::uint32_t debugRecordBytes = 0x00070000;
constexpr std::uint32_t typeByte = 0xFF;

enum SaferResult : int {
    formatted = 0,
    noDestination = 1,
    noRoom = 2,
    noFormat = 3,
    noArguments = 4,
    formatAsLongAsDestination = 5,
    formatTooLong = 6,
    workingFormatTooLong = 7,
    formatterFailed = 8,
    textTooLong = 9,
};

std::uint32_t word(unsigned long value)
{
    return static_cast<std::uint32_t>(value);
}

// va_list is a pointer on some machines, an array (a pointer, once it is a parameter) on others, and on the
// rest a structure, which is never null.
template <typename List>
bool isNullList(const List& ap)
{
    if constexpr (std::is_pointer_v<List>) {
        return ap == nullptr;
    } else {
        return false;
    }
}

// Copies the format with every "%s" capped. A doubled percent sign is stepped over as a whole, so that the
// letter after it stays text. Gives false when the copy and its NUL do not fit.
bool capStrings(std::array<char, workingFormatSize>& capped, const char* fmt)
{
    std::size_t used = 0;
    const char* rest = fmt; // what is not copied yet begins here
    const char* at = fmt;
    while (*at != '\0') {
        if (at[0] == '%' && at[1] == '%') {
            at += 2;
        } else if (at[0] == '%' && at[1] == 's') {
            const auto before = static_cast<std::size_t>(at - rest);
            if (used + before + cappedString.size() + 1 > capped.size()) {
                return false;
            }
            std::memcpy(capped.data() + used, rest, before);
            std::memcpy(capped.data() + used + before, cappedString.data(), cappedString.size());
            used += before + cappedString.size();
            at += 2;
            rest = at;
        } else {
            ++at;
        }
    }
    const auto tail = static_cast<std::size_t>(at - rest);
    if (used + tail + 1 > capped.size()) {
        return false;
    }
    std::memcpy(capped.data() + used, rest, tail + 1);
    return true;
}

// The rewrite of both debug calls; it stays in the formatter.
void rewriteForDebug(std::uint32_t& recordWord, unsigned long type)
{
    if (word(type) == debugClassWord) {
        recordWord = (recordWord & recordTopByte) | debugRecordBytes;
    }
}

// Writes the record and prints the debug line from the same arguments.
int writeAndPrint(std::uint32_t record, std::uint32_t cls, const void* object, unsigned long type, const char* fmt,
                  va_list ap)
{
    // Formatting uses a list up, so the second use needs one of its own.
    va_list again;
    va_copy(again, ap);
    // "%m" has to read the same in both texts, whatever the trace service does to errno.
    const int callersErrno = errno;
    const int result = ldtr_write(record, cls, object, fmt, ap);
    errno = callersErrno;
    PrintDebugVa(type, fmt, again);
    va_end(again);
    return result;
}
} // namespace

int ldtr_init()
{
    return trcInit();
}

int safer_vsprintf(int size, char* dst, const char* fmt, va_list ap)
{
    if (dst == nullptr) {
        return noDestination;
    }
    if (size < 1) {
        return noRoom;
    }
    if (fmt == nullptr) {
        return noFormat;
    }
    if (isNullList(ap)) {
        return noArguments;
    }
    const auto room = static_cast<std::size_t>(size);
    // Bounded, so that a format without end costs no more than the room it would have to fit in.
    const std::size_t length = strnlen(fmt, room);
    if (length >= room) {
        return formatAsLongAsDestination;
    }
    if (length >= workingFormatSize) {
        return formatTooLong;
    }
    std::array<char, workingFormatSize> capped;
    if (!capStrings(capped, fmt)) {
        return workingFormatTooLong;
    }
    dst[room - 1] = '\0';
    const int textLength = std::vsnprintf(dst, room, capped.data(), ap);
    if (textLength < 0) {
        return formatterFailed;
    }
    return textLength >= size ? textTooLong : formatted;
}

int ldtr_write(unsigned long record, unsigned long cls, const void* object, const char* fmt, va_list ap)
{
    std::array<char, recordTextSize> text;
    const int failure = safer_vsprintf(recordTextSize, text.data(), fmt, ap);
    if (failure != formatted) {
        std::snprintf(text.data(), text.size(), "!!! safer_vsprintf error %d !!!", failure);
    }
    const auto length = static_cast<std::uint32_t>(std::strlen(text.data()));
    return trcWriteRec(word(record), word(cls), object, length, text.data(), 0, 0, 0, 0);
}

int ldtr_write(unsigned long record, unsigned long cls, const void* object)
{
    return trcWriteRec(word(record), word(cls), object, 0, nullptr, 0, 0, 0, 0);
}

int ldtr_exit_errcode(unsigned long cls, unsigned long probe, unsigned long eventBits, long errcode, const void* object)
{
    // The mask may change while threads trace; each record goes by the mask of its moment.
    const std::uint32_t enabled = std::atomic_ref<std::uint32_t>(trcEvents).load(std::memory_order_relaxed);
    const bool failureTraced = ((word(eventBits) << 1) & enabled) != 0 && errcode != 0;
    const std::uint32_t exitProbe = failureTraced ? word(probe) / 10 + 8 : word(probe);
    const auto recorded = static_cast<std::int32_t>(errcode);
    return trcWriteRec((exitProbe << 16) | exitRecordFlag, word(cls), object, sizeof recorded, &recorded, 0, 0, 0, 0);
}

int ldtr_formater_global::operator()(unsigned long type, const char* fmt, ...) const
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(recordWord, type, nullptr, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_global::new_delete(unsigned long type, const void* object, const char* fmt, ...) const
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(recordWord, type, object, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_global::debug(unsigned long type, const char* fmt, ...)
{
    rewriteForDebug(recordWord, type);
    va_list ap;
    va_start(ap, fmt);
    const int result = writeAndPrint(recordWord, word(type), nullptr, type, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_local::operator()(const char* fmt, ...) const
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(recordWord, classWord, object, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_local::operator()(unsigned long type, const char* fmt, ...) const
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(recordWord, classWord | (word(type) & typeByte), object, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_local::debug(unsigned long type, const char* fmt, ...)
{
    rewriteForDebug(recordWord, type);
    va_list ap;
    va_start(ap, fmt);
    const int result = writeAndPrint(recordWord, classWord | (word(type) & typeByte), object, type, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_local::new_delete(const void* otherObject, const char* fmt, ...) const
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(recordWord, classWord, otherObject, fmt, ap);
    va_end(ap);
    return result;
}

int ldtr_formater_local::new_delete(unsigned long type, const void* otherObject, const char* fmt, ...) const
{
    va_list ap;
    va_start(ap, fmt);
    const int result = ldtr_write(recordWord, classWord | (word(type) & typeByte), otherObject, fmt, ap);
    va_end(ap);
    return result;
}
