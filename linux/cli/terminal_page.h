// The sign-in page without a browser of this machine.
#pragma once

#include <memory>
#include <string>

#include "linux/host/sign_in.h"
#include "platform/seams.h"

namespace vorlinden::cli {

// Prints the page's address alone on a line of standard output, and takes the redirected one from standard
// input.
class TerminalPage : public host::AuthorizationPage {
 public:
    explicit TerminalPage(std::shared_ptr<platform::Timers> timers) : timers_(std::move(timers)) {}
    Task<std::string> visit(URL page) override;

 private:
    const std::shared_ptr<platform::Timers> timers_;
};

}  // namespace vorlinden::cli
