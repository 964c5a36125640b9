/* A password codec and an account look-up of the product's own. Each says once that it was called. */
#include <veltor/platform.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define SAY_ONCE(what)                                                                                                 \
    do {                                                                                                               \
        static int said = 0;                                                                                           \
        if (!said) {                                                                                                   \
            said = 1;                                                                                                  \
            puts("own " what);                                                                                         \
        }                                                                                                              \
    } while (0)

/* The text backwards between the marks that the library looks for. */
static char* backwards(const char* text, size_t length, const char* open, const char* close)
{
    char* result = malloc(length + 3);
    char* end = result;

    if (result == NULL) {
        return NULL;
    }
    if (*open != '\0') {
        *end++ = *open;
    }
    while (length > 0) {
        *end++ = text[--length];
    }
    if (*close != '\0') {
        *end++ = *close;
    }
    *end = '\0';
    return result;
}

int _slapd_utils_encode_buffer(const char* text, char** encoded, int lo, int hi)
{
    int length = (int)strlen(text);

    SAY_ONCE("_slapd_utils_encode_buffer");
    *encoded = NULL;
    if (length < lo || length > hi) {
        return 19;
    }
    *encoded = backwards(text, (size_t)length, ">", "<");
    return *encoded == NULL ? 90 : 0;
}

void _slapd_utils_encode_buffer_free(char* encoded)
{
    SAY_ONCE("_slapd_utils_encode_buffer_free");
    free(encoded);
}

int _slapd_utils_decode_buffer(char* encoded, char** text)
{
    size_t length = strlen(encoded);

    SAY_ONCE("_slapd_utils_decode_buffer");
    *text = NULL;
    if (length < 2 || encoded[0] != '>' || encoded[length - 1] != '<') {
        return 84;
    }
    *text = backwards(encoded + 1, length - 2, "", "");
    return *text == NULL ? 90 : 0;
}

void _slapd_utils_decode_buffer_free(char* text)
{
    SAY_ONCE("_slapd_utils_decode_buffer_free");
    free(text);
}

/* Nobody: the file stays whose it is. */
uid_t ldap_get_uid(const char* user_name)
{
    SAY_ONCE("ldap_get_uid");
    return strcmp(user_name, "ldap") == 0 ? (uid_t)-1 : 0;
}

gid_t ldap_get_gid(const char* user_name)
{
    SAY_ONCE("ldap_get_gid");
    return strcmp(user_name, "ldap") == 0 ? (gid_t)-1 : 0;
}
