// The exit status of the tool, and how result codes of the library map to it.
#ifndef VELTOR_TOOL_EXIT_CODES_H
#define VELTOR_TOOL_EXIT_CODES_H

namespace veltor::tool {

/// Scripts test these numbers: they never change their meaning.
enum class ExitCode {
    done = 0,           ///< done, or already so
    no = 1,             ///< the answer is no: a difference, a finding
    usage = 2,          ///< the command line
    refused = 3,        ///< a value, a name, a DN or a rule
    file = 4,           ///< missing, unreadable, not a configuration, unsafe mode
    authentication = 5, ///< wrong DN or password
    busy = 6,           ///< locked, or changed by someone else
    writeFailed = 7,    ///< the text could not be written
    entry = 8,          ///< an entry or a value is missing, exists, or has children
    internal = 70,      ///< out of memory, or a mistake of ours
};

/// What the tool was doing when the library returned a code. A bind reads the file and compares credentials, so
/// the same code means something else there.
enum class Stage { bind, search, update };

/// @param ldap  the result code that the call returned
/// @param line  line of the configuration file that the failure names, 0 for none: with a line, it is the load
///              of the file that ended there, whatever was being done
ExitCode exitCodeFor(Stage stage, int ldap, int line);

} // namespace veltor::tool

#endif
