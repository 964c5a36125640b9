// Change sets, and whole texts in place of the file's.
#include "durable_file.h"
#include "read.h"

#include "veltor/cfg_admin.h"

#include <cstdlib>
#include <cstring>

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

std::string_view textOf(const char* text, std::size_t size)
{
    return text == nullptr ? std::string_view() : std::string_view(text, size);
}

} // namespace

int cfg_begin_s(void* handle, int timeout_ms)
{
    return runOnStore(handle, timeout_ms >= 0, {VELTOR_HERE, "System error in cfg_begin_s()"}, [&](BoundStore& store) {
        handleOf(handle)->writing.lockTimeoutMs = timeout_ms;
        store.begin(timeout_ms);
        return 0;
    });
}

int cfg_commit_s(void* handle)
{
    return runOnStore(handle, true, {VELTOR_HERE, "System error in cfg_commit_s()"}, [](BoundStore& store) {
        store.commit();
        return 0;
    });
}

int cfg_rollback_s(void* handle)
{
    return runOnStore(handle, true, {VELTOR_HERE, "System error in cfg_rollback_s()"}, [](BoundStore& store) {
        store.rollback();
        return 0;
    });
}

int cfg_install_s(void* handle, const char* text, size_t size)
{
    return runOnStore(handle, text != nullptr || size == 0, {VELTOR_HERE, "System error in cfg_install_s()"},
                      [&](BoundStore& store) {
                          store.install(textOf(text, size));
                          return 0;
                      });
}

int cfg_create_s(void* handle, const char* file, const char* text, size_t size)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    if (file == nullptr || (text == nullptr && size != 0)) {
        return target.lastResult = result::paramError;
    }
    return runKept(target, {VELTOR_HERE, "System error in cfg_create_s()"}, [&] {
        needsFreeName(file);
        needsToLoad(textOf(text, size), file);
        createFile(file, textOf(text, size));
        return 0;
    });
}

int cfg_replace_s(void* handle, const char* file, const char* old_text, size_t old_size, const char* text, size_t size,
                  int timeout_ms)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    cfg_handle& target = *handleOf(handle);
    if (file == nullptr || (old_text == nullptr && old_size != 0) || (text == nullptr && size != 0) || timeout_ms < 0) {
        return target.lastResult = result::paramError;
    }
    return runKept(target, {VELTOR_HERE, "System error in cfg_replace_s()"}, [&] {
        needsToLoad(textOf(text, size), file);
        const FilePlace place(file);
        const WriterLock lock(place, timeout_ms);
        const char* const backup = target.backupFileName;
        install(place, textOf(text, size), textOf(old_text, old_size), backup == nullptr ? "" : backup);
        return 0;
    });
}

int cfg_render_s(void* handle, char** text, size_t* size)
{
    if (text != nullptr) {
        *text = nullptr;
    }
    if (size != nullptr) {
        *size = 0;
    }
    return runRead(handle, text != nullptr && size != nullptr, {VELTOR_HERE, "System error in cfg_render_s()"},
                   [&](BoundStore& store) {
                       store.render([&](std::size_t bytes) {
                           char* const copy = static_cast<char*>(std::malloc(bytes + 1));
                           if (copy == nullptr) {
                               throw LDIF_Exception(VELTOR_HERE, result::noMemory, result::noMemory, "malloc()");
                           }
                           copy[bytes] = '\0';
                           *size = bytes;
                           return *text = copy;
                       });
                       return 0;
                   });
}

int cfg_locate_s(void* handle, const char* dn, const char* attribute, const char* value, int* line)
{
    if (line != nullptr) {
        *line = 0;
    }
    return runRead(handle, dn != nullptr && line != nullptr, {VELTOR_HERE, "System error in cfg_locate_s()"},
                   [&](BoundStore& store) {
                       LDIF_DN parsed;
                       parsed = cisString(dn);
                       *line = store.lineOf(parsed, attribute, value);
                       return 0;
                   });
}
