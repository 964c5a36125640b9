// The entries that a handle has read, as they are stored, and what differs between two such trees.
#ifndef VELTOR_TOOL_STORED_TREE_H
#define VELTOR_TOOL_STORED_TREE_H

#include "results.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

using StoredValues = std::vector<std::string_view>;

/// The values of an attribute; none for null.
StoredValues valuesOf(const cfg_message* attribute);

/// The attribute of this name, null for none. Letter case is ignored.
const cfg_message* attributeOf(const cfg_message& entry, std::string_view name);

/// All entries that a bound handle has read. What it lends lives as long as it does.
class StoredTree
{
public:
    /// @throws Failure  for a tree that can't be read
    explicit StoredTree(void* handle);

    const std::vector<const cfg_message*>& entries() const { return entries_; }

    /// The list of entries, as cfg_read_s gives it.
    const cfg_message* first() const { return results_.first(); }

    /// The entry of the DN of another tree's entry, null for none.
    const cfg_message* find(const cfg_message& other) const;

    /// @param dn  as an entry of a tree has it, or a part of one
    const cfg_message* find(std::string_view dn) const;

private:
    Results results_;
    std::vector<const cfg_message*> entries_;
    std::map<std::string, const cfg_message*> byDn_;
};

/// An entry that differs.
struct EntryDifference
{
    const cfg_message* before;                ///< null for an entry that is new
    const cfg_message* after;                 ///< null for one that is gone
    std::vector<std::string_view> attributes; ///< of an entry that stays: those that differ, the gone ones last
};

/// What differs, in an order in which it can be carried out: entries that are gone come first, children before their
/// parents, then the others in the order of the tree.
std::vector<EntryDifference> differencesOf(const StoredTree& before, const StoredTree& after);

} // namespace veltor::tool

#endif
