// Entries that are big in one respect, in two sizes: what is done with them may grow with the size and no faster.
#include "table.h"
#include "yardstick.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace veltor::bench {

namespace {

constexpr char bigDn[] = "cn=big, cn=Configuration";
// In proportion to the size, with room for what leaves the caches on the way up; the square of it would be 2.
constexpr double largestGrowth = 1.25;
constexpr unsigned patienceSeconds = 60;
constexpr unsigned quickPatienceSeconds = 10;
// A value that an index finds: the square root of the size would be 0.5.
constexpr double largestEqualityGrowth = 0.5;
constexpr double tooShortToJudge = 50e-6;
constexpr std::size_t step = 10;

struct Case
{
    const char* name;
    std::size_t size; // the larger one
    const char* attribute;
    std::string (*present)(std::size_t size);
    const char* absent;
    void (*write)(std::ostream& file, std::size_t size);
};

void writeValues(std::ostream& file, std::size_t size)
{
    for (std::size_t value = 0; value < size; ++value) {
        file << "zor-slapdSetenv: LDAP_VARIABLE_" << value << "=of the instance\n";
    }
}

void writeDns(std::ostream& file, std::size_t size)
{
    for (std::size_t value = 0; value < size; ++value) {
        file << "zor-slapdSuffix: ou=branch" << value << ", o=example\n";
    }
}

void writeReferrals(std::ostream& file)
{
    file << "zor-slapdReferral: ldap://east.example.com\nzor-slapdReferral: ldap://west.example.com\n";
}

void writeLongLine(std::ostream& file, std::size_t size)
{
    writeReferrals(file);
    file << "zor-slapdSetenv: LONG=";
    const std::string piece(1000, 'x');
    for (std::size_t written = 0; written < size; written += piece.size()) {
        file << piece;
    }
    file << '\n';
}

void writeComments(std::ostream& file, std::size_t size)
{
    for (std::size_t line = 0; line < size; ++line) {
        file << "# remark " << line << " on what is served here\n";
    }
}

std::string anyReferral(std::size_t)
{
    return "ldap://west.example.com";
}

const Case cases[] = {
    {"values, free text", 100'000, "zor-slapdSetenv",
     [](std::size_t size) { return "LDAP_VARIABLE_" + std::to_string(size - 1) + "=of the instance"; },
     "LDAP_VARIABLE=new", writeValues},
    {"values, DNs", 100'000, "zor-slapdSuffix",
     [](std::size_t size) { return "ou=branch" + std::to_string(size - 1) + ", o=example"; }, "ou=new, o=example",
     writeDns},
    {"bytes in one line", 100'000'000, "zor-slapdReferral", anyReferral, "ldap://north.example.com", writeLongLine},
    {"comment lines", 100'000, "zor-slapdReferral", anyReferral, "ldap://north.example.com",
     [](std::ostream& file, std::size_t size) {
         writeComments(file, size / 2); // above an attribute; the other half stands above the entry
         writeReferrals(file);
     }},
};

constexpr const char* parts[] = {"load", "equality", "copy", "flush", "add", "delete", "release"};

void writeFile(const Case& kind, std::size_t size, const std::string& path)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << "charset: ISO-8859-1\nversion: 1\n\ndn: cn=Configuration\ncn: Configuration\nobjectclass: top\n\n";
    if (std::string_view(kind.name) == "comment lines") {
        writeComments(file, size / 2);
    }
    file << "dn: " << bigDn << "\ncn: big\nobjectclass: top\n";
    kind.write(file, size);
    file << '\n';
}

std::vector<double> measure(const Yardstick& yardstick, const Case& kind, std::size_t size)
{
    const std::string path = yardstick.file("big.conf");
    std::vector<std::vector<double>> times(std::size(parts));
    const int runs = yardstick.quick ? 1 : 3;
    for (int round = 0; round < runs; ++round) {
        writeFile(kind, size, path); // the job changes it
        const Outcome result = runWell(
            {yardstick.program("bench_job"), "big", path, bigDn, kind.attribute, kind.present(size), kind.absent},
            {.cpuSeconds = yardstick.quick ? quickPatienceSeconds : patienceSeconds});
        for (std::size_t part = 0; part < std::size(parts); ++part) {
            times[part].push_back(numberNamed(result.output, parts[part]));
        }
    }
    std::filesystem::remove(path);
    std::vector<double> medians(times.size());
    std::transform(times.begin(), times.end(), medians.begin(), [](const auto& list) { return median(list); });
    return medians;
}

void compareSizes(Yardstick& yardstick, const Table& table, const Case& kind)
{
    const std::size_t small = kind.size / step;
    const std::vector<double> before = measure(yardstick, kind, small);
    const std::vector<double> after = measure(yardstick, kind, kind.size);
    for (std::size_t part = 0; part < std::size(parts); ++part) {
        const double growth =
            growthExponent(static_cast<double>(small), before[part], static_cast<double>(kind.size), after[part]);
        const bool judged = !(after[part] < tooShortToJudge);
        const double limit = std::string_view(parts[part]) == "equality" ? largestEqualityGrowth : largestGrowth;
        table.printRow({kind.name, shown(static_cast<double>(kind.size)), parts[part], shown(before[part] * 1e3, 3),
                        shown(after[part] * 1e3, 3), shown(growth, 2), judged ? shown(limit, 2) : "-",
                        judged ? yardstick.verdict(growth, limit) : ""});
    }
}

} // namespace

void measureBigEntries(Yardstick& yardstick)
{
    std::printf(
        "\nOne entry with very much in it: CPU time in ms at a tenth of the size and at the size, and the exponent "
        "of the growth.\nequality: a base search for one value; copy: a base search for everything.\n\n");
    const Table table({{"much of what", "", -17},
                       {"size", "", 11},
                       {"job", "", -8},
                       {"at 1/10", "ms", 9},
                       {"at size", "ms", 9},
                       {"growth", "", 6},
                       {"limit", "", 5},
                       {"", "", -4}});
    table.printHeading();
    for (const Case& kind : cases) {
        try {
            compareSizes(yardstick, table, kind);
        } catch (const std::runtime_error& failure) {
            yardstick.verdict(std::nan(""), largestGrowth);
            table.printRow({kind.name, shown(static_cast<double>(kind.size)), failure.what()});
        }
    }
}

} // namespace veltor::bench
