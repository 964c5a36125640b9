// Tables as plain text, printed row by row while the measuring goes on.
#ifndef VELTOR_BENCH_TABLE_H
#define VELTOR_BENCH_TABLE_H

#include <string>
#include <utility>
#include <vector>

namespace veltor::bench {

/// One column: the two lines of its heading, and the width, negative for a column set to the left.
struct Column
{
    const char* heading;
    const char* unit;
    int width;
};

class Table
{
public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    void printHeading() const;
    void printRow(const std::vector<std::string>& cells) const;

private:
    std::vector<Column> columns_;
};

/// A number with so many digits behind the point and commas between thousands; "-" for not-a-number.
std::string shown(double number, int digits = 0);

/// The middle one, or the mean of the two in the middle; not-a-number for none.
double median(std::vector<double> numbers);

/// By what power of the size a time grows.
double growthExponent(double smallSize, double smallTime, double largeSize, double largeTime);

} // namespace veltor::bench

#endif
