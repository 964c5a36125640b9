// What callers of the library wait for: loading a file, a base search, a search of the whole tree. Each at
// 1,000, 10,000 and 100,000 entries; items are entries, so the time per item shows how the cost grows.
#include "generator.h"

#include "veltor/cfg.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using veltor::bench::Tree;

/// A generated file on disk, removed in the end.
class BenchFile
{
public:
    BenchFile(std::size_t entries, Tree tree)
        : path_(std::filesystem::temp_directory_path() /
                ("veltor-bench-" + std::to_string(getpid()) + "-" + std::to_string(entries)))
    {
        veltor::bench::generateFile({.entries = entries, .tree = tree}, path_);
    }
    BenchFile(const BenchFile&) = delete;
    BenchFile& operator=(const BenchFile&) = delete;
    ~BenchFile() { std::filesystem::remove(path_); }

    const char* name() const { return path_.c_str(); }

private:
    std::filesystem::path path_;
};

void* boundHandle(const BenchFile& file)
{
    void* const handle = cfg_init();
    cfg_set_option(handle, CFG_OPT_CONFIG_FILE, file.name());
    if (cfg_bind_s(handle, nullptr, nullptr, LDAP_AUTH_SIMPLE) != 0) {
        std::fprintf(stderr, "%s\n", cfg_dump_exception(handle));
        std::abort();
    }
    return handle;
}

// Binding: one load of the whole file; the release is not measured.
void load(benchmark::State& state, Tree tree)
{
    const auto entries = static_cast<std::size_t>(state.range(0));
    const BenchFile file(entries, tree);
    for (auto _ : state) {
        void* const handle = boundHandle(file);
        state.PauseTiming();
        cfg_unbind(handle);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// One entry by its DN, its values copied out, the result freed.
void baseSearch(benchmark::State& state, Tree tree)
{
    const auto entries = static_cast<std::size_t>(state.range(0));
    const BenchFile file(entries, tree);
    void* const handle = boundHandle(file);
    std::vector<std::string> dns;
    dns.reserve(entries);
    for (std::size_t position = 0; position < entries; ++position) {
        dns.push_back(veltor::bench::entryDn(position, {.entries = entries, .tree = tree}));
    }
    std::size_t position = 0;
    for (auto _ : state) {
        position = (position + 7919) % entries;
        cfg_message* result = nullptr;
        cfg_search_s(handle, dns[position].c_str(), 0, nullptr, nullptr, 0, &result);
        if (result == nullptr) {
            state.SkipWithError("entry not found");
        }
        cfg_msgfree(result);
    }
    cfg_unbind(handle);
}

// The whole tree with an equality filter that few entries pass.
void subtreeSearch(benchmark::State& state, Tree tree)
{
    const auto entries = static_cast<std::size_t>(state.range(0));
    const BenchFile file(entries, tree);
    void* const handle = boundHandle(file);
    for (auto _ : state) {
        cfg_message* result = nullptr;
        cfg_search_s(handle, "", 2, "zor-slapdPort=389", nullptr, 0, &result);
        cfg_msgfree(result);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    cfg_unbind(handle);
}

void sizes(benchmark::internal::Benchmark* bench)
{
    bench->Unit(benchmark::kMillisecond)->Arg(1000)->Arg(10000)->Arg(100000);
}

BENCHMARK_CAPTURE(load, mixed, Tree::mixed)->Apply(sizes);
BENCHMARK_CAPTURE(load, wide, Tree::wide)->Apply(sizes);
BENCHMARK_CAPTURE(load, deep, Tree::deep)->Apply(sizes);
BENCHMARK_CAPTURE(load, splitPairs, Tree::splitPairs)->Apply(sizes);
BENCHMARK_CAPTURE(load, lateAdopters, Tree::lateAdopters)->Apply(sizes);
BENCHMARK_CAPTURE(baseSearch, mixed, Tree::mixed)->Apply(sizes)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(baseSearch, wide, Tree::wide)->Apply(sizes)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(subtreeSearch, mixed, Tree::mixed)->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
