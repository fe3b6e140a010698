// What a failure means to a person: the one place where the system's failures become sentences.
#pragma once

#include <exception>
#include <string>

namespace vorlinden::host {

struct Explanation {
    std::string sentence;      // one or two sentences: what happened, what to do; never a token
    bool needsPerson = false;  // nothing goes on until somebody signs in
};

// Knows every family of failures of the library, the platform and the host; anything else tells its own
// `what()`.
Explanation explain(const std::exception_ptr& failure);

}  // namespace vorlinden::host
