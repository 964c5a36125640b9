// Types are found by their names at once, since each value of an entry asks for its own. What people type is held
// against the catalogue as it comes.
#include "names.h"

#include "failure.h"
#include "nearest.h"

#include <algorithm>
#include <cstddef>
#include <unordered_map>

namespace veltor::tool {

namespace {

constexpr std::string_view prefixes[] = {"zor-slapd", "zor-"};

constexpr std::size_t mostSuggestions = 3;
// A shorter text is part of too many names to be a hint.
constexpr std::size_t shortestPart = 3;

char lower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), lower);
    return out;
}

bool startsWith(std::string_view name, std::string_view prefix)
{
    return name.size() >= prefix.size() && sameName(name.substr(0, prefix.size()), prefix);
}

// The part that tells names apart; a misspelt prefix is part of it.
std::string_view withoutPrefix(std::string_view name)
{
    for (const std::string_view prefix : prefixes) {
        if (startsWith(name, prefix)) {
            return name.substr(prefix.size());
        }
    }
    return name;
}

std::vector<std::string> nearestTo(std::string_view given, const std::vector<cfg_attr_type>& types)
{
    const std::string whole = lowered(given);
    const std::string wanted = lowered(withoutPrefix(given));
    std::size_t fewest = mostTypos(wanted);
    std::vector<std::string> nearest;
    std::vector<std::string> containing;
    for (const cfg_attr_type& type : types) {
        const std::string name = lowered(withoutPrefix(type.name));
        // The prefix may be misspelt as well.
        const std::size_t typos = std::min(typosBetween(wanted, name), typosBetween(whole, lowered(type.name)));
        if (typos < fewest) {
            nearest.clear();
        }
        // As many typos as there are letters make any word of any other.
        if (typos <= fewest && typos < name.size()) {
            fewest = typos;
            nearest.emplace_back(type.name);
        }
        if (wanted.size() >= shortestPart && name.find(wanted) != std::string::npos) {
            containing.emplace_back(type.name);
        }
    }
    std::vector<std::string>& found = nearest.empty() ? containing : nearest;
    found.resize(std::min(found.size(), mostSuggestions));
    return std::move(found);
}

struct NameHash
{
    std::size_t operator()(std::string_view name) const
    {
        std::size_t hash = 0;
        for (const char character : name) {
            hash = hash * 31 + static_cast<unsigned char>(lower(character));
        }
        return hash;
    }
};

struct NameEqual
{
    bool operator()(std::string_view left, std::string_view right) const { return sameName(left, right); }
};

using TypesByName = std::unordered_map<std::string_view, const cfg_attr_type*, NameHash, NameEqual>;

TypesByName typesByName()
{
    TypesByName types;
    for (const cfg_attr_type& type : catalogue()) {
        types.emplace(type.name, &type);
    }
    return types;
}

} // namespace

const std::vector<cfg_attr_type>& catalogue()
{
    static const std::vector<cfg_attr_type> types = [] {
        std::vector<cfg_attr_type> all(static_cast<std::size_t>(cfg_attr_type_count()));
        for (std::size_t index = 0; index < all.size(); ++index) {
            cfg_attr_type_at(static_cast<int>(index), &all[index]);
        }
        return all;
    }();
    return types;
}

bool sameName(std::string_view left, std::string_view right)
{
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(),
                                                     [](char one, char other) { return lower(one) == lower(other); });
}

std::optional<cfg_attr_type> attributeType(std::string_view name)
{
    static const TypesByName types = typesByName();
    const auto found = types.find(name);
    return found == types.end() ? std::nullopt : std::optional(*found->second);
}

NameResult lookUpName(std::string_view given)
{
    const std::vector<cfg_attr_type>& types = catalogue();
    std::vector<std::string> shortFor;
    for (const cfg_attr_type& type : types) {
        if (sameName(type.name, given)) {
            return {type.name, {}};
        }
        for (const std::string_view prefix : prefixes) {
            if (startsWith(type.name, prefix) && sameName(std::string_view(type.name).substr(prefix.size()), given)) {
                shortFor.emplace_back(type.name);
            }
        }
    }
    if (shortFor.size() == 1) {
        return {shortFor.front(), {}};
    }
    if (!shortFor.empty()) {
        return {"", shortFor, true};
    }
    return {"", nearestTo(given, types)};
}

void refuseName(std::string_view given, const NameResult& result, const std::vector<std::string>& details)
{
    std::string headline = result.ambiguous ? "ambiguous" : "unknown";
    headline += " setting \"" + std::string(given) + '"' + didYouMean(result.nearest);
    throw Failure(ExitCode::refused, std::move(headline),
                  details.empty() ? std::vector<std::string>{"nothing was written; see: veltor explain --list"}
                                  : details,
                  {.attribute = std::string(given)});
}

std::string fullName(std::string_view given, const std::vector<std::string>& details)
{
    NameResult result = lookUpName(given);
    if (result.name.empty()) {
        refuseName(given, result, details);
    }
    return std::move(result.name);
}

std::string explainAdvice(std::string_view name)
{
    const std::optional<cfg_attr_type> type = attributeType(name);
    return type ? std::string("; see: veltor explain ") + type->name : std::string();
}

std::string shortName(std::string_view full)
{
    for (const std::string_view prefix : prefixes) {
        if (!startsWith(full, prefix) || !sameName(lookUpName(full.substr(prefix.size())).name, full)) {
            continue;
        }
        std::string name(full.substr(prefix.size()));
        if (name.size() < 2 || lower(name[1]) == name[1]) {
            name.front() = lower(name.front());
        }
        return name;
    }
    return std::string(full);
}

} // namespace veltor::tool
