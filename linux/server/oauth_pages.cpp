#include "linux/server/oauth_pages.h"

#include "platform/url.h"

namespace vorlinden::server {

namespace {

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += character;
        }
    }
    return result;
}

Response page(const std::string& body, const std::string& formTargets, int status) {
    auto response = Response::html(
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Vorlinden</title>"
        "<meta name=\"viewport\" content=\"width=device-width\">"
        "<style>body{font:1rem/1.5 sans-serif;max-width:32rem;margin:4rem auto;padding:0 1rem}"
        "button{font:inherit;padding:.4rem 1.2rem;margin-right:.5rem}</style></head><body>" +
            body + "</body></html>\n",
        status);
    response.headers = {// Browsers hold the redirect that answers a form to `form-action` as well.
                        {"Content-Security-Policy",
                         "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; "
                         "frame-ancestors 'none'; form-action " +
                             formTargets},
                        {"X-Content-Type-Options", "nosniff"},
                        {"Referrer-Policy", "no-referrer"},
                        {"Cache-Control", "no-store"}};
    return response;
}

}  // namespace

Response consentPage(const std::string& clientName, const std::string& redirectUri,
                     const std::string& ticket) {
    const auto scheme = platform::URL::parse(redirectUri)->scheme().value_or("vorlinden");
    return page(
        "<h1>Allow access?</h1><p><strong>" + escaped(clientName) +
            "</strong> wants to read and change your brains on this server.</p>"
            "<form method=\"post\" action=\"authorize\">"
            "<input type=\"hidden\" name=\"ticket\" value=\"" +
            escaped(ticket) +
            "\">"
            "<p><label>You are <input name=\"member\" value=\"owner\" maxlength=\"64\" required></label></p>"
            "<p><button name=\"decision\" value=\"allow\">Allow</button>"
            "<button name=\"decision\" value=\"deny\">Don\xE2\x80\x99t allow</button></p></form>",
        "'self' " + scheme + ":", 200);
}

Response problemPage(const std::string& sentence) {
    return page("<h1>This didn\xE2\x80\x99t work</h1><p>" + escaped(sentence) + "</p>", "'none'", 400);
}

}  // namespace vorlinden::server
