// ---- what is worked on, its history, and the calls to the program ---------------------------------
const $ = id => document.getElementById(id);
const make = (tag, attributes, ...children) => {
  const e = document.createElement(tag);
  for (const [k, v] of Object.entries(attributes || {}))
    k === "class" ? e.className = v : k.startsWith("on") ? e.addEventListener(k.slice(2), v) : v === true ? e.setAttribute(k, "") :
      v !== false && v !== null && v !== undefined && e.setAttribute(k, v);
  e.append(...children.filter(c => c !== null && c !== undefined));
  return e;
};
const clone = v => JSON.parse(JSON.stringify(v));
const number = (v, digits) => v === null || v === undefined ? "–" : Number(v).toFixed(digits);

const S = {
  pictures: [], fields: [], set: null, saved: null, file: "",
  picture: 0, entry: 0, b: null, showB: false,
  undo: [], redo: [],
  view: { mode: "slider", left: "before", right: "after", channel: "rgb", level: 0, amplify: 8, zoom: 0, cx: 0, cy: 0, split: 0.5 },
  size: null, patch: null, marking: false, weighing: false,
};
const entryNow = () => S.set.entries[S.entry];
const values = () => S.showB && S.b ? S.b.values : entryNow().values;
const fieldIndex = (key, level) => S.fields.findIndex(f => f.key === key && f.level === level);
const listeners = [];
const changed = what => { for (const f of listeners) f(what); };

class Fault extends Error {}
let lost = false;
async function call(name, body, raw) {
  let response;
  try {
    response = await fetch(name, { method: "POST", body: JSON.stringify(body || {}) });
  } catch (e) {
    connectionLost();
    throw new Fault("the program does not answer");
  }
  if (lost && response.status !== 404) connectionBack();
  if (!response.ok) {
    if (response.status === 404) { startedAnew(); throw new Fault("the program does not answer"); }
    let what = "the program answered " + response.status;
    try { what = (await response.json()).fault || what; } catch (e) { /* not one of ours */ }
    throw new Fault(what);
  }
  return raw ? response : response.json();
}

// Notes above the picture; one of each kind, so that a fault that stays does not pile up.
function note(kind, text, buttons, bad) {
  drop(kind);
  for (const other of document.querySelectorAll(".note")) if (other.firstChild.textContent === text) other.remove();
  const box = make("div", { class: bad ? "note bad" : "note", "data-kind": kind }, make("span", {}, text));
  for (const [label, action] of buttons || []) box.append(make("button", { onclick: () => { drop(kind); action(); } }, label));
  box.append(make("button", { "aria-label": "Close", onclick: () => drop(kind) }, "×"));
  $("notes").append(box);
}
const drop = kind => document.querySelectorAll(`.note[data-kind="${kind}"]`).forEach(e => e.remove());
const keepCopy = ["Keep a copy of the set", () => download("set.json", JSON.stringify(S.set, null, 1))];
const report = (kind, e) => { if (!(e instanceof Fault) || e.message !== "the program does not answer") note(kind, e.message, [], true); };

function connectionLost() {
  if (lost) return;
  lost = true;
  note("connection", "The program does not answer. What you changed stays in this page.", [keepCopy], true);
  setTimeout(async function again() {
    try { await call("state"); } catch (e) { setTimeout(again, 1500); }
  }, 1500);
}
// Every run has an address of its own: another one at the same port knows nothing of this page.
function startedAnew() {
  lost = true;
  if (!document.querySelector("[data-kind=anew]"))
    note("anew", "The program was started anew: open the address that it printed. What was kept on disk is offered there; changes since then are in this page alone.", [keepCopy], true);
  drop("connection");
}
function connectionBack() {
  lost = false;
  drop("connection");
  keepSoon();
  changed("values");
}

// Every change of the set goes through here. Changes of one thing in quick succession are one step.
let lastEdit = { what: "", at: 0 };
function edit(what, action) {
  const now = performance.now();
  if (S.showB) { S.showB = false; note("flip", "You changed A: B stays as it was kept.", []); }
  if (what !== lastEdit.what || now - lastEdit.at > 900) S.undo.push({ what, set: clone(S.set), entry: S.entry });
  lastEdit = { what, at: now };
  S.redo = [];
  action();
  S.entry = Math.min(S.entry, S.set.entries.length - 1);
  keepSoon();
  changed(what.startsWith("value") ? "values" : "set");
}
function travel(from, to) {
  const step = from.pop();
  if (!step) return;
  to.push({ what: step.what, set: clone(S.set), entry: S.entry });
  S.set = step.set;
  S.entry = step.entry;
  lastEdit = { what: "", at: 0 };
  keepSoon();
  changed("set");
}
const setValue = (index, v) => edit("value " + index + " " + S.entry, () => { entryNow().values[index] = v; });

let keepTimer = 0;
function keepSoon() {
  clearTimeout(keepTimer);
  keepTimer = setTimeout(async () => {
    try {
      if (JSON.stringify(S.set) === JSON.stringify(S.saved) && !S.b) await call("drop");
      else await call("keep", { set: S.set, entry: S.entry, b: S.b });
      drop("keep");
    } catch (e) { if (!lost) report("keep", new Fault("Unsaved work could not be kept on disk: " + e.message)); }
  }, 600);
}

async function save(as, overwrite) {
  try {
    const answer = await call("save", { set: S.set, as: as || "", overwrite: !!overwrite });
    if (answer.conflict)
      return note("save", answer.conflict + ".", [["Write over it", () => save(as, true)], ["Save as…", askSaveAs]], true);
    S.file = answer.file;
    S.saved = clone(S.set);
    clearTimeout(keepTimer);
    note("save", "Saved to " + S.file + ".");
    setTimeout(() => drop("save"), 2500);
    changed("saved");
  } catch (e) {
    report("save", new Fault("Not saved: " + e.message + ". Nothing is lost: the set stays in this page."));
  }
}
const isDirty = () => JSON.stringify(S.set) !== JSON.stringify(S.saved);

function download(name, text, type) {
  const link = make("a", { href: URL.createObjectURL(new Blob([text], { type: type || "text/plain" })), download: name });
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
async function exportAs(kind) {
  const names = { report: "report.html", set: "set.json", dump: "tuning.txt", c: "tuning.h" };
  drop("export");
  if (kind === "report") note("export", "The report is being made…");
  try {
    const response = await call("file", { kind, set: S.set, values: values(), picture: S.picture,
      gain: entryNow().gain, label: "gain " + entryNow().gain }, true);
    download(names[kind], await response.text());
    drop("export");
  } catch (e) { report("export", e); }
}
