#!/usr/bin/env python3
"""The report page in a real browser: report_browser_test.py PROGRAM DIRECTORY

Writes the pages of `report` and `tune` with PROGRAM, opens them in headless Chromium as a desktop and
as a phone would, uses the viewer, and looks for script errors, requests, blank or wrong pictures,
labels that overlap and pages wider than the screen. Screenshots stay in DIRECTORY.
"""
import base64
import os
import shutil
import subprocess
import sys

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

program, work = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
faults = []


def check(what, holds, told=""):
    if not holds:
        faults.append(what)
        print(f"FAILED: {what} {told}")


def make_pages():
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)

    def run(*arguments):
        subprocess.run([program, *arguments], cwd=work, check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)

    run("demo", "-o", "demo", "--size", "640x480", "--noise", "8")
    run("report", "demo/noisy_gain8.png", "--clean", "demo/clean.png", "--gain", "8", "-o", "report.html")
    run("tune", "demo/clean.png", "demo/noisy_gain8.png", "--gains", "4,16", "--rounds", "1", "-o",
        "set.json", "--report", "tune.html")
    for page in ("report.html", "tune.html"):
        check(f"{page} is below 12 MB", os.path.getsize(os.path.join(work, page)) < 12_000_000)


def browser(width, height, scale):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--hide-scrollbars", f"--force-device-scale-factor={scale}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=webdriver.chrome.service.Service(shutil.which("chromedriver")),
                              options=options)
    # The window cannot be as narrow as a phone; what the page sees can.
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": height, "deviceScaleFactor": scale, "mobile": False})
    return driver


def open_page(driver, page):
    driver.get("about:blank")
    driver.get(f"file://{work}/{page}")
    WebDriverWait(driver, 60).until(
        lambda d: d.execute_script("return document.documentElement.dataset.ready") == "1")


def screenshot(driver, name):
    height = driver.execute_script("return document.documentElement.scrollHeight")
    size = driver.execute_script("return [innerWidth, innerHeight]")
    data = driver.execute_cdp_cmd("Page.captureScreenshot", {
        "captureBeyondViewport": True,
        "clip": {"x": 0, "y": 0, "width": size[0], "height": height, "scale": 1}})["data"]
    with open(os.path.join(work, name), "wb") as out:
        out.write(base64.b64decode(data))


# Texts of a drawing that overlap each other, a line of the legend or the drawing's edge.
OVERLAPS = """
const bad = [];
for (const svg of document.querySelectorAll("svg")) {
  const frame = svg.getBoundingClientRect();
  const boxes = [...svg.querySelectorAll("text")].filter(t => t.textContent).map(t =>
    [t.textContent, t.getBoundingClientRect()]);
  const name = svg.getAttribute("aria-label");
  for (const [text, b] of boxes)
    if (b.left < frame.left - 1 || b.right > frame.right + 1 || b.top < frame.top - 1 || b.bottom > frame.bottom + 1)
      bad.push(`${name}: "${text}" leaves the drawing`);
  boxes.forEach(([ta, a], i) => boxes.slice(i + 1).forEach(([tb, b]) => {
    if (a.left < b.right + 1 && b.left < a.right + 1 && a.top < b.bottom - 2 && b.top < a.bottom - 2)
      bad.push(`${name}: "${ta}" over "${tb}"`);
  }));
}
return bad;
"""
# Elements that are cut off or stick out of the page, but for what scrolls by itself.
WIDE = """
const page = document.documentElement.clientWidth;
return [...document.querySelectorAll("main *")].filter(e => e.getBoundingClientRect().right > page + 1 &&
  !e.closest(".wide") && !e.closest("svg")).map(e => e.tagName + "." + e.className).slice(0, 5)
  .concat(document.documentElement.scrollWidth > page + 1 ? ["the page scrolls sideways"] : []);
"""


def check_page(driver, name):
    errors = [e["message"] for e in driver.get_log("browser") if e["level"] == "SEVERE"]
    check(f"{name}: no script errors", not errors, errors)
    requests = driver.execute_script(
        "return performance.getEntriesByType('resource').map(r => r.name).filter(n => !n.startsWith('data:'))")
    check(f"{name}: no requests", not requests, requests)
    overlaps = driver.execute_script(OVERLAPS)
    check(f"{name}: labels do not overlap", not overlaps, overlaps[:8])
    wide = driver.execute_script(WIDE)
    check(f"{name}: nothing is wider than the page", not wide, wide)


def pixel(driver, x, y):
    """Of the viewer, at fractions of its size."""
    return driver.execute_script(
        "const c = document.getElementById('view');"
        "return [...c.getContext('2d').getImageData(Math.floor(c.width * arguments[0]),"
        " Math.floor(c.height * arguments[1]), 1, 1).data].slice(0, 3)", x, y)


def scatter(driver, left, top, right, bottom):
    """Mean difference of horizontal neighbours in a part of the viewer: large where there is noise."""
    return driver.execute_script(
        "const c = document.getElementById('view'), w = Math.floor((arguments[2] - arguments[0]) * c.width),"
        " h = Math.floor((arguments[3] - arguments[1]) * c.height);"
        "const d = c.getContext('2d').getImageData(Math.floor(arguments[0] * c.width),"
        " Math.floor(arguments[1] * c.height), w, h).data;"
        "let sum = 0; for (let i = 0; i + 4 < d.length; i += 4) sum += Math.abs(d[i + 4] - d[i]);"
        "return sum / (w * h);", left, top, right, bottom)


def press(driver, group, text):
    for button in driver.find_elements(By.CSS_SELECTOR, f"#{group} button"):
        if button.text == text:
            button.click()
            return
    check(f"a button {text}", False)


def use_viewer(driver):
    view = driver.find_element(By.ID, "view")
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", view)
    press(driver, "zooms", "1:1")
    place = (0.27, 0.3, 0.45, 0.7)  # left of the divider, within the picture
    noisy = scatter(driver, *place)

    # Pulling the divider to the left shows more of what is on the right.
    width = view.size["width"]
    ActionChains(driver).move_to_element(view).click_and_hold().move_by_offset(
        -int(width * 0.3), 0).release().perform()
    moved = scatter(driver, *place)
    check("before is left of the divider, after right of it", moved < noisy * 0.8, (noisy, moved))
    ActionChains(driver).move_to_element(view).perform()
    readout = driver.find_element(By.ID, "readout").text
    check("samples are read out", "before Y" in readout and "clean Y" in readout, readout)

    view.click()
    ActionChains(driver).key_down(Keys.SPACE).perform()
    swapped = scatter(driver, *place)
    ActionChains(driver).key_up(Keys.SPACE).perform()
    check("the space bar swaps", swapped > moved * 1.2, (moved, swapped))

    press(driver, "channels", "Y")
    r, g, b = pixel(driver, 0.7, 0.6)
    check("a plane is grey", r == g == b, (r, g, b))
    press(driver, "modes", "difference")
    check("the difference has its factor", driver.find_element(By.ID, "amp").is_displayed())
    Select(driver.find_element(By.ID, "left")).select_by_visible_text("clean")
    Select(driver.find_element(By.ID, "right")).select_by_visible_text("clean")
    check("nothing differs from itself", pixel(driver, 0.7, 0.6) == [128, 128, 128])
    Select(driver.find_element(By.ID, "left")).select_by_visible_text("before")
    press(driver, "modes", "side by side")
    press(driver, "channels", "colour")
    press(driver, "zooms", "4:1")
    check("both sides show the same place",
          sum(abs(a - b) for a, b in zip(pixel(driver, 0.26, 0.5), pixel(driver, 0.76, 0.5))) < 150)


def pinch(driver):
    """Two fingers that move apart on the viewer: the picture grows, and the place between them stays."""
    view = driver.find_element(By.ID, "view")
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", view)
    press(driver, "zooms", "1:1")
    box = driver.execute_script("const b = arguments[0].getBoundingClientRect();"
                                "return [b.left + b.width / 2, b.top + b.height / 2]", view)
    driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": True, "maxTouchPoints": 2})

    def touch(kind, far):
        points = [{"x": box[0] - far, "y": box[1], "id": 0}, {"x": box[0] + far, "y": box[1], "id": 1}]
        driver.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": kind, "touchPoints": points if far else []})

    centre = driver.execute_script("return [state.cx, state.cy]")
    touch("touchStart", 30)
    for far in (40, 60, 90):
        touch("touchMove", far)
    touch("touchEnd", 0)
    zoom = driver.execute_script("return scale()")
    check("two fingers zoom", 2.5 < zoom < 3.5, zoom)
    moved = driver.execute_script("return [state.cx, state.cy]")
    check("the place between them stays", max(abs(a - b) for a, b in zip(centre, moved)) < 2, (centre, moved))


def dark(driver, page):
    """The page where the system is dark: light text on dark ground, plots as well."""
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
        "features": [{"name": "prefers-color-scheme", "value": "dark"}]})
    open_page(driver, page)
    light = driver.execute_script(
        "const light = c => c.match(/\\d+/g).slice(0, 3).reduce((a, b) => a + Number(b), 0) / 3;"
        "const of = (e, p) => light(getComputedStyle(document.querySelector(e))[p]);"
        "return [of('body', 'backgroundColor'), of('body', 'color'), of('.card', 'backgroundColor'),"
        " of('.plot text', 'fill')];")
    check("dark ground, light text", light[0] < 60 and light[1] > 180 and light[2] < 70 and light[3] > 120, light)


def main():
    make_pages()
    for kind, width, height, scale in (("desktop", 1280, 900, 1), ("phone", 390, 844, 2)):
        driver = browser(width, height, scale)
        try:
            open_page(driver, "report.html")
            check_page(driver, f"report, {kind}")
            plots = driver.find_elements(By.CSS_SELECTOR, "#sweepPlots svg")
            check("a curve for every parameter", len(plots) >= 10, len(plots))
            check("noise of three planes", len(driver.find_elements(By.CSS_SELECTOR, "#noisePlots svg")) == 3)
            check("times of the stages", len(driver.find_elements(By.CSS_SELECTOR, "#timeBars i")) >= 8)
            screenshot(driver, f"report_{kind}.png")
            if kind == "desktop":
                use_viewer(driver)
                screenshot(driver, "report_side_by_side.png")
                check_page(driver, "report after use")
            else:
                pinch(driver)
            open_page(driver, "tune.html")
            check_page(driver, f"tune, {kind}")
            pictures = driver.find_elements(By.CSS_SELECTOR, "#pickers select")
            check("every picture can be chosen", len(pictures) == 2, len(pictures))
            check("all gains are plotted", driver.find_element(By.ID, "gains").is_displayed())
            Select(driver.find_element(By.CSS_SELECTOR, "#pickers select")).select_by_visible_text("16")
            WebDriverWait(driver, 30).until(lambda d: d.execute_script(
                "return document.querySelectorAll('#sweepPlots svg').length") >= 8)
            check_page(driver, f"tune, other gain, {kind}")
            screenshot(driver, f"tune_{kind}.png")
            dark(driver, "tune.html")
            check_page(driver, f"tune, dark, {kind}")
            screenshot(driver, f"tune_dark_{kind}.png")
        finally:
            driver.quit()
    print("all as expected" if not faults else f"{len(faults)} faults")
    sys.exit(bool(faults))


main()
