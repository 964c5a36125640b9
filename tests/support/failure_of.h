// The exception that a piece of work raises.
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

} // namespace veltor::test

#endif
