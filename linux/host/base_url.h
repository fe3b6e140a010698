// The one setting of the product: which server it talks to.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/failure.h"
#include "platform/system.h"

namespace vorlinden::host {

struct BaseURLSetting {
    std::optional<std::string> override;  // as it is stored
    std::string inUse;                    // what the library makes of it
    bool isDefault = true;                // the stored text, if any, is passed over
};

BaseURLSetting baseURLSetting(const platform::System& system);

// Why `text` can't be the setting, as the rest of a sentence; absent if it can. Whatever the library would
// pass over in silence, wholly or in part, is refused.
std::optional<std::string> objectionToBaseURL(std::string_view text);

// Whether requests to this address, tokens included, could be read on their way: http to another machine.
bool isReadableOnTheWay(std::string_view text);

// A session belongs to the server that gave it: its tokens would be sent to whatever server is set.
struct SignedInElsewhere : platform::Failure {
    explicit SignedInElsewhere(const std::string& server);
};

// Stores a text without an objection, or removes the setting. Throws FileError, and SignedInElsewhere while
// somebody is signed in and the new address is another server's.
void setBaseURL(const platform::System& system, std::optional<std::string> text);

}  // namespace vorlinden::host
