// Each record is carried out in memory, operation by operation. Around each this tool looks at the entry: what the
// library would merge or drop without a word is refused or told.
#include "update.h"

#include "credentials.h"
#include "dn_text.h"
#include "elsewhere.h"
#include "entry_rules.h"
#include "escape.h"
#include "masked_text.h"
#include "names.h"
#include "nearest.h"
#include "results.h"
#include "secrets.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

constexpr const char* unchanged = "unchanged";

/// Operations as the library takes them. Borrows their texts.
class Modifications
{
public:
    explicit Modifications(std::span<ChangeOperation> operations)
    {
        mods_.reserve(operations.size());
        for (ChangeOperation& operation : operations) {
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

using Values = std::vector<WipedText>;

/// An attribute with its values as they are stored.
struct StoredAttribute
{
    std::string name;
    Values values;
};

/// The values of an attribute, none for one that is not there.
const Values& valuesOf(const std::vector<StoredAttribute>& entry, const std::string& name)
{
    static const Values none;
    const auto found = std::find_if(entry.begin(), entry.end(),
                                    [&](const StoredAttribute& attribute) { return sameName(attribute.name, name); });
    return found == entry.end() ? none : found->values;
}

/// True for what an entry keeps unless it is named: what makes it the entry that it is, and secrets, which are not
/// printed with the others.
bool outlivesPruning(std::string_view dn, const StoredAttribute& attribute)
{
    const std::vector<std::string_view> naming = namingAttributesOf(dn);
    const auto isSameName = [&](std::string_view name) { return sameName(name, attribute.name); };
    return isSameName("objectclass") || std::any_of(naming.begin(), naming.end(), isSameName) ||
           isSecret(attribute.name, "") ||
           std::any_of(attribute.values.begin(), attribute.values.end(),
                       [&](const WipedText& value) { return isSecret(attribute.name, view(value)); });
}

StoredValues viewsOf(const Values& values)
{
    StoredValues views;
    std::transform(values.begin(), values.end(), std::back_inserter(views),
                   [](const WipedText& value) { return view(value); });
    return views;
}

/// The lines of a comment block, masked.
std::vector<std::string> commentLines(const std::string& comment)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin <= comment.size();) {
        const std::size_t end = std::min(comment.find('\n', begin), comment.size());
        lines.push_back(maskedText("# " + comment.substr(begin, end - begin)));
        begin = end + 1;
    }
    return lines;
}

/// What is refused.
struct Fault
{
    const ChangeRecord& record;
    Place place;
    std::string attribute = {}; ///< "" for the entry as a whole
    std::string_view value = {};
};

class Update
{
public:
    Update(ChangeSet& changes, const TargetOptions& target, const UpdateOptions& options, Output& output)
        : changes_(changes), options_(options), engine_(target, options.write, output)
    {
    }

    ExitCode run();

private:
    void requireReadable() const;
    void requireKnown() const;
    void requireSingle(const ChangeRecord& record, const std::vector<StoredAttribute>& before,
                       const std::vector<StoredAttribute>& after) const;
    void requireName(const ChangeRecord& record, const std::vector<StoredAttribute>& before,
                     const std::vector<StoredAttribute>& after) const;
    static void keepHidden(ChangeOperation& operation, const Values& present);
    void requireNoMask(const ChangeRecord& record, const std::vector<StoredAttribute>& before) const;
    void requireEncoded(const ChangeRecord& record) const;
    void tellElsewhere(const ChangeRecord& record, const std::vector<StoredAttribute>& before) const;
    void note(const ChangeRecord& record, std::size_t changes, const std::string& log);
    void carryOut(ChangeRecord& record);
    std::string add(ChangeRecord& record);
    std::string modify(ChangeRecord& record);
    std::string remove(const ChangeRecord& record);
    std::string ensure(ChangeRecord& record);
    bool hasPasswords(const ChangeRecord& record, const ChangeOperation& operation) const;
    std::string commentOf(const ChangeRecord& record, const std::string& attribute) const;
    void addComments(const ChangeRecord& record, const std::vector<StoredAttribute>& before);
    void carryOut(const ChangeRecord& record, ChangeOperation& operation);

    bool exists(const ChangeRecord& record, const std::string& dn) const;
    std::vector<StoredAttribute> entryOf(const ChangeRecord& record) const;
    std::optional<std::size_t> countOf(const ChangeRecord& record, const std::string& name) const;
    std::vector<std::string> attributesOf(const ChangeRecord& record) const;

    void check(const ChangeRecord& record, Place place, int code) const;
    Place placeOfFault(const ChangeRecord& record) const;
    Failure refusal(ExitCode exit, const Fault& fault, const std::string& finding, int ldap = 0,
                    const std::string& advice = {}) const;
    std::string nothingWritten() const;

    ChangeSet& changes_;
    const UpdateOptions& options_;
    ChangeEngine engine_;
    std::size_t index_ = 0; ///< of the record that is being carried out
    ChangeReport report_;
    // Of the record that is being carried out.
    std::vector<std::string> goneComments_;
    std::vector<AttributeChange> attributes_;
    std::vector<Outcome> below_; ///< of the entries that went with theirs
};

// ---- Messages ----

/// "nothing was written", with what that means for the records before the one that failed.
std::string Update::nothingWritten() const
{
    std::string nothing = "nothing was written";
    const std::size_t count = changes_.records.size();
    if (count == 1) {
        return nothing;
    }
    std::string text = std::string(changes_.wording.one) + ' ' + std::to_string(index_ + 1) + " of " +
                       std::to_string(count) + "; " + nothing;
    if (index_ > 0) {
        text += std::string(", ") + (index_ == 1 ? changes_.wording.one : changes_.wording.several) + " 1 " +
                (index_ == 1 ? "" : "to " + std::to_string(index_) + ' ') + "neither";
    }
    return text;
}

/// Where the value stands that the library complains about, else the attribute, else the DN.
Place Update::placeOfFault(const ChangeRecord& record) const
{
    const char* attribute = cfg_get_attribute(engine_.handle());
    const char* value = cfg_get_value(engine_.handle());
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

/// Throws for a code of the library.
void Update::check(const ChangeRecord& record, Place place, int code) const
{
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(engine_.handle(), code,
                             {Stage::update, record.dn, placeIn(changes_.source.name, place), nothingWritten()});
    }
}

/// @param ldap  what the library would call it, 0 for nothing
Failure Update::refusal(ExitCode exit, const Fault& fault, const std::string& finding, int ldap,
                        const std::string& advice) const
{
    std::vector<std::string> details;
    if (ldap != 0) {
        details.push_back(codesOf(ldap, 0));
    }
    details.push_back(nothingWritten() + advice);
    FailureFacts facts = factsAbout(fault.record.dn, fault.attribute, fault.value);
    facts.ldap = ldap;
    facts.code = ldap;
    facts.file = engine_.session().file();
    facts.source = placeIn(changes_.source.name, fault.place);
    std::string headline = facts.source.text();
    headline.append(headline.empty() ? "" : ": ").append(shownDn(fault.record.dn)).append(": ").append(fault.attribute);
    headline.append(fault.attribute.empty() ? "" : ": ").append(finding);
    return {exit, headline, std::move(details), std::move(facts)};
}

// ---- Looking ----

// The library writes a text that the locale can't read, and the next load ends there. The session has set the locale.
void Update::requireReadable() const
{
    const auto require = [&](const char* text, Place place, const std::string& dn, const std::string& attribute) {
        if (std::mbstowcs(nullptr, text, 0) == static_cast<std::size_t>(-1)) {
            throw refusedChange(changes_.source, place, "this is not text in the character set of the locale",
                                factsAbout(dn, attribute));
        }
    };
    for (const ChangeRecord& record : changes_.records) {
        // A DN from the command line has no place, and an entry that it does not name can't be harmed.
        if (record.place.line > 0) {
            require(record.dn.c_str(), record.place, record.dn, "");
        }
        for (const ChangeOperation& operation : record.operations) {
            for (const ChangeValue& value : operation.values) {
                require(value.text.data(), value.place, record.dn, operation.attribute);
            }
        }
    }
}

// What is known can be taken away under any name; a name that is none would be stored as free text.
void Update::requireKnown() const
{
    if (options_.write.allowUnknown) {
        return;
    }
    for (const ChangeRecord& record : changes_.records) {
        for (const ChangeOperation& operation : record.operations) {
            if (operation.values.empty() || operation.kind == ChangeOperation::Kind::remove ||
                attributeType(operation.attribute)) {
                continue;
            }
            const NameResult known = lookUpName(operation.attribute);
            const std::vector<std::string> nearest =
                known.name.empty() ? known.nearest : std::vector<std::string>{known.name};
            const std::string finding = "unknown setting \"" + operation.attribute + '"' + didYouMean(nearest);
            FailureFacts facts = factsAbout(record.dn, operation.attribute);
            facts.file = engine_.session().file();
            facts.source = placeIn(changes_.source.name, operation.place);
            std::string message = facts.source.text();
            message.append(message.empty() ? "" : ": ").append(shownDn(record.dn)).append(": ").append(finding);
            throw Failure(ExitCode::refused, message, {"nothing was written; --allow-unknown stores it as free text"},
                          std::move(facts));
        }
    }
}

void Update::requireSingle(const ChangeRecord& record, const std::vector<StoredAttribute>& before,
                           const std::vector<StoredAttribute>& after) const
{
    for (const ChangeOperation& operation : record.operations) {
        const std::size_t count = valuesOf(after, operation.attribute).size();
        if (isTooMany(operation.attribute, valuesOf(before, operation.attribute).size(), count)) {
            throw refusal(ExitCode::refused, {record, operation.place, operation.attribute},
                          "only one value is allowed, and there would be " + std::to_string(count), 0,
                          explainAdvice(operation.attribute));
        }
    }
}

// Records may carry a password as it is stored. The library takes every text of that form, and the next search of one
// that it can't decode fails.
void Update::requireEncoded(const ChangeRecord& record) const
{
    for (const ChangeOperation& operation : record.operations) {
        const auto encoded = std::find_if(operation.values.begin(), operation.values.end(),
                                          [](const ChangeValue& value) { return looksEncoded(value.text); });
        if (encoded == operation.values.end() || !isPassword(operation.attribute) ||
            operation.kind == ChangeOperation::Kind::remove) {
            continue;
        }
        if (!canBeDecoded(engine_.handle(), record.dn, operation.attribute)) {
            throw refusal(ExitCode::refused, {record, encoded->place, operation.attribute},
                          "a text of the form >...< is an encoded password, and this one can't be decoded");
        }
    }
}

void Update::tellElsewhere(const ChangeRecord& record, const std::vector<StoredAttribute>& before) const
{
    for (const std::string& name : attributesOf(record)) {
        const std::string other = valuesOf(before, name).empty() ? whereElse(engine_.handle(), name) : "";
        if (!other.empty()) {
            std::string finding(shownDn(record.dn));
            warn(finding.append(" has no ").append(name).append("; ").append(other));
        }
    }
}

void Update::note(const ChangeRecord& record, std::size_t changes, const std::string& log)
{
    if (changes == 0) {
        return;
    }
    report_.changes += changes;
    if (std::find(report_.dns.begin(), report_.dns.end(), record.dn) == report_.dns.end()) {
        report_.dns.push_back(record.dn);
    }
    report_.log.append(report_.log.empty() ? "" : "; ").append(shownDn(record.dn)).append(": ").append(log);
}

bool Update::exists(const ChangeRecord& record, const std::string& dn) const
{
    Results results;
    const int code = cfg_read_s(engine_.handle(), dn.c_str(), LDAP_SCOPE_BASE, results.receiver());
    if (code != LDAP_NO_SUCH_OBJECT) {
        check(record, record.place, code);
    }
    return code == LDAP_SUCCESS;
}

// Values as they are stored: a password that can't be decoded must not keep anybody from setting it anew.
std::vector<StoredAttribute> Update::entryOf(const ChangeRecord& record) const
{
    Results results;
    check(record, record.place, cfg_read_s(engine_.handle(), record.dn.c_str(), LDAP_SCOPE_BASE, results.receiver()));
    std::vector<StoredAttribute> entry;
    const cfg_message* attribute = results.first() == nullptr ? nullptr : results.first()->children;
    for (; attribute != nullptr; attribute = attribute->next) {
        StoredAttribute& stored = entry.emplace_back(StoredAttribute{attribute->text, {}});
        for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
            append(stored.values.emplace_back(), value->text);
        }
    }
    return entry;
}

/// How many values the attribute has; nothing where it is not there.
std::optional<std::size_t> Update::countOf(const ChangeRecord& record, const std::string& name) const
{
    Results results;
    check(record, record.place, cfg_read_s(engine_.handle(), record.dn.c_str(), LDAP_SCOPE_BASE, results.receiver()));
    const cfg_message* const attribute = results.first() == nullptr ? nullptr : attributeOf(*results.first(), name);
    if (attribute == nullptr) {
        return std::nullopt;
    }
    std::size_t count = 0;
    for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
        ++count;
    }
    return count;
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
        throw refusal(ExitCode::entry, {record, record.place}, "this entry exists", LDAP_ALREADY_EXISTS,
                      "; veltor apply and veltor set change it");
    }
    const std::string parent(parentOf(record.dn));
    if (!options_.orphan && !parent.empty() && !exists(record, parent)) {
        throw refusal(ExitCode::refused, {record, record.place},
                      "the entry above it, \"" + std::string(shownDn(parent)) +
                          "\", is missing; --orphan permits that");
    }
    Modifications modifications(record.operations);
    const int code = cfg_add_s(engine_.handle(), record.dn.c_str(), modifications.list());
    check(record, code == LDAP_SUCCESS ? record.place : placeOfFault(record), code);
    requireEncoded(record);
    const std::vector<StoredAttribute> after = entryOf(record);
    requireSingle(record, {}, after);
    for (const StoredAttribute& attribute : after) {
        attributes_.push_back(changeOf(attribute.name, {}, viewsOf(attribute.values)));
    }
    note(record, 1, "added");
    return "added";
}

/// The comment block above an attribute, "" for none.
std::string Update::commentOf(const ChangeRecord& record, const std::string& attribute) const
{
    char* text = nullptr;
    if (cfg_get_comment_s(engine_.handle(), record.dn.c_str(), attribute.c_str(), &text) != LDAP_SUCCESS) {
        return {};
    }
    std::string comment = text;
    cfg_memfree(text);
    return comment;
}

void Update::addComments(const ChangeRecord& record, const std::vector<StoredAttribute>& before)
{
    const std::vector<StoredAttribute> after = entryOf(record);
    for (const ChangeOperation& operation : record.operations) {
        const Values& values = valuesOf(after, operation.attribute);
        if (operation.comment.empty() || values.empty() || values == valuesOf(before, operation.attribute)) {
            continue;
        }
        std::string comment = commentOf(record, operation.attribute);
        // Several operations may be about one attribute.
        if (comment == operation.comment || comment.ends_with('\n' + operation.comment)) {
            continue;
        }
        comment += (comment.empty() ? "" : "\n") + operation.comment;
        check(record, record.place,
              cfg_set_comment_s(engine_.handle(), record.dn.c_str(), operation.attribute.c_str(), comment.c_str()));
    }
}

/// True when the passwords are what they shall become. Their stored form differs each time it is made.
bool Update::hasPasswords(const ChangeRecord& record, const ChangeOperation& operation) const
{
    std::string name = operation.attribute;
    char* names[] = {name.data(), nullptr};
    Results results;
    if (!isPassword(name) ||
        cfg_search_s(engine_.handle(), record.dn.c_str(), LDAP_SCOPE_BASE, (name + "=*").c_str(), names, 0,
                     results.receiver()) != LDAP_SUCCESS ||
        results.first() == nullptr || results.first()->children == nullptr) {
        return false;
    }
    const cfg_message* value = results.first()->children->children;
    for (const ChangeValue& wanted : operation.values) {
        if (value == nullptr || std::string_view(value->text) != wanted.text.data()) {
            return false;
        }
        value = value->next;
    }
    return value == nullptr;
}

// One operation at a time: the library does not tell which values were there, or not, before.
void Update::carryOut(const ChangeRecord& record, ChangeOperation& operation)
{
    const std::optional<std::size_t> before = countOf(record, operation.attribute);
    const bool isThere = before.has_value();
    const std::size_t count = before.value_or(0);
    const bool takesAway = operation.kind == ChangeOperation::Kind::remove ||
                           (operation.kind == ChangeOperation::Kind::replace && operation.values.empty());
    if (takesAway && !isThere && options_.knownNamesOnly && !options_.write.allowUnknown &&
        !attributeType(operation.attribute)) {
        throw refusal(ExitCode::refused, {record, operation.place},
                      "unknown setting \"" + operation.attribute + '"' +
                          didYouMean(lookUpName(operation.attribute).nearest),
                      0, "; --allow-unknown lets it be missing");
    }
    // A replacement by nothing never minds, as RFC 4511 has it.
    if (takesAway && !isThere && (options_.lenient || operation.kind == ChangeOperation::Kind::replace)) {
        return;
    }
    if (operation.kind == ChangeOperation::Kind::replace && hasPasswords(record, operation)) {
        return;
    }
    const std::string comment = takesAway && operation.values.empty() ? commentOf(record, operation.attribute) : "";
    Modifications modifications(std::span(&operation, 1));
    const int code = cfg_modify_s(engine_.handle(), record.dn.c_str(), modifications.list());
    check(record, code == LDAP_SUCCESS ? record.place : placeOfFault(record), code);
    if (!comment.empty()) {
        const std::vector<std::string> lines = commentLines(comment);
        goneComments_.insert(goneComments_.end(), lines.begin(), lines.end());
    }
    if (options_.lenient || operation.values.empty() || operation.kind == ChangeOperation::Kind::replace) {
        return;
    }
    const std::size_t countAfter = countOf(record, operation.attribute).value_or(0);
    const bool adds = operation.kind == ChangeOperation::Kind::add;
    if ((adds ? countAfter - count : count - countAfter) != operation.values.size()) {
        Fault fault{record, operation.place, operation.attribute};
        std::string finding = adds ? "one of these values is there already" : "one of these values is not there";
        if (operation.values.size() == 1) {
            fault.place = operation.values.front().place;
            fault.value = operation.values.front().text.data();
            finding = adds ? "this value is there already" : "there is no such value";
        }
        throw refusal(ExitCode::entry, fault, finding + "; --lenient permits that",
                      adds ? LDAP_TYPE_OR_VALUE_EXISTS : LDAP_NO_SUCH_ATTRIBUTE);
    }
}

// Mostly it is a DN that was typed where an assignment belongs.
void Update::requireName(const ChangeRecord& record, const std::vector<StoredAttribute>& before,
                         const std::vector<StoredAttribute>& after) const
{
    const auto valuesIn = [](const std::vector<StoredAttribute>& entry) {
        return [&entry](std::string_view name) { return viewsOf(valuesOf(entry, std::string(name))); };
    };
    const std::string_view name = losesItsName(record.dn, valuesIn(before), valuesIn(after));
    if (!name.empty()) {
        throw refusal(ExitCode::refused, {record, record.place, std::string(name)},
                      "the entry is named by this value, which stays", LDAP_NOT_ALLOWED_ON_RDN,
                      "; -b names another entry");
    }
}

// What is printed of an attribute some of whose values are hidden has the others alone. Who gives a hidden one has seen
// them all.
void Update::keepHidden(ChangeOperation& operation, const Values& present)
{
    Values hidden;
    Values shown;
    for (const WipedText& value : present) {
        (isSecret(operation.attribute, view(value)) ? hidden : shown).push_back(value);
    }
    const bool isWhole = std::any_of(operation.values.begin(), operation.values.end(), [&](const ChangeValue& given) {
        return isSecret(operation.attribute, given.text.data());
    });
    if (hidden.empty() || shown.empty() || isWhole) {
        return;
    }
    const auto asGiven = [](const WipedText& value) {
        WipedText text = value;
        text.push_back('\0');
        return text;
    };
    const bool same = std::equal(shown.begin(), shown.end(), operation.values.begin(), operation.values.end(),
                                 [](const WipedText& value, const ChangeValue& given) {
                                     return view(value) == std::string_view(given.text.data());
                                 });
    const Place place = operation.place;
    if (same) {
        operation.values.clear();
    }
    for (const WipedText& value : same ? present : hidden) {
        operation.values.push_back({asGiven(value), place});
    }
}

// Of an attribute that is no secret, a value may be hidden all the same, and its mask come back as a value.
void Update::requireNoMask(const ChangeRecord& record, const std::vector<StoredAttribute>& before) const
{
    for (const ChangeOperation& operation : record.operations) {
        const Values& present = valuesOf(before, operation.attribute);
        const auto mask = std::find_if(operation.values.begin(), operation.values.end(),
                                       [](const ChangeValue& value) { return isMask(value.text.data()); });
        if (mask != operation.values.end() && std::any_of(present.begin(), present.end(), [&](const WipedText& value) {
                return isSecret(operation.attribute, view(value));
            })) {
            throw refusal(ExitCode::refused, {record, mask->place, operation.attribute},
                          "*** stands for a hidden value and is none");
        }
    }
}

std::string Update::modify(ChangeRecord& record)
{
    const std::vector<StoredAttribute> before = entryOf(record);
    requireNoMask(record, before);
    if (options_.tellElsewhere) {
        tellElsewhere(record, before);
    }
    for (ChangeOperation& operation : record.operations) {
        carryOut(record, operation);
    }
    addComments(record, before);
    const std::vector<StoredAttribute> after = entryOf(record);
    requireEncoded(record);
    requireSingle(record, before, after);
    requireName(record, before, after);
    std::string text;
    std::string log;
    std::size_t changes = 0;
    for (const std::string& name : attributesOf(record)) {
        const StoredValues oldValues = viewsOf(valuesOf(before, name));
        const StoredValues newValues = viewsOf(valuesOf(after, name));
        const std::string difference = differenceOf(name, oldValues, newValues);
        if (!difference.empty()) {
            text += (text.empty() ? "" : "; ") + difference;
            log += (log.empty() ? "" : ", ") + logged(name, newValues);
            ++changes;
            report_.oldPassword = report_.oldPassword || (isPassword(name) && !oldValues.empty());
            attributes_.push_back(changeOf(name, oldValues, newValues));
        }
    }
    note(record, changes, log);
    return text.empty() ? unchanged : text;
}

std::string Update::remove(const ChangeRecord& record)
{
    Results gone;
    // A DN that is none, or of no entry, is for the deletion to refuse.
    cfg_read_s(engine_.handle(), record.dn.c_str(), options_.withSubtree ? LDAP_SCOPE_SUBTREE : LDAP_SCOPE_BASE,
               gone.receiver());
    check(record, record.place, cfg_delete_s(engine_.handle(), record.dn.c_str()));
    for (const cfg_message* entry = gone.first(); entry != nullptr; entry = entry->next) {
        Outcome outcome = outcomeOf({entry, nullptr, {}});
        if (entry == gone.first()) {
            attributes_ = std::move(outcome.attributes);
        } else {
            outcome.isPrinted = false;
            below_.push_back(std::move(outcome));
        }
    }
    note(record, 1, "deleted");
    return options_.withSubtree ? "deleted, with what was below it" : "deleted";
}

// Named attributes get just these values; with --prune the others go.
std::string Update::ensure(ChangeRecord& record)
{
    if (!exists(record, record.dn)) {
        return add(record);
    }
    const std::vector<StoredAttribute> entry = entryOf(record);
    for (ChangeOperation& operation : record.operations) {
        operation.kind = ChangeOperation::Kind::replace;
        keepHidden(operation, valuesOf(entry, operation.attribute));
    }
    if (options_.prune) {
        const std::vector<std::string> named = attributesOf(record);
        for (const StoredAttribute& attribute : entryOf(record)) {
            const bool stays = std::any_of(named.begin(), named.end(),
                                           [&](const std::string& name) { return sameName(name, attribute.name); });
            if (!stays && !outlivesPruning(record.dn, attribute)) {
                record.operations.push_back({ChangeOperation::Kind::remove, attribute.name, record.place, {}});
            }
        }
    }
    return modify(record);
}

void Update::carryOut(ChangeRecord& record)
{
    goneComments_.clear();
    attributes_.clear();
    below_.clear();
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
    case ChangeRecord::Kind::ensure:
        outcome = ensure(record);
        break;
    }
    report_.outcomes.push_back({record.dn, std::move(outcome), goneComments_, std::move(attributes_)});
    std::move(below_.begin(), below_.end(), std::back_inserter(report_.outcomes));
}

ExitCode Update::run()
{
    requireReadable();
    requireKnown();
    if (options_.withSubtree) {
        cfg_set_option(engine_.handle(), CFG_OPT_DELETE_NON_LEAVES, reinterpret_cast<const void*>(1L));
    }
    for (; index_ < changes_.records.size(); ++index_) {
        carryOut(changes_.records[index_]);
    }
    report_.source = changes_.source.name;
    return engine_.finish(report_);
}

void requireInputForBoth(const std::string& file, const TargetOptions& target)
{
    if (file == "-" && target.passwordFile == "-") {
        throw Failure(ExitCode::usage, "standard input can't give both the changes and the password",
                      {"nothing was read; name a file with -f or with -y"});
    }
}

std::string sourceName(const std::string& file)
{
    return file == "-" ? "standard input" : file;
}

} // namespace

ChangeSet changesFrom(const std::string& file, RecordForm form, const TargetOptions& target, const std::string& command)
{
    requireInputForBoth(file, target);
    const ChangeSource source{sourceName(file), command};
    return {source, readChanges(source, readChangeFile(file), form)};
}

ChangeSet deletionsFrom(const std::string& file, const TargetOptions& target)
{
    requireInputForBoth(file, target);
    ChangeSet changes{{sourceName(file), "delete"}, {}, deletionWording};
    const WipedText text = readChangeFile(file);
    std::string_view rest = view(text);
    for (std::size_t line = 1; !rest.empty(); ++line) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view dn = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        dn.remove_suffix(dn.ends_with('\r') ? 1 : 0);
        if (dn.find('\0') != std::string_view::npos) {
            const SourcePlace place = placeIn(changes.source.name, {line, 1});
            throw Failure(ExitCode::refused, place.text() + ": a DN can't hold a zero byte",
                          {"nothing was written; correct this line"}, {.source = place});
        }
        if (!dn.empty()) {
            changes.records.push_back({ChangeRecord::Kind::remove, std::string(dn), {line, 1}, {}});
        }
    }
    return changes;
}

ExitCode carryOut(ChangeSet changes, const TargetOptions& target, const UpdateOptions& options, Output& output)
{
    return Update(changes, target, options, output).run();
}

} // namespace veltor::tool
