// The records that a text means, and the place of each mistake in their grammar.
#include "change_records.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <ldap.h>
#include <ldif.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using veltor::tool::append;
using veltor::tool::ChangeOperation;
using veltor::tool::ChangeRecord;
using veltor::tool::ChangeValue;
using veltor::tool::ExitCode;
using veltor::tool::Failure;
using veltor::tool::Place;
using veltor::tool::placeName;
using veltor::tool::readChangeFile;
using veltor::tool::readChanges;
using veltor::tool::RecordForm;
using veltor::tool::view;
using veltor::tool::WipedText;

namespace {

WipedText wiped(const std::string& text)
{
    WipedText out;
    append(out, text);
    return out;
}

std::string at(Place place)
{
    return placeName("@", place).substr(1);
}

/// "modify cn=a:1:5 replace cn:3:10 a:4:5 ", a bar between records.
std::string records(const std::string& text, RecordForm form)
{
    const char* const recordKinds[] = {"add", "modify", "delete"};
    const char* const operationKinds[] = {"add", "delete", "replace"};
    std::string out;
    for (const ChangeRecord& record : readChanges({"in", "modify"}, wiped(text), form)) {
        out += out.empty() ? "" : "| ";
        out += std::string(recordKinds[static_cast<int>(record.kind)]) + ' ' + record.dn + at(record.place) + ' ';
        for (const ChangeOperation& operation : record.operations) {
            out += std::string(operationKinds[static_cast<int>(operation.kind)]) + ' ' + operation.attribute +
                   at(operation.place) + ' ';
            for (const ChangeValue& value : operation.values) {
                out += std::string(value.text.data()) + at(value.place) + ' ';
                EXPECT_EQ(value.text.back(), '\0');
            }
        }
    }
    return out;
}

} // namespace

TEST(ChangeRecords, AreReadInEveryForm)
{
    struct Row
    {
        const char* name;
        RecordForm form;
        std::string text, records;
    };
    const Row rows[] = {
        {"nothing", RecordForm::changes, "# nothing\n", ""},
        {"delete", RecordForm::changes, "dn: cn=a\nchangetype: delete\n", "delete cn=a:1:5 "},
        {"letter case", RecordForm::changes, "DN: cn=a\nChangeType: DELETE\n", "delete cn=a:1:5 "},
        {"modify without modifications", RecordForm::changes, "dn: cn=a\nchangetype: modify\n", "modify cn=a:1:5 "},
        {"replace", RecordForm::changes, "dn: cn=a\nchangetype: modify\nreplace: cn\ncn: a\ncn: b\n-\n",
         "modify cn=a:1:5 replace cn:3:10 a:4:5 b:5:5 "},
        {"replace with nothing", RecordForm::changes, "dn: cn=a\nchangetype: modify\nreplace: cn\n-\n",
         "modify cn=a:1:5 replace cn:3:10 "},
        {"delete of an attribute and of a value", RecordForm::changes,
         "dn: cn=a\nchangetype: modify\ndelete: cn\n-\ndelete: sn\nSN: x\n-\n",
         "modify cn=a:1:5 delete cn:3:9 delete sn:5:9 x:6:5 "},
        {"no separator at the end", RecordForm::changes, "dn: cn=a\nchangetype: modify\nadd: cn\ncn: a",
         "modify cn=a:1:5 add cn:3:6 a:4:5 "},
        {"empty value", RecordForm::changes, "dn: cn=a\nchangetype: modify\nadd: cn\ncn:\n",
         "modify cn=a:1:5 add cn:3:6 :4:4 "},
        {"add", RecordForm::changes, "dn: cn=a\nchangetype: add\ncn: a\n", "add cn=a:1:5 add cn:3:1 a:3:5 "},
        {"content", RecordForm::changesAndContent, "dn: cn=a\ncn: a\nsn: x\nCN: b\n",
         "add cn=a:1:5 add cn:2:1 a:2:5 b:4:5 add sn:3:1 x:3:5 "},
        {"content and changes", RecordForm::changesAndContent, "dn: cn=a\ncn: a\n\ndn: cn=b\nchangetype: delete\n",
         "add cn=a:1:5 add cn:2:1 a:2:5 | delete cn=b:4:5 "},
        {"new entries", RecordForm::newEntries, "dn: cn=a\ncn: a\n\ndn: cn=b\nchangetype: add\ncn: b\n",
         "add cn=a:1:5 add cn:2:1 a:2:5 | add cn=b:4:5 add cn:6:1 b:6:5 "},
        {"base64 and folds", RecordForm::newEntries, "# c\ndn:: Y249\n YQ==\ncn:: S8O\n 2bG4=\nsn: a\n  b\n",
         "add cn=a:2:6 add cn:4:1 K\xC3\xB6ln:4:6 add sn:6:1 a b:6:5 "},
        {"folds behind the colons", RecordForm::newEntries, "dn:\n cn=a\ncn::\n  YQ==\nsn:\n \n  x\n",
         "add cn=a:2:2 add cn:3:1 a:4:3 add sn:5:1 x:7:3 "},
        {"carriage returns and comments", RecordForm::newEntries,
         "version: 1\r\n# c\r\n  d\r\ndn: cn=a\r\n# c\r\ncn: a\r\n b\r\n", "add cn=a:4:5 add cn:6:1 ab:6:5 "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            EXPECT_EQ(records(row.text, row.form), row.records);
        } catch (const Failure& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
}

TEST(ChangeRecords, AreRefusedWithTheExactPlace)
{
    struct Row
    {
        const char* name;
        RecordForm form;
        std::string text, refusal;
    };
    const std::string noType = "a changetype line is expected behind the DN; new entries without one need -a";
    const std::string operation = "one of \"add:\", \"delete:\", \"replace:\" is expected here";
    const std::string attribute = "an attribute is expected here";
    const std::string head = "dn: cn=a\nchangetype: modify\n";
    const Row rows[] = {
        {"no changetype", RecordForm::changes, "dn: cn=a\ncn: a\n", "in:2:1: " + noType},
        {"a dn alone", RecordForm::changes, "dn: cn=a\n", "in:1:1: " + noType},
        {"a dn alone as content", RecordForm::changesAndContent, "dn: cn=a\n", "in:1:5: an entry needs attributes"},
        {"add of nothing", RecordForm::changes, "dn: cn=a\nchangetype: add\n", "in:1:5: an entry needs attributes"},
        {"unknown changetype", RecordForm::changes, "dn: cn=a\nchangetype: change\n",
         "in:2:13: the changetype is not one of: add, delete, modify"},
        {"empty changetype", RecordForm::changes, "dn: cn=a\nchangetype:\n",
         "in:2:12: the changetype is not one of: add, delete, modify"},
        {"late changetype", RecordForm::changesAndContent, "dn: cn=a\ncn: a\nchangetype: add\n",
         "in:3:1: " + attribute},
        {"modify where entries are added", RecordForm::newEntries, head + "delete: cn\n",
         "in:2:13: only new entries are taken here; other changes are for: veltor modify"},
        {"delete where entries are added", RecordForm::newEntries, "dn: cn=a\nchangetype: delete\n",
         "in:2:13: only new entries are taken here; other changes are for: veltor modify"},
        {"separator in content", RecordForm::newEntries, "dn: cn=a\ncn: a\n-\n", "in:3:1: " + attribute},
        {"text behind delete", RecordForm::changes, "dn: cn=a\nchangetype: delete\ncn: a\n",
         "in:3:1: nothing may stand behind \"changetype: delete\""},
        {"no operation", RecordForm::changes, head + "cn: a\n", "in:3:1: " + operation},
        {"increment", RecordForm::changes, head + "increment: zor-slapdPort\nzor-slapdPort: 1\n-\n",
         "in:3:1: " + operation},
        {"separator without an operation", RecordForm::changes, head + "-\n", "in:3:1: " + operation},
        {"two separators", RecordForm::changes, head + "delete: cn\n-\n-\n", "in:5:1: " + operation},
        {"other attribute", RecordForm::changes, head + "replace: cn\ncn: a\nsn: b\n",
         "in:5:1: \"cn:\" or \"-\" is expected here"},
        {"missing separator", RecordForm::changes, head + "delete: cn\nreplace: sn\nsn: b\n",
         "in:4:1: \"cn:\" or \"-\" is expected here"},
        {"add without a value", RecordForm::changes, head + "add: cn\n-\n", "in:3:6: there is no value to add"},
        {"operation without a name", RecordForm::changes, head + "delete:\n-\n",
         "in:3:8: this is not an attribute name"},
        {"operation on a bad name", RecordForm::changes, head + "delete: c:n\n-\n",
         "in:3:9: this is not an attribute name"},
        {"operation on a bad name in base64", RecordForm::changes, head + "add:: I2Nu\n-\n",
         "in:3:7: this is not an attribute name"},
        {"operation on the label of entries", RecordForm::changes, head + "add: dn\n",
         "in:3:6: \"dn\" can't be an attribute: it begins an entry in the file"},
        {"mistake in the last record", RecordForm::changes, "dn: cn=a\nchangetype: delete\n\ndn: cn=b\n",
         "in:4:1: " + noType},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            ADD_FAILURE() << records(row.text, row.form);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.what(), row.refusal);
            EXPECT_EQ(failure.exit(), ExitCode::refused);
        }
    }
}

// A reader of the fifo would hang until somebody writes to it, so the writer tells that nobody has opened it.
TEST(ChangeRecords, NeverOpenAFileThatATextNames)
{
    const std::string fifo = testing::TempDir() + "veltor_never_opened_" + std::to_string(::getpid());
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string head = "dn: cn=a\nchangetype: modify\nadd: cn\n";
    for (const std::string& text :
         {head + "cn:< file://" + fifo + "\n-\n", head + "cn:<file://" + fifo + "\n-\n",
          head + "cn:\n < file://" + fifo + "\n-\n", "include: file://" + fifo + "\n\n" + head + "cn: a\n",
          "# c\ninclude: file://" + fifo + "\n", "1\ninclude: file://" + fifo + "\n",
          head + "cn: a\n-\n\ninclude: file://" + fifo + "\n"}) {
        SCOPED_TRACE(text);
        EXPECT_THROW(readChanges({"in", "modify"}, wiped(text), RecordForm::changes), Failure);
        EXPECT_EQ(::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1);
    }
    ::unlink(fifo.c_str());
}

// The reason for all that: without the scan, the LDIF reader does open what a value names.
TEST(ChangeRecords, WouldHaveFilesOpenedByTheReaderAlone)
{
    const std::string file = testing::TempDir() + "veltor_opened_" + std::to_string(::getpid());
    std::ofstream(file) << "content";
    std::string line = "cn:< file://" + file;
    berval name = {};
    berval value = {};
    int owned = 0;
    ASSERT_EQ(ldif_parse_line2(line.data(), &name, &value, &owned), 0);
    EXPECT_EQ(std::string(value.bv_val, value.bv_len), "content");
    if (owned != 0) {
        ber_memfree(value.bv_val);
    }
    ::unlink(file.c_str());
}

TEST(ChangeRecords, AreReadFromAFileOfAnySize)
{
    const std::string file = testing::TempDir() + "veltor_changes_" + std::to_string(::getpid());
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 200000U}) {
        SCOPED_TRACE(size);
        const std::string text(size, 'x');
        std::ofstream(file) << text;
        EXPECT_EQ(std::string(view(readChangeFile(file))), text);
    }
    ::unlink(file.c_str());
    try {
        readChangeFile(file);
        ADD_FAILURE() << "a file that is not there was read";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exit(), ExitCode::file);
        EXPECT_EQ(failure.what(), file + ": No such file or directory");
    }
}
