// cfg_search_s: a search of the store, copied out into nodes that the caller owns.
#include "LDIF_Search.h"
#include "read.h"
#include "result_copy.h"

#include "veltor/cfg.h"

#include <algorithm>
#include <string>
#include <string_view>

using namespace veltor::detail;

namespace {

/// Takes off white space and one pair of parentheses that encloses the whole: the first that opens closes last.
std::string bareFilter(const char* filter)
{
    constexpr std::string_view space = " \t\n\v\f\r";
    std::string_view text = filter == nullptr ? "" : filter;
    const auto trim = [&] {
        text.remove_prefix(std::min(text.find_first_not_of(space), text.size()));
        text.remove_suffix(text.size() - (text.find_last_not_of(space) + 1));
    };
    trim();
    if (text.size() < 2 || text.front() != '(' || text.back() != ')') {
        return std::string(text);
    }
    std::size_t depth = 0;
    for (std::size_t position = 0; position + 1 < text.size(); ++position) {
        depth += text[position] == '(' ? 1 : 0;
        depth -= text[position] == ')' ? 1 : 0;
        if (depth == 0) {
            return std::string(text);
        }
    }
    text = text.substr(1, text.size() - 2);
    trim();
    return std::string(text);
}

} // namespace

int cfg_search_s(void* handle, const char* base, int scope, const char* filter, char** attrs, int, cfg_message** res)
{
    return runEntryRead(handle, res, {VELTOR_HERE, "System error in cfg_search_s()"},
                        [&](LDIF_File& store, cfg_message*& first) {
                            LDIF_DN dn;
                            dn = cisString(base == nullptr ? "" : base);
                            LDIF_Filter parsedFilter;
                            parsedFilter = bareFilter(filter);
                            LDIF_AttrFilter attributes;
                            for (char** name = attrs; name != nullptr && *name != nullptr; ++name) {
                                attributes.insert(*name);
                            }
                            copyOut(store.select(dn, scopeOf(scope), parsedFilter), attributes,
                                    store.getAuthentication() != 0 ? PasswordForm::clear : PasswordForm::stored, first);
                        });
}
