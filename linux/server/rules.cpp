#include "linux/server/rules.h"

#include <algorithm>
#include <array>

#include "platform/text.h"

namespace vorlinden::server {

namespace {

constexpr std::size_t maxPathBytes = 4096;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::array<std::string_view, 4> junkNames = {".DS_Store", ".localized", "Icon\r", ".gitkeep"};

bool isValidComponent(std::string_view name) {
    return !name.empty() && name != "." && name != "..";
}

}  // namespace

bool isText(std::string_view bytes) {
    return bytes.size() <= maxTextBytes && !bytes.starts_with(byteOrderMark) &&
           bytes.find('\0') == std::string_view::npos && platform::isValidUTF8(bytes) &&
           platform::utf16Length(bytes) <= maxTextLength;
}

bool isJunk(std::string_view path) {
    return std::ranges::count(junkNames, lastComponent(path)) != 0;
}

bool isValidPath(std::string_view path) {
    if (path.size() > maxPathBytes || path.find('\\') != std::string_view::npos ||
        path.find('\0') != std::string_view::npos || !platform::isValidUTF8(path)) {
        return false;
    }
    while (true) {
        const auto slash = path.find('/');
        if (!isValidComponent(path.substr(0, slash))) return false;
        if (slash == std::string_view::npos) return true;
        path.remove_prefix(slash + 1);
    }
}

std::string titleOf(std::string_view path) {
    const auto name = lastComponent(path);
    const auto dot = name.rfind('.');
    return std::string(dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot));
}

std::string_view lastComponent(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder.empty() || path == folder) return true;
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

}  // namespace vorlinden::server
