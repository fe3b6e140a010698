#include "tests/mount/fake_catalogue.h"

#include <algorithm>
#include <set>

namespace vorlinden::tests {
namespace {

namespace fp = platform::fileprovider;

std::string parentPath(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string brainOf(const std::string& path) {
    return path.substr(0, path.find('/'));
}

Item folderItem(ItemIdentifier identifier, std::string name) {
    Item item;
    item.itemIdentifier = std::move(identifier);
    item.parentItemIdentifier = fp::rootContainerItemIdentifier;
    item.filename = std::move(name);
    item.contentType = platform::FileType::folder();
    item.itemVersion = {platform::Data::copyOf("0"), platform::Data::copyOf("0")};
    return item;
}

}  // namespace

void FakeCatalogue::addBrain(const std::string& name) {
    renameBrain(name, name);
}

void FakeCatalogue::renameBrain(const std::string& name, const std::string& slug) {
    slugs_[name] = slug;
    log("brain:" + name);
}

void FakeCatalogue::ensureParents(const std::string& path) {
    const auto parent = parentPath(path);
    if (parent.find('/') == std::string::npos) return;
    if (has(parent) && at(parent).folder) return;
    if (has(parent)) remove(parent);
    ensureParents(parent);
    put(parent, true);
}

FakeCatalogue::Row& FakeCatalogue::put(const std::string& path, bool folder) {
    ++counter_;
    Row row;
    row.identifier = folder ? "dir:" + path : "local:" + std::to_string(counter_);
    row.folder = folder;
    row.date = counter_;
    row.origin = counter_;
    paths_[row.identifier] = path;
    log(row.identifier);
    return rows_[path] = row;
}

void FakeCatalogue::makeFolder(const std::string& path) {
    if (has(path) && at(path).folder) return;
    if (has(path)) remove(path);
    ensureParents(path);
    put(path, true);
}

const FakeCatalogue::Row& FakeCatalogue::makeFile(const std::string& path) {
    if (has(path)) remove(path);
    ensureParents(path);
    return put(path, false);
}

void FakeCatalogue::makeBlob(const std::string& path, std::int64_t size) {
    makeFile(path);
    rows_[path].documentSize = size;
}

void FakeCatalogue::edit(const std::string& path) {
    Row& row = rows_.at(path);
    ++row.version;
    row.date = ++counter_;
    log(row.identifier);
}

void FakeCatalogue::setError(const std::string& path, std::optional<std::string> text) {
    rows_.at(path).uploadError = std::move(text);
    log(rows_.at(path).identifier);
}

std::vector<std::string> FakeCatalogue::subtree(const std::string& path) const {
    std::vector<std::string> result;
    for (const auto& [known, row] : rows_)
        if (known == path || known.starts_with(path + "/")) result.push_back(known);
    return result;
}

void FakeCatalogue::erase(const std::string& path) {
    const auto identifier = rows_.at(path).identifier;
    paths_.erase(identifier);
    rows_.erase(path);
    log(identifier);
}

void FakeCatalogue::move(const std::string& from, const std::string& to) {
    if (!has(from) || from == to || to.starts_with(from + "/") || from.starts_with(to + "/")) return;
    remove(to);
    ensureParents(to);
    for (const auto& path : subtree(from)) {
        Row row = rows_.at(path);
        const auto target = to + path.substr(from.size());
        if (row.identifier.starts_with("dir:")) {
            erase(path);
            row.identifier = "dir:" + target;
        } else {
            rows_.erase(path);
        }
        rows_[target] = row;
        paths_[row.identifier] = target;
        log(row.identifier);
    }
}

void FakeCatalogue::remove(const std::string& path) {
    for (const auto& gone : subtree(path))
        erase(gone);
}

void FakeCatalogue::removeRowOnly(const std::string& path) {
    erase(path);
}

void FakeCatalogue::replaceFile(const std::string& path) {
    const int origin = rows_.at(path).origin;
    erase(path);
    put(path, false).origin = origin;
}

void FakeCatalogue::reset(const std::string& brain) {
    for (const auto& path : subtree(brain)) {
        Row row = rows_.at(path);
        erase(path);
        row.identifier = "server:" + std::to_string(++counter_);
        row.version = row.folder ? 0 : 1;
        rows_[path] = row;
        paths_[row.identifier] = path;
        log(row.identifier);
    }
}

std::optional<std::string> FakeCatalogue::pathOf(const ItemIdentifier& identifier) const {
    const auto found = paths_.find(identifier);
    return found == paths_.end() ? std::nullopt : std::optional(found->second);
}

ItemIdentifier FakeCatalogue::parentOf(const std::string& path) const {
    const auto found = rows_.find(parentPath(path));
    return found == rows_.end() ? "brain:" + brainOf(path) : found->second.identifier;
}

Item FakeCatalogue::root() {
    return folderItem(fp::rootContainerItemIdentifier, "Vorlinden");
}

Item FakeCatalogue::item(const std::string& path, const Row& row) const {
    Item item = folderItem(row.identifier, lastComponent(path));
    item.parentItemIdentifier = parentOf(path);
    if (!row.folder) item.contentType = platform::FileType::data();
    item.itemVersion.contentVersion = platform::Data::copyOf(std::to_string(row.version));
    item.documentSize = row.documentSize;
    item.contentModificationDate = platform::Timestamp(std::chrono::milliseconds(row.date));
    item.creationDate = item.contentModificationDate;
    if (row.uploadError) item.uploadingError = fp::Error("upload", 1, row.uploadError);
    return item;
}

std::vector<Item> FakeCatalogue::list(const ItemIdentifier& container) const {
    std::vector<Item> result;
    if (container == fp::rootContainerItemIdentifier)
        for (const auto& [name, slug] : slugs_)
            result.push_back(folderItem("brain:" + name, slug));
    std::optional<std::string> path = pathOf(container);
    if (container.starts_with("brain:")) path = container.substr(6);
    if (!path) return result;
    for (const auto& [known, row] : rows_)
        if (parentPath(known) == *path) result.push_back(item(known, row));
    return result;
}

std::optional<Item> FakeCatalogue::find(const ItemIdentifier& identifier) const {
    if (identifier.starts_with("brain:") && slugs_.contains(identifier.substr(6)))
        return folderItem(identifier, slugs_.at(identifier.substr(6)));
    const auto path = pathOf(identifier);
    return path ? std::optional(item(*path, rows_.at(*path))) : std::nullopt;
}

mount::ChangeBatch FakeCatalogue::changesSince(std::int64_t anchor) const {
    mount::ChangeBatch batch;
    const std::set<ItemIdentifier> touched(log_.begin() + anchor, log_.end());
    for (const auto& identifier : touched) {
        if (auto item = find(identifier))
            batch.updated.push_back(*item);
        else
            batch.deleted.push_back(identifier);
    }
    return batch;
}

void FakeCatalogue::answer(const mount::Questions& questions, mount::ChangeBatch& batch) const {
    for (const auto& container : questions.containers)
        batch.answers.push_back(mount::ChangeBatch::Listing{container, list(container)});
    for (const auto& identifier : questions.items)
        batch.answers.push_back(mount::ChangeBatch::Lookup{identifier, find(identifier)});
}

std::vector<mount::Invalidation> bring(mount::ItemTree& tree, const FakeCatalogue& catalogue,
                                       mount::ChangeBatch batch) {
    while (true) {
        auto outcome = tree.apply(batch, platform::Timestamp(std::chrono::milliseconds(catalogue.anchor())));
        if (auto* told = std::get_if<std::vector<mount::Invalidation>>(&outcome)) return std::move(*told);
        catalogue.answer(std::get<mount::Questions>(outcome), batch);
    }
}

}  // namespace vorlinden::tests
