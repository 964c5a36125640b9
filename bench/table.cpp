#include "table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace veltor::bench {

namespace {

/// One line: each cell padded to its column's width, those beyond the last column as they are.
void printLine(const std::vector<Column>& columns, const std::vector<std::string>& cells)
{
    std::string line;
    for (std::size_t index = 0; index < cells.size(); ++index) {
        const int width = index < columns.size() ? columns[index].width : 0;
        const std::size_t wanted = static_cast<std::size_t>(std::abs(width));
        const std::string padding(wanted - std::min(wanted, cells[index].size()), ' ');
        line += (index == 0 ? "" : "  ") + (width < 0 ? cells[index] + padding : padding + cells[index]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::puts(line.c_str());
    std::fflush(stdout);
}

} // namespace

void Table::printHeading() const
{
    std::vector<std::string> headings;
    std::vector<std::string> units;
    for (const Column& column : columns_) {
        headings.emplace_back(column.heading);
        units.emplace_back(column.unit);
    }
    printLine(columns_, headings);
    if (std::any_of(units.begin(), units.end(), [](const std::string& unit) { return !unit.empty(); })) {
        printLine(columns_, units);
    }
}

void Table::printRow(const std::vector<std::string>& cells) const
{
    printLine(columns_, cells);
}

std::string shown(double number, int digits)
{
    if (std::isnan(number)) {
        return "-";
    }
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", digits, number);
    std::string text = buffer;
    const std::size_t first = text.front() == '-' ? 1 : 0;
    std::size_t place = std::min(text.find('.'), text.size());
    while (place > first + 3) {
        place -= 3;
        text.insert(place, ",");
    }
    return text;
}

double median(std::vector<double> numbers)
{
    if (numbers.empty()) {
        return std::nan("");
    }
    std::sort(numbers.begin(), numbers.end());
    const std::size_t middle = numbers.size() / 2;
    return numbers.size() % 2 == 1 ? numbers[middle] : (numbers[middle - 1] + numbers[middle]) / 2;
}

double growthExponent(double smallSize, double smallTime, double largeSize, double largeTime)
{
    if (!(smallTime > 0) || !(largeTime > 0) || !(largeSize > smallSize)) {
        return std::nan("");
    }
    return std::log(largeTime / smallTime) / std::log(largeSize / smallSize);
}

} // namespace veltor::bench
