# Sourced by ./run and ./test: brings the machine and build/release up to date, silently. The sourcing script sets
# `root`, the clone's folder. The current directory is never changed, so that relative arguments keep their meaning.

build=$root/build/release
log=$root/build/setup.log
packageStamp=$root/build/packages
configureStamp=$build/settings

# fail TITLE REMEDY: ends the script with the end of the log and what to do about it.
fail() {
    {
        echo "corvane set-up: could not $1."
        [ ! -s "$log" ] || { echo "The end of $log:"; tail -n 30 -- "$log" | sed 's/^/  /'; }
        echo "$2"
    } >&2
    exit 1
}

# step TITLE REMEDY COMMAND...
step() {
    local title=$1 remedy=$2
    shift 2
    echo "== $title" >>"$log"
    "$@" >>"$log" 2>&1 </dev/null || fail "$title" "$remedy"
}

# Says once, and only to a person, why nothing happens for a while.
announce() {
    [ ! -t 2 ] || [ -n "${announced-}" ] || echo "corvane: setting up and building, a few minutes (log: $log)" >&2
    announced=1
}

# One set-up of this clone at a time; released by `endSetup` or by the end of the script.
beginSetup() {
    { mkdir -p "$root/build" && : >>"$log" && exec 9>"$root/build/setup.lock"; } 2>/dev/null ||
        { log=; fail "write to $root/build" "Call it as the user who owns that folder, or remove the folder."; }
    ! command -v flock >/dev/null || flock 9
    : >"$log"
}

endSetup() { exec 9>&-; }

# packages PURPOSE...: the names listed for these purposes.
packages() {
    local purpose name
    while read -r purpose name; do
        case " $* " in *" $purpose "*) echo "$name" ;; esac
    done <"$root/cmake/packages.txt"
}

missingPackages() {
    local name
    for name in $(packages "$@"); do
        case $(dpkg-query -W -f '${db:Status-Abbrev}' "$name" 2>/dev/null) in
        ii* | hi*) ;;
        *) echo "$name" ;;
        esac
    done
}

asRoot() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

canBecomeRoot() {
    [ "$(id -u)" -eq 0 ] || { command -v sudo >/dev/null && { [ -t 2 ] || sudo -n true 2>/dev/null; }; }
}

# installPackages PURPOSE...: does nothing, not even a look, while neither the list nor the package database changed.
installPackages() {
    local stamp="$packageStamp-$1${2:+-$2}" missing remedy
    [ -e /var/lib/dpkg/status ] || return 0
    [ ! "$stamp" -nt "$root/cmake/packages.txt" ] || [ ! "$stamp" -nt /var/lib/dpkg/status ] || return 0
    missing=$(missingPackages "$@" | tr '\n' ' ')
    if [ -n "$missing" ]; then
        remedy="apt-get install --no-install-recommends $missing"
        canBecomeRoot || fail "install packages without being root and without sudo" \
            "Have an administrator run, then try again: apt-get update && $remedy"
        announce
        step "update the package lists" "Check the network and the system's package sources, then try again." \
            asRoot apt-get -qq -o DPkg::Lock::Timeout=300 update
        # shellcheck disable=SC2086 # one word a package
        step "install packages" "Mend what the log names, or run as root: $remedy" \
            asRoot env DEBIAN_FRONTEND=noninteractive apt-get -qq -y -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 \
            install --no-install-recommends $missing
    fi
    : >"$stamp"
}

# configure SETTING...: configures when the settings, the presets or the clone's place changed. Without settings an
# existing build keeps its own, so that ./run after ./test has nothing to do.
configure() {
    local settings setting
    if [ $# -eq 0 ]; then
        while IFS= read -r setting; do set -- "$@" "$setting"; done < <(sed 1d "$configureStamp" 2>/dev/null)
        [ $# -gt 0 ] || set -- -DCORVANE_BUILD_TESTS=OFF
    fi
    settings=$(printf '%s\n' "$root" "$@")
    if [ "$(cat -- "$configureStamp" 2>/dev/null)" != "$settings" ] || [ ! -e "$build/build.ninja" ] ||
        [ "$root/CMakePresets.json" -nt "$configureStamp" ]; then
        announce
        rm -f -- "$configureStamp"
        step "configure the build" "If a program or library is missing, install its package." \
            cmake --fresh -S "$root" --preset release "$@"
        printf '%s\n' "$settings" >"$configureStamp"
    fi
}

# compile TARGET...
compile() {
    step "build" "The log's first error says why." cmake --build "$build" --target "$@"
}
