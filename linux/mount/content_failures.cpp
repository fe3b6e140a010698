#include "linux/mount/content_failures.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <sys/statvfs.h>

namespace vorlinden::mount {

namespace protocol = platform::fileprovider;
using Kind = ContentFailure::Kind;

namespace {

// The most that a text takes.
constexpr std::int64_t largestText = std::int64_t{4} << 20;

const char* sentence(Kind kind) {
    switch (kind) {
        case Kind::unreachable:
            return "The server can't be reached.";
        case Kind::timedOut:
            return "The server didn't deliver the file in time.";
        case Kind::signedOut:
            return "Nobody is signed in: run `vorlinden login`.";
        case Kind::gone:
            return "The file is gone, or can't be fetched yet.";
        case Kind::extensionFailed:
            return "The catalogue can't be used at the moment.";
        case Kind::noSpace:
            return "The disk that holds the cache is full.";
        case Kind::localDisk:
            return "The cache folder can't be used.";
        case Kind::cancelled:
            return "The reader gave up.";
    }
    return "";
}

bool isFull(const std::filesystem::path& folder, const Item& item) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0) return false;
    return std::uint64_t{status.f_bavail} * status.f_frsize < roomFor(item);
}

}  // namespace

std::uint64_t roomFor(const Item& item) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(item.documentSize.value_or(largestText), 1));
}

ContentFailure contentFailure(Kind kind) {
    return {kind, sentence(kind)};
}

ContentFailure contentFailure(const platform::FileError& failure) {
    if (failure.code == ENOSPC || failure.code == EDQUOT) return contentFailure(Kind::noSpace);
    return {Kind::localDisk, std::string("The cache folder can't be used (") +
                                 std::generic_category().message(failure.code) + ")."};
}

ContentFailure contentFailure(const protocol::Error& error, const Item& item,
                              const std::filesystem::path& folder) {
    if (error.domain != protocol::errorDomain) return contentFailure(Kind::extensionFailed);
    switch (error.code) {
        case protocol::notAuthenticated:
            return contentFailure(Kind::signedOut);
        case protocol::noSuchItem:
            return contentFailure(Kind::gone);
        case protocol::serverUnreachable:
            return contentFailure(isFull(folder, item) ? Kind::noSpace : Kind::unreachable);
        default:
            return contentFailure(Kind::extensionFailed);
    }
}

}  // namespace vorlinden::mount
