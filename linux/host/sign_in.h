// Signing in: from nothing to a session, a device and brains in the catalogue.
#pragma once

#include <optional>
#include <string>

#include "linux/host/workspace.h"

namespace vorlinden::host {

// How a person reaches the authorization page, and how the address comes back to which it sends the browser.
class AuthorizationPage {
 public:
    virtual ~AuthorizationPage() = default;
    // Shows the page and waits for the redirected URL. CancelledError when the sign-in is given up.
    virtual Task<std::string> visit(URL page) = 0;
};

struct SignInOptions {
    std::string deviceName;      // shown by the server, and in the names of conflict copies
    bool registerAgain = false;  // forget the registration of this program, which the server no longer knows
};

struct SignedIn {
    std::string deviceName;
    std::size_t brains = 0;
};

// The whole flow: discovery, one registration per server, PKCE, the page, the code's exchange, the device,
// the list of brains, the domain. `page` lives until the task has ended. What was stored before a failure
// stays and is used by the next attempt; a session that existed before is replaced only when the new one is
// there.
Task<SignedIn> signIn(WorkspaceRef workspace, AuthorizationPage& page, SignInOptions options);

// Ends the session on this machine. What is in the catalogue stays, and so does the registration.
void signOut(const Workspace& workspace);

}  // namespace vorlinden::host
