// The store against a model of it that is too small to be wrong: a sorted map from DNs to attributes. Random
// sequences of updates, searches, writes, reloads and edits by another program must leave both alike.
#include "support/mods.h"
#include "support/store_test.h"

#include "LDIF_Exception.h"
#include "LDIF_File.h"
#include "handle.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <rapidcheck.h>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

using namespace veltor::test;

namespace {

// ---- The model ----

/// The RDNs of a DN in lower case, the one nearest the root first.
using Key = std::vector<std::string>;
/// Values as they are stored, in order, by attribute name in lower case.
using Attributes = std::map<std::string, std::vector<std::string>>;
using Entries = std::map<Key, Attributes>;

/// What an operation fails with, or 0.
using Codes = std::pair<int, int>;
constexpr Codes fine = {0, 0};

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

/// A value as its type stores it, and what it is compared by.
struct Stored
{
    std::string text;
    std::string identity;
};

/// The stored form of a value, or the codes that its type refuses it with.
Codes store(const std::string& type, const std::string& text, Stored& stored)
{
    const std::string name = lower(type);
    if (name == "zor-slapdport") {
        std::string digits = text;
        digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
            return {21, 1016};
        }
        const int number = std::stoi(digits);
        if (number < 1 || number > 65535) {
            return {21, 1015};
        }
        stored = {std::to_string(number), std::to_string(number)};
        return fine;
    }
    const bool ignoresCase = name == "cn" || name == "objectclass";
    stored = {text, ignoresCase ? lower(text) : text};
    return fine;
}

std::vector<std::string>::iterator findValue(const std::string& type, std::vector<std::string>& values,
                                             const std::string& identity)
{
    return std::find_if(values.begin(), values.end(), [&](const std::string& text) {
        Stored stored;
        store(type, text, stored);
        return stored.identity == identity;
    });
}

/// Adds values to a list unless they are there. Stops at one that is refused.
Codes addValues(const std::string& type, const std::vector<std::string>& given, std::vector<std::string>& values)
{
    for (const auto& text : given) {
        Stored stored;
        if (const Codes codes = store(type, text, stored); codes != fine) {
            return codes;
        }
        if (findValue(type, values, stored.identity) == values.end()) {
            values.push_back(stored.text);
        }
    }
    return fine;
}

bool isAbove(const Key& ancestor, const Key& key)
{
    return ancestor.size() < key.size() && std::equal(ancestor.begin(), ancestor.end(), key.begin());
}

/// The entry that this one hangs under: the longest existing beginning of its DN, the root at least.
Key parentOf(const Entries& entries, Key key)
{
    do {
        key.pop_back();
    } while (entries.count(key) == 0);
    return key;
}

std::string textOf(const Key& key)
{
    std::string text;
    for (const auto& rdn : key) {
        text = text.empty() ? rdn : rdn + "," + text;
    }
    return text;
}

class Model
{
public:
    Entries entries{{Key(), {{"charset", {"UTF-8"}}, {"version", {"1"}}}}};

    Codes add(const Key& key, const std::vector<Change>& changes)
    {
        Attributes added;
        for (const auto& change : changes) {
            if (!change.values || change.values->empty()) {
                continue;
            }
            // Checked on its own before it is merged.
            std::vector<std::string> values;
            if (const Codes codes = addValues(change.type, *change.values, values); codes != fine) {
                return codes;
            }
            addValues(change.type, values, added[lower(change.type)]);
        }
        Attributes& attributes = entries[key];
        for (const auto& [name, values] : added) {
            addValues(name, values, attributes[name]);
        }
        return fine;
    }

    Codes modify(const Key& key, const std::vector<Change>& changes)
    {
        if (changes.empty()) {
            return fine;
        }
        const auto entry = entries.find(key);
        if (entry == entries.end()) {
            return {32, 32};
        }
        for (const auto& change : changes) {
            if (const Codes codes = apply(entry->second, change); codes != fine) {
                return codes;
            }
        }
        return fine;
    }

    Codes erase(const Key& key, bool withSubtree)
    {
        if (key.empty() || entries.count(key) == 0) {
            return {32, 32};
        }
        const auto below = [&](const auto& entry) { return isAbove(key, entry.first); };
        if (!withSubtree && std::any_of(entries.begin(), entries.end(), below)) {
            return {66, 66};
        }
        std::erase_if(entries, below);
        entries.erase(key);
        return fine;
    }

    Codes search(const Key& base, int scope, const std::string& type, const std::optional<std::string>& value,
                 const std::set<std::string>& selected, Entries& found) const
    {
        if (entries.count(base) == 0) {
            return {32, 32};
        }
        for (const auto& [key, attributes] : entries) {
            const bool inScope = scope == 0   ? key == base
                                 : scope == 1 ? !key.empty() && parentOf(entries, key) == base
                                              : key == base || isAbove(base, key);
            const auto attribute = attributes.find(lower(type));
            if (!inScope || attribute == attributes.end()) {
                continue;
            }
            if (value) {
                Stored stored;
                store(type, *value, stored);
                auto values = attribute->second;
                if (findValue(type, values, stored.identity) == values.end()) {
                    continue;
                }
            }
            Attributes& copy = found[key];
            for (const auto& [name, values] : attributes) {
                if (selected.empty() || selected.count(name) != 0) {
                    copy[name] = values;
                }
            }
        }
        return fine;
    }

    /// What a file can hold of it: attributes without values have no line.
    Model onDisk() const
    {
        Model copy = *this;
        for (auto& [key, attributes] : copy.entries) {
            std::erase_if(attributes, [](const auto& attribute) { return attribute.second.empty(); });
        }
        return copy;
    }

private:
    static Codes apply(Attributes& attributes, const Change& change)
    {
        const std::string name = lower(change.type);
        const auto values = change.values.value_or(std::vector<std::string>());
        const auto found = attributes.find(name);
        switch (change.operation) {
        case 1:
            if (found == attributes.end()) {
                return {16, 16};
            }
            for (const auto& text : values) {
                if (found->second.empty()) {
                    break;
                }
                Stored stored;
                if (const Codes codes = store(name, text, stored); codes != fine) {
                    return codes;
                }
                if (const auto value = findValue(name, found->second, stored.identity); value != found->second.end()) {
                    found->second.erase(value);
                }
            }
            if (values.empty() || found->second.empty()) {
                attributes.erase(found);
            }
            return fine;
        case 2:
            if (found != attributes.end()) {
                found->second.clear();
                if (values.empty()) {
                    attributes.erase(found);
                }
            }
            [[fallthrough]];
        case 0: {
            std::vector<std::string> added;
            if (const Codes codes = addValues(name, values, added); codes != fine) {
                return codes;
            }
            if (!added.empty()) {
                addValues(name, added, attributes[name]);
            }
            return fine;
        }
        default:
            return {89, 1010};
        }
    }
};

// ---- Commands ----

/// A DN as somebody writes it, and what it means.
struct Name
{
    std::string text;
    Key key;
};

struct FileEntry
{
    Name name;
    std::vector<std::pair<std::string, std::string>> lines;
};

struct Command
{
    enum Kind { add, modify, erase, search, write, reopen, edit } kind;
    Name name;
    std::optional<std::size_t> existing; ///< instead of the name: one of the entries that there are by then
    std::vector<Change> changes;
    Form form = Form::texts;
    bool withSubtree = false;
    int scope = 0;
    std::string type;
    std::optional<std::string> value;
    std::set<std::string> selected;
    std::vector<FileEntry> file; ///< what another program puts behind what it leaves of the file
    std::size_t keepEvery = 1;   ///< and what it leaves: every n-th entry
    bool reversed = false;       ///< the entries in reversed order, children first
};

void showValue(const Command& command, std::ostream& stream)
{
    static constexpr const char* names[] = {"add", "modify", "erase", "search", "write", "reopen", "edit"};
    stream << names[command.kind] << " ";
    if (command.existing) {
        stream << "entry " << *command.existing << " or ";
    }
    stream << "'" << command.name.text << "' " << nameOf(command.form) << (command.withSubtree ? " subtree" : "")
           << " scope " << command.scope << " " << command.type << "=" << command.value.value_or("*");
    for (const auto& change : command.changes) {
        stream << "\n    " << change.operation << " " << change.type;
        for (const auto& value : change.values.value_or(std::vector<std::string>{"(null)"})) {
            stream << " '" << value << "'";
        }
    }
    for (const auto& entry : command.file) {
        stream << "\n    " << entry.name.text;
        for (const auto& [type, value] : entry.lines) {
            stream << " " << type << "='" << value << "'";
        }
    }
    stream << " keeps every " << command.keepEvery << (command.reversed ? " reversed" : "") << "\n";
}

Name anyName()
{
    struct Rdn
    {
        const char* key;
        std::vector<std::string> texts;
    };
    // Few, so that sequences meet the same entries again.
    static const Rdn rdns[] = {
        {"ou=a", {"ou=a", "OU = A", "ou=\\41", "ou=\"a\""}},
        {"cn=b", {"cn=b", "Cn=B", "cn=#62"}},
        {"cn=b+ou=c", {"cn=b+ou=c", "OU=C + cn=B"}},
    };
    const int levels = *rc::gen::weightedElement<int>({{1, 1}, {3, 2}, {4, 3}, {2, 4}});
    Name name;
    for (int level = 0; level < levels; ++level) {
        const Rdn& rdn = rdns[*rc::gen::inRange(0, 3)];
        const std::string text = *rc::gen::elementOf(rdn.texts);
        name.text = name.text.empty() ? text : text + *rc::gen::element<std::string>(",", " ; ", ", ") + name.text;
        name.key.push_back(rdn.key);
    }
    return name;
}

std::string anyType()
{
    return *rc::gen::element<std::string>("x", "X", "cn", "CN", "objectClass", "zor-slapdPort", "ZOR-SLAPDPORT");
}

std::string anyValue(const std::string& type, bool sound)
{
    if (lower(type) != "zor-slapdport") {
        return *rc::gen::element<std::string>("one", "ONE", "two words", "");
    }
    return sound ? *rc::gen::element<std::string>("1", "01", " 389 ", "389", "65535")
                 : *rc::gen::weightedOneOf<std::string>(
                       {{5, rc::gen::element<std::string>("1", "01", " 389 ", "389", "65535")},
                        {1, rc::gen::element<std::string>("0", "65536", "abc", "")}});
}

std::vector<Change> anyChanges()
{
    std::vector<Change> changes(static_cast<std::size_t>(*rc::gen::inRange(0, 4)));
    for (auto& change : changes) {
        change.operation = *rc::gen::weightedElement<int>({{6, 0}, {4, 1}, {4, 2}, {1, 3}});
        change.type = anyType();
        if (*rc::gen::inRange(0, 6) != 0) {
            std::vector<std::string> values(static_cast<std::size_t>(*rc::gen::inRange(0, 4)));
            for (auto& value : values) {
                value = anyValue(change.type, false);
            }
            change.values = values;
        }
    }
    return changes;
}

Command anyCommand()
{
    Command command;
    command.kind = *rc::gen::weightedElement<Command::Kind>({{8, Command::add},
                                                             {8, Command::modify},
                                                             {4, Command::erase},
                                                             {4, Command::search},
                                                             {2, Command::write},
                                                             {1, Command::reopen},
                                                             {2, Command::edit}});
    command.name = anyName();
    if (*rc::gen::inRange(0, 3) != 0) {
        command.existing = *rc::gen::inRange<std::size_t>(0, 100);
    }
    command.type = anyType();
    switch (command.kind) {
    case Command::add:
    case Command::modify:
        command.changes = anyChanges();
        command.form = *rc::gen::element(Form::texts, Form::bervals);
        break;
    case Command::erase:
        command.withSubtree = *rc::gen::arbitrary<bool>();
        if (*rc::gen::inRange(0, 20) == 0) {
            command.name = Name();
            command.existing.reset();
        }
        break;
    case Command::search:
        command.scope = *rc::gen::inRange(0, 3);
        if (*rc::gen::inRange(0, 3) == 0) {
            command.name = Name();
            command.existing.reset();
        }
        if (*rc::gen::arbitrary<bool>()) {
            command.value = anyValue(command.type, true);
        }
        for (int i = *rc::gen::inRange(0, 3); i > 0; --i) {
            command.selected.insert(lower(anyType()));
        }
        break;
    case Command::edit: {
        std::vector<FileEntry> file(static_cast<std::size_t>(*rc::gen::inRange(0, 6)));
        for (auto& entry : file) {
            entry.name = anyName();
            for (int i = *rc::gen::inRange(0, 4); i > 0; --i) {
                const std::string type = anyType();
                entry.lines.emplace_back(type, anyValue(type, true));
            }
        }
        command.file = file;
        command.keepEvery = static_cast<std::size_t>(*rc::gen::inRange(1, 4));
        command.reversed = *rc::gen::arbitrary<bool>();
        break;
    }
    case Command::write:
    case Command::reopen:
        break;
    }
    return command;
}

// ---- The store beside the model ----

Key keyOf(const LDIF_DN& dn)
{
    Key key;
    for (const LDIF_RDN& rdn : dn) {
        std::string text;
        for (const LDIF_RDN_pair& pair : rdn) {
            // The decoded value: how it was written takes no part.
            text += (text.empty() ? "" : "+") + lower(pair.first) + "=" + lower(pair.second);
        }
        key.push_back(text);
    }
    return key;
}

Attributes attributesOf(const LDIF_Entry& entry)
{
    Attributes attributes;
    std::string last;
    for (const LDIF_Attribute& attribute : entry.attributes) {
        const std::string name = lower(attribute.name);
        RC_ASSERT(last < name); // sorted, each name once
        last = name;
        for (const LDIF_Value& value : attribute.values) {
            attributes[name].push_back(value.str());
        }
        attributes.try_emplace(name);
    }
    return attributes;
}

/// Collects what is below an entry, and checks that everything hangs where it has to.
void collect(const LDIF_Entry& entry, const Entries& expected, Entries& found)
{
    const Key key = keyOf(entry.dn);
    RC_ASSERT(found.emplace(key, attributesOf(entry)).second);
    for (const LDIF_Entry& child : entry.children) {
        const Key childKey = keyOf(child.dn);
        RC_ASSERT(expected.count(childKey) == 1U);
        RC_ASSERT(parentOf(expected, childKey) == key);
        const Key relative = keyOf(child.relDn);
        RC_ASSERT(Key(childKey.begin() + static_cast<std::ptrdiff_t>(key.size()), childKey.end()) == relative);
        collect(child, expected, found);
    }
}

class StoreAndModel
{
public:
    /// @param persists  after every command the store is written and loaded anew
    /// @param indexed   with a store that finds entries by its index, as those of handles do
    StoreAndModel(bool persists, bool indexed) : persists_(persists), indexed_(indexed)
    {
        writeFile(disk_, {}, false);
        store_ = opened();
        check();
    }

    void run(const Command& command)
    {
        // As every call of the API does first.
        RC_ASSERT(store_->refresh() == edited_);
        if (edited_) {
            memory_ = disk_;
            edited_ = false;
            check();
        }
        step(aimed(command));
        check();
        if (persists_ && command.kind != Command::edit) {
            write();
            reopen();
            check();
        }
    }

private:
    std::string path() const { return folder_.path("zorslapd.conf"); }

    /// The command with the entry that it is about.
    Command aimed(Command command) const
    {
        const std::size_t count = memory_.entries.size() - 1;
        if (command.existing && count > 0) {
            const auto entry = std::next(memory_.entries.begin(), 1 + static_cast<long>(*command.existing % count));
            command.name = {textOf(entry->first), entry->first};
        }
        return command;
    }

    void step(const Command& command)
    {
        const LDIF_DN dn = dnOf(command.name.text);
        Mods mods(command.changes, command.form);
        switch (command.kind) {
        case Command::add:
            expect(memory_.add(command.name.key, command.changes), [&] { store_->add(dn, mods.list()); });
            break;
        case Command::modify:
            expect(memory_.modify(command.name.key, command.changes), [&] { store_->modify(dn, mods.list()); });
            break;
        case Command::erase:
            expect(memory_.erase(command.name.key, command.withSubtree),
                   [&] { store_->erase(dn, command.withSubtree); });
            break;
        case Command::search:
            search(command, dn);
            break;
        case Command::write:
            write();
            break;
        case Command::reopen:
            reopen();
            break;
        case Command::edit:
            edit(command);
            break;
        }
    }

    template <class Work>
    static void expect(const Codes& expected, Work&& work)
    {
        Codes codes = fine;
        try {
            work();
        } catch (const LDIF_Exception& failure) {
            codes = {failure.ldapErr, failure.extErr};
        }
        RC_ASSERT(codes == expected);
    }

    void search(const Command& command, const LDIF_DN& base)
    {
        LDIF_Filter filter;
        filter.attribute = cisString(command.type);
        filter.presence = !command.value;
        filter.value = command.value.value_or("");
        LDIF_AttrFilter selected;
        for (const auto& name : command.selected) {
            selected.insert(cisString(name));
        }
        Entries expected;
        Entries found;
        const Codes codes =
            memory_.search(command.name.key, command.scope, command.type, command.value, command.selected, expected);
        expect(codes, [&] {
            const auto scope = static_cast<LDIF_Search_Results::Scope>(command.scope);
            const auto results = store_->search(base, scope, filter, selected, false);
            for (const LDIF_Entry& entry : results.entries) {
                const Key key = keyOf(entry.dn);
                for (const auto& [earlier, attributes] : found) {
                    RC_ASSERT(!isAbove(key, earlier)); // parents come first
                }
                RC_ASSERT(found.emplace(key, attributesOf(entry)).second);
            }
        });
        RC_ASSERT(found == expected);
    }

    void write()
    {
        store_->flush();
        disk_ = memory_.onDisk();
        RC_ASSERT(!store_->refresh());
    }

    void reopen()
    {
        store_ = opened();
        memory_ = disk_;
    }

    /// Another program leaves some entries and adds others.
    void edit(const Command& command)
    {
        std::size_t position = 0;
        std::erase_if(disk_.entries,
                      [&](const auto& entry) { return !entry.first.empty() && ++position % command.keepEvery != 0; });
        const Model left = disk_;
        for (const auto& entry : command.file) {
            std::vector<Change> changes;
            for (const auto& [type, value] : entry.lines) {
                changes.push_back({0, type, {{value}}});
            }
            RC_ASSERT(disk_.add(entry.name.key, changes) == fine);
        }
        writeFile(left, command.file, command.reversed);
        edited_ = true;
    }

    void writeFile(const Model& model, const std::vector<FileEntry>& more, bool reversed)
    {
        std::vector<std::string> texts;
        for (const auto& [key, attributes] : model.entries) {
            if (key.empty()) {
                continue;
            }
            std::string text = "dn: " + textOf(key) + "\n";
            for (const auto& [name, values] : attributes) {
                for (const auto& value : values) {
                    text += name + ": " + value + "\n";
                }
            }
            texts.push_back(text + "\n");
        }
        if (reversed) {
            std::reverse(texts.begin(), texts.end());
        }
        for (const auto& entry : more) {
            std::string text = "# edited\nDN: " + entry.name.text + "\n";
            for (const auto& [type, value] : entry.lines) {
                text += type + ":" + value + "\n";
            }
            texts.push_back(text + "\n");
        }
        std::string file = "version: 1\ncharset: UTF-8\n\n";
        for (const auto& text : texts) {
            file += text;
        }
        folder_.write("zorslapd.conf", file);
        // A time that no other version of the file has or will have.
        seconds_ += 10;
        const struct timespec times[2] = {{seconds_, 0}, {seconds_, 0}};
        if (utimensat(AT_FDCWD, path().c_str(), times, 0) != 0) {
            throw std::system_error(errno, std::generic_category(), path());
        }
    }

    std::shared_ptr<LDIF_File> opened() const
    {
        return indexed_ ? std::make_shared<veltor::detail::BoundStore>(path(), "", settings_)
                        : std::make_shared<LDIF_File>(path(), "");
    }

    void check() const
    {
        Entries found;
        collect(store_->root, memory_.entries, found);
        RC_ASSERT(found == memory_.entries);
    }

    TemporaryFolder folder_;
    veltor::detail::WriteSettings settings_;
    std::shared_ptr<LDIF_File> store_; // of either kind, which has no virtual destructor
    Model memory_;
    Model disk_;
    bool edited_ = false;
    bool persists_;
    bool indexed_;
    time_t seconds_ = 1'000'000'000;
};

void runSequence(bool persists, bool indexed)
{
    const auto commands = *rc::gen::container<std::vector<Command>>(rc::gen::exec(anyCommand));
    StoreAndModel both(persists, indexed);
    for (const auto& command : commands) {
        both.run(command);
    }
    RC_TAG(commands.size() / 25 * 25);
}

} // namespace

TEST(StoreModel, TheStoreAndTheModelStayAlike)
{
    const LocaleGuard locale("C.UTF-8");
    for (const bool indexed : {false, true}) {
        EXPECT_TRUE(
            rc::check(indexed ? "in memory, with an index" : "in memory", [=] { runSequence(false, indexed); }));
    }
}

TEST(StoreModel, TheyStayAlikeWhenEveryStepIsWrittenAndLoadedAgain)
{
    const LocaleGuard locale("C.UTF-8");
    for (const bool indexed : {false, true}) {
        EXPECT_TRUE(rc::check(indexed ? "written, with an index" : "written", [=] { runSequence(true, indexed); }));
    }
}
