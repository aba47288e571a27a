#!/usr/bin/env bash
# Builds Tesk's Debian package from a build tree with CPack, as `make package` does, and checks
# its control fields and contents, and lintian's verdict.
# Usage: check-package.sh BUILD_DIR VERSION
set -uo pipefail

build=$(realpath "$1")
version=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
for tool in cpack dpkg-deb dpkg-shlibdeps file lintian; do
    command -v "$tool" >/dev/null || {
        echo "$tool is missing: run scripts/install-deps" >&2
        exit 1
    }
done

(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out") \
    >"$work/cpack.log" 2>&1 || {
    cat "$work/cpack.log" >&2
    echo "FAIL: cpack" >&2
    exit 1
}
deb=$work/out/tesk_${version}_$(dpkg --print-architecture).deb
[ -f "$deb" ] || {
    echo "FAIL: no $(basename "$deb") made; cpack made: $(ls "$work/out")" >&2
    exit 1
}

# The control fields.
field() { dpkg-deb --field "$deb" "$1"; }
[ "$(field Package)" = tesk ] || fail "Package is '$(field Package)'"
[ "$(field Version)" = "$version" ] || fail "Version is '$(field Version)'"
[ "$(field Section)" = sound ] || fail "Section is '$(field Section)'"
[ "$(field Priority)" = optional ] || fail "Priority is '$(field Priority)'"
[[ ", $(field Recommends), " == *", qt6-wayland, "* ]] ||
    fail "Recommends is '$(field Recommends)'"
depends=$(field Depends)
# From the linked libraries (dpkg-shlibdeps); libqt6gui6 brings the X11 platform plugin too.
for package in libqt6core6 libqt6gui6 libqt6widgets6 libavcodec librubberband libsdl2; do
    [[ "$depends" == *"$package"* ]] || fail "Depends names no $package: $depends"
done
description=$(field Description)
[ -n "$(head -n 1 <<<"$description")" ] || fail "the description has no synopsis"
[ "$(wc -l <<<"$description")" -ge 3 ] || fail "the description has no long text"
if awk 'length > 80' <<<"$description" | grep -q .; then
    fail "description lines longer than 80 columns"
fi

# The contents: the installed tree under /usr, owned by root, and no maintainer scripts
# (dpkg triggers refresh the menus, the MIME database and the icon caches).
dpkg-deb --contents "$deb" >"$work/contents"
for path in usr/bin/tesk usr/bin/tesk-render usr/share/applications/org.teskapp.Tesk.desktop \
    usr/share/mime/packages/org.teskapp.Tesk.xml usr/share/metainfo/org.teskapp.Tesk.metainfo.xml \
    usr/share/icons/hicolor/scalable/apps/org.teskapp.Tesk.svg \
    usr/share/icons/hicolor/48x48/apps/org.teskapp.Tesk.png \
    usr/share/man/man1/tesk.1.gz usr/share/doc/tesk/copyright; do
    grep -q " \./$path$" "$work/contents" || fail "the package has no /$path"
done
if awk '$2 != "root/root"' "$work/contents" | grep -q .; then
    fail "files not owned by root: $(awk '$2 != "root/root"' "$work/contents" | head -n 3)"
fi
if grep -v ' \./usr/' "$work/contents" | grep -vq ' \./$'; then
    fail "files outside /usr: $(grep -v ' \./usr/' "$work/contents" | grep -v ' \./$' | head -n 3)"
fi
mkdir "$work/control"
dpkg-deb --control "$deb" "$work/control"
scripts=$(cd "$work/control" && ls | grep -vx -e control -e md5sums)
[ -z "$scripts" ] || fail "maintainer files in the package: $scripts"
# Stripped binaries: debugging sections would make lintian complain and the package large.
dpkg-deb --extract "$deb" "$work/tree"
for program in tesk tesk-render; do
    file "$work/tree/usr/bin/$program" | grep -q ', stripped' ||
        fail "/usr/bin/$program is not stripped"
done

# Each SVG icon reads as one to the desktop's file-type database, which looks for "<svg" in a
# file's first 256 bytes: an image loader that goes by it finds no icon otherwise.
while IFS= read -r svg; do
    head -c 256 "$svg" | grep -q '<svg' || fail "${svg#"$work/tree"} does not read as an SVG"
done < <(find "$work/tree/usr/share/icons" -name '*.svg')

# lintian: no error (warnings and notes are shown, not failed on).
lintian --fail-on error "$deb" >"$work/lintian.log" 2>&1
status=$?
grep -v 'running with root privileges' "$work/lintian.log" || true
[ "$status" -eq 0 ] || fail "lintian found errors"

if [ "$failures" -gt 0 ]; then
    echo "$failures checks failed" >&2
    exit 1
fi
echo "the Debian package is as it should be"
