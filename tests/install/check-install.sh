#!/usr/bin/env bash
# Installs Tesk from a build tree into a temporary DESTDIR under /usr and checks what a Linux
# desktop will find there: the tree, the validators' verdicts, the icons, the man pages, the
# versions, and how the document's file type is told from songs and from other JSON files.
# Usage: check-install.sh BUILD_DIR DESKTOP_PROBE VERSION
set -uo pipefail

build=$(realpath "$1")
probe=$2
version=$3
# Debug and sanitizer builds name their sources in assertions and debug information by design;
# only a release build must not.
buildType=${4:-Release}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
for tool in desktop-file-validate appstreamcli xmllint update-mime-database groff; do
    command -v "$tool" >/dev/null || {
        echo "$tool is missing: run scripts/install-deps" >&2
        exit 1
    }
done

root=$work/root
DESTDIR=$root cmake --install "$build" --prefix /usr >"$work/install.log" 2>&1 || {
    cat "$work/install.log" >&2
    echo "FAIL: cmake --install" >&2
    exit 1
}
share=$root/usr/share
app=org.teskapp.Tesk
document=application-x-tesk-document
sizes=(16 22 24 32 48 64 128 256 512)

# The tree.
expected=(
    usr/bin/tesk usr/bin/tesk-render
    "usr/share/applications/$app.desktop" "usr/share/metainfo/$app.metainfo.xml"
    "usr/share/mime/packages/$app.xml"
    "usr/share/icons/hicolor/scalable/apps/$app.svg"
    "usr/share/icons/hicolor/scalable/mimetypes/$document.svg"
    usr/share/man/man1/tesk.1.gz usr/share/man/man1/tesk-render.1.gz
    usr/share/doc/tesk/copyright usr/share/doc/tesk/changelog.gz
)
for size in "${sizes[@]}"; do
    expected+=("usr/share/icons/hicolor/${size}x${size}/apps/$app.png"
        "usr/share/icons/hicolor/${size}x${size}/mimetypes/$document.png")
done
for path in "${expected[@]}"; do
    [ -f "$root/$path" ] || fail "not installed: /$path"
done
for program in tesk tesk-render; do
    [ -x "$root/usr/bin/$program" ] || fail "/usr/bin/$program is not executable"
done
unexpected=$(cd "$root" && find . -type f | sed 's|^\./||' | sort |
    comm -23 - <(printf '%s\n' "${expected[@]}" | sort))
[ -z "$unexpected" ] || fail "installed but not expected: $unexpected"
if [ "$buildType" = Release ] && grep -rlF "$build" "$root" >"$work/leaks"; then
    fail "installed files name the build tree: $(tr '\n' ' ' <"$work/leaks")"
fi
# The installed program runs on its own, from wherever it was copied to.
"$root/usr/bin/tesk-render" --help >"$work/help.txt" 2>&1 ||
    fail "the installed tesk-render --help failed"

# The validators.
desktop-file-validate "$share/applications/$app.desktop" || fail "desktop-file-validate"
appstreamcli validate --no-net "$share/metainfo/$app.metainfo.xml" ||
    fail "appstreamcli validate"
for xml in "$share/mime/packages/$app.xml" "$share/metainfo/$app.metainfo.xml" \
    "$share/icons/hicolor/scalable/apps/$app.svg" \
    "$share/icons/hicolor/scalable/mimetypes/$document.svg"; do
    xmllint --noout "$xml" || fail "xmllint ${xml#"$root"}"
done

# The desktop entry and the metainfo agree with each other and with the tree.
entry() { sed -n "s/^$1=//p" "$share/applications/$app.desktop"; }
[ "$(entry Exec)" = "tesk %F" ] || fail "Exec is '$(entry Exec)'"
[ -x "$root/usr/bin/$(entry TryExec)" ] || fail "TryExec names no installed program"
[ "$(entry Icon)" = "$app" ] || fail "Icon is '$(entry Icon)'"
# On X11, Qt names the window's class after the application's name ("Tesk"); on Wayland the
# desktop file name is the window's application id, which matches the entry's own name.
[ "$(entry StartupWMClass)" = Tesk ] || fail "StartupWMClass is '$(entry StartupWMClass)'"
desktopTypes=$(entry MimeType | tr ';' '\n' | sed '/^$/d' | sort)
metainfoTypes=$(sed -n 's:.*<mediatype>\(.*\)</mediatype>.*:\1:p' \
    "$share/metainfo/$app.metainfo.xml" | sort)
songTypes=$(printf '%s\n' audio/mpeg audio/mp4 audio/x-aiff audio/x-aifc audio/x-wav \
    application/x-tesk-document | sort)
[ "$desktopTypes" = "$songTypes" ] || fail "the desktop entry's types: $desktopTypes"
[ "$metainfoTypes" = "$songTypes" ] || fail "the metainfo's types: $metainfoTypes"
grep -q "<launchable type=\"desktop-id\">$app.desktop</launchable>" \
    "$share/metainfo/$app.metainfo.xml" || fail "the metainfo launches no $app.desktop"

# The versions: a release not entered in the metainfo, the changelog or the man pages.
newest=$(sed -n 's/.*<release version="\([^"]*\)".*/\1/p' "$share/metainfo/$app.metainfo.xml" |
    head -n 1)
[ "$newest" = "$version" ] || fail "the metainfo's newest release is $newest, not $version"
changelog=$(gzip -dc "$root/usr/share/doc/tesk/changelog.gz" | head -n 1)
[[ "$changelog" == "tesk ($version) "* ]] || fail "the changelog starts with '$changelog'"

# The icons: every size drawn from the SVG at that size, with the picture in it.
for size in "${sizes[@]}"; do
    for png in "${size}x${size}/apps/$app.png" "${size}x${size}/mimetypes/$document.png"; do
        read -r dimensions drawn < <("$probe" image "$share/icons/hicolor/$png") ||
            { fail "unreadable icon $png"; continue; }
        [ "$dimensions" = "${size}x${size}" ] || fail "$png is $dimensions"
        [ "${drawn:-0}" -ge 50 ] || fail "$png is only $drawn % drawn"
    done
done

# The man pages: clean under groff's warnings, with the version, and every option that
# tesk-render --help lists.
for page in tesk tesk-render; do
    gzip -dc "$root/usr/share/man/man1/$page.1.gz" >"$work/$page.1" || fail "$page.1.gz"
    groff -t -man -ww -z -Tutf8 "$work/$page.1" 2>"$work/groff.log"
    [ ! -s "$work/groff.log" ] || fail "groff on $page.1: $(cat "$work/groff.log")"
    grep -q "^\.TH .*\"Tesk $version\"" "$work/$page.1" || fail "$page.1 has not version $version"
done
manPageNamesEveryOption() { # PROGRAM: its man page against its installed --help
    local help plainPage option
    help=$("$root/usr/bin/$1" --help 2>&1) || fail "the installed $1 --help failed"
    plainPage=$(sed 's/\\-/-/g' "$work/$1.1")
    for option in $(grep -oE -- '(^|[ ,])--?[a-z][a-z-]*' <<<"$help" | tr -d ' ,' | sort -u); do
        grep -qF -- "$option" <<<"$plainPage" || fail "$1.1 does not name $option"
    done
}
manPageNamesEveryOption tesk-render
manPageNamesEveryOption tesk
for status in 0 1 2 3 130; do
    grep -qE "Exit codes:.* $status " <<<"$(tr '\n' ' ' <"$work/help.txt")" ||
        fail "tesk-render --help gives no exit code $status"
    sed -n '/^\.SH EXIT STATUS/,/^\.SH/p' "$work/tesk-render.1" | grep -qx "\.B $status" ||
        fail "tesk-render.1 gives no exit status $status"
done

# The document's file type, as a desktop detects it: a private MIME database made from the
# system's shared types and the installed package only, so that a Tesk already installed on
# this machine cannot stand in for the one under test.
mime=$work/xdg/mime
mkdir -p "$mime/packages" "$work/home"
cp /usr/share/mime/packages/freedesktop.org.xml "$share/mime/packages/$app.xml" "$mime/packages/"
XDG_DATA_DIRS=$work/xdg XDG_DATA_HOME=$work/home update-mime-database "$mime" >"$work/mime.log" 2>&1
[ ! -s "$work/mime.log" ] || fail "update-mime-database: $(cat "$work/mime.log")"
grep -qF ":application/x-tesk-document:*.tesk" "$mime/globs2" ||
    fail "the MIME database has no *.tesk glob"

files=$work/files
mkdir -p "$files"
# A tenth of a second of silence: 16-bit mono PCM at 44100 Hz.
{
    printf 'RIFF\x4c\x11\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00\x01\x00'
    printf '\x44\xac\x00\x00\x88\x58\x01\x00\x02\x00\x10\x00data\x28\x11\x00\x00'
    head -c 4392 /dev/zero
} >"$files/song.wav"
"$root/usr/bin/tesk-render" "$files/song.wav" --save-document "$files/song.tesk" -q \
    --marker chorus@0.02 || fail "tesk-render --save-document"
cp "$files/song.tesk" "$files/practice"
# Without a song, Tesk's document starts with its markers.
grep -v '"audioFileAlias"' "$files/song.tesk" >"$files/no-song"
printf '{"name": "tesk", "version": 1}\n' >"$files/settings.json"
cp "$files/settings.json" "$files/settings"
printf '{\n    "type": "FeatureCollection",\n    "features": []\n}\n' >"$files/map"
# Another program's JSON that happens to use the same key further in.
printf '{\n    "title": "practice",\n    "audioFileAlias": "x"\n}\n' >"$files/other-alias"
printf '"audioFileAlias": "x"\n' >"$files/not-an-object"

tesk=application/x-tesk-document
# file          by name and content   by content alone
cases="
song.tesk       $tesk                 $tesk
practice        $tesk                 $tesk
no-song         $tesk                 $tesk
song.wav        audio/x-wav           audio/x-wav
settings.json   application/json      !$tesk
settings        !$tesk                !$tesk
map             !$tesk                !$tesk
other-alias     !$tesk                !$tesk
not-an-object   !$tesk                !$tesk
"
matches() { # matches ACTUAL EXPECTED: EXPECTED is a type, or !TYPE for any other type
    if [[ "$2" == !* ]]; then [ "$1" != "${2#!}" ]; else [ "$1" = "$2" ]; fi
}
while read -r name byName byContent; do
    [ -n "$name" ] || continue
    read -r foundByName foundByContent < <(XDG_DATA_DIRS=$work/xdg XDG_DATA_HOME=$work/home \
        "$probe" type "$files/$name")
    matches "$foundByName" "$byName" || fail "$name by name is $foundByName, not $byName"
    matches "$foundByContent" "$byContent" ||
        fail "$name by content is $foundByContent, not $byContent"
done <<<"$cases"

if [ "$failures" -gt 0 ]; then
    echo "$failures checks failed" >&2
    exit 1
fi
echo "the installed tree, its validators and its file types are as they should be"
