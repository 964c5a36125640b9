// What the fuzz targets share. A target is one property of the library that holds for any bytes: it reads them, does
// the same thing in two ways or there and back, and aborts the process when the property does not hold.
#ifndef VELTOR_FUZZ_FUZZ_H
#define VELTOR_FUZZ_FUZZ_H

#include "LDIF_Exception.h"

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

/// Looks at one input. The fuzzer calls it with ever new bytes, the replay with those of the corpus.
/// @return 0
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace veltor::fuzz {

/// Ends the process with a finding, told on standard error.
[[noreturn]] inline void find(std::string_view property, std::string_view left = {}, std::string_view right = {})
{
    std::fprintf(stderr, "fuzz: this does not hold: %.*s\n", static_cast<int>(property.size()), property.data());
    if (!left.empty() || !right.empty()) {
        std::fprintf(stderr, "--- one\n%.*s\n--- other\n%.*s\n---\n", static_cast<int>(left.size()), left.data(),
                     static_cast<int>(right.size()), right.data());
    }
    std::abort();
}

inline void require(bool holds, std::string_view property, std::string_view left = {}, std::string_view right = {})
{
    if (!holds) {
        find(property, left, right);
    }
}

inline void requireSame(std::string_view property, std::string_view left, std::string_view right)
{
    require(left == right, property, left, right);
}

/// Sets the locale of the process. One that this system lacks must not let a target look at less.
inline void useLocale(const char* name)
{
    if (std::setlocale(LC_ALL, name) == nullptr) {
        std::fprintf(stderr, "fuzz: this system has no locale %s\n", name);
        std::abort();
    }
}

/// The bytes of an input as text.
inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return size == 0 ? std::string_view() : std::string_view(reinterpret_cast<const char*>(data), size);
}

/// Takes a text up to a separator off the front of another one, and the separator with it.
inline std::string_view takeUpTo(std::string_view& rest, std::string_view separator)
{
    const auto end = rest.find(separator);
    const auto front = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + separator.size());
    return front;
}

/// Runs work that may fail with an LDIF_Exception and with no other one.
/// @return the failure, if it failed
template <class Work>
std::optional<LDIF_Exception> failureOf(Work&& work)
{
    try {
        std::forward<Work>(work)();
        return std::nullopt;
    } catch (const LDIF_Exception& failure) {
        // Nothing here is short of memory: a failure of the system is a foreign exception that was translated.
        require(!failure.isSystemFailure(), "no failure of the system", failure.dump());
        return failure;
    }
}

/// What a failure tells, in one line; "" for none.
inline std::string reasonOf(const std::optional<LDIF_Exception>& failure)
{
    return !failure ? ""
                    : std::to_string(failure->ldapErr) + "/" + std::to_string(failure->extErr) + " " + failure->msg +
                          " [" + failure->value + "]";
}

/// A file in memory with a name by which it can be opened.
class MemoryFile
{
public:
    explicit MemoryFile(std::string_view content) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC))
    {
        require(descriptor_ >= 0, "there is a file in memory");
        while (!content.empty()) {
            const ssize_t written = write(descriptor_, content.data(), content.size());
            require(written > 0, "the file in memory takes the text");
            content.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(descriptor_); }

    std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

    std::string content() const
    {
        std::string text;
        char buffer[4096];
        ssize_t count = 0;
        while ((count = pread(descriptor_, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
        require(count == 0, "the file in memory can be read");
        return text;
    }

private:
    int descriptor_;
};

} // namespace veltor::fuzz

#endif
