// Entries by their DNs.
#include "entry_index.h"

#include "LDIF_Entry.h"

namespace veltor::detail {

namespace {

/// Stands in the cells of entries that were forgotten. Never looked into.
LDIF_Entry* forgotten()
{
    static char mark;
    return reinterpret_cast<LDIF_Entry*>(&mark);
}

} // namespace

LDIF_Entry* EntryIndex::find(const LDIF_DN& dn)
{
    return hashAll(dn) ? findLevels(dn, dn.size()) : nullptr;
}

EntryIndex::Place EntryIndex::placeOf(const LDIF_DN& dn)
{
    if (!hashAll(dn)) {
        return {};
    }
    for (const std::uint64_t hash : hashes_) {
        entries_.prefetch(hash);
    }
    Place place;
    place.existing = findLevels(dn, dn.size());
    for (std::size_t levels = dn.size() - 1; place.existing == nullptr && place.ancestor == nullptr && levels > 0;
         --levels) {
        place.ancestor = findLevels(dn, levels);
    }
    return place;
}

void EntryIndex::addAsked(LDIF_Entry& entry)
{
    if (!hashes_.empty()) {
        entries_.add(hashes_.back(), &entry);
    }
}

void EntryIndex::add(LDIF_Entry& entry)
{
    hashAll(entry.dn);
    addAsked(entry);
}

void EntryIndex::forget(const LDIF_Entry& top)
{
    for (TreeWalk walk(top); walk.current() != nullptr; walk.next()) {
        const LDIF_Entry* const entry = walk.current();
        if (!hashAll(entry->dn)) {
            continue;
        }
        LDIF_Entry** const cell =
            entries_.find(hashes_.back(), [entry](const LDIF_Entry* candidate) { return candidate == entry; });
        if (cell != nullptr) {
            *cell = forgotten();
            ++forgotten_;
        }
    }
    // Before they prevail: what comes and goes again and again would take ever more room, and be passed ever again.
    if (2 * forgotten_ > entries_.size()) {
        entries_.takeOut([](const LDIF_Entry* entry) { return entry == forgotten(); });
        forgotten_ = 0;
    }
}

/// The entry that says the first levels of the DN at hand.
LDIF_Entry* EntryIndex::findLevels(const LDIF_DN& dn, std::size_t levels)
{
    LDIF_Entry* const* const cell = entries_.find(hashes_[levels - 1], [&](const LDIF_Entry* entry) {
        if (entry == forgotten() || entry->dn.size() != levels) {
            return false;
        }
        entry->dn.prefetch();
        return commonLevels(entry->dn, dn) == levels;
    });
    return cell == nullptr ? nullptr : *cell;
}

/// Makes the hashes of a DN's levels; false when there are none to ask for.
bool EntryIndex::hashAll(const LDIF_DN& dn)
{
    // In another locale other DNs are equal, so the keys mean nothing.
    isComplete_ = isComplete_ && fold_ == foldTable();
    dn.hashLevels(hashes_, 0, isComplete_ ? dn.size() : 0, fold_);
    return !hashes_.empty();
}

} // namespace veltor::detail
