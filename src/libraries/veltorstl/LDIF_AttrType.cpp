// The catalogue of attribute types.
//
// The table below is the definition, in the order in which the types came to be. The sorted array and the hash
// table of its names are made from it at compile time, so the first use costs nothing.
#include "LDIF_AttrType.h"

#include "LDIF_Util.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <strings.h>

constexpr const char* const enumBoolean[] = {"true", "false", nullptr};
constexpr const char* const enumPwEncryption[] = {"none", "imask", "crypt", "sha", nullptr};
constexpr const char* const enumSchemaCheck[] = {"none", "V2", "V3", "V3_lenient", nullptr};
constexpr const char* const enumSecurity[] = {"none", "SSL", "SSLOnly", "TLS", "SSLTLS", nullptr};
constexpr const char* const enumSslAuth[] = {"ServerAuth", "ServerClientAuth", nullptr};
constexpr const char* const enumSysLogLevel[] = {"l", "m", "h", nullptr};
constexpr const char* const enumDerefAliases[] = {"never", "find", "search", "always", nullptr};
// The last two are wanted: files in the field use them for zor-slapdEThreadActivate.
constexpr const char* const enumETStatCond[] = {"S", "T", "SOT", "SAT", "ldap", "ldaps", nullptr};
constexpr const char* const urlLdap[] = {"ldap", "ldaps", nullptr};
constexpr const char* const oidACI[] = {"1.3.47.0.2.26.1", "1.3.47.0.2.26.2", nullptr};

namespace {

constexpr bool single = true;
constexpr bool multi = false;
constexpr std::int32_t unlimited = 2147483647;

/// A record, and the word for its syntax. The word stands beside the record: syntaxes share functions, so that a
/// record alone does not tell its own.
struct Definition
{
    _AttrType type;
    const char* syntax;
};

// One maker for each syntax: a record uses the five functions of one.
#define VELTOR_SYNTAX(syntaxName)                                                                                      \
    constexpr Definition syntaxName##Type(const char* name, const char* const* enumValues, std::int32_t bitmask,       \
                                          std::int32_t min, std::int32_t max, bool singleValued)                       \
    {                                                                                                                  \
        return {{name, syntaxName##Compare, syntaxName##FromStr, syntaxName##FromBin, syntaxName##ToStr,               \
                 syntaxName##ToBin, enumValues, bitmask, min, max, singleValued},                                      \
                #syntaxName};                                                                                          \
    }
VELTOR_SYNTAX(ces)
VELTOR_SYNTAX(cis)
VELTOR_SYNTAX(enum)
VELTOR_SYNTAX(int)
VELTOR_SYNTAX(mask)
VELTOR_SYNTAX(oid)
VELTOR_SYNTAX(dn)
VELTOR_SYNTAX(dc)
VELTOR_SYNTAX(url)
VELTOR_SYNTAX(krbdn)
VELTOR_SYNTAX(env)
VELTOR_SYNTAX(pw)
VELTOR_SYNTAX(path)
VELTOR_SYNTAX(file)
VELTOR_SYNTAX(plugin)
#undef VELTOR_SYNTAX

// name, allowed values, allowed bits, minimum, maximum, single-valued.
// zor-slapdIdleTimeOut stands twice, alike: a look-up finds one of the two.
// clang-format off
constexpr Definition definitions[] = {
    cesType("charset", nullptr, 0, 0, 0, single),
    intType("version", nullptr, 0, 1, 1, single),
    cisType("cn", nullptr, 0, 0, 0, single),
    cisType("objectclass", nullptr, 0, 0, 0, multi),
    dnType("zor-slapdAdminDN", nullptr, 0, 0, 0, single),
    pwType("zor-slapdAdminPW", nullptr, 0, 1, 46, single),
    intType("zor-slapdAuthIntegration", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdChangeLogMaxEntries", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdChangeLogMaxAge", nullptr, 0, 0, unlimited, single),
    enumType("zor-slapdConcurrentRW", enumBoolean, 0, 0, 0, single),
    intType("zor-slapdDbConnections", nullptr, 0, 0, unlimited, single),
    cesType("zor-slapdDbInstance", nullptr, 0, 1, 8, single),
    cesType("zor-slapdDbName", nullptr, 0, 1, 8, single),
    cesType("zor-slapdDbUserID", nullptr, 0, 1, 8, single),
    pwType("zor-slapdDbUserPW", nullptr, 0, 1, 46, single),
    enumType("zor-slapdEnableEventNotification", enumBoolean, 0, 0, 0, single),
    pathType("zor-slapdErrorLog", nullptr, 0, 1, 4096, single),
    dcType("zor-slapdIpAddress", nullptr, 0, 0, 0, single),
    fileType("zor-slapdIncludeSchema", nullptr, 0, 1, 4096, multi),
    krbdnType("zor-slapdKrbAdminDN", nullptr, 0, 0, 0, single),
    enumType("zor-slapdKrbEnable", enumBoolean, 0, 0, 0, single),
    enumType("zor-slapdKrbIdentityMap", enumBoolean, 0, 0, 0, single),
    pathType("zor-slapdKrbKeyTab", nullptr, 0, 0, 4096, single),
    dcType("zor-slapdKrbRealm", nullptr, 0, 0, 0, single),
    dcType("zor-slapdLdapCrlHost", nullptr, 0, 0, 0, single),
    pwType("zor-slapdLdapCrlPassword", nullptr, 0, 1, 46, single),
    intType("zor-slapdLdapCrlPort", nullptr, 0, 1, 65535, single),
    dnType("zor-slapdLdapCrlUser", nullptr, 0, 0, 0, single),
    enumType("zor-slapdLogMessages", enumBoolean, 0, 0, 0, single),
    dnType("zor-slapdMasterDN", nullptr, 0, 0, 0, single),
    pwType("zor-slapdMasterPW", nullptr, 0, 1, 46, single),
    urlType("zor-slapdMasterReferral", urlLdap, 0, 0, 0, single),
    intType("zor-slapdMaxEventsPerConnection", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdMaxEventsTotal", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdMaxNumOfTransactions", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdMaxOpPerTransaction", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdMaxTimeLimitOfTransactions", nullptr, 0, 0, unlimited, single),
    dnType("zor-slapdPeerDN", nullptr, 0, 0, 0, single),
    pwType("zor-slapdPeerPW", nullptr, 0, 1, 46, single),
    pluginType("zor-slapdPlugin", nullptr, 0, 0, 0, multi),
    intType("zor-slapdPort", nullptr, 0, 1, 65535, single),
    enumType("zor-slapdPwEncryption", enumPwEncryption, 0, 0, 0, single),
    enumType("zor-slapdReadOnly", enumBoolean, 0, 0, 0, single),
    urlType("zor-slapdReferral", urlLdap, 0, 0, 0, multi),
    fileType("zor-slapdSchemaAdditions", nullptr, 0, 1, 4096, single),
    enumType("zor-slapdSchemaCheck", enumSchemaCheck, 0, 0, 0, single),
    intType("zor-slapdSecurePort", nullptr, 0, 1, 65535, single),
    enumType("zor-slapdSecurity", enumSecurity, 0, 0, 0, single),
    envType("zor-slapdSetenv", nullptr, 0, 0, 0, multi),
    intType("zor-slapdSizeLimit", nullptr, 0, 0, unlimited, single),
    enumType("zor-slapdSslAuth", enumSslAuth, 0, 0, 0, single),
    cesType("zor-slapdSslCertificate", nullptr, 0, 0, 0, single),
    maskType("zor-slapdSslCipherSpecs", nullptr, 0x3F00, 0, 0, single),
    pathType("zor-slapdSslKeyDatabase", nullptr, 0, 0, 4096, single),
    pwType("zor-slapdSslKeyDatabasePW", nullptr, 0, 1, 46, single),
    dnType("zor-slapdSuffix", nullptr, 0, 1, 0, multi),
    oidType("zor-slapdSupportedACIMechanisms", oidACI, 0, 0, 0, single),
    enumType("zor-slapdSysLogLevel", enumSysLogLevel, 0, 0, 0, single),
    intType("zor-slapdTimeLimit", nullptr, 0, 0, unlimited, single),
    enumType("zor-slapdTransactionEnable", enumBoolean, 0, 0, 0, single),
    enumType("zor-slapdUseProcessIdPw", enumBoolean, 0, 0, 0, single),
    enumType("zor-slapdSortSrchAllowNonAdmin", enumBoolean, 0, 0, 0, single),
    enumType("zor-slapdPagedResAllowNonAdmin", enumBoolean, 0, 0, 0, single),
    intType("zor-slapdSortKeyLimit", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdPagedResLmt", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdIdleTimeOut", nullptr, 0, 0, unlimited, single),
    cisType("zor-slapdVersion", nullptr, 0, 0, 0, single),
    enumType("zor-slapdACLCache", enumBoolean, 0, 0, 0, single),
    intType("zor-slapdACLCacheSize", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdEntryCacheSize", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdFilterCacheBypassLimit", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdFilterCacheSize", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdWorkers", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdDB2CP", nullptr, 0, 0, unlimited, single),
    cesType("zor-slapdServerID", nullptr, 0, 0, 1024, single),
    intType("zor-slapdReplDBConns", nullptr, 0, 0, unlimited, single),
    pathType("zor-slapdCLIErrors", nullptr, 0, 1, 4096, single),
    pathType("zor-slapdBulkloadErrors", nullptr, 0, 1, 4096, single),
    cisType("zor-slapdSslCipherSpec", nullptr, 0, 0, 0, single),
    enumType("zor-slapdSslFIPSModeEnabled", enumBoolean, 0, 0, 0, single),
    intType("zor-slapdMaxPendingChangesDisplayed", nullptr, 0, 0, unlimited, single),
    cisType("zor-slapdSupportedWebAdmVersion", nullptr, 0, 0, 0, single),
    dnType("zor-slapdReplicaSubtree", nullptr, 0, 0, 0, single),
    enumType("zor-slapdDerefAliases", enumDerefAliases, 0, 0, 0, single),
    enumType("zor-slapdAdminGroupEnabled", enumBoolean, 0, 0, 0, single),
    enumType("zor-slapdAllowAnon", enumBoolean, 0, 0, 0, single),
    intType("zor-slapdAnonReapingThreshold", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdBoundReapingThreshold", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdAllReapingThreshold", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdIdleTimeOut", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdWriteTimeout", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdESizeThreshold", nullptr, 0, 0, unlimited, single),
    intType("zor-slapdETimeThreshold", nullptr, 0, 0, unlimited, single),
    enumType("zor-slapdEThreadEnable", enumBoolean, 0, 0, 0, single),
    enumType("zor-slapdEThreadActivate", enumETStatCond, 0, 0, 0, single),
    cisType("zor-slapdDigestAdminUser", nullptr, 0, 0, 0, single),
    enumType("zor-slapdStartupTraceEnabled", enumBoolean, 0, 0, 0, single),
    pathType("zor-slapdTraceMessageLog", nullptr, 0, 1, 4096, single),
    cisType("zor-slapdTraceMessageLevel", nullptr, 0, 0, 0, single),
    intType("zor-slapdCachedAttributeSize", nullptr, 0, 0, unlimited, single),
    cisType("zor-slapdCachedAttribute", nullptr, 0, 0, 0, multi),
    enumType("zor-audit", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditAdd", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditAttributesOnGroupEvalOp", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditBind", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditCompare", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditDelete", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditExtOp", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditExtOpEvent", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditFailedOpOnly", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditGroupOnGroupControl", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditModify", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditModifyDN", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditSearch", enumBoolean, 0, 0, 0, single),
    enumType("zor-auditUnBind", enumBoolean, 0, 0, 0, single),
    intType("zor-auditVersion", nullptr, 0, 1, 65535, single),
};
// clang-format on

constexpr std::size_t definitionCount = std::size(definitions);
static_assert(definitionCount == 116);

constexpr char asciiLower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

constexpr bool nameLess(const _AttrType& left, const _AttrType& right)
{
    const char* a = left.name;
    const char* b = right.name;
    while (*a != '\0' && asciiLower(*a) == asciiLower(*b)) {
        ++a;
        ++b;
    }
    return asciiLower(*a) < asciiLower(*b);
}

constexpr auto sorted = [] {
    std::array<Definition, definitionCount> rows{};
    std::copy(std::begin(definitions), std::end(definitions), rows.begin());
    std::sort(rows.begin(), rows.end(),
              [](const Definition& left, const Definition& right) { return nameLess(left.type, right.type); });
    return rows;
}();

constexpr auto catalogue = [] {
    std::array<_AttrType, definitionCount + 1> records{};
    std::transform(sorted.begin(), sorted.end(), records.begin(), [](const Definition& row) { return row.type; });
    records.back() = cesType(nullptr, nullptr, 0, 0, 0, multi).type;
    return records;
}();

// ---- The hash table of the names: each name alone in its slot, so a look-up compares once ----

constexpr std::size_t wordSize = 8;

/// Eight characters of a name as a number. A fixed count of bytes compiles to one load.
constexpr std::uint64_t word(std::string_view name, std::size_t position)
{
    const char* const start = name.data() + position;
    std::uint64_t number = 0;
    for (std::size_t byte = 0; byte < wordSize; ++byte) {
        number |= static_cast<std::uint64_t>(static_cast<unsigned char>(start[byte])) << (8 * byte);
    }
    return number;
}

/// What is hashed of a name: its length, its last eight characters and the eight in its middle, which no two names
/// have in common. The bit that tells the letter cases of ASCII apart is set in each; what else that makes alike,
/// the comparison tells apart.
constexpr std::uint64_t digest(std::string_view name)
{
    constexpr std::uint64_t caseBits = 0x2020202020202020U;
    if (name.size() >= wordSize) {
        const std::size_t last = name.size() - wordSize;
        return (word(name, last) | caseBits) + 3 * (word(name, last / 2) | caseBits) + name.size();
    }
    std::uint64_t number = 0;
    for (const char character : name) {
        number = number << 8 | static_cast<unsigned char>(character);
    }
    return (number | caseBits) + name.size();
}

struct Slot
{
    std::uint8_t length = 0; // of the name; 0 for a slot without one
    std::uint8_t record = 0; // index of its record
};

struct HashTable
{
    static constexpr unsigned indexBits = 10;

    std::uint64_t multiplier = 0;
    std::size_t names = 0;
    std::array<Slot, std::size_t{1} << indexBits> slots{};

    constexpr std::size_t indexOf(std::uint64_t nameDigest) const
    {
        return static_cast<std::size_t>(nameDigest * multiplier >> (64 - indexBits));
    }
};

/// The record that bisection of the whole array finds. Of two records of one name it settles which one look-ups give.
constexpr std::size_t bisected(const _AttrType& wanted)
{
    std::size_t low = 0;
    std::size_t high = definitionCount;
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (nameLess(catalogue[middle], wanted)) {
            low = middle + 1;
        } else if (nameLess(wanted, catalogue[middle])) {
            high = middle;
        } else {
            return middle;
        }
    }
    return definitionCount;
}

constexpr auto hashTable = [] {
    HashTable table;
    std::array<std::uint8_t, definitionCount> records{};
    std::array<std::uint64_t, definitionCount> digests{};
    for (std::size_t index = 0; index < definitionCount; ++index) {
        if (bisected(catalogue[index]) == index) {
            records[table.names] = static_cast<std::uint8_t>(index);
            digests[table.names] = digest(catalogue[index].name);
            ++table.names;
        }
    }
    // Multipliers are tried until one parts all names; without one this does not compile. A slot remembers the last
    // attempt that took it, which saves clearing them.
    std::array<std::uint32_t, std::size_t{1} << HashTable::indexBits> takenBy{};
    std::size_t placed = 0;
    for (std::uint32_t attempt = 1; placed < table.names; ++attempt) {
        table.multiplier = table.multiplier * 6364136223846793005U + 1442695040888963407U;
        for (placed = 0; placed < table.names; ++placed) {
            std::uint32_t& taken = takenBy[table.indexOf(digests[placed])];
            if (taken == attempt) {
                break;
            }
            taken = attempt;
        }
    }
    for (std::size_t name = 0; name < table.names; ++name) {
        const std::size_t length = std::string_view(catalogue[records[name]].name).size();
        table.slots[table.indexOf(digests[name])] = {static_cast<std::uint8_t>(length), records[name]};
    }
    return table;
}();

static_assert(hashTable.names == definitionCount - 1, "zor-slapdIdleTimeOut alone stands twice");

/// True when the slot's name and this one, which has no NUL, are equal for strcasecmp.
bool holds(Slot slot, std::string_view name)
{
    if (slot.length == 0 || slot.length != name.size()) {
        return false;
    }
    const char* const known = attrMapArray[slot.record].name;
    // Names mostly come as the catalogue spells them.
    return std::memcmp(known, name.data(), name.size()) == 0 || strncasecmp(known, name.data(), name.size()) == 0;
}

/// The record whose name strcasecmp calls equal to this one, read up to its first NUL; null if there is none.
///
/// strcasecmp folds as the process locale does, the table as ASCII does. The two part in Turkish locales, where "I"
/// is not the capital of "i", and where a byte beyond ASCII may be. So a hit is compared as strcasecmp compares;
/// and a miss is the last word only for a name of ASCII alone, since no locale makes two characters of ASCII alike
/// that are not the two cases of one letter. Other names are held against each one of the catalogue.
const _AttrType* recordOf(std::string_view name)
{
    const Slot slot = hashTable.slots[hashTable.indexOf(digest(name))];
    if (holds(slot, name)) {
        return &attrMapArray[slot.record];
    }
    if (veltor::detail::isPlainAscii(name)) {
        return nullptr;
    }
    if (const std::size_t end = name.find('\0'); end != std::string_view::npos) {
        return recordOf(name.substr(0, end));
    }
    const auto place = std::find_if(hashTable.slots.begin(), hashTable.slots.end(),
                                    [&](Slot candidate) { return holds(candidate, name); });
    return place != hashTable.slots.end() ? &attrMapArray[place->record] : nullptr;
}

} // namespace

constinit const std::array<_AttrType, 117> attrMapArray = catalogue;
constinit const _AttrType* const attrMap = attrMapArray.data();
constinit const std::array<veltor::detail::NamedType, 115> veltor::detail::namedTypes = [] {
    std::array<NamedType, 115> types{};
    std::size_t names = 0;
    for (std::size_t index = 0; index < definitionCount; ++index) {
        // Of two records of one name the one that look-ups give.
        if (bisected(catalogue[index]) == index) {
            types[names++] = {&attrMapArray[index], sorted[index].syntax};
        }
    }
    return types;
}();
constinit int numAttrs = 0;
constinit const _AttrType* defaultAttrType = nullptr;

void initAttrMap()
{
    // A static's initialisation runs once, also when two threads come first together.
    [[maybe_unused]] static const bool ready = [] {
        numAttrs = definitionCount;
        defaultAttrType = &attrMapArray.back();
        return true;
    }();
}

const _AttrType* searchAttrMap(const char* name, int lo, int hi)
{
    const _AttrType* const found = name != nullptr ? recordOf(name) : nullptr;
    if (found == nullptr) {
        return nullptr;
    }
    // Records of one name stand side by side.
    const auto index = static_cast<int>(found - attrMap);
    for (const int candidate : {index, index - 1, index + 1}) {
        if (candidate >= std::max(lo, 0) && candidate < std::min(hi, static_cast<int>(definitionCount)) &&
            strcasecmp(attrMap[candidate].name, found->name) == 0) {
            return &attrMap[candidate];
        }
    }
    return nullptr;
}

const _AttrType* getAttrType(const char* name)
{
    return veltor::detail::attrTypeOf(name != nullptr ? std::string_view(name) : std::string_view());
}

const _AttrType* veltor::detail::attrTypeOf(std::string_view name)
{
    initAttrMap();
    const _AttrType* const found = recordOf(name);
    return found != nullptr ? found : &attrMapArray.back();
}
