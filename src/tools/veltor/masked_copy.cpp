// What the text looks like decides: a secret goes back to where it would be hidden again, and nowhere else, so that
// no difference that is shown later tells it.
#include "masked_copy.h"

#include "masked_text.h"
#include "names.h"
#include "secrets.h"
#include "text_diff.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace veltor::tool {

namespace {

std::string_view withoutEnd(std::string_view line)
{
    return line.substr(0, line.size() - lineEndOf(line).size());
}

/// Four digits that are made of what is shown of the lines with a secret, and of the DNs above them: a text in which
/// other lines have one hardly has the same. They tell nothing of the secrets.
std::string tagOf(const std::vector<std::string_view>& lines, const std::vector<std::size_t>& hiddenFrom)
{
    std::uint64_t hash = 0xCBF29CE484222325U; // FNV-1a
    const auto add = [&](std::string_view text) {
        for (const char character : text) {
            hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3U;
        }
        hash = (hash ^ '\n') * 0x100000001B3U;
    };
    std::string_view dn;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view shown = lines[index].substr(0, std::min(hiddenFrom[index], lines[index].size()));
        if (sameName(shown.substr(0, 3), "dn:")) {
            dn = withoutEnd(shown);
        }
        if (hiddenFrom[index] != nothingHidden) {
            add(dn);
            add(shown);
        }
    }
    char tag[5];
    std::snprintf(tag, sizeof tag, "%04x", static_cast<unsigned>((hash >> 32U ^ hash) & 0xFFFFU));
    return tag;
}

/// True for the mask of another text: numbered and tagged, with nothing behind it.
bool isMaskOfAnother(std::string_view hidden)
{
    hidden.remove_prefix(std::min(hidden.find_first_not_of(" \t"), hidden.size()));
    return isMask(hidden) && hidden.find('-') != std::string_view::npos;
}

} // namespace

MaskedCopy::MaskedCopy(std::string_view text)
{
    const std::vector<std::string_view> lines = linesOf(text);
    const std::vector<std::size_t> hiddenFrom = hiddenParts(lines);
    const std::string tag = tagOf(lines, hiddenFrom);
    std::size_t number = 0;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view line = lines[index];
        if (hiddenFrom[index] == nothingHidden) {
            text_ += line;
            continue;
        }
        std::string mask;
        do {
            // A text may have such words of its own.
            mask = numberedMask(++number, tag);
        } while (text.find(mask) != std::string_view::npos);
        text_ += line.substr(0, hiddenFrom[index]);
        text_ += mask;
        text_ += lineEndOf(line);
        append(secrets_[mask], withoutEnd(line).substr(hiddenFrom[index]));
    }
}

Unmasked MaskedCopy::unmasked(std::string_view edited) const
{
    Unmasked result;
    std::vector<std::size_t> beginsOfSecrets; // in their lines, in the order of result.lines
    std::vector<std::string> masks;
    std::size_t number = 0;
    for (const std::string_view line : linesOf(edited)) {
        ++number;
        const std::string_view body = withoutEnd(line);
        const std::size_t at = body.rfind(numberedMaskBegin);
        const auto secret = at == std::string_view::npos ? secrets_.end() : secrets_.find(body.substr(at));
        if (secret == secrets_.end()) {
            append(result.text, line);
            continue;
        }
        append(result.text, body.substr(0, at));
        append(result.text, view(secret->second));
        append(result.text, lineEndOf(line));
        result.lines.push_back(number);
        beginsOfSecrets.push_back(at);
        masks.push_back(secret->first);
    }
    const std::vector<std::string_view> lines = linesOf(view(result.text));
    const std::vector<std::size_t> hiddenFrom = hiddenParts(lines);
    std::size_t next = 0;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const bool putBack = next < result.lines.size() && result.lines[next] == index + 1;
        if (putBack) {
            if (hiddenFrom[index] > beginsOfSecrets[next]) {
                // What is not hidden is hidden from a place behind every other.
                result.refusals.push_back(
                    {index + 1, masks[next] + " stands for a secret, which would not be hidden in this place"});
            } else if (hiddenFrom[index] < beginsOfSecrets[next]) {
                result.refusals.push_back({index + 1, "something stands in front of " + masks[next]});
            }
            ++next;
        } else if (hiddenFrom[index] != nothingHidden && beginsLikeMask(lines[index].substr(hiddenFrom[index]))) {
            const std::string_view hidden = withoutEnd(lines[index]).substr(hiddenFrom[index]);
            result.refusals.push_back(
                {index + 1, isMaskOfAnother(hidden)
                                ? "this mask stands for no secret of the file as it is now: other lines were "
                                  "hidden when it was made; veltor edit shows those of today"
                                : "*** stands for no secret of the file: a mask stays as it was shown, with "
                                  "its number and nothing behind it"});
        }
    }
    return result;
}

} // namespace veltor::tool
