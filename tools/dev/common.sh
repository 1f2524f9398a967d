# shellcheck shell=bash
# common - shared by the verbs of ./dev, which source it from the root of the checkout

say() { echo "dev: $*" >&2; }
give_up() { say "$@"; exit 1; }

# Runs a command as root, through sudo if need be.
as_root() {
    if [ "$EUID" = 0 ]; then
        "$@"
    else
        command -v sudo >/dev/null || give_up "this needs root, and there is no sudo"
        sudo env ${MAILVEK_CACHE+MAILVEK_CACHE="$MAILVEK_CACHE"} ${CI+CI="$CI"} TERM="${TERM:-dumb}" "$@"
    fi
}

# Runs a command and shows its output only when it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 </dev/null || status=$?
    [ "$status" = 0 ] || cat "$log" >&2
    rm -f "$log"
    return "$status"
}

missing_packages() { # LIST_FILE...
    local name
    grep -hv '^#' "$@" | while read -r name; do
        dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null | grep -qx installed || echo "$name"
    done
}

# Installs the missing packages of the lists.
install_packages() { # LIST_FILE...
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${#missing[@]} packages: ${missing[*]}"
    quietly as_root apt-get -o DPkg::Lock::Timeout=300 update
    quietly as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}"
    say "packages installed"
}

# Copies the files of the checkout into a directory anew, except for the directory's own build. Another
# user's checkout may be copied.
copy_tree() { # DIRECTORY
    mkdir -p "$1"
    find "$1" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
    git -c safe.directory='*' ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
        tar --null --files-from - -c | tar -x --no-same-owner -C "$1"
}

# A compiler cache, where there is one, serves every checkout and the precompiled headers of the tests.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros

# Configures a preset and builds all of it or the named targets. On a terminal it shows ninja's
# progress, elsewhere ninja's output when the build fails.
build() { # PRESET [TARGET...]
    local preset=$1 started=$SECONDS build=(cmake --build --preset "$1")
    shift
    [ $# = 0 ] || build+=(--target "$@")
    say "building preset $preset"
    quietly cmake --preset "$preset" "-DCMAKE_CXX_COMPILER_LAUNCHER=$(command -v ccache || true)" ||
        give_up "preset $preset cannot be configured"
    if [ -t 2 ]; then "${build[@]}" >&2; else quietly "${build[@]}"; fi ||
        give_up "preset $preset does not build"
    say "preset $preset built in $((SECONDS - started)) s"
}

# Prints why this machine allows no throw-away mail hosts, or nothing when it does. An image that
# cannot be built is an error, not a refusal.
host_refusal() {
    (as_root tests/host/enter --bare true) 2>&1 || return 0
    as_root tests/host/image >/dev/null || return 1
    (as_root tests/host/enter true) 2>&1 || return 0
}
