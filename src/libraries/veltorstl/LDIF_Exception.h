// The one exception type of the library, and the helper with which every layer passes failures on.
#ifndef VELTOR_LDIF_EXCEPTION_H
#define VELTOR_LDIF_EXCEPTION_H

#include "LDIF_AttrTypeRecord.h"

#include <atomic>
#include <cstddef>
#include <exception>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>

/// The source position to give to an exception: the file's base name, so that no build folder shows.
#define VELTOR_HERE __FILE_NAME__, __LINE__

/// LDAP result codes that the library raises. Written as numbers because LDAP client libraries disagree on
/// the macros above 80; they are part of the API, keep them.
namespace veltor::result {
inline constexpr int noSuchAttribute = 16;
inline constexpr int inappropriateMatching = 18;
inline constexpr int constraintViolation = 19;
inline constexpr int invalidSyntax = 21;
inline constexpr int noSuchObject = 32;
inline constexpr int invalidDnSyntax = 34;
inline constexpr int invalidCredentials = 49;
inline constexpr int insufficientAccess = 50;
inline constexpr int busy = 51;
inline constexpr int unwillingToPerform = 53;
inline constexpr int objectClassViolation = 65;
inline constexpr int notAllowedOnNonleaf = 66;
inline constexpr int entryAlreadyExists = 68;
inline constexpr int other = 80;
inline constexpr int authUnknown = 86;
inline constexpr int paramError = 89;
inline constexpr int noMemory = 90;
inline constexpr int connectError = 91;
inline constexpr int notSupported = 92;
inline constexpr int notWide = 162;   // a text that the locale can't read
inline constexpr int notNarrow = 163; // a wide text that the locale can't write
} // namespace veltor::result

/// A failure: two codes, a message, the source position, and whatever is known of the place in the
/// configuration file that it concerns. It may wrap the failure that caused it.
///
/// Thread-safe like any value; the two process-wide flags may be changed while other threads print.
class LDIF_Exception : public std::exception
{
public:
    /// Owns the wrapped exception. Copying it copies the whole chain.
    class Nested
    {
    public:
        Nested() noexcept = default;
        Nested(std::nullptr_t) noexcept {}
        /// Takes over an exception from new.
        Nested(LDIF_Exception* owned) noexcept;
        Nested(const Nested& other);
        Nested(Nested&& other) noexcept;
        Nested& operator=(const Nested& other);
        Nested& operator=(Nested&& other) noexcept;
        ~Nested();

        LDIF_Exception* get() const noexcept { return exception_; }
        LDIF_Exception* operator->() const noexcept { return exception_; }
        operator LDIF_Exception*() const noexcept { return exception_; }

    private:
        LDIF_Exception* exception_ = nullptr;
    };

    std::string srcFile;                 ///< source file in which it was raised
    int srcLine = 0;                     ///< and the line
    std::string msg;                     ///< may be empty
    int ldapErr = 0;                     ///< LDAP result code: what the API returns
    int extErr = 0;                      ///< library code 1000 to 1035, an LDAP code repeated, or 0
    int sysErrno = 0;                    ///< errno at the failure, 0 if none
    int errnoHidden = 0;                 ///< non-zero: dump() leaves the errno line out
    std::string configFile;              ///< configuration file concerned
    int configLine = 0;                  ///< 1-based line of that file, 0 if unknown
    std::string entryDn;                 ///< DN of the entry concerned
    std::string attribute;               ///< name of the attribute concerned
    std::string value;                   ///< the offending value
    const _AttrType* attrType = nullptr; ///< the type whose constraints were broken, or null; not owned
    Nested nested;                       ///< the cause, or null

    /// Texts begin with the source position. Set through option 1002.
    static std::atomic<bool> showSource;
    /// Texts include the causes. Set through option 1003.
    static std::atomic<bool> showStack;

    LDIF_Exception(const char* sourceFile, int sourceLine, int ldapErr, int extErr, const char* message);

    /// Wraps a failure: takes over all its facts under a new source position and keeps a deep copy of it.
    LDIF_Exception(const char* sourceFile, int sourceLine, const LDIF_Exception& nested);

    LDIF_Exception(const LDIF_Exception&) = default;
    LDIF_Exception(LDIF_Exception&&) noexcept = default;
    LDIF_Exception& operator=(const LDIF_Exception&) = default;
    LDIF_Exception& operator=(LDIF_Exception&&) noexcept = default;
    ~LDIF_Exception() override;

    // The order of the virtual functions is ABI.
    virtual std::string dump() const;    ///< the full report, several lines
    virtual std::string str() const;     ///< the short form: the message and those of the causes, a line each
    virtual std::string fileStr() const; ///< source file name without its folder, ":" and the line
    virtual std::string errStr() const;  ///< errno in decimal
    virtual std::string msgStr() const;  ///< the message

    /// True where the system failed (memory, say) and what was asked for may have been right. Whoever takes a
    /// failure for a judgement on the input looks here first.
    bool isSystemFailure() const noexcept { return systemFailure_ || ldapErr == noMemory; }
    void markSystemFailure() noexcept { systemFailure_ = true; }

private:
    static constexpr int noMemory = 90;

    bool systemFailure_ = false;
};

std::ostream& operator<<(std::ostream& stream, const LDIF_Exception& exception);

namespace veltor::detail {

/// Where a layer raises what it passes on, and the message it gives to a failure of foreign type.
struct Layer
{
    const char* file;
    int line;
    const char* systemMessage;
};

/// Leaves an exception as it is.
struct AsItIs
{
    void operator()(LDIF_Exception&) const noexcept {}
};

/// Runs one layer's work and passes an LDIF_Exception from below on wrapped with this layer's position. Foreign
/// failures go through untouched.
///
/// @param complete  called on what is about to be thrown, to add the context that only this layer knows
template <class Work, class Complete = AsItIs>
decltype(auto) wrapping(const Layer& layer, Work&& work, Complete&& complete = {})
{
    try {
        return std::forward<Work>(work)();
    } catch (const LDIF_Exception& inner) {
        LDIF_Exception outer(layer.file, layer.line, inner);
        complete(outer);
        throw outer;
    }
}

/// Runs one layer's work and turns a foreign failure into an LDIF_Exception 80/1000 with the layer's message.
/// An LDIF_Exception goes through untouched.
template <class Work, class Complete = AsItIs>
decltype(auto) translating(const Layer& layer, Work&& work, Complete&& complete = {})
{
    try {
        return std::forward<Work>(work)();
    } catch (const LDIF_Exception&) {
        throw;
    } catch (...) {
        LDIF_Exception failure(layer.file, layer.line, result::other, 1000, layer.systemMessage);
        failure.markSystemFailure();
        complete(failure);
        throw failure;
    }
}

/// Both: what leaves the layer is an LDIF_Exception with the layer's position.
template <class Work, class Complete = AsItIs>
decltype(auto) guarded(const Layer& layer, Work&& work, Complete&& complete = {})
{
    return translating(
        layer, [&]() -> decltype(auto) { return wrapping(layer, work, complete); }, complete);
}

} // namespace veltor::detail

#endif
