// The pages that a person sees while an application asks for access: plain HTML, no script, nothing from
// elsewhere.
#pragma once

#include <string>

#include "linux/server/http_message.h"

namespace vorlinden::server {

// Asks whether `clientName` may act for the person. `ticket` goes with the answer, which is posted to the
// page's own address.
Response consentPage(const std::string& clientName, const std::string& redirectUri,
                     const std::string& ticket);
// Says what is wrong where the person can't be sent back to the application.
Response problemPage(const std::string& sentence);

}  // namespace vorlinden::server
