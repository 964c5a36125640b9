// DNs are compared as they are printed: in their normal form, but in any letter case.
#include "stored_tree.h"

#include "failure.h"
#include "names.h"

#include <algorithm>

namespace veltor::tool {

namespace {

std::string folded(std::string_view dn)
{
    std::string result(dn);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return result;
}

std::vector<std::string_view> differingAttributes(const cfg_message& before, const cfg_message& after)
{
    std::vector<std::string_view> names;
    for (const cfg_message* attribute = after.children; attribute != nullptr; attribute = attribute->next) {
        if (valuesOf(attribute) != valuesOf(attributeOf(before, textOf(*attribute)))) {
            names.push_back(textOf(*attribute));
        }
    }
    for (const cfg_message* attribute = before.children; attribute != nullptr; attribute = attribute->next) {
        if (attribute->children != nullptr && attributeOf(after, textOf(*attribute)) == nullptr) {
            names.push_back(textOf(*attribute));
        }
    }
    return names;
}

} // namespace

StoredValues valuesOf(const cfg_message* attribute)
{
    StoredValues values;
    for (const cfg_message* value = attribute == nullptr ? nullptr : attribute->children; value != nullptr;
         value = value->next) {
        values.push_back(textOf(*value));
    }
    return values;
}

const cfg_message* attributeOf(const cfg_message& entry, std::string_view name)
{
    const cfg_message* attribute = entry.children;
    while (attribute != nullptr && !sameName(textOf(*attribute), name)) {
        attribute = attribute->next;
    }
    return attribute;
}

StoredTree::StoredTree(void* handle)
{
    const int code = cfg_read_s(handle, "", LDAP_SCOPE_SUBTREE, results_.receiver());
    if (code != LDAP_SUCCESS) {
        throw libraryFailure(handle, code, {Stage::search, ""});
    }
    for (const cfg_message* entry = results_.first(); entry != nullptr; entry = entry->next) {
        entries_.push_back(entry);
        byDn_.emplace(folded(textOf(*entry)), entry);
    }
}

const cfg_message* StoredTree::find(const cfg_message& other) const
{
    return find(textOf(other));
}

const cfg_message* StoredTree::find(std::string_view dn) const
{
    const auto found = byDn_.find(folded(dn));
    return found == byDn_.end() ? nullptr : found->second;
}

std::vector<EntryDifference> differencesOf(const StoredTree& before, const StoredTree& after)
{
    std::vector<EntryDifference> differences;
    for (auto entry = before.entries().rbegin(); entry != before.entries().rend(); ++entry) {
        if (after.find(**entry) == nullptr) {
            differences.push_back({*entry, nullptr, {}});
        }
    }
    for (const cfg_message* entry : after.entries()) {
        const cfg_message* const old = before.find(*entry);
        std::vector<std::string_view> names =
            old == nullptr ? std::vector<std::string_view>() : differingAttributes(*old, *entry);
        if (old == nullptr || !names.empty()) {
            differences.push_back({old, entry, std::move(names)});
        }
    }
    return differences;
}

} // namespace veltor::tool
