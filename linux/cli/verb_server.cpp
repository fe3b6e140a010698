// vorlinden server --data DIR [--listen ADDRESS:PORT] [--import SLUG=FOLDER]...
#include <charconv>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "linux/cli/verbs.h"
#include "linux/server/sync_server.h"

namespace vorlinden::cli {
namespace {

struct Options {
    server::ServerOptions server;
    std::string listen = "127.0.0.1:0";
    std::vector<std::string> imports;
    std::vector<std::string> readOnly;
    std::int64_t tokenLifetime = 3600;
    std::int64_t delay = 0;
    std::string missingDelete = "200";
};

// Splits at the first `separator`, which no slug holds.
std::pair<std::string, std::string> split(const std::string& text, char separator, const char* form) {
    const auto at = text.find(separator);
    if (at == std::string::npos || at == 0 || at + 1 == text.size()) {
        throw UsageError("\"" + text + "\" should look like " + form + ".");
    }
    return {text.substr(0, at), text.substr(at + 1)};
}

void setAddress(server::ServerOptions& options, const std::string& listen) {
    const auto colon = listen.rfind(':');
    const auto port = colon == std::string::npos ? "" : listen.substr(colon + 1);
    const auto [end, problem] = std::from_chars(port.data(), port.data() + port.size(), options.port);
    if (port.empty() || problem != std::errc() || end != port.data() + port.size()) {
        throw UsageError("\"" + listen + "\" should look like 127.0.0.1:8080; port 0 takes a free one.");
    }
    options.address = listen.substr(0, colon);
    if (options.address.starts_with('[') && options.address.ends_with(']')) {
        options.address = options.address.substr(1, options.address.size() - 2);
    }
}

server::ServerOptions serverOptions(const Options& options) {
    auto result = options.server;
    setAddress(result, options.listen);
    for (const auto& text : options.imports) {
        const auto [slug, folder] = split(text, '=', "SLUG=FOLDER");
        result.imports.push_back({slug, folder});
    }
    for (const auto& text : options.readOnly) {
        const auto [slug, path] = split(text, ':', "SLUG:PATH");
        result.readOnly.push_back({slug, path});
    }
    result.tokenLifetime = std::chrono::seconds(options.tokenLifetime);
    result.delay = std::chrono::milliseconds(options.delay);
    result.missingDeleteIs404 = options.missingDelete == "404";
    return result;
}

// Until somebody wants the program to end.
void waitForSignal(const sigset_t& signals) {
    int signal = 0;
    sigwait(&signals, &signal);
}

int run(const Options& options) {
    // Before any thread, so that all of them leave the signals to waitForSignal().
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    server::SyncServer server(serverOptions(options));
    for (const auto& report : server.imports())
        std::cerr << server::summary(report) << "\n";
    std::cout << "listening on " << server.url() << std::endl;
    waitForSignal(signals);
    server.stop();
    return done;
}

}  // namespace

void addServer(Program& program) {
    const auto options = std::make_shared<Options>();
    auto& verb =
        program.addVerb("server", "Run a sync server on this machine", [options] { return run(*options); });
    verb.add_option("--data", options->server.data, "Folder for everything the server keeps")->required();
    verb.add_option("--listen", options->listen, "Address of this machine and port; port 0 takes a free one")
        ->type_name("127.0.0.1:PORT")
        ->capture_default_str();
    verb.add_option(
            "--import", options->imports,
            "Make the brain SLUG of a folder, or bring it up to date with the folder; may be repeated")
        ->type_name("SLUG=FOLDER")
        ->take_all();
    verb.add_flag("--auto-approve", options->server.autoApprove, "Let every sign-in through without asking");
    verb.add_option("--token-lifetime", options->tokenLifetime, "How long an access token is good")
        ->type_name("SECONDS")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{31'536'000}))
        ->capture_default_str();
    verb.add_option("--keep-feed", options->server.keepFeed,
                    "Entries of a brain's feed to keep; who is further behind is given a snapshot")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    verb.add_option("--read-only", options->readOnly,
                    "Part of a brain that members can't change; may be repeated")
        ->type_name("SLUG:PATH")
        ->take_all();
    verb.add_option("--max-upload", options->server.maxUpload, "Largest file that is taken")
        ->type_name("BYTES")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    const auto trial = "For trial";
    verb.add_option("--missing-delete", options->missingDelete, "Status for deleting what isn't there")
        ->check(CLI::IsMember({"200", "404"}))
        ->capture_default_str()
        ->group(trial);
    verb.add_option("--delay", options->delay, "Added to every request")
        ->type_name("MILLISECONDS")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{3'600'000}))
        ->group(trial);
}

}  // namespace vorlinden::cli
