// cfg_search_s: a search of the store, copied out into nodes that the caller owns.
#include "LDIF_AttrType.h"
#include "LDIF_Search.h"
#include "LDIF_Util.h"
#include "handle.h"
#include "result_nodes.h"

#include "veltor/cfg.h"
#include "veltor/platform.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

/// Appends nodes to a chain of one level. What is appended is reachable from the result at once, so that a
/// failure half-way can free everything.
class Chain
{
public:
    explicit Chain(cfg_message*& first) : end_(&first) {}

    cfg_message& append(cfg_message* node)
    {
        *end_ = node;
        end_ = &node->next;
        return *node;
    }

private:
    cfg_message** end_;
};

enum NodeKind { entryNode = 0, attributeNode = 1, valueNode = 2 };

LDIF_Search_Results::Scope scopeOf(int scope)
{
    switch (scope) {
    case LDIF_Search_Results::oneLevel:
        return LDIF_Search_Results::oneLevel;
    case LDIF_Search_Results::subtree:
        return LDIF_Search_Results::subtree;
    default:
        return LDIF_Search_Results::base;
    }
}

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

/// The text form of a value: borrowed where the type stores it as it is, else the copy. A NUL ends it at the latest.
std::string_view textForm(const LDIF_Value& value, std::string& copy)
{
    if (value.attrType != nullptr && value.attrType->toStr == cesToStr) {
        return value.text();
    }
    copy = value.str();
    return copy;
}

/// The clear text of a stored password.
ClearText decodedText(const LDIF_Value& value, const char* entryDn, const LDIF_Attribute& attribute)
{
    constexpr std::size_t usualSize = 256;
    std::array<char, usualSize> usual;
    std::vector<char> large;
    std::string copy;
    const std::string_view stored = textForm(value, copy);
    char* encoded = usual.data();
    if (stored.size() >= usualSize) {
        large.resize(stored.size() + 1);
        encoded = large.data();
    }
    std::memcpy(encoded, stored.data(), stored.size() + 1);
    char* clear = nullptr;
    if (const int code = _slapd_utils_decode_buffer(encoded, &clear); code != 0) {
        LDIF_Exception failure(VELTOR_HERE, code, code, "_slapd_utils_decode_buffer();");
        failure.value = stored;
        failure.attrType = value.attrType;
        failure.entryDn = entryDn;
        failure.attribute = attribute.name;
        throw failure;
    }
    return ClearText(clear);
}

/// Copies entries into nodes, with the attributes that were asked for.
///
/// @param first  receives the first node as soon as there is one, so that a failure can free what was made
void copyOut(const std::vector<const LDIF_Entry*>& found, const LDIF_AttrFilter& wanted, bool decodes,
             cfg_message*& first)
{
    if (found.empty()) {
        return;
    }
    const auto passwordMatch = getAttrType("zor-slapdAdminPW")->match;
    std::string dn;
    std::string copy;
    NodeMaker make;
    Chain entries(first);
    for (const LDIF_Entry* const entry : found) {
        dn.clear();
        appendTo(dn, entry->dn);
        Chain attributes(entries.append(make.withCopy(entryNode, dn.c_str())).children);
        for (const auto& attribute : entry->attributes) {
            if (!wanted.empty() && wanted.count(attribute.name) == 0) {
                continue;
            }
            const bool decode = decodes && attribute.values.type->match == passwordMatch;
            Chain values(attributes.append(make.withCopy(attributeNode, attribute.name.c_str())).children);
            for (const auto& value : attribute.values) {
                values.append(decode ? make.withClearText(valueNode, decodedText(value, dn.c_str(), attribute))
                                     : make.withCopy(valueNode, textForm(value, copy).data()));
            }
        }
    }
}

} // namespace

int cfg_search_s(void* handle, const char* base, int scope, const char* filter, char** attrs, int, cfg_message** res)
{
    if (res != nullptr) {
        *res = nullptr;
    }
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    if (!isBound(target) || res == nullptr) {
        return target.lastResult = result::paramError;
    }
    return runKept(target, {VELTOR_HERE, "System error in cfg_search_s()"}, [&] {
        try {
            target.store->refresh();
            LDIF_DN dn;
            dn = cisString(base == nullptr ? "" : base);
            LDIF_Filter parsedFilter;
            parsedFilter = bareFilter(filter);
            LDIF_AttrFilter attributes;
            for (char** name = attrs; name != nullptr && *name != nullptr; ++name) {
                attributes.insert(*name);
            }
            copyOut(target.store->select(dn, scopeOf(scope), parsedFilter), attributes,
                    target.store->getAuthentication() != 0, *res);
            return 0;
        } catch (const char*) {
            cfg_msgfree(*res);
            *res = nullptr;
            return result::noMemory;
        } catch (...) {
            cfg_msgfree(*res);
            *res = nullptr;
            throw;
        }
    });
}
