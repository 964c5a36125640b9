// Search results as LDIF (RFC 2849), unfolded.
#ifndef VELTOR_TOOL_LDIF_OUTPUT_H
#define VELTOR_TOOL_LDIF_OUTPUT_H

#include "wiped_text.h"

#include <functional>
#include <string>
#include <string_view>
#include <veltor/cfg.h>

namespace veltor::tool {

/// What of an entry is printed.
struct EntryForm
{
    bool namesOnly = false;
    bool showSecrets = false;
    std::function<bool(std::string_view attribute)> chosen{}; ///< unset: all attributes
    /// The comment block of an entry (null) or of one of its attributes, its lines joined by line feeds; unset: none.
    std::function<std::string(const cfg_message& entry, const cfg_message* attribute)> commentOf{};
};

/// True when a text can stand behind "name: " as it is: a SAFE-STRING of RFC 2849 that does not end in a blank
/// and holds no control character but the tab. The RFC lets most control characters pass; a terminal would
/// obey them.
bool standsPlain(std::string_view text);

/// The bytes in base64, with padding.
void appendBase64(WipedText& out, std::string_view bytes);

/// "name: text" or "name:: base64", "name:" for an empty text.
void appendLdifLine(WipedText& out, std::string_view name, std::string_view text);

/// "# text" on one line, whatever the text holds.
void appendLdifComment(WipedText& out, std::string_view text);

/// One entry with the empty line that ends it. What LDIF can't say, or what is not to be shown, becomes a comment:
/// a hidden value "# name: hidden", one in a comment block "# hidden", an attribute without values "# name: no value",
/// a name that no LDIF reader takes "# not an attribute name: name: value".
///
/// @param entry  a node of kind entry; what follows it is not printed
void appendEntry(WipedText& out, const cfg_message& entry, const EntryForm& form);

/// Overwrites every secret value of a result, down the whole chain of entries. Call it before cfg_msgfree.
void wipeSecrets(cfg_message* result);

/// Writes everything to a descriptor.
/// @throws Failure  (writeFailed) when it can't be written
void writeOut(int descriptor, std::string_view text);

} // namespace veltor::tool

#endif
