// The library's drawing of the tree, made fit for a terminal.
#ifndef VELTOR_TOOL_TREE_DRAWING_H
#define VELTOR_TOOL_TREE_DRAWING_H

#include <string>
#include <string_view>

namespace veltor::tool {

/// A drawing with the line characters of code page 437, with those of Unicode in their place. DNs are escaped;
/// bytes of a DN that look like lines are not taken for lines.
std::string unicodeTree(std::string_view drawing);

/// A drawing in ASCII, its DNs escaped.
std::string asciiTree(std::string_view drawing);

} // namespace veltor::tool

#endif
