// Works on lists, so that a tree may be as deep as a file makes it: nothing here calls itself.
#include "tree_drawing.h"

#include "dn_text.h"
#include "escape.h"
#include "names.h"
#include "secrets.h"

#include <algorithm>
#include <set>

namespace veltor::tool {

namespace {

struct Pencil
{
    const char *top, *branch, *lastBranch; ///< in front of a DN
    const char *goesOn, *ended;            ///< column of a level above
    bool spaced;                           ///< a line of its own between two entries
};

constexpr Pencil asciiPencil{"- ", "    +- ", "    +- ", "    |", "     ", true};
constexpr Pencil unicodePencil{"\u2500 ", "    \u251C\u2500 ", "    \u2514\u2500 ", "    \u2502", "     ", false};

constexpr std::string_view undefinedHeading = "\n* the following entries are undefined:\n";

bool isBelow(std::string_view dn, std::string_view ancestor)
{
    while (dn.size() > ancestor.size()) {
        dn = parentOf(dn);
    }
    return !dn.empty() && sameName(dn, ancestor);
}

// From the top down, those between an entry and the nearest one above it.
void noteMissing(std::string_view dn, std::string_view ancestor, std::set<std::string>& noted,
                 std::vector<std::string>& missing)
{
    std::vector<std::string_view> between;
    for (std::string_view above = parentOf(dn); above.size() > ancestor.size(); above = parentOf(above)) {
        between.push_back(above);
    }
    for (auto above = between.rbegin(); above != between.rend(); ++above) {
        if (noted.emplace(*above).second) {
            missing.emplace_back(*above);
        }
    }
}

} // namespace

Tree treeOf(const std::vector<std::string>& dns)
{
    Tree tree;
    tree.branches.reserve(dns.size());
    std::set<std::string> noted;
    std::vector<std::size_t> open;   // the ancestors of the current entry, by their place in the list
    std::vector<std::size_t> lastAt; // for each level the last child so far
    for (const std::string& dn : dns) {
        while (!open.empty() && !isBelow(dn, tree.branches[open.back()].dn)) {
            open.pop_back();
        }
        const std::string_view ancestor = open.empty() ? std::string_view() : tree.branches[open.back()].dn;
        const std::size_t depth = open.size();
        // A level that is left ends there.
        lastAt.resize(std::min(lastAt.size(), depth + 1));
        if (lastAt.size() == depth + 1) {
            tree.branches[lastAt[depth]].lastChild = false;
            lastAt[depth] = tree.branches.size();
        } else {
            lastAt.push_back(tree.branches.size());
        }
        const bool orphan = parentOf(dn).size() != ancestor.size();
        // At the top nothing is missing: a suffix may have any number of names.
        if (orphan && depth > 0) {
            noteMissing(dn, ancestor, noted, tree.missing);
        }
        open.push_back(tree.branches.size());
        tree.branches.push_back({dn, depth, true, orphan && depth > 0});
    }
    return tree;
}

std::string drawn(const Tree& tree, bool ascii, bool suffixes)
{
    const Pencil& pencil = ascii ? asciiPencil : unicodePencil;
    std::string out;
    std::vector<std::size_t> ends{0}; // where the columns of each level that is drawn end
    std::string columns;
    for (const Branch& branch : tree.branches) {
        ends.resize(std::max<std::size_t>(1, std::min(ends.size(), branch.depth)));
        columns.resize(ends.back());
        if (branch.depth == 0) {
            out += '\n' + std::string(pencil.top) + escaped(shownDn(branch.dn)) + (suffixes ? " (suffix)" : "") + '\n';
        } else {
            if (pencil.spaced) {
                out += columns + pencil.goesOn + '\n';
            }
            out += columns + (branch.lastChild ? pencil.lastBranch : pencil.branch) + escaped(shownDn(branch.dn)) +
                   (branch.orphan ? " *" : "") + '\n';
            columns += branch.lastChild ? pencil.ended : pencil.goesOn;
            ends.push_back(columns.size());
        }
    }
    if (!tree.missing.empty()) {
        out += undefinedHeading;
        for (const std::string& dn : tree.missing) {
            out += escaped(shownDn(dn)) + '\n';
        }
    }
    return out;
}

} // namespace veltor::tool
