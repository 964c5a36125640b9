// The index of a value list: open addressing over hashes.
#include "value_index.h"

#include "LDIF_AttrType.h"
#include "LDIF_Value.h"

#include <algorithm>
#include <bit>
#include <new>

namespace veltor::detail {

std::unique_ptr<ValueIndex> ValueIndex::of(const _AttrType& type, std::span<const LDIF_Value> values) noexcept
{
    std::unique_ptr<ValueIndex> index(new (std::nothrow) ValueIndex(type));
    constexpr std::size_t fewest = 64;
    if (index == nullptr || values.size() >= left - 1 ||
        !index->grow(std::max(fewest, std::bit_ceil(values.size() * 4)))) {
        return nullptr;
    }
    for (std::size_t position = 0; position < values.size(); ++position) {
        if (values[position].attrType != &type) {
            return nullptr;
        }
        const auto key = index->keyOf(values[position]);
        if (!key) {
            return nullptr;
        }
        index->place({*key, static_cast<std::uint32_t>(position + 1)});
    }
    return index;
}

std::optional<ValueIndex::Key> ValueIndex::keyOf(const LDIF_Value& value) const noexcept
{
    const auto hash = matchHash(value, fold_);
    return hash ? std::optional(static_cast<Key>(*hash >> 32U)) : std::nullopt;
}

std::size_t ValueIndex::find(std::span<const LDIF_Value> values, const LDIF_Value& candidate, Key key) const
{
    // All cells of the key are looked at: of equal values, which others may have put in, the first counts.
    std::size_t found = none;
    for (std::size_t cell = key & mask_; cells_[cell].content != 0; cell = (cell + 1) & mask_) {
        if (cells_[cell].key != key || cells_[cell].content == left) {
            continue;
        }
        const std::size_t position = cells_[cell].content - 1;
        if (position < found && values[position].compare(candidate) == 0) {
            found = position;
        }
    }
    return found;
}

bool ValueIndex::add(Key key, std::size_t position) noexcept
{
    if (position >= left - 1 || ((used_ + 1) * 2 > mask_ && !grow((mask_ + 1) * 2))) {
        return false;
    }
    place({key, static_cast<std::uint32_t>(position + 1)});
    return true;
}

void ValueIndex::forget(Key key, std::size_t position) noexcept
{
    for (std::size_t cell = key & mask_; cells_[cell].content != 0; cell = (cell + 1) & mask_) {
        if (cells_[cell].content == position + 1) {
            cells_[cell].content = left;
            return;
        }
    }
}

void ValueIndex::closeGap(std::size_t position) noexcept
{
    for (std::size_t index = 0; index <= mask_; ++index) {
        std::uint32_t& content = cells_[index].content;
        if (content == position + 1) {
            content = left;
        } else if (content != left && content > position + 1) {
            --content;
        }
    }
}

bool ValueIndex::grow(std::size_t cells) noexcept
{
    std::unique_ptr<Cell[]> old(new (std::nothrow) Cell[cells]);
    if (old == nullptr) {
        return false;
    }
    old.swap(cells_);
    const std::size_t oldCells = old == nullptr ? 0 : mask_ + 1;
    mask_ = cells - 1;
    used_ = 0;
    for (std::size_t index = 0; index < oldCells; ++index) {
        if (old[index].content != 0 && old[index].content != left) {
            place(old[index]);
        }
    }
    return true;
}

void ValueIndex::place(Cell cell) noexcept
{
    std::size_t index = cell.key & mask_;
    while (cells_[index].content != 0) {
        index = (index + 1) & mask_;
    }
    cells_[index] = cell;
    ++used_;
}

} // namespace veltor::detail
