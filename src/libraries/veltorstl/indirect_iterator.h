// Positions in a list that keeps its elements elsewhere.
#ifndef VELTOR_INDIRECT_ITERATOR_H
#define VELTOR_INDIRECT_ITERATOR_H

#include <compare>
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

namespace veltor::detail {

/// Walks an array of slots and gives what they point to.
///
/// @tparam Slot   what the array is made of; const where walking must not change it
/// @tparam Value  what a slot gives through its operator *
template <class Slot, class Value>
class IndirectIterator
{
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<Value>;
    using difference_type = std::ptrdiff_t;
    using reference = Value&;
    using pointer = Value*;

    IndirectIterator() = default;
    explicit IndirectIterator(Slot* slot) : slot_(slot) {}
    /// A mutable position serves where a constant one is asked for.
    template <class OtherSlot, class OtherValue>
    requires(std::is_const_v<Value> && !std::is_const_v<OtherValue> && std::is_convertible_v<OtherSlot*, Slot*>)
        IndirectIterator(const IndirectIterator<OtherSlot, OtherValue>& position)
        : slot_(position.slot())
    {
    }

    reference operator*() const { return **slot_; }
    pointer operator->() const { return &**slot_; }
    reference operator[](difference_type offset) const { return *slot_[offset]; }
    IndirectIterator& operator++() { return *this += 1; }
    IndirectIterator& operator--() { return *this += -1; }
    IndirectIterator operator++(int) { return std::exchange(*this, *this + 1); }
    IndirectIterator operator--(int) { return std::exchange(*this, *this - 1); }
    IndirectIterator& operator+=(difference_type offset)
    {
        slot_ += offset;
        return *this;
    }
    IndirectIterator& operator-=(difference_type offset) { return *this += -offset; }
    friend IndirectIterator operator+(IndirectIterator left, difference_type right) { return left += right; }
    friend IndirectIterator operator+(difference_type left, IndirectIterator right) { return right += left; }
    friend IndirectIterator operator-(IndirectIterator left, difference_type right) { return left -= right; }
    friend difference_type operator-(IndirectIterator left, IndirectIterator right) { return left.slot_ - right.slot_; }
    friend bool operator==(IndirectIterator left, IndirectIterator right) { return left.slot_ == right.slot_; }
    friend auto operator<=>(IndirectIterator left, IndirectIterator right) { return left.slot_ <=> right.slot_; }

    Slot* slot() const { return slot_; }

private:
    Slot* slot_ = nullptr;
};

} // namespace veltor::detail

#endif
