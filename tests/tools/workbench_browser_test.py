#!/usr/bin/env python3
"""The workbench in a real browser: workbench_browser_test.py PROGRAM DIRECTORY [--pictures DOCS | --latency]

Starts PROGRAM on pictures of its own demo, works the page in headless Chromium as a person would and
looks for script errors, pixels that differ from `denoise`, lost work and open doors. Screenshots at
three sizes in both themes stay in DIRECTORY; --pictures writes those of the manual and ends;
--latency measures, as bench/slider says, and ends.
"""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
import urllib.error
import urllib.request
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

program, work = os.path.abspath(sys.argv[1]), Path(sys.argv[2]).absolute()
faults = []


def check(what, holds, told=""):
    if not holds:
        faults.append(what)
        print(f"FAILED: {what} {told}")


def run(*arguments):
    subprocess.run([program, *arguments], cwd=work, check=True, stdout=subprocess.DEVNULL)


class Server:
    def __init__(self, *arguments):
        self.process = subprocess.Popen([program, "workbench", "--no-open", *arguments], cwd=work,
                                        stdout=subprocess.PIPE, text=True)
        self.address = re.search(r"http://\S+", self.process.stdout.readline()).group(0)

    def end(self, how=signal.SIGINT):
        self.process.send_signal(how)
        return self.process.wait(20)


def browser(width=1400, height=900):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--hide-scrollbars", "--disable-background-networking"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    service = webdriver.chrome.service.Service(shutil.which("chromedriver"))
    driver = webdriver.Chrome(service=service, options=options)
    resize(driver, width, height)
    return driver


def resize(driver, width, height):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})


def js(driver, script, *arguments):
    return driver.execute_script("return " + script, *arguments)


def wait(driver, what, condition, seconds=30):
    try:
        WebDriverWait(driver, seconds, 0.1).until(lambda d: js(d, condition))
        return True
    except Exception:
        check(what, False, f"after {seconds} s: {condition}")
        return False


SHOWN = ("versionsInView().every(v => layers[v] && layers[v].have && layers[v].have.key === wanted(v).key"
         " && !layers[v].busy)")


def open_page(driver, address):
    driver.get(address)
    wait(driver, "the picture is shown", "typeof S === 'object' && S.size && " + SHOWN)


def slider(key, level):
    return f"document.querySelector(`[data-field=\"${{fieldIndex('{key}', {level})}}\"] input[type=range]`)"


def move_slider(driver, key, level, value):
    driver.execute_script(f"const s = {slider(key, level)}; s.value = toSlider(wordsOf(S.fields[fieldIndex('{key}', {level})]), {value});"
                          "s.dispatchEvent(new Event('input', { bubbles: true }));")


def shown_is_what_denoise_writes(driver):
    """A slider moved, then the shown pixels against those of the command line with the same number."""
    move_slider(driver, "pIntensity", 0, 90)
    strength = js(driver, "values()[fieldIndex('pIntensity', 0)]")
    check("the slider reaches its number", abs(strength - 90) < 4, strength)
    driver.execute_script("zoomTo(1)")
    wait(driver, "the crop is shown", SHOWN)
    run("denoise", "noisy_gain8.png", "--gain", "8", "--luma-intensity", str(strength), "-o", "same.png")
    differing = driver.execute_async_script("""
        const done = arguments[0], have = layers.after.have, image = new Image();
        image.src = "data:image/png;base64," + arguments[1];
        image.decode().then(() => {
          const c = document.createElement("canvas");
          c.width = image.width; c.height = image.height;
          const p = c.getContext("2d", { colorSpace: "srgb" });
          p.drawImage(image, 0, 0);
          const whole = p.getImageData(have.head.x, have.head.y, have.head.width, have.head.height).data;
          let n = 0;
          for (let i = 0; i < whole.length; ++i) n += whole[i] !== have.pixels[i];
          done([n, whole.length]);
        });""".replace("arguments[0]", "arguments[arguments.length - 1]").replace("arguments[1]", "arguments[0]"),
        __import__("base64").b64encode((work / "same.png").read_bytes()).decode())
    check("the crop has the bytes of denoise", differing[0] == 0 and differing[1] > 100000, differing)


def latency(driver, events=20, every=100):
    """Milliseconds from the slider's event to the end of the frame with the new crop, on a 12 megapixel picture."""
    driver.execute_script("zoomTo(1)")
    wait(driver, "the crop is shown", SHOWN)
    driver.set_script_timeout(120)
    times, filtering = driver.execute_async_script("""
        const [events, every, done] = arguments, s = %s, filter = [];
        latency.times.length = 0;
        let i = 0, step = 2;
        const timer = setInterval(() => {
          if (Number(s.value) > 700 || Number(s.value) < 50) step = -step;
          s.value = Number(s.value) + step;
          s.dispatchEvent(new Event("input", { bubbles: true }));
          filter.push(S.frameMs);
          if (++i === events) { clearInterval(timer); setTimeout(() => done([latency.times, filter]), 800); }
        }, every);""" % slider("pIntensity", 0), events, every)
    times.sort()
    filtering.sort()
    check("frames followed the slider", len(times) >= 5, times)
    print(f"4000x3000, a slider's event every {every} ms: {len(times)} crops painted, median {times[len(times) // 2]:.1f} ms, "
          f"90th percentile {times[len(times) * 9 // 10]:.1f}, fastest {times[0]:.1f}; "
          f"of it the filter {filtering[len(filtering) // 2]:.1f}; load {os.getloadavg()[0]:.1f}")


def history(driver):
    steps = js(driver, "S.undo.length")
    before = js(driver, "JSON.stringify(S.set)")
    move_slider(driver, "range_factor", -1, 20)
    check("an edit is a step", js(driver, "S.undo.length") == steps + 1)
    driver.find_element(By.TAG_NAME, "body").send_keys("z")
    check("undo", js(driver, "JSON.stringify(S.set)") == before)
    driver.find_element(By.TAG_NAME, "body").send_keys("y")
    check("redo", js(driver, "values()[fieldIndex('range_factor', -1)]") == 20)
    # A number out of range is refused and named.
    box = driver.find_element(By.CSS_SELECTOR, "[aria-label^='range_factor'][type=number]")
    box.send_keys(Keys.CONTROL, "a")
    box.send_keys("99999", Keys.TAB)
    check("a number out of range is refused", js(driver, "values()[fieldIndex('range_factor', -1)]") == 20)
    check("and said", "range_factor takes" in js(driver, "$('notes').textContent"))
    driver.execute_script("drop('value'); S.b = { name: 'other', values: nearestSaved(1).values.slice() }; changed('values'); canvas.focus()")
    driver.switch_to.active_element.send_keys("b")
    check("B is shown", js(driver, "S.showB") and js(driver, "$('flip').textContent") == "B")
    driver.switch_to.active_element.send_keys("b")
    driver.execute_script("S.b = null; changed('values')")


def views(driver):
    for mode in ("side", "before", "clean", "change", "leftover", "detail", "mask", "after", "slider"):
        driver.find_element(By.CSS_SELECTOR, f"#modes [data-value={mode}]").click()
        wait(driver, f"view {mode}", SHOWN)
        colours = js(driver, "new Set(pen.getImageData(0, canvas.height >> 1, canvas.width, 1).data.filter((v, i) => i % 4 === 0)).size")
        check(f"view {mode} shows something", colours > (0 if mode == "mask" else 3), colours)
    for level in range(1, 5):
        driver.execute_script(f"S.view.mode = 'after'; S.view.level = {level}; changed('view')")
        wait(driver, f"level {level}", SHOWN)
    driver.execute_script("S.view.mode = 'slider'; S.view.level = 0; changed('view')")


def figures(driver):
    driver.find_element(By.ID, "tab-figures").click()
    canvas = driver.find_element(By.ID, "view")
    ActionChains(driver).key_down(Keys.SHIFT).move_to_element_with_offset(canvas, -200, -120).click_and_hold() \
        .move_by_offset(120, 110).release().key_up(Keys.SHIFT).perform()
    wait(driver, "the patch has figures", "$('patch').textContent.includes('mean')")
    wait(driver, "SSIM comes", "$('quality').textContent.includes('SSIM')")
    wait(driver, "the chart's parts are offered", "!$('regions').hidden")
    for kind, told in (("edge", "edge ½"), ("leaves", "Texture kept"), ("grey", "Power spectrum")):
        driver.find_element(By.CSS_SELECTOR, f"#regions [data-kind={kind}]").click()
        wait(driver, f"figures of {kind}", f"$('patch').textContent.includes(`${{S.patch.width}}×${{S.patch.height}}`) && $('patch').textContent.includes('{told}')")
    grey = js(driver, "S.patch.x")
    driver.find_element(By.TAG_NAME, "body").send_keys("g")
    check("the key takes the next grey", js(driver, "S.patch.x") > grey)
    driver.execute_script("allPictures()")
    wait(driver, "edge and texture of all pictures", "/0\\.\\d+ → 0\\.\\d+/.test($('all').textContent) && $('all').querySelectorAll('tr:last-child td').length === 9")
    driver.execute_script("S.weighing = true; weighSoon({ x: 300, y: 300 })")
    wait(driver, "weights", "$('weighing').querySelector('.weights')")
    driver.find_element(By.ID, "tab-parameters").click()
    driver.execute_script("S.weighing = false; S.patch = null; changed('view'); sweepSoon(fieldIndex('pIntensity', 0))")
    wait(driver, "a curve over the parameter", "document.querySelectorAll('.curve circle').length > 5")


def search(driver):
    driver.find_element(By.ID, "tab-search").click()
    driver.execute_script("$('rounds').value = '4'")
    driver.find_element(By.XPATH, "//button[text()='Search from here']").click()
    wait(driver, "the search finds", "searchState.phase === 'running' && searchState.done > 2 && searchState.best", 90)
    driver.find_element(By.XPATH, "//button[text()='Stop']").click()
    wait(driver, "the search stops", "searchState.phase === 'done'", 60)
    before = js(driver, "JSON.stringify(entryNow().values)")
    driver.find_element(By.XPATH, "//button[text()='Take it']").click()
    check("the best is taken", js(driver, "JSON.stringify(entryNow().values) === JSON.stringify(searchState.best)"))
    check("and can be undone", js(driver, "(travel(S.undo, S.redo), JSON.stringify(entryNow().values))") == before)
    driver.find_element(By.ID, "tab-parameters").click()


def saving(driver, address):
    move_slider(driver, "pIntensity", 1, 33)
    strength = js(driver, "values()[fieldIndex('pIntensity', 1)]")
    driver.find_element(By.ID, "save").click()
    wait(driver, "saved", "$('notes').textContent.includes('Saved to')")
    entry = next(e for e in json.loads((work / "set.json").read_text())["entries"] if e["gain"] == 8)
    check("the file has the number", entry["luma"]["pIntensity"][1] == strength, entry)
    open_page(driver, address)
    check("and the page after a reload", js(driver, "values()[fieldIndex('pIntensity', 1)]") == strength)
    # A second page saves; the first one is told and may still write.
    first = driver.current_window_handle
    driver.switch_to.new_window("tab")
    resize(driver, 1400, 900)
    open_page(driver, address)
    move_slider(driver, "pIntensity", 1, 40)
    driver.execute_script("save()")
    wait(driver, "the second page saves", "$('notes').textContent.includes('Saved to')")
    driver.close()
    driver.switch_to.window(first)
    (work / "set.json").write_text((work / "set.json").read_text().replace('"name": "', '"name": "edited '))
    move_slider(driver, "pIntensity", 1, 60)
    driver.execute_script("save()")
    wait(driver, "the page says that the file has changed", "$('notes').textContent.includes('was changed')")
    check("and wrote nothing", "edited" in (work / "set.json").read_text())


def lost_and_found(driver, server):
    """The program dies under the page; the work is there at the next start."""
    move_slider(driver, "pIntensity", 2, 77)
    typed = js(driver, "values()[fieldIndex('pIntensity', 2)]")
    time.sleep(1.2)
    port = server.address.split(":")[2].split("/")[0]
    server.end(signal.SIGKILL)
    move_slider(driver, "pIntensity", 3, 5)
    wait(driver, "the page says that the program is gone", "$('notes').textContent.includes('does not answer')")
    check("nothing typed is lost", js(driver, "values()[fieldIndex('pIntensity', 2)]") == typed)
    # Another run at the same port does not know this page, which says so.
    again = Server("noisy_gain8.png", "--clean", "clean.png", "-t", "set.json", "--port", port)
    wait(driver, "the page tells the new run", "$('notes').textContent.includes('started anew')")
    driver.get_log("browser")  # the failed requests of the dead program
    open_page(driver, again.address)
    wait(driver, "the work is offered", "$('notes').textContent.includes('not saved last time')")
    driver.find_element(By.XPATH, "//button[text()='Take it up']").click()
    check("and comes back", js(driver, "values()[fieldIndex('pIntensity', 2)]") == typed)
    return again


def closed_doors(server):
    def status(address, headers=None, data=b"{}"):
        headers = {"Content-Type": "text/plain", **(headers or {})}
        request = urllib.request.Request(address, data=data, headers=headers)
        try:
            return urllib.request.urlopen(request, timeout=10).status
        except urllib.error.HTTPError as fault:
            return fault.code
        except (urllib.error.URLError, ConnectionError):
            return 0

    root = "/".join(server.address.split("/")[:3])
    check("the token is needed", status(root + "/state") == 404)
    check("a wrong token is no use", status(root + "/" + "0" * 32 + "/state") == 404)
    check("the right one is", status(server.address + "state") == 200)
    check("another host name is refused", status(server.address + "state", {"Host": "example.com"}) == 403)
    check("a huge request is refused", status(server.address + "keep", data=b" " * (9 << 20)) in (0, 413))
    deep = b'{"set":' + b"[" * 100000 + b"]" * 100000 + b"}"
    check("a deep request is refused", status(server.address + "keep", data=deep) == 422)
    check("files have no path", status(server.address + "save", data=json.dumps(
        {"set": {"entries": []}, "as": "/etc/x.json"}).encode()) == 422)


def pictures(driver, name, sizes=((390, 844), (1400, 900), (3840, 2160))):
    for width, height in sizes:
        resize(driver, width, height)
        for theme in ("light", "dark"):
            driver.execute_script(f"setTheme('{theme}'); zoomTo(0)")
            time.sleep(0.3)
            wait(driver, "shown at this size", SHOWN)
            wide = js(driver, "document.documentElement.scrollWidth - innerWidth")
            check(f"no sideways scrolling at {width}", wide <= 0, wide)
            driver.save_screenshot(str(work / f"{name}_{width}_{theme}.png"))
    resize(driver, 1400, 900)


def manual(driver, folder):
    """The pictures of docs/workbench.md."""
    folder.mkdir(parents=True, exist_ok=True)
    resize(driver, 1440, 860)
    shots = {"parameters": "zoomTo(2); openTab('parameters')",
             "figures": "zoomTo(1); S.patch = { x: 580, y: 390, width: 48, height: 72 }; openTab('figures'); changed('patch')",
             "set": "S.patch = null; S.view.mode = 'change'; openTab('set'); changed('view')"}
    for name, action in shots.items():
        driver.execute_script(action)
        time.sleep(2.5)
        driver.save_screenshot(str(folder / f"{name}.png"))


shutil.rmtree(work, ignore_errors=True)
work.mkdir(parents=True)
if "--latency" in sys.argv:
    run("demo", "-o", ".", "--size", "4000x3000", "--noise", "8")
    server, driver = Server("noisy_gain8.png"), browser()
    try:
        open_page(driver, server.address)
        latency(driver)  # what is made once
        for every in (150, 16):
            latency(driver, 200, every)
    finally:
        driver.quit()
        server.end(signal.SIGTERM)
    sys.exit(1 if faults else 0)
run("demo", "-o", ".", "--size", "1280x960", "--noise", "8")
server = Server("noisy_gain8.png", "--clean", "clean.png", "-t", "set.json")
driver = browser()
try:
    open_page(driver, server.address)
    if "--pictures" in sys.argv:
        manual(driver, Path(sys.argv[sys.argv.index("--pictures") + 1]).absolute())
    else:
        shown_is_what_denoise_writes(driver)
        history(driver)
        views(driver)
        figures(driver)
        search(driver)
        saving(driver, server.address)
        pictures(driver, "page")
        closed_doors(server)
        loud = [e for e in driver.get_log("browser") if e["level"] == "SEVERE"]
        check("no script errors", not loud, loud)
        server = lost_and_found(driver, server)
        check("Ctrl-C ends it", server.end() == 0)
        run("demo", "-o", "large", "--size", "4000x3000", "--noise", "8")
        server = Server("large/noisy_gain8.png")
        open_page(driver, server.address)
        latency(driver)
finally:
    driver.quit()
    server.end(signal.SIGTERM)
print(f"{len(faults)} faults")
sys.exit(1 if faults else 0)
