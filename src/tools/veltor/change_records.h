// Change records as plain values, for every command that takes or makes them.
#ifndef VELTOR_TOOL_CHANGE_RECORDS_H
#define VELTOR_TOOL_CHANGE_RECORDS_H

#include "change_scan.h"
#include "wiped_text.h"

#include <string>
#include <vector>

namespace veltor::tool {

struct ChangeValue
{
    WipedText text; ///< with a terminating NUL
    Place place;
};

struct ChangeOperation
{
    enum class Kind { add, remove, replace };

    Kind kind;
    std::string attribute; ///< as first written
    Place place;           ///< of the attribute's name
    std::vector<ChangeValue> values;
    std::string comment = {}; ///< goes above the attribute if the operation changes it; "" for none
};

struct ChangeRecord
{
    enum class Kind { add, modify, remove, ensure };

    Kind kind;
    std::string dn; ///< as written, not parsed
    Place place;    ///< of the DN
    /// modify: in the order written. add: one for each attribute, all of kind add. remove: none. ensure, which makes an
    /// entry or gives one just these values: as add.
    std::vector<ChangeOperation> operations;
};

/// Which records a command takes.
enum class RecordForm {
    changes,           ///< change records alone
    changesAndContent, ///< content records count as adds
    newEntries,        ///< adds alone, content records count as such
};

/// Reads a text of records (RFC 2849): looks at the whole of it with scanChanges first, then has the LDAP client
/// library's LDIF reader take it apart.
///
/// @throws Failure (refused) with SOURCE:LINE:COLUMN
std::vector<ChangeRecord> readChanges(const ChangeSource& source, const WipedText& text, RecordForm form);

/// Reads the text of a file, "-" for standard input.
/// @throws Failure (file) when it can't be read
WipedText readChangeFile(const std::string& file);

} // namespace veltor::tool

#endif
