// The page of a run: lanes of what comes from outside, of the machine's state and of the threads, on a canvas.
"use strict";

const data = JSON.parse(document.getElementById("data").textContent);
const [times, sources, kinds, threads, texts, meanings, causes, lines, lanes, states] = data.moments;
const count = times.length;
const EFFECT = 0, OUTSIDE = 2, HEADING = 3;
const KINDS = ["request", "registry", "call", "status", "write", "other", "other", "other", "says"];
const DOING = ["waiting", "in a request", "in a call"];
const GUTTER = 112, ROW = 26, OUTSIDE_ROW = 46, TOP = 6;
const text = (i) => data.texts[texts[i]];
const words = (i) => data.texts[meanings[i]];

// ---- places: where each moment stands, in real time or with idle time folded ----

const OPEN_GAP_MS = 20;     // a shorter gap between two moments keeps its length
const STEP = 1;             // between two moments of one instant, folded
const REAL_STEP = 0.01;     // the same in milliseconds, in real time

// A gap grows with its logarithm: 3 ms, 3 s and 3 h are told apart, and none takes the whole page.
const foldedGap = (ms) => ms <= 0 ? 0 : 2 + 4 * Math.log10(1 + ms);

const places = {folded: new Float64Array(count), real: new Float64Array(count)};
for (let i = 0, ordinal = 0; i < count; ++i) {
    ordinal = i > 0 && times[i] === times[i - 1] ? ordinal + 1 : 0;
    places.real[i] = times[i] + Math.min(ordinal * REAL_STEP, 0.9);
    places.folded[i] = i === 0 ? 0 : places.folded[i - 1] + STEP + foldedGap(times[i] - times[i - 1]);
}
const ends = {
    real: Math.max(data.end, count ? times[count - 1] : 0) + 1,
    folded: (count ? places.folded[count - 1] + foldedGap(data.end - times[count - 1]) : 0) + STEP,
};
let folded = true;
let place = places.folded;

// The first moment at or behind a value of an ascending list.
function firstAt(list, value) {
    let low = 0, high = list.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (list[middle] < value) low = middle + 1; else high = middle;
    }
    return low;
}

// The place of a time at which there need be no moment.
function placeOf(ms) {
    if (!folded) return ms;
    const i = firstAt(times, ms);
    if (i >= count) return count ? place[count - 1] + foldedGap(ms - times[count - 1]) : 0;
    if (i === 0 || times[i] === ms) return place[i];
    return place[i - 1] + foldedGap(ms - times[i - 1]);
}

// And back.
function timeAt(where) {
    if (!folded) return where;
    const i = firstAt(place, where);
    if (i === 0) return count ? times[0] : 0;
    const gap = where - place[i - 1];
    const ms = times[i - 1] + (gap > 2 ? 10 ** ((gap - 2) / 4) - 1 : 0);
    return Math.min(ms, i < count ? times[i] : data.end);
}

function clock(ms, fine) {
    const date = new Date((data.start * 1000) + Math.floor(ms));
    return date.toISOString().slice(11, fine ? 23 : 19);
}

function duration(ms) {
    for (const [length, unit] of [[86400000, "d"], [3600000, "h"], [60000, "min"], [1000, "s"]])
        if (ms >= length) return `${+(ms / length).toFixed(1)} ${unit}`;
    return `${Math.round(ms)} ms`;
}

// ---- lanes ----

const laneSpans = new Map(); // lane -> [{from, to, state}], by moments
for (let i = 0; i < count; ++i) {
    if (lanes[i] === 0) continue;
    if (!laneSpans.has(lanes[i])) laneSpans.set(lanes[i], []);
    const spans = laneSpans.get(lanes[i]);
    const last = spans[spans.length - 1];
    if (last && last.state === data.texts[states[i]]) continue;
    if (last) last.to = i;
    spans.push({from: i, to: count, state: data.texts[states[i]]});
}

const rows = [{name: "from outside", top: TOP, height: OUTSIDE_ROW, outside: true}];
const addRow = (row) => {
    const last = rows[rows.length - 1];
    rows.push({top: last.top + last.height, height: ROW, ...row});
};
for (const lane of [...laneSpans.keys()].sort((a, b) => a - b))
    addRow({name: data.lanes[lane], spans: laneSpans.get(lane), lane});
const threadRow = new Map();
data.threads.forEach(([name, shown], thread) => {
    addRow({name: shown, title: name, thread, stretches: [], moments: []});
    threadRow.set(thread, rows[rows.length - 1]);
});
for (let i = 0; i < count; ++i)
    if (threads[i] >= 0) threadRow.get(threads[i]).moments.push(i);
rows[0].moments = Array.from({length: count}, (_, i) => i).filter((i) => sources[i] === OUTSIDE || sources[i] === HEADING);
for (let s = 0; s < data.stretches[0].length; ++s)
    threadRow.get(data.stretches[0][s]).stretches.push(
        {doing: data.stretches[1][s], from: data.stretches[2][s], to: data.stretches[3][s]});
const height = rows[rows.length - 1].top + rows[rows.length - 1].height + TOP;
const rowOf = (i) => threads[i] >= 0 ? threadRow.get(threads[i]) : rows[0];

// ---- drawing ----

const stage = document.getElementById("stage");
const canvas = document.getElementById("canvas");
const context = canvas.getContext("2d");
const axis = d3.select("#axis").append("g").attr("transform", "translate(0,25)");
let width = 0;
let transform = d3.zoomIdentity;
let selected = -1;
let matches = [];
let colours = {};
let scheduled = false;

function readColours() {
    const style = getComputedStyle(document.documentElement);
    for (const name of ["ground", "ink", "faint", "line", "band", "fold", "outside", "found", ...KINDS])
        colours[name] = style.getPropertyValue("--" + name).trim();
}

const baseScale = () =>
    d3.scaleLinear().domain([0, folded ? ends.folded : ends.real]).range([GUTTER, width - 8]);
const scale = () => transform.rescaleX(baseScale());

// The colour of a state: the same words, the same colour.
function stateColour(state) {
    let hash = 7;
    for (const c of state) hash = (hash * 31 + c.charCodeAt(0)) % 360;
    const dark = matchMedia("(prefers-color-scheme: dark)").matches;
    return `hsl(${hash}, 45%, ${dark ? 28 : 86}%)`;
}

function clippedText(words, x, y, room) {
    if (room < 14) return;
    let shown = words;
    const fits = Math.floor(room / 6.1);
    if (shown.length > fits) shown = fits > 2 ? shown.slice(0, fits - 1) + "…" : "";
    context.fillText(shown, x, y);
}

function drawSpans(row, x) {
    for (const span of row.spans) {
        const from = Math.max(x(place[span.from]), GUTTER);
        const to = Math.min(span.to < count ? x(place[span.to]) : x(folded ? ends.folded : ends.real), width);
        if (to < GUTTER || from > width || to - from < 0.3) continue;
        context.fillStyle = stateColour(span.state);
        context.fillRect(from, row.top + 3, Math.max(to - from - 1, 1), row.height - 6);
        context.fillStyle = colours.ink;
        clippedText(span.state, from + 4, row.top + row.height / 2 + 4, to - from - 6);
    }
}

function drawStretches(row, x) {
    for (const stretch of row.stretches) {
        const from = Math.max(x(placeOf(stretch.from)), GUTTER);
        const to = Math.min(x(placeOf(stretch.to)), width);
        if (to < GUTTER || from > width) continue;
        const waiting = stretch.doing === 0;
        context.fillStyle = waiting ? colours.line : colours.request;
        context.fillRect(from, row.top + row.height / 2 - (waiting ? 1 : 4), Math.max(to - from, 1), waiting ? 2 : 8);
    }
}

// Those of one pixel column and one kind are drawn once: 10^5 moments are as quick as 10^3.
function drawMoments(row, x) {
    const [first, last] = x.domain();
    const drawn = {};
    let begin = 0, end = row.moments.length;
    for (let high = end; begin < high;) {
        const middle = (begin + high) >> 1;
        if (place[row.moments[middle]] < first) begin = middle + 1; else high = middle;
    }
    for (let m = begin; m < end; ++m) {
        const i = row.moments[m];
        if (place[i] > last) break;
        const at = Math.round(x(place[i]));
        const kind = row.outside ? (sources[i] === HEADING ? "heading" : "outside") : KINDS[kinds[i]];
        if (drawn[kind] === at || at < GUTTER) continue;
        drawn[kind] = at;
        if (row.outside) drawOutside(row, i, at, kind, m + 1 < end ? x(place[row.moments[m + 1]]) : width);
        else {
            context.fillStyle = colours[kind] || colours.other;
            const short = kind === "says";
            context.fillRect(at - 1, row.top + (short ? 10 : 5), 2.5, row.height - (short ? 20 : 10));
        }
    }
}

function drawOutside(row, i, at, kind, next) {
    const heading = kind === "heading";
    context.fillStyle = heading ? colours.faint : colours.outside;
    context.globalAlpha = 0.18;
    context.fillRect(at, row.top, 1, height);
    context.globalAlpha = 1;
    if (!heading) {
        context.beginPath();
        context.moveTo(at - 5, row.top + 28);
        context.lineTo(at + 5, row.top + 28);
        context.lineTo(at, row.top + 36);
        context.fill();
    }
    const label = heading ? text(i) : words(i) || text(i);
    clippedText(label, at + 3, row.top + (heading ? 11 : 25), (heading ? nextHeading(i) : next - at) - 6);
}

function nextHeading(i) {
    const x = scale();
    for (let j = i + 1; j < count; ++j)
        if (sources[j] === HEADING) return x(place[j]) - x(place[i]);
    return width - x(place[i]);
}

// Where time is folded: the longer gaps, shaded through all lanes.
function drawFolds(x) {
    if (!folded) return;
    const [first, last] = x.domain();
    for (let i = Math.max(firstAt(place, first), 1); i < count; ++i) {
        if (place[i - 1] > last) break;
        if (times[i] - times[i - 1] < OPEN_GAP_MS) continue;
        const from = Math.max(x(place[i - 1] + STEP / 2), GUTTER), to = x(place[i] - STEP / 2);
        if (to - from < 2) continue;
        context.fillStyle = colours.fold;
        context.fillRect(from, 0, to - from, height);
        context.fillStyle = colours.faint;
        const label = duration(times[i] - times[i - 1]);
        if (to - from > label.length * 6) context.fillText(label, (from + to) / 2 - label.length * 3, height - 4);
    }
}

function drawSelection(x) {
    for (const i of matches) {
        const at = x(place[i]);
        if (at < GUTTER || at > width) continue;
        context.fillStyle = colours.found;
        context.fillRect(at - 2, rowOf(i).top + 1, 4, 4);
    }
    if (selected < 0) return;
    const row = rowOf(selected);
    context.strokeStyle = colours.ink;
    context.lineWidth = 1.5;
    context.strokeRect(x(place[selected]) - 4, row.top + 2, 8, row.height - 4);
}

function drawAxis(x) {
    const [first, last] = x.domain();
    const wanted = Math.max(2, Math.floor((width - GUTTER) / 110));
    const fine = timeAt(last) - timeAt(first) < 20000;
    let ticks = [];
    if (!folded) ticks = x.ticks(wanted);
    else {
        let behind = -Infinity;
        for (let i = firstAt(place, first); i < count && place[i] <= last; ++i) {
            if ((i > 0 && times[i] === times[i - 1]) || x(place[i]) < behind + 92) continue;
            ticks.push(place[i]);
            behind = x(place[i]);
        }
        if (ticks.length === 0) ticks = [first + (last - first) / 2];
    }
    axis.call(d3.axisTop(x).tickValues(ticks).tickFormat((p) => clock(timeAt(p), fine)).tickSizeOuter(0));
}

function draw() {
    scheduled = false;
    const x = scale();
    context.font = "11px system-ui, sans-serif";
    context.fillStyle = colours.ground;
    context.fillRect(0, 0, width, height);
    rows.forEach((row, r) => {
        context.fillStyle = r % 2 ? colours.band : colours.ground;
        context.fillRect(0, row.top, width, row.height);
    });
    drawFolds(x);
    for (const row of rows) {
        if (row.spans) drawSpans(row, x);
        if (row.stretches) drawStretches(row, x);
        if (row.moments) drawMoments(row, x);
    }
    drawSelection(x);
    // The names, over what has been drawn to their left.
    rows.forEach((row, r) => {
        context.fillStyle = r % 2 ? colours.band : colours.ground;
        context.fillRect(0, row.top, GUTTER - 6, row.height);
        context.fillStyle = row.thread === undefined ? colours.ink : colours.faint;
        clippedText(row.name, 10, row.top + row.height / 2 + 4, GUTTER - 16);
    });
    drawAxis(x);
}

function redraw() {
    if (!scheduled) requestAnimationFrame(draw);
    scheduled = true;
}

function resize() {
    width = stage.clientWidth;
    const ratio = devicePixelRatio || 1;
    canvas.width = width * ratio;
    canvas.height = height * ratio;
    canvas.style.width = width + "px";
    canvas.style.height = height + "px";
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    d3.select("#axis").attr("width", width).attr("height", 26);
    zoom.extent([[GUTTER, 0], [width, height]]).translateExtent([[GUTTER - 40, 0], [width + 40, height]]);
    redraw();
}

// ---- details ----

const details = document.getElementById("details");

function element(tag, content, className) {
    const made = document.createElement(tag);
    made.textContent = content;
    if (className) made.className = className;
    return made;
}

function jump(i, label) {
    const button = element("button", label);
    button.addEventListener("click", () => select(i, true));
    return button;
}

// What the service said about its reasons on that thread, around a moment.
function reasonsAt(i) {
    const said = [];
    for (let j = i + 1; j < count && times[j] === times[i] && sources[j] !== OUTSIDE; ++j) {
        if (threads[j] !== threads[i]) continue;
        if (KINDS[kinds[j]] !== "says" && sources[i] !== OUTSIDE) break;
        if (KINDS[kinds[j]] === "says") said.push(text(j));
    }
    return said;
}

function ledTo(i) {
    const effects = [];
    for (let j = i + 1; j < count && effects.length < 12; ++j)
        if (causes[j] === i && sources[j] === EFFECT) effects.push(j);
    return effects;
}

function select(i, intoView) {
    selected = i;
    details.replaceChildren();
    if (i < 0) {
        details.append(element("p", "Click an effect, a state or an event. Drag or scroll to move, wheel to zoom.", "words"));
        return redraw();
    }
    const outside = threads[i] < 0;
    details.append(element("h2", (outside && sources[i] === OUTSIDE ? ">> " : "") + text(i)));
    details.append(element("p", words(i), "words"));
    const list = document.createElement("dl");
    const add = (term, ...nodes) => {
        const entry = document.createElement("dd");
        entry.append(...nodes);
        list.append(element("dt", term), entry);
    };
    add("at", `${clock(times[i], true)}, ${(times[i] / 1000).toFixed(3)} s`);
    if (!outside) add("thread", `${data.threads[threads[i]][1]} (${data.threads[threads[i]][0]})`);
    if (causes[i] >= 0)
        add("because of", jump(causes[i], text(causes[i])), " " + words(causes[i]) +
            (times[causes[i]] < times[i] ? `, ${duration(times[i] - times[causes[i]])} before` : ""));
    const reasons = reasonsAt(i);
    if (reasons.length) add("reasons", reasons.join("; "));
    if (sources[i] === OUTSIDE) {
        const effects = ledTo(i);
        if (effects.length) add("led to", ...effects.map((j) => jump(j, words(j) || text(j))));
    }
    if (lines[i] > 0) add("script", `line ${lines[i]}`);
    details.append(list);
    if (intoView) reveal(i);
    redraw();
}

function reveal(i) {
    const x = scale()(place[i]);
    if (x < GUTTER + 30 || x > width - 40)
        d3.select(canvas).call(zoom.translateTo, baseScale()(place[i]), 0, [(GUTTER + width) / 2, 0]);
    const row = rowOf(i);
    if (row.top < stage.scrollTop) stage.scrollTop = row.top;
    if (row.top + row.height + 26 > stage.scrollTop + stage.clientHeight)
        stage.scrollTop = row.top + row.height + 30 - stage.clientHeight;
}

// The moment that a click means: of a thread's row the nearest one, of a state's row the one that set it.
function momentAt(px, py) {
    const row = rows.find((r) => py >= r.top && py < r.top + r.height);
    if (!row) return -1;
    const where = scale().invert(px);
    if (row.spans) {
        const span = row.spans.filter((s) => place[s.from] <= where).pop();
        return span ? span.from : -1;
    }
    let best = -1;
    for (const i of row.moments)
        if (best < 0 || Math.abs(place[i] - where) < Math.abs(place[best] - where)) best = i;
    return best >= 0 && Math.abs(scale()(place[best]) - px) < 12 ? best : -1;
}

// ---- input ----

const zoom = d3.zoom().scaleExtent([1, 1e8]).on("zoom", (event) => {
    transform = event.transform;
    redraw();
});
d3.select(canvas).call(zoom).on("dblclick.zoom", null);
canvas.addEventListener("click", (event) => select(momentAt(event.offsetX, event.offsetY)));

function search(pattern) {
    const wanted = pattern.trim().toLowerCase();
    matches = [];
    for (let i = 0; wanted && i < count; ++i)
        if (text(i).toLowerCase().includes(wanted) || words(i).toLowerCase().includes(wanted)) matches.push(i);
    document.getElementById("found").textContent = wanted ? `${matches.length} found` : "";
    if (matches.length) select(matches.find((i) => i >= selected) ?? matches[0], true);
    redraw();
}

function nextMatch(step) {
    if (!matches.length) return;
    const at = step > 0 ? matches.find((i) => i > selected) ?? matches[0]
                        : matches.filter((i) => i < selected).pop() ?? matches[matches.length - 1];
    select(at, true);
}

function step(direction, fits) {
    for (let i = selected + direction; i >= 0 && i < count; i += direction)
        if (fits(i)) return select(i, true);
}

function stepRow(direction) {
    if (selected < 0) return select(0, true);
    const listed = rows.filter((r) => r.moments && r.moments.length);
    const next = listed[listed.indexOf(rowOf(selected)) + direction];
    if (!next) return;
    select(next.moments.reduce((best, i) =>
        Math.abs(place[i] - place[selected]) < Math.abs(place[best] - place[selected]) ? i : best), true);
}

function setFolded(value) {
    const middle = timeAt(scale().invert((GUTTER + width) / 2));
    folded = value;
    place = folded ? places.folded : places.real;
    document.getElementById("fold").setAttribute("aria-pressed", folded);
    d3.select(canvas).call(zoom.translateTo, baseScale()(placeOf(middle)), 0, [(GUTTER + width) / 2, 0]);
    redraw();
}

const zoomBy = (factor) => d3.select(canvas).call(zoom.scaleBy, factor,
    [selected >= 0 ? scale()(place[selected]) : (GUTTER + width) / 2, 0]);
const fit = () => d3.select(canvas).call(zoom.transform, d3.zoomIdentity);
const searchBox = document.getElementById("search");

const keys = {
    ArrowRight: (e) => step(1, e.shiftKey ? (i) => sources[i] === OUTSIDE : () => true),
    ArrowLeft: (e) => step(-1, e.shiftKey ? (i) => sources[i] === OUTSIDE : () => true),
    ArrowDown: () => stepRow(1),
    ArrowUp: () => stepRow(-1),
    "+": () => zoomBy(2), "=": () => zoomBy(2), "-": () => zoomBy(0.5), 0: fit,
    Home: () => select(0, true), End: () => select(count - 1, true),
    f: () => setFolded(!folded),
    "/": () => searchBox.focus(),
    n: () => nextMatch(1), N: () => nextMatch(-1),
    Escape: () => select(-1),
};
document.addEventListener("keydown", (event) => {
    if (event.target === searchBox) {
        if (event.key === "Enter") nextMatch(event.shiftKey ? -1 : 1);
        if (event.key === "Escape") canvas.focus();
        return;
    }
    const action = keys[event.key];
    if (!action || event.ctrlKey || event.metaKey || event.altKey || event.target.tagName === "BUTTON" && event.key.length > 1) return;
    event.preventDefault();
    action(event);
});
searchBox.addEventListener("input", () => search(searchBox.value));
document.getElementById("fold").addEventListener("click", () => setFolded(!folded));
document.getElementById("fit").addEventListener("click", fit);
addEventListener("resize", resize);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => { readColours(); redraw(); });

// ---- beginning ----

const effects = sources.filter((s) => s === EFFECT).length;
document.title = data.title + " - zorpmsim";
document.getElementById("title").textContent = data.title;
document.getElementById("summary").textContent =
    `${effects} effects, ${rows[0].moments.filter((i) => sources[i] === OUTSIDE).length} from outside, ${duration(data.end)}`;
const legend = document.getElementById("legend");
for (const kind of ["outside", "request", "registry", "call", "status", "write"]) {
    const mark = document.createElement("i");
    mark.style.background = `var(--${kind})`;
    legend.append(mark, kind);
}
readColours();
resize();
select(-1);
draw();

// For tests and the curious.
window.page = {
    effects,
    count,
    find: (words_) => Array.from({length: count}, (_, i) => i).filter((i) => words(i) === words_ || text(i) === words_),
    where: (i) => {
        const box = canvas.getBoundingClientRect();
        return {x: box.left + scale()(place[i]), y: box.top + rowOf(i).top + rowOf(i).height / 2};
    },
    reveal,
    zoom: () => transform.k,
    selected: () => selected,
};
