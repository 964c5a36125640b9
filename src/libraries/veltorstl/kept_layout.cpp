// Changes of a tree, told as changes of the text that it was read from.
#include "kept_layout.h"

#include "LDIF_Exception.h"
#include "LDIF_Line.h"
#include "load_rules.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace veltor::detail {

namespace {

constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

/// The lines of a text in the library's own form.
void addLines(NewLines& lines, std::string_view text)
{
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.add(std::string(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::size_t blockSize(const LDIF_Comment& comment)
{
    return comment.lines.size() - comment.linesAboveBlock();
}

/// A line with another value, spelled as the line stands as far as that is possible.
std::string withValue(std::string_view text, const ValueLine& line, const cisString& name, const LDIF_Value& value)
{
    const std::string own = value.str();
    if (!line.isKept) {
        const std::string_view physical = line.range.in(text);
        const std::size_t colon = physical.find(':');
        const std::size_t behind = std::min(physical.find_first_not_of(':', colon), physical.size());
        const std::size_t begin = std::min(physical.find_first_not_of(" \t", behind), physical.size());
        std::string spelled(physical.substr(0, begin));
        spelled += own;
        const std::string ended = spelled + "\n";
        LineReader reader(ended);
        LDIF_Line read;
        reader.next(read);
        LDIF_Line next;
        reader.next(next);
        if (read.type == LDIF_Line::attribute && read.valid && line.name == read.name && read.value == own &&
            next.type == LDIF_Line::endOfFile) {
            return spelled;
        }
    }
    return name + ": " + own;
}

class LayoutKeeper
{
public:
    LayoutKeeper(const LaidOutText& source, LDIF_Entry& root, const Changes& changes, CommentBalance& comments)
        : text_(source.text), places_(source.places), root_(root), changes_(changes), comments_(comments),
          edited_(source.text)
    {
    }

    EditedText run()
    {
        findTouched();
        for (std::size_t place = 0; place < places_.size(); ++place) {
            if (places_[place].entry == nullptr) {
                removeEntry(place);
            }
        }
        for (const auto& [entry, places] : touched_) {
            changeEntry(*entry, places);
        }
        placeNewEntries();
        endLastLine();
        edited_.finish();
        return std::move(edited_);
    }

private:
    using Places = std::vector<std::size_t>;

    // ---- What there is to do ----

    void findTouched()
    {
        for (const LDIF_DN& dn : changes_.entries) {
            if (LDIF_Entry* const entry = root_.find(dn); entry != nullptr) {
                touched_.try_emplace(entry);
            }
        }
        for (std::size_t place = 0; place < places_.size(); ++place) {
            if (const auto found = touched_.find(places_[place].entry); found != touched_.end()) {
                found->second.push_back(place);
            }
        }
        for (auto entry = touched_.begin(); entry != touched_.end();) {
            if (entry->second.empty() && entry->first != &root_) {
                newEntries_.insert(entry->first);
                entry = touched_.erase(entry);
            } else {
                ++entry;
            }
        }
    }

    /// @param attribute  empty: the entry's own comment
    bool hasNewComment(const LDIF_Entry& entry, const cisString& attribute) const
    {
        return !changes_.comments.empty() && changes_.comments.contains({entry.dn, attribute});
    }

    // ---- Entries that go ----

    void removeEntry(std::size_t index)
    {
        const EntryPlace& place = places_[index];
        const std::size_t end = endOfBody(text_, place);
        takeComments({blockAbove(text_, place.begin).begin, end});
        if (place.end == text_.size() || !isBlankLine(text_, place.end)) {
            return;
        }
        const std::size_t next = behindLine(text_, place.end);
        if (!mayContinue(next) || end != place.end || !followsAttribute(index)) {
            take({place.end, next});
        }
    }

    /// True when the line that begins there may be one that would continue an attribute above it.
    bool mayContinue(std::size_t line) const
    {
        const std::size_t first = text_.find_first_not_of('\r', line);
        return first != std::string_view::npos && text_[first] != '\n' && (text_[first] <= ' ' || text_[first] > '~');
    }

    /// True when an attribute or DN line stands directly above what goes with the entry of a place.
    bool followsAttribute(std::size_t index) const
    {
        for (;; --index) {
            const std::size_t begin = blockAbove(text_, places_[index].begin).begin;
            const std::size_t above = index == 0 ? endOfHeader(text_, places_) : endOfBody(text_, places_[index - 1]);
            if (index == 0 || places_[index - 1].entry != nullptr) {
                return begin != 0 && begin == above;
            }
            // The entry above goes, too, and the blank line that closes it.
            if (begin != above && (!isBlankLine(text_, above) || begin != behindLine(text_, above))) {
                return false;
            }
        }
    }

    /// Lines go, and nothing comes in their place.
    void take(TextRange lines)
    {
        if (!lines.empty()) {
            edited_.replace(lines);
        }
    }

    /// The same for lines with comments among them.
    void takeComments(TextRange lines)
    {
        take(lines);
        comments_.removed.push_back(lines);
    }

    // ---- Entries that change ----

    void changeEntry(const LDIF_Entry& entry, const Places& places)
    {
        EntryLines lines(text_, true);
        if (&entry == &root_) {
            lines.addHeader(places_);
        }
        for (const std::size_t place : places) {
            lines.addPlace(places_[place]);
        }
        std::map<cisString, std::vector<const ValueLine*>> byName;
        for (const ValueLine& line : lines.values()) {
            byName[line.name].push_back(&line);
        }
        NewLines fresh;
        for (auto attribute = entry.attributes.cbegin(); attribute != entry.attributes.cend(); ++attribute) {
            const bool isCommented = hasNewComment(entry, attribute->name);
            const auto told = byName.extract(attribute->name);
            if (told.empty()) {
                addNew(entry, *attribute, isCommented, fresh);
                continue;
            }
            const auto going = &entry == &root_
                                   ? changeValues(withoutUnsaidDefault(*attribute, told.mapped()), told.mapped())
                                   : changeValues(*attribute, told.mapped());
            if (isCommented) {
                changeComment(*attribute, told.mapped(), {going.begin(), going.end()});
            }
        }
        for (const auto& [name, gone] : byName) {
            for (const ValueLine* const line : gone) {
                takeComments(line->block.lines);
                take(line->range);
            }
        }
        if (hasNewComment(entry, "") && &entry != &root_) {
            changeComment(entry, places);
        }
        if (fresh.empty()) {
            return;
        }
        const bool isOnTop = lines.endOfFirst() == 0;
        edited_.insert(lines.endOfFirst(), isOnTop ? EditedText::Kind::onTop : EditedText::Kind::behindLine,
                       std::move(fresh));
    }

    static bool beginsWithDefault(const LDIF_Attribute& attribute)
    {
        const auto isDefault = [&attribute](const char* name, const char* value) {
            return attribute.name == name && !attribute.values.empty() &&
                   std::as_const(attribute.values).begin()->text() == value;
        };
        return isDefault("charset", defaultCharset) || isDefault("version", defaultVersion);
    }

    /// The values of an attribute of the root that entries of the empty DN tell: a load puts the default before them.
    LDIF_Attribute withoutUnsaidDefault(const LDIF_Attribute& attribute,
                                        const std::vector<const ValueLine*>& lines) const
    {
        LDIF_Attribute said(attribute);
        const bool isInHeader = places_.empty() || lines.front()->range.begin < places_.front().begin;
        if (!isInHeader && said.values.size() > 1 && beginsWithDefault(said) &&
            std::none_of(lines.begin(), lines.end(), [&attribute](const ValueLine* line) {
                return line->value == std::as_const(attribute.values).begin()->text();
            })) {
            said.values.values.erase(said.values.values.cbegin());
        }
        return said;
    }

    /// An attribute that the text does not tell.
    void addNew(const LDIF_Entry& entry, const LDIF_Attribute& attribute, bool isCommented, NewLines& lines)
    {
        // What the root has by default a load adds again.
        if (&entry == &root_ && (!isCommented || blockSize(attribute.comment) == 0) && attribute.values.size() == 1 &&
            beginsWithDefault(attribute)) {
            return;
        }
        if (isCommented || &entry != &root_) {
            addBlock(lines, attribute.comment);
        }
        addLines(lines, attribute.values.str());
    }

    /// The lines of one attribute, which has some before and after.
    /// @return those in whose places none stands afterwards
    std::vector<const ValueLine*> changeValues(const LDIF_Attribute& attribute,
                                               const std::vector<const ValueLine*>& lines)
    {
        const LDIF_Values& wanted = attribute.values;
        std::unordered_map<std::string_view, std::size_t> positions;
        for (const LDIF_Value& value : wanted) {
            positions.emplace(value.text(), positions.size());
        }
        // The line that tells each value wanted, and those that tell it again or tell what is gone.
        std::vector<const ValueLine*> teller(wanted.size(), nullptr);
        std::vector<const ValueLine*> gone;
        std::vector<const ValueLine*> rest;
        std::unordered_set<std::string_view> seen;
        for (const ValueLine* const line : lines) {
            const auto position = positions.find(line->value);
            const bool isFirst = seen.insert(line->value).second;
            if (position == positions.end()) {
                (isFirst ? gone : rest).push_back(line);
            } else if (isFirst) {
                teller[position->second] = line;
            }
        }
        // New values take the places of those that are gone, in order.
        std::unordered_map<const ValueLine*, std::size_t> place;
        auto free = gone.begin();
        std::vector<std::size_t> left;
        for (std::size_t position = 0; position < wanted.size(); ++position) {
            if (teller[position] == nullptr) {
                if (free == gone.end()) {
                    left.push_back(position);
                    continue;
                }
                teller[position] = *free++;
            }
            place[teller[position]] = position;
        }
        rest.insert(rest.end(), free, gone.end());
        const std::size_t used = static_cast<std::size_t>(free - gone.begin());
        gone.resize(used);

        if (!keepsOrder(lines, place, left)) {
            putInOrder(attribute, lines, teller);
            return {lines.begin() + 1, lines.end()};
        }
        for (const ValueLine* const line : gone) {
            NewLines made;
            made.add(withValue(text_, *line, attribute.name, wanted.values[place[line]]));
            edited_.replace(line->range, std::move(made));
        }
        for (const ValueLine* const line : rest) {
            take(line->range);
        }
        if (!left.empty()) {
            NewLines made;
            for (const std::size_t position : left) {
                made.add(attribute.name + ": " + wanted.values[position].str());
            }
            edited_.insert(lines.back()->range.end, EditedText::Kind::behindLine, std::move(made));
        }
        return rest;
    }

    /// True when the values come in the order that is asked for with every line in its place.
    static bool keepsOrder(const std::vector<const ValueLine*>& lines,
                           const std::unordered_map<const ValueLine*, std::size_t>& place,
                           const std::vector<std::size_t>& left)
    {
        std::size_t next = 0;
        for (const ValueLine* const line : lines) {
            if (const auto found = place.find(line); found != place.end() && found->second != next++) {
                return false;
            }
        }
        // Those that are left over are in order themselves.
        return left.empty() || left.front() == next;
    }

    void putInOrder(const LDIF_Attribute& attribute, const std::vector<const ValueLine*>& lines,
                    const std::vector<const ValueLine*>& teller)
    {
        std::unordered_map<std::string_view, std::vector<const ValueLine*>> again;
        for (const ValueLine* const line : lines) {
            again[line->value].push_back(line);
        }
        NewLines made;
        for (std::size_t position = 0; position < teller.size(); ++position) {
            const LDIF_Value& value = attribute.values.values[position];
            if (teller[position] == nullptr) {
                made.add(attribute.name + ": " + value.str());
            } else if (teller[position]->value != value.text()) {
                made.add(withValue(text_, *teller[position], attribute.name, value));
            } else {
                for (const ValueLine* const line : again[value.text()]) {
                    addAsItStands(made, *line);
                }
            }
        }
        edited_.replace(lines.front()->range, std::move(made));
        for (auto line = lines.begin() + 1; line != lines.end(); ++line) {
            take((*line)->range);
        }
    }

    void addAsItStands(NewLines& lines, const ValueLine& line) const
    {
        if (text_[line.range.end - 1] == '\n') {
            lines.add(line.range);
        } else {
            lines.add(line.name + ": " + line.text);
        }
    }

    // ---- Comments ----

    void addBlock(NewLines& lines, const LDIF_Comment& comment)
    {
        for (std::size_t line = comment.linesAboveBlock(); line < comment.lines.size(); ++line) {
            lines.add(comment.lines[line].value);
        }
        comments_.added += blockSize(comment);
    }

    /// A block and whether the line below it stays.
    struct OldBlock
    {
        CommentBlock block;
        bool hasLine;
    };

    void changeComment(const LDIF_Attribute& attribute, const std::vector<const ValueLine*>& lines,
                       const std::unordered_set<const ValueLine*>& going)
    {
        std::vector<OldBlock> blocks;
        std::transform(lines.begin(), lines.end(), std::back_inserter(blocks), [&going](const ValueLine* line) {
            return OldBlock{line->block, !going.contains(line)};
        });
        replaceBlock(attribute.comment, blocks);
    }

    void changeComment(const LDIF_Entry& entry, const Places& places)
    {
        std::vector<OldBlock> blocks;
        std::transform(places.begin(), places.end(), std::back_inserter(blocks), [this](std::size_t place) {
            return OldBlock{blockOf(place), true};
        });
        replaceBlock(entry.comment, blocks);
    }

    /// The block directly above a DN line.
    CommentBlock blockOf(std::size_t index) const
    {
        const TextRange lines = blockAbove(text_, places_[index].begin);
        const std::size_t above = index == 0 ? endOfHeader(text_, places_) : endOfBody(text_, places_[index - 1]);
        if (above >= lines.begin) {
            return {lines, false};
        }
        // The blank line that closes an entry without comments at its end belongs to nobody.
        return {lines, index == 0 || !isBlankLine(text_, above) || behindLine(text_, above) != lines.begin};
    }

    /// The store's block is what stands above the last of several lines, up to what parts it.
    void replaceBlock(const LDIF_Comment& comment, const std::vector<OldBlock>& blocks)
    {
        std::size_t place = nowhere;
        std::size_t below = nowhere;
        std::vector<TextRange> present; // the last one first
        bool stays = true;
        for (auto old = blocks.rbegin(); old != blocks.rend(); ++old) {
            const TextRange block = old->block.lines;
            if (!block.empty()) {
                present.push_back(block);
                stays = stays && old->hasLine;
            }
            // A line that goes must not leave the comment to what follows it.
            if (old->hasLine) {
                below = block.end;
                place = block.empty() ? place : block.begin;
            }
            if (old->block.isParted) {
                break;
            }
        }
        if (stays && isTold(comment, present)) {
            return;
        }
        for (const TextRange lines : present) {
            takeComments(lines);
        }
        NewLines lines;
        addBlock(lines, comment);
        if (!lines.empty()) {
            edited_.insert(place != nowhere ? place : below, EditedText::Kind::aboveLine, std::move(lines));
        }
    }

    /// True when comment lines say the block already.
    bool isTold(const LDIF_Comment& comment, const std::vector<TextRange>& lines) const
    {
        auto wanted = comment.lines.begin() + static_cast<std::ptrdiff_t>(comment.linesAboveBlock());
        for (auto range = lines.rbegin(); range != lines.rend(); ++range) {
            LineReader reader(range->in(text_));
            LDIF_Line line;
            while (reader.position() != range->end - range->begin) {
                reader.next(line);
                if (wanted == comment.lines.end() || wanted->value != line.value) {
                    return false;
                }
                ++wanted;
            }
        }
        return wanted == comment.lines.end();
    }

    // ---- Entries that come ----

    void placeNewEntries()
    {
        struct Host
        {
            std::size_t position;
            std::size_t depth;
            LDIF_Entry* entry;
        };
        std::unordered_set<const LDIF_Entry*> known;
        std::vector<Host> hosts;
        for (const LDIF_Entry* const entry : newEntries_) {
            LDIF_Entry* const host = hostOf(*entry);
            if (known.insert(host).second) {
                hosts.push_back({0, host->dn.size(), host});
            }
        }
        const auto ends = endsOfSubtrees(known);
        for (Host& host : hosts) {
            host.position = ends.at(host.entry);
        }
        // What belongs to a subtree stands before what follows it.
        std::sort(hosts.begin(), hosts.end(), [](const Host& left, const Host& right) {
            return left.position != right.position ? left.position < right.position : left.depth > right.depth;
        });
        for (const Host& host : hosts) {
            for (TreeWalk walk(*host.entry); walk.current() != nullptr;) {
                const bool isNew = newEntries_.contains(walk.current());
                if (isNew) {
                    insertEntry(*walk.current(), host.position);
                }
                walk.next(isNew || walk.depth() == 0);
            }
        }
    }

    /// The nearest ancestor that the text tells.
    LDIF_Entry* hostOf(const LDIF_Entry& entry)
    {
        LDIF_DN dn = entry.dn;
        while (!dn.empty()) {
            dn.pop_back();
            LDIF_Entry* const ancestor = root_.find(dn);
            if (ancestor != nullptr && !newEntries_.contains(ancestor)) {
                return ancestor;
            }
        }
        return &root_;
    }

    /// Behind the last attribute or DN line of what stands last in the text of each subtree.
    std::unordered_map<const LDIF_Entry*, std::size_t>
    endsOfSubtrees(const std::unordered_set<const LDIF_Entry*>& tops) const
    {
        std::unordered_map<const LDIF_Entry*, std::size_t> ends;
        std::unordered_map<const LDIF_Entry*, std::size_t> lastPlaces;
        constexpr std::size_t few = 4;
        for (const LDIF_Entry* const top : tops) {
            if (top == &root_ || tops.size() <= few) {
                // The last of them is mostly near the end.
                const auto place = std::find_if(places_.rbegin(), places_.rend(), [top](const EntryPlace& candidate) {
                    return candidate.entry != nullptr && commonLevels(top->dn, candidate.entry->dn) == top->dn.size();
                });
                ends[top] = place == places_.rend() ? endOfHeader(text_, places_) : endOfBody(text_, *place);
                continue;
            }
            if (lastPlaces.empty()) {
                lastPlaces = lastPlacesOfSubtrees();
            }
            ends[top] = endOfBody(text_, places_[lastPlaces.at(top)]);
        }
        return ends;
    }

    /// For every entry of the tree that the text tells below itself or at itself, where that stands last.
    std::unordered_map<const LDIF_Entry*, std::size_t> lastPlacesOfSubtrees() const
    {
        std::unordered_map<const LDIF_Entry*, std::size_t> last;
        last.reserve(places_.size());
        for (std::size_t place = 0; place < places_.size(); ++place) {
            last[places_[place].entry] = place;
        }
        std::vector<const LDIF_Entry*> path;
        const auto close = [&] {
            const auto closed = last.find(path.back());
            path.pop_back();
            if (closed != last.end() && !path.empty()) {
                const auto [above, isNew] = last.emplace(path.back(), closed->second);
                above->second = std::max(above->second, closed->second);
            }
        };
        for (TreeWalk walk(root_); walk.current() != nullptr; walk.next()) {
            while (path.size() > walk.depth()) {
                close();
            }
            path.push_back(walk.current());
        }
        while (!path.empty()) {
            close();
        }
        return last;
    }

    void insertEntry(const LDIF_Entry& entry, std::size_t position)
    {
        NewLines lines;
        addBlock(lines, entry.comment);
        lines.add(entry.dnLabel + ": " + entry.dn.str());
        for (auto attribute = entry.attributes.cbegin(); attribute != entry.attributes.cend(); ++attribute) {
            addBlock(lines, attribute->comment);
            addLines(lines, attribute->values.str());
        }
        edited_.insert(position, EditedText::Kind::entry, std::move(lines));
    }

    // ---- The last line ----

    /// A last line without a line feed, whose value the store does not have, is told as the store has it before
    /// something follows.
    void endLastLine()
    {
        if (text_.empty() || text_.back() == '\n' || !edited_.insertsAt(text_.size())) {
            return;
        }
        const std::size_t from = places_.empty() ? 0 : places_.back().begin;
        LineReader reader(text_.substr(from));
        std::size_t begin = from;
        for (LDIF_Line line; from + reader.position() != text_.size(); reader.next(line)) {
            begin = from + reader.position();
        }
        if (!edited_.replaces(begin)) {
            NewLines told;
            told.add(lastLineAsLoaded(text_, places_));
            edited_.replace({begin, text_.size()}, std::move(told));
        }
    }

    std::string_view text_;
    const EntryPlaces& places_;
    LDIF_Entry& root_;
    const Changes& changes_;
    CommentBalance& comments_;
    EditedText edited_;
    std::unordered_map<const LDIF_Entry*, Places> touched_; // those that the text tells
    std::unordered_set<const LDIF_Entry*> newEntries_;
};

/// Goes from one comment line of a text to the next.
class CommentLines
{
public:
    /// @param lines  the part of the text to look at, which begins where a line does
    CommentLines(std::string_view text, TextRange lines) : text_(text.substr(0, lines.end)) { find(lines.begin); }

    bool isOver() const { return begin_ >= text_.size(); }
    std::size_t begin() const { return begin_; }
    std::string_view line() const
    {
        const std::string_view line = text_.substr(begin_, std::min(text_.find('\n', begin_), text_.size()) - begin_);
        // An end that was missing is there once something follows; carriage returns mean nothing.
        return line.substr(0, line.find_last_not_of('\r') + 1);
    }
    void next() { find(behindLine(text_, begin_)); }

private:
    void find(std::size_t line)
    {
        while (line < text_.size() && !isCommentLine(text_, line)) {
            line = behindLine(text_, line);
        }
        begin_ = line;
    }

    std::string_view text_;
    std::size_t begin_ = 0;
};

/// How many bytes two texts begin with that are the same.
std::size_t commonFront(std::string_view left, std::string_view right)
{
    constexpr std::size_t stepBytes = std::size_t{64} << 10U;
    const std::size_t most = std::min(left.size(), right.size());
    std::size_t same = 0;
    while (same + stepBytes <= most && std::memcmp(left.data() + same, right.data() + same, stepBytes) == 0) {
        same += stepBytes;
    }
    while (same < most && left[same] == right[same]) {
        ++same;
    }
    return same;
}

/// The same for their ends.
std::size_t commonBack(std::string_view left, std::string_view right)
{
    constexpr std::size_t stepBytes = std::size_t{64} << 10U;
    const std::size_t most = std::min(left.size(), right.size());
    const char* const leftEnd = left.data() + left.size();
    const char* const rightEnd = right.data() + right.size();
    std::size_t same = 0;
    while (same + stepBytes <= most &&
           std::memcmp(leftEnd - same - stepBytes, rightEnd - same - stepBytes, stepBytes) == 0) {
        same += stepBytes;
    }
    while (same < most &&
           leftEnd[-1 - static_cast<std::ptrdiff_t>(same)] == rightEnd[-1 - static_cast<std::ptrdiff_t>(same)]) {
        ++same;
    }
    return same;
}

/// The lines in which two texts differ, and all that were removed from the first.
std::pair<TextRange, TextRange> differingLines(std::string_view before, const std::vector<TextRange>& removed,
                                               std::string_view after)
{
    std::size_t front = commonFront(before, after);
    for (const TextRange lines : removed) {
        front = lines.empty() ? front : std::min(front, lines.begin);
    }
    front = before.substr(0, front).rfind('\n') + 1;
    std::size_t back = commonBack(before.substr(front), after.substr(front));
    for (const TextRange lines : removed) {
        back = lines.empty() ? back : std::min(back, before.size() - lines.end);
    }
    back = before.size() - behindLine(before, before.size() - back);
    return {{front, before.size() - back}, {front, after.size() - back}};
}

} // namespace

EditedText withLayoutKept(const LaidOutText& source, LDIF_Entry& root, const Changes& changes, CommentBalance& comments)
{
    return LayoutKeeper(source, root, changes, comments).run();
}

void needsComments(std::string_view before, CommentBalance balance, std::string_view after)
{
    const auto refuse = [](std::string_view line) {
        LDIF_Exception failure(VELTOR_HERE, result::invalidSyntax, result::invalidSyntax,
                               "A comment line would not come back as it is");
        failure.value = line;
        throw failure;
    };
    std::sort(balance.removed.begin(), balance.removed.end(),
              [](TextRange left, TextRange right) { return left.begin < right.begin; });
    auto removed = balance.removed.begin();
    // What both begin and end with says the same.
    const auto [then, since] = differingLines(before, balance.removed, after);
    CommentLines now(after, since);
    std::size_t added = 0;
    for (CommentLines was(before, then); !was.isOver(); was.next()) {
        while (removed != balance.removed.end() && removed->end <= was.begin()) {
            ++removed;
        }
        if (removed != balance.removed.end() && removed->begin <= was.begin()) {
            continue;
        }
        for (; !now.isOver() && now.line() != was.line(); now.next()) {
            ++added;
        }
        if (now.isOver()) {
            refuse(was.line());
        }
        now.next();
    }
    for (; !now.isOver(); now.next()) {
        ++added;
    }
    if (added != balance.added) {
        refuse("");
    }
}

} // namespace veltor::detail
