// cfg_attr_type_count and cfg_attr_type_at: the catalogue as administration tools see it. Nothing here needs a handle.
#include "veltor/cfg_admin.h"

#include "LDIF_AttrType.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <strings.h>
#include <thread>
#include <vector>

namespace {

// Taken before main, where a catalogue that is made at start may not be there yet.
struct Early
{
    int count = cfg_attr_type_count();
    cfg_attr_type first = {};
    int code = cfg_attr_type_at(0, &first);
};
const Early early;

std::vector<cfg_attr_type> everyType()
{
    std::vector<cfg_attr_type> types;
    for (int index = 0; index < cfg_attr_type_count(); ++index) {
        cfg_attr_type type = {};
        EXPECT_EQ(cfg_attr_type_at(index, &type), 0) << index;
        types.push_back(type);
    }
    return types;
}

cfg_attr_type typeOf(const std::string& name)
{
    for (const auto& type : everyType()) {
        if (name == type.name) {
            return type;
        }
    }
    ADD_FAILURE() << name << " is not in the catalogue";
    return {"", "", nullptr, 0, 0, 0, 0};
}

std::string joined(const char* const* values)
{
    std::string text;
    for (; values != nullptr && *values != nullptr; ++values) {
        text += *values;
        text += ' ';
    }
    return values == nullptr ? "none" : text;
}

} // namespace

TEST(CfgAttrType, IsThereBeforeMain)
{
    EXPECT_EQ(early.count, 115);
    EXPECT_EQ(early.code, 0);
    EXPECT_STREQ(early.first.name, "charset");
    EXPECT_STREQ(early.first.syntax, "ces");
}

TEST(CfgAttrType, CountsDistinctNames)
{
    EXPECT_EQ(cfg_attr_type_count(), 115);
}

TEST(CfgAttrType, NamesAreInOrderAndOccurOnce)
{
    const auto types = everyType();
    ASSERT_EQ(types.size(), 115U);
    for (std::size_t index = 1; index < types.size(); ++index) {
        EXPECT_LT(strcasecmp(types[index - 1].name, types[index].name), 0) << types[index].name;
    }
}

TEST(CfgAttrType, AnIndexOutsideAndANullRecordAreRefused)
{
    for (const int index : {-1, 115, 116, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(index);
        cfg_attr_type type = {"name", "syntax", nullptr, 1, 2, 3, 4};
        EXPECT_EQ(cfg_attr_type_at(index, &type), 89);
        EXPECT_STREQ(type.name, "name") << "left alone";
    }
    EXPECT_EQ(cfg_attr_type_at(0, nullptr), 89);
}

TEST(CfgAttrType, TellsWhatTheRecordsHold)
{
    for (const auto& type : everyType()) {
        SCOPED_TRACE(type.name);
        const _AttrType* const record = getAttrType(type.name);
        ASSERT_NE(record->name, nullptr);
        EXPECT_EQ(type.name, record->name) << "lent from the record itself";
        EXPECT_EQ(type.enum_values, record->enumValues);
        EXPECT_EQ(type.bitmask, record->bitmask);
        EXPECT_EQ(type.minimum, record->min);
        EXPECT_EQ(type.maximum, record->max);
        EXPECT_EQ(type.single_valued, record->singleValued ? 1 : 0);
    }
}

TEST(CfgAttrType, EachSyntaxHasOneWord)
{
    struct Row
    {
        const char* syntax;
        const char* name;
        const char* values;
        long bitmask;
        long minimum;
        long maximum;
        int singleValued;
    };
    const Row rows[] = {
        {"ces", "zor-slapdDbName", "none", 0, 1, 8, 1},
        {"ces", "zor-slapdServerID", "none", 0, 0, 1024, 1},
        {"cis", "cn", "none", 0, 0, 0, 1},
        {"cis", "objectclass", "none", 0, 0, 0, 0},
        {"enum", "zor-slapdReadOnly", "true false ", 0, 0, 0, 1},
        {"enum", "zor-slapdEThreadActivate", "S T SOT SAT ldap ldaps ", 0, 0, 0, 1},
        {"int", "version", "none", 0, 1, 1, 1},
        {"int", "zor-slapdPort", "none", 0, 1, 65535, 1},
        {"int", "zor-slapdIdleTimeOut", "none", 0, 0, 2147483647, 1},
        {"mask", "zor-slapdSslCipherSpecs", "none", 0x3F00, 0, 0, 1},
        {"oid", "zor-slapdSupportedACIMechanisms", "1.3.47.0.2.26.1 1.3.47.0.2.26.2 ", 0, 0, 0, 1},
        {"dn", "zor-slapdAdminDN", "none", 0, 0, 0, 1},
        {"dn", "zor-slapdSuffix", "none", 0, 1, 0, 0},
        {"dc", "zor-slapdKrbRealm", "none", 0, 0, 0, 1},
        {"url", "zor-slapdReferral", "ldap ldaps ", 0, 0, 0, 0},
        {"krbdn", "zor-slapdKrbAdminDN", "none", 0, 0, 0, 1},
        {"env", "zor-slapdSetenv", "none", 0, 0, 0, 0},
        {"pw", "zor-slapdAdminPW", "none", 0, 1, 46, 1},
        {"path", "zor-slapdErrorLog", "none", 0, 1, 4096, 1},
        {"file", "zor-slapdIncludeSchema", "none", 0, 1, 4096, 0},
        {"plugin", "zor-slapdPlugin", "none", 0, 0, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const cfg_attr_type type = typeOf(row.name);
        EXPECT_STREQ(type.syntax, row.syntax);
        EXPECT_EQ(joined(type.enum_values), row.values);
        EXPECT_EQ(type.bitmask, row.bitmask);
        EXPECT_EQ(type.minimum, row.minimum);
        EXPECT_EQ(type.maximum, row.maximum);
        EXPECT_EQ(type.single_valued, row.singleValued);
    }
}

TEST(CfgAttrType, EverySyntaxHasItsTypes)
{
    std::map<std::string, int> counts;
    for (const auto& type : everyType()) {
        ++counts[type.syntax];
    }
    // One "int" less than there are rows: zor-slapdIdleTimeOut stands twice in the catalogue.
    const std::map<std::string, int> expected = {{"ces", 6}, {"cis", 8},  {"dc", 3},     {"dn", 6},    {"enum", 37},
                                                 {"env", 1}, {"file", 2}, {"int", 34},   {"krbdn", 1}, {"mask", 1},
                                                 {"oid", 1}, {"path", 6}, {"plugin", 1}, {"pw", 6},    {"url", 2}};
    EXPECT_EQ(counts, expected);
}

TEST(CfgAttrType, ManyThreadsReadAtOnce)
{
    constexpr std::size_t readers = 8;
    std::array<int, readers> right = {};
    std::vector<std::thread> threads;
    threads.reserve(readers);
    for (int& count : right) {
        threads.emplace_back([&count] {
            for (int index = 0; index < cfg_attr_type_count(); ++index) {
                cfg_attr_type type = {};
                const int code = cfg_attr_type_at(index, &type);
                count += code == 0 && getAttrType(type.name)->name == type.name ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(std::all_of(right.begin(), right.end(), [](int count) { return count == 115; }));
}
