// Configuration files of any size for the benchmarks, the same for the same arguments.
#ifndef VELTOR_BENCH_GENERATOR_H
#define VELTOR_BENCH_GENERATOR_H

#include <cstddef>
#include <string>

namespace veltor::bench {

/// How the entries hang together.
enum class Tree {
    mixed,       ///< groups of 50 below a middle level
    wide,        ///< all below one parent
    deep,        ///< chains of 16
    splitPairs,  ///< all children before any parent, one child each
    lateAdopters ///< a wide level that late ancestors adopt ten at a time
};

/// The text of a file with about that many entries, each some 600 bytes with 13 values.
std::string configuration(std::size_t entries, Tree tree);

/// The DN of one of its entries, by position in the file.
std::string entryDn(std::size_t position, std::size_t entries, Tree tree);

} // namespace veltor::bench

#endif
