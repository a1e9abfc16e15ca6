#!/usr/bin/env python3
"""ask_tell_test.py PROGRAM DIRECTORY: `tune --ask-tell` with an engine that answers late, out of
order and twice, loses a worker, talks nonsense, or goes away. The set has the bytes of plain `tune`."""

import contextlib
import json
import os
import queue
import random
import shutil
import subprocess
import sys
import threading

program, work = os.path.abspath(sys.argv[1]), sys.argv[2]
shutil.rmtree(work, ignore_errors=True)
os.makedirs(work)
os.chdir(work)
PIPES = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
SEARCH = ["a/clean.png", "b/clean.png", "--pair", "8", "a/noisy_gain8.png", "a/clean.png",
          "--gains", "8", "--rounds", "1", "--objective", "mix"]  # fmt: skip


def read_lines(stream, name, events):
    for line in stream:
        events.put((name, line))
    events.put((name, None))


class Engine:
    """Three scorers with one thread each. Answers are held back and let go in any order."""

    def __init__(self, output, meddle=lambda engine: None):
        self.events, self.random = queue.Queue(), random.Random(7)
        self.tune = subprocess.Popen([program, "tune", *SEARCH, "--ask-tell", "-o", output], **PIPES)
        self.workers, self.held, self.told, self.job, self.end = [], [], 0, None, None
        self.follow(self.tune, "tune")
        open_events = 1
        while open_events:
            try:
                name, line = self.events.get(timeout=0.02 if self.held else 60)
            except queue.Empty:
                self.let_go(len(self.held))
                continue
            if line is None:
                open_events -= 1
                if name != "tune":
                    self.lost(self.workers[name])
                    continue
                for worker in self.workers:
                    with contextlib.suppress(BrokenPipeError):  # of the one that was killed
                        worker["process"].stdin.close()
                continue
            if name != "tune":
                self.answered(name, line)
            elif "job" in (said := json.loads(line)):
                self.job = line
                for i in range(3):
                    self.workers.append(self.start_worker(i))
                open_events += 3
            elif "ask" in said:
                self.give(said["ask"], line)
            elif "end" in said:
                self.end = said["end"]
                for worker in self.workers:
                    self.send(worker["process"], line)
            if len(self.held) > 6:
                self.let_go(3)
            meddle(self)
        self.words = self.tune.stderr.read().decode()
        self.code = self.tune.wait()
        for worker in self.workers:
            worker["process"].wait()

    def follow(self, process, name):
        args = (process.stdout, name, self.events)
        threading.Thread(target=read_lines, args=args, daemon=True).start()

    def start_worker(self, name):
        process = subprocess.Popen([program, "score", "--threads", "1"], **PIPES)
        self.follow(process, name)
        self.send(process, self.job)
        return {"process": process, "open": {}, "alive": True}

    @staticmethod
    def send(process, line):
        try:
            process.stdin.write(line)
            process.stdin.flush()
        except (OSError, ValueError):
            pass  # its end is an event of its own; or closed here

    def give(self, number, line):
        worker = self.random.choice([w for w in self.workers if w["alive"]])
        worker["open"][number] = line
        self.send(worker["process"], line)

    def answered(self, name, line):
        self.workers[name]["open"].pop(json.loads(line)["tell"], None)
        self.held.append(line)

    def lost(self, worker):
        worker["alive"] = False
        if self.end is None and any(w["alive"] for w in self.workers):
            for number, line in worker["open"].items():
                self.give(number, line)

    def let_go(self, count):
        self.random.shuffle(self.held)
        for _ in range(count):
            line = self.held.pop()
            self.send(self.tune, line)
            self.told += 1
            if self.told % 50 == 0:
                self.send(self.tune, line)  # again


def once_after(count, act):
    """act(engine), once that many answers were told."""
    waiting = [True]

    def meddle(engine):
        if waiting and engine.told > count:
            waiting.clear()
            act(engine)

    return meddle


def read(name):
    with open(name, "rb") as file:
        return file.read()


def check(what, holds, detail=""):
    print(f"{'ok    ' if holds else 'FAILED'}  {what}{'' if holds else ': ' + str(detail)}")
    failed.append(not holds)


failed: list = []
for name, size in (("a", "80x64"), ("b", "65x67")):
    subprocess.run([program, "demo", "-o", name, "--size", size, "--noise", "8"], check=True,
                   stdout=subprocess.DEVNULL)  # fmt: skip
subprocess.run([program, "tune", *SEARCH, "-o", "plain.json"], check=True, stdout=subprocess.DEVNULL)

killed = Engine("engine.json", once_after(200, lambda e: e.workers[1]["process"].kill()))
check("a worker is lost: the search goes on", killed.code == 0 and not killed.workers[1]["alive"], killed.words)
check("the bytes of plain tune", read("engine.json") == read("plain.json"))
check("the end is told", killed.end == {"stopped": False, "output": "engine.json"}, killed.end)

os.mkfifo("scores")
shell = subprocess.run(
    ["sh", "-c", '"$0" tune "$@" --ask-tell -o shell.json <scores | "$0" score >scores', program, *SEARCH],
    capture_output=True, timeout=120)  # fmt: skip
check("two programs and a pipe", shell.returncode == 0 and read("shell.json") == read("plain.json"), shell.stderr)

for what, line, words in (
    ("nonsense", b"no json\n", "is no answer"),
    ("half a line", b'{"tell": 300, "luma": {"mse": 1}}\n', "is no answer"),
    ("a score that is none", b'{"tell": 1, "luma": {"mse": null, "ssim": 0, "lost_texture": 0}}\n', "is no answer"),
    ("an answer to nothing", b'{"tell": 123456789, "error": "x"}\n', "which was not asked"),
):
    bad = Engine("bad.json", once_after(400, lambda e, line=line: e.send(e.tune, line)))
    good = bad.code == 2 and words in bad.words and "bad.json holds the best so far" in bad.words
    check(f"{what}: said, and the best kept", good and bad.end["stopped"], bad.words)
    check("whole", subprocess.run([program, "tuning", "check", "bad.json"], stdout=subprocess.DEVNULL).returncode == 0)
    os.remove("bad.json")

gone = Engine("gone.json", once_after(400, lambda e: e.tune.stdin.close()))
check("an engine that goes away", gone.code == 2 and "answers ended" in gone.words and os.path.exists("gone.json"), gone.words)
stopped = Engine("stopped.json", once_after(400, lambda e: e.send(e.tune, b'{"stop": true}\n')))
check("a stop is exit code 130", stopped.code == 130 and os.path.exists("stopped.json"), stopped.words)

os.rename("b/clean.png", "b/away.png")
lost = Engine("lost.json")
check("a picture that is missing is named", lost.code == 2 and "b/clean.png: cannot be read" in lost.words, lost.words)
check("and nothing is written", not os.path.exists("lost.json"))

job = {"protocol": 1, "version": "0.0.0", "folder": ".", "arguments": [*SEARCH, "-o", "x.json"]}
for what, line, words in (
    ("another version", json.dumps({"job": job}), "the scores would not agree"),
    ("a question before the job", '{"ask":1,"gain":8,"sample":0,"input":true}', "before the job"),
    ("a line that is none", "{", "line 1"),
):
    run = subprocess.run([program, "score"], input=line.encode(), capture_output=True)
    check(f"score, {what}", run.returncode == 2 and words in run.stderr.decode(), run.stderr)

# A user of its own with few threads; whoever may not be another user leaves this out.
OTHER = ["setpriv", "--reuid=61234", "--clear-groups", "--inh-caps=+dac_read_search", "--ambient-caps=+dac_read_search"]
QUESTION = json.dumps({"ask": 8, "gain": 8, "sample": 0, "luma": [1, 3, 60, 40, 20, 0, 0, 5, 5, 5, 0, 0, 64, 0, 0]})
os.rename("b/away.png", "b/clean.png")
os.environ["ASAN_OPTIONS"] = "detect_leaks=0"  # the leak sanitizer needs a thread of its own
if subprocess.run([*OTHER, "true"], capture_output=True).returncode == 0:
    tuning = subprocess.Popen([program, "tune", *SEARCH, "--ask-tell", "-o", "few.json"], **PIPES)
    first = tuning.stdout.readline() + tuning.stdout.readline()  # the job, and a question without a denoiser
    tuning.kill()
    tuning.communicate()
    for limit, threads in ((1, 1), (1, 4), (2, 1), (2, 4), (3, 2), (4, 4), (6, 4)):
        run = subprocess.run([*OTHER, "prlimit", f"--nproc={limit}", program, "score", "--threads", str(threads)],
                             input=first + (QUESTION + "\n").encode() * 10, capture_output=True, timeout=60)  # fmt: skip
        good = run.returncode == 0 and run.stdout.count(b'"luma"') == 11 if limit > 1 else (
            run.returncode == 2 and b"no thread" in run.stderr)  # fmt: skip
        check(f"{limit} threads, --threads {threads}", good and b"error" not in run.stdout, run.stdout + run.stderr)
    # The threads for its denoisers go to others after it has begun.
    score = subprocess.Popen([*OTHER, "prlimit", "--nproc=9", program, "score", "--threads", "4"], **PIPES)
    score.stdin.write(first)
    score.stdin.flush()
    score.stdout.readline()
    others = [subprocess.Popen([*OTHER, "sleep", "60"]) for _ in range(8)]
    while any(open(f"/proc/{other.pid}/comm").read() != "sleep\n" for other in others):
        pass
    said, words = score.communicate((QUESTION + "\n").encode() * 10, timeout=60)
    check("threads that went elsewhere: no answers, and why", score.returncode == 2 and b"no thread" in words, said + words)
    for other in others:
        other.kill()
        other.wait()

print(f"{len(failed) - sum(failed)} passed, {sum(failed)} failed")
sys.exit(any(failed))
