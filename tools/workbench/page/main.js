// ---- putting it together ---------------------------------------------------------------------------
function group(id, list, get, set) {
  const box = $(id);
  box.replaceChildren(...list.map(([value, text, hint]) => make("button", { title: hint, "data-value": value, onclick: () => { set(value); changed("view"); } }, text)));
  box.refresh = () => [...box.children].forEach(b => b.setAttribute("aria-pressed", String(b.dataset.value === String(get()))));
}
const modes = [["slider", "Slider", "Slider between two versions (S)"], ["side", "Side by side", "Side by side (D)"], ["before", "Before", "As it came in (1)"], ["after", "After", "Denoised (2)"],
  ["clean", "Clean", "The clean version (3)"], ["change", "Change", "After less before, amplified (4)"], ["leftover", "Left over", "After less clean, amplified (5)"], ["detail", "Detail", "What the level's filter changes (6)"], ["mask", "Mask", "Strength by position (7)"]];
function buildView() {
  const v = S.view, clean = S.pictures[S.picture].clean;
  group("modes", modes.filter(m => clean || (m[0] !== "clean" && m[0] !== "leftover")), () => v.mode, m => { v.mode = m; if (m === "side" || m === "slider") v.zoom || centre(); });
  group("channels", [["rgb", "RGB"], ["y", "Y"], ["u", "U"], ["v", "V"]], () => v.channel, c => { v.channel = c; });
  group("zooms", [[0, "Fit", "Fit (0)"], [1, "1:1", "1:1 (F)"], [2, "2:1"], [4, "4:1"], [8, "8:1"]], () => v.zoom, z => zoomTo(z));
  const sides = ["before", "after", ...(clean ? ["clean"] : [])];
  for (const id of ["left", "right"]) $(id).replaceChildren(...sides.map(s => make("option", { selected: v[id] === s }, s)));
  if (!clean && ["clean", "leftover"].includes(v.mode)) v.mode = "slider";
}
function showAll(what) {
  ["modes", "channels", "zooms"].forEach(id => $(id).refresh());
  $("amplifyLabel").hidden = !["change", "leftover", "detail"].includes(S.view.mode);
  $("picture").value = S.picture;
  $("entry").replaceChildren(...S.set.entries.map((e, i) => make("option", { value: i, selected: i === S.entry }, String(e.gain))));
  $("undo").disabled = !S.undo.length;
  $("redo").disabled = !S.redo.length;
  $("flip").disabled = $("takeB").disabled = !S.b;
  $("flip").textContent = S.showB ? "B" : "A";
  $("flip").setAttribute("aria-pressed", String(S.showB));
  $("file").textContent = (S.file || "built-in set") + (isDirty() ? ", not saved" : "");
  document.title = (isDirty() ? "● " : "") + (S.set.name || "set") + " – workbench";
  $("patchTool").setAttribute("aria-pressed", String(S.marking));
  $("weightTool").setAttribute("aria-pressed", String(S.weighing));
  canvas.classList.toggle("marking", S.marking || S.weighing);
  showParameters();
  showRegions();
  if (what !== "view") { showSet(); showSearch(); figuresSoon(); }
  if (what === "block") showWeights();
  refresh();
  readout();
}
listeners.push(showAll);

async function openPicture(index) {
  S.picture = index;
  S.patch = S.block = null;
  ["view", "picture", "figures"].forEach(drop);  // faults of the picture before
  try {
    const size = await call("size", { picture: index });
    if (S.picture !== index) return;  // another one was chosen meanwhile
    S.pictures[index].gain = S.pictures[index].gain || size.gain;
    const same = S.size && S.size.width === size.width && S.size.height === size.height;
    S.size = { width: size.width, height: size.height };
    if (!same) { S.view.zoom = 0; centre(); }
  } catch (e) {
    if (S.picture !== index) return;
    report("view", e);
  }
  const gain = S.pictures[index].gain;
  if (gain) S.entry = S.set.entries.reduce((best, e, i) => Math.abs(Math.log2(e.gain / gain)) < Math.abs(Math.log2(S.set.entries[best].gain / gain)) ? i : best, 0);
  buildView();
  changed("picture");
  regionsOf(index).then(showRegions, () => {});  // a picture that cannot be read has said so
}
function openTab(name) {
  for (const t of ["parameters", "figures", "set", "search"]) {
    $(t).hidden = t !== name;
    $("tab-" + t).setAttribute("aria-selected", String(t === name));
    $("tab-" + t).tabIndex = t === name ? 0 : -1;
  }
  showSet();
  showSearch();
  figuresSoon();
  if (name === "figures") showWeights();
}
// What both tools find stands among the figures.
function markPatch() { S.marking = !S.marking; if (S.marking) openTab("figures"); changed("view"); }
function weighBlocks() { S.weighing = !S.weighing; if (S.weighing) openTab("figures"); changed("block"); }
function flip() { if (S.b) { S.showB = !S.showB; changed("values"); } }
function keepB() {
  const name = make("input", { type: "text", value: S.b ? S.b.name : "before this", "aria-label": "Name" });
  ask("Keep these numbers as B", [make("label", {}, "name ", name)], "Keep", () => { S.b = { name: name.value || "B", values: values().slice() }; S.showB = false; keepSoon(); changed("values"); });
}
function hint(text) { note("hint", text, []); setTimeout(() => drop("hint"), 3000); }
const keys = [
  ["Z / Y", "undo, redo"], ["B", "flip between A and B"], ["K", "keep these numbers as B"], ["Ctrl S", "save"], ["[ ]", "entry of the gain before, after"],
  ["N / Shift N", "next picture, the one before"], ["1 … 7", "before, after, clean, change, left over, detail, mask"], ["S / D", "slider, side by side"], ["0 / F", "fit, 1:1"],
  ["+ −", "closer, further"], ["arrows", "move the picture"], [", .", "move the divider"], ["C", "next channel"], ["L", "next pyramid level"], ["P", "mark a patch"], ["G / E / T", "grey, edge, leaves of the test chart; again for the next"], ["W", "weights of the block under the pointer"], ["Space", "hold: left and right swapped"]];
function showKeys() {
  const dialog = $("dialog");
  dialog.replaceChildren(make("form", { method: "dialog" }, make("strong", {}, "Keys"),
    make("dl", {}, ...keys.flatMap(([k, t]) => [make("dt", {}, make("kbd", {}, k)), make("dd", {}, t)])), make("div", { class: "buttons" }, make("button", { class: "main" }, "Close"))));
  dialog.showModal();
}
let swapped = false;
function swapSides(on) {
  if (on === swapped) return;
  swapped = on;
  [S.view.left, S.view.right] = [S.view.right, S.view.left];
  changed("view");
}
document.addEventListener("keydown", e => {
  if ((e.ctrlKey || e.metaKey) && e.key.toLowerCase() === "s") { e.preventDefault(); S.file ? save() : askSaveAs(); return; }
  if (e.ctrlKey || e.metaKey || e.altKey || $("dialog").open) return;
  const typing = /^(INPUT|SELECT|TEXTAREA)$/.test(e.target.tagName), sliding = e.target.type === "range";
  if (typing && !(sliding && !/^(Arrow|Home|End|Page)/.test(e.key))) return;
  const v = S.view, moves = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
  const act = {
    z: () => travel(S.undo, S.redo), y: () => travel(S.redo, S.undo), b: flip, k: keepB, "?": showKeys,
    "[": () => { S.entry = Math.max(0, S.entry - 1); changed("values"); }, "]": () => { S.entry = Math.min(S.set.entries.length - 1, S.entry + 1); changed("values"); },
    n: () => openPicture((S.picture + 1) % S.pictures.length), N: () => openPicture((S.picture + S.pictures.length - 1) % S.pictures.length),
    s: () => { v.mode = "slider"; changed("view"); }, d: () => { v.mode = "side"; changed("view"); }, 0: () => zoomTo(0), f: () => zoomTo(1),
    "+": () => zoomBy(1), "=": () => zoomBy(1), "-": () => zoomBy(-1), ",": () => { v.split = Math.max(0, v.split - 0.02); paint(); }, ".": () => { v.split = Math.min(1, v.split + 0.02); paint(); },
    c: () => { v.channel = { rgb: "y", y: "u", u: "v", v: "rgb" }[v.channel]; changed("view"); }, l: () => { v.level = (v.level + 1) % 5; $("level").value = v.level; changed("view"); },
    p: markPatch, g: () => markRegion("grey"), e: () => markRegion("edge"), t: () => markRegion("leaves"), w: weighBlocks, " ": () => swapSides(true),
  };
  ["before", "after", "clean", "change", "leftover", "detail", "mask"].forEach((m, i) => { act[i + 1] = () => {
    if (!$("modes").querySelector(`[data-value=${m}]`)) { hint("This picture has no clean version (--clean)."); return; }
    v.mode = m;
    changed("view");
  }; });
  if (moves[e.key] && (e.target === canvas || e.target === document.body)) {
    const [dx, dy] = moves[e.key], step = (e.shiftKey ? 0.5 : 0.1) / scaleNow();
    if (!v.zoom) v.zoom = scaleNow();
    v.cx += dx * step * canvas.width; v.cy += dy * step * canvas.height;
    clampCentre();
    e.preventDefault();
    changed("view");
  } else if (act[e.key]) {
    if (e.key === " " && e.target.tagName === "BUTTON") return;
    e.preventDefault();
    act[e.key]();
  }
});
document.addEventListener("keyup", e => { if (e.key === " ") swapSides(false); });
document.querySelector(".tabs").addEventListener("keydown", e => {
  const names = ["parameters", "figures", "set", "search"], at = names.indexOf(document.activeElement.dataset.tab);
  if (e.key !== "ArrowRight" && e.key !== "ArrowLeft") return;
  const next = names[(at + (e.key === "ArrowRight" ? 1 : 3)) % 4];
  openTab(next);
  $("tab-" + next).focus();
});
window.addEventListener("beforeunload", e => { if (isDirty() && lost) e.preventDefault(); });

const on = (id, event, action) => $(id).addEventListener(event, action);
on("undo", "click", () => travel(S.undo, S.redo));
on("redo", "click", () => travel(S.redo, S.undo));
on("flip", "click", flip);
on("keepB", "click", keepB);
on("takeB", "click", () => edit("take", () => { entryNow().values = S.b.values.slice(); }));
on("save", "click", () => S.file ? save() : askSaveAs());
on("saveAs", "click", askSaveAs);
on("help", "click", showKeys);
on("export", "change", e => { if (e.target.value) exportAs(e.target.value); e.target.value = ""; canvas.focus(); });
on("picture", "change", e => openPicture(Number(e.target.value)));
on("entry", "change", e => { S.entry = Number(e.target.value); changed("values"); });
on("left", "change", e => { S.view.left = e.target.value; changed("view"); });
on("right", "change", e => { S.view.right = e.target.value; changed("view"); });
on("level", "change", e => { S.view.level = Number(e.target.value); changed("view"); });
on("amplify", "change", e => { S.view.amplify = Number(e.target.value); changed("view"); });
on("patchTool", "click", markPatch);
on("weightTool", "click", weighBlocks);
document.querySelectorAll("[role=tab]").forEach(t => t.addEventListener("click", () => openTab(t.dataset.tab)));
const root = document.documentElement;
function setTheme(name) { root.dataset.theme = name; }
setTheme(matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light");
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", e => setTheme(e.matches ? "dark" : "light"));
on("theme", "click", () => setTheme(root.dataset.theme === "dark" ? "light" : "dark"));

(async function start() {
  let state;
  try { state = await call("state"); } catch (e) { report("start", e); return; }
  Object.assign(S, { pictures: state.pictures, fields: state.fields, set: state.set, saved: clone(state.set), file: state.file });
  $("picture").replaceChildren(...S.pictures.map((p, i) => make("option", { value: i }, p.name)));
  buildParameters();
  buildView();
  buildFigures();
  openTab("parameters");
  await openPicture(0);
  if (state.draft && state.draft.set && JSON.stringify(state.draft.set) !== JSON.stringify(S.set))
    note("draft", "Work that was not saved last time was kept.", [["Take it up", () => {
      edit("draft", () => { S.set = state.draft.set; S.b = state.draft.b || null; });
    }], ["Drop it", () => call("drop").catch(e => report("keep", e))]]);
  searchState = await call("search/state").catch(() => ({ phase: "idle" }));
  if (searchState.phase === "running") followSearch();
})();
