// Memory that runs short on command, and a count of what is not given back.
//
// A program that links failing_allocator.cpp has its own operator new and delete. It must also be linked with
//     -Wl,--wrap=malloc,--wrap=calloc,--wrap=realloc,--wrap=strdup,--wrap=free
// so that the calls in its own objects and in the static libraries it holds come through here. Calls inside shared
// libraries stay what they are, except that their operator new is this program's.
#ifndef VELTOR_TESTS_FAILING_ALLOCATOR_H
#define VELTOR_TESTS_FAILING_ALLOCATOR_H

#include <cstddef>

namespace veltor::test {

/// Which requests for memory fail.
enum class Shortage {
    none,    ///< none: the requests are only counted
    once,    ///< one request, all others succeed
    twice,   ///< one request and the one behind it, made to tell of the first
    lasting, ///< one request and all behind it
};

/// The function that a request came through.
enum class Request { operatorNew, malloc, calloc, realloc, strdup };

const char* nameOf(Request request);

/// Makes requests of this thread fail while it lives. One at a time in a thread.
class FailingAllocator
{
public:
    /// @param nth  the request that fails first, 1-based
    FailingAllocator(Shortage shortage, std::size_t nth);
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;
    ~FailingAllocator();

    /// Ends the shortage early, so that what follows may allocate.
    void stop();

    /// Requests seen, failed ones included.
    std::size_t requests() const { return requests_; }
    /// True when a request failed.
    bool failed() const { return failed_; }
    /// How the first failed request was made.
    Request firstFailure() const { return firstFailure_; }

private:
    friend bool grants(Request request);

    Shortage shortage_;
    std::size_t nth_;
    std::size_t requests_ = 0;
    bool failed_ = false;
    Request firstFailure_ = Request::operatorNew;
};

/// Counts the blocks that this thread requests while it lives and that nobody has given back. One at a time in a
/// thread. Blocks that go to a shared library and are freed there count as not given back.
class BlockWatch
{
public:
    BlockWatch();
    BlockWatch(const BlockWatch&) = delete;
    BlockWatch& operator=(const BlockWatch&) = delete;
    ~BlockWatch();

    std::size_t live() const;
};

} // namespace veltor::test

#endif
