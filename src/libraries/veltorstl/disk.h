// Whole files in and out of memory.
#ifndef VELTOR_DISK_H
#define VELTOR_DISK_H

#include <cstddef>
#include <string>
#include <string_view>

#include <sys/stat.h>

namespace veltor::detail {

/// The content of a file. Not a std::string, whose memory would be cleared before it is filled. A large one lies in
/// chunks, which can be given up one by one while it is being read through.
class FileText
{
public:
    /// @throws std::bad_alloc
    explicit FileText(std::size_t capacity);
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;
    FileText(FileText&& other) noexcept;
    FileText& operator=(FileText&& other) noexcept;
    ~FileText();

    char* data() { return bytes_; }
    std::size_t capacity() const { return capacity_; }
    void setSize(std::size_t size) { size_ = size; }
    std::string_view view() const { return {bytes_, size_}; }
    bool isInChunks() const { return chunks_ != 0; }

    /// Gives up the next chunk, if it lies before that position of the text: nothing reads what stands there again.
    /// @return the chunk, which now belongs to the caller (unmapChunks), or null
    void* giveUpChunkBefore(std::size_t position);

private:
    char* bytes_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
    std::size_t chunks_ = 0; // 0: the memory is from operator new
    std::size_t givenUp_ = 0;
};

/// Reads a file without ever waiting for one.
///
/// @throws LDIF_Exception 91/1004 "ifstream()" for a file that can't be opened, or that opening or reading would
///         have to wait for (a fifo, a terminal)
/// @throws std::system_error for a read that fails, and for a directory
FileText readWholeFile(const std::string& fileName);

class Descriptor;

/// Reads a file that may be open, for readWholeFile and whoever opens files in another way.
///
/// @param fileName  for the exception
/// @param status    is set to what the file was before it was read
/// @throws as readWholeFile, also when the descriptor holds nothing
FileText readOpened(const Descriptor& file, const std::string& fileName, struct stat& status);

class RenderedText;

/// Creates or truncates a file and writes a text to it. A write or close that fails is not reported.
///
/// @return false when the file can't be opened for writing
bool writeWholeFile(const std::string& fileName, const RenderedText& text);

} // namespace veltor::detail

#endif
