// Configuration files of any size for the benchmarks, the same bytes for the same arguments.
#ifndef VELTOR_BENCH_GENERATOR_H
#define VELTOR_BENCH_GENERATOR_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace veltor::bench {

/// How the entries hang together.
enum class Tree {
    mixed,       ///< groups of 50 below a middle level
    wide,        ///< all below one parent
    deep,        ///< chains of 16
    splitPairs,  ///< all children before any parent, one child each
    lateAdopters ///< a wide level that late ancestors adopt ten at a time
};

/// How they follow each other in the file.
enum class Order {
    written,  ///< as a write-back leaves them: each parent, then what is below it
    reversed, ///< children before their parents
    shuffled, ///< anyhow
    orphans   ///< as written, but every entry's parent is missing
};

/// One file. The entry cn=Configuration comes on top of the entries that are counted.
struct Workload
{
    std::size_t entries = 1000; ///< at most 2^32 - 2
    Tree tree = Tree::mixed;
    Order order = Order::written;
    std::uint64_t seed = 1;
    bool rootLines = true; ///< false: entries alone, which is a file of ours and LDIF for everybody else
};

/// The name of a tree or an order as programs take it, "mixed" or "written".
const char* nameOf(Tree tree);
const char* nameOf(Order order);
std::optional<Tree> treeNamed(std::string_view name);
std::optional<Order> orderNamed(std::string_view name);

/// Makes the file's text, in pieces of 64 KiB: no size needs much memory. Each entry takes some 600
/// bytes with 13 values and one comment line. With Order::written, writing the loaded file back changes no byte.
void generate(const Workload& workload, const std::function<void(std::string_view)>& sink);

/// The text in one piece.
std::string configuration(const Workload& workload);

/// Writes the text to a file, new or replaced.
///
/// @throws std::system_error when it can't be written
void generateFile(const Workload& workload, const std::string& path);

/// The DN of one of the entries, by position in the order as written.
std::string entryDn(std::size_t position, const Workload& workload);

} // namespace veltor::bench

#endif
