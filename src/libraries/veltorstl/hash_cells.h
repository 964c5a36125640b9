// The open addressing under the indexes of the tree.
#ifndef VELTOR_HASH_CELLS_H
#define VELTOR_HASH_CELLS_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace veltor::detail {

/// Values by hashes, of which 32 bits are kept: whoever finds a value makes sure that it is the one that is meant. One
/// hash may have several values.
///
/// @tparam Value  Value{} is no value
template <class Value>
class HashCells
{
public:
    explicit HashCells(std::size_t expected = 0) : cells_(std::bit_ceil(std::max<std::size_t>(fewest, 2 * expected))) {}

    void add(std::uint64_t hash, Value value)
    {
        if (2 * (used_ + 1) > cells_.size()) {
            grow();
        }
        place({kept(hash), value});
    }

    /// The first value of that hash for which `isMeant` is true, to be changed as one likes; null if there is none.
    template <class IsMeant>
    Value* find(std::uint64_t hash, IsMeant&& isMeant)
    {
        const std::uint32_t wanted = kept(hash);
        for (std::size_t position = wanted & mask(); cells_[position].value != Value{};
             position = (position + 1) & mask()) {
            if (cells_[position].hash == wanted && isMeant(cells_[position].value)) {
                return &cells_[position].value;
            }
        }
        return nullptr;
    }

    /// How many values there are.
    std::size_t size() const { return used_; }

    /// Takes out the values for which `isGone` is true, and gives back the room that they took. Walks over everything.
    /// @throws std::bad_alloc, with everything as it was
    template <class IsGone>
    void takeOut(IsGone&& isGone)
    {
        const auto stays = [&isGone](const Cell& cell) { return cell.value != Value{} && !isGone(cell.value); };
        // With room for as many more.
        HashCells kept(2 * static_cast<std::size_t>(std::count_if(cells_.begin(), cells_.end(), stays)));
        for (const Cell& cell : cells_) {
            if (stays(cell)) {
                kept.place(cell);
            }
        }
        *this = std::move(kept);
    }

    /// Has the place of a hash fetched, for somebody who asks for several.
    void prefetch(std::uint64_t hash) const { __builtin_prefetch(&cells_[kept(hash) & mask()]); }

private:
    struct Cell
    {
        std::uint32_t hash = 0;
        Value value{};
    };
    static constexpr std::size_t fewest = 64;

    static std::uint32_t kept(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32U); }
    std::size_t mask() const { return cells_.size() - 1; }

    void grow()
    {
        std::vector<Cell> old(cells_.size() * 2);
        old.swap(cells_);
        used_ = 0;
        for (const Cell& cell : old) {
            if (cell.value != Value{}) {
                place(cell);
            }
        }
    }

    void place(const Cell& cell)
    {
        std::size_t position = cell.hash & mask();
        while (cells_[position].value != Value{}) {
            position = (position + 1) & mask();
        }
        cells_[position] = cell;
        ++used_;
    }

    std::vector<Cell> cells_; // a power of two
    std::size_t used_ = 0;
};

} // namespace veltor::detail

#endif
