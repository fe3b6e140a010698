#!/bin/bash
# What a person sees when local changes and remote ones meet: the walk of docs/conflicts.md. Nothing is lost, and each
# outcome is told once.
. "$(dirname "$0")/lib.sh" "$1"

files=$work/files
mkdir -p "$files/plans" "$files/drafts"
for name in plans/budget.md plans/trip.md plans/list.md plans/poem.md drafts/letter.md; do echo "first $name" >"$files/$name"; done
start_server --import "team=$files"
sign_in --device-name "Desk"
"$vorlinden" sync --once 2>"$work/err"
start_mount

item() { "$vorlinden" item journal "$@" >"$work/row" 2>"$work/err" || fail "item journal $*: $(cat "$work/err")"; }
text() { printf '%s\n' "$1" >"$work/text" && printf '%s' "$work/text"; }
# sync_once: one round; its words are in $work/err.
sync_once() { "$vorlinden" sync --once 2>"$work/err" || fail "sync --once: $(cat "$work/err")"; }
told() { grep -qF -- "$1" "$work/err" || fail "not told “$1”: $(cat "$work/err")"; }
day=$(date -u +%F)
copy() { printf '%s (conflicted copy Desk %s%s).md' "$1" "$day" "${2-}"; }
# shows PATH TEXT: in the mounted tree, soon.
has() { [[ $(cat "$tree/team/$1" 2>/dev/null) == "$2" ]]; }
shows() { eventually has "$1" "$2"; }
absent() { [[ ! -e $tree/team/$1 ]]; }

story "an edit that lost: the server's text stands, one's own lies beside it"
item edit team/plans/budget.md "$(text "mine")"
ctl put team:plans/budget.md "$(text "theirs")"
sync_once
told "team/plans/budget.md: “budget.md” changed on another device while you were editing it. Your version was saved as “$(copy budget)”."
shows plans/budget.md theirs
shows "$(copy plans/budget)" mine
expect 0 "$vorlinden" conflicts --json
[[ $(jq -r '.[0] | .original, .originalExists' "$work/out" | xargs) == "plans/budget.md true" ]] || fail "$(cat "$work/out")"

story "a delete that lost: the file stays, changed"
item rm team/plans/trip.md
ctl put team:plans/trip.md "$(text "still needed")"
sync_once
shows plans/trip.md "still needed"

story "a move that lost: the file is where the other device put it"
item mv team/plans/list.md team/plans/groceries.md
ctl mv team:plans/list.md plans/shopping.md
sync_once
shows plans/shopping.md "first plans/list.md"
absent plans/list.md || fail "the old name is still there"
absent plans/groceries.md || fail "the losing name is there"

story "a reset with waiting edits: one that nobody overtook still waits, one that was overtaken is a copy"
item edit team/plans/trip.md "$(text "overtaken")"
item edit team/plans/poem.md "$(text "untouched elsewhere")"
ctl put team:plans/trip.md "$(text "newer")"
ctl reset team
sync_once
told "“trip.md” changed on the server while this Mac was offline or out of date. Your version was kept as “$(copy trip)”."
shows plans/trip.md newer
shows "$(copy plans/trip)" overtaken

story "a folder deleted above an edit: the bytes stay, in a folder of that name, made again"
item edit team/drafts/letter.md "$(text "a long letter")"
ctl rm team:drafts
sync_once
told "“letter.md” changed on another device"
shows "$(copy drafts/letter)" "a long letter"
absent drafts/letter.md || fail "the deleted file is there"

story "each was told once, and is remembered"
sync_once
[[ ! -s $work/err || $(grep -c "Your version" "$work/err") == 0 ]] || fail "told twice: $(cat "$work/err")"
expect 0 "$vorlinden" events
(($(wc -l <"$work/out") >= 3)) || fail "$(cat "$work/out")"
expect 0 "$vorlinden" conflicts
(($(grep -c '^team/' "$work/out") >= 3)) || fail "$(cat "$work/out")"

story "a copy is looked at and settled in one step"
expect 0 "$vorlinden" conflicts diff "team/$(copy plans/budget)"
grep -qx -- "-theirs" "$work/out" && grep -qx "+mine" "$work/out" || fail "$(cat "$work/out")"
expect 0 "$vorlinden" conflicts keep-mine "$tree/team/$(copy plans/budget)"
shows plans/budget.md mine
eventually absent "$(copy plans/budget)"
expect 0 "$vorlinden" conflicts keep-theirs "team/$(copy plans/trip)"
eventually absent "$(copy plans/trip)"
shows plans/trip.md newer
expect 0 "$vorlinden" conflicts keep-mine "team/$(copy drafts/letter)"
shows drafts/letter.md "a long letter"
expect 0 "$vorlinden" conflicts
[[ ! -s $work/out ]] || fail "$(cat "$work/out")"

story "bytes that no change and no file holds any more are kept for a while, and counted"
printf 'an idea' >"$(dirname "$(find "$XDG_DATA_HOME" -name sync.sqlite)")/Spool/edit-12345"
sync_once
expect 0 "$vorlinden" status
grep -q "1 file with bytes that are nowhere else" "$work/out" || fail "$(cat "$work/out")"
[[ $(cat "$(find "$XDG_DATA_HOME" -path '*/Recovered/* unknown edit-12345')") == "an idea" ]] || fail "not kept"
