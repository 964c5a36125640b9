// What a safe write that keeps the layout has to hold, checked on any text and any change sets: a reading of the text
// of its own says which lines a change may touch; a twin of the file that is written in the library's own form says
// which tree has to come back.
#ifndef VELTOR_TESTS_LAYOUT_TRIAL_H
#define VELTOR_TESTS_LAYOUT_TRIAL_H

#include "support/mods.h"
#include "support/temporary_folder.h"

#include "LDIF_Attribute.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "LDIF_Line.h"
#include "LDIF_Util.h"
#include "load.h"

#include "veltor/cfg.h"
#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <strings.h>

namespace veltor::test::layout {

/// What a trial found.
struct Broken : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

inline void require(bool holds, const char* property, const std::string& details = "")
{
    if (!holds) {
        throw Broken(std::string(property) + "\n" + details);
    }
}

struct LessName
{
    bool operator()(const std::string& left, const std::string& right) const
    {
        return strcasecmp(left.c_str(), right.c_str()) < 0;
    }
};

using Texts = std::vector<std::string>;
using Attributes = std::map<std::string, Texts, LessName>;

// ---- Changes ----

/// A change whose targets are picked from what the tree holds by then, so that any numbers make one.
struct Change
{
    enum Kind : std::uint8_t { add, modify, erase, eraseSubtree, comment };
    struct Mod
    {
        int operation = LDAP_MOD_ADD;
        std::optional<std::size_t> attribute; // which of the entry's; else the name
        std::string name;
        std::vector<std::optional<std::size_t>> present; // which of the attribute's values; else the next text
        Texts texts;
        bool hasValues = true;
    };
    Kind kind = modify;
    std::size_t entry = 0; // which of the tree's, without the root, as far as there are
    std::string rdn;       // of an entry that is added, above the picked one's DN
    bool onTop = false;    // the RDN is the whole DN; of a change: the root's
    std::vector<Mod> mods; // the first one's attribute is that of a comment
    bool ofEntry = false;  // a comment
    std::string text;
};

using ChangeSet = std::vector<Change>;

// ---- Handles ----

struct Unbind
{
    void operator()(void* handle) const { cfg_unbind(handle); }
};
using Handle = std::unique_ptr<void, Unbind>;

inline std::string failureIn(void* handle)
{
    const char* const text = cfg_dump_exception(handle);
    return text == nullptr ? "" : text;
}

/// Bound in a mode and a layout; null for a file that does not load.
inline Handle boundTo(const std::string& path, int mode, int layout)
{
    Handle handle(cfg_init());
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, path.c_str());
    require(cfg_set_write_mode(handle.get(), mode) == 0 && cfg_set_layout(handle.get(), layout) == 0,
            "mode and layout can be set");
    return cfg_bind_s(handle.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE) == 0 ? std::move(handle) : nullptr;
}

struct TreeEntry
{
    std::string dn;
    std::vector<std::pair<std::string, Texts>> attributes;
};
using Tree = std::vector<TreeEntry>;

/// @return false where a DN can't be printed
inline bool readTree(void* handle, Tree& tree)
{
    cfg_message* result = nullptr;
    if (cfg_read_s(handle, nullptr, LDAP_SCOPE_SUBTREE, &result) != 0) {
        return false;
    }
    for (const cfg_message* entry = result; entry != nullptr; entry = entry->next) {
        TreeEntry& told = tree.emplace_back();
        told.dn = entry->text;
        for (const cfg_message* attribute = entry->children; attribute != nullptr; attribute = attribute->next) {
            Texts& values = told.attributes.emplace_back(attribute->text, Texts()).second;
            for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
                values.emplace_back(value->text);
            }
        }
    }
    cfg_msgfree(result);
    return true;
}

inline std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return text;
}

/// Names in lower case: a line that stays keeps its spelling.
inline std::string joined(const Tree& tree)
{
    std::string text;
    for (const TreeEntry& entry : tree) {
        text += "<" + entry.dn + ">\n";
        for (const auto& [name, values] : entry.attributes) {
            text += "  [" + lowered(name);
            text += "]";
            for (const std::string& value : values) {
                text += " [" + value + "]";
            }
            text += "\n";
        }
    }
    return text;
}

inline std::string rendered(void* handle)
{
    char* text = nullptr;
    std::size_t size = 0;
    require(cfg_render_s(handle, &text, &size) == 0, "the file can be rendered", failureIn(handle));
    std::string copy(text, size);
    cfg_memfree(text);
    return copy;
}

inline std::optional<std::string> commentOf(void* handle, const std::string& dn, const std::string& attribute)
{
    char* text = nullptr;
    if (cfg_get_comment_s(handle, dn.c_str(), attribute.empty() ? nullptr : attribute.c_str(), &text) != 0) {
        return std::nullopt;
    }
    std::string copy = text;
    cfg_memfree(text);
    return copy;
}

inline std::size_t linesIn(const std::string& comment)
{
    return comment.empty() ? 0 : static_cast<std::size_t>(std::count(comment.begin(), comment.end(), '\n')) + 1;
}

inline LDIF_DN dnOf(const std::string& text)
{
    LDIF_DN dn;
    dn = cisString(text);
    return dn;
}

/// True for an entry of a subtree.
inline bool isWithin(const LDIF_DN& dn, const LDIF_DN& top)
{
    return dn.size() >= top.size() && veltor::detail::commonLevels(top, dn) == top.size();
}

// ---- A reading of a text ----

/// A logical line, and what it belongs to.
struct Line
{
    enum Kind : std::uint8_t { blank, comment, dn, value };
    Kind kind = blank;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t entry = 0; // of a DN or a value: an index into the entries
    std::string name;      // of a value
    std::string held;      // the value as the entry holds it
};

struct Entry
{
    LDIF_DN dn;
    std::string text; // the DN as it is printed; "" for the root
    LDIF_Attributes held;
    std::vector<std::pair<std::size_t, std::size_t>> places; // its lines, each time from a DN line to its last value
};

/// Splits a text into lines, and says of each what it means. The text has to load.
class Reading
{
public:
    explicit Reading(std::string_view text) : text_(text)
    {
        entries.emplace_back();
        entries.front().places.emplace_back(0, 0);
        std::optional<std::size_t> open;
        for (std::size_t position = 0; position < text.size();) {
            Line line;
            line.begin = position;
            LDIF_Line said = next(position);
            line.end = position;
            if (said.type == LDIF_Line::blankLine) {
                open.reset();
            } else if (said.type == LDIF_Line::comment) {
                line.kind = Line::comment;
            } else if (said.type == LDIF_Line::dn) {
                line.kind = Line::dn;
                line.entry = entryOf(said);
                open = line.entry;
                entries[line.entry].places.emplace_back(lines.size(), lines.size() + 1);
            } else {
                line.kind = Line::value;
                line.entry = open.value_or(0);
                hold(said, line);
                entries[line.entry].places.back().second = lines.size() + 1;
            }
            lines.push_back(std::move(line));
        }
    }

    /// True when every DN prints, and as itself.
    bool isPrintable() const { return isPrintable_; }
    /// True for a line that would continue an attribute line above it.
    bool beginsWithBlank(const Line& line) const
    {
        std::size_t end = 0;
        const std::wstring wide = physical(line.begin, end);
        return !wide.empty() && w_my_isspace(wide.front());
    }
    std::string_view of(const Line& line) const { return text_.substr(line.begin, line.end - line.begin); }

    /// The values that the text tells, by entry and attribute.
    Attributes toldOf(const Entry& entry) const
    {
        Attributes all;
        for (auto attribute = entry.held.cbegin(); attribute != entry.held.cend(); ++attribute) {
            Texts& values = all[attribute->name];
            for (const LDIF_Value& value : attribute->values) {
                values.emplace_back(value.text());
            }
        }
        return all;
    }

    std::vector<Line> lines;
    std::vector<Entry> entries; // the root first

private:
    /// One physical line, without its end and carriage returns, as the reader sees it.
    std::wstring physical(std::size_t begin, std::size_t& end) const
    {
        const std::size_t lineFeed = std::min(text_.find('\n', begin), text_.size());
        end = std::min(lineFeed + 1, text_.size());
        std::wstring wide = multibyte2wide(std::string(text_.substr(begin, lineFeed - begin)));
        std::erase(wide, L'\r');
        return wide;
    }

    static bool isDnName(std::wstring_view name)
    {
        return name == L"dn" || name == L"DN" || name == L"Dn" || name == L"dN";
    }

    LDIF_Line next(std::size_t& position) const
    {
        const auto isSpace = [](wchar_t character) { return w_my_isspace(character); };
        LDIF_Line line;
        const std::size_t begin = position;
        std::wstring wide = physical(begin, position);
        if (std::all_of(wide.begin(), wide.end(), isSpace)) {
            line.type = LDIF_Line::blankLine;
            return line;
        }
        if (wide.front() == L'#') {
            line.type = LDIF_Line::comment;
            return line;
        }
        const std::size_t colon = wide.find(L':');
        line.valid = colon != std::wstring::npos && colon != 0;
        line.name = wide2multibyte(line.valid ? wide.substr(0, colon) : wide);
        const bool isDn =
            isDnName(line.valid ? std::wstring_view(wide).substr(0, colon)
                                : std::wstring_view(wide).substr(0, std::min<std::size_t>(wide.size(), 2)));
        line.type = isDn ? LDIF_Line::dn : LDIF_Line::attribute;
        std::wstring value = line.valid ? wide.substr(std::min(wide.find_first_not_of(L':', colon), wide.size())) : L"";
        w_stripLeading(value);
        while (position < text_.size()) {
            std::size_t end = 0;
            const std::wstring more = physical(position, end);
            if (more.empty() || !w_my_isspace(more.front())) {
                break;
            }
            value += more.substr(1);
            position = end;
        }
        // The value of a last line without a line feed is dropped.
        line.value = text_[position - 1] == '\n' ? wide2multibyte(w_stripTrailing(value)) : "";
        return line;
    }

    static void keep(LDIF_Line& line)
    {
        line.changeToInvalidAttr();
        veltor::detail::settleKeptLine(line);
    }

    std::size_t entryOf(LDIF_Line& line)
    {
        if (!line.valid) {
            keep(line);
        }
        LDIF_DN dn;
        dn = cisString(line.value);
        const auto found =
            std::find_if(entries.begin(), entries.end(), [&dn](const Entry& entry) { return entry.dn == dn; });
        if (found != entries.end()) {
            return static_cast<std::size_t>(found - entries.begin());
        }
        Entry& entry = entries.emplace_back();
        entry.dn = dn;
        // Printed DNs name the entries here.
        bool isName = false;
        try {
            entry.text = dn.str();
            isName = dnOf(entry.text) == dn && dnOf(entry.text).str() == entry.text;
        } catch (const LDIF_Exception&) {
        }
        isPrintable_ = isPrintable_ && isName;
        return entries.size() - 1;
    }

    void hold(LDIF_Line& line, Line& found)
    {
        LDIF_Attributes& held = entries[found.entry].held;
        for (bool again = !line.valid;; again = true) {
            if (again) {
                keep(line);
            }
            try {
                LDIF_Attribute attribute(line.name, "");
                attribute.values.addText(line.value);
                found.name = line.name;
                found.held = std::as_const(attribute.values).begin()->text();
                const auto present = std::as_const(held).find(attribute.name);
                if (present != held.cend()) {
                    const auto equal = present->values.find(line.value);
                    if (equal != present->values.end()) {
                        found.held = equal->text();
                        return;
                    }
                }
                held += std::move(attribute);
                return;
            } catch (const LDIF_Exception&) {
                if (again) {
                    throw;
                }
            }
        }
    }

    std::string_view text_;
    bool isPrintable_ = true;
};

// ---- Which lines may change ----

/// What a change set did, as far as the trees before and after do not tell.
struct Deeds
{
    std::set<std::string> erased;                                        // DNs, those among them that came back
    std::map<std::pair<std::string, std::string>, std::string> comments; // by DN and attribute, "": the entry's
    std::map<std::pair<std::string, std::string>, std::size_t> blocks;   // how many lines stood there before
    bool changesRoot = false;
    bool isLoose = false;      // an attribute went and came after its comment was set: nobody says what becomes of that
    std::ptrdiff_t unseen = 0; // how many blocks may be one line that says nothing
};

class Ownership
{
public:
    enum Fate : std::uint8_t {
        stays, // byte for byte, in order
        moves, // byte for byte, somewhere
        goes,
        may, // stay or go
    };

    Ownership(const Reading& before, const Tree& after, const Deeds& deeds)
        : before_(before), deeds_(deeds), fates(before.lines.size(), stays)
    {
        for (const TreeEntry& entry : after) {
            Attributes& attributes = after_[entry.dn];
            for (const auto& [name, values] : entry.attributes) {
                attributes[name] = values;
            }
        }
        for (std::size_t index = 0; index < before.entries.size(); ++index) {
            const Entry& entry = before.entries[index];
            if (index != 0 && (after_.count(entry.text) == 0 || deeds.erased.count(entry.text) != 0)) {
                erase(entry);
                gone_.insert(entry.text);
            } else {
                change(index);
            }
        }
        countEntriesMade();
        countComments();
        // What a last line without a line feed lacks is added, or its value is told as the store has it.
        if (!before.lines.empty() && !before.of(before.lines.back()).ends_with('\n') &&
            before.lines.back().kind >= Line::dn && fates.back() != goes) {
            fates.back() = may;
            ++made;
        }
    }

private:
    const Reading& before_;
    const Deeds& deeds_;
    std::map<std::string, Attributes> after_;
    std::set<std::string> gone_;

public:
    std::vector<Fate> fates;
    std::size_t made = 0; // at most so many lines come new
    std::ptrdiff_t commentsBalance = 0;

private:
    /// The comment lines directly above a line.
    std::size_t blockAbove(std::size_t line) const
    {
        while (line > 0 && before_.lines[line - 1].kind == Line::comment) {
            --line;
        }
        return line;
    }

    void mark(std::size_t begin, std::size_t end, Fate fate)
    {
        for (std::size_t line = begin; line < end; ++line) {
            if (fates[line] != goes) {
                fates[line] = fate;
            }
        }
    }

    void erase(const Entry& entry)
    {
        for (const auto& [begin, end] : entry.places) {
            mark(blockAbove(begin), end, goes);
            std::size_t blank = end;
            while (blank < fates.size() && before_.lines[blank].kind == Line::comment) {
                ++blank;
            }
            if (blank < fates.size() && before_.lines[blank].kind == Line::blank) {
                mark(blank, blank + 1, may);
            }
        }
    }

    void change(std::size_t index)
    {
        const Entry& entry = before_.entries[index];
        const Attributes told = before_.toldOf(entry);
        const Attributes& wanted = after_[entry.text];
        for (const auto& [name, values] : told) {
            const std::vector<std::size_t> lines = linesOf(index, name);
            if (index == 0 && entry.places.size() > 1 && isByDefault(name)) {
                // An empty DN says what comes behind a default that nobody says.
                for (const std::size_t line : lines) {
                    mark(line, line + 1, deeds_.changesRoot ? may : stays);
                    if (deeds_.changesRoot || deeds_.comments.count({"", name}) != 0) {
                        mark(blockAbove(line), line, may);
                    }
                    made += deeds_.changesRoot ? 2 : 0;
                }
                continue;
            }
            const auto now = wanted.find(name);
            if (now == wanted.end()) {
                for (const std::size_t line : lines) {
                    mark(blockAbove(line), line + 1, goes);
                }
            } else {
                changeValues(values, now->second, lines);
                if (deeds_.comments.count({entry.text, name}) != 0) {
                    for (const std::size_t line : lines) {
                        mark(blockAbove(line), line, may);
                    }
                }
            }
        }
        for (const auto& [name, values] : wanted) {
            const bool isUnsaid = index == 0 && isByDefault(name);
            if (told.count(name) == 0 && (!isUnsaid || !deeds_.comments.empty() || !isDefault(name, values))) {
                made += values.size() + (index == 0 ? 1 : 0);
            }
        }
        if (index != 0 && deeds_.comments.count({entry.text, ""}) != 0) {
            for (const auto& [begin, end] : entry.places) {
                mark(blockAbove(begin), begin, may);
            }
        }
    }

public:
    using Told = std::vector<std::string>; // "place name value" each

    /// The value lines of an entry that stays, in the order in which the text tells them.
    static Told toldIn(const Reading& reading, std::size_t index)
    {
        Told told;
        const Entry& entry = reading.entries[index];
        for (std::size_t place = 0; place < entry.places.size(); ++place) {
            for (std::size_t line = entry.places[place].first; line < entry.places[place].second; ++line) {
                if (reading.lines[line].kind == Line::value) {
                    told.push_back(oneTold(place, reading.lines[line].name, reading.lines[line].held));
                }
            }
        }
        return told;
    }

    /// The same as it has to be.
    Told wantedOf(std::size_t index) const
    {
        const Entry& entry = before_.entries[index];
        const Attributes told = before_.toldOf(entry);
        const Attributes& wanted = after_.at(entry.text);
        // What comes in the place of each line.
        std::map<std::size_t, Texts> instead;
        for (const auto& [name, had] : told) {
            const auto now = wanted.find(name);
            placeValues(had, now == wanted.end() ? Texts() : now->second, linesOf(index, name), instead);
        }
        Told all;
        for (std::size_t place = 0; place < entry.places.size(); ++place) {
            for (std::size_t line = entry.places[place].first; line < entry.places[place].second; ++line) {
                for (const std::string& value : instead[line]) {
                    all.push_back(oneTold(place, before_.lines[line].name, value));
                }
            }
            for (const auto& [name, values] : place == 0 ? wanted : Attributes()) {
                for (const std::string& value : told.count(name) == 0 ? values : Texts()) {
                    all.push_back(oneTold(place, name, value));
                }
            }
        }
        return all;
    }

    /// True for a line of an attribute that gets other values.
    bool isChanged(const Line& line) const
    {
        const Entry& entry = before_.entries[line.entry];
        const auto now = after_.find(entry.text);
        if (line.kind != Line::value || now == after_.end()) {
            return false;
        }
        const auto wanted = now->second.find(line.name);
        return wanted != now->second.end() && wanted->second != before_.toldOf(entry)[line.name];
    }

    bool isGone(const Entry& entry) const { return gone_.count(entry.text) != 0; }
    bool isNew(const std::string& dn) const
    {
        return gone_.count(dn) != 0 || std::none_of(before_.entries.begin(), before_.entries.end(),
                                                    [&](const Entry& entry) { return entry.text == dn; });
    }

private:
    static std::string oneTold(std::size_t place, const std::string& name, const std::string& value)
    {
        return std::to_string(place) + " [" + lowered(name) + "] [" + value + "]";
    }

    void placeValues(const Texts& had, const Texts& wanted, const std::vector<std::size_t>& lines,
                     std::map<std::size_t, Texts>& instead) const
    {
        Texts fresh;
        const Texts inPlace = orderInPlace(had, wanted, fresh);
        if (inPlace != wanted) {
            for (const std::string& value : wanted) {
                const auto times = std::count_if(lines.begin(), lines.end(),
                                                 [&](std::size_t line) { return before_.lines[line].held == value; });
                Texts& all = instead[lines.front()];
                all.insert(all.end(), static_cast<std::size_t>(std::max<std::ptrdiff_t>(times, 1)), value);
            }
            return;
        }
        std::set<std::string> seen;
        auto next = fresh.begin();
        for (const std::size_t line : lines) {
            const std::string& value = before_.lines[line].held;
            const bool isFirst = seen.insert(value).second;
            if (isAmong(wanted, value)) {
                instead[line].push_back(value);
            } else if (isFirst && next != fresh.end()) {
                instead[line].push_back(*next++);
            }
        }
        Texts& last = instead[lines.back()];
        last.insert(last.end(), next, fresh.end());
    }

    static bool isAmong(const Texts& texts, const std::string& text)
    {
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

    /// The order that comes about where every line stays in its place.
    /// @param fresh  receives the values that are new
    static Texts orderInPlace(const Texts& had, const Texts& wanted, Texts& fresh)
    {
        std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(fresh),
                     [&](const std::string& text) { return !isAmong(had, text); });
        Texts inPlace;
        auto next = fresh.begin();
        for (const std::string& text : had) {
            if (isAmong(wanted, text)) {
                inPlace.push_back(text);
            } else if (next != fresh.end()) {
                inPlace.push_back(*next++);
            }
        }
        inPlace.insert(inPlace.end(), next, fresh.end());
        return inPlace;
    }

    std::vector<std::size_t> linesOf(std::size_t index, const std::string& name) const
    {
        std::vector<std::size_t> lines;
        for (std::size_t line = 0; line < before_.lines.size(); ++line) {
            const Line& candidate = before_.lines[line];
            if (candidate.kind == Line::value && candidate.entry == index &&
                strcasecmp(candidate.name.c_str(), name.c_str()) == 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    static bool isByDefault(const std::string& name)
    {
        return strcasecmp(name.c_str(), "charset") == 0 || strcasecmp(name.c_str(), "version") == 0;
    }

    static bool isDefault(const std::string& name, const Texts& values)
    {
        return values == Texts{strcasecmp(name.c_str(), "version") == 0 ? "1" : "ISO-8859-1"};
    }

    void changeValues(const Texts& had, const Texts& wanted, const std::vector<std::size_t>& lines)
    {
        if (had == wanted) {
            return;
        }
        Texts fresh;
        const Texts inPlace = orderInPlace(had, wanted, fresh);
        made += fresh.size();
        for (const std::size_t line : lines) {
            if (!isAmong(wanted, before_.lines[line].held)) {
                mark(line, line + 1, goes);
            } else if (inPlace != wanted) {
                mark(line, line + 1, moves);
            }
        }
    }

    void countEntriesMade()
    {
        std::set<std::string> told;
        for (const Entry& entry : before_.entries) {
            told.insert(entry.text);
        }
        for (const auto& [dn, attributes] : after_) {
            if (told.count(dn) != 0 && gone_.count(dn) == 0) {
                continue;
            }
            made += 3;
            for (const auto& [name, values] : attributes) {
                made += values.size();
            }
        }
    }

    void countComments()
    {
        for (std::size_t line = 0; line < fates.size(); ++line) {
            commentsBalance -= before_.lines[line].kind == Line::comment && fates[line] == goes ? 1 : 0;
        }
        for (const auto& [target, text] : deeds_.comments) {
            const auto entry = after_.find(target.first);
            if (entry == after_.end() || (!target.second.empty() && entry->second.count(target.second) == 0)) {
                continue;
            }
            commentsBalance += static_cast<std::ptrdiff_t>(linesIn(text));
            made += linesIn(text);
            if (const auto block = deeds_.blocks.find(target);
                block != deeds_.blocks.end() && gone_.count(target.first) == 0) {
                commentsBalance -= static_cast<std::ptrdiff_t>(block->second);
            }
        }
    }
};

inline Texts physicalLines(std::string_view text)
{
    Texts lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return lines;
}

inline std::size_t commentsIn(const Reading& reading)
{
    return static_cast<std::size_t>(std::count_if(reading.lines.begin(), reading.lines.end(),
                                                  [](const Line& line) { return line.kind == Line::comment; }));
}

/// The lines that no change owns are all there, byte for byte and in order, and no more came than was asked for.
inline void requireLines(const Reading& before, const Ownership& ownership, std::string_view now,
                         const std::string& details)
{
    const Texts lines = physicalLines(now);
    const auto isLine = [](const std::string& line, const std::string& wanted) {
        return line == wanted || (!wanted.ends_with('\n') && (line == wanted + "\n" || line == wanted + "\r\n"));
    };
    std::multiset<std::string> all(lines.begin(), lines.end());
    std::size_t atMost = ownership.made;
    auto next = lines.begin();
    for (std::size_t index = 0; index < before.lines.size(); ++index) {
        const Ownership::Fate fate = ownership.fates[index];
        for (const std::string& wanted : physicalLines(before.of(before.lines[index]))) {
            atMost += fate == Ownership::goes ? 0 : 1;
            if (fate == Ownership::stays) {
                next = std::find_if(next, lines.end(), [&](const std::string& line) { return isLine(line, wanted); });
                require(next != lines.end(), "lines that did not change are all there in order",
                        "missing: " + wanted + "\n" + details);
                all.erase(all.find(*next));
                ++next;
            }
        }
    }
    for (std::size_t index = 0; index < before.lines.size(); ++index) {
        if (ownership.fates[index] == Ownership::moves) {
            for (const std::string& wanted : physicalLines(before.of(before.lines[index]))) {
                const auto found = all.find(wanted);
                require(found != all.end(), "lines that came to another place are as they were",
                        "missing: " + wanted + "\n" + details);
                all.erase(found);
            }
        }
    }
    require(lines.size() <= atMost, "no more lines came than was asked for", details);
}

// ---- A trial ----

/// What became of change sets.
struct Tally
{
    std::size_t texts = 0;
    std::size_t loaded = 0;
    std::size_t committed = 0;
    std::size_t refusedUpdates = 0;
    std::map<std::string, std::size_t> refusedCommits; // by what the failure says
    std::size_t refusedInOwnForm = 0;                  // of those committed
};

class Trial
{
public:
    /// @param tally  may be null
    Trial(const TemporaryFolder& folder, Tally* tally) : folder_(folder), tally_(tally == nullptr ? own_ : *tally) {}

    /// @throws Broken
    void run(const std::string& text, const std::vector<ChangeSet>& sets)
    {
        Tree tree;
        if (!takes(text, tree)) {
            return;
        }
        require(rendered(handle_.get()) == text_, "a store that did not change renders as it was read", text_);
        for (const ChangeSet& set : sets) {
            if (!runSet(set)) {
                return;
            }
        }
    }

    /// Changes that cancel out leave the file's bytes.
    void runCancelled(const std::string& text, const Change& change)
    {
        Tree tree;
        if (!takes(text, tree)) {
            return;
        }
        require(cfg_begin_s(handle_.get(), 0) == 0, "a change set can begin", failureIn(handle_.get()));
        if (!thereAndBack(tree, change)) {
            ++tally_.refusedUpdates;
            cfg_rollback_s(handle_.get());
            return;
        }
        const int code = cfg_commit_s(handle_.get());
        require(code == 0, "changes that cancel out are no reason to refuse", failureIn(handle_.get()) + "\n" + text_);
        ++tally_.committed;
        const std::string now = folder_.read(fileName);
        require(now == text_, "changes that cancel out leave the file's bytes", details(text_, now));
    }

    /// Another value for an attribute that one line tells changes that line alone, and in it nothing but the value.
    void runOneValue(const std::string& text, std::size_t number, const std::string& value)
    {
        Tree tree;
        if (!takes(text, tree)) {
            return;
        }
        const Reading before(text_);
        std::map<std::pair<std::size_t, std::string>, std::vector<std::size_t>> tellers;
        for (std::size_t line = 0; line < before.lines.size(); ++line) {
            if (before.lines[line].kind == Line::value && before.lines[line].entry != 0) {
                tellers[{before.lines[line].entry, lowered(before.lines[line].name)}].push_back(line);
            }
        }
        std::vector<std::size_t> alone;
        for (const auto& [attribute, lines] : tellers) {
            const std::string_view line = before.of(before.lines[lines.front()]);
            if (lines.size() == 1 && line.ends_with('\n') && before.lines[lines.front()].held != value) {
                alone.push_back(lines.front());
            }
        }
        if (alone.empty()) {
            return;
        }
        const std::size_t changed = alone[number % alone.size()];
        const Line& line = before.lines[changed];
        const std::string& dn = before.entries[line.entry].text;
        const Aimed aimed{Change::modify, dn, "", "", {{LDAP_MOD_REPLACE, line.name, {{value}}}}};
        say(aimed);
        if (apply(handle_.get(), aimed) != 0) {
            ++tally_.refusedUpdates;
            return;
        }
        ++tally_.committed;
        const std::string now = folder_.read(fileName);
        const Reading after(now);
        require(after.lines.size() == before.lines.size(), "one value is one line", details(text_, now));
        for (std::size_t other = 0; other < before.lines.size(); ++other) {
            require(other == changed || before.of(before.lines[other]) == after.of(after.lines[other]),
                    "one value is one line", details(text_, now));
        }
        const std::string_view was = before.of(line);
        const std::string_view is = after.of(after.lines[changed]);
        require(is.find('\n') == is.size() - 1, "a new value is told in one physical line", details(text_, now));
        const std::size_t colon = was.find(':');
        if (colon != std::string_view::npos && was.starts_with(line.name) && colon == line.name.size()) {
            require(is.starts_with(was.substr(0, colon + 1)), "the spelling of the name stays", details(text_, now));
            const std::size_t behind = was.find_first_not_of(" \t", was.find_first_not_of(':', colon));
            // A colon in front of a value would be one of those behind the name.
            const bool isPlain =
                value.front() != ':' && was.find_first_of("\r()") == std::string_view::npos && was[behind] != '\n';
            const std::string spelled = std::string(was.substr(0, behind)) + value;
            require(!isPlain || is == spelled + "\n" || is == spelled + "\r\n", "the spelling of the line stays",
                    details(text_, now));
        }
    }

private:
    /// Makes the text the file of a handle; false when it does not load.
    bool takes(const std::string& text, Tree& tree)
    {
        ++tally_.texts;
        text_ = text;
        handle_ = boundTo(folder_.write(fileName, text), CFG_WRITE_SAFE, CFG_LAYOUT_KEEP);
        require(folder_.read(fileName) == text, "a load writes nothing");
        if (handle_ == nullptr || !readTree(handle_.get(), tree)) {
            return false;
        }
        ++tally_.loaded;
        return true;
    }

    static constexpr char fileName[] = "zorslapd.conf";
    static constexpr char twinName[] = "twin.conf";

    /// A text with what is hard to see.
    static std::string visible(const std::string& text)
    {
        std::string all;
        for (const char character : text) {
            all += character == '\r' ? "\\r" : character == '\0' ? "\\0" : std::string(1, character);
        }
        return all + "$\n";
    }

    std::string details(const std::string& before, const std::string& after) const
    {
        return "--- before\n" + visible(before) + "--- after\n" + visible(after) + "--- changes\n" + said_ + "---";
    }

    // ---- One change ----

    static const TreeEntry* pick(const Tree& tree, std::size_t number)
    {
        return tree.size() < 2 ? nullptr : &tree[1 + number % (tree.size() - 1)];
    }

    /// A change with its targets.
    struct Aimed
    {
        Change::Kind kind;
        std::string dn;
        std::string attribute; // of a comment
        std::string text;
        std::vector<veltor::test::Change> mods;
    };

    static std::optional<Aimed> aim(const Tree& tree, const Change& change)
    {
        Aimed aimed{change.kind, "", "", change.text, {}};
        const bool isOfRoot = change.onTop && (change.kind == Change::modify || change.kind == Change::comment);
        const TreeEntry* const picked = isOfRoot ? &tree.front() : pick(tree, change.entry);
        if (change.kind == Change::add) {
            aimed.dn = change.rdn;
            if (!change.onTop && picked != nullptr) {
                aimed.dn += ", " + picked->dn;
            }
        } else if (picked == nullptr) {
            return std::nullopt;
        } else {
            aimed.dn = picked->dn;
        }
        for (const Change::Mod& mod : change.mods) {
            veltor::test::Change& made = aimed.mods.emplace_back();
            made.operation = change.kind == Change::add ? LDAP_MOD_ADD : mod.operation;
            made.type = mod.name;
            const Texts* present = nullptr;
            if (change.kind != Change::add && mod.attribute && !picked->attributes.empty()) {
                made.type = picked->attributes[*mod.attribute % picked->attributes.size()].first;
            }
            if (change.kind != Change::add) {
                for (const auto& [name, values] : picked->attributes) {
                    if (strcasecmp(name.c_str(), made.type.c_str()) == 0) {
                        present = &values;
                    }
                }
            }
            if (!mod.hasValues) {
                continue;
            }
            made.values.emplace();
            auto text = mod.texts.begin();
            for (const auto& number : mod.present) {
                if (number && present != nullptr && !present->empty()) {
                    made.values->push_back((*present)[*number % present->size()]);
                } else if (text != mod.texts.end()) {
                    made.values->push_back(*text++);
                }
            }
            made.values->insert(made.values->end(), text, mod.texts.end());
        }
        if (change.kind == Change::comment && !change.ofEntry) {
            if (aimed.mods.empty()) {
                return std::nullopt;
            }
            aimed.attribute = aimed.mods.front().type;
        }
        return aimed;
    }

    static int apply(void* handle, const Aimed& change)
    {
        Mods mods(change.mods);
        switch (change.kind) {
        case Change::add:
            return cfg_add_s(handle, change.dn.c_str(), mods.list());
        case Change::modify:
            return cfg_modify_s(handle, change.dn.c_str(), mods.list());
        case Change::erase:
        case Change::eraseSubtree:
            cfg_set_option(handle, CFG_OPT_DELETE_NON_LEAVES,
                           change.kind == Change::eraseSubtree ? reinterpret_cast<const void*>(1) : nullptr); // NOLINT
            return cfg_delete_s(handle, change.dn.c_str());
        case Change::comment:
            break;
        }
        return cfg_set_comment_s(handle, change.dn.c_str(),
                                 change.attribute.empty() ? nullptr : change.attribute.c_str(), change.text.c_str());
    }

    void say(const Aimed& change)
    {
        static constexpr const char* kinds[] = {"add", "modify", "erase", "erase subtree", "comment"};
        said_ += std::string(kinds[change.kind]) + " " + change.dn;
        if (change.kind == Change::comment) {
            said_ += " [" + change.attribute + "] '" + change.text + "'";
        } else {
            for (const auto& mod : change.mods) {
                said_ += "\n    " + std::to_string(mod.operation) + " " + mod.type;
                for (const std::string& value : mod.values.value_or(Texts{"(null)"})) {
                    said_ += " '" + value + "'";
                }
            }
        }
        said_ += "\n";
    }

    // ---- One set ----

    /// @return false where nothing more can be done with the file
    bool runSet(const ChangeSet& set)
    {
        said_.clear();
        Reading before(text_);
        Tree tree;
        if (!before.isPrintable() || !readTree(handle_.get(), tree)) {
            return false;
        }
        requireReading(before, tree);
        const Handle twin = boundTo(folder_.write(twinName, text_), CFG_WRITE_SAFE, CFG_LAYOUT_OWN);
        require(twin != nullptr, "the layout makes no difference to a load", text_);
        Deeds deeds;
        require(cfg_begin_s(handle_.get(), 0) == 0 && cfg_begin_s(twin.get(), 0) == 0, "a change set can begin",
                failureIn(handle_.get()));
        std::vector<Aimed> changes;
        for (const Change& change : set) {
            Tree current;
            require(readTree(handle_.get(), current), "pending changes can be read", failureIn(handle_.get()));
            auto aimed = aim(current, change);
            if (!aimed) {
                continue;
            }
            say(*aimed);
            const std::pair target(aimed->dn, aimed->attribute);
            if (aimed->kind == Change::comment && aimed->dn.empty() && aimed->attribute.empty()) {
                require(apply(handle_.get(), *aimed) == 53 && apply(twin.get(), *aimed) == 53,
                        "a comment for the root is refused");
                continue;
            }
            if (aimed->kind == Change::comment && deeds.blocks.count(target) == 0) {
                noteBlock(target, deeds);
            }
            const int code = apply(handle_.get(), *aimed);
            require(apply(twin.get(), *aimed) == code, "the layout makes no difference to an update",
                    failureIn(handle_.get()) + "\n" + failureIn(twin.get()) + "\n" + details(text_, ""));
            if (code != 0) {
                ++tally_.refusedUpdates;
                require(cfg_commit_s(handle_.get()) == 53, "a set that is spoilt is refused");
                require(folder_.read(fileName) == text_, "what is refused leaves the file's bytes");
                require(cfg_commit_s(twin.get()) == 53, "a set that is spoilt is refused");
                return true;
            }
            note(*aimed, current, deeds);
            noteLoose(deeds);
        }
        Tree pending;
        require(readTree(handle_.get(), pending), "pending changes can be read", failureIn(handle_.get()));
        const std::string promised = rendered(handle_.get());
        const int code = cfg_commit_s(handle_.get());
        const std::string now = folder_.read(fileName);
        if (code != 0) {
            refused(before, Ownership(before, pending, deeds), deeds.changesRoot, now, twin.get());
            return true;
        }
        ++tally_.committed;
        require(now == promised, "a render tells what a commit writes", details(promised, now));
        requireTree(twin.get(), pending, now);
        Tree after;
        require(readTree(handle_.get(), after), "what was written can be read", failureIn(handle_.get()));
        requireText(before, after, deeds, now);
        text_ = now;
        return true;
    }

    void noteBlock(const std::pair<std::string, std::string>& target, Deeds& deeds) const
    {
        // As the file has it, whatever the set did by now.
        const Handle fresh = boundTo(folder_.path(fileName), CFG_WRITE_SAFE, CFG_LAYOUT_KEEP);
        if (const auto block = commentOf(fresh.get(), target.first, target.second)) {
            deeds.blocks[target] = linesIn(*block);
            // A line that says nothing and no line look alike.
            deeds.unseen += block->empty() ? 1 : 0;
        }
    }

    static void note(const Aimed& change, const Tree& current, Deeds& deeds)
    {
        if (change.kind == Change::comment) {
            deeds.comments[{change.dn, change.attribute}] = change.text;
            return;
        }
        deeds.changesRoot = deeds.changesRoot || change.dn.empty();
        for (const auto& mod : change.mods) {
            deeds.isLoose =
                deeds.isLoose || (mod.operation != LDAP_MOD_ADD && deeds.comments.count({change.dn, mod.type}) != 0);
        }
        if (change.kind != Change::erase && change.kind != Change::eraseSubtree) {
            return;
        }
        const LDIF_DN top = dnOf(change.dn);
        std::set<std::string> erased;
        for (const TreeEntry& entry : current) {
            if (isWithin(dnOf(entry.dn), top)) {
                erased.insert(entry.dn);
            }
        }
        std::erase_if(deeds.comments, [&](const auto& comment) { return erased.count(comment.first.first) != 0; });
        deeds.erased.merge(erased);
    }

    void noteLoose(Deeds& deeds) const
    {
        for (const auto& [target, text] : deeds.comments) {
            deeds.isLoose = deeds.isLoose || !commentOf(handle_.get(), target.first, target.second);
        }
    }

    void requireReading(const Reading& reading, const Tree& tree) const
    {
        std::map<std::string, Attributes> said;
        for (const TreeEntry& entry : tree) {
            for (const auto& [name, values] : entry.attributes) {
                said[entry.dn][name] = values;
            }
            said.try_emplace(entry.dn);
        }
        Attributes& root = said[""];
        for (const Entry& entry : reading.entries) {
            Attributes told = reading.toldOf(entry);
            if (entry.text.empty()) {
                for (const auto& [name, values] : root) {
                    told.try_emplace(name, values);
                }
            }
            const bool isMerged = entry.text.empty() && entry.places.size() > 1; // with defaults that nobody says
            require(isMerged || said[entry.text] == told, "the test reads what the store reads",
                    entry.text + "\n" + joined(tree) + text_);
        }
        require(said.size() == reading.entries.size(), "the test reads what the store reads", joined(tree) + text_);
    }

    /// What a file without an entry does not say of its root.
    static void dropRoot(Tree& tree)
    {
        if (tree.size() == 1) {
            tree.clear();
        }
    }

    void requireTree(void* twin, Tree pending, const std::string& now)
    {
        dropRoot(pending);
        for (const int mode : {CFG_WRITE_SAFE, CFG_WRITE_NEVER}) {
            const Handle fresh = boundTo(folder_.path(fileName), mode, CFG_LAYOUT_KEEP);
            require(fresh != nullptr, "what was written can be loaded", details(text_, now));
            Tree read;
            require(readTree(fresh.get(), read), "what was written can be read", failureIn(fresh.get()));
            dropRoot(read);
            // Without safe mode, lines that are kept have another form.
            require(mode == CFG_WRITE_NEVER || joined(read) == joined(pending), "it loads as the tree that was meant",
                    joined(pending) + "--- read\n" + joined(read) + details(text_, now));
            require(rendered(mode == CFG_WRITE_SAFE ? fresh.get() : handle_.get()) == now,
                    "what was written renders as it stands", details(text_, now));
        }
        if (cfg_commit_s(twin) != 0) {
            ++tally_.refusedInOwnForm;
            return;
        }
        const Handle fresh = boundTo(folder_.path(twinName), CFG_WRITE_SAFE, CFG_LAYOUT_OWN);
        Tree read;
        require(fresh != nullptr && readTree(fresh.get(), read), "what was written in own form can be read");
        dropRoot(read);
        require(joined(read) == joined(pending), "it loads as it does in the library's own form",
                joined(pending) + "--- read\n" + joined(read) + details(text_, now));
    }

    void requireText(const Reading& before, const Tree& after, const Deeds& deeds, const std::string& now) const
    {
        const Ownership ownership(before, after, deeds);
        requireLines(before, ownership, now, details(text_, now));
        const Reading reading(now);
        for (std::size_t index = 1; index < before.entries.size(); ++index) {
            if (!ownership.isGone(before.entries[index])) {
                requirePlaces(before, reading, ownership, index, now);
            }
        }
        for (const Entry& entry : reading.entries) {
            if (!entry.text.empty() && ownership.isNew(entry.text)) {
                requireNewEntry(reading, ownership, entry, now);
            }
        }
        const bool mayTakeDefaults = deeds.changesRoot && before.entries.front().places.size() > 1;
        if (deeds.isLoose || mayTakeDefaults || isSetAmidPlaces(before, deeds)) {
            return;
        }
        const auto balance =
            static_cast<std::ptrdiff_t>(commentsIn(reading)) - static_cast<std::ptrdiff_t>(commentsIn(before));
        require(balance <= ownership.commentsBalance && balance >= ownership.commentsBalance - deeds.unseen,
                "as many comment lines come and go as was asked for",
                std::to_string(balance) + " for " + std::to_string(ownership.commentsBalance) + "\n" +
                    details(text_, now));
        for (const auto& [target, text] : deeds.comments) {
            if (const auto comment = commentOf(handle_.get(), target.first, target.second)) {
                // What stood above a line that went may stand beside it now.
                const bool takesMore =
                    std::find(ownership.fates.begin(), ownership.fates.end(), Ownership::goes) != ownership.fates.end();
                require(*comment == text || (takesMore && comment->find(text) != std::string::npos),
                        "a comment that was set is there", *comment + "\n" + details(text_, now));
            }
        }
    }

    /// A comment of an entry that stands in several places, between which another goes: what parts its blocks changes.
    static bool isSetAmidPlaces(const Reading& before, const Deeds& deeds)
    {
        return !deeds.erased.empty() &&
               std::any_of(before.entries.begin(), before.entries.end(), [&](const Entry& entry) {
                   return entry.places.size() > 1 && deeds.comments.count({entry.text, ""}) != 0;
               });
    }

    /// The lines of an entry that stays come in the order of the rules.
    void requirePlaces(const Reading& before, const Reading& reading, const Ownership& ownership, std::size_t index,
                       const std::string& now) const
    {
        const std::string& dn = before.entries[index].text;
        const auto entry = std::find_if(reading.entries.begin(), reading.entries.end(),
                                        [&](const Entry& other) { return other.text == dn; });
        require(entry != reading.entries.end(), "an entry that stays is there", details(text_, now));
        const auto told = Ownership::toldIn(reading, static_cast<std::size_t>(entry - reading.entries.begin()));
        const auto wanted = ownership.wantedOf(index);
        if (told == wanted) {
            return;
        }
        std::string all = dn + "\n";
        for (const auto* const side : {&wanted, &told}) {
            all += side == &wanted ? "- wanted\n" : "- found\n";
            for (const std::string& line : *side) {
                all += line + "\n";
            }
        }
        throw Broken("values come in the places of the rules\n" + all + details(text_, now));
    }

    /// A new entry stands behind all that the file told of the subtree of its nearest ancestor, other new ones apart,
    /// with a blank line before it and behind.
    void requireNewEntry(const Reading& reading, const Ownership& ownership, const Entry& entry,
                         const std::string& now) const
    {
        const std::string what = entry.text + "\n" + details(text_, now);
        require(entry.places.size() == 1, "a new entry has one place", what);
        LDIF_DN host = entry.dn;
        const auto isHost = [&](const Entry& other) {
            return other.dn == host && (other.text.empty() || !ownership.isNew(other.text));
        };
        do {
            host.pop_back();
        } while (std::none_of(reading.entries.begin(), reading.entries.end(), isHost));
        const auto [begin, end] = entry.places.front();
        require(end == reading.lines.size() ||
                    reading.of(reading.lines[end]).find_first_not_of("\r\n") == std::string_view::npos,
                "a blank line follows a new entry", what);
        std::size_t above = begin;
        while (above > 0 && reading.lines[above - 1].kind == Line::comment) {
            --above;
        }
        require(above == 0 || reading.of(reading.lines[above - 1]).find_first_not_of("\r\n") == std::string_view::npos,
                "a blank line stands before a new entry", what);
        const auto isOld = [&](const Line& line) {
            const std::string& dn = reading.entries[line.entry].text;
            return line.kind >= Line::dn && (dn.empty() || !ownership.isNew(dn));
        };
        for (std::size_t line = above; line > 0; --line) {
            const Line& candidate = reading.lines[line - 1];
            if (isOld(candidate)) {
                require(isWithin(reading.entries[candidate.entry].dn, host),
                        "a new entry stands directly behind its ancestor's subtree", what);
                break;
            }
        }
        for (std::size_t line = end; line < reading.lines.size(); ++line) {
            require(!isOld(reading.lines[line]) || !isWithin(reading.entries[reading.lines[line].entry].dn, host),
                    "a new entry stands behind its ancestor's subtree", what);
        }
    }

    /// A line that begins with white space stands there only because no attribute line is above it: to bring one there,
    /// another value of its own attribute among them, is a reason to refuse.
    void refused(const Reading& before, const Ownership& ownership, bool changesRoot, const std::string& now,
                 void* twin)
    {
        require(now == text_, "what is refused leaves the file's bytes", details(text_, now));
        const int code = cfg_get_errno(handle_.get());
        const std::string words = std::to_string(code) + ", in own form " + std::to_string(cfg_commit_s(twin));
        const std::string failure = failureIn(handle_.get());
        // The root's own rules are the other one; an empty DN brings its defaults back, but is no entry.
        bool joins = changesRoot && (code == 65 || before.entries.front().places.size() > 1);
        for (std::size_t line = 1; line < before.lines.size(); ++line) {
            joins =
                joins || (before.beginsWithBlank(before.lines[line]) &&
                          (ownership.fates[line - 1] != Ownership::stays || ownership.isChanged(before.lines[line])));
        }
        require(joins, "the layout is no reason to refuse", words + "\n" + failure + "\n" + details(text_, now));
        ++tally_.refusedCommits[words];
    }

    // ---- There and back ----

    /// True when each line of a block stands in the file as a call that sets it would write it.
    bool isSpelledByTheLibrary(const std::string& comment) const
    {
        const Texts lines = physicalLines(comment + "\n");
        return !comment.empty() && std::all_of(lines.begin(), lines.end(), [this](const std::string& line) {
            return line == "\n" ? text_.find("#\n") != std::string::npos
                                : text_.find("\n# " + line) != std::string::npos || text_.starts_with("# " + line);
        });
    }

    bool thereAndBack(const Tree& tree, const Change& change)
    {
        const auto aimed = aim(tree, change);
        if (!aimed) {
            return false;
        }
        say(*aimed);
        void* const handle = handle_.get();
        if (aimed->kind == Change::comment) {
            const auto comment = commentOf(handle, aimed->dn, aimed->attribute);
            if (!comment || apply(handle, *aimed) != 0) {
                return false;
            }
            Aimed back = *aimed;
            back.text = *comment;
            say(back);
            return isSpelledByTheLibrary(*comment) && apply(handle, back) == 0;
        }
        if (apply(handle, *aimed) != 0) {
            return false;
        }
        if (aimed->kind == Change::add) {
            return apply(handle, {Change::erase, aimed->dn, "", "", {}}) == 0;
        }
        if (aimed->kind != Change::modify) {
            return false;
        }
        // Every attribute gets the values that it had, in their order.
        Aimed back{Change::modify, aimed->dn, "", "", {}};
        std::set<std::string, LessName> names;
        for (const auto& mod : aimed->mods) {
            names.insert(mod.type);
        }
        const auto entry =
            std::find_if(tree.begin(), tree.end(), [&](const TreeEntry& other) { return other.dn == aimed->dn; });
        for (const std::string& name : names) {
            const auto had = std::find_if(entry->attributes.begin(), entry->attributes.end(), [&](const auto& other) {
                return strcasecmp(other.first.c_str(), name.c_str()) == 0;
            });
            back.mods.push_back({LDAP_MOD_REPLACE, name,
                                 had == entry->attributes.end() ? std::optional<Texts>() : std::optional(had->second)});
        }
        say(back);
        return apply(handle, back) == 0;
    }

    const TemporaryFolder& folder_;
    Tally own_;
    Tally& tally_;
    std::string text_;
    Handle handle_;
    std::string said_;
};

} // namespace veltor::test::layout

#endif
