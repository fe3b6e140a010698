#include "linux/mount/domain_memory.h"

#include "platform/failure.h"
#include "platform/json.h"

namespace vorlinden::mount {

// Anchors of this system are text. One that isn't can't be kept and is read from the beginning again.

DomainMemory freshMemory() {
    return {platform::Data::copyOf("0"), {}};
}

DomainMemory loadMemory(platform::FileSystem& files, const std::filesystem::path& file) {
    try {
        const platform::Data text = files.read(file);
        const platform::JSONDocument document(text.view());
        return {platform::Data(document.root().requiredString("anchor")),
                document.root().requiredStrings("strays")};
    } catch (const platform::FileError&) {
        return freshMemory();
    } catch (const platform::JSONError&) {
        return freshMemory();
    }
}

void saveMemory(platform::FileSystem& files, const std::filesystem::path& file, const DomainMemory& memory) {
    try {
        const auto text = platform::JSONObjectBuilder()
                              .add("anchor", memory.anchor.view())
                              .add("strays", memory.strays)
                              .text();
        files.writeUnflushed(platform::Data(text.text), file);
    } catch (const platform::JSONError&) {
        if (files.exists(file)) files.remove(file);
    }
}

}  // namespace vorlinden::mount
