#include "synckit/upload/content_uploader.h"

#include <gtest/gtest.h>

#include "tests/upload/upload_world.h"

namespace vorlinden::tests {
namespace {

class ContentUploaderTest : public testing::Test, protected UploadWorld {
 protected:
    UploadedContent send(ContentUploadPlan plan) {
        return machine.loop.run(
            [=, this] { return ContentUploader::send(plan, brain, "a/f", "device", api, tokenManager); });
    }

    const WriteResult result{{"id:a/f", "a/f"}, "c9"};
    const ContentUploadPlan blob{ContentUploadPlan::Blob{Data(std::string("\0bytes", 6)), "planned", 6}};
};

TEST_F(ContentUploaderTest, TextGoesUpInOneCallAndABlobBeforeTheFileThatNamesIt) {
    EXPECT_EQ(send({ContentUploadPlan::Text{""}}), (UploadedContent{result, NodeKind::text, {}, {}}));
    EXPECT_EQ(std::exchange(calls, {}), Lines{"PUT a/f = "});
    EXPECT_EQ(send(blob), (UploadedContent{result, NodeKind::blob, "the-server's", 6}));
    EXPECT_EQ(calls, (Lines{"BLOB", "PUT a/f = blob the-server's"}));
}

TEST_F(ContentUploaderTest, RejectedTokenRepeatsOnlyTheCallItHit) {
    fates = {"served", "401", "served"};
    EXPECT_EQ(send(blob).result, result);
    EXPECT_EQ(calls, (Lines{"BLOB", "PUT a/f = blob the-server's", "PUT a/f = blob the-server's"}));
    EXPECT_EQ(tokens->load(), (TokenSet{"new", "refresh2"}));
}

TEST_F(ContentUploaderTest, WhatIsRefusedOrTooLargeEndsAtOnce) {
    fates = {"409"};
    EXPECT_THROW(send(blob), SyncAPIError);
    EXPECT_EQ(calls, Lines{"BLOB"}) << "no file is made for a blob that isn't there";
    EXPECT_THROW(send({ContentUploadPlan::TooLarge{104'857'601}}), UploadPlanError);
    EXPECT_EQ(calls, Lines{"BLOB"});
}

}  // namespace
}  // namespace vorlinden::tests
