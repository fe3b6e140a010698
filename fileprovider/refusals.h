// What a failed write means for the change that was to be written.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "synckit/types.h"

namespace vorlinden::fileprovider {

// How the sentence on an item begins whose change was refused for good.
inline constexpr std::string_view notUploaded = "Not uploaded: ";
inline constexpr std::string_view notMoved = "Not moved: ";
inline constexpr std::string_view notDeleted = "Not deleted: ";
// What an item shows that is over the limit for uploads.
inline constexpr std::string_view tooLargeMessage = "File is too large to sync (limit 100 MB)";

// The user may not write there; everything else about the change is fine.
struct ReadOnlySubtree {
    bool operator==(const ReadOnlySubtree&) const = default;
};
// Trying again is of no use.
struct RefusedForGood {
    std::string message;  // for the item
    bool operator==(const RefusedForGood&) const = default;
};
using Refusal = std::variant<ReadOnlySubtree, RefusedForGood>;

// `prefix` and why, if the change was refused for good; absent for failures that pass or aren't understood.
std::optional<std::string> rejectionMessage(const std::exception_ptr& failure, std::string_view prefix);

// Rethrows what is no refusal: the journal row and its bytes then stay.
Refusal refusalOf(const std::exception_ptr& failure, std::string_view prefix);

// How an attempt ended: one of the two is there.
template <class T>
struct Outcome {
    std::optional<T> value;
    std::exception_ptr failure;
};

// For who has to wait for more after a failure, which no `catch` can.
template <class T>
Task<Outcome<T>> attempt(Task<T> task) {
    Outcome<T> outcome;
    try {
        outcome.value.emplace(co_await std::move(task));
    } catch (...) {
        outcome.failure = std::current_exception();
    }
    co_return outcome;
}

}  // namespace vorlinden::fileprovider
