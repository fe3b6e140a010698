#include "linux/mount/mount_state.h"

#include <cerrno>

#include "platform/data.h"
#include "platform/failure.h"
#include "platform/json.h"
#include "platform/text.h"

namespace vorlinden::mount {
namespace {

using platform::JSONObjectBuilder;
using platform::JSONText;
using platform::JSONValue;
using platform::Timestamp;

Timestamp requiredTime(const JSONValue& object, std::string_view key) {
    const auto time = platform::parseTimestamp(object.required(key).text());
    if (!time) throw object.corrupted("not a time");
    return *time;
}

JSONText encoded(const MountState::FetchFailure& failure) {
    return JSONObjectBuilder()
        .add("path", platform::repairedUTF8(failure.path))
        .add("sentence", platform::repairedUTF8(failure.sentence))
        .add("at", platform::formatTimestamp(failure.at))
        .text();
}

JSONText encoded(const MountState& state) {
    std::optional<JSONText> failure;
    if (state.lastFailedFetch) failure = encoded(*state.lastFailedFetch);
    return JSONObjectBuilder()
        .add("mountPoint", platform::repairedUTF8(state.mountPoint))
        .add("processId", state.processId)
        .add("since", platform::formatTimestamp(state.since))
        .add("server", state.server)
        .add("extensionTrouble", state.extensionTrouble)
        .add("lastFailedFetch", failure)
        .add("lockOperations", state.lockOperations)
        .add("lockMilliseconds", state.lockMilliseconds)
        .text();
}

MountState decoded(std::string_view bytes) {
    const platform::JSONDocument document(bytes);
    const auto root = document.root();
    MountState state;
    state.mountPoint = root.requiredString("mountPoint");
    state.processId = root.requiredInteger("processId");
    state.since = requiredTime(root, "since");
    state.server = root.requiredString("server");
    state.extensionTrouble = root.optionalString("extensionTrouble");
    state.lockOperations = root.optionalInteger("lockOperations").value_or(0);
    state.lockMilliseconds = root.optionalInteger("lockMilliseconds").value_or(0);
    if (const auto failure = root.optional("lastFailedFetch"); failure && !failure->isNull())
        state.lastFailedFetch = {failure->requiredString("path"), failure->requiredString("sentence"),
                                 requiredTime(*failure, "at")};
    return state;
}

bool isHeld(platform::FileSystem& files, const std::filesystem::path& lockFile) {
    if (!files.exists(lockFile)) return false;
    const auto lock = files.openLockFile(lockFile);
    const int result = lock->tryLock();
    if (result == 0) lock->unlock();
    return result == EWOULDBLOCK;
}

}  // namespace

std::filesystem::path mountStateFile(const std::filesystem::path& stateFolder) {
    return stateFolder / "mount.json";
}

std::filesystem::path mountLockFile(const std::filesystem::path& stateFolder) {
    return stateFolder / "mount.lock";
}

std::optional<MountState> readMountState(platform::FileSystem& files,
                                         const std::filesystem::path& stateFolder) {
    if (!isHeld(files, mountLockFile(stateFolder))) return std::nullopt;
    try {
        return decoded(files.read(mountStateFile(stateFolder)).view());
    } catch (const platform::FileError& error) {
        if (error.code == ENOENT) return std::nullopt;
        throw;
    } catch (const platform::JSONError&) {
        return std::nullopt;  // left by another version; the daemon of this one rewrites it when it starts
    }
}

void writeMountState(platform::FileSystem& files, const std::filesystem::path& stateFolder,
                     const MountState& state) {
    files.createDirectories(stateFolder);
    files.writeAtomically(platform::Data(encoded(state).text), mountStateFile(stateFolder));
}

}  // namespace vorlinden::mount
