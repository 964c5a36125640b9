#include "setting_words.h"

#include "word_list.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <iterator>

namespace veltor::tool {

namespace {

struct SyntaxText
{
    const char *syntax, *text;
};

constexpr SyntaxText syntaxTexts[] = {
    {"ces", "a text"},
    {"cis", "a text"},
    {"dc", "a host name or address"},
    {"dn", "a DN"},
    {"enum", "one of"},
    {"env", "a setting of the server's environment, NAME=VALUE"},
    {"file", "the path of a file"},
    {"int", "an integer"},
    {"krbdn", "a Kerberos name"},
    {"mask", "bits"},
    {"oid", "an object identifier"},
    {"path", "a path"},
    {"plugin", "a kind, a library and its entry point"},
    {"pw", "a password"},
    {"url", "a URL"},
};

bool isOneOf(std::string_view syntax, std::initializer_list<std::string_view> syntaxes)
{
    return std::find(syntaxes.begin(), syntaxes.end(), syntax) != syntaxes.end();
}

std::string hex(long number)
{
    char text[2 * sizeof number + 3];
    std::snprintf(text, sizeof text, "0x%lX", static_cast<unsigned long>(number));
    return text;
}

} // namespace

std::string syntaxWords(std::string_view syntax)
{
    const auto* row = std::find_if(std::begin(syntaxTexts), std::end(syntaxTexts),
                                   [&](const SyntaxText& text) { return syntax == text.syntax; });
    return row == std::end(syntaxTexts) ? std::string(syntax) : row->text;
}

std::vector<std::string> listOf(const cfg_attr_type& type)
{
    std::vector<std::string> list;
    for (const char* const* word = type.enum_values; word != nullptr && *word != nullptr; ++word) {
        list.emplace_back(*word);
    }
    return list;
}

std::string valuesOf(const cfg_attr_type& type)
{
    const std::string_view syntax = type.syntax;
    std::string out = syntaxWords(syntax);
    if (type.enum_values != nullptr) {
        out += (syntax == "enum" ? ": " : syntax == "url" ? "; schemes: " : "; known: ") + joined(listOf(type));
    }
    if (syntax == "mask") {
        out += " of " + hex(type.bitmask);
    }
    if (isOneOf(syntax, {"enum", "mask", "dn", "krbdn"}) || (type.minimum == 0 && type.maximum == 0)) {
        return out;
    }
    const std::string range = std::to_string(type.minimum) + " to " + std::to_string(type.maximum);
    if (syntax == "int") {
        return out + " from " + range;
    }
    return out + " of " + range + " bytes" + (syntax == "pw" ? ", stored encoded" : "");
}

std::string remarksOf(const cfg_attr_type& type)
{
    const bool anyCase = isOneOf(type.syntax, {"enum", "cis", "dn", "dc"});
    return std::string("(") + (anyCase ? "any letter case; " : "") +
           (type.single_valued != 0 ? "single-valued" : "several values") + ")";
}

} // namespace veltor::tool
