#include "tests/syncserver/plain_client.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include "platform/json.h"
#include "platform/text.h"

namespace vorlinden::tests {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using Tcp = asio::ip::tcp;

}  // namespace

std::string Answer::code() const {
    try {
        const platform::JSONDocument document(body);
        return document.root().required("error").requiredString("code");
    } catch (const platform::JSONError&) {
        return {};
    }
}

std::string Answer::text(const char* key) const {
    try {
        const platform::JSONDocument document(body);
        return document.root().requiredString(key);
    } catch (const platform::JSONError&) {
        return {};
    }
}

struct PlainClient::State {
    explicit State(const std::string& url)
        : endpoint(asio::ip::make_address("127.0.0.1"),
                   static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)))) {}

    asio::io_context context;
    Tcp::endpoint endpoint;
    Tcp::socket socket{context};
    boost::beast::flat_buffer buffer;
};

PlainClient::PlainClient(const std::string& url) : state_(std::make_unique<State>(url)) {}
PlainClient::PlainClient(PlainClient&&) noexcept = default;
PlainClient& PlainClient::operator=(PlainClient&&) noexcept = default;
PlainClient::~PlainClient() = default;

Answer PlainClient::send(const std::string& method, const std::string& target, const std::string& body,
                         const Headers& headers) {
    auto& [context, endpoint, socket, buffer] = *state_;
    if (!socket.is_open()) socket.connect(endpoint);
    http::request<http::string_body> request;
    request.method_string(method);
    request.target(target);
    request.set(http::field::host, "127.0.0.1");
    for (const auto& [name, value] : headers)
        request.set(name, value);
    request.body() = body;
    request.prepare_payload();
    http::response_parser<http::string_body> parser;
    parser.body_limit(boost::none);
    try {
        http::write(socket, request);
        http::read(socket, buffer, parser);
    } catch (const boost::system::system_error&) {
        socket.close();
        buffer.clear();
        throw;
    }
    const auto& response = parser.get();
    Answer answer{static_cast<int>(response.result_int()), {}, response.body()};
    for (const auto& field : response) {
        answer.headers[platform::lowerCased(std::string(field.name_string()))] = std::string(field.value());
    }
    if (!response.keep_alive()) socket.close();
    return answer;
}

Answer PlainClient::postJson(const std::string& target, const std::string& body) {
    return send("POST", target, body, {{"Content-Type", "application/json"}});
}

Answer PlainClient::postForm(const std::string& target, const std::string& body) {
    return send("POST", target, body, {{"Content-Type", "application/x-www-form-urlencoded"}});
}

std::string PlainClient::exchangeBytes(const std::string& bytes) {
    Tcp::socket socket(state_->context);
    socket.connect(state_->endpoint);
    boost::system::error_code problem;
    asio::write(socket, asio::buffer(bytes), problem);
    socket.shutdown(Tcp::socket::shutdown_send, problem);
    std::string answer;
    asio::read(socket, asio::dynamic_buffer(answer), problem);
    return answer;
}

}  // namespace vorlinden::tests
