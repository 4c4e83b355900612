// What Prometheus would answer about a world of routers with troubles, as far as the pages ask.
import assert from "node:assert/strict";
import fs from "node:fs";

const MINUTE = 60, HOUR = 3600;
const rules = Object.fromEntries(fs.readFileSync("monitoring/rules/corvanta-alerts.yml", "utf8").split("- alert: ").slice(1).map(text => {
  const part = name => text.match(new RegExp(`${name}: (?:&\\w+ )?(?:>-\\n((?: {12}.*\\n)+)|"?(.*?)"?\\n)`))?.slice(1).find(Boolean).replace(/\s+/g, " ").trim();
  return [text.match(/\w+/)[0], { severity: text.match(/severity: (\w+)/)[1], symptom_of: text.match(/symptom_of: (\w+)/)?.[1],
    summary: part("summary"), action: part("action") }];
}));

export class World {
  constructor({ count = 12, trouble = {}, exporterDown = false, started = 5 * 24 * HOUR, labels = {}, second = {} }) {
    Object.assign(this, { now: Date.now() / 1000, exporterDown, started: Date.now() / 1000 - started });
    this.routers = Array.from({ length: count }, (_, i) => ({ router: `router-${i + 1}`, instance: `192.0.2.${i + 1}:161`, i,
      labels: { site: ["north", "south", "west"][i % 3], region: i % 2 ? "inland" : "coast", ...labels }, ...(i === 1 ? trouble : i === 2 ? second : {}) }));
  }
  // Whether something that began so many seconds ago, and lasted, is so at a time.
  during(time, began, lasted = Infinity) { return began !== undefined && time >= this.now - began && time < this.now - began + lasted; }

  // The series of a router at a time, [name, value, labels]; ALL are those that the fleet's page does not ask for.
  health(r, t, all) {
    const pending = this.during(t, r.pending?.[0], r.pending?.[1]), restoring = this.during(t, r.restored, MINUTE), age = this.during(t, r.valuesOld) ? t - this.now + r.valuesOld : 12;
    const list = [["cvSecondsSinceRefresh", Math.round(age)]];
    if (!all) return list;
    list.push(["cvRefreshesDone", this.during(t, r.restarted) ? 7 : 4711], ["cvRefreshesFailed", 0], ["cvSetsRefused", this.during(t, r.refused) ? 3 : 0]);
    if (r.old) return list;
    return [...list, ["cvClientsKilled", 0], ["cvJournalsDamaged", 0], ["cvRowsNotRestored", 0], ["cvConfirmTimeout", pending ? 600 : 0], ["cvConfirmRemaining", pending ? 437 : 0],
      ...["idle", "pending", "restoring"].map(state => ["cvChangeState", Number(state === (restoring ? "restoring" : pending ? "pending" : "idle")), { cvChangeState: state }]),
      ["sysDescr", 1, { sysDescr: "corvantad 1.1.1, SNMP agent of an ATM-over-SHDSL modem-router" }], ["sysName", 1, { sysName: r.router + ".example" }],
      ["sysUpTime", 100 * (t - this.now + 9 * 24 * HOUR)], ["snmpEngineBoots", this.during(t, r.restarted) ? 8 : 7]];
  }
  values(r, t, all) {
    const lineDown = this.during(t, r.lineDown), drop = this.during(t, r.circuitDown, r.circuitLasted) ? 2 : 0;
    const down = lineDown ? 0 : 4096 + 64 * ((r.i * 7) % 26) + Math.round(40 * Math.sin(t / 5000 + r.i)), up = lineDown ? 0 : 768 + 32 * (r.i % 10);
    const isUp = vpi => !lineDown && vpi !== drop, circuits = [1, 2, 3, 4, 5, 6, 7, 8].map(n => ({ n, vpi: n, vci: n === 7 && this.during(t, r.pending?.[0], r.pending?.[1]) ? 77 : n === 1 ? 32 : 31 + n, on: [1, 2, 3, 8].includes(n) }));
    const labels = one => ({ cvCircuitIndex: String(one.n), cvCircuitVpi: String(one.vpi), cvCircuitVci: String(one.vci), cvCircuitDeviceName: "atm" + one.n });
    const on = circuits.filter(one => one.on), list = [["cvDslActualRateDown", down], ["cvDslActualRateUp", up], ["cvDslAttainableRateDown", down && down + 320],
      ["cvDslAttainableRateUp", up && up + 96], ["router:corvanta_circuits_known:sum", on.length], ["router:corvanta_circuits_enabled:sum", on.length],
      ["router:corvanta_circuits_down:sum", on.filter(one => !isUp(one.vpi)).length]];
    if (!all) return list;
    for (const one of circuits) {
      list.push(["cvCircuitEnabled", Number(one.on), labels(one)], ["cvCircuitFcsPreserve", 1, labels(one)], ["router:corvanta_vpi_up:max", Number(one.on && isUp(one.vpi)), { cvCircuitVpi: String(one.vpi) }]);
      if (one.on && !isUp(one.vpi)) list.push(["router:corvanta_circuit_down", 1, labels(one)]);
      for (const [name, value] of [["cvVlanEnabled", one.n < 3], ["cvVlanDiscardTag", one.n < 2]])
        list.push([name, Number(value), { cvVlanIndex: String(one.n), cvVlanWanInterface: one.n === 2 ? r.wan || "wan2" : one.n === 1 ? "wan1" : "" }]);
      for (const state of ["up", "down"]) list.push(["cvLayer2IfState", Number((state === "up") === (one.on && isUp(one.vpi))), { cvLayer2IfState: state, cvLayer2IfIndex: String(one.n), cvLayer2IfName: "VC" + one.vpi }]);
    }
    return [...list, ["cvDefaultWanInterface", 1, { cvDefaultWanInterface: "wan1" }], ["cvDiscardUntaggedFrames", 0]];
  }
  series(t, all) {
    if (t > Date.now() / 1000 + 1 || this.started > t && t > this.started - 10 * MINUTE) return [];
    const exporter = { __name__: "up", job: "corvanta_exporter", exporter: "127.0.0.1:9116", value: Number(!(this.exporterDown && t > this.now - 20 * MINUTE)) };
    return [exporter, ...this.routers.filter(r => !all || r.instance === all).flatMap(r => {
      const silent = this.during(t, r.silent) || this.exporterDown && t > this.now - 20 * MINUTE, mute = silent || this.during(t, r.valuesOld) && t > this.now - r.valuesOld + 2 * MINUTE;
      const target = { instance: r.instance, router: r.router, exporter: "127.0.0.1:9116", ...r.labels };
      const as = (job, list) => list.map(([__name__, value, labels]) => ({ ...target, ...labels, __name__, job, value }));
      const last = mute ? [["router:corvanta_circuits_enabled:sum", 4]] : [];
      return [...as("corvanta_health", [["up", Number(!silent)], ...(silent ? [] : this.health(r, t, all))]), ...as("corvanta", [["up", Number(!mute)], ...(mute ? last : this.values(r, t, all))])];
    })];
  }

  alerts() {
    const told = [], add = (r, alertname, ago, labels = {}, state = "firing", value = "") => {
      const { severity, symptom_of, ...texts } = rules[alertname], all = { alertname, severity, ...(symptom_of ? { symptom_of } : {}), exporter: "127.0.0.1:9116", ...(r ? { instance: r.instance, router: r.router } : {}), ...labels };
      const annotations = Object.fromEntries(Object.entries(texts).map(([name, text]) => [name, text.replace(/{{ \$labels\.(\w+) }}/g, (_, label) => all[label]).replace(/{{ \$value.*?}}/g, value)]));
      told.push({ labels: all, annotations, state, activeAt: new Date((this.now - ago) * 1000).toISOString(), value: "1" });
    };
    const circuit = n => ({ cvCircuitIndex: String(n), cvCircuitVpi: String(n), cvCircuitVci: String(31 + n), cvCircuitDeviceName: "atm" + n });
    if (this.exporterDown) add(undefined, "CorvantaExporterDown", 20 * MINUTE);
    for (const r of this.routers) {
      const heard = this.exporterDown ? 0 : 1;
      if (heard && r.silent) add(r, "CorvantaRouterNotAnswering", Math.min(r.silent, this.now - this.started), {}, r.silent < 2 * MINUTE ? "pending" : "firing");
      if (r.circuitDown && !r.circuitLasted) add(r, "CorvantaCircuitDown", Math.min(r.circuitDown, this.now - this.started), circuit(2), r.circuitDown < 5 * MINUTE ? "pending" : "firing");
      if (r.lineDown) for (const [name, labels] of [["CorvantaLineDown"], ["CorvantaCircuitDown", circuit(1)], ["CorvantaCircuitDown", circuit(2)]]) add(r, name, r.lineDown, labels);
      if (r.valuesOld) add(r, "CorvantaSnapshotOld", r.valuesOld, {}, "firing", "23m 10s");
      if (this.during(this.now, r.pending?.[0], r.pending?.[1])) add(r, "CorvantaChangePending", r.pending[0]);
      if (r.refused < 15 * MINUTE) add(r, "CorvantaSetsRefused", r.refused);
    }
    return told;
  }

  // Instant values of an expression, by the few forms that the pages use.
  evaluate(expression, t) {
    const by = expression.match(/^max by \((.*?)\) \((.*)\)$/), over = expression.match(/^\w+_over_time\(([^[]*)\[\d+s\]\)$/), left = expression.match(/^(cvConfirmRemaining{.*?}) - \(time\(\)/);
    const last = expression.match(/^max_over_time\(timestamp\((.*)\)\[(7d:1m|1m:1s)\]\)$/);
    if (by) return this.evaluate(by[2], t).map(one => Object.fromEntries(["value", ...by[1].split(", ")].map(name => [name, one[name]])));
    if (over) return this.evaluate(over[1], t).map(({ __name__, ...one }) => one);
    if (left) return this.evaluate(left[1], t).map(one => ({ ...one, value: one.value - 25 }));
    if (last) {
      const [reach, step] = last[2] === "7d:1m" ? [7 * 24 * HOUR, MINUTE] : [MINUTE, 1];
      for (let back = 0; back < reach; back += step) if (this.evaluate(last[1], t - back).length) return [{ value: t - back }];
      return [];
    }
    const [, name, matchers] = expression.match(/^([\w:]*){(.*)}$/) || assert.fail("the pages ask what no answer is made for: " + expression);
    const wanted = [...matchers.matchAll(/(\w+)(=~|!=|=)("(?:[^"\\]|\\.)*")/g)].map(([, label, sign, text]) => [label, sign, sign === "=~" ? new RegExp(`^(?:${JSON.parse(text)})$`) : JSON.parse(text)]);
    if (name) wanted.push(["__name__", "=", name]);
    const all = wanted.find(([label, sign]) => label === "instance" && sign === "=")?.[2];
    return this.series(t, all).filter(one => wanted.every(([label, sign, value]) => sign === "=~" ? value.test(one[label] || "") : (sign === "=") === ((one[label] || "") === value)));
  }
  answer(what, parameters) {
    if (what === "alerts") return { alerts: this.alerts() };
    if (what === "status/runtimeinfo") return { startTime: new Date(this.started * 1000).toISOString() };
    const expression = parameters.get("query");
    if (what === "query") return { resultType: "vector", result: this.evaluate(expression, Number(parameters.get("time") || Date.now() / 1000)).map(({ value, ...metric }) => ({ metric, value: [this.now, String(value)] })) };
    const [start, end, step] = ["start", "end", "step"].map(name => Number(parameters.get(name))), found = new Map();
    for (let t = start; t <= end; t += step) for (const { value, ...metric } of this.evaluate(expression, t)) {
      const key = JSON.stringify(metric);
      if (!found.has(key)) found.set(key, { metric, values: [] });
      found.get(key).values.push([t, String(value)]);
    }
    return { resultType: "matrix", result: [...found.values()] };
  }
}
