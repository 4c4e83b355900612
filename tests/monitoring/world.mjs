// What Prometheus would answer about a world of routers with troubles, as far as the pages ask.
import assert from "node:assert/strict";
import fs from "node:fs";

export const MINUTE = 60, HOUR = 3600;
const EXPORTER = "127.0.0.1:9116";

// The texts of the alerts, from their rules.
const RULES = Object.fromEntries(["alerts", "above"].map(name => fs.readFileSync(`monitoring/rules/corvanta-${name}.yml`, "utf8")).join("").split("- alert: ").slice(1).map(rule => {
  const text = name => rule.match(new RegExp(`${name}: (?:&\\w+ )?(?:>-\\n((?: {10,}.*\\n)+)|"?(.*?)"?\\n)`))
    ?.slice(1).find(Boolean).replace(/\s+/g, " ").trim();
  const label = name => rule.match(new RegExp(`${name}: (\\w+)`))?.[1];
  return [rule.match(/\w+/)[0], { severity: label("severity"), symptom_of: label("symptom_of"), summary: text("summary"), action: text("action"),
    query: text("expr") }];
}));

// COUNT routers; the second has TROUBLE, the third SECOND: what began how many seconds ago. circuitDown,
// lineDown, silent, valuesOld, refused and restarted last, pending and flap are [ago, seconds].
export class World {
  constructor({ count = 12, trouble = {}, second = {}, labels = {}, exporterDown, started = 120 * HOUR }) {
    const names = i => ({ router: `router-${i + 1}`, instance: `192.0.2.${i + 1}:161` });
    this.born = Date.now() / 1000;
    this.started = this.born - started;
    this.exporterDown = exporterDown;
    this.routers = Array.from({ length: count }, (_, i) => ({ i, ...names(i), ...[{}, trouble, second][i],
      labels: { site: ["north", "south", "west"][i % 3], region: i % 2 ? "inland" : "coast", ...labels } }));
  }
  is(t, ago, lasting = Infinity) { return ago !== undefined && t >= this.born - ago && t < this.born - ago + lasting; }
  onTrial(r, t) { return this.is(t, ...(r.pending || [])); }

  // --- Series of a router, as [name, value, labels]; ALL means those too that the fleet's page does not ask for

  health(r, t, all) {
    const old = this.is(t, r.valuesOld), restarted = this.is(t, r.restarted), onTrial = this.onTrial(r, t);
    const state = this.is(t, r.restored, MINUTE) ? "restoring" : onTrial ? "pending" : "idle";
    const list = [["cvSecondsSinceRefresh", old ? Math.round(t - this.born + r.valuesOld) : 12]];
    if (all) list.push(["cvRefreshesDone", restarted ? 7 : 4711], ["cvRefreshesFailed", 0], ["cvSetsRefused", this.is(t, r.refused) ? 3 : 0]);
    if (all && !r.before110) list.push(["cvClientsKilled", 0], ["cvJournalsDamaged", 0], ["cvRowsNotRestored", 0],
      ["cvConfirmTimeout", onTrial ? 600 : 0], ["cvConfirmRemaining", onTrial ? 437 : 0],
      ...["idle", "pending", "restoring"].map(name => ["cvChangeState", Number(name === state), { cvChangeState: name }]),
      ["sysDescr", 1, { sysDescr: "corvantad 1.1.1, SNMP agent of an ATM-over-SHDSL modem-router" }],
      ["sysName", 1, { sysName: r.router + ".example" }], ["sysUpTime", 100 * (t - this.started)], ["snmpEngineBoots", restarted ? 8 : 7]);
    return list;
  }
  values(r, t, all) {
    const lineDown = this.is(t, r.lineDown), dropped = this.is(t, r.circuitDown) || this.is(t, ...(r.flap || []));
    const down = lineDown ? 0 : 4096 + 64 * ((r.i * 7) % 26) + Math.round(40 * Math.sin(t / 5000 + r.i)), up = lineDown ? 0 : 768 + 32 * (r.i % 10);
    const on = [1, 2, 3, 8], isUp = n => on.includes(n) && !lineDown && !(n === 2 && dropped);
    const list = [["cvDslActualRateDown", down], ["cvDslActualRateUp", up],
      ["cvDslAttainableRateDown", down && down + 320], ["cvDslAttainableRateUp", up && up + 96],
      ["router:corvanta_circuits_known:sum", on.length], ["router:corvanta_circuits_enabled:sum", on.length],
      ["router:corvanta_circuits_down:sum", on.filter(n => !isUp(n)).length]];
    if (!all) return list;
    for (let n = 1; n <= 8; ++n) list.push(...this.circuit(n, on.includes(n), isUp(n), n === 7 && this.onTrial(r, t) ? 77 : 31 + n), ...this.vlan(n, r));
    return [...list, ["cvDefaultWanInterface", 1, { cvDefaultWanInterface: "wan1" }], ["cvDiscardUntaggedFrames", 0]];
  }
  circuit(n, on, up, vci) {
    const labels = { cvCircuitIndex: String(n), cvCircuitVpi: String(n), cvCircuitVci: String(vci), cvCircuitDeviceName: "atm" + n };
    return [["cvCircuitEnabled", Number(on), labels], ["cvCircuitFcsPreserve", 1, labels], ["router:corvanta_vpi_up:max", Number(up), { cvCircuitVpi: String(n) }],
      ...(on && !up ? [["router:corvanta_circuit_down", 1, labels]] : []), ...["up", "down"].map(state => ["cvLayer2IfState",
        Number((state === "up") === up), { cvLayer2IfState: state, cvLayer2IfIndex: String(n), cvLayer2IfName: "VC" + n }])];
  }
  vlan(n, r) {
    const labels = { cvVlanIndex: String(n), cvVlanWanInterface: ["", "wan1", r.wan || "wan2"][n] || "" };
    return [["cvVlanEnabled", Number(n < 3), labels], ["cvVlanDiscardTag", Number(n < 2), labels]];
  }

  // All series at a time, or those of one router.
  series(t, instance) {
    if (t > Date.now() / 1000 + 1 || this.is(t, this.born - this.started + 10 * MINUTE, 10 * MINUTE)) return []; // to come, or not watched
    const noExporter = this.exporterDown && this.is(t, 20 * MINUTE), all = instance !== undefined;
    const list = [{ __name__: "up", job: "corvanta_exporter", exporter: EXPORTER, value: Number(!noExporter) }];
    for (const r of this.routers.filter(r => !all || r.instance === instance)) {
      const silent = noExporter || this.is(t, r.silent), mute = silent || this.is(t, r.valuesOld - 2 * MINUTE || undefined);
      const add = (job, series) => list.push(...series.map(([__name__, value, labels]) =>
        ({ instance: r.instance, router: r.router, exporter: EXPORTER, ...r.labels, ...labels, __name__, job, value })));
      add("corvanta_health", [["up", Number(!silent)], ...(silent ? [] : this.health(r, t, all))]);
      add("corvanta", [["up", Number(!mute)], ...(mute ? [["router:corvanta_circuits_enabled:sum", 4]] : this.values(r, t, all))]);
    }
    return list;
  }

  // --- Alerts

  alert(r, alertname, ago, labels = {}, wait = 0) {
    const { severity, symptom_of, query, ...texts } = RULES[alertname], lasting = Math.min(ago, this.born - this.started);
    const all = { alertname, severity, exporter: EXPORTER, ...(symptom_of ? { symptom_of } : {}), ...(r ? { instance: r.instance, router: r.router } : {}), ...labels };
    const filled = text => text.replace(/{{ \$labels\.(\w+) }}/g, (_, label) => all[label]).replace(/{{ \$value.*?}}/g, "23m 10s");
    return { labels: all, annotations: Object.fromEntries(Object.entries(texts).map(([name, text]) => [name, filled(text)])),
      state: lasting < wait ? "pending" : "firing", activeAt: new Date((this.born - lasting) * 1000).toISOString(), value: "1" };
  }
  alerts() {
    const list = this.exporterDown ? [this.alert(undefined, "CorvantaExporterDown", 20 * MINUTE)] : [];
    const circuit = n => this.circuit(n, true, false, 31 + n)[0][2];
    for (const r of this.routers) {
      const add = (name, ago, ...more) => ago === undefined || list.push(this.alert(r, name, ago, ...more));
      add("CorvantaRouterNotAnswering", r.silent, {}, 2 * MINUTE);
      add("CorvantaCircuitDown", r.circuitDown, circuit(2), 5 * MINUTE);
      add("CorvantaLineDown", r.lineDown);
      add("CorvantaCircuitDown", r.lineDown, circuit(1), 5 * MINUTE);
      add("CorvantaSnapshotOld", r.valuesOld);
      if (this.onTrial(r, this.born)) add("CorvantaChangePending", r.pending[0]);
    }
    return list;
  }

  // --- Answers

  // Values of an expression at a time, by the few forms that the pages use.
  evaluate(expression, t) {
    const form = pattern => expression.match(pattern)?.slice(1), strip = ({ __name__, ...one }) => one;
    const by = form(/^max by \((.*?)\) \((.*)\)$/), over = form(/^\w+_over_time\(([^[]*)\[\d+s\]\)$/);
    const last = form(/^max_over_time\(timestamp\((.*)\)\[(7d:1m|1m:1s)\]\)$/), left = form(/^(cvConfirmRemaining{.*?}) - \(time\(\)/);
    if (by) return this.evaluate(by[1], t).map(one => Object.fromEntries(["value", ...by[0].split(", ")].map(name => [name, one[name]])));
    if (over) return this.evaluate(over[0], t).map(strip);
    if (left) return this.evaluate(left[0], t).map(one => ({ ...one, value: one.value - 25 }));
    if (last) {
      const [reach, step] = last[1] === "7d:1m" ? [168 * HOUR, MINUTE] : [MINUTE, 1];
      for (let back = 0; back < reach; back += step) if (this.evaluate(last[0], t - back).length) return [{ value: t - back }];
      return [];
    }
    return this.select(expression, t);
  }
  select(selector, t) {
    const [, name, matchers] = selector.match(/^([\w:]*){(.*)}$/) || assert.fail("no answer is made for " + selector);
    const wanted = [...matchers.matchAll(/(\w+)(=~|!=|=)("(?:[^"\\]|\\.)*")/g)].map(([, label, sign, text]) =>
      ({ label, sign, text: JSON.parse(text), pattern: new RegExp(`^(?:${JSON.parse(text)})$`) }));
    if (name) wanted.push({ label: "__name__", sign: "=", text: name });
    const fits = (one, { label, sign, text, pattern }) => sign === "=~" ? pattern.test(one[label] || "") : (sign === "=") === ((one[label] || "") === text);
    return this.series(t, wanted.find(({ label, sign }) => label === "instance" && sign === "=")?.text)
      .filter(one => wanted.every(matcher => fits(one, matcher)));
  }
  answer(what, parameters) {
    if (what === "alerts") return { alerts: this.alerts() };
    if (what === "rules") return { groups: [{ rules: Object.entries(RULES).map(([name, { query }]) => ({ name, query, duration: 300, labels: {} })) }] };
    if (what === "status/runtimeinfo") return { startTime: new Date(this.started * 1000).toISOString() };
    const [start, end, step, time] = ["start", "end", "step", "time"].map(name => Number(parameters.get(name))), query = parameters.get("query");
    if (what === "query") return { resultType: "vector", result: this.evaluate(query, time || Date.now() / 1000)
      .map(({ value, ...metric }) => ({ metric, value: [time, String(value)] })) };
    const found = new Map();
    for (let t = start; t <= end; t += step) for (const { value, ...metric } of this.evaluate(query, t)) {
      const key = JSON.stringify(metric);
      if (!found.has(key)) found.set(key, { metric, values: [] });
      found.get(key).values.push([t, String(value)]);
    }
    return { resultType: "matrix", result: [...found.values()] };
  }
}
