"use strict";
document.documentElement.classList.add("with-script");
const SVG = "http://www.w3.org/2000/svg";
const element = (parent, name, attributes, text) => {
  const made = parent.namespaceURI === SVG ? document.createElementNS(SVG, name) : document.createElement(name);
  for (const key in attributes) made.setAttribute(key, attributes[key]);
  if (text !== undefined) made.textContent = text;
  return parent.appendChild(made);
};

// Stills: two of the three pictures over each other. An invisible range input takes mouse, touch and keys.
for (const stills of document.querySelectorAll(".stills")) {
  const pictures = [...stills.querySelectorAll("img")];
  const names = [...stills.querySelectorAll("figcaption")].map(caption => caption.dataset.name);
  const pairs = element(stills.parentNode, "div", {class: "pairs", role: "group", "aria-label": "Which pictures"});
  const wipe = element(stills.parentNode, "div", {class: "wipe"});
  const under = element(wipe, "img", {}), over = element(wipe, "img", {class: "over"});
  const left = element(wipe, "span", {class: "l"}), right = element(wipe, "span", {class: "r"});
  const edge = element(wipe, "div", {class: "edge"});
  const input = element(wipe, "input", {type: "range", min: 0, max: 100, step: 1, value: 50});
  const move = () => {
    over.style.clipPath = `inset(0 0 0 ${input.value}%)`;
    edge.style.left = input.value + "%";
    input.setAttribute("aria-valuetext", `${input.value} % ${left.textContent}`);
  };
  const choose = (a, b, button) => {
    for (const [image, span, i] of [[under, left, a], [over, right, b]]) {
      image.src = pictures[i].src;
      image.alt = pictures[i].alt;
      span.textContent = names[i];
    }
    input.setAttribute("aria-label", `Divider between ${names[a]} and ${names[b]}`);
    for (const other of pairs.children) other.setAttribute("aria-pressed", other === button);
    move();
  };
  for (const [a, b] of [[0, 1], [1, 2], [0, 2]]) {
    const button = element(pairs, "button", {type: "button"}, `${names[a]} | ${names[b]}`);
    button.addEventListener("click", () => choose(a, b, button));
  }
  input.addEventListener("input", move);
  choose(0, 1, pairs.firstChild);
  stills.hidden = true;
}

const data = JSON.parse(document.getElementById("data").textContent);
const plot = data.plot, frames = data.light.length;
const pq = light => {
  const y = Math.pow(Math.max(light, 0) / 10000, 2610 / 16384);
  return Math.pow((3424 / 4096 + 2413 / 128 * y) / (1 + 2392 / 128 * y), 2523 / 32);
};
const digits = value => value === null ? "–" : value >= 100 ? value.toFixed(0) : value >= 10 ? value.toFixed(1) : value.toFixed(2);

// The curve of a record: a line up to the knee, then a Bezier curve through its anchors' control.
const output = (curve, input) => {
  const x = Math.min(input / curve.full, 1);
  if (x <= curve.kx) return curve.kx > 0 ? x / curve.kx * curve.ky * curve.target : 0;
  const points = [0, ...curve.anchors, 1], n = points.length - 1;
  const t = (x - curve.kx) / (1 - curve.kx);
  let sum = 0, choose = 1;
  for (let k = 0; k <= n; ++k) {
    sum += choose * Math.pow(t, k) * Math.pow(1 - t, n - k) * points[k];
    choose = choose * (n - k) / (k + 1);
  }
  return (curve.ky + (1 - curve.ky) * sum) * curve.target;
};

const tone = document.getElementById("tone");
function draw(curve) {
  tone.replaceChildren();
  const left = 46, right = 410, top = 10, bottom = 300;
  const x = light => left + (right - left) * pq(light) / pq(data.top), y = light => bottom - (bottom - top) * pq(light) / pq(300);
  for (const tick of [0, 1, 10, 100, 1000, 4000, 10000]) if (tick <= data.top) {
    element(tone, "line", {class: "grid", x1: x(tick), x2: x(tick), y1: top, y2: bottom});
    element(tone, "text", {x: x(tick), y: bottom + 16, "text-anchor": "middle"}, tick);
  }
  for (const tick of [0, 1, 10, 50, 100, 250]) {
    element(tone, "line", {class: "grid", x1: left, x2: right, y1: y(tick), y2: y(tick)});
    element(tone, "text", {x: left - 6, y: y(tick) + 4, "text-anchor": "end"}, tick);
  }
  element(tone, "text", {x: (left + right) / 2, y: bottom + 34, "text-anchor": "middle"}, "in, cd/m² (PQ-spaced); out upwards");
  const trace = (to, top) => {
    let path = "";
    for (let i = 0; i <= 200; ++i) {
      const light = top * Math.pow(i / 200, 3);
      path += (i ? "L" : "M") + x(light).toFixed(1) + " " + y(to(light)).toFixed(1);
    }
    return path;
  };
  element(tone, "path", {class: "line same", d: trace(light => light, Math.min(300, data.top))});
  element(tone, "path", {class: "line curve", d: trace(light => output(curve, light), data.top)});
  curve.anchors.forEach((anchor, i) => element(tone, "circle", {class: "anchor", r: 3.5,
    cx: x(curve.full * (curve.kx + (1 - curve.kx) * (i + 1) / (curve.anchors.length + 1))),
    cy: y(curve.target * (curve.ky + (1 - curve.ky) * anchor))}));
  element(tone, "circle", {class: "knee", r: 5, cx: x(curve.kx * curve.full), cy: y(curve.ky * curve.target)});
}

function rows(table, list) {
  table.replaceChildren();
  for (const [name, ...values] of list) {
    const row = element(table, "tr", {});
    element(row, "th", {scope: "row"}, name);
    for (const value of values) element(row, "td", {class: "n"}, value);
  }
}

const slider = document.getElementById("frame"), shown = document.getElementById("frame-number");
function show(frame) {
  slider.value = frame;
  const light = data.light[frame], record = data.records[data.record[frame]], curve = data.curves[data.curve[frame]];
  shown.textContent = `${frame} (${data.seconds[frame].toFixed(2)} s)`;
  slider.setAttribute("aria-valuetext", `frame ${frame}`);
  const at = plot.left + (plot.right - plot.left) * (frame + 0.5) / frames;
  for (const cursor of document.querySelectorAll(".cursor")) {
    cursor.setAttribute("x1", at);
    cursor.setAttribute("x2", at);
    cursor.style.visibility = "visible";
  }
  draw(curve);
  const claim = record || {};
  rows(document.getElementById("light-numbers"), [
    ["cd/m²", "measured", "record"],
    ["brightest pixel", digits(light[0]), record ? digits(Math.max(...claim.maxscl)) : "–"],
    ["99.98 %", digits(light[1]), "–"],
    ["99 %", digits(light[2]), record && claim.p99 !== null ? digits(claim.p99) : "–"],
    ["average", digits(light[3]), record ? digits(claim.average) : "–"],
    ["median", digits(light[4]), record && claim.p50 !== null ? digits(claim.p50) : "–"]]);
  rows(document.getElementById("curve-numbers"), [
    ["knee, in → out", `${digits(curve.kx * curve.full)} → ${digits(curve.ky * curve.target)} cd/m²`],
    ["full scale of the input", `${digits(curve.full)} cd/m²`],
    ["anchors", curve.anchors.map(value => value.toFixed(2)).join(" ")]]);
  rows(document.getElementById("record-numbers"), record ? [
    ["from", ["this frame", "an earlier frame"][data.origin[frame]]],
    ["MaxSCL R G B", claim.maxscl.map(digits).join(" ")],
    ["distribution", claim.points.map(([p, v]) => `${p} %: ${digits(v)}`).join(", ")],
    ["curve for a display of", claim.flag ? `${claim.display} cd/m²` : "no curve in the record"],
    ["knee, as coded", claim.flag ? claim.knee.join(" ") : "–"],
    ["anchors, as coded", claim.flag ? claim.anchors.join(" ") : "–"]] : [["record", "none up to here: the default is used"]]);
}
slider.addEventListener("input", () => show(+slider.value));
for (const chart of document.querySelectorAll("svg.chart")) {
  const pick = event => {
    const box = chart.getBoundingClientRect(), x = (event.clientX - box.left) / box.width * plot.width;
    const frame = Math.floor((x - plot.left) / (plot.right - plot.left) * frames);
    show(Math.min(Math.max(frame, 0), frames - 1));
  };
  chart.addEventListener("pointerdown", pick);
  chart.addEventListener("pointermove", event => { if (event.buttons) pick(event); });
}
for (const link of document.querySelectorAll("a[data-frame]"))
  link.addEventListener("click", () => show(+link.dataset.frame));
show(0);
