// Open files, and the system calls on them that every reader and writer of files needs.
#ifndef VELTOR_DESCRIPTOR_H
#define VELTOR_DESCRIPTOR_H

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <sys/types.h>
#include <unistd.h>

namespace veltor::detail {

/// Owns an open file, or nothing.
class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number_ >= 0) {
            close(number_);
        }
    }

    int get() const { return number_; }
    bool valid() const { return number_ >= 0; }
    /// The caller closes it.
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

/// Makes a system call that gives a negative number for a failure, again when a signal interrupted it.
template <class Call>
auto retried(Call&& call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Opens a file without waiting for one: a fifo in the file's place must not hold the caller.
/// @return the number, or -1 and errno
int opened(const std::string& fileName, int flags, mode_t mode);
/// The same in an open folder, without following a link at the end of the name.
int openedAt(int folder, const std::string& name, int flags, mode_t mode);

/// Reads up to `size` bytes; fewer only at the end of the file.
/// @throws std::system_error
std::size_t readUpTo(const Descriptor& file, char* bytes, std::size_t size);

/// @return false, and errno, when the system refuses to write the whole text
bool writeAll(const Descriptor& file, std::string_view text);

} // namespace veltor::detail

#endif
