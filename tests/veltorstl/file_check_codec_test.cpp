// The check where the codec of passwords answers what ends a load.
#include "file_check.h"

#include "LDIF_Exception.h"
#include "LDIF_File.h"

#include "veltor/platform.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/findings.h"
#include "support/locale_guard.h"
#include "support/temporary_folder.h"

using namespace veltor::test;

namespace {

int answer = 0;

} // namespace

extern "C" {

int _slapd_utils_encode_buffer(const char* text, char** encoded, int, int)
{
    *encoded = answer != 0 ? nullptr : strdup((">" + std::string(text) + "<").c_str());
    return answer;
}

void _slapd_utils_encode_buffer_free(char* encoded)
{
    std::free(encoded);
}

int _slapd_utils_decode_buffer(char* encoded, char** text)
{
    *text = answer != 0 ? nullptr : strdup(encoded);
    return answer;
}

void _slapd_utils_decode_buffer_free(char* text)
{
    std::free(text);
}
}

namespace {

constexpr char text[] = "dn: cn=a\nobjectclass: top\nzor-slapdAdminPW: x\nfoo: x\n";

Findings check(std::string_view file)
{
    Findings findings;
    EXPECT_TRUE(veltor::detail::checkText(file, Findings::take, &findings));
    return findings;
}

TEST(FileCheckCodec, ALoadEndsWhereTheCodecBreaksTheObjectclass)
{
    const LocaleGuard locale("C.UTF-8");
    answer = 65;
    const TemporaryFolder folder;
    const Findings findings = check(text);
    EXPECT_EQ(findings.summary(), "3 clear-password, 3 load-failure, 4 unknown-attribute") << findings.dump();
    EXPECT_EQ(findings.all[1].code, 65);
    EXPECT_EQ(findings.all[1].severity, 3);
    try {
        const LDIF_File store(folder.write("conf", text), "");
        ADD_FAILURE() << "the load did not fail";
    } catch (const LDIF_Exception& failure) {
        EXPECT_EQ(failure.extErr, 65);
        EXPECT_EQ(failure.configLine, 3);
    }
}

TEST(FileCheckCodec, AnyOtherAnswerRejectsTheLine)
{
    const LocaleGuard locale("C.UTF-8");
    answer = 53;
    const Findings findings = check(text);
    EXPECT_EQ(findings.summary(), "3 clear-password, 3 rejected-line, 4 unknown-attribute") << findings.dump();
    EXPECT_EQ(findings.all[1].code, 53);
}

TEST(FileCheckCodec, ShortMemoryIsNoFinding)
{
    const LocaleGuard locale("C.UTF-8");
    answer = 90;
    Findings findings;
    EXPECT_THROW(veltor::detail::checkText(text, Findings::take, &findings), LDIF_Exception);
    EXPECT_THROW(veltor::detail::checkText("dn: cn=a\nzor-slapdAdminPW: >x<\n", Findings::take, &findings),
                 std::bad_alloc);
}

} // namespace
