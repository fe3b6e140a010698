// What can go wrong in the host itself, beside what the library throws.
#pragma once

#include <string>
#include <vector>

#include "platform/failure.h"
#include "synckit/catalogue/sqlite_database.h"

namespace vorlinden::host {

// The catalogue can't be opened: damaged, of a newer version, or out of reach. It is left as it is.
struct CatalogueUnusable : platform::Failure {
    CatalogueUnusable(std::string file, SQLiteError cause);
    std::string file;
    SQLiteError cause;
    bool operator==(const CatalogueUnusable&) const = default;
};

// The stored tokens don't read. They stay until somebody signs in or out.
struct StoredSignInUnreadable : platform::Failure {
    explicit StoredSignInUnreadable(std::string detail);
    std::string detail;  // never a token
    bool operator==(const StoredSignInUnreadable&) const = default;
};

// There are tokens, but the sign-in was never finished: the server hasn't named this device yet.
struct DeviceMissing : platform::Failure {
    DeviceMissing();
    bool operator==(const DeviceMissing&) const = default;
};

// A sign-in that didn't come to its end; nothing of it was stored.
struct SignInError : platform::Failure {
    enum class Reason {
        notARedirect,   // the text handed over is not the address that the browser was sent to
        wrongState,     // it belongs to another sign-in
        refused,        // the server or the person said no
        unknownClient,  // the server has forgotten this program's registration
        unsafePage,     // the server names an authorization page that no browser should be sent to
        alreadyWaiting,
        noInput,
    };
    explicit SignInError(Reason reason, std::string detail = {});
    Reason reason;
    std::string detail;
    bool operator==(const SignInError&) const = default;
};

// The server answered every request for changes with yet more of them; the next round goes on.
struct ChangesWithoutEnd : platform::Failure {
    explicit ChangesWithoutEnd(std::string brain);
    std::string brain;
    bool operator==(const ChangesWithoutEnd&) const = default;
};

// A name on the command line leads nowhere; the text says so.
struct NoSuchPlace : platform::Failure {
    explicit NoSuchPlace(std::string text);
    std::string text;
    bool operator==(const NoSuchPlace&) const = default;
};

// A change that the rules of the tree don't allow; the text says why.
struct ChangeRefused : platform::Failure {
    explicit ChangeRefused(std::string reason);
    std::string reason;
    bool operator==(const ChangeRefused&) const = default;
};

// A program that the host starts (xdg-open and its like) could not be run or failed.
struct ProgramFailed : platform::Failure {
    ProgramFailed(std::string program, int status);
    std::string program;
    int status;  // its exit status, or 127 if it isn't there
    bool operator==(const ProgramFailed&) const = default;
};

}  // namespace vorlinden::host
