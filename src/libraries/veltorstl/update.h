// The sequence that the updates of the C API share.
#ifndef VELTOR_UPDATE_H
#define VELTOR_UPDATE_H

#include "LDIF_DN.h"
#include "handle.h"

#include "veltor/cfg.h"

namespace veltor::detail {

/// Runs one update as the handle's mode says. In direct mode: looks at the arguments, re-reads a file that changed,
/// applies the change in memory, writes the whole file; when a step fails the file is not written, and what was applied
/// by then stays in memory.
///
/// @param argumentsSound  what the call demands of its own arguments; false is 89
/// @param change          applies the change to the store
template <class Change>
int runUpdate(void* handle, const char* dn, bool argumentsSound, const Layer& layer, Change&& change)
{
    return runOnStore(handle, dn != nullptr && argumentsSound, layer, [&](BoundStore& store) {
        store.update([&] {
            LDIF_DN parsed;
            parsed = cisString(dn);
            change(store, parsed);
        });
        return 0;
    });
}

} // namespace veltor::detail

#endif
