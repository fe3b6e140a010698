#include "linux/mount/shown_names.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "platform/file_types.h"

namespace vorlinden::mount {
namespace {

constexpr std::size_t longestExtension = 16;

// FNV-1a: no secret is kept by it, and it must never change.
std::uint64_t stableHash(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const unsigned char byte : text)
        hash = (hash ^ byte) * 0x100000001b3;
    return hash;
}

std::string_view withoutTornCharacter(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80)
        --limit;
    return text.substr(0, limit);
}

std::string cleaned(std::string_view name) {
    if (name.empty() || name == "." || name == "..") return "unnamed";
    std::string result(name);
    for (char& byte : result)
        if (byte == '/' || byte == '\0') byte = '_';
    return result;
}

// "report.txt" becomes "report ~1a2b3c4d.txt": the extension stays, since programs go by it. Further attempts
// are longer.
std::string substitute(const NamedItem& item, int attempt) {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx",
                  static_cast<unsigned long long>(stableHash(item.identifier)));
    std::string mark = " ~" + std::string(digits, attempt == 0 ? 8 : 16);
    if (attempt > 1) mark += "-" + std::to_string(attempt);

    const std::string name = cleaned(item.name);
    std::string extension = platform::pathExtension(name);
    if (!extension.empty()) extension.insert(0, ".");
    if (extension.size() > longestExtension) extension.clear();
    const std::string_view stem(name.data(), name.size() - extension.size());
    const auto room = maximumNameBytes - mark.size() - extension.size();
    return std::string(withoutTornCharacter(stem, room)) + mark + extension;
}

bool precedes(const NamedItem& a, const NamedItem& b) {
    return std::tie(a.stray, a.identifier) < std::tie(b.stray, b.identifier);
}

}  // namespace

bool canBeShown(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.size() <= maximumNameBytes &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

std::vector<std::string> shownNames(const std::vector<NamedItem>& items) {
    std::vector<std::size_t> order(items.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return precedes(items[a], items[b]); });

    std::unordered_set<std::string> taken;
    std::vector<std::string> result(items.size());
    std::vector<std::size_t> others;
    for (const auto index : order) {
        const auto& item = items[index];
        if (canBeShown(item.name) && taken.emplace(item.name).second)
            result[index] = item.name;
        else
            others.push_back(index);
    }
    for (const auto index : others)
        for (int attempt = 0; result[index].empty(); ++attempt)
            if (auto name = substitute(items[index], attempt); taken.insert(name).second)
                result[index] = std::move(name);
    return result;
}

}  // namespace vorlinden::mount
