// Entries and the tree that they form.
#include "LDIF_Entry.h"

#include "LDIF_Exception.h"
#include "rendered_text.h"

#include <ostream>
#include <utility>

using veltor::detail::commonLevels;

LDIF_Entry::LDIF_Entry() = default;

LDIF_Entry::LDIF_Entry(LDIF_DN d) : dnLabel("dn"), dn(std::move(d)), relDn(dn) {}

LDIF_Entry::LDIF_Entry(const LDIF_Line& line, const LDIF_Comment& precedingComment)
    : dnLabel(line.name), comment(precedingComment)
{
    if (line.type != LDIF_Line::dn) {
        const std::string message = std::string("Illegal constructor LDIF_Entry( LDIF_Line::") +
                                    veltor::detail::lineTypeName(line.type) + " );";
        throw LDIF_Exception(VELTOR_HERE, veltor::result::other, 1000, message.c_str());
    }
    dn = cisString(line.value);
    relDn = dn;
}

LDIF_Entry& LDIF_Entry::operator+=(const LDIF_Comment& lines)
{
    comment += lines;
    return *this;
}

LDIF_Entry& LDIF_Entry::operator+=(const LDIF_Attribute& attribute)
{
    attributes += attribute;
    return *this;
}

namespace {

void dropLevels(LDIF_DN& dn, std::size_t count)
{
    dn.erase(dn.cbegin(), dn.cbegin() + static_cast<std::ptrdiff_t>(count));
}

/// Raises the complaint unless `entry` is at or below `top`, both relative to the same parent.
void needsToBelong(const LDIF_Entry& entry, const LDIF_Entry& top)
{
    if (commonLevels(top.relDn, entry.relDn) == top.relDn.size()) {
        return;
    }
    const std::string message = "[" + entry.relDn.str() + "] is not child of [" + top.relDn.str() + "]";
    throw LDIF_Exception(VELTOR_HERE, veltor::result::other, 1000, message.c_str());
}

} // namespace

LDIF_Entry& LDIF_Entry::operator+=(LDIF_Entry& entry)
{
    needsToBelong(entry, *this);
    const Place place = placeOf(entry.relDn, relDn.size());
    dropLevels(entry.relDn, place.level);
    if (place.existing != nullptr) {
        place.existing->mergeFrom(entry);
        return *this;
    }
    // What the caller can see happens on the caller's entry: its relDn, and the descendants that it adopts.
    LDIF_EntryList& siblings = place.parent->children;
    siblings.makeRoom();
    try {
        entry.adoptFrom(siblings);
    } catch (...) {
        // The tree gets what was adopted in spite of the failure.
        siblings.append(std::make_unique<LDIF_Entry>(entry));
        throw;
    }
    siblings.append(std::make_unique<LDIF_Entry>(entry));
    return *this;
}

/// Where an entry belongs below this one, its relDn counted from a level on.
LDIF_Entry::Place LDIF_Entry::placeOf(const LDIF_DN& wanted, std::size_t level)
{
    LDIF_Entry* parent = this;
    LDIF_Entry* entry = this;
    std::size_t above = 0;
    while (level < wanted.size()) {
        parent = entry;
        above = level;
        entry = parent->children.equalOrAncestor(wanted, level);
        if (entry == nullptr) {
            break;
        }
        level += entry->relDn.size();
    }
    return {parent, entry, above};
}

/// Takes over the siblings that belong below this entry. One that can't be merged stays where it is.
void LDIF_Entry::adoptFrom(LDIF_EntryList& siblings)
{
    siblings.giveAway(relDn, 0, [this](std::unique_ptr<LDIF_Entry>&& descendant) { insert(std::move(descendant)); });
}

void LDIF_Entry::mergeFrom(LDIF_Entry& entry)
{
    if (&entry == this) {
        LDIF_Entry copy(entry);
        mergeFrom(copy);
        return;
    }
    *this += entry.comment;
    attributes += entry.attributes;
    // The children's DNs are relative to the entry, which is this one from now on.
    std::size_t slot = 0;
    while (const LDIF_Entry* const child = entry.children.nextFrom(slot)) {
        insertBelow(std::make_unique<LDIF_Entry>(*child), 0);
    }
}

LDIF_Entry& LDIF_Entry::insert(std::unique_ptr<LDIF_Entry>&& entry)
{
    needsToBelong(*entry, *this);
    return insertBelow(std::move(entry), relDn.size());
}

/// Inserts an entry whose relDn belongs to this one from a level on.
LDIF_Entry& LDIF_Entry::insertBelow(std::unique_ptr<LDIF_Entry>&& entry, std::size_t level)
{
    const Place place = placeOf(entry->relDn, level);
    if (place.existing != nullptr) {
        place.existing->mergeFrom(*entry);
        return *place.existing;
    }
    // An entry that finds no room stays with the caller as it is.
    place.parent->children.makeRoom();
    dropLevels(entry->relDn, place.level);
    return appendAdopting(std::move(entry), place.parent->children);
}

LDIF_Entry& LDIF_Entry::insertMissing(std::unique_ptr<LDIF_Entry>&& entry)
{
    children.makeRoom();
    entry->relDn.assignFrom(entry->dn, dn.size());
    return appendAdopting(std::move(entry), children);
}

/// Puts an entry into the room behind its siblings, of which it adopts those that belong below it.
LDIF_Entry& LDIF_Entry::appendAdopting(std::unique_ptr<LDIF_Entry>&& entry, LDIF_EntryList& siblings)
{
    try {
        entry->adoptFrom(siblings);
    } catch (...) {
        // With what it adopted in spite of the failure: nothing that was in the tree may get lost.
        siblings.append(std::move(entry));
        throw;
    }
    return siblings.append(std::move(entry));
}

LDIF_Entry* LDIF_Entry::find(const LDIF_DN& d)
{
    return commonLevels(relDn, d) == relDn.size() ? placeOf(d, relDn.size()).existing : nullptr;
}

LDIF_Entry& LDIF_Entry::clear()
{
    dnLabel.clear();
    dn.clear();
    relDn.clear();
    comment.lines.clear();
    attributes.clear();
    children.clear();
    return *this;
}

std::string LDIF_Entry::str() const
{
    std::string text;
    veltor::detail::DnPrinter printer;
    appendTo(text, printer);
    return text;
}

template <class Text>
void LDIF_Entry::appendTo(Text& text, veltor::detail::DnPrinter& printer) const
{
    comment.appendTo(text);
    if (!dnLabel.empty()) {
        text.append(dnLabel).append(": ").append(printer.print(dn));
        text.push_back('\n');
    }
    attributes.appendTo(text);
    bool separated = !dnLabel.empty();
    if (dnLabel.empty() && !children.empty()) {
        // A blank line that the file already has before the first entry is not doubled.
        std::size_t slot = 0;
        const auto& lines = children.nextFrom(slot)->comment.lines;
        separated = lines.empty() || lines.front().type != LDIF_Line::blankLine;
    }
    if (separated) {
        text.push_back('\n');
    }
}

template <class Text>
void LDIF_Entry::appendTreeTo(Text& text) const
{
    veltor::detail::DnPrinter printer;
    for (veltor::detail::TreeWalk walk(*this); walk.current() != nullptr; walk.next()) {
        walk.current()->appendTo(text, printer);
    }
}

template void LDIF_Entry::appendTreeTo(std::string&) const;
template void LDIF_Entry::appendTreeTo(veltor::detail::RenderedText&) const;

std::ostream& operator<<(std::ostream& stream, const LDIF_Entry& entry)
{
    for (veltor::detail::TreeWalk walk(entry); walk.current() != nullptr; walk.next()) {
        stream << walk.current()->str();
    }
    return stream;
}

void veltor::detail::TreeWalk::next(bool intoChildren)
{
    if (intoChildren && !current_->children.isBlank()) {
        path_.push_back({current_, 0});
    }
    while (!path_.empty()) {
        Step& step = path_.back();
        current_ = step.parent->children.nextFrom(step.slot);
        if (current_ != nullptr) {
            return;
        }
        path_.pop_back();
    }
    current_ = nullptr;
}
