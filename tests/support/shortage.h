// What the tests share that let every request for memory of a call fail in turn. See failing_allocator.h for how they
// are linked.
#ifndef VELTOR_TESTS_SHORTAGE_H
#define VELTOR_TESTS_SHORTAGE_H

#include "support/api_test.h"
#include "support/failing_allocator.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

namespace veltor::test {

/// Runs a trial for each request and each kind of shortage, until one goes through without a failed request.
///
/// @param trial  takes the FailingAllocator's arguments; gives whether a request failed
template <class Trial>
void forEveryRequest(Trial&& trial, std::initializer_list<Shortage> shortages = {Shortage::once, Shortage::lasting})
{
    // What is made once in a process must not count as lost.
    trial(Shortage::none, 1);
    for (const Shortage shortage : shortages) {
        constexpr std::size_t limit = 100000;
        std::size_t nth = 0;
        bool failed = true;
        while (failed && nth < limit) {
            ++nth;
            SCOPED_TRACE((shortage == Shortage::once    ? "only request "
                          : shortage == Shortage::twice ? "with the next, request "
                                                        : "from request ") +
                         std::to_string(nth));
            const BlockWatch watch;
            failed = trial(shortage, nth);
            EXPECT_EQ(watch.live(), 0U) << "blocks that nobody gave back";
            if (testing::Test::HasFailure()) {
                return;
            }
        }
        EXPECT_GT(nth, 1U) << "no request was made: this trial tests nothing";
        EXPECT_LT(nth, limit);
    }
}

/// Runs a call that must not request memory.
template <class Call>
void expectNoRequest(const char* name, Call&& call)
{
    FailingAllocator memory(Shortage::lasting, 1);
    call();
    memory.stop();
    EXPECT_EQ(memory.requests(), 0U) << name;
}

inline const LDIF_Exception* kept(void* handle)
{
    return static_cast<cfg_handle*>(handle)->lastException;
}

/// The code is recorded, and what is kept agrees with it.
inline void expectRecorded(void* handle, int code)
{
    EXPECT_EQ(cfg_get_errno(handle), code);
    if (const LDIF_Exception* const exception = kept(handle)) {
        EXPECT_EQ(exception->ldapErr, code);
    }
}

inline bool beginsWith(const std::string& text, const char* beginning)
{
    return text.rfind(beginning, 0) == 0;
}

/// The kept failure is that of the system: 80/1000.
inline void expectSystemError(void* handle)
{
    ASSERT_NE(kept(handle), nullptr) << "there was memory to keep it";
    EXPECT_EQ(kept(handle)->ldapErr, 80);
    EXPECT_EQ(kept(handle)->extErr, 1000);
    EXPECT_TRUE(beginsWith(kept(handle)->msg, "System error ")) << kept(handle)->msg;
}

/// The kept failure tells of a copy that could not be made, or of the codec, which answers 90 by itself.
inline void expectNoMemory(void* handle)
{
    ASSERT_NE(kept(handle), nullptr) << "there was memory to keep it";
    EXPECT_EQ(kept(handle)->ldapErr, 90);
    const std::string& message = kept(handle)->msg;
    if (message == "Allocation failed") {
        EXPECT_EQ(kept(handle)->extErr, 1000);
    } else {
        EXPECT_TRUE(message == "strdup()" || message == "malloc()" || beginsWith(message, "_slapd_utils_")) << message;
        EXPECT_EQ(kept(handle)->extErr, 90);
    }
}

/// What a call says that failed for want of memory: 80 or 90. With a single failed request there was memory to keep
/// the failure.
inline void expectShortageTold(void* handle, int code, Shortage shortage)
{
    expectRecorded(handle, code);
    EXPECT_TRUE(code == 80 || code == 90) << code << " " << shown(cfg_dump_exception(handle));
    if (shortage == Shortage::once && code == 80) {
        expectSystemError(handle);
    } else if (shortage == Shortage::once && code == 90) {
        expectNoMemory(handle);
    }
}

} // namespace veltor::test

#endif
