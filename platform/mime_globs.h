// Extensions and their types, as the shared MIME database's `globs2` files list them.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorlinden::platform {

// A value, built once and then only read. Of all globs only the `*.extension` ones count.
class MimeGlobs {
 public:
    // Later calls overrule earlier ones where the weight is equal or higher, so the user's own folder comes
    // last. Lines that can't be understood are passed over, as by every reader of this database.
    void read(std::istream& globs2);

    // The MIME name for an extension without its dot: as written first, then in lower case.
    std::optional<std::string> typeFor(std::string_view extension) const;

    // What the XDG data folders of this process's environment hold.
    static MimeGlobs ofSystem();

 private:
    struct Entry {
        std::string type;
        int weight = 0;
        bool caseSensitive = false;
    };
    void add(std::string extension, Entry entry);
    void forget(const std::string& type);

    std::unordered_map<std::string, Entry> entries_;  // by extension; in lower case unless case-sensitive
};

}  // namespace vorlinden::platform
