// A text as a file that is nowhere on a disk, for what reads files alone.
#ifndef VELTOR_TOOL_MEMORY_FILE_H
#define VELTOR_TOOL_MEMORY_FILE_H

#include "failure.h"
#include "ldif_output.h"

#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace veltor::tool {

class MemoryFile
{
public:
    explicit MemoryFile(std::string_view text) : descriptor_(::memfd_create("veltor", MFD_CLOEXEC))
    {
        if (descriptor_ < 0) {
            throw Failure(ExitCode::internal, "there is no memory to check the text in", {"nothing was written"});
        }
        writeOut(descriptor_, text);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(descriptor_); }

    /// A name that this process can open, as long as the object lives.
    std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

} // namespace veltor::tool

#endif
