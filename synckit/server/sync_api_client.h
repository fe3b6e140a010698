// The one gate to the sync server: ten operations, each of them one HTTP request with a bearer token.
//
// Knows nothing of the catalogue and retries nothing; a rejected token surfaces as a SyncAPIError that
// isUnauthenticated(), for TokenManager::withAuthRetry to answer. Immutable after construction and
// thread-safe; any number of requests may be in flight. The object must live until the tasks of its
// operations have ended.
//
// Operations throw SyncAPIError (status outside 200 to 299), SyncClientError, platform::JSONError (a 2xx body
// that doesn't decode), what the token provider throws, URLError and CancelledError.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "synckit/server/http_transport.h"
#include "synckit/server/request_url.h"
#include "synckit/server/sync_errors.h"
#include "synckit/server/wire_model.h"

namespace vorlinden {

// `brainId` is the lower-case text of the brain's UUID and goes out unchanged, as do cursors.
class SyncAPIClient {
 public:
    SyncAPIClient(URL baseURL, std::shared_ptr<HTTPTransport> transport,
                  std::shared_ptr<TokenProviding> tokens);

    Task<Device> registerDevice(std::string name, std::string platform);
    Task<std::vector<Device>> listDevices();
    Task<std::vector<Brain>> listBrains();
    Task<ChangesResponse> changes(std::string brainId, std::optional<std::string> cursor,
                                  std::string deviceId);
    // `at` is a cursor: the content as it stood there.
    Task<DownloadedFile> downloadFile(std::string brainId, std::string path, std::string at);
    Task<WriteResult> putTextFile(std::string brainId, std::string deviceId, std::string path,
                                  std::optional<std::string> title, std::string body);
    Task<WriteResult> putBlobFile(std::string brainId, std::string deviceId, std::string path,
                                  std::optional<std::string> title, std::string blobHash,
                                  std::int64_t blobSize);
    Task<WriteResult> move(std::string brainId, std::string deviceId, std::string fromPath,
                           std::string toPath);
    Task<DeleteResult> deleteFile(std::string brainId, std::string deviceId, std::string path);
    Task<BlobReceipt> uploadBlob(std::string brainId, std::string deviceId, Data data);

 private:
    struct Call;
    Task<HTTPAnswer> perform(Call call);
    template <class T>
    Task<T> performJSON(Call call);
    template <class Envelope, class T>
    Task<T> performJSON(Call call, T Envelope::*content);

    const URL baseURL_;
    const std::shared_ptr<HTTPTransport> transport_;
    const std::shared_ptr<TokenProviding> tokens_;
};

}  // namespace vorlinden
