#include "linux/host/failures.h"

#include <utility>

namespace vorlinden::host {
namespace {

std::string text(SignInError::Reason reason, const std::string& detail) {
    using enum SignInError::Reason;
    switch (reason) {
        case notARedirect:
            return "This is not the address to which the sign-in page sent the browser (" + detail + ").";
        case wrongState:
            return "The redirected address belongs to another sign-in.";
        case refused:
            return "The server did not grant access: " + detail + ".";
        case unknownClient:
            return "The server no longer knows this program's registration.";
        case unsafePage:
            return "The server names a sign-in page that is no web address: " + detail + ".";
        case alreadyWaiting:
            return "Another sign-in is waiting for the browser already.";
        case noInput:
            return "No redirected address came on standard input.";
    }
    return detail;
}

}  // namespace

CatalogueUnusable::CatalogueUnusable(std::string fileName, SQLiteError why)
    : Failure("The catalogue " + fileName + " can't be opened: " + why.message + "."),
      file(std::move(fileName)),
      cause(std::move(why)) {}

StoredSignInUnreadable::StoredSignInUnreadable(std::string what)
    : Failure("The stored sign-in can't be read: " + what), detail(std::move(what)) {}

DeviceMissing::DeviceMissing() : Failure("The sign-in on this machine was not finished.") {}

SignInError::SignInError(Reason why, std::string what)
    : Failure(text(why, what)), reason(why), detail(std::move(what)) {}

ChangesWithoutEnd::ChangesWithoutEnd(std::string name)
    : Failure("The server sends changes of " + name + " without end; the next round goes on."),
      brain(std::move(name)) {}

NoSuchPlace::NoSuchPlace(std::string what) : Failure(what), text(std::move(what)) {}

ChangeRefused::ChangeRefused(std::string why) : Failure(why), reason(std::move(why)) {}

ProgramFailed::ProgramFailed(std::string name, int code)
    : Failure(code == 127 ? name + " is not installed."
                          : name + " failed with status " + std::to_string(code) + "."),
      program(std::move(name)),
      status(code) {}

}  // namespace vorlinden::host
