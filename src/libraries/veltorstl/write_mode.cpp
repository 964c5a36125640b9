// How a handle writes.
#include "handle.h"

#include "veltor/cfg_admin.h"

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

/// Sets one of the settings, outside a change set.
int set(void* handle, int WriteSettings::*setting, int value, int last, const Layer& layer)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    if (value < 0 || value > last) {
        return target.lastResult = result::paramError;
    }
    return runKept(target, layer, [&] {
        if (target.store != nullptr && target.store->inSet()) {
            throw LDIF_Exception(layer.file, layer.line, result::unwillingToPerform, result::unwillingToPerform,
                                 "A change set has begun");
        }
        target.writing.*setting = value;
        if (target.store != nullptr) {
            target.store->modeChanged();
        }
        return 0;
    });
}

} // namespace

int cfg_set_write_mode(void* handle, int mode)
{
    return set(handle, &WriteSettings::mode, mode, CFG_WRITE_NEVER,
               {VELTOR_HERE, "System error in cfg_set_write_mode()"});
}

int cfg_get_write_mode(void* handle, int* mode)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    if (mode == nullptr) {
        return target.lastResult = result::paramError;
    }
    *mode = target.writing.mode;
    return 0;
}

int cfg_set_layout(void* handle, int layout)
{
    return set(handle, &WriteSettings::layout, layout, CFG_LAYOUT_OWN,
               {VELTOR_HERE, "System error in cfg_set_layout()"});
}
