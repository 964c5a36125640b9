// The check of a file. What it tells with severity 3 is exactly what makes a bind in never-write mode fail, and the
// first such finding has the line and the code of that failure. What it tells of rejected lines is what a load keeps.
// Every finding is of a kind that the header lists with that severity, and has one printable line to say.
#include "LDIF_Attribute.h"
#include "LDIF_Entry.h"
#include "LDIF_Line.h"
#include "disk.h"
#include "fuzz.h"
#include "load.h"
#include "support/findings.h"

#include "veltor/cfg.h"
#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cctype>
#include <cwchar>
#include <cwctype>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <ldap.h>

using namespace veltor::fuzz;
using veltor::detail::FileText;
using veltor::detail::Image;
using veltor::detail::LineReader;
using veltor::detail::TextUse;
using veltor::detail::TreeWalk;
using veltor::test::Finding;
using veltor::test::Findings;

namespace {

/// The severities of the kinds, as the comment in the header lists them.
std::map<std::string, int> listedKinds()
{
    std::ifstream header(VELTOR_ADMIN_HEADER);
    std::map<std::string, int> kinds;
    std::string line;
    int severity = 0;
    while (std::getline(header, line)) {
        constexpr std::string_view heading = " * Severity ";
        constexpr std::string_view row = " *   ";
        if (line.starts_with(heading)) {
            severity = line[heading.size()] - '0';
        } else if (line.starts_with(" */")) {
            severity = 0;
        } else if (severity != 0 && line.starts_with(row) && line.size() > row.size() && line[row.size()] != ' ') {
            kinds[line.substr(row.size(), line.find(' ', row.size()) - row.size())] = severity;
        }
    }
    // The words that everybody knows are among them: the comment still looks as it is read here.
    require(kinds["bad-dn"] == 3 && kinds["rejected-line"] == 2 && kinds["group-writable-folder"] == 1,
            "the header lists the kinds");
    return kinds;
}

struct Release
{
    void operator()(void* handle) const { cfg_unbind(handle); }
};
using Handle = std::unique_ptr<void, Release>;

/// How a bind in never-write mode ends.
struct Bind
{
    int code = 0; // as a finding tells it
    int line = 0;
    std::string dump;
};

Bind bindOf(const std::string& name)
{
    const Handle handle(cfg_init());
    require(handle != nullptr, "there is a handle");
    cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, name.c_str());
    require(cfg_set_write_mode(handle.get(), CFG_WRITE_NEVER) == 0, "the mode can be set");
    const int code = cfg_bind_s(handle.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE);
    if (code == 0) {
        return {};
    }
    const int libraryCode = cfg_get_exterror(handle.get());
    return {libraryCode != 0 ? libraryCode : code, cfg_get_file_line(handle.get()), cfg_dump_exception(handle.get())};
}

/// The check of a handle that is not bound.
/// @param most  where it is ended
Findings checked(const std::string& name, std::size_t most = static_cast<std::size_t>(-1))
{
    const Handle handle(cfg_init());
    require(handle != nullptr, "there is a handle");
    Findings findings(most);
    require(cfg_check_s(handle.get(), name.c_str(), Findings::take, &findings) == 0,
            "a file that can be read is checked");
    require(cfg_get_errno(handle.get()) == 0 && cfg_dump_exception(handle.get()) == nullptr,
            "a check that found something did not fail");
    return findings;
}

bool prints(const std::string& text)
{
    std::mbstate_t state = {};
    const char* place = text.c_str();
    const char* const end = place + text.size();
    while (place != end) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, place, static_cast<std::size_t>(end - place), &state);
        if (length == 0 || length > text.size() || std::iswprint(static_cast<std::wint_t>(character)) == 0) {
            return false;
        }
        place += length;
    }
    return true;
}

void requireSound(const Finding& finding, long lines, std::string_view text)
{
    static const auto kinds = listedKinds();
    const std::string all = finding.kind + ": " + finding.message;
    const auto kind = kinds.find(finding.kind);
    require(kind != kinds.end(), "the header lists the kind", text, all);
    require(kind->second == finding.severity, "it has the severity that the header says", text, all);
    require(finding.code > 0, "a finding has a code", text, all);
    require(finding.line >= 0 && finding.line <= lines, "the line of a finding is in the file", text, all);
    const bool isOfFile = finding.kind.ends_with("writable-file") || finding.kind.ends_with("writable-folder");
    require((finding.line == 0) == isOfFile, "a finding names its line", text, all);
    require(!finding.message.empty() && prints(finding.message), "a message is one printable line", text, all);
    require(finding.dn != "(null)" && finding.attribute != "(null)", "a text is empty where there is none", text, all);
}

std::string folded(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return text;
}

using Values = std::set<std::string>;

/// What a load keeps of the lines that it could not use.
Values keptBy(std::string_view text, TextUse use)
{
    FileText copy(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.data());
    copy.setSize(text.size());
    Image image;
    veltor::detail::load(copy, use, image, "fuzz");
    Values values;
    for (TreeWalk walk(image.root); walk.current() != nullptr; walk.next()) {
        for (const LDIF_Attribute& attribute : std::as_const(walk.current()->attributes)) {
            if (attribute.name == "zor-slapdInvalidLine") {
                for (const LDIF_Value& value : attribute.values) {
                    values.insert(folded(value.str()));
                }
            }
        }
    }
    return values;
}

/// What the line of a kept value is read as, again and again until nothing more is stripped from it.
std::string settled(std::string value)
{
    for (std::size_t before = value.size() + 1; value.size() < before;) {
        before = value.size();
        const std::string written = "zor-slapdInvalidLine: " + value + "\n";
        LDIF_Line line;
        LineReader(written).next(line);
        value = line.value;
    }
    return value;
}

/// The same by what the check tells.
Values keptByFindings(std::string_view text, const Findings& findings, TextUse use)
{
    std::set<int> rejected;
    std::set<int> kept;
    for (const Finding& finding : findings.all) {
        if (finding.kind == "rejected-line") {
            rejected.insert(finding.line);
        } else if (finding.kind == "kept-invalid-line") {
            kept.insert(finding.line);
        }
    }
    Values values;
    LineReader reader(text);
    LDIF_Line line;
    for (reader.next(line); line.type != LDIF_Line::endOfFile; reader.next(line)) {
        if (rejected.contains(line.lineNumber)) {
            line.changeToInvalidAttr();
            values.insert(folded(use == TextUse::settled ? settled(line.value) : line.value));
        } else if (kept.contains(line.lineNumber)) {
            values.insert(folded(line.value));
        }
    }
    return values;
}

std::string joined(const Values& values)
{
    std::string text;
    for (const std::string& value : values) {
        text += "[" + value + "]\n";
    }
    return text;
}

void lookAt(std::string_view text)
{
    const MemoryFile file(text);
    const Findings findings = checked(file.name());
    const Bind bind = bindOf(file.name());
    requireSame("neither a check nor a load in never-write mode writes", text, file.content());
    const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
    for (const Finding& finding : findings.all) {
        requireSound(finding, lines, text);
    }

    const auto first = std::find_if(findings.all.begin(), findings.all.end(),
                                    [](const Finding& finding) { return finding.severity == 3; });
    const std::string told = findings.dump();
    require((first != findings.all.end()) == (bind.code != 0), "what is told as an error is what ends a load",
            std::string(text), told + bind.dump);
    if (bind.code != 0) {
        require(first->line == bind.line && first->code == bind.code, "the first error is that of the load",
                std::string(text), told + bind.dump);
    } else {
        for (const TextUse use : {TextUse::settled, TextUse::usedUp}) {
            requireSame("what is told as rejected is what a load keeps", joined(keptByFindings(text, findings, use)),
                        joined(keptBy(text, use)));
        }
    }
    if (!findings.all.empty()) {
        const Findings cut = checked(file.name(), 1);
        require(cut.all.size() == 1 && cut.all.front().message == findings.all.front().message,
                "a callback ends the check", std::string(text), cut.dump());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (const char* const locale : {"C.UTF-8", "C"}) {
        // What cfg_init takes the locale from.
        setenv("LC_ALL", locale, 1);
        useLocale(locale);
        lookAt(textOf(data, size));
    }
    return 0;
}
