#!/usr/bin/env bash
# The tool on releases that share one TOC (each candidate shows its edition:
# country, date, label, catalogue number, barcode, format) and on lyrics
# (a re-import changes nothing; each lyric names its album and track), in
# the text and the JSON output.
set -u
build=$(cd "${1:?usage: cantrix_editions_lyrics.sh BUILD_DIR}" && pwd)
tool="$build/cantrix"
. "$(dirname "$0")/expect.sh"

cat > editions.json <<'JSON'
[{"id": "ed-uk", "title": "Salt Roads", "date": "1999-03-02", "country": "GB", "barcode": "5012345678900",
  "artist-credit": [{"name": "Ilse Varga"}],
  "label-info": [{"catalog-number": "HH 101", "label": {"name": "Harbour House"}}],
  "media": [{"position": 1, "format": "CD", "discs": [{"id": "s1", "offsets": [150, 20000, 40000], "sectors": 60000}],
             "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Brine"}, {"position": 3, "title": "Gull"}]}]},
 {"id": "ed-us", "title": "Salt Roads", "date": "1999-05", "country": "US", "artist-credit": [{"name": "Ilse Varga"}],
  "label-info": [{"catalog-number": "NW-7", "label": {"name": "Northwind"}},
                 {"catalog-number": "NW-7X", "label": {"name": "Eastgate"}}],
  "media": [{"position": 1, "format": "Enhanced CD", "discs": [{"id": "s1", "offsets": [150, 20000, 40000], "sectors": 60000}],
             "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Brine"}, {"position": 3, "title": "Gull"}]}]}]
JSON
printf '# xmcd\n#\n# Track frame offsets:\n#\t150\n#\t20000\n#\t40000\n#\n# Disc length: 801 seconds\n#\nDISCID=1b031e03\nDTITLE=Ilse Varga / Salt Roads\nDYEAR=1999\nTTITLE0=Tide\nTTITLE1=Brine\nTTITLE2=Gull\n' > salt.xmcd
cat > lyrics.jsonl <<'JSON'
{"title": "Brine", "artist": "Ilse Varga", "release": "ed-uk", "track": 2, "text": "Salt on the window\nSalt on the road"}
{"title": "Gull", "artist": "Ilse Varga", "release": "ed-uk", "disc": 1, "track": 3, "text": "White wings over the harbour"}
{"title": "Lost Song", "artist": "Ilse Varga", "release": "gone-1", "disc": 2, "track": 4, "text": "Nobody holds this album"}
{"title": "Free Verse", "artist": "Ilse Varga", "text": "No album at all"}
JSON
cat=(--catalogue editions.catalogue)
expect 0 "imported 3 of 3 records .*\(3 new, 0 replaced, 0 unchanged, 0 skipped\)" -- "${cat[@]}" catalogue import editions.json salt.xmcd
expect 0 "imported 4 of 4 records .*\(4 new, 0 replaced, 0 unchanged, 0 skipped\)" -- "${cat[@]}" catalogue import lyrics.jsonl

# Each candidate of a MULTI answer with its edition; a disc from an xmcd
# file has none (its year is in the heading).
out=$("$tool" "${cat[@]}" identify --toc "150 20000 40000 60000" 2>&1)
want='[1] Ilse Varga - Salt Roads (1999)
    country: GB  date: 1999-03-02  label: Harbour House  catalogue number: HH 101  barcode: 5012345678900  format: CD
    tracks: 3  id: ed-uk'
grep -qF -- "$want" <<<"$out" || fail "first edition: $out"
want='[2] Ilse Varga - Salt Roads (1999)
    country: US  date: 1999-05  label: Northwind, Eastgate  catalogue number: NW-7, NW-7X  format: Enhanced CD
    tracks: 3  id: ed-us'
grep -qF -- "$want" <<<"$out" || fail "second edition: $out"
[ "$(grep -c 'match type: MULTI' <<<"$out")" -eq 2 ] || fail "two MULTI candidates: $out"
out=$("$tool" "${cat[@]}" identify --toc "150 20000 40000 60075" 2>&1)
grep -qE '^\[1\] Ilse Varga - Salt Roads \(1999\)$' <<<"$out" || fail "xmcd heading: $out"
grep -qE 'country:|label:|format:' <<<"$out" && fail "an edition line for an xmcd disc: $out"

while IFS='|' read -r pattern args; do
  eval "set -- $args"
  expect 0 "$pattern" -- "${cat[@]}" "$@"
done <<'TABLE'
"tui":"ed-uk","toc":"150 20000 40000 60000","disc_count":1,"disc_number":1,"country":"GB","release_date":"1999-03-02","label":"Harbour House","catalogue_number":"HH 101","barcode":"5012345678900","format":"CD","tracks"|identify --json --toc "150 20000 40000 60000"
"tui":"ed-us","toc":"150 20000 40000 60000","disc_count":1,"disc_number":1,"country":"US","release_date":"1999-05","label":"Northwind, Eastgate","catalogue_number":"NW-7, NW-7X","format":"Enhanced CD","tracks"|identify --json --toc "150 20000 40000 60000"
"tui":"xmcd-1b031e03-[0-9a-f]+","toc":"150 20000 40000 60075","disc_count":1,"disc_number":1,"tracks"|identify --json --toc "150 20000 40000 60075"
^    from: Ilse Varga - Salt Roads, disc 1 track 2: Brine$|search --kind lyrics --title brine
^    from: Ilse Varga - Salt Roads, disc 1 track 3: Gull$|search --kind lyrics --fragment "white wings"
^    from: album gone-1, disc 2 track 4$|search --kind lyrics --title "lost song"
"title":"Brine","artist":"Ilse Varga","text":"Salt on the window\\nSalt on the road","album_tui":"ed-uk","album_title":"Salt Roads","album_artist":"Ilse Varga","disc_number":1,"track_number":2,"track_title":"Brine"\}|search --json --kind lyrics --title brine
"title":"Lost Song","artist":"Ilse Varga","text":"Nobody holds this album","album_tui":"gone-1","disc_number":2,"track_number":4\}|search --json --kind lyrics --title "lost song"
"title":"Free Verse","artist":"Ilse Varga","text":"No album at all"\}|search --json --kind lyrics --title "free verse"
TABLE
out=$("$tool" "${cat[@]}" search --kind lyrics --title "free verse" 2>&1)
grep -q "from:" <<<"$out" && fail "a lyric without an album names one: $out"

# Importing the lyrics again stores nothing new; a changed text replaces
# its lyric; each is found once.
expect 0 "imported 4 of 4 records .*\(0 new, 0 replaced, 4 unchanged, 0 skipped\)" -- "${cat[@]}" catalogue import lyrics.jsonl
sed -i 's/No album at all/No album, no track/' lyrics.jsonl
expect 0 "imported 4 of 4 records .*\(0 new, 1 replaced, 3 unchanged, 0 skipped\)" -- "${cat[@]}" catalogue import lyrics.jsonl
expect 0 '"imported":4,"new":0,"replaced":0,"unchanged":4,"skipped":0' -- "${cat[@]}" catalogue import --json lyrics.jsonl
expect 0 "lyrics: +4$" -- "${cat[@]}" catalogue info
expect 0 "^1 result \(1 to 1 of 1\)$" -- "${cat[@]}" search --kind lyrics --fragment "no album"
expect 0 "^    No album, no track$" -- "${cat[@]}" search --kind lyrics --fragment "no album"

finish
