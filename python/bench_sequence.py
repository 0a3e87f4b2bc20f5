"""Time per image of sequence(120) of 1920x1200 through tavri_teli over the simulated rig,
beside what one more copy of each image would cost the caller.

    PYTHONPATH=build/default/python /usr/bin/python3 python/bench_sequence.py [runs]
"""
import json
import sys
import tempfile
import time

import numpy as np

import tavri_teli as teli

RATE = 1000.0  # the rig's fastest projector: the triggers bound the set's time least
runs = int(sys.argv[1]) if len(sys.argv) > 1 else 5
with tempfile.NamedTemporaryFile("w", suffix=".json") as rig:
    json.dump({"seed": 1, "projector": {"rate": RATE, "pulseWidthMs": 0.1},
               "cameras": [{"serial": "BENCH", "width": 1920, "height": 1200}]}, rig)
    rig.flush()
    with teli.open(sdk="sim", rig=rig.name) as camera:
        camera.mode = "gray"
        camera.sequence(120)  # warms the set memory
        taken, copied = [], []
        for _ in range(runs):
            start = time.perf_counter()
            images = camera.sequence(120).images
            taken.append((time.perf_counter() - start) / 120)
            assert not images.flags.owndata  # the driver's block, not a copy
            start = time.perf_counter()
            np.array(images)
            copied.append((time.perf_counter() - start) / 120)
            del images
print(f"sequence(120) of 1920x1200 gray, triggers at {RATE:.0f} Hz, best of {runs}:")
print(f"  per image, start to array: {min(taken) * 1e3:.3f} ms (trigger period {1e3 / RATE:.3f} ms)")
print(f"  one more copy per image:   {min(copied) * 1e3:.3f} ms (what the array saves)")
