// What a misspelt word may have meant.
#ifndef VELTOR_TOOL_NEAREST_H
#define VELTOR_TOOL_NEAREST_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// How many letters of a word were put in, left out, replaced, or exchanged with their neighbour. For words that are
/// longer than any of ours a number that is beyond all others.
std::size_t typosBetween(std::string_view left, std::string_view right);

/// So many typos make a misspelt word: one letter in four, and one in any case.
std::size_t mostTypos(std::string_view given);

/// Those of the words that the given one misspells least; else those that it begins.
std::vector<std::string> nearestWords(std::string_view given, const std::vector<std::string>& words);

/// "; did you mean a, b or c?"; "" for no words.
std::string didYouMean(const std::vector<std::string>& words);

} // namespace veltor::tool

#endif
