// Typed values, and the value list of one attribute.
#ifndef VELTOR_LDIF_VALUE_H
#define VELTOR_LDIF_VALUE_H

#include "LDIF_AttrTypeRecord.h"
#include "compact_text.h"
#include "list.h"
#include "shared_name.h"
#include "value_index.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class LDIF_DN;

/// One value: built through the syntax of its type, so it has passed that type's checks and holds the normal
/// form of its text.
///
/// Invariant: there is a binary form exactly when binaryLength is not 0.
class LDIF_Value
{
public:
    const _AttrType* attrType = nullptr; ///< whose syntax built the value; not owned
    std::int32_t binaryLength = 0;       ///< bytes of the binary form, 0 when there is none

    /// Builds a value from its text, read up to the first NUL.
    /// @throws LDIF_Exception the syntax's complaint, wrapped with the text and the type's name; 80/1000 for a
    ///         null type and for a failure of the system
    LDIF_Value(const _AttrType* type, const char* text);
    /// The same without a string for a text that is surely right and written as it is stored.
    LDIF_Value(const _AttrType* type, std::string_view text);

    /// Builds a value from a binary form of the given length in bytes.
    LDIF_Value(const _AttrType* type, const void* data, int length);

    /// Copies are deep.
    /// @throws LDIF_Exception 80/1000 for a value that breaks the invariant, 90/1000 when memory is short
    LDIF_Value(const LDIF_Value& other);
    LDIF_Value(LDIF_Value&& other) noexcept;
    LDIF_Value& operator=(const LDIF_Value& other);
    LDIF_Value& operator=(LDIF_Value&& other) noexcept;
    ~LDIF_Value();

    /// The text form, as the type gives it.
    std::string str() const;

    /// Appends str() to a text: a std::string or a veltor::detail::RenderedText.
    template <class Text>
    void appendTo(Text& text) const;

    /// Orders or equates by this value's type, whatever the type of the other.
    int compare(const LDIF_Value& other) const;

    /// The same with a text, which is checked and normalised as a value would be.
    int compare(const std::string& text) const;

    // What the syntaxes read and fill in.

    /// Followed by a NUL.
    std::string_view text() const { return text_.view(); }
    const char* cText() const { return text_.c_str(); }
    void setText(std::string_view text) { text_.assign(text); }
    /// Valid until the value changes or moves; null when there is none.
    const void* binary() const;
    /// Stores a copy of a binary form, in place of a DN. @throws LDIF_Exception 90/1000 when memory is short
    void setBinary(const void* data, int length);
    const LDIF_DN* dn() const { return hasDn() ? payload_.dn : nullptr; }
    /// Stores a DN, in place of a binary form.
    void setDn(LDIF_DN&& dn);

private:
    // What the other constructors begin with: should they fail, the destructor takes back what was made.
    explicit LDIF_Value(const _AttrType* type) noexcept : attrType(type) {}

    // A number is a binary form that needs no memory of its own.
    static constexpr std::size_t smallBinary = 8;

    enum class Holds : std::uint8_t { nothing, small, block, dn, dnInRegion };
    union Payload {
        std::byte small[smallBinary];
        void* block; // from malloc
        LDIF_DN* dn;
    };

    template <class FromStr>
    void build(std::string_view text, FromStr&& fromStr);
    bool hasDn() const { return holds_ >= Holds::dn; }
    bool hasBinary() const { return holds_ == Holds::small || holds_ == Holds::block; }
    void take(LDIF_Value& other) noexcept;
    void dropPayload() noexcept;

    // In the room that binaryLength leaves.
    Holds holds_ = Holds::nothing;
    Payload payload_ = {};
    veltor::detail::CompactText text_;
};

static_assert(sizeof(LDIF_Value) == 40);

std::ostream& operator<<(std::ostream& stream, const LDIF_Value& value);

namespace veltor::detail {

/// The values of a list with the interface of std::vector, and beside them an index that finds one without a walk.
///
/// Most attributes have one value, which lies in the list itself. The index exists from a handful of values on. Whoever
/// gets mutable access through the vector's interface may change values, then or later: from there on the list is
/// walked, until all that was given out is void.
///
/// Not thread-safe, not even for reading: the index is made on demand.
class ValueList
{
    using Items = List<LDIF_Value, 1>;

public:
    using value_type = LDIF_Value;
    using size_type = Items::size_type;
    using difference_type = Items::difference_type;
    using reference = Items::reference;
    using const_reference = Items::const_reference;
    using pointer = Items::pointer;
    using const_pointer = Items::const_pointer;
    using iterator = Items::iterator;
    using const_iterator = Items::const_iterator;
    using reverse_iterator = Items::reverse_iterator;
    using const_reverse_iterator = Items::const_reverse_iterator;

    ValueList() noexcept = default;
    ValueList(size_type count, const LDIF_Value& value) : items_(count, value) {}
    template <std::input_iterator Input>
    ValueList(Input first, Input last) : items_(first, last)
    {
    }
    ValueList(std::initializer_list<LDIF_Value> values) : items_(values) {}
    ValueList(const ValueList& other) : items_(other.items_) {}
    ValueList(ValueList&& other) noexcept : items_(std::move(other.items_)), index_(std::exchange(other.index_, 0)) {}
    ValueList& operator=(const ValueList& other)
    {
        items_ = other.items_;
        forgetAll();
        return *this;
    }
    ValueList& operator=(ValueList&& other) noexcept
    {
        if (this != &other) {
            forgetAll();
            items_ = std::move(other.items_);
            index_ = std::exchange(other.index_, 0);
        }
        return *this;
    }
    ValueList& operator=(std::initializer_list<LDIF_Value> values)
    {
        assign(values);
        return *this;
    }
    ~ValueList() { dropIndex(); }

    // ---- The vector's interface ----

    [[nodiscard]] bool empty() const noexcept { return items_.empty(); }
    size_type size() const noexcept { return items_.size(); }
    static constexpr size_type max_size() noexcept { return Items::max_size(); }
    size_type capacity() const noexcept { return items_.capacity(); }
    void reserve(size_type count) { items_.reserve(count); }
    void shrink_to_fit() { items_.shrink_to_fit(); }

    iterator begin() noexcept { return exposed().begin(); }
    iterator end() noexcept { return exposed().end(); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }
    const_iterator cbegin() const noexcept { return items_.begin(); }
    const_iterator cend() const noexcept { return items_.end(); }
    reverse_iterator rbegin() noexcept { return exposed().rbegin(); }
    reverse_iterator rend() noexcept { return exposed().rend(); }
    const_reverse_iterator rbegin() const noexcept { return items_.rbegin(); }
    const_reverse_iterator rend() const noexcept { return items_.rend(); }
    const_reverse_iterator crbegin() const noexcept { return items_.rbegin(); }
    const_reverse_iterator crend() const noexcept { return items_.rend(); }
    pointer data() noexcept { return exposed().data(); }
    const_pointer data() const noexcept { return items_.data(); }
    reference operator[](size_type position) { return exposed()[position]; }
    const_reference operator[](size_type position) const { return items_[position]; }
    /// @throws std::out_of_range for a position behind the end
    reference at(size_type position) { return exposed().at(position); }
    const_reference at(size_type position) const { return items_.at(position); }
    reference front() { return exposed().front(); }
    const_reference front() const { return items_.front(); }
    reference back() { return exposed().back(); }
    const_reference back() const { return items_.back(); }

    void push_back(const LDIF_Value& value) { changed().push_back(value); }
    void push_back(LDIF_Value&& value) { changed().push_back(std::move(value)); }
    template <class... Arguments>
    reference emplace_back(Arguments&&... arguments)
    {
        changed().emplace_back(std::forward<Arguments>(arguments)...);
        return back();
    }
    template <class... Arguments>
    iterator emplace(const_iterator position, Arguments&&... arguments)
    {
        return given(changed().emplace(position, std::forward<Arguments>(arguments)...));
    }
    void pop_back() { changed().pop_back(); }
    iterator insert(const_iterator position, const LDIF_Value& value)
    {
        return given(changed().insert(position, value));
    }
    iterator insert(const_iterator position, LDIF_Value&& value)
    {
        return given(changed().insert(position, std::move(value)));
    }
    iterator insert(const_iterator position, size_type count, const LDIF_Value& value)
    {
        return given(changed().insert(position, count, value));
    }
    template <std::input_iterator Input>
    iterator insert(const_iterator position, Input first, Input last)
    {
        return given(changed().insert(position, first, last));
    }
    iterator insert(const_iterator position, std::initializer_list<LDIF_Value> values)
    {
        return given(changed().insert(position, values));
    }
    iterator erase(const_iterator position) { return given(changed().erase(position)); }
    iterator erase(const_iterator first, const_iterator last) { return given(changed().erase(first, last)); }
    void clear() noexcept
    {
        items_.clear();
        forgetAll();
    }
    void resize(size_type count, const LDIF_Value& value) { changed().resize(count, value); }
    template <std::input_iterator Input>
    void assign(Input first, Input last)
    {
        items_.assign(first, last);
        forgetAll();
    }
    void assign(size_type count, const LDIF_Value& value)
    {
        items_.assign(count, value);
        forgetAll();
    }
    void assign(std::initializer_list<LDIF_Value> values) { assign(values.begin(), values.end()); }
    void swap(ValueList& other) noexcept
    {
        items_.swap(other.items_);
        std::swap(index_, other.index_);
    }
    friend void swap(ValueList& left, ValueList& right) noexcept { left.swap(right); }

    // ---- What the attribute's list asks. Candidates are values of its type. ----

    struct Place
    {
        size_type position; // of the first value that equals the candidate; size() if none does
        std::optional<ValueIndex::Key> key;
    };

    /// @throws LDIF_Exception what a comparison with the candidate complains about
    Place placeOf(const LDIF_Value& candidate) const;

    /// Adds a value for which placeOf() found none.
    void append(LDIF_Value&& value, const Place& place);

    void remove(size_type position);

    /// Takes back what was appended.
    void dropFrom(size_type count) noexcept;

    /// Removes many values: those that stay move up once, in the end.
    class Removal
    {
    public:
        explicit Removal(ValueList& list) noexcept : list_(list) {}
        Removal(const Removal&) = delete;
        Removal& operator=(const Removal&) = delete;
        ~Removal() { close(); }

        /// True when nothing is left.
        bool isEmpty() const noexcept { return list_.size() == count_; }
        /// Removes the first value that equals the candidate, if one does.
        void remove(const LDIF_Value& candidate);

    private:
        void close() noexcept;

        ValueList& list_;
        std::vector<bool> gone_;
        size_type count_ = 0;
    };

private:
    // In the place of the index: somebody may hold a reference with which a value can be changed.
    static constexpr std::uintptr_t exposedMark = 1;

    ValueIndex* index() const noexcept
    {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the mark and the pointer share one place
        return index_ == exposedMark ? nullptr : reinterpret_cast<ValueIndex*>(index_);
    }
    ValueIndex* usableIndex(const _AttrType* type) const;
    void setIndex(ValueIndex* index) const noexcept
    {
        delete this->index();
        index_ = reinterpret_cast<std::uintptr_t>(index);
    }
    void dropIndex() const noexcept
    {
        if (index_ > exposedMark) {
            setIndex(nullptr);
        }
    }
    /// All values are new, or gone: there is no reference to them.
    void forgetAll() noexcept
    {
        dropIndex();
        index_ = 0;
    }
    Items& changed() noexcept
    {
        dropIndex();
        return items_;
    }
    Items& exposed() noexcept
    {
        dropIndex();
        index_ = items_.empty() ? index_ : exposedMark;
        return items_;
    }
    iterator given(iterator position) noexcept
    {
        exposed();
        return position;
    }

    Items items_;
    mutable std::uintptr_t index_ = 0; // a ValueIndex, or the mark
};

} // namespace veltor::detail

/// The values of one attribute, in the order in which they came, without duplicates as the type's comparison
/// sees them. The type's single-valued flag is not enforced, on purpose.
class LDIF_Values
{
public:
    using iterator = veltor::detail::ValueList::iterator;
    using const_iterator = veltor::detail::ValueList::const_iterator;

    veltor::detail::ValueList values;
    veltor::detail::SharedName name; ///< the attribute's name, as given
    const _AttrType* type;           ///< the record of that name, or the default record; not owned

    explicit LDIF_Values(const std::string& name);
    /// An empty list whose record is known.
    LDIF_Values(veltor::detail::SharedName name, const _AttrType* type);
    LDIF_Values(const LDIF_Values&) = default;
    LDIF_Values(LDIF_Values&&) noexcept = default;
    /// Takes over name and type, then adds the other's values one by one. When that fails part-way the list is
    /// left with what was added.
    LDIF_Values& operator=(const LDIF_Values& other);
    LDIF_Values& operator=(LDIF_Values&&) noexcept = default;
    ~LDIF_Values() = default;

    iterator begin() { return values.begin(); }
    iterator end() { return values.end(); }
    const_iterator begin() const { return values.begin(); }
    const_iterator end() const { return values.end(); }
    std::size_t size() const { return values.size(); }
    bool empty() const { return values.empty(); }

    /// One line for each value: the name, ": ", the text, a line feed.
    std::string str() const;

    /// Appends str() to a text: a std::string or a veltor::detail::RenderedText.
    template <class Text>
    void appendTo(Text& text) const;

    /// Adds a value unless an equal one is there. Values and lists are added by their texts.
    /// @throws LDIF_Exception for a text that the type refuses
    LDIF_Values& operator+=(const std::string& text);
    LDIF_Values& operator+=(const LDIF_Value& value);
    LDIF_Values& operator+=(const LDIF_Values& other);

    /// What += does with a text.
    void addText(std::string_view text);

    /// Removes the first value equal to the text; none is no error. @throws LDIF_Exception for a text that the
    /// type refuses, unless the list is empty
    LDIF_Values& operator-=(const std::string& text);

    /// What -= would do with each text in turn, up to where nothing is left. When a text is refused, those before it
    /// are gone.
    void remove(const std::vector<std::string>& texts);

    /// The first value equal to the text, or end(). An empty list does not look at the text.
    iterator find(const std::string& text);
    const_iterator find(const std::string& text) const;

    /// What += would make of the other's values, which are given up.
    void absorb(LDIF_Values&& other);

private:
    void add(LDIF_Value&& candidate);
    const_iterator placeOf(const std::string& text) const;
};

static_assert(sizeof(LDIF_Values) == 72);

#endif
