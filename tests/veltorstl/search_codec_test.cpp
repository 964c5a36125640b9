// A search whose password decoder fails, or answers oddly. This program has a codec of its own, which the library
// takes in place of the platform's.
#include "support/api_test.h"
#include "support/framing_codec.h"

#include "LDIF_Exception.h"
#include "handle.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

using namespace veltor::test;

namespace {

/// What the decoder is to do, and what it saw.
struct Codec
{
    std::function<int(char*, char**)> decode;
    std::vector<std::string> decoded; // the texts that came in
    std::vector<char*> given;         // the buffers that went out
};
Codec codec;

/// The text between ">" and "<", in a fresh buffer.
int decodeFrame(char* encodedText, char** text)
{
    *text = unframed(encodedText);
    return 0;
}

class SearchCodec : public ApiTest
{
protected:
    SearchCodec() { codec = {decodeFrame, {}, {}}; }
    ~SearchCodec() override { codec = {}; }
};

constexpr char file[] = "dn: cn=First\n"
                        "objectclass: top\n"
                        "\n"
                        "dn: cn=Configuration\n"
                        "objectclass: top\n"
                        "ZOR-SLAPDADMINPW: >admin<\n"
                        "zor-slapdDbName: >name<\n"
                        "zor-slapdMasterPW: >one<\n"
                        "zor-slapdMasterPW: >two<\n"
                        "\n";

/// Lets the decoder fail with a code for one text.
void failFor(const std::string& text, int code)
{
    codec.decode = [text, code](char* encodedText, char** clear) {
        return text == encodedText ? code : decodeFrame(encodedText, clear);
    };
}

} // namespace

int _slapd_utils_decode_buffer(char* encodedText, char** text)
{
    *text = nullptr;
    codec.decoded.emplace_back(encodedText);
    const int code = codec.decode ? codec.decode(encodedText, text) : 1;
    codec.given.push_back(*text);
    return code;
}

void _slapd_utils_decode_buffer_free(char* text)
{
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

TEST_F(SearchCodec, OnlyPasswordsGoToTheDecoderEachOnce)
{
    // Equal values are told apart while the file is read, which decodes too.
    const Handle handle = unbound(write("dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: >a<\nzor-slapdDbName: >b<\n"
                                        "zor-slapdMasterPW: >c<\nunknown: >d<\n"));
    ASSERT_EQ(cfg_bind_s(handle.get(), nullptr, nullptr, simple), 0);
    codec.decoded.clear();
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(codec.decoded, (std::vector<std::string>{">a<", ">c<"}));
    EXPECT_EQ(listed(answer.result.get()), "dn: cn=x\nobjectclass: top\nunknown: >d<\nzor-slapdAdminPW: a\n"
                                           "zor-slapdDbName: >b<\nzor-slapdMasterPW: c\n");
}

TEST_F(SearchCodec, TheDecodersBufferIsTheNodesText)
{
    const Handle handle = bound("dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: >a<\n");
    codec.given.clear();
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    ASSERT_EQ(codec.given.size(), 1U);
    ASSERT_NE(answer.result, nullptr);
    const cfg_message* const password = answer.result->children->next;
    ASSERT_NE(password, nullptr);
    EXPECT_EQ(password->children->text, codec.given.front());
}

TEST_F(SearchCodec, ANodeMayBeWithoutATextWhenTheDecoderGivesNone)
{
    const Handle handle = bound("dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: >a<\n");
    codec.decode = [](char*, char**) { return 0; };
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    ASSERT_EQ(answer.code, 0);
    const Values values(cfg_get_values(handle.get(), answer.result.get(), "zor-slapdAdminPW"));
    ASSERT_EQ(cfg_count_values(values.get()), 1);
    EXPECT_STREQ(values.get()[0], "");
}

TEST_F(SearchCodec, TheDecoderMayWriteToItsInput)
{
    const Handle handle = bound("dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: >admin<\n");
    codec.decode = [](char* encodedText, char** text) {
        const int code = decodeFrame(encodedText, text);
        std::memset(encodedText, '#', std::strlen(encodedText));
        return code;
    };
    for (int count = 0; count < 2; ++count) {
        EXPECT_EQ(listed(search(handle.get(), nullptr, subtree, nullptr).result.get()),
                  "dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: admin\n");
    }
}

TEST_F(SearchCodec, TheDecoderGetsTheWholeTextWhateverItsLength)
{
    for (const std::size_t length : {2U, 254U, 255U, 256U, 257U, 258U, 10000U}) {
        SCOPED_TRACE(length);
        const std::string clear(length - 2, 'x');
        const Handle handle = bound("dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: >" + clear + "<\n");
        codec.decoded.clear();
        const Found answer = search(handle.get(), nullptr, subtree, nullptr);
        ASSERT_EQ(answer.code, 0);
        EXPECT_EQ(codec.decoded, std::vector<std::string>{">" + clear + "<"});
        EXPECT_EQ(listed(answer.result.get()), "dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: " + clear + "\n");
    }
}

TEST_F(SearchCodec, AnyCodeOfTheDecoderFailsTheWholeSearch)
{
    const Handle handle = bound(file);
    for (const int code : {1, 19, 80, 84, 90, 1234, -1}) {
        SCOPED_TRACE(code);
        failFor(">admin<", code);
        const Found answer = search(handle.get(), nullptr, subtree, nullptr);
        EXPECT_EQ(answer.code, code);
        EXPECT_EQ(answer.result, nullptr) << "the entry found before goes too";
        EXPECT_EQ(cfg_get_errno(handle.get()), code);
        EXPECT_EQ(cfg_get_exterror(handle.get()), code);
        const LDIF_Exception* const kept = static_cast<cfg_handle*>(handle.get())->lastException;
        ASSERT_NE(kept, nullptr);
        EXPECT_EQ(kept->ldapErr, code);
        EXPECT_EQ(kept->extErr, code);
        EXPECT_EQ(kept->msg, "_slapd_utils_decode_buffer();");
        EXPECT_EQ(kept->value, ">admin<");
        EXPECT_EQ(kept->entryDn, "cn=Configuration");
        EXPECT_EQ(kept->attribute, "ZOR-SLAPDADMINPW");
        ASSERT_NE(kept->attrType, nullptr);
        EXPECT_STREQ(kept->attrType->name, "zor-slapdAdminPW");
        EXPECT_STREQ(cfg_get_value(handle.get()), ">admin<");
        EXPECT_STREQ(cfg_get_entry(handle.get()), "cn=Configuration");
        EXPECT_STREQ(cfg_get_attribute(handle.get()), "ZOR-SLAPDADMINPW");
        EXPECT_EQ(cfg_get_minimum(handle.get()), 1);
        EXPECT_EQ(cfg_get_maximum(handle.get()), 46);
        EXPECT_EQ(cfg_get_is_single(handle.get()), 1);
    }
    codec.decode = decodeFrame;
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 0) << "the handle is as usable as before";
}

TEST_F(SearchCodec, ALaterValueIsTheOneNamed)
{
    const Handle handle = bound(file);
    failFor(">two<", 84);
    const Found answer = search(handle.get(), nullptr, subtree, nullptr);
    EXPECT_EQ(answer.code, 84);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(shown(cfg_get_value(handle.get())), ">two<");
    EXPECT_EQ(shown(cfg_get_attribute(handle.get())), "zor-slapdMasterPW");
}

TEST_F(SearchCodec, ALongTextIsNamedWhole)
{
    const std::string stored = ">" + std::string(1000, 'x') + "<";
    const Handle handle = bound("dn: cn=x\nobjectclass: top\nzor-slapdAdminPW: " + stored + "\n");
    codec.decode = [](char* encodedText, char**) {
        encodedText[0] = '\0';
        return 84;
    };
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr).code, 84);
    EXPECT_EQ(shown(cfg_get_value(handle.get())), stored);
}

TEST_F(SearchCodec, APasswordThatIsNotReturnedIsNotDecoded)
{
    const Handle handle = bound(file);
    codec.decode = [](char*, char**) { return 84; };
    char name[] = "objectclass";
    char* names[] = {name, nullptr};
    EXPECT_EQ(search(handle.get(), nullptr, subtree, nullptr, names).code, 0);
    EXPECT_EQ(search(handle.get(), "cn=First", baseScope, nullptr).code, 0);
    EXPECT_EQ(search(handle.get(), nullptr, subtree, "cn=nobody").code, 0);
}

TEST_F(SearchCodec, WithoutAuthenticationNothingIsDecoded)
{
    const Handle handle = bound(file);
    codec.decode = [](char*, char**) { return 84; };
    static_cast<cfg_handle*>(handle.get())->store->setAuthentication("cn=x", nullptr, simple);
    const Found answer = search(handle.get(), "cn=Configuration", baseScope, nullptr);
    EXPECT_EQ(answer.code, 0);
    EXPECT_NE(listed(answer.result.get()).find("ZOR-SLAPDADMINPW: >admin<\n"), std::string::npos);
}

TEST_F(SearchCodec, ADecoderThatFailsWhileTheFilterComparesFailsTheSearchToo)
{
    const Handle handle = bound(file);
    codec.decode = [](char*, char**) { return 53; };
    const Found answer = search(handle.get(), nullptr, subtree, "zor-slapdAdminPW=x");
    EXPECT_EQ(answer.code, 53);
    EXPECT_EQ(answer.result, nullptr);
    EXPECT_EQ(cfg_get_exterror(handle.get()), 53);
    const LDIF_Exception* const kept = static_cast<cfg_handle*>(handle.get())->lastException;
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->msg, "_slapd_utils_decode_buffer( left );");
}
