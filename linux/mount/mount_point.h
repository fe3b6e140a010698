// The folder at which a domain is to be shown.
#pragma once

#include <filesystem>
#include <string>

#include "platform/failure.h"

namespace vorlinden::mount {

// Why a folder can't be mounted on; the text says what to do.
struct MountPointError : platform::Failure {
    explicit MountPointError(std::string text) : Failure(std::move(text)) {}
};

// Makes sure that `folder` is an empty folder on which nothing is mounted, and gives its absolute path. A
// mount that a killed daemon left behind (its connection is dead) is taken away first. Throws
// MountPointError.
std::filesystem::path prepareMountPoint(const std::filesystem::path& folder);

}  // namespace vorlinden::mount
