#include "linux/server/admin_client.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/file_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include "linux/server/admin_api.h"
#include "platform/json.h"
#include "platform/url.h"

namespace vorlinden::server {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

// Host and port of "http://HOST:PORT".
std::pair<std::string, std::string> placeOf(const std::string& url) {
    const auto start = std::string("http://").size();
    const auto colon = url.rfind(':');
    auto host = url.substr(start, colon - start);
    if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
    return {host, url.substr(colon + 1)};
}

std::string targetOf(const std::string& verb, const AdminParameters& parameters) {
    std::string target = "/admin/" + verb;
    for (const auto& [name, value] : parameters) {
        target += target.find('?') == std::string::npos ? '?' : '&';
        target += name + "=" + platform::percentEncoded(value);
    }
    return target;
}

http::file_body::value_type opened(const std::filesystem::path& path) {
    http::file_body::value_type file;
    boost::system::error_code problem;
    file.open(path.c_str(), beast::file_mode::scan, problem);
    if (problem) throw platform::FileError(problem.value(), path.string());
    return file;
}

template <class Body>
http::response<http::string_body> exchange(beast::tcp_stream& stream, http::request<Body>& request,
                                           const AdminContact& contact) {
    request.set(http::field::host, "localhost");
    request.set(http::field::authorization, "Bearer " + contact.secret);
    request.keep_alive(false);
    request.prepare_payload();
    http::write(stream, request);
    beast::flat_buffer buffer;
    http::response<http::string_body> response;
    http::read(stream, buffer, response);
    return response;
}

std::string messageIn(const std::string& body) {
    try {
        const platform::JSONDocument document(body);
        return document.root().required("error").requiredString("message");
    } catch (const platform::JSONError&) {
        return "The server gave no reason.";
    }
}

http::response<http::string_body> posted(const AdminContact& contact, const std::string& target,
                                         const std::optional<std::filesystem::path>& body) {
    asio::io_context context;
    beast::tcp_stream stream(context);
    const auto [host, port] = placeOf(contact.url);
    stream.connect(asio::ip::tcp::resolver(context).resolve(host, port));
    if (body) {
        http::request<http::file_body> request(http::verb::post, target, 11);
        request.body() = opened(*body);
        return exchange(stream, request, contact);
    }
    http::request<http::string_body> request(http::verb::post, target, 11);
    return exchange(stream, request, contact);
}

}  // namespace

std::string askServer(const std::filesystem::path& data, const std::string& verb,
                      const AdminParameters& parameters, const std::optional<std::filesystem::path>& body) {
    const auto contact = AdminContact::read(data);
    if (!contact)
        throw AdminFailure("No server is running on " + data.string() + ". Start `vorlinden server` first.");
    try {
        const auto response = posted(*contact, targetOf(verb, parameters), body);
        if (response.result_int() / 100 != 2) throw AdminFailure(messageIn(response.body()));
        return response.body();
    } catch (const boost::system::system_error& error) {
        throw AdminFailure("The server on " + data.string() + " doesn't answer (" + error.code().message() +
                           "). Is it still running?");
    }
}

}  // namespace vorlinden::server
