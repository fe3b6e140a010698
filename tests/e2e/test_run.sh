#!/bin/bash
# ./run FOLDER: the tree is up, Ctrl-C ends everything, a second start goes on from there.
. "$(dirname "$0")/lib.sh" "$1"

files="$work/My Files"
mkdir -p "$files/folder"
echo one >"$files/folder/one.md"
head -c 10000 /dev/urandom >"$files/two.bin"
export VORLINDEN_PROGRAM=$vorlinden VORLINDEN_RUN_STATE=$work/run
root=$(cd "$(dirname "$0")/../.." && pwd)
tree=$work/run/tree

# In a process group of its own and with SIGINT not ignored, as a terminal would start it.
start_run() {
    : >"$work/run.log"
    setsid env --default-signal=INT "$root/run" "$files" >"$work/run.log" 2>&1 </dev/null &
    run=$!
    eventually grep -q "Ctrl-C ends it all" "$work/run.log"
}
end_run() {
    local children status=0
    children=$(pgrep -s "$run" || true)
    kill -INT -- "-$run"
    wait "$run" || status=$?
    ((status == 0)) || fail "./run ended with $status: $(cat "$work/run.log")"
    ! mounted || fail "still mounted"
    no_stray_processes $children
}

for time in first second; do
    story "the $time start"
    start_run
    same_tree "$files" "$tree/my-files" || fail "$(head "$work/diff")"
    echo "by the $time" >"$files/$time.md"
    "$vorlinden" server-ctl import --data "$work/run/server" my-files "$files" >"$work/out" 2>&1 || fail "import"
    eventually same_tree "$files" "$tree/my-files"
    (. "$work/run/env" && vorlinden status >"$work/out") || fail "status in its environment"
    end_run
done

story "after it was killed, the next start tidies up"
start_run
kill -KILL "$run"
wait "$run" 2>/dev/null || true
start_run
same_tree "$files" "$tree/my-files" || fail "$(head "$work/diff")"
end_run
[[ ! -e $XDG_DATA_HOME && ! -e $XDG_CONFIG_HOME ]] || fail "./run touched the folders of its caller"
