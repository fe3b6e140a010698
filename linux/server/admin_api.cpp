#include "linux/server/admin_api.h"

#include <charconv>

#include <openssl/crypto.h>

#include "linux/server/refusal.h"
#include "platform/files.h"
#include "platform/json.h"

namespace vorlinden::server {

namespace {

namespace fs = std::filesystem;
using platform::JSONObjectBuilder;

constexpr const char* contactFile = "admin";

std::int64_t numberOf(const Parameters& query, const char* name, std::int64_t otherwise) {
    const auto text = query.find(name);
    if (!text) return otherwise;
    std::int64_t number = 0;
    const auto [end, problem] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (problem != std::errc() || end != text->data() + text->size()) {
        throw Refusal::badRequest("\"" + std::string(name) + "\" is no number.");
    }
    return number;
}

std::optional<bool> flagOf(const Parameters& query, const char* name) {
    const auto text = query.find(name);
    if (!text) return std::nullopt;
    return *text == "true";
}

bool isSame(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string cursorJson(const std::string& cursor) {
    return JSONObjectBuilder().add("cursor", cursor).text().text;
}

}  // namespace

bool AdminApi::serves(const RequestHead& head) {
    return head.path.size() == 2 && head.path[0] == "admin";
}

BodyPlan AdminApi::admit(const RequestHead& head) const {
    if (!isSame(head.bearerToken(), secret_)) throw Refusal::unauthenticated();
    if (head.method != "POST") throw Refusal(404, "NO_SUCH_ENDPOINT", "There is no such endpoint.");
    if (head.path[1] == "put") return {BodyPlan::Into::upload, UINT64_MAX};
    return {BodyPlan::Into::memory, 16 * 1024 * 1024};
}

Response AdminApi::answer(const Request& request) const {
    return Response::json(perform(request.head.path[1], request));
}

std::string AdminApi::perform(const std::string& verb, const Request& request) const {
    const auto& query = request.head.query;
    const auto& admin = administrator_;
    const auto slug = query.text("slug");
    if (verb == "put")
        return cursorJson(admin.put(slug, query.required("path"), *request.upload, query.find("title")));
    if (verb == "mv") return cursorJson(admin.move(slug, query.required("path"), query.required("to")));
    if (verb == "rm") return cursorJson(admin.remove(slug, query.required("path")));
    if (verb == "mkdir") return cursorJson(admin.makeFolder(slug, query.required("path")));
    if (verb == "reset") return cursorJson(admin.reset(slug, flagOf(query, "folders")));
    if (verb == "import") {
        return JSONObjectBuilder()
            .add("summary", summary(admin.import(slug, query.required("folder"))))
            .text()
            .text;
    }
    if (verb == "grant") {
        admin.grant(slug);
    } else if (verb == "revoke") {
        admin.revoke(slug);
    } else if (verb == "expire") {
        admin.expireAccessTokens();
    } else if (verb == "sign-out") {
        admin.endSessions();
    } else if (verb == "fault") {
        addFault(request);
    } else {
        throw Refusal(404, "NO_SUCH_ENDPOINT", "There is no such endpoint.");
    }
    return "{}";
}

void AdminApi::addFault(const Request& request) const {
    const auto& query = request.head.query;
    if (query.find("clear")) return faults_.clear();
    Fault fault;
    fault.method = query.text("method");
    fault.targetContains = query.text("match");
    fault.skip = numberOf(query, "skip", 0);
    fault.times = numberOf(query, "times", 1);
    const auto drop = query.text("drop");
    if (!drop.empty()) {
        fault.kind = drop == "before" ? Fault::Kind::dropBefore : Fault::Kind::dropAfter;
    } else if (query.find("delay")) {
        fault.kind = Fault::Kind::delay;
        fault.delay = std::chrono::milliseconds(numberOf(query, "delay", 0));
    } else {
        fault.response.status = static_cast<int>(numberOf(query, "status", 503));
        fault.response.contentType = query.find("type").value_or("application/json");
        fault.response.body = platform::Data(request.body);
    }
    faults_.add(std::move(fault));
}

void AdminContact::write(const fs::path& data) const {
    platform::posixFileSystem()->writeAtomically(platform::Data(url + "\n" + secret + "\n"),
                                                 data / contactFile);
}

std::optional<AdminContact> AdminContact::read(const fs::path& data) {
    const auto files = platform::posixFileSystem();
    if (!files->exists(data / contactFile)) return std::nullopt;
    const std::string text(files->read(data / contactFile).view());
    const auto end = text.find('\n');
    if (end == std::string::npos || !text.ends_with('\n')) return std::nullopt;
    return AdminContact{text.substr(0, end), text.substr(end + 1, text.size() - end - 2)};
}

void AdminContact::forget(const fs::path& data) {
    std::error_code ignored;  // a contact that leads nowhere is told apart by whoever uses it
    fs::remove(data / contactFile, ignored);
}

}  // namespace vorlinden::server
