// The catalogue of attribute types and the syntaxes that its records point to.
#ifndef VELTOR_LDIF_ATTRTYPE_H
#define VELTOR_LDIF_ATTRTYPE_H

#include "LDIF_AttrTypeRecord.h"
#include "fold_hash.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class LDIF_Value;

// ---- Lists of allowed values, null-terminated ----

extern const char* const enumBoolean[];
extern const char* const enumPwEncryption[];
extern const char* const enumSchemaCheck[];
extern const char* const enumSecurity[];
extern const char* const enumSslAuth[];
extern const char* const enumSysLogLevel[];
extern const char* const enumDerefAliases[];
extern const char* const enumETStatCond[];
extern const char* const urlLdap[];
extern const char* const oidACI[];

// ---- The catalogue ----

/// The named records in name order, letter case ignored, then the default record.
extern const std::array<_AttrType, 117> attrMapArray;
/// The first record.
extern const _AttrType* const attrMap;
/// Number of named records; 0 until initAttrMap.
extern int numAttrs;
/// The default record: any text, any number of values. Null until initAttrMap.
extern const _AttrType* defaultAttrType;

/// Makes the catalogue ready. The first look-up does it, guarded, so that threads with a handle each are safe;
/// calling it again is harmless.
void initAttrMap();

/// The record with this name, letter case ignored, among those with indices lo to hi - 1; null if there is none.
const _AttrType* searchAttrMap(const char* name, int lo, int hi);

/// The record with this name, letter case ignored; the default record for an unknown name and for null.
/// Never null; lives as long as the process. Thread-safe.
const _AttrType* getAttrType(const char* name);

// ---- Syntaxes ----
//
// Five functions each. Compare orders or equates two values. FromStr checks a text and stores its normal form,
// FromBin does the same with a binary form, and both throw LDIF_Exception with the value and its type. ToStr and
// ToBin give the stored forms. What a syntax has in common with another is that other's function under its name.

int cesCompare(const LDIF_Value& left, const LDIF_Value& right);
void cesFromStr(LDIF_Value& value, const std::string& text);
void cesFromBin(LDIF_Value& value, const void* data, int length);
std::string cesToStr(const LDIF_Value& value);
const void* cesToBin(const LDIF_Value& value, int& length);

int cisCompare(const LDIF_Value& left, const LDIF_Value& right);
inline constexpr auto& cisFromStr = cesFromStr;
inline constexpr auto& cisFromBin = cesFromBin;
inline constexpr auto& cisToStr = cesToStr;
inline constexpr auto& cisToBin = cesToBin;

inline constexpr auto& enumCompare = cisCompare;
void enumFromStr(LDIF_Value& value, const std::string& text);
inline constexpr auto& enumFromBin = cisFromBin;
inline constexpr auto& enumToStr = cisToStr;
inline constexpr auto& enumToBin = cisToBin;

/// Reversed on purpose: a smaller left number gives +1. The difference wraps.
int intCompare(const LDIF_Value& left, const LDIF_Value& right);
void intFromStr(LDIF_Value& value, const std::string& text);
void intFromBin(LDIF_Value& value, const void* data, int length);
inline constexpr auto& intToStr = cesToStr;
inline constexpr auto& intToBin = cesToBin;

inline constexpr auto& maskCompare = intCompare;
void maskFromStr(LDIF_Value& value, const std::string& text);
void maskFromBin(LDIF_Value& value, const void* data, int length);
inline constexpr auto& maskToStr = intToStr;
inline constexpr auto& maskToBin = intToBin;

int dnCompare(const LDIF_Value& left, const LDIF_Value& right);
void dnFromStr(LDIF_Value& value, const std::string& text);
void dnFromBin(LDIF_Value& value, const void* data, int length);
inline constexpr auto& dnToStr = cisToStr;
inline constexpr auto& dnToBin = cisToBin;

/// Equal when the clear texts are equal, however they were encoded.
int pwCompare(const LDIF_Value& left, const LDIF_Value& right);
/// Stores the encoded text. A text that begins with ">" and ends with "<" is taken for an encoded one.
void pwFromStr(LDIF_Value& value, const std::string& text);
inline constexpr auto& pwFromBin = cesFromBin;
inline constexpr auto& pwToStr = cesToStr;
inline constexpr auto& pwToBin = cesToBin;

// Free text, compared without regard to case.
inline constexpr auto& oidCompare = cisCompare;
inline constexpr auto& oidFromStr = cisFromStr;
inline constexpr auto& oidFromBin = cisFromBin;
inline constexpr auto& oidToStr = cisToStr;
inline constexpr auto& oidToBin = cisToBin;

inline constexpr auto& dcCompare = cisCompare;
inline constexpr auto& dcFromStr = cisFromStr;
inline constexpr auto& dcFromBin = cisFromBin;
inline constexpr auto& dcToStr = cisToStr;
inline constexpr auto& dcToBin = cisToBin;

inline constexpr auto& urlCompare = cisCompare;
inline constexpr auto& urlFromStr = cisFromStr;
inline constexpr auto& urlFromBin = cisFromBin;
inline constexpr auto& urlToStr = cisToStr;
inline constexpr auto& urlToBin = cisToBin;

inline constexpr auto& krbdnCompare = cisCompare;
inline constexpr auto& krbdnFromStr = cisFromStr;
inline constexpr auto& krbdnFromBin = cisFromBin;
inline constexpr auto& krbdnToStr = cisToStr;
inline constexpr auto& krbdnToBin = cisToBin;

inline constexpr auto& envCompare = cisCompare;
inline constexpr auto& envFromStr = cisFromStr;
inline constexpr auto& envFromBin = cisFromBin;
inline constexpr auto& envToStr = cisToStr;
inline constexpr auto& envToBin = cisToBin;

// Free text, compared byte by byte.
inline constexpr auto& pathCompare = cesCompare;
inline constexpr auto& pathFromStr = cesFromStr;
inline constexpr auto& pathFromBin = cesFromBin;
inline constexpr auto& pathToStr = cesToStr;
inline constexpr auto& pathToBin = cesToBin;

inline constexpr auto& fileCompare = cesCompare;
inline constexpr auto& fileFromStr = cesFromStr;
inline constexpr auto& fileFromBin = cesFromBin;
inline constexpr auto& fileToStr = cesToStr;
inline constexpr auto& fileToBin = cesToBin;

inline constexpr auto& pluginCompare = cesCompare;
inline constexpr auto& pluginFromStr = cesFromStr;
inline constexpr auto& pluginFromBin = cesFromBin;
inline constexpr auto& pluginToStr = cesToStr;
inline constexpr auto& pluginToBin = cesToBin;

/// Raise 92/1008 and 92/1009: the syntax has no such representation.
[[noreturn]] void BinarySyntaxNotImplemented(const char* sourceFile, int sourceLine, const char* syntax,
                                             const _AttrType* type, const std::string& value);
[[noreturn]] void StringSyntaxNotImplemented(const char* sourceFile, int sourceLine, const char* syntax,
                                             const _AttrType* type, const std::string& value);

namespace veltor::detail {

/// A record of the catalogue, and the word for its syntax: the prefix of that syntax's functions.
struct NamedType
{
    const _AttrType* type;
    const char* syntax;
};

/// The catalogue by its names: each once, in name order, letter case ignored. Constant: there before any start-up code.
extern const std::array<NamedType, 115> namedTypes;

/// What getAttrType() finds for a name that need not end in NUL; of one that has a NUL in it, for what stands before.
const _AttrType* attrTypeOf(std::string_view name);

/// True for the shape of an encoded password: it alone tells one from a clear text.
bool isEncoded(std::string_view text);

/// True when a type's syntax stores the text form of a value unchanged, so that a value need not be built again
/// from its text. DN values may read back differently; types of foreign syntaxes are not known.
bool textReadsBackEqual(const _AttrType& type);

/// What fromStr of the value's type does with a text that has no NUL, without a string for it, where the text is surely
/// right and normal. False, with the value as it was: fromStr has to look, and to complain.
/// @throws for DNs what fromStr throws; std::bad_alloc
bool setPlainText(LDIF_Value& value, std::string_view text);

/// A hash of what the comparison of a value's type sees of it: values that compare equal have equal hashes. None when
/// the type's functions are not those of a syntax above, and when a comparison would complain about the value.
///
/// @param fold  of the locale in force
std::optional<std::uint64_t> matchHash(const LDIF_Value& value, FoldTable fold) noexcept;

} // namespace veltor::detail

#endif
