// The children of an entry and their index.
#include "LDIF_EntryList.h"

#include "LDIF_Entry.h"
#include "fold_hash.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <unordered_map>

using veltor::detail::FoldTable;
using veltor::detail::foldTable;
using veltor::detail::hashSeed;
using veltor::detail::mixed;

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
    /// Open addressing; a cell of a child that left is told by the hole in its slot.
    struct Cell
    {
        std::uint32_t hash = 0;
        std::uint32_t slotPlusOne = 0;
    };

    FoldTable fold = foldTable();
    std::size_t longest = 0; // RDNs of the longest relative DN
    std::vector<Cell> cells;
    std::size_t used = 0;
    // For each number of RDNs that was asked for: slots of the children that lie deeper, ascending, by those RDNs.
    // Made on demand, so that moving children down a deep tree does not cost the square of its depth.
    using Below = std::unordered_map<std::uint64_t, std::vector<std::uint32_t>>;
    std::map<std::size_t, Below> belowByLevels;

    explicit Index(const Slots& slots)
    {
        cells.resize(std::max<std::size_t>(64, nextPowerOfTwo(slots.size() * 2)));
        for (std::size_t slot = 0; slot < slots.size(); ++slot) {
            if (slots[slot] != nullptr) {
                add(slots[slot]->relDn, slot);
            }
        }
    }

    static std::size_t nextPowerOfTwo(std::size_t count)
    {
        std::size_t power = 1;
        while (power < count) {
            power *= 2;
        }
        return power;
    }

    void add(const LDIF_DN& relDn, std::size_t slot)
    {
        const auto number = static_cast<std::uint32_t>(slot);
        std::uint64_t hash = hashSeed();
        auto below = belowByLevels.begin();
        for (std::size_t level = 0; level < relDn.size(); ++level) {
            hash = mixed(hash, relDn.shared(level).hash(fold));
            if (below != belowByLevels.end() && below->first == level + 1 && level + 1 < relDn.size()) {
                below->second[hash].push_back(number);
                ++below;
            }
        }
        longest = std::max(longest, relDn.size());
        if ((used + 1) * 2 > cells.size()) {
            grow();
        }
        place({static_cast<std::uint32_t>(hash >> 32U), number + 1});
    }

    void grow()
    {
        std::vector<Cell> old(cells.size() * 2);
        old.swap(cells);
        used = 0;
        for (const Cell& cell : old) {
            if (cell.slotPlusOne != 0) {
                place(cell);
            }
        }
    }

    void place(Cell cell)
    {
        std::size_t position = cell.hash & (cells.size() - 1);
        while (cells[position].slotPlusOne != 0) {
            position = (position + 1) & (cells.size() - 1);
        }
        cells[position] = cell;
        ++used;
    }

    std::unique_ptr<LDIF_Entry>* find(Slots& slots, const LDIF_DN& dn, std::size_t from) const
    {
        std::uint64_t hash = hashSeed();
        const std::size_t last = std::min(dn.size(), from + longest);
        for (std::size_t level = from; level < last; ++level) {
            hash = mixed(hash, dn.shared(level).hash(fold));
            const auto wanted = static_cast<std::uint32_t>(hash >> 32U);
            for (std::size_t position = wanted & (cells.size() - 1); cells[position].slotPlusOne != 0;
                 position = (position + 1) & (cells.size() - 1)) {
                if (cells[position].hash != wanted) {
                    continue;
                }
                auto& slot = slots[cells[position].slotPlusOne - 1];
                if (slot != nullptr && slot->relDn.size() == level + 1 - from && leads(slot->relDn, dn, from)) {
                    return &slot;
                }
            }
        }
        return nullptr;
    }

    /// The key of `count` RDNs from a level on.
    std::uint64_t keyOf(const LDIF_DN& dn, std::size_t from, std::size_t count) const
    {
        std::uint64_t hash = hashSeed();
        for (std::size_t level = from; level < from + count; ++level) {
            hash = mixed(hash, dn.shared(level).hash(fold));
        }
        return hash;
    }

    /// The slots that may hold children below what the DN says from a level on; null if there are none.
    const std::vector<std::uint32_t>* slotsBelow(const Slots& slots, const LDIF_DN& dn, std::size_t from)
    {
        const std::size_t levels = dn.size() - from;
        if (longest <= levels) {
            return nullptr;
        }
        const auto [place, isNew] = belowByLevels.try_emplace(levels);
        Below& below = place->second;
        if (isNew) {
            for (std::size_t slot = 0; slot < slots.size(); ++slot) {
                if (slots[slot] != nullptr && slots[slot]->relDn.size() > levels) {
                    below[keyOf(slots[slot]->relDn, 0, levels)].push_back(static_cast<std::uint32_t>(slot));
                }
            }
        }
        const auto group = below.find(keyOf(dn, from, levels));
        return group == below.end() ? nullptr : &group->second;
    }
};

LDIF_EntryList::Body::Body() = default;
LDIF_EntryList::Body::~Body() = default;

LDIF_EntryList::Index* LDIF_EntryList::usableIndex() const
{
    // In another locale other DNs are equal, so the keys are made again.
    if (body_->index == nullptr || body_->index->fold != foldTable()) {
        body_->index = std::make_unique<Index>(body_->slots);
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
    if (slots.size() < indexedFrom || body_->exposed) {
        for (std::size_t slot = 0; slot < slots.size(); ++slot) {
            look(slot);
        }
    } else if (const auto* const group = usableIndex()->slotsBelow(slots, dn, from); group != nullptr) {
        std::for_each(group->begin(), group->end(), look);
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
