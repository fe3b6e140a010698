#include "platform/secrets.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/descriptor.h"
#include "platform/files.h"
#include "platform/url.h"

namespace vorlinden::platform {

namespace {

namespace fs = std::filesystem;

// An operation's end by a status that is no success. Never leaves this file.
struct Refusal {
    std::int32_t status;
};

Refusal refusalOf(int code) {
    switch (code) {
        case ENOENT:
            return {SecretStore::itemNotFound};
        case EACCES:
        case ELOOP:
            return {SecretStore::notPrivate};  // ELOOP: a link stands in the file's place
        default:
            return {SecretStore::ioFailure};
    }
}

void requirePrivate(const Descriptor& file) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw refusalOf(errno);
    if (status.st_uid != ::geteuid() || (status.st_mode & 077) != 0) throw Refusal{SecretStore::notPrivate};
}

class FileSecretStore final : public SecretStore {
 public:
    explicit FileSecretStore(fs::path folder) : folder_(std::move(folder)) {}

    std::int32_t copyMatching(const SecretName& name, std::optional<Data>& secret) override {
        return statusOf([&] {
            checkEntry(name);
            secret = files_->read(fileOf(name));
        });
    }

    std::int32_t update(const SecretName& name, const Data& secret) override {
        return statusOf([&] {
            checkFolder();
            if (!files_->exists(fileOf(name))) throw Refusal{itemNotFound};
            write(name, secret);  // also over a file that others can read: the new one is private
        });
    }

    std::int32_t add(const SecretName& name, const Data& secret) override {
        return statusOf([&] {
            files_->createDirectories(folder_);
            checkFolder();
            if (files_->exists(fileOf(name))) throw Refusal{duplicateItem};
            write(name, secret);
        });
    }

    std::int32_t remove(const SecretName& name) override {
        return statusOf([&] {
            checkFolder();
            files_->remove(fileOf(name));
            flushFolder(folder_);
        });
    }

    std::optional<std::string> statusText(std::int32_t status) override {
        std::optional<std::string> text = secretStatusText(status);
        if (status == notPrivate || status == ioFailure) *text += " They lie in " + folder_.string() + ".";
        return text;
    }

 private:
    template <class Operation>
    static std::int32_t statusOf(Operation operation) {
        try {
            operation();
            return success;
        } catch (const Refusal& refusal) {
            return refusal.status;
        } catch (const FileError& failure) {
            return refusalOf(failure.code).status;
        }
    }

    static Descriptor opened(const fs::path& path, int flags) {
        return Descriptor::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | flags);
    }
    void checkFolder() const { requirePrivate(opened(folder_, O_DIRECTORY)); }
    void checkEntry(const SecretName& name) const {
        checkFolder();
        requirePrivate(opened(fileOf(name), 0));
    }

    void write(const SecretName& name, const Data& secret) {
        files_->sweepTemporaries(folder_);  // what a crash left behind may hold a secret, too
        files_->writeAtomically(secret, fileOf(name));
    }

    // The comma is escaped in each of the three, so no two entries share a file.
    fs::path fileOf(const SecretName& name) const {
        return folder_ / (percentEncoded(name.accessGroup) + "," + percentEncoded(name.service) + "," +
                          percentEncoded(name.account));
    }

    const fs::path folder_;
    const std::shared_ptr<FileSystem> files_ = posixFileSystem();
};

}  // namespace

std::optional<std::string> secretStatusText(std::int32_t status) {
    switch (status) {
        case SecretStore::success:
            return "No error.";
        case SecretStore::duplicateItem:
            return "The secret exists already.";
        case SecretStore::itemNotFound:
            return "There is no such secret.";
        case SecretStore::notPrivate:
            return "The stored secrets can be read or changed by others, or belong to another user. Take "
                   "away the access of others: chmod 700 for the folder, 600 for the files.";
        case SecretStore::ioFailure:
            return "The stored secrets can't be read or written.";
        case SecretStore::internalError:
            return "The secret store gave no secret.";
        default:
            return std::nullopt;
    }
}

std::shared_ptr<SecretStore> fileSecretStore(fs::path folder) {
    return std::make_shared<FileSecretStore>(std::move(folder));
}

}  // namespace vorlinden::platform
