// The pages in every state, on answers that are made here; Prometheus itself fills and serves them.
//
//     node pages_test.mjs WORK_FOLDER AXE [STATE]...
//
// Pictures of each state go to build/pages.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import fs from "node:fs";
import http from "node:http";
import net from "node:net";
import { open, pause } from "./browser.mjs";
import { World } from "./world.mjs";

const [work, axe, ...only] = process.argv.slice(2), MINUTE = 60, HOUR = 3600;
const STATES = [
  ["all-well", {}, "All 12 routers are well", "All is well."],
  ["circuit-down", { trouble: { circuitDown: 3 * HOUR }, second: { circuitDown: 2 * MINUTE } }, "1 of 12 routers needs you", "It needs you: circuit 2 (2/33) is enabled but down."],
  ["line-down", { trouble: { lineDown: 50 * MINUTE } }, "1 of 12 routers needs you", "It needs you: ", { "#alerts": /line is down for 50 min/, "#lanes": /Line/ }],
  ["silent", { trouble: { silent: 34 * MINUTE } }, "1 of 12 routers needs you", "It needs you: ",
    { "#state": /Circuits up\s+4 of 4\s+last known[^]*of 5 \d+|last known/, "#age": /last known, 3[3-5] min old/, "#events": /no answer, still/ }],
  ["values-old", { trouble: { valuesOld: 23 * MINUTE } }, "1 of 12 routers needs you", "It needs you: ", { "#age": /last known, 2\d min old/ }],
  ["exporter-down", { exporterDown: true }, "Nothing is known of 12 routers", "Nothing is known of it: its exporter does not answer.", { "#notes": /SNMP exporter does not answer/ }],
  ["agent-old", { trouble: { old: true } }, "All 12 routers are well", "All is well.", { "#identity": /older than 1\.1\.0/, "#health": /Programs killed\s+not told/ }],
  ["pending", { trouble: { pending: [163, Infinity] } }, "1 of 12 routers needs you", "It needs you: ", { "#state": /pending\s+6 min left of 10 min/, "#events": /a change on trial began[^]*VPI\/VCI|VPI\/VCI 7\/38 became 7\/77/ }],
  ["taken-back", { trouble: { pending: [75 * MINUTE, 15 * MINUTE], restored: HOUR, refused: 80 * MINUTE, restarted: 2 * HOUR, circuitDown: 3 * HOUR, circuitLasted: 10 * MINUTE } },
    "All 12 routers are well", "All is well.", { "#events": /a change was taken back[^]*7\/77 became 7\/38|7\/77 became 7\/38[^]*taken back/ }],
  ["unknown-router", { count: 1 }, "The router is well", "No router with the address 192.0.2.2:161 is watched."],
  ["no-routers", { count: 0 }, "No routers are watched yet", "No router with the address 192.0.2.2:161 is watched."],
  ["restarted", { started: 4 * MINUTE, trouble: { silent: 34 * MINUTE } }, "1 of 12 routers needs you", "It needs you: ", { "#notes": /started 4 min ago/, "#alerts": /at least/, "#events": /did not watch/ }],
];

// --- Prometheus, and before it a server that answers instead of its database

const free = () => new Promise(done => { const server = net.createServer().listen(0, "127.0.0.1", () => { const { port } = server.address(); server.close(() => done(port)); }); });
const port = await free();
fs.writeFileSync(work + "/prometheus.yml", "");
const prometheus = spawn("prometheus", [`--config.file=${work}/prometheus.yml`, `--storage.tsdb.path=${work}/data`, `--web.listen-address=127.0.0.1:${port}`,
  "--web.console.templates=monitoring/consoles", "--web.console.libraries=monitoring/console_libraries"], { stdio: ["ignore", "ignore", fs.openSync(work + "/log", "w")] });
for (let tries = 0; !(await fetch(`http://127.0.0.1:${port}/-/ready`).catch(() => undefined))?.ok; await pause(200)) assert(++tries < 300, "Prometheus does not start");
let world, asked = [], deaf = false;
const server = http.createServer(async (request, response) => {
  const { pathname, searchParams } = new URL(request.url, "http://x");
  if (!pathname.startsWith("/api/v1/")) {
    const answer = await fetch(`http://127.0.0.1:${port}${request.url}`);
    return response.writeHead(answer.status, Object.fromEntries([...answer.headers].filter(([name]) => !/encoding|length/.test(name)))).end(await answer.text());
  }
  asked.push(pathname + " " + searchParams.get("query"));
  try {
    response.writeHead(200, { "Content-Type": "application/json" });
    response.end(JSON.stringify(deaf ? { status: "error", error: "shutting down" } : { status: "success", data: world.answer(pathname.slice(8), searchParams) }));
  } catch (error) {
    console.error(error.message);
    response.end(JSON.stringify({ status: "error", error: error.message }));
  }
});
await new Promise(done => server.listen(0, "127.0.0.1", done));
const root = `http://127.0.0.1:${server.address().port}/consoles/`, fleet = root + "corvanta.html", router = root + "corvanta-router.html?instance=192.0.2.2:161";
const browser = await open(work + "/browser", "build/pages"), { go, look } = browser;
const text = selector => look(`document.querySelector(${JSON.stringify(selector)}).innerText`);

// --- What holds in every state, at every size

const axeSource = fs.readFileSync(axe, "utf8");
const overlaps = `(() => {
  const boxes = [...document.querySelectorAll(".tick, .lane > span, .figures dt, .figures dd, .severity, button, select, input")]
    .map(one => [one, one.getBoundingClientRect()]).filter(([, box]) => box.width > 1);
  const found = boxes.filter(([, box]) => box.left < -1 || box.right > innerWidth + 1).map(([one]) => "outside: " + one.innerText);
  boxes.forEach(([a, first], i) => boxes.slice(i + 1).forEach(([b, second]) => {
    if (first.left < second.right - 1 && second.left < first.right - 1 && first.top < second.bottom - 1 && second.top < first.bottom - 1 &&
      !a.contains(b) && !b.contains(a)) found.push(a.innerText + " covers " + b.innerText);
  }));
  return found;
})()`;
async function drawn() {
  for (let tries = 0; !/^as of/.test(await text("#drawn")); await pause(100)) assert(++tries < 600, "not drawn: " + await text("main"));
}
async function inspect(name) {
  await browser.shoot(name);
  assert.deepEqual(await look(overlaps), [], name);
  assert(await look("document.documentElement.scrollWidth <= innerWidth"), name + " is wider than its window");
  assert(await look("performance.getEntriesByType('resource').every(one => one.name.startsWith(location.origin))"), name + " loads from elsewhere");
  await look(`(() => { ${axeSource} })()`);
  const { violations, passes } = await look("axe.run(document, { resultTypes: ['violations', 'passes'] })");
  assert.deepEqual(violations.map(one => [one.id, one.nodes.map(node => node.html + ": " + node.failureSummary).slice(0, 3)]), [], name);
  assert(passes.some(rule => rule.id === "color-contrast"), "axe did not look at contrast");
  assert.deepEqual(await browser.errors(), [], name);
}
async function state([name, what, onFleet, onRouter, more = {}]) {
  world = new World(what);
  for (const [page, url, heading, expected] of [["fleet", fleet + "?group=site", "#headline", onFleet], ["router", router, "#headline", onRouter]]) {
    for (const [width, dark] of [[1400, false], [1400, true], [390, false], [390, true]]) {
      await browser.size(width, dark);
      await go(url);
      await drawn();
      assert.equal((await text(heading)).trim().slice(0, expected.length), expected, name);
      await inspect(`${name}-${page}-${width}${dark ? "-dark" : ""}`);
    }
  }
  for (const [selector, pattern] of Object.entries(more)) assert.match(await text(selector), pattern, name);
  console.log("ok " + name);
}

try {
  for (const one of STATES) if (!only.length || only.includes(one[0])) await state(one);
} finally {
  await browser.close();
  server.close();
  prometheus.kill();
}
