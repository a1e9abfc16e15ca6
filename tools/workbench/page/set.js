// ---- the whole set ---------------------------------------------------------------------------------
let curveField = -1;
function showSet() {
  const box = $("set");
  if (box.hidden) return;
  const used = [...S.fields.entries()].filter(([, f]) => !wordsOf(f).unused);
  if (curveField < 0) curveField = fieldIndex("pIntensity", 0);
  const name = f => (f.level < 0 ? f.key : `${f.key}[${f.level}]`) + (f.key === "enable" ? (f.luma ? ", luma" : ", chroma") : "");
  const table = make("table", {}, make("tr", {}, make("th", {}, "field"), ...S.set.entries.map((e, i) =>
    make("th", {}, make("button", { class: "plain", "aria-label": "Entry of gain " + e.gain, onclick: () => { S.entry = i; changed("values"); } }, (i === S.entry ? "▸" : "") + e.gain)))),
    ...used.map(([i, f]) => make("tr", {}, make("td", {}, make("button", { class: "plain", onclick: () => { curveField = i; showSet(); } }, name(f))),
      ...S.set.entries.map((e, k) => make("td", { style: k === S.entry ? "font-weight:600" : "" }, String(e.values[i]))))));
  const selector = make("select", { "aria-label": "Field of the curve", onchange: e => { curveField = Number(e.target.value); showSet(); } },
    ...used.map(([i, f]) => make("option", { value: i, selected: i === curveField }, name(f))));
  const smoothed = () => edit("smooth", () => smooth(curveField));
  const differences = [];
  for (const e of S.set.entries) {
    const old = S.saved.entries.find(s => s.gain === e.gain);
    if (!old) { differences.push(make("tr", {}, make("td", {}, "gain " + e.gain), make("td", { colspan: 3 }, "new"))); continue; }
    for (const [i, f] of used) if (old.values[i] !== e.values[i])
      differences.push(make("tr", {}, make("td", {}, "gain " + e.gain), make("td", {}, name(f)), make("td", {}, String(old.values[i])), make("td", {}, String(e.values[i]))));
  }
  for (const s of S.saved.entries) if (!S.set.entries.some(e => e.gain === s.gain)) differences.push(make("tr", {}, make("td", {}, "gain " + s.gain), make("td", { colspan: 3 }, "removed")));
  box.replaceChildren(
    make("h2", {}, "Name"), make("input", { type: "text", value: S.set.name, "aria-label": "Name of the set", onchange: e => edit("name", () => { S.set.name = e.target.value; }) }),
    make("h2", {}, "Entries"), make("div", { class: "wide" }, table),
    make("p", { class: "buttons", style: "justify-content:flex-start" },
      make("button", { onclick: askNewEntry }, "Add an entry…"), make("button", { disabled: S.set.entries.length < 2, onclick: () => edit("remove", () => S.set.entries.splice(S.entry, 1)) }, "Remove this one"),
      make("button", { disabled: S.entry === 0 || S.entry === S.set.entries.length - 1, title: "From the entries beside it", onclick: () => edit("interpolate", () => { entryNow().values = between(S.entry - 1, S.entry + 1, entryNow().gain); }) }, "Interpolate"),
      make("button", { disabled: S.set.entries.length < 2, onclick: () => edit("copy", () => { const to = Math.min(S.entry + 1, S.set.entries.length - 1); if (to !== S.entry) S.set.entries[to].values = entryNow().values.slice(); }) }, "Copy to next")),
    make("h2", {}, "Over gain"), make("div", { class: "bar" }, selector, make("button", { onclick: smoothed, title: "Each entry becomes the mean of itself, twice, and its neighbours" }, "Smooth")),
    chart([{ colour: "var(--soft)", dashed: true, dots: true, name: "saved", points: S.saved.entries.map(e => [e.gain, e.values[curveField]]) },
      { colour: "var(--accent)", dots: true, name: "now", points: S.set.entries.map(e => [e.gain, e.values[curveField]]) }],
    { logX: true, ticks: S.set.entries.map(e => e.gain), xLabel: "gain", mark: undefined, title: "a field over gain" }),
    make("h2", {}, "Changed since it was saved"),
    differences.length ? make("div", { class: "wide" }, make("table", {}, make("tr", {}, ...["", "field", "saved", "now"].map(t => make("th", {}, t))), ...differences)) : make("p", { class: "soft" }, "Nothing."));
}
// Whole numbers between two entries, linear in stops; what is a choice keeps the nearer entry's.
function between(low, high, gain) {
  const a = S.set.entries[low], b = S.set.entries[high];
  const t = Math.log2(gain / a.gain) / Math.log2(b.gain / a.gain);
  return a.values.map((v, i) => {
    const w = wordsOf(S.fields[i]);
    if (w.choices || w.unused || S.fields[i].key === "layer" || S.fields[i].key === "step") return t <= 0.5 ? v : b.values[i];
    return Math.round(v + (b.values[i] - v) * t);
  });
}
function smooth(field) {
  const e = S.set.entries, old = e.map(x => x.values[field]);
  if (wordsOf(S.fields[field]).choices) return;
  for (let i = 1; i + 1 < e.length; ++i) e[i].values[field] = Math.round((old[i - 1] + 2 * old[i] + old[i + 1]) / 4);
}
function askNewEntry() {
  const gain = make("input", { type: "number", min: 0.01, step: "any", required: true, "aria-label": "Gain" });
  ask("Add an entry", [make("label", {}, "for gain ", gain), make("p", { class: "soft" }, "It starts between the entries beside it.")], "Add", () => {
    const g = Number(gain.value);
    if (!(g > 0) || !isFinite(g)) return "A gain is a number above 0.";
    if (S.set.entries.some(e => e.gain === g)) return "There is an entry of this gain.";
    edit("add", () => {
      const at = S.set.entries.findIndex(e => e.gain > g), list = S.set.entries;
      const v = at < 0 ? list[list.length - 1].values.slice() : at === 0 ? list[0].values.slice() : between(at - 1, at, g);
      list.splice(at < 0 ? list.length : at, 0, { gain: g, values: v });
      S.entry = list.findIndex(e => e.gain === g);
    });
  });
}
function askSaveAs() {
  const name = make("input", { type: "text", required: true, value: S.file.split("/").pop() || "set.json", "aria-label": "File name" });
  ask("Save as", [make("label", {}, "in the set's directory ", name)], "Save", () => {
    if (!/^[^\/\0.][^\/\0]*\.json$/.test(name.value)) return "A plain file name that ends in .json, please.";
    save(name.value, false);
  });
}
function ask(title, content, button, action) {
  const fault = make("p", { class: "bad", role: "alert" }), dialog = $("dialog");
  const form = make("form", { method: "dialog", onsubmit: e => {
    const wrong = action();
    if (wrong) { e.preventDefault(); fault.textContent = wrong; }
  } }, make("strong", {}, title), ...content, fault,
  make("div", { class: "buttons" }, make("button", { type: "button", onclick: () => dialog.close() }, "Cancel"), make("button", { class: "main" }, button)));
  dialog.replaceChildren(form);
  dialog.showModal();
}
