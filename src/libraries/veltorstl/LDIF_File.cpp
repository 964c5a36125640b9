// The store: load, write-back, search and authentication.
#include "LDIF_File.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "LDIF_Line.h"
#include "descriptor.h"
#include "disk.h"
#include "entry_index.h"
#include "load.h"
#include "load_rules.h"
#include "region.h"
#include "rendered_text.h"

#include "veltor/platform.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

using veltor::detail::FileText;
using veltor::detail::guarded;
using veltor::detail::Image;
using veltor::detail::Layer;
using veltor::detail::printable;
using veltor::detail::TextUse;
using veltor::detail::translating;
namespace result = veltor::result;

namespace {

constexpr int unexpected = 1000;
constexpr int fileNameInvalid = 1001;
constexpr int fileNotFound = 1003;
constexpr int fileOpen = 1004;
constexpr int singleValued = 1006;
constexpr int notInObjectClass = 1007;

constexpr Layer readingLayer{VELTOR_HERE, "System error reading file"};

constexpr char rootName[] = "<root>";
constexpr char configurationName[] = "cn=Configuration";

[[noreturn]] void refuseFile(int line, int ldapCode, int libraryCode, const std::string& message,
                             const std::string& fileName, int systemError = 0)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, libraryCode, message.c_str());
    failure.configFile = fileName;
    failure.sysErrno = systemError;
    throw failure;
}

struct stat statusOf(const std::string& fileName)
{
    struct stat status = {};
    if (veltor::detail::retried([&] { return stat(fileName.c_str(), &status); }) != 0) {
        refuseFile(__LINE__, result::connectError, fileNotFound, "_stat()", fileName, errno);
    }
    return status;
}

} // namespace

// ---- Load ----

namespace veltor::detail {

/// The names of a file: each spelling is looked up once.
class NameTable
{
public:
    struct Name
    {
        SharedName text;
        const _AttrType* type = nullptr;
        const char* behind = nullptr; // the text of a name that sorts before this one; texts live as long as the table
        std::size_t next = 0;         // where the name stands that followed this one
    };

    NameTable() { slots_.resize(fewest); }

    Name& of(std::string_view text)
    {
        // Entries resemble each other: mostly the same name follows, or the name comes again.
        Name& last = slots_[last_];
        Name& next = slots_[last.next];
        if (next.text == text && next.type != nullptr) {
            last_ = last.next;
            return next;
        }
        if (last.text == text && last.type != nullptr) {
            return last;
        }
        Name& name = lookedUp(text);
        if (&name != &passing_) {
            const auto position = static_cast<std::size_t>(&name - slots_.data());
            slots_[last_].next = position;
            last_ = position;
        }
        return name;
    }

    /// Every name that was asked for is in the table, so that no two names ever share an address.
    bool isWhole() const { return isWhole_; }

private:
    static constexpr std::size_t fewest = 256;
    static constexpr std::size_t most = 4096;

    Name& lookedUp(std::string_view text)
    {
        std::size_t position = hashBytes(hashSeed(), text);
        for (;; ++position) {
            Name& name = slots_[position & (slots_.size() - 1)];
            if (name.type == nullptr) {
                return add(text, name);
            }
            if (name.text == text) {
                return name;
            }
        }
    }

    Name& add(std::string_view text, Name& slot)
    {
        Name name{SharedName(text), attrTypeOf(text)};
        if (2 * (used_ + 1) <= slots_.size()) {
            ++used_;
            return slot = std::move(name);
        }
        if (slots_.size() >= most) {
            // A file of ever new names: they are not worth keeping.
            isWhole_ = false;
            return passing_ = std::move(name);
        }
        std::vector<Name> old(2 * slots_.size());
        old.swap(slots_);
        used_ = 0;
        last_ = 0;
        for (Name& known : old) {
            if (known.type != nullptr) {
                known.next = 0;
                lookedUp(known.text.str()) = known;
            }
        }
        return lookedUp(text);
    }

    std::vector<Name> slots_; // a power of two, by the hash of the text
    std::size_t used_ = 0;
    std::size_t last_ = 0; // where the name stands that was asked for last
    Name passing_;
    bool isWhole_ = true;
};

/// Adds attributes to an entry that is being read. Few go to their places one by one; of many, an index keeps the
/// order, and they are sorted once in the end: a file may tell any number of attributes in any order.
class AttributeCollector
{
public:
    /// The attributes stand in no order for the time being.
    bool isActive() const { return order_.has_value(); }

    void add(LDIF_Attributes& attributes, LDIF_Attribute&& attribute)
    {
        constexpr std::size_t few = 32;
        if (!order_ && attributes.size() < few) {
            attributes += std::move(attribute);
            return;
        }
        if (!order_) {
            Order order(ByName{&attributes});
            for (std::size_t index = 0; index < attributes.size(); ++index) {
                order.insert(index);
            }
            order_ = std::move(order);
        }
        if (const auto present = order_->find(attribute.name); present != order_->end()) {
            attributes[*present].merge(std::move(attribute));
            return;
        }
        attributes.push_back(std::move(attribute));
        try {
            order_->insert(attributes.size() - 1);
        } catch (...) {
            attributes.pop_back();
            throw;
        }
    }

    /// Puts the attributes in order.
    void finish(LDIF_Attributes& attributes)
    {
        if (!order_) {
            return;
        }
        LDIF_Attributes sorted;
        sorted.reserve(attributes.size());
        for (const std::size_t index : *order_) {
            sorted.push_back(std::move(attributes[index]));
        }
        attributes.swap(sorted);
        order_.reset();
    }

private:
    struct ByName
    {
        using is_transparent = void;

        bool operator()(std::size_t left, std::size_t right) const { return nameOf(left) < nameOf(right); }
        bool operator()(std::size_t left, const cisString& right) const { return nameOf(left) < right; }
        bool operator()(const cisString& left, std::size_t right) const { return left < nameOf(right); }
        const cisString& nameOf(std::size_t index) const { return (*attributes)[index].name; }

        const LDIF_Attributes* attributes;
    };
    using Order = std::set<std::size_t, ByName>;

    std::optional<Order> order_;
};

bool endsLoad(const LDIF_Exception& refusal)
{
    return refusal.ldapErr == result::objectClassViolation || refusal.isSystemFailure();
}

namespace {

[[noreturn]] void refuseInRoot(int line, int ldapCode, int libraryCode, const std::string& message,
                               const LDIF_Attribute& attribute)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, libraryCode, message.c_str());
    failure.entryDn = rootName;
    failure.attribute = attribute.name;
    failure.value = attribute.values.empty() ? "" : attribute.values.begin()->str();
    throw failure;
}

} // namespace

bool& RootNames::admit(const LDIF_Attribute& attribute)
{
    const auto refuseSecond = [&](const char* message) {
        refuseInRoot(__LINE__, result::constraintViolation, singleValued, message, attribute);
    };
    if (attribute.name == "VERSION") {
        if (versionSeen) {
            refuseSecond("More than 1 \"version\" attribute not allowed");
        }
        return versionSeen;
    }
    if (attribute.name == "CHARSET") {
        if (charsetSeen) {
            refuseSecond("More than 1 \"charset\" attribute not allowed");
        }
        return charsetSeen;
    }
    refuseInRoot(__LINE__, result::objectClassViolation, notInObjectClass,
                 "\"" + attribute.name + "\" attribute not allowed in <root> object", attribute);
}

void settleKeptLine(LDIF_Line& line)
{
    const auto lineNumber = line.lineNumber;
    std::size_t before = line.value.size() + 1;
    while (line.value.size() < before) {
        before = line.value.size();
        const std::string written = line.str() + "\n";
        LineReader(written).next(line);
    }
    line.lineNumber = lineNumber;
}

/// One load of the file into an empty tree.
class Loader
{
public:
    Loader(FileText& text, TextUse use, Image& image)
        : region_(text.isInChunks()), ancestors_(text.view().size() / usualFamilyBytes), text_(text),
          keepsText_(use != TextUse::usedUp), settles_(use == TextUse::settled), reader_(text.view()), image_(image),
          root_(image.root), pending_(image.trailingComment), index_(image.index)
    {
    }

    /// Reads to the end. What was read before a failure is in the tree.
    void run()
    {
        while (!ended_) {
            step();
            if (keepsText_) {
                continue;
            }
            // What was read makes room for what it says.
            if (void* const chunk = text_.giveUpChunkBefore(reader_.position()); chunk != nullptr) {
                region_.donate(chunk);
            }
        }
    }

    /// Adds to a failure what only the load knows.
    void complete(LDIF_Exception& failure) const
    {
        failure.configLine = reader_.lineNumber();
        failure.entryDn = current_ != nullptr ? printable(current_->dn) : rootName;
    }

    /// After a failure: the entry that was being read belongs to what was read.
    void keepCurrentEntry() noexcept
    {
        if (closing_) {
            return;
        }
        try {
            closeEntry();
        } catch (...) {
            // The failure that is on its way matters more; the next load reads everything again.
        }
    }

private:
    void step()
    {
        lineBegin_ = reprocess_ ? lineBegin_ : reader_.position();
        // The usual line is lent; every other has to be made.
        const bool isLent = !reprocess_ && reader_.nextPlain(plain_);
        if (!isLent) {
            readLine();
        }
        switch (isLent ? plain_.type : line_.type) {
        case LDIF_Line::endOfFile:
            closeEntry();
            while (!pending_.lines.empty() && pending_.lines.back().type == LDIF_Line::blankLine) {
                pending_.lines.pop_back();
            }
            ended_ = true;
            break;
        case LDIF_Line::blankLine:
            if (current_ != nullptr) {
                closeEntry();
                if (pending_.lines.empty()) {
                    break;
                }
                pending_.lines.back().setEndsEntry(true);
                if (!settles_) {
                    break;
                }
                // A write puts the comment behind a blank line of its own: this one goes on parting it from the next.
            }
            [[fallthrough]];
        case LDIF_Line::comment:
            pending_.lines.push_back(isLent ? plain_.line() : std::move(line_));
            break;
        case LDIF_Line::dn:
            closeEntry();
            addRootDefaults();
            if (isLent) {
                openEntry(plain_.name, plain_.value, plain_.lineNumber);
            } else {
                openEntry(line_.name, line_.value, line_.lineNumber);
            }
            break;
        case LDIF_Line::attribute:
            addAttributeOrKeepLine(isLent);
            break;
        default:
            throw LDIF_Exception(VELTOR_HERE, result::other, unexpected, "Unknown LDIF_Line::Type!");
        }
    }

    /// Reads a line that can't be lent, unless the one at hand is to be taken again.
    void readLine()
    {
        if (!reprocess_) {
            reader_.next(line_);
        }
        if (!line_.valid) {
            keepLine();
        }
    }

    /// Keeps a line that can't be used under another name.
    void keepLine()
    {
        line_.changeToInvalidAttr();
        image_.hasKeptLines = true;
        if (!settles_) {
            return;
        }
        // A DN line without a colon gets the label of DN lines, since its entry would not come back under the other.
        if (line_.type == LDIF_Line::dn) {
            line_.name = "dn";
        }
        settleKeptLine(line_);
    }

    void closeEntry()
    {
        if (current_ == nullptr) {
            return;
        }
        collector_.finish(attributes_);
        closing_ = true;
        current_->attributes.reserve(attributes_.size());
        for (LDIF_Attribute& attribute : attributes_) {
            current_->attributes.push_back(std::move(attribute));
        }
        current_->attributes.mapNames();
        attributes_.clear();
        const EntryIndex::Place place = index_.placeOf(current_->dn);
        if (place.existing != nullptr) {
            current_->relDn = place.existing->relDn;
            notePlace(place.existing->insert(std::move(current_)));
        } else if (!index_.isComplete() || current_->dn.empty()) {
            current_->relDn = current_->dn;
            notePlace(root_.insert(std::move(current_)));
        } else {
            LDIF_Entry& parent = place.ancestor != nullptr ? *place.ancestor : root_;
            LDIF_Entry& placed = parent.insertMissing(std::move(current_));
            index_.addAsked(placed);
            notePlace(placed);
            ancestors_.lend(dnText_, placed.dn);
        }
        current_.reset();
        closing_ = false;
    }

    void openEntry(std::string_view label, std::string_view dn, int lineNumber)
    {
        auto entry = std::make_unique<LDIF_Entry>();
        entry->dnLabel.assign(label);
        parse(entry->dn, dn);
        entry->comment.absorb(std::move(pending_));
        dnText_.assign(dn);
        current_ = std::move(entry);
        entryPlace_ = {nullptr, lineBegin_, 0, lineNumber};
        reprocess_ = false;
    }

    void notePlace(const LDIF_Entry& entry)
    {
        if (keepsText_) {
            entryPlace_.entry = &entry;
            entryPlace_.end = lineBegin_;
            image_.places.push_back(entryPlace_);
        }
    }

    /// The first entry is at hand: what the root does not say by now it gets by default.
    void addRootDefaults()
    {
        if (!rootNames_.charsetSeen) {
            addDefault("charset", defaultCharset);
            rootNames_.charsetSeen = true;
        }
        if (!rootNames_.versionSeen) {
            addDefault("version", defaultVersion);
            rootNames_.versionSeen = true;
        }
    }

    void addDefault(const char* name, const char* value)
    {
        LDIF_Attribute attribute(name, value);
        LDIF_Comment block;
        if (settles_) {
            // The text goes on without the default: the block directly above the first entry stays with that.
            const auto above = static_cast<std::ptrdiff_t>(pending_.linesAboveBlock());
            block.lines.insert(block.lines.end(), std::make_move_iterator(pending_.lines.begin() + above),
                               std::make_move_iterator(pending_.lines.end()));
            pending_.lines.resize(static_cast<std::size_t>(above));
        }
        attribute.comment.absorb(std::move(pending_));
        root_.attributes += std::move(attribute);
        pending_ = std::move(block);
    }

    /// A line that its attribute refuses is kept under another name, unless it breaks the rules of the root. When
    /// the system fails nothing is known about the line: the load ends, and no good line is renamed on disk.
    void addAttributeOrKeepLine(bool isLent)
    {
        if (isLent && current_ == nullptr) {
            line_ = plain_.line();
            isLent = false;
        }
        try {
            if (isLent) {
                addPlainAttribute();
            } else {
                addAttribute();
            }
        } catch (const LDIF_Exception& failure) {
            if (endsLoad(failure)) {
                throw;
            }
            if (isLent) {
                line_ = plain_.line();
            }
            keepLine();
            reprocess_ = true;
        }
    }

    /// What addAttribute does in an entry, for the line that is lent.
    void addPlainAttribute()
    {
        NameTable::Name& name = names_.of(plain_.name);
        LDIF_Attribute* const last = attributes_.empty() || collector_.isActive() ? nullptr : &attributes_.back();
        if (last != nullptr && last->values.name.c_str() == name.text.c_str()) {
            // One more value of the last attribute.
            LDIF_Values values(name.text, name.type);
            values.addText(plain_.value);
            last->comment.absorb(std::move(pending_));
            last->values.absorb(std::move(values));
            return;
        }
        if (last != nullptr && isInOrder(*last, name)) {
            attributes_.emplace_back(plain_.name, name.text, name.type);
            try {
                attributes_.back().values.addText(plain_.value);
            } catch (...) {
                attributes_.pop_back();
                throw;
            }
            attributes_.back().comment.absorb(std::move(pending_));
            return;
        }
        LDIF_Attribute attribute(plain_.name, name.text, name.type);
        attribute.values.addText(plain_.value);
        attribute.comment.absorb(std::move(pending_));
        collector_.add(attributes_, std::move(attribute));
    }

    /// True when a name sorts behind the last attribute's. Files repeat themselves: what was compared once is known.
    bool isInOrder(const LDIF_Attribute& last, NameTable::Name& name) const
    {
        const char* const text = last.values.name.c_str();
        if (names_.isWhole() && name.behind == text) {
            return true;
        }
        const bool isBehind = last.name.compare(name.text.c_str()) < 0;
        name.behind = isBehind ? text : nullptr;
        return isBehind;
    }

    void addAttribute()
    {
        // Also from here no name gets into an entry that the table does not keep.
        NameTable::Name& name = names_.of(line_.name);
        LDIF_Attribute attribute(line_.name, name.text, name.type);
        attribute.values.addText(line_.value);
        attribute.comment.absorb(std::move(pending_));
        reprocess_ = false;
        if (current_ != nullptr) {
            collector_.add(attributes_, std::move(attribute));
            return;
        }
        bool& seen = rootNames_.admit(attribute);
        root_.attributes += std::move(attribute);
        seen = true;
    }

    // For every so many bytes of the file there may be a parent to remember.
    static constexpr std::size_t usualFamilyBytes = 4096;

    // First, so that they are in force for all that follows.
    Region region_;
    DnMemory ancestors_;
    FileText& text_;
    bool keepsText_;
    bool settles_;
    LineReader reader_;
    Image& image_;
    LDIF_Entry& root_;
    LDIF_Comment& pending_; // comments wait here for what they precede; what is left trails the last entry
    LDIF_Line line_;
    PlainLine plain_;
    std::string dnText_; // of the current entry
    std::unique_ptr<LDIF_Entry> current_;
    LDIF_Attributes attributes_; // of the current entry; they move into it when their number is known
    NameTable names_;
    EntryIndex& index_;
    AttributeCollector collector_;
    bool closing_ = false; // the current entry is on its way into the tree
    RootNames rootNames_;
    bool reprocess_ = false;
    bool ended_ = false;
    std::size_t lineBegin_ = 0; // of the line at hand
    EntryPlace entryPlace_ = {};
};

} // namespace veltor::detail

LDIF_File::LDIF_File(const std::string& file, const std::string& backup) : LDIF_File(file, backup, TreeAccess::anybody)
{
    refresh();
}

LDIF_File::LDIF_File(const std::string& file, const std::string& backup, TreeAccess access)
    : fileName(file), backupFileName(backup), fileStatus(), access_(access)
{
    if (fileName.empty()) {
        refuseFile(__LINE__, result::connectError, fileNameInvalid, "Config filename is NULL!", "<NULL>");
    }
}

LDIF_File::~LDIF_File() = default;

bool LDIF_File::refresh()
{
    struct stat status = {};
    if (isFresh(status)) {
        return false;
    }
    FileText text = readText();
    if (replaceTree(text, TextUse::usedUp, status)) {
        flush();
    }
    return true;
}

FileText LDIF_File::readText() const
{
    return translating(
        readingLayer, [&] { return veltor::detail::readWholeFile(fileName); },
        [&](LDIF_Exception& failure) { failure.configFile = fileName; });
}

/// Reads a text in place of the tree.
///
/// @param status  of the file that it was read from
/// @return        true when lines were kept as zor-slapdInvalidLine
bool LDIF_File::replaceTree(FileText& text, TextUse use, const struct stat& status)
{
    return translating(
        readingLayer,
        [&] {
            // The old tree goes first: there need not be room for both.
            dropTree();
            Image image;
            try {
                veltor::detail::load(text, use, image, fileName);
            } catch (...) {
                root = std::move(image.root);
                trailingComment = std::move(image.trailingComment);
                throw;
            }
            takeImage(std::move(image), status);
            return hasKeptLines_;
        },
        [&](LDIF_Exception& failure) { failure.configFile = fileName; });
}

/// True when the file's modification time is that of what is in memory; fills in what it is now.
bool LDIF_File::isFresh(struct stat& status) const
{
    status = statusOf(fileName);
    return inMemory_ && status.st_mtime == fileStatus.st_mtime;
}

/// Forgets what is in memory: the next refresh reads the file.
void LDIF_File::dropTree() noexcept
{
    inMemory_ = false;
    index_.reset();
    places_.clear();
    placesByEntry_.clear();
    trailingComment.lines.clear();
    root.clear();
}

/// Takes over what a load made of the file.
void LDIF_File::takeImage(Image&& image, const struct stat& status) noexcept
{
    root = std::move(image.root);
    trailingComment = std::move(image.trailingComment);
    if (access_ == TreeAccess::storeAlone) {
        index_.emplace(std::move(image.index));
    }
    places_ = std::move(image.places);
    placesByEntry_.clear();
    for (auto& place : places_) {
        // An entry of an empty DN is the root, which has just moved.
        if (place.entry == &image.root) {
            place.entry = &root;
        }
    }
    hasKeptLines_ = image.hasKeptLines;
    fileStatus = status;
    inMemory_ = true;
}

namespace veltor::detail {

void load(FileText& text, TextUse use, Image& image, const std::string& fileName)
{
    std::optional<Loader> loader;
    try {
        guarded(
            readingLayer, [&] { loader.emplace(text, use, image).run(); },
            [&](LDIF_Exception& failure) {
                if (loader.has_value()) {
                    loader->complete(failure);
                }
                failure.configFile = fileName;
            });
    } catch (const LDIF_Exception&) {
        if (loader.has_value()) {
            loader->keepCurrentEntry();
        }
        throw;
    }
}

} // namespace veltor::detail

// ---- Write-back ----

namespace {

/// True when two names are spellings of one directory entry. A second hard link is an entry of its own.
bool nameOneFile(const std::string& left, const std::string& right)
{
    struct stat leftStatus = {};
    struct stat rightStatus = {};
    return lstat(left.c_str(), &leftStatus) == 0 && lstat(right.c_str(), &rightStatus) == 0 &&
           leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino &&
           (leftStatus.st_nlink == 1 || left == right);
}

} // namespace

void LDIF_File::render(veltor::detail::RenderedText& text) const
{
    root.appendTreeTo(text);
    trailingComment.appendTo(text);
}

// The steps, in this order, and what each failure leaves behind:
//
//   render the text                     nothing touched
//   backup and file are one name        nothing touched
//   remove the old backup               a failure is ignored
//   rename the file to the backup name  the file in place
//   open the file anew, truncating      the old text under the backup name, or in place without one
//   write, close                        not reported, as ever
//   take the status                     the new text in place
//   give away, protect                  the new text in place
void LDIF_File::flush()
{
    const bool keepsBackup = !backupFileName.empty();
    const Layer layer{VELTOR_HERE, "System error writing file"};
    const auto nameFile = [&](LDIF_Exception& failure) { failure.configFile = fileName; };
    const auto refuseRename = [&] {
        refuseFile(__LINE__, result::insufficientAccess, fileOpen,
                   "Unable to rename: \"" + fileName + "\" to \"" + backupFileName + "\" ", fileName);
    };
    // The file as it was is the best guess at its size.
    veltor::detail::RenderedText text(static_cast<std::size_t>(fileStatus.st_size) + 4096);
    guarded(
        layer, [&] { render(text); }, nameFile);
    translating(
        layer,
        [&] {
            if (keepsBackup) {
                // Two spellings of one name: removing the old backup would remove the configuration.
                if (nameOneFile(fileName, backupFileName)) {
                    refuseRename();
                }
                static_cast<void>(std::remove(backupFileName.c_str()));
                if (std::rename(fileName.c_str(), backupFileName.c_str()) != 0) {
                    refuseRename();
                }
            }
            if (!veltor::detail::writeWholeFile(fileName, text)) {
                refuseFile(__LINE__, result::insufficientAccess, fileOpen, "Unable to open: \"" + fileName + "\"",
                           fileName);
            }
            fileStatus = statusOf(fileName);
            // What is on disk now is what is in memory, also after a load that failed.
            inMemory_ = true;
            if (keepsBackup) {
                // An account that does not exist leaves owner and group unchanged.
                const uid_t user = ldap_get_uid("ldap");
                const gid_t group = ldap_get_gid("ldap");
                if (chown(fileName.c_str(), user, group) != 0) {
                    refuseFile(__LINE__, result::insufficientAccess, fileOpen, "Unable to chown: \"" + fileName + "\" ",
                               fileName);
                }
                constexpr mode_t ownerWritesGroupReads = 0640;
                if (chmod(fileName.c_str(), ownerWritesGroupReads) != 0) {
                    refuseFile(__LINE__, result::insufficientAccess, fileOpen, "Unable to chmod: \"" + fileName + "\" ",
                               fileName);
                }
            }
        },
        nameFile);
}

// ---- Search ----

LDIF_Entry* LDIF_File::find(const LDIF_DN& dn)
{
    LDIF_Entry* const entry = index_ ? index_->find(dn) : nullptr;
    return entry != nullptr ? entry : root.find(dn);
}

const LDIF_Entry& LDIF_File::found(const LDIF_DN& dn, const char* complaint)
{
    const LDIF_Entry* const entry = find(dn);
    if (entry == nullptr) {
        LDIF_Exception failure(VELTOR_HERE, result::noSuchObject, result::noSuchObject, complaint);
        failure.entryDn = printable(dn);
        throw failure;
    }
    return *entry;
}

const LDIF_Entry& LDIF_File::searchBase(const LDIF_DN& base)
{
    return found(base, "Base entry not found");
}

const LDIF_Entry& LDIF_File::entryOf(const LDIF_DN& dn)
{
    return found(dn, "Entry not found");
}

LDIF_Search_Results LDIF_File::search(const LDIF_DN& base, const LDIF_Search_Results::Scope& scope,
                                      const LDIF_Filter& filter, const LDIF_AttrFilter& attributes, bool typesOnly)
{
    LDIF_Search_Results results(scope, filter, attributes, typesOnly);
    results.addEntry(searchBase(base), true);
    return results;
}

std::vector<const LDIF_Entry*> LDIF_File::select(const LDIF_DN& base, LDIF_Search_Results::Scope scope,
                                                 const LDIF_Filter& filter)
{
    return veltor::detail::select(searchBase(base), scope, filter);
}

std::vector<const LDIF_Entry*> LDIF_File::select(const LDIF_DN& base, LDIF_Search_Results::Scope scope)
{
    const LDIF_Entry& top = searchBase(base);
    std::vector<const LDIF_Entry*> entries;
    if (scope != LDIF_Search_Results::oneLevel) {
        entries.push_back(&top);
    }
    if (scope != LDIF_Search_Results::base) {
        veltor::detail::TreeWalk walk(top);
        for (walk.next(); walk.current() != nullptr; walk.next(scope == LDIF_Search_Results::subtree)) {
            entries.push_back(walk.current());
        }
    }
    return entries;
}

// ---- Authentication ----

int LDIF_File::setAuthentication(const char* dn, const char* password, int method)
{
    constexpr int none = 0;
    constexpr int simple = 128;
    constexpr std::int32_t refused = 0;
    constexpr std::int32_t anonymous = 1;
    constexpr std::int32_t administrator = 2;

    const auto given = [](const char* text) { return text != nullptr && *text != '\0'; };
    if (method == none || (method == simple && dn == nullptr && password == nullptr)) {
        authLevel = anonymous;
    } else if (method == simple && given(dn) && given(password)) {
        authLevel = guarded(
            Layer{VELTOR_HERE, "System error in LDIF_File::setAuthentication()"},
            [&] { return verified(dn, password) ? administrator : refused; },
            [&](LDIF_Exception& failure) {
                if (failure.nested == nullptr) {
                    failure.configFile = fileName;
                } else if (failure.entryDn.empty()) {
                    failure.entryDn = configurationName;
                }
            });
    } else {
        authLevel = refused;
    }
    return authLevel;
}

bool LDIF_File::verified(const char* dn, const char* password)
{
    constexpr char adminDn[] = "zor-slapdAdminDN";
    constexpr char adminPw[] = "zor-slapdAdminPW";
    LDIF_DN base;
    base = cisString(configurationName);
    const auto results =
        search(base, LDIF_Search_Results::base, LDIF_Filter(), LDIF_AttrFilter{adminDn, adminPw}, false);
    if (results.entries.empty()) {
        return false;
    }
    // Only the first value of each counts.
    const auto& attributes = results.entries.front().attributes;
    const auto agrees = [&attributes](const char* name, const char* text) {
        const auto found = attributes.find(name);
        return found != attributes.end() && !found->values.empty() && found->values.begin()->compare(text) == 0;
    };
    return agrees(adminDn, dn) && agrees(adminPw, password);
}

int LDIF_File::getAuthentication()
{
    return authLevel;
}
