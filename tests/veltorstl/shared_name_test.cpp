// Names that copies share: they read and compare like strings, and live as long as somebody has them.
#include "shared_name.h"

#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using veltor::detail::SharedName;

TEST(SharedName, ReadsLikeAString)
{
    const SharedName name("cn");
    EXPECT_EQ(name.str(), "cn");
    EXPECT_EQ(name.size(), 2U);
    EXPECT_EQ(name.length(), 2U);
    EXPECT_FALSE(name.empty());
    EXPECT_STREQ(name.c_str(), "cn");
    EXPECT_EQ(std::string(name.begin(), name.end()), "cn");
    EXPECT_EQ(name[1], 'n');
    EXPECT_EQ(name.front(), 'c');
    EXPECT_EQ(name.back(), 'n');
    EXPECT_EQ(name.substr(1), "n");
    EXPECT_EQ(name.find('n'), 1U);
    EXPECT_EQ(name.find('x'), SharedName::npos);
    EXPECT_TRUE(name.starts_with("c"));
    EXPECT_LT(name.compare("d"), 0);
    EXPECT_THROW((void)name.at(2), std::out_of_range);
    const SharedName empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_STREQ(empty.c_str(), "");
    EXPECT_EQ(empty, SharedName(""));
}

TEST(SharedName, GoesWhereAStringGoes)
{
    const SharedName name("cn");
    std::string text = name;
    EXPECT_EQ(text, "cn");
    text += name;
    text.append(name);
    EXPECT_EQ(text, "cncncn");
    text = name;
    EXPECT_EQ(text, "cn");
    const std::string& lent = name;
    EXPECT_EQ(&lent, &name.str());
    EXPECT_EQ(name + ": ", "cn: ");
    EXPECT_EQ("<" + name + ">", "<cn>");
    EXPECT_EQ(text + name, "cncn");
    EXPECT_EQ(name + name, "cncn");
    std::ostringstream stream;
    stream << name;
    EXPECT_EQ(stream.str(), "cn");
    EXPECT_TRUE(cisString(name) == "CN");
}

TEST(SharedName, GoesWhereACisStringGoes)
{
    const SharedName name("cn");
    cisString text = name;
    EXPECT_STREQ(text.c_str(), "cn");
    text = "other";
    text = name;
    EXPECT_STREQ(text.c_str(), "cn");
    EXPECT_EQ(cisString("CN").compare(name), 0);
    EXPECT_LT(cisString("CM").compare(name), 0);
    EXPECT_EQ(std::set<cisString>{cisString("CN")}.count(name), 1U);
}

TEST(SharedName, GoesWhereAStringViewGoes)
{
    const SharedName name("cn");
    const std::string_view view = name;
    EXPECT_EQ(view, "cn");
    EXPECT_EQ(view.data(), name.data());
    EXPECT_EQ(name + 'x', "cnx");
    EXPECT_EQ('x' + name, "xcn");
}

TEST(SharedName, ComparesInEveryDirection)
{
    const SharedName name("cn");
    const std::string same = "cn";
    const std::string_view view = "cn";
    EXPECT_TRUE(name == same && same == name && name == view && view == name && name == "cn" && "cn" == name);
    EXPECT_FALSE(name != same || same != name || name != view || view != name || name != "cn" || "cn" != name);
    EXPECT_TRUE(name == SharedName("cn"));
    EXPECT_TRUE(name != SharedName("CN"));
    EXPECT_TRUE(name < "d" && "d" > name && name < SharedName("d") && name > std::string("c") && name <= view);
    EXPECT_TRUE(name != "CN" && name != "cn ");
}

TEST(SharedName, ComparesWithACisStringWithoutRegardToCase)
{
    const SharedName name("cn");
    const cisString other("CN");
    EXPECT_TRUE(name == other && other == name);
    EXPECT_FALSE(name != other || other != name);
    EXPECT_TRUE(name < cisString("D") && name > cisString("B"));
}

TEST(SharedName, IsAssignedFromTexts)
{
    SharedName name("a name of more than sixteen letters");
    const SharedName copy = name;
    name = "b";
    EXPECT_EQ(name, "b");
    name = std::string("c");
    EXPECT_EQ(name, "c");
    name = name.str();
    EXPECT_EQ(name, "c");
    name = cisString("D");
    EXPECT_EQ(name, "D");
    EXPECT_EQ(copy, "a name of more than sixteen letters");
    name.clear();
    EXPECT_TRUE(name.empty());
    const SharedName& same = copy;
    name = same;
    name = static_cast<const SharedName&>(name);
    EXPECT_EQ(name, copy);
}

TEST(SharedName, CopiesShareOneText)
{
    SharedName name("cn");
    const SharedName copy = name;
    EXPECT_EQ(copy.c_str(), name.c_str());
    const SharedName moved = std::move(name);
    EXPECT_EQ(moved.c_str(), copy.c_str());
    EXPECT_TRUE(name.empty());
    EXPECT_EQ(sizeof(SharedName), sizeof(void*));
}

TEST(SharedName, ThreadsMayShareIt)
{
    const SharedName name("a name of more than sixteen letters");
    const auto copyAndDrop = [&name] {
        for (int count = 0; count < 10000; ++count) {
            std::vector<SharedName> copies(3, name);
            copies.pop_back();
        }
    };
    std::thread other(copyAndDrop);
    copyAndDrop();
    other.join();
    EXPECT_EQ(name, "a name of more than sixteen letters");
}
