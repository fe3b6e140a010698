#include "synckit/server/sync_json.h"

namespace vorlinden::SyncJSON {

using platform::JSONDocument;
using platform::JSONObjectBuilder;
using platform::JSONText;
using platform::JSONValue;

std::string string(Timestamp from) {
    return platform::formatTimestamp(from);
}
std::optional<Timestamp> date(std::string_view from) {
    return platform::parseTimestamp(from);
}

namespace {

Timestamp timestamp(const JSONValue& value) {
    const auto text = value.text();
    if (const auto time = date(text)) return *time;
    throw value.corrupted("Invalid ISO 8601 date: " + std::string(text));
}

std::optional<Timestamp> optionalTimestamp(const JSONValue& object, std::string_view key) {
    const auto value = object.optional(key);
    return value ? std::optional(timestamp(*value)) : std::nullopt;
}

NodeKind nodeKind(const JSONValue& value) {
    if (const auto kind = nodeKindFromRawValue(value.text())) return *kind;
    throw value.corrupted("Unknown node kind \"" + std::string(value.text()) + "\"");
}

std::optional<NodeKind> optionalNodeKind(const JSONValue& object) {
    const auto value = object.optional("nodeKind");
    return value ? std::optional(nodeKind(*value)) : std::nullopt;
}

AuthorKind authorKind(const JSONValue& value) {
    if (value.text() == "member") return AuthorKind::member;
    if (value.text() == "agent") return AuthorKind::agent;
    throw value.corrupted("Unknown author kind \"" + std::string(value.text()) + "\"");
}

template <class T>
T read(const JSONValue& value);

template <class T>
std::vector<T> readList(const JSONValue& list) {
    const auto elements = list.list();
    std::vector<T> values;
    values.reserve(elements.size());
    for (const auto& element : elements)
        values.push_back(read<T>(element));
    return values;
}

template <>
Brain read(const JSONValue& v) {
    return {v.requiredName("id"), v.requiredString("teamId"), v.requiredString("name"),
            v.requiredName("slug"), v.optionalString("headCursor")};
}

template <>
Device read(const JSONValue& v) {
    return {v.requiredString("id"), v.requiredString("name"), v.requiredString("platform"),
            timestamp(v.required("createdAt")), optionalTimestamp(v, "lastSeenAt")};
}

template <>
Author read(const JSONValue& v) {
    return {authorKind(v.required("kind")), v.requiredString("memberId"), v.optionalString("harness")};
}

template <>
Op read(const JSONValue& v) {
    const auto kind = v.required("kind");
    const auto name = kind.text();
    auto path = v.requiredName("path");
    if (name == "create")
        return {Op::Create{std::move(path), v.requiredString("title"), v.requiredStrings("tags"),
                           v.requiredBool("isDirectory"), optionalNodeKind(v)}};
    if (name == "update")
        return {Op::Update{std::move(path), v.optionalString("title"), v.optionalStrings("tags"),
                           v.requiredBool("bodyChanged"), optionalNodeKind(v)}};
    if (name == "move") return {Op::Move{std::move(path), v.requiredName("newPath")}};
    if (name == "mkdir") return {Op::Mkdir{std::move(path), v.requiredString("title")}};
    if (name == "delete") return {Op::Delete{std::move(path)}};
    throw kind.corrupted("Unknown op kind \"" + std::string(name) + "\"");
}

template <>
FeedEntry read(const JSONValue& v) {
    return {v.requiredString("cursor"), timestamp(v.required("at")), read<Author>(v.required("author")),
            readList<Op>(v.required("ops"))};
}

template <>
SnapshotNode read(const JSONValue& v) {
    return {v.requiredName("nodeId"),      v.requiredName("path"),
            v.requiredString("title"),     v.requiredBool("isDirectory"),
            nodeKind(v.required("kind")),  v.optionalString("blobHash"),
            v.optionalInteger("blobSize"), timestamp(v.required("updatedAt"))};
}

template <>
ChangesResponse read(const JSONValue& v) {
    const bool reset = v.requiredBool("reset");
    auto cursor = v.optionalString("cursor");
    if (reset)
        return {ChangesResponse::Reset{readList<SnapshotNode>(v.required("snapshot")), std::move(cursor)}};
    return {ChangesResponse::Incremental{readList<FeedEntry>(v.required("entries")), std::move(cursor)}};
}

template <>
NodeRef read(const JSONValue& v) {
    return {v.requiredName("nodeId"), v.requiredName("path")};
}

template <>
WriteResult read(const JSONValue& v) {
    return {read<NodeRef>(v.required("node")), v.requiredString("cursor")};
}

template <>
DeleteResult read(const JSONValue& v) {
    return {v.requiredBool("deleted"), v.optionalString("cursor")};
}

template <>
BlobReceipt read(const JSONValue& v) {
    return {v.requiredString("hash"), v.requiredInteger("size")};
}

template <>
TextFileEnvelope read(const JSONValue& v) {
    return {v.requiredString("path"), v.requiredString("at"), v.requiredString("content")};
}

template <>
BrainsEnvelope read(const JSONValue& v) {
    return {readList<Brain>(v.required("brains"))};
}

template <>
DevicesEnvelope read(const JSONValue& v) {
    return {readList<Device>(v.required("devices"))};
}

template <>
DeviceEnvelope read(const JSONValue& v) {
    return {read<Device>(v.required("device"))};
}

std::optional<std::string> text(const std::optional<Timestamp>& time) {
    return time ? std::optional(string(*time)) : std::nullopt;
}

std::optional<std::string_view> text(const std::optional<NodeKind>& kind) {
    return kind ? std::optional(rawValue(*kind)) : std::nullopt;
}

// The payload of an op's case, after `kind` and `path`.
void addPayload(JSONObjectBuilder& object, const Op::Create& op) {
    object.add("title", op.title).add("tags", op.tags).add("isDirectory", op.isDirectory);
    object.add("nodeKind", text(op.nodeKind));
}
void addPayload(JSONObjectBuilder& object, const Op::Update& op) {
    object.add("title", op.title).add("tags", op.tags).add("bodyChanged", op.bodyChanged);
    object.add("nodeKind", text(op.nodeKind));
}
void addPayload(JSONObjectBuilder& object, const Op::Move& op) {
    object.add("newPath", op.newPath);
}
void addPayload(JSONObjectBuilder& object, const Op::Mkdir& op) {
    object.add("title", op.title);
}
void addPayload(JSONObjectBuilder&, const Op::Delete&) {}

constexpr std::string_view opNames[] = {"create", "update", "move", "mkdir", "delete"};

template <class T>
std::vector<JSONText> encodeList(const std::vector<T>& values) {
    std::vector<JSONText> list;
    list.reserve(values.size());
    for (const auto& value : values)
        list.push_back(encode(value));
    return list;
}

}  // namespace

template <>
JSONText encode(const Brain& b) {
    JSONObjectBuilder object;
    object.add("id", b.id).add("teamId", b.teamId).add("name", b.name).add("slug", b.slug);
    return object.add("headCursor", b.headCursor).sortedText();
}

template <>
JSONText encode(const Device& d) {
    JSONObjectBuilder object;
    object.add("id", d.id).add("name", d.name).add("platform", d.platform);
    return object.add("createdAt", string(d.createdAt)).add("lastSeenAt", text(d.lastSeenAt)).sortedText();
}

template <>
JSONText encode(const Author& a) {
    JSONObjectBuilder object;
    object.add("kind", a.kind == AuthorKind::member ? "member" : "agent");
    return object.add("memberId", a.memberId).add("harness", a.harness).sortedText();
}

template <>
JSONText encode(const Op& op) {
    JSONObjectBuilder object;
    object.add("kind", opNames[op.value.index()]).add("path", op.path());
    std::visit([&](const auto& payload) { addPayload(object, payload); }, op.value);
    return object.sortedText();
}

template <>
JSONText encode(const FeedEntry& e) {
    JSONObjectBuilder object;
    object.add("cursor", e.cursor).add("at", string(e.at)).add("author", encode(e.author));
    return object.add("ops", encodeList(e.ops)).sortedText();
}

template <>
JSONText encode(const SnapshotNode& n) {
    JSONObjectBuilder object;
    object.add("nodeId", n.nodeId)
        .add("path", n.path)
        .add("title", n.title)
        .add("isDirectory", n.isDirectory);
    object.add("kind", rawValue(n.kind)).add("blobHash", n.blobHash).add("blobSize", n.blobSize);
    return object.add("updatedAt", string(n.updatedAt)).sortedText();
}

template <>
JSONText encode(const NodeRef& n) {
    return JSONObjectBuilder().add("nodeId", n.nodeId).add("path", n.path).sortedText();
}

template <>
JSONText encode(const WriteResult& w) {
    return JSONObjectBuilder().add("node", encode(w.node)).add("cursor", w.cursor).sortedText();
}

template <>
JSONText encode(const DeleteResult& d) {
    return JSONObjectBuilder().add("deleted", d.deleted).add("cursor", d.cursor).sortedText();
}

template <>
JSONText encode(const BlobReceipt& b) {
    return JSONObjectBuilder().add("hash", b.hash).add("size", b.size).sortedText();
}

template <class T>
T decode(std::string_view json) {
    const JSONDocument document(json);
    return read<T>(document.root());
}

template Brain decode(std::string_view);
template Device decode(std::string_view);
template Author decode(std::string_view);
template Op decode(std::string_view);
template FeedEntry decode(std::string_view);
template SnapshotNode decode(std::string_view);
template ChangesResponse decode(std::string_view);
template NodeRef decode(std::string_view);
template WriteResult decode(std::string_view);
template DeleteResult decode(std::string_view);
template BlobReceipt decode(std::string_view);
template TextFileEnvelope decode(std::string_view);
template BrainsEnvelope decode(std::string_view);
template DevicesEnvelope decode(std::string_view);
template DeviceEnvelope decode(std::string_view);

}  // namespace vorlinden::SyncJSON
