#!/usr/bin/env bash
# End-to-end run of the cantrix tool on the sample catalogue: import,
# identification by TOC, a search, and the refusals (malformed TOC, unknown
# option, missing catalogue) with their exit codes.
set -u
build=$(cd "${1:?usage: cantrix_tool.sh BUILD_DIR}" && pwd)
src=$(cd "$(dirname "$0")/../.." && pwd)
tool="$build/cantrix"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect CODE PATTERN-ON-STDOUT+STDERR -- ARGS...
expect() {
  local code=$1 pattern=$2; shift 3
  local out rc
  out=$("$tool" "$@" 2>&1); rc=$?
  [ "$rc" -eq "$code" ] || fail "cantrix $*: exit $rc, wanted $code; output: $out"
  grep -qE -- "$pattern" <<<"$out" || fail "cantrix $*: output lacks /$pattern/: $out"
  printf '%s\n' "$out"
}

# Missing catalogue before anything was imported.
expect 4 "catalogue 'cantrix.catalogue' does not exist" -- identify --toc "150 14672 27367 41225"
expect 4 "does not exist" -- --catalogue nowhere.db search --artist "Mira Solenne"
expect 4 "does not exist" -- catalogue info

expect 0 "imported 42 of 42 records" -- catalogue import "$src/data/sample"
expect 0 "albums: +37" -- catalogue info
[ -f cantrix.catalogue ] || fail "default catalogue file not created"

expect 0 "Mira Solenne - Lanterns of Glass \(2004\)" -- identify --toc "150 14672 27367 41225"
expect 0 "2\. Paper Comets \(2:49\)" -- identify --toc "150 14672 27367 41225"
expect 0 "match type: SINGLE  lookup type: TOC" -- identify --toc "150 14672 27367 41225"
expect 0 "match type: FUZZY" -- identify --toc "300 14822 27517 41375"
expect 0 '"title":"Lanterns of Glass"' -- identify --json --single --toc "150 14672 27367 41225"
expect 0 "^no match$" -- identify --toc "150 50000 90000 150000"

# Malformed TOCs: what is wrong, and the expected forms.
expect 3 "malformed TOC \"150 100\": number 2 \(100\) is not greater than number 1 \(150\)" -- identify --toc "150 100"
expect 3 "\"abc\" is not a number" -- identify --toc "12 abc"

# Usage errors.
expect 2 "unknown option '--frobnicate'" -- identify --frobnicate --toc "150 14672 27367 41225"
expect 2 "unknown command 'identfy'" -- identfy --toc "150 14672 27367 41225"
expect 2 "identify needs one of --toc, --discid, --drive, --cue, --log" -- identify
expect 2 "--range needs START:SIZE" -- identify --range 0:5 --toc "150 14672 27367 41225"
expect 0 "exit codes" -- --help

# Text searches with misspelt input, and fields a kind of search does not take.
expect 0 "Mira Solenne - Lanterns of Glass \(2004\)" -- search --artist "Mira Solene" --album "Lantrens of Glass"
expect 0 "match score: " -- search --artist "Mira Solene" --album "Lantrens of Glass"
expect 0 "Paper Comets" -- search --kind tracks --title "paper comet"
expect 3 "cannot search matches by the given fields: status 0x908101A4" -- search --kind matches --lyric "x"

# A file that is not a catalogue.
echo "not a database" > junk.db
expect 4 "catalogue 'junk.db' is damaged or not a catalogue file" -- --catalogue junk.db catalogue info
expect 4 "damaged or not a catalogue; SQLite's integrity check reports" -- --catalogue junk.db catalogue check

# Another program's database (with an albums table) and an empty file are
# refused by every command and stay byte for byte as they were.
sqlite3 other.db "CREATE TABLE albums(id INTEGER PRIMARY KEY, title TEXT); INSERT INTO albums(title) VALUES('x');"
: > empty.db
for f in other.db empty.db; do
  sum=$(md5sum < "$f")
  expect 4 "'$f' is not a catalogue \((another program's database|an empty file)\); it was left unchanged" -- --catalogue "$f" catalogue info
  expect 4 "is not a catalogue" -- --catalogue "$f" catalogue import "$src/data/sample"
  expect 4 "is not a catalogue" -- --catalogue "$f" identify --toc "150 14672 27367 41225"
  expect 4 "catalogue $f: not a catalogue" -- --catalogue "$f" catalogue check
  [ "$(md5sum < "$f")" = "$sum" ] || fail "$f was changed"
done

# A catalogue in a read-only file and folder serves the commands that read,
# run as an unprivileged user when the test runs as root.
mkdir ro && cp cantrix.catalogue ro/ && chmod 0444 ro/cantrix.catalogue && chmod 0555 ro && chmod 0755 .
as_user=()
[ "$(id -u)" -eq 0 ] && as_user=(setpriv --reuid=65534 --regid=65534 --clear-groups)
for args in "identify --toc 1+3+41225+150+14672+27367" "search --album lanterns" "catalogue info"; do
  out=$("${as_user[@]}" "$tool" --catalogue ro/cantrix.catalogue $args 2>&1) || fail "read-only $args: $out"
done
grep -q "albums: *37" <<<"$out" || fail "read-only catalogue info: $out"
"${as_user[@]}" "$tool" --catalogue ro/cantrix.catalogue catalogue import "$src/data/sample" >/dev/null 2>&1 &&
  fail "import into a read-only catalogue succeeded"
chmod 0755 ro

# SQLite's integrity check of a sound and of a damaged catalogue; ordinary
# commands refuse the damaged one and leave it as it is.
expect 0 "catalogue cantrix.catalogue: integrity check ok" -- catalogue check
cp cantrix.catalogue damaged.catalogue
size=$(stat -c %s damaged.catalogue)
truncate -s $((size / 2)) damaged.catalogue
sum=$(md5sum < damaged.catalogue)
expect 4 "damaged or not a catalogue; SQLite's integrity check reports" -- --catalogue damaged.catalogue catalogue check
expect 4 "'cantrix catalogue check' shows what is wrong" -- --catalogue damaged.catalogue identify --toc "150 14672 27367 41225"
expect 4 "is damaged" -- --catalogue damaged.catalogue search --artist "Mira Solene"
expect 4 "is damaged" -- --catalogue damaged.catalogue catalogue import "$src/data/sample"
[ "$(md5sum < damaged.catalogue)" = "$sum" ] || fail "the damaged catalogue was changed"
expect 4 "does not exist" -- --catalogue nowhere.db catalogue check

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
