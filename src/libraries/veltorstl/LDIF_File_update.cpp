// The updates of the store: modify, add and erase.
#include "LDIF_File.h"

#include "LDIF_Exception.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using veltor::detail::printable;
namespace result = veltor::result;

namespace {

constexpr int unexpected = 1000;
constexpr int unknownModOp = 1010;

[[noreturn]] void refuse(int line, int ldapCode, int libraryCode, const std::string& message,
                         const std::string& attribute)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, libraryCode, message.c_str());
    failure.attribute = attribute;
    throw failure;
}

/// Runs one update. What the layers below raise goes through as it is, with the entry's DN filled in.
template <class Work>
void update(int line, const char* systemMessage, const LDIF_DN& dn, Work&& work)
{
    try {
        work();
    } catch (LDIF_Exception& failure) {
        if (failure.entryDn.empty()) {
            failure.entryDn = printable(dn);
        }
        throw;
    } catch (...) {
        LDIF_Exception failure(__FILE_NAME__, line, result::other, unexpected, systemMessage);
        failure.entryDn = printable(dn);
        throw failure;
    }
}

bool holdsBervals(const LDAPMod& mod)
{
    return (mod.mod_op & LDAP_MOD_BVALUES) != 0;
}

/// The values of a modification; none when it has no array.
std::vector<std::string> textsOf(const LDAPMod& mod)
{
    std::vector<std::string> texts;
    if (holdsBervals(mod)) {
        // Up to the first NUL, whatever the length field says: callers pass texts this way.
        for (berval** value = mod.mod_bvalues; value != nullptr && *value != nullptr; ++value) {
            texts.emplace_back((*value)->bv_val);
        }
    } else {
        for (char** value = mod.mod_values; value != nullptr && *value != nullptr; ++value) {
            texts.emplace_back(*value);
        }
    }
    return texts;
}

/// An attribute with the given values, each checked against its type.
LDIF_Attribute attributeOf(const LDAPMod& mod, const std::vector<std::string>& texts)
{
    LDIF_Attribute attribute(mod.mod_type, "");
    for (const auto& text : texts) {
        attribute.values += text;
    }
    return attribute;
}

void addValues(LDIF_Entry& entry, const LDAPMod& mod, const std::vector<std::string>& texts)
{
    if (!texts.empty()) {
        // Merged into an attribute of that name: a replaced one keeps its place and its comment.
        entry.attributes += attributeOf(mod, texts);
    }
}

void deleteValues(LDIF_Entry& entry, const LDAPMod& mod, const std::vector<std::string>& texts)
{
    const auto attribute = entry.attributes.find(mod.mod_type);
    if (attribute == entry.attributes.end()) {
        refuse(__LINE__, result::noSuchAttribute, result::noSuchAttribute, "Target attribute of MOD_DELETE not found",
               mod.mod_type);
    }
    if (texts.empty() || attribute->values.empty()) {
        entry.attributes.erase(attribute);
        return;
    }
    attribute->values.remove(texts);
    if (attribute->values.empty()) {
        // What else is to be deleted is gone with it.
        entry.attributes.erase(attribute);
    }
}

void replaceValues(LDIF_Entry& entry, const LDAPMod& mod, const std::vector<std::string>& texts)
{
    const auto attribute = entry.attributes.find(mod.mod_type);
    if (attribute != entry.attributes.end()) {
        if (texts.empty()) {
            entry.attributes.erase(attribute);
            return;
        }
        attribute->values.values.clear();
    }
    addValues(entry, mod, texts);
}

void apply(LDIF_Entry& entry, const LDAPMod& mod)
{
    const auto texts = textsOf(mod);
    const int operation = mod.mod_op & ~LDAP_MOD_BVALUES;
    switch (operation) {
    case LDAP_MOD_ADD:
        addValues(entry, mod, texts);
        break;
    case LDAP_MOD_DELETE:
        deleteValues(entry, mod, texts);
        break;
    case LDAP_MOD_REPLACE:
        replaceValues(entry, mod, texts);
        break;
    default:
        refuse(__LINE__, result::paramError, unknownModOp,
               "Unknown mod_op: " + std::to_string(static_cast<unsigned>(operation)), mod.mod_type);
    }
}

void needSound(LDAPMod** mods)
{
    if (!veltor::detail::isSound(mods)) {
        throw LDIF_Exception(VELTOR_HERE, result::paramError, result::paramError,
                             "Modification without a type or with a value without data");
    }
}

} // namespace

bool veltor::detail::isSound(LDAPMod** mods)
{
    for (; mods != nullptr && *mods != nullptr; ++mods) {
        const LDAPMod& mod = **mods;
        if (mod.mod_type == nullptr) {
            return false;
        }
        if (!holdsBervals(mod)) {
            continue;
        }
        for (berval** value = mod.mod_bvalues; value != nullptr && *value != nullptr; ++value) {
            if ((*value)->bv_val == nullptr) {
                return false;
            }
        }
    }
    return true;
}

void LDIF_File::modify(const LDIF_DN& dn, LDAPMod** mods)
{
    if (mods == nullptr || *mods == nullptr) {
        return;
    }
    update(__LINE__, "System error in LDIF_File::modify()", dn, [&] {
        needSound(mods);
        LDIF_Entry* const entry = find(dn);
        if (entry == nullptr) {
            refuse(__LINE__, result::noSuchObject, result::noSuchObject, "Entry not found", "");
        }
        for (LDAPMod** mod = mods; *mod != nullptr; ++mod) {
            apply(*entry, **mod);
        }
    });
}

void LDIF_File::add(const LDIF_DN& dn, LDAPMod** mods)
{
    update(__LINE__, "System error in LDIF_File::add()", dn, [&] {
        needSound(mods);
        auto entry = std::make_unique<LDIF_Entry>(dn);
        for (LDAPMod** mod = mods; mod != nullptr && *mod != nullptr; ++mod) {
            addValues(*entry, **mod, textsOf(**mod));
        }
        try {
            const LDIF_Entry* const made = entry.get();
            LDIF_Entry& placed = root.insert(std::move(entry));
            if (&placed == made) {
                remember(placed);
            }
        } catch (const LDIF_Exception&) {
            throw;
        } catch (...) {
            // Memory ran out, perhaps while the entry adopted others: only the file still has them all.
            index_.reset();
            inMemory_ = false;
            throw;
        }
    });
}

void LDIF_File::remember(LDIF_Entry& entry)
{
    if (!index_) {
        return;
    }
    try {
        index_->add(entry);
    } catch (...) {
        // The tree has it, and is asked next.
    }
}

/// Leaves the places of an entry, and of all below it, without an entry. Many entries may go one by one.
void LDIF_File::forgetPlaces(const LDIF_Entry& top)
{
    if (places_.empty()) {
        return;
    }
    constexpr auto isBefore = [](const PlaceOfEntry& left, const PlaceOfEntry& right) {
        return std::less<>()(left.entry, right.entry);
    };
    if (placesByEntry_.empty()) {
        std::vector<PlaceOfEntry> made;
        made.reserve(places_.size());
        for (std::size_t place = 0; place < places_.size(); ++place) {
            made.push_back({places_[place].entry, place});
        }
        std::sort(made.begin(), made.end(), isBefore);
        placesByEntry_ = std::move(made);
    }
    for (veltor::detail::TreeWalk walk(top); walk.current() != nullptr; walk.next()) {
        const auto [first, last] =
            std::equal_range(placesByEntry_.begin(), placesByEntry_.end(), PlaceOfEntry{walk.current(), 0}, isBefore);
        std::for_each(first, last, [this](const PlaceOfEntry& found) { places_[found.place].entry = nullptr; });
    }
}

void LDIF_File::forget(const LDIF_Entry& entry)
{
    forgetPlaces(entry);
    if (!index_) {
        return;
    }
    try {
        index_->forget(entry);
    } catch (...) {
        index_.reset();
    }
}

void LDIF_File::erase(const LDIF_DN& dn, bool deleteNonLeaves)
{
    update(__LINE__, "System error in LDIF_File::erase()", dn, [&] {
        // From ancestor to ancestor down to the entry: where parents are missing it hangs under the nearest one.
        LDIF_Entry* parent = &root;
        LDIF_Entry* entry = nullptr;
        for (std::size_t level = 0; level < dn.size();) {
            parent = entry != nullptr ? entry : parent;
            entry = parent->children.equalOrAncestor(dn, level);
            if (entry == nullptr) {
                break;
            }
            level += entry->relDn.size();
        }
        if (entry == nullptr) {
            refuse(__LINE__, result::noSuchObject, result::noSuchObject, "Entry not found", "");
        }
        if (!entry->children.empty() && !deleteNonLeaves) {
            refuse(__LINE__, result::notAllowedOnNonleaf, result::notAllowedOnNonleaf,
                   "Use CFG_OPT_DELETE_NON_LEAVES to enable subtree delete", "");
        }
        forget(*entry);
        parent->children.remove(*entry);
    });
}
