// The exception that a piece of work raises, and how deep it is.
#ifndef VELTOR_TESTS_FAILURE_OF_H
#define VELTOR_TESTS_FAILURE_OF_H

#include "LDIF_Exception.h"

#include <optional>

namespace veltor::test {

/// The LDIF_Exception that leaves the work, or none. Others pass through.
template <class Work>
std::optional<LDIF_Exception> failureOf(Work&& work)
{
    try {
        work();
    } catch (const LDIF_Exception& failure) {
        return failure;
    }
    return std::nullopt;
}

/// How many records a failure and its causes make.
inline int recordsOf(const LDIF_Exception& failure)
{
    int count = 1;
    for (const LDIF_Exception* cause = failure.nested; cause != nullptr; cause = cause->nested) {
        ++count;
    }
    return count;
}

} // namespace veltor::test

#endif
