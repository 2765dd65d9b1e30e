#!/usr/bin/env bash
# Publishes small releases with a signing identity made for the test, and checks what was published.
set -euo pipefail

(($# == 2)) || {
    echo "Usage: release.sh SOURCES CODESIGN" >&2
    exit 2
}
sources=$1
codesign=$2

work=$(mktemp -d "${TMPDIR:-/tmp}/vimble-release.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() {
    echo "failed: $*" >&2
    exit 1
}

### Two identities, and a build that has only the signing program

umask 077
cat > signer.cnf << 'END'
[req]
prompt = no
distinguished_name = name
x509_extensions = extensions
[name]
OU = TEST01
CN = Test Releases
[extensions]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, codeSigning
END
newIdentity() {
    openssl req -x509 -config signer.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -noenc -days 2 -keyout key.pem \
        -out certificate.pem 2> openssl.log || fail "$(< openssl.log)"
    cat key.pem certificate.pem > "$1"
}
newIdentity other.pem
newIdentity identity.pem
umask 022
workFolders() { find "$sources/build" -maxdepth 1 -name '.release.*'; }
workFoldersBefore=$(workFolders)
mkdir build
printf '%s\n' --program "Vimble=$codesign" --program "vimble-codesign=$codesign" > build/bundle-arguments

out="$work/for everybody"
release() { "$sources/release" --build build "$@" > said 2>&1 || {
    cat said >&2
    fail "release $*"
}; }
plist() { sed -n "/<key>$2</{n;s/.*<string>\(.*\)<\/string>/\1/p}" "$1/Contents/Info.plist"; }
unpack() {
    rm -rf unpacked
    mkdir unpacked
    (cd unpacked && cmake -E tar xf "$1")
}

### The first release is published to a path

(umask 077 && release 1.0 identity.pem "for everybody")
[[ $(stat -c %a "$out") == 755 ]] || fail "not everybody may look into the folder"
[[ $(ls -A "$out") == $'Vimble-1.0.zip\nlatest.json\nmanifest-url' ]] || fail "there is: $(ls -A "$out")"
[[ -z $(find "$out" -type f ! -perm 644) ]] || fail "not everybody may read it"
python3 -c 'import json, sys
found = json.load(open(sys.argv[1]))
assert found == {"version": "1.0", "url": "Vimble-1.0.zip"}, found' "$out/latest.json"
unpack "$out/Vimble-1.0.zip"
[[ $(ls -A unpacked) == Vimble.app ]] || fail "the archive holds $(ls -A unpacked)"
"$codesign" --verify unpacked/Vimble.app
[[ $'\n'$("$codesign" -d unpacked/Vimble.app)$'\n' == *$'\nTeamIdentifier=TEST01\n'* ]] || fail "it is signed by somebody else"
[[ $(plist unpacked/Vimble.app CFBundleShortVersionString) == 1.0 ]] || fail "it is another version"
[[ $(plist unpacked/Vimble.app UpdateKitManifestURL) == "file://$(realpath "$work")/for%20everybody/latest.json" ]] ||
    fail "it looks at $(plist unpacked/Vimble.app UpdateKitManifestURL)"
[[ -z $(plist unpacked/Vimble.app LSMinimumSystemVersion) ]] || fail "it does not run everywhere"

### The second is for the web and for newer systems only. The third takes the URL of the second

url=https://example.org/vimble/latest.json
release --manifest-url "$url" --minimum-system-version 12.1 1.9.3 identity.pem "$out"
python3 -c 'import json, sys
found = json.load(open(sys.argv[1]))
assert found == {"version": "1.9.3", "url": "Vimble-1.9.3.zip", "minimumSystemVersion": "12.1"}, found' "$out/latest.json"
unpack "$out/Vimble-1.9.3.zip"
[[ $(plist unpacked/Vimble.app LSMinimumSystemVersion) == 12.1 ]] || fail "it runs everywhere"
release 1.10 identity.pem "$out/"
unpack "$out/Vimble-1.10.zip"
[[ $(plist unpacked/Vimble.app UpdateKitManifestURL) == "$url" ]] || fail "the third has forgotten the URL"
[[ -f $out/Vimble-1.0.zip ]] || fail "the first one is gone"

### The order and the times in an archive do not depend on the disk

python3 - "$out/Vimble-1.10.zip" << 'END'
import sys, zipfile
entries = zipfile.ZipFile(sys.argv[1]).infolist()
names = [entry.filename.rstrip("/") for entry in entries]
assert names == sorted(names, key=lambda name: name.encode()), names
assert len({entry.date_time for entry in entries}) == 1
END

### A release that is refused changes nothing

before=$(find "$out" -type f -exec sha256sum {} + | sort)
refuses() {
    local text=$1
    shift
    if "$sources/release" "$@" > said 2>&1; then fail "it takes: $*"; fi
    grep -qF -e "$text" said || fail "it says of $*: $(< said)"
    [[ $(find "$out" -type f -exec sha256sum {} + | sort) == "$before" ]] || fail "it changed something: $*"
}
"$sources/release" --help | grep -q '^Usage: ./release' || fail "it does not say how it is used"
refuses "Usage:"
refuses "Usage:" 2.0 identity.pem
refuses "Usage:" 2.0 identity.pem "$out" more
refuses "There is no option --wrong" --wrong 2.0 identity.pem "$out"
refuses "Usage:" 2.0 identity.pem "$out" --manifest-url
for version in "" v2.0 2. 2.0.0.0 02.0 2.0-beta "2 0" ../2 1234567890; do
    refuses "A version is" --build build "$version" identity.pem "$out"
done
refuses "no version of a system" --build build --minimum-system-version new 2.0 identity.pem "$out"
refuses "There is no identity" --build build 2.0 nothing.pem "$out"
refuses "There is no build" --build nothing 2.0 identity.pem "$out"
refuses "can't be made" --build build 2.0 identity.pem "$work/said/out"
refuses "has a Vimble-1.9.3.zip already" --build build 1.9.3 identity.pem "$out"
refuses "is not newer" --build build 1.9.4 identity.pem "$out"
refuses "is not newer" --build build 1.10.0 identity.pem "$out"
for wrong in ftp://example.org/latest.json example.org/latest.json https:///latest.json "https://example.org/a b/latest.json" \
    $'https://example.org/\n/latest.json' https://example.org/; do
    refuses "URL" --build build --manifest-url "$wrong" 2.0 identity.pem "$out"
done
refuses "holds no private key" --build build 2.0 certificate.pem "$out"
refuses "holds no certificate" --build build 2.0 key.pem "$out"
# Only the signing itself finds that this key and this certificate do not belong together.
cat key.pem <(openssl x509 -in other.pem) > mixed.pem
refuses "was not signed" --build build 2.0 mixed.pem "$out"

### Another identity is refused unless asked for

refuses "Another identity than now has signed version 1.10" --build build 2.0 other.pem "$out"
cp "$out/Vimble-1.10.zip" kept.zip
truncate -s 100 "$out/Vimble-1.10.zip"
before=$(find "$out" -type f -exec sha256sum {} + | sort)
refuses "does not hold what was signed" --build build 2.0 identity.pem "$out"
cp kept.zip "$out/Vimble-1.10.zip"
release --new-identity 2.0 other.pem "$out"
release 2.1 other.pem "$out"
# Without the archive of the last release its signer is not known, so that any identity is taken.
rm "$out/Vimble-2.1.zip"
release 2.2 identity.pem "$out"

### A manifest that is not ours is not replaced

echo '{}' > "$out/latest.json"
before=$(find "$out" -type f -exec sha256sum {} + | sort)
refuses "none of ours" --build build 3.0 identity.pem "$out"
[[ $(workFolders) == "$workFoldersBefore" ]] || fail "something was left behind"
