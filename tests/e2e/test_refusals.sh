#!/bin/bash
# What the server doesn't take is told in one clear sentence, nothing is lost, and the person can settle it.
. "$(dirname "$0")/lib.sh" "$1"

files=$work/files
mkdir -p "$files/rules"
for name in rules/law a b c; do echo "first $name" >"$files/$name.md"; done
mkdir "$work/second"
echo "in the second brain" >"$work/second/x.md"
start_server --import "team=$files" --import "second=$work/second" --read-only team:rules --max-upload 5000
sign_in --device-name Desk
expect 0 "$vorlinden" sync --once
text() { printf '%s\n' "$1" >"$work/text" && printf '%s' "$work/text"; }
# status_is STATUS TEXT: exit status, and a line that holds the text.
status_is() {
    expect "$1" "$vorlinden" status
    grep -qF -- "$2" "$work/out" || fail "no “$2” in: $(cat "$work/out")"
}
# told TEXT: among what the last command told.
told() { grep -qF -- "$1" "$work/err" || fail "no “$1” in: $(cat "$work/err")"; }
day=$(date -u +%F)

story "a folder that is read-only: the edit lies beside it, on this machine only"
expect 0 "$vorlinden" item edit team/rules/law.md "$(text "my law")"
status_is 3 "team/rules/law (conflicted copy Desk $day).md: You have no write access to this folder; the file stays on this machine only."
expect 0 "$vorlinden" item cat team/rules/law.md
[[ $(cat "$work/out") == "first rules/law" ]] || fail "$(cat "$work/out")"
expect 0 "$vorlinden" item cat "team/rules/law (conflicted copy Desk $day).md"
[[ $(cat "$work/out") == "my law" ]] || fail "$(cat "$work/out")"
expect 0 "$vorlinden" sync --once
told "You don't have write access to “law.md”."
expect 3 "$vorlinden" retry "team/rules/law (conflicted copy Desk $day).md"
expect 0 "$vorlinden" conflicts keep-theirs "team/rules/law (conflicted copy Desk $day).md"
status_is 0 "state: in step"

story "a move and a deletion there: undone, and said"
expect 0 "$vorlinden" item rename team/rules/law.md order.md
expect 0 "$vorlinden" item rm team/rules/law.md
expect 0 "$vorlinden" sync --once
told "It was not moved."
told "It was not deleted."
expect 0 "$vorlinden" item cat team/rules/law.md

story "413: the file stays here and shows why; when the server takes more, it goes up"
head -c 6000 /dev/zero | tr '\0' x >"$work/large"
expect 0 "$vorlinden" item create team/large.txt "$work/large"
status_is 3 "team/large.txt: Not uploaded: "
expect 3 "$vorlinden" retry team/large.txt
says "refused it again"
stop server
start_server --read-only team:rules
expect 0 "$vorlinden" retry team/large.txt
says "The server has it now."
status_is 0 "state: in step"

story "503: the change waits, and says for what"
ctl fault --status 503 --times 2 --match /file
expect 4 "$vorlinden" item edit team/a.md "$(text "again")"
expect 4 "$vorlinden" sync --once
told "The server can't answer just now (503)."
status_is 4 "new content of team/a.md (just now): The server can't answer just now (503)."
expect 0 "$vorlinden" sync --once
expect 0 "$vorlinden" item cat team/a.md
[[ $(cat "$work/out") == again ]] || fail "$(cat "$work/out")"

story "a brain that was taken away: what waited for it is kept, and counted"
stop server
expect 4 "$vorlinden" item edit second/x.md "$(text "for nobody")"
start_server --read-only team:rules
ctl revoke second
expect 0 "$vorlinden" sync --once
status_is 4 "new content of second/x.md (just now): You no longer have this brain; the change is kept on this machine."
ctl grant second
expect 0 "$vorlinden" sync --once
expect 0 "$vorlinden" conflicts --json
copy=$(jq -r '.[0].copy // "x.md"' "$work/out")
expect 0 "$vorlinden" item cat "second/$copy"
[[ $(cat "$work/out") == "for nobody" ]] || fail "$(cat "$work/out")"

story "signed out elsewhere: what is changed waits for the next sign-in"
ctl sign-out
status=0
"$vorlinden" item edit team/b.md "$(text "while signed out")" >"$work/out" 2>"$work/err" || status=$?
((status == 3)) || fail "status $status: $(cat "$work/err")"
expect 3 "$vorlinden" sync --once
expect 3 "$vorlinden" status
sign_in --device-name Desk
expect 0 "$vorlinden" sync --once
expect 0 "$vorlinden" item cat team/b.md
[[ $(cat "$work/out") == "while signed out" ]] || fail "$(cat "$work/out")"
