// The document as programs read it, byte by byte.
#include "document.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

using namespace veltor::tool;

namespace {

/// An entry with one attribute that has two values.
class OneEntry
{
public:
    OneEntry(std::string dn, std::string name, std::string first, std::string second)
        : texts_{std::move(dn), std::move(name), std::move(first), std::move(second)},
          second_{2, texts_[3].data(), nullptr, nullptr}, first_{2, texts_[2].data(), nullptr, &second_},
          attribute_{1, texts_[1].data(), &first_, nullptr}, entry_{0, texts_[0].data(), &attribute_, nullptr}
    {
    }
    OneEntry(const OneEntry&) = delete;
    OneEntry& operator=(const OneEntry&) = delete;

    const cfg_message& node() const { return entry_; }

private:
    std::string texts_[4];
    cfg_message second_, first_, attribute_, entry_;
};

std::string textOf(const Document& document, ExitCode exit = ExitCode::done)
{
    return std::string(view(document.text(exit)));
}

} // namespace

TEST(Document, OfARunThatSaysNothingHasThreeMembers)
{
    const Document document;
    EXPECT_EQ(textOf(document), "{\"veltor\":1,\"ok\":true,\"changed\":false}\n");
    EXPECT_EQ(textOf(document, ExitCode::no), "{\"veltor\":1,\"ok\":false,\"changed\":false}\n");
}

TEST(Document, TellsOfAChange)
{
    Document document;
    document.setChanged();
    EXPECT_EQ(textOf(document), "{\"veltor\":1,\"ok\":true,\"changed\":true}\n");
}

TEST(Document, HasEntriesWithTheirValuesAsArrays)
{
    struct Row
    {
        const char* name;
        OneEntry entry;
        EntryForm form;
        const char* shown;
    };
    const Row rows[] = {
        {"plain",
         {"cn=a", "zor-slapdSuffix", "o=a", "o=b"},
         {},
         R"({"dn":"cn=a","attributes":{"zor-slapdSuffix":["o=a","o=b"]}})"},
        {"hidden once",
         {"cn=a", "zor-slapdAdminPW", "s", "t"},
         {},
         R"({"dn":"cn=a","attributes":{"zor-slapdAdminPW":[null]}})"},
        {"shown",
         {"cn=a", "zor-slapdAdminPW", "s", "t"},
         {false, true},
         R"({"dn":"cn=a","attributes":{"zor-slapdAdminPW":["s","t"]}})"},
        {"names alone",
         {"cn=a", "zor-slapdAdminPW", "s", "t"},
         {true, true},
         R"({"dn":"cn=a","attributes":{"zor-slapdAdminPW":[]}})"},
        {"some hidden",
         {"cn=a", "zor-slapdInvalidLine", "oops", "pw: s"},
         {},
         R"({"dn":"cn=a","attributes":{"zor-slapdInvalidLine":["oops",null]}})"},
        {"escapes",
         {"cn=\"\\", "x", "\x1B[2J\x7F", "a\nb\t"},
         {},
         R"({"dn":"cn=\"\\","attributes":{"x":["\u001b[2J\u007f","a\u000ab\u0009"]}})"},
        {"no ASCII",
         {"cn=\xC3\xA4", "\xC3\xA4", "\xF0\x9F\x98\x80", "\xE2\x80\xAE"},
         {},
         R"({"dn":"cn=\u00e4","attributes":{"\u00e4":["\ud83d\ude00","\u202e"]}})"},
        {"no UTF-8",
         {"cn=\xE4", "x\xE4", "\xFF", "\xC3"},
         {},
         R"({"dn":{"base64":"Y2495A=="},"attributes":{"x\\xe4":[{"base64":"/w=="},{"base64":"ww=="}]}})"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Document document;
        document.addEntry(row.entry.node(), row.form);
        const std::string text = textOf(document);
        EXPECT_EQ(text, R"({"veltor":1,"ok":true,"changed":false,"entries":[)" + std::string(row.shown) + "]}\n");
        EXPECT_TRUE(nlohmann::json::accept(text));
    }
}

TEST(Document, HasAnEmptyListWhereNoEntryIsFound)
{
    Document document;
    document.setFile("a\xFF");
    document.beginEntries();
    EXPECT_EQ(textOf(document),
              "{\"veltor\":1,\"ok\":true,\"changed\":false,\"file\":{\"base64\":\"Yf8=\"},\"entries\":[]}\n");
}

TEST(Document, OfAFailureHasEveryFact)
{
    FailureFacts facts;
    facts.ldap = 21;
    facts.code = 1015;
    facts.line = 57;
    facts.file = "zorslapd.conf";
    facts.dn = "cn=Configuration";
    facts.attribute = "zor-slapdPort";
    facts.value = "70000";
    facts.minimum = 1;
    facts.maximum = 65535;
    facts.single = true;
    facts.source = {"in.ldif", 4, 16};
    facts.chain = {{21, 1015, 57, "Integer", "f", "", "", std::nullopt}};
    Document document;
    document.setFile("f");
    document.setFailure(Failure(ExitCode::file, "headline", {"detail"}, facts));
    EXPECT_EQ(
        textOf(document, ExitCode::file),
        R"({"veltor":1,"ok":false,"changed":false,"file":"f","error":{"exit":4,"ldap":21,"code":1015,)"
        R"("message":"headline","details":["detail"],"file":"zorslapd.conf","line":57,"dn":"cn=Configuration",)"
        R"("attribute":"zor-slapdPort","value":"70000","min":1,"max":65535,"enum":null,"mask":null,"single":true,)"
        R"("source":{"file":"in.ldif","line":4,"column":16},)"
        R"("chain":[{"ldap":21,"code":1015,"message":"Integer","file":"f","line":57,"dn":null,"attribute":null,)"
        R"("value":null}]}})"
        "\n");
}
