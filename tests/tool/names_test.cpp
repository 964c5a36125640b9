// What people type for an attribute name, and what they are asked when it is none.
#include "names.h"

#include "failure.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace veltor::tool;

TEST(Names, AreFoundWholeOrWithoutTheirPrefixInAnyLetterCase)
{
    struct Row
    {
        const char *given, *name;
    };
    const Row rows[] = {
        {"zor-slapdPort", "zor-slapdPort"},
        {"ZOR-SLAPDPORT", "zor-slapdPort"},
        {"port", "zor-slapdPort"},
        {"PORT", "zor-slapdPort"},
        {"slapdPort", "zor-slapdPort"},
        {"auditBind", "zor-auditBind"},
        {"audit", "zor-audit"},
        {"cn", "cn"},
        {"ObjectClass", "objectclass"},
        {"auditVersion", "zor-auditVersion"},
        // A full name goes before zor-slapdVersion.
        {"version", "version"},
        {"slapdVersion", "zor-slapdVersion"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        EXPECT_EQ(lookUpName(row.given).name, row.name);
        EXPECT_EQ(fullName(row.given), row.name);
    }
}

TEST(Names, OfTheCatalogueAllHaveAShortOneUnlessAFullOneIsCalledSo)
{
    for (int index = 0; index < cfg_attr_type_count(); ++index) {
        cfg_attr_type type = {};
        ASSERT_EQ(cfg_attr_type_at(index, &type), 0);
        const std::string name = type.name;
        EXPECT_EQ(fullName(name), name);
        for (const std::string prefix : {"zor-slapd", "zor-"}) {
            if (name.compare(0, prefix.size(), prefix) == 0 && name != "zor-slapdVersion") {
                EXPECT_EQ(fullName(name.substr(prefix.size())), name);
            }
        }
    }
}

TEST(Names, ThatAreUnknownSuggestTheNearestOnes)
{
    struct Row
    {
        const char* given;
        std::vector<std::string> nearest;
    };
    const Row rows[] = {
        {"zor-slapdPrt", {"zor-slapdPort"}},
        {"prot", {"zor-slapdPort"}},
        {"secruity", {"zor-slapdSecurity"}},
        {"zorslapdSecurity", {"zor-slapdSecurity"}},
        {"auditbnid", {"zor-auditBind"}},
        // Parts of names, where nothing is spelt alike.
        {"reaping",
         {"zor-slapdAllReapingThreshold", "zor-slapdAnonReapingThreshold", "zor-slapdBoundReapingThreshold"}},
        {"xyzzy", {}},
        {"", {}},
        {"q", {}},
        {"zor-slapd", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        const NameResult result = lookUpName(row.given);
        EXPECT_EQ(result.name, "");
        EXPECT_FALSE(result.ambiguous);
        EXPECT_EQ(result.nearest, row.nearest);
    }
    EXPECT_TRUE(lookUpName(std::string(100000, 'p')).nearest.empty());
}

TEST(Names, ThatAreUnknownAreRefusedWithTheSuggestion)
{
    try {
        fullName("zor-slapdPrt", {"nothing was written; --allow-unknown stores it as free text"});
        FAIL() << "the name was taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exit(), ExitCode::refused);
        EXPECT_EQ(failure.message(), "veltor: error: unknown setting \"zor-slapdPrt\"; did you mean zor-slapdPort?\n"
                                     "  nothing was written; --allow-unknown stores it as free text\n");
    }
    try {
        fullName("xyz\x1B");
        FAIL() << "the name was taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.message(), "veltor: error: unknown setting \"xyz\\x1b\"\n"
                                     "  nothing was written; see: veltor explain --list\n");
    }
}

TEST(Names, ThatAreAmbiguousNameWhatTheyMayMean)
{
    try {
        refuseName("x", {"", {"zor-slapdX", "zor-x"}, true});
        FAIL() << "the name was taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exit(), ExitCode::refused);
        EXPECT_STREQ(failure.what(), "ambiguous setting \"x\"; did you mean zor-slapdX or zor-x?");
    }
}

TEST(Names, HaveTheTypeOfTheCatalogue)
{
    const std::optional<cfg_attr_type> port = attributeType("ZOR-slapdport");
    ASSERT_TRUE(port.has_value());
    EXPECT_STREQ(port->name, "zor-slapdPort");
    EXPECT_EQ(port->maximum, 65535);
    EXPECT_FALSE(attributeType("port").has_value());
}
