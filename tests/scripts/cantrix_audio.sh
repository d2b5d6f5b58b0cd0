#!/usr/bin/env bash
# End-to-end run of the tool's audio commands: a small music folder (tagged
# files in five formats, a MusicBrainz-tagged one, one found by text search,
# bad files) fingerprinted into a catalogue holding the sample releases; a
# second run that changes nothing; identification of excerpts and whole
# files, of a song the catalogue lacks and of files that cannot be read.
# Skipped (exit 77) only in a build configured without audio support
# (CANTRIX_AUDIO=0 from CTest, the -m32 build), where the commands must say so.
set -u
build=$(cd "${1:?usage: cantrix_audio.sh BUILD_DIR}" && pwd)
src=$(cd "$(dirname "$0")/../.." && pwd)
tool="$build/cantrix"
synth="$build/cantrix_synth"
if [ "${CANTRIX_AUDIO:-1}" = 0 ]; then
  out=$("$tool" catalogue fingerprint . 2>&1); rc=$?
  if [ "$rc" -ne 2 ] || ! grep -q "without audio file support" <<<"$out"; then
    echo "FAIL: a tool without audio support answers: exit $rc: $out"
    exit 1
  fi
  echo "skipped: built without audio support"
  exit 77
fi
if [ ! -x "$synth" ] || ! command -v ffmpeg >/dev/null; then
  echo "FAIL: audio support is built but cantrix_synth or the ffmpeg program is missing"
  exit 1
fi
. "$src/tests/scripts/expect.sh"

ff() { ffmpeg -nostdin -v error -y "$@" || fail "ffmpeg $*"; }

# Five songs of 25 seconds; four of them tagged, in different formats.
mkdir -p music/Night\ Drive
for seed in 1 2 3 4 5; do "$synth" song $seed 25 song$seed.wav || fail "synth $seed"; done
ff -i song1.wav -c:a flac -metadata title=Whatever -metadata MUSICBRAINZ_RELEASETRACKID=f4d5f0d8-111a-87d4-e54a-acfc9a851698 music/harbour.flac
ff -i song2.wav -c:a libmp3lame -b:a 192k -metadata title="Paper Comets" -metadata artist="Mira Solenne" \
   -metadata album="Lanterns of Glass" music/comets.mp3
ff -i song3.wav -c:a aac -b:a 128k -metadata title=Neon -metadata artist="Ana Reyes" -metadata album="Night Drive" \
   -metadata track=1 "music/Night Drive/01 Neon.m4a"
ff -i song4.wav -c:a libopus -b:a 96k -metadata title=Rain -metadata artist="Ana Reyes" -metadata album="Night Drive" \
   -metadata track=2 "music/Night Drive/02 Rain.opus"
: > music/empty.mp3
echo "just some notes" > music/notes.mp3
echo "not audio" > music/cover.jpg
ff -i song4.wav -c:a flac cut.flac
head -c 20000 cut.flac > music/cut.flac
"$synth" silence 36000 8000 music/ten-hours.flac || fail "silent file"

expect 0 "imported 42 of 42 records" -- catalogue import "$src/data/sample"
expect 0 "fingerprints: 0 \(of 0 audio files\)" -- catalogue info
expect 0 "catalogue fingerprint FILE" -- --help

# First run: four files stored, four refused, the rest goes on.
out=$("$tool" catalogue fingerprint --verbose music 2>&1); rc=$?
printf '%s\n' "$out"
[ "$rc" -eq 0 ] || fail "fingerprint: exit $rc"
for pattern in "added +music/harbour.flac: Mira Solenne - Quiet Harbour \(Lanterns of Glass, track 1\), linked by MusicBrainz id" \
               "added +music/comets.mp3: Mira Solenne - Paper Comets \(Lanterns of Glass, track 2\), linked by text search \(score 100\)" \
               "added +music/Night Drive/01 Neon.m4a: Ana Reyes - Neon \(Night Drive, track 1\), new track in a new album" \
               "added +music/Night Drive/02 Rain.opus: Ana Reyes - Rain \(Night Drive, track 2\), new track" \
               "skipped +music/empty.mp3: empty file" \
               "skipped +music/notes.mp3: not a readable audio file" \
               "skipped +music/cut.flac: truncated or damaged: no packet of it can be decoded" \
               "skipped +music/ten-hours.flac: silent: nothing audible in the first 10:00" \
               "8 files: 4 added, 4 skipped" \
               "linked: 1 by MusicBrainz id, 1 by text search, 0 by tags; 2 new tracks, 1 new album$"; do
  grep -qE -- "$pattern" <<<"$out" || fail "fingerprint output lacks /$pattern/"
done
grep -q "cover.jpg" <<<"$out" && fail "cover.jpg was looked at"
expect 0 "fingerprints: 4 \(of 4 audio files\)" -- catalogue info
expect 0 "albums: +38" -- catalogue info
expect 0 "tracks: +248" -- catalogue info

# Second run: files are known by content, even under another name.
cp music/comets.mp3 music/comets-copy.mp3
expect 0 "9 files: 0 added, 5 unchanged, 4 skipped" -- catalogue fingerprint music
expect 0 "fingerprints: 4 \(of 4 audio files\)" -- catalogue info
expect 0 "tracks: +248" -- catalogue info
expect 0 "unchanged music/comets-copy.mp3" -- catalogue fingerprint --verbose music
expect 0 "\[#+\] 9/9 +[0-9.]+ files/s +[0-9]+x real time +0:00 left" -- catalogue fingerprint --progress music
expect 0 '"files":9,"added":0,"same_audio":0,"unchanged":5,"skipped":4' -- --json catalogue fingerprint music
expect 0 '"path":"music/cut.flac","reason":"truncated or damaged' -- --json catalogue fingerprint music
expect 3 "cantrix: gone.flac: no such file or folder" -- catalogue fingerprint music gone.flac

# Identification: a 20 s excerpt from the middle, a whole re-encoded file.
ff -ss 4 -t 20 -i song2.wav -c:a libmp3lame -b:a 128k clip.mp3
ff -i song3.wav -ac 1 -ar 22050 -c:a flac mono.flac
out=$("$tool" identify --audio clip.mp3 2>&1) || fail "identify clip.mp3: $out"
printf '%s\n' "$out"
for pattern in "^audio: clip.mp3 \(0:20\.0 of mp3, 44100 Hz, 2 channels\)" "Mira Solenne - Lanterns of Glass" \
               "audio match: track 2\. Paper Comets" "fingerprint score: ([6-9][0-9]|100)  offset: 0:04\.[0-9]  compared: 0:1[5-9]" \
               "match type: SINGLE  lookup type: FP"; do
  grep -qE -- "$pattern" <<<"$out" || fail "identify clip.mp3: output lacks /$pattern/"
done
expect 0 "Ana Reyes - Night Drive" -- identify --audio mono.flac
expect 0 "audio match: track 1\. Neon" -- identify --audio mono.flac
expect 0 "offset: 0:00\.0" -- identify --audio mono.flac
# Five seconds of silence before the song: the audio starts before the track.
ff -i song3.wav -af adelay=5000:all=1 -c:a flac lead.flac
expect 0 "offset: -0:0(4\.9|5\.[01])" -- identify --audio lead.flac
expect 0 '"fp_offset_ms":-(49|50|51)[0-9]{2},' -- identify --json --audio lead.flac
expect 0 '^\{"audio":\{"path":"clip.mp3","codec":"mp3","duration_ms":20000,.*"results":\[\{"context":"zelto_ctx_album","match_type":"SINGLE","lookup_type":"FP","fp_score":([6-9][0-9]|100),"fp_offset_ms":(39|40)[0-9]{2},"fp_compared_ms":1[5-9][0-9]{3},"matched_track":2,"title":"Lanterns of Glass","artist":"Mira Solenne"' \
  -- identify --json --audio clip.mp3 mono.flac
out=$("$tool" identify --json --audio clip.mp3 mono.flac 2>&1)
[ "$(grep -c '^{"audio"' <<<"$out")" -eq 2 ] || fail "identify --json: one line per file: $out"
expect 0 '"context":"zelto_ctx_track".*"fp_score":9[0-9].*"title":"Neon"' -- identify --json --kind tracks --audio mono.flac

# A song the catalogue lacks, and files that cannot be read.
expect 0 "^song5.wav$|no match" -- identify --audio song5.wav
expect 3 "cantrix: music/notes.mp3: not a readable audio file" -- identify --audio music/notes.mp3 clip.mp3
expect 3 "Paper Comets" -- identify --audio music/notes.mp3 clip.mp3
expect 3 "cantrix: music/empty.mp3: empty file" -- identify --audio music/empty.mp3 music/cut.flac
expect 3 "cantrix: music/cut.flac: truncated or damaged" -- identify --audio music/empty.mp3 music/cut.flac
expect 2 "identify needs one of --toc, --discid, --drive, --cue, --log, --audio" -- identify
expect 2 "identify takes one of" -- identify --audio clip.mp3 --toc "150 300"
expect 2 "catalogue fingerprint needs files or directories" -- catalogue fingerprint
expect 4 "does not exist" -- --catalogue nowhere.db identify --audio clip.mp3

finish
