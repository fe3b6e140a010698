#include "synckit/upload/content_uploader.h"

#include "synckit/auth/token_manager.h"
#include "synckit/server/sync_api_client.h"

namespace vorlinden::ContentUploader {

namespace {

struct Target {
    std::string brainId;  // as the wire has it
    std::string path;
    std::string deviceId;
    std::shared_ptr<SyncAPIClient> api;
    std::shared_ptr<TokenManager> tokenManager;
};

Task<UploadedContent> sendText(ContentUploadPlan::Text plan, Target to) {
    const std::function<Task<WriteResult>()> put = [&] {
        return to.api->putTextFile(to.brainId, to.deviceId, to.path, std::nullopt, plan.text);
    };
    auto result = co_await to.tokenManager->withAuthRetry<WriteResult>(put);
    co_return UploadedContent{std::move(result), NodeKind::text, std::nullopt, std::nullopt};
}

// Two calls, each with its own retry, so that a rejected token doesn't send the bytes again once they are
// there.
Task<UploadedContent> sendBlob(ContentUploadPlan::Blob plan, Target to) {
    const std::function<Task<BlobReceipt>()> upload = [&] {
        return to.api->uploadBlob(to.brainId, to.deviceId, plan.data);
    };
    const auto receipt = co_await to.tokenManager->withAuthRetry<BlobReceipt>(upload);
    const std::function<Task<WriteResult>()> put = [&] {
        return to.api->putBlobFile(to.brainId, to.deviceId, to.path, std::nullopt, receipt.hash, plan.size);
    };
    auto result = co_await to.tokenManager->withAuthRetry<WriteResult>(put);
    co_return UploadedContent{std::move(result), NodeKind::blob, receipt.hash, plan.size};
}

}  // namespace

Task<UploadedContent> send(ContentUploadPlan plan, UUID brainId, std::string path, std::string deviceId,
                           std::shared_ptr<SyncAPIClient> api, std::shared_ptr<TokenManager> tokenManager) {
    Target to{brainId.lowerText(), std::move(path), std::move(deviceId), std::move(api),
              std::move(tokenManager)};
    if (auto* text = std::get_if<ContentUploadPlan::Text>(&plan.value))
        co_return co_await sendText(std::move(*text), std::move(to));
    if (auto* blob = std::get_if<ContentUploadPlan::Blob>(&plan.value))
        co_return co_await sendBlob(std::move(*blob), std::move(to));
    throw UploadPlanError::tooLarge(std::get<ContentUploadPlan::TooLarge>(plan.value).size);
}

}  // namespace vorlinden::ContentUploader
