// The default locale mutex: ready without initLocaleMutex, and left alone by it.
#include "veltor/platform.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {
// Taken while the program is still being loaded, before anything can have called initLocaleMutex.
struct TakenEarly
{
    int lock = pthread_mutex_lock(&set_locale_mutex);
    int unlock = pthread_mutex_unlock(&set_locale_mutex);
};
const TakenEarly takenEarly;

// What another thread gets when it tries the mutex.
int tryFromAnotherThread()
{
    int status = -1;
    std::thread([&status] {
        status = pthread_mutex_trylock(&set_locale_mutex);
        if (status == 0) {
            pthread_mutex_unlock(&set_locale_mutex);
        }
    }).join();
    return status;
}
} // namespace

TEST(LocaleMutex, IsReadyBeforeInitLocaleMutexRuns)
{
    EXPECT_EQ(takenEarly.lock, 0);
    EXPECT_EQ(takenEarly.unlock, 0);
}

TEST(LocaleMutex, IsFreeAfterAnyNumberOfInitialisations)
{
    for (int i = 0; i < 3; ++i) {
        initLocaleMutex();
        EXPECT_EQ(tryFromAnotherThread(), 0) << "after call " << i + 1;
    }
}

TEST(LocaleMutex, InitialisationReturnsWhileAnotherThreadHoldsTheMutexAndLeavesItHeld)
{
    ASSERT_EQ(pthread_mutex_lock(&set_locale_mutex), 0);
    std::thread(initLocaleMutex).join(); // would not come back if it took the mutex
    initLocaleMutex();
    EXPECT_EQ(tryFromAnotherThread(), EBUSY);
    ASSERT_EQ(pthread_mutex_unlock(&set_locale_mutex), 0);
    EXPECT_EQ(tryFromAnotherThread(), 0);
}

TEST(LocaleMutex, InitialisationDoesNotChangeASingleByteOfAHeldMutex)
{
    ASSERT_EQ(pthread_mutex_lock(&set_locale_mutex), 0);
    using Bytes = std::array<unsigned char, sizeof set_locale_mutex>;
    Bytes before;
    Bytes after;
    std::memcpy(before.data(), &set_locale_mutex, before.size());
    initLocaleMutex();
    std::memcpy(after.data(), &set_locale_mutex, after.size());
    EXPECT_EQ(after, before);
    ASSERT_EQ(pthread_mutex_unlock(&set_locale_mutex), 0);
}

TEST(LocaleMutex, InitialisationLeavesTheLocaleAlone)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    initLocaleMutex();
    EXPECT_EQ(before, std::setlocale(LC_ALL, nullptr));
}
