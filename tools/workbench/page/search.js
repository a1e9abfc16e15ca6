// ---- the tuner, from here --------------------------------------------------------------------------
let searchTimer = 0, searchState = { phase: "idle" };
function showSearch() {
  const box = $("search");
  if (box.hidden) return;
  const gain = entryNow().gain;
  const usable = [...S.pictures.entries()].filter(([, p]) => p.clean);
  const chosen = i => S.searchPictures ? S.searchPictures.includes(i) : i === S.picture || S.pictures[i].gain === gain;
  const busy = searchState.phase === "running" || searchState.phase === "stopping";
  // Buttons and choices stay the same ones while only the progress changes: a press may last longer.
  const form = JSON.stringify([gain, S.picture, searchState.phase, !!searchState.best]);
  if (box.dataset.form === form) { $("progress").replaceChildren(...progress(busy)); return; }
  box.dataset.form = form;
  const select = (id, label, list) => make("label", {}, label + " ", make("select", { id, disabled: busy }, ...list.map(([v, t]) => make("option", { value: v, selected: S[id] === v }, t))));
  const parts = [make("p", { class: "soft" }, `Searches better numbers for the entry of gain ${gain}, from where it stands now, on pictures with a clean version.`)];
  if (!usable.length) parts.push(make("p", {}, "No picture has a clean version. Start the workbench with --clean."));
  else parts.push(make("div", {}, ...usable.map(([i, p]) => make("div", {}, make("label", {}, make("input", { type: "checkbox", value: i, checked: chosen(i), disabled: busy, onchange: () => {
    S.searchPictures = [...box.querySelectorAll("input[type=checkbox]:checked")].map(c => Number(c.value));
  } }), " " + p.name)))),
  make("div", { class: "bar", style: "margin:8px 0" }, select("half", "search", [["both", "luma and chroma"], ["luma", "luma"], ["chroma", "chroma"]]),
    select("objective", "for", [["psnr", "PSNR"], ["ssim", "SSIM"], ["mix", "PSNR and texture"]]), select("rounds", "rounds", [["1", "1"], ["2", "2"], ["4", "4"]])),
  make("div", { class: "buttons", style: "justify-content:flex-start" },
    make("button", { class: "main", disabled: busy, onclick: startSearch }, "Search from here"), make("button", { disabled: searchState.phase !== "running", onclick: stopSearch }, "Stop")));
  parts.push(make("div", { id: "progress" }, ...progress(busy)));
  if (searchState.best) parts.push(make("div", { class: "buttons", style: "justify-content:flex-start" },
    make("button", { onclick: () => { S.b = { name: "search", values: searchState.best }; S.showB = true; keepSoon(); changed("values"); } }, "Look at the best so far (B)"),
    make("button", { class: "main", onclick: () => edit("search", () => { entryNow().values = searchState.best.slice(); }) }, "Take it")));
  box.replaceChildren(...parts);
}
function progress(busy) {
  if (searchState.phase === "idle") return [];
  const left = searchState.done > 2 && busy ? `, about ${Math.round(searchState.seconds / searchState.done * (searchState.total - searchState.done))} s left` : "";
  return [make("h2", {}, { running: "Searching", stopping: "Stopping after this line of trials", done: "Done", failed: "The search failed" }[searchState.phase]),
    make("progress", { max: Math.max(1, searchState.total), value: searchState.phase === "done" ? Math.max(1, searchState.total) : searchState.done, "aria-label": "Progress of the search" }),
    make("p", { class: searchState.phase === "failed" ? "bad" : "soft" }, `${searchState.note || ""} (${number(searchState.seconds, 0)} s${left})`), scores()];
}
// What the best so far gains over where the search began, on the pictures that it looks at.
let scored = { from: null, pictures: [], key: "", rows: [] };
function scores() {
  if (!searchState.best || !scored.from) return "";
  const key = JSON.stringify(searchState.best);
  if (key !== scored.key && !scored.busy) {
    Object.assign(scored, { busy: true, key });
    (async () => {
      const best = searchState.best, rows = [];
      try {
        for (const picture of scored.pictures)
          rows.push([picture, (await call("figures", { picture, values: scored.from })).after, (await call("figures", { picture, values: best })).after]);
        scored.rows = rows;
      } catch (e) { report("search", e); }
      scored.busy = false;
      showSearch();
    })();
  }
  const uv = f => (f.psnr_u + f.psnr_v) / 2;
  return make("table", {}, make("tr", {}, ...["PSNR, dB", "Y", "", "UV", ""].map(t => make("th", {}, t))),
    ...scored.rows.map(([i, a, b]) => make("tr", {}, make("td", {}, S.pictures[i].name), make("td", {}, number(b.psnr_y, 2)), make("td", {}, gainOf(b.psnr_y, a.psnr_y)),
      make("td", {}, number(uv(b), 2)), make("td", {}, gainOf(uv(b), uv(a))))));
}
async function startSearch() {
  const box = $("search");
  for (const id of ["half", "objective", "rounds"]) S[id] = $(id).value;
  const pictures = [...box.querySelectorAll("input[type=checkbox]:checked")].map(c => Number(c.value));
  try {
    scored = { from: values().slice(), pictures, key: "", rows: [] };
    searchState = await call("search/start", { pictures, values: values(), half: S.half, objective: S.objective, rounds: Number(S.rounds) });
    drop("search");
    followSearch();
  } catch (e) { report("search", e); }
  showSearch();
}
async function stopSearch() {
  try { searchState = await call("search/stop"); } catch (e) { report("search", e); }
  showSearch();
}
async function followSearch() {
  clearTimeout(searchTimer);
  try {
    const before = searchState;
    searchState = await call("search/state");
    if (before.phase !== searchState.phase && searchState.phase === "done") note("search", "The search has ended: " + searchState.note + ".", [["Look at it", () => openTab("search")]]);
  } catch (e) { if (!lost) report("search", e); }
  showSearch();
  if (searchState.phase === "running" || searchState.phase === "stopping") searchTimer = setTimeout(followSearch, 500);
}
