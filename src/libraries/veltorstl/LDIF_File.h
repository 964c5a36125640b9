// The store: one configuration file in memory.
#ifndef VELTOR_LDIF_FILE_H
#define VELTOR_LDIF_FILE_H

#include "LDIF_Comment.h"
#include "LDIF_Entry.h"
#include "LDIF_Search.h"
#include "entry_index.h"
#include "load.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <ldap.h>
#include <sys/stat.h>

namespace veltor::detail {

class RenderedText;

/// True when every record of a modification list has a type, and every berval in it has data.
bool isSound(LDAPMod** mods);

} // namespace veltor::detail

/// The in-memory image of one configuration file. One thread at a time.
class LDIF_File
{
public:
    std::string fileName;         ///< path of the configuration file
    std::string backupFileName;   ///< where a write keeps the previous file; empty: nowhere
    struct stat fileStatus;       ///< as last read or written; only its modification time, in seconds, is compared
    LDIF_Comment trailingComment; ///< the comment lines behind the last entry
    LDIF_Entry root;              ///< holds version and charset, and below it every entry
    std::int32_t authLevel = 0;   ///< 0 not authenticated, 1 anonymous, 2 administrator

    /// Stores the names and reads the file.
    /// @throws LDIF_Exception 91/1001 for an empty name; else what refresh() raises
    LDIF_File(const std::string& fileName, const std::string& backupFileName);

    // The tree of a store has one owner: handles and results hold copies of what they need.
    LDIF_File(const LDIF_File&) = delete;
    LDIF_File& operator=(const LDIF_File&) = delete;
    ~LDIF_File();

    /// Reads the file again if its modification time differs from the one last read or written, to the second.
    /// Everything in memory is replaced. Lines that can't be used are kept as zor-slapdInvalidLine, and the file
    /// is written back at once when there are any.
    ///
    /// @return false when the file did not change: nothing was read, changes in memory stay
    /// @throws LDIF_Exception 91/1003 no status; 91/1004 can't be opened, or would have to be waited for; 80/1000
    ///         can't be read; the code of the line that ended the load, with file, line and entry: the tree then
    ///         holds everything read before that line, and the next call reads again
    bool refresh();

    /// Writes the whole file: keeps the old one under the backup name if there is one, then writes, and with a
    /// backup name gives the file to the account "ldap" with mode 0640. The text is made before anything is
    /// touched, so what can't be printed costs nothing on disk. A write that fails half-way is not reported: this
    /// is the classic way, which callers know.
    /// @throws LDIF_Exception 50/1004 can't be renamed, opened, given away or protected; 91/1003 no status; what
    ///         rendering raises. Nothing is rolled back on disk; memory is never changed.
    void flush();

    /// Copies of the entries in scope that pass the filter, with the attributes asked for.
    /// @throws LDIF_Exception 32/32 when there is no such base; what comparing with the filter's value raises
    LDIF_Search_Results search(const LDIF_DN& base, const LDIF_Search_Results::Scope& scope, const LDIF_Filter& filter,
                               const LDIF_AttrFilter& attributes, bool typesOnly);

    /// The entries that search() would copy, in its order: the tree's own, good until that changes.
    /// @throws as search()
    std::vector<const LDIF_Entry*> select(const LDIF_DN& base, LDIF_Search_Results::Scope scope,
                                          const LDIF_Filter& filter);

    /// Every entry in scope in that order, also those without attributes.
    /// @throws LDIF_Exception 32/32 when there is no such base
    std::vector<const LDIF_Entry*> select(const LDIF_DN& base, LDIF_Search_Results::Scope scope);

    /// The entry of that DN in the tree, for the empty DN the root; good until the tree changes.
    /// @throws LDIF_Exception 32/32 when there is none
    const LDIF_Entry& entryOf(const LDIF_DN& dn);

    // Updates change the tree in memory; flush() writes it. Modification lists are null-terminated; values are
    // texts, or with LDAP_MOD_BVALUES the data of berval records, read up to the first NUL on purpose: their
    // length is not consulted. A list needs a type in every record and data in every berval (else 89/89).

    /// Applies modifications to one entry, in order and without rollback: those before a failure stay.
    /// @throws LDIF_Exception 32/32 no such entry, unless the list is empty; 16/16 delete of a missing attribute;
    ///         89/1010 unknown operation; what the values' types refuse
    void modify(const LDIF_DN& dn, LDAPMod** mods);

    /// Inserts an entry with the values of a list, whatever its operations. An entry that exists already gets
    /// them added.
    void add(const LDIF_DN& dn, LDAPMod** mods);

    /// Removes an entry, with everything below it if that is allowed.
    /// @throws LDIF_Exception 32/32 no such entry; 66/66 it has children and that is not allowed
    void erase(const LDIF_DN& dn, bool deleteNonLeaves);

    /// Draws the tree, a line for each entry, with the missing ancestors listed behind it.
    /// @param oem  with the line-drawing bytes of code page 437 instead of ASCII
    /// @throws LDIF_Exception 34/1013 for a DN that can't be printed
    std::string treeView(bool oem);

    /// Draw an entry and what is below it behind a prefix of five characters for each level above; an empty one
    /// is the top. Ancestors that are missing are added to `undefined`.
    std::string IA5_TreeView(const LDIF_Entry& entry, std::set<LDIF_DN>& undefined, const std::string& prefix);
    std::string OEM_TreeView(const LDIF_Entry& entry, bool isLast, std::set<LDIF_DN>& undefined,
                             const std::string& prefix);

    /// Decides whether the caller is the administrator that the entry "cn=Configuration" names.
    /// @param method  0 none, 128 simple
    /// @return        the new authLevel; it keeps its old value when an exception leaves the call
    /// @throws LDIF_Exception 32/32 without a "cn=Configuration" entry; a syntax error of the given DN or password
    int setAuthentication(const char* dn, const char* password, int method);
    int getAuthentication();

protected:
    /// Who may change the tree: a store that has it alone finds entries without a walk.
    enum class TreeAccess { anybody, storeAlone };

    /// A store that has read nothing yet.
    /// @throws LDIF_Exception 91/1001 for an empty name
    LDIF_File(const std::string& fileName, const std::string& backupFileName, TreeAccess access);

    bool isFresh(struct stat& status) const;
    bool inMemory() const { return inMemory_; }
    veltor::detail::FileText readText() const;
    bool replaceTree(veltor::detail::FileText& text, veltor::detail::TextUse use, const struct stat& status);
    void dropTree() noexcept;
    void takeImage(veltor::detail::Image&& image, const struct stat& status) noexcept;
    const veltor::detail::EntryPlaces& places() const { return places_; }
    void dropPlaces() noexcept
    {
        places_ = {};
        placesByEntry_ = {};
    }
    LDIF_Entry* find(const LDIF_DN& dn);

private:
    struct PlaceOfEntry
    {
        const LDIF_Entry* entry;
        std::size_t place; // among places_
    };

    void remember(LDIF_Entry& entry);
    void forget(const LDIF_Entry& entry);
    void forgetPlaces(const LDIF_Entry& top);
    const LDIF_Entry& found(const LDIF_DN& dn, const char* complaint);
    const LDIF_Entry& searchBase(const LDIF_DN& base);
    bool verified(const char* dn, const char* password);
    void render(veltor::detail::RenderedText& text) const;

    TreeAccess access_;
    std::optional<veltor::detail::EntryIndex> index_; // none where others may change the tree, or without a load
    veltor::detail::EntryPlaces places_;              // where the file's text was kept
    // In the order of the entries' addresses, as it was at the first removal: an entry that has come to lie where
    // another one lay has no place.
    std::vector<PlaceOfEntry> placesByEntry_;
    bool hasKeptLines_ = false;
    bool inMemory_ = false; // the last load came to its end
};

#endif
