// A catalogue's tree and log as short lines, for tests that tell what became of them.
#pragma once

#include <string>
#include <vector>

#include "tests/support/catalogue.h"

namespace vorlinden::tests {

// A freshly made identifier is different in every run: "local:" + UUID reads "local:*".
inline std::string shortId(const std::string& nodeId) {
    constexpr std::size_t freshLength = 6 + 36;
    return nodeId.starts_with("local:") && nodeId.size() == freshLength ? "local:*" : nodeId;
}

// "PATH = ID vVERSION", with what is unusual about the row behind it.
inline std::string line(const NodeRecord& node) {
    std::string text = node.path + " = " + shortId(node.nodeId) + " v" + std::to_string(node.contentVersion);
    if (node.isDirectory && !node.isDerivedDirectory()) text += " folder";
    if (node.kind == NodeKind::blob) text += " blob";
    if (node.localOnly) text += " local-only";
    if (node.uploadError) text += " (" + *node.uploadError + ")";
    return text;
}

// The rows of a brain by path.
inline std::vector<std::string> tree(MetadataStore& store, const UUID& brainId) {
    std::vector<std::string> lines;
    for (const auto& node : store.allNodes(brainId))
        lines.push_back(line(node));
    return lines;
}

// The rows of changes_log behind an anchor, oldest first: "+ID" or "-ID" of a node, "+brain" or "-brain".
inline std::vector<std::string> log(const Catalogue& catalogue, std::int64_t since = 0) {
    std::vector<std::string> lines;
    for (const auto& row :
         rows(catalogue.connection(), "SELECT item_identifier, deleted FROM changes_log WHERE anchor > " +
                                          std::to_string(since) + " ORDER BY anchor")) {
        const auto item = SyncItemIdentifier::fromRawValue(row[0]);
        const auto* node = std::get_if<SyncItemIdentifier::Node>(&item->value);
        lines.push_back((row[1] == "1" ? "-" : "+") + (node ? shortId(node->nodeId) : "brain"));
    }
    return lines;
}

}  // namespace vorlinden::tests
