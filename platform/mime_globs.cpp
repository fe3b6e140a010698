#include "platform/mime_globs.h"

#include <charconv>
#include <fstream>
#include <istream>

#include "platform/text.h"
#include "platform/xdg.h"

namespace vorlinden::platform {

namespace {

// One line of globs2: weight:type:glob[:flag,flag...]
struct Line {
    int weight = 0;
    std::string type;
    std::string glob;
    bool caseSensitive = false;
};

std::string_view takeField(std::string_view& rest) {
    const std::size_t colon = rest.find(':');
    const std::string_view field = rest.substr(0, colon);
    rest.remove_prefix(colon == std::string_view::npos ? rest.size() : colon + 1);
    return field;
}

std::optional<Line> parseLine(std::string_view text) {
    if (text.empty() || text.front() == '#') return std::nullopt;
    Line line;
    const std::string_view weight = takeField(text);
    const auto [end, error] = std::from_chars(weight.data(), weight.data() + weight.size(), line.weight);
    if (error != std::errc() || end != weight.data() + weight.size()) return std::nullopt;
    line.type = takeField(text);
    line.glob = takeField(text);
    const std::string_view flags = takeField(text);
    line.caseSensitive = flags == "cs" || flags.starts_with("cs,") || flags.ends_with(",cs");
    if (line.type.empty() || line.glob.empty()) return std::nullopt;
    return line;
}

}  // namespace

void MimeGlobs::read(std::istream& globs2) {
    for (std::string text; std::getline(globs2, text);) {
        std::optional<Line> line = parseLine(text);
        if (!line) continue;
        if (line->glob == "__NOGLOBS__") {
            forget(line->type);
        } else if (line->glob.starts_with("*.") && line->glob.find_first_of("*?[", 2) == std::string::npos) {
            add(line->glob.substr(2), {std::move(line->type), line->weight, line->caseSensitive});
        }
    }
}

void MimeGlobs::add(std::string extension, Entry entry) {
    if (!entry.caseSensitive) extension = lowerCased(extension);
    const auto found = entries_.find(extension);
    if (found == entries_.end()) {
        entries_.emplace(std::move(extension), std::move(entry));
    } else if (entry.weight >= found->second.weight) {
        found->second = std::move(entry);
    }
}

void MimeGlobs::forget(const std::string& type) {
    std::erase_if(entries_, [&](const auto& entry) { return entry.second.type == type; });
}

std::optional<std::string> MimeGlobs::typeFor(std::string_view extension) const {
    if (const auto exact = entries_.find(std::string(extension)); exact != entries_.end())
        return exact->second.type;
    const auto lower = entries_.find(lowerCased(extension));
    if (lower == entries_.end() || lower->second.caseSensitive) return std::nullopt;
    return lower->second.type;
}

MimeGlobs MimeGlobs::ofSystem() {
    MimeGlobs globs;
    const std::vector<std::filesystem::path> folders = xdgDataFolders();
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        std::ifstream file(*folder / "mime" / "globs2");
        globs.read(file);
    }
    return globs;
}

}  // namespace vorlinden::platform
