// Entries of the tree, copied out into the nodes of a result that the caller owns.
#include "result_copy.h"

#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"
#include "result_nodes.h"

#include "veltor/platform.h"

#include <array>
#include <cstring>
#include <string>
#include <string_view>

namespace veltor::detail {

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

} // namespace

void copyOut(const std::vector<const LDIF_Entry*>& found, const LDIF_AttrFilter& wanted, PasswordForm passwords,
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
            const bool decode = passwords == PasswordForm::clear && attribute.values.type->match == passwordMatch;
            Chain values(attributes.append(make.withCopy(attributeNode, attribute.name.c_str())).children);
            for (const auto& value : attribute.values) {
                values.append(decode ? make.withClearText(valueNode, decodedText(value, dn.c_str(), attribute))
                                     : make.withCopy(valueNode, textForm(value, copy).data()));
            }
        }
    }
}

} // namespace veltor::detail
