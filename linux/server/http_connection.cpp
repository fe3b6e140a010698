#include "linux/server/http_connection.h"

#include <algorithm>
#include <span>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/span_body.hpp>
#include <boost/beast/http/write.hpp>

#include "linux/server/refusal.h"
#include "platform/url.h"

namespace vorlinden::server {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using namespace std::chrono_literals;

constexpr auto idleLimit = 120s;
constexpr auto pieceLimit = 60s;  // without a byte of a body
constexpr auto lingerLimit = 3s;  // for a client that still sends what was refused
constexpr std::uint32_t headerLimit = 64 * 1024;
constexpr std::size_t pieceSize = 256 * 1024;
constexpr std::uint64_t cheapToDiscard = 1024 * 1024;
constexpr std::uint64_t slowestReader = 64 * 1024;  // bytes a second

constexpr auto asTuple = asio::as_tuple(asio::use_awaitable);

std::vector<std::string> componentsOf(std::string_view path) {
    std::vector<std::string> components;
    while (!path.empty()) {
        path.remove_prefix(1);  // the "/" before the component
        const auto end = std::min(path.find('/'), path.size());
        components.push_back(platform::percentDecoded(path.substr(0, end)).value_or("%"));
        path.remove_prefix(end);
    }
    return components;
}

template <class Message>
RequestHead headOf(const Message& message, std::optional<std::uint64_t> contentLength) {
    const std::string_view target(message.target().data(), message.target().size());
    const auto question = std::min(target.find('?'), target.size());
    const auto value = [&](http::field field) { return std::string(message[field]); };
    return {.method = std::string(message.method_string()),
            .target = std::string(target),
            .path = target.starts_with('/') ? componentsOf(target.substr(0, question))
                                            : std::vector<std::string>{},
            .query = Parameters::ofQuery(target.substr(std::min(question + 1, target.size()))),
            .host = value(http::field::host),
            .authorization = value(http::field::authorization),
            .contentType = value(http::field::content_type),
            .contentLength = contentLength};
}

}  // namespace

// A request with its answer in the making.
struct HttpConnection::Exchange {
    http::request_parser<http::buffer_body> parser;
    Request request;
    bool expectsContinue = false;
    std::optional<Fault> fault;
    BodyPlan plan{BodyPlan::Into::nowhere, UINT64_MAX};
    std::optional<Response> refusal;

    bool hits(Fault::Kind kind) const { return fault && fault->kind == kind; }
    bool isCheapToDiscard() const {
        const auto length = request.head.contentLength;
        return length && *length <= cheapToDiscard && !expectsContinue;
    }
    bool isTooLong() const { return request.head.contentLength.value_or(0) > plan.limit; }
    Refusal tooLarge() const { return Refusal::tooLarge(static_cast<std::int64_t>(plan.limit)); }
};

HttpConnection::HttpConnection(const ConnectionContext& context, asio::ip::tcp::socket socket)
    : context_(context), stream_(std::move(socket)) {
    stream_.socket().set_option(asio::ip::tcp::no_delay(true));
}

asio::awaitable<void> HttpConnection::run(std::shared_ptr<HttpConnection> self) {
    bool goesOn = true;
    while (goesOn && !self->closing_) {
        goesOn = co_await self->serveOne();  // as the loop's condition, g++ 12 compiles it to a trap
        self->busy_ = false;
    }
}

void HttpConnection::close() {
    asio::post(stream_.get_executor(), [self = shared_from_this()] {
        self->closing_ = true;
        if (!self->busy_) self->stream_.close();
    });
}

asio::awaitable<bool> HttpConnection::serveOne() {
    Exchange exchange;
    if (!co_await readHead(exchange)) co_return false;
    admit(exchange);
    const bool bodyTaken = co_await takeBody(exchange);
    if (exchange.hits(Fault::Kind::dropBefore)) {
        co_await dropMidway();
        co_return false;
    }
    const auto response = co_await answer(exchange);
    if (exchange.hits(Fault::Kind::dropAfter)) {
        co_await dropMidway();
        co_return false;
    }
    const bool keepAlive = bodyTaken && exchange.parser.get().keep_alive() && !closing_;
    co_await send(response, keepAlive);
    if (!bodyTaken) co_await discardRest();
    co_return keepAlive;
}

asio::awaitable<bool> HttpConnection::readHead(Exchange& exchange) {
    auto& parser = exchange.parser;
    parser.header_limit(headerLimit);
    parser.body_limit(boost::none);
    stream_.expires_after(idleLimit);
    const auto [problem, size] = co_await http::async_read_header(stream_, buffer_, parser, asTuple);
    busy_ = true;
    if (!problem) {
        const auto length = parser.content_length();
        exchange.request.head =
            headOf(parser.get(), length ? std::optional(std::uint64_t{*length}) : std::nullopt);
        exchange.expectsContinue = beast::iequals(parser.get()[http::field::expect], "100-continue");
        co_return true;
    }
    const bool isGarbage = problem.category() == http::make_error_code(http::error::bad_method).category() &&
                           problem != http::error::end_of_stream && problem != http::error::partial_message;
    if (isGarbage) {
        const auto refusal = std::make_exception_ptr(Refusal::badRequest("This is no HTTP request."));
        const auto response = context_.application.failure(RequestHead(), refusal);
        co_await send(response, false);
    }
    co_return false;
}

void HttpConnection::admit(Exchange& exchange) {
    auto& application = context_.application;
    const auto& head = exchange.request.head;
    if (application.isOnTrial(head)) exchange.fault = context_.faults.take(head);
    if (exchange.hits(Fault::Kind::answer)) return;
    try {
        exchange.plan = application.admit(head);
        if (exchange.isTooLong()) throw exchange.tooLarge();
    } catch (...) {
        exchange.refusal = application.failure(head, std::current_exception());
    }
}

asio::awaitable<bool> HttpConnection::takeBody(Exchange& exchange) {
    if (exchange.parser.is_done() && exchange.plan.into != BodyPlan::Into::upload) co_return true;
    if (exchange.refusal) {
        if (!exchange.isCheapToDiscard()) co_return false;
        exchange.plan = {BodyPlan::Into::nowhere, UINT64_MAX};
    }
    if (exchange.expectsContinue) {
        constexpr std::string_view proceed = "HTTP/1.1 100 Continue\r\n\r\n";
        co_await asio::async_write(stream_, asio::buffer(proceed), asio::use_awaitable);
    }
    co_await receive(exchange);
    co_return exchange.parser.is_done();
}

asio::awaitable<void> HttpConnection::receive(Exchange& exchange) {
    auto& [parser, request, expectsContinue, fault, plan, refusal] = exchange;
    if (plan.into == BodyPlan::Into::upload)
        request.upload = std::make_unique<IncomingContent>(context_.storage);
    std::vector<char> piece(
        std::min<std::uint64_t>(pieceSize, request.head.contentLength.value_or(pieceSize)));
    std::uint64_t total = 0;
    while (!parser.is_done()) {
        parser.get().body() = {piece.data(), piece.size(), true};
        stream_.expires_after(pieceLimit);
        const auto [problem, size] = co_await http::async_read(stream_, buffer_, parser, asTuple);
        if (problem && problem != http::error::need_buffer) throw boost::system::system_error(problem);
        const std::string_view bytes(piece.data(), piece.size() - parser.get().body().size);
        total += bytes.size();
        try {
            if (total > plan.limit) throw exchange.tooLarge();
            if (plan.into == BodyPlan::Into::upload) request.upload->add(bytes);
            if (plan.into == BodyPlan::Into::memory) request.body.append(bytes);
        } catch (...) {
            refusal = context_.application.failure(request.head, std::current_exception());
            co_return;
        }
    }
}

asio::awaitable<Response> HttpConnection::answer(const Exchange& exchange) {
    if (context_.application.isOnTrial(exchange.request.head)) co_await wait(context_.delay);
    if (exchange.hits(Fault::Kind::delay)) co_await wait(exchange.fault->delay);
    if (exchange.hits(Fault::Kind::answer)) co_return exchange.fault->response;
    if (exchange.refusal) co_return *exchange.refusal;
    const auto& request = exchange.request;
    try {
        if (request.upload) request.upload->finish();
        co_return context_.application.answer(request);
    } catch (...) {
        co_return context_.application.failure(request.head, std::current_exception());
    }
}

asio::awaitable<void> HttpConnection::send(const Response& response, bool keepAlive) {
    http::response<http::span_body<const char>> message;
    message.result(static_cast<unsigned>(response.status));
    if (!response.contentType.empty()) message.set(http::field::content_type, response.contentType);
    for (const auto& [name, value] : response.headers)
        message.set(name, value);
    const auto bytes = response.body.view();
    message.body() = beast::span<const char>(bytes.data(), bytes.size());
    message.keep_alive(keepAlive);
    message.prepare_payload();
    stream_.expires_after(pieceLimit + std::chrono::seconds(bytes.size() / slowestReader));
    co_await http::async_write(stream_, message, asio::use_awaitable);
}

asio::awaitable<void> HttpConnection::wait(std::chrono::milliseconds duration) {
    if (duration.count() <= 0) co_return;
    asio::steady_timer timer(stream_.get_executor(), duration);
    co_await timer.async_wait(asio::use_awaitable);
}

// Closing while the client sends would reset the connection and take the answer with it.
asio::awaitable<void> HttpConnection::discardRest() {
    boost::system::error_code problem;
    stream_.socket().shutdown(asio::ip::tcp::socket::shutdown_send, problem);
    stream_.expires_after(lingerLimit);
    std::vector<char> scratch(pieceSize);
    while (!problem) {
        const auto [end, size] = co_await stream_.async_read_some(asio::buffer(scratch), asTuple);
        problem = end;
    }
}

// A connection that ends before the first byte of an answer is taken for an idle one that was closed, and
// clients repeat the request by themselves. After part of a status line they know that an answer was lost.
asio::awaitable<void> HttpConnection::dropMidway() {
    constexpr std::string_view torn = "HTTP/1.1 2";
    stream_.expires_after(pieceLimit);
    co_await asio::async_write(stream_, asio::buffer(torn), asio::use_awaitable);
    stream_.close();
}

}  // namespace vorlinden::server
