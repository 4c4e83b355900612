// The pages in a browser, beside what the agents say, and the mail about them; pages_test.mjs looks at the
// pages in every state. scripts/fleet --check runs it on its fleet:
//
//     node fleet_page_test.mjs PAGE FLEET_FOLDER ALERTMANAGER
//
// Screenshots go to build/fleet.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import { open } from "./browser.mjs";

const [address, folder, alertmanager] = process.argv.slice(2), page = address + "?span=1h";
const pageOf = router => address.replace(".html", "-router.html") + "?span=1h&instance=" + routers[router];
const routers = Object.fromEntries([...fs.readFileSync(folder + "/targets/fleet.yml", "utf8")
  .matchAll(/'(.*)'.*router: ([^}]*)/g)].map(([, address, name]) => [name, address]));
const names = Object.keys(routers), second = names[1 % names.length], last = names.at(-1);

const browser = await open(folder + "/browser", "build/fleet"), { go, look, shoot, texts, soon } = browser;
const advice = () => look("byId('alerts').innerText");
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
const grouped = value => value.toLocaleString("en").replace(/,/g, "\u202f"), plain = text => Number(text.replace(/\u202f/g, ""));
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
  assert.deepEqual(names.map(name => shown[name]?.slice(1, 4)),
    right.map(([up, down, ...rates]) => [`${up} of ${up + down} up`, ...rates.map(grouped)]));
  assert(names.every(name => /^\d+ s$/.test(shown[name][4])));
  const [up, down] = [sum(right, 0), sum(right, 1)];
  assert.equal(String(totals["Circuits up"]), `${up} of ${up + down}` + (down ? `,${down} down` : ""));
  for (const [label, column] of [["All lines down", 2], ["All lines up", 3]]) assert.equal(totals[label][0], grouped(sum(right, column)) + " kbit/s");
  assert.equal(totals["Routers answering"], `${names.length} of ${names.length}`);
}
const exporter = Number(fs.readFileSync(folder + "/exporter-0.pid", "utf8"));

try {
  await go(page);
  await soon("the fleet's page shows what the agents say", fleetIsRight);
  write(second, "pvc", without(read(second, "pvc"), 2));
  await soon("a circuit closes: its router comes first, with the trouble", async () => {
    const [[name, [trouble]]] = Object.entries(await texts("routers"));
    assert.match(name + ": " + trouble, new RegExp(`^${second}: critical circuit 2 \\(2/32\\) is enabled but down for `));
    await fleetIsRight();
  }, true);
  await shoot("fleet");

  await go(pageOf(second));
  await soon("a router's page shows its circuits, VLAN objects, rates and health", async () => {
    const said = asked(second), circuits = await texts("circuits"), state = await texts("state");
    assert.deepEqual(Object.values(circuits).map(row => row[0]), ["up", "down", "up", "off", "off", "off", "off", "up"]);
    assert.deepEqual(circuits[8], ["up", "8/35", "atm8", "yes"]);
    assert.deepEqual((await texts("vlans"))[8], ["off", "tagged", "wan1", "1/32"]);
    assert.equal((await texts("interfaces")).PPPoE2, "down");
    assert.deepEqual(state["Rate down"].map(text => plain(text.replace(/[a-z/ ]/g, ""))),
      ["Actual", "Attainable"].map(kind => Number(said[`cvDsl${kind}RateDown.0`])));
    assert(plain((await texts("health"))["Refreshes done"]) > 0);
    assert.match(await advice(), /^critical circuit 2 .*\n+The line carries/);
    const identity = await texts("identity");
    assert.match(identity["Description"], /^corvantad \S+, SNMP agent/);
    assert.equal(identity["Engine boots"], "1");
  });
  await shoot("router");
  snmp("snmpset", "-t9", "-r0", "-ucorvantaOperator", routers[second], "cvConfirmTimeout.0", "=", "300", "cvCircuitVci.7", "=", "77");
  await soon("a change on trial shows, and what it changed", async () => {
    assert.match(String((await texts("state"))["Change"]), /^pending,\d+ of 300 s left/);
    assert.equal((await texts("circuits"))[7][1], "7/77");
    assert.match(await look("byId('events').innerText"), /circuit 7: VPI\/VCI 7\/\d+ became 7\/77/);
  });

  await go(page);
  await soon("mail tells of the circuit, and what to do", () =>
    assert.match(mail(), new RegExp(`CRITICAL 1 firing: CorvantaCircuitDown\n${second}: circuit 2 .*since.*Compare VPI`)));
  const rates = read(last, "line-rates"), list = read(last, "pvc");
  write(last, "line-rates", rates.replace(/actual .*/, "actual 0 0"));
  write(last, "pvc", without(list, 1));
  await soon("a line goes down: mail tells it, its circuit's alert fires and is kept back", async () => {
    assert.match(mail(), new RegExp(`^${last}: line is down, since`, "m"));
    assert.deepEqual((await held(last)).sort(), ["(CorvantaCircuitDown)", "CorvantaLineDown"]);
    assert.match((await texts("routers"))[last][0], /^critical line is down for (at least )?\d+ \S+$/);
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
    assert.equal(String(totals["Routers answering"]), `${names.length - 1} of ${names.length},1 silent`);
    assert.equal(String(totals["Circuits up"]), `${4 * names.length - 6} of ${4 * names.length},2 down, 4 unknown`);
    assert.equal(totals["All lines down"].at(-1), `${names.length - 1} of ${names.length} lines, the others unknown`);
  });
  await go(pageOf(last));
  await soon("a silent router's page has what it told last", async () => {
    assert.equal(Object.keys(await texts("circuits")).length, 8);
    assert.match(await look("byId('events').innerText"), /no answer, until now[^]*line went down/);
  });
  signal("-CONT");
  write(last, "line-rates", rates);
  write(last, "pvc", list);
  await go(page);
  await soon("the line carries again: mail tells it, the page is as before", async () => {
    assert.match(mail(), new RegExp(`^${last}: line is down: over since`, "m"));
    assert.deepEqual(await held(last), ["CorvantaCircuitFlapped"]); // as notifications told
    await fleetIsRight();
  });
  write(names[0], "pvc", without(read(names[0], "pvc"), 8));
  await soon("a notification of a circuit that closes", () =>
    assert.match(fs.readFileSync(folder + "/notifications.log", "utf8"), /\(127\.\d+\.0\.1\): circuit VC8 is down\n/));
  write(names[0], "pvc", list);
  await soon("a flap is told, also where no scrape has seen it", async () =>
    assert.match((await texts("routers"))[names[0]][0], /^warning circuit VC8 went down within 15 minutes and is up again/));
  await go(pageOf(names[0]));
  await soon("its router's page tells when", async () =>
    assert.match(await look("byId('events').innerText"), /notification of [^\n]*: VC8 is up[^]*notification of [^\n]*: VC8 is down/));
  await go(page);
  process.kill(exporter, "SIGSTOP");
  await soon("an exporter that is down is told once, at the top, and nobody is blamed", async () => {
    assert.match(await look("byId('notes').innerText"), /^critical the SNMP exporter does not answer.*\n+Nothing is known/);
    assert.deepEqual(Object.values(await texts("routers")).map(row => row[0]), names.map(() => "unknown"));
    const totals = await texts("totals");
    assert.deepEqual([totals["Routers answering"], String(totals["Circuits up"])], ["unknown", `unknown,${4 * names.length} enabled`]);
    assert.match(mail(), /^CRITICAL 1 firing: CorvantaExporterDown$/m);
  });
  const before = mail();
  process.kill(exporter, "SIGCONT");
  await soon("its end is told, and no router was", async () => {
    await fleetIsRight();
    assert.match(mail().slice(before.length), /1 resolved: CorvantaExporterDown/);
    assert(!mail().slice(before.length).includes("does not answer, since"));
  });
  assert.deepEqual(await browser.errors(), []);
  console.log("ok the browser had nothing to complain of");
} finally {
  await browser.close();
  process.kill(exporter, "SIGCONT"); // stopped, it would not end with the fleet
}
