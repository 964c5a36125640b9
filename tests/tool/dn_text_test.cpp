// The texts of DNs that the library has taken or printed.
#include "dn_text.h"

#include <gtest/gtest.h>
#include <string_view>
#include <vector>

using veltor::tool::namingAttributesOf;
using veltor::tool::parentOf;

TEST(DnText, TellsTheParent)
{
    struct Row
    {
        const char *dn, *parent;
    };
    const Row rows[] = {{"", ""},
                        {"cn=a", ""},
                        {"cn=b, cn=a", "cn=a"},
                        {"cn=b,cn=a", "cn=a"},
                        {"cn=b;\tcn=a", "cn=a"},
                        {"cn=b\\, c, cn=a", "cn=a"},
                        {"cn=\"b, c\", cn=a", "cn=a"},
                        {"cn=b\\", ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.dn);
        EXPECT_EQ(parentOf(row.dn), row.parent);
    }
}

TEST(DnText, TellsTheAttributesThatNameAnEntry)
{
    struct Row
    {
        const char* dn;
        std::vector<std::string_view> names;
    };
    const Row rows[] = {{"", {}},
                        {"cn=a", {"cn"}},
                        {" CN = a , ou=b", {"CN"}},
                        {"cn=a+ou=b;o=c", {"cn", "ou"}},
                        {"cn=a\\+b\\,c, o=d", {"cn"}},
                        {"cn=\"a+b,c\"+ou=d,o=e", {"cn", "ou"}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.dn);
        EXPECT_EQ(namingAttributesOf(row.dn), row.names);
    }
}
