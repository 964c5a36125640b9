// Entries: at the same time the nodes of the tree that the configuration is.
#ifndef VELTOR_LDIF_ENTRY_H
#define VELTOR_LDIF_ENTRY_H

#include "LDIF_Attribute.h"
#include "LDIF_Comment.h"
#include "LDIF_DN.h"
#include "LDIF_EntryList.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"
#include "region.h"

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

/// One entry of the configuration, with everything below it.
///
/// Invariants of the tree: an entry's relDn is its dn less its parent's dn, on the root side; the relDn of
/// siblings differ, and none is an ancestor of another. Parents may be missing: an entry hangs under its nearest
/// existing ancestor, with a relDn of several RDNs then.
///
/// Children stand in the order of their insertion. An entry that is inserted above existing ones adopts them, in
/// their order, and stands last among its siblings itself.
class LDIF_Entry
{
public:
    cisString dnLabel;    ///< name of the DN line as written, usually "dn"; empty for the root, which has no line
    LDIF_DN dn;           ///< the full DN
    LDIF_DN relDn;        ///< relative to the parent in the tree; equal to dn until the entry is inserted
    LDIF_Comment comment; ///< comment and blank lines above the DN line
    LDIF_Attributes attributes;
    LDIF_EntryList children; ///< owned, in tree order

    /// The root: everything empty.
    LDIF_Entry();

    /// An entry that no file told yet; its label is "dn".
    LDIF_Entry(LDIF_DN d);

    /// An entry from its DN line.
    /// @throws LDIF_Exception for a DN that can't be parsed; 80/1000 for a line of another type
    LDIF_Entry(const LDIF_Line& line, const LDIF_Comment& comment);

    /// Entries that a load makes lie with the rest of what it makes.
    static void* operator new(std::size_t bytes) { return veltor::detail::obtainMarked(bytes); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
    {
        try {
            return operator new(bytes);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    static void operator delete(void* entry) noexcept { veltor::detail::giveBackMarked(entry); }

    // Copies are deep. The destructor is not virtual, on purpose: entries are held by value. The order of the
    // virtual functions is ABI.

    virtual LDIF_Entry& operator+=(const LDIF_Comment& lines);
    virtual LDIF_Entry& operator+=(const LDIF_Attribute& attribute);

    /// Inserts an entry at its place below this one, or merges it into the entry of its DN: comments, attributes
    /// and children are added to what is there. The tree keeps a copy; the argument's relDn becomes relative,
    /// and descendants that the tree had are adopted by both.
    /// @throws LDIF_Exception 80/1000 when the entry does not belong below this one; what a merge of attributes
    ///         raises, with everything in place that was merged before
    virtual LDIF_Entry& operator+=(LDIF_Entry& entry);

    /// The entry's own text in file form, without its children.
    /// @throws LDIF_Exception 34/1013 for a DN with an empty value
    virtual std::string str() const;

    virtual LDIF_Entry& clear();

    /// The entry with that DN, which is relative to this entry's parent, or null.
    virtual LDIF_Entry* find(const LDIF_DN& d);

    /// What += does, for an entry that is given up. When it fails, an entry that was being merged stays with the
    /// caller. Returns the entry of the tree that holds it now.
    LDIF_Entry& insert(std::unique_ptr<LDIF_Entry>&& entry);

    /// What insert does, for an entry that the tree has not, below its nearest ancestor in there. Its relDn need not be
    /// made yet.
    LDIF_Entry& insertMissing(std::unique_ptr<LDIF_Entry>&& entry);

    /// Appends the texts of the entry and of everything below it, each entry before its children.
    /// @param text  a std::string or a veltor::detail::RenderedText
    /// @throws LDIF_Exception 34/1013 for a DN with an empty value
    template <class Text>
    void appendTreeTo(Text& text) const;

private:
    struct Place
    {
        LDIF_Entry* parent;   // the nearest existing ancestor
        LDIF_Entry* existing; // the entry itself, or null
        std::size_t level;    // how much of the DN that was asked for lies at and above the parent
    };

    Place placeOf(const LDIF_DN& wanted, std::size_t level);
    void adoptFrom(LDIF_EntryList& siblings);
    void mergeFrom(LDIF_Entry& entry);
    LDIF_Entry& insertBelow(std::unique_ptr<LDIF_Entry>&& entry, std::size_t level);
    static LDIF_Entry& appendAdopting(std::unique_ptr<LDIF_Entry>&& entry, LDIF_EntryList& siblings);
    template <class Text>
    void appendTo(Text& text, veltor::detail::DnPrinter& printer) const;
};

/// Writes the entry and everything below it.
std::ostream& operator<<(std::ostream& stream, const LDIF_Entry& entry);

namespace veltor::detail {

/// A walk over an entry and everything below it, each entry before its children, without recursion: files may
/// nest as deep as they are long.
class TreeWalk
{
public:
    explicit TreeWalk(const LDIF_Entry& top) : current_(&top) {}

    /// The entry that the walk is at; null when it is over.
    const LDIF_Entry* current() const { return current_; }
    /// How far below the top that entry is.
    std::size_t depth() const { return path_.size(); }
    /// The entry that stands so many slots behind the current one on its level; null when there is none. For those
    /// who read ahead: the walk may come elsewhere first.
    const LDIF_Entry* ahead(std::size_t slots) const noexcept
    {
        return path_.empty() ? nullptr : path_.back().parent->children.inSlot(path_.back().slot + slots - 1);
    }
    /// Goes on, with the children of the current entry first, or without them.
    void next(bool intoChildren = true);

private:
    struct Step
    {
        const LDIF_Entry* parent;
        std::size_t slot;
    };

    const LDIF_Entry* current_;
    std::vector<Step> path_;
};

} // namespace veltor::detail

// ---- Members of the list that need the entry's definition ----

template <class... Arguments>
LDIF_Entry& LDIF_EntryList::emplace_back(Arguments&&... arguments)
{
    return *insertOwned(end(), std::make_unique<LDIF_Entry>(std::forward<Arguments>(arguments)...));
}

template <class... Arguments>
LDIF_EntryList::iterator LDIF_EntryList::emplace(const_iterator position, Arguments&&... arguments)
{
    return insertOwned(position, std::make_unique<LDIF_Entry>(std::forward<Arguments>(arguments)...));
}

template <std::input_iterator Input>
LDIF_EntryList::iterator LDIF_EntryList::insert(const_iterator position, Input first, Input last)
{
    const std::size_t start = positionOf(position);
    std::size_t place = start;
    for (; first != last; ++first, ++place) {
        insertOwned(iteratorAt(place), std::make_unique<LDIF_Entry>(*first));
    }
    return iteratorAt(start);
}

template <std::input_iterator Input>
void LDIF_EntryList::assign(Input first, Input last)
{
    LDIF_EntryList replacement;
    replacement.insert(replacement.end(), first, last);
    swap(replacement);
}

#endif
