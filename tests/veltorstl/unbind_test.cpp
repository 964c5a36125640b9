// Releasing a handle: what it gives back, and what it leaves alone.
#include "support/api_test.h"

#include <string>
#include <unistd.h>

using namespace veltor::test;

namespace {

class CfgUnbind : public ApiTest
{
};

constexpr char smallFile[] = "dn: cn=Configuration\nobjectclass: top\nzor-slapdPort: 389\n";

} // namespace

TEST_F(CfgUnbind, ANullHandleIsRefused)
{
    EXPECT_EQ(cfg_unbind(nullptr), 89);
}

TEST_F(CfgUnbind, AHandleInAnyStateIsReleased)
{
    // Whether everything is given back is the leak checker's to say.
    EXPECT_EQ(cfg_unbind(cfg_init()), 0) << "fresh";

    void* const named = cfg_init();
    cfg_set_option(named, CFG_OPT_CONFIG_FILE, "/etc/a.conf");
    cfg_set_option(named, CFG_OPT_BACKUP_FILE, "/etc/b.conf");
    EXPECT_EQ(cfg_unbind(named), 0) << "with file names";

    EXPECT_EQ(cfg_unbind(withKeptFailure().release()), 0) << "with a kept failure and its report";
    EXPECT_EQ(cfg_unbind(bound(smallFile).release()), 0) << "bound";

    void* const twice = bound(smallFile).release();
    EXPECT_EQ(cfg_bind_s(twice, nullptr, nullptr, simple), 0);
    EXPECT_EQ(cfg_bind_s(twice, nullptr, nullptr, simple), 0);
    EXPECT_EQ(cfg_unbind(twice), 0) << "bound three times";
}

TEST_F(CfgUnbind, NothingIsWritten)
{
    void* const handle = bound(smallFile).release();
    cfg_set_option(handle, CFG_OPT_BACKUP_FILE, pathOf("backup").c_str());
    ASSERT_EQ(unlink(pathOf("zorslapd.conf").c_str()), 0);
    EXPECT_EQ(cfg_unbind(handle), 0);
    EXPECT_FALSE(exists("zorslapd.conf"));
    EXPECT_FALSE(exists("backup"));
}

TEST_F(CfgUnbind, AResultOutlivesItsHandle)
{
    void* const handle = bound(smallFile).release();
    const Found found = search(handle, "cn=Configuration", baseScope, nullptr);
    ASSERT_EQ(found.code, 0);
    Values values(cfg_get_values(handle, found.result.get(), "zor-slapdPort"));
    EXPECT_EQ(cfg_unbind(handle), 0);
    EXPECT_EQ(listed(found.result.get()), "dn: cn=Configuration\nobjectclass: top\nzor-slapdPort: 389\n");
    ASSERT_NE(values, nullptr);
    EXPECT_STREQ(values.get()[0], "389");
    const Text dn(cfg_get_dn(nullptr, found.result.get()));
    EXPECT_STREQ(dn.get(), "cn=Configuration");
}

TEST_F(CfgUnbind, OneHandleOfTwoOnTheSameFileLeavesTheOtherUsable)
{
    const Handle stays = bound(smallFile);
    void* const goes = bound(smallFile).release();
    EXPECT_EQ(cfg_unbind(goes), 0);
    EXPECT_EQ(search(stays.get(), "cn=Configuration", baseScope, nullptr).code, 0);
}
