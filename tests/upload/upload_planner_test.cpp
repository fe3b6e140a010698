#include "synckit/upload/upload_planner.h"

#include <gtest/gtest.h>

#include "synckit/upload/ignore_list.h"
#include "synckit/upload/path_rules.h"

namespace vorlinden {
namespace {

const UUID ours = *UUID::parse("11111111-1111-4111-8111-111111111111");
const UUID other = *UUID::parse("22222222-2222-4222-8222-222222222222");
const auto inOurs = SyncItemIdentifier::brain(ours);
const auto inFolder = SyncItemIdentifier::node(ours, "folder");
const auto atRoot = SyncItemIdentifier::root();

std::string repeated(std::size_t times, std::string_view piece) {
    std::string text;
    text.reserve(times * piece.size());
    while (times-- > 0)
        text += piece;
    return text;
}

bool isText(std::string bytes) {
    const auto content = ContentClassifier::classify(Data(bytes));
    if (const auto* text = std::get_if<ContentClassification::Text>(&content.value)) {
        EXPECT_EQ(text->text, bytes);
        return true;
    }
    EXPECT_EQ(std::get<ContentClassification::Blob>(content.value).data.view(), bytes);
    return false;
}

TEST(ContentClassifier, TakesCleanTextAndNothingElse) {
    EXPECT_TRUE(isText(""));
    EXPECT_TRUE(isText("plain\r\n\ttext"));
    EXPECT_TRUE(isText("na\u00efve \U0001F600 \uFEFF in the middle"));

    EXPECT_FALSE(
        isText("\xEF\xBB\xBF"
               "clean but marked"));
    EXPECT_FALSE(isText(std::string("a\0b", 3)));
    EXPECT_FALSE(isText(std::string("last byte\0", 10)));
    EXPECT_FALSE(isText("latin \xE9"));
    EXPECT_FALSE(isText("cut short \xE2\x82"));
    EXPECT_FALSE(isText("overlong \xC0\xAF"));
    EXPECT_FALSE(isText("surrogate \xED\xA0\x80"));
    EXPECT_FALSE(isText("too high \xF4\x90\x80\x80"));
}

TEST(ContentClassifier, MeasuresTextInUTF16Units) {
    constexpr auto limit = ContentClassifier::maxTextLength;
    EXPECT_TRUE(isText(repeated(limit, "a")));
    EXPECT_FALSE(isText(repeated(limit + 1, "a")));
    EXPECT_TRUE(isText(repeated(limit, "\u20AC"))) << "three bytes each";
    EXPECT_FALSE(isText(repeated(limit, "\u20AC") + "a"));
    EXPECT_TRUE(isText(repeated(limit / 2, "\U0001F600"))) << "two units each";
    EXPECT_FALSE(isText(repeated(limit / 2 + 1, "\U0001F600")));
}

TEST(UploadPlanner, PlansContentBySizeAndForm) {
    EXPECT_EQ(UploadPlanner::planContentUpload(Data(std::string("hello"))),
              (ContentUploadPlan{ContentUploadPlan::Text{"hello"}}));

    const Data bytes(std::string("abc\0", 4));
    const auto plan = UploadPlanner::planContentUpload(bytes);
    const auto& blob = std::get<ContentUploadPlan::Blob>(plan.value);
    EXPECT_EQ(blob.sha256, "dc1114cd074914bd872cc1f9a23ec910ea2203bc79779ab2e17da25782a624fc");
    EXPECT_EQ(blob.size, 4);
    EXPECT_EQ(blob.data.data(), bytes.data()) << "the plan shares the file's memory";

    const auto limit = static_cast<std::size_t>(UploadPlanner::maxUploadBytes);
    const Data tooLarge(std::string(limit + 1, 'x'));
    EXPECT_EQ(UploadPlanner::planContentUpload(tooLarge),
              (ContentUploadPlan{ContentUploadPlan::TooLarge{104'857'601}}));
    const Data largest(nullptr, tooLarge.data(), limit);
    EXPECT_EQ(std::get<ContentUploadPlan::Blob>(UploadPlanner::planContentUpload(largest).value).size,
              104'857'600);
}

CreatePlan rejectedCreate(UploadPlanError error) {
    return {CreatePlan::Rejected{std::move(error)}};
}

TEST(UploadPlanner, PlansCreates) {
    struct Case {
        SyncItemIdentifier parent;
        std::optional<std::string> parentPath;
        std::string name;
        bool isDirectory;
        std::optional<UUID> inbox;
        CreatePlan plan;
    };
    using Error = UploadPlanError;
    const std::vector<Case> cases{
        {inOurs, "ignored", "a.md", false, {}, {CreatePlan::Upload{ours, "a.md"}}},
        {inOurs, {}, "new", true, {}, {CreatePlan::LocalDirectoryOnly{ours, "new"}}},
        {inFolder, "x/y", "a.md", false, other, {CreatePlan::Upload{ours, "x/y/a.md"}}},
        {inFolder, "", "a.md", false, {}, {CreatePlan::Upload{ours, "a.md"}}},
        {inFolder, {}, ".DS_Store", false, {}, rejectedCreate(Error::invalidPath(".DS_Store"))},
        {atRoot, "ignored", "a.md", false, other, {CreatePlan::Upload{other, "a.md"}}},
        {atRoot, {}, ".DS_Store", false, {}, rejectedCreate(Error::noInboxBrain())},
        {inFolder, "x", "a/b", false, {}, rejectedCreate(Error::invalidPath("x/a/b"))},
        {inFolder, "x", "a/.DS_Store", false, {}, rejectedCreate(Error::invalidPath("x/a/.DS_Store"))},
        {inFolder,
         "bad\\place",
         ".DS_Store",
         true,
         {},
         {CreatePlan::LocalOnly{ours, "bad\\place/.DS_Store"}}},
        {inOurs, {}, ".gitkeep", false, {}, {CreatePlan::LocalOnly{ours, ".gitkeep"}}},
        {inFolder, "bad\\place", "a", false, {}, rejectedCreate(Error::invalidPath("bad\\place/a"))},
        {inOurs, {}, "..", false, {}, rejectedCreate(Error::invalidPath(".."))},
        {inOurs, {}, "", true, {}, rejectedCreate(Error::invalidPath(""))},
    };
    for (const auto& it : cases)
        EXPECT_EQ(UploadPlanner::planCreate(it.parent, it.parentPath, it.name, it.isDirectory, it.inbox),
                  it.plan)
            << it.name;
}

NodeRecord recordAt(std::string path, bool localOnly = false) {
    NodeRecord record;
    record.brainId = ours;
    record.path = std::move(path);
    record.localOnly = localOnly;
    return record;
}

MovePlan moveTo(std::string from, std::string to) {
    return {MovePlan::Move{ours, std::move(from), std::move(to)}};
}

MovePlan rejectedMove(UploadPlanError error) {
    return {MovePlan::Rejected{std::move(error)}};
}

TEST(UploadPlanner, PlansRenames) {
    using Error = UploadPlanError;
    const auto rename = [](const std::string& path, const std::string& name, bool localOnly = false) {
        return UploadPlanner::planRename(recordAt(path, localOnly), name);
    };
    EXPECT_EQ(rename("a", "ab"), moveTo("a", "ab"));
    EXPECT_EQ(rename("x/y/a.md", "b.md"), moveTo("x/y/a.md", "x/y/b.md"));
    EXPECT_EQ(rename("x/b\\ad", "b\\ad"), (MovePlan{MovePlan::NoChange{}}));
    EXPECT_EQ(rename("x/a", "b/c"), rejectedMove(Error::invalidPath("x/b/c")));
    EXPECT_EQ(rename("x/a", ".."), rejectedMove(Error::invalidPath("x/..")));
    EXPECT_EQ(rename("x/a", "a/b"), rejectedMove(Error::invalidPath("x/a/b"))) << "not a move into itself";
    EXPECT_EQ(rename("x/a", ".DS_Store"), rejectedMove(Error::junkDestination(".DS_Store")));
    EXPECT_EQ(rename("x/a", ".DS_Store", true), (MovePlan{MovePlan::LocalOnly{ours, "x/a", "x/.DS_Store"}}));
    EXPECT_EQ(rename(".DS_Store", "a.md", true), (MovePlan{MovePlan::LocalOnly{ours, ".DS_Store", "a.md"}}));
}

TEST(UploadPlanner, PlansMovesToAnotherParent) {
    using Error = UploadPlanError;
    const auto reparent = [](const SyncItemIdentifier& parent, std::optional<std::string> parentPath,
                             std::optional<UUID> inbox = {}) {
        return UploadPlanner::planReparent(recordAt("x/a"), parent, parentPath, inbox);
    };
    EXPECT_EQ(reparent(inOurs, "ignored"), moveTo("x/a", "a"));
    EXPECT_EQ(reparent(inFolder, "y/z"), moveTo("x/a", "y/z/a"));
    EXPECT_EQ(reparent(inFolder, "x"), (MovePlan{MovePlan::NoChange{}}));
    EXPECT_EQ(reparent(inFolder, "x/a/b"), rejectedMove(Error::moveIntoSelf()));
    EXPECT_EQ(reparent(inFolder, {}), rejectedMove(Error::invalidPath("a")));
    EXPECT_EQ(reparent(atRoot, {}), rejectedMove(Error::noInboxBrain()));
    EXPECT_EQ(reparent(atRoot, {}, ours), moveTo("x/a", "a"));
    EXPECT_EQ(reparent(atRoot, {}, other), (MovePlan{MovePlan::CrossBrainUnsupported{}}));

    const auto both = [](const char* name, const SyncItemIdentifier& parent, const char* parentPath) {
        return UploadPlanner::planMove(recordAt("x/a"), name, parent, parentPath, std::nullopt);
    };
    EXPECT_EQ(both("b", inFolder, "y"), moveTo("x/a", "y/b"));
    EXPECT_EQ(both("..", SyncItemIdentifier::node(other, "n"), "y"),
              (MovePlan{MovePlan::CrossBrainUnsupported{}}))
        << "the brain is looked at first";
}

TEST(UploadPlanner, FindsTheInboxBrain) {
    const auto brain = [](char digit, std::string name, std::string slug) {
        return BrainRecord{*UUID::parse("00000000-0000-4000-8000-00000000000" + std::string(1, digit)), slug,
                           name, std::nullopt};
    };
    const auto alpha = brain('3', "alpha", "z");
    const auto beta = brain('1', "Beta", "b");
    const auto inbox = brain('9', "Zulu", "InBox");
    const auto missing = brain('7', "", "").brainId;
    const auto resolve = [](const std::vector<BrainRecord>& brains, std::optional<UUID> preferred = {}) {
        return UploadPlanner::resolveInboxBrain(brains, preferred);
    };
    EXPECT_EQ(resolve({beta, inbox, alpha}, beta.brainId), beta.brainId);
    EXPECT_EQ(resolve({beta, inbox, alpha}, missing), inbox.brainId);
    EXPECT_EQ(resolve({beta, alpha}, missing), alpha.brainId) << "by name, whatever its case";
    EXPECT_EQ(resolve({}, missing), std::nullopt);

    const auto second = brain('4', "ALPHA", "a");
    EXPECT_EQ(resolve({alpha, second}), second.brainId) << "then by slug";
    const auto third = brain('2', "Alpha", "a");
    EXPECT_EQ(resolve({second, third}), third.brainId) << "then by id";
    // Composed and decomposed, a name sorts behind one that ends earlier.
    EXPECT_EQ(resolve({brain('5', "\u00e9b", "s"), brain('6', "e\u0301a", "s")}), brain('6', "", "").brainId);
}

TEST(UploadPlanner, NamesNewNodesWithoutTheirExtension) {
    const std::vector<std::pair<std::string, std::string>> titles{{"a/report.final.md", "report.final"},
                                                                  {".bashrc", ".bashrc"},
                                                                  {"x/.profile.bak", ".profile"},
                                                                  {"memo.", "memo"},
                                                                  {"x.y/README", "README"},
                                                                  {"folder/", ""},
                                                                  {"..", "."}};
    for (const auto& [path, title] : titles)
        EXPECT_EQ(UploadPlanner::defaultTitle(path), title) << path;
}

TEST(UploadPlanError, SaysWhatIsWrong) {
    using Error = UploadPlanError;
    EXPECT_EQ(Error::invalidPath("a//b").errorDescription(),
              "\"a//b\" is not a valid name or path for Vorlinden.");
    EXPECT_EQ(Error::junkDestination(".DS_Store").errorDescription(),
              "\".DS_Store\" is a name Vorlinden does not sync.");
    EXPECT_EQ(Error::tooLarge(104'857'601).errorDescription(),
              "This file is too large to upload (104857601 bytes). The limit is 104857600 bytes.");
    EXPECT_EQ(
        Error::noInboxBrain().errorDescription(),
        "There is no brain to put this item in. Choose an inbox brain or create the item inside a brain.");
    EXPECT_EQ(Error::moveIntoSelf().errorDescription(), "A folder can't be moved into itself.");
    EXPECT_NE(Error::tooLarge(1), Error::tooLarge(2));
}

TEST(IgnoreList, KnowsJunkByItsWholeLastName) {
    for (const auto* name : {".DS_Store", ".localized", "Icon\r", ".gitkeep", "a/b/.DS_Store", "/.gitkeep"})
        EXPECT_TRUE(IgnoreList::isJunk(name)) << name;
    for (const auto* name : {"", "Icon", ".ds_store", "._a", ".DS_Store/", ".DS_Store/a", "x.DS_Store", "/"})
        EXPECT_FALSE(IgnoreList::isJunk(name)) << name;
}

TEST(PathRules, RefusesWhatTheServerWould) {
    for (const auto* path : {"a", "a b/c", ".../x", ".hidden", "a\tb\n", "..a/a.."})
        EXPECT_TRUE(PathRules::isNormalizedWritePath(path)) << path;
    for (const auto* path : {"", "/", "/a", "a/", "a//b", ".", "..", "a/./b", "a/..", "a\\b", "caf\xE9"})
        EXPECT_FALSE(PathRules::isNormalizedWritePath(path)) << path;
    EXPECT_FALSE(PathRules::isNormalizedWritePath(std::string_view("a\0b", 3)));
}

TEST(PathRules, FindsNamesThatAFoldingFileSystemTakesForOne) {
    EXPECT_TRUE(PathRules::conflictsCaseInsensitively("Notes/A.md", "notes/a.MD"));
    EXPECT_TRUE(PathRules::conflictsCaseInsensitively("caf\u00e9", "cafe\u0301")) << "composition alone";
    EXPECT_TRUE(PathRules::conflictsCaseInsensitively("Stra\u00dfe", "STRASSE"));
    EXPECT_FALSE(PathRules::conflictsCaseInsensitively("a", "a")) << "not with itself";
    EXPECT_FALSE(PathRules::conflictsCaseInsensitively("a", "b"));
}

}  // namespace
}  // namespace vorlinden
