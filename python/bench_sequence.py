"""Time per image of sequence(120) of 1920x1200 gray through tavri_teli, beside the
driver's own figure for the same sequence (driver_bench's BM_SequenceRecycledSet), both
measured in this one run on the simulated rig in benchmark mode (no rendering, every
queued request filled at the start), and what one more copy of each image would cost.

    PYTHONPATH=build/default/python /usr/bin/python3 python/bench_sequence.py [runs] [driver_bench]

driver_bench defaults to the build tree's bin/driver_bench beside the module's folder.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import numpy as np

# Benchmark mode fills every request at once, paced by no trigger: the verdict would
# name most images (allow_broken below), and the log would print each.
os.environ.setdefault("TAVRI_LOG_LEVEL", "4")
import tavri_teli as teli  # noqa: E402

IMAGES, WIDTH, HEIGHT = 120, 1920, 1200
runs = int(sys.argv[1]) if len(sys.argv) > 1 else 5
driver_bench = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else
                            pathlib.Path(teli.__file__).resolve().parent.parent / "bin" / "driver_bench")

# The driver alone, host code in C++: start to finish of a set into a recycled block.
printed = subprocess.run([str(driver_bench), "--benchmark_filter=^BM_SequenceRecycledSet/"],
                         check=True, capture_output=True, text=True).stdout
rate = float(re.search(r"^recycled sequence, MB/s: ([0-9.e+]+)$", printed, re.M).group(1))
driver_ms = WIDTH * HEIGHT / 1e6 / rate * 1e3

with tempfile.NamedTemporaryFile("w", suffix=".json") as rig:
    json.dump({"seed": 1, "render": False,
               "cameras": [{"serial": "BENCH", "width": WIDTH, "height": HEIGHT}]}, rig)
    rig.flush()
    with teli.open(sdk="sim", rig=rig.name) as camera:
        camera.mode = "gray"
        for _ in range(2):  # both blocks of the driver's pool, as driver_bench warms them
            camera.sequence(IMAGES, allow_broken=True)
        taken, copied = [], []
        for _ in range(runs):
            start = time.perf_counter()
            images = camera.sequence(IMAGES, allow_broken=True).images
            taken.append((time.perf_counter() - start) / IMAGES)
            assert not images.flags.owndata  # the driver's block, not a copy
            start = time.perf_counter()
            np.array(images)
            copied.append((time.perf_counter() - start) / IMAGES)
            del images
python_ms = sum(taken) / len(taken) * 1e3
print(f"sequence({IMAGES}) of {WIDTH}x{HEIGHT} gray, benchmark-mode rig, per image:")
print(f"  driver_bench (C++ host, mean): {driver_ms:.3f} ms")
print(f"  tavri_teli (mean of {runs}):      {python_ms:.3f} ms (best {min(taken) * 1e3:.3f} ms)")
print(f"  tavri_teli / driver_bench:     {python_ms / driver_ms:.2f}")
print(f"  one more copy per image:       {min(copied) * 1e3:.3f} ms (what the array saves)")
