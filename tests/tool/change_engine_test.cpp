// The set around a change: who waits for whom, what a failure leaves behind.
#include "change_engine.h"
#include "support/temporary_folder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

namespace {

using namespace veltor::tool;

constexpr const char* text = "dn: cn=Configuration\ncn: Configuration\nobjectclass: top\nzor-slapdPort: 389\n";

class ChangeEngineTest : public testing::Test
{
protected:
    ChangeEngineTest()
    {
        put(text);
        target_.file = file_;
        options_.lockTimeoutSeconds = 0;
        outputOptions_.quiet = true;
    }
    void put(const std::string& content) const { temporary_.write("in.conf", content); }
    std::string content(const std::string& ending = "") const { return temporary_.read("in.conf" + ending); }

    static void setPort(void* handle, std::string value)
    {
        char* values[] = {value.data(), nullptr};
        std::string name = "zor-slapdPort";
        LDAPMod mod = {};
        mod.mod_op = LDAP_MOD_REPLACE;
        mod.mod_type = name.data();
        mod.mod_values = values;
        LDAPMod* mods[] = {&mod, nullptr};
        std::string dn = "cn=Configuration";
        ASSERT_EQ(cfg_modify_s(handle, dn.c_str(), mods), LDAP_SUCCESS);
    }

    template <typename Action>
    static ExitCode exitOf(const Action& action, std::string& message, FailureFacts& facts)
    {
        try {
            action();
        } catch (const Failure& failure) {
            message = failure.message();
            facts = failure.facts();
            return failure.exit();
        }
        return ExitCode::done;
    }

    const veltor::test::TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    const std::string file_ = temporary_.path("in.conf");
    std::string message_;
    FailureFacts facts_;
    TargetOptions target_;
    WriteOptions options_;
    OutputOptions outputOptions_;
    Output output_{outputOptions_};
};

TEST_F(ChangeEngineTest, WritesOnCommitAloneAndKeepsTheOldText)
{
    {
        ChangeEngine engine(target_, options_, output_);
        setPort(engine.handle(), "1389");
        EXPECT_EQ(content(), text);
        EXPECT_EQ(engine.finish({}), ExitCode::done);
    }
    EXPECT_NE(content().find("zor-slapdPort: 1389\n"), std::string::npos);
    EXPECT_EQ(content(".bak"), text);
}

TEST_F(ChangeEngineTest, WritesNothingWithoutACommit)
{
    {
        ChangeEngine engine(target_, options_, output_);
        setPort(engine.handle(), "1389");
    }
    EXPECT_EQ(content(), text);
    EXPECT_NE(::access((file_ + ".bak").c_str(), F_OK), 0);
}

TEST_F(ChangeEngineTest, WritesNothingWhenTheTextStays)
{
    ChangeEngine engine(target_, options_, output_);
    setPort(engine.handle(), "389");
    EXPECT_EQ(engine.finish({}), ExitCode::done);
    EXPECT_NE(::access((file_ + ".bak").c_str(), F_OK), 0);
}

TEST_F(ChangeEngineTest, NamesTheWriterThatHoldsTheLock)
{
    const ChangeEngine holder(target_, options_, output_);
    EXPECT_EQ(exitOf([&] { const ChangeEngine second(target_, options_, output_); }, message_, facts_), ExitCode::busy);
    EXPECT_NE(message_.find(file_ + " is being changed by process " + std::to_string(::getpid())), std::string::npos)
        << message_;
    EXPECT_NE(message_.find("waited 0 s; nothing was written"), std::string::npos) << message_;
    EXPECT_EQ(facts_.ldap, LDAP_BUSY);
    EXPECT_EQ(facts_.code, LDAP_BUSY);
    EXPECT_EQ(facts_.file, file_);
}

TEST_F(ChangeEngineTest, LeavesAloneWhatSomebodyElsePutThere)
{
    const std::string other = std::string(text) + "description: by an editor\n";
    ChangeEngine engine(target_, options_, output_);
    setPort(engine.handle(), "1389");
    put(other);
    EXPECT_EQ(exitOf([&] { engine.finish({}); }, message_, facts_), ExitCode::busy);
    EXPECT_EQ(facts_.ldap, LDAP_BUSY);
    EXPECT_NE(message_.find("nothing was written"), std::string::npos) << message_;
    EXPECT_EQ(content(), other);
}

TEST_F(ChangeEngineTest, TellsWhichTextIsInPlaceWhenTheBackupFails)
{
    options_.backup = folder_ + "/missing/in.conf.bak";
    ChangeEngine engine(target_, options_, output_);
    setPort(engine.handle(), "1389");
    EXPECT_EQ(exitOf([&] { engine.finish({}); }, message_, facts_), ExitCode::writeFailed);
    EXPECT_NE(message_.find("the old text is in place"), std::string::npos) << message_;
    EXPECT_EQ(content(), text);
}

TEST_F(ChangeEngineTest, SignalLeavesTheOldTextAndTheLockFree)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ChangeEngine engine(target_, options_, output_);
            setPort(engine.handle(), "1389");
            ::raise(signal);
            ::_exit(1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
        EXPECT_EQ(content(), text);
        EXPECT_EQ(exitOf([&] { const ChangeEngine next(target_, options_, output_); }, message_, facts_),
                  ExitCode::done)
            << message_;
    }
}

TEST(LoggedAttribute, HasItsValuesOnlyWhereTheyAreNumbersWordsOrBits)
{
    EXPECT_EQ(logged("zor-slapdPort", {"1389"}), "zor-slapdPort=1389");
    EXPECT_EQ(logged("zor-slapdSecurity", {"SSL"}), "zor-slapdSecurity=SSL");
    EXPECT_EQ(logged("zor-slapdPort", {}), "zor-slapdPort");
    EXPECT_EQ(logged("zor-slapdAdminPW", {"secret"}), "zor-slapdAdminPW");
    EXPECT_EQ(logged("zor-slapdSetenv", {"TOKEN=1"}), "zor-slapdSetenv");
    EXPECT_EQ(logged("zor-slapdReferral", {"ldap://a:b@c"}), "zor-slapdReferral");
    EXPECT_EQ(logged("unheardOf", {"1"}), "unheardOf");
}

TEST_F(ChangeEngineTest, TakesNoLockInAFolderThatIsNotThere)
{
    target_.file = folder_ + "/missing/in.conf";
    EXPECT_EQ(exitOf([&] { const ChangeEngine engine(target_, options_, output_); }, message_, facts_), ExitCode::file)
        << message_;
}

} // namespace
