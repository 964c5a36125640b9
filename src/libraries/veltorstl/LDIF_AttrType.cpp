// The catalogue of attribute types.
//
// The table below is the definition, in the order in which the types came to be; the array that look-ups search
// is sorted from it at compile time, so the first use costs nothing.
#include "LDIF_AttrType.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
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

// One maker for each syntax: a record uses the five functions of one.
#define VELTOR_SYNTAX(syntax)                                                                                          \
    constexpr _AttrType syntax##Type(const char* name, const char* const* enumValues, std::int32_t bitmask,            \
                                     std::int32_t min, std::int32_t max, bool singleValued)                            \
    {                                                                                                                  \
        return {name,                                                                                                  \
                syntax##Compare,                                                                                       \
                syntax##FromStr,                                                                                       \
                syntax##FromBin,                                                                                       \
                syntax##ToStr,                                                                                         \
                syntax##ToBin,                                                                                         \
                enumValues,                                                                                            \
                bitmask,                                                                                               \
                min,                                                                                                   \
                max,                                                                                                   \
                singleValued};                                                                                         \
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
constexpr _AttrType definitions[] = {
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
    intType("zor-auditVersion", nullptr, 0, 1, 65535, single),};
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

constexpr auto catalogue = [] {
    std::array<_AttrType, definitionCount + 1> records{};
    std::copy(std::begin(definitions), std::end(definitions), records.begin());
    std::sort(records.begin(), records.end() - 1, nameLess);
    records.back() = cesType(nullptr, nullptr, 0, 0, 0, multi);
    return records;
}();

} // namespace

constinit const std::array<_AttrType, 117> attrMapArray = catalogue;
constinit const _AttrType* const attrMap = attrMapArray.data();
constinit int numAttrs = 0;
constinit const _AttrType* defaultAttrType = nullptr;

void initAttrMap()
{
    // A static's initialisation runs once, also when two threads come first together.
    [[maybe_unused]] static const bool counted = [] {
        int count = 0;
        while (attrMapArray[static_cast<std::size_t>(count)].name != nullptr) {
            ++count;
        }
        numAttrs = count;
        defaultAttrType = &attrMapArray[static_cast<std::size_t>(count)];
        return true;
    }();
}

const _AttrType* searchAttrMap(const char* name, int lo, int hi)
{
    while (name != nullptr && lo < hi) {
        const int middle = lo + (hi - lo) / 2;
        const int order = strcasecmp(attrMap[middle].name, name);
        if (order == 0) {
            return &attrMap[middle];
        }
        if (order < 0) {
            lo = middle + 1;
        } else {
            hi = middle;
        }
    }
    return nullptr;
}

const _AttrType* getAttrType(const char* name)
{
    initAttrMap();
    const _AttrType* const found = searchAttrMap(name, 0, numAttrs);
    return found != nullptr ? found : defaultAttrType;
}
