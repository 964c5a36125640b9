// The accessors that describe the failure that a handle keeps.
#include "handle.h"

#include "veltor/cfg.h"

#include <cstring>

using namespace veltor::detail;

namespace {

/// The kept exception, or null.
const LDIF_Exception* keptIn(void* handle)
{
    return handle == nullptr ? nullptr : handleOf(handle)->lastException;
}

/// The type whose constraints were broken, or null.
const _AttrType* typeIn(void* handle)
{
    const LDIF_Exception* const kept = keptIn(handle);
    return kept == nullptr ? nullptr : kept->attrType;
}

} // namespace

int cfg_get_errno(void* handle)
{
    return handle == nullptr ? veltor::result::paramError : handleOf(handle)->lastResult;
}

int cfg_get_exterror(void* handle)
{
    const LDIF_Exception* const kept = keptIn(handle);
    return kept != nullptr && kept->extErr != 0 ? kept->extErr : cfg_get_errno(handle);
}

void cfg_perror(void*, const char*) {}

const char* cfg_dump_exception(void* handle)
{
    if (handle == nullptr) {
        return nullptr;
    }
    cfg_handle& target = *handleOf(handle);
    if (target.dumpText == nullptr && target.lastException != nullptr) {
        try {
            target.dumpText = strdup(target.lastException->dump().c_str());
        } catch (...) {
            // No memory for the report: there is none, as when it can't be kept.
            return nullptr;
        }
    }
    return target.dumpText;
}

const char* cfg_get_file_name(void* handle)
{
    if (const LDIF_Exception* const kept = keptIn(handle); kept != nullptr && !kept->configFile.empty()) {
        return kept->configFile.c_str();
    }
    if (handle != nullptr) {
        const cfg_handle& source = *handleOf(handle);
        if (source.store != nullptr) {
            return source.store->fileName.c_str();
        }
        if (source.configFileName != nullptr) {
            return source.configFileName;
        }
    }
    return getDefaultConfigFilename();
}

int cfg_get_file_line(void* handle)
{
    const LDIF_Exception* const kept = keptIn(handle);
    return kept == nullptr ? 0 : kept->configLine;
}

const char* cfg_get_entry(void* handle)
{
    const LDIF_Exception* const kept = keptIn(handle);
    return kept == nullptr ? nullptr : kept->entryDn.c_str();
}

const char* cfg_get_attribute(void* handle)
{
    const LDIF_Exception* const kept = keptIn(handle);
    if (kept == nullptr) {
        return nullptr;
    }
    if (!kept->attribute.empty()) {
        return kept->attribute.c_str();
    }
    return kept->attrType == nullptr ? nullptr : kept->attrType->name;
}

const char* cfg_get_value(void* handle)
{
    const LDIF_Exception* const kept = keptIn(handle);
    return kept == nullptr ? nullptr : kept->value.c_str();
}

const char* const* cfg_get_enum(void* handle)
{
    const _AttrType* const type = typeIn(handle);
    return type == nullptr ? nullptr : type->enumValues;
}

long cfg_get_bitmask(void* handle)
{
    const _AttrType* const type = typeIn(handle);
    return type == nullptr ? 0 : type->bitmask;
}

long cfg_get_minimum(void* handle)
{
    const _AttrType* const type = typeIn(handle);
    return type == nullptr ? 0 : type->min;
}

long cfg_get_maximum(void* handle)
{
    const _AttrType* const type = typeIn(handle);
    return type == nullptr ? 0 : type->max;
}

int cfg_get_is_single(void* handle)
{
    const _AttrType* const type = typeIn(handle);
    return type != nullptr && type->singleValued ? 1 : 0;
}
