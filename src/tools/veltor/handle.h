// A handle of the library that is released with its scope.
#ifndef VELTOR_TOOL_HANDLE_H
#define VELTOR_TOOL_HANDLE_H

#include <memory>
#include <string>
#include <veltor/cfg.h>

namespace veltor::tool {

struct Unbind
{
    void operator()(void* handle) const { cfg_unbind(handle); }
};

using Handle = std::unique_ptr<void, Unbind>;

/// A fresh handle.
/// @param backup    the name under which the next write keeps the old text, "" for none
/// @throws Failure  internal when memory is short, usage for a backup name that is too long
Handle newHandle(const std::string& backup = {});

} // namespace veltor::tool

#endif
