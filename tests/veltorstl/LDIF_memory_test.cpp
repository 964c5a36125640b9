// Names and values when memory is short: each request of an operation fails once, one after the other, and what comes
// out has to be the record of the layer that it failed in.
//
// Linked with support/failing_allocator.cpp and its linker options.
#include "support/failing_allocator.h"
#include "support/failure_of.h"

#include "LDIF_AttrType.h"
#include "LDIF_DN.h"
#include "LDIF_Exception.h"
#include "LDIF_Value.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

using veltor::test::FailingAllocator;
using veltor::test::recordsOf;
using veltor::test::Request;
using veltor::test::Shortage;

namespace {

constexpr std::size_t limit = 1000;

/// What an operation did while one of its requests failed.
struct Outcome
{
    bool requestFailed = false; ///< false: the operation makes fewer requests
    Request request = Request::operatorNew;
    bool foreign = false; ///< something else than an LDIF_Exception came out
    std::optional<LDIF_Exception> failure;
};

template <class Work>
Outcome withFailing(std::size_t nth, Work&& work)
{
    Outcome outcome;
    FailingAllocator allocator(Shortage::once, nth);
    try {
        work();
    } catch (const LDIF_Exception& failure) {
        allocator.stop();
        outcome.failure = failure;
    } catch (...) {
        outcome.foreign = true;
    }
    allocator.stop();
    outcome.requestFailed = allocator.failed();
    outcome.request = allocator.firstFailure();
    return outcome;
}

bool startsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

} // namespace

TEST(LdifDnMemory, EveryLayerReportsItsOwnFailure)
{
    // Every part is longer than what a string holds without an allocation.
    const cisString text = "a-type-of-more-than-sixteen-letters=a value of more than sixteen letters"
                           "+cn=\"a quoted value of more than sixteen letters\""
                           ",ou=#4142434445464748494A4B4C4D4E4F505152535455565758,cn=another value\\2C even longer"
                           ",o=the organisation of them all";
    constexpr std::string_view inValue = "System error parsing rdn value: ";
    constexpr std::string_view inRdn = "System error parsing rdn: ";
    constexpr std::string_view inDn = "System error parsing dn";
    std::set<std::string> kinds;
    for (std::size_t nth = 1;; ++nth) {
        ASSERT_LT(nth, limit);
        SCOPED_TRACE(nth);
        LDIF_DN dn;
        const Outcome outcome = withFailing(nth, [&] { dn = text; });
        ASSERT_FALSE(outcome.foreign);
        if (!outcome.failure.has_value()) {
            // A sort may do with less memory; nothing else may.
            EXPECT_EQ(dn.size(), 4U);
            if (!outcome.requestFailed) {
                break;
            }
            continue;
        }
        const LDIF_Exception& failure = *outcome.failure;
        EXPECT_EQ(failure.ldapErr, 80);
        EXPECT_EQ(failure.extErr, 1000);
        EXPECT_EQ(failure.value, text);
        EXPECT_LT(dn.size(), 4U);
        // The message ends in the input of the layer, which is the text from some place on.
        if (startsWith(failure.msg, inValue)) {
            kinds.insert("value");
            EXPECT_EQ(recordsOf(failure), 4);
            const auto input = std::string_view(failure.msg).substr(inValue.size());
            EXPECT_TRUE(endsWith(text, input) && text[text.size() - input.size() - 1] == '=') << failure.msg;
        } else if (startsWith(failure.msg, inRdn)) {
            const bool isPair = recordsOf(failure) == 3;
            kinds.insert(isPair ? "pair" : "RDN");
            EXPECT_TRUE(isPair || recordsOf(failure) == 2) << recordsOf(failure);
            EXPECT_TRUE(endsWith(text, std::string_view(failure.msg).substr(inRdn.size()))) << failure.msg;
        } else {
            kinds.insert("DN");
            EXPECT_EQ(failure.msg, inDn);
            EXPECT_EQ(recordsOf(failure), 1);
        }
    }
    EXPECT_EQ(kinds, (std::set<std::string>{"value", "pair", "RDN", "DN"}));
}

TEST(LdifDnMemory, FailureWhileAComplaintIsBuiltIsReportedToo)
{
    const cisString text = "cn=a value of more than sixteen letters\\zz, o=x";
    for (std::size_t nth = 1;; ++nth) {
        ASSERT_LT(nth, limit);
        SCOPED_TRACE(nth);
        LDIF_DN dn;
        const Outcome outcome = withFailing(nth, [&] { dn = text; });
        EXPECT_TRUE(dn.empty());
        if (!outcome.requestFailed) {
            ASSERT_TRUE(outcome.failure.has_value());
            EXPECT_EQ(outcome.failure->ldapErr, 34);
            EXPECT_EQ(outcome.failure->msg, "Invalid escape sequence: \\zz");
            EXPECT_GT(nth, 1U);
            break;
        }
        EXPECT_TRUE(outcome.foreign || outcome.failure.has_value());
        if (outcome.failure.has_value()) {
            EXPECT_EQ(outcome.failure->ldapErr, 80);
            EXPECT_EQ(outcome.failure->extErr, 1000);
        }
    }
}

TEST(LdifValueMemory, CopyWithoutMemoryForTheBinaryFormIsNoMemory)
{
    // A number needs no block: this form is longer than what a value holds in itself.
    _AttrType type = *getAttrType("cn");
    type.fromBin = [](LDIF_Value& value, const void* data, int length) {
        value.setBinary(data, length);
        value.setText("text of a block");
    };
    const LDIF_Value block(&type, "a form of many bytes", 20);
    const auto blockFailures = [](auto&& work) {
        int count = 0;
        for (std::size_t nth = 1; nth < limit; ++nth) {
            const Outcome outcome = withFailing(nth, work);
            if (!outcome.requestFailed) {
                return count;
            }
            if (outcome.request == Request::malloc) {
                ++count;
                EXPECT_TRUE(outcome.failure.has_value());
                if (outcome.failure.has_value()) {
                    EXPECT_EQ(outcome.failure->ldapErr, 90);
                    EXPECT_EQ(outcome.failure->extErr, 1000);
                    EXPECT_EQ(outcome.failure->msg, "Allocation failed");
                }
            }
        }
        return -1;
    };
    EXPECT_EQ(blockFailures([&] { const LDIF_Value copy(block); }), 1);
    LDIF_Value target(getAttrType("cn"), "text");
    EXPECT_EQ(blockFailures([&] { target = block; }), 1);
    EXPECT_EQ(target.str(), "text of a block");
    EXPECT_EQ(target.binaryLength, 20);
}

TEST(LdifValueMemory, NumbersNeedNone)
{
    const LDIF_Value port(getAttrType("zor-slapdPort"), "389");
    const LDIF_Value mask(getAttrType("zor-slapdSslCipherSpecs"), "12288");
    for (const LDIF_Value* value : {&port, &mask}) {
        const Outcome outcome = withFailing(1, [&] {
            LDIF_Value copy(*value);
            copy = LDIF_Value(copy);
            copy = port;
        });
        EXPECT_FALSE(outcome.requestFailed);
        EXPECT_FALSE(outcome.failure.has_value());
    }
}

TEST(LdifValuesMemory, FailureOfEachListOperationIsItsOwn)
{
    const std::string name = "an attribute name of more than sixteen letters";
    LDIF_Values source(name);
    source += "the first value of more than sixteen letters";
    source += "the second value of more than sixteen letters";
    const LDIF_Value value = *source.begin();
    const auto messagesOf = [&](auto&& operation) {
        std::set<std::string> messages;
        for (std::size_t nth = 1; nth < limit; ++nth) {
            LDIF_Values list(name);
            list += "a value of its own, and a long one too";
            const Outcome outcome = withFailing(nth, [&] { operation(list); });
            EXPECT_FALSE(outcome.foreign) << "request " << nth;
            if (!outcome.requestFailed) {
                return messages;
            }
            if (outcome.failure) {
                EXPECT_EQ(outcome.failure->ldapErr, 80);
                EXPECT_EQ(outcome.failure->extErr, 1000);
                messages.insert(outcome.failure->msg);
            }
        }
        ADD_FAILURE() << "never succeeded";
        return messages;
    };
    const std::string added = "System error in LDIF_Values::operator +=";
    const auto assigning = messagesOf([&](LDIF_Values& list) {
        list.name = "x";
        list.name.shrink_to_fit();
        list = source;
    });
    EXPECT_EQ(assigning.count("System error in LDIF_Values::operator ="), 1U);
    EXPECT_EQ(assigning.count(added), 1U);
    EXPECT_EQ(messagesOf([&](LDIF_Values& list) { list += value; }).count(added), 1U);
    EXPECT_EQ(messagesOf([&](LDIF_Values& list) { list += source; }).count(added), 1U);
    const std::string text = "the text of a value that is not there";
    const auto removing = messagesOf([&](LDIF_Values& list) { list -= text; });
    EXPECT_EQ(removing.count("System error in LDIF_Values::operator -="), 1U);
}

TEST(LdifValuesMemory, ManyValuesAreTakenInOrNotAtAll)
{
    // Around where a list grows and gets its index: without memory for the index it is walked, and nobody can tell.
    const auto textOf = [](int key) { return "a value of more than sixteen letters, " + std::to_string(key); };
    for (const int count : {1, 2, 15, 16, 17, 31, 32, 33, 64}) {
        SCOPED_TRACE(count);
        for (std::size_t nth = 1;; ++nth) {
            ASSERT_LT(nth, limit);
            LDIF_Values list("cn");
            for (int key = 0; key < count; ++key) {
                list += textOf(key);
            }
            const std::string added = textOf(count);
            const std::string present = textOf(count - 1);
            bool wasAdded = false;
            const Outcome outcome = withFailing(nth, [&] {
                list += added;
                wasAdded = true;
                list += present;
            });
            EXPECT_EQ(list.size(), static_cast<std::size_t>(count + (wasAdded ? 1 : 0)));
            for (int key = 0; key < count; ++key) {
                ASSERT_EQ(std::as_const(list).find(textOf(key)) - std::as_const(list).begin(), key);
            }
            if (!outcome.requestFailed) {
                EXPECT_TRUE(wasAdded);
                break;
            }
        }
    }
}

TEST(LdifValuesMemory, AValueThatCannotBeTakenOverIsNamed)
{
    const std::string first = "the first value of more than sixteen letters";
    const std::string second = "the second value of more than sixteen letters";
    bool failedOnce = false;
    for (std::size_t nth = 1;; ++nth) {
        ASSERT_LT(nth, limit);
        LDIF_Values list("cn");
        list += first;
        LDIF_Values other("cn");
        other += second;
        const Outcome outcome = withFailing(nth, [&] { list.absorb(std::move(other)); });
        if (!outcome.requestFailed) {
            break;
        }
        if (outcome.failure) {
            failedOnce = true;
            EXPECT_EQ(outcome.failure->value, second);
            EXPECT_EQ(list.size(), 1U);
        }
    }
    EXPECT_TRUE(failedOnce);
}
