// The same rules hold for what is typed and for what comes from a file.
#include "new_password.h"

#include "change_scan.h"
#include "credentials.h"
#include "failure.h"
#include "names.h"

#include <string_view>

namespace veltor::tool {

namespace {

constexpr int tries = 3;

/// Why the attribute can't have this password.
std::optional<std::string> whyRefused(const std::string& name, const WipedText& password)
{
    const std::string_view text(password.data());
    const std::optional<cfg_attr_type> type = attributeType(name);
    const auto size = static_cast<long>(text.size());
    if (type && (size < type->minimum || size > type->maximum)) {
        return "a text of " + std::to_string(size) + " bytes; " + std::to_string(type->minimum) + " to " +
               std::to_string(type->maximum) + " are allowed";
    }
    if (looksEncoded(password)) {
        return "a text of the form >...< is an encoded password; give the clear one";
    }
    return whyUnstorable(name, text);
}

WipedText askedTwice(const std::string& name)
{
    for (int left = tries; left > 0; --left) {
        WipedText password = askPassword("New password for " + name + ": ", "-T FILE", true);
        if (const auto finding = whyRefused(name, password)) {
            warn(*finding);
        } else if (askPassword("Again: ", "-T FILE", true) == password) {
            return password;
        } else {
            warn("the two are not the same");
        }
    }
    throw Failure(ExitCode::refused, name + ": there is no new password after " + std::to_string(tries) + " tries",
                  {"nothing was written; run the command again, or use -T FILE"}, factsAbout("", name));
}

} // namespace

WipedText newPassword(const std::string& dn, const std::string& name, const std::optional<std::string>& file)
{
    if (!file) {
        return askedTwice(name);
    }
    WipedText password = readPasswordFile(*file, "-T");
    if (const auto finding = whyRefused(name, password)) {
        throw Failure(ExitCode::refused, dn + ": " + name + ": " + *finding,
                      {"nothing was written" + explainAdvice(name)}, factsAbout(dn, name));
    }
    return password;
}

} // namespace veltor::tool
