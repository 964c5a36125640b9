// The least that a program can do with a configuration file, to measure the library against: the whole file in one
// read, every line cut into label and value, every entry kept. Nothing is checked, no DN is parsed, there is no
// tree. With a second file it also renders everything and writes it there.
//
//     bench_floor FILE [COPY]
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Label and value; a comment line has the label "#" and itself as the value.
using Line = std::pair<std::string, std::string>;
using Entry = std::vector<Line>;

bool readFile(const char* name, std::string& text)
{
    const int file = open(name, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0) {
        return false;
    }
    text.resize(static_cast<std::size_t>(status.st_size));
    const bool complete = read(file, text.data(), text.size()) == status.st_size;
    close(file);
    return complete;
}

void addLine(Entry& entry, std::string_view line)
{
    if (line.front() == ' ') {
        if (!entry.empty()) {
            entry.back().second.append(line.substr(1));
        }
        return;
    }
    if (line.front() == '#') {
        entry.emplace_back("#", line);
        return;
    }
    const void* const colon = std::memchr(line.data(), ':', line.size());
    const std::size_t label =
        colon == nullptr ? line.size() : static_cast<std::size_t>(static_cast<const char*>(colon) - line.data());
    std::size_t value = label;
    while (value < line.size() && (line[value] == ':' || line[value] == ' ')) {
        ++value;
    }
    entry.emplace_back(line.substr(0, label), line.substr(value));
}

std::vector<Entry> entriesOf(std::string_view text)
{
    std::vector<Entry> entries;
    Entry entry;
    while (!text.empty()) {
        const void* const found = std::memchr(text.data(), '\n', text.size());
        const std::size_t length =
            found == nullptr ? text.size() : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
        if (length > 0) {
            addLine(entry, text.substr(0, length));
        } else if (!entry.empty()) {
            entries.push_back(std::move(entry));
            entry.clear();
        }
        text.remove_prefix(found == nullptr ? length : length + 1);
    }
    if (!entry.empty()) {
        entries.push_back(std::move(entry));
    }
    return entries;
}

bool writeFile(const char* name, const std::vector<Entry>& entries, std::size_t size)
{
    std::string text;
    text.reserve(size);
    for (const Entry& entry : entries) {
        for (const Line& line : entry) {
            if (line.first != "#") {
                text.append(line.first).append(": ");
            }
            text.append(line.second) += '\n';
        }
        text += '\n';
    }
    const int file = open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) {
        return false;
    }
    const bool complete = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    return complete;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3) {
        std::fputs("usage: bench_floor FILE [COPY]\n", stderr);
        _exit(2);
    }
    std::string text;
    if (!readFile(argv[1], text)) {
        std::perror(argv[1]);
        _exit(1);
    }
    const std::vector<Entry> entries = entriesOf(text);
    if (argc == 3 && !writeFile(argv[2], entries, text.size())) {
        std::perror(argv[2]);
        _exit(1);
    }
    // Nothing is torn down: what is measured is the work on the file.
    _exit(0);
}
