// Walking and releasing search results.
#include "handle.h"
#include "result_nodes.h"

#include "veltor/cfg.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <utility>

using namespace veltor::detail;
namespace result = veltor::result;

struct cfg_cursor
{
    cfg_message* attribute; // the one returned last
};

namespace {

int countNodes(const cfg_message* node)
{
    int count = 0;
    for (; node != nullptr; node = node->next) {
        ++count;
    }
    return count;
}

char* copyOrRecord(void* handle, const char* text)
{
    char* const copy = strdup(text);
    if (copy == nullptr) {
        record(handle, result::noMemory);
    }
    return copy;
}

/// What strcasecmp says of two names, mostly without a call of it: names that differ do so in letters that no locale
/// takes for the same.
bool isSameName(const char* left, const char* right)
{
    std::size_t common = 0;
    while (left[common] == right[common] && left[common] != '\0') {
        ++common;
    }
    const auto leftByte = static_cast<unsigned char>(left[common]);
    const auto rightByte = static_cast<unsigned char>(right[common]);
    constexpr unsigned letterCase = 0x20;
    constexpr unsigned beyondAscii = 0x80;
    if (leftByte == rightByte) {
        return true;
    }
    if (leftByte < beyondAscii && rightByte < beyondAscii && ((leftByte ^ rightByte) & ~letterCase) != 0) {
        return false;
    }
    return strcasecmp(left, right) == 0;
}

const cfg_message* findAttribute(const cfg_message& entry, const char* name)
{
    const cfg_message* attribute = entry.children;
    while (attribute != nullptr && (attribute->text == nullptr || !isSameName(attribute->text, name))) {
        attribute = attribute->next;
    }
    return attribute;
}

} // namespace

// A null handle is allowed in all of these: there is then nothing to reset and nowhere to record a code.

cfg_message* cfg_first_entry(void* handle, cfg_message* result)
{
    cfg_reset(handle);
    return result;
}

cfg_message* cfg_next_entry(void* handle, cfg_message* entry)
{
    cfg_reset(handle);
    return entry == nullptr ? nullptr : entry->next;
}

int cfg_count_entries(void* handle, cfg_message* result)
{
    // The reset's code comes back as if it were a count: callers of the classic interface know it.
    const int code = cfg_reset(handle);
    return code != 0 ? code : countNodes(result);
}

char* cfg_get_dn(void* handle, cfg_message* entry)
{
    cfg_reset(handle);
    if (entry == nullptr || entry->text == nullptr || entry->kind != 0) {
        record(handle, result::paramError);
        return nullptr;
    }
    return copyOrRecord(handle, entry->text);
}

char* cfg_first_attribute(void* handle, cfg_message* entry, cfg_cursor** cursor)
{
    cfg_reset(handle);
    if (cursor == nullptr) {
        record(handle, result::paramError);
        return nullptr;
    }
    *cursor = nullptr;
    if (entry == nullptr) {
        record(handle, result::paramError);
        return nullptr;
    }
    auto* const position = static_cast<cfg_cursor*>(std::calloc(1, sizeof(cfg_cursor)));
    if (position == nullptr) {
        record(handle, result::noMemory);
        return nullptr;
    }
    position->attribute = entry->children;
    if (position->attribute == nullptr || position->attribute->text == nullptr) {
        *cursor = position;
        return nullptr;
    }
    char* const name = copyOrRecord(handle, position->attribute->text);
    if (name == nullptr) {
        std::free(position);
        return nullptr;
    }
    *cursor = position;
    return name;
}

char* cfg_next_attribute(void* handle, cfg_message*, cfg_cursor* cursor)
{
    cfg_reset(handle);
    if (cursor == nullptr) {
        record(handle, result::paramError);
        return nullptr;
    }
    if (cursor->attribute != nullptr) {
        cursor->attribute = cursor->attribute->next;
    }
    if (cursor->attribute == nullptr || cursor->attribute->text == nullptr) {
        return nullptr;
    }
    return copyOrRecord(handle, cursor->attribute->text);
}

int cfg_count_attributes(void* handle, cfg_message* entry)
{
    const int code = cfg_reset(handle);
    if (code != 0) {
        return code;
    }
    return entry == nullptr ? 0 : countNodes(entry->children);
}

char** cfg_get_values(void* handle, cfg_message* entry, const char* name)
{
    cfg_reset(handle);
    if (entry == nullptr || name == nullptr) {
        record(handle, result::paramError);
        return nullptr;
    }
    const cfg_message* const attribute = findAttribute(*entry, name);
    if (attribute == nullptr) {
        record(handle, result::noSuchAttribute);
        return nullptr;
    }
    const int count = countNodes(attribute->children);
    if (count == 0) {
        return nullptr;
    }
    auto** const values = static_cast<char**>(std::calloc(static_cast<std::size_t>(count) + 1, sizeof(char*)));
    if (values == nullptr) {
        record(handle, result::noMemory);
        return nullptr;
    }
    const cfg_message* value = attribute->children;
    for (int index = 0; index < count; ++index, value = value->next) {
        values[index] = copyOrRecord(handle, value->text == nullptr ? "" : value->text);
        if (values[index] == nullptr) {
            cfg_value_free(values);
            return nullptr;
        }
    }
    return values;
}

int cfg_count_values(char** values)
{
    int count = 0;
    while (values != nullptr && values[count] != nullptr) {
        ++count;
    }
    return count;
}

void cfg_value_free(char** values)
{
    if (values == nullptr) {
        return;
    }
    for (char** value = values; *value != nullptr; ++value) {
        std::free(*value);
    }
    std::free(static_cast<void*>(values));
}

int cfg_msgfree(cfg_message* result)
{
    // A node whose children are being freed keeps the way back to the node above it in their place: no stack, however
    // deep or long the tree.
    NodeRelease nodes;
    cfg_message* above = nullptr;
    for (cfg_message* node = result; node != nullptr;) {
        if (node->children != nullptr) {
            cfg_message* const child = std::exchange(node->children, above);
            above = std::exchange(node, child);
            continue;
        }
        cfg_message* const next = node->next;
        nodes.release(node);
        node = next;
        if (node == nullptr && above != nullptr) {
            node = above;
            above = std::exchange(node->children, nullptr);
        }
    }
    return 0;
}

void cfg_ber_free(cfg_cursor* cursor)
{
    std::free(cursor);
}

void cfg_memfree(void* pointer)
{
    std::free(pointer);
}
