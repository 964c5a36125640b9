// Distinguished names: their parts, parser, printed form, order and arithmetic.
//
// Order, wanted and relied on: an ancestor compares +1 against its descendants, and the relational operators
// of the three classes are inverted with respect to compare(). An ordered set of DNs therefore lists every
// ancestor before its descendants, which the tree view needs.
//
// The parsing constructors take what they understand off the front of a text and leave the rest, its leading
// white space and parentheses stripped, to the caller. All throw LDIF_Exception: 34 with 1011 (attribute
// type missing), 1012 (bad attribute type), 1013 (value missing) or 1014 (bad value); 162 for text that the
// locale can't read; 80/1000 for a failure of the system.
#ifndef VELTOR_LDIF_DN_H
#define VELTOR_LDIF_DN_H

#include "LDIF_Util.h"
#include "fold_hash.h"
#include "indirect_iterator.h"
#include "list.h"
#include "owner_count.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltor::detail {
template <class Character>
class DnParser;
class DnMemory;
} // namespace veltor::detail

/// The attribute type of one pair, as written.
class LDIF_RDN_attribute : public cisString
{
public:
    explicit LDIF_RDN_attribute(cisString& text);

private:
    template <class Character>
    friend class veltor::detail::DnParser;
    LDIF_RDN_attribute() = default;
};

/// The value of one pair: its bytes with all escapes resolved, and how it was written.
class LDIF_RDN_value : public cisString
{
public:
    enum Form : std::int32_t { binary = 0, quoted = 1, plain = 2 };

    std::int32_t form = quoted; ///< a Form; an empty text is `quoted`

    explicit LDIF_RDN_value(cisString& text);

    /// The printed form.
    /// @throws LDIF_Exception 34/1013 for an empty value
    virtual std::string str() const;

private:
    template <class Character>
    friend class veltor::detail::DnParser;
    LDIF_RDN_value() = default;
};

/// An attribute type and its value. The order of the virtual functions is ABI, here and below.
class LDIF_RDN_pair : public std::pair<LDIF_RDN_attribute, LDIF_RDN_value>
{
public:
    explicit LDIF_RDN_pair(cisString& text);

    /// Types first, then values, both without regard to case; the form of a value takes no part.
    virtual int compare(const LDIF_RDN_pair& other) const;
    virtual std::string str() const;
    virtual bool operator==(const LDIF_RDN_pair& other) const { return compare(other) == 0; }
    virtual bool operator<(const LDIF_RDN_pair& other) const { return compare(other) > 0; }
    virtual bool operator>(const LDIF_RDN_pair& other) const { return compare(other) < 0; }
    virtual bool operator!=(const LDIF_RDN_pair& other) const { return compare(other) != 0; }
    virtual bool operator<=(const LDIF_RDN_pair& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const LDIF_RDN_pair& other) const { return compare(other) <= 0; }

private:
    template <class Character>
    friend class veltor::detail::DnParser;
    LDIF_RDN_pair(LDIF_RDN_attribute&& attribute, LDIF_RDN_value&& value);
};

/// The pairs of one level, ascending by compare() and without duplicates.
class LDIF_RDN : public veltor::detail::List<LDIF_RDN_pair, 1>
{
public:
    LDIF_RDN() = default;
    explicit LDIF_RDN(cisString& text);

    /// Inserts a pair at its place; of equal pairs the first stays.
    virtual LDIF_RDN& operator+=(const LDIF_RDN_pair& pair);
    virtual std::string str() const;
    virtual int compare(const LDIF_RDN& other) const;
    virtual bool operator==(const LDIF_RDN& other) const { return compare(other) == 0; }
    virtual bool operator<(const LDIF_RDN& other) const { return compare(other) > 0; }
    virtual bool operator>(const LDIF_RDN& other) const { return compare(other) < 0; }
    virtual bool operator!=(const LDIF_RDN& other) const { return compare(other) != 0; }
    virtual bool operator<=(const LDIF_RDN& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const LDIF_RDN& other) const { return compare(other) <= 0; }
};

namespace veltor::detail {

/// One RDN, shared by all DNs that say it.
///
/// Invariant: an exposed one has a single owner. Somebody may hold a reference with which it can be changed, so it is
/// neither shared again nor is its hash kept.
struct SharedRdn
{
    OwnerCount owners = {};
    bool exposed = false;
    bool fromRegion = false;
    // The hash of the pairs, made with that table; no table: not made yet.
    mutable std::atomic<FoldTable> foldedWith{nullptr};
    mutable std::atomic<std::uint64_t> hash{0};
    LDIF_RDN rdn;
};

/// An owner of a shared RDN; null only after a move.
class RdnRef
{
public:
    explicit RdnRef(LDIF_RDN&& rdn);
    explicit RdnRef(const LDIF_RDN& rdn) : RdnRef(LDIF_RDN(rdn)) {}
    RdnRef(const RdnRef& other);
    RdnRef(RdnRef&& other) noexcept : shared_(std::exchange(other.shared_, nullptr)) {}
    RdnRef& operator=(const RdnRef& other)
    {
        RdnRef copy(other);
        std::swap(shared_, copy.shared_);
        return *this;
    }
    RdnRef& operator=(RdnRef&& other) noexcept
    {
        std::swap(shared_, other.shared_);
        return *this;
    }
    ~RdnRef()
    {
        if (shared_ != nullptr && shared_->owners.drop()) {
            destroy(shared_);
        }
    }

    const LDIF_RDN& operator*() const { return shared_->rdn; }
    /// For changes: what is shared is copied first.
    LDIF_RDN& operator*() { return exposed(); }

    void prefetch() const noexcept { __builtin_prefetch(shared_); }
    bool isSame(const RdnRef& other) const { return shared_ == other.shared_; }
    bool isEqual(const RdnRef& other) const
    {
        if (isSame(other)) {
            return true;
        }
        const FoldTable fold = foldTable();
        return hash(fold) == other.hash(fold) && shared_->rdn.compare(other.shared_->rdn) == 0;
    }
    /// The hash of the pairs as they compare.
    std::uint64_t hash(FoldTable fold) const
    {
        return shared_->foldedWith.load(std::memory_order_acquire) == fold
                   ? shared_->hash.load(std::memory_order_relaxed)
                   : madeHash(fold);
    }

private:
    static void destroy(SharedRdn* shared) noexcept;
    LDIF_RDN& exposed();
    std::uint64_t madeHash(FoldTable fold) const;

    SharedRdn* shared_;
};

/// The RDNs of a DN: a dynamic array of LDIF_RDN with the interface of std::vector, but for data(). Copies share the
/// RDNs until one of them is changed, and may live on different threads. Positions are valid until the list changes;
/// a constant reference to an RDN no longer than until the list is asked for a mutable one.
class RdnList
{
public:
    using value_type = LDIF_RDN;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using reference = LDIF_RDN&;
    using const_reference = const LDIF_RDN&;
    using iterator = IndirectIterator<RdnRef, LDIF_RDN>;
    using const_iterator = IndirectIterator<const RdnRef, const LDIF_RDN>;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;

    RdnList() = default;
    explicit RdnList(size_type count) { resize(count); }
    RdnList(size_type count, const LDIF_RDN& rdn) { resize(count, rdn); }
    template <std::input_iterator Input>
    RdnList(Input first, Input last)
    {
        assign(first, last);
    }
    RdnList(std::initializer_list<LDIF_RDN> rdns) { assign(rdns); }

    size_type size() const noexcept { return refs_.size(); }
    [[nodiscard]] bool empty() const noexcept { return refs_.empty(); }
    static constexpr size_type max_size() noexcept { return List<RdnRef, 1>::max_size(); }
    size_type capacity() const noexcept { return refs_.capacity(); }
    void reserve(size_type count) { refs_.reserve(count); }
    void shrink_to_fit() { refs_.shrink_to_fit(); }

    iterator begin() { return iterator(refs_.data()); }
    iterator end() { return iterator(refs_.data() + refs_.size()); }
    const_iterator begin() const { return const_iterator(refs_.data()); }
    const_iterator end() const { return const_iterator(refs_.data() + refs_.size()); }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }
    reverse_iterator rbegin() { return reverse_iterator(end()); }
    reverse_iterator rend() { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }
    const_reverse_iterator crbegin() const { return rbegin(); }
    const_reverse_iterator crend() const { return rend(); }

    reference operator[](size_type position) { return *refs_[position]; }
    const_reference operator[](size_type position) const { return *refs_[position]; }
    /// @throws std::out_of_range for a position behind the end
    reference at(size_type position) { return *refs_.at(position); }
    const_reference at(size_type position) const { return *refs_.at(position); }
    reference front() { return *refs_.front(); }
    const_reference front() const { return *refs_.front(); }
    reference back() { return *refs_.back(); }
    const_reference back() const { return *refs_.back(); }

    void push_back(const LDIF_RDN& rdn) { refs_.emplace_back(rdn); }
    void push_back(LDIF_RDN&& rdn) { refs_.emplace_back(std::move(rdn)); }
    template <class... Arguments>
    reference emplace_back(Arguments&&... arguments)
    {
        return *refs_.emplace_back(LDIF_RDN(std::forward<Arguments>(arguments)...));
    }
    template <class... Arguments>
    iterator emplace(const_iterator position, Arguments&&... arguments)
    {
        return iterator(refs_.emplace(position.slot(), LDIF_RDN(std::forward<Arguments>(arguments)...)));
    }
    void pop_back() { refs_.pop_back(); }
    iterator insert(const_iterator position, const LDIF_RDN& rdn) { return emplace(position, rdn); }
    iterator insert(const_iterator position, LDIF_RDN&& rdn) { return emplace(position, std::move(rdn)); }
    iterator insert(const_iterator position, size_type count, const LDIF_RDN& rdn)
    {
        return insertAll(position, RdnList(count, rdn));
    }
    template <std::input_iterator Input>
    iterator insert(const_iterator position, Input first, Input last)
    {
        return insertAll(position, RdnList(first, last));
    }
    iterator insert(const_iterator position, std::initializer_list<LDIF_RDN> rdns)
    {
        return insertAll(position, RdnList(rdns));
    }
    iterator erase(const_iterator position) { return iterator(refs_.erase(position.slot())); }
    iterator erase(const_iterator first, const_iterator last)
    {
        return iterator(refs_.erase(first.slot(), last.slot()));
    }
    void clear() noexcept { refs_.clear(); }
    void resize(size_type count) { resize(count, LDIF_RDN()); }
    void resize(size_type count, const LDIF_RDN& rdn)
    {
        while (size() > count) {
            pop_back();
        }
        while (size() < count) {
            push_back(rdn);
        }
    }
    template <std::input_iterator Input>
    void assign(Input first, Input last)
    {
        List<RdnRef, 1> replacement;
        for (; first != last; ++first) {
            replacement.emplace_back(LDIF_RDN(*first));
        }
        refs_.swap(replacement);
    }
    void assign(size_type count, const LDIF_RDN& rdn)
    {
        RdnList replacement(count, rdn);
        swap(replacement);
    }
    void assign(std::initializer_list<LDIF_RDN> rdns) { assign(rdns.begin(), rdns.end()); }
    void swap(RdnList& other) noexcept { refs_.swap(other.refs_); }
    friend void swap(RdnList& left, RdnList& right) noexcept { left.swap(right); }

    // ---- Reading and passing on without a copy ----

    const RdnRef& shared(size_type position) const { return refs_[position]; }
    /// Has the RDNs fetched, for somebody who reads them all.
    void prefetch() const noexcept
    {
        for (const RdnRef& ref : refs_) {
            ref.prefetch();
        }
    }
    /// Fills in the hashes of the levels from one on: each that of all RDNs from there up to it.
    void hashLevels(std::vector<std::uint64_t>& hashes, size_type from, size_type count, FoldTable fold) const;
    /// Becomes what `other` says from a level on.
    void assignFrom(const RdnList& other, size_type level)
    {
        List<RdnRef, 1> replacement;
        replacement.reserve(other.size() - level);
        for (; level < other.size(); ++level) {
            replacement.push_back(other.refs_[level]);
        }
        refs_ = std::move(replacement);
    }
    void push_back(const RdnRef& rdn) { refs_.push_back(rdn); }
    /// Turns the levels from a position on around and puts them above the others.
    void turnAbove(size_type position);

private:
    iterator insertAll(const_iterator position, RdnList&& rdns)
    {
        return iterator(refs_.insert(position.slot(), std::make_move_iterator(rdns.refs_.begin()),
                                     std::make_move_iterator(rdns.refs_.end())));
    }

    List<RdnRef, 1> refs_;
};

} // namespace veltor::detail

/// A distinguished name. Element 0 is the RDN nearest the root, the last one the most specific; without
/// elements it names the root.
class LDIF_DN : public veltor::detail::RdnList
{
public:
    using RdnList::RdnList;
    LDIF_DN() = default;
    LDIF_DN(const LDIF_DN&) = default;
    LDIF_DN(LDIF_DN&&) noexcept = default;
    LDIF_DN& operator=(const LDIF_DN&) = default;
    LDIF_DN& operator=(LDIF_DN&&) noexcept = default;
    ~LDIF_DN() = default;

    /// Parses a whole DN. On a DN that is not empty the new RDNs go to the root side of those present: this
    /// does not clear first, on purpose. After a failure the RDNs parsed before it are in.
    virtual LDIF_DN& operator=(const cisString& text);

    /// One level deeper.
    virtual LDIF_DN& operator+=(const LDIF_RDN& rdn);

    /// The nearest common ancestor.
    virtual LDIF_DN intersection(const LDIF_DN& other) const;

    /// Strips the common root-side part: makes a DN relative to an ancestor.
    virtual LDIF_DN& operator-=(const LDIF_DN& other);

    virtual std::string str() const;
    virtual int compare(const LDIF_DN& other) const;
    virtual bool operator==(const LDIF_DN& other) const { return compare(other) == 0; }
    virtual bool operator<(const LDIF_DN& other) const { return compare(other) > 0; }
    virtual bool operator>(const LDIF_DN& other) const { return compare(other) < 0; }
    virtual bool operator!=(const LDIF_DN& other) const { return compare(other) != 0; }
    virtual bool operator<=(const LDIF_DN& other) const { return compare(other) >= 0; }
    virtual bool operator>=(const LDIF_DN& other) const { return compare(other) <= 0; }
};

std::ostream& operator<<(std::ostream& stream, const LDIF_RDN_value& value);
std::ostream& operator<<(std::ostream& stream, const LDIF_RDN_pair& pair);
std::ostream& operator<<(std::ostream& stream, const LDIF_RDN& rdn);
std::ostream& operator<<(std::ostream& stream, const LDIF_DN& dn);

namespace veltor::detail {

/// The DN's text for a message: empty where it can't be printed, since a report must not fail.
std::string printable(const LDIF_DN& dn);

/// Appends what str() gives. @throws LDIF_Exception 34/1013
void appendTo(std::string& text, const LDIF_DN& dn);

/// Prints DNs one after the other of which most share their upper levels with the one before.
class DnPrinter
{
public:
    /// What str() gives, valid until the next call.
    /// @param dn  is not changed, and neither are its RDNs, until the next one was printed
    /// @throws LDIF_Exception 34/1013; the printer can't be used any more then
    std::string_view print(const LDIF_DN& dn);

private:
    const LDIF_DN* last_ = nullptr;
    std::string text_;
    std::string spare_;
    std::vector<std::size_t> lengths_; // of the text from each level on to its end, which is the root
};

/// What the assignment of a text does. @throws as that
void parse(LDIF_DN& dn, std::string_view text);

/// How many RDNs two DNs have in common, counted from the root in one and from a level on in the other.
std::size_t commonLevels(const LDIF_DN& dn, const LDIF_DN& other, std::size_t from = 0);

/// Remembers the RDNs of ancestors while it is in force on a thread: files say the same ones again and again, and DNs
/// below them get those that are there already.
///
/// Only what parses well is remembered, by its exact text, and only plain ASCII, whose meaning no locale changes.
class DnMemory
{
public:
    /// @param expected  about how many ancestors there may be
    explicit DnMemory(std::size_t expected);
    DnMemory(const DnMemory&) = delete;
    DnMemory& operator=(const DnMemory&) = delete;
    ~DnMemory();

    static DnMemory* inForce() { return inForce_; }

    /// What localeReadsAscii() says: as long as a memory is in force the locale stays what it is.
    bool readsAscii() const { return readsAscii_; }

    /// The RDN that was remembered for a text; null if none was.
    const RdnRef* find(std::string_view text) const;
    void remember(std::string_view text, const RdnRef& rdn);

    /// Lends a whole DN, which has a level at least, until the next one is lent: the next line most likely lies below
    /// it.
    void lend(std::string_view text, const LDIF_DN& dn);
    /// The DN that is lent, if that is its text; else null.
    const LDIF_DN* lent(std::string_view text) const { return text == lentText_ ? lent_ : nullptr; }

private:
    struct Slot
    {
        std::string text;
        LDIF_DN rdn; // one level, or none
    };

    std::size_t placeOf(std::string_view text) const { return hashBytes(hashSeed(), text) & (slots_.size() - 1); }

    static constinit thread_local DnMemory* inForce_;

    DnMemory* outer_;
    std::vector<Slot> slots_; // a power of two; one slot serves all texts whose hashes end alike
    std::string lentText_;
    const LDIF_DN* lent_ = nullptr;
    bool readsAscii_ = localeReadsAscii();
};

} // namespace veltor::detail

#endif
