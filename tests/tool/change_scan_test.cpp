// What is refused before the LDIF reader sees it, and the exact place that is named.
#include "change_scan.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <vector>

using veltor::tool::ExitCode;
using veltor::tool::Failure;
using veltor::tool::isAttributeDescription;
using veltor::tool::Place;
using veltor::tool::placeName;
using veltor::tool::scanChanges;
using veltor::tool::ScannedLine;
using veltor::tool::ScannedRecord;
using veltor::tool::view;

namespace {

/// The records of a text as "name=value@line:column" with the place of the value, a bar between records.
std::string scanned(const std::string& text)
{
    std::string out;
    for (const ScannedRecord& record : scanChanges({"in", "modify"}, text)) {
        out += out.empty() ? "" : "| ";
        for (const ScannedLine& line : record.lines) {
            out += line.name + '=' + std::string(view(line.value)) + placeName("@", line.valuePlace).substr(1) + ' ';
        }
    }
    return out;
}

/// "line:column reason" of the refusal, "taken" without one.
std::string refusalOf(const std::string& text)
{
    try {
        scanChanges({"in", "modify"}, text);
        return "taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exit(), ExitCode::refused);
        return failure.what();
    }
}

const std::string modify = "dn: cn=a\nchangetype: modify\nreplace: cn\n";

} // namespace

TEST(ChangeScan, TakesLdifApart)
{
    struct Row
    {
        const char* name;
        std::string text, lines;
    };
    const Row rows[] = {
        {"nothing", "", ""},
        {"empty lines", "\n\n\r\n", ""},
        {"comments alone", "# a\n#b\n\n# c", ""},
        {"a record", "dn: cn=a\ncn: a\n", "dn=cn=a:1:5 cn=a:2:5 "},
        {"no line feed at the end", "dn: cn=a\ncn: a", "dn=cn=a:1:5 cn=a:2:5 "},
        {"carriage returns", "dn: cn=a\r\ncn: a\r\n\r\ndn: cn=b\r\n", "dn=cn=a:1:5 cn=a:2:5 | dn=cn=b:4:5 "},
        {"two records", "dn: cn=a\n\n\ndn: cn=b\n", "dn=cn=a:1:5 | dn=cn=b:4:5 "},
        {"version above", "version: 1\n\ndn: cn=a\n", "dn=cn=a:3:5 "},
        {"version in the same paragraph", "# c\nversion:  1\ndn: cn=a\n", "dn=cn=a:3:5 "},
        {"no blank behind the colon", "dn:cn=a\n", "dn=cn=a:1:4 "},
        {"blanks behind the colon", "dn:   cn=a\n", "dn=cn=a:1:7 "},
        {"no value", "dn: cn=a\ncn:\n", "dn=cn=a:1:5 cn=:2:4 "},
        {"a colon in the value", "dn: cn=a\ncn: a:b: c\n", "dn=cn=a:1:5 cn=a:b: c:2:5 "},
        {"folded value", "dn: cn=\n ab\n", "dn=cn=ab:1:5 "},
        {"folded behind the colon", "dn:\n cn=a\n", "dn=cn=a:2:2 "},
        {"blanks around a password", "dn: cn=a\nzor-slapdAdminPW:: IGEg\n", "dn=cn=a:1:5 zor-slapdAdminPW= a :2:20 "},
        {"folded blank", "dn: cn=a\ndescription: a\n  b\n", "dn=cn=a:1:5 description=a b:2:14 "},
        {"folded with nothing", "dn: cn=a\n \n", "dn=cn=a:1:5 "},
        {"folded carriage return", "dn: cn=\r\n ab\r\n", "dn=cn=ab:1:5 "},
        {"comment within", "dn: cn=a\n# c\n  folded\ncn: a\n", "dn=cn=a:1:5 cn=a:4:5 "},
        {"base64", "dn:: Y249YQ==\ncn:: YQ==\n", "dn=cn=a:1:6 cn=a:2:6 "},
        {"base64 of three lengths", "dn: cn=a\na:: YWI=\nb:: YWJj\nc:: YWJjZA==\n",
         "dn=cn=a:1:5 a=ab:2:5 b=abc:3:5 c=abcd:4:5 "},
        {"base64 folded", "dn: cn=a\ncn:: YW\n Jj\n", "dn=cn=a:1:5 cn=abc:2:6 "},
        {"base64 of UTF-8", "dn: cn=a\ncn:: S8O2bG4=\n", "dn=cn=a:1:5 cn=K\xC3\xB6ln:2:6 "},
        {"UTF-8 as it is", "dn: cn=K\xC3\xB6ln\n", "dn=cn=K\xC3\xB6ln:1:5 "},
        {"tab within", "dn: cn=a\ncn: a\tb\n", "dn=cn=a:1:5 cn=a\tb:2:5 "},
        {"separator", modify + "cn: a\n-\n", "dn=cn=a:1:5 changetype=modify:2:13 replace=cn:3:10 cn=a:4:5 -=:5:1 "},
        {"options and numbers as names", "dn: cn=a\ncn;lang-de: a\n2.5.4.3: b\n",
         "dn=cn=a:1:5 cn;lang-de=a:2:13 2.5.4.3=b:3:10 "},
        {"escapes of a DN", "dn: cn=a\\2cb\\, c\n", "dn=cn=a\\2cb\\, c:1:5 "},
        {"a backslash that is none of a DN", "dn: cn=a\ndescription: C:\\0abc\n",
         "dn=cn=a:1:5 description=C:\\0abc:2:14 "},
        {"a clear password", "dn: cn=a\nzor-slapdAdminPW: >a\n", "dn=cn=a:1:5 zor-slapdAdminPW=>a:2:19 "},
        {"the shape of a password elsewhere", "dn: cn=a\ndescription: >a<\nzor-slapdPwEncryption: ***\n",
         "dn=cn=a:1:5 description=>a<:2:14 zor-slapdPwEncryption=***:3:24 "},
        {"version as an attribute", "dn: cn=a\nversion: 7\n", "dn=cn=a:1:5 version=7:2:10 "},
        {"control as an attribute", "dn: cn=a\ncn: a\ncontrol: b\n", "dn=cn=a:1:5 cn=a:2:5 control=b:3:10 "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            EXPECT_EQ(scanned(row.text), row.lines);
        } catch (const Failure& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
}

TEST(ChangeScan, RefusesWithTheExactPlace)
{
    struct Row
    {
        const char* name;
        std::string text, refusal;
    };
    const std::string url = "\":<\" URLs are not taken: no other file is read";
    const std::string include = "\"include:\" lines are not taken: no other file is read";
    const std::string begins = "a record begins with a \"dn:\" line";
    const std::string digit = "a record can't begin with a digit";
    const std::string fold = "a line is folded behind the colon at the earliest";
    const std::string control = "a control character";
    const std::string decoded = "the value holds what the file can't: ";
    const std::string zero = "a zero byte, at which the library would cut the text";
    const std::string lineFeed = "a line feed, which would begin a line of its own in the file";
    const std::string escapes = "the escapes of this DN stand for what the file can't hold: ";
    const std::string base64 = "this is not base64: four characters, \"=\" at the end, make three bytes";
    const std::string dn = "\"dn\" begins a record: an empty line is missing above it";
    const std::string rename = "entries can't be renamed: add the new one and delete the old one";
    const Row rows[] = {
        // What the LDIF reader would open, or read otherwise.
        {"URL", modify + "cn:< file:///etc/passwd\n", "in:4:3: " + url},
        {"URL without a blank", modify + "cn:<file:///etc/passwd\n", "in:4:3: " + url},
        {"URL as a DN", "dn:< file:///etc/passwd\n", "in:1:3: " + url},
        {"URL in a second record", "dn: cn=a\n\ndn: cn=b\ncn:<x\n", "in:4:3: " + url},
        {"URL behind a folded colon", modify + "cn:\n < file:///etc/passwd\n", "in:5:2: " + fold},
        {"URL behind an empty fold", modify + "cn:\n \n <file:///etc/passwd\n", "in:6:2: " + fold},
        {"less-than as a value", "dn: cn=a\ncn: < file:///etc/passwd\n",
         "in:2:5: a value that begins with \"<\" is written in base64, behind two colons"},
        {"include", "include: file:///etc/passwd\n", "in:1:1: " + include},
        {"include in capitals", "INCLUDE:file:///etc/passwd\n", "in:1:1: " + include},
        {"include behind a comment", "# c\ninclude: file:///etc/passwd\n", "in:2:1: " + include},
        {"include behind the version", "version: 1\ninclude: file:///etc/passwd\n", "in:2:1: " + include},
        {"include behind a record", "dn: cn=a\n\ninclude: file:///etc/passwd\n", "in:3:1: " + include},
        {"include within a record", "dn: cn=a\ninclude: file:///etc/passwd\n", "in:2:1: " + include},
        {"folded include", "incl\n ude: file:///etc/passwd\n", "in:2:2: " + fold},
        {"digit", "1\ndn: cn=a\n", "in:1:1: " + digit},
        {"digit with a colon", "1: x\ndn: cn=a\n", "in:1:1: " + digit},
        {"digit before an include", "12\ninclude: file:///etc/passwd\n", "in:1:1: " + digit},
        {"digit in the second record", "dn: cn=a\n\n# c\n2\ndn: cn=b\n", "in:4:1: " + digit},
        {"folded name", "dn: cn=a\nc\n n: a\n", "in:3:2: " + fold},
        {"folded before the colon", "dn: cn=a\ncn\n : a\n", "in:3:2: " + fold},
        {"folded between the colons", "dn: cn=a\ncn:\n : YQ==\n", "in:3:2: " + fold},
        // What this tool does not do.
        {"modrdn", "dn: cn=a\nchangetype: modrdn\nnewrdn: cn=b\n", "in:2:13: " + rename},
        {"moddn", "dn: cn=a\nchangetype: ModDN\n", "in:2:13: " + rename},
        {"moddn in base64", "dn: cn=a\nchangetype:: bW9kZG4=\n", "in:2:14: " + rename},
        {"control", "dn: cn=a\ncontrol: 1.2.3 true\nchangetype: delete\n", "in:2:1: controls are not taken"},
        {"other version", "version: 2\n", "in:1:10: only version 1 of LDIF is known"},
        {"second version", "version: 1\nversion: 1\n", "in:2:1: " + begins},
        // No LDIF.
        {"no colon", "dn: cn=a\nhello\n", "in:2:1: this is no LDIF: there is no colon in the line"},
        {"nothing before the colon", "dn: cn=a\n: x\n", "in:2:1: this is not an attribute name"},
        {"continuation of nothing", " dn: cn=a\n", "in:1:1: there is no line that this one could continue"},
        {"continuation behind an empty line", "dn: cn=a\n\n x\n",
         "in:3:1: there is no line that this one could continue"},
        {"tab in front", "dn: cn=a\n\tb\n", "in:2:1: this is no LDIF: there is no colon in the line"},
        {"no dn", "cn: a\n", "in:1:1: " + begins},
        {"separator first", "-\n", "in:1:1: " + begins},
        {"two separators in one line", "dn: cn=a\n--\n", "in:2:1: this is no LDIF: there is no colon in the line"},
        {"no base64", "dn: cn=a\ncn::\n", "in:2:5: behind two colons a value in base64 is expected"},
        {"bad base64", "dn: cn=a\ncn:: YQ$=\n", "in:2:8: this character is not base64"},
        {"bad base64 behind a fold", "dn: cn=a\ncn:: YQ\n \xC3\xA4\n", "in:3:2: this character is not base64"},
        {"blank in base64", "dn: cn=a\ncn:: YQ == \n", "in:2:8: this character is not base64"},
        {"short base64", "dn: cn=a\ncn:: YWI\n", "in:2:6: " + base64},
        {"base64 with padding within", "dn: cn=a\ncn:: YQ==YQ==\n", "in:2:6: " + base64},
        {"padding alone", "dn: cn=a\ncn:: ====\n", "in:2:6: " + base64},
        // Names that would not stay names.
        {"blank in a name", "dn: cn=a\nc n: a\n", "in:2:1: this is not an attribute name"},
        {"blank behind a name", "dn: cn=a\ncn : a\n", "in:2:1: this is not an attribute name"},
        {"underscore", "dn: cn=a\nc_n: a\n", "in:2:1: this is not an attribute name"},
        {"name that begins with a hyphen", "dn: cn=a\n-cn: a\n", "in:2:1: this is not an attribute name"},
        {"name beyond ASCII", "dn: cn=a\n\xC3\xA4: a\n", "in:2:1: this is not an attribute name"},
        {"dn as an attribute", "dn: cn=a\ncn: a\nDN: cn=b\n", "in:3:1: " + dn},
        {"empty dn", "dn:\n", "in:1:4: a DN is expected here; what stands above the entries can't be changed this way"},
        {"dn of parentheses", "dn: ( )\n",
         "in:1:5: a DN is expected here; what stands above the entries can't be changed this way"},
        // Values that would not come back.
        {"parenthesis at the end", "dn: cn=a\ncn: f(x)\n",
         "in:2:5: the value begins or ends with a parenthesis: it would come back as \"f(x\""},
        {"parenthesis at the start", "dn: cn=a\ncn: (x\n",
         "in:2:5: the value begins or ends with a parenthesis: it would come back as \"x\""},
        {"escaped parenthesis in a dn", "dn: cn=\\28a\n",
         "in:1:5: the escapes of this DN stand for parentheses, which the file would not give back"},
        {"zero byte", std::string("dn: cn=a\ncn: a\0b\n", 16), "in:2:6: " + zero},
        {"zero byte in a comment", std::string("# a\0b\n", 6), "in:1:4: " + zero},
        {"zero byte in base64", "dn: cn=a\ncn:: YQBi\n", "in:2:6: " + decoded + zero},
        {"line feed in base64", "dn: cn=a\ncn:: YQpi\n", "in:2:6: " + decoded + lineFeed},
        {"line feed in a base64 dn", "dn:: Y249YQpi\n", "in:1:6: " + decoded + lineFeed},
        {"escape", "dn: cn=a\ncn: \xC3\xB6\x1B[2J\n", "in:2:6: " + control},
        {"lone carriage return", "dn: cn=a\ncn: a\rb\n", "in:2:6: " + control},
        {"DEL behind a fold", "dn: cn=a\ncn: a\n b\x7F\n", "in:3:3: " + control},
        {"C1", "dn: cn=a\ncn: \xC2\x9B\n", "in:2:5: " + control},
        {"escape in base64", "dn: cn=a\ncn:: G1sybQ==\n", "in:2:6: " + decoded + control},
        {"no UTF-8", "dn: cn=a\ncn: K\xF6ln\n", "in:2:6: this is not UTF-8"},
        {"no UTF-8 in base64", "dn: cn=a\ncn:: S/Zsbg==\n", "in:2:6: " + decoded + "this is not UTF-8"},
        {"blank behind the value", "dn: cn=a\ncn: a \n",
         "in:2:5: the value ends with a blank: it would come back as \"a\""},
        {"tab behind the value", "dn: cn=a\ncn: a\t\n",
         "in:2:5: the value ends with a blank: it would come back as \"a\""},
        {"wide blank behind the value", "dn: cn=a\ncn: a\xE3\x80\x80\n",
         "in:2:5: the value ends with a blank: it would come back as \"a\""},
        {"blank before the value", "dn: cn=a\ncn:: IGE=\n",
         "in:2:6: the value begins with a blank: it would come back as \"a\""},
        {"escaped line feed in a dn", "dn: cn=a\\0Ab\n", "in:1:5: " + escapes + lineFeed},
        {"escaped zero byte in a dn", "dn: cn=a\\00\n", "in:1:5: " + escapes + zero},
        {"escaped byte in a quoted dn", "dn: cn=\"a\\FF\"\n", "in:1:5: " + escapes + "this is not UTF-8"},
        {"escaped line feed in a suffix", "dn: cn=a\nzor-slapdsuffix: o=a\\0ab\n", "in:2:18: " + escapes + lineFeed},
        {"hidden password", modify + "zor-slapdAdminPW: ***\n", "in:4:19: *** stands for a hidden value and is none"},
        {"hidden password of a difference", modify + "zor-slapdAdminPW: *** (before)\n",
         "in:4:19: *** stands for a hidden value and is none"},
        {"hidden environment", modify + "zor-slapdSetenv: ***\n", "in:4:18: *** stands for a hidden value and is none"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(refusalOf(row.text), row.refusal);
    }
}

TEST(ChangeScan, KnowsTheNamesOfRfc4512)
{
    for (const char* name :
         {"cn", "C", "zor-slapdPort", "a1", "a--", "1.2", "2.5.4.3", "0.0", "cn;lang-de", "cn;a;1"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(isAttributeDescription(name));
    }
    for (const char* name : {"", "-", "1", "1a", "1.", ".1", "1..2", "01.2", "1.02", "cn ", " cn", "c_n", "cn;", ";a",
                             "cn;;a", "cn;a_b", "cn:", "#cn", "c\xC3\xB6"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(isAttributeDescription(name));
    }
}

// Whatever the bytes are, they are records or a refusal with a place.
RC_GTEST_PROP(ChangeScan, EndsInRecordsOrInAPlace, ())
{
    const auto lines = *rc::gen::container<std::vector<std::string>>(rc::gen::oneOf(
        rc::gen::element<std::string>("dn: cn=a\n", "cn:: YQ==\n", "\n", " x\n", "-\n", "# c\n", "cn:< x\n",
                                      "cn:", "\r\n", "include: x\n", "version: 1\n", "changetype: modify\n"),
        rc::gen::arbitrary<std::string>()));
    std::string text;
    for (const std::string& line : lines) {
        text += line;
    }
    try {
        for (const ScannedRecord& record : scanChanges({"in", "modify"}, text)) {
            RC_ASSERT(!record.lines.empty());
            RC_ASSERT(record.text.data() >= text.data());
            RC_ASSERT(record.text.data() + record.text.size() <= text.data() + text.size());
        }
    } catch (const Failure& failure) {
        std::size_t line = 0;
        std::size_t column = 0;
        RC_ASSERT(std::sscanf(failure.what(), "in:%zu:%zu: ", &line, &column) == 2);
        RC_ASSERT(line >= 1U && column >= 1U);
    }
}
