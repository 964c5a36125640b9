// Configuration files of any size.
#include "generator.h"

#include <array>

namespace veltor::bench {

namespace {

constexpr char top[] = "cn=Configuration";
constexpr std::size_t groupSize = 50;
constexpr std::size_t chainLength = 16;
constexpr std::size_t adopted = 10;

std::string number(const char* prefix, std::size_t value)
{
    return prefix + std::to_string(value);
}

/// Scatters positions, so that neighbours in the file differ in more than one digit.
std::size_t scattered(std::size_t position)
{
    return position * 2654435761U % 1000003U;
}

void appendEntry(std::string& text, const std::string& dn, std::size_t position)
{
    constexpr std::array<const char*, 5> security = {"none", "SSL", "SSLOnly", "TLS", "SSLTLS"};
    const std::size_t noise = scattered(position);
    text += number("# unit ", position) + ", moved with the last relocation\n";
    text += "dn: " + dn + "\n";
    text += "objectclass: top\nobjectclass: zor-slapdConfigEntry\n";
    text += number("zor-slapdDbName: db", noise % 10000) + "\n";
    text += number("zor-slapdErrorLog: /var/log/zorslapd/instance", noise) + "/error.log\n";
    text += number("zor-slapdIdleTimeOut: ", noise % 3600) + "\n";
    text += number("zor-slapdMasterDN: cn=replicator", noise) + ", ou=services, o=example\n";
    text += "zor-slapdMasterPW: >1xIheSypXWzXARA<\n";
    text += number("zor-slapdMasterReferral: ldap://master", noise % 97) + ".example.com:389\n";
    text += number("zor-slapdPort: ", 1 + noise % 65535) + "\n";
    text += number("zor-slapdReferral: ldaps://east", noise % 89) + ".example.com:636\n";
    text += number("zor-slapdReferral: ldaps://west", noise % 83) + ".example.com:636\n";
    text += std::string("zor-slapdSecurity: ") + security.at(noise % security.size()) + "\n";
    text += number("zor-slapdSetenv: LDAP_CACHE_LIMIT_OF_THIS_INSTANCE=", noise) + "\n\n";
}

std::string chainDn(std::size_t position)
{
    const std::size_t chain = position / chainLength;
    std::string dn = number("cn=chain", chain) + ", " + top;
    for (std::size_t level = 1; level <= position % chainLength; ++level) {
        dn.insert(0, number("cn=link", level) + ", ");
    }
    return dn;
}

} // namespace

std::string entryDn(std::size_t position, std::size_t entries, Tree tree)
{
    switch (tree) {
    case Tree::mixed:
        if (position % groupSize == 0) {
            return number("ou=group", position / groupSize) + ", " + top;
        }
        return number("cn=unit", position) + ", " + number("ou=group", position / groupSize) + ", " + top;
    case Tree::wide:
        return number("cn=unit", position) + ", " + top;
    case Tree::deep:
        return chainDn(position);
    case Tree::splitPairs: {
        const std::size_t pair = position % (entries / 2);
        const std::string parent = number("ou=", pair) + ", o=x";
        return position < entries / 2 ? number("cn=", pair) + ", " + parent : parent;
    }
    case Tree::lateAdopters: {
        const std::size_t children = entries - entries / (adopted + 1);
        if (position < children) {
            return number("cn=", position) + ", " + number("ou=", position / adopted) + ", " + top;
        }
        return number("ou=", position - children) + ", " + top;
    }
    }
    return top;
}

std::string configuration(std::size_t entries, Tree tree)
{
    std::string text = "# Instances of the directory service\nversion: 1\ncharset: ISO-8859-1\n\n"
                       "dn: cn=Configuration\ncn: Configuration\nobjectclass: top\n"
                       "zor-slapdAdminDN: cn=root\nzor-slapdAdminPW: >1xIheSypXWzXARA<\n\n";
    text.reserve(entries * 640);
    for (std::size_t position = 0; position < entries; ++position) {
        appendEntry(text, entryDn(position, entries, tree), position);
    }
    return text;
}

} // namespace veltor::bench
