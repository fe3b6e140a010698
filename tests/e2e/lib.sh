# What the end-to-end tests share: the real program on a machine of its own below a scratch folder, with a real server
# and a real mount. Sourced as `. lib.sh PROGRAM`. Whatever happens, everything started is ended and unmounted.
set -euo pipefail

vorlinden=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/vorlinden-e2e.XXXXXX")
tree=$work/tree
data=$work/server
export XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config XDG_STATE_HOME=$work/home/state
export XDG_CACHE_HOME=$work/home/cache
export no_proxy=127.0.0.1,localhost NO_PROXY=127.0.0.1,localhost
mkdir -p "$tree"
declare -A pid_of=()

cleanup() {
    local status=$? name
    trap - EXIT
    set +e
    if ((status != 0)); then
        for name in "$work"/*.log "$work/out" "$work/err" "$work/diff"; do
            [[ -s $name ]] && { echo "--- $(basename "$name")"; tail -n 20 "$name"; } >&2
        done
    fi
    for name in mount sync server; do stop "$name"; done
    fusermount3 -q -u -z "$tree" 2>/dev/null
    while grep -q " $work/" /proc/mounts; do umount -l "$(awk -v w="$work/" 'index($2, w) == 1 { print $2; exit }' /proc/mounts)" || break; done
    rm -rf "$work"
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

fail() {
    echo "FAILED (line ${BASH_LINENO[0]}): $*" >&2
    exit 1
}

story() { echo "- $*"; }

# eventually COMMAND...: until it succeeds, for at most half a minute.
eventually() {
    local deadline=$((SECONDS + 30))
    until "$@"; do
        ((SECONDS < deadline)) || fail "never came true: $*"
        sleep 0.05
    done
}

# start NAME COMMAND...
start() {
    local name=$1
    shift
    "$@" >"$work/$name.log" 2>&1 </dev/null &
    pid_of[$name]=$!
    eventually has_begun "$name"
}
# A signal that comes while the new process is still a copy of this shell would be lost.
has_begun() { [[ ! -e /proc/${pid_of[$1]}/exe || ! /proc/${pid_of[$1]}/exe -ef /proc/$$/exe ]]; }
# A process that has ended but wasn't waited for is not alive.
alive() {
    local stat
    stat=$(cat "/proc/${pid_of[$1]}/stat" 2>/dev/null) && [[ $stat != *") Z "* ]]
}
gone() { ! alive "$1"; }

# stop NAME [SIGNAL]
stop() {
    local pid=${pid_of[$1]-}
    [[ -n $pid ]] || return 0
    unset "pid_of[$1]"
    kill "-${2:-TERM}" "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
}

# start_server OPTIONS...: on the port of the last time, if there was one. Sets url.
start_server() {
    : >"$work/server.log"
    start server "$vorlinden" server --data "$data" --auto-approve --listen "127.0.0.1:${port:-0}" "$@"
    eventually grep -q '^listening on ' "$work/server.log"
    url=$(sed -n 's/^listening on //p;T;q' "$work/server.log")
    port=${url##*:}
}
ctl() {
    local verb=$1
    shift
    "$vorlinden" server-ctl "$verb" --data "$data" "$@" >"$work/out" 2>"$work/err" || fail "server-ctl $verb $*"
}
start_sync() { start sync "$vorlinden" sync --interval 1; }
start_mount() {
    start mount "$vorlinden" mount "$tree" --no-sync "$@"
    eventually mounted
}
mounted() { mountpoint -q "$tree"; }

# sign_in OPTIONS...: the OAuth flow, with curl as the browser.
sign_in() {
    "$vorlinden" config base-url "$url"
    coproc LOGIN { exec "$vorlinden" login --no-browser "$@" 2>"$work/err"; }
    local pid=$LOGIN_PID page
    read -r page <&"${LOGIN[0]}" || fail "login printed no page"
    redirect_of "$page" >&"${LOGIN[1]}"
    wait "$pid" || fail "login failed: $(cat "$work/err")"
}
# Where the server sends the browser after PAGE.
redirect_of() { curl -sS -o "$work/page.html" -w '%{redirect_url}\n' "$1"; }

# expect STATUS COMMAND...: runs it, its output in $work/out and $work/err.
expect() {
    local wanted=$1 status=0
    shift
    "$@" >"$work/out" 2>"$work/err" </dev/null || status=$?
    ((status == wanted)) || fail "status $status, not $wanted: $*"
}
# says TEXT: the last command told it in one or two sentences on standard error.
says() {
    grep -qiF -- "$1" "$work/err" || fail "no \"$1\" in: $(cat "$work/err")"
    (($(wc -l <"$work/err") <= 2)) || fail "more than two lines: $(cat "$work/err")"
}

same_tree() { diff -r --no-dereference "$1" "$2" >"$work/diff" 2>&1; }
no_stray_processes() {
    local pid
    for pid in "$@"; do ! kill -0 "$pid" 2>/dev/null || fail "process $pid is still there"; done
}
