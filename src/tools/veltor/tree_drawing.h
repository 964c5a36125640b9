// The entries of a configuration as a tree, drawn line by line for a terminal.
#ifndef VELTOR_TOOL_TREE_DRAWING_H
#define VELTOR_TOOL_TREE_DRAWING_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// An entry in the order of the tree: behind its parent and before what is below the parent's next child.
struct Branch
{
    std::string dn;
    std::size_t depth = 0; ///< 0 at the top; missing ancestors don't count
    bool lastChild = true; ///< of its nearest ancestor
    bool orphan = false;   ///< an ancestor is missing between it and the nearest one
};

struct Tree
{
    std::vector<Branch> branches;
    std::vector<std::string> missing; ///< DNs of missing ancestors, ancestors first
};

/// The tree that DNs in tree order make.
/// @param dns    as the library prints them, without the empty one of the root
Tree treeOf(const std::vector<std::string>& dns);

/// The drawing, with DNs escaped.
/// @param suffixes  name those at the top so
std::string drawn(const Tree& tree, bool ascii, bool suffixes);

} // namespace veltor::tool

#endif
