// The change records that make one configuration of another.
#ifndef VELTOR_TOOL_DIFFERENCE_RECORDS_H
#define VELTOR_TOOL_DIFFERENCE_RECORDS_H

#include "target.h"
#include "wiped_text.h"

namespace veltor::tool {

/// The records, empty for equal configurations. Comments in them tell what is lost, which options of veltor modify they
/// need, and what differs above the entries, of which there is a warning as well.
///
/// @throws Failure  (usage) for a secret that must not be shown, (refused) for what veltor modify would not carry out,
///                  or not so that the second configuration comes of it
WipedText changeRecords(const Session& before, const Session& after, bool showSecrets);

} // namespace veltor::tool

#endif
