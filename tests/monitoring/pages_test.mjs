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
import { HOUR, MINUTE, World } from "./world.mjs";

const [work, axe, ...only] = process.argv.slice(2);
// What the world is like, how the headlines of both pages begin, and what parts of the router's page say.
const WELL = "All 12 routers are well", ONE = "1 of 12 routers needs you", NONE = "No router with the address 192.0.2.2:161 is watched.";
const STATES = {
  "all-well": [{}, WELL, "All is well.", { "#state": /Answers\s+yes/ }],
  "circuit-down": [{ trouble: { circuitDown: 3 * HOUR }, second: { circuitDown: 2 * MINUTE } }, ONE, "Needs you: circuit 2 (2/33) is enabled but down."],
  "line-down": [{ trouble: { lineDown: 50 * MINUTE } }, ONE, "Needs you: line is down.", { "#alerts": /^critical line is down for 5\d min(?![^]*enabled but down)/,
    "#events": /line went down/ }],
  silent: [{ trouble: { silent: 34 * MINUTE } }, ONE, "Needs you: does not answer.",
    { "#state": /Circuits up\s+4 of 4\s+last known, \d[^]*attainable\s+last known/, "#age": /last known, 3\d min old/, "#events": /no answer, until now/ }],
  "values-old": [{ trouble: { valuesOld: 23 * MINUTE } }, ONE, "Needs you: values are", { "#age": /last known, 2\d min old/ }],
  "exporter-down": [{ exporterDown: true }, "Nothing is known of 12 routers", "Nothing is known of it: its exporter does not answer.",
    { "#notes": /SNMP exporter does not answer/, "#events": /SNMP exporter did not answer, until now$/ }],
  "agent-old": [{ trouble: { before110: true } }, WELL, "All is well.",
    { "#identity": /older than 1\.1\.0/, "#health": /Programs killed\s+not told/ }],
  pending: [{ trouble: { pending: [163] } }, ONE, "Needs you: a change on trial waits",
    { "#alerts": /^warning a change on trial waits[^]*Whoever made it sets cvChange/,
      "#state": /pending\s+\d+ of 600 s left/, "#events": /7\/38 became 7\/77[^]*a change on trial began$/ }],
  "taken-back": [{ trouble: { pending: [75 * MINUTE, 15 * MINUTE], restored: HOUR, refused: 80 * MINUTE, restarted: 2 * HOUR, flap: [3 * HOUR, 10 * MINUTE] } },
    WELL, "All is well.", { "#health": /Sets refused\s+3/, "#events": new RegExp(["7/77 became 7/38", "taken back, for 1 min", "trial began", "3 sets refused", "boots 7 became 8",
      "up again, after 10 min", "went down$"].join("[^]*")) }],
  "unknown-router": [{ count: 1 }, "The router is well", NONE],
  "no-routers": [{ count: 0 }, "No routers are watched yet", NONE],
  restarted: [{ started: 4 * MINUTE, trouble: { silent: 34 * MINUTE } }, ONE, "Needs you: does not answer.",
    { "#notes": /started [4-9] min ago/, "#alerts": /at least/, "#events": /did not watch/ }],
};

// --- Prometheus, and before it a server that answers instead of its database

async function freePort() {
  const server = net.createServer();
  await new Promise(done => server.listen(0, "127.0.0.1", done));
  const { port } = server.address();
  await new Promise(done => server.close(done));
  return port;
}
const prometheusAt = `127.0.0.1:${await freePort()}`;
fs.writeFileSync(work + "/prometheus.yml", "");
const prometheus = spawn("prometheus", [`--config.file=${work}/prometheus.yml`, `--storage.tsdb.path=${work}/data`,
  `--web.listen-address=${prometheusAt}`, "--web.console.templates=monitoring/consoles",
  "--web.console.libraries=monitoring/console_libraries"], { stdio: ["ignore", "ignore", fs.openSync(work + "/log", "w")] });
process.on("exit", () => prometheus.kill());
const ready = async () => (await fetch(`http://${prometheusAt}/-/ready`).catch(() => undefined))?.ok;
for (let tries = 0; !await ready(); await pause(200)) assert(++tries < 300, "Prometheus does not start");

let world, asked = [], deaf = false;
function respond(what, parameters) {
  asked.push(what + " " + parameters.get("query"));
  try {
    return deaf ? { status: "error", error: "shutting down" } : { status: "success", data: world.answer(what, parameters) };
  } catch (error) {
    console.error(error);
    return { status: "error", error: error.message };
  }
}
const server = http.createServer(async (request, response) => {
  const { pathname, searchParams } = new URL(request.url, "http://x");
  if (pathname.startsWith("/api/v1/")) {
    response.writeHead(200, { "Content-Type": "application/json" });
    return response.end(JSON.stringify(respond(pathname.slice(8), searchParams)));
  }
  const answer = await fetch(`http://${prometheusAt}${request.url}`);
  response.writeHead(answer.status, Object.fromEntries([...answer.headers].filter(([name]) => !/encoding|length/.test(name))));
  response.end(await answer.text());
});
await new Promise(done => server.listen(0, "127.0.0.1", done));
const root = `http://127.0.0.1:${server.address().port}/consoles/`;
const fleet = root + "corvanta.html", router = root + "corvanta-router.html?instance=192.0.2.2:161";
const browser = await open(work + "/browser", "build/pages"), { go, look } = browser;
const text = selector => look(`document.querySelector(${JSON.stringify(selector)}).innerText`);

// --- What holds in every state, at every size

const axeSource = axe && fs.readFileSync(axe, "utf8");
// Texts and fields that cover each other or leave the page.
const misplaced = `(() => {
  const walker = document.createTreeWalker(document.querySelector("main"), NodeFilter.SHOW_TEXT), boxes = [], found = [];
  const add = (name, rects) => boxes.push(...[...rects].filter(box => box.width > 1).map(box => ({ name, box })));
  for (const field of document.querySelectorAll("input, select, .graph, .ribbon, .spark")) add(field.id || field.className, field.getClientRects());
  for (const range = new Range(); walker.nextNode(); ) {
    range.selectNodeContents(walker.currentNode);
    if (walker.currentNode.data.trim() && walker.currentNode.parentNode.checkVisibility() && !walker.currentNode.parentNode.closest(".unseen, option")) add(walker.currentNode.data, range.getClientRects());
  }
  boxes.forEach(({ name, box }, i) => {
    if (box.left < -1 || box.right > document.documentElement.clientWidth + 1) found.push(name + " leaves the page");
    for (const other of boxes.slice(i + 1)) if (Math.min(box.right, other.box.right) - Math.max(box.left, other.box.left) > 2 &&
      Math.min(box.bottom, other.box.bottom) - Math.max(box.top, other.box.top) > 6) found.push(name + " covers " + other.name);
  });
  return found;
})()`;
async function drawn() {
  for (let tries = 0; !/^as of/.test(await text("#drawn")); await pause(100)) assert(++tries < 600, "not drawn: " + await text("main"));
}
async function placed(name) {
  assert.deepEqual(await look(misplaced), [], name);
  assert(await look("document.documentElement.scrollWidth <= document.documentElement.clientWidth"), name + " is wider than its window");
}
async function accessible(name) {
  await look(`(() => { ${axeSource} })()`);
  const { violations, passes } = await look("axe.run(document, { resultTypes: ['violations', 'passes'] })");
  assert.deepEqual(violations.map(one => [one.id, one.nodes.map(node => node.html + ": " + node.failureSummary).slice(0, 3)]), [], name);
  assert(passes.some(rule => rule.id === "color-contrast"), "axe did not look at contrast");
}
async function inspect(name) {
  await browser.shoot(name);
  await placed(name);
  assert(await look("performance.getEntriesByType('resource').every(one => one.name.startsWith(location.origin))"), name + " loads from elsewhere");
  if (axe) await accessible(name);
  assert.deepEqual(await browser.errors(), [], name);
}
async function state(name, [what, onFleet, onRouter, parts = {}]) {
  world = new World(what);
  for (const [page, url, selector, expected] of [["fleet", fleet + "?group=site", "h1", onFleet], ["router", router, "#headline", onRouter]]) {
    for (const [width, dark] of [[1400, false], [1400, true], [390, false], [390, true]]) {
      await browser.size(width, dark);
      await go(url);
      await drawn();
      assert.equal((await text(selector)).slice(0, expected.length), expected, name);
      await inspect(`${name}-${page}-${width}${dark ? "-dark" : ""}`);
    }
  }
  for (const [selector, pattern] of Object.entries(parts)) assert.match(await text(selector), pattern, name);
}

// --- What a page does

const TAB = "\uE004", ENTER = "\uE007", LEFT = "\uE012";
const names = () => look("[...document.querySelectorAll('#routers th a')].map(one => one.innerText)");
async function show(url, what, width = 1400) {
  world = new World(what);
  await browser.size(width);
  await go(url);
  await drawn();
}
const DEEDS = {
  async "drawing anew keeps focus, selection and place, and tells a change once"() {
    await show(fleet, { count: 60 });
    await look(`(() => {
      document.querySelectorAll("#routers th a")[30].focus();
      getSelection().selectAllChildren(document.querySelectorAll("#routers td")[200]);
      window.news = 0;
      new MutationObserver(() => ++news).observe(byId("news"), { childList: true, characterData: true, subtree: true });
    })()`);
    const now = () => look("[document.activeElement.innerText, String(getSelection()), scrollY, news]"), before = await now();
    assert(before[0] === "router-31" && before[1] && before[2] > 0, before);
    await look("draw()");
    assert.deepEqual(await now(), before);
    world.routers[57].circuitDown = HOUR; // comes to the top
    await look("draw()");
    assert.equal((await names())[0], "router-58");
    const after = await now();
    assert.deepEqual([after[0], after[1], after[3]], [before[0], before[1], 1]);
    assert.match(await look("byId('news').textContent"), /^router-58: circuit 2 .*down$/);
    await look("draw()");
    assert.equal((await now())[3], 1);
    await look("byId('filter').focus()");
    await show(router, { trouble: { circuitDown: HOUR } });
    await look("(document.querySelector('details').open = true, byId('cursor').focus(), window.scrollTo(0, 700), draw())");
    assert.deepEqual(await look("[document.activeElement.id, scrollY]"), ["cursor", 700]);
    assert.match(await text("details[open] pre"), /^router:corvanta_circuit_down or /);
  },
  async "everything is reached by keyboard"() {
    await show(fleet, { second: { circuitDown: HOUR } });
    assert.equal(await look("document.querySelector('#routers tr:has(.ribbon .down:not([width=\"1\"])) a').innerText"), "router-3");
    assert.deepEqual(await look("['.ribbon', '.spark .curve[d*=L]'].map(one => document.querySelectorAll('#routers ' + one).length)"), [12, 12]);
    await browser.type(TAB + "ROUTER-1"); // the filter takes any case
    assert.deepEqual(await names(), ["router-1", "router-10", "router-11", "router-12"]);
    await browser.type(TAB + TAB + TAB + ENTER + ENTER); // group, time, the first heading twice
    assert.deepEqual([await names(), await look("document.activeElement.innerText"), await look("location.search")],
      [["router-12", "router-11", "router-10", "router-1"], "Router", "?filter=ROUTER-1&sort=Router-falling"]);
    await browser.type(TAB.repeat(6) + ENTER);
    await drawn();
    assert.equal(await text("h1"), "router-12");
    await browser.type(TAB.repeat(3) + LEFT + LEFT);
    assert.equal(await look("byId('cursor').ariaValueMax - document.activeElement.ariaValueNow"), 2);
    assert.match(await look("document.activeElement.getAttribute('aria-valuetext')"),
      /^\d+ \w+ \d\d:\d\d: down 5.\d{3} of [56].\d{3}, up 800 of 896; router answers, line up, circuit 1 \(1\/32\) up, /);
    assert.equal(await look("document.querySelectorAll('.graph .curve[d*=L]').length"), 4);
  },
  async "grouped, filtered and sorted by what the address says, on a phone too"() {
    await show(fleet + "?group=region&sort=Rate%20down&filter=site=north", { labels: { shard: "2" } }, 390);
    assert.deepEqual(await names(), ["router-1", "router-7", "router-10", "router-4"]);
    const groups = await look("[...document.querySelectorAll('#routers th[colspan]')].map(one => one.innerText)");
    assert.deepEqual(groups, ["coast 2 routers, all well", "inland 2 routers, all well"]);
    assert.match(await text("#totals"), /Routers answering\s+4 of 4/);
    await look("(byId('sort').value = 'Rate down-falling', byId('sort').onchange())");
    assert.deepEqual(await names(), ["router-4", "router-10", "router-7", "router-1"]);
    assert(await look("byId('sort').offsetWidth > 0 && [...byId('group').options].some(one => one.value === 'shard')"));
  },
  async "a time of one's own stands in the address"() {
    const zone = new Date().getTimezoneOffset() * MINUTE, ago = hours => new Date(Date.now() - 1000 * (hours * HOUR + zone)).toISOString().slice(0, 16);
    await show(`${router}&from=${ago(72)}&to=${ago(48)}`, { trouble: { flap: [60 * HOUR, HOUR], pending: [58 * HOUR, 20 * MINUTE] } }, 390);
    assert.equal(await look("byId('span').value + byId('own').hidden"), "ownfalse");
    assert.match(await text("#events"), /ended: settings are as before it[^]*trial began[^]*circuit 2 \(2\/33\) is up again, after 1 h[^]*went down/);
    await inspect("own-time-router-390");
    await look("(byId('span').value = '7d', byId('span').onchange())");
    assert.equal(await look("location.search"), "?instance=192.0.2.2%3A161&span=7d");
  },
  async "the page above shards, while one is down"() {
    const shards = [["up", 1, { job: "corvanta_shard", shard: "0", instance: "192.0.2.241:9090" }], ["up", 0, { shard: "1", instance: "192.0.2.242:9090", page: "https://w.example/1" }]];
    const sums = [["routers:count", 10], ["routers_known:count", 4], ["routers_answering:sum", 4], ["routers_needing_you:count", 1], ["lines_known:count", 4],
      ["circuits_enabled:sum", 40], ["circuits_known:sum", 16], ["circuits_down:sum", 1], ["actual_rate_down:sum", 20000], ["actual_rate_up:sum", 4000]];
    const firing = [["ALERTS", 1, { alertname: "CorvantaCircuitDown", severity: "critical", instance: "192.0.2.1:161", router: "router-1", shard: "0", cvCircuitIndex: "2", cvCircuitVpi: "2", cvCircuitVci: "33" }]];
    const told = new World({}).alert(undefined, "CorvantaShardDown", HOUR, { shard: "1", instance: "192.0.2.242:9090" });
    world = { answer: (what, parameters) => what === "alerts" ? { alerts: [told] } : { resultType: "vector",
      result: ({ u: shards, A: firing }[parameters.get("query")[0]] || [undefined, "0"].flatMap(shard => sums.map(([name, value]) => ["fleet:corvanta_" + name, value, { shard }])))
        .map(([__name__, value, labels]) => ({ metric: { __name__, ...labels }, value: [0, String(value)] })) } };
    for (const [width, dark] of [[1400, false], [1400, true], [390, false], [320, false]]) {
      await browser.size(width, dark);
      await go(root + "corvanta-shards.html");
      await drawn();
      assert.equal(await text("h1"), "1 of 10 routers needs you");
      await inspect(`shards-${width}${dark ? "-dark" : ""}`);
    }
    assert.match(await text("#shards"), /shard 0[^]*4 of 10 answer[^]*shard 1[^]*does not answer[^]*none/);
    assert.deepEqual(await look("[...document.querySelectorAll('table a')].map(one => one.href)"), ["http://192.0.2.241:9090/consoles/corvanta.html",
      "https://w.example/1/consoles/corvanta.html", "http://192.0.2.241:9090/consoles/corvanta-router.html?instance=192.0.2.1%3A161#alerts"]);
  },
  async "no width cuts anything off"() {
    for (const url of [fleet, router]) for (const width of [320, 700, 880, 1000, 2000]) {
      await show(url, { trouble: { circuitDown: HOUR, pending: [163] }, second: { silent: HOUR } }, width);
      const name = `width-${width}-${url === fleet ? "fleet" : "router"}`;
      await browser.shoot(name);
      await placed(name);
    }
  },
  async "names from outside are text"() {
    const evil = `<img src=x onerror="document.title='taken'">'"&`;
    await show(fleet, { labels: { site: evil }, trouble: { router: evil } });
    assert(await look(`byId("routers").innerText.includes(${JSON.stringify(evil)}) && !document.querySelector("main img")`));
    await show(router, { labels: { site: evil }, trouble: { router: evil, wan: evil } });
    const told = await look("[document.title, byId('vlans').innerText, byId('identity').innerText]");
    assert(told.every(text => text.includes(evil)) && told[1].includes("–") && !await look("document.querySelector('main img')"), told);
  },
  async "a Prometheus that does not answer is told, and what was drawn stays"() {
    await show(fleet, {});
    deaf = true;
    await look("byId('span').onchange()");
    for (let tries = 0; !/does not answer, what follows is of .*: shutting down/.test(await text("#notes")); await pause(100)) assert(++tries < 600);
    deaf = false;
    assert.equal((await names()).length, 12);
  },
  async "a thousand rows: what is the same is not drawn again"() {
    await show(fleet + "?group=site", { count: 1000, trouble: { lineDown: HOUR }, second: { silent: HOUR } });
    await browser.devtools("Performance.enable", {});
    const layouts = async () => (await browser.devtools("Performance.getMetrics", {})).metrics.find(one => one.name === "LayoutCount").value;
    const work = async draw => {
      const before = await layouts(), said = await look(`(() => {
        const made = make.count, watch = new MutationObserver(() => {});
        watch.observe(byId("routers"), { childList: true, subtree: true, characterData: true, attributes: true });
        ${draw};
        byId("routers").offsetHeight;
        return { made: make.count - made, touched: watch.takeRecords().length };
      })()`);
      return { ...said, layouts: await layouts() - before };
    };
    const first = await work("drawnRows.clear(), fill('routers'), showRows()"), again = await work("showRows()");
    assert.equal((await names()).length, 1000);
    assert(first.made < 25 * 1000 && again.made < 100, JSON.stringify([first, again]));
    assert.equal(again.touched, 0);
    assert(first.layouts + again.layouts <= 4, JSON.stringify([first, again]));
    asked = [];
    await look("draw()");
    assert(new Set(asked).size <= 7, asked.join("\n")); // however many routers
  },
};

try {
  const tests = [...Object.entries(STATES).map(([name, what]) => [name, name, () => state(name, what)]),
    ...Object.entries(DEEDS).map(([name, deed]) => ["deeds", name, deed])];
  for (const [group, name, run] of tests) if (!only.length || only.includes(group)) {
    await run();
    assert.deepEqual(await browser.errors(), [], name);
    console.log("ok " + name);
  }
} finally {
  await browser.close();
  server.close();
  prometheus.kill();
}
