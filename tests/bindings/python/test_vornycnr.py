"""The Python module: the bytes of the library's own calls, any shape of array, faults told clearly.

One file, though long: its cases share the plain-ctypes frame that they are compared with.
"""

import copy
import ctypes
import os
import pickle
import stat
import subprocess
import sys
import threading
import types
from dataclasses import replace
from pathlib import Path

import numpy as np
import pytest

import vornycnr
from vornycnr import _native, colour
from vornycnr.tuning import ChromaTuning, LumaTuning, Tuning, TuningEntry, TuningError, TuningSet

TUNING = Tuning(
    LumaTuning(layer=3, pIntensity=[120, 80, 60, 0, 0], pRadius=[5, 7, 7, 0, 0]),
    ChromaTuning(range_factor=24, smooth_radius=8, scale=2, saturation=2),
)


def noisy_nv12(width, height, seed=7):
    random = np.random.default_rng(seed)
    frame = np.clip(random.normal(120, 8, (height * 3 // 2, width)), 0, 255).astype(np.uint8)
    frame[: height // 2, : width // 2] //= 2
    return frame


def through_the_calls(frame, tuning, call="vorn_ycnr_process"):
    """The four C calls by hand, on raw byte buffers."""
    height, width = frame.shape[0] // 3 * 2, frame.shape[1]
    numbers = [
        tuning.luma.enable,
        tuning.luma.layer,
        *tuning.luma.pIntensity,
        *tuning.luma.pRadius,
        tuning.luma.param0,
        0,
        0,
    ]
    luma = (ctypes.c_int32 * 15)(*numbers)
    c = tuning.chroma
    chroma = (ctypes.c_int32 * 11)(
        c.enable,
        c.range_factor,
        c.smooth_radius,
        c.scale,
        c.step,
        c.color_edge_u,
        c.color_edge_v,
        c.saturation,
        0,
        0,
        0,
    )
    class Image(ctypes.Structure):
        _fields_ = [("numbers", ctypes.c_int32 * 3), ("plane", ctypes.c_void_p * 4), ("stride", ctypes.c_int32 * 4)]  # fmt: skip

    src = ctypes.create_string_buffer(frame.tobytes(), frame.size)
    dst = ctypes.create_string_buffer(frame.size)
    images = []
    for buffer in (src, dst):
        image = Image((3, width, height))
        image.plane[0] = ctypes.addressof(buffer)
        images.append(ctypes.byref(image))
    parameters = (ctypes.c_uint64 * 3)(0, ctypes.addressof(luma), ctypes.addressof(chroma))
    init, process = _native.lib.vorn_ycnr_init, _native.lib[call]
    init.restype = ctypes.c_void_p
    handle = init((ctypes.c_int32 * 2)(width, height))
    assert process(ctypes.c_void_p(handle), *images, parameters) == 0
    _native.lib.vorn_ycnr_deinit(handle)
    return np.frombuffer(dst.raw, np.uint8).reshape(frame.shape)


def test_nv12_gives_the_bytes_of_the_calls_and_leaves_its_input_alone():
    frame = noisy_nv12(128, 96)
    kept = frame.copy()
    clean = vornycnr.denoise_nv12(frame, TUNING)
    assert np.array_equal(clean, through_the_calls(frame, TUNING))
    assert np.array_equal(frame, kept)
    assert clean[50:90, 70:120].std() < 0.7 * frame[50:90, 70:120].std()


def test_fine_mode_gives_the_bytes_of_its_call_and_takes_odd_sizes():
    frame = noisy_nv12(128, 96)
    clean = vornycnr.denoise_nv12(frame, TUNING, fine=True)
    assert np.array_equal(clean, through_the_calls(frame, TUNING, "vorn_ycnr_process_fine"))
    assert not np.array_equal(clean, vornycnr.denoise_nv12(frame, TUNING))
    # The last column is a copy of the one before: taken away, it comes back as padding.
    frame[:, -2:] = np.repeat(frame[:, -2:-1], 2, axis=1)
    y, uv = frame[:96], frame[96:].reshape(48, 64, 2)
    even = vornycnr.denoise_planes(y, uv, TUNING, fine=True)
    odd = vornycnr.denoise_planes(y[:, :-1], uv, TUNING, fine=True)
    assert np.array_equal(odd[0], even[0][:, :-1]) and np.array_equal(odd[1], even[1])


def test_strided_and_reversed_views_are_taken_as_they_look():
    big = noisy_nv12(256, 192)
    for view in (big[::2, ::-2], big[:, 3:131], big[::-1], np.asfortranarray(big)):
        assert np.array_equal(
            vornycnr.denoise_nv12(view, TUNING), vornycnr.denoise_nv12(view.copy(), TUNING)
        )
    y, uv = big[:191, 1:130], big[192:].reshape(96, 128, 2)[:, ::-1][:, :65]
    plain = vornycnr.denoise_planes(y.copy(), uv.copy(), TUNING)
    assert all(map(np.array_equal, vornycnr.denoise_planes(y, uv, TUNING), plain))


def test_switches_leave_the_other_plane_alone():
    frame = noisy_nv12(128, 96)
    luma_only = vornycnr.denoise_nv12(frame, TUNING, chroma=False)
    chroma_only = vornycnr.denoise_nv12(frame, TUNING, luma=False)
    assert np.array_equal(luma_only[96:], frame[96:]) and not np.array_equal(
        luma_only[:96], frame[:96]
    )
    assert np.array_equal(chroma_only[:96], frame[:96]) and not np.array_equal(
        chroma_only[96:], frame[96:]
    )
    assert np.array_equal(vornycnr.denoise_nv12(frame, TUNING, luma=False, chroma=False), frame)


@pytest.mark.parametrize("width,height", [(128, 96), (127, 96), (128, 95), (99, 101)])
def test_planes_of_odd_sizes_are_padded_with_their_edges(width, height):
    even_w, even_h = (width + 1) // 2 * 2, (height + 1) // 2 * 2
    frame = noisy_nv12(even_w, even_h)
    y, uv = frame[:height, :width], frame[even_h:].reshape(even_h // 2, even_w // 2, 2)
    frame[height:even_h] = frame[height - 1]
    frame[:even_h, width:] = frame[:even_h, width - 1 : width]
    whole = vornycnr.denoise_nv12(frame, TUNING)
    new_y, new_uv = vornycnr.denoise_planes(y, uv, TUNING)
    assert np.array_equal(new_y, whole[:height, :width])
    assert np.array_equal(new_uv, whole[even_h:].reshape(uv.shape))


def test_rgb_keeps_colours_and_loses_noise():
    random = np.random.default_rng(3)
    truth = np.zeros((101, 131, 3)) + (90, 140, 60)
    truth[:, 60:] = (180, 70, 120)
    noisy = np.clip(truth + random.normal(0, 9, truth.shape), 0, 255).astype(np.uint8)
    plain = Tuning(TUNING.luma, replace(TUNING.chroma, saturation=0))
    clean = vornycnr.denoise_rgb(noisy, plain).astype(float)
    for columns in (slice(8, 50), slice(70, 120)):
        assert np.all(np.abs(clean[:, columns].mean((0, 1)) - noisy[:, columns].mean((0, 1))) < 2)
        assert clean[:, columns].std((0, 1)).mean() < 0.6 * noisy[:, columns].std((0, 1)).mean()


@pytest.mark.parametrize("height,width", [(1, 1), (2, 3), (15, 9), (1, 40), (48, 854), (50, 130)])
def test_flat_pictures_stay_flat_up_to_the_edges(height, width):
    picture = np.full((height, width, 3), (177, 60, 90), np.uint8)
    assert np.abs(vornycnr.denoise_rgb(picture, gain=64).astype(int) - picture).max() <= 2
    y = picture[..., 0]
    uv = np.full(((height + 1) // 2, (width + 1) // 2, 2), 90, np.uint8)
    new_y, new_uv = vornycnr.denoise_planes(y, uv, gain=64)
    assert new_y.shape == y.shape and new_uv.shape == uv.shape


def test_colour_with_and_without_opencv(monkeypatch):
    random = np.random.default_rng(5)
    for height, width in ((33, 47), (200, 130), (64, 1), (65, 2)):
        picture = random.integers(0, 256, (height, width, 3), np.uint8)
        picture[: height // 2] = (200, 30, 60)
        with monkeypatch.context() as without:
            without.setattr(colour, "cv2", None)
            plain = colour.split(picture)
            back = colour.join(*plain)
            assert np.abs(back[: height // 2 - 1].astype(int) - (200, 30, 60)).max(initial=0) <= 2
        if colour.cv2 is not None:
            assert all(map(np.array_equal, plain, colour.split(picture)))
            assert np.abs(back.astype(int) - colour.join(*plain)).max() <= 2


def test_rgb_without_chroma_changes_luma_alone():
    picture = np.random.default_rng(5).integers(20, 230, (33, 47, 3), np.uint8)
    untouched = vornycnr.denoise_rgb(picture, TUNING, luma=False, chroma=False)
    assert np.array_equal(untouched, picture)
    change = vornycnr.denoise_rgb(picture, TUNING, chroma=False).astype(int) - picture
    inside = (picture + change > 0).all(-1) & (picture + change < 255).all(-1)
    assert np.abs(change).max() > 3 and np.ptp(change[inside], axis=-1).max() == 0


def test_orders_and_kinds_of_arrays():
    picture = np.random.default_rng(6).integers(0, 256, (40, 30, 3), np.uint8)
    wanted = vornycnr.denoise_rgb(picture, gain=8)
    bgr = vornycnr.denoise_rgb(picture[..., ::-1], gain=8, bgr=True)
    assert np.array_equal(bgr[..., ::-1], wanted)
    Image = pytest.importorskip("PIL.Image")
    assert np.array_equal(vornycnr.denoise_rgb(Image.fromarray(picture), gain=8), wanted)


def test_measured_noise_picks_the_strength():
    noisy = noisy_nv12(320, 240)
    strong = vornycnr.measured_tuning(noisy[:240], noisy[240:].reshape(120, 160, 2))
    assert strong.luma.enable == 1 and strong.luma.pIntensity[0] >= 100
    assert np.array_equal(vornycnr.denoise_nv12(noisy, gain="auto"), vornycnr.denoise_nv12(noisy, strong))  # fmt: skip
    smooth = np.full((240, 320, 3), 90, np.uint8)
    smooth[:, :160] = (200, 30, 60)
    clean = vornycnr.denoise_rgb(smooth, gain="auto")
    assert np.abs(clean[:, :150].astype(int) - smooth[:, :150]).max() <= 2
    y, uv = colour.split(smooth)
    assert vornycnr.measured_tuning(y, uv).luma.enable == 0


def test_many_denoisers_on_many_threads_give_the_same_bytes():
    frames = [noisy_nv12(128 + 32 * i, 96, i) for i in range(4)]
    wanted = [vornycnr.denoise_nv12(f, TUNING) for f in frames]
    shared = vornycnr.Denoiser(128, 96)
    results = [None] * 8

    def work(i):
        for _ in range(5):
            results[i] = (
                vornycnr.denoise_nv12(frames[i], TUNING)
                if i < 4
                else shared.nv12(frames[0], TUNING)
            )

    threads = [threading.Thread(target=work, args=(i,)) for i in range(8)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    shared.close()
    for i in range(8):
        assert np.array_equal(results[i], wanted[i if i < 4 else 0])


def test_bad_arrays_are_refused():
    with pytest.raises(ValueError, match="uint8"):
        vornycnr.denoise_nv12(np.zeros((144, 128), np.float32), TUNING)
    with pytest.raises(ValueError, match="rows"):
        vornycnr.denoise_nv12(np.zeros((100, 128), np.uint8), TUNING)
    with pytest.raises(ValueError, match="RGB"):
        vornycnr.denoise_rgb(np.zeros((100, 128, 4), np.uint8), TUNING)
    with pytest.raises(ValueError, match="uv must be"):
        vornycnr.denoise_planes(
            np.zeros((96, 128), np.uint8), np.zeros((48, 63, 2), np.uint8), TUNING
        )
    with pytest.raises(ValueError, match="not both"):
        vornycnr.denoise_nv12(np.zeros((144, 128), np.uint8), TUNING, gain=2)
    with pytest.raises(ValueError, match="no pixels"):
        vornycnr.Denoiser(0, 5)
    with pytest.raises(ValueError, match="too large"):
        vornycnr.Denoiser(60000, 60000)
    with pytest.raises(TypeError):
        vornycnr.Denoiser("64", 64)
    with pytest.raises(ValueError, match="workers"):
        vornycnr.Denoiser(64, 64, workers=5)
    denoiser = vornycnr.Denoiser(128, 96)
    denoiser.close()
    denoiser.close()
    with pytest.raises(ValueError, match="closed"):
        denoiser.nv12(np.zeros((144, 128), np.uint8), TUNING)


def test_largest_frames_go_by_the_size_inside(monkeypatch):
    nothing = types.SimpleNamespace(vorn_ycnr_open=lambda options: None)  # no such memory needed
    monkeypatch.setattr(_native, "lib", nothing)
    for make, largest in ((vornycnr.Denoiser, 26754), (vornycnr.denoiser._PictureDenoiser, 26752)):
        with pytest.raises(vornycnr.DenoiseError):
            make(largest, 26754)
        with pytest.raises(ValueError, match="inside must stay below"):
            make(largest + 1, 26756)


def test_bad_gains_and_records_are_refused_by_name():
    frame = np.zeros((144, 128), np.uint8)
    for gain in (0, -1, float("nan"), float("inf")):
        with pytest.raises(ValueError, match="finite number above 0"):
            vornycnr.denoise_nv12(frame, gain=gain)
    for gain in ("8", [8], 8j):
        with pytest.raises(TypeError, match="gain must be a number"):
            vornycnr.denoise_nv12(frame, gain=gain)
    with pytest.raises(TypeError, match="tuning must be a Tuning"):
        vornycnr.denoise_nv12(frame, 8)
    for luma, kind, cause in (
        (LumaTuning(layer=1), TuningError, '"luma.layer" must be'),
        (LumaTuning(param1=2**32 + 1), TuningError, '"luma.param1" must be'),
        (LumaTuning(layer=3.0), TypeError, '"luma.layer" must be'),
        (LumaTuning(pRadius=[5, 5]), TuningError, "five numbers"),
        (LumaTuning(pRadius=[5, 5, 5, 5, "5"]), TypeError, r'"luma.pRadius\[4\]" must be'),
    ):
        with pytest.raises(kind, match=cause):
            vornycnr.denoise_nv12(frame, Tuning(luma, ChromaTuning()))


def test_closing_waits_for_the_frame_of_another_thread():
    frame = noisy_nv12(1280, 720)
    for _ in range(20):
        denoiser = vornycnr.Denoiser(1280, 720)
        started = threading.Event()

        def work():
            started.set()
            try:
                while True:
                    denoiser.nv12(frame, TUNING)
            except ValueError:
                pass  # closed

        thread = threading.Thread(target=work)
        thread.start()
        started.wait()
        denoiser.close()
        thread.join(30)
        assert not thread.is_alive()


def test_a_denoiser_is_not_copied():
    with vornycnr.Denoiser(64, 64) as denoiser:
        for way in (copy.copy, copy.deepcopy, pickle.dumps):
            with pytest.raises(TypeError, match="make another"):
                way(denoiser)


def test_a_forked_child_makes_its_own():
    frame = noisy_nv12(128, 96)
    denoiser = vornycnr.Denoiser(128, 96)
    wanted = denoiser.nv12(frame, TUNING)
    denoiser._lock.acquire()  # as another thread would hold it at the fork
    child = os.fork()
    if child == 0:
        try:
            with pytest.raises(RuntimeError, match="belongs to the process"):
                denoiser.nv12(frame, TUNING)
            denoiser.close()
            with vornycnr.Denoiser(128, 96) as own:
                os._exit(0 if np.array_equal(own.nv12(frame, TUNING), wanted) else 1)
        finally:
            os._exit(2)
    denoiser._lock.release()
    assert os.waitpid(child, 0)[1] == 0
    assert np.array_equal(denoiser.nv12(frame, TUNING), wanted)
    denoiser.close()


def test_import_starts_no_process():
    code = """
import sys
def audit(event, arguments):
    if event in ("subprocess.Popen", "os.system", "os.posix_spawn", "os.fork"):
        sys.exit(event)
sys.addaudithook(audit)
import vornycnr
assert vornycnr.__version__.count(".") == 2
"""
    subprocess.run([sys.executable, "-c", code], check=True)


def test_capability_names_three_versions():
    with vornycnr.Denoiser(1920, 1080) as denoiser:
        told = denoiser.capability()
    assert [told[k]["version"].split(".")[0] for k in ("library", "luma", "chroma")] == [
        "1",
        "2",
        "4",
    ]
    assert told["luma"]["memory_mb"] > 1


def test_tuning_set_round_trip_and_choice(tmp_path):
    entries = [
        TuningEntry(
            LumaTuning(pIntensity=[int(g), 1, 2, 3, 2000], param1=-5),
            ChromaTuning(saturation=-int(g)),
            gain=g,
            name="däm" if g == 2 else "",
            notes="a\nb" if g == 2 else "",
        )
        for g in (1, 2, 8.5)
    ]
    path = tmp_path / "set.json"
    TuningSet(entries, "a sensor", "made by hand").save(path)
    assert TuningSet.load(path) == TuningSet(entries, "a sensor", "made by hand")
    chosen = [TuningSet(entries).nearest(g).gain for g in (0.1, 1.4, 1.42, 4.12, 4.13, 99)]
    assert chosen == [1, 1, 2, 2, 8.5, 8.5]
    with pytest.raises(TuningError, match="rise"):
        TuningSet(entries[::-1]).save(path)
    assert TuningSet.load(path).entries == entries


def test_saving_touches_no_other_file(tmp_path):
    path, part = tmp_path / "set.json", tmp_path / "set.json.part"
    part.write_text("mine")
    path.write_text("old")
    path.chmod(0o600)
    (tmp_path / "link.json").symlink_to("set.json")
    vornycnr.default_tuning_set().save(tmp_path / "link.json")
    assert part.read_text() == "mine" and (tmp_path / "link.json").is_symlink()
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    assert TuningSet.load(path) == vornycnr.default_tuning_set()
    assert len(list(tmp_path.iterdir())) == 3
    with pytest.raises(FileNotFoundError):
        TuningSet.load(tmp_path / "none.json")
    with pytest.raises(FileNotFoundError):
        vornycnr.default_tuning_set().save(tmp_path / "none" / "x.json")


SETS = Path(__file__).resolve().parents[2] / "tuning_sets"


def test_the_sets_that_every_door_takes_and_refuses():
    for path in (SETS / "good").iterdir():
        assert TuningSet.load(path).nearest(8)
    rows = (SETS / "bad.txt").read_text().splitlines()
    for name, cause in (row.split(": ", 1) for row in rows):
        with pytest.raises(TuningError) as raised:
            TuningSet.load(SETS / "bad" / name)
        assert cause in str(raised.value) and name in str(raised.value)


def test_the_examples_of_the_readme_work(tmp_path, monkeypatch):
    Image = pytest.importorskip("PIL.Image")
    readme = Path(__file__).resolve().parents[3] / "bindings" / "python" / "README.md"
    monkeypatch.chdir(tmp_path)
    random = np.random.default_rng(1)
    Image.fromarray(random.integers(90, 110, (50, 70, 3), np.uint8)).save("night.png")
    frames = np.stack([noisy_nv12(640, 360, seed) for seed in range(4)])
    frames.tofile("night_640x360.nv12")
    vornycnr.default_tuning_set().save("sensor.json")
    names = {}
    for block in readme.read_text().split("```python\n")[1:]:
        exec(block.split("```")[0], names)
    assert np.asarray(Image.open("clean.png")).std() < np.asarray(Image.open("night.png")).std()
    assert np.array_equal(np.stack(names["cleaned"]), names["clean_frames"])


def test_every_entry_of_the_default_set_fits_a_preview():
    entries = vornycnr.default_tuning_set().entries
    assert entries[0].gain <= 1 < entries[-1].gain
    frame = noisy_nv12(640, 480)
    for entry in entries:
        vornycnr.denoise_nv12(frame, entry)
