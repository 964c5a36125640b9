// Names are compared as the system sees them: by what they lead to, and by their folders.
#include "backup_name.h"

#include "target.h"

#include <string_view>
#include <sys/stat.h>

namespace veltor::tool {

namespace {

/// True for two names of one file, which a copy would destroy.
bool nameTheSameFile(const std::string& left, const std::string& right)
{
    struct stat leftStatus = {};
    struct stat rightStatus = {};
    return left == right || (::stat(left.c_str(), &leftStatus) == 0 && ::stat(right.c_str(), &rightStatus) == 0 &&
                             leftStatus.st_dev == rightStatus.st_dev && leftStatus.st_ino == rightStatus.st_ino);
}

/// What the library uses the name for, "" for nothing.
/// @param file  with its links resolved: the library's files lie beside that one
std::string ownUseOf(const std::string& copy, const std::string& file)
{
    if (!nameTheSameFile(folderOf(copy), folderOf(file))) {
        return {};
    }
    const std::string copyName = copy.substr(copy.rfind('/') + 1);
    const std::string fileName = file.substr(file.rfind('/') + 1);
    if (copyName == fileName + ".lock") {
        return "is the lock of the configuration file";
    }
    constexpr std::string_view mark = ".veltor.";
    const std::string begin = '.' + fileName;
    const bool isTemporary = copyName.starts_with(begin) && copyName.rfind(mark) == begin.size() &&
                             copyName.size() > begin.size() + mark.size();
    return isTemporary ? "is a name that the next write removes as a leftover" : "";
}

} // namespace

std::string folderOf(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? "." : name.substr(0, slash + 1);
}

std::string faultOfBackupName(const std::string& copy, const std::string& file)
{
    if (copy.empty()) {
        return "a file name has 1 to 4096 bytes";
    }
    if (nameTheSameFile(copy, file)) {
        return copy + " is the configuration file itself";
    }
    struct stat status = {};
    if (::stat(copy.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return copy + (S_ISDIR(status.st_mode) ? " is a folder" : " is no plain file");
    }
    const std::string ownUse = ownUseOf(copy, resolvedName(file));
    return ownUse.empty() ? "" : copy + ' ' + ownUse;
}

} // namespace veltor::tool
