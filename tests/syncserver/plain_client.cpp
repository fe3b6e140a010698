#include "tests/syncserver/plain_client.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include "platform/json.h"
#include "platform/text.h"

namespace vorlinden::tests {

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

Answer PlainClient::send(const std::string& method, const std::string& target, const std::string& body,
                         const Headers& headers) {
    platform::URLRequest request{.url = platform::URL::parse(url_ + target).value(), .method = method};
    request.headers = headers;
    if (method != "GET") request.body = platform::Data::copyOf(body);
    platform::TaskPool pool(1);
    const std::function<platform::Task<platform::URLResponse>()> send = [&] {
        return session_->send(request);
    };
    const auto response = platform::runBlocking(pool.executor(), send);
    Answer answer{response.http->status, {}, std::string(response.body.view())};
    for (const auto& [name, value] : response.http->headers)
        answer.headers[platform::lowerCased(name)] = value;
    return answer;
}

Answer PlainClient::postJson(const std::string& target, const std::string& body) {
    return send("POST", target, body, {{"Content-Type", "application/json"}});
}

Answer PlainClient::postForm(const std::string& target, const std::string& body) {
    return send("POST", target, body, {{"Content-Type", "application/x-www-form-urlencoded"}});
}

std::string PlainClient::exchangeBytes(const std::string& bytes) {
    namespace asio = boost::asio;
    asio::io_context context;
    asio::ip::tcp::socket socket(context);
    const auto port = static_cast<std::uint16_t>(std::stoi(url_.substr(url_.rfind(':') + 1)));
    socket.connect({asio::ip::make_address("127.0.0.1"), port});
    boost::system::error_code problem;
    asio::write(socket, asio::buffer(bytes), problem);
    socket.shutdown(asio::ip::tcp::socket::shutdown_send, problem);
    std::string answer;
    asio::read(socket, asio::dynamic_buffer(answer), problem);
    return answer;
}

}  // namespace vorlinden::tests
