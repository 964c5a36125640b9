// The text of a whole file on its way to the disk.
#ifndef VELTOR_RENDERED_TEXT_H
#define VELTOR_RENDERED_TEXT_H

#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

namespace veltor::detail {

/// A text that grows at its end and is never moved: a large std::string would be copied when it outgrows its memory,
/// and the system would be asked for that memory page by page. It takes what the functions take that append to a
/// std::string.
class RenderedText
{
public:
    /// @param expectedBytes  about how long the text is going to be; more is no error
    explicit RenderedText(std::size_t expectedBytes) : expectedBytes_(expectedBytes) {}
    RenderedText(const RenderedText&) = delete;
    RenderedText& operator=(const RenderedText&) = delete;
    ~RenderedText();

    /// @throws std::bad_alloc; the text then ends with some of what was to be appended
    RenderedText& append(std::string_view text)
    {
        // An empty text, whose pointer may be null, counts as too long.
        if (text.size() - 1 < room()) {
            std::memcpy(next_, text.data(), text.size());
            next_ += text.size();
        } else {
            appendSlowly(text);
        }
        return *this;
    }
    void push_back(char character)
    {
        if (room() != 0) {
            *next_++ = character;
        } else {
            appendSlowly({&character, 1});
        }
    }

    /// Hands the text over in pieces, in order, until one is refused. Needs no memory.
    /// @param take  gives false to refuse a std::string_view
    template <class Take>
    void handOver(Take&& take) const
    {
        for (const Block& block : blocks_) {
            const char* const end = &block == &blocks_.back() ? next_ : block.bytes + block.capacity;
            if (!take(std::string_view(block.bytes, static_cast<std::size_t>(end - block.bytes)))) {
                return;
            }
        }
    }

private:
    struct Block
    {
        char* bytes;
        std::size_t capacity;
        bool isMapped;
    };

    std::size_t room() const { return static_cast<std::size_t>(end_ - next_); }
    void appendSlowly(std::string_view text);
    void makeRoom();
    void addBlock();

    char* next_ = nullptr; // where the next byte goes
    char* end_ = nullptr;  // of what is ready in the last block
    std::vector<Block> blocks_;
    std::size_t expectedBytes_;
    std::size_t blockBytes_ = 0; // in all blocks
};

} // namespace veltor::detail

#endif
