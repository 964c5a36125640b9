// Other readers of LDIF on the same entries, against our tool and our job as whole processes. A reader that is not
// installed is left out with a line that names its package.
#include "generator.h"
#include "table.h"
#include "yardstick.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace veltor::bench {

namespace {

constexpr unsigned patienceSeconds = 60;
constexpr std::size_t smallestJudged = 1000;
constexpr double atLeastFaster = 2.0;

struct Peer
{
    const char* name;
    const char* checks; ///< of what the library checks
    bool checksValues;
    const char* package;
    std::vector<std::string> probe; ///< succeeds when the reader is there
    std::vector<std::string> command;
    std::string proof; ///< printed by one that has read everything
};

std::string entriesText(std::size_t entries)
{
    return std::to_string(entries + 1) + " entries"; // with cn=Configuration
}

std::string slapadd()
{
    for (const char* const path : {"/usr/sbin/slapadd", "/usr/local/sbin/slapadd", "/sbin/slapadd"}) {
        if (access(path, X_OK) == 0) {
            return path;
        }
    }
    return "slapadd";
}

/// What slapadd needs: the catalogue as its schema, and a configuration that uses it.
std::string slapdConfiguration(const Yardstick& yardstick)
{
    const std::string schema = yardstick.file("catalogue.schema");
    const std::string database = yardstick.file("database");
    const std::string configuration = yardstick.file("slapd.conf");
    runWell({"/bin/sh", "-c", "exec \"$0\" >\"$1\"", yardstick.program("bench_schema"), schema});
    std::filesystem::create_directory(database);
    std::ofstream(configuration) << "include /etc/ldap/schema/core.schema\ninclude " << schema
                                 << "\nmodulepath /usr/lib/ldap\nmoduleload back_mdb\ndatabase mdb\n"
                                    "suffix \"cn=Configuration\"\ndirectory "
                                 << database << "\n";
    return configuration;
}

/// Commands for augtool: the last entry, and why there is none.
std::string augeasScript(const Yardstick& yardstick, const std::string& file, std::size_t entries)
{
    const std::string script = yardstick.file("augeas.txt");
    std::ofstream(script) << "get /files" << file << "/@content/" << entries + 1
                          << "/cn\nprint /augeas//error/message\n";
    return script;
}

std::vector<Peer> peersOf(const Yardstick& yardstick, const std::string& file, std::size_t entries)
{
    const std::string python = "/usr/bin/python3";
    const std::string perl = "/usr/bin/perl";
    const std::string configuration = slapdConfiguration(yardstick);
    return {
        {"slapadd -u value-check",
         "DNs, names, values, classes",
         true,
         "slapd",
         {"test", "-x", slapadd()},
         // Without the option it accepts a port that is no number.
         {slapadd(), "-u", "-o", "value-check=yes", "-f", configuration, "-l", file},
         ""},
        {"libldap ldif_read_record",
         "DNs of entries",
         false,
         "libldap-dev",
         {"test", "-x", yardstick.program("bench_libldap_peer")},
         {yardstick.program("bench_libldap_peer"), file},
         entriesText(entries)},
        {"python3-ldap LDIFParser",
         "DNs of entries",
         false,
         "python3-ldap",
         {python, "-c", "import ldif"},
         {python, "-c",
          "import ldif, sys\n"
          "with open(sys.argv[1]) as file:\n"
          "    parser = ldif.LDIFParser(file)\n"
          "    parser.parse()\n"
          "    print(parser.records_read, 'entries')\n",
          file},
         entriesText(entries)},
        {"perl Net::LDAP::LDIF",
         "form of lines",
         false,
         "libnet-ldap-perl",
         {perl, "-MNet::LDAP::LDIF", "-e", "1"},
         {perl, "-MNet::LDAP::LDIF", "-e",
          "my $ldif = Net::LDAP::LDIF->new($ARGV[0], 'r', onerror => 'die'); my $count = 0;"
          "while ($ldif->read_entry()) { ++$count } print \"$count entries\\n\";",
          file},
         entriesText(entries)},
        {"augtool, lens Ldif",
         "form of lines",
         false,
         "augeas-tools",
         {"augtool", "--version"},
         {"augtool", "--noautoload", "--transform=Ldif.lns incl " + file,
          "--file=" + augeasScript(yardstick, file, entries)},
         "/cn = "},
    };
}

/// Where programs of all kinds say what went wrong.
std::string lastLineOf(std::string output)
{
    constexpr std::size_t longest = 120;
    output.erase(output.find_last_not_of(" \n") + 1);
    const std::string line = output.substr(output.rfind('\n') + 1, longest);
    return line.empty() ? "it says nothing" : line;
}

/// The readers in turn on one size of file.
class Contest
{
public:
    Contest(Yardstick& yardstick, const Table& table, std::size_t entries)
        : yardstick_(yardstick), table_(table), entries_(entries), file_(yardstick.file("peers.ldif")),
          peers_(peersOf(yardstick, file_, entries))
    {
        generateFile({.entries = entries, .rootLines = false}, file_);
    }

    ~Contest()
    {
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
    }

    Contest(const Contest&) = delete;
    Contest& operator=(const Contest&) = delete;

    /// Readers that did not finish a size are not asked again for a larger one.
    void run(std::vector<std::string>& tired)
    {
        for (const Peer& peer : peers_) {
            if (std::find(tired.begin(), tired.end(), peer.name) != tired.end() || !run(peer.probe).ok) {
                continue;
            }
            const Outcome first = runPeer(peer);
            if (!first.ok) {
                tell(peer, first);
                tired.emplace_back(peer.name);
                continue;
            }
            compare(peer, first.cpuSeconds);
        }
    }

    std::vector<const Peer*> missing() const
    {
        std::vector<const Peer*> list;
        for (const Peer& peer : peers_) {
            if (!run(peer.probe).ok) {
                list.push_back(&peer);
            }
        }
        return list;
    }

private:
    static Outcome run(const std::vector<std::string>& command) { return veltor::bench::run(command); }

    static Outcome runPeer(const Peer& peer)
    {
        // A reader that needs all the memory would take the machine down before its time is up.
        const auto memory =
            static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 2;
        Outcome outcome = veltor::bench::run(peer.command, {.cpuSeconds = patienceSeconds, .memoryBytes = memory});
        if (outcome.ok && outcome.output.find(peer.proof) == std::string::npos) {
            outcome.ok = false;
        }
        return outcome;
    }

    void compare(const Peer& peer, double expectedSeconds)
    {
        const std::vector<std::string> tool = {
            yardstick_.program("veltor"), "search", "-F", file_, "-b", "", "-s", "base"};
        const std::vector<std::string> job = {yardstick_.program("bench_job"), "load", file_};
        const std::size_t rounds = expectedSeconds < 2 ? yardstick_.rounds : expectedSeconds < 10 ? 3 : 1;
        std::vector<double> peerTimes;
        std::vector<double> toolTimes;
        std::vector<double> jobTimes;
        std::vector<double> ratios;
        for (std::size_t round = 0; round < rounds; ++round) {
            const Outcome outcome = runPeer(peer);
            if (!outcome.ok) {
                tell(peer, outcome);
                return;
            }
            peerTimes.push_back(outcome.cpuSeconds);
            toolTimes.push_back(runWell(tool).cpuSeconds);
            jobTimes.push_back(runWell(job).cpuSeconds);
            ratios.push_back(peerTimes.back() / toolTimes.back());
        }
        const double seconds = median(peerTimes);
        const double ratio = median(ratios);
        const bool judged = peer.checksValues && entries_ >= smallestJudged;
        table_.printRow({peer.name, peer.checks, shown(static_cast<double>(entries_)), shown(seconds * 1e3, 1),
                         shown(static_cast<double>(entries_) / seconds), shown(median(toolTimes) * 1e3, 1),
                         shown(median(jobTimes) * 1e3, 1), shown(ratio, 2), judged ? shown(atLeastFaster, 1) : "-",
                         judged && !yardstick_.verdict(-ratio, -atLeastFaster).empty() ? "not reached" : ""});
    }

    void tell(const Peer& peer, const Outcome& outcome) const
    {
        std::string reason;
        if (outcome.outOfTime) {
            reason = "over " + std::to_string(patienceSeconds) + " s";
        } else {
            reason = "can't take it: " + lastLineOf(outcome.output);
        }
        table_.printRow({peer.name, peer.checks, shown(static_cast<double>(entries_)), reason});
    }

    Yardstick& yardstick_;
    const Table& table_;
    std::size_t entries_;
    std::string file_;
    std::vector<Peer> peers_;
};

} // namespace

void measurePeers(Yardstick& yardstick)
{
    std::printf(
        "\nOther readers of the same entries (mixed, as written), CPU time of whole processes, start included.\n"
        "Faster: by how much \"veltor search -s base\" is; at least %.1f x where the reader checks values too.\n\n",
        atLeastFaster);
    const Table table({{"reader", "", -24},
                       {"checks", "", -27},
                       {"entries", "", 9},
                       {"reader", "ms", 9},
                       {"entries", "per s", 9},
                       {"tool", "ms", 8},
                       {"job", "ms", 8},
                       {"faster", "x", 6},
                       {"limit", "", 5},
                       {"", "", -11}});
    table.printHeading();
    std::vector<std::string> tired;
    for (const std::size_t size : yardstick.sizes) {
        Contest contest(yardstick, table, size);
        if (size == yardstick.sizes.front()) {
            for (const Peer* const peer : contest.missing()) {
                table.printRow({peer->name, "left out: package " + std::string(peer->package) + " is not installed"});
            }
        }
        contest.run(tired);
    }
}

} // namespace veltor::bench
