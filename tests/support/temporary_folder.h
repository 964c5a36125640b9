// A folder of its own for the files of one test.
#ifndef VELTOR_TESTS_TEMPORARY_FOLDER_H
#define VELTOR_TESTS_TEMPORARY_FOLDER_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace veltor::test {

/// Every byte of a file.
///
/// @throws std::runtime_error when it can't be read
inline std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("can't read " + file.string());
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// A fresh folder below the system's temporary folder, removed with everything in it at the end.
///
/// @throws std::system_error when the folder can't be made, std::runtime_error when a file can't be written or
///         read: a test must not go on with content that it did not get
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "veltor-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        folder_ = name;
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    /// The full path of a name in the folder; of the folder itself for "".
    std::string path(std::string_view name = "") const
    {
        return name.empty() ? folder_.string() : (folder_ / name).string();
    }

    /// Creates or replaces a file with exactly these bytes and returns its path.
    std::string write(std::string_view name, std::string_view content) const
    {
        const std::string file = path(name);
        std::ofstream stream(file, std::ios::binary | std::ios::trunc);
        stream.write(content.data(), static_cast<std::streamsize>(content.size()));
        stream.close();
        if (!stream) {
            throw std::runtime_error("can't write " + file);
        }
        return file;
    }

    /// Every byte of a file.
    std::string read(std::string_view name) const { return contentOf(path(name)); }

    bool exists(std::string_view name) const { return std::filesystem::exists(path(name)); }

private:
    std::filesystem::path folder_;
};

} // namespace veltor::test

#endif
