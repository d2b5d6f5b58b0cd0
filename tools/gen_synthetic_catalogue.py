#!/usr/bin/env python3
"""Writes a large synthetic catalogue for benchmarks: N invented releases in
MusicBrainz-style JSON, one per line (not kept in the repository).

    tools/gen_synthetic_catalogue.py N OUT.jsonl [SEED]

Track counts 1-25 (mostly 8-14), lengths 1-10 minutes, 10% multi-disc; some
discs carry a second pressing whose offsets are shifted by a constant.
"""
import json
import os
import random
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from gen_sample_catalogue import credit, mb_disc_id, offsets_from_frames, person, title, uid, GENRES  # noqa: E402


def main():
    n = int(sys.argv[1])
    out = sys.argv[2]
    rng = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 7)
    artists = [person(rng) for _ in range(max(10, n // 8))]
    with open(out, "w", encoding="utf-8") as f:
        for i in range(n):
            artist = rng.choice(artists)
            rid = uid("synthetic", i)
            media = []
            for pos in range(1, (3 if rng.random() < 0.1 else 2)):
                count = max(1, min(25, int(rng.gauss(11, 3))))
                frames = [rng.randint(4500, 45000) for _ in range(count)]
                offsets = offsets_from_frames(frames)
                discs = [offsets]
                if rng.random() < 0.05:
                    discs.append([o + 32 for o in offsets])
                media.append({
                    "position": pos, "format": "CD", "track-count": count,
                    "discs": [{"id": mb_disc_id(t), "offsets": t[:-1], "sectors": t[-1], "offset-count": count}
                              for t in discs],
                    "tracks": [{"id": uid(rid, pos, k), "position": k, "number": str(k), "title": title(rng),
                                "length": fr * 1000 // 75} for k, fr in enumerate(frames, 1)],
                })
            rel = {"id": rid, "title": title(rng, (1, 4)), "date": "%d" % rng.randint(1960, 2025),
                   "artist-credit": credit([artist]), "genres": [{"name": rng.choice(GENRES)}], "media": media}
            f.write(json.dumps(rel, ensure_ascii=False) + "\n")


if __name__ == "__main__":
    main()
