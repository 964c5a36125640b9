// The process locale for the time of one test, or of a part of it.
#ifndef VELTOR_TESTS_LOCALE_GUARD_H
#define VELTOR_TESTS_LOCALE_GUARD_H

#include <clocale>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace veltor::test {

/// Sets LC_ALL of the process while it lives and puts back what it found.
///
/// @throws std::runtime_error for a locale that this system does not have: a test of one locale must not pass in
///         another one by accident
/// Process-wide, so one guard at a time or nested guards, from one thread.
class LocaleGuard
{
public:
    explicit LocaleGuard(const char* name) : previous_(current())
    {
        if (std::setlocale(LC_ALL, name) == nullptr) {
            throw std::runtime_error("this system has no locale " + std::string(name));
        }
    }

    LocaleGuard(const LocaleGuard&) = delete;
    LocaleGuard& operator=(const LocaleGuard&) = delete;

    ~LocaleGuard() { std::setlocale(LC_ALL, previous_.c_str()); }

private:
    static std::string current()
    {
        const char* name = std::setlocale(LC_ALL, nullptr);
        return name == nullptr ? "C" : name;
    }

    // A copy: the C library reuses its own text on the next call.
    std::string previous_;
};

/// Does the work in the locale C, then in C.UTF-8; a failure tells in which.
template <class Work>
void inBothLocales(Work&& work)
{
    for (const char* const name : {"C", "C.UTF-8"}) {
        SCOPED_TRACE(name);
        const LocaleGuard guard(name);
        work();
    }
}

} // namespace veltor::test

#endif
