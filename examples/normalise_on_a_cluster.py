#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Brings a folder of sound files to one loudness, over the workers of a Dask scheduler.

    normalise_on_a_cluster.py IN_FOLDER OUT_FOLDER --scheduler tcp://HOST:8786
    normalise_on_a_cluster.py IN_FOLDER OUT_FOLDER --local 4

Workers see both folders under the same names (a file system in the network) and have quillworks
installed. A worker that is lost has its files done by another one. A file appears when it is complete
and what is there already is left alone, so a run that was ended goes on where it stopped.
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

from distributed import Client, LocalCluster, as_completed

import quillworks as qw

KINDS = {".wav", ".flac", ".aiff", ".aif", ".w64", ".caf", ".au"}


def normalise(source: str, target: str, loudness: float, true_peak: float) -> dict[str, object]:
    """One file, on a worker. Whatever comes of it, it is no exception: Dask would end the others."""
    try:
        before = qw.measure(source)
        if Path(target).exists():  # by a worker that was lost before it could say so
            after = qw.measure(target)
            return {"file": source, "before": before.integrated, "after": after.integrated}
        gain = loudness - before.integrated
        if gain != gain:
            raise qw.Error(f"{source}: there is nothing to measure in it")
        sound, rate = qw.read(source, dtype="float64")
        sound *= 10 ** (gain / 20)
        if before.true_peak + gain > true_peak:
            limiter = qw.Effect("limiter", ceiling=true_peak, highqual=True)
            sound = limiter.process(sound, rate)
        after = qw.measure(sound, rate)
        qw.write(target, sound, rate, format="pcm24")
        return {"file": source, "before": before.integrated, "after": after.integrated}
    except (qw.Error, OSError, ValueError) as error:
        return {"file": source, "error": str(error)}


def tasks(source: Path, target: Path) -> list[tuple[str, str]]:
    """Input and output of every file that is not done, by folders below the first."""
    found = []
    for path in sorted(source.rglob("*")):
        out = target / path.relative_to(source)
        if path.suffix.lower() in KINDS and path.is_file() and not out.exists():
            out.parent.mkdir(parents=True, exist_ok=True)
            found.append((str(path), str(out)))
    return found


def run(client: Client, source: Path, target: Path, loudness: float, true_peak: float) -> int:
    """How many files failed. Prints a line for each as it is done."""
    failed = 0
    # A task is begun anew when its worker is lost; more losses than this and the file is at fault.
    futures = [
        client.submit(normalise, in_file, out_file, loudness, true_peak, pure=False, retries=2)
        for in_file, out_file in tasks(source.resolve(), target.resolve())
    ]
    for future in as_completed(futures):
        try:
            report = future.result()
        except Exception as error:  # of the cluster: workers died over it again and again
            report = {"file": future.key, "error": str(error)}
        if "error" in report:
            failed += 1
            print(report["error"], file=sys.stderr, flush=True)
        else:
            print("{file}: {before:.1f} to {after:.1f} LUFS".format(**report), flush=True)
    print(f"{len(futures) - failed} done, {failed} failed")
    return failed


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("source", type=Path)
    parser.add_argument("target", type=Path)
    parser.add_argument("--scheduler", help="address of a Dask scheduler")
    parser.add_argument("--local", type=int, default=2, help="else, worker processes here (2)")
    parser.add_argument("--loudness", type=float, default=-16.0, help="LUFS (-16)")
    parser.add_argument("--true-peak", type=float, default=-1.0, help="dBTP (-1)")
    asked = parser.parse_args()
    if asked.scheduler:
        with Client(asked.scheduler) as client:
            return 1 if run(client, asked.source, asked.target, asked.loudness, asked.true_peak) else 0
    with LocalCluster(n_workers=asked.local, threads_per_worker=1, dashboard_address=None) as cluster:
        with Client(cluster) as client:
            return 1 if run(client, asked.source, asked.target, asked.loudness, asked.true_peak) else 0


if __name__ == "__main__":
    sys.exit(main())
