// One change is one call of the C API, which writes the whole file. Around it this tool looks at the entry: what
// the library would merge or drop without a word is refused or told.
#include "update.h"

#include "escape.h"
#include "ldif_output.h"
#include "results.h"
#include "secrets.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <veltor/cfg.h>

namespace veltor::tool {

const char* const updateFooter =
    R"(Without -D the command works for root and for the owner of the file; everybody else
binds as the administrator. The changes are made one after the other, and each writes
the file: when one fails, those before it are in the file, and the message says which.

The file is written in place and keeps its owner and mode; no backup is made unless
--backup names one. With --backup the old file is renamed to that name, and the new one
is given to the account "ldap" (if there is one) with mode 0640.

The options common to all commands (-F, -D, -W, -y, -w) are accepted here too;
see veltor --help.)";

namespace {

constexpr const char* unchanged = "unchanged";

/// The modifications of a record as the library takes them. Borrows the texts of the record.
class Modifications
{
public:
    explicit Modifications(ChangeRecord& record)
    {
        mods_.reserve(record.operations.size());
        for (ChangeOperation& operation : record.operations) {
            std::vector<char*>& values = values_.emplace_back();
            for (ChangeValue& value : operation.values) {
                values.push_back(value.text.data());
            }
            values.push_back(nullptr);
            LDAPMod mod = {};
            mod.mod_op = codeOf(operation.kind);
            mod.mod_type = operation.attribute.data();
            mods_.push_back(mod);
        }
        // The lists have their final places now.
        for (std::size_t index = 0; index < mods_.size(); ++index) {
            mods_[index].mod_values = values_[index].data();
            list_.push_back(&mods_[index]);
        }
        list_.push_back(nullptr);
    }

    LDAPMod** list() { return list_.data(); }

private:
    static int codeOf(ChangeOperation::Kind kind)
    {
        switch (kind) {
        case ChangeOperation::Kind::add:
            return LDAP_MOD_ADD;
        case ChangeOperation::Kind::remove:
            return LDAP_MOD_DELETE;
        case ChangeOperation::Kind::replace:
            return LDAP_MOD_REPLACE;
        }
        return LDAP_MOD_REPLACE;
    }

    std::vector<std::vector<char*>> values_;
    std::vector<LDAPMod> mods_;
    std::vector<LDAPMod*> list_;
};

/// The values of an attribute; nothing when they can't be read.
using Values = std::optional<std::vector<WipedText>>;

int searchBase(const Session& session, const std::string& dn, const std::string& filter, std::string attribute,
               Results& results)
{
    char* attributes[] = {attribute.data(), nullptr};
    return cfg_search_s(session.handle(), dn.c_str(), LDAP_SCOPE_BASE, filter.c_str(), attributes, 0,
                        results.receiver());
}

// A password that can't be decoded makes the search fail. That must not keep anybody from setting it anew.
Values valuesOf(const Session& session, const std::string& dn, const std::string& attribute)
{
    Results results;
    if (searchBase(session, dn, attribute + "=*", attribute, results) != LDAP_SUCCESS) {
        return std::nullopt;
    }
    std::vector<WipedText> values;
    const cfg_message* found = results.first() == nullptr ? nullptr : results.first()->children;
    for (const cfg_message* value = found == nullptr ? nullptr : found->children; value != nullptr;
         value = value->next) {
        append(values.emplace_back(), value->text);
    }
    return values;
}

/// The DN of the entry above, "" at the top. The DN is one that the library has taken.
std::string parentOf(std::string_view dn)
{
    bool quoted = false;
    for (std::size_t at = 0; at < dn.size(); ++at) {
        if (dn[at] == '\\') {
            ++at;
        } else if (dn[at] == '"') {
            quoted = !quoted;
        } else if (!quoted && (dn[at] == ',' || dn[at] == ';')) {
            return std::string(dn.substr(std::min(dn.find_first_not_of(" \t", at + 1), dn.size())));
        }
    }
    return {};
}

/// The last byte of a file; nothing for one that is empty or can't be read.
std::optional<char> lastByteOf(const std::string& file)
{
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        return std::nullopt;
    }
    char last = '\0';
    const bool found = ::lseek(descriptor, -1, SEEK_END) >= 0 && ::read(descriptor, &last, 1) == 1;
    ::close(descriptor);
    return found ? std::optional<char>(last) : std::nullopt;
}

// A load drops the value of a last line without a line feed, and a write would make that permanent.
void requireWholeLastLine(const std::string& file)
{
    if (lastByteOf(file).value_or('\n') != '\n') {
        throw Failure(ExitCode::file, file + ": the last line has no line feed, and its value would be lost",
                      {"nothing was written; end the file with a line feed"});
    }
}

/// Each of the values that the other list does not have, behind a sign.
void appendMissing(std::string& out, const std::vector<WipedText>& values, const std::vector<WipedText>& other,
                   const char* sign)
{
    for (const WipedText& value : values) {
        if (std::find(other.begin(), other.end(), value) == other.end()) {
            out += sign;
            out += view(value).empty() ? "\"\"" : view(value);
        }
    }
}

/// What became of an attribute: "name: 1 -> 2", "name: + new - old", "name changed"; "" for nothing.
std::string differenceOf(const std::string& name, const Values& before, const Values& after)
{
    if (before && after && *before == *after) {
        return {};
    }
    const auto secret = [&](const Values& values) {
        return values && std::any_of(values->begin(), values->end(),
                                     [&](const WipedText& value) { return isSecret(name, view(value)); });
    };
    if (!before || !after || secret(before) || secret(after)) {
        return name + " changed";
    }
    std::string text;
    if (before->size() == 1 && after->size() == 1) {
        text = ' ' + std::string(view(before->front())) + " -> " + std::string(view(after->front()));
    } else {
        appendMissing(text, *after, *before, " + ");
        appendMissing(text, *before, *after, " - ");
    }
    return name + ':' + (text.empty() ? " other order" : text);
}

class Update
{
public:
    Update(ChangeSet& changes, const TargetOptions& target, const UpdateOptions& options)
        : changes_(changes), options_(options), backup_(options.backup.value_or("")),
          session_(target, Purpose::write, backup_)
    {
    }

    void run();

private:
    void carryOutAll();
    void requireReadable() const;
    void carryOut(ChangeRecord& record);
    std::string add(ChangeRecord& record);
    std::string modify(ChangeRecord& record);
    std::string remove(const ChangeRecord& record);
    void requireComplete() const;

    bool exists(const ChangeRecord& record, const std::string& dn) const;
    std::vector<std::string> attributesOf(const ChangeRecord& record) const;

    void check(const ChangeRecord& record, Place place, int code) const;
    void checkUpdate(const ChangeRecord& record, int code) const;
    Place placeOfFault(const ChangeRecord& record) const;
    Failure refusal(ExitCode exit, const ChangeRecord& record, const std::string& finding, std::string codes) const;

    std::string numbers(std::size_t first, std::size_t last) const;
    std::string stateWith(std::size_t carriedOut) const;
    std::string stateAfterWrite() const;

    ChangeSet& changes_;
    const UpdateOptions& options_;
    std::string backup_;
    Session session_;
    std::size_t index_ = 0; ///< of the record that is being carried out
    std::string outcomes_;  ///< a line for each record that is carried out
    bool changed_ = false;
    struct stat before_ = {};
};

// ---- Messages ----

std::string Update::numbers(std::size_t first, std::size_t last) const
{
    const bool one = first == last;
    return std::string(one ? changes_.wording.one : changes_.wording.several) + ' ' + std::to_string(first) +
           (one ? "" : " to " + std::to_string(last)) + (one ? " is " : " are ");
}

/// Which changes are in the file and which are not.
std::string Update::stateWith(std::size_t carriedOut) const
{
    const std::size_t count = changes_.records.size();
    if (count == 1 && carriedOut == 0) {
        return "nothing was written";
    }
    const std::string position =
        std::string(changes_.wording.one) + ' ' + std::to_string(index_ + 1) + " of " + std::to_string(count) + "; ";
    if (carriedOut == 0) {
        return position + "nothing was written";
    }
    std::string state = position + numbers(1, carriedOut) + changes_.wording.carriedOut;
    if (carriedOut < count) {
        state += ", " + numbers(carriedOut + 1, count) + "not";
    }
    return state;
}

// A write can fail behind the point of no return, so the disk is asked.
std::string Update::stateAfterWrite() const
{
    struct stat now = {};
    if (::stat(session_.file().c_str(), &now) != 0) {
        return stateWith(index_) + "; the file is now " + backup_ + ": move it back";
    }
    return stateWith(sameFile(before_, now) ? index_ : index_ + 1);
}

/// Where the value stands that the library complains about, else the attribute, else the DN.
Place Update::placeOfFault(const ChangeRecord& record) const
{
    const char* attribute = cfg_get_attribute(session_.handle());
    const char* value = cfg_get_value(session_.handle());
    Place place = record.place;
    for (const ChangeOperation& operation : record.operations) {
        if (attribute == nullptr || !sameName(operation.attribute, attribute)) {
            continue;
        }
        place = operation.place;
        for (const ChangeValue& candidate : operation.values) {
            if (value != nullptr && std::string_view(candidate.text.data()) == value) {
                return candidate.place;
            }
        }
    }
    return place;
}

/// Throws for a code that a look at an entry gave.
void Update::check(const ChangeRecord& record, Place place, int code) const
{
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(session_.handle(), code,
                             {Stage::update, record.dn, placeName(changes_.source, place), stateWith(index_)});
    }
}

/// Throws for a code that a change gave.
void Update::checkUpdate(const ChangeRecord& record, int code) const
{
    if (code != LDAP_SUCCESS) {
        const std::string place = placeName(changes_.source, placeOfFault(record));
        throw libraryFailure(session_.handle(), code, {Stage::update, record.dn, place, stateAfterWrite()});
    }
}

Failure Update::refusal(ExitCode exit, const ChangeRecord& record, const std::string& finding, std::string codes) const
{
    std::vector<std::string> details;
    if (!codes.empty()) {
        details.push_back(std::move(codes));
    }
    details.push_back(stateWith(index_));
    return {exit, placeName(changes_.source, record.place) + ": " + record.dn + ": " + finding, std::move(details)};
}

// ---- Looking ----

// The library writes a text that the locale can't read, and the next load ends there. The session has set the locale.
void Update::requireReadable() const
{
    const auto require = [&](const char* text, Place place) {
        if (std::mbstowcs(nullptr, text, 0) == static_cast<std::size_t>(-1)) {
            throw refusedChange(changes_.source, place, "this is not text in the character set of the locale");
        }
    };
    for (const ChangeRecord& record : changes_.records) {
        // A DN from the command line has no place, and an entry that it does not name can't be harmed.
        if (record.place.line > 0) {
            require(record.dn.c_str(), record.place);
        }
        for (const ChangeOperation& operation : record.operations) {
            for (const ChangeValue& value : operation.values) {
                require(value.text.data(), value.place);
            }
        }
    }
}

bool Update::exists(const ChangeRecord& record, const std::string& dn) const
{
    Results results;
    const int code = searchBase(session_, dn, "", "1.1", results);
    if (code != LDAP_NO_SUCH_OBJECT) {
        check(record, record.place, code);
    }
    return code == LDAP_SUCCESS;
}

/// Each attribute that a record speaks of, once.
std::vector<std::string> Update::attributesOf(const ChangeRecord& record) const
{
    std::vector<std::string> names;
    for (const ChangeOperation& operation : record.operations) {
        const bool known = std::any_of(names.begin(), names.end(),
                                       [&](const std::string& name) { return sameName(name, operation.attribute); });
        if (!known) {
            names.push_back(operation.attribute);
        }
    }
    return names;
}

// ---- Changing ----

// The library would merge the entry into one that exists, and hang one without a parent under a farther ancestor.
std::string Update::add(ChangeRecord& record)
{
    if (exists(record, record.dn)) {
        throw refusal(ExitCode::entry, record, "this entry exists", codesOf(LDAP_ALREADY_EXISTS, 0));
    }
    const std::string parent = parentOf(record.dn);
    if (!options_.orphan && !parent.empty() && !exists(record, parent)) {
        throw refusal(ExitCode::refused, record,
                      "the entry above it, \"" + parent + "\", is missing; --orphan permits that", "");
    }
    Modifications modifications(record);
    checkUpdate(record, cfg_add_s(session_.handle(), record.dn.c_str(), modifications.list()));
    return "added";
}

std::string Update::modify(ChangeRecord& record)
{
    const std::vector<std::string> names = attributesOf(record);
    std::vector<Values> before;
    before.reserve(names.size());
    for (const std::string& name : names) {
        before.push_back(valuesOf(session_, record.dn, name));
    }
    if (names.empty() && !exists(record, record.dn)) {
        throw refusal(ExitCode::entry, record, "there is no such entry", codesOf(LDAP_NO_SUCH_OBJECT, 0));
    }
    Modifications modifications(record);
    checkUpdate(record, cfg_modify_s(session_.handle(), record.dn.c_str(), modifications.list()));
    std::string text;
    for (std::size_t index = 0; index < names.size(); ++index) {
        const std::string difference =
            differenceOf(names[index], before[index], valuesOf(session_, record.dn, names[index]));
        text += (text.empty() || difference.empty() ? "" : "; ") + difference;
    }
    return text.empty() ? unchanged : text;
}

std::string Update::remove(const ChangeRecord& record)
{
    checkUpdate(record, cfg_delete_s(session_.handle(), record.dn.c_str()));
    return options_.withSubtree ? "deleted, with what was below it" : "deleted";
}

void Update::carryOut(ChangeRecord& record)
{
    ::stat(session_.file().c_str(), &before_);
    std::string outcome;
    switch (record.kind) {
    case ChangeRecord::Kind::add:
        outcome = add(record);
        break;
    case ChangeRecord::Kind::modify:
        outcome = modify(record);
        break;
    case ChangeRecord::Kind::remove:
        outcome = remove(record);
        break;
    }
    outcomes_ += escaped(record.dn + ": " + outcome) + '\n';
    changed_ = changed_ || outcome != unchanged;
}

// The library does not report a full disk. A file that was cut short lacks entries, or ends within a line.
void Update::requireComplete() const
{
    const auto treeOf = [](void* handle) {
        const char* tree = cfg_tree_view(handle, 0);
        return std::string(tree == nullptr ? "" : tree);
    };
    const std::unique_ptr<void, int (*)(void*)> again(cfg_init(), cfg_unbind);
    const bool loads = cfg_set_option(again.get(), CFG_OPT_CONFIG_FILE, session_.file().c_str()) == LDAP_SUCCESS &&
                       cfg_bind_s(again.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE) == LDAP_SUCCESS;
    if (lastByteOf(session_.file()) != '\n' || !loads || treeOf(again.get()) != treeOf(session_.handle())) {
        throw Failure(ExitCode::writeFailed, session_.file() + ": the file does not hold what was written to it",
                      {"is the disk full? " + (backup_.empty() ? "there is no backup; keep what is left of it"
                                                               : "the file as it was before is " + backup_)});
    }
}

void Update::carryOutAll()
{
    if (options_.withSubtree) {
        cfg_set_option(session_.handle(), CFG_OPT_DELETE_NON_LEAVES, reinterpret_cast<const void*>(1L));
    }
    for (; index_ < changes_.records.size(); ++index_) {
        ChangeRecord& record = changes_.records[index_];
        carryOut(record);
        // The next write would replace the backup by what was just written.
        if (index_ == 0 && !backup_.empty() && changes_.records.size() > 1) {
            if (const int code = session_.endBackup(); code != LDAP_SUCCESS) {
                throw libraryFailure(session_.handle(), code, {Stage::update, record.dn, "", stateWith(index_ + 1)});
            }
        }
    }
    requireComplete();
}

// What is printed waits for the end: a reader that goes away must not end the command between two changes.
void Update::run()
{
    if (changes_.records.empty()) {
        writeOut(STDOUT_FILENO, std::string(unchanged) + '\n');
        return;
    }
    requireReadable();
    try {
        carryOutAll();
    } catch (const Failure&) {
        try {
            writeOut(STDOUT_FILENO, outcomes_);
        } catch (const Failure&) {
            // The message of the failure says which changes are in the file.
        }
        throw;
    }
    if (!backup_.empty()) {
        outcomes_ += "written; backup " + escaped(backup_) + '\n';
    } else if (changed_) {
        outcomes_ += "written\n";
    }
    try {
        writeOut(STDOUT_FILENO, outcomes_);
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), failure.what(), {"all changes are in the file"});
    }
}

/// True for two names of one file, which a backup would destroy.
bool nameTheSameFile(const std::string& left, const std::string& right)
{
    struct stat leftStatus = {};
    struct stat rightStatus = {};
    return left == right || (::stat(left.c_str(), &leftStatus) == 0 && ::stat(right.c_str(), &rightStatus) == 0 &&
                             leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino);
}

} // namespace

void addUpdateOptions(CLI::App& command, UpdateOptions& options)
{
    command.add_option("--backup", options.backup, "Keep the old file under this name")->type_name("FILE");
}

ExitCode carryOut(ChangeSet changes, const TargetOptions& target, const UpdateOptions& options)
{
    if (options.backup && options.backup->empty()) {
        throw Failure(ExitCode::usage, "--backup: a file name has 1 to 4096 bytes", {"nothing was written"});
    }
    if (options.backup && nameTheSameFile(*options.backup, fileOf(target))) {
        throw Failure(ExitCode::usage, "--backup: " + *options.backup + " is the configuration file itself",
                      {"nothing was written"});
    }
    struct stat backup = {};
    if (options.backup && ::stat(options.backup->c_str(), &backup) == 0 && S_ISDIR(backup.st_mode)) {
        throw Failure(ExitCode::usage, "--backup: " + *options.backup + " is a folder", {"nothing was written"});
    }
    requireWholeLastLine(fileOf(target));
    Update(changes, target, options).run();
    return ExitCode::done;
}

} // namespace veltor::tool
