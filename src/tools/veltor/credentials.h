// Passwords from outside: the terminal, a file, standard input. None stays in memory that was given back.
#ifndef VELTOR_TOOL_CREDENTIALS_H
#define VELTOR_TOOL_CREDENTIALS_H

#include "wiped_text.h"

#include <string>

namespace veltor::tool {

/// Keeps passwords out of core files from here on, for the whole process.
void disableCoreDumps();

/// Asks for a password on the controlling terminal with the echo off. The echo is back on whenever this
/// returns, throws, or the process ends or stops by a signal that can be caught; a process that was stopped
/// asks again when it goes on.
///
/// @param question  shown as it is, escaped, without a line end
/// @param instead   the option that gives the password where there is no terminal
/// @param mayBeEmpty  the caller looks at an answer without a character
/// @return          what was typed, without its line end, with a terminating NUL
/// @throws Failure  usage when there is no terminal, authentication when nothing was typed that may not be empty
WipedText askPassword(const std::string& question, const std::string& instead = "-y FILE", bool mayBeEmpty = false);

/// Reads a password from a file, "-" for standard input. One line feed at the end is taken off.
///
/// @param option    what named the file, for messages
/// @return          the password with a terminating NUL
/// @throws Failure  file when it can't be read, holds a NUL or more than 4096 bytes, or when more than its owner
///                  and the group's readers have a permission on it (mode wider than 0640)
WipedText readPasswordFile(const std::string& file, const std::string& option = "-y");

/// True for the shape in which passwords stand in a configuration file, ">...<". The library takes such a text
/// for an encoded password, so it must never come in as a clear one: the file's own text would open the file.
bool looksEncoded(const WipedText& password);

} // namespace veltor::tool

#endif
