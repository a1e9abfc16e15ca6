// ---- small line charts -----------------------------------------------------------------------------
// lines: [{ name, colour, points: [[x, y], ...], dots }]. Values that are null leave a gap. logY: y is
// log10 of what the axis tells.
function chart(lines, options) {
  const o = { width: 360, height: 150, left: 38, right: 8, top: lines.some(l => l.name) ? 20 : 8, bottom: 24, ...options };
  let legend = o.left;
  const points = lines.flatMap(l => l.points.filter(p => p[1] !== null && isFinite(p[1])));
  const svg = tagged("svg", { viewBox: `0 0 ${o.width} ${o.height}`, role: "img", "aria-label": o.title || "chart" });
  if (!points.length) return svg;
  const power = v => v >= 4 || v <= -2 ? (10 ** v).toExponential(1).replace("+", "") : Number((10 ** v).toPrecision(2)).toString();
  const fx = o.logX ? v => Math.log2(v) : v => v;
  const range = (list, low, high) => {
    let a = low ?? Math.min(...list), b = high ?? Math.max(...list);
    if (a === b) { a -= 0.5; b += 0.5; }
    return [a, b];
  };
  const [x0, x1] = range(points.map(p => fx(p[0]))), [y0, y1] = range(points.map(p => p[1]), o.low, o.high);
  const px = v => o.left + (fx(v) - x0) / (x1 - x0) * (o.width - o.left - o.right);
  const py = v => o.height - o.bottom - (Math.min(Math.max(v, y0), y1) - y0) / (y1 - y0) * (o.height - o.top - o.bottom);
  for (let i = 0; i <= 3; ++i) {
    const y = y0 + (y1 - y0) * i / 3;
    svg.append(tagged("line", { x1: o.left, x2: o.width - o.right, y1: py(y), y2: py(y), stroke: "var(--line)" }),
      tagged("text", { x: o.left - 4, y: py(y) + 3, "text-anchor": "end" }, o.logY ? power(y) : short(y, y1 - y0)));
  }
  const ticks = o.ticks || [0, 1, 2, 3, 4].map(i => o.logX ? 2 ** (x0 + (x1 - x0) * i / 4) : x0 + (x1 - x0) * i / 4);
  for (const x of ticks) svg.append(tagged("text", { x: px(x), y: o.height - o.bottom + 12, "text-anchor": "middle" }, short(x, o.logX ? x : x1 - x0)));
  if (o.xLabel) svg.append(tagged("text", { x: o.width - o.right, y: o.height - 1, "text-anchor": "end" }, o.xLabel));
  lines.forEach(l => {
    let d = "", on = false;
    for (const [x, y] of l.points) {
      if (y === null || !isFinite(y)) { on = false; continue; }
      d += (on ? "L" : "M") + px(x).toFixed(1) + " " + py(y).toFixed(1);
      on = true;
    }
    svg.append(tagged("path", { d, fill: "none", stroke: l.colour, "stroke-width": 1.8, "stroke-dasharray": l.dashed ? "4 3" : "none" }));
    if (l.dots) for (const [x, y] of l.points) if (y !== null) svg.append(tagged("circle", { cx: px(x), cy: py(y), r: 2.4, fill: l.colour }));
    if (!l.name) return;
    svg.append(tagged("text", { x: legend, y: 10, style: `fill:${l.colour}` }, (l.dashed ? "- - " : "— ") + l.name));
    legend += 6 * l.name.length + 28;
  });
  if (o.mark !== undefined) {
    const near = points.find(p => p[0] === o.mark);
    if (near) svg.append(tagged("circle", { cx: px(near[0]), cy: py(near[1]), r: 4.5, fill: "none", stroke: "var(--mark)", "stroke-width": 2 }));
  }
  return svg;
}
function tagged(name, attributes, ...children) {
  const e = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [k, v] of Object.entries(attributes)) e.setAttribute(k, v);
  e.append(...children);
  return e;
}
function short(v, span) {
  const digits = Math.abs(span) >= 30 ? 0 : Math.abs(span) >= 3 ? 1 : 2;
  return Number(v.toFixed(digits)).toString();
}
const colours = { before: "var(--mark)", after: "var(--accent)", clean: "var(--good)" };
