// The children of an entry and their index.
#include "LDIF_EntryList.h"

#include "LDIF_Entry.h"
#include "fold_hash.h"
#include "hash_cells.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <utility>

using veltor::detail::FoldTable;
using veltor::detail::foldTable;
using veltor::detail::HashCells;

namespace {

// Below this a walk over the children is cheaper than keeping an index.
constexpr std::size_t indexedFrom = 12;

/// True when `ancestor` says what `dn` says from level `from` on, as far as it goes.
bool leads(const LDIF_DN& ancestor, const LDIF_DN& dn, std::size_t from)
{
    if (ancestor.size() > dn.size() - from) {
        return false;
    }
    // The most specific RDN first: it is the one that differs.
    for (std::size_t level = ancestor.size(); level > 0; --level) {
        if (!ancestor.shared(level - 1).isEqual(dn.shared(from + level - 1))) {
            return false;
        }
    }
    return true;
}

/// True when `descendant` lies below what `dn` says from level `from` on.
bool liesBelow(const LDIF_DN& descendant, const LDIF_DN& dn, std::size_t from)
{
    return descendant.size() > dn.size() - from &&
           veltor::detail::commonLevels(descendant, dn, from) == dn.size() - from;
}

} // namespace

// ---- The index ----

struct LDIF_EntryList::Index
{
    using Slot = std::uint32_t;
    using Group = std::vector<Slot>;

    FoldTable fold = foldTable();
    // The slots of the children, plus one, by their relative DNs. A child that left is told by the hole in its slot.
    // Made on demand too: a load that knows what is there never asks.
    std::optional<HashCells<Slot>> equals;
    std::size_t longest = 0; // RDNs of the longest relative DN among those
    // For each number of RDNs that was asked for: the children that lie deeper, by those RDNs. Mostly one child, which
    // is then its slot with the lone bit; else a group's position plus one. Made on demand, so that moving children
    // down a deep tree does not cost the square of its depth.
    HashCells<Slot> below;
    std::vector<Group> groups; // ascending
    std::vector<bool> belowLevels;
    std::vector<std::uint64_t> hashes; // of the DN at hand, by number of RDNs less one

    static constexpr Slot lone = 0x80000000U;

    /// Fills in the hashes of what a DN says from a level on, up to a number of RDNs.
    void hash(const LDIF_DN& dn, std::size_t from, std::size_t count) { dn.hashLevels(hashes, from, count, fold); }

    bool isKeptBelow(std::size_t levels) const { return levels < belowLevels.size() && belowLevels[levels]; }

    void add(const LDIF_DN& relDn, std::size_t slot)
    {
        if (relDn.empty()) {
            // No DN below this level names it.
            return;
        }
        if (!equals && belowLevels.empty()) {
            return;
        }
        hash(relDn, 0, relDn.size());
        if (equals) {
            equals->prefetch(hashes.back());
        }
        for (std::size_t levels = 1; levels < relDn.size(); ++levels) {
            if (isKeptBelow(levels)) {
                below.prefetch(hashes[levels - 1]);
            }
        }
        for (std::size_t levels = 1; levels < relDn.size(); ++levels) {
            if (isKeptBelow(levels)) {
                addBelow(hashes[levels - 1], static_cast<Slot>(slot));
            }
        }
        if (equals) {
            longest = std::max(longest, relDn.size());
            equals->add(hashes.back(), static_cast<Slot>(slot) + 1);
        }
    }

    void makeEquals(const Slots& slots)
    {
        HashCells<Slot> made(slots.size());
        for (std::size_t slot = 0; slot < slots.size(); ++slot) {
            if (slots[slot] != nullptr && !slots[slot]->relDn.empty()) {
                const LDIF_DN& relDn = slots[slot]->relDn;
                hash(relDn, 0, relDn.size());
                longest = std::max(longest, relDn.size());
                made.add(hashes.back(), static_cast<Slot>(slot) + 1);
            }
        }
        equals = std::move(made);
    }

    void addBelow(std::uint64_t key, Slot slot)
    {
        Slot* const present = below.find(key, [](Slot) { return true; });
        if (present == nullptr) {
            below.add(key, slot | lone);
        } else if ((*present & lone) != 0) {
            groups.push_back({*present & ~lone, slot});
            *present = static_cast<Slot>(groups.size());
        } else {
            groups[*present - 1].push_back(slot);
        }
    }

    std::unique_ptr<LDIF_Entry>* find(Slots& slots, const LDIF_DN& dn, std::size_t from)
    {
        if (!equals) {
            makeEquals(slots);
        }
        const std::size_t most = std::min(dn.size() - from, longest);
        hash(dn, from, most);
        for (std::size_t levels = 1; levels <= most; ++levels) {
            const std::uint64_t key = hashes[levels - 1];
            std::unique_ptr<LDIF_Entry>* hit = nullptr;
            equals->find(key, [&](Slot slotPlusOne) {
                auto& slot = slots[slotPlusOne - 1];
                hit = slot != nullptr && slot->relDn.size() == levels && leads(slot->relDn, dn, from) ? &slot : nullptr;
                return hit != nullptr;
            });
            if (hit != nullptr) {
                return hit;
            }
            if (isKeptBelow(levels) && below.find(key, [](Slot) { return true; }) == nullptr) {
                // Nobody lies below these RDNs, so nobody has more of them.
                return nullptr;
            }
        }
        return nullptr;
    }

    /// The slots that may hold children below what the DN says from a level on.
    Group slotsBelow(const Slots& slots, const LDIF_DN& dn, std::size_t from)
    {
        const std::size_t levels = dn.size() - from;
        if (!isKeptBelow(levels)) {
            belowLevels.resize(std::max(belowLevels.size(), levels + 1));
            belowLevels[levels] = true;
            for (std::size_t slot = 0; slot < slots.size(); ++slot) {
                if (slots[slot] != nullptr && slots[slot]->relDn.size() > levels) {
                    hash(slots[slot]->relDn, 0, levels);
                    addBelow(hashes.back(), static_cast<Slot>(slot));
                }
            }
        }
        hash(dn, from, levels);
        const Slot* const found = below.find(hashes.back(), [](Slot) { return true; });
        if (found == nullptr) {
            return {};
        }
        return (*found & lone) != 0 ? Group{*found & ~lone} : groups[*found - 1];
    }
};

LDIF_EntryList::Body::Body() = default;
LDIF_EntryList::Body::~Body() = default;

LDIF_EntryList::Index* LDIF_EntryList::usableIndex() const
{
    // In another locale other DNs are equal, so the keys are made again.
    if (body_->index == nullptr || body_->index->fold != foldTable()) {
        body_->index = std::make_unique<Index>();
    }
    return body_->index.get();
}

std::unique_ptr<LDIF_Entry>* LDIF_EntryList::find(const LDIF_DN& dn, std::size_t from) const
{
    if (body_ == nullptr) {
        return nullptr;
    }
    if (body_->slots.size() >= indexedFrom) {
        auto* const hit = usableIndex()->find(body_->slots, dn, from);
        if (hit != nullptr || !body_->exposed) {
            return hit;
        }
    }
    const auto slot = std::find_if(body_->slots.begin(), body_->slots.end(), [&](const auto& child) {
        return child != nullptr && leads(child->relDn, dn, from);
    });
    return slot == body_->slots.end() ? nullptr : &*slot;
}

LDIF_Entry* LDIF_EntryList::equalOrAncestor(const LDIF_DN& dn, std::size_t from) const
{
    const auto* const slot = find(dn, from);
    return slot == nullptr ? nullptr : slot->get();
}

/// The slots of the children that lie below a DN, ascending.
std::vector<std::size_t> LDIF_EntryList::below(const LDIF_DN& dn, std::size_t from) const
{
    std::vector<std::size_t> found;
    if (body_ == nullptr) {
        return found;
    }
    const auto& slots = body_->slots;
    const auto look = [&](std::size_t slot) {
        if (slots[slot] != nullptr && liesBelow(slots[slot]->relDn, dn, from)) {
            found.push_back(slot);
        }
    };
    if (slots.size() < indexedFrom || body_->exposed || dn.size() == from) {
        for (std::size_t slot = 0; slot < slots.size(); ++slot) {
            look(slot);
        }
        return found;
    }
    if (body_->longest <= dn.size() - from) {
        return found;
    }
    try {
        const auto group = usableIndex()->slotsBelow(slots, dn, from);
        std::for_each(group.begin(), group.end(), look);
    } catch (...) {
        // Half an index would hide children.
        body_->index.reset();
        throw;
    }
    return found;
}

void LDIF_EntryList::makeRoom()
{
    body().slots.push_back(nullptr);
    ++body_->holes;
}

LDIF_Entry& LDIF_EntryList::append(std::unique_ptr<LDIF_Entry> entry) noexcept
{
    auto& slots = body_->slots;
    if (slots.empty() || slots.back() != nullptr) {
        // Holes were closed in the meantime: the room is in the capacity.
        slots.push_back(std::move(entry));
    } else {
        slots.back() = std::move(entry);
        --body_->holes;
    }
    LDIF_Entry& appended = *slots.back();
    body_->longest = std::max(body_->longest, appended.relDn.size());
    if (body_->index != nullptr) {
        try {
            if (body_->index->fold == foldTable()) {
                body_->index->add(appended.relDn, slots.size() - 1);
                return appended;
            }
        } catch (...) {
            // Without memory for it there is no index until the next question.
        }
        body_->index.reset();
    }
    return appended;
}

void LDIF_EntryList::remove(const LDIF_Entry& child)
{
    auto* slot = find(child.relDn, 0);
    if (slot == nullptr || slot->get() != &child) {
        const auto place = std::find_if(body_->slots.begin(), body_->slots.end(),
                                        [&](const auto& candidate) { return candidate.get() == &child; });
        slot = &*place;
    }
    slot->reset();
    ++body_->holes;
    closePrevailingHoles();
}

// ---- Holes ----

LDIF_EntryList::Body& LDIF_EntryList::body()
{
    if (body_ == nullptr) {
        body_ = std::make_unique<Body>();
    }
    return *body_;
}

void LDIF_EntryList::closeHoles() const noexcept
{
    if (body_ != nullptr && body_->holes != 0) {
        auto& slots = body_->slots;
        slots.erase(std::remove(slots.begin(), slots.end(), nullptr), slots.end());
        body_->holes = 0;
        body_->index.reset();
    }
}

void LDIF_EntryList::closePrevailingHoles() noexcept
{
    if (body_ != nullptr && body_->holes > body_->slots.size() / 2) {
        closeHoles();
    }
}

/// For callers who get at the entries: from now on they may rename children.
LDIF_EntryList::Slots& LDIF_EntryList::exposedSlots()
{
    closeHoles();
    body().exposed = true;
    return body_->slots;
}

/// For changes that give children other slots.
LDIF_EntryList::Slots& LDIF_EntryList::changedSlots()
{
    exposedSlots();
    body_->index.reset();
    return body_->slots;
}

// ---- The vector's interface ----

LDIF_EntryList::LDIF_EntryList() noexcept = default;

LDIF_EntryList::LDIF_EntryList(size_type count)
{
    resize(count);
}

LDIF_EntryList::LDIF_EntryList(size_type count, const LDIF_Entry& entry)
{
    resize(count, entry);
}

LDIF_EntryList::LDIF_EntryList(std::initializer_list<LDIF_Entry> entries)
{
    insert(end(), entries.begin(), entries.end());
}

LDIF_EntryList::LDIF_EntryList(const LDIF_EntryList& other)
{
    std::size_t slot = 0;
    while (const LDIF_Entry* const entry = other.nextFrom(slot)) {
        push_back(*entry);
    }
}

LDIF_EntryList::LDIF_EntryList(LDIF_EntryList&& other) noexcept = default;

LDIF_EntryList& LDIF_EntryList::operator=(const LDIF_EntryList& other)
{
    LDIF_EntryList copy(other);
    swap(copy);
    return *this;
}

LDIF_EntryList& LDIF_EntryList::operator=(LDIF_EntryList&& other) noexcept
{
    LDIF_EntryList moved(std::move(other));
    swap(moved);
    return *this;
}

LDIF_EntryList::~LDIF_EntryList()
{
    // The lists below are chained up and released one by one: a deep tree needs no deep stack, and releasing
    // needs no memory.
    std::unique_ptr<Body> waiting = std::move(body_);
    while (waiting != nullptr) {
        const std::unique_ptr<Body> released = std::move(waiting);
        waiting = std::move(released->next);
        for (const auto& entry : released->slots) {
            if (entry != nullptr && entry->children.body_ != nullptr) {
                entry->children.body_->next = std::move(waiting);
                waiting = std::move(entry->children.body_);
            }
        }
    }
}

LDIF_EntryList::size_type LDIF_EntryList::size() const noexcept
{
    return body_ == nullptr ? 0 : body_->slots.size() - body_->holes;
}

LDIF_EntryList::size_type LDIF_EntryList::capacity() const noexcept
{
    return body_ == nullptr ? 0 : body_->slots.capacity();
}

void LDIF_EntryList::reserve(size_type count)
{
    body().slots.reserve(count);
}

void LDIF_EntryList::shrink_to_fit()
{
    if (body_ != nullptr) {
        closeHoles();
        body_->slots.shrink_to_fit();
    }
}

LDIF_EntryList::iterator LDIF_EntryList::iteratorAt(std::size_t position)
{
    return body_ == nullptr ? iterator() : iterator(body_->slots.data() + position);
}

std::size_t LDIF_EntryList::positionOf(const_iterator position) const
{
    return body_ == nullptr ? 0 : static_cast<std::size_t>(position - begin());
}

LDIF_EntryList::iterator LDIF_EntryList::begin()
{
    if (body_ != nullptr) {
        exposedSlots();
    }
    return iteratorAt(0);
}

LDIF_EntryList::iterator LDIF_EntryList::end()
{
    if (body_ != nullptr) {
        exposedSlots();
    }
    return iteratorAt(size());
}

LDIF_EntryList::const_iterator LDIF_EntryList::begin() const
{
    closeHoles();
    return body_ == nullptr ? const_iterator() : const_iterator(body_->slots.data());
}

LDIF_EntryList::const_iterator LDIF_EntryList::end() const
{
    closeHoles();
    return body_ == nullptr ? const_iterator() : const_iterator(body_->slots.data() + body_->slots.size());
}

LDIF_Entry& LDIF_EntryList::at(size_type position)
{
    if (position >= size()) {
        throw std::out_of_range("LDIF_EntryList::at");
    }
    return (*this)[position];
}

const LDIF_Entry& LDIF_EntryList::at(size_type position) const
{
    if (position >= size()) {
        throw std::out_of_range("LDIF_EntryList::at");
    }
    return (*this)[position];
}

void LDIF_EntryList::push_back(const LDIF_Entry& entry)
{
    auto owned = std::make_unique<LDIF_Entry>(entry);
    makeRoom();
    append(std::move(owned));
}

void LDIF_EntryList::push_back(LDIF_Entry&& entry)
{
    auto owned = std::make_unique<LDIF_Entry>(std::move(entry));
    makeRoom();
    append(std::move(owned));
}

void LDIF_EntryList::pop_back()
{
    changedSlots().pop_back();
}

LDIF_EntryList::iterator LDIF_EntryList::insertOwned(const_iterator position, std::unique_ptr<LDIF_Entry> entry)
{
    const std::size_t place = positionOf(position);
    auto& slots = changedSlots();
    slots.insert(slots.begin() + static_cast<std::ptrdiff_t>(place), std::move(entry));
    return iteratorAt(place);
}

LDIF_EntryList::iterator LDIF_EntryList::insert(const_iterator position, const LDIF_Entry& entry)
{
    return insertOwned(position, std::make_unique<LDIF_Entry>(entry));
}

LDIF_EntryList::iterator LDIF_EntryList::insert(const_iterator position, LDIF_Entry&& entry)
{
    return insertOwned(position, std::make_unique<LDIF_Entry>(std::move(entry)));
}

LDIF_EntryList::iterator LDIF_EntryList::insert(const_iterator position, size_type count, const LDIF_Entry& entry)
{
    const std::size_t start = positionOf(position);
    for (size_type done = 0; done < count; ++done) {
        insertOwned(iteratorAt(start + done), std::make_unique<LDIF_Entry>(entry));
    }
    return iteratorAt(start);
}

LDIF_EntryList::iterator LDIF_EntryList::insert(const_iterator position, std::initializer_list<LDIF_Entry> entries)
{
    return insert(position, entries.begin(), entries.end());
}

LDIF_EntryList::iterator LDIF_EntryList::erase(const_iterator position)
{
    return erase(position, position + 1);
}

LDIF_EntryList::iterator LDIF_EntryList::erase(const_iterator first, const_iterator last)
{
    const std::size_t place = positionOf(first);
    const std::size_t behind = positionOf(last);
    auto& slots = changedSlots();
    slots.erase(slots.begin() + static_cast<std::ptrdiff_t>(place),
                slots.begin() + static_cast<std::ptrdiff_t>(behind));
    return iteratorAt(place);
}

void LDIF_EntryList::clear() noexcept
{
    LDIF_EntryList emptied;
    swap(emptied);
}

void LDIF_EntryList::resize(size_type count)
{
    resize(count, LDIF_Entry());
}

void LDIF_EntryList::resize(size_type count, const LDIF_Entry& entry)
{
    auto& slots = changedSlots();
    if (slots.size() > count) {
        slots.resize(count);
    }
    while (slots.size() < count) {
        slots.push_back(std::make_unique<LDIF_Entry>(entry));
    }
}

void LDIF_EntryList::assign(size_type count, const LDIF_Entry& entry)
{
    LDIF_EntryList replacement(count, entry);
    swap(replacement);
}

void LDIF_EntryList::assign(std::initializer_list<LDIF_Entry> entries)
{
    assign(entries.begin(), entries.end());
}

void LDIF_EntryList::swap(LDIF_EntryList& other) noexcept
{
    body_.swap(other.body_);
}
