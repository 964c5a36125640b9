// Typed values and value lists.
#include "LDIF_Value.h"

#include "LDIF_AttrType.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "rendered_text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <utility>

using veltor::detail::guarded;
using veltor::detail::Layer;

namespace {

const char* nameOf(const _AttrType* type)
{
    return type != nullptr && type->name != nullptr ? type->name : "";
}

[[noreturn]] void refuse(int line, int ldapCode, const char* message, std::string_view text, const _AttrType* type)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, 1000, message);
    failure.value = text;
    failure.attribute = nameOf(type);
    throw failure;
}

} // namespace

LDIF_Value::LDIF_Value(const _AttrType* type, const char* text) : LDIF_Value(type)
{
    const std::string given = text == nullptr ? "" : text;
    build(given, [&] { type->fromStr(*this, given); });
}

LDIF_Value::LDIF_Value(const _AttrType* type, std::string_view text) : LDIF_Value(type)
{
    const std::string_view given = text.substr(0, text.find('\0'));
    build(given, [&] {
        if (!veltor::detail::setPlainText(*this, given)) {
            type->fromStr(*this, std::string(given));
        }
    });
}

/// Lets the syntax fill in the value.
template <class FromStr>
void LDIF_Value::build(std::string_view text, FromStr&& fromStr)
{
    if (attrType == nullptr) {
        refuse(__LINE__, veltor::result::other, "Illegal LDIF_Value( string ) constructor: attrType undefined", text,
               attrType);
    }
    guarded(Layer{VELTOR_HERE, "System error in LDIF_Value( string ) constructor"}, fromStr,
            [&](LDIF_Exception& failure) {
                failure.value = text;
                failure.attribute = nameOf(attrType);
            });
}

LDIF_Value::LDIF_Value(const _AttrType* type, const void* data, int length) : LDIF_Value(type)
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

LDIF_Value::LDIF_Value(const LDIF_Value& other) : LDIF_Value(other.attrType)
{
    *this = other;
}

LDIF_Value::LDIF_Value(LDIF_Value&& other) noexcept
    : attrType(other.attrType), binaryLength(0), text_(std::move(other.text_))
{
    take(other);
}

LDIF_Value& LDIF_Value::operator=(LDIF_Value&& other) noexcept
{
    if (this != &other) {
        attrType = other.attrType;
        text_ = std::move(other.text_);
        dropPayload();
        take(other);
    }
    return *this;
}

LDIF_Value& LDIF_Value::operator=(const LDIF_Value& other)
{
    if (this == &other) {
        return *this;
    }
    if (!other.hasBinary() && other.binaryLength != 0) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: binaryLength != 0", other.text(),
               other.attrType);
    }
    if (other.hasBinary() && other.binaryLength < 1) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: binaryLength < 1", other.text(),
               other.attrType);
    }
    // Everything that can fail comes first, so a failed assignment changes nothing.
    veltor::detail::CompactText text(other.text_);
    if (other.hasBinary()) {
        setBinary(other.binary(), other.binaryLength);
    } else if (other.hasDn()) {
        setDn(LDIF_DN(*other.payload_.dn));
    } else {
        dropPayload();
    }
    attrType = other.attrType;
    text_ = std::move(text);
    return *this;
}

LDIF_Value::~LDIF_Value()
{
    dropPayload();
}

/// Takes over what the other holds; this value holds nothing.
void LDIF_Value::take(LDIF_Value& other) noexcept
{
    payload_ = other.payload_;
    holds_ = std::exchange(other.holds_, Holds::nothing);
    binaryLength = std::exchange(other.binaryLength, 0);
}

void LDIF_Value::dropPayload() noexcept
{
    if (holds_ == Holds::block) {
        std::free(payload_.block);
    } else if (hasDn()) {
        std::destroy_at(payload_.dn);
        veltor::detail::giveBack(payload_.dn, holds_ == Holds::dnInRegion);
    }
    holds_ = Holds::nothing;
    binaryLength = 0;
}

const void* LDIF_Value::binary() const
{
    if (holds_ == Holds::small) {
        return payload_.small;
    }
    return holds_ == Holds::block ? payload_.block : nullptr;
}

void LDIF_Value::setBinary(const void* data, int length)
{
    const auto size = static_cast<std::size_t>(length);
    Payload payload = {};
    Holds holds = Holds::small;
    if (size > smallBinary) {
        holds = Holds::block;
        payload.block = std::malloc(size);
        if (payload.block == nullptr) {
            throw LDIF_Exception(VELTOR_HERE, veltor::result::noMemory, 1000, "Allocation failed");
        }
        std::memcpy(payload.block, data, size);
    } else {
        std::memcpy(payload.small, data, size);
    }
    dropPayload();
    payload_ = payload;
    holds_ = holds;
    binaryLength = length;
}

void LDIF_Value::setDn(LDIF_DN&& dn)
{
    // Beside what else a load makes, when one is under way.
    const veltor::detail::Piece piece = veltor::detail::obtain(sizeof(LDIF_DN), alignof(LDIF_DN));
    dropPayload();
    payload_.dn = new (piece.memory) LDIF_DN(std::move(dn));
    holds_ = piece.fromRegion ? Holds::dnInRegion : Holds::dn;
}

std::string LDIF_Value::str() const
{
    if (attrType == nullptr || attrType->toStr == nullptr) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: attrType->toStr == NULL", text(),
               attrType);
    }
    return attrType->toStr(*this);
}

template <class Text>
void LDIF_Value::appendTo(Text& text) const
{
    if (attrType != nullptr && attrType->toStr == cesToStr) {
        text.append(text_.view());
    } else {
        text.append(str());
    }
}

template void LDIF_Value::appendTo(std::string&) const;
template void LDIF_Value::appendTo(veltor::detail::RenderedText&) const;

int LDIF_Value::compare(const LDIF_Value& other) const
{
    if (attrType == nullptr || attrType->match == nullptr) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: attrType->match == NULL", text(),
               attrType);
    }
    return attrType->match(*this, other);
}

int LDIF_Value::compare(const std::string& text) const
{
    if (attrType == nullptr || attrType->match == nullptr) {
        refuse(__LINE__, veltor::result::other, "Invalid LDIF_Value detected: attrType->match == NULL", this->text(),
               attrType);
    }
    return attrType->match(*this, LDIF_Value(attrType, std::string_view(text)));
}

std::ostream& operator<<(std::ostream& stream, const LDIF_Value& value)
{
    return stream << value.str();
}

// ---- Value lists ----

LDIF_Values::LDIF_Values(const std::string& attributeName)
    : name(attributeName), type(veltor::detail::attrTypeOf(attributeName))
{
}

LDIF_Values::LDIF_Values(veltor::detail::SharedName attributeName, const _AttrType* record)
    : name(std::move(attributeName)), type(record)
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
            values.reserve(other.values.size());
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

template <class Text>
void LDIF_Values::appendTo(Text& text) const
{
    const std::string_view label = name.str();
    for (const auto& value : values) {
        text.append(label).append(": ");
        value.appendTo(text);
        text.push_back('\n');
    }
}

template void LDIF_Values::appendTo(std::string&) const;
template void LDIF_Values::appendTo(veltor::detail::RenderedText&) const;

/// The candidate for the comparisons is the value that is kept in the end.
void LDIF_Values::add(LDIF_Value&& candidate)
{
    const auto place = values.placeOf(candidate);
    if (place.position == values.size()) {
        values.append(std::move(candidate), place);
    }
}

LDIF_Values& LDIF_Values::operator+=(const std::string& text)
{
    addText(text);
    return *this;
}

void LDIF_Values::addText(std::string_view text)
{
    add(LDIF_Value(type, text));
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
            const veltor::detail::ValueList& added = other.values;
            const std::size_t count = added.size();
            for (std::size_t index = 0; index < count; ++index) {
                text = added[index].str();
                *this += text;
            }
            return *this;
        },
        [&](LDIF_Exception& failure) {
            // An operation that fails half-way leaves the list as it was.
            values.dropFrom(present);
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
                if (current->attrType == type) {
                    add(std::move(*current));
                } else {
                    // It came in behind its list's back and has not passed this type's checks.
                    *this += current->str();
                }
            }
        },
        [&](LDIF_Exception& failure) {
            values.dropFrom(present);
            failure.attrType = type;
            failure.value = current->text();
        });
}

LDIF_Values& LDIF_Values::operator-=(const std::string& text)
{
    return guarded(
        Layer{VELTOR_HERE, "System error in LDIF_Values::operator -="},
        [&]() -> LDIF_Values& {
            if (values.empty()) {
                return *this;
            }
            const auto place = values.placeOf(LDIF_Value(type, text.c_str()));
            if (place.position != values.size()) {
                values.remove(place.position);
            }
            return *this;
        },
        [&](LDIF_Exception& failure) {
            failure.attrType = type;
            failure.value = text;
        });
}

void LDIF_Values::remove(const std::vector<std::string>& texts)
{
    veltor::detail::ValueList::Removal removal(values);
    for (const std::string& text : texts) {
        if (removal.isEmpty()) {
            return;
        }
        guarded(
            Layer{VELTOR_HERE, "System error in LDIF_Values::operator -="},
            [&] { removal.remove(LDIF_Value(type, std::string_view(text))); },
            [&](LDIF_Exception& failure) {
                failure.attrType = type;
                failure.value = text;
            });
    }
}

LDIF_Values::iterator LDIF_Values::find(const std::string& text)
{
    const auto place = placeOf(text);
    return values.begin() + (place - values.cbegin());
}

LDIF_Values::const_iterator LDIF_Values::find(const std::string& text) const
{
    return placeOf(text);
}

LDIF_Values::const_iterator LDIF_Values::placeOf(const std::string& text) const
{
    if (values.empty()) {
        return values.cend();
    }
    return values.cbegin() +
           static_cast<std::ptrdiff_t>(values.placeOf(LDIF_Value(type, std::string_view(text))).position);
}

// ---- The list of values and its index ----

namespace veltor::detail {

namespace {

// Below this a walk over the values is cheaper than keeping an index.
constexpr std::size_t indexedFrom = 16;

} // namespace

/// The index, made where there is none that serves; null where the list has to be walked.
ValueIndex* ValueList::usableIndex(const _AttrType* type) const
{
    if (items_.size() < indexedFrom || index_ == exposedMark || type == nullptr) {
        return nullptr;
    }
    if (index() == nullptr || !index()->serves(*type)) {
        setIndex(ValueIndex::of(*type, {items_.data(), items_.size()}).release());
    }
    return index();
}

ValueList::Place ValueList::placeOf(const LDIF_Value& candidate) const
{
    if (const ValueIndex* const index = usableIndex(candidate.attrType); index != nullptr) {
        if (const auto key = index->keyOf(candidate); key) {
            return {std::min(index->find({items_.data(), items_.size()}, candidate, *key), items_.size()), key};
        }
    }
    const auto place = std::find_if(items_.begin(), items_.end(),
                                    [&](const LDIF_Value& value) { return value.compare(candidate) == 0; });
    return {static_cast<size_type>(place - items_.begin()), std::nullopt};
}

void ValueList::append(LDIF_Value&& value, const Place& place)
{
    items_.push_back(std::move(value));
    if (index() != nullptr && !(place.key && index()->add(*place.key, items_.size() - 1))) {
        dropIndex();
    }
}

void ValueList::remove(size_type position)
{
    items_.erase(items_.cbegin() + static_cast<difference_type>(position));
    if (index() != nullptr) {
        index()->closeGap(position);
    }
}

void ValueList::dropFrom(size_type count) noexcept
{
    if (count < items_.size()) {
        dropIndex();
        items_.erase(items_.cbegin() + static_cast<difference_type>(count), items_.cend());
    }
}

void ValueList::Removal::remove(const LDIF_Value& candidate)
{
    if (count_ != 0 && (list_.index() == nullptr || !list_.index()->serves(*candidate.attrType))) {
        // Neither a new index nor a walk may meet what is gone.
        close();
    }
    ValueIndex* const index = list_.usableIndex(candidate.attrType);
    const auto key = index == nullptr ? std::nullopt : index->keyOf(candidate);
    if (!key) {
        close();
        if (const Place place = list_.placeOf(candidate); place.position != list_.size()) {
            list_.remove(place.position);
        }
        return;
    }
    const size_type position = index->find({list_.items_.data(), list_.items_.size()}, candidate, *key);
    if (position != ValueIndex::none) {
        gone_.resize(list_.size());
        gone_[position] = true;
        ++count_;
        index->forget(*key, position);
    }
}

/// Closes the gaps.
void ValueList::Removal::close() noexcept
{
    if (count_ == 0) {
        return;
    }
    Items& items = list_.changed();
    size_type kept = 0;
    for (size_type position = 0; position < items.size(); ++position) {
        if (!gone_[position]) {
            if (kept != position) {
                items[kept] = std::move(items[position]);
            }
            ++kept;
        }
    }
    items.erase(items.cbegin() + static_cast<difference_type>(kept), items.cend());
    gone_.clear();
    count_ = 0;
}

} // namespace veltor::detail
