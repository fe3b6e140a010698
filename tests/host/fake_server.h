// The sync server as the host's tests need it: brains with an answer each, and the sign-in's endpoints.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "synckit/types.h"
#include "tests/support/fake_url_session.h"

namespace vorlinden::tests {

// Answers the requests of a FakeURLSession. A test changes the fields between requests. Lives as long as the
// session is asked.
class FakeServer {
 public:
    using Answer = FakeURLSession::Answer;

    struct FakeBrain {
        std::string slug;
        // What "changes" answers, given the cursor that was asked with ("" for none).
        std::function<Answer(const std::string& cursor)> changes;
    };

    explicit FakeServer(FakeURLSession& session);

    std::map<UUID, FakeBrain> brains;
    std::vector<std::string> devices;  // ids; the n-th registered one is "device-n"
    std::string issuer = "https://sync.test";
    std::map<std::string, Answer> instead;        // by path: this answer in place of the usual one
    std::map<std::string, std::string> contents;  // text files of all brains, by path; puts change them
    std::function<void()> onWrite = [] {};        // before a put, a move or a deletion
    std::map<std::string, Answer> insteadOfPut;   // by the file's path

    // Bodies of the requests to a path, in order.
    std::vector<std::string> bodies(const std::string& path) const;
    std::size_t count(const std::string& path) const { return bodies(path).size(); }

    // An entry for each, whose cursor is "at-" + path; a path that comes twice is changed the second time.
    static Answer feed(const std::vector<std::string>& newTextFiles, const std::string& cursor);
    static Answer nothingNew(const std::string& cursor) { return feed({}, cursor); }
    static Answer snapshot(const std::vector<std::string>& textFiles, const std::string& cursor);
    static Answer failure(int status, const std::string& code);
    static Answer away() { return platform::URLError(platform::URLError::Code::cannotConnect); }

 private:
    Answer answer(const platform::URLRequest& request);
    std::string brainsJSON() const;
    Answer changes(const platform::URLRequest& request, const std::string& path);
    Answer file(const platform::URLRequest& request);
    Answer registerDevice();

    FakeURLSession& session_;
};

}  // namespace vorlinden::tests
