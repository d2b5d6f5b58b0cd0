#!/usr/bin/env python3
"""Writes the sample catalogue: invented albums in MusicBrainz-style release
JSON and xmcd disc files, plus lyrics as JSON lines.

    tools/gen_sample_catalogue.py [OUTDIR]        (default: data/sample)

Everything is invented and deterministic (fixed seed). The output holds:
  releases/*.json     one release per file
  releases.jsonl      one release per line
  xmcd/<genre>/<id>   xmcd disc files
  lyrics.jsonl        lyrics linked to some tracks
The album "Lanterns of Glass" has the disc TOC "150 14672 27367 41225".
"""
import base64
import hashlib
import json
import os
import random
import sys

SYLLABLES = ["ka", "lo", "mi", "ra", "ten", "vo", "sel", "dru", "ma", "ne", "quo", "fa", "zir",
             "bel", "an", "tor", "li", "pen", "sa", "ro", "ve", "nu", "gal", "hem", "is", "ul"]
NOUNS = ["harbour", "lantern", "comet", "meadow", "river", "ember", "signal", "orchard", "tide",
         "mirror", "compass", "winter", "garden", "thunder", "window", "candle", "echo", "feather",
         "harvest", "island", "ladder", "marble", "needle", "ocean", "pepper", "quarry", "ribbon"]
ADJECTIVES = ["quiet", "paper", "golden", "hollow", "distant", "velvet", "broken", "silver",
              "restless", "painted", "sleeping", "northern", "crooked", "electric", "tender"]
GENRES = ["rock", "jazz", "folk", "classical", "electronic", "pop", "blues"]


def uid(*parts):
    """A deterministic identifier shaped like a UUID."""
    h = hashlib.sha1("|".join(str(p) for p in parts).encode()).hexdigest()
    return "%s-%s-%s-%s-%s" % (h[:8], h[8:12], h[12:16], h[16:20], h[20:32])


def mb_disc_id(offsets):
    """Disc identifier of the MusicBrainz kind from offsets + lead-out."""
    tracks = offsets[:-1]
    s = "%02X%02X%08X" % (1, len(tracks), offsets[-1])
    for i in range(99):
        s += "%08X" % (tracks[i] if i < len(tracks) else 0)
    b = base64.b64encode(hashlib.sha1(s.encode()).digest()).decode()
    return b.replace("+", ".").replace("/", "_").replace("=", "-")


def xmcd_disc_id(offsets):
    n = 0
    for o in offsets[:-1]:
        n += sum(int(d) for d in str(o // 75))
    t = offsets[-1] // 75 - offsets[0] // 75
    return "%08x" % (((n % 0xFF) << 24) | (t << 8) | (len(offsets) - 1))


def offsets_from_frames(lengths, start=150):
    out = [start]
    for f in lengths:
        out.append(out[-1] + f)
    return out


def word(rng, syllables=(2, 3)):
    return "".join(rng.choice(SYLLABLES) for _ in range(rng.randint(*syllables)))


def person(rng):
    return word(rng).capitalize() + " " + word(rng).capitalize()


def title(rng, words=(1, 3)):
    n = rng.randint(*words)
    parts = [rng.choice(ADJECTIVES + NOUNS) for _ in range(n)]
    if n > 1 and rng.random() < 0.4:
        parts.insert(1, "of")
    return " ".join(parts).title()


def credit(names, joins=None):
    joins = joins or ([" & "] * (len(names) - 1) + [""])
    return [{"name": n, "joinphrase": j,
             "artist": {"id": uid("artist", n), "name": n, "sort-name": ", ".join(reversed(n.split(" ", 1)))}}
            for n, j in zip(names, joins)]


def release(name, artists, year, genre, media, composer=None, lang="eng", label=None):
    """media: list of (disc title, [(track title, frames, track artists or None)], extra TOCs)."""
    rid = uid("release", name, *artists)
    rel = {
        "id": rid, "title": name, "status": "Official", "date": "%04d-03-01" % year,
        "artist-credit": credit(artists),
        "genres": [{"name": genre, "count": 3}],
        "text-representation": {"language": lang, "script": "Latn"},
        "label-info": [{"catalog-number": "CAT-%s" % rid[:4].upper(),
                        "label": {"id": uid("label", label or genre), "name": label or "%s House" % genre.title()}}],
        "media": [],
    }
    if composer:
        rel["relations"] = [{"type": "composer", "target-type": "artist", "direction": "backward",
                             "artist": {"id": uid("artist", composer), "name": composer,
                                        "sort-name": composer}}]
    for pos, (disc_title, tracks, extra) in enumerate(media, 1):
        frames = [f for _, f, _ in tracks]
        offsets = offsets_from_frames(frames)
        tocs = [offsets] + list(extra)
        medium = {"position": pos, "format": "CD", "title": disc_title, "track-count": len(tracks),
                  "discs": [{"id": mb_disc_id(t), "offset-count": len(t) - 1, "offsets": t[:-1], "sectors": t[-1]}
                            for t in tocs],
                  "tracks": []}
        for n, (ttitle, f, tartists) in enumerate(tracks, 1):
            tr = {"id": uid("track", rid, pos, n), "position": n, "number": str(n), "title": ttitle,
                  "length": f * 1000 // 75,
                  "recording": {"id": uid("recording", rid, pos, n), "title": ttitle, "length": f * 1000 // 75}}
            if tartists:
                tr["artist-credit"] = credit(tartists)
            medium["tracks"].append(tr)
        rel["media"].append(medium)
    return rel


def xmcd(artist, name, year, genre, tracks, revision=0):
    frames = [f for _, f in tracks]
    offsets = offsets_from_frames(frames, 182)
    seconds = offsets[-1] // 75
    lines = ["# xmcd", "#", "# Track frame offsets:"]
    lines += ["#\t%d" % o for o in offsets[:-1]]
    lines += ["#", "# Disc length: %d seconds" % seconds, "#", "# Revision: %d" % revision,
              "# Submitted via: sample-generator 1.0", "#"]
    did = xmcd_disc_id(offsets[:-1] + [seconds * 75])
    lines += ["DISCID=%s" % did, "DTITLE=%s / %s" % (artist, name), "DYEAR=%d" % year, "DGENRE=%s" % genre.title()]
    for i, (t, _) in enumerate(tracks):
        lines.append("TTITLE%d=%s" % (i, t))
    lines += ["EXTD=", *["EXTT%d=" % i for i in range(len(tracks))], "PLAYORDER="]
    return did, "\n".join(lines) + "\n"


def sample(outdir):
    rng = random.Random(20261122)
    os.makedirs(os.path.join(outdir, "releases"), exist_ok=True)
    releases = []
    # Hand-made albums that tests rely on.
    releases.append(release("Lanterns of Glass", ["Mira Solenne"], 2004, "folk",
                            [("", [("Quiet Harbour", 14522, None), ("Paper Comets", 12695, None),
                                   ("The Long Thaw", 13858, None)], [])],
                            composer="Anselm Drüwe"))
    releases.append(release("Café Noir Sessions", ["Élodie Marchetti"], 1999, "jazz",
                            [("", [("Rue des Étoiles", 17250, None), ("Señorita Lumière", 15010, None),
                                   ("Déjà Minuit", 20330, None), ("Petite Fenêtre", 12770, None)], [])],
                            lang="fra"))
    releases.append(release("Straße der Lieder", ["Jürgen Hößl"], 2011, "classical",
                            [("", [("Abendglöckchen", 22010, None), ("Über die Brücke", 18400, None),
                                   ("Mädchen im Schnee", 16660, None)], [])], lang="deu"))
    releases.append(release("Ñandú Nights", ["Orquesta Pájaro Azul"], 2016, "jazz",
                            [("", [("Canción del Río", 16000, None), ("Niña de Papel", 14250, None),
                                   ("Último Tren", 19300, None), ("Mañana Quizás", 13500, None),
                                   ("Corazón Partido", 15800, None)], [])], lang="spa"))
    releases.append(release("Twin Meridians", ["Mira Solenne", "Koji Arakawa"], 2019, "electronic",
                            [("", [("Meridian One", 21000, None), ("Meridian Two", 19000, ["Koji Arakawa"]),
                                   ("Salt and Static", 17600, None)], [])]))
    # Multi-disc releases, one with a second pressing of disc 1.
    d1 = [("Harbour Lights", 15100, None), ("Tidewater", 18000, None), ("Gull Song", 12000, None),
          ("Northern Pier", 16600, None)]
    pressing = offsets_from_frames([f for _, f, _ in d1], 182)
    releases.append(release("The Complete Tidewater Recordings", ["Tidewater Collective"], 2008, "folk",
                            [("Early Tides", d1, [pressing]),
                             ("Late Tides", [("Low Water", 14400, None), ("Spring Tide", 17900, None),
                                             ("Undertow", 20100, None)], [])]))
    releases.append(release("Atlas of Small Hours", ["Velvet Quarry"], 2013, "rock",
                            [("Dusk", [(title(rng), rng.randint(9000, 24000), None) for _ in range(5)], []),
                             ("Midnight", [(title(rng), rng.randint(9000, 24000), None) for _ in range(6)], []),
                             ("Dawn", [(title(rng), rng.randint(9000, 24000), None) for _ in range(4)], [])]))
    # Invented albums from syllables.
    for i in range(22):
        artists = [person(rng)]
        n = rng.randint(3, 12)
        tracks = [(title(rng), rng.randint(7000, 26000), None) for _ in range(n)]
        discs = [("", tracks, [])]
        if i % 9 == 4:
            discs.append(("Bonus", [(title(rng), rng.randint(7000, 26000), None) for _ in range(3)], []))
        releases.append(release(title(rng, (1, 4)), artists, rng.randint(1965, 2024), rng.choice(GENRES), discs))

    for rel in releases[:8]:
        with open(os.path.join(outdir, "releases", rel["id"] + ".json"), "w", encoding="utf-8") as f:
            json.dump(rel, f, ensure_ascii=False, indent=2)
            f.write("\n")
    with open(os.path.join(outdir, "releases.jsonl"), "w", encoding="utf-8") as f:
        for rel in releases[8:]:
            f.write(json.dumps(rel, ensure_ascii=False) + "\n")

    # xmcd discs.
    xmcd_albums = [
        ("Hollow Ember", "Signals from the Orchard", 1994, "rock",
         [("Orchard Gate", 16800), ("Signal Fire", 14300), ("Crooked Ladder", 20900), ("Ember Song", 11800)], 2),
        ("Zoë Lindqvist", "Fjärran Öar", 2002, "folk",
         [("Öar i dimma", 15500), ("Skärgårdsvals", 13200), ("Fyrens ljus", 17700)], 0),
    ]
    for k in range(6):
        xmcd_albums.append((person(rng), title(rng, (1, 3)), rng.randint(1980, 2010), rng.choice(GENRES),
                            [(title(rng), rng.randint(8000, 25000)) for _ in range(rng.randint(3, 10))], k % 3))
    for artist, name, year, genre, tracks, rev in xmcd_albums:
        did, text = xmcd(artist, name, year, genre, tracks, rev)
        d = os.path.join(outdir, "xmcd", genre)
        os.makedirs(d, exist_ok=True)
        with open(os.path.join(d, did), "w", encoding="utf-8") as f:
            f.write(text)

    # Lyrics.
    lyrics = [
        {"title": "Quiet Harbour", "artist": "Mira Solenne", "language": "eng",
         "release": releases[0]["id"], "disc": 1, "track": 1,
         "text": "The boats are sleeping in the quiet harbour\nLanterns of glass along the northern pier\n"
                 "I hold the rope you left me\nAnd wait for the tide to turn"},
        {"title": "Paper Comets", "artist": "Mira Solenne", "language": "eng",
         "release": releases[0]["id"], "disc": 1, "track": 2,
         "text": "We folded comets out of paper\nThrew them burning at the sky\n"
                 "Every ember was a promise\nEvery promise learned to fly"},
        {"title": "Rue des Étoiles", "artist": "Élodie Marchetti", "language": "fra",
         "release": releases[1]["id"], "disc": 1, "track": 1,
         "text": "Dans la rue des étoiles\nLe café s'endort à minuit\nTes pas résonnent encore\nSur les pavés mouillés"},
        {"title": "Über die Brücke", "artist": "Jürgen Hößl", "language": "deu",
         "release": releases[2]["id"], "disc": 1, "track": 2,
         "text": "Über die Brücke geht der Abend\nDie Glocken läuten leise\nIm Fluss die Lichter der Straße"},
        {"title": "Meridian Two", "artist": "Koji Arakawa", "language": "eng",
         "release": releases[4]["id"], "disc": 1, "track": 2,
         "text": "Static on the meridian line\nSalt on the window, signal in the wire\nTwo clocks that never agree"},
    ]
    with open(os.path.join(outdir, "lyrics.jsonl"), "w", encoding="utf-8") as f:
        for l in lyrics:
            f.write(json.dumps(l, ensure_ascii=False) + "\n")
    return len(releases), len(xmcd_albums), len(lyrics)


if __name__ == "__main__":
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "data", "sample")
    r, x, l = sample(out)
    print("wrote %d releases, %d xmcd discs, %d lyrics to %s" % (r, x, l, out))
