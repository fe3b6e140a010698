#include "linux/cli/terminal_page.h"

#include <chrono>
#include <cstddef>
#include <iostream>
#include <optional>

#include <poll.h>
#include <unistd.h>

#include "linux/host/failures.h"

namespace vorlinden::cli {
namespace {

using namespace std::chrono_literals;

// No address that a server sends is longer.
constexpr std::size_t maximumLine = 64 * 1024;

bool inputIsReady() {
    pollfd wait{STDIN_FILENO, POLLIN, 0};
    return ::poll(&wait, 1, 0) > 0;
}

std::optional<char> readByte() {
    char byte = 0;
    if (::read(STDIN_FILENO, &byte, 1) == 1) return byte;
    return std::nullopt;
}

}  // namespace

Task<std::string> TerminalPage::visit(URL page) {
    std::cout << page.absoluteString() << std::endl;
    if (::isatty(STDIN_FILENO)) {
        std::cerr
            << "Open the page above in any browser. Then paste the address here that it sends the browser to "
               "(it begins with vorlinden:).\n";
    }
    // A blocking read could not be given up: look, and sleep between looks.
    std::string line;
    while (line.size() < maximumLine) {
        if (!inputIsReady()) {
            co_await timers_->sleep(50ms);
            continue;
        }
        const auto byte = readByte();
        if (byte && *byte != '\n') {
            line += *byte;
            continue;
        }
        if (line.empty() && !byte) throw host::SignInError(host::SignInError::Reason::noInput);
        co_return line;
    }
    throw host::SignInError(host::SignInError::Reason::notARedirect, "it is too long");
}

}  // namespace vorlinden::cli
