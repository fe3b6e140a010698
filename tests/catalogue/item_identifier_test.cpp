#include "synckit/catalogue/item_identifier.h"

#include <unordered_set>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "platform/json.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

const std::string upper = "6BA7B810-9DAD-11D1-80B4-00C04FD430C8";
const std::string lower = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const UUID uuid = *UUID::parse(upper);

TEST(SyncItemIdentifier, ParsesItsThreeFormsAndWritesUpperCase) {
    const std::tuple<std::string, SyncItemIdentifier, std::string> cases[] = {
        {"root", SyncItemIdentifier::root(), "root"},
        {"brain:" + lower, SyncItemIdentifier::brain(uuid), "brain:" + upper},
        {"node:" + lower + ":n", SyncItemIdentifier::node(uuid, "n"), "node:" + upper + ":n"},
        {"node:" + upper + ":dir:a:b/c", SyncItemIdentifier::node(uuid, "dir:a:b/c"),
         "node:" + upper + ":dir:a:b/c"},
        {"node:" + upper + "::", SyncItemIdentifier::node(uuid, ":"), "node:" + upper + "::"},
    };
    for (const auto& [raw, identifier, written] : cases) {
        const auto parsed = SyncItemIdentifier::fromRawValue(raw);
        ASSERT_EQ(parsed, identifier) << raw;
        EXPECT_EQ(parsed->rawValue(), written);
    }
    EXPECT_EQ(SyncItemIdentifier::root().brainId(), std::nullopt);
    EXPECT_EQ(SyncItemIdentifier::brain(uuid).brainId(), uuid);
    EXPECT_EQ(SyncItemIdentifier::node(uuid, "n").brainId(), uuid);
}

TEST(SyncItemIdentifier, RefusesEverythingElse) {
    const std::vector<std::string> raws = {"",
                                           "Root",
                                           "root ",
                                           "brain:",
                                           "brain:nonsense",
                                           "brain:" + upper + "x",
                                           "BRAIN:" + upper,
                                           "node:",
                                           "node:" + upper.substr(1),
                                           "node:" + upper,
                                           "node:" + upper + ":",
                                           "node:" + upper + "-n",
                                           "node:" + std::string(36, 'x') + ":n",
                                           upper};
    for (const auto& raw : raws)
        EXPECT_EQ(SyncItemIdentifier::fromRawValue(raw), std::nullopt) << raw;
}

TEST(SyncItemIdentifier, IsAJSONStringOfItsRawValue) {
    const auto identifier = SyncItemIdentifier::node(uuid, "dir:a \"b\"/é");
    const auto json = toJSON(identifier);
    EXPECT_EQ(json.text, "\"node:" + upper + ":dir:a \\\"b\\\"/é\"");
    const platform::JSONDocument document(json.text);
    EXPECT_EQ(SyncItemIdentifier::fromJSON(document.root()), identifier);
    const platform::JSONDocument broken("\"brain:x\"");
    EXPECT_THROW(SyncItemIdentifier::fromJSON(broken.root()), platform::JSONError);
}

RC_GTEST_PROP(SyncItemIdentifierProperty, RoundTripsAndHashesByValue,
              (std::array<std::uint8_t, 16> bytes, std::string nodeId)) {
    RC_PRE(!nodeId.empty());
    const UUID id{bytes};
    const auto node = SyncItemIdentifier::node(id, nodeId);
    const auto brain = SyncItemIdentifier::brain(id);
    RC_ASSERT(SyncItemIdentifier::fromRawValue(node.rawValue()) == node);
    RC_ASSERT(SyncItemIdentifier::fromRawValue(brain.rawValue()) == brain);
    const std::unordered_set<SyncItemIdentifier> both = {node, brain, node};
    RC_ASSERT(both.size() == 2u);
}

}  // namespace
}  // namespace vorlinden::tests
