// Chunks of memory from the system, and the region that fills them.
#include "region.h"

#include <algorithm>
#include <utility>

#include <sys/mman.h>

namespace veltor::detail {

constinit thread_local RegionCursor* regionInForce = nullptr;

namespace {

// Keeps the count of a chunk that is being filled above zero, whatever is given back meanwhile.
constexpr std::size_t filling = std::size_t{1} << 40U;
constexpr std::size_t headBytes = 64;
// Multiples of the size of a page.
constexpr std::size_t smallestStep = std::size_t{32} << 10U;
constexpr std::size_t largestStep = std::size_t{256} << 10U;

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

void makeReady(char* begin, std::size_t bytes) noexcept
{
    // Whole pages of it; what is left at the ends is no loss.
    constexpr std::size_t pageBytes = 4096;
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(begin) & (pageBytes - 1);
    if (before < bytes) {
        // Where the system knows no such call, the pages come one by one.
        static_cast<void>(madvise(begin + before, bytes - before, MADV_POPULATE_WRITE));
    }
}

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
        makeReady(begin + before, count * chunkBytes);
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

Region::Region(bool fillsChunks) : outer_(regionInForce), stepBytes_(fillsChunks ? largestStep : smallestStep)
{
    regionInForce = piecewise ? nullptr : &cursor_;
}

Region::~Region()
{
    closeChunk();
    while (donations_ != nullptr) {
        unmapChunks(std::exchange(donations_, donations_->next), 1);
    }
    regionInForce = outer_;
}

void Region::donate(void* chunk) noexcept
{
    donations_ = new (chunk) Donation{donations_};
}

/// Prepares more of the current chunk. Few entries get little memory, and each step is twice the one before.
bool Region::nextStep() noexcept
{
    if (cursor_.end == chunkEnd_) {
        return false;
    }
    const std::size_t step = std::min(stepBytes_, static_cast<std::size_t>(chunkEnd_ - cursor_.end));
    makeReady(cursor_.end, step);
    cursor_.end += step;
    stepBytes_ = std::min(2 * stepBytes_, largestStep);
    return true;
}

bool Region::nextChunk() noexcept
{
    const bool isDonated = donations_ != nullptr;
    char* const memory =
        isDonated ? reinterpret_cast<char*>(std::exchange(donations_, donations_->next)) : mapChunks(1, false);
    if (memory == nullptr) {
        return false;
    }
    closeChunk();
    chunkEnd_ = memory + chunkBytes;
    cursor_.next = memory + headBytes;
    cursor_.end = isDonated ? chunkEnd_ : memory;
    if (!isDonated) {
        nextStep();
    }
    new (memory) ChunkHead{filling};
    return true;
}

/// The pieces handed out are what counts from now on.
void Region::closeChunk() noexcept
{
    if (cursor_.end == nullptr) {
        return;
    }
    ChunkHead* const chunk = chunkOf(cursor_.end - 1);
    const std::size_t excess = filling - cursor_.handedOut;
    if (chunk->live.fetch_sub(excess, std::memory_order_acq_rel) == excess) {
        releaseChunk(chunk);
    }
    cursor_ = {};
}

Piece obtainSlowly(std::size_t bytes, std::size_t alignment)
{
    auto* const region = reinterpret_cast<Region*>(regionInForce);
    if (bytes > largestPiece) {
        return {::operator new(bytes), false};
    }
    if (!region->nextStep() && !region->nextChunk()) {
        throw std::bad_alloc();
    }
    return obtain(bytes, alignment);
}

} // namespace veltor::detail
