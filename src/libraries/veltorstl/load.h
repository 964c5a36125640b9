// Texts of configuration files become trees.
#ifndef VELTOR_LOAD_H
#define VELTOR_LOAD_H

#include "LDIF_Comment.h"
#include "LDIF_Entry.h"
#include "entry_index.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltor::detail {

class FileText;

/// Where an entry stands in a text, or one of the places of an entry that the text tells in several.
struct EntryPlace
{
    const LDIF_Entry* entry; // null once the entry was removed
    std::size_t begin;       // of its DN line
    std::size_t end;         // behind its last line
    int line;                // 1-based number of the DN line
};

/// All places, in the order of the text.
using EntryPlaces = std::vector<EntryPlace>;

/// What a load makes of a text.
struct Image
{
    LDIF_Entry root;
    LDIF_Comment trailingComment;
    EntryIndex index;
    EntryPlaces places;        // where they were asked for
    bool hasKeptLines = false; // lines that could not be used were kept as zor-slapdInvalidLine

    Image() = default;
    Image(Image&&) = default;
    Image& operator=(Image&&) = default;
};

/// How a load treats its text.
enum class TextUse {
    usedUp,  ///< its memory may become that of the tree
    kept,    ///< it stays as it is, and the places of the entries are noted
    settled, ///< kept, and what is read is at once what a write and the next load leave of it
};

/// Gives a line that was kept as zor-slapdInvalidLine the value that a write and the next load leave of it: one without
/// a value would end in a blank. Loads that keep their text do this.
void settleKeptLine(LDIF_Line& line);

/// Reads a text into an empty image.
///
/// @param fileName  for messages
/// @throws LDIF_Exception the code of the line that ended the load, with file, line and entry: the image then holds
///         everything read before that line
void load(FileText& text, TextUse use, Image& image, const std::string& fileName);

} // namespace veltor::detail

#endif
