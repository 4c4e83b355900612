// The page above several shards, beside what the pages of the shards say. scripts/fleet --check runs it:
//
//     node shards_page_test.mjs PAGE FLEET_FOLDER ALERTMANAGER
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import fs from "node:fs";
import { open } from "./browser.mjs";

const [page, folder, alertmanager] = process.argv.slice(2);
const browser = await open(folder + "/browser", "build/fleet"), { go, look, texts, soon } = browser;
const numbers = of => String(of).replace(/\u202f/g, "").match(/\d+/g)?.map(Number) || [];
// Routers answering, all routers, circuits up, all circuits, the lines' rates down and up.
const padded = list => [...list, 0, 0, 0, 0, 0, 0].slice(0, 6); // a shard may have no routers
const figures = totals => padded(["Routers answering", "Circuits up", "All lines down", "All lines up"]
  .flatMap((name, i) => numbers([totals[name]].flat()[0]).slice(0, i < 2 ? 2 : 1)));
const rows = async () => Object.entries(await texts("shards")).map(([name, [trouble, ...of]]) => ({ name: name.split(" ", 2).join(" "), trouble, of: padded(of.flatMap(numbers)) }));
const sums = list => list.reduce((all, one) => all.map((value, i) => value + one[i]));
const links = () => look("[...document.querySelectorAll('#shards a')].map(one => one.href)");
let restarted;

try {
  await go(page);
  await soon("the page above knows its shards", async () => assert((await rows()).every(row => /^ok/.test(row.trouble))));
  const below = [];
  for (const address of await links()) {
    await go(address);
    await soon("a shard's page shows its routers, all well", async () => {
      const of = figures(await texts("totals")), [, routers] = of;
      assert.deepEqual(of.slice(0, 4), [routers, routers, 4 * routers, 4 * routers]);
      below.push(of);
    });
  }
  await go(page);
  await soon("its numbers are those of the shards' pages, and their sums", async () => {
    const shown = await rows(), all = figures(await texts("totals"));
    assert.deepEqual(shown.map(row => row.of), below);
    assert.deepEqual(all, sums(below));
    console.log(["| | answering | of | circuits up | of | down, kbit/s | up |", "| --- | --- | --- | --- | --- | --- | --- |",
      ...[...shown, { name: "above", of: all }].map(row => `| ${[row.name, ...row.of].join(" | ")} |`)].join("\n"));
  });

  const list = folder + "/router-1/device/pvc", before = fs.readFileSync(list, "utf8");
  const write = text => { fs.writeFileSync(list + ".new", text); fs.renameSync(list + ".new", list); };
  write(before.replace(/^ *\S+ +2 .*\n/m, ""));
  await soon("a router with a trouble is told, with a link to its page", async () => {
    assert.match(await look("byId('headline').innerText"), /^1 of \d+ routers needs you$/);
    assert.match(String((await texts("routers"))["router-1"]), /^critical circuit down: circuit 2 \(2\/32\),shard \d$/);
  });
  await browser.shoot("shards");
  const shard = Number((await texts("routers"))["router-1"][1].split(" ")[1]), [, routers] = figures(await texts("totals"));
  const own = below[shard][1], pid = Number(fs.readFileSync(`${folder}/prometheus-${shard}.pid`, "utf8"));
  await go(await look("document.querySelector('#routers a').href"));
  await soon("the link leads to the shard that has the router", async () => assert.match(await look("byId('headline').innerText"), /circuit 2 \(2\/32\) is enabled but down/));

  await go(page);
  const [command, ...words] = fs.readFileSync(`/proc/${pid}/cmdline`, "utf8").split("\0").slice(0, -1);
  process.kill(pid, "SIGKILL");
  await soon("a shard that is killed is told, its routers are unknown", async () => {
    assert.match(await look("byId('headline').innerText"), own === routers ? /^Nothing is known/ : new RegExp(`^${own} of ${routers} routers (are|is) unknown, the others are well$`));
    assert.match(await look("byId('summary').innerText"), /^1 shard of \d does not answer: what its routers do is unknown/);
    assert.match(await look("byId('notes').innerText"), new RegExp(`critical the Prometheus of shard ${shard} does not answer for`));
    assert.deepEqual((await rows())[shard].of, padded([own]));
    const told = (await texts("totals"))["Routers answering"];
    assert.equal(String(told), own === routers ? "unknown" : `${routers - own} of ${routers},${own} unknown`);
  });
  await soon("mail about its routers is kept back", async () => {
    const kept = (await (await fetch(alertmanager + "/api/v2/alerts")).json()).filter(one => one.labels.router === "router-1");
    assert.deepEqual(kept.map(one => one.status.inhibitedBy.length), [1]);
  });
  await browser.shoot("shard-down");
  restarted = spawn(command, words, { stdio: "ignore" });
  await soon("it is back, and its routers are known again, with their trouble", async () => {
    assert.match(await look("byId('headline').innerText"), /^1 of \d+ routers needs you$/);
    assert.equal(await look("byId('notes').innerText"), "");
    assert.deepEqual(figures(await texts("totals")).slice(0, 2), [routers, routers]);
    const { data } = await (await fetch(new URL((await links())[shard]).origin + "/api/v1/alerts")).json();
    assert.deepEqual(data.alerts.map(alert => alert.state), ["firing"]); // by itself, not only in what it has stored
  });
  write(before);
  await soon("the circuit is open again, and its flap is told", async () => {
    assert.deepEqual((await rows()).map(row => row.of), below);
    assert.deepEqual(figures(await texts("totals")), sums(below));
    assert.match(String((await texts("routers"))["router-1"]), /^warning circuit flapped,shard \d$/);
  });
  assert.deepEqual((await browser.errors()).map(line => line.message), []);
} finally {
  await browser.close();
  restarted?.kill();
}
