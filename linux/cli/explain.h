// What a failure means to the person at the terminal.
#pragma once

#include <exception>
#include <string>

namespace vorlinden::cli {

struct Explanation {
    int status;            // an ExitStatus
    std::string sentence;  // one or two sentences: what happened, what to do; never a token
};

// Knows every family of failures of the library, the platform and the programs; the text of anything else is
// its own `what()`.
Explanation explain(const std::exception_ptr& failure);

}  // namespace vorlinden::cli
