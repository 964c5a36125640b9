// The store behind a handle: the classic one, and the careful ways to write beside it.
#include "bound_store.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "entry_lines.h"
#include "kept_layout.h"
#include "load_rules.h"
#include "region.h"
#include "rendered_text.h"
#include "survival.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

namespace veltor::detail {

namespace {

constexpr char rootName[] = "<root>";
constexpr std::array rootDefaults{std::pair("charset", defaultCharset), std::pair("version", defaultVersion)};

[[noreturn]] void refuse(int line, int code, const std::string& message)
{
    throw LDIF_Exception(__FILE_NAME__, line, code, code, message.c_str());
}

/// Runs a part of an update; what it raises tells of the entry.
template <class Work>
void telling(const LDIF_DN& dn, const char* attribute, Work&& work)
{
    try {
        work();
    } catch (LDIF_Exception& failure) {
        if (failure.entryDn.empty()) {
            failure.entryDn = printable(dn);
        }
        if (failure.attribute.empty() && attribute != nullptr) {
            failure.attribute = attribute;
        }
        throw;
    }
}

/// A modification list whose values are texts, each as long as the caller says.
class TextMods
{
public:
    /// @throws LDIF_Exception 21/21 for a value with a NUL inside its length
    explicit TextMods(LDAPMod** mods)
    {
        std::size_t count = 0;
        while (mods != nullptr && mods[count] != nullptr) {
            ++count;
        }
        records_.resize(count);
        list_.reserve(count + 1);
        for (std::size_t index = 0; index < count; ++index) {
            take(*mods[index], records_[index]);
            list_.push_back(&records_[index].mod);
        }
        list_.push_back(nullptr);
    }

    LDAPMod** list() { return list_.data(); }

private:
    struct Record
    {
        LDAPMod mod = {};
        std::vector<std::string> texts;
        std::vector<char*> pointers;
    };

    static void take(const LDAPMod& given, Record& record)
    {
        record.mod.mod_op = given.mod_op & ~LDAP_MOD_BVALUES;
        record.mod.mod_type = given.mod_type;
        if ((given.mod_op & LDAP_MOD_BVALUES) == 0) {
            record.mod.mod_values = given.mod_values;
            return;
        }
        if (given.mod_bvalues == nullptr) {
            return;
        }
        for (berval** value = given.mod_bvalues; *value != nullptr; ++value) {
            record.texts.emplace_back((*value)->bv_val, (*value)->bv_len);
            if (record.texts.back().find('\0') != std::string::npos) {
                LDIF_Exception failure(VELTOR_HERE, result::invalidSyntax, result::invalidSyntax,
                                       "The value would come back without what follows its NUL");
                failure.attribute = given.mod_type;
                failure.value = record.texts.back();
                throw failure;
            }
        }
        for (std::string& text : record.texts) {
            record.pointers.push_back(text.data());
        }
        record.pointers.push_back(nullptr);
        record.mod.mod_values = record.pointers.data();
    }

    std::vector<Record> records_;
    std::vector<LDAPMod*> list_;
};

void needsUsableValues(const LDAPMod& mod)
{
    for (char** value = mod.mod_values; value != nullptr && *value != nullptr; ++value) {
        needsToSurvive(mod.mod_type, *value);
    }
}

bool hasValues(const LDAPMod& mod)
{
    return mod.mod_values != nullptr && *mod.mod_values != nullptr;
}

void renderTo(RenderedText& text, const LDIF_Entry& root, const LDIF_Comment& trailingComment)
{
    root.appendTreeTo(text);
    trailingComment.appendTo(text);
}

/// Puts a text into memory that it asks for once it knows its size in bytes.
template <class Text>
void flatten(const Text& text, const std::function<char*(std::size_t)>& obtain)
{
    std::size_t size = 0;
    text.handOver([&size](std::string_view piece) {
        size += piece.size();
        return true;
    });
    char* next = obtain(size);
    text.handOver([&next](std::string_view piece) {
        // So much at a time that the caches still hold what was made ready.
        constexpr std::size_t stepBytes = std::size_t{256} << 10U;
        for (; !piece.empty(); piece.remove_prefix(std::min(piece.size(), stepBytes))) {
            const std::string_view step = piece.substr(0, stepBytes);
            if (step.size() == stepBytes) {
                makeReady(next, stepBytes);
            }
            std::memcpy(next, step.data(), step.size());
            next += step.size();
        }
        return true;
    });
}

template <class Text>
FileText flattened(const Text& text)
{
    std::optional<FileText> flat;
    flatten(text, [&flat](std::size_t size) {
        flat.emplace(size + 1).setSize(size);
        return flat->data();
    });
    return std::move(*flat);
}

FileText copyOf(std::string_view text)
{
    FileText copy(text.size() + 1);
    if (!text.empty()) {
        std::memcpy(copy.data(), text.data(), text.size());
    }
    copy.setSize(text.size());
    return copy;
}

/// A tree that was read back has to say again what it was read from.
void needsSameText(const Image& image, std::string_view text)
{
    RenderedText again(text.size() + 1);
    renderTo(again, image.root, image.trailingComment);
    std::string_view rest = text;
    bool same = true;
    again.handOver([&](std::string_view piece) {
        same = rest.starts_with(piece);
        rest.remove_prefix(
            same ? piece.size()
                 : static_cast<std::size_t>(std::mismatch(rest.begin(), rest.end(), piece.begin(), piece.end()).first -
                                            rest.begin()));
        return same;
    });
    if (!same || !rest.empty()) {
        const std::string_view before = text.substr(0, text.size() - rest.size());
        const auto line = std::count(before.begin(), before.end(), '\n') + 1;
        refuse(__LINE__, result::invalidSyntax,
               "Line " + std::to_string(line) + " of the new text would be written otherwise the next time");
    }
}

/// True when a value is stored as that text, or is equal to it.
bool isAmong(const LDIF_Values& values, const char* text)
{
    if (values.begin()->text() == text) {
        return true;
    }
    try {
        return values.find(text) != values.end();
    } catch (const LDIF_Exception& failure) {
        if (failure.isSystemFailure()) {
            throw;
        }
        // No value of this type: it stands nowhere.
        return false;
    }
}

} // namespace

void needsToLoad(std::string_view text, const std::string& fileName)
{
    FileText copy = copyOf(text);
    Image image;
    load(copy, TextUse::usedUp, image, fileName);
}

/// Under the writer lock.
struct BoundStore::ChangeSet
{
    ChangeSet(const std::string& fileName, int timeoutMs) : place(fileName), lock(place, timeoutMs) {}

    /// The update at hand touches that entry.
    void touch(const LDIF_DN& dn) { changes.entries.insert(dn); }

    FilePlace place;
    WriterLock lock;
    Changes changes;
    bool changed = false;
    bool idle = false;    // the update at hand found everything as it wants it
    bool refused = false; // what is at hand can't be asked for, which is no update that failed
    bool spoilt = false;
};

BoundStore::BoundStore(const std::string& file, const std::string& backup, const WriteSettings& settings)
    : LDIF_File(file, backup, TreeAccess::storeAlone), settings_(settings)
{
    refresh();
}

BoundStore::~BoundStore() = default;

void BoundStore::refresh()
{
    if (inSet()) {
        return;
    }
    if (!isCareful()) {
        LDIF_File::refresh();
        isDropped_ = false;
        return;
    }
    struct stat status = {};
    if (isFresh(status)) {
        return;
    }
    FileText text = readText();
    text_.reset();
    replaceTree(text, textUse(), status);
    text_ = std::move(text);
    isSettled_ = settings_.mode == CFG_WRITE_SAFE;
    isDropped_ = false;
}

std::string BoundStore::treeView(bool oem)
{
    if (isDropped_) {
        refresh();
    }
    return LDIF_File::treeView(oem);
}

TextUse BoundStore::textUse() const
{
    return settings_.mode == CFG_WRITE_SAFE ? TextUse::settled : TextUse::kept;
}

void BoundStore::modeChanged() noexcept
{
    if (!isCareful()) {
        text_.reset();
        dropPlaces();
    }
}

// ---- Updates ----

/// @return true for a classic one
bool BoundStore::prepareUpdate()
{
    if (settings_.mode == CFG_WRITE_NEVER) {
        refuse(__LINE__, result::unwillingToPerform, "Nothing is written in this mode");
    }
    if (isCareful()) {
        return false;
    }
    LDIF_File::refresh();
    return true;
}

void BoundStore::runInSet(const std::function<void()>& change)
{
    const bool isOwn = !inSet();
    if (isOwn) {
        takeLock(settings_.lockTimeoutMs);
    } else if (set_->spoilt) {
        refuse(__LINE__, result::unwillingToPerform, "An update of this change set failed: roll it back");
    }
    try {
        set_->idle = false;
        set_->refused = false;
        change();
        if (!set_->idle) {
            completeRoot();
            set_->changed = true;
        }
    } catch (...) {
        set_->spoilt = set_->spoilt || !set_->refused;
        if (isOwn) {
            rollback();
        }
        throw;
    }
    if (isOwn) {
        commit();
    }
}

void BoundStore::add(const LDIF_DN& dn, LDAPMod** mods)
{
    if (!isCareful()) {
        LDIF_File::add(dn, mods);
        return;
    }
    telling(dn, nullptr, [&] {
        needsToSurvive(dn);
        set_->touch(dn);
        if (find(dn) != nullptr) {
            refuse(__LINE__, result::entryAlreadyExists, "The entry exists");
        }
        TextMods texts(mods);
        for (LDAPMod** mod = texts.list(); *mod != nullptr; ++mod) {
            if (hasValues(**mod)) {
                needsUsableName((*mod)->mod_type);
                needsUsableValues(**mod);
            }
        }
        LDIF_File::add(dn, texts.list());
    });
}

void BoundStore::modify(const LDIF_DN& dn, LDAPMod** mods)
{
    if (!isCareful()) {
        LDIF_File::modify(dn, mods);
        return;
    }
    telling(dn, nullptr, [&] {
        set_->touch(dn);
        const LDIF_Entry* const entry = find(dn);
        if (entry == nullptr) {
            LDIF_File::modify(dn, mods);
            set_->idle = true;
            return;
        }
        const LDIF_Attributes before = entry->attributes;
        // One by one, so that the first that is wrong is told, whatever is wrong with it.
        for (; mods != nullptr && *mods != nullptr; ++mods) {
            LDAPMod* one[] = {*mods, nullptr};
            const int operation = (*mods)->mod_op & ~LDAP_MOD_BVALUES;
            if (operation != LDAP_MOD_ADD && operation != LDAP_MOD_REPLACE && operation != LDAP_MOD_DELETE) {
                LDIF_File::modify(dn, one);
            }
            TextMods texts(one);
            if (operation != LDAP_MOD_DELETE && hasValues(**texts.list())) {
                if (entry->attributes.find((*mods)->mod_type) == entry->attributes.cend()) {
                    needsUsableName((*mods)->mod_type);
                }
                needsUsableValues(**texts.list());
            }
            LDIF_File::modify(dn, texts.list());
        }
        set_->idle = areEqual(before, entry->attributes);
    });
}

void BoundStore::erase(const LDIF_DN& dn, bool deleteNonLeaves)
{
    if (isCareful()) {
        set_->touch(dn);
    }
    LDIF_File::erase(dn, deleteNonLeaves);
}

/// What the root does not say a load adds once there is an entry; one of the empty DN is enough, where it stays.
void BoundStore::completeRoot()
{
    const auto isOfRoot = [this](const EntryPlace& place) { return place.entry == &root; };
    if (root.children.isBlank() && !(keepsLayout() && std::any_of(places().begin(), places().end(), isOfRoot))) {
        return;
    }
    const LDIF_Attributes& attributes = root.attributes;
    for (const auto& [name, value] : rootDefaults) {
        if (attributes.find(name) == attributes.cend()) {
            root.attributes += LDIF_Attribute(name, value);
        }
    }
}

void BoundStore::setComment(const LDIF_DN& dn, const char* attribute, std::string_view text)
{
    telling(dn, attribute, [&] {
        LDIF_Entry* const entry = find(dn);
        if (entry == nullptr) {
            refuse(__LINE__, result::noSuchObject, "Entry not found");
        }
        LDIF_Comment* comment = &entry->comment;
        if (attribute != nullptr) {
            const auto found = entry->attributes.find(attribute);
            if (found == entry->attributes.end()) {
                refuse(__LINE__, result::noSuchAttribute, "Attribute not found");
            }
            comment = &found->comment;
        } else if (entry == &root) {
            set_->refused = true;
            refuse(__LINE__, result::unwillingToPerform, "The root has no DN line to stand above");
        }
        LDIF_Comment block;
        // A line feed at the end has an empty line behind it, as in the text that a block gives.
        for (bool isMore = !text.empty(); isMore;) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            isMore = end != text.size();
            LDIF_Line line;
            line.type = LDIF_Line::comment;
            line.value = end == 0 ? "#" : "# ";
            line.value += text.substr(0, end);
            needsToSurvive(line);
            block.lines.push_back(std::move(line));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        // Said even where it changes nothing in memory: an attribute that went and came in this set has no comment
        // there, but may have one in the file.
        set_->touch(dn);
        set_->changes.comments.insert({dn, attribute == nullptr ? "" : attribute});
        const std::size_t above = comment->linesAboveBlock();
        const auto isSame = [](const LDIF_Line& left, const LDIF_Line& right) { return left.value == right.value; };
        if (std::equal(comment->lines.begin() + static_cast<std::ptrdiff_t>(above), comment->lines.end(),
                       block.lines.begin(), block.lines.end(), isSame)) {
            set_->idle = true;
            return;
        }
        comment->lines.resize(above);
        comment->absorb(std::move(block));
    });
}

void BoundStore::flush()
{
    if (settings_.mode == CFG_WRITE_NEVER) {
        refuse(__LINE__, result::unwillingToPerform, "Nothing is written in this mode");
    }
    if (inSet()) {
        refuse(__LINE__, result::unwillingToPerform, "A change set is written by its commit");
    }
    refresh();
    // In safe mode every change was written by its commit.
    if (!isCareful()) {
        LDIF_File::flush();
    }
}

// ---- Change sets ----

void BoundStore::needsSafeMode() const
{
    if (settings_.mode != CFG_WRITE_SAFE) {
        refuse(__LINE__, result::unwillingToPerform, "Only the safe mode does this");
    }
}

void BoundStore::begin(int timeoutMs)
{
    needsSafeMode();
    if (inSet()) {
        refuse(__LINE__, result::unwillingToPerform, "A change set has begun already");
    }
    takeLock(timeoutMs);
}

/// Begins a set: on what the file holds now, whatever its modification time says.
void BoundStore::takeLock(int timeoutMs)
{
    auto set = std::make_unique<ChangeSet>(fileName, timeoutMs);
    struct stat status = {};
    FileText text = translating(
        Layer{VELTOR_HERE, "System error reading file"}, [&] { return set->place.read(status); },
        [&](LDIF_Exception& failure) { failure.configFile = fileName; });
    if (inMemory() && text_ && isSettled_ && text_->view() == text.view()) {
        fileStatus = status;
    } else {
        text_.reset();
        replaceTree(text, textUse(), status);
        text_ = std::move(text);
        isSettled_ = true;
    }
    isDropped_ = false;
    set_ = std::move(set);
}

std::unique_ptr<BoundStore::ChangeSet> BoundStore::endSet()
{
    if (!inSet()) {
        refuse(__LINE__, result::unwillingToPerform, "No change set has begun");
    }
    return std::exchange(set_, nullptr);
}

void BoundStore::dropChanges() noexcept
{
    dropTree();
    text_.reset();
    isDropped_ = true;
}

/// Runs a part of a commit; what it refuses tells where in the file that stands.
template <class Work>
auto BoundStore::tellingLine(Work&& work)
{
    try {
        return work();
    } catch (LDIF_Exception& failure) {
        if (!failure.isSystemFailure()) {
            tellLine(failure);
        }
        throw;
    }
}

void BoundStore::commit()
{
    const auto set = endSet();
    if (set->spoilt) {
        dropChanges();
        refuse(__LINE__, result::unwillingToPerform, "An update of this change set failed: nothing is written");
    }
    if (!set->changed) {
        return;
    }
    try {
        Image image;
        if (!keepsLayout()) {
            FileText text = tellingLine([&] { return flattened(*ownForm()); });
            readBack(text, image);
            tellingLine([&] {
                needsEqual({root, trailingComment}, {image.root, image.trailingComment});
                needsSameText(image, text.view());
            });
            put(*set, std::move(text), std::move(image));
            return;
        }
        CommentBalance comments;
        FileText text = tellingLine([&] { return flattened(editedText(set->changes, comments)); });
        readBack(text, image);
        tellingLine([&] {
            dropUnsaidDefaults(image.root);
            needsEqualEntries(root, image.root);
            needsComments(text_->view(), comments, text.view());
        });
        put(*set, std::move(text), std::move(image));
    } catch (...) {
        dropChanges();
        throw;
    }
}

/// The file's text with the changes of a set in it. The root may stay without its defaults there.
EditedText BoundStore::editedText(const Changes& changes, CommentBalance& comments)
{
    return withLayoutKept({text_->view(), places()}, root, changes, comments);
}

/// A text without an entry gives a root without defaults.
void BoundStore::dropUnsaidDefaults(const LDIF_Entry& read)
{
    for (const auto& [name, value] : rootDefaults) {
        const auto attribute = std::as_const(root.attributes).find(name);
        if (read.attributes.find(name) == read.attributes.cend() && attribute != root.attributes.cend() &&
            attribute->values.size() == 1 && attribute->values.begin()->text() == value) {
            root.attributes.erase(attribute);
        }
    }
}

/// Reads what is about to be written as the next load will.
void BoundStore::readBack(FileText& text, Image& image)
{
    try {
        load(text, TextUse::settled, image, fileName);
    } catch (const LDIF_Exception& cause) {
        if (cause.isSystemFailure()) {
            throw;
        }
        // The root's own rules, or a text that is no configuration at all.
        const bool isRootRule =
            cause.ldapErr == result::objectClassViolation || cause.ldapErr == result::constraintViolation;
        const int code = isRootRule                                 ? result::objectClassViolation
                         : cause.ldapErr == result::invalidDnSyntax ? result::invalidDnSyntax
                                                                    : result::invalidSyntax;
        // The line is one of the new text, which is nowhere.
        LDIF_Exception told(cause);
        told.configLine = 0;
        told.configFile.clear();
        LDIF_Exception failure(VELTOR_HERE, told);
        failure.ldapErr = code;
        failure.extErr = code;
        failure.msg = "The new text could not be read again: " + cause.msg;
        tellLine(failure);
        throw failure;
    }
}

/// Adds to a refusal where in the file that stands which the library's own form can't express.
void BoundStore::tellLine(LDIF_Exception& failure)
{
    // An entry that comes back under another DN lets others seem to differ: it is the cause. Lines that stay as they
    // are come back.
    for (const EntryPlace& place : keepsLayout() ? EntryPlaces() : places()) {
        if (place.entry == nullptr || place.entry == &root) {
            continue;
        }
        try {
            needsToSurvive(place.entry->dn);
        } catch (const LDIF_Exception& cause) {
            failure = cause;
            failure.configLine = place.line;
            failure.configFile = fileName;
            return;
        }
    }
    LDIF_DN dn;
    dn = cisString(failure.entryDn == rootName ? "" : failure.entryDn);
    const LDIF_Entry* const entry = find(dn);
    if (entry == nullptr) {
        return;
    }
    const char* const attribute = failure.attribute.empty() ? nullptr : failure.attribute.c_str();
    if (attribute == nullptr || entry->attributes.find(attribute) != entry->attributes.cend()) {
        failure.configLine = lineOf(dn, attribute, attribute == nullptr ? nullptr : failure.value.c_str());
    }
    if (failure.configLine == 0 && entry == &root) {
        // On its way the line has become another: an empty DN has brought it.
        const auto brought = std::find_if(places().begin(), places().end(),
                                          [entry](const EntryPlace& place) { return place.entry == entry; });
        failure.configLine = brought == places().end() ? 0 : brought->line;
    }
    failure.configFile = failure.configLine == 0 ? "" : fileName;
}

void BoundStore::rollback()
{
    const auto set = endSet();
    if (set->changed || set->spoilt) {
        dropChanges();
    }
}

void BoundStore::install(std::string_view given)
{
    const auto set = endSet();
    try {
        if (set->spoilt) {
            refuse(__LINE__, result::unwillingToPerform, "An update of this change set failed: nothing is written");
        }
        FileText text = copyOf(given);
        Image image;
        load(text, TextUse::settled, image, fileName);
        put(*set, std::move(text), std::move(image));
    } catch (...) {
        dropChanges();
        throw;
    }
}

/// Installs a text and takes over what was read from it.
void BoundStore::put(const ChangeSet& set, FileText&& text, Image&& image)
{
    struct stat status = fileStatus;
    if (text.view() != text_->view()) {
        status = detail::install(set.place, text.view(), text_->view(), backupFileName);
    }
    takeImage(std::move(image), status);
    text_ = std::move(text);
}

std::unique_ptr<RenderedText> BoundStore::ownForm() const
{
    auto text = std::make_unique<RenderedText>(static_cast<std::size_t>(fileStatus.st_size) + 4096);
    renderTo(*text, root, trailingComment);
    return text;
}

void BoundStore::render(const std::function<char*(std::size_t)>& obtain)
{
    if (!keepsLayout()) {
        flatten(*ownForm(), obtain);
        return;
    }
    if (!text_ || !isSettled_) {
        // What is in memory is another mode's, perhaps with half of a classic update.
        dropChanges();
        refresh();
    }
    CommentBalance comments;
    flatten(editedText(inSet() ? set_->changes : Changes(), comments), obtain);
}

// ---- Positions ----

int BoundStore::lineOf(const LDIF_DN& dn, const char* attribute, const char* value)
{
    if (!isCareful()) {
        refuse(__LINE__, result::unwillingToPerform, "Positions are kept in the safe and the never-write mode");
    }
    const LDIF_Entry* const entry = find(dn);
    telling(dn, attribute, [&] {
        if (entry == nullptr) {
            refuse(__LINE__, result::noSuchObject, "Entry not found");
        }
        if (attribute != nullptr && entry->attributes.find(attribute) == entry->attributes.cend()) {
            refuse(__LINE__, result::noSuchAttribute, "Attribute not found");
        }
    });
    if (!text_) {
        return 0;
    }
    EntryLines lines(text_->view(), isSettled_);
    int first = 0;
    if (entry == &root) {
        lines.addHeader(places());
    }
    for (const EntryPlace& place : places()) {
        if (place.entry == entry) {
            lines.addPlace(place);
            first = first == 0 ? place.line : first;
        }
    }
    if (attribute == nullptr) {
        return entry == &root ? 0 : first;
    }
    for (const ValueLine& line : lines.values()) {
        if (line.name != attribute) {
            continue;
        }
        LDIF_Values values(attribute);
        values.addText(line.text);
        if (value == nullptr || isAmong(values, value)) {
            return line.lineNumber;
        }
    }
    return 0;
}

} // namespace veltor::detail
