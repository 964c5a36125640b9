// Runs of comment lines.
#include "LDIF_Comment.h"

#include <utility>

#include <gtest/gtest.h>

#include "support/ldif.h"

using veltor::test::commentOf;
using veltor::test::lineOf;

TEST(LdifComment, AnEmptyOneHasNoText)
{
    EXPECT_EQ(LDIF_Comment().str(), "");
    EXPECT_TRUE(LDIF_Comment().lines.empty());
}

TEST(LdifComment, EveryLineIsFollowedByALineFeed)
{
    EXPECT_EQ(commentOf({"# one"}).str(), "# one\n");
    EXPECT_EQ(commentOf({"# one", "", "#two"}).str(), "# one\n\n#two\n");
}

TEST(LdifComment, ALineIsPrintedAsTheReaderPrintsIt)
{
    LDIF_Comment comment = commentOf({"# one"});
    comment.lines.push_back(lineOf(LDIF_Line::attribute, "cn", "a"));
    EXPECT_EQ(comment.str(), "# one\ncn: a\n");
}

TEST(LdifComment, AddingAppendsCopiesInOrder)
{
    LDIF_Comment comment = commentOf({"# one"});
    LDIF_Comment other = commentOf({"# two", "# three"});
    comment += other;
    EXPECT_EQ(comment.str(), "# one\n# two\n# three\n");
    EXPECT_EQ(other.str(), "# two\n# three\n") << "the other keeps its lines";

    other.lines.front().value = "# changed";
    EXPECT_EQ(comment.str(), "# one\n# two\n# three\n") << "the copies are its own";
}

TEST(LdifComment, AddingGivesTheCommentItself)
{
    LDIF_Comment comment = commentOf({"# one"});
    LDIF_Comment& result = comment += commentOf({"# two"});
    EXPECT_EQ(&result, &comment);
}

TEST(LdifComment, AddingAnEmptyOneChangesNothing)
{
    LDIF_Comment comment = commentOf({"# one"});
    comment += LDIF_Comment();
    EXPECT_EQ(comment.str(), "# one\n");

    LDIF_Comment empty;
    empty += LDIF_Comment();
    EXPECT_EQ(empty.str(), "");
}

TEST(LdifComment, AddingToItselfDoublesTheLines)
{
    LDIF_Comment comment = commentOf({"# one", "# two"});
    const LDIF_Comment& same = comment;
    comment += same;
    EXPECT_EQ(comment.str(), "# one\n# two\n# one\n# two\n");
}

TEST(LdifComment, AbsorbingAppendsWhatAddingWould)
{
    LDIF_Comment comment = commentOf({"# one"});
    comment.absorb(commentOf({"# two", ""}));
    EXPECT_EQ(comment.str(), "# one\n# two\n\n");

    LDIF_Comment empty;
    LDIF_Comment source = commentOf({"# three"});
    empty.absorb(std::move(source));
    EXPECT_EQ(empty.str(), "# three\n");
    EXPECT_TRUE(source.lines.empty()) << "the lines are given up";
}

TEST(LdifComment, AppendingItsTextKeepsWhatTheTextHolds)
{
    std::string text = "before\n";
    commentOf({"# one"}).appendTo(text);
    EXPECT_EQ(text, "before\n# one\n");
}

TEST(LdifComment, ADerivedTypePrintsItself)
{
    struct Loud : LDIF_Comment
    {
        std::string str() const override { return "LOUD"; }
    };
    const Loud loud;
    const LDIF_Comment& comment = loud;
    EXPECT_EQ(comment.str(), "LOUD");
}
