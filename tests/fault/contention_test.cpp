// Many writers of one file: every change is there at the end, none twice.
#include "fault_test.h"

#include <atomic>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace veltor::test;

namespace {

// Longer than everything that the others have to do.
constexpr int patientMs = 240'000;

class Contention : public FaultTest
{
protected:
    static std::string counter(const Handle& handle)
    {
        const Found found = search(handle.get(), "cn=a,o=x", baseScope, "objectclass=*");
        const Values values(
            found.result == nullptr ? nullptr : cfg_get_values(handle.get(), found.result.get(), "zor-slapdPort"));
        return values == nullptr ? "none" : shown(values.get()[0]);
    }

    /// Reads the counter and puts the next number there: another writer in between would make two of one.
    static int count(const Handle& handle)
    {
        if (const int code = cfg_begin_s(handle.get(), patientMs)) {
            return code;
        }
        const std::string now = counter(handle);
        if (setPort(handle, std::to_string(std::stoi(now) + 1)) != 0) {
            return cfg_rollback_s(handle.get()) == 0 ? -1 : -2;
        }
        return cfg_commit_s(handle.get());
    }

    static int addValue(const Handle& handle, const std::string& value)
    {
        Mods mods({{LDAP_MOD_ADD, "description", {{value}}}});
        return cfg_modify_s(handle.get(), "cn=a,o=x", mods.list());
    }

    static int addEntry(const Handle& handle, const std::string& name)
    {
        Mods mods({{LDAP_MOD_ADD, "objectclass", {{"top"}}}});
        return cfg_add_s(handle.get(), ("cn=" + name + ",o=x").c_str(), mods.list());
    }

    /// A writer's changes: the counter, a value and an entry in turn; now and then a set that is rolled back.
    /// @return what failed, or nothing
    static std::string changeTimes(const std::string& file, const std::string& writer, int changes)
    {
        const Handle handle = boundTo(file);
        // What an update outside a set waits is what the last begin asked for.
        if (cfg_begin_s(handle.get(), patientMs) != 0 || cfg_rollback_s(handle.get()) != 0) {
            return failureOf(handle);
        }
        for (int number = 0; number < changes; ++number) {
            const std::string name = writer + "-" + std::to_string(number);
            const int code = number % 3 == 0   ? count(handle)
                             : number % 3 == 1 ? addValue(handle, name)
                                               : addEntry(handle, name);
            if (code != 0) {
                return name + ": " + std::to_string(code) + " " + failureOf(handle);
            }
            if (number % 10 == 0 && (cfg_begin_s(handle.get(), patientMs) != 0 || addEntry(handle, "never") != 0 ||
                                     cfg_rollback_s(handle.get()) != 0)) {
                return name + ": " + failureOf(handle);
            }
        }
        return "";
    }

    static void expectEveryChange(const std::string& text, const std::vector<std::string>& writers, int changes)
    {
        std::map<std::string, int> expected;
        int counted = 389;
        for (const std::string& writer : writers) {
            for (int number = 0; number < changes; ++number) {
                const std::string name = writer + "-" + std::to_string(number);
                if (number % 3 == 0) {
                    ++counted;
                } else {
                    ++expected[number % 3 == 1 ? "description: " + name : "dn: cn=" + name + ", o=x"];
                }
            }
        }
        for (const std::string_view line :
             {"charset: UTF-8", "version: 1", "dn: o=x", "# the first one", "dn: cn=a, o=x"}) {
            ++expected[std::string(line)];
        }
        ++expected["zor-slapdPort: " + std::to_string(counted)];
        std::map<std::string, int> found;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty() && line != "objectclass: top") {
                ++found[line];
            }
        }
        EXPECT_EQ(found, expected);
    }

    /// Starts the writers as processes, then as threads of this one, at the same moment; waits for all.
    void contend(int processes, int threads, int changes)
    {
        const std::string file = write(oldText);
        std::vector<std::string> writers;
        int gate[2];
        ASSERT_EQ(pipe(gate), 0);
        std::vector<pid_t> children;
        for (int number = 0; number < processes; ++number) {
            writers.push_back("p" + std::to_string(number));
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                close(gate[1]);
                char byte = 0;
                // Open until the last of them stands here.
                const bool opened = ::read(gate[0], &byte, 1) == 0;
                std::string failed = "no start";
                try {
                    failed = opened ? changeTimes(file, writers.back(), changes) : failed;
                } catch (const std::exception& failure) {
                    failed = failure.what();
                }
                if (!failed.empty()) {
                    fprintf(stderr, "%s\n", failed.c_str());
                }
                _exit(failed.empty() ? 0 : 1);
            }
            children.push_back(child);
        }
        close(gate[0]);
        close(gate[1]);
        std::vector<std::string> failed(static_cast<std::size_t>(threads));
        std::vector<std::thread> running;
        for (int number = 0; number < threads; ++number) {
            writers.push_back("t" + std::to_string(number));
            running.emplace_back(
                [&failure = failed[static_cast<std::size_t>(number)], file, writer = writers.back(), changes] {
                    try {
                        failure = changeTimes(file, writer, changes);
                    } catch (const std::exception& thrown) {
                        failure = thrown.what();
                    }
                });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
        for (const std::string& failure : failed) {
            EXPECT_EQ(failure, "");
        }
        for (const pid_t child : children) {
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a process failed";
        }
        expectEveryChange(read(), writers, changes);
        EXPECT_EQ(namesIn(pathOf("")), (std::set<std::string>{fileName, "zorslapd.conf.lock"}));
    }
};

} // namespace

TEST_F(Contention, EightProcessesAndEightThreadsLoseNothingIn2000Changes)
{
    contend(8, 8, 125);
}

TEST_F(Contention, EightThreadsLoseNothing)
{
    contend(0, 8, 30);
}

TEST_F(Contention, ThreadsThatReadSeeOneTextOrTheOther)
{
    const std::string file = write(oldText);
    std::atomic<bool> done = false;
    std::vector<std::string> seen(4);
    std::vector<std::thread> readers;
    for (std::string& problem : seen) {
        readers.emplace_back([&] {
            try {
                while (!done && problem.empty()) {
                    // A bind reads whatever the name holds at that moment.
                    const std::string text = inMemory(boundTo(file));
                    const std::string port = text.substr(text.find("Port: ") + 6, 4);
                    problem = text == oldText || text == withPort(oldText, port) ? "" : text;
                }
            } catch (const std::exception& failure) {
                problem = failure.what();
            }
        });
    }
    const Handle handle = boundTo(file);
    for (int number = 0; number < 60; ++number) {
        EXPECT_EQ(setPort(handle, std::to_string(1000 + number)), 0) << failureOf(handle);
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    for (const std::string& problem : seen) {
        EXPECT_EQ(problem, "");
    }
}
