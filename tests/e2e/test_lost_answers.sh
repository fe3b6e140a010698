#!/bin/bash
# The connection dies after the server has acted and before it answered: for a text, a blob, a move and a deletion, and for
# what waits until then. The next round ends in the right state: nothing twice, no copy, no error, no byte lost.
. "$(dirname "$0")/lib.sh" "$1"

files=$work/files  # what the tree must be in the end
mkdir -p "$files/folder"
for name in text moved deleted edited; do echo "first $name" >"$files/$name.md"; done
head -c 20000 /dev/urandom >"$files/blob.bin"
start_server --import "team=$files"
sign_in
"$vorlinden" sync --once 2>"$work/err"

# waits COMMAND...: an item verb that the server acts on without an answer, so that the change is kept.
waits() { expect 4 "$vorlinden" item "$@"; }
lose_answer() { ctl fault --drop after "$@"; }
# settles NAME: one round, and all is as in $files, here and on the server.
settles() {
    expect 0 "$vorlinden" sync --once
    expect 0 "$vorlinden" status
    expect 0 "$vorlinden" conflicts
    [[ ! -s $work/out ]] || fail "copies: $(cat "$work/out")"
    start_mount
    eventually same_tree "$files" "$tree/team"
    ctl reset team
    expect 0 "$vorlinden" sync --once
    eventually same_tree "$files" "$tree/team"
    stop mount
}

story "a text"
echo "second" >"$files/text.md"
lose_answer --method PUT
waits edit team/text.md "$files/text.md"
settles

story "a new file"
echo "new" >"$files/folder/new.md"
lose_answer --method PUT
ctl mkdir team:folder
expect 0 "$vorlinden" sync --once
waits create team/folder/new.md "$files/folder/new.md"
settles

story "a blob: its bytes, and the file that refers to them"
for match in /blobs /file; do
    head -c 30000 /dev/urandom >"$files/blob.bin"
    lose_answer --match "$match"
    waits edit team/blob.bin "$files/blob.bin"
    settles
done

story "a move"
mv "$files/moved.md" "$files/folder/moved.md"
lose_answer --match /move
waits move team/moved.md team/folder
settles

story "a deletion"
rm "$files/deleted.md"
lose_answer --method DELETE
waits rm team/deleted.md
settles

story "an answer that is lost again when the change is sent the second time"
echo "third" >"$files/text.md"
ctl fault --status 503 --method PUT
waits edit team/text.md "$files/text.md"
lose_answer --method PUT
expect 4 "$vorlinden" sync --once
settles

story "503: the first edit has to wait, the second goes straight up; the older bytes never follow the newer ones"
echo "older" >"$work/older"
echo "newer" >"$files/edited.md"
ctl fault --status 503 --method PUT
waits edit team/edited.md "$work/older"
expect 0 "$vorlinden" item edit team/edited.md "$files/edited.md"
expect 0 "$vorlinden" sync --once
expect 0 "$vorlinden" item cat team/edited.md
cmp "$work/out" "$files/edited.md" || fail "the server has: $(cat "$work/out")"
expect 0 "$vorlinden" conflicts --json
copy=$(jq -r '.[0].copy' "$work/out")
expect 0 "$vorlinden" item cat "team/$copy"
[[ $(cat "$work/out") == older ]] || fail "the older bytes are lost"
expect 0 "$vorlinden" conflicts keep-theirs "team/$copy"
settles
