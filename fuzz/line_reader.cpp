// The line reader: the slow road from a stream, the slow road from memory and the fast one, which lends plain lines,
// read the same lines, in a locale of one byte for a character and in one of several.
#include "LDIF_Line.h"
#include "fuzz.h"

#include <algorithm>
#include <sstream>

using namespace veltor::fuzz;
using veltor::detail::LineReader;
using veltor::detail::PlainLine;

namespace {

std::string told(const LDIF_Line& line)
{
    return std::to_string(line.type) + " line " + std::to_string(line.lineNumber) + (line.valid ? " [" : " invalid [") +
           line.name + "] [" + line.value + "]";
}

/// What a caller of LineReader reads who takes what is lent and asks for the rest.
LDIF_Line nextOnTheFastRoad(LineReader& reader)
{
    LDIF_Line line;
    PlainLine plain;
    const std::size_t before = reader.position();
    if (reader.nextPlain(plain)) {
        require(reader.position() > before, "a lent line takes something off the text");
        return plain.line();
    }
    require(reader.position() == before, "where nothing is lent nothing is read");
    reader.next(line);
    return line;
}

void readAlong(std::string_view text)
{
    std::istringstream stream{std::string(text)};
    LineReader slow(text);
    LineReader fast(text);
    const auto most = std::count(text.begin(), text.end(), '\n') + 2;
    int number = 0;
    for (int calls = 0;; ++calls) {
        require(calls <= most, "every line but the end takes something off the text");
        LDIF_Line expected;
        LDIF_Line fromMemory;
        LDIF_Line lent;
        const auto failure = failureOf([&] { number = expected.next(stream, number); });
        const auto slowFailure = failureOf([&] { slow.next(fromMemory); });
        const auto fastFailure = failureOf([&] { lent = nextOnTheFastRoad(fast); });
        requireSame("stream and memory fail alike", reasonOf(failure), reasonOf(slowFailure));
        requireSame("both roads fail alike", reasonOf(failure), reasonOf(fastFailure));
        require(slow.lineNumber() == fast.lineNumber(), "both roads count alike");
        require(slow.position() == fast.position(), "both roads stand at the same place");
        if (failure) {
            return;
        }
        requireSame("stream and memory read the same line", told(expected), told(fromMemory));
        requireSame("both roads read the same line", told(expected), told(lent));
        require(number == fast.lineNumber(), "stream and memory count alike");
        if (expected.type == LDIF_Line::endOfFile) {
            return;
        }
        requireSame("kept lines are the same", expected.str(), lent.str());
        if (expected.type == LDIF_Line::attribute) {
            // A load does this with what it can't use.
            expected.changeToInvalidAttr();
            lent.changeToInvalidAttr();
            requireSame("kept lines are the same", expected.str(), lent.str());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (const char* const locale : {"C.UTF-8", "C"}) {
        useLocale(locale);
        readAlong(textOf(data, size));
    }
    return 0;
}
