// The two roads by which a file becomes a tree. A load lends lines from the text, shares names and RDNs and knows
// where entries belong; LDIF_Line::next, the constructors from lines and the += of entries do the same one step after
// the other. Nobody may be able to tell which road a tree came by.
#include "LDIF_AttrType.h"
#include "LDIF_Entry.h"
#include "LDIF_Exception.h"
#include "LDIF_File.h"
#include "LDIF_Line.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "support/locale_guard.h"
#include "support/temporary_folder.h"

using veltor::detail::guarded;
using veltor::detail::Layer;
using veltor::detail::printable;
using veltor::detail::TreeWalk;
using veltor::test::LocaleGuard;
using veltor::test::TemporaryFolder;
namespace result = veltor::result;

namespace {

// ---- The slow road ----

/// What a load leaves behind.
struct Outcome
{
    LDIF_Entry root;
    LDIF_Comment trailing;
    std::optional<LDIF_Exception> failure;
    bool isDirty = false;
    std::vector<LDIF_DN> order; // the DNs of the finished entries, as they came
};

/// Reads a text line by line into an outcome.
class SlowRoad
{
public:
    SlowRoad(const std::string& text, Outcome& outcome) : text_(text), stream_(text), outcome_(outcome) {}

    void run()
    {
        try {
            guarded(
                Layer{VELTOR_HERE, "System error reading file"}, [this] { readAll(); },
                [this](LDIF_Exception& failure) {
                    failure.configLine = lineNumber_;
                    failure.entryDn = current_ ? printable(current_->dn) : "<root>";
                });
        } catch (const LDIF_Exception& failure) {
            outcome_.failure = failure;
            if (!isClosing_) {
                try {
                    close();
                } catch (const LDIF_Exception&) {
                    // The first failure is what counts.
                }
            }
        }
    }

private:
    void readAll()
    {
        LDIF_Line line;
        bool again = false;
        for (bool ended = false; !ended;) {
            if (!again) {
                try {
                    lineNumber_ = line.next(stream_, lineNumber_);
                } catch (const LDIF_Exception&) {
                    lineNumber_ = linesTaken();
                    throw;
                }
            }
            if (!line.valid) {
                line.changeToInvalidAttr();
                outcome_.isDirty = true;
            }
            if (line.type == LDIF_Line::endOfFile) {
                close();
                auto& lines = outcome_.trailing.lines;
                while (!lines.empty() && lines.back().type == LDIF_Line::blankLine) {
                    lines.pop_back();
                }
                ended = true;
            } else if (line.type == LDIF_Line::blankLine && current_) {
                close();
            } else if (line.type == LDIF_Line::blankLine || line.type == LDIF_Line::comment) {
                outcome_.trailing.lines.push_back(line);
            } else if (line.type == LDIF_Line::dn) {
                close();
                addDefault("charset", "ISO-8859-1", charsetSeen_);
                addDefault("version", "1", versionSeen_);
                current_.emplace(line, outcome_.trailing);
                outcome_.trailing.lines.clear();
                again = false;
            } else {
                try {
                    LDIF_Attribute attribute(line, outcome_.trailing);
                    needsValueOf(line, attribute);
                    outcome_.trailing.lines.clear();
                    again = false;
                    add(attribute);
                } catch (const LDIF_Exception& failure) {
                    if (failure.ldapErr == result::objectClassViolation || failure.isSystemFailure()) {
                        throw;
                    }
                    line.changeToInvalidAttr();
                    outcome_.isDirty = true;
                    again = true;
                }
            }
        }
    }

    /// A value that its syntax makes from a whole string is the same.
    static void needsValueOf(const LDIF_Line& line, const LDIF_Attribute& attribute)
    {
        const LDIF_Value& value = *attribute.values.begin();
        RC_ASSERT(std::string(value.text()) == LDIF_Value(value.attrType, line.value.c_str()).text());
    }

    void add(const LDIF_Attribute& attribute)
    {
        if (current_) {
            *current_ += attribute;
        } else if (attribute.name == "VERSION") {
            addToRoot(attribute, versionSeen_, "More than 1 \"version\" attribute not allowed");
        } else if (attribute.name == "CHARSET") {
            addToRoot(attribute, charsetSeen_, "More than 1 \"charset\" attribute not allowed");
        } else {
            refuse(result::objectClassViolation, 1007,
                   "\"" + attribute.name + "\" attribute not allowed in <root> object", attribute);
        }
    }

    void addToRoot(const LDIF_Attribute& attribute, bool& seen, const std::string& complaint)
    {
        if (seen) {
            refuse(result::constraintViolation, 1006, complaint, attribute);
        }
        outcome_.root += attribute;
        seen = true;
    }

    [[noreturn]] static void refuse(int ldapCode, int libraryCode, const std::string& message,
                                    const LDIF_Attribute& attribute)
    {
        LDIF_Exception failure(VELTOR_HERE, ldapCode, libraryCode, message.c_str());
        failure.entryDn = "<root>";
        failure.attribute = attribute.name;
        failure.value = attribute.values.begin()->str();
        throw failure;
    }

    void addDefault(const char* name, const char* value, bool& seen)
    {
        if (!seen) {
            LDIF_Attribute attribute(name, value);
            attribute.comment += outcome_.trailing;
            outcome_.trailing.lines.clear();
            outcome_.root += attribute;
            seen = true;
        }
    }

    void close()
    {
        if (current_) {
            isClosing_ = true;
            outcome_.order.push_back(current_->dn);
            outcome_.root += *current_;
            current_.reset();
            isClosing_ = false;
        }
    }

    /// How many physical lines were taken from the stream.
    int linesTaken()
    {
        stream_.clear();
        const auto end = text_.begin() + stream_.tellg();
        const bool cutOff = end == text_.end() && text_.back() != '\n';
        return static_cast<int>(std::count(text_.begin(), end, '\n')) + (cutOff ? 1 : 0);
    }

    const std::string& text_;
    std::istringstream stream_;
    Outcome& outcome_;
    std::optional<LDIF_Entry> current_;
    int lineNumber_ = 0;
    bool isClosing_ = false;
    bool versionSeen_ = false;
    bool charsetSeen_ = false;
};

// ---- The tree without an index ----

struct Node
{
    LDIF_DN dn;
    std::vector<Node> below;
};

/// RDN by RDN, without a hash.
bool isAtOrBelow(const LDIF_DN& dn, const LDIF_DN& top)
{
    if (dn.size() < top.size()) {
        return false;
    }
    for (std::size_t level = 0; level < top.size(); ++level) {
        if (top[level].compare(dn[level]) != 0) {
            return false;
        }
    }
    return true;
}

void place(Node& top, const LDIF_DN& dn)
{
    if (dn.size() == top.dn.size()) {
        return;
    }
    for (Node& child : top.below) {
        if (isAtOrBelow(dn, child.dn)) {
            place(child, dn);
            return;
        }
    }
    Node added{dn, {}};
    std::vector<Node> others;
    for (Node& child : top.below) {
        (isAtOrBelow(child.dn, dn) ? added.below : others).push_back(std::move(child));
    }
    others.push_back(std::move(added));
    top.below = std::move(others);
}

void list(const Node& node, std::size_t depth, std::string& text)
{
    for (const Node& child : node.below) {
        text += std::string(depth, ' ') + printable(child.dn) + "\n";
        list(child, depth + 1, text);
    }
}

std::string treeOf(const std::vector<LDIF_DN>& order)
{
    Node root;
    for (const LDIF_DN& dn : order) {
        place(root, dn);
    }
    std::string text;
    list(root, 0, text);
    return text;
}

std::string treeOf(const LDIF_Entry& root)
{
    std::string text;
    for (TreeWalk walk(root); walk.current() != nullptr; walk.next()) {
        if (walk.depth() != 0) {
            text += std::string(walk.depth() - 1, ' ') + printable(walk.current()->dn) + "\n";
        }
    }
    return text;
}

// ---- Everything that can be told about an outcome, as text ----

void describe(const LDIF_Comment& comment, std::ostream& text)
{
    for (const LDIF_Line& line : comment.lines) {
        text << "  # " << line.type << ' ' << line.lineNumber << ' ' << line.valid << " [" << line.name << "] ["
             << line.value << "]\n";
    }
}

void describe(const LDIF_DN& dn, std::ostream& text)
{
    text << dn.size() << " levels";
    for (const LDIF_RDN& rdn : dn) {
        text << " /";
        for (const LDIF_RDN_pair& pair : rdn) {
            text << " [" << pair.first << "]=[" << std::string(pair.second) << "]" << pair.second.form;
        }
    }
    text << '\n';
}

void describe(const LDIF_Entry& entry, std::ostream& text)
{
    text << "entry [" << entry.dnLabel << "] [" << printable(entry.dn) << "] [" << printable(entry.relDn) << "]\n";
    describe(entry.dn, text);
    describe(entry.relDn, text);
    describe(entry.comment, text);
    for (const LDIF_Attribute& attribute : entry.attributes) {
        text << " [" << attribute.name << "] [" << attribute.values.name << "] "
             << (attribute.values.type == veltor::detail::attrTypeOf(attribute.name)) << '\n';
        describe(attribute.comment, text);
        for (const LDIF_Value& value : attribute.values) {
            text << "   [" << value.text() << "] " << (value.dn() != nullptr) << ' ' << value.binaryLength << ' '
                 << (value.attrType == attribute.values.type);
            for (int index = 0; index < value.binaryLength; ++index) {
                text << ' ' << int{static_cast<const unsigned char*>(value.binary())[index]};
            }
            text << '\n';
        }
        const auto found = entry.attributes.find(attribute.name);
        text << (found != entry.attributes.end() && &*found == &attribute ? " found\n" : " lost\n");
        const LDIF_Attributes::Finder finder(attribute.name);
        text << (finder.find(entry.attributes) == &attribute ? " found\n" : " lost\n");
    }
}

std::string described(const LDIF_Entry& root, const LDIF_Comment& trailing)
{
    std::ostringstream text;
    for (TreeWalk walk(root); walk.current() != nullptr; walk.next()) {
        text << "at depth " << walk.depth() << ' ';
        describe(*walk.current(), text);
    }
    text << "trailing\n";
    describe(trailing, text);
    return text.str();
}

/// The chain of a failure; the source positions tell the roads apart.
std::string described(const LDIF_Exception* failure)
{
    std::ostringstream text;
    for (; failure != nullptr; failure = failure->nested) {
        text << failure->ldapErr << '/' << failure->extErr << " [" << failure->msg << "] errno " << failure->sysErrno
             << " line " << failure->configLine << " entry [" << failure->entryDn << "] attribute ["
             << failure->attribute << "] value [" << failure->value << "] type " << failure->attrType << " system "
             << failure->isSystemFailure() << '\n';
    }
    return text.str();
}

std::string rendered(const LDIF_Entry& root, const LDIF_Comment& trailing)
{
    std::string text;
    try {
        root.appendTreeTo(text);
    } catch (const LDIF_Exception& failure) {
        return text + "\nfails: " + described(&failure);
    }
    return text + trailing.str();
}

// ---- Random files ----

using rc::Gen;

template <class... Texts>
Gen<std::string> oneOf(Texts... texts)
{
    return rc::gen::elementOf(std::vector<std::string>{texts...});
}

Gen<std::string> joined(Gen<std::vector<std::string>> parts)
{
    return rc::gen::map(std::move(parts), [](const std::vector<std::string>& texts) {
        std::string whole;
        for (const std::string& text : texts) {
            whole += text;
        }
        return whole;
    });
}

template <class... Generators>
Gen<std::string> sequence(Generators... generators)
{
    return rc::gen::map(rc::gen::tuple(std::move(generators)...), [](const auto& texts) {
        return std::apply([](const auto&... text) { return (std::string() + ... + text); }, texts);
    });
}

Gen<std::string> dnType()
{
    return rc::gen::weightedElement<std::string>({{12, "cn"}, {3, "CN"}, {3, "ou"}, {2, "1.2.3"}, {1, "o-1"}});
}

Gen<std::string> dnValue()
{
    return rc::gen::weightedElement<std::string>({{20, "a"},
                                                  {10, "b"},
                                                  {5, "A"},
                                                  {5, "c"},
                                                  {2, "\"a\""},
                                                  {1, "\"a, cn=b\""},
                                                  {1, "\"open"},
                                                  {2, "\\61"},
                                                  {2, "a\\,b"},
                                                  {1, "a\\\""},
                                                  {2, "#61"},
                                                  {1, "#6162"},
                                                  {2, "two words"},
                                                  {1, "two  words "},
                                                  {1, "(a)"},
                                                  {1, "a(b"},
                                                  {1, "a\\00b"},
                                                  {1, "\\20a\\20"},
                                                  {1, "a\tb"}});
}

/// Values that can't be parsed, printed, or read by every locale.
Gen<std::string> oddDnValue()
{
    return rc::gen::weightedElement<std::string>({{4, "\xC3\xA9"},
                                                  {4, "\xC3\x89"},
                                                  {2, "\"\xC3\xA9\""},
                                                  {1, "\xFF"},
                                                  {2, ""},
                                                  {1, "\"\""},
                                                  {1, "#"},
                                                  {1, "#6"},
                                                  {1, "a=b"},
                                                  {1, "a\\"},
                                                  {1, "a<b"},
                                                  {1, "\"a\"b"}});
}

Gen<std::string> gap()
{
    return rc::gen::weightedElement<std::string>({{20, ""}, {4, " "}, {1, "  "}, {1, "\t"}, {1, "("}, {1, " )("}});
}

Gen<std::string> rdn(bool odd)
{
    const auto value = odd ? rc::gen::weightedOneOf<std::string>({{3, dnValue()}, {1, oddDnValue()}}) : dnValue();
    const auto pair = sequence(dnType(), gap(), rc::gen::just(std::string("=")), gap(), value, gap());
    return rc::gen::weightedOneOf<std::string>(
        {{15, sequence(dnType(), rc::gen::just(std::string("=")), oneOf("a", "b", "c", "d"))},
         {5, pair},
         {2, sequence(pair, rc::gen::just(std::string("+")), gap(), pair)}});
}

Gen<std::string> dnText(bool odd)
{
    const auto separator = rc::gen::weightedElement<std::string>(
        {{12, ","}, {8, ", "}, {2, ";"}, {1, " ; "}, {1, ",("}, {odd ? std::size_t{1} : std::size_t{0}, ",,"}});
    const auto part = sequence(separator, rdn(odd));
    const auto ending =
        rc::gen::weightedElement<std::string>({{30, ""}, {1, " "}, {odd ? std::size_t{1} : std::size_t{0}, ","}});
    return sequence(rdn(odd),
                    joined(rc::gen::mapcat(rc::gen::weightedElement<std::size_t>({{5, 0}, {6, 1}, {5, 2}, {3, 3}}),
                                           [part](std::size_t count) {
                                               return rc::gen::container<std::vector<std::string>>(count, part);
                                           })),
                    ending);
}

Gen<std::string> dnLine()
{
    const auto label = rc::gen::weightedElement<std::string>({{20, "dn: "}, {2, "DN:"}, {1, "Dn:: "}, {1, "dN:\t"}});
    return sequence(label, rc::gen::weightedOneOf<std::string>({{200, dnText(false)}, {1, dnText(true)}}));
}

Gen<std::string> attributeName()
{
    return rc::gen::weightedOneOf<std::string>(
        {{20, oneOf("cn", "objectclass", "zor-slapdPort", "zor-slapdAdminDN", "zor-slapdAdminPW", "zor-slapdReferral",
                    "zor-slapdSecurity", "zor-slapdInvalidLine", "zor-slapdSuffix")},
         {6, oneOf("CN", "ObjectClass", "ZOR-slapdPort", "zor-slapdadmindn")},
         {10, oneOf("alpha", "beta", "gamma", "delta", "epsilon", "Alpha", "BETA", "a name that is far from short")},
         {4, rc::gen::map(rc::gen::inRange(0, 120), [](int number) { return "name" + std::to_string(number); })},
         {1, oneOf("alpha ", "version", "charset", "na\xC3\xAFve", "dn ", ";x", "a\"b")}});
}

Gen<std::string> valueText()
{
    return rc::gen::weightedOneOf<std::string>(
        {{10, oneOf("x", "X", "y", "another value", "Another Value", "a rather long value that stands elsewhere", "")},
         {6, oneOf("389", "0389", "70000", "-1", "3 8 9", "SSL", "ssl", "true", "imask", "1")},
         {6, dnText(true)},
         {5, oneOf("secret", ">1encoded<", "><", ">secret<", ">1", "{imask}x", "{none}y", ">1a1b", "!", ">",
                   ">1\xC3\xA9<")},
         {3, oneOf("(in parentheses)", "( )", " x ", "\tx", "x:y", "#x", "\\", "\"x\"")},
         {2, oneOf("caf\xC3\xA9", "CAF\xC3\x89", "a\xC2\xA0", "a\rb", "x\r")},
         {1, rc::gen::just(std::string("a\0b", 3))}});
}

Gen<std::string> attributeLine()
{
    return sequence(attributeName(),
                    rc::gen::weightedElement<std::string>({{20, ": "}, {2, ":"}, {2, "::  "}, {1, ":("}, {1, ": :"}}),
                    valueText());
}

Gen<std::string> comment()
{
    return oneOf("# remark", "#", "#: x", "# a remark that is much longer than that", "#\xC3\xA9", "#x\r");
}

Gen<std::string> blankLine()
{
    return rc::gen::weightedElement<std::string>({{10, ""}, {1, " "}, {1, "\t\r"}});
}

/// A blank line closes the entry; an attribute behind it would end the load.
Gen<std::string> nextEntry()
{
    const auto lineFeed = rc::gen::just(std::string("\n"));
    const auto between = sequence(rc::gen::weightedOneOf<std::string>({{2, comment()}, {1, blankLine()}}), lineFeed);
    return sequence(blankLine(), lineFeed,
                    joined(rc::gen::mapcat(rc::gen::weightedElement<std::size_t>({{6, 0}, {3, 1}, {1, 3}}),
                                           [between](std::size_t count) {
                                               return rc::gen::container<std::vector<std::string>>(count, between);
                                           })),
                    dnLine());
}

Gen<std::string> anyLine()
{
    return rc::gen::weightedOneOf<std::string>(
        {{40, dnLine()},
         {60, nextEntry()},
         {500, attributeLine()},
         {1, blankLine()},
         {80, comment()},
         {40, oneOf(" more", "  more ", "\tmore", " ", "\r more", " \xC3\xA9", " , cn=a", " )")},
         {20, rc::gen::weightedElement<std::string>({{20, "no colon"},
                                                     {20, ": nothing before"},
                                                     {20, ":"},
                                                     {20, "::"},
                                                     {20, "(x"},
                                                     {20, "\xC3\xA9"},
                                                     {1, "dn"},
                                                     {1, "DN without"},
                                                     {1, "dnx"}})},
         {10, sequence(attributeLine(), rc::gen::just(std::string("\r")))},
         {3, sequence(dnLine(), rc::gen::just(std::string("\r")))}});
}

/// Mostly something that leads to entries; what comes before may be anything.
Gen<std::string> beginning()
{
    return rc::gen::weightedOneOf<std::string>(
        {{8, rc::gen::just(std::string())},
         {4, oneOf("version: 1\n", "# top\n\nversion: 1\ncharset: UTF-8\n\n", "CHARSET: x\n", "charset: UTF-8\r\n")},
         {1, oneOf("version: 1\nversion: 1\n", "charset: a\n charset: b\nCharset: c\n", "x: y\n", "no colon\n",
                   "\xFF\n", "version:\n")}});
}

Gen<std::string> fileText()
{
    const auto line = sequence(anyLine(), rc::gen::just(std::string("\n")));
    const auto first = sequence(dnLine(), rc::gen::just(std::string("\n")));
    const auto lines = joined(rc::gen::container<std::vector<std::string>>(line));
    // Without a line feed in the end the last value is dropped.
    const auto end = rc::gen::weightedOneOf<std::string>({{4, rc::gen::just(std::string())}, {1, anyLine()}});
    return rc::gen::weightedOneOf<std::string>({{40, sequence(beginning(), first, lines, end)}, {1, lines}});
}

/// The text with what lies beyond ASCII, or mostly without: every locale refuses some of it, and that ends a load.
Gen<std::string> fileTextFor(std::size_t wideInTen)
{
    const auto isWide = rc::gen::weightedElement<bool>({{wideInTen, true}, {10 - wideInTen, false}});
    return rc::gen::map(rc::gen::pair(isWide, fileText()), [](std::pair<bool, std::string> drawn) {
        if (!drawn.first) {
            std::erase_if(drawn.second, [](char character) { return static_cast<unsigned char>(character) > 0x7F; });
        }
        return drawn.second;
    });
}

/// Loads the text by both roads and compares all there is.
void bothRoadsAgree(const std::string& text)
{
    const TemporaryFolder folder;
    // A store that is there beforehand, so that also what a failed load leaves can be looked at.
    const std::string name = folder.write("zorslapd.conf", "");
    LDIF_File file(name, "");
    folder.write("zorslapd.conf", text);
    const struct timespec times[2] = {{1000000, 0}, {1000000, 0}};
    RC_ASSERT(utimensat(AT_FDCWD, name.c_str(), times, 0) == 0);

    std::optional<LDIF_Exception> failure;
    try {
        file.refresh();
    } catch (const LDIF_Exception& raised) {
        failure = raised;
    }
    Outcome slow;
    SlowRoad(text, slow).run();
    const std::string slowText = rendered(slow.root, slow.trailing);
    const bool isWritten = slow.isDirty && !slow.failure;
    if (isWritten && slowText.find("\nfails: ") != std::string::npos) {
        // A load that has to write and can't.
        RC_ASSERT(failure.has_value());
    } else {
        RC_ASSERT(described(failure ? &*failure : nullptr) == described(slow.failure ? &*slow.failure : nullptr));
        RC_ASSERT(folder.read("zorslapd.conf") == (isWritten ? slowText : text));
    }
    RC_ASSERT(described(file.root, file.trailingComment) == described(slow.root, slow.trailing));
    RC_ASSERT(rendered(file.root, file.trailingComment) == slowText);
    RC_ASSERT(treeOf(file.root) == treeOf(slow.order));
    for (const LDIF_DN& dn : slow.order) {
        const LDIF_Entry* const found = file.root.find(dn);
        const LDIF_Entry* const expected = slow.root.find(dn);
        RC_ASSERT((found == nullptr) == (expected == nullptr));
        RC_ASSERT(found == nullptr || (found->dn.compare(dn) == 0 && found->dn.size() == dn.size()));
    }
    RC_CLASSIFY(slow.failure.has_value(), "fails");
    RC_CLASSIFY(slow.isDirty, "dirty");
    RC_CLASSIFY(slow.order.size() > 12, "many entries");
}

void holdsIn(const char* locale, std::size_t wideInTen)
{
    const LocaleGuard guard(locale);
    EXPECT_TRUE(rc::check([wideInTen] { bothRoadsAgree(*fileTextFor(wideInTen)); })) << locale;
}

} // namespace

TEST(LoadRoad, LeadsWhereLineByLineLeads)
{
    holdsIn("C.UTF-8", 6);
}

TEST(LoadRoad, LeadsWhereLineByLineLeadsInTheLocaleC)
{
    holdsIn("C", 1);
}

// A line with a carriage return takes the long road. Entries that merge free what such lines made, and other names get
// its place in memory; what was known of the order there must not be believed again.
TEST(LoadRoad, OrderOfNamesIsNotTakenFromNamesThatAreGone)
{
    const LocaleGuard guard("C.UTF-8");
    std::string text = "dn: cn=a\nb: 1\nc: 1\n\n";
    for (int round = 0; round < 20; ++round) {
        const std::string number = std::to_string(round);
        text += "dn: cn=a\nb: " + number + "\r\nc: " + number + "\n\n";
        text += "dn: cn=x" + number + "\nd: 2\r\nc: 2\n\n";
    }
    const TemporaryFolder folder;
    LDIF_File file(folder.write("zorslapd.conf", text), "");
    for (const LDIF_Entry& entry : file.root.children) {
        for (std::size_t index = 1; index < entry.attributes.size(); ++index) {
            EXPECT_LT(entry.attributes[index - 1].name.compare(entry.attributes[index].name), 0)
                << entry.dn.str() << ": " << entry.attributes[index].name;
        }
    }
}

// An empty value has another form at the end of a DN than in front of a separator. What was remembered from one place
// was once taken for the other.
TEST(LoadRoad, EmptyValueHasTheFormOfItsPlace)
{
    const LocaleGuard guard("C.UTF-8");
    const TemporaryFolder folder;
    const LDIF_File file(folder.write("zorslapd.conf", "dn: cn=a, o=\n\ndn: cn=b, o=, o=x\n\ndn: cn=c, o=, o=y\n\n"
                                                       "dn: cn=d, p=, o=y\n\ndn: cn=e, p=\n\n"),
                         "");
    std::vector<int> forms;
    for (const LDIF_Entry& entry : file.root.children) {
        // The one above the last is the one that is empty.
        forms.push_back(entry.dn[entry.dn.size() - 2].front().second.form);
    }
    const int inside = LDIF_RDN_value::plain;
    const int atEnd = LDIF_RDN_value::quoted;
    EXPECT_EQ(forms, (std::vector<int>{atEnd, inside, inside, inside, atEnd}));
}

// A load keeps the names of a file only up to some number. Those beyond it come and go, also among those that are kept,
// and each entry still has every attribute once, in order, with its values.
TEST(LoadRoad, MoreNamesThanALoadKeepsAreInOrderAllTheSame)
{
    const LocaleGuard guard("C.UTF-8");
    constexpr int names = 3000;
    constexpr int perEntry = 20;
    const auto nameOf = [](int number) { return "n" + std::to_string(10000 + number); };
    std::string text = "charset: x\nversion: 1\n\n";
    std::string expected = text;
    for (int round = 0; round < 2; ++round) {
        for (int first = 0; first < names; first += perEntry) {
            const std::string head = "dn: cn=" + std::to_string(round * names + first) + ", o=x\n";
            std::string sorted;
            std::string shuffled;
            for (int step = 0; step < perEntry; ++step) {
                const std::string name = nameOf(first + step);
                sorted += name + ": 1\n" + name + ": 2\n";
                // The first time round they come in order, the second time in another.
                const std::string other = nameOf(first + (round == 0 ? step : (step * 7 + 19) % perEntry));
                shuffled += other + ": 1\n" + other + ": 2\n";
            }
            text += head + shuffled + "\n";
            expected += head + sorted + "\n";
        }
    }
    const TemporaryFolder folder;
    const LDIF_File file(folder.write("zorslapd.conf", text), "");
    std::string written;
    file.root.appendTreeTo(written);
    EXPECT_EQ(written, expected);
}

// A file of several chunks, whose memory serves what is made of it. An entry that is moved out takes what it needs.
TEST(LoadRoad, EntryThatIsMovedOutOutlivesItsStore)
{
    const LocaleGuard guard("C.UTF-8");
    const std::string padding(1000, 'x');
    std::string text;
    for (int number = 0; number < 6000; ++number) {
        const std::string digits = std::to_string(number);
        text += "# remark\ndn: cn=" + digits + ", ou=all of them in one place, o=a\nalpha: " + padding + digits +
                "\nzor-slapdAdminDN: cn=" + digits + ", o=a\n\n";
    }
    const TemporaryFolder folder;
    auto file = std::make_unique<LDIF_File>(folder.write("zorslapd.conf", text), "");
    LDIF_DN wanted;
    wanted = cisString("CN=4321,ou=all of them in one place,o=a");
    LDIF_Entry moved = std::move(*file->root.find(wanted));
    wanted = LDIF_DN();
    wanted = cisString("cn=17,ou=all of them in one place,o=a");
    LDIF_Entry copy = *file->root.find(wanted);
    file.reset();
    std::thread([entry = std::move(moved), &copy, &padding]() mutable {
        EXPECT_EQ(entry.str(), "# remark\ndn: cn=4321, ou=all of them in one place, o=a\nalpha: " + padding +
                                   "4321\nzor-slapdAdminDN: cn=4321, o=a\n\n");
        entry += copy.attributes.front();
        EXPECT_EQ(entry.attributes.front().values.size(), 2U);
        entry.dn[2] = copy.dn[2];
        EXPECT_EQ(entry.dn.str(), "cn=17, ou=all of them in one place, o=a");
    }).join();
    EXPECT_EQ(copy.dn.str(), "cn=17, ou=all of them in one place, o=a");
}
