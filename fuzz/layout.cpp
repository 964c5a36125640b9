// Safe writes that keep the layout. Whatever a file says that loads, and whatever changes are made of it: without a
// change the bytes are the same; the lines that no change owns are all there, byte for byte and in order; values and
// new entries come in the places of the rules; comment lines come and go as was asked for; and what was written loads
// as the tree that was meant, which is also that of the library's own form. A commit is refused for one reason alone.
//
// An input is a file up to a line "%%", and behind it changes, a line each; an empty line ends a set. N picks an entry.
//
//   aN RDN|NAME~VALUE~VALUE|...   adds an entry above the picked one's DN; a*RDN: with that DN alone
//   mN+NAME~VALUE|-NAME|=NAME~VALUE~VALUE|...
//                                 adds, deletes, replaces; "#3" for a name or a value picks one that is there
//                                 m*...: the root
//   dN, DN                        deletes an entry, or a subtree
//   cNtext, cN|NAME|text          sets the comment of an entry, or of an attribute; "/" is the end of a line
#include "fuzz.h"
#include "support/layout_trial.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

using namespace veltor::fuzz;
using veltor::test::TemporaryFolder;
using veltor::test::layout::Broken;
using veltor::test::layout::Change;
using veltor::test::layout::ChangeSet;
using veltor::test::layout::Trial;

namespace {

std::string plain(std::string_view text)
{
    // C strings are handed over.
    return std::string(text.substr(0, text.find('\0')));
}

/// "#3" is a number.
std::optional<std::size_t> numberOf(std::string_view text)
{
    if (text.size() != 2 || text[0] != '#' || std::isdigit(static_cast<unsigned char>(text[1])) == 0) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(text[1] - '0');
}

Change::Mod modOf(std::string_view text, bool hasOperation)
{
    Change::Mod mod;
    if (hasOperation && !text.empty()) {
        mod.operation = text[0] == '-'   ? LDAP_MOD_DELETE
                        : text[0] == '=' ? LDAP_MOD_REPLACE
                        : text[0] == '+' ? LDAP_MOD_ADD
                                         : 7;
        text.remove_prefix(1);
    }
    mod.hasValues = text.find('~') != std::string_view::npos;
    const std::string_view name = takeUpTo(text, "~");
    mod.attribute = numberOf(name);
    mod.name = plain(name);
    for (bool more = mod.hasValues; more;) {
        more = text.find('~') != std::string_view::npos;
        const std::string_view value = takeUpTo(text, "~");
        mod.present.push_back(numberOf(value));
        if (!mod.present.back()) {
            mod.texts.push_back(plain(value));
        }
    }
    return mod;
}

/// @return false for a line that is no change
bool changeOf(std::string_view line, Change& change)
{
    constexpr std::size_t longest = 200;
    if (line.size() < 2 || line.size() > longest) {
        return false;
    }
    const char kind = line[0];
    change.onTop = line[1] == '*';
    change.entry = static_cast<unsigned char>(line[1]) - static_cast<unsigned char>('0') + 256U;
    change.entry %= 256;
    line.remove_prefix(2);
    switch (kind) {
    case 'a':
        change.kind = Change::add;
        change.rdn = plain(takeUpTo(line, "|"));
        break;
    case 'm':
        change.kind = Change::modify;
        break;
    case 'd':
        change.kind = Change::erase;
        return true;
    case 'D':
        change.kind = Change::eraseSubtree;
        return true;
    case 'c':
        change.kind = Change::comment;
        change.ofEntry = !line.starts_with('|');
        if (!change.ofEntry) {
            line.remove_prefix(1);
            change.mods.push_back(modOf(takeUpTo(line, "|"), false));
        }
        change.text = plain(line);
        std::replace(change.text.begin(), change.text.end(), '/', '\n');
        // A last line that is empty is none.
        change.text.erase(change.text.find_last_not_of('\n') + 1);
        return true;
    default:
        return false;
    }
    while (!line.empty()) {
        change.mods.push_back(modOf(takeUpTo(line, "|"), change.kind == Change::modify));
    }
    return true;
}

std::vector<ChangeSet> setsOf(std::string_view rest)
{
    constexpr std::size_t most = 12;
    std::vector<ChangeSet> sets(1);
    std::size_t changes = 0;
    while (!rest.empty() && changes < most) {
        const std::string_view line = takeUpTo(rest, "\n");
        Change change;
        if (line.empty()) {
            sets.emplace_back();
        } else if (changeOf(line, change)) {
            sets.back().push_back(std::move(change));
            ++changes;
        }
    }
    return sets;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    // What cfg_init takes the locale from.
    setenv("LC_ALL", "C.UTF-8", 1);
    useLocale("C.UTF-8");
    std::string_view rest = textOf(data, size);
    const std::string text(takeUpTo(rest, "%%\n"));
    try {
        Trial(folder, nullptr).run(text, setsOf(rest));
    } catch (const Broken& broken) {
        find(broken.what());
    }
    return 0;
}
