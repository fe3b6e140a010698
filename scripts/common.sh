# Shared by ./run and ./test: say what happens, install what is missing, configure and build. Sourced by bash
# with the repository's root as working directory.

step() { printf '== %s\n' "$*"; }

die() {
    printf '%s\n' "$*" >&2
    exit 1
}

# install GROUP...: the packages of these groups of scripts/packages that aren't there yet.
install() {
    local wanted=() missing=() group name
    for group in "$@"; do
        while read -r name; do wanted+=("$name"); done < <(awk -v g="$group" '$1 == g { print $2 }' scripts/packages)
    done
    for name in "${wanted[@]}"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null) == installed ]] || missing+=("$name")
    done
    ((${#missing[@]})) || return 0
    step "installing ${#missing[@]} packages: ${missing[*]}"
    local root=()
    if ((EUID != 0)); then
        command -v sudo >/dev/null || die "Run this as root, or install first: apt-get install ${missing[*]}"
        root=(sudo)
    fi
    local log
    log=$(mktemp)
    export DEBIAN_FRONTEND=noninteractive
    if ! { "${root[@]}" apt-get -q update && "${root[@]}" apt-get -q -y --no-install-recommends install "${missing[@]}"; } \
        >"$log" 2>&1 </dev/null; then
        tail -n 30 "$log" >&2
        rm -f "$log"
        die "apt-get could not install the packages above."
    fi
    rm -f "$log"
}

# build PRESET CONFIGURE-OPTIONS... -- TARGETS...: configures and builds quietly, with one line of progress.
build() {
    local preset=$1 options=()
    shift
    while [[ $1 != -- ]]; do
        options+=("$1")
        shift
    done
    shift
    if command -v ccache >/dev/null; then
        options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
        export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
        # Precompiled headers are cached only with these allowances, which suit a header that changes with its text.
        export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
    fi
    local folder=build/$preset
    mkdir -p "$folder"
    local log=$folder/build.log
    step "configuring $folder"
    cmake --preset "$preset" "${options[@]}" >"$log" 2>&1 || { cat "$log" >&2; die "Configuring $folder failed."; }
    step "building $folder: $*"
    local started=$SECONDS
    local status=0
    NINJA_STATUS='[%f/%t] ' nice cmake --build "$folder" --target "$@" -- -j "$(nproc)" 2>&1 | tee "$log" | show_progress ||
        status=$?
    if ((status != 0)); then
        grep -v '^\[[0-9]*/[0-9]*\] ' "$log" | tail -n 100 | cut -c 1-300 >&2
        die "Building $folder failed; all of it is in $log."
    fi
    step "built $folder in $((SECONDS - started)) s"
}

# Ninja's lines as one changing line on a terminal. Elsewhere nothing: a log is read for what went wrong, at its end.
show_progress() {
    local live=0
    [[ -t 1 ]] && live=1
    awk -v live="$live" '
        live && match($0, /^\[[0-9]+\/[0-9]+\]/) {
            split(substr($0, 2, RLENGTH - 2), n, "/")
            printf "\r   %d of %d ", n[1], n[2]
            fflush()
        }
        END { if (live) printf "\r%40s\r", "" }'
}
