// Nodes of large results: where they lie, that what a caller made is told apart from them, and what happens when the
// system has no more memory for them.
//
// This program stands between the library and mmap, and between the library and the password decoder's free function.
// In a build with the address sanitizer every node is a block of its own, and there are no chunks to count.
#include "result_nodes.h"

#include "support/api_test.h"
#include "support/framing_codec.h"
#include "support/mapping_watch.h"

#include "handle.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace veltor::test;
using veltor::detail::chunkBytes;
using veltor::detail::ClearText;
using veltor::detail::NodeMaker;

namespace {

// So many nodes are blocks; the next one is the first in a chunk.
constexpr std::size_t blocks = 1024;

std::vector<std::string> givenBack; // what the decoder's buffers held when they went back

bool liesInChunk(const cfg_message& node)
{
    return reinterpret_cast<std::uintptr_t>(node.text) % 2 == 1;
}

ClearText clearText(const char* text)
{
    return ClearText(strdup(text));
}

/// A chain of nodes from one maker, whose texts are their numbers.
Message chainOf(NodeMaker& make, std::size_t count)
{
    Message first(make.withCopy(0, "0"));
    cfg_message* last = first.get();
    for (std::size_t number = 1; number < count; ++number) {
        last->next = make.withCopy(0, std::to_string(number).c_str());
        last = last->next;
    }
    return first;
}

cfg_message* nodeAt(cfg_message* chain, std::size_t number)
{
    while (number-- > 0) {
        chain = chain->next;
    }
    return chain;
}

/// Makes the nodes that are blocks.
void passBlocks(NodeMaker& make)
{
    chainOf(make, blocks);
}

/// A node as a caller would make it.
cfg_message* callersNode(int kind, const char* text)
{
    auto* const node = static_cast<cfg_message*>(std::calloc(1, sizeof(cfg_message)));
    node->kind = kind;
    node->text = text == nullptr ? nullptr : strdup(text);
    return node;
}

/// Entries enough for a result of some chunks, passwords among their values.
std::string manyEntries(std::size_t count)
{
    const std::string password = encoded("secret");
    std::string text;
    for (std::size_t number = 0; number < count; ++number) {
        const std::string suffix = std::to_string(number);
        text += "dn: cn=entry " + suffix + ", o=x\nobjectclass: top\nobjectclass: second\nzor-slapdAdminDN: cn=root" +
                suffix + "\nzor-slapdAdminPW: " + password + "\nzor-slapdPort: 1" + suffix + "\nempty:\n\n";
    }
    return text;
}

class ResultNodes : public ApiTest
{
protected:
    ResultNodes() { givenBack.clear(); }
    ~ResultNodes() override { mappingFails = false; }
};

} // namespace

extern "C" {
int _slapd_utils_decode_buffer(char* encodedText, char** text)
{
    *text = unframed(encodedText);
    return 0;
}

void _slapd_utils_decode_buffer_free(char* text)
{
    givenBack.emplace_back(text);
    std::free(text);
}

int _slapd_utils_encode_buffer(const char* text, char** encodedText, int, int)
{
    *encodedText = framed(text);
    return 0;
}

void _slapd_utils_encode_buffer_free(char* encodedText)
{
    std::free(encodedText);
}
}

TEST_F(ResultNodes, TheFirstOnesAreBlocksThatTheCallerCouldFree)
{
    const MappingWatch watch;
    NodeMaker make;
    cfg_message* node = chainOf(make, blocks).release();
    EXPECT_EQ(watch.chunks(), 0U);
    while (node != nullptr) {
        EXPECT_FALSE(liesInChunk(*node));
        cfg_message* const next = node->next;
        std::free(node->text);
        std::free(node);
        node = next;
    }
}

TEST_F(ResultNodes, TheOthersHaveTheirTextsBehindThem)
{
    const MappingWatch watch;
    {
        NodeMaker make;
        passBlocks(make);
        for (const char* const text : {"", "x", "some text", "gr\xC3\xBC\xC3\x9F dich"}) {
            SCOPED_TRACE(text);
            const Message node(make.withCopy(2, text));
            EXPECT_EQ(node->kind, 2);
            EXPECT_STREQ(node->text, text);
            EXPECT_EQ(node->children, nullptr);
            EXPECT_EQ(node->next, nullptr);
            EXPECT_EQ(liesInChunk(*node), !piecewise);
        }
        EXPECT_EQ(watch.chunks(), expectedChunks(1));
    }
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST_F(ResultNodes, ATextThatIsTooLargeForAChunkIsABlock)
{
    const MappingWatch watch;
    NodeMaker make;
    passBlocks(make);
    const std::string large(chunkBytes, 'x');
    const Message node(make.withCopy(2, large.c_str()));
    EXPECT_FALSE(liesInChunk(*node));
    EXPECT_EQ(node->text, large);
}

TEST_F(ResultNodes, AClearTextIsTakenOverOrWiped)
{
    NodeMaker make;
    ClearText few = clearText("secret");
    const char* const buffer = few.get();
    const Message first(make.withClearText(2, std::move(few)));
    EXPECT_EQ(first->text, buffer);
    EXPECT_TRUE(givenBack.empty());

    passBlocks(make);
    const Message later(make.withClearText(2, clearText("secret")));
    EXPECT_STREQ(later->text, "secret");
    EXPECT_EQ(givenBack, (piecewise ? std::vector<std::string>{} : std::vector<std::string>{""})) << "wiped";
}

TEST_F(ResultNodes, ANodeMayBeWithoutAText)
{
    NodeMaker make;
    EXPECT_EQ(Message(make.withClearText(2, nullptr))->text, nullptr);
    passBlocks(make);
    EXPECT_EQ(Message(make.withClearText(2, nullptr))->text, nullptr);
}

TEST_F(ResultNodes, AChunkGoesBackWithItsLastNode)
{
    const MappingWatch watch;
    constexpr std::size_t count = 200000;
    Message first;
    {
        NodeMaker make;
        first = chainOf(make, count);
    }
    const std::size_t whole = watch.chunks();
    EXPECT_EQ(whole > 1, !piecewise);
    // The second half goes by itself, on another thread, while the first stays.
    Message second(std::exchange(nodeAt(first.get(), count / 2 - 1)->next, nullptr));
    std::thread([&second] { second.reset(); }).join();
    if (!piecewise) {
        EXPECT_LT(watch.chunks(), whole);
        EXPECT_GE(watch.chunks(), whole / 2);
    }
    std::size_t number = 0;
    for (const cfg_message* node = first.get(); node != nullptr; node = node->next) {
        ASSERT_EQ(node->text, std::to_string(number++));
    }
    EXPECT_EQ(number, count / 2);
    first.reset();
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST_F(ResultNodes, WithoutMemoryForAChunkTheMakerSaysSo)
{
    const MappingWatch watch;
    NodeMaker make;
    Message chain = chainOf(make, blocks);
    mappingFails = !piecewise;
    std::string said;
    try {
        Message(make.withCopy(0, "x"));
    } catch (const char* failure) {
        said = failure;
    }
    EXPECT_EQ(said, piecewise ? "" : "OUT OF MEMORY!");
    try {
        Message(make.withClearText(0, clearText("secret")));
    } catch (const char* failure) {
        said = failure;
    }
    EXPECT_EQ(said, piecewise ? "" : "OUT OF MEMORY!");
    EXPECT_EQ(givenBack.size(), piecewise ? 0U : 1U) << "the clear text is given back";
    mappingFails = false;
    EXPECT_STREQ(Message(make.withCopy(0, "x"))->text, "x");
}

TEST_F(ResultNodes, ALargeResultSaysWhatSmallOnesSay)
{
    constexpr std::size_t count = 500;
    const Handle handle = bound(manyEntries(count));
    const MappingWatch watch;
    Found whole = search(handle.get(), nullptr, subtree, nullptr);
    ASSERT_EQ(whole.code, 0);
    EXPECT_EQ(watch.chunks(), expectedChunks(1));
    std::string oneByOne;
    for (std::size_t number = 0; number < count; ++number) {
        const std::string dn = "cn=entry " + std::to_string(number) + ", o=x";
        oneByOne += listed(search(handle.get(), dn.c_str(), baseScope, nullptr).result.get());
    }
    EXPECT_EQ(listed(whole.result.get()), oneByOne);
    EXPECT_NE(oneByOne.find("zor-slapdAdminPW: secret\n"), std::string::npos);
    whole.result.reset();
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST_F(ResultNodes, ManyValuesOfOneEntryAreALargeResultToo)
{
    std::string text = "dn: o=x\nobjectclass: top\n";
    for (int number = 0; number < 5000; ++number) {
        text += "zor-slapdSetenv: variable" + std::to_string(number) + "\n";
    }
    const Handle handle = bound(text);
    const MappingWatch watch;
    Found answer = search(handle.get(), "o=x", baseScope, nullptr);
    EXPECT_EQ(watch.chunks(), expectedChunks(1));
    const Values values(cfg_get_values(handle.get(), answer.result.get(), "zor-slapdSetenv"));
    ASSERT_EQ(cfg_count_values(values.get()), 5000);
    EXPECT_STREQ(values.get()[4999], "variable4999");
    answer.result.reset();
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST_F(ResultNodes, ALargeResultSurvivesTheHandle)
{
    Message result;
    {
        const Handle handle = bound(manyEntries(300));
        result = search(handle.get(), nullptr, subtree, "zor-slapdPort=1299").result;
        result = search(handle.get(), nullptr, subtree, nullptr).result;
    }
    EXPECT_EQ(cfg_count_entries(Handle(cfg_init()).get(), result.get()), 300);
    EXPECT_STREQ(nodeAt(result.get(), 299)->text, "cn=entry 299, o=x");
}

TEST_F(ResultNodes, WhatACallerLinksInOrTakesOutIsFreedLikeTheRest)
{
    const Handle handle = bound(manyEntries(400));
    const MappingWatch watch;
    Found answer = search(handle.get(), nullptr, subtree, nullptr);
    cfg_message* const entry = nodeAt(answer.result.get(), 350);
    EXPECT_EQ(liesInChunk(*entry), !piecewise);

    // One taken out, with all that is below it.
    cfg_message* const taken = entry->next;
    entry->next = std::exchange(taken->next, nullptr);
    // One put in: an attribute with a value at each place of a chain, and one without a text.
    cfg_message* const value = callersNode(2, "a caller's value");
    value->next = entry->children->children;
    entry->children->children = value;
    cfg_message* const attribute = callersNode(1, "a caller's attribute");
    attribute->children = callersNode(2, nullptr);
    attribute->next = entry->children;
    entry->children = attribute;
    cfg_message* const last = nodeAt(answer.result.get(), 398);
    ASSERT_EQ(last->next, nullptr);
    last->next = callersNode(0, "cn=caller's");

    EXPECT_EQ(cfg_count_entries(handle.get(), answer.result.get()), 400);
    EXPECT_EQ(listed(taken).substr(0, 22), "dn: cn=entry 351, o=x\n");
    answer.result.reset();
    EXPECT_EQ(watch.chunks(), expectedChunks(1)) << "the one taken out is still in use";
    EXPECT_EQ(listed(taken).substr(0, 22), "dn: cn=entry 351, o=x\n");
    cfg_msgfree(taken);
    EXPECT_EQ(watch.chunks(), 0U);
}

TEST_F(ResultNodes, ASearchWithoutMemoryForAChunkIs90AndLeavesNothing)
{
    const Handle handle = bound(manyEntries(400));
    const MappingWatch watch;
    mappingFails = true;
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    mappingFails = false;
    EXPECT_EQ(answer.code, piecewise ? 0 : 90);
    EXPECT_EQ(answer.result == nullptr, !piecewise);
    EXPECT_EQ(cfg_get_errno(handle.get()), piecewise ? 0 : 90);
    EXPECT_EQ(cfg_dump_exception(handle.get()), nullptr);
    EXPECT_EQ(watch.chunks(), 0U);
    const Found again = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(again.code, 0);
    EXPECT_EQ(cfg_count_entries(handle.get(), again.result.get()), 400);
}

TEST_F(ResultNodes, ASearchThatFailsHalfWayGivesItsChunksBack)
{
    const Handle handle = bound(manyEntries(400) + "dn: cn=\nobjectclass: top\n");
    const MappingWatch watch;
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 34);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(watch.chunks(), 0U);
}
