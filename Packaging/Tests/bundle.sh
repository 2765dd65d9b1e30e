#!/usr/bin/env bash
# Makes a small bundle, checks all that is in it, and moves it to other places.
set -euo pipefail

(($# == 2)) || {
    echo "Usage: bundle.sh SOURCES CODESIGN" >&2
    exit 2
}
sources=$1
codesign=$2
make=$sources/scripts/make-bundle

work=$(mktemp -d "${TMPDIR:-/tmp}/vimble-bundle.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() {
    echo "failed: $*" >&2
    exit 1
}

made=$work/Vimble.app
url='https://example.org/a?b=1&c=<2>/latest.json'
mkdir -p "$made"
touch "$made/of the bundle before"
"$make" --version 1.2.3 --manifest-url "$url" --minimum-system-version 12 --program "Vimble=$codesign" \
    --program "vimble-codesign=$codesign" --service "installer=$codesign" "$made"

### The property list describes the bundle

python3 - "$made/Contents/Info.plist" "$url" << 'END'
import plistlib, sys
with open(sys.argv[1], "rb") as file:
    found = plistlib.load(file, fmt=plistlib.FMT_XML)
wanted = {
    "CFBundleDisplayName": "Vimble",
    "CFBundleExecutable": "Vimble",
    "CFBundleIdentifier": "zorvane.Vimble",
    "CFBundleInfoDictionaryVersion": "6.0",
    "CFBundleName": "Vimble",
    "CFBundlePackageType": "APPL",
    "CFBundleShortVersionString": "1.2.3",
    "CFBundleVersion": "1.2.3",
    "LSMinimumSystemVersion": "12",
    "UpdateKitManifestURL": sys.argv[2],
}
assert found == wanted, found
END

### Files and permissions

[[ $(ls -A "$work") == Vimble.app ]] || fail "something was left beside the bundle"
[[ ! -e "$made/of the bundle before" ]] || fail "something of the bundle before is in it"
contents=$made/Contents
[[ $(ls -A "$contents") == $'Frameworks\nInfo.plist\nLinux\nResources\nServices' ]] || fail "the folders are others"
for program in Linux/Vimble Linux/vimble-codesign Services/installer; do
    [[ $(stat -c %a "$contents/$program") == 755 ]] || fail "$program can't be run by all"
done
[[ -z $(find "$made" -type d ! -perm 755) ]] || fail "there are folders with other permissions than 0755"
[[ -z $(find "$made" -type f ! -perm 644 ! -path '*/Linux/*' ! -path '*/Services/*') ]] || fail "there are files with other permissions"
[[ -z $(find "$made" ! -type d ! -type f) ]] || fail "there is something other than files and folders"
desktop-file-validate "$contents/Resources/zorvane.Vimble.desktop"
[[ -s $contents/Resources/icons/hicolor/48x48/apps/zorvane.Vimble.png ]] || fail "there are no icons"

### The machine's libraries are not in it; the others are, each with its licence

frameworks=$contents/Frameworks
[[ -f $frameworks/libcrypto.so.3 ]] || fail "libcrypto is not in it"
for name in libc.so.6 libstdc++.so.6 ld-linux-x86-64.so.2; do
    [[ ! -e $frameworks/$name ]] || fail "$name is the machine's"
done
for file in "$contents"/Linux/*; do
    path=$(readelf -d "$file" | grep -E '\((RPATH|RUNPATH)\)')
    [[ $path == *"(RPATH)"*"[\$ORIGIN/../Frameworks]" ]] || fail "$file looks for libraries in: $path"
done
grep -q '^libssl3 ' "$contents/Resources/Licences/README.txt" || fail "the package of libcrypto is not named"
[[ -s $contents/Resources/Licences/libssl3/copyright ]] || fail "there is no licence for libcrypto"
[[ -s $contents/Resources/Licences/common-licenses/Apache-2.0 ]] || fail "a licence is only named"

### It works in any folder, and with another LD_LIBRARY_PATH

moved="$work/another place/Vimble 2.app"
mkdir "$work/another place" "$work/other libraries"
mv "$made" "$moved"
for name in "$moved"/Contents/Frameworks/*; do touch "$work/other libraries/$(basename "$name")"; done
tool=$moved/Contents/Linux/vimble-codesign
LD_LIBRARY_PATH="$work/other libraries" "$tool" --adhoc "$moved"
"$moved/Contents/Services/installer" --verify "$moved"
while read -r name _ place _; do
    [[ ! -e $moved/Contents/Frameworks/$name || $place == "${moved// /_}/"* ]] || fail "$name is taken from $place"
done < <(ldd "$tool" | sed "s|$moved|${moved// /_}|g")
cp -a "$moved" "$work/copy.app"
"$tool" --verify "$work/copy.app"

### Wrong arguments are refused before anything is made or removed

refuses() {
    local text=$1
    shift
    if "$make" "$@" 2> "$work/why"; then fail "it takes: $*"; fi
    grep -qF -e "$text" "$work/why" || fail "it says of $*: $(< "$work/why")"
}
for version in "" 1. .1 1.2.3.4 v1.2 1.2-beta "1 2" -1; do
    refuses "A version is" --version "$version" --program "Vimble=$codesign" "$work/copy.app"
done
refuses "no version of a system" --version 1 --minimum-system-version twelve --program "Vimble=$codesign" "$work/copy.app"
refuses "ends in .app" --version 1 --program "Vimble=$codesign" "$work/copy"
refuses "ends in .app" --version 1 --program "Vimble=$codesign" "$work/.app"
refuses "There is no such program" --version 1 --program "Vimble=$work/nothing" "$work/copy.app"
refuses "There is no such program" --version 1 --program "Vimble" "$work/copy.app"
refuses "has to be Vimble" --version 1 --program "Other=$codesign" "$work/copy.app"
refuses "There is no plugin" --version 1 --program "Vimble=$codesign" --plugins "$work" "$work/copy.app"
refuses "Usage:" --version 1 --program "Vimble=$codesign"
refuses "Usage:" --wrong
"$tool" --verify "$work/copy.app"
[[ -z $(find "$work" -name '.bundle.*') ]] || fail "something was left behind"
