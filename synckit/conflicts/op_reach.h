// Which paths a remote op touches.
#pragma once

#include <optional>
#include <string_view>

#include "synckit/server/wire_model.h"

namespace vorlinden {

// A value that borrows from the op.
struct OpReach {
    std::string_view path;
    std::optional<std::string_view> newPath;  // of a move
    bool below = false;                       // whether it reaches what lies below its paths, too

    static OpReach of(const Op& op) {
        if (const auto* move = std::get_if<Op::Move>(&op.value)) return {move->path, move->newPath, true};
        return {op.path(), std::nullopt, std::holds_alternative<Op::Delete>(op.value)};
    }
};

}  // namespace vorlinden
