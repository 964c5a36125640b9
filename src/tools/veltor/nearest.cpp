// The words are few, so each is compared.
#include "nearest.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace veltor::tool {

namespace {

// Names longer than this are no misspelling of one of the catalogue, whose longest has 36 characters.
constexpr std::size_t longestTypo = 64;
// A shorter text begins too many words to be a hint.
constexpr std::size_t shortestBeginning = 3;

} // namespace

std::size_t typosBetween(std::string_view left, std::string_view right)
{
    using Row = std::array<std::size_t, longestTypo + 1>;
    if (left.size() > longestTypo || right.size() > longestTypo) {
        return longestTypo;
    }
    Row beforeLast{}, last{}, row{};
    std::iota(last.begin(), last.end(), 0U);
    for (std::size_t i = 1; i <= left.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast = last;
        last = row;
    }
    return last[right.size()];
}

std::size_t mostTypos(std::string_view given)
{
    return 1 + given.size() / 4;
}

std::vector<std::string> nearestWords(std::string_view given, const std::vector<std::string>& words)
{
    std::size_t fewest = mostTypos(given);
    std::vector<std::string> nearest;
    std::vector<std::string> begun;
    for (const std::string& word : words) {
        const std::size_t typos = typosBetween(given, word);
        if (typos < fewest) {
            nearest.clear();
        }
        // As many typos as there are letters make any word of any other.
        if (typos <= fewest && typos < std::min(word.size(), given.size())) {
            fewest = typos;
            nearest.push_back(word);
        }
        if (given.size() >= shortestBeginning && word.starts_with(given)) {
            begun.push_back(word);
        }
    }
    return nearest.empty() ? begun : nearest;
}

std::string didYouMean(const std::vector<std::string>& words)
{
    std::string question;
    for (std::size_t index = 0; index < words.size(); ++index) {
        question += index == 0 ? "; did you mean " : index + 1 == words.size() ? " or " : ", ";
        question += words[index];
    }
    return question.empty() ? question : question + '?';
}

} // namespace veltor::tool
