// The line reader: logical lines of the configuration file.
#ifndef VELTOR_LDIF_LINE_H
#define VELTOR_LDIF_LINE_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

/// One logical line: a physical line and the continuation lines that belong to it, split at its first colon.
/// No base64, no URL values: "name:: value" reads like "name: value". Also the unit in which comments are kept.
class LDIF_Line
{
public:
    enum Type : std::int32_t {
        endOfFile = 0, ///< no more input
        blankLine = 1, ///< nothing, or white space alone
        comment = 2,   ///< "#" as the very first character
        dn = 3,        ///< the name is "dn", in any letter case
        attribute = 4  ///< everything else
    };

    LDIF_Line() = default;
    LDIF_Line(const LDIF_Line&) = default;
    LDIF_Line(LDIF_Line&&) noexcept = default;
    LDIF_Line& operator=(const LDIF_Line&) = default;
    LDIF_Line& operator=(LDIF_Line&&) noexcept = default;
    virtual ~LDIF_Line();

    std::string value; ///< behind the colons, trimmed, continuations joined; of a comment the whole line
    std::string name;  ///< before the colon, as written; of an invalid line the whole first physical line
    Type type = endOfFile;
    std::int32_t lineNumber = 0; ///< 1-based number of the first physical line
    bool valid = true;           ///< false for a line without a colon, or with nothing before it

    /// Reads the next logical line: one physical line and the continuation lines that belong to it.
    ///
    /// A last line without a line feed loses its value: deliberate, files in the field rely on the reload
    /// that follows.
    ///
    /// @param stream      positioned at the start of a physical line; a seek is needed only where the next
    ///                    line begins with a carriage return, a NUL or a character beyond ASCII
    /// @param lineNumber  1-based number of the last physical line consumed so far, 0 at the start
    /// @return            number of the last physical line consumed by this call
    /// @throws LDIF_Exception 162/162 for text that the process locale can't read
    int next(std::istream& stream, int lineNumber);

    /// The line as it is written back, without its line feed.
    std::string str() const;

    /// Appends str() to a text, which is a std::string or takes what that takes.
    template <class Text>
    void appendTo(Text& text) const
    {
        if (type == dn || type == attribute) {
            text.append(name).append(": ");
        }
        text.append(value);
    }

    /// Turns a line that can't be used into an attribute "zor-slapdInvalidLine" that keeps its text.
    void changeToInvalidAttr();

    /// A comment that stood last in an entry: the blank line behind it closed the entry and is not kept, yet parts the
    /// comment from what follows.
    bool endsEntry() const noexcept { return endsEntry_; }
    void setEndsEntry(bool endsEntry) noexcept { endsEntry_ = endsEntry; }

private:
    bool endsEntry_ = false;
};

namespace veltor::detail {

/// A logical line that is one physical line of plain ASCII, lent by the text that it stands in.
struct PlainLine
{
    std::string_view name;
    std::string_view value;
    LDIF_Line::Type type = LDIF_Line::endOfFile;
    int lineNumber = 0;

    /// The same as a line of its own.
    LDIF_Line line() const;
};

/// Reads logical lines from a text in memory, as LDIF_Line::next does from a stream with the same content.
class LineReader
{
public:
    /// @param text  the whole file; must outlive the reader
    explicit LineReader(std::string_view text);

    /// Reads the next logical line into `line`.
    /// @throws LDIF_Exception 162/162; lineNumber() then names the offending line
    void next(LDIF_Line& line);

    /// Reads the next logical line where it is of the usual kind: valid, plain ASCII, without continuation lines, and
    /// not the last.
    /// @return false when it is of another kind: nothing was read then, and next() has to
    bool nextPlain(PlainLine& line);

    /// Where the next line begins. Nothing before it is looked at again.
    std::size_t position() const { return position_; }

    /// 1-based number of the last physical line consumed, 0 at the start.
    int lineNumber() const { return lineNumber_; }

private:
    std::string_view text_;
    std::size_t position_ = 0;
    bool ended_ = false; ///< the state in which a stream has hit its end
    bool plain_;         ///< the whole text is ASCII without NUL and carriage return
    int lineNumber_ = 0;
};

} // namespace veltor::detail

#endif
