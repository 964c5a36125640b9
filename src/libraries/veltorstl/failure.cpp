// The records of the failure that a handle keeps: the exception itself, and behind it its causes.
#include "handle.h"

#include "veltor/cfg_admin.h"

using namespace veltor::detail;

namespace {

const LDIF_Exception* outermost(void* handle)
{
    return handle == nullptr ? nullptr : handleOf(handle)->lastException;
}

/// The attribute concerned, as cfg_get_attribute tells it, where there is one.
const char* attributeOf(const LDIF_Exception& failure)
{
    if (failure.attribute.empty() && failure.attrType != nullptr && failure.attrType->name != nullptr) {
        return failure.attrType->name;
    }
    return failure.attribute.c_str();
}

} // namespace

int cfg_failure_count(void* handle)
{
    int count = 0;
    for (const LDIF_Exception* failure = outermost(handle); failure != nullptr; failure = failure->nested) {
        ++count;
    }
    return count;
}

int cfg_failure_at(void* handle, int index, cfg_failure* out)
{
    const LDIF_Exception* failure = index < 0 ? nullptr : outermost(handle);
    for (; failure != nullptr && index > 0; --index) {
        failure = failure->nested;
    }
    if (failure == nullptr || out == nullptr) {
        return veltor::result::paramError;
    }
    *out = {failure->ldapErr,
            failure->extErr,
            failure->configLine,
            failure->msg.c_str(),
            failure->configFile.c_str(),
            failure->entryDn.c_str(),
            attributeOf(*failure),
            failure->value.c_str()};
    return 0;
}
