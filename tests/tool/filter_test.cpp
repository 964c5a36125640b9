// Which filters reach the library, in which form, and where the caret stands under the others.
#include "filter.h"

#include "failure.h"

#include <gtest/gtest.h>
#include <string>

using veltor::tool::checkedFilter;
using veltor::tool::ExitCode;
using veltor::tool::Failure;
using veltor::tool::isFilter;

TEST(Filter, TellsFiltersFromAttributeNames)
{
    for (const char* filter : {"", "(cn)", "()", "cn=x", "=x", "a>=b"}) {
        SCOPED_TRACE(filter);
        EXPECT_TRUE(isFilter(filter));
    }
    for (const char* name : {"cn", "zor-slapdPort", "*", "1.1", "+"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(isFilter(name));
    }
}

TEST(Filter, HandsOneTermOnWithoutParenthesesAndOuterBlanks)
{
    struct Row
    {
        const char *given, *passedOn;
    };
    const Row rows[] = {
        {"", ""},
        {"  ", ""},
        {"()", ""},
        {"( )", ""},
        {"cn=x", "cn=x"},
        {"(cn=x)", "cn=x"},
        {" ( cn = x y ) ", "cn=x y"},
        {"(objectclass=*)", "objectclass=*"},
        {"2.5.4.3=x", "2.5.4.3=x"},
        {"cn;lang-en=x", "cn;lang-en=x"},
        {"cn=a=b", "cn=a=b"},
        {"cn=K\xC3\xB6ln", "cn=K\xC3\xB6ln"},
        {"(cn=\\28a\\29\\2a\\5C)", "cn=\\28a\\29\\2a\\5C"},
        {"zor-slapdSuffix=o=example, c=de", "zor-slapdSuffix=o=example, c=de"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        EXPECT_EQ(checkedFilter(row.given), row.passedOn);
    }
}

TEST(Filter, RefusesWhatItWouldSearchWronglyAndPointsAtIt)
{
    struct Row
    {
        const char* given;
        std::size_t caret; ///< column of the caret, 0-based
        const char* reason;
    };
    const Row rows[] = {
        {"(&(cn=a)(cn=b))", 1, "\"&\" needs more than one term"},
        {"(|(cn=a)(cn=b))", 1, "\"|\" needs more than one term"},
        {"(!(cn=a))", 1, "\"!\" needs more than one term"},
        {"( &(cn=a))", 2, "\"&\" needs more than one term"},
        {"&(cn=a)", 0, "an attribute name is expected here"},
        {"((cn=a))", 1, "an attribute name is expected here"},
        {"=x", 0, "an attribute name is expected here"},
        {"(=x)", 1, "an attribute name is expected here"},
        {"(cn=x", 5, "the closing parenthesis is missing"},
        {"(", 1, "the closing parenthesis is missing"},
        {"cn=x)", 4, "\\29"},
        {"cn=a(b", 4, "\\28"},
        {"(cn=a)(cn=b)", 5, "\\29"},
        {"(cn)", 3, "\"=\" is expected here"},
        {"c n=x", 2, "\"=\" is expected here"},
        {"zor-slapdPort>=1024", 13, "compares with \"=\" alone"},
        {"zor-slapdPort<=1024", 13, "compares with \"=\" alone"},
        {"cn~=x", 2, "compares with \"=\" alone"},
        {"cn:dn:=x", 2, "compares with \"=\" alone"},
        {"cn=", 3, "a value, or * for any, is expected here"},
        {"(cn=)", 4, "a value, or * for any, is expected here"},
        {"cn=a*", 4, "whole values only"},
        {"cn=*a", 3, "whole values only"},
        {"cn=a*b", 4, "whole values only"},
        {"cn=**", 3, "whole values only"},
        {"cn=a\\4", 4, "two hexadecimal digits"},
        {"cn=a\\zz", 4, "two hexadecimal digits"},
        {"cn=a\\", 4, "two hexadecimal digits"},
        {"(cn=a\\)", 5, "two hexadecimal digits"},
        {"cn=a\\00b", 4, "zero byte"},
        // The column counts characters as they are shown.
        {"cn=K\xC3\xB6ln*", 7, "whole values only"},
        {"cn=\x1B*", 7, "whole values only"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        try {
            checkedFilter(row.given);
            ADD_FAILURE() << "the filter was taken";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.exit(), ExitCode::usage);
            EXPECT_NE(std::string(failure.what()).find(row.reason), std::string::npos) << failure.what();
            const std::string caretLine = "\n  " + std::string(row.caret, ' ') + "^\n";
            EXPECT_NE(failure.message().find(caretLine), std::string::npos) << failure.message();
        }
    }
}
