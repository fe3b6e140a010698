#!/bin/bash
# browser.sh PROGRAM [SCREENSHOT.png]: signs in with a real browser, by hand as it were: the desktop's own xdg-open starts
# Chromium (under Xvfb), the Allow button is clicked, and the redirect comes back through the link handler that the
# program installed. Not part of ./test, since it needs a browser: apt-get install chromium chromium-driver xvfb xdg-utils
. "$(dirname "$0")/lib.sh" "$1"
screenshot=${2-}
for tool in chromium chromedriver Xvfb xdg-open jq; do
    command -v "$tool" >/dev/null || fail "$tool is missing: apt-get install chromium chromium-driver xvfb xdg-utils jq"
done
driver=http://127.0.0.1:9515
kill_browser() {
    curl -s -X DELETE "$driver/session/${session-}" >/dev/null || true
    for name in login driver display; do stop "$name"; done
}
trap 'status=$?; set +e; kill_browser; (exit $status); cleanup' EXIT

mkdir -p "$work/files"
echo hello >"$work/files/a.txt"
start server "$vorlinden" server --data "$data" --import "files=$work/files"
eventually grep -q '^listening on ' "$work/server.log"
url=$(sed -n 's/^listening on //p;T;q' "$work/server.log")
"$vorlinden" config base-url "$url"

export DISPLAY=:97
start display Xvfb "$DISPLAY" -screen 0 1000x700x24
start driver chromedriver --port=9515
driver_ready() { curl -s "$driver/status" | jq -e .value.ready >/dev/null; }
eventually driver_ready
# Without the preference the browser would ask whether it may open xdg-open.
options=$(jq -n --arg url "$url" --arg profile "$work/profile" '{
    args: ["--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
           "--disable-component-update", "--disable-sync", "--no-proxy-server", "--user-data-dir=" + $profile],
    prefs: {protocol_handler: {allowed_origin_protocol_pairs: {($url): {vorlinden: true}}}}}')
session=$(curl -sS -X POST "$driver/session" \
    -d "{\"capabilities\":{\"alwaysMatch\":{\"goog:chromeOptions\":$options}}}" | jq -r .value.sessionId)
[[ $session != null ]] || fail "no browser session"

# The desktop's browser, as xdg-open finds it.
mkdir -p "$work/bin"
cat >"$work/bin/browser" <<X
#!/bin/bash
curl -sS -X POST "$driver/session/$session/url" -d "{\"url\":\"\$1\"}" >/dev/null
X
chmod +x "$work/bin/browser"
mkdir -p "$XDG_DATA_HOME/applications" "$XDG_CONFIG_HOME"
printf '[Desktop Entry]\nType=Application\nName=Browser\nExec=%s %%u\nMimeType=x-scheme-handler/http;\n' \
    "$work/bin/browser" >"$XDG_DATA_HOME/applications/test-browser.desktop"
xdg-mime default test-browser.desktop x-scheme-handler/http

story "login opens the page in the browser"
start login "$vorlinden" login --device-name "Browser test"
page_shown() { curl -s "$driver/session/$session/url" | jq -r .value | grep -q "^$url/"; }
eventually page_shown
button() {
    curl -s -X POST "$driver/session/$session/element" \
        -d '{"using":"css selector","value":"button[value=allow]"}' | jq -r '.value | to_entries[0].value'
}
has_button() { [[ $(button) != null ]]; }
eventually has_button
curl -s "$driver/session/$session/screenshot" | jq -r .value | base64 -d >"${screenshot:-$work/page.png}"

story "the Allow button is clicked"
curl -sS -X POST "$driver/session/$session/element/$(button)/click" -d '{}' >/dev/null

story "and the login that waited is done"
eventually gone login
wait "${pid_of[login]}" || fail "login: $(cat "$work/login.log")"
expect 0 "$vorlinden" status --json
[[ $(jq -r .device.name "$work/out") == "Browser test" ]] || fail "$(cat "$work/out")"
story "signed in through a real browser"
