// The texts of DNs that the library has taken or printed.
#include "dn_text.h"

#include <gtest/gtest.h>

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
