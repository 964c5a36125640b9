// Handles in several threads at once, one each, and the lock around the locale.
#include "support/api_test.h"

#include <atomic>
#include <barrier>
#include <chrono>
#include <clocale>
#include <string>
#include <thread>
#include <vector>

using namespace veltor::test;

namespace {

class LocaleThreads : public ApiTest
{
};

constexpr int threadCount = 8;

std::string configurationOf(int number)
{
    const std::string name = "server " + std::to_string(number);
    return "dn: cn=Configuration\n"
           "cn: " +
           name +
           "\n"
           "objectclass: top\n"
           "zor-slapdAdminDN: cn=root\n"
           "zor-slapdAdminPW: secret " +
           std::to_string(number) +
           "\n"
           "zor-slapdPort: " +
           std::to_string(1000 + number) + "\n";
}

/// Runs a function in every thread and waits for all.
template <class Work>
void inThreads(Work&& work)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back(work, number);
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

bool soon(const std::atomic<int>& value, int wanted)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (value != wanted && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return value == wanted;
}

} // namespace

// The first test: in a process of its own, no look-up in the catalogue went before.
TEST_F(LocaleThreads, EachThreadBindsAndSearchesOnItsOwnHandle)
{
    std::vector<std::string> files;
    for (int number = 0; number < threadCount; ++number) {
        files.push_back(write(configurationOf(number), "server" + std::to_string(number) + ".conf"));
    }
    std::vector<std::string> results(threadCount);
    std::barrier together(threadCount);
    inThreads([&](int number) {
        const auto index = static_cast<std::size_t>(number);
        const Handle handle(cfg_init());
        // All at once into the first look-up of the catalogue, which checking a file name needs.
        together.arrive_and_wait();
        std::string& result = results[index];
        if (cfg_set_option(handle.get(), CFG_OPT_CONFIG_FILE, files[index].c_str()) != 0) {
            result = "cfg_set_option failed";
            return;
        }
        const std::string password = "secret " + std::to_string(number);
        for (int round = 0; round < 20; ++round) {
            if (cfg_bind_s(handle.get(), "cn=root", "wrong", simple) != 49 ||
                cfg_bind_s(handle.get(), "cn=root", password.c_str(), simple) != 0) {
                result = "bind: " + shown(cfg_dump_exception(handle.get()));
                return;
            }
            cfg_message* found = nullptr;
            if (cfg_search_s(handle.get(), nullptr, subtree, "(zor-slapdPort=*)", nullptr, 0, &found) != 0) {
                result = "search: " + shown(cfg_dump_exception(handle.get()));
                return;
            }
            const Message owned(found);
            result = listed(found);
        }
    });
    for (int number = 0; number < threadCount; ++number) {
        const std::string id = std::to_string(number);
        EXPECT_EQ(results[static_cast<std::size_t>(number)],
                  "dn: cn=Configuration\ncn: server " + id +
                      "\nobjectclass: top\nzor-slapdAdminDN: cn=root\nzor-slapdAdminPW: secret " + id +
                      "\nzor-slapdPort: " + std::to_string(1000 + number) + "\n");
    }
}

TEST_F(LocaleThreads, FailuresStayWithTheirHandles)
{
    const std::string file = write(configurationOf(0));
    std::atomic<int> mixedUp = 0;
    std::barrier together(threadCount);
    inThreads([&](int number) {
        const Handle handle = unbound(file);
        cfg_bind_s(handle.get(), nullptr, nullptr, simple);
        const std::string base = "cn=missing " + std::to_string(number) + ",";
        together.arrive_and_wait();
        for (int round = 0; round < 50; ++round) {
            cfg_message* found = nullptr;
            const int code = cfg_search_s(handle.get(), base.c_str(), subtree, nullptr, nullptr, 0, &found);
            if (code != 34 || cfg_get_errno(handle.get()) != 34 || shown(cfg_get_value(handle.get())) != base ||
                shown(cfg_dump_exception(handle.get())).find("\nvalue: " + base + "\n") == std::string::npos) {
                ++mixedUp;
            }
        }
    });
    EXPECT_EQ(mixedUp, 0);
}

TEST_F(LocaleThreads, InitWaitsForTheLocaleMutexAndLeavesTheLocaleAloneMeanwhile)
{
    const LocaleGuard other("C");
    ASSERT_EQ(pthread_mutex_lock(&set_locale_mutex), 0);
    std::atomic<int> started = 0;
    std::atomic<int> finished = 0;
    std::atomic<int> made = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([&] {
            ++started;
            const Handle handle(cfg_init());
            made += handle != nullptr ? 1 : 0;
            ++finished;
        });
    }
    EXPECT_TRUE(soon(started, threadCount));
    // Long enough for a call that does not wait to show itself.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(finished, 0);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
    ASSERT_EQ(pthread_mutex_unlock(&set_locale_mutex), 0);
    EXPECT_TRUE(soon(finished, threadCount));
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(made, threadCount);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8");
}

TEST_F(LocaleThreads, InitGivesTheLocaleMutexBack)
{
    for (int count = 0; count < 3; ++count) {
        const Handle handle(cfg_init());
        ASSERT_EQ(pthread_mutex_trylock(&set_locale_mutex), 0);
        ASSERT_EQ(pthread_mutex_unlock(&set_locale_mutex), 0);
    }
}

TEST_F(LocaleThreads, OnlyInitTakesTheLocaleMutex)
{
    const Handle handle = unbound(write(configurationOf(1)));
    ASSERT_EQ(pthread_mutex_lock(&set_locale_mutex), 0);
    std::atomic<int> finished = 0;
    std::thread worker([&] {
        cfg_bind_s(handle.get(), "cn=root", "secret 1", simple);
        cfg_message* found = nullptr;
        cfg_search_s(handle.get(), nullptr, subtree, nullptr, nullptr, 0, &found);
        cfg_msgfree(found);
        cfg_reset(handle.get());
        ++finished;
    });
    EXPECT_TRUE(soon(finished, 1));
    ASSERT_EQ(pthread_mutex_unlock(&set_locale_mutex), 0);
    worker.join();
}
