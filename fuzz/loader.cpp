// The loader. Any bytes load or are refused with a place in the file; what a load leaves in memory is written as it
// prints, and loads again as the same tree, which prints the same. Where the library's own form can't say something,
// that is told apart below by what the tree holds.
#include "LDIF_File.h"
#include "fuzz.h"

#include <algorithm>
#include <memory>
#include <sstream>

using namespace veltor::fuzz;
using veltor::detail::TreeWalk;

namespace {

struct Loaded
{
    std::unique_ptr<MemoryFile> file;
    std::unique_ptr<LDIF_File> store; // null: the load failed
    std::optional<LDIF_Exception> failure;
};

Loaded load(std::string_view text)
{
    Loaded loaded;
    loaded.file = std::make_unique<MemoryFile>(text);
    loaded.failure = failureOf([&] { loaded.store = std::make_unique<LDIF_File>(loaded.file->name(), std::string()); });
    return loaded;
}

std::string written(const LDIF_File& store)
{
    std::ostringstream stream;
    stream << store.root;
    return stream.str() + store.trailingComment.str();
}

/// The tree as text, without its comments: a root comment moves to the first root attribute when it is read back.
std::string told(const LDIF_Entry& root)
{
    std::string text;
    for (TreeWalk walk(root); walk.current() != nullptr; walk.next()) {
        const LDIF_Entry& entry = *walk.current();
        text += std::to_string(walk.depth()) + " [" + entry.dnLabel + "] [" + entry.dn.str() + "] [" +
                entry.relDn.str() + "]\n";
        for (const LDIF_Attribute& attribute : entry.attributes) {
            text += " [" + attribute.name + "]";
            for (const LDIF_Value& value : attribute.values) {
                text += " [" + std::string(value.text()) + "]";
            }
            text += "\n";
        }
    }
    return text;
}

// ---- What the library's own form can't say ----

bool isBlankOrParenthesis(wchar_t character)
{
    return w_my_isspace(character) || w_my_isparen(character);
}

/// A value whose ends the reader would strip, or that does not stay on its line.
bool valueIsLost(std::string_view value)
{
    if (value.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos) {
        return true;
    }
    std::wstring wide;
    if (failureOf([&] { wide = multibyte2wide(std::string(value)); })) {
        return true;
    }
    return !wide.empty() && (isBlankOrParenthesis(wide.front()) || isBlankOrParenthesis(wide.back()));
}

/// A DN that prints as another one, or with a line feed in it.
bool dnIsLost(const LDIF_DN& dn)
{
    const auto isWideBlank = [](wchar_t character) { return character > 0x7F && w_my_isspace(character); };
    for (const LDIF_RDN& rdn : dn) {
        for (const LDIF_RDN_pair& pair : rdn) {
            const LDIF_RDN_value& value = pair.second;
            if (value.form == LDIF_RDN_value::binary) {
                continue;
            }
            std::wstring wide;
            if (failureOf([&] { wide = multibyte2wide(value); }) ||
                value.find_first_of(std::string_view("\n\r\0", 3)) != std::string::npos ||
                std::any_of(wide.begin(), wide.end(), isWideBlank) ||
                (value.form == LDIF_RDN_value::plain && isBlankOrParenthesis(wide.front()))) {
                return true;
            }
        }
    }
    return false;
}

/// A name that continues what stands above it.
bool nameIsLost(const std::string& name)
{
    const std::wstring wide = multibyte2wide(name);
    return wide.empty() || w_my_isspace(wide.front());
}

bool isLost(const LDIF_Entry& entry)
{
    // A line without a colon that begins with "dn" and happens to be a DN opens an entry under the name for what can't
    // be used, which is no DN line any more when it is written.
    const bool isKeptLine = !entry.dnLabel.empty() && entry.dnLabel != "dn";
    if (isKeptLine || dnIsLost(entry.dn)) {
        return true;
    }
    for (const LDIF_Attribute& attribute : entry.attributes) {
        if (nameIsLost(attribute.name)) {
            return true;
        }
        for (const LDIF_Value& value : attribute.values) {
            if (valueIsLost(value.text()) || (value.dn() != nullptr && dnIsLost(*value.dn()))) {
                return true;
            }
        }
    }
    return false;
}

/// An empty DN brings attributes into the root that a file can't have there.
bool rootIsLost(const LDIF_Entry& root)
{
    return std::any_of(root.attributes.begin(), root.attributes.end(), [](const LDIF_Attribute& attribute) {
        return (attribute.name != "version" && attribute.name != "charset") || attribute.values.size() != 1;
    });
}

bool isLost(const LDIF_File& store)
{
    if (rootIsLost(store.root)) {
        return true;
    }
    for (TreeWalk walk(store.root); walk.current() != nullptr; walk.next()) {
        if (isLost(*walk.current())) {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    useLocale("C.UTF-8");
    const auto text = textOf(data, size);
    const Loaded first = load(text);
    if (first.failure) {
        const LDIF_Exception& failure = *first.failure;
        const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
        require(failure.configFile == first.file->name(), "a refused load names the file", failure.dump());
        require(failure.configLine >= 0 && failure.configLine <= lines + 1, "a refused load names a line",
                failure.dump());
        return 0;
    }
    LDIF_File& store = *first.store;
    std::string print;
    const auto unprintable = failureOf([&] { print = written(store); });
    const auto unwritten = failureOf([&] { store.flush(); });
    require(unprintable.has_value() == unwritten.has_value(), "what prints can be written", reasonOf(unprintable),
            reasonOf(unwritten));
    if (unprintable) {
        require(unprintable->extErr == 1013 || unprintable->extErr == 162, "a tree fails to print with its own codes",
                reasonOf(unprintable));
        return 0;
    }
    requireSame("a tree is written as it prints", print, first.file->content());
    require(!store.refresh(), "what was written is not read back");

    const Loaded second = load(print);
    if (isLost(store)) {
        return 0;
    }
    require(!second.failure, "what was written can be loaded", print, reasonOf(second.failure));
    requireSame("it loads as the same tree", told(store.root), told(second.store->root));
    requireSame("it is written the same again", print, written(*second.store));
    requireSame("loading it does not write it", print, second.file->content());
    return 0;
}
