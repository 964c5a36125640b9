// A locale that the system does not have, made for a test.
#ifndef VELTOR_TESTS_MADE_LOCALE_H
#define VELTOR_TESTS_MADE_LOCALE_H

#include "support/temporary_folder.h"

#include <clocale>
#include <cstdlib>
#include <optional>
#include <string>

namespace veltor::test {

/// While it lives, setlocale knows "tr_TR.ISO-8859-9", say: made with the system's localedef from its own sources, in a
/// folder of its own.
///
/// Process-wide, as the locale is. Set the locale only while this lives.
class MadeLocale
{
public:
    /// @param territory  as "tr_TR"
    /// @param charset    as "ISO-8859-9"
    MadeLocale(const std::string& territory, const std::string& charset) : name_(territory + "." + charset)
    {
        if (const char* const place = std::getenv("LOCPATH")) {
            previous_ = place;
        }
        const std::string make = "localedef -i " + territory + " -f " + charset + " '" + folder_.path(name_) + "'";
        // It warns of what the encoding does not have, and ends with an error then: whether there is a locale counts.
        [[maybe_unused]] const int status = std::system((make + " >/dev/null 2>&1").c_str());
        setenv("LOCPATH", folder_.path().c_str(), 1);
        const std::string before = std::setlocale(LC_ALL, nullptr);
        isThere_ = std::setlocale(LC_ALL, name_.c_str()) != nullptr;
        std::setlocale(LC_ALL, before.c_str());
    }
    MadeLocale(const MadeLocale&) = delete;
    MadeLocale& operator=(const MadeLocale&) = delete;
    ~MadeLocale()
    {
        if (previous_) {
            setenv("LOCPATH", previous_->c_str(), 1);
        } else {
            unsetenv("LOCPATH");
        }
    }

    /// False where there is no localedef, or not what it needs: then the test is left out.
    bool isThere() const { return isThere_; }
    const char* name() const { return name_.c_str(); }

private:
    TemporaryFolder folder_;
    std::string name_;
    std::optional<std::string> previous_;
    bool isThere_ = false;
};

} // namespace veltor::test

#endif
