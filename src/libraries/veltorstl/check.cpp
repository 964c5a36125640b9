// The check of a file through the C API: which file, whether it can be read, who may write it.
#include "LDIF_File.h"
#include "disk.h"
#include "file_check.h"
#include "handle.h"

#include "veltor/cfg.h"
#include "veltor/cfg_admin.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include <sys/stat.h>

using namespace veltor::detail;
namespace result = veltor::result;

namespace {

/// The name that a bind would take.
std::string fileNameOf(const cfg_handle& handle, const char* given)
{
    const char* const name = given != nullptr ? given : handle.configFileName;
    return name != nullptr ? name : getDefaultConfigFilename();
}

[[noreturn]] void refuseFile(int line, int ldapCode, int libraryCode, const char* message, const std::string& fileName,
                             int systemError = 0)
{
    LDIF_Exception failure(__FILE_NAME__, line, ldapCode, libraryCode, message);
    failure.configFile = fileName;
    failure.sysErrno = systemError;
    throw failure;
}

struct stat statusOf(const std::string& fileName)
{
    struct stat status = {};
    if (stat(fileName.c_str(), &status) != 0) {
        refuseFile(__LINE__, result::connectError, CFG_ERR_FILE_NOT_FOUND, "_stat()", fileName, errno);
    }
    return status;
}

/// The content of a file, or what a bind would fail with.
FileText contentOf(const std::string& fileName)
{
    try {
        return readWholeFile(fileName);
    } catch (const LDIF_Exception&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        refuseFile(__LINE__, result::other, CFG_ERR_UNEXPECTED, "System error reading file", fileName);
    }
}

struct FreePath
{
    void operator()(char* path) const { std::free(path); }
};

/// The folder in which a file stands, links followed; an empty text when that is not known.
std::string folderOf(const std::string& fileName)
{
    const std::unique_ptr<char, FreePath> path(realpath(fileName.c_str(), nullptr));
    if (path == nullptr) {
        return {};
    }
    const std::string whole = path.get();
    return whole.substr(0, std::max<std::size_t>(whole.rfind('/'), 1));
}

/// Tells who besides the owner may change the file, or put another in its place.
/// @return false when the callback ended the check
bool checkModes(const std::string& fileName, const struct stat& fileStatus, cfg_finding_fn report, void* context)
{
    const auto tell = [&](const FindingKind& kind, const char* message) {
        const cfg_finding found{kind.severity, 0, result::insufficientAccess, kind.word, "", "", "", message};
        return report(context, &found) == 0;
    };
    const auto check = [&](mode_t mode, const FindingKind& byAll, const char* allMessage, const FindingKind& byGroup,
                           const char* groupMessage) {
        return (mode & S_IWOTH) != 0   ? tell(byAll, allMessage)
               : (mode & S_IWGRP) != 0 ? tell(byGroup, groupMessage)
                                       : true;
    };
    struct stat folder = {};
    const std::string folderName = folderOf(fileName);
    return check(fileStatus.st_mode, finding::writableFile, "everybody may write the file", finding::groupWritableFile,
                 "the file's group may write it") &&
           (folderName.empty() || stat(folderName.c_str(), &folder) != 0 ||
            check(folder.st_mode, finding::writableFolder,
                  "everybody may write in the file's folder, and put another file in its place",
                  finding::groupWritableFolder,
                  "the group of the file's folder may write in it, and put another file in its place"));
}

} // namespace

int cfg_check_s(void* handle, const char* file, cfg_finding_fn report, void* context)
{
    if (cfg_reset(handle) != 0) {
        return result::paramError;
    }
    if (report == nullptr) {
        return record(handle, result::paramError);
    }
    return runKept(*handleOf(handle), {VELTOR_HERE, "System error in cfg_check_s()"}, [&] {
        const auto refuseMemory = [](int line) {
            throw LDIF_Exception(__FILE_NAME__, line, result::noMemory, result::noMemory, "cfg_check_s()");
        };
        bool isRead = false;
        try {
            const std::string fileName = fileNameOf(*handleOf(handle), file);
            if (fileName.empty()) {
                refuseFile(__LINE__, result::connectError, CFG_ERR_FILENAME_INVALID, "Config filename is NULL!",
                           "<NULL>");
            }
            const struct stat status = statusOf(fileName);
            const FileText text = contentOf(fileName);
            isRead = true;
            if (checkModes(fileName, status, report, context)) {
                checkText(text.view(), report, context);
            }
        } catch (const std::bad_alloc&) {
            refuseMemory(__LINE__);
        } catch (const LDIF_Exception& failure) {
            // While the text is looked at the system can fail for want of memory only.
            if (isRead && failure.isSystemFailure()) {
                refuseMemory(__LINE__);
            }
            throw;
        }
        return 0;
    });
}
