// Requests and answers as the server's routes see them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "linux/server/contents.h"
#include "platform/data.h"

namespace vorlinden::server {

// Names and values of a query or a form, decoded.
class Parameters {
 public:
    using List = std::vector<std::pair<std::string, std::string>>;

    // Of a URL's query, where "+" stands for itself. Pairs with a broken escape are left out.
    static Parameters ofQuery(std::string_view text);
    // Of a form, where "+" is a blank.
    static Parameters ofForm(std::string_view text);

    std::optional<std::string> find(std::string_view name) const;  // the first of that name
    std::string text(std::string_view name) const;                 // empty if there is none
    std::string required(std::string_view name) const;             // throws Refusal

 private:
    List pairs_;
};

// What is known of a request before its body is read.
struct RequestHead {
    std::string method;
    std::string target;             // as sent, for matching
    std::vector<std::string> path;  // components, decoded
    Parameters query;
    std::string host;  // the headers' values, or empty
    std::string authorization;
    std::string contentType;
    std::optional<std::uint64_t> contentLength;

    bool isAt(std::initializer_list<std::string_view> components) const;
    std::string bearerToken() const;  // empty if there is none
};

struct Request {
    RequestHead head;
    std::string body;                         // where the head asked for memory
    std::unique_ptr<IncomingContent> upload;  // where it asked for an upload: finished
};

struct Response {
    int status = 200;
    std::string contentType;
    platform::Data body;
    Parameters::List headers;

    static Response json(std::string text, int status = 200);
    static Response octets(platform::Data bytes);
    static Response html(std::string text, int status = 200);
};

// How a request's body is to be taken in.
struct BodyPlan {
    enum class Into { memory, upload, nowhere };
    Into into = Into::memory;
    std::uint64_t limit = 0;  // bytes; more is refused
};

}  // namespace vorlinden::server
