// The example configuration is what a newcomer copies: it must be what the library itself would write.
#include "LDIF_AttrType.h"
#include "LDIF_Entry.h"
#include "LDIF_File.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/stat.h>

using veltor::test::contentOf;
using veltor::test::TemporaryFolder;

namespace {

const std::string examplePath = std::string(VELTOR_EXAMPLES) + "/zorslapd.conf";

/// A copy of the example that a test may spoil.
class ExampleConf : public testing::Test
{
protected:
    void SetUp() override { ASSERT_FALSE(contentOf(path_).empty()) << examplePath; }

    const TemporaryFolder folder_;
    const std::string path_ = folder_.write("zorslapd.conf", contentOf(examplePath));
};

void forEachEntry(const LDIF_Entry& entry, const std::function<void(const LDIF_Entry&)>& visit)
{
    visit(entry);
    for (const LDIF_Entry& child : entry.children) {
        forEachEntry(child, visit);
    }
}

int depthOf(const LDIF_Entry& entry)
{
    int deepest = 0;
    for (const LDIF_Entry& child : entry.children) {
        deepest = std::max(deepest, 1 + depthOf(child));
    }
    return deepest;
}

} // namespace

TEST_F(ExampleConf, IsPlainAsciiWithALineFeedAtItsEnd)
{
    const std::string content = contentOf(path_);
    EXPECT_TRUE(std::all_of(content.begin(), content.end(),
                            [](char byte) { return byte == '\n' || (byte >= 0x20 && byte < 0x7F); }));
    EXPECT_EQ(content.back(), '\n');
}

TEST_F(ExampleConf, IsReadWithoutBeingTouched)
{
    struct stat before = {};
    ASSERT_EQ(::stat(path_.c_str(), &before), 0);
    const LDIF_File file(path_, "");
    struct stat after = {};
    ASSERT_EQ(::stat(path_.c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(contentOf(path_), contentOf(examplePath));
}

TEST_F(ExampleConf, IsWrittenBackByteForByte)
{
    LDIF_File file(path_, "");
    std::ofstream(path_, std::ios::binary) << "spoilt";
    file.flush();
    EXPECT_EQ(contentOf(path_), contentOf(examplePath));
}

TEST_F(ExampleConf, UsesTheCatalogueAndNothingElse)
{
    const LDIF_File file(path_, "");
    std::set<std::string> names;
    forEachEntry(file.root, [&](const LDIF_Entry& entry) {
        for (const LDIF_Attribute& attribute : entry.attributes) {
            const _AttrType* type = getAttrType(attribute.name.c_str());
            ASSERT_NE(type->name, nullptr) << attribute.name;
            EXPECT_EQ(attribute.name, std::string(type->name)) << "spelled as in the catalogue";
            EXPECT_TRUE(!type->singleValued || attribute.values.size() == 1) << attribute.name;
            EXPECT_FALSE(attribute.values.empty()) << attribute.name;
            names.insert(type->name);
        }
    });
    EXPECT_GE(names.size(), 60U);
}

TEST_F(ExampleConf, IsATreeWhoseEntriesAllHaveAnObjectclass)
{
    const LDIF_File file(path_, "");
    int entries = 0;
    forEachEntry(file.root, [&](const LDIF_Entry& entry) {
        if (entry.dnLabel.empty()) {
            return;
        }
        ++entries;
        const auto named = [](const LDIF_Attribute& attribute) { return attribute.name == "objectclass"; };
        EXPECT_TRUE(std::any_of(entry.attributes.begin(), entry.attributes.end(), named)) << entry.dn.str();
        // No ancestor is missing: every entry hangs directly below its parent.
        EXPECT_EQ(entry.relDn.size(), 1U) << entry.dn.str();
    });
    EXPECT_GE(entries, 15);
    EXPECT_GE(depthOf(file.root), 3);
}

TEST_F(ExampleConf, LetsItsAdministratorIn)
{
    LDIF_File file(path_, "");
    EXPECT_EQ(file.setAuthentication("cn=root", "secret-of-the-example", 128), 2);
    EXPECT_EQ(file.setAuthentication("cn=root", "secret", 128), 0);
}
