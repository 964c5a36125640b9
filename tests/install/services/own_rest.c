/* The other services of the platform, the product's own. With own_codec.c they are all that the libraries ask for. */
#include <veltor/platform.h>

#include <stdio.h>

pthread_mutex_t set_locale_mutex = PTHREAD_MUTEX_INITIALIZER;

uint32_t trcEvents = 0;

void initLocaleMutex(void)
{
    puts("own initLocaleMutex");
}

int trcInit(void)
{
    puts("own trcInit");
    trcEvents = 2;
    return 0;
}

int trcWriteRec(uint32_t record, uint32_t cls, const void* object, uint32_t length, const void* data,
                uint32_t reserved1, uint32_t reserved2, uint32_t reserved3, uint32_t reserved4)
{
    (void)object;
    (void)data;
    printf("own trcWriteRec %08lX %08lX %lu\n", (unsigned long)record, (unsigned long)cls, (unsigned long)length);
    return reserved1 + reserved2 + reserved3 + reserved4 == 0 ? 0 : 22;
}

void PrintDebugVa(unsigned long type, const char* fmt, va_list ap)
{
    printf("own PrintDebugVa %08lX ", type);
    vprintf(fmt, ap);
}
