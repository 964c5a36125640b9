// Writes the manual page of the settings: a page with places that the catalogue fills, so that the two tell the same.
//
// A place is a line of its own that begins with "@":
//   @syntax SYNTAX...    the item of a list for one syntax, or for several that have the same words
//   @settings            an item for each setting, in the order of their names
//   @settings SYNTAX...  the names of the settings that have one of these syntaxes, one behind the other; a "." or ","
//                        as the last word follows the last name
// The page describes every syntax that a setting has, and no other; else it is not written.
#include "setting_words.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <veltor/cfg_admin.h>

namespace {

using veltor::tool::remarksOf;
using veltor::tool::syntaxWords;
using veltor::tool::valuesOf;

std::vector<cfg_attr_type> readCatalogue()
{
    std::vector<cfg_attr_type> types(static_cast<std::size_t>(cfg_attr_type_count()));
    for (std::size_t index = 0; index < types.size(); ++index) {
        cfg_attr_type_at(static_cast<int>(index), &types[index]);
    }
    return types;
}

/// A text as mdoc shows it in the middle of a line.
std::string shown(std::string_view text)
{
    std::string out;
    for (const char character : text) {
        out += character == '\\' ? "\\e" : std::string(1, character);
    }
    return out;
}

class Page
{
public:
    explicit Page(std::vector<cfg_attr_type> types) : types_(std::move(types)) {}

    std::string fill(std::istream& page)
    {
        std::string out;
        for (std::string line; std::getline(page, line);) {
            out += line.starts_with('@') ? place(line) : line + '\n';
        }
        for (const cfg_attr_type& type : types_) {
            if (!described_.contains(type.syntax)) {
                throw std::runtime_error(std::string("the page does not describe the syntax ") + type.syntax);
            }
        }
        return out;
    }

private:
    std::string place(const std::string& line)
    {
        std::istringstream words(line);
        std::string what;
        words >> what;
        std::vector<std::string> syntaxes{std::istream_iterator<std::string>(words), {}};
        std::string end;
        if (syntaxes.size() > 1 && (syntaxes.back() == "." || syntaxes.back() == ",")) {
            end = ' ' + syntaxes.back();
            syntaxes.pop_back();
        }
        for (const std::string& syntax : syntaxes) {
            if (std::none_of(types_.begin(), types_.end(), [&](const auto& type) { return type.syntax == syntax; })) {
                throw std::runtime_error(std::string(line).append(": no setting has the syntax ").append(syntax));
            }
        }
        if (what == "@syntax" && !syntaxes.empty()) {
            return syntaxItem(line, syntaxes);
        }
        if (what == "@settings") {
            return syntaxes.empty() ? settingItems() : settingNames(syntaxes) + end + '\n';
        }
        throw std::runtime_error(line + ": no such place");
    }

    std::string syntaxItem(const std::string& line, const std::vector<std::string>& syntaxes)
    {
        const std::string words = syntaxWords(syntaxes.front());
        std::string names;
        for (const std::string& syntax : syntaxes) {
            if (syntaxWords(syntax) != words) {
                throw std::runtime_error(line + ": these differ in their words");
            }
            names += (names.empty() ? " Li " : " , ") + syntax;
            described_.insert(syntax);
        }
        return ".It " + shown(words) + " Pq" + names + '\n';
    }

    std::string settingItems() const
    {
        std::string out;
        for (const cfg_attr_type& type : types_) {
            out.append(".It Li ").append(type.name).append("\n");
            out += shown(valuesOf(type) + ' ' + remarksOf(type)) + '\n';
        }
        return out;
    }

    std::string settingNames(const std::vector<std::string>& syntaxes) const
    {
        std::vector<std::string> names;
        for (const cfg_attr_type& type : types_) {
            if (std::find(syntaxes.begin(), syntaxes.end(), type.syntax) != syntaxes.end()) {
                names.emplace_back(type.name);
            }
        }
        std::string out;
        for (const std::string& name : names) {
            const bool isLast = &name == &names.back();
            if (!out.empty()) {
                out += isLast ? "\nand\n" : " ,\n";
            }
            out += ".Li " + name;
        }
        return out;
    }

    std::vector<cfg_attr_type> types_;
    std::set<std::string> described_;
};

void writePage(const char* templateFile, const char* pageFile)
{
    std::ifstream page(templateFile);
    if (!page) {
        throw std::runtime_error(std::string(templateFile) + ": can't be read");
    }
    const std::string text = Page(readCatalogue()).fill(page);
    std::ofstream out(pageFile, std::ios::binary);
    out << text;
    out.close();
    if (!out) {
        throw std::runtime_error(std::string(pageFile) + ": can't be written");
    }
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 3) {
        std::fputs("usage: veltor_settings_page TEMPLATE PAGE\n", stderr);
        return 2;
    }
    try {
        writePage(arguments[1], arguments[2]);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "veltor_settings_page: %s\n", failure.what());
        return 1;
    }
}
