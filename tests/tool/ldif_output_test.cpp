// LDIF byte by byte: the base64 rule, entries, and what must not come out.
#include "ldif_output.h"

#include "failure.h"

#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

using veltor::tool::appendEntry;
using veltor::tool::appendLdifComment;
using veltor::tool::appendLdifLine;
using veltor::tool::EntryForm;
using veltor::tool::standsPlain;
using veltor::tool::view;
using veltor::tool::WipedText;
using veltor::tool::wipeSecrets;

namespace {

std::string line(std::string_view name, std::string_view text)
{
    WipedText out;
    appendLdifLine(out, name, text);
    return std::string(view(out));
}

/// A result as the library hands it out, built by hand. Texts and nodes live as long as the object.
class Result
{
public:
    cfg_message* add(int kind, const std::string& text)
    {
        texts_.push_back(text);
        nodes_.push_back({kind, texts_.back().data(), nullptr, nullptr});
        return &nodes_.back();
    }

    void attribute(cfg_message& entry, const std::string& name, const std::vector<std::string>& values)
    {
        cfg_message* attribute = add(1, name);
        chain(entry.children, attribute);
        for (const std::string& value : values) {
            chain(attribute->children, add(2, value));
        }
    }

private:
    static void chain(cfg_message*& first, cfg_message* node)
    {
        cfg_message** last = &first;
        while (*last != nullptr) {
            last = &(*last)->next;
        }
        *last = node;
    }

    std::deque<std::string> texts_;
    std::deque<cfg_message> nodes_;
};

std::string printed(const cfg_message& entry, const EntryForm& form)
{
    WipedText out;
    appendEntry(out, entry, form);
    return std::string(view(out));
}

// The reverse of base64, written for the test: four characters to three bytes.
std::string fromBase64(const std::string& text)
{
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned long bits = 0;
    int count = 0;
    for (const char character : text) {
        if (character == '=') {
            break;
        }
        bits = (bits << 6U) | alphabet.find(character);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>((bits >> static_cast<unsigned>(count)) & 0xFFU);
        }
    }
    return bytes;
}

} // namespace

TEST(LdifOutput, WritesBase64WhereAPlainValueWouldBeReadWrongly)
{
    struct Row
    {
        const char* name;
        std::string text, written;
    };
    const Row rows[] = {
        {"plain", "Configuration", "cn: Configuration\n"},
        {"empty", "", "cn:\n"},
        {"colon and less-than inside", "a:b<c", "cn: a:b<c\n"},
        {"number sign first", "#a", "cn: #a\n"},
        {"tab inside", "a\tb", "cn: a\tb\n"},
        {"blank first", " a", "cn:: IGE=\n"},
        {"blank last", "a ", "cn:: YSA=\n"},
        {"a single blank", " ", "cn:: IA==\n"},
        {"tab last", "a\t", "cn:: YQk=\n"},
        {"colon first", ":a", "cn:: OmE=\n"},
        {"less-than first", "<a", "cn:: PGE=\n"},
        {"line feed", "a\nb", "cn:: YQpi\n"},
        {"carriage return", "a\rb", "cn:: YQ1i\n"},
        {"NUL", std::string("a\0b", 3), "cn:: YQBi\n"},
        {"escape", "\x1B[0m", "cn:: G1swbQ==\n"},
        {"DEL", "a\x7F", "cn:: YX8=\n"},
        {"UTF-8", "K\xC3\xB6ln", "cn:: S8O2bG4=\n"},
        {"byte above 0x7F", "\xFF", "cn:: /w==\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(line("cn", row.text), row.written);
    }
}

TEST(LdifOutput, DoesNotFold)
{
    const std::string text(500, 'a');
    EXPECT_EQ(line("cn", text), "cn: " + text + "\n");
}

RC_GTEST_PROP(LdifOutput, AnyBytesComeBackFromTheLine, (const std::string& text))
{
    const std::string written = line("cn", text);
    RC_ASSERT(written.back() == '\n');
    const std::string body = written.substr(0, written.size() - 1);
    RC_ASSERT(std::all_of(body.begin(), body.end(), [](char c) { return c == '\t' || (c >= 0x20 && c < 0x7F); }));
    if (body == "cn:") {
        RC_ASSERT(text.empty());
    } else if (body.starts_with("cn:: ")) {
        RC_ASSERT(fromBase64(body.substr(5)) == text);
        RC_ASSERT(!standsPlain(text));
    } else {
        RC_ASSERT(body == "cn: " + text);
        RC_ASSERT(standsPlain(text));
    }
}

TEST(LdifOutput, ACommentStaysOnItsLine)
{
    WipedText out;
    appendLdifComment(out, "base <cn=x\ndn: cn=forged>");
    appendLdifComment(out, "");
    EXPECT_EQ(view(out), "# base <cn=x\\x0adn: cn=forged>\n#\n");
}

TEST(LdifOutput, PrintsAnEntryAndEndsItWithAnEmptyLine)
{
    Result result;
    cfg_message& entry = *result.add(0, "cn=Front End, cn=Configuration");
    result.attribute(entry, "cn", {"Front End"});
    result.attribute(entry, "objectclass", {"top", "container"});
    EXPECT_EQ(printed(entry, {}), "dn: cn=Front End, cn=Configuration\n"
                                  "cn: Front End\n"
                                  "objectclass: top\n"
                                  "objectclass: container\n"
                                  "\n");
}

TEST(LdifOutput, PrintsTheRootsEmptyDnAndAnEncodedOne)
{
    Result result;
    EXPECT_EQ(printed(*result.add(0, ""), {}), "dn:\n\n");
    EXPECT_EQ(printed(*result.add(0, "cn=\xC3\xB6"), {}), "dn:: Y249w7Y=\n\n");
}

TEST(LdifOutput, PrintsNamesAlone)
{
    Result result;
    cfg_message& entry = *result.add(0, "cn=Configuration");
    result.attribute(entry, "zor-slapdAdminPW", {"secret"});
    result.attribute(entry, "zor-slapdPort", {"389", "390"});
    result.attribute(entry, "no value", {});
    const EntryForm namesOnly{.namesOnly = true, .showSecrets = false};
    EXPECT_EQ(printed(entry, namesOnly), "dn: cn=Configuration\n"
                                         "zor-slapdAdminPW:\n"
                                         "zor-slapdPort:\n"
                                         "# not an attribute name: no value\n"
                                         "\n");
}

TEST(LdifOutput, HidesSecretsBehindOneCommentPerName)
{
    Result result;
    cfg_message& entry = *result.add(0, "cn=Configuration");
    result.attribute(entry, "zor-slapdAdminPW", {"one", "two"});
    result.attribute(entry, "zor-slapdInvalidLine", {"zor-slapdPort: abc", "zor-slapdPeerPW: x"});
    EXPECT_EQ(printed(entry, {}), "dn: cn=Configuration\n"
                                  "# zor-slapdAdminPW: hidden\n"
                                  "zor-slapdInvalidLine: zor-slapdPort: abc\n"
                                  "# zor-slapdInvalidLine: hidden\n"
                                  "\n");
    const EntryForm all{.namesOnly = false, .showSecrets = true};
    EXPECT_EQ(printed(entry, all), "dn: cn=Configuration\n"
                                   "zor-slapdAdminPW: one\n"
                                   "zor-slapdAdminPW: two\n"
                                   "zor-slapdInvalidLine: zor-slapdPort: abc\n"
                                   "zor-slapdInvalidLine: zor-slapdPeerPW: x\n"
                                   "\n");
}

TEST(LdifOutput, KeepsNamesThatNoLdifReaderTakesInComments)
{
    Result result;
    cfg_message& entry = *result.add(0, "cn=x");
    result.attribute(entry, "dn ", {"cn=y"});
    result.attribute(entry,
                     "a\x1B"
                     "b",
                     {"c\nd"});
    result.attribute(entry, "", {"e"});
    result.attribute(entry, "cn", {});
    EXPECT_EQ(printed(entry, {}), "dn: cn=x\n"
                                  "# not an attribute name: dn : cn=y\n"
                                  "# not an attribute name: a\\x1bb: c\\x0ad\n"
                                  "# not an attribute name: : e\n"
                                  "# cn: no value\n"
                                  "\n");
}

TEST(LdifOutput, WipesSecretsInTheWholeChainAndNothingElse)
{
    Result result;
    cfg_message* first = result.add(0, "cn=a");
    cfg_message* second = result.add(0, "cn=b");
    first->next = second;
    result.attribute(*first, "zor-slapdPort", {"389"});
    result.attribute(*first, "zor-slapdAdminPW", {"secret"});
    result.attribute(*second, "zor-slapdPeerPW", {"one", "two"});
    const char* secrets[] = {first->children->next->children->text, second->children->children->text,
                             second->children->children->next->text};
    const std::size_t lengths[] = {6, 3, 3};
    wipeSecrets(first);
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(std::string(secrets[index], lengths[index]), std::string(lengths[index], '\0'));
    }
    EXPECT_STREQ(first->children->children->text, "389");
    EXPECT_STREQ(first->text, "cn=a");
    wipeSecrets(nullptr);
}

TEST(LdifOutput, WritesEverythingOrFails)
{
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    veltor::tool::writeOut(pipeEnds[1], "dn: cn=x\n");
    char text[32] = {};
    EXPECT_EQ(::read(pipeEnds[0], text, sizeof text), 9);
    EXPECT_STREQ(text, "dn: cn=x\n");
    try {
        veltor::tool::writeOut(pipeEnds[0], "x");
        ADD_FAILURE() << "writing to the reading end succeeded";
    } catch (const veltor::tool::Failure& failure) {
        EXPECT_EQ(failure.exit(), veltor::tool::ExitCode::writeFailed);
    }
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
}
