// The record of one attribute type. It stands apart from the catalogue so that the exception record,
// which only reads its constraints, needs nothing else of the schema.
#ifndef VELTOR_LDIF_ATTRTYPERECORD_H
#define VELTOR_LDIF_ATTRTYPERECORD_H

#include <cstdint>
#include <string>

class LDIF_Value;

/// One attribute type: the five operations of its syntax and the constraints that its values obey.
///
/// The records of the catalogue are constant and live as long as the process; a value points at its record.
struct _AttrType
{
    const char* name;                                   ///< as spelled in the file; null in the default record only
    int (*match)(const LDIF_Value&, const LDIF_Value&); ///< negative, 0 or positive; `int` and DNs reverse the sense
    void (*fromStr)(LDIF_Value&, const std::string&);   ///< checks and stores a text; throws LDIF_Exception
    void (*fromBin)(LDIF_Value&, const void*, int);     ///< checks and stores a binary form of the given bytes
    std::string (*toStr)(const LDIF_Value&);            ///< the text form
    const void* (*toBin)(const LDIF_Value&, int&);      ///< the binary form and its length in bytes
    const char* const* enumValues;                      ///< null-terminated list, or null
    std::int32_t bitmask;                               ///< bits that a mask may have set; 0: none defined
    std::int32_t min;                                   ///< of the number, or of the length in bytes
    std::int32_t max;                                   ///< as min; both 0: no range
    bool singleValued;                                  ///< reported, never enforced
};

#endif
