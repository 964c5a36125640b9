// The sequence that the calls share which look at the tree and change nothing.
#ifndef VELTOR_READ_H
#define VELTOR_READ_H

#include "handle.h"

#include "veltor/cfg.h"

namespace veltor::detail {

/// Runs one reading call: looks at the arguments, re-reads a file that changed, keeps what is thrown.
///
/// @param argumentsSound  what the call demands of its own arguments; false is 89
/// @param work            takes the store, gives the result code
template <class Work>
int runRead(void* handle, bool argumentsSound, const Layer& layer, Work&& work)
{
    return runOnStore(handle, argumentsSound, layer, [&](BoundStore& store) {
        store.refresh();
        return work(store);
    });
}

/// Runs one reading call that gives entries. The result is null after a failure; for want of memory for its nodes the
/// code is 90, without an exception.
///
/// @param res   where the caller wants the result; null is 89
/// @param fill  takes the store and the pointer to the first node, which it sets as soon as there is one
template <class Fill>
int runEntryRead(void* handle, cfg_message** res, const Layer& layer, Fill&& fill)
{
    if (res != nullptr) {
        *res = nullptr;
    }
    return runRead(handle, res != nullptr, layer, [&](BoundStore& store) {
        const auto giveUp = [res] {
            cfg_msgfree(*res);
            *res = nullptr;
        };
        try {
            fill(store, *res);
            return 0;
        } catch (const char*) {
            giveUp();
            return result::noMemory;
        } catch (...) {
            giveUp();
            throw;
        }
    });
}

} // namespace veltor::detail

#endif
