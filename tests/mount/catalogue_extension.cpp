#include "tests/mount/catalogue_extension.h"

#include <charconv>
#include <stdexcept>

#include "platform/files.h"

namespace vorlinden::tests {

namespace fp = platform::fileprovider;

namespace {

fp::Error errorOf(fp::ErrorCode code) {
    return fp::Error(fp::errorDomain, code);
}

}  // namespace

class CatalogueExtension final : public fp::ReplicatedExtension {
 public:
    explicit CatalogueExtension(FakeBackend& backend) : backend_(backend) {}

    void invalidate() override {}

    std::shared_ptr<fp::Progress> itemForIdentifier(const ItemIdentifier& identifier, const fp::Request&,
                                                    fp::ItemHandler handler) override {
        std::optional<Item> item;
        std::optional<fp::Error> failure;
        {
            std::lock_guard hold(backend_.mutex_);
            failure = backend_.failure_ ? std::optional(errorOf(*backend_.failure_)) : std::nullopt;
            item = backend_.catalogue_.find(identifier);
        }
        if (!failure && !item) failure = errorOf(fp::noSuchItem);
        handler(failure ? std::nullopt : item, failure);
        return std::make_shared<fp::Progress>(1);
    }

    std::shared_ptr<fp::Enumerator> enumeratorForContainer(const ItemIdentifier& container,
                                                           const fp::Request&) override;

    std::shared_ptr<fp::Progress> fetchContents(const ItemIdentifier& identifier,
                                                const std::optional<fp::ItemVersion>&, const fp::Request&,
                                                fp::FetchHandler handler) override {
        auto progress = std::make_shared<fp::Progress>(1);
        auto fetch = std::make_shared<FakeBackend::Fetch>(FakeBackend::Fetch{identifier, std::move(handler)});
        {
            std::lock_guard hold(backend_.mutex_);
            ++backend_.fetches_;
            if (backend_.held_) backend_.heldFetches_.push_back(fetch);
            if (backend_.held_) fetch = nullptr;
        }
        if (fetch) {
            backend_.deliver(*fetch);
        } else {
            progress->setCancellationHandler(
                [&backend = backend_, identifier] { cancel(backend, identifier); });
        }
        return progress;
    }

    std::shared_ptr<fp::Progress> createItem(const fp::ItemTemplate&, std::uint32_t,
                                             const std::optional<std::filesystem::path>&, std::uint32_t,
                                             const fp::Request&, fp::WriteHandler) override {
        throw std::logic_error("a read-only mount writes nothing");
    }
    std::shared_ptr<fp::Progress> modifyItem(const Item&, const fp::ItemVersion&, std::uint32_t,
                                             const std::optional<std::filesystem::path>&, std::uint32_t,
                                             const fp::Request&, fp::WriteHandler) override {
        throw std::logic_error("a read-only mount writes nothing");
    }
    std::shared_ptr<fp::Progress> deleteItem(const ItemIdentifier&, const fp::ItemVersion&, std::uint32_t,
                                             const fp::Request&, fp::DeleteHandler) override {
        throw std::logic_error("a read-only mount writes nothing");
    }

 private:
    static void cancel(FakeBackend& backend, const ItemIdentifier& identifier) {
        std::shared_ptr<FakeBackend::Fetch> fetch;
        {
            std::lock_guard hold(backend.mutex_);
            auto& held = backend.heldFetches_;
            for (auto next = held.begin(); next != held.end() && !fetch; ++next)
                if ((*next)->identifier == identifier) {
                    fetch = *next;
                    held.erase(next);
                    break;
                }
        }
        if (fetch) fetch->handler({}, {}, fp::Error(fp::cocoaErrorDomain, fp::userCancelled));
    }

    FakeBackend& backend_;
};

namespace {

platform::Data encodedAnchor(std::int64_t anchor) {
    return platform::Data(std::to_string(anchor));
}

}  // namespace

class CatalogueEnumerator final : public fp::Enumerator {
 public:
    std::function<std::vector<Item>()> list;
    std::function<std::pair<mount::ChangeBatch, std::int64_t>(std::int64_t)> changes;  // throws Error
    std::function<std::int64_t()> current;

    void enumerateItems(fp::EnumerationObserver& observer, std::optional<fp::Page>) override {
        observer.didEnumerateItems(list());
        observer.finishEnumerating({});
    }
    void enumerateChanges(fp::ChangeObserver& observer, const fp::SyncAnchor& anchor) override {
        std::int64_t since = -1;
        std::from_chars(anchor.view().data(), anchor.view().data() + anchor.size(), since);
        try {
            auto [batch, now] = changes(since);
            if (!batch.updated.empty()) observer.didUpdateItems(std::move(batch.updated));
            if (!batch.deleted.empty()) observer.didDeleteItems(std::move(batch.deleted));
            observer.finishEnumeratingChanges(encodedAnchor(now), false);
        } catch (const fp::Error& error) {
            observer.finishEnumeratingWithError(error);
        }
    }
    void currentSyncAnchor(const std::function<void(std::optional<fp::SyncAnchor>)>& handler) override {
        handler(encodedAnchor(current()));
    }
    void invalidate() override {}
};

std::shared_ptr<fp::Enumerator> CatalogueExtension::enumeratorForContainer(const ItemIdentifier& container,
                                                                           const fp::Request&) {
    {
        std::lock_guard hold(backend_.mutex_);
        backend_.requireWorking();
    }
    auto enumerator = std::make_shared<CatalogueEnumerator>();
    enumerator->list = [this, container] {
        std::lock_guard hold(backend_.mutex_);
        ++backend_.listings_;
        return backend_.catalogue_.list(container);
    };
    enumerator->changes = [this](std::int64_t since) {
        std::lock_guard hold(backend_.mutex_);
        const auto& catalogue = backend_.catalogue_;
        if (since < backend_.firstValidAnchor_ || since > catalogue.anchor())
            throw errorOf(fp::syncAnchorExpired);
        return std::pair(catalogue.changesSince(since), catalogue.anchor());
    };
    enumerator->current = [this] {
        std::lock_guard hold(backend_.mutex_);
        return backend_.catalogue_.anchor();
    };
    return enumerator;
}

std::string FakeBackend::contentOf(const FakeCatalogue::Row& row) {
    return "content " + std::to_string(row.origin) + " at " + std::to_string(row.version) + "\n";
}

std::string FakeBackend::contentAt(const std::string& path) {
    std::lock_guard hold(mutex_);
    return contentOf(catalogue_.at(path));
}

void FakeBackend::failFetches(std::optional<fp::ErrorCode> code) {
    std::lock_guard hold(mutex_);
    fetchFailure_ = code;
}

void FakeBackend::failEverything(std::optional<fp::ErrorCode> code) {
    std::lock_guard hold(mutex_);
    failure_ = code;
}

void FakeBackend::expireAnchors() {
    std::lock_guard hold(mutex_);
    firstValidAnchor_ = catalogue_.anchor();
}

void FakeBackend::holdFetches() {
    std::lock_guard hold(mutex_);
    held_ = true;
}

void FakeBackend::releaseFetches() {
    std::list<std::shared_ptr<Fetch>> all;
    {
        std::lock_guard hold(mutex_);
        held_ = false;
        all.swap(heldFetches_);
    }
    for (const auto& fetch : all)
        deliver(*fetch);
}

std::size_t FakeBackend::fetches() const {
    std::lock_guard hold(mutex_);
    return fetches_;
}

std::size_t FakeBackend::waiting() const {
    std::lock_guard hold(mutex_);
    return heldFetches_.size();
}

std::size_t FakeBackend::listings() const {
    std::lock_guard hold(mutex_);
    return listings_;
}

std::size_t FakeBackend::extensions() const {
    std::lock_guard hold(mutex_);
    return extensions_;
}

std::shared_ptr<fp::ReplicatedExtension> FakeBackend::makeExtension() {
    std::lock_guard hold(mutex_);
    ++extensions_;
    return std::make_shared<CatalogueExtension>(*this);
}

void FakeBackend::requireWorking() const {
    if (failure_) throw errorOf(*failure_);
}

void FakeBackend::deliver(const Fetch& fetch) {
    std::optional<Item> item;
    std::optional<fp::ErrorCode> failure;
    std::string content;
    std::filesystem::path file;
    {
        std::lock_guard hold(mutex_);
        failure = failure_ ? failure_ : fetchFailure_;
        item = catalogue_.find(fetch.identifier);
        if (!item) failure = fp::noSuchItem;
        if (item) content = contentOf(catalogue_.at(*catalogue_.pathOf(fetch.identifier)));
        file = temporary_ / std::to_string(++counter_);
    }
    if (failure) return fetch.handler({}, {}, errorOf(*failure));
    std::filesystem::create_directories(temporary_);
    platform::posixFileSystem()->writeUnflushed(platform::Data(content), file);
    fetch.handler(file, item, {});
}

}  // namespace vorlinden::tests
