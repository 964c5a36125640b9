// The library's side of the yardstick: one job per process, through the public interface alone. A job that the
// whole process is measured by prints nothing; the others print "name number" lines, times in seconds of the
// process's CPU. All of them leave with _exit: release is measured by the job of that name and by no other.
#include "generator.h"

#include "veltor/cfg_admin.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using veltor::bench::Tree;
using veltor::bench::Workload;

constexpr int simple = LDAP_AUTH_SIMPLE;
constexpr int baseScope = 0;
constexpr int subtreeScope = 2;

[[noreturn]] void fail(const char* what, void* handle = nullptr)
{
    const char* const reason = handle == nullptr ? nullptr : cfg_dump_exception(handle);
    std::fprintf(stderr, "bench_job: %s%s%s\n", what, reason == nullptr ? "" : ": ", reason == nullptr ? "" : reason);
    _exit(1);
}

double now()
{
    struct timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Seconds of CPU that a piece of work takes.
template <typename Work>
double timed(Work work)
{
    const double start = now();
    work();
    return now() - start;
}

void print(const char* name, double value)
{
    std::printf("%s %.9g\n", name, value);
}

void bind(void* handle)
{
    if (cfg_bind_s(handle, nullptr, nullptr, simple) != 0) {
        fail("bind", handle);
    }
}

void* unbound(const char* file)
{
    void* const handle = cfg_init();
    if (handle == nullptr || cfg_set_option(handle, CFG_OPT_CONFIG_FILE, file) != 0) {
        fail("init");
    }
    return handle;
}

void* bound(const char* file)
{
    void* const handle = unbound(file);
    bind(handle);
    return handle;
}

cfg_message* found(void* handle, const char* base, int scope, const char* filter, char** attributes = nullptr)
{
    cfg_message* result = nullptr;
    if (cfg_search_s(handle, base, scope, filter, attributes, 0, &result) != 0) {
        fail("search", handle);
    }
    return result;
}

/// Applies one modification with one value.
void modify(void* handle, const char* dn, int operation, const char* attribute, const char* value)
{
    std::string name = attribute;
    std::string text = value;
    char* values[] = {text.data(), nullptr};
    LDAPMod change = {};
    change.mod_op = operation;
    change.mod_type = name.data();
    change.mod_values = values;
    LDAPMod* changes[] = {&change, nullptr};
    if (cfg_modify_s(handle, dn, changes) != 0) {
        fail("modify", handle);
    }
}

/// Fetches everything that a result holds, the way a caller does that knows nothing of it. Gives the number of
/// values.
std::size_t walk(void* handle, cfg_message* result)
{
    std::size_t values = 0;
    for (cfg_message* entry = cfg_first_entry(handle, result); entry != nullptr;
         entry = cfg_next_entry(handle, entry)) {
        cfg_memfree(cfg_get_dn(handle, entry));
        cfg_cursor* cursor = nullptr;
        for (char* name = cfg_first_attribute(handle, entry, &cursor); name != nullptr;
             name = cfg_next_attribute(handle, entry, cursor)) {
            char** const texts = cfg_get_values(handle, entry, name);
            values += static_cast<std::size_t>(cfg_count_values(texts));
            cfg_value_free(texts);
            cfg_memfree(name);
        }
        cfg_ber_free(cursor);
    }
    return values;
}

std::size_t numberFrom(const char* text)
{
    return std::strtoull(text, nullptr, 10);
}

// ---- Jobs whose whole process is measured ----

void load(char** arguments)
{
    bound(arguments[0]);
}

void modifyOnce(char** arguments)
{
    modify(bound(arguments[0]), arguments[1], LDAP_MOD_REPLACE, "zor-slapdIdleTimeOut", "4711");
}

// ---- Jobs that measure themselves ----

/// Base searches all over the file, of each entry in turn.
void searchBase(char** arguments)
{
    const std::size_t searches = numberFrom(arguments[1]);
    const auto tree = veltor::bench::treeNamed(arguments[3]);
    if (!tree) {
        fail("no such tree");
    }
    const Workload workload{.entries = numberFrom(arguments[2]), .tree = *tree};
    std::vector<std::string> dns;
    dns.reserve(searches);
    for (std::size_t search = 0; search < searches; ++search) {
        dns.push_back(entryDn((search + 1) * 7919 % workload.entries, workload));
    }
    void* const handle = bound(arguments[0]);
    const auto searchAll = [&](bool fetch) {
        for (const std::string& dn : dns) {
            cfg_message* const result = found(handle, dn.c_str(), baseScope, nullptr);
            if (result == nullptr || (fetch && walk(handle, result) < 10)) {
                fail("an entry is not what it should be");
            }
            cfg_msgfree(result);
        }
    };
    // What the first search does beyond its own work, all later ones profit from.
    print("first", timed([&] { cfg_msgfree(found(handle, dns.back().c_str(), baseScope, nullptr)); }));
    print("search", timed([&] { searchAll(false); }) / static_cast<double>(searches));
    print("fetched", timed([&] { searchAll(true); }) / static_cast<double>(searches));
}

void searchEquality(char** arguments)
{
    void* const handle = bound(arguments[0]);
    constexpr int searches = 5;
    int hits = 0;
    print("search", timed([&] {
                        for (int search = 0; search < searches; ++search) {
                            cfg_message* const result = found(handle, "", subtreeScope, arguments[1]);
                            hits = cfg_count_entries(handle, result);
                            cfg_msgfree(result);
                        }
                    }) / searches);
    print("hits", hits);
}

void walkAll(char** arguments)
{
    void* const handle = unbound(arguments[0]);
    print("load", timed([&] { bind(handle); }));
    cfg_message* result = nullptr;
    print("search", timed([&] { result = found(handle, "", subtreeScope, nullptr); }));
    std::size_t values = 0;
    print("walk", timed([&] { values = walk(handle, result); }));
    print("free", timed([&] { cfg_msgfree(result); }));
    print("values", static_cast<double>(values));
}

void release(char** arguments)
{
    void* const handle = unbound(arguments[0]);
    print("load", timed([&] { bind(handle); }));
    print("release", timed([&] { cfg_unbind(handle); }));
}

double residentBytes()
{
    std::FILE* const file = std::fopen("/proc/self/statm", "r");
    long size = 0;
    long resident = 0;
    if (file == nullptr || std::fscanf(file, "%ld %ld", &size, &resident) != 2) {
        fail("/proc/self/statm");
    }
    std::fclose(file);
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void resident(char** arguments)
{
    void* const handle = unbound(arguments[0]);
    const double before = residentBytes();
    bind(handle);
    print("resident", residentBytes() - before);
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    print("peak", static_cast<double>(usage.ru_maxrss) * 1024 - before);
}

/// An entry that is big in one respect: arguments are the file, its DN, the attribute, a value that it has and one
/// that it has not.
void big(char** arguments)
{
    const char* const dn = arguments[1];
    const char* const attribute = arguments[2];
    const char* const present = arguments[3];
    const char* const absent = arguments[4];
    void* const handle = unbound(arguments[0]);
    print("load", timed([&] { bind(handle); }));

    const std::string filter = std::string(attribute) + "=" + present;
    char name[] = "cn";
    char* attributes[] = {name, nullptr};
    constexpr int searches = 20;
    print("equality", timed([&] {
                          for (int search = 0; search < searches; ++search) {
                              cfg_message* const result = found(handle, dn, baseScope, filter.c_str(), attributes);
                              if (result == nullptr) {
                                  fail("the value is not found");
                              }
                              cfg_msgfree(result);
                          }
                      }) / searches);
    print("copy", timed([&] { cfg_msgfree(found(handle, dn, baseScope, nullptr)); }));
    print("flush", timed([&] {
              if (cfg_flush_s(handle) != 0) {
                  fail("flush", handle);
              }
          }));
    print("add", timed([&] { modify(handle, dn, LDAP_MOD_ADD, attribute, absent); }));
    print("delete", timed([&] { modify(handle, dn, LDAP_MOD_DELETE, attribute, present); }));
    print("release", timed([&] { cfg_unbind(handle); }));
}

/// One change in safe mode, beside a load and a classic change of the same file.
void safeChange(char** arguments)
{
    const auto change = [&](void* handle, const char* value) {
        return timed([&] { modify(handle, arguments[1], LDAP_MOD_REPLACE, "zor-slapdIdleTimeOut", value); });
    };
    void* const classic = unbound(arguments[0]);
    print("load", timed([&] { bind(classic); }));
    print("modify", change(classic, "4711"));
    cfg_unbind(classic);
    void* const careful = unbound(arguments[0]);
    if (cfg_set_write_mode(careful, CFG_WRITE_SAFE) != 0) {
        fail("mode", careful);
    }
    bind(careful);
    print("safe", change(careful, "4712"));
}

/// The text that one change in safe mode would write.
void render(char** arguments)
{
    void* const handle = unbound(arguments[0]);
    if (cfg_set_write_mode(handle, CFG_WRITE_SAFE) != 0) {
        fail("mode", handle);
    }
    bind(handle);
    if (cfg_begin_s(handle, 0) != 0) {
        fail("begin", handle);
    }
    modify(handle, arguments[1], LDAP_MOD_REPLACE, "zor-slapdIdleTimeOut", "4711");
    char* text = nullptr;
    std::size_t size = 0;
    print("render", timed([&] {
              if (cfg_render_s(handle, &text, &size) != 0) {
                  fail("render", handle);
              }
          }));
    print("size", static_cast<double>(size));
    cfg_memfree(text);
    if (cfg_rollback_s(handle) != 0) {
        fail("rollback", handle);
    }
}

struct Job
{
    std::string_view name;
    int arguments;
    void (*run)(char** arguments);
    const char* usage;
};

constexpr Job jobs[] = {
    {"load", 1, load, "FILE"},
    {"modify", 2, modifyOnce, "FILE DN"},
    {"safe", 2, safeChange, "FILE DN"},
    {"render", 2, render, "FILE DN"},
    {"search-base", 4, searchBase, "FILE SEARCHES ENTRIES TREE"},
    {"search-equality", 2, searchEquality, "FILE FILTER"},
    {"walk", 1, walkAll, "FILE"},
    {"release", 1, release, "FILE"},
    {"resident", 1, resident, "FILE"},
    {"big", 5, big, "FILE DN ATTRIBUTE PRESENT ABSENT"},
};

} // namespace

int main(int argc, char** argv)
{
    for (const Job& job : jobs) {
        if (argc == job.arguments + 2 && job.name == argv[1]) {
            job.run(argv + 2);
            std::fflush(stdout);
            _exit(0);
        }
    }
    std::fputs("usage:\n", stderr);
    for (const Job& job : jobs) {
        std::fprintf(stderr, "  bench_job %s %s\n", job.name.data(), job.usage);
    }
    _exit(2);
}
