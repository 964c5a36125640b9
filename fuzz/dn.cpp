// The DN parser: a DN that can be printed reads back as the same DN; the short road through plain ASCII, the long one
// through wide characters and the one with remembered ancestors agree; the front of a DN is its last RDN.
#include "LDIF_DN.h"
#include "fuzz.h"

#include <deque>
#include <vector>

using namespace veltor::fuzz;
using veltor::detail::DnMemory;
using veltor::detail::DnPrinter;

namespace {

std::string told(const LDIF_RDN& rdn)
{
    std::string text = "/";
    for (const LDIF_RDN_pair& pair : rdn) {
        text += " [" + pair.first + "]=[" + pair.second + "]" + std::to_string(pair.second.form);
    }
    return text + "\n";
}

std::string told(const LDIF_DN& dn)
{
    std::string text;
    for (const LDIF_RDN& rdn : dn) {
        text += told(rdn);
    }
    return text;
}

/// Parses a text into a DN. What fails to be one fails as the syntax or the locale demands.
std::optional<LDIF_Exception> parsed(LDIF_DN& dn, std::string_view text)
{
    auto failure = failureOf([&] { veltor::detail::parse(dn, text); });
    if (failure) {
        const bool isSyntax = failure->ldapErr == 34 && failure->extErr >= 1011 && failure->extErr <= 1014;
        const bool isLocale = failure->ldapErr == 162 && failure->extErr == 162;
        require(isSyntax || isLocale, "a DN is refused with its own codes", reasonOf(failure));
    }
    return failure;
}

/// What the printed form can't say: see the tests of the parser and of the round trip for each.
enum class Printed { same, different, refused };

Printed printed(const LDIF_RDN_value& value)
{
    if (value.empty()) {
        return Printed::refused;
    }
    if (value.form == LDIF_RDN_value::binary) {
        return Printed::same;
    }
    std::wstring wide;
    if (failureOf([&] { wide = multibyte2wide(value); })) {
        // Bytes that are no text: a plain value is not printed, a quoted one not read.
        return value.form == LDIF_RDN_value::plain ? Printed::refused : Printed::different;
    }
    if (value.find('\0') != std::string::npos) {
        return Printed::different;
    }
    if (value.form == LDIF_RDN_value::quoted) {
        return Printed::same;
    }
    const auto isWideBlank = [](wchar_t character) { return character > 0x7F && w_my_isspace(character); };
    for (const wchar_t character : wide) {
        if (isWideBlank(character)) {
            return Printed::different;
        }
    }
    return w_my_isparen(wide.front()) ? Printed::different : Printed::same;
}

Printed printed(const LDIF_DN& dn)
{
    auto outcome = Printed::same;
    for (const LDIF_RDN& rdn : dn) {
        for (const LDIF_RDN_pair& pair : rdn) {
            const Printed one = printed(pair.second);
            outcome = one == Printed::refused || outcome == Printed::same ? one : outcome;
            if (outcome == Printed::refused) {
                return outcome;
            }
        }
    }
    return outcome;
}

void printAndReadBack(const LDIF_DN& dn)
{
    std::string text;
    const auto failure = failureOf([&] { text = dn.str(); });
    const Printed expected = printed(dn);
    require(failure.has_value() == (expected == Printed::refused), "a DN prints unless a value of it can't", told(dn),
            reasonOf(failure));
    if (failure) {
        require(failure->extErr == 1013 || failure->extErr == 162, "a DN fails to print with its own codes",
                reasonOf(failure));
        require(veltor::detail::printable(dn).empty(), "a DN that can't be printed is empty in a report");
        return;
    }
    LDIF_DN again;
    const auto refused = failureOf([&] { again = cisString(text); });
    if (expected == Printed::different) {
        return;
    }
    require(!refused, "what was printed can be read", text, reasonOf(refused));
    requireSame("what was printed reads as the same DN", told(dn), told(again));
    requireSame("it prints the same again", text, again.str());
    require(dn == again && !(dn < again) && !(dn > again), "DNs of the same text are equal");
    require(veltor::detail::commonLevels(dn, again) == dn.size(), "equal DNs share all levels");
    require(dn.intersection(again).size() == dn.size() && (again -= dn).empty(), "equal DNs leave nothing over");
}

void parseAlone(std::string_view text)
{
    LDIF_DN dn;
    const auto failure = parsed(dn, text);

    // Behind an RDN beyond ASCII the same text takes the long road.
    LDIF_DN longRoad;
    const auto longFailure = parsed(longRoad, "o=\u00E4," + std::string(text));
    if (!failure && !dn.empty()) {
        require(!longFailure, "the long road reads what the short one reads", reasonOf(longFailure));
        longRoad.pop_back();
        requireSame("both roads read the same", told(dn), told(longRoad));
    } else {
        require(longFailure.has_value(), "the long road refuses what the short one refuses");
    }
    if (failure) {
        return;
    }
    if (!dn.empty()) {
        cisString front = std::string(text);
        require(!failureOf([&] {
            stripLeading(front);
            const LDIF_RDN rdn(front);
            requireSame("the front of a DN is its last RDN", told(rdn), told(dn.back()));
        }),
                "the front of a DN can be read");
    }
    printAndReadBack(dn);
}

/// Reads the lines as the DNs of a file that says its ancestors again and again.
void parseWithMemory(std::string_view text)
{
    struct Alone
    {
        std::string_view line;
        LDIF_DN dn;
        bool failed = false;
    };
    std::vector<Alone> lines;
    while (!text.empty()) {
        Alone& alone = lines.emplace_back();
        alone.line = takeUpTo(text, "\n");
        alone.failed = parsed(alone.dn, alone.line).has_value();
    }

    // What is lent or was printed last has to stay where it is.
    std::deque<LDIF_DN> remembered;
    DnMemory memory(0);
    DnPrinter printer;
    for (const Alone& alone : lines) {
        LDIF_DN& dn = remembered.emplace_back();
        require(parsed(dn, alone.line).has_value() == alone.failed, "a memory changes no outcome", alone.line);
        requireSame("a memory changes no DN", told(alone.dn), told(dn));
        if (alone.failed) {
            continue;
        }
        if (!dn.empty()) {
            memory.lend(alone.line, dn);
        }
        if (printed(dn) != Printed::refused) {
            requireSame("one after the other prints like each alone", dn.str(), printer.print(dn));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    useLocale("C.UTF-8");
    const auto text = textOf(data, size);
    parseAlone(text);
    if (text.find('\n') != std::string_view::npos) {
        parseWithMemory(text);
    }
    return 0;
}
