// What the calls of the C API share.
#include "handle.h"

#include <cstdlib>
#include <cstring>

namespace veltor::detail {

bool isBound(const cfg_handle& handle)
{
    // A change set has its file, whatever name the handle was given since: it has to be ended.
    return handle.store != nullptr && (handle.configFileName != nullptr || handle.store->inSet());
}

int keepFailure(cfg_handle& handle, const Layer& layer) noexcept
{
    int code = result::other;
    // The tree view keeps a failure without a reset before it: what tells of an earlier one goes.
    delete handle.lastException;
    handle.lastException = nullptr;
    std::free(handle.dumpText);
    handle.dumpText = nullptr;
    try {
        try {
            throw;
        } catch (const LDIF_Exception& failure) {
            code = failure.ldapErr;
            handle.lastException = new LDIF_Exception(failure);
        } catch (...) {
            handle.lastException = new LDIF_Exception(layer.file, layer.line, result::other, 1000, layer.systemMessage);
        }
    } catch (...) {
        // No memory to keep it: the code has to do.
    }
    return handle.lastResult = code;
}

char* duplicateOrThrow(const char* text)
{
    char* const copy = strdup(text);
    if (copy == nullptr) {
        throw LDIF_Exception(VELTOR_HERE, result::noMemory, result::noMemory, "strdup()");
    }
    return copy;
}

} // namespace veltor::detail
