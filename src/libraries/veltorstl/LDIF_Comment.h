// The comment lines of the file that belong to one attribute or entry.
#ifndef VELTOR_LDIF_COMMENT_H
#define VELTOR_LDIF_COMMENT_H

#include "LDIF_Line.h"
#include "list.h"

#include <cstddef>
#include <string>
#include <utility>

/// Comment lines in file order, each kept whole with its "#". An entry's comment also keeps blank lines.
class LDIF_Comment
{
public:
    veltor::detail::List<LDIF_Line> lines;

    /// Appends copies of the other's lines.
    LDIF_Comment& operator+=(const LDIF_Comment& other);

    /// Each line followed by a line feed.
    virtual std::string str() const;

    /// What += would do with the other's lines, which are given up.
    void absorb(LDIF_Comment&& other)
    {
        // Most attributes have no comment.
        if (!other.lines.empty()) {
            append(std::move(other));
        }
    }

    /// Appends str() to a text, which is a std::string or takes what that takes.
    template <class Text>
    void appendTo(Text& text) const
    {
        for (const auto& line : lines) {
            line.appendTo(text);
            text.push_back('\n');
        }
    }

    /// How many of the lines stand above the block that is directly above what the comment belongs to: those up to the
    /// last blank line, be it kept or not. Attributes have blank lines too where they are the root's.
    std::size_t linesAboveBlock() const;

private:
    void append(LDIF_Comment&& other);
};

#endif
