// Attributes and attribute lists.
#include "LDIF_Attribute.h"

#include "LDIF_Exception.h"

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

std::string LDIF_Attribute::str() const
{
    std::string text;
    appendTo(text);
    return text;
}

void LDIF_Attribute::appendTo(std::string& text) const
{
    comment.appendTo(text);
    values.appendTo(text);
}

LDIF_Attributes& LDIF_Attributes::operator+=(const LDIF_Attribute& attribute)
{
    return *this += LDIF_Attribute(attribute);
}

LDIF_Attributes& LDIF_Attributes::operator+=(LDIF_Attribute&& attribute)
{
    auto position = end();
    while (position != begin()) {
        const auto element = std::prev(position);
        const int order = element->name.compare(attribute.name);
        if (order == 0) {
            element->comment.absorb(std::move(attribute.comment));
            element->values.absorb(std::move(attribute.values));
            return *this;
        }
        if (order < 0) {
            break;
        }
        position = element;
    }
    insert(position, std::move(attribute));
    return *this;
}

LDIF_Attributes& LDIF_Attributes::operator+=(const LDIF_Attributes& other)
{
    if (this == &other) {
        return *this += LDIF_Attributes(other);
    }
    auto incoming = other.begin();
    for (auto element = begin(); element != end() && incoming != other.end(); ++element) {
        while (incoming != other.end() && incoming->name.compare(element->name) < 0) {
            element = std::next(insert(element, *incoming));
            ++incoming;
        }
        while (incoming != other.end() && incoming->name.compare(element->name) == 0) {
            element->comment += incoming->comment;
            element->values += incoming->values;
            ++incoming;
        }
    }
    insert(end(), incoming, other.end());
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
    // The last one first: most questions come while attributes arrive in order.
    if (empty() || back().name.compare(name) < 0) {
        return end();
    }
    const auto position = std::lower_bound(begin(), end(), name, [](const auto& element, const cisString& wanted) {
        return element.name.compare(wanted) < 0;
    });
    return position->name.compare(name) == 0 ? position : end();
}

std::string LDIF_Attributes::str() const
{
    std::string text;
    appendTo(text);
    return text;
}

void LDIF_Attributes::appendTo(std::string& text) const
{
    for (const auto& attribute : *this) {
        attribute.appendTo(text);
    }
}
