// Builds the texts of failures. Every message says where, what, what is allowed, whether anything was written
// and what to do next; the order of these is fixed here.
#include "failure.h"

#include "escape.h"
#include "names.h"
#include "secrets.h"
#include "word_list.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

// The password codec's code, for which LDAP client libraries have another number.
constexpr int decodingError = 84;

// For text that the character set of the locale does not have. The library's table of codes is without them.
constexpr int unreadableText = 162;
constexpr int unwritableText = 163;

const char* meaningOf(int code)
{
    return code == unreadableText || code == unwritableText ? "Not text in the character set" : cfg_err2string(code);
}

/// The error accessors, read once.
struct Report
{
    int ldap, code, line;
    long minimum, maximum, bits;
    std::string file, dn, attribute;
    std::string value; ///< as an error may quote it, "" for none
    std::size_t valueBytes;
    std::vector<std::string> allowed;
    std::string message; ///< the library's own, "" where it would quote a secret
};

std::string_view lentText(const char* text)
{
    return text == nullptr ? std::string_view() : std::string_view(text);
}

std::string orEmpty(const char* text)
{
    return std::string(lentText(text));
}

// The messages about a text that would not come back quote it.
std::string messageOf(void* handle, const std::string& attribute, std::string_view value)
{
    cfg_failure failure = {};
    if (isSecret(attribute, value) || cfg_failure_at(handle, 0, &failure) != LDAP_SUCCESS) {
        return {};
    }
    std::string message = failure.message;
    if (!message.empty() && message.front() >= 'A' && message.front() <= 'Z') {
        message.front() = static_cast<char>(message.front() - 'A' + 'a');
    }
    return message;
}

/// True for what a safe write refuses because the file would not give it back.
bool wouldNotComeBack(const Report& report)
{
    return report.code == report.ldap && report.line == 0 &&
           (report.ldap == LDAP_INVALID_SYNTAX || report.ldap == LDAP_INVALID_DN_SYNTAX ||
            report.ldap == LDAP_OBJECT_CLASS_VIOLATION);
}

Report readReport(void* handle, int ldap)
{
    const std::string attribute = orEmpty(cfg_get_attribute(handle));
    const std::string_view raw = lentText(cfg_get_value(handle));
    Report report{ldap,
                  cfg_get_exterror(handle),
                  cfg_get_file_line(handle),
                  cfg_get_minimum(handle),
                  cfg_get_maximum(handle),
                  cfg_get_bitmask(handle),
                  orEmpty(cfg_get_file_name(handle)),
                  std::string(shownDn(orEmpty(cfg_get_entry(handle)))),
                  std::string(shownName(attribute)),
                  // A refused password is not copied: nothing would wipe the copy.
                  raw.empty() ? std::string() : quotedUnlessSecret(attribute, raw),
                  raw.size(),
                  {},
                  messageOf(handle, attribute, raw)};
    const char* const* allowed = cfg_get_enum(handle);
    for (; allowed != nullptr && *allowed != nullptr; ++allowed) {
        report.allowed.emplace_back(*allowed);
    }
    return report;
}

// The value as a program may be told it.
std::optional<std::string> toldValue(const std::string& attribute, std::string_view value)
{
    if (value.empty() || isSecret(attribute, value)) {
        return std::nullopt;
    }
    return std::string(value);
}

std::vector<Cause> chainOf(void* handle)
{
    std::vector<Cause> chain;
    const int count = cfg_failure_count(handle);
    for (int index = 0; index < count; ++index) {
        cfg_failure record = {};
        if (cfg_failure_at(handle, index, &record) != LDAP_SUCCESS) {
            break;
        }
        chain.push_back({record.ldap, record.code, record.line, meaningOf(record.code), record.file,
                         std::string(shownDn(record.dn)), std::string(shownName(record.attribute)),
                         toldValue(record.attribute, lentText(record.value))});
    }
    return chain;
}

bool isSingleValued(const std::string& attribute)
{
    const std::optional<cfg_attr_type> type = attributeType(attribute);
    return type && type->single_valued != 0;
}

FailureFacts factsOf(void* handle, const Report& report)
{
    FailureFacts facts{.ldap = report.ldap,
                       .code = report.code,
                       .line = report.line,
                       .file = report.file,
                       .dn = report.dn,
                       .attribute = report.attribute,
                       .value = toldValue(orEmpty(cfg_get_attribute(handle)), lentText(cfg_get_value(handle))),
                       .allowed = report.allowed,
                       .chain = chainOf(handle)};
    if (report.minimum != 0 || report.maximum != 0) {
        facts.minimum = report.minimum;
        facts.maximum = report.maximum;
    }
    if (report.bits != 0) {
        facts.mask = report.bits;
    }
    if (!report.attribute.empty()) {
        // The library tells it of refused values alone.
        facts.single = isSingleValued(report.attribute);
    }
    return facts;
}

std::string hex(long number)
{
    char text[2 * sizeof number + 3];
    std::snprintf(text, sizeof text, "0x%lX", static_cast<unsigned long>(number));
    return text;
}

std::string rangeOf(const Report& report)
{
    return std::to_string(report.minimum) + " to " + std::to_string(report.maximum);
}

bool hasRange(const Report& report)
{
    return report.minimum != 0 || report.maximum != 0;
}

// The library keeps no reason of the system's, so the file is asked again. Nothing is read from it, and a fifo
// is not waited for.
int openingError(const std::string& file)
{
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        return errno;
    }
    ::close(descriptor);
    return 0;
}

std::string whyUnreadable(const std::string& file)
{
    const int error = openingError(file);
    return error == 0 ? "not a file that can be read" : std::strerror(error);
}

// What was found wrong with a value, with what its attribute allows.
std::string findingOf(const Report& report, const Circumstances& circumstances)
{
    if (wouldNotComeBack(report)) {
        return report.message.empty() ? "the value would not come back from the file" : report.message;
    }
    const std::string value = report.value.empty() ? "the text" : report.value;
    switch (report.code) {
    case CFG_ERR_INT_RANGE:
        return value + " is not within " + (hasRange(report) ? rangeOf(report) : "the range of 32-bit integers");
    case CFG_ERR_INT_INVALID:
        return value + " is not an integer" +
               (hasRange(report)   ? " (" + rangeOf(report) + ")"
                : report.bits != 0 ? " (a decimal number with bits of " + hex(report.bits) + ")"
                                   : "");
    case CFG_ERR_ENUM_INVALID:
        return value + " is not one of: " + joined(report.allowed);
    case CFG_ERR_LENGTH_RANGE:
        return "a text of " + std::to_string(report.valueBytes) + " bytes; " + rangeOf(report) + " are allowed";
    case CFG_ERR_BITMASK:
        return value + " has bits outside " + hex(report.bits);
    case CFG_ERR_NOT_IN_OBJECTCLASS:
        // The one rule of this kind that there is. A second version or charset line ends up here as well.
        return "this line is in no entry: a blank line ends one, and above the first there may only be one version and "
               "one charset";
    case CFG_ERR_DN_MISSING_ATTR:
    case CFG_ERR_DN_ATTR_INVALID:
    case CFG_ERR_DN_MISSING_VALUE:
    case CFG_ERR_DN_VALUE_INVALID:
        return value + " is not a DN";
    case CFG_ERR_FILE_NOT_FOUND:
    case CFG_ERR_FILE_OPEN:
        return whyUnreadable(report.file);
    default:
        break;
    }
    switch (report.ldap) {
    case LDAP_NO_SUCH_ATTRIBUTE:
        return "there is no such attribute";
    case LDAP_NOT_ALLOWED_ON_NONLEAF:
        return "there are entries below it; use veltor delete -r";
    case LDAP_INVALID_CREDENTIALS:
        return "wrong DN or password";
    case LDAP_NO_SUCH_OBJECT:
        return "there is no such entry";
    case LDAP_INVALID_DN_SYNTAX:
        return '"' + std::string(shownDn(circumstances.dn)) + "\" is not a DN";
    case LDAP_OTHER:
        return circumstances.stage == Stage::bind ? "can't be read as a configuration" : "unexpected failure";
    case CFG_LDAP_NO_MEMORY:
        return "out of memory";
    case decodingError:
        return "the stored password can't be decoded";
    case unreadableText:
    case unwritableText:
        return value + " is not text in the character set of the locale";
    default:
        return cfg_err2string(report.code);
    }
}

// A DN is its own mark, unless there is nothing of it.
std::string named(const std::string& dn)
{
    return dn.empty() ? "\"\"" : std::string(shownDn(dn));
}

std::string headlineOf(const Report& report, const Circumstances& circumstances)
{
    // Behind the load a bind compares credentials. A refusal there says nothing that would help an attacker.
    if (circumstances.stage == Stage::bind && report.line == 0) {
        if (report.ldap == LDAP_NO_SUCH_OBJECT) {
            return named(circumstances.dn) + ": there is no cn=Configuration entry that could name an administrator";
        }
        if (exitCodeFor(Stage::bind, report.ldap, 0) == ExitCode::authentication) {
            return named(circumstances.dn) + ": wrong DN or password";
        }
        if (report.ldap == LDAP_INVALID_DN_SYNTAX) {
            return "-D: \"" + std::string(shownDn(circumstances.dn)) + "\" is not a DN";
        }
    }
    // An entry that is not there is known from the call alone.
    const bool missing = report.ldap == LDAP_NO_SUCH_OBJECT && report.dn.empty();
    const std::string dn(missing ? shownDn(circumstances.dn) : report.dn);
    // A change is refused where it stands, on the command line if that is nowhere, unless it is the file that is in
    // the way.
    const std::string place = circumstances.place.text();
    const bool fileInTheWay = report.line > 0 || report.ldap == CFG_LDAP_CONNECT_ERROR ||
                              circumstances.stage != Stage::update || (place.empty() && dn.empty());
    std::string headline = fileInTheWay ? report.file : place;
    if (report.line > 0) {
        headline += ':' + std::to_string(report.line);
    }
    for (const std::string& part : {dn, report.attribute}) {
        headline += (part.empty() || headline.empty() ? "" : ": ") + part;
    }
    return headline + ": " + findingOf(report, circumstances);
}

constexpr const char* fileAdvice = "nothing was read; name the file with -F FILE or in VELTOR_FILE";
constexpr const char* bindAdvice = "nothing was printed; reading needs no password: leave out -D, -W, -y and -w";

// The step that helps with what was refused, behind the state of things.
std::string nextStep(const Report& report)
{
    const bool isSyntax = report.ldap == LDAP_INVALID_SYNTAX || report.ldap == LDAP_INVALID_DN_SYNTAX;
    if (isSyntax && attributeType(report.attribute)) {
        return explainAdvice(report.attribute);
    }
    switch (report.ldap) {
    case LDAP_INVALID_DN_SYNTAX:
        return "; a DN is like: cn=Front End, cn=Configuration";
    case LDAP_NO_SUCH_OBJECT:
        return "; list the DNs with: veltor search --format value dn";
    case LDAP_NO_SUCH_ATTRIBUTE:
        return "; see what is there with: veltor search -b DN -s base";
    case LDAP_NOT_ALLOWED_ON_NONLEAF:
        return {}; // The message names the option that helps.
    default:
        return "; see: veltor check";
    }
}

// The state of things and one next step.
std::string adviceFor(const Report& report, const Circumstances& circumstances)
{
    if (report.line > 0) {
        return "the file was not changed; nothing can read it, nor start from it, until this line is corrected; see: "
               "veltor check";
    }
    if (report.ldap == decodingError) {
        return circumstances.stage == Stage::bind ? "nothing was printed; nobody can bind until it is set anew"
                                                  : "nothing was printed; name the attributes to print to leave it out";
    }
    if (circumstances.stage == Stage::bind) {
        if (exitCodeFor(Stage::bind, report.ldap, 0) == ExitCode::file) {
            return fileAdvice;
        }
        return circumstances.state.empty() ? bindAdvice : circumstances.state;
    }
    return "nothing was printed" + nextStep(report);
}

} // namespace

std::string SourcePlace::text() const
{
    return line == 0 ? std::string() : name + ':' + std::to_string(line) + ':' + std::to_string(column);
}

Failure::Failure(ExitCode exit, std::string headline, std::vector<std::string> details, FailureFacts facts)
    : exit_(exit), headline_(std::move(headline)), details_(std::move(details)), facts_(std::move(facts))
{
}

std::string Failure::message(std::string_view errorWord) const
{
    std::string message = "veltor: " + std::string(errorWord) + ": " + escaped(headline_) + '\n';
    for (const std::string& detail : details_) {
        message += "  " + escaped(detail) + '\n';
    }
    return message;
}

std::string Failure::causes() const
{
    std::string causes;
    for (const Cause& cause : facts_.chain) {
        std::string where = cause.file;
        where += cause.line > 0 ? ':' + std::to_string(cause.line) : "";
        for (const std::string& part : {cause.dn, cause.attribute}) {
            where += part.empty() || where.empty() ? part : ": " + part;
        }
        causes += "  cause: " + escaped(where) + (where.empty() ? "" : ": ") + codesOf(cause.ldap, cause.code) + '\n';
    }
    return causes;
}

FailureFacts factsAbout(const std::string& dn, const std::string& attribute, std::string_view value)
{
    FailureFacts facts{.dn = std::string(shownDn(dn)), .value = toldValue(attribute, value)};
    if (const std::optional<cfg_attr_type> type = attributeType(attribute)) {
        facts.single = type->single_valued != 0;
        if (type->minimum != 0 || type->maximum != 0) {
            facts.minimum = type->minimum;
            facts.maximum = type->maximum;
        }
        if (type->bitmask != 0) {
            facts.mask = type->bitmask;
        }
        for (const char* const* word = type->enum_values; word != nullptr && *word != nullptr; ++word) {
            facts.allowed.emplace_back(*word);
        }
    }
    facts.attribute = shownName(attribute);
    return facts;
}

FailureFacts keptFacts(void* handle, int code, const std::string& file)
{
    FailureFacts facts = factsOf(handle, readReport(handle, code));
    facts.file = file;
    return facts;
}

std::string codesOf(int ldap, int code)
{
    std::string codes = "result " + std::to_string(ldap) + " (" + meaningOf(ldap) + ")";
    if (code != ldap && code != 0) {
        codes += ", code " + std::to_string(code) + " (" + meaningOf(code) + ")";
    }
    return codes;
}

Failure libraryFailure(void* handle, int code, const Circumstances& circumstances)
{
    const Report report = readReport(handle, code);
    std::vector<std::string> details{codesOf(report.ldap, report.code)};
    if (circumstances.stage != Stage::update || report.line > 0) {
        details.push_back(adviceFor(report, circumstances));
    }
    if (circumstances.stage == Stage::update) {
        details.push_back(circumstances.state + (report.line > 0 ? "" : nextStep(report)));
    }
    FailureFacts facts = factsOf(handle, report);
    facts.source = circumstances.place;
    if (circumstances.stage != Stage::bind && report.line == 0 && facts.dn.empty()) {
        facts.dn = shownDn(circumstances.dn);
    }
    return {exitCodeFor(circumstances.stage, report.ldap, report.line), headlineOf(report, circumstances),
            std::move(details), std::move(facts)};
}

std::optional<Failure> unreadableFile(const std::string& file, const std::string& state, const std::string& step)
{
    struct stat status = {};
    const bool missing = ::stat(file.c_str(), &status) != 0;
    // A pipe that is opened and closed loses its writer.
    const int error = missing ? errno : S_ISFIFO(status.st_mode) ? 0 : openingError(file);
    if (error == 0) {
        return std::nullopt;
    }
    const int code = missing ? CFG_ERR_FILE_NOT_FOUND : CFG_ERR_FILE_OPEN;
    const bool forbidden = error == EACCES || error == EPERM;
    return Failure(ExitCode::file, file + ": " + std::strerror(error),
                   {codesOf(CFG_LDAP_CONNECT_ERROR, code),
                    state + "; " + (forbidden ? "run it as root or as the owner of the file" : step)},
                   {.ldap = CFG_LDAP_CONNECT_ERROR, .code = code, .file = file});
}

Failure wrongCredentials(const std::string& dn, std::string_view reason)
{
    return {ExitCode::authentication,
            named(dn) + ": wrong DN or password",
            {codesOf(LDAP_INVALID_CREDENTIALS, 0), "nothing was done; " + std::string(reason)},
            {.ldap = LDAP_INVALID_CREDENTIALS, .code = LDAP_INVALID_CREDENTIALS, .dn = std::string(shownDn(dn))}};
}

void warn(std::string_view text)
{
    std::fputs(("veltor: warning: " + escaped(text) + '\n').c_str(), stderr);
}

void tellNote(std::string_view text)
{
    std::fputs(("veltor: " + escaped(text) + '\n').c_str(), stderr);
}

} // namespace veltor::tool
