#include "platform/shared_defaults.h"

#include <boost/json.hpp>
#include <fcntl.h>
#include <sys/file.h>

#include "platform/descriptor.h"
#include "platform/files.h"

namespace vorlinden::platform {

namespace json = boost::json;

namespace {

// Absent where there is no file. FileError where it can't be read, SettingsError where it isn't an object.
std::optional<json::object> readObject(const std::filesystem::path& file) {
    const std::shared_ptr<FileSystem> files = posixFileSystem();
    if (!files->exists(file)) return std::nullopt;
    boost::system::error_code error;
    json::value value = json::parse(files->read(file).view(), error);
    if (error || !value.is_object()) throw SettingsError(file.string());
    return std::move(value.as_object());
}

// Excludes other writers of the folder's files, in this process and in others, while it lives.
class FolderLock {
 public:
    explicit FolderLock(const std::filesystem::path& folder)
        : folder_(Descriptor::open(folder, O_RDONLY | O_DIRECTORY)) {
        if (uninterrupted([&] { return ::flock(folder_.get(), LOCK_EX); }) != 0) throw errnoFailure(folder);
    }

 private:
    Descriptor folder_;
};

class FileSharedDefaults final : public SharedDefaults {
 public:
    explicit FileSharedDefaults(std::filesystem::path file) : file_(std::move(file)) {}

    std::optional<std::string> string(const std::string& key) override {
        try {
            const std::optional<json::object> object = readObject(file_);
            const json::value* value = object ? object->if_contains(key) : nullptr;
            if (value == nullptr || !value->is_string()) return std::nullopt;
            return std::string(value->get_string());
        } catch (const FileError&) {
            return std::nullopt;
        } catch (const SettingsError&) {
            return std::nullopt;
        }
    }

    void set(const std::string& key, std::optional<std::string> value) override {
        const std::shared_ptr<FileSystem> files = posixFileSystem();
        files->createDirectories(file_.parent_path());
        const FolderLock lock(file_.parent_path());
        files->sweepTemporaries(file_.parent_path());
        json::object object = readObject(file_).value_or(json::object());
        if (value) {
            object[key] = *value;
        } else {
            object.erase(key);
        }
        files->writeAtomically(Data(json::serialize(object) + "\n"), file_);
    }

 private:
    const std::filesystem::path file_;
};

}  // namespace

SettingsError::SettingsError(std::string where)
    : Failure("The settings in " + where +
              " can't be read: they are no JSON object. Repair or remove the file."),
      path(std::move(where)) {}

std::shared_ptr<SharedDefaults> fileSharedDefaults(std::filesystem::path file) {
    return std::make_shared<FileSharedDefaults>(std::move(file));
}

}  // namespace vorlinden::platform
