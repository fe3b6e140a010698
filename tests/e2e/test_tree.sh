#!/bin/bash
# The tree: what was imported is what the mount shows, to the byte, and it follows the server without a remount.
. "$(dirname "$0")/lib.sh" "$1"

story "a folder with all kinds of names and contents"
files=$work/files
mkdir -p "$files/deep/er/and/deeper" "$files/empty names" "$files/ünïcode 日本"
for i in $(seq 1 300); do printf 'text %s\n' "$i" >"$files/deep/file-$i.md"; done
head -c 300000 /dev/urandom >"$files/deep/er/blob.bin"
head -c 3000000 /dev/urandom >"$files/large.bin"
printf 'no newline' >"$files/deep/er/and/deeper/x"
: >"$files/empty.txt"
printf 'a\0b' >"$files/nul.txt"
printf '\xff\xfe' >"$files/not-utf8.txt"
printf 'tab\tand "quotes"\n' >"$files/empty names/a \"quoted\" & ünusual — name.txt"
printf 'x' >"$files/ünïcode 日本/$(printf 'e\xcc\x81')-decomposed"
printf 'y' >"$files/ünïcode 日本/$(printf '\xc3\xa9')-composed"
printf 'case' >"$files/Case"
printf 'other case' >"$files/case"
cp "$vorlinden" "$files/a program" && truncate -s 2M "$files/a program"

start_server --import "files=$files"
sign_in
"$vorlinden" sync --once 2>"$work/err"
start_mount
start_sync
shown=$tree/files

story "diff -r is empty, and tar gives one number twice"
same_tree "$files" "$shown" || fail "$(head "$work/diff")"
first=$(tar cf - -C "$shown" . | wc -c)
second=$(tar cf - -C "$shown" . | wc -c)
[[ $first == "$second" && $first -gt 5000000 ]] || fail "tar: $first, then $second"
[[ $(grep -rl 'text 17$' "$shown" | wc -l) == 1 ]] || fail "grep -r"
[[ $(find "$shown" -type f | wc -l) == $(find "$files" -type f | wc -l) ]] || fail "find"

story "reading only, and it says so"
for command in "touch $shown/new" "mkdir $shown/folder" "rm $shown/Case" "mv $shown/Case $shown/x"; do
    expect 1 $command
    grep -q "Read-only file system" "$work/err" || fail "$command: $(cat "$work/err")"
done

story "a file added, one deleted and one changed are imported again, and the mount follows"
echo "new here" >"$files/deep/new one.md"
rm "$files/deep/file-17.md"
printf 'longer than it was before, and other words\n' >"$files/deep/file-18.md"
printf 'now text' >"$files/deep/er/blob.bin"
ctl import files "$files"
eventually same_tree "$files" "$shown"
[[ $(stat -c %s "$shown/deep/file-18.md") == $(stat -c %s "$files/deep/file-18.md") ]] || fail "size"

story "a move and a new folder on the server"
ctl mv files:deep/er "deep/moved here"
mv "$files/deep/er" "$files/deep/moved here"
eventually same_tree "$files" "$shown"

story "a reset that gives every folder a server's id disturbs no walk, no shell inside and no open file"
exec 7<"$shown/deep/moved here/and/deeper/x"
(
    cd "$shown/deep/moved here/and"
    touch "$work/inside"
    until [[ -e $work/reset ]]; do sleep 0.05; done
    eventually test "$(cat deeper/x)" = 'no newline'
    [[ $(ls) == deeper ]] || fail "the shell inside sees: $(ls)"
    cd ../.. && [[ -e new\ one.md ]] || fail "the way up is gone"
) &
shell=$!
eventually test -e "$work/inside"
(
    until [[ -e $work/reset ]]; do find "$shown" -type f >/dev/null 2>>"$work/walks"; done
    find "$shown" -type f >/dev/null 2>>"$work/walks"
) &
walker=$!
old=$(getfattr --only-values -n user.vorlinden.id "$shown/deep" 2>/dev/null)
ctl reset files --folders
folder_has_new_id() { [[ $(getfattr --only-values -n user.vorlinden.id "$shown/deep" 2>/dev/null) != "$old" ]]; }
eventually folder_has_new_id
touch "$work/reset"
wait "$shell" || fail "the shell inside"
wait "$walker" || fail "the walk"
[[ ! -s $work/walks ]] || fail "a walk failed: $(head "$work/walks")"
[[ $(cat <&7) == 'no newline' ]] || fail "the open file"
exec 7<&-
same_tree "$files" "$shown" || fail "$(head "$work/diff")"

story "all ends cleanly on SIGINT and SIGTERM"
pids=("${pid_of[mount]}" "${pid_of[sync]}" "${pid_of[server]}")
kill -INT "${pid_of[mount]}"
wait "${pid_of[mount]}" || fail "mount ended with $?"
! mounted || fail "still mounted"
kill -TERM "${pid_of[sync]}"
wait "${pid_of[sync]}" || fail "sync ended with $?"
kill -TERM "${pid_of[server]}"
wait "${pid_of[server]}" || fail "server ended with $?"
no_stray_processes "${pids[@]}"
