// What a finding may say: which texts are secrets, how others are quoted, which name may have been meant.
#ifndef VELTOR_FINDING_TEXT_H
#define VELTOR_FINDING_TEXT_H

#include "LDIF_AttrTypeRecord.h"

#include <string>
#include <string_view>

class LDIF_Exception;

namespace veltor::detail {

/// A text in double quotes for a message of one line: its beginning if it is long, and what doesn't print escaped.
std::string quoted(std::string_view text);

/// True for values that nobody is shown: passwords and settings of the server's environment.
bool isSecretType(const _AttrType& type);

/// True when a text names a secret: what stands before its last colon, or all of it without one.
bool looksSecret(std::string_view text);

/// True when the name of a secret attribute stands anywhere in a text: its line may have become part of another one.
bool namesSecretAttribute(std::string_view text);

/// The attribute of the catalogue that was probably meant by a name that is not in it, which may lack the prefix
/// "zor-slapd" or "zor-"; null when none is near.
const _AttrType* nearestAttribute(std::string_view name);

/// Why a value was refused, as the second half of a sentence.
std::string reasonOf(const LDIF_Exception& refusal, const _AttrType& type);

/// Why a DN could not be read, as the second half of a sentence.
std::string reasonOfDn(int code);

} // namespace veltor::detail

#endif
