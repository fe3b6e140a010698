// Plain HTTP: what goes over the wire is what a test says.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/http.h"

namespace vorlinden::tests {

struct Answer {
    int status = 0;
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;

    std::string code() const;                 // of an error envelope; empty without one
    std::string text(const char* key) const;  // a string of the body's JSON object; empty without one
};

using Headers = std::vector<std::pair<std::string, std::string>>;

// Requests to the server at `url`. Throws URLError when there is no answer.
class PlainClient {
 public:
    explicit PlainClient(const std::string& url) : url_(url) {}

    Answer send(const std::string& method, const std::string& target, const std::string& body = {},
                const Headers& headers = {});
    Answer postJson(const std::string& target, const std::string& body);
    Answer postForm(const std::string& target, const std::string& body);
    // Sends bytes as they are on a connection of their own, closes that direction and reads all that comes
    // back.
    std::string exchangeBytes(const std::string& bytes);

 private:
    std::string url_;
    std::shared_ptr<platform::URLSession> session_ = platform::ephemeralURLSession();
};

}  // namespace vorlinden::tests
