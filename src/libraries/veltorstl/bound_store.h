// The store behind a handle: the classic one, and the careful ways to write beside it.
#ifndef VELTOR_BOUND_STORE_H
#define VELTOR_BOUND_STORE_H

#include "LDIF_File.h"
#include "durable_file.h"

#include "veltor/cfg_admin.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <ldap.h>

class LDIF_Exception;

namespace veltor::detail {

class EditedText;
class RenderedText;
struct Changes;
struct CommentBalance;

/// How a handle writes. Its store looks here.
struct WriteSettings
{
    int mode = CFG_WRITE_DIRECT;
    int layout = CFG_LAYOUT_KEEP;
    int lockTimeoutMs = 10'000; // what the last begin asked for
};

/// Refuses a text that no load could read. @throws what a load raises
void needsToLoad(std::string_view text, const std::string& fileName);

/// The store of a bind. In safe and never-write mode it keeps the text that it read.
///
/// In safe mode the tree is the working copy of a change set, and the file's text the record to go back to: a set that
/// fails or is rolled back drops the tree, which cannot fail, and the next call reads the file.
class BoundStore : public LDIF_File
{
public:
    /// Reads the file as the mode says.
    /// @param settings  the handle's; outlive the store
    /// @throws LDIF_Exception as LDIF_File
    BoundStore(const std::string& fileName, const std::string& backupFileName, const WriteSettings& settings);
    ~BoundStore();

    /// Before a read: reads a file that changed again, except inside a change set.
    /// @throws LDIF_Exception as LDIF_File::refresh()
    void refresh();

    /// One update: in direct mode the classic re-read, change, write; in safe mode a part of the change set, or one of
    /// its own.
    /// @param change  applies it to this store
    /// @throws LDIF_Exception 53/53 in never-write mode and in a set that is spoilt; what the change and a commit raise
    template <class Change>
    void update(Change&& change)
    {
        if (prepareUpdate()) {
            change();
            LDIF_File::flush();
            return;
        }
        // Not std::ref: in debug information Clang 14 names its conversion after the caller's source, folder and all.
        runInSet([&change] { change(); });
    }

    // In safe mode these refuse what would not come back as it is; see survival.h. Else they are those of LDIF_File.
    void add(const LDIF_DN& dn, LDAPMod** mods);
    void modify(const LDIF_DN& dn, LDAPMod** mods);
    void erase(const LDIF_DN& dn, bool deleteNonLeaves);

    /// Replaces the comment block directly above an entry or one of its attributes.
    /// @param attribute  null: the entry's own, which the root has not
    /// @param text       lines, without their "# "; empty: removes the block
    /// @throws LDIF_Exception 32/32, 16/16; 21/21 for lines that would not come back
    void setComment(const LDIF_DN& dn, const char* attribute, std::string_view text);

    /// The classic drawing, which re-reads nothing but what the end of a change set dropped.
    /// @throws LDIF_Exception as LDIF_File, and as refresh()
    std::string treeView(bool oem);

    /// The classic re-read and write; in safe mode there is nothing to write.
    /// @throws LDIF_Exception 53/53 in never-write mode and inside a set; as LDIF_File
    void flush();

    /// @throws LDIF_Exception 53/53 in another mode
    void needsSafeMode() const;

    bool inSet() const { return set_ != nullptr; }

    /// The file as a commit would write it.
    /// @param obtain  gives memory for so many bytes
    void render(const std::function<char*(std::size_t)>& obtain);

    // What veltor/cfg_admin.h says of the calls of these names.
    void begin(int timeoutMs);
    void commit();
    void rollback();
    void install(std::string_view text);

    /// Where something stands in the file as last read; 0: nowhere.
    int lineOf(const LDIF_DN& dn, const char* attribute, const char* value);

    /// The mode was set anew: drops what it does not keep.
    void modeChanged() noexcept;

    BoundStore* earlier = nullptr;

private:
    struct ChangeSet;

    TextUse textUse() const;
    bool isCareful() const { return settings_.mode != CFG_WRITE_DIRECT; }
    bool keepsLayout() const { return settings_.mode == CFG_WRITE_SAFE && settings_.layout == CFG_LAYOUT_KEEP; }
    bool prepareUpdate();
    void runInSet(const std::function<void()>& change);
    void takeLock(int timeoutMs);
    std::unique_ptr<ChangeSet> endSet();
    void dropChanges() noexcept;
    void completeRoot();
    void dropUnsaidDefaults(const LDIF_Entry& read);
    std::unique_ptr<RenderedText> ownForm() const;
    EditedText editedText(const Changes& changes, CommentBalance& comments);
    template <class Work>
    auto tellingLine(Work&& work);
    void readBack(FileText& text, Image& image);
    void tellLine(LDIF_Exception& failure);
    void put(const ChangeSet& set, FileText&& text, Image&& image);

    const WriteSettings& settings_;
    std::optional<FileText> text_; // that the tree and the places were read from
    bool isSettled_ = false;       // what was read from it is what a safe write leaves of it
    std::unique_ptr<ChangeSet> set_;
    bool isDropped_ = false; // the tree, by the end of a change set
};

} // namespace veltor::detail

#endif
