/**
 * @file
 * The platform services that the libraries call. libveltorplatform.so has a default for each; a program or the
 * directory product puts its own definition in place of any one of them by defining the same name:
 *
 * - Program: the program defines the name, and the dynamic linker takes the program's definition.
 * - Library: a shared library of the product defines the name, and the program links it before ours. A linker that
 *   drops libraries which the program does not call itself needs -Wl,--no-as-needed.
 * - Platform: a shared library with the SONAME libveltorplatform.so.1 defines every name of this header. It is
 *   installed in place of the default one, or the program links it before ours.
 *
 * The libraries ask for these names in the version VELTOR_PLATFORM_1. A shared library whose names have versions must
 * give them this one (VELTOR_PLATFORM_1 { global: *; }; in its version script): what it defines under another version
 * is passed over without a word, and a libveltorplatform.so.1 without this one can't be loaded. Names without any
 * version will do, with a warning of the loader for libveltorplatform.so.1. Nothing else of the libraries is meant to
 * be replaced.
 *
 * Threads: the libraries call each function from whichever thread calls them, so that several threads may be in it at
 * once. The defaults allow that, and so must a definition that replaces one.
 */
#ifndef VELTOR_PLATFORM_H
#define VELTOR_PLATFORM_H

#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <sys/types.h>

/* A definition that replaces a default has to be visible to the dynamic linker, whatever the visibility
   that its program is compiled with: a hidden one would be passed over without a word. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Locale
 * @{
 */

/**
 * Makes set_locale_mutex ready. Called by every cfg_init, from any thread, also while another thread holds the mutex:
 * a definition must be idempotent and must not take the mutex.
 */
void initLocaleMutex(void);

/** Held around setlocale by everyone in the process who calls it. Not recursive. */
extern pthread_mutex_t set_locale_mutex;

/** @} */

/**
 * @name Passwords
 * The default codec hides a password from a glance and from nothing else: who can read the file can decode it. File
 * permissions are the protection.
 * @{
 */

/**
 * Encodes a clear password for the configuration file.
 *
 * @param text     NUL-terminated, every other byte value allowed
 * @param encoded  receives the encoded text (free: _slapd_utils_encode_buffer_free). It begins with ">" and ends with
 *                 "<": that shape is what keeps a stored password from being encoded twice.
 * @param lo       the least allowed length of text in bytes
 * @param hi       the greatest
 * @return 0, or an LDAP-style result code and leaves *encoded null. The default: 19 for a length outside lo to hi, 89
 *         for a null argument, 90 when memory is short.
 */
int _slapd_utils_encode_buffer(const char *text, char **encoded, int lo, int hi);

/**
 * Frees what _slapd_utils_encode_buffer made.
 *
 * @param encoded  the text; nothing happens for null
 */
void _slapd_utils_encode_buffer_free(char *encoded);

/**
 * Decodes what _slapd_utils_encode_buffer made.
 *
 * @param encoded  NUL-terminated and writable; a decoder may use it as working space
 * @param text     receives the clear text, allocated with malloc (free: _slapd_utils_decode_buffer_free, or free)
 * @return 0, or an LDAP-style result code and leaves *text null. The default: 84 for a text that the encoder did not
 *         make or that was damaged since, 89 for a null argument, 90 when memory is short.
 */
int _slapd_utils_decode_buffer(char *encoded, char **text);

/**
 * Frees what _slapd_utils_decode_buffer made.
 *
 * @param text  the text; nothing happens for null
 */
void _slapd_utils_decode_buffer_free(char *text);

/** @} */

/**
 * @name Accounts
 * @{
 */

/**
 * The numeric id of a user.
 *
 * @param user_name  looked up among the users
 * @return the id; (uid_t)-1, which chown takes as "leave unchanged", for a name that does not exist there, is null or
 *         can't be looked up
 */
uid_t ldap_get_uid(const char *user_name);

/**
 * The numeric id of a group.
 *
 * @param user_name  looked up among the groups
 * @return the id; (gid_t)-1, which chown takes as "leave unchanged", for a name that does not exist there, is null or
 *         can't be looked up
 */
gid_t ldap_get_gid(const char *user_name);

/** @} */

/**
 * @name Trace
 * The default service discards records until trcInit finds a file to write them to. It reads two variables of the
 * environment (neither in a program that runs with raised privileges):
 *
 * - VELTOR_TRACE_FILE: the file to append to, created with mode 0600; a symbolic link or anything but a regular file
 *   is refused. Unset or empty: records are discarded.
 * - VELTOR_TRACE_EVENTS: the value for trcEvents, decimal or 0x and hexadecimal digits; 0 when it is unset or no such
 *   number.
 *
 * A record is one line: record word and class word as 8 hexadecimal digits each, the object's address, the length, and
 * the data, where a backslash and every byte outside 0x20 to 0x7E stand as a backslash, "x" and two hexadecimal digits:
 *
 * @verbatim
   030A0000 C8110000 0x7FFC0A1B2C30 4 \x05\x00\x00\x00
   @endverbatim
 * @{
 */

/**
 * Prepares the trace service; called before records are written. The default may be called again, also while other
 * threads write: it then turns to the file that the environment names now, and keeps to the one it has when that can't
 * be opened.
 *
 * @return 0 or an errno value
 */
int trcInit(void);

/**
 * Writes one trace record.
 *
 * @param record     the record word
 * @param cls        the class word
 * @param object     the traced object, or null; only its address is recorded
 * @param length     bytes of data
 * @param data       the data; null when length is 0; not kept
 * @param reserved1  always 0 here
 * @param reserved2  always 0 here
 * @param reserved3  always 0 here
 * @param reserved4  always 0 here
 * @return 0 or an errno value. The default refuses data of more than 1 MiB (EMSGSIZE) and leaves errno alone.
 */
int trcWriteRec(uint32_t record, uint32_t cls, const void *object, uint32_t length, const void *data,
                uint32_t reserved1, uint32_t reserved2, uint32_t reserved3, uint32_t reserved4);

/** The mask of enabled trace event bits. */
extern uint32_t trcEvents;

/**
 * Prints one debug line on the debug output: in the default the standard error, with a line feed added where the text
 * does not end in one.
 *
 * @param type  the kind of debug text; the default prints every kind
 * @param fmt   the format, as for vfprintf
 * @param ap    its arguments
 */
void PrintDebugVa(unsigned long type, const char *fmt, va_list ap);

/** @} */

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
