#!/bin/bash
# Whatever is wrong on this machine is said in one clear sentence, with the proper exit status, and nothing is damaged.
. "$(dirname "$0")/lib.sh" "$1"

mkdir -p "$work/files"
echo hello >"$work/files/a.txt"
start_server --import "files=$work/files"

story "before any sign-in, everything that needs one says so"
expect 3 "$vorlinden" sync --once
says "vorlinden login"
expect 3 "$vorlinden" status

story "a base URL with a typo is refused with the reason"
for text in 127.0.0.1:80 htp://127.0.0.1 "http://127.0.0.1:99999" "https://"; do
    expect 2 "$vorlinden" config base-url "$text"
    says "can't be the server's address"
done
expect 0 "$vorlinden" config base-url
grep -q '\.example$' "$work/out" || fail "a refused address was stored"

story "an address where no sync server answers"
"$vorlinden" config base-url http://127.0.0.1:1
expect 1 "$vorlinden" login --no-browser
says "config base-url"
"$vorlinden" config base-url "$url/elsewhere"
expect 1 "$vorlinden" login --no-browser
says "config base-url"

story "a wrong command line"
expect 2 "$vorlinden" sync --onec
expect 2 "$vorlinden" nonsense
expect 2 "$vorlinden" sync --interval 0
for verb in "" config login sync status logout open-url server server-ctl; do
    expect 0 "$vorlinden" $verb --help
    grep -qi usage "$work/out" || fail "no usage for $verb"
done

sign_in
"$vorlinden" sync --once

story "a sign-in is not shown to another server"
expect 1 "$vorlinden" config base-url http://127.0.0.1:1
says "vorlinden logout"
expect 0 "$vorlinden" config base-url "$url/"
expect 0 "$vorlinden" config base-url "$url"

group="$XDG_DATA_HOME/vorlinden/Group Containers/Q4TRW71B6N.ai.vorlinden.desktop"
catalogue="$group/Library/Application Support/Vorlinden/sync.sqlite"
[[ -f $catalogue ]] || catalogue=$(find "$XDG_DATA_HOME" -name sync.sqlite)
secret=$(find "$XDG_DATA_HOME" -type f -path '*ecret*')
[[ -f $catalogue && -f $secret ]] || fail "catalogue or secret not found"

story "a stored sign-in that is garbage, or that others can read"
cp -p "$secret" "$work/secret.kept"
echo 'no json' >"$secret"
for verb in "sync --once"; do
    expect 3 "$vorlinden" $verb
    says "vorlinden login"
done
expect 3 "$vorlinden" status
[[ $(cat "$secret") == "no json" ]] || fail "the garbage was touched"
cp -p "$work/secret.kept" "$secret"
chmod 644 "$secret"
expect 3 "$vorlinden" sync --once
[[ $(stat -c %a "$secret") == 644 ]] || fail "the mode was changed behind the person's back"
chmod 600 "$secret"
expect 0 "$vorlinden" sync --once

story "a catalogue of a newer version, and one full of garbage: left as they are"
sqlite3 "$catalogue" 'PRAGMA wal_checkpoint(TRUNCATE)' >/dev/null
cp "$catalogue" "$work/catalogue.kept"
sqlite3 "$catalogue" 'PRAGMA user_version = 99'
sqlite3 "$catalogue" 'PRAGMA wal_checkpoint(TRUNCATE)' >/dev/null
before=$(sha256sum <"$catalogue")
for verb in "sync --once" status "login --no-browser"; do
    expect 1 "$vorlinden" $verb
    says "newer version"
done
[[ $(sha256sum <"$catalogue") == "$before" ]] || fail "the newer catalogue was touched"
rm -f "$catalogue-wal" "$catalogue-shm"
head -c 20000 /dev/urandom >"$catalogue"
before=$(sha256sum <"$catalogue")
for verb in "sync --once" status; do
    expect 1 "$vorlinden" $verb
    says "damaged"
done
[[ $(sha256sum <"$catalogue") == "$before" ]] || fail "the garbage was touched"
rm -f "$catalogue" "$catalogue-wal" "$catalogue-shm"
cp "$work/catalogue.kept" "$catalogue"
expect 0 "$vorlinden" sync --once

story "a full disk under the catalogue"
if ((EUID == 0)); then
    small=$work/small
    mkdir "$small"
    mount -t tmpfs -o size=600k tmpfs "$small"
    cp -a "$XDG_DATA_HOME" "$small/data"
    (
        export XDG_DATA_HOME=$small/data
        for i in $(seq 1 4000); do printf 'x%s\n' "$i" >"$work/files/file $i with a long name to fill the disk.txt"; done
        ctl import files "$work/files"
        expect 1 "$vorlinden" sync --once
        grep -qi "disk is full" "$work/err" || fail "no word of the full disk: $(cat "$work/err")"
        mount -o remount,size=60m "$small"
        [[ $(sqlite3 "$(find "$XDG_DATA_HOME" -name sync.sqlite)" 'PRAGMA integrity_check') == ok ]] || fail "damaged"
        expect 0 "$vorlinden" sync --once
    )
    umount "$small"
else
    story "  (needs root for a small file system of its own; not tried)"
fi

story "standard output that can't be written is no success"
status=0
"$vorlinden" status >/dev/full 2>"$work/err" || status=$?
((status == 1)) || fail "status $status with a full standard output"
