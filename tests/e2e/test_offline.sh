#!/bin/bash
# Without the server: what is cached stays readable, what isn't fails soon and says why, and all comes back by itself.
. "$(dirname "$0")/lib.sh" "$1"

files=$work/files
mkdir -p "$files/folder"
echo "read before" >"$files/folder/cached.bin.md"
head -c 50000 /dev/urandom >"$files/folder/cached.bin"
head -c 50000 /dev/urandom >"$files/folder/unread.bin"
start_server --import "files=$files"
sign_in
"$vorlinden" sync --once 2>"$work/err"
start_mount
start_sync
cat "$tree/files/folder/cached.bin" "$tree/files/folder/cached.bin.md" >/dev/null

story "the server is stopped: listings and cached content go on, the rest fails soon"
stop server
[[ $(ls "$tree/files/folder" | wc -l) == 3 ]] || fail "listing"
cmp "$files/folder/cached.bin" "$tree/files/folder/cached.bin" || fail "cached blob"
[[ $(cat "$tree/files/folder/cached.bin.md") == "read before" ]] || fail "cached text"
expect 1 timeout 20 cat "$tree/files/folder/unread.bin"
grep -q "Input/output error" "$work/err" || fail "$(cat "$work/err")"
status_tells_it() {
    "$vorlinden" status >"$work/out" 2>&1 || (($? == 4)) || return 1
    grep -qiE 'server.*(reach|answer)' "$work/out"
}
eventually status_tells_it

story "a restart of the mount without the server keeps what is cached"
stop mount
start_mount
cmp "$files/folder/cached.bin" "$tree/files/folder/cached.bin" || fail "cached blob after a restart"
expect 1 timeout 20 cat "$tree/files/folder/unread.bin"

story "the server is back: everything reads again, and changes arrive"
start_server
echo more >"$files/folder/more.md"
ctl import files "$files"
readable() { cmp -s "$files/folder/unread.bin" "$tree/files/folder/unread.bin"; }
eventually readable
eventually same_tree "$files" "$tree/files"

story "signed out: what is here stays readable, what isn't gives EACCES"
head -c 5000 /dev/urandom >"$files/folder/late.bin"
ctl import files "$files"
listed() { ls "$tree/files/folder" | grep -qx late.bin; }  # by name alone: asking for its size would fetch it
eventually listed
"$vorlinden" logout
expect 1 timeout 20 cat "$tree/files/folder/late.bin"
grep -q "Permission denied" "$work/err" || fail "$(cat "$work/err")"
cmp "$files/folder/cached.bin" "$tree/files/folder/cached.bin" || fail "cached blob when signed out"
