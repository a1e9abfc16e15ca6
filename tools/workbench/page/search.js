// ---- the tuner, from here --------------------------------------------------------------------------
let searchTimer = 0, searchState = { phase: "idle" };
function showSearch() {
  const box = $("search");
  if (box.hidden) return;
  const gain = entryNow().gain;
  const usable = [...S.pictures.entries()].filter(([, p]) => p.clean);
  const chosen = i => S.searchPictures ? S.searchPictures.includes(i) : i === S.picture || S.pictures[i].gain === gain;
  const busy = searchState.phase === "running" || searchState.phase === "stopping";
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
  if (searchState.phase !== "idle") {
    const left = searchState.done > 2 && busy ? `, about ${Math.round(searchState.seconds / searchState.done * (searchState.total - searchState.done))} s left` : "";
    parts.push(make("h2", {}, { running: "Searching", stopping: "Stopping after this line of trials", done: "Done", failed: "The search failed" }[searchState.phase]),
      make("progress", { max: Math.max(1, searchState.total), value: searchState.phase === "done" ? Math.max(1, searchState.total) : searchState.done, "aria-label": "Progress of the search" }),
      make("p", { class: searchState.phase === "failed" ? "bad" : "soft" }, `${searchState.note || ""} (${number(searchState.seconds, 0)} s${left})`));
    if (searchState.best) parts.push(make("div", { class: "buttons", style: "justify-content:flex-start" },
      make("button", { onclick: () => { S.b = { name: "search", values: searchState.best }; S.showB = true; keepSoon(); changed("values"); } }, "Look at the best so far (B)"),
      make("button", { class: "main", onclick: () => edit("search", () => { entryNow().values = searchState.best.slice(); }) }, "Take it")));
  }
  box.replaceChildren(...parts);
}
async function startSearch() {
  const box = $("search");
  for (const id of ["half", "objective", "rounds"]) S[id] = $(id).value;
  const pictures = [...box.querySelectorAll("input[type=checkbox]:checked")].map(c => Number(c.value));
  try {
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
