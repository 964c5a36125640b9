// The loader and the safe render. In a file that loads in safe mode, one small change either reaches the file, and
// with it everything that was there: the same entries, attributes, values and comment lines. Or it is refused, the file
// stays as it is, and the file holds one of the three things that the library's own form can't say: a value begun on a
// continuation line, a DN that does not come back, attributes of an empty DN. Then the refusal names a line of it.
// There is a fourth, which needs two values: an attribute whose name begins with a blank, as one behind a comment line
// can, continues the line above it when no comment parts the two.
//
// An input is a file up to a line "%%", and behind it a number: the change to make, see Change.
#include "LDIF_Attribute.h"
#include "LDIF_DN.h"
#include "LDIF_Entry.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"
#include "disk.h"
#include "fuzz.h"
#include "load.h"
#include "support/mods.h"
#include "support/temporary_folder.h"

#include "veltor/cfg.h"
#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <vector>

using namespace veltor::fuzz;
using veltor::detail::FileText;
using veltor::detail::Image;
using veltor::detail::LineReader;
using veltor::detail::TextUse;
using veltor::detail::TreeWalk;
using veltor::test::Mods;
using veltor::test::TemporaryFolder;

namespace {

constexpr char configName[] = "zorslapd.conf";
constexpr char addedName[] = "fuzz";

enum class Change { addAbove, addBelow, addAttribute, erase, entryComment, attributeComment };
constexpr std::size_t changes = 6;

// ---- What a file says, by its load alone ----

using Lines = std::vector<std::string>;

struct Entry
{
    std::string dn; // "" for one that does not print
    bool isRoot = false;
    bool dnIsLost = false;
    bool dnValueIsLost = false;
    bool valueIsLost = false;
    bool nameIsLost = false;
    Lines attributes; // "[name] [value] [value]" each
    Lines names;
    Lines comments; // its own, and those of its attributes
};

bool beginsWithBlank(std::string_view text)
{
    const std::wstring wide = multibyte2wide(std::string(text));
    return !wide.empty() && w_my_isspace(wide.front());
}

/// True for a value that can only have been begun on a continuation line: else the reader strips what is in front.
bool beginsOnContinuation(std::string_view value)
{
    return beginsWithBlank(value) || value.starts_with('(') || value.starts_with(')');
}

/// True for a DN that does not print, or prints as another one.
bool isLost(const LDIF_DN& dn)
{
    bool survives = false;
    failureOf([&] {
        const std::string text = "dn: " + dn.str() + "\n";
        LineReader reader(text);
        LDIF_Line line;
        reader.next(line);
        LDIF_DN back;
        back = cisString(line.value);
        LDIF_Line behind;
        reader.next(behind);
        survives = line.type == LDIF_Line::dn && behind.type == LDIF_Line::endOfFile && back == dn &&
                   "dn: " + back.str() + "\n" == text;
    });
    return !survives;
}

void collect(const LDIF_Comment& comment, Lines& lines)
{
    for (const LDIF_Line& line : comment.lines) {
        if (line.type == LDIF_Line::comment) {
            lines.push_back(line.value);
        }
    }
}

Entry told(const LDIF_Entry& entry)
{
    Entry all;
    all.isRoot = entry.dn.empty();
    all.dnIsLost = !all.isRoot && isLost(entry.dn);
    if (!all.dnIsLost) {
        all.dn = entry.dn.str();
    }
    collect(entry.comment, all.comments);
    for (const LDIF_Attribute& attribute : entry.attributes) {
        std::string text = "[" + attribute.name + "]";
        for (const LDIF_Value& value : attribute.values) {
            text.append(" [").append(value.text()).append("]");
            all.valueIsLost = all.valueIsLost || beginsOnContinuation(value.text());
            all.dnValueIsLost = all.dnValueIsLost || (value.dn() != nullptr && isLost(*value.dn()));
        }
        all.attributes.push_back(std::move(text));
        all.names.push_back(attribute.name);
        all.nameIsLost = all.nameIsLost || (attribute.values.size() > 1 && beginsWithBlank(attribute.name));
        collect(attribute.comment, all.comments);
    }
    return all;
}

struct Configuration
{
    std::vector<Entry> entries; // the root first
    Lines trailingComments;

    Entry& root() { return entries.front(); }
    Lines comments() const
    {
        Lines lines;
        for (const Entry& entry : entries) {
            lines.insert(lines.end(), entry.comments.begin(), entry.comments.end());
        }
        lines.insert(lines.end(), trailingComments.begin(), trailingComments.end());
        return lines;
    }
    template <class Predicate>
    bool any(Predicate predicate) const
    {
        return std::any_of(entries.begin(), entries.end(), predicate);
    }
};

/// @return false when the text does not load
bool load(std::string_view text, Configuration& configuration)
{
    FileText copy(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.data());
    copy.setSize(text.size());
    Image image;
    if (failureOf([&] { veltor::detail::load(copy, TextUse::settled, image, configName); })) {
        return false;
    }
    for (TreeWalk walk(image.root); walk.current() != nullptr; walk.next()) {
        configuration.entries.push_back(told(*walk.current()));
    }
    collect(image.trailingComment, configuration.trailingComments);
    return true;
}

std::string joined(const Lines& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

std::string joined(const Configuration& configuration)
{
    std::string text;
    for (const Entry& entry : configuration.entries) {
        text += "<" + entry.dn + ">\n" + joined(entry.attributes);
    }
    return text;
}

/// The comment lines of a text, whatever they belong to.
Lines commentLines(std::string_view text)
{
    LineReader reader(text);
    LDIF_Line line;
    Lines lines;
    for (reader.next(line); line.type != LDIF_Line::endOfFile; reader.next(line)) {
        if (line.type == LDIF_Line::comment) {
            lines.push_back(line.value);
        }
    }
    return lines;
}

/// What a load adds to the root once there is an entry.
void completeRoot(Configuration& configuration)
{
    Entry& root = configuration.root();
    for (const auto& [name, line] :
         {std::pair("charset", "[charset] [ISO-8859-1]"), std::pair("version", "[version] [1]")}) {
        const auto isNamed = [wanted = name](const std::string& other) {
            return strcasecmp(other.c_str(), wanted) == 0;
        };
        if (std::none_of(root.names.begin(), root.names.end(), isNamed)) {
            root.names.emplace_back(name);
            root.attributes.emplace_back(line);
        }
    }
    // By name in any letter case, as the tree has them.
    std::sort(root.attributes.begin(), root.attributes.end(), [](const std::string& left, const std::string& right) {
        return strcasecmp(left.c_str(), right.c_str()) < 0;
    });
}

/// An empty DN brings attributes into the root that a file can't have there.
bool rootIsLost(const Entry& root)
{
    const auto isForeign = [](const std::string& name) {
        return strcasecmp(name.c_str(), "version") != 0 && strcasecmp(name.c_str(), "charset") != 0;
    };
    const auto isMany = [](const std::string& line) { return line.find("] [") != line.rfind("] ["); };
    return std::any_of(root.names.begin(), root.names.end(), isForeign) ||
           std::any_of(root.attributes.begin(), root.attributes.end(), isMany);
}

// ---- One change ----

struct Release
{
    void operator()(void* handle) const { cfg_unbind(handle); }
};
using Handle = std::unique_ptr<void, Release>;

/// A handle bound to the file in safe mode, that writes in the library's own form; null when the file does not load.
Handle bound(const std::string& path)
{
    Handle handle(cfg_init());
    require(handle != nullptr, "there is a handle");
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, path.c_str());
    require(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE) == 0, "the mode can be set");
    require(cfg_set_layout(handle.get(), CFG_LAYOUT_OWN) == 0, "the layout can be set");
    return cfg_bind_s(handle.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE) == 0 ? std::move(handle) : nullptr;
}

std::string shown(const char* text)
{
    return text == nullptr ? "" : text;
}

std::string failureIn(void* handle)
{
    return shown(cfg_dump_exception(handle)) + "\nentry " + shown(cfg_get_entry(handle)) + "\nattribute " +
           shown(cfg_get_attribute(handle)) + "\nvalue " + shown(cfg_get_value(handle)) + "\nline " +
           std::to_string(cfg_get_file_line(handle));
}

int addEntry(void* handle, const std::string& dn)
{
    Mods mods({{LDAP_MOD_ADD, "description", {{addedName}}}});
    return cfg_add_s(handle, dn.c_str(), mods.list());
}

std::string commentOf(void* handle, const Entry& entry, const char* attribute)
{
    char* text = nullptr;
    require(cfg_get_comment_s(handle, entry.dn.c_str(), attribute, &text) == 0, "a comment can be read",
            failureIn(handle));
    std::string comment = text;
    cfg_memfree(text);
    return comment;
}

/// Makes a change of a configuration in words and through the interface.
class Changer
{
public:
    /// @param before  has a DN that comes back in its last entry, unless the change is addAbove
    Changer(Configuration& before, Change change) : before_(before), change_(change) {}

    int apply(void* handle)
    {
        const Entry& last = before_.entries.back();
        switch (change_) {
        case Change::addAbove:
            break;
        case Change::addBelow:
            addedDn_ += ", " + last.dn;
            break;
        case Change::addAttribute: {
            Mods mods({{LDAP_MOD_ADD, addedName, {{addedName}}}});
            return cfg_modify_s(handle, last.dn.c_str(), mods.list());
        }
        case Change::erase:
            return cfg_delete_s(handle, last.dn.c_str());
        case Change::attributeComment:
            attribute_ = last.names.empty() ? nullptr : last.names.front().c_str();
            [[fallthrough]];
        case Change::entryComment:
            block_ = commentOf(handle, last, attribute_);
            return cfg_set_comment_s(handle, last.dn.c_str(), attribute_, addedName);
        }
        return addEntry(handle, addedDn_);
    }

    /// Makes it in words, as far as entries and attributes go, and takes it out of what the file says now, as far as
    /// that goes for comments: then both have to say the same.
    void settle(void* handle, Configuration& after)
    {
        Entry& last = before_.entries.back();
        switch (change_) {
        case Change::addAbove:
        case Change::addBelow: {
            const auto added = std::find_if(after.entries.begin(), after.entries.end(),
                                            [this](const Entry& entry) { return entry.dn == addedDn_; });
            require(added != after.entries.end(), "the added entry is in the file", joined(after));
            requireSame("it is the one that was added", joined(added->attributes), "[description] [fuzz]\n");
            require(added->comments.empty(), "it takes no comment from another", joined(added->comments));
            after.entries.erase(added);
            completeRoot(before_);
            completeRoot(after);
            break;
        }
        case Change::addAttribute: {
            Lines& attributes = after.entries.back().attributes;
            const auto added = std::find(attributes.begin(), attributes.end(), "[fuzz] [fuzz]");
            require(added != attributes.end(), "the added attribute is in the file", joined(after));
            attributes.erase(added);
            break;
        }
        case Change::erase:
            before_.entries.pop_back();
            break;
        case Change::entryComment:
        case Change::attributeComment:
            requireSame("the comment is the new one", commentOf(handle, last, attribute_), addedName);
            break;
        }
    }

    bool isComment() const { return change_ == Change::entryComment || change_ == Change::attributeComment; }
    const std::string& replacedBlock() const { return block_; }

private:
    Configuration& before_;
    Change change_;
    std::string addedDn_ = "cn=fuzz";
    const char* attribute_ = nullptr;
    std::string block_;
};

/// What is refused has one of the three reasons, and the refusal says where.
void requireReason(void* handle, int code, const Configuration& before, std::string_view text)
{
    const std::string failure = failureIn(handle);
    const bool dnIsLost = before.any([](const Entry& entry) { return entry.dnIsLost || entry.dnValueIsLost; });
    const bool dnValueIsLost = before.any([](const Entry& entry) { return entry.dnValueIsLost; });
    const bool valueIsLost = before.any([](const Entry& entry) { return entry.valueIsLost || entry.nameIsLost; });
    require(cfg_get_exterror(handle) == code, "the library code repeats the code", failure);
    switch (code) {
    case 21:
        require(valueIsLost || dnValueIsLost, "a value that is refused can't be written", text, failure);
        break;
    case 34:
        require(dnIsLost, "a DN that is refused can't be written", text, failure);
        break;
    case 65:
        require(rootIsLost(before.entries.front()), "a root that is refused can't be written", text, failure);
        break;
    default:
        find("a change is refused for one of three reasons", text, failure);
    }
    const int number = cfg_get_file_line(handle);
    LineReader reader(text);
    LDIF_Line line;
    do {
        reader.next(line);
    } while (line.type != LDIF_Line::endOfFile && line.lineNumber != number);
    const std::string attribute = shown(cfg_get_attribute(handle));
    // What an empty DN brought may have become another line on its way.
    const bool isBrought = code == 65 && line.type == LDIF_Line::dn && line.value.empty();
    if (attribute.empty()) {
        require(line.type == LDIF_Line::dn, "the refusal names the line of the DN", text, failure);
    } else if (!isBrought) {
        const bool isKept = !line.valid || strcasecmp(attribute.c_str(), "zor-slapdInvalidLine") == 0;
        require(line.type == LDIF_Line::attribute && (isKept || strcasecmp(attribute.c_str(), line.name.c_str()) == 0),
                "the refusal names the line of the attribute", text, failure);
    }
}

/// Every comment line is there in order, but for those that the change took or replaced.
void requireComments(const Changer& changer, const Configuration& before, const Configuration& after)
{
    const Lines kept = before.comments();
    Lines now = after.comments();
    if (!changer.isComment()) {
        requireSame("the comment lines are all there in order", joined(kept), joined(now));
        return;
    }
    const std::string& block = changer.replacedBlock();
    const auto blockLines = static_cast<std::size_t>(std::count(block.begin(), block.end(), '\n') + 1);
    const auto gone = kept.size() + 1 - now.size();
    require(gone == blockLines || (block.empty() && gone == 0), "the block alone is replaced", joined(kept),
            joined(now));
    // The new line stands where the block stood; what is in front and behind is as it was.
    for (std::size_t front = 0; front < now.size(); ++front) {
        if (now[front] == "# fuzz" &&
            std::equal(now.begin(), now.begin() + static_cast<std::ptrdiff_t>(front), kept.begin()) &&
            std::equal(now.rbegin(), now.rend() - static_cast<std::ptrdiff_t>(front) - 1, kept.rbegin())) {
            return;
        }
    }
    find("the other comment lines are all there in order", joined(kept), joined(now));
}

/// What was written once can be changed on and on: one more entry is one more block.
void requireAnother(void* handle, const TemporaryFolder& folder, const std::string& path)
{
    const std::string text = folder.read(configName);
    Configuration written;
    require(load(text, written), "what was written can be loaded", text);
    // The first one also brings the blank line behind the root.
    const bool isFirst = written.entries.size() == 1;
    require(cfg_begin_s(handle, 0) == 0, "a change set can begin", failureIn(handle));
    require(addEntry(handle, "cn=fuzz again") == 0, "what was written can be changed", text, failureIn(handle));
    require(cfg_commit_s(handle) == 0, "what was written can be written again", text, failureIn(handle));
    const std::string now = folder.read(configName);
    constexpr std::string_view block = "dn: cn=fuzz again\ndescription: fuzz\n\n";
    const std::size_t place = now.find(block);
    require(place != std::string::npos, "the second entry is in the file", now);
    if (!isFirst) {
        requireSame("nothing else changed", text, std::string(now).erase(place, block.size()));
    }
    char* rendered = nullptr;
    std::size_t size = 0;
    require(cfg_render_s(handle, &rendered, &size) == 0, "what was written can be rendered", failureIn(handle));
    requireSame("it renders as it stands in the file", std::string_view(rendered, size), now);
    cfg_memfree(rendered);
    require(bound(path) != nullptr, "another handle can read it", now);
}

bool mentionsAdded(std::string_view text)
{
    constexpr std::string_view name = addedName;
    return std::search(text.begin(), text.end(), name.begin(), name.end(), [](char left, char right) {
               return std::tolower(static_cast<unsigned char>(left)) == right;
           }) != text.end();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    // What cfg_init takes the locale from.
    setenv("LC_ALL", "C.UTF-8", 1);
    useLocale("C.UTF-8");
    std::string_view rest = textOf(data, size);
    const std::string_view text = takeUpTo(rest, "%%\n");
    // What is added has to be new.
    if (mentionsAdded(text)) {
        return 0;
    }
    const std::string path = folder.write(configName, text);
    const Handle handle = bound(path);
    requireSame("a load in safe mode writes nothing", text, folder.read(configName));
    Configuration before;
    require(load(text, before) == (handle != nullptr), "a bind in safe mode is a load", text);
    if (handle == nullptr) {
        return 0;
    }

    auto change = static_cast<Change>(rest.empty() ? 0 : static_cast<unsigned char>(rest.front()) % changes);
    if (before.entries.back().isRoot || before.entries.back().dnIsLost) {
        change = Change::addAbove;
    }
    Changer changer(before, change);
    const int code = changer.apply(handle.get());
    if (code != 0) {
        requireReason(handle.get(), code, before, text);
        requireSame("what is refused leaves the file as it was", text, folder.read(configName));
        return 0;
    }
    const std::string written = folder.read(configName);
    Configuration after;
    require(load(written, after), "what was written can be loaded", text, written);
    const bool isWhole = change != Change::erase && !changer.isComment();
    changer.settle(handle.get(), after);
    requireSame("it loads as the same entries", joined(before), joined(after));
    requireComments(changer, before, after);
    if (isWhole) {
        Lines given = commentLines(text);
        Lines found = commentLines(written);
        std::sort(given.begin(), given.end());
        std::sort(found.begin(), found.end());
        requireSame("no comment line of the file is lost", joined(given), joined(found));
    }
    requireAnother(handle.get(), folder, path);
    return 0;
}
