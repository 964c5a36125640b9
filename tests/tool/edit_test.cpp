// The editor is a script, the person somebody at a terminal who answers.
#include "command_run.h"
#include "conversation.h"
#include "support/temporary_folder.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace veltor::tool;
using veltor::test::contentOf;

constexpr const char* installPrompt = "Install this? (y)es, (e)dit again, e(x)it [x]: ";
constexpr const char* problemPrompt = "What now? (e)dit again, (d)iff, e(x)it: ";
constexpr const char* conflictPrompt = "What now? (t)ake it in, (e)dit again, e(x)it: ";
constexpr const char* busyPrompt = "What now? (t)ry again, (e)dit again, e(x)it: ";
constexpr const char* failurePrompt = "What now? (e)dit again, e(x)it: ";

const char* const original = "# The server.\n"
                             "dn: cn=Configuration\n"
                             "cn: Configuration\n"
                             "objectclass: top\n"
                             "zor-slapdAdminDN: cn=root\n"
                             "zor-slapdAdminPW: >1xIheSypXWzXARA<\n"
                             "zor-slapdPort: 389\n"
                             "zor-slapdSizeLimit: 500\n"
                             "\n"
                             "dn: cn=Front End, cn=Configuration\n"
                             "cn: Front End\n"
                             "objectclass: top\n"
                             "# password: hunter2\n"
                             "zor-slapdSetenv: API_TOKEN=4711\n"
                             "zor-slapdSetenv: DB_TOKEN=4712\n";

const std::vector<std::string> secrets = {"xIheSypXWzXARA", "hunter2", "4711", "4712"};

std::string replaced(std::string text, const std::string& what, const std::string& with)
{
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? text : text.replace(at, what.size(), with);
}

class Edit : public testing::Test
{
protected:
    Edit()
    {
        put(file_, original);
        ::chmod(file_.c_str(), 0640);
    }

    static void put(const std::string& name, const std::string& text) { std::ofstream(name) << text; }
    std::string content() const { return contentOf(file_); }

    /// The folders of drafts that are there.
    std::vector<std::string> drafts() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            if (entry.path().filename().string().starts_with("in.conf.edit-")) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    /// The one draft that is kept, which the person has been told of.
    std::string keptDraft(const Conversation& conversation) const
    {
        const std::vector<std::string> found = drafts();
        EXPECT_EQ(found.size(), 1U);
        if (found.size() != 1) {
            return {};
        }
        const std::string name = found.front() + "/in.conf";
        EXPECT_NE(conversation.shown().find("kept as " + name), std::string::npos) << conversation.shown();
        return contentOf(name);
    }

    /// A run with this script as the editor; $1 is the draft, $F the file, $D the folder of both. A run of the script
    /// for the second time finds $D/again.
    std::function<int()> edit(const std::string& script, const std::string& options = "") const
    {
        put(folder_ + "/editor", "D='" + folder_ + "'; F='" + file_ + "'\ncp \"$1\" \"$D/seen\"\n" + script +
                                     "\ncode=$?; : >\"$D/again\"; exit $code\n");
        return [this, options] {
            // A background job has them ignored.
            for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
                std::signal(signal, SIG_DFL);
            }
            ::unsetenv("VISUAL");
            ::setenv("EDITOR", ("sh " + folder_ + "/editor").c_str(), 1);
            return run(options);
        };
    }

    int run(const std::string& options) const { return runLine({editCommand}, "edit " + options + " -F " + file_); }

    void expectNoSecret(const std::string& text) const
    {
        for (const std::string& secret : secrets) {
            EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in: " << text;
        }
    }

    const veltor::test::TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    std::string file_ = temporary_.path("in.conf");
};

TEST_F(Edit, InstallsTheTextAndTouchesNoOtherByte)
{
    Conversation conversation(edit("sed -i 's/Port: 389/Port: 1389/' \"$1\"\n"
                                   "stat -c %a \"$1\" \"${1%/*}\" >\"$D/modes\"\n"
                                   "test -t 0 && test -t 1 && test -t 2 && : >\"$D/terminal\"\n"
                                   "touch \"$1~\" \"${1%/*}/.in.conf.swp\""));
    ASSERT_TRUE(conversation.shows("-zor-slapdPort: 389\r\n+zor-slapdPort: 1389\r\n")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "389", "1389"));
    EXPECT_EQ(contentOf(file_ + ".bak"), original);
    EXPECT_NE(conversation.shown().find("written; backup " + file_ + ".bak"), std::string::npos);
    EXPECT_TRUE(drafts().empty());
    EXPECT_EQ(contentOf(folder_ + "/modes"), "600\n700\n");
    EXPECT_TRUE(std::filesystem::exists(folder_ + "/terminal"));
}

TEST_F(Edit, EditorSeesMasksInPlaceOfSecrets)
{
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
    const std::string seen = contentOf(folder_ + "/seen");
    expectNoSecret(seen);
    expectNoSecret(conversation.shown());
    EXPECT_NE(seen.find("zor-slapdAdminPW: *** (1-"), std::string::npos) << seen;
    EXPECT_NE(seen.find("zor-slapdSetenv: *** (4-"), std::string::npos) << seen;
}

TEST_F(Edit, MaskedLinesMayBeMovedAndDeleted)
{
    // The second setting first, and the first not at all; the password at the end of its entry.
    Conversation conversation(edit("sed -i -e '/(3-....)$/d' -e '/(1-....)$/{h;d}' -e '/SizeLimit/G' \"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    const std::string password = "zor-slapdAdminPW: >1xIheSypXWzXARA<\n";
    std::string expected = replaced(original, password, "");
    expected = replaced(expected, "zor-slapdSizeLimit: 500\n", "zor-slapdSizeLimit: 500\n" + password);
    EXPECT_EQ(content(), replaced(expected, "zor-slapdSetenv: API_TOKEN=4711\n", ""));
    expectNoSecret(conversation.shown());
}

TEST_F(Edit, MaskThatStandsForNothingIsToldWithItsLine)
{
    Conversation conversation(edit("test -e \"$D/again\" && cp \"$D/first\" \"$1\" ||"
                                   " { cp \"$1\" \"$D/first\"; sed -i 's/ (1-....)$//' \"$1\"; }"));
    ASSERT_TRUE(conversation.shows(file_ + ":6: error: *** stands for no secret")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "e")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_NE(conversation.shown().find("unchanged"), std::string::npos) << conversation.shown();
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, SecretIsNotPutWhereItWouldShow)
{
    Conversation conversation(edit("M=$(sed -n 's/^zor-slapdAdminPW: //p' \"$1\");"
                                   " sed -i \"s/^cn: Front End/cn: $M/\" \"$1\""));
    ASSERT_TRUE(conversation.shows(file_ + ":11: error: *** (1-")) << conversation.shown();
    ASSERT_TRUE(conversation.shows(") stands for a secret")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "d")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 3) << conversation.shown();
    expectNoSecret(conversation.shown());
    expectNoSecret(keptDraft(conversation));
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, TypedPasswordIsRefusedWithTheCommandThatSetsIt)
{
    Conversation conversation(edit("sed -i 's/\\*\\*\\* (1-....)/new-clear-one/' \"$1\""));
    ASSERT_TRUE(conversation.shows(file_ + ":6: error: a password is stored encoded")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("veltor passwd -b cn=Configuration zor-slapdAdminPW")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 3) << conversation.shown();
    EXPECT_EQ(conversation.shown().find("new-clear-one"), std::string::npos) << conversation.shown();
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, UnchangedTextIsNotAskedAbout)
{
    Conversation conversation(edit("true"));
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_NE(conversation.shown().find("unchanged"), std::string::npos) << conversation.shown();
    EXPECT_TRUE(drafts().empty());
    EXPECT_FALSE(std::filesystem::exists(file_ + ".bak"));
}

TEST_F(Edit, EmptyTextIsACancel)
{
    Conversation conversation(edit("echo >\"$1\""));
    EXPECT_EQ(conversation.status(), 1) << conversation.shown();
    EXPECT_NE(conversation.shown().find("cancelled: the text is empty"), std::string::npos) << conversation.shown();
    EXPECT_TRUE(drafts().empty());
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, NoIsTheDefaultAndKeepsTheText)
{
    for (const char* answer : {"", "n", "x", "X"}) {
        Conversation conversation(edit("sed -i 's/500/600/' \"$1\""));
        ASSERT_TRUE(conversation.answer(installPrompt, "later")) << conversation.shown();
        ASSERT_TRUE(conversation.answer(installPrompt, answer)) << conversation.shown();
        EXPECT_EQ(conversation.status(), 1) << conversation.shown();
        EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
        std::filesystem::remove_all(drafts().front());
    }
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, ErrorIsShownAndCorrectedInTheEditor)
{
    Conversation conversation(edit("test -e \"$D/again\" && sed -i '/^$/d;s/^dn: cn=Front/\\n&/' \"$1\" ||"
                                   " sed -i 's/^zor-slapdPort/\\n&/' \"$1\""));
    ASSERT_TRUE(conversation.shows(file_ + ":8: error: the blank line 7 ends the entry above")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "d")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("+\r\n zor-slapdPort: 389\r\n")) << conversation.shown();
    // There is no default here.
    ASSERT_TRUE(conversation.answer(problemPrompt, "")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(problemPrompt, "e")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, TextThatTheServerCannotStartFromIsNotInstalled)
{
    Conversation conversation(edit("sed -i 's/^zor-slapdPort/\\n&/' \"$1\""));
    ASSERT_TRUE(conversation.answer(problemPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 3) << conversation.shown();
    EXPECT_NE(keptDraft(conversation).find("\n\nzor-slapdPort"), std::string::npos);
    EXPECT_EQ(content(), original);

    std::filesystem::remove_all(drafts().front());
    std::filesystem::remove(folder_ + "/again");
    Conversation withoutQuestions(edit("sed -i 's/^zor-slapdPort/\\n&/' \"$1\"", "--yes"));
    EXPECT_EQ(withoutQuestions.status(), 3) << withoutQuestions.shown();
    EXPECT_NE(keptDraft(withoutQuestions).find("\n\nzor-slapdPort"), std::string::npos);
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, WhatNoCommandWritesIsAnError)
{
    const struct
    {
        const char *script, *place, *finding;
    } rows[] = {
        {"sed -i 's/Port: 389/Port: 70000/' \"$1\"", ":7", "70000"},
        {"sed -i 's/^zor-slapdPort/zor-slapdPrt/' \"$1\"", ":7", "--allow-unknown stores it as free text"},
        {"sed -i 's/^zor-slapdPort.*/&\\nzor-slapdPort: 1389/' \"$1\"", ":8", "takes one value"},
        {"sed -i 's/^dn: cn=Front End, /dn: /' \"$1\"", ":10", "stands in line 2 already"},
        {"sed -i 's/^dn: cn=Front End, cn=Configuration/dn:/' \"$1\"", ":10", "empty"},
        {"sed -i 's/^cn: Front End/cn:: RnJvbnQ=/' \"$1\"", ":11", "base 64"},
        {"sed -i 's/^cn: Front End/cn: (Front End)/' \"$1\"", ":11", "parentheses"},
        {"printf 'zor-slapdTimeLimit: 3' >>\"$1\"", ":16", "line feed"},
        {"sed -i 's/^cn: Front/&\\x01/' \"$1\"", ":11", "control character"},
        {"sed -i 's/^dn: cn=Front/&\\x1b/' \"$1\"", ":10", "control character"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        Conversation conversation(edit(row.script));
        ASSERT_TRUE(conversation.shows(file_ + row.place + ": error: ")) << conversation.shown();
        ASSERT_TRUE(conversation.answer(problemPrompt, "x")) << conversation.shown();
        EXPECT_EQ(conversation.status(), 3) << conversation.shown();
        EXPECT_NE(conversation.shown().find(row.finding), std::string::npos) << conversation.shown();
        EXPECT_EQ(content(), original);
        std::filesystem::remove_all(drafts().front());
    }
}

TEST_F(Edit, ControlCharactersThatWereThereMayStay)
{
    // A tab is a blank, and comments are for people.
    const std::string text =
        replaced(original, "cn: Front End\n", "cn: Front\x01 End\n") + "zor-slapdErrorLog: /var\x02/log";
    put(file_, text);
    Conversation conversation(
        edit("sed -i -e 's/500/600/' -e 's/^# The/&\\x01/' -e 's/^objectclass: top/&\\tx/' \"$1\"\n"
             "echo >>\"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_NE(content().find("/var\x02/log\n"), std::string::npos);
    EXPECT_NE(content().find("top\tx\n"), std::string::npos);
}

TEST_F(Edit, AMaskOfSomethingElseDoesNotBecomeAPassword)
{
    // The third mask stands for a setting of the environment, which is stored as it is.
    Conversation conversation(edit("M=$(sed -n '/^zor-slapdSetenv: /{s///p;q}' \"$1\");"
                                   " sed -i \"s/^zor-slapdAdminPW.*/zor-slapdAdminPW: $M/\" \"$1\"",
                                   "--yes"));
    EXPECT_EQ(conversation.status(), 3) << conversation.shown();
    expectNoSecret(conversation.shown());
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, KeptTextIsGoneOnFromByTheCommandThatIsTold)
{
    const std::string folder = folder_ + "/a 'folder'";
    std::filesystem::create_directory(folder);
    const std::string file = folder + "/my.conf";
    put(file, original);
    ::chmod(file.c_str(), 0640);
    const auto start = [&](const std::string& visual) {
        return [file, visual] {
            ::setenv("VISUAL", visual.c_str(), 1);
            // What VISUAL has goes before it.
            ::setenv("EDITOR", "false", 1);
            return runLine({editCommand}, "edit -F \"" + file + "\"");
        };
    };
    Conversation first(start("sed -i s/389/390/"));
    ASSERT_TRUE(first.answer(installPrompt, "x")) << first.shown();
    EXPECT_EQ(first.status(), 1) << first.shown();
    const std::string told = "to go on from it: VISUAL=";
    const std::size_t begin = first.shown().find(told);
    ASSERT_NE(begin, std::string::npos) << first.shown();
    const std::size_t end = first.shown().find("\r\n", begin);
    std::string command = first.shown().substr(begin + told.size(), end - begin - told.size());
    const std::size_t behind = command.find(" veltor edit -F ");
    ASSERT_NE(behind, std::string::npos) << command;
    // A shell takes the words apart.
    const std::string words = folder_ + "/words";
    ASSERT_EQ(std::system(("printf %s " + command.substr(0, behind) + " >" + words).c_str()), 0);
    const std::string visual = contentOf(words);
    ASSERT_EQ(std::system(("printf %s " + command.substr(behind + 16) + " >" + words).c_str()), 0);
    EXPECT_EQ(contentOf(words), file);

    Conversation again(start(visual));
    ASSERT_TRUE(again.answer(installPrompt, "y")) << again.shown();
    EXPECT_EQ(again.status(), 0) << again.shown();
    EXPECT_EQ(contentOf(file), replaced(original, "389", "390"));

    // Somebody has put another secret in: the masks that were kept would mean others.
    put(file, replaced(original, "cn: Configuration\n", "cn: Configuration\nzor-slapdPeerPW: >1xIheSypXWzXARA<\n"));
    Conversation late(start(visual));
    ASSERT_TRUE(late.shows("stands for no secret of the file")) << late.shown();
    ASSERT_TRUE(late.answer(problemPrompt, "x")) << late.shown();
    EXPECT_EQ(late.status(), 3) << late.shown();
}

TEST_F(Edit, WhatADyingEditorHasSavedIsKept)
{
    for (const char* end : {"kill -TERM $$", "exit 1", "mv \"$1\" \"$1.mine\""}) {
        SCOPED_TRACE(end);
        Conversation conversation(edit(std::string("echo typed >\"$1.save\"; ") + end));
        EXPECT_NE(conversation.status(), 0) << conversation.shown();
        ASSERT_EQ(drafts().size(), 1U) << conversation.shown();
        EXPECT_EQ(contentOf(drafts().front() + "/in.conf.save"), "typed\n");
        EXPECT_NE(conversation.shown().find("what the editor left is kept in " + drafts().front()), std::string::npos)
            << conversation.shown();
        std::filesystem::remove_all(drafts().front());
    }
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, UnknownNamesAreStoredOnRequest)
{
    Conversation conversation(edit("sed -i 's/^zor-slapdPort/zor-slapdPrt/' \"$1\"", "--allow-unknown"));
    ASSERT_TRUE(conversation.shows(file_ + ":7: warning: ")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "slapdPort", "slapdPrt"));

    // Once it is there it keeps nobody from editing.
    Conversation again(edit("sed -i 's/500/600/' \"$1\""));
    ASSERT_TRUE(again.answer(installPrompt, "y")) << again.shown();
    EXPECT_EQ(again.status(), 0) << again.shown();
}

TEST_F(Edit, WarningIsShownAndMayBeConfirmed)
{
    Conversation conversation(edit("sed -i '12d' \"$1\""));
    ASSERT_TRUE(conversation.shows(file_ + ":10: warning: ")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "cn: Front End\nobjectclass: top\n", "cn: Front End\n"));

    // What was there before is not told again.
    Conversation again(edit("sed -i 's/500/600/' \"$1\""));
    ASSERT_TRUE(again.answer(installPrompt, "y")) << again.shown();
    EXPECT_EQ(again.status(), 0) << again.shown();
    EXPECT_EQ(again.shown().find("warning: "), std::string::npos) << again.shown();
}

TEST_F(Edit, ChangeOfSomebodyElseIsShownAndTakenIn)
{
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\"; sed -i -e 's/389/1389/' -e 's/4711/4713/' \"$F\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("was changed by somebody else meanwhile:")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("+zor-slapdPort: 1389\r\n")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("+zor-slapdSetenv: *** (after)\r\n")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(conflictPrompt, "t")) << conversation.shown();
    // What is asked now is about the file as it is now.
    ASSERT_TRUE(conversation.shows(" zor-slapdPort: 1389\r\n-zor-slapdSizeLimit: 500\r\n+zor-slapdSizeLimit: 600\r\n"))
        << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    const std::string theirs = replaced(replaced(original, "389", "1389"), "4711", "4713");
    EXPECT_EQ(content(), replaced(theirs, "500", "600"));
    EXPECT_EQ(contentOf(file_ + ".bak"), theirs);
    expectNoSecret(conversation.shown());
    EXPECT_TRUE(drafts().empty());
}

TEST_F(Edit, LinesThatBothHaveChangedAreTold)
{
    Conversation conversation(edit("test -e \"$D/again\" || { sed -i -e 's/500/600/' \"$1\";"
                                   " sed -i -e 's/500/700/' -e 's/389/1389/' \"$F\"; }"));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(conflictPrompt, "t")) << conversation.shown();
    ASSERT_TRUE(conversation.shows(":8: warning: both have changed what stands here; your lines are kept"))
        << conversation.shown();
    ASSERT_TRUE(conversation.shows(" zor-slapdPort: 1389\r\n-zor-slapdSizeLimit: 700\r\n+zor-slapdSizeLimit: 600\r\n"))
        << conversation.shown();
    // The editor has the text that was taken in by then.
    ASSERT_TRUE(conversation.answer(installPrompt, "e")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 1) << conversation.shown();
    EXPECT_EQ(content(), replaced(replaced(original, "389", "1389"), "500", "700"));
    EXPECT_EQ(keptDraft(conversation), contentOf(folder_ + "/seen"));
    EXPECT_NE(keptDraft(conversation).find("zor-slapdSizeLimit: 600\n"), std::string::npos);
}

TEST_F(Edit, ChangeOfSomebodyElseIsNeverOverwrittenUnseen)
{
    const char* const script = "sed -i 's/500/600/' \"$1\"; sed -i 's/389/1389/' \"$F\"";
    const std::string theirs = replaced(original, "389", "1389");
    Conversation conversation(edit(script));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    // Editing again alone does not take it in.
    ASSERT_TRUE(conversation.answer(conflictPrompt, "e")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(conflictPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 6) << conversation.shown();
    EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
    std::filesystem::remove_all(drafts().front());

    put(file_, original);
    Conversation withoutQuestions(edit(script, "--yes"));
    EXPECT_EQ(withoutQuestions.status(), 6) << withoutQuestions.shown();
    EXPECT_EQ(content(), theirs);
    EXPECT_NE(keptDraft(withoutQuestions).find("SizeLimit: 600"), std::string::npos);
}

TEST_F(Edit, TextIsKeptWhenTheFileIsGone)
{
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\"; rm \"$F\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(busyPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 6) << conversation.shown();
    EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
}

TEST_F(Edit, LockOfAnotherWriterIsTriedAgain)
{
    const int lock = ::open((file_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(lock, F_OFD_SETLK, &whole), 0);
    // The process to come must not have the lock, too.
    const auto action = edit("sed -i 's/500/600/' \"$1\"", "--lock-timeout 0");
    Conversation conversation([&] {
        ::close(lock);
        return action();
    });
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("is being changed by")) << conversation.shown();
    EXPECT_EQ(content(), original);
    ::close(lock);
    ASSERT_TRUE(conversation.answer(busyPrompt, "t")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, ChangeThatLocksTheAdministratorOutIsRefusedAndMayBeCorrected)
{
    Conversation conversation(
        edit("test -e \"$D/again\" && sed -i 's/^objectclass: top/&\\nzor-slapdAdminDN: cn=root/;ta;b;:a;n;ba' \"$1\""
             " || sed -i '/AdminDN/d' \"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    ASSERT_TRUE(conversation.shows("nobody could bind as administrator")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(failurePrompt, "e")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, EditorMayPutAnotherFileInThePlaceOfTheDraft)
{
    Conversation conversation(edit("sed 's/500/600/' \"$1\" >\"$1.new\"; mv \"$1.new\" \"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, EditorMayWriteInPlace)
{
    Conversation conversation(edit("sed 's/500/600/' \"$1\" >\"$D/new\"; cat \"$D/new\" >\"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, NothingIsInstalledWhenTheEditorFails)
{
    struct Row
    {
        const char *script, *message;
        bool kept;
    };
    for (const Row row : {Row{"sed -i 's/500/600/' \"$1\"; exit 3", "exit status 3", true},
                          {"exit 3", "exit status 3", false},
                          {"sed -i 's/500/600/' \"$1\"; rm -f \"$D/again\"; kill -KILL $$", "signal 9", true},
                          {"kill -KILL $$", "signal 9", false}}) {
        Conversation conversation(edit(row.script));
        EXPECT_EQ(conversation.status(), 1) << conversation.shown();
        EXPECT_NE(conversation.shown().find(row.message), std::string::npos) << conversation.shown();
        EXPECT_EQ(drafts().size(), row.kept ? 1U : 0U) << row.script;
        if (row.kept) {
            EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
            std::filesystem::remove_all(drafts().front());
        }
        EXPECT_EQ(content(), original);
    }
}

TEST_F(Edit, EditorThatIsNotThereIsUsage)
{
    Conversation conversation([this] {
        ::setenv("VISUAL", "/nonexistent/editor --wait", 1);
        ::setenv("EDITOR", "true", 1);
        return run("");
    });
    EXPECT_EQ(conversation.status(), 2) << conversation.shown();
    EXPECT_NE(conversation.shown().find("the editor \"/nonexistent/editor --wait\" can't be run"), std::string::npos)
        << conversation.shown();
    EXPECT_TRUE(drafts().empty());
}

TEST_F(Edit, EmptyVisualIsNoEditor)
{
    const auto action = edit("sed -i 's/500/600/' \"$1\"");
    Conversation conversation([&] {
        ::setenv("EDITOR", ("sh " + folder_ + "/editor").c_str(), 1);
        ::setenv("VISUAL", "", 1);
        return run("--yes");
    });
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, EditorHasTheEnvironmentAsItWas)
{
    const auto action = edit("printf '%s' \"${LC_ALL-unset}\" >\"$D/locale\"");
    Conversation conversation([&] {
        ::unsetenv("LC_ALL");
        ::unsetenv("LC_CTYPE");
        ::unsetenv("LANG");
        return action();
    });
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(contentOf(folder_ + "/locale"), "unset");
}

TEST_F(Edit, SignalWhileTheEditorIsOpenKeepsTheText)
{
    for (const int signal : {SIGTERM, SIGHUP}) {
        std::filesystem::remove(folder_ + "/ready");
        Conversation conversation(edit(
            "sed -i 's/500/600/' \"$1\"; echo $$ >\"$D/pid\"; mv \"$D/pid\" \"$D/ready\"; echo opened; exec sleep 60"));
        ASSERT_TRUE(conversation.shows("opened")) << conversation.shown();
        ::kill(conversation.process(), signal);
        EXPECT_EQ(conversation.status(), 128 + signal) << conversation.shown();
        EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
        std::filesystem::remove_all(drafts().front());
        EXPECT_EQ(content(), original);
    }
}

TEST_F(Edit, SignalEndsTheEditorToo)
{
    Conversation conversation(edit("trap '' HUP; trap 'echo >\"$D/ended\"; exit' TERM; echo opened;"
                                   " while :; do sleep 0.05; done"));
    ASSERT_TRUE(conversation.shows("opened")) << conversation.shown();
    ::kill(conversation.process(), SIGTERM);
    EXPECT_EQ(conversation.status(), 128 + SIGTERM) << conversation.shown();
    EXPECT_TRUE(std::filesystem::exists(folder_ + "/ended"));
}

TEST_F(Edit, InterruptBelongsToTheEditorWhileItIsOpen)
{
    Conversation conversation(
        edit("trap 'sed -i s/500/600/ \"$1\"; exit 0' INT; echo opened; while :; do sleep 0.05; done"));
    ASSERT_TRUE(conversation.shows("opened")) << conversation.shown();
    // What Ctrl-C sends.
    ASSERT_TRUE(conversation.type("\x03")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, InterruptAtAQuestionKeepsTheText)
{
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\""));
    ASSERT_TRUE(conversation.shows(installPrompt)) << conversation.shown();
    ASSERT_TRUE(conversation.type("\x03")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 128 + SIGINT) << conversation.shown();
    EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, DryRunShowsTheDifferenceAndKeepsTheText)
{
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\"", "-n --exit-code"));
    EXPECT_EQ(conversation.status(), 1) << conversation.shown();
    EXPECT_NE(conversation.shown().find("+zor-slapdSizeLimit: 600\r\n"), std::string::npos) << conversation.shown();
    EXPECT_NE(conversation.shown().find("dry run: 1 change in 1 entry, nothing written\r\n"), std::string::npos)
        << conversation.shown();
    EXPECT_NE(keptDraft(conversation).find("SizeLimit: 600"), std::string::npos);
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, YesAsksNothing)
{
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\"", "--yes --no-backup"));
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(conversation.shown(), "written\r\n");
    EXPECT_EQ(content(), replaced(original, "500", "600"));
    EXPECT_FALSE(std::filesystem::exists(file_ + ".bak"));
}

TEST_F(Edit, DocumentIsAllOfStandardOutput)
{
    const auto action = edit("test -t 1 && sed -i 's/500/600/' \"$1\"", "--json");
    Conversation conversation([&] {
        // NOLINTNEXTLINE(cppcoreguidelines-owning-memory)
        return std::freopen((folder_ + "/out").c_str(), "w", stdout) == nullptr ? 99 : action();
    });
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    const std::string document = contentOf(folder_ + "/out");
    EXPECT_TRUE(document.starts_with("{\"veltor\":1,\"ok\":true,\"changed\":true")) << document;
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, DocumentTellsWhereTheTextIsKept)
{
    const auto action = edit("sed -i 's/500/600/' \"$1\"", "--json");
    Conversation conversation([&] {
        // NOLINTNEXTLINE(cppcoreguidelines-owning-memory)
        return std::freopen((folder_ + "/out").c_str(), "w", stdout) == nullptr ? 99 : action();
    });
    ASSERT_TRUE(conversation.answer(installPrompt, "x")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 1) << conversation.shown();
    ASSERT_EQ(drafts().size(), 1U);
    const std::string document = contentOf(folder_ + "/out");
    EXPECT_NE(document.find("\"kept\":\"" + drafts().front() + "/in.conf\""), std::string::npos) << document;
}

TEST_F(Edit, PasswordIsAskedForOnce)
{
    const std::string options = "-D cn=root -W";
    Conversation wrong(edit("true", options));
    ASSERT_TRUE(wrong.answer("Password for cn=root: ", "wrong")) << wrong.shown();
    EXPECT_EQ(wrong.status(), 5) << wrong.shown();
    EXPECT_TRUE(drafts().empty());
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/seen"));

    Conversation right(edit("sed -i 's/500/600/' \"$1\"", options));
    ASSERT_TRUE(right.answer("Password for cn=root: ", "secret")) << right.shown();
    ASSERT_TRUE(right.answer(installPrompt, "y")) << right.shown();
    EXPECT_EQ(right.status(), 0) << right.shown();
    EXPECT_EQ(content(), replaced(original, "500", "600"));
}

TEST_F(Edit, FileThatDoesNotLoadCanBeCorrected)
{
    const std::string broken = replaced(original, "zor-slapdPort", "\nzor-slapdPort");
    put(file_, broken);
    Conversation conversation(edit("sed -i '7d' \"$1\""));
    ASSERT_TRUE(conversation.shows("in.conf:8: ")) << conversation.shown();
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), original);
    EXPECT_EQ(contentOf(file_ + ".bak"), broken);
}

TEST_F(Edit, LastLineWithoutALineFeedMayGetOne)
{
    const std::string text = std::string(original).substr(0, std::string(original).size() - 1);
    put(file_, text);
    Conversation conversation(edit("echo >>\"$1\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(content(), original);
}

TEST_F(Edit, ZeroByteIsRefusedBeforeTheEditorOpens)
{
    const std::string text = std::string(original) + "# a" + std::string(1, '\0') + "b\n";
    put(file_, text);
    Conversation conversation(edit("true"));
    EXPECT_EQ(conversation.status(), 3) << conversation.shown();
    EXPECT_NE(conversation.shown().find("in.conf:16: there is a zero byte"), std::string::npos) << conversation.shown();
    EXPECT_EQ(content(), text);
    EXPECT_TRUE(drafts().empty());
}

TEST_F(Edit, SecretsAreNeverShown)
{
    Conversation conversation(edit("true", "--show-secrets"));
    EXPECT_EQ(conversation.status(), 2) << conversation.shown();
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/seen"));
}

TEST_F(Edit, LinkStaysALinkAndTheDraftIsBesideTheFile)
{
    std::filesystem::create_directory(folder_ + "/links");
    const std::string link = folder_ + "/links/link.conf";
    std::filesystem::create_symlink("../in.conf", link);
    const std::string file = std::exchange(file_, link);
    Conversation conversation(edit("sed -i 's/500/600/' \"$1\"; echo \"$1\" >\"$D/name\""));
    ASSERT_TRUE(conversation.answer(installPrompt, "y")) << conversation.shown();
    EXPECT_EQ(conversation.status(), 0) << conversation.shown();
    EXPECT_EQ(contentOf(file), replaced(original, "500", "600"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(contentOf(folder_ + "/name").starts_with(folder_ + "/in.conf.edit-"));
}

} // namespace
