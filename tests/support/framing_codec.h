// A password codec for programs that put their own in place of the platform's: what is encoded is the clear text
// between
// ">" and "<".
#ifndef VELTOR_TESTS_FRAMING_CODEC_H
#define VELTOR_TESTS_FRAMING_CODEC_H

#include <cstring>
#include <string>

namespace veltor::test {

/// In a buffer for std::free, as the codec's callers are lent it.
inline char* framed(const char* text)
{
    return strdup((">" + std::string(text) + "<").c_str());
}

/// In a buffer for std::free, too.
inline char* unframed(const char* encodedText)
{
    const std::string frame = encodedText;
    return strdup(frame.substr(1, frame.size() - 2).c_str());
}

} // namespace veltor::test

#endif
