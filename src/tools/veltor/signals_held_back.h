// The signals that end or stop a process, and a scope in which they wait.
#ifndef VELTOR_TOOL_SIGNALS_HELD_BACK_H
#define VELTOR_TOOL_SIGNALS_HELD_BACK_H

#include <csignal>

namespace veltor::tool {

inline constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGPIPE, SIGTSTP};

/// Holds the signals that end a process back for its scope. They take effect behind it.
class SignalsHeldBack
{
public:
    SignalsHeldBack();
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
    ~SignalsHeldBack();

    /// What was held back before, for who lets signals in again for a while.
    const sigset_t& before() const { return old_; }

private:
    sigset_t old_{};
};

} // namespace veltor::tool

#endif
