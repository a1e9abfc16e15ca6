// ---- what the tuning page says of each parameter ---------------------------------------------------
// Rows "| `field` | unit | range | in short |" and the first sentences under "### `field`".
const words = (() => {
  const text = $("words").textContent, out = {};
  let half = "luma";
  for (const line of text.split("\n")) {
    if (/^## Chroma/.test(line)) half = "chroma";
    if (/^## From/.test(line)) break;
    const cells = line.split("|").map(c => c.trim());
    if (cells.length < 6 || !cells[1].startsWith("`")) continue;
    for (const name of cells[1].match(/`[^`]+`/g)) {
      const key = name.replace(/`/g, "").replace(/\[.*/, "");
      out[half + key] = { unit: cells[2] === "-" ? "" : cells[2], short: cells[4].replace(/`/g, ""), ...rangeOf(cells[3]) };
    }
  }
  const sections = text.split(/^### /m).slice(1);
  for (const section of sections) {
    const [head, ...body] = section.split("\n");
    const prose = body.join(" ").split(/!\[|\n## /)[0].replace(/Strips?:.*$/s, "").replace(/`/g, "").trim();
    for (const name of head.match(/`[^`]+`/g) || []) {
      const key = name.replace(/[`]/g, "").replace(/\[.*/, "");
      for (const side of ["luma", "chroma"]) if (out[side + key] && !out[side + key].long) out[side + key].long = prose;
    }
  }
  return out;

  function rangeOf(text) {
    const list = text.match(/^-?\d+(, -?\d+)+$/);
    if (list) return { choices: text.split(",").map(Number) };
    const range = text.match(/(-?\d+)\.\.~?(-?\d+)/);
    return range ? { low: Number(range[1]), high: Number(range[2]) } : { unused: true };
  }
})();
const wordsOf = f => words[(f.luma ? "luma" : "chroma") + f.key] || { unused: true, short: "" };
