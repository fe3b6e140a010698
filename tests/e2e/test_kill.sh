#!/bin/bash
# Each process killed with SIGKILL and started again: nothing has to be cleaned by hand, and the tree is right.
. "$(dirname "$0")/lib.sh" "$1"

files=$work/files
mkdir -p "$files/folder"
for i in $(seq 1 200); do printf 'text %s\n' "$i" >"$files/folder/$i.md"; done
start_server --import "files=$files"
sign_in
start_sync
start_mount
eventually same_tree "$files" "$tree/files"

change() {
    echo "changed $1" >"$files/folder/changed.md"
    echo "new $1" >"$files/folder/new-$1.md"
    rm -f "$files/folder/$1.md"
}

for round in 1 2 3; do
    story "round $round: the server"
    change "$round"
    "$vorlinden" server-ctl import --data "$data" files "$files" >/dev/null 2>&1 &
    importer=$!
    stop server KILL
    wait "$importer" 2>/dev/null || true
    start_server
    ctl import files "$files"
    eventually same_tree "$files" "$tree/files"

    story "round $round: sync, in the middle of a pull"
    change "1$round"
    ctl import files "$files"
    stop sync KILL
    start_sync
    eventually same_tree "$files" "$tree/files"

    story "round $round: the mount, under a walk"
    (cat "$tree"/files/folder/*.md >/dev/null 2>&1) &
    walk=$!
    stop mount KILL
    wait "$walk" 2>/dev/null || true
    change "2$round"
    ctl import files "$files"
    start_mount
    eventually same_tree "$files" "$tree/files"
done

story "a lock that a killed process held is free"
expect 0 "$vorlinden" sync --once
