#!/usr/bin/env bash
# End-to-end run of the cantrix tool on the sample catalogue: import,
# identification by TOC, a search, and the refusals (malformed TOC, unknown
# option, missing catalogue) with their exit codes.
set -u
build=$(cd "${1:?usage: cantrix_tool.sh BUILD_DIR}" && pwd)
src=$(cd "$(dirname "$0")/../.." && pwd)
tool="$build/cantrix"
. "$src/tests/scripts/expect.sh"

# Missing catalogue before anything was imported.
expect 4 "catalogue 'cantrix.catalogue' does not exist" -- identify --toc "150 14672 27367 41225"
expect 4 "does not exist" -- --catalogue nowhere.db search --artist "Mira Solenne"
expect 4 "does not exist" -- catalogue info

expect 0 "imported 42 of 42 records .*\(42 new, 0 replaced, 0 unchanged, 0 skipped\)" -- catalogue import "$src/data/sample"
expect 0 "albums: +37" -- catalogue info
[ -f cantrix.catalogue ] || fail "default catalogue file not created"

expect 0 "Mira Solenne - Lanterns of Glass \(2004\)" -- identify --toc "150 14672 27367 41225"
expect 0 "2\. Paper Comets \(2:49\)" -- identify --toc "150 14672 27367 41225"
expect 0 "match type: SINGLE  lookup type: TOC" -- identify --toc "150 14672 27367 41225"
expect 0 "match type: FUZZY" -- identify --toc "300 14822 27517 41375"
expect 0 '"title":"Lanterns of Glass"' -- identify --json --single --toc "150 14672 27367 41225"
expect 0 "^no match$" -- identify --toc "150 50000 90000 150000"

# Discs as drives give them. A release of four discs: the matched disc is
# named, with its own tracks and TOC; disc 4 has a hidden track in the
# pregap of track 1 (which starts at 20000); an Enhanced CD's whole TOC
# (data track 11,400 frames after the audio lead-out) matches on its audio.
cat > box.json <<'JSON'
{"id": "box-4", "title": "Four Rooms", "date": "2011", "artist-credit": [{"name": "Ilse Varga"}], "media": [
 {"position": 1, "discs": [{"id": "d1", "offsets": [150, 20000, 40000], "sectors": 60000}],
  "tracks": [{"position": 1, "title": "Thaw"}, {"position": 2, "title": "Buds"}, {"position": 3, "title": "Rain"}]},
 {"position": 2, "discs": [{"id": "d2", "offsets": [150, 30000], "sectors": 55000}],
  "tracks": [{"position": 1, "title": "Heat"}, {"position": 2, "title": "Dust"}]},
 {"position": 3, "title": "Autumn", "discs": [{"id": "d3", "offsets": [150, 15000, 30000, 45000], "sectors": 62000}],
  "tracks": [{"position": 1, "title": "Leaves"}, {"position": 2, "title": "Fog", "length": 198000},
             {"position": 3, "title": "Harvest"}, {"position": 4, "title": "Ember"}]},
 {"position": 4, "discs": [{"id": "d4", "offsets": [20000, 40000], "sectors": 70000}],
  "tracks": [{"position": 1, "title": "Frost"}, {"position": 2, "title": "Hearth"}]}]}
JSON
printf 'FILE "winter.wav" WAVE\n  TRACK 01 AUDIO\n    INDEX 00 00:00:00\n    INDEX 01 04:24:50\n  TRACK 02 AUDIO\n    INDEX 01 08:51:25\n' > winter.cue
box=(--catalogue box.catalogue)
expect 0 "imported 1 of 1" -- "${box[@]}" catalogue import box.json
while IFS='|' read -r pattern args; do
  eval "set -- $args"
  expect 0 "$pattern" -- "${box[@]}" "$@"
done <<'TABLE'
disc 3 of 4 "Autumn"  tracks: 4 \(11 on the release\)  id: box-4|identify --toc "150 15000 30000 45000 62000"
disc TOC: 150 15000 30000 45000 62000|identify --toc "150 15000 30000 45000 62000"
^ +2\. Fog \(3:18\)$|identify --toc "150 15000 30000 45000 62000"
"disc_count":4,"disc_number":3,|identify --json --toc "150 15000 30000 45000 62000"
"disc":\{"number":3,"title":"Autumn","toc":"150 15000 30000 45000 62000","track_count":4,"tracks":\[\{"number":1,"title":"Leaves"|identify --json --toc "1 4 62000 150 15000 30000 45000"
trying track 5 as the data track of an Enhanced CD \(audio lead-out 62000\)|identify --toc "150 15000 30000 45000 73400 90000"
disc 3 of 4 "Autumn"|identify --toc "150 15000 30000 45000 73400 90000"
disc 4 of 4  tracks: 2 |identify --toc "20000 40000 70000"
match type: SINGLE|identify --toc "20000 40000 70000"
disc 4 of 4  tracks: 2|identify --cue winter.cue --leadout 70000
disc 3 of 4 "Autumn"|search --title harvest
TABLE
# A first track at frame 0 (sector numbers) goes to the library as it is
# and finds the disc 150 frames later.
expect 0 "Lanterns of Glass" -- identify --toc "0 14522 27217 41075"
expect 0 "match type: FUZZY" -- identify --toc "0 14522 27217 41075"

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

# Searches and pages: the real place and total of every kind of answer; rows
# numbered by their place; a text without letters or digits refused.
expect 0 "^2 results \(2 to 3 of 5\)" -- search --kind tracks --artist mira --range 2:2
expect 0 "^\[3\] Mira Solenne - The Long Thaw" -- search --kind tracks --artist mira --range 2:2
expect 0 "^1 result \(1 to 1 of 2\)" -- search --artist mira --range 1:1
expect 0 '"range_start":2,"range_end":3,"range_count":5' -- search --json --kind tracks --artist mira --range 2:2
expect 0 "^1 result \(1 to 1 of 1\)" -- identify --toc "150 14672 27367 41225"
for text in "  " "..." " - / ! " "…¿ »"; do
  expect 3 "search text \"$text\" has no letters or digits" -- search --title "$text"
done

# Help of each command, short options, version.
expect 0 "^usage: cantrix \[options\] search" -- search --help
expect 0 "frames of 1/75 s" -- identify -h
expect 0 "catalogue remove ID" -- catalogue --help
expect 0 "^cantrix [0-9]+\.[0-9]+\.[0-9]+ \(libzelto_cantrix " -- --version

# Catalogue text is shown harmlessly on a terminal: escape sequences,
# controls and reordering marks as visible escapes; JSON escapes them.
printf '%s\n' '{"id": "esc-1", "title": "Evil\u001b]0;owned\u0007 Title\u0085", "artist-credit": [{"name": "Ab\u202eCd", "artist": {"id": "esc-a", "name": "Ab\u202eCd"}}], "media": [{"position": 1, "tracks": [{"position": 1, "title": "Bell\u0007 Song", "length": 1000}], "discs": [{"id": "x", "offsets": [150], "sectors": 9000}]}]}' > escape.json
expect 0 "imported 1 of 1" -- --catalogue esc.catalogue catalogue import escape.json
out=$("$tool" --catalogue esc.catalogue search --album "evil title" 2>&1)
grep -qF 'Ab\u202eCd - Evil\x1b]0;owned\x07 Title\u0085' <<<"$out" || fail "escaped album line: $out"
grep -qF 'Bell\x07 Song' <<<"$out" || fail "escaped track line: $out"
LC_ALL=C grep -q $'[\x01-\x09\x0b-\x1f\x7f]' <<<"$out" && fail "raw control characters in the text output"
expect 0 '"title":"Evil\\u001b\]0;owned\\u0007 Title' -- --catalogue esc.catalogue search --json --album "evil title"

# Import: the first few reasons a record was skipped, all with --verbose;
# exit 6 when nothing at all was imported; new and replaced records; JSON.
for i in 1 2 3 4 5 6 7; do echo "{\"id\": \"bad-$i\"}"; done > bad.jsonl
expect 6 "and 2 more skipped \(--verbose lists them all\)" -- --catalogue bad.catalogue catalogue import bad.jsonl
expect 6 "nothing was imported" -- --catalogue bad.catalogue catalogue import bad.jsonl
[ "$("$tool" --catalogue bad.catalogue catalogue import bad.jsonl 2>&1 | grep -c '^cantrix: skipped: ')" -eq 5 ] \
  || fail "import without --verbose shows 5 reasons"
[ "$("$tool" --catalogue bad.catalogue catalogue import --verbose bad.jsonl 2>&1 | grep -c 'bad.jsonl:[0-9]: release bad-[0-9]: no title')" -eq 7 ] \
  || fail "import --verbose shows every reason"
expect 6 '"imported":0,"new":0,"replaced":0,"unchanged":0,"skipped":7,"skips":\[\{"input":"bad.jsonl","reason":"bad.jsonl:1: ' -- \
  --catalogue bad.catalogue catalogue import --json bad.jsonl
expect 0 "imported 1 of 8 records into bad.catalogue \(1 new, 0 replaced, 0 unchanged, 7 skipped\)" -- \
  --catalogue bad.catalogue catalogue import bad.jsonl escape.json
expect 0 "\(0 new, 0 replaced, 1 unchanged, 0 skipped\)" -- --catalogue bad.catalogue catalogue import escape.json
sed 's/Bell/Bells/' escape.json > escape2.json
expect 0 "\(0 new, 1 replaced, 0 unchanged, 0 skipped\)" -- --catalogue bad.catalogue catalogue import escape2.json
expect 0 '^\{"catalogue":"bad.catalogue","albums":1,' -- --catalogue bad.catalogue catalogue info --json

# Formats by content, whatever the names: release JSON named .XMCD, an xmcd
# disc (byte order mark, "Artist - Title", Windows-1252 and UTF-8 lines)
# named .json, lyrics records named .TXT; a file of none of these is
# skipped by name while the others are imported; alone, it imports nothing.
mkdir byname
printf '%s\n' '{"id": "nm-1", "title": "Salt Roads", "artist-credit": [{"name": "Ilse Varga"}], "media": [{"position": 1, "discs": [{"id": "n1", "offsets": [150, 9000], "sectors": 30000}], "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Ebb"}]}]}' > byname/disc.XMCD
printf '\xef\xbb\xbf\n# xmcd\n#\n# Track frame offsets:\n#\t150\n#\t20000\n#\n# Disc length: 600 seconds\n#\nDTITLE=Ilse Varga - Harbour Lights\nDYEAR=2009\nTTITLE0=Don\x92t Go \x96 Caf\xe9\nTTITLE1=\xc3\x96l\n' > byname/lights.json
printf '%s\n' '{"title": "Tide", "artist": "Ilse Varga", "release": "nm-1", "disc": 1, "track": 1, "text": "Salt on the window"}' > byname/words.TXT
echo "shopping list: bread" > byname/notes.txt
expect 0 "imported 3 of 4 records into names.catalogue \(3 new, 0 replaced, 0 unchanged, 1 skipped\)" -- \
  --catalogue names.catalogue catalogue import byname
expect 0 "^\[1\] Ilse Varga - Harbour Lights \(2009\)" -- --catalogue names.catalogue identify --toc "150 20000 45000"
expect 0 "1\. Don’t Go – Café \(4:25\)" -- --catalogue names.catalogue identify --toc "150 20000 45000"
expect 0 "2\. Öl " -- --catalogue names.catalogue identify --toc "150 20000 45000"
expect 0 "Salt on the window" -- --catalogue names.catalogue search --kind lyrics --fragment "salt window"
expect 0 "skipped: byname/notes.txt: not an import file: neither release JSON, an xmcd disc \(\"# xmcd\" first\) nor lyrics records" -- \
  --catalogue names.catalogue catalogue import byname/notes.txt byname/disc.XMCD
expect 6 "nothing was imported" -- --catalogue names.catalogue catalogue import byname/notes.txt

# List and remove: pages of albums by artist and title; a removed album is
# found no more, and a second removal is refused.
expect 0 "^albums 2 to 3 of 37$" -- catalogue list --range 2:2
expect 0 "^Anquora Isfaquo - Comet Echo Island \(2003\)  \[1 disc, 4 tracks\]  id: 8161a4ab-" -- catalogue list --range 2:2
expect 0 '"range_start":36,"range_end":37,"range_count":37,"albums":\[\{"id":"xmcd-1d026b03-4802b7e9"' -- \
  catalogue list --json --range 36:5
expect 0 "^removed: Mira Solenne - Lanterns of Glass \(2004\)" -- catalogue remove d3ebff40-9370-1441-55b9-8c49c666c549
expect 0 "^no match$" -- identify --toc "150 14672 27367 41225"
expect 3 "no album with the ID 'd3ebff40-9370-1441-55b9-8c49c666c549'" -- catalogue remove d3ebff40-9370-1441-55b9-8c49c666c549
expect 2 "catalogue remove needs the ID of one album" -- catalogue remove
expect 0 "\(1 new, 0 replaced, 36 unchanged," -- catalogue import "$src/data/sample/releases.jsonl" "$src/data/sample/releases" "$src/data/sample/xmcd"

# The README's examples run as written against the sample catalogue, from
# the top of the source tree (their scratch catalogue moved into $work).
"$tool" --catalogue sample.catalogue catalogue import "$src/data/sample" > /dev/null
examples=$(sed -n '/^    alias cantrix=/,/^With files of your own/p' "$src/README.md" | sed -n '/^    cantrix /s/^    cantrix //p')
[ "$(wc -l <<<"$examples")" -ge 8 ] || fail "README examples not found"
while read -r line; do
  line=${line//\/tmp\/my.catalogue/$work/my.catalogue}
  eval "set -- ${line%%#*}"
  out=$(cd "$src" && "$tool" --catalogue "$work/sample.catalogue" "$@" 2>&1) || fail "README example 'cantrix $line': $out"
  grep -q "no match" <<<"$out" && fail "README example 'cantrix $line' finds nothing"
done <<<"$examples"

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
ro_tool=("$tool")
if [ "$(id -u)" -eq 0 ]; then
  as_user=(setpriv --reuid=65534 --regid=65534 --clear-groups)
  # The build folder may be closed to that user (a clone in a private
  # temporary folder): it then runs a copy of the tool and its libraries.
  if ! "${as_user[@]}" "$tool" --version >/dev/null 2>&1; then
    # The libraries it finds outside the system's folders go with it.
    mkdir -m 0755 bin && cp "$tool" bin/ &&
      ldd "$tool" | awk '$3 ~ /^\// {print $3}' | grep -vE '^/(usr/)?lib' | xargs -r cp -L -t bin/ &&
      chmod -R a+rX bin
    ro_tool=(env LD_LIBRARY_PATH="$work/bin" "$work/bin/cantrix")
  fi
fi
for args in "identify --toc 1+3+41225+150+14672+27367" "search --album lanterns" "catalogue info"; do
  out=$("${as_user[@]}" "${ro_tool[@]}" --catalogue ro/cantrix.catalogue $args 2>&1) || fail "read-only $args: $out"
done
grep -q "albums: *37" <<<"$out" || fail "read-only catalogue info: $out"
"${as_user[@]}" "${ro_tool[@]}" --catalogue ro/cantrix.catalogue catalogue import "$src/data/sample" >/dev/null 2>&1 &&
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
# Damage inside the file, where opening to read does not look: the first
# page of the tracks table and of each of its indexes. Reads that meet it
# fail as damage; none answers with what it read before.
cp cantrix.catalogue inner.catalogue
for page in $(sqlite3 inner.catalogue "SELECT rootpage FROM sqlite_master WHERE tbl_name = 'tracks' AND rootpage > 1"); do
  printf '\x5a' | dd of=inner.catalogue bs=1 seek=$(((page - 1) * 4096)) conv=notrunc status=none
done
sum=$(md5sum < inner.catalogue)
expect 4 "catalogue 'inner.catalogue' is damaged \(the catalogue file is damaged: " -- --catalogue inner.catalogue identify --toc "150 14672 27367 41225"
expect 4 "is damaged" -- --catalogue inner.catalogue search --kind tracks --title "paper comet"
expect 4 "is damaged" -- --catalogue inner.catalogue catalogue info
expect 4 "is damaged or not a catalogue file" -- --catalogue inner.catalogue catalogue import "$src/data/sample"
[ "$(md5sum < inner.catalogue)" = "$sum" ] || fail "the damaged catalogue was changed"

finish
