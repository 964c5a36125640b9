// The index of a value list.
#ifndef VELTOR_VALUE_INDEX_H
#define VELTOR_VALUE_INDEX_H

#include "LDIF_AttrTypeRecord.h"
#include "fold_hash.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>

class LDIF_Value;

namespace veltor::detail {

/// Finds the values of a list by what the comparison of their type sees of them.
///
/// It knows hashes and positions alone, no texts: of a password it keeps 32 bits that only this process can make. A
/// hit is therefore compared before it is believed.
class ValueIndex
{
public:
    using Key = std::uint32_t;
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    /// An index of values that all are of one type. Null when one is not or has no key, and when memory is short: the
    /// list is walked then.
    static std::unique_ptr<ValueIndex> of(const _AttrType& type, std::span<const LDIF_Value> values) noexcept;

    /// True when its keys are what keyOf() gives for values of that type. In another locale other values are equal.
    bool serves(const _AttrType& type) const noexcept
    {
        return type_ == &type && match_ == type.match && toStr_ == type.toStr && fold_ == foldTable();
    }

    /// The key of a value of the index's type; none when the comparison would complain about it.
    std::optional<Key> keyOf(const LDIF_Value& value) const noexcept;

    /// The position of the first value that equals the candidate, or `none`.
    std::size_t find(std::span<const LDIF_Value> values, const LDIF_Value& candidate, Key key) const;

    /// Takes a value in. False when memory is short: the index is of no use then.
    bool add(Key key, std::size_t position) noexcept;

    /// Forgets a value whose position stays empty.
    void forget(Key key, std::size_t position) noexcept;

    /// Forgets a value; those behind it move up by one.
    void closeGap(std::size_t position) noexcept;

private:
    struct Cell
    {
        Key key = 0;
        std::uint32_t content = 0; // 0: free; left: of a value that left; else the position plus one
    };
    static constexpr std::uint32_t left = std::numeric_limits<std::uint32_t>::max();

    explicit ValueIndex(const _AttrType& type) noexcept
        : type_(&type), match_(type.match), toStr_(type.toStr), fold_(foldTable())
    {
    }

    bool grow(std::size_t cells) noexcept;
    void place(Cell cell) noexcept;

    const _AttrType* type_;
    decltype(_AttrType::match) match_;
    decltype(_AttrType::toStr) toStr_;
    FoldTable fold_;
    std::unique_ptr<Cell[]> cells_;
    std::size_t mask_ = 0; // number of cells less one
    std::size_t used_ = 0; // cells that are not free
};

} // namespace veltor::detail

#endif
