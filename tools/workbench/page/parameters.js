// ---- one row a parameter ---------------------------------------------------------------------------
const rows = [];  // { index, field, box, update }

function savedValue(index) {
  const gain = entryNow().gain, entry = S.saved.entries.find(e => e.gain === gain) || nearestSaved(gain);
  return entry.values[index];
}
function nearestSaved(gain) {
  return S.saved.entries.reduce((a, b) => Math.abs(Math.log2(b.gain / gain)) < Math.abs(Math.log2(a.gain / gain)) ? b : a);
}
// Strengths span three decades: the slider moves by their square root.
const wideRange = w => w.high - w.low > 300;
const toSlider = (w, v) => wideRange(w) ? Math.sqrt(Math.max(0, (v - w.low) / (w.high - w.low))) * 1000 : v;
const fromSlider = (w, s) => wideRange(w) ? Math.round(w.low + (w.high - w.low) * (s / 1000) ** 2) : Number(s);

function buildParameters() {
  const panel = $("parameters");
  panel.textContent = "";
  rows.length = 0;
  const half = luma => {
    panel.append(make("h2", {}, luma ? "Luma" : "Chroma"));
    for (const [index, field] of S.fields.entries())
      if (field.luma === luma && !wordsOf(field).unused) panel.append(row(index, field));
  };
  half(true);
  half(false);
  panel.append(make("div", { id: "about", "aria-live": "off" }, make("div", { class: "words" },
    "● differs from the saved set. Rest the pointer or the focus on a row for what it does and quality over it."), make("div", { class: "curve" })));
}
function row(index, field) {
  const w = wordsOf(field), name = field.level < 0 ? field.key : `${field.key}[${field.level}]`;
  const title = `${name}${w.unit ? ", " + w.unit : ""}`;
  const box = make("div", { class: "row", "data-field": index });
  const reset = make("button", { class: "reset", title: "Back to the saved value", "aria-label": `${name} back to the saved value`,
    onclick: () => setValue(index, savedValue(index)) }, "↺");
  const head = make("span", { class: "name", id: "name" + index }, name, w.unit ? make("small", {}, " " + w.unit) : null);
  let update;
  if (w.choices) {
    const choices = w.choices;
    const text = v => field.key === "pRadius" && v === 0 ? "copy" : field.key === "enable" ? (v ? "on" : "off") : String(v);
    const buttons = choices.map(v => make("button", { onclick: () => setValue(index, v), "aria-label": `${name} ${text(v)}` }, text(v)));
    box.append(head, make("span", { class: "group", role: "group", "aria-labelledby": "name" + index, "aria-description": w.short }, ...buttons), reset);
    update = v => buttons.forEach((b, i) => b.setAttribute("aria-pressed", String(choices[i] === v)));
  } else {
    const slider = make("input", { type: "range", min: wideRange(w) ? 0 : w.low, max: wideRange(w) ? 1000 : w.high, step: 1, "aria-label": title, "aria-description": w.short });
    const exact = make("input", { type: "number", step: 1, min: w.low, max: w.high, "aria-label": title + ", number" });
    slider.addEventListener("input", e => { latency.input = latency.input || e.timeStamp || performance.now(); setValue(index, fromSlider(w, slider.value)); });
    exact.addEventListener("change", () => {
      const v = Math.round(Number(exact.value));
      if (!Number.isFinite(v) || v < w.low || v > w.high) {
        note("value", `${name} takes ${w.low} to ${w.high}; ${exact.value || "nothing"} was not taken.`, [], true);
        exact.value = values()[index];
      } else { drop("value"); setValue(index, v); }
    });
    box.append(head, slider, exact, reset);
    update = v => { slider.value = toSlider(w, v); slider.setAttribute("aria-valuetext", String(v)); if (document.activeElement !== exact) exact.value = v; };
  }
  box.addEventListener("pointerenter", () => sweepSoon(index, 200));
  box.addEventListener("pointerleave", () => sweepSoon(-1));
  box.addEventListener("focusin", () => sweepSoon(index, 0));
  rows.push({ index, field, box, update });
  return box;
}
function showParameters() {
  const v = values(), layers = v[fieldIndex("layer", -1)];
  for (const r of rows) {
    r.update(v[r.index]);
    r.box.classList.toggle("differs", v[r.index] !== savedValue(r.index));
    const idle = r.field.luma && r.field.level >= layers;
    r.box.style.opacity = idle ? 0.5 : 1;
    r.box.title = idle ? "This level is not in use: layer is " + layers : "";
  }
}

// What the parameter under the pointer does stands below all rows, so that none moves away.
let aboutTimer = 0, aboutIndex = -1;
function tellAbout(index) {
  if (index === aboutIndex) return;
  aboutIndex = index;
  const field = S.fields[index], w = wordsOf(field), box = $("about");
  box.firstChild.replaceChildren(make("strong", {}, field.level < 0 ? field.key : `${field.key}[${field.level}]`), ": " + w.short + (w.choices ? "" : ` (${w.low} to ${w.high})`),
    ...(w.long ? [make("details", {}, make("summary", {}, "more"), w.long)] : []));
  box.lastChild.textContent = "";
}

// Quality over one parameter, a point at a time, until something else is looked at.
let sweepTimer = 0, sweepRun = 0;
function sweepSoon(index, delay) {
  clearTimeout(sweepTimer);
  clearTimeout(aboutTimer);
  ++sweepRun;
  if (index >= 0) aboutTimer = setTimeout(() => tellAbout(index), delay);
  if (index < 0 || !S.pictures[S.picture].clean) return;
  sweepTimer = setTimeout(() => sweep(index, ++sweepRun), 450);
}
function sweepValues(index) {
  const w = wordsOf(S.fields[index]), now = values()[index];
  if (w.choices) return w.choices;
  const list = wideRange(w) ? [0, 0.35, 0.5, 0.65, 0.8, 0.9, 1, 1.12, 1.3, 1.6, 2, 2.6].map(f => Math.round((now || 40) * f)) :
    w.high - w.low <= 12 ? Array.from({ length: w.high - w.low + 1 }, (_, i) => w.low + i) :
      Array.from({ length: 11 }, (_, i) => Math.round(w.low + (w.high - w.low) * i / 10));
  return [...new Set([...list, now])].filter(v => v >= w.low && v <= w.high).sort((a, b) => a - b);
}
async function sweep(index, run) {
  const field = S.fields[index], w = wordsOf(field), base = values().slice(), picture = S.picture;
  const key = field.luma ? "psnr_y" : null, points = [];
  const list = sweepValues(index).sort((a, b) => Math.abs(a - base[index]) - Math.abs(b - base[index]));
  for (const v of list) {
    if (run !== sweepRun || lost) return;
    const trial = base.slice();
    trial[index] = v;
    try {
      const f = (await call("figures", { picture, values: trial })).after;
      if (!f) return;
      points.push([v, key ? f[key] : (f.psnr_u + f.psnr_v) / 2]);
    } catch (e) { report("sweep", e); return; }
    if (run !== sweepRun) return;
    points.sort((a, b) => a[0] - b[0]);
    tellAbout(index);
    $("about").lastChild.replaceChildren(chart([{ name: (field.luma ? "luma" : "chroma") + " PSNR, dB", colour: "var(--accent)", points, dots: true }],
      { mark: base[index], height: 120, ticks: w.choices, title: "quality over " + field.key }));
  }
}
