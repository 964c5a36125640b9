// Walking and releasing results: what each function gives for every kind of node, and which code it records.
#include "support/api_test.h"

#include <cstring>
#include <functional>
#include <string>
#include <strings.h>
#include <vector>

using namespace veltor::test;

namespace {

class CfgMessage : public ApiTest
{
protected:
    CfgMessage()
    {
        cfg_search_s(handle_.get(), nullptr, subtree, nullptr, nullptr, 0, &first_);
        result_.reset(first_);
    }

    void* handle() const { return handle_.get(); }
    cfg_message* first() const { return first_; }
    int code() const { return cfg_get_errno(handle_.get()); }

private:
    Handle handle_ = bound("dn: cn=Configuration\n"
                           "objectclass: top\n"
                           "objectclass: zor-slapdTop\n"
                           "cn: Configuration\n"
                           "zor-slapdPort: 389\n"
                           "\n"
                           "dn: cn=Front End, cn=Configuration\n"
                           "objectclass: top\n"
                           "\n"
                           "dn: o=x\n"
                           "objectclass: top\n");
    cfg_message* first_ = nullptr;
    Message result_;
};

/// A node as cfg_search_s would make it; the caller links it.
Message node(int kind, const char* text)
{
    Message made(static_cast<cfg_message*>(std::calloc(1, sizeof(cfg_message))));
    made->kind = kind;
    made->text = text == nullptr ? nullptr : strdup(text);
    return made;
}

/// Links nodes to one chain and gives its head.
Message chain(std::vector<Message> nodes)
{
    for (std::size_t index = nodes.size(); index-- > 1;) {
        nodes[index - 1]->next = nodes[index].release();
    }
    return std::move(nodes.front());
}

Message chainOf(Message first, Message second)
{
    first->next = second.release();
    return first;
}

std::string takenName(char* name)
{
    const Text owned(name);
    return shown(name);
}

} // namespace

TEST_F(CfgMessage, TheNodesAreKindTextChildrenAndNext)
{
    const cfg_message* const entry = first();
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->kind, 0);
    EXPECT_STREQ(entry->text, "cn=Configuration");
    const cfg_message* const attribute = entry->children;
    ASSERT_NE(attribute, nullptr);
    EXPECT_EQ(attribute->kind, 1);
    EXPECT_STREQ(attribute->text, "cn");
    const cfg_message* const value = attribute->children;
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->kind, 2);
    EXPECT_STREQ(value->text, "Configuration");
    EXPECT_EQ(value->children, nullptr);
    EXPECT_EQ(value->next, nullptr);
    ASSERT_NE(attribute->next, nullptr);
    EXPECT_EQ(attribute->next->kind, 1);
    EXPECT_STREQ(attribute->next->text, "objectclass");
    ASSERT_NE(attribute->next->children, nullptr);
    ASSERT_NE(attribute->next->children->next, nullptr);
    EXPECT_STREQ(attribute->next->children->next->text, "zor-slapdTop");
}

TEST_F(CfgMessage, EveryWalkingFunctionResetsTheHandle)
{
    struct Row
    {
        const char* name;
        std::function<void()> call;
    };
    Cursor cursor;
    cfg_cursor* made = nullptr;
    takenName(cfg_first_attribute(handle(), first(), &made));
    cursor.reset(made);
    const Row rows[] = {
        {"cfg_first_entry", [&] { cfg_first_entry(handle(), first()); }},
        {"cfg_next_entry", [&] { cfg_next_entry(handle(), first()); }},
        {"cfg_count_entries", [&] { cfg_count_entries(handle(), first()); }},
        {"cfg_get_dn", [&] { takenName(cfg_get_dn(handle(), first())); }},
        {"cfg_first_attribute",
         [&] {
             cfg_cursor* other = nullptr;
             takenName(cfg_first_attribute(handle(), first(), &other));
             cfg_ber_free(other);
         }},
        {"cfg_next_attribute", [&] { takenName(cfg_next_attribute(handle(), first(), cursor.get())); }},
        {"cfg_count_attributes", [&] { cfg_count_attributes(handle(), first()); }},
        {"cfg_get_values", [&] { Values(cfg_get_values(handle(), first(), "cn")); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(search(handle(), "cn=missing", baseScope, nullptr).code, 32);
        ASSERT_NE(cfg_dump_exception(handle()), nullptr);
        row.call();
        EXPECT_EQ(code(), 0);
        EXPECT_EQ(cfg_dump_exception(handle()), nullptr);
    }
}

TEST_F(CfgMessage, FirstEntryIsTheResultItself)
{
    EXPECT_EQ(cfg_first_entry(handle(), first()), first());
    EXPECT_EQ(cfg_first_entry(nullptr, first()), first());
    EXPECT_EQ(cfg_first_entry(handle(), nullptr), nullptr);
    EXPECT_EQ(code(), 0);
    EXPECT_EQ(cfg_first_entry(nullptr, nullptr), nullptr);
}

TEST_F(CfgMessage, NextEntryWalksTheChain)
{
    std::string dns;
    for (cfg_message* entry = cfg_first_entry(handle(), first()); entry != nullptr;
         entry = cfg_next_entry(handle(), entry)) {
        dns += takenName(cfg_get_dn(handle(), entry)) + "\n";
    }
    EXPECT_EQ(dns, "cn=Configuration\ncn=Front End, cn=Configuration\no=x\n");
    EXPECT_EQ(code(), 0);
    EXPECT_EQ(cfg_next_entry(handle(), nullptr), nullptr);
    EXPECT_EQ(code(), 0);
    EXPECT_EQ(cfg_next_entry(nullptr, first()), first()->next);
    EXPECT_EQ(cfg_next_entry(nullptr, nullptr), nullptr);
}

TEST_F(CfgMessage, CountEntriesCountsFromTheGivenOneOn)
{
    EXPECT_EQ(cfg_count_entries(handle(), first()), 3);
    EXPECT_EQ(cfg_count_entries(handle(), first()->next), 2);
    EXPECT_EQ(cfg_count_entries(handle(), first()->next->next), 1);
    EXPECT_EQ(cfg_count_entries(handle(), nullptr), 0);
    EXPECT_EQ(code(), 0);
}

TEST_F(CfgMessage, CountsWithoutAHandleAre89)
{
    EXPECT_EQ(cfg_count_entries(nullptr, first()), 89);
    EXPECT_EQ(cfg_count_entries(nullptr, nullptr), 89);
    EXPECT_EQ(cfg_count_attributes(nullptr, first()), 89);
    EXPECT_EQ(cfg_count_attributes(nullptr, nullptr), 89);
}

TEST_F(CfgMessage, GetDnGivesAFreshCopy)
{
    const Text one(cfg_get_dn(handle(), first()));
    const Text other(cfg_get_dn(nullptr, first()));
    EXPECT_STREQ(one.get(), "cn=Configuration");
    EXPECT_STREQ(other.get(), "cn=Configuration");
    EXPECT_NE(one.get(), other.get());
    EXPECT_NE(one.get(), first()->text);
    EXPECT_EQ(code(), 0);
}

TEST_F(CfgMessage, GetDnOfAnythingButAnEntryIsABadArgument)
{
    const Message withoutText = node(0, nullptr);
    const Message empty = node(0, "");
    struct Row
    {
        const char* name;
        cfg_message* entry;
        const char* dn;
        int code;
    };
    const Row rows[] = {
        {"entry", first(), "cn=Configuration", 0},
        {"entry with the empty DN", empty.get(), "", 0},
        {"null", nullptr, "(null)", 89},
        {"attribute", first()->children, "(null)", 89},
        {"value", first()->children->children, "(null)", 89},
        {"entry without a text", withoutText.get(), "(null)", 89},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(takenName(cfg_get_dn(handle(), row.entry)), row.dn);
        EXPECT_EQ(code(), row.code);
        EXPECT_EQ(cfg_dump_exception(handle()), nullptr);
        EXPECT_EQ(takenName(cfg_get_dn(nullptr, row.entry)), row.dn);
    }
}

TEST_F(CfgMessage, FirstAttributeMakesACursor)
{
    for (void* const used : {handle(), static_cast<void*>(nullptr)}) {
        cfg_cursor* made = nullptr;
        const Text name(cfg_first_attribute(used, first(), &made));
        const Cursor cursor(made);
        EXPECT_STREQ(name.get(), "cn");
        EXPECT_NE(name.get(), first()->children->text);
        EXPECT_NE(cursor, nullptr);
        EXPECT_EQ(code(), 0);
    }
}

TEST_F(CfgMessage, FirstAttributeWithoutAPlaceForTheCursorIsABadArgument)
{
    EXPECT_EQ(takenName(cfg_first_attribute(handle(), first(), nullptr)), "(null)");
    EXPECT_EQ(code(), 89);
    EXPECT_EQ(takenName(cfg_first_attribute(handle(), nullptr, nullptr)), "(null)");
    EXPECT_EQ(code(), 89);
    EXPECT_EQ(takenName(cfg_first_attribute(nullptr, first(), nullptr)), "(null)");
}

TEST_F(CfgMessage, FirstAttributeOfANullEntryClearsTheCursor)
{
    for (void* const used : {handle(), static_cast<void*>(nullptr)}) {
        char elsewhere = 0;
        auto* cursor = reinterpret_cast<cfg_cursor*>(&elsewhere);
        EXPECT_EQ(takenName(cfg_first_attribute(used, nullptr, &cursor)), "(null)");
        EXPECT_EQ(cursor, nullptr);
    }
    cfg_cursor* cursor = nullptr;
    cfg_first_attribute(handle(), nullptr, &cursor);
    EXPECT_EQ(code(), 89);
}

TEST_F(CfgMessage, AnEntryWithoutAttributesHasACursorAllTheSame)
{
    const Message bare = node(0, "cn=x");
    const Message nameless = node(0, "cn=y");
    nameless->children = node(1, nullptr).release();
    for (cfg_message* const entry : {bare.get(), nameless.get()}) {
        SCOPED_TRACE(entry->text);
        cfg_cursor* made = nullptr;
        EXPECT_EQ(takenName(cfg_first_attribute(handle(), entry, &made)), "(null)");
        EXPECT_EQ(code(), 0);
        const Cursor cursor(made);
        ASSERT_NE(cursor, nullptr);
        EXPECT_EQ(takenName(cfg_next_attribute(handle(), entry, cursor.get())), "(null)");
        EXPECT_EQ(code(), 0);
    }
}

TEST_F(CfgMessage, NextAttributeGoesToTheEndAndStaysThere)
{
    cfg_cursor* made = nullptr;
    std::string names = takenName(cfg_first_attribute(handle(), first(), &made)) + " ";
    const Cursor cursor(made);
    for (int count = 0; count < 4; ++count) {
        names += takenName(cfg_next_attribute(handle(), first(), cursor.get())) + " ";
        EXPECT_EQ(code(), 0);
    }
    EXPECT_EQ(names, "cn objectclass zor-slapdPort (null) (null) ");
}

TEST_F(CfgMessage, TheCursorAloneHoldsThePosition)
{
    cfg_cursor* made = nullptr;
    takenName(cfg_first_attribute(handle(), first(), &made));
    const Cursor cursor(made);
    EXPECT_EQ(takenName(cfg_next_attribute(handle(), first()->next, cursor.get())), "objectclass");
    EXPECT_EQ(takenName(cfg_next_attribute(nullptr, nullptr, cursor.get())), "zor-slapdPort");
}

TEST_F(CfgMessage, NextAttributeReadsOverANameThatIsMissing)
{
    const Message entry = node(0, "cn=x");
    std::vector<Message> attributes;
    attributes.push_back(node(1, "a"));
    attributes.push_back(node(1, nullptr));
    attributes.push_back(node(1, "c"));
    entry->children = chain(std::move(attributes)).release();
    cfg_cursor* made = nullptr;
    EXPECT_EQ(takenName(cfg_first_attribute(handle(), entry.get(), &made)), "a");
    const Cursor cursor(made);
    EXPECT_EQ(takenName(cfg_next_attribute(handle(), entry.get(), cursor.get())), "(null)");
    EXPECT_EQ(takenName(cfg_next_attribute(handle(), entry.get(), cursor.get())), "c");
}

TEST_F(CfgMessage, NextAttributeWithoutACursorIsABadArgument)
{
    EXPECT_EQ(takenName(cfg_next_attribute(handle(), first(), nullptr)), "(null)");
    EXPECT_EQ(code(), 89);
    EXPECT_EQ(takenName(cfg_next_attribute(nullptr, first(), nullptr)), "(null)");
}

TEST_F(CfgMessage, CountAttributesCountsTheEntrysOwn)
{
    EXPECT_EQ(cfg_count_attributes(handle(), first()), 3);
    EXPECT_EQ(cfg_count_attributes(handle(), first()->next), 1);
    const Message bare = node(0, "cn=x");
    EXPECT_EQ(cfg_count_attributes(handle(), bare.get()), 0);
    EXPECT_EQ(cfg_count_attributes(handle(), nullptr), 0);
    EXPECT_EQ(code(), 0);
}

TEST_F(CfgMessage, GetValuesGivesAnArrayOfFreshCopies)
{
    for (const char* const name : {"objectclass", "OBJECTCLASS", "objectClass"}) {
        SCOPED_TRACE(name);
        for (void* const used : {handle(), static_cast<void*>(nullptr)}) {
            const Values values(cfg_get_values(used, first(), name));
            ASSERT_NE(values, nullptr);
            EXPECT_EQ(cfg_count_values(values.get()), 2);
            EXPECT_STREQ(values.get()[0], "top");
            EXPECT_STREQ(values.get()[1], "zor-slapdTop");
            EXPECT_EQ(values.get()[2], nullptr);
            EXPECT_NE(values.get()[0], first()->children->next->children->text);
            EXPECT_EQ(code(), 0);
        }
    }
}

TEST_F(CfgMessage, GetValuesTellsWhyThereIsNothing)
{
    const Message entry = node(0, "cn=x");
    entry->children = chainOf(node(1, nullptr), node(1, "empty")).release();
    struct Row
    {
        const char* name;
        cfg_message* entry;
        const char* attribute;
        int code;
    };
    const Row rows[] = {
        {"unknown attribute", first(), "description", 16},
        {"beginning of a name", first(), "object", 16},
        {"empty name", first(), "", 16},
        {"entry without attributes", first()->children->children, "cn", 16},
        {"null entry", nullptr, "cn", 89},
        {"null name", first(), nullptr, 89},
        {"both null", nullptr, nullptr, 89},
        {"no values", entry.get(), "EMPTY", 0},
        {"a nameless attribute is passed over", entry.get(), "x", 16},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Values(cfg_get_values(handle(), row.entry, row.attribute)), nullptr);
        EXPECT_EQ(code(), row.code);
        EXPECT_EQ(cfg_get_exterror(handle()), row.code);
        EXPECT_EQ(cfg_dump_exception(handle()), nullptr);
        EXPECT_EQ(Values(cfg_get_values(nullptr, row.entry, row.attribute)), nullptr);
    }
}

TEST_F(CfgMessage, AValueWithoutATextIsTheEmptyText)
{
    const Message entry = node(0, "cn=x");
    entry->children = node(1, "a").release();
    std::vector<Message> texts;
    texts.push_back(node(2, "1"));
    texts.push_back(node(2, nullptr));
    texts.push_back(node(2, "3"));
    entry->children->children = chain(std::move(texts)).release();
    const Values values(cfg_get_values(handle(), entry.get(), "a"));
    ASSERT_EQ(cfg_count_values(values.get()), 3);
    EXPECT_STREQ(values.get()[0], "1");
    EXPECT_STREQ(values.get()[1], "");
    EXPECT_STREQ(values.get()[2], "3");
}

TEST_F(CfgMessage, TheFirstAttributeOfANameCounts)
{
    const Message entry = node(0, "cn=x");
    entry->children = chainOf(node(1, "a"), node(1, "A")).release();
    entry->children->children = node(2, "first").release();
    entry->children->next->children = node(2, "second").release();
    const Values values(cfg_get_values(handle(), entry.get(), "A"));
    ASSERT_EQ(cfg_count_values(values.get()), 1);
    EXPECT_STREQ(values.get()[0], "first");
}

TEST_F(CfgMessage, NamesAreTheSameWhereTheLocaleSaysSo)
{
    // Every byte in the place of every other, behind a common beginning and in front of a common end.
    const Message entry = node(0, "cn=x");
    entry->children = node(1, "a?z").release();
    entry->children->children = node(2, "value").release();
    char wanted[] = "A?z";
    inBothLocales([&] {
        for (int held = 0; held < 256; ++held) {
            entry->children->text[1] = static_cast<char>(held);
            for (int asked = 0; asked < 256; ++asked) {
                wanted[1] = static_cast<char>(asked);
                const Values values(cfg_get_values(handle(), entry.get(), wanted));
                ASSERT_EQ(values != nullptr, strcasecmp(entry->children->text, wanted) == 0) << held << " " << asked;
            }
        }
    });
}

TEST_F(CfgMessage, CountValuesTakesNullAndEmptyArrays)
{
    char* empty[] = {nullptr};
    char text[] = "x";
    char* two[] = {text, text, nullptr};
    EXPECT_EQ(cfg_count_values(nullptr), 0);
    EXPECT_EQ(cfg_count_values(empty), 0);
    EXPECT_EQ(cfg_count_values(two), 2);
}

TEST_F(CfgMessage, EveryFreeTakesNull)
{
    EXPECT_EQ(cfg_msgfree(nullptr), 0);
    cfg_value_free(nullptr);
    cfg_ber_free(nullptr);
    cfg_memfree(nullptr);
}

TEST_F(CfgMessage, MsgfreeGives0ForAnyNode)
{
    // That everything below and behind goes with it is the leak checker's to say.
    Message entry = chainOf(node(0, "cn=x"), node(0, nullptr));
    entry->children = chainOf(node(1, "a"), node(1, nullptr)).release();
    entry->children->children = chainOf(node(2, nullptr), node(2, "v")).release();
    EXPECT_EQ(cfg_msgfree(entry.release()), 0);
    EXPECT_EQ(cfg_msgfree(node(2, "lone").release()), 0);
}

TEST_F(CfgMessage, MsgfreeNeedsNoStackForLongChains)
{
    constexpr int length = 1000000;
    Message head = node(0, "cn=x");
    cfg_message* entry = head.get();
    cfg_message* last = nullptr;
    for (int count = 0; count < length; ++count) {
        entry->next = node(0, nullptr).release();
        entry = entry->next;
        cfg_message* const value = node(2, nullptr).release();
        (last == nullptr ? head->children : last->next) = value;
        last = value;
    }
    EXPECT_EQ(cfg_msgfree(head.release()), 0);
}

TEST_F(CfgMessage, ManyEntriesWithChildrenAreFreedInLinearTime)
{
    // Each entry's children stand in front of all that follows it; finding their end again and again would show.
    constexpr int entries = 300000;
    Message head = node(0, nullptr);
    cfg_message* entry = head.get();
    for (int count = 0; count < entries; ++count) {
        entry->children = node(1, nullptr).release();
        entry->next = node(0, nullptr).release();
        entry = entry->next;
    }
    EXPECT_EQ(cfg_msgfree(head.release()), 0);
}

TEST_F(CfgMessage, MemfreeTakesWhatTheApiGave)
{
    cfg_memfree(cfg_get_dn(handle(), first()));
    char* name = nullptr;
    ASSERT_EQ(cfg_get_option(handle(), CFG_OPT_CONFIG_FILE, &name), 0);
    ASSERT_NE(name, nullptr);
    cfg_memfree(name);
}
