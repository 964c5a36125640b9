// Whole files in and out of memory, by plain system calls.
#include "disk.h"

#include "LDIF_Exception.h"
#include "descriptor.h"
#include "region.h"
#include "rendered_text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veltor::detail {

namespace {

constexpr int withoutWaiting = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;

[[noreturn]] void refuseOpen(int line, const std::string& fileName)
{
    LDIF_Exception failure(__FILE_NAME__, line, result::connectError, 1004, "ifstream()");
    failure.configFile = fileName;
    throw failure;
}

} // namespace

int opened(const std::string& fileName, int flags, mode_t mode)
{
    return retried([&] { return open(fileName.c_str(), flags | withoutWaiting, mode); });
}

int openedAt(int folder, const std::string& name, int flags, mode_t mode)
{
    return retried([&] { return openat(folder, name.c_str(), flags | O_NOFOLLOW | withoutWaiting, mode); });
}

std::size_t readUpTo(const Descriptor& file, char* bytes, std::size_t size)
{
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got = read(file.get(), bytes + filled, size - filled);
        if (got == 0) {
            break;
        }
        if (got > 0) {
            filled += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category());
        }
    }
    return filled;
}

bool writeAll(const Descriptor& file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(file.get(), text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

FileText::FileText(std::size_t capacity) : capacity_(capacity)
{
    constexpr std::size_t fewestChunks = 2;
    // Less lies in memory that the allocator has used before.
    constexpr std::size_t worthPreparing = std::size_t{128} << 10U;
    if (capacity < fewestChunks * chunkBytes) {
        bytes_ = static_cast<char*>(::operator new(capacity));
        if (capacity >= worthPreparing) {
            makeReady(bytes_, capacity);
        }
        return;
    }
    chunks_ = (capacity + chunkBytes - 1) / chunkBytes;
    bytes_ = mapChunks(chunks_, true);
    if (bytes_ == nullptr) {
        throw std::bad_alloc();
    }
}

FileText::FileText(FileText&& other) noexcept
{
    *this = std::move(other);
}

FileText& FileText::operator=(FileText&& other) noexcept
{
    std::swap(bytes_, other.bytes_);
    std::swap(capacity_, other.capacity_);
    std::swap(size_, other.size_);
    std::swap(chunks_, other.chunks_);
    std::swap(givenUp_, other.givenUp_);
    return *this;
}

FileText::~FileText()
{
    if (chunks_ == 0) {
        ::operator delete(bytes_);
    } else if (givenUp_ < chunks_) {
        unmapChunks(bytes_ + givenUp_ * chunkBytes, chunks_ - givenUp_);
    }
}

void* FileText::giveUpChunkBefore(std::size_t position)
{
    if (givenUp_ == chunks_ || (givenUp_ + 1) * chunkBytes > position) {
        return nullptr;
    }
    return bytes_ + givenUp_++ * chunkBytes;
}

FileText readWholeFile(const std::string& fileName)
{
    const Descriptor file(opened(fileName, O_RDONLY, 0));
    struct stat status = {};
    return readOpened(file, fileName, status);
}

FileText readOpened(const Descriptor& file, const std::string& fileName, struct stat& status)
{
    if (!file.valid() || retried([&] { return fstat(file.get(), &status); }) != 0) {
        refuseOpen(__LINE__, fileName);
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        // A device that is at its end at once is an empty file; every other has to be waited for or never ends.
        char byte = 0;
        if (!S_ISCHR(status.st_mode) || read(file.get(), &byte, 1) != 0) {
            refuseOpen(__LINE__, fileName);
        }
    }
    // One byte more than the file has, so that a single read finds its end; files that tell no size grow.
    FileText text(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t size = readUpTo(file, text.data(), text.capacity());
    while (size == text.capacity()) {
        FileText larger(std::max<std::size_t>(2 * size, 65536));
        std::memcpy(larger.data(), text.data(), size);
        text = std::move(larger);
        size += readUpTo(file, text.data() + size, text.capacity() - size);
    }
    text.setSize(size);
    return text;
}

bool writeWholeFile(const std::string& fileName, const RenderedText& text)
{
    constexpr mode_t everybodyUnlessMasked = 0666;
    const Descriptor file(opened(fileName, O_WRONLY | O_CREAT | O_TRUNC, everybodyUnlessMasked));
    if (!file.valid()) {
        return false;
    }
    text.handOver([&file](std::string_view piece) { return writeAll(file, piece); });
    return true;
}

} // namespace veltor::detail
