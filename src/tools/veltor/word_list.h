// Words one behind the other.
#ifndef VELTOR_TOOL_WORD_LIST_H
#define VELTOR_TOOL_WORD_LIST_H

#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

inline std::string joined(const std::vector<std::string>& words, std::string_view separator = ", ")
{
    std::string out;
    for (const std::string& word : words) {
        out.append(out.empty() ? "" : separator).append(word);
    }
    return out;
}

} // namespace veltor::tool

#endif
