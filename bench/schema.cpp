// Prints the catalogue of attribute types as a schema for OpenLDAP, so that its slapadd checks the values of a
// generated file. Where OpenLDAP has no syntax of the same kind its check is the weaker one: lists of allowed
// values and lengths are free text to it.
#include "LDIF_AttrType.h"

#include <cstdio>
#include <string>
#include <string_view>

#include <strings.h>

namespace {

struct Syntax
{
    const char* number;
    const char* equality;
};

constexpr Syntax caseExact = {"1.3.6.1.4.1.1466.115.121.1.15", "caseExactMatch"};
constexpr Syntax caseIgnore = {"1.3.6.1.4.1.1466.115.121.1.15", "caseIgnoreMatch"};
constexpr Syntax integer = {"1.3.6.1.4.1.1466.115.121.1.27", "integerMatch"};
constexpr Syntax distinguishedName = {"1.3.6.1.4.1.1466.115.121.1.12", "distinguishedNameMatch"};
constexpr Syntax octets = {"1.3.6.1.4.1.1466.115.121.1.40", "octetStringMatch"};

Syntax syntaxOf(const _AttrType& type)
{
    if (type.fromStr == intFromStr || type.fromStr == maskFromStr) {
        return integer;
    }
    if (type.fromStr == dnFromStr) {
        return distinguishedName;
    }
    if (type.fromStr == pwFromStr) {
        return octets;
    }
    return type.match == cesCompare ? caseExact : caseIgnore;
}

/// OpenLDAP has these on its own.
bool isBuiltIn(std::string_view name)
{
    return name == "cn" || name == "objectclass";
}

// The branch that OpenLDAP leaves for experiments.
constexpr char branch[] = "1.3.6.1.4.1.4203.666.11.4711";

constexpr const char* objectClasses[] = {"zor-slapdConfiguration", "zor-slapdConsumer", "zor-slapdDatabase",
                                         "zor-slapdListener", "zor-slapdPeer"};

} // namespace

int main()
{
    std::string names = "cn";
    int number = 0;
    const char* previous = "";
    for (const _AttrType& type : attrMapArray) {
        // The last record has no name; one name stands twice.
        if (type.name == nullptr || isBuiltIn(type.name) || strcasecmp(type.name, previous) == 0) {
            continue;
        }
        previous = type.name;
        const Syntax syntax = syntaxOf(type);
        std::printf("attributetype ( %s.1.%d NAME '%s' EQUALITY %s SYNTAX %s%s )\n", branch, ++number, type.name,
                    syntax.equality, syntax.number, type.singleValued ? " SINGLE-VALUE" : "");
        names += std::string(" $\n  ") + type.name; // its lines are bounded, what they continue is not
    }
    number = 0;
    for (const char* const name : objectClasses) {
        std::printf("objectclass ( %s.2.%d NAME '%s' SUP top STRUCTURAL MAY ( %s ) )\n", branch, ++number, name,
                    names.c_str());
    }
    return 0;
}
