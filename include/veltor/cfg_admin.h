/**
 * @file
 * What administration tools and careful servers need beyond the classic calls of cfg.h.
 *
 * The calls work on the same handles. The conventions of cfg.h hold: every function that takes a handle returns 0 or
 * a result code, resets the handle first and keeps the exception of a failure, unless its comment says otherwise. A
 * null handle, and a null pointer where a result is asked for, give 89 (CFG_LDAP_PARAM_ERROR) and keep no exception.
 * None of these calls changes what the classic calls do on a handle that never used them.
 *
 * Write modes:
 *
 * - Direct: the classic write-back, with its hazards: the file is renamed away or truncated, then written. A load that
 *   keeps rejected lines writes the file at once.
 * - Safe: every change is a change set: made under the writer lock, on what the file holds by then; read back before
 *   it is installed; installed in one step, so that the file's name holds the old or the new text at any moment,
 *   whatever fails; durable when the call returns. The new file has owner, group, mode, access list and security label
 *   of the old one; where that can't be, nothing is written. With a backup name (option 1006) the old text stands under
 *   that name first, put there in one step too, with the same owner and mode and its old modification time. No load
 *   writes. An update outside cfg_begin_s and cfg_commit_s is a change set of its own. cfg_add_s refuses an entry that
 *   exists with 68, the length of a berval counts and data with a NUL is refused with 21, and cfg_flush_s has nothing
 *   to write: inside a set it is refused with 53.
 * - Never: no load writes. Updates and cfg_flush_s are refused with 53.
 *
 * The writer lock: an open-file-description write lock (F_OFD_SETLK, start 0, length 0) on the file NAME.lock beside
 * the configuration file NAME, symbolic links followed first. Other programs that honour it are safe from lost updates
 * too: open NAME.lock without following links, lock it, compare its inode with that of the name, and begin again if
 * they differ. The file is never removed. It holds the process id and the program name of the last holder, a line
 * each; only the lock itself says that somebody holds it. A holder that dies leaves it free. Two handles of one
 * process are two writers. A child that is forked while its parent holds the lock holds it too, until it ends or
 * executes another program.
 *
 * Codes: 51 the lock stayed busy, or somebody who ignores it changed the file meanwhile; 53 refused in this mode or
 * outside a change set, or the set is spoilt; 21 a value or name would not come back as it is; 34 the same for a DN;
 * 65 an entry would merge into the root; 68 the entry or the file exists. The library code repeats these.
 */
#ifndef VELTOR_CFG_ADMIN_H
#define VELTOR_CFG_ADMIN_H

#include "veltor/cfg.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif

/**
 * @name Modes
 * @{
 */

/** Write modes. The numbers are ABI. */
enum {
    CFG_WRITE_DIRECT = 0, /**< the classic write-back; every new handle starts here */
    CFG_WRITE_SAFE = 1,   /**< locked, verified, atomic, durable; loads never write */
    CFG_WRITE_NEVER = 2   /**< loads never write, updates and cfg_flush_s are refused with 53 */
};

/**
 * Sets the write mode, before or after the bind. The mode that is set before a bind holds for the bind's load.
 *
 * @param handle  any
 * @param mode    a CFG_WRITE_ number
 * @return 0 or a code: 89 an unknown mode; 53 inside a change set
 */
int cfg_set_write_mode(void *handle, int mode);

/**
 * Tells the write mode.
 *
 * @param handle  any
 * @param mode    receives a CFG_WRITE_ number
 * @return 0 or a code
 */
int cfg_get_write_mode(void *handle, int *mode);

/**
 * What a safe write does with lines that the change is not about. The numbers are ABI.
 *
 * What the change is about, where they stay: a removed value takes its lines with it, continuation lines and lines
 * that say it again among them; a new value takes the place of a removed one of its attribute, with that line's
 * spelling of the name and its separator, or follows the attribute's last line; where that would give another order
 * than the one asked for, the attribute's lines move to the place of its first one. A new attribute follows the last
 * one of its entry. An attribute without values takes the comment lines directly above its lines with it; an entry the
 * block directly above its DN line, the comments between its lines and the blank line behind it. A new entry follows
 * the last line of what is below its nearest ancestor. An entry that the file tells in several places stays in them.
 * New lines end as the line above them does. Version and charset are not written where the file does not say them.
 */
enum {
    CFG_LAYOUT_KEEP = 0, /**< they stay byte for byte; every new handle starts here */
    CFG_LAYOUT_OWN = 1   /**< the whole file gets the library's own form */
};

/**
 * Sets the layout, before or after the bind.
 *
 * @param handle  any
 * @param layout  a CFG_LAYOUT_ number
 * @return 0 or a code: 89 an unknown layout; 53 inside a change set
 */
int cfg_set_layout(void *handle, int layout);

/** @} */

/**
 * @name Change sets
 * Everything between begin and commit happens on disk whole, or not at all.
 * @{
 */

/**
 * Takes the writer lock and re-reads the file, whatever its modification time says. Until the end of the set searches
 * see the pending changes, and nothing is refreshed. The first update that fails spoils the set: later ones return 53,
 * and the commit writes nothing. A failed search and a refused call spoil nothing. A bind inside a set is refused
 * with 53.
 *
 * @param handle      bound
 * @param timeout_ms  milliseconds to wait for the lock, at least one try; below 0 is 89. An update outside a set waits
 *                    as long as the last begin asked, 10,000 at first.
 * @return 0 or a code: 51 the lock stayed busy (the message names the holder if it left its name); 53 outside safe
 *         mode, or inside a set; 50 and 80 the lock file can't be opened, made or locked; 91 the file is gone, or no
 *         plain file; 89 not bound; what a load raises
 */
int cfg_begin_s(void *handle, int timeout_ms);

/**
 * Reads the changed text back, compares, installs it, and frees the lock. The set ends, whatever comes of it; after a
 * failure memory holds what is on disk. A set without changes, or of updates that change nothing, writes nothing.
 *
 * @param handle  inside a change set
 * @return 0 or a code: 53 without begin, or the set is spoilt; 51 the file is not what the set began from; 21, 34, 65
 *         something would not come back (the exception names it); 50 and 80 a step of the install failed: the message
 *         says "the old text is in place" or "the new text is in place"
 */
int cfg_commit_s(void *handle);

/**
 * Drops the changes and frees the lock.
 *
 * @param handle  inside a change set
 * @return 0 or a code: 53 without begin
 */
int cfg_rollback_s(void *handle);

/**
 * Verifies a text and installs it in place of the file's. Ends the set, whatever comes of it; its changes are dropped.
 *
 * @param handle  inside a change set
 * @param text    the new text; the caller's
 * @param size    its bytes
 * @return 0 or a code: as cfg_commit_s; the code of what ends a load of the text
 */
int cfg_install_s(void *handle, const char *text, size_t size);

/**
 * Makes a new file with mode 0640. The handle stays as it is.
 *
 * @param handle  any
 * @param file    the name of the new file
 * @param text    what it shall hold; the caller's
 * @param size    the bytes of the text
 * @return 0 or a code: 68 the name exists in any form, a dangling link included; the code of what ends a load of the
 *         text; 50 and 80 a step failed: nothing is left behind
 */
int cfg_create_s(void *handle, const char *file, const char *text, size_t size);

/**
 * Puts a text in the place of a file's that need not load: so a configuration comes back that no handle can be bound
 * to any more. Under the writer lock, in one step and durable as a commit; the handle's backup name holds. The handle
 * stays as it is. Outside a change set of the file: that holds the lock.
 *
 * @param handle      any
 * @param file        the name of the file
 * @param old_text    what the caller has seen in the file
 * @param old_size    its bytes
 * @param text        what the file shall hold; the caller's
 * @param size        its bytes
 * @param timeout_ms  as for cfg_begin_s
 * @return 0 or a code: 51 the file holds something else, or the lock stayed busy; 91 there is no such file, or it is
 *         no plain one; the code of what ends a load of the new text; 50 and 80 as cfg_commit_s
 */
int cfg_replace_s(void *handle, const char *file, const char *old_text, size_t old_size, const char *text, size_t size,
                  int timeout_ms);

/** @} */

/**
 * @name Reading
 * Each call first reads a file again that changed on disk, except inside a change set; in the direct mode that can
 * write it, see "Re-reading" in cfg.h. "What a re-read raises" are the codes that cfg_search_s gives then.
 * @{
 */

/**
 * Reads the entries in scope, in tree order: every entry, also those without attributes, values as they are stored
 * (passwords encoded). The root has an empty DN.
 *
 * @param handle  bound
 * @param base    DN text; null is the empty DN
 * @param scope   as for cfg_search_s
 * @param res     receives the first entry (free: cfg_msgfree); null after a failure
 * @return 0 or a code: 32 no such base; 34 a base that is no DN, or a DN that can't be printed; what a re-read raises
 */
int cfg_read_s(void *handle, const char *base, int scope, cfg_message **res);

/**
 * Renders the file as a commit would write it. Outside safe mode it is the library's own form.
 *
 * @param handle  bound
 * @param text    receives the text and a NUL behind it (free: cfg_memfree)
 * @param size    receives its bytes, without that NUL
 * @return 0 or a code: 34 a DN that can't be printed, in the own form or of a new entry; what a re-read raises
 */
int cfg_render_s(void *handle, char **text, size_t *size);

/**
 * Reads the comment block directly above an entry's DN line (for an entry, what follows the last blank line above it)
 * or above an attribute's first line. Comments between an attribute's lines count to that block, since the library's
 * own form puts them there. Outside safe mode, what stands above the first entry of a file without charset or version
 * belongs to the root's charset or version.
 *
 * @param handle     bound
 * @param dn         the empty DN is the root; null is 89
 * @param attribute  null: the entry's own comment
 * @param text       receives the block (free: cfg_memfree): its lines joined by line feeds, each without its "#" and
 *                   one blank behind it; an empty text without a block
 * @return 0 or a code: 32 no such entry; 16 no such attribute; 34 the DN can't be parsed; what a re-read raises
 */
int cfg_get_comment_s(void *handle, const char *dn, const char *attribute, char **text);

/**
 * Replaces just that block. An update of safe mode.
 *
 * @param handle     bound
 * @param dn         as for cfg_get_comment_s
 * @param attribute  null: the entry's own comment
 * @param text       the block; null or empty removes it. Lines get their "# "; a line feed at the end has an empty line
 *                   behind it.
 * @return 0 or a code: 53 outside safe mode, and for the root without an attribute, since it has no DN line; 32, 16; 34
 *         the DN can't be parsed; 21 a line that would not come back; as the other updates
 */
int cfg_set_comment_s(void *handle, const char *dn, const char *attribute, const char *text);

/**
 * Tells where something stands in the file; inside a change set, where it stood at the begin. Positions are kept where
 * the mode was safe or never before the load.
 *
 * @param handle     bound
 * @param dn         the entry's DN
 * @param attribute  null: the DN line
 * @param value      null: the attribute's first value; else a value equal to it
 * @param line       receives the line, 1-based; 0 for nowhere
 * @return 0 or a code: 53 in direct mode; 32 no such entry; 16 no such attribute; 34 the DN can't be parsed; what a
 *         re-read raises
 */
int cfg_locate_s(void *handle, const char *dn, const char *attribute, const char *value, int *line);

/** @} */

/**
 * @name Checking
 * @{
 */

/**
 * Something that is wrong with a configuration file, or may be.
 *
 * The texts are lent: they live during the call that tells of it. A text is "" where there is none, but for value,
 * which is null for a secret: a password or a setting of the server's environment, and whatever looks like one because
 * "pw", "password" or "setenv" stands before a colon in a line that is unknown, unreadable or rejected. No message has
 * a secret in it either.
 */
typedef struct cfg_finding {
    int severity;          /**< 3 the load ends there; 2 the server reads something else than what stands in the file,
                                or the file is at risk; 1 the rest */
    int line;              /**< 1-based; 0: the file as a whole */
    int code;              /**< library code, or LDAP result code below 1000; of severity 3: what a bind would keep */
    const char *kind;      /**< one of the words of @ref kinds, which are stable */
    const char *dn;        /**< of the entry, as it is printed, or as it stands where it can't be */
    const char *attribute; /**< its name, where the finding is about one */
    const char *value;     /**< as it was read; of a line with a DN that; of a line without a colon all of it */
    const char *message;   /**< one sentence in one line; what does not print is escaped */
} cfg_finding;

/**
 * Called for each finding. It must not use the handle of the check.
 *
 * @param context  what the caller of cfg_check_s gave
 * @param finding  lives during the call
 * @return 0; another number ends the check
 */
typedef int (*cfg_finding_fn)(void *context, const cfg_finding *finding);

/**
 * @page kinds The kinds of findings
 * Each kind of cfg_finding has one severity, so that a script may go by either.
 *
 * Severity 3: the load ends there. The line is that of the failure, which for a line with continuation lines is the
 * last one of them.
 * @code{.unparsed}
 *   unreadable-text               a line that the character set of the process can't represent
 *   bad-dn                        a DN that can't be parsed
 *   line-taken-for-dn             a line without a colon that begins with "dn" and is no DN
 *   attribute-before-first-entry  an attribute other than version and charset before the first entry; told once for
 *                                 lines that stand together, here and in the next two
 *   attribute-outside-entry       a blank line ended the entry that the attribute was meant for
 *   line-outside-entry            a line without a name and a colon where no entry can keep it
 *   bad-root-value                a version other than 1
 *   second-root-attribute         version or charset a second time
 *   unmergeable-entry             an entry whose values can't be merged into the one of its DN; told where it ends
 *   load-failure                  anything else
 * @endcode
 *
 * Severity 2: the server reads something else than what stands in the file, or the file is at risk.
 * @code{.unparsed}
 *   rejected-line                 kept as zor-slapdInvalidLine: no name with a colon, or a value that is refused
 *   kept-invalid-line             a zor-slapdInvalidLine of an earlier load
 *   dn-line-without-colon         a line without a colon that begins with "dn" and happens to be a DN
 *   lost-last-value               the last line lacks its line feed, and loses its value by that
 *   duplicate-entry               a DN that stands above already; the entries are merged
 *   empty-dn                      the entry is merged into the root
 *   second-value                  of a single-valued attribute
 *   unknown-attribute             a name that the catalogue does not have, with the nearest one; told once an entry
 *   no-objectclass                an entry that a search without a filter does not find
 *   carriage-return               inside a line, where the reader drops it
 *   nul-byte                      the reader drops the rest of the line
 *   double-colon                  "::", which does not mean base 64
 *   stripped-parentheses          around a value, where the reader drops them
 *   unstable-name                 a name that would not survive a write of the file
 *   unstable-value                a value that would not
 *   unstable-dn                   a DN that would not
 *   unprintable-dn                a DN that can't be written at all
 *   clear-password                a password that is not encoded
 *   undecodable-password          a password of encoded shape that can't be decoded
 *   writable-file                 everybody may write the file
 *   writable-folder               everybody may write in its folder
 * @endcode
 *
 * Severity 1: the rest.
 * @code{.unparsed}
 *   missing-parent                told for the first entry below it
 *   repeated-value                a value that the attribute has already
 *   unterminated-last-line        the last line lacks its line feed, and loses nothing by that
 *   carriage-return-at-line-end   told once, with the number of lines
 *   password-in-comment           in clear text
 *   group-writable-file           the group may write the file
 *   group-writable-folder         the group may write in its folder
 * @endcode
 */

/**
 * Checks a configuration file as a load would read it, and goes on behind what would end a load. Findings about the
 * file as a whole come first, then those about lines in their order, then those that only the whole text shows. The
 * handle keeps its settings; a store that is bound is not looked at. Never writes.
 *
 * @param handle   any
 * @param file     null: the file that a bind of the handle would read
 * @param report   called for each finding
 * @param context  handed to it
 * @return 0, also with findings and when the callback ended the check; 89 without a callback; the code of a bind for a
 *         file that can't be read (91, 80); 90 memory is short
 */
int cfg_check_s(void *handle, const char *file, cfg_finding_fn report, void *context);

/** @} */

/**
 * @name Failures
 * @{
 */

/** One record of the kept exception. Texts are "" where there is none, and live until the next reset. */
typedef struct cfg_failure {
    int ldap;              /**< LDAP result code */
    int code;              /**< library code */
    int line;              /**< line in the file; 0: none */
    const char *message;   /**< what happened */
    const char *file;      /**< the configuration file */
    const char *dn;        /**< of the entry */
    const char *attribute; /**< its name */
    const char *value;     /**< the offending one */
} cfg_failure;

/**
 * Counts the records of the kept exception: itself and its causes. Does not reset the handle.
 *
 * @param handle  any
 * @return the number; 0 without an exception, and for a null handle
 */
int cfg_failure_count(void *handle);

/**
 * Tells one record of the kept exception. Its attribute is the one that cfg_get_attribute would tell. Does not reset
 * the handle.
 *
 * @param handle  any
 * @param index   0 is the outermost record
 * @param out     receives the record, with lent texts
 * @return 0 or a code: 89 for an index outside 0 to count - 1
 */
int cfg_failure_at(void *handle, int index, cfg_failure *out);

/** @} */

/**
 * @name The catalogue of attribute types
 * @{
 */

/** One attribute type. Everything it points to lives as long as the process. */
typedef struct cfg_attr_type {
    const char *name;               /**< as it is written in the library's own form */
    const char *syntax;             /**< ces, cis, dc, dn, enum, env, file, int, krbdn, mask, oid, path, plugin, pw or
                                         url */
    const char *const *enum_values; /**< null-terminated; null when the type has no list */
    long bitmask;                   /**< as cfg_get_bitmask tells it */
    long minimum;                   /**< as cfg_get_minimum tells it */
    long maximum;                   /**< as cfg_get_maximum tells it */
    int single_valued;              /**< 1 when the type is declared single-valued */
} cfg_attr_type;

/**
 * Counts the attribute types. Thread-safe.
 *
 * @return the number of distinct names: 115
 */
int cfg_attr_type_count(void);

/**
 * Tells one attribute type. Names are in order, letter case ignored. Thread-safe.
 *
 * @param index  0 to count - 1
 * @param out    receives the type
 * @return 0 or a code: 89 for another index
 */
int cfg_attr_type_at(int index, cfg_attr_type *out);

/** @} */

#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
