// The roots of every failure in the system.
//
// Failures are exceptions of small typed families, plain values that compare field by field and travel
// unchanged from where they arise to a program's edge. Each family derives from Failure, so that a `main` can
// print any of them; nobody in the middle catches Failure itself.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace vorlinden::platform {

// Base of all failure types. `what()` is the text for a person, composed once by the constructor of the
// concrete type. Two failures are equal when their own fields are; the base adds nothing to a comparison.
class Failure : public std::exception {
 public:
    const char* what() const noexcept override { return text_.c_str(); }
    friend bool operator==(const Failure&, const Failure&) { return true; }

 protected:
    explicit Failure(std::string text) : text_(std::move(text)) {}
    Failure(const Failure&) = default;
    Failure& operator=(const Failure&) = default;
    Failure(Failure&&) = default;
    Failure& operator=(Failure&&) = default;

 private:
    std::string text_;
};

// A system call on a file failed: errno(3) and the path concerned (empty where there is none).
struct FileError : Failure {
    FileError(int code, std::string path);

    // A file that had to be there is not (ENOENT).
    static FileError noSuchFile(std::string path = {});

    int code;
    std::string path;
    bool operator==(const FileError&) const = default;
};

// The task that ran was cancelled by its owner.
struct CancelledError : Failure {
    CancelledError() : Failure("The operation was cancelled.") {}
    bool operator==(const CancelledError&) const = default;
};

// A request got no answer: name resolution, connection, TLS, time-out. `cancelled` is told apart because it
// says nothing about the network.
struct URLError : Failure {
    enum class Code {
        cancelled,
        timedOut,
        cannotFindHost,
        cannotConnect,
        connectionLost,
        secureConnectionFailed,
        badResponse,
        other
    };

    explicit URLError(Code code, std::string detail = {});

    Code code;
    std::string detail;  // the library's own words, for a person to read; never a token
    bool operator==(const URLError&) const = default;
};

}  // namespace vorlinden::platform
