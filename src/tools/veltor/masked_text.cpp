// Reads lines as the library's reader does, but goes by looks where that one would refuse: a mistyped line has its
// secret too. Rather a harmless line is hidden than a secret shown.
#include "masked_text.h"

#include "change_scan.h"
#include "escape.h"
#include "secrets.h"
#include "text_diff.h"
#include "wiped_text.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace veltor::tool {

namespace {

/// What the library's reader takes for white space: that of ASCII, and what Unicode has beyond a blank that joins.
bool isSpace(const Character& character)
{
    const std::uint32_t code = character.codePoint;
    return character.length != 0 && (code == ' ' || (code >= '\t' && code <= '\r') || code == 0x85 || code == 0xA0 ||
                                     code == 0x1680 || (code >= 0x2000 && code <= 0x200A) || code == 0x2028 ||
                                     code == 0x2029 || code == 0x202F || code == 0x205F || code == 0x3000);
}

bool beginsWithSpace(std::string_view text)
{
    return !text.empty() && isSpace(firstCharacter(text));
}

std::string_view withoutLeadingSpace(std::string_view text)
{
    while (beginsWithSpace(text)) {
        text.remove_prefix(firstCharacter(text).length);
    }
    return text;
}

/// What the reader leaves of a physical line: no line feed, and no carriage return wherever it stands.
WipedText readLine(std::string_view line)
{
    WipedText text;
    for (const char character : line) {
        if (character != '\r' && character != '\n') {
            text.push_back(character);
        }
    }
    return text;
}

/// Where the value of a physical line begins: behind its name, the colons and the blanks. 0 when the name is not
/// one word, since all of the line may be secret then.
std::size_t valueBegin(std::string_view line, std::size_t nameBegin)
{
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || !isOneWord(line.substr(nameBegin, colon - nameBegin))) {
        return nameBegin;
    }
    const std::size_t begin = line.find_first_not_of(": \t", colon);
    return begin == std::string_view::npos ? line.size() - lineEndOf(line).size() : begin;
}

/// For each physical line, where what must be hidden begins.
class Masking
{
public:
    explicit Masking(const std::vector<std::string_view>& lines)
        : lines_(lines), hiddenFrom_(lines.size(), nothingHidden)
    {
    }

    std::vector<std::size_t> run();

private:
    void lookAtComment();
    void lookAtLogicalLine();
    void hide(std::size_t line, std::size_t from) { hiddenFrom_[line] = from; }

    const std::vector<std::string_view>& lines_;
    std::vector<std::size_t> hiddenFrom_;
    std::size_t at_ = 0;
    bool belowHiddenComment_ = false;
};

void Masking::lookAtComment()
{
    const std::string_view line = lines_[at_];
    const std::size_t begin = std::min(line.find_first_not_of("# \t"), line.size() - lineEndOf(line).size());
    const WipedText text = readLine(line.substr(begin));
    belowHiddenComment_ = isSecretLine(view(text));
    if (belowHiddenComment_) {
        hide(at_, valueBegin(line, begin));
    }
    ++at_;
}

void Masking::lookAtLogicalLine()
{
    const std::size_t first = at_;
    const WipedText head = readLine(lines_[at_]);
    const std::size_t colon = view(head).find(':');
    const bool hasName = colon != std::string_view::npos && colon != 0;
    const std::string_view name = view(head).substr(0, hasName ? colon : 0);
    WipedText value;
    const std::size_t colons = view(head).find_first_not_of(':', hasName ? colon : head.size());
    append(value, colons == std::string_view::npos ? "" : withoutLeadingSpace(view(head).substr(colons)));
    bool pieceIsSecret = false;
    for (++at_; at_ < lines_.size() && beginsWithSpace(view(readLine(lines_[at_]))); ++at_) {
        const WipedText piece = readLine(lines_[at_]);
        pieceIsSecret = pieceIsSecret || isSecretLine(withoutLeadingSpace(view(piece)));
        append(value, view(piece).substr(firstCharacter(view(piece)).length));
    }
    bool secret = pieceIsSecret || belowHiddenComment_;
    belowHiddenComment_ = false;
    if (!hasName) {
        // The reader keeps it as a name with a colon behind it.
        WipedText whole = head;
        append(whole, view(value));
        whole.push_back(':');
        secret = secret || isSecretLine(view(whole));
    } else {
        secret = secret || (isDnLabel(name) ? isSecretDn(view(value)) : isSecret(name, view(value)));
    }
    if (!secret) {
        return;
    }
    hide(first, hasName ? valueBegin(lines_[first], 0) : 0);
    for (std::size_t line = first + 1; line < at_; ++line) {
        hide(line, firstCharacter(lines_[line]).length);
    }
}

std::vector<std::size_t> Masking::run()
{
    while (at_ < lines_.size()) {
        const WipedText line = readLine(lines_[at_]);
        if (withoutLeadingSpace(view(line)).empty()) {
            belowHiddenComment_ = false;
            ++at_;
        } else if (line.front() == '#') {
            lookAtComment();
        } else {
            // People fold comments, and the reader does not know of that.
            belowHiddenComment_ = belowHiddenComment_ && beginsWithSpace(view(line));
            lookAtLogicalLine();
        }
    }
    return std::move(hiddenFrom_);
}

void appendMasked(std::string& out, std::string_view line, std::size_t hiddenFrom, std::string_view mask)
{
    if (hiddenFrom == nothingHidden) {
        out += line;
        return;
    }
    out += line.substr(0, hiddenFrom);
    out += mask;
    out += lineEndOf(line);
}

} // namespace

std::string_view lineEndOf(std::string_view line)
{
    const std::size_t last = line.find_last_not_of("\r\n");
    return line.substr(last == std::string_view::npos ? 0 : last + 1);
}

std::vector<std::size_t> hiddenParts(const std::vector<std::string_view>& lines)
{
    return Masking(lines).run();
}

std::string maskedText(std::string_view text)
{
    const std::vector<std::string_view> lines = linesOf(text);
    const std::vector<std::size_t> hiddenFrom = hiddenParts(lines);
    std::string out;
    for (std::size_t line = 0; line < lines.size(); ++line) {
        appendMasked(out, lines[line], hiddenFrom[line], secretMask);
    }
    return out;
}

MaskedTexts maskedTexts(std::string_view before, std::string_view after)
{
    const std::vector<std::string_view> beforeLines = linesOf(before);
    const std::vector<std::string_view> afterLines = linesOf(after);
    std::vector<std::size_t> beforeHidden = hiddenParts(beforeLines);
    std::vector<std::size_t> afterHidden = hiddenParts(afterLines);
    MaskedTexts texts;
    std::size_t x = 0;
    std::size_t y = 0;
    const auto appendCommon = [&](std::size_t end) {
        for (; x < end; ++x, ++y) {
            // A line that is a secret in one of the texts alone is one in the other as well.
            const std::size_t hiddenFrom = std::min(beforeHidden[x], afterHidden[y]);
            appendMasked(texts.before, beforeLines[x], hiddenFrom, secretMask);
            appendMasked(texts.after, afterLines[y], hiddenFrom, secretMask);
        }
    };
    for (const LineChange& change : lineChanges(beforeLines, afterLines)) {
        appendCommon(change.before);
        for (const std::size_t end = x + change.beforeCount; x < end; ++x) {
            appendMasked(texts.before, beforeLines[x], beforeHidden[x], secretMaskBefore);
        }
        for (const std::size_t end = y + change.afterCount; y < end; ++y) {
            appendMasked(texts.after, afterLines[y], afterHidden[y], secretMaskAfter);
        }
    }
    appendCommon(beforeLines.size());
    return texts;
}

std::string maskedDifference(std::string_view before, std::string_view after, const std::string& beforeLabel,
                             const std::string& afterLabel)
{
    const MaskedTexts texts = maskedTexts(before, after);
    return unifiedDiff(texts.before, texts.after, beforeLabel, afterLabel);
}

} // namespace veltor::tool
