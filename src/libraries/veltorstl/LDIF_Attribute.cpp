// Attributes and attribute lists.
#include "LDIF_Attribute.h"

#include "LDIF_Exception.h"
#include "rendered_text.h"

#include <algorithm>
#include <iterator>
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
        (*this)[static_cast<size_type>(position - cbegin())].merge(std::move(attribute));
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
