// A browser without a window, driven through chromedriver.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import fs from "node:fs";

export const pause = ms => new Promise(done => setTimeout(done, ms));

// PROFILE is a folder for what the browser stores; pictures go to the folder PICTURES.
export async function open(profile, pictures) {
  // A group of its own, which ends with this program however that ends: the browser outlives its driver.
  const driver = spawn("chromedriver", ["--port=0"], { stdio: ["ignore", "pipe", "inherit"], detached: true });
  process.on("exit", () => { try { process.kill(-driver.pid); } catch { /* has ended */ } });
  for (const signal of ["SIGINT", "SIGTERM"]) process.on(signal, () => process.exit(1));
  let said = "", port;
  while (!(port = said.match(/started successfully on port (\d+)/)?.[1])) said += (await once(driver.stdout, "data"))[0];
  async function call(method, path, body) {
    const answer = await fetch(`http://127.0.0.1:${port}/session${path}`, { method, body: body && JSON.stringify(body) });
    const { value } = await answer.json();
    assert(answer.ok, JSON.stringify(value));
    return value;
  }
  const { sessionId } = await call("POST", "", { capabilities: { alwaysMatch: {
    "goog:loggingPrefs": { browser: "ALL" }, timeouts: { script: 600000 },
    "goog:chromeOptions": { args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync", "--window-size=1400,900",
      `--user-data-dir=${profile}`] } } } });
  const devtools = (cmd, params) => call("POST", `/${sessionId}/goog/cdp/execute`, { cmd, params });
  // The value of an expression in the page, also when it is a promise.
  const look = expression => call("POST", `/${sessionId}/execute/sync`, { script: "return " + expression, args: [] });
  fs.mkdirSync(pictures, { recursive: true });
  return {
    devtools,
    go: url => call("POST", `/${sessionId}/url`, { url }),
    look,
    // The rows of a table, or the figures of a list, by their first texts.
    texts: async id => Object.fromEntries((await look(`[...document.querySelectorAll("#${id} tr, #${id} > div")]
      .map(row => [...row.children].map(one => one.innerText))`)).map(([first, ...rest]) =>
      [first.replace(/\n[^]*/, ""), rest.length > 1 ? rest : rest[0]])),
    // Waits for what must be true soon: two scrapes, the rules and, when it draws by itself, the page's
    // 15 seconds.
    async soon(what, check, byItself = false) {
      for (let tries = 90; ; --tries, await pause(500)) {
        try {
          if (!byItself) await look("draw()");
          await check();
          return console.log(`ok ${(performance.now() / 1000).toFixed(0).padStart(3)} s  ${what}`);
        } catch (error) {
          assert(tries > 0, what + ": " + error.message);
        }
      }
    },
    // Types keys, those without a letter as the WebDriver standard has them.
    type: keys => call("POST", `/${sessionId}/actions`, { actions: [{ type: "key", id: "keyboard",
      actions: [...keys].flatMap(value => [{ type: "keyDown", value }, { type: "keyUp", value }]) }] }),
    async size(width, dark = false) {
      await devtools("Emulation.setDeviceMetricsOverride", { width, height: width < 500 ? 844 : 900, deviceScaleFactor: 1, mobile: width < 500 });
      await devtools("Emulation.setEmulatedMedia", { features: [{ name: "prefers-color-scheme", value: dark ? "dark" : "light" }] });
    },
    async shoot(name) { // all of the page, the part below the window too, up to a limit
      const { cssContentSize: { width, height } } = await devtools("Page.getLayoutMetrics", {});
      const clip = { x: 0, y: 0, width, height: Math.min(height, 6000), scale: 1 };
      const { data } = await devtools("Page.captureScreenshot", { captureBeyondViewport: true, clip });
      fs.writeFileSync(`${pictures}/${name}.png`, Buffer.from(data, "base64"));
    },
    // What the console has complained of since the last time.
    errors: async () => (await call("POST", `/${sessionId}/se/log`, { type: "browser" })).filter(line => line.level === "SEVERE"),
    async close() {
      await call("DELETE", `/${sessionId}`);
      driver.kill();
    },
  };
}
