// The nodes of a search result: how they are made, and how they are freed.
#include "result_nodes.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace veltor::detail {

namespace {

// The nodes of some dozens of entries.
constexpr std::size_t usualNodes = 1024;

// The first odd address behind a node.
constexpr std::size_t textOffset = sizeof(cfg_message) + 1;
static_assert(alignof(cfg_message) % 2 == 0);

char* placeBehind(cfg_message* node)
{
    return reinterpret_cast<char*>(node) + textOffset;
}

cfg_message* fromMalloc(int kind)
{
    auto* const node = static_cast<cfg_message*>(std::calloc(1, sizeof(cfg_message)));
    if (node == nullptr) {
        throw outOfMemory;
    }
    node->kind = kind;
    return node;
}

} // namespace

/// A node of the region, with a copy of the text behind it; null where there is no region, and for a text that
/// does not suit one.
cfg_message* NodeMaker::fromRegion(int kind, const char* text)
{
    if (++made_ <= usualNodes) {
        return nullptr;
    }
    if (!region_) {
        region_.emplace();
    }
    const std::size_t textBytes = std::strlen(text) + 1;
    try {
        void* const place = obtainFromRegion(textOffset + textBytes, alignof(cfg_message));
        if (place == nullptr) {
            return nullptr;
        }
        auto* const node = new (place) cfg_message{};
        node->kind = kind;
        node->text = placeBehind(node);
        std::memcpy(node->text, text, textBytes);
        return node;
    } catch (const std::bad_alloc&) {
        throw outOfMemory;
    }
}

cfg_message* NodeMaker::withCopy(int kind, const char* text)
{
    if (cfg_message* const node = fromRegion(kind, text)) {
        return node;
    }
    cfg_message* const node = fromMalloc(kind);
    node->text = strdup(text);
    if (node->text == nullptr) {
        std::free(node);
        throw outOfMemory;
    }
    return node;
}

cfg_message* NodeMaker::withClearText(int kind, ClearText text)
{
    if (text != nullptr) {
        if (cfg_message* const node = fromRegion(kind, text.get())) {
            explicit_bzero(text.get(), std::strlen(text.get()));
            return node;
        }
    }
    cfg_message* const node = fromMalloc(kind);
    node->text = text.release();
    return node;
}

void NodeRelease::release(cfg_message* node) noexcept
{
    if (node->text != placeBehind(node)) {
        std::free(node->text);
        std::free(node);
        return;
    }
    if (ChunkHead* const chunk = chunkOf(node); chunk != chunk_) {
        settle();
        chunk_ = chunk;
    }
    ++count_;
}

void NodeRelease::settle() noexcept
{
    if (count_ != 0) {
        giveBackPieces(chunk_, count_);
        count_ = 0;
    }
}

} // namespace veltor::detail
