// Tests of what may stand where the cursor is.
#include "commands.h"
#include "complete.h"
#include "names.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using namespace veltor::tool;

class Complete : public testing::Test
{
protected:
    Complete()
    {
        addTargetOptions(application_, target_);
        addOutputOptions(application_, outputOptions_);
        for (const auto add : {getCommand, setCommand, unsetCommand, explainCommand, searchCommand, passwdCommand,
                               deleteCommand, diffCommand, helpCommand, completionCommand, modifyCommand}) {
            add(application_, target_, output_);
        }
    }

    Completions at(const std::vector<std::string>& words, const std::string& current)
    {
        return complete(application_, words, current, [&](const std::optional<std::string>& file) {
            askedFor_ = file.value_or("(default)");
            return std::vector<std::string>{"cn=Configuration", "cn=Front End, cn=Configuration", "cn=\x1B[31m"};
        });
    }

    std::vector<std::string> wordsAt(const std::vector<std::string>& words, const std::string& current)
    {
        std::vector<std::string> found;
        for (const Candidate& candidate : at(words, current).candidates) {
            found.push_back(candidate.word);
        }
        return found;
    }

    bool offers(const std::vector<std::string>& words, const std::string& current, const std::string& word)
    {
        const std::vector<std::string> found = wordsAt(words, current);
        return std::find(found.begin(), found.end(), word) != found.end();
    }

    using Words = std::vector<std::string>;

    CLI::App application_{"", "veltor"};
    TargetOptions target_;
    OutputOptions outputOptions_;
    Output output_{outputOptions_};
    std::string askedFor_;
};

TEST_F(Complete, CommandsStandFirst)
{
    EXPECT_EQ(wordsAt({}, "se"), (Words{"set", "search"}));
    EXPECT_EQ(wordsAt({"-q", "--format", "json", "-F", "get"}, "un"), Words{"unset"});
    EXPECT_EQ(wordsAt({"help"}, "ex"), Words{"explain"});
    EXPECT_EQ(wordsAt({"help", "explain"}, ""), Words{});
    EXPECT_EQ(wordsAt({"nonsense"}, "diff"), Words{"diff"});
}

TEST_F(Complete, OptionsAreThoseOfTheParser)
{
    EXPECT_EQ(wordsAt({"set"}, "--ba"), Words{"--backup"});
    EXPECT_EQ(wordsAt({"get"}, "--ba"), Words{});
    EXPECT_EQ(wordsAt({"get"}, "--sh"), Words{"--show-secrets"});
    EXPECT_EQ(wordsAt({}, "--sh"), Words{"--show-secrets"});
    // In front of the command may also stand what all writing commands have.
    EXPECT_EQ(wordsAt({}, "--ba"), Words{"--backup"});
    EXPECT_TRUE(at({}, "--backup=").fileNameAt);
    EXPECT_EQ(wordsAt({"-n", "--backup", "get"}, "un"), Words{"unset"});
    EXPECT_TRUE(offers({"search"}, "-", "-s"));
    EXPECT_TRUE(offers({"search"}, "-", "--comments"));
    EXPECT_FALSE(offers({"get"}, "-", "-s"));
    // Options that are there to be refused.
    EXPECT_FALSE(offers({"search"}, "-", "-H"));
    EXPECT_EQ(wordsAt({"get", "--"}, "--sh"), Words{});
    // Each visible option, so that none is forgotten.
    for (const CLI::Option* option : application_.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            EXPECT_EQ(offers({"get"}, "--", "--" + name), !option->get_group().empty()) << name;
        }
    }
}

TEST_F(Complete, NamesAreShortAndAlsoFullWhereTheirPrefixIsTyped)
{
    EXPECT_EQ(wordsAt({"get"}, "por"), Words{"port"});
    EXPECT_EQ(wordsAt({"get", "port"}, "SECURITY"), Words{"security"});
    EXPECT_EQ(wordsAt({"get"}, "zor-slapdPor"), Words{"zor-slapdPort"});
    EXPECT_EQ(wordsAt({"get"}, "ZOR-AUDITB"), Words{"zor-auditBind"});
    EXPECT_TRUE(offers({"get"}, "", "port"));
    EXPECT_FALSE(offers({"get"}, "", "zor-slapdPort"));
    EXPECT_TRUE(offers({"get"}, "", "cn"));
    EXPECT_TRUE(offers({"get"}, "", "ACLCache"));
    // The short form of zor-slapdVersion is the name of another.
    EXPECT_TRUE(offers({"get"}, "", "slapdVersion"));
    for (const char* command : {"explain", "unset", "search"}) {
        EXPECT_EQ(wordsAt({command}, "auditB"), Words{"auditBind"}) << command;
    }
    EXPECT_EQ(wordsAt({"search", "(cn=*)", "port"}, "auditB"), Words{"auditBind"});
    EXPECT_FALSE(at({"get"}, "po").unfinished);
}

TEST_F(Complete, EachShortNameMeansItsSetting)
{
    for (int index = 0; index < cfg_attr_type_count(); ++index) {
        cfg_attr_type type = {};
        ASSERT_EQ(cfg_attr_type_at(index, &type), 0);
        EXPECT_EQ(fullName(shortName(type.name)), type.name);
    }
}

TEST_F(Complete, AssignmentsGoOnWithTheValuesOfTheType)
{
    EXPECT_EQ(wordsAt({"set"}, "secur"), (Words{"securePort=", "security="}));
    EXPECT_TRUE(at({"set"}, "securi").unfinished);
    EXPECT_EQ(wordsAt({"set"}, "security="),
              (Words{"security=none", "security=SSL", "security=SSLOnly", "security=TLS", "security=SSLTLS"}));
    EXPECT_EQ(wordsAt({"set"}, "zor-slapdSecurity+=ssl"),
              (Words{"zor-slapdSecurity+=SSL", "zor-slapdSecurity+=SSLOnly", "zor-slapdSecurity+=SSLTLS"}));
    EXPECT_EQ(wordsAt({"set", "port=1"}, "auditBind-=t"), Words{"auditBind-=true"});
    EXPECT_FALSE(at({"set"}, "security=").unfinished);
    EXPECT_EQ(wordsAt({"set"}, "port="), Words{});
    EXPECT_EQ(wordsAt({"set"}, "nonsense="), Words{});
    EXPECT_EQ(wordsAt({"set"}, "="), Words{});
}

TEST_F(Complete, PasswordsAreForPasswdAlone)
{
    EXPECT_EQ(wordsAt({"passwd"}, "admin"), Words{"adminPW"});
    EXPECT_EQ(wordsAt({"passwd"}, "port"), Words{});
    EXPECT_EQ(wordsAt({"set"}, "adminP"), Words{});
    EXPECT_EQ(wordsAt({"get", "-w"}, ""), Words{});
    EXPECT_EQ(wordsAt({"set", "adminPW="}, "x"), Words{});
}

TEST_F(Complete, DnsComeFromTheFileThatIsNamed)
{
    EXPECT_EQ(wordsAt({"get", "-b"}, "CN=f"), Words{"cn=Front End, cn=Configuration"});
    EXPECT_EQ(askedFor_, "(default)");
    EXPECT_EQ(wordsAt({"-F", "a.conf", "delete", "-r"}, "cn=C"), Words{"cn=Configuration"});
    EXPECT_EQ(askedFor_, "a.conf");
    EXPECT_EQ(wordsAt({"delete", "--file=b.conf", "x"}, "cn=C"), Words{"cn=Configuration"});
    EXPECT_EQ(askedFor_, "b.conf");
    EXPECT_EQ(wordsAt({"search", "-Fc.conf"}, "-bcn=C"), Words{"-bcn=Configuration"});
    EXPECT_EQ(askedFor_, "c.conf");
    askedFor_.clear();
    // Who may administer is no entry, and nothing else needs the file.
    EXPECT_EQ(wordsAt({"get", "-D"}, ""), Words{});
    EXPECT_FALSE(wordsAt({"get"}, "").empty());
    EXPECT_EQ(askedFor_, "");
}

TEST_F(Complete, WhatATerminalWouldObeyIsNotOffered)
{
    EXPECT_EQ(wordsAt({"delete"}, ""), (Words{"cn=Configuration", "cn=Front End, cn=Configuration"}));
}

TEST_F(Complete, FilesAreTheShells)
{
    EXPECT_EQ(at({"get", "-F"}, "x").fileNameAt, 0U);
    EXPECT_EQ(at({"get"}, "--file=x").fileNameAt, 7U);
    EXPECT_EQ(at({"get"}, "-Fx").fileNameAt, 2U);
    EXPECT_EQ(at({"get"}, "-qFx").fileNameAt, 3U);
    EXPECT_EQ(at({"modify", "-nf"}, "").fileNameAt, 0U);
    EXPECT_EQ(at({"diff", "a"}, "").fileNameAt, 0U);
    EXPECT_EQ(at({"get", "-y"}, "").fileNameAt, 0U);
    EXPECT_EQ(at({"passwd", "-T"}, "").fileNameAt, 0U);
    EXPECT_EQ(at({"set", "--backup"}, "").fileNameAt, 0U);
    EXPECT_EQ(at({"get"}, "x").fileNameAt, std::nullopt);
    EXPECT_EQ(at({"diff", "a", "b"}, "").fileNameAt, std::nullopt);
    EXPECT_EQ(at({"set", "-m"}, "").fileNameAt, std::nullopt);
}

TEST_F(Complete, WordsOfAListAreTheOnesThatTheToolTakes)
{
    EXPECT_EQ(wordsAt({"search", "-s"}, ""), (Words{"base", "one", "sub", "children"}));
    EXPECT_EQ(wordsAt({"completion"}, ""), (Words{"bash", "zsh"}));
    EXPECT_EQ(wordsAt({"get"}, "--format=j"), Words{"--format=json"});
    for (const std::string& word : wordsAt({"get", "--format"}, "")) {
        OutputOptions options;
        options.format = word;
        EXPECT_NO_THROW(Output(options).formOf({Form::text, Form::ldif, Form::value})) << word;
    }
    for (const std::string& word : wordsAt({"get", "--color"}, "")) {
        OutputOptions options;
        options.colour = word;
        EXPECT_NO_THROW(Output(options).formOf({Form::text})) << word;
    }
    EXPECT_EQ(wordsAt({"get", "--format"}, "").size(), 4U);
    EXPECT_EQ(wordsAt({"get", "--color"}, "").size(), 3U);
}

} // namespace
