// The dynamic array of the data model.
#ifndef VELTOR_LIST_H
#define VELTOR_LIST_H

#include "region.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

// GCC may let one function serve the lists of several element types, and then takes what it does to a short list for
// an access behind its end.
#if defined(__GNUC__) && !defined(__clang__)
#define VELTOR_NOT_MERGED [[gnu::no_icf]]
#else
#define VELTOR_NOT_MERGED
#endif

namespace veltor::detail {

/// A dynamic array with the interface of std::vector, made for the many short lists of a configuration: up to
/// `inPlace` elements live in the list itself, and its head takes 8 bytes. Elements must move without throwing.
///
/// Positions are plain pointers. As with any list that keeps elements in place, moving a list moves elements:
/// positions do not survive it.
template <class Element, std::size_t inPlace = 0>
class List
{
public:
    using value_type = Element;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using reference = Element&;
    using const_reference = const Element&;
    using pointer = Element*;
    using const_pointer = const Element*;
    using iterator = Element*;
    using const_iterator = const Element*;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;

    List() noexcept : elsewhere_(nullptr) {}
    explicit List(size_type count) : List() { resize(count); }
    List(size_type count, const Element& element) : List() { assign(count, element); }
    template <std::input_iterator Input>
    List(Input first, Input last) : List()
    {
        assign(first, last);
    }
    List(std::initializer_list<Element> elements) : List(elements.begin(), elements.end()) {}
    List(const List& other) : List()
    {
        // The other constructor has run, so should a copy fail the destructor takes back what was made.
        reserve(other.size());
        for (const Element& element : other) {
            emplaceInCapacity(element);
        }
    }
    List(List&& other) noexcept { take(std::move(other)); }
    List& operator=(const List& other)
    {
        if (this != &other) {
            List copy(other);
            swap(copy);
        }
        return *this;
    }
    List& operator=(List&& other) noexcept
    {
        if (this != &other) {
            release();
            take(std::move(other));
        }
        return *this;
    }
    List& operator=(std::initializer_list<Element> elements)
    {
        assign(elements);
        return *this;
    }
    ~List() { release(); }

    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    size_type size() const noexcept { return size_; }
    static constexpr size_type max_size() noexcept { return std::numeric_limits<std::int32_t>::max(); }
    size_type capacity() const noexcept { return isInPlace() ? inPlace : capacity_; }
    void reserve(size_type count)
    {
        if (count > capacity()) {
            moveTo(count);
        }
    }
    void shrink_to_fit()
    {
        if (!isInPlace() && size_ < capacity_) {
            moveTo(size_);
        }
    }

    iterator begin() noexcept { return data(); }
    iterator end() noexcept { return data() + size_; }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size_; }
    const_iterator cbegin() const noexcept { return begin(); }
    const_iterator cend() const noexcept { return end(); }
    reverse_iterator rbegin() noexcept { return reverse_iterator(end()); }
    reverse_iterator rend() noexcept { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const noexcept { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const noexcept { return const_reverse_iterator(begin()); }
    const_reverse_iterator crbegin() const noexcept { return rbegin(); }
    const_reverse_iterator crend() const noexcept { return rend(); }

    pointer data() noexcept { return isInPlace() ? own() : elsewhere_; }
    const_pointer data() const noexcept { return isInPlace() ? own() : elsewhere_; }
    reference operator[](size_type position) { return data()[position]; }
    const_reference operator[](size_type position) const { return data()[position]; }
    /// @throws std::out_of_range for a position behind the end
    reference at(size_type position)
    {
        needPosition(position);
        return data()[position];
    }
    const_reference at(size_type position) const
    {
        needPosition(position);
        return data()[position];
    }
    reference front() { return *begin(); }
    const_reference front() const { return *begin(); }
    reference back() { return end()[-1]; }
    const_reference back() const { return end()[-1]; }

    void push_back(const Element& element) { emplace_back(element); }
    void push_back(Element&& element) { emplace_back(std::move(element)); }
    template <class... Arguments>
    reference emplace_back(Arguments&&... arguments)
    {
        if (size_ < capacity()) {
            return emplaceInCapacity(std::forward<Arguments>(arguments)...);
        }
        const size_type count = grown();
        const Piece piece = pieceFor(count);
        // Made before the others move, since the arguments may lie in this list; and a failure leaves them as they are.
        try {
            std::construct_at(static_cast<Element*>(piece.memory) + size_, std::forward<Arguments>(arguments)...);
        } catch (...) {
            giveBack(piece.memory, piece.fromRegion);
            throw;
        }
        moveInto(piece, count);
        ++size_;
        return back();
    }
    template <class... Arguments>
    iterator emplace(const_iterator position, Arguments&&... arguments)
    {
        const auto place = position - cbegin();
        if (position == cend()) {
            emplace_back(std::forward<Arguments>(arguments)...);
            return begin() + place;
        }
        Element element(std::forward<Arguments>(arguments)...);
        reserve(size_ < capacity() ? size_ : grown());
        emplaceInCapacity(std::move(back()));
        std::move_backward(begin() + place, end() - 2, end() - 1);
        begin()[place] = std::move(element);
        return begin() + place;
    }
    void pop_back() { std::destroy_at(data() + --size_); }

    iterator insert(const_iterator position, const Element& element) { return emplace(position, element); }
    iterator insert(const_iterator position, Element&& element) { return emplace(position, std::move(element)); }
    iterator insert(const_iterator position, size_type count, const Element& element)
    {
        return insertAll(position, List(count, element));
    }
    template <std::input_iterator Input>
    iterator insert(const_iterator position, Input first, Input last)
    {
        return insertAll(position, List(first, last));
    }
    iterator insert(const_iterator position, std::initializer_list<Element> elements)
    {
        return insertAll(position, List(elements));
    }
    iterator erase(const_iterator position) { return erase(position, position + 1); }
    iterator erase(const_iterator first, const_iterator last)
    {
        const iterator place = begin() + (first - cbegin());
        if (first != last) {
            const iterator kept = std::move(place + (last - first), end(), place);
            std::destroy(kept, end());
            size_ = static_cast<std::uint32_t>(kept - begin());
        }
        return place;
    }
    void clear() noexcept
    {
        std::destroy(begin(), end());
        size_ = 0;
    }
    void resize(size_type count)
    {
        shrinkTo(count);
        reserve(count);
        while (size_ < count) {
            emplaceInCapacity();
        }
    }
    void resize(size_type count, const Element& element)
    {
        if (count > size_) {
            insert(end(), count - size_, element);
        }
        shrinkTo(count);
    }
    template <std::input_iterator Input>
    void assign(Input first, Input last)
    {
        List replacement;
        if constexpr (std::forward_iterator<Input>) {
            replacement.reserve(static_cast<size_type>(std::distance(first, last)));
        }
        for (; first != last; ++first) {
            replacement.emplace_back(*first);
        }
        swap(replacement);
    }
    void assign(size_type count, const Element& element)
    {
        List replacement;
        replacement.reserve(count);
        while (replacement.size_ < count) {
            replacement.emplaceInCapacity(element);
        }
        swap(replacement);
    }
    void assign(std::initializer_list<Element> elements) { assign(elements.begin(), elements.end()); }
    void swap(List& other) noexcept
    {
        List moved(std::move(other));
        other = std::move(*this);
        *this = std::move(moved);
    }
    friend void swap(List& left, List& right) noexcept { left.swap(right); }

    friend bool operator==(const List& left, const List& right)
    {
        return std::equal(left.begin(), left.end(), right.begin(), right.end());
    }

private:
    bool isInPlace() const noexcept { return capacity_ == 0; }
    Element* own() noexcept { return std::launder(reinterpret_cast<Element*>(&inPlace_)); }
    const Element* own() const noexcept { return std::launder(reinterpret_cast<const Element*>(&inPlace_)); }

    void needPosition(size_type position) const
    {
        if (position >= size_) {
            throw std::out_of_range("position behind the end of a list");
        }
    }

    // From one on: most lists of a load stay that short, and what a region gave is not used again.
    size_type grown() const { return std::max<size_type>(2 * inPlace, size_ + size_ / 2 + 1); }

    template <class... Arguments>
    reference emplaceInCapacity(Arguments&&... arguments)
    {
        Element* const place = data() + size_;
        std::construct_at(place, std::forward<Arguments>(arguments)...);
        ++size_;
        return *place;
    }

    void shrinkTo(size_type count)
    {
        while (size_ > count) {
            pop_back();
        }
    }

    iterator insertAll(const_iterator position, List&& elements)
    {
        const auto place = position - cbegin();
        const auto old = static_cast<difference_type>(size_);
        reserve(size_ + elements.size() <= capacity() ? size_ : std::max(grown(), size_ + elements.size()));
        for (Element& element : elements) {
            emplaceInCapacity(std::move(element));
        }
        std::rotate(begin() + place, begin() + old, end());
        return begin() + place;
    }

    /// Gives the elements a home with room for that many, at least those there are.
    void moveTo(size_type count)
    {
        if (count > inPlace) {
            moveInto(pieceFor(count), count);
            return;
        }
        if (!isInPlace()) {
            List moved(std::move(*this));
            for (Element& element : moved) {
                emplaceInCapacity(std::move(element));
            }
        }
    }

    static Piece pieceFor(size_type count)
    {
        if (count > max_size()) {
            throw std::length_error("a list of too many elements");
        }
        return obtain(count * sizeof(Element), alignof(Element));
    }

    void moveInto(const Piece& piece, size_type count) noexcept
    {
        static_assert(std::is_nothrow_move_constructible_v<Element>);
        auto* const home = static_cast<Element*>(piece.memory);
        std::uninitialized_move(begin(), end(), home);
        std::destroy(begin(), end());
        giveHomeBack();
        elsewhere_ = home;
        capacity_ = static_cast<std::uint32_t>(count) & lastCapacity;
        fromRegion_ = piece.fromRegion;
    }

    VELTOR_NOT_MERGED void giveHomeBack() noexcept
    {
        if (!isInPlace()) {
            giveBack(elsewhere_, fromRegion_);
            capacity_ = 0;
        }
    }

    VELTOR_NOT_MERGED void release() noexcept
    {
        clear();
        giveHomeBack();
    }

    /// Takes over the other's elements; this list has none and no home.
    void take(List&& other) noexcept
    {
        if (other.isInPlace()) {
            std::uninitialized_move(other.begin(), other.end(), own());
            size_ = other.size_;
            other.clear();
            return;
        }
        elsewhere_ = other.elsewhere_;
        size_ = std::exchange(other.size_, 0);
        capacity_ = other.capacity_;
        fromRegion_ = other.fromRegion_;
        other.capacity_ = 0;
    }

    static constexpr std::uint32_t lastCapacity = 0x7FFFFFFF;

    std::uint32_t size_ = 0;
    std::uint32_t capacity_ : 31 = 0; // 0: the elements are in place
    std::uint32_t fromRegion_ : 1 = 0;
    union {
        Element* elsewhere_;
        alignas(inPlace == 0
                    ? alignof(Element*)
                    : alignof(Element)) std::byte inPlace_[inPlace == 0 ? sizeof(Element*) : inPlace * sizeof(Element)];
    };
};

} // namespace veltor::detail

#undef VELTOR_NOT_MERGED

#endif
