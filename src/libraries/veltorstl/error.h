// The table of library codes and their texts.
#ifndef VELTOR_ERROR_H
#define VELTOR_ERROR_H

#include <cstdint>

namespace veltor::detail {

/// A library code and its text.
struct ErrorText
{
    std::int32_t code;
    const char* message;
};

/// 37 rows; the last has code 0 and the text for every code that no row has.
extern const ErrorText cfg_errlist[37];

} // namespace veltor::detail

#endif
