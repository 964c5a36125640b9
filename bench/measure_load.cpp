// Whole processes that load a file and leave, against the floor: every tree in every order.
#include "generator.h"
#include "table.h"
#include "yardstick.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace veltor::bench {

namespace {

constexpr std::array trees = {Tree::mixed, Tree::wide, Tree::deep};
constexpr std::array orders = {Order::written, Order::reversed, Order::shuffled, Order::orphans};

/// Below this many entries the start of the process is most of its time: no limit there.
constexpr std::size_t smallestJudged = 10'000;
constexpr std::size_t smallestGrowing = 1000;
constexpr double largestGrowth = 1.05;

double limitOf(Tree tree, Order order)
{
    return order == Order::written && tree != Tree::deep ? 2.0 : 2.4;
}

/// One kind of file in every size.
class Ladder
{
public:
    Ladder(Yardstick& yardstick, const Table& table, Tree tree, Order order)
        : yardstick_(yardstick), table_(table), tree_(tree), order_(order), file_(yardstick.file("load.conf"))
    {
    }

    void climb()
    {
        start_ = measure(1);
        for (const std::size_t size : yardstick_.sizes) {
            printRow(size, size == 1 ? start_ : measure(size));
        }
        std::filesystem::remove(file_);
    }

private:
    Duel measure(std::size_t entries) const
    {
        generateFile({.entries = entries, .tree = tree_, .order = order_}, file_);
        return duel(yardstick_, {yardstick_.program("bench_job"), "load", file_},
                    {yardstick_.program("bench_floor"), file_});
    }

    void printRow(std::size_t size, const Duel& result)
    {
        const auto entries = static_cast<double>(size);
        double growth = std::nan("");
        double floorGrowth = std::nan("");
        if (size > 1) {
            // The start of the process does not grow; with it every growth would look smaller than it is.
            const double seconds = result.leastSeconds - start_.leastSeconds;
            const double floorSeconds = result.otherLeastSeconds - start_.otherLeastSeconds;
            if (size >= smallestGrowing && firstSize_ == 0) {
                firstSize_ = entries;
                firstSeconds_ = seconds;
                firstFloorSeconds_ = floorSeconds;
            } else if (firstSize_ > 0) {
                growth = growthExponent(firstSize_, firstSeconds_, entries, seconds);
                floorGrowth = growthExponent(firstSize_, firstFloorSeconds_, entries, floorSeconds);
            }
        }
        std::string limit = "-";
        std::string remark;
        if (size >= smallestJudged) {
            limit = shown(limitOf(tree_, order_), 1);
            remark = yardstick_.verdict(result.ratio, limitOf(tree_, order_));
        }
        if (size == yardstick_.sizes.back() && !std::isnan(growth) &&
            !yardstick_.verdict(growth, largestGrowth).empty()) {
            remark += remark.empty() ? "growth over" : ", growth over";
        }
        // What the driver held before it ran the program counts as the program's, too: small files drown in it.
        const bool many = size >= smallestJudged;
        table_.printRow({nameOf(tree_), nameOf(order_), shown(entries), shown(result.seconds * 1e3, 1),
                         shown(result.otherSeconds * 1e3, 1), shown(result.ratio, 2), limit,
                         shown(entries / result.seconds),
                         shown(many ? (result.peakBytes - start_.peakBytes) / entries : std::nan("")),
                         shown(many ? (result.otherPeakBytes - start_.otherPeakBytes) / entries : std::nan("")),
                         shown(growth, 2), shown(floorGrowth, 2), remark});
    }

    Yardstick& yardstick_;
    const Table& table_;
    Tree tree_;
    Order order_;
    std::string file_;
    Duel start_; // a file of one entry: what a process costs that does nothing
    double firstSize_ = 0;
    double firstSeconds_ = 0;
    double firstFloorSeconds_ = 0;
};

} // namespace

void measureLoad(Yardstick& yardstick)
{
    std::printf("\nLoad: a process that loads the file and leaves, against the floor; CPU time, start included.\n"
                "Peak: beyond that of a process with one entry. Growth: exponent of the time beyond the start\n"
                "(shortest rounds), from the first size of 1,000 or more on; at most %.2f.\n\n",
                largestGrowth);
    const Table table({{"tree", "", -5},
                       {"order", "", -8},
                       {"entries", "", 9},
                       {"load", "ms", 8},
                       {"floor", "ms", 7},
                       {"ratio", "", 5},
                       {"limit", "", 5},
                       {"entries", "per s", 9},
                       {"peak", "B/entry", 7},
                       {"floor's", "B/entry", 7},
                       {"growth", "", 6},
                       {"floor's", "", 7},
                       {"", "", -12}});
    table.printHeading();
    for (const Tree tree : trees) {
        for (const Order order : orders) {
            Ladder(yardstick, table, tree, order).climb();
        }
    }
}

} // namespace veltor::bench
