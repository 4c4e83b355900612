// The pages in a browser, beside what the agents say. scripts/fleet --check runs it on its fleet:
//
//     node fleet_page_test.mjs PAGE FLEET_FOLDER ALERTMANAGER
//
// Screenshots go to build/fleet.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import fs from "node:fs";
import { once } from "node:events";

const [page, folder, alertmanager] = process.argv.slice(2);
const pause = ms => new Promise(done => setTimeout(done, ms));
const routers = Object.fromEntries([...fs.readFileSync(folder + "/targets/fleet.yml", "utf8")
  .matchAll(/'(.*)'.*router: ([^}]*)/g)].map(([, address, name]) => [name, address]));
const names = Object.keys(routers), second = names[1 % names.length], last = names.at(-1);

const driver = spawn("chromedriver", ["--port=0"], { stdio: ["ignore", "pipe", "inherit"] });
let said = "", port;
while (!(port = said.match(/started successfully on port (\d+)/)?.[1])) said += (await once(driver.stdout, "data"))[0];
async function browser(method, path, body) {
  const answer = await fetch(`http://127.0.0.1:${port}/session${path}`, { method, body: body && JSON.stringify(body) });
  const { value } = await answer.json();
  assert(answer.ok, JSON.stringify(value));
  return value;
}
const { sessionId } = await browser("POST", "", { capabilities: { alwaysMatch: {
  "goog:loggingPrefs": { browser: "ALL" },
  "goog:chromeOptions": { args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync", "--window-size=1000,800",
    `--user-data-dir=${folder}/browser`] } } } });
const go = url => browser("POST", `/${sessionId}/url`, { url });
const look = script => browser("POST", `/${sessionId}/execute/sync`, { script: "return " + script, args: [] });
// The rows of a table, or the figures of a list, by their first texts.
const texts = async id => Object.fromEntries((await look(`[...document.querySelectorAll("#${id} tr, #${id} > div")]
  .map(row => [...row.children].map(one => one.innerText))`)).map(([first, ...rest]) => [first, rest.length > 1 ? rest : rest[0]]));
const advice = () => look("document.getElementById('alerts').innerText");
async function shoot(name) {
  fs.mkdirSync("build/fleet", { recursive: true });
  fs.writeFileSync(`build/fleet/${name}.png`, Buffer.from(await browser("GET", `/${sessionId}/screenshot`), "base64"));
}
// Waits for what must be true soon: two scrapes, the rules and, when it draws by itself, the page's
// 15 seconds.
async function soon(what, check, byItself = false) {
  for (let tries = 90; ; --tries, await pause(500)) {
    try {
      if (!byItself) await look("draw()");
      await check();
      return console.log(`ok ${(performance.now() / 1000).toFixed(0).padStart(3)} s  ${what}`);
    } catch (error) {
      assert(tries > 0, what + ": " + error.message);
    }
  }
}

const snmp = (tool, ...words) => execFileSync(tool, words, { encoding: "utf8", env: { ...process.env, SNMPCONFPATH: folder + "/snmp" } });
// To the process that answers for the last router.
const signal = name => execFileSync("pkill", [name, "-P", fs.readFileSync(`${folder}/${last}/pid`, "utf8").trim(), "corvantad-net"]);
// What an agent says, by object and row.
function asked(router) {
  const text = snmp("snmpbulkwalk", "-Cr50", "-Oqsa", routers[router], "corvantaMIB");
  return Object.fromEntries(text.trim().split("\n").map(line => line.match(/^(\S+) ?(.*)/).slice(1)));
}
function expected(router) {
  const said = asked(router), states = { off: 0, up: 0, down: 0 };
  const up = Object.keys(said).filter(key => said[key.replace("Name", "State")] === "up").map(key => said[key]);
  for (let i = 1; i <= 8; ++i)
    ++states[said["cvCircuitEnabled." + i] === "false" ? "off" : up.includes("VC" + said["cvCircuitVpi." + i]) ? "up" : "down"];
  return [states.up, states.down, said["cvDslActualRateDown.0"], said["cvDslActualRateUp.0"]].map(Number);
}
const plain = text => Number(text.replace(/\u202f/g, ""));
// What a file of a router's device says from now on.
function write(router, file, text) {
  const path = `${folder}/${router}/device/${file}`;
  fs.writeFileSync(path + ".new", text);
  fs.renameSync(path + ".new", path);
}
const read = (router, file) => fs.readFileSync(`${folder}/${router}/device/${file}`, "utf8");
const without = (list, vpi) => list.replace(new RegExp(`^ *\\S+ +${vpi} .*\n`, "m"), "");
// The alerts that Alertmanager has of a router, as NAME or, kept back, (NAME).
const held = async router => (await (await fetch(alertmanager + "/api/v2/alerts")).json())
  .filter(one => one.labels.router === router)
  .map(one => one.status.inhibitedBy.length ? `(${one.labels.alertname})` : one.labels.alertname);
const mail = () => fs.existsSync(folder + "/mail") ? fs.readFileSync(folder + "/mail", "utf8") : "";
const sum = (rows, column) => rows.reduce((so_far, row) => so_far + row[column], 0);
async function fleetIsRight() {
  const shown = await texts("routers"), right = names.map(expected), totals = await texts("totals");
  assert.deepEqual(names.map(name => shown[name]?.slice(1, 5).map(plain)), right);
  assert(names.every(name => plain(shown[name][5]) < 60));
  assert.equal(totals["Circuits enabled"], String(sum(right, 0) + sum(right, 1)));
  assert.equal(totals["of these down"], sum(right, 1) + (sum(right, 1) ? " critical" : " ok"));
  assert.deepEqual(totals["Sum of rates, down / up"].split(" / ").map(plain), [sum(right, 2), sum(right, 3)]);
  assert.equal(totals["Routers answering"], `${names.length} of ${names.length} ok`);
}
const exporter = Number(fs.readFileSync(folder + "/exporter.pid", "utf8"));

try {
  await go(page);
  await soon("the fleet's page shows what the agents say", fleetIsRight);
  write(second, "pvc", without(read(second, "pvc"), 2));
  await soon("a circuit closes: its router comes first, with the trouble", async () => {
    const [[name, [trouble, , down]]] = Object.entries(await texts("routers"));
    assert.deepEqual([name, trouble.replace(/ \(since.*/, ""), down], [second, "critical circuit 2 (2/32) is enabled but down", "1"]);
    await fleetIsRight();
  }, true);
  await shoot("fleet");

  // A name that a manager could set is a text to the page.
  execFileSync("scripts/on-device", [`${folder}/${second}/device`, "quorlet", "updatekey VLAN Id 2 ParentIf text:<b>x</b> ;"]);
  await go(page.replace(".html", "-router.html") + "?instance=" + routers[second]);
  await soon("a router's page shows its circuits, VLAN objects, rates and health", async () => {
    const said = asked(second), circuits = await texts("circuits"), vlans = await texts("vlans");
    assert.deepEqual(Object.values(circuits).map(row => row[2]), ["up", "down", "up", "off", "off", "off", "off", "up"]);
    assert.deepEqual(circuits[8], ["atm8", "8/35", "up", "yes"]);
    assert.deepEqual(vlans[1], ["off", "tagged", "<b>x</b>", "–"]);
    assert.deepEqual(vlans[8], ["off", "tagged", "wan1", "1/32"]);
    assert.equal((await texts("interfaces")).PPPoE2, "down");
    const state = await texts("state"), health = await texts("health");
    assert.equal(state["Answers"], "yes");
    assert.deepEqual(state["Rate down"].split(" of ").map(plain), ["Actual", "Attainable"].map(kind => Number(said[`cvDsl${kind}RateDown.0`])));
    assert.equal(health["Sets refused"], "0");
    assert(plain(health["Refreshes done"]) > 0);
    assert.match(await advice(), /^critical circuit 2 .*\nThe line carries/);
  });
  await soon("the graph has four curves, and tells the rates where one points", async () => {
    assert.equal(await look("[...document.querySelectorAll('path.curve')].filter(p => /L/.test(p.getAttribute('d'))).length"), 4);
    await look("readTime(600 / 720)");
    const [, , down, up] = expected(second);
    const told = await look("document.getElementById('reading').innerText.replace(/\\u202f/g, '')");
    assert(told.includes(`: down ${down}, up ${up}, attainable down`), told);
  });
  await shoot("router");
  snmp("snmpset", "-t9", "-r0", "-ucorvantaOperator", routers[second], "cvConfirmTimeout.0", "=", "300", "cvCircuitVci.7", "=", "77");
  await soon("a change on trial shows, and what to do about it", async () => {
    assert.match((await texts("health"))["Change"], /^pending, \d+ of 300 s left$/);
    assert.equal((await texts("circuits"))[7][1], "7/77");
    assert.match(await advice(), /warning a change on trial waits.*\nWhoever made it sets cvChange/);
  });

  await browser("POST", `/${sessionId}/goog/cdp/execute`, { cmd: "Emulation.setDeviceMetricsOverride",
    params: { width: 390, height: 844, deviceScaleFactor: 1, mobile: true } });
  for (const url of [await look("location.href"), page]) {
    await go(url);
    await soon("it fits a phone, loads nothing from elsewhere, names every colour: " + url.replace(/.*\//, ""), async () => {
      assert(await look("document.querySelectorAll('td').length > 10 && document.documentElement.scrollWidth <= 390"));
      assert(await look("performance.getEntriesByType('resource').every(one => one.name.startsWith(location.origin))"));
      assert(await look("[...document.querySelectorAll('.critical, .warning, .info, .ok')].every(one => one.innerText)"));
    });
  }
  await shoot("phone");

  await soon("mail tells of the circuit, and what to do", () =>
    assert.match(mail(), new RegExp(`CRITICAL 1 firing: CorvantaCircuitDown\n${second}: circuit 2 .*since.*Compare VPI`)));
  const rates = read(last, "line-rates"), list = read(last, "pvc");
  write(last, "line-rates", rates.replace(/actual .*/, "actual 0 0"));
  write(last, "pvc", without(list, 1));
  await soon("a line goes down: mail tells it, its circuit's alert fires and is kept back", async () => {
    assert.match(mail(), new RegExp(`^${last}: line is down, since`, "m"));
    assert.deepEqual((await held(last)).sort(), ["(CorvantaCircuitDown)", "CorvantaLineDown"]);
    assert.deepEqual((await texts("routers"))[last][0].replace(/^Trouble: /, ""), "critical line is down");
  });
  // The next mail about circuits would name all that are not kept back.
  write(second, "pvc", without(read(second, "pvc"), 3));
  await soon("mail about circuits leaves out those of the line that is down", () => {
    assert.match(mail(), new RegExp(`^${second}: circuit 3 `, "m"));
    assert(!mail().includes(`${last}: circuit`));
  });
  signal("-STOP");
  await soon("a router that is silent is told from one with values, its line stays down", async () => {
    const totals = await texts("totals"), row = (await texts("routers"))[last];
    assert.match(row[0], /critical does not answer/);
    assert.match(row[0], /critical line is down/);
    assert.match(row[1], /unknown/);
    assert.equal(totals["Routers answering"], `${names.length - 1} of ${names.length} critical`);
    assert.equal(totals["Circuits enabled"], `${4 * names.length - 4} of ${4 * names.length} known`);
    assert.equal(totals["of these down"], `2 of ${4 * names.length - 4} known critical`);
    assert.match(totals["Sum of rates, down / up"], new RegExp(`, ${names.length - 1} of ${names.length} lines known$`));
  });
  await go(page.replace(".html", "-router.html") + "?instance=" + routers[last]);
  await soon("a silent router's page has no circuits that are none", async () => {
    assert(await look("['circuits', 'vlans', 'interfaces'].every(id => document.getElementById(id).innerText === 'unknown')"));
    assert.equal((await texts("health"))["Default WAN interface"], "unknown");
    assert.equal((await texts("state"))["Rate down"], "unknown");
  });
  signal("-CONT");
  write(last, "line-rates", rates);
  write(last, "pvc", list);
  await go(page);
  await soon("the line carries again: mail tells it, the page is as before", async () => {
    assert.match(mail(), new RegExp(`^${last}: line is down: over since`, "m"));
    assert.deepEqual(await held(last), []);
    await fleetIsRight();
  });
  process.kill(exporter, "SIGSTOP");
  await soon("an exporter that is down is told once, at the top, and nobody is blamed", async () => {
    assert.match(await look("document.getElementById('exporters').innerText"), /^critical the SNMP exporter does not answer.*\nNothing is known/);
    assert.deepEqual(Object.values(await texts("routers")).map(row => row[0].replace(/^Trouble: /, "")), names.map(() => "unknown"));
    const totals = await texts("totals");
    assert.deepEqual([totals["Routers answering"], totals["of these down"]], ["unknown", "unknown"]);
    assert.equal(totals["Circuits enabled"], `0 of ${4 * names.length} known`);
    assert.match(mail(), /^CRITICAL 1 firing: CorvantaExporterDown$/m);
  });
  const before = mail();
  process.kill(exporter, "SIGCONT");
  await soon("its end is told, and no router was", async () => {
    await fleetIsRight();
    assert.match(mail().slice(before.length), /1 resolved: CorvantaExporterDown/);
    assert(!mail().slice(before.length).includes("does not answer, since"));
  });
  assert.deepEqual((await browser("POST", `/${sessionId}/se/log`, { type: "browser" })).filter(line => line.level === "SEVERE"), []);
  console.log("ok the browser had nothing to complain of");
} finally {
  await browser("DELETE", `/${sessionId}`);
  driver.kill();
  process.kill(exporter, "SIGCONT"); // stopped, it would not end with the fleet
}
