// Whole files in and out of memory.
#ifndef VELTOR_DISK_H
#define VELTOR_DISK_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace veltor::detail {

/// The content of a file. Not a std::string, whose memory would be cleared before it is filled.
class FileText
{
public:
    FileText(std::unique_ptr<char[]> bytes, std::size_t size) : bytes_(std::move(bytes)), size_(size) {}

    std::string_view view() const { return {bytes_.get(), size_}; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};

/// Reads a file without ever waiting for one.
///
/// @throws LDIF_Exception 91/1004 "ifstream()" for a file that can't be opened, or that opening or reading would
///         have to wait for (a fifo, a terminal)
/// @throws std::system_error for a read that fails, and for a directory
FileText readWholeFile(const std::string& fileName);

/// Creates or truncates a file and writes a text to it. A write or close that fails is not reported.
///
/// @return false when the file can't be opened for writing
bool writeWholeFile(const std::string& fileName, std::string_view text);

} // namespace veltor::detail

#endif
