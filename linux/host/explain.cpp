#include "linux/host/explain.h"

#include <cerrno>
#include <cstring>
#include <optional>

#include "linux/host/failures.h"
#include "linux/host/pauses.h"
#include "platform/json.h"
#include "synckit/auth/token_manager.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/server/sync_errors.h"

namespace vorlinden::host {
namespace {

constexpr const char* signInAgain = " Sign in with `vorlinden login`.";

// SQLite's primary result codes that a person can do something about.
constexpr int busy = 5;
constexpr int full = 13;
constexpr int newerSchema = 17;
constexpr int notADatabase = 26;
constexpr int corrupt = 11;

std::string explained(const SQLiteError& error, const std::string& file) {
    const auto named = file.empty() ? std::string("The catalogue") : "The catalogue " + file;
    switch (error.code & 0xff) {
        case busy:
            return named + " is in use by another program for too long. Try again.";
        case full:
            return "The disk is full. Make room and try again; nothing was changed.";
        case newerSchema:
            return named +
                   " was written by a newer version of this program. Update vorlinden; the file was left as "
                   "it is.";
        case notADatabase:
        case corrupt:
            return named +
                   " is damaged and was left as it is. Move it away and run `vorlinden login`: what the "
                   "server has is fetched again.";
        default:
            return named + " can't be used: " + error.message + ".";
    }
}

std::string explained(const platform::FileError& error) {
    if (error.code == ENOSPC || error.code == EDQUOT) {
        return "The disk is full. Make room and try again; nothing was changed.";
    }
    if (error == platform::FileError::noSuchFile()) {
        return "The bytes of a local change can't be found on this machine just now; what the server sent "
               "for it "
               "waits until they can.";
    }
    const std::string reason = std::strerror(error.code);
    return error.path.empty() ? "The system refused: " + reason + "." : error.path + ": " + reason + ".";
}

std::string explained(const platform::URLError& error) {
    return std::string(error.what()) +
           " Check the connection, and the address with `vorlinden config base-url`.";
}

std::string explained(const SyncAPIError& error) {
    if (isPassing(error.status)) {
        return "The server can't answer just now (" + std::to_string(error.status) + ").";
    }
    if (error.code == "unknown" && error.status == 404) {
        return "This address is no sync server (404). Check it with `vorlinden config base-url`.";
    }
    return "The server refused: " + error.message + " (" + std::to_string(error.status) + ").";
}

std::string explained(const OAuthError& error) {
    if (error.error == "unknown") {
        return "This address is no sync server (status " + std::to_string(error.status) +
               "). Check it with `vorlinden config base-url`.";
    }
    return "The server refused the sign-in: " + error.errorDescription.value_or(error.error) + ".";
}

std::string explained(const SignInError& error) {
    using enum SignInError::Reason;
    const std::string text = error.what();
    switch (error.reason) {
        case notARedirect:
        case noInput:
            return text + " Run `vorlinden login` again and hand over the whole address.";
        case wrongState:
            return text + " Nothing was stored; run `vorlinden login` again and use its own address.";
        case unknownClient:
            return text + " Run `vorlinden login --register-again`.";
        case alreadyWaiting:
            return text + " End it first, or use `--no-browser`.";
        case refused:
        case unsafePage:
            return text;
    }
    return text;
}

}  // namespace

Explanation explain(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const TokenManagerError& error) {
        if (error.reason == TokenManagerError::Reason::signedOut) {
            return {"Nobody is signed in on this machine." + std::string(signInAgain), true};
        }
        return {error.what(), false};
    } catch (const StoredSignInUnreadable& error) {
        return {std::string(error.what()) + signInAgain, true};
    } catch (const DeviceMissing& error) {
        return {std::string(error.what()) + signInAgain, true};
    } catch (const CatalogueUnusable& error) {
        return {explained(error.cause, error.file), false};
    } catch (const SQLiteError& error) {
        return {explained(error, ""), false};
    } catch (const SignInError& error) {
        return {explained(error), false};
    } catch (const SyncAPIError& error) {
        return {explained(error), false};
    } catch (const OAuthError& error) {
        return {explained(error), false};
    } catch (const platform::URLError& error) {
        return {explained(error), false};
    } catch (const platform::JSONError& error) {
        return {"The server's answer can't be understood: " + std::string(error.what()), false};
    } catch (const platform::FileError& error) {
        return {explained(error), false};
    } catch (const platform::CancelledError&) {
        return {"Interrupted.", false};
    } catch (const std::exception& error) {
        return {error.what(), false};
    } catch (...) {
        return {"Something failed that has no name.", false};
    }
}

}  // namespace vorlinden::host
