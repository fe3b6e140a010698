#include "synckit/server/sync_api_client.h"

#include "synckit/server/concealed.h"
#include "synckit/server/sync_json.h"

namespace vorlinden {
namespace {

using platform::JSONObjectBuilder;

constexpr const char* json = "application/json";
constexpr const char* octets = "application/octet-stream";

std::vector<std::string> brainPath(const std::string& brainId, const char* last) {
    return {"api", "sync", "brains", brainId, last};
}

std::string asciiLower(std::string text) {
    for (auto& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

SyncAPIError concealed(const SyncAPIError& error, const std::string& token) {
    return {error.status, vorlinden::concealed(error.code, token),
            vorlinden::concealed(error.message, token)};
}

DownloadedFile downloadedFile(const HTTPAnswer& answer) {
    const auto header = answer.response.header("Content-Type");
    const auto type = asciiLower(header.value_or(""));
    if (type.starts_with(json))
        return {DownloadedFile::Text{SyncJSON::decode<TextFileEnvelope>(answer.data).content}};
    if (type.starts_with(octets)) return {DownloadedFile::Blob{answer.data}};
    throw SyncClientError::unexpectedContentType(header);
}

}  // namespace

// One request before it has a URL and a token. The content type goes out with a body only.
struct SyncAPIClient::Call {
    std::string method;
    std::vector<std::string> path;
    std::vector<QueryItem> query;
    std::optional<Data> body;
    const char* contentType = json;
    const char* accept = json;

    Call(std::string callMethod, std::vector<std::string> callPath)
        : method(std::move(callMethod)), path(std::move(callPath)) {}
    Call with(const JSONObjectBuilder& object) && {
        body = Data(object.sortedText().text);
        return std::move(*this);
    }
};

SyncAPIClient::SyncAPIClient(URL baseURL, std::shared_ptr<HTTPTransport> transport,
                             std::shared_ptr<TokenProviding> tokens)
    : baseURL_(std::move(baseURL)), transport_(std::move(transport)), tokens_(std::move(tokens)) {}

Task<HTTPAnswer> SyncAPIClient::perform(Call call) {
    URLRequest request{.url = requestURL(baseURL_, call.path, call.query)};
    const auto token = co_await tokens_->currentAccessToken();
    request.method = call.method;
    request.headers.emplace_back("Authorization", "Bearer " + token);
    request.headers.emplace_back("Accept", call.accept);
    if (call.body) request.headers.emplace_back("Content-Type", call.contentType);
    request.body = call.body;
    auto answer = co_await transport_->send(std::move(request));
    const int status = answer.response.status;
    if (status < 200 || status > 299) throw concealed(SyncAPIError::decode(status, answer.data), token);
    co_return answer;
}

template <class T>
Task<T> SyncAPIClient::performJSON(Call call) {
    const auto answer = co_await perform(std::move(call));
    co_return SyncJSON::decode<T>(answer.data);
}

template <class Envelope, class T>
Task<T> SyncAPIClient::performJSON(Call call, T Envelope::*content) {
    auto envelope = co_await performJSON<Envelope>(std::move(call));
    co_return std::move(envelope.*content);
}

Task<Device> SyncAPIClient::registerDevice(std::string name, std::string platform) {
    const auto body = JSONObjectBuilder().add("name", name).add("platform", platform);
    return performJSON(Call("POST", {"api", "sync", "devices"}).with(body), &DeviceEnvelope::device);
}

Task<std::vector<Device>> SyncAPIClient::listDevices() {
    return performJSON(Call("GET", {"api", "sync", "devices"}), &DevicesEnvelope::devices);
}

Task<std::vector<Brain>> SyncAPIClient::listBrains() {
    return performJSON(Call("GET", {"api", "sync", "brains"}), &BrainsEnvelope::brains);
}

Task<ChangesResponse> SyncAPIClient::changes(std::string brainId, std::optional<std::string> cursor,
                                             std::string deviceId) {
    Call call("GET", brainPath(brainId, "changes"));
    if (cursor) call.query.emplace_back("cursor", *cursor);
    call.query.emplace_back("deviceId", deviceId);
    return performJSON<ChangesResponse>(std::move(call));
}

Task<DownloadedFile> SyncAPIClient::downloadFile(std::string brainId, std::string path, std::string at) {
    Call call("GET", brainPath(brainId, "file"));
    call.query = {{"path", path}, {"at", at}};
    call.accept = "application/json, application/octet-stream";
    const auto answer = co_await perform(std::move(call));
    co_return downloadedFile(answer);
}

Task<WriteResult> SyncAPIClient::putTextFile(std::string brainId, std::string deviceId, std::string path,
                                             std::optional<std::string> title, std::string body) {
    const auto object =
        JSONObjectBuilder().add("deviceId", deviceId).add("path", path).add("title", title).add("body", body);
    return performJSON<WriteResult>(Call("PUT", brainPath(brainId, "file")).with(object));
}

Task<WriteResult> SyncAPIClient::putBlobFile(std::string brainId, std::string deviceId, std::string path,
                                             std::optional<std::string> title, std::string blobHash,
                                             std::int64_t blobSize) {
    const auto object = JSONObjectBuilder()
                            .add("deviceId", deviceId)
                            .add("path", path)
                            .add("title", title)
                            .add("blobHash", blobHash)
                            .add("blobSize", blobSize);
    return performJSON<WriteResult>(Call("PUT", brainPath(brainId, "file")).with(object));
}

Task<WriteResult> SyncAPIClient::move(std::string brainId, std::string deviceId, std::string fromPath,
                                      std::string toPath) {
    const auto object =
        JSONObjectBuilder().add("deviceId", deviceId).add("fromPath", fromPath).add("toPath", toPath);
    return performJSON<WriteResult>(Call("POST", brainPath(brainId, "move")).with(object));
}

Task<DeleteResult> SyncAPIClient::deleteFile(std::string brainId, std::string deviceId, std::string path) {
    const auto object = JSONObjectBuilder().add("deviceId", deviceId).add("path", path);
    return performJSON<DeleteResult>(Call("DELETE", brainPath(brainId, "file")).with(object));
}

Task<BlobReceipt> SyncAPIClient::uploadBlob(std::string brainId, std::string deviceId, Data data) {
    Call call("POST", brainPath(brainId, "blobs"));
    call.query = {{"deviceId", deviceId}};
    call.body = std::move(data);
    call.contentType = octets;
    return performJSON<BlobReceipt>(std::move(call));
}

}  // namespace vorlinden
