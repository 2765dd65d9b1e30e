# shellcheck shell=bash
# What the scripts at the top of the tree share. Sourced with `set -euo pipefail` on; it changes to
# the tree's own folder, so that they work when called from anywhere.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root" || exit

# What a script has running; at its end, whatever brings it about, that is stopped.
worker=""
stopWorker() {
    [[ -z $worker ]] || kill -TERM -- "-$worker" 2> /dev/null || true
    worker=""
}
# For scripts that leave something behind to define anew.
cleanUp() { :; }
trap 'stopWorker; cleanUp' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# Starts a command as `worker`, in a process group of its own, so that it can be stopped with all that
# it started. bash itself would put a signal off until the command has ended.
start() {
    set -m
    "$@" &
    worker=$!
    set +m
}

# Waits for `worker` and returns its status.
finish() {
    local status=0
    wait "$worker" || status=$?
    worker=""
    return "$status"
}

# A program whose memory is laid out at random in too wide a range can't be watched by the thread
# sanitizer of this compiler: put before such a program, this takes the randomness away where that is
# allowed.
plainMemory=()
if setarch -R true 2> /dev/null; then plainMemory=(setarch -R); fi

say() { printf '%s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

# The packages of packages.txt that PURPOSE needs, one a line. A line is a package's name and, after
# "#", the purposes that need it; without any it is needed by all.
packagesFor() {
    local purpose=$1 line name purposes
    while IFS= read -r line || [[ -n $line ]]; do
        name=${line%%#*}
        name=${name//[[:space:]]/}
        [[ -n $name ]] || continue
        purposes=""
        [[ $line != *"#"* ]] || purposes=${line#*#}
        if [[ -z ${purposes//[[:space:]]/} || " ${purposes//,/ } " == *" $purpose "* ]]; then
            printf '%s\n' "$name"
        fi
    done < packages.txt
}

# Those of the given packages that are not installed.
missingOf() {
    local -A installed=()
    local name status
    # dpkg-query fails when it knows nothing of one of them, and lists the others all the same.
    while read -r name status; do
        [[ $status != installed ]] || installed[$name]=1
    done < <(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2> /dev/null || true)
    for name; do
        [[ -n ${installed[$name]:-} ]] || printf '%s\n' "$name"
    done
}

asRoot() {
    if ((EUID == 0)); then
        "$@"
    elif [[ -t 0 ]]; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

# Installs what is missing of packages.txt for the purpose. Silent when nothing is.
needPackages() {
    local -a wanted missing
    # On another system the packages have other names: the build then says itself what it lacks.
    command -v dpkg-query > /dev/null && command -v apt-get > /dev/null || return 0
    mapfile -t wanted < <(packagesFor "$1")
    mapfile -t missing < <(missingOf "${wanted[@]}")
    ((${#missing[@]} > 0)) || return 0

    local byHand="apt-get install --no-install-recommends ${missing[*]}"
    if ((EUID != 0)) && ! command -v sudo > /dev/null; then
        die "Vimble needs packages that are not installed. As root, please run:"$'\n'"  $byHand"
    fi
    # One installation at a time, also with other clones of this tree.
    exec 9< /var/lib/dpkg
    flock 9
    mapfile -t missing < <(missingOf "${wanted[@]}")
    if ((${#missing[@]} > 0)); then
        say "Installing ${#missing[@]} packages that Vimble needs, which takes a minute or two: ${missing[*]}"
        local log
        log=$(mktemp)
        if ! installPackages "${missing[@]}" > "$log" 2>&1 9<&-; then
            tail -n 20 "$log" >&2
            rm -f "$log"
            die "The packages could not be installed. To see why, run as root:"$'\n'"  $byHand"
        fi
        rm -f "$log"
    fi
    exec 9<&-
}

installPackages() {
    # A list that can't be refreshed may still be good enough.
    asRoot apt-get update || true
    asRoot env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 \
        install -y --no-install-recommends "$@"
}

# Runs a command with its output in a file. While it lasts longer than a moment, tells how far it is:
# on a terminal in one line, elsewhere now and then. On failure shows the end of the output.
quietly() {
    local label=$1 log=$2
    shift 2
    mkdir -p "$(dirname "$log")"
    start "$@" > "$log" 2>&1 < /dev/null
    local status=0 ticks=0 step shown=""
    while kill -0 "$worker" 2> /dev/null; do
        sleep 0.2
        ticks=$((ticks + 1))
        step=$(tail -n 1 "$log" | grep -o '^\[[0-9]*/[0-9]*\]' || true)
        if [[ -t 2 ]]; then
            if ((ticks > 5)) && [[ "$label $step" != "$shown" ]]; then
                shown="$label $step"
                printf '\r\033[K%s' "$shown" >&2
            fi
        elif ((ticks == 10 || ticks % 300 == 0)); then
            say "$label $step"
        fi
    done
    finish || status=$?
    [[ ! -t 2 || -z $shown ]] || printf '\r\033[K' >&2
    if ((status != 0)); then
        say "$label failed. The end of what it said:"
        grep -v '^\[[0-9]*/[0-9]*\]' "$log" | tail -n 60 >&2 || true
        say "The whole of it is in $root/$log"
    fi
    return "$status"
}

# The precompiled headers that the compiler found no room for, as targets of that build, one a line.
homelessHeaders() {
    grep -B 1 'PCH allocation failure' "$1" | grep -o -- '-include [^ ]*/cmake_pch.hxx' | sort -u |
        sed "s,^-include $root/${1%.log}/,,; s,$,.gch,"
}

configureAndBuild() {
    local preset=$1 folder=build/$1 home
    shift
    # A folder that was configured in another place is of no use here.
    if [[ -f $folder/CMakeCache.txt ]]; then
        home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$folder/CMakeCache.txt")
        [[ $home == "$root" ]] || rm -rf "$folder"
    fi
    if [[ ! -f $folder/build.ninja || CMakePresets.json -nt $folder/build.ninja ]]; then
        cmake --preset "$preset" || return
    fi
    # The build starts the test programs, to ask for the names of their tests.
    local build=("${plainMemory[@]}" cmake --build --preset "$preset") status=0 headers
    "${build[@]}" ${1:+--target "$@"} || status=$?
    # A precompiled header that the compiler cache has from a build with another layout of memory may find no
    # room in this one. It is made anew then.
    if ((status != 0)) && headers=$(homelessHeaders "build/$preset.log") && [[ $headers ]]; then
        say "Making precompiled headers anew."
        status=0
        (cd "$folder" && xargs rm -f) <<< "$headers"
        xargs env CCACHE_RECACHE=1 "${build[@]}" --target <<< "$headers" &&
            "${build[@]}" ${1:+--target "$@"} || status=$?
    fi
    return "$status"
}

# Configures and builds a preset, or only the given targets of it. Quiet unless it fails.
buildPreset() {
    local preset=$1 status=0
    # Two at a time would spoil each other's work: the second one waits.
    if ! { mkdir -p build && exec 9> "build/.$preset.lock"; } 2> /dev/null; then
        die "Vimble is built in $root/build, where you may not write. Please use a copy of your own."
    fi
    if ! flock -w 3 9; then
        say "Another build of Vimble ($preset) is running; waiting for it."
        flock 9
    fi
    quietly "Building Vimble ($preset)" "build/$preset.log" configureAndBuild "$@" || status=$?
    exec 9>&-
    return "$status"
}
