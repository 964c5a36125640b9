// Entries by their DNs, whatever the shape of the tree.
#ifndef VELTOR_ENTRY_INDEX_H
#define VELTOR_ENTRY_INDEX_H

#include "fold_hash.h"
#include "hash_cells.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class LDIF_DN;
class LDIF_Entry;

namespace veltor::detail {

/// The entries of a tree that nobody else changes, by their DNs. Whoever takes an entry out of the tree forgets it here
/// first.
class EntryIndex
{
public:
    struct Place
    {
        LDIF_Entry* existing = nullptr; // the entry of that DN
        LDIF_Entry* ancestor = nullptr; // else the nearest one above it
    };

    /// True while it can name every entry that was added; in another locale it names nobody any more. Whoever gets no
    /// answer then has to look in the tree.
    bool isComplete() const { return isComplete_; }

    /// The entry with that DN, or null.
    LDIF_Entry* find(const LDIF_DN& dn);

    /// Where an entry with that DN belongs.
    Place placeOf(const LDIF_DN& dn);

    /// Adds the entry whose place was asked for last.
    void addAsked(LDIF_Entry& entry);

    /// Adds an entry.
    void add(LDIF_Entry& entry);

    /// Forgets an entry and everything below it. @throws std::bad_alloc: the index is of no use then
    void forget(const LDIF_Entry& top);

    /// How many entries it has room taken for: those that it names, and at most as many that were forgotten.
    std::size_t size() const { return entries_.size(); }

private:
    LDIF_Entry* findLevels(const LDIF_DN& dn, std::size_t levels);
    bool hashAll(const LDIF_DN& dn);

    FoldTable fold_ = foldTable();
    HashCells<LDIF_Entry*> entries_;
    std::size_t forgotten_ = 0;         // of those
    std::vector<std::uint64_t> hashes_; // of the DN at hand, by number of RDNs less one
    bool isComplete_ = true;
};

} // namespace veltor::detail

#endif
