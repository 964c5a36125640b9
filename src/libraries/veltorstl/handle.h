// The handle behind the C API, and the guard that every operation runs in.
#ifndef VELTOR_HANDLE_H
#define VELTOR_HANDLE_H

#include "LDIF_Exception.h"
#include "bound_store.h"

#include "veltor/cfg.h"

#include <cstdint>

namespace veltor::detail {

enum HandleFlag : std::uint32_t { handleFlag1 = 0x1, handleFlag2 = 0x2, deleteNonLeaves = 0x4 };

} // namespace veltor::detail

/// What a caller holds. Memory from calloc; zero is the state of a fresh handle, but for how it writes.
struct cfg_handle
{
    std::int32_t lastResult;           ///< result code of the last operation
    std::uint32_t optionFlags;         ///< HandleFlag bits
    char* configFileName;              ///< owned, malloc; null until set or bound
    char* backupFileName;              ///< owned, malloc; null if unset
    veltor::detail::BoundStore* store; ///< owned, with those of earlier binds; null before a successful bind
    veltor::detail::WriteSettings writing;
    LDIF_Exception* lastException; ///< owned; null when the last operation kept none
    char* dumpText;                ///< owned, malloc; lent by cfg_dump_exception
    char* treeText;                ///< owned, malloc; lent by the tree view
};

namespace veltor::detail {

inline cfg_handle* handleOf(void* handle)
{
    return static_cast<cfg_handle*>(handle);
}

/// Records a result code, if there is a handle to record it in, and returns it.
inline int record(void* handle, int code)
{
    if (handle != nullptr) {
        handleOf(handle)->lastResult = code;
    }
    return code;
}

/// True when the handle has a file and a store.
bool isBound(const cfg_handle& handle);

/// Called in a catch block: keeps the exception in flight in the handle and returns its LDAP code. A foreign one
/// is replaced by 80/1000 with the given message. When there is no memory to keep it, only the code is returned.
int keepFailure(cfg_handle& handle, const Layer& layer) noexcept;

/// The duplicate of a text, from malloc.
/// @throws LDIF_Exception 90/90 "strdup()" when memory is short
char* duplicateOrThrow(const char* text);

/// Runs an operation on a handle that was reset and needs no store: keeps what it throws, returns the code.
///
/// @param work  gives the result code
template <class Work>
int runKept(cfg_handle& handle, const Layer& layer, Work&& work)
{
    try {
        return handle.lastResult = work();
    } catch (...) {
        return keepFailure(handle, layer);
    }
}

/// Runs one call on the store of a bound handle: resets the handle, looks at the arguments, keeps what is thrown.
///
/// @param argumentsSound  what the call demands of its own arguments; false is 89
/// @param work            takes the store, gives the result code
template <class Work>
int runOnStore(void* handle, bool argumentsSound, const Layer& layer, Work&& work)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    if (!isBound(target) || !argumentsSound) {
        return target.lastResult = result::paramError;
    }
    return runKept(target, layer, [&] { return work(*target.store); });
}

} // namespace veltor::detail

#endif
