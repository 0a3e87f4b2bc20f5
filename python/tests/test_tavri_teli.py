# tavri_teli over the simulated rig: run by ctest with PYTHONPATH at the build tree's
# python/ folder and TAVRI_TELI_SDK=sim.
import json
import signal
import subprocess
import sys
import time

import numpy as np
import pytest

import tavri_teli as teli

SIZE = (240, 320)  # rows, columns of every camera below
CAMERA = {"width": SIZE[1], "height": SIZE[0]}
RIGS = {
    "rig": [{"serial": "SIMA", "model": "MODEL-A"}, {"serial": "SIMB", "model": "MODEL-B"}],
    "gap": [{"serial": "SIMF", "frameFaults": [{"kind": "drop", "first": 5, "count": 1}]}],
    "unplug": [{"serial": "SIMF", "unplugAfterFrames": 10}],
}


@pytest.fixture
def rig(tmp_path):
    def path(name, rate=60):
        cameras = [dict(CAMERA, **c) for c in RIGS[name]]
        file = tmp_path / f"{name}.json"
        file.write_text(json.dumps({"seed": 1, "projector": {"rate": rate}, "cameras": cameras}))
        return str(file)
    return path


@pytest.fixture
def cam(rig):
    with teli.open(sdk="sim", rig=rig("rig")) as camera:
        yield camera


def test_cameras_and_unknown_serial(rig):
    assert [c["serial"] for c in teli.cameras(sdk="sim", rig=rig("rig"))] == ["SIMA", "SIMB"]
    with pytest.raises(teli.Error, match="no camera with serial 'NOPE'; cameras present: SIMA, SIMB"):
        teli.open("NOPE", sdk="sim", rig=rig("rig"))


def test_camera_released_on_exception(rig):
    with pytest.raises(ZeroDivisionError):
        with teli.open("SIMB", sdk="sim", rig=rig("rig")) as camera:
            assert not camera.closed
            1 / 0
    assert camera.closed
    with pytest.raises(teli.Error, match="camera is closed"):
        camera.grab()
    camera.close()  # again: nothing
    with teli.open("SIMB", sdk="sim", rig=rig("rig")) as again:
        assert again.grab().shape == SIZE


def test_settings_round_trip(cam):
    before = cam.settings()
    assert cam.apply(before) == []
    gain = before["Camera"]["Gain"]
    wanted = gain["$value"] if isinstance(gain, dict) else gain
    wanted = wanted + 1 if wanted < 10 else wanted - 1
    assert cam.apply({"Camera": {"Gain": wanted}}, strict=True) == []
    assert cam.settings()["Camera"]["Gain"] == pytest.approx(wanted, rel=0.01)


@pytest.mark.parametrize("text, message", [
    ('{"Camera": {"Nope": 1}}', r"bad\.json:1:13: .*Camera/Nope"),
    ('{"Camera": {"Gain": "high"}}', r"Camera/Gain"),
    ('{"Camera": ', r"bad\.json:1:"),
])
def test_refused_file_changes_nothing(cam, tmp_path, text, message):
    before = cam.settings()
    file = tmp_path / "bad.json"
    file.write_text(text)
    with pytest.raises(teli.Error, match=message):
        cam.apply(file)
    assert cam.settings() == before


@pytest.mark.parametrize("mode, shape", [("gray", SIZE), ("color", SIZE + (3,)), ("raw", SIZE)])
def test_grab_in_each_mode(cam, mode, shape):
    cam.mode = mode
    assert cam.mode == mode
    image = cam.grab()
    assert (image.shape, image.dtype) == (shape, np.uint8)
    assert image.std() > 0  # a rendered scene, not an empty buffer


def no_copy(array):
    return not array.flags.owndata and type(array.base).__name__ == "PyCapsule"


@pytest.mark.parametrize("mode, shape", [("gray", (12,) + SIZE), ("color", (12,) + SIZE + (3,))])
def test_sequence_over_the_sets_block(rig, mode, shape):
    with teli.open(sdk="sim", rig=rig("rig")) as camera:
        camera.mode = mode
        first = camera.sequence(12, timeout=10)
        kept = np.array(first.images)  # a copy, to compare against later
        second = camera.sequence(12)
    images = first.images
    assert (images.shape, images.dtype) == (shape, np.uint8)
    assert no_copy(images) and images.flags.c_contiguous
    assert first.whole and first.verdict == "whole"
    assert [r["index"] for r in first.records] == list(range(12))
    assert [r["trigger"] for r in first.records] == list(range(12))
    times = [r["cameraTimeNs"] for r in first.records]
    assert times == sorted(times) and len(set(times)) == 12
    # Another set taken and the camera closed: the array still holds its own block.
    assert not np.shares_memory(images, second.images) and np.array_equal(images, kept)
    assert [float(i.mean()) for i in images] == [float(i.mean()) for i in kept]


def test_another_rig_waits_for_the_arrays(cam, rig):
    image = cam.grab()
    cam.close()
    with pytest.raises(teli.Error, match="still loaded with sdk 'sim' and rig '.*rig.json'"):
        teli.open(sdk="sim", rig=rig("gap"))
    del image
    with teli.open(sdk="sim", rig=rig("gap")) as camera:
        assert camera.sequence(12, allow_broken=True).report["problems"]


def test_broken_set_raises_unless_allowed(rig):
    with teli.open(sdk="sim", rig=rig("gap")) as camera:
        with pytest.raises(teli.BrokenSetError, match="image 5: pattern 5 missing"):
            camera.sequence(12)
        broken = camera.sequence(12, allow_broken=True)
    assert not broken.whole and broken.report["verdict"] == "broken"
    assert [(p["image"], p["cause"]) for p in broken.report["problems"]] == [(5, "missing trigger")]
    assert len(broken) == 12 and no_copy(broken.images)


def test_stream_and_lost_camera(rig):
    with teli.open(sdk="sim", rig=rig("unplug")) as camera:
        start = time.monotonic()
        frames = []
        with pytest.raises(teli.Error, match="camera disconnected after 10 frames"):
            for image in camera.stream(timeout=None):
                frames.append(image)
        assert time.monotonic() - start < 5
    assert len(frames) == 10 and all(f.shape == SIZE for f in frames)
    assert len({f.tobytes() for f in frames}) > 1  # each frame its own buffer


# A process as a user runs it: Ctrl-C arrives as SIGINT while the wait is under way.
# The wait must end long before the driver's own would (grab: 2 s for a trigger that does
# not come; sequence: 120 images at 20 Hz, 6 s), and the camera be given back: the same
# serial opens again.
CTRL_C_CHILD = """
import sys, time
import tavri_teli as teli
rig, wait = sys.argv[1], sys.argv[2]
with teli.open(sdk="sim", rig=rig) as camera:
    print("waiting", flush=True)
    start = time.monotonic()
    try:
        {"grab": camera.grab, "sequence": lambda: camera.sequence(120),
         "stream": lambda: next(iter(camera.stream(timeout=None)))}[wait]()
    except KeyboardInterrupt:
        print(f"interrupted after {time.monotonic() - start:.3f} s", flush=True)
print("closed", camera.closed, flush=True)
with teli.open(sdk="sim", rig=rig):
    print("opened again", flush=True)
"""


@pytest.mark.parametrize("wait, rate, bound", [
    ("grab", 0.05, 1.5),  # one pulse in 20 s
    ("sequence", 20, 3.0),
    ("stream", 0.05, 1.5),
])
def test_ctrl_c_ends_a_wait(rig, wait, rate, bound):
    child = subprocess.Popen([sys.executable, "-c", CTRL_C_CHILD, rig("rig", rate=rate), wait],
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    try:
        assert child.stdout.readline() == "waiting\n"
        time.sleep(0.3)
        child.send_signal(signal.SIGINT)
        output, _ = child.communicate(timeout=60)
    finally:
        child.kill()
    lines = output.splitlines()
    assert child.returncode == 0 and lines[1:] == ["closed True", "opened again"], output
    assert float(lines[0].split()[2]) < bound, output
