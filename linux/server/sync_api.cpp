#include "linux/server/sync_api.h"

#include "linux/server/authorization.h"
#include "linux/server/brain_editor.h"
#include "linux/server/changes.h"
#include "linux/server/contents.h"
#include "linux/server/devices.h"
#include "linux/server/feed.h"
#include "linux/server/refusal.h"
#include "linux/server/rules.h"
#include "linux/server/tree.h"
#include "platform/json.h"
#include "synckit/server/sync_json.h"

namespace vorlinden::server {

namespace {

using platform::JSONObjectBuilder;
using platform::JSONText;

constexpr std::uint64_t jsonLimit =
    16 * 1024 * 1024;  // the longest text, escaped in the longest way, and more
constexpr std::size_t titleLimit = 4096;

Refusal noSuchEndpoint() {
    return {404, "NO_SUCH_ENDPOINT", "There is no such endpoint."};
}

// Only JSON that says so: a page in somebody's browser can't send it to another origin unasked.
platform::JSONDocument jsonOf(const Request& request) {
    if (!request.head.contentType.starts_with("application/json")) {
        throw Refusal(415, "UNSUPPORTED_MEDIA_TYPE", "The body must be application/json.");
    }
    return platform::JSONDocument(request.body);
}

template <class T>
Response encoded(const T& value) {
    return Response::json(SyncJSON::encode(value).text);
}

template <class T>
Response listed(std::string_view key, const std::vector<T>& values) {
    std::vector<JSONText> texts;
    for (const auto& value : values)
        texts.push_back(SyncJSON::encode(value));
    return Response::json(JSONObjectBuilder().add(key, texts).text().text);
}

bool isDigest(std::string_view text) {
    return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

// The blob that a put names, which was uploaded before.
FileContent blobNamedBy(Database& database, const std::string& hash, std::int64_t size) {
    if (!isDigest(hash)) throw Refusal::badRequest("A blob's hash is 64 lower-case hexadecimal digits.");
    const auto known = Contents::sizeOf(database, hash);
    if (!known) throw Refusal(409, "UNKNOWN_BLOB", "This blob isn't here. Upload it first.");
    if (*known != size) throw Refusal::badRequest("The blob has another size.");
    return {NodeKind::blob, {hash, size}};
}

void checkTitle(const std::optional<std::string>& title) {
    if (title && title->size() > titleLimit) throw Refusal::badRequest("The title is too long.");
}

}  // namespace

bool SyncApi::serves(const RequestHead& head) {
    return head.path.size() >= 3 && head.path[0] == "api" && head.path[1] == "sync";
}

BodyPlan SyncApi::admit(const RequestHead& head) const {
    if (head.method == "GET") return {BodyPlan::Into::nowhere, jsonLimit};
    ReadTransaction transaction(storage_);
    auto& database = transaction.database();
    const auto author = member(database, head);
    if (head.path.size() != 5 || head.path[4] != "blobs") return {BodyPlan::Into::memory, jsonLimit};
    Devices::check(database, author, head.query.required("deviceId"));
    brain(database, head);
    return {BodyPlan::Into::upload, static_cast<std::uint64_t>(options_.maxUpload)};
}

Response SyncApi::answer(const Request& request) const {
    const auto& head = request.head;
    const bool reads = head.method == "GET";
    if (head.isAt({"api", "sync", "devices"})) {
        if (reads) return devices(head);
        if (head.method == "POST") return registerDevice(request);
    } else if (head.isAt({"api", "sync", "brains"})) {
        if (reads) return brains(head);
    } else if (head.path.size() == 5 && head.path[2] == "brains") {
        return brainAnswer(request, head.method + " " + head.path[4]);
    }
    throw noSuchEndpoint();
}

Response SyncApi::brainAnswer(const Request& request, const std::string& action) const {
    if (action == "GET changes") return changes(request.head);
    if (action == "GET file") return file(request.head);
    if (action == "PUT file") return putFile(request);
    if (action == "DELETE file") return deleteNode(request);
    if (action == "POST move") return moveNode(request);
    if (action == "POST blobs") return takeBlob(request);
    throw noSuchEndpoint();
}

Response SyncApi::registerDevice(const Request& request) const {
    const auto document = jsonOf(request);
    const auto name = document.root().requiredName("name");
    const auto platform = document.root().requiredName("platform");
    std::string owner;
    {
        ReadTransaction transaction(storage_);
        owner = member(transaction.database(), request.head);
    }
    const auto device = Devices::add(storage_, owner, name, platform);
    return Response::json(JSONObjectBuilder().add("device", SyncJSON::encode(device)).text().text, 201);
}

Response SyncApi::devices(const RequestHead& head) const {
    ReadTransaction transaction(storage_);
    auto& database = transaction.database();
    return listed("devices", Devices::of(database, member(database, head)));
}

Response SyncApi::brains(const RequestHead& head) const {
    ReadTransaction transaction(storage_);
    auto& database = transaction.database();
    member(database, head);
    const auto team = Brains::teamId(database);
    std::vector<Brain> granted;
    for (const auto& row : Brains::all(database)) {
        if (!row.granted) continue;
        granted.push_back({row.id, team, row.name, row.slug, Feed(database, row.key).head().cursor});
    }
    return listed("brains", granted);
}

Response SyncApi::changes(const RequestHead& head) const {
    std::string deviceId;
    std::string text;
    {
        ReadTransaction transaction(storage_);
        auto& database = transaction.database();
        const auto asker = member(database, head);
        deviceId = head.query.required("deviceId");
        Devices::check(database, asker, deviceId);
        text = changesSince(database, brain(database, head), head.query.find("cursor"));
    }
    Devices::noteSeen(storage_, deviceId);
    return Response::json(std::move(text));
}

Response SyncApi::file(const RequestHead& head) const {
    ReadTransaction transaction(storage_);
    auto& database = transaction.database();
    member(database, head);
    const auto row = brain(database, head);
    const auto path = head.query.required("path");
    if (!isValidPath(path)) throw Refusal::invalidPath(path);
    const Feed feed(database, row.key);
    const auto at = head.query.find("at").value_or(feed.head().cursor);
    const auto seq = feed.find(at);
    if (!seq) throw Refusal::expiredCursor();
    const auto node = Tree(database, row.key).findAt(path, *seq);
    if (!node || node->isDirectory) throw Refusal::notFound(path);
    auto bytes = Contents::load(storage_, database, node->content.hash);
    if (!bytes) throw Refusal::expiredCursor();
    if (node->kind == NodeKind::blob) return Response::octets(std::move(*bytes));
    return Response::json(
        JSONObjectBuilder().add("path", path).add("at", at).add("content", bytes->view()).text().text);
}

template <class Change>
auto SyncApi::write(const RequestHead& head, const std::string& deviceId, const Change& change) const {
    WriteTransaction transaction(storage_);
    auto& database = transaction.database();
    const auto author = member(database, head);
    Devices::check(database, author, deviceId);
    const auto row = brain(database, head);
    BrainEditor editor(transaction, row, {AuthorKind::member, author, std::nullopt}, readOnlyPaths(row.slug),
                       options_.keepFeed);
    auto result = change(transaction, editor);
    transaction.commit();
    return result;
}

Response SyncApi::putFile(const Request& request) const {
    const auto document = jsonOf(request);
    const auto root = document.root();
    const auto path = root.requiredString("path");
    const auto title = root.optionalString("title");
    checkTitle(title);
    const auto hash = root.optionalString("blobHash");
    if (hash) {
        const auto size = root.requiredInteger("blobSize");
        return encoded(
            write(request.head, root.requiredString("deviceId"), [&](auto& transaction, auto& editor) {
                const auto node = editor.put(path, title, blobNamedBy(transaction.database(), *hash, size));
                return WriteResult{node, editor.publish()};
            }));
    }
    IncomingContent content(storage_);
    content.add(root.requiredString("body"));
    if (content.size() > options_.maxUpload) throw Refusal::tooLarge(options_.maxUpload);
    content.finish();
    if (content.kind() != NodeKind::text) {
        throw Refusal(400, "NOT_TEXT", "This body can't be kept as text. Upload it as a blob.");
    }
    return encoded(write(request.head, root.requiredString("deviceId"), [&](auto& transaction, auto& editor) {
        Contents::store(transaction, content);
        const auto node = editor.put(path, title, {NodeKind::text, content.ref()});
        return WriteResult{node, editor.publish()};
    }));
}

Response SyncApi::moveNode(const Request& request) const {
    const auto document = jsonOf(request);
    const auto root = document.root();
    const auto from = root.requiredString("fromPath");
    const auto to = root.requiredString("toPath");
    return encoded(write(request.head, root.requiredString("deviceId"), [&](auto&, auto& editor) {
        const auto node = editor.move(from, to);
        return WriteResult{node, editor.publish()};
    }));
}

Response SyncApi::deleteNode(const Request& request) const {
    const auto document = jsonOf(request);
    const auto root = document.root();
    const auto path = root.requiredString("path");
    return encoded(write(request.head, root.requiredString("deviceId"), [&](auto&, auto& editor) {
        DeleteResult result{editor.remove(path), std::nullopt};
        if (result.deleted) result.cursor = editor.publish();
        if (!result.deleted && options_.missingDeleteIs404) throw Refusal::notFound(path);
        return result;
    }));
}

Response SyncApi::takeBlob(const Request& request) const {
    if (!request.upload) throw Refusal::badRequest("The request has no body.");
    WriteTransaction transaction(storage_);
    Contents::store(transaction, *request.upload);
    transaction.commit();
    return encoded(BlobReceipt{request.upload->ref().hash, request.upload->size()});
}

std::string SyncApi::member(Database& database, const RequestHead& head) const {
    auto member = Authorization::memberOf(storage_, database, head.bearerToken());
    if (!member) throw Refusal::unauthenticated();
    return *std::move(member);
}

// A brain that isn't granted and one that never was look the same from outside.
BrainRow SyncApi::brain(Database& database, const RequestHead& head) const {
    const auto row = Brains::byId(database, head.path.at(3));
    if (!row || !row->granted) throw Refusal::forbidden();
    return *row;
}

std::vector<std::string> SyncApi::readOnlyPaths(const std::string& slug) const {
    std::vector<std::string> paths;
    for (const auto& subtree : options_.readOnly) {
        if (subtree.slug == slug) paths.push_back(subtree.path);
    }
    return paths;
}

}  // namespace vorlinden::server
