// Counting the owners of something that is shared.
#ifndef VELTOR_OWNER_COUNT_H
#define VELTOR_OWNER_COUNT_H

#include <atomic>
#include <cstdint>

#include <sys/single_threaded.h>

namespace veltor::detail {

/// How many owners something has, one at first. Owners may live on different threads. As long as the process has a
/// single one, counting locks nothing: a locked instruction waits for all memory that is on its way, and a load counts
/// dozens of times for an entry.
class OwnerCount
{
public:
    bool isOne() const noexcept { return count_.load(std::memory_order_acquire) == 1; }

    void add() noexcept
    {
        if (__libc_single_threaded != 0) {
            count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        } else {
            count_.fetch_add(1, std::memory_order_relaxed);
        }
    }

    /// @return true when that was the last owner
    bool drop() noexcept
    {
        if (__libc_single_threaded != 0) {
            const std::uint32_t left = count_.load(std::memory_order_relaxed) - 1;
            count_.store(left, std::memory_order_relaxed);
            return left == 0;
        }
        return count_.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }

private:
    std::atomic<std::uint32_t> count_ = 1;
};

} // namespace veltor::detail

#endif
