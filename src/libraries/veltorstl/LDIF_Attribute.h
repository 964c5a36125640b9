// One attribute of an entry, and the attribute list of an entry.
#ifndef VELTOR_LDIF_ATTRIBUTE_H
#define VELTOR_LDIF_ATTRIBUTE_H

#include "LDIF_Comment.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"
#include "LDIF_Value.h"
#include "list.h"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

/// One attribute: its name as written, the comment lines above it, its typed values.
class LDIF_Attribute
{
public:
    cisString name;
    LDIF_Comment comment;
    LDIF_Values values;

    /// An attribute with one value, or with none when the value is empty.
    /// @throws LDIF_Exception for a value that the attribute's type refuses
    LDIF_Attribute(const std::string& name, const std::string& value);

    /// An attribute from a line of the file.
    /// @throws LDIF_Exception 80/1000 for a line that is not an attribute line; else as above
    LDIF_Attribute(const LDIF_Line& line, const LDIF_Comment& comment);

    /// An attribute without values whose record is known.
    LDIF_Attribute(std::string_view name, veltor::detail::SharedName sharedName, const _AttrType* type);

    LDIF_Attribute(const LDIF_Attribute&) = default;
    LDIF_Attribute(LDIF_Attribute&&) noexcept = default;
    LDIF_Attribute& operator=(const LDIF_Attribute&) = default;
    LDIF_Attribute& operator=(LDIF_Attribute&&) noexcept = default;
    ~LDIF_Attribute() = default;

    /// The comment lines, then one line for each value, each with its line feed.
    virtual std::string str() const;

    /// Appends str() to a text: a std::string or a veltor::detail::RenderedText.
    template <class Text>
    void appendTo(Text& text) const;

    /// Adds the comment lines, then the values, of an attribute of this name that is given up.
    void merge(LDIF_Attribute&& other);
};

/// The attributes of an entry.
///
/// Invariants: sorted by name as strcasecmp orders, and no two names compare equal. The operations below keep
/// them; nothing else may insert.
///
/// A list that a load made has a map of the names in it, with which look-ups mostly need not look at the attributes.
/// Whoever gets mutable access through the vector's interface may rename attributes, then or later: from there on
/// there is no map.
class LDIF_Attributes : public veltor::detail::List<LDIF_Attribute>
{
    using Items = veltor::detail::List<LDIF_Attribute>;

public:
    LDIF_Attributes() = default;

    // ---- What the vector's interface gives to change ----

    iterator begin() noexcept { return exposed().begin(); }
    iterator end() noexcept { return exposed().end(); }
    const_iterator begin() const noexcept { return Items::begin(); }
    const_iterator end() const noexcept { return Items::end(); }
    reverse_iterator rbegin() noexcept { return exposed().rbegin(); }
    reverse_iterator rend() noexcept { return exposed().rend(); }
    const_reverse_iterator rbegin() const noexcept { return Items::rbegin(); }
    const_reverse_iterator rend() const noexcept { return Items::rend(); }
    pointer data() noexcept { return exposed().data(); }
    const_pointer data() const noexcept { return Items::data(); }
    reference operator[](size_type position) { return exposed()[position]; }
    const_reference operator[](size_type position) const { return Items::operator[](position); }
    reference at(size_type position) { return exposed().at(position); }
    const_reference at(size_type position) const { return Items::at(position); }
    reference front() { return exposed().front(); }
    const_reference front() const { return Items::front(); }
    reference back() { return exposed().back(); }
    const_reference back() const { return Items::back(); }
    void push_back(const LDIF_Attribute& attribute) { exposed().push_back(attribute); }
    void push_back(LDIF_Attribute&& attribute) { exposed().push_back(std::move(attribute)); }
    template <class... Arguments>
    reference emplace_back(Arguments&&... arguments)
    {
        return exposed().emplace_back(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    iterator emplace(const_iterator position, Arguments&&... arguments)
    {
        return exposed().emplace(position, std::forward<Arguments>(arguments)...);
    }
    iterator insert(const_iterator position, const LDIF_Attribute& attribute)
    {
        return exposed().insert(position, attribute);
    }
    iterator insert(const_iterator position, LDIF_Attribute&& attribute)
    {
        return exposed().insert(position, std::move(attribute));
    }
    iterator insert(const_iterator position, size_type count, const LDIF_Attribute& attribute)
    {
        return exposed().insert(position, count, attribute);
    }
    template <std::input_iterator Input>
    iterator insert(const_iterator position, Input first, Input last)
    {
        return exposed().insert(position, first, last);
    }
    iterator insert(const_iterator position, std::initializer_list<LDIF_Attribute> attributes)
    {
        return exposed().insert(position, attributes);
    }
    iterator erase(const_iterator position) { return exposed().erase(position); }
    iterator erase(const_iterator first, const_iterator last) { return exposed().erase(first, last); }
    void resize(size_type count, const LDIF_Attribute& attribute) { exposed().resize(count, attribute); }
    template <std::input_iterator Input>
    void assign(Input first, Input last)
    {
        exposed().assign(first, last);
    }
    void assign(size_type count, const LDIF_Attribute& attribute) { exposed().assign(count, attribute); }
    void assign(std::initializer_list<LDIF_Attribute> attributes) { exposed().assign(attributes); }
    void swap(LDIF_Attributes& other) noexcept
    {
        Items::swap(other);
        map_.swap(other.map_);
    }
    friend void swap(LDIF_Attributes& left, LDIF_Attributes& right) noexcept { left.swap(right); }

    // ---- Attributes by name ----

    /// Inserts an attribute at its place, or merges it into the one of its name: first the comment lines are
    /// appended, then the values added. The end is looked at first, since attributes mostly arrive in order.
    /// @throws LDIF_Exception for a value that can't be added; the comment lines are in by then
    LDIF_Attributes& operator+=(const LDIF_Attribute& attribute);
    LDIF_Attributes& operator+=(LDIF_Attribute&& attribute);

    /// Merges a whole list.
    LDIF_Attributes& operator+=(const LDIF_Attributes& other);

    /// Removes the attribute of that name, if there is one; only the name is looked at.
    LDIF_Attributes& operator-=(const LDIF_Attribute& attribute);

    /// The attribute of that name, or end().
    iterator find(const cisString& name);
    const_iterator find(const cisString& name) const;

    /// Looks one name up in many lists.
    class Finder
    {
    public:
        /// @param name  must outlive the finder
        explicit Finder(const cisString& name);

        /// False when the list surely has no such attribute: that takes no look at the attributes.
        bool mayFindIn(const LDIF_Attributes& list) const noexcept { return (list.map_[word_] & mask_) != 0; }

        /// Where it will look first, if that is known.
        const LDIF_Attribute* likelyPlace(const LDIF_Attributes& list) const noexcept;

        /// The attribute of the name, or null.
        const LDIF_Attribute* find(const LDIF_Attributes& list) const { return find(list, likelyPlace(list)); }
        const LDIF_Attribute* find(const LDIF_Attributes& list, const LDIF_Attribute* likelyPlace) const;

    private:
        const cisString& name_;
        const _AttrType* type_; // null for a name that the catalogue does not know
        std::size_t word_;
        std::uint64_t mask_;
    };

    /// Makes the map, for a list whose attributes all have the records of their names.
    void mapNames() noexcept;

    /// The attributes' texts in order.
    std::string str() const;

    /// Appends str() to a text: a std::string or a veltor::detail::RenderedText.
    template <class Text>
    void appendTo(Text& text) const;

private:
    // A bit for each record of the catalogue, in its order, which is that of the names; the names that it does not know
    // share the bit of the default record. Without a map all bits are set, also those that no record has.
    using Map = std::array<std::uint64_t, 2>;
    static constexpr Map anything = {~std::uint64_t{0}, ~std::uint64_t{0}};
    bool isMapped() const noexcept { return (map_[1] >> 63U) == 0; }

    Items& exposed() noexcept
    {
        map_ = anything;
        return *this;
    }
    const_iterator placeOf(const cisString& name) const;

    Map map_ = {};
};

namespace veltor::detail {

/// The name of a line type, as messages show it.
const char* lineTypeName(LDIF_Line::Type type);

} // namespace veltor::detail

#endif
