// Chunks of memory from the system, and the region that fills them.
#include "region.h"

#include <utility>

#include <sys/mman.h>

namespace veltor::detail {

constinit thread_local RegionCursor* regionInForce = nullptr;

namespace {

// Keeps the count of a chunk that is being filled above zero, whatever is given back meanwhile.
constexpr std::size_t filling = std::size_t{1} << 40U;
constexpr std::size_t headBytes = 64;

#if defined(__SANITIZE_ADDRESS__)
// Every piece by itself, so that the sanitizer sees where it ends and when it dies.
constexpr bool piecewise = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool piecewise = true;
#else
constexpr bool piecewise = false;
#endif
#else
constexpr bool piecewise = false;
#endif

} // namespace

char* mapChunks(std::size_t count, bool inUseSoon) noexcept
{
    // One more than needed, so that they can begin at a multiple of their size.
    const std::size_t bytes = (count + 1) * chunkBytes;
    void* const mapped =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    auto* const begin = static_cast<char*>(mapped);
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(begin) & (chunkBytes - 1);
    if (before != 0) {
        munmap(begin, before);
    }
    munmap(begin + before + count * chunkBytes, chunkBytes - before);
    if (inUseSoon) {
        // One call instead of a fault for every page. Where the system knows no such call, they come one by one.
        static_cast<void>(madvise(begin + before, count * chunkBytes, MADV_POPULATE_WRITE));
    }
    return begin + before;
}

void unmapChunks(void* first, std::size_t count) noexcept
{
    munmap(first, count * chunkBytes);
}

void releaseChunk(ChunkHead* chunk) noexcept
{
    unmapChunks(chunk, 1);
}

LoadRegion::LoadRegion(bool fillsChunks) : outer_(regionInForce), fillsChunks_(fillsChunks)
{
    regionInForce = piecewise ? nullptr : &cursor_;
}

LoadRegion::~LoadRegion()
{
    closeChunk();
    while (donations_ != nullptr) {
        unmapChunks(std::exchange(donations_, donations_->next), 1);
    }
    regionInForce = outer_;
}

void LoadRegion::donate(void* chunk) noexcept
{
    donations_ = new (chunk) Donation{donations_};
}

bool LoadRegion::nextChunk()
{
    char* const memory = donations_ == nullptr ? mapChunks(1, fillsChunks_)
                                               : reinterpret_cast<char*>(std::exchange(donations_, donations_->next));
    if (memory == nullptr) {
        return false;
    }
    closeChunk();
    new (memory) ChunkHead{filling};
    cursor_.next = memory + headBytes;
    cursor_.end = memory + chunkBytes;
    return true;
}

/// The pieces handed out are what counts from now on.
void LoadRegion::closeChunk() noexcept
{
    if (cursor_.end == nullptr) {
        return;
    }
    auto* const chunk = reinterpret_cast<ChunkHead*>(cursor_.end - chunkBytes);
    const std::size_t excess = filling - cursor_.handedOut;
    if (chunk->live.fetch_sub(excess, std::memory_order_acq_rel) == excess) {
        releaseChunk(chunk);
    }
    cursor_ = {};
}

Piece obtainSlowly(std::size_t bytes, std::size_t alignment)
{
    auto* const region = reinterpret_cast<LoadRegion*>(regionInForce);
    if (bytes > largestPiece) {
        return {::operator new(bytes), false};
    }
    if (!region->nextChunk()) {
        throw std::bad_alloc();
    }
    return obtain(bytes, alignment);
}

} // namespace veltor::detail
