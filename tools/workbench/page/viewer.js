// ---- the picture: layers fetched as they are needed, the newest setting first ----------------------
const canvas = $("view"), pen = canvas.getContext("2d");
const ratio = () => window.devicePixelRatio || 1;
const needsValues = version => version === "after" || version === "change" || version === "leftover" || version === "detail" || version === "mask";
// One layer for each version in view. `have` is what is painted; one request at a time is under way.
const layers = {};
const latency = { input: 0, times: [] };

function scaleNow() {
  if (!S.size) return 1;
  if (S.view.zoom) return S.view.zoom;
  const w = S.view.mode === "side" ? canvas.width / 2 : canvas.width;
  return Math.min(w / S.size.width, canvas.height / S.size.height);
}
function versionsInView() {
  const v = S.view;
  if (v.mode === "slider" || v.mode === "side") return [v.left, v.right];
  return [v.mode];
}
// The part of a level that can be seen, in its own pixels.
function wanted(version) {
  const v = S.view, level = ["after", "before", "detail"].includes(version) ? v.level : 0;
  const z = scaleNow() * 2 ** level, w = v.mode === "side" ? canvas.width / 2 : canvas.width;
  const reduce = z >= 1 ? 1 : Math.min(64, Math.max(1, Math.floor(1 / z + 1e-6)));
  const cx = v.cx / 2 ** level, cy = v.cy / 2 ** level;
  const step = 2 * reduce;
  const x = Math.floor((cx - w / 2 / z) / step) * step, y = Math.floor((cy - canvas.height / 2 / z) / step) * step;
  const left = Math.max(0, x), top = Math.max(0, y);
  const request = { picture: S.picture, version, channel: v.channel, level, amplify: v.amplify, reduce, x: left, y: top,
    width: Math.max(2, Math.ceil(w / z) + 2 * step - (left - x)), height: Math.max(2, Math.ceil(canvas.height / z) + 2 * step - (top - y)) };
  const key = JSON.stringify(request) + (needsValues(version) ? JSON.stringify(values()) : "");
  return { key, request };
}
async function fetchLayer(version) {
  const layer = layers[version] = layers[version] || { busy: false, have: null };
  if (layer.busy) { layer.again = true; return; }
  const { key, request } = wanted(version);
  if (layer.have && layer.have.key === key) return;
  layer.busy = true;
  const input = needsValues(version) ? latency.input : 0;
  if (input) latency.input = 0;
  try {
    const response = await call("view", { ...request, values: values() }, true);
    const head = JSON.parse(response.headers.get("X-View"));
    const pixels = new Uint8ClampedArray(await response.arrayBuffer());
    const image = layer.have && layer.have.image || make("canvas");
    if (image.width !== head.width || image.height !== head.height) { image.width = head.width; image.height = head.height; }
    image.getContext("2d").putImageData(new ImageData(pixels, head.width, head.height), 0, 0);
    layer.have = { key, image, pixels, request, head };
    S.frameMs = head.ms;
    drop("view");
    paint();
    if (input) seen(input);
  } catch (e) {
    if (!(layer.have && layer.have.fault === e.message)) report("view", e);
    layer.have = layer.have || { key, fault: e.message };
    layer.have.key = key;
  }
  layer.busy = false;
  if (layer.again || wanted(version).key !== (layer.have && layer.have.key)) {
    layer.again = false;
    if (!lost && versionsInView().includes(version)) fetchLayer(version);
  }
}
// From the slider's event to the end of the frame in which the new pixels are painted: a message that
// is sent within a frame arrives when the frame is done.
function seen(input) {
  requestAnimationFrame(() => {
    const { port1, port2 } = new MessageChannel();
    port1.onmessage = () => {
      latency.times.push(performance.now() - input);
      if (latency.times.length > 200) latency.times.shift();
      readout();
    };
    port2.postMessage(0);
  });
}
function refresh() {
  if (!S.size) return;
  const w = Math.round(canvas.clientWidth * ratio()), h = Math.round(canvas.clientHeight * ratio());
  if (canvas.width !== w || canvas.height !== h) { canvas.width = w; canvas.height = h; }
  // What the sliders change comes first.
  const all = [...new Set(versionsInView())].sort((a, b) => needsValues(b) - needsValues(a));
  for (const version of all) fetchLayer(version);
  paint();
}
function paintLayer(version, x, w) {
  const layer = layers[version];
  if (!layer || !layer.have || !layer.have.image || layer.have.request.picture !== S.picture) return;
  const { request, head, image } = layer.have, unit = 2 ** request.level, z = scaleNow();
  pen.save();
  pen.beginPath(); pen.rect(x, 0, w, canvas.height); pen.clip();
  pen.imageSmoothingEnabled = z * unit * request.reduce < 1;
  const middle = S.view.mode === "side" ? x + w / 2 : canvas.width / 2;
  pen.drawImage(image, Math.round(middle + (head.x * unit - S.view.cx) * z), Math.round(canvas.height / 2 + (head.y * unit - S.view.cy) * z),
    head.width * request.reduce * unit * z, head.height * request.reduce * unit * z);
  pen.restore();
}
function tag(text, x, right) {
  const s = 12 * ratio();
  pen.font = `${s}px system-ui, sans-serif`;
  const w = pen.measureText(text).width + s, left = right ? x - w : x;
  pen.fillStyle = "rgba(20,22,26,.74)"; pen.fillRect(left, 8 * ratio(), w, 1.7 * s);
  pen.fillStyle = "#fff"; pen.textBaseline = "middle"; pen.fillText(text, left + s / 2, 8 * ratio() + 0.87 * s);
}
const label = version => {
  const level = ["after", "before", "detail"].includes(version) && S.view.level ? ", level " + S.view.level : "";
  const name = { change: "after − before", leftover: "after − clean" }[version] || version;
  return name + level + (version === "after" && S.b ? S.showB ? `: B, ${S.b.name}` : ": A" : "");
};
function paint() {
  if (!S.size) return;
  const v = S.view, w = canvas.width, h = canvas.height, g = 8 * ratio();
  pen.fillStyle = "#777"; pen.fillRect(0, 0, w, h);
  if (v.mode === "slider" || v.mode === "side") {
    const at = v.mode === "side" ? w / 2 : Math.round(v.split * w);
    paintLayer(v.left, 0, at);
    paintLayer(v.right, at, w - at);
    pen.fillStyle = "#fff"; pen.fillRect(at - ratio(), 0, 2 * ratio(), h);
    if (v.mode === "slider") {
      pen.beginPath(); pen.arc(at, h / 2, 9 * ratio(), 0, 7); pen.fill();
      pen.strokeStyle = "#444"; pen.lineWidth = ratio(); pen.stroke();
    }
    tag(label(v.left), g);
    v.mode === "side" ? tag(label(v.right), at + g) : tag(label(v.right), w - g, true);
  } else {
    paintLayer(v.mode, 0, w);
    tag(label(v.mode), g);
  }
  const z = scaleNow();
  const box = (r, colour) => {
    pen.strokeStyle = colour; pen.lineWidth = 2 * ratio();
    const middle = v.mode === "side" ? 3 * w / 4 : w / 2;
    pen.strokeRect(middle + (r.x - v.cx) * z, h / 2 + (r.y - v.cy) * z, r.width * z, r.height * z);
  };
  if (S.patch) box(S.patch, "#ffd54a");
  if (S.weighing && S.block && S.block.picture === S.picture) {
    const unit = 2 ** S.block.level, reach = Math.max(0, (S.block.window - 1) / 2);
    box({ x: S.block.x * unit, y: S.block.y * unit, width: 4 * unit, height: 4 * unit }, "#ffd54a");
    if (reach) box({ x: (S.block.x - reach) * unit, y: (S.block.y - reach) * unit, width: (4 + 2 * reach) * unit, height: (4 + 2 * reach) * unit }, "#5aa9f7");
  }
}
function place(e) {
  const box = canvas.getBoundingClientRect(), px = (e.clientX - box.left) * ratio(), py = (e.clientY - box.top) * ratio();
  const middle = S.view.mode === "side" ? (px < canvas.width / 2 ? canvas.width / 4 : 3 * canvas.width / 4) : canvas.width / 2;
  const z = scaleNow();
  return { px, py, x: S.view.cx + (px - middle) / z, y: S.view.cy + (py - canvas.height / 2) / z };
}
function pixelAt(version, x, y) {
  const have = layers[version] && layers[version].have;
  if (!have || !have.pixels) return null;
  const unit = 2 ** have.request.level * have.request.reduce;
  const i = Math.floor((x - have.head.x * 2 ** have.request.level) / unit), j = Math.floor((y - have.head.y * 2 ** have.request.level) / unit);
  if (i < 0 || j < 0 || i >= have.head.width || j >= have.head.height) return null;
  return [...have.pixels.slice(4 * (j * have.head.width + i), 4 * (j * have.head.width + i) + 3)];
}
let pointer = null;
function readout() {
  const parts = [];
  if (pointer && S.size && pointer.x >= 0 && pointer.y >= 0 && pointer.x < S.size.width && pointer.y < S.size.height) {
    parts.push(`${Math.floor(pointer.x)}, ${Math.floor(pointer.y)}`);
    for (const version of [...new Set(versionsInView())]) {
      const p = pixelAt(version, pointer.x, pointer.y);
      if (p) parts.push(`${version} ${S.view.channel === "rgb" && !(S.view.level) ? p.join(" ") : p[0]}`);
    }
  }
  if (S.size) parts.push(`${S.size.width}×${S.size.height}, ${(scaleNow() * 100).toFixed(0)} %`);
  if (S.frameMs) parts.push(`filter ${S.frameMs.toFixed(1)} ms`);
  if (latency.times.length) {
    const sorted = [...latency.times].sort((a, b) => a - b);
    parts.push(`slider to picture ${sorted[sorted.length >> 1].toFixed(0)} ms`);
  }
  $("readout").textContent = parts.join("   ");
}

function zoomTo(z, at) {
  const v = S.view;
  const before = at || { px: canvas.width / 2, py: canvas.height / 2, x: v.cx, y: v.cy };
  v.zoom = z;
  if (!z) { centre(); } else {
    const middle = v.mode === "side" ? (before.px < canvas.width / 2 ? canvas.width / 4 : 3 * canvas.width / 4) : canvas.width / 2;
    if (at) { v.cx = before.x - (before.px - middle) / z; v.cy = before.y - (before.py - canvas.height / 2) / z; }
  }
  clampCentre();
  changed("view");
}
function centre() { if (S.size) { S.view.cx = S.size.width / 2; S.view.cy = S.size.height / 2; } }
function clampCentre() {
  if (!S.size) return;
  S.view.cx = Math.min(Math.max(S.view.cx, 0), S.size.width);
  S.view.cy = Math.min(Math.max(S.view.cy, 0), S.size.height);
}
const zoomSteps = [0.125, 0.25, 0.5, 1, 2, 4, 8, 16];
function zoomBy(direction, at) {
  const z = scaleNow();
  const next = direction > 0 ? zoomSteps.find(s => s > z * 1.01) : [...zoomSteps].reverse().find(s => s < z * 0.99);
  if (next) zoomTo(next, at);
}

// One finger or button moves the divider, the picture or marks a patch; two fingers zoom.
const fingers = new Map();
let drag = null, pinch = null;
canvas.addEventListener("pointerdown", e => {
  canvas.setPointerCapture(e.pointerId);
  fingers.set(e.pointerId, e);
  const p = place(e);
  if (fingers.size === 2) {
    const [a, b] = [...fingers.values()];
    pinch = { distance: Math.hypot(a.clientX - b.clientX, a.clientY - b.clientY), zoom: scaleNow() };
    drag = null;
    return;
  }
  const onDivider = S.view.mode === "slider" && Math.abs(p.px - S.view.split * canvas.width) < 14 * ratio();
  drag = S.marking || e.shiftKey ? { kind: "patch", from: p } : onDivider ? { kind: "divider" } :
    { kind: "pan", px: p.px, py: p.py, cx: S.view.cx, cy: S.view.cy, z: scaleNow() };
});
canvas.addEventListener("pointermove", e => {
  const p = pointer = place(e);
  if (fingers.has(e.pointerId)) fingers.set(e.pointerId, e);
  if (pinch && fingers.size === 2) {
    const [a, b] = [...fingers.values()];
    const distance = Math.hypot(a.clientX - b.clientX, a.clientY - b.clientY);
    const middle = place({ clientX: (a.clientX + b.clientX) / 2, clientY: (a.clientY + b.clientY) / 2 });
    zoomTo(Math.min(16, Math.max(0.05, pinch.zoom * distance / Math.max(pinch.distance, 1))), middle);
    return;
  }
  if (!drag) { if (S.weighing) weighSoon(p); readout(); return; }
  if (drag.kind === "divider") { S.view.split = Math.min(1, Math.max(0, p.px / canvas.width)); paint(); return; }
  if (drag.kind === "patch") {
    S.patch = { x: Math.round(Math.min(p.x, drag.from.x)), y: Math.round(Math.min(p.y, drag.from.y)),
      width: Math.round(Math.abs(p.x - drag.from.x)), height: Math.round(Math.abs(p.y - drag.from.y)) };
    paint();
    return;
  }
  if (!S.view.zoom) S.view.zoom = drag.z;
  S.view.cx = drag.cx - (p.px - drag.px) / drag.z;
  S.view.cy = drag.cy - (p.py - drag.py) / drag.z;
  clampCentre();
  changed("view");
});
const lift = e => {
  fingers.delete(e.pointerId);
  if (fingers.size < 2) pinch = null;
  if (drag && drag.kind === "patch") {
    if (S.patch && (S.patch.width < 2 || S.patch.height < 2)) S.patch = null;
    changed("patch");
  }
  drag = null;
};
canvas.addEventListener("pointerup", lift);
canvas.addEventListener("pointercancel", lift);
canvas.addEventListener("pointerleave", () => { pointer = null; readout(); });
canvas.addEventListener("wheel", e => { e.preventDefault(); zoomBy(e.deltaY < 0 ? 1 : -1, place(e)); }, { passive: false });
new ResizeObserver(() => refresh()).observe(canvas);

let weighTimer = 0;
function weighSoon(p) {
  clearTimeout(weighTimer);
  weighTimer = setTimeout(async () => {
    const level = S.view.level, unit = 2 ** level;
    if (!S.size || p.x < 0 || p.y < 0) return;
    try {
      S.block = { ...await call("weights", { picture: S.picture, values: values(), level, x: Math.floor(p.x / unit), y: Math.floor(p.y / unit) }), level, picture: S.picture };
      changed("block");
    } catch (e) { report("view", e); }
  }, 60);
}
