// What a safe write does to the lines of a file, byte by byte. Each folder of tests/data/layout is a case, named after
// what it shows:
//
//   before.conf  the file
//   change.ldif  LDIF change records; the tree delete control (1.2.840.113556.1.4.805) takes an entry with its children
//   after.conf   the file with the changes in it
//   comments     optional, comments to be set behind the changes: records parted by blank lines, each of a DN ("<root>"
//                for the empty one), the name of an attribute or "-" for the entry's own comment, and the lines of the
//                text; none removes it
//   refused      optional, the code of the call that has to be refused: after.conf is then before.conf
//
// All changes of a folder are one change set.
#include "support/mods.h"
#include "support/update_api_test.h"

#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <ldap.h>
#include <ldif.h>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <strings.h>
#include <vector>

using namespace veltor::test;

namespace {

const std::filesystem::path golden = std::filesystem::path(VELTOR_TEST_DATA) / "layout";

constexpr char treeDelete[] = "1.2.840.113556.1.4.805";

struct FreeLdif
{
    void operator()(LDIFFP* stream) const { ldif_close(stream); }
    void operator()(char* text) const { ber_memfree(text); }
};

struct Line
{
    std::string name;
    std::string value;

    bool is(const char* other) const { return strcasecmp(name.c_str(), other) == 0; }
};

struct Record
{
    enum class Kind { add, modify, remove };

    std::string dn;
    Kind kind = Kind::modify;
    bool withChildren = false;
    std::vector<Change> changes;
};

struct NewComment
{
    std::string dn;
    std::string attribute; // empty: the entry's own
    std::string text;

    const char* attributeOrNull() const { return attribute.empty() ? nullptr : attribute.c_str(); }
};

std::vector<Line> linesOf(char* text)
{
    std::vector<Line> lines;
    while (char* const line = ldif_getline(&text)) {
        if (*line == '-') {
            lines.push_back({"-", ""});
            continue;
        }
        berval name = {};
        berval value = {};
        int owned = 0;
        if (ldif_parse_line2(line, &name, &value, &owned) != 0) {
            throw std::runtime_error("no LDIF line: " + std::string(line));
        }
        const std::unique_ptr<char, FreeLdif> decoded(owned != 0 ? value.bv_val : nullptr);
        lines.push_back({{name.bv_val, name.bv_len}, value.bv_len == 0 ? "" : std::string(value.bv_val, value.bv_len)});
    }
    return lines;
}

Change& changeOf(std::vector<Change>& changes, const std::string& type)
{
    const auto known = std::find_if(changes.begin(), changes.end(), [&type](const Change& change) {
        return strcasecmp(change.type.c_str(), type.c_str()) == 0;
    });
    return known != changes.end() ? *known : changes.emplace_back(Change{modAdd, type, std::vector<std::string>()});
}

int operationOf(const Line& line)
{
    if (line.is("add")) {
        return modAdd;
    }
    if (line.is("delete")) {
        return modDelete;
    }
    if (line.is("replace")) {
        return modReplace;
    }
    throw std::runtime_error("no modification: " + line.name);
}

Record recordOf(const std::vector<Line>& lines)
{
    Record record;
    auto line = lines.begin();
    record.dn = line++->value;
    for (; line != lines.end() && line->is("control"); ++line) {
        if (line->value != treeDelete + std::string(" true")) {
            throw std::runtime_error("unknown control: " + line->value);
        }
        record.withChildren = true;
    }
    if (line == lines.end() || !line->is("changetype")) {
        throw std::runtime_error("no changetype behind " + record.dn);
    }
    const std::string kind = line++->value;
    if (kind == "add") {
        record.kind = Record::Kind::add;
        for (; line != lines.end(); ++line) {
            changeOf(record.changes, line->name).values->push_back(line->value);
        }
        return record;
    }
    if (kind == "delete") {
        record.kind = Record::Kind::remove;
        return record;
    }
    if (kind != "modify") {
        throw std::runtime_error("unknown changetype: " + kind);
    }
    while (line != lines.end()) {
        Change change{operationOf(*line), line->value, std::nullopt};
        std::vector<std::string> values;
        for (++line; line != lines.end() && line->name != "-"; ++line) {
            values.push_back(line->value);
        }
        if (!values.empty()) {
            change.values = std::move(values);
        }
        record.changes.push_back(std::move(change));
        line += line != lines.end() ? 1 : 0;
    }
    return record;
}

std::vector<Record> recordsOf(const std::filesystem::path& file)
{
    std::vector<Record> records;
    const std::unique_ptr<LDIFFP, FreeLdif> stream(ldif_open(file.c_str(), "r"));
    if (stream == nullptr) {
        throw std::runtime_error("can't read " + file.string());
    }
    unsigned long lineNumber = 0;
    char* text = nullptr;
    int size = 0;
    int code = 0;
    while ((code = ldif_read_record(stream.get(), &lineNumber, &text, &size)) > 0) {
        const std::vector<Line> lines = linesOf(text);
        if (!lines.empty()) {
            records.push_back(recordOf(lines));
        }
    }
    ber_memfree(text);
    if (code < 0) {
        throw std::runtime_error("no LDIF: " + file.string());
    }
    return records;
}

std::vector<NewComment> commentsOf(const std::filesystem::path& file)
{
    std::vector<NewComment> comments;
    std::istringstream text(contentOf(file));
    for (std::string line; std::getline(text, line);) {
        if (line.empty()) {
            continue;
        }
        NewComment& comment = comments.emplace_back(NewComment{line == "<root>" ? "" : line, "", ""});
        if (!std::getline(text, comment.attribute) || comment.attribute.empty()) {
            throw std::runtime_error("a DN without an attribute: " + file.string());
        }
        if (comment.attribute == "-") {
            comment.attribute.clear();
        }
        while (std::getline(text, line) && !line.empty()) {
            comment.text += comment.text.empty() ? line : "\n" + line;
        }
    }
    return comments;
}

/// The names of the folders, in order.
std::vector<std::string> cases()
{
    std::vector<std::string> names;
    for (const auto& folder : std::filesystem::directory_iterator(golden)) {
        names.push_back(folder.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class KeptLayout : public UpdateApiTest, public ::testing::WithParamInterface<std::string>
{
protected:
    static std::filesystem::path fileOf(const std::string& name) { return golden / GetParam() / name; }

    Handle safe() const
    {
        Handle handle = unbound(pathOf(fileName));
        EXPECT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    static int apply(void* handle, const Record& record)
    {
        Mods mods(record.changes);
        switch (record.kind) {
        case Record::Kind::add:
            return cfg_add_s(handle, record.dn.c_str(), mods.list());
        case Record::Kind::modify:
            return cfg_modify_s(handle, record.dn.c_str(), mods.list());
        case Record::Kind::remove:
            EXPECT_EQ(cfg_set_option(handle, CFG_OPT_DELETE_NON_LEAVES, flag(record.withChildren ? 1 : 0)), 0);
            return cfg_delete_s(handle, record.dn.c_str());
        }
        return -1;
    }

    /// Makes the changes of the folder, up to the first that is refused.
    static int makeChanges(void* handle)
    {
        for (const Record& record : recordsOf(fileOf("change.ldif"))) {
            if (const int code = apply(handle, record); code != 0) {
                return code;
            }
        }
        for (const NewComment& comment : newComments()) {
            const int code =
                cfg_set_comment_s(handle, comment.dn.c_str(), comment.attributeOrNull(), comment.text.c_str());
            if (code != 0) {
                return code;
            }
        }
        return 0;
    }

    static std::vector<NewComment> newComments()
    {
        return std::filesystem::exists(fileOf("comments")) ? commentsOf(fileOf("comments")) : std::vector<NewComment>();
    }

    static void expectComments(void* handle)
    {
        for (const NewComment& comment : newComments()) {
            char* text = nullptr;
            EXPECT_EQ(cfg_get_comment_s(handle, comment.dn.c_str(), comment.attributeOrNull(), &text), 0);
            EXPECT_EQ(shown(Text(text).get()), comment.text) << comment.dn << ", " << comment.attribute;
        }
    }

    static std::string everyEntry(void* handle)
    {
        cfg_message* result = nullptr;
        EXPECT_EQ(cfg_read_s(handle, nullptr, subtree, &result), 0) << shown(cfg_dump_exception(handle));
        return listed(Message(result).get());
    }
};

std::string nameOfCase(const ::testing::TestParamInfo<std::string>& info)
{
    return info.param;
}

} // namespace

TEST(KeptLayoutCases, HaveTheirFilesAndNoOthers)
{
    const std::set<std::string> needed{"after.conf", "before.conf", "change.ldif"};
    const std::set<std::string> allowed{"after.conf", "before.conf", "change.ldif", "comments", "refused"};
    for (const std::string& name : cases()) {
        SCOPED_TRACE(name);
        std::set<std::string> files;
        for (const auto& file : std::filesystem::directory_iterator(golden / name)) {
            files.insert(file.path().filename());
        }
        EXPECT_TRUE(std::includes(files.begin(), files.end(), needed.begin(), needed.end()));
        EXPECT_TRUE(std::includes(allowed.begin(), allowed.end(), files.begin(), files.end()));
        if (files.contains("refused")) {
            EXPECT_EQ(contentOf(golden / name / "before.conf"), contentOf(golden / name / "after.conf"));
        }
    }
}

TEST_P(KeptLayout, AChangeSetWritesTheseBytes)
{
    const std::string before = contentOf(fileOf("before.conf"));
    const std::string after = contentOf(fileOf("after.conf"));
    write(before);
    const Handle handle = safe();
    EXPECT_EQ(rendered(handle.get()), before);
    remember();

    ASSERT_EQ(cfg_begin_s(handle.get(), 0), 0) << shown(cfg_dump_exception(handle.get()));
    int code = makeChanges(handle.get());
    if (std::filesystem::exists(fileOf("refused"))) {
        if (code == 0) {
            code = cfg_commit_s(handle.get());
        } else {
            EXPECT_EQ(cfg_commit_s(handle.get()), 53);
        }
        EXPECT_EQ(code, std::stoi(contentOf(fileOf("refused"))));
        expectUntouched();
        EXPECT_EQ(rendered(handle.get()), before);
        return;
    }
    ASSERT_EQ(code, 0) << shown(cfg_dump_exception(handle.get()));
    ASSERT_EQ(rendered(handle.get()), after) << "before the commit";
    expectUntouched();
    EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    EXPECT_EQ(read(), after);
    if (after == before) {
        expectUntouched();
    }
    EXPECT_EQ(rendered(handle.get()), after) << "behind the commit";

    const Handle second = safe();
    EXPECT_EQ(everyEntry(second.get()), everyEntry(handle.get()));
    EXPECT_EQ(rendered(second.get()), after) << "as another handle has it";
    expectComments(second.get());

    remember();
    EXPECT_EQ(cfg_begin_s(second.get(), 0), 0);
    EXPECT_EQ(cfg_commit_s(second.get()), 0);
    expectUntouched();
    EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0);
    EXPECT_EQ(cfg_commit_s(handle.get()), 0);
    expectUntouched();
}

INSTANTIATE_TEST_SUITE_P(Golden, KeptLayout, ::testing::ValuesIn(cases()), nameOfCase);
