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
    EXPECT_TRUE(isText("na\u00efve \U0001F600 \uFEFF in the middle\r\n"));
    for (const std::string& blob :
         {std::string("\xEF\xBB\xBF") + "clean but marked", std::string("a\0b", 3),
          std::string("last byte\0", 10), std::string("latin \xE9"), std::string("cut short \xE2\x82")})
        EXPECT_FALSE(isText(blob)) << testing::PrintToString(blob);
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

// "upload BRAIN PATH", "rejected: WORDS", ... with "ours" and "other" for the brains.
std::string line(const UUID& brain) {
    return brain == ours ? " ours " : " other ";
}
std::string line(const CreatePlan& plan) {
    if (const auto* it = std::get_if<CreatePlan::Upload>(&plan.value))
        return "upload" + line(it->brainId) + it->path;
    if (const auto* it = std::get_if<CreatePlan::LocalOnly>(&plan.value))
        return "local" + line(it->brainId) + it->path;
    if (const auto* it = std::get_if<CreatePlan::LocalDirectoryOnly>(&plan.value))
        return "folder" + line(it->brainId) + it->path;
    return std::get<CreatePlan::Rejected>(plan.value).error.what();
}
std::string line(const MovePlan& plan) {
    if (const auto* it = std::get_if<MovePlan::Move>(&plan.value))
        return "move" + line(it->brainId) + it->fromPath + " to " + it->toPath;
    if (const auto* it = std::get_if<MovePlan::LocalOnly>(&plan.value))
        return "local" + line(it->brainId) + it->fromPath + " to " + it->toPath;
    if (const auto* it = std::get_if<MovePlan::Rejected>(&plan.value)) return it->error.what();
    return std::holds_alternative<MovePlan::NoChange>(plan.value) ? "no change" : "another brain";
}
std::string invalid(const std::string& path) {
    return "\"" + path + "\" is not a valid name or path for Vorlinden.";
}
const std::string junk = "\".DS_Store\" is a name Vorlinden does not sync.";
const std::string noInbox =
    "There is no brain to put this item in. Choose an inbox brain or create the item inside a brain.";

TEST(UploadPlanner, PlansCreates) {
    using Path = std::optional<std::string>;
    const auto create = [](const SyncItemIdentifier& parent, const Path& parentPath, const std::string& name,
                           bool isDirectory = false, std::optional<UUID> inbox = {}) {
        return line(UploadPlanner::planCreate(parent, parentPath, name, isDirectory, inbox));
    };
    EXPECT_EQ(create(inOurs, "ignored", "a.md"), "upload ours a.md");
    EXPECT_EQ(create(inOurs, {}, "new", true), "folder ours new");
    EXPECT_EQ(create(inFolder, "x/y", "a.md", false, other), "upload ours x/y/a.md");
    EXPECT_EQ(create(inFolder, "", "a.md"), "upload ours a.md");
    EXPECT_EQ(create(inFolder, {}, ".DS_Store"), invalid(".DS_Store"));
    EXPECT_EQ(create(atRoot, "ignored", "a.md", false, other), "upload other a.md");
    EXPECT_EQ(create(atRoot, {}, ".DS_Store"), noInbox);
    EXPECT_EQ(create(inFolder, "x", "a/b"), invalid("x/a/b"));
    EXPECT_EQ(create(inFolder, "x", "a/.DS_Store"), invalid("x/a/.DS_Store"));
    EXPECT_EQ(create(inFolder, "bad\\place", ".DS_Store", true), "local ours bad\\place/.DS_Store");
    EXPECT_EQ(create(inOurs, {}, ".gitkeep"), "local ours .gitkeep");
    EXPECT_EQ(create(inFolder, "bad\\place", "a"), invalid("bad\\place/a"));
    EXPECT_EQ(create(inOurs, {}, ".."), invalid(".."));
    EXPECT_EQ(create(inOurs, {}, "", true), invalid(""));
}

TEST(UploadPlanner, PlansMoves) {
    const auto recordAt = [](std::string path, bool localOnly = false) {
        NodeRecord record;
        record.brainId = ours;
        record.path = std::move(path);
        record.localOnly = localOnly;
        return record;
    };
    const auto rename = [&](const std::string& path, const std::string& name, bool localOnly = false) {
        return line(UploadPlanner::planRename(recordAt(path, localOnly), name));
    };
    EXPECT_EQ(rename("a", "ab"), "move ours a to ab");
    EXPECT_EQ(rename("x/y/a.md", "b.md"), "move ours x/y/a.md to x/y/b.md");
    EXPECT_EQ(rename("x/b\\ad", "b\\ad"), "no change");
    EXPECT_EQ(rename("x/a", "b/c"), invalid("x/b/c"));
    EXPECT_EQ(rename("x/a", ".."), invalid("x/.."));
    EXPECT_EQ(rename("x/a", "a/b"), invalid("x/a/b")) << "not a move into itself";
    EXPECT_EQ(rename("x/a", ".DS_Store"), junk);
    EXPECT_EQ(rename("x/a", ".DS_Store", true), "local ours x/a to x/.DS_Store");
    EXPECT_EQ(rename(".DS_Store", "a.md", true), "local ours .DS_Store to a.md");

    const auto reparent = [&](const SyncItemIdentifier& parent, std::optional<std::string> parentPath,
                              std::optional<UUID> inbox = {}) {
        return line(UploadPlanner::planReparent(recordAt("x/a"), parent, parentPath, inbox));
    };
    EXPECT_EQ(reparent(inOurs, "ignored"), "move ours x/a to a");
    EXPECT_EQ(reparent(inFolder, "y/z"), "move ours x/a to y/z/a");
    EXPECT_EQ(reparent(inFolder, "x"), "no change");
    EXPECT_EQ(reparent(inFolder, "x/a/b"), "A folder can't be moved into itself.");
    EXPECT_EQ(reparent(inFolder, {}), invalid("a"));
    EXPECT_EQ(reparent(atRoot, {}), noInbox);
    EXPECT_EQ(reparent(atRoot, {}, ours), "move ours x/a to a");
    EXPECT_EQ(reparent(atRoot, {}, other), "another brain");

    const auto both = [&](const char* name, const SyncItemIdentifier& parent) {
        return line(UploadPlanner::planMove(recordAt("x/a"), name, parent, "y", std::nullopt));
    };
    EXPECT_EQ(both("b", inFolder), "move ours x/a to y/b");
    EXPECT_EQ(both("..", SyncItemIdentifier::node(other, "n")), "another brain") << "it is looked at first";
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
    for (const auto& [path, title] : {std::pair("a/report.final.md", "report.final"),
                                      {".bashrc", ".bashrc"},
                                      {"x/.profile.bak", ".profile"},
                                      {"memo.", "memo"},
                                      {"x.y/README", "README"},
                                      {"folder/", ""},
                                      {"..", "."}})
        EXPECT_EQ(UploadPlanner::defaultTitle(path), title) << path;
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
