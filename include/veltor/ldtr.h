/// @file
/// Trace helpers: they format trace records and debug lines and hand them to the platform's trace service
/// (trcInit, trcWriteRec, trcEvents and PrintDebugVa of veltor/platform.h).
///
/// Conventions of the whole header:
///
/// - Words: record words, class words, types, probes and event bits are 32-bit words. They travel as unsigned long;
///   bits above the lower 32 are ignored.
/// - Formats: as for vprintf, with one difference: the plain conversion "%s" takes at most 1000 bytes of its argument.
///   A format has at most 499 bytes, also once every "%s" reads "%0.1000s".
/// - Results: int functions pass back what the platform's service returns, unchanged, unless they say otherwise. A
///   format that can't be used never loses the record: its text then is "!!! safer_vsprintf error %d !!!" with the code
///   of safer_vsprintf.
/// - Failures: nothing throws, nothing allocates: texts are formatted on the stack (about 9 KiB).
/// - Threads: everything may be called by several threads at once, as long as each formatter object stays with one
///   thread. ldtr_init comes before the first record.
#ifndef VELTOR_LDTR_H
#define VELTOR_LDTR_H

#include <cstdarg>
#include <cstdint>

#if defined(__GNUC__)
/// Lets the compiler compare a call's arguments with its format. 0 as the first argument: a va_list.
#define VELTOR_LDTR_PRINTF(fmtIndex, firstIndex) __attribute__((format(printf, fmtIndex, firstIndex)))
#pragma GCC visibility push(default)
#else
#define VELTOR_LDTR_PRINTF(fmtIndex, firstIndex)
#endif

/// Prepares the platform's trace service.
///
/// @return  what trcInit returns
int ldtr_init();

/// Formats like vsnprintf, but refuses what a trace call should not do, and tells why.
///
/// @param size  the room in dst in bytes, the terminating NUL included
/// @param dst   receives the text; not to be relied on unless the result is 0
/// @param fmt   the format
/// @param ap    used up by the call, as by vsnprintf
/// @return      0, or the first of these that holds: 1 dst is null; 2 size is less than 1; 3 fmt is null;
///              4 ap is null (where va_list is a pointer); 5 fmt has size bytes or more; 6 fmt has more than
///              499 bytes; 7 fmt has more than 499 bytes once each "%s" reads "%0.1000s"; 8 the formatter
///              reports an error; 9 the text has size bytes or more
int safer_vsprintf(int size, char *dst, const char *fmt, va_list ap) VELTOR_LDTR_PRINTF(3, 0);

/// Writes a record with a formatted text of at most 8191 bytes.
///
/// @param record  the record word
/// @param cls     the class word
/// @param object  the traced object, or null; only its address is recorded
/// @param fmt     the format
/// @param ap      used up by the call
/// @return        what trcWriteRec returns
int ldtr_write(unsigned long record, unsigned long cls, const void *object, const char *fmt, va_list ap)
    VELTOR_LDTR_PRINTF(4, 0);

/// Writes a record without data.
///
/// @param record  the record word
/// @param cls     the class word
/// @param object  the traced object, or null; only its address is recorded
/// @return        what trcWriteRec returns
int ldtr_write(unsigned long record, unsigned long cls, const void *object);

/// Writes the record with which a traced function ends: its data is errcode as a 32-bit number in the
/// machine's byte order.
///
/// @param cls        the class word
/// @param probe      the number of the exit within the function. Where the next higher event bit is enabled
///                   in trcEvents and errcode is not 0, the record word carries probe / 10 + 8 instead.
/// @param eventBits  the event bits of the traced function's entry
/// @param errcode    what the traced function returns
/// @param object     the traced object, or null; only its address is recorded
/// @return           what trcWriteRec returns
int ldtr_exit_errcode(unsigned long cls, unsigned long probe, unsigned long eventBits, long errcode,
                      const void *object);

/// Keeps the words that identify a traced free function, so that each trace call names only what changes.
class ldtr_formater_global {
  public:
    /// @param record  the record word of the traced function
    explicit ldtr_formater_global(unsigned long record) : recordWord(static_cast<std::uint32_t>(record)) {}

    /// Writes a formatted record without an object.
    ///
    /// @param type  the class word
    /// @param fmt   the format, whose arguments follow
    /// @return      what trcWriteRec returns
    int operator()(unsigned long type, const char *fmt, ...) const VELTOR_LDTR_PRINTF(3, 4);

    /// Writes a formatted record about an object that comes or goes.
    ///
    /// @param type    the class word
    /// @param object  the object; only its address is recorded
    /// @param fmt     the format, whose arguments follow
    /// @return        what trcWriteRec returns
    int new_delete(unsigned long type, const void *object, const char *fmt, ...) const VELTOR_LDTR_PRINTF(4, 5);

    /// Writes the record of operator() and prints the same text on the debug output. The type 0xC8110000
    /// first makes the lower three bytes of recordWord 0x070000, for this call and all later ones.
    ///
    /// The platform's PrintDebugVa gets format and arguments as they are, without the limits of this header.
    ///
    /// @param type  the class word
    /// @param fmt   the format, whose arguments follow
    /// @return      what trcWriteRec returns
    int debug(unsigned long type, const char *fmt, ...) VELTOR_LDTR_PRINTF(3, 4);

    std::uint32_t recordWord; ///< record word of every record that this formatter writes
};

/// Keeps the words that identify a traced member function and its object.
///
/// The lowest byte of a call's type is or-ed into the record's class word, for that record only.
class ldtr_formater_local {
  public:
    /// @param cls           the class word of the traced class
    /// @param record        the record word of the traced function
    /// @param tracedObject  the traced object; only its address is used
    ldtr_formater_local(unsigned long cls, unsigned long record, const void *tracedObject)
        : classWord(static_cast<std::uint32_t>(cls)), recordWord(static_cast<std::uint32_t>(record)),
          object(tracedObject) {}

    /// Writes a formatted record about this formatter's object.
    ///
    /// @param fmt  the format, whose arguments follow
    /// @return     what trcWriteRec returns
    int operator()(const char *fmt, ...) const VELTOR_LDTR_PRINTF(2, 3);

    /// Writes a formatted record of a type about this formatter's object.
    ///
    /// @param type  its lowest byte is or-ed into the record's class word
    /// @param fmt   the format, whose arguments follow
    /// @return      what trcWriteRec returns
    int operator()(unsigned long type, const char *fmt, ...) const VELTOR_LDTR_PRINTF(3, 4);

    /// Writes the record of operator() and prints the same text on the debug output, as
    /// ldtr_formater_global::debug does.
    ///
    /// @param type  its lowest byte is or-ed into the record's class word
    /// @param fmt   the format, whose arguments follow
    /// @return      what trcWriteRec returns
    int debug(unsigned long type, const char *fmt, ...) VELTOR_LDTR_PRINTF(3, 4);

    /// Writes a formatted record about another object, one that comes or goes.
    ///
    /// @param otherObject  the object; only its address is recorded
    /// @param fmt          the format, whose arguments follow
    /// @return             what trcWriteRec returns
    int new_delete(const void *otherObject, const char *fmt, ...) const VELTOR_LDTR_PRINTF(3, 4);

    /// Writes a formatted record of a type about another object, one that comes or goes.
    ///
    /// @param type         its lowest byte is or-ed into the record's class word
    /// @param otherObject  the object; only its address is recorded
    /// @param fmt          the format, whose arguments follow
    /// @return             what trcWriteRec returns
    int new_delete(unsigned long type, const void *otherObject, const char *fmt, ...) const VELTOR_LDTR_PRINTF(4, 5);

    std::uint32_t classWord;  ///< class word; the lowest byte of a call's type is or-ed into it
    std::uint32_t recordWord; ///< record word of every record that this formatter writes
    const void *object;       ///< the traced object; only its address is used
};

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
