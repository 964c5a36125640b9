// Typed values and value lists.
#include "LDIF_Value.h"

#include "LDIF_AttrType.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <utility>

using veltor::detail::guarded;
using veltor::detail::Layer;

namespace {

const char* nameOf(const _AttrType* type)
{
    return type != nullptr && type->name != nullptr ? type->name : "";
}

[[noreturn]] void refuse(int line, int ldapCode, const char* message, const std::string& text, const _AttrType* type)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, 1000, message);
    failure.value = text;
    failure.attribute = nameOf(type);
    throw failure;
}

} // namespace

void LDIF_Value::Free::operator()(void* block) const noexcept
{
    std::free(block);
}

LDIF_Value::LDIF_Value(const _AttrType* type, const char* text) : attrType(type)
{
    const std::string given = text == nullptr ? "" : text;
    if (type == nullptr) {
        refuse(__LINE__, veltor::result::other, "Illegal LDIF_Value( string ) constructor: attrType undefined", given,
               type);
    }
    guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Value( string ) constructor"}, [&] { type->fromStr(*this, given); },
        [&](LDIF_Exception& failure) {
            failure.value = given;
            failure.attribute = nameOf(type);
        });
}

LDIF_Value::LDIF_Value(const _AttrType* type, const void* data, int length) : attrType(type)
{
    if (type == nullptr) {
        refuse(__LINE__, veltor::result::other, "Illegal LDIF_Value( binary ) constructor: attrType undefined",
               "binary", type);
    }
    guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Value( binary ) constructor"},
        [&] { type->fromBin(*this, data, length); },
        [&](LDIF_Exception& failure) { failure.attribute = nameOf(type); });
}

LDIF_Value::LDIF_Value(const LDIF_Value& other)
{
    *this = other;
}

LDIF_Value::LDIF_Value(LDIF_Value&& other) noexcept
    : attrType(other.attrType), binaryLength(std::exchange(other.binaryLength, 0)), text_(std::move(other.text_)),
      binary_(std::move(other.binary_)), dn_(std::move(other.dn_))
{
}

LDIF_Value& LDIF_Value::operator=(LDIF_Value&& other) noexcept
{
    attrType = other.attrType;
    binaryLength = std::exchange(other.binaryLength, 0);
    text_ = std::move(other.text_);
    binary_ = std::move(other.binary_);
    dn_ = std::move(other.dn_);
    return *this;
}

LDIF_Value& LDIF_Value::operator=(const LDIF_Value& other)
{
    if (this == &other) {
        return *this;
    }
    if (other.binary_ == nullptr && other.binaryLength != 0) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: binaryLength != 0", other.text_,
               other.attrType);
    }
    if (other.binary_ != nullptr && other.binaryLength < 1) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: binaryLength < 1", other.text_,
               other.attrType);
    }
    // Everything that can fail comes first, so a failed assignment changes nothing.
    std::string text = other.text_;
    auto dn = other.dn_ == nullptr ? nullptr : std::make_unique<LDIF_DN>(*other.dn_);
    if (other.binary_ != nullptr) {
        setBinary(other.binary_.get(), other.binaryLength);
    } else {
        binary_.reset();
        binaryLength = 0;
    }
    attrType = other.attrType;
    text_ = std::move(text);
    dn_ = std::move(dn);
    return *this;
}

LDIF_Value::~LDIF_Value() = default;

void LDIF_Value::setBinary(const void* data, int length)
{
    const auto size = static_cast<std::size_t>(length);
    std::unique_ptr<void, Free> block(std::malloc(size));
    if (block == nullptr) {
        throw LDIF_Exception(VELTOR_HERE, veltor::result::noMemory, 1000, "Allocation failed");
    }
    std::memcpy(block.get(), data, size);
    binary_ = std::move(block);
    binaryLength = length;
}

void LDIF_Value::setDn(std::unique_ptr<LDIF_DN> dn)
{
    dn_ = std::move(dn);
}

std::string LDIF_Value::str() const
{
    if (attrType == nullptr || attrType->toStr == nullptr) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: attrType->toStr == NULL", text_,
               attrType);
    }
    return attrType->toStr(*this);
}

int LDIF_Value::compare(const LDIF_Value& other) const
{
    if (attrType == nullptr || attrType->match == nullptr) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: attrType->match == NULL", text_,
               attrType);
    }
    return attrType->match(*this, other);
}

int LDIF_Value::compare(const std::string& text) const
{
    if (attrType == nullptr || attrType->match == nullptr) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: attrType->match == NULL", text_,
               attrType);
    }
    return attrType->match(*this, LDIF_Value(attrType, text.c_str()));
}

std::ostream& operator<<(std::ostream& stream, const LDIF_Value& value)
{
    return stream << value.str();
}

// ---- Value lists ----

LDIF_Values::LDIF_Values(const std::string& attributeName)
    : name(attributeName), type(getAttrType(attributeName.empty() ? nullptr : attributeName.c_str()))
{
}

LDIF_Values& LDIF_Values::operator=(const LDIF_Values& other)
{
    if (this == &other) {
        return *this;
    }
    return guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Values::operator ="},
        [&]() -> LDIF_Values& {
            values.clear();
            name = other.name;
            type = other.type;
            return *this += other;
        },
        [&](LDIF_Exception& failure) { failure.attrType = type; });
}

std::string LDIF_Values::str() const
{
    std::string text;
    appendTo(text);
    return text;
}

void LDIF_Values::appendTo(std::string& text) const
{
    for (const auto& value : values) {
        text += name;
        text += ": ";
        text += value.str();
        text += '\n';
    }
}

bool LDIF_Values::contains(const LDIF_Value& candidate) const
{
    return std::any_of(values.begin(), values.end(),
                       [&](const LDIF_Value& value) { return value.compare(candidate) == 0; });
}

/// An operation that fails half-way leaves the list as it was.
void LDIF_Values::dropFrom(std::size_t count)
{
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(count), values.end());
}

LDIF_Values& LDIF_Values::operator+=(const std::string& text)
{
    // The candidate for the comparisons is the value that is kept in the end.
    LDIF_Value candidate(type, text.c_str());
    if (!contains(candidate)) {
        values.push_back(std::move(candidate));
    }
    return *this;
}

LDIF_Values& LDIF_Values::operator+=(const LDIF_Value& value)
{
    std::string text;
    return guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Values::operator +="},
        [&]() -> LDIF_Values& {
            text = value.str();
            return *this += text;
        },
        [&](LDIF_Exception& failure) {
            failure.attrType = type;
            failure.value = text;
        });
}

LDIF_Values& LDIF_Values::operator+=(const LDIF_Values& other)
{
    const std::size_t present = values.size();
    std::string text;
    return guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Values::operator +="},
        [&]() -> LDIF_Values& {
            // By index and up to the count at the start: the other list may be this one.
            const std::size_t count = other.values.size();
            for (std::size_t index = 0; index < count; ++index) {
                text = other.values[index].str();
                *this += text;
            }
            return *this;
        },
        [&](LDIF_Exception& failure) {
            dropFrom(present);
            failure.attrType = type;
            failure.value = text;
        });
}

void LDIF_Values::absorb(LDIF_Values&& other)
{
    if (other.type != type || !veltor::detail::textReadsBackEqual(*type)) {
        *this += other;
        return;
    }
    const std::size_t present = values.size();
    auto current = other.values.begin();
    guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Values::operator +="},
        [&] {
            for (; current != other.values.end(); ++current) {
                if (!contains(*current)) {
                    values.push_back(std::move(*current));
                }
            }
        },
        [&](LDIF_Exception& failure) {
            dropFrom(present);
            failure.attrType = type;
            failure.value = current->text();
        });
}

LDIF_Values& LDIF_Values::operator-=(const std::string& text)
{
    return guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Values::operator -="},
        [&]() -> LDIF_Values& {
            if (const auto place = find(text); place != values.end()) {
                values.erase(place);
            }
            return *this;
        },
        [&](LDIF_Exception& failure) {
            failure.attrType = type;
            failure.value = text;
        });
}

LDIF_Values::iterator LDIF_Values::find(const std::string& text)
{
    const auto place = std::as_const(*this).find(text);
    return values.begin() + (place - values.cbegin());
}

LDIF_Values::const_iterator LDIF_Values::find(const std::string& text) const
{
    if (values.empty()) {
        return values.end();
    }
    const LDIF_Value candidate(type, text.c_str());
    return std::find_if(values.begin(), values.end(),
                        [&](const LDIF_Value& value) { return value.compare(candidate) == 0; });
}
