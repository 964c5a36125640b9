// The tree view of the store: one drawing in two character sets.
#include "LDIF_File.h"

#include <string>
#include <string_view>

namespace {

/// What the two drawings differ in. Each column group of a prefix is five bytes: its last one is the vertical
/// line of a level that goes on, which a line of its own replaces with its branch.
struct Pencil
{
    std::string_view top;        ///< in front of a top-level entry
    std::string_view branch;     ///< in front of an entry that has siblings behind it
    std::string_view lastBranch; ///< in front of the last one
    std::string_view goesOn;     ///< column group below an entry that has siblings behind it
    std::string_view spacer;     ///< line between two entries, behind the prefix; none in the tight drawing
};

constexpr std::string_view ended = "     ";
constexpr Pencil ia5{"- ", "+- ", "+- ", "    |", "    |\n"};
// Bytes of code page 437, not characters of the locale.
constexpr Pencil oem{"\xC4 ", "\xC3\xC4 ", "\xC0\xC4 ", "    \xB3", ""};

class Drawing
{
public:
    Drawing(const Pencil& pencil, std::set<LDIF_DN>& undefined, std::string prefix)
        : pencil_(pencil), undefined_(undefined), prefix_(std::move(prefix))
    {
    }

    std::string of(const LDIF_Entry& entry, bool isLast)
    {
        draw(entry, isLast);
        return std::move(text_);
    }

private:
    void draw(const LDIF_Entry& entry, bool isLast)
    {
        const bool isRoot = entry.dn.empty();
        if (!isRoot) {
            drawLine(entry, isLast);
        }
        std::size_t slot = 0;
        const LDIF_Entry* child = entry.children.nextFrom(slot);
        while (child != nullptr) {
            const LDIF_Entry* const following = entry.children.nextFrom(slot);
            if (isRoot) {
                text_ += '\n';
                draw(*child, following == nullptr);
            } else {
                if (!pencil_.spacer.empty()) {
                    text_ += prefix_;
                    text_ += pencil_.spacer;
                }
                const auto above = prefix_.size();
                prefix_ += following != nullptr ? pencil_.goesOn : ended;
                draw(*child, following == nullptr);
                prefix_.resize(above);
            }
            child = following;
        }
    }

    void drawLine(const LDIF_Entry& entry, bool isLast)
    {
        if (prefix_.empty()) {
            text_ += pencil_.top;
            text_ += entry.dn.str();
            text_ += " (suffix)";
        } else {
            text_.append(prefix_, 0, prefix_.size() - 1);
            text_ += isLast ? pencil_.lastBranch : pencil_.branch;
            text_ += entry.dn.str();
            if (entry.relDn.size() > 1) {
                text_ += " *";
                noteMissingAncestors(entry);
            }
        }
        text_ += '\n';
    }

    void noteMissingAncestors(const LDIF_Entry& entry)
    {
        LDIF_DN ancestor = entry.dn;
        for (std::size_t missing = entry.relDn.size() - 1; missing > 0; --missing) {
            ancestor.pop_back();
            undefined_.insert(ancestor);
        }
    }

    const Pencil& pencil_;
    std::set<LDIF_DN>& undefined_;
    std::string prefix_;
    std::string text_;
};

} // namespace

std::string LDIF_File::treeView(bool codePage437)
{
    std::set<LDIF_DN> undefined;
    std::string text = codePage437 ? OEM_TreeView(root, true, undefined, "") : IA5_TreeView(root, undefined, "");
    if (!undefined.empty()) {
        text += "\n* the following entries are undefined:\n";
        for (const auto& dn : undefined) {
            text += dn.str();
            text += '\n';
        }
    }
    return text;
}

std::string LDIF_File::IA5_TreeView(const LDIF_Entry& entry, std::set<LDIF_DN>& undefined, const std::string& prefix)
{
    // The last child looks like the others here.
    return Drawing(ia5, undefined, prefix).of(entry, true);
}

std::string LDIF_File::OEM_TreeView(const LDIF_Entry& entry, bool isLast, std::set<LDIF_DN>& undefined,
                                    const std::string& prefix)
{
    return Drawing(oem, undefined, prefix).of(entry, isLast);
}
