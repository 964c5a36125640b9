// Signals are blocked, and delivered when the old mask comes back.
#include "signals_held_back.h"

namespace veltor::tool {

SignalsHeldBack::SignalsHeldBack()
{
    sigset_t held;
    ::sigemptyset(&held);
    for (const int signal : endingSignals) {
        ::sigaddset(&held, signal);
    }
    ::sigprocmask(SIG_BLOCK, &held, &old_);
}

SignalsHeldBack::~SignalsHeldBack()
{
    ::sigprocmask(SIG_SETMASK, &old_, nullptr);
}

} // namespace veltor::tool
