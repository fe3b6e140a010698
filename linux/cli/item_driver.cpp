#include "linux/cli/item_driver.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <utility>

#include "fileprovider/file_provider_extension.h"
#include "linux/host/workspace.h"
#include "platform/failure.h"
#include "platform/json.h"

namespace vorlinden::cli {

namespace fp = platform::fileprovider;

namespace {

// Receives one listing.
class Listing : public fp::EnumerationObserver {
 public:
    void didEnumerateItems(std::vector<fp::Item> items) override {
        reply.items.insert(reply.items.end(), items.begin(), items.end());
    }
    void finishEnumerating(std::optional<fp::Page>) override {}
    void finishEnumeratingWithError(fp::Error error) override { reply.error = std::move(error); }

    ItemReply reply;
};

fp::Error noSuchItem() {
    return {fp::errorDomain, fp::noSuchItem};
}

// An answer that comes without an operation: the item that it would be about isn't there.
template <class Operation>
ItemReply answered(const Operation& operation) {
    try {
        return operation();
    } catch (const fp::Error& error) {
        ItemReply reply;
        reply.error = error;
        return reply;
    }
}

std::pair<std::string, std::string> parentAndName(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return {"", path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

platform::JSONText itemJSON(const fp::Item& item) {
    platform::JSONObjectBuilder object;
    object.add("id", item.itemIdentifier)
        .add("parent", item.parentItemIdentifier)
        .add("name", item.filename)
        .add("type", item.contentType.name)
        .add("version", item.itemVersion.contentVersion.view())
        .add("size", item.documentSize);
    if (item.uploadingError) object.add("uploadingError", item.uploadingError->text.value_or(""));
    return object.text();
}

platform::JSONText errorJSON(const fp::Error& error) {
    return platform::JSONObjectBuilder()
        .add("domain", error.domain)
        .add("code", error.code)
        .add("text", error.text)
        .text();
}

}  // namespace

// One operation of the extension, from its call to its answer.
class ItemDriver::Call {
 public:
    explicit Call(const Machine& machine) : machine_(machine) {}

    // `start` is given the function that takes the answer.
    ItemReply run(const std::function<std::shared_ptr<fp::Progress>(std::function<void(ItemReply)>)>& start) {
        const auto progress = start([state = state_](ItemReply reply) {
            state->reply = std::move(reply);
            state->answered.set();
        });
        try {
            machine_.runInterruptibly([state = state_] { return state->answered.wait(); });
        } catch (const platform::CancelledError&) {
            progress->cancel();
            machine_.runInterruptibly([state = state_] { return state->answered.wait(); });
        }
        return state_->reply;
    }

 private:
    struct State {
        platform::Signal answered;
        ItemReply reply;
    };
    const Machine& machine_;
    const std::shared_ptr<State> state_ = std::make_shared<State>();
};

ItemDriver::ItemDriver(const Machine& machine)
    : machine_(machine),
      extension_(
          std::make_shared<fileprovider::FileProviderExtension>(host::productDomain(), machine.system)) {}

std::vector<fp::Item> ItemDriver::children(const std::string& container) {
    Listing listing;
    extension_->enumeratorForContainer(container, {})->enumerateItems(listing, std::nullopt);
    if (listing.reply.error) throw fp::Error(*listing.reply.error);
    return std::move(listing.reply.items);
}

fp::Item ItemDriver::at(const std::string& path) {
    fp::Item item;
    item.itemIdentifier = fp::rootContainerItemIdentifier;
    std::istringstream components(path);
    for (std::string name; std::getline(components, name, '/');) {
        if (name.empty()) continue;
        const auto items = children(item.itemIdentifier);
        const auto found = std::ranges::find(items, name, &fp::Item::filename);
        if (found == items.end()) throw noSuchItem();
        item = *found;
    }
    return item;
}

ItemReply ItemDriver::list(const std::string& path) {
    return answered([&] {
        ItemReply reply;
        reply.items = children(at(path).itemIdentifier);
        return reply;
    });
}

ItemReply ItemDriver::fetch(const std::string& path) {
    return answered([&] {
        const auto item = at(path);
        return Call(machine_).run([&](auto answer) {
            return extension_->fetchContents(
                item.itemIdentifier, item.itemVersion, {},
                [answer](std::optional<std::filesystem::path> file, std::optional<fp::Item> fetched,
                         std::optional<fp::Error> error) {
                    ItemReply reply;
                    reply.file = std::move(file);
                    if (fetched) reply.items.push_back(*std::move(fetched));
                    reply.error = std::move(error);
                    answer(std::move(reply));
                });
        });
    });
}

namespace {

fp::WriteHandler writeHandler(std::function<void(ItemReply)> answer) {
    return [answer](std::optional<fp::Item> item, std::uint32_t, bool fetchContent,
                    std::optional<fp::Error> error) {
        ItemReply reply;
        if (item) reply.items.push_back(*std::move(item));
        reply.fetchContent = fetchContent;
        reply.error = std::move(error);
        answer(std::move(reply));
    };
}

}  // namespace

ItemReply ItemDriver::create(const std::string& path, const fp::Contents& contents) {
    return answered([&] {
        const auto [parent, name] = parentAndName(path);
        const fp::ItemTemplate made{at(parent).itemIdentifier, name,
                                    contents ? std::nullopt : std::optional(platform::FileType::folder())};
        return Call(machine_).run([&](auto answer) {
            return extension_->createItem(made, fp::contentsField, contents, 0, {}, writeHandler(answer));
        });
    });
}

ItemReply ItemDriver::modify(const fp::Item& changed, const fp::ItemVersion& base, std::uint32_t fields,
                             const fp::Contents& contents) {
    return Call(machine_).run([&](auto answer) {
        return extension_->modifyItem(changed, base, fields, contents, 0, {}, writeHandler(answer));
    });
}

ItemReply ItemDriver::edit(const std::string& path, const std::filesystem::path& contents,
                           const std::optional<std::string>& base) {
    return answered([&] {
        const auto item = at(path);
        auto version = item.itemVersion;
        if (base) version.contentVersion = platform::Data(*base);
        return modify(item, version, fp::contentsField, contents);
    });
}

ItemReply ItemDriver::rename(const std::string& path, const std::string& name) {
    return answered([&] {
        auto item = at(path);
        item.filename = name;
        return modify(item, item.itemVersion, fp::filenameField, std::nullopt);
    });
}

ItemReply ItemDriver::move(const std::string& path, const std::string& folder) {
    return answered([&] {
        auto item = at(path);
        item.parentItemIdentifier = at(folder).itemIdentifier;
        return modify(item, item.itemVersion, fp::parentItemIdentifierField, std::nullopt);
    });
}

ItemReply ItemDriver::remove(const std::string& path) {
    return answered([&] {
        const auto item = at(path);
        return Call(machine_).run([&](auto answer) {
            return extension_->deleteItem(item.itemIdentifier, item.itemVersion, 0, {},
                                          [answer](std::optional<fp::Error> error) {
                                              ItemReply reply;
                                              reply.error = std::move(error);
                                              answer(std::move(reply));
                                          });
        });
    });
}

std::string replyText(const ItemReply& reply) {
    std::ostringstream out;
    for (const auto& item : reply.items) {
        out << item.filename << (item.contentType.isDirectory() ? "/" : "") << "  "
            << item.itemVersion.contentVersion.view() << "  " << item.itemIdentifier;
        if (item.uploadingError) out << "  " << item.uploadingError->text.value_or("");
        out << "\n";
    }
    if (reply.fetchContent) out << "its content must be fetched anew\n";
    return out.str();
}

std::string replyJSON(const ItemReply& reply) {
    std::vector<platform::JSONText> items;
    for (const auto& item : reply.items)
        items.push_back(itemJSON(item));
    platform::JSONObjectBuilder object;
    object.add("items", items).add("fetchContent", reply.fetchContent);
    if (reply.error) object.add("error", errorJSON(*reply.error));
    return object.text().text;
}

}  // namespace vorlinden::cli
