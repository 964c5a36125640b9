// Attributes and attribute lists.
#include "LDIF_Attribute.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "rendered_text.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <optional>
#include <utility>

const char* veltor::detail::lineTypeName(LDIF_Line::Type type)
{
    switch (type) {
    case LDIF_Line::endOfFile:
        return "endOfFile";
    case LDIF_Line::blankLine:
        return "blankLine";
    case LDIF_Line::comment:
        return "comment";
    case LDIF_Line::dn:
        return "dn";
    case LDIF_Line::attribute:
        return "attribute";
    }
    return "UNKNOWN";
}

LDIF_Attribute::LDIF_Attribute(const std::string& attributeName, const std::string& value)
    : name(attributeName), values(attributeName)
{
    if (!value.empty()) {
        values += value;
    }
}

LDIF_Attribute::LDIF_Attribute(const LDIF_Line& line, const LDIF_Comment& precedingComment)
    : name(line.name), comment(precedingComment), values(line.name)
{
    if (line.type != LDIF_Line::attribute) {
        const std::string message = std::string("Illegal constructor LDIF_Attribute( LDIF_Line::") +
                                    veltor::detail::lineTypeName(line.type) + " );";
        throw LDIF_Exception(VELTOR_HERE, veltor::result::other, 1000, message.c_str());
    }
    values += line.value;
}

LDIF_Attribute::LDIF_Attribute(std::string_view attributeName, veltor::detail::SharedName sharedName,
                               const _AttrType* type)
    : name(std::string(attributeName)), values(std::move(sharedName), type)
{
}

std::string LDIF_Attribute::str() const
{
    std::string text;
    appendTo(text);
    return text;
}

template <class Text>
void LDIF_Attribute::appendTo(Text& text) const
{
    comment.appendTo(text);
    values.appendTo(text);
}

template void LDIF_Attribute::appendTo(std::string&) const;
template void LDIF_Attribute::appendTo(veltor::detail::RenderedText&) const;

void LDIF_Attribute::merge(LDIF_Attribute&& other)
{
    comment.absorb(std::move(other.comment));
    values.absorb(std::move(other.values));
}

LDIF_Attributes& LDIF_Attributes::operator+=(const LDIF_Attribute& attribute)
{
    return *this += LDIF_Attribute(attribute);
}

LDIF_Attributes& LDIF_Attributes::operator+=(LDIF_Attribute&& attribute)
{
    const auto position = std::as_const(*this).placeOf(attribute.name);
    if (position != cend() && position->name.compare(attribute.name) == 0) {
        // The name stays: no reason to forget the map.
        Items::operator[](static_cast<size_type>(position - cbegin())).merge(std::move(attribute));
    } else {
        insert(position, std::move(attribute));
    }
    return *this;
}

LDIF_Attributes& LDIF_Attributes::operator+=(const LDIF_Attributes& other)
{
    if (this == &other) {
        return *this += LDIF_Attributes(other);
    }
    constexpr size_type manyTimes = 8;
    if (other.size() < size() / manyTimes) {
        // Few into many: a walk over the many is what would cost.
        for (const auto& incoming : other) {
            *this += incoming;
        }
        return *this;
    }
    LDIF_Attributes merged;
    merged.reserve(size() + other.size());
    auto own = begin();
    auto incoming = other.begin();
    const auto takeOwn = [&] { merged.push_back(std::move(*own++)); };
    try {
        while (incoming != other.end()) {
            const int order = own == end() ? 1 : own->name.compare(incoming->name);
            if (order < 0) {
                takeOwn();
            } else if (order > 0) {
                merged.push_back(*incoming++);
            } else {
                own->comment += incoming->comment;
                own->values += incoming->values;
                ++incoming;
            }
        }
    } catch (...) {
        // What was merged before the failure stays, and so does all that was there.
        std::for_each(own, end(), [&merged](LDIF_Attribute& left) { merged.push_back(std::move(left)); });
        swap(merged);
        throw;
    }
    while (own != end()) {
        takeOwn();
    }
    swap(merged);
    return *this;
}

LDIF_Attributes& LDIF_Attributes::operator-=(const LDIF_Attribute& attribute)
{
    if (const auto position = find(attribute.name); position != end()) {
        erase(position);
    }
    return *this;
}

LDIF_Attributes::iterator LDIF_Attributes::find(const cisString& name)
{
    return begin() + (std::as_const(*this).find(name) - cbegin());
}

LDIF_Attributes::const_iterator LDIF_Attributes::find(const cisString& name) const
{
    const auto position = placeOf(name);
    return position != end() && position->name.compare(name) == 0 ? position : end();
}

namespace {

struct Bit
{
    std::size_t word;
    std::uint64_t mask;
};

/// The bit of a record of the catalogue; none for a record from elsewhere.
std::optional<Bit> bitOf(const _AttrType* type) noexcept
{
    constexpr std::size_t wordBits = 64;
    static_assert(attrMapArray.size() < 2 * wordBits);
    const auto offset = reinterpret_cast<std::uintptr_t>(type) - reinterpret_cast<std::uintptr_t>(attrMapArray.data());
    const std::size_t index = offset / sizeof(_AttrType);
    if (index >= attrMapArray.size()) {
        return std::nullopt;
    }
    return Bit{index / wordBits, std::uint64_t{1} << (index % wordBits)};
}

} // namespace

void LDIF_Attributes::mapNames() noexcept
{
    Map map = {};
    for (const LDIF_Attribute& attribute : std::as_const(*this)) {
        const auto bit = bitOf(attribute.values.type);
        if (!bit) {
            return;
        }
        map[bit->word] |= bit->mask;
    }
    map_ = map;
}

LDIF_Attributes::Finder::Finder(const cisString& name) : name_(name), type_(veltor::detail::attrTypeOf(name))
{
    const Bit bit = *bitOf(type_);
    word_ = bit.word;
    mask_ = bit.mask;
    if (type_ == &attrMapArray.back()) {
        type_ = nullptr;
    }
}

const LDIF_Attribute* LDIF_Attributes::Finder::likelyPlace(const LDIF_Attributes& list) const noexcept
{
    if (!mayFindIn(list) || !list.isMapped()) {
        return nullptr;
    }
    // As many attributes stand before it as records that have a bit, if the catalogue knows them all.
    auto before = static_cast<size_type>(std::popcount(list.map_[word_] & (mask_ - 1)));
    if (word_ == 1) {
        before += static_cast<size_type>(std::popcount(list.map_[0]));
    }
    return before < list.size() ? list.data() + before : nullptr;
}

const LDIF_Attribute* LDIF_Attributes::Finder::find(const LDIF_Attributes& list,
                                                    const LDIF_Attribute* likelyPlace) const
{
    if (!mayFindIn(list)) {
        return nullptr;
    }
    // With a map every attribute has the record of its name, so the record tells the name.
    if (likelyPlace != nullptr && likelyPlace->values.type == type_) {
        return likelyPlace;
    }
    const auto place = list.find(name_);
    return place == list.end() ? nullptr : place;
}

/// The first attribute whose name does not sort before the name.
LDIF_Attributes::const_iterator LDIF_Attributes::placeOf(const cisString& name) const
{
    // The end first: attributes mostly arrive in order.
    if (empty() || back().name.compare(name) < 0) {
        return end();
    }
    return std::lower_bound(begin(), end(), name, [](const auto& element, const cisString& wanted) {
        return element.name.compare(wanted) < 0;
    });
}

std::string LDIF_Attributes::str() const
{
    std::string text;
    appendTo(text);
    return text;
}

template <class Text>
void LDIF_Attributes::appendTo(Text& text) const
{
    for (const auto& attribute : *this) {
        attribute.appendTo(text);
    }
}

template void LDIF_Attributes::appendTo(std::string&) const;
template void LDIF_Attributes::appendTo(veltor::detail::RenderedText&) const;
