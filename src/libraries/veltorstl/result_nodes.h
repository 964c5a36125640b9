// The nodes of a search result: how they are made, and how they are freed.
#ifndef VELTOR_RESULT_NODES_H
#define VELTOR_RESULT_NODES_H

#include "region.h"

#include "veltor/cfg.h"
#include "veltor/platform.h"

#include <cstddef>
#include <memory>
#include <optional>

namespace veltor::detail {

/// Thrown when a node or a text can't be allocated; the search answers 90 to it.
inline constexpr const char* outOfMemory = "OUT OF MEMORY!";

struct FreeDecoded
{
    void operator()(char* text) const { _slapd_utils_decode_buffer_free(text); }
};
/// What the password decoder gave.
using ClearText = std::unique_ptr<char, FreeDecoded>;

/// Makes the nodes of one result.
///
/// The usual node is a block from calloc, and its text one from malloc. A result of many nodes would be as many blocks
/// to find and to give back one by one: from some number on nodes come from a region, each with its text behind it.
/// Such a text begins at an odd address, which no block does. That tells the two kinds apart, whatever allocator the
/// program has, and also among nodes that a caller made and linked in.
class NodeMaker
{
public:
    /// A node with a copy of a text.
    cfg_message* withCopy(int kind, const char* text);

    /// A node with a clear text, which it takes over, or which is wiped once it is copied. It may be null.
    cfg_message* withClearText(int kind, ClearText text);

private:
    cfg_message* fromRegion(int kind, const char* text);

    std::size_t made_ = 0;
    std::optional<Region> region_;
};

/// Frees nodes one by one, of either kind.
class NodeRelease
{
public:
    NodeRelease() = default;
    NodeRelease(const NodeRelease&) = delete;
    NodeRelease& operator=(const NodeRelease&) = delete;
    ~NodeRelease() { settle(); }

    void release(cfg_message* node) noexcept;

private:
    void settle() noexcept;

    // Nodes of one chunk mostly follow each other: they are given back together.
    ChunkHead* chunk_ = nullptr;
    std::size_t count_ = 0;
};

} // namespace veltor::detail

#endif
