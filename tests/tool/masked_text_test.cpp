// What of a configuration text is hidden, line by line, and that nothing hidden comes out in any other way.
#include "masked_text.h"

#include "secrets.h"
#include "text_diff.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using veltor::tool::isMask;
using veltor::tool::linesOf;
using veltor::tool::maskedText;
using veltor::tool::MaskedTexts;
using veltor::tool::maskedTexts;

TEST(MaskedText, HidesWhatMayBeASecret)
{
    struct Row
    {
        const char *text, *masked;
    };
    const Row rows[] = {
        {"", ""},
        // By the syntax, in any letter case, with any separator, which stays.
        {"zor-slapdAdminPW: >1xIhe<\n", "zor-slapdAdminPW: ***\n"},
        {"ZOR-SLAPDADMINPW::x\n", "ZOR-SLAPDADMINPW::***\n"},
        {"zor-slapdLdapCrlPassword:\t  x y \r\n", "zor-slapdLdapCrlPassword:\t  ***\r\n"},
        {"zor-slapdAdminPW: x", "zor-slapdAdminPW: ***"},
        {"zor-slapdAdminPW:\n", "zor-slapdAdminPW:***\n"},
        {"zor-slapdSetenv: API_TOKEN=4711\n", "zor-slapdSetenv: ***\n"},
        // Continuation lines, in the middle of which a password may begin.
        {"zor-slapdAdminPW: secr\n et\ncn: a\n", "zor-slapdAdminPW: ***\n ***\ncn: a\n"},
        {"zor-slapdAdminPW:\n\tsecret\r\n \ncn: a\n", "zor-slapdAdminPW:***\n\t***\r\n ***\ncn: a\n"},
        {"zor-slapdAdminPW: a\n\xE3\x80\x80secret\n", "zor-slapdAdminPW: ***\n\xE3\x80\x80***\n"},
        {"zor-slapdAdminPW: a\n\r secret\n", "zor-slapdAdminPW: ***\n\r***\n"},
        {"cn: a\n zor-slapdAdminPW: secret\n", "cn: ***\n ***\n"},
        {"cn: a\n  b\n password: x\n", "cn: ***\n ***\n ***\n"},
        {"cn: a\n b\n\n c\n", "cn: a\n b\n\n c\n"},
        // A continuation that turns a harmless piece into a name.
        {"x-p\n w: secret\n", "***\n ***\n"},
        // Unknown names, by their look and by what stands in their value.
        {"zor-slapdAdmimPW: x\n", "zor-slapdAdmimPW: ***\n"},
        {"userPassword: x\n", "userPassword: ***\n"},
        {" zor-slapdAdminPW: x\n", "***\n"},
        {"zor-slapdAdminPW secret: x\n", "***\n"},
        {"zor-slapdSetenv : A=B\n", "***\n"},
        {"foo: pw: x\n", "foo: ***\n"},
        {"foo: pw\n", "foo: pw\n"},
        {"zor-slapdDescription: the pw is there\n", "zor-slapdDescription: the pw is there\n"},
        // Settings about passwords are none.
        {"zor-slapdPwEncryption: sha\n", "zor-slapdPwEncryption: sha\n"},
        {"zor-slapdUseProcessIdPw: true\n", "zor-slapdUseProcessIdPw: true\n"},
        {"# zor-slapdPwEncryption: sha\n", "# zor-slapdPwEncryption: sha\n"},
        // A known attribute may speak of a host with such a name.
        {"zor-slapdMasterReferral: ldap://pwhost:389\n", "zor-slapdMasterReferral: ldap://pwhost:389\n"},
        // Rejected lines, under a known name as well.
        {"zor-slapdAdminDN: password: x\n", "zor-slapdAdminDN: ***\n"},
        {"zor-slapdSizeLimit: pw:x\n", "zor-slapdSizeLimit: ***\n"},
        {"zor-slapdSizeLimit: p\n w:x\n", "zor-slapdSizeLimit: ***\n ***\n"},
        {"zor-slapdSizeLimit: many\n", "zor-slapdSizeLimit: many\n"},
        {"zor-slapdInvalidLine: zor-slapdAdminPW: far-too-long\n", "zor-slapdInvalidLine: ***\n"},
        {"zor-slapdInvalidLine: zor-slapdPort: abc\n", "zor-slapdInvalidLine: zor-slapdPort: abc\n"},
        // Lines without a colon, where nobody can tell a name from a value.
        {"zor-slapdAdminPW secret\n", "***\n"},
        {"zor-slapdAdminPW\n", "***\n"},
        {":password x\n", "***\n"},
        {"no colon here\n and more\n", "no colon here\n and more\n"},
        // Comments, in which a name stands before a colon.
        {"# zor-slapdAdminPW: x\n", "# zor-slapdAdminPW: ***\n"},
        {"#zor-slapdAdminPW:x\r\n", "#zor-slapdAdminPW:***\r\n"},
        {"## old password: x\n", "## ***\n"},
        {"# zor-slapdSetenv: A=B\n", "# zor-slapdSetenv: ***\n"},
        {"# the password is in the safe\n", "# the password is in the safe\n"},
        {"# note: the password is in the safe\n", "# note: the password is in the safe\n"},
        {"# pw: a: b\n", "# pw: ***\n"},
        // People fold comments, and the reader does not know of that.
        {"# pw: se\n cret\n", "# pw: ***\n***\n"},
        {"# pw: se\n\n cret\n", "# pw: ***\n\n cret\n"},
        {"# pw: se\ncn: a\n cret\n", "# pw: ***\ncn: a\n cret\n"},
        // A DN that has taken the line below it.
        {"dn: cn=Configuration\n zor-slapdAdminPW: x\n", "dn: ***\n ***\n"},
        {"dn: cn=pw, cn=Configuration\n", "dn: cn=pw, cn=Configuration\n"},
        {"dnzor-slapdAdminPW\n", "***\n"},
        // Carriage returns are nothing to the reader, and bytes of other character sets are.
        {"zor-slapd\rAdminPW: x\n", "***\n"},
        {"zor-slapdAdminPW: \xFF\n", "zor-slapdAdminPW: ***\n"},
        {"\xFFpw: x\n", "***\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(maskedText(row.text), row.masked);
    }
}

TEST(MaskedText, TellsTheSideOfWhatIsNotInBothTexts)
{
    struct Row
    {
        const char *name, *before, *after, *maskedBefore, *maskedAfter;
    };
    const Row rows[] = {
        {"the same", "pw: x\ncn: a\n", "pw: x\ncn: b\n", "pw: ***\ncn: a\n", "pw: ***\ncn: b\n"},
        {"changed", "pw: x\n", "pw: y\n", "pw: *** (before)\n", "pw: *** (after)\n"},
        {"removed", "cn: a\npw: x\n", "cn: a\n", "cn: a\npw: *** (before)\n", "cn: a\n"},
        {"added", "cn: a\n", "cn: a\npw: x\n", "cn: a\n", "cn: a\npw: *** (after)\n"},
        {"exchanged", "pw: x\npw: y\n", "pw: y\npw: x\n", "pw: *** (before)\npw: ***\n", "pw: ***\npw: *** (after)\n"},
        {"a continuation alone", "pw: x\n y\n", "pw: x\n z\n", "pw: ***\n *** (before)\n", "pw: ***\n *** (after)\n"},
        {"the line end alone", "pw: x\r\n", "pw: x\n", "pw: *** (before)\r\n", "pw: *** (after)\n"},
        // The line is the same, and what it means is not: shown on one side, it would tell the other.
        {"a line that becomes a secret", "cn: a\n x\n", "pw: a\n x\n", "cn: a\n ***\n", "pw: *** (after)\n ***\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const MaskedTexts masked = maskedTexts(row.before, row.after);
        EXPECT_EQ(masked.before, row.maskedBefore);
        EXPECT_EQ(masked.after, row.maskedAfter);
    }
}

namespace {

/// Lines with and without secrets, each secret with "hush" in it.
std::string randomText(std::mt19937& random)
{
    static const char* const lines[] = {
        "dn: cn=Configuration\n",
        "\n",
        "zor-slapdAdminPW: hush1\n",
        "zor-slapdAdminPW: hush2\n",
        " hush3\n",
        "# pw: hush4\n",
        "# a\n",
        "userPassword: hush5\r\n",
        "cn: a\n",
        " b\n",
        "zor-slapdAdminPW hush6\n",
    };
    std::string text;
    bool belowSecret = false;
    for (auto count = random() % 8; count > 0; --count) {
        const std::string line = lines[random() % std::size(lines)];
        // A continuation is a secret below one only.
        if (line.front() != ' ' || line == " b\n" || belowSecret) {
            text += line;
            belowSecret = line.find("hush") != std::string::npos || (belowSecret && line.front() == ' ');
        }
    }
    return text;
}

} // namespace

TEST(MaskedText, ShowsNoSecretKeepsTheLinesAndTheDifference)
{
    std::mt19937 random(5);
    for (int round = 0; round < 20000; ++round) {
        const std::string before = randomText(random);
        const std::string after = round % 5 == 0 ? before : randomText(random);
        SCOPED_TRACE("before:\n" + before + "after:\n" + after);
        const MaskedTexts masked = maskedTexts(before, after);
        ASSERT_EQ(masked.before == masked.after, before == after);
        for (const std::string& shown : {masked.before, masked.after, maskedText(before)}) {
            ASSERT_EQ(shown.find("hush"), std::string::npos) << shown;
        }
        ASSERT_EQ(linesOf(masked.before).size(), linesOf(before).size());
        ASSERT_EQ(linesOf(masked.after).size(), linesOf(after).size());
        ASSERT_EQ(maskedText(maskedText(before)), maskedText(before));
    }
}

TEST(MaskedText, AMaskIsKnownAsOne)
{
    for (const char* mask :
         {"***", "*** (before)", "*** (after)", "******", "*** (before)*** (before)", "*** (1)", "*** (12)*** (12)"}) {
        SCOPED_TRACE(mask);
        EXPECT_TRUE(isMask(mask));
    }
    for (const char* other :
         {"", "*", "**", "****", " ***", "***x", "*** ", "(before)", "*** (then)", "*** ()", "*** (1", "*** (1x)"}) {
        SCOPED_TRACE(other);
        EXPECT_FALSE(isMask(other));
    }
}
