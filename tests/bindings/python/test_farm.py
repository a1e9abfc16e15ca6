"""Searches and denoises over workers of their own, one of them killed in the middle."""

import os
import shutil
import signal
import subprocess
import threading

import pytest

distributed = pytest.importorskip("distributed")
program = os.environ.get("VORN_YCNR") or shutil.which("vorn-ycnr")
if not program:
    pytest.skip("vorn-ycnr is not on the path", allow_module_level=True)

from vornycnr import farm  # noqa: E402


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    folder = tmp_path_factory.mktemp("farm")
    for name, size in (("a", "80x64"), ("b", "65x67")):
        subprocess.run([program, "demo", "-o", folder / name, "--size", size, "--noise", "8"], check=True)
    return folder


@pytest.fixture(scope="module")
def client():
    with distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, dashboard_address=None, memory_limit=0
    ) as cluster, distributed.Client(cluster) as client:
        yield client


def search(folder, output):
    return [str(folder / "a/clean.png"), str(folder / "b/clean.png"), "--gains", "4,16", "--rounds", "1",
            "-o", str(folder / output)]  # fmt: skip


def kill_one(client):
    """Kills a worker's process and waits for another one in its place."""
    pids = client.run(os.getpid)
    os.kill(next(iter(pids.values())), signal.SIGKILL)


def test_a_search_that_loses_a_worker_gives_the_same_bytes(client, folder):
    subprocess.run([program, "tune", *search(folder, "plain.json")], check=True)
    asked = [0]

    def in_the_middle():
        asked[0] += 1
        if asked[0] == 150:
            kill_one(client)
        return False

    result = farm.tune(client, search(folder, "farm.json"), program=program, should_stop=in_the_middle)
    assert asked[0] > 300, "the worker was lost too late"
    assert not result.stopped and [found["gain"] for found in result.gains] == [4, 16]
    assert (folder / "farm.json").read_bytes() == (folder / "plain.json").read_bytes()
    assert result.trials > 300 and result.scores > 2 * result.trials


def test_a_stop_keeps_the_best(client, folder):
    asked = [0]

    def soon():
        asked[0] += 1
        return asked[0] > 150

    result = farm.tune(client, search(folder, "stopped.json"), program=program, should_stop=soon)
    assert result.stopped
    subprocess.run([program, "tuning", "check", folder / "stopped.json"], check=True)


def test_faults_are_told(client, folder):
    with pytest.raises(farm.FarmError, match="none.png: cannot be read"):
        farm.tune(client, [str(folder / "none.png"), "-o", str(folder / "x.json")], program=program)
    with pytest.raises(farm.FarmError, match="--gains"):
        farm.tune(client, ["x.png", "--gains", "inf", "-o", str(folder / "x.json")], program=program)
    assert not (folder / "x.json").exists()


def test_files_are_done_skipped_or_in_the_table(client, folder):
    noisy = []
    for i in range(6):
        noisy.append(str(folder / f"noisy{i}.png"))
        shutil.copy(folder / "a/noisy_gain8.png", noisy[-1])
    (folder / "noisy3.png").write_bytes(b"no picture")
    clean = folder / "clean"
    for expected in (["done"] * 3 + ["failed"] + ["done"] * 2, ["skipped"] * 3 + ["failed"] + ["skipped"] * 2):
        table = farm.denoise(client, noisy, str(clean), ["--gain", "8"], program=program, retries=1)
        assert [row.state for row in table] == expected
    assert "noisy3.png" in farm.format_table(table) and "5 skipped, 1 failed" in farm.format_table(table)
    subprocess.run([program, "denoise", noisy[0], "-o", folder / "one.png", "--gain", "8"], check=True)
    assert (clean / "noisy5.png").read_bytes() == (folder / "one.png").read_bytes()
    with pytest.raises(ValueError, match="more than one input"):
        farm.denoise(client, [noisy[0], noisy[0]], str(clean), program=program)


def script(path, text):
    """In the program's place; "$2" is the input."""
    path.write_text(f'#!/bin/sh\nfirst() {{ mkdir "$0.$(basename "$2")" 2>/dev/null; }}\n{text}\nexec {program} "$@"\n')
    path.chmod(0o755)
    return str(path)


def copies(folder, name):
    names = [str(folder / f"{name}{i}.png") for i in range(4)]
    for copy in names:
        shutil.copy(folder / "a/noisy_gain8.png", copy)
    return names


def test_a_file_that_failed_or_lost_its_worker_is_tried_again(client, folder):
    flaky = script(folder / "flaky", 'first "$@" && case $2 in *k1.png) echo unlucky >&2; exit 2;;'
                   " *k2.png) kill -KILL $PPID; sleep 60;; esac")  # fmt: skip
    files = copies(folder, "k")
    table = farm.denoise(client, files, str(folder / "again"), ["--gain", "8"], program=flaky, retries=1)
    assert [row.state for row in table] == ["done"] * 4, farm.format_table(table)
    assert len({(folder / "again" / f"k{i}.png").read_bytes() for i in range(4)}) == 1
    (folder / "flaky.k1.png").rmdir()
    table = farm.denoise(client, files, str(folder / "once"), ["--gain", "8"], program=flaky, retries=0)
    assert [row.state for row in table] == ["done", "failed", "done", "done"] and table[1].reason == "unlucky"


def test_an_interrupt_leaves_the_rest_in_the_table(client, folder):
    slow = script(folder / "slow", 'case $2 in *s0.png) ;; *) exec sleep 5;; esac')
    files = copies(folder, "s")
    # Programs that a shell runs in the background start with interrupts ignored.
    former = signal.signal(signal.SIGINT, signal.default_int_handler)
    threading.Timer(2, lambda: os.kill(os.getpid(), signal.SIGINT)).start()
    table = farm.denoise(client, files, str(folder / "slow-clean"), ["--gain", "8"], program=slow)
    signal.signal(signal.SIGINT, former)
    assert [row.reason for row in table[1:]] == ["stopped"] * 3, farm.format_table(table)
