// The platform's locale mutex: whoever calls setlocale in this process holds it meanwhile.
#include "veltor/platform.h"

pthread_mutex_t set_locale_mutex = PTHREAD_MUTEX_INITIALIZER;

void initLocaleMutex(void)
{
    // The mutex is ready from the start. Every cfg_init comes through here, also while another thread holds
    // the mutex: initialising it again would take it away from its holder.
}
