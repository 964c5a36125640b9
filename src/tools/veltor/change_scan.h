// The first look at a text of LDIF change records. The LDIF reader of the LDAP client library opens files that a
// record names while it parses, and the configuration file can't hold every value that LDIF can; so the whole text
// is looked at here before that reader sees any of it.
#ifndef VELTOR_TOOL_CHANGE_SCAN_H
#define VELTOR_TOOL_CHANGE_SCAN_H

#include "failure.h"
#include "wiped_text.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::tool {

/// Where something stands in a text: both numbers count from 1, columns count characters. 0 is nowhere.
struct Place
{
    std::size_t line = 0;
    std::size_t column = 0;
};

/// Where changes come from.
struct ChangeSource
{
    std::string name;    ///< of the text, for messages
    std::string command; ///< that takes them: its help tells what may stand there
};

/// One logical line: unfolded, its base64 decoded.
struct ScannedLine
{
    std::string name; ///< as written; "-" for the line that ends a modification
    WipedText value;  ///< of a "-" line empty
    Place namePlace;
    Place valuePlace; ///< where the value begins, in base64 as well
};

/// One record, with comments left out. There is at least one line, and the first is the dn line.
struct ScannedRecord
{
    std::string_view text; ///< the physical lines of the record in the scanned text
    std::vector<ScannedLine> lines;
};

/// Splits a text into records.
///
/// @param text    must outlive the records
/// @throws Failure (refused) with SOURCE:LINE:COLUMN for what would make the LDIF reader open something (":<",
///                "include:", a record that begins with a digit), for controls and renaming, for what is no LDIF,
///                and for what the configuration file would not give back as it was given
std::vector<ScannedRecord> scanChanges(const ChangeSource& source, std::string_view text);

/// Why the configuration file would not give this value back as it is, or must not hold it; nothing if it would.
/// @param attribute  "dn" for the DN of an entry
std::optional<std::string> whyUnstorable(std::string_view attribute, std::string_view value);

/// True for an attribute description of RFC 4512: a name or dotted numbers, options behind it.
bool isAttributeDescription(std::string_view name);

/// True for the name under which a configuration file begins an entry, in any letter case.
bool isDnLabel(std::string_view name);

/// "SOURCE:LINE:COLUMN", or "" for a place that is nowhere.
std::string placeName(const std::string& source, Place place);

/// The place in a text of this name; nowhere without a name for a place that is nowhere.
SourcePlace placeIn(const std::string& source, Place place);

/// The refusal of something in a text of changes, of which nothing was carried out.
/// @param about  what it is about, as far as that is known; its place is filled in
Failure refusedChange(const ChangeSource& source, Place place, const std::string& finding, FailureFacts about = {});

} // namespace veltor::tool

#endif
