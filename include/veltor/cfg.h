/**
 * @file
 * The configuration API of the directory server.
 *
 * Conventions of the whole API:
 *
 * - Handle: cfg_init makes a handle, cfg_unbind releases it. The handle is the first argument of every call that
 *   takes one. Calling order: cfg_init, any cfg_set_option, cfg_bind_s, any number of searches and updates,
 *   cfg_unbind. Below, a handle is "bound" where the call needs a cfg_bind_s that succeeded, and "any" where it
 *   does not.
 * - Codes: functions that return int give 0 for success or an LDAP result code below 1000. The kept exception adds
 *   a library code (cfg_get_exterror): a CFG_ERR_ constant, a code between 1000 and 1035 without a name, or the LDAP
 *   code again. cfg_err2string turns either kind into a text.
 * - Reset: every call that takes a handle, except the option calls, cfg_tree_view and the error accessors, first drops
 *   the exception and the texts that the handle kept from the call before.
 * - Ownership: what a call hands out as a fresh copy is freed by the caller: result trees with cfg_msgfree, texts
 *   with cfg_memfree, value arrays with cfg_value_free, cursors with cfg_ber_free. Texts marked "lent" belong to the
 *   handle and live until its next reset. A result tree does not refer to the handle: it survives further calls and
 *   cfg_unbind.
 * - Failures: no call lets a C++ exception escape. Argument errors give 89 (CFG_LDAP_PARAM_ERROR) and keep no
 *   exception.
 * - Re-reading: searches, updates and the reading calls of cfg_admin.h first read the file again if its modification
 *   time, in whole seconds, is another one than at the last read; then they can give what a bind gives for a file that
 *   can't be read. In the direct mode a search can write: like the bind, a re-read that finds lines it can't use keeps
 *   them and writes the file back. In the safe and the never mode (cfg_set_write_mode, cfg_admin.h) no load writes.
 * - File names: a relative one is looked up at each access, from the working directory that the process has then. A
 *   program that changes its directory gives absolute names. A change set stays with the file that it began with.
 * - Threads: a handle serves one thread at a time; nothing in it is locked. Different handles may be used by
 *   different threads. Options 1002 and 1003 are flags of the whole process.
 * - Locale: cfg_init sets the process locale from the environment (LC_ALL, LC_CTYPE, LANG). It must not run while
 *   another thread uses the locale, which every call of this API does: make all handles before other threads begin.
 *   File contents are read in that locale's encoding; in the "C" locale only ASCII can be read.
 */
#ifndef VELTOR_CFG_H
#define VELTOR_CFG_H

#include <ldap.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif

/**
 * @name Handle options
 * For cfg_set_option and cfg_get_option. The numbers are ABI.
 * @{
 */
#define CFG_OPT_HANDLE_FLAG1 1000      /**< boolean, default 1: kept and reported only */
#define CFG_OPT_HANDLE_FLAG2 1001      /**< boolean, default 0: kept and reported only */
#define CFG_OPT_SHOW_SOURCE 1002       /**< boolean, default 0, process-wide: exception texts name the source line */
#define CFG_OPT_SHOW_STACK 1003        /**< boolean, default 1, process-wide: exception texts include the causes */
#define CFG_OPT_DELETE_NON_LEAVES 1004 /**< boolean, default 0: an entry may be deleted with its subtree */
#define CFG_OPT_CONFIG_FILE 1005       /**< text, default unset: the configuration file of the next bind */
#define CFG_OPT_BACKUP_FILE 1006       /**< text, default unset: name of a write's backup, from the next bind on */
/** @} */

/**
 * @name Library codes that have a name
 * The numbers are ABI; codes between 1000 and 1035 not listed here have none.
 * @{
 */
#define CFG_ERR_UNEXPECTED 1000             /**< something that no other code tells */
#define CFG_ERR_FILENAME_INVALID 1001       /**< a name that can't be a configuration file's */
#define CFG_ERR_FILE_NOT_FOUND 1003         /**< no such configuration file */
#define CFG_ERR_FILE_OPEN 1004              /**< the configuration file can't be opened */
#define CFG_ERR_SINGLE_VALUED 1006          /**< a second value of a single-valued attribute */
#define CFG_ERR_NOT_IN_OBJECTCLASS 1007     /**< an attribute that the object class does not have */
#define CFG_ERR_NO_BINARY_REP 1008          /**< the attribute's type has no binary form */
#define CFG_ERR_NO_STRING_REP 1009          /**< the attribute's type has no text form */
#define CFG_ERR_UNKNOWN_MOD_OP 1010         /**< an operation in a modification list that does not exist */
#define CFG_ERR_DN_MISSING_ATTR 1011        /**< a DN that lacks the name of an attribute */
#define CFG_ERR_DN_ATTR_INVALID 1012        /**< a DN with a name that can't be an attribute's */
#define CFG_ERR_DN_MISSING_VALUE 1013       /**< a DN that lacks a value */
#define CFG_ERR_DN_VALUE_INVALID 1014       /**< a DN with a value that can't be one */
#define CFG_ERR_INT_RANGE 1015              /**< a number outside the type's range */
#define CFG_ERR_INT_INVALID 1016            /**< no number where the type asks for one */
#define CFG_ERR_ENUM_INVALID 1017           /**< none of the type's values */
#define CFG_ERR_LENGTH_RANGE 1018           /**< a text that is too short or too long for the type */
#define CFG_ERR_BITMASK 1019                /**< a bit that the type's mask does not have */
#define CFG_ERR_OID_INVALID 1020            /**< no object identifier */
#define CFG_ERR_FILENAME_VALUE_INVALID 1029 /**< a value that can't be a file name */
#define CFG_ERR_PLUGIN_INIT 1035            /**< a plugin library without its init function */
/** @} */

/**
 * @name Result codes that LDAP client libraries number differently
 * Compare with these, never with the client library's own constants of similar name, which may be negative.
 * @{
 */
#define CFG_LDAP_AUTH_UNKNOWN 86  /**< a bind method that there is not */
#define CFG_LDAP_PARAM_ERROR 89   /**< an argument that can't be; no exception is kept */
#define CFG_LDAP_NO_MEMORY 90     /**< memory is short */
#define CFG_LDAP_CONNECT_ERROR 91 /**< a file that is missing or can't be opened */
#define CFG_LDAP_NOT_SUPPORTED 92 /**< not supported */
/** @} */

/** A node of a search result. Read it directly or walk it with the functions below. */
typedef struct cfg_message {
    int kind;                     /**< 0 entry, 1 attribute, 2 value */
    char *text;                   /**< entry: its DN; attribute: its name; value: its text */
    struct cfg_message *children; /**< entry: first attribute; attribute: first value; value: null */
    struct cfg_message *next;     /**< the next node of the same level */
} cfg_message;

/** Position in the attributes of one entry: made by cfg_first_attribute, freed with cfg_ber_free. */
typedef struct cfg_cursor cfg_cursor;

/**
 * @name Sessions
 * @{
 */

/**
 * Makes an unbound handle with every option at its default and sets the process locale from the environment, under
 * the platform's locale mutex. Options 1002 and 1003 of the whole process go back to their defaults. Not beside other
 * threads that use the locale.
 *
 * @return the handle (release: cfg_unbind), or null when memory is short
 */
void *cfg_init(void);

/**
 * Sets one option. Never resets the handle and keeps no exception.
 *
 * @param handle  any
 * @param option  a CFG_OPT_ number
 * @param value   boolean options: an integer in the pointer-sized argument, for example (const void *)1L;
 *                1005 and 1006: a text of 1 to 4096 bytes, which is copied, or null to unset the name. A relative
 *                name is looked up at each access, not here.
 * @return 0, also for an option outside 1000 to 1006, which changes nothing; 89 for a null handle; the value check's
 *         code (21) for a bad file name, which leaves the old one; 90 when memory is short
 */
int cfg_set_option(void *handle, int option, const void *value);

/**
 * Reads one option. Never resets the handle.
 *
 * @param handle  any
 * @param option  a CFG_OPT_ number
 * @param out     boolean options: int *, set to 0 or 1; 1005 and 1006: char **, set to a fresh copy
 *                (free: cfg_memfree) or to null when the name is unset or memory is short
 * @return 0, also for an option outside 1000 to 1006, which leaves *out alone; 89 for a null argument
 */
int cfg_get_option(void *handle, int option, void *out);

/**
 * Loads the configuration file (option 1005, else the default) and authenticates against its entry
 * "cn=Configuration". A load that finds lines it can't use keeps them under the name zor-slapdInvalidLine and, in the
 * direct mode, writes the file back at once. A second bind on the same handle opens the file anew; results and texts of
 * the first stay valid.
 *
 * @param handle       any
 * @param who          the administrator's DN, or null for an anonymous bind
 * @param credentials  the administrator's clear password, or null for an anonymous bind
 * @param method       LDAP_AUTH_SIMPLE (0x80); every other number is 86
 * @return 0 or a code: 49 (nothing kept) for wrong or incomplete credentials; 86; 89 for a null handle; 91 for a file
 *         that is missing or can't be opened; 80 for one that can't be read; the code of the line that ended the load
 *         (34, 65, 162; the codec's code where two passwords of one entry can't be compared). When the credentials
 *         are compared: 32 without an entry "cn=Configuration", 34 for a DN and 21 for a password that can't be one,
 *         the codec's code for a stored password that can't be decoded. When lines were kept, in the direct mode: 50
 *         or 91 for a file that can't be written back. 53 inside a change set (cfg_admin.h); 90 or 80 when memory is
 *         short.
 */
int cfg_bind_s(void *handle, const char *who, const char *credentials, int method);

/**
 * Drops the last result, the kept exception and the lent texts.
 *
 * @param handle  any
 * @return 0, or 89 for a null handle
 */
int cfg_reset(void *handle);

/**
 * Releases the handle and everything it owns; writes nothing: a change set is dropped, and its lock is free. The handle
 * must not be used afterwards.
 *
 * @param handle  any
 * @return 0, or 89 for a null handle. (1 is kept for a store that can't be released; this one always can.)
 */
int cfg_unbind(void *handle);

/**
 * The install root.
 *
 * @return "/usr/ldap", a static text
 */
const char *getInstallPath(void);

/**
 * The default configuration file.
 *
 * @return "/usr/ldap/etc/zorslapd.conf", a static text
 */
const char *getDefaultConfigFilename(void);

/** @} */

/**
 * @name Search and result walking
 * The walking functions allow a null handle: they then work as usual and record no result code. Where a pointer is
 * returned, null says "none" or "failed", and cfg_get_errno tells which: 0, 16 for an unknown attribute, 89 for a bad
 * argument, 90 when memory is short.
 * @{
 */

/**
 * Searches the configuration, after re-reading the file if it changed on disk, which in the direct mode may write it.
 * Password values come back as clear text.
 *
 * @param handle     bound
 * @param base       DN text; null or "" is the root above all entries
 * @param scope      1 the entries directly below the base, 2 the base and everything below it, any other number the
 *                   base alone
 * @param filter     "name", "name=" or "name=*": the entry has the attribute, whatever follows the "*".
 *                   "name=value": it has that value, compared as the attribute's type compares, with a backslash and
 *                   two hexadecimal digits for a byte; a backslash without these ends the value. One pair of
 *                   parentheses around the whole is taken off. Null, "" and "()" mean "objectclass=*".
 * @param attrs      null-terminated list of the attribute names to return, letter case ignored; null: all
 * @param attrsonly  has no effect on what is returned
 * @param res        receives the first entry (free: cfg_msgfree), or null when nothing was found or on failure
 * @return 0, also when nothing was found; 32 when the base does not exist; 34 for a bad base; 89 for a null handle, a
 *         null res or an unbound handle; 90 or 80 when memory is short; the decoder's code for a password that can't
 *         be decoded. When the file changed, those of a bind's load: 91, 80, the code of the line that ended it; and
 *         when lines were kept, in the direct mode: 50 or 91 for a file that can't be written back.
 */
int cfg_search_s(void *handle, const char *base, int scope, const char *filter, char **attrs, int attrsonly,
                 cfg_message **res);

/**
 * The first entry of a result.
 *
 * @param handle  any, or null
 * @param result  from cfg_search_s, or null
 * @return the result itself, or null
 */
cfg_message *cfg_first_entry(void *handle, cfg_message *result);

/**
 * The entry behind this one.
 *
 * @param handle  any, or null
 * @param entry   an entry of a result, or null
 * @return the next entry, or null
 */
cfg_message *cfg_next_entry(void *handle, cfg_message *entry);

/**
 * Counts entries.
 *
 * @param handle  any
 * @param result  the entry to begin with, or null
 * @return the number of entries from this one on; 0 for null. 89 for a null handle, as if it were a count.
 */
int cfg_count_entries(void *handle, cfg_message *result);

/**
 * Copies the DN of an entry.
 *
 * @param handle  any, or null
 * @param entry   an entry of a result
 * @return a fresh copy (free: cfg_memfree), or null; 89 for a node that is not an entry
 */
char *cfg_get_dn(void *handle, cfg_message *entry);

/**
 * Begins a walk through the attributes of an entry.
 *
 * @param handle  any, or null
 * @param entry   an entry of a result
 * @param cursor  receives a new cursor (free: cfg_ber_free), also when the entry has no attributes
 * @return a fresh copy of the first attribute's name (free: cfg_memfree), or null
 */
char *cfg_first_attribute(void *handle, cfg_message *entry, cfg_cursor **cursor);

/**
 * Goes on with a walk through the attributes of an entry.
 *
 * @param handle  any, or null
 * @param entry   the entry; the cursor alone holds the position
 * @param cursor  from cfg_first_attribute
 * @return a fresh copy of the next attribute's name (free: cfg_memfree), or null behind the last
 */
char *cfg_next_attribute(void *handle, cfg_message *entry, cfg_cursor *cursor);

/**
 * Counts the attributes of an entry.
 *
 * @param handle  any
 * @param entry   an entry of a result, or null
 * @return the number of attributes; 0 for null. 89 for a null handle, as if it were a count.
 */
int cfg_count_attributes(void *handle, cfg_message *entry);

/**
 * Copies the values of an attribute.
 *
 * @param handle  any, or null
 * @param entry   an entry of a result
 * @param name    the attribute's name, letter case ignored
 * @return a fresh null-terminated array of copies (free: cfg_value_free), or null: the entry has no such attribute
 *         (16), or the attribute has no values (0)
 */
char **cfg_get_values(void *handle, cfg_message *entry, const char *name);

/**
 * Counts values.
 *
 * @param values  from cfg_get_values, or null
 * @return the number of texts before the terminating null; 0 for a null array
 */
int cfg_count_values(char **values);

/**
 * Frees an array from cfg_get_values with its texts.
 *
 * @param values  the array; nothing happens for null
 */
void cfg_value_free(char **values);

/**
 * Frees a node, what is below it and what follows it, in constant stack. Nodes and texts of a result are freed in no
 * other way: those of a large one share memory. A caller may take nodes out of a result and link in own ones, from
 * calloc, with texts from malloc.
 *
 * @param result  the node; nothing happens for null
 * @return 0
 */
int cfg_msgfree(cfg_message *result);

/**
 * Frees a cursor.
 *
 * @param cursor  from cfg_first_attribute; nothing happens for null
 */
void cfg_ber_free(cfg_cursor *cursor);

/**
 * Frees a text that this API handed out.
 *
 * @param pointer  the text; nothing happens for null
 */
void cfg_memfree(void *pointer);

/** @} */

/**
 * @name Updates
 * This tells of the direct mode, the classic one, in which every handle starts. New programs set the safe mode
 * (cfg_set_write_mode, cfg_admin.h): an update is then on disk whole or not at all, of one that fails nothing stays in
 * memory, and the file keeps its owner and its mode. In the never mode updates are refused.
 *
 * Every update re-reads a file that changed on disk, changes the configuration in memory and writes the whole file,
 * in one call; nothing is pending between calls. A call that fails does not write, but for a re-read that keeps lines.
 * What it applied before it failed stays in memory, and is written by the next update unless the file changes on disk
 * meanwhile.
 *
 * The way the file is written: with a backup name (option 1006) the old file is renamed to it first, and the new one
 * is given to the account "ldap" with mode 0640; a full disk is not reported.
 *
 * Modification lists are null-terminated. Values are texts, or with LDAP_MOD_BVALUES the data of berval records read
 * up to the first NUL (bv_len is not looked at). Values are checked and normalised by the attribute's type; passwords
 * are given in clear text and stored encoded. A second value of a single-valued attribute is accepted.
 *
 * All return 0 or a code: 89 for a null handle, an unbound handle, a null dn, a record without a type or a berval
 * without data (nothing was changed); 34 for a bad DN; 21 for a value that its type refuses; 53 in the never mode, and
 * in a change set of which an update failed; 50 or 91 for a file that can't be put in place (with a backup name the old
 * text is under that name then); the codes of a bind's load when the file changed; the codec's code for a password that
 * it can't encode or decode; 80 with library code 1000 for any other failure of the system; 90 or 80 when memory is
 * short. In the safe mode also those of cfg_begin_s and cfg_commit_s.
 * @{
 */

/**
 * Adds an entry with the values of a list. An entry that exists gets the values added; in the safe mode it is refused.
 * An entry whose parent is missing hangs under its nearest existing ancestor.
 *
 * @param handle      bound
 * @param dn          the entry's DN
 * @param attributes  the values; operations are not looked at, records without values are skipped, and a null list
 *                    makes an entry without attributes
 * @return 0 or a code of all updates; in the safe mode 68 for an entry that exists
 */
int cfg_add_s(void *handle, const char *dn, LDAPMod **attributes);

/**
 * Applies modifications to an entry, in order and without rollback. Deleting the last value removes the attribute;
 * deleting a value that is not there changes nothing; replacing with no values removes.
 *
 * @param handle         bound
 * @param dn             the entry's DN
 * @param modifications  the list; a null or empty one succeeds, also for an entry that does not exist
 * @return 0 or a code of all updates; 32 no such entry; 16 delete of a missing attribute; 89 with library code 1010
 *         for an unknown operation
 */
int cfg_modify_s(void *handle, const char *dn, LDAPMod **modifications);

/**
 * Deletes an entry.
 *
 * @param handle  bound
 * @param dn      the entry's DN
 * @return 0 or a code of all updates; 32 no such entry; 66 it has children and option 1004 is off
 */
int cfg_delete_s(void *handle, const char *dn);

/**
 * Writes the file as it is in memory, after re-reading one that changed on disk. In the safe mode there is nothing to
 * write.
 *
 * @param handle  bound
 * @return 0 or a code of all updates; 53 also inside a change set
 */
int cfg_flush_s(void *handle);

/**
 * The tree as text, a line for each entry; entries below missing ancestors are marked, and these are listed. Does not
 * reset the handle, but for the exception of a failure, which takes the place of an earlier one: a text that was made
 * since the last reset is lent again, whatever oem says now.
 *
 * @param handle  bound
 * @param oem     0: ASCII; other: with the line-drawing bytes of code page 437
 * @return the text, lent; null for a null or unbound handle, and for a failure
 */
const char *cfg_tree_view(void *handle, int oem);

/** @} */

/**
 * @name Errors
 * The accessors from cfg_dump_exception on describe the last failure from the exception that the handle keeps. None
 * here resets the handle. Texts and lists are lent. Without a kept exception they give null, "" or 0 as told.
 * @{
 */

/**
 * The text for a result code or library code.
 *
 * @param code  any number
 * @return a static text, never null. Codes up to 999 have the LDAP client library's texts, a code that no table knows
 *         has "Unknown error".
 */
const char *cfg_err2string(int code);

/**
 * The result code of the last call.
 *
 * @param handle  any
 * @return the code; 89 for a null handle
 */
int cfg_get_errno(void *handle);

/**
 * The library code of the last call.
 *
 * @param handle  any
 * @return the kept exception's library code, else the last result code; 89 for a null handle
 */
int cfg_get_exterror(void *handle);

/**
 * Does nothing: an entry point that callers of the classic interface expect. The library never prints.
 *
 * @param handle  not looked at
 * @param text    not looked at
 */
void cfg_perror(void *handle, const char *text);

/**
 * A full report of the failure.
 *
 * @param handle  any
 * @return several lines, ending in a line feed; null when no exception is kept or memory is short
 */
const char *cfg_dump_exception(void *handle);

/**
 * The file of the failure.
 *
 * @param handle  any
 * @return the configuration file concerned, else the one that is bound or would be
 */
const char *cfg_get_file_name(void *handle);

/**
 * The line of the failure in its file.
 *
 * @param handle  any
 * @return the line, 1-based; 0 when none is known
 */
int cfg_get_file_line(void *handle);

/**
 * The entry of the failure.
 *
 * @param handle  any
 * @return its DN, or ""; null when no exception is kept
 */
const char *cfg_get_entry(void *handle);

/**
 * The attribute of the failure.
 *
 * @param handle  any
 * @return its name; null when none is known
 */
const char *cfg_get_attribute(void *handle);

/**
 * The offending value.
 *
 * @param handle  any
 * @return the value, or ""; null when no exception is kept
 */
const char *cfg_get_value(void *handle);

/**
 * The values that the attribute's type allows.
 *
 * @param handle  any
 * @return a null-terminated list; null when the type has no such list
 */
const char *const *cfg_get_enum(void *handle);

/**
 * The bits that the attribute's type allows.
 *
 * @param handle  any
 * @return the mask; 0 when the type has none
 */
long cfg_get_bitmask(void *handle);

/**
 * The lower bound of the attribute's type: of the number, or of the text's length in bytes.
 *
 * @param handle  any
 * @return the bound; 0, like the upper one, when the type has no range
 */
long cfg_get_minimum(void *handle);

/**
 * The upper bound of the attribute's type: of the number, or of the text's length in bytes.
 *
 * @param handle  any
 * @return the bound; 0, like the lower one, when the type has no range
 */
long cfg_get_maximum(void *handle);

/**
 * Whether the attribute's type is declared single-valued, which the library reports and does not enforce.
 *
 * @param handle  any
 * @return 1 when it is
 */
int cfg_get_is_single(void *handle);

/** @} */

#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
