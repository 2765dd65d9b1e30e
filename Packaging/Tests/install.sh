#!/usr/bin/env bash
# Installs a build into an empty folder, and compares what is there with what should be.
set -euo pipefail

(($# >= 3)) || {
    echo "Usage: install.sh BUILD BINDIR DATADIR [PROGRAM...]" >&2
    exit 2
}
build=$1
bin=$2
data=$3
shift 3

prefix=$(mktemp -d "${TMPDIR:-/tmp}/vimble-install.XXXXXX")
trap 'rm -rf "$prefix"' EXIT
DESTDIR="" cmake --install "$build" --prefix "$prefix" > "$prefix.log" || {
    cat "$prefix.log"
    rm -f "$prefix.log"
    exit 1
}
rm -f "$prefix.log"

wanted() {
    local name size
    for name; do echo "$bin/$name"; done
    echo "$data/applications/zorvane.Vimble.desktop"
    echo "$data/metainfo/zorvane.Vimble.metainfo.xml"
    echo "$data/icons/hicolor/scalable/apps/zorvane.Vimble.svg"
    echo "$data/icons/hicolor/symbolic/apps/zorvane.Vimble-symbolic.svg"
    for size in 16 22 24 32 48 64 128 256 512; do
        echo "$data/icons/hicolor/${size}x$size/apps/zorvane.Vimble.png"
    done
}
diff <(wanted "$@" | sort) <(cd "$prefix" && find . -type f -printf '%P\n' | sort)

for name; do
    [[ -x $prefix/$bin/$name ]] || {
        echo "$name can't be run." >&2
        exit 1
    }
done

# A PNG has its width and height at byte 16, four bytes each, with the highest byte first.
for size in 16 22 24 32 48 64 128 256 512; do
    head=$(od -An -tu1 -j16 -N8 "$prefix/$data/icons/hicolor/${size}x$size/apps/zorvane.Vimble.png")
    read -r _ _ w1 w0 _ _ h1 h0 <<< "$head"
    ((w1 * 256 + w0 == size && h1 * 256 + h0 == size)) || {
        echo "The icon of size $size is not of that size." >&2
        exit 1
    }
done

# The desktop entry must name an icon and a program that are installed.
entry=$prefix/$data/applications/zorvane.Vimble.desktop
[[ $(sed -n 's/^Icon=//p' "$entry") == zorvane.Vimble ]]
grep -qx 'Exec=vimble %U' "$entry"
grep -qx 'MimeType=x-scheme-handler/vimble;' "$entry"
# Under X11 Qt takes the application's name as the class of its windows.
grep -qx 'StartupWMClass=Vimble' "$entry"
