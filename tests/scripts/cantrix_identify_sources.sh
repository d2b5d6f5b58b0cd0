#!/usr/bin/env bash
# End-to-end runs of `cantrix identify` with each source of a TOC: both TOC
# forms, disc IDs from the catalogue, rip logs of EAC (UTF-16), XLD, whipper
# and cyanrip, an Enhanced CD's log, CUE sheets, a drive that is not there,
# and malformed input refused with the line named (exit 3).
set -u
build=$(cd "${1:?usage: cantrix_identify_sources.sh BUILD_DIR}" && pwd)
src=$(cd "$(dirname "$0")/../.." && pwd)
tool="$build/cantrix"
. "$src/tests/scripts/expect.sh"

"$tool" catalogue import "$src/data/sample" > /dev/null || fail "import of the sample catalogue"
album="Mira Solenne - Lanterns of Glass \(2004\)"
mbid="xyJBxyfybLWr1uGvUALDEQEuQwQ-"

# ---- TOC texts
expect 0 "MusicBrainz disc ID: $mbid" -- identify --toc "150 14672 27367 41225"
expect 0 "freedb disc ID: +1e022303" -- identify --toc "150 14672 27367 41225"
expect 0 "disc: 150 14672 27367 41225 \(MusicBrainz form\)" -- identify --toc "1 3 41225 150 14672 27367"
expect 0 "$album" -- identify --toc "1+3+41225+150+14672+27367"
expect 0 "\"musicbrainz_disc_id\":\"$mbid\",\"freedb_disc_id\":\"1e022303\"" -- identify --json --toc "150 14672 27367 41225"
expect 3 "number 4 \(150\) is not greater than number 3 \(41225\)" -- identify --toc-format offsets --toc "1 3 41225 150 14672 27367"
expect 3 "MusicBrainz form: first track, last track" -- identify --toc "150 100"
expect 2 "--toc-format must be auto, offsets or musicbrainz" -- identify --toc-format xml --toc "150 300"
expect 2 "identify takes one of --toc, --discid, --drive, --cue, --log" -- identify --toc "150 300" --discid 1e022303

# ---- Disc IDs stored in the catalogue (MusicBrainz media discs, xmcd DISCID)
expect 0 "$album" -- identify --discid "$mbid"
expect 0 "disc: 150 14672 27367 41225 \(catalogue, disc ID 1E022303\)" -- identify --discid 1E022303
expect 0 "disc: 182 24728 49097 61566 76275" -- identify --discid 2903f704
expect 0 "^no match$" -- identify --discid 00000000
expect 0 '"results":\[\]' -- identify --json --discid 00000000
expect 2 "--discid needs a MusicBrainz disc ID" -- identify --discid 1e0223
expect 4 "does not exist" -- --catalogue nowhere.db identify --discid 1e022303

# ---- Rip logs
cat > eac.txt <<'EOF'
Exact Audio Copy V1.6 from 23. October 2020

EAC extraction logfile from 21. March 2021, 14:03

TOC of the extracted CD

     Track |   Start  |  Length  | Start sector | End sector 
    ---------------------------------------------------------
        1  |  0:00.00 |  3:13.47 |         0    |    14521   
        2  |  3:13.47 |  2:49.20 |     14522    |    27216   
        3  |  6:02.67 |  3:04.58 |     27217    |    41074   

No errors occurred
EOF
iconv -f UTF-8 -t UTF-16 eac.txt > eac.log   # EAC writes UTF-16 with a byte order mark
expect 0 "disc: 150 14672 27367 41225 \(EAC log\)" -- identify --log eac.log
expect 0 "$album" -- identify --log eac.log
out=$("$tool" identify --log - < eac.log 2>&1) || fail "identify --log - (standard input): $out"
grep -q "disc: 150 14672 27367 41225 (EAC log)" <<<"$out" || fail "identify --log - (standard input): $out"
out=$(printf 'Some other program\n' | "$tool" identify --log - 2>&1); rc=$?
[ "$rc" -eq 3 ] && grep -q "^cantrix: (standard input):1: not a log" <<<"$out" || fail "identify --log - of no log: $rc $out"

sed 's/^\(        3  .*\)$/\1\n        4  | 11:39.50 |  2:00.00 |     52475    |    61474   /' eac.txt > enhanced.log
expect 0 "freedb disc ID: +26033304" -- identify --log enhanced.log
expect 0 "MusicBrainz disc ID: $mbid" -- identify --log enhanced.log
expect 0 "match type: SINGLE" -- identify --log enhanced.log

cat > xld.log <<'EOF'
X Lossless Decoder version 20191004 (152.2)

TOC of the extracted CD
     Track |   Start  |  Length  | Start sector | End sector 
    ---------------------------------------------------------
        1  | 00:00:00 | 03:13:47 |         0    |    14521   
        2  | 03:13:47 | 02:49:20 |     14522    |    27216   
        3  | 06:02:67 | 03:04:58 |     27217    |    41074   

AccurateRip Summary (DiscID: 00047b2a-0012f1f5-1e022303)
EOF
expect 0 "$album" -- identify --log xld.log

cat > whipper.log <<'EOF'
Log created by: whipper 0.10.0 (internal logger)

CD metadata:
  CDDB Disc ID: 1e022304
  MusicBrainz Disc ID: xyJBxyfybLWr1uGvUALDEQEuQwQ-

TOC:
  1:
    Start: 00:00:00
    Length: 03:13:47
    Start sector: 0
    End sector: 14521

  2:
    Start: 03:13:47
    Length: 02:49:20
    Start sector: 14522
    End sector: 27216

  3:
    Start: 06:02:67
    Length: 03:04:58
    Start sector: 27217
    End sector: 41074

Tracks:
EOF
expect 0 "warning: the log states the freedb disc ID 1e022304, its TOC gives 1e022303" -- identify --log whipper.log

cat > cyanrip.log <<'EOF'
cyanrip 0.9.0
Disc tracks:    3
Track 1 ripped and encoded successfully!
    Start LSN:     0
    End LSN:       14521
Track 2 ripped and encoded successfully!
    Start LSN:     14522
    End LSN:       27216
Track 3 ripped and encoded successfully!
    Start LSN:     27217
    End LSN:       41074
EOF
expect 0 "$album" -- identify --log cyanrip.log

sed 's/3:04.58 |     27217/3:04.75 |     27217/' eac.txt > bad.log
expect 3 "bad.log:11: frames 75 above 74 in 3:04.75" -- identify --log bad.log
printf 'Some other program\n' > other.log
expect 3 "other.log:1: not a log of EAC, XLD, whipper or cyanrip" -- identify --log other.log
head -c 301 eac.log > cut.log
expect 3 "cut.log:[0-9]+: UTF-16 text ends in half a character" -- identify --log cut.log
expect 3 "missing.log: No such file or directory" -- identify --log missing.log

# ---- CUE sheets
cat > disc.cue <<'EOF'
CATALOG 0724384960650
FILE "disc.wav" WAVE
  TRACK 01 AUDIO
    ISRC GBAYE0400001
    INDEX 01 00:00:00
  TRACK 02 AUDIO
    INDEX 00 03:11:47
    INDEX 01 03:13:47
  TRACK 03 AUDIO
    INDEX 01 06:02:67
EOF
expect 0 "$album" -- identify --cue disc.cue --leadout 41225
expect 0 "MCN: 0724384960650" -- identify --cue disc.cue --leadout 41225
expect 0 "ISRC of track 1: GBAYE0400001" -- identify --cue disc.cue --leadout 41225
expect 3 "disc.cue: the CUE sheet does not tell where the last track ends: give the lead-out in frames" -- identify --cue disc.cue
sed 's/06:02:67/06:02:75/' disc.cue > bad.cue
expect 3 "bad.cue:10: frames 75 above 74 in 06:02:75" -- identify --cue bad.cue --leadout 41225
sed '/TRACK 02/,/INDEX 01 03:13:47/d' disc.cue > gap.cue
expect 3 "gap.cue:6: TRACK 03 follows track 1: a track is missing" -- identify --cue gap.cue --leadout 41225
expect 2 "--leadout goes with --cue" -- identify --toc "150 300" --leadout 41225

# The lengths of a CUE sheet's audio files give the lead-out and the start
# of a second FILE: 10 s of WAV (750 frames) and 5 s of FLAC (375 frames).
if [ "${CANTRIX_AUDIO:-0}" = 1 ] && command -v ffmpeg > /dev/null; then
  head -c $((750 * 588 * 4)) /dev/zero | ffmpeg -loglevel error -f s16le -ar 44100 -ac 2 -i - a.wav
  head -c $((375 * 588 * 4)) /dev/zero | ffmpeg -loglevel error -f s16le -ar 44100 -ac 2 -i - b.flac
  mkdir -p sheets
  printf 'FILE "../a.wav" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\nFILE "../b.flac" WAVE\n  TRACK 02 AUDIO\n    INDEX 01 00:00:00\n' > sheets/two.cue
  expect 0 "disc: 150 900 1275 \(CUE sheet\)" -- identify --cue sheets/two.cue
  head -c 1000 a.wav > sheets/cut.wav
  printf 'FILE "cut.wav" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n' > sheets/cut.cue
  expect 3 "cut.wav: " -- identify --cue sheets/cut.cue
fi

# ---- A drive: none here, and libdiscid says so.
expect 3 "cannot read the disc in /nonexistent/cdrom: " -- identify --drive /nonexistent/cdrom

finish
