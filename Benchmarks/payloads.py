"""A tree like those in payloads, its archive, and measurements of commands, for the benchmarks beside this file."""

import os
import random
import shutil
import statistics
import subprocess
import sys
import time


def copy_from_system(folders, wanted, destination, megabytes):
    """Copies files of the system that `wanted` likes, by its name and size, until they are enough."""
    left = megabytes << 20
    for top in folders:
        for folder, subfolders, names in os.walk(top):
            subfolders.sort()
            for name in sorted(names):
                source = os.path.join(folder, name)
                if os.path.islink(source) or not os.path.isfile(source) or not wanted(name, os.path.getsize(source)):
                    continue
                target = os.path.join(destination, os.path.relpath(folder, "/"))
                os.makedirs(target, exist_ok=True)
                shutil.copyfile(source, os.path.join(target, name))
                left -= os.path.getsize(source)
                if left <= 0:
                    return


def make_tree(destination, megabytes):
    """Two fifths programs, a fifth texts, a fifth many small property lists, a fifth media that no codec makes smaller."""
    randomness = random.Random(1)
    copy_from_system(["/usr/bin", "/usr/lib"], lambda name, size: size > 50_000 and not name.endswith(".gz"),
                     os.path.join(destination, "programs"), megabytes * 2 // 5)
    copy_from_system(["/usr/include", "/usr/share"], lambda name, size: size > 0 and not name.endswith(".gz"),
                     os.path.join(destination, "texts"), megabytes // 5)
    media = os.path.join(destination, "media")
    os.makedirs(media)
    for number in range(megabytes // 5):
        with open(os.path.join(media, f"{number}.mov"), "wb") as file:
            file.write(randomness.randbytes(1 << 20))
    for number in range(megabytes // 5 * 256):
        folder = os.path.join(destination, "lists", f"{number // 100}.lproj")
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, f"{number}.plist"), "w") as file:
            file.write('<plist version="1.0"><dict>\n')
            for _ in range(60):
                file.write(f"<key>Key{randomness.random()}</key><string>{randomness.random()} of {number}</string>\n")
            file.write("</dict></plist>\n")


def make_archive(tree, archive):
    subprocess.run(f"find . | sort | cpio -o -H odc --quiet > '{archive}'", shell=True, cwd=tree, check=True)


def measure(command, **options):
    """Seconds, and mebibytes of peak memory of the largest process among the command's own."""
    start = time.monotonic()
    child = subprocess.Popen(command, **options)
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0:
        sys.exit(f"{command} failed with the status {status}")
    return time.monotonic() - start, usage.ru_maxrss / 1024


def report(results, reference):
    """Medians of lists of (seconds, mebibytes) by name, as ratios to one of them."""
    base = statistics.median(seconds for seconds, _ in results[reference])
    for name, measured in results.items():
        seconds = [each for each, _ in measured]
        print(f"{name:28} {statistics.median(seconds):6.2f} s ({min(seconds):.2f} to {max(seconds):.2f})"
              f"  {statistics.median(seconds) / base:5.2f} x  {max(memory for _, memory in measured):5.0f} MiB")
