// The web monitor in a real browser (Debian's chromium, headless, driven by puppeteer-core): the page shows
// the live actors and topic rates of a running demo and the selected topic's last sample in the text form.
// The screenshot stays in the build tree as the test's artefact.
import assert from "node:assert/strict";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, test } from "node:test";

import puppeteer from "puppeteer-core";

import { ARTEFACTS, BOUND_MS, DOMAIN, alertService, startBridge, tool } from "./fixtures.mjs";

const running = [];
const profile = mkdtempSync(join(tmpdir(), "vantrel-monitor-"));
let browser;
after(async () => {
  if (browser) await browser.close();
  for (const p of running.reverse()) await p.stop();
  rmSync(profile, { recursive: true, force: true });
});

test("the monitor page shows live actors, rates and a sample's text", async () => {
  running.push(alertService());
  const bridge = await startBridge();
  running.push(bridge);
  // A command stream for the rates: raised at 20 Hz, each answered by the service with a log and a status.
  running.push(tool("call", "-d", DOMAIN, "M_Alert.CmdRaiseAlarm",
    JSON.stringify({ Condition: { SubsystemName: "Power", ComponentName: "Battery", Measure: "Voltage", Nature: "Low",
                                  AlarmDescription: "below 22 V" } }),
    "--rate", "20", "--count", "2000", "--quiet", "--name", "alert-console"));

  browser = await puppeteer.launch({
    executablePath: "/usr/bin/chromium",
    headless: true,
    userDataDir: profile,
    args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
  const page = await browser.newPage();
  await page.setViewport({ width: 1600, height: 820 });
  await page.goto(bridge.url);
  const text = (selector) => page.$eval(selector, (e) => e.textContent);

  await page.waitForFunction(() => document.getElementById("processes").textContent.includes("alert-service"), { timeout: BOUND_MS });
  await page.waitForFunction(() => [...document.querySelectorAll("#topics tbody tr")].some(
    (r) => r.dataset.topic.endsWith("CmdRaiseAlarm") && / Hz$/.test(r.querySelector(".rate").textContent)), { timeout: BOUND_MS });
  assert.match(await text("#processes"), /alert-console/);
  assert.match(await text("#processes"), /M_Alert Service/);

  await page.evaluate(() => [...document.querySelectorAll("#topics tbody tr")]
    .find((r) => r.dataset.topic.endsWith("ReportAlarmLog")).click());
  await page.waitForFunction(() => document.getElementById("sample").textContent.includes("below 22 V"), { timeout: BOUND_MS });
  assert.match(await text("#sample"), /AlarmDescription: below 22 V/);
  assert.match(await text("#selected"), /M_Alert\.IClient\.ReportAlarmLog/);
  await page.screenshot({ path: join(ARTEFACTS, "monitor.png") });
});
