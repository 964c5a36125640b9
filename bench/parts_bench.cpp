// The parts that a load, a search, a change and a write-back are made of, each on its own. "perItem" is the time
// of one line, name, DN, value, attribute or entry, so that a slow part shows by its name.
#include "generator.h"

#include "LDIF_AttrType.h"
#include "LDIF_Attribute.h"
#include "LDIF_Comment.h"
#include "LDIF_DN.h"
#include "LDIF_Entry.h"
#include "LDIF_Exception.h"
#include "LDIF_Line.h"
#include "LDIF_Search.h"
#include "LDIF_Util.h"
#include "LDIF_Value.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using benchmark::Counter;
using benchmark::DoNotOptimize;
using veltor::bench::Tree;

// A stride that is prime to every size used here: neighbours in time are no neighbours in the list.
constexpr std::size_t stride = 7919;

/// Ends a benchmark: so many items were handled in each iteration.
void countItems(benchmark::State& state, std::size_t perIteration)
{
    const auto items = static_cast<std::int64_t>(perIteration);
    state.SetItemsProcessed(state.iterations() * items);
    state.counters["perItem"] =
        Counter(static_cast<double>(items), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

/// Ends a benchmark that went through the text in each iteration.
void countBytes(benchmark::State& state, const std::string& text)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

std::size_t sizeOf(const benchmark::State& state)
{
    return static_cast<std::size_t>(state.range(0));
}

LDIF_DN parsed(const std::string& text)
{
    LDIF_DN dn;
    dn = cisString(text);
    return dn;
}

/// An attribute line as the reader gives it.
LDIF_Line attributeLine(const std::string& name, const std::string& value)
{
    LDIF_Line line;
    veltor::detail::LineReader(name + ": " + value + "\n").next(line);
    return line;
}

/// Reads a generated text into a tree, each entry with its comment and attributes.
void readInto(LDIF_Entry& root, const std::string& text)
{
    veltor::detail::LineReader reader(text);
    LDIF_Comment comment;
    std::optional<LDIF_Entry> entry;
    for (LDIF_Line line;;) {
        reader.next(line);
        if ((line.type == LDIF_Line::endOfFile || line.type == LDIF_Line::dn) && entry.has_value()) {
            root += *entry;
            entry.reset();
        }
        switch (line.type) {
        case LDIF_Line::endOfFile:
            return;
        case LDIF_Line::blankLine:
            break;
        case LDIF_Line::comment:
            comment.lines.push_back(line);
            break;
        case LDIF_Line::dn:
            entry.emplace(line, comment);
            comment.lines.clear();
            break;
        case LDIF_Line::attribute:
            (entry.has_value() ? *entry : root) += LDIF_Attribute(line, comment);
            comment.lines.clear();
            break;
        }
    }
}

/// One entry as it stands in a generated file.
LDIF_Entry generatedEntry()
{
    LDIF_Entry root;
    readInto(root, veltor::bench::configuration({.entries = 2, .tree = Tree::wide}));
    return *root.find(parsed(veltor::bench::entryDn(1, {.entries = 2, .tree = Tree::wide})));
}

// ---- Line reader ----

// The lines of a generated file in memory.
void lineReader(benchmark::State& state)
{
    const std::string text = veltor::bench::configuration({});
    std::size_t lines = 0;
    for (auto _ : state) {
        veltor::detail::LineReader reader(text);
        lines = 0;
        LDIF_Line line;
        for (reader.next(line); line.type != LDIF_Line::endOfFile; reader.next(line)) {
            DoNotOptimize(line.value.data());
            ++lines;
        }
    }
    countItems(state, lines);
    countBytes(state, text);
}
BENCHMARK(lineReader);

// One value that goes on over many lines: an item is a physical line.
void lineReaderContinuations(benchmark::State& state)
{
    std::string text = "cn: x\n";
    for (std::size_t line = 1; line < sizeOf(state); ++line) {
        text += " seventy bytes that belong to the value which began on the line before this one\n";
    }
    for (auto _ : state) {
        veltor::detail::LineReader reader(text);
        LDIF_Line line;
        reader.next(line);
        DoNotOptimize(line.value.data());
    }
    countItems(state, sizeOf(state));
    countBytes(state, text);
}
BENCHMARK(lineReaderContinuations)->Arg(2)->Arg(1000)->Arg(100000);

// The same lines from a stream.
void lineFromStream(benchmark::State& state)
{
    const std::string text = veltor::bench::configuration({});
    std::size_t lines = 0;
    for (auto _ : state) {
        std::istringstream stream(text);
        lines = 0;
        LDIF_Line line;
        for (int number = line.next(stream, 0); line.type != LDIF_Line::endOfFile; number = line.next(stream, number)) {
            DoNotOptimize(line.value.data());
            ++lines;
        }
    }
    countItems(state, lines);
    countBytes(state, text);
}
BENCHMARK(lineFromStream);

// ---- DNs ----

/// A DN of so many levels below the top entry.
std::string dnText(std::size_t levels, const std::string& last = "unit12345")
{
    std::string text = "cn=" + last;
    for (std::size_t level = 1; level < levels; ++level) {
        text += ", ou=group" + std::to_string(level);
    }
    return text + ", cn=Configuration";
}

void dnParse(benchmark::State& state, const std::string& text)
{
    const cisString given = text;
    for (auto _ : state) {
        LDIF_DN dn;
        dn = given;
        DoNotOptimize(dn);
    }
    countItems(state, 1);
}
BENCHMARK_CAPTURE(dnParse, twoLevels, dnText(1));
BENCHMARK_CAPTURE(dnParse, threeLevels, dnText(2));
BENCHMARK_CAPTURE(dnParse, sixteenLevels, dnText(15));
BENCHMARK_CAPTURE(dnParse, quotedAndEscaped, "cn=\"Smith, John\" + uid=a\\,b, ou=x\\2by, o=#6f7267");

// Both sides come from a text of their own, as a DN of the file and one that is asked for do.
void dnCompare(benchmark::State& state, const std::string& left, const std::string& right)
{
    const LDIF_DN leftDn = parsed(left);
    const LDIF_DN rightDn = parsed(right);
    for (auto _ : state) {
        DoNotOptimize(leftDn.compare(rightDn));
    }
    countItems(state, 1);
}
BENCHMARK_CAPTURE(dnCompare, equal, dnText(2), dnText(2));
BENCHMARK_CAPTURE(dnCompare, equalInOtherCase, dnText(2), "CN=UNIT12345, OU=GROUP1, CN=CONFIGURATION");
BENCHMARK_CAPTURE(dnCompare, lastDiffers, dnText(2), dnText(2, "unit12346"));
BENCHMARK_CAPTURE(dnCompare, ancestor, "ou=group1, cn=Configuration", dnText(2));
BENCHMARK_CAPTURE(dnCompare, equalSixteenLevels, dnText(15), dnText(15));
BENCHMARK_CAPTURE(dnCompare, lastDiffersSixteenLevels, dnText(15), dnText(15, "unit12346"));

void dnPrint(benchmark::State& state, const std::string& text)
{
    const LDIF_DN dn = parsed(text);
    for (auto _ : state) {
        DoNotOptimize(dn.str());
    }
    countItems(state, 1);
}
BENCHMARK_CAPTURE(dnPrint, threeLevels, dnText(2));
BENCHMARK_CAPTURE(dnPrint, sixteenLevels, dnText(15));

// ---- Catalogue ----

using Names = std::vector<std::string>;

/// The names that an entry of a generated file uses.
const Names knownNames = {"objectclass",       "zor-slapdDbName",   "zor-slapdErrorLog",       "zor-slapdIdleTimeOut",
                          "zor-slapdMasterDN", "zor-slapdMasterPW", "zor-slapdMasterReferral", "zor-slapdPort",
                          "zor-slapdReferral", "zor-slapdSecurity", "zor-slapdSetenv",         "cn",
                          "zor-slapdAdminDN"};
const Names otherCase = {"objectClass", "ZOR-SLAPDDBNAME", "zor-slapderrorlog", "Zor-SlapdIdleTimeout", "CN"};
const Names unknownNames = {"description", "zor-slapdPor", "zor-slapdPorts", "zor-slapdInvalidLine",
                            "o",           "zz-unheardOf"};

// An order that the processor can't learn, as the names of many entries have none.
Names drawn(const Names& names)
{
    std::mt19937 draw(5);
    Names order;
    for (std::size_t count = 0; count < 4096; ++count) {
        order.push_back(names[draw() % names.size()]);
    }
    return order;
}

void catalogue(benchmark::State& state, const Names& names)
{
    const Names order = drawn(names);
    for (auto _ : state) {
        for (const auto& name : order) {
            DoNotOptimize(getAttrType(name.c_str()));
        }
    }
    countItems(state, order.size());
}

// The same for names that stand in a line of the file and have no NUL of their own.
void catalogueBounded(benchmark::State& state, const Names& names)
{
    const Names order = drawn(names);
    for (auto _ : state) {
        for (const auto& name : order) {
            DoNotOptimize(veltor::detail::attrTypeOf(name));
        }
    }
    countItems(state, order.size());
}
BENCHMARK_CAPTURE(catalogueBounded, knownNames, knownNames);
BENCHMARK_CAPTURE(catalogueBounded, otherCase, otherCase);
BENCHMARK_CAPTURE(catalogueBounded, unknownNames, unknownNames);
BENCHMARK_CAPTURE(catalogue, knownNames, knownNames);
BENCHMARK_CAPTURE(catalogue, otherCase, otherCase);
BENCHMARK_CAPTURE(catalogue, unknownNames, unknownNames);

// ---- Values: validation by syntax ----

void valueFromText(benchmark::State& state, const char* attribute, const std::string& text)
{
    const _AttrType* const type = getAttrType(attribute);
    for (auto _ : state) {
        const LDIF_Value value(type, text.c_str());
        DoNotOptimize(value.attrType);
    }
    countItems(state, 1);
}
BENCHMARK_CAPTURE(valueFromText, ces, "charset", "ISO-8859-1");
BENCHMARK_CAPTURE(valueFromText, cesLong, "zor-slapdErrorLog", "/var/log/zorslapd/instance123456/error.log");
BENCHMARK_CAPTURE(valueFromText, cis, "objectclass", "zor-slapdConfigEntry");
BENCHMARK_CAPTURE(valueFromText, enumeration, "zor-slapdSecurity", "SSLTLS");
BENCHMARK_CAPTURE(valueFromText, integer, "zor-slapdPort", "38900");
BENCHMARK_CAPTURE(valueFromText, mask, "zor-slapdSslCipherSpecs", "12288");
BENCHMARK_CAPTURE(valueFromText, dn, "zor-slapdMasterDN", "cn=replicator123456, ou=services, o=example");
BENCHMARK_CAPTURE(valueFromText, pwEncoded, "zor-slapdMasterPW", ">1xIheSypXWzXARA<");
BENCHMARK_CAPTURE(valueFromText, pwClear, "zor-slapdMasterPW", "secret-of-12");

// ---- Value lists ----

/// An attribute of one syntax, and the text of its value at a position; texts at different positions differ.
struct Kind
{
    const char* attribute;
    std::string (*text)(std::size_t position);
};

constexpr Kind ofText{"zor-slapdSetenv", [](std::size_t position) { return "VARIABLE=" + std::to_string(position); }};
constexpr Kind ofInteger{"zor-slapdSizeLimit", [](std::size_t position) { return std::to_string(position); }};
constexpr Kind ofDn{"zor-slapdSuffix",
                    [](std::size_t position) { return "cn=unit" + std::to_string(position) + ", o=example"; }};
constexpr Kind ofPassword{"zor-slapdMasterPW",
                          [](std::size_t position) { return "secret" + std::to_string(position); }};

std::vector<std::string> texts(const Kind& kind, std::size_t count)
{
    std::vector<std::string> all;
    for (std::size_t position = 0; position < count; ++position) {
        all.push_back(kind.text(position));
    }
    return all;
}

// Values added one by one to a fresh list, which is released.
void valuesAdd(benchmark::State& state, const Kind& kind)
{
    const auto all = texts(kind, sizeOf(state));
    for (auto _ : state) {
        LDIF_Values values(kind.attribute);
        for (const auto& value : all) {
            values += value;
        }
        DoNotOptimize(values);
    }
    countItems(state, all.size());
}

// One value looked for in a list of so many.
void valuesFind(benchmark::State& state, const Kind& kind)
{
    // A list of 100,000 values is made once, however often the benchmark is called to find its time.
    static std::map<std::pair<std::string, std::size_t>, std::unique_ptr<LDIF_Values>> lists;
    const auto count = sizeOf(state);
    const auto all = texts(kind, count);
    auto& values = lists[{kind.attribute, count}];
    if (values == nullptr) {
        values = std::make_unique<LDIF_Values>(kind.attribute);
        for (const auto& value : all) {
            *values += value;
        }
    }
    std::size_t position = 0;
    for (auto _ : state) {
        position = (position + stride) % count;
        if (values->find(all[position]) == values->end()) {
            state.SkipWithError("value not found");
        }
    }
    countItems(state, 1);
}

void listSizes(benchmark::internal::Benchmark* bench)
{
    bench->Arg(1)->Arg(16)->Arg(1000)->Arg(100000);
}
BENCHMARK_CAPTURE(valuesAdd, text, ofText)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesAdd, integer, ofInteger)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesAdd, dn, ofDn)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesAdd, pw, ofPassword)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesFind, text, ofText)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesFind, integer, ofInteger)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesFind, dn, ofDn)->Apply(listSizes);
BENCHMARK_CAPTURE(valuesFind, pw, ofPassword)->Apply(listSizes);

// ---- Attribute lists ----

// An attribute from its line, released.
void attributeFromLine(benchmark::State& state)
{
    const LDIF_Line line = attributeLine("zor-slapdErrorLog", "/var/log/zorslapd/instance123456/error.log");
    const LDIF_Comment none;
    for (auto _ : state) {
        const LDIF_Attribute attribute(line, none);
        DoNotOptimize(attribute.values.type);
    }
    countItems(state, 1);
}
BENCHMARK(attributeFromLine);

enum class Order { sorted, shuffled };

// Attributes of different names added one by one to a fresh list, which is released.
void attributesAdd(benchmark::State& state, Order order)
{
    std::vector<LDIF_Attribute> all;
    for (std::size_t position = 0; position < sizeOf(state); ++position) {
        all.emplace_back("attribute" + std::to_string(1000000 + position), "value");
    }
    if (order == Order::shuffled) {
        std::shuffle(all.begin(), all.end(), std::mt19937(5));
    }
    for (auto _ : state) {
        LDIF_Attributes attributes;
        for (const auto& attribute : all) {
            attributes += attribute;
        }
        DoNotOptimize(attributes);
    }
    countItems(state, all.size());
}
BENCHMARK_CAPTURE(attributesAdd, inOrder, Order::sorted)->Arg(13)->Arg(1000);
BENCHMARK_CAPTURE(attributesAdd, shuffled, Order::shuffled)->Arg(13)->Arg(1000);

// ---- The tree ----

std::vector<LDIF_DN> dnsOf(std::size_t entries, Tree tree)
{
    std::vector<LDIF_DN> dns;
    for (std::size_t position = 0; position < entries; ++position) {
        dns.push_back(parsed(veltor::bench::entryDn(position, {.entries = entries, .tree = tree})));
    }
    return dns;
}

/// A tree of entries that have a DN and nothing else.
void plant(LDIF_Entry& root, const std::vector<LDIF_DN>& dns)
{
    for (const auto& dn : dns) {
        LDIF_Entry entry(dn);
        root += entry;
    }
}

// Entries without attributes made and inserted; the release of the tree is not counted.
void insert(benchmark::State& state, Tree tree)
{
    const auto dns = dnsOf(sizeOf(state), tree);
    for (auto _ : state) {
        auto root = std::make_unique<LDIF_Entry>();
        plant(*root, dns);
        state.PauseTiming();
        root.reset();
        state.ResumeTiming();
    }
    countItems(state, dns.size());
}

// One entry by its DN, which is parsed already.
void find(benchmark::State& state, Tree tree)
{
    const auto dns = dnsOf(sizeOf(state), tree);
    LDIF_Entry root;
    plant(root, dns);
    std::size_t position = 0;
    for (auto _ : state) {
        position = (position + stride) % dns.size();
        if (root.find(dns[position]) == nullptr) {
            state.SkipWithError("entry not found");
        }
    }
    countItems(state, 1);
}

// A tree of whole entries freed.
void release(benchmark::State& state, Tree tree)
{
    const std::string text = veltor::bench::configuration({.entries = sizeOf(state), .tree = tree});
    for (auto _ : state) {
        state.PauseTiming();
        auto root = std::make_unique<LDIF_Entry>();
        readInto(*root, text);
        state.ResumeTiming();
        root.reset();
    }
    countItems(state, sizeOf(state));
}

void treeSizes(benchmark::internal::Benchmark* bench)
{
    bench->Arg(1000)->Arg(100000);
}
BENCHMARK_CAPTURE(insert, wide, Tree::wide)->Apply(treeSizes);
BENCHMARK_CAPTURE(insert, deep, Tree::deep)->Apply(treeSizes);
BENCHMARK_CAPTURE(insert, mixed, Tree::mixed)->Apply(treeSizes);
BENCHMARK_CAPTURE(find, wide, Tree::wide)->Apply(treeSizes);
BENCHMARK_CAPTURE(find, deep, Tree::deep)->Apply(treeSizes);
BENCHMARK_CAPTURE(find, mixed, Tree::mixed)->Apply(treeSizes);
// A fixed number of rounds: the pauses take many times what is measured.
BENCHMARK_CAPTURE(release, wide, Tree::wide)->Arg(1000)->Iterations(50);
BENCHMARK_CAPTURE(release, wide, Tree::wide)->Arg(100000)->Iterations(3);
BENCHMARK_CAPTURE(release, deep, Tree::deep)->Arg(1000)->Iterations(50);
BENCHMARK_CAPTURE(release, deep, Tree::deep)->Arg(100000)->Iterations(3);
BENCHMARK_CAPTURE(release, mixed, Tree::mixed)->Arg(1000)->Iterations(50);
BENCHMARK_CAPTURE(release, mixed, Tree::mixed)->Arg(100000)->Iterations(3);

// ---- Filters ----

void filterMatch(benchmark::State& state, const std::string& text, bool expected)
{
    const LDIF_Entry entry = generatedEntry();
    LDIF_Filter filter;
    filter = text;
    for (auto _ : state) {
        if (filter.match(entry) != expected) {
            state.SkipWithError("filter gives the wrong answer");
        }
    }
    countItems(state, 1);
}
BENCHMARK_CAPTURE(filterMatch, presence, "zor-slapdPort", true);
BENCHMARK_CAPTURE(filterMatch, attributeAbsent, "description=x", false);
BENCHMARK_CAPTURE(filterMatch, integerDiffers, "zor-slapdPort=389", false);
BENCHMARK_CAPTURE(filterMatch, textEqual, "objectclass=ZOR-slapdConfigEntry", true);
BENCHMARK_CAPTURE(filterMatch, textDiffers, "zor-slapdSetenv=NONE=1", false);
BENCHMARK_CAPTURE(filterMatch, dnDiffers, "zor-slapdMasterDN=cn=replicator, ou=services, o=example", false);
BENCHMARK_CAPTURE(filterMatch, pwDiffers, "zor-slapdMasterPW=not-it", false);

// ---- Rendering ----

void renderEntry(benchmark::State& state)
{
    const LDIF_Entry entry = generatedEntry();
    for (auto _ : state) {
        DoNotOptimize(entry.str());
    }
    countItems(state, 1);
}
BENCHMARK(renderEntry);

void renderEntryToStream(benchmark::State& state)
{
    const LDIF_Entry entry = generatedEntry();
    std::ostringstream stream;
    for (auto _ : state) {
        stream.seekp(0);
        stream << entry;
        DoNotOptimize(stream);
    }
    countItems(state, 1);
}
BENCHMARK(renderEntryToStream);

// A whole store, the text released.
void renderStore(benchmark::State& state, Tree tree)
{
    LDIF_Entry root;
    readInto(root, veltor::bench::configuration({.entries = sizeOf(state), .tree = tree}));
    for (auto _ : state) {
        std::ostringstream stream;
        stream << root;
        DoNotOptimize(stream);
    }
    countItems(state, sizeOf(state));
}
BENCHMARK_CAPTURE(renderStore, wide, Tree::wide)->Apply(treeSizes);
BENCHMARK_CAPTURE(renderStore, deep, Tree::deep)->Apply(treeSizes);
BENCHMARK_CAPTURE(renderStore, mixed, Tree::mixed)->Apply(treeSizes);

// ---- The error path ----

// A line whose value its type refuses, kept as an invalid line, the way of a load.
void rejectedLine(benchmark::State& state, const char* name, const char* value)
{
    const LDIF_Line given = attributeLine(name, value);
    const LDIF_Comment none;
    for (auto _ : state) {
        LDIF_Line line = given;
        try {
            const LDIF_Attribute attribute(line, none);
            state.SkipWithError("line was accepted");
        } catch (const LDIF_Exception& failure) {
            DoNotOptimize(failure);
            line.changeToInvalidAttr();
        }
        const LDIF_Attribute kept(line, none);
        DoNotOptimize(kept.values.type);
    }
    countItems(state, 1);
}
BENCHMARK_CAPTURE(rejectedLine, integer, "zor-slapdPort", "ldap");
BENCHMARK_CAPTURE(rejectedLine, enumeration, "zor-slapdSecurity", "perhaps");
BENCHMARK_CAPTURE(rejectedLine, dn, "zor-slapdMasterDN", "cn=, o=example");

} // namespace

BENCHMARK_MAIN();
