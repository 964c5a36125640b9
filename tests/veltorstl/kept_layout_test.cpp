// Safe writes that keep the layout, on files as people write them: random ones with every oddity that loads, and fixed
// ones for what chance seldom brings. RC_PARAMS sets seed and size, as RC_PARAMS="seed=1 max_success=10000".
#include "support/api_test.h"
#include "support/layout_trial.h"
#include "support/mods.h"

#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <ostream>
#include <rapidcheck.h>
#include <string>
#include <string_view>
#include <vector>

using namespace veltor::test;
using layout::Broken;
using layout::Tally;
using layout::Trial;

// The tests make thousands of changes; that none of them waits for the disk is nobody's loss.
extern "C" int __wrap_fsync(int)
{
    return 0;
}

namespace {

using layout::Texts;

// Files are many and small: more of them than is usual, unless somebody says.
[[maybe_unused]] const int moreByDefault = setenv("RC_PARAMS", "max_success=500", 0);

/// A text in parts, so that a counterexample becomes small.
struct RandomFile
{
    std::string header;
    std::vector<std::string> entries; // with the comments above them
    std::string closing;
    bool isTerminated = true;

    std::string text() const
    {
        std::string all = header;
        for (const std::string& entry : entries) {
            all += entry;
        }
        all += closing;
        if (!isTerminated && all.ends_with('\n')) {
            all.pop_back();
        }
        return all;
    }
};

void showValue(const RandomFile& file, std::ostream& stream)
{
    rc::show(file.text(), stream);
}

/// What a function makes with choices of full range, however small the sequences are that it stands in.
template <class Make>
auto made(Make make)
{
    return rc::gen::resize(rc::kNominalSize, rc::gen::exec(make));
}

template <class... Texts>
std::string oneOf(Texts... texts)
{
    return *rc::gen::element<std::string>(texts...);
}

bool chance(int inHowMany)
{
    return *rc::gen::inRange(0, inHowMany) == 0;
}

std::string lineEnd()
{
    return *rc::gen::weightedElement<std::string>(
        {{60, "\n"}, {8, "\r\n"}, {2, " \n"}, {2, "\t\n"}, {1, ")\n"}, {1, " ( \n"}, {1, "\r\r\n"}});
}

std::string comment()
{
    const std::string text = *rc::gen::weightedOneOf<std::string>(
        {{10, rc::gen::map(rc::gen::inRange(0, 1000), [](int number) { return "# c" + std::to_string(number); })},
         {1, rc::gen::element<std::string>("# ------------------------------", "##########", "#cn: x", "#dn: o=x",
                                           "#  blanks  ", "#", "# a\rb", "\r# behind a return", "#\ttab")}});
    return text + oneOf("\n", "\n", "\n", "\n", "\r\n");
}

std::string blank()
{
    return *rc::gen::weightedElement<std::string>({{20, "\n"}, {2, " \n"}, {1, "\t \n"}, {3, "\r\n"}});
}

std::string anyName()
{
    return *rc::gen::weightedElement<std::string>({{6, "cn"},
                                                   {2, "CN"},
                                                   {6, "description"},
                                                   {1, "Description"},
                                                   {6, "objectClass"},
                                                   {4, "zor-slapdPort"},
                                                   {1, "ZOR-SLAPDPORT"},
                                                   {4, "x"},
                                                   {2, "sn"},
                                                   {1, "zor-slapdAdminDN"},
                                                   {1, "zor-slapdInvalidLine"},
                                                   {1, "two words"},
                                                   {1, "dn "},
                                                   {1, "c\rn"}});
}

std::string anyValue()
{
    return *rc::gen::weightedElement<std::string>(
        {{8, "one"},
         {4, "ONE"},
         {6, "two"},
         {6, "two words"},
         {6, "389"},
         {2, "0389"},
         {2, "none"},
         {2, ""},
         {2, "cn=a, o=x"},
         {1, "(in parentheses)"},
         {1, "a:b"},
         {1, ": c"},
         {1, "# no comment"},
         {1, "r\re\rturn"},
         {1, "a value that is long enough to be folded by those who do that"}});
}

/// Folds a text here and there.
std::string folded(std::string text)
{
    for (int folds = *rc::gen::weightedElement<int>({{12, 0}, {2, 1}, {1, 2}}); folds > 0; --folds) {
        text.insert(*rc::gen::inRange<std::size_t>(0, text.size() + 1),
                    oneOf("\n ", "\n  ", "\n\t", "\r\n ", " \n ", "\n \n "));
    }
    return text;
}

std::string attributeLine()
{
    switch (*rc::gen::weightedElement<int>({{40, 0}, {2, 1}, {1, 2}, {1, 3}, {1, 4}})) {
    case 0:
        break;
    case 1:
        return oneOf("no colon here", "another one without it", ":nothing in front", "word") + lineEnd();
    case 2: // the name begins with a blank
        return "# above\n x: " + oneOf("one", "two") + "\n";
    case 3:
        return anyName() + ": " + oneOf("\xC3\xBC", "a\xC3\xA4 \xE2\x82\xAC", "\xE2\x80\x83x") + lineEnd();
    case 4:
        return anyName() + ": a" + std::string(1, '\0') + "b" + lineEnd();
    }
    const std::string separator = *rc::gen::weightedElement<std::string>(
        {{20, ": "}, {6, ":"}, {2, ":: "}, {2, ":   "}, {1, ":\t"}, {1, ": ("}, {1, ":\r "}});
    return anyName() + separator + folded(anyValue()) + lineEnd();
}

std::string anyDn()
{
    return *rc::gen::weightedElement<std::string>({{6, "o=x"},
                                                   {6, "cn=a, o=x"},
                                                   {3, "cn=b,o=x"},
                                                   {2, "CN=A ; O=X"},
                                                   {4, "cn=c, cn=a, o=x"},
                                                   {3, "ou=y"},
                                                   {3, "cn=a,ou=y"},
                                                   {2, "cn=q, ou=missing, o=z"},
                                                   {1, "o=z"},
                                                   {1, "cn=\\61, o=x"},
                                                   {1, "cn=\"b\", o=x"},
                                                   {1, "cn=d+ou=e, o=x"},
                                                   {1, "cn=f\\2Cg"},
                                                   {1, ""}});
}

std::string dnLine()
{
    if (chance(40)) {
        return "dnq=a" + lineEnd(); // a DN line without a colon
    }
    return *rc::gen::weightedElement<std::string>({{20, "dn: "}, {3, "dn:"}, {2, "DN: "}, {1, "dn:: "}, {1, "Dn:  "}}) +
           folded(anyDn()) + lineEnd();
}

template <class Make>
std::string several(Make make, int most)
{
    std::string all;
    for (int count = *rc::gen::inRange(0, most + 1); count > 0; --count) {
        all += make();
    }
    return all;
}

std::string between()
{
    return *rc::gen::weightedElement<int>({{1, 0}, {2, 1}}) == 0 ? comment() : blank();
}

std::string anyEntry()
{
    std::string text = chance(3) ? several(between, 4) : "";
    text += dnLine();
    for (int lines = *rc::gen::inRange(0, 7); lines > 0; --lines) {
        text += chance(4) ? several(comment, 3) : "";
        text += attributeLine();
    }
    text += chance(8) ? several(comment, 2) : "";
    // What follows may continue the last line.
    return text + (chance(12) ? "" : blank());
}

std::string anyHeader()
{
    std::string text = chance(4) ? several(between, 3) : "";
    const int order = *rc::gen::inRange(0, 4);
    for (int line = 0; line < 2; ++line) {
        if ((order & 1) == line) {
            text += oneOf("version: 1", "VERSION:1", "version:: 2") + lineEnd();
        } else if (order < 2 || line == 1) {
            text += oneOf("charset: UTF-8", "charset:ISO-8859-1", "CharSet: a") + lineEnd();
        }
        text += chance(4) ? several(between, 2) : "";
    }
    return chance(3) ? several(between, 3) : text + blank();
}

RandomFile anyFile()
{
    RandomFile file;
    file.header = *made(anyHeader);
    file.entries = *rc::gen::resize(12, rc::gen::container<std::vector<std::string>>(made(anyEntry)));
    file.closing = chance(3) ? several(between, 4) : "";
    file.isTerminated = !chance(6);
    return file;
}

std::string newName()
{
    return *rc::gen::weightedElement<std::string>({{6, "description"},
                                                   {4, "cn"},
                                                   {4, "objectclass"},
                                                   {4, "zor-slapdPort"},
                                                   {4, "x"},
                                                   {3, "sn"},
                                                   {2, "aa-new"},
                                                   {1, "zor-slapdInvalidLine"},
                                                   {1, "version"},
                                                   {1, "charset"}});
}

std::string newValue(const std::string& name)
{
    if (name == "zor-slapdPort") {
        return oneOf("389", "636", "1", "65535");
    }
    return *rc::gen::weightedElement<std::string>({{6, "one"},
                                                   {4, "ONE"},
                                                   {6, "new"},
                                                   {6, "newer"},
                                                   {4, "two"},
                                                   {2, "a:b"},
                                                   {2, ":x"},
                                                   {2, "# x"},
                                                   {1, "389"},
                                                   {2, "in (parentheses) x"}});
}

layout::Change::Mod anyMod()
{
    layout::Change::Mod mod;
    mod.operation = *rc::gen::weightedElement<int>({{4, LDAP_MOD_ADD}, {3, LDAP_MOD_DELETE}, {6, LDAP_MOD_REPLACE}});
    if (mod.operation == LDAP_MOD_DELETE || !chance(3)) {
        mod.attribute = *rc::gen::inRange<std::size_t>(0, 8);
    }
    mod.name = newName();
    mod.hasValues = mod.operation != LDAP_MOD_DELETE || !chance(2);
    if (!mod.hasValues) {
        return mod;
    }
    for (int values = *rc::gen::inRange(1, 5); values > 0; --values) {
        const bool isPresent = mod.operation == LDAP_MOD_DELETE || (mod.operation == LDAP_MOD_REPLACE && chance(2));
        if (isPresent) {
            mod.present.emplace_back(*rc::gen::inRange<std::size_t>(0, 6));
            if (mod.operation == LDAP_MOD_DELETE) {
                break; // one that is gone can't be deleted again
            }
        } else {
            mod.present.emplace_back();
            mod.texts.push_back(newValue(mod.name));
        }
    }
    return mod;
}

layout::Change anyChange()
{
    using Kind = layout::Change::Kind;
    layout::Change change;
    change.kind = *rc::gen::weightedElement<Kind>(
        {{3, Kind::add}, {10, Kind::modify}, {2, Kind::erase}, {2, Kind::eraseSubtree}, {4, Kind::comment}});
    change.entry = *rc::gen::inRange<std::size_t>(0, 12);
    change.rdn = oneOf("cn=new", "cn=newer", "cn=a", "o=x", "ou=missing, o=z", "cn=n+ou=m", "o=z");
    change.onTop = chance(change.kind == Kind::add ? 3 : 20);
    change.ofEntry = chance(2);
    change.text = oneOf("", "set", "set\ntwice", "with  blanks", "set\n\nparted", "# with a mark");
    for (int mods = change.kind == Kind::comment ? 1 : *rc::gen::weightedElement<int>({{8, 1}, {3, 2}, {1, 3}});
         mods > 0; --mods) {
        change.mods.push_back(anyMod());
    }
    if (change.kind == Kind::comment) {
        change.mods.front().attribute = *rc::gen::inRange<std::size_t>(0, 8);
    }
    return change;
}

} // namespace

namespace veltor::test::layout {

void showValue(const Change& change, std::ostream& stream)
{
    static constexpr const char* kinds[] = {"add", "modify", "erase", "erase subtree", "comment"};
    stream << kinds[change.kind] << " " << change.entry << " " << change.rdn << (change.onTop ? " on top" : "") << " '"
           << change.text << "' " << change.mods.size() << " mods";
}

} // namespace veltor::test::layout

namespace {

class KeptLayoutOf : public ApiTest
{
protected:
    Handle safe(std::string_view text) const
    {
        Handle handle = unbound(write(text));
        EXPECT_EQ(cfg_set_write_mode(handle.get(), CFG_WRITE_SAFE), 0);
        EXPECT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0) << shown(cfg_dump_exception(handle.get()));
        return handle;
    }

    static void add(const Handle& handle, const char* dn)
    {
        Mods mods({{LDAP_MOD_ADD, "cn", {{"new"}}}});
        EXPECT_EQ(cfg_add_s(handle.get(), dn, mods.list()), 0) << shown(cfg_dump_exception(handle.get()));
    }

    static void setComment(const Handle& handle, const char* dn, const char* attribute, const char* text)
    {
        EXPECT_EQ(cfg_set_comment_s(handle.get(), dn, attribute, text), 0) << shown(cfg_dump_exception(handle.get()));
    }

    static void begin(const Handle& handle) { EXPECT_EQ(cfg_begin_s(handle.get(), 0), 0); }
    static void commit(const Handle& handle)
    {
        EXPECT_EQ(cfg_commit_s(handle.get()), 0) << shown(cfg_dump_exception(handle.get()));
    }
};

class KeptLayout : public ::testing::TestWithParam<const char*>
{
protected:
    KeptLayout() : environment_("LC_ALL", GetParam()), locale_(GetParam()) {}

    /// Runs trials. One that finds something fails the property with what it found.
    template <class Work>
    void check(const char* name, Work&& work)
    {
        Tally tally;
        EXPECT_TRUE(rc::check(name, [&] {
            try {
                Trial trial(folder_, &tally);
                work(trial);
            } catch (const Broken& broken) {
                RC_FAIL(broken.what());
            }
        }));
        std::string refused;
        for (const auto& [words, count] : tally.refusedCommits) {
            refused += " " + words + " x" + std::to_string(count);
        }
        std::printf("%zu texts, %zu loaded, %zu sets committed, %zu of those refused in own form, %zu updates "
                    "refused; commits refused:%s\n",
                    tally.texts, tally.loaded, tally.committed, tally.refusedInOwnForm, tally.refusedUpdates,
                    refused.empty() ? " none" : refused.c_str());
        // A generator that makes nothing of use would let everything hold.
        EXPECT_GE(tally.loaded * 4, tally.texts);
    }

private:
    EnvironmentGuard environment_;
    LocaleGuard locale_;
    TemporaryFolder folder_;
};

} // namespace

TEST_P(KeptLayout, WithoutAChangeTheFileRendersAsItWasRead)
{
    check("no change", [](Trial& trial) { trial.run((*made(anyFile)).text(), {}); });
}

TEST_P(KeptLayout, ChangesThatCancelOutLeaveTheBytes)
{
    check("there and back", [](Trial& trial) {
        const auto file = *made(anyFile);
        const auto change = *made(anyChange);
        trial.runCancelled(file.text(), change);
    });
}

TEST_P(KeptLayout, OneValueIsOneLine)
{
    check("one value", [](Trial& trial) {
        const auto file = *made(anyFile);
        const auto number = *rc::gen::inRange<std::size_t>(0, 20);
        trial.runOneValue(file.text(), number, oneOf("new", "389", "a:b", ":x", "(y) z", "# new"));
    });
}

TEST_P(KeptLayout, ChangesTouchTheirOwnLinesAlone)
{
    check("change sets", [](Trial& trial) {
        const auto file = *made(anyFile);
        std::vector<layout::ChangeSet> sets;
        for (int count = *rc::gen::inRange(1, 4); count > 0; --count) {
            sets.push_back(*rc::gen::resize(5, rc::gen::container<layout::ChangeSet>(made(anyChange))));
        }
        trial.run(file.text(), sets);
    });
}

// A block that ends with a bare "#" lost it when its own text was set again.
TEST_F(KeptLayoutOf, ACommentsOwnTextKeepsItsEmptyLastLine)
{
    constexpr std::string_view text = "dn: o=x\n# why\n#\ncn: x\n";
    const Handle handle = safe(text);
    begin(handle);
    setComment(handle, "o=x", "cn", "other");
    setComment(handle, "o=x", "cn", "why\n");
    commit(handle);
    EXPECT_EQ(read(), text);
}

// A line of white space behind the new entry was taken for the blank line that parts it from the rest, and continued
// its last line.
TEST_F(KeptLayoutOf, ALineOfWhiteSpaceDoesNotPartANewEntry)
{
    const Handle handle = safe(" \n# below\n");
    add(handle, "o=x");
    EXPECT_EQ(read(), "dn: o=x\ncn: new\n\n \n# below\n");
    const Handle other = safe("\t ");
    add(other, "o=x");
    EXPECT_EQ(read(), "dn: o=x\ncn: new\n\n\t ");
}

TEST_F(KeptLayoutOf, ALineOfWhiteSpaceAboveDoesNotPartANewEntryEither)
{
    const Handle handle = safe("dn: o=x\ncn: one\n \n");
    add(handle, "cn=a, o=x");
    EXPECT_EQ(read(), "dn: o=x\ncn: one\n \n\ndn: cn=a, o=x\ncn: new\n");
}

// The block was written anew, with the line ends of the line above.
TEST_F(KeptLayoutOf, ACommentThatIsSetBackKeepsItsLineEnds)
{
    constexpr char text[] = "dn: o=x\r\n# above\ncn: one\r\n# between\ncn: two\n\n# b\r\ndn: o=y\n\n";
    const Handle handle = safe(text);
    begin(handle);
    setComment(handle, "o=x", "cn", "other");
    setComment(handle, "o=x", "cn", "above\nbetween");
    setComment(handle, "o=y", nullptr, "");
    setComment(handle, "o=y", nullptr, "b");
    commit(handle);
    EXPECT_EQ(read(), text);
}

// The new block was left above the removed line, where it belonged to what followed.
TEST_F(KeptLayoutOf, ACommentStandsAboveAValueThatStays)
{
    constexpr char text[] = "dn: o=x\n# above\ncn: one\n# of sn\nsn: s\ncn: two\n";
    for (const bool isSet : {false, true}) {
        const Handle handle = safe(text);
        begin(handle);
        if (isSet) {
            setComment(handle, "o=x", "cn", "new");
        }
        Mods mods({{LDAP_MOD_DELETE, "cn", {{"one"}}}});
        EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", mods.list()), 0);
        if (!isSet) {
            setComment(handle, "o=x", "cn", "new");
        }
        commit(handle);
        EXPECT_EQ(read(), "dn: o=x\n# of sn\nsn: s\n# new\ncn: two\n");
    }
}

// In memory the attribute that came again had no comment, so that the removal was taken for no change.
TEST_F(KeptLayoutOf, TheCommentOfAnAttributeThatCameAgainCanBeRemoved)
{
    const Handle handle = safe("dn: o=x\n# above\ncn: one\n");
    begin(handle);
    Mods mods({{LDAP_MOD_DELETE, "cn", {}}, {LDAP_MOD_ADD, "cn", {{"two"}}}});
    EXPECT_EQ(cfg_modify_s(handle.get(), "o=x", mods.list()), 0);
    setComment(handle, "o=x", "cn", "");
    commit(handle);
    EXPECT_EQ(read(), "dn: o=x\ncn: two\n");
    // Alone it is no change, nor a reason to write what nobody said.
    setComment(handle, "", "charset", "");
    begin(handle);
    setComment(handle, "", "charset", "");
    setComment(handle, "o=x", "cn", "new");
    commit(handle);
    EXPECT_EQ(read(), "dn: o=x\n# new\ncn: two\n");
}

// The one reason to refuse that the layout has: without the comment between, the line would continue the one above.
TEST_F(KeptLayoutOf, ALineThatBeginsWithABlankKeepsWhatPartsItFromTheLineAbove)
{
    constexpr char text[] = "dn: o=x\ncn: a\n# above\n x: one\n";
    const Handle handle = safe(text);
    EXPECT_EQ(cfg_set_comment_s(handle.get(), "o=x", " x", ""), 21);
    EXPECT_EQ(read(), text);
    setComment(handle, "o=x", " x", "other");
    EXPECT_EQ(read(), "dn: o=x\ncn: a\n# other\n x: one\n");
}

INSTANTIATE_TEST_SUITE_P(Locales, KeptLayout, ::testing::Values("C", "C.UTF-8"),
                         [](const auto& locale) { return std::string(locale.param) == "C" ? "C" : "Utf8"; });
