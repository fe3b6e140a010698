#include "synckit/server/wire_model.h"

namespace vorlinden {
namespace {

template <class T>
concept HasNodeKind = requires(const T& op) {
    op.nodeKind;
};

}  // namespace

const std::string& Op::path() const {
    return std::visit([](const auto& op) -> const std::string& { return op.path; }, value);
}

std::optional<NodeKind> Op::effectiveNodeKind() const {
    return std::visit(
        []<class T>(const T& op) -> std::optional<NodeKind> {
            if constexpr (HasNodeKind<T>)
                return op.nodeKind.value_or(NodeKind::text);
            else
                return std::nullopt;
        },
        value);
}

bool Op::isBlob() const {
    return effectiveNodeKind() == NodeKind::blob;
}

}  // namespace vorlinden
