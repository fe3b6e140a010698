#!/bin/bash
# A day of work without the server: all of it arrives later, nothing twice, nothing lost; and the same with every process
# killed again and again.
. "$(dirname "$0")/lib.sh" "$1"

files=$work/files      # what the tree must be in the end
mkdir -p "$files/notes" "$files/plans/deep" "$work/new"
for i in $(seq 1 60); do printf 'text %s\n' "$i" >"$files/notes/$i.md"; done
for i in 1 2 3 4 5; do head -c 20000 /dev/urandom >"$files/plans/deep/$i.bin"; done
start_server --import "team=$files"
sign_in
"$vorlinden" sync --once 2>"$work/err"

# item VERB ARGUMENTS...: as the platform would ask for it. Done or kept for later is both well.
item() {
    local status=0
    "$vorlinden" item "$@" >"$work/out" 2>"$work/err" </dev/null || status=$?
    ((status == 0 || status == 4)) || fail "item $*: status $status, $(cat "$work/err")"
}
# The same for a process that may be killed at any moment: asked again until it was heard. One that was heard before
# it was killed finds its item gone or moved.
stubborn_item() {
    local status=137 delay tries=0
    until ((status == 0 || status == 4 || status == 1)); do
        ((++tries < 100)) || fail "item $*: status $status, $(cat "$work/err")"
        delay=0.0$((RANDOM % 9 + 1))
        status=0
        (timeout -s KILL "$delay" "$vorlinden" item "$@" >"$work/out" 2>"$work/err" </dev/null) 2>/dev/null || status=$?
        if ((status == 137 && RANDOM % 4 == 0)); then
            status=0
            "$vorlinden" item "$@" >"$work/out" 2>"$work/err" </dev/null || status=$?
        fi
    done
}
# day ITEM TAG RENAMED MOVED DELETED: fifty changes, each to a file of its own, done to $files as well. The last three
# are the first numbers of the files that it takes away from notes.
day() {
    local ask=$1 tag=$2 i
    for i in $(seq 1 15); do
        printf '%s new %s\n' "$tag" "$i" >"$files/notes/$tag $i.md"
        $ask create "team/notes/$tag $i.md" "$files/notes/$tag $i.md"
    done
    for i in $(seq 1 10); do
        printf '%s edit %s\n' "$tag" "$i" >"$files/notes/$i.md"
        $ask edit "team/notes/$i.md" "$files/notes/$i.md"
    done
    for i in 1 2 3 4 5; do
        head -c 30000 /dev/urandom >"$files/plans/deep/$i.bin"
        $ask edit "team/plans/deep/$i.bin" "$files/plans/deep/$i.bin"
    done
    for i in $(seq "$3" $(($3 + 7))); do
        mv "$files/notes/$i.md" "$files/notes/renamed $i.md"
        $ask rename "team/notes/$i.md" "renamed $i.md"
    done
    for i in $(seq "$4" $(($4 + 5))); do
        mv "$files/notes/$i.md" "$files/plans/$i.md"
        $ask move "team/notes/$i.md" team/plans
    done
    for i in $(seq "$5" $(($5 + 5))); do
        rm "$files/notes/$i.md"
        $ask rm "team/notes/$i.md"
    done
}
in_step() { "$vorlinden" status --json >"$work/out" 2>&1; }
# ends_well: nothing waits, nothing is in doubt, and what the server has, read anew, is what was meant.
ends_well() {
    stop sync 2>/dev/null  # it may pause for long by now; a fresh one asks at once
    start_sync
    eventually in_step
    [[ $(jq '.waiting | length' "$work/out") == 0 ]] || fail "$(cat "$work/out")"
    ctl reset team
    stop sync
    expect 0 "$vorlinden" sync --once
    start_mount
    eventually same_tree "$files" "$tree/team"
    stop mount
    start_sync
}

story "fifty changes without the server, none of which is lost or waits for it"
stop server
day item quiet 11 19 25
expect 4 "$vorlinden" status --json
[[ $(jq '.waiting | length' "$work/out") == 50 ]] || fail "$(jq '.waiting | length' "$work/out") wait"
expect 4 "$vorlinden" status
grep -q "waiting: 50 changes" "$work/out" || fail "$(cat "$work/out")"

story "the server is back: all of it arrives"
start_server
start_sync
ends_well
expect 0 "$vorlinden" conflicts
[[ ! -s $work/out ]] || fail "copies: $(cat "$work/out")"

story "fifty more, with every process killed again and again"
(
    set +e
    while [[ ! -e $work/enough ]]; do
        sleep "0.$((RANDOM % 5 + 1))"
        read -r server_pid sync_pid <"$work/pids" 2>/dev/null || continue
        if ((RANDOM % 2)); then kill -KILL "$sync_pid"; else kill -KILL "$server_pid"; fi 2>/dev/null
    done
) &
killer=$!
revive() {
    if gone server; then stop server 2>/dev/null; start_server; fi
    if gone sync; then stop sync 2>/dev/null; start_sync; fi
    echo "${pid_of[server]} ${pid_of[sync]}" >"$work/pids.new" && mv "$work/pids.new" "$work/pids"
}
battered_item() { revive; stubborn_item "$@"; }
day battered_item battered 31 39 45
touch "$work/enough"
wait "$killer" || true
revive
stop sync 2>/dev/null  # it may pause for long by now; a fresh one asks at once
start_sync
eventually in_step
# An edit that was asked for twice can meet itself: then it lies beside the file as a copy with the same content.
"$vorlinden" conflicts --json | jq -r '.[] | .copy + "\t" + .original' >"$work/copies"
while IFS=$'\t' read -r copy original; do
    "$vorlinden" item cat "team/$copy" >"$work/copy" && cmp "$work/copy" "$files/$original" || fail "$copy differs"
    expect 0 "$vorlinden" conflicts keep-theirs "team/$copy"
done <"$work/copies"
ends_well
