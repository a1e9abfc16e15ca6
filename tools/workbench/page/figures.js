// ---- figures beside the picture --------------------------------------------------------------------
let figuresRun = 0, figuresTimer = 0;
const figuresCache = { before: {} };
function figuresSoon() {
  clearTimeout(figuresTimer);
  ++figuresRun;
  if ($("figures").hidden) return;
  figuresTimer = setTimeout(showFigures, 160);
}
const gainOf = (after, before) => {
  if (after === null || before === null || after === undefined || before === undefined) return "";
  return make("span", { class: after >= before ? "good" : "bad" }, (after >= before ? "+" : "−") + Math.abs(after - before).toFixed(2));
};
const panels = { quality: "Quality against the clean picture", patch: "Patch", meter: "Noise over brightness, grey levels",
  weighing: "Weights of a block", all: "All pictures" };
function buildFigures() {
  $("figures").replaceChildren(...Object.entries(panels).map(([id, title]) =>
    make("section", { id }, make("h2", {}, title), make("div", { class: "wide" }))));
  panel("patch").before(make("p", { id: "regions", hidden: true }, "The test chart: ", make("span", { class: "group" },
    ...chartParts.map(([kind, text, key]) => make("button", { "data-kind": kind, title: `${text} (${key}); again for the next`, onclick: () => markRegion(kind) }, text)))));
  $("all").hidden = S.pictures.length < 2;
  panel("all").replaceChildren(make("button", { onclick: allPictures }, "Measure all"));
}
const panel = id => $(id).lastChild;
async function showFigures() {
  const run = figuresRun, picture = S.picture, v = values();
  const current = () => run === figuresRun;
  try {
    if (S.pictures[picture].clean) {
      const fast = await call("figures", { picture, values: v, before: !figuresCache.before[picture] });
      if (!current()) return;
      if (fast.before) figuresCache.before[picture] = fast.before;
      quality(figuresCache.before[picture], fast.after);
    } else panel("quality").replaceChildren(make("p", { class: "soft" }, "No clean version was named (--clean); below is what the noise meter finds."));
    await showPatch(current);
    if (!current()) return;
    await new Promise(r => setTimeout(r, 350));
    if (!current()) return;
    const noise = await call("noise", { picture, values: v });
    if (!current()) return;
    const line = (name, of, key) => ({ name, colour: colours[of], dashed: key !== "y", points: noise[of].classes.map(k => [k.brightness, k[key] < 0 ? null : k[key]]) });
    panel("meter").replaceChildren(
      chart([line("luma before", "before", "y"), line("luma after", "after", "y"), line("U before", "before", "u"), line("U after", "after", "u")],
        { low: 0, xLabel: "brightness", title: "noise over brightness" }));
    if (S.pictures[picture].clean) {
      const slow = await call("figures", { picture, values: v, slow: true, before: !(figuresCache.before[picture].ssim_y) });
      if (!current()) return;
      if (slow.before) figuresCache.before[picture] = slow.before;
      quality(figuresCache.before[picture], slow.after);
    }
  } catch (e) { report("figures", e); }
}
function quality(before, after) {
  const line = (name, key, digits) => before[key] === undefined && after[key] === undefined ? null :
    make("tr", {}, make("td", {}, name), make("td", {}, number(before[key], digits)), make("td", {}, number(after[key], digits)),
      make("td", {}, key === "lost_texture" || key === "shift_y" ? "" : gainOf(after[key], before[key])));
  panel("quality").replaceChildren(make("table", {},
    make("tr", {}, make("th", {}, ""), make("th", {}, "before"), make("th", {}, "after"), make("th", {}, "")),
    line("PSNR Y, dB", "psnr_y", 2), line("PSNR U, dB", "psnr_u", 2), line("PSNR V, dB", "psnr_v", 2), line("SSIM Y", "ssim_y", 4),
    line("texture lost", "lost_texture", 3), line("mean shift Y", "shift_y", 2)));
}
// Parts of the test chart, found in a picture by what it shows; none in other pictures.
const chartParts = [["grey", "Grey", "G"], ["edge", "Edge", "E"], ["leaves", "Leaves", "T"]];
const regionsOf = async index => (S.pictures[index].regions = S.pictures[index].regions || (await call("regions", { picture: index })).regions);
const placeOf = ({ x, y, width, height }) => ({ x, y, width, height });
const samePlace = (a, b) => a && b && ["x", "y", "width", "height"].every(k => a[k] === b[k]);
function showRegions() {
  const regions = S.pictures[S.picture].regions || [];
  $("regions").hidden = !regions.length;
  for (const b of $("regions").querySelectorAll("button")) {
    const own = regions.filter(r => r.kind === b.dataset.kind);
    b.disabled = !own.length;
    b.setAttribute("aria-pressed", String(own.some(r => samePlace(r, S.patch))));
  }
}
// Marks a part of this kind: a middle grey, the strongest edge, the coloured leaves; then the next one.
function markRegion(kind) {
  const list = (S.pictures[S.picture].regions || []).filter(r => r.kind === kind);
  if (!list.length) { hint(`This picture is no test chart with ${kind === "grey" ? "grey patches" : kind === "edge" ? "a slanted edge" : "dead leaves"} of a size to measure.`); return; }
  const at = list.findIndex(r => samePlace(r, S.patch));
  S.patch = placeOf(list[at >= 0 ? (at + 1) % list.length : kind === "grey" ? list.length >> 1 : 0]);
  openTab("figures");
  changed("patch");
}
async function showPatch(current) {
  const box = panel("patch");
  if (!S.patch) {
    box.replaceChildren(make("p", { class: "soft" }, "Mark a part of the picture (Patch, or Shift and drag): a flat one for mean, deviation and spectrum, a slanted edge, or texture."));
    return;
  }
  const f = await call("patch", { picture: S.picture, values: values(), ...S.patch });
  if (!current()) return;
  const names = ["before", "after", "clean"].filter(n => f[n]);
  const cells = of => names.map(n => make("td", {}, of(f[n])));
  const table = make("table", {}, make("tr", {}, make("th", {}, `${S.patch.width}×${S.patch.height}`), ...names.map(n => make("th", {}, n))),
    ...["y", "u", "v"].map(c => make("tr", {}, make("td", {}, c.toUpperCase() + " mean ± dev."), ...cells(p => `${number(p[c].mean, 1)} ± ${number(p[c].deviation, 2)}`))));
  if (!f.before.edge && !f.after.edge) table.append(make("tr", {}, make("td", { colspan: names.length + 1, class: "soft" }, "no single slanted edge in it")));
  else {
    const edge = key => cells(p => p.edge ? number(p.edge[key], key === "height" ? 0 : 3) : "no edge");
    table.append(make("tr", {}, make("td", {}, "edge ½, cycles/px"), ...edge("half")),
      make("tr", {}, make("td", {}, "edge ⅒"), ...edge("tenth")), make("tr", {}, make("td", {}, "edge height"), ...edge("height")));
  }
  const curves = [table];
  const spectrum = (key, of) => names.filter(n => f[n][key] && f[n][key].length).map(n => ({ name: n, colour: colours[n], points: f[n][key].map((v, i) => [i / of, v !== null && v < 0 ? null : v]) }));
  const decades = l => ({ ...l, points: l.points.map(([x, v]) => [x, v > 0 ? Math.log10(Math.max(v, 1e-3)) : null]) });  // below is rounding
  if (f.before.spectrum.length) curves.push(make("p", { class: "soft" }, "Power spectrum, grey levels², logarithmic"), chart(spectrum("spectrum", 32).map(decades), { logY: true, xLabel: "cycles per pixel", title: "noise power spectrum" }));
  else curves.push(make("p", { class: "soft" }, "The spectrum needs 32×32 pixels or more."));
  if (f.after.texture && f.after.texture.length) curves.push(make("p", { class: "soft" }, "Texture kept, share of the clean picture's"), chart(spectrum("texture", 32).filter(l => l.name !== "clean"), { low: 0, high: 1.2, xLabel: "cycles per pixel", title: "texture transfer" }));
  if (f.before.edge || f.after.edge) curves.push(make("p", { class: "soft" }, "Contrast of the edge"),
    chart(names.filter(n => f[n].edge).map(n => ({ name: n, colour: colours[n], points: f[n].edge.transfer.map((v, i) => [i / 64, v]) })), { low: 0, high: 1.2, xLabel: "cycles per pixel", title: "contrast transfer" }));
  box.replaceChildren(...curves);
}
function showWeights() {
  const box = panel("weighing");
  const b = S.block;
  if (!S.weighing || !b) { box.replaceChildren(make("p", { class: "soft" }, "Press Weights and point at the picture: what the 4×4 block there takes from its neighbours, on the level in view.")); return; }
  if (!b.window) { box.replaceChildren(make("p", { class: "soft" }, `Level ${b.level} is only copied with this tuning.`)); return; }
  const grid = make("div", { class: "weights", style: `grid-template-columns: repeat(${b.window}, 1fr)` });
  b.weight.forEach((w, i) => {
    const unused = b.distance[i] < 0;
    grid.append(make("span", { title: unused ? "not looked at" : `distance ${b.distance[i]}, weight ${w} of 256`,
      style: unused ? "opacity:.25" : `background: color-mix(in srgb, var(--accent) ${Math.round(Math.min(w, 256) / 2.56)}%, transparent)` }, unused ? "·" : String(w)));
  });
  const total = b.weight.reduce((a, w) => a + w, 0);
  box.replaceChildren(grid, make("p", { class: "soft" }, `Block at ${b.x}, ${b.y} of level ${b.level}; window ${b.window}, mask ${b.mask}; the block itself weighs 256 of ${total}.`));
}
// All pictures, each with the entry of its own gain; edge and texture where the picture is the test chart.
async function chartCells(index, values) {
  const regions = await regionsOf(index), cells = [];
  const of = async kind => {
    const region = regions.find(r => r.kind === kind);
    return region ? call("patch", { picture: index, values, ...placeOf(region) }) : null;
  };
  const edge = await of("edge"), leaves = await of("leaves");
  for (const key of ["half", "tenth"])
    cells.push(edge ? ["before", "after"].map(n => edge[n].edge ? number(edge[n].edge[key], 2) : "–").join(" → ") : "–");
  cells.push(leaves && leaves.after.texture.length ? number(leaves.after.texture[8], 2) : "–");
  return cells.map(c => make("td", {}, c));
}
let allRun = 0;
async function allPictures() {
  const run = ++allRun, box = panel("all");
  const table = make("table", {}, make("tr", {}, ...[["picture"], ["entry"], ["Y before", "PSNR, dB"], ["Y after", "PSNR, dB"], [""], ["UV after", "PSNR, dB"], ["edge ½", "cycles per pixel where the edge's contrast falls to a half"],
    ["edge ⅒", "cycles per pixel where the edge's contrast falls to a tenth"], ["texture ¼", "share of the dead leaves kept at a quarter of a cycle per pixel"]].map(([t, title]) => make("th", { title }, t))));
  box.replaceChildren(table);
  for (const [i, p] of S.pictures.entries()) {
    if (run !== allRun) return;
    const entry = p.gain ? S.set.entries.reduce((a, b) => Math.abs(Math.log2(b.gain / p.gain)) < Math.abs(Math.log2(a.gain / p.gain)) ? b : a) : entryNow();
    try {
      if (!p.clean && !(await regionsOf(i)).length) continue;
      const f = p.clean ? await call("figures", { picture: i, values: entry.values, before: true }) : { before: {}, after: {} };
      const cells = await chartCells(i, entry.values), uv = p.clean ? (f.after.psnr_u + f.after.psnr_v) / 2 : null;
      if (run !== allRun) return;
      table.append(make("tr", { class: i === S.picture ? "current" : "" }, make("td", {}, p.name), make("td", {}, "gain " + entry.gain), make("td", {}, number(f.before.psnr_y, 2)),
        make("td", {}, number(f.after.psnr_y, 2)), make("td", {}, gainOf(f.after.psnr_y, f.before.psnr_y)), make("td", {}, number(uv, 2)), ...cells));
    } catch (e) { table.append(make("tr", {}, make("td", {}, p.name), make("td", { class: "bad", colspan: 8 }, e.message))); }
  }
}
