// Handles and their options.
#include "LDIF_AttrType.h"
#include "LDIF_Value.h"
#include "handle.h"

#include "veltor/cfg.h"
#include "veltor/platform.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

std::uint32_t flagOf(int option)
{
    switch (option) {
    case CFG_OPT_HANDLE_FLAG1:
        return handleFlag1;
    case CFG_OPT_HANDLE_FLAG2:
        return handleFlag2;
    default:
        return deleteNonLeaves;
    }
}

/// Checks a file name as the attribute that lists schema files does, and replaces the stored name.
int setFileName(char*& stored, const char* given)
{
    if (given == nullptr) {
        std::free(stored);
        stored = nullptr;
        return 0;
    }
    static const _AttrType* const fileNameType = getAttrType("zor-slapdIncludeSchema");
    try {
        char* const copy = strdup(LDIF_Value(fileNameType, given).str().c_str());
        if (copy == nullptr) {
            return result::noMemory;
        }
        std::free(stored);
        stored = copy;
        return 0;
    } catch (const LDIF_Exception& failure) {
        return failure.ldapErr;
    } catch (const std::bad_alloc&) {
        return result::noMemory;
    } catch (...) {
        return result::other;
    }
}

} // namespace

const char* getInstallPath(void)
{
    return "/usr/ldap";
}

const char* getDefaultConfigFilename(void)
{
    return "/usr/ldap/etc/zorslapd.conf";
}

void* cfg_init(void)
{
    void* const handle = std::calloc(1, sizeof(cfg_handle));
    if (handle == nullptr) {
        return nullptr;
    }
    handleOf(handle)->writing = WriteSettings();
    // Text is converted in the locale that is set here.
    initLocaleMutex();
    pthread_mutex_lock(&set_locale_mutex);
    std::setlocale(LC_ALL, "");
    pthread_mutex_unlock(&set_locale_mutex);

    const auto* const on = static_cast<const void*>(handle); // any pointer but null
    cfg_set_option(handle, CFG_OPT_HANDLE_FLAG1, on);
    cfg_set_option(handle, CFG_OPT_HANDLE_FLAG2, nullptr);
    cfg_set_option(handle, CFG_OPT_SHOW_SOURCE, nullptr);
    cfg_set_option(handle, CFG_OPT_SHOW_STACK, on);
    cfg_set_option(handle, CFG_OPT_DELETE_NON_LEAVES, nullptr);
    return handle;
}

int cfg_set_option(void* handle, int option, const void* value)
{
    if (handle == nullptr) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    const bool on = value != nullptr;
    switch (option) {
    case CFG_OPT_HANDLE_FLAG1:
    case CFG_OPT_HANDLE_FLAG2:
    case CFG_OPT_DELETE_NON_LEAVES:
        target.optionFlags = on ? target.optionFlags | flagOf(option) : target.optionFlags & ~flagOf(option);
        return 0;
    case CFG_OPT_SHOW_SOURCE:
        LDIF_Exception::showSource = on;
        return 0;
    case CFG_OPT_SHOW_STACK:
        LDIF_Exception::showStack = on;
        return 0;
    case CFG_OPT_CONFIG_FILE:
        return setFileName(target.configFileName, static_cast<const char*>(value));
    case CFG_OPT_BACKUP_FILE:
        return setFileName(target.backupFileName, static_cast<const char*>(value));
    default:
        // Accepted in silence, on purpose: callers set options that other releases have.
        return 0;
    }
}

int cfg_get_option(void* handle, int option, void* out)
{
    if (handle == nullptr || out == nullptr) {
        return result::paramError;
    }
    const cfg_handle& source = *handleOf(handle);
    const auto copyOf = [](const char* text) { return text == nullptr ? nullptr : strdup(text); };
    switch (option) {
    case CFG_OPT_HANDLE_FLAG1:
    case CFG_OPT_HANDLE_FLAG2:
    case CFG_OPT_DELETE_NON_LEAVES:
        *static_cast<int*>(out) = (source.optionFlags & flagOf(option)) != 0 ? 1 : 0;
        return 0;
    case CFG_OPT_SHOW_SOURCE:
        *static_cast<int*>(out) = LDIF_Exception::showSource ? 1 : 0;
        return 0;
    case CFG_OPT_SHOW_STACK:
        *static_cast<int*>(out) = LDIF_Exception::showStack ? 1 : 0;
        return 0;
    case CFG_OPT_CONFIG_FILE:
        *static_cast<char**>(out) = copyOf(source.configFileName);
        return 0;
    case CFG_OPT_BACKUP_FILE:
        *static_cast<char**>(out) = copyOf(source.backupFileName);
        return 0;
    default:
        return 0;
    }
}

int cfg_reset(void* handle)
{
    if (handle == nullptr) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    target.lastResult = 0;
    std::free(target.dumpText);
    target.dumpText = nullptr;
    std::free(target.treeText);
    target.treeText = nullptr;
    delete target.lastException;
    target.lastException = nullptr;
    return 0;
}
