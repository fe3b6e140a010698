#include "linux/host/sign_in.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "linux/host/host_state.h"
#include "linux/host/pull.h"
#include "linux/host/redirect.h"
#include "platform/fileprovider/domain_registry.h"
#include "platform/text.h"
#include "synckit/auth/pkce.h"

namespace vorlinden::host {
namespace {

std::string freshState(platform::Random& random) {
    std::vector<std::uint8_t> bytes(32);
    random.fill(bytes);
    return base64URLEncodedString(Data(std::move(bytes)));
}

Task<> storeMeta(WorkspaceRef workspace, std::string_view key, std::string value) {
    const auto hold = [workspace, key, value = std::move(value)]() -> Task<> {
        workspace->store->setMeta(value, key);
        co_return;
    };
    co_await workspace->locked(hold);
}

// The client id that this server gave us, asking for one only when it hasn't yet. Which server gave it is the
// host's own knowledge: to another one it means nothing.
Task<std::string> clientId(WorkspaceRef workspace, AuthServerMetadata metadata, bool registerAgain) {
    HostState state(workspace->system, workspace->folders.state);
    const auto stored = workspace->store->meta(MetaKey::clientId);
    const auto issuer = state.registeredAt();
    if (stored && !registerAgain && (!issuer || *issuer == metadata.issuer)) co_return *stored;
    const auto oauth = workspace->oauth();
    const std::vector<std::string> redirectURIs(1, OAuthClient::defaultRedirectURI);
    const auto registration =
        co_await oauth.registerClient(metadata, OAuthClient::defaultClientName, redirectURIs);
    co_await storeMeta(workspace, MetaKey::clientId, registration.clientId);
    state.setRegisteredAt(metadata.issuer);
    co_return registration.clientId;
}

void requireWebPage(const URL& page) {
    const auto scheme = platform::lowerCased(page.scheme().value_or(""));
    if (scheme != "https" && scheme != "http") {
        throw SignInError(SignInError::Reason::unsafePage, page.absoluteString());
    }
}

Task<OAuthTokenResponse> authorize(WorkspaceRef workspace, AuthorizationPage& page, bool registerAgain) {
    const auto oauth = workspace->oauth();
    const auto metadata = co_await oauth.discover();
    const auto client = co_await clientId(workspace, metadata, registerAgain);
    const auto pkce = PKCE::generate(*workspace->system.random);
    const auto state = freshState(*workspace->system.random);
    const auto url = oauth.authorizationURL(metadata, client, OAuthClient::defaultRedirectURI, state, pkce);
    requireWebPage(url);
    const auto redirected = co_await page.visit(url);
    try {
        co_return co_await oauth.exchangeCode(metadata, client, authorizationCode(redirected, state),
                                              OAuthClient::defaultRedirectURI, pkce.verifier);
    } catch (const OAuthError& error) {
        if (error.isInvalidClient()) throw SignInError(SignInError::Reason::unknownClient, error.error);
        throw;
    }
}

bool isKnown(const std::vector<Device>& devices, const std::optional<std::string>& id) {
    return id && std::any_of(devices.begin(), devices.end(), [&](const Device& d) { return d.id == *id; });
}

// The server's id of this device, the one it has already where it still knows it under this name.
Task<> settleDevice(WorkspaceRef workspace, std::string name) {
    const auto list = [workspace] { return workspace->client->listDevices(); };
    const auto devices = co_await workspace->tokens->withAuthRetry<std::vector<Device>>(list);
    const bool sameName = workspace->store->meta(MetaKey::deviceName) == name;
    if (sameName && isKnown(devices, workspace->store->meta(MetaKey::deviceId))) co_return;
    const auto enter = [workspace, name] { return workspace->client->registerDevice(name, "linux"); };
    const auto device = co_await workspace->tokens->withAuthRetry<Device>(enter);
    co_await storeMeta(workspace, MetaKey::deviceName, name);
    co_await storeMeta(workspace, MetaKey::deviceId, device.id);
}

}  // namespace

Task<SignedIn> signIn(WorkspaceRef workspace, AuthorizationPage& page, SignInOptions options) {
    workspace->tokens->signIn(co_await authorize(workspace, page, options.registerAgain));
    co_await settleDevice(workspace, options.deviceName);
    const auto brains = co_await pullGrants(workspace);
    platform::fileprovider::DomainRegistry(workspace->folders.state, workspace->system.files)
        .registerDomain(productDomain());
    workspace->signalWorkingSet();
    co_return SignedIn{options.deviceName, brains.size()};
}

void signOut(const Workspace& workspace) {
    workspace.tokens->signOut();
}

}  // namespace vorlinden::host
