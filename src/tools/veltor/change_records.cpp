// From lines to records: the grammar of change records, with a place for everything that is said to be wrong.
#include "change_records.h"

#include "names.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <ldap.h>
#include <ldif.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace veltor::tool {

namespace {

constexpr std::string_view separator = "-";

/// One line as the LDIF reader gives it, with its place from the scan.
struct Line
{
    std::string name;
    WipedText value;
    Place namePlace, valuePlace;

    bool isSeparator() const { return name == separator; }
};

/// Takes the physical lines of one record apart with the LDIF reader. Its functions that work on files are not
/// used: they are those that follow include lines.
class LineReader
{
public:
    LineReader(const ChangeSource& source, const ScannedRecord& record);

    std::vector<Line> read();

private:
    Line lineOf(char* line, const ScannedLine& scanned) const;

    const ChangeSource& source_;
    const ScannedRecord& record_;
    WipedText buffer_; // the reader decodes in place
};

LineReader::LineReader(const ChangeSource& source, const ScannedRecord& record) : source_(source), record_(record)
{
    for (const char byte : record.text) {
        if (byte == '\n' && !buffer_.empty() && buffer_.back() == '\r') {
            buffer_.pop_back();
        }
        buffer_.push_back(byte);
    }
    append(buffer_, std::string_view("\n\0", 2));
}

std::vector<Line> LineReader::read()
{
    std::vector<Line> lines;
    char* next = buffer_.data();
    for (const ScannedLine& scanned : record_.lines) {
        char* const line = ldif_getline(&next);
        if (line == nullptr) {
            throw refusedChange(source_, scanned.namePlace, "the LDIF reader ends before this line");
        }
        lines.push_back(lineOf(line, scanned));
    }
    return lines;
}

Line LineReader::lineOf(char* line, const ScannedLine& scanned) const
{
    if (scanned.name == separator && *line == separator.front()) {
        return {scanned.name, {}, scanned.namePlace, scanned.valuePlace};
    }
    berval type = {};
    berval value = {};
    int owned = 0;
    const bool taken = ldif_parse_line2(line, &type, &value, &owned) == 0;
    Line result{{}, {}, scanned.namePlace, scanned.valuePlace};
    if (taken) {
        result.name.assign(type.bv_val, type.bv_len);
        append(result.value, {value.bv_val, value.bv_len});
    }
    if (owned != 0) {
        ber_memfree(value.bv_val);
    }
    // What the scan let through must be what is carried out.
    if (!taken || result.name != scanned.name || result.value != scanned.value) {
        throw refusedChange(source_, scanned.namePlace, "the LDIF reader takes this line for something else");
    }
    return result;
}

/// Reads the lines of one record.
class RecordReader
{
public:
    RecordReader(const ChangeSource& source, RecordForm form, std::vector<Line> lines)
        : source_(source), form_(form), lines_(std::move(lines))
    {
    }

    ChangeRecord read();

private:
    bool atEnd() const { return at_ == lines_.size(); }
    Line& here() { return lines_[at_]; }

    ChangeRecord::Kind readKind();
    void readContent(ChangeRecord& record);
    void readModifications(ChangeRecord& record);
    ChangeOperation readOperation();
    void refuseRest(const char* finding);

    [[noreturn]] void refuse(Place place, const std::string& finding) const
    {
        throw refusedChange(source_, place, finding);
    }

    const ChangeSource& source_;
    RecordForm form_;
    std::vector<Line> lines_;
    std::size_t at_ = 0;
};

ChangeValue valueOf(Line& line)
{
    ChangeValue value{std::move(line.value), line.valuePlace};
    value.text.push_back('\0');
    return value;
}

// record = dn-spec SEP (content / changerecord)
ChangeRecord RecordReader::read()
{
    ChangeRecord record{ChangeRecord::Kind::add, std::string(view(here().value)), here().valuePlace, {}};
    ++at_;
    record.kind = readKind();
    switch (record.kind) {
    case ChangeRecord::Kind::add:
    case ChangeRecord::Kind::ensure:
        readContent(record);
        break;
    case ChangeRecord::Kind::modify:
        readModifications(record);
        break;
    case ChangeRecord::Kind::remove:
        refuseRest("nothing may stand behind \"changetype: delete\"");
        break;
    }
    return record;
}

// changetype line; without one it is a content record
ChangeRecord::Kind RecordReader::readKind()
{
    const bool isChange = !atEnd() && sameName(here().name, "changetype");
    if (!isChange) {
        if (form_ == RecordForm::changes) {
            refuse(atEnd() ? lines_.front().namePlace : here().namePlace,
                   "a changetype line is expected behind the DN; new entries without one need -a");
        }
        return ChangeRecord::Kind::add;
    }
    const Line& line = here();
    const std::string_view name = view(line.value);
    struct Row
    {
        const char* name;
        ChangeRecord::Kind kind;
    };
    constexpr Row rows[] = {{"add", ChangeRecord::Kind::add},
                            {"modify", ChangeRecord::Kind::modify},
                            {"delete", ChangeRecord::Kind::remove}};
    const auto* const row =
        std::find_if(std::begin(rows), std::end(rows), [&](const Row& known) { return sameName(name, known.name); });
    if (row == std::end(rows)) {
        refuse(line.valuePlace, "the changetype is not one of: add, delete, modify");
    }
    if (form_ == RecordForm::newEntries && row->kind != ChangeRecord::Kind::add) {
        refuse(line.valuePlace, "only new entries are taken here; other changes are for: veltor modify");
    }
    ++at_;
    return row->kind;
}

void RecordReader::refuseRest(const char* finding)
{
    if (!atEnd()) {
        refuse(here().namePlace, finding);
    }
}

// 1*attrval-spec; values of one attribute may stand apart
void RecordReader::readContent(ChangeRecord& record)
{
    if (atEnd()) {
        refuse(record.place, "an entry needs attributes");
    }
    for (; !atEnd(); ++at_) {
        if (here().isSeparator() || sameName(here().name, "changetype")) {
            refuse(here().namePlace, "an attribute is expected here");
        }
        auto operation =
            std::find_if(record.operations.begin(), record.operations.end(),
                         [&](const ChangeOperation& known) { return sameName(known.attribute, here().name); });
        if (operation == record.operations.end()) {
            record.operations.push_back({ChangeOperation::Kind::add, here().name, here().namePlace, {}});
            operation = std::prev(record.operations.end());
        }
        operation->values.push_back(valueOf(here()));
    }
}

// *mod-spec
void RecordReader::readModifications(ChangeRecord& record)
{
    while (!atEnd()) {
        record.operations.push_back(readOperation());
    }
}

// mod-spec = ("add:" / "delete:" / "replace:") attribute *attrval-spec "-"; the last "-" may be missing
ChangeOperation RecordReader::readOperation()
{
    struct Row
    {
        const char* name;
        ChangeOperation::Kind kind;
    };
    constexpr Row rows[] = {{"add", ChangeOperation::Kind::add},
                            {"delete", ChangeOperation::Kind::remove},
                            {"replace", ChangeOperation::Kind::replace}};
    const Line& head = here();
    const auto* const row = std::find_if(std::begin(rows), std::end(rows),
                                         [&](const Row& known) { return sameName(head.name, known.name); });
    if (row == std::end(rows)) {
        refuse(head.namePlace, "one of \"add:\", \"delete:\", \"replace:\" is expected here");
    }
    ChangeOperation operation{row->kind, std::string(view(head.value)), head.valuePlace, {}};
    if (!isAttributeDescription(operation.attribute)) {
        refuse(operation.place, "this is not an attribute name");
    }
    if (isDnLabel(operation.attribute)) {
        refuse(operation.place, "\"dn\" can't be an attribute: it begins an entry in the file");
    }
    for (++at_; !atEnd() && !here().isSeparator(); ++at_) {
        if (!sameName(here().name, operation.attribute)) {
            refuse(here().namePlace, '"' + operation.attribute + ":\" or \"-\" is expected here");
        }
        operation.values.push_back(valueOf(here()));
    }
    at_ += atEnd() ? 0 : 1;
    if (operation.kind == ChangeOperation::Kind::add && operation.values.empty()) {
        refuse(operation.place, "there is no value to add");
    }
    return operation;
}

std::string nameOf(const std::string& file)
{
    return file == "-" ? "standard input" : file;
}

class Input
{
public:
    explicit Input(const std::string& file)
        : number_(file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY))
    {
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input()
    {
        if (number_ > STDERR_FILENO) {
            ::close(number_);
        }
    }
    int number() const { return number_; }

private:
    int number_;
};

// Only a device gives without an end. A terminal has one, and so has the empty device.
void requireAnEnd(int descriptor, const std::string& file)
{
    struct stat status = {};
    struct stat empty = {};
    const bool device =
        descriptor >= 0 && ::fstat(descriptor, &status) == 0 && (S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode));
    if (device && ::isatty(descriptor) != 1 && (::stat("/dev/null", &empty) != 0 || status.st_rdev != empty.st_rdev)) {
        throw Failure(ExitCode::file, nameOf(file) + ": a device, which may have no end",
                      {"nothing was written; name another file"});
    }
}

} // namespace

std::vector<ChangeRecord> readChanges(const ChangeSource& source, const WipedText& text, RecordForm form)
{
    std::vector<ChangeRecord> records;
    for (const ScannedRecord& scanned : scanChanges(source, view(text))) {
        records.push_back(RecordReader(source, form, LineReader(source, scanned).read()).read());
    }
    return records;
}

WipedText readChangeFile(const std::string& file)
{
    const Input input(file);
    requireAnEnd(input.number(), file);
    constexpr std::size_t chunkBytes = 65536;
    WipedText text;
    for (;;) {
        const std::size_t filled = text.size();
        text.resize(filled + chunkBytes);
        const ssize_t count = input.number() < 0 ? -1 : ::read(input.number(), text.data() + filled, chunkBytes);
        const int error = errno;
        text.resize(filled + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count == 0) {
            return text;
        }
        if (count < 0 && error != EINTR) {
            throw Failure(ExitCode::file, nameOf(file) + ": " + std::strerror(error),
                          {"nothing was written; -f names a file with changes, - is standard input"},
                          {.file = nameOf(file)});
        }
    }
}

} // namespace veltor::tool
