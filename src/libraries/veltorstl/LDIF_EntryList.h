// The children of an entry: an ordered list with the interface of std::vector, and beside it an index that
// answers the questions of the tree without a walk.
#ifndef VELTOR_LDIF_ENTRYLIST_H
#define VELTOR_LDIF_ENTRYLIST_H

#include "indirect_iterator.h"
#include "list.h"
#include "region.h"

#include <cstddef>
#include <exception>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

class LDIF_DN;
class LDIF_Entry;

/// An ordered list of entries that it owns. Entries keep their addresses while others come and go.
///
/// Inside, an entry has a slot. Taking an entry out leaves a hole, so that moving a few entries out of a wide
/// level costs what is moved; holes are closed when a caller asks for positions, or when they prevail.
///
/// The index maps the relative DN of every child to its slot, and on demand proper ancestors of them below this
/// level. It exists from a handful of children on. A hit is checked against the child it names. Whoever gets
/// mutable access through the vector's interface may change what the index is built from, then or later: from there
/// on a miss falls back to the walk.
///
/// Not thread-safe, not even for reading: closing holes and building the index happen on demand.
class LDIF_EntryList
{
    // A level of one entry is common: chains, and the tops of trees.
    using Slots = veltor::detail::List<std::unique_ptr<LDIF_Entry>, 1>;

public:
    using value_type = LDIF_Entry;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using reference = LDIF_Entry&;
    using const_reference = const LDIF_Entry&;
    using iterator = veltor::detail::IndirectIterator<const std::unique_ptr<LDIF_Entry>, LDIF_Entry>;
    using const_iterator = veltor::detail::IndirectIterator<const std::unique_ptr<LDIF_Entry>, const LDIF_Entry>;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;

    LDIF_EntryList() noexcept;
    explicit LDIF_EntryList(size_type count);
    LDIF_EntryList(size_type count, const LDIF_Entry& entry);
    LDIF_EntryList(std::initializer_list<LDIF_Entry> entries);
    LDIF_EntryList(const LDIF_EntryList& other);
    LDIF_EntryList(LDIF_EntryList&& other) noexcept;
    LDIF_EntryList& operator=(const LDIF_EntryList& other);
    LDIF_EntryList& operator=(LDIF_EntryList&& other) noexcept;
    /// Frees the entries with all that is below them, in constant stack.
    ~LDIF_EntryList();

    // ---- The vector's interface. Positions are valid until the list changes. ----

    size_type size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    size_type max_size() const noexcept { return std::numeric_limits<difference_type>::max(); }
    size_type capacity() const noexcept;
    void reserve(size_type count);
    void shrink_to_fit();

    iterator begin();
    iterator end();
    const_iterator begin() const;
    const_iterator end() const;
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }
    reverse_iterator rbegin() { return reverse_iterator(end()); }
    reverse_iterator rend() { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }
    const_reverse_iterator crbegin() const { return rbegin(); }
    const_reverse_iterator crend() const { return rend(); }

    reference operator[](size_type position) { return begin()[static_cast<difference_type>(position)]; }
    const_reference operator[](size_type position) const { return begin()[static_cast<difference_type>(position)]; }
    /// @throws std::out_of_range for a position behind the end
    reference at(size_type position);
    const_reference at(size_type position) const;
    reference front() { return *begin(); }
    const_reference front() const { return *begin(); }
    reference back() { return *(end() - 1); }
    const_reference back() const { return *(end() - 1); }

    void push_back(const LDIF_Entry& entry);
    void push_back(LDIF_Entry&& entry);
    template <class... Arguments>
    reference emplace_back(Arguments&&... arguments);
    template <class... Arguments>
    iterator emplace(const_iterator position, Arguments&&... arguments);
    void pop_back();
    iterator insert(const_iterator position, const LDIF_Entry& entry);
    iterator insert(const_iterator position, LDIF_Entry&& entry);
    iterator insert(const_iterator position, size_type count, const LDIF_Entry& entry);
    template <std::input_iterator Input>
    iterator insert(const_iterator position, Input first, Input last);
    iterator insert(const_iterator position, std::initializer_list<LDIF_Entry> entries);
    iterator erase(const_iterator position);
    iterator erase(const_iterator first, const_iterator last);
    void clear() noexcept;
    void resize(size_type count);
    void resize(size_type count, const LDIF_Entry& entry);
    template <std::input_iterator Input>
    void assign(Input first, Input last);
    void assign(size_type count, const LDIF_Entry& entry);
    void assign(std::initializer_list<LDIF_Entry> entries);
    void swap(LDIF_EntryList& other) noexcept;
    friend void swap(LDIF_EntryList& left, LDIF_EntryList& right) noexcept { left.swap(right); }

    // ---- What the tree asks. A level of a DN is an index into it; levels before `from` lie above this list. ----

    /// The child whose relative DN is equal to, or an ancestor of, what `dn` says from level `from` on; at most
    /// one is. Null if there is none.
    LDIF_Entry* equalOrAncestor(const LDIF_DN& dn, std::size_t from) const;

    /// Gives the children that lie below that DN away, in order. One that can't be taken stays; the others are
    /// given away all the same, and the first failure is raised in the end.
    /// @param take  takes over what the reference to a std::unique_ptr holds; what it leaves in there is dropped
    template <class Take>
    void giveAway(const LDIF_DN& dn, std::size_t from, Take&& take)
    {
        std::exception_ptr failure;
        for (const std::size_t slot : below(dn, from)) {
            try {
                take(std::move(body_->slots[slot]));
                body_->slots[slot].reset();
                ++body_->holes;
            } catch (...) {
                failure = failure == nullptr ? std::current_exception() : failure;
            }
        }
        closePrevailingHoles();
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
    }

    /// Makes room for one more child behind the others, so that adding it can't fail.
    void makeRoom();

    /// Adds a child in the room that was made.
    LDIF_Entry& append(std::unique_ptr<LDIF_Entry> entry) noexcept;

    /// Removes a child of this list with all that is below it.
    void remove(const LDIF_Entry& child);

    /// The child in the first slot from `slot` on, and behind it the next slot to ask for; null behind the last.
    /// For walks that change nothing: holes are skipped, not closed.
    const LDIF_Entry* nextFrom(std::size_t& slot) const
    {
        while (body_ != nullptr && slot < body_->slots.size()) {
            if (const LDIF_Entry* const entry = body_->slots[slot++].get(); entry != nullptr) {
                return entry;
            }
        }
        return nullptr;
    }

    /// True when it never had a child. Some that had are empty by now.
    bool isBlank() const noexcept { return body_ == nullptr; }

    /// The child in a slot; null for a hole, and behind the last. For those who read ahead.
    const LDIF_Entry* inSlot(std::size_t slot) const noexcept
    {
        return body_ != nullptr && slot < body_->slots.size() ? body_->slots[slot].get() : nullptr;
    }

private:
    struct Index;
    struct Body
    {
        Slots slots;
        std::size_t holes = 0;
        std::size_t longest = 0; // RDNs of the longest relative DN that was appended
        bool exposed = false;    // somebody may hold a reference with which a child can be renamed
        std::unique_ptr<Index> index;
        std::unique_ptr<Body> next; // chains the lists that wait for their release

        Body();
        ~Body();
        static void* operator new(std::size_t bytes) { return veltor::detail::obtainMarked(bytes); }
        static void operator delete(void* body) noexcept { veltor::detail::giveBackMarked(body); }
    };

    Body& body();
    void closeHoles() const noexcept;
    void closePrevailingHoles() noexcept;
    Slots& exposedSlots();
    Slots& changedSlots();
    iterator iteratorAt(std::size_t position);
    std::size_t positionOf(const_iterator position) const;
    iterator insertOwned(const_iterator position, std::unique_ptr<LDIF_Entry> entry);
    Index* usableIndex() const;
    std::unique_ptr<LDIF_Entry>* find(const LDIF_DN& dn, std::size_t from) const;
    std::vector<std::size_t> below(const LDIF_DN& dn, std::size_t from) const;

    // Null for a list without children: leaves are what most entries are.
    std::unique_ptr<Body> body_;
};

#endif
