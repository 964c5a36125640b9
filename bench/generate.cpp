// Prints a configuration file of any size, or writes it to a file.
#include "generator.h"

#include <charconv>
#include <cstdio>
#include <exception>
#include <string_view>
#include <system_error>

namespace {

using namespace veltor::bench;

int usage()
{
    std::fputs("usage: bench_generate ENTRIES [TREE [ORDER [SEED [FILE]]]]\n"
               "  TREE   mixed (the default), wide, deep, split-pairs or late-adopters\n"
               "  ORDER  written (the default), reversed, shuffled or orphans\n"
               "  SEED   a number, 1 by default: the same seed gives the same bytes\n"
               "  FILE   standard output by default\n",
               stderr);
    return 2;
}

template <typename Number>
bool parse(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

int main(int argc, char** argv)
{
    Workload workload;
    if (argc < 2 || argc > 6 || !parse(argv[1], workload.entries) || (argc > 4 && !parse(argv[4], workload.seed))) {
        return usage();
    }
    if (argc > 2) {
        const auto tree = treeNamed(argv[2]);
        if (!tree) {
            return usage();
        }
        workload.tree = *tree;
    }
    if (argc > 3) {
        const auto order = orderNamed(argv[3]);
        if (!order) {
            return usage();
        }
        workload.order = *order;
    }
    try {
        generateFile(workload, argc > 5 ? argv[5] : "/dev/stdout");
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_generate: %s\n", failure.what());
        return 1;
    }
    return 0;
}
