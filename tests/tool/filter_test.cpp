// What filters mean, held against a slow evaluator, and where the caret stands under those that mean nothing.
#include "filter.h"

#include "failure.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

using veltor::tool::evaluate;
using veltor::tool::ExitCode;
using veltor::tool::Failure;
using veltor::tool::Filter;
using veltor::tool::isFilter;
using veltor::tool::parseFilter;
using veltor::tool::speaksOf;
using veltor::tool::Truth;

namespace {

using Attributes = std::vector<std::pair<std::string, std::vector<std::string>>>;

/// An entry as the library would return it.
class Entry
{
public:
    explicit Entry(const Attributes& attributes)
    {
        cfg_message** lastAttribute = &entry_.children;
        for (const auto& [name, values] : attributes) {
            *lastAttribute = node(1, name);
            cfg_message** lastValue = &(*lastAttribute)->children;
            for (const std::string& value : values) {
                *lastValue = node(2, value);
                lastValue = &(*lastValue)->next;
            }
            lastAttribute = &(*lastAttribute)->next;
        }
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    const cfg_message& message() const { return entry_; }

private:
    cfg_message* node(int kind, const std::string& text)
    {
        texts_.push_back(text);
        nodes_.push_back({kind, texts_.back().data(), nullptr, nullptr});
        return &nodes_.back();
    }

    std::deque<std::string> texts_;
    std::deque<cfg_message> nodes_;
    cfg_message entry_ = {};
};

/// Texts are equal or not: how the library compares is not looked at here.
bool sameText(const Filter& term, const cfg_message& entry)
{
    for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
        for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
            if (term.attribute == attribute->text && term.value == value->text) {
                return true;
            }
        }
    }
    return false;
}

Truth evaluated(const std::string& filter, const Attributes& attributes, bool showSecrets = false)
{
    return evaluate(parseFilter(filter), Entry(attributes).message(), sameText, showSecrets);
}

} // namespace

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

TEST(Filter, ReadsOneTermWithAndWithoutParenthesesAndOuterBlanks)
{
    struct Row
    {
        const char *given, *attribute, *value;
    };
    const Row rows[] = {
        {"cn=x", "cn", "x"},
        {"(cn=x)", "cn", "x"},
        {" ( cn = x y ) ", "cn", "x y"},
        {"2.5.4.3=x", "2.5.4.3", "x"},
        {"cn;lang-en=x", "cn;lang-en", "x"},
        {"cn=a=b", "cn", "a=b"},
        {"cn~=x", "cn", "x"},
        {"cn=", "cn", ""},
        {"(cn= )", "cn", ""},
        {"cn=K\xC3\xB6ln", "cn", "K\xC3\xB6ln"},
        {"(cn=\\28a\\29\\2a\\5C)", "cn", "(a)*\\"},
        {"(cn=a\\20)", "cn", "a "},
        {"zor-slapdSuffix=o=example, c=de", "zor-slapdSuffix", "o=example, c=de"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        const Filter filter = parseFilter(row.given);
        EXPECT_EQ(filter.kind, Filter::Kind::equality);
        EXPECT_EQ(filter.attribute, row.attribute);
        EXPECT_EQ(filter.value, row.value);
    }
}

TEST(Filter, NothingAtAllIsTrue)
{
    for (const char* filter : {"", "  ", "()", "( )", "(&)", "(!(|))"}) {
        SCOPED_TRACE(filter);
        EXPECT_EQ(evaluated(filter, {}), Truth::yes);
    }
    EXPECT_EQ(evaluated("(|)", {}), Truth::no);
}

TEST(Filter, NamesAreReadByWhoKnowsThem)
{
    const Filter filter = parseFilter("(&(port=1)(!(x=*)))", [](const std::string& name) { return "full-" + name; });
    EXPECT_TRUE(speaksOf(filter, "full-port"));
    EXPECT_TRUE(speaksOf(filter, "FULL-X"));
    EXPECT_FALSE(speaksOf(filter, "port"));
    const auto refuse = [](const std::string& name) -> std::string {
        throw Failure(ExitCode::refused, "which \"" + name + "\"?");
    };
    try {
        parseFilter("(&(ab=1))", refuse);
        ADD_FAILURE() << "the filter was taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exit(), ExitCode::usage);
        EXPECT_NE(failure.message().find("which \"ab\"?\n  (&(ab=1))\n     ^\n"), std::string::npos)
            << failure.message();
    }
}

TEST(Filter, HoldsForEntries)
{
    const Attributes attributes = {
        {"cn", {"Front End"}},
        {"objectclass", {"top", "Other"}},
        {"zor-slapdPort", {"389"}},
        {"zor-slapdSizeLimit", {"1000"}},
        {"unknown", {"Abc"}},
        {"empty", {""}},
        {"none", {}},
        {"zor-slapdAdminPW", {"hush"}},
        {"zor-slapdInvalidLine", {"a: b", "pw: c"}},
        {"zor-slapdAdminDN", {"cn=Root"}},
    };
    struct Row
    {
        const char* filter;
        Truth truth;
    };
    const Row rows[] = {
        {"(objectclass=top)", Truth::yes},
        {"(OBJECTCLASS=*)", Truth::yes},
        {"(description=*)", Truth::no},
        {"(none=*)", Truth::yes},
        {"(none=a)", Truth::no},
        {"(empty=)", Truth::yes},
        {"(cn=)", Truth::no},
        {"(cn=**)", Truth::yes},
        // Numbers by their value, and not as the texts "389" and "1000" are ordered.
        {"(zor-slapdSizeLimit>=389)", Truth::yes},
        {"(zor-slapdSizeLimit>=1000)", Truth::yes},
        {"(zor-slapdSizeLimit>= 01000 )", Truth::yes},
        {"(zor-slapdSizeLimit>=1001)", Truth::no},
        {"(zor-slapdSizeLimit<=1000)", Truth::yes},
        {"(zor-slapdSizeLimit<=999)", Truth::no},
        {"(zor-slapdSizeLimit>=-1)", Truth::yes},
        {"(zor-slapdSizeLimit<=99999999999999999999)", Truth::yes},
        {"(zor-slapdSizeLimit<=-99999999999999999999)", Truth::no},
        {"(description>=1)", Truth::no},
        // Texts in ascending order, without regard to letter case where the type has none.
        {"(objectclass>=other)", Truth::yes},
        {"(objectclass>=TOP)", Truth::yes},
        {"(objectclass>=toq)", Truth::no},
        {"(objectclass<=other)", Truth::yes},
        {"(objectclass<=n)", Truth::no},
        {"(unknown>=Abc)", Truth::yes},
        {"(unknown>=abc)", Truth::no},
        {"(unknown<=abc)", Truth::yes},
        // Parts of a value, in their order and without overlap.
        {"(objectclass=t*)", Truth::yes},
        {"(objectclass=*P)", Truth::yes},
        {"(objectclass=T*P)", Truth::yes},
        {"(objectclass=*o*)", Truth::yes},
        {"(objectclass=to*op)", Truth::no},
        {"(objectclass=t*o*p)", Truth::yes},
        {"(objectclass=t**p)", Truth::yes},
        {"(objectclass=*p*t*)", Truth::no},
        {"(objectclass=top*top)", Truth::no},
        {"(unknown=a*)", Truth::no},
        {"(unknown=A*)", Truth::yes},
        {"(unknown=*\\2a)", Truth::no},
        {"(zor-slapdPort=3*9)", Truth::yes},
        {"(zor-slapdAdminDN=CN=r*)", Truth::yes},
        // Hidden values: they are there, and that is all.
        {"(zor-slapdAdminPW=*)", Truth::yes},
        {"(zor-slapdAdminPW=hush)", Truth::undefined},
        {"(zor-slapdAdminPW=h*)", Truth::undefined},
        {"(zor-slapdAdminPW>=a)", Truth::undefined},
        {"(!(zor-slapdAdminPW=hush))", Truth::undefined},
        {"(!(zor-slapdAdminPW=other))", Truth::undefined},
        {"(|(zor-slapdAdminPW=hush)(cn=*))", Truth::yes},
        {"(&(zor-slapdAdminPW=hush)(x=*))", Truth::no},
        {"(zor-slapdInvalidLine=a*)", Truth::yes},
        {"(zor-slapdInvalidLine=a: b)", Truth::yes},
        {"(zor-slapdInvalidLine=p*)", Truth::undefined},
        {"(zor-slapdInvalidLine=pw: c)", Truth::undefined},
        // Several terms.
        {"(&(objectclass=top)(zor-slapdPort>=1)(!(cn=x)))", Truth::yes},
        {" ( & ( objectclass = top ) ( | ( x=* ) ( ! ( y=* ) ) ) ) ", Truth::yes},
        {"(!(objectclass=*))", Truth::no},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.filter);
        EXPECT_EQ(evaluated(row.filter, attributes), row.truth);
    }
    EXPECT_EQ(evaluated("(zor-slapdAdminPW=h*)", attributes, true), Truth::yes);
    EXPECT_EQ(evaluated("(zor-slapdAdminPW=hush)", attributes, true), Truth::yes);
    EXPECT_EQ(evaluated("(zor-slapdAdminPW=x*)", attributes, true), Truth::no);
}

TEST(Filter, RefusesWhatMeansNothingAndPointsAtIt)
{
    struct Row
    {
        std::string given;
        std::size_t caret; ///< column of the caret, 0-based
        const char* reason;
    };
    const Row rows[] = {
        {"&(cn=a)", 0, "an attribute name is expected here"},
        {"((cn=a))", 1, "an attribute name is expected here"},
        {"=x", 0, "an attribute name is expected here"},
        {"(=x)", 1, "an attribute name is expected here"},
        {"(&(cn=a)())", 9, "an attribute name is expected here"},
        {"(cn=x", 5, "the closing parenthesis is missing"},
        {"(", 1, "an attribute name is expected here"},
        {"(&(cn=a)", 8, "the closing parenthesis is missing"},
        {"(&(cn=a)(cn=b)", 14, "the closing parenthesis is missing"},
        {"cn=x)", 4, "\\29"},
        {"cn=a(b", 4, "\\28"},
        {"(cn=a)(cn=b)", 6, "the filter has ended here"},
        {"(&cn=a)", 2, "a filter in parentheses is expected here"},
        {"(&(cn=a)x)", 8, "a filter in parentheses is expected here"},
        {"(!)", 2, "\"!\" takes one filter"},
        {"(!(cn=a)(cn=b))", 8, "\"!\" takes one filter"},
        {"(!cn=a)", 2, "a filter in parentheses is expected here"},
        {"(cn)", 3, "\"=\" is expected here"},
        {"c n=x", 2, "\"=\" is expected here"},
        {"cn>x", 3, "\"=\" is expected here"},
        {"cn~x", 3, "\"=\" is expected here"},
        {"cn:dn:=x", 2, "matching rules can't be named"},
        {"cn:=x", 2, "matching rules can't be named"},
        {"(cn>=a*)", 6, "a star has no meaning"},
        {"(&(cn=a)(zor-slapdPort>=ldap))", 24, "an integer is expected here"},
        {"zor-slapdPort<=", 15, "an integer is expected here"},
        {"zor-slapdSslCipherSpecs>=0x100", 25, "an integer is expected here"},
        {"cn=a\\4", 4, "two hexadecimal digits"},
        {"cn=a\\zz", 4, "two hexadecimal digits"},
        {"cn=a\\", 4, "two hexadecimal digits"},
        {"(cn=a\\)", 5, "two hexadecimal digits"},
        {"cn=a\\00b", 4, "zero byte"},
        // The column counts characters as they are shown.
        {"cn=K\xC3\xB6ln(", 7, "\\28"},
        {"cn=\x1B(", 7, "\\28"},
        {std::string(1000, '(') + "cn=a", 1, "an attribute name is expected here"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.given);
        try {
            parseFilter(row.given);
            ADD_FAILURE() << "the filter was taken";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.exit(), ExitCode::usage);
            EXPECT_NE(std::string(failure.what()).find(row.reason), std::string::npos) << failure.what();
            const std::string caretLine = "\n  " + std::string(row.caret, ' ') + "^\n";
            EXPECT_NE(failure.message().find(caretLine), std::string::npos) << failure.message();
        }
    }
}

TEST(Filter, AnyDepthEndsWell)
{
    const auto nested = [](int depth) {
        std::string text;
        for (int level = 0; level < depth; ++level) {
            text += "(!";
        }
        return text + "(cn=*)" + std::string(static_cast<std::size_t>(depth), ')');
    };
    EXPECT_EQ(evaluated(nested(200), {{"cn", {"a"}}}), Truth::yes);
    EXPECT_THROW(parseFilter(nested(201)), Failure);
    EXPECT_THROW(parseFilter(nested(100000)), Failure);
}

// ---- Against a slow evaluator ----

namespace {

/// A filter that was put together from its meaning, with its text.
struct Meaning
{
    std::string text;
    std::function<Truth(const Attributes&)> truth;
};

// One of each order: numbers, texts with and without letter case, and one whose values are hidden.
const std::vector<std::string> names = {"zor-slapdPort", "unknown", "objectclass", "zor-slapdAdminPW"};

std::string randomText(std::mt19937& random, std::size_t most)
{
    std::string text;
    for (auto length = random() % (most + 1); length > 0; --length) {
        text += "aAbB(*\\"[random() % 7];
    }
    return text;
}

std::string randomValue(std::mt19937& random, const std::string& name)
{
    return name == "zor-slapdPort" ? std::to_string(random() % 200) : 'a' + randomText(random, 3);
}

std::string escapedText(std::mt19937& random, const std::string& text)
{
    std::string result;
    for (const char character : text) {
        const bool must = character == '(' || character == '*' || character == '\\';
        char digits[4];
        std::snprintf(digits, sizeof digits, "\\%02x", static_cast<unsigned>(static_cast<unsigned char>(character)));
        result += must || random() % 5 == 0 ? std::string(digits) : std::string(1, character);
    }
    return result;
}

std::string inCase(std::string text, const std::string& name)
{
    if (name == "objectclass") {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    }
    return text;
}

/// True when a pattern, whose stars are zero bytes, is all of a text.
bool fits(const std::string& pattern, const std::string& text)
{
    if (pattern.empty()) {
        return text.empty();
    }
    if (pattern.front() == '\0') {
        return fits(pattern.substr(1), text) || (!text.empty() && fits(pattern, text.substr(1)));
    }
    return !text.empty() && pattern.front() == text.front() && fits(pattern.substr(1), text.substr(1));
}

Truth anyOf(const Attributes& entry, const std::string& name, const std::function<bool(const std::string&)>& holds)
{
    for (const auto& [attribute, values] : entry) {
        if (attribute == name && name == "zor-slapdAdminPW") {
            return values.empty() ? Truth::no : Truth::undefined;
        }
        if (attribute == name && std::any_of(values.begin(), values.end(), holds)) {
            return Truth::yes;
        }
    }
    return Truth::no;
}

Meaning randomTerm(std::mt19937& random)
{
    const std::string name = names[random() % names.size()];
    const std::string value = randomValue(random, name);
    const std::string given = escapedText(random, value);
    const auto compare = [name, value](const std::string& other) {
        return name == "zor-slapdPort" ? std::stoi(other) - std::stoi(value)
                                       : inCase(other, name).compare(inCase(value, name));
    };
    switch (random() % 5) {
    case 0:
        return {'(' + name + "=*)", [name](const Attributes& entry) {
                    return std::any_of(entry.begin(), entry.end(),
                                       [&](const auto& attribute) { return attribute.first == name; })
                               ? Truth::yes
                               : Truth::no;
                }};
    case 1:
        return {'(' + name + '=' + given + ')', [name, value](const Attributes& entry) {
                    return anyOf(entry, name, [&](const std::string& other) { return other == value; });
                }};
    case 2:
        return {'(' + name + ">=" + given + ')', [name, compare](const Attributes& entry) {
                    return anyOf(entry, name, [&](const std::string& other) { return compare(other) >= 0; });
                }};
    case 3:
        return {'(' + name + "<=" + given + ')', [name, compare](const Attributes& entry) {
                    return anyOf(entry, name, [&](const std::string& other) { return compare(other) <= 0; });
                }};
    default:
        std::string pattern = random() % 2 == 0 ? "" : value.substr(0, 1);
        std::string text = escapedText(random, pattern);
        for (auto pieces = 1 + random() % 3; pieces > 0; --pieces) {
            const std::string piece = name == "zor-slapdPort" ? std::to_string(random() % 10) : randomText(random, 2);
            pattern += std::string(1, '\0') + piece;
            text += '*' + escapedText(random, piece);
        }
        // Stars alone ask for the attribute, which is the first case.
        if (pattern.find_first_not_of('\0') == std::string::npos) {
            pattern += 'a';
            text += 'a';
        }
        return {'(' + name + '=' + text + ')', [name, pattern](const Attributes& entry) {
                    return anyOf(entry, name, [&](const std::string& other) {
                        return fits(inCase(pattern, name), inCase(other, name));
                    });
                }};
    }
}

Meaning randomFilter(std::mt19937& random, int depth)
{
    const auto kind = depth == 0 ? 3 : random() % 4;
    if (kind == 3) {
        return randomTerm(random);
    }
    if (kind == 2) {
        const Meaning part = randomFilter(random, depth - 1);
        return {"(!" + part.text + ')', [part](const Attributes& entry) {
                    const Truth truth = part.truth(entry);
                    return truth == Truth::yes ? Truth::no : truth == Truth::no ? Truth::yes : Truth::undefined;
                }};
    }
    std::vector<Meaning> parts;
    std::string text = kind == 0 ? "(&" : "(|";
    for (auto count = random() % 4; count > 0; --count) {
        parts.push_back(randomFilter(random, depth - 1));
        text += (random() % 4 == 0 ? " " : "") + parts.back().text;
    }
    const Truth winner = kind == 0 ? Truth::no : Truth::yes;
    return {text + ')', [parts, winner](const Attributes& entry) {
                bool undefined = false;
                for (const Meaning& part : parts) {
                    const Truth truth = part.truth(entry);
                    if (truth == winner) {
                        return winner;
                    }
                    undefined = undefined || truth == Truth::undefined;
                }
                const Truth loser = winner == Truth::no ? Truth::yes : Truth::no;
                return undefined ? Truth::undefined : loser;
            }};
}

Attributes randomEntry(std::mt19937& random)
{
    Attributes entry;
    for (const std::string& name : names) {
        if (random() % 3 == 0) {
            continue;
        }
        entry.push_back({name, {}});
        for (auto count = random() % 3; count > 0; --count) {
            entry.back().second.push_back(randomValue(random, name));
        }
    }
    return entry;
}

} // namespace

TEST(Filter, MeansWhatASlowEvaluatorMakesOfIt)
{
    std::mt19937 random(11);
    int counts[3] = {};
    for (int round = 0; round < 5000; ++round) {
        const Meaning meaning = randomFilter(random, 3);
        SCOPED_TRACE(meaning.text);
        const Filter filter = parseFilter(meaning.text);
        for (int look = 0; look < 4; ++look) {
            const Attributes entry = randomEntry(random);
            const Truth truth = evaluate(filter, Entry(entry).message(), sameText, false);
            ASSERT_EQ(truth, meaning.truth(entry));
            ++counts[static_cast<int>(truth)];
        }
    }
    // The rounds are worth something only if all three come up.
    EXPECT_GT(*std::min_element(std::begin(counts), std::end(counts)), 500);
}
