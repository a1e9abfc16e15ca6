"""Searches and denoises on many machines, with Dask distributed (Debian: python3-distributed).

    from dask.distributed import Client
    from vornycnr import farm

    client = Client("scheduler:8786")
    found = farm.tune(client, ["clean.png", "--gains", "4,8", "-o", "sensor.json"])
    table = farm.denoise(client, ["a.png", "b.png"], "clean", ["--gain", "8"])
    print(farm.format_table(table))

The program vorn-ycnr has to be on the path of every worker, in one version, and the pictures under
the same names. A worker that is lost costs what it was at; the results are those of one machine.
"""

from __future__ import annotations

import json
import os
import queue
import subprocess
import sys
import tempfile
import threading
import time
import uuid
from collections import deque
from dataclasses import dataclass, field
from pathlib import Path
from typing import IO, Any, Callable, Deque, Dict, Iterable, List, Optional, Sequence

from distributed import Client, Future, get_worker

STOPPED = 130  # exit code of a search that was stopped with the best so far


class FarmError(RuntimeError):
    """The search ended early; the text says why, and what the output file holds."""


@dataclass
class TuneResult:
    """How a search went."""

    output: str
    stopped: bool
    trials: int = 0  # a tuning over all samples of a gain counting one
    scores: int = 0  # a tuning on one sample counting one
    retried: int = 0  # batches whose scorer failed, handed out again; those of a worker that is gone
    # the scheduler gives to another one by itself, uncounted
    seconds: float = 0.0
    gains: List[Dict[str, Any]] = field(default_factory=list)  # what was found, by gain


@dataclass
class FileResult:
    """What became of one file."""

    input: str
    output: str
    state: str  # "done", "skipped" or "failed"
    reason: str = ""
    seconds: float = 0.0


# On the workers ---------------------------------------------------------------------------------


class _Scorer:
    """A worker's `vorn-ycnr score`: it keeps the frames of its job in memory."""

    def __init__(self, program: str, job: str, threads: int) -> None:
        self.job = job
        self.lock = threading.Lock()
        self.messages = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            [program, "score", "--threads", str(threads)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self.messages,
        )
        self._send([job])

    def _send(self, lines: Sequence[str]) -> None:
        assert self.process.stdin is not None
        self.process.stdin.write("".join(line + "\n" for line in lines).encode())
        self.process.stdin.flush()

    def answer(self, questions: Sequence[str]) -> List[str]:
        assert self.process.stdout is not None
        with self.lock:
            # All of them at once would fill both pipes, with either side waiting for the other.
            sender = threading.Thread(target=self._try_to_send, args=(questions,), daemon=True)
            sender.start()
            answers = [self.process.stdout.readline().decode() for _ in questions]
            sender.join()
        if not all(answers):
            self.messages.seek(0)
            cause = self.messages.read().decode(errors="replace").strip()
            raise RuntimeError(cause or f"vorn-ycnr score ended with {self.process.wait()}")
        return answers

    def _try_to_send(self, questions: Sequence[str]) -> None:
        try:
            self._send(questions)
        except OSError:
            pass  # the answers will be missing, and its words tell why

    def alive(self) -> bool:
        return self.process.poll() is None

    def close(self) -> None:
        self.process.kill()
        self.process.communicate()
        self.messages.close()


_scorers: Dict[str, _Scorer] = {}
_scorers_lock = threading.Lock()


def _score(program: str, name: str, job: str, questions: Sequence[str]) -> List[str]:
    """Runs on a worker: the answers to a batch of questions of the job, in any order."""
    with _scorers_lock:
        scorer = _scorers.get(name)
        if scorer is None or not scorer.alive():
            for other in [other for other in _scorers if other != name]:
                _scorers.pop(other).close()
            state: Any = get_worker().state
            scorer = _scorers[name] = _Scorer(program, job, max(1, int(state.nthreads)))
    try:
        return scorer.answer(questions)
    except (OSError, RuntimeError):
        if not scorer.alive():
            with _scorers_lock:
                _scorers.pop(name, None)
        raise


def _forget(name: str) -> None:
    """Runs on every worker when the job is over."""
    with _scorers_lock:
        scorer = _scorers.pop(name, None)
    if scorer is not None:
        scorer.close()


def _denoise(program: str, input: str, output: str, options: Sequence[str]) -> str:
    """Runs on a worker. The program leaves a whole output or none."""
    os.makedirs(os.path.dirname(os.path.abspath(output)), exist_ok=True)
    run = subprocess.run(
        [program, "denoise", input, "-o", output, *options], capture_output=True, check=False
    )
    if run.returncode != 0:
        words = run.stderr.decode(errors="replace").strip()
        raise RuntimeError(words or f"vorn-ycnr ended with {run.returncode}")
    return output


# Where the search is ----------------------------------------------------------------------------


def _fan_out(lines: Iterable[bytes], into: "queue.Queue[Any]") -> None:
    for line in lines:
        into.put(line.decode())
    into.put(None)


def _bar(done: float, note: str, since: float, scores: int) -> str:
    spent = time.monotonic() - since
    left = spent * (1 - done) / done if done > 0.01 else 0.0
    time_left = f", {left / 60:.0f} min {left % 60:02.0f} s left" if left else ""
    return f"{100 * done:5.1f} %  {scores / max(spent, 1e-9):.0f} scores/s{time_left}  {note}"


class _Search:
    """One run of `vorn-ycnr tune --ask-tell` whose questions go to the workers."""

    def __init__(
        self, client: Client, arguments: Sequence[str], program: str, batch: int, retries: int
    ) -> None:
        self.client, self.program, self.batch, self.retries = client, program, batch, retries
        self.name = uuid.uuid4().hex
        self.job = ""
        self.ended: Optional[Dict[str, Any]] = None
        self.result = TuneResult("", False)
        self.running: Dict[Any, List[str]] = {}  # batches under way, by their future's key
        self.futures: Dict[Any, Future] = {}
        self.waiting: Deque[str] = deque()
        self.tries: Dict[Any, int] = {}
        self.note, self.share, self.serial = "", 0.0, 0
        self.events: "queue.Queue[Any]" = queue.Queue()
        self.messages = tempfile.TemporaryFile()
        # A session of its own: an interrupt is for this process, which stops the search in order.
        self.tuner = subprocess.Popen(
            [program, "tune", *arguments, "--ask-tell"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self.messages,
            start_new_session=True,
        )
        output: IO[bytes] = self.tuner.stdout  # type: ignore[assignment]
        threading.Thread(target=_fan_out, args=(output, self.events), daemon=True).start()

    def tell(self, lines: Sequence[str]) -> None:
        assert self.tuner.stdin is not None
        try:
            self.tuner.stdin.write("".join(line.rstrip("\n") + "\n" for line in lines).encode())
            self.tuner.stdin.flush()
        except OSError:
            pass  # it has ended, and its words tell why

    def stop(self) -> None:
        self.result.stopped = True
        self.waiting.clear()
        self.tell(['{"stop": true}'])

    def take(self, line: str) -> None:
        if line.startswith('{"ask"'):
            self.waiting.append(line)
            return
        said = json.loads(line)
        if "job" in said:
            self.job = line.rstrip("\n")
        elif "progress" in said:
            self.share, self.note = said["progress"]["done"], said["progress"]["note"]
        elif "found" in said:
            self.result.gains.append(said["found"])
            self.result.trials += said["found"]["trials"]
        elif "end" in said:
            self.ended = said["end"]

    def hand_out(self) -> None:
        """Batches small enough for every worker to have one."""
        workers = max(1, len(self.client.ncores()))
        size = max(1, min(self.batch, -(-len(self.waiting) // workers)))
        while self.waiting and len(self.running) < 2 * workers:
            count = min(size, len(self.waiting))
            self.submit([self.waiting.popleft() for _ in range(count)], 0)

    def submit(self, questions: List[str], tries: int) -> None:
        self.serial += 1
        key = f"vornycnr-score-{self.name}-{self.serial}"
        future = self.client.submit(
            _score, self.program, self.name, self.job, questions, key=key, pure=False
        )
        self.running[key], self.futures[key], self.tries[key] = questions, future, tries
        future.add_done_callback(self.events.put)

    def finish_batch(self, future: Future) -> None:
        questions = self.running.pop(future.key, None)
        self.futures.pop(future.key, None)
        tries = self.tries.pop(future.key, 0)
        if questions is None or self.ended is not None:
            return
        if future.status == "finished":
            self.result.scores += len(questions)
            self.tell(future.result())
        elif tries < self.retries and not self.result.stopped:
            self.result.retried += 1
            self.submit(questions, tries + 1)
        else:
            number = json.loads(questions[0])["ask"]
            cause = f"given up after {tries + 1} tries: {future.exception()}"
            self.tell([json.dumps({"tell": number, "error": cause})])

    def run(self, show: Callable[[str], None], should_stop: Callable[[], bool]) -> TuneResult:
        since = time.monotonic()
        try:
            self.loop(since, show, should_stop)
        finally:
            self.close()
        self.result.seconds = time.monotonic() - since
        self.messages.seek(0)
        words = self.messages.read().decode(errors="replace").strip()
        if self.tuner.returncode not in (0, STOPPED):
            raise FarmError(words or f"vorn-ycnr tune ended with {self.tuner.returncode}")
        self.result.output = (self.ended or {}).get("output", "")
        self.result.stopped = self.tuner.returncode == STOPPED
        return self.result

    def loop(
        self, since: float, show: Callable[[str], None], should_stop: Callable[[], bool]
    ) -> None:
        while True:
            try:
                if not self.result.stopped and should_stop():
                    self.stop()
                try:
                    event = self.events.get(timeout=0.2)
                except queue.Empty:
                    continue
                if event is None:
                    return
                if isinstance(event, str):
                    self.take(event)
                else:
                    self.finish_batch(event)
                if self.events.empty():
                    self.hand_out()
                    show(_bar(self.share, self.note, since, self.result.scores))
            except KeyboardInterrupt:
                if self.result.stopped:
                    raise
                self.stop()

    def close(self) -> None:
        if self.futures:
            self.client.cancel(list(self.futures.values()))
        assert self.tuner.stdin is not None
        try:
            self.tuner.stdin.close()
        except OSError:
            pass
        try:
            self.tuner.wait(timeout=60)
        except subprocess.TimeoutExpired:
            self.tuner.kill()
            self.tuner.wait()
        try:
            self.client.run(_forget, self.name)
        except Exception:  # a worker that goes away at the end takes its frames with it
            pass


def _shown(progress: Optional[bool]) -> Callable[[str], None]:
    wanted = sys.stderr.isatty() if progress is None else progress
    last = [0.0]

    def show(line: str) -> None:
        if wanted and time.monotonic() - last[0] > 0.2:
            last[0] = time.monotonic()
            sys.stderr.write("\r\033[K" + line[:110])
            sys.stderr.flush()

    return show


def tune(
    client: Client,
    arguments: Sequence[str],
    *,
    program: str = "vorn-ycnr",
    batch: int = 16,
    retries: int = 3,
    progress: Optional[bool] = None,
    should_stop: Callable[[], bool] = lambda: False,
) -> TuneResult:
    """Searches a tuning set; the file has the bytes that `vorn-ycnr tune ARGUMENTS` writes.

    arguments are those of the command, with -o. batch is how many scores a worker gets at a time, at
    most; retries how often a batch is handed out again after its scorer failed. progress shows a
    line on standard error with the time left; None: when that is a terminal. Ctrl-C, or should_stop()
    becoming true, ends the search with the best so far in the file. FarmError where it fails.
    """
    search = _Search(client, arguments, program, max(1, batch), retries)
    try:
        return search.run(_shown(progress), should_stop)
    finally:
        search.messages.close()


def denoise(
    client: Client,
    inputs: Sequence[str],
    output_dir: str,
    options: Sequence[str] = (),
    *,
    program: str = "vorn-ycnr",
    retries: int = 2,
    skip_existing: bool = True,
    progress: Optional[bool] = None,
) -> List[FileResult]:
    """Denoises files, each of them a task, into output_dir under the same names.

    options are those of `vorn-ycnr denoise` ("--gain", "8"). A file is tried `retries` times more
    before it counts as failed; the others go on. skip_existing leaves alone what is there. The table
    has one row per input, in their order.
    """
    from distributed import as_completed

    show = _shown(progress)
    targets = [str(Path(output_dir) / Path(name).name) for name in inputs]
    table = [FileResult(name, target, "failed") for name, target in zip(inputs, targets)]
    for row in table:
        if sum(target == row.output for target in targets) > 1:
            raise ValueError(f"{row.output} would be written from more than one input")
    places: Dict[Any, int] = {}
    futures: List[Future] = []
    since = time.monotonic()
    run = uuid.uuid4().hex
    for place, row in enumerate(table):
        if skip_existing and Path(row.output).exists():
            row.state = "skipped"
            continue
        here, there = os.path.abspath(row.input), os.path.abspath(row.output)
        key = f"vornycnr-denoise-{run}-{place}"
        futures.append(
            client.submit(
                _denoise, program, here, there, list(options), key=key, pure=False, retries=retries
            )
        )
        places[key] = place
    try:
        for done, future in enumerate(as_completed(futures), 1):
            row = table[places[future.key]]
            row.seconds = time.monotonic() - since
            row.state = "done" if future.status == "finished" else "failed"
            if row.state == "failed":
                row.reason = str(future.exception())
            show(_bar(done / len(futures), row.input, since, done).replace("scores", "files"))
    except KeyboardInterrupt:
        client.cancel(futures)
        for row in table:
            if row.state == "failed" and not row.reason:
                row.reason = "stopped"
    return table


def format_table(table: Sequence[FileResult]) -> str:
    """Counts, then a line for every file that failed."""
    counts = {state: sum(row.state == state for row in table) for state in ("done", "skipped", "failed")}
    lines = [", ".join(f"{count} {state}" for state, count in counts.items())]
    failed = [row for row in table if row.state == "failed"]
    width = max((len(row.input) for row in failed), default=0)
    lines += [f"  {row.input:{width}}  {row.reason}" for row in failed]
    return "\n".join(lines)


__all__ = ["FarmError", "FileResult", "TuneResult", "denoise", "format_table", "tune"]
