"""The Python module: the bytes of the library's own calls, any shape of array, faults told clearly."""

import ctypes
import json
import threading
from dataclasses import replace

import numpy as np
import pytest

import vornycnr
from vornycnr import _native
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


def through_the_calls(frame, tuning):
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
    src = ctypes.create_string_buffer(frame.tobytes(), frame.size)
    dst = ctypes.create_string_buffer(frame.size)
    images = []
    for buffer in (src, dst):
        image = _native.Image(3, width, height)
        image.plane[0] = ctypes.addressof(buffer)
        images.append(image)
    parameters = _native.Parameters(
        0,
        ctypes.cast(luma, ctypes.POINTER(_native.LumaParam)),
        ctypes.cast(chroma, ctypes.POINTER(_native.ChromaParam)),
    )
    handle = _native.lib.vorn_ycnr_init(_native.InitParam(width, height))
    assert _native.lib.vorn_ycnr_process(handle, images[0], images[1], parameters) == 0
    _native.lib.vorn_ycnr_deinit(handle)
    return np.frombuffer(dst.raw, np.uint8).reshape(frame.shape)


def test_nv12_gives_the_bytes_of_the_calls_and_leaves_its_input_alone():
    frame = noisy_nv12(128, 96)
    kept = frame.copy()
    clean = vornycnr.denoise_nv12(frame, TUNING)
    assert np.array_equal(clean, through_the_calls(frame, TUNING))
    assert np.array_equal(frame, kept)
    assert clean[50:90, 70:120].std() < 0.7 * frame[50:90, 70:120].std()


def test_strided_and_reversed_views_are_taken_as_they_look():
    big = noisy_nv12(256, 192)
    view = big[::2, ::-2]
    assert np.array_equal(
        vornycnr.denoise_nv12(view, TUNING), vornycnr.denoise_nv12(view.copy(), TUNING)
    )


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


def test_rgb_round_trip_is_exact_where_nothing_runs():
    picture = np.random.default_rng(5).integers(0, 256, (33, 47, 3), np.uint8)
    assert (
        np.abs(
            vornycnr.denoise_rgb(picture, TUNING, luma=False, chroma=False).astype(int) - picture
        ).max()
        <= 1
    )


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
    with pytest.raises(vornycnr.DenoiseError):
        vornycnr.Denoiser(60000, 60000)
    denoiser = vornycnr.Denoiser(128, 96)
    denoiser.close()
    denoiser.close()
    with pytest.raises(ValueError, match="closed"):
        denoiser.nv12(np.zeros((144, 128), np.uint8), TUNING)


def test_a_tuning_that_the_library_refuses_is_an_error():
    with pytest.raises(vornycnr.DenoiseError, match="refused"):
        vornycnr.denoise_nv12(noisy_nv12(128, 96), Tuning(LumaTuning(layer=1), ChromaTuning()))


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
            LumaTuning(pIntensity=[int(g), 1, -2, 3, 2**31 - 1]),
            ChromaTuning(saturation=-int(g)),
            gain=g,
        )
        for g in (1, 2, 8.5)
    ]
    path = tmp_path / "set.json"
    TuningSet(entries, "a sensor", "made by hand").save(path)
    assert TuningSet.load(path) == TuningSet(entries, "a sensor", "made by hand")
    assert [p.name for p in tmp_path.iterdir()] == ["set.json"]
    chosen = [TuningSet(entries).nearest(g).gain for g in (0.1, 1.4, 1.42, 4.12, 4.13, 99)]
    assert chosen == [1, 1, 2, 2, 8.5, 8.5]
    assert TuningSet([TuningEntry(gain=1), TuningEntry(gain=4)]).nearest(2).gain == 1


@pytest.mark.parametrize(
    "change,cause",
    [
        (lambda root: root.pop("entries"), "entries"),
        (lambda root: root.pop("format"), "format"),
        (lambda root: root.update(version=2), "version"),
        (lambda root: root.update(entrys=[]), "unknown field entrys"),
        (lambda root: root["entries"][0].pop("gain"), "no gain above 0"),
        (lambda root: root["entries"][0].update(gain=-1), "no gain above 0"),
        (lambda root: root["entries"].append(root["entries"][0]), "entry 1: gains must rise"),
        (lambda root: root["entries"][0]["luma"].pop("param1"), "luma.param1 is missing"),
        (lambda root: root["entries"][0]["chroma"].update(stepp=1), "unknown field chroma.stepp"),
        (lambda root: root["entries"][0]["luma"].update(pRadius=[1, 2]), "luma.pRadius"),
        (lambda root: root["entries"][0]["chroma"].update(step=1.5), "chroma.step"),
        (lambda root: root["entries"][0]["chroma"].update(step=2**31), "chroma.step"),
        (lambda root: root["entries"][0]["chroma"].update(step=True), "chroma.step"),
    ],
)
def test_bad_tuning_sets_name_file_and_field(tmp_path, change, cause):
    path = tmp_path / "bad.json"
    TuningSet([TuningEntry(gain=1)]).save(path)
    root = json.loads(path.read_text())
    change(root)
    path.write_text(json.dumps(root))
    with pytest.raises(TuningError) as raised:
        TuningSet.load(path)
    assert cause in str(raised.value) and str(path) in str(raised.value)


def test_every_entry_of_the_default_set_fits_a_preview():
    entries = vornycnr.default_tuning_set().entries
    assert entries[0].gain <= 1 < entries[-1].gain
    frame = noisy_nv12(640, 480)
    for entry in entries:
        vornycnr.denoise_nv12(frame, entry)
