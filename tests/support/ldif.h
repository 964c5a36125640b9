// Short ways to the objects of the store, for tests.
#ifndef VELTOR_TESTS_LDIF_H
#define VELTOR_TESTS_LDIF_H

#include "LDIF_Comment.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "LDIF_Line.h"

#include <initializer_list>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace veltor::test {

inline LDIF_DN dnOf(const std::string& text)
{
    LDIF_DN dn;
    dn = cisString(text);
    return dn;
}

inline LDIF_Line lineOf(LDIF_Line::Type type, const std::string& name, const std::string& value)
{
    LDIF_Line line;
    line.type = type;
    line.name = name;
    line.value = value;
    line.lineNumber = 1;
    return line;
}

inline LDIF_Line attributeLine(const std::string& name, const std::string& value)
{
    return lineOf(LDIF_Line::attribute, name, value);
}

/// A comment of these lines; the empty text stands for a blank line.
inline LDIF_Comment commentOf(std::initializer_list<std::string> lines)
{
    LDIF_Comment comment;
    for (const auto& text : lines) {
        comment.lines.push_back(lineOf(text.empty() ? LDIF_Line::blankLine : LDIF_Line::comment, "", text));
    }
    return comment;
}

/// What the work throws. Fails the test when it throws nothing, or something else.
template <class Work>
LDIF_Exception failureOf(Work&& work)
{
    try {
        std::forward<Work>(work)();
    } catch (const LDIF_Exception& failure) {
        return failure;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {"", 0, 0, 0, "nothing was thrown"};
}

inline void expectFailure(const LDIF_Exception& failure, int ldapErr, int extErr, const std::string& message)
{
    EXPECT_EQ(failure.ldapErr, ldapErr);
    EXPECT_EQ(failure.extErr, extErr);
    EXPECT_EQ(failure.msg, message);
}

} // namespace veltor::test

#endif
