#!/bin/bash
# Signing in: by script, through a desktop's browser, with a redirect that isn't ours, and staying signed in.
. "$(dirname "$0")/lib.sh" "$1"

mkdir -p "$work/files"
echo hello >"$work/files/a.txt"
start_server --token-lifetime 1 --import "files=$work/files"
"$vorlinden" config base-url "$url"

# page_of COMMAND...: starts a login in the background, its input held open. Sets login and page.
begin_login() {
    rm -f "$work/redirect"
    mkfifo "$work/redirect"
    : >"$work/out"
    "$vorlinden" login --no-browser --device-name "Test device" <"$work/redirect" >"$work/out" 2>"$work/err" &
    login=$!
    exec 8>"$work/redirect"
    eventually test -s "$work/out"
    page=$(head -n 1 "$work/out")
}
# end_login TEXT STATUS
end_login() {
    printf '%s\n' "$1" >&8
    exec 8>&-
    local status=0
    wait "$login" || status=$?
    ((status == $2)) || fail "login ended with $status, not $2: $(cat "$work/err")"
}

story "the page's address stands alone on a line"
begin_login
[[ $page == "$url"/* && $(wc -l <"$work/out") == 1 ]] || fail "not an address alone: $(cat "$work/out")"

story "a redirect with another state is refused, and nothing is stored"
redirect=$(redirect_of "$page")
end_login "${redirect/state=/state=x}" 1
says "another sign-in"
expect 3 "$vorlinden" status

story "so is what is no redirect at all, and an empty input"
begin_login
end_login "https://somewhere.example/?code=1" 1
says "begin with vorlinden:"
expect 1 "$vorlinden" login --no-browser
grep -q "standard input" "$work/err" || fail "$(cat "$work/err")"

story "the right one signs in"
begin_login
end_login "$(redirect_of "$page")" 0
expect 0 "$vorlinden" status --json
[[ $(jq -r '.device.name' "$work/out") == "Test device" ]] || fail "$(cat "$work/out")"
if grep -rqF "$(jq -r '.accessToken' "$(find "$XDG_DATA_HOME" -type f -path '*ecret*')")" "$work"/*.log "$work/out" "$work/err"; then
    fail "a token was printed"
fi

story "access tokens run out after a second; nobody notices"
expect 0 "$vorlinden" sync --once
sleep 1.2 # the token's lifetime, not a wait for something
expect 0 "$vorlinden" sync --once

story "through the desktop: the link handler is installed, the browser's redirect reaches the waiting login"
mkdir -p "$work/bin"
cat >"$work/bin/xdg-mime" <<'X'
#!/bin/bash
echo "$*" >>"$FAKE_DESKTOP/xdg-mime"
X
cat >"$work/bin/xdg-open" <<'X'
#!/bin/bash
# A browser: follows the page in the background and starts the installed handler with where it leads.
entry=$XDG_DATA_HOME/applications/$(awk '{ print $2 }' "$FAKE_DESKTOP/xdg-mime" | tail -n 1)
program=$(sed -n 's/^Exec=\(.*\) open-url %u$/\1/p' "$entry")
(exec >/dev/null 2>&1; "$program" open-url "$(curl -sS -o /dev/null -w '%{redirect_url}' "$1")") &
X
chmod +x "$work/bin"/*
export FAKE_DESKTOP=$work
"$vorlinden" logout
expect 3 "$vorlinden" status
PATH=$work/bin:$PATH expect 0 "$vorlinden" login
expect 0 "$vorlinden" status
grep -qx "default vorlinden-link.desktop x-scheme-handler/vorlinden" "$work/xdg-mime" || fail "no handler set"
expect 1 "$vorlinden" open-url "vorlinden://oauth/callback?code=1&state=2"
says "No sign-in is waiting"

story "signed out, what was fetched stays and nothing is asked"
"$vorlinden" logout
expect 3 "$vorlinden" sync --once
says "vorlinden login"
