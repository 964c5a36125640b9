// Memory for a rendered text: blocks that are filled one behind the other.
#include "rendered_text.h"

#include "region.h"

#include <algorithm>
#include <new>

#include <sys/mman.h>

namespace veltor::detail {

namespace {

// Should the text turn out longer than expected, for instance by an entry that was added, this is room for a lot.
constexpr std::size_t smallestAddition = std::size_t{64} << 10U;
// From here on a block comes from the system, else from operator new.
constexpr std::size_t smallestMapping = std::size_t{128} << 10U;
// So much of a mapping is made ready at a time, a multiple of the size of a page.
constexpr std::size_t readyBytes = std::size_t{256} << 10U;

char* mapped(std::size_t bytes)
{
    void* const memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return static_cast<char*>(memory);
}

} // namespace

RenderedText::~RenderedText()
{
    for (const Block& block : blocks_) {
        if (block.isMapped) {
            munmap(block.bytes, block.capacity);
        } else {
            ::operator delete(block.bytes);
        }
    }
}

void RenderedText::appendSlowly(std::string_view text)
{
    while (!text.empty()) {
        if (room() == 0) {
            makeRoom();
        }
        const std::string_view part = text.substr(0, room());
        std::memcpy(next_, part.data(), part.size());
        next_ += part.size();
        text.remove_prefix(part.size());
    }
}

/// Everything that is ready is full.
void RenderedText::makeRoom()
{
    if (blocks_.empty() || end_ == blocks_.back().bytes + blocks_.back().capacity) {
        addBlock();
    }
    const Block& block = blocks_.back();
    const auto left = static_cast<std::size_t>(block.bytes + block.capacity - end_);
    if (!block.isMapped) {
        end_ += left;
        return;
    }
    const std::size_t ready = std::min(left, readyBytes);
    makeReady(end_, ready);
    end_ += ready;
}

void RenderedText::addBlock()
{
    const std::size_t bytes = std::max(blocks_.empty() ? expectedBytes_ : blockBytes_ / 4, smallestAddition);
    // First: a block must not get lost for want of a place in the list.
    blocks_.reserve(blocks_.size() + 1);
    blocks_.push_back(bytes < smallestMapping ? Block{static_cast<char*>(::operator new(bytes)), bytes, false}
                                              : Block{mapped(bytes), bytes, true});
    blockBytes_ += bytes;
    next_ = end_ = blocks_.back().bytes;
}

} // namespace veltor::detail
