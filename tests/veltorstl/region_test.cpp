// Memory of a load: where pieces come from, how long their chunks stay, and what happens when the system has no more.
//
// Chunks are counted and made to fail. In a build with the address sanitizer every piece comes from operator new, and
// there are no chunks to count.
#include "region.h"

#include "disk.h"
#include "rendered_text.h"
#include "support/mapping_watch.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace veltor::test;
using veltor::detail::chunkBytes;
using veltor::detail::obtain;
using veltor::detail::Piece;
using veltor::detail::Region;

namespace {

Piece filled(std::size_t bytes, std::size_t alignment = 8)
{
    const Piece piece = obtain(bytes, alignment);
    std::memset(piece.memory, 0x5A, bytes);
    return piece;
}

std::vector<Piece> manyFilled(std::size_t count, std::size_t bytes)
{
    std::vector<Piece> pieces(count);
    for (Piece& piece : pieces) {
        piece = filled(bytes);
    }
    return pieces;
}

bool isFilled(const Piece& piece, std::size_t bytes)
{
    const auto* const memory = static_cast<const unsigned char*>(piece.memory);
    for (std::size_t index = 0; index < bytes; ++index) {
        if (memory[index] != 0x5A) {
            return false;
        }
    }
    return true;
}

void giveBack(const Piece& piece)
{
    veltor::detail::giveBack(piece.memory, piece.fromRegion);
}

void giveBack(const std::vector<Piece>& pieces)
{
    for (const Piece& piece : pieces) {
        giveBack(piece);
    }
}

} // namespace

TEST(Region, WithoutOnePiecesComeFromOperatorNew)
{
    const MappingWatch watch;
    const Piece piece = filled(100);
    EXPECT_FALSE(piece.fromRegion);
    EXPECT_EQ(watch.chunks(), 0U);
    giveBack(piece);
}

TEST(Region, PiecesLieSideBySideInOneChunk)
{
    const MappingWatch watch;
    {
        const Region region;
        const std::vector<Piece> pieces = manyFilled(1000, 40);
        EXPECT_EQ(watch.chunks(), expectedChunks(1));
        EXPECT_TRUE(watch.isWhole());
        if (!piecewise) {
            for (std::size_t index = 1; index < pieces.size(); ++index) {
                EXPECT_EQ(static_cast<char*>(pieces[index].memory) - static_cast<char*>(pieces[index - 1].memory), 40);
            }
        }
        for (const Piece& piece : pieces) {
            EXPECT_EQ(piece.fromRegion, !piecewise);
            EXPECT_TRUE(isFilled(piece, 40));
            giveBack(piece);
        }
        // The region goes on with the chunk at hand, though nothing in it is in use.
        EXPECT_EQ(watch.chunks(), expectedChunks(1));
    }
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST(Region, PiecesAreAlignedAsAsked)
{
    const Region region;
    std::vector<Piece> pieces;
    for (const std::size_t alignment : {1U, 2U, 4U, 8U, 16U, 16U, 1U, 16U, 2U, 8U}) {
        pieces.push_back(filled(alignment + 1, alignment));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pieces.back().memory) % alignment, 0U) << alignment;
    }
    giveBack(pieces);
}

TEST(Region, ARegionThatGaveNothingMapsNothing)
{
    const MappingWatch watch;
    {
        const Region region;
        EXPECT_EQ(watch.chunks(), 0U);
    }
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST(Region, AChunkGoesBackWithItsLastPiece)
{
    const MappingWatch watch;
    std::vector<Piece> pieces;
    {
        const Region region;
        pieces = manyFilled(10, 64);
    }
    while (!pieces.empty()) {
        EXPECT_EQ(watch.chunks(), expectedChunks(1));
        EXPECT_TRUE(isFilled(pieces.back(), 64));
        giveBack(pieces.back());
        pieces.pop_back();
    }
    EXPECT_EQ(watch.chunks(), 0U);
    EXPECT_TRUE(watch.isWhole());
}

TEST(Region, EachChunkGoesBackByItself)
{
    const MappingWatch watch;
    constexpr std::size_t pieceBytes = chunkBytes / 16;
    std::vector<Piece> pieces;
    {
        const Region region;
        pieces = manyFilled(45, pieceBytes);
        // 15 fit into a chunk, whose head takes the room of the sixteenth.
        EXPECT_EQ(watch.chunks(), expectedChunks(3));
    }
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        EXPECT_TRUE(isFilled(pieces[index], pieceBytes));
        giveBack(pieces[index]);
        EXPECT_EQ(watch.chunks(), expectedChunks(3 - (index + 1) / 15));
    }
}

TEST(Region, AnotherThreadMayGivePiecesBack)
{
    const MappingWatch watch;
    std::vector<Piece> pieces;
    {
        const Region region;
        pieces = manyFilled(20000, 32);
        // Half of them while the region still fills the chunk.
        std::thread other([&pieces] {
            for (std::size_t index = 0; index < pieces.size() / 2; ++index) {
                giveBack(pieces[index]);
            }
        });
        const std::vector<Piece> more = manyFilled(20000, 32);
        other.join();
        giveBack(more);
    }
    EXPECT_EQ(watch.chunks(), expectedChunks(1));
    // The other half by two threads at a time.
    const auto giveEverySecond = [&pieces](std::size_t first) {
        for (std::size_t index = first; index < pieces.size(); index += 2) {
            giveBack(pieces[index]);
        }
    };
    std::thread other(giveEverySecond, pieces.size() / 2);
    giveEverySecond(pieces.size() / 2 + 1);
    other.join();
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST(Region, IsInForceOnItsOwnThreadAlone)
{
    const Region region;
    bool fromRegion = true;
    std::thread([&fromRegion] {
        const Piece piece = filled(16);
        fromRegion = piece.fromRegion;
        giveBack(piece);
    }).join();
    EXPECT_FALSE(fromRegion);
    const Piece piece = filled(16);
    EXPECT_EQ(piece.fromRegion, !piecewise);
    giveBack(piece);
}

TEST(Region, MayBeNested)
{
    const MappingWatch watch;
    Piece outerPiece{};
    Piece innerPiece{};
    {
        const Region outer;
        outerPiece = filled(16);
        {
            const Region inner;
            innerPiece = filled(16);
            EXPECT_EQ(watch.chunks(), expectedChunks(2));
        }
        const Piece next = filled(16);
        if (!piecewise) {
            EXPECT_EQ(static_cast<char*>(next.memory), static_cast<char*>(outerPiece.memory) + 16);
        }
        giveBack(next);
        EXPECT_EQ(watch.chunks(), expectedChunks(2));
    }
    const Piece outside = filled(1);
    EXPECT_FALSE(outside.fromRegion);
    giveBack(outside);
    giveBack(outerPiece);
    EXPECT_EQ(watch.chunks(), expectedChunks(1));
    giveBack(innerPiece);
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST(Region, LargePiecesComeFromOperatorNew)
{
    const MappingWatch watch;
    const Region region;
    const Piece small = filled(16);
    const Piece large = filled(chunkBytes);
    EXPECT_FALSE(large.fromRegion);
    EXPECT_EQ(watch.chunks(), expectedChunks(1));
    // The chunk at hand goes on where it was.
    const Piece next = filled(16);
    if (!piecewise) {
        EXPECT_EQ(static_cast<char*>(next.memory), static_cast<char*>(small.memory) + 16);
    }
    giveBack({small, large, next});
}

TEST(Region, ASystemWithoutMemoryIsAFailedAllocation)
{
    if (piecewise) {
        GTEST_SKIP() << "pieces come from operator new in this build";
    }
    const MappingWatch watch;
    {
        const Region region;
        mappingFails = true;
        EXPECT_THROW((void)obtain(16, 8), std::bad_alloc);
        mappingFails = false;
        // The region works once there is memory again, also when it fails in the middle.
        const Piece first = filled(16);
        std::vector<Piece> pieces;
        mappingFails = true;
        try {
            for (;;) {
                pieces.push_back(filled(chunkBytes / 16));
            }
        } catch (const std::bad_alloc&) {
        }
        mappingFails = false;
        EXPECT_EQ(pieces.size(), 15U);
        pieces.push_back(filled(chunkBytes / 16));
        EXPECT_EQ(watch.chunks(), 2U);
        EXPECT_TRUE(isFilled(first, 16));
        giveBack(first);
        giveBack(pieces);
    }
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST(Region, LargeTextsThatFindNoMappingTellOfShortMemory)
{
    if (piecewise) {
        GTEST_SKIP() << "the sanitizer maps memory of its own meanwhile; the plain build runs this";
    }
    const std::string piece(1000, 'x');
    veltor::detail::RenderedText rendered(2 * chunkBytes);
    mappingFails = true;
    EXPECT_THROW(veltor::detail::FileText(2 * chunkBytes), std::bad_alloc);
    EXPECT_NO_THROW(veltor::detail::FileText(1000)) << "small ones are not mapped";
    EXPECT_THROW(rendered.append(piece), std::bad_alloc);
    mappingFails = false;
    rendered.append(piece);
    std::string text;
    rendered.handOver([&text](std::string_view part) {
        text += part;
        return true;
    });
    EXPECT_EQ(text, piece) << "the text can be gone on with";
}
