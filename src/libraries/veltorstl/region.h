// Memory for what is built in one go: by a load, or as a large search result.
//
// Either makes many small pieces that mostly live and die together. While a Region is in force they are laid
// side by side in large chunks: no book-keeping for each piece, no gaps, and what is read together lies
// together. A piece does not depend on the region or on the store: each chunk counts the pieces in it that still
// live and goes back to the system with the last of them, so a piece may be moved anywhere, also to another thread.
//
// Outside of a region, pieces come from operator new: what a running server changes one by one comes and goes in
// no order, and one long-lived piece would keep a chunk.
#ifndef VELTOR_REGION_H
#define VELTOR_REGION_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace veltor::detail {

/// Where a piece of memory came from has to be remembered by its owner: giveBack wants to be told.
struct Piece
{
    void* memory;
    bool fromRegion;
};

/// Chunks are aligned to their size, so that a piece finds the head of its chunk.
inline constexpr std::size_t chunkBytes = std::size_t{2} << 20U;

// Larger pieces would leave much of a chunk unused.
inline constexpr std::size_t largestPiece = chunkBytes / 8;

struct ChunkHead
{
    std::atomic<std::size_t> live; // pieces in use; a large number more while the chunk is being filled
};

/// Where the next piece of the region in force on this thread goes.
struct RegionCursor
{
    char* next = nullptr;
    char* end = nullptr;
    std::size_t handedOut = 0; // pieces of the current chunk
};

// Read on every allocation: the model spares the call that a shared library pays otherwise.
extern __attribute__((tls_model("initial-exec"))) constinit thread_local RegionCursor* regionInForce;

/// Prepares memory that is about to be written to, as one call where there would be a fault for every page.
/// @param bytes  not more than soon follows: the caches shall still hold it then
void makeReady(char* begin, std::size_t bytes) noexcept;

/// Chunks from the system, one behind the other; null when memory is short. Each goes back by itself.
/// @param inUseSoon  all of it is about to be written to
char* mapChunks(std::size_t count, bool inUseSoon) noexcept;
void unmapChunks(void* first, std::size_t count) noexcept;

Piece obtainSlowly(std::size_t bytes, std::size_t alignment);
void releaseChunk(ChunkHead* chunk) noexcept;

/// Memory for a piece. @throws std::bad_alloc
/// @param bytes      at least one
/// @param alignment  a power of two, at most that of std::max_align_t
inline Piece obtain(std::size_t bytes, std::size_t alignment)
{
    RegionCursor* const cursor = regionInForce;
    if (cursor == nullptr) {
        return {::operator new(bytes), false};
    }
    const auto misfit = reinterpret_cast<std::uintptr_t>(cursor->next) & (alignment - 1);
    const std::size_t needed = bytes + (misfit == 0 ? 0 : alignment - misfit);
    if (needed > static_cast<std::size_t>(cursor->end - cursor->next)) {
        return obtainSlowly(bytes, alignment);
    }
    cursor->next += needed;
    ++cursor->handedOut;
    return {cursor->next - bytes, true};
}

/// Memory from the region in force; null without one, and for a piece that is too large for a chunk.
/// @throws std::bad_alloc
inline void* obtainFromRegion(std::size_t bytes, std::size_t alignment)
{
    return regionInForce == nullptr || bytes > largestPiece ? nullptr : obtain(bytes, alignment).memory;
}

/// The chunk in which a piece from a region lies.
inline ChunkHead* chunkOf(const void* memory) noexcept
{
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(memory) & (chunkBytes - 1);
    return reinterpret_cast<ChunkHead*>(const_cast<char*>(static_cast<const char*>(memory)) - offset);
}

/// Takes so many pieces of a chunk back. Thread-safe.
inline void giveBackPieces(ChunkHead* chunk, std::size_t count) noexcept
{
    if (chunk->live.fetch_sub(count, std::memory_order_acq_rel) == count) {
        releaseChunk(chunk);
    }
}

/// Takes a piece back. Thread-safe.
inline void giveBack(void* memory, bool fromRegion) noexcept
{
    if (fromRegion) {
        giveBackPieces(chunkOf(memory), 1);
    } else {
        ::operator delete(memory);
    }
}

/// Memory for an object whose class has an operator new of its own: where it came from stands in front of it.
inline constexpr std::size_t markBytes = 8;

inline void* obtainMarked(std::size_t bytes)
{
    const Piece piece = obtain(markBytes + bytes, markBytes);
    *static_cast<bool*>(piece.memory) = piece.fromRegion;
    return static_cast<char*>(piece.memory) + markBytes;
}

inline void giveBackMarked(void* object) noexcept
{
    char* const memory = static_cast<char*>(object) - markBytes;
    giveBack(memory, *reinterpret_cast<bool*>(memory));
}

/// Puts a region in force on this thread for as long as it lives. They may be nested.
class Region
{
public:
    /// @param fillsChunks  so much is going to be made that large steps are worth preparing from the start on
    explicit Region(bool fillsChunks = false);
    /// Takes over a chunk from mapChunks whose content nobody needs any more. Its pages are there already.
    void donate(void* chunk) noexcept;

    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;
    ~Region();

private:
    friend Piece obtainSlowly(std::size_t bytes, std::size_t alignment);

    bool nextStep() noexcept;
    bool nextChunk() noexcept;
    void closeChunk() noexcept;

    struct Donation
    {
        Donation* next;
    };

    RegionCursor cursor_;           // first: the cursor in force is the region
    Donation* donations_ = nullptr; // they lie in the donated chunks
    RegionCursor* outer_;
    char* chunkEnd_ = nullptr; // what lies between the cursor's end and this is not ready yet
    std::size_t stepBytes_;
};

} // namespace veltor::detail

#endif
