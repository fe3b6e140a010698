#include "linux/server/router.h"

#include "linux/server/refusal.h"
#include "platform/json.h"

namespace vorlinden::server {

namespace {

constexpr std::uint64_t formLimit = 64 * 1024;

// A page of another site that has its name point to this machine would else be let in by the browser.
bool isLocal(const std::string& host) {
    const auto name =
        host.starts_with('[') ? host.substr(0, host.find(']') + 1) : host.substr(0, host.find(':'));
    const bool isLoopback =
        name.starts_with("127.") && name.find_first_not_of("0123456789.") == std::string::npos;
    return name.empty() || name == "localhost" || name == "[::1]" || isLoopback;
}

Response envelope(const Refusal& refusal) {
    const auto error =
        platform::JSONObjectBuilder().add("code", refusal.code).add("message", refusal.what()).text();
    auto response =
        Response::json(platform::JSONObjectBuilder().add("error", error).text().text, refusal.status);
    if (refusal.status == 401) response.headers.emplace_back("WWW-Authenticate", "Bearer");
    return response;
}

// The same in the words of each side of the server.
Response told(const RequestHead& head, const Refusal& refusal, const char* oauthError) {
    if (!OAuthApi::serves(head)) return envelope(refusal);
    return oauthErrorResponse(OAuthRefusal(refusal.status, oauthError, refusal.what()));
}

}  // namespace

BodyPlan Router::admit(const RequestHead& head) {
    if (!isLocal(head.host))
        throw Refusal(421, "MISDIRECTED", "This server answers only to names of this machine.");
    if (AdminApi::serves(head)) return admin_.admit(head);
    if (SyncApi::serves(head)) return sync_.admit(head);
    return {BodyPlan::Into::memory, formLimit};
}

Response Router::answer(const Request& request) {
    if (AdminApi::serves(request.head)) return admin_.answer(request);
    if (SyncApi::serves(request.head)) return sync_.answer(request);
    if (OAuthApi::serves(request.head)) return oauth_.answer(request);
    throw Refusal(404, "NO_SUCH_ENDPOINT", "There is no such endpoint.");
}

Response Router::failure(const RequestHead& head, std::exception_ptr problem) {
    try {
        std::rethrow_exception(problem);
    } catch (const Refusal& refusal) {
        return told(head, refusal, "invalid_request");
    } catch (const OAuthRefusal& refusal) {
        return oauthErrorResponse(refusal);
    } catch (const platform::JSONError& error) {
        return told(head, Refusal::badRequest(error.what()), "invalid_request");
    } catch (const std::exception& error) {
        return told(head, Refusal(500, "INTERNAL", error.what()), "server_error");
    }
}

}  // namespace vorlinden::server
