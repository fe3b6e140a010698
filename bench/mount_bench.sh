#!/bin/bash
# The mount beside `rclone mount --vfs-cache-mode full` over `rclone serve webdav`, on the same 10,000 small text files
# in 100 folders, in one run: milliseconds of each, and how many times as fast the mount is. Needs root, rclone, python3.
#
#   bench/mount_bench.sh PROGRAM [DELAY_MS]...        (delays added to each request to the server; default: 0 20)
set -euo pipefail
vorlinden=$(realpath "${1:?usage: mount_bench.sh PROGRAM [DELAY_MS]...}")
shift
delays=("${@:-0 20}")
work=$(mktemp -d "${TMPDIR:-/tmp}/vorlinden-bench.XXXXXX")
files=$work/files
ours=$work/ours
theirs=$work/theirs
export XDG_DATA_HOME=$work/home/data XDG_CONFIG_HOME=$work/home/config XDG_STATE_HOME=$work/home/state
export XDG_CACHE_HOME=$work/home/cache no_proxy=127.0.0.1 NO_PROXY=127.0.0.1
mkdir -p "$ours" "$theirs"
pids=()

cleanup() {
    trap - EXIT
    set +e
    fusermount3 -q -u -z "$ours"
    fusermount3 -q -u -z "$theirs"
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
    rm -rf "$work"
}
trap cleanup EXIT

background() { "$@" >"$work/log" 2>&1 </dev/null & pids+=($!); last=$!; }
until_true() { until "$@" 2>/dev/null; do sleep 0.05; done; }
stop() { kill "$1" && wait "$1" 2>/dev/null || true; }

# timed COMMAND...: prints milliseconds.
timed() {
    local from
    from=$(date +%s%N)
    "$@" >/dev/null 2>&1
    echo $((($(date +%s%N) - from) / 1000000))
}
walk() { find "$1"; }
list() { ls -lR "$1"; }
pack() { tar cf - "$1" | cat; }

make_files() {
    python3 - "$files" <<'PY'
import os, random, sys
random.seed(1)
for d in range(100):
    folder = os.path.join(sys.argv[1], f"folder{d:03}")
    os.makedirs(folder)
    for f in range(100):
        with open(os.path.join(folder, f"note{f:03}.md"), "w") as out:
            out.write("x" * random.randint(200, 6000))
PY
}

# A relay that holds each piece of a request back for so many milliseconds: the other server has no such switch.
relay() {
    cat >"$work/relay.py" <<'PY'
import asyncio, sys
delay, target = float(sys.argv[1]) / 1000, int(sys.argv[2])
async def pump(reader, writer, wait):
    while data := await reader.read(65536):
        if wait: await asyncio.sleep(wait)
        writer.write(data)
        await writer.drain()
    writer.close()
async def serve(reader, writer):
    up = await asyncio.open_connection("127.0.0.1", target)
    await asyncio.gather(pump(reader, up[1], delay), pump(up[0], writer, 0), return_exceptions=True)
async def main():
    server = await asyncio.start_server(serve, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()
asyncio.run(main())
PY
    python3 "$work/relay.py" "$1" "$2" >"$work/relay.port" 2>/dev/null & pids+=($!)
    until_true test -s "$work/relay.port"
}

start_our_server() {
    "$vorlinden" server --data "$work/server" --auto-approve --delay "$1" --import "files=$files" >"$work/server.out" 2>&1 &
    pids+=($!)
    server=$!
    until_true grep -q '^listening on ' "$work/server.out"
    "$vorlinden" config base-url "$(sed -n 's/^listening on //p' "$work/server.out")"
    if ! "$vorlinden" status >/dev/null 2>&1; then
        coproc LOGIN { exec "$vorlinden" login --no-browser 2>/dev/null; }
        local login=$LOGIN_PID page
        read -r page <&"${LOGIN[0]}"
        curl -sS -o /dev/null -w '%{redirect_url}\n' "$page" >&"${LOGIN[1]}"
        wait "$login"
    fi
    "$vorlinden" sync --once 2>/dev/null
}
mount_ours() {
    background "$vorlinden" mount "$ours" --no-sync
    our_mount=$last
    until_true mountpoint -q "$ours"
}
start_their_server() {
    background rclone serve webdav "$files" --addr 127.0.0.1:18999
    their_server=$last
    until_true curl -s -o /dev/null http://127.0.0.1:18999/
    relay "$1" 18999
}
mount_theirs() {
    background rclone mount ":webdav:" "$theirs" --webdav-url "http://127.0.0.1:$(cat "$work/relay.port")" \
        --vfs-cache-mode full --cache-dir "$work/rclone-cache"
    their_mount=$last
    until_true mountpoint -q "$theirs"
}

# Every cold row begins with nothing fetched, and without ten thousand files deleted a moment ago: the file system
# would be slow to give their places away again.
forget_all() {
    aside=$((${aside-0} + 1))
    for cache in "$XDG_CACHE_HOME" "$work/rclone-cache"; do
        [[ ! -e $cache ]] || mv "$cache" "$work/aside.$aside.${cache##*/}"
    done
}
# What the fetches of the mount that has just ended waited for the execution lock.
lock_waits() {
    python3 - "$XDG_STATE_HOME/vorlinden/mount.json" <<'PY'
import json, sys
state = json.load(open(sys.argv[1]))
count, waited = state["lockOperations"], state["lockMilliseconds"]
print(f"    of which the lock: {count} operations waited {waited / max(count, 1):.1f} ms each, up to 64 at once")
PY
}

row() { printf '%-26s %8d ms %10d ms   %6.1f\n' "$1" "$2" "$3" "$(bc -l <<<"$3 / ($2 + 0.5)")"; }

measure() {
    local delay=$1 find1 find2 cold warm known list_cold
    printf '\nwith %s ms of added delay        ours      rclone   times as fast\n' "$delay"
    forget_all
    start_our_server "$delay"
    start_their_server "$delay"
    mount_ours; mount_theirs
    row "find, first" "$(timed walk "$ours")" "$(timed walk "$theirs")"
    row "find, second" "$(timed walk "$ours")" "$(timed walk "$theirs")"
    stop "$our_mount"; stop "$their_mount"
    forget_all
    mount_ours; mount_theirs
    cold=$(timed pack "$ours")
    row "tar, cold" "$cold" "$(timed pack "$theirs")"
    row "tar, warm" "$(timed pack "$ours")" "$(timed pack "$theirs")"
    stop "$our_mount"; stop "$their_mount"
    lock_waits
    mount_ours; mount_theirs
    row "ls -lR, sizes known" "$(timed list "$ours")" "$(timed list "$theirs")"
    stop "$our_mount"; stop "$their_mount"
    forget_all
    mount_ours
    list_cold=$(timed list "$ours")
    printf '%-26s %8d ms   %.2f times our own tar, cold\n' "ls -lR, cold" "$list_cold" "$(bc -l <<<"$list_cold / $cold")"
    stop "$our_mount"; stop "$server"; stop "$their_server"
}

make_files
for delay in ${delays[*]}; do measure "$delay"; done
