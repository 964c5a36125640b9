// Binding a handle to a configuration file.
#include "handle.h"

#include "veltor/cfg.h"

#include <memory>

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

// The method's number, not the client library's macro, whose type differs between releases.
constexpr int simpleMethod = 0x80;

void settleFileName(cfg_handle& handle)
{
    if (handle.configFileName != nullptr) {
        return;
    }
    const char* const defaultName = getDefaultConfigFilename();
    if (defaultName == nullptr) {
        throw LDIF_Exception(VELTOR_HERE, result::other, CFG_ERR_UNEXPECTED,
                             "Unable to get default config filename. Either out of memory or ldaphome not in registry");
    }
    handle.configFileName = duplicateOrThrow(defaultName);
}

} // namespace

int cfg_bind_s(void* handle, const char* who, const char* credentials, int method)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    return runKept(target, {VELTOR_HERE, "System error in cfg_bind_s()"}, [&] {
        if (target.store != nullptr && target.store->inSet()) {
            throw LDIF_Exception(VELTOR_HERE, result::unwillingToPerform, result::unwillingToPerform,
                                 "A change set has begun");
        }
        // The name is settled before the method is looked at: callers read it back after a refused bind.
        settleFileName(target);
        if (method != simpleMethod) {
            throw LDIF_Exception(VELTOR_HERE, result::authUnknown, result::authUnknown,
                                 "Bind method must be one of { LDAP_AUTH_SIMPLE }");
        }
        auto store = std::make_unique<BoundStore>(
            target.configFileName, target.backupFileName != nullptr ? target.backupFileName : "", target.writing);
        if (store->setAuthentication(who, credentials, simpleMethod) == 0) {
            return result::invalidCredentials;
        }
        store->earlier = target.store;
        target.store = store.release();
        return 0;
    });
}
