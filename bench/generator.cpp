// Configuration files of any size.
//
// An entry's text depends on the seed and its position alone, so the same entries come in every order.
#include "generator.h"

#include "veltor/platform.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <memory>
#include <new>
#include <numeric>
#include <system_error>
#include <utility>
#include <vector>

namespace veltor::bench {

namespace {

constexpr char top[] = "cn=Configuration";
constexpr char missing[] = "o=gone";
constexpr std::size_t groupSize = 50;
constexpr std::size_t chainLength = 16;
constexpr std::size_t adopted = 10;
constexpr std::size_t pieceSize = std::size_t{1} << 16;

/// Numbers that look random (splitmix64). The standard library's distributions differ between its makers.
class Noise
{
public:
    Noise(std::uint64_t seed, std::uint64_t stream) : state_(seed * 0x9E3779B97F4A7C15U + stream) { next(); }

    std::uint64_t next()
    {
        state_ += 0x9E3779B97F4A7C15U;
        std::uint64_t bits = state_;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
        return bits ^ (bits >> 31);
    }

    std::uint64_t below(std::uint64_t bound) { return next() % bound; }

    template <std::size_t Count>
    const char* oneOf(const std::array<const char*, Count>& texts)
    {
        return texts.at(below(Count));
    }

private:
    std::uint64_t state_;
};

std::string number(const char* prefix, std::uint64_t value)
{
    return prefix + std::to_string(value);
}

/// A password as the file holds it: encoded by the codec that the library decodes it with.
std::string password(Noise& noise)
{
    const std::string clear = number("pw", noise.below(100'000'000));
    constexpr int longest = 46;
    char* encoded = nullptr;
    if (_slapd_utils_encode_buffer(clear.c_str(), &encoded, 1, longest) != 0) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<char, void (*)(char*)> owner(encoded, _slapd_utils_encode_buffer_free);
    return encoded;
}

/// Appends lines of the form "name: value".
class Lines
{
public:
    explicit Lines(std::string& text) : text_(text) {}

    void operator()(const char* name, std::string_view value) { text_.append(name).append(": ").append(value) += '\n'; }

private:
    std::string& text_;
};

constexpr std::array<const char*, 2> booleans = {"false", "true"};
constexpr std::array<const char*, 5> securities = {"none", "SSL", "SSLOnly", "TLS", "SSLTLS"};
constexpr std::array<const char*, 4> places = {"berlin", "madrid", "paris", "oslo"};

// The kinds of entries. Names stand in the order in which a write-back sorts them, values in their normal form.

void appendConsumer(Lines line, Noise& noise)
{
    line("objectclass", "top");
    line("objectclass", "zor-slapdConsumer");
    line("zor-slapdDbName", number("db", noise.below(10'000)));
    line("zor-slapdErrorLog", number("/var/log/zorslapd/instance", noise.below(1'000'000)) + "/error.log");
    line("zor-slapdIdleTimeOut", number("", noise.below(3600)));
    line("zor-slapdMasterDN", number("cn=replicator", noise.below(1'000'000)) + ", ou=services, o=example");
    line("zor-slapdMasterPW", password(noise));
    line("zor-slapdMasterReferral", number("ldap://master", noise.below(100)) + ".example.com:389");
    line("zor-slapdPort", number("", 1 + noise.below(65535)));
    line("zor-slapdReferral", number("ldaps://east", noise.below(100)) + ".example.com:636");
    line("zor-slapdReferral", number("ldaps://west", noise.below(100)) + ".example.com:636");
    line("zor-slapdSecurity", noise.oneOf(securities));
}

void appendDatabase(Lines line, Noise& noise)
{
    const std::string name = number("ldap", noise.below(10'000));
    line("objectclass", "top");
    line("objectclass", "zor-slapdDatabase");
    line("zor-slapdBulkloadErrors", "/var/log/zorslapd/" + name + "/bulkload.err");
    line("zor-slapdCachedAttribute", "mail");
    line("zor-slapdCachedAttribute", "uid");
    line("zor-slapdCachedAttributeSize", number("", noise.below(1'000'000)));
    line("zor-slapdDbInstance", name);
    line("zor-slapdDbUserPW", password(noise));
    line("zor-slapdPlugin", "database /usr/ldap/lib/libback-table.so table_init " + name);
    line("zor-slapdPlugin", "extendedop /usr/ldap/lib/libevents.so events_init " + name);
    line("zor-slapdReadOnly", noise.oneOf(booleans));
    line("zor-slapdSuffix", number("ou=branch", noise.below(1'000'000)) + ", o=example");
}

void appendListener(Lines line, Noise& noise)
{
    const char* const place = noise.oneOf(places);
    const std::string host = number("ldap", noise.below(10'000)) + "." + place + ".example.com";
    line("objectclass", "top");
    line("objectclass", "zor-slapdListener");
    line("zor-slapdIpAddress", host);
    line("zor-slapdLdapCrlPort", number("", 1 + noise.below(65535)));
    line("zor-slapdLdapCrlUser", number("cn=reader", noise.below(1'000'000)) + ", ou=services, o=example");
    line("zor-slapdSecurePort", number("", 1 + noise.below(65535)));
    line("zor-slapdSetenv", number("LDAP_CACHE_LIMIT_OF_THIS_INSTANCE=", noise.below(1'000'000)));
    line("zor-slapdSetenv", std::string("TZ=Europe/") + place);
    line("zor-slapdSslAuth", "ServerClientAuth");
    line("zor-slapdSslCipherSpecs", "12288");
    line("zor-slapdSslKeyDatabase", "/usr/ldap/etc/keys/" + host + ".kdb");
    line("zor-slapdSslKeyDatabasePW", password(noise));
}

void appendPeer(Lines line, Noise& noise)
{
    const std::string folder = number("/usr/ldap/etc/schema", noise.below(10'000));
    line("objectclass", "top");
    line("objectclass", "zor-slapdPeer");
    line("zor-slapdIncludeSchema", folder + "/system.at");
    line("zor-slapdIncludeSchema", folder + "/system.oc");
    line("zor-slapdIncludeSchema", folder + "/user.at");
    line("zor-slapdIncludeSchema", folder + "/user.oc");
    line("zor-slapdPeerDN", number("cn=peer", noise.below(1'000'000)) + ", ou=services, o=example");
    line("zor-slapdPeerPW", password(noise));
    line("zor-slapdReplicaSubtree", number("ou=branch", noise.below(1'000'000)) + ", o=example");
    line("zor-slapdSchemaCheck", "V3_lenient");
    line("zor-slapdServerID", number("server-", noise.next()));
    line("zor-slapdTimeLimit", number("", noise.below(3600)));
}

constexpr std::array<const char*, 4> remarks = {
    ", moved with the last relocation", ", see the notes of the night shift", ", to be looked at before the next audit",
    ": limits as agreed with operations"};
constexpr std::array kinds = {appendConsumer, appendDatabase, appendListener, appendPeer};

/// The value of the first part of a DN: the entry repeats it as an attribute.
std::string_view firstValue(std::string_view dn)
{
    dn.remove_prefix(dn.find('=') + 1);
    return dn.substr(0, dn.find(','));
}

void appendEntry(std::string& text, std::size_t position, const Workload& workload)
{
    Noise noise(workload.seed, position);
    const std::string dn = entryDn(position, workload);
    text += number("# instance ", position) + noise.oneOf(remarks) + "\n";
    Lines line(text);
    line("dn", dn);
    line("cn", firstValue(dn));
    kinds.at(noise.below(kinds.size()))(line, noise);
    text += '\n';
}

void appendTop(std::string& text, const Workload& workload)
{
    Noise noise(workload.seed, ~std::uint64_t{0});
    text += "# The server as a whole\n";
    Lines line(text);
    line("dn", top);
    line("cn", "Configuration");
    line("objectclass", "top");
    line("objectclass", "zor-slapdConfiguration");
    line("zor-slapdAdminDN", "cn=root");
    line("zor-slapdAdminPW", password(noise));
    text += '\n';
}

/// A DN so many levels below the start of its chain.
std::string chainDn(std::size_t chain, std::size_t level, const char* suffix)
{
    std::string dn;
    for (; level > 0; --level) {
        dn += number("cn=link", level) + ", ";
    }
    return dn + number("cn=chain", chain) + ", " + suffix;
}

/// The tree without the entries that would be somebody's parent.
std::string orphanDn(std::size_t position, Tree tree)
{
    switch (tree) {
    case Tree::mixed:
        return number("cn=unit", position) + ", " + number("cn=group", position / groupSize) + ", " + missing;
    case Tree::deep:
        // Every entry has a chain to itself, whose upper levels are not there.
        return chainDn(position, 1 + position % (chainLength - 1), missing);
    default:
        return number("cn=unit", position) + ", " + missing;
    }
}

/// Calls back with every position in file order; the entry cn=Configuration counts as position `entries`.
template <typename Callback>
void forEachPosition(const Workload& workload, Callback callback)
{
    const std::size_t entries = workload.entries;
    switch (workload.order) {
    case Order::reversed:
        for (std::size_t position = entries; position > 0; --position) {
            callback(position - 1);
        }
        callback(entries);
        return;
    case Order::shuffled: {
        std::vector<std::uint32_t> positions(entries + 1);
        std::iota(positions.begin(), positions.end(), 0U);
        Noise noise(workload.seed, ~std::uint64_t{1});
        for (std::size_t left = positions.size(); left > 1; --left) {
            std::swap(positions[left - 1], positions[noise.below(left)]);
        }
        for (const std::uint32_t position : positions) {
            callback(position);
        }
        return;
    }
    case Order::written:
    case Order::orphans:
        callback(entries);
        for (std::size_t position = 0; position < entries; ++position) {
            callback(position);
        }
        return;
    }
}

constexpr std::array<std::pair<Tree, const char*>, 5> trees = {{{Tree::mixed, "mixed"},
                                                                {Tree::wide, "wide"},
                                                                {Tree::deep, "deep"},
                                                                {Tree::splitPairs, "split-pairs"},
                                                                {Tree::lateAdopters, "late-adopters"}}};
constexpr std::array<std::pair<Order, const char*>, 4> orders = {{{Order::written, "written"},
                                                                  {Order::reversed, "reversed"},
                                                                  {Order::shuffled, "shuffled"},
                                                                  {Order::orphans, "orphans"}}};

template <typename Names, typename Key>
const char* nameIn(const Names& names, Key key)
{
    for (const auto& [candidate, name] : names) {
        if (candidate == key) {
            return name;
        }
    }
    return "";
}

template <typename Key, std::size_t Count>
std::optional<Key> keyIn(const std::array<std::pair<Key, const char*>, Count>& names, std::string_view wanted)
{
    for (const auto& [key, name] : names) {
        if (wanted == name) {
            return key;
        }
    }
    return std::nullopt;
}

} // namespace

const char* nameOf(Tree tree)
{
    return nameIn(trees, tree);
}

const char* nameOf(Order order)
{
    return nameIn(orders, order);
}

std::optional<Tree> treeNamed(std::string_view name)
{
    return keyIn(trees, name);
}

std::optional<Order> orderNamed(std::string_view name)
{
    return keyIn(orders, name);
}

std::string entryDn(std::size_t position, const Workload& workload)
{
    if (workload.order == Order::orphans) {
        return orphanDn(position, workload.tree);
    }
    switch (workload.tree) {
    case Tree::mixed: {
        const std::string group = number("cn=group", position / groupSize) + ", " + top;
        return position % groupSize == 0 ? group : number("cn=unit", position) + ", " + group;
    }
    case Tree::wide:
        return number("cn=unit", position) + ", " + top;
    case Tree::deep:
        return chainDn(position / chainLength, position % chainLength, top);
    case Tree::splitPairs: {
        const std::size_t pairs = (workload.entries + 1) / 2;
        const std::string parent = number("ou=", position % pairs) + ", o=x";
        return position < pairs ? number("cn=", position) + ", " + parent : parent;
    }
    case Tree::lateAdopters: {
        const std::size_t children = workload.entries - workload.entries / (adopted + 1);
        if (position < children) {
            return number("cn=", position) + ", " + number("ou=", position / adopted) + ", " + top;
        }
        return number("ou=", position - children) + ", " + top;
    }
    }
    return top;
}

void generate(const Workload& workload, const std::function<void(std::string_view)>& sink)
{
    std::string text;
    text.reserve(pieceSize + 4096);
    if (workload.rootLines) {
        text += "# Instances of the directory service\ncharset: ISO-8859-1\nversion: 1\n\n";
    }
    forEachPosition(workload, [&](std::size_t position) {
        if (position == workload.entries) {
            appendTop(text, workload);
        } else {
            appendEntry(text, position, workload);
        }
        if (text.size() >= pieceSize) {
            sink(text);
            text.clear();
        }
    });
    sink(text);
}

std::string configuration(const Workload& workload)
{
    std::string text;
    generate(workload, [&text](std::string_view piece) { text += piece; });
    return text;
}

void generateFile(const Workload& workload, const std::string& path)
{
    const auto fail = [&path] { throw std::system_error(errno, std::generic_category(), path); };
    struct Close
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        fail();
    }
    generate(workload, [&](std::string_view piece) {
        if (std::fwrite(piece.data(), 1, piece.size(), file.get()) != piece.size()) {
            fail();
        }
    });
    if (std::fclose(file.release()) != 0) {
        fail();
    }
}

} // namespace veltor::bench
