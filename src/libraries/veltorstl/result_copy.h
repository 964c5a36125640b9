// Entries of the tree, copied out into the nodes of a result that the caller owns.
#ifndef VELTOR_RESULT_COPY_H
#define VELTOR_RESULT_COPY_H

#include "LDIF_Search.h"

#include "veltor/cfg.h"

#include <vector>

namespace veltor::detail {

/// How the passwords in a result look.
enum class PasswordForm { stored, clear };

/// Copies entries into nodes, with the attributes that were asked for.
///
/// @param wanted  names of attributes; none means all
/// @param first   receives the first node as soon as there is one, so that a failure can free what was made
/// @throws outOfMemory for a node; LDIF_Exception with the decoder's code for a password that it refuses, 34/1013 for
///         a DN that can't be printed
void copyOut(const std::vector<const LDIF_Entry*>& found, const LDIF_AttrFilter& wanted, PasswordForm passwords,
             cfg_message*& first);

} // namespace veltor::detail

#endif
