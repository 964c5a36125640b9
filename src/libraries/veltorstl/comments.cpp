// The comments of entries and attributes, as their blocks of plain text.
#include "LDIF_Comment.h"
#include "read.h"

#include "veltor/cfg_admin.h"

#include <cstddef>
#include <string>
#include <string_view>

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

/// The text of a comment line: without its "#" and one blank behind it. A NUL ends it, as it ends values.
std::string_view commentText(const LDIF_Line& line)
{
    std::string_view text = line.value.c_str();
    for (const char mark : {'#', ' '}) {
        if (!text.empty() && text.front() == mark) {
            text.remove_prefix(1);
        }
    }
    return text;
}

/// The lines that stand directly above what a comment belongs to, joined by line feeds.
std::string blockOf(const LDIF_Comment& comment)
{
    std::string block;
    const char* separator = "";
    for (std::size_t line = comment.linesAboveBlock(); line < comment.lines.size(); ++line, separator = "\n") {
        block += separator;
        block += commentText(comment.lines[line]);
    }
    return block;
}

const LDIF_Attribute& attributeOf(const LDIF_Entry& entry, const char* name)
{
    const auto attribute = entry.attributes.find(name);
    if (attribute == entry.attributes.end()) {
        LDIF_Exception failure(VELTOR_HERE, result::noSuchAttribute, result::noSuchAttribute, "Attribute not found");
        failure.entryDn = printable(entry.dn);
        failure.attribute = name;
        throw failure;
    }
    return *attribute;
}

} // namespace

int cfg_get_comment_s(void* handle, const char* dn, const char* attribute, char** text)
{
    if (text != nullptr) {
        *text = nullptr;
    }
    return runRead(handle, dn != nullptr && text != nullptr, {VELTOR_HERE, "System error in cfg_get_comment_s()"},
                   [&](LDIF_File& store) {
                       LDIF_DN parsed;
                       parsed = cisString(dn);
                       const LDIF_Entry& entry = store.entryOf(parsed);
                       const LDIF_Comment& comment =
                           attribute == nullptr ? entry.comment : attributeOf(entry, attribute).comment;
                       *text = duplicateOrThrow(blockOf(comment).c_str());
                       return 0;
                   });
}

int cfg_set_comment_s(void* handle, const char* dn, const char* attribute, const char* text)
{
    return runOnStore(handle, dn != nullptr, {VELTOR_HERE, "System error in cfg_set_comment_s()"},
                      [&](BoundStore& store) {
                          store.needsSafeMode();
                          store.update([&] {
                              LDIF_DN parsed;
                              parsed = cisString(dn);
                              store.setComment(parsed, attribute, text == nullptr ? "" : text);
                          });
                          return 0;
                      });
}
