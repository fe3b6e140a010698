#include "synckit/upload/upload_planner.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "platform/text.h"
#include "synckit/upload/ignore_list.h"
#include "synckit/upload/path_rules.h"

namespace vorlinden {

namespace {

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};

std::string describe(const UploadPlanError::Reason& reason) {
    using Error = UploadPlanError;
    return std::visit(
        Overloaded{
            [](const Error::InvalidPath& it) {
                return "\"" + platform::repairedUTF8(it.path) +
                       "\" is not a valid name or path for Vorlinden.";
            },
            [](const Error::JunkDestination& it) {
                return "\"" + platform::repairedUTF8(it.name) + "\" is a name Vorlinden does not sync.";
            },
            [](const Error::TooLarge& it) {
                return "This file is too large to upload (" + std::to_string(it.size) +
                       " bytes). The limit is " + std::to_string(UploadPlanner::maxUploadBytes) + " bytes.";
            },
            [](const Error::NoInboxBrain&) {
                return std::string(
                    "There is no brain to put this item in. Choose an inbox brain or create the item "
                    "inside a brain.");
            },
            [](const Error::MoveIntoSelf&) { return std::string("A folder can't be moved into itself."); },
        },
        reason);
}

}  // namespace

UploadPlanError::UploadPlanError(Reason why) : Failure(describe(why)), reason(std::move(why)) {}

namespace UploadPlanner {

namespace {

struct Place {
    UUID brainId;
    std::string parentPath;
    std::string pathOf(const std::string& name) const {
        return parentPath.empty() ? name : parentPath + "/" + name;
    }
};

// Where items of `parent` lie, or why nothing can be put there. `name` is what the refusal of an unknown
// parent names.
std::variant<Place, UploadPlanError> placeIn(const SyncItemIdentifier& parent,
                                             const std::optional<std::string>& parentPath,
                                             const std::optional<UUID>& inboxBrainId,
                                             const std::string& name) {
    using Answer = std::variant<Place, UploadPlanError>;
    return std::visit(Overloaded{
                          [](const SyncItemIdentifier::Brain& it) -> Answer {
                              return Place{it.brainId, ""};
                          },
                          [&](const SyncItemIdentifier::Node& it) -> Answer {
                              if (!parentPath) return UploadPlanError::invalidPath(name);
                              return Place{it.brainId, *parentPath};
                          },
                          [&](const SyncItemIdentifier::Root&) -> Answer {
                              if (!inboxBrainId) return UploadPlanError::noInboxBrain();
                              return Place{*inboxBrainId, ""};
                          },
                      },
                      parent.value);
}

CreatePlan planCreateAt(const Place& place, const std::string& filename, bool isDirectory) {
    const auto path = place.pathOf(filename);
    const bool hasSlash = filename.find('/') != std::string::npos;
    if (!hasSlash && IgnoreList::isJunk(filename)) return {CreatePlan::LocalOnly{place.brainId, path}};
    if (hasSlash || !PathRules::isNormalizedWritePath(path))
        return {CreatePlan::Rejected{UploadPlanError::invalidPath(path)}};
    if (isDirectory) return {CreatePlan::LocalDirectoryOnly{place.brainId, path}};
    return {CreatePlan::Upload{place.brainId, path}};
}

MovePlan planMoveTo(const Place& place, const NodeRecord& record, const std::string& name) {
    if (place.brainId != record.brainId) return {MovePlan::CrossBrainUnsupported{}};
    const auto path = place.pathOf(name);
    if (path == record.path) return {MovePlan::NoChange{}};
    if (name.find('/') != std::string::npos || !PathRules::isNormalizedWritePath(path))
        return {MovePlan::Rejected{UploadPlanError::invalidPath(path)}};
    if (!record.localOnly && IgnoreList::isJunk(name))
        return {MovePlan::Rejected{UploadPlanError::junkDestination(name)}};
    if (path.starts_with(record.path + "/")) return {MovePlan::Rejected{UploadPlanError::moveIntoSelf()}};
    if (record.localOnly) return {MovePlan::LocalOnly{place.brainId, record.path, path}};
    return {MovePlan::Move{place.brainId, record.path, path}};
}

}  // namespace

ContentUploadPlan planContentUpload(const Data& data) {
    const auto size = static_cast<std::int64_t>(data.size());
    if (size > maxUploadBytes) return {ContentUploadPlan::TooLarge{size}};
    auto content = ContentClassifier::classify(data);
    return std::visit(
        Overloaded{
            [](ContentClassification::Text& it) -> ContentUploadPlan {
                return {ContentUploadPlan::Text{std::move(it.text)}};
            },
            [size](ContentClassification::Blob& it) -> ContentUploadPlan {
                return {ContentUploadPlan::Blob{it.data, ContentClassifier::blobHash(it.data), size}};
            },
        },
        content.value);
}

CreatePlan planCreate(const SyncItemIdentifier& parent, const std::optional<std::string>& parentPath,
                      const std::string& filename, bool isDirectory,
                      const std::optional<UUID>& inboxBrainId) {
    return std::visit(
        Overloaded{
            [](const UploadPlanError& refusal) -> CreatePlan { return {CreatePlan::Rejected{refusal}}; },
            [&](const Place& place) { return planCreateAt(place, filename, isDirectory); },
        },
        placeIn(parent, parentPath, inboxBrainId, filename));
}

MovePlan planMove(const NodeRecord& record, const std::optional<std::string>& newName,
                  const std::optional<SyncItemIdentifier>& newParent,
                  const std::optional<std::string>& newParentPath, const std::optional<UUID>& inboxBrainId) {
    const auto name = newName.value_or(record.filename());
    if (!newParent) return planMoveTo(Place{record.brainId, record.parentPath()}, record, name);
    return std::visit(
        Overloaded{
            [](const UploadPlanError& refusal) -> MovePlan { return {MovePlan::Rejected{refusal}}; },
            [&](const Place& place) { return planMoveTo(place, record, name); },
        },
        placeIn(*newParent, newParentPath, inboxBrainId, name));
}

MovePlan planRename(const NodeRecord& record, const std::string& newName) {
    return planMove(record, newName, std::nullopt, std::nullopt, std::nullopt);
}

MovePlan planReparent(const NodeRecord& record, const SyncItemIdentifier& newParent,
                      const std::optional<std::string>& newParentPath,
                      const std::optional<UUID>& inboxBrainId) {
    return planMove(record, std::nullopt, newParent, newParentPath, inboxBrainId);
}

std::optional<UUID> resolveInboxBrain(const std::vector<BrainRecord>& brains,
                                      const std::optional<UUID>& preferredId) {
    if (preferredId && std::ranges::find(brains, *preferredId, &BrainRecord::brainId) != brains.end())
        return preferredId;
    // By name as a person reads it, so composed and decomposed forms of one name stand together.
    const auto rank = [](const BrainRecord& brain) {
        const bool isInbox = platform::lowerCased(brain.slug) == "inbox";
        return std::tuple(!isInbox, platform::composed(platform::lowerCased(brain.name)),
                          platform::composed(brain.slug), brain.brainId);
    };
    const auto first = std::ranges::min_element(brains, {}, rank);
    if (first == brains.end()) return std::nullopt;
    return first->brainId;
}

std::string defaultTitle(std::string_view forPath) {
    const auto name = forPath.substr(forPath.rfind('/') + 1);
    const auto dot = name.rfind('.');
    const bool hasExtension = dot != std::string_view::npos && dot >= 1;
    return std::string(hasExtension ? name.substr(0, dot) : name);
}

}  // namespace UploadPlanner

}  // namespace vorlinden
