// Stands between the library and mmap.
#include "support/mapping_watch.h"

#include <sys/mman.h>

using namespace veltor::test;

extern "C" {
void* __real_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset);
int __real_munmap(void* address, size_t length);

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset)
{
    if (mappingFails) {
        return MAP_FAILED;
    }
    mappedBytes += length;
    return __real_mmap(address, length, protection, flags, file, offset);
}

int __wrap_munmap(void* address, size_t length)
{
    mappedBytes -= length;
    return __real_munmap(address, length);
}
}
